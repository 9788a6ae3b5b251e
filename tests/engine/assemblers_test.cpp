// Assemblers: the global matrix is the sum of the elements' Lᵀ Ke L over the free
// DOFs; prescribed DOFs and null factors add nothing; and the product with the
// assembled matrix is the sum of the element products, for every thread count.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <string>

#include "engine_test_support.h"
#include "kelt/engine/assemblers.h"
#include "kelt/engine/multiply.h"

using namespace kelt;
using namespace kelt::core;

namespace {

const double nan_value = std::numeric_limits<double>::quiet_NaN();

dense1D<unsigned, 8> IDs_of(std::initializer_list<unsigned> ids)
{
    dense1D<unsigned, 8> out(unsigned(ids.size()));
    std::copy(ids.begin(), ids.end(), out.begin());
    return out;
}

// A packed symmetric matrix from its upper triangle, row by row.
symmetric_full<double> packed_of(unsigned m, std::initializer_list<double> upper_rows)
{
    symmetric_full<double> Ke(m);
    auto v = upper_rows.begin();
    for (unsigned i = 0; i < m; ++i)
        for (unsigned j = i; j < m; ++j) Ke(i, j) = *v++;
    return Ke;
}

Ptr<vector_fast> table_of(std::initializer_list<unsigned> ids)
{
    Ptr<vector_fast> t = new vector_fast;
    for (unsigned id : ids) (void)t->push_back(id);
    return t;
}

// ---- on the block matrix, over models with prescribed DOFs

struct model_case {
    std::string name;
    test::dof_model model;
    unsigned prescribed_every; // every k-th identifier of the model is prescribed, 0 for none
};

std::vector<model_case> model_cases()
{
    return {
        {"tiny", test::random_model(3, 1, 3, 4), 0},
        {"plate_2d", test::grid_model(10, 7, 0, 3), 5},
        {"block_3d", test::grid_model(4, 3, 3, 3), 7},
        {"random_repeats", test::random_model(150, 120, 8, 13), 6},
        // Beyond 16384 rows the product shares its blocks among threads; too large
        // for a dense reference, so it is last and only the products take it.
        {"wide_2d", test::grid_model(120, 50, 0, 3), 0},
    };
}
const unsigned nbr_dense_cases = 4;

struct assembled {
    test::numbered num;
    Ptr<vector_fast> rows; // the numbering's table, shared as a solver shares it
    std::vector<test::element_matrix> elements;
    symmetric_hybrid_OOC<double> A;
};

void assemble(const model_case& c, assembled& out, double factor = 1.0)
{
    std::vector<unsigned> prescribed;
    if (c.prescribed_every)
        for (unsigned k = 0; k < c.model.DOFs.size(); k += c.prescribed_every) prescribed.push_back(c.model.DOFs[k]);
    out.num = test::number(c.model, prescribed);
    out.rows = new vector_fast(out.num.free_IDs);
    out.elements = test::random_element_matrices(c.model, 21);
    ASSERT_EQ(out.A.create(out.num.profile, out.num.free_IDs.size()), no_error);
    indexed_sym_matrix target{out.A, out.rows};
    sym_assembler a(target, factor);
    for (const auto& e : out.elements) ASSERT_EQ(a.add_symmetric(e.Ke, e.IDs, true), no_error);
}

std::vector<double> storage_of(const symmetric_hybrid_OOC<double>& A)
{
    const double* v = A.proxy()->find_block(0)->values;
    return std::vector<double>(v, v + A.proxy()->nbr_values());
}

} // namespace

class assembly_cases : public ::testing::TestWithParam<unsigned> {};
class product_cases : public ::testing::TestWithParam<unsigned> {};

TEST_P(assembly_cases, the_matrix_is_the_sum_of_the_elements_and_is_reproducible)
{
    const model_case c = model_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    assembled first, second;
    assemble(c, first);
    assemble(c, second);
    const unsigned n = first.num.free_IDs.size();
    const test::dense_sum_type ref = test::dense_sum(first.elements, first.num.free_IDs);
    // Both sums add the same terms, in another order only within an element with a
    // repeated DOF: two orders of t terms differ by at most 2 t ε Σ|terms|.
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) {
            const std::size_t at = i + std::size_t(j) * n;
            ASSERT_LE(std::fabs(first.A.get(i, j) - ref.sum[at]), 2.0 * ref.terms[at] * DBL_EPSILON * ref.magnitude[at])
                << i << " " << j;
        }
    EXPECT_EQ(storage_of(first.A), storage_of(second.A));

    // A null factor leaves the matrix untouched, to the bit.
    const std::vector<double> before = storage_of(first.A);
    indexed_sym_matrix target{first.A, first.rows};
    for (double f : {0.0, nan_value}) {
        sym_assembler a(target, f);
        for (const auto& e : first.elements) ASSERT_EQ(a.add_symmetric(e.Ke, e.IDs, true), no_error);
    }
    EXPECT_EQ(std::memcmp(before.data(), storage_of(first.A).data(), before.size() * sizeof(double)), 0);
}

TEST_P(assembly_cases, the_skew_part_goes_above_the_diagonal_with_its_sign)
{
    const model_case c = model_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    test::numbered num = test::number(c.model);
    const unsigned n = num.free_IDs.size();
    symmetric_hybrid_OOC<double> A;
    ASSERT_EQ(A.create(num.profile, n, 0.0), no_error);
    indexed_sym_matrix target{A, new vector_fast(num.free_IDs)};
    skew_assembler a(target, 1.0);
    const auto elements = test::random_element_matrices(c.model, 5);
    std::vector<double> ref(std::size_t(n) * n, 0.0), mag(ref.size(), 0.0), terms(ref.size(), 0.0);
    for (const auto& e : elements) {
        ASSERT_EQ(a.add_symmetric(e.Ke, e.IDs, false), no_error);
        // The skew matrix S whose upper triangle is stored: S(j, i) = -S(i, j).
        for (unsigned i = 0; i < e.IDs.size(); ++i)
            for (unsigned j = i + 1; j < e.IDs.size(); ++j) {
                const unsigned ri = num.free_IDs.rank(e.IDs[i]), rj = num.free_IDs.rank(e.IDs[j]);
                ref[ri + std::size_t(rj) * n] += e.Ke(i, j);
                ref[rj + std::size_t(ri) * n] -= e.Ke(i, j);
                for (const std::size_t at : {ri + std::size_t(rj) * n, rj + std::size_t(ri) * n})
                    mag[at] += std::fabs(e.Ke(i, j)), terms[at] += 1.0;
            }
    }
    for (unsigned j = 0; j < n; ++j) {
        EXPECT_EQ(A.get(j, j), 0.0);
        for (unsigned i = 0; i < j; ++i) {
            const std::size_t at = i + std::size_t(j) * n;
            // The same terms in two orders: 2 t ε Σ|terms| at most.
            ASSERT_LE(std::fabs(A.get(i, j) - ref[at]), 2.0 * terms[at] * DBL_EPSILON * mag[at]) << i << " " << j;
        }
    }
}

// y + f A x against y + f Σ Lᵀ Ke (L x), element by element: each row is a sum of
// t element terms in another order, so the two agree to 2 (t + 2) ε Σ|terms|.
TEST_P(product_cases, the_product_is_the_sum_of_the_element_products_for_any_thread_count)
{
    const model_case c = model_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    assembled m;
    assemble(c, m);
    const unsigned n = m.num.free_IDs.size();
    const double f = -1.5;
    std::vector<double> x(n), y0(n), ref(n), mag(n), terms(n, 2.0);
    for (unsigned i = 0; i < n; ++i) x[i] = std::sin(0.3 + i), y0[i] = std::cos(1.0 + 2.0 * i);
    for (unsigned i = 0; i < n; ++i) ref[i] = y0[i], mag[i] = std::fabs(y0[i]);
    for (const auto& e : m.elements)
        for (unsigned i = 0; i < e.IDs.size(); ++i) {
            const unsigned ri = m.num.free_IDs.rank(e.IDs[i]);
            if (ri == vector_fast::none) continue;
            for (unsigned j = 0; j < e.IDs.size(); ++j) {
                const unsigned rj = m.num.free_IDs.rank(e.IDs[j]);
                if (rj == vector_fast::none) continue;
                ref[ri] += f * e.Ke(i, j) * x[rj];
                mag[ri] += std::fabs(f * e.Ke(i, j) * x[rj]);
                terms[ri] += 1.0;
            }
        }
    std::vector<std::vector<double>> results;
    for (unsigned threads : {1u, 2u, 3u}) {
        std::vector<double> y = y0;
        multiply(m.A, f, x.data(), y.data(), threads);
        for (unsigned i = 0; i < n; ++i)
            ASSERT_LE(std::fabs(y[i] - ref[i]), 2.0 * terms[i] * DBL_EPSILON * mag[i]) << threads << " " << i;
        results.push_back(y);
    }
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(results[0], results[2]);

    // Null factors leave y alone.
    for (double g : {0.0, nan_value}) {
        std::vector<double> y = y0;
        multiply(m.A, g, x.data(), y.data(), 2);
        EXPECT_EQ(y, y0);
    }
}

TEST_P(product_cases, masked_rows_hold_the_strain_energy)
{
    const model_case c = model_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    assembled m;
    assemble(c, m);
    const unsigned n = m.num.free_IDs.size();
    std::vector<double> x(n), plain(n, 0.0), y(n, 0.0);
    for (unsigned i = 0; i < n; ++i) x[i] = std::sin(0.7 * i + 0.1);
    // With every row fixed, the energy is ½ xᵀ A x, the sum of the element energies.
    std::vector<unsigned> all(n);
    for (unsigned i = 0; i < n; ++i) all[i] = i;
    const double energy = multiply_fixed(m.A, 1.0, x.data(), y.data(), all.data(), n, 1);
    double element_energy = 0.0, magnitude = 0.0, terms = 0.0;
    for (const auto& e : m.elements)
        for (unsigned i = 0; i < e.IDs.size(); ++i)
            for (unsigned j = 0; j < e.IDs.size(); ++j) {
                const unsigned ri = m.num.free_IDs.rank(e.IDs[i]), rj = m.num.free_IDs.rank(e.IDs[j]);
                if (ri == vector_fast::none || rj == vector_fast::none) continue;
                element_energy += 0.5 * x[ri] * e.Ke(i, j) * x[rj];
                magnitude += std::fabs(0.5 * x[ri] * e.Ke(i, j) * x[rj]);
                terms += 1.0;
            }
    EXPECT_NEAR(energy, element_energy, 2.0 * (terms + n) * DBL_EPSILON * magnitude);
    for (double v : y) EXPECT_EQ(v, 0.0);

    // Fixing some rows zeroes just those; the others are the plain product.
    multiply(m.A, 2.0, x.data(), plain.data(), 1);
    std::vector<unsigned> some;
    for (unsigned i = 0; i < n; i += 3) some.push_back(i);
    std::fill(y.begin(), y.end(), 0.0);
    double expected = 0.0;
    for (unsigned r : some) expected += x[r] * plain[r];
    EXPECT_EQ(multiply_fixed(m.A, 2.0, x.data(), y.data(), some.data(), unsigned(some.size()), 2), expected * 0.5 / 2.0);
    for (unsigned i = 0; i < n; ++i) EXPECT_EQ(y[i], i % 3 ? plain[i] : 0.0);
}

INSTANTIATE_TEST_SUITE_P(engine, assembly_cases, ::testing::Range(0u, nbr_dense_cases));
INSTANTIATE_TEST_SUITE_P(engine, product_cases, ::testing::Range(0u, unsigned(model_cases().size())));

TEST(sym_assembler, a_coupling_outside_the_profile_is_reported)
{
    test::dof_model model = test::grid_model(6, 1, 0, 1);
    test::numbered num = test::number(model);
    const unsigned n = num.free_IDs.size();
    // Every entry of the profile reads 1, every other 0.
    symmetric_hybrid_OOC<double> A;
    ASSERT_EQ(A.create(num.profile, n, 1.0), no_error);
    unsigned ri = 0, rj = 0;
    for (unsigned j = 1; j < n && !rj; ++j)
        for (unsigned i = 0; i < j && !rj; ++i)
            if (A.get(i, j) == 0.0) ri = i, rj = j;
    ASSERT_NE(rj, 0u) << "the strip's profile is full";
    indexed_sym_matrix target{A, new vector_fast(num.free_IDs)};
    sym_assembler a(target);
    const dense1D<unsigned, 8> IDs = IDs_of({num.free_IDs[ri], num.free_IDs[rj]});
    EXPECT_EQ(a.add_symmetric(packed_of(2, {1, 1, 1}), IDs, true), internal_error);
}

// ---- the other targets

TEST(vector_assembler, adds_scaled_values_at_the_rows_of_known_DOFs_only)
{
    indexed_vector v;
    ASSERT_TRUE(v.create(table_of({10, 20, 30})));
    vector_assembler<indexed_vector> a(v, 2.0);
    EXPECT_EQ(a.add(20, 3.0), no_error);
    EXPECT_EQ(a.add(99, 1.0), no_error);
    EXPECT_EQ(a.add(vector_fast::none, 1.0), no_error);
    EXPECT_EQ(a.add(10, nan_value), no_error);
    dense1D<double, 8> values(3, 1.0);
    EXPECT_EQ(a.add_vector(values, IDs_of({30, 99, 30})), no_error);
    EXPECT_EQ(a.add_vector(values, IDs_of({10, 20})), no_error); // sizes differ
    EXPECT_EQ(v[0], 0.0);
    EXPECT_EQ(v[1], 6.0);
    EXPECT_EQ(v[2], 4.0);

    for (double f : {0.0, nan_value}) EXPECT_TRUE(vector_assembler<indexed_vector>(v, f).is_null());
    indexed_vector empty;
    EXPECT_TRUE(vector_assembler<indexed_vector>(empty, 1.0).is_null());
    // A table longer than the vector: its last rows have no entry.
    indexed_vector shorter = v;
    shorter.values = v.values.sub_vector(0, 2);
    vector_assembler<indexed_vector> s(shorter);
    EXPECT_EQ(s.add(30, 1.0), no_error);
    EXPECT_EQ(v[2], 4.0);

    indexed_zvector z;
    ASSERT_TRUE(z.create(table_of({10, 20})));
    vector_assembler<indexed_zvector> za(z, {0.0, 1.0});
    EXPECT_EQ(za.add(20, 2.0), no_error);
    EXPECT_EQ(z[1], std::complex<double>(0.0, 2.0));
    EXPECT_EQ(z[0], std::complex<double>());
    EXPECT_TRUE(vector_assembler<indexed_zvector>(z, {nan_value, 0.0}).is_null());
}

TEST(diag_assembler, takes_diagonals_only)
{
    indexed_vector d;
    ASSERT_TRUE(d.create(table_of({10, 20})));
    matrix_diag_assembler<indexed_vector> a(d, 0.5);
    dense1D<double, 8> values(3);
    values[0] = 4, values[1] = 6, values[2] = 8;
    EXPECT_EQ(a.add_diagonal(values, IDs_of({20, 99, 20})), no_error);
    EXPECT_EQ(a.add_symmetric(packed_of(2, {1, 1, 1}), IDs_of({10, 20}), true), no_error);
    EXPECT_EQ(a.add_general(dense2D<double>(2, 2, 1.0), IDs_of({10, 20})), no_error);
    EXPECT_EQ(d[0], 0.0);
    EXPECT_EQ(d[1], 6.0);
    EXPECT_TRUE(matrix_diag_assembler<indexed_vector>(d, 0.0).is_null());
}

// A rod of mass m along x between nodes 3 and 4: consistent mass m/6 [2 1; 1 2] on
// each translation, some rotary inertia, and couplings between translations and
// rotations as in a beam. The sum over the DOFs of one translation is the mass.
TEST(projection_assembler, sums_the_mass_of_one_direction)
{
    const double m = 12.0;
    dense1D<unsigned, 8> IDs(12);
    for (unsigned l = 0; l < 12; ++l) IDs[l] = (l < 6 ? 3 : 4) * 9 + l % 6;
    symmetric_full<double> M(12, 0.0);
    for (unsigned c = 0; c < 3; ++c) {
        M(c, c) = M(6 + c, 6 + c) = m / 3;
        M(c, 6 + c) = m / 6;
    }
    for (unsigned c = 3; c < 6; ++c) M(c, c) = M(6 + c, 6 + c) = 0.7, M(c, 6 + c) = -0.2;
    M(1, 5) = 0.9, M(2, 10) = -0.4, M(7, 11) = 0.3;

    for (unsigned component : {0u, 1u, 2u}) {
        DOF_selector select;
        select.component = component;
        matrix_sym_assembler_projection<DOF_selector> p(select);
        EXPECT_FALSE(p.is_null());
        EXPECT_EQ(p.add_symmetric(M, IDs, true), no_error);
        EXPECT_NEAR(p.sum, m, 4 * DBL_EPSILON * m) << component;
        EXPECT_EQ(p.add_symmetric(M, IDs, false), no_error); // not its flag
        EXPECT_EQ(p.add_general(dense2D<double>(12, 12, 1.0), IDs), no_error);
        EXPECT_EQ(p.add_symmetric(M, IDs_of({27, 36}), true), no_error); // sizes differ
        EXPECT_NEAR(p.sum, m, 4 * DBL_EPSILON * m);
    }
    // With a set holding the x DOF of node 3: mode 1 keeps it alone, mode 0 the other node.
    DOF_selector select;
    ASSERT_TRUE(select.bits.resize(64, false));
    select.bits.put(27, true);
    for (unsigned mode : {0u, 1u}) {
        select.mode = mode;
        matrix_sym_assembler_projection<DOF_selector> p(select);
        EXPECT_EQ(p.add_symmetric(M, IDs, true), no_error);
        EXPECT_DOUBLE_EQ(p.sum, m / 3);
        dense1D<double, 8> lumped(2, m / 2);
        EXPECT_EQ(p.add_diagonal(lumped, IDs_of({27, 36})), no_error);
        EXPECT_DOUBLE_EQ(p.sum, m / 3 + m / 2);
    }
}

namespace {

// A small dense matrix addressed by DOF identifier, as general assemblers expect.
template <class T>
struct dense_target {
    using value_type = T;
    Ptr<vector_fast> IDs;
    dense2D<T> values;

    dense_target(std::initializer_list<unsigned> ids) : IDs(table_of(ids)), values(IDs->size(), IDs->size(), T()) {}
    unsigned rows() const { return values.rows(); }
    unsigned cols() const { return values.cols(); }
    unsigned row_pos(unsigned ID) const
    {
        const unsigned r = IDs->rank(ID);
        return r < rows() ? r : no_rank;
    }
    dense1D<T, 8> col(unsigned j) { return values.col(j); }
};

} // namespace

TEST(gen_assembler, symmetric_elements_give_a_symmetric_matrix_and_skew_ones_a_skew_matrix)
{
    const std::complex<double> f(0.5, -2.0);
    const symmetric_full<double> Ke = packed_of(3, {1, 2, 3, /**/ 5, 7, /**/ 11});
    for (bool symmetric : {true, false}) {
        dense_target<std::complex<double>> t({10, 20, 30, 40});
        matrix_gen_assembler<dense_target<std::complex<double>>> a(t, f);
        ASSERT_EQ(a.add_symmetric(Ke, IDs_of({40, 99, 10}), symmetric), no_error);
        ASSERT_EQ(a.add_symmetric(Ke, IDs_of({20, 40, 20}), symmetric), no_error);
        for (unsigned i = 0; i < 4; ++i)
            for (unsigned j = 0; j < 4; ++j)
                EXPECT_EQ(t.values(i, j), symmetric ? t.values(j, i) : -t.values(j, i)) << i << j;
        // Entry (rank of 40, rank of 10) is local (0, 2); local 1 is prescribed.
        EXPECT_EQ(t.values(3, 0), f * Ke(0, 2));
        EXPECT_EQ(t.values(1, 3), f * (symmetric ? Ke(0, 1) + Ke(2, 1) : Ke(0, 1) - Ke(1, 2)));
        EXPECT_EQ(t.values(1, 1), symmetric ? f * (Ke(0, 0) + 2.0 * Ke(0, 2) + Ke(2, 2)) : 0.0);
        EXPECT_EQ(t.values(2, 2), 0.0); // 30 is in no element
    }
}

TEST(gen_assembler, general_and_diagonal_elements_and_null_cases)
{
    dense_target<std::complex<double>> t({10, 20, 30});
    const std::complex<double> f(0.0, 1.0);
    matrix_gen_assembler<dense_target<std::complex<double>>> a(t, f);
    dense2D<double> Ke(2, 2);
    Ke(0, 0) = 1, Ke(1, 0) = 2, Ke(0, 1) = 3, Ke(1, 1) = 4;
    ASSERT_EQ(a.add_general(Ke, IDs_of({30, 10})), no_error);
    ASSERT_EQ(a.add_diagonal(dense1D<double, 8>(2, 5.0), IDs_of({20, 99})), no_error);
    EXPECT_EQ(t.values(2, 2), f * 1.0);
    EXPECT_EQ(t.values(0, 2), f * 2.0); // row of 10, column of 30
    EXPECT_EQ(t.values(2, 0), f * 3.0);
    EXPECT_EQ(t.values(0, 0), f * 4.0);
    EXPECT_EQ(t.values(1, 1), f * 5.0);
    EXPECT_EQ(a.add_general(Ke, IDs_of({30, 10, 20})), no_error); // sizes differ: nothing
    EXPECT_EQ(t.values(1, 1), f * 5.0);
    for (std::complex<double> g : {std::complex<double>(), std::complex<double>(0.0, nan_value)})
        EXPECT_TRUE((matrix_gen_assembler<dense_target<std::complex<double>>>(t, g).is_null()));
    dense_target<std::complex<double>> none({});
    EXPECT_TRUE(matrix_gen_assembler<dense_target<std::complex<double>>>(none).is_null());

    // The real general assembler takes general elements only.
    dense_target<double> r({10, 30});
    matrix_indexed2d_assembler<dense_target<double>> ra(r, 2.0);
    ASSERT_EQ(ra.add_symmetric(packed_of(2, {1, 1, 1}), IDs_of({10, 30}), true), no_error);
    ASSERT_EQ(ra.add_diagonal(dense1D<double, 8>(2, 1.0), IDs_of({10, 30})), no_error);
    EXPECT_EQ(r.values(0, 0), 0.0);
    ASSERT_EQ(ra.add_general(Ke, IDs_of({30, 10})), no_error);
    EXPECT_EQ(r.values(0, 1), 4.0);
    EXPECT_EQ(r.values(1, 0), 6.0);
    EXPECT_TRUE(matrix_indexed2d_assembler<dense_target<double>>(r, 0.0).is_null());
}
