// A box [0, lx] x [0, ly] x [0, lz] in a structured grid of hexa27 elements, for
// the examples that build their mesh in code (copy it with them): positions,
// connectivity in the library's node order, and the weights of a uniform load.
#pragma once

#include <kelt/math/dense2D.h>

#include <array>
#include <vector>

namespace kelt::examples {

// Node order of a hexa27 as positions -1, 0, 1 along each local axis: the eight
// corners, the midpoints of the twelve edges, the centres of the six faces, then
// the centre.
struct hexa27_layout {
    std::array<std::array<int, 3>, 27> at{};

    hexa27_layout()
    {
        const int corners[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                   {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
        const unsigned edges[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                       {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
        const unsigned faces[6][4] = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1},
                                      {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};
        for (unsigned n = 0; n < 8; ++n)
            for (unsigned k = 0; k < 3; ++k) at[n][k] = corners[n][k];
        for (unsigned e = 0; e < 12; ++e)
            for (unsigned k = 0; k < 3; ++k) at[8 + e][k] = (corners[edges[e][0]][k] + corners[edges[e][1]][k]) / 2;
        for (unsigned f = 0; f < 6; ++f)
            for (unsigned k = 0; k < 3; ++k) {
                int s = 0;
                for (unsigned c : faces[f]) s += corners[c][k];
                at[20 + f][k] = s / 4;
            }
        at[26] = {0, 0, 0};
    }
};

// The nodes are the points of a grid twice as fine as the elements.
struct hexa27_grid {
    unsigned ex, ey, ez; // elements along x, y, z
    double lx, ly, lz;   // the box

    unsigned gx() const { return 2 * ex + 1; }
    unsigned gy() const { return 2 * ey + 1; }
    unsigned gz() const { return 2 * ez + 1; }
    unsigned node(unsigned i, unsigned j, unsigned k) const { return (k * gy() + j) * gx() + i; }
    unsigned nbr_nodes() const { return gx() * gy() * gz(); }

    dense2D<double> positions() const
    {
        dense2D<double> pos(3, nbr_nodes());
        for (unsigned k = 0; k < gz(); ++k)
            for (unsigned j = 0; j < gy(); ++j)
                for (unsigned i = 0; i < gx(); ++i) {
                    const unsigned n = node(i, j, k);
                    pos(0, n) = lx * i / (gx() - 1);
                    pos(1, n) = ly * j / (gy() - 1);
                    pos(2, n) = lz * k / (gz() - 1);
                }
        return pos;
    }

    dense2D<unsigned> connectivity() const
    {
        const hexa27_layout layout;
        dense2D<unsigned> mesh(27, ex * ey * ez);
        unsigned e = 0;
        for (unsigned k = 0; k < ez; ++k)
            for (unsigned j = 0; j < ey; ++j)
                for (unsigned i = 0; i < ex; ++i, ++e)
                    for (unsigned a = 0; a < 27; ++a)
                        mesh(a, e) = node(2 * i + 1 + layout.at[a][0], 2 * j + 1 + layout.at[a][1],
                                          2 * k + 1 + layout.at[a][2]);
        return mesh;
    }

    // Weights of a uniform load on a line of quadratic elements, by grid point:
    // Simpson's 1/6, 4/6, 1/6 of each element's length, so that they sum to 1.
    static std::vector<double> line_weights(unsigned elements)
    {
        std::vector<double> w(2 * elements + 1, 0.0);
        for (unsigned e = 0; e < elements; ++e) {
            w[2 * e] += 1.0 / (6.0 * elements);
            w[2 * e + 1] += 4.0 / (6.0 * elements);
            w[2 * e + 2] += 1.0 / (6.0 * elements);
        }
        return w;
    }
};

} // namespace kelt::examples
