// Problems on boxes of volume elements, for the solver tests: the meshes, a
// context that builds models on them, and a cantilever under a tip shear.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <initializer_list>
#include <utility>
#include <vector>

#include "kelt/fem.h"

namespace kelt::test {

// Evolution index of no function: loads that do not change in time.
inline constexpr unsigned no_func = 0xFFFFFFFFu;

inline unsigned dof(unsigned node, unsigned comp) { return fem::DOFs_mgr::ID(node, displacement_tag, comp); }

// The value of a DOF in a column of a result, which must have its row (NaN and a
// failure otherwise).
inline double value(const fem::FEM_matrix& U, unsigned ID, unsigned col = 0)
{
    double v = std::nan("");
    EXPECT_EQ(U.getID_val(ID, col, v), no_error) << "ID " << ID;
    return v;
}

struct mesh {
    dense2D<double> pos;
    dense2D<unsigned> cells;
    element_type type = element_none;
    std::vector<bool> used; // nodes that some element holds

    unsigned nbr_nodes() const { return pos.cols(); }
};

// [0, size[0]] x [0, size[1]] x [0, size[2]] in n[0] x n[1] x n[2] hexahedra, or in
// the wedges, tetrahedra and pyramids that split them; interior vertices move at
// random by up to `distortion` of a cell. Higher-order nodes sit at the mean of the
// vertices they depend on, so that elements keep straight edges and a linear
// field stays in their span.
mesh box_mesh(element_type type, const double (&size)[3], const unsigned (&n)[3], double distortion = 0.0);

// The octant x, y, z >= 0 of a spherical shell of radii a < b: three box_mesh
// patches of the cube's faces (a cell through the wall per n[0], n[1] x n[1] over
// each), projected on the spheres at equal angles, coincident nodes merged; higher-
// order nodes are mapped too, so cells have curved edges. `inner` holds the faces
// on r = a (faceQ4, faceQ9 or faceT6 by the volume type), their normals towards
// the centre, so that a pressure on them pushes the wall outwards.
struct sphere_octant {
    sphere_octant(element_type type, double a, double b, const unsigned (&n)[2]);
    mesh solid;
    mesh inner;
};

// A context whose registry is emptied at the end, with models made on meshes.
struct test_context {
    test_context() { ctx.set_max_threads(2); }
    ~test_context() { ctx.the_NM_mgr().clear(); }

    // With `projected`, the solids of projected volumetric strain.
    unsigned solid(const mesh& m, double E, double nu, bool projected = false);
    unsigned solid(const mesh& m, const fem::law_base& law);
    unsigned load_only(const mesh& m);
    unsigned conduction(const mesh& m, double k);
    unsigned mass(const mesh& m, double density);
    unsigned composite(std::initializer_list<unsigned> IDs);
    fem::problem_data problem(mesh& m, unsigned model, unsigned cases);

    fem::context ctx;
};

// A cantilever of hexa27 along x, clamped by blocking its root in the DOF table,
// under a shear force P along z at its tip.
struct cantilever {
    static constexpr double L = 10.0, b = 1.0, h = 1.0, E = 1000.0, nu = 0.3, P = -1.0;
    static constexpr unsigned along = 8;

    // On law_solid_StVenant of E and nu, or on `law`.
    explicit cantilever(const fem::law_base* law = nullptr);

    test_context t;
    mesh m;
    fem::problem_data problem{t.ctx};
    std::vector<std::pair<unsigned, double>> forces; // the tip forces by DOF
    unsigned tip = 0; // the node at the centre of the end face
};

} // namespace kelt::test
