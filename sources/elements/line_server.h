// The element routines of line elements: rods along their axis, Timoshenko beams in
// closed form (two nodes, small strain) and integrated (three nodes, and the finite
// variant), and the section temperatures that beams read. Included by the line
// family's translation unit only.
#pragma once

#include <cmath>

#include "kelt/elements/element_frame.h"
#include "kelt/core/finite_rotation.h"
#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"

namespace kelt::core {

// The frame of a line element from its first two nodes and an orientation vector.
template <unsigned NN>
error_type line_element_frame(const dense2D<double>& pos, const unsigned* nodes, const double (&orientation)[3],
                              double (&x)[NN][3], frame3& frame, double& length)
{
    if (auto e = gather_nodes<NN>(pos, nodes, x); e != no_error) return e;
    return line_frame(x[0], x[1], orientation, frame, length);
}

// v_local = frame^T v_global for each group of three.
template <unsigned N>
void to_local(const frame3& R, const double (&g)[N], double (&l)[N])
{
    for (unsigned b = 0; b < N / 3; ++b)
        for (unsigned i = 0; i < 3; ++i)
            l[3 * b + i] = R(0, i) * g[3 * b] + R(1, i) * g[3 * b + 1] + R(2, i) * g[3 * b + 2];
}

// ---------------------------------------------------------------------------------
// Rods: one point, the strain of the length along the axis; in the finite variant
// the engineering strain of the current length, with the geometric term in the
// current direction.

template <class Physics, class Points>
class rod_server : public server_base<Physics, elfes::shape_edge2, Points> {
public:
    using base = server_base<Physics, elfes::shape_edge2, Points>;
    using base::data, base::physics, base::transformer, base::places;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool finite = Physics::finite;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        axial_state s;
        if (auto e = evaluate(nodes, w, s); e != no_error) return e;
        const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
        if (!list_DOFs<2>(nodes, places, w.DOFs) || !size_outputs(w, 6, matrix, vector)) return memory_error;
        const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool geometric = w.matrix_mode == matrix_geometric || (finite && w.matrix_mode == matrix_tangent);
        double k3[3][3];
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j)
                k3[i][j] = w.factor * ((material ? s.k / s.L * s.d[i] * s.d[j] : 0.0) +
                                       (geometric ? s.f / s.l * ((i == j ? 1.0 : 0.0) - s.d[i] * s.d[j]) : 0.0));
        if (matrix)
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = i; j < 3; ++j) {
                    w.Ke(i, j) = w.Ke(i + 3, j + 3) = k3[i][j];
                    w.Ke(i, j + 3) = w.Ke(j, i + 3) = -k3[i][j];
                }
        if (vector)
            for (unsigned i = 0; i < 3; ++i) {
                w.Fe[i] = w.factor * s.f * s.d[i];
                w.Fe[i + 3] = -w.Fe[i];
            }
        w.energy += w.factor * s.energy * s.L;
        return no_error;
    }

    // The axial strain (11) or force (12) in row 3, at the middle of the rod.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result == result_along) return along(nodes, w);
        if (result != result_strain && result != result_stress) return no_error;
        axial_state s;
        if (auto e = evaluate(nodes, w, s); e != no_error) return e;
        if (!w.results.resize(4, 1) || !w.point_IDs.resize(1)) return memory_error;
        w.point_IDs[0] = data.points[0].ID;
        for (unsigned i = 0; i < 3; ++i) w.results(i, 0) = s.middle[i];
        w.results(3, 0) = result == result_strain ? s.strain : s.f;
        return no_error;
    }

private:
    struct axial_state {
        double L, l, d[3], middle[3], strain, k, f, energy;
    };

    // The axial force along the rod: that of its stretch less the share of the
    // element's loads at node 2, plus the axial load between x and node 2; the
    // displacement between the nodes' ones.
    error_type along(const unsigned* nodes, element_work_type& w) const
    {
        axial_state s;
        if (auto e = evaluate(nodes, w, s); e != no_error) return e;
        const unsigned n = w.abscissas.size();
        if (!w.results.resize(15, n) || !w.point_IDs.resize(n)) return memory_error;
        double f[6] = {}, x[2][3], u[6];
        // The loads come on six places a node, as for beams; a rod takes the translations.
        for (unsigned k = 0; k < 3 && w.element_loads.size() >= 12; ++k)
            f[k] = w.element_loads[k], f[3 + k] = w.element_loads[6 + k];
        if (auto e = gather_nodes<2>(w.pos, nodes, x); e != no_error) return e;
        gather_values<2>(w.U, nodes, places, u);
        double f2 = 0.0, q = 0.0;
        for (unsigned k = 0; k < 3; ++k) {
            f2 += s.d[k] * f[3 + k];
            q += s.d[k] * (f[k] + f[3 + k]) / s.L;
        }
        for (unsigned p = 0; p < n; ++p) {
            const double a = w.abscissas[p];
            w.point_IDs[p] = p;
            for (unsigned i = 0; i < 15; ++i) w.results(i, p) = 0.0;
            for (unsigned k = 0; k < 3; ++k) {
                w.results(k, p) = x[0][k] + a * (x[1][k] - x[0][k]);
                w.results(3 + k, p) = u[k] + a * (u[3 + k] - u[k]);
            }
            w.results(9, p) = s.f - f2 + q * (1.0 - a) * s.L;
        }
        return no_error;
    }

    error_type evaluate(const unsigned* nodes, element_work_type& w, axial_state& s) const
    {
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[2][3], u[6];
        if (auto e = gather_nodes<2>(w.pos, nodes, x); e != no_error) return e;
        gather_values<2>(w.U, nodes, places, u);
        double a[3], c[3];
        for (unsigned i = 0; i < 3; ++i) {
            a[i] = x[1][i] - x[0][i];
            c[i] = a[i] + u[3 + i] - u[i];
            s.middle[i] = 0.5 * (x[0][i] + x[1][i]);
        }
        s.L = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
        s.l = std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]);
        w.weights.push_back(s.L);
        if (!(s.L > 0.0) || !std::isfinite(s.L) || (finite && !(s.l > 0.0))) return element_geometry_error;
        if (finite) {
            for (unsigned i = 0; i < 3; ++i) s.d[i] = c[i] / s.l;
            s.strain = (s.l - s.L) / s.L;
        } else {
            s.l = s.L;
            for (unsigned i = 0; i < 3; ++i) s.d[i] = a[i] / s.L;
            s.strain = (s.d[0] * (u[3] - u[0]) + s.d[1] * (u[4] - u[1]) + s.d[2] * (u[5] - u[2])) / s.L;
        }
        const law_key key{w.model, w.element, data.points[0].ID};
        double mechanical = s.strain;
        element_temperature<2> temperature;
        temperature.read(w, nodes, data);
        double T = 0.0;
        if (temperature.at(data.items[0], T)) physics->law->get_thermal_strain(key, T, mechanical);
        physics->law->add_initial_strain(key, mechanical);
        const double* state_in = w.committed_states;
        double* state_out = w.trial_states;
        physics->law->get_force(key, mechanical, s.k, s.f, s.energy, state_in, state_out);
        return no_error;
    }
};

// ---------------------------------------------------------------------------------
// Beams. Local DOFs of a node: ux, uy, uz, rx, ry, rz in the element's frame.
// Generalised strains: u', ry', rz', rx', uy' - rz, uz' + ry.

// The loads of the closed-form beam: a uniform force q per unit length is the
// pair of end forces q L / 2 and the end moments +-(L^2 / 12) e_x x q that hold the
// exact element's ends fixed under it, so that its nodal motions stay exact under
// loads between the nodes too (for a constant section, with or without shear
// flexibility; a tapered one takes the moments of its mean section).
template <class Physics>
class closed_beam_load_server {
public:
    [[nodiscard]] error_type compute(const elementary_load& load, const unsigned* nodes, element_work_type& w) const
    {
        if (load.kind >= 32 || !(Physics::accepted_loads & load_bit(load.kind)) || load.values.empty())
            return invalid_data_error;
        double x[2][3];
        if (auto e = gather_nodes<2>(w.pos, nodes, x); e != no_error) return e;
        const double d[3] = {x[1][0] - x[0][0], x[1][1] - x[0][1], x[1][2] - x[0][2]};
        const double L = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        if (!(L > 0.0) || !std::isfinite(L)) return element_geometry_error;
        if (!list_DOFs<2>(nodes, six_places, w.DOFs) || !size_outputs(w, 12, false, true)) return memory_error;
        double q[3] = {};
        for (unsigned k = 0; k < 3 && k < load.values.size(); ++k) q[k] = load.values[k] * w.factor;
        // (L^2 / 12) e_x x q with e_x = d / L.
        const double m[3] = {(d[1] * q[2] - d[2] * q[1]) * L / 12.0, (d[2] * q[0] - d[0] * q[2]) * L / 12.0,
                             (d[0] * q[1] - d[1] * q[0]) * L / 12.0};
        for (unsigned k = 0; k < 3; ++k) {
            w.Fe[k] = w.Fe[6 + k] = 0.5 * q[k] * L;
            w.Fe[3 + k] = m[k];
            w.Fe[9 + k] = -m[k];
        }
        return no_error;
    }
};

// The two-node beam in closed form. The element is the exact solution of a
// cantilever between its nodes: the flexibility F of node 2 with node 1 clamped is
// the integral of B^T D^-1 B, B taking the end loads to the section forces, and
// K = G^T F^-1 G with G d = d2 - (rigid motion of node 1 carried to node 2). Shear
// flexibility, offsets, a product of inertia and a taper all come through D, so the
// section's principal axes need not be formed. Section forces are exact for
// end loads; a tapered section is integrated with 6 points.
template <class Physics>
class stiffness_server_lin_beam
    : public server_base<Physics, elfes::shape_edge2, local_points_set<Gauss_edge, 1>, six_places> {
public:
    using base = server_base<Physics, elfes::shape_edge2, local_points_set<Gauss_edge, 1>, six_places>;
    using base::data, base::physics, base::transformer, base::places;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type element_basis(const unsigned* nodes, const dense2D<double>& pos, const DOF_values_view*,
                                           frame3& basis) const
    {
        return beam_basis<2>(physics.get(), nodes, pos, basis);
    }

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        cantilever c;
        if (auto e = solve(nodes, w, c); e != no_error) return e;
        const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
        if (!list_DOFs<2>(nodes, places, w.DOFs) || !size_outputs(w, 12, matrix, vector)) return memory_error;
        if (matrix && w.matrix_mode != matrix_geometric)
            for (unsigned j = 0; j < 12; ++j)
                for (unsigned i = 0; i <= j; ++i) {
                    double s = 0.0;
                    for (unsigned a = 0; a < 6; ++a)
                        for (unsigned b = 0; b < 6; ++b) s += c.Gam[a][i] * c.K2(a, b) * c.Gam[b][j];
                    w.Ke(i, j) = w.factor * s;
                }
        if (matrix && w.matrix_mode == matrix_geometric) add_geometric(c.P2[0], c.L, w.factor, w.Ke);
        if (vector)
            for (unsigned i = 0; i < 12; ++i) {
                double s = 0.0;
                for (unsigned a = 0; a < 6; ++a) s += c.Gam[a][i] * c.P2[a];
                w.Fe[i] = -w.factor * s;
            }
        w.energy += w.factor * c.energy;
        rotate_to_global(c.R, 4, w.Ke, w.Fe);
        return no_error;
    }

    // Section forces (12: N, My, Mz, T, Vy, Vz) or generalised strains (11) at the
    // two ends, in the element's frame, under each node's coordinates.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result == result_along) return along(nodes, w);
        if (result != result_strain && result != result_stress) return no_error;
        cantilever c;
        if (auto e = solve(nodes, w, c); e != no_error) return e;
        if (!w.results.resize(9, 2) || !w.point_IDs.resize(2)) return memory_error;
        for (unsigned p = 0; p < 2; ++p) {
            const double xi = p == 0 ? -1.0 : 1.0;
            w.point_IDs[p] = Gauss_edge::base + 50 + p;
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = c.x[p][i];
            double B[6][6], s[6], s0[6];
            section_map(c.L, xi, B);
            physics->law->get_initial_forces(c.key, xi, s0);
            for (unsigned i = 0; i < 6; ++i) {
                s[i] = s0[i];
                for (unsigned j = 0; j < 6; ++j) s[i] += B[i][j] * c.P2[j];
            }
            if (result == result_strain) {
                section6 D;
                physics->law->get_section(c.key, xi, D);
                double C[6][6];
                if (!invert(D, C)) return invalid_data_error;
                double e[6];
                for (unsigned i = 0; i < 6; ++i) {
                    e[i] = 0.0;
                    for (unsigned j = 0; j < 6; ++j) e[i] += C[i][j] * (s[j] - s0[j]);
                }
                for (unsigned i = 0; i < 6; ++i) s[i] = e[i];
            }
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = s[i];
        }
        return no_error;
    }

    // The frame of a beam element whose law gives the orientation.
    template <unsigned NN>
    static error_type beam_basis(const Physics* physics, const unsigned* nodes, const dense2D<double>& pos,
                                 frame3& basis)
    {
        if (!physics || !physics->law) return invalid_data_error;
        double y[3], x[NN][3], L;
        if (!physics->law->get_orientation(law_key{}, y)) return invalid_data_error;
        return line_element_frame<NN>(pos, nodes, y, x, basis, L);
    }

private:
    struct cantilever;

    // The element as the cantilever that it is between its nodes: the end loads at
    // node 2 are those of its stiffness less the share of the element's loads that
    // went to node 2; the section forces at x are those end loads carried back to x
    // plus the uniform load between x and node 2. Rotations and displacements are
    // the section strains integrated from node 1 (a rule exact for the quadratic
    // moments of a uniform load on a constant section); thermal strains are not
    // among them.
    error_type along(const unsigned* nodes, element_work_type& w) const
    {
        cantilever c;
        if (auto e = solve(nodes, w, c); e != no_error) return e;
        const unsigned n = w.abscissas.size();
        if (!w.results.resize(15, n) || !w.point_IDs.resize(n)) return memory_error;
        double fg[12] = {}, f[12], ug[12], u[12];
        for (unsigned i = 0; i < 12 && i < w.element_loads.size(); ++i) fg[i] = w.element_loads[i];
        to_local(c.R, fg, f);
        gather_values<2>(w.U, nodes, places, ug);
        to_local(c.R, ug, u);
        double P[6], q[3];
        for (unsigned i = 0; i < 6; ++i) P[i] = c.P2[i] - f[6 + i];
        for (unsigned i = 0; i < 3; ++i) q[i] = (f[i] + f[6 + i]) / c.L;
        const law_beam_stiff& law = *physics->law;
        // The section forces of the uniform load alone on the cantilever, at x.
        const auto loaded = [&](double x, double (&s)[6]) {
            const double r = c.L - x;
            s[0] = q[0] * r, s[4] = q[1] * r, s[5] = q[2] * r;
            s[1] = -q[2] * r * r / 2.0, s[2] = q[1] * r * r / 2.0, s[3] = 0.0;
        };
        // Displacements come from the end loads that the nodes' motion and the load
        // give the exact element, P2 - K2 dq with dq the free end's motion under the
        // load alone, so that they reach node 2 whatever share of the load the
        // element's load routine gave its nodes; forces come from statics with that
        // share, which keeps them in balance with the loads.
        double dq[6] = {}, Pd[6];
        for (unsigned g = 0; g < 6; ++g) {
            const Gauss_edge point(g, 6);
            const double xi = point.x[0], x = 0.5 * c.L * (1.0 + xi), wg = 0.5 * c.L * point.weight;
            section6 D;
            double C[6][6], B[6][6], s[6];
            if (!law.get_section(c.key, xi, D) || !invert(D, C)) return invalid_data_error;
            section_map(c.L, xi, B);
            loaded(x, s);
            for (unsigned j = 0; j < 6; ++j)
                for (unsigned i = 0; i < 6; ++i)
                    for (unsigned k = 0; k < 6; ++k) dq[j] += wg * B[i][j] * C[i][k] * s[k];
        }
        for (unsigned i = 0; i < 6; ++i) {
            Pd[i] = c.P2[i];
            for (unsigned j = 0; j < 6; ++j) Pd[i] -= c.K2(i, j) * dq[j];
        }
        // Section forces at x from end loads E, and the strains there.
        const auto at = [&](double x, const double (&E)[6], double (&s)[6]) {
            double B[6][6], l[6];
            section_map(c.L, 2.0 * x / c.L - 1.0, B);
            loaded(x, l);
            for (unsigned i = 0; i < 6; ++i) {
                s[i] = l[i];
                for (unsigned j = 0; j < 6; ++j) s[i] += B[i][j] * E[j];
            }
        };
        const auto forces = [&](double x, double (&s)[6]) { at(x, P, s); };
        const auto strains = [&](double x, double (&e)[6]) -> bool {
            const double xi = 2.0 * x / c.L - 1.0;
            section6 D;
            double C[6][6], s[6], s0[6];
            if (!law.get_section(c.key, xi, D) || !invert(D, C)) return false;
            law.get_initial_forces(c.key, xi, s0);
            at(x, Pd, s);
            for (unsigned i = 0; i < 6; ++i) {
                e[i] = 0.0;
                for (unsigned j = 0; j < 6; ++j) e[i] += C[i][j] * (s[j] - s0[j]);
            }
            return true;
        };
        static constexpr double gx[4] = {-0.8611363115940526, -0.3399810435848563, 0.3399810435848563,
                                         0.8611363115940526};
        static constexpr double gw[4] = {0.3478548451374538, 0.6521451548625461, 0.6521451548625461,
                                         0.3478548451374538};
        for (unsigned p = 0; p < n; ++p) {
            const double a = w.abscissas[p], x = a * c.L;
            w.point_IDs[p] = p;
            double rot[3] = {u[3], u[4], u[5]};
            double dis[3] = {u[0], u[1] + u[5] * x, u[2] - u[4] * x};
            for (unsigned g = 0; g < 4 && x > 0.0; ++g) {
                const double z = 0.5 * x * (1.0 + gx[g]), wz = 0.5 * x * gw[g];
                double e[6];
                if (!strains(z, e)) return invalid_data_error;
                rot[0] += wz * e[3], rot[1] += wz * e[1], rot[2] += wz * e[2];
                dis[0] += wz * e[0];
                dis[1] += wz * (e[4] + (x - z) * e[2]);
                dis[2] += wz * (e[5] - (x - z) * e[1]);
            }
            double s[6];
            forces(x, s);
            for (unsigned k = 0; k < 3; ++k) {
                w.results(k, p) = c.x[0][k] + a * (c.x[1][k] - c.x[0][k]);
                w.results(3 + k, p) = c.R(k, 0) * dis[0] + c.R(k, 1) * dis[1] + c.R(k, 2) * dis[2];
                w.results(6 + k, p) = c.R(k, 0) * rot[0] + c.R(k, 1) * rot[1] + c.R(k, 2) * rot[2];
            }
            const double out[6] = {s[0], s[4], s[5], s[3], s[1], s[2]};
            for (unsigned i = 0; i < 6; ++i) w.results(9 + i, p) = out[i];
        }
        return no_error;
    }

    struct cantilever {
        law_key key;
        double x[2][3];
        double L;
        frame3 R;
        double Gam[6][12]; // G: d2 - rigid motion of node 1
        section6 K2;       // F^-1
        double P2[6];      // end loads at node 2
        double energy;
    };

    // Section forces at xi of the loads P at node 2: s = B(xi) P.
    static void section_map(double L, double xi, double (&B)[6][6])
    {
        const double r = 0.5 * L * (1.0 - xi); // from the section to node 2
        for (auto& row : B)
            for (double& v : row) v = 0.0;
        B[0][0] = 1.0;
        B[1][4] = 1.0, B[1][2] = -r;
        B[2][5] = 1.0, B[2][1] = r;
        B[3][3] = 1.0;
        B[4][1] = 1.0;
        B[5][2] = 1.0;
    }

    // Inverse of a symmetric positive definite 6 x 6 by Gauss-Jordan on its pivots;
    // false when a pivot is not positive.
    static bool invert(const section6& D, double (&C)[6][6])
    {
        double A[6][6];
        for (unsigned i = 0; i < 6; ++i)
            for (unsigned j = 0; j < 6; ++j) {
                A[i][j] = D(i, j);
                C[i][j] = i == j ? 1.0 : 0.0;
            }
        for (unsigned k = 0; k < 6; ++k) {
            const double p = A[k][k];
            if (!(p > 0.0) || !std::isfinite(p)) return false;
            for (unsigned j = 0; j < 6; ++j) A[k][j] /= p, C[k][j] /= p;
            for (unsigned i = 0; i < 6; ++i)
                if (i != k) {
                    const double m = A[i][k];
                    for (unsigned j = 0; j < 6; ++j) A[i][j] -= m * A[k][j], C[i][j] -= m * C[k][j];
                }
        }
        return true;
    }

    error_type solve(const unsigned* nodes, element_work_type& w, cantilever& c) const
    {
        if (!physics || !physics->law || transformer) return invalid_data_error;
        const law_beam_stiff& law = *physics->law;
        c.key = law_key{w.model, w.element, data.points[0].ID};
        double y[3];
        if (!law.get_orientation(c.key, y)) return invalid_data_error;
        if (auto e = line_element_frame<2>(w.pos, nodes, y, c.x, c.R, c.L); e != no_error) return e;
        w.weights.push_back(c.L);
        // Flexibility and the free end motion of the section's own strains (thermal,
        // initial forces), by the rule that is exact for a constant section.
        section_temperature<2> temperature;
        temperature.read(w, nodes);
        const bool tapered = law.get_data().size() == 31;
        const unsigned n = tapered ? 6 : 3;
        double F[6][6] = {}, dT[6] = {};
        for (unsigned g = 0; g < n; ++g) {
            const Gauss_edge point(g, n);
            const double xi = point.x[0], wg = 0.5 * c.L * point.weight;
            section6 D;
            double C[6][6], B[6][6], s0[6], T[3], eT[3];
            if (!law.get_section(c.key, xi, D) || !invert(D, C)) return invalid_data_error;
            section_map(c.L, xi, B);
            law.get_initial_forces(c.key, xi, s0);
            const double N[2] = {0.5 * (1.0 - xi), 0.5 * (1.0 + xi)};
            kinematic_item<elfes::shape_edge2> items[2];
            items[0].N = N[0], items[1].N = N[1];
            temperature.at(items, T);
            law.get_thermal_strain(c.key, T, temperature.n, eT);
            double e0[6];
            for (unsigned i = 0; i < 6; ++i) {
                e0[i] = i < 3 ? eT[i] : 0.0;
                for (unsigned j = 0; j < 6; ++j) e0[i] -= C[i][j] * s0[j];
            }
            double CB[6][6];
            for (unsigned i = 0; i < 6; ++i)
                for (unsigned j = 0; j < 6; ++j) {
                    CB[i][j] = 0.0;
                    for (unsigned k = 0; k < 6; ++k) CB[i][j] += C[i][k] * B[k][j];
                }
            for (unsigned i = 0; i < 6; ++i) {
                for (unsigned j = 0; j < 6; ++j)
                    for (unsigned k = 0; k < 6; ++k) F[i][j] += wg * B[k][i] * CB[k][j];
                for (unsigned k = 0; k < 6; ++k) dT[i] += wg * B[k][i] * e0[k];
            }
        }
        section6 Fs;
        for (unsigned j = 0; j < 6; ++j)
            for (unsigned i = 0; i <= j; ++i) Fs(i, j) = 0.5 * (F[i][j] + F[j][i]);
        double K2[6][6];
        if (!invert(Fs, K2)) return invalid_data_error;
        for (unsigned j = 0; j < 6; ++j)
            for (unsigned i = 0; i <= j; ++i) c.K2(i, j) = 0.5 * (K2[i][j] + K2[j][i]);
        // G = [-R1 | I], R1 carrying node 1's motion to node 2: u2 = u1 + r1 x L ex.
        for (auto& row : c.Gam)
            for (double& v : row) v = 0.0;
        for (unsigned i = 0; i < 6; ++i) {
            c.Gam[i][i] = -1.0;
            c.Gam[i][6 + i] = 1.0;
        }
        c.Gam[1][5] = -c.L;
        c.Gam[2][4] = c.L;
        double ug[12], ul[12];
        gather_values<2>(w.U, nodes, places, ug);
        to_local(c.R, ug, ul);
        double d[6];
        for (unsigned a = 0; a < 6; ++a) {
            d[a] = -dT[a];
            for (unsigned i = 0; i < 12; ++i) d[a] += c.Gam[a][i] * ul[i];
        }
        c.energy = 0.0;
        for (unsigned a = 0; a < 6; ++a) {
            c.P2[a] = 0.0;
            for (unsigned b = 0; b < 6; ++b) c.P2[a] += c.K2(a, b) * d[b];
            c.energy += 0.5 * d[a] * c.P2[a];
        }
        return no_error;
    }

    // The geometric stiffness of an axial force N with cubic deflections in both
    // planes: N / L (6/5, L/10, 2 L^2/15, -L^2/30), the rotation coupling of the
    // z plane of opposite sign since uz' = -ry.
    static void add_geometric(double N, double L, double factor, symmetric_full<double>& K)
    {
        const double c = factor * N / L;
        const double k[4][4] = {{6.0 / 5.0, L / 10.0, -6.0 / 5.0, L / 10.0},
                                {L / 10.0, 2.0 * L * L / 15.0, -L / 10.0, -L * L / 30.0},
                                {-6.0 / 5.0, -L / 10.0, 6.0 / 5.0, -L / 10.0},
                                {L / 10.0, -L * L / 30.0, -L / 10.0, 2.0 * L * L / 15.0}};
        const unsigned y_plane[4] = {1, 5, 7, 11}, z_plane[4] = {2, 4, 8, 10};
        const double z_sign[4] = {1.0, -1.0, 1.0, -1.0};
        for (unsigned i = 0; i < 4; ++i)
            for (unsigned j = i; j < 4; ++j) {
                K(y_plane[i], y_plane[j]) += c * k[i][j];
                K(z_plane[i], z_plane[j]) += c * z_sign[i] * z_sign[j] * k[i][j];
            }
    }
};

// The integrated beam: generalised strains at the points of a reduced rule, the
// section matrix, and in the finite variant (or for the geometric matrix) the
// axial strain with its second-order terms.
template <class Physics, class Shape, class Points>
class beam_server : public server_base<Physics, Shape, Points, six_places> {
public:
    using base = server_base<Physics, Shape, Points, six_places>;
    using base::data, base::physics, base::transformer, base::places, base::nbr_nodes, base::nbr_points,
        base::nbr_DOFs;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool finite = Physics::finite;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type element_basis(const unsigned* nodes, const dense2D<double>& pos, const DOF_values_view*,
                                           frame3& basis) const
    {
        return stiffness_server_lin_beam<Physics>::template beam_basis<nbr_nodes>(physics.get(), nodes, pos, basis);
    }

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, matrix, vector))
            return memory_error;
        const bool second_order = finite || w.matrix_mode == matrix_geometric;
        const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool geometric = w.matrix_mode == matrix_geometric || (finite && w.matrix_mode == matrix_tangent);
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            point_values v;
            const double J = evaluate(p, e, second_order, w, v);
            w.weights.push_back(J * data.points[p].weight);
            if (!(J > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = J * data.points[p].weight * w.factor;
            if (material && matrix)
                for (unsigned j = 0; j < nbr_DOFs; ++j) {
                    double DB[6];
                    for (unsigned m = 0; m < 6; ++m) {
                        DB[m] = 0.0;
                        for (unsigned l = 0; l < 6; ++l) DB[m] += v.D(m, l) * v.B[j][l];
                    }
                    for (unsigned i = 0; i <= j; ++i) {
                        double s = 0.0;
                        for (unsigned m = 0; m < 6; ++m) s += v.B[i][m] * DB[m];
                        w.Ke(i, j) += wf * s;
                    }
                }
            if (geometric && matrix && finite)
                add_finite_geometric(data.items[p], v, wf, w.Ke);
            else if (geometric && matrix)
                for (unsigned b = 0; b < nbr_nodes; ++b)
                    for (unsigned a = 0; a <= b; ++a)
                        for (unsigned k = 0; k < 3; ++k) w.Ke(6 * a + k, 6 * b + k) += wf * v.s[0] * v.dN[a] * v.dN[b];
            if (vector)
                for (unsigned i = 0; i < nbr_DOFs; ++i) {
                    double s = 0.0;
                    for (unsigned m = 0; m < 6; ++m) s += v.B[i][m] * v.s[m];
                    w.Fe[i] -= wf * s;
                }
            w.energy += wf * v.energy_density;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
            return result;
        }
        rotate_to_global(e.R, 2 * nbr_nodes, w.Ke, w.Fe);
        return no_error;
    }

    // Section forces (12) or generalised strains (11) at the points, in the
    // element's frame.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result != result_strain && result != result_stress) return no_error;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!w.results.resize(9, nbr_points) || !w.point_IDs.resize(nbr_points)) return memory_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            point_values v;
            if (!(evaluate(p, e, finite, w, v) > 0.0)) return element_geometry_error;
            w.point_IDs[p] = data.points[p].ID;
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = v.x[i];
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = result == result_strain ? v.e[i] : v.s[i];
        }
        return no_error;
    }

private:
    struct element_data {
        double x[nbr_nodes][3];
        frame3 R;
        double L;
        double u[nbr_DOFs]; // local
        section_temperature<nbr_nodes> temperature;
    };
    struct point_values {
        double x[3], dN[nbr_nodes];
        double B[nbr_DOFs][6];
        section6 D;
        double e[6], s[6];
        double energy_density;
        // Finite: the forces times the second derivatives of the strains over
        // z = (du, r, dr), filled once the forces are known.
        double Gz[9][9];
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double y[3];
        if (!physics->law->get_orientation(law_key{w.model, w.element, 0}, y)) return invalid_data_error;
        if (auto err = line_element_frame<nbr_nodes>(w.pos, nodes, y, e.x, e.R, e.L); err != no_error) return err;
        double ug[nbr_DOFs];
        gather_values<nbr_nodes>(w.U, nodes, places, ug);
        to_local(e.R, ug, e.u);
        e.temperature.read(w, nodes);
        return no_error;
    }

    // Strains, B, D and the section forces at point p; returns the length per unit
    // of xi, and stops there when it is not positive.
    double evaluate(unsigned p, const element_data& e, bool second_order, element_work_type& w,
                    point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        double normal[3];
        const double J = surface_map<Shape>(items, e.x, v.x, normal);
        if (!(J > 0.0)) return J;
        const law_beam_stiff& law = *physics->law;
        const law_key key{w.model, w.element, data.points[p].ID};
        double du[3] = {}, r[3] = {}, dr[3] = {};
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            v.dN[a] = items[a].dN[0] / J;
            for (unsigned k = 0; k < 3; ++k) {
                du[k] += v.dN[a] * e.u[6 * a + k];
                dr[k] += v.dN[a] * e.u[6 * a + 3 + k];
                r[k] += items[a].N * e.u[6 * a + 3 + k];
            }
        }
        // Finite rotations: the strains and their derivatives over z from jets.
        jet2<9> ej[finite ? 6 : 1];
        if constexpr (finite) {
            jet2<9> zu[3], zr[3], zd[3];
            for (unsigned k = 0; k < 3; ++k) {
                zu[k] = jet2<9>::variable(k, du[k]);
                zr[k] = jet2<9>::variable(3 + k, r[k]);
                zd[k] = jet2<9>::variable(6 + k, dr[k]);
            }
            finite_line_strains(zu, zr, zd, ej);
            for (unsigned m = 0; m < 6; ++m) v.e[m] = ej[m].v;
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                const double n = v.dN[a], N = items[a].N;
                double(*B)[6] = v.B + 6 * a;
                for (unsigned m = 0; m < 6; ++m)
                    for (unsigned k = 0; k < 3; ++k) {
                        B[k][m] = ej[m].g[k] * n;
                        B[3 + k][m] = ej[m].g[3 + k] * N + ej[m].g[6 + k] * n;
                    }
            }
        } else {
            v.e[0] = du[0] + (second_order ? 0.5 * (du[0] * du[0] + du[1] * du[1] + du[2] * du[2]) : 0.0);
            v.e[1] = dr[1];
            v.e[2] = dr[2];
            v.e[3] = dr[0];
            v.e[4] = du[1] - r[2];
            v.e[5] = du[2] + r[1];
        }
        for (unsigned a = 0; a < nbr_nodes && !finite; ++a) {
            const double n = v.dN[a], N = items[a].N;
            double(*B)[6] = v.B + 6 * a;
            for (unsigned i = 0; i < 6; ++i)
                for (unsigned m = 0; m < 6; ++m) B[i][m] = 0.0;
            B[0][0] = n;
            B[1][4] = n;
            B[2][5] = n;
            B[3][3] = n;
            B[4][1] = n, B[4][5] = N;
            B[5][2] = n, B[5][4] = -N;
        }
        // xi of the point along the element, from the first node to the second.
        double xi = 0.0;
        for (unsigned k = 0; k < 3; ++k) xi += (v.x[k] - e.x[0][k]) * e.R(k, 0);
        xi = 2.0 * xi / e.L - 1.0;
        law.get_section(key, xi, v.D);
        double T[3], eT[3], s0[6], m[6];
        e.temperature.at(items, T);
        law.get_thermal_strain(key, T, e.temperature.n, eT);
        law.get_initial_forces(key, xi, s0);
        for (unsigned i = 0; i < 6; ++i) m[i] = v.e[i] - (i < 3 ? eT[i] : 0.0);
        v.energy_density = 0.0;
        for (unsigned i = 0; i < 6; ++i) {
            v.s[i] = s0[i];
            for (unsigned j = 0; j < 6; ++j) v.s[i] += v.D(i, j) * m[j];
            double elastic = 0.0;
            for (unsigned j = 0; j < 6; ++j) elastic += v.D(i, j) * m[j];
            v.energy_density += 0.5 * m[i] * elastic;
        }
        if constexpr (finite)
            for (unsigned k = 0; k < 9; ++k)
                for (unsigned l = 0; l < 9; ++l) {
                    double g = 0.0;
                    for (unsigned i = 0; i < 6; ++i) g += v.s[i] * ej[i].h[k][l];
                    v.Gz[k][l] = g;
                }
        return J;
    }

    // Ke += wf (dz/dq)^T Gz (dz/dq): a translation k of node a moves du_k by
    // dN_a, a rotation k moves r_k by N_a and dr_k by dN_a.
    void add_finite_geometric(const kinematic_item<Shape>* items, const point_values& v, double wf,
                              symmetric_full<double>& Ke) const
    {
        for (unsigned j = 0; j < nbr_DOFs; ++j) {
            const unsigned b = j / 6, l = j % 6;
            for (unsigned i = 0; i <= j; ++i) {
                const unsigned a = i / 6, k = i % 6;
                double s;
                if (k < 3 && l < 3)
                    s = v.dN[a] * v.Gz[k][l] * v.dN[b];
                else if (k < 3)
                    s = v.dN[a] * (v.Gz[k][l] * items[b].N + v.Gz[k][l + 3] * v.dN[b]);
                else if (l < 3)
                    s = (items[a].N * v.Gz[k][l] + v.dN[a] * v.Gz[k + 3][l]) * v.dN[b];
                else
                    s = items[a].N * (v.Gz[k][l] * items[b].N + v.Gz[k][l + 3] * v.dN[b]) +
                        v.dN[a] * (v.Gz[k + 3][l] * items[b].N + v.Gz[k + 3][l + 3] * v.dN[b]);
                Ke(i, j) += wf * s;
            }
        }
    }
};


// ---------------------------------------------------------------------------------
// Mass of lines: per point the section's mass per unit length between the shape
// values, M_ab = sum w N_a N_b m. Rods carry a law_scalar mass per unit length on
// their translations; beams the section mass of a law_beam_mass on six DOFs per
// node, in the element's frame and turned to the global one.

template <class Physics, class Shape, class Points, const auto& Places>
class line_mass_server : public server_base<Physics, Shape, Points, Places> {
public:
    using base = server_base<Physics, Shape, Points, Places>;
    using base::data, base::physics, base::transformer, base::places, base::nbr_nodes, base::nbr_points,
        base::nbr_DOFs, base::nbr_places;
    static constexpr bool beam = nbr_places == 6;
    static constexpr unsigned first_code = 0;
    static constexpr unsigned second_code = 0;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_mass; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_mass) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        frame3 R;
        if constexpr (beam) {
            double y[3], L;
            if (!physics->law->get_orientation(law_key{w.model, w.element, 0}, y)) return invalid_data_error;
            if (auto e = line_element_frame<nbr_nodes>(w.pos, nodes, y, x, R, L); e != no_error) return e;
        } else if (auto e = gather_nodes<nbr_nodes>(w.pos, nodes, x); e != no_error)
            return e;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, true, false))
            return memory_error;
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3];
            const double J = surface_map<Shape>(items, x, point, normal);
            w.weights.push_back(J * data.points[p].weight);
            if (!(J > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const law_key key{w.model, w.element, data.points[p].ID};
            section6 m;
            if constexpr (beam) {
                double xi = 0.0, L2 = 0.0;
                for (unsigned k = 0; k < 3; ++k) {
                    xi += (point[k] - x[0][k]) * (x[1][k] - x[0][k]);
                    L2 += (x[1][k] - x[0][k]) * (x[1][k] - x[0][k]);
                }
                physics->law->get_section_mass(key, 2.0 * xi / L2 - 1.0, m);
            } else {
                const double rho = physics->law->get_value(key);
                for (unsigned k = 0; k < 3; ++k) m(k, k) = rho;
            }
            const double wf = J * data.points[p].weight * w.factor;
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a) {
                    const double n = wf * items[a].N * items[b].N;
                    for (unsigned k = 0; k < nbr_places; ++k)
                        for (unsigned l = 0; l < nbr_places; ++l) {
                            const unsigned i = nbr_places * a + k, j = nbr_places * b + l;
                            if (i <= j) w.Ke(i, j) += n * m(k, l);
                        }
                }
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        if constexpr (beam) {
            dense1D<double, 8> none;
            rotate_to_global(R, 2 * nbr_nodes, w.Ke, none);
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }
};

// ---------------------------------------------------------------------------------
// A spring bed on lines or faces: the law's force per unit measure of the
// translation along the physics' direction, at each point.

template <class Physics, class Shape, class Points>
class distributed_spring_server : public server_base<Physics, Shape, Points> {
public:
    using base = server_base<Physics, Shape, Points>;
    using base::data, base::physics, base::transformer, base::places, base::nbr_nodes, base::nbr_points,
        base::nbr_DOFs;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        const bool matrix = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool vector = w.vector_mode == 1;
        double x[nbr_nodes][3], u[nbr_DOFs];
        if (auto e = gather_nodes<nbr_nodes>(w.pos, nodes, x); e != no_error) return e;
        gather_values<nbr_nodes>(w.U, nodes, places, u);
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) ||
            !size_outputs(w, nbr_DOFs, w.matrix_mode != matrix_none, vector))
            return memory_error;
        const double* d = physics->direction;
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3];
            const double J = surface_map<Shape>(items, x, point, normal);
            w.weights.push_back(J * data.points[p].weight);
            if (!(J > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            double s = 0.0;
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned k = 0; k < 3; ++k) s += items[a].N * d[k] * u[3 * a + k];
            double k, f, energy;
            const unsigned m = w.states_per_point;
            const double* state_in = w.committed_states ? w.committed_states + p * m : nullptr;
            double* state_out = w.trial_states ? w.trial_states + p * m : nullptr;
            physics->law->get_force(law_key{w.model, w.element, data.points[p].ID}, s, k, f, energy, state_in,
                                    state_out);
            const double wf = J * data.points[p].weight * w.factor;
            if (matrix)
                for (unsigned b = 0; b < nbr_nodes; ++b)
                    for (unsigned a = 0; a <= b; ++a)
                        for (unsigned i = 0; i < 3; ++i)
                            for (unsigned j = 0; j < 3; ++j)
                                if (3 * a + i <= 3 * b + j)
                                    w.Ke(3 * a + i, 3 * b + j) += wf * k * items[a].N * items[b].N * d[i] * d[j];
            if (vector)
                for (unsigned a = 0; a < nbr_nodes; ++a)
                    for (unsigned i = 0; i < 3; ++i) w.Fe[3 * a + i] -= wf * f * items[a].N * d[i];
            w.energy += wf * energy;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
        }
        return result;
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }
};

// ---------------------------------------------------------------------------------
// Steady conduction along a line: k dN_a/ds dN_b/ds, the law being the
// conductivity times the section.

template <class Physics, class Shape, class Points>
class line_conduction_server : public server_base<Physics, Shape, Points, temperature_places> {
public:
    using base = server_base<Physics, Shape, Points, temperature_places>;
    using base::data, base::physics, base::transformer, base::places, base::nbr_nodes, base::nbr_points;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool lists_DOFs(pass_kind kind) noexcept
    {
        return kind == kind_conduction || kind == kind_thermal_load;
    }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_conduction) return no_error;
        if (!physics || !physics->law || transformer) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, x); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_nodes, true, false))
            return memory_error;
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3];
            const double J = surface_map<Shape>(items, x, point, normal);
            w.weights.push_back(J * data.points[p].weight);
            if (!(J > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double k = physics->law->get_value(law_key{w.model, w.element, data.points[p].ID});
            const double wf = k * data.points[p].weight * w.factor / J;
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a) w.Ke(a, b) += wf * items[a].dN[0] * items[b].dN[0];
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }
};

} // namespace kelt::core
