// Contact, stops and cables inside Newton's iterations, against statics: a block
// resting on a rigid plane, a shaft pressed into a rigid bore, a stop that holds
// and lets go, a cable sagging under its weight, a slack one, and Hertz's sphere.
// Each case but the last runs on one thread in core and on two threads out of core.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <vector>

#include "support/solid_problems.h"

namespace kelt::test {
namespace {

using Newton = fem::solver_static_Newton;
constexpr double sharp = std::numeric_limits<double>::max();
struct run_mode {
    int threads;
    unsigned budget_mb; // 0: in core
};
constexpr run_mode modes[] = {{1, 0}, {2, 1}};

dense1D<unsigned, 8> list(const std::vector<unsigned>& v)
{
    dense1D<unsigned, 8> d;
    for (unsigned x : v) d.push_back(x);
    return d;
}

Newton::data_type solve(test_context& t, const run_mode& mode, fem::problem_data& p, const char* name,
                        const fem::FEM_states* start = nullptr)
{
    t.ctx.set_max_threads(mode.threads);
    EXPECT_EQ(t.ctx.set_max_incore_size(mode.budget_mb), no_error);
    Newton::data_type data(p);
    if (start) data.U_start = *start;
    Newton().run(data);
    EXPECT_EQ(data.error_code, no_error) << name << ": " << data.msg_title << data.msg_detail;
    std::printf("[ Newton   ] %s, %d thread(s): %u iterations\n", name, mode.threads, data.total_iters);
    return data;
}

// A unit cube of hexa8 (E = 1000) on the plane z = 0, held on its symmetry planes
// x = 0 and y = 0, its base nodes the slaves of a contact of stiffness k. Pressed
// by F on its top the plane pushes back with exactly F, each slave sinking about
// F / (9 k); lifted by its top it leaves the plane: every node rises alike and
// nothing is stored. A penetration of 1e-9 at the start lets the first tangent
// hold the block.
TEST(contact_Newton, block_on_a_rigid_plane)
{
    const double F = 10.0, k = 1e5, lift = 0.01, overlap = 1e-9;
    for (const run_mode& mode : modes)
        for (bool pull : {false, true}) {
            test_context t;
            mesh m = box_mesh(element_hexa8, {1.0, 1.0, 1.0}, {2, 2, 2});
            const unsigned n = m.nbr_nodes(), master = n;
            dense2D<double> pos(3, n + 1, 0.0);
            fem::DOFs_mgr DOFs(n + 1, true);
            ASSERT_EQ(DOFs.set(master, displacement_tag, false), no_error);
            std::vector<unsigned> base, top;
            for (unsigned i = 0; i < n; ++i) {
                for (unsigned c = 0; c < 3; ++c) pos(c, i) = m.pos(c, i);
                for (unsigned c = 0; c < 2; ++c)
                    if (m.pos(c, i) == 0.0) {
                        ASSERT_EQ(DOFs.set(i, displacement_tag, c, false), no_error);
                    }
                if (m.pos(2, i) == 0.0) base.push_back(i);
                if (m.pos(2, i) == 1.0) top.push_back(i);
            }
            fem::contact_plane plane(t.ctx);
            ASSERT_EQ(plane.init(list(base), master, {{0.0, 0.0, 1.0}}, -overlap, sharp, k), no_error);
            fem::problem_data p(t.ctx, pos, DOFs, t.composite({t.solid(m, 1000.0, 0.3), plane.get_ID()}), 1);
            for (unsigned i : top)
                ASSERT_EQ(pull ? p.get_loads_mgr(0).record_DOF_prescribed_value(dof(i, 2), lift, no_func)
                               : p.get_loads_mgr(0).record_DOF_load(dof(i, 2), -F / top.size(), no_func),
                          no_error);
            const Newton::data_type d = solve(t, mode, p, pull ? "block lifted" : "block pressed");
            double sum = 0.0, deepest = 0.0;
            for (unsigned i : base) {
                const double g = value(d.U, dof(i, 2)) - overlap;
                sum += g < 0.0 ? -k * g : 0.0;
                deepest = std::max(deepest, -g);
            }
            if (pull) {
                EXPECT_EQ(sum, 0.0);
                for (unsigned i = 0; i < n; ++i) EXPECT_NEAR(value(d.U, dof(i, 2)), lift, 1e-12) << i;
                EXPECT_NEAR(d.energy[0], 0.0, 1e-15);
            } else {
                EXPECT_NEAR(sum, F, 1e-9 * F);
                EXPECT_GT(deepest, F / (base.size() * k));
                EXPECT_LT(deepest, 4.0 * F / (base.size() * k));
            }
        }
}

// A round shaft, twelve surface nodes carried rigidly by its centre, in a bore of
// its own radius (less 1e-9, so that the first tangent holds it), pushed sideways
// by F: the bore's forces sum to -F, only nodes on the loaded side press, and the
// centre moves towards F.
TEST(contact_Newton, shaft_in_a_rigid_bore)
{
    const double F = 2.0, k = 1e6, angle = 0.3, R = 1.0;
    const unsigned N = 12, bore_centre = N + 1;
    for (const run_mode& mode : modes) {
        test_context t;
        dense2D<double> pos(3, N + 2, 0.0);
        fem::DOFs_mgr DOFs(N + 2, true);
        std::vector<unsigned> body{0}, surface;
        for (unsigned i = 1; i <= N; ++i) {
            pos(0, i) = R * std::cos(2 * std::numbers::pi * i / N), pos(1, i) = R * std::sin(2 * std::numbers::pi * i / N);
            body.push_back(i), surface.push_back(i);
            ASSERT_EQ(DOFs.set(i, rotation_tag, false), no_error);
        }
        ASSERT_EQ(DOFs.set(0, displacement_tag, 2, false), no_error);
        ASSERT_EQ(DOFs.set(0, rotation_tag, false), no_error);
        ASSERT_TRUE(DOFs.set(bore_centre, displacement_tag, false) == no_error &&
                    DOFs.set(bore_centre, rotation_tag, false) == no_error);
        fem::rigid_body_lin shaft(t.ctx);
        fem::contact_cylinder bore(t.ctx);
        ASSERT_EQ(shaft.init(list(body), false), no_error);
        ASSERT_EQ(bore.init(list(surface), bore_centre, {{0.0, 0.0, 2.0}}, R * (1 - 1e-9), -sharp, k, true),
                  no_error);
        fem::problem_data p(t.ctx, pos, DOFs, t.composite({shaft.get_ID(), bore.get_ID()}), 1);
        const double load[2] = {F * std::cos(angle), F * std::sin(angle)};
        for (unsigned c = 0; c < 2; ++c) ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(0, c), load[c], no_func), no_error);
        const Newton::data_type d = solve(t, mode, p, "shaft in a bore");
        double sum[2] = {}, pressing = 0;
        for (unsigned i : surface) {
            const double x = pos(0, i) + value(d.U, dof(i, 0)), y = pos(1, i) + value(d.U, dof(i, 1));
            const double r = std::hypot(x, y), g = r - R * (1 - 1e-9);
            if (g <= 0.0) continue;
            sum[0] -= k * g * x / r, sum[1] -= k * g * y / r;
            pressing += 1;
            EXPECT_GT(x * load[0] + y * load[1], 0.0) << i;
        }
        EXPECT_LT(pressing, N);
        for (unsigned c = 0; c < 2; ++c) EXPECT_NEAR(sum[c], -load[c], 1e-9 * F) << c;
        EXPECT_GT(value(d.U, dof(0, 0)) * load[0] + value(d.U, dof(0, 1)) * load[1], 0.0);
    }
}

// A node on grounded springs k in the three values of a field, pushed by F
// against a stop at -limit < -F / k: held there to F / P (P = 1e12, the floor of
// the penalty); the load reversed from that state, the stop lets go and the node
// goes to +F / k exactly.
TEST(contact_Newton, block_stop_holds_and_releases)
{
    const double F = 1.0, k = 1.0, limit = 0.5;
    for (const run_mode& mode : modes)
        for (field_tag field : {displacement_tag, rotation_tag}) {
            test_context t;
            const unsigned first = fem::DOFs_mgr::ID(0, field, 0);
            fem::DOFs_mgr DOFs(1, false);
            ASSERT_EQ(DOFs.set(0, field, true), no_error);
            fem::stiffness_diag springs(t.ctx);
            fem::block_stops stop(t.ctx);
            ASSERT_EQ(springs.init(dense1D<double, 8>(3, k), list({first, first + 1, first + 2})), no_error);
            ASSERT_EQ(stop.init(list({0}), field, {{3.0, 0.0, 0.0}}, limit), no_error);
            dense2D<double> pos(3, 1, 0.0);
            fem::problem_data p(t.ctx, pos, DOFs,
                                t.composite({springs.get_ID(), stop.get_ID()}), 1);
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(first, -F, no_func), no_error);
            const Newton::data_type held = solve(t, mode, p, "stop holds");
            EXPECT_NEAR(value(held.U, first), -limit, 1e-9);
            p.get_loads_mgr(0).clear();
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(first, F, no_func), no_error);
            const Newton::data_type freed = solve(t, mode, p, "stop releases", &held.U);
            EXPECT_NEAR(value(freed.U, first), F / k, 1e-12);
        }
}

// A chain of 40 two-node cables (EA = 1, initial strain e0, so that the straight
// start is taut) between level supports one apart, under weights w / 40 at the
// nodes, solved from the straight line. The elastic catenary of the same cable
// (Lagrangian s on the reference length L0, T = EA (stretch - 1 + e0), V the
// vertical force): x(L0) = 2 (1 - e0) (H / w) asinh(w L0 / 2H) + H L0 / EA = span
// fixes H, and the sag is (1 - e0) (H / w) (sqrt(1 + (w L0 / 2H)²) - 1) +
// w L0² / (8 EA). The chain's nodes lie on it to O(1/n²), about 1e-4 here.
TEST(contact_Newton, cable_sags_as_the_elastic_catenary)
{
    const unsigned n = 40;
    const double EA = 1.0, e0 = 0.01, w = 0.0285, span = 1.0;
    double lo = 1e-6, hi = 1e3, H = 0.0;
    for (int i = 0; i < 200; ++i) {
        H = 0.5 * (lo + hi);
        (2 * (1 - e0) * H / w * std::asinh(w / (2 * H)) + H / EA > span ? hi : lo) = H;
    }
    const double sag = (1 - e0) * H / w * (std::sqrt(1 + std::pow(w / (2 * H), 2)) - 1) + w / (8 * EA);
    ASSERT_NEAR(sag, 0.1, 0.005); // the sag ratio asked of the test
    for (const run_mode& mode : modes) {
        test_context t;
        dense2D<double> pos(3, n + 1, 0.0);
        fem::DOFs_mgr DOFs(n + 1, true);
        ASSERT_TRUE(DOFs.set(0, displacement_tag, false) == no_error && DOFs.set(n, displacement_tag, false) == no_error);
        fem::law_spring law;
        dense1D<double, 8> data(5, 0.0);
        data[0] = EA, data[3] = e0;
        ASSERT_EQ(law.init(data), no_error);
        std::vector<fem::cable> segments;
        fem::numerical_model_composite all(t.ctx);
        for (unsigned i = 0; i < n; ++i) {
            pos(0, i + 1) = span * (i + 1) / n;
            segments.emplace_back(t.ctx);
            ASSERT_EQ(segments.back().init(list({i, i + 1}), law), no_error);
            ASSERT_EQ(all.insert(segments.back().get_ID()), no_error);
        }
        fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
        for (unsigned i = 1; i < n; ++i) ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(i, 2), -w / n, no_func), no_error);
        const Newton::data_type d = solve(t, mode, p, "cable sag");
        EXPECT_NEAR(-value(d.U, dof(n / 2, 2)), sag, 0.005 * sag);
    }
}

// A node tied to an anchor by a tension-only rigid cable and held by springs k:
// pushed towards the anchor the cable is slack and the node moves F / k exactly;
// pulled away the cable holds it to F / P.
TEST(contact_Newton, slack_cable_carries_nothing)
{
    const double F = 1.0, k = 2.0;
    for (const run_mode& mode : modes)
        for (double sign : {-1.0, 1.0}) {
            test_context t;
            dense2D<double> pos(3, 2, 0.0);
            pos(0, 1) = 1.0;
            fem::DOFs_mgr DOFs(2, true);
            ASSERT_EQ(DOFs.set(0, displacement_tag, false), no_error);
            fem::stiffness_diag springs(t.ctx);
            fem::cable_rigid tie(t.ctx);
            ASSERT_EQ(springs.init(dense1D<double, 8>(3, k), list({dof(1, 0), dof(1, 1), dof(1, 2)})), no_error);
            ASSERT_EQ(tie.init(list({0, 1}), true, 0.0, 0.0), no_error);
            fem::problem_data p(t.ctx, pos, DOFs, t.composite({springs.get_ID(), tie.get_ID()}), 1);
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(1, 0), sign * F, no_func), no_error);
            const Newton::data_type d = solve(t, mode, p, sign < 0 ? "slack cable" : "taut cable");
            EXPECT_NEAR(value(d.U, dof(1, 0)), sign < 0 ? -F / k : 0.0, sign < 0 ? 1e-12 : 1e-9);
        }
}

// A rigid sphere of radius R pressed by d into an elastic block (nu = 0, so E* = E):
// Hertz's F = 4/3 E* sqrt(R) d^1.5, with the contact radius a = sqrt(R d) = 0.1. A
// quarter of the block, 6 x 6 x 6 = 60 a each way, on its symmetry planes, its bottom
// held, its top nodes the slaves of a contact of stiffness k (nodal forces of a few
// tenths sink a few 1e-4 of d); 7³ hexa27 graded towards the contact, the first a half
// of a across. The bottom held at the depth D = 6 stiffens the block by about
// Boussinesq's displacement there, (4/3) (3 / 2 pi) a / D = 1 % of d; the rest of the
// 5 % is the mesh's, whose few nodes a side inside the contact circle give the force
// within a few percent. One thread in core only: it is the costly case.
TEST(contact_Newton, Hertz_sphere_on_an_elastic_block)
{
    const double R = 1.0, d = 0.01, E = 1000.0, size = 6.0, k = 1e5;
    const unsigned cells = 7;
    const double fine = 0.0583; // the slope of the grading at the contact
    test_context t;
    mesh m = box_mesh(element_hexa27, {1.0, 1.0, 1.0}, {cells, cells, cells});
    auto graded = [&](double x) { return size * (fine * x + (1 - fine) * x * x * x); };
    const unsigned n = m.nbr_nodes(), centre = n;
    dense2D<double> pos(3, n + 1, 0.0);
    fem::DOFs_mgr DOFs(n + 1, true);
    std::vector<unsigned> top;
    for (unsigned i = 0; i < n; ++i) {
        // Towards the corner x = y = 0, z = 0 (the top): linear there, cubic beyond.
        pos(0, i) = graded(m.pos(0, i)), pos(1, i) = graded(m.pos(1, i)), pos(2, i) = -graded(1 - m.pos(2, i));
        for (unsigned c = 0; c < 2; ++c)
            if (m.pos(c, i) == 0.0) {
                ASSERT_EQ(DOFs.set(i, displacement_tag, c, false), no_error);
            }
        if (m.pos(2, i) == 0.0) {
            ASSERT_EQ(DOFs.set(i, displacement_tag, false), no_error);
        }
        if (m.pos(2, i) == 1.0) top.push_back(i);
    }
    pos(2, centre) = R * (1 - 1e-9); // a touch of overlap: the first tangent has the contact
    fem::contact_sphere sphere(t.ctx);
    ASSERT_EQ(sphere.init(list(top), centre, R, sharp, k, true), no_error);
    fem::problem_data p(t.ctx, pos, DOFs, t.composite({t.solid(m, E, 0.0), sphere.get_ID()}), 1);
    for (unsigned c = 0; c < 3; ++c)
        ASSERT_EQ(p.get_loads_mgr(0).record_DOF_prescribed_value(dof(centre, c), c == 2 ? -d : 0.0, no_func),
                  no_error);
    const Newton::data_type r = solve(t, modes[0], p, "Hertz");
    double F = 0.0;
    for (unsigned i : top) {
        double x[3], dist = 0.0;
        for (unsigned c = 0; c < 3; ++c) {
            double u = 0.0; // 0 where the symmetry holds it
            (void)r.U.getID_val(dof(i, c), 0, u);
            x[c] = pos(c, i) + u - (c == 2 ? pos(2, centre) - d : 0.0);
        }
        for (unsigned c = 0; c < 3; ++c) dist += x[c] * x[c];
        dist = std::sqrt(dist);
        if (dist < R) F += 4.0 * k * (R - dist) * -x[2] / dist;
    }
    const double Hertz = 4.0 / 3.0 * E * std::sqrt(R) * std::pow(d, 1.5);
    std::printf("[ Hertz    ] F = %.6f, Hertz %.6f\n", F, Hertz);
    EXPECT_NEAR(F, Hertz, 0.05 * Hertz);
}

} // namespace
} // namespace kelt::test
