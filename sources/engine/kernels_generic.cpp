// The kernels for the generic instruction set (2 doubles a vector).
#define KELT_KERNEL_NS generic
#define KELT_KERNEL_WIDTH 2
#define KELT_GEMM_MR 4
#define KELT_KERNEL_NAME "generic"
#include "kelt/engine/kernels_impl.h"

namespace kelt::core {
const kernel_table& kernels_generic() noexcept { return generic::table; }
} // namespace kelt::core
