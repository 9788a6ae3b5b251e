// The element routine of Mindlin plates and shells on the 4 faces: at each point a
// frame on the surface (e1 along the first tangent, e3 the normal), the eight
// generalised strains of the section from the global translations and rotations,
// then B D Bᵀ in the pattern of the solids. A shell keeps six DOFs a node; a plate
// is the same element in its plane, of which it keeps the deflection and the two
// rotations. The modifiers (assumed transverse shear, drilling penalty) act through
// two hooks: tying of the shear rows at each point, and a step after the loop.
// Included by the plate and shell family's translation unit only.
#pragma once

#include <algorithm>

#include <cmath>

#include "kelt/core/context.h"
#include "kelt/core/finite_rotation.h"
#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"
#include "kelt/elements/solid_server.h"

namespace kelt::core {

// ---------------------------------------------------------------------------------
// Modifiers. A tying scheme lists points of the reference cell where one covariant
// transverse shear (component 0 along the first local coordinate, 1 along the
// second) is sampled, and the coefficients that rebuild both components at any
// point from those samples.

struct tying_point {
    double x[3];
    unsigned component;
};

// No modifier: the element as its rule computes it.
template <class Shape>
struct shell_regular {
    static constexpr unsigned nbr_tying = 0;
    static constexpr bool drilling = false;
    static constexpr double shear_stabilisation = 0.0;
    static constexpr tying_point tying[1] = {{{0.0, 0.0}, 0}};
    static void coefficients(const double*, double (&)[2][1]) {}
};

// Edge midpoints of the quadrilateral; each component is linear across its edges.
template <class Shape>
struct ANS_Q4 {
    static constexpr unsigned nbr_tying = 4;
    static constexpr bool drilling = false;
    static constexpr double shear_stabilisation = 0.0;
    static constexpr tying_point tying[4] = {{{0.0, -1.0}, 0}, {{1.0, 0.0}, 1}, {{0.0, 1.0}, 0}, {{-1.0, 0.0}, 1}};
    static void coefficients(const double* r, double (&c)[2][4])
    {
        c[0][0] = 0.5 * (1.0 - r[1]);
        c[0][2] = 0.5 * (1.0 + r[1]);
        c[1][1] = 0.5 * (1.0 + r[0]);
        c[1][3] = 0.5 * (1.0 - r[0]);
        c[0][1] = c[0][3] = c[1][0] = c[1][2] = 0.0;
    }
};

// Edge midpoints of the triangle: the first component on the edge s = 0, the
// second on r = 0, both on the third edge, whose tangential shear fixes the one
// free constant of the field e_r = a + c s, e_s = b - c r. The tying alone leaves
// thin triangles stiff; the transverse shear stiffness is scaled by
// h^2 / (h^2 + alpha h_e^2) (h the section's thickness, h_e the longest edge),
// which takes the spurious shear energy out as h / h_e falls and leaves thick
// sections alone.
template <class Shape>
struct ANS_T3 {
    static constexpr unsigned nbr_tying = 4;
    static constexpr bool drilling = false;
    static constexpr double shear_stabilisation = 0.1;
    static constexpr tying_point tying[4] = {{{0.5, 0.0}, 0}, {{0.0, 0.5}, 1}, {{0.5, 0.5}, 0}, {{0.5, 0.5}, 1}};
    static void coefficients(const double* r, double (&c)[2][4])
    {
        // c = g1 - g0 + g2 - g3
        const double k[4] = {-1.0, 1.0, 1.0, -1.0};
        for (unsigned t = 0; t < 4; ++t) {
            c[0][t] = (t == 0 ? 1.0 : 0.0) + r[1] * k[t];
            c[1][t] = (t == 1 ? 1.0 : 0.0) - r[0] * k[t];
        }
    }
};

// The 2 x 3 Gauss grid for the first component, the 3 x 2 for the second, with
// Lagrange interpolation through the grid's abscissae.
template <class Shape>
struct ANS_Q9 {
    static constexpr unsigned nbr_tying = 12;
    static constexpr bool drilling = false;
    static constexpr double shear_stabilisation = 0.0;
    static constexpr double a = 0.57735026918962576451, b = 0.77459666924148337704;
    static constexpr double two[2] = {-a, a}, three[3] = {-b, 0.0, b};
    static constexpr tying_point tying[12] = {
        {{-a, -b}, 0}, {{a, -b}, 0}, {{-a, 0.0}, 0}, {{a, 0.0}, 0}, {{-a, b}, 0}, {{a, b}, 0},
        {{-b, -a}, 1}, {{0.0, -a}, 1}, {{b, -a}, 1}, {{-b, a}, 1}, {{0.0, a}, 1}, {{b, a}, 1}};
    static double lagrange2(unsigned i, double x) { return (x - two[1 - i]) / (two[i] - two[1 - i]); }
    static double lagrange3(unsigned i, double x)
    {
        double v = 1.0;
        for (unsigned j = 0; j < 3; ++j)
            if (j != i) v *= (x - three[j]) / (three[i] - three[j]);
        return v;
    }
    static void coefficients(const double* r, double (&c)[2][12])
    {
        for (unsigned t = 0; t < 12; ++t) c[0][t] = c[1][t] = 0.0;
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i < 2; ++i) {
                c[0][2 * j + i] = lagrange2(i, r[0]) * lagrange3(j, r[1]);
                c[1][6 + 3 * i + j] = lagrange3(j, r[0]) * lagrange2(i, r[1]);
            }
    }
};

// The element as its rule computes it has no hook of its own.
template <class Modifier> struct shell_hooks { using type = Modifier; };
template <class Shape> struct shell_hooks<regular_formulation<Shape>> { using type = shell_regular<Shape>; };

// The penalty on the rotation about the normal at each node, added after the loop.
template <class Shape>
struct drilling_stiffness : shell_regular<Shape> {
    static constexpr bool drilling = true;
};

// A then B: the tying of A, the drilling of either.
template <class A, class B>
struct compose_modifier {
    static constexpr unsigned nbr_tying = A::nbr_tying + B::nbr_tying;
    static_assert(A::nbr_tying == 0 || B::nbr_tying == 0, "one tying scheme at most");
    using tying_source = std::conditional_t<(A::nbr_tying > 0), A, B>;
    static constexpr bool drilling = A::drilling || B::drilling;
    static constexpr double shear_stabilisation = tying_source::shear_stabilisation;
    static constexpr const auto& tying = tying_source::tying;
    template <class C>
    static void coefficients(const double* r, C& c)
    {
        tying_source::coefficients(r, c);
    }
};

// ---------------------------------------------------------------------------------

// Places of a plate whose normal is `Axis`: the deflection, then the rotations about
// the two other axes; Axis 3 stands for the shell's six places.
template <unsigned Axis>
inline constexpr unsigned plate_places[3] = {Axis, place_rx + (Axis + 1) % 3, place_rx + (Axis + 2) % 3};
template <unsigned Axis>
struct shell_places_of {
    static constexpr const auto& value = plate_places<Axis>;
};
template <>
struct shell_places_of<3> {
    static constexpr const auto& value = six_places;
};

template <class Physics, class Shape, class Points, class Formulation, unsigned Axis = 3>
class shell_server : public server_base<Physics, Shape, Points, shell_places_of<Axis>::value> {
public:
    using base = server_base<Physics, Shape, Points, shell_places_of<Axis>::value>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    using Modifier = typename shell_hooks<Formulation>::type;
    static constexpr bool finite = Physics::finite;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    // The kernel works on six DOFs a node, translations then rotations.
    static constexpr unsigned nbr_full = 6 * nbr_nodes;
    static constexpr unsigned nbr_tying = Modifier::nbr_tying > 0 ? Modifier::nbr_tying : 1;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    explicit shell_server(const Ptr<Physics>& physics_) : base(physics_)
    {
        const Shape shape{};
        for (unsigned t = 0; t < Modifier::nbr_tying; ++t) fill_items(shape, Modifier::tying[t].x, tying_items[t]);
        for (unsigned a = 0; a < nbr_nodes; ++a) fill_items(shape, Shape::node_point(a), node_items[a]);
        for (unsigned p = 0; p < nbr_points; ++p) {
            double c[2][nbr_tying] = {};
            if constexpr (Modifier::nbr_tying > 0) Modifier::coefficients(data.points[p].x, c);
            for (unsigned k = 0; k < 2; ++k)
                for (unsigned t = 0; t < nbr_tying; ++t) tying_coefficients[p][k][t] = c[k][t];
        }
    }

    // Where the run-time drilling factor is read: the model's context pointer.
    context_type* const* context = nullptr;

    // Kind 1: the stiffness (matrix modes 0 to 3) and the opposite of the internal
    // forces; kind 6 gives nothing.
    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
        const bool green_lagrange = finite || w.matrix_mode == matrix_geometric;
        const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool geometric = w.matrix_mode == matrix_geometric || (finite && w.matrix_mode == matrix_tangent);
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, matrix, vector))
            return memory_error;
        double tied[2 * nbr_tying][nbr_full];
        if constexpr (Modifier::nbr_tying > 0)
            if (!tying_rows(e, tied)) return element_geometry_error;
        for (unsigned i = 0; i < nbr_full; ++i) {
            F[i] = 0.0;
            for (unsigned j = 0; j < nbr_full; ++j) K[i][j] = 0.0;
        }
        point_values v[nbr_points];
        double area = 0.0;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double det = evaluate(p, e, green_lagrange, tied, w, v[p]);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) return fail(w);
            area += det * data.points[p].weight;
            const double wf = det * data.points[p].weight * w.factor;
            v[p].weight = wf;
            if (material && matrix) add_BDBt(v[p], wf);
            if (vector)
                for (unsigned i = 0; i < nbr_full; ++i) {
                    double s = 0.0;
                    for (unsigned m = 0; m < 8; ++m) s += v[p].B[m][i] * v[p].sigma[m];
                    F[i] -= wf * s;
                }
            w.energy += v[p].energy_density * wf;
        }
        if (geometric && matrix) {
            add_geometric(v);
            if constexpr (finite) add_turn_geometric(e, v);
        }
        if constexpr (Modifier::drilling)
            if (w.matrix_mode != matrix_geometric) add_drilling(e, area, w, matrix, vector);
        keep_places(w, matrix, vector);
        return no_error;
    }

    // Strains (11) or resultants (12) at the points as two tensors in the global
    // frame, under the coordinates of the point: rows 3 to 8 the membrane strains
    // or forces per unit width, with the transverse shears as their out-of-plane
    // terms, rows 9 to 14 the curvatures or moments; solid order xx, yy, zz, xy,
    // xz, yz, engineering shears for strains. Tensors of every element's own frame
    // can so be summed at a node.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result != result_strain && result != result_stress) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!w.results.resize(15, nbr_points) || !w.point_IDs.resize(nbr_points) || !this->record_point_shapes(nodes, w))
            return memory_error;
        w.results = 0.0;
        double tied[2 * nbr_tying][nbr_full];
        if constexpr (Modifier::nbr_tying > 0)
            if (!tying_rows(e, tied)) {
                w.results.clear();
                return element_geometry_error;
            }
        for (unsigned p = 0; p < nbr_points; ++p) {
            point_values v;
            w.point_IDs[p] = data.points[p].ID;
            const double det = evaluate(p, e, finite, tied, w, v);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                w.results.clear();
                return element_geometry_error;
            }
            const bool strain = result == result_strain;
            const strain8& g = strain ? v.eps : v.sigma;
            voigt6 membrane{g[0], g[1], 0.0, g[2], g[6], g[7]}, bending{g[3], g[4], 0.0, g[5], 0.0, 0.0};
            if (strain) {
                rotate_strain_to_global(v.Q, membrane);
                rotate_strain_to_global(v.Q, bending);
            } else {
                rotate_stress_to_global(v.Q, membrane);
                rotate_stress_to_global(v.Q, bending);
            }
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = v.x[i];
            for (unsigned i = 0; i < 6; ++i) {
                w.results(3 + i, p) = membrane[i];
                w.results(9 + i, p) = bending[i];
            }
        }
        return no_error;
    }

private:
    struct element_data {
        double x[nbr_nodes][3];
        double u[nbr_full];
        section_temperature<nbr_nodes> temperature;
        double size2 = 0.0; // the longest edge between corners, squared
        // Finite variant: the turned positions, the reference normals at the nodes,
        // the directors Lambda(theta_a) T_a with their first and second derivatives
        // in theta_a, and the covariant shears at the tying points.
        double xd[nbr_nodes][3];
        double T[nbr_nodes][3];
        double t[nbr_nodes][3];
        double dt[nbr_nodes][3][3];    // (i, j): d t_i / d theta_j
        double d2t[nbr_nodes][3][3][3]; // (i, j, k)
        double tied_value[nbr_tying];
    };

    struct point_values {
        double x[3];
        frame3 Q;                 // columns e1, e2, e3
        double dNs[nbr_nodes][2]; // gradients on the surface frame
        double B[8][nbr_full];
        strain8 eps;
        section8 D;
        strain8 sigma;
        double energy_density;
        double weight;
        double N[nbr_nodes];
        double J[3];     // J00, J10, J11 of the surface frame
        double xs[2][3]; // finite variant: the turned position's gradients along e1, e2
    };

    struct surface_item {
        double N;
        double dN[2];
    };

    static void fill_items(const Shape& shape, const double* r, surface_item (&items)[nbr_nodes])
    {
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            double d[Shape::dim] = {};
            items[a].N = shape[a].value(r);
            shape[a].derivatives(r, d);
            items[a].dN[0] = d[0];
            items[a].dN[1] = d[1];
        }
    }

    template <class Items>
    static void tangents(const Items& items, const double (*x)[3], double (&t)[2][3])
    {
        for (unsigned k = 0; k < 2; ++k)
            for (unsigned i = 0; i < 3; ++i) {
                double s = 0.0;
                for (unsigned a = 0; a < nbr_nodes; ++a) s += x[a][i] * items[a].dN[k];
                t[k][i] = s;
            }
    }
    static void cross(const double* a, const double* b, double* c)
    {
        c[0] = a[1] * b[2] - a[2] * b[1];
        c[1] = a[2] * b[0] - a[0] * b[2];
        c[2] = a[0] * b[1] - a[1] * b[0];
    }
    static double norm(const double* a) { return std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]); }
    static double dot(const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        // A plate lies in the plane normal to its axis, whatever the third coordinate.
        if constexpr (Axis < 3)
            for (unsigned a = 0; a < nbr_nodes; ++a) e.x[a][Axis] = 0.0;
        double u[nbr_DOFs];
        gather_values<nbr_nodes>(w.U, nodes, places, u);
        for (unsigned i = 0; i < nbr_full; ++i) e.u[i] = 0.0;
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < base::nbr_places; ++k) e.u[6 * a + places[k]] = u[a * base::nbr_places + k];
        e.temperature.read(w, nodes);
        if constexpr (finite)
            if (!turn_directors(e)) return element_geometry_error;
        if constexpr (Modifier::shear_stabilisation > 0.0) {
            e.size2 = 0.0;
            for (unsigned a = 0; a < 3; ++a) {
                const double* p = e.x[a];
                const double* q = e.x[(a + 1) % 3];
                const double d[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]};
                e.size2 = std::max(e.size2, dot(d, d));
            }
        }
        return no_error;
    }

    // t_a = Lambda(theta_a) T_a on jets over the node's three rotations.
    bool turn_directors(element_data& e) const
    {
        using J = jet2<3>;
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            double tg[2][3];
            tangents(node_items[a], e.x, tg);
            cross(tg[0], tg[1], e.T[a]);
            const double l = norm(e.T[a]);
            if (!(l > 0.0) || !std::isfinite(l)) return false;
            for (unsigned i = 0; i < 3; ++i) {
                e.T[a][i] /= l;
                e.xd[a][i] = e.x[a][i] + e.u[6 * a + i];
            }
            const J theta[3] = {J::variable(0, e.u[6 * a + 3]), J::variable(1, e.u[6 * a + 4]),
                                J::variable(2, e.u[6 * a + 5])};
            const J s = theta[0] * theta[0] + theta[1] * theta[1] + theta[2] * theta[2];
            J ca, cb, cc;
            turn_coefficients(s, ca, cb, cc);
            const J T[3] = {J(e.T[a][0]), J(e.T[a][1]), J(e.T[a][2])};
            J t[3];
            turn_transposed(theta, -ca, cb, T, t); // Lambda = (Lambda^T)^T: the sign of a flips
            for (unsigned i = 0; i < 3; ++i) {
                if (!std::isfinite(t[i].v)) return false;
                e.t[a][i] = t[i].v;
                for (unsigned j = 0; j < 3; ++j) {
                    e.dt[a][i][j] = t[i].g[j];
                    for (unsigned k = 0; k < 3; ++k) e.d2t[a][i][j][k] = t[i].h[j][k];
                }
            }
        }
        return true;
    }

    // Row of the gradient of y . x over six DOFs a node, x = sum dx_a xd_a and
    // y = sum cy_a t_a (director terms) or y = sum cy_a xd_a (two positions).
    static void director_row(const element_data& e, const double* dx, const double* x, const double* cy,
                             const double* y, double* row)
    {
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i) {
                row[6 * a + i] += dx[a] * y[i];
                double s = 0.0;
                for (unsigned k = 0; k < 3; ++k) s += x[k] * e.dt[a][k][i];
                row[6 * a + 3 + i] += cy[a] * s;
            }
    }
    // Hessian of s (x . y), x = sum dx_a xd_a, y = sum cy_a t_a, into K's upper triangle.
    static void director_hessian(const element_data& e, double s, const double* dx, const double* x, const double* cy)
    {
        for (unsigned b = 0; b < nbr_nodes; ++b) {
            const double sc = s * cy[b];
            if (sc == 0.0) continue;
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                const double m = dx[a] * sc;
                if (m == 0.0) continue;
                for (unsigned i = 0; i < 3; ++i)
                    for (unsigned j = 0; j < 3; ++j) {
                        const unsigned r = 6 * a + i, c = 6 * b + 3 + j;
                        K[std::min(r, c)][std::max(r, c)] += m * e.dt[b][i][j];
                    }
            }
            for (unsigned j = 0; j < 3; ++j)
                for (unsigned k = j; k < 3; ++k) {
                    double d = 0.0;
                    for (unsigned i = 0; i < 3; ++i) d += x[i] * e.d2t[b][i][j][k];
                    K[6 * b + 3 + j][6 * b + 3 + k] += sc * d;
                }
        }
    }
    template <class Items>
    static void combine(const Items& items, unsigned k, const double (*x)[3], double* out)
    {
        for (unsigned i = 0; i < 3; ++i) {
            double s = 0.0;
            for (unsigned a = 0; a < nbr_nodes; ++a) s += x[a][i] * (k < 2 ? items[a].dN[k] : items[a].N);
            out[i] = s;
        }
    }

    // Finite variant, at tying point t: x,k . t - X,k . T and its row.
    void finite_tying_row(const element_data& e, unsigned t, double* row, double& value) const
    {
        const unsigned k = Modifier::tying[t].component;
        const auto& it = tying_items[t];
        double X[3], x[3], T[3], y[3], dx[nbr_nodes], cy[nbr_nodes];
        combine(it, k, e.x, X);
        combine(it, k, e.xd, x);
        combine(it, 2, e.T, T);
        combine(it, 2, e.t, y);
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            dx[a] = it[a].dN[k];
            cy[a] = it[a].N;
        }
        for (unsigned i = 0; i < nbr_full; ++i) row[i] = 0.0;
        director_row(e, dx, x, cy, y, row);
        value = dot(x, y) - dot(X, T);
    }

    // The finite variant's second derivatives through the directors: the bending
    // and shear forces times the Hessians of x,a . t,b and x,a . t (the membrane
    // part is add_geometric's).
    void add_turn_geometric(const element_data& e, const point_values (&v)[nbr_points]) const
    {
        double tying_weight[nbr_tying] = {};
        for (unsigned p = 0; p < nbr_points; ++p) {
            const point_values& q = v[p];
            double d1[nbr_nodes], d2[nbr_nodes];
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                d1[a] = q.dNs[a][0];
                d2[a] = q.dNs[a][1];
            }
            const double w = q.weight;
            director_hessian(e, w * q.sigma[3], d1, q.xs[0], d1);
            director_hessian(e, w * q.sigma[4], d2, q.xs[1], d2);
            director_hessian(e, w * q.sigma[5], d1, q.xs[0], d2);
            director_hessian(e, w * q.sigma[5], d2, q.xs[1], d1);
            if constexpr (Modifier::nbr_tying > 0) {
                // gamma_1 = c_0 / J00, gamma_2 = (c_1 - J10 gamma_1) / J11 with c_k = sum c_kt g_t.
                const auto& c = tying_coefficients[p];
                const double J00 = q.J[0], J10 = q.J[1], J11 = q.J[2];
                for (unsigned t = 0; t < nbr_tying; ++t) {
                    const double g1 = c[0][t] / J00, g2 = (c[1][t] - J10 * g1) / J11;
                    tying_weight[t] += w * (q.sigma[6] * g1 + q.sigma[7] * g2);
                }
            } else {
                director_hessian(e, w * q.sigma[6], d1, q.xs[0], q.N);
                director_hessian(e, w * q.sigma[7], d2, q.xs[1], q.N);
            }
        }
        if constexpr (Modifier::nbr_tying > 0)
            for (unsigned t = 0; t < nbr_tying; ++t) {
                const unsigned k = Modifier::tying[t].component;
                const auto& it = tying_items[t];
                double x[3], dx[nbr_nodes], cy[nbr_nodes];
                combine(it, k, e.xd, x);
                for (unsigned a = 0; a < nbr_nodes; ++a) {
                    dx[a] = it[a].dN[k];
                    cy[a] = it[a].N;
                }
                director_hessian(e, tying_weight[t], dx, x, cy);
            }
    }

    // Rows of the covariant transverse shears at the tying points, on six DOFs a
    // node: n.du/dr_k + t_k.(theta x n) = n.du/dr_k + theta.(n x t_k).
    bool tying_rows(element_data& e, double (&rows)[2 * nbr_tying][nbr_full]) const
    {
        for (unsigned t = 0; t < Modifier::nbr_tying; ++t) {
            if constexpr (finite) {
                finite_tying_row(e, t, rows[t], e.tied_value[t]);
                continue;
            }
            const unsigned k = Modifier::tying[t].component;
            double tg[2][3], n[3], nt[3];
            tangents(tying_items[t], e.x, tg);
            cross(tg[0], tg[1], n);
            const double l = norm(n);
            if (!(l > 0.0)) return false;
            for (double& c : n) c /= l;
            cross(n, tg[k], nt);
            double* row = rows[t];
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned i = 0; i < 3; ++i) {
                    row[6 * a + i] = n[i] * tying_items[t][a].dN[k];
                    row[6 * a + 3 + i] = nt[i] * tying_items[t][a].N;
                }
        }
        return true;
    }

    // The frame, B, the strains and the law at point p; returns the surface measure
    // per unit of reference measure, and stops there when it is not positive.
    double evaluate(unsigned p, const element_data& e, bool green_lagrange,
                    const double (&tied)[2 * nbr_tying][nbr_full], element_work_type& w, point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        double t[2][3], e3[3];
        tangents(items, e.x, t);
        cross(t[0], t[1], e3);
        const double det = norm(e3), l1 = norm(t[0]);
        if (!(det > 0.0) || !(l1 > 0.0) || !std::isfinite(det)) return 0.0;
        double e1[3], e2[3];
        for (unsigned i = 0; i < 3; ++i) {
            e1[i] = t[0][i] / l1;
            e3[i] /= det;
        }
        cross(e3, e1, e2);
        for (unsigned i = 0; i < 3; ++i) {
            v.Q(i, 0) = e1[i];
            v.Q(i, 1) = e2[i];
            v.Q(i, 2) = e3[i];
        }
        point_of<Shape>(items, e.x, v.x);
        // J(k, alpha) = t_k . e_alpha, lower triangular since t_0 lies along e1.
        const double J00 = l1, J10 = dot(t[1], e1), J11 = dot(t[1], e2);
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            v.dNs[a][0] = items[a].dN[0] / J00;
            v.dNs[a][1] = (items[a].dN[1] - J10 * v.dNs[a][0]) / J11;
            v.N[a] = items[a].N;
        }
        v.J[0] = J00, v.J[1] = J10, v.J[2] = J11;
        if constexpr (finite) {
            finite_strains(p, e, tied, v);
            return finish_point(p, e, w, v, det);
        }
        // Gradients of the displacement along e1, e2, for the finite membrane terms.
        double g[2][3] = {{e1[0], e1[1], e1[2]}, {e2[0], e2[1], e2[2]}};
        double du[2][3] = {};
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i) {
                du[0][i] += e.u[6 * a + i] * v.dNs[a][0];
                du[1][i] += e.u[6 * a + i] * v.dNs[a][1];
            }
        if (green_lagrange)
            for (unsigned k = 0; k < 2; ++k)
                for (unsigned i = 0; i < 3; ++i) g[k][i] += du[k][i];
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            const double N = items[a].N, n1 = v.dNs[a][0], n2 = v.dNs[a][1];
            for (unsigned i = 0; i < 3; ++i) {
                const unsigned u = 6 * a + i, r = 6 * a + 3 + i;
                v.B[0][u] = g[0][i] * n1;
                v.B[1][u] = g[1][i] * n2;
                v.B[2][u] = g[0][i] * n2 + g[1][i] * n1;
                v.B[3][u] = v.B[4][u] = v.B[5][u] = 0.0;
                v.B[6][u] = e3[i] * n1;
                v.B[7][u] = e3[i] * n2;
                // The director turns by theta x e3: beta_1 = theta.e2, beta_2 = -theta.e1.
                v.B[0][r] = v.B[1][r] = v.B[2][r] = 0.0;
                v.B[3][r] = e2[i] * n1;
                v.B[4][r] = -e1[i] * n2;
                v.B[5][r] = e2[i] * n2 - e1[i] * n1;
                v.B[6][r] = e2[i] * N;
                v.B[7][r] = -e1[i] * N;
            }
        }
        if constexpr (Modifier::nbr_tying > 0) {
            // Covariant shears interpolated from the tying points, then to the frame:
            // gamma_cov = J gamma, so gamma_1 = c_0 / J00, gamma_2 = (c_1 - J10 gamma_1) / J11.
            const auto& c = tying_coefficients[p];
            for (unsigned i = 0; i < nbr_full; ++i) {
                double c0 = 0.0, c1 = 0.0;
                for (unsigned t = 0; t < nbr_tying; ++t) {
                    c0 += c[0][t] * tied[t][i];
                    c1 += c[1][t] * tied[t][i];
                }
                v.B[6][i] = c0 / J00;
                v.B[7][i] = (c1 - J10 * v.B[6][i]) / J11;
            }
        }
        // Linear strains from B (with g = e in small strain); Green-Lagrange adds
        // half the products of the gradients to the membrane strains.
        for (unsigned m = 0; m < 8; ++m) {
            double s = 0.0;
            if (green_lagrange && m < 3) continue;
            for (unsigned i = 0; i < nbr_full; ++i) s += v.B[m][i] * e.u[i];
            v.eps[m] = s;
        }
        if (green_lagrange) {
            v.eps[0] = dot(e1, du[0]) + 0.5 * dot(du[0], du[0]);
            v.eps[1] = dot(e2, du[1]) + 0.5 * dot(du[1], du[1]);
            v.eps[2] = dot(e1, du[1]) + dot(e2, du[0]) + dot(du[0], du[1]);
        }
        return finish_point(p, e, w, v, det);
    }

    // The finite variant's strains in the reference surface frame, from the turned
    // positions x and directors t: membrane (x,a . x,b - X,a . X,b) / 2, bending
    // (x,a . t,b + x,b . t,a - X,a . T,b - X,b . T,a) / 2, shear x,a . t - X,a . T,
    // engineering shears for the off-diagonal terms; B their gradient.
    void finite_strains(unsigned p, const element_data& e, const double (&tied)[2 * nbr_tying][nbr_full],
                        point_values& v) const
    {
        double d[2][nbr_nodes];
        for (unsigned a = 0; a < nbr_nodes; ++a) d[0][a] = v.dNs[a][0], d[1][a] = v.dNs[a][1];
        double X[2][3], T[3], dT[2][3], t[3], dt[2][3];
        for (unsigned i = 0; i < 3; ++i) {
            X[0][i] = X[1][i] = v.xs[0][i] = v.xs[1][i] = T[i] = t[i] = 0.0;
            dT[0][i] = dT[1][i] = dt[0][i] = dt[1][i] = 0.0;
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                for (unsigned k = 0; k < 2; ++k) {
                    X[k][i] += d[k][a] * e.x[a][i];
                    v.xs[k][i] += d[k][a] * e.xd[a][i];
                    dT[k][i] += d[k][a] * e.T[a][i];
                    dt[k][i] += d[k][a] * e.t[a][i];
                }
                T[i] += v.N[a] * e.T[a][i];
                t[i] += v.N[a] * e.t[a][i];
            }
        }
        const double(&x)[2][3] = v.xs;
        for (unsigned m = 0; m < 8; ++m)
            for (unsigned i = 0; i < nbr_full; ++i) v.B[m][i] = 0.0;
        v.eps[0] = 0.5 * (dot(x[0], x[0]) - dot(X[0], X[0]));
        v.eps[1] = 0.5 * (dot(x[1], x[1]) - dot(X[1], X[1]));
        v.eps[2] = dot(x[0], x[1]) - dot(X[0], X[1]);
        v.eps[3] = dot(x[0], dt[0]) - dot(X[0], dT[0]);
        v.eps[4] = dot(x[1], dt[1]) - dot(X[1], dT[1]);
        v.eps[5] = dot(x[0], dt[1]) + dot(x[1], dt[0]) - dot(X[0], dT[1]) - dot(X[1], dT[0]);
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i) {
                v.B[0][6 * a + i] = d[0][a] * x[0][i];
                v.B[1][6 * a + i] = d[1][a] * x[1][i];
                v.B[2][6 * a + i] = d[0][a] * x[1][i] + d[1][a] * x[0][i];
            }
        director_row(e, d[0], x[0], d[0], dt[0], v.B[3]);
        director_row(e, d[1], x[1], d[1], dt[1], v.B[4]);
        director_row(e, d[0], x[0], d[1], dt[1], v.B[5]);
        director_row(e, d[1], x[1], d[0], dt[0], v.B[5]);
        if constexpr (Modifier::nbr_tying > 0) {
            // The same covariant interpolation as the small variant's, on values and rows.
            const auto& c = tying_coefficients[p];
            for (unsigned i = 0; i <= nbr_full; ++i) {
                double c0 = 0.0, c1 = 0.0;
                for (unsigned k = 0; k < nbr_tying; ++k) {
                    const double g = i < nbr_full ? tied[k][i] : e.tied_value[k];
                    c0 += c[0][k] * g;
                    c1 += c[1][k] * g;
                }
                const double g1 = c0 / v.J[0], g2 = (c1 - v.J[1] * g1) / v.J[2];
                (i < nbr_full ? v.B[6][i] : v.eps[6]) = g1;
                (i < nbr_full ? v.B[7][i] : v.eps[7]) = g2;
            }
        } else {
            v.eps[6] = dot(x[0], t) - dot(X[0], T);
            v.eps[7] = dot(x[1], t) - dot(X[1], T);
            director_row(e, d[0], x[0], v.N, t, v.B[6]);
            director_row(e, d[1], x[1], v.N, t, v.B[7]);
        }
    }

    // The law at point p, from the strains in v.
    double finish_point(unsigned p, const element_data& e, element_work_type& w, point_values& v, double det) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        // The law sees the strains less those of the section's temperatures.
        const law_key key{w.model, w.element, data.points[p].ID};
        strain8 mechanical = v.eps;
        if (e.temperature.n != 0) {
            double T[3];
            strain8 thermal;
            e.temperature.at(items, T);
            physics->law->get_thermal_strain(key, T, e.temperature.n, thermal);
            for (unsigned m = 0; m < 8; ++m) mechanical[m] -= thermal[m];
        }
        physics->law->get_stress(key, mechanical, v.D, v.sigma, v.energy_density);
        if constexpr (Modifier::shear_stabilisation > 0.0) stabilise_shear(e, mechanical, v);
        return det;
    }

    // D becomes S D S, S scaling the transverse shears by sqrt(f), f = h^2 / (h^2 +
    // alpha h_e^2), h^2 from the section as 12 (D33 - D03^2 / D00) / D00 (an offset
    // left out); the stresses and energy follow from it. A section without
    // membrane is left as it is.
    void stabilise_shear(const element_data& e, const strain8& eps, point_values& v) const
    {
        const double D00 = v.D(0, 0);
        if (!(D00 > 0.0)) return;
        const double h2 = 12.0 * (v.D(3, 3) - v.D(0, 3) * v.D(0, 3) / D00) / D00;
        if (!(h2 > 0.0)) return;
        const double f = h2 / (h2 + Modifier::shear_stabilisation * e.size2), s = std::sqrt(f);
        for (unsigned m = 0; m < 8; ++m)
            for (unsigned l = m; l < 8; ++l) v.D(m, l) *= (m < 6 ? 1.0 : s) * (l < 6 ? 1.0 : s);
        double energy = 0.0;
        for (unsigned m = 0; m < 8; ++m) {
            double sum = 0.0;
            for (unsigned l = 0; l < 8; ++l) sum += v.D(m, l) * eps[l];
            v.sigma[m] = sum;
            energy += sum * eps[m];
        }
        v.energy_density = 0.5 * energy;
    }

    error_type fail(element_work_type& w) const
    {
        w.Ke.clear();
        w.Fe.clear();
        w.energy = 0.0;
        return element_geometry_error;
    }

    void add_BDBt(const point_values& v, double wf) const
    {
        double C[8][nbr_full];
        for (unsigned m = 0; m < 8; ++m)
            for (unsigned i = 0; i < nbr_full; ++i) {
                double s = 0.0;
                for (unsigned l = 0; l < 8; ++l) s += v.D(m, l) * v.B[l][i];
                C[m][i] = wf * s;
            }
        for (unsigned i = 0; i < nbr_full; ++i)
            for (unsigned j = i; j < nbr_full; ++j) {
                double s = 0.0;
                for (unsigned m = 0; m < 8; ++m) s += v.B[m][i] * C[m][j];
                K[i][j] += s;
            }
    }

    // The membrane forces on the translations, once the points are known:
    // K(ai, bi) += w dN_a/ds_alpha N_alpha_beta dN_b/ds_beta.
    void add_geometric(const point_values (&v)[nbr_points]) const
    {
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double N11 = v[p].sigma[0], N22 = v[p].sigma[1], N12 = v[p].sigma[2];
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned b = a; b < nbr_nodes; ++b) {
                    const double* na = v[p].dNs[a];
                    const double* nb = v[p].dNs[b];
                    const double g = v[p].weight * (na[0] * (N11 * nb[0] + N12 * nb[1]) +
                                                    na[1] * (N12 * nb[0] + N22 * nb[1]));
                    for (unsigned i = 0; i < 3; ++i) K[6 * a + i][6 * b + i] += g;
                }
        }
    }

    // A penalty c / 2 (n_a . theta_a)^2 at each node, c = max(0, f S) / nbr_nodes.
    void add_drilling(const element_data& e, double area, element_work_type& w, bool matrix, bool vector) const
    {
        const double f = context && *context ? (*context)->shell_drilling_factor : 1e-6;
        const auto translations = physics->law->get_stiffness_range(displacement_tag);
        const auto rotations = physics->law->get_stiffness_range(rotation_tag);
        const double S = std::fmin(translations.first, rotations.first / area);
        const double c = std::fmax(0.0, f * S) / nbr_nodes * w.factor;
        if (!(c > 0.0)) return;
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            double t[2][3], n[3];
            tangents(node_items[a], e.x, t);
            cross(t[0], t[1], n);
            const double l = norm(n);
            if (!(l > 0.0)) continue;
            for (double& x : n) x /= l;
            const unsigned r = 6 * a + 3;
            const double drill = n[0] * e.u[r] + n[1] * e.u[r + 1] + n[2] * e.u[r + 2];
            w.energy += 0.5 * c * drill * drill;
            for (unsigned i = 0; i < 3; ++i) {
                if (vector) F[r + i] -= c * drill * n[i];
                if (matrix)
                    for (unsigned j = i; j < 3; ++j) K[r + i][r + j] += c * n[i] * n[j];
            }
        }
    }

    // The element's own DOFs out of the six a node.
    void keep_places(element_work_type& w, bool matrix, bool vector) const
    {
        unsigned full[nbr_DOFs];
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < base::nbr_places; ++k) full[a * base::nbr_places + k] = 6 * a + places[k];
        if (matrix)
            for (unsigned j = 0; j < nbr_DOFs; ++j)
                for (unsigned i = 0; i <= j; ++i) {
                    const unsigned fi = std::min(full[i], full[j]), fj = std::max(full[i], full[j]);
                    w.Ke(i, j) = K[fi][fj];
                }
        if (vector)
            for (unsigned i = 0; i < nbr_DOFs; ++i) w.Fe[i] = F[full[i]];
        if (!matrix) w.Ke.clear();
    }

    surface_item tying_items[nbr_tying][nbr_nodes] = {};
    surface_item node_items[nbr_nodes][nbr_nodes] = {};
    double tying_coefficients[nbr_points][2][nbr_tying] = {};

    // Per-thread scratch of the six-DOF element.
    static thread_local double K[nbr_full][nbr_full];
    static thread_local double F[nbr_full];
};

template <class Physics, class Shape, class Points, class Formulation, unsigned Axis>
thread_local double shell_server<Physics, Shape, Points, Formulation, Axis>::K[nbr_full][nbr_full];
template <class Physics, class Shape, class Points, class Formulation, unsigned Axis>
thread_local double shell_server<Physics, Shape, Points, Formulation, Axis>::F[nbr_full];

// Loads on plates: the component along the plate's axis; on shells, all three.
template <class Physics, class Shape, class Points, unsigned Axis>
class shell_load_server : public distributed_load_server<Shape, Points> {
public:
    [[nodiscard]] error_type compute(const elementary_load& load, const unsigned* nodes, element_work_type& w) const
    {
        if (load.kind == load_heat) return invalid_data_error;
        if (auto e = this->compute_load(load, Physics::accepted_loads, nodes, w); e != no_error) return e;
        if constexpr (Axis < 3) {
            const unsigned n = Shape::nbr_nodes;
            for (unsigned a = 0; a < n; ++a) {
                w.Fe[a] = w.Fe[3 * a + Axis];
                w.DOFs[a] = w.DOFs[3 * a + Axis];
            }
            if (!w.Fe.resize(n) || !w.DOFs.resize(n)) return memory_error;
        }
        return no_error;
    }
};

// The consistent mass of shells: per point rho h N_a N_b on the translations, the
// rotary inertia on the rotations about the two tangents, and with an offset z the
// coupling of a translation with the turn of the director, u . (theta x n).
template <class Shape, class Points>
class shell_mass_server : public server_base<shell_mass, Shape, Points, six_places> {
public:
    using base = server_base<shell_mass, Shape, Points, six_places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    static constexpr unsigned first_code = 0;
    static constexpr unsigned second_code = 0;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_mass; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_mass) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, true, false))
            return memory_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], n[3];
            const double det = surface_map<Shape>(items, x, point, n);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0) || !std::isfinite(det)) {
                w.Ke.clear();
                return element_geometry_error;
            }
            for (double& c : n) c /= det;
            const auto s = physics->law->get_section(law_key{w.model, w.element, data.points[p].ID});
            const double wf = det * data.points[p].weight * w.factor;
            // Blocks of one pair of nodes, per unit of N_a N_b: translations,
            // rotations (I - n n^T), and u_i theta_j: -(rho h z) [n]x.
            double R[3][3], C[3][3];
            const double S[3][3] = {{0.0, -n[2], n[1]}, {n[2], 0.0, -n[0]}, {-n[1], n[0], 0.0}};
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = 0; j < 3; ++j) {
                    R[i][j] = s.rotation * ((i == j ? 1.0 : 0.0) - n[i] * n[j]);
                    C[i][j] = -s.coupling * S[i][j];
                }
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a < nbr_nodes; ++a) {
                    const double m = wf * items[a].N * items[b].N;
                    for (unsigned i = 0; i < 3; ++i)
                        for (unsigned j = 0; j < 3; ++j) {
                            // Row a, column b: (u, u), (u, theta), (theta, u), (theta, theta).
                            add(w, 6 * a + i, 6 * b + j, m * ((i == j ? s.translation : 0.0)));
                            add_coupling(w, 6 * a + i, 6 * b + 3 + j, m * C[i][j]);
                            add(w, 6 * a + 3 + i, 6 * b + 3 + j, m * R[i][j]);
                        }
                }
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }

private:
    // Adds to the packed upper triangle; each pair of the full matrix comes once
    // from (a, b) and once from (b, a), so the lower half is skipped.
    static void add(element_work_type& w, unsigned i, unsigned j, double value)
    {
        if (i <= j) w.Ke.data()[std::size_t(j) * (j + 1) / 2 + i] += value;
    }
    // A (translation, rotation) pair comes once: it goes where the triangle holds it.
    static void add_coupling(element_work_type& w, unsigned i, unsigned j, double value)
    {
        add(w, std::min(i, j), std::max(i, j), value);
    }
};

} // namespace kelt::core
