// What a run will need, from its numbering, and the check of that against the
// context's budget and the swap folder's free space before anything is assembled.
#pragma once

#include "kelt/core/context.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/run_estimate.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

// The needs of a static run of `cases` load cases on the numbering `n`; with
// `with_cost`, also the flops and the time from the context's measured rate
// (measured now if never).
fem::run_estimate estimate_needs(run_state& run, const numbering& n, const prescribed_set& prescribed,
                                 unsigned cases, bool with_cost);

// "Insufficient memory." when the budget cannot hold the least windows of the run,
// or the swap folder cannot take what goes to disk, with both figures in the
// detail; false then.
[[nodiscard]] bool check_needs(run_state& run, const fem::run_estimate& needs);

// Flops a second of the factorisation on this machine: a dense block factorised
// a few times, the best kept in the context.
double factor_rate(context_type& context);

// The whole estimate of a linear static run of `problem` (the numbering alone),
// without touching the model's states.
[[nodiscard]] error_type estimate_static_run(problem_data& problem, fem::run_estimate& out);

} // namespace kelt::core
