// Public handles on the mesh models and the composite. A mesh model is built by
// `init(ctx, physics, mesh, type)`: the instance of the pair (physics family,
// element type), registered in the context under a new identifier.
//
//   fem::law_solid_StVenant law;  law.init(data);
//   fem::model_solid_lin physics; physics.init(law);
//   fem::numerical_model_stiff_lin nm(ctx);
//   nm.init(ctx, physics, mesh, element_hexa8);   // then nm.get_ID()
//
// `init` returns element_type_error (-104) for a pair that has no instance,
// invalid_data_error for an empty physics and connectivity_size_error (-105) for a
// mesh with columns whose rows are not the type's node count; the handle is then
// left as it was.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/numerical_model_base.h"
#include "kelt/fem/physics_models.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class context;

// What every mesh model answers about itself.
class numerical_model_mesh : public numerical_model_base {
public:
    element_type get_FE_type() const;
    // A shared view of the connectivity: one column of node numbers per element.
    void get_mesh(dense2D<unsigned>& mesh, element_type& type) const;
    physics_model_base get_physics_model() const;
    physics_model_base get_mechanical_model() const { return get_physics_model(); }
    // The element's own orthonormal axes at its centre, on the positions, or moved
    // by column `col` of the displacements U.
    [[nodiscard]] error_type get_element_basis(unsigned element, const dense2D<double>& pos,
                                               matrix_fixed<double, 3, 3>& basis) const;
    [[nodiscard]] error_type get_element_basis(unsigned element, const dense2D<double>& pos, const FEM_matrix& U,
                                               unsigned col, matrix_fixed<double, 3, 3>& basis) const;

protected:
    numerical_model_mesh() = default;
};

// The physics families on which a mesh model is built.
enum class mesh_family { stiffness, mass, conduction };

// A mesh model of one physics family: the handle stays empty until `init`.
template <mesh_family Family>
class numerical_model_physics_mesh : public numerical_model_mesh {
public:
    explicit numerical_model_physics_mesh(context& ctx);
    numerical_model_physics_mesh(context& ctx, const physics_model_base& physics, const dense2D<unsigned>& mesh,
                                 element_type type);
    // Lets the current model go: the handle is empty until the next init.
    void create(context& ctx);
    [[nodiscard]] error_type init(context& ctx, const physics_model_base& physics, const dense2D<unsigned>& mesh,
                                  element_type type);
};

extern template class numerical_model_physics_mesh<mesh_family::stiffness>;
extern template class numerical_model_physics_mesh<mesh_family::mass>;
extern template class numerical_model_physics_mesh<mesh_family::conduction>;

// Stiffness of a mesh. The variant is the physics': model_solid_lin gives small
// strain, model_solid_gnl the finite variant.
class numerical_model_stiff_lin : public numerical_model_physics_mesh<mesh_family::stiffness> {
public:
    using numerical_model_physics_mesh::numerical_model_physics_mesh;
};

class numerical_model_stiff_gnl : public numerical_model_stiff_lin {
public:
    using numerical_model_stiff_lin::numerical_model_stiff_lin;
};

// Consistent mass of a mesh, on model_solid_mass.
class numerical_model_mass : public numerical_model_physics_mesh<mesh_family::mass> {
public:
    using numerical_model_physics_mesh::numerical_model_physics_mesh;
};

// Steady conduction of a mesh, on model_heat_conduction_3d.
class numerical_model_heat_conduction : public numerical_model_physics_mesh<mesh_family::conduction> {
public:
    using numerical_model_physics_mesh::numerical_model_physics_mesh;
};

// A mesh that carries element loads and no matrix: lines, faces and volumes.
class numerical_model_load_only : public numerical_model_mesh {
public:
    explicit numerical_model_load_only(context& ctx);
    numerical_model_load_only(context& ctx, const dense2D<unsigned>& mesh, element_type type);
    void create(context& ctx);
    [[nodiscard]] error_type init(context& ctx, const dense2D<unsigned>& mesh, element_type type);
};

// Loads on the meridian plane of axisymmetric solids (x the radius, y the axis),
// on edges and faces: forces per unit length or area, and on edges a pressure
// against the normal in the plane, each times 2 pi r at the point.
class numerical_model_load_only_axi : public numerical_model_mesh {
public:
    explicit numerical_model_load_only_axi(context& ctx);
    numerical_model_load_only_axi(context& ctx, const dense2D<unsigned>& mesh, element_type type);
    void create(context& ctx);
    [[nodiscard]] error_type init(context& ctx, const dense2D<unsigned>& mesh, element_type type);
};

// Models held by identifier; an identifier that names no model is skipped.
class numerical_model_composite : public numerical_model_base {
public:
    // A new, registered composite.
    explicit numerical_model_composite(context& ctx);
    void create(context& ctx);
    [[nodiscard]] error_type insert(unsigned ID);
    [[nodiscard]] error_type insert(const dense1D<unsigned, 8>& IDs);
};

} // namespace kelt::fem
