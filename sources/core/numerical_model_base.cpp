#include "kelt/core/numerical_model_base.h"

#include "kelt/core/context.h"

namespace kelt::core {

numerical_model_base::numerical_model_base() noexcept = default;

numerical_model_base::numerical_model_base(context_type* context_) noexcept : context(context_) {}

numerical_model_base::~numerical_model_base() = default;

unsigned numerical_model_base::nbr_elements() const { return 0; }

double numerical_model_base::get_stiffness_scale(field_tag) const { return 0.0; }

void numerical_model_base::clear_internal_states() {}

error_type numerical_model_base::run_element_loads(const elementary_load&, load_pass_type&) { return no_error; }

error_type numerical_model_base::record()
{
    if (!context) return invalid_data_error;
    Ptr<numerical_models_mgr> mgr = context->numerical_models_mgr;
    return mgr->record(this, ID, nbr_elements());
}

} // namespace kelt::core
