// The tables behind element_dim, nbr_nodes and nbr_base_nodes, one row per value of
// element_type in its numeric order.
#include "kelt/core/element_catalogue.h"

namespace kelt {

namespace {

struct element_row {
    unsigned dim, nodes, base_nodes;
};

constexpr element_row element_rows[nbr_element_types] = {
    {0, 0, 0},   // element_none
    {0, 1, 1},   // element_node
    {1, 2, 2},   // element_edge
    {1, 2, 2},   // element_edge2
    {1, 3, 2},   // element_edge3
    {2, 4, 4},   // element_face
    {2, 3, 3},   // element_faceT3
    {2, 4, 4},   // element_faceQ4
    {2, 6, 3},   // element_faceT6
    {2, 8, 4},   // element_faceQ8
    {2, 9, 4},   // element_faceQ9
    {3, 8, 8},   // element_solid
    {3, 4, 4},   // element_tetra4
    {3, 10, 4},  // element_tetra10
    {3, 5, 5},   // element_pyramid5
    {3, 13, 5},  // element_pyramid13
    {3, 14, 5},  // element_pyramid14
    {3, 6, 6},   // element_wedge6
    {3, 15, 6},  // element_wedge15
    {3, 18, 6},  // element_wedge18
    {3, 8, 8},   // element_hexa8
    {3, 20, 8},  // element_hexa20
    {3, 27, 8},  // element_hexa27
};

} // namespace

unsigned element_dim(element_type type) noexcept { return element_rows[type].dim; }
unsigned nbr_nodes(element_type type) noexcept { return element_rows[type].nodes; }
unsigned nbr_base_nodes(element_type type) noexcept { return element_rows[type].base_nodes; }

} // namespace kelt
