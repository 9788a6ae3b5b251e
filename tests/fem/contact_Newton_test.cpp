// Contact, stops and cables in Newton's iterations against statics, each case on
// one thread in core and on two threads out of core.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <tuple>
#include <utility>
#include <vector>

#include "support/solid_problems.h"
#include "support/values.h"

namespace kelt::test {
namespace {

using Newton = fem::solver_static_Newton;
constexpr double sharp = std::numeric_limits<double>::max();
using run_mode = std::pair<int, unsigned>; // threads, budget in MB (0: in core)
constexpr run_mode modes[] = {{1, 0}, {2, 1}};

Newton::data_type solve(test_context& t, const run_mode& mode, fem::problem_data& p, const char* name,
                        const fem::FEM_states* start = nullptr)
{
    t.ctx.set_max_threads(mode.first);
    EXPECT_EQ(t.ctx.set_max_incore_size(mode.second), no_error);
    Newton::data_type data(p);
    if (start) data.U_start = *start;
    Newton().run(data);
    EXPECT_EQ(data.error_code, no_error) << name << ": " << data.msg_title << data.msg_detail;
    std::printf("[ Newton   ] %s, %d thread(s): %u iterations\n", name, mode.first, data.total_iters);
    return data;
}

// A unit cube (E = 1000) on the plane z = 0, its base nodes the slaves of a contact
// of stiffness k, 1e-9 of overlap at the start so that the first tangent holds it.
// Pressed by F on its top, the plane pushes back with exactly F, each slave sinking
// about F / 9k; lifted by its top, it leaves the plane: all rises alike, nothing is stored.
TEST(contact_Newton, block_on_a_rigid_plane)
{
    const double F = 10.0, k = 1e5, lift = 0.01, overlap = 1e-9;
    for (const run_mode& mode : modes)
        for (bool pull : {false, true}) {
            test_context t;
            mesh m = box_mesh(element_hexa8, {1.0, 1.0, 1.0}, {2, 2, 2});
            const unsigned master = m.nbr_nodes();
            dense2D<double> pos(3, master + 1, 0.0);
            fem::DOFs_mgr DOFs(master + 1, true);
            ASSERT_EQ(DOFs.set(master, displacement_tag, false), no_error);
            dense1D<unsigned, 8> base, top;
            for (unsigned i = 0; i < master; ++i) {
                for (unsigned c = 0; c < 3; ++c) pos(c, i) = m.pos(c, i);
                for (unsigned c = 0; c < 2; ++c)
                    EXPECT_TRUE(pos(c, i) != 0.0 || DOFs.set(i, displacement_tag, c, false) == no_error);
                if (pos(2, i) != 0.5) (pos(2, i) == 0.0 ? base : top).push_back(i);
            }
            fem::contact_plane plane(t.ctx);
            ASSERT_EQ(plane.init(base, master, {{0.0, 0.0, 1.0}}, -overlap, sharp, k), no_error);
            fem::problem_data p(t.ctx, pos, DOFs, t.composite({t.solid(m, 1000.0, 0.3), plane.get_ID()}), 1);
            for (unsigned i : top)
                ASSERT_EQ(pull ? p.get_loads_mgr(0).record_DOF_prescribed_value(dof(i, 2), lift, no_func)
                               : p.get_loads_mgr(0).record_DOF_load(dof(i, 2), -F / top.size(), no_func),
                          no_error);
            const Newton::data_type d = solve(t, mode, p, pull ? "block lifted" : "block pressed");
            double sum = 0.0, deepest = 0.0;
            for (unsigned i : base) {
                const double g = value(d.U, dof(i, 2)) - overlap;
                sum += g < 0.0 ? -k * g : 0.0, deepest = std::max(deepest, -g);
            }
            if (pull) {
                EXPECT_EQ(sum, 0.0);
                for (unsigned i = 0; i < master; ++i) EXPECT_NEAR(value(d.U, dof(i, 2)), lift, 1e-12) << i;
                EXPECT_NEAR(d.energy[0], 0.0, 1e-15);
            } else {
                EXPECT_NEAR(sum, F, 1e-9 * F);
                EXPECT_GT(deepest, F / (9 * k));
                EXPECT_LT(deepest, 4 * F / (9 * k));
            }
        }
}

// A round shaft, twelve surface nodes carried rigidly by its centre, in a bore of
// its radius less 1e-9 (so that the first tangent holds it), pushed sideways by F:
// the bore's forces sum to -F, and only nodes on the loaded side press.
TEST(contact_Newton, shaft_in_a_rigid_bore)
{
    const double F = 2.0, k = 1e6, angle = 0.3, R = 1.0 - 1e-9, load[2] = {F * std::cos(angle), F * std::sin(angle)};
    const unsigned N = 12, bore = N + 1;
    for (const run_mode& mode : modes) {
        test_context t;
        dense2D<double> pos(3, N + 2, 0.0);
        fem::DOFs_mgr DOFs(N + 2, false);
        dense1D<unsigned, 8> body(1, 0u), surface;
        for (unsigned i = 1; i <= N; ++i) {
            pos(0, i) = std::cos(2 * std::numbers::pi * i / N), pos(1, i) = std::sin(2 * std::numbers::pi * i / N);
            body.push_back(i), surface.push_back(i);
            ASSERT_EQ(DOFs.set(i, displacement_tag, true), no_error);
        }
        ASSERT_EQ(DOFs.set(0, displacement_tag, 0, 1, true), no_error);
        fem::rigid_body_lin shaft(t.ctx);
        fem::contact_cylinder hole(t.ctx);
        ASSERT_EQ(shaft.init(body, false), no_error);
        ASSERT_EQ(hole.init(surface, bore, {{0.0, 0.0, 2.0}}, R, -sharp, k, true), no_error);
        fem::problem_data p(t.ctx, pos, DOFs, t.composite({shaft.get_ID(), hole.get_ID()}), 1);
        for (unsigned c = 0; c < 2; ++c)
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(0, c), load[c], no_func), no_error);
        const Newton::data_type d = solve(t, mode, p, "shaft in a bore");
        double sum[2] = {};
        for (unsigned i = 1; i <= N; ++i) {
            const double x = pos(0, i) + value(d.U, dof(i, 0)), y = pos(1, i) + value(d.U, dof(i, 1)),
                         r = std::hypot(x, y);
            if (r <= R) continue;
            sum[0] -= k * (r - R) * x / r, sum[1] -= k * (r - R) * y / r;
            EXPECT_GT(x * load[0] + y * load[1], 0.0) << i;
        }
        for (unsigned c = 0; c < 2; ++c) EXPECT_NEAR(sum[c], -load[c], 1e-9 * F) << c;
    }
}

// Node 1 on grounded springs k in the three values of a field, with a one-sided
// element: a stop keeping its value along x at or above -0.5, or a tension-only
// rigid cable to node 0 two units away along -x. Loaded by F along x, it is held
// (to F / P, P = 1e12 the floor of the penalty) or free at F / k exactly; a stop
// that holds lets go when the load is reversed from the held state.
TEST(contact_Newton, stops_and_slack_cables_hold_or_let_go)
{
    const double F = 1.0, k = 1.0;
    // {stop, field, the load's sign, the held value (NaN: free)}
    const std::tuple<bool, field_tag, double, double> rows[] = {{true, displacement_tag, -1, -0.5},
                                                                {true, rotation_tag, -1, -0.5},
                                                                {false, displacement_tag, 1, 0.0},
                                                                {false, displacement_tag, -1, NAN}};
    for (const run_mode& mode : modes)
        for (const auto& [is_stop, field, sign, held] : rows) {
            SCOPED_TRACE(testing::Message() << is_stop << field << sign);
            test_context t;
            const unsigned first = fem::DOFs_mgr::ID(1, field, 0);
            dense2D<double> pos(3, 2, 0.0);
            pos(0, 1) = 2.0;
            fem::DOFs_mgr DOFs(2, false);
            ASSERT_EQ(DOFs.set(1, field, true), no_error);
            fem::stiffness_diag springs(t.ctx);
            fem::block_stops stop(t.ctx);
            fem::cable_rigid tie(t.ctx);
            ASSERT_EQ(springs.init(dense1D<double, 8>(3, k), make<unsigned>({first, first + 1, first + 2})), no_error);
            ASSERT_EQ(is_stop ? stop.init(make<unsigned>({1}), field, {{3.0, 0.0, 0.0}}, 0.5)
                              : tie.init(make<unsigned>({0, 1}), true, 0.0, 0.0),
                      no_error);
            fem::problem_data p(t.ctx, pos, DOFs,
                                t.composite({springs.get_ID(), is_stop ? stop.get_ID() : tie.get_ID()}), 1);
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(first, sign * F, no_func), no_error);
            const Newton::data_type d = solve(t, mode, p, is_stop ? "stop" : "rigid cable");
            EXPECT_NEAR(value(d.U, first), std::isnan(held) ? sign * F / k : held, std::isnan(held) ? 1e-12 : 1e-9);
            if (!is_stop) continue;
            p.get_loads_mgr(0).clear();
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(first, F, no_func), no_error);
            EXPECT_NEAR(value(solve(t, mode, p, "stop released", &d.U).U, first), F / k, 1e-12);
        }
}

// 40 two-node cables (EA = 1, initial strain e0, so that the straight start is
// taut) between level supports one apart, weights w / 40 at the nodes, from the
// straight line. The elastic catenary of that cable (Lagrangian s on the reference
// length L0, T = EA (stretch - 1 + e0)): 2 (1 - e0) (H / w) asinh(w L0 / 2H) +
// H L0 / EA = span fixes H, the sag is (1 - e0) (H / w) (sqrt(1 + (w L0 / 2H)²) - 1)
// + w L0² / 8 EA. The chain lies on it to O(1/n²), about 1e-4 here.
TEST(contact_Newton, cable_sags_as_the_elastic_catenary)
{
    const unsigned n = 40;
    const double EA = 1.0, e0 = 0.01, w = 0.0285;
    double lo = 1e-6, hi = 1e3, H = 0.0;
    for (int i = 0; i < 200; ++i) {
        H = 0.5 * (lo + hi);
        (2 * (1 - e0) * H / w * std::asinh(w / (2 * H)) + H / EA > 1 ? hi : lo) = H;
    }
    const double sag = (1 - e0) * H / w * (std::sqrt(1 + std::pow(w / (2 * H), 2)) - 1) + w / (8 * EA);
    ASSERT_NEAR(sag, 0.1, 0.005); // the sag ratio asked of the test
    fem::law_spring law;
    dense1D<double, 8> data(5, 0.0);
    data[0] = EA, data[3] = e0;
    ASSERT_EQ(law.init(data), no_error);
    for (const run_mode& mode : modes) {
        test_context t;
        dense2D<double> pos(3, n + 1, 0.0);
        fem::DOFs_mgr DOFs(n + 1, true);
        ASSERT_TRUE(DOFs.set(0, displacement_tag, false) == no_error &&
                    DOFs.set(n, displacement_tag, false) == no_error);
        std::vector<fem::cable> segments(n);
        fem::numerical_model_composite all(t.ctx);
        for (unsigned i = 0; i < n; ++i) {
            pos(0, i + 1) = double(i + 1) / n;
            segments[i].create(t.ctx);
            ASSERT_TRUE(segments[i].init(make<unsigned>({i, i + 1}), law) == no_error &&
                        all.insert(segments[i].get_ID()) == no_error);
        }
        fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
        for (unsigned i = 1; i < n; ++i)
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(i, 2), -w / n, no_func), no_error);
        EXPECT_NEAR(-value(solve(t, mode, p, "cable sag").U, dof(n / 2, 2)), sag, 0.005 * sag);
    }
}

} // namespace
} // namespace kelt::test
