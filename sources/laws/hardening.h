// Isotropic hardening shared by the elastoplastic laws of solids, rods and
// springs: the yield curve y(p) of the equivalent plastic strain p with its slope
// H(p), and the scalar return mappings (von Mises for solids, the force itself in
// one dimension), each a Newton iteration of at most 17 rounds.
#pragma once

#include <limits>

#include "kelt/core/bases_mgr.h"
#include "kelt/laws/law_solid.h"

namespace kelt::core {

// The slope of a curve that cannot be followed: a point that meets it fails.
inline constexpr double infinite_slope = std::numeric_limits<double>::max();

struct hardening_curve {
    enum form_type { linear, power, table };
    form_type form = linear;
    // linear: y = y0 + H p.  power: y = y0 + k p^m, and above p = 1e-6 H = k m
    // p^(m - 1), below it the constant `small_slope`.  table: n points (p, y) with
    // the slope of the segment that starts at each.
    double y0 = 0.0;
    double H = infinite_slope;
    double k = 0.0, m = 1.0, small_slope = infinite_slope;
    const double* p = nullptr;
    const double* y = nullptr;
    const double* slope = nullptr;
    unsigned n = 0;

    double yield(double p) const noexcept;
    double slope_at(double p) const noexcept;

    // H = E Et / (E - Et) from the tangent modulus Et; infinite for Et = E.
    static hardening_curve bilinear(double E, double Et, double yield_stress) noexcept;
    // y = s0 + k p^(1/n) with k = s0 (E / (s0 a))^(1/n). Parameters outside E, a,
    // s0 > 0, n > 1 leave k = 0 and an infinite slope.
    static hardening_curve power_law(double E, double s0, double a, double n) noexcept;
    // y = k p^(1/n), k = s0^(1 - 1/n) (E / a)^(1/n): no offset at p = 0.
    static hardening_curve Ramberg_Osgood(double E, double s0, double a, double n) noexcept;
};

// The piecewise curve of n slopes a (a[0] the elastic one) and n strains b: the
// yield point is (b0, a0 b0), and segment i adds (b_i - b_(i-1)) a_i of stress
// and (b_i - b_(i-1)) (a0 - a_i) / a0 of plastic strain. `p`, `y`, `slope` receive
// n values each: the points and the slope of the segment that starts at each;
// the slope after the last point is 0, a vertical segment infinite.
void compile_table(const double* a, const double* b, unsigned n, double* p, double* y, double* slope) noexcept;
// Refused lists: empty or of two sizes, a first slope or strain that is not
// positive, strains that decrease.
bool valid_table(const double* a, const double* b, unsigned n, unsigned nb) noexcept;

// The von Mises stress of a stress vector (xx, yy, zz, xy, xz, yz).
double von_Mises(const voigt6& s) noexcept;

// Radial return from the trial `stress` with the committed plastic strain `p`:
// on success `stress`, `p` and the elastic `D` (shear modulus G) become the
// returned stress, the new plastic strain and the consistent tangent. False when
// the iteration fails (p then holds the last iterate, stress and D stay).
bool solid_return_mapping(double G, const hardening_curve& curve, voigt6& stress, double& p, constitutive6& D) noexcept;

// The same in one dimension on the trial force f with the elastic stiffness k:
// on success f is the curve's value with the trial's sign and k the tangent.
bool scalar_return_mapping(const hardening_curve& curve, double& f, double& p, double& k) noexcept;

} // namespace kelt::core
