// The shared column store behind solution matrices, as it stands without a memory
// budget: a window that holds every column, views that share it, and sizes that
// do not fit 32 bits refused.
#include <gtest/gtest.h>

#include <complex>

#include "kelt/core/dense2D_OOC.h"

using namespace kelt;

namespace {

TEST(dense2D_OOC, a_new_store_holds_every_column_at_its_default_value)
{
    core::dense2D_OOC<double> m(4, 5, 2.5);
    ASSERT_EQ(m.rows(), 4u);
    ASSERT_EQ(m.cols(), 5u);
    EXPECT_EQ(m.proxy->written.count(), 0u); // nothing went to a file
    EXPECT_TRUE(m.all_in_core());
    EXPECT_TRUE(m.force_incore());
    for (unsigned j = 0; j < 5; ++j)
        for (double v : m.col_read(j)) EXPECT_EQ(v, 2.5);
    m.request_incore();
    EXPECT_EQ(m.cols(), 5u); // kept
}

TEST(dense2D_OOC, views_share_the_store)
{
    core::dense2D_OOC<std::complex<double>> m(3, 4);
    core::dense2D_OOC<std::complex<double>> v(m, 1, 2, 2, 2); // rows 1..2, columns 2..3
    v.col(1)[0] = {1.0, -1.0};
    EXPECT_EQ(m.col_read(3)[1], std::complex<double>(1.0, -1.0));
    EXPECT_EQ(v.proxy.get(), m.proxy.get());
    EXPECT_TRUE(v.in_core(0, 2));
    EXPECT_FALSE(v.in_core(1, 2)); // past the view
    EXPECT_TRUE(v.col(2).empty());
    m.clear(); // a fresh empty store; the view keeps the old one
    EXPECT_EQ(m.cols(), 0u);
    EXPECT_EQ(v.col_read(1)[0], std::complex<double>(1.0, -1.0));
}

TEST(dense2D_OOC, read_access_marks_the_window_read_only_until_a_write)
{
    core::dense2D_OOC<double> m(2, 2);
    (void)m.col_read(0);
    EXPECT_TRUE(m.proxy->read_only);
    (void)m.col(1);
    EXPECT_FALSE(m.proxy->read_only);
}

TEST(dense2D_OOC, windows_move_by_whole_steps_only)
{
    core::dense2D_OOC<double> m(2, 6);
    m.proxy->min_cols = 2;
    EXPECT_EQ(m.proxy->load_window(0, 6), no_error);
    EXPECT_EQ(m.proxy->load_window(2, 4), no_error);
    EXPECT_EQ(m.proxy->load_window(1, 2), internal_error);
    EXPECT_EQ(m.proxy->load_window(2, 3), internal_error);
    EXPECT_EQ(m.proxy->load_window(4, 4), internal_error); // past the columns
    EXPECT_EQ(m.proxy->move_window(5), no_error);
    EXPECT_EQ(m.proxy->flush_window(), no_error);
}

TEST(dense2D_OOC, sizes_past_32_bits_leave_an_empty_store)
{
    core::dense2D_OOC<double> m(0x10000, 0x10000);
    EXPECT_EQ(m.rows() + m.cols(), 0u);
    EXPECT_TRUE(m.col(0).empty());
    core::dense2D_OOC<double> empty;
    EXPECT_TRUE(empty.all_in_core());
}

} // namespace
