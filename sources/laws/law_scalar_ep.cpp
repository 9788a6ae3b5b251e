// The one-dimensional table law and the one-dimensional elastoplastic laws.
#include "kelt/laws/law_scalar_ep.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelt::core {

namespace {

constexpr double largest = std::numeric_limits<double>::max();

// The lists a, b (n each) at `at` in `d`, followed by room for the compiled curve.
bool lists_valid(const dense1D<double, 8>& d, unsigned at, unsigned n)
{
    if (n == 0 || (d.size() != at + 2 * n && d.size() != at + 5 * n)) return false;
    return valid_table(d.data() + at, d.data() + at + n, n, n);
}

bool compile_lists(dense1D<double, 8>& d, unsigned at, unsigned n)
{
    const unsigned lists = at + 2 * n;
    if (n == 0 || d.size() != lists) return true;
    if (!d.resize(lists + 3 * n, 0.0)) return false;
    const double* a = d.data() + at;
    double* p = d.data() + lists;
    compile_table(a, a + n, n, p, p + n, p + 2 * n);
    return true;
}

bool table_curve(const dense1D<double, 8>& d, unsigned at, unsigned n, hardening_curve& out)
{
    const unsigned lists = at + 2 * n;
    if (n == 0 || d.size() != lists + 3 * n) return false;
    out = hardening_curve{};
    out.form = hardening_curve::table;
    out.n = n;
    out.p = d.data() + lists;
    out.y = out.p + n;
    out.slope = out.p + 2 * n;
    return true;
}

// `head` values, then the lists a and b.
bool join(const dense1D<double, 8>& head, unsigned head_size, const dense1D<double, 8>& a,
          const dense1D<double, 8>& b, dense1D<double, 8>& d)
{
    const unsigned n = a.size();
    if (!d.resize(head_size + 2 * n, 0.0)) return false;
    std::copy(head.begin(), head.end(), d.data());
    std::copy(a.begin(), a.end(), d.data() + head_size);
    std::copy(b.begin(), b.end(), d.data() + head_size + n);
    return true;
}

bool columns(const dense2D<double>& table, dense1D<double, 8>& a, dense1D<double, 8>& b)
{
    if (!a.resize(table.rows()) || !b.resize(table.rows())) return false;
    for (unsigned i = 0; i < table.rows(); ++i) {
        a[i] = table(i, 0);
        b[i] = table(i, 1);
    }
    return true;
}

} // namespace

void ep_step(double E, const hardening_curve& curve, const ep_limits& limits, double s, double& k, double& f,
             double& energy, const double* state_in, double* state_out) noexcept
{
    const double s_last = state_in ? state_in[0] : 0.0, f_last = state_in ? state_in[1] : 0.0;
    double p = state_in ? state_in[2] : 0.0;
    k = E;
    double force = (s - s_last) * k + f_last;
    const bool returned = scalar_return_mapping(curve, force, p, k);
    f = force;
    double e = E != 0.0 ? f / E : 0.0;
    if (std::abs(s) >= limits.strain || std::abs(f) >= limits.stress) f = k = e = 0.0;
    energy = e * f * 0.5;
    if (!state_out) return;
    if (returned && p > 0.0) {
        state_out[0] = s;
        state_out[1] = force;
        state_out[2] = p;
    } else {
        for (unsigned i = 0; i < ep_1d_states; ++i) state_out[i] = state_in ? state_in[i] : 0.0;
    }
}

// ---------------------------------------------------------------------------------

error_type law_scalar_nl::init(const dense2D<double>& table, double shift)
{
    data.clear_hard();
    nbr_rows = 0;
    if (table.cols() != 2 || table.rows() == 0) return law_data_error;
    const unsigned n = table.rows();
    dense1D<double, 8> d;
    if (!d.resize(2 * n + 1, 0.0)) return memory_error;
    for (unsigned i = 0; i < n; ++i) {
        d[i] = table(i, 0);
        d[n + i] = table(i, 1);
    }
    d[n - 1] = largest;
    d[2 * n] = shift;
    nbr_rows = n;
    return law_scalar::init(d);
}

bool law_scalar_nl::valid(const dense1D<double, 8>& d) const { return nbr_rows != 0 && d.size() == 2 * nbr_rows + 1; }

std::pair<double, double> law_scalar_nl::get_stiffness_range(field_tag) const
{
    double lower = largest, upper = -largest;
    for (unsigned i = 0; i < nbr_rows && nbr_rows + i < data.size(); ++i) {
        lower = std::min(lower, data[nbr_rows + i]);
        upper = std::max(upper, data[nbr_rows + i]);
    }
    return {lower, upper};
}

void law_scalar_nl::get_force(const law_key& key, double s, double& k, double& f, double& energy, const double*,
                              double*) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    k = f = energy = 0.0;
    const unsigned n = nbr_rows;
    if (n == 0 || d.size() != 2 * n + 1) return;
    stiffness_table_walk(d.data(), d.data() + n, n, s + d[2 * n], k, f, energy);
}

// ---------------------------------------------------------------------------------

std::pair<double, double> law_scalar_ep_iso_hardening::get_stiffness_range(field_tag) const
{
    double E = 0.0;
    hardening_curve curve;
    if (!get_hardening_data(data, E, curve)) return {0.0, 0.0};
    return {E, E};
}

void law_scalar_ep_iso_hardening::get_force(const law_key& key, double s, double& k, double& f, double& energy,
                                            const double* state_in, double* state_out) const
{
    double E = 0.0;
    hardening_curve curve;
    if (!get_hardening_data(element_data(key.model, key.element), E, curve)) {
        k = f = energy = 0.0;
        if (state_out)
            for (unsigned i = 0; i < ep_1d_states; ++i) state_out[i] = state_in ? state_in[i] : 0.0;
        return;
    }
    ep_step(E, curve, limits, s, k, f, energy, state_in, state_out);
}

bool law_scalar_ep_perfect::get_hardening_data(const dense1D<double, 8>& d, double& E, hardening_curve& out) const
{
    if (d.size() < 3) return false;
    E = d[0];
    out = hardening_curve::bilinear(d[0], d[1], d[2]);
    return true;
}

bool law_scalar_ep_power::get_hardening_data(const dense1D<double, 8>& d, double& E, hardening_curve& out) const
{
    if (d.size() < 4) return false;
    E = d[0];
    out = hardening_curve::power_law(d[0], d[1], d[2], d[3]);
    return true;
}

bool law_scalar_ep_RambergOsgood::get_hardening_data(const dense1D<double, 8>& d, double& E,
                                                     hardening_curve& out) const
{
    if (d.size() < 4) return false;
    E = d[0];
    out = hardening_curve::Ramberg_Osgood(d[0], d[1], d[2], d[3]);
    return true;
}

error_type law_scalar_ep_piecewise_linear::init(const dense1D<double, 8>& a, const dense1D<double, 8>& b)
{
    data.clear_hard();
    nbr_points = 0;
    if (!valid_table(a.data(), b.data(), a.size(), b.size())) return law_data_error;
    dense1D<double, 8> d;
    if (!join(dense1D<double, 8>(), 0, a, b, d)) return memory_error;
    nbr_points = a.size();
    return law_scalar_ep_iso_hardening::init(d);
}

error_type law_scalar_ep_piecewise_linear::init(const dense2D<double>& table)
{
    data.clear_hard();
    nbr_points = 0;
    if (table.cols() < 2) return law_data_error;
    dense1D<double, 8> a, b;
    if (!columns(table, a, b)) return memory_error;
    return init(a, b);
}

bool law_scalar_ep_piecewise_linear::valid(const dense1D<double, 8>& d) const { return lists_valid(d, 0, nbr_points); }

bool law_scalar_ep_piecewise_linear::process_data(dense1D<double, 8>& d) const
{
    return compile_lists(d, 0, nbr_points);
}

bool law_scalar_ep_piecewise_linear::get_hardening_data(const dense1D<double, 8>& d, double& E,
                                                        hardening_curve& out) const
{
    if (!table_curve(d, 0, nbr_points, out)) return false;
    E = d[0];
    return true;
}

// ---------------------------------------------------------------------------------

void law_spring_ep_iso_hardening::get_force(const law_key& key, double s, double& k, double& f, double& energy,
                                            const double* state_in, double* state_out) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    hardening_curve curve;
    if (d.empty() || !get_hardening_data(d, curve)) {
        k = f = energy = 0.0;
        if (state_out)
            for (unsigned i = 0; i < ep_1d_states; ++i) state_out[i] = state_in ? state_in[i] : 0.0;
        return;
    }
    ep_step(d[0], curve, limits, s, k, f, energy, state_in, state_out);
    apply_floor(force_floor_of(d), f);
}

double law_spring_ep_iso_hardening::initial_strain_of(const dense1D<double, 8>& d) const noexcept
{
    const unsigned t = tail_at(d);
    return t < d.size() ? d[t] : 0.0;
}

double law_spring_ep_iso_hardening::force_floor_of(const dense1D<double, 8>& d) const noexcept
{
    const unsigned t = tail_at(d) + 1;
    return t < d.size() ? d[t] : 0.0;
}

bool law_spring_ep_perfect::process_data(dense1D<double, 8>& d) const { return d.size() >= 7 || d.resize(7, 0.0); }

bool law_spring_ep_perfect::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 5) return false;
    out = hardening_curve::bilinear(d[0], d[3], d[4]);
    return true;
}

bool law_spring_ep_power::process_data(dense1D<double, 8>& d) const { return d.size() >= 8 || d.resize(8, 0.0); }

bool law_spring_ep_power::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 6) return false;
    out = hardening_curve::power_law(d[0], d[3], d[4], d[5]);
    return true;
}

bool law_spring_ep_RambergOsgood::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 6) return false;
    out = hardening_curve::Ramberg_Osgood(d[0], d[3], d[4], d[5]);
    return true;
}

namespace {
constexpr unsigned spring_head = 5;
}

error_type law_spring_ep_piecewise_linear::init(const dense1D<double, 8>& head, const dense1D<double, 8>& a,
                                                const dense1D<double, 8>& b)
{
    data.clear_hard();
    nbr_points = 0;
    if ((head.size() != 3 && head.size() != spring_head) || !valid_table(a.data(), b.data(), a.size(), b.size()))
        return law_data_error;
    dense1D<double, 8> d;
    if (!join(head, spring_head, a, b, d)) return memory_error;
    nbr_points = a.size();
    return law_spring_ep_iso_hardening::init(d);
}

error_type law_spring_ep_piecewise_linear::init(const dense1D<double, 8>& head, const dense2D<double>& table)
{
    data.clear_hard();
    nbr_points = 0;
    if (table.cols() < 2) return law_data_error;
    dense1D<double, 8> a, b;
    if (!columns(table, a, b)) return memory_error;
    return init(head, a, b);
}

bool law_spring_ep_piecewise_linear::valid(const dense1D<double, 8>& d) const
{
    return lists_valid(d, spring_head, nbr_points);
}

bool law_spring_ep_piecewise_linear::process_data(dense1D<double, 8>& d) const
{
    return compile_lists(d, spring_head, nbr_points);
}

bool law_spring_ep_piecewise_linear::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    return table_curve(d, spring_head, nbr_points, out);
}

} // namespace kelt::core
