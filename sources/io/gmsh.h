// Meshes from Gmsh: .msh files of format 4.1 (text or binary) and 2.2 (text), read
// into what `init` and the DOF and load managers take.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kelt/core/types.h"
#include "kelt/io/file_status.h"
#include "kelt/math/dense2D.h"

namespace kelt::io {

// The elements of one type in one physical group, in the library's node order:
// a connectivity ready for a model's `init` (nodes per element x elements, node
// indices = columns of the positions).
struct mesh_block {
    std::string name; // the group's name; "" when it has none (or for elements in no group)
    int dim = 0;      // the group's dimension
    int tag = 0;      // the group's number in the file; 0 for elements in no group
    element_type type = element_none;
    dense2D<unsigned> cells;
    std::vector<std::size_t> element_tags; // the file's number of each element
};

// The nodes of every element of a physical group, points included: for supports
// and loads. Sorted, each once.
struct node_group {
    std::string name;
    int dim = 0;
    int tag = 0;
    std::vector<unsigned> nodes;
};

struct mesh_data {
    dense2D<double> positions;          // 3 x nodes, in the file's order of nodes
    std::vector<std::size_t> node_tags; // the file's number of each node
    std::vector<mesh_block> blocks;     // by group (dimension, number), then type
    std::vector<node_group> groups;     // by dimension, then number

    // Null when absent. A name may have blocks of several types.
    const mesh_block* block(std::string_view name, element_type type) const noexcept;
    const node_group* group(std::string_view name) const noexcept;
};

// Reads the whole file; on any fault `out` is left as it was and the status says
// where and why.
file_status read_gmsh(const std::string& path, mesh_data& out);

} // namespace kelt::io
