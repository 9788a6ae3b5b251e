// Plasticity through the Newton solver: a cube in uniaxial stress loaded and
// unloaded against the closed form of linear hardening, a cantilever past first
// yield converging quadratically and repeating across runs and threads, and the
// three-bar truss yielding at its elastic limit on the way to collapse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "support/solid_problems.h"
#include "support/values.h"

namespace kelt::test {
namespace {

using Newton = fem::solver_static_Newton;


// The residuals of every iteration relative to the reference force, by step.
struct residuals {
    std::vector<std::vector<double>> by_step;
    static void hear(void* u, double, unsigned step, unsigned, unsigned, double, double, double, double, double,
                     double rel_dF, double)
    {
        auto& r = static_cast<residuals*>(u)->by_step;
        if (r.size() < step) r.resize(step);
        r[step - 1].push_back(rel_dF);
    }
};

// A unit cube on its symmetry planes x = 0, y = 0, z = 0, its top face pulled to
// the strain eps_max (growing with t), then let go. With the tangent modulus Et,
// H = E Et / (E - Et), and past yield eps = sigma/E + (sigma - sigma_y)/H; the
// lateral strain is -nu sigma/E - eps_p/2 (plastic flow keeps the volume); once
// unloaded the strains are those of eps_p = eps - sigma/E alone. sigma is the
// reaction on the top face; once unloaded, the forces there balance only with
// the state's own plastic strains.
struct cube_case {
    element_type type;
    double Et, eps_max; // eps_max in units of the yield strain
    unsigned steps;
};

class cube_uniaxial : public testing::TestWithParam<cube_case> {};

TEST_P(cube_uniaxial, hardening_and_residual_strain)
{
    constexpr double E = 1000.0, nu = 0.3, sy = 2.0;
    const cube_case c = GetParam();
    const double H = E * c.Et / (E - c.Et), eps = c.eps_max * sy / E;
    test_context t;
    mesh m = box_mesh(c.type, {1.0, 1.0, 1.0}, {1, 1, 1});
    fem::law_solid_ep_perfect law;
    ASSERT_EQ(law.init(make({E, nu, 0.0, c.Et, sy})), no_error);
    fem::problem_data p = t.problem(m, t.solid(m, law), 1);
    fem::loads_mgr loads = p.get_loads_mgr(0);
    const auto hold = [&](bool pulled) {
        loads.clear();
        for (unsigned n = 0; n < m.nbr_nodes(); ++n)
            for (unsigned k = 0; k < 3; ++k)
                if (m.pos(k, n) == 0.0) {
                    ASSERT_EQ(loads.record_DOF_prescribed_value(dof(n, k), 0.0, no_func), no_error);
                }
        for (unsigned n = 0; n < m.nbr_nodes() && pulled; ++n)
            if (m.pos(2, n) == 1.0) {
                ASSERT_EQ(loads.record_DOF_prescribed_value(dof(n, 2), eps, 1), no_error);
            }
    };
    unsigned corner = 0; // at (1, 1, 1)
    while (m.pos(0, corner) + m.pos(1, corner) + m.pos(2, corner) != 3.0) ++corner;

    hold(true);
    Newton solver;
    solver.settings.nbr_steps = c.steps;
    Newton::data_type loaded(p);
    solver.run(loaded);
    ASSERT_EQ(loaded.error_code, no_error) << loaded.msg_title;
    ASSERT_EQ(loaded.nbr_outputs, c.steps);
    for (unsigned k = 0; k < c.steps; ++k) EXPECT_LE(loaded.iters[k], 4u) << "step " << k + 1;
    const fem::FEM_states last(loaded.U, c.steps - 1, 1);

    // The reaction on the top face of a state, read with that state's own
    // internal states.
    const auto top_stress = [&](const fem::FEM_states& U) {
        fem::solver_reactions::data_type r(p);
        r.U = U;
        fem::solver_reactions().run(r);
        EXPECT_EQ(r.error_code, no_error) << r.msg_title;
        double sum = 0.0;
        for (unsigned n = 0; n < m.nbr_nodes(); ++n)
            if (m.pos(2, n) == 1.0) sum += value(r.reactions, dof(n, 2), 0);
        return sum;
    };
    const double sigma = top_stress(last);
    const double sigma_closed = sy + c.Et * (eps - sy / E);
    EXPECT_NEAR(sigma, sigma_closed, 1e-8 * sigma_closed);
    EXPECT_NEAR(sigma / E + (sigma - sy) / H, eps, 1e-8 * eps);
    const double eps_p = eps - sigma_closed / E;
    EXPECT_NEAR(value(last, dof(corner, 0), 0), -nu * sigma_closed / E - eps_p / 2, 1e-8 * eps);

    hold(false);
    Newton::data_type unloaded(p);
    unloaded.U_start = last;
    solver.settings.nbr_steps = 1;
    solver.run(unloaded);
    ASSERT_EQ(unloaded.error_code, no_error) << unloaded.msg_title;
    EXPECT_NEAR(value(unloaded.U, dof(corner, 2), 0), eps_p, 1e-8 * eps);
    EXPECT_NEAR(value(unloaded.U, dof(corner, 0), 0), -eps_p / 2, 1e-8 * eps);
    EXPECT_NEAR(top_stress(unloaded.U), 0.0, 1e-8 * sy);
}

INSTANTIATE_TEST_SUITE_P(cases, cube_uniaxial,
                         testing::Values(cube_case{element_hexa8, 50.0, 3.0, 3}, cube_case{element_hexa8, 200.0, 7.0, 5},
                                         cube_case{element_hexa27, 50.0, 3.0, 3},
                                         cube_case{element_hexa27, 10.0, 1.5, 1},
                                         cube_case{element_hexa27, 50.0, 3.0, 2}, cube_case{element_hexa8, 50.0, 3.0, 1}),
                         [](const testing::TestParamInfo<cube_case>& i) {
                             return (i.param.type == element_hexa8 ? "hexa8_" : "hexa27_") + std::to_string(i.index);
                         });

// A cantilever of hexa27, 8 x 1 x 3 elements, with a small hardening, its tip
// load ramped in 16 steps past the first yield P_y = sigma_y b h² / (6 L) to 0.9
// of the plastic limit P_p = M_p / L. A plastic step converges in at most 5
// iterations: its first one sees the points on the yield surface as elastic (the
// branch an unloading needs), the others have the consistent tangent; once the
// residual is below 10 % of the reference force, the next one is at most of the
// order of its square (factor 10), down to the rounding floor of sums of forces of order 1
// over a reference of order 1e-2 (1e-10). A second run from the
// same (virgin) state gives the same columns bit for bit, and 2 threads give
// those of 1 to rounding.
TEST(Newton_plasticity, cantilever_past_yield_converges_quadratically_and_repeats)
{
    constexpr double L = 10.0, b = 1.0, h = 1.0, E = 1000.0, nu = 0.3, sy = 40.0, Et = 10.0;
    constexpr unsigned steps = 16;
    const double P_p = sy * b * h * h / 4 / L;
    test_context t;
    mesh m = box_mesh(element_hexa27, {L, b, h}, {8, 1, 3});
    fem::law_solid_ep_perfect law;
    ASSERT_EQ(law.init(make({E, nu, 0.0, Et, sy})), no_error);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    std::vector<unsigned> end;
    unsigned tip = 0;
    for (unsigned n = 0; n < m.nbr_nodes(); ++n) {
        if (m.pos(0, n) == 0.0) {
            ASSERT_EQ(DOFs.set(n, displacement_tag, false), no_error);
        }
        if (m.pos(0, n) == L) end.push_back(n);
        if (m.pos(0, n) == L && m.pos(1, n) == b / 2 && m.pos(2, n) == h / 2) tip = n;
    }
    fem::problem_data p(t.ctx, m.pos, DOFs, t.solid(m, law), 1);
    for (unsigned n : end) // -P_p at t = 1, shared equally
        ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(n, 2), -P_p / end.size(), 1), no_error);
    Newton solver;
    solver.settings.t_end = 0.9, solver.settings.nbr_steps = steps;
    std::vector<Newton::data_type> runs;
    for (unsigned threads : {1u, 1u, 2u}) {
        t.ctx.set_max_threads(threads);
        residuals heard;
        solver.settings.user_data = &heard;
        solver.settings.iteration_hdl = residuals::hear;
        runs.emplace_back(p);
        solver.run(runs.back());
        ASSERT_EQ(runs.back().error_code, no_error) << runs.back().msg_title;
        ASSERT_EQ(heard.by_step.size(), steps);
        for (unsigned k = 0; k < steps; ++k) {
            EXPECT_LE(runs.back().iters[k], 5u) << "step " << k + 1;
            const std::vector<double>& r = heard.by_step[k];
            for (unsigned i = 1; i < r.size(); ++i)
                if (r[i - 1] < 0.1) {
                    EXPECT_LE(r[i], std::max(10 * r[i - 1] * r[i - 1], 1e-10)) << k + 1 << " " << i;
                }
        }
    }
    // At 0.9 P_p = 1.35 P_y the root has yielded: the tip moves more than the
    // elastic first step, scaled to the load, takes it.
    const double w1 = value(runs[0].U, dof(tip, 2), 0) * steps;
    EXPECT_GT(std::fabs(value(runs[0].U, dof(tip, 2), steps - 1)), 1.02 * std::fabs(w1));
    for (unsigned col = 0; col < steps; ++col) {
        dense1D<double, 8> a, b, d;
        ASSERT_EQ(runs[0].U.get_col(col, a), no_error);
        ASSERT_EQ(runs[1].U.get_col(col, b), no_error);
        ASSERT_EQ(runs[2].U.get_col(col, d), no_error);
        ASSERT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end())) << "column " << col;
        double top = 0.0;
        for (double x : a) top = std::max(top, std::fabs(x));
        // Sums in another order differ by rounding, which a few Newton
        // corrections of a condition number near 1e6 bring to ~1e-10.
        for (unsigned i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], d[i], 1e-9 * top) << col;
    }
}

// Three rods of EA and yield force N_y from supports on the line z = L to one
// loaded node: the vertical one of length L, two at theta from it. The vertical
// rod carries N1, the others N1 cos² theta, so P = N1 (1 + 2 cos³ theta) and the
// vertical rod yields at P_y = N_y (1 + 2 cos³ theta); then the others alone take
// P - N_y, until they too yield at P_c = N_y (1 + 2 cos theta). The deflection is
// P L / (EA (1 + 2 cos³ theta)), then (P - N_y) L / (2 EA cos³ theta).
TEST(Newton_plasticity, three_bar_truss_yields_at_its_elastic_limit)
{
    constexpr double L = 2.0, EA = 1000.0, Ny = 1.5, theta = std::numbers::pi / 4;
    const double cs = std::cos(theta), P_y = Ny * (1 + 2 * cs * cs * cs), P_c = Ny * (1 + 2 * cs);
    test_context t;
    mesh m;
    m.type = element_edge2;
    (void)m.pos.resize(3, 4);
    const double x[4] = {0.0, 0.0, -L * std::tan(theta), L * std::tan(theta)}, z[4] = {0.0, L, L, L};
    for (unsigned n = 0; n < 4; ++n) m.pos(0, n) = x[n], m.pos(1, n) = 0.0, m.pos(2, n) = z[n];
    (void)m.cells.resize(2, 3);
    for (unsigned e = 0; e < 3; ++e) m.cells(0, e) = 0, m.cells(1, e) = e + 1;
    fem::law_spring_ep_perfect law;
    ASSERT_EQ(law.init(make({EA, 0.0, 0.0, 0.0, Ny})), no_error);
    fem::model_rod_lin physics;
    fem::numerical_model_stiff_lin model(t.ctx);
    ASSERT_EQ(physics.init(law), no_error);
    ASSERT_EQ(model.init(t.ctx, physics, m.cells, m.type), no_error);
    fem::DOFs_mgr DOFs(4, true);
    for (unsigned n = 1; n < 4; ++n) ASSERT_EQ(DOFs.set(n, displacement_tag, false), no_error);
    ASSERT_EQ(DOFs.set(0, displacement_tag, 1, false), no_error); // nothing holds it across the plane
    fem::problem_data p(t.ctx, m.pos, DOFs, model.get_ID(), 1);
    ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(0, 2), -P_c, 1), no_error);

    Newton solver;
    solver.settings.t_end = 0.99, solver.settings.nbr_steps = 33; // P_y / P_c = 0.707 falls between two steps
    Newton::data_type d(p);
    solver.run(d);
    ASSERT_EQ(d.error_code, no_error) << d.msg_title;
    ASSERT_EQ(d.nbr_outputs, 33u);
    for (unsigned k = 0; k < 33; ++k) {
        const double P = d.times[k] * P_c;
        const double w = P <= P_y ? P * L / (EA * (1 + 2 * cs * cs * cs)) : (P - Ny) * L / (2 * EA * cs * cs * cs);
        EXPECT_NEAR(-value(d.U, dof(0, 2), k), w, 1e-8 * w) << "P / P_c = " << d.times[k];
        EXPECT_NEAR(value(d.U, dof(0, 0), k), 0.0, 1e-12 * w);
    }
}

} // namespace
} // namespace kelt::test
