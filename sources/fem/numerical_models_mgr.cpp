#include "kelt/fem/numerical_models_mgr.h"

#include "kelt/core/numerical_models_mgr.h"

namespace kelt::fem {

unsigned numerical_models_mgr::nbr_models() const { return hold<core::numerical_models_mgr>()->nbr_models(); }

void numerical_models_mgr::clear() { hold<core::numerical_models_mgr>()->clear(); }

} // namespace kelt::fem
