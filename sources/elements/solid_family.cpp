// The solid family: the stiffness models of the 8 volumes in small strain and in
// the finite variant, with the rules of each shape. Every instance of the family is
// made here, so that a change to it rebuilds this file alone.
#include <new>

#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/solid_server.h"

namespace kelt::core {

namespace {

using namespace elfes;

// The rule of the stiffness server and of the external-work server of each shape.
template <class Shape> struct solid_rules;
template <> struct solid_rules<shape_tetra4> {
    using stiffness = local_points_set<Gauss_tetra, 1>;
    using load = local_points_set<Gauss_tetra, 1>;
};
template <> struct solid_rules<shape_tetra10> {
    using stiffness = local_points_set<Gauss_tetra, 5>;
    using load = local_points_set<Gauss_tetra, 4>;
};
template <> struct solid_rules<shape_pyramid5> {
    using stiffness = local_points_set<Gauss_pyramid, 8>;
    using load = stiffness;
};
template <> struct solid_rules<shape_pyramid14> {
    using stiffness = local_points_set<Gauss_pyramid, 27>;
    using load = stiffness;
};
template <> struct solid_rules<shape_wedge6> {
    using stiffness = local_points_set_prod2<Gauss_wedge, 2, 3>;
    using load = stiffness;
};
template <> struct solid_rules<shape_wedge18> {
    using stiffness = local_points_set_prod2<Gauss_wedge, 3, 6>;
    using load = stiffness;
};
template <> struct solid_rules<shape_hexa8> {
    using stiffness = local_points_set_prod3<Gauss_hexa, 2, 2, 2>;
    using load = stiffness;
};
template <> struct solid_rules<shape_hexa27> {
    using stiffness = local_points_set_prod3<Gauss_hexa, 3, 3, 3>;
    using load = stiffness;
};

template <class Physics, class Shape>
using solid_model =
    numerical_model_stiff_mesh<stiffness_server<Physics, Shape, typename solid_rules<Shape>::stiffness,
                                                regular_formulation<Shape>>,
                               external_work_server<Physics, Shape, typename solid_rules<Shape>::load>>;

template <class Physics, class Shape>
error_type make(context_type* context, Physics& physics, const dense2D<unsigned>& mesh,
                Ptr<numerical_model_base>& out)
{
    Ptr<numerical_model_base> m = new (std::nothrow)
        solid_model<Physics, Shape>(context, Ptr<Physics>(&physics), mesh, Shape::type);
    if (!m) return memory_error;
    out = m;
    return no_error;
}

template <class Physics>
error_type make_by_type(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                        Ptr<numerical_model_base>& out)
{
    switch (type) {
    case element_tetra4: return make<Physics, shape_tetra4>(context, physics, mesh, out);
    case element_tetra10: return make<Physics, shape_tetra10>(context, physics, mesh, out);
    case element_pyramid5: return make<Physics, shape_pyramid5>(context, physics, mesh, out);
    case element_pyramid14: return make<Physics, shape_pyramid14>(context, physics, mesh, out);
    case element_wedge6: return make<Physics, shape_wedge6>(context, physics, mesh, out);
    case element_wedge18: return make<Physics, shape_wedge18>(context, physics, mesh, out);
    case element_hexa8: return make<Physics, shape_hexa8>(context, physics, mesh, out);
    case element_hexa27: return make<Physics, shape_hexa27>(context, physics, mesh, out);
    default: return element_type_error;
    }
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
