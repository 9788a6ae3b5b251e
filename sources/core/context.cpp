#include "kelt/core/context.h"

namespace kelt::core {

context_type::context_type()
    : numerical_models_mgr(new core::numerical_models_mgr),
      evolution_funcs_mgr(new core::evolution_funcs_mgr),
      bases_mgr(new core::bases_mgr),
      process_mgr(new core::process_mgr)
{
}

} // namespace kelt::core
