// The shell laws: their parameter layouts and the section matrices built on them.
#include "kelt/laws/law_shell.h"

#include <algorithm>

namespace kelt::core {

namespace {

// The shear correction factor of a homogeneous section, fixed.
constexpr double shear_factor = 5.0 / 6.0;

// Completes a layout with the thickness at `h_at` and the inertia at `I_at`: when
// the vector ends before the inertia, it is h^3 / 12; when it ends just after, that
// entry held the offset z of the mid-surface, which gives the inertia about the
// reference surface and the coupling h z next to it.
bool complete_section(dense1D<double, 8>& d, unsigned h_at, unsigned I_at, unsigned full)
{
    const unsigned given = d.size();
    const double h = d[h_at];
    const double I = h * h * h / 12.0;
    if (!d.resize(full, 0.0)) return false;
    if (given == I_at) d[I_at] = I;
    if (given == I_at + 1) {
        const double z = d[I_at];
        d[I_at] = I + z * z * h;
        d[I_at + 1] = h * z;
    }
    return true;
}

void zero(section8& D) { D = section8{}; }

// Expansions (xx, yy, xy) times the mean change into the membrane rows, times the
// gradient into the curvatures.
void thermal_rows(const double (&a)[3], const double* T, unsigned n, strain8& out)
{
    out = strain8{};
    for (unsigned i = 0; i < 3; ++i) {
        out[i] = n > 0 ? a[i] * T[0] : 0.0;
        out[i + 3] = n > 1 ? a[i] * T[1] : 0.0;
    }
}

// Membrane, bending and coupling blocks of the plane-stress matrix C.
void fill_blocks(const double (&C)[3][3], double h, double I, double hz, section8& D)
{
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = i; j < 3; ++j) {
            D(i, j) = h * C[i][j];
            D(i + 3, j + 3) = I * C[i][j];
            D(i, j + 3) = hz * C[i][j];
            D(j, i + 3) = hz * C[i][j];
        }
}

} // namespace

bool law_shell_stiff::get_stress(const law_key& key, const strain8& eps, section8& D, strain8& sigma,
                                 double& energy_density) const
{
    const bool read = get_section(key, D);
    double e = 0.0;
    for (unsigned i = 0; i < 8; ++i) {
        double s = 0.0;
        for (unsigned j = 0; j < 8; ++j) s += D(i, j) * eps[j];
        sigma[i] = s;
        e += s * eps[i];
    }
    energy_density = 0.5 * e;
    return read;
}

void law_shell_stiff::get_thermal_strain(const law_key&, const double*, unsigned, strain8& out) const
{
    out = strain8{};
}

void law_shell_StVenant::get_thermal_strain(const law_key& key, const double* T, unsigned n, strain8& out) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    const double a = d.size() > 2 ? d[2] : 0.0;
    thermal_rows({a, a, 0.0}, T, n, out);
}

void law_shell_orthotropic::get_thermal_strain(const law_key& key, const double* T, unsigned n, strain8& out) const
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 25) {
        out = strain8{};
        return;
    }
    thermal_rows({d[8], d[9], d[10]}, T, n, out);
}

// ---------------------------------------------------------------------------------

bool law_shell_StVenant::valid(const dense1D<double, 8>& d) const
{
    return d.size() == 4 || d.size() == 6 || d.size() == 15;
}

bool law_shell_StVenant::process_data(dense1D<double, 8>& d) const
{
    if (d.size() == 4) {
        if (!d.resize(5, 0.0)) return false;
        d[4] = shear_factor * d[0] / (2.0 * d[1] + 2.0);
    }
    return complete_section(d, 3, 5, 15);
}

std::pair<double, double> law_shell_StVenant::get_stiffness_range(field_tag field) const
{
    if (data.size() < 15) return {0.0, 0.0};
    if (field == displacement_tag) return {data[3] * data[0], data[3] * data[0]};
    if (field == rotation_tag) return {data[5] * data[0], data[5] * data[0]};
    return {0.0, 0.0};
}

bool law_shell_StVenant::get_section(const law_key& key, section8& D) const
{
    zero(D);
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 15) return false;
    const double E = d[0], nu = d[1];
    if (!(nu > -1.0 && nu < 1.0)) return true;
    const double c = E / (1.0 - nu * nu);
    const double C[3][3] = {{c, c * nu, 0.0}, {c * nu, c, 0.0}, {0.0, 0.0, 0.5 * c * (1.0 - nu)}};
    fill_blocks(C, d[3], d[5], d[6], D);
    D(6, 6) = D(7, 7) = d[4] * d[3];
    return true;
}

// ---------------------------------------------------------------------------------

bool law_shell_orthotropic::valid(const dense1D<double, 8>& d) const
{
    return d.size() == 15 || d.size() == 16 || d.size() == 25;
}

bool law_shell_orthotropic::process_data(dense1D<double, 8>& d) const { return complete_section(d, 14, 15, 25); }

std::pair<double, double> law_shell_orthotropic::get_stiffness_range(field_tag field) const
{
    if (data.size() < 25) return {0.0, 0.0};
    const double lower = std::min(data[6], data[7]), upper = std::max(data[6], data[7]);
    const double f = field == displacement_tag ? data[14] : field == rotation_tag ? data[15] : 0.0;
    return {lower * f, upper * f};
}

bool law_shell_orthotropic::get_section(const law_key& key, section8& D) const
{
    zero(D);
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 25) return false;
    const double C[3][3] = {{d[0], d[2], 0.0}, {d[2], d[1], 0.0}, {0.0, 0.0, d[3]}};
    fill_blocks(C, d[14], d[15], d[16], D);
    D(6, 6) = d[4] * d[14];
    D(7, 7) = d[5] * d[14];
    return true;
}

// ---------------------------------------------------------------------------------

law_shell_skyline::law_shell_skyline(const vector_fixed<unsigned, 8>& heights_) : heights(heights_) {}

unsigned law_shell_skyline::nbr_couplings() const noexcept
{
    unsigned n = 0;
    for (unsigned j = 0; j < 8; ++j) n += heights[j];
    return n;
}

bool law_shell_skyline::valid(const dense1D<double, 8>& d) const
{
    for (unsigned j = 0; j < 8; ++j)
        if (heights[j] > j) return false;
    return d.size() == nbr_couplings() + 8;
}

std::pair<double, double> law_shell_skyline::get_stiffness_range(field_tag field) const
{
    if (!valid(data)) return {0.0, 0.0};
    const double* diagonal = data.data() + nbr_couplings();
    const unsigned at = field == displacement_tag ? 0 : field == rotation_tag ? 3 : 8;
    if (at == 8) return {0.0, 0.0};
    return {std::min(diagonal[at], diagonal[at + 1]), std::max(diagonal[at], diagonal[at + 1])};
}

bool law_shell_skyline::get_section(const law_key& key, section8& D) const
{
    zero(D);
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (!valid(d)) return false;
    unsigned k = 0;
    for (unsigned j = 0; j < 8; ++j)
        for (unsigned i = j - heights[j]; i < j; ++i) D(i, j) = d[k++];
    for (unsigned i = 0; i < 8; ++i) D(i, i) = d[k + i];
    return true;
}

// ---------------------------------------------------------------------------------

bool law_shell_mass::valid(const dense1D<double, 8>& d) const { return d.size() == 2 || d.size() == 3; }

bool law_shell_mass::process_data(dense1D<double, 8>& d) const { return d.resize(3, 0.0); }

law_shell_mass::section_type law_shell_mass::get_section(const law_key& key) const noexcept
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    if (d.size() < 3) return {0.0, 0.0, 0.0};
    const double rho = d[0], h = d[1], z = d[2];
    return {rho * h, rho * h * z, rho * (h * h * h / 12.0 + z * z * h)};
}

} // namespace kelt::core
