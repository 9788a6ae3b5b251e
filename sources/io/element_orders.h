// The node orders of the element types in the files the library reads and writes,
// against its own (kelt::elfes shapes): a table per type, one place for all.
#pragma once

#include "kelt/core/types.h"

namespace kelt::io::detail {

struct element_order {
    element_type type;
    int gmsh;                  // the type number in .msh files
    const char* name;          // for messages
    unsigned nbr_nodes;
    unsigned dim;
    const unsigned* from_gmsh; // library node a is the file's node from_gmsh[a]
    unsigned char vtk;         // the VTK cell type
    unsigned vtk_nodes;        // nodes written (a 14-node pyramid goes out as 13)
    const unsigned* to_vtk;    // VTK node k is library node to_vtk[k]
};

// Null for a type without a row.
const element_order* order_of(element_type type) noexcept;
const element_order* order_of_gmsh(int gmsh_type) noexcept;
// The name of a .msh element type the library cannot take, for messages.
const char* gmsh_type_name(int gmsh_type) noexcept;

} // namespace kelt::io::detail
