// Results an engineer reads: reactions in balance with the loads, element
// energies summing to the solver's, the mass of a box, nodal stresses exact on a
// patch test, the stress helpers against closed forms, Medit files read back, and
// the codes of bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "support/log_capture.h"
#include "support/solid_problems.h"

namespace kelt::test {
namespace {

constexpr double E = 1000.0, nu = 0.3;

// The displacement field u = A x on every node, one state.
fem::FEM_states linear_state(const mesh& m, const double (&A)[3][3])
{
    dense1D<unsigned, 8> IDs;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 3; ++k) IDs.push_back(dof(n, k));
    fem::FEM_matrix U(IDs, 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned i = 0; i < 3; ++i) {
            double u = 0.0;
            for (unsigned j = 0; j < 3; ++j) u += A[i][j] * m.pos(j, n);
            EXPECT_EQ(U.setID_val(dof(n, i), 0, u), no_error);
        }
    return fem::FEM_states(U);
}

TEST(solver_reactions, balance_the_loads_in_force_and_moment)
{
    cantilever beam;
    fem::solver_static_linear statics;
    fem::solver_static_linear::data_type solved(beam.problem);
    statics.run(solved);
    ASSERT_EQ(solved.error_code, no_error);
    fem::solver_reactions solver;
    fem::solver_reactions::data_type data(beam.problem);
    data.U = solved.U;
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    ASSERT_EQ(data.reactions.cols(), 1u);
    // Sum of reaction + load, and its moment about the origin, over every DOF.
    double force[3] = {}, moment[3] = {}, load[3] = {};
    const dense1D<unsigned, 8> IDs = data.reactions.get_IDs();
    for (unsigned r = 0; r < IDs.size(); ++r) {
        double R = 0.0;
        ASSERT_EQ(data.reactions.get_val(r, 0, R), no_error);
        const unsigned node = IDs[r] / 9, k = IDs[r] % 9;
        double F = 0.0;
        for (const auto& [id, f] : beam.forces)
            if (id == IDs[r]) F = f;
        load[k] += F;
        force[k] += R + F;
        const unsigned a = (k + 1) % 3, b = (k + 2) % 3; // e_k crossed into the moment
        moment[b] += beam.m.pos(a, node) * (R + F);
        moment[a] -= beam.m.pos(b, node) * (R + F);
    }
    const double P = std::abs(load[2]);
    ASSERT_NEAR(P, std::abs(cantilever::P), 1e-12);
    for (unsigned k = 0; k < 3; ++k) {
        EXPECT_LT(std::abs(force[k]), 1e-10 * P) << k;
        EXPECT_LT(std::abs(moment[k]), 1e-10 * P * cantilever::L) << k;
    }
}

TEST(solver_energy, element_energies_sum_to_half_uKu)
{
    cantilever beam;
    fem::solver_static_linear statics;
    fem::solver_static_linear::data_type solved(beam.problem);
    statics.run(solved);
    ASSERT_EQ(solved.error_code, no_error);
    fem::solver_energy solver;
    fem::solver_energy::data_type data(beam.problem);
    data.U = solved.U;
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    ASSERT_EQ(data.element_energies.rows(), cantilever::along);
    double sum = 0.0, e = 0.0;
    for (unsigned r = 0; r < data.element_energies.rows(); ++r) {
        ASSERT_EQ(data.element_energies.get_val(r, 0, e), no_error);
        EXPECT_GT(e, 0.0);
        sum += e;
    }
    EXPECT_NEAR(sum, solved.energies[0], 1e-10 * solved.energies[0]);
    EXPECT_NEAR(data.energies[0], solved.energies[0], 1e-10 * solved.energies[0]);
}

TEST(solver_mass, box_mass_centre_and_inertia)
{
    const double a = 2.0, b = 3.0, c = 4.0, rho = 7.5, shift = 5.0;
    for (unsigned mode : {0u, 3u, 4u})
        for (double offset : {0.0, shift}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " offset " << offset);
            test_context t;
            mesh m = box_mesh(element_hexa8, {a, b, c}, {2, 2, 3}, 0.2);
            for (unsigned n = 0; n < m.nbr_nodes(); ++n) m.pos(0, n) += offset;
            fem::problem_data p = t.problem(m, t.mass(m, rho), 0);
            fem::solver_mass solver;
            solver.settings.mode = mode;
            fem::solver_mass::data_type data(p);
            solver.run(data);
            ASSERT_EQ(data.error_code, no_error) << data.msg_title;
            const double M = rho * a * b * c;
            EXPECT_NEAR(data.total_mass, M, 1e-12 * M);
            if (mode < 4) continue;
            const double centre[3] = {offset + a / 2, b / 2, c / 2};
            for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(data.center[i], centre[i], 1e-12 * (a + offset));
            const double I[3] = {M * (b * b + c * c) / 12, M * (a * a + c * c) / 12, M * (a * a + b * b) / 12};
            for (unsigned i = 0; i < 3; ++i)
                for (unsigned j = i; j < 3; ++j)
                    EXPECT_NEAR(data.inertia(i, j), i == j ? I[i] : 0.0, 1e-10 * I[0]) << i << j;
        }
}

TEST(solver_mass, negative_total_is_refused)
{
    test_context t;
    mesh m = box_mesh(element_hexa8, {1, 1, 1}, {1, 1, 1});
    fem::problem_data p = t.problem(m, t.mass(m, -1.0), 0);
    fem::solver_mass solver;
    solver.settings.mode = 4;
    fem::solver_mass::data_type data(p);
    solver.run(data);
    EXPECT_EQ(data.error_code, invalid_data_error);
    EXPECT_STREQ(data.msg_title, "Negative mass.");
}

// Hooke's stress of a linear field is constant: the projection, which holds the
// constants, must give it at every node of a distorted mesh, for every volume.
class nodal_patch : public testing::TestWithParam<element_type> {};

TEST_P(nodal_patch, constant_stress_exact_at_every_node)
{
    test_context t;
    mesh m = box_mesh(GetParam(), {1, 1, 1}, {2, 2, 2}, 0.15);
    fem::problem_data p = t.problem(m, t.solid(m, E, nu), 1);
    const double A[3][3] = {{1e-3, 2e-3, -1e-3}, {4e-4, -2e-3, 3e-3}, {1.5e-3, 5e-4, 2.5e-3}};
    fem::solver_stress_nodal solver;
    fem::solver_stress_nodal::data_type data(p);
    data.U = linear_state(m, A);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.nbr_components, 6u);
    const double lambda = E * nu / ((1 + nu) * (1 - 2 * nu)), mu = E / (2 * (1 + nu));
    const double tr = A[0][0] + A[1][1] + A[2][2];
    symmetric_fixed<double, 3> s;
    unsigned checked = 0;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        if (!m.used[n]) continue;
        ASSERT_EQ(data.get_stress_tensor(n, 0, displacement_tag, s), no_error);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = i; j < 3; ++j) {
                const double expected = (i == j ? lambda * tr : 0.0) + mu * (A[i][j] + A[j][i]);
                EXPECT_NEAR(s(i, j), expected, 1e-9 * E * 1e-3) << "node " << n << " " << i << j;
            }
        ++checked;
    }
    EXPECT_EQ(checked, data.nbr_nodes);
}

INSTANTIATE_TEST_SUITE_P(volumes, nodal_patch,
                         testing::Values(element_tetra4, element_pyramid5, element_wedge6, element_hexa8,
                                         element_tetra10, element_pyramid14, element_wedge18, element_hexa27));

// Lamé's thick cylinder under inner pressure, plane strain: the exact
// displacements on a quarter annulus of hexa27, and the hoop stress recovered at
// the bore against p (b² + a²) / (b² - a²).
TEST(solver_stress_nodal, Lame_hoop_stress_at_the_bore)
{
    const double a = 1.0, b = 2.0, p = 10.0, pi = std::acos(-1.0);
    test_context t;
    mesh m = box_mesh(element_hexa27, {1, 1, 0.5}, {8, 6, 1});
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        const double r = a + m.pos(0, n) * (b - a), q = m.pos(1, n) * pi / 2;
        m.pos(0, n) = r * std::cos(q);
        m.pos(1, n) = r * std::sin(q);
    }
    fem::problem_data problem = t.problem(m, t.solid(m, E, nu), 1);
    const double A = p * a * a / (b * b - a * a), B = A * b * b;
    dense1D<unsigned, 8> IDs;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 3; ++k) IDs.push_back(dof(n, k));
    fem::FEM_matrix U(IDs, 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        const double x = m.pos(0, n), y = m.pos(1, n), r = std::hypot(x, y);
        const double ur = (1 + nu) / E * ((1 - 2 * nu) * A * r + B / r);
        ASSERT_EQ(U.setID_val(dof(n, 0), 0, ur * x / r), no_error);
        ASSERT_EQ(U.setID_val(dof(n, 1), 0, ur * y / r), no_error);
    }
    fem::solver_stress_nodal solver;
    fem::solver_stress_nodal::data_type data(problem);
    data.U = fem::FEM_states(U);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    const double exact = p * (b * b + a * a) / (b * b - a * a);
    unsigned bore = 0;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        const double x = m.pos(0, n), y = m.pos(1, n), r = std::hypot(x, y);
        if (std::abs(r - a) > 1e-12) continue;
        const vector_fixed<double, 3> hoop{{-y / r, x / r, 0.0}};
        double s = 0.0;
        ASSERT_EQ(data.get_stress_val(n, 0, displacement_tag, hoop, s), no_error);
        EXPECT_NEAR(s, exact, 0.01 * exact) << "node " << n;
        ++bore;
    }
    EXPECT_GT(bore, 0u);
}

TEST(stress_helpers, Von_Mises_of_closed_forms)
{
    const double tau = 30.0;
    const struct {
        const char* name;
        symmetric_fixed<double, 3> s;
        double expected;
    } cases[] = {
        {"uniaxial", {{100, 0, 0, 0, 0, 0}}, 100.0},
        {"shear", {{0, tau, 0, 0, 0, 0}}, std::sqrt(3.0) * tau},
        {"hydrostatic", {{-7.3, 0, -7.3, 0, 0, -7.3}}, 0.0},
    };
    for (const auto& c : cases) EXPECT_NEAR(fem::compute_Von_Mises_stress(c.s), c.expected, 1e-12 * 100) << c.name;
    EXPECT_EQ(fem::compute_Von_Mises_stress(cases[2].s), 0.0); // no tiny root of a rounding
    dense1D<double, 8> out;
    EXPECT_EQ(fem::compute_Von_Mises_stress(dense2D<double>(3, 2), out), invalid_data_error);
}

TEST(stress_helpers, eigen_pairs_of_rotated_diagonal)
{
    const double d[3] = {-2.0, 1.0, 5.0}, t = 0.7, q = 0.3;
    // R = Rz(t) Rx(q); S = R diag(d) Rᵀ.
    const double Rz[3][3] = {{std::cos(t), -std::sin(t), 0}, {std::sin(t), std::cos(t), 0}, {0, 0, 1}};
    const double Rx[3][3] = {{1, 0, 0}, {0, std::cos(q), -std::sin(q)}, {0, std::sin(q), std::cos(q)}};
    double R[3][3] = {};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned k = 0; k < 3; ++k) R[i][j] += Rz[i][k] * Rx[k][j];
    symmetric_fixed<double, 3> S;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = i; j < 3; ++j)
            for (unsigned k = 0; k < 3; ++k) S(i, j) += R[i][k] * d[k] * R[j][k];
    vector_fixed<double, 3> values;
    matrix_fixed<double, 3, 3> V;
    fem::eigen_pairs(S, values, V);
    for (unsigned k = 0; k < 3; ++k) {
        EXPECT_NEAR(values[k], d[k], 1e-13 * 5);
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(std::abs(V(i, k)), std::abs(R[i][k]), 1e-12);
    }
    // Order 2: a rotated pair, and a tiny value that cancellation would lose.
    symmetric_fixed<double, 2> s2{{1.0, 0.0, 1e-20}};
    vector_fixed<double, 2> v2;
    matrix_fixed<double, 2, 2> V2;
    fem::eigen_pairs(s2, v2, V2);
    EXPECT_NEAR(v2[0], 1e-20, 1e-32);
    EXPECT_EQ(v2[1], 1.0);
    const double c = std::cos(t), s = std::sin(t);
    symmetric_fixed<double, 2> r2{{c * c * 3 + s * s * 8, c * s * (3 - 8), s * s * 3 + c * c * 8}};
    fem::eigen_pairs(r2, v2, V2);
    EXPECT_NEAR(v2[0], 3.0, 1e-13);
    EXPECT_NEAR(v2[1], 8.0, 1e-13);
    EXPECT_NEAR(std::abs(V2(0, 0) * c + V2(1, 0) * s), 1.0, 1e-13);
}

TEST(stress_helpers, unit_product_sums_one_place)
{
    dense1D<double, 8> v;
    dense1D<unsigned, 8> IDs;
    for (unsigned id : {6u, 15u, 9u, 24u}) IDs.push_back(id), v.push_back(double(id));
    EXPECT_EQ(fem::unit_product(v, IDs, temperature_tag, 0), 6.0 + 15.0 + 24.0);
    EXPECT_EQ(fem::unit_product(v, IDs, displacement_tag, 0), 9.0);
    IDs.push_back(0);
    EXPECT_EQ(fem::unit_product(v, IDs, displacement_tag, 0), 0.0);
}

TEST(stress_helpers, medit_file_reads_back)
{
    test_context t;
    mesh m = box_mesh(element_hexa8, {1, 1, 1}, {1, 1, 1});
    fem::problem_data p = t.problem(m, t.solid(m, E, nu), 1);
    const double A[3][3] = {{1e-3, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    fem::solver_stress_nodal solver;
    fem::solver_stress_nodal::data_type data(p);
    data.U = linear_state(m, A);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    const std::string path = testing::TempDir() + "kelt_stress.bb";
    ASSERT_EQ(fem::medit_nodal(path.c_str(), data.values, m.nbr_nodes(), 0, 3, 6), no_error);
    std::ifstream in(path);
    int dim = 0, count = 0, nodes = 0, type = 0;
    in >> dim >> count >> nodes >> type;
    EXPECT_EQ(dim, 3);
    EXPECT_EQ(count, 6);
    EXPECT_EQ(nodes, int(m.nbr_nodes()));
    EXPECT_EQ(type, 2);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 6; ++k) {
            double v = 0.0, expected = 0.0;
            in >> v;
            ASSERT_EQ(data.values.get_val(data.values.row_pos(n), k, expected), no_error);
            EXPECT_NEAR(v, expected, 1e-6 * std::abs(expected) + 1e-12);
        }
    std::remove(path.c_str());
    EXPECT_EQ(fem::medit_nodal("/nonexistent/dir/x.bb", data.values, 8, 0, 3, 6), file_open_error);
    EXPECT_EQ(fem::medit_nodal(path.c_str(), data.values, 8, 1, 3, 6), invalid_data_error);
    std::remove(path.c_str());
}

TEST(solver_stress_nodal, bad_input_codes)
{
    test_context t;
    mesh m = box_mesh(element_hexa8, {1, 1, 1}, {1, 1, 1});
    const unsigned model = t.solid(m, E, nu);
    fem::problem_data p = t.problem(m, model, 1);
    fem::solver_stress_nodal solver;
    {
        fem::solver_stress_nodal::data_type data(p); // no state
        solver.run(data);
        EXPECT_EQ(data.error_code, invalid_data_error);
        EXPECT_STREQ(data.msg_title, "DATA ERROR");
        EXPECT_STREQ(data.msg_detail, "KELT solver_stress_nodal: invalid data.\n");
    }
    {
        fem::problem_data none = t.problem(m, 999, 1); // unknown model
        fem::solver_reactions::data_type data(none);
        fem::solver_reactions().run(data);
        EXPECT_EQ(data.error_code, invalid_data_error);
        EXPECT_STREQ(data.msg_detail, "KELT fem::solver_reactions: invalid data.\n");
    }
    {
        fem::solver_least_squares ls;
        ls.settings.result = 5;
        fem::solver_least_squares::data_type data(p);
        ls.run(data);
        EXPECT_STREQ(data.msg_title, "MODE ERROR");
        EXPECT_STREQ(data.msg_detail, "KELT solver_stress_nodal: invalid settings.\n");
    }
    const double A[3][3] = {{1e-3, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    fem::solver_stress_nodal::data_type data(p);
    data.U = linear_state(m, A);
    solver.settings.result = 5; // a result no model gives
    solver.run(data);
    EXPECT_EQ(data.error_code, element_type_error);
    EXPECT_STREQ(data.msg_title, "Model error.");
    solver.settings.result = 2;
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    symmetric_fixed<double, 3> s{{1, 1, 1, 1, 1, 1}};
    EXPECT_EQ(data.get_stress_tensor(0, 0, rotation_tag, s), no_error); // the second tensor needs 12
    for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(s[k], 0.0);
    EXPECT_EQ(data.get_stress_tensor(0, 0, temperature_tag, s), invalid_data_error);
    fem::FEM_matrix vm;
    ASSERT_EQ(data.get_Von_Mises_stresses(0, vm), no_error);
    double value = 0.0;
    ASSERT_EQ(vm.get_val(0, 0, value), no_error);
    // Uniaxial strain: sigma_xx = (lambda + 2 mu) e, sigma_yy = sigma_zz = lambda e.
    const double lambda = E * nu / ((1 + nu) * (1 - 2 * nu)), mu = E / (2 * (1 + nu));
    EXPECT_NEAR(value, 2 * mu * 1e-3, 1e-9);
    (void)lambda;
}

// The unit square of the x-y plane in n x n quadrilaterals (or their halves),
// interior nodes moved by up to `distortion` of a cell.
mesh face_mesh(element_type type, unsigned n, double distortion)
{
    mesh m;
    const unsigned side = n + 1;
    m.pos = dense2D<double>(3, side * side);
    for (unsigned j = 0; j < side; ++j)
        for (unsigned i = 0; i < side; ++i) {
            const bool inner = i > 0 && j > 0 && i < n && j < n;
            const double d = inner ? distortion / n : 0.0;
            m.pos(0, j * side + i) = double(i) / n + d * std::sin(3.0 * i + 7.0 * j);
            m.pos(1, j * side + i) = double(j) / n + d * std::cos(5.0 * i + 2.0 * j);
            m.pos(2, j * side + i) = 0.0;
        }
    std::vector<unsigned> cells;
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) {
            const unsigned a = j * side + i, b = a + 1, c = b + side, d = a + side;
            if (type == element_faceQ4)
                cells.insert(cells.end(), {a, b, c, d});
            else
                cells.insert(cells.end(), {b, c, a, c, d, a});
        }
    const unsigned per = type == element_faceQ4 ? 4 : 3;
    m.cells = dense2D<unsigned>(per, cells.size() / per);
    for (unsigned k = 0; k < cells.size(); ++k) m.cells(k % per, k / per) = cells[k];
    m.type = type;
    m.used.assign(m.nbr_nodes(), true);
    return m;
}

// One state given by a function of (node, place) on the places listed.
template <class F>
fem::FEM_states state_of(const mesh& m, std::initializer_list<unsigned> places, F&& f)
{
    dense1D<unsigned, 8> IDs;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k : places) IDs.push_back(n * 9 + k);
    fem::FEM_matrix U(IDs, 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k : places) EXPECT_EQ(U.setID_val(n * 9 + k, 0, f(n, k)), no_error);
    return fem::FEM_states(U);
}

// Face families through the projection: a membrane or a shell stretched uniformly
// carries the forces h C eps at every node; the shell bent uniformly (w = -k r^2 /
// 2, whose transverse shears vanish at the tying points) carries D (1 + nu) k on
// the moment tensor's diagonal. Forces and moments: tags 8 and 24.
TEST(solver_stress_nodal, face_families_constant_fields_at_every_node)
{
    const double h = 0.1, exx = 1e-3, eyy = -4e-4, gxy = 6e-4, k = 2e-3;
    const double C = E / (1.0 - nu * nu), Dk = C * h * h * h / 12.0 * (1.0 + nu) * k;
    const double N[3][3] = {{h * C * (exx + nu * eyy), h * C * (1.0 - nu) / 2.0 * gxy, 0.0},
                            {h * C * (1.0 - nu) / 2.0 * gxy, h * C * (eyy + nu * exx), 0.0},
                            {0.0, 0.0, 0.0}};
    const double M[3][3] = {{Dk, 0.0, 0.0}, {0.0, Dk, 0.0}, {0.0, 0.0, 0.0}};
    for (element_type type : {element_faceT3, element_faceQ4})
        for (bool shell : {false, true}) {
            SCOPED_TRACE(testing::Message() << type << (shell ? " shell" : " membrane"));
            test_context t;
            mesh m = face_mesh(type, 3, 0.2);
            dense1D<double, 8> d;
            for (double v : {E, nu, 0.0, h}) d.push_back(v);
            unsigned ID = 0;
            if (shell) {
                fem::law_shell_StVenant law;
                ASSERT_EQ(law.init(d), no_error);
                fem::model_shell_lin physics;
                ASSERT_EQ(physics.init(law), no_error);
                fem::numerical_model_stiff_lin model(t.ctx);
                ASSERT_EQ(model.init(t.ctx, physics, m.cells, m.type), no_error);
                ID = model.get_ID();
            } else {
                fem::law_membrane_StVenant law;
                ASSERT_EQ(law.init(d), no_error);
                fem::model_membrane_lin physics;
                ASSERT_EQ(physics.init(law), no_error);
                fem::numerical_model_stiff_lin model(t.ctx);
                ASSERT_EQ(model.init(t.ctx, physics, m.cells, m.type), no_error);
                ID = model.get_ID();
            }
            fem::problem_data p = t.problem(m, ID, 1);
            fem::solver_stress_nodal solver;
            fem::solver_stress_nodal::data_type data(p);
            data.U = state_of(m, {0, 1, 2, 3, 4, 5}, [&](unsigned n, unsigned place) {
                const double x = m.pos(0, n), y = m.pos(1, n);
                switch (place) {
                case 0: return exx * x + 0.5 * gxy * y;
                case 1: return eyy * y + 0.5 * gxy * x;
                case 2: return shell ? -0.5 * k * (x * x + y * y) : 0.0;
                case 3: return shell ? -k * y : 0.0;
                case 4: return shell ? k * x : 0.0;
                default: return 0.0;
                }
            });
            solver.run(data);
            ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
            ASSERT_EQ(data.nbr_components, shell ? 12u : 6u);
            for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
                symmetric_fixed<double, 3> s, b;
                ASSERT_EQ(data.get_stress_tensor(n, 0, displacement_tag, s), no_error);
                ASSERT_EQ(data.get_stress_tensor(n, 0, rotation_tag, b), no_error);
                for (unsigned i = 0; i < 3; ++i)
                    for (unsigned j = i; j < 3; ++j) {
                        EXPECT_NEAR(s(i, j), N[i][j], 1e-9 * h * C * exx) << "node " << n << " " << i << j;
                        EXPECT_NEAR(b(i, j), shell ? M[i][j] : 0.0, 1e-9 * Dk) << "node " << n << " " << i << j;
                    }
            }
        }
}

// Section forces of rods live in each element's own axis: they are not summed at
// nodes, and the projection refuses them as it does a solid without the result.
TEST(solver_stress_nodal, line_results_are_refused)
{
    test_context t;
    mesh m;
    m.pos = dense2D<double>(3, 3);
    for (unsigned n = 0; n < 3; ++n) m.pos(0, n) = n, m.pos(1, n) = 0.5 * n;
    m.cells = dense2D<unsigned>(2, 2);
    m.cells(0, 0) = 0, m.cells(1, 0) = 1, m.cells(0, 1) = 1, m.cells(1, 1) = 2;
    m.type = element_edge2;
    m.used.assign(3, true);
    fem::law_spring law;
    ASSERT_EQ(law.init(dense1D<double, 8>(3, 1.0)), no_error);
    fem::model_rod_lin physics;
    ASSERT_EQ(physics.init(law), no_error);
    fem::numerical_model_stiff_lin model(t.ctx);
    ASSERT_EQ(model.init(t.ctx, physics, m.cells, m.type), no_error);
    fem::problem_data p = t.problem(m, model.get_ID(), 1);
    fem::solver_stress_nodal solver;
    fem::solver_stress_nodal::data_type data(p);
    data.U = state_of(m, {0, 1, 2}, [&](unsigned n, unsigned place) { return place == 0 ? 1e-3 * n : 0.0; });
    solver.run(data);
    EXPECT_EQ(data.error_code, element_type_error);
}

} // namespace
} // namespace kelt::test
