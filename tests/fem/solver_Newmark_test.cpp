// Newmark on oscillators of one hexa8 against closed forms; outputs, stops, failures, threads, disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "kelt/fem.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {
constexpr double pi = 3.141592653589793, rho = 2.7e-3;

// The unit cube, its far corner free along z (and, with two, its neighbour at x = 0).
struct oscillator {
    explicit oscillator(unsigned free_DOFs = 1)
        : m(box_mesh(element_hexa8, {1.0, 1.0, 1.0}, {1, 1, 1})),
          model(t.composite({t.solid(m, 1000.0, 0.0), t.mass(m, rho)}))
    {
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(1, node) == 1.0 && m.pos(2, node) == 1.0 && (m.pos(0, node) == 1.0 || free_DOFs == 2)) {
                ids.insert(m.pos(0, node) == 1.0 ? ids.begin() : ids.end(), dof(node, 2));
                EXPECT_EQ(DOFs.set(node, displacement_tag, 2, true), no_error);
            }
        problem = fem::problem_data(t.ctx, m.pos, DOFs, model, 1);
    }
    // Displacements under a unit force on each free DOF: the flexibility.
    std::vector<double> flexibility()
    {
        fem::problem_data p(t.ctx, m.pos, DOFs, model, unsigned(ids.size()));
        for (unsigned c = 0; c < ids.size(); ++c) EXPECT_EQ(p.get_loads_mgr(c).record_DOF_load(ids[c], 1.0, no_func), no_error);
        fem::solver_static_linear::data_type d(p);
        fem::solver_static_linear().run(d);
        std::vector<double> f(ids.size() * ids.size());
        for (unsigned k = 0; k < f.size(); ++k) EXPECT_EQ(d.U.getID_val(ids[k % ids.size()], k / ids.size(), f[k]), no_error);
        return f;
    }
    double omega() { return std::sqrt(1.0 / flexibility()[0] / (rho / 27.0)); }

    fem::solver_Newmark::data_type run(double dt, unsigned steps, double force, double beta = 0.25, double gamma = 0.5)
    {
        if (force != 0.0) { EXPECT_EQ(problem.get_loads_mgr(0).record_DOF_load(ids[0], force, no_func), no_error); }
        solver.settings.dt = dt, solver.settings.t_end = steps * dt, solver.settings.beta = beta, solver.settings.gamma = gamma;
        fem::solver_Newmark::data_type d(problem);
        d.U_start = start;
        solver.run(d);
        EXPECT_EQ(d.error_code, no_error) << d.msg_title << d.msg_detail;
        return d;
    }
    // DOF ids[i] at column c.
    double at(const fem::solver_Newmark::data_type& d, unsigned c, unsigned i = 0) { double v = NAN; return d.U.getID_val(ids[i], c, v) == no_error ? v : NAN; }

    test_context t;
    mesh m;
    unsigned model;
    fem::DOFs_mgr DOFs{m.nbr_nodes(), false};
    std::vector<unsigned> ids;
    fem::problem_data problem{t.ctx};
    fem::solver_Newmark solver;
    fem::FEM_states start;
};

// d_{n+1} = p d_n + q d_{n-1} fitted by least squares: the step's amplification
// r e^{i Omega dt} with r = sqrt(-q), cos(Omega dt) = p / 2r.
std::pair<double, double> fit(const std::vector<double>& d)
{
    double a = 0, b = 0, c = 0, y1 = 0, y2 = 0;
    for (std::size_t n = 1; n + 1 < d.size(); ++n)
        a += d[n] * d[n], b += d[n] * d[n - 1], c += d[n - 1] * d[n - 1], y1 += d[n + 1] * d[n], y2 += d[n + 1] * d[n - 1];
    const double p = (y1 * c - y2 * b) / (a * c - b * b), q = (a * y2 - b * y1) / (a * c - b * b);
    return {std::sqrt(-q), std::acos(p / (2.0 * std::sqrt(-q)))};
}

} // namespace

TEST(solver_Newmark, single_DOF_period_elongation_decay_and_step_load_peak)
{
    struct row { double dt_T, beta, gamma, xi_M, xi_K; }; // xi from a_M, from a_K
    const row rows[] = {{0.01, 0.25, 0.5, 0, 0},        {0.05, 0.25, 0.5, 0, 0},  {0.2, 0.25, 0.5, 0, 0},
                        {0.5, 0.3025, 0.6, 0, 0},       {0.002, 0.25, 0.5, 0.02, 0}, {0.002, 0.25, 0.5, 0, 0.03}};
    for (const row& r : rows) {
        oscillator o;
        const double w = o.omega(), dt = r.dt_T * 2.0 * pi / w, F = -2.0, us = F * o.flexibility()[0];
        o.solver.settings.damping_M = 2.0 * r.xi_M * w, o.solver.settings.damping_K = 2.0 * r.xi_K / w;
        const auto d = o.run(dt, 200, F, r.beta, r.gamma);
        std::vector<double> dev;
        double peak = 0.0;
        for (unsigned s = 1; s <= 200; ++s) dev.push_back(o.at(d, s - 1) - us), peak = std::max(peak, o.at(d, s - 1) / us);
        const auto [amp, phase] = fit(dev);
        const double xi = r.xi_M + r.xi_K; // (a_M / w + a_K w) / 2
        if (r.gamma > 0.5) {
            EXPECT_LT(amp, 0.99) << r.dt_T; // high frequencies damped
        } else if (xi == 0.0) {
            EXPECT_NEAR(amp, 1.0, 1e-9) << r.dt_T; // no amplitude decay
            EXPECT_NEAR(phase, 2.0 * std::atan(w * dt / 2.0), 1e-7 * phase) << r.dt_T;
        } else {
            EXPECT_NEAR(-std::log(amp) / (w * dt), xi, 1e-2 * xi) << r.xi_M;
        }
        if (r.dt_T == 0.01) { EXPECT_NEAR(peak, 2.0, 1e-2); } // twice the static deflection
    }
}

TEST(solver_Newmark, free_vibration_from_a_start_state_and_conserved_energy)
{
    for (unsigned nbr : {1u, 2u}) {
        oscillator o(nbr);
        const auto f = o.flexibility();
        const double w = o.omega(), dt = 0.002 * 2.0 * pi / w, u0 = 1e-3, v0 = 2e-3 * w;
        o.start = fem::FEM_states(fem::FEM_matrix(dense1D<unsigned, 8>(unsigned(o.ids.size()), o.ids.data()), 2));
        ASSERT_TRUE(o.start.setID_val(o.ids[0], 0, u0) == no_error && o.start.setID_val(o.ids[nbr - 1], 1, v0) == no_error);
        o.solver.settings.output_fields = 512;
        const auto d = o.run(dt, 300, 0.0);
        if (nbr == 1) { // u0 cos wt + v0 / w sin wt, to the error of a first step from A = 0
            for (unsigned s = 1; s <= 300; ++s)
                EXPECT_NEAR(o.at(d, 2 * s - 2), u0 * std::cos(w * s * dt) + v0 / w * std::sin(w * s * dt), 1e-2 * u0);
            continue;
        }
        // The trapezoidal rule keeps 1/2 vT M v + 1/2 uT K u exactly once the state is in equilibrium.
        const double det = f[0] * f[3] - f[1] * f[2], K[4] = {f[3] / det, -f[1] / det, -f[2] / det, f[0] / det},
                     M[4] = {rho / 27, rho / 54, rho / 54, rho / 27};
        double E0 = 0.0;
        for (unsigned s = 0; s < 300; ++s) {
            const double u[2] = {o.at(d, 2 * s, 0), o.at(d, 2 * s, 1)}, v[2] = {o.at(d, 2 * s + 1, 0), o.at(d, 2 * s + 1, 1)};
            double e = 0.0;
            for (unsigned i = 0; i < 2; ++i)
                for (unsigned j = 0; j < 2; ++j) e += 0.5 * (u[i] * K[2 * i + j] * u[j] + v[i] * M[2 * i + j] * v[j]);
            if (s == 0) E0 = e;
            EXPECT_NEAR(e, E0, 1e-12 * E0) << s;
        }
    }
}

TEST(solver_Newmark, step_counts_output_groups_and_times)
{
    struct row { double span; unsigned period, output_fields, steps, cols; }; // span in steps
    const row rows[] = {{2.5, 1, 256, 2, 4}, {3.5, 1, 256, 4, 6}, {7, 3, 512, 7, 7}, {7, 10, 1024, 7, 3}};
    oscillator o;
    fem::solver_Newmark::data_type ref = o.run(0.25, 7, -1.0); // one column per step
    for (const row& r : rows) {
        o.solver.settings.output_period = r.period, o.solver.settings.output_fields = r.output_fields;
        o.solver.settings.t_start = 0.5, o.solver.settings.t_end = 0.5 + r.span * 0.25, o.solver.settings.dt = 0.25;
        fem::solver_Newmark::data_type d(o.problem);
        o.solver.run(d);
        ASSERT_EQ(d.nbr_steps_done, r.steps);
        ASSERT_TRUE(d.U.cols() == r.cols && d.times.size() == r.cols);
        const unsigned f = r.output_fields / 256 - (r.output_fields == 1024), groups = (r.steps + r.period - 1) / r.period;
        for (unsigned c = 0; c < r.cols; ++c) {
            const unsigned step = std::min(r.steps, (std::min(c / f, groups - 1) + 1) * r.period);
            EXPECT_EQ(d.times[c], 0.5 + step * 0.25) << c;
            if (c % f == 0 && c <= (groups - 1) * f) { EXPECT_EQ(o.at(d, c), o.at(ref, step - 1)) << r.span << " " << c; }
        }
    }
}

TEST(solver_Newmark, a_host_stop_or_interrupt_keeps_every_completed_step)
{
    oscillator o;
    const auto ref = o.run(1e-3, 10, -1.0);
    for (bool interrupt : {false, true}) {
        unsigned s[2] = {interrupt ? 0u : 3u, 0}; // the step to stop at, the last step reported
        o.solver.settings.user_data = s;
        o.solver.settings.iteration_hdl = [](void* u, double, unsigned step, unsigned, bool* stop) {
            static_cast<unsigned*>(u)[1] = step, *stop = *stop || step == static_cast<unsigned*>(u)[0];
        };
        if (interrupt) o.solver.settings.interrupt_hdl = [](void* u) { return static_cast<unsigned*>(u)[1] == 4; };
        fem::solver_Newmark::data_type d(o.problem);
        o.solver.run(d);
        const unsigned n = interrupt ? 4 : 3;
        EXPECT_TRUE(d.nbr_steps_done == n && d.error_code == no_error && std::fabs(d.t - n * 1e-3) < 1e-15);
        EXPECT_EQ(d.warning_code, interrupt ? interrupted_warning : no_error);
        for (unsigned c = 0; c < n; ++c) EXPECT_EQ(o.at(d, c), o.at(ref, c)) << c;
    }
}

TEST(solver_Newmark, refusals_and_a_diverging_explicit_run_are_in_the_record)
{
    oscillator o(2);
    fem::solver_Newmark::data_type d(o.problem);
    o.solver.run(d); // default settings: no end time, no step
    EXPECT_TRUE(d.error_code == invalid_data_error && std::string(d.msg_title) == "MODE ERROR");
    // beta = 0 with a consistent mass, far above the stable step: the run blows up.
    ASSERT_EQ(o.problem.get_loads_mgr(0).record_DOF_load(o.ids[0], -1.0, no_func), no_error);
    o.solver.settings.beta = 0.0, o.solver.settings.dt = 100.0 / o.omega(), o.solver.settings.t_end = 400 * o.solver.settings.dt;
    o.solver.run(d);
    EXPECT_TRUE(d.error_code == inf_nan_error && std::string(d.msg_title) == "INF or NaN detected.");
    for (unsigned c = 0; c < d.U.cols(); ++c) EXPECT_TRUE(std::isfinite(o.at(d, c))) << c;
}

TEST(solver_Newmark, one_and_two_threads_in_core_and_on_disk_agree)
{
    for (bool disk : {false, true}) { // 2 threads in core, 1 thread with the states on disk
        test_context t;
        mesh m = box_mesh(element_hexa8, {20.0, 3.0, 3.0}, {20, 3, 3});
        fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(0, node) == 0.0) { ASSERT_EQ(DOFs.set(node, displacement_tag, false), no_error); }
        fem::problem_data p(t.ctx, m.pos, DOFs, t.composite({t.solid(m, 1000.0, 0.3), t.mass(m, 1e-3)}), 1);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(0, node) == 20.0) { ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(node, 2), -1.0, no_func), no_error); }
        fem::solver_Newmark s;
        s.settings.dt = 0.05, s.settings.t_end = 10.0, s.settings.damping_K = 1e-3;
        fem::solver_Newmark::data_type first(p), second(p);
        t.ctx.set_max_threads(1), s.run(first), t.ctx.set_max_threads(disk ? 1 : 2);
        if (disk) { ASSERT_EQ(t.ctx.set_max_incore_size(1), no_error); }
        s.run(second);
        ASSERT_TRUE(second.error_code == no_error && second.U.cols() == 202u) << second.msg_title << second.msg_detail;
        for (unsigned c = 0; c < 202; ++c) {
            dense1D<double, 8> a, b;
            ASSERT_TRUE(first.U.get_col(c, a) == no_error && second.U.get_col(c, b) == no_error);
            const double top = std::fabs(*std::max_element(a.begin(), a.end(), [](double x, double y) { return std::fabs(x) < std::fabs(y); }));
            for (unsigned i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-9 * top) << c;
        }
    }
}
