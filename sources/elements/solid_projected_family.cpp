// The solids of projected volumetric strain: the stiffness models of the volumes in
// small strain, with the space of each shape's projection and rules of positive
// weights only, so that the element and the projection's Gram matrix stay positive
// on curved cells. Every instance of the family is made here.
#include <type_traits>

#include "kelt/elements/model_init.h"
#include "kelt/elements/numerical_model_mesh.h"
#include "kelt/elements/solid_server.h"
#include "kelt/elements/volume_projection.h"

namespace kelt::core {

namespace {

using namespace elfes;

// Quadratic shapes carry 1, x, y, z (one constraint a point would lock them, as
// would the plain rule); the linear ones and tetra10 the constants, since four
// constraints a tetrahedron leave a mesh of tetra10 about as many constraints as
// DOFs.
template <class Shape>
struct projected_rules {
    using matrix = typename volume_rules<Shape>::matrix;
    using formulation = volume_projection<1>;
};
template <>
struct projected_rules<shape_hexa27> {
    using matrix = volume_rules<shape_hexa27>::matrix;
    using formulation = volume_projection<4>;
};
template <>
struct projected_rules<shape_wedge18> {
    using matrix = volume_rules<shape_wedge18>::matrix;
    using formulation = volume_projection<4>;
};
template <>
struct projected_rules<shape_pyramid14> {
    using matrix = volume_rules<shape_pyramid14>::matrix;
    using formulation = volume_projection<4>;
};
// The 5-point rule has a negative weight, and 4 points leave the deviatoric part
// with 20 of the 24 ranks an element needs: 14 points, all positive.
template <>
struct projected_rules<shape_tetra10> {
    using matrix = local_points_set<Gauss_tetra, 14>;
    using formulation = volume_projection<1>;
};

template <class Shape>
using projected_model = numerical_model_stiff_mesh<
    stiffness_server<solid_projected_small, Shape, typename projected_rules<Shape>::matrix,
                     typename projected_rules<Shape>::formulation>,
    external_work_server<solid_projected_small, Shape, typename volume_rules<Shape>::load>>;

} // namespace

error_type make_solid_projected(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                element_type type, Ptr<numerical_model_base>& out)
{
    auto* small = dynamic_cast<solid_projected_small*>(&physics);
    if (!small) return element_type_error;
    return for_volume(type, [&]<class Shape>() {
        if constexpr (std::is_same_v<Shape, shape_tetra4>)
            return element_type_error;
        else
            return new_mesh_model<projected_model<Shape>>(context, *small, mesh, Shape::type, out);
    });
}

} // namespace kelt::core
