// What an engineer reads of a stress tensor (Von Mises value, invariants,
// principal values), the sums of a load's components, the stress of one element
// by its model, and nodal fields written as Medit solution files (.bb).
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::fem {

class context;

// sqrt(I1² - 3 I2), 0 when that is not positive (a hydrostatic tensor).
double compute_Von_Mises_stress(const symmetric_fixed<double, 3>& s);
// One value per column of a 6-row matrix of packed tensors.
[[nodiscard]] error_type compute_Von_Mises_stress(const dense2D<double>& s, dense1D<double, 8>& out);

// out = I1, I2, I3, p = I1²/3 - I2, q = I3 - I1 I2 / 3 + 2 I1³ / 27.
void compute_stress_invariants(const symmetric_fixed<double, 3>& s, dense1D<double, 8>& out);
// One column of 5 per column of a 6-row matrix of packed tensors.
[[nodiscard]] error_type compute_stress_invariants(const dense2D<double>& s, dense2D<double>& out);

// Values in increasing order, unit vectors in the columns of `vectors`. Order 2 in
// closed form (no vectors when a value is not finite), order 3 by LAPACK.
void eigen_pairs(const symmetric_fixed<double, 2>& s, vector_fixed<double, 2>& values,
                 matrix_fixed<double, 2, 2>& vectors);
void eigen_pairs(const symmetric_fixed<double, 3>& s, vector_fixed<double, 3>& values,
                 matrix_fixed<double, 3, 3>& vectors);

// Sum of v[i] over the DOFs IDs[i] of the place of (f, comp); 0 when the sizes
// differ.
double unit_product(const dense1D<double, 8>& v, const dense1D<unsigned, 8>& IDs, field_tag f, unsigned comp);
// The sum of m(i, j) over the rows of that place: m's quadratic form on the unit
// vector of the place.
double unit_product(const symmetric_full<double>& m, const dense1D<unsigned, 8>& IDs, field_tag f, unsigned comp);

// The stress of one element of model NM_ID in the displacements U (3 x nodes,
// like pos; may be empty), the mean over the element's points, in the element's
// own axes, which come back in `basis` (columns). element_type_error without such
// a model, the model's code when it gives no stress.
[[nodiscard]] error_type compute_3D_stress(context& ctx, unsigned NM_ID, unsigned element, const dense2D<double>& pos,
                                           const dense2D<double>& U, matrix_fixed<double, 3, 3>& stress,
                                           matrix_fixed<double, 3, 3>& basis);

// Medit solution file of a node-indexed matrix: header "dim nbr_values nbr_nodes
// 2", then a line of nbr_values values a node, from column state x nbr_values
// (0 for what a row lacks). file_open_error, or invalid_data_error with too few
// columns (the file is then left empty).
[[nodiscard]] error_type medit_nodal(const char* path, const FEM_matrix& M, unsigned nbr_nodes, unsigned state,
                                     unsigned dim, unsigned nbr_values);
// The same for a DOF-indexed matrix: the values of field f at each node in
// column `state`, at most nbr_values of them.
[[nodiscard]] error_type medit_nodal(const char* path, const FEM_matrix& M, field_tag f, unsigned nbr_nodes,
                                     unsigned state, unsigned dim, unsigned nbr_values);

} // namespace kelt::fem
