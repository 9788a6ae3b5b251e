// What the benchmark programs share: clocks and the flop count of a factor.
#pragma once

#include <chrono>
#include <ctime>
#include <vector>

#include "kelt/engine/skyline.h"

namespace kelt::bench {

using clock_type = std::chrono::steady_clock;

inline double seconds_since(clock_type::time_point t0)
{
    return std::chrono::duration<double>(clock_type::now() - t0).count();
}

// Processor time of the process: on a shared machine it shows the work done apart
// from the time other programs took.
inline double cpu_seconds()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

// Flops of L D Lᵀ as sparse Cholesky codes count them: the sum over columns of the
// square of the column count, diagonal included.
inline double factor_flops(const core::symmetric_hybrid_OOC<double>& A)
{
    std::vector<unsigned> count(A.nbr_rows(), 1);
    const core::block_proxy_data* d = A.proxy();
    for (unsigned b = 0; b < d->nbr_blocks(); ++b) {
        const core::symmetric_skyline_block& v = *d->find_block(b);
        for (unsigned s = 1; s < v.nbr_segments; ++s) {
            const unsigned top = v.seg_top(s), len = v.seg_length(s);
            for (unsigned r = top; r < top + len; ++r) ++count[r];
        }
    }
    double fl = 0.0;
    for (unsigned c : count) fl += double(c) * c;
    return fl;
}

} // namespace kelt::bench
