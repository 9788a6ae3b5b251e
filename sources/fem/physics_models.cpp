#include "kelt/fem/physics_models.h"

#include <cmath>
#include <new>

#include "kelt/elements/physics.h"

namespace kelt::fem {

namespace {

// The physics of type Physics on the law of `law`, when it is a Law.
template <class Physics>
error_type make(base_class& h, const base_class& law)
{
    using Law = typename Physics::law_type;
    auto* l = dynamic_cast<Law*>(static_cast<core::law_base*>(core_of(law)));
    if (!l) return invalid_data_error;
    auto* p = new (std::nothrow) Physics(Ptr<Law>(l));
    if (!p) return memory_error;
    attach(h, p);
    return no_error;
}

// A spring bed on the spring law and a unit direction.
template <class Physics>
error_type make_bed(base_class& h, const base_class& law, const vector_fixed<double, 3>& direction)
{
    auto* l = dynamic_cast<core::law_spring*>(static_cast<core::law_base*>(core_of(law)));
    if (!l) return invalid_data_error;
    const double n = std::sqrt(direction[0] * direction[0] + direction[1] * direction[1] + direction[2] * direction[2]);
    if (!(n > 0.0) || !std::isfinite(n)) return invalid_data_error;
    const double d[3] = {direction[0] / n, direction[1] / n, direction[2] / n};
    auto* p = new (std::nothrow) Physics(Ptr<core::law_spring>(l), d);
    if (!p) return memory_error;
    attach(h, p);
    return no_error;
}

// The solid law that `law` is or that it views.
Ptr<core::law_solid_stiff> solid_of(const base_class& law)
{
    auto* l = static_cast<core::law_base*>(core_of(law));
    if (auto* view = dynamic_cast<core::law_solid_stiff_2d*>(l)) return view->solid;
    return Ptr<core::law_solid_stiff>(dynamic_cast<core::law_solid_stiff*>(l));
}

// A physics in a plane on a view of the solid law of `law`, along its own axes.
template <class Physics>
error_type make_2d(base_class& h, const base_class& law)
{
    Ptr<core::law_solid_stiff> solid = solid_of(law);
    if (!solid) return invalid_data_error;
    Ptr<core::law_solid_stiff_2d> view = new (std::nothrow) core::law_solid_stiff_2d(solid, Physics::axes);
    if (!view) return memory_error;
    auto* p = new (std::nothrow) Physics(view);
    if (!p) return memory_error;
    attach(h, p);
    return no_error;
}

// A plate on `law` with its normal along `axis`.
template <class Physics>
error_type make_plate(base_class& h, const base_class& law, unsigned axis)
{
    using Law = typename Physics::law_type;
    if (axis > 2) return invalid_data_error;
    auto* l = dynamic_cast<Law*>(static_cast<core::law_base*>(core_of(law)));
    if (!l) return invalid_data_error;
    auto* p = new (std::nothrow) Physics(Ptr<Law>(l), axis);
    if (!p) return memory_error;
    attach(h, p);
    return no_error;
}

template <class Transformation>
error_type make_plane_strain(base_class& h, const base_class& law, unsigned plane_axis)
{
    switch (plane_axis) {
    case 0: return make_2d<core::mechanical_plane_strain<Transformation, 0>>(h, law);
    case 1: return make_2d<core::mechanical_plane_strain<Transformation, 1>>(h, law);
    case 2: return make_2d<core::mechanical_plane_strain<Transformation, 2>>(h, law);
    default: return invalid_data_error;
    }
}

} // namespace

unsigned physics_model_base::physics_code() const
{
    const auto* p = core<core::physics_base>();
    return p ? p->physics_code() : 0;
}

unsigned physics_model_base::physics_variant_code() const
{
    const auto* p = core<core::physics_base>();
    return p ? p->physics_variant_code() : 0;
}

error_type model_solid_lin::init(const law_base& law) { return make<core::solid_small>(*this, law); }

error_type model_solid_gnl::init(const law_base& law) { return make<core::solid_finite>(*this, law); }

error_type model_solid_projected_lin::init(const law_base& law)
{
    return make<core::solid_projected_small>(*this, law);
}

error_type model_solid_mass::init(const law_scalar& density) { return make<core::solid_mass>(*this, density); }

error_type model_heat_conduction_3d::init(const law_scalar& conductivity)
{
    return make<core::conduction_3d>(*this, conductivity);
}

error_type model_rod_lin::init(const law_spring& law) { return make<core::rod_small>(*this, law); }

error_type model_rod_gnl::init(const law_spring& law) { return make<core::rod_finite>(*this, law); }

error_type model_line_mass::init(const law_scalar& mass_per_length)
{
    return make<core::line_mass>(*this, mass_per_length);
}

error_type model_beam_lin::init(const law_base& law) { return make<core::beam_small>(*this, law); }

error_type model_beam_gnl::init(const law_base& law) { return make<core::beam_finite>(*this, law); }

error_type model_beam_mass::init(const law_beam_mass& law) { return make<core::beam_mass>(*this, law); }

error_type model_distributed_spring_1d::init(const law_spring& law, const vector_fixed<double, 3>& direction)
{
    return make_bed<core::distributed_spring_1d>(*this, law, direction);
}

error_type model_distributed_spring_2d::init(const law_spring& law, const vector_fixed<double, 3>& direction)
{
    return make_bed<core::distributed_spring_2d>(*this, law, direction);
}

error_type model_heat_conduction_1d::init(const law_scalar& conductivity)
{
    return make<core::conduction_1d>(*this, conductivity);
}
error_type model_plate_lin::init(const law_base& law, unsigned axis)
{
    return make_plate<core::plate_small>(*this, law, axis);
}

error_type model_plate_gnl::init(const law_base& law, unsigned axis)
{
    return make_plate<core::plate_finite>(*this, law, axis);
}

error_type model_shell_lin::init(const law_base& law) { return make<core::shell_small>(*this, law); }

error_type model_shell_gnl::init(const law_base& law) { return make<core::shell_finite>(*this, law); }

error_type model_shell_mass::init(const law_shell_mass& law) { return make<core::shell_mass>(*this, law); }


error_type model_membrane_lin::init(const law_base& law) { return make<core::membrane_small>(*this, law); }

error_type model_membrane_gnl::init(const law_base& law) { return make<core::membrane_finite>(*this, law); }

error_type model_surf_mass::init(const law_scalar& mass_per_area)
{
    return make<core::membrane_mass>(*this, mass_per_area);
}

error_type model_plane_strain_lin::init(const law_base& law, unsigned plane_axis)
{
    return make_plane_strain<core::small_transformation_tag>(*this, law, plane_axis);
}

error_type model_plane_strain_gnl::init(const law_base& law, unsigned plane_axis)
{
    return make_plane_strain<core::finite_transformation_tag>(*this, law, plane_axis);
}

error_type model_axi3d_lin::init(const law_base& law) { return make_2d<core::axi3d_small>(*this, law); }

error_type model_axi3d_gnl::init(const law_base& law) { return make_2d<core::axi3d_finite>(*this, law); }

error_type model_axi3d_mass::init(const law_scalar& density) { return make<core::axi3d_mass>(*this, density); }

error_type model_axi_torsion_lin::init(const law_base& law)
{
    return make_2d<core::mechanical_displacement_axi_torsion>(*this, law);
}

error_type model_heat_conduction_2d::init(const law_scalar& conductivity)
{
    return make<core::conduction_2d>(*this, conductivity);
}

} // namespace kelt::fem
