// Thermal loads of a load case: the three tables, their evolution functions, the
// refusals of the setters and the combination of cases.
#include <gtest/gtest.h>

#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/context.h"
#include "kelt/fem/stress_mgr.h"
#include "support/core_context.h"
#include "support/values.h"

using namespace kelt;
using test::make;

namespace {

constexpr unsigned no_evol = 0xFFFFFFFFu;

std::vector<double> values_of(const dense1D<double, 8>& v) { return std::vector<double>(v.begin(), v.end()); }

struct stress_fixture : ::testing::Test, test::core_context {
    stress_fixture() : mgr(host)
    {
        for (unsigned i = 0; i < 2; ++i) {
            Ptr<core::numerical_model_base> m = new core::numerical_model_base(ctx);
            EXPECT_EQ(m->record(), no_error);
        }
        twice = ctx->evolution_funcs_mgr->create_cste(2.0);
    }

    core::stress_super_mgr& super() const { return *static_cast<core::stress_super_mgr*>(fem::core_of(mgr)); }
    const core::stress_mgr_thermal& thermal(unsigned model) const { return *super().get_thermal(model); }

    fem::stress_mgr mgr;
    unsigned twice = 0;
};

TEST_F(stress_fixture, an_element_set_twice_keeps_one_column_with_the_last_value)
{
    ASSERT_EQ(mgr.set_thermal_load_element(1, 7, 10.0, twice), no_error);
    ASSERT_EQ(mgr.set_thermal_load_element(1, 3, vector_fixed<double, 3>{{1, 2, 3}}, no_evol), no_error);
    ASSERT_EQ(mgr.set_thermal_load_element(1, 7, vector_fixed<double, 2>{{4, 5}}, no_evol), no_error);
    EXPECT_EQ(super().get_thermal(0), nullptr); // model 0 has none
    const core::stress_mgr_thermal& t = thermal(1);
    EXPECT_EQ(t.elements.size(), 2u);
    dense1D<double, 8> out;
    ASSERT_TRUE(t.get_element_value(7, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{4, 5, 0})); // evolution replaced too: factor 1
    ASSERT_TRUE(t.get_element_value(3, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{1, 2, 3}));
    out = make<double>({9.0});
    EXPECT_FALSE(t.get_element_value(4, 0.0, out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(t.get_nodal_value(7, 0.0, out));
}

TEST_F(stress_fixture, evolution_scales_values_and_a_missing_function_is_one)
{
    const unsigned ramp = ctx->evolution_funcs_mgr->create_linear(1.0);
    for (unsigned evol : {no_evol, ramp, 1000u}) {
        SCOPED_TRACE(evol);
        ASSERT_EQ(mgr.set_thermal_load(0, vector_fixed<double, 2>{{3, -1}}, evol), no_error);
        dense1D<double, 8> out;
        thermal(0).get_uniform(2.5, out);
        const double f = evol == ramp ? 2.5 : 1.0;
        EXPECT_EQ(values_of(out), (std::vector<double>{3 * f, -f}));
    }
    ASSERT_EQ(mgr.set_thermal_load(0, 8.0, twice), no_error); // replaces, size included
    dense1D<double, 8> out;
    thermal(0).get_uniform(0.0, out);
    EXPECT_EQ(values_of(out), (std::vector<double>{16.0}));
}

TEST_F(stress_fixture, tables_from_a_matrix_take_one_column_per_entry)
{
    fem::FEM_matrix values(make<unsigned>({0, 1}), 3); // two components, three nodes
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i < 2; ++i) ASSERT_EQ(values.set_val(i, j, 10.0 * j + i), no_error);
    ASSERT_EQ(mgr.set_thermal_load_nodal(1, values, make<unsigned>({no_evol, twice, no_evol})), no_error);
    dense1D<double, 8> out;
    ASSERT_TRUE(thermal(1).get_nodal_value(1, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{20.0, 22.0}));
    ASSERT_TRUE(thermal(1).get_nodal_value(2, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{20.0, 21.0}));

    ASSERT_EQ(mgr.set_thermal_load_elements(1, values, dense1D<unsigned, 8>()), no_error); // no function
    ASSERT_TRUE(thermal(1).get_element_value(1, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{10.0, 11.0}));
    ASSERT_EQ(mgr.set_thermal_load_elements(1, values, twice), no_error);
    ASSERT_TRUE(thermal(1).get_element_value(0, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{0.0, 2.0}));
}

TEST_F(stress_fixture, setters_refuse_unknown_models_and_wrong_evolution_lists)
{
    fem::FEM_matrix values(make<unsigned>({0}), 2);
    EXPECT_EQ(mgr.set_thermal_load(2, 1.0, no_evol), invalid_data_error);
    EXPECT_EQ(mgr.set_thermal_load_element(0xFFFFFFFFu, 0, 1.0, no_evol), invalid_data_error);
    EXPECT_EQ(mgr.set_thermal_load_element(0, 0xFFFFFFFFu, 1.0, no_evol), invalid_data_error);
    EXPECT_EQ(mgr.set_thermal_load_elements(5, values, no_evol), invalid_data_error);
    EXPECT_EQ(mgr.set_thermal_load_nodal(0, values, make<unsigned>({0})), invalid_data_error);
    EXPECT_EQ(mgr.set_thermal_load_nodal(0, values, make<unsigned>({0, 0, 0})), invalid_data_error);
    EXPECT_EQ(super().get_thermal(0), nullptr); // nothing was created

    fem::stress_mgr empty;
    EXPECT_EQ(empty.set_thermal_load(0, 1.0, no_evol), invalid_data_error);
    empty.clear();
}

TEST_F(stress_fixture, combination_extends_and_adds_and_a_zero_factor_does_nothing)
{
    fem::stress_mgr other(host);
    ASSERT_EQ(mgr.set_thermal_load(0, 1.0, no_evol), no_error);
    ASSERT_EQ(mgr.set_thermal_load_element(0, 4, 2.0, no_evol), no_error);
    ASSERT_EQ(other.set_thermal_load(0, vector_fixed<double, 3>{{10, 20, 30}}, no_evol), no_error);
    ASSERT_EQ(other.set_thermal_load_element(0, 4, vector_fixed<double, 2>{{1, 1}}, no_evol), no_error);
    ASSERT_EQ(other.set_thermal_load_element(1, 9, 5.0, twice), no_error);
    const auto& from = *static_cast<core::stress_super_mgr*>(fem::core_of(other));

    ASSERT_EQ(super().add_scaled(from, 0.0), no_error);
    EXPECT_EQ(super().get_thermal(1), nullptr);
    auto& mine = const_cast<core::stress_mgr_thermal&>(thermal(0));
    ASSERT_TRUE(mine.add_scaled(*from.get_thermal(0), 0.0)); // not even extended
    EXPECT_EQ(mine.uniform.size(), 1u);
    EXPECT_EQ(mine.elements.values.rows(), 1u);

    ASSERT_EQ(super().add_scaled(from, -0.5), no_error);
    dense1D<double, 8> out;
    thermal(0).get_uniform(0.0, out);
    EXPECT_EQ(values_of(out), (std::vector<double>{-4.0, -10.0, -15.0}));
    ASSERT_TRUE(thermal(0).get_element_value(4, 0.0, out));
    EXPECT_EQ(values_of(out), (std::vector<double>{1.5, -0.5}));
    ASSERT_TRUE(thermal(1).get_element_value(9, 0.0, out)); // new entry, with the other's function
    EXPECT_EQ(values_of(out), (std::vector<double>{-5.0}));

    Ptr<core::stress_mgr_thermal> fresh = thermal(1).clone();
    EXPECT_EQ(fresh->context.get(), ctx);
    EXPECT_EQ(fresh->elements.size(), 0u);
    mgr.clear();
    EXPECT_EQ(super().get_thermal(0), nullptr);
}

} // namespace
