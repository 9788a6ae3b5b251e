// The solid family: the stiffness models of the 8 volumes in small strain and in
// the finite variant, with the rules of each shape. Every instance of the family is
// made here, so that a change to it rebuilds this file alone.
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/solid_server.h"

namespace kelt::core {

namespace {

template <class Physics, class Shape>
using solid_model = numerical_model_stiff_mesh<
    stiffness_server<Physics, Shape, typename volume_rules<Shape>::matrix, regular_formulation<Shape>>,
    external_work_server<Physics, Shape, typename volume_rules<Shape>::load>>;

template <class Physics>
error_type make_by_type(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                        Ptr<numerical_model_base>& out)
{
    return for_volume(type, [&]<class Shape>() {
        return new_mesh_model<solid_model<Physics, Shape>>(context, physics, mesh, Shape::type, out);
    });
}

} // namespace

error_type make_solid_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* small = dynamic_cast<solid_small*>(&physics)) return make_by_type(context, *small, mesh, type, out);
    if (auto* finite = dynamic_cast<solid_finite*>(&physics)) return make_by_type(context, *finite, mesh, type, out);
    return element_type_error;
}

} // namespace kelt::core
