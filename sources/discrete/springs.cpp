// Springs on a law: the isotropic spring between two nodes and the springs on a
// linear form of DOFs (directional, centroid, drilling).
#include <algorithm>
#include <cmath>
#include <new>

#include "kelt/discrete/discrete_elements.h"

namespace kelt::core {

unsigned field_DOF(unsigned node, field_tag field, unsigned c) noexcept
{
    if (field == temperature_tag) return node * 9 + 6;
    return node * 9 + (field == rotation_tag ? 3 : 0) + c;
}

bool valid_field(field_tag field) noexcept
{
    return field == displacement_tag || field == rotation_tag || field == temperature_tag;
}

void insert_selected(const dense1D<unsigned, 8>& IDs, unsigned field_selector, vector_fast& set)
{
    for (unsigned ID : IDs)
        if (field_selected(field_selector, ID % 9) && set.push_back(ID) == vector_fast::none) throw std::bad_alloc();
}

error_type begin_discrete(element_work_type& w, bool& go)
{
    go = false;
    if (w.element != 0 && w.element != all_elements) return element_index_error;
    w.clear_outputs();
    w.DOFs.clear();
    go = w.factor != 0.0;
    return no_error;
}

namespace {

law_key key_of(const numerical_model_base& m) noexcept { return {m.ID, 0, 0}; }

[[nodiscard]] bool fill_DOFs(element_work_type& w, const unsigned* IDs, unsigned n)
{
    if (!w.DOFs.resize(n)) return false;
    for (unsigned i = 0; i < n; ++i) w.DOFs[i] = IDs[i];
    return true;
}

} // namespace

// ---------------------------------------------------------------- law states

error_type law_state_element::allocate_states()
{
    const unsigned m = states_per_point();
    if (m == 0) return no_error;
    return states.allocate(1, m) ? no_error : memory_error;
}

bool law_state_element::layout_internal_states(internal_states_block& block) const
{
    if (!has_internal_states()) return numerical_model_base::layout_internal_states(block);
    block.clear();
    block.stride = states_per_point();
    const unsigned at = states.has_state(0) ? block.stride : 0;
    if (!block.offsets.resize(2, 0u) || !block.values.resize(at, 0.0)) return false;
    block.offsets[1] = at;
    block.values = 0.0;
    return true;
}

error_type law_state_element::set_element_states(unsigned element, const dense1D<double, 8>& values)
{
    if (!has_internal_states()) return no_error;
    if (element != 0) return element_index_error;
    if (!values.empty() && values.size() < states_per_point()) return invalid_data_error;
    if (values.empty() && !states.allocated()) return no_error;
    if (auto e = allocate_states(); e != no_error) return e;
    states.set(0, values.empty() ? nullptr : values.data());
    return no_error;
}

error_type law_state_element::get_element_states(internal_states_block& block, unsigned element) const
{
    if (!has_internal_states()) return no_error;
    if (element + 1 >= block.offsets.size()) return element_index_error;
    if (block.offsets[element + 1] - block.offsets[element] != block.stride || block.stride == 0) return no_error;
    const double* c = states.committed(0);
    if (!c || block.stride != states.stride() || block.offsets[element + 1] > block.values.size())
        return invalid_data_error;
    std::copy(c, c + block.stride, block.values.data() + block.offsets[element]);
    return no_error;
}

error_type law_state_element::commit_states()
{
    states.commit();
    return no_error;
}

error_type law_state_element::run_elements(pass_kind kind, element_pass_type& pass)
{
    if (auto e = allocate_states(); e != no_error) return e;
    return numerical_model_stiff_simple::run_elements(kind, pass);
}

// ---------------------------------------------------------------- spring

error_type spring::init(unsigned node1_, unsigned node2_, field_tag field_, const Ptr<law_scalar>& law_)
{
    law = nullptr;
    node1 = node2 = ground_node;
    if (!law_ || !valid_field(field_) || (node1_ == ground_node && node2_ == ground_node)) return invalid_data_error;
    law = law_;
    field = field_;
    node1 = node1_;
    node2 = node2_;
    return no_error;
}

unsigned spring::element_DOFs(unsigned (&IDs)[6], double (&B)[6]) const noexcept
{
    if (!law) return 0;
    // A ground or a repeated node drops out; the node that remains has B = +1.
    const unsigned plus = node2 != ground_node ? node2 : node1;
    const unsigned minus = node1 != ground_node && node2 != ground_node && node1 != node2 ? node1 : ground_node;
    if (plus == ground_node) return 0;
    const unsigned per_node = field == temperature_tag ? 1 : 3;
    unsigned n = 0;
    for (unsigned c = 0; c < per_node; ++c) IDs[n] = field_DOF(plus, field, c), B[n++] = 1.0;
    if (minus != ground_node)
        for (unsigned c = 0; c < per_node; ++c) IDs[n] = field_DOF(minus, field, c), B[n++] = -1.0;
    return n;
}

void spring::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                              vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_stiffness) return;
    unsigned IDs[6];
    double B[6];
    const unsigned n = element_DOFs(IDs, B);
    for (unsigned i = 0; i < n; ++i)
        if (field_selected(field_selector, IDs[i] % 9) && set.push_back(IDs[i]) == vector_fast::none)
            throw std::bad_alloc();
}

double spring::get_stiffness_scale(field_tag f) const { return law ? law->get_stiffness_range(f).second : 0.0; }

error_type spring::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    return evaluate(w, committed_state(), trial_state());
}

error_type spring::evaluate(element_work_type& w, const double* state_in, double* state_out) const
{
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go) return e;
    unsigned IDs[6];
    double B[6];
    const unsigned n = element_DOFs(IDs, B);
    if (n == 0) return no_error;
    // The relative vector in the field's space, from a state and from the reference.
    auto relative = [&](const DOF_values_view& U, double (&d)[3]) {
        d[0] = d[1] = d[2] = 0.0;
        if (U.empty()) return;
        for (unsigned i = 0; i < n; ++i) d[IDs[i] % 3] += U.get(IDs[i]) * B[i];
    };
    double d[3];
    relative(w.U, d);
    const double s = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    double k = 0.0, f = 0.0, energy = 0.0;
    law->get_force(key_of(*this), s, k, f, energy, state_in, state_out);
    if (!w.state_out.resize(2)) return memory_error;
    w.state_out[0] = s;
    w.state_out[1] = f;
    k *= w.factor;
    if (k == 0.0) return no_error;
    w.energy = energy * w.factor;
    if (!fill_DOFs(w, IDs, n)) return memory_error;
    if (w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material) {
        if (!w.Ke.resize(n, 0.0)) return memory_error;
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i <= j; ++i)
                if (IDs[i] % 3 == IDs[j] % 3) w.Ke(i, j) = B[i] * k * B[j];
    }
    if (w.vector_mode == 1) {
        // k is a secant value: the force is k times the relative vector.
        if (!w.U_ref.empty()) relative(w.U_ref, d);
        if (d[0] != 0.0 || d[1] != 0.0 || d[2] != 0.0) {
            if (!w.Fe.resize(n)) return memory_error;
            for (unsigned i = 0; i < n; ++i) w.Fe[i] = -k * d[IDs[i] % 3] * B[i];
        }
    }
    return no_error;
}

// ---------------------------------------------------------------- spring_directional

void spring_directional::clear_list() noexcept
{
    law = nullptr;
    DOFs.clear();
    coefs.clear();
    c0 = 0.0;
    has_U = has_R = false;
}

error_type spring_directional::set_list(const std::vector<std::pair<unsigned, double>>& entries,
                                        const Ptr<law_scalar>& law_)
{
    clear_list();
    if (!law_) return invalid_data_error;
    vector_fast seen;
    std::vector<double> sums;
    for (const auto& [ID, c] : entries) {
        if (c == 0.0) continue;
        const unsigned r = seen.push_back(ID);
        if (r == vector_fast::none) return ID == vector_fast::none ? invalid_data_error : memory_error;
        if (r == sums.size()) sums.push_back(0.0);
        sums[r] += c;
    }
    const unsigned n = seen.size();
    if (!DOFs.resize(n) || !coefs.resize(n)) {
        clear_list();
        return memory_error;
    }
    for (unsigned i = 0; i < n; ++i) {
        DOFs[i] = seen[i];
        coefs[i] = sums[i];
        has_U = has_U || DOFs[i] % 9 < 3;
        has_R = has_R || (DOFs[i] % 9 >= 3 && DOFs[i] % 9 < 6);
    }
    law = law_;
    return no_error;
}

error_type spring_directional::init(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& c,
                                    const Ptr<law_scalar>& law_)
{
    if (IDs.size() != c.size()) {
        clear_list();
        return invalid_data_error;
    }
    std::vector<std::pair<unsigned, double>> entries;
    for (unsigned i = 0; i < IDs.size(); ++i) entries.emplace_back(IDs[i], c[i]);
    return set_list(entries, law_);
}

namespace {

// dir / |dir|, unless its squared norm is exactly 0 or 1; false for 0.
bool normalise(const vector_fixed<double, 3>& dir, double (&a)[3]) noexcept
{
    const double n2 = dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2];
    if (n2 == 0.0) return false;
    const double scale = n2 == 1.0 ? 1.0 : 1.0 / std::sqrt(n2);
    for (unsigned c = 0; c < 3; ++c) a[c] = dir[c] * scale;
    return true;
}

} // namespace

error_type spring_directional::init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                    double c1, double c2, const Ptr<law_scalar>& law_)
{
    if (!valid_field(field)) {
        clear_list();
        return invalid_data_error;
    }
    std::vector<std::pair<unsigned, double>> entries;
    double a[3];
    if (normalise(dir, a))
        for (unsigned c = 0; c < 3; ++c) {
            if (a[c] == 0.0) continue;
            if (node1 != ground_node) entries.emplace_back(field_DOF(node1, field, c), c1 * a[c]);
            if (node2 != ground_node && node2 != node1) entries.emplace_back(field_DOF(node2, field, c), c2 * a[c]);
        }
    return set_list(entries, law_);
}

error_type spring_directional::init_centroid(const dense1D<unsigned, 8>& nodes, field_tag field,
                                             const vector_fixed<double, 3>& dir, const Ptr<law_scalar>& law_)
{
    if (!valid_field(field)) {
        clear_list();
        return invalid_data_error;
    }
    std::vector<std::pair<unsigned, double>> entries;
    const double n = std::sqrt(dir[0] * dir[0] + dir[1] * dir[1] + dir[2] * dir[2]);
    if (n > 0.0)
        for (unsigned node : nodes)
            for (unsigned c = 0; c < 3; ++c)
                if (dir[c] != 0.0) entries.emplace_back(field_DOF(node, field, c), dir[c] / n);
    return set_list(entries, law_);
}

void spring_directional::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&,
                                          unsigned field_selector, vector_fast& set) const
{
    if ((element == 0 || element == all_elements) && kind == kind_stiffness && law)
        insert_selected(DOFs, field_selector, set);
}

double spring_directional::get_stiffness_scale(field_tag f) const
{
    return law ? law->get_stiffness_range(f).second : 0.0;
}

error_type spring_directional::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    return evaluate(w, committed_state(), trial_state());
}

error_type spring_directional::evaluate(element_work_type& w, const double* state_in, double* state_out) const
{
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go) return e;
    const unsigned n = DOFs.size();
    if (n == 0 || !law) return no_error;
    auto linear_form = [&](const DOF_values_view& U) {
        double s = 0.0;
        if (!U.empty())
            for (unsigned i = 0; i < n; ++i) s += coefs[i] * U.get(DOFs[i]);
        return s;
    };
    const double s = linear_form(w.U) + c0;
    double k = 0.0, f = 0.0, energy = 0.0;
    law->get_force(key_of(*this), s, k, f, energy, state_in, state_out);
    if (!w.state_out.resize(2)) return memory_error;
    w.state_out[0] = s;
    w.state_out[1] = f;
    k *= w.factor;
    f *= w.factor;
    w.energy = energy * w.factor;
    if (!w.U_ref.empty()) f = k * linear_form(w.U_ref);
    const bool matrix = k != 0.0 && (w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material);
    const bool vector = f != 0.0 && w.vector_mode == 1;
    if (!matrix && !vector) return no_error;
    if (!fill_DOFs(w, DOFs.data(), n)) return memory_error;
    if (matrix) {
        if (!w.Ke.resize(n, 0.0)) return memory_error;
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i <= j; ++i) w.Ke(i, j) = k * coefs[i] * coefs[j];
    }
    if (vector) {
        if (!w.Fe.resize(n)) return memory_error;
        for (unsigned i = 0; i < n; ++i) w.Fe[i] = -f * coefs[i];
    }
    return no_error;
}

// ---------------------------------------------------------------- spring_drill

error_type spring_drill::init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                              const vector_fixed<double, 3>& axis, const Ptr<law_scalar>& law_)
{
    clear_list();
    if (pos.rows() < 3 || node1 >= pos.cols() || node2 >= pos.cols()) return invalid_data_error;
    double a[3];
    if (!normalise(axis, a)) return invalid_data_error;
    double r[3];
    for (unsigned c = 0; c < 3; ++c) r[c] = pos(c, node2) - pos(c, node1);
    const double r2 = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
    if (r2 == 0.0 || node1 == node2) return invalid_data_error;
    // The segment turns about a by (a x r) . (u2 - u1) / |r|².
    const double w[3] = {(a[1] * r[2] - a[2] * r[1]) / r2, (a[2] * r[0] - a[0] * r[2]) / r2,
                         (a[0] * r[1] - a[1] * r[0]) / r2};
    std::vector<std::pair<unsigned, double>> entries;
    for (unsigned c = 0; c < 3; ++c) entries.emplace_back(field_DOF(node2, displacement_tag, c), w[c]);
    for (unsigned c = 0; c < 3; ++c) entries.emplace_back(field_DOF(node1, displacement_tag, c), -w[c]);
    for (unsigned c = 0; c < 3; ++c) entries.emplace_back(field_DOF(node1, rotation_tag, c), -a[c]);
    return set_list(entries, law_);
}

} // namespace kelt::core
