#include "kelt/engine/profile.h"

#include <metis.h>

#include <algorithm>
#include <numeric>
#include <new>
#include <random>

namespace kelt::core {

namespace {

constexpr unsigned none = 0xFFFFFFFFu;

// Compressed rows in two passes of the same walk: one counts each row's entries,
// the other writes them. `mark`, which the walk uses to take an entry once per
// row, is reset between the passes.
template <class Walk>
void compressed_rows(unsigned n, Walk&& walk, std::vector<unsigned>& mark, std::vector<unsigned>& xadj,
                     std::vector<unsigned>& adjncy)
{
    for (unsigned i = 0; i < n; ++i) walk(i, [&](unsigned) { ++xadj[i + 1]; });
    std::partial_sum(xadj.begin(), xadj.end(), xadj.begin());
    adjncy.resize(xadj[n]);
    std::fill(mark.begin(), mark.end(), none);
    for (unsigned i = 0; i < n; ++i) {
        unsigned at = xadj[i];
        walk(i, [&](unsigned j) { adjncy[at++] = j; });
    }
}

} // namespace

error_type DOF_graph(const std::vector<unsigned>& element_ptr, std::vector<unsigned>& element_DOFs,
                     const vector_fast& free_IDs, DOF_graph_type& graph)
{
    try {
        const unsigned n = free_IDs.size();
        const unsigned nbr_elements = element_ptr.empty() ? 0 : unsigned(element_ptr.size() - 1);
        for (unsigned& id : element_DOFs) id = free_IDs.rank(id);

        // Transpose into DOF-to-element rows.
        std::vector<unsigned> dof_ptr(std::size_t(n) + 1, 0);
        for (unsigned r : element_DOFs)
            if (r != none) ++dof_ptr[r + 1];
        std::partial_sum(dof_ptr.begin(), dof_ptr.end(), dof_ptr.begin());
        std::vector<unsigned> dof_elements(dof_ptr[n]);
        {
            std::vector<unsigned> fill(dof_ptr.begin(), dof_ptr.end() - 1);
            for (unsigned e = 0; e < nbr_elements; ++e)
                for (unsigned p = element_ptr[e]; p < element_ptr[e + 1]; ++p)
                    if (element_DOFs[p] != none) dof_elements[fill[element_DOFs[p]]++] = e;
        }

        // Adjacency in two passes, each DOF taken once per row by its mark.
        std::vector<unsigned> mark(n, none);
        graph.xadj.assign(std::size_t(n) + 1, 0);
        auto walk = [&](unsigned i, auto&& visit) {
            for (unsigned q = dof_ptr[i]; q < dof_ptr[i + 1]; ++q) {
                const unsigned e = dof_elements[q];
                for (unsigned p = element_ptr[e]; p < element_ptr[e + 1]; ++p) {
                    const unsigned j = element_DOFs[p];
                    if (j != none && mark[j] != i) {
                        mark[j] = i;
                        visit(j);
                    }
                }
            }
        };
        compressed_rows(n, walk, mark, graph.xadj, graph.adjncy);
        // The element arrays are not needed any more.
        element_DOFs.clear();
        element_DOFs.shrink_to_fit();
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

error_type compress_graph(const std::vector<unsigned>& xadj, const std::vector<unsigned>& adjncy,
                          ordering_graph_type& graph)
{
    try {
        const unsigned n = xadj.empty() ? 0 : unsigned(xadj.size() - 1);
        std::vector<std::pair<unsigned, unsigned>> keys(n);
        for (unsigned i = 0; i < n; ++i) {
            unsigned key = i;
            for (unsigned p = xadj[i]; p < xadj[i + 1]; ++p) key += adjncy[p];
            keys[i] = {key, i};
        }
        std::stable_sort(keys.begin(), keys.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });

        graph.vertex_of_DOF.assign(n, none);
        graph.members.clear();
        graph.members.reserve(n);
        graph.members_ptr.clear();
        graph.members_ptr.reserve(n / 3 + 2);
        std::vector<unsigned> mark(n, none);
        auto degree = [&](unsigned v) { return xadj[v + 1] - xadj[v]; };
        for (unsigned k = 0; k < n; ++k) {
            const unsigned i = keys[k].second;
            if (graph.vertex_of_DOF[i] != none) continue;
            const unsigned g = unsigned(graph.members_ptr.size());
            graph.members_ptr.push_back(unsigned(graph.members.size()));
            graph.vertex_of_DOF[i] = g;
            graph.members.push_back(i);
            mark[i] = k;
            for (unsigned p = xadj[i]; p < xadj[i + 1]; ++p) mark[adjncy[p]] = k;
            for (unsigned k2 = k + 1; k2 < n && keys[k2].first == keys[k].first; ++k2) {
                const unsigned j = keys[k2].second;
                if (degree(j) != degree(i) || graph.vertex_of_DOF[j] != none) continue;
                bool same = true;
                for (unsigned p = xadj[j]; p < xadj[j + 1] && same; ++p) same = mark[adjncy[p]] == k;
                if (!same) continue;
                graph.vertex_of_DOF[j] = g;
                graph.members.push_back(j);
            }
        }
        const unsigned groups = unsigned(graph.members_ptr.size());
        graph.members_ptr.push_back(unsigned(graph.members.size()));

        // Compressed adjacency, the group itself left out of its own list.
        std::vector<unsigned> gmark(groups, none);
        graph.xadj.assign(std::size_t(groups) + 1, 0);
        auto walk = [&](unsigned g, auto&& visit) {
            gmark[g] = g;
            for (unsigned q = graph.members_ptr[g]; q < graph.members_ptr[g + 1]; ++q) {
                const unsigned m = graph.members[q];
                for (unsigned p = xadj[m]; p < xadj[m + 1]; ++p) {
                    const unsigned h = graph.vertex_of_DOF[adjncy[p]];
                    if (gmark[h] != g) {
                        gmark[h] = g;
                        visit(h);
                    }
                }
            }
        };
        compressed_rows(groups, walk, gmark, graph.xadj, graph.adjncy);
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

namespace {

// Elimination tree on positions, then a depth-first numbering going down from the
// top, so that each vertex follows all its descendants and each subtree's columns
// are contiguous.
void post_order(const ordering_graph_type& graph, std::vector<unsigned>& order, std::vector<unsigned>& position)
{
    const unsigned n = unsigned(order.size());
    std::vector<unsigned> parent(n, none), ancestor(n, 0);
    for (unsigned k = 0; k < n; ++k) {
        const unsigned v = order[k];
        for (unsigned p = graph.xadj[v]; p < graph.xadj[v + 1]; ++p) {
            unsigned i = position[graph.adjncy[p]];
            while (i < k) {
                const unsigned next = ancestor[i];
                ancestor[i] = k;
                if (next == 0) {
                    parent[i] = k;
                    break;
                }
                if (next == k) break;
                i = next;
            }
        }
    }
    std::vector<unsigned> child_ptr(std::size_t(n) + 1, 0), children(n);
    for (unsigned k = 0; k < n; ++k)
        if (parent[k] != none) ++child_ptr[parent[k] + 1];
    std::partial_sum(child_ptr.begin(), child_ptr.end(), child_ptr.begin());
    {
        std::vector<unsigned> fill(child_ptr.begin(), child_ptr.end() - 1);
        for (unsigned k = 0; k < n; ++k)
            if (parent[k] != none) children[fill[parent[k]]++] = k; // ascending
    }
    std::vector<unsigned> new_order(n), stack;
    std::vector<char> visited(n, 0);
    unsigned next_place = n;
    for (unsigned root = n; root-- > 0;) {
        if (visited[root]) continue;
        stack.push_back(root);
        while (!stack.empty()) {
            const unsigned k = stack.back();
            stack.pop_back();
            visited[k] = 1;
            new_order[--next_place] = order[k];
            // Pushed in descending order so that the lowest child is met first.
            for (unsigned q = child_ptr[k + 1]; q-- > child_ptr[k];) stack.push_back(children[q]);
        }
    }
    order.swap(new_order);
    for (unsigned k = 0; k < n; ++k) position[order[k]] = k;
}

} // namespace

error_type renumber_graph(const ordering_graph_type& graph, unsigned mode, const std::vector<unsigned>& vertex_weights,
                          std::vector<unsigned>& order, std::vector<unsigned>& position)
{
    try {
        const unsigned n = graph.nbr_vertices();
        order.resize(n);
        position.resize(n);
        std::iota(order.begin(), order.end(), 0u);
        if (mode == order_random) {
            std::mt19937 gen(1);
            for (unsigned i = 1; i < n; ++i) {
                const unsigned j = unsigned(gen() % (i + 1));
                if (i != j) std::swap(order[i], order[j]);
            }
        } else if (n > 1 && !graph.adjncy.empty()) {
            std::vector<idx_t> xadj(graph.xadj.begin(), graph.xadj.end());
            std::vector<idx_t> adjncy(graph.adjncy.begin(), graph.adjncy.end());
            std::vector<idx_t> vwgt(vertex_weights.begin(), vertex_weights.end());
            std::vector<idx_t> perm(n), iperm(n);
            idx_t options[METIS_NOPTIONS];
            METIS_SetDefaultOptions(options);
            options[METIS_OPTION_NUMBERING] = 0;
            idx_t nv = idx_t(n);
            const bool weighted = vertex_weights.size() == n;
            const int status = METIS_NodeND(&nv, xadj.data(), adjncy.data(), weighted ? vwgt.data() : nullptr,
                                            options, perm.data(), iperm.data());
            if (status == METIS_ERROR_MEMORY) return memory_error;
            if (status != METIS_OK) return internal_error;
            for (unsigned k = 0; k < n; ++k) order[k] = unsigned(perm[k]);
        }
        for (unsigned k = 0; k < n; ++k) position[order[k]] = k;
        if (mode == order_metis_postordered) post_order(graph, order, position);
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

void column_heights(const ordering_graph_type& graph, const std::vector<unsigned>& order,
                    const std::vector<unsigned>& position, std::vector<unsigned>& heights)
{
    const unsigned n = unsigned(order.size());
    heights.assign(n, 0);
    for (unsigned k = 0; k < n; ++k) {
        const unsigned v = order[k];
        unsigned lowest = k;
        for (unsigned p = graph.xadj[v]; p < graph.xadj[v + 1]; ++p) lowest = std::min(lowest, position[graph.adjncy[p]]);
        heights[k] = k - lowest;
    }
}

void split_blocks(const ordering_graph_type& graph, const std::vector<unsigned>& heights,
                  const std::vector<unsigned>& order, const std::vector<unsigned>& position, unsigned max_width,
                  profile_type& profile)
{
    const unsigned n = unsigned(order.size());
    profile.clear();
    profile.block_of_vertex.assign(n, none);
    std::vector<unsigned> reaching;
    unsigned count = 0;
    bool after_isolated = false;
    for (unsigned k = 0; k < n; ++k) {
        unsigned h = heights[k];
        const bool isolated = graph.degree(order[k]) == 0;
        if (h == 0 || count == max_width) {
            // A vertex right after an isolated one does not open a block.
            if (!after_isolated) {
                profile.blocks.emplace_back();
                profile.blocks.back().first = profile.blocks.back().end = k;
                count = 0;
            }
            after_isolated = isolated;
        } else if (after_isolated) {
            after_isolated = isolated;
        }
        block_profile_type& block = profile.blocks.back();
        if (k - h < block.first) {
            reaching.push_back(k);
            h = 0;
        }
        block.want(k, h);
        profile.block_of_vertex[k] = unsigned(profile.blocks.size() - 1);
        ++count;
        block.end = k + 1;
    }
    for (unsigned c : reaching) {
        const unsigned v = order[c];
        for (unsigned p = graph.xadj[v]; p < graph.xadj[v + 1]; ++p) {
            const unsigned r = position[graph.adjncy[p]];
            if (r >= c) continue;
            block_profile_type& b = profile.blocks[profile.block_of_vertex[r]];
            b.want(c, std::min(b.end, c) - r);
        }
    }
}

void symbolic_fill(profile_type& profile)
{
    for (block_profile_type& block : profile.blocks) {
        block.segments.assign(block.pending.begin(), block.pending.end());
        block.pending.clear();
        std::stable_sort(block.segments.begin(), block.segments.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        auto beyond = std::lower_bound(block.segments.begin(), block.segments.end(), block.end,
                                       [](const auto& s, unsigned c) { return s.first < c; });
        if (beyond == block.segments.end()) continue;
        const unsigned c0 = beyond->first;
        block_profile_type& target = profile.blocks[profile.block_of_vertex[c0]];
        // Eliminating this block connects all the columns it reaches: the block of
        // the lowest one receives them all.
        for (auto s = beyond + 1; s != block.segments.end(); ++s)
            target.want(s->first, std::min(s->first, target.end) - c0);
    }
}

void expand_to_DOFs(profile_type& profile, const ordering_graph_type& graph, const std::vector<unsigned>& order)
{
    const unsigned n = unsigned(order.size());
    std::vector<unsigned> offset(std::size_t(n) + 1, 0);
    for (unsigned k = 0; k < n; ++k) offset[k + 1] = offset[k] + graph.weight(order[k]);
    for (block_profile_type& block : profile.blocks) {
        std::vector<std::pair<unsigned, unsigned>> expanded;
        expanded.reserve(block.segments.size() * 3);
        for (const auto& [c, h] : block.segments) {
            const unsigned e = std::min(c, block.end);
            const unsigned len = offset[e] - offset[e - h];
            const unsigned w = graph.weight(order[c]);
            // In the band, each DOF of a vertex also reaches the vertex's preceding DOFs.
            const bool diagonal = c < block.end;
            for (unsigned d = 0; d < w; ++d) expanded.emplace_back(offset[c] + d, diagonal ? len + d : len);
        }
        block.segments.swap(expanded);
        block.first = offset[block.first];
        block.end = offset[block.end];
    }
}

error_type reorder_free_IDs(vector_fast& free_IDs, const ordering_graph_type& graph, const std::vector<unsigned>& order)
{
    try {
        std::vector<unsigned> ids(free_IDs.IDs().begin(), free_IDs.IDs().end()), reordered;
        reordered.reserve(ids.size());
        for (unsigned v : order)
            for (unsigned q = graph.members_ptr[v]; q < graph.members_ptr[v + 1]; ++q)
                reordered.push_back(ids[graph.members[q]]);
        return free_IDs.assign(reordered.data(), unsigned(reordered.size())) ? no_error : memory_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

void profile_memory(const profile_type& profile, std::uint64_t& K_bytes, std::uint64_t& index_bytes)
{
    const std::uint64_t blocks = profile.size(), last_end = blocks ? profile.blocks.back().end : 0;
    index_bytes += (blocks + last_end) * 4 + 28;
    for (const block_profile_type& b : profile.blocks) {
        const std::uint64_t dim = b.end - b.first;
        index_bytes += dim * 8 + 28;
        std::uint64_t v = dim;
        for (const auto& s : b.segments) v += s.second;
        K_bytes += v * 8;
    }
}

double profile_megabytes(std::uint64_t K_bytes, std::uint64_t index_bytes) noexcept
{
    return (double(K_bytes) + double(index_bytes)) * (1.0 / 1048576.0);
}

error_type number_and_profile(const dense1D<unsigned, 8>& model_DOFs, std::vector<unsigned>& element_ptr,
                              std::vector<unsigned>& element_DOFs, const dense1D<unsigned, 8>& prescribed_IDs,
                              bool reuse, vector_fast& free_IDs, profile_type& profile, std::uint64_t& K_bytes,
                              std::uint64_t& index_bytes)
{
    free_IDs.clear();
    profile.clear();
    K_bytes = index_bytes = 0;
    try {
        // The free DOFs: the model's, less the prescribed ones, by identifier.
        std::vector<unsigned> ids(model_DOFs.begin(), model_DOFs.end());
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        std::vector<unsigned> fixed(prescribed_IDs.begin(), prescribed_IDs.end());
        std::sort(fixed.begin(), fixed.end());
        std::vector<unsigned> free;
        free.reserve(ids.size());
        std::set_difference(ids.begin(), ids.end(), fixed.begin(), fixed.end(), std::back_inserter(free));
        if (!free.empty() && free.back() == none) free.pop_back();
        if (!free_IDs.assign(free.data(), unsigned(free.size()))) return memory_error;

        if (!reuse && !free.empty()) {
            ordering_graph_type graph;
            {
                DOF_graph_type dofs;
                if (auto e = DOF_graph(element_ptr, element_DOFs, free_IDs, dofs); e != no_error) return e;
                element_ptr.clear();
                element_ptr.shrink_to_fit();
                if (auto e = compress_graph(dofs.xadj, dofs.adjncy, graph); e != no_error) return e;
            } // the full DOF graph goes here
            std::vector<unsigned> weights(graph.nbr_vertices()), order, position, heights;
            for (unsigned v = 0; v < graph.nbr_vertices(); ++v) weights[v] = graph.weight(v);
            if (auto e = renumber_graph(graph, order_metis_postordered, weights, order, position); e != no_error)
                return e;
            column_heights(graph, order, position, heights);
            split_blocks(graph, heights, order, position, max_block_width, profile);
            symbolic_fill(profile);
            expand_to_DOFs(profile, graph, order);
            profile.block_of_vertex.clear();
            if (auto e = reorder_free_IDs(free_IDs, graph, order); e != no_error) {
                profile.clear();
                return e;
            }
        }
        profile_memory(profile, K_bytes, index_bytes);
        return no_error;
    } catch (const std::bad_alloc&) {
        profile.clear();
        return memory_error;
    }
}

} // namespace kelt::core
