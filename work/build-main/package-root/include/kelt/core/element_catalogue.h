// What each element type is, in nodes and dimension: the answers come from tables
// indexed by the enumeration, for hosts and for the library alike.
#pragma once

#include "kelt/core/types.h"

namespace kelt {

// Dimension of the reference cell: 0 for none and node, 1 for lines, 2 for faces,
// 3 for volumes. The argument must be one of the 23 values: there is no range check.
unsigned element_dim(element_type type) noexcept;

// All nodes of the type, the higher-order ones included.
unsigned nbr_nodes(element_type type) noexcept;

// Corner nodes only: the nodes of the linear type of the same cell.
unsigned nbr_base_nodes(element_type type) noexcept;

namespace fem {
using kelt::element_dim;
using kelt::nbr_base_nodes;
using kelt::nbr_nodes;
} // namespace fem

} // namespace kelt
