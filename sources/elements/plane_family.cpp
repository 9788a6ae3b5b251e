// The face families: membranes, plane strain, axisymmetric solids and torsion in
// small and finite form, their masses, conduction in faces, and the load-only
// meshes of the axisymmetric solids, with the rules of each shape. Every instance
// of these families is made here.
#include <new>

#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/plane_server.h"

namespace kelt::core {

namespace {

using namespace elfes;

// `flat`: the rule of the membrane and plane-strain matrices and loads, and of the
// conduction matrix; `full`: the rule of the axisymmetric rows, of the masses and
// of the loads of conduction and of the load-only meshes.
template <class Shape> struct face_rules;
template <> struct face_rules<shape_faceT3> {
    using flat = local_points_set<Gauss_faceT, 1>;
    using full = local_points_set<Gauss_faceT, 3>;
};
template <> struct face_rules<shape_faceT6> {
    using flat = local_points_set<Gauss_faceT, 6>;
    using full = flat;
};
template <> struct face_rules<shape_faceQ4> {
    using flat = local_points_set_prod2<Gauss_faceQ, 2, 2>;
    using full = flat;
};
template <> struct face_rules<shape_faceQ9> {
    using flat = local_points_set_prod2<Gauss_faceQ, 3, 3>;
    using full = flat;
};
template <> struct face_rules<shape_edge2> { using full = local_points_set<Gauss_edge, 2>; };
template <> struct face_rules<shape_edge3> { using full = local_points_set<Gauss_edge, 3>; };

// The mesh model of `Model` when `physics` is a Physics, else element_type_error.
template <template <class, class> class Model, class Physics>
error_type try_physics(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                       element_type type, Ptr<numerical_model_base>& out)
{
    auto* p = dynamic_cast<Physics*>(&physics);
    if (!p) return element_type_error;
    return for_face(type, [&]<class Shape>() {
        return new_mesh_model<Model<Physics, Shape>>(context, *p, mesh, Shape::type, out);
    });
}

template <class Physics, class Shape>
using membrane_model =
    numerical_model_stiff_mesh<membrane_server<Physics, Shape, typename face_rules<Shape>::flat>,
                               external_work_server<Physics, Shape, typename face_rules<Shape>::flat>>;

template <class Physics, class Shape>
using plane_strain_model = numerical_model_stiff_mesh<
    plane_server<Physics, Shape, typename face_rules<Shape>::flat, regular_formulation<Shape>>,
    plane_external_work<Physics, Shape, typename face_rules<Shape>::flat, load_identity_factor>>;

template <class Physics, class Shape>
using axi3d_model = numerical_model_stiff_mesh<
    plane_server<Physics, Shape, typename face_rules<Shape>::full, axi_formulation<Shape>>,
    plane_external_work<Physics, Shape, typename face_rules<Shape>::full, load_axi3d_factor>>;

template <class Physics, class Shape>
using torsion_model = numerical_model_stiff_mesh<
    torsion_server<Physics, Shape, typename face_rules<Shape>::full, axi_formulation<Shape>>,
    plane_external_work<Physics, Shape, typename face_rules<Shape>::full, load_axi3d_factor>>;

template <class Physics, class Shape>
using membrane_mass_model = numerical_model_mass_mesh<
    face_mass_server<Physics, Shape, typename face_rules<Shape>::full, regular_formulation<Shape>>,
    no_external_work>;

template <class Physics, class Shape>
using axi3d_mass_model = numerical_model_mass_mesh<
    face_mass_server<Physics, Shape, typename face_rules<Shape>::full, axi_formulation<Shape>>, no_external_work>;

template <class Physics, class Shape>
using conduction_2d_model =
    numerical_model_thermal_mesh<heat_conduction_2d_server<Physics, Shape, typename face_rules<Shape>::flat>,
                                 external_work_server<Physics, Shape, typename face_rules<Shape>::full>>;

// The element side of a load-only mesh: its shape and points, nothing to compute.
template <class Shape, class Points>
class load_only_axi_server : public server_base<physics_load_only, Shape, Points> {
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

// Forces and edge pressures on the meridian plane, times 2 pi r.
template <class Shape, class Points>
class load_only_axi_work : public plane_load_server<Shape, Points, places_xy, load_axi3d_factor> {
public:
    [[nodiscard]] error_type compute(const elementary_load& load, const unsigned* nodes, element_work_type& w) const
    {
        return this->compute_load(load, load_bit(load_force) | load_bit(load_pressure), nodes, w);
    }
};

template <class Shape>
error_type make_axi_loads(context_type* context, const dense2D<unsigned>& mesh, Ptr<numerical_model_base>& out)
{
    using rule = typename face_rules<Shape>::full;
    using model = numerical_model_load_only_mesh<load_only_axi_server<Shape, rule>, load_only_axi_work<Shape, rule>>;
    Ptr<physics_load_only> physics = new (std::nothrow) physics_load_only;
    if (!physics) return memory_error;
    Ptr<numerical_model_base> m = new (std::nothrow) model(context, physics, mesh, Shape::type);
    if (!m) return memory_error;
    out = m;
    return no_error;
}

} // namespace

error_type make_plane_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    using maker = error_type (*)(context_type*, physics_base&, const dense2D<unsigned>&, element_type,
                                 Ptr<numerical_model_base>&);
    static constexpr maker makers[] = {
        try_physics<membrane_model, membrane_small>,
        try_physics<membrane_model, membrane_finite>,
        try_physics<plane_strain_model, mechanical_plane_strain<small_transformation_tag, 0>>,
        try_physics<plane_strain_model, mechanical_plane_strain<small_transformation_tag, 1>>,
        try_physics<plane_strain_model, mechanical_plane_strain<small_transformation_tag, 2>>,
        try_physics<plane_strain_model, mechanical_plane_strain<finite_transformation_tag, 0>>,
        try_physics<plane_strain_model, mechanical_plane_strain<finite_transformation_tag, 1>>,
        try_physics<plane_strain_model, mechanical_plane_strain<finite_transformation_tag, 2>>,
        try_physics<axi3d_model, axi3d_small>,
        try_physics<axi3d_model, axi3d_finite>,
        try_physics<torsion_model, mechanical_displacement_axi_torsion>,
    };
    for (maker make : makers)
        if (const error_type e = make(context, physics, mesh, type, out); e != element_type_error) return e;
    return element_type_error;
}

error_type make_plane_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    if (auto e = try_physics<membrane_mass_model, membrane_mass>(context, physics, mesh, type, out);
        e != element_type_error)
        return e;
    return try_physics<axi3d_mass_model, axi3d_mass>(context, physics, mesh, type, out);
}

error_type make_conduction_2d(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                              element_type type, Ptr<numerical_model_base>& out)
{
    return try_physics<conduction_2d_model, conduction_2d>(context, physics, mesh, type, out);
}

error_type make_load_only_axi(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                              Ptr<numerical_model_base>& out)
{
    switch (type) {
    case element_edge2: return make_axi_loads<shape_edge2>(context, mesh, out);
    case element_edge3: return make_axi_loads<shape_edge3>(context, mesh, out);
    case element_faceT3: return make_axi_loads<shape_faceT3>(context, mesh, out);
    case element_faceT6: return make_axi_loads<shape_faceT6>(context, mesh, out);
    case element_faceQ4: return make_axi_loads<shape_faceQ4>(context, mesh, out);
    case element_faceQ9: return make_axi_loads<shape_faceQ9>(context, mesh, out);
    default: return element_type_error;
    }
}

} // namespace kelt::core
