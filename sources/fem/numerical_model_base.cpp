#include "kelt/fem/numerical_model_base.h"

#include "kelt/core/numerical_model_base.h"

namespace kelt::fem {

unsigned numerical_model_base::get_ID() const
{
    const auto* m = core<core::numerical_model_base>();
    return m ? m->ID : core::no_model;
}

void numerical_model_base::set_evolution_func_ID(unsigned func)
{
    if (auto* m = core<core::numerical_model_base>()) m->set_evolution_func_ID(func);
}

} // namespace kelt::fem
