// The problem given to solvers: positions shared with the host, the DOF table
// grown to the nodes, load cases and their combinations, and the penalty factors.
#include <gtest/gtest.h>

#include <map>

#include "kelt/core/context.h"
#include "kelt/core/problem_data.h"
#include "kelt/fem/context.h"
#include "kelt/fem/problem_data.h"
#include "support/assemblers.h"
#include "support/core_context.h"
#include "support/values.h"

using namespace kelt;
using test::make;
using sum_assembler = test::sum_vector_assembler;

namespace {

// A model whose laws reach `scale` for displacements and a tenth of it for rotations.
class scaled_model : public core::numerical_model_base {
public:
    scaled_model(core::context_type* ctx, double s) : numerical_model_base(ctx), scale(s) {}
    double get_stiffness_scale(field_tag f) const override
    {
        return f == displacement_tag ? scale : f == rotation_tag ? scale / 10 : 0.0;
    }
    error_type run_element_loads(const core::elementary_load& load, core::load_pass_type& pass) override
    {
        return pass.assembler.add(9 * pass.element, pass.factor * load.values[0]);
    }
    double scale;
};

struct problem_fixture : ::testing::Test, test::core_context {
    problem_fixture()
    {
        model = new scaled_model(ctx, 1e6);
        EXPECT_EQ(model->record(), no_error);
    }

    static core::problem_data& core_of(const fem::problem_data& p)
    {
        return *static_cast<core::problem_data*>(fem::core_of(p));
    }

    Ptr<scaled_model> model;
};

TEST_F(problem_fixture, positions_of_two_rows_grow_to_three_and_stay_shared)
{
    dense2D<double> pos(2, 4);
    for (unsigned j = 0; j < 4; ++j) pos(0, j) = pos(1, j) = j + 1.0;
    fem::DOFs_mgr DOFs(2, true);
    fem::problem_data p(host, pos, DOFs, model->ID, 2);
    ASSERT_EQ(pos.rows(), 3u); // the caller's matrix
    for (unsigned j = 0; j < 4; ++j) {
        EXPECT_EQ(pos(1, j), j + 1.0);
        EXPECT_EQ(pos(2, j), 0.0);
    }
    EXPECT_EQ(DOFs.nbr_nodes(), 4u); // the table grows to the nodes
    bool state = true;
    ASSERT_EQ(DOFs.get(3, displacement_tag, 0, state), no_error);
    EXPECT_FALSE(state);
    ASSERT_EQ(DOFs.get(1, displacement_tag, 0, state), no_error);
    EXPECT_TRUE(state);

    pos(2, 3) = 7.0; // shared both ways
    EXPECT_EQ(p.get_pos_matrix()(2, 3), 7.0);
    p.get_pos_matrix()(0, 0) = -1.0;
    EXPECT_EQ(pos(0, 0), -1.0);
    EXPECT_EQ(fem::core_of(p.get_DOFs_mgr()), fem::core_of(DOFs));
    EXPECT_EQ(p.NM_ID(), model->ID);
    EXPECT_TRUE(p.has_numerical_model());
    EXPECT_EQ(p.nbr_load_cases(), 2u);

    dense2D<double> more(3, 6, 1.0);
    p.set_pos_matrix(more);
    EXPECT_EQ(DOFs.nbr_nodes(), 6u);
    EXPECT_EQ(p.get_pos_matrix().cols(), 6u);
}

TEST_F(problem_fixture, penalty_factors_follow_the_model_above_a_floor)
{
    host.set_raw_penalty_factor(10000.0);
    host.set_min_penalty_factor(1e12);
    dense2D<double> pos(3, 1);
    fem::DOFs_mgr DOFs;
    fem::problem_data p(host, pos, DOFs, model->ID, 1);
    EXPECT_EQ(p.get_penalty_factor(displacement_tag), 1e12); // 1e10 is below the floor
    model->scale = 1e9;
    EXPECT_EQ(p.get_penalty_factor(displacement_tag), 1e13);
    EXPECT_EQ(p.get_penalty_factor(rotation_tag), 1e12);
    model->scale = 1e10;
    core::problem_data& c = core_of(p);
    c.compute_penalties();
    EXPECT_EQ(c.penalty_displacement, 1e14);
    EXPECT_EQ(c.penalty_rotation, 1e13);

    fem::problem_data without(host, pos, DOFs, model->ID + 1, 1);
    EXPECT_FALSE(without.has_numerical_model());
    EXPECT_EQ(without.get_penalty_factor(displacement_tag), 1e12);

    core::problem_data orphan(nullptr);
    EXPECT_EQ(orphan.get_penalty_factor(displacement_tag), 1.0);
    EXPECT_EQ(orphan.init(pos, nullptr, 0, 3), invalid_data_error);
    EXPECT_EQ(orphan.nbr_load_cases(), 0u);
    EXPECT_EQ(orphan.NM_ID, core::no_model);
}

TEST_F(problem_fixture, load_case_indices_out_of_range_are_silent)
{
    dense2D<double> pos(3, 2);
    fem::DOFs_mgr DOFs;
    fem::problem_data p(host, pos, DOFs, model->ID, 2);
    EXPECT_FALSE(p.get_loads_mgr(2).attached());
    EXPECT_FALSE(p.get_stress_mgr(2).attached());
    EXPECT_EQ(p.get_loads_mgr(2).record_DOF_load(0, 1.0, 0), invalid_data_error); // an empty handle refuses
    fem::loads_mgr mine(host);
    fem::stress_mgr heat(host);
    p.set_loads_mgr(5, mine);
    p.set_stress_mgr(5, heat);
    p.set_loads_mgr(1, mine);
    p.set_stress_mgr(0, heat);
    EXPECT_EQ(fem::core_of(p.get_loads_mgr(1)), fem::core_of(mine));
    EXPECT_EQ(fem::core_of(p.get_stress_mgr(0)), fem::core_of(heat));
    EXPECT_NE(fem::core_of(p.get_loads_mgr(0)), fem::core_of(mine));

    fem::problem_data record = p; // a solver's record: the same problem
    p.init(pos, DOFs, model->ID, 3);
    EXPECT_EQ(record.nbr_load_cases(), 3u);
    EXPECT_NE(fem::core_of(record.get_loads_mgr(1)), fem::core_of(mine)); // new cases
}

TEST_F(problem_fixture, combined_cases_are_the_combinations_of_the_cases)
{
    dense2D<double> pos(3, 3);
    fem::DOFs_mgr DOFs;
    fem::problem_data p(host, pos, DOFs, model->ID, 2);
    core::elementary_load push;
    push.values = make<double>({2.0});
    for (unsigned c = 0; c < 2; ++c) {
        fem::loads_mgr l = p.get_loads_mgr(c);
        ASSERT_EQ(l.record_DOF_load(1 + c, 10.0, 0), no_error);
        ASSERT_EQ(l.record_NM_load(model->ID, c, push, 0), no_error);
        ASSERT_EQ(p.get_stress_mgr(c).set_thermal_load(model->ID, 5.0 * (c + 1), 0xFFFFFFFFu), no_error);
    }
    core_of(p).penalty_rotation = 3.0;

    dense2D<double> loads(2, 3), heats(2, 3);
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i < 2; ++i) {
            loads(i, j) = double(i + j) - 1.5;
            heats(i, j) = 0.5 * j - i;
        }
    const fem::problem_data same(p, loads), apart(p, loads, heats);
    for (const fem::problem_data* q : {&same, &apart}) {
        ASSERT_EQ(q->nbr_load_cases(), 3u);
        EXPECT_EQ(q->NM_ID(), model->ID);
        EXPECT_EQ(fem::core_of(q->get_DOFs_mgr()), fem::core_of(DOFs));
        EXPECT_EQ(core_of(*q).penalty_rotation, 3.0);
        const dense2D<double>& thermal = q == &same ? loads : heats;
        for (unsigned j = 0; j < 3; ++j) {
            SCOPED_TRACE(j);
            sum_assembler a;
            core::load_pass_type pass(a, 1.0, 0.0, 0);
            ASSERT_EQ(core_of(*q).loads[j]->assemble(pass), no_error);
            EXPECT_EQ(a.sums[1], 10.0 * loads(0, j));
            EXPECT_EQ(a.sums[2], 10.0 * loads(1, j));
            EXPECT_EQ(a.sums[0], 2.0 * loads(0, j));
            EXPECT_EQ(a.sums[9], 2.0 * loads(1, j));
            const core::stress_mgr_thermal* t = core_of(*q).stresses[j]->get_thermal(model->ID);
            dense1D<double, 8> T;
            if (t) t->get_uniform(0.0, T);
            const double expected = 5.0 * thermal(0, j) + 10.0 * thermal(1, j);
            EXPECT_EQ(T.empty() ? 0.0 : T[0], expected);
        }
    }
    // Fewer rows of factors than cases: the missing ones count as 0.
    const fem::problem_data short_one(p, dense2D<double>(1, 1, 2.0));
    sum_assembler a;
    core::load_pass_type pass(a, 1.0, 0.0, 0);
    ASSERT_EQ(core_of(short_one).loads[0]->assemble(pass), no_error);
    EXPECT_EQ(a.sums.count(2), 0u);
    EXPECT_EQ(a.sums[1], 20.0);
}

} // namespace
