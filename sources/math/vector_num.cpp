#include "kelt/math/vector_num.h"

#include <cstdlib>

namespace kelt {

void* __vector_num_alloc(unsigned bytes) noexcept { return std::malloc(bytes ? bytes : 1); }

void __vector_num_free(void* p) noexcept { std::free(p); }

} // namespace kelt
