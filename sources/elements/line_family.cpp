// The line family: rods, beams (the closed form on two nodes, integrated on three
// and in the finite variant), spring beds on lines and faces, the mass of rods and
// beams, and conduction along lines, with the rules of each shape. Every instance of
// the family is made here.
#include "kelt/elements/line_server.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"

namespace kelt::core {

namespace {

using namespace elfes;

template <unsigned N>
using edge_rule = local_points_set<Gauss_edge, N>;

// The load server of the closed-form beam: a force per unit length with the end
// moments of the exact element.
using external_work_server_lin_beam = closed_beam_load_server<beam_small>;

// Beams: one point fewer than a full rule, against shear locking.
template <class Shape> struct beam_rule;
template <> struct beam_rule<shape_edge2> { using type = edge_rule<1>; };
template <> struct beam_rule<shape_edge3> { using type = edge_rule<2>; };

template <class Physics, class Shape>
using integrated_beam = numerical_model_stiff_mesh<beam_server<Physics, Shape, typename beam_rule<Shape>::type>,
                                                   external_work_server<Physics, Shape, typename beam_rule<Shape>::type>>;

// Spring beds and masses: full rules of N_a N_b.
template <class Shape> struct full_rule;
template <> struct full_rule<shape_edge2> { using type = edge_rule<2>; };
template <> struct full_rule<shape_edge3> { using type = edge_rule<3>; };
template <> struct full_rule<shape_faceT3> { using type = local_points_set<Gauss_faceT, 3>; };
template <> struct full_rule<shape_faceT6> { using type = local_points_set<Gauss_faceT, 6>; };
template <> struct full_rule<shape_faceQ4> { using type = local_points_set_prod2<Gauss_faceQ, 2, 2>; };
template <> struct full_rule<shape_faceQ9> { using type = local_points_set_prod2<Gauss_faceQ, 3, 3>; };

template <class Physics, class Shape>
using spring_bed = numerical_model_stiff_mesh<distributed_spring_server<Physics, Shape, typename full_rule<Shape>::type>,
                                              no_external_work>;

template <class Physics>
error_type make_beam(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                     Ptr<numerical_model_base>& out)
{
    if constexpr (!Physics::finite)
        if (type == element_edge2)
            return new_mesh_model<numerical_model_stiff_mesh<stiffness_server_lin_beam<Physics>,
                                                             external_work_server_lin_beam>>(context, physics, mesh,
                                                                                             type, out);
    return for_line(type, [&]<class Shape>() {
        return new_mesh_model<integrated_beam<Physics, Shape>>(context, physics, mesh, Shape::type, out);
    });
}

template <class Physics>
error_type make_rod(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                    Ptr<numerical_model_base>& out)
{
    if (type != element_edge2) return element_type_error;
    using model = numerical_model_stiff_mesh<rod_server<Physics, edge_rule<1>>,
                                             external_work_server<Physics, shape_edge2, edge_rule<1>>>;
    return new_mesh_model<model>(context, physics, mesh, type, out);
}

} // namespace

error_type make_line_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* p = dynamic_cast<rod_small*>(&physics)) return make_rod(context, *p, mesh, type, out);
    if (auto* p = dynamic_cast<rod_finite*>(&physics)) return make_rod(context, *p, mesh, type, out);
    if (auto* p = dynamic_cast<beam_small*>(&physics)) return make_beam(context, *p, mesh, type, out);
    if (auto* p = dynamic_cast<beam_finite*>(&physics)) return make_beam(context, *p, mesh, type, out);
    if (auto* p = dynamic_cast<distributed_spring_1d*>(&physics))
        return for_line(type, [&]<class Shape>() {
            return new_mesh_model<spring_bed<distributed_spring_1d, Shape>>(context, *p, mesh, Shape::type, out);
        });
    return element_type_error;
}

error_type make_distributed_spring_2d(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                      element_type type, Ptr<numerical_model_base>& out)
{
    auto* p = dynamic_cast<distributed_spring_2d*>(&physics);
    if (!p) return element_type_error;
    return for_face(type, [&]<class Shape>() {
        return new_mesh_model<spring_bed<distributed_spring_2d, Shape>>(context, *p, mesh, Shape::type, out);
    });
}

error_type make_line_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                          element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* p = dynamic_cast<line_mass*>(&physics))
        return for_line(type, [&]<class Shape>() {
            using model = numerical_model_mass_mesh<
                line_mass_server<line_mass, Shape, typename full_rule<Shape>::type, translation_places>,
                no_external_work>;
            return new_mesh_model<model>(context, *p, mesh, Shape::type, out);
        });
    if (auto* p = dynamic_cast<beam_mass*>(&physics))
        return for_line(type, [&]<class Shape>() {
            using model = numerical_model_mass_mesh<
                line_mass_server<beam_mass, Shape, typename full_rule<Shape>::type, six_places>, no_external_work>;
            return new_mesh_model<model>(context, *p, mesh, Shape::type, out);
        });
    return element_type_error;
}

error_type make_conduction_1d(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                              element_type type, Ptr<numerical_model_base>& out)
{
    auto* p = dynamic_cast<conduction_1d*>(&physics);
    if (!p) return element_type_error;
    return for_line(type, [&]<class Shape>() {
        // One point fewer than N_a N_b needs: the derivatives are one degree lower.
        using conduction_rule = typename beam_rule<Shape>::type;
        using model = numerical_model_thermal_mesh<line_conduction_server<conduction_1d, Shape, conduction_rule>,
                                                   external_work_server<conduction_1d, Shape, typename full_rule<Shape>::type>>;
        return new_mesh_model<model>(context, *p, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
