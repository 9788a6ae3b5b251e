// The dense kernels under the skyline factorisation and solves. Each is compiled
// for several instruction sets and picked once at start-up, so a plain build runs
// at the width of the machine it runs on.
//
// Every dot product here is `dot`: the sum of a[-n..-1] * b[-n..-1] taken from
// the END of both arrays, in vector chunks going up, one accumulator per product,
// the partial chunk at the top last, then a fixed reduction of the lanes. The tiled
// kernels compute exactly that per pair, whatever tile a pair falls in, so results
// do not depend on how work is cut into tiles or shared among threads.
#pragma once

namespace kelt::core {

// Rows that one call of lower_solve can hold: the height of a sub-panel of the
// factorisation is bound by it.
inline constexpr unsigned lower_solve_max_rows = 16;

struct kernel_table {
    const char* name;
    // sum over k < n of a_end[-1-k] * b_end[-1-k]
    double (*dot)(const double* a_end, const double* b_end, unsigned n);
    // a[k] *= w[k]; returns the sum of a_new[k] * a_old[k]
    double (*scale_and_dot)(double* a, const double* w, unsigned n);
    // y[k] += alpha * x[k]
    void (*axpy)(double alpha, const double* x, double* y, unsigned n);

    // Products of packed panels, as in a matrix product: for i < mr <= gemm_mr and
    // j < nr <= gemm_nr, c[i * ldc + j] = sum over r < kc of a[r * gemm_mr + i] *
    // b[r * gemm_nr + j], each sum taken in the order of r.
    unsigned gemm_mr, gemm_nr;
    void (*gemm)(unsigned kc, const double* a, const double* b, double* c, unsigned ldc, unsigned mr, unsigned nr);

    // A unit lower triangular solve on a few rows of many columns: for each column
    // t and rows r from lo[t] to nq - 1, x_t[r] -= sum over k in [lo[t], r) of
    // L[r * nq + k] * x_t[k], in the order of k, where x_t[r] is cols[t][r]. Rows
    // below lo[t] are neither read nor written. nq is at most 16.
    void (*lower_solve)(unsigned nq, const double* L, unsigned count, double* const* cols, const unsigned* lo);

    // out[t] -= dot(x_end, ends[t], lens[t]) for t < count: many columns against
    // one vector, the vector's loads shared.
    void (*gather_dots)(const double* x_end, unsigned count, const double* const* ends, const unsigned* lens,
                        double* const* out);
    // y_end[-1-k] -= sum over t of alpha[t] * ends[t][-1-k] for k < lens[t]: many
    // columns into one vector, each entry of y loaded and stored once a tile.
    void (*scatter_axpys)(double* y_end, unsigned count, const double* const* ends, const unsigned* lens,
                          const double* alpha);

    // Many right-hand sides at once, held by rows of `nb` values (nb a multiple of
    // block_width): one load of a factor value serves the whole row. Each lane is
    // summed alone, in the same order whatever nb, the tile or the other lanes.
    unsigned block_width;
    // out[t][j] -= sum over k < lens[t] of ends[t][-1-k] * X_end[-(k+1) nb + j],
    // the sum taken in the order of k, for t < count and j < nb.
    void (*block_dots)(const double* X_end, unsigned nb, unsigned count, const double* const* ends,
                       const unsigned* lens, double* const* out);
    // Y_end[-(k+1) nb + j] -= ends[t][-1-k] * alpha[t][j] for k < lens[t], the
    // terms of each entry in the order of t.
    void (*block_axpys)(double* Y_end, unsigned nb, unsigned count, const double* const* ends,
                        const unsigned* lens, const double* const* alpha);
};

// The table for this processor.
const kernel_table& kernels() noexcept;

// Every table this build holds, for tests that compare the instruction sets.
const kernel_table* const* all_kernel_tables(unsigned& count) noexcept;

} // namespace kelt::core
