// Euler buckling of columns against closed forms, the run's refusals, and the
// spectrum combination: the CQC matrix and a two-mode response worked by hand.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "kelt/fem.h"
#include "support/log_capture.h"
#include "support/solid_problems.h"

using namespace kelt;

namespace {

constexpr double pi = 3.141592653589793;
constexpr double E = 1000.0, nu = 0.3, G = E / (2.0 * (1.0 + nu)), L = 10.0, I = 1.0 / 12.0;

// A column of beams along z, buckling about its weak axis (the strong one is 20
// times stiffer, out of the way of the second mode), under a unit thrust at its
// top. Pinned: the base held in place and in twist, the top held sideways; else
// clamped at the base and free at the top.
struct beam_column {
    beam_column(unsigned n, bool pinned, double shear_area, unsigned cases = 1)
    {
        pos = dense2D<double>(3, n + 1);
        for (unsigned i = 0; i <= n; ++i) pos(2, i) = L * i / n;
        fem::DOFs_mgr dofs(n + 1, false);
        for (unsigned i = 0; i <= n; ++i) {
            EXPECT_EQ(dofs.set(i, displacement_tag, true), no_error);
            EXPECT_EQ(dofs.set(i, rotation_tag, true), no_error);
        }
        if (pinned) {
            EXPECT_EQ(dofs.set(0, displacement_tag, false), no_error);
            EXPECT_EQ(dofs.set(0, rotation_tag, 2, false), no_error);
            EXPECT_EQ(dofs.set(n, displacement_tag, 0, 1, false), no_error);
        } else {
            EXPECT_EQ(dofs.set(0, displacement_tag, false), no_error);
            EXPECT_EQ(dofs.set(0, rotation_tag, false), no_error);
        }
        const double v[15] = {1, 0, 0, E, G, 0.0, 1.0, shear_area, shear_area, 2.0 * I, I, 20.0 * I, 0, 0, 0};
        dense1D<double, 8> d(22, 0.0);
        for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
        dense2D<unsigned> cells(2, n);
        for (unsigned e = 0; e < n; ++e) cells(0, e) = e, cells(1, e) = e + 1;
        EXPECT_EQ(law.init(d), no_error);
        EXPECT_EQ(physics.init(law), no_error);
        EXPECT_EQ(model.init(t.ctx, physics, cells, element_edge2), no_error);
        problem = fem::problem_data(t.ctx, pos, dofs, model.get_ID(), cases);
        for (unsigned c = 0; c < cases; ++c) {
            fem::loads_mgr loads = problem.get_loads_mgr(c);
            EXPECT_EQ(loads.record_DOF_load(fem::DOFs_mgr::ID(n, displacement_tag, 2), -thrust, test::no_func),
                      no_error);
        }
    }

    test::test_context t;
    dense2D<double> pos;
    fem::law_beam_StVenant law;
    fem::model_beam_lin physics;
    fem::numerical_model_stiff_lin model{t.ctx};
    fem::problem_data problem{t.ctx};
    double thrust = 1.0;
};

fem::solver_buckling_Euler::data_type buckle(const fem::problem_data& p, unsigned modes, double lo = 0.0,
                                             double hi = DBL_MAX, test::log_capture* c = nullptr)
{
    fem::solver_buckling_Euler s;
    s.settings.nbr_modes = modes;
    s.settings.tolerance = 1e-10;
    s.settings.max_iters = 200;
    s.settings.lambda_min = lo;
    s.settings.lambda_max = hi;
    if (c) test::report_to(s.settings, *c);
    fem::solver_buckling_Euler::data_type data(p);
    s.run(data);
    return data;
}

} // namespace

// Euler's loads pi² E I / (K L)²: K = 1 pinned, 2 for the cantilever; the second
// mode at 4 and 9 times the first. Ten cubic-deflection elements are within
// 0.5 % of the first (the error falls as h², about 0.1 % here on the second).
TEST(solver_buckling_Euler, beam_columns_buckle_at_Euler_loads)
{
    const double Pe = pi * pi * E * I / (L * L);
    struct row { bool pinned; double first, ratio; } rows[] = {{true, Pe, 4.0}, {false, Pe / 4.0, 9.0}};
    for (const row& r : rows) {
        SCOPED_TRACE(r.pinned ? "pinned" : "cantilever");
        beam_column col(10, r.pinned, 1e9);
        const auto data = buckle(col.problem, 2);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        ASSERT_EQ(data.lambdas.size(), 2u);
        EXPECT_NEAR(data.lambdas[0] / r.first, 1.0, 5e-3);
        EXPECT_NEAR(data.lambdas[1] / data.lambdas[0], r.ratio, 0.02 * r.ratio);
        EXPECT_EQ(data.modes.cols(), 2u);
    }
}

// Engesser: P = Pe / (1 + Pe / (G As)); with Pe / (G As) = 0.1 the column loses
// 9 % to shear, and Haringx's form differs from Engesser's by 0.5 % there.
TEST(solver_buckling_Euler, a_stocky_column_falls_below_Euler_by_the_shear_term)
{
    const double Pe = pi * pi * E * I / (L * L), As = Pe / (0.1 * G);
    beam_column col(20, true, As);
    const auto data = buckle(col.problem, 1);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.lambdas.size(), 1u);
    EXPECT_LT(data.lambdas[0], 0.95 * Pe);
    EXPECT_NEAR(data.lambdas[0] / (Pe / 1.1), 1.0, 1e-2);
}

// A column of hexa27, 1 x 1 x 20, `across` elements a side and ten along, clamped
// at its base and pressed on its top face by a unit total in consistent loads
// (Simpson's weights of the 9-node faces in each direction).
struct solid_column {
    explicit solid_column(unsigned across) : m(test::box_mesh(element_hexa27, {1.0, 1.0, 2.0 * L}, {across, across, 10}))
    {
        const unsigned model = t.solid(m, E, 0.0);
        fem::DOFs_mgr dofs(m.nbr_nodes(), true);
        for (unsigned n = 0; n < m.nbr_nodes(); ++n)
            if (m.pos(2, n) == 0.0) {
                EXPECT_EQ(dofs.set(n, displacement_tag, false), no_error);
            }
        problem = fem::problem_data(t.ctx, m.pos, dofs, model, 1);
        fem::loads_mgr loads = problem.get_loads_mgr(0);
        const auto weight = [&](double x) {
            const unsigned i = unsigned(std::lround(2.0 * across * x));
            return (i % 2 ? 4.0 : i == 0 || i == 2 * across ? 1.0 : 2.0) / (6.0 * across);
        };
        for (unsigned n = 0; n < m.nbr_nodes(); ++n)
            if (m.pos(2, n) > 2.0 * L - 1e-9) {
                EXPECT_EQ(loads.record_DOF_load(test::dof(n, 2), -weight(m.pos(0, n)) * weight(m.pos(1, n)), test::no_func),
                          no_error);
            }
    }

    test::test_context t;
    test::mesh m;
    fem::problem_data problem{t.ctx};
};

// The column of one element across: pi² E I / (4 L²) within 1 % (shear takes 0.2 %).
TEST(solver_buckling_Euler, a_solid_column_of_hexa27_buckles_at_the_cantilever_load)
{
    solid_column col(1);
    const auto data = buckle(col.problem, 1);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.lambdas.size(), 1u);
    EXPECT_NEAR(data.lambdas[0] / (pi * pi * E * I / (4.0 * 4.0 * L * L)), 1.0, 1e-2);
}

// The column of two elements across, whose K of a few MB goes past a 1 MB budget:
// on disk and on 2 threads it buckles as in core on 1; an interrupt at any of its
// checks ends the run with a warning, no error and no multiplier.
TEST(solver_buckling_Euler, on_disk_and_on_2_threads_as_in_core_and_interrupted_anywhere)
{
    solid_column col(2);
    fem::problem_data& p = col.problem;
    col.t.ctx.set_max_threads(1);
    test::log_capture clean;
    const auto first = buckle(p, 2, 0.0, DBL_MAX, &clean);
    ASSERT_EQ(first.error_code, no_error) << first.msg_title << first.msg_detail;
    ASSERT_EQ(first.lambdas.size(), 2u);
    col.t.ctx.set_max_threads(2);
    ASSERT_EQ(col.t.ctx.set_max_incore_size(1), no_error);
    test::log_capture disk;
    const auto second = buckle(p, 2, 0.0, DBL_MAX, &disk);
    ASSERT_EQ(second.error_code, no_error) << second.msg_title << second.msg_detail;
    double K_MB = 0.0;
    for (const auto& [level, line] : disk.lines)
        if (line.rfind("Requested memory for K", 0) == 0) K_MB = std::atof(line.substr(line.find('(') + 1).c_str());
    EXPECT_GT(K_MB, 1.0) << K_MB; // past the budget
    ASSERT_EQ(second.lambdas.size(), 2u);
    for (unsigned i = 0; i < 2; ++i) EXPECT_NEAR(second.lambdas[i], first.lambdas[i], 1e-10 * first.lambdas[i]);

    const int checks = clean.interrupt_calls;
    ASSERT_GT(checks, 4);
    for (int k = 0; k < checks; k += std::max(1, checks / 6)) {
        test::log_capture c;
        c.interrupt_at = k;
        const auto data = buckle(p, 2, 0.0, DBL_MAX, &c);
        SCOPED_TRACE(k);
        EXPECT_EQ(data.error_code, no_error);
        EXPECT_EQ(data.warning_code, interrupted_warning);
        EXPECT_EQ(c.interrupt_calls, k + 1);
        EXPECT_EQ(data.lambdas.size(), 0u);
    }
}

TEST(solver_buckling_Euler, a_tension_has_no_positive_multiplier)
{
    beam_column col(10, false, 1e9);
    beam_column pulled(10, false, 1e9);
    fem::loads_mgr loads = pulled.problem.get_loads_mgr(0);
    ASSERT_EQ(loads.record_DOF_load(fem::DOFs_mgr::ID(10, displacement_tag, 2), 2.0, test::no_func), no_error);
    test::log_capture c;
    const auto data = buckle(pulled.problem, 2, 0.0, DBL_MAX, &c);
    EXPECT_EQ(data.error_code, no_error);
    EXPECT_EQ(data.nbr_modes_in_range, 0u);
    EXPECT_EQ(data.lambdas.size(), 0u);
    EXPECT_TRUE(c.has("#modes in range [+0.000000E+00 +INF] : 0"));
    // The same column pushed: a closed range about its load holds it alone.
    const double Pe4 = pi * pi * E * I / (4.0 * L * L);
    const auto shifted = buckle(col.problem, 3, 0.5 * Pe4, 2.0 * Pe4);
    ASSERT_EQ(shifted.error_code, no_error) << shifted.msg_title;
    EXPECT_EQ(shifted.nbr_modes_in_range, 1u);
    ASSERT_EQ(shifted.lambdas.size(), 1u);
    EXPECT_NEAR(shifted.lambdas[0] / Pe4, 1.0, 5e-3);
}

TEST(solver_buckling_Euler, refusals_and_empty_runs)
{
    struct row { unsigned cases, modes; double lo, hi; error_type code; const char* detail; } rows[] = {
        {0, 1, 0.0, DBL_MAX, invalid_data_error, "KELT solver_buckling_Euler: Needs exactly one load case.\n"},
        {2, 1, 0.0, DBL_MAX, invalid_data_error, "KELT solver_buckling_Euler: Needs exactly one load case.\n"},
        {1, 1, 2.0, 1.0, invalid_data_error, "KELT solver_buckling_Euler: invalid settings.\n"},
        {1, 0, 0.0, DBL_MAX, no_error, ""},
        {1, 2, 1e6, 2e6, no_error, ""}, // a range with no multiplier
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.cases * 100 + r.modes);
        beam_column col(4, true, 1e9, r.cases);
        test::log_capture c;
        const auto data = buckle(col.problem, r.modes, r.lo, r.hi, &c);
        EXPECT_EQ(data.error_code, r.code);
        EXPECT_EQ(std::string(data.msg_detail).rfind(r.detail, 0), 0u);
        EXPECT_EQ(data.lambdas.size(), 0u);
        EXPECT_EQ(c.lines.empty(), r.code != no_error || r.modes == 0);
        if (r.lo == 1e6) {
            EXPECT_TRUE(c.has("#modes in range [+1.000000E+06 +2.000000E+06] : 0"));
        }
    }
}

// rho(i, j) for two modes in closed form, with r = w1 / w2.
double cqc(double r, double a, double b)
{
    return 8.0 * std::sqrt(a * b * r) * r * (r * a + b) /
           ((1 - r * r) * (1 - r * r) + 4 * a * b * r * (1 + r * r) + 4 * r * r * (a * a + b * b));
}

TEST(spectrum_combination_cqc, unit_diagonal_symmetric_and_the_two_mode_form)
{
    dense1D<double, 8> w(2, 0.0), xs(2, 0.0), ys(2, 0.0);
    w[0] = 10.0, w[1] = 12.0;
    xs[0] = 10.0, xs[1] = 12.0;
    struct row { double x1, x2; } rows[] = {{0.05, 0.05}, {0.02, 0.07}};
    for (const row& r : rows) {
        ys[0] = r.x1, ys[1] = r.x2;
        fem::spectrum_combination_cqc c;
        c.init(fem::oneD_table(xs, ys));
        const symmetric_full<double> rho = c(w);
        EXPECT_DOUBLE_EQ(rho(0, 0), 1.0);
        EXPECT_DOUBLE_EQ(rho(1, 1), 1.0);
        // The pair is stored as computed last: r = w2 / w1, a = x2, b = x1. The
        // form is symmetric for any dampings (r -> 1 / r with a and b swapped
        // scales numerator and denominator by r^-4 alike), but not in the
        // dampings alone: unequal ones catch a and b exchanged.
        EXPECT_NEAR(rho(0, 1), cqc(12.0 / 10.0, r.x2, r.x1), 1e-15);
        EXPECT_NEAR(cqc(10.0 / 12.0, r.x1, r.x2), cqc(12.0 / 10.0, r.x2, r.x1), 1e-15);
        if (r.x1 != r.x2) {
            EXPECT_GT(std::fabs(cqc(12.0 / 10.0, r.x1, r.x2) - cqc(12.0 / 10.0, r.x2, r.x1)), 1e-3);
        }
    }
}

// Two dynamic modes and one pseudo mode over two DOFs, two components each:
// value² = r1² + r2² + 2 rho r1 r2 + q², worked out here term by term.
TEST(solver_response_spectrum, a_two_mode_system_by_hand_and_the_stride_error)
{
    beam_column col(2, true, 1e9);
    dense1D<unsigned, 8> IDs(2, 0u);
    IDs[0] = fem::DOFs_mgr::ID(1, displacement_tag, 0), IDs[1] = fem::DOFs_mgr::ID(1, displacement_tag, 1);
    const double phi[4][2] = {{1.0, 0.5}, {0.2, -1.0}, {-0.7, 2.0}, {0.3, 0.1}}; // mode 1 c0, c1, mode 2 c0, c1
    fem::FEM_matrix modes(IDs, 4), pseudo(IDs, 2);
    for (unsigned j = 0; j < 4; ++j)
        for (unsigned k = 0; k < 2; ++k) ASSERT_EQ(modes.set_val(k, j, phi[j][k]), no_error);
    for (unsigned k = 0; k < 2; ++k) {
        ASSERT_EQ(pseudo.set_val(k, 0, 0.1 * (k + 1)), no_error);
        ASSERT_EQ(pseudo.set_val(k, 1, -0.3), no_error);
    }
    fem::spectrum_combination_cqc cqc_5;
    cqc_5.init(fem::oneD_table(0.05));
    fem::solver_response_spectrum s;
    s.settings.stride = 2;
    fem::solver_response_spectrum::data_type data(col.problem);
    data.modes = fem::FEM_states(modes);
    data.pseudo_modes = fem::FEM_states(pseudo);
    data.nbr_dynamic_modes = 2, data.nbr_static_modes = 1;
    data.omega = dense1D<double, 8>(2, 0.0);
    data.omega[0] = 10.0, data.omega[1] = 11.0;
    data.PF = dense2D<double>(2, 1), data.static_PF = dense2D<double>(1, 1);
    data.PF(0, 0) = 300.0, data.PF(1, 0) = -242.0, data.static_PF(0, 0) = 2.0;
    data.combination = &cqc_5;
    data.PF_div_omega2();
    s.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    const double rho = cqc(11.0 / 10.0, 0.05, 0.05);
    for (unsigned c = 0; c < 2; ++c) {
        double T = 0.0, D = 0.0;
        for (unsigned k = 0; k < 2; ++k) {
            const double r1 = 3.0 * phi[c][k], r2 = -2.0 * phi[2 + c][k];
            const double q = 2.0 * (c == 0 ? 0.1 * (k + 1) : -0.3);
            const double dyn = r1 * r1 + r2 * r2 + 2.0 * rho * r1 * r2, value = std::sqrt(dyn + q * q);
            double got = 0.0;
            ASSERT_EQ(data.response.get_val(k, c, got), no_error);
            EXPECT_NEAR(got, value, 1e-12 * value);
            T += value * value, D += dyn;
        }
        EXPECT_NEAR(data.correction[c], std::sqrt((T - D) / T), 1e-12);
    }
    // Three columns are not a whole number of modes of two; nor is a count that
    // disagrees with the columns; and a PF of the wrong size is left alone.
    struct row { unsigned stride, dyn; } bad[] = {{3, 2}, {2, 3}};
    for (const row& r : bad) {
        fem::solver_response_spectrum t;
        t.settings.stride = r.stride;
        auto d = data;
        d.nbr_dynamic_modes = r.dyn;
        t.run(d);
        EXPECT_STREQ(d.msg_detail, "KELT solver_response_spectrum: stride error.\n");
    }
    s.settings.stride = 0;
    s.run(data);
    EXPECT_STREQ(data.msg_title, "MODE ERROR");
    data.clear_data_out();
    data.omega = dense1D<double, 8>(3, 1.0);
    data.PF_div_omega2();
    EXPECT_EQ(data.error_code, invalid_data_error);
    EXPECT_EQ(data.PF(0, 0), 3.0);
}

// A cantilever pressed at its top and held back at mid-height: the upper half
// compressed, the lower half unloaded (a bending spring EI / b under the upper
// half: x tan x = a / b, P = EI (x / a)^2) or pulled (G indefinite), which
// stiffens it without reaching the upper half clamped at mid-height.
TEST(solver_buckling_Euler, a_column_compressed_above_mid_height_only)
{
    const double a = 0.5 * L;
    double x = 0.8; // x tan x = 1 by Newton
    for (int k = 0; k < 50; ++k) x -= (x * std::tan(x) - 1.0) / (std::tan(x) + x / (std::cos(x) * std::cos(x)));
    const double spring = E * I * x * x / (a * a), clamped = pi * pi * E * I / (4.0 * a * a);
    double lambda[2] = {};
    for (unsigned k = 0; k < 2; ++k) {
        SCOPED_TRACE(k == 0 ? "unloaded below" : "pulled below");
        beam_column col(20, false, 1e9);
        fem::loads_mgr loads = col.problem.get_loads_mgr(0);
        ASSERT_EQ(loads.record_DOF_load(fem::DOFs_mgr::ID(10, displacement_tag, 2), k == 0 ? 1.0 : 2.0, test::no_func),
                  no_error);
        const auto data = buckle(col.problem, 1);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        ASSERT_EQ(data.lambdas.size(), 1u);
        lambda[k] = data.lambdas[0];
    }
    EXPECT_NEAR(lambda[0] / spring, 1.0, 5e-3);
    EXPECT_GT(lambda[1], 1.05 * lambda[0]);
    EXPECT_LT(lambda[1], clamped);
}
