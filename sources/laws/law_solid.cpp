// The elastic solid laws: their parameter layouts, D, thermal strains, and the
// strain that carries an initial stress.
#include "kelt/laws/law_solid.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelt::core {

namespace {

void apply(const constitutive6& D, const voigt6& x, voigt6& y)
{
    for (unsigned i = 0; i < 6; ++i) {
        double s = 0.0;
        for (unsigned j = 0; j < 6; ++j) s += D(i, j) * x[j];
        y[i] = s;
    }
}

void zero(constitutive6& D, voigt6& sigma, double& energy_density)
{
    D = constitutive6{};
    sigma = voigt6{};
    energy_density = 0.0;
}

void stress_of(const constitutive6& D, const voigt6& eps, voigt6& sigma, double& energy_density)
{
    apply(D, eps, sigma);
    double e = 0.0;
    for (unsigned i = 0; i < 6; ++i) e += eps[i] * sigma[i];
    energy_density = 0.5 * e;
}

// Solves D x = b by Cholesky; false, with x untouched, when D is not positive
// definite (a law whose D is zero has no strain for its initial stress).
bool solve_spd(const constitutive6& D, const double* b, voigt6& x)
{
    double L[6][6] = {};
    for (unsigned j = 0; j < 6; ++j) {
        double d = D(j, j);
        for (unsigned k = 0; k < j; ++k) d -= L[j][k] * L[j][k];
        if (!(d > 0.0)) return false;
        L[j][j] = std::sqrt(d);
        for (unsigned i = j + 1; i < 6; ++i) {
            double s = D(i, j);
            for (unsigned k = 0; k < j; ++k) s -= L[i][k] * L[j][k];
            L[i][j] = s / L[j][j];
        }
    }
    double y[6];
    for (unsigned i = 0; i < 6; ++i) {
        double s = b[i];
        for (unsigned k = 0; k < i; ++k) s -= L[i][k] * y[k];
        y[i] = s / L[i][i];
    }
    for (unsigned i = 6; i-- > 0;) {
        double s = y[i];
        for (unsigned k = i + 1; k < 6; ++k) s -= L[k][i] * x[k];
        x[i] = s / L[i][i];
    }
    return true;
}

// strain += D^-1 sigma0: the law's stress D (eps + that) then holds sigma0 as given.
void add_strain_of_stress(const constitutive6& D, const double* sigma0, voigt6& strain)
{
    voigt6 e0;
    if (!solve_spd(D, sigma0, e0)) return;
    for (unsigned i = 0; i < 6; ++i) strain[i] += e0[i];
}

} // namespace

bool law_solid_stiff::get_material_basis(const law_key&, const point3&, frame3&) const { return false; }

void law_solid_stiff::add_initial_strain(const law_key&, voigt6&) const {}

// ---------------------------------------------------------------------------------

void law_solid_StVenant::isotropic(double E, double nu, constitutive6& D)
{
    D = constitutive6{};
    if (!(nu > -1.0 && nu < 0.5)) return;
    const double l = nu / ((1.0 + nu) * (1.0 - 2.0 * nu)) * E, G = E / (2.0 * nu + 2.0);
    for (unsigned i = 0; i < 3; ++i) {
        for (unsigned j = 0; j < 3; ++j) D(i, j) = l;
        D(i, i) = 2.0 * G + l;
        D(i + 3, i + 3) = G;
    }
}

bool law_solid_StVenant::valid(const dense1D<double, 8>& d) const { return d.size() == 3 || d.size() == 9; }

bool law_solid_StVenant::describe_unusable(char* text, unsigned size) const
{
    if (law_base::describe_unusable(text, size)) return true;
    if (data.size() < 2) return false;
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

std::pair<double, double> law_solid_StVenant::get_stiffness_range(field_tag field) const
{
    if (field != displacement_tag || data.size() < 3) return {0.0, 0.0};
    return {data[0], data[0]};
}

void law_solid_StVenant::get_constitutive(const law_key& key, constitutive6& D) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 3) {
        D = constitutive6{};
        return;
    }
    isotropic(d[0], d[1], D);
}

void law_solid_StVenant::add_initial_strain(const law_key& key, voigt6& strain) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 9) return;
    constitutive6 D;
    isotropic(d[0], d[1], D);
    add_strain_of_stress(D, d.data() + 3, strain);
}

bool law_solid_StVenant::get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma,
                                    double& energy_density, const double*, double*) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 3) {
        zero(D, sigma, energy_density);
        return false;
    }
    isotropic(d[0], d[1], D);
    stress_of(D, eps, sigma, energy_density);
    return true;
}

void law_solid_StVenant::get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const
{
    out = voigt6{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 3 || n == 0) return;
    for (unsigned i = 0; i < 3; ++i) out[i] = d[2] * T[0];
}

// ---------------------------------------------------------------------------------

error_type law_solid_orthotropic::init(const dense1D<double, 8>& d)
{
    bases = nullptr;
    basis_ID = 0xFFFFFFFFu;
    return law_solid_stiff::init(d);
}

error_type law_solid_orthotropic::init(const dense1D<double, 8>& d, const Ptr<bases_mgr>& bases_, unsigned basis)
{
    if (auto e = law_solid_stiff::init(d); e != no_error) return e;
    bases = bases_;
    basis_ID = basis;
    return no_error;
}

law_solid_orthotropic::layout_type law_solid_orthotropic::layout(const dense1D<double, 8>& d) const
{
    return {0, 6, 12, 18, d.size() == 24, d.size() == 18 || d.size() == 24};
}

void law_solid_orthotropic::fill(const dense1D<double, 8>& d, constitutive6& D) const
{
    D = constitutive6{};
    for (unsigned i = 0; i < 6; ++i) D(i, i) = d[i];
    D(0, 1) = d[9];
    D(0, 2) = d[10];
    D(1, 2) = d[11];
}

bool law_solid_orthotropic::valid(const dense1D<double, 8>& d) const { return layout(d).valid; }

std::pair<double, double> law_solid_orthotropic::get_stiffness_range(field_tag field) const
{
    const layout_type l = layout(data);
    if (field != displacement_tag || !l.valid) return {0.0, 0.0};
    const double* E = data.data() + l.moduli;
    return {std::min({E[0], E[1], E[2]}), std::max({E[0], E[1], E[2]})};
}

bool law_solid_orthotropic::get_material_basis(const law_key&, const point3& x, frame3& basis) const
{
    const basis_base* b = bases ? bases->get(basis_ID) : nullptr;
    if (!b) return false;
    b->get_matrix(x, basis);
    return true;
}

void law_solid_orthotropic::get_constitutive(const law_key& key, constitutive6& D) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (!layout(d).valid) {
        D = constitutive6{};
        return;
    }
    fill(d, D);
}

void law_solid_orthotropic::add_initial_strain(const law_key& key, voigt6& strain) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const layout_type l = layout(d);
    if (!l.valid || !l.has_initial) return;
    constitutive6 D;
    fill(d, D);
    add_strain_of_stress(D, d.data() + l.initial, strain);
}

bool law_solid_orthotropic::get_stress(const law_key& key, const voigt6& eps, constitutive6& D, voigt6& sigma,
                                       double& energy_density, const double*, double*) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (!layout(d).valid) {
        zero(D, sigma, energy_density);
        return false;
    }
    fill(d, D);
    stress_of(D, eps, sigma, energy_density);
    return true;
}

void law_solid_orthotropic::get_thermal_strain(const law_key& key, const double* T, unsigned n, voigt6& out) const
{
    out = voigt6{};
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const layout_type l = layout(d);
    if (!l.valid || n == 0) return;
    for (unsigned i = 0; i < 6; ++i) out[i] = d[l.thermal + i] * T[0];
}

// ---------------------------------------------------------------------------------

law_solid_skyline::law_solid_skyline(const vector_fixed<unsigned, 6>& heights_) : heights(heights_) {}

unsigned law_solid_skyline::nbr_couplings() const noexcept
{
    unsigned n = 0;
    for (unsigned j = 0; j < 6; ++j) n += heights[j];
    return n;
}

law_solid_skyline::layout_type law_solid_skyline::layout(const dense1D<double, 8>& d) const
{
    bool heights_valid = true;
    for (unsigned j = 0; j < 6; ++j) heights_valid = heights_valid && heights[j] <= j;
    const unsigned n = nbr_couplings();
    const bool sized = d.size() == n + 15 || d.size() == n + 21;
    return {n, n + 6, n + 9, n + 15, d.size() == n + 21, heights_valid && sized};
}

void law_solid_skyline::fill(const dense1D<double, 8>& d, constitutive6& D) const
{
    D = constitutive6{};
    unsigned k = 0;
    for (unsigned j = 0; j < 6; ++j)
        for (unsigned i = j - heights[j]; i < j; ++i) D(i, j) = d[k++];
    for (unsigned i = 0; i < 6; ++i) D(i, i) = d[k + i];
}

bool law_solid_skyline::valid(const dense1D<double, 8>& d) const { return layout(d).valid; }

} // namespace kelt::core
