// The kernels for the avx2 instruction set (4 doubles a vector).
#define KELT_KERNEL_NS avx2
#define KELT_KERNEL_WIDTH 4
#define KELT_GEMM_MR 4
#define KELT_KERNEL_NAME "avx2"
#include "kelt/engine/kernels_impl.h"

namespace kelt::core {
const kernel_table& kernels_avx2() noexcept { return avx2::table; }
} // namespace kelt::core
