// The Newton solver against physics: a linear model as the linear solver solves
// it, a slender solid rolled into a circle, heated bars through both static
// solvers and the stress recovery, and the failures the record reports.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <tuple>
#include <vector>

#include "support/log_capture.h"
#include "support/solid_problems.h"

namespace kelt::test {
namespace {

using Newton = fem::solver_static_Newton;


// A solid of St Venant's law (E, nu, thermal expansion alpha) on m.
template <class Physics, class Model>
unsigned solid(test_context& t, const mesh& m, double E, double nu, double alpha)
{
    fem::law_solid_StVenant law;
    dense1D<double, 8> d;
    d.push_back(E), d.push_back(nu), d.push_back(alpha);
    Physics physics;
    Model model(t.ctx);
    EXPECT_EQ(law.init(d), no_error);
    EXPECT_EQ(physics.init(law), no_error);
    EXPECT_EQ(model.init(t.ctx, physics, m.cells, m.type), no_error);
    return model.get_ID();
}

Newton::data_type run_Newton(const fem::problem_data& p, const Newton::settings_type& s)
{
    Newton solver;
    solver.settings = s;
    Newton::data_type data(p);
    solver.run(data);
    return data;
}

// The first correction solves K u = F, the second finds a residual of rounding
// size, also with a kept K (the exact one). E after the first correction is
// F K⁻¹ F; the tangent pass then gives ½ uᵀ K u.
TEST(solver_static_Newton, linear_model_in_two_iterations_as_the_linear_solver)
{
    cantilever c;
    fem::solver_static_linear::data_type lin(c.problem);
    fem::solver_static_linear().run(lin);
    const unsigned tip = dof(c.tip, 2);
    // threads, K_update_mode, K_update_period, steps, output_period
    const unsigned rows[][5] = {{1, 2, 1, 1, 1}, {2, 2, 1, 1, 1}, {2, 2, 2, 2, 1}, {2, 1, 2, 3, 2}, {2, 7, 1, 2, 1}};
    for (const auto& r : rows) {
        c.t.ctx.set_max_threads(r[0]);
        Newton::settings_type s;
        s.K_update_mode = r[1], s.K_update_period = r[2], s.nbr_steps = r[3], s.output_period = r[4];
        std::vector<double> rel_dF; // as the host hears it
        s.user_data = &rel_dF;
        s.iteration_hdl = [](void* u, double, unsigned, unsigned, unsigned, double, double, double, double, double,
                             double rel, double) { static_cast<std::vector<double>*>(u)->push_back(rel); };
        const Newton::data_type d = run_Newton(c.problem, s);
        SCOPED_TRACE(testing::Message() << "mode " << r[1] << " period " << r[2] << " threads " << r[0]);
        ASSERT_EQ(d.error_code, no_error) << d.msg_title;
        EXPECT_EQ(rel_dF.size(), d.total_iters);
        EXPECT_LE(rel_dF.back(), s.tol_F);
        EXPECT_EQ(d.nbr_outputs, r[3] / r[4]);
        ASSERT_EQ(d.U.cols(), 1 + (r[3] - 1) / r[4]); // the kept steps, then the last one
        EXPECT_LE(d.iters[0], 2u);
        EXPECT_NEAR(value(d.U, tip, d.U.cols() - 1), value(lin.U, tip, 0), 1e-10 * std::fabs(value(lin.U, tip, 0)));
        EXPECT_NEAR(d.energy[r[3] - 1], lin.energies[0], 1e-9 * lin.energies[0]);
    }
    Newton::settings_type never;
    never.K_update_mode = 0; // K stays as allocated, zero, and its solve moves nothing
    EXPECT_EQ(value(run_Newton(c.problem, never).U, tip, 0), 0.0);
}

// A slender solid, L / h = 40, whose end face is turned by 2π about the neutral
// axis while held on the circle of radius R = L / 2π: the end moment is then
// M = 2π E I / L, the beam closes into a full circle, and it stores
// ½ M θ = 2π² E I / L. The end turns in 32 runs, each continued from the last,
// no correction moving a node by more than the depth h. Both checks neglect terms
// of order (h κ)² ≈ 2.5 % at the outer fibres, under 1 % over the section.
TEST(solver_static_Newton, finite_strain_cantilever_rolls_into_a_circle)
{
    constexpr double L = 40.0, h = 1.0, E = 1000.0, pi = std::numbers::pi, R = L / (2 * pi);
    test_context t;
    t.ctx.set_max_threads(1); // a small model on a busy machine runs faster alone
    mesh m = box_mesh(element_hexa27, {L, h, h}, {40, 1, 1});
    fem::problem_data p =
        t.problem(m, solid<fem::model_solid_gnl, fem::numerical_model_stiff_gnl>(t, m, E, 0.0, 0.0), 1);
    // Where the point (x, z) goes once the end has turned by theta.
    auto bent = [&](double x, double z, double theta, double& X, double& Z) {
        const double r = L / theta, phi = x / r, rho = r - (z - h / 2);
        X = rho * std::sin(phi), Z = h / 2 + r - rho * std::cos(phi);
    };
    Newton solver;
    solver.settings.max_dU = h;
    Newton::data_type data(p);
    for (unsigned k = 1; k <= 32; ++k) {
        fem::loads_mgr loads = p.get_loads_mgr(0);
        loads.clear();
        for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
            if (m.pos(0, n) != 0.0 && m.pos(0, n) != L) continue;
            double X = 0, Z = 0;
            bent(m.pos(0, n), m.pos(2, n), 2 * pi * k / 32, X, Z);
            const double u[3] = {X - m.pos(0, n), 0.0, Z - m.pos(2, n)};
            for (unsigned c = 0; c < 3; ++c)
                ASSERT_EQ(loads.record_DOF_prescribed_value(dof(n, c), u[c], no_func), no_error);
        }
        Newton::data_type next(p);
        next.U_start = data.U;
        solver.run(next);
        ASSERT_EQ(next.error_code, no_error) << "run " << k << " " << next.msg_title;
        data = next;
    }
    const double W = 2 * pi * pi * E * (h * h * h * h / 12) / L;
    EXPECT_NEAR(data.energy[0], W, 0.01 * W);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        if (m.pos(1, n) != 0.0 || m.pos(2, n) != h / 2) continue;
        double X = 0, Z = 0;
        bent(m.pos(0, n), h / 2, 2 * pi, X, Z);
        const double x = m.pos(0, n) + value(data.U, dof(n, 0), 0), z = h / 2 + value(data.U, dof(n, 2), 0);
        EXPECT_LT(std::hypot(x - X, z - Z), 0.01 * R) << "node at x = " << m.pos(0, n);
    }
}

// A bar L x b x b heated by ΔT on its symmetry planes x = 0, y = 0, z = 0, and
// also held at x = L when clamped: free it grows by α ΔT in every direction with
// no stress; clamped it carries σ_xx = -E α ΔT, which stores ½ E (α ΔT)² a unit
// volume, and grows by (1 + ν) α ΔT across. The Newton runs ramp ΔT with the time
// function t over two steps; their columns keep the loads of their time. The load
// is uniform, per element or per node.
class heated_bar : public testing::TestWithParam<std::tuple<bool, bool, int>> {};

TEST_P(heated_bar, stress_and_expansion)
{
    constexpr double L = 4.0, b = 1.0, E = 1000.0, nu = 0.3, alpha = 1e-5, dT = 100.0;
    const auto [Newton_run, clamped, form] = GetParam();
    test_context t;
    mesh m = box_mesh(element_hexa8, {L, b, b}, {4, 1, 1});
    const unsigned ID = solid<fem::model_solid_lin, fem::numerical_model_stiff_lin>(t, m, E, nu, alpha);
    fem::problem_data p = t.problem(m, ID, 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 3; ++k)
            if (m.pos(k, n) == 0.0 || (k == 0 && clamped && m.pos(0, n) == L)) {
                ASSERT_EQ(p.get_loads_mgr(0).record_DOF_prescribed_value(dof(n, k), 0.0, no_func), no_error);
            }
    const unsigned evol = Newton_run ? 1u : no_func;
    fem::stress_mgr thermal = p.get_stress_mgr(0);
    fem::FEM_matrix T(dense1D<unsigned, 8>(1, 0u), m.nbr_nodes());
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) ASSERT_EQ(T.setID_val(0, n, dT), no_error);
    for (unsigned e = 0; e < m.cells.cols(); ++e)
        ASSERT_EQ(form == 0   ? thermal.set_thermal_load(ID, dT, evol)
                  : form == 1 ? thermal.set_thermal_load_element(ID, e, dT, evol)
                              : thermal.set_thermal_load_nodal(ID, T, evol),
                  no_error);
    fem::FEM_states U;
    const double eps = alpha * dT, across = (clamped ? 1 + nu : 1.0) * eps * b;
    if (Newton_run) {
        Newton::settings_type s;
        s.nbr_steps = 2;
        const Newton::data_type data = run_Newton(p, s);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        ASSERT_EQ(data.nbr_outputs, 2u);
        for (unsigned k = 0; k < 2; ++k)
            EXPECT_NEAR(data.energy[k], clamped ? 0.5 * E * eps * eps * (k + 1) * (k + 1) / 4 * L * b * b : 0.0, 1e-12);
        EXPECT_NEAR(value(data.U, dof(m.nbr_nodes() - 1, 1), 0), across / 2, 1e-12); // at t = 1/2
        U = fem::FEM_states(data.U, 1, 1);
    } else {
        fem::solver_static_linear::data_type data(p);
        fem::solver_static_linear().run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        U = data.U;
    }
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        EXPECT_NEAR(value(U, dof(n, 0), 0), clamped ? 0.0 : eps * m.pos(0, n), 1e-12);
        EXPECT_NEAR(value(U, dof(n, 1), 0), across * m.pos(1, n) / b, 1e-12);
    }
    fem::solver_stress_nodal::data_type sd(p);
    sd.U = U;
    fem::solver_stress_nodal().run(sd);
    ASSERT_EQ(sd.error_code, no_error) << sd.msg_title;
    symmetric_fixed<double, 3> s;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        ASSERT_EQ(sd.get_stress_tensor(n, 0, displacement_tag, s), no_error);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = i; j < 3; ++j)
                EXPECT_NEAR(s(i, j), i + j == 0 && clamped ? -E * eps : 0.0, 1e-9 * E * eps) << n << " " << i << j;
    }
}

INSTANTIATE_TEST_SUITE_P(cases, heated_bar,
                         testing::Values(std::tuple(false, false, 0), std::tuple(false, true, 0),
                                         std::tuple(false, true, 1), std::tuple(false, true, 2),
                                         std::tuple(true, false, 0), std::tuple(true, true, 0),
                                         std::tuple(true, true, 1), std::tuple(true, false, 2)));

TEST(solver_static_Newton, failures_in_the_record)
{
    cantilever c;
    Newton::settings_type bad[9];
    bad[0].t_end = bad[0].t_start, bad[1].nbr_steps = 0, bad[2].max_iters = 0, bad[3].max_dU = 0.0;
    bad[4].tol_U = 0.0, bad[5].tol_F = 0.0, bad[6].tol_E = 0.0, bad[7].tol_W = -1e-30, bad[8].t_end = std::nan("");
    for (Newton::settings_type& s : bad) {
        const Newton::data_type d = run_Newton(c.problem, s);
        EXPECT_EQ(d.error_code, invalid_data_error);
        EXPECT_STREQ(d.msg_title, "MODE ERROR");
        EXPECT_STREQ(d.msg_detail, "KELT solver_static_Newton: invalid settings.\n");
    }
    bad[7].tol_W = 0.0; // the one tolerance that may be 0
    bad[7].K_update_period = bad[7].output_period = 0; // periods that act as 1
    EXPECT_EQ(run_Newton(c.problem, bad[7]).nbr_outputs, 1u);

    // A block of zero modulus beside a held one: its far DOFs have a zero pivot;
    // replaced at random, a pivot never gives a converged step.
    test_context t;
    mesh m = box_mesh(element_hexa8, {2, 1, 1}, {2, 1, 1});
    mesh left = m, right = m;
    left.cells = m.cells.sub_matrix(0, 0, 8, 1);
    right.cells = m.cells.sub_matrix(0, 1, 8, 1);
    fem::problem_data p = t.problem(m, t.composite({t.solid(left, 1.0, 0.0), t.solid(right, 0.0, 0.0)}), 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 3 && m.pos(0, n) == 0.0; ++k)
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_prescribed_value(dof(n, k), 0.0, no_func), no_error);
    const Newton::data_type z = run_Newton(p, {});
    EXPECT_EQ(z.error_code, pivot_error);
    EXPECT_STREQ(z.msg_title, "Pivot error.");
    EXPECT_EQ(m.pos(0, std::min(z.bad_pivot_DOF / 9, m.nbr_nodes() - 1)), 2.0);
    Newton::settings_type forced;
    forced.nbr_forced_pivot_iters = forced.max_iters = 3;
    EXPECT_EQ(run_Newton(p, forced).error_code, non_convergence_error);

    for (int twice = 0; twice < 2; ++twice) // their sum overflows
        ASSERT_EQ(c.problem.get_loads_mgr(0).record_DOF_load(c.forces[0].first, 1e308, no_func), no_error);
    const Newton::data_type d = run_Newton(c.problem, {});
    EXPECT_EQ(d.error_code, inf_nan_error);
    EXPECT_STREQ(d.msg_title, "INF or NaN encountered.");
}

// The load grows with t from 0 at step 1: that step converges at once (nothing
// moves), step 2 needs two iterations and gets one; its open column holds the
// first correction, the linear solution.
TEST(solver_static_Newton, non_convergence_keeps_the_converged_steps_and_the_open_column)
{
    cantilever c, ref;
    fem::loads_mgr loads = c.problem.get_loads_mgr(0);
    loads.clear();
    for (const auto& [ID, f] : c.forces) ASSERT_EQ(loads.record_DOF_load(ID, f, 1), no_error);
    Newton::settings_type s;
    s.t_start = -1.0, s.nbr_steps = 2, s.max_iters = 1;
    const Newton::data_type d = run_Newton(c.problem, s);
    EXPECT_EQ(d.error_code, non_convergence_error);
    EXPECT_STREQ(d.msg_title, "Non convergence of the Newton-Raphson algorithm.");
    EXPECT_EQ(d.nbr_steps_done, 2u);
    ASSERT_EQ(d.times.size(), 1u);
    EXPECT_EQ(d.times[0], 0.0);
    EXPECT_EQ(d.iters[0], 1u);
    EXPECT_EQ(d.iters[1], 0u);
    ASSERT_EQ(d.U.cols(), 2u);
    fem::solver_static_linear::data_type lin(ref.problem);
    fem::solver_static_linear().run(lin);
    const unsigned tip = dof(c.tip, 2);
    EXPECT_EQ(value(d.U, tip, 0), 0.0);
    EXPECT_NEAR(value(d.U, tip, 1), value(lin.U, tip, 0), 1e-10 * std::fabs(value(lin.U, tip, 0)));
}

// A stop asked at the k-th poll, for every k until a run ends on its own: no
// error, the interrupt warning, no poll after it, and a consistent record.
TEST(solver_static_Newton, interrupt_at_every_poll)
{
    cantilever c;
    for (int at = 0;; ++at) {
        log_capture log;
        log.interrupt_at = at;
        Newton::settings_type s;
        s.nbr_steps = 3;
        report_to(s, log);
        const Newton::data_type d = run_Newton(c.problem, s);
        ASSERT_EQ(d.error_code, no_error) << at;
        if (d.warning_code == no_error) {
            EXPECT_GT(at, 3 * 4); // a step polls before itself and thrice an iteration, at least 2 iterations
            break;
        }
        EXPECT_EQ(d.warning_code, interrupted_warning) << at;
        EXPECT_EQ(log.interrupt_calls, at + 1);
        EXPECT_EQ(d.times.size(), d.nbr_outputs);
        EXPECT_EQ(d.U.cols(), d.nbr_steps_done ? d.nbr_steps_done : d.U.cols());
        EXPECT_LE(d.nbr_outputs, d.nbr_steps_done);
    }
}


// Nodes from `first_free` on free, all held out of the x-z plane: y and the turns
// about x and z.
fem::DOFs_mgr in_plane_DOFs(unsigned nodes, unsigned first_free)
{
    fem::DOFs_mgr dofs(nodes, false);
    for (unsigned i = 0; i < nodes; ++i) {
        EXPECT_EQ(dofs.set(i, displacement_tag, i >= first_free), no_error);
        EXPECT_EQ(dofs.set(i, rotation_tag, i >= first_free), no_error);
        EXPECT_EQ(dofs.set(i, displacement_tag, 1, false), no_error);
        EXPECT_EQ(dofs.set(i, rotation_tag, 0, false), no_error);
        EXPECT_EQ(dofs.set(i, rotation_tag, 2, false), no_error);
    }
    return dofs;
}

// The largest distance, over the nodes from `first` on in column k of U, from the
// circle of radius R through the origin that a positive turn about y rolls a line
// along x into: x goes towards -z, so the centre lies at (0, 0, -R).
double off_circle(const fem::FEM_matrix& U, const dense2D<double>& pos, unsigned first, unsigned k, double R)
{
    double worst = 0.0;
    for (unsigned i = first; i < pos.cols(); ++i) {
        const double x = pos(0, i) + value(U, fem::DOFs_mgr::ID(i, displacement_tag, 0), k);
        const double z = value(U, fem::DOFs_mgr::ID(i, displacement_tag, 2), k);
        worst = std::max(worst, std::fabs(std::hypot(x, z + R) - R));
    }
    return worst;
}

// A cantilever of finite beams under an end moment M = 2 pi E I / L about y rolls
// into a full circle of radius L / (2 pi): in load steps from the straight start,
// every node lies on the circle of each step's radius L E I / M, the tip turns by
// M L / (E I), and the energy is M^2 L / (2 E I). The beam is held in its plane
// (y, and the turns about x and z), where a turn of 2 pi is regular. Edge2 and
// edge3 elements, the two-node ones on a finer mesh.
TEST(solver_static_Newton, finite_beam_cantilever_rolls_into_a_full_circle)
{
    constexpr double L = 10.0, E = 1000.0, G = 400.0, EI = E / 12, pi = 3.14159265358979323846;
    constexpr unsigned steps = 16;
    for (const auto& [type, n] : {std::pair{element_edge3, 12u}, std::pair{element_edge2, 48u}}) {
        SCOPED_TRACE(type == element_edge3 ? "edge3" : "edge2");
        const double off = type == element_edge3 ? 2e-4 : 3e-3; // of the radius, linear turns being coarser
        const unsigned per = type == element_edge3 ? 2 : 1, nodes = per * n + 1;
        test_context t;
        dense2D<double> pos(3, nodes);
        for (unsigned i = 0; i < nodes; ++i) pos(0, i) = L * i / (nodes - 1);
        dense2D<unsigned> cells(per + 1, n);
        for (unsigned e = 0; e < n; ++e) // edge3: the two ends, then the middle
            cells(0, e) = per * e, cells(1, e) = per * (e + 1), cells(per, e) = per * e + 1;
        // y-axis of the section along y; A = 1, I = 1/12 about both axes, J = 1/6.
        const double v[15] = {0, 1, 0, E, G, 0.0, 1.0, 5.0 / 6, 5.0 / 6, 1.0 / 6, 1.0 / 12, 1.0 / 12, 0, 0, 0};
        dense1D<double, 8> d(22, 0.0);
        for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
        fem::law_beam_StVenant law;
        fem::model_beam_gnl physics;
        fem::numerical_model_stiff_gnl model(t.ctx);
        ASSERT_EQ(law.init(d), no_error);
        ASSERT_EQ(physics.init(law), no_error);
        ASSERT_EQ(model.init(t.ctx, physics, cells, type), no_error);
        fem::DOFs_mgr dofs = in_plane_DOFs(nodes, 1);
        const double M = 2 * pi * EI / L;
        fem::problem_data p(t.ctx, pos, dofs, model.get_ID(), 1);
        ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(fem::DOFs_mgr::ID(nodes - 1, rotation_tag, 1), M, 1), no_error);
        Newton solver;
        solver.settings.nbr_steps = steps;
        Newton::data_type data(p);
        solver.run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        ASSERT_EQ(data.U.cols(), steps);
        for (unsigned k = 0; k < steps; ++k) {
            const double turn = 2 * pi * (k + 1) / steps, R = L / turn;
            EXPECT_LT(off_circle(data.U, pos, 1, k, R), off * R) << "step " << k + 1; // the root is held
            EXPECT_NEAR(value(data.U, fem::DOFs_mgr::ID(nodes - 1, rotation_tag, 1), k), turn, 1e-6 * turn);
            const double W = EI * turn * turn / (2 * L);
            EXPECT_NEAR(data.energy[k], W, 1e-4 * W) << "step " << k + 1;
        }
        EXPECT_LE(data.total_iters, 6 * steps);
    }
}

// The same roll on a strip of finite shells (nu = 0, so that the plate's bending
// stiffness is E I / b), the end moment shared equally by the two end nodes, the
// strip held out of its plane: y and the turns about x and z.
TEST(solver_static_Newton, finite_shell_strip_rolls_into_a_full_circle)
{
    constexpr double L = 10.0, b = 1.0, h = 0.02, E = 1000.0, EI = E * b * h * h * h / 12, pi = 3.14159265358979323846;
    constexpr unsigned steps = 16, n = 32, nodes = 2 * (n + 1);
    test_context t;
    dense2D<double> pos(3, nodes);
    for (unsigned i = 0; i <= n; ++i)
        for (unsigned j = 0; j < 2; ++j) pos(0, 2 * i + j) = L * i / n, pos(1, 2 * i + j) = b * j;
    dense2D<unsigned> cells(4, n);
    for (unsigned e = 0; e < n; ++e)
        cells(0, e) = 2 * e, cells(1, e) = 2 * e + 2, cells(2, e) = 2 * e + 3, cells(3, e) = 2 * e + 1;
    dense1D<double, 8> d;
    for (double v : {E, 0.0, 0.0, h}) d.push_back(v);
    fem::law_shell_StVenant law;
    fem::model_shell_gnl physics;
    fem::numerical_model_stiff_gnl model(t.ctx);
    ASSERT_EQ(law.init(d), no_error);
    ASSERT_EQ(physics.init(law), no_error);
    ASSERT_EQ(model.init(t.ctx, physics, cells, element_faceQ4), no_error);
    fem::DOFs_mgr dofs = in_plane_DOFs(nodes, 2);
    const double M = 2 * pi * EI / L;
    fem::problem_data p(t.ctx, pos, dofs, model.get_ID(), 1);
    for (unsigned i : {nodes - 2, nodes - 1})
        ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(fem::DOFs_mgr::ID(i, rotation_tag, 1), M / 2, 1), no_error);
    Newton solver;
    solver.settings.nbr_steps = steps;
    Newton::data_type data(p);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.U.cols(), steps);
    for (unsigned k = 0; k < steps; ++k) {
        const double turn = 2 * pi * (k + 1) / steps, R = L / turn;
        // Straight chords and interpolated directors err to second order in each
        // element's turn: 0.26 (turn / n)^2 of R, W and the tip turn, measured at
        // n = 32 and 64 (a quarter when n doubles); a thick strip would add its own
        // stretch-curvature coupling (h / R)^2.
        const double tol = 0.3 * (turn / n) * (turn / n);
        const double W = EI * turn * turn / (2 * L);
        EXPECT_LT(off_circle(data.U, pos, 2, k, R), tol * R) << "step " << k + 1;
        EXPECT_NEAR(value(data.U, fem::DOFs_mgr::ID(nodes - 1, rotation_tag, 1), k), turn, tol * turn);
        EXPECT_NEAR(data.energy[k], W, tol * W) << "step " << k + 1;
    }
}

} // namespace
} // namespace kelt::test
