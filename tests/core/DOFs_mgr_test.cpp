// The DOF table: identifiers and their inverse, the packed bits against
// a plain reference, the failure rules, and sharing by handle.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/fem/DOFs_mgr.h"

namespace {

using kelt::dense1D;
using kelt::displacement_tag;
using kelt::field_tag;
using kelt::invalid_data_error;
using kelt::no_error;
using kelt::rotation_tag;
using kelt::temperature_tag;
using kelt::fem::DOFs_mgr;

const field_tag foreign_tags[] = {field_tag(0), field_tag(1), field_tag(9), field_tag(16), field_tag(41),
                                  field_tag(0xFFFFFFFFu)};

std::vector<unsigned> ids_of(const DOFs_mgr& t, bool state)
{
    dense1D<unsigned, 8> ids;
    t.copy_IDs(ids, state);
    return std::vector<unsigned>(ids.begin(), ids.end());
}

// The whole table as plain booleans, read one identifier at a time.
std::vector<bool> bits_of(const DOFs_mgr& t)
{
    std::vector<bool> out(t.size());
    for (unsigned id = 0; id < t.size(); ++id) {
        bool s = false;
        EXPECT_EQ(t.get(id, s), no_error);
        out[id] = s;
    }
    return out;
}

TEST(DOFs_mgr_ID, foreign_tags_fail_and_change_nothing)
{
    DOFs_mgr t(4, true);
    for (field_tag f : foreign_tags) {
        SCOPED_TRACE(unsigned(f));
        EXPECT_EQ(t.set(0, f, 0, false), invalid_data_error);
        EXPECT_EQ(t.set(0, f, false), invalid_data_error);
        EXPECT_EQ(t.set(0, f, 0, 1, false), invalid_data_error);
        bool s = true;
        EXPECT_EQ(t.get(0, f, 0, s), invalid_data_error);
        EXPECT_FALSE(s);
    }
    EXPECT_EQ(t.nbr_DOFs(false), 0u);
}

// A node far beyond the table must not wrap around 32 bits onto a small one.
TEST(DOFs_mgr_ID, huge_node_does_not_wrap)
{
    DOFs_mgr t(2, false);
    const unsigned wraps = 0x1C71C71Du; // 9 * wraps = 2^32 + 5
    EXPECT_EQ(t.set(wraps, displacement_tag, 0, true), invalid_data_error);
    EXPECT_EQ(t.set(wraps, displacement_tag, true), invalid_data_error);
    EXPECT_EQ(t.set(wraps, displacement_tag, 0, 1, true), invalid_data_error);
    EXPECT_EQ(t.nbr_DOFs(true), 0u);
}

// get_info inverts ID on every field place; places 7 and 8 report temperature
// with components 1 and 2.
TEST(DOFs_mgr_get_info, inverse_of_ID)
{
    DOFs_mgr t(7, true);
    for (unsigned id = 0; id < t.size(); ++id) {
        SCOPED_TRACE(id);
        unsigned node = 99, comp = 99;
        field_tag f = field_tag(0);
        t.get_info(id, node, f, comp, true);
        EXPECT_EQ(node, id / 9);
        const unsigned place = id % 9;
        if (place <= 6) {
            EXPECT_EQ(DOFs_mgr::ID(node, f, comp), id);
        } else {
            EXPECT_EQ(f, temperature_tag);
            EXPECT_EQ(comp, place - 6);
        }
    }
    for (unsigned place : {6u, 7u}) { // without the flag, place 7 is the temperature's component 1
        unsigned node = 0, comp = 9;
        field_tag f = field_tag(0);
        t.get_info(27 + place, node, f, comp, false);
        EXPECT_EQ(node, 3u);
        EXPECT_EQ(f, temperature_tag);
        EXPECT_EQ(comp, place - 6);
    }
}

TEST(DOFs_mgr_get_info, added_nodes_map_to_their_regular_node)
{
    DOFs_mgr t(4, true);
    auto* c = static_cast<kelt::core::DOFs_mgr*>(kelt::fem::core_of(t));
    EXPECT_EQ(c->add_node(2), 4u);
    EXPECT_EQ(c->add_node(0), 5u);
    EXPECT_EQ(t.size(), 54u);
    EXPECT_EQ(t.nbr_nodes(), 4u);
    // Added nodes start blocked.
    EXPECT_EQ(t.nbr_DOFs(false), 18u);

    const unsigned stands_for[] = {0, 1, 2, 3, 2, 0};
    for (unsigned node = 0; node < 6; ++node)
        for (unsigned place = 0; place < 9; ++place) {
            unsigned n = 99, comp = 99;
            field_tag f = field_tag(0);
            t.get_info(node * 9 + place, n, f, comp, true);
            EXPECT_EQ(n, stands_for[node]) << node << " " << place;
            t.get_info(node * 9 + place, n, f, comp, false);
            EXPECT_EQ(n, node);
        }

    // resize leaves the added nodes alone; clear empties them.
    t.resize(8, true);
    EXPECT_EQ(t.nbr_nodes(), 8u - 2u);
    t.clear();
    EXPECT_EQ(t.size(), 0u);
    EXPECT_EQ(t.nbr_nodes(), 0u);
    EXPECT_EQ(c->added_nodes.size(), 0u);
}

// Random writes against std::vector<bool>, on sizes around the word boundaries.
class DOFs_mgr_bits : public ::testing::TestWithParam<unsigned> {};

TEST_P(DOFs_mgr_bits, match_a_plain_reference)
{
    const unsigned nodes = GetParam();
    std::mt19937 gen(1234 + nodes);
    DOFs_mgr t(nodes, false);
    std::vector<bool> ref(nodes * 9, false);
    std::bernoulli_distribution coin(0.5);
    for (unsigned k = 0; k < 40 * nodes + 10; ++k) {
        const unsigned id = unsigned(gen() % (nodes * 9 + 3)); // a few past the end
        const bool s = coin(gen);
        const kelt::error_type e = t.set(id, s);
        if (id < ref.size()) {
            EXPECT_EQ(e, no_error);
            ref[id] = s;
        } else {
            EXPECT_EQ(e, invalid_data_error);
        }
    }
    EXPECT_EQ(bits_of(t), ref);

    std::vector<unsigned> free_ids, blocked_ids;
    for (unsigned id = 0; id < ref.size(); ++id) (ref[id] ? free_ids : blocked_ids).push_back(id);
    EXPECT_EQ(ids_of(t, true), free_ids);
    EXPECT_EQ(ids_of(t, false), blocked_ids);
    EXPECT_EQ(t.nbr_DOFs(true), free_ids.size());
    EXPECT_EQ(t.nbr_DOFs(true) + t.nbr_DOFs(false), t.size());
}

// 3 and 4 nodes straddle bit 32; 7 and 8 straddle bit 64; 32 fills words exactly.
INSTANTIATE_TEST_SUITE_P(sizes, DOFs_mgr_bits, ::testing::Values(1u, 3u, 4u, 7u, 8u, 32u, 57u));

// Growth keeps the old bits and fills the new ones; bits cut off by a shrink must
// not come back with a later growth.
TEST(DOFs_mgr_resize, keeps_old_bits_fills_new_ones_and_forgets_cut_ones)
{
    for (unsigned n = 1; n < 12; ++n) {
        SCOPED_TRACE(n);
        DOFs_mgr t;
        t.resize(n - 1, false);
        t.resize(n, true);
        EXPECT_EQ(t.size(), 9 * n);
        std::vector<unsigned> last_node;
        for (unsigned p = 0; p < 9; ++p) last_node.push_back(9 * (n - 1) + p);
        EXPECT_EQ(ids_of(t, true), last_node);
        EXPECT_EQ(t.nbr_DOFs(true) + t.nbr_DOFs(false), t.size());

        DOFs_mgr u(n + 1, true);
        u.resize(n, true);
        EXPECT_EQ(u.size(), 9 * n);
        u.resize(n + 1, false);
        EXPECT_EQ(u.nbr_DOFs(true), 9 * n);
        EXPECT_EQ(u.nbr_DOFs(false), 9u);
    }
}

TEST(DOFs_mgr_set, two_components)
{
    DOFs_mgr t(3, false);
    EXPECT_EQ(t.set(1, rotation_tag, 0, 2, true), no_error);
    EXPECT_EQ(ids_of(t, true), (std::vector<unsigned>{12, 14}));
    EXPECT_EQ(t.set(2, displacement_tag, 1, 1, true), no_error);
    EXPECT_EQ(ids_of(t, true), (std::vector<unsigned>{12, 14, 19}));

    // Each failure leaves every bit as it was.
    const std::vector<bool> before = bits_of(t);
    EXPECT_EQ(t.set(1, temperature_tag, 0, 1, true), invalid_data_error);
    EXPECT_EQ(t.set(1, displacement_tag, 3, 0, true), invalid_data_error);
    EXPECT_EQ(t.set(1, displacement_tag, 0, 3, true), invalid_data_error);
    EXPECT_EQ(t.set(3, displacement_tag, 0, 1, true), invalid_data_error);
    EXPECT_EQ(t.set(3, rotation_tag, 0, 1, true), invalid_data_error);
    EXPECT_EQ(bits_of(t), before);
    EXPECT_EQ(t.set(1, temperature_tag, true), no_error);
}

TEST(DOFs_mgr_get, out_of_range_fails_with_false)
{
    DOFs_mgr t(2, true);
    bool s = true;
    EXPECT_EQ(t.get(18, s), invalid_data_error);
    EXPECT_FALSE(s);
    s = true;
    EXPECT_EQ(t.get(2, rotation_tag, 0, s), invalid_data_error);
    EXPECT_FALSE(s);
    EXPECT_EQ(t.get(1, temperature_tag, 7, s), no_error);
    EXPECT_TRUE(s);
    EXPECT_EQ(t.set(18, true), invalid_data_error);
}

} // namespace
