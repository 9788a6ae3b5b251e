// Numbering and profile of a run's matrix, and the memory requests that follow.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "kelt/core/numerical_model_base.h"
#include "kelt/core/vector_fast.h"
#include "kelt/engine/profile.h"
#include "kelt/fem/solver_frame.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

struct numbering {
    Ptr<vector_fast> free_IDs = new vector_fast; // rank = matrix position
    profile_type profile;
    std::uint64_t K_bytes = 0;
    std::uint64_t index_bytes = 0;
    double K_size_MB = 0.0;

    unsigned size() const noexcept { return free_IDs->size(); }
    // The DOF of a matrix position, 0xFFFFFFFF past the end.
    unsigned ID(unsigned rank) const noexcept { return rank < size() ? (*free_IDs)[rank] : 0xFFFFFFFFu; }
};

// The DOFs of the model for a pass kind that the table leaves free and that are
// not in `excluded`, in solver order, with the profile of their matrix (no
// profile with `order_only`). Logs "Nbr free DOFs"; "Model error." on failure.
// The time goes to `timer`.
[[nodiscard]] bool number_DOFs(run_state& run, const numerical_model_base& model, pass_kind kind,
                               const dense1D<unsigned, 8>& excluded, bool order_only, numbering& out,
                               double& timer);

// The same over the union of several pass kinds, whose matrices are to be summed
// on one profile (an effective matrix of stiffness, mass and damping).
[[nodiscard]] bool number_DOFs(run_state& run, const numerical_model_base& model,
                               std::initializer_list<pass_kind> kinds, const dense1D<unsigned, 8>& excluded,
                               numbering& out, double& timer);

// The two request lines of a matrix and of a set of states.
void log_K_request(const run_state& run, const numbering& n);
void log_states_request(const run_state& run, unsigned long long values, double megabytes);

} // namespace kelt::core
