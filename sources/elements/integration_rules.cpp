// Compile-time checks of the rule tables: each family's rules end where its table
// ends, no rule reaches the point count that would alias state keys, and every point
// set can be built as a constant.
#include "kelt/elements/integration_rules.h"

namespace kelt::core {

namespace {

static_assert(sizeof(gauss_tables::gauss_edge_points) == 21 * sizeof(double));
static_assert(sizeof(gauss_tables::gauss_edge_weights) == 21 * sizeof(double));
static_assert(6 * 5 / 2 + 6 == 21);
constexpr unsigned entries(const auto& table) { return sizeof(table) / sizeof(gauss_tables::rule_entry); }
// Each rule starts where the one before it ends, and the last one ends the table.
constexpr bool rows_fill(const auto& rows, unsigned size)
{
    unsigned at = 0;
    for (const gauss_tables::rule_row& r : rows) {
        if (r.offset != at) return false;
        at += r.n;
    }
    return at == size;
}
static_assert(rows_fill(gauss_tables::faceT_rows, entries(gauss_tables::gauss_faceT)));
static_assert(rows_fill(gauss_tables::tetra_rows, entries(gauss_tables::gauss_tetra)));
static_assert(rows_fill(gauss_tables::pyramid_rows, entries(gauss_tables::gauss_pyramid.e)));

// The largest rule of each family stays below the state-key modulus.
static_assert(27 < max_points_per_rule && 11 < max_points_per_rule);
static_assert(!Gauss_hexa::valid(4, 4, 4) && Gauss_hexa::valid(3, 4, 4));
static_assert(!Gauss_faceT::valid(2) && !Gauss_faceT::valid(5) && !Gauss_edge::valid(7));

constexpr local_points_set<Gauss_edge, 6> edge6{};
constexpr local_points_set<Gauss_faceT, 7> faceT7{};
constexpr local_points_set<Gauss_tetra, 11> tetra11{};
constexpr local_points_set<Gauss_pyramid, 27> pyramid27{};
constexpr local_points_set_prod2<Gauss_faceQ, 6, 6> faceQ36{};
constexpr local_points_set_prod2<Gauss_wedge, 6, 7> wedge42{};
constexpr local_points_set_prod3<Gauss_hexa, 3, 4, 4> hexa48{};
static_assert(edge6[5].ID == 105 && faceT7[6].ID == 206 && tetra11[10].ID == 410);
static_assert(pyramid27[26].ID == 526 && faceQ36[35].ID == 335 && wedge42[41].ID == 541);
static_assert(point_index(hexa48[47].ID) == 47);

} // namespace

} // namespace kelt::core
