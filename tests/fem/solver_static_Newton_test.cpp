// The Newton solver against physics: a linear model solved as the linear solver
// does (any rebuild mode, 1 or 2 threads), a slender solid rolled into a circle,
// heated bars clamped and free (also through the linear solver and the stress
// recovery), and the failures the record reports.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "support/log_capture.h"
#include "support/solid_problems.h"

namespace kelt::test {
namespace {

using Newton = fem::solver_static_Newton;

double value(const fem::FEM_matrix& U, unsigned ID, unsigned col)
{
    double v = std::nan("");
    EXPECT_EQ(U.getID_val(ID, col, v), no_error) << "ID " << ID;
    return v;
}

// The largest difference over the tip's loaded DOFs, relative to the largest value.
double tip_gap(const cantilever& c, const fem::FEM_matrix& a, const fem::FEM_matrix& b, unsigned cb)
{
    double scale = 0.0, gap = 0.0;
    for (const auto& [ID, f] : c.forces) {
        scale = std::max(scale, std::fabs(value(a, ID, 0)));
        gap = std::max(gap, std::fabs(value(a, ID, 0) - value(b, ID, cb)));
    }
    return gap / scale;
}

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
// size; a kept K is the exact one. E after the first correction is F K⁻¹ F; the
// tangent pass then gives ½ uᵀ K u.
TEST(solver_static_Newton, linear_model_in_two_iterations_as_the_linear_solver)
{
    cantilever c;
    fem::solver_static_linear::data_type lin(c.problem);
    fem::solver_static_linear().run(lin);
    ASSERT_EQ(lin.error_code, no_error);
    const struct { unsigned threads, mode, period, steps; } rows[] = {
        {1, 2, 1, 1}, {2, 2, 1, 1}, {2, 2, 2, 2}, {2, 1, 2, 3}, {2, 7, 1, 2}};
    struct heard {
        unsigned calls = 0;
        double rel_dF = 1.0;
    };
    for (const auto& r : rows) {
        c.t.ctx.set_max_threads(r.threads);
        Newton::settings_type s;
        s.K_update_mode = r.mode, s.K_update_period = r.period, s.nbr_steps = r.steps;
        heard h;
        s.user_data = &h;
        s.iteration_hdl = [](void* u, double, unsigned, unsigned, unsigned, double, double, double, double, double,
                             double rel_dF, double) { ++static_cast<heard*>(u)->calls, static_cast<heard*>(u)->rel_dF = rel_dF; };
        const Newton::data_type d = run_Newton(c.problem, s);
        EXPECT_EQ(h.calls, d.total_iters);
        EXPECT_LE(h.rel_dF, s.tol_F);
        SCOPED_TRACE(testing::Message() << "mode " << r.mode << " period " << r.period << " threads " << r.threads);
        ASSERT_EQ(d.error_code, no_error) << d.msg_title;
        ASSERT_EQ(d.nbr_outputs, r.steps);
        EXPECT_LE(d.iters[0], 2u);
        EXPECT_LT(tip_gap(c, lin.U, d.U, r.steps - 1), 1e-10);
        EXPECT_NEAR(d.energy[r.steps - 1], lin.energies[0], 1e-9 * lin.energies[0]);
    }
    Newton::settings_type never;
    never.K_update_mode = 0; // K stays as allocated, zero, and its solve moves nothing
    const Newton::data_type d = run_Newton(c.problem, never);
    EXPECT_EQ(d.error_code, no_error);
    EXPECT_EQ(value(d.U, c.forces[0].first, 0), 0.0);
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
    constexpr unsigned runs = 32;
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
    for (unsigned k = 1; k <= runs; ++k) {
        fem::loads_mgr loads = p.get_loads_mgr(0);
        loads.clear();
        for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
            if (m.pos(0, n) != 0.0 && m.pos(0, n) != L) continue;
            double X = 0, Z = 0;
            bent(m.pos(0, n), m.pos(2, n), 2 * pi * k / runs, X, Z);
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
// no stress; clamped it carries σ_xx = -E α ΔT and grows by (1 + ν) α ΔT across.
// The Newton runs ramp ΔT with the time function t over two steps.
struct heated_case {
    bool Newton, clamped;
    int form; // the thermal load given 0 uniform, 1 per element, 2 per node
};
class heated_bar : public testing::TestWithParam<heated_case> {};

TEST_P(heated_bar, stress_and_expansion)
{
    constexpr double L = 4.0, b = 1.0, E = 1000.0, nu = 0.3, alpha = 1e-5, dT = 100.0;
    const heated_case c = GetParam();
    test_context t;
    mesh m = box_mesh(element_hexa8, {L, b, b}, {4, 1, 1});
    const unsigned ID = solid<fem::model_solid_lin, fem::numerical_model_stiff_lin>(t, m, E, nu, alpha);
    fem::problem_data p = t.problem(m, ID, 1);
    for (unsigned n = 0; n < m.nbr_nodes(); ++n)
        for (unsigned k = 0; k < 3; ++k)
            if (m.pos(k, n) == 0.0 || (k == 0 && c.clamped && m.pos(0, n) == L)) {
                ASSERT_EQ(p.get_loads_mgr(0).record_DOF_prescribed_value(dof(n, k), 0.0, no_func), no_error);
            }
    const unsigned evol = c.Newton ? 1u : no_func;
    fem::stress_mgr thermal = p.get_stress_mgr(0);
    fem::FEM_matrix T(dense1D<unsigned, 8>(1, 0u), m.nbr_nodes());
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) ASSERT_EQ(T.setID_val(0, n, dT), no_error);
    for (unsigned e = 0; e < m.cells.cols(); ++e)
        ASSERT_EQ(c.form == 0   ? thermal.set_thermal_load(ID, dT, evol)
                  : c.form == 1 ? thermal.set_thermal_load_element(ID, e, dT, evol)
                                : thermal.set_thermal_load_nodal(ID, T, evol),
                  no_error);
    fem::FEM_states U;
    const double across = (c.clamped ? 1 + nu : 1.0) * alpha * dT * b;
    if (c.Newton) {
        Newton::settings_type s;
        s.nbr_steps = 2;
        const Newton::data_type data = run_Newton(p, s);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        ASSERT_EQ(data.nbr_outputs, 2u);
        // Uniaxial stress E α ΔT t stores ½ E (α ΔT t)² a unit volume; none when free.
        for (unsigned k = 0; k < 2; ++k) {
            const double eps = alpha * dT * (k + 1) / 2;
            EXPECT_NEAR(data.energy[k], c.clamped ? 0.5 * E * eps * eps * L * b * b : 0.0, 1e-12) << k;
        }
        EXPECT_NEAR(value(data.U, dof(m.nbr_nodes() - 1, 1), 0), across / 2, 1e-12); // at t = 1/2
        U = fem::FEM_states(data.U, 1, 1);
    } else {
        fem::solver_static_linear::data_type data(p);
        fem::solver_static_linear().run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        U = data.U;
    }
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        EXPECT_NEAR(value(U, dof(n, 0), 0), c.clamped ? 0.0 : alpha * dT * m.pos(0, n), 1e-12);
        EXPECT_NEAR(value(U, dof(n, 1), 0), across * m.pos(1, n) / b, 1e-12);
    }
    if (c.Newton) return; // the results passes read the thermal loads at t = 0, where the ramp is 0
    fem::solver_stress_nodal::data_type sd(p);
    sd.U = U;
    fem::solver_stress_nodal().run(sd);
    ASSERT_EQ(sd.error_code, no_error) << sd.msg_title;
    symmetric_fixed<double, 3> s;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        ASSERT_EQ(sd.get_stress_tensor(n, 0, displacement_tag, s), no_error);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = i; j < 3; ++j)
                EXPECT_NEAR(s(i, j), i + j == 0 && c.clamped ? -E * alpha * dT : 0.0, 1e-9 * E * alpha * dT)
                    << "node " << n << " " << i << j;
    }
}

INSTANTIATE_TEST_SUITE_P(cases, heated_bar,
                         testing::Values(heated_case{false, false, 0}, heated_case{false, true, 0},
                                         heated_case{false, true, 1}, heated_case{false, true, 2},
                                         heated_case{true, false, 0}, heated_case{true, true, 0},
                                         heated_case{true, true, 1}, heated_case{true, false, 2}));

TEST(solver_static_Newton, failures_in_the_record)
{
    cantilever c;
    Newton::settings_type bad[9];
    bad[0].t_end = bad[0].t_start, bad[1].nbr_steps = 0, bad[2].max_iters = 0, bad[3].max_dU = 0.0;
    bad[4].tol_U = 0.0, bad[5].tol_F = 0.0, bad[6].tol_E = 0.0, bad[7].tol_W = -1e-30, bad[8].t_end = std::nan("");
    for (Newton::settings_type& s : bad) {
        log_capture log;
        report_to(s, log);
        const Newton::data_type d = run_Newton(c.problem, s);
        EXPECT_EQ(d.error_code, invalid_data_error);
        EXPECT_STREQ(d.msg_title, "MODE ERROR");
        EXPECT_STREQ(d.msg_detail, "KELT solver_static_Newton: invalid settings.\n");
        EXPECT_TRUE(log.lines.empty());
    }
    Newton::settings_type zero_W;
    zero_W.tol_W = 0.0; // the one tolerance that may be 0
    EXPECT_EQ(run_Newton(c.problem, zero_W).error_code, no_error);

    // A block of zero modulus beside a held one: its far DOFs have a zero pivot.
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
    ASSERT_NE(z.bad_pivot_DOF, 0xFFFFFFFFu);
    EXPECT_EQ(m.pos(0, z.bad_pivot_DOF / 9), 2.0);

    for (int twice = 0; twice < 2; ++twice) // their sum overflows
        ASSERT_EQ(c.problem.get_loads_mgr(0).record_DOF_load(c.forces[0].first, 1e308, no_func), no_error);
    const Newton::data_type d = run_Newton(c.problem, {});
    EXPECT_EQ(d.error_code, inf_nan_error);
    EXPECT_STREQ(d.msg_title, "INF or NaN encountered.");
}

// The load grows with t from 0 at step 1: that step converges at once (nothing
// moves), step 2 needs two iterations and gets one.
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
    EXPECT_EQ(d.nbr_outputs, 1u);
    ASSERT_EQ(d.times.size(), 1u);
    EXPECT_EQ(d.times[0], 0.0);
    EXPECT_EQ(d.iters[0], 1u);
    EXPECT_EQ(d.iters[1], 0u);
    ASSERT_EQ(d.U.cols(), 2u);
    EXPECT_EQ(value(d.U, c.forces[0].first, 0), 0.0);
    fem::solver_static_linear::data_type lin(ref.problem);
    fem::solver_static_linear().run(lin);
    EXPECT_LT(tip_gap(c, lin.U, d.U, 1), 1e-10); // the first correction: the linear solution
}

// A stop asked at the k-th poll, for every k until a run ends on its own: no
// error, the interrupt warning, no poll after it, and the record consistent.
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
            EXPECT_EQ(d.nbr_outputs, 3u);
            EXPECT_GT(at, 3 * 4); // a step polls before itself and thrice an iteration, at least 2 iterations
            break;
        }
        EXPECT_EQ(d.warning_code, interrupted_warning) << at;
        EXPECT_EQ(log.interrupt_calls, at + 1);
        EXPECT_LE(d.nbr_outputs, d.nbr_steps_done);
        EXPECT_EQ(d.times.size(), d.nbr_outputs);
        EXPECT_EQ(d.U.cols(), d.nbr_steps_done ? d.nbr_steps_done : d.U.cols());
    }
}

} // namespace
} // namespace kelt::test
