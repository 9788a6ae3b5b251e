#include "kelt/fem/phases/states.h"

#include "kelt/core/internal_states.h"

namespace kelt::core {

bool commit_internal_states(run_state& run, numerical_model_base& model, pass_kind kind, element_pass_type pass)
{
    pass.matrix = nullptr;
    pass.vector = nullptr;
    pass.matrix_mode = matrix_none;
    pass.commit = true;
    if (const error_type e = model.run_elements(kind, pass); e != no_error) {
        KELT_RAISE(run, e, "FEM error.");
        return false;
    }
    return true;
}

bool restore_internal_states(run_state& run, numerical_model_base& model, const ref_counted* store)
{
    const auto* states = dynamic_cast<const internal_states*>(store);
    if (!states) return true;
    if (const error_type e = model.set_internal_states(*states); e != no_error) {
        KELT_RAISE(run, e, "Model error.");
        return false;
    }
    return true;
}

bool load_column_states(run_state& run, numerical_model_base& model, const FEM_real_states* U, unsigned col)
{
    if (!U || !model.has_internal_states()) return true;
    model.clear_internal_states();
    return restore_internal_states(run, model, U->internal_state(col));
}

} // namespace kelt::core
