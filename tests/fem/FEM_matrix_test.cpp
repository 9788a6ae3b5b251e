// Matrices of DOF values: access by position and by identifier, the refusals of
// every host-facing operation, windows that share rows and data, products and
// axpy checked against each other, and positions moved by translations alone.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "kelt/core/FEM_states.h"
#include "kelt/core/context.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/context.h"
#include "kelt/fem/stress_mgr.h"
#include "support/values.h"

using namespace kelt;
using test::make;

namespace {

constexpr unsigned none = 0xFFFFFFFFu;

// Rows = the given identifiers, entry (i, j) = 100 i + j.
fem::FEM_matrix numbered(const dense1D<unsigned, 8>& IDs, unsigned cols)
{
    fem::FEM_matrix m(IDs, cols);
    for (unsigned j = 0; j < m.cols(); ++j)
        for (unsigned i = 0; i < m.rows(); ++i) EXPECT_EQ(m.set_val(i, j, 100.0 * i + j), no_error);
    return m;
}

fem::FEM_matrix random_matrix(std::mt19937& rng, unsigned rows, unsigned cols)
{
    dense1D<unsigned, 8> IDs;
    for (unsigned i = 0; i < rows; ++i) IDs.push_back(3 * i + 1);
    fem::FEM_matrix m(IDs, cols);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (unsigned j = 0; j < cols; ++j)
        for (unsigned i = 0; i < rows; ++i) EXPECT_EQ(m.set_val(i, j, u(rng)), no_error);
    return m;
}

double value(const fem::FEM_matrix& m, unsigned i, unsigned j)
{
    double v = -1.0;
    EXPECT_EQ(m.get_val(i, j, v), no_error);
    return v;
}

TEST(FEM_matrix, rows_follow_the_identifiers)
{
    const fem::FEM_matrix m = numbered(make<unsigned>({27, 5, 9, 5}), 2);
    EXPECT_EQ(m.rows(), 3u); // a repeated identifier keeps its first row
    EXPECT_EQ(m.row_pos(9), 2u);
    EXPECT_EQ(m.row_pos(4), none);
    EXPECT_EQ(m.row_pos(none), none);
    double v = 0.0;
    EXPECT_EQ(m.getID_val(9, 1, v), no_error);
    EXPECT_EQ(v, 201.0);
    const fem::FEM_matrix empty;
    EXPECT_EQ(empty.rows() + empty.cols(), 0u);
    EXPECT_EQ(empty.row_pos(0), none);
}

TEST(FEM_matrix, out_of_range_access_is_refused_and_changes_nothing)
{
    fem::FEM_matrix m = numbered(make<unsigned>({0, 1, 2}), 4);
    double v = 7.0;
    EXPECT_EQ(m.get_val(3, 0, v), invalid_data_error);
    EXPECT_EQ(m.get_val(0, 4, v), invalid_data_error);
    EXPECT_EQ(m.get_val(none, none, v), invalid_data_error);
    EXPECT_EQ(v, 7.0);
    EXPECT_EQ(m.set_val(3, 0, 1.0), invalid_data_error);
    EXPECT_EQ(m.set_val(0, 4, 1.0), invalid_data_error);
    EXPECT_EQ(m.getID_val(5, 0, v), invalid_data_error);
    EXPECT_EQ(m.setID_val(5, 0, 1.0), invalid_data_error);

    dense1D<double, 8> out = make<double>({1.0});
    EXPECT_EQ(m.get_col(4, out), invalid_data_error);
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(m.col(4).empty());
    EXPECT_EQ(m.set_col(4, make<double>({1, 2, 3})), invalid_data_error);
    EXPECT_EQ(m.set_col(0, make<double>({1, 2})), invalid_data_error);
    vector_fixed<double, 3> u{{1, 1, 1}};
    EXPECT_EQ(m.get_vector(0, displacement_tag, 4, u), invalid_data_error);
    EXPECT_EQ(m.set_vector(0, displacement_tag, 4, u), invalid_data_error);
    dense2D<double> many(3, 2);
    EXPECT_EQ(m.get_vectors(0, displacement_tag, 9, many), invalid_data_error);
    dense2D<double> pos(3, 1);
    EXPECT_EQ(m.add_displacements(pos, 4, 1.0), invalid_data_error);
    for (unsigned j = 0; j < 4; ++j)
        for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(value(m, i, j), 100.0 * i + j);
}

TEST(FEM_matrix, columns_come_as_views_or_as_copies)
{
    fem::FEM_matrix m = numbered(make<unsigned>({0, 1, 2}), 2);
    dense1D<double, 8> view = m.col(1);
    view[2] = -1.0; // in place
    EXPECT_EQ(value(m, 2, 1), -1.0);
    dense1D<double, 8> copy;
    ASSERT_EQ(m.get_col(1, copy), no_error);
    copy[0] = 55.0;
    EXPECT_EQ(value(m, 0, 1), 1.0);
    // A copy into a view of another column must not write through it.
    dense1D<double, 8> other = m.col(0);
    ASSERT_EQ(m.get_col(1, other), no_error);
    EXPECT_EQ(value(m, 0, 0), 0.0);
    ASSERT_EQ(m.set_col(0, make<double>({4, 5, 6})), no_error);
    EXPECT_EQ(value(m, 2, 0), 6.0);
}

TEST(FEM_matrix, get_row_refuses_bad_steps_and_ranges)
{
    const fem::FEM_matrix m = numbered(make<unsigned>({0, 1}), 6);
    dense1D<double, 8> out;
    ASSERT_EQ(m.get_row(1, out, 2), no_error);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[2], 104.0);
    ASSERT_EQ(m.get_row(0, out, 1, 2, 2), no_error); // columns 1 and 3
    EXPECT_EQ(out[1], 3.0);
    ASSERT_EQ(m.getID_row(1, out, 3), no_error);
    EXPECT_EQ(out[1], 103.0);

    struct bad {
        unsigned row, first, n, step;
    };
    // first + n x step must stay within the columns, the last interval included.
    for (bad b : {bad{2, 0, 1, 1}, bad{0, 0, 1, 0}, bad{0, 4, 1, 3}, bad{0, 1, 2, 3}, bad{0, 0, 7, 1},
                  bad{none, 0, 1, 1}, bad{0, none, 2, 1}, bad{0, 0, 0x80000000u, 2}}) {
        out = make<double>({1.0});
        EXPECT_EQ(m.get_row(b.row, out, b.first, b.n, b.step), invalid_data_error);
        EXPECT_TRUE(out.empty());
    }
    for (unsigned step : {0u, 4u, 5u, 7u}) {
        out = make<double>({1.0});
        EXPECT_EQ(m.get_row(0, out, step), invalid_data_error) << step;
        EXPECT_TRUE(out.empty());
    }
    EXPECT_EQ(m.getID_row(9, out, 1), invalid_data_error);
    EXPECT_EQ(m.getID_row(9, out, 0, 1, 1), invalid_data_error);
}

TEST(FEM_matrix, set_row_writes_what_get_row_reads)
{
    fem::FEM_matrix m = numbered(make<unsigned>({0, 1}), 6);
    ASSERT_EQ(m.setID_row(1, make<double>({-1, -2, -3}), 2), no_error);
    dense1D<double, 8> out;
    ASSERT_EQ(m.get_row(1, out, 1), no_error);
    EXPECT_EQ(out[0], -1.0);
    EXPECT_EQ(out[1], 101.0); // untouched
    EXPECT_EQ(out[4], -3.0);
    EXPECT_EQ(m.set_row(1, make<double>({1, 2}), 2), invalid_data_error); // does not fill the row
    EXPECT_EQ(m.set_row(1, make<double>({1}), 0), invalid_data_error);
    EXPECT_EQ(m.setID_row(8, make<double>({1, 2, 3}), 2), invalid_data_error);
}

TEST(FEM_matrix, nodal_vectors_read_absent_rows_as_zero)
{
    // Node 2: x and y only, its rotation rz and its temperature.
    const fem::FEM_matrix m = numbered(make<unsigned>({18, 19, 23, 24}), 1);
    auto read = [&m](field_tag f) {
        vector_fixed<double, 3> v{{9, 9, 9}};
        EXPECT_EQ(m.get_vector(2, f, 0, v), no_error);
        return std::vector<double>{v[0], v[1], v[2]};
    };
    EXPECT_EQ(read(displacement_tag), (std::vector<double>{0, 100, 0}));
    EXPECT_EQ(read(rotation_tag), (std::vector<double>{0, 0, 200}));
    EXPECT_EQ(read(temperature_tag), (std::vector<double>{300, 300, 300})); // the temperature in all three
    EXPECT_EQ(read(field_tag(3)), (std::vector<double>{0, 0, 0}));          // a foreign tag names no row

    fem::FEM_matrix w = m;
    ASSERT_EQ(w.set_vector(2, displacement_tag, 0, vector_fixed<double, 3>{{1, 2, 3}}), no_error);
    EXPECT_EQ(value(w, 0, 0), 1.0);
    EXPECT_EQ(value(w, 1, 0), 2.0);
    EXPECT_EQ(value(w, 2, 0), 200.0); // z has no row: skipped

    dense2D<double> many(2, 3, -1.0); // nodes 1, 2, 3, two components each
    ASSERT_EQ(m.get_vectors(1, displacement_tag, 0, many), no_error);
    EXPECT_EQ(many(0, 0), 0.0);
    EXPECT_EQ(many(0, 1), 1.0);
    EXPECT_EQ(many(1, 1), 2.0);
    EXPECT_EQ(many(1, 2), 0.0);
}

TEST(FEM_matrix, add_displacements_moves_positions_by_translations_only)
{
    // Every place of nodes 0 to 3; the position matrix knows nodes 0 to 2.
    dense1D<unsigned, 8> IDs;
    for (unsigned ID = 0; ID < 36; ++ID) IDs.push_back(ID);
    const fem::FEM_matrix U = numbered(IDs, 2);
    dense2D<double> pos(3, 3), before(3, 3);
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i < 3; ++i) pos(i, j) = before(i, j) = 0.5 * i - j;
    ASSERT_EQ(U.add_displacements(pos, 1, 2.0), no_error);
    for (unsigned node = 0; node < 3; ++node)
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_EQ(pos(c, node) - before(c, node), 2.0 * value(U, 9 * node + c, 1)) << node << ' ' << c;

    dense2D<double> flat(2, 3, 0.0); // a plane model: z is not touched
    ASSERT_EQ(U.add_displacements(flat, 0, 1.0), no_error);
    EXPECT_EQ(flat(1, 2), value(U, 19, 0));
    dense2D<double> none_yet;
    EXPECT_EQ(U.add_displacements(none_yet, 0, 1.0), no_error);
}

TEST(FEM_matrix, windows_share_rows_and_data)
{
    fem::FEM_matrix m = numbered(make<unsigned>({4, 8, 12}), 5);
    fem::FEM_matrix w(m, 1, 3);
    ASSERT_EQ(w.cols(), 3u);
    EXPECT_EQ(w.get_IDs().data(), m.get_IDs().data()); // one row list
    EXPECT_EQ(value(w, 2, 0), 201.0);
    ASSERT_EQ(w.setID_val(8, 2, -5.0), no_error);
    EXPECT_EQ(value(m, 1, 3), -5.0);
    EXPECT_EQ(m.col(3).data(), w.col(2).data());
    fem::FEM_matrix nested(w, 2, 1);
    EXPECT_EQ(value(nested, 1, 0), -5.0);

    for (auto [first, n] : {std::pair{4u, 2u}, std::pair{6u, 0u}, std::pair{none, 2u}}) {
        const fem::FEM_matrix bad(m, first, n);
        EXPECT_EQ(bad.rows() + bad.cols(), 0u);
    }
    m.clear(); // the window keeps the data
    EXPECT_EQ(m.rows() + m.cols(), 0u);
    EXPECT_EQ(m.row_pos(8), none);
    EXPECT_EQ(value(w, 1, 2), -5.0);
    EXPECT_EQ(w.row_pos(12), 2u);
}

TEST(FEM_matrix, copy_is_deep_and_handles_share)
{
    fem::FEM_matrix m = numbered(make<unsigned>({1, 2}), 2);
    fem::FEM_matrix shared = m;
    fem::FEM_matrix deep;
    deep.copy(m);
    ASSERT_EQ(m.set_val(0, 0, 42.0), no_error);
    EXPECT_EQ(value(shared, 0, 0), 42.0);
    EXPECT_EQ(value(deep, 0, 0), 0.0);
    EXPECT_EQ(deep.row_pos(2), 1u);
    EXPECT_NE(deep.get_IDs().data(), m.get_IDs().data());
    deep.copy(deep); // itself: nothing
    EXPECT_EQ(deep.rows(), 2u);
}

// Products against axpy: src x C column by column is the sum of axpy's, and
// products associate, on random sizes.
class FEM_matrix_products : public ::testing::TestWithParam<unsigned> {};

TEST_P(FEM_matrix_products, product_is_a_sum_of_axpys_and_associates)
{
    std::mt19937 rng(GetParam());
    const unsigned rows = 1 + rng() % 9, k = 1 + rng() % 5, n = 1 + rng() % 4, p = 1 + rng() % 3;
    const fem::FEM_matrix src = random_matrix(rng, rows, k);
    std::uniform_real_distribution<double> u(-2.0, 2.0);
    dense2D<double> A(k, n), B(n, p), AB(k, p, 0.0);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < k; ++i) A(i, j) = u(rng);
    for (unsigned j = 0; j < p; ++j)
        for (unsigned i = 0; i < n; ++i) B(i, j) = u(rng);
    for (unsigned j = 0; j < p; ++j)
        for (unsigned l = 0; l < n; ++l)
            for (unsigned i = 0; i < k; ++i) AB(i, j) += A(i, l) * B(l, j);

    const fem::FEM_matrix SA(src, A);
    ASSERT_EQ(SA.cols(), n);
    EXPECT_EQ(SA.get_IDs().data(), src.get_IDs().data());
    for (unsigned j = 0; j < n; ++j) {
        fem::FEM_matrix sum(src.get_IDs(), 1);
        for (unsigned l = 0; l < k; ++l) ASSERT_EQ(sum.axpy(A(l, j), fem::FEM_matrix(src, l, 1)), no_error);
        for (unsigned i = 0; i < rows; ++i) EXPECT_EQ(value(SA, i, j), value(sum, i, 0));
    }
    // |(S A) B - S (A B)| <= k n eps max|S| max|A| max|B| per entry, with every
    // factor bounded by 2 and the entries of S by 1.
    const fem::FEM_matrix left(SA, B), right(src, AB);
    const double bound = double(k) * n * 4.0 * 2.2e-16 * 4.0;
    for (unsigned j = 0; j < p; ++j)
        for (unsigned i = 0; i < rows; ++i) EXPECT_NEAR(value(left, i, j), value(right, i, j), bound);

    const fem::FEM_matrix mismatch(src, dense2D<double>(k + 1, 2, 1.0));
    EXPECT_EQ(mismatch.rows() + mismatch.cols(), 0u);
}

INSTANTIATE_TEST_SUITE_P(seeds, FEM_matrix_products, ::testing::Range(1u, 9u));

TEST(FEM_matrix, axpy_refuses_other_shapes_and_changes_nothing)
{
    fem::FEM_matrix y = numbered(make<unsigned>({0, 1}), 3);
    const fem::FEM_matrix narrow = numbered(make<unsigned>({0, 1}), 2);
    const fem::FEM_matrix tall = numbered(make<unsigned>({0, 1, 2}), 3);
    EXPECT_EQ(y.axpy(1.0, narrow), invalid_data_error);
    EXPECT_EQ(y.axpy(1.0, tall), invalid_data_error);
    for (unsigned j = 0; j < 3; ++j) EXPECT_EQ(value(y, 1, j), 100.0 + j);
    ASSERT_EQ(y.axpy(-1.0, y), no_error); // with itself: zero
    for (unsigned j = 0; j < 3; ++j) EXPECT_EQ(value(y, 1, j), 0.0);
}

TEST(FEM_Zmatrix, complex_values_and_mixed_axpy)
{
    using z = std::complex<double>;
    const fem::FEM_matrix x = numbered(make<unsigned>({6, 15}), 2); // temperatures of nodes 0 and 1
    fem::FEM_Zmatrix y(make<unsigned>({6, 15}), 2);
    ASSERT_EQ(y.axpy(z(0.0, 2.0), x), no_error);
    ASSERT_EQ(y.axpy(1.0, x), no_error);
    z v;
    ASSERT_EQ(y.getID_val(15, 1, v), no_error);
    EXPECT_EQ(v, z(101.0, 202.0));
    fem::FEM_Zmatrix y2;
    y2.copy(y);
    ASSERT_EQ(y.axpy(z(-1.0, 0.0), y2), no_error);
    ASSERT_EQ(y.axpy(0.5, y2), no_error);
    ASSERT_EQ(y.get_val(1, 1, v), no_error);
    EXPECT_EQ(v, z(50.5, 101.0));
    EXPECT_EQ(y.axpy(1.0, fem::FEM_Zmatrix(y, 0, 1)), invalid_data_error);

    dense1D<z, 8> t;
    ASSERT_EQ(y.get_vector(1, temperature_tag, 1, t), no_error);
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[2], v);
    EXPECT_EQ(y.set_vector(1, temperature_tag, 5, t), invalid_data_error);
    ASSERT_EQ(y.set_vector(0, temperature_tag, 0, dense1D<z, 8>(1, z(1.0, -1.0))), no_error);
    ASSERT_EQ(y.get_val(0, 0, v), no_error);
    EXPECT_EQ(v, z(1.0, -1.0));

    dense2D<z> I(2, 2, z());
    I(0, 1) = I(1, 0) = z(0.0, 1.0);
    const fem::FEM_Zmatrix swapped(y, I);
    z a, b;
    ASSERT_EQ(swapped.get_val(1, 0, a), no_error);
    ASSERT_EQ(y.get_val(1, 1, b), no_error);
    EXPECT_EQ(a, z(0.0, 1.0) * b);
    dense1D<z, 8> out(1);
    EXPECT_EQ(y.get_row(0, out, 3), invalid_data_error);
    EXPECT_TRUE(out.empty());
}

// Each column keeps its thermal manager through windows and deep copies.
TEST(FEM_states, columns_carry_their_managers)
{
    fem::context ctx;
    fem::stress_mgr s0(ctx), s2(ctx);
    fem::FEM_states states(numbered(make<unsigned>({0, 1}), 3));
    EXPECT_EQ(states.set_stress_mgr(0, s0), 0);
    EXPECT_EQ(states.set_stress_mgr(2, s2), 0);
    EXPECT_EQ(states.set_stress_mgr(3, s2), -1);
    auto manager = [](const fem::FEM_states& s, unsigned j) {
        return static_cast<core::FEM_real_states*>(fem::core_of(s))->stress_mgr(j);
    };
    const fem::FEM_states tail(states, 1, 2);
    EXPECT_EQ(manager(tail, 1), fem::core_of(s2));
    EXPECT_EQ(manager(tail, 0), nullptr);
    EXPECT_EQ(value(tail, 1, 1), 102.0);
    fem::FEM_states copied;
    copied.copy(states);
    ASSERT_EQ(states.set_val(0, 0, -3.0), no_error);
    EXPECT_EQ(value(copied, 0, 0), 0.0);
    EXPECT_EQ(manager(copied, 2), fem::core_of(s2));
    fem::stress_mgr h = s0;
    EXPECT_EQ(states.get_stress_mgr(3, h), -1);
    EXPECT_EQ(fem::core_of(h), fem::core_of(s0)); // left as it was
}

} // namespace
