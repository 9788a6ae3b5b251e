// Handles sharing one context, the settings of the context, and the budget.
#include <gtest/gtest.h>

#include <omp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "kelt/core/context.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/fem/context.h"

using namespace kelt;

// The self-assignments below are the point of a test.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wself-assign-overloaded"
#pragma clang diagnostic ignored "-Wself-move"
#endif

namespace {
unsigned count_of(const fem::context& c) { return fem::core_of(c)->use_count(); }
core::context_type& core_ctx(const fem::context& c) { return *static_cast<core::context_type*>(fem::core_of(c)); }
} // namespace

TEST(handles, counts_under_copy_move_and_self_assignment)
{
    fem::context a;
    EXPECT_EQ(count_of(a), 1u);
    {
        fem::context b(a);
        EXPECT_EQ(count_of(a), 2u);
        fem::context moved(std::move(b)); // moving copies: the source stays valid
        EXPECT_EQ(count_of(a), 3u);
        EXPECT_TRUE(b.attached());
        b = b; // self-assignment keeps the object and the count
        EXPECT_EQ(count_of(a), 3u);
        fem::context& alias = a;
        a = alias;
        EXPECT_EQ(count_of(a), 3u);
        moved = std::move(moved);
        EXPECT_EQ(count_of(a), 3u);
    }
    EXPECT_EQ(count_of(a), 1u);

    fem::context other;
    core::context_type* first = &core_ctx(a);
    {
        Ptr<core::context_type> watch(first); // outlives the handle's reference
        a = other;
        EXPECT_EQ(first->use_count(), 1u);
        EXPECT_EQ(count_of(other), 2u);
    }
}

TEST(handles, copies_see_each_other_at_once)
{
    fem::context a;
    fem::context b = a;
    b.set_raw_penalty_factor(3.5);
    a.set_min_penalty_factor(1e9);
    b.set_shell_drilling_factor(2e-3);
    EXPECT_EQ(a.get_raw_penalty_factor(), 3.5);
    EXPECT_EQ(b.get_min_penalty_factor(), 1e9);
    EXPECT_EQ(a.get_shell_drilling_factor(), 2e-3);
}

TEST(context_settings, threads_and_cache)
{
    fem::context a;
    a.set_max_threads(0);
    EXPECT_EQ(a.get_max_threads(), 1u);
    a.set_max_threads(1000);
    EXPECT_LE(a.get_max_threads(), unsigned(omp_get_max_threads()));
    EXPECT_GE(a.get_max_threads(), 1u);
    a.set_LLC_size(0);
    EXPECT_EQ(a.get_LLC_size(), 102400u);
    a.set_LLC_size(1u << 25);
    EXPECT_EQ(a.get_LLC_size(), 1u << 25);
    a.set_max_total_size(7);
    EXPECT_EQ(core_ctx(a).process_mgr->max_total_size, 7u);
}

TEST(context_budget, limits_that_leave_everything_in_core)
{
    fem::context a;
    EXPECT_EQ(a.set_max_incore_size(0, nullptr, nullptr), no_error);
    EXPECT_EQ(core::the_OOC_mgr(core_ctx(a)), nullptr);
    EXPECT_EQ(a.set_max_incore_size(0xFFFFFFFFu, nullptr, nullptr), no_error);
    EXPECT_EQ(core::the_OOC_mgr(core_ctx(a)), nullptr);
    // 5000 MB exceed a 32-bit byte count: a manager with no limit.
    EXPECT_EQ(a.set_max_incore_size(5000, nullptr, nullptr), no_error);
    ASSERT_NE(core::the_OOC_mgr(core_ctx(a)), nullptr);
    EXPECT_EQ(core::the_OOC_mgr(core_ctx(a))->max_incore_size, core::OOC_mgr::no_limit);
}

TEST(context_budget, swap_folder_defaults_and_failures)
{
    fem::context a;
    EXPECT_EQ(a.memory_management(100, nullptr, nullptr), no_error);
    core::OOC_mgr* mgr = core::the_OOC_mgr(core_ctx(a));
    ASSERT_NE(mgr, nullptr);
    EXPECT_STREQ(mgr->temp_dir.path, "/tmp/");
    EXPECT_EQ(mgr->max_incore_size, 100u * 1048576u);
    EXPECT_GE(mgr->temp_dir.sector_size, 512u);

    char dir[] = "/tmp/kelt_ctx_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string root = std::string(dir) + "/";
    ::mkdir((root + "swap").c_str(), 0700);
    EXPECT_EQ(a.set_max_incore_size(64, root.c_str(), "swap/"), no_error);
    EXPECT_EQ(std::string(core::the_OOC_mgr(core_ctx(a))->temp_dir.path), root + "swap/");

    // A folder that does not exist: the old manager is gone, the new one has no limit.
    EXPECT_EQ(a.set_max_incore_size(64, root.c_str(), "missing/"), temp_file_error);
    ASSERT_NE(core::the_OOC_mgr(core_ctx(a)), nullptr);
    EXPECT_EQ(core::the_OOC_mgr(core_ctx(a))->max_incore_size, core::OOC_mgr::no_limit);
    EXPECT_EQ(a.set_max_incore_size(64, "/no/such/root/", nullptr), temp_file_error);
    const std::string too_long(300, 'a');
    EXPECT_EQ(a.set_max_incore_size(64, root.c_str(), too_long.c_str()), temp_file_error);
    ::rmdir((root + "swap").c_str());
    ::rmdir(dir);
}
