// What a user can act on when a matrix is singular: the parts of the model that
// nothing holds, found from the connectivity before the factorisation, and the
// zero-energy modes of the stiffness, found from a factor with its bad pivots
// replaced (one back substitution a bad pivot), each named by the nodes that
// move, its kind and the model it belongs to.
#pragma once

#include <vector>

#include "kelt/core/numerical_model_base.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

// Nodes joined by elements, with no DOF held out of the matrix (by the DOF table
// or in every load case) and no element on a single node (a spring to the ground).
struct floating_part {
    unsigned first_node = 0, last_node = 0, nbr_nodes = 0;
    std::vector<unsigned> models; // identifiers of the models whose elements hold it
};

// The floating parts of the model's passes of `kind`, each logged at level 1.
[[nodiscard]] std::vector<floating_part> find_floating_parts(run_state& run, const numerical_model_base& model,
                                                              pass_kind kind, const numbering& n);

enum class mechanism_kind {
    rigid_translation, // a part moves as a whole along `axis`
    rigid_rotation,    // a part turns as a whole about `axis` through `centre`
    free_rotation,     // nodes turn about one axis with nothing to hold them: beam ends free in twist, drilling rotations
    free_translation,  // one node moves alone along one axis
    hinge,             // parts turn against each other
    unheld_field,      // a scalar field (a temperature) that nothing holds
};

struct mechanism {
    mechanism_kind kind = mechanism_kind::hinge;
    unsigned pivot_ID = 0xFFFFFFFFu; // DOF of the bad pivot it comes from
    unsigned first_node = 0, last_node = 0, nbr_nodes = 0;
    unsigned node = 0, component = 0; // of a free rotation or translation: the (first) node and the DOF's place
    double axis[3] = {0.0, 0.0, 0.0};
    double centre[3] = {0.0, 0.0, 0.0};
    std::vector<unsigned> models;
};

// At most this many modes are worked out; the log counts the others.
inline constexpr unsigned max_mechanisms = 12;

// The zero-energy modes of the stiffness of `kind` on the numbering `n`: K
// assembled afresh, factorised with the pivots that lose all but 1e-10 of their
// diagonal replaced by it, and one back substitution Lᵀ z = e_p a bad pivot p.
// Each is logged at level 1, and the first goes before the detail of the record's
// error. Nothing found: empty.
[[nodiscard]] std::vector<mechanism> find_mechanisms(run_state& run, numerical_model_base& model, pass_kind kind,
                                                     const numbering& n, const element_pass_type& pass);

// A line (with its end) that names a part or a mode.
void describe(const floating_part& p, char* text, unsigned size);
void describe(const mechanism& m, char* text, unsigned size);

} // namespace kelt::core
