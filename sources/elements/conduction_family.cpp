// The conduction family: steady conduction in the 8 volumes, the conduction rule
// and the load rule of each shape. Every instance of the family is made here.
#include <new>

#include "kelt/elements/conduction_server.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"

namespace kelt::core {

namespace {

using namespace elfes;

template <class Shape> struct conduction_rules;
template <> struct conduction_rules<shape_tetra4> {
    using matrix = local_points_set<Gauss_tetra, 1>;
    using load = local_points_set<Gauss_tetra, 1>;
};
template <> struct conduction_rules<shape_tetra10> {
    using matrix = local_points_set<Gauss_tetra, 5>;
    using load = local_points_set<Gauss_tetra, 4>;
};
template <> struct conduction_rules<shape_pyramid5> {
    using matrix = local_points_set<Gauss_pyramid, 8>;
    using load = matrix;
};
template <> struct conduction_rules<shape_pyramid14> {
    using matrix = local_points_set<Gauss_pyramid, 27>;
    using load = matrix;
};
template <> struct conduction_rules<shape_wedge6> {
    using matrix = local_points_set_prod2<Gauss_wedge, 2, 3>;
    using load = matrix;
};
template <> struct conduction_rules<shape_wedge18> {
    using matrix = local_points_set_prod2<Gauss_wedge, 3, 6>;
    using load = matrix;
};
template <> struct conduction_rules<shape_hexa8> {
    using matrix = local_points_set_prod3<Gauss_hexa, 2, 2, 2>;
    using load = matrix;
};
template <> struct conduction_rules<shape_hexa27> {
    using matrix = local_points_set_prod3<Gauss_hexa, 3, 3, 3>;
    using load = matrix;
};

template <class Shape>
error_type make(context_type* context, conduction_3d& physics, const dense2D<unsigned>& mesh,
                Ptr<numerical_model_base>& out)
{
    using rules = conduction_rules<Shape>;
    using model = numerical_model_thermal_mesh<heat_conduction_server<conduction_3d, Shape, typename rules::matrix>,
                                               external_work_server<conduction_3d, Shape, typename rules::load>>;
    Ptr<numerical_model_base> m = new (std::nothrow) model(context, Ptr<conduction_3d>(&physics), mesh, Shape::type);
    if (!m) return memory_error;
    out = m;
    return no_error;
}

} // namespace

error_type make_conduction_3d(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                              element_type type, Ptr<numerical_model_base>& out)
{
    auto* conduction = dynamic_cast<conduction_3d*>(&physics);
    if (!conduction) return element_type_error;
    switch (type) {
    case element_tetra4: return make<shape_tetra4>(context, *conduction, mesh, out);
    case element_tetra10: return make<shape_tetra10>(context, *conduction, mesh, out);
    case element_pyramid5: return make<shape_pyramid5>(context, *conduction, mesh, out);
    case element_pyramid14: return make<shape_pyramid14>(context, *conduction, mesh, out);
    case element_wedge6: return make<shape_wedge6>(context, *conduction, mesh, out);
    case element_wedge18: return make<shape_wedge18>(context, *conduction, mesh, out);
    case element_hexa8: return make<shape_hexa8>(context, *conduction, mesh, out);
    case element_hexa27: return make<shape_hexa27>(context, *conduction, mesh, out);
    default: return element_type_error;
    }
}

} // namespace kelt::core
