// Products of the block skyline matrix with a vector, for the solvers and the
// conjugate gradient.
#include "kelt/engine/multiply.h"

#include <omp.h>

#include <new>
#include <vector>

#include "kelt/engine/kernels.h"

namespace kelt::core {

namespace {

// Below this many values a matrix is multiplied entry by entry.
constexpr std::size_t direct_loop_values = 13;
// Above this many rows a window's blocks are shared among threads.
constexpr unsigned parallel_rows = 16384;

// A block's share of y += factor A x. Its band rows get the diagonal and, for each
// segment, x[c] times the segment; the segment's dot with x goes to row c. For an
// extra column, row c belongs to a later block: with `extra_dots` the dot is kept
// there, one per extra segment, so that the block writes only its own rows.
void multiply_block(const symmetric_skyline_block& v, double factor, const double* x, double* y, double* extra_dots)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    for (unsigned s = 0; s < v.dim; ++s) y[f + s] += factor * v.values[s] * x[f + s];
    for (unsigned s = 1; s < v.nbr_segments; ++s) {
        const unsigned len = v.seg_length(s), c = v.columns[s], bottom = c < e ? c : e;
        const double d = len ? factor * K.dot(v.seg_end(s), x + bottom, len) : 0.0;
        if (s >= v.dim && extra_dots)
            extra_dots[s - v.dim] = d;
        else if (len)
            y[c] += d;
        if (len) K.axpy(factor * x[c], v.seg_end(s) - len, y + bottom - len, len);
    }
}

// The textbook double loop, for matrices too small to pay for the kernels.
void multiply_direct(const block_proxy_data& data, unsigned b0, unsigned b1, double factor, const double* x, double* y)
{
    for (unsigned b = b0; b < b1; ++b) {
        const symmetric_skyline_block& v = *data.find_block(b);
        for (unsigned s = 0; s < v.dim; ++s) y[v.first + s] += factor * v.values[s] * x[v.first + s];
        for (unsigned s = 1; s < v.nbr_segments; ++s) {
            const unsigned c = v.columns[s], top = v.seg_top(s);
            const double* a = v.seg_end(s) - v.seg_length(s);
            for (unsigned i = top; i < top + v.seg_length(s); ++i, ++a) {
                y[i] += factor * *a * x[c];
                y[c] += factor * *a * x[i];
            }
        }
    }
}

} // namespace

void multiply(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y, unsigned nbr_threads)
{
    block_proxy_data* data = A.proxy();
    if (!data || !(factor == factor) || factor == 0.0 || A.empty()) return;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return;
    const unsigned nb = data->nbr_blocks(), n = data->nbr_rows();
    if (data->nbr_values() < direct_loop_values) {
        (void)for_windows(*data, true, [&](unsigned b0, unsigned b1) { multiply_direct(*data, b0, b1, factor, x, y); });
        return;
    }
    // The dots of extra columns wait until every block has done its own rows, and
    // are then added in block order: the sums do not depend on the thread count.
    std::vector<std::size_t> extra_start(std::size_t(nb) + 1, 0);
    std::vector<double> extra_dots;
    try {
        for (unsigned b = 0; b < nb; ++b) extra_start[b + 1] = extra_start[b] + data->shape(b).nbr_extra();
        extra_dots.resize(extra_start[nb]);
    } catch (const std::bad_alloc&) {
        // Without room for the dots, one thread adds them as it goes.
        (void)for_windows(*data, true, [&](unsigned b0, unsigned b1) {
            for (unsigned b = b0; b < b1; ++b) multiply_block(*data->find_block(b), factor, x, y, nullptr);
        });
        return;
    }
    const bool parallel = nbr_threads >= 2 && nb >= 2 && n > parallel_rows;
    (void)for_windows(*data, true, [&](unsigned b0, unsigned b1) {
#pragma omp parallel for schedule(dynamic, 1) num_threads(parallel ? nbr_threads : 1u) if (parallel)
        for (unsigned b = b0; b < b1; ++b)
            multiply_block(*data->find_block(b), factor, x, y, extra_dots.data() + extra_start[b]);
    });
    for (unsigned b = 0; b < nb; ++b) {
        const symmetric_skyline_block& v = data->shape(b);
        const double* d = extra_dots.data() + extra_start[b];
        for (unsigned s = v.dim; s < v.nbr_segments; ++s) y[v.columns[s]] += d[s - v.dim];
    }
}

double multiply_fixed(const symmetric_hybrid_OOC<double>& A, double factor, const double* x, double* y,
                      const unsigned* fixed_rows, unsigned nbr_fixed, unsigned nbr_threads)
{
    multiply(A, factor, x, y, nbr_threads);
    const unsigned n = A.nbr_rows();
    double energy = 0.0;
    for (unsigned k = 0; k < nbr_fixed; ++k) {
        const unsigned r = fixed_rows[k];
        if (r >= n) continue;
        energy += x[r] * y[r];
        y[r] = 0.0;
    }
    return energy * 0.5 / factor;
}

} // namespace kelt::core
