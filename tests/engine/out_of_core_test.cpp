// The memory budget: how it shares memory among arrays, and a matrix partly on
// disk giving the results of the same matrix in core.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <cmath>
#include <cstdlib>
#include <complex>
#include <string>

#include "engine_test_support.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/core/dense2D_OOC.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/multiply.h"

using namespace kelt;
using namespace kelt::core;

namespace {

struct fake_array : swap_array {
    std::uint64_t bytes = 0;
    error_type result = no_error; // what each allocation returns
    error_type allocate(std::uint64_t b, const void*) override
    {
        bytes = b;
        return result;
    }
};

// A private swap folder, checked empty and removed at the end.
struct swap_folder {
    std::string path, name;
    swap_folder()
    {
        char made[] = "/tmp/kelt_swap_test_XXXXXX";
        path = std::string(mkdtemp(made)) + "/";
        name = path.substr(5);
    }
    ~swap_folder() { ::rmdir(path.c_str()); }
    unsigned entries() const
    {
        unsigned n = 0;
        DIR* d = ::opendir(path.c_str());
        while (dirent* e = ::readdir(d)) n += e->d_name[0] != '.';
        ::closedir(d);
        return n;
    }
};

Ptr<OOC_mgr> manager(unsigned budget, const swap_folder& folder)
{
    Ptr<OOC_mgr> mgr = new OOC_mgr;
    EXPECT_EQ(mgr->set_limit(budget, "/tmp/", folder.name.c_str()), no_error);
    return mgr;
}

} // namespace

TEST(OOC_mgr, shares_the_budget_small_arrays_first)
{
    swap_folder folder;
    {
        // Ten units and a hundred units with a budget of sixty: the small one whole,
        // the rest to the large one.
        Ptr<OOC_mgr> mgr = manager(60, folder);
        fake_array a, b;
        ASSERT_EQ(mgr->update_array(&a, swap_skyline, 10, 1, nullptr), no_error);
        ASSERT_EQ(mgr->update_array(&b, swap_skyline, 100, 1, nullptr), no_error);
        EXPECT_EQ(a.bytes, 10u);
        EXPECT_EQ(b.bytes, 50u);
        // Leaving gives its share back to the others.
        ASSERT_EQ(mgr->update_array(&a, swap_skyline, 0, 0, nullptr), no_error);
        EXPECT_EQ(b.bytes, 60u);
        EXPECT_EQ(mgr->max_incore_size, 60u);
    }
    {
        // An array offered more than half its size goes wholly in core when the
        // others keep their minimum.
        Ptr<OOC_mgr> mgr = manager(100, folder);
        fake_array x, y, z;
        ASSERT_EQ(mgr->update_array(&x, swap_skyline, 10, 1, nullptr), no_error);
        ASSERT_EQ(mgr->update_array(&y, swap_skyline, 55, 1, nullptr), no_error);
        ASSERT_EQ(mgr->update_array(&z, swap_skyline, 200, 1, nullptr), no_error);
        EXPECT_EQ(x.bytes, 10u);
        EXPECT_EQ(y.bytes, 55u);
        EXPECT_EQ(z.bytes, 35u);
    }
    {
        // A dense array moves whole numbers of its least window.
        Ptr<OOC_mgr> mgr = manager(5, folder);
        fake_array d;
        ASSERT_EQ(mgr->update_array(&d, swap_dense_real, 10, 2, nullptr), no_error);
        EXPECT_EQ(d.bytes, 4u);
    }
    {
        // More minimums than budget: the manager forgets every array.
        Ptr<OOC_mgr> mgr = manager(10, folder);
        fake_array a, b;
        ASSERT_EQ(mgr->update_array(&a, swap_skyline, 8, 6, nullptr), no_error);
        EXPECT_EQ(mgr->update_array(&b, swap_skyline, 8, 6, nullptr), insufficient_memory_error);
        EXPECT_EQ(mgr->nbr_arrays(), 0u);
        EXPECT_EQ(mgr->update_array(&a, 3, 8, 6, nullptr), internal_error);
    }
    EXPECT_EQ(folder.entries(), 0u);
}

// Budgets and arrays of several GiB share out in 64 bits: a 6 GiB budget over a
// 2 GiB and a 5 GiB array gives the small one all of it and the large one the
// 4 GiB left, a share that 32 bits would have wrapped to 0.
TEST(OOC_mgr, shares_budgets_past_four_gigabytes)
{
    constexpr std::uint64_t GiB = std::uint64_t(1) << 30;
    OOC_mgr mgr;
    mgr.max_incore_size = 6 * GiB;
    fake_array small, large;
    ASSERT_EQ(mgr.update_array(&small, swap_skyline, 2 * GiB, 1 << 20, nullptr), no_error);
    ASSERT_EQ(mgr.update_array(&large, swap_skyline, 5 * GiB, GiB, nullptr), no_error);
    EXPECT_EQ(small.bytes, 2 * GiB);
    EXPECT_EQ(large.bytes, 4 * GiB);
    EXPECT_EQ(mgr.find_allocation(&large), 4 * GiB);
    // Minimums past the budget are refused whole, not wrapped into range.
    fake_array huge;
    EXPECT_EQ(mgr.update_array(&huge, swap_skyline, 8 * GiB, 5 * GiB, nullptr), insufficient_memory_error);
    EXPECT_EQ(mgr.nbr_arrays(), 0u);
}

// Every array gets its new share even after one fails, and the first failure is
// the one reported.
TEST(OOC_mgr, the_first_failure_of_a_distribution_is_reported)
{
    OOC_mgr mgr;
    mgr.max_incore_size = 100;
    fake_array a, b, c;
    ASSERT_EQ(mgr.update_array(&a, swap_dense_real, 40, 10, nullptr), no_error);
    ASSERT_EQ(mgr.update_array(&b, swap_skyline, 40, 10, nullptr), no_error);
    ASSERT_EQ(mgr.update_array(&c, swap_skyline, 40, 10, nullptr), no_error);
    a.result = memory_error;
    b.result = no_error;
    c.result = internal_error;
    a.bytes = b.bytes = c.bytes = 0;
    EXPECT_EQ(mgr.apply_allocations(nullptr), memory_error);
    // Each of the first two is offered more than half its size and goes whole.
    EXPECT_EQ(a.bytes, 40u);
    EXPECT_EQ(b.bytes, 40u);
    EXPECT_EQ(c.bytes, 20u);
}

TEST(OOC_mgr, refuses_a_folder_it_cannot_use)
{
    OOC_mgr mgr;
    EXPECT_EQ(mgr.set_limit(1000, "/nonexistent_kelt_root/", "swap/"), temp_file_error);
    EXPECT_EQ(mgr.max_incore_size, OOC_mgr::no_limit);
    EXPECT_EQ(mgr.set_limit(1000, "/proc/", "self/"), temp_file_error);
}

namespace {

struct ooc_case {
    unsigned windows; // about this many windows of blocks; 0: the least budget
    unsigned threads;
};

struct matrix_pair {
    test::numbered num;
    unsigned n = 0;
    symmetric_hybrid_OOC<double> in_core, on_disk;
    std::vector<double> reference;
};

// About 1/parts of a matrix on `profile`, never below the least it works with;
// parts 0: that least.
unsigned budget_for(const core::profile_type& profile, unsigned rows, unsigned parts)
{
    symmetric_hybrid_OOC<double> probe;
    EXPECT_EQ(probe.create(profile, rows), no_error);
    const block_proxy_data& d = *probe.proxy();
    std::uint64_t full = (d.nbr_values() + d.nbr_segments()) * 8, largest = 0;
    for (unsigned b = 0; b < d.nbr_blocks(); ++b)
        largest = std::max<std::uint64_t>(largest, (d.shape(b).nbr_values() + d.shape(b).nbr_segments) * 8);
    const std::uint64_t least = std::uint64_t(double(largest) * 1.25) + 1;
    return unsigned(parts ? std::max(full / parts, least) : least);
}

void build(matrix_pair& m, OOC_mgr* mgr, unsigned windows)
{
    const test::dof_model model = test::grid_model(14, 7, 6, 3);
    m.num = test::number(model);
    m.n = m.num.free_IDs.size();
    ASSERT_EQ(m.in_core.create(m.num.profile, m.n), no_error);
    test::assemble_random_spd(model, m.num.free_IDs, m.in_core, m.reference, 5);
    mgr->max_incore_size = budget_for(m.num.profile, m.n, windows);
    ASSERT_EQ(m.on_disk.create(m.num.profile, m.n, 0.0, mgr), no_error);
    std::vector<double> again;
    test::assemble_random_spd(model, m.num.free_IDs, m.on_disk, again, 5);
}

} // namespace

class out_of_core : public ::testing::TestWithParam<ooc_case> {};

TEST_P(out_of_core, gives_the_results_of_the_matrix_in_core)
{
    const ooc_case c = GetParam();
    swap_folder folder;
    {
        Ptr<OOC_mgr> mgr = manager(0xFFFFFFFE, folder);
        matrix_pair m;
        build(m, mgr.get(), c.windows);
        block_proxy_data& disk = *m.on_disk.proxy();
        ASSERT_LT(disk.blocks_held(), disk.nbr_blocks());
        EXPECT_GE(mgr->files_created.load(), 1);
        // The swap file has no name in the folder from the start.
        EXPECT_EQ(folder.entries(), 0u);

        // Products read the matrix in the same order: bit for bit.
        std::vector<double> x(m.n), y0(m.n, 0.0), y1(m.n, 0.0);
        for (unsigned i = 0; i < m.n; ++i) x[i] = std::sin(0.3 + i);
        multiply(m.in_core, 1.5, x.data(), y0.data(), c.threads);
        multiply(m.on_disk, 1.5, x.data(), y1.data(), c.threads);
        EXPECT_EQ(y0, y1);

        pivot_check_positive k0, k1;
        ASSERT_EQ(factorize(m.in_core, k0, 1u << 20, c.threads), no_error);
        ASSERT_EQ(factorize(m.on_disk, k1, 1u << 20, c.threads), no_error);
        EXPECT_EQ(k0.min_value, k1.min_value);
        EXPECT_EQ(k0.max_value, k1.max_value);
        double worst = 0.0;
        for (unsigned i = 0; i < m.n; ++i)
            for (unsigned j = i; j < std::min(m.n, i + 400); ++j) {
                const double a = m.in_core.get(i, j), b = m.on_disk.get(i, j);
                if (c.threads == 1) {
                    ASSERT_EQ(a, b) << i << ' ' << j; // same order of every sum
                }
                worst = std::max(worst, std::fabs(a - b) / std::max(1.0, std::fabs(a)));
            }
        EXPECT_LT(worst, 1e-11);

        // Single and block solves; 37 columns make groups of unequal widths.
        const unsigned cols = 37;
        std::vector<double> X0(std::size_t(m.n) * cols), e0(cols), e1(cols);
        for (std::size_t k = 0; k < X0.size(); ++k) X0[k] = std::cos(0.7 * double(k));
        std::vector<double> X1 = X0, s0(X0.begin(), X0.begin() + m.n), s1 = s0;
        ASSERT_EQ(forward_multi(m.in_core, X0.data(), m.n, cols, e0.data(), 1u << 20, c.threads), no_error);
        ASSERT_EQ(forward_multi(m.on_disk, X1.data(), m.n, cols, e1.data(), 1u << 20, c.threads), no_error);
        ASSERT_EQ(backward_multi(m.in_core, X0.data(), m.n, cols, 1u << 20, c.threads), no_error);
        ASSERT_EQ(backward_multi(m.on_disk, X1.data(), m.n, cols, 1u << 20, c.threads), no_error);
        double en0 = 0.0, en1 = 0.0;
        ASSERT_EQ(solve_single(m.in_core, s0.data(), s0.data(), en0, {}, c.threads), no_error);
        ASSERT_EQ(solve_single(m.on_disk, s1.data(), s1.data(), en1, {}, c.threads), no_error);
        for (std::size_t k = 0; k < X0.size(); ++k) EXPECT_NEAR(X0[k], X1[k], 1e-10 * (1.0 + std::fabs(X0[k])));
        for (unsigned i = 0; i < m.n; ++i) EXPECT_NEAR(s0[i], X0[i], 1e-12 * (1.0 + std::fabs(s0[i])));
        for (unsigned j = 0; j < cols; ++j) EXPECT_NEAR(e0[j], e1[j], 1e-11 * std::fabs(e0[j]));
        EXPECT_NEAR(en0, e0[0], 1e-11 * std::fabs(en0));
        if (c.threads == 1) {
            EXPECT_EQ(X0, X1);
        }
        EXPECT_GT(disk.bytes_read(), 0u);
        EXPECT_GT(disk.bytes_written(), 0u);
    }
    EXPECT_EQ(folder.entries(), 0u);
}

INSTANTIATE_TEST_SUITE_P(budgets, out_of_core,
                         ::testing::Values(ooc_case{2, 1}, ooc_case{5, 1}, ooc_case{0, 1}, ooc_case{2, 2},
                                           ooc_case{0, 2}),
                         [](const auto& info) {
                             return "windows_" + std::to_string(info.param.windows) + "_threads_" +
                                    std::to_string(info.param.threads);
                         });

TEST(out_of_core_matrix, starts_at_its_default_value_without_any_transfer)
{
    swap_folder folder;
    Ptr<OOC_mgr> mgr = manager(0xFFFFFFFE, folder);
    const test::numbered num = test::number(test::grid_model(10, 6, 6, 3));
    const unsigned n = num.free_IDs.size();
    symmetric_hybrid_OOC<double> A;
    mgr->max_incore_size = budget_for(num.profile, n, 4);
    ASSERT_EQ(A.create(num.profile, n, 1.5, mgr.get()), no_error);
    block_proxy_data& d = *A.proxy();
    ASSERT_LT(d.blocks_held(), d.nbr_blocks());
    block_cursor reading(A, true);
    std::size_t seen = 0;
    ASSERT_EQ(for_windows(d, true, [&](unsigned b0, unsigned b1) {
                  for (unsigned b = b0; b < b1; ++b) {
                      const symmetric_skyline_block& v = *d.find_block(b);
                      for (unsigned k = 0; k < v.nbr_values(); ++k) seen += v.values[k] == 1.5;
                  }
              }),
              no_error);
    EXPECT_EQ(seen, d.nbr_values());
    EXPECT_EQ(d.bytes_read(), 0u);
    EXPECT_EQ(d.bytes_written(), 0u);

    // A change made in read mode is never written back.
    d.find_block(d.first_block())->values[0] = -7.0;
    const unsigned b = d.first_block();
    ASSERT_FALSE(d.block_for_access(0).empty());
    ASSERT_FALSE(d.block_for_access(d.nbr_blocks() - 1).empty());
    EXPECT_EQ(d.block_for_access(b).values[0], 1.5);
    EXPECT_EQ(d.bytes_written(), 0u);
}

TEST(out_of_core_matrix, refuses_a_block_larger_than_the_budget)
{
    swap_folder folder;
    Ptr<OOC_mgr> mgr = manager(1000, folder);
    const test::numbered num = test::number(test::grid_model(8, 6, 6, 3));
    symmetric_hybrid_OOC<double> A;
    EXPECT_EQ(A.create(num.profile, num.free_IDs.size(), 0.0, mgr.get()), insufficient_memory_error);
    EXPECT_EQ(mgr->nbr_arrays(), 0u);
    EXPECT_EQ(folder.entries(), 0u);
}

TEST(out_of_core_dense, columns_move_through_a_window_and_come_back_as_written)
{
    swap_folder folder;
    {
        const unsigned rows = 1000, cols = 23;
        Ptr<OOC_mgr> mgr = manager(5 * rows * 8, folder);
        dense2D_OOC<double> m;
        ASSERT_TRUE(m.resize(rows, cols, 0.25, mgr.get()));
        dense2D_proxy_data<double>& p = *m.proxy;
        EXPECT_EQ(p.window_cols, 5u);
        EXPECT_NE(p.file, -1);
        // A fresh array reads as its default value, with nothing written.
        for (unsigned j = 0; j < cols; ++j) {
            const dense1D<double, 8> c = m.col_read(j);
            ASSERT_EQ(c.size(), rows);
            EXPECT_EQ(c[0], 0.25);
            EXPECT_EQ(c[rows - 1], 0.25);
        }
        EXPECT_EQ(p.written.count(), 0u);

        for (unsigned j = 0; j < cols; ++j) {
            dense1D<double, 8> c = m.col(j);
            for (unsigned i = 0; i < rows; ++i) c[i] = j + 1e-4 * i;
        }
        // Walking down: after the first load the window ends at the column asked for.
        for (unsigned j = cols; j-- > 0;) {
            const dense1D<double, 8> c = m.col_read(j);
            EXPECT_EQ(c[7], j + 7e-4);
            if (j == cols - 1 || !p.holds(j + 1)) {
                EXPECT_EQ(p.first_col + p.window_cols - 1, j);
            }
        }
        // A change through a read view is not written back.
        m.col_read(0)[3] = -1.0;
        (void)m.col_read(cols - 1);
        EXPECT_EQ(m.col_read(0)[3], 0 + 1e-4 * 3);

        // No room for the whole array: it keeps its former bounds and its values.
        EXPECT_FALSE(m.force_incore());
        EXPECT_TRUE(p.registered);
        mgr->max_incore_size = rows * cols * 8;
        ASSERT_TRUE(m.force_incore());
        EXPECT_TRUE(m.all_in_core());
        for (unsigned j = 0; j < cols; ++j) EXPECT_EQ(m.col_read(j)[rows - 1], j + 1e-4 * (rows - 1));
        EXPECT_EQ(folder.entries(), 0u);
    }
    {
        // Steps of two columns: five columns' bytes give a window of four.
        Ptr<OOC_mgr> mgr = manager(5 * 100 * 16, folder);
        dense2D_OOC<std::complex<double>> z;
        ASSERT_TRUE(z.resize(100, 9, {1.0, 2.0}, mgr.get(), 2));
        EXPECT_EQ(z.proxy->window_cols, 4u);
        z.col(8)[99] = {3.0, 4.0};
        EXPECT_EQ(z.col_read(0)[0], std::complex<double>(1.0, 2.0));
        EXPECT_EQ(z.col_read(8)[99], std::complex<double>(3.0, 4.0));
        // A second array shares the budget: the first shrinks to its least window.
        dense2D_OOC<std::complex<double>> w;
        ASSERT_TRUE(w.resize(100, 3, {}, mgr.get(), 1));
        EXPECT_EQ(z.proxy->window_cols, 2u);
        EXPECT_EQ(z.col_read(8)[99], std::complex<double>(3.0, 4.0));
    }
    EXPECT_EQ(folder.entries(), 0u);
}

TEST(out_of_core_matrix, a_killed_process_leaves_no_swap_file)
{
    swap_folder folder;
    const test::numbered num = test::number(test::grid_model(10, 6, 6, 3));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Ptr<OOC_mgr> mgr = manager(0xFFFFFFFE, folder);
        mgr->max_incore_size = budget_for(num.profile, num.free_IDs.size(), 4);
        symmetric_hybrid_OOC<double> A;
        if (A.create(num.profile, num.free_IDs.size(), 1.0, mgr.get()) != no_error || mgr->files_created == 0)
            ::_exit(1);
        (void)A.get(0, 0);
        ::kill(::getpid(), SIGKILL); // no destructor, no clean-up of any kind
        ::_exit(2);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child could not build its matrix";
    EXPECT_EQ(folder.entries(), 0u);
}
