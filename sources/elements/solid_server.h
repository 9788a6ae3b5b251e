// The element routine of three-dimensional solids, one template for the 8 volume
// shapes, in small strain and in the finite variant (Green-Lagrange strain, total
// Lagrangian form), and the server of their body forces. Included by the solid
// family's translation unit only.
#pragma once

#include "kelt/core/bases_mgr.h"
#include "kelt/core/elementary_load.h"
#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"

namespace kelt::core {

// The formulation that leaves an element as its rule computed it.
template <class Shape>
struct regular_formulation {
    static void apply(element_work_type&) noexcept {}
};

// A formulation that replaces the volumetric strain of the points by one it
// computes per element (volume_projection.h): its element_data makes the
// replacement from the points' volumes, positions and gradients.
template <class Formulation>
concept projects_volume = requires { Formulation::projects_volume; };

template <class Formulation, unsigned NN, unsigned NP>
struct projection_data {
    struct type {};
};
template <projects_volume Formulation, unsigned NN, unsigned NP>
struct projection_data<Formulation, NN, NP> {
    using type = typename Formulation::template element_data<NN, NP>;
};

template <class Physics, class Shape, class Points, class Formulation>
class stiffness_server : public server_base<Physics, Shape, Points> {
public:
    using base = server_base<Physics, Shape, Points>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    using law_type = typename Physics::law_type;
    static constexpr bool finite = Physics::finite;
    // B and the gathered values have a row per element DOF, the 3 translations of a node.
    static_assert(base::nbr_places == 3);
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;
    static constexpr bool projecting = projects_volume<Formulation>;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    // Kind 1: the stiffness (matrix modes 0 to 3) and the vector of the opposite of
    // the internal forces. A solid has no part in a conduction problem: kind 6
    // gives nothing.
    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, matrix, vector))
            return memory_error;
        const bool green_lagrange = finite || w.matrix_mode == matrix_geometric;
        const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool geometric = w.matrix_mode == matrix_geometric || (finite && w.matrix_mode == matrix_tangent);
        error_type result = no_error;
        point_values v;
        double B[nbr_DOFs][6];
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double det = evaluate(p, e, green_lagrange, w, v);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = det * data.points[p].weight * w.factor;
            if (material || vector) {
                fill_B(v, B);
                if constexpr (projecting) e.projection.rows(p, B);
            }
            if (material && matrix) add_BDBt(B, v.D, wf, w.Ke.data());
            if (geometric && matrix) add_geometric(v, wf, w.Ke.data());
            if (vector && !is_zero(v.sigma)) add_internal_force(B, v.sigma, wf, w.Fe.data());
            w.energy += v.energy_density * wf;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
            return result;
        }
        Formulation::apply(w);
        return no_error;
    }

    // Strains (11) or stresses (12) at the points, in the global frame, under the
    // coordinates of each point.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result != result_strain && result != result_stress) return no_error;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!w.results.resize(9, nbr_points) || !w.point_IDs.resize(nbr_points) || !this->record_point_shapes(nodes, w))
            return memory_error;
        w.results = 0.0;
        error_type status = no_error;
        point_values v;
        for (unsigned p = 0; p < nbr_points; ++p) {
            w.point_IDs[p] = data.points[p].ID;
            const double det = evaluate(p, e, finite, w, v);
            w.weights.push_back(det * data.points[p].weight);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = v.x[i];
            if (!(det > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            voigt6 out = result == result_strain ? v.eps : v.sigma;
            if (v.oriented) {
                if (result == result_strain)
                    rotate_strain_to_global(v.Q, out);
                else
                    rotate_stress_to_global(v.Q, out);
            }
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = out[i];
        }
        if (status != no_error) w.results.clear();
        return status;
    }

private:
    // What an element brings to each of its points.
    struct element_data {
        double x[nbr_nodes][3];
        double u[nbr_DOFs];
        element_temperature<nbr_nodes> temperature;
        [[no_unique_address]] typename projection_data<Formulation, nbr_nodes, nbr_points>::type projection;
    };

    // What a point gives: the map, the material frame Q (columns: material axes),
    // the rows G of the B matrix (G[k] for a DOF of direction k), the strain and
    // the law's answer. Gradients n are in the material frame.
    struct point_values {
        double x[3];
        double n[nbr_nodes][3];
        bool oriented;
        frame3 Q;
        double G[3][3];
        voigt6 eps;
        constitutive6 D;
        voigt6 sigma;
        double energy_density;
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law) return invalid_data_error;
        // No kind of transformer is known to this family yet.
        if (transformer) return invalid_data_error;
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        gather_values<nbr_nodes>(w.U, nodes, places, e.u);
        e.temperature.read(w, nodes, data);
        if constexpr (projecting) {
            // The map at every point first; a point whose volume is not positive is
            // left to the point loop, which reports it once all points have run.
            double dV[nbr_points], x[nbr_points][3], n[nbr_points][nbr_nodes][3];
            bool positive = true;
            for (unsigned p = 0; p < nbr_points; ++p) {
                dV[p] = volume_map<Shape>(data.items[p], e.x, n[p], x[p]) * data.points[p].weight;
                positive = positive && dV[p] > 0.0;
            }
            if (!positive)
                e.projection = {};
            else if (!e.projection.make(dV, x, n))
                return element_geometry_error;
        }
        return no_error;
    }

    // The map, strain and law at point p; returns the determinant, and stops at the
    // map when it is not positive.
    double evaluate(unsigned p, const element_data& e, bool green_lagrange, element_work_type& w,
                    point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        const double det = volume_map<Shape>(items, e.x, v.n, v.x);
        if (!(det > 0.0)) return det;
        const law_type& law = *physics->law;
        const law_key key{w.model, w.element, data.points[p].ID};
        point3 at;
        for (unsigned i = 0; i < 3; ++i) at[i] = v.x[i];
        v.oriented = law.get_material_basis(key, at, v.Q);
        // Displacement gradient H(i, j) = du_i / dx_j, then both indices to the
        // material frame.
        double H[3][3] = {};
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = 0; j < 3; ++j) H[i][j] += e.u[3 * a + i] * v.n[a][j];
        if (v.oriented) {
            to_frame(v.Q, H);
            for (unsigned a = 0; a < nbr_nodes; ++a) to_frame(v.Q, v.n[a]);
        }
        strain(H, green_lagrange, v.eps);
        if constexpr (projecting) e.projection.strain(p, e.u, v.eps);
        // Rows of B: row k of Q F in the finite variant, of Q in small strain.
        for (unsigned k = 0; k < 3; ++k)
            for (unsigned i = 0; i < 3; ++i) {
                double g = 0.0;
                for (unsigned m = 0; m < 3; ++m) {
                    const double q = v.oriented ? v.Q(k, m) : (k == m ? 1.0 : 0.0);
                    const double f = finite ? (m == i ? 1.0 : 0.0) + H[m][i] : (m == i ? 1.0 : 0.0);
                    g += q * f;
                }
                v.G[k][i] = g;
            }
        voigt6 mechanical = v.eps;
        double T = 0.0;
        if (e.temperature.at(items, T)) {
            voigt6 thermal;
            law.get_thermal_strain(key, &T, 1, thermal);
            for (unsigned i = 0; i < 6; ++i) mechanical[i] -= thermal[i];
        }
        law.add_initial_strain(key, mechanical);
        const unsigned m = w.states_per_point;
        const double* state_in = w.committed_states ? w.committed_states + p * m : nullptr;
        double* state_out = w.trial_states ? w.trial_states + p * m : nullptr;
        law.get_stress(key, mechanical, v.D, v.sigma, v.energy_density, state_in, state_out);
        return det;
    }

    // H := Q^T H Q.
    static void to_frame(const frame3& Q, double (&H)[3][3])
    {
        double T[3][3] = {};
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j)
                for (unsigned m = 0; m < 3; ++m) T[i][j] += H[i][m] * Q(m, j);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) {
                double s = 0.0;
                for (unsigned m = 0; m < 3; ++m) s += Q(m, i) * T[m][j];
                H[i][j] = s;
            }
    }
    // n := Q^T n.
    static void to_frame(const frame3& Q, double (&n)[3])
    {
        const double g[3] = {n[0], n[1], n[2]};
        for (unsigned i = 0; i < 3; ++i) n[i] = Q(0, i) * g[0] + Q(1, i) * g[1] + Q(2, i) * g[2];
    }

    // Linear strain, or with the second-order terms the Green-Lagrange strain:
    // E = (H + H^T + H^T H) / 2, shears doubled.
    static void strain(const double (&H)[3][3], bool green_lagrange, voigt6& eps)
    {
        eps[0] = H[0][0];
        eps[1] = H[1][1];
        eps[2] = H[2][2];
        eps[3] = H[0][1] + H[1][0];
        eps[4] = H[0][2] + H[2][0];
        eps[5] = H[1][2] + H[2][1];
        if (!green_lagrange) return;
        const auto product = [&](unsigned i, unsigned j) { return H[0][i] * H[0][j] + H[1][i] * H[1][j] + H[2][i] * H[2][j]; };
        eps[0] += 0.5 * product(0, 0);
        eps[1] += 0.5 * product(1, 1);
        eps[2] += 0.5 * product(2, 2);
        eps[3] += product(0, 1);
        eps[4] += product(0, 2);
        eps[5] += product(1, 2);
    }

    static void fill_B(const point_values& v, double (&B)[nbr_DOFs][6])
    {
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            const double* n = v.n[a];
            for (unsigned k = 0; k < 3; ++k) {
                const double* f = v.G[k];
                double* row = B[3 * a + k];
                row[0] = f[0] * n[0];
                row[1] = f[1] * n[1];
                row[2] = f[2] * n[2];
                row[3] = f[1] * n[0] + f[0] * n[1];
                row[4] = f[0] * n[2] + f[2] * n[0];
                row[5] = f[2] * n[1] + f[1] * n[2];
            }
        }
    }

    // K += w B D B^T on the packed upper triangle, by columns. (w B D) is kept
    // transposed, so that each column of K is a sum of six contiguous rows.
    static void add_BDBt(const double (&B)[nbr_DOFs][6], const constitutive6& D, double w, double* K)
    {
        double C[6][nbr_DOFs];
        for (unsigned m = 0; m < 6; ++m) {
            double Dm[6];
            for (unsigned l = 0; l < 6; ++l) Dm[l] = w * D(l, m);
            for (unsigned i = 0; i < nbr_DOFs; ++i) {
                const double* b = B[i];
                C[m][i] = b[0] * Dm[0] + b[1] * Dm[1] + b[2] * Dm[2] + b[3] * Dm[3] + b[4] * Dm[4] + b[5] * Dm[5];
            }
        }
        for (unsigned j = 0; j < nbr_DOFs; ++j) {
            const double* b = B[j];
            double* column = K + std::size_t(j) * (j + 1) / 2;
            for (unsigned i = 0; i <= j; ++i)
                column[i] += C[0][i] * b[0] + C[1][i] * b[1] + C[2][i] * b[2] + C[3][i] * b[3] + C[4][i] * b[4] +
                             C[5][i] * b[5];
        }
    }

    // K(ak, bk) += w n_a^T S n_b for DOFs of the same direction.
    static void add_geometric(const point_values& v, double w, double* K)
    {
        const voigt6& s = v.sigma;
        const double S[3][3] = {{s[0], s[3], s[4]}, {s[3], s[1], s[5]}, {s[4], s[5], s[2]}};
        double Sn[nbr_nodes][3];
        for (unsigned b = 0; b < nbr_nodes; ++b)
            for (unsigned i = 0; i < 3; ++i)
                Sn[b][i] = w * (S[i][0] * v.n[b][0] + S[i][1] * v.n[b][1] + S[i][2] * v.n[b][2]);
        for (unsigned b = 0; b < nbr_nodes; ++b)
            for (unsigned a = 0; a <= b; ++a) {
                const double g = v.n[a][0] * Sn[b][0] + v.n[a][1] * Sn[b][1] + v.n[a][2] * Sn[b][2];
                for (unsigned k = 0; k < 3; ++k) {
                    const unsigned i = 3 * a + k, j = 3 * b + k;
                    K[std::size_t(j) * (j + 1) / 2 + i] += g;
                }
            }
    }

    static void add_internal_force(const double (&B)[nbr_DOFs][6], const voigt6& sigma, double w, double* F)
    {
        for (unsigned i = 0; i < nbr_DOFs; ++i) {
            double s = 0.0;
            for (unsigned m = 0; m < 6; ++m) s += B[i][m] * sigma[m];
            F[i] -= w * s;
        }
    }

    static bool is_zero(const voigt6& s) noexcept
    {
        for (unsigned i = 0; i < 6; ++i)
            if (s[i] != 0.0) return false;
        return true;
    }
};

} // namespace kelt::core
