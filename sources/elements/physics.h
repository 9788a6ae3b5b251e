// The physics objects of the mesh models: which law a family uses, in which
// kinematic variant, and the two codes by which models and solvers know it.
#pragma once

#include <type_traits>

#include "kelt/core/ref_counted.h"
#include "kelt/elements/element_loads.h"
#include "kelt/laws/law_base.h"
#include "kelt/laws/law_beam.h"
#include "kelt/laws/law_membrane.h"
#include "kelt/laws/law_scalar.h"
#include "kelt/laws/law_shell.h"
#include "kelt/laws/law_solid.h"
#include "kelt/laws/law_spring.h"

namespace kelt::core {

struct small_strain_tag {};
struct small_transformation_tag {};
struct finite_transformation_tag {};

// First codes of the families.
inline constexpr unsigned physics_load_only_code = 1000;
inline constexpr unsigned physics_solid_code = 4000;
inline constexpr unsigned physics_plate_code = 6000;
inline constexpr unsigned physics_shell_code = 7000;
inline constexpr unsigned physics_heat_conduction_3d_code = 19000;
inline constexpr unsigned physics_rod_code = 2000;
inline constexpr unsigned physics_beam_code = 5000;
inline constexpr unsigned physics_distributed_spring_1d_code = 9000;
inline constexpr unsigned physics_distributed_spring_2d_code = 10000;
inline constexpr unsigned physics_heat_conduction_1d_code = 17000;
inline constexpr unsigned physics_membrane_code = 3000;
inline constexpr unsigned physics_plane_strain_code = 8000;
inline constexpr unsigned physics_axi3d_code = 12000;
inline constexpr unsigned physics_axi_torsion_code = 13000;
inline constexpr unsigned physics_heat_conduction_2d_code = 18000;
inline constexpr unsigned physics_solid_projected_code = 4500;
// Added to the first code by the finite variant of the axisymmetric solids.
inline constexpr unsigned axi_finite_variant_offset = 100;
// Added to the first code by the finite variants.
inline constexpr unsigned finite_variant_offset = 300;

template <class Transformation>
inline constexpr bool is_finite = std::is_same_v<Transformation, finite_transformation_tag>;
// The second code of a family: the first, plus the offset in the finite variant.
template <class Transformation>
inline constexpr unsigned variant_offset = is_finite<Transformation> ? finite_variant_offset : 0;

class physics_base : public ref_counted {
public:
    virtual unsigned physics_code() const = 0;
    virtual unsigned physics_variant_code() const = 0;
    // The law, null for a physics without one.
    virtual law_base* get_law() const = 0;
};

// A physics with a law: its codes and the shared handle of the law.
template <class Law, unsigned FirstCode, unsigned SecondCode>
class physics_with_law : public physics_base {
public:
    using law_type = Law;
    static constexpr unsigned first_code = FirstCode;
    static constexpr unsigned second_code = SecondCode;

    explicit physics_with_law(const Ptr<Law>& law_) : law(law_) {}
    unsigned physics_code() const override { return first_code; }
    unsigned physics_variant_code() const override { return second_code; }
    law_base* get_law() const override { return law.get(); }

    Ptr<Law> law;
};

// Solids: three translations per node (places 0, 1, 2).
template <class Strain, class Transformation, class Law>
class mechanical_displacement_3d
    : public physics_with_law<Law, physics_solid_code,
                              physics_solid_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);

    using mechanical_displacement_3d::physics_with_law::physics_with_law;

    unsigned axes[3] = {0, 1, 2};
};

using solid_small = mechanical_displacement_3d<small_strain_tag, small_transformation_tag, law_solid_stiff>;
using solid_finite = mechanical_displacement_3d<small_strain_tag, finite_transformation_tag, law_solid_stiff>;
using solid_mass = mechanical_displacement_3d<small_strain_tag, small_transformation_tag, law_scalar>;

// Solids for materials near incompressibility: three translations per node, each
// element's volumetric strain projected on fewer terms (volume_projection.h).
template <class Strain, class Transformation, class Law>
class mechanical_displacement_3d_projected
    : public physics_with_law<Law, physics_solid_projected_code,
                              physics_solid_projected_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);

    using mechanical_displacement_3d_projected::physics_with_law::physics_with_law;

    unsigned axes[3] = {0, 1, 2};
};

using solid_projected_small =
    mechanical_displacement_3d_projected<small_strain_tag, small_transformation_tag, law_solid_stiff>;

// Mindlin plates: the deflection along `axis` (0, 1 or 2, the plate's normal) and
// the rotations about the two other axes at each node.
template <class Transformation, class Law>
class mechanical_Mindlin_plate
    : public physics_with_law<Law, physics_plate_code,
                              physics_plate_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force) | load_bit(load_pressure);

    mechanical_Mindlin_plate(const Ptr<Law>& law_, unsigned axis_)
        : mechanical_Mindlin_plate::physics_with_law(law_), axis(axis_)
    {
    }

    unsigned axis = 2;
};

// Mindlin shells: three translations and three rotations at each node.
template <class Transformation, class Law>
class mechanical_Mindlin_shell
    : public physics_with_law<Law, physics_shell_code,
                              physics_shell_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force) | load_bit(load_pressure);

    using mechanical_Mindlin_shell::physics_with_law::physics_with_law;
};

using plate_small = mechanical_Mindlin_plate<small_transformation_tag, law_shell_stiff>;
using plate_finite = mechanical_Mindlin_plate<finite_transformation_tag, law_shell_stiff>;
using shell_small = mechanical_Mindlin_shell<small_transformation_tag, law_shell_stiff>;
using shell_finite = mechanical_Mindlin_shell<finite_transformation_tag, law_shell_stiff>;
using shell_mass = mechanical_Mindlin_shell<small_transformation_tag, law_shell_mass>;

// Steady conduction in a volume: one temperature per node (place 6).
template <class Law>
class heat_conduction_3d
    : public physics_with_law<Law, physics_heat_conduction_3d_code, physics_heat_conduction_3d_code> {
public:
    static constexpr unsigned accepted_loads = load_bit(load_heat);

    using heat_conduction_3d::physics_with_law::physics_with_law;
};

using conduction_3d = heat_conduction_3d<law_scalar>;

// Rods: three translations per node, a law_spring along the axis (law_scalar, a
// mass per unit length, for their mass).
template <class Strain, class Transformation, class Law>
class mechanical_displacement_1d
    : public physics_with_law<Law, physics_rod_code, physics_rod_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);

    using mechanical_displacement_1d::physics_with_law::physics_with_law;
};

using rod_small = mechanical_displacement_1d<small_strain_tag, small_transformation_tag, law_spring>;
using rod_finite = mechanical_displacement_1d<small_strain_tag, finite_transformation_tag, law_spring>;
using line_mass = mechanical_displacement_1d<small_strain_tag, small_transformation_tag, law_scalar>;

// Timoshenko beams: three translations and three rotations per node.
template <class Strain, class Transformation, class Law>
class mechanical_Timoshenko_beam
    : public physics_with_law<Law, physics_beam_code, physics_beam_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);

    using mechanical_Timoshenko_beam::physics_with_law::physics_with_law;
};

using beam_small = mechanical_Timoshenko_beam<small_strain_tag, small_transformation_tag, law_beam_stiff>;
using beam_finite = mechanical_Timoshenko_beam<small_strain_tag, finite_transformation_tag, law_beam_stiff>;
using beam_mass = mechanical_Timoshenko_beam<small_strain_tag, small_transformation_tag, law_beam_mass>;

// A spring bed along a line (FirstCode 9000) or over a face (10000): the law's
// stiffness per unit length or area against the translation along `direction`
// (unit, in the global frame).
template <unsigned FirstCode>
class mechanical_distributed_spring : public physics_with_law<law_spring, FirstCode, FirstCode> {
public:
    static constexpr bool finite = false;
    static constexpr unsigned accepted_loads = 0;

    mechanical_distributed_spring(const Ptr<law_spring>& law_, const double (&d)[3])
        : mechanical_distributed_spring::physics_with_law(law_), direction{d[0], d[1], d[2]}
    {
    }

    double direction[3];
};

using distributed_spring_1d = mechanical_distributed_spring<physics_distributed_spring_1d_code>;
using distributed_spring_2d = mechanical_distributed_spring<physics_distributed_spring_2d_code>;

// Steady conduction along a line: the law is the conductivity times the section.
template <class Law>
class heat_conduction_1d
    : public physics_with_law<Law, physics_heat_conduction_1d_code, physics_heat_conduction_1d_code> {
public:
    static constexpr unsigned accepted_loads = load_bit(load_heat);

    using heat_conduction_1d::physics_with_law::physics_with_law;
};

using conduction_1d = heat_conduction_1d<law_scalar>;

// Membranes: plane stress in each face's own frame, three global translations
// per node.
template <class Strain, class Transformation, class Law>
class mechanical_displacement_2d
    : public physics_with_law<Law, physics_membrane_code,
                              physics_membrane_code + variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force) | load_bit(load_pressure);
    static constexpr const auto& places = translation_places;

    using mechanical_displacement_2d::physics_with_law::physics_with_law;
};

using membrane_small = mechanical_displacement_2d<small_strain_tag, small_transformation_tag, law_membrane_stiff>;
using membrane_finite = mechanical_displacement_2d<small_strain_tag, finite_transformation_tag, law_membrane_stiff>;
using membrane_mass = mechanical_displacement_2d<small_strain_tag, small_transformation_tag, law_scalar>;

// The in-plane translations of a plane, by its normal axis: a, b, with a x b the
// normal.
inline constexpr unsigned places_yz[2] = {place_y, place_z};
inline constexpr unsigned places_zx[2] = {place_z, place_x};
inline constexpr unsigned places_xy[2] = {place_x, place_y};
template <unsigned Normal> struct plane_of;
template <> struct plane_of<0> { static constexpr const auto& places = places_yz; };
template <> struct plane_of<1> { static constexpr const auto& places = places_zx; };
template <> struct plane_of<2> { static constexpr const auto& places = places_xy; };

// Plane strain in the plane normal to the axis `Normal`: two translations per node,
// the solid law seen through law_solid_stiff_2d.
template <class Transformation, unsigned Normal>
class mechanical_plane_strain
    : public physics_with_law<law_solid_stiff_2d, physics_plane_strain_code,
                              physics_plane_strain_code +
                                  variant_offset<Transformation>> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);
    static constexpr const auto& places = plane_of<Normal>::places;
    static constexpr unsigned axes[3] = {plane_of<Normal>::places[0], plane_of<Normal>::places[1], Normal};

    using mechanical_plane_strain::physics_with_law::physics_with_law;
};

// Axisymmetric solids: the meridian plane is x (radius), y (axis of revolution);
// the hoop direction stands for z. Two translations per node, x and y.
template <class Transformation, class Law>
class mechanical_displacement_axi3d
    : public physics_with_law<Law, physics_axi3d_code,
                              physics_axi3d_code + (is_finite<Transformation> ? axi_finite_variant_offset : 0)> {
public:
    static constexpr bool finite = is_finite<Transformation>;
    static constexpr unsigned accepted_loads = load_bit(load_force);
    static constexpr const auto& places = places_xy;
    static constexpr unsigned axes[3] = {0, 1, 2};

    using mechanical_displacement_axi3d::physics_with_law::physics_with_law;
};

using axi3d_small = mechanical_displacement_axi3d<small_transformation_tag, law_solid_stiff_2d>;
using axi3d_finite = mechanical_displacement_axi3d<finite_transformation_tag, law_solid_stiff_2d>;
using axi3d_mass = mechanical_displacement_axi3d<small_transformation_tag, law_scalar>;

// Torsion of axisymmetric solids: the hoop displacement, carried by the z
// translation of the nodes of the meridian plane x, y.
inline constexpr unsigned hoop_places[1] = {place_z};
class mechanical_displacement_axi_torsion
    : public physics_with_law<law_solid_stiff_2d, physics_axi_torsion_code, physics_axi_torsion_code> {
public:
    static constexpr bool finite = false;
    static constexpr unsigned accepted_loads = load_bit(load_force);
    static constexpr const auto& places = hoop_places;
    static constexpr unsigned axes[3] = {0, 1, 2};

    using mechanical_displacement_axi_torsion::physics_with_law::physics_with_law;
};

// Steady conduction in faces: one temperature per node, the law's value the
// conductivity times the thickness.
template <class Law>
class heat_conduction_2d
    : public physics_with_law<Law, physics_heat_conduction_2d_code, physics_heat_conduction_2d_code> {
public:
    static constexpr unsigned accepted_loads = load_bit(load_heat);

    using heat_conduction_2d::physics_with_law::physics_with_law;
};

using conduction_2d = heat_conduction_2d<law_scalar>;

// Loads alone: no law, no matrix.
class physics_load_only : public physics_base {
public:
    static constexpr unsigned accepted_loads = load_bit(load_force) | load_bit(load_pressure) | load_bit(load_heat);

    unsigned physics_code() const override { return physics_load_only_code; }
    unsigned physics_variant_code() const override { return physics_load_only_code; }
    law_base* get_law() const override { return nullptr; }
};

} // namespace kelt::core
