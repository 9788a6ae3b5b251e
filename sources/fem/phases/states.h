// The internal states of a model's laws across the passes of a run: a converged
// increment commits them, a failed one goes back to the last commit.
#pragma once

#include "kelt/core/FEM_states.h"
#include "kelt/core/element_records.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

// One more pass of `kind` over the state in `pass.U`, with no assembler, after
// which the states it computed become the committed ones. "FEM error." on failure.
[[nodiscard]] bool commit_internal_states(run_state& run, numerical_model_base& model, pass_kind kind,
                                          element_pass_type pass);

// Hands the internal states saved with a state column to the model ("Model
// error." when they do not fit it).
[[nodiscard]] bool restore_internal_states(run_state& run, numerical_model_base& model, const ref_counted* store);

// Before a pass over column `col` of saved states: the model takes that column's
// internal states (none when it has none), so that a state with a history (a
// plastic strain) gives its own forces, stresses and energy rather than those of
// whatever the model last held.
[[nodiscard]] bool load_column_states(run_state& run, numerical_model_base& model, const FEM_real_states* U,
                                      unsigned col);

} // namespace kelt::core
