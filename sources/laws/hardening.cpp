// Hardening curves and the scalar return mappings.
#include "kelt/laws/hardening.h"

#include <algorithm>
#include <cmath>

namespace kelt::core {

namespace {

constexpr unsigned max_rounds = 17;
constexpr double tolerance = 1e-8;
// A stress returned to the yield surface has a von Mises value within a few
// rounding errors of the yield stress; 1e-12 leaves a margin of a thousand.
constexpr double on_surface = 1e-12;
// Below this plastic strain the power curves use a secant slope, since their
// tangent is infinite at 0.
constexpr double small_plastic_strain = 1e-6;

// The segment of a table that holds p: the last point at or below it.
unsigned segment(const hardening_curve& c, double p) noexcept
{
    const unsigned i = unsigned(std::upper_bound(c.p, c.p + c.n, p) - c.p);
    return i == 0 ? 0 : i - 1;
}

} // namespace

double hardening_curve::yield(double at) const noexcept
{
    switch (form) {
    case linear: return y0 + H * at;
    case power: return y0 + k * std::pow(std::max(at, 0.0), m);
    case table: {
        if (n == 0) return 0.0;
        const unsigned i = segment(*this, at);
        return slope[i] == infinite_slope ? y[i] : y[i] + slope[i] * (at - p[i]);
    }
    }
    return 0.0;
}

double hardening_curve::slope_at(double at) const noexcept
{
    switch (form) {
    case linear: return H;
    case power:
        if (k == 0.0) return infinite_slope;
        return at > small_plastic_strain ? k * m * std::pow(at, m - 1.0) : small_slope;
    case table: return n == 0 ? infinite_slope : slope[segment(*this, at)];
    }
    return infinite_slope;
}

hardening_curve hardening_curve::bilinear(double E, double Et, double yield_stress) noexcept
{
    hardening_curve c;
    c.form = linear;
    c.y0 = yield_stress;
    c.H = E - Et != 0.0 ? E * Et / (E - Et) : infinite_slope;
    return c;
}

hardening_curve hardening_curve::power_law(double E, double s0, double a, double n) noexcept
{
    hardening_curve c;
    c.form = power;
    c.y0 = s0;
    if (!(E > 0.0 && a > 0.0 && s0 > 0.0 && n > 1.0)) return c;
    c.m = 1.0 / n;
    const double ratio = E / (s0 * a);
    c.k = s0 * std::pow(ratio, c.m);
    c.small_slope = (1.0 + std::pow(small_plastic_strain * ratio, c.m)) * s0 / small_plastic_strain;
    return c;
}

hardening_curve hardening_curve::Ramberg_Osgood(double E, double s0, double a, double n) noexcept
{
    hardening_curve c;
    c.form = power;
    c.y0 = 0.0;
    if (!(E > 0.0 && a > 0.0 && s0 > 0.0 && n > 1.0)) return c;
    c.m = 1.0 / n;
    const double ratio = E / a;
    c.k = std::pow(s0, 1.0 - c.m) * std::pow(ratio, c.m);
    c.small_slope = std::pow(s0, 1.0 - c.m) * std::pow(small_plastic_strain * ratio, c.m) / small_plastic_strain;
    return c;
}

void compile_table(const double* a, const double* b, unsigned n, double* p, double* y, double* slope) noexcept
{
    if (n == 0) return;
    p[0] = 0.0;
    y[0] = a[0] * b[0];
    for (unsigned i = 1; i < n; ++i) {
        const double db = b[i] - b[i - 1];
        p[i] = p[i - 1] + db * (a[0] - a[i]) / a[0];
        y[i] = y[i - 1] + db * a[i];
        slope[i - 1] = p[i] != p[i - 1] ? (y[i] - y[i - 1]) / (p[i] - p[i - 1]) : infinite_slope;
    }
    slope[n - 1] = 0.0;
}

bool valid_table(const double* a, const double* b, unsigned n, unsigned nb) noexcept
{
    if (n == 0 || n != nb || !(a[0] > 0.0) || !(b[0] > 0.0)) return false;
    for (unsigned i = 1; i < n; ++i)
        if (!(b[i] >= b[i - 1])) return false;
    return true;
}

double von_Mises(const voigt6& s) noexcept
{
    const double d01 = s[0] - s[1], d12 = s[1] - s[2], d20 = s[2] - s[0];
    return std::sqrt(0.5 * (d01 * d01 + d12 * d12 + d20 * d20) + 3.0 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5]));
}

namespace {

// Newton on q - E l - y(p0 + l) = 0 for the plastic multiplier l of a trial value
// q past the yield Y = y(p0), E the elastic stiffness that the flow relaxes (3 G
// for a solid, k for a spring): l, and at p = p0 + l the yield Y and the slope H.
// False when it does not converge in max_rounds or meets a rigid curve.
bool plastic_multiplier(const hardening_curve& curve, double q, double E, double p0, double& p, double& Y, double& H,
                        double& l) noexcept
{
    H = curve.slope_at(p0);
    bool converged = false;
    for (unsigned round = 0; round < max_rounds && !converged; ++round) {
        if (H == infinite_slope) return false;
        const double dl = ((q - Y) - E * l) / (H + E);
        l += dl;
        p = p0 + l;
        H = curve.slope_at(p);
        Y = curve.yield(p);
        converged = std::abs(dl) <= tolerance * std::abs(l);
    }
    return converged && H != infinite_slope;
}

} // namespace

bool solid_return_mapping(double G, const hardening_curve& curve, voigt6& stress, double& p, constitutive6& D) noexcept
{
    const double q = von_Mises(stress), p0 = p;
    double Y = curve.yield(p0);
    // A point read again on its surface with no strain increment since its
    // commit (the first iteration of a step) counts as elastic whichever side
    // rounding puts it: the branch an unloading needs, which a further loading
    // leaves in the next iteration, and the same branch at every such point, so
    // that the iterations do not cycle between branches picked by rounding.
    if (q <= Y * (1.0 + on_surface)) return true;
    const double g3 = 3.0 * G;
    double l = 0.0, H = 0.0;
    if (!plastic_multiplier(curve, q, g3, p0, p, Y, H, l)) return false;
    // The deviator shrinks by r = Y / q along its own direction.
    const double r = Y / q, b = r - 1.0;
    const double mean = (stress[0] + stress[1] + stress[2]) / 3.0;
    voigt6 s = stress;
    for (unsigned i = 0; i < 3; ++i) s[i] -= mean;
    for (unsigned i = 0; i < 6; ++i) {
        stress[i] += b * s[i];
        s[i] *= r;
    }
    // D - 2 G (1 - r) times the deviatoric projector, then the term along the
    // returned deviator that makes the tangent consistent with the return.
    for (unsigned i = 0; i < 3; ++i) {
        D(i, i) += 4.0 / 3.0 * b * G;
        D(i + 3, i + 3) += b * G;
        for (unsigned j = 0; j < i; ++j) D(i, j) -= 2.0 / 3.0 * b * G;
    }
    const double c = (g3 / Y) * (g3 / Y) * ((l * H) / Y - 1.0) / (H + g3) * r;
    if (c != 0.0)
        for (unsigned i = 0; i < 6; ++i)
            for (unsigned j = 0; j <= i; ++j) D(i, j) += c * s[i] * s[j];
    return true;
}

bool scalar_return_mapping(const hardening_curve& curve, double& f, double& p, double& k) noexcept
{
    const double q = std::abs(f), p0 = p;
    double Y = curve.yield(p0);
    if (q <= Y) return true;
    double l = 0.0, H = 0.0;
    if (!plastic_multiplier(curve, q, k, p0, p, Y, H, l)) return false;
    f = f > 0.0 ? Y : -Y;
    k = k * H / (k + H);
    return true;
}

} // namespace kelt::core
