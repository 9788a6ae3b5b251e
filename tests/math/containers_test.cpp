// Sharing, deep copies, growth and windows of the container layer.
#include <gtest/gtest.h>

#include <complex>
#include <utility>
#include <vector>

#include "kelt/math/math.h"

using namespace kelt;

TEST(dense1D_sharing, copies_share_and_copy_detaches)
{
    dense1D<double> a(4, 1.0);
    dense1D<double> b(a);
    b[2] = 7.0;
    EXPECT_EQ(a[2], 7.0);

    dense1D<double> c;
    c = a;
    c = 3.0; // fill through the shared window
    EXPECT_EQ(a[0], 3.0);
    EXPECT_EQ(b[3], 3.0);

    dense1D<double> d;
    ASSERT_TRUE(d.copy(a));
    d[0] = -1.0;
    EXPECT_EQ(a[0], 3.0);
    EXPECT_EQ(d.size(), 4u);
}

TEST(dense1D_sharing, copy_onto_a_shared_smaller_window_leaves_its_partners)
{
    dense1D<double> partner(2, 5.0);
    dense1D<double> target(partner);
    dense1D<double> source(6, 9.0);
    ASSERT_TRUE(target.copy(source));
    EXPECT_EQ(target.size(), 6u);
    EXPECT_EQ(target[5], 9.0);
    target[0] = 1.0;
    EXPECT_EQ(partner.size(), 2u);
    EXPECT_EQ(partner[0], 5.0);
}

TEST(dense1D_sharing, copy_of_an_overlapping_window_of_the_same_buffer)
{
    dense1D<double> whole(6);
    for (unsigned i = 0; i < 6; ++i) whole[i] = i;
    dense1D<double> head = whole.sub_vector(0, 4);
    ASSERT_TRUE(head.copy(whole.sub_vector(2, 4)));
    for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(head[i], double(i + 2));
    EXPECT_EQ(whole[0], 0.0); // the source buffer is untouched
}

TEST(dense1D_growth, push_back_of_own_element_survives_growth)
{
    dense1D<double> v(2, 4.0);
    ASSERT_EQ(v.capacity(), 2u);
    v.push_back(v[0]); // the source moves during the growth
    EXPECT_EQ(v[2], 4.0);
    ASSERT_TRUE(v.push_back_n(v[1], 5));
    EXPECT_EQ(v.size(), 8u);
    EXPECT_EQ(v[7], 4.0);
}

TEST(dense1D_growth, windows_stay_valid_when_a_partner_grows)
{
    dense1D<unsigned> base(3, 0u);
    for (unsigned i = 0; i < 3; ++i) base[i] = 10 + i;
    dense1D<unsigned> tail = base.sub_vector(1, 2);
    ASSERT_TRUE(base.resize(1000, 1u)); // reallocates the shared buffer
    EXPECT_EQ(tail[0], 11u);
    EXPECT_EQ(tail[1], 12u);
    tail[0] = 99;
    EXPECT_EQ(base[1], 99u);
    EXPECT_EQ(base[999], 1u);
}

TEST(dense1D_growth, refusals_leave_the_container_unchanged)
{
    dense1D<double> v(3, 2.0);
    EXPECT_FALSE(v.resize(0xFFFFFFFFu)); // beyond 2^32 bytes
    EXPECT_FALSE(v.reserve(0x30000000u, 2));
    EXPECT_EQ(v.size(), 3u);
    EXPECT_EQ(v[2], 2.0);
    dense1D<double> w = v.sub_vector(2, 1);
    EXPECT_FALSE(w.push_back_n(1.0, 0xFFFFFFFFu));
    EXPECT_EQ(w.size(), 1u);
}

TEST(dense1D_windows, resize_to_zero_and_empty_windows)
{
    dense1D<double> a(5, 1.5);
    dense1D<double> b(a);
    ASSERT_TRUE(b.resize(0));
    EXPECT_EQ(a.size(), 5u);
    EXPECT_EQ(a[4], 1.5);
    EXPECT_EQ(a.sub_vector(0, 0).size(), 0u);
    EXPECT_EQ(a.sub_vector(5, 0).size(), 0u);

    dense1D<double> c(a);
    c.clear_hard();
    EXPECT_EQ(c.capacity(), 0u);
    EXPECT_EQ(a[0], 1.5);
}

TEST(dense1D_windows, external_memory_is_written_and_never_freed)
{
    double store[4] = {1, 2, 3, 4};
    {
        dense1D<double> w(4, store);
        dense1D<double> shared(w);
        shared[1] = 20.0;
        dense1D<double> sub = w.sub_vector(2, 2);
        sub = 0.0;
        // Growing leaves the caller's memory and moves the data to a buffer of its own.
        ASSERT_TRUE(w.resize(10, -1.0));
        w[0] = 100.0;
        EXPECT_EQ(store[0], 1.0);
        EXPECT_EQ(shared[0], 100.0); // partners follow the buffer
    }
    EXPECT_EQ(store[1], 20.0);
    EXPECT_EQ(store[2], 0.0);
}

TEST(dense1D_elements, non_trivial_elements_are_built_and_destroyed)
{
    dense1D<std::pair<unsigned, unsigned>> pairs;
    for (unsigned i = 0; i < 50; ++i) pairs.push_back({i, 2 * i});
    EXPECT_EQ(pairs[49].second, 98u);
    ASSERT_TRUE(pairs.resize(60));
    EXPECT_EQ(pairs[55].first, 0u);

    dense1D<std::vector<int>> vectors(3);
    vectors[1].assign(100, 7);
    ASSERT_TRUE(vectors.resize(40)); // moves the inner vectors
    EXPECT_EQ(vectors[1].size(), 100u);
    EXPECT_EQ(vectors[1][99], 7);
}

TEST(dense1D_elements, data_are_aligned_for_vector_loads)
{
    for (unsigned n : {1u, 3u, 17u, 1000u}) {
        dense1D<double> v(n);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(v.data()) % buffer_alignment, 0u);
        dense1D<std::complex<double>> z(n);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(z.data()) % buffer_alignment, 0u);
    }
}

namespace {
dense2D<double> numbered(unsigned rows, unsigned cols)
{
    dense2D<double> m(rows, cols);
    for (unsigned j = 0; j < cols; ++j)
        for (unsigned i = 0; i < rows; ++i) m(i, j) = 100.0 * i + j;
    return m;
}
} // namespace

TEST(dense2D_windows, windows_of_windows_honour_the_leading_dimension)
{
    dense2D<double> m = numbered(7, 5);
    dense2D<double> sub = m.sub_matrix(2, 1, 4, 3);
    EXPECT_EQ(sub.leading_dim(), 7u);
    dense2D<double> subsub = sub.sub_matrix(1, 1, 2, 2);
    EXPECT_EQ(subsub(1, 1), m(4, 3));
    dense1D<double> c = subsub.col(1);
    ASSERT_EQ(c.size(), 2u);
    EXPECT_EQ(c[0], m(3, 3));
    EXPECT_EQ(c[1], m(4, 3));
    c[1] = -5.0;
    EXPECT_EQ(m(4, 3), -5.0);
    subsub = 0.5; // fills only the window
    EXPECT_EQ(m(3, 2), 0.5);
    EXPECT_EQ(m(5, 2), 500.0 + 2);
    EXPECT_EQ(m(3, 4), 304.0);
}

TEST(dense2D_windows, copy_packs_a_strided_window)
{
    dense2D<double> m = numbered(6, 6);
    dense2D<double> d;
    ASSERT_TRUE(d.copy(m.sub_matrix(1, 2, 3, 2)));
    EXPECT_EQ(d.leading_dim(), 3u);
    for (unsigned j = 0; j < 2; ++j)
        for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(d(i, j), m(i + 1, j + 2));
    d(0, 0) = -1;
    EXPECT_EQ(m(1, 2), 102.0);
}

TEST(dense2D_resize, keeps_entries_and_fills_new_ones)
{
    dense2D<double> pos = numbered(2, 4);
    dense2D<double> host(pos);
    ASSERT_TRUE(pos.resize(3, 4, 0.0)); // a 2-row position matrix made 3-row
    for (unsigned j = 0; j < 4; ++j) {
        EXPECT_EQ(pos(0, j), double(j));
        EXPECT_EQ(pos(1, j), 100.0 + j);
        EXPECT_EQ(pos(2, j), 0.0);
    }
    ASSERT_TRUE(pos.resize(3, 6, 8.0)); // more columns, same rows: in place
    EXPECT_EQ(pos(2, 5), 8.0);
    EXPECT_EQ(pos(1, 3), 103.0);
    EXPECT_EQ(host.rows(), 2u);
    EXPECT_FALSE(pos.resize(0x10000u, 0x10000u));
    EXPECT_EQ(pos.cols(), 6u);
}

TEST(dense2D_windows, external_window)
{
    double store[12] = {};
    dense2D<double> w(2, 3, 4, store); // 2 rows used of a leading dimension 4
    w(1, 2) = 3.0;
    EXPECT_EQ(store[9], 3.0);
    w.col(1) = 1.0;
    EXPECT_EQ(store[4], 1.0);
    EXPECT_EQ(store[5], 1.0);
    EXPECT_EQ(store[6], 0.0);
}

TEST(symmetric_containers, either_index_order_reaches_one_value)
{
    symmetric_full<double> s(4, 0.0);
    s(3, 1) = 2.5;
    EXPECT_EQ(s(1, 3), 2.5);
    symmetric_full<double> shared(s);
    shared(0, 0) = 1.0;
    EXPECT_EQ(s(0, 0), 1.0);
    symmetric_full<double> deep;
    ASSERT_TRUE(deep.copy(s));
    deep(1, 3) = 0.0;
    EXPECT_EQ(s(3, 1), 2.5);

    symmetric_fixed<double, 3> t;
    const double packed[6] = {1, 2, 3, 4, 5, 6}; // s00 s01 s11 s02 s12 s22
    for (unsigned k = 0; k < 6; ++k) t[k] = packed[k];
    EXPECT_EQ(t(1, 0), 2.0);
    EXPECT_EQ(t(1, 1), 3.0);
    EXPECT_EQ(t(2, 0), 4.0);
    EXPECT_EQ(t(2, 1), 5.0);
    EXPECT_EQ(t(2, 2), 6.0);
    vector_fixed<double, 6> zero;
    for (unsigned k = 0; k < 6; ++k) EXPECT_EQ(zero[k], 0.0);
}
