// Public handles on the material laws. A law is shared by every model that uses
// it; each element of a model may be given its own parameters.
#pragma once

#include <utility>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class bases_mgr;

// Parameter vectors are copied in; -1 (error_type(-1)) refuses a vector of the wrong
// size and leaves the law without parameters.
class law_base : public base_class {
public:

    // The parameters as given and completed; empty for an empty handle.
    dense1D<double, 8> get_data() const;
    // Parameters of one element of one model; the law's own values store nothing.
    [[nodiscard]] error_type set_element_by_element(unsigned model, unsigned element, const dense1D<double, 8>& data);
    bool has_element_data(unsigned model, unsigned element) const;
    [[nodiscard]] error_type get_element_data(unsigned model, unsigned element, dense1D<double, 8>& out) const;
    // (lower, upper) stiffness scale of a field: displacement_tag or rotation_tag.
    std::pair<double, double> get_stiffness_range(field_tag field) const;

protected:
    law_base() = default;
};

// E, nu, thermal expansion; optionally then an initial stress xx, yy, zz, xy, xz, yz.
class law_solid_StVenant : public law_base {
public:
    law_solid_StVenant();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// 18 values in the material frame (24 with an initial stress):
//   0 to 5    the diagonal of D: xx, yy, zz, then the shear moduli xy, xz, yz
//   6 to 8    the three principal moduli, which set the stiffness range
//   9 to 11   the normal couplings D(xx, yy), D(xx, zz), D(yy, zz)
//   12 to 17  thermal expansion xx, yy, zz, xy, xz, yz
//   18 to 23  the initial stress
// The material frame is a basis of a bases_mgr, or without one the global frame.
class law_solid_orthotropic : public law_base {
public:
    law_solid_orthotropic();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const bases_mgr& bases, unsigned basis);

protected:
    struct no_object {};
    explicit law_solid_orthotropic(no_object) {}
};

// Column j of D has heights[j] (at most j) entries above its diagonal, given first
// column by column from the top; then the 15 values of law_solid_orthotropic
// without its normal couplings (0 to 8, 12 to 17), then optionally an initial stress.
class law_solid_skyline : public law_solid_orthotropic {
public:
    law_solid_skyline();
    [[nodiscard]] error_type init(const vector_fixed<unsigned, 6>& heights, const dense1D<double, 8>& data);
    [[nodiscard]] error_type init(const vector_fixed<unsigned, 6>& heights, const dense1D<double, 8>& data,
                                  const bases_mgr& bases, unsigned basis);
};

// Elastoplastic solids: von Mises plasticity with isotropic hardening, from the
// last committed state of each point. Elastic points keep no state.
class law_solid_ep_iso_hardening : public law_base {
protected:
    law_solid_ep_iso_hardening() = default;
};

// E, nu, thermal expansion, tangent modulus Et, yield stress; optionally then an
// initial stress (5 or 11 values). Et = 0 is perfectly plastic.
class law_solid_ep_perfect : public law_solid_ep_iso_hardening {
public:
    law_solid_ep_perfect();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// E, nu, thermal expansion, yield stress s0, coefficient a, exponent n;
// optionally then an initial stress (6 or 12 values). The yield stress grows as
// s0 + k p^(1/n), k = s0 (E / (s0 a))^(1/n), with the plastic strain p.
class law_solid_ep_power : public law_solid_ep_iso_hardening {
public:
    law_solid_ep_power();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);

protected:
    struct no_object {};
    explicit law_solid_ep_power(no_object) {}
};

// The values of law_solid_ep_power for the curve eps = sigma / E + a (s0 / E)
// (sigma / s0)^n.
class law_solid_ep_RambergOsgood : public law_solid_ep_power {
public:
    law_solid_ep_RambergOsgood();
};

// E, nu, thermal expansion, optionally an initial stress (3 or 9 values), and the
// curve: the slopes a (a[0] the elastic one, E) and the strains b at which they
// end, from the yield point (b[0], a[0] b[0]); past the last strain the stress
// stays. Lists of one size, a[0] and b[0] positive, b not decreasing.
class law_solid_ep_piecewise_linear : public law_solid_ep_iso_hardening {
public:
    law_solid_ep_piecewise_linear();
    [[nodiscard]] error_type init(const dense1D<double, 8>& base, const dense1D<double, 8>& a,
                                  const dense1D<double, 8>& b);
    // a in column 0, b in column 1.
    [[nodiscard]] error_type init(const dense1D<double, 8>& base, const dense2D<double>& table);
};

// One value: a density, a conductivity.
class law_scalar : public law_base {
public:
    law_scalar();
    [[nodiscard]] error_type init(double value);
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);

protected:
    struct no_object {};
    explicit law_scalar(no_object) {}
};

// A stiffness table for the discrete elements: breakpoints in column 0, stiffness
// in column 1; the force at s is the integral of the stiffness from 0 to
// s + shift.
class law_scalar_nl : public law_scalar {
public:
    law_scalar_nl();
    [[nodiscard]] error_type init(const dense2D<double>& table, double shift);
};

// One-dimensional elastoplastic laws of the discrete elements. A member whose
// strain or force reaches a limit in magnitude carries nothing (both limits are
// the largest double at first).
class law_scalar_ep_iso_hardening : public law_scalar {
public:
    void set_limit_states(double limit_strain, double limit_stress);

protected:
    law_scalar_ep_iso_hardening() : law_scalar(no_object{}) {}
};

// E, Et, yield stress.
class law_scalar_ep_perfect : public law_scalar_ep_iso_hardening {
public:
    law_scalar_ep_perfect();
};

// E, yield stress s0, coefficient a, exponent n, as law_solid_ep_power.
class law_scalar_ep_power : public law_scalar_ep_iso_hardening {
public:
    law_scalar_ep_power();

protected:
    struct no_object {};
    explicit law_scalar_ep_power(no_object) {}
};

class law_scalar_ep_RambergOsgood : public law_scalar_ep_power {
public:
    law_scalar_ep_RambergOsgood();
};

// The lists a and b of law_solid_ep_piecewise_linear, a[0] the elastic stiffness.
class law_scalar_ep_piecewise_linear : public law_scalar_ep_iso_hardening {
public:
    law_scalar_ep_piecewise_linear();
    [[nodiscard]] error_type init(const dense1D<double, 8>& a, const dense1D<double, 8>& b);
    [[nodiscard]] error_type init(const dense2D<double>& table);
};

// A spring of rods and spring beds: k, a value kept for the host, thermal
// expansion, then optionally an initial strain and a force floor (3 or 5 values).
class law_spring : public law_base {
public:
    law_spring();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);

protected:
    struct no_object {};
    explicit law_spring(no_object) {}
};

// A spring whose stiffness is a table: breakpoints in column 0, stiffness in
// column 1 (the force is its integral from 0); then the value kept for the host,
// thermal expansion, initial strain and force floor.
class law_spring_nl : public law_spring {
public:
    law_spring_nl();
    [[nodiscard]] error_type init(const dense2D<double>& table, double p1, double p2, double p3, double p4);
};

// Springs of rods and spring beds with hardening: k (the elastic stiffness), the
// value kept for the host, thermal expansion, the curve, then optionally the
// initial strain and the force floor. The limits as law_scalar_ep_iso_hardening.
class law_spring_ep_iso_hardening : public law_spring {
public:
    void set_limit_states(double limit_strain, double limit_stress);

protected:
    law_spring_ep_iso_hardening() : law_spring(no_object{}) {}
};

// k, value, a, Et, yield force; optionally initial strain, force floor (5 or 7).
class law_spring_ep_perfect : public law_spring_ep_iso_hardening {
public:
    law_spring_ep_perfect();
};

// k, value, a, s0, coefficient, exponent; optionally initial strain, force floor
// (6 or 8).
class law_spring_ep_power : public law_spring_ep_iso_hardening {
public:
    law_spring_ep_power();

protected:
    struct no_object {};
    explicit law_spring_ep_power(no_object) {}
};

class law_spring_ep_RambergOsgood : public law_spring_ep_power {
public:
    law_spring_ep_RambergOsgood();
};

// The 3 or 5 values of law_spring, and the lists a and b of the curve.
class law_spring_ep_piecewise_linear : public law_spring_ep_iso_hardening {
public:
    law_spring_ep_piecewise_linear();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const dense1D<double, 8>& a,
                                  const dense1D<double, 8>& b);
    [[nodiscard]] error_type init(const dense1D<double, 8>& data, const dense2D<double>& table);
};

// A beam section (9, 15, 22, 24 or 31 values):
//   0 to 2 orientation of the section's y axis, 3 E, 4 G (nu in the 9-value
//   form), 5 thermal expansion, 6 A, 7 Ay, 8 Az, 9 J, 10 Iy, 11 Iz, 12 Iyz,
//   13 yc, 14 zc; 22 values: 15 to 20 initial section forces, 21 a stress scale;
//   31 values: 15 to 23 the second end's 6 to 14 (tapered), 24 to 30 as 15 to 21.
// The 9-value form is one section value in entry 6: Ay = Az = Iy = Iz = A, J = 2 A.
class law_beam_StVenant : public law_base {
public:
    law_beam_StVenant();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// The mass of a beam section (6, 11 or 18 values):
//   0 to 2 orientation, 3 density, 4 A, 5 polar inertia; 11 values: 6 Iy, 7 Iz,
//   8 Iyz, 9 yc, 10 zc (the centroid from the reference point); 18 values: 11 to
//   17 the second end's 4 to 10.
class law_beam_mass : public law_base {
public:
    law_beam_mass();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// Shells and plates, isotropic: E, nu, thermal expansion, thickness h; then the
// transverse shear modulus with its factor (5/6 G when not given) and either the
// offset z of the mid-surface (6 values) or, in full (15 values), 5 the inertia and
// 6 the coupling h z.
class law_shell_StVenant : public law_base {
public:
    law_shell_StVenant();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// Shells from an orthotropic plane-stress matrix in the element frame (15 values,
// 16 with an offset z, 25 in full):
//   0 to 3   C(xx, xx), C(yy, yy), C(xx, yy), C(xy, xy)
//   4, 5     transverse shear moduli xz, yz with their factor
//   6, 7     the principal moduli, which set the stiffness range
//   8 to 10  thermal expansion xx, yy, xy
//   14       thickness, then 15 the offset z (16 values) or the inertia, 16 h z
class law_shell_orthotropic : public law_base {
public:
    law_shell_orthotropic();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// The section matrix of order 8 given as it is (membrane xx, yy, xy, bending xx,
// yy, xy, shear xz, yz): column j has heights[j] (at most j) entries above its
// diagonal, given first column by column from the top, then the 8 diagonal values.
class law_shell_skyline : public law_base {
public:
    law_shell_skyline();
    [[nodiscard]] error_type init(const vector_fixed<unsigned, 8>& heights, const dense1D<double, 8>& data);
};

// Density, thickness, and optionally the offset z of the mid-surface.
class law_shell_mass : public law_base {
public:
    law_shell_mass();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// Membranes, plane stress: E, nu, thermal expansion, thickness (1 when left out).
// Resultants are forces per unit length.
class law_membrane_StVenant : public law_base {
public:
    law_membrane_StVenant();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// Membranes, plane stress in material axes at an angle to each face's first axis;
// 13 values (16 with an initial stress), completed to 17:
//   0 to 2    the diagonal of C: 11, 22, then the shear modulus 12
//   3, 4      the two principal moduli, which set the stiffness range
//   5         the coupling C(11, 22)
//   6         the angle of the material axes from the face's first axis, radians
//   7 to 9    thermal expansion 11, 22, 12
//   10, 11    the couplings C(11, 12), C(22, 12)
//   12        the thickness
//   13 to 15  the initial stress 11, 22, 12
class law_membrane_orthotropic : public law_base {
public:
    law_membrane_orthotropic();
    [[nodiscard]] error_type init(const dense1D<double, 8>& data);
};

// A solid law (law_solid_StVenant, law_solid_orthotropic, law_solid_skyline) seen
// by the plane-strain and axisymmetric models, which also take the solid law
// itself. The solid law works in the global frame, without its material basis.
class law_solid_stiff_2d : public law_base {
public:
    law_solid_stiff_2d() = default;
    // invalid_data_error when `solid` is no solid law with parameters.
    [[nodiscard]] error_type init(const law_base& solid);
};

} // namespace kelt::fem
