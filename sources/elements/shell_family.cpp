// The plate and shell family: Mindlin plates (three DOFs a node, one instance per
// normal axis) and shells (six) on the 4 faces, in small and finite form, with the
// rule and modifier of each shape, and the consistent mass of shells. Every
// instance of the family is made here.
#include <algorithm>

#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/shell_server.h"

namespace kelt::core {

namespace {

using namespace elfes;

// Integration is full everywhere; the modifiers remove shear locking, save on the
// six-node triangle, which has none.
template <class Shape> struct face_rules;
template <> struct face_rules<shape_faceT3> {
    using matrix = local_points_set<Gauss_faceT, 3>;
    using plate_load = local_points_set<Gauss_faceT, 1>;
    using plate_formulation = ANS_T3<shape_faceT3>;
    using shell_formulation = compose_modifier<ANS_T3<shape_faceT3>, drilling_stiffness<shape_faceT3>>;
};
template <> struct face_rules<shape_faceQ4> {
    using matrix = local_points_set_prod2<Gauss_faceQ, 2, 2>;
    using plate_load = matrix;
    using plate_formulation = ANS_Q4<shape_faceQ4>;
    using shell_formulation = compose_modifier<ANS_Q4<shape_faceQ4>, drilling_stiffness<shape_faceQ4>>;
};
template <> struct face_rules<shape_faceT6> {
    using matrix = local_points_set<Gauss_faceT, 6>;
    using plate_load = matrix;
    using plate_formulation = regular_formulation<shape_faceT6>;
    using shell_formulation = drilling_stiffness<shape_faceT6>;
};
template <> struct face_rules<shape_faceQ9> {
    using matrix = local_points_set_prod2<Gauss_faceQ, 3, 3>;
    using plate_load = matrix;
    using plate_formulation = ANS_Q9<shape_faceQ9>;
    using shell_formulation = compose_modifier<ANS_Q9<shape_faceQ9>, drilling_stiffness<shape_faceQ9>>;
};

// A stiffness mesh whose server reads the drilling factor of the model's context
// at run time.
template <class Server, class External>
class shell_stiff_mesh : public numerical_model_stiff_mesh<Server, External> {
public:
    shell_stiff_mesh(context_type* context, const Ptr<typename Server::physics_type>& physics,
                     const dense2D<unsigned>& nodes, element_type type)
        : numerical_model_stiff_mesh<Server, External>(context, physics, nodes, type)
    {
        this->server.context = &this->context;
    }
};

template <class Physics, class Shape, unsigned Axis>
using plate_model =
    shell_stiff_mesh<shell_server<Physics, Shape, typename face_rules<Shape>::matrix,
                                  typename face_rules<Shape>::plate_formulation, Axis>,
                     shell_load_server<Physics, Shape, typename face_rules<Shape>::plate_load, Axis>>;

template <class Physics, class Shape>
using shell_model =
    shell_stiff_mesh<shell_server<Physics, Shape, typename face_rules<Shape>::matrix,
                                  typename face_rules<Shape>::shell_formulation>,
                     shell_load_server<Physics, Shape, typename face_rules<Shape>::matrix, 3>>;

template <class Physics>
error_type make_plate(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                      Ptr<numerical_model_base>& out)
{
    return for_face(type, [&]<class Shape>() {
        switch (physics.axis) {
        case 0: return new_mesh_model<plate_model<Physics, Shape, 0>>(context, physics, mesh, Shape::type, out);
        case 1: return new_mesh_model<plate_model<Physics, Shape, 1>>(context, physics, mesh, Shape::type, out);
        case 2: return new_mesh_model<plate_model<Physics, Shape, 2>>(context, physics, mesh, Shape::type, out);
        default: return invalid_data_error;
        }
    });
}

template <class Physics>
error_type make_shell(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                      Ptr<numerical_model_base>& out)
{
    return for_face(type, [&]<class Shape>() {
        return new_mesh_model<shell_model<Physics, Shape>>(context, physics, mesh, Shape::type, out);
    });
}

} // namespace

error_type make_plate_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* small = dynamic_cast<plate_small*>(&physics)) return make_plate(context, *small, mesh, type, out);
    if (auto* finite = dynamic_cast<plate_finite*>(&physics)) return make_plate(context, *finite, mesh, type, out);
    return element_type_error;
}

error_type make_shell_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                            element_type type, Ptr<numerical_model_base>& out)
{
    if (auto* small = dynamic_cast<shell_small*>(&physics)) return make_shell(context, *small, mesh, type, out);
    if (auto* finite = dynamic_cast<shell_finite*>(&physics)) return make_shell(context, *finite, mesh, type, out);
    return element_type_error;
}

error_type make_shell_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    auto* mass = dynamic_cast<shell_mass*>(&physics);
    if (!mass) return element_type_error;
    return for_face(type, [&]<class Shape>() {
        using model = numerical_model_mass_mesh<shell_mass_server<Shape, typename face_rules<Shape>::matrix>,
                                                no_external_work>;
        return new_mesh_model<model>(context, *mass, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
