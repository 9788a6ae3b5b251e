// The element routines of the families that work on faces: membranes (plane stress
// in each face's own frame, in space), plane strain and axisymmetric solids (in a
// plane of the global axes), axisymmetric torsion, surface and axisymmetric masses,
// conduction in faces, and the loads of the plane and axisymmetric families. They
// follow the point loop of the solids. Included by the plane family's translation
// unit only.
#pragma once

#include <type_traits>

#include "kelt/elements/element_kinematics.h"
#include "kelt/elements/element_loads.h"
#include "kelt/elements/physics.h"
#include "kelt/elements/solid_server.h"

namespace kelt::core {

inline constexpr double two_pi = 6.283185307179586;

// The axisymmetric rows: a point weighs 2 pi r, and the hoop strain is u_r / r.
template <class Shape>
struct axi_formulation {
    static void apply(element_work_type&) noexcept {}
};
template <class F> struct is_axisymmetric : std::false_type {};
template <class S> struct is_axisymmetric<axi_formulation<S>> : std::true_type {};

// What a load density is multiplied by at a point: 1, or 2 pi r on the meridian
// plane x (radius), y (axis).
struct load_identity_factor {
    static double at(const double*) noexcept { return 1.0; }
};
struct load_axi3d_factor {
    static double at(const double* point) noexcept { return two_pi * point[0]; }
};

// The map of a face given by 2D coordinates X at a point: the determinant (its
// sign is the turn of the nodes), the point and the gradients of the shape
// functions in the plane; the gradients only when the determinant is positive.
template <class Shape, unsigned NN>
double plane_map(const kinematic_item<Shape>* items, const double (&X)[NN][2], double (&n)[NN][2], double* point)
{
    double J[2][2] = {}, p[2] = {};
    for (unsigned a = 0; a < NN; ++a)
        for (unsigned i = 0; i < 2; ++i) {
            p[i] += items[a].N * X[a][i];
            for (unsigned k = 0; k < 2; ++k) J[i][k] += X[a][i] * items[a].dN[k];
        }
    point[0] = p[0];
    point[1] = p[1];
    const double det = J[0][0] * J[1][1] - J[0][1] * J[1][0];
    if (!(det > 0.0)) return det;
    for (unsigned a = 0; a < NN; ++a) {
        const double* d = items[a].dN;
        n[a][0] = (d[0] * J[1][1] - d[1] * J[1][0]) / det;
        n[a][1] = (d[1] * J[0][0] - d[0] * J[0][1]) / det;
    }
    return det;
}

// K += w B D Bᵀ on the packed upper triangle; B has NC columns, D is NC x NC.
template <unsigned NDOF, unsigned NC, class Dmatrix>
void add_BDBt(const double (&B)[NDOF][NC], const Dmatrix& D, double w, double* K)
{
    double C[NDOF][NC];
    for (unsigned i = 0; i < NDOF; ++i)
        for (unsigned m = 0; m < NC; ++m) {
            double s = 0.0;
            for (unsigned l = 0; l < NC; ++l) s += B[i][l] * D(l, m);
            C[i][m] = w * s;
        }
    for (unsigned j = 0; j < NDOF; ++j) {
        double* column = K + std::size_t(j) * (j + 1) / 2;
        for (unsigned i = 0; i <= j; ++i) {
            double s = 0.0;
            for (unsigned m = 0; m < NC; ++m) s += C[i][m] * B[j][m];
            column[i] += s;
        }
    }
}

// F -= w B s.
template <unsigned NDOF, unsigned NC, class Vector>
void add_internal_force(const double (&B)[NDOF][NC], const Vector& s, double w, double* F)
{
    for (unsigned i = 0; i < NDOF; ++i) {
        double v = 0.0;
        for (unsigned m = 0; m < NC; ++m) v += B[i][m] * s[m];
        F[i] -= w * v;
    }
}

template <class Vector, unsigned NC>
bool all_zero(const Vector& s) noexcept
{
    for (unsigned i = 0; i < NC; ++i)
        if (s[i] != 0.0) return false;
    return true;
}

// The three flags of a stiffness routine from the matrix mode, as the solids have them.
struct stiffness_modes {
    bool matrix, vector, green_lagrange, material, geometric;
    stiffness_modes(const element_work_type& w, bool finite)
        : matrix(w.matrix_mode != matrix_none), vector(w.vector_mode == 1),
          green_lagrange(finite || w.matrix_mode == matrix_geometric),
          material(w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material),
          geometric(w.matrix_mode == matrix_geometric || (finite && w.matrix_mode == matrix_tangent))
    {
    }
};

// ---------------------------------------------------------------------------------
// Membranes.

template <class Physics, class Shape, class Points>
class membrane_server : public server_base<Physics, Shape, Points> {
public:
    using base = server_base<Physics, Shape, Points>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    static constexpr bool finite = Physics::finite;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        const stiffness_modes mode(w, finite);
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, mode.matrix, mode.vector))
            return memory_error;
        error_type result = no_error;
        point_values v;
        double B[nbr_DOFs][3];
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double det = evaluate(p, e, mode.green_lagrange, w, v);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = det * data.points[p].weight * w.factor;
            if (mode.material || mode.vector) fill_B(e, v, B);
            if (mode.material && mode.matrix) add_BDBt(B, v.D, wf, w.Ke.data());
            if (mode.geometric && mode.matrix) add_geometric(v, wf, w.Ke.data());
            if (mode.vector && !all_zero<membrane3, 3>(v.N)) add_internal_force(B, v.N, wf, w.Fe.data());
            w.energy += v.energy_density * wf;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
        }
        return result;
    }

    // Strains (11) or resultants, forces per unit length (12), at the points, turned
    // from the face's frame to the global one.
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
            double point[3];
            point_of<Shape>(data.items[p], e.x, point);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = point[i];
            if (!(det > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            const membrane3& m = result == result_strain ? v.eps : v.N;
            voigt6 out{};
            out[0] = m[0];
            out[1] = m[1];
            out[3] = m[2];
            if (result == result_strain)
                rotate_strain_to_global(e.frame, out);
            else
                rotate_stress_to_global(e.frame, out);
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = out[i];
        }
        if (status != no_error) w.results.clear();
        return status;
    }

private:
    struct element_data {
        double x[nbr_nodes][3];
        double X[nbr_nodes][2]; // in the face's first two axes
        frame3 frame;           // columns: the face's axes, the third its normal
        double u[nbr_DOFs];
        element_temperature<nbr_nodes> temperature;
    };
    struct point_values {
        double n[nbr_nodes][2];
        double F[2][3]; // the face's axes, moved by the displacement gradient in the finite variant
        membrane3 eps, N;
        constitutive3 D;
        double energy_density;
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law) return invalid_data_error;
        if (transformer) return invalid_data_error;
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        if (auto err = this->element_basis(nodes, w.pos, nullptr, e.frame); err != no_error) return err;
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < 2; ++k) {
                double s = 0.0;
                for (unsigned i = 0; i < 3; ++i) s += e.frame(i, k) * (e.x[a][i] - e.x[0][i]);
                e.X[a][k] = s;
            }
        gather_values<nbr_nodes>(w.U, nodes, places, e.u);
        e.temperature.read(w, nodes, data);
        return no_error;
    }

    double evaluate(unsigned p, const element_data& e, bool green_lagrange, element_work_type& w,
                    point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        double at[2];
        const double det = plane_map<Shape>(items, e.X, v.n, at);
        if (!(det > 0.0)) return det;
        // H(i, alpha) = du_i / dX_alpha: global components, the face's directions.
        double H[3][2] = {};
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned i = 0; i < 3; ++i) {
                H[i][0] += e.u[3 * a + i] * v.n[a][0];
                H[i][1] += e.u[3 * a + i] * v.n[a][1];
            }
        const auto dot = [&](unsigned alpha, unsigned beta) {
            return e.frame(0, alpha) * H[0][beta] + e.frame(1, alpha) * H[1][beta] + e.frame(2, alpha) * H[2][beta];
        };
        const auto HH = [&](unsigned alpha, unsigned beta) {
            return H[0][alpha] * H[0][beta] + H[1][alpha] * H[1][beta] + H[2][alpha] * H[2][beta];
        };
        v.eps[0] = dot(0, 0);
        v.eps[1] = dot(1, 1);
        v.eps[2] = dot(0, 1) + dot(1, 0);
        if (green_lagrange) {
            v.eps[0] += 0.5 * HH(0, 0);
            v.eps[1] += 0.5 * HH(1, 1);
            v.eps[2] += HH(0, 1);
        }
        for (unsigned alpha = 0; alpha < 2; ++alpha)
            for (unsigned i = 0; i < 3; ++i) v.F[alpha][i] = e.frame(i, alpha) + (finite ? H[i][alpha] : 0.0);
        const auto& law = *physics->law;
        const law_key key{w.model, w.element, data.points[p].ID};
        membrane3 mechanical = v.eps;
        double T = 0.0;
        if (e.temperature.at(items, T)) {
            membrane3 thermal;
            law.get_thermal_strain(key, T, thermal);
            for (unsigned i = 0; i < 3; ++i) mechanical[i] -= thermal[i];
        }
        law.add_initial_strain(key, mechanical);
        law.get_stress(key, mechanical, v.D, v.N, v.energy_density);
        return det;
    }

    static void fill_B(const element_data&, const point_values& v, double (&B)[nbr_DOFs][3])
    {
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < 3; ++k) {
                const double n1 = v.n[a][0], n2 = v.n[a][1], f1 = v.F[0][k], f2 = v.F[1][k];
                double* row = B[3 * a + k];
                row[0] = n1 * f1;
                row[1] = n2 * f2;
                row[2] = n2 * f1 + n1 * f2;
            }
    }

    // K(ak, bk) += w n_aᵀ N n_b, for each of the three directions.
    static void add_geometric(const point_values& v, double w, double* K)
    {
        const double S[2][2] = {{v.N[0], v.N[2]}, {v.N[2], v.N[1]}};
        for (unsigned b = 0; b < nbr_nodes; ++b)
            for (unsigned a = 0; a <= b; ++a) {
                double g = 0.0;
                for (unsigned i = 0; i < 2; ++i)
                    for (unsigned j = 0; j < 2; ++j) g += v.n[a][i] * S[i][j] * v.n[b][j];
                for (unsigned k = 0; k < 3; ++k) {
                    const unsigned i = 3 * a + k, j = 3 * b + k;
                    K[std::size_t(j) * (j + 1) / 2 + i] += w * g;
                }
            }
    }
};

// ---------------------------------------------------------------------------------
// Plane strain and axisymmetric solids: the nodes' coordinates on the physics'
// axes a, b; the strain has the six components of the solids in the order a, b, c,
// ab, ac, bc, with c across the plane (the hoop direction of the axisymmetric
// solids, whose strain is u_a / r; zero in plane strain).

template <class Physics, class Shape, class Points, class Formulation>
class plane_server : public server_base<Physics, Shape, Points, Physics::places> {
public:
    using base = server_base<Physics, Shape, Points, Physics::places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    static_assert(base::nbr_places == 2);
    static constexpr bool finite = Physics::finite;
    static constexpr bool axisymmetric = is_axisymmetric<Formulation>::value;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        const stiffness_modes mode(w, finite);
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, mode.matrix, mode.vector))
            return memory_error;
        error_type result = no_error;
        point_values v;
        double B[nbr_DOFs][6];
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double measure = evaluate(p, e, mode.green_lagrange, w, v);
            w.weights.push_back(measure * data.points[p].weight);
            if (!(measure > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = measure * data.points[p].weight * w.factor;
            if (mode.material || mode.vector) fill_B(v, B);
            if (mode.material && mode.matrix) add_BDBt(B, v.D, wf, w.Ke.data());
            if (mode.geometric && mode.matrix) add_geometric(v, wf, w.Ke.data());
            if (mode.vector && !all_zero<voigt6, 6>(v.sigma)) add_internal_force(B, v.sigma, wf, w.Fe.data());
            w.energy += v.energy_density * wf;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
        }
        Formulation::apply(w);
        return result;
    }

    // Strains (11) or stresses (12) at the points, in the global order; for the
    // axisymmetric solids xx radial, yy axial, zz hoop.
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
            const double measure = evaluate(p, e, finite, w, v);
            w.weights.push_back(measure * data.points[p].weight);
            double point[3];
            point_of<Shape>(data.items[p], e.x, point);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = point[i];
            if (!(measure > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            voigt6 out;
            physics->law->to_global(result == result_strain ? v.eps : v.sigma, out);
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = out[i];
        }
        if (status != no_error) w.results.clear();
        return status;
    }

private:
    static constexpr unsigned A = places[0], Bx = places[1];

    struct element_data {
        double x[nbr_nodes][3];
        double X[nbr_nodes][2];
        double u[nbr_DOFs];
        bool negative_radius;
        element_temperature<nbr_nodes> temperature;
    };
    struct point_values {
        double N[nbr_nodes];
        double n[nbr_nodes][2];
        double r;
        double F[3][3];
        voigt6 eps;
        constitutive6 D;
        voigt6 sigma;
        double energy_density;
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law) return invalid_data_error;
        if (transformer) return invalid_data_error;
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        e.negative_radius = false;
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            e.X[a][0] = e.x[a][A];
            e.X[a][1] = e.x[a][Bx];
            if (axisymmetric && e.X[a][0] < 0.0) e.negative_radius = true;
        }
        gather_values<nbr_nodes>(w.U, nodes, places, e.u);
        e.temperature.read(w, nodes, data);
        return no_error;
    }

    // The measure of the point (the determinant, times 2 pi r for the axisymmetric
    // solids: not positive for a node at a negative radius), its strain and the law.
    double evaluate(unsigned p, const element_data& e, bool green_lagrange, element_work_type& w,
                    point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        double at[2];
        const double det = plane_map<Shape>(items, e.X, v.n, at);
        if (!(det > 0.0)) return det;
        v.r = at[0];
        if (axisymmetric && (e.negative_radius || !(v.r > 0.0))) return -1.0;
        double H[3][3] = {};
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            v.N[a] = items[a].N;
            for (unsigned i = 0; i < 2; ++i)
                for (unsigned j = 0; j < 2; ++j) H[i][j] += e.u[2 * a + i] * v.n[a][j];
            if (axisymmetric) H[2][2] += items[a].N * e.u[2 * a] / v.r;
        }
        strain(H, green_lagrange, v.eps);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) v.F[i][j] = (i == j ? 1.0 : 0.0) + (finite ? H[i][j] : 0.0);
        const law_solid_stiff_2d& law = *physics->law;
        const law_key key{w.model, w.element, data.points[p].ID};
        voigt6 mechanical = v.eps;
        double T = 0.0;
        if (e.temperature.at(items, T)) {
            voigt6 thermal;
            law.get_thermal_strain(key, T, thermal);
            for (unsigned i = 0; i < 6; ++i) mechanical[i] -= thermal[i];
        }
        law.add_initial_strain(key, mechanical);
        const unsigned m = w.states_per_point;
        const double* state_in = w.committed_states ? w.committed_states + p * m : nullptr;
        double* state_out = w.trial_states ? w.trial_states + p * m : nullptr;
        law.get_stress(key, mechanical, v.D, v.sigma, v.energy_density, state_in, state_out);
        return axisymmetric ? det * two_pi * v.r : det;
    }

    // The variation of H for the DOF of node a in direction k: (dN/da, dN/db) in
    // row k, and for the radial DOF of an axisymmetric solid N / r at (c, c).
    double hoop_of(const point_values& v, unsigned a, unsigned k) const
    {
        return axisymmetric && k == 0 ? v.N[a] / v.r : 0.0;
    }

    static void strain(const double (&H)[3][3], bool green_lagrange, voigt6& eps)
    {
        eps[0] = H[0][0];
        eps[1] = H[1][1];
        eps[2] = H[2][2];
        eps[3] = H[0][1] + H[1][0];
        eps[4] = H[0][2] + H[2][0];
        eps[5] = H[1][2] + H[2][1];
        if (!green_lagrange) return;
        const auto product = [&](unsigned i, unsigned j) {
            return H[0][i] * H[0][j] + H[1][i] * H[1][j] + H[2][i] * H[2][j];
        };
        eps[0] += 0.5 * product(0, 0);
        eps[1] += 0.5 * product(1, 1);
        eps[2] += 0.5 * product(2, 2);
        eps[3] += product(0, 1);
        eps[4] += product(0, 2);
        eps[5] += product(1, 2);
    }

    // Row of a DOF: the variation of the Green-Lagrange strain, that is of
    // sym(Fᵀ dH), engineering shears; F is the identity in small strain.
    void fill_B(const point_values& v, double (&B)[nbr_DOFs][6]) const
    {
        const auto& F = v.F;
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < 2; ++k) {
                const double n0 = v.n[a][0], n1 = v.n[a][1], c = hoop_of(v, a, k);
                const double* f = F[k];
                double* row = B[2 * a + k];
                row[0] = n0 * f[0];
                row[1] = n1 * f[1];
                row[2] = c * F[2][2];
                row[3] = n0 * f[1] + f[0] * n1;
                row[4] = n0 * f[2] + c * F[2][0];
                row[5] = n1 * f[2] + c * F[2][1];
            }
    }

    // K(ak, bk) += w (dH_ak : S dH_bk) for DOFs of the same direction.
    void add_geometric(const point_values& v, double w, double* K) const
    {
        const voigt6& s = v.sigma;
        for (unsigned b = 0; b < nbr_nodes; ++b)
            for (unsigned a = 0; a <= b; ++a) {
                const double* na = v.n[a];
                const double* nb = v.n[b];
                const double g = na[0] * (s[0] * nb[0] + s[3] * nb[1]) + na[1] * (s[3] * nb[0] + s[1] * nb[1]);
                for (unsigned k = 0; k < 2; ++k) {
                    const double hoop = hoop_of(v, a, k) * hoop_of(v, b, k) * s[2];
                    const unsigned i = 2 * a + k, j = 2 * b + k;
                    K[std::size_t(j) * (j + 1) / 2 + i] += w * (g + hoop);
                }
            }
    }
};

// ---------------------------------------------------------------------------------
// Torsion of axisymmetric solids: the hoop displacement v of each node, with the
// shears g_r = dv/dr - v/r and g_z = dv/dz (the components ac and bc of the view).

template <class Physics, class Shape, class Points, class Formulation>
class torsion_server : public server_base<Physics, Shape, Points, Physics::places> {
public:
    using base = server_base<Physics, Shape, Points, Physics::places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::places;
    static_assert(base::nbr_places == 1 && is_axisymmetric<Formulation>::value);
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept { return kind == kind_stiffness; }

    using base::base;

    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_stiffness) return no_error;
        const stiffness_modes mode(w, false);
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_DOFs, mode.matrix, mode.vector))
            return memory_error;
        error_type result = no_error;
        point_values v;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const double measure = evaluate(p, e, w, v);
            w.weights.push_back(measure * data.points[p].weight);
            if (!(measure > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = measure * data.points[p].weight * w.factor;
            // Small strain only: the geometric mode has nothing to add.
            if (mode.material && mode.matrix) add_BDBt(v.B, v.D, wf, w.Ke.data());
            if (mode.vector && !all_zero<voigt6, 6>(v.sigma)) add_internal_force(v.B, v.sigma, wf, w.Fe.data());
            w.energy += v.energy_density * wf;
        }
        if (result != no_error) {
            w.Ke.clear();
            w.Fe.clear();
            w.energy = 0.0;
        }
        return result;
    }

    // Strains (11) or stresses (12): the shears at xz (r, hoop) and yz (axis, hoop).
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
            const double measure = evaluate(p, e, w, v);
            w.weights.push_back(measure * data.points[p].weight);
            double point[3];
            point_of<Shape>(data.items[p], e.x, point);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = point[i];
            if (!(measure > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            voigt6 out;
            physics->law->to_global(result == result_strain ? v.eps : v.sigma, out);
            for (unsigned i = 0; i < 6; ++i) w.results(3 + i, p) = out[i];
        }
        if (status != no_error) w.results.clear();
        return status;
    }

private:
    struct element_data {
        double x[nbr_nodes][3];
        double X[nbr_nodes][2];
        double u[nbr_nodes];
        bool negative_radius;
    };
    struct point_values {
        double n[nbr_nodes][2];
        double B[nbr_DOFs][6];
        voigt6 eps;
        constitutive6 D;
        voigt6 sigma;
        double energy_density;
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law) return invalid_data_error;
        if (transformer) return invalid_data_error;
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        e.negative_radius = false;
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            e.X[a][0] = e.x[a][0];
            e.X[a][1] = e.x[a][1];
            if (e.X[a][0] < 0.0) e.negative_radius = true;
        }
        gather_values<nbr_nodes>(w.U, nodes, places, e.u);
        return no_error;
    }

    double evaluate(unsigned p, const element_data& e, element_work_type& w, point_values& v) const
    {
        const kinematic_item<Shape>* items = data.items[p];
        double at[2];
        const double det = plane_map<Shape>(items, e.X, v.n, at);
        if (!(det > 0.0)) return det;
        const double r = at[0];
        if (e.negative_radius || !(r > 0.0)) return -1.0;
        v.eps = voigt6{};
        for (unsigned a = 0; a < nbr_nodes; ++a) {
            double* row = v.B[a];
            for (unsigned m = 0; m < 6; ++m) row[m] = 0.0;
            row[4] = v.n[a][0] - items[a].N / r;
            row[5] = v.n[a][1];
            v.eps[4] += row[4] * e.u[a];
            v.eps[5] += row[5] * e.u[a];
        }
        const law_key key{w.model, w.element, data.points[p].ID};
        const unsigned m = w.states_per_point;
        const double* state_in = w.committed_states ? w.committed_states + p * m : nullptr;
        double* state_out = w.trial_states ? w.trial_states + p * m : nullptr;
        physics->law->get_stress(key, v.eps, v.D, v.sigma, v.energy_density, state_in, state_out);
        return det * two_pi * r;
    }
};

// ---------------------------------------------------------------------------------
// Loads of the plane and axisymmetric families: force densities on the physics'
// places, per unit area of a face or per unit length of an edge, and on edges a
// pressure against the edge's normal in the plane (its direction turned a quarter
// clockwise about the plane's normal, outward for an edge of a counterclockwise
// face); each times the Factor of the point.

template <class Shape, class Points, const auto& Places, class Factor>
class plane_load_server {
public:
    static constexpr unsigned nbr_nodes = Shape::nbr_nodes;
    static constexpr unsigned nbr_points = Points::nbr_points;
    static constexpr unsigned nbr_places = sizeof(Places) / sizeof(Places[0]);

    [[nodiscard]] error_type compute_load(const elementary_load& load, unsigned accepted, const unsigned* nodes,
                                          element_work_type& w) const
    {
        if (load.kind >= 32 || !(accepted & load_bit(load.kind)) || load.values.empty()) return invalid_data_error;
        const bool pressure = load.kind == load_pressure;
        if (pressure && (Shape::dim != 1 || nbr_places != 2)) return invalid_data_error;
        if (load.kind != load_force && !pressure) return invalid_data_error;
        double x[nbr_nodes][3];
        if (auto e = gather_nodes<nbr_nodes>(w.pos, nodes, x); e != no_error) return e;
        if (!list_DOFs<nbr_nodes>(nodes, Places, w.DOFs) || !size_outputs(w, nbr_nodes * nbr_places, false, true))
            return memory_error;
        double density[nbr_places] = {};
        for (unsigned k = 0; k < nbr_places; ++k)
            density[k] = Places[k] < load.values.size() ? load.values[Places[k]] : 0.0;
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3];
            const double measure = surface_map<Shape>(items, x, point, normal);
            const double f = Factor::at(point);
            if (!(measure > 0.0) || !(f > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double wf = data.points[p].weight * w.factor * f;
            double q[nbr_places];
            if (pressure) {
                double t[3] = {};
                for (unsigned a = 0; a < nbr_nodes; ++a)
                    for (unsigned i = 0; i < 3; ++i) t[i] += x[a][i] * items[a].dN[0];
                const double in_plane[2] = {t[Places[1]], -t[Places[0]]};
                for (unsigned k = 0; k < nbr_places; ++k) q[k] = -load.values[0] * in_plane[k] * wf;
            } else {
                for (unsigned k = 0; k < nbr_places; ++k) q[k] = density[k] * measure * wf;
            }
            for (unsigned a = 0; a < nbr_nodes; ++a)
                for (unsigned k = 0; k < nbr_places; ++k) w.Fe[a * nbr_places + k] += items[a].N * q[k];
        }
        if (result != no_error) w.Fe.clear();
        return result;
    }

    point_shapes<Shape, Points> data;
};

template <class Physics, class Shape, class Points, class Factor>
class plane_external_work : public plane_load_server<Shape, Points, Physics::places, Factor> {
public:
    [[nodiscard]] error_type compute(const elementary_load& load, const unsigned* nodes, element_work_type& w) const
    {
        return this->compute_load(load, Physics::accepted_loads, nodes, w);
    }
};

// ---------------------------------------------------------------------------------
// The consistent mass of faces: per unit area in space (membranes), or over the
// ring of an axisymmetric solid (2 pi r).

template <class Physics, class Shape, class Points, class Formulation>
class face_mass_server : public server_base<Physics, Shape, Points, Physics::places> {
public:
    using base = server_base<Physics, Shape, Points, Physics::places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::nbr_DOFs,
        base::nbr_places, base::places;
    static constexpr bool axisymmetric = is_axisymmetric<Formulation>::value;
    // Mass models answer 0 to the code queries.
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
        bool negative_radius = false;
        for (unsigned a = 0; a < nbr_nodes; ++a) negative_radius = negative_radius || (axisymmetric && x[a][0] < 0.0);
        double* M = w.Ke.data();
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            const kinematic_item<Shape>* items = data.items[p];
            double point[3], normal[3];
            double measure = surface_map<Shape>(items, x, point, normal);
            if (axisymmetric) measure = negative_radius ? -1.0 : measure * two_pi * point[0];
            w.weights.push_back(measure * data.points[p].weight);
            if (!(measure > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double rho = physics->law->get_value(law_key{w.model, w.element, data.points[p].ID});
            const double wf = rho * measure * data.points[p].weight * w.factor;
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a) {
                    const double m = wf * items[a].N * items[b].N;
                    for (unsigned k = 0; k < nbr_places; ++k) {
                        const unsigned i = nbr_places * a + k, j = nbr_places * b + k;
                        M[std::size_t(j) * (j + 1) / 2 + i] += m;
                    }
                }
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        return linear_outputs<nbr_nodes>(w, nodes, places);
    }

    [[nodiscard]] error_type compute_results(unsigned, const unsigned*, element_work_type&) const { return no_error; }
};

// ---------------------------------------------------------------------------------
// Steady conduction in faces in space, in each face's own frame.

template <class Physics, class Shape, class Points>
class heat_conduction_2d_server : public server_base<Physics, Shape, Points, temperature_places> {
public:
    using base = server_base<Physics, Shape, Points, temperature_places>;
    using base::data, base::physics, base::transformer, base::nbr_nodes, base::nbr_points, base::places;
    static constexpr unsigned first_code = Physics::first_code;
    static constexpr unsigned second_code = Physics::second_code;

    static constexpr bool lists_DOFs(pass_kind kind) noexcept
    {
        return kind == kind_conduction || kind == kind_thermal_load;
    }

    using base::base;

    // Kind 5: K and, with a vector, -K T; the energy is T.K.T / 2.
    [[nodiscard]] error_type compute(pass_kind kind, const unsigned* nodes, element_work_type& w) const
    {
        if (kind != kind_conduction) return no_error;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!list_DOFs<nbr_nodes>(nodes, places, w.DOFs) || !size_outputs(w, nbr_nodes, true, false))
            return memory_error;
        double* K = w.Ke.data();
        error_type result = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            double n[nbr_nodes][2], at[2];
            const double det = plane_map<Shape>(data.items[p], e.X, n, at);
            w.weights.push_back(det * data.points[p].weight);
            if (!(det > 0.0)) {
                result = element_geometry_error;
                continue;
            }
            const double k = physics->law->get_value(law_key{w.model, w.element, data.points[p].ID});
            const double wf = k * det * data.points[p].weight * w.factor;
            std::size_t pos = 0;
            for (unsigned b = 0; b < nbr_nodes; ++b)
                for (unsigned a = 0; a <= b; ++a) K[pos++] += wf * (n[a][0] * n[b][0] + n[a][1] * n[b][1]);
        }
        if (result != no_error) {
            w.Ke.clear();
            return result;
        }
        return linear_outputs(w, e.T, nbr_nodes);
    }

    // Temperature gradients (7) or heat fluxes per unit of the law's value (8), in
    // global components, under the coordinates of each point.
    [[nodiscard]] error_type compute_results(unsigned result, const unsigned* nodes, element_work_type& w) const
    {
        if (result != result_temperature_gradient && result != result_heat_flux) return no_error;
        element_data e;
        if (auto err = prepare(nodes, w, e); err != no_error) return err;
        if (!w.results.resize(6, nbr_points) || !w.point_IDs.resize(nbr_points) || !this->record_point_shapes(nodes, w))
            return memory_error;
        w.results = 0.0;
        error_type status = no_error;
        for (unsigned p = 0; p < nbr_points; ++p) {
            w.point_IDs[p] = data.points[p].ID;
            double n[nbr_nodes][2], at[2];
            const double det = plane_map<Shape>(data.items[p], e.X, n, at);
            w.weights.push_back(det * data.points[p].weight);
            double point[3];
            point_of<Shape>(data.items[p], e.x, point);
            for (unsigned i = 0; i < 3; ++i) w.results(i, p) = point[i];
            if (!(det > 0.0)) {
                status = element_geometry_error;
                continue;
            }
            const double scale = result == result_heat_flux
                                     ? -physics->law->get_value(law_key{w.model, w.element, data.points[p].ID})
                                     : 1.0;
            double g[2] = {};
            for (unsigned a = 0; a < nbr_nodes; ++a) {
                g[0] += n[a][0] * e.T[a];
                g[1] += n[a][1] * e.T[a];
            }
            for (unsigned i = 0; i < 3; ++i)
                w.results(3 + i, p) = scale * (e.frame(i, 0) * g[0] + e.frame(i, 1) * g[1]);
        }
        if (status != no_error) w.results.clear();
        return status;
    }

private:
    struct element_data {
        double x[nbr_nodes][3];
        double X[nbr_nodes][2];
        frame3 frame;
        double T[nbr_nodes];
    };

    error_type prepare(const unsigned* nodes, element_work_type& w, element_data& e) const
    {
        if (!physics || !physics->law || transformer) return invalid_data_error;
        if (auto err = gather_nodes<nbr_nodes>(w.pos, nodes, e.x); err != no_error) return err;
        if (auto err = this->element_basis(nodes, w.pos, nullptr, e.frame); err != no_error) return err;
        for (unsigned a = 0; a < nbr_nodes; ++a)
            for (unsigned k = 0; k < 2; ++k) {
                double s = 0.0;
                for (unsigned i = 0; i < 3; ++i) s += e.frame(i, k) * (e.x[a][i] - e.x[0][i]);
                e.X[a][k] = s;
            }
        gather_values<nbr_nodes>(w.U, nodes, places, e.T);
        return no_error;
    }
};

} // namespace kelt::core
