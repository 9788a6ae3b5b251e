// Public handles on the material laws. A law is shared by every model that uses
// it; each element of a model may be given its own parameters.
#pragma once

#include <utility>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"
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

// One value: a density, a conductivity.
class law_scalar : public law_base {
public:
    law_scalar();
    [[nodiscard]] error_type init(double value);
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
