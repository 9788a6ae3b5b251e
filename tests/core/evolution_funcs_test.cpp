// Evolution functions: the permanent pair, the shapes of each kind against their
// closed forms, and sums and products with empty slots.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "kelt/core/evolution_funcs_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/evolution_funcs_mgr.h"
#include "support/values.h"

using kelt::dense1D;
using kelt::test::make;

namespace {

const double times_to_try[] = {-7.5, -1.0, 0.0, 0.25, 1.0, 3.0, 1e6};

TEST(evolution_funcs, permanent_functions_survive_clear)
{
    kelt::fem::context ctx;
    kelt::fem::evolution_funcs_mgr mgr = ctx.the_evol_funcs_mgr();
    ASSERT_EQ(mgr.size(), 2u);
    EXPECT_EQ(mgr.create_cste(4.0), 2u); // the first function created
    EXPECT_EQ(mgr.create_linear(-2.0), 3u);
    EXPECT_EQ(ctx.the_evol_funcs_mgr().size(), 4u); // the context's manager, shared
    for (int round = 0; round < 2; ++round) {
        for (double t : times_to_try) {
            EXPECT_EQ(mgr.value(0, t), 1.0);
            EXPECT_EQ(mgr.value(1, t), t);
            EXPECT_EQ(mgr.value(mgr.size(), t), 0.0); // out of range
        }
        mgr.clear();
        EXPECT_EQ(mgr.size(), 2u);
    }
    EXPECT_EQ(mgr.create_sinus(1.0, 0.0), 2u);
}

TEST(evolution_funcs, trapeze_is_the_line_through_its_ends_on_a_half_open_interval)
{
    kelt::core::evolution_funcs_mgr mgr;
    const unsigned f = mgr.create_trapeze(0.0, 1.0, 2.0, 3.0);
    EXPECT_EQ(mgr.value(f, 0.0), 2.0);
    EXPECT_EQ(mgr.value(f, 0.5), 2.5);
    EXPECT_EQ(mgr.value(f, 1.0), 0.0); // the end is excluded
    const unsigned flat = mgr.create_trapeze(1.0, 1.0, 2.0, 3.0), reversed = mgr.create_trapeze(2.0, 1.0, 2.0, 3.0);
    for (double t : {0.0, 1.0, 1.5, 2.0}) EXPECT_EQ(mgr.value(flat, t) + mgr.value(reversed, t), 0.0);

    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    for (int k = 0; k < 100; ++k) {
        const double t0 = u(rng), t1 = t0 + 0.1 + std::fabs(u(rng)), v0 = u(rng), v1 = u(rng);
        const unsigned g = mgr.create_trapeze(t0, t1, v0, v1);
        // a t + b loses a few ulps of |a t| + |b| against the two-point form.
        const double bound = 1e-12 * (std::fabs(v0) + std::fabs(v1)) * (1.0 + std::fabs(t0) / (t1 - t0));
        for (double s : {0.0, 0.3, 0.999999}) {
            const double t = t0 + s * (t1 - t0);
            EXPECT_NEAR(mgr.value(g, t), v0 + s * (v1 - v0), bound);
        }
        EXPECT_EQ(mgr.value(g, t0 - 1e-9), 0.0);
        EXPECT_EQ(mgr.value(g, t1), 0.0);
    }
}

TEST(evolution_funcs, triangle_and_spike)
{
    kelt::core::evolution_funcs_mgr mgr;
    const unsigned f = mgr.create_triangle(2.0, 4.0);
    const std::pair<double, double> expected[] = {{2.0, 1.0}, {1.0, 0.5},  {3.0, 0.5}, {0.0, 0.0},
                                                  {4.0, 0.0}, {-3.0, 0.0}, {9.0, 0.0}};
    for (auto [t, v] : expected) EXPECT_EQ(mgr.value(f, t), v) << "t = " << t;
    for (double width : {0.0, -1.0}) {
        const unsigned spike = mgr.create_triangle(5.0, width);
        EXPECT_EQ(mgr.value(spike, 5.0), 1.0);
        for (double t : {4.0, std::nextafter(5.0, 0.0), std::nextafter(5.0, 9.0), 6.0})
            EXPECT_EQ(mgr.value(spike, t), 0.0);
    }
}

TEST(evolution_funcs, discret_interpolates_and_is_constant_outside)
{
    kelt::core::evolution_funcs_mgr mgr;
    const unsigned f = mgr.create_discret(make({0.0, 1.0}), make({10.0, 20.0}));
    EXPECT_EQ(mgr.value(f, -1.0), 10.0);
    EXPECT_EQ(mgr.value(f, 0.5), 15.0);
    EXPECT_EQ(mgr.value(f, 1.0), 20.0);
    EXPECT_EQ(mgr.value(f, 5.0), 20.0);

    const unsigned none = mgr.create_discret({}, make({1.0})), one = mgr.create_discret(make({3.0}), make({8.0}));
    const unsigned no_values = mgr.create_discret(make({0.0, 1.0}), {});
    const unsigned short_values = mgr.create_discret(make({0.0, 1.0, 2.0}), make({5.0, 7.0}));
    for (double t : times_to_try) {
        EXPECT_EQ(mgr.value(none, t), 0.0);
        EXPECT_EQ(mgr.value(one, t), 8.0);
        EXPECT_EQ(mgr.value(no_values, t), 0.0);
    }
    EXPECT_EQ(mgr.value(short_values, 0.5), 6.0);
    for (double t : {1.5, 2.0, 9.0}) EXPECT_EQ(mgr.value(short_values, t), 7.0); // the last value holds past its end
}

TEST(evolution_funcs, discret_is_continuous_and_passes_through_its_knots)
{
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(-5.0, 5.0);
    kelt::core::evolution_funcs_mgr mgr;
    std::vector<double> t(12);
    for (double& x : t) x = u(rng);
    std::sort(t.begin(), t.end());
    dense1D<double, 8> times, values;
    for (double x : t) {
        times.push_back(x);
        values.push_back(u(rng));
    }
    const unsigned f = mgr.create_discret(times, values);
    times[0] = 1e9; // the function holds its own copy
    // A step h moves the value by at most the steepest slope times h. Rounding: a few
    // ulps of values below 5, plus a few ulps of times below 5 times that slope.
    double max_slope = 0.0;
    for (unsigned i = 0; i + 1 < t.size(); ++i)
        max_slope = std::max(max_slope, std::fabs(values[i + 1] - values[i]) / (t[i + 1] - t[i]));
    const double h = 1e-9, rounding = 8 * 5.0 * std::numeric_limits<double>::epsilon() * (1.0 + max_slope);
    for (unsigned i = 0; i < t.size(); ++i) {
        EXPECT_NEAR(mgr.value(f, t[i]), values[i], rounding);
        EXPECT_NEAR(mgr.value(f, t[i] - h), values[i], max_slope * h + rounding);
        EXPECT_NEAR(mgr.value(f, t[i] + h), values[i], max_slope * h + rounding);
        if (i + 1 < t.size()) { // linear in between: the midpoint is the mean
            EXPECT_NEAR(mgr.value(f, 0.5 * (t[i] + t[i + 1])), 0.5 * (values[i] + values[i + 1]), rounding);
        }
    }
}

TEST(evolution_funcs, sum_and_product_of_known_functions_with_empty_slots)
{
    kelt::core::evolution_funcs_mgr mgr;
    const unsigned three = mgr.create_cste(3.0), wave = mgr.create_sinus(2.0, 0.5), missing = 999;
    const unsigned sum = mgr.create_sum(make<unsigned>({0, 1, three, wave, missing}), make({2.0, -1.0, 0.5, 4.0, 5.0}));
    // Missing coefficients count as 0, extra ones are ignored.
    const unsigned few = mgr.create_sum(make<unsigned>({three, wave, 1}), make({2.0}));
    const unsigned many = mgr.create_sum(make<unsigned>({three}), make({2.0, 100.0, 100.0}));
    const unsigned product = mgr.create_mult(make<unsigned>({1, wave, missing, three}));
    const unsigned nested = mgr.create_mult(make<unsigned>({sum, product}));
    const unsigned empty_sum = mgr.create_sum({}, {}), empty_product = mgr.create_mult({});
    for (double t : times_to_try) {
        const double s = std::sin(2.0 * t + 0.5);
        EXPECT_DOUBLE_EQ(mgr.value(sum, t), 2.0 - t + 1.5 + 4.0 * s + 5.0);
        EXPECT_EQ(mgr.value(few, t), 6.0);
        EXPECT_EQ(mgr.value(many, t), 6.0);
        EXPECT_DOUBLE_EQ(mgr.value(product, t), 3.0 * t * s);
        EXPECT_DOUBLE_EQ(mgr.value(nested, t), mgr.value(sum, t) * mgr.value(product, t));
        EXPECT_EQ(mgr.value(empty_sum, t), 0.0);
        EXPECT_EQ(mgr.value(empty_product, t), 0.0); // not 1
    }
}

TEST(evolution_funcs, composites_hold_their_parts)
{
    kelt::core::evolution_funcs_mgr mgr;
    const unsigned three = mgr.create_cste(3.0);
    const unsigned index = mgr.create_sum(make<unsigned>({three}), make({2.0}));
    kelt::Ptr<const kelt::core::evolution_func_base> sum = mgr.get(index);
    mgr.clear();
    EXPECT_EQ(mgr.get(three), nullptr);
    EXPECT_EQ(sum->value(0.0), 6.0); // the constant lives on in the sum
}

} // namespace
