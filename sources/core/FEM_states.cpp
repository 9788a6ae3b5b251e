#include "kelt/core/FEM_states.h"

namespace kelt::core {

template class FEM_states<FEM_real>;

} // namespace kelt::core
