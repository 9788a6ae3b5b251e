#include "kelt/engine/multiply.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kelt/engine/kernels.h"

namespace kelt::core {

namespace {

// One block's share: its band rows and the columns of its segments.
void multiply_block(const symmetric_skyline_block& v, double factor, const double* x, double* y)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    for (unsigned s = 0; s < v.dim; ++s) y[f + s] += factor * v.values[s] * x[f + s];
    for (unsigned s = 1; s < v.nbr_segments; ++s) {
        const unsigned len = v.seg_length(s);
        if (len == 0) continue;
        const unsigned c = v.columns[s], bottom = c < e ? c : e;
        const double* seg = v.seg_end(s) - len;
        y[c] += factor * K.dot(v.seg_end(s), x + bottom, len);
        K.axpy(factor * x[c], seg, y + bottom - len, len);
    }
}

} // namespace

void multiply(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y, unsigned nbr_threads)
{
    const block_proxy_data* data = A.proxy();
    if (!data || !(factor == factor) || factor == 0.0) return;
    block_cursor cursor(A, true);
    const unsigned nb = data->nbr_blocks(), n = data->nbr_rows();
    if (nbr_threads < 2 || nb < 2 || n <= 16384) {
        for (unsigned b = 0; b < nb; ++b) multiply_block(*data->find_block(b), factor, x, y);
        return;
    }
    // Blocks write rows of other blocks: each thread sums into its own vector, and
    // the vectors are added in thread order.
    const unsigned T = nbr_threads;
    std::vector<std::vector<double>> partial(T, std::vector<double>(n, 0.0));
#pragma omp parallel num_threads(T)
    {
        const unsigned t = unsigned(omp_get_thread_num()), team = unsigned(omp_get_num_threads());
        const unsigned chunk = (nb + team - 1) / team;
        for (unsigned b = t * chunk; b < std::min(nb, (t + 1) * chunk); ++b)
            multiply_block(*data->find_block(b), factor, x, partial[t].data());
    }
    for (unsigned t = 0; t < T; ++t)
        for (unsigned i = 0; i < n; ++i) y[i] += partial[t][i];
}

double multiply_fixed(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y,
                      const unsigned* fixed_rows, unsigned nbr_fixed, unsigned nbr_threads)
{
    multiply(A, factor, x, y, nbr_threads);
    double energy = 0.0;
    for (unsigned k = 0; k < nbr_fixed; ++k) {
        const unsigned r = fixed_rows[k];
        energy += x[r] * y[r];
        y[r] = 0.0;
    }
    return energy * 0.5 / factor;
}

} // namespace kelt::core
