// Phases that read the problem of a run: its model and load cases, the output
// states it fills, and the prescribed DOFs of each case.
#pragma once

#include <vector>

#include "kelt/core/FEM_states.h"
#include "kelt/core/problem_data.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_frame.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

// The problem that a record shares.
template <class Data>
problem_data* problem_of(const Data& data) noexcept
{
    return static_cast<problem_data*>(fem::core_of(data));
}

// The run takes the problem, its penalties and a clean model: the model, or null
// when the problem has no load case or names no model (nothing to do then).
numerical_model_base* take_problem(run_state& run, problem_data* problem);

// The core object of a record's output states, made if the handle has none,
// emptied.
FEM_real_states& output_states(fem::FEM_states& handle);
// The core object of a record's output matrix, made if the handle has none,
// emptied.
FEM_real& output_matrix(fem::FEM_matrix& handle);
// The core object of an input state, null when the handle has none.
FEM_real_states* input_states(const fem::FEM_states& handle) noexcept;

// The prescribed DOFs of every load case, sorted and unique, one case after the
// other, and those common to all cases.
struct prescribed_set {
    dense1D<unsigned, 8> IDs;
    std::vector<unsigned> offsets; // case i owns IDs[offsets[i]] .. IDs[offsets[i + 1] - 1]
    dense1D<unsigned, 8> common;

    unsigned nbr_cases() const noexcept { return offsets.empty() ? 0u : unsigned(offsets.size() - 1); }
    bool empty(unsigned i) const noexcept { return offsets[i] == offsets[i + 1]; }
    const unsigned* begin(unsigned i) const noexcept { return IDs.begin() + offsets[i]; }
    const unsigned* end(unsigned i) const noexcept { return IDs.begin() + offsets[i + 1]; }
};

prescribed_set collect_prescribed(const problem_data& problem);

// A new core object for an output matrix, one row per identifier (each once) and
// `cols` columns of 0, attached to the handle; null, with the handle emptied,
// when memory fails.
FEM_real* output_matrix(fem::FEM_matrix& handle, const dense1D<unsigned, 8>& IDs, unsigned cols);

} // namespace kelt::core
