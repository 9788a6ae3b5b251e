// The mass family: the consistent mass of the 8 volumes with the rules of each
// shape. Every instance of the family is made here.
#include "kelt/elements/mass_server.h"
#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"

namespace kelt::core {

namespace {

using namespace elfes;

// N_a N_b has twice the degree of the shape: rules one step above the stiffness
// ones. The 27-node hexahedron keeps 3 x 3 x 3, exact for its undistorted cells,
// since no rule of 50 points or more may exist.
template <class Shape> struct mass_rule;
template <> struct mass_rule<shape_tetra4> { using type = local_points_set<Gauss_tetra, 4>; };
template <> struct mass_rule<shape_tetra10> { using type = local_points_set<Gauss_tetra, 11>; };
template <> struct mass_rule<shape_pyramid5> { using type = local_points_set<Gauss_pyramid, 8>; };
template <> struct mass_rule<shape_pyramid14> { using type = local_points_set<Gauss_pyramid, 27>; };
template <> struct mass_rule<shape_wedge6> { using type = local_points_set_prod2<Gauss_wedge, 3, 4>; };
template <> struct mass_rule<shape_wedge18> { using type = local_points_set_prod2<Gauss_wedge, 4, 7>; };
template <> struct mass_rule<shape_hexa8> { using type = local_points_set_prod3<Gauss_hexa, 3, 3, 3>; };
template <> struct mass_rule<shape_hexa27> { using type = local_points_set_prod3<Gauss_hexa, 3, 3, 3>; };

} // namespace

error_type make_solid_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                           element_type type, Ptr<numerical_model_base>& out)
{
    auto* mass = dynamic_cast<solid_mass*>(&physics);
    if (!mass) return element_type_error;
    return for_volume(type, [&]<class Shape>() {
        using model = numerical_model_mass_mesh<mass_server<solid_mass, Shape, typename mass_rule<Shape>::type>,
                                                no_external_work>;
        return new_mesh_model<model>(context, *mass, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
