// The local frame of line elements and the turn of element matrices and vectors
// between an element's frame and the global one, three components at a time. Beams,
// shells and every family with nodes of translations and rotations compute in their
// own frame and hand back global blocks through here.
#pragma once

#include <cmath>

#include "kelt/core/bases_mgr.h"
#include "kelt/core/element_records.h"
#include "kelt/core/types.h"

namespace kelt::core {

// The frame of a line from x1 to x2: its columns are the local axes in global
// components, x along the line, y the orientation vector without its x part,
// z = x cross y. A zero length, or an orientation along the line (relative to its
// own size), leaves no frame: the element's geometry is wrong.
[[nodiscard]] inline error_type line_frame(const double (&x1)[3], const double (&x2)[3],
                                           const double (&orientation)[3], frame3& frame, double& length)
{
    double ex[3] = {x2[0] - x1[0], x2[1] - x1[1], x2[2] - x1[2]};
    length = std::sqrt(ex[0] * ex[0] + ex[1] * ex[1] + ex[2] * ex[2]);
    const double on = std::sqrt(orientation[0] * orientation[0] + orientation[1] * orientation[1] +
                                orientation[2] * orientation[2]);
    if (!(length > 0.0) || !(on > 0.0) || !std::isfinite(length) || !std::isfinite(on))
        return element_geometry_error;
    for (double& c : ex) c /= length;
    double ey[3];
    const double along = (orientation[0] * ex[0] + orientation[1] * ex[1] + orientation[2] * ex[2]) / on;
    for (unsigned i = 0; i < 3; ++i) ey[i] = orientation[i] / on - along * ex[i];
    const double yn = std::sqrt(ey[0] * ey[0] + ey[1] * ey[1] + ey[2] * ey[2]);
    // Below this the orientation is the axis up to rounding, and y would be noise.
    if (!(yn > 1e-10)) return element_geometry_error;
    for (double& c : ey) c /= yn;
    const double ez[3] = {ex[1] * ey[2] - ex[2] * ey[1], ex[2] * ey[0] - ex[0] * ey[2], ex[0] * ey[1] - ex[1] * ey[0]};
    for (unsigned i = 0; i < 3; ++i) {
        frame(i, 0) = ex[i];
        frame(i, 1) = ey[i];
        frame(i, 2) = ez[i];
    }
    return no_error;
}

// Ke <- R Ke Rᵀ and Fe <- R Fe, R block-diagonal with `frame` on each of the
// `nbr_blocks` groups of three rows: local components in, global out. Either
// output may be empty. The packed upper triangle stays symmetric by construction.
inline void rotate_to_global(const frame3& frame, unsigned nbr_blocks, symmetric_full<double>& Ke,
                             dense1D<double, 8>& Fe)
{
    if (Ke.size() != 0)
        for (unsigned J = 0; J < nbr_blocks; ++J)
            for (unsigned I = 0; I <= J; ++I) {
                double B[3][3], T[3][3];
                for (unsigned i = 0; i < 3; ++i)
                    for (unsigned j = 0; j < 3; ++j) B[i][j] = Ke(3 * I + i, 3 * J + j);
                for (unsigned i = 0; i < 3; ++i)
                    for (unsigned j = 0; j < 3; ++j) {
                        double s = 0.0;
                        for (unsigned k = 0; k < 3; ++k) s += B[i][k] * frame(j, k);
                        T[i][j] = s;
                    }
                for (unsigned i = 0; i < 3; ++i)
                    for (unsigned j = (I == J ? i : 0); j < 3; ++j) {
                        double s = 0.0;
                        for (unsigned k = 0; k < 3; ++k) s += frame(i, k) * T[k][j];
                        Ke(3 * I + i, 3 * J + j) = s;
                    }
            }
    if (!Fe.empty())
        for (unsigned I = 0; I < nbr_blocks; ++I) {
            const double f[3] = {Fe[3 * I], Fe[3 * I + 1], Fe[3 * I + 2]};
            for (unsigned i = 0; i < 3; ++i) Fe[3 * I + i] = frame(i, 0) * f[0] + frame(i, 1) * f[1] + frame(i, 2) * f[2];
        }
}

} // namespace kelt::core
