// The record with which a load case hands its element loads to the models: the
// right-hand side, the factor and time of the operation, the case, and the element
// being loaded. Solvers that have a full element pass hang it here for the
// element layer, which reads positions and states from it.
#pragma once

#include "kelt/core/assembler_base.h"
#include "kelt/core/numerical_model_base.h"
#include "kelt/core/vector_fast.h"

namespace kelt::core {

struct load_pass_type {
    load_pass_type(vector_assembler_base& assembler_, double factor_, double time_, unsigned case_index_) noexcept
        : assembler(assembler_), factor(factor_), time(time_), case_index(case_index_)
    {
    }

    vector_assembler_base& assembler;
    double factor;
    double time;
    // Column of the target that this case fills; no_case skips the case.
    unsigned case_index;
    // Set by the load case before each call of a model.
    unsigned element = all_elements;
    // The solver's element pass, when it has one: null otherwise.
    element_pass_type* element_pass = nullptr;
    // The rows of the target when the caller knows them; a DOF load whose
    // identifier has no row there reaches nothing. Null: DOF loads are not judged.
    const vector_fast* rows = nullptr;
    // Loads that reached nothing and were passed over: on a DOF without a row (a
    // node the model does not have, a blocked DOF, a rotation of a solid), on an
    // element index past the end of its model, or on a model that does not exist.
    unsigned nbr_skipped = 0;

    static constexpr unsigned no_case = 0xFFFFFFFFu;
};

} // namespace kelt::core
