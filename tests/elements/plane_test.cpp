// The face families against closed forms: the membrane patch test, Lamé's thick
// cylinder in plane strain and axisymmetric, a thick sphere under pressure, a
// twisted tube, conduction through a wall; rigid modes, masses, the finite
// variants' tangents, threads, and bad geometry.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <numbers>

#include "element_test_support.h"
#include "kelt/fem/laws.h"
#include "kelt/fem/physics_models.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr double pi = std::numbers::pi;
using plane_strain_small = core::mechanical_plane_strain<core::small_transformation_tag, 2>;

Ptr<core::law_solid_stiff_2d> view(double E, double nu, const unsigned (&axes)[3])
{
    return new core::law_solid_stiff_2d(StVenant(E, nu), axes);
}

Ptr<core::law_membrane_stiff> membrane_law(double E, double nu, double h)
{
    Ptr<core::law_membrane_StVenant> law = new core::law_membrane_StVenant;
    dense1D<double, 8> d(4, 0.0);
    d[0] = E, d[1] = nu, d[3] = h;
    EXPECT_EQ(law->init(d), no_error);
    return law;
}

Ptr<core::law_scalar> scalar(double v)
{
    Ptr<core::law_scalar> law = new core::law_scalar;
    return law->init(dense1D<double, 8>(1, v)) == no_error ? law : Ptr<core::law_scalar>();
}

// A model of a physics on the mesh, recorded on the context; null when refused.
struct plane_context : model_context {
    using maker = error_type (*)(core::context_type*, core::physics_base*, const dense2D<unsigned>&, element_type,
                                 Ptr<core::numerical_model_base>&);
    Ptr<core::numerical_model_base> make(maker m, const Ptr<core::physics_base>& physics, const test_mesh& mesh,
                                         error_type* status = nullptr)
    {
        Ptr<core::numerical_model_base> out;
        const error_type e = m(ctx, physics.get(), mesh.cells, mesh.type, out);
        if (status) *status = e;
        if (e != no_error) return {};
        out->context = ctx;
        return out->record() == no_error ? out : Ptr<core::numerical_model_base>();
    }
    Ptr<core::numerical_model_base> stiff(const Ptr<core::physics_base>& p, const test_mesh& m)
    {
        return make(core::make_stiff_mesh, p, m);
    }
};

// A structured grid of Q4 or Q9 cells on the map of the unit square, in the x-y
// plane; cells turn as the map turns the square.
using grid_map = std::function<void(double, double, double*)>;
test_mesh mapped_grid(element_type type, unsigned ns, unsigned nt, const grid_map& map)
{
    const unsigned q = type == element_faceQ9 ? 2 : 1, NS = q * ns + 1, NT = q * nt + 1;
    test_mesh m;
    m.type = type;
    EXPECT_TRUE(m.pos.resize(3, NS * NT));
    m.pos = 0.0;
    const auto id = [&](unsigned i, unsigned j) { return j * NS + i; };
    for (unsigned j = 0; j < NT; ++j)
        for (unsigned i = 0; i < NS; ++i) map(double(i) / (NS - 1), double(j) / (NT - 1), m.pos.col_data(id(i, j)));
    EXPECT_TRUE(m.cells.resize(nbr_nodes(type), ns * nt));
    for (unsigned c = 0; c < ns * nt; ++c) {
        const unsigned i = q * (c % ns), j = q * (c / ns);
        const unsigned Q4[4] = {id(i, j), id(i + q, j), id(i + q, j + q), id(i, j + q)};
        for (unsigned a = 0; a < 4; ++a) m.cells(a, c) = Q4[a];
        if (q == 2) {
            const unsigned mid[5] = {id(i + 1, j), id(i + 2, j + 1), id(i + 1, j + 2), id(i, j + 1), id(i + 1, j + 1)};
            for (unsigned a = 0; a < 5; ++a) m.cells(4 + a, c) = mid[a];
        }
    }
    return m;
}

// K u = f on the DOFs that `fixed` leaves free (it gives the held values of the
// others); every DOF's value by identifier, and the reactions K u - f of all.
struct solution { std::map<unsigned, double> u, reaction; };
solution solve(const dense_assembler& K, const std::map<unsigned, double>& f,
               const std::function<bool(unsigned, double&)>& fixed)
{
    std::vector<unsigned> free_rows;
    std::vector<double> value(K.n, 0.0);
    for (unsigned r = 0; r < K.n; ++r)
        if (!fixed(K.rows[r], value[r])) {
            free_rows.push_back(r);
            value[r] = 0.0;
        }
    const unsigned nf = unsigned(free_rows.size());
    std::vector<double> A(std::size_t(nf) * nf), b(nf, 0.0);
    for (unsigned i = 0; i < nf; ++i) {
        const auto it = f.find(K.rows[free_rows[i]]);
        b[i] = it == f.end() ? 0.0 : it->second;
        for (unsigned j = 0; j < nf; ++j) A[std::size_t(j) * nf + i] = K.get(free_rows[i], free_rows[j]);
        for (unsigned c = 0; c < K.n; ++c) b[i] -= K.get(free_rows[i], c) * value[c];
    }
    const std::vector<double> x = solve_dense(A, b, nf);
    for (unsigned i = 0; i < nf; ++i) value[free_rows[i]] = x[i];
    solution s;
    for (unsigned r = 0; r < K.n; ++r) {
        s.u[K.rows[r]] = value[r];
        double sum = 0.0;
        for (unsigned c = 0; c < K.n; ++c) sum += K.get(r, c) * value[c];
        const auto it = f.find(K.rows[r]);
        s.reaction[K.rows[r]] = sum - (it == f.end() ? 0.0 : it->second);
    }
    return s;
}

constexpr element_type face_types[4] = {element_faceT3, element_faceQ4, element_faceT6, element_faceQ9};
bool quadratic(element_type t) { return t == element_faceT6 || t == element_faceQ9; }

// u = A x + c in the x-y plane, solved for from the edges of a distorted mesh:
// exact, and so are the resultants h D eps at every point.
TEST(membrane, patch_test_on_a_distorted_mesh)
{
    const double A[2][2] = {{1e-3, 4e-4}, {-1e-4, -5e-4}}, c[2] = {1e-3, -2e-3}, E = 1000.0, nu = 0.3, h = 0.1;
    for (element_type type : face_types) {
        SCOPED_TRACE(nbr_nodes(type));
        plane_context pc;
        const test_mesh m = flat_mesh(type, quadratic(type) ? 2 : 3, quadratic(type) ? 2 : 3, 0.2);
        auto model = pc.stiff(new core::membrane_small(membrane_law(E, nu, h)), m);
        ASSERT_TRUE(model);
        dense_assembler K;
        ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
        const auto field = [&](unsigned node, unsigned k) {
            return k == 2 ? 0.0 : c[k] + A[k][0] * m.pos(0, node) + A[k][1] * m.pos(1, node);
        };
        const solution s = solve(K, {}, [&](unsigned ID, double& v) {
            const unsigned node = ID / 9;
            const double x = m.pos(0, node), y = m.pos(1, node);
            v = field(node, ID % 9);
            return ID % 9 == 2 || x < 1e-12 || x > 2 - 1e-12 || y < 1e-12 || y > 1 - 1e-12;
        });
        double worst = 0.0;
        for (const auto& [ID, u] : s.u) worst = std::max(worst, std::fabs(u - field(ID / 9, ID % 9)));
        EXPECT_LT(worst, 1e-13);
        core::element_pass_type pass;
        pass.pos = m.pos, pass.U = values_of(m, 3, core::translation_places, field);
        core::element_work_type w;
        w.start(pass, model->ID);
        const double exx = A[0][0], eyy = A[1][1], gxy = A[0][1] + A[1][0], k = h * E / (1 - nu * nu);
        const double N[6] = {k * (exx + nu * eyy), k * (eyy + nu * exx), 0, k * (1 - nu) / 2 * gxy, 0, 0};
        for (unsigned e = 0; e < model->nbr_elements(); ++e) {
            w.element = e;
            ASSERT_EQ(model->compute_element_results(core::kind_stiffness, core::result_stress, w), no_error);
            for (unsigned p = 0; p < w.results.cols(); ++p)
                for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(w.results(3 + i, p), N[i], 1e-11 * k);
        }
    }
}

// Zero modes of one free element: a membrane in a tilted plane has the three
// rigid modes of its plane and a free normal at each node; plane strain the three
// of its plane; an axisymmetric ring only the axial translation; a twisted ring
// only the turn about the axis.
TEST(face_elements, rigid_modes_of_free_elements)
{
    const unsigned xy[3] = {0, 1, 2};
    for (element_type type : face_types) {
        SCOPED_TRACE(nbr_nodes(type));
        test_mesh m = flat_mesh(type, 1, 1, 0.0);
        for (unsigned a = 0; a < m.nbr_nodes(); ++a) m.pos(0, a) += 1.0; // off the axis
        test_mesh tilted = m;
        for (unsigned a = 0; a < m.nbr_nodes(); ++a)
            tilted.pos(0, a) = 0.6 * m.pos(0, a), tilted.pos(2, a) = 0.8 * m.pos(0, a);
        const unsigned NN = nbr_nodes(type);
        struct row {
            Ptr<core::physics_base> physics;
            const test_mesh* mesh;
            unsigned zeros;
        };
        const row rows[] = {{new core::membrane_small(membrane_law(100.0, 0.3, 0.1)), &tilted, NN + 3},
                            {new plane_strain_small(view(100.0, 0.3, xy)), &m, 3},
                            {new core::axi3d_small(view(100.0, 0.3, xy)), &m, 1},
                            {new core::mechanical_displacement_axi_torsion(view(100.0, 0.3, xy)), &m, 1}};
        for (const row& r : rows) {
            plane_context pc;
            auto model = pc.stiff(r.physics, *r.mesh);
            ASSERT_TRUE(model);
            element_run run;
            compute(*model, core::kind_stiffness, 0, *r.mesh, core::DOF_values_view(), run);
            ASSERT_EQ(run.status, no_error);
            const std::vector<double> w = eigenvalues(run.work.Ke);
            EXPECT_EQ(nbr_zero_eigenvalues(w, 1e-10), r.zeros) << r.physics->physics_code();
            EXPECT_GT(w[r.zeros], 1e-6 * w.back());
        }
    }
}

// Lamé: the inner radius a moved out by ua, the outer b free, no axial strain;
// u(r) = A r + B / r with sigma_r(b) = 0. Plane strain on a quarter ring with its
// symmetry planes, and an axisymmetric slice held axially at both faces, with Q9
// cells refined; the outer displacement within 0.5 %, and better on each mesh.
TEST(plane_strain_and_axi3d, thick_cylinder_against_Lame)
{
    const double a = 1.0, b = 2.0, E = 1000.0, nu = 0.3, ua = 1e-3;
    const double B = ua / ((1 - 2 * nu) * a / (b * b) + 1 / a), A = (1 - 2 * nu) * B / (b * b);
    const double ub = A * b + B / b;
    const unsigned xy[3] = {0, 1, 2};
    for (bool axi : {false, true}) {
        double previous = 1.0;
        for (unsigned n : {1u, 2u, 4u}) {
            SCOPED_TRACE(axi ? "axi3d" : "plane strain");
            plane_context pc;
            const test_mesh m =
                axi ? mapped_grid(element_faceQ9, 2 * n, 1,
                                  [&](double s, double t, double* x) { x[0] = a + (b - a) * s, x[1] = 0.2 * t; })
                    : mapped_grid(element_faceQ9, 2 * n, n, [&](double s, double t, double* x) {
                          const double r = a + (b - a) * s;
                          x[0] = r * std::cos(pi / 2 * t), x[1] = r * std::sin(pi / 2 * t);
                      });
            Ptr<core::physics_base> physics;
            if (axi)
                physics = new core::axi3d_small(view(E, nu, xy));
            else
                physics = new plane_strain_small(view(E, nu, xy));
            auto model = pc.stiff(physics, m);
            ASSERT_TRUE(model);
            dense_assembler K;
            ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
            const solution s = solve(K, {}, [&](unsigned ID, double& v) {
                const unsigned node = ID / 9, k = ID % 9;
                const double x = m.pos(0, node), y = m.pos(1, node), r = std::hypot(x, axi ? 0.0 : y);
                v = std::fabs(r - a) < 1e-12 && (axi ? k == 0 : true) ? ua * (k == 0 ? x : y) / r : 0.0;
                if (axi) return (k == 0 && std::fabs(r - a) < 1e-12) || (k == 1 && (y < 1e-12 || y > 0.2 - 1e-12));
                return std::fabs(r - a) < 1e-12 || (k == 0 && x < 1e-12) || (k == 1 && y < 1e-12);
            });
            double worst = 0.0;
            for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
                const double x = m.pos(0, node), y = axi ? 0.0 : m.pos(1, node);
                if (std::fabs(std::hypot(x, y) - b) > 1e-12) continue;
                const double ur = std::hypot(s.u.at(node * 9), axi ? 0.0 : s.u.at(node * 9 + 1));
                worst = std::max(worst, std::fabs(ur - ub) / ub);
            }
            EXPECT_LT(worst, previous);
            previous = worst;
        }
        EXPECT_LT(previous, 5e-3);
    }
}

// A thick sphere, inner radius a under pressure p, through axi3d on a quarter of
// its meridian, the pressure on a load-only axisymmetric edge mesh:
// u(b) = p a^3 b / (E (b^3 - a^3)) ((1 - 2 nu) + (1 + nu) / 2).
TEST(axi3d, thick_sphere_under_pressure)
{
    const double a = 1.0, b = 1.5, E = 1000.0, nu = 0.3, p = 2.0,
                 ub = p * a * a * a * b / (E * (b * b * b - a * a * a)) * ((1 - 2 * nu) + (1 + nu) / 2);
    const unsigned xy[3] = {0, 1, 2};
    plane_context pc;
    const unsigned ns = 3, nt = 8;
    const test_mesh m = mapped_grid(element_faceQ9, ns, nt, [&](double s, double t, double* x) {
        const double r = a + (b - a) * s;
        x[0] = r * std::cos(pi / 2 * t), x[1] = r * std::sin(pi / 2 * t);
    });
    auto model = pc.stiff(new core::axi3d_small(view(E, nu, xy)), m);
    ASSERT_TRUE(model);
    // The inner arc, run clockwise as the boundary of the counterclockwise ring.
    test_mesh edges;
    edges.pos = m.pos;
    edges.type = element_edge3;
    ASSERT_TRUE(edges.cells.resize(3, nt));
    for (unsigned e = 0, NS = 2 * ns + 1; e < nt; ++e)
        edges.cells(0, e) = (2 * e + 2) * NS, edges.cells(1, e) = 2 * e * NS, edges.cells(2, e) = (2 * e + 1) * NS;
    auto loads = pc.make([](core::context_type* c, core::physics_base*, const dense2D<unsigned>& mesh,
                            element_type t, Ptr<core::numerical_model_base>& out) {
        return core::make_load_only_axi_mesh(c, mesh, t, out);
    }, nullptr, edges);
    ASSERT_TRUE(loads);
    core::elementary_load pressure;
    pressure.kind = core::load_pressure;
    pressure.values.push_back(p);
    std::map<unsigned, double> f;
    core::element_pass_type pass;
    pass.pos = m.pos;
    core::element_work_type w;
    w.start(pass, loads->ID);
    for (unsigned e = 0; e < nt; ++e) {
        w.element = e;
        ASSERT_EQ(loads->compute_element_load(pressure, w), no_error);
        for (unsigned i = 0; i < w.Fe.size(); ++i) f[w.DOFs[i]] += w.Fe[i];
    }
    dense_assembler K;
    ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
    const solution s = solve(K, f, [&](unsigned ID, double& v) {
        v = 0.0;
        return ID % 9 == 0 ? m.pos(0, ID / 9) < 1e-12 : m.pos(1, ID / 9) < 1e-12;
    });
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        if (std::fabs(std::hypot(m.pos(0, node), m.pos(1, node)) - b) > 1e-12) continue;
        EXPECT_NEAR(std::hypot(s.u.at(9 * node), s.u.at(9 * node + 1)), ub, 5e-3 * ub);
    }
}

// A tube a < r < b of length L, one end held, the other turned by alpha: the torque
// of the reactions is G J alpha / L and the shear T r / J, J = pi (b^4 - a^4) / 2.
TEST(axi_torsion, twisted_tube)
{
    const double a = 1.0, b = 1.5, L = 2.0, E = 1000.0, nu = 0.25, alpha = 1e-3, G = E / (2 * (1 + nu));
    const double J = pi * (b * b * b * b - a * a * a * a) / 2, T = G * J * alpha / L;
    const unsigned xy[3] = {0, 1, 2};
    for (element_type type : {element_faceQ4, element_faceQ9}) {
        plane_context pc;
        const grid_map tube = [&](double s, double t, double* x) { x[0] = a + (b - a) * s, x[1] = L * t; };
        const test_mesh m = mapped_grid(type, 3, 4, tube);
        auto model = pc.stiff(new core::mechanical_displacement_axi_torsion(view(E, nu, xy)), m);
        ASSERT_TRUE(model);
        dense_assembler K;
        ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
        const auto end = [&](unsigned n) { return m.pos(1, n) < 1e-12 ? 0 : m.pos(1, n) > L - 1e-12 ? 1 : -1; };
        const solution s = solve(K, {}, [&](unsigned ID, double& v) {
            v = end(ID / 9) == 1 ? alpha * m.pos(0, ID / 9) : 0.0;
            return end(ID / 9) >= 0;
        });
        double torque = 0.0;
        for (const auto& [ID, r] : s.reaction)
            if (end(ID / 9) == 1) torque += r * m.pos(0, ID / 9);
        EXPECT_NEAR(torque, T, 1e-10 * T);
        const unsigned hoop[1] = {2};
        core::element_pass_type pass;
        pass.pos = m.pos, pass.U = values_of(m, 1, hoop, [&](unsigned node, unsigned) { return s.u.at(9 * node + 2); });
        core::element_work_type w;
        w.start(pass, model->ID);
        w.element = 5;
        ASSERT_EQ(model->compute_element_results(core::kind_stiffness, core::result_stress, w), no_error);
        for (unsigned p = 0; p < w.results.cols(); ++p) {
            EXPECT_NEAR(w.results(8, p), T * w.results(0, p) / J, 1e-9 * T * b / J); // yz: axis, hoop
        }
    }
}

// The sum of a direction's mass entries is the mass: rho h A on a distorted face
// mesh; rho 2 pi (mean radius) A for the ring of the rectangle 1 < r < 2, 0 < y < 1.
TEST(face_masses, sum_to_the_mass)
{
    const double mass_per_area = 3.0, rho = 5.0;
    for (element_type type : face_types) {
        SCOPED_TRACE(nbr_nodes(type));
        plane_context pc;
        const test_mesh flat = flat_mesh(type, 3, 2, 0.2);
        test_mesh ring = flat_mesh(type, 2, 2, 0.2); // 1 < r < 2
        for (unsigned a = 0; a < ring.nbr_nodes(); ++a) ring.pos(0, a) = 1.0 + ring.pos(0, a) / 2;
        const struct {
            Ptr<core::physics_base> physics;
            const test_mesh* mesh;
            double mass;
        } rows[] = {{new core::membrane_mass(scalar(mass_per_area)), &flat, mass_per_area * 2.0},
                    {new core::axi3d_mass(scalar(rho)), &ring, rho * 2 * pi * 1.5}};
        for (const auto& r : rows) {
            auto model = pc.make(core::make_mass_mesh, r.physics, *r.mesh);
            ASSERT_TRUE(model);
            dense_assembler M;
            ASSERT_EQ(assemble(*model, core::kind_mass, *r.mesh, M), no_error);
            double sum = 0.0;
            for (unsigned i = 0; i < M.n; ++i)
                for (unsigned j = 0; j < M.n; ++j)
                    if (M.rows[i] % 9 == 1 && M.rows[j] % 9 == 1) sum += M.get(i, j);
            EXPECT_NEAR(sum, r.mass, 1e-12 * r.mass);
        }
    }
}

// Conduction through a wall 0 < x < 2, its faces held at 0 and 1: T = x / 2.
TEST(heat_conduction_2d, wall_gives_the_linear_profile)
{
    for (element_type type : face_types) {
        SCOPED_TRACE(nbr_nodes(type));
        plane_context pc;
        const test_mesh m = flat_mesh(type, 3, 2, 0.2);
        auto model = pc.make(core::make_thermal_mesh, new core::conduction_2d(scalar(4.0)), m);
        ASSERT_TRUE(model);
        EXPECT_EQ(model->model_code(), 18000u + type);
        dense_assembler K;
        ASSERT_EQ(assemble(*model, core::kind_conduction, m, K), no_error);
        const solution s = solve(K, {}, [&](unsigned ID, double& v) {
            const double x = m.pos(0, ID / 9);
            v = x / 2;
            return x < 1e-12 || x > 2 - 1e-12;
        });
        for (const auto& [ID, T] : s.u) EXPECT_NEAR(T, m.pos(0, ID / 9) / 2, 1e-13);
    }
}

// The finite variants' matrices are the derivatives of the opposite of their vectors
// and split into material and geometric modes, the small variants' geometric
// modes being the finite ones'.
TEST(face_elements, tangent_is_the_derivative_of_the_internal_forces_and_splits_into_its_modes)
{
    const unsigned xy[3] = {0, 1, 2};
    const test_mesh m = flat_mesh(element_faceQ9, 1, 1, 0.0);
    test_mesh ring = m;
    for (unsigned a = 0; a < ring.nbr_nodes(); ++a) ring.pos(0, a) += 1.0;
    const struct {
        Ptr<core::physics_base> finite, small;
        const test_mesh* mesh;
        unsigned places;
    } rows[] = {{new core::membrane_finite(membrane_law(1000.0, 0.3, 0.1)),
                 new core::membrane_small(membrane_law(1000.0, 0.3, 0.1)), &m, 3},
                {new core::mechanical_plane_strain<core::finite_transformation_tag, 2>(view(1000.0, 0.3, xy)),
                 new plane_strain_small(view(1000.0, 0.3, xy)), &m, 2},
                {new core::axi3d_finite(view(1000.0, 0.3, xy)), new core::axi3d_small(view(1000.0, 0.3, xy)), &ring, 2}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.finite->physics_variant_code());
        plane_context pc;
        auto finite = pc.stiff(r.finite, *r.mesh), small = pc.stiff(r.small, *r.mesh);
        ASSERT_TRUE(finite && small);
        std::vector<double> u(r.places * r.mesh->nbr_nodes());
        for (unsigned i = 0; i < u.size(); ++i) u[i] = 0.05 * std::sin(1.7 * i + 0.3);
        const tangent_errors e = tangent_errors_of(*finite, small.get(), *r.mesh, r.places, xy, u);
        EXPECT_LT(e.derivative, 1e-6);
        EXPECT_LT(e.split, 1e-12);
        EXPECT_LT(e.small, 1e-12);
    }
}

TEST(face_elements, assembly_is_bit_identical_on_1_and_2_threads)
{
    const unsigned xy[3] = {0, 1, 2};
    plane_context pc;
    test_mesh m = flat_mesh(element_faceQ9, 6, 4, 0.2);
    for (unsigned a = 0; a < m.nbr_nodes(); ++a) m.pos(0, a) += 1.0;
    auto model = pc.stiff(new core::axi3d_small(view(1000.0, 0.3, xy)), m);
    ASSERT_TRUE(model);
    dense_assembler K[2];
    for (unsigned t = 0; t < 2; ++t) {
        pc.ctx->process_mgr->max_threads = t + 1;
        ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K[t]), no_error);
    }
    ASSERT_EQ(K[0].n, K[1].n);
    for (unsigned r = 0; r < K[0].n; ++r)
        for (unsigned c = 0; c < K[0].n; ++c) ASSERT_EQ(K[0].get(r, c), K[1].get(r, c));
}

// Collinear nodes, a face of zero area and a node at a negative radius give -106;
// a plane axis outside 0..2 is refused.
TEST(face_elements, bad_geometry_and_plane_axis)
{
    const unsigned xy[3] = {0, 1, 2};
    test_mesh line = flat_mesh(element_faceQ4, 1, 1, 0.0), point = line, negative = line;
    for (unsigned a = 0; a < 4; ++a) {
        line.pos(1, a) = 0.5 * line.pos(0, a);
        for (unsigned k = 0; k < 3; ++k) point.pos(k, a) = 1.0;
        negative.pos(0, a) -= 0.5;
    }
    const struct {
        Ptr<core::physics_base> physics;
        const test_mesh* mesh;
        plane_context::maker make;
        core::pass_kind kind;
    } rows[] = {{new core::membrane_small(membrane_law(1, 0.3, 0.1)), &line, core::make_stiff_mesh, core::kind_stiffness},
                {new plane_strain_small(view(1.0, 0.3, xy)), &line, core::make_stiff_mesh, core::kind_stiffness},
                {new core::conduction_2d(scalar(1.0)), &point, core::make_thermal_mesh, core::kind_conduction},
                {new core::membrane_mass(scalar(1.0)), &line, core::make_mass_mesh, core::kind_mass},
                {new core::axi3d_small(view(1.0, 0.3, xy)), &negative, core::make_stiff_mesh, core::kind_stiffness},
                {new core::axi3d_mass(scalar(1.0)), &negative, core::make_mass_mesh, core::kind_mass}};
    for (const auto& r : rows) {
        plane_context pc;
        auto model = pc.make(r.make, r.physics, *r.mesh);
        ASSERT_TRUE(model);
        element_run run;
        compute(*model, r.kind, 0, *r.mesh, core::DOF_values_view(), run);
        EXPECT_EQ(run.status, element_geometry_error) << r.physics->physics_code();
        EXPECT_EQ(run.work.Ke.order(), 0u);
    }
    fem::law_solid_StVenant law;
    ASSERT_EQ(law.init(dense1D<double, 8>(3, 0.25)), no_error);
    fem::model_plane_strain_lin plane;
    EXPECT_EQ(plane.init(law, 3), invalid_data_error);
    EXPECT_EQ(plane.init(law, 2), no_error);
}

} // namespace
