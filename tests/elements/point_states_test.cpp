// Internal states through the element loop: trial passes read the committed
// states and write trial ones, commit and rollback move between the two, and the
// threads write their own elements' states with no effect on the results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/internal_states.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// A solid whose stiffness is scaled by 1 - d, with the damage d = k / (k + k0)
// growing with k, the largest equivalent strain |eps| the point has reached. Its
// one value of state is k.
class law_damage : public core::law_solid_StVenant {
public:
    static constexpr double k0 = 1e-3;
    unsigned nbr_internal_states() const override { return 1; }
    bool get_stress(const core::law_key& key, const core::voigt6& eps, core::constitutive6& D, core::voigt6& sigma,
                    double& energy_density, const double* in, double* out) const override
    {
        double e = 0.0;
        for (unsigned i = 0; i < 6; ++i) e += eps[i] * eps[i];
        const double k = std::max(in ? in[0] : 0.0, std::sqrt(e));
        if (out) out[0] = k;
        if (!law_solid_StVenant::get_stress(key, eps, D, sigma, energy_density, nullptr, nullptr)) return false;
        const double s = 1.0 - k / (k + k0);
        for (unsigned i = 0; i < 6; ++i) {
            sigma[i] *= s;
            for (unsigned j = 0; j <= i; ++j) D(i, j) *= s;
        }
        energy_density *= s;
        return true;
    }
};

constexpr unsigned places[3] = {0, 1, 2};

struct pass_result {
    dense_assembler K;
    sum_vector_assembler F;
};

struct point_states : ::testing::Test {
    point_states() : m(cube_mesh(element_hexa8, 3, 0.2))
    {
        Ptr<law_damage> law = new law_damage;
        dense1D<double, 8> d;
        for (double v : {1000.0, 0.3, 0.0}) d.push_back(v);
        EXPECT_EQ(law->init(d), no_error);
        model = mc.solid(m, Ptr<core::law_solid_stiff>(law.get()));
        EXPECT_TRUE(model && model->has_internal_states());
    }
    // A smooth field whose strains are about `scale`.
    core::DOF_values_view field(double scale) const
    {
        return values_of(m, 3, places, [&](unsigned n, unsigned k) {
            return scale * std::sin(2.0 * m.pos(0, n) + k * m.pos(1, n) + 0.5 * m.pos(2, n));
        });
    }
    void pass(const core::DOF_values_view& U, pass_result& r, bool commit = false)
    {
        core::element_pass_type p;
        p.pos = m.pos;
        p.U = U;
        p.matrix = &r.K;
        p.vector = &r.F;
        p.commit = commit;
        ASSERT_EQ(model->run_elements(core::kind_stiffness, p), no_error);
    }
    // The committed states, one slice per element (empty: the virgin state).
    std::vector<std::vector<double>> committed() const
    {
        core::internal_states store;
        EXPECT_EQ(model->get_internal_states(store), no_error);
        const core::internal_states_block* b = store.find(model->ID);
        std::vector<std::vector<double>> out(model->nbr_elements());
        for (unsigned e = 0; b && e < out.size(); ++e) out[e].assign(b->slice(e).begin(), b->slice(e).end());
        return out;
    }

    model_context mc;
    test_mesh m;
    Ptr<core::numerical_model_base> model;
};

void expect_same(const pass_result& a, const pass_result& b)
{
    EXPECT_EQ(a.K.n, b.K.n);
    EXPECT_TRUE(a.K.A == b.K.A);
    EXPECT_TRUE(a.F.sums == b.F.sums);
}

TEST_F(point_states, trial_commit_and_rollback_are_the_same_on_1_and_2_threads)
{
    const core::DOF_values_view load = field(1e-3), more = field(3e-3), none = field(0.0);
    struct run_type {
        pass_result unload, loaded, unload_again, loaded_again;
        std::vector<std::vector<double>> after_load, after_trials, after_rollback, after_commit;
    };
    run_type runs[2];
    for (unsigned t = 0; t < 2; ++t) {
        SCOPED_TRACE(t + 1);
        run_type& r = runs[t];
        mc.ctx->process_mgr->max_threads = t + 1;
        model->clear_internal_states();
        pass_result first;
        pass(load, first, true);
        r.after_load = committed();
        pass(none, r.unload);
        pass(more, r.loaded);
        pass(none, r.unload_again);
        pass(more, r.loaded_again);
        r.after_trials = committed();
        // Trial passes read the commit, never each other's trials.
        EXPECT_TRUE(r.after_trials == r.after_load);
        expect_same(r.unload, r.unload_again);
        expect_same(r.loaded, r.loaded_again);
        // A rollback drops the trial of `more`: committing then changes nothing.
        model->rollback_states();
        ASSERT_EQ(model->commit_states(), no_error);
        r.after_rollback = committed();
        EXPECT_TRUE(r.after_rollback == r.after_load);
        // The trial of `more`, committed, is the history of `more`.
        pass_result again;
        pass(more, again);
        ASSERT_EQ(model->commit_states(), no_error);
        r.after_commit = committed();
        EXPECT_TRUE(r.after_commit != r.after_load);
        for (unsigned e = 0; e < r.after_commit.size(); ++e) {
            ASSERT_EQ(r.after_commit[e].size(), r.after_load[e].size());
            for (unsigned k = 0; k < r.after_commit[e].size(); ++k)
                EXPECT_GT(r.after_commit[e][k], r.after_load[e][k]); // `more` strains further everywhere
        }
    }
    EXPECT_TRUE(runs[0].after_load == runs[1].after_load);
    EXPECT_TRUE(runs[0].after_commit == runs[1].after_commit);
    expect_same(runs[0].unload, runs[1].unload);
    expect_same(runs[0].loaded, runs[1].loaded);
}

// Under a homogeneous strain every point has the same history, so that after a
// load and its commit the unloaded stiffness is the virgin one times 1 - d.
TEST_F(point_states, a_committed_load_leaves_the_material_softer)
{
    const double a = law_damage::k0; // u_x = a x: |eps| = a, d = 1/2
    const core::DOF_values_view stretch =
        values_of(m, 3, places, [&](unsigned n, unsigned k) { return k == 0 ? a * m.pos(0, n) : 0.0; });
    const core::DOF_values_view none = field(0.0);
    pass_result virgin, loaded, unloaded, cleared;
    pass(none, virgin);
    pass(stretch, loaded, true);
    pass(none, unloaded);
    const double s = 1.0 - a / (a + law_damage::k0);
    ASSERT_EQ(virgin.K.n, unloaded.K.n);
    double largest = 0.0, error = 0.0;
    for (unsigned c = 0; c < virgin.K.n; ++c)
        for (unsigned r = 0; r < virgin.K.n; ++r) {
            largest = std::max(largest, std::fabs(virgin.K.get(r, c)));
            error = std::max(error, std::fabs(unloaded.K.get(r, c) - s * virgin.K.get(r, c)));
        }
    // Each entry is a sum over at most 8 elements of 8 points, each scaled by s:
    // the difference is rounding, a few ulps of the largest entry per term.
    EXPECT_LE(error, 64 * 4 * 2.2e-16 * largest);
    EXPECT_GT(largest, 0.0);
    // Clearing returns to the virgin material.
    model->clear_internal_states();
    pass(none, cleared);
    expect_same(virgin, cleared);
}

} // namespace
