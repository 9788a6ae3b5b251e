#include "kelt/engine/kernels.h"

namespace kelt::core {

const kernel_table& kernels_generic() noexcept;
const kernel_table& kernels_avx2() noexcept;
const kernel_table& kernels_avx512() noexcept;

namespace {
const kernel_table& pick() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f")) return kernels_avx512();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return kernels_avx2();
#endif
    return kernels_generic();
}
} // namespace

const kernel_table& kernels() noexcept
{
    static const kernel_table& table = pick();
    return table;
}

const kernel_table* const* all_kernel_tables(unsigned& count) noexcept
{
    static const kernel_table* tables[3];
    static unsigned n = [] {
        unsigned k = 0;
        tables[k++] = &kernels_generic();
#if defined(__x86_64__) || defined(__i386__)
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) tables[k++] = &kernels_avx2();
        if (__builtin_cpu_supports("avx512f")) tables[k++] = &kernels_avx512();
#endif
        return k;
    }();
    count = n;
    return tables;
}

} // namespace kelt::core
