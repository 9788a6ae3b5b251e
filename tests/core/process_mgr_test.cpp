// The start-up rule of the processor manager on processors described here.
#include <gtest/gtest.h>

#include "kelt/core/process_mgr.h"

using namespace kelt::core;

TEST(process_mgr_startup, last_level_cache_and_threads)
{
    processor_info cpu;
    cpu.cache_sizes = {0, 48 << 10, 2 << 20, 32 << 20};
    process_mgr p;
    p.configure(cpu, 8, 8);
    EXPECT_EQ(p.LLC_size, 32u << 20);
    EXPECT_EQ(p.nbr_cores, 8u);
    EXPECT_EQ(p.max_threads, 8u);

    cpu.hyper_threading = true; // two logical processors a core
    p.configure(cpu, 8, 16);
    EXPECT_EQ(p.nbr_cores, 4u);
    EXPECT_EQ(p.max_threads, 4u);
    p.configure(cpu, 8, 2); // OpenMP offers fewer threads than cores
    EXPECT_EQ(p.max_threads, 2u);
}

TEST(process_mgr_startup, no_reported_cache_gives_a_megabyte_a_processor)
{
    processor_info cpu;
    process_mgr p;
    p.configure(cpu, 6, 6);
    EXPECT_EQ(p.LLC_size, 6u << 20);
    cpu.hyper_threading = true;
    p.configure(cpu, 1, 1); // one logical processor with the flag: still one core
    EXPECT_EQ(p.nbr_cores, 1u);
    EXPECT_EQ(p.max_threads, 1u);
    EXPECT_EQ(p.LLC_size, 1u << 20);
    p.configure(cpu, 0, 0);
    EXPECT_EQ(p.max_threads, 1u);
}

TEST(process_mgr_startup, this_machine)
{
    const processor_info& cpu = the_processor();
    EXPECT_GE(cpu.cache_sizes.size(), 4u);
    process_mgr p;
    EXPECT_GE(p.max_threads, 1u);
    EXPECT_GE(p.LLC_size, 102400u);
    EXPECT_EQ(p.max_total_size, 0xFFFFFFFFu);
}
