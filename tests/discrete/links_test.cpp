// Constraints as penalties against what they mean: a rigid body carries its
// slaves' loads to its master by statics and moves them rigidly; masks and
// diaphragms tie what they say and free the rest; a link holds to the ratio of the
// model's stiffness to the penalty, whatever the stiffness scale; one-sided links
// act on their side only; bad input is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "kelt/discrete/links.h"
#include "kelt/fem.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr unsigned ground = 0xFFFFFFFFu;

unsigned id(unsigned node, unsigned place) { return node * 9 + place; }

double value(const fem::FEM_matrix& U, unsigned ID, unsigned col = 0)
{
    double v = 0.0;
    return U.getID_val(ID, col, v) == no_error ? v : std::nan("");
}

dense1D<unsigned, 8> list(std::initializer_list<unsigned> v)
{
    dense1D<unsigned, 8> d;
    for (unsigned x : v) d.push_back(x);
    return d;
}

dense1D<double, 8> reals(std::initializer_list<double> v)
{
    dense1D<double, 8> d;
    for (double x : v) d.push_back(x);
    return d;
}

// Grounded diagonal springs of stiffness k on the given DOFs.
fem::stiffness_diag grounded(fem::context& ctx, const std::vector<unsigned>& IDs, const std::vector<double>& k)
{
    fem::stiffness_diag s(ctx);
    dense1D<unsigned, 8> d;
    dense1D<double, 8> v;
    for (unsigned i = 0; i < IDs.size(); ++i) d.push_back(IDs[i]), v.push_back(k[i]);
    EXPECT_EQ(s.init(v, d), no_error);
    return s;
}

void cross(const double (&a)[3], const double (&b)[3], double (&c)[3])
{
    c[0] = a[1] * b[2] - a[2] * b[1], c[1] = a[2] * b[0] - a[0] * b[2], c[2] = a[0] * b[1] - a[1] * b[0];
}

// A core element on a state given by identifier.
struct element_run {
    core::element_work_type w;
    Ptr<vector_fast> rows{new vector_fast};
    element_run(const std::vector<std::pair<unsigned, double>>& U, double P_U, double P_R)
    {
        for (const auto& [ID, v] : U) rows->push_back(ID), w.U.values.push_back(v);
        w.U.rows = rows;
        w.penalty_displacement = P_U, w.penalty_rotation = P_R;
    }
    double force(unsigned ID) const
    {
        for (unsigned i = 0; i < w.Fe.size(); ++i)
            if (w.DOFs[i] == ID) return w.Fe[i];
        return 0.0;
    }
};

} // namespace

// A master on grounded springs (kU on translations, kR on rotations), slaves free in
// translation only and loaded: the master takes the resultant force and moment
// about itself, and every slave sits at U_m + R_m x r. The penalty is the floor
// 1e12 (diagonal springs add no stiffness scale): constraint errors ~ F / P, i.e.
// 1e-9 of the motion, and the factorisation loses up to P / k eps ~ 1e-7.
TEST(rigid_body, carries_slave_loads_to_its_master_by_statics_and_moves_them_rigidly)
{
    const double kU = 1e3, kR = 5e3;
    const double r[3][3] = {{2.0, 0.0, 0.0}, {0.0, 3.0, 1.0}, {1.0, -1.0, 2.0}};
    const double F[3][3] = {{0.0, 4.0, -1.0}, {2.0, 0.0, 3.0}, {-1.0, 1.0, 0.5}};
    for (int threads : {1, 2}) {
        SCOPED_TRACE(threads);
        test_context t;
        t.ctx.set_max_threads(threads);
        dense2D<double> pos(3, 4, 0.0);
        for (unsigned s = 0; s < 3; ++s)
            for (unsigned c = 0; c < 3; ++c) pos(c, s + 1) = r[s][c];
        fem::DOFs_mgr DOFs(4, true);
        for (unsigned s = 1; s < 4; ++s) ASSERT_EQ(DOFs.set(s, rotation_tag, false), no_error);
        fem::stiffness_diag springs = grounded(t.ctx, {0, 1, 2, 3, 4, 5}, {kU, kU, kU, kR, kR, kR});
        fem::rigid_body_lin body(t.ctx);
        ASSERT_EQ(body.init(list({0, 1, 2, 3}), false), no_error);
        fem::numerical_model_composite all(t.ctx);
        ASSERT_EQ(all.insert(springs.get_ID()), no_error);
        ASSERT_EQ(all.insert(body.get_ID()), no_error);
        fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
        double force[3] = {}, moment[3] = {};
        for (unsigned s = 0; s < 3; ++s) {
            double m[3];
            cross(r[s], F[s], m);
            for (unsigned c = 0; c < 3; ++c) {
                force[c] += F[s][c], moment[c] += m[c];
                ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(id(s + 1, c), F[s][c], no_func), no_error);
            }
        }
        fem::solver_static_linear solver;
        fem::solver_static_linear::data_type data(p);
        solver.run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_detail;
        double Um[3], Rm[3], scale = 0.0;
        for (unsigned c = 0; c < 3; ++c) {
            Um[c] = value(data.U, id(0, c)), Rm[c] = value(data.U, id(0, c + 3));
            scale = std::max({scale, std::fabs(force[c] / kU), std::fabs(moment[c] / kR)});
        }
        for (unsigned c = 0; c < 3; ++c) {
            EXPECT_NEAR(Um[c], force[c] / kU, 1e-6 * scale) << c;
            EXPECT_NEAR(Rm[c], moment[c] / kR, 1e-6 * scale) << c;
        }
        for (unsigned s = 0; s < 3; ++s) {
            double turn[3];
            cross(Rm, r[s], turn);
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_NEAR(value(data.U, id(s + 1, c)), Um[c] + turn[c], 1e-6 * scale * 4) << s << c;
        }
    }
}

// A clamped master and a slave on grounded springs k in its six DOFs, a unit
// force on each DOF in turn: a tied DOF stays at ~1/P, a free one moves 1/k.
TEST(rigid_body, masks_and_diaphragms_tie_what_they_say_and_free_the_rest)
{
    const double k = 1e3;
    enum form { body, diaphragm };
    struct row {
        form f;
        unsigned first, second; // masks, or the normal of a diaphragm in `first`
        bool rotations;
        bool tied[6]; // ux uy uz rx ry rz of the slave
    };
    const row rows[] = {
        {body, 15, 31, true, {true, true, true, true, true, true}},
        {body, 15, 31, false, {true, true, true, false, false, false}},
        {body, 8 | 1, 24 | 4, true, {true, false, false, false, false, true}},
        {body, 24 | 2, 8 | 4, true, {false, false, true, false, true, false}},
        {diaphragm, 2, 0, true, {true, true, false, false, false, true}},
        {diaphragm, 0, 0, true, {false, true, true, true, false, false}},
    };
    for (const row& q : rows) {
        SCOPED_TRACE(q.first * 100 + q.second);
        test_context t;
        dense2D<double> pos(3, 2, 0.0);
        pos(0, 1) = 1.0, pos(1, 1) = 2.0, pos(2, 1) = 0.5;
        fem::DOFs_mgr DOFs(2, false);
        ASSERT_EQ(DOFs.set(1, displacement_tag, true), no_error);
        ASSERT_EQ(DOFs.set(1, rotation_tag, true), no_error);
        fem::stiffness_diag springs = grounded(t.ctx, {9, 10, 11, 12, 13, 14}, std::vector<double>(6, k));
        fem::rigid_body_lin b;
        fem::rigid_diaphragm_lin d;
        unsigned ID = 0;
        if (q.f == body) {
            b.create(t.ctx);
            ASSERT_EQ(b.init(list({0, 1}), q.first, q.second, q.rotations), no_error);
            ID = b.get_ID();
        } else {
            d.create(t.ctx);
            ASSERT_EQ(d.init(list({0, 1}), q.first), no_error);
            dense1D<unsigned, 8> nodes;
            unsigned normal = 9;
            ASSERT_EQ(d.get_params(nodes, normal), no_error);
            EXPECT_EQ(normal, q.first);
            ID = d.get_ID();
        }
        fem::numerical_model_composite all(t.ctx);
        ASSERT_EQ(all.insert(springs.get_ID()), no_error);
        ASSERT_EQ(all.insert(ID), no_error);
        fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 6);
        for (unsigned place = 0; place < 6; ++place)
            ASSERT_EQ(p.get_loads_mgr(place).record_DOF_load(id(1, place), 1.0, no_func), no_error);
        fem::solver_static_linear solver;
        fem::solver_static_linear::data_type data(p);
        solver.run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_detail;
        for (unsigned place = 0; place < 6; ++place) {
            const double u = value(data.U, id(1, place), place);
            if (q.tied[place]) {
                EXPECT_LT(std::fabs(u), 1e-6 / k) << place;
            } else {
                EXPECT_NEAR(u, 1.0 / k, 1e-9 / k) << place;
            }
        }
    }
}

// Two coincident nodes on grounded springs k (law_spring, so the model's stiffness
// scale is k), a force F on one, tied by a link: with P = ratio k the two nodes
// share F and differ by F / (k + 2 P), that is 2 / (1 + 2 ratio) of their motion
// F / 2k, whatever k. The floor of the penalty is taken away.
TEST(links, hold_to_the_ratio_of_the_model_stiffness_to_the_penalty)
{
    const double F = 3.0;
    struct row {
        double k, ratio; // ratio 0: the context's default
        bool directional;
    };
    const row rows[] = {{1.0, 1e3, false}, {1.0, 0.0, false}, {1e6, 0.0, true}, {1e6, 1e5, false}, {1e-3, 1e4, true}};
    for (const row& q : rows)
        for (int threads : {1, 2}) {
            SCOPED_TRACE(q.k * 10 + q.ratio + threads);
            test_context t;
            t.ctx.set_max_threads(threads);
            t.ctx.set_min_penalty_factor(0.0);
            if (q.ratio > 0.0) t.ctx.set_raw_penalty_factor(q.ratio);
            const double ratio = t.ctx.get_raw_penalty_factor();
            fem::law_spring law;
            ASSERT_EQ(law.init(reals({q.k, 0.0, 0.0})), no_error);
            fem::spring s0(t.ctx), s1(t.ctx);
            ASSERT_EQ(s0.init(0, ground, displacement_tag, law), no_error);
            ASSERT_EQ(s1.init(1, ground, displacement_tag, law), no_error);
            fem::link l;
            fem::link_directional ld;
            unsigned ID = 0;
            if (q.directional) {
                ld.create(t.ctx);
                ASSERT_EQ(ld.init(0, 1, displacement_tag, {{2.0, 0.0, 0.0}}, -1.0, 1.0, 0.0), no_error);
                ID = ld.get_ID();
            } else {
                l.create(t.ctx);
                ASSERT_EQ(l.init(0, 1, displacement_tag), no_error);
                ID = l.get_ID();
            }
            fem::numerical_model_composite all(t.ctx);
            for (unsigned m : {s0.get_ID(), s1.get_ID(), ID}) ASSERT_EQ(all.insert(m), no_error);
            dense2D<double> pos(3, 2, 1.5);
            fem::DOFs_mgr DOFs(2, true);
            fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
            ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(id(1, 0), F, no_func), no_error);
            fem::solver_static_linear solver;
            fem::solver_static_linear::data_type data(p);
            solver.run(data);
            ASSERT_EQ(data.error_code, no_error) << data.msg_detail;
            const double u0 = value(data.U, id(0, 0)), u1 = value(data.U, id(1, 0)), tied = F / (2.0 * q.k);
            EXPECT_NEAR((u0 + u1) / 2.0, tied, 1e-9 * tied);
            EXPECT_NEAR((u1 - u0) / tied, 2.0 / (1.0 + 2.0 * ratio), 1e-6 / ratio);
        }
}

// Element by element: the penalty by field (none on the temperature), the force
// reported at its real size, the constant of a linear constraint, and the two
// one-sided forms on either side of their threshold.
TEST(links, penalty_by_field_constant_term_and_one_sided_tables)
{
    const double PU = 1e8, PR = 3e9, u = 0.02;
    for (field_tag f : {displacement_tag, rotation_tag, temperature_tag}) {
        SCOPED_TRACE(int(f));
        const unsigned place = f == rotation_tag ? 3 : f == temperature_tag ? 6 : 0;
        const double P = f == rotation_tag ? PR : f == temperature_tag ? 0.0 : PU;
        core::link l(nullptr);
        ASSERT_EQ(l.init(0, 1, f), no_error);
        element_run e({{id(1, place), u}}, PU, PR);
        ASSERT_EQ(l.compute_element(core::kind_stiffness, e.w), no_error);
        EXPECT_DOUBLE_EQ(e.force(id(1, place)), -P * u);
        EXPECT_DOUBLE_EQ(e.force(id(0, place)), P * u);
        if (P != 0.0) {
            EXPECT_DOUBLE_EQ(e.w.state_out[1], P * u);
        }
        EXPECT_EQ(e.w.Ke.order(), P != 0.0 ? 6u : 0u);
    }
    {
        // 2 u0 - u1 + c0 = 0, with displacement and rotation: the larger penalty.
        core::link_directional l(nullptr);
        ASSERT_EQ(l.init(list({id(0, 0), id(1, 4)}), reals({2.0, -1.0}), 0.5), no_error);
        element_run e({}, PU, PR);
        ASSERT_EQ(l.compute_element(core::kind_stiffness, e.w), no_error);
        EXPECT_DOUBLE_EQ(e.force(id(0, 0)), -PR * 0.5 * 2.0);
        EXPECT_DOUBLE_EQ(e.force(id(1, 4)), PR * 0.5);
    }
    struct row {
        bool directional, side;
        double gap, s; // s: the distance (isotropic) or u1 - u0 along x
        double force;  // on u1 along x, in units of the penalty
    };
    const row rows[] = {
        {false, true, 0.1, 0.05, -0.05}, {false, true, 0.1, 0.15, 0.0},   {false, true, -0.1, 0.15, -0.15},
        {false, true, -0.1, 0.05, 0.0},  {true, true, 0.1, -0.3, 0.2},    {true, true, 0.1, -0.05, 0.0},
        {true, false, 0.1, -0.05, -0.05}, {true, false, 0.1, -0.3, 0.0},  {true, false, -0.2, 0.2, 0.0},
    };
    for (const row& q : rows) {
        SCOPED_TRACE(q.gap * 1000 + q.s);
        element_run e({{id(0, 0), 0.25}, {id(1, 0), 0.25 + q.s}}, PU, PR);
        core::link_gnl l(nullptr);
        core::link_directional_gnl ld(nullptr);
        if (q.directional) {
            ASSERT_EQ(ld.init(0, 1, displacement_tag, {{1.0, 0.0, 0.0}}, q.gap, q.side), no_error);
            ASSERT_EQ(ld.compute_element(core::kind_stiffness, e.w), no_error);
        } else {
            ASSERT_EQ(l.init(0, 1, displacement_tag, q.gap), no_error);
            ASSERT_EQ(l.compute_element(core::kind_stiffness, e.w), no_error);
        }
        EXPECT_NEAR(e.force(id(1, 0)), q.force * PU, 1e-9 * PU);
        EXPECT_NEAR(e.force(id(0, 0)), -q.force * PU, 1e-9 * PU);
    }
}

// The vector of a rigid body is minus its blocks times the state, and its energy
// half their quadratic form, for every kind of mask (a fixed-seed random state).
TEST(rigid_body, vector_and_energy_are_those_of_its_blocks)
{
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> rnd(-1.0, 1.0);
    dense2D<double> pos(3, 4);
    for (unsigned j = 0; j < 4; ++j)
        for (unsigned c = 0; c < 3; ++c) pos(c, j) = rnd(gen);
    const unsigned masks[][3] = {{15, 31, 1}, {15, 31, 0}, {8 | 3, 24 | 4, 1}, {24 | 5, 8 | 6, 0}};
    for (const auto& m : masks) {
        SCOPED_TRACE(m[0] * 100 + m[1]);
        std::vector<std::pair<unsigned, double>> U;
        for (unsigned j = 0; j < 4; ++j)
            for (unsigned place = 0; place < 6; ++place) U.emplace_back(id(j, place), 1e-3 * rnd(gen));
        element_run e(U, 1e6, 2e6);
        e.w.pos = pos;
        e.w.factor = 0.5;
        core::rigid_body_st b(nullptr);
        ASSERT_EQ(b.init(list({2, 0, 3, 1}), m[0], m[1], m[2] != 0), no_error);
        ASSERT_EQ(b.compute_element(core::kind_stiffness, e.w), no_error);
        ASSERT_EQ(e.w.Kblocks.size(), 3u);
        std::vector<double> Ku(e.w.DOFs.size(), 0.0);
        double quadratic = 0.0;
        for (const core::element_block& k : e.w.Kblocks)
            for (unsigned i = 0; i < k.DOFs.size(); ++i)
                for (unsigned j = 0; j < k.DOFs.size(); ++j) {
                    const double v = k.K(std::min(i, j), std::max(i, j)) * e.w.U.get(k.DOFs[j]);
                    quadratic += e.w.U.get(k.DOFs[i]) * v;
                    for (unsigned a = 0; a < e.w.DOFs.size(); ++a)
                        if (e.w.DOFs[a] == k.DOFs[i]) Ku[a] += v;
                }
        double scale = 0.0;
        for (double v : Ku) scale = std::max(scale, std::fabs(v));
        ASSERT_EQ(e.w.Fe.size(), Ku.size());
        for (unsigned a = 0; a < Ku.size(); ++a) EXPECT_NEAR(e.w.Fe[a], -Ku[a], 1e-12 * scale) << a;
        EXPECT_NEAR(e.w.energy, 0.5 * quadratic, 1e-12 * quadratic);
    }
}

// A slave turned by t against its master holds with the larger of the rotation
// penalty and |r|² times the translation one: energy 0.5 k_R t².
TEST(rigid_body, the_rotation_penalty_grows_with_the_arm)
{
    const double PU = 1e6, PR = 1e9, t = 1e-6;
    for (double arm : {1.0, 1000.0}) {
        SCOPED_TRACE(arm);
        dense2D<double> pos(3, 2, 0.0);
        pos(0, 1) = arm;
        element_run e({{id(1, 5), t}}, PU, PR);
        e.w.pos = pos;
        core::rigid_body_st b(nullptr);
        ASSERT_EQ(b.init(list({0, 1}), 15, 31, true), no_error);
        ASSERT_EQ(b.compute_element(core::kind_stiffness, e.w), no_error);
        const double kR = std::max(PR, arm * arm * PU);
        EXPECT_NEAR(e.w.energy, 0.5 * kR * t * t, 1e-12 * kR * t * t);
    }
}

TEST(rigid_body, bad_input_is_refused_with_its_code)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 1.0;
    // A node outside the positions: refused at the run, not at init.
    fem::rigid_body_lin body(t.ctx);
    ASSERT_EQ(body.init(list({0, 5}), true), no_error);
    fem::DOFs_mgr DOFs(6, true);
    fem::problem_data p(t.ctx, pos, DOFs, body.get_ID(), 1);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(p);
    solver.run(data);
    EXPECT_EQ(data.error_code, invalid_data_error);
    // A drilling link on coincident nodes has no arm; on an unknown node, no position.
    fem::link_drill drill(t.ctx);
    EXPECT_EQ(drill.init(pos, 0, 0, {{0.0, 0.0, 1.0}}), invalid_data_error);
    EXPECT_EQ(drill.init(pos, 0, 7, {{0.0, 0.0, 1.0}}), invalid_data_error);
    EXPECT_EQ(drill.init(pos, 0, 1, {{0.0, 0.0, 1.0}}), no_error);
    // One node: accepted, and it does nothing.
    core::rigid_body_st one(nullptr);
    ASSERT_EQ(one.init(list({1}), 15, 31, true), no_error);
    element_run e({{id(1, 0), 1.0}}, 1e6, 1e6);
    e.w.pos = pos;
    ASSERT_EQ(one.compute_element(core::kind_stiffness, e.w), no_error);
    EXPECT_TRUE(e.w.DOFs.empty() && e.w.Kblocks.empty());
}

// The coefficients of the rotation tensor: the closed forms and the series meet at
// |t| = 0.1, where the closed forms lose eps times the ratio of the terms of their
// numerators to its value: 1 for a, up to 1e4 for b (0.02 against 2 |t|^4 b1),
// up to 1e8 for c (8 against 4 |t|^6 c1). Each derivative is the central difference of its function (error
// ~ ds², 1e-9).
TEST(rigid_body_gnl, rotation_coefficients_are_continuous_and_derive_each_other)
{
    auto k = core::rotation_coefficients_of;
    const core::rotation_coefficients below = k(0.01 * (1 - 1e-12)), above = k(0.01 * (1 + 1e-12));
    const double lo[6] = {below.a0, below.a1, below.b0, below.b1, below.c0, below.c1};
    const double hi[6] = {above.a0, above.a1, above.b0, above.b1, above.c0, above.c1};
    const double lost[6] = {1e-14, 1e-14, 1e-11, 1e-11, 1e-6, 1e-6};
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(lo[i], hi[i], lost[i] * std::fabs(lo[i])) << i;
    for (double s : {0.004, 0.3, 2.5}) {
        SCOPED_TRACE(s);
        const double ds = 1e-5 * s;
        const core::rotation_coefficients m = k(s - ds), p = k(s + ds), c = k(s);
        EXPECT_NEAR(c.a0, std::sin(std::sqrt(s)) / std::sqrt(s), 1e-15);
        EXPECT_NEAR(c.a1, (1 - std::cos(std::sqrt(s))) / s, 1e-12);
        EXPECT_NEAR(c.b0, (p.a0 - m.a0) / (2 * ds), 1e-8);
        EXPECT_NEAR(c.b1, (p.a1 - m.a1) / (2 * ds), 1e-8);
        EXPECT_NEAR(c.c0, (p.b0 - m.b0) / (2 * ds), 1e-8);
        EXPECT_NEAR(c.c1, (p.b1 - m.b1) / (2 * ds), 1e-8);
    }
}

namespace {

// The blocks of a rigid body summed into one dense matrix over the DOFs of its vector.
std::vector<double> dense_of(const core::element_work_type& w)
{
    const unsigned n = w.DOFs.size();
    std::vector<double> K(n * n, 0.0);
    for (const core::element_block& b : w.Kblocks)
        for (unsigned i = 0; i < b.DOFs.size(); ++i)
            for (unsigned j = 0; j < b.DOFs.size(); ++j)
                for (unsigned a = 0; a < n; ++a)
                    for (unsigned c = 0; c < n; ++c)
                        if (w.DOFs[a] == b.DOFs[i] && w.DOFs[c] == b.DOFs[j])
                            K[a * n + c] += b.K(std::min(i, j), std::max(i, j));
    return K;
}

} // namespace

// A quarter turn of the master about each axis carries the slaves exactly by the
// rotation tensor: no force, no energy, where the small-rotation body resists.
TEST(rigid_body_gnl, a_quarter_turn_carries_the_slaves_by_the_rotation_tensor)
{
    const double r[2][3] = {{1.0, 2.0, -0.5}, {-3.0, 0.5, 1.5}};
    dense2D<double> pos(3, 3, 0.0);
    for (unsigned s = 0; s < 2; ++s)
        for (unsigned c = 0; c < 3; ++c) pos(c, s + 1) = r[s][c];
    for (unsigned axis = 0; axis < 3; ++axis) {
        SCOPED_TRACE(axis);
        const unsigned a = (axis + 1) % 3, b = (axis + 2) % 3; // x_a -> x_b, x_b -> -x_a
        std::vector<std::pair<unsigned, double>> U{{id(0, 3 + axis), std::acos(0.0)}, {id(1, 3 + axis), std::acos(0.0)},
                                                   {id(2, 3 + axis), std::acos(0.0)}};
        for (unsigned s = 0; s < 2; ++s) {
            double turned[3] = {r[s][0], r[s][1], r[s][2]};
            turned[b] = r[s][a], turned[a] = -r[s][b];
            for (unsigned c = 0; c < 3; ++c) U.emplace_back(id(s + 1, c), turned[c] - r[s][c]);
        }
        for (bool finite : {true, false}) {
            element_run e(U, 1e6, 1e6);
            e.w.pos = pos;
            core::rigid_body_st lin(nullptr);
            core::rigid_body_ft gnl(nullptr);
            core::rigid_body_st& body = finite ? gnl : lin;
            ASSERT_EQ(body.init(list({0, 1, 2}), 15, 31, true), no_error);
            ASSERT_EQ(body.compute_element(core::kind_stiffness, e.w), no_error);
            double largest = 0.0;
            for (double f : e.w.Fe) largest = std::max(largest, std::fabs(f));
            if (finite) {
                EXPECT_LT(largest, 1e-9 * 1e6);
                EXPECT_LT(e.w.energy, 1e-18 * 1e6);
            } else {
                EXPECT_GT(largest, 0.1 * 1e6);
            }
        }
    }
}

// The tangent is the derivative of the element's own vector, by central
// differences (error ~ h² |F'''| ~ 1e-12, rounding eps |F| / h ~ 1e-10 of K),
// for rotations on both sides of the switch of the coefficients, and masks.
TEST(rigid_body_gnl, the_tangent_is_the_derivative_of_the_vector)
{
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> rnd(-1.0, 1.0);
    dense2D<double> pos(3, 3);
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned c = 0; c < 3; ++c) pos(c, j) = 2.0 * rnd(gen);
    const unsigned masks[][2] = {{15, 31}, {8 | 3, 24 | 4}, {8 | 5, 24 | 7}};
    for (double turn : {0.05, 1.3})
        for (const auto& m : masks) {
            SCOPED_TRACE(turn * 1000 + m[0]);
            std::vector<std::pair<unsigned, double>> U;
            for (unsigned j = 0; j < 3; ++j)
                for (unsigned place = 0; place < 6; ++place)
                    U.emplace_back(id(j, place), (j == 0 && place >= 3 ? turn : 0.1) * rnd(gen));
            core::rigid_body_ft body(nullptr);
            ASSERT_EQ(body.init(list({0, 1, 2}), m[0], m[1], true), no_error);
            auto evaluate = [&](const std::vector<std::pair<unsigned, double>>& state) {
                auto e = std::make_unique<element_run>(state, 1.0, 2.0);
                e->w.pos = pos;
                EXPECT_EQ(body.compute_element(core::kind_stiffness, e->w), no_error);
                return e;
            };
            auto e = evaluate(U);
            const std::vector<double> K = dense_of(e->w);
            const unsigned n = e->w.DOFs.size();
            double scale = 0.0;
            for (double v : K) scale = std::max(scale, std::fabs(v));
            const double h = 1e-6;
            for (unsigned j = 0; j < n; ++j) {
                auto moved = [&](double by) {
                    auto V = U;
                    for (auto& [ID, v] : V)
                        if (ID == e->w.DOFs[j]) v += by;
                    return evaluate(V);
                };
                auto p = moved(h), q = moved(-h);
                for (unsigned i = 0; i < n; ++i)
                    EXPECT_NEAR(K[i * n + j], -(p->force(e->w.DOFs[i]) - q->force(e->w.DOFs[i])) / (2 * h),
                                1e-6 * scale)
                        << i << " " << j;
            }
        }
}

// A tie rod is the plain rod of the same stiffness on its active side and nothing
// on the other: tension only with side true, compression only with side false.
TEST(tie_rods, carry_force_on_their_side_only)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 2.0, pos(1, 1) = 1.0;
    dense2D<unsigned> rod(2, 1);
    rod(0, 0) = 0, rod(1, 0) = 1;
    const double k = 5e4;
    fem::law_spring law;
    ASSERT_EQ(law.init(reals({k, 0.0, 0.0})), no_error);
    fem::model_rod_lin physics;
    ASSERT_EQ(physics.init(law), no_error);
    fem::numerical_model_stiff_lin plain(t.ctx);
    ASSERT_EQ(plain.init(t.ctx, physics, rod, element_edge2), no_error);
    auto forces = [&](const fem::numerical_model_base& m, double stretch) {
        core::element_pass_type pass;
        pass.pos = pos;
        Ptr<vector_fast> rows(new vector_fast);
        for (unsigned c = 0; c < 3; ++c) rows->push_back(id(1, c)), pass.U.values.push_back(stretch * pos(c, 1));
        pass.U.rows = rows;
        auto* core_model = static_cast<core::numerical_model_base*>(fem::core_of(m));
        core::element_work_type w;
        w.start(pass, core_model->ID);
        w.element = 0;
        w.vector_mode = 1;
        EXPECT_EQ(core_model->compute_element(core::kind_stiffness, w), no_error);
        std::vector<double> F(3, 0.0);
        for (unsigned i = 0; i < w.DOFs.size() && i < w.Fe.size(); ++i)
            for (unsigned c = 0; c < 3; ++c)
                if (w.DOFs[i] == id(1, c)) F[c] = w.Fe[i];
        return F;
    };
    for (bool side : {true, false}) {
        fem::tie_rods ties(t.ctx);
        ASSERT_EQ(ties.init(rod, k, 0.0, 0.0, 0.0, side), no_error);
        for (double stretch : {1e-3, -1e-3}) {
            SCOPED_TRACE(side * 10 + stretch);
            const std::vector<double> expected = forces(plain, stretch), got = forces(ties, stretch);
            const bool active = side == (stretch > 0.0);
            ASSERT_GT(std::fabs(expected[0]), 0.0);
            for (unsigned c = 0; c < 3; ++c)
                EXPECT_NEAR(got[c], active ? expected[c] : 0.0, 1e-12 * std::fabs(expected[0])) << c;
        }
    }
}
