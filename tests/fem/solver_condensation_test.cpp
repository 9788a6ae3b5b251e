// Static condensation against the full static solution: the condensed stiffness
// is the inverse of the flexibility on the masters, the condensed loads give the
// masters' displacements, and the record is the same on any thread count, on disk
// and in core; bad master lists are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kelt/fem.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

unsigned ID(unsigned node, field_tag f, unsigned c) { return fem::DOFs_mgr::ID(node, f, c); }

// Beams along x, then along y, in the plane z = 0, clamped at node 0: bending in
// both planes and torsion meet at the corner, so every tip DOF couples.
struct bent_beam {
    static constexpr double E = 1000.0, G = 400.0;

    bent_beam(unsigned along_x, unsigned along_y, unsigned cases)
    {
        const unsigned n = along_x + along_y;
        pos = dense2D<double>(3, n + 1, 0.0);
        for (unsigned i = 0; i <= n; ++i) {
            pos(0, i) = 0.5 * std::min(i, along_x);
            pos(1, i) = i > along_x ? 0.75 * (i - along_x) : 0.0;
        }
        fem::DOFs_mgr dofs(n + 1, false);
        for (unsigned i = 1; i <= n; ++i) {
            EXPECT_EQ(dofs.set(i, displacement_tag, true), no_error);
            EXPECT_EQ(dofs.set(i, rotation_tag, true), no_error);
        }
        const double v[15] = {0, 0, 1, E, G, 0.0, 1.0, 0.5, 0.4, 0.2, 0.1, 0.05, 0.0, 0.0, 0.0};
        dense1D<double, 8> d(22, 0.0);
        for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
        dense2D<unsigned> cells(2, n);
        for (unsigned e = 0; e < n; ++e) cells(0, e) = e, cells(1, e) = e + 1;
        EXPECT_EQ(law.init(d), no_error);
        EXPECT_EQ(physics.init(law), no_error);
        EXPECT_EQ(model.init(t.ctx, physics, cells, element_edge2), no_error);
        problem = fem::problem_data(t.ctx, pos, dofs, model.get_ID(), cases);
        tip = n;
    }

    test_context t;
    dense2D<double> pos;
    fem::law_beam_StVenant law;
    fem::model_beam_lin physics;
    fem::numerical_model_stiff_lin model{t.ctx};
    fem::problem_data problem{t.ctx};
    unsigned tip = 0;
};

// The six DOFs of each node, in turn.
dense1D<unsigned, 8> node_DOFs(std::initializer_list<unsigned> nodes)
{
    dense1D<unsigned, 8> IDs;
    for (unsigned n : nodes)
        for (unsigned place = 0; place < 6; ++place) IDs.push_back(9 * n + place);
    return IDs;
}

// True when the L D Lᵀ of K has only positive pivots.
bool positive_definite(const symmetric_full<double>& K)
{
    const unsigned n = K.order();
    std::vector<double> A(std::size_t(n) * n);
    for (unsigned j = 0; j < n; ++j) {
        for (unsigned i = j; i < n; ++i) {
            double v = K(i, j);
            for (unsigned k = 0; k < j; ++k) v -= A[i * n + k] * A[j * n + k] * A[k * n + k];
            A[i * n + j] = i == j ? v : v / A[j * n + j];
        }
        if (!(A[j * n + j] > 0.0)) return false;
    }
    return true;
}

fem::solver_condensation_static::data_type condense(const fem::problem_data& p, const dense1D<unsigned, 8>& masters,
                                                     unsigned mode = 1, unsigned block = 0)
{
    fem::solver_condensation_static solver;
    solver.settings.mode = mode;
    solver.settings.block_size = block;
    fem::solver_condensation_static::data_type data(p);
    data.master_IDs = masters;
    solver.run(data);
    return data;
}

} // namespace

// Kc F = I, F the flexibility on the masters from unit loads on the full model.
// One element: the masters are all free DOFs, and Kc is K itself.
TEST(solver_condensation_static, stiffness_is_the_inverse_of_the_flexibility_on_the_masters)
{
    struct row {
        unsigned along_x, along_y, block;
    };
    for (const row r : {row{1, 0, 0}, row{4, 4, 0}, row{4, 4, 4}, row{5, 3, 1}}) {
        SCOPED_TRACE(testing::Message() << r.along_x << " x, " << r.along_y << " y, block " << r.block);
        bent_beam b(r.along_x, r.along_y, 6);
        const dense1D<unsigned, 8> masters = node_DOFs({b.tip});
        for (unsigned c = 0; c < 6; ++c)
            ASSERT_EQ(b.problem.get_loads_mgr(c).record_DOF_load(masters[c], 1.0, no_func), no_error);
        fem::solver_static_linear full;
        fem::solver_static_linear::data_type U(b.problem);
        full.run(U);
        ASSERT_EQ(U.error_code, no_error) << U.msg_title;
        const auto data = condense(b.problem, masters, 2, r.block);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        EXPECT_EQ(data.nbr_free_DOFs, 6 * (r.along_x + r.along_y) - 6);
        ASSERT_EQ(data.Kc.order(), 6u);
        double worst = 0.0;
        for (unsigned i = 0; i < 6; ++i)
            for (unsigned j = 0; j < 6; ++j) {
                double s = 0.0;
                for (unsigned k = 0; k < 6; ++k) s += data.Kc(i, k) * value(U.U, masters[k], j);
                worst = std::max(worst, std::fabs(s - (i == j ? 1.0 : 0.0)));
            }
        EXPECT_LE(worst, 1e-10);
    }
}

// Masters at two nodes along the span; the interior holds loads on its nodes and
// on its elements. Kc is positive definite (so Kc u_m = Fc has one solution), and
// the full solution's master displacements satisfy it for each case.
TEST(solver_condensation_static, condensed_loads_give_the_full_displacements_of_the_masters)
{
    bent_beam b(6, 4, 2);
    fem::loads_mgr nodal = b.problem.get_loads_mgr(0), spread = b.problem.get_loads_mgr(1);
    ASSERT_EQ(nodal.record_DOF_load(ID(3, displacement_tag, 2), -2.0, no_func), no_error);
    ASSERT_EQ(nodal.record_DOF_load(ID(8, rotation_tag, 0), 0.7, no_func), no_error);
    ASSERT_EQ(nodal.record_DOF_load(ID(b.tip, displacement_tag, 1), 0.3, no_func), no_error);
    fem::elementary_load q;
    q.kind = 1;
    q.values.push_back(0.1), q.values.push_back(-0.2), q.values.push_back(-1.0);
    for (unsigned e = 0; e < 10; ++e) ASSERT_EQ(spread.record_NM_load(b.model.get_ID(), e, q, no_func), no_error);

    fem::solver_static_linear full;
    fem::solver_static_linear::data_type U(b.problem);
    full.run(U);
    ASSERT_EQ(U.error_code, no_error) << U.msg_title;
    const dense1D<unsigned, 8> masters = node_DOFs({5, b.tip});
    const auto data = condense(b.problem, masters);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.Fc.rows(), 12u);
    ASSERT_EQ(data.Fc.cols(), 2u);
    EXPECT_TRUE(positive_definite(data.Kc));
    for (unsigned c = 0; c < 2; ++c) {
        SCOPED_TRACE(c);
        double scale = 0.0, gap = 0.0;
        for (unsigned i = 0; i < 12; ++i) {
            double r = -data.Fc(i, c);
            for (unsigned k = 0; k < 12; ++k) r += data.Kc(i, k) * value(U.U, masters[k], c);
            scale = std::max(scale, std::fabs(data.Fc(i, c)));
            gap = std::max(gap, std::fabs(r));
        }
        EXPECT_LE(gap, 1e-10 * scale);
        // The interior's energy with the masters held is below the whole one.
        EXPECT_GT(data.energies[c], 0.0);
        EXPECT_LT(data.energies[c], U.energies[c]);
    }
    // Fc alone is the same reduction.
    const auto loads_only = condense(b.problem, masters, 3);
    ASSERT_EQ(loads_only.error_code, no_error);
    EXPECT_EQ(loads_only.Kc.order(), 0u);
    for (unsigned c = 0; c < 2; ++c)
        for (unsigned k = 0; k < 12; ++k) EXPECT_EQ(loads_only.Fc(k, c), data.Fc(k, c));
}

// The same record on one thread and two (to the rounding of a factorisation in
// another order), and on one thread in core and under a budget that sends K1 to
// disk (bit for bit).
TEST(solver_condensation_static, threads_and_budget_change_nothing)
{
    // A slender hexa27 beam whose K1 (a few MB) exceeds a budget of 1 MB, clamped
    // at x = 0, condensed to its other end under a load on its middle.
    test_context t;
    const double size[3] = {30.0, 1.0, 1.0};
    mesh m = box_mesh(element_hexa27, size, {30, 2, 2});
    const unsigned model = t.solid(m, 1000.0, 0.3);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) {
            ASSERT_EQ(DOFs.set(node, displacement_tag, false), no_error);
        }
    fem::problem_data problem(t.ctx, m.pos, DOFs, model, 1);
    dense1D<unsigned, 8> masters;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        if (m.used[node] && m.pos(0, node) == size[0])
            for (unsigned c = 0; c < 3; ++c) masters.push_back(dof(node, c));
        if (m.used[node] && m.pos(0, node) == size[0] / 2) {
            ASSERT_EQ(problem.get_loads_mgr(0).record_DOF_load(dof(node, 2), -1.0, no_func), no_error);
        }
    }
    t.ctx.set_max_threads(2);
    const auto two = condense(problem, masters);
    t.ctx.set_max_threads(1);
    const auto one = condense(problem, masters);
    ASSERT_EQ(t.ctx.set_max_incore_size(1), no_error);
    const auto on_disk = condense(problem, masters, 1, 5);
    for (const auto* d : {&two, &one, &on_disk}) ASSERT_EQ(d->error_code, no_error) << d->msg_title;
    EXPECT_FALSE(one.uses_disk);
    EXPECT_TRUE(on_disk.uses_disk);
    const unsigned nm = masters.size();
    double scale = 0.0, gap = 0.0;
    for (unsigned i = 0; i < nm; ++i)
        for (unsigned j = i; j < nm; ++j) {
            scale = std::max(scale, std::fabs(one.Kc(i, j)));
            gap = std::max(gap, std::fabs(one.Kc(i, j) - two.Kc(i, j)));
            ASSERT_EQ(one.Kc(i, j), on_disk.Kc(i, j)) << i << ", " << j;
        }
    // A factorisation summed in another order: a few hundred roundings at most.
    EXPECT_LE(gap, 1e-11 * scale);
    for (unsigned k = 0; k < nm; ++k) ASSERT_EQ(one.Fc(k, 0), on_disk.Fc(k, 0));
}

TEST(solver_condensation_static, bad_master_lists_are_refused)
{
    bent_beam b(3, 0, 2);
    for (unsigned c = 0; c < 2; ++c)
        ASSERT_EQ(b.problem.get_loads_mgr(c).record_DOF_prescribed_value(ID(1, displacement_tag, 2), 0, no_func), 0);
    struct row {
        dense1D<unsigned, 8> masters;
        const char* title;
    };
    const row rows[] = {
        {node_DOFs({0}), "Master DOF not in the model."},  // the clamped node
        {node_DOFs({9}), "Master DOF not in the model."},  // past the last node
        {node_DOFs({3, 3}), "Master DOF repeated."},
        {node_DOFs({1}), "Master DOF prescribed."},
        {dense1D<unsigned, 8>(), "No master DOF."},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.title);
        const auto data = condense(b.problem, r.masters);
        EXPECT_EQ(data.error_code, invalid_data_error);
        EXPECT_STREQ(data.msg_title, r.title);
        EXPECT_EQ(data.Kc.order(), 0u);
    }
    // A DOF held in one case only would make K1 differ between the cases.
    ASSERT_EQ(b.problem.get_loads_mgr(0).record_DOF_prescribed_value(ID(2, rotation_tag, 0), 0, no_func), 0);
    const auto split = condense(b.problem, node_DOFs({3}));
    EXPECT_EQ(split.error_code, invalid_data_error);
    EXPECT_STREQ(split.msg_title, "Prescribed DOFs differ between load cases.");
    const auto bad_mode = condense(b.problem, node_DOFs({3}), 4);
    EXPECT_STREQ(bad_mode.msg_title, "MODE ERROR");
}
