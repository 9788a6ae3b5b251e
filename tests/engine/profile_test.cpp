// The renumbering and profile chain on the small cases whose shape is known.
#include <gtest/gtest.h>

#include <numeric>

#include "engine_test_support.h"

using namespace kelt;
using namespace kelt::core;

namespace {
std::size_t profile_values(const profile_type& p)
{
    std::size_t v = 0;
    for (const auto& b : p.blocks) {
        v += b.end - b.first;
        for (const auto& s : b.segments) v += s.second;
    }
    return v;
}
} // namespace

TEST(profile_chain, no_free_DOF_gives_empty_table_and_header_sizes)
{
    test::dof_model m = test::grid_model(2, 1, 0, 1);
    test::numbered num = test::number(m, m.DOFs);
    EXPECT_EQ(num.free_IDs.size(), 0u);
    EXPECT_EQ(num.profile.size(), 0u);
    EXPECT_EQ(num.value_bytes, 0u);
    EXPECT_EQ(num.index_bytes, 28u);
}

TEST(profile_chain, one_element_is_one_dense_block)
{
    test::dof_model m = test::grid_model(1, 1, 1, 3); // one hexa: 24 DOFs
    test::numbered num = test::number(m);
    ASSERT_EQ(num.profile.size(), 1u);
    EXPECT_EQ(profile_values(num.profile), 24u * 25u / 2u);
    EXPECT_EQ(num.profile.blocks[0].segments.size(), 24u);
    // The table holds the DOFs by rank, each once.
    std::vector<unsigned> ids(num.free_IDs.IDs().begin(), num.free_IDs.IDs().end());
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, m.DOFs);
}

TEST(profile_chain, isolated_DOFs_follow_one_another_in_one_block)
{
    test::dof_model m;
    for (unsigned i = 0; i < 10; ++i) m.DOFs.push_back(100 + i);
    m.element_ptr = {0, 2};
    m.element_DOFs = {100, 101};
    test::numbered num = test::number(m);
    ASSERT_EQ(num.free_IDs.size(), 10u);
    // The 8 untouched DOFs carry no value beyond their diagonal.
    EXPECT_EQ(profile_values(num.profile), 10u + 1u);
    unsigned blocks_with_isolated = 0;
    for (const auto& b : num.profile.blocks)
        if (b.end - b.first >= 8) ++blocks_with_isolated;
    EXPECT_EQ(blocks_with_isolated, 1u);
}

TEST(profile_chain, independent_parts_never_reach_across)
{
    test::dof_model a = test::grid_model(5, 3, 0, 2), m = a;
    // A second copy on other identifiers.
    const unsigned shift = 9 * 1000;
    for (unsigned id : a.DOFs) m.DOFs.push_back(id + shift);
    const unsigned base = unsigned(m.element_DOFs.size());
    for (unsigned id : a.element_DOFs) m.element_DOFs.push_back(id + shift);
    for (unsigned e = 1; e < a.element_ptr.size(); ++e) m.element_ptr.push_back(base + a.element_ptr[e]);
    test::numbered num = test::number(m);
    auto part = [&](unsigned rank) { return num.free_IDs[rank] >= shift; };
    for (const auto& b : num.profile.blocks)
        for (const auto& [c, h] : b.segments) {
            const unsigned top = (c < b.end ? c : b.end) - h;
            for (unsigned r = top; r < (c < b.end ? c : b.end); ++r) EXPECT_EQ(part(r), part(c));
        }
}

TEST(profile_chain, a_chain_longer_than_a_block_reaches_back_once)
{
    // A path of 700 vertices in its own order: heights 1.
    ordering_graph_type g;
    const unsigned n = 700;
    g.xadj.assign(1, 0);
    for (unsigned v = 0; v < n; ++v) {
        if (v > 0) g.adjncy.push_back(v - 1);
        if (v + 1 < n) g.adjncy.push_back(v + 1);
        g.xadj.push_back(unsigned(g.adjncy.size()));
    }
    g.members_ptr.resize(n + 1);
    std::iota(g.members_ptr.begin(), g.members_ptr.end(), 0u);
    g.members.resize(n);
    std::iota(g.members.begin(), g.members.end(), 0u);
    std::vector<unsigned> order(n), position(n), heights;
    std::iota(order.begin(), order.end(), 0u);
    std::iota(position.begin(), position.end(), 0u);
    column_heights(g, order, position, heights);
    profile_type p;
    split_blocks(g, heights, order, position, max_block_width, p);
    symbolic_fill(p);
    ASSERT_EQ(p.size(), 2u);
    EXPECT_EQ(p.blocks[0].first, 0u);
    EXPECT_EQ(p.blocks[0].end, 600u);
    EXPECT_EQ(p.blocks[1].first, 600u);
    ASSERT_EQ(p.blocks[0].segments.size(), 601u);
    EXPECT_EQ(p.blocks[0].segments.back(), std::make_pair(600u, 1u));
    EXPECT_EQ(p.blocks[1].segments.front(), std::make_pair(600u, 0u));
}

TEST(profile_chain, compression_merges_the_DOFs_of_a_node)
{
    test::dof_model m = test::grid_model(4, 4, 0, 3);
    test::numbered num = test::number(m);
    // Ranks of one node's DOFs are consecutive once the table is reordered.
    for (unsigned r = 0; r + 2 < num.free_IDs.size(); r += 3) {
        EXPECT_EQ(num.free_IDs[r] / 9, num.free_IDs[r + 1] / 9);
        EXPECT_EQ(num.free_IDs[r] / 9, num.free_IDs[r + 2] / 9);
    }
}

TEST(profile_chain, random_order_is_a_permutation_and_metis_ignores_bad_weights)
{
    test::dof_model m = test::grid_model(6, 5, 0, 1);
    test::numbered base = test::number(m);
    ordering_graph_type g;
    DOF_graph_type dofs;
    std::vector<unsigned> ptr = m.element_ptr, ids = m.element_DOFs;
    ASSERT_EQ(DOF_graph(ptr, ids, base.free_IDs, dofs), no_error);
    ASSERT_EQ(compress_graph(dofs.xadj, dofs.adjncy, g), no_error);
    for (unsigned mode : {order_random, order_metis, order_metis_postordered}) {
        std::vector<unsigned> order, position, bad_weights(3, 1);
        ASSERT_EQ(renumber_graph(g, mode, bad_weights, order, position), no_error);
        std::vector<unsigned> sorted = order;
        std::sort(sorted.begin(), sorted.end());
        for (unsigned k = 0; k < sorted.size(); ++k) ASSERT_EQ(sorted[k], k);
        for (unsigned k = 0; k < order.size(); ++k) ASSERT_EQ(position[order[k]], k);
    }
}

// The bytes of a skyline past 4 GiB are counted whole: a dense triangle of order n
// holds n (n + 1) / 2 values, here about 6.4 GB, described without allocating them.
TEST(profile_memory, counts_a_matrix_past_four_gigabytes_in_full)
{
    const unsigned n = 40000;
    profile_type profile;
    profile.blocks.resize(1);
    block_profile_type& b = profile.blocks[0];
    b.first = 0, b.end = n;
    for (unsigned c = 0; c < n; ++c) b.segments.emplace_back(c, c); // column c: the c rows above its diagonal
    std::uint64_t K_bytes = 0, index_bytes = 0;
    profile_memory(profile, K_bytes, index_bytes);
    const std::uint64_t values = std::uint64_t(n) * (n + 1) / 2;
    EXPECT_EQ(K_bytes, values * 8);
    EXPECT_GT(K_bytes, 0xFFFFFFFFull);
    EXPECT_DOUBLE_EQ(profile_megabytes(K_bytes, 0), double(values) * 8.0 / 1048576.0);
}
