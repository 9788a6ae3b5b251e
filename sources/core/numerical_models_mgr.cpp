#include "kelt/core/numerical_models_mgr.h"

namespace kelt::core {

void numerical_models_mgr::clear()
{
    omp_guard guard(lock);
    models.clear();
    next_ID = 0;
    free_IDs.clear();
    FE_offsets.clear();
}

} // namespace kelt::core
