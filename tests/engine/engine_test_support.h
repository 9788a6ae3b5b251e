// Small models for the engine tests: a connectivity in DOFs, a random symmetric
// positive definite matrix on it, and a dense copy to check against.
#pragma once

#include <random>
#include <vector>

#include "kelt/engine/profile.h"
#include "kelt/engine/skyline.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::test {

struct dof_model {
    std::vector<unsigned> DOFs;        // identifiers in use
    std::vector<unsigned> element_ptr; // compressed rows
    std::vector<unsigned> element_DOFs;
};

// A structured grid of nx x ny x nz nodes, `per_node` DOFs a node (identifiers
// node * 9 + c), one element per cell over its corner nodes.
dof_model grid_model(unsigned nx, unsigned ny, unsigned nz, unsigned per_node);
// `elements` random elements of 2 to `max_size` DOFs among `n` identifiers spread
// with gaps, some identifiers left isolated.
dof_model random_model(unsigned n, unsigned elements, unsigned max_size, unsigned seed);

struct numbered {
    vector_fast free_IDs;
    core::profile_type profile;
    std::uint64_t value_bytes = 0, index_bytes = 0;
};
numbered number(dof_model model, const std::vector<unsigned>& prescribed = {});

// A random SPD matrix assembled element by element into A (by rank) and into the
// dense `reference` (n x n, column-major).
void assemble_random_spd(const dof_model& model, const vector_fast& free_IDs, core::symmetric_hybrid_OOC<double>& A,
                         std::vector<double>& reference, unsigned seed);

// L D Lᵀ rebuilt densely from a factored matrix.
std::vector<double> rebuild(const core::symmetric_hybrid_OOC<double>& A);

// Count of the nonzeros of the Cholesky factor of the dense pattern, diagonal
// included, by plain symbolic elimination.
std::size_t brute_force_factor_count(const std::vector<double>& reference, unsigned n);

double max_abs(const std::vector<double>& v);

// An element matrix with the DOF identifiers of its rows.
struct element_matrix {
    dense1D<unsigned, 8> IDs;
    symmetric_full<double> Ke;
};
// For each element of the model, Gᵀ G + I with G uniform in [-1, 1] over all its
// DOFs (prescribed ones too): symmetric positive definite.
std::vector<element_matrix> random_element_matrices(const dof_model& model, unsigned seed);

// The sum of the elements' Lᵀ Ke L over the DOFs of `rows`, dense (n x n,
// column-major, both triangles), with the sum of |Ke| and the number of terms of
// each entry, which bound the rounding of any other order of summation.
struct dense_sum_type {
    unsigned n = 0;
    std::vector<double> sum, magnitude;
    std::vector<unsigned> terms;
    double operator()(unsigned i, unsigned j) const { return sum[i + std::size_t(j) * n]; }
};
dense_sum_type dense_sum(const std::vector<element_matrix>& elements, const vector_fast& rows);

// x = A⁻¹ b for a dense n x n column-major matrix, by Gaussian elimination with
// partial pivoting.
std::vector<double> dense_solve(std::vector<double> A, std::vector<double> b, unsigned n);

} // namespace kelt::test
