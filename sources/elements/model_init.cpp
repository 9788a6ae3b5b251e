// The selection of a mesh model's instance: the checks of the type, the physics and
// the mesh's size, then the first family that owns the pair.
#include "kelt/elements/model_init.h"

#include <initializer_list>

#include "kelt/core/element_catalogue.h"

namespace kelt::core {

namespace {

// 1, 2 or 3 for a type that may carry a model, 0 for none (no reference cell, or
// a value outside the enumeration).
unsigned model_dim(element_type type) noexcept
{
    if (unsigned(type) >= nbr_element_types) return 0;
    const unsigned d = element_dim(type);
    return d >= 1 && d <= 3 ? d : 0;
}

error_type check(const physics_base* physics, bool needs_physics, const dense2D<unsigned>& mesh,
                 element_type type) noexcept
{
    if (model_dim(type) == 0) return element_type_error;
    if (needs_physics && !physics) return invalid_data_error;
    if (mesh.cols() != 0 && mesh.rows() != nbr_nodes(type)) return connectivity_size_error;
    return no_error;
}

} // namespace

namespace {

using family_maker = error_type (*)(context_type*, physics_base&, const dense2D<unsigned>&, element_type,
                                    Ptr<numerical_model_base>&);

// After the shared checks, the first family that owns the physics and the type
// makes the model: each returns element_type_error for a pair that is not its
// own, and the next is asked.
error_type make_first(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                      element_type type, std::initializer_list<family_maker> families,
                      Ptr<numerical_model_base>& out)
{
    if (auto e = check(physics, true, mesh, type); e != no_error) return e;
    for (family_maker make : families)
        if (auto e = make(context, *physics, mesh, type, out); e != element_type_error) return e;
    return element_type_error;
}

} // namespace

error_type make_stiff_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    return make_first(context, physics, mesh, type,
                      {make_solid_stiff, make_solid_projected, make_line_stiff, make_distributed_spring_2d, make_plate_stiff,
                       make_shell_stiff, make_plane_stiff},
                      out);
}

error_type make_mass_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                          element_type type, Ptr<numerical_model_base>& out)
{
    return make_first(context, physics, mesh, type, {make_solid_mass, make_line_mass, make_shell_mass, make_plane_mass},
                      out);
}

error_type make_thermal_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                             element_type type, Ptr<numerical_model_base>& out)
{
    return make_first(context, physics, mesh, type, {make_conduction_3d, make_conduction_1d, make_conduction_2d},
                      out);
}

error_type make_load_only_mesh(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                               Ptr<numerical_model_base>& out)
{
    if (auto e = check(nullptr, false, mesh, type); e != no_error) return e;
    return make_load_only(context, mesh, type, out);
}

error_type make_load_only_axi_mesh(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                   Ptr<numerical_model_base>& out)
{
    if (auto e = check(nullptr, false, mesh, type); e != no_error) return e;
    return make_load_only_axi(context, mesh, type, out);
}

} // namespace kelt::core
