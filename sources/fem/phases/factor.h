// Factorisation under a pivot policy, with the pivot report, and solves of many
// columns with the factor.
#pragma once

#include <random>

#include "kelt/core/FEM_matrix.h"
#include "kelt/engine/skyline.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/solver_frame.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

enum class pivot_policy {
    check_positive,        // a pivot at most 0 or not finite stops the factorisation
    force_positive,        // ... is replaced by 1 and the factorisation goes on
    force_definite,        // only a zero or non-finite pivot is replaced: negative ones pass
    force_positive_random, // small ones too, each by a different random value
    count_below,           // as force_definite, silently, counting the pivots below `bound` (Sturm)
};

struct factor_options {
    pivot_policy policy = pivot_policy::check_positive;
    double bound = 0.0;                // of count_below: the shift of the Sturm count
    std::mt19937* generator = nullptr; // of force_positive_random
    // Raise "Pivot warning." on a spread of more than 12 decades; a caller that
    // weighs small pivots itself (per iteration) reads min_row instead.
    bool warn_small_pivots = true;
};

struct factor_report {
    double pivot_min = 0.0;
    double pivot_max = 0.0;
    unsigned bad_DOF = 0xFFFFFFFFu;  // the rejected pivot's, or the smallest one's on a warning
    unsigned nbr_below = 0;          // count_below: pivots under the bound
    unsigned min_row = 0xFFFFFFFFu;  // matrix position of the smallest pivot
    dense1D<unsigned, 8> bad_IDs;    // every DOF whose pivot was rejected or replaced, in matrix order
};

// L D Lᵀ of A in place. "Pivot error." on a rejected pivot, "Pivot warning." when
// the pivots spread over more than 12 decades, "Factorization error." for any other
// failure; the statistics go to `report` in every case. Nothing happens on a record
// that holds an error or an interrupt. The time goes to `timer`.
[[nodiscard]] bool factorise(run_state& run, symmetric_hybrid_OOC<double>& A, const numbering& n,
                             const factor_options& options, factor_report& report, double& timer);

// The statistics of a matrix at log level 3; they count the zeros of the whole
// matrix, so only for a log that someone reads.
void log_matrix_statistics(const run_state& run, const symmetric_hybrid_OOC<double>& A);

// True when some large array of the run went to a swap file.
bool uses_disk(const run_state& run) noexcept;

// A failed allocation with the code the budget gave: "Insufficient memory." when
// the budget is too small, "Memory error." when its swap folder failed, "Matrix
// allocation error." when memory ran out.
void raise_allocation_error(run_state& run, error_type code, const char* file, int line);

// "INF or NaN detected." when a value of the columns is not finite; false then.
[[nodiscard]] bool check_finite(run_state& run, const FEM_real& U, const char* file, int line);

// A copy of A's values on its own profile (under the budget), for a caller that
// needs A unfactored beside its factor. "Matrix allocation error." on failure.
[[nodiscard]] bool copy_for_factor(run_state& run, const indexed_sym_matrix& A, const numbering& n,
                                   indexed_sym_matrix& copy);

// The `count` columns x (each of A's order) replaced by A⁻¹ x, each column's
// xᵀ A⁻¹ x in energies[j], all at once (gathered into one array when they are not
// evenly spaced in memory). "Solver error." on failure.
[[nodiscard]] bool solve_columns(run_state& run, const symmetric_hybrid_OOC<double>& A, double* const* columns,
                                 unsigned count, double* energies);

} // namespace kelt::core
