// How a public init turns (physics, mesh, element type) into a mesh model: the
// checks that every family shares, then the instance of the pair (physics family,
// element type), or element_type_error when there is none.
#pragma once

#include <new>

#include "kelt/core/numerical_model_base.h"
#include "kelt/elements/integration_rules.h"
#include "kelt/elements/physics.h"
#include "kelt/elements/shapes.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

// `out` gets a new model on `context`, not yet recorded; it is left alone on failure.
[[nodiscard]] error_type make_stiff_mesh(context_type* context, physics_base* physics,
                                         const dense2D<unsigned>& mesh, element_type type,
                                         Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_mass_mesh(context_type* context, physics_base* physics, const dense2D<unsigned>& mesh,
                                        element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_thermal_mesh(context_type* context, physics_base* physics,
                                           const dense2D<unsigned>& mesh, element_type type,
                                           Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_load_only_mesh(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                             Ptr<numerical_model_base>& out);
// Loads on the meridian plane of axisymmetric solids, times 2 pi r: edges and faces.
[[nodiscard]] error_type make_load_only_axi_mesh(context_type* context, const dense2D<unsigned>& mesh,
                                                 element_type type, Ptr<numerical_model_base>& out);

// The instances of each family, by element type; element_type_error for a type
// that the family has no instance of. Each lives in its family's own file.
[[nodiscard]] error_type make_solid_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                          element_type type, Ptr<numerical_model_base>& out);
// Solids of projected volumetric strain (solid_projected_family.cpp).
[[nodiscard]] error_type make_solid_projected(context_type* context, physics_base& physics,
                                              const dense2D<unsigned>& mesh, element_type type,
                                              Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_solid_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                         element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_conduction_3d(context_type* context, physics_base& physics,
                                            const dense2D<unsigned>& mesh, element_type type,
                                            Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_load_only(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                        Ptr<numerical_model_base>& out);
// Lines: rods, beams and spring beds; spring beds on faces; line masses; conduction.
[[nodiscard]] error_type make_line_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                         element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_distributed_spring_2d(context_type* context, physics_base& physics,
                                                    const dense2D<unsigned>& mesh, element_type type,
                                                    Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_line_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                        element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_conduction_1d(context_type* context, physics_base& physics,
                                            const dense2D<unsigned>& mesh, element_type type,
                                            Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_plate_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                          element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_shell_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                          element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_shell_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                         element_type type, Ptr<numerical_model_base>& out);

// The face families: membranes, plane strain, axisymmetric solids and torsion; their
// masses; conduction in faces; axisymmetric load-only meshes.
[[nodiscard]] error_type make_plane_stiff(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                          element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_plane_mass(context_type* context, physics_base& physics, const dense2D<unsigned>& mesh,
                                         element_type type, Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_conduction_2d(context_type* context, physics_base& physics,
                                            const dense2D<unsigned>& mesh, element_type type,
                                            Ptr<numerical_model_base>& out);
[[nodiscard]] error_type make_load_only_axi(context_type* context, const dense2D<unsigned>& mesh, element_type type,
                                            Ptr<numerical_model_base>& out);

// The rules of the volumes' matrix servers (stiffness, conduction) and of their
// external-work servers.
template <class Shape> struct volume_rules;
template <> struct volume_rules<elfes::shape_tetra4> {
    using matrix = local_points_set<Gauss_tetra, 1>;
    using load = local_points_set<Gauss_tetra, 1>;
};
template <> struct volume_rules<elfes::shape_tetra10> {
    using matrix = local_points_set<Gauss_tetra, 5>;
    using load = local_points_set<Gauss_tetra, 4>;
};
template <> struct volume_rules<elfes::shape_pyramid5> {
    using matrix = local_points_set<Gauss_pyramid, 8>;
    using load = matrix;
};
template <> struct volume_rules<elfes::shape_pyramid14> {
    using matrix = local_points_set<Gauss_pyramid, 27>;
    using load = matrix;
};
template <> struct volume_rules<elfes::shape_wedge6> {
    using matrix = local_points_set_prod2<Gauss_wedge, 2, 3>;
    using load = matrix;
};
template <> struct volume_rules<elfes::shape_wedge18> {
    using matrix = local_points_set_prod2<Gauss_wedge, 3, 6>;
    using load = matrix;
};
template <> struct volume_rules<elfes::shape_hexa8> {
    using matrix = local_points_set_prod3<Gauss_hexa, 2, 2, 2>;
    using load = matrix;
};
template <> struct volume_rules<elfes::shape_hexa27> {
    using matrix = local_points_set_prod3<Gauss_hexa, 3, 3, 3>;
    using load = matrix;
};

// make.template operator()<Shape>() for the volume shape of `type`;
// element_type_error for a type that is no volume with a shape class.
template <class Make>
error_type for_volume(element_type type, Make&& make)
{
    using namespace elfes;
    switch (type) {
    case element_tetra4: return make.template operator()<shape_tetra4>();
    case element_tetra10: return make.template operator()<shape_tetra10>();
    case element_pyramid5: return make.template operator()<shape_pyramid5>();
    case element_pyramid14: return make.template operator()<shape_pyramid14>();
    case element_wedge6: return make.template operator()<shape_wedge6>();
    case element_wedge18: return make.template operator()<shape_wedge18>();
    case element_hexa8: return make.template operator()<shape_hexa8>();
    case element_hexa27: return make.template operator()<shape_hexa27>();
    default: return element_type_error;
    }
}

// The same for the line shapes and for the face shapes.
template <class Make>
error_type for_line(element_type type, Make&& make)
{
    using namespace elfes;
    switch (type) {
    case element_edge2: return make.template operator()<shape_edge2>();
    case element_edge3: return make.template operator()<shape_edge3>();
    default: return element_type_error;
    }
}

template <class Make>
error_type for_face(element_type type, Make&& make)
{
    using namespace elfes;
    switch (type) {
    case element_faceT3: return make.template operator()<shape_faceT3>();
    case element_faceT6: return make.template operator()<shape_faceT6>();
    case element_faceQ4: return make.template operator()<shape_faceQ4>();
    case element_faceQ9: return make.template operator()<shape_faceQ9>();
    default: return element_type_error;
    }
}

// A new mesh model of type Model on the physics; memory_error when it cannot be had.
template <class Model, class Physics>
error_type new_mesh_model(context_type* context, Physics& physics, const dense2D<unsigned>& mesh, element_type type,
                          Ptr<numerical_model_base>& out)
{
    Ptr<numerical_model_base> m = new (std::nothrow) Model(context, Ptr<Physics>(&physics), mesh, type);
    if (!m) return memory_error;
    out = m;
    return no_error;
}

} // namespace kelt::core
