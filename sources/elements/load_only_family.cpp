// The load-only family: meshes that carry loads and no matrix, on the 2 lines, the
// 4 faces and the 8 volumes, with the load rule of each shape. Every instance of
// the family is made here.
#include <new>

#include "kelt/elements/element_loads.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"

namespace kelt::core {

namespace {

using namespace elfes;

// The element side of a load-only mesh: its shape and points, nothing to compute.
template <class Shape, class Points>
class load_only_server : public server_base<physics_load_only, Shape, Points> {
public:
    using server_base<physics_load_only, Shape, Points>::server_base;
    static constexpr unsigned places[1] = {0};
    static constexpr unsigned nbr_places = 0;
    static constexpr unsigned first_code = physics_load_only_code;
    static constexpr unsigned second_code = physics_load_only_code;

    static constexpr bool lists_DOFs(pass_kind) noexcept { return false; }
    [[nodiscard]] error_type compute(pass_kind, const unsigned*, element_work_type&) const { return no_error; }
    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }
};

template <class Shape> struct load_rule;
template <> struct load_rule<shape_edge2> { using type = local_points_set<Gauss_edge, 2>; };
template <> struct load_rule<shape_edge3> { using type = local_points_set<Gauss_edge, 3>; };
template <> struct load_rule<shape_faceT3> { using type = local_points_set<Gauss_faceT, 3>; };
template <> struct load_rule<shape_faceT6> { using type = local_points_set<Gauss_faceT, 6>; };
template <> struct load_rule<shape_faceQ4> { using type = local_points_set_prod2<Gauss_faceQ, 2, 2>; };
template <> struct load_rule<shape_faceQ9> { using type = local_points_set_prod2<Gauss_faceQ, 3, 3>; };
template <> struct load_rule<shape_tetra4> { using type = local_points_set<Gauss_tetra, 1>; };
template <> struct load_rule<shape_tetra10> { using type = local_points_set<Gauss_tetra, 4>; };
template <> struct load_rule<shape_pyramid5> { using type = local_points_set<Gauss_pyramid, 1>; };
template <> struct load_rule<shape_pyramid14> { using type = local_points_set<Gauss_pyramid, 8>; };
template <> struct load_rule<shape_wedge6> { using type = local_points_set_prod2<Gauss_wedge, 2, 3>; };
template <> struct load_rule<shape_wedge18> { using type = local_points_set_prod2<Gauss_wedge, 3, 4>; };
template <> struct load_rule<shape_hexa8> { using type = local_points_set_prod3<Gauss_hexa, 2, 2, 2>; };
template <> struct load_rule<shape_hexa27> { using type = local_points_set_prod3<Gauss_hexa, 3, 3, 3>; };

template <class Shape>
error_type make(context_type* context, const dense2D<unsigned>& mesh, Ptr<numerical_model_base>& out)
{
    using rule = typename load_rule<Shape>::type;
    using model = numerical_model_load_only_mesh<load_only_server<Shape, rule>,
                                                 external_work_server<physics_load_only, Shape, rule>>;
    Ptr<physics_load_only> physics = new (std::nothrow) physics_load_only;
    if (!physics) return memory_error;
    Ptr<numerical_model_base> m = new (std::nothrow) model(context, physics, mesh, Shape::type);
    if (!m) return memory_error;
    out = m;
    return no_error;
}

} // namespace

error_type make_load_only(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                          Ptr<numerical_model_base>& out)
{
    switch (type) {
    case element_edge2: return make<shape_edge2>(context, mesh, out);
    case element_edge3: return make<shape_edge3>(context, mesh, out);
    case element_faceT3: return make<shape_faceT3>(context, mesh, out);
    case element_faceT6: return make<shape_faceT6>(context, mesh, out);
    case element_faceQ4: return make<shape_faceQ4>(context, mesh, out);
    case element_faceQ9: return make<shape_faceQ9>(context, mesh, out);
    case element_tetra4: return make<shape_tetra4>(context, mesh, out);
    case element_tetra10: return make<shape_tetra10>(context, mesh, out);
    case element_pyramid5: return make<shape_pyramid5>(context, mesh, out);
    case element_pyramid14: return make<shape_pyramid14>(context, mesh, out);
    case element_wedge6: return make<shape_wedge6>(context, mesh, out);
    case element_wedge18: return make<shape_wedge18>(context, mesh, out);
    case element_hexa8: return make<shape_hexa8>(context, mesh, out);
    case element_hexa27: return make<shape_hexa27>(context, mesh, out);
    default: return element_type_error;
    }
}

} // namespace kelt::core
