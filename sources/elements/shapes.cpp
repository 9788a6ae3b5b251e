// Compile-time checks of the shape classes: each one is built as a constant, and
// every function is 1 at its own node and 0 at the others, so a slip in a node
// table or in a family's construction stops the build.
#include "kelt/elements/shapes.h"

namespace kelt::elfes {

namespace {

template <class Shape>
constexpr bool kronecker_at_nodes()
{
    constexpr Shape shape{};
    for (unsigned b = 0; b < Shape::nbr_nodes; ++b) {
        double N[Shape::nbr_nodes] = {};
        shape.values(Shape::node_point(b), N);
        for (unsigned a = 0; a < Shape::nbr_nodes; ++a) {
            const double expected = a == b ? 1.0 : 0.0;
            const double e = N[a] - expected;
            if (e > 1e-14 || e < -1e-14) return false;
        }
    }
    return true;
}

static_assert(kronecker_at_nodes<shape_edge2>());
static_assert(kronecker_at_nodes<shape_edge3>());
static_assert(kronecker_at_nodes<shape_faceT3>());
static_assert(kronecker_at_nodes<shape_faceQ4>());
static_assert(kronecker_at_nodes<shape_faceT6>());
static_assert(kronecker_at_nodes<shape_faceQ9>());
static_assert(kronecker_at_nodes<shape_tetra4>());
static_assert(kronecker_at_nodes<shape_tetra10>());
static_assert(kronecker_at_nodes<shape_pyramid5>());
static_assert(kronecker_at_nodes<shape_pyramid14>());
static_assert(kronecker_at_nodes<shape_wedge6>());
static_assert(kronecker_at_nodes<shape_wedge18>());
static_assert(kronecker_at_nodes<shape_hexa8>());
static_assert(kronecker_at_nodes<shape_hexa27>());

} // namespace

} // namespace kelt::elfes
