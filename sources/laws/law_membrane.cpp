// The membrane laws and the plane view of the solid laws.
#include "kelt/laws/law_membrane.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelt::core {

namespace {

void zero(constitutive3& D, membrane3& N, double& energy_density)
{
    D = constitutive3{};
    N = membrane3{};
    energy_density = 0.0;
}

void stress_of(const constitutive3& D, const membrane3& eps, membrane3& N, double& energy_density)
{
    double e = 0.0;
    for (unsigned i = 0; i < 3; ++i) {
        double s = 0.0;
        for (unsigned j = 0; j < 3; ++j) s += D(i, j) * eps[j];
        N[i] = s;
        e += eps[i] * s;
    }
    energy_density = 0.5 * e;
}

// eps += D^-1 N0 by Cramer's rule; nothing when D is singular.
void add_strain_of_stress(const constitutive3& D, const double* N0, membrane3& eps)
{
    const double a = D(0, 0), b = D(0, 1), c = D(0, 2), d = D(1, 1), e = D(1, 2), f = D(2, 2);
    const double c00 = d * f - e * e, c01 = c * e - b * f, c02 = b * e - c * d;
    const double det = a * c00 + b * c01 + c * c02;
    if (!(std::fabs(det) > 0.0)) return;
    const double c11 = a * f - c * c, c12 = b * c - a * e, c22 = a * d - b * b;
    eps[0] += (c00 * N0[0] + c01 * N0[1] + c02 * N0[2]) / det;
    eps[1] += (c01 * N0[0] + c11 * N0[1] + c12 * N0[2]) / det;
    eps[2] += (c02 * N0[0] + c12 * N0[1] + c22 * N0[2]) / det;
}

// Voigt index of the pair (i, j) of axes in the order xx, yy, zz, xy, xz, yz.
unsigned voigt_index(unsigned i, unsigned j) noexcept
{
    if (i == j) return i;
    const unsigned lo = std::min(i, j), hi = std::max(i, j);
    return lo == 0 ? (hi == 1 ? 3 : 4) : 5;
}

} // namespace

void law_membrane_stiff::add_initial_strain(const law_key&, membrane3&) const {}

// ---------------------------------------------------------------------------------

void law_membrane_StVenant::plane_stress(double E, double nu, double h, constitutive3& D)
{
    D = constitutive3{};
    if (!(nu > -1.0 && nu < 1.0)) return;
    const double c = h * E / (1.0 - nu * nu);
    D(0, 0) = D(1, 1) = c;
    D(0, 1) = c * nu;
    D(2, 2) = c * (1.0 - nu) / 2.0;
}

bool law_membrane_StVenant::valid(const dense1D<double, 8>& d) const { return d.size() == 3 || d.size() == 4; }

bool law_membrane_StVenant::process_data(dense1D<double, 8>& d) const
{
    if (d.size() == 3) d.push_back(1.0);
    return d.size() == 4; // push_back leaves the size when memory fails
}

std::pair<double, double> law_membrane_StVenant::get_stiffness_range(field_tag field) const
{
    if (field != displacement_tag || data.size() < 4) return {0.0, 0.0};
    return {data[3] * data[0], data[3] * data[0]};
}

bool law_membrane_StVenant::describe_unusable(char* text, unsigned size) const
{
    if (law_base::describe_unusable(text, size)) return true;
    if (data.size() < 4) return false;
    if (!(data[0] > 0.0) || !(data[3] > 0.0)) {
        std::snprintf(text, size, "Law parameters E = %g and thickness = %g must be positive.", data[0], data[3]);
        return true;
    }
    if (!(data[1] > -1.0 && data[1] < 1.0)) {
        std::snprintf(text, size, "Law parameter nu = %g lies outside (-1, 1).", data[1]);
        return true;
    }
    return false;
}

bool law_membrane_StVenant::get_stress(const law_key& key, const membrane3& eps, constitutive3& D, membrane3& N,
                                       double& energy_density) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 4) {
        zero(D, N, energy_density);
        return false;
    }
    plane_stress(d[0], d[1], d[3], D);
    stress_of(D, eps, N, energy_density);
    return true;
}

void law_membrane_StVenant::get_thermal_strain(const law_key& key, double T, membrane3& out) const
{
    out = membrane3{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 4) return;
    out[0] = out[1] = d[2] * T;
}

// ---------------------------------------------------------------------------------

bool law_membrane_orthotropic::valid(const dense1D<double, 8>& d) const
{
    return d.size() == 13 || d.size() == 16 || d.size() == processed_size;
}

bool law_membrane_orthotropic::process_data(dense1D<double, 8>& d) const
{
    if (d.size() >= processed_size) return true;
    return d.push_back_n(0.0, processed_size - d.size());
}

std::pair<double, double> law_membrane_orthotropic::get_stiffness_range(field_tag field) const
{
    if (field != displacement_tag || data.size() < processed_size) return {0.0, 0.0};
    const double h = data[12];
    return {h * std::min(data[3], data[4]), h * std::max(data[3], data[4])};
}

void law_membrane_orthotropic::fill(const dense1D<double, 8>& d, constitutive3& D)
{
    // C in the material axes, then D = h Tᵀ C T with T the strain rotation from the
    // face's axes to the material ones.
    double C[3][3] = {{d[0], d[5], d[10]}, {d[5], d[1], d[11]}, {d[10], d[11], d[2]}};
    const double c = std::cos(d[6]), s = std::sin(d[6]);
    const double T[3][3] = {{c * c, s * s, c * s}, {s * s, c * c, -c * s}, {-2 * c * s, 2 * c * s, c * c - s * s}};
    D = constitutive3{};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = i; j < 3; ++j) {
            double v = 0.0;
            for (unsigned k = 0; k < 3; ++k)
                for (unsigned l = 0; l < 3; ++l) v += T[k][i] * C[k][l] * T[l][j];
            D(i, j) = d[12] * v;
        }
}

bool law_membrane_orthotropic::get_stress(const law_key& key, const membrane3& eps, constitutive3& D, membrane3& N,
                                          double& energy_density) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < processed_size) {
        zero(D, N, energy_density);
        return false;
    }
    fill(d, D);
    stress_of(D, eps, N, energy_density);
    return true;
}

void law_membrane_orthotropic::get_thermal_strain(const law_key& key, double T, membrane3& out) const
{
    out = membrane3{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < processed_size) return;
    // The material's expansion turned to the face's axes (engineering shear).
    const double c = std::cos(d[6]), s = std::sin(d[6]);
    const double a11 = d[7] * T, a22 = d[8] * T, a12 = d[9] * T / 2.0;
    out[0] = c * c * a11 + s * s * a22 - 2 * c * s * a12;
    out[1] = s * s * a11 + c * c * a22 + 2 * c * s * a12;
    out[2] = 2.0 * (c * s * (a11 - a22) + (c * c - s * s) * a12);
}

void law_membrane_orthotropic::add_initial_strain(const law_key& key, membrane3& strain) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < processed_size || (d[13] == 0.0 && d[14] == 0.0 && d[15] == 0.0)) return;
    constitutive3 D;
    fill(d, D);
    const double h = d[12];
    const double N0[3] = {h * d[13], h * d[14], h * d[15]};
    add_strain_of_stress(D, N0, strain);
}

// ---------------------------------------------------------------------------------

law_solid_stiff_2d::law_solid_stiff_2d(const Ptr<law_solid_stiff>& solid_, const unsigned (&axes)[3]) : solid(solid_)
{
    const unsigned pairs[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
    for (unsigned k = 0; k < 6; ++k) map[k] = voigt_index(axes[pairs[k][0]], axes[pairs[k][1]]);
}

std::pair<double, double> law_solid_stiff_2d::get_stiffness_range(field_tag field) const
{
    return solid ? solid->get_stiffness_range(field) : std::pair<double, double>(0.0, 0.0);
}

bool law_solid_stiff_2d::describe_unusable(char* text, unsigned size) const
{
    return solid && solid->describe_unusable(text, size);
}

unsigned law_solid_stiff_2d::nbr_internal_states() const { return solid ? solid->nbr_internal_states() : 0; }

bool law_solid_stiff_2d::has_internal_states() const { return solid && solid->has_internal_states(); }

void law_solid_stiff_2d::to_local(const voigt6& global, voigt6& local) const noexcept
{
    for (unsigned k = 0; k < 6; ++k) local[k] = global[map[k]];
}

void law_solid_stiff_2d::to_global(const voigt6& local, voigt6& global) const noexcept
{
    for (unsigned k = 0; k < 6; ++k) global[map[k]] = local[k];
}

bool law_solid_stiff_2d::get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma,
                                    double& energy_density, const double* state_in, double* state_out) const
{
    if (!solid) {
        D = constitutive6{};
        sigma = voigt6{};
        energy_density = 0.0;
        return false;
    }
    voigt6 e, s;
    to_global(eps, e);
    constitutive6 G;
    const bool read = solid->get_stress(key, e, G, s, energy_density, state_in, state_out);
    to_local(s, sigma);
    for (unsigned j = 0; j < 6; ++j)
        for (unsigned i = 0; i <= j; ++i) D(i, j) = G(map[i], map[j]);
    return read;
}

void law_solid_stiff_2d::get_thermal_strain(const law_key& key, double T, voigt6& out) const
{
    out = voigt6{};
    if (!solid) return;
    voigt6 g;
    solid->get_thermal_strain(key, &T, 1, g);
    to_local(g, out);
}

void law_solid_stiff_2d::add_initial_strain(const law_key& key, voigt6& strain) const
{
    if (!solid) return;
    voigt6 g;
    to_global(strain, g);
    solid->add_initial_strain(key, g);
    to_local(g, strain);
}

} // namespace kelt::core
