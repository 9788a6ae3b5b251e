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

// Told of the progress by the thread that called `factorize`, between blocks (or
// levels of blocks run in parallel): the flops of the blocks finished and of all
// (factor_cost.h). False ends the factorisation with `interrupted_warning`,
// leaving the matrix half factored.
class factor_progress {
public:
    virtual ~factor_progress() = default;
    virtual bool advance(double flops_done, double flops_total) = 0;
    // False when only the stop matters: the flops are then not counted (0, 0).
    virtual bool counts_flops() const { return true; }
};

// Factorises A under the pivot policy of `checker`, which receives the statistics.
// Without `progress` nothing is counted.
template <class Checker>
[[nodiscard]] error_type factorize(symmetric_hybrid_OOC<double>& A, Checker& checker, unsigned LLC_size,
                                   unsigned nbr_threads, factor_progress* progress = nullptr);

// Solves L y = x and scales y by D⁻¹ in place; `energy` gets xᵀ A⁻¹ x.
[[nodiscard]] error_type forward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads,
                                 double& energy);
// Solves Lᵀ z = y in place.
[[nodiscard]] error_type backward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads);
// The same on `cols` columns of leading dimension `ld`, by groups of columns that
// read the factor once a group, the groups shared among the threads; energies[j]
// gets column j's. Each column's result is the same whatever the threads, and
// equal to the single-column solve to rounding.
[[nodiscard]] error_type forward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols,
                                       double* energies, unsigned LLC_size, unsigned nbr_threads);
[[nodiscard]] error_type backward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols,
                                        unsigned LLC_size, unsigned nbr_threads);
// x = A⁻¹ b with the energy bᵀ A⁻¹ b; rows in `fixed_rows` are then set to 0.
[[nodiscard]] error_type solve_single(const symmetric_hybrid_OOC<double>& A, const double* b, double* x,
                                      double& energy, const std::vector<unsigned>& fixed_rows, unsigned nbr_threads);

extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_check_positive&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_definite&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive_rnd&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_relative&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<false>&, unsigned, unsigned,
                                     factor_progress*);
extern template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<true>&, unsigned, unsigned,
                                     factor_progress*);

} // namespace kelt::core
