// Public handles on the physics of the mesh models: which law a family uses and in
// which kinematic variant. `init(law)` builds the physics on a law of the right
// kind; the handle stays empty until then.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/laws.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class physics_model_base : public base_class {
public:
    physics_model_base() = default;

    // The family's code and its kinematic variant; 0 for an empty handle.
    unsigned physics_code() const;
    unsigned physics_variant_code() const;
};

// Solids in small strain, on law_solid_StVenant, law_solid_orthotropic or
// law_solid_skyline; `invalid_data_error` for another law or an empty one.
class model_solid_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// Solids in the finite variant: Green-Lagrange strain, total Lagrangian form.
class model_solid_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// Solids of a material near incompressibility (Poisson's ratio towards 1/2), in
// small strain, on the laws of model_solid_lin: each element's volumetric strain is
// projected on the constants (hexa8, wedge6, pyramid5, tetra10) or on 1, x, y, z
// (hexa27, wedge18, pyramid14), which keeps them from locking where the plain
// solids do; every rule has positive weights. tetra4 is not served: its strain is
// constant already, so no projection inside an element can free a mesh of them.
class model_solid_projected_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// The mass of solids, on a law_scalar density.
class model_solid_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& density);
};

// Steady conduction in volumes, on a law_scalar conductivity.
class model_heat_conduction_3d : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& conductivity);
};

// Rods along their axis on a law_spring (its k is the axial stiffness E A); the
// finite variant follows the current direction.
class model_rod_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_spring& law);
};
class model_rod_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_spring& law);
};

// The mass of rods, on a law_scalar mass per unit length.
class model_line_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& mass_per_length);
};

// Timoshenko beams on law_beam_StVenant, in small strain and in the finite variant.
class model_beam_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};
class model_beam_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// Membranes (plane stress in each face's frame, in space) in small strain and in
// the finite variant, on law_membrane_StVenant or law_membrane_orthotropic.
class model_membrane_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};
class model_membrane_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// Mindlin plates in small strain on a shell law: the deflection along `axis` (0, 1
// or 2, the plate's normal) and the rotations about the two other axes;
// `invalid_data_error` for an axis above 2.
class model_plate_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law, unsigned axis);
};

// Plates with the membrane forces' geometric terms (Green-Lagrange membrane strain).
class model_plate_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law, unsigned axis);
};

// Mindlin shells, six DOFs a node, on law_shell_StVenant, law_shell_orthotropic or
// law_shell_skyline.
class model_shell_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// The mass of faces in space, on a law_scalar mass per unit area (rho h).
class model_surf_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& mass_per_area);
};

// Plane strain in the plane normal to `plane_axis` (2: the x-y plane, 0: y-z, 1:
// z-x), per unit depth, on a solid law or its law_solid_stiff_2d view; faces turn
// counterclockwise about the plane's normal. A plane axis above 2 gives
// invalid_data_error.
class model_plane_strain_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law, unsigned plane_axis);
};
class model_plane_strain_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law, unsigned plane_axis);
};

// Axisymmetric solids on the meridian plane: x the radius (no node below 0), y the
// axis, z the hoop direction of the solid law; faces turn counterclockwise about z.
// Every quantity is of the whole ring: matrices and loads carry 2 pi r.
class model_axi3d_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};
class model_axi3d_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};
// The ring's mass, on a law_scalar density.
class model_axi3d_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& density);
};
// Torsion of axisymmetric solids: the hoop displacement is the z translation.
class model_axi_torsion_lin : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// The consistent mass of beams, with rotary inertia, on law_beam_mass.
class model_beam_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_beam_mass& law);
};

// Spring beds on lines (1d) and faces (2d): the law's k per unit length or area
// against the translation along `direction`; invalid_data_error for a zero or
// non-finite direction.
class model_distributed_spring_1d : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_spring& law, const vector_fixed<double, 3>& direction);
};
class model_distributed_spring_2d : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_spring& law, const vector_fixed<double, 3>& direction);
};

// Steady conduction along lines, on a law_scalar conductivity times section.
class model_heat_conduction_1d : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& conductivity);
};

// Steady conduction in faces, on a law_scalar conductivity times thickness.
class model_heat_conduction_2d : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_scalar& conductivity);
};

class model_shell_gnl : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_base& law);
};

// The mass of shells, on law_shell_mass.
class model_shell_mass : public physics_model_base {
public:
    [[nodiscard]] error_type init(const law_shell_mass& law);
};

} // namespace kelt::fem
