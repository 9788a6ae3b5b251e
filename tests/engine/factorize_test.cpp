// The factor of random SPD matrices on many profiles rebuilds the matrix, solves
// reach machine precision, the profile holds exactly the factor's nonzeros, and
// thread counts agree.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <string>

#include "engine_test_support.h"
#include "kelt/engine/factorize.h"
#include "kelt/core/process_mgr.h"
#include "kelt/engine/kernels.h"

using namespace kelt;
using namespace kelt::core;

namespace {

struct case_type {
    std::string name;
    test::dof_model model;
};

std::vector<case_type> cases()
{
    return {
        {"one_element", test::grid_model(1, 1, 0, 2)},
        {"strip_2d", test::grid_model(40, 2, 0, 2)},
        {"plate_2d", test::grid_model(12, 9, 0, 3)},
        {"block_3d", test::grid_model(6, 3, 3, 3)},
        {"random_small", test::random_model(60, 40, 5, 7)},
        {"random_wide", test::random_model(400, 300, 9, 11)},
        {"random_sparse", test::random_model(300, 60, 3, 5)},
        // Blocks wider than a panel, and Schur complements across several levels.
        {"cube_3d", test::grid_model(8, 8, 7, 3)},
        {"bar_3d", test::grid_model(40, 4, 4, 3)},
    };
}

// ‖L D Lᵀ − A‖ ≤ c n ε ‖A‖ for a stable factorisation of an SPD matrix.
double rebuild_error(const symmetric_hybrid_OOC<double>& A, const std::vector<double>& reference)
{
    std::vector<double> diff = test::rebuild(A);
    for (std::size_t k = 0; k < diff.size(); ++k) diff[k] -= reference[k];
    return test::max_abs(diff) / test::max_abs(reference);
}

} // namespace

class factorize_cases : public ::testing::TestWithParam<unsigned> {};

TEST_P(factorize_cases, rebuilds_the_matrix_and_counts_exactly_the_factor)
{
    const case_type c = cases()[GetParam()];
    SCOPED_TRACE(c.name);
    test::numbered num = test::number(c.model);
    const unsigned n = num.free_IDs.size();
    ASSERT_GT(n, 0u);
    symmetric_hybrid_OOC<double> A;
    ASSERT_EQ(A.create(num.profile, n), no_error);
    std::vector<double> reference;
    test::assemble_random_spd(c.model, num.free_IDs, A, reference, 3);

    EXPECT_EQ(A.proxy()->nbr_values(), test::brute_force_factor_count(reference, n));

    pivot_check_positive checker;
    ASSERT_EQ(factorize(A, checker, 1u << 20, 1), no_error);
    if (n <= 600) {
        EXPECT_LT(rebuild_error(A, reference), 1e-13 * n);
    }
    EXPECT_GT(checker.min_value, 0.0);
    EXPECT_EQ(checker.bad_index, 0xFFFFFFFFu);

    // A x = b with a known x; the energy is bᵀ A⁻¹ b = bᵀ x.
    std::vector<double> x(n), b(n, 0.0), y(n);
    for (unsigned i = 0; i < n; ++i) x[i] = std::sin(1.0 + i);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) b[i] += reference[i + std::size_t(j) * n] * x[j];
    double energy = 0.0;
    ASSERT_EQ(solve_single(A, b.data(), y.data(), energy, {}, 1), no_error);
    double err = 0.0, xnorm = 0.0;
    for (unsigned i = 0; i < n; ++i) err = std::max(err, std::fabs(y[i] - x[i])), xnorm = std::max(xnorm, std::fabs(x[i]));
    EXPECT_LT(err / xnorm, 1e-9);
    EXPECT_NEAR(energy, std::inner_product(b.begin(), b.end(), x.begin(), 0.0), 1e-9 * std::fabs(energy));
}

TEST_P(factorize_cases, threads_agree)
{
    const case_type c = cases()[GetParam()];
    SCOPED_TRACE(c.name);
    test::numbered num = test::number(c.model);
    const unsigned n = num.free_IDs.size();
    std::vector<std::vector<double>> factors;
    for (unsigned threads : {1u, 2u, 8u}) {
        symmetric_hybrid_OOC<double> A;
        ASSERT_EQ(A.create(num.profile, n), no_error);
        std::vector<double> reference;
        test::assemble_random_spd(c.model, num.free_IDs, A, reference, 9);
        pivot_check_positive checker;
        ASSERT_EQ(factorize(A, checker, 1u << 20, threads), no_error);
        std::vector<double> f;
        for (unsigned i = 0; i < n; ++i)
            for (unsigned j = i; j < n; ++j) f.push_back(A.get(i, j));
        // The solves go by levels of the block tree on several threads.
        std::vector<double> x(n);
        for (unsigned i = 0; i < n; ++i) x[i] = std::cos(0.5 + i);
        double energy = 0.0;
        ASSERT_EQ(forward(A, x.data(), threads, energy), no_error);
        f.push_back(energy);
        ASSERT_EQ(backward(A, x.data(), threads), no_error);
        f.insert(f.end(), x.begin(), x.end());
        factors.push_back(f);
    }
    // Different threads may add the updates of independent blocks in another order:
    // equal to rounding.
    for (unsigned t = 1; t < factors.size(); ++t)
        for (std::size_t k = 0; k < factors[0].size(); ++k)
            ASSERT_NEAR(factors[t][k], factors[0][k], 1e-11 * (1.0 + std::fabs(factors[0][k]))) << k;
}

INSTANTIATE_TEST_SUITE_P(engine, factorize_cases, ::testing::Range(0u, unsigned(cases().size())));

// A host's stop is asked between blocks: an observer that never stops changes no
// bit of the factor, and one that stops leaves it unfinished at its first yes.
TEST(factorize_observer, never_stopping_changes_nothing_and_a_stop_ends_at_once)
{
    struct stopper final : iteration_observer {
        unsigned calls = 0, stop_at = ~0u;
        void log(unsigned, const char*) override {}
        bool stop_requested() override { return ++calls >= stop_at; }
        void iteration(unsigned, double) override {}
    };
    const test::dof_model model = test::grid_model(40, 4, 4, 3);
    const test::numbered num = test::number(model);
    const unsigned n = num.free_IDs.size();
    for (unsigned threads : {1u, 2u}) {
        SCOPED_TRACE(threads);
        auto factor = [&](iteration_observer* o, std::vector<double>& f) {
            symmetric_hybrid_OOC<double> A;
            ASSERT_EQ(A.create(num.profile, n), no_error);
            std::vector<double> reference;
            test::assemble_random_spd(model, num.free_IDs, A, reference, 9);
            pivot_check_positive checker;
            ASSERT_EQ(factorize(A, checker, 1u << 20, threads, o), no_error);
            for (unsigned i = 0; i < n; ++i)
                for (unsigned j = i; j < n; ++j) f.push_back(A.get(i, j));
        };
        std::vector<double> plain, watched, stopped;
        stopper never, second;
        second.stop_at = 2;
        factor(nullptr, plain);
        factor(&never, watched);
        factor(&second, stopped);
        // On two threads independent blocks may add their updates in either order.
        if (threads == 1) EXPECT_EQ(watched, plain);
        ASSERT_EQ(watched.size(), plain.size());
        for (std::size_t k = 0; k < plain.size(); ++k)
            ASSERT_NEAR(watched[k], plain[k], 1e-11 * (1.0 + std::fabs(plain[k]))) << k;
        EXPECT_GT(never.calls, 2u);
        EXPECT_EQ(second.calls, 2u);
        EXPECT_NE(stopped, plain);
    }
}

// The cache size only cuts work into tiles: the factor and the block solves come
// out bit for bit the same at the least cache, this machine's and a large one.
TEST(factorize_cache, the_cache_size_changes_no_bit_of_the_factor_or_the_solves)
{
    const test::dof_model model = test::grid_model(12, 12, 0, 3);
    const test::numbered num = test::number(model);
    const unsigned n = num.free_IDs.size(), cols = 5;
    const unsigned machine = Ptr<process_mgr>(new process_mgr)->LLC_size;
    for (unsigned threads : {1u, 2u}) {
        std::vector<std::uint64_t> first;
        for (unsigned LLC : {102400u, machine, 64u << 20}) {
            SCOPED_TRACE("threads " + std::to_string(threads) + ", cache " + std::to_string(LLC));
            symmetric_hybrid_OOC<double> A;
            ASSERT_EQ(A.create(num.profile, n), no_error);
            std::vector<double> reference;
            test::assemble_random_spd(model, num.free_IDs, A, reference, 4);
            pivot_check_positive checker;
            ASSERT_EQ(factorize(A, checker, LLC, threads), no_error);
            std::vector<double> X(std::size_t(n) * cols), energies(cols);
            for (std::size_t k = 0; k < X.size(); ++k) X[k] = std::sin(0.1 + 0.9 * double(k));
            ASSERT_EQ(forward_multi(A, X.data(), n, cols, energies.data(), LLC, threads), no_error);
            ASSERT_EQ(backward_multi(A, X.data(), n, cols, LLC, threads), no_error);

            // Every stored value, diagonal first in each block, then the solutions.
            std::vector<std::uint64_t> bits;
            const block_proxy_data& data = *A.proxy();
            for (unsigned b = 0; b < data.nbr_blocks(); ++b) {
                const symmetric_skyline_block& v = *data.find_block(b);
                for (unsigned k = 0; k < v.nbr_values(); ++k) bits.push_back(std::bit_cast<std::uint64_t>(v.values[k]));
            }
            for (double x : X) bits.push_back(std::bit_cast<std::uint64_t>(x));
            for (double e : energies) bits.push_back(std::bit_cast<std::uint64_t>(e));
            if (first.empty()) {
                first = bits;
                continue;
            }
            ASSERT_EQ(bits.size(), first.size());
            for (std::size_t k = 0; k < bits.size(); ++k) ASSERT_EQ(bits[k], first[k]) << k;
        }
    }
}

TEST(kernels, every_instruction_set_agrees_with_a_plain_sum)
{
    unsigned count = 0;
    const kernel_table* const* tables = all_kernel_tables(count);
    ASSERT_GE(count, 1u);
    std::vector<double> a(300), b(300);
    for (unsigned k = 0; k < a.size(); ++k) a[k] = std::cos(0.3 * k), b[k] = std::sin(0.7 * k + 1.0);
    for (unsigned t = 0; t < count; ++t) {
        SCOPED_TRACE(tables[t]->name);
        for (unsigned n : {0u, 1u, 3u, 7u, 8u, 9u, 16u, 17u, 100u, 300u}) {
            double plain = 0.0;
            for (unsigned k = 0; k < n; ++k) plain += a[300 - 1 - k] * b[300 - 1 - k];
            EXPECT_NEAR(tables[t]->dot(a.data() + 300, b.data() + 300, n), plain, 1e-13 * (n + 1));
        }
    }
}

// Block solves against the single-column solve, column by column: equal to rounding
// (the sums run in another order), and bit for bit on 1 and 2 threads. The column
// counts cut into groups of one column, of fewer columns than a vector, of widths
// that are not a multiple of it, and into several groups.
TEST(block_solves, equal_the_single_column_solve_and_agree_on_any_thread_count)
{
    const struct {
        const char* name;
        test::dof_model model;
    } models[] = {{"plate_2d", test::grid_model(12, 9, 0, 3)}, {"cube_3d", test::grid_model(8, 8, 7, 3)}};
    for (const auto& m : models) {
        const test::numbered num = test::number(m.model);
        const unsigned n = num.free_IDs.size();
        symmetric_hybrid_OOC<double> A;
        ASSERT_EQ(A.create(num.profile, n), no_error);
        std::vector<double> reference;
        test::assemble_random_spd(m.model, num.free_IDs, A, reference, 6);
        pivot_check_positive checker;
        ASSERT_EQ(factorize(A, checker, 1u << 20, 2), no_error);
        for (unsigned cols : {1u, 3u, 8u, 13u, 33u, 70u}) {
            SCOPED_TRACE(std::string(m.name) + ", columns " + std::to_string(cols));
            const unsigned ld = n + 5; // columns apart in memory, the gap untouched
            std::vector<double> B(std::size_t(ld) * cols, -7.0);
            for (unsigned j = 0; j < cols; ++j)
                for (unsigned i = 0; i < n; ++i) B[std::size_t(j) * ld + i] = std::sin(0.37 * i + 1.3 * j + 0.1);
            std::vector<std::vector<double>> X(2, B), energies(2, std::vector<double>(cols));
            for (unsigned threads : {1u, 2u}) {
                double* x = X[threads - 1].data();
                ASSERT_EQ(forward_multi(A, x, ld, cols, energies[threads - 1].data(), 1u << 20, threads), no_error);
                ASSERT_EQ(backward_multi(A, x, ld, cols, 1u << 20, threads), no_error);
            }
            for (std::size_t k = 0; k < B.size(); ++k)
                ASSERT_EQ(std::bit_cast<std::uint64_t>(X[0][k]), std::bit_cast<std::uint64_t>(X[1][k])) << k;
            for (unsigned j = 0; j < cols; ++j) {
                ASSERT_EQ(energies[0][j], energies[1][j]);
                std::vector<double> single(B.begin() + std::size_t(j) * ld, B.begin() + std::size_t(j) * ld + n);
                double energy = 0.0;
                ASSERT_EQ(solve_single(A, single.data(), single.data(), energy, {}, 1), no_error);
                const double scale = test::max_abs(single);
                for (unsigned i = 0; i < n; ++i)
                    ASSERT_NEAR(X[0][std::size_t(j) * ld + i], single[i], 1e-12 * scale) << j << ' ' << i;
                for (unsigned i = n; i < ld && j + 1 < cols; ++i) ASSERT_EQ(X[0][std::size_t(j) * ld + i], -7.0);
                EXPECT_NEAR(energies[0][j], energy, 1e-12 * std::fabs(energy));
            }
        }
    }
}
