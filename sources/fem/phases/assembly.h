// Assembly phases: a matrix of any pass kind and mode on a profile, a vector
// through the element loop, the right-hand side of a load case at a time, and the
// product of the model's matrix with a vector.
#pragma once

#include <vector>

#include "kelt/core/FEM_states.h"
#include "kelt/core/element_records.h"
#include "kelt/engine/assemblers.h"
#include "kelt/engine/skyline.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

// A pass over all elements at `time` with the problem's positions and penalties,
// no assembler: the caller sets what it wants computed.
element_pass_type make_pass(const problem_data& problem, double time = 0.0);

// Column `col` of a state matrix as an element pass reads it; empty when there is none.
DOF_values_view state_view(const FEM_real_states* states, unsigned col);

// A pass on column `col` of a state matrix with the thermal loads kept with that
// column, which the laws see as strains: the stresses, energies and internal
// forces of a heated state.
element_pass_type column_pass(const problem_data& problem, const FEM_real_states* states, unsigned col);

// A's values, zeros on the numbering's profile, under the context's budget
// ("Matrix allocation error." and its kin); false then.
[[nodiscard]] bool allocate_matrix(run_state& run, const numbering& n, indexed_sym_matrix& A);

// A matrix on the numbering's profile, under the context's budget ("Matrix
// allocation error."), filled by the element loop of `kind` with `pass` (whose
// matrix_mode says which matrix: tangent, material, geometric, ...) scaled by
// `factor` ("Assembly error."). With `add`, A keeps its values and the pass adds
// to them (K - s M from two passes). The time goes to `timer`; the caller makes the
// stop check before and writes its log line after, also on failure.
[[nodiscard]] bool assemble_matrix(run_state& run, numerical_model_base& model, pass_kind kind,
                                   element_pass_type pass, const numbering& n, indexed_sym_matrix& A,
                                   double& timer, double factor = 1.0, bool add = false);

// target += the vector of a pass of `kind` (internal forces with a state in
// `pass.U`, thermal loads with `pass.thermal`); the pass's elastic energy in
// `energy` when asked.
[[nodiscard]] error_type assemble_vector(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                                         indexed_vector& target, double factor = 1.0, double* energy = nullptr);

// The matrix of `kind` split in one element sweep between the interior DOFs of
// the numbering and the `masters`: the interior block into A (allocated on the
// profile), the master block into Kmm (zeroed, of the masters' order), the
// coupling block as entries sorted by master, then by interior rank, repeats
// summed; `Kim_start[k]` is the first entry of master k ("Assembly error."). The
// time goes to `timer`.
[[nodiscard]] bool assemble_split_matrix(run_state& run, numerical_model_base& model, pass_kind kind,
                                         element_pass_type pass, const numbering& n, const vector_fast& masters,
                                         indexed_sym_matrix& A, symmetric_full<double>& Kmm,
                                         std::vector<coupling_entry>& Kim, std::vector<std::size_t>& Kim_start,
                                         double& timer);

// The tangent of `kind` at the state in `pass.U` into A (zeros on the profile
// first) and, in the same sweep, the opposite of the internal forces into
// `residual`: what an iteration of a non-linear solver needs. The pass's elastic
// energy comes back in `energy`; "FEM error." on a failure of the elements. The
// time goes to `timer`.
[[nodiscard]] bool assemble_tangent(run_state& run, numerical_model_base& model, pass_kind kind,
                                    element_pass_type pass, const numbering& n, indexed_sym_matrix& A,
                                    indexed_vector& residual, double& energy, double& timer);

// The right-hand side of load case i at `time` into `target`, zeroed first: the
// case's loads with `state` as the model's state, then what its thermal loads
// give through a pass of `thermal_kind`. `skipped` counts the loads that found no
// DOF or element. Without `with_thermal` the thermal loads are left to the
// caller's internal-force passes, which see them as a strain.
[[nodiscard]] error_type assemble_loads(const problem_data& problem, numerical_model_base& model,
                                        pass_kind thermal_kind, unsigned i, double time,
                                        const DOF_values_view& state, indexed_vector& target, unsigned& skipped,
                                        bool with_thermal = true);

// Every column of U (its rows and thermal loads set) filled with its load case
// at `time`, a stop check before each; "Assembly error." on failure. Logs the
// phase's time (in `timer`) and how many loads found no DOF or element.
[[nodiscard]] bool assemble_load_cases(run_state& run, numerical_model_base& model, pass_kind thermal_kind,
                                       double time, const DOF_values_view& state, FEM_real_states& U, double& timer);

// y += -A x, with A the model's matrix of `kind`, through the element loop: x and
// y are vectors over `rows`, read and written on the given row ranges. The
// energy of the pass comes back in `energy`.
[[nodiscard]] error_type multiply_by_model(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                                           const Ptr<vector_fast>& rows, const double* x,
                                           matrix_product_assembler::row_range x_rows, double* y,
                                           matrix_product_assembler::row_range y_rows, double& energy);

// y += -A x, with A the model's matrix of `kind` at the state in `pass.U` (a
// tangent, for a model that has a state), through the element loop; x and y as
// in multiply_by_model.
[[nodiscard]] error_type multiply_at_state(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                                           const vector_fast& rows, const double* x,
                                           matrix_product_assembler::row_range x_rows, double* y,
                                           matrix_product_assembler::row_range y_rows);

} // namespace kelt::core
