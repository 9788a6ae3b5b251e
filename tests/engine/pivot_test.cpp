// Pivot policies, the statistics lines and the smallest cases of the solves.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kelt/core/context.h"
#include "kelt/engine/factorize.h"
#include "kelt/math/lapack.h"

using namespace kelt;
using namespace kelt::core;

namespace {

// A dense matrix of order n as one block with full columns.
symmetric_hybrid_OOC<double> dense(const std::vector<double>& a, unsigned n)
{
    profile_type p;
    p.blocks.emplace_back();
    p.blocks[0].first = 0;
    p.blocks[0].end = n;
    for (unsigned c = 0; c < n; ++c) p.blocks[0].segments.emplace_back(c, c);
    symmetric_hybrid_OOC<double> A;
    EXPECT_EQ(A.create(p, n), no_error);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = i; j < n; ++j) {
            const double v = a[i + j * n];
            EXPECT_EQ(A.proxy()->add_values(0, i, &v, &j, 1, false), no_error);
        }
    return A;
}

} // namespace

TEST(pivots, one_by_one)
{
    symmetric_hybrid_OOC<double> A = dense({4.0}, 1);
    pivot_check_positive checker;
    ASSERT_EQ(factorize(A, checker, 1 << 20, 1), no_error);
    EXPECT_EQ(A.get(0, 0), 0.25);
    EXPECT_EQ(checker.min_value, 4.0);
    EXPECT_EQ(checker.max_value, 4.0);
    double x = 2.0;
    double energy = 0.0;
    EXPECT_EQ(forward(A, &x, 1, energy), no_error);
    EXPECT_EQ(energy, 1.0);
    EXPECT_EQ(x, 0.5);
}

TEST(pivots, a_zero_pivot_stops_or_is_replaced)
{
    // The second pivot is 1 - 1 = 0 exactly.
    const std::vector<double> a = {1, 1, 0, 1, 1, 1, 0, 1, 3};
    {
        symmetric_hybrid_OOC<double> A = dense(a, 3);
        pivot_check_positive checker;
        EXPECT_EQ(factorize(A, checker, 1 << 20, 1), pivot_error);
        EXPECT_EQ(checker.bad_index, 1u);
        ASSERT_EQ(checker.events.size(), 1u);
        EXPECT_FALSE(checker.events[0].replaced);
    }
    {
        symmetric_hybrid_OOC<double> A = dense(a, 3);
        pivot_force_positive checker;
        EXPECT_EQ(factorize(A, checker, 1 << 20, 1), no_error);
        EXPECT_EQ(checker.min_value, 0.0);
        EXPECT_EQ(checker.bad_index, 0xFFFFFFFFu);
        EXPECT_EQ(A.get(1, 1), 1.0); // replaced by 1 then inverted
        ASSERT_EQ(checker.events.size(), 1u);
        EXPECT_TRUE(checker.events[0].replaced);
    }
}

TEST(pivots, infinite_pivot_stops_even_when_forced)
{
    const double inf = std::numeric_limits<double>::infinity();
    symmetric_hybrid_OOC<double> A = dense({1, 0, 0, inf}, 2);
    pivot_force_positive checker;
    EXPECT_EQ(factorize(A, checker, 1 << 20, 1), pivot_error);
    EXPECT_EQ(checker.bad_index, 1u);
    ASSERT_EQ(checker.events.size(), 1u);
    EXPECT_TRUE(checker.events[0].replaced);
}

TEST(pivots, definite_policy_passes_negative_pivots)
{
    symmetric_hybrid_OOC<double> A = dense({2, 0, 0, -3}, 2);
    pivot_force_definite checker;
    EXPECT_EQ(factorize(A, checker, 1 << 20, 1), no_error);
    EXPECT_EQ(checker.min_value, -3.0);
    EXPECT_EQ(checker.min_index, 1u);
    EXPECT_EQ(checker.max_value, 2.0);
    pivot_check_positive strict;
    symmetric_hybrid_OOC<double> B = dense({2, 0, 0, -3}, 2);
    EXPECT_EQ(factorize(B, strict, 1 << 20, 1), pivot_error);
}

TEST(pivots, negative_pivots_count_the_negative_eigenvalues)
{
    // Sylvester's law of inertia: D has as many negative entries as A has negative
    // eigenvalues.
    std::mt19937 gen(4);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (unsigned n : {5u, 12u, 30u}) {
        std::vector<double> a(n * n);
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i <= j; ++i) a[i + j * n] = a[j + i * n] = u(gen) + (i == j ? 0.3 : 0.0);
        std::vector<double> packed, w(n), z(1), work(3 * n);
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i <= j; ++i) packed.push_back(a[i + j * n]);
        long info = 0;
        lapack::dspev('N', 'U', n, packed.data(), w.data(), z.data(), 1, work.data(), info);
        ASSERT_EQ(info, 0);
        unsigned negative = 0;
        for (double l : w) negative += l < 0.0;
        symmetric_hybrid_OOC<double> A = dense(a, n);
        count_n_force_definite<false> counter;
        ASSERT_EQ(factorize(A, counter, 1 << 20, 1), no_error);
        EXPECT_EQ(counter.count, negative) << n;
    }
}

TEST(pivots, random_replacement_is_positive_and_varies)
{
    std::mt19937 gen(1);
    symmetric_hybrid_OOC<double> A = dense({1, 1, 1, 1, 1, 1, 1, 1, 1}, 3); // rank one
    pivot_force_positive_rnd checker;
    checker.generator = &gen;
    ASSERT_EQ(factorize(A, checker, 1 << 20, 1), no_error);
    ASSERT_EQ(checker.events.size(), 2u);
    EXPECT_GT(checker.events[0].replacement, 0.0);
    EXPECT_NE(checker.events[0].replacement, checker.events[1].replacement);
}

TEST(statistics, lines_and_counts)
{
    symmetric_hybrid_OOC<double> A = dense({2, 0, 1, 0, 2, 0, 1, 0, 2}, 3);
    std::vector<std::string> lines;
    print_statistics(A, [&](unsigned level, const char* t) {
        EXPECT_EQ(level, 3u);
        lines.push_back(t);
    });
    EXPECT_EQ(lines, (std::vector<std::string>{"  nbr blocks             :          1 \n",
                                                "  max extra segments     :          0 \n",
                                                "  dimension              :          3 \n",
                                                "  profile                :          6 (0.00 MB) \n",
                                                "  symbolical fill-ins    :   100.00 % \n",
                                                "  zeros                  :          2 \n",
                                                "  non zeros              :          4 \n",
                                                "  numerical fill-ins     :    66.67 % (66.67 %)\n"}));

    symmetric_hybrid_OOC<double> empty;
    lines.clear();
    print_statistics(empty, [&](unsigned, const char* t) { lines.push_back(t); });
    EXPECT_EQ(lines.size(), 4u); // the rest needs a dimension
}
