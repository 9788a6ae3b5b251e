#include "kelt/io/element_orders.h"

namespace kelt::io::detail {

namespace {

// Library corners against the file's: a triangle, a tetrahedron and a wedge put
// their local origin last, the file puts it first. Higher-order nodes follow the
// edges and faces each convention lists.
constexpr unsigned identity[27] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13,
                                   14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26};
constexpr unsigned t3_gmsh[3] = {1, 2, 0};
constexpr unsigned t3_vtk[3] = {2, 0, 1};
constexpr unsigned t6_gmsh[6] = {1, 2, 0, 5, 3, 4};
constexpr unsigned t6_vtk[6] = {2, 0, 1, 4, 5, 3};
constexpr unsigned tet4_gmsh[4] = {1, 2, 3, 0};
constexpr unsigned tet4_vtk[4] = {3, 0, 1, 2};
constexpr unsigned tet10_gmsh[10] = {1, 2, 3, 0, 8, 9, 5, 4, 6, 7};
constexpr unsigned tet10_vtk[10] = {3, 0, 1, 2, 7, 6, 8, 9, 5, 4};
constexpr unsigned pyr14_gmsh[14] = {0, 1, 2, 3, 4, 5, 8, 10, 6, 7, 9, 11, 12, 13};
// VTK's linear wedge turns its first triangle's normal away from the second (its
// volumes come out positive so); its 18-node wedge maps its parametric prism with
// the normal towards the second, as the library does.
constexpr unsigned w6_gmsh[6] = {1, 2, 0, 4, 5, 3};
constexpr unsigned w6_vtk[6] = {0, 2, 1, 3, 5, 4};
constexpr unsigned w18_gmsh[18] = {1, 2, 0, 4, 5, 3, 10, 11, 8, 7, 6, 9, 13, 12, 14, 16, 15, 17};
constexpr unsigned w18_vtk[18] = {0, 1, 2, 3, 4, 5, 11, 9, 10, 14, 12, 13, 6, 7, 8, 17, 15, 16};
constexpr unsigned h27_gmsh[27] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  11, 13, 9,  16, 18,
                                   19, 17, 10, 12, 14, 15, 22, 23, 21, 24, 20, 25, 26};

constexpr element_order orders[] = {
    {element_edge2, 1, "2-node line", 2, 1, identity, 3, 2, identity},
    {element_edge3, 8, "3-node line", 3, 1, identity, 21, 3, identity},
    {element_faceT3, 2, "3-node triangle", 3, 2, t3_gmsh, 5, 3, t3_vtk},
    {element_faceT6, 9, "6-node triangle", 6, 2, t6_gmsh, 22, 6, t6_vtk},
    {element_faceQ4, 3, "4-node quadrangle", 4, 2, identity, 9, 4, identity},
    {element_faceQ9, 10, "9-node quadrangle", 9, 2, identity, 28, 9, identity},
    {element_tetra4, 4, "4-node tetrahedron", 4, 3, tet4_gmsh, 10, 4, tet4_vtk},
    {element_tetra10, 11, "10-node tetrahedron", 10, 3, tet10_gmsh, 24, 10, tet10_vtk},
    {element_pyramid5, 7, "5-node pyramid", 5, 3, identity, 14, 5, identity},
    {element_pyramid14, 14, "14-node pyramid", 14, 3, pyr14_gmsh, 27, 13, identity},
    {element_wedge6, 6, "6-node prism", 6, 3, w6_gmsh, 13, 6, w6_vtk},
    {element_wedge18, 13, "18-node prism", 18, 3, w18_gmsh, 32, 18, w18_vtk},
    {element_hexa8, 5, "8-node hexahedron", 8, 3, identity, 12, 8, identity},
    {element_hexa27, 12, "27-node hexahedron", 27, 3, h27_gmsh, 29, 27, identity},
};

} // namespace

const element_order* order_of(element_type type) noexcept
{
    for (const element_order& o : orders)
        if (o.type == type) return &o;
    return nullptr;
}

const element_order* order_of_gmsh(int gmsh_type) noexcept
{
    for (const element_order& o : orders)
        if (o.gmsh == gmsh_type) return &o;
    return nullptr;
}

const char* gmsh_type_name(int gmsh_type) noexcept
{
    if (const element_order* o = order_of_gmsh(gmsh_type)) return o->name;
    switch (gmsh_type) {
    case 15: return "point";
    case 16: return "8-node quadrangle";
    case 17: return "20-node hexahedron";
    case 18: return "15-node prism";
    case 19: return "13-node pyramid";
    case 20: return "9-node triangle";
    case 21: return "10-node triangle";
    case 26: return "4-node line";
    case 29: return "20-node tetrahedron";
    case 92: return "64-node hexahedron";
    default: return "unknown";
    }
}

} // namespace kelt::io::detail
