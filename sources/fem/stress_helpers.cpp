#include "kelt/fem/stress_helpers.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/context.h"
#include "kelt/core/element_records.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/math/lapack.h"

namespace kelt::fem {

namespace {

double first_invariant(const symmetric_fixed<double, 3>& s) { return s[0] + s[2] + s[5]; }
double second_invariant(const symmetric_fixed<double, 3>& s)
{
    return s[0] * s[2] + s[0] * s[5] + s[2] * s[5] - s[1] * s[1] - s[3] * s[3] - s[4] * s[4];
}

symmetric_fixed<double, 3> column_tensor(const dense2D<double>& s, unsigned j)
{
    symmetric_fixed<double, 3> t;
    for (unsigned k = 0; k < 6; ++k) t[k] = s(k, j);
    return t;
}

// The first place of a field and how many it has; none for an unknown tag.
struct field_places {
    unsigned first = 0;
    unsigned count = 0;
};
field_places places_of(field_tag f)
{
    switch (f) {
    case displacement_tag: return {core::place_x, 3};
    case rotation_tag: return {core::place_rx, 3};
    case temperature_tag: return {core::place_temperature, 1};
    default: return {};
    }
}

struct closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using file_ptr = std::unique_ptr<std::FILE, closer>;

} // namespace

double compute_Von_Mises_stress(const symmetric_fixed<double, 3>& s)
{
    const double I1 = first_invariant(s);
    const double r = I1 * I1 - 3.0 * second_invariant(s);
    return r > 0.0 ? std::sqrt(r) : 0.0;
}

error_type compute_Von_Mises_stress(const dense2D<double>& s, dense1D<double, 8>& out)
{
    if (s.rows() != 6) return invalid_data_error;
    if (!out.resize(s.cols())) return memory_error;
    for (unsigned j = 0; j < s.cols(); ++j) out[j] = compute_Von_Mises_stress(column_tensor(s, j));
    return no_error;
}

void compute_stress_invariants(const symmetric_fixed<double, 3>& s, dense1D<double, 8>& out)
{
    if (!out.resize(5)) return;
    const double I1 = first_invariant(s), I2 = second_invariant(s);
    const double I3 = 2.0 * s[1] * s[3] * s[4] + s[0] * s[2] * s[5] - s[0] * s[4] * s[4] - s[2] * s[3] * s[3] -
                      s[5] * s[1] * s[1];
    out[0] = I1;
    out[1] = I2;
    out[2] = I3;
    out[3] = I1 * I1 * 0.3333333333333333 - I2;
    out[4] = I3 - I1 * I2 * 0.3333333333333333 + I1 * I1 * I1 * 0.07407407407407407;
}

error_type compute_stress_invariants(const dense2D<double>& s, dense2D<double>& out)
{
    if (s.rows() != 6) return invalid_data_error;
    if (!out.resize(5, s.cols())) return memory_error;
    dense1D<double, 8> one;
    for (unsigned j = 0; j < s.cols(); ++j) {
        compute_stress_invariants(column_tensor(s, j), one);
        if (one.size() != 5) return memory_error;
        for (unsigned k = 0; k < 5; ++k) out(k, j) = one[k];
    }
    return no_error;
}

void eigen_pairs(const symmetric_fixed<double, 2>& s, vector_fixed<double, 2>& values,
                 matrix_fixed<double, 2, 2>& vectors)
{
    const double a = s[0], b = s[1], c = s[2];
    const double root = std::sqrt((a - c) * (a - c) + 4.0 * b * b);
    double lo = 0.5 * (a + c - root);
    double hi = root + lo;
    // The smaller of two values of very different size loses its digits to the
    // cancellation: it comes back from the determinant instead.
    const double det = a * c - b * b;
    if (!(std::abs(hi) * 1e-12 < std::abs(lo))) {
        if (std::abs(hi) >= std::abs(lo))
            lo = hi != 0.0 ? det / hi : lo;
        else
            hi = lo != 0.0 ? det / lo : hi;
    }
    values[0] = lo;
    values[1] = hi;
    if (!std::isfinite(lo) || !std::isfinite(hi)) return;
    // Each vector from the row of the shifted matrix (s - lambda I) of larger norm:
    // (b, lambda - a) or (lambda - c, b), both orthogonal to that row.
    for (unsigned k = 0; k < 2; ++k) {
        const double l = values[k];
        double x = b, y = l - a;
        const double x2 = l - c, y2 = b;
        if (x2 * x2 + y2 * y2 > x * x + y * y) x = x2, y = y2;
        double n = std::sqrt(x * x + y * y);
        if (n == 0.0) x = k == 0 ? 1.0 : 0.0, y = k == 0 ? 0.0 : 1.0, n = 1.0;
        vectors(0, k) = x / n;
        vectors(1, k) = y / n;
    }
    // A diagonal matrix gives the same axis twice: the second is the normal of the first.
    if (std::abs(vectors(0, 0) * vectors(0, 1) + vectors(1, 0) * vectors(1, 1)) > 0.5) {
        vectors(0, 1) = -vectors(1, 0);
        vectors(1, 1) = vectors(0, 0);
    }
}

void eigen_pairs(const symmetric_fixed<double, 3>& s, vector_fixed<double, 3>& values,
                 matrix_fixed<double, 3, 3>& vectors)
{
    double packed[6], work[9];
    for (unsigned k = 0; k < 6; ++k) packed[k] = s[k];
    long info = 0;
    lapack::dspev('V', 'U', 3, packed, values.data(), vectors.data(), 3, work, info);
}

double unit_product(const dense1D<double, 8>& v, const dense1D<unsigned, 8>& IDs, field_tag f, unsigned comp)
{
    const field_places p = places_of(f);
    if (v.size() != IDs.size() || comp >= p.count) return 0.0;
    double sum = 0.0;
    for (unsigned i = 0; i < v.size(); ++i)
        if (IDs[i] % 9 == p.first + comp) sum += v[i];
    return sum;
}

double unit_product(const symmetric_full<double>& m, const dense1D<unsigned, 8>& IDs, field_tag f, unsigned comp)
{
    const field_places p = places_of(f);
    if (m.order() != IDs.size() || comp >= p.count) return 0.0;
    double sum = 0.0;
    for (unsigned i = 0; i < IDs.size(); ++i) {
        if (IDs[i] % 9 != p.first + comp) continue;
        for (unsigned j = 0; j < IDs.size(); ++j)
            if (IDs[j] % 9 == p.first + comp) sum += m(i, j);
    }
    return sum;
}

namespace {

// Collects the points of one element's results.
struct point_sum final : core::result_assembler_base {
    error_type add_results(unsigned, unsigned, const dense1D<unsigned, 8>&, const dense2D<double>& values) override
    {
        for (unsigned p = 0; p < values.cols(); ++p) {
            if (values.rows() < 9) return invalid_data_error;
            for (unsigned k = 0; k < 6; ++k) sum[k] += values(3 + k, p);
            ++count;
        }
        return no_error;
    }
    double sum[6] = {};
    unsigned count = 0;
};

} // namespace

error_type compute_3D_stress(context& ctx, unsigned NM_ID, unsigned element, const dense2D<double>& pos,
                             const dense2D<double>& U, matrix_fixed<double, 3, 3>& stress,
                             matrix_fixed<double, 3, 3>& basis)
{
    stress = {};
    basis = {};
    auto* c = static_cast<core::context_type*>(core_of(ctx));
    core::numerical_model_base* model =
        c && c->numerical_models_mgr ? c->numerical_models_mgr->get_NM(NM_ID) : nullptr;
    if (!model) return element_type_error;
    core::element_pass_type pass;
    pass.pos = pos;
    pass.element = element;
    if (U.rows() * U.cols() != 0) {
        if (U.rows() < 3) return invalid_data_error;
        dense1D<unsigned, 8> IDs;
        if (!IDs.reserve(3 * U.cols(), 1) || !pass.U.values.resize(3 * U.cols())) return memory_error;
        for (unsigned n = 0; n < U.cols(); ++n)
            for (unsigned k = 0; k < 3; ++k) {
                IDs.push_back(core::DOFs_mgr::place_ID(n, k));
                pass.U.values[3 * n + k] = U(k, n);
            }
        pass.U.rows = new vector_fast;
        if (!pass.U.rows->assign(IDs.data(), IDs.size())) return memory_error;
    }
    point_sum sum;
    pass.results = &sum;
    if (auto e = model->run_element_results(core::kind_stiffness, core::result_stress, pass); e != no_error) return e;
    if (sum.count == 0) return element_type_error;
    if (auto e = model->get_element_basis(element, pos, pass.U.empty() ? nullptr : &pass.U, basis); e != no_error)
        return e;
    // Mean over the points, then Q^T S Q with the element's axes Q.
    const double* v = sum.sum;
    const double S[3][3] = {{v[0], v[3], v[4]}, {v[3], v[1], v[5]}, {v[4], v[5], v[2]}};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            double t = 0.0;
            for (unsigned a = 0; a < 3; ++a)
                for (unsigned b = 0; b < 3; ++b) t += basis(a, i) * S[a][b] * basis(b, j);
            stress(i, j) = t / sum.count;
        }
    return no_error;
}

error_type medit_nodal(const char* path, const FEM_matrix& M, unsigned nbr_nodes, unsigned state, unsigned dim,
                       unsigned nbr_values)
{
    file_ptr f(path ? std::fopen(path, "w") : nullptr);
    if (!f) return file_open_error;
    if (M.cols() < std::uint64_t(state + 1) * nbr_values) return invalid_data_error;
    std::fprintf(f.get(), "%d %d %d %d\n", int(dim), int(nbr_values), int(nbr_nodes), 2);
    dense1D<double, 8> row;
    for (unsigned i = 0; i < nbr_nodes; ++i) {
        const unsigned r = M.row_pos(i);
        row.clear();
        if (r != 0xFFFFFFFFu) (void)M.get_row(r, row, state * nbr_values, nbr_values, 1);
        for (unsigned k = 0; k < nbr_values; ++k) std::fprintf(f.get(), "%E ", k < row.size() ? row[k] : 0.0);
        std::fprintf(f.get(), "\n");
    }
    return no_error;
}

error_type medit_nodal(const char* path, const FEM_matrix& M, field_tag tag, unsigned nbr_nodes, unsigned state,
                       unsigned dim, unsigned nbr_values)
{
    file_ptr f(path ? std::fopen(path, "w") : nullptr);
    if (!f) return file_open_error;
    if (M.cols() <= state) return invalid_data_error;
    std::fprintf(f.get(), "%d %d %d %d\n", int(dim), int(nbr_values), int(nbr_nodes), 2);
    const field_places p = places_of(tag);
    const unsigned count = p.count < nbr_values ? p.count : nbr_values;
    double value = 0.0; // a DOF with no row repeats the value before it
    for (unsigned i = 0; i < nbr_nodes; ++i) {
        for (unsigned k = 0; k < count; ++k) {
            (void)M.get_val(M.row_pos(core::DOFs_mgr::place_ID(i, p.first + k)), state, value);
            std::fprintf(f.get(), "%E ", value);
        }
        std::fprintf(f.get(), "\n");
    }
    return no_error;
}

} // namespace kelt::fem
