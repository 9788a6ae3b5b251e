// L D Lᵀ factorisation of a block skyline matrix in place, and the solves with it.
// Inside a block the band is factored by panels of rows; between blocks the work
// is right-looking: a finished block adds its Schur complement to later blocks.
// Blocks of one level of the block elimination tree are independent and run in
// parallel, with the threads left over sharing the work inside a block.
//
// After factorisation an entry above the diagonal at (row i, column c) holds
// L(c, i), and the diagonal holds 1 / D(i).
#pragma once

#include <vector>

#include "kelt/core/types.h"
#include "kelt/engine/pivot.h"
#include "kelt/engine/skyline.h"
#include "kelt/engine/wall_clock.h"

namespace kelt::core {

// Rows of a panel of the band: fixed, so that the order of every sum is a property
// of the matrix alone, not of the threads or the cache.
inline constexpr unsigned factor_panel_rows = 128;

// Factorises A under the pivot policy of `checker`, which receives the statistics.
template <class Checker>
[[nodiscard]] error_type factorize(symmetric_hybrid_OOC<double>& A, Checker& checker, unsigned LLC_size,
                                   unsigned nbr_threads);

// Solves L y = x, scales y by D⁻¹ in place, and returns xᵀ A⁻¹ x.
double forward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads);
// Solves Lᵀ z = y in place.
[[nodiscard]] error_type backward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads);
// The same on `cols` columns of leading dimension `ld`; energies[j] gets column j's.
void forward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols, double* energies,
                   unsigned LLC_size, unsigned nbr_threads);
[[nodiscard]] error_type backward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols,
                                        unsigned LLC_size, unsigned nbr_threads);
// x = A⁻¹ b with the energy bᵀ A⁻¹ b; rows in `fixed_rows` are then set to 0.
[[nodiscard]] error_type solve_single(const symmetric_hybrid_OOC<double>& A, const double* b, double* x,
                                      double& energy, const std::vector<unsigned>& fixed_rows, unsigned nbr_threads);

// The solvers' factorisation step: the policy chosen by `force` (replace a bad
// pivot by 1, or stop), the pivot extremes into the record, "Pivot error." with
// the DOF of the first bad pivot, or "Pivot warning." when the pivots spread over
// more than 12 decades, the DOF concerned in `bad_DOF`; the time goes to `timer`. Nothing happens on a record that
// already holds an error or an interrupt.
template <class Solver>
void factorize_matrix(symmetric_hybrid_OOC<double>& A, const vector_fast& IDs, bool force, Solver& solver,
                      double& timer, unsigned& bad_DOF);

extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_check_positive&, unsigned, unsigned);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive&, unsigned, unsigned);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_definite&, unsigned, unsigned);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive_rnd&, unsigned, unsigned);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<false>&, unsigned,
                                     unsigned);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<true>&, unsigned,
                                     unsigned);

template <class Solver>
void factorize_matrix(symmetric_hybrid_OOC<double>& A, const vector_fast& IDs, bool force, Solver& solver,
                      double& timer, unsigned& bad_DOF)
{
    auto& data = *solver.data;
    if (data.error_code != no_error || data.warning_code == interrupted_warning) return;
    const double start = wall_clock();
    const unsigned LLC = solver.context->process_mgr->LLC_size, threads = solver.context->process_mgr->max_threads;
    pivot_force_positive replacing;
    pivot_check_positive stopping;
    pivot_checker_base& checker = force ? static_cast<pivot_checker_base&>(replacing) : stopping;
    const error_type e = force ? factorize(A, replacing, LLC, threads) : factorize(A, stopping, LLC, threads);
    log_pivot_events(checker.events, [&](unsigned level, const char* line) { solver.log(level, "%s", line); });
    data.pivot_min = checker.min_value;
    data.pivot_max = checker.max_value;
    auto ID_at = [&](unsigned rank) { return rank < IDs.size() ? IDs[rank] : 0xFFFFFFFFu; };
    if (checker.bad_index != 0xFFFFFFFFu) {
        solver.raise_error(pivot_error, "Pivot error.", __FILE__, __LINE__);
        bad_DOF = ID_at(checker.bad_index);
    } else if (e == no_error && data.pivot_max * 1e-12 > data.pivot_min && checker.min_index != 0xFFFFFFFFu) {
        if (data.warning_code == no_error && data.error_code == no_error) bad_DOF = ID_at(checker.min_index);
        solver.raise_warning(pivot_warning, "Pivot warning.");
    }
    if (e != no_error && e != pivot_error) solver.raise_error(e, "Factorization error.", __FILE__, __LINE__);
    timer += wall_clock() - start;
}

} // namespace kelt::core
