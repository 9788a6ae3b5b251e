// What every element server shares: the shape data of its integration points,
// computed once, the isoparametric map of an element at a point (volumes, faces and
// lines in space), the gathering of node coordinates and DOF values, and the value
// of a thermal source at a point.
#pragma once

#include <algorithm>
#include <cmath>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/bases_mgr.h"

#include "kelt/core/element_records.h"
#include "kelt/elements/integration_rules.h"
#include "kelt/elements/shapes.h"
#include "kelt/laws/law_base.h"

namespace kelt::core {

// The linear shape on the same cell, whose first nodes are the shape's base nodes.
template <class Shape> struct base_shape_of { using type = Shape; };
template <> struct base_shape_of<elfes::shape_edge3> { using type = elfes::shape_edge2; };
template <> struct base_shape_of<elfes::shape_faceT6> { using type = elfes::shape_faceT3; };
template <> struct base_shape_of<elfes::shape_faceQ9> { using type = elfes::shape_faceQ4; };
template <> struct base_shape_of<elfes::shape_tetra10> { using type = elfes::shape_tetra4; };
template <> struct base_shape_of<elfes::shape_pyramid14> { using type = elfes::shape_pyramid5; };
template <> struct base_shape_of<elfes::shape_wedge18> { using type = elfes::shape_wedge6; };
template <> struct base_shape_of<elfes::shape_hexa27> { using type = elfes::shape_hexa8; };

// The integration points of a server and the shape data at each of them: one
// kinematic_item per node, whose DOF field is the node's place in the element.
template <class Shape, class Points>
struct point_shapes {
    static constexpr unsigned nbr_nodes = Shape::nbr_nodes;
    static constexpr unsigned nbr_points = Points::nbr_points;
    static constexpr unsigned nbr_base_nodes = base_shape_of<Shape>::type::nbr_nodes;
    // The base nodes are the first nodes of the shape, on the same cell.
    static_assert(nbr_base_nodes <= nbr_nodes && base_shape_of<Shape>::type::dim == Shape::dim);

    point_shapes()
    {
        const Shape shape{};
        for (unsigned p = 0; p < nbr_points; ++p)
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                kinematic_item<Shape>& k = items[p][a];
                k.DOF = a;
                k.N = shape[a].value(points[p].x);
                shape[a].derivatives(points[p].x, k.dN);
            }
        // A value known only at the base nodes goes to the others as the base
        // shape interpolates it there: the mean of the edge's ends, of the face's
        // corners, of the cell's corners.
        const typename base_shape_of<Shape>::type base{};
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned b = 0; b < nbr_base_nodes; ++b)
                extension[a][b] = a < nbr_base_nodes ? (a == b ? 1.0 : 0.0) : base[b].value(Shape::node_point(a));
        double centre_x[3] = {};
        for (unsigned b = 0; b < nbr_base_nodes; ++b)
            for (unsigned k = 0; k < 3; ++k) centre_x[k] += Shape::node_point(b)[k] / nbr_base_nodes;
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            centre[a].DOF = a;
            centre[a].N = shape[a].value(centre_x);
            shape[a].derivatives(centre_x, centre[a].dN);
        }
    }

    Points points{};
    kinematic_item<Shape> items[nbr_points][nbr_nodes];
    // Shape data at the centre of the cell, for the element's own frame.
    kinematic_item<Shape> centre[nbr_nodes];
    double extension[nbr_nodes][nbr_base_nodes];
};

// Node coordinates of an element, 3 per node; invalid_data_error when a node has
// no column in the positions.
template <unsigned NN>
error_type gather_nodes(const dense2D<double>& pos, const unsigned* nodes, double (&x)[NN][3])
{
    if (pos.rows() < 3) return invalid_data_error;
    for (unsigned a = 0; a < NN; ++a) {
        if (nodes[a] >= pos.cols()) return invalid_data_error;
        const double* c = pos.col_data(nodes[a]);
        x[a][0] = c[0];
        x[a][1] = c[1];
        x[a][2] = c[2];
    }
    return no_error;
}

// The values of `places` at each node, node by node; 0 for an empty state. `out`
// has one entry per node and place.
template <unsigned NN, unsigned NP>
void gather_values(const DOF_values_view& U, const unsigned* nodes, const unsigned (&places)[NP],
                   double (&out)[NN * NP])
{
    for (unsigned a = 0; a < NN; ++a)
        for (unsigned k = 0; k < NP; ++k) out[a * NP + k] = U.empty() ? 0.0 : U.get(DOFs_mgr::place_ID(nodes[a], places[k]));
}

// The point where `items` were taken: sum of N_a x_a.
template <class Shape>
void point_of(const kinematic_item<Shape>* items, const double (*x)[3], double (&point)[3])
{
    for (unsigned i = 0; i < 3; ++i) {
        double s = 0.0;
        for (unsigned a = 0; a < Shape::nbr_nodes; ++a) s += items[a].N * x[a][i];
        point[i] = s;
    }
}

// The isoparametric map of a volume at a point: J(i, k) = dx_i / dr_k, the
// determinant, the point, and the gradients of the shape functions in space.
template <class Shape>
double volume_map(const kinematic_item<Shape>* items, const double (*x)[3], double (*dNx)[3], double* point)
{
    constexpr unsigned NN = Shape::nbr_nodes;
    double J[3][3] = {}, p[3] = {};
    for (unsigned a = 0; a < NN; ++a)
        for (unsigned i = 0; i < 3; ++i) {
            p[i] += items[a].N * x[a][i];
            for (unsigned k = 0; k < 3; ++k) J[i][k] += x[a][i] * items[a].dN[k];
        }
    for (unsigned i = 0; i < 3; ++i) point[i] = p[i];
    // Cofactors: inverse(J) = cof(J)^T / det.
    const double c00 = J[1][1] * J[2][2] - J[1][2] * J[2][1], c01 = J[1][2] * J[2][0] - J[1][0] * J[2][2],
                 c02 = J[1][0] * J[2][1] - J[1][1] * J[2][0];
    const double det = J[0][0] * c00 + J[0][1] * c01 + J[0][2] * c02;
    if (!(det > 0.0)) return det;
    const double inv = 1.0 / det;
    const double c10 = J[0][2] * J[2][1] - J[0][1] * J[2][2], c11 = J[0][0] * J[2][2] - J[0][2] * J[2][0],
                 c12 = J[0][1] * J[2][0] - J[0][0] * J[2][1];
    const double c20 = J[0][1] * J[1][2] - J[0][2] * J[1][1], c21 = J[0][2] * J[1][0] - J[0][0] * J[1][2],
                 c22 = J[0][0] * J[1][1] - J[0][1] * J[1][0];
    // dN/dx_i = sum_k dN/dr_k (J^-1)(k, i), with (J^-1)(k, i) = c(i, k) / det.
    for (unsigned a = 0; a < NN; ++a) {
        const double* d = items[a].dN;
        dNx[a][0] = (d[0] * c00 + d[1] * c01 + d[2] * c02) * inv;
        dNx[a][1] = (d[0] * c10 + d[1] * c11 + d[2] * c12) * inv;
        dNx[a][2] = (d[0] * c20 + d[1] * c21 + d[2] * c22) * inv;
    }
    return det;
}

// The map of a face or a line in space at a point: the measure of the element per
// unit of local measure (|t1 x t2| or |t1|), the point, and for a face the normal
// t1 x t2 (not unit) of the right hand of its node order.
template <class Shape>
double surface_map(const kinematic_item<Shape>* items, const double (*x)[3], double* point, double* normal)
{
    constexpr unsigned NN = Shape::nbr_nodes;
    double t[2][3] = {}, p[3] = {};
    for (unsigned a = 0; a < NN; ++a)
        for (unsigned i = 0; i < 3; ++i) {
            p[i] += items[a].N * x[a][i];
            for (unsigned k = 0; k < Shape::dim && k < 2; ++k) t[k][i] += x[a][i] * items[a].dN[k];
        }
    for (unsigned i = 0; i < 3; ++i) point[i] = p[i];
    if constexpr (Shape::dim == 1) {
        normal[0] = normal[1] = normal[2] = 0.0;
        return std::sqrt(t[0][0] * t[0][0] + t[0][1] * t[0][1] + t[0][2] * t[0][2]);
    } else {
        normal[0] = t[0][1] * t[1][2] - t[0][2] * t[1][1];
        normal[1] = t[0][2] * t[1][0] - t[0][0] * t[1][2];
        normal[2] = t[0][0] * t[1][1] - t[0][1] * t[1][0];
        return std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
    }
}

// A thermal source seen by one element: nothing, one value for the whole element,
// or values at its nodes to interpolate.
template <unsigned NN>
struct element_temperature {
    enum mode_type { none, constant, nodal };
    mode_type mode = none;
    double value = 0.0;
    double nodes[NN] = {};

    // The element's own value, else the nodal values (a node without one takes the
    // extension from the base nodes), else the uniform value of the model.
    template <class Points_data>
    void read(element_work_type& w, const unsigned* element_nodes, const Points_data& data)
    {
        static_assert(Points_data::nbr_nodes == NN, "extension is read by this element's node indices");
        mode = none;
        const stress_mgr_thermal* t = w.thermal;
        if (!t) return;
        if (t->get_element_value(w.element, w.time, w.thermal_value) && w.thermal_value.size()) {
            mode = constant;
            value = w.thermal_value[0];
            return;
        }
        if (t->nodes.size() != 0) {
            bool given[NN] = {};
            for (unsigned a = 0; a < NN; ++a) {
                given[a] = t->get_nodal_value(element_nodes[a], w.time, w.thermal_value) && w.thermal_value.size();
                nodes[a] = given[a] ? w.thermal_value[0] : 0.0;
            }
            for (unsigned a = Points_data::nbr_base_nodes; a < NN; ++a)
                if (!given[a]) {
                    double v = 0.0;
                    for (unsigned b = 0; b < Points_data::nbr_base_nodes; ++b) v += data.extension[a][b] * nodes[b];
                    nodes[a] = v;
                }
            mode = nodal;
            return;
        }
        t->get_uniform(w.time, w.thermal_value);
        if (w.thermal_value.size()) {
            mode = constant;
            value = w.thermal_value[0];
        }
    }
    // The temperature at a point; false when there is none.
    template <class Shape>
    bool at(const kinematic_item<Shape>* items, double& T) const
    {
        if (mode == none) return false;
        if (mode == constant) {
            T = value;
            return true;
        }
        T = 0.0;
        for (unsigned a = 0; a < NN; ++a) T += items[a].N * nodes[a];
        return true;
    }
};

// Up to three section temperatures of a beam or shell element (mean, then the
// gradient terms of the curvatures): the element's own value, else the nodal
// values at the point, else the model's uniform value.
template <unsigned NN>
struct section_temperature {
    unsigned n = 0; // components; 0 for no thermal source
    bool nodal = false;
    double value[3] = {};
    double nodes[NN][3] = {};

    void read(element_work_type& w, const unsigned* element_nodes)
    {
        n = 0;
        nodal = false;
        const stress_mgr_thermal* t = w.thermal;
        if (!t) return;
        if (take(t->get_element_value(w.element, w.time, w.thermal_value), w.thermal_value)) return;
        if (t->nodes.size() != 0) {
            for (unsigned a = 0; a < NN; ++a)
                if (t->get_nodal_value(element_nodes[a], w.time, w.thermal_value))
                    for (unsigned k = 0; k < 3 && k < w.thermal_value.size(); ++k) {
                        nodes[a][k] = w.thermal_value[k];
                        n = std::max(n, k + 1);
                    }
            nodal = n != 0;
            return;
        }
        t->get_uniform(w.time, w.thermal_value);
        take(true, w.thermal_value);
    }
    // The components at a point of shape values N.
    template <class Shape>
    void at(const kinematic_item<Shape>* items, double (&T)[3]) const
    {
        for (unsigned k = 0; k < 3; ++k) {
            T[k] = nodal ? 0.0 : value[k];
            if (nodal)
                for (unsigned a = 0; a < NN; ++a) T[k] += items[a].N * nodes[a][k];
        }
    }

private:
    bool take(bool found, const dense1D<double, 8>& v)
    {
        if (!found || v.empty()) return false;
        n = v.size() < 3 ? v.size() : 3;
        for (unsigned k = 0; k < n; ++k) value[k] = v[k];
        return true;
    }
};

// Sizes an element's packed matrix and vector to n, all zero.
inline bool size_outputs(element_work_type& w, unsigned n, bool matrix, bool vector)
{
    if (matrix) {
        if (!w.Ke.resize(n)) return false;
        w.Ke = 0.0;
    }
    if (vector) {
        if (!w.Fe.resize(n)) return false;
        w.Fe = 0.0;
    }
    return true;
}

// The element's DOFs: `places` at each node, node by node.
template <unsigned NN, unsigned NP>
bool list_DOFs(const unsigned* nodes, const unsigned (&places)[NP], dense1D<unsigned, 8>& DOFs)
{
    if (!DOFs.resize(NN * NP)) return false;
    for (unsigned a = 0; a < NN; ++a)
        for (unsigned k = 0; k < NP; ++k) DOFs[a * NP + k] = DOFs_mgr::place_ID(nodes[a], places[k]);
    return true;
}

// What a linear element gives from its assembled matrix at the element's values u
// (n of them): the energy u.Ke.u / 2 whenever the pass gives values, as the solids
// give theirs (a product through the elements and the energy solver ask for no
// vector, yet read the energy); with a vector, Fe = -Ke u; then Ke dropped when
// the pass asks for no matrix.
[[nodiscard]] inline error_type linear_outputs(element_work_type& w, const double* u, unsigned n)
{
    const bool vector = w.vector_mode == 1;
    if (vector || !w.U.empty()) {
        if (vector && !w.Fe.resize(n)) return memory_error;
        for (unsigned i = 0; i < n; ++i) {
            double s = 0.0;
            for (unsigned j = 0; j < n; ++j) s += w.Ke(i, j) * u[j];
            if (vector) w.Fe[i] = -s;
            w.energy += 0.5 * s * u[i];
        }
    }
    if (w.matrix_mode == matrix_none) w.Ke.clear();
    return no_error;
}

// The same at the values of U gathered at the element's nodes and places.
template <unsigned NN, unsigned NP>
[[nodiscard]] error_type linear_outputs(element_work_type& w, const unsigned* nodes, const unsigned (&places)[NP])
{
    double u[NN * NP];
    if (w.vector_mode == 1 || !w.U.empty()) gather_values<NN>(w.U, nodes, places, u);
    return linear_outputs(w, u, NN * NP);
}

// The places of a node's DOFs that a family works on.
inline constexpr unsigned translation_places[3] = {place_x, place_y, place_z};
inline constexpr unsigned temperature_places[1] = {place_temperature};
// Beams and shells: three translations, then three rotations, at each node.
inline constexpr unsigned six_places[6] = {place_x, place_y, place_z, place_rx, place_ry, place_rz};

// What every server holds: the physics, the transformer, and its points with their
// shape data. An element has `Places` at each node, node by node.
template <class Physics, class Shape, class Points, const auto& Places = translation_places>
class server_base {
public:
    using physics_type = Physics;
    static constexpr unsigned nbr_nodes = Shape::nbr_nodes;
    static constexpr unsigned nbr_points = Points::nbr_points;
    static constexpr const auto& places = Places;
    static constexpr unsigned nbr_places = sizeof(Places) / sizeof(Places[0]);
    static constexpr unsigned nbr_DOFs = nbr_nodes * nbr_places;

    explicit server_base(const Ptr<Physics>& physics_) : physics(physics_) {}

    law_base* law() const noexcept { return physics ? physics->get_law() : nullptr; }
    const local_point& point(unsigned p) const noexcept { return data.points[p]; }

    // What a projection of point results on the nodes needs besides the values:
    // the element's nodes and the shape values at its points (the weights are
    // pushed by the point loop).
    [[nodiscard]] bool record_point_shapes(const unsigned* nodes, element_work_type& w) const
    {
        if (!w.point_nodes.resize(nbr_nodes) || !w.point_shapes.resize(nbr_nodes, nbr_points)) return false;
        for (unsigned a = 0; a < nbr_nodes; ++a) w.point_nodes[a] = nodes[a];
        for (unsigned p = 0; p < nbr_points; ++p)
            for (unsigned a = 0; a < nbr_nodes; ++a) w.point_shapes(a, p) = data.items[p][a].N;
        return true;
    }

    // The orthonormalised axes of the map at the cell's centre, on the nodes moved
    // by the translations of U when it is given. A face's third axis is its normal.
    [[nodiscard]] error_type element_basis(const unsigned* nodes, const dense2D<double>& pos,
                                           const DOF_values_view* U, frame3& basis) const
    {
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(pos, nodes, x); err != no_error) return err;
        if (U && !U->empty()) {
            double u[3 * nbr_nodes];
            gather_values<nbr_nodes>(*U, nodes, translation_places, u);
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned i = 0; i < 3; ++i) x[a][i] += u[3 * a + i];
        }
        frame3 J;
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned k = 0; k < Shape::dim; ++k) J(i, k) += x[a][i] * data.centre[a].dN[k];
        if constexpr (Shape::dim == 2) {
            J(0, 2) = J(1, 0) * J(2, 1) - J(2, 0) * J(1, 1);
            J(1, 2) = J(2, 0) * J(0, 1) - J(0, 0) * J(2, 1);
            J(2, 2) = J(0, 0) * J(1, 1) - J(1, 0) * J(0, 1);
        }
        basis = orthonormalised(J);
        return no_error;
    }

    Ptr<Physics> physics;
    Ptr<ref_counted> transformer;
    point_shapes<Shape, Points> data;
};

} // namespace kelt::core
