// Renumbering and block profile: from the model's connectivity in DOFs to the
// final order of the free DOFs and the complete shape of the factor, fill
// included. The chain runs on compressed vertices (about one a node) and is
// expanded to DOFs at the end.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelt/core/fnv1a_hash.h"
#include "kelt/core/types.h"
#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

struct ordering_graph_type {
    std::vector<unsigned> xadj;          // vertices + 1 offsets; no self loops
    std::vector<unsigned> adjncy;
    std::vector<unsigned> vertex_of_DOF; // one per free DOF rank
    std::vector<unsigned> members_ptr;   // vertices + 1
    std::vector<unsigned> members;       // DOF ranks of each vertex, in merge order

    unsigned nbr_vertices() const noexcept { return xadj.empty() ? 0 : unsigned(xadj.size() - 1); }
    unsigned degree(unsigned v) const noexcept { return xadj[v + 1] - xadj[v]; }
    unsigned weight(unsigned v) const noexcept { return members_ptr[v + 1] - members_ptr[v]; }
};

struct block_profile_type {
    std::vector<std::pair<unsigned, unsigned>> segments; // (column, height), sorted by column once built
    unsigned first = 0, end = 0;                         // diagonal columns first .. end - 1
    std::unordered_map<unsigned, unsigned, fnv1a_hash> pending;

    // Raises the height wanted for a column.
    void want(unsigned column, unsigned height)
    {
        auto [it, fresh] = pending.try_emplace(column, height);
        if (!fresh && it->second < height) it->second = height;
    }
};

struct profile_type {
    std::vector<block_profile_type> blocks;
    std::vector<unsigned> block_of_vertex; // by compressed position, used while building

    unsigned size() const noexcept { return unsigned(blocks.size()); }
    void clear()
    {
        blocks.clear();
        block_of_vertex.clear();
    }
};

// Row i of the DOF graph lists its neighbours, itself included, in order of first meeting.
struct DOF_graph_type {
    std::vector<unsigned> xadj;
    std::vector<unsigned> adjncy;
};

inline constexpr unsigned max_block_width = 600;
inline constexpr unsigned order_random = 0;
inline constexpr unsigned order_metis = 4;
inline constexpr unsigned order_metis_postordered = 5;

// Element rows of DOF identifiers are rewritten in place as ranks (0xFFFFFFFF when
// not free), then the DOF adjacency is built.
[[nodiscard]] error_type DOF_graph(const std::vector<unsigned>& element_ptr, std::vector<unsigned>& element_DOFs,
                                   const vector_fast& free_IDs, DOF_graph_type& graph);
// Merges vertices with identical closed adjacency.
[[nodiscard]] error_type compress_graph(const std::vector<unsigned>& xadj, const std::vector<unsigned>& adjncy,
                                        ordering_graph_type& graph);
// order[k] is the vertex at position k, position its inverse.
[[nodiscard]] error_type renumber_graph(const ordering_graph_type& graph, unsigned mode,
                                        const std::vector<unsigned>& vertex_weights, std::vector<unsigned>& order,
                                        std::vector<unsigned>& position);
void column_heights(const ordering_graph_type& graph, const std::vector<unsigned>& order,
                    const std::vector<unsigned>& position, std::vector<unsigned>& heights);
void split_blocks(const ordering_graph_type& graph, const std::vector<unsigned>& heights,
                  const std::vector<unsigned>& order, const std::vector<unsigned>& position, unsigned max_width,
                  profile_type& profile);
void symbolic_fill(profile_type& profile);
void expand_to_DOFs(profile_type& profile, const ordering_graph_type& graph, const std::vector<unsigned>& order);
[[nodiscard]] error_type reorder_free_IDs(vector_fast& free_IDs, const ordering_graph_type& graph,
                                          const std::vector<unsigned>& order);
// Adds the bytes of the values of a matrix on the profile to `K_bytes`, and of its
// indices to `index_bytes`.
void profile_memory(const profile_type& profile, std::uint64_t& K_bytes, std::uint64_t& index_bytes);

// The whole chain on a model given as plain arrays: the listing of its DOFs and its
// connectivity in DOFs (compressed rows, element to DOF identifiers; consumed).
// `reuse` only builds the table of free DOFs.
[[nodiscard]] error_type number_and_profile(const dense1D<unsigned, 8>& model_DOFs,
                                            std::vector<unsigned>& element_ptr, std::vector<unsigned>& element_DOFs,
                                            const dense1D<unsigned, 8>& prescribed_IDs, bool reuse,
                                            vector_fast& free_IDs, profile_type& profile, std::uint64_t& K_bytes,
                                            std::uint64_t& index_bytes);

// Size in megabytes of a matrix on the profile, as the solvers log it.
double profile_megabytes(std::uint64_t K_bytes, std::uint64_t index_bytes) noexcept;

} // namespace kelt::core
