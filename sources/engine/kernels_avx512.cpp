// The kernels for the avx512 instruction set (8 doubles a vector).
#define KELT_KERNEL_NS avx512
#define KELT_KERNEL_WIDTH 8
#define KELT_GEMM_MR 8
#define KELT_KERNEL_NAME "avx512"
#include "kelt/engine/kernels_impl.h"

namespace kelt::core {
const kernel_table& kernels_avx512() noexcept { return avx512::table; }
} // namespace kelt::core
