// Constraints as penalties against what they mean: rigid bodies by statics and
// rigid motion (exact under a finite turn in the _gnl form), masks, the accuracy
// of a link against the penalty, one-sided links and tie rods, tangents as the
// derivatives of the vectors, refusals.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "kelt/discrete/links.h"
#include "kelt/fem.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

unsigned id(unsigned node, unsigned place) { return node * 9 + place; }

template <class T>
dense1D<T, 8> list(std::initializer_list<T> v)
{
    dense1D<T, 8> d;
    for (T x : v) d.push_back(x);
    return d;
}


// A linear static run of the models under loads {case, DOF, value}, expected to end with `code`.
fem::FEM_matrix solve(test_context& t, std::initializer_list<unsigned> models, dense2D<double> pos, fem::DOFs_mgr DOFs,
                      unsigned cases, const std::vector<std::array<double, 3>>& loads, const error_type* code = nullptr)
{
    fem::numerical_model_composite all(t.ctx);
    for (unsigned m : models) EXPECT_EQ(all.insert(m), no_error);
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), cases);
    for (const auto& [c, ID, v] : loads)
        EXPECT_EQ(p.get_loads_mgr(unsigned(c)).record_DOF_load(unsigned(ID), v, no_func), no_error);
    fem::solver_static_linear::data_type data(p);
    fem::solver_static_linear().run(data);
    EXPECT_EQ(data.error_code, code ? *code : no_error) << data.msg_detail;
    return data.U;
}

unsigned grounded(test_context& t, std::initializer_list<unsigned> IDs, std::initializer_list<double> k)
{
    fem::stiffness_diag s(t.ctx);
    return s.init(list(k), list(IDs)) == no_error ? s.get_ID() : 0;
}

void cross(const double* a, const double* b, double* c)
{
    c[0] = a[1] * b[2] - a[2] * b[1], c[1] = a[2] * b[0] - a[0] * b[2], c[2] = a[0] * b[1] - a[1] * b[0];
}

// A core element on a state given by identifier.
struct element_run {
    core::element_work_type w;
    Ptr<vector_fast> rows{new vector_fast};
    element_run(const std::vector<std::pair<unsigned, double>>& U, double P_U, double P_R, dense2D<double> pos = {})
    {
        for (const auto& [ID, v] : U) rows->push_back(ID), w.U.values.push_back(v);
        w.U.rows = rows;
        w.pos = pos;
        w.penalty_displacement = P_U, w.penalty_rotation = P_R;
    }
    double force(unsigned ID) const
    {
        double f = 0.0;
        for (unsigned i = 0; i < w.Fe.size(); ++i) f += w.DOFs[i] == ID ? w.Fe[i] : 0.0;
        return f;
    }
    // The sum of the blocks, (i, j) on the DOFs of the vector.
    double K(unsigned i, unsigned j) const
    {
        double k = 0.0;
        for (const core::element_block& b : w.Kblocks)
            for (unsigned p = 0; p < b.DOFs.size(); ++p)
                for (unsigned q = 0; q < b.DOFs.size(); ++q)
                    if (b.DOFs[p] == w.DOFs[i] && b.DOFs[q] == w.DOFs[j]) k += b.K(std::min(p, q), std::max(p, q));
        return k;
    }
};

} // namespace

// A master on grounded springs (kU, kR), slaves free in translation and loaded:
// the master takes the resultant and the moment about itself, and each slave sits
// at U_m + R_m x r. The penalty is the floor 1e12 (diagonal springs add no
// stiffness scale): errors ~ F / P, 1e-9 of the motion, and the factorisation
// loses up to P / k eps ~ 1e-7; the motions are of order 1e-3.
TEST(rigid_body, carries_slave_loads_to_its_master_by_statics_and_moves_them_rigidly)
{
    const double kU = 1e3, kR = 5e3;
    const double r[3][3] = {{2.0, 0.0, 0.0}, {0.0, 3.0, 1.0}, {1.0, -1.0, 2.0}};
    const double F[3][3] = {{0.0, 4.0, -1.0}, {2.0, 0.0, 3.0}, {-1.0, 1.0, 0.5}};
    test_context t;
    dense2D<double> pos(3, 4, 0.0);
    fem::DOFs_mgr DOFs(4, true);
    std::vector<std::array<double, 3>> loads;
    double force[3] = {}, moment[3] = {}, m[3], Um[3], Rm[3], scale = 1e-3;
    for (unsigned s = 0; s < 3; ++s) {
        ASSERT_EQ(DOFs.set(s + 1, rotation_tag, false), no_error);
        cross(r[s], F[s], m);
        for (unsigned c = 0; c < 3; ++c) {
            pos(c, s + 1) = r[s][c], force[c] += F[s][c], moment[c] += m[c];
            loads.push_back({0.0, double(id(s + 1, c)), F[s][c]});
        }
    }
    fem::rigid_body_lin body(t.ctx);
    ASSERT_EQ(body.init(list({0u, 1u, 2u, 3u}), false), no_error);
    const fem::FEM_matrix U =
        solve(t, {grounded(t, {0, 1, 2, 3, 4, 5}, {kU, kU, kU, kR, kR, kR}), body.get_ID()}, pos, DOFs, 1, loads);
    for (unsigned c = 0; c < 3; ++c) {
        Um[c] = value(U, id(0, c)), Rm[c] = value(U, id(0, c + 3));
        EXPECT_NEAR(Um[c], force[c] / kU, 1e-6 * scale) << c;
        EXPECT_NEAR(Rm[c], moment[c] / kR, 1e-6 * scale) << c;
    }
    for (unsigned s = 0; s < 3; ++s) {
        cross(Rm, r[s], m);
        for (unsigned c = 0; c < 3; ++c) EXPECT_NEAR(value(U, id(s + 1, c)), Um[c] + m[c], 1e-5 * scale) << s << c;
    }
}

// A clamped master and a slave on grounded springs k in its six DOFs, a unit
// force on each DOF in turn: a tied DOF stays at ~1/P, a free one moves 1/k.
TEST(rigid_body, masks_and_diaphragms_tie_what_they_say_and_free_the_rest)
{
    const double k = 1e3;
    // {diaphragm, first mask (or the normal), second mask, with_rotations, the tied
    // DOFs of the slave as bits ux = 1 to rz = 32}
    const unsigned rows[][5] = {{0, 15, 31, 1, 63},        {0, 15, 31, 0, 7},        {0, 8 | 1, 24 | 4, 1, 1 | 32},
                                {0, 24 | 2, 8 | 4, 1, 4 | 16}, {1, 2, 0, 1, 1 | 2 | 32}, {1, 0, 0, 1, 2 | 4 | 8}};
    for (const auto& q : rows) {
        SCOPED_TRACE(q[1] * 100 + q[2]);
        test_context t;
        dense2D<double> pos(3, 2, 0.0);
        pos(0, 1) = 1.0, pos(1, 1) = 2.0, pos(2, 1) = 0.5;
        fem::DOFs_mgr DOFs(2, false);
        ASSERT_TRUE(DOFs.set(1, displacement_tag, true) == no_error && DOFs.set(1, rotation_tag, true) == no_error);
        fem::rigid_body_lin b(t.ctx);
        fem::rigid_diaphragm_lin d(t.ctx);
        unsigned normal = q[1];
        dense1D<unsigned, 8> nodes;
        ASSERT_EQ(q[0] ? d.init(list({0u, 1u}), q[1]) : b.init(list({0u, 1u}), q[1], q[2], q[3] != 0), no_error);
        EXPECT_TRUE(!q[0] || (d.get_params(nodes, normal) == no_error && normal == q[1]));
        std::vector<std::array<double, 3>> loads;
        for (unsigned place = 0; place < 6; ++place) loads.push_back({double(place), double(id(1, place)), 1.0});
        const fem::FEM_matrix U = solve(t, {grounded(t, {9, 10, 11, 12, 13, 14}, {k, k, k, k, k, k}),
                                            q[0] ? d.get_ID() : b.get_ID()},
                                        pos, DOFs, 6, loads);
        for (unsigned place = 0; place < 6; ++place)
            EXPECT_NEAR(value(U, id(1, place), place), q[4] >> place & 1 ? 0.0 : 1.0 / k, 1e-6 / k) << place;
    }
}

// Two coincident nodes on grounded springs k (law_spring: the model's stiffness
// scale is k), a force F on one, tied by a link: with P = ratio k they share F and
// differ by F / (k + 2 P), 2 / (1 + 2 ratio) of their motion F / 2k, whatever k.
TEST(links, hold_to_the_ratio_of_the_model_stiffness_to_the_penalty)
{
    const double F = 3.0;
    // {k, ratio (0: the default), directional}
    const double rows[][3] = {{1.0, 1e3, 0}, {1.0, 0.0, 0}, {1e6, 0.0, 1}, {1e6, 1e5, 0}, {1e-3, 1e4, 1}};
    for (const auto& q : rows)
        for (int threads : {1, 2}) {
            SCOPED_TRACE(q[0] * 10 + q[1] + threads);
            test_context t;
            t.ctx.set_max_threads(threads);
            t.ctx.set_min_penalty_factor(0.0);
            if (q[1] > 0.0) t.ctx.set_raw_penalty_factor(q[1]);
            const double ratio = t.ctx.get_raw_penalty_factor(), k = q[0];
            fem::law_spring law;
            ASSERT_EQ(law.init(list({k, 0.0, 0.0})), no_error);
            fem::spring s0(t.ctx), s1(t.ctx);
            fem::link l(t.ctx);
            fem::link_directional ld(t.ctx);
            ASSERT_TRUE(s0.init(0, core::ground_node, displacement_tag, law) == no_error &&
                        s1.init(1, core::ground_node, displacement_tag, law) == no_error &&
                        l.init(0, 1, displacement_tag) == no_error &&
                        ld.init(0, 1, displacement_tag, {{2.0, 0.0, 0.0}}, -1.0, 1.0, 0.0) == no_error);
            const fem::FEM_matrix U = solve(t, {s0.get_ID(), s1.get_ID(), q[2] ? ld.get_ID() : l.get_ID()},
                                            dense2D<double>(3, 2, 1.5), fem::DOFs_mgr(2, true), 1,
                                            {{0.0, double(id(1, 0)), F}});
            const double u0 = value(U, id(0, 0)), u1 = value(U, id(1, 0)), tied = F / (2.0 * k);
            EXPECT_NEAR((u0 + u1) / 2.0, tied, 1e-9 * tied);
            EXPECT_NEAR((u1 - u0) / tied, 2.0 / (1.0 + 2.0 * ratio), 1e-6 / ratio);
        }
}

// Element by element: the penalty by field (none on the temperature), the force
// reported at its real size, the constant of a linear constraint, the one-sided
// forms on either side of their threshold, and the rigid body's arm rule.
TEST(links, penalties_constant_term_and_one_sided_tables)
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
        EXPECT_DOUBLE_EQ(e.w.state_out.empty() ? 0.0 : e.w.state_out[1], P * u);
        EXPECT_EQ(e.w.Ke.order(), P != 0.0 ? 6u : 0u);
    }
    // 2 u0 - u1 + 0.5 = 0, on a displacement and a rotation: the larger penalty.
    core::link_directional c(nullptr);
    ASSERT_EQ(c.init(list({id(0, 0), id(1, 4)}), list({2.0, -1.0}), 0.5), no_error);
    element_run e({}, PU, PR);
    ASSERT_EQ(c.compute_element(core::kind_stiffness, e.w), no_error);
    EXPECT_DOUBLE_EQ(e.force(id(0, 0)), -PR * 0.5 * 2.0);
    EXPECT_DOUBLE_EQ(e.force(id(1, 4)), PR * 0.5);
    // {directional, side, gap, s, force on u1 along x in units of the penalty}; s
    // is the distance (link_gnl) or u1 - u0 along x.
    const double rows[][5] = {{0, 1, 0.1, 0.05, -0.05}, {0, 1, 0.1, 0.15, 0.0},  {0, 1, -0.1, 0.15, -0.15},
                              {0, 1, -0.1, 0.05, 0.0},  {1, 1, 0.1, -0.3, 0.2},  {1, 1, 0.1, -0.05, 0.0},
                              {1, 0, 0.1, -0.05, -0.05}, {1, 0, 0.1, -0.3, 0.0}, {1, 0, -0.2, 0.2, 0.0}};
    for (const auto& q : rows) {
        SCOPED_TRACE(q[2] * 1000 + q[3]);
        element_run g({{id(0, 0), 0.25}, {id(1, 0), 0.25 + q[3]}}, PU, PR);
        core::link_gnl l(nullptr);
        core::link_directional_gnl ld(nullptr);
        ASSERT_EQ(q[0] ? ld.init(0, 1, displacement_tag, {{1.0, 0.0, 0.0}}, q[2], q[1] != 0)
                       : l.init(0, 1, displacement_tag, q[2]),
                  no_error);
        ASSERT_EQ(q[0] ? ld.compute_element(core::kind_stiffness, g.w) : l.compute_element(core::kind_stiffness, g.w),
                  no_error);
        EXPECT_NEAR(g.force(id(1, 0)), q[4] * PU, 1e-9 * PU);
        EXPECT_NEAR(g.force(id(0, 0)), -q[4] * PU, 1e-9 * PU);
    }
    // A rigid body's slave turned by t: held by the larger of the rotation penalty
    // and |r|² times the translation one, energy 0.5 k_R t².
    core::rigid_body_st b(nullptr);
    ASSERT_EQ(b.init(list({0u, 1u}), 15, 31, true), no_error);
    for (double arm : {1.0, 1000.0}) {
        element_run r({{id(1, 5), u}}, PU, PR, dense2D<double>(3, 2, 0.0));
        r.w.pos(0, 1) = arm;
        ASSERT_EQ(b.compute_element(core::kind_stiffness, r.w), no_error);
        EXPECT_NEAR(r.w.energy, 0.5 * std::max(PR, arm * arm * PU) * u * u, 1e-12 * arm * arm * PU * u * u) << arm;
    }
}

TEST(rigid_body, bad_input_is_refused_with_its_code)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 1.0;
    // A node outside the positions: refused at the run, not at init.
    fem::rigid_body_lin body(t.ctx);
    ASSERT_EQ(body.init(list({0u, 5u}), true), no_error);
    const error_type refused = invalid_data_error;
    (void)solve(t, {body.get_ID()}, pos, fem::DOFs_mgr(6, true), 1, {}, &refused);
    // A drilling link on coincident nodes has no arm; on an unknown node, no position.
    fem::link_drill drill(t.ctx);
    for (unsigned node : {0u, 7u, 1u})
        EXPECT_EQ(drill.init(pos, 0, node, {{0.0, 0.0, 1.0}}), node == 1 ? no_error : invalid_data_error);
    // One node: accepted, and it does nothing.
    core::rigid_body_st one(nullptr);
    element_run e({{id(1, 0), 1.0}}, 1e6, 1e6, pos);
    EXPECT_TRUE(one.init(list({1u}), 15, 31, true) == no_error &&
                one.compute_element(core::kind_stiffness, e.w) == no_error && e.w.DOFs.empty() && e.w.Kblocks.empty());
}

// The tangent is the derivative of the element's own vector and the vector that
// of its energy, by central differences (error ~ h² |F'''| ~ 1e-12, rounding eps
// |F| / h ~ 1e-10 of K), for both forms, turns on both sides of the switch of the
// turn's coefficients from their series to their closed forms, and several masks.
TEST(rigid_body_gnl, a_quarter_turn_is_exact_and_the_tangent_and_vector_are_derivatives)
{
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> rnd(-1.0, 1.0);
    dense2D<double> pos(3, 3);
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned c = 0; c < 3; ++c) pos(c, j) = 2.0 * rnd(gen);
    const unsigned masks[][3] = {{15, 31, 1}, {8 | 3, 24 | 4, 1}, {8 | 5, 24 | 7, 0}};
    core::rigid_body_st lin(nullptr);
    core::rigid_body_ft gnl(nullptr);
    // A quarter turn of the master about each axis carries the slaves exactly by
    // the rotation tensor: no force, no energy.
    ASSERT_EQ(gnl.init(list({0u, 1u, 2u}), 15, 31, true), no_error);
    for (unsigned axis = 0; axis < 3; ++axis) {
        const unsigned a = (axis + 1) % 3, b = (axis + 2) % 3; // x_a -> x_b, x_b -> -x_a
        std::vector<std::pair<unsigned, double>> U;
        for (unsigned n = 0; n < 3; ++n) {
            double r[3], turned[3];
            for (unsigned c = 0; c < 3; ++c) r[c] = turned[c] = pos(c, n) - pos(c, 0);
            turned[b] = r[a], turned[a] = -r[b];
            U.emplace_back(id(n, 3 + axis), std::acos(0.0));
            for (unsigned c = 0; c < 3; ++c) U.emplace_back(id(n, c), turned[c] - r[c]);
        }
        element_run e(U, 1e6, 1e6, pos);
        ASSERT_EQ(gnl.compute_element(core::kind_stiffness, e.w), no_error);
        for (double f : e.w.Fe) EXPECT_LT(std::fabs(f), 1e-9 * 1e6) << axis;
        EXPECT_LT(e.w.energy, 1e-18 * 1e6) << axis;
    }
    for (core::rigid_body_st* body : std::vector<core::rigid_body_st*>{&lin, &gnl})
        for (double turn : {0.05, 1.3})
            for (const auto& m : masks) {
                SCOPED_TRACE(turn * 1000 + m[0] + (body == &gnl) * 1e5);
                std::vector<std::pair<unsigned, double>> U;
                for (unsigned j = 0; j < 3; ++j)
                    for (unsigned place = 0; place < 6; ++place)
                        U.emplace_back(id(j, place), (j == 0 && place >= 3 ? turn : 0.1) * rnd(gen));
                ASSERT_EQ(body->init(list({0u, 1u, 2u}), m[0], m[1], m[2] != 0), no_error);
                auto evaluate = [&](unsigned j, double by) {
                    auto V = U;
                    for (auto& [ID, v] : V) v += ID == j ? by : 0.0;
                    auto e = std::make_unique<element_run>(V, 1.0, 2.0, pos);
                    EXPECT_EQ(body->compute_element(core::kind_stiffness, e->w), no_error);
                    return e;
                };
                const auto e = evaluate(0, 0.0);
                const unsigned n = e->w.DOFs.size();
                double scale = 0.0;
                for (unsigned i = 0; i < n; ++i) scale = std::max(scale, std::fabs(e->K(i, i)));
                const double h = 1e-6;
                for (unsigned j = 0; j < n; ++j) {
                    const auto p = evaluate(e->w.DOFs[j], h), q = evaluate(e->w.DOFs[j], -h);
                    EXPECT_NEAR(e->force(e->w.DOFs[j]), -(p->w.energy - q->w.energy) / (2 * h), 1e-6 * scale) << j;
                    for (unsigned i = 0; i < n; ++i)
                        EXPECT_NEAR(e->K(i, j), -(p->force(e->w.DOFs[i]) - q->force(e->w.DOFs[i])) / (2 * h),
                                    1e-6 * scale)
                            << i << " " << j;
                }
            }
}

// A tie rod on its active side is a rod of axial stiffness k, N = k dL / L, and
// carries nothing on the other: tension only with side true, compression only with
// side false. The state stretches the rod by `stretch` of its length along it.
TEST(tie_rods, carry_force_on_their_side_only)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 2.0, pos(1, 1) = 1.0;
    dense2D<unsigned> rod(2, 1);
    rod(0, 0) = 0, rod(1, 0) = 1;
    const double k = 5e4;
    for (bool side : {true, false}) {
        fem::tie_rods ties(t.ctx);
        ASSERT_EQ(ties.init(rod, k, 0.0, 0.0, 0.0, side), no_error);
        auto* model = static_cast<core::numerical_model_base*>(fem::core_of(ties));
        for (double stretch : {1e-3, -1e-3}) {
            element_run e({{id(1, 0), 2.0 * stretch}, {id(1, 1), stretch}}, 0.0, 0.0, pos);
            e.w.model = model->ID;
            ASSERT_EQ(model->compute_element(core::kind_stiffness, e.w), no_error);
            const double N = side == (stretch > 0.0) ? k * stretch : 0.0;
            EXPECT_NEAR(e.force(id(1, 0)), -N * 2.0 / std::sqrt(5.0), 1e-12 * k) << side << stretch;
        }
    }
}

// Newton through the switch of one-sided members, each load from the state of the
// last: a node on a spring k to the ground, pushed by P along x, and either a
// stop at u = g (a one-sided link, at its penalty floor 1e12) or a tension-only
// tie rod of stiffness 3 k beside the spring. The stop holds the node at g once
// P > k g and lets it go when P falls back; the tie rod stiffens the pull and
// leaves the push to the spring; on 1 thread and on 2.
TEST(one_sided, Newton_crosses_the_switch_both_ways)
{
    constexpr double k = 1e3, g = 0.01;
    struct row {
        const char* name;
        bool stop;
        std::vector<double> P; // in units of k g
    } rows[] = {{"stop", true, {0.5, 1.5, 3.0, 0.5, -1.0, 2.0}}, {"tie rod", false, {1.0, -1.0, 2.0, -0.5, 0.25}}};
    for (const row& r : rows)
        for (unsigned threads : {1u, 2u}) {
            SCOPED_TRACE(std::string(r.name) + (threads == 1 ? " 1" : " 2"));
            test_context t;
            t.ctx.set_max_threads(threads);
            dense2D<double> pos(3, 2, 0.0);
            pos(0, 1) = 1.0;
            fem::DOFs_mgr DOFs(2, false);
            ASSERT_EQ(DOFs.set(1, displacement_tag, 0, true), no_error);
            fem::numerical_model_composite all(t.ctx);
            ASSERT_EQ(all.insert(grounded(t, {id(1, 0)}, {k})), no_error);
            fem::link_directional_gnl stop(t.ctx);
            fem::tie_rods tie(t.ctx);
            if (r.stop) {
                ASSERT_EQ(stop.init(0, 1, displacement_tag, vector_fixed<double, 3>{1.0, 0.0, 0.0}, -g, false), no_error);
                ASSERT_EQ(all.insert(stop.get_ID()), no_error);
            } else {
                dense2D<unsigned> rod(2, 1);
                rod(0, 0) = 0, rod(1, 0) = 1;
                ASSERT_EQ(tie.init(rod, 3 * k, 0.0, 0.0, 0.0, true), no_error);
                ASSERT_EQ(all.insert(tie.get_ID()), no_error);
            }
            fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
            fem::FEM_states state;
            for (double P : r.P) {
                fem::loads_mgr loads = p.get_loads_mgr(0);
                loads.clear();
                ASSERT_EQ(loads.record_DOF_load(id(1, 0), P * k * g, no_func), no_error);
                fem::solver_static_Newton::data_type d(p);
                d.U_start = state;
                fem::solver_static_Newton().run(d);
                ASSERT_EQ(d.error_code, no_error) << P << " " << d.msg_title;
                EXPECT_LE(d.iters[0], 4u) << P;
                state = d.U;
                const double u = value(d.U, id(1, 0)) / g;
                const double expected = r.stop ? std::min(P, 1.0) : P / (P > 0.0 ? 4.0 : 1.0);
                EXPECT_NEAR(u, expected, 1e-6) << P;
            }
        }
}

// A hexa8 block [0, 1]^3 clamped at x = 0 carries at the centre of its face x = 1
// a cantilever of closed-form beams (L = 10) under a tip force P along z. The
// beam's root is joined to the face by a rigid body whose master is either its
// own node beside the face's centre (every face node a slave) or the face's
// centre itself, merged with the beam's root (the other face nodes slaves): the
// tip deflections agree to the penalty's accuracy. On a block 1e4 times stiffer,
// the beam is clamped: P L^3 / (3 E I) + P L / (G A_z).
TEST(rigid_body, joins_a_beam_to_a_solid_face_as_merging_its_root_does)
{
    constexpr double L = 10.0, E = 1000.0, G = 400.0, P = 1e-3;
    constexpr unsigned along = 4;
    const double beam_section[15] = {0, 1, 0, E, G, 0.0, 1.0, 5.0 / 6, 5.0 / 6, 1.0 / 6, 1.0 / 12, 1.0 / 12, 0, 0, 0};
    const auto tip_deflection = [&](bool merged, double E_block, unsigned threads) {
        test_context t;
        t.ctx.set_max_threads(threads);
        const mesh block = box_mesh(element_hexa8, {1.0, 1.0, 1.0}, {2, 2, 2});
        const unsigned solid_nodes = block.nbr_nodes();
        unsigned centre = 0;
        std::vector<unsigned> face;
        for (unsigned n = 0; n < solid_nodes; ++n)
            if (block.pos(0, n) == 1.0) {
                face.push_back(n);
                if (block.pos(1, n) == 0.5 && block.pos(2, n) == 0.5) centre = n;
            }
        const unsigned root = merged ? centre : solid_nodes, first_new = solid_nodes + (merged ? 0 : 1);
        const unsigned nodes = first_new + along;
        dense2D<double> pos(3, nodes);
        for (unsigned n = 0; n < nodes; ++n)
            for (unsigned c = 0; c < 3; ++c)
                pos(c, n) = n < solid_nodes ? block.pos(c, n) : (c == 0 ? 1.0 + L * (n + 1 - first_new) / along : 0.5);
        if (!merged)
            for (unsigned c = 0; c < 3; ++c) pos(c, root) = c == 0 ? 1.0 : 0.5;
        dense2D<unsigned> cells(2, along);
        for (unsigned e = 0; e < along; ++e) cells(0, e) = e == 0 ? root : first_new + e - 1, cells(1, e) = first_new + e;
        fem::DOFs_mgr DOFs(nodes, false);
        for (unsigned n = 0; n < nodes; ++n) {
            EXPECT_EQ(DOFs.set(n, displacement_tag, !(n < solid_nodes && block.pos(0, n) == 0.0)), no_error);
            if (n == root || n >= first_new) {
                EXPECT_EQ(DOFs.set(n, rotation_tag, true), no_error);
            }
        }
        dense1D<double, 8> d(22, 0.0);
        for (unsigned i = 0; i < 15; ++i) d[i] = beam_section[i];
        fem::law_beam_StVenant law;
        fem::model_beam_lin physics;
        fem::numerical_model_stiff_lin beam(t.ctx);
        EXPECT_EQ(law.init(d), no_error);
        EXPECT_EQ(physics.init(law), no_error);
        EXPECT_EQ(beam.init(t.ctx, physics, cells, element_edge2), no_error);
        dense1D<unsigned, 8> body;
        body.push_back(root);
        for (unsigned n : face)
            if (n != root) body.push_back(n);
        fem::rigid_body_lin joint(t.ctx);
        EXPECT_EQ(joint.init(body, false), no_error);
        const fem::FEM_matrix U = solve(t, {t.solid(block, E_block, 0.3), beam.get_ID(), joint.get_ID()}, pos, DOFs, 1,
                                        {{0, double(dof(nodes - 1, 2)), P}});
        return value(U, dof(nodes - 1, 2));
    };
    for (unsigned threads : {1u, 2u}) {
        const double apart = tip_deflection(false, E, threads), merged = tip_deflection(true, E, threads);
        EXPECT_NEAR(apart, merged, 1e-4 * std::fabs(merged)) << threads;
        const double clamped = P * (L * L * L / (3 * E / 12) + L / (G * 5.0 / 6));
        EXPECT_GT(std::fabs(merged), 1.1 * clamped) << "the block gives";
        EXPECT_NEAR(tip_deflection(false, 1e4 * E, threads), clamped, 1e-3 * clamped) << threads;
    }
}

// The constant of a linear constraint, -u0 + u1 - d = 0 between two nodes on
// springs k, acts in a linear static run through the case's initial forces (a
// stress manager, here of a zero temperature): the nodes part by d to the
// penalty's accuracy, symmetrically.
TEST(links, the_constant_term_holds_in_a_linear_static_run)
{
    constexpr double d = 0.01;
    test_context t;
    fem::law_spring law;
    ASSERT_EQ(law.init(list({1.0, 0.0, 0.0})), no_error);
    fem::spring s0(t.ctx), s1(t.ctx);
    fem::link_directional tie(t.ctx);
    ASSERT_TRUE(s0.init(0, core::ground_node, displacement_tag, law) == no_error &&
                s1.init(1, core::ground_node, displacement_tag, law) == no_error &&
                tie.init(0, 1, displacement_tag, {{1.0, 0.0, 0.0}}, -1.0, 1.0, -d) == no_error);
    fem::numerical_model_composite all(t.ctx);
    for (unsigned m : {s0.get_ID(), s1.get_ID(), tie.get_ID()}) ASSERT_EQ(all.insert(m), no_error);
    dense2D<double> pos(3, 2, 1.5);
    fem::DOFs_mgr DOFs(2, true);
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
    fem::stress_mgr initial(t.ctx);
    ASSERT_EQ(initial.set_thermal_load(tie.get_ID(), 0.0, no_func), no_error);
    p.set_stress_mgr(0, initial);
    fem::solver_static_linear::data_type data(p);
    fem::solver_static_linear().run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_detail;
    const double u0 = value(data.U, id(0, 0)), u1 = value(data.U, id(1, 0));
    EXPECT_NEAR(u1 - u0, d, 1e-3 * d);
    EXPECT_NEAR(u1 + u0, 0.0, 1e-4 * d); // the penalty floor 1e12 against k = 1 costs digits
}
