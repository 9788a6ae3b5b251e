// The elastoplastic solid laws: the stress update from the last commit, and the
// parameter layouts of the four hardening curves.
#include "kelt/laws/law_solid_ep.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace kelt::core {

namespace {

// The first three values are E, nu and the thermal expansion in every layout.
bool elastic_part(const dense1D<double, 8>& d) noexcept { return d.size() >= 3; }

} // namespace

bool law_solid_ep_iso_hardening::initial_stress_at(const dense1D<double, 8>& d, unsigned at, voigt6& out) noexcept
{
    if (d.size() < at + 6) return false;
    for (unsigned i = 0; i < 6; ++i) out[i] = d[at + i];
    return true;
}

std::pair<double, double> law_solid_ep_iso_hardening::get_stiffness_range(field_tag field) const
{
    if (field != displacement_tag || !elastic_part(data)) return {0.0, 0.0};
    return {data[0], data[0]};
}

bool law_solid_ep_iso_hardening::describe_unusable(char* text, unsigned size) const
{
    if (law_base::describe_unusable(text, size)) return true;
    if (!elastic_part(data)) return false;
    if (!(data[0] > 0.0)) {
        std::snprintf(text, size, "Law parameter E = %g is not positive.", data[0]);
        return true;
    }
    if (!(data[1] > -1.0 && data[1] < 0.5)) {
        std::snprintf(text, size, "Law parameter nu = %g lies outside (-1, 0.5).", data[1]);
        return true;
    }
    return false;
}

void law_solid_ep_iso_hardening::add_initial_strain(const law_key& key, voigt6& strain) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    voigt6 s0;
    if (!elastic_part(d) || !get_initial_stress(d, s0)) return;
    const double E = d[0], nu = d[1];
    if (!(E > 0.0 && nu > -1.0 && nu < 0.5)) return;
    // The isotropic compliance, so that the elastic predictor carries s0 as given.
    const double trace = s0[0] + s0[1] + s0[2];
    for (unsigned i = 0; i < 3; ++i) {
        strain[i] += ((1.0 + nu) * s0[i] - nu * trace) / E;
        strain[i + 3] += 2.0 * (1.0 + nu) * s0[i + 3] / E;
    }
}

void law_solid_ep_iso_hardening::get_thermal_strain(const law_key& key, const double* T, unsigned n,
                                                    voigt6& out) const
{
    out = voigt6{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (!elastic_part(d) || n == 0) return;
    for (unsigned i = 0; i < 3; ++i) out[i] = d[2] * T[0];
}

void law_solid_ep_iso_hardening::get_constitutive(const law_key& key, constitutive6& D) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (!elastic_part(d)) {
        D = constitutive6{};
        return;
    }
    law_solid_StVenant::isotropic(d[0], d[1], D);
}

bool law_solid_ep_iso_hardening::return_mapping(double, double G, const hardening_curve& curve, voigt6& stress,
                                                double& p, constitutive6& D) const
{
    return solid_return_mapping(G, curve, stress, p, D);
}

bool law_solid_ep_iso_hardening::get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma,
                                            double& energy_density, const double* state_in, double* state_out) const
{
    const auto keep = [&] {
        if (state_out)
            for (unsigned i = 0; i < nbr_states; ++i) state_out[i] = state_in ? state_in[i] : 0.0;
    };
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    hardening_curve curve;
    if (!elastic_part(d) || !get_hardening_data(d, curve)) {
        D = constitutive6{};
        sigma = voigt6{};
        energy_density = 0.0;
        keep();
        return false;
    }
    const double E = d[0], nu = d[1], G = E / (2.0 * nu + 2.0);
    law_solid_StVenant::isotropic(E, nu, D);
    // Elastic predictor on the strain increment since the last commit.
    double committed[nbr_states] = {};
    if (state_in) std::copy(state_in, state_in + nbr_states, committed);
    for (unsigned i = 0; i < 6; ++i) {
        double s = committed[6 + i];
        for (unsigned j = 0; j < 6; ++j) s += D(i, j) * (eps[j] - committed[j]);
        sigma[i] = s;
    }
    double p = committed[12];
    const bool returned = return_mapping(E, G, curve, sigma, p, D);
    // Plastic flow keeps the volume: the elastic strain has the total mean strain
    // and the deviator of the stress over 2 G.
    const double mean_strain = (eps[0] + eps[1] + eps[2]) / 3.0;
    const double mean_stress = (sigma[0] + sigma[1] + sigma[2]) / 3.0;
    double work = 0.0;
    for (unsigned i = 0; i < 3; ++i) {
        work += sigma[i] * ((sigma[i] - mean_stress) / (2.0 * G) + mean_strain);
        work += sigma[i + 3] * (sigma[i + 3] / G);
    }
    energy_density = 0.5 * work;
    if (!returned || !(p > 0.0)) {
        keep();
        return true;
    }
    if (state_out) {
        for (unsigned i = 0; i < 6; ++i) {
            state_out[i] = eps[i];
            state_out[6 + i] = sigma[i];
        }
        state_out[12] = p;
    }
    return true;
}

// ---------------------------------------------------------------------------------

bool law_solid_ep_perfect::valid(const dense1D<double, 8>& d) const { return d.size() == 5 || d.size() == 11; }

bool law_solid_ep_perfect::process_data(dense1D<double, 8>& d) const { return d.size() >= 11 || d.resize(11, 0.0); }

bool law_solid_ep_perfect::get_initial_stress(const dense1D<double, 8>& d, voigt6& out) const
{
    return initial_stress_at(d, 5, out);
}

bool law_solid_ep_perfect::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 5) return false;
    out = hardening_curve::bilinear(d[0], d[3], d[4]);
    return true;
}

bool law_solid_ep_power::valid(const dense1D<double, 8>& d) const { return d.size() == 6 || d.size() == 12; }

bool law_solid_ep_power::process_data(dense1D<double, 8>& d) const { return d.size() >= 12 || d.resize(12, 0.0); }

bool law_solid_ep_power::get_initial_stress(const dense1D<double, 8>& d, voigt6& out) const
{
    return initial_stress_at(d, 6, out);
}

bool law_solid_ep_power::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 6) return false;
    out = hardening_curve::power_law(d[0], d[3], d[4], d[5]);
    return true;
}

bool law_solid_ep_RambergOsgood::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    if (d.size() < 6) return false;
    out = hardening_curve::Ramberg_Osgood(d[0], d[3], d[4], d[5]);
    return true;
}

// ---------------------------------------------------------------------------------
// Piecewise: 9 values, the lists a and b, then once processed the points, the
// ordinates and the slopes of the curve (n values each).

namespace {
constexpr unsigned piecewise_base = 9;
}

error_type law_solid_ep_piecewise_linear::init(const dense1D<double, 8>& base, const dense1D<double, 8>& a,
                                               const dense1D<double, 8>& b)
{
    data.clear_hard();
    nbr_points = 0;
    if ((base.size() != 3 && base.size() != piecewise_base) || !valid_table(a.data(), b.data(), a.size(), b.size()))
        return law_data_error;
    const unsigned n = a.size();
    dense1D<double, 8> d;
    if (!d.resize(piecewise_base + 2 * n, 0.0)) return memory_error;
    std::copy(base.begin(), base.end(), d.data());
    std::copy(a.begin(), a.end(), d.data() + piecewise_base);
    std::copy(b.begin(), b.end(), d.data() + piecewise_base + n);
    nbr_points = n;
    return law_solid_ep_iso_hardening::init(d);
}

error_type law_solid_ep_piecewise_linear::init(const dense1D<double, 8>& base, const dense2D<double>& table)
{
    data.clear_hard();
    nbr_points = 0;
    if (table.cols() < 2) return law_data_error;
    dense1D<double, 8> a, b;
    if (!a.resize(table.rows()) || !b.resize(table.rows())) return memory_error;
    for (unsigned i = 0; i < table.rows(); ++i) {
        a[i] = table(i, 0);
        b[i] = table(i, 1);
    }
    return init(base, a, b);
}

bool law_solid_ep_piecewise_linear::valid(const dense1D<double, 8>& d) const
{
    const unsigned n = nbr_points;
    if (n == 0 || (d.size() != piecewise_base + 2 * n && d.size() != piecewise_base + 5 * n)) return false;
    return valid_table(d.data() + piecewise_base, d.data() + piecewise_base + n, n, n);
}

bool law_solid_ep_piecewise_linear::process_data(dense1D<double, 8>& d) const
{
    const unsigned n = nbr_points, lists = piecewise_base + 2 * n;
    if (d.size() != lists) return true;
    if (!d.resize(lists + 3 * n, 0.0)) return false;
    const double* a = d.data() + piecewise_base;
    double* p = d.data() + lists;
    compile_table(a, a + n, n, p, p + n, p + 2 * n);
    return true;
}

bool law_solid_ep_piecewise_linear::get_initial_stress(const dense1D<double, 8>& d, voigt6& out) const
{
    return initial_stress_at(d, 3, out);
}

bool law_solid_ep_piecewise_linear::get_hardening_data(const dense1D<double, 8>& d, hardening_curve& out) const
{
    const unsigned n = nbr_points, lists = piecewise_base + 2 * n;
    if (n == 0 || d.size() != lists + 3 * n) return false;
    out = hardening_curve{};
    out.form = hardening_curve::table;
    out.n = n;
    out.p = d.data() + lists;
    out.y = out.p + n;
    out.slope = out.p + 2 * n;
    return true;
}

} // namespace kelt::core
