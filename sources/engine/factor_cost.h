// The arithmetic of an L D Lᵀ factorisation on a block profile, known from the
// profile alone: what the numbering can tell before any value exists, and what
// the factorisation counts as it goes. A multiply-add counts as two flops; the
// zeros that the kernels pad their tiles with are not counted.
#pragma once

#include <algorithm>
#include <vector>

#include "kelt/engine/profile.h"
#include "kelt/engine/skyline.h"

namespace kelt::core {

// Flops of one block whose segments (band columns first, then the extra columns
// ascending) have columns column(s) and lengths length(s): each entry is reduced by
// a dot over the rows its column shares with the row's own band column, each column
// is scaled and squared, and each pair of extra columns sends its product over the
// rows they share (counted from the band's end) to a later block.
template <class Column, class Length>
double block_flops(unsigned first, unsigned end, unsigned nbr_segments, Column&& column, Length&& length)
{
    const unsigned dim = end - first;
    std::vector<unsigned> top(dim);
    for (unsigned s = 0; s < dim; ++s) top[s] = first + s - length(s);
    double madds = 0.0;
    std::vector<unsigned> extra;
    extra.reserve(nbr_segments > dim ? nbr_segments - dim : 0);
    for (unsigned s = 0; s < nbr_segments; ++s) {
        const unsigned c = column(s), m = length(s), e = std::min(c, end), t = e - m;
        for (unsigned r = t + 1; r < e; ++r) madds += double(r - std::max(t, top[r - first]));
        madds += m;
        if (s >= dim) extra.push_back(m);
    }
    // Pairs i < j of extra columns: min(len_i, len_j) each; with the lengths sorted
    // ascending the k-th shortest is the shorter one of the pairs with every longer.
    std::sort(extra.begin(), extra.end());
    const std::size_t E = extra.size();
    for (std::size_t k = 0; k < E; ++k) madds += double(extra[k]) * double(E - 1 - k);
    return 2.0 * madds;
}

// Flops of the factorisation of a matrix on `profile` (in DOF units).
inline double factor_flops(const profile_type& profile)
{
    double flops = 0.0;
    for (const block_profile_type& b : profile.blocks)
        flops += block_flops(
            b.first, b.end, unsigned(b.segments.size()), [&](unsigned s) { return b.segments[s].first; },
            [&](unsigned s) { return b.segments[s].second; });
    return flops;
}

// Flops of the factorisation of one block of a matrix, from its shape.
inline double block_flops(const symmetric_skyline_block& v)
{
    return block_flops(
        v.first, v.end(), v.nbr_segments, [&](unsigned s) { return v.columns[s]; },
        [&](unsigned s) { return v.seg_length(s); });
}

} // namespace kelt::core
