// Beam section laws: the expansion of the short forms, the section matrix, the taper
// and the section's mass.
#include "kelt/laws/law_beam.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelt::core {

namespace {

bool orientation_of(const dense1D<double, 8>& d, double (&y)[3])
{
    if (d.size() < 3) return false;
    for (unsigned i = 0; i < 3; ++i) y[i] = d[i];
    return true;
}

// Values v(xi) of a tapered group: each of the first `tapered` values of `first`
// varies linearly from end 1 to end 2 about the mean through its coefficient, the
// others take the mean of the ends.
void interpolate(const double* first, const double* second, unsigned n, unsigned tapered, double xi, double* v)
{
    for (unsigned i = 0; i < n; ++i) {
        const double mean = 0.5 * (first[i] + second[i]);
        v[i] = i < tapered ? mean * (1.0 + law_beam_StVenant::taper(first[i], second[i]) * xi) : mean;
    }
}

} // namespace

bool law_beam_StVenant::valid(const dense1D<double, 8>& d) const
{
    const unsigned n = d.size();
    return n == 9 || n == 15 || n == 22 || n == 24 || n == 31;
}

bool law_beam_StVenant::process_data(dense1D<double, 8>& d) const
{
    const unsigned n = d.size();
    if (n == 22 || n == 31) return true;
    if (!d.resize(n == 24 ? 31 : 22, 0.0)) return false;
    if (n == 9) {
        // One section value in entry 6 stands for all: the shear areas are it, the
        // torsion constant their sum, the inertias the new shear areas.
        const double nu = d[4];
        d[4] = d[3] / (2.0 * nu + 2.0);
        d[7] = d[6];
        d[8] = d[6];
        d[9] = d[7] + d[8];
        d[10] = d[7];
        d[11] = d[8];
        d[12] = d[13] = d[14] = 0.0;
    }
    return true;
}

double law_beam_StVenant::taper(double end1, double end2) noexcept
{
    const double sum = end2 + end1;
    if (!(sum > 1e-12)) return 0.0;
    const double c = (end2 - end1) / sum;
    return std::fabs(c) >= 1.0 ? 0.0 : c;
}

// Lowest and highest of Iy, Iz, Iyz; the rotation range is given as (E x highest,
// E x lowest).
std::pair<double, double> law_beam_StVenant::get_stiffness_range(field_tag field) const
{
    if (data.size() < 13) return {0.0, 0.0};
    const double E = data[3], EA = E * data[6];
    const double lo = std::min({data[10], data[11], data[12]}), hi = std::max({data[10], data[11], data[12]});
    if (field == displacement_tag) return {EA, EA};
    if (field == rotation_tag) return {E * hi, E * lo};
    return {std::min(EA, E * lo), std::max(EA, E * hi)};
}

bool law_beam_StVenant::describe_unusable(char* text, unsigned size) const
{
    if (law_base::describe_unusable(text, size)) return true;
    if (data.size() < 7) return false;
    const char* names[3] = {"E", "G", "A"};
    const unsigned at[3] = {3, 4, 6};
    for (unsigned i = 0; i < 3; ++i)
        if (!(data[at[i]] > 0.0)) {
            std::snprintf(text, size, "Law parameter %s = %g is not positive.", names[i], data[at[i]]);
            return true;
        }
    return false;
}

bool law_beam_StVenant::get_orientation(const law_key& key, double (&y)[3]) const
{
    return orientation_of(element_data(key.model, key.element), y);
}

void law_beam_StVenant::section(double E, double G, const double* v, section6& D)
{
    D = section6{};
    const double A = v[0], Ay = v[1] > 0.0 ? v[1] : A, Az = v[2] > 0.0 ? v[2] : A;
    const double J = v[3], Iy = v[4], Iz = v[5], Iyz = v[6], yc = v[7], zc = v[8];
    D(0, 0) = E * A;
    D(1, 1) = E * (A * zc * zc + Iy);
    D(2, 2) = E * (A * yc * yc + Iz);
    D(1, 2) = E * (A * yc * zc + Iyz);
    D(0, 1) = E * A * yc;
    D(0, 2) = E * A * zc;
    D(3, 3) = G * J;
    D(4, 4) = G * Ay;
    D(5, 5) = G * Az;
}

bool law_beam_StVenant::get_section(const law_key& key, double xi, section6& D) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 22) {
        D = section6{};
        return false;
    }
    double v[9];
    if (d.size() == 31)
        interpolate(&d[6], &d[15], 9, 6, xi, v);
    else
        std::copy(&d[6], &d[6] + 9, v);
    section(d[3], d[4], v, D);
    return true;
}

void law_beam_StVenant::get_initial_forces(const law_key& key, double, double (&s)[6]) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const unsigned at = d.size() == 31 ? 24 : 15;
    for (unsigned i = 0; i < 6; ++i) s[i] = at + i < d.size() ? d[at + i] : 0.0;
}

void law_beam_StVenant::get_thermal_strain(const law_key& key, const double* T, unsigned n, double (&out)[3]) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const double a = d.size() > 5 ? d[5] : 0.0;
    for (unsigned i = 0; i < 3; ++i) out[i] = i < n ? a * T[i] : 0.0;
}

// ---------------------------------------------------------------------------------

bool law_beam_mass::valid(const dense1D<double, 8>& d) const
{
    return d.size() == 6 || d.size() == 11 || d.size() == 18;
}

bool law_beam_mass::process_data(dense1D<double, 8>& d) const
{
    if (d.size() != 6) return true;
    if (!d.resize(11, 0.0)) return false;
    d[6] = d[7] = 0.5 * d[5];
    return true;
}

bool law_beam_mass::get_orientation(const law_key& key, double (&y)[3]) const
{
    return orientation_of(element_data(key.model, key.element), y);
}

bool law_beam_mass::get_section_mass(const law_key& key, double xi, section6& M) const
{
    M = section6{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 11) return false;
    double v[7];
    if (d.size() == 18)
        for (unsigned i = 0; i < 7; ++i) v[i] = 0.5 * ((1.0 - xi) * d[4 + i] + (1.0 + xi) * d[11 + i]);
    else
        std::copy(&d[4], &d[4] + 7, v);
    const double rho = d[3], A = v[0], Ip = v[1], Iy = v[2], Iz = v[3], Iyz = v[4], yc = v[5], zc = v[6];
    // The velocity of a point (0, y, z) of the section is u + theta x (0, y, z).
    const double m = rho * A;
    for (unsigned i = 0; i < 3; ++i) M(i, i) = m;
    M(0, 4) = m * zc;
    M(0, 5) = -m * yc;
    M(1, 3) = -m * zc;
    M(2, 3) = m * yc;
    M(3, 3) = rho * (Ip + A * (yc * yc + zc * zc));
    M(4, 4) = rho * (Iy + A * zc * zc);
    M(5, 5) = rho * (Iz + A * yc * yc);
    M(4, 5) = -rho * (Iyz + A * yc * zc);
    return true;
}

} // namespace kelt::core
