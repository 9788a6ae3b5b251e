// Projection of point results on the nodes in the least-squares sense: the nodes
// are the unknowns, M = sum over points of w N Nᵀ (a mass-like matrix of unit
// density) on their profile, and one right-hand side sum of w N v per component
// of the values and per state.
#pragma once

#include "kelt/core/FEM_matrix.h"
#include "kelt/core/element_records.h"
#include "kelt/engine/skyline.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

// The node of a projection unknown: its identifier is that of the node's first place.
inline unsigned node_of(unsigned ID) noexcept { return ID / 9; }

// The nodes that the elements of a pass kind touch, as unknowns in solver order,
// with the profile of their matrix. Logs "Nbr nodes"; "Model error." on failure.
[[nodiscard]] bool number_nodes(run_state& run, const numerical_model_base& model, pass_kind kind, numbering& out,
                                double& timer);

// How the point values of a result become the projected components: `count`
// values from row 3 (under the point's coordinates); with `tensor` each six solid
// components (xx, yy, zz, xy, xz, yz) go to packed tensor order, engineering
// shears (strains) halved when `halve_shears`: 6 for a solid's tensor, 12 for
// the two of a plate or shell.
struct projected_field {
    unsigned count = 6;
    bool tensor = false;
    bool halve_shears = false;
};

// M assembled on the numbering's profile by a results pass of `kind` ("Matrix
// allocation error.", "Assembly error."; a family that gives no point shapes is
// an "Assembly error." with element_type_error).
[[nodiscard]] bool assemble_nodal_matrix(run_state& run, numerical_model_base& model, pass_kind kind, unsigned result,
                                         element_pass_type pass, const numbering& n, indexed_sym_matrix& M,
                                         double& timer);

// Columns first .. first + field.count - 1 of `rhs` (rows in solver order) += the
// right-hand sides of the state in `pass.U`.
[[nodiscard]] error_type assemble_nodal_rhs(numerical_model_base& model, pass_kind kind, unsigned result,
                                            element_pass_type pass, const numbering& n, const projected_field& field,
                                            FEM_real& rhs, unsigned first);

} // namespace kelt::core
