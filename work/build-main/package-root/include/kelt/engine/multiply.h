// Products with a block skyline matrix.
#pragma once

#include "kelt/engine/skyline.h"

namespace kelt::core {

// y += factor * A x, over the whole matrix (both triangles). The result is the
// same, to the last bit, for every thread count (unless memory for a few sums
// runs out); factor 0 or not a number, or an empty matrix, leaves y as it is.
void multiply(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y, unsigned nbr_threads);

// The same, then for each fixed row r: energy += x[r] * y[r] and y[r] = 0; the
// energy is returned times 0.5 / factor. With factor 0 or not a number there is no
// product, but the fixed rows are still cleared. Rows beyond the matrix are ignored.
double multiply_fixed(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y,
                      const unsigned* fixed_rows, unsigned nbr_fixed, unsigned nbr_threads);

} // namespace kelt::core
