// Load cases: what recording keeps, how element loads are shared, and what a case
// writes into a right-hand side. The assembled sums are compared with the sums
// that the records stand for, through an assembler that keeps every addition.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/loads_mgr.h"
#include "support/assemblers.h"
#include "support/core_context.h"
#include "support/values.h"

using namespace kelt;
using test::make;
using sum_assembler = test::sum_vector_assembler;

namespace {

core::elementary_load load_of(unsigned kind, std::initializer_list<double> values)
{
    core::elementary_load l;
    l.kind = kind;
    l.type = 1;
    l.values = make(values);
    return l;
}

// One element per DOF: an element load adds factor x its first value at
// identifier 9 x element + kind. It counts its calls and can be told to fail.
class counting_model : public core::numerical_model_base {
public:
    explicit counting_model(core::context_type* ctx) : numerical_model_base(ctx) {}
    unsigned nbr_elements() const override { return 100; }
    error_type run_element_loads(const core::elementary_load& load, core::load_pass_type& pass) override
    {
        ++calls;
        pass.case_index = 77; // a model may use the field; the case restores it
        if (fail) return element_index_error;
        return pass.assembler.add(9 * pass.element + load.kind, pass.factor * load.values[0]);
    }
    unsigned calls = 0;
    bool fail = false;
};

// A context with one registered counting model; the registry is cleared at the
// end, which breaks the ring between the context and its models.
struct loads_fixture : ::testing::Test, test::core_context {
    loads_fixture()
    {
        model = new counting_model(ctx);
        EXPECT_EQ(model->record(), no_error);
    }

    std::map<unsigned, double> assembled(const core::loads_mgr& loads, double factor, double time)
    {
        sum_assembler a;
        core::load_pass_type pass(a, factor, time, 0);
        EXPECT_EQ(loads.assemble(pass), no_error);
        EXPECT_EQ(pass.case_index, 0u);
        return a.sums;
    }

    Ptr<counting_model> model;
};

TEST_F(loads_fixture, equal_element_loads_share_one_entry_within_the_look_back)
{
    core::loads_mgr loads(ctx);
    const core::elementary_load pressure = load_of(0, {2.5, 1.0});
    for (unsigned e = 0; e < 1000; ++e) ASSERT_EQ(loads.record_NM_load(model->ID, e, pressure, 0), no_error);
    EXPECT_EQ(loads.elementary_loads.size(), 1u);
    EXPECT_EQ(loads.nbr_NM_loads(), 1000u);

    // Four different loads in turn, then the first again: the first is 4 back.
    core::loads_mgr walk(ctx);
    const core::elementary_load l[4] = {load_of(0, {1}), load_of(1, {1}), load_of(0, {2}), load_of(0, {1, 0})};
    for (unsigned i = 0; i < 4; ++i) ASSERT_EQ(walk.record_NM_load(model->ID, i, l[i], 0), no_error);
    ASSERT_EQ(walk.record_NM_load(model->ID, 4, l[0], 0), no_error);
    EXPECT_EQ(walk.elementary_loads.size(), 5u);
    ASSERT_EQ(walk.record_NM_load(model->ID, 5, l[2], 0), no_error); // 3 back: found
    EXPECT_EQ(walk.elementary_loads.size(), 5u);
    ASSERT_EQ(walk.record_NM_load(model->ID, 6, l[2], 3), no_error); // another function: not equal
    EXPECT_EQ(walk.elementary_loads.size(), 6u);
    EXPECT_EQ(walk.elementary_loads.back().func, 3u);
}

TEST_F(loads_fixture, zero_or_unplaced_element_loads_are_not_kept)
{
    core::loads_mgr loads(ctx);
    EXPECT_EQ(loads.record_NM_load(model->ID, 0, load_of(0, {0.0, 0.0}), 0), no_error);
    EXPECT_EQ(loads.record_NM_load(model->ID, 0, load_of(0, {}), 0), no_error);
    EXPECT_EQ(loads.record_NM_load(core::no_model, 0, load_of(0, {1.0}), 0), no_error);
    EXPECT_EQ(loads.record_NM_load(model->ID, 0xFFFFFFFFu, load_of(0, {1.0}), 0), no_error);
    EXPECT_TRUE(loads.elementary_loads.empty());
    EXPECT_EQ(loads.nbr_NM_loads(), 0u);
}

TEST_F(loads_fixture, assembly_adds_element_and_DOF_loads_at_factor_and_time)
{
    core::loads_mgr loads(ctx);
    const unsigned ramp = ctx->evolution_funcs_mgr->create_linear(2.0); // 2 t
    ASSERT_EQ(loads.record_NM_load(model->ID, 3, load_of(1, {4.0}), 0), no_error);
    ASSERT_EQ(loads.record_DOF_load(10, 1.5, ramp), no_error);
    ASSERT_EQ(loads.record_DOF_load(10, 0.25, 999), no_error); // past the functions: 1.0
    ASSERT_EQ(loads.record_DOF_load(11, 0.0, 0), no_error);    // kept, adds 0
    EXPECT_EQ(loads.nbr_DOF_loads(), 3u);

    const auto sums = assembled(loads, 2.0, 3.0);
    EXPECT_EQ(model->calls, 1u);
    EXPECT_EQ(sums.at(9 * 3 + 1), 8.0);
    EXPECT_EQ(sums.at(10), 2.0 * 6.0 * 1.5 + 2.0 * 0.25);
    EXPECT_EQ(sums.at(11), 0.0);
}

TEST_F(loads_fixture, a_skipped_case_touches_no_model)
{
    core::loads_mgr loads(ctx);
    ASSERT_EQ(loads.record_NM_load(model->ID, 0, load_of(0, {1.0}), 0), no_error);
    ASSERT_EQ(loads.record_DOF_load(4, 1.0, 0), no_error);
    sum_assembler a;
    core::vector_null_assembler null;
    for (auto [assembler, factor, index] : {std::tuple<core::vector_assembler_base*, double, unsigned>{&a, 0.0, 0},
                                            {&null, 1.0, 0},
                                            {&a, 1.0, core::load_pass_type::no_case}}) {
        core::load_pass_type pass(*assembler, factor, 0.0, index);
        EXPECT_EQ(loads.assemble(pass), no_error);
    }
    EXPECT_EQ(model->calls, 0u);
    EXPECT_TRUE(a.sums.empty());
}

TEST_F(loads_fixture, a_failing_model_stops_the_case_before_the_DOF_loads)
{
    core::loads_mgr loads(ctx);
    ASSERT_EQ(loads.record_NM_load(model->ID, 0, load_of(0, {1.0}), 0), no_error);
    ASSERT_EQ(loads.record_NM_load(model->ID, 1, load_of(0, {1.0}), 0), no_error);
    ASSERT_EQ(loads.record_NM_load(model->ID + 5, 1, load_of(0, {1.0}), 0), no_error); // unknown model: skipped
    ASSERT_EQ(loads.record_DOF_load(4, 1.0, 0), no_error);
    model->fail = true;
    sum_assembler a;
    core::load_pass_type pass(a, 1.0, 0.0, 2);
    EXPECT_EQ(loads.assemble(pass), element_index_error);
    EXPECT_EQ(model->calls, 1u);
    EXPECT_EQ(pass.case_index, 2u); // restored
    EXPECT_EQ(pass.element, core::all_elements);
    EXPECT_TRUE(a.sums.empty());
}

// What a case passes over is counted, and only that: rows are those a solver gives
// for a solid on nodes 0 and 1 with node 1's x blocked.
TEST_F(loads_fixture, each_load_that_reaches_nothing_counts_once)
{
    vector_fast rows;
    ASSERT_TRUE(rows.assign(make<unsigned>({0, 1, 2, 10, 11}).data(), 5));
    const unsigned elsewhere = model->ID + 5;
    struct row {
        const char* what;
        unsigned DOF; // no_DOF for an element load
        unsigned model, element;
        unsigned skipped;
    };
    constexpr unsigned no_DOF = 0xFFFFFFFFu;
    const row table[] = {
        {"node the model does not have", 9 * 5, 0, 0, 1},
        {"blocked DOF", 9, 0, 0, 1},
        {"rotation of a solid", 3, 0, 0, 1},
        {"free DOF", 10, 0, 0, 0},
        {"element past the end", no_DOF, model->ID, 100, 1},
        {"last element", no_DOF, model->ID, 99, 0},
        {"all elements", no_DOF, model->ID, core::all_elements, 0},
        {"model that does not exist", no_DOF, elsewhere, 0, 1},
    };
    for (const row& r : table) {
        SCOPED_TRACE(r.what);
        core::loads_mgr loads(ctx);
        if (r.DOF != no_DOF)
            ASSERT_EQ(loads.record_DOF_load(r.DOF, 1.0, 0), no_error);
        else
            ASSERT_EQ(loads.record_NM_load(r.model, r.element, load_of(1, {1.0}), 0), no_error);
        sum_assembler a;
        core::load_pass_type pass(a, 1.0, 0.0, 0);
        pass.rows = &rows;
        EXPECT_EQ(loads.assemble(pass), no_error);
        EXPECT_EQ(pass.nbr_skipped, r.skipped);
        // Without the rows a DOF load cannot be judged; an element load still can.
        core::load_pass_type blind(a, 1.0, 0.0, 0);
        EXPECT_EQ(loads.assemble(blind), no_error);
        EXPECT_EQ(blind.nbr_skipped, r.DOF == no_DOF ? r.skipped : 0u);
    }
}

TEST_F(loads_fixture, prescribed_values_on_one_DOF_add_up)
{
    core::loads_mgr loads(ctx);
    ASSERT_EQ(loads.record_DOF_prescribed_value(18, 0.5, 0), no_error);
    ASSERT_EQ(loads.record_DOF_prescribed_value(20, 3.0, 0), no_error); // no row: skipped
    ASSERT_EQ(loads.record_DOF_prescribed_value(18, 0.25, 1), no_error); // t
    vector_fast rows;
    ASSERT_TRUE(rows.assign(make<unsigned>({7, 18, 9}).data(), 3));
    dense1D<double, 8> values = make<double>({1.0, 99.0, 2.0});
    sum_assembler a;
    loads.prescribed_vector(core::load_pass_type(a, 2.0, 4.0, 0), rows, values);
    EXPECT_EQ(values[0], 1.0);
    EXPECT_EQ(values[1], 2.0 * (0.5 + 4.0 * 0.25)); // the old value is replaced, not added to
    EXPECT_EQ(values[2], 2.0);

    dense1D<unsigned, 8> IDs = make<unsigned>({1});
    loads.prescribed_IDs(IDs);
    EXPECT_EQ(IDs.size(), 4u);
    EXPECT_EQ(IDs[1], 18u);
    EXPECT_EQ(IDs[3], 18u); // repeats kept
}

TEST_F(loads_fixture, nodal_records_go_to_the_node_identifiers)
{
    core::loads_mgr loads(ctx);
    ASSERT_EQ(loads.record_nodal_load(2, vector_fixed<double, 3>{{1, 0, 0}}, vector_fixed<double, 3>{}, 0), no_error);
    ASSERT_EQ(loads.nbr_DOF_loads(), 6u); // zeros included
    for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(loads.DOF_loads[k].first, 18u + k);
    ASSERT_EQ(loads.record_nodal_load(2, temperature_tag, 1, 5.0, 0), no_error);
    EXPECT_EQ(loads.DOF_loads[6].first, 24u);
    ASSERT_EQ(loads.record_nodal_load(2, field_tag(7), 0, 5.0, 0), no_error); // foreign tag
    EXPECT_EQ(loads.DOF_loads[7].first, 17u);
    ASSERT_EQ(loads.record_nodal_prescribed_values(1, vector_fixed<double, 3>{{1, 2, 3}},
                                                   vector_fixed<double, 3>{{4, 5, 6}}, 0),
              no_error);
    ASSERT_EQ(loads.nbr_prescribed_values(), 6u);
    EXPECT_EQ(loads.prescribed_values[4].first, 13u);
    EXPECT_EQ(loads.prescribed_values[4].third, 5.0);
}

TEST_F(loads_fixture, batches_of_mismatched_sizes_record_nothing)
{
    fem::loads_mgr loads(host);
    const auto IDs = make<unsigned>({1, 2, 3});
    const auto values = make<double>({1.0, 2.0});
    const auto funcs = make<unsigned>({0, 0, 0});
    EXPECT_EQ(loads.record_DOF_loads(IDs, values, 0), invalid_data_error);
    EXPECT_EQ(loads.record_DOF_loads(IDs, make<double>({1, 2, 3}), make<unsigned>({0})), invalid_data_error);
    EXPECT_EQ(loads.record_DOF_prescribed_values(IDs, values, funcs), invalid_data_error);
    EXPECT_EQ(loads.record_DOF_prescribed_values(IDs, values, 0), invalid_data_error);
    const auto* core = static_cast<core::loads_mgr*>(fem::core_of(loads));
    EXPECT_EQ(core->nbr_DOF_loads() + core->nbr_prescribed_values(), 0u);
    EXPECT_EQ(loads.record_DOF_loads(IDs, make<double>({1, 2, 3}), funcs), no_error);
    EXPECT_EQ(core->nbr_DOF_loads(), 3u);
    loads.clear();
    EXPECT_EQ(core->nbr_DOF_loads(), 0u);
}

// A combination assembles to the combination of the assembled cases.
TEST_F(loads_fixture, a_combination_assembles_as_the_sum_of_its_scaled_cases)
{
    const unsigned sine = ctx->evolution_funcs_mgr->create_sinus(1.0, 0.5);
    std::vector<Ptr<core::loads_mgr>> cases;
    for (unsigned c = 0; c < 3; ++c) {
        Ptr<core::loads_mgr> l = new core::loads_mgr(ctx);
        for (unsigned e = 0; e < 5; ++e)
            ASSERT_EQ(l->record_NM_load(model->ID, e + c, load_of(c % 2, {1.0 + c}), c == 1 ? sine : 0), no_error);
        ASSERT_EQ(l->record_DOF_load(3 + c, 0.5 * (c + 1), sine), no_error);
        ASSERT_EQ(l->record_DOF_prescribed_value(40, 1.0 + c, 0), no_error);
        cases.push_back(l);
    }
    const auto coefficients = make<double>({2.0, -0.5, 0.25});
    core::loads_mgr combined(ctx, cases, coefficients);
    EXPECT_EQ(combined.nbr_NM_loads(), 15u);
    EXPECT_EQ(combined.elementary_loads.size(), 3u); // one per case, still shared
    EXPECT_EQ(combined.nbr_prescribed_values(), 3u);

    for (double t : {0.0, 0.7}) {
        std::map<unsigned, double> expected;
        for (unsigned c = 0; c < 3; ++c)
            for (auto [ID, v] : assembled(*cases[c], 1.5, t)) expected[ID] += coefficients[c] * v;
        const auto got = assembled(combined, 1.5, t);
        ASSERT_EQ(got.size(), expected.size());
        for (auto [ID, v] : expected) EXPECT_NEAR(got.at(ID), v, 1e-14 * (1.0 + std::abs(v))) << ID;
    }

    // Scaling by 0 or NaN merges nothing; a case merged into itself doubles.
    combined.merge(*cases[0], 0.0);
    combined.merge(*cases[0], std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(combined.nbr_NM_loads(), 15u);
    const auto once = assembled(*cases[2], 1.0, 0.3);
    cases[2]->merge(*cases[2], 1.0);
    for (auto [ID, v] : assembled(*cases[2], 1.0, 0.3)) EXPECT_EQ(v, 2.0 * once.at(ID));
}

} // namespace
