// The selection of a mesh model's instance: dimension first, then the checks of the
// physics and of the mesh's size, then the family's own table.
#include "kelt/elements/model_init.h"

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

using volume_maker = error_type (*)(context_type*, physics_base&, const dense2D<unsigned>&, element_type,
                                    Ptr<numerical_model_base>&);

// The volume family of the physics code `code`, made by `make`; the only families
// so far are volumes.
error_type make_volume_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                            element_type type, unsigned code, volume_maker make, Ptr<numerical_model_base>& out)
{
    if (auto e = check(physics, true, mesh, type); e != no_error) return e;
    if (model_dim(type) == 3 && physics->physics_code() == code) return make(context, *physics, mesh, type, out);
    return element_type_error;
}

// The face family of the physics, made by `make`, for the types of dimension 2.
error_type make_face_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                          element_type type, volume_maker make, Ptr<numerical_model_base>& out)
{
    if (auto e = check(physics, true, mesh, type); e != no_error) return e;
    return make(context, *physics, mesh, type, out);
}

} // namespace

error_type make_stiff_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    if (model_dim(type) == 2) return make_face_mesh(context, physics, mesh, type, make_plane_stiff, out);
    return make_volume_mesh(context, physics, mesh, type, physics_solid_code, make_solid_stiff, out);
}

error_type make_mass_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                          element_type type, Ptr<numerical_model_base>& out)
{
    if (model_dim(type) == 2) return make_face_mesh(context, physics, mesh, type, make_plane_mass, out);
    return make_volume_mesh(context, physics, mesh, type, physics_solid_code, make_solid_mass, out);
}

error_type make_thermal_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                             element_type type, Ptr<numerical_model_base>& out)
{
    if (model_dim(type) == 2) return make_face_mesh(context, physics, mesh, type, make_conduction_2d, out);
    return make_volume_mesh(context, physics, mesh, type, physics_heat_conduction_3d_code, make_conduction_3d,
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
