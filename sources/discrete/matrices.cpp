// Elements given as values: diagonal and symmetric matrices on DOF lists, the point
// mass with its offset and inertia, and the Rayleigh combination of two models.
#include <new>

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/discrete/discrete_elements.h"

namespace kelt::core {

namespace {

// The multiplier of a matrix element by its rule; null for none.
const DOF_values_view* multiplier(multiplier_rule rule, const element_work_type& w) noexcept
{
    switch (rule) {
    case multiplier_rule::state_only: return w.U.empty() ? nullptr : &w.U;
    case multiplier_rule::reference_if_state:
        if (w.U.empty()) return nullptr;
        return w.U_ref.empty() ? &w.U : &w.U_ref;
    default: break;
    }
    if (!w.U_ref.empty()) return &w.U_ref;
    return w.U.empty() ? nullptr : &w.U;
}

bool copy_DOFs(element_work_type& w, const dense1D<unsigned, 8>& DOFs)
{
    if (!w.DOFs.resize(DOFs.size())) return false;
    for (unsigned i = 0; i < DOFs.size(); ++i) w.DOFs[i] = DOFs[i];
    return true;
}

// Fe = -factor A u and the energy -0.5 Fe . u, for a packed symmetric A.
void symmetric_force(const symmetric_full<double>& A, const dense1D<unsigned, 8>& DOFs, const DOF_values_view& U,
                     element_work_type& w)
{
    const unsigned n = DOFs.size();
    dense1D<double, 8> u(n);
    if (!w.Fe.resize(n, 0.0) || u.size() != n) throw std::bad_alloc();
    for (unsigned i = 0; i < n; ++i) u[i] = U.get(DOFs[i]);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) w.Fe[i] -= w.factor * A(i, j) * u[j];
    double e = 0.0;
    for (unsigned i = 0; i < n; ++i) e += w.Fe[i] * u[i];
    w.energy = -0.5 * e;
}

} // namespace

// ---------------------------------------------------------------- diagonal

void diagonal_values::clear() noexcept
{
    values.clear();
    DOFs.clear();
}

error_type diagonal_values::set(const dense1D<double, 8>& v, const dense1D<unsigned, 8>& IDs)
{
    clear();
    if (v.size() != IDs.size()) return invalid_data_error;
    // A DOF listed twice holds the sum of its values.
    vector_fast seen;
    dense1D<double, 8> sums(v.size(), 0.0);
    if (sums.size() != v.size()) return memory_error;
    for (unsigned i = 0; i < IDs.size(); ++i) {
        const unsigned r = seen.push_back(IDs[i]);
        if (r == vector_fast::none) return IDs[i] == vector_fast::none ? invalid_data_error : memory_error;
        sums[r] += v[i];
    }
    if (!values.resize(seen.size()) || !DOFs.resize(seen.size())) {
        clear();
        return memory_error;
    }
    for (unsigned i = 0; i < seen.size(); ++i) values[i] = sums[i], DOFs[i] = seen[i];
    return no_error;
}

void diagonal_values::evaluate(multiplier_rule rule, element_work_type& w) const
{
    const unsigned n = DOFs.size();
    if (n == 0) return;
    const DOF_values_view* U = multiplier(rule, w);
    const bool matrix = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
    const bool vector = U && w.vector_mode == 1;
    if (!matrix && !U) return;
    if (!copy_DOFs(w, DOFs)) throw std::bad_alloc();
    if (matrix) {
        if (!w.Kdiag.resize(n)) throw std::bad_alloc();
        for (unsigned i = 0; i < n; ++i) w.Kdiag[i] = w.factor * values[i];
    }
    // The energy whenever the pass gives values, as the mesh models give theirs: a
    // product through the elements asks for no vector, yet reads it.
    if (U) {
        if (vector && !w.Fe.resize(n)) throw std::bad_alloc();
        double e = 0.0;
        for (unsigned i = 0; i < n; ++i) {
            const double u = U->get(DOFs[i]), f = -w.factor * values[i] * u;
            if (vector) w.Fe[i] = f;
            e += f * u;
        }
        w.energy = -0.5 * e;
    }
}

// ---------------------------------------------------------------- symmetric

void symmetric_values::clear() noexcept
{
    given.clear();
    matrix.clear();
    DOFs.clear();
    order = 1;
}

error_type symmetric_values::set(const symmetric_full<double>& K, const dense1D<unsigned, 8>& IDs, int order_)
{
    clear();
    vector_fast seen;
    for (unsigned ID : IDs)
        if (seen.push_back(ID) == vector_fast::none) return ID == vector_fast::none ? invalid_data_error : memory_error;
    const unsigned n = seen.size();
    if (K.order() != n) return invalid_data_error;
    if (!DOFs.resize(n) || !given.copy(K) || !matrix.resize(n)) {
        clear();
        return memory_error;
    }
    for (unsigned i = 0; i < n; ++i) DOFs[i] = seen[i];
    const double* raw = K.data();
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j <= i; ++j)
            // Lower triangle by rows is the library's own packing; by columns, the
            // entry (i, j) stands at j (2 n - j + 1) / 2 + i - j.
            matrix(i, j) = order_ == 1 ? raw[std::size_t(i) * (i + 1) / 2 + j]
                                       : raw[std::size_t(j) * (2 * n - j + 1) / 2 + i - j];
    order = order_;
    return no_error;
}

void symmetric_values::evaluate(multiplier_rule rule, bool diagonal_on_mode2, element_work_type& w) const
{
    const unsigned n = DOFs.size();
    if (n == 0) return;
    const DOF_values_view* U = multiplier(rule, w);
    const bool matrix_wanted = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
    const bool vector = U && w.vector_mode == 1;
    if (!matrix_wanted && !U) return;
    if (!copy_DOFs(w, DOFs)) throw std::bad_alloc();
    if (matrix_wanted && diagonal_on_mode2 && w.matrix_mode == matrix_material) {
        if (!w.Kdiag.resize(n)) throw std::bad_alloc();
        for (unsigned i = 0; i < n; ++i) w.Kdiag[i] = w.factor * matrix(i, i);
    } else if (matrix_wanted) {
        if (!w.Ke.resize(n)) throw std::bad_alloc();
        const std::size_t packed = std::size_t(n) * (n + 1) / 2;
        for (std::size_t k = 0; k < packed; ++k) w.Ke.data()[k] = w.factor * matrix.data()[k];
    }
    if (U) symmetric_force(matrix, DOFs, *U, w); // its energy, as for the diagonal
    if (!vector) w.Fe.clear();
}

// ---------------------------------------------------------------- mass_punctual

error_type mass_punctual::init(unsigned node_, double m, const symmetric_fixed<double, 3>& J,
                               const vector_fixed<double, 3>& o)
{
    node = node_;
    mass = m;
    inertia = J;
    offset = o;
    return no_error;
}

void mass_punctual::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&,
                                     unsigned field_selector, vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_mass || node == ground_node) return;
    for (unsigned place = 0; place < 6; ++place)
        if (field_selected(field_selector, place) && set.push_back(node * 9 + place) == vector_fast::none)
            throw std::bad_alloc();
}

error_type mass_punctual::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_mass) return no_error;
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go) return e;
    if (node == ground_node) return no_error;
    if (w.pos.rows() < 3 || node >= w.pos.cols()) return invalid_data_error;
    const double m = mass;
    const double ox = offset[0], oy = offset[1], oz = offset[2];
    // Rows and columns ux, uy, uz, rx, ry, rz.
    symmetric_full<double> A(6, 0.0);
    if (A.order() != 6) return memory_error;
    for (unsigned i = 0; i < 3; ++i) A(i, i) = m;
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i <= j; ++i) A(3 + i, 3 + j) = inertia(i, j);
    if (ox != 0.0 || oy != 0.0 || oz != 0.0) {
        // The moment of the mass about the node: m times the skew matrix of o.
        A(3, 1) = m * oz, A(3, 2) = -m * oy;
        A(4, 0) = -m * oz, A(4, 2) = m * ox;
        A(5, 0) = m * oy, A(5, 1) = -m * ox;
        // The parallel-axis transfer m (|o|² I - o o').
        A(3, 3) += m * (oy * oy + oz * oz);
        A(4, 4) += m * (ox * ox + oz * oz);
        A(5, 5) += m * (ox * ox + oy * oy);
        A(3, 4) -= m * ox * oy;
        A(3, 5) -= m * ox * oz;
        A(4, 5) -= m * oy * oz;
    }
    const double f = w.factor;
    if (!w.DOFs.resize(6)) return memory_error;
    for (unsigned place = 0; place < 6; ++place) w.DOFs[place] = node * 9 + place;
    if (w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material) {
        if (!w.Ke.resize(6)) return memory_error;
        for (unsigned k = 0; k < 21; ++k) w.Ke.data()[k] = f == 1.0 ? A.data()[k] : f * A.data()[k];
    }
    if (w.vector_mode == 1 && (!w.U.empty() || !w.U_ref.empty())) {
        try {
            symmetric_force(A, w.DOFs, w.U_ref.empty() ? w.U : w.U_ref, w);
        } catch (const std::bad_alloc&) {
            return memory_error;
        }
    }
    // Mass, first moments and the inertia about the origin, for the weighing.
    double x[3];
    for (unsigned c = 0; c < 3; ++c) x[c] = w.pos(c, node) + offset[c];
    const double fm = f * m;
    w.sums4[0] += fm;
    for (unsigned c = 0; c < 3; ++c) w.sums4[1 + c] += fm * x[c];
    const double x2 = x[0] * x[0] + x[1] * x[1] + x[2] * x[2];
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i <= j; ++i)
            w.sums6[symmetric_fixed<double, 3>::index(i, j)] +=
                f * inertia(i, j) + fm * ((i == j ? x2 : 0.0) - x[i] * x[j]);
    return no_error;
}

// ---------------------------------------------------------------- damping_Rayleigh

void damping_Rayleigh::init(double alpha_, unsigned K_ID, double beta_, unsigned M_ID) noexcept
{
    alpha = alpha_;
    beta = beta_;
    stiffness_model_ID = K_ID;
    mass_model_ID = M_ID;
}

numerical_model_base* damping_Rayleigh::named(unsigned model_ID) const noexcept
{
    if (model_ID == ID || !context || !context->numerical_models_mgr) return nullptr;
    return context->numerical_models_mgr->get_NM(model_ID);
}

void damping_Rayleigh::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos,
                                        unsigned field_selector, vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_damping) return;
    const std::pair<unsigned, pass_kind> parts[2] = {{stiffness_model_ID, kind_stiffness}, {mass_model_ID, kind_mass}};
    for (const auto& [model_ID, model_kind] : parts) {
        Ptr<numerical_model_base> m(named(model_ID));
        if (!m) continue;
        dense1D<unsigned, 8> IDs;
        if (m->get_model_DOFs(model_kind, pos, field_selector, IDs) != no_error) throw std::bad_alloc();
        for (unsigned ID : IDs)
            if (set.push_back(ID) == vector_fast::none) throw std::bad_alloc();
    }
}

error_type damping_Rayleigh::run_elements(pass_kind kind, element_pass_type& pass)
{
    if (kind != kind_damping || pass.factor == 0.0) return no_error;
    const double f = evolution_factor(pass.time);
    const double saved = pass.factor;
    error_type e = no_error;
    if (Ptr<numerical_model_base> K{named(stiffness_model_ID)}) {
        pass.factor = saved * alpha * f;
        e = K->run_elements(kind_stiffness, pass);
    }
    if (e == no_error)
        if (Ptr<numerical_model_base> M{named(mass_model_ID)}) {
            pass.factor = saved * beta * f;
            e = M->run_elements(kind_mass, pass);
        }
    pass.factor = saved;
    return e;
}

} // namespace kelt::core
