// Kernel bodies, written once over a vector width W and compiled per instruction
// set by the kernels_*.cpp files. Included there only.
#pragma once

#include <cstring>
#if defined(__AVX512F__) || defined(__AVX2__)
#include <immintrin.h>
#endif

#include "kelt/engine/kernels.h"

namespace kelt::core::KELT_KERNEL_NS {

constexpr unsigned W = KELT_KERNEL_WIDTH;
typedef double vec __attribute__((vector_size(W * sizeof(double))));

inline vec load(const double* p)
{
    vec v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store(double* p, vec v) { std::memcpy(p, &v, sizeof v); }
// The top `n` (< W) values below `end`, in the top lanes, zeros in the others.
inline vec load_top(const double* end, unsigned n)
{
    // Masked loads do not touch the lanes left out, whatever memory lies there.
#if defined(__AVX512F__) && KELT_KERNEL_WIDTH == 8
    const __m512d v = _mm512_maskz_loadu_pd(__mmask8(0xFFu << (W - n)), end - W);
    vec out;
    std::memcpy(&out, &v, sizeof out);
    return out;
#elif defined(__AVX2__) && KELT_KERNEL_WIDTH == 4
    static const long long masks[8] = {0, 0, 0, 0, -1, -1, -1, -1};
    const __m256i m = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(masks + n));
    const __m256d v = _mm256_maskload_pd(end - W, m);
    vec out;
    std::memcpy(&out, &v, sizeof out);
    return out;
#else
    vec v = {};
    for (unsigned k = 0; k < n; ++k) v[W - n + k] = end[-int(n) + int(k)];
    return v;
#endif
}
// Pairwise halving of the lanes, fixed order.
inline double reduce(vec v)
{
#if KELT_KERNEL_WIDTH == 8
    typedef double half __attribute__((vector_size(32)));
    const half h = __builtin_shufflevector(v, v, 0, 1, 2, 3) + __builtin_shufflevector(v, v, 4, 5, 6, 7);
    typedef double quarter __attribute__((vector_size(16)));
    const quarter q = __builtin_shufflevector(h, h, 0, 1) + __builtin_shufflevector(h, h, 2, 3);
    return q[0] + q[1];
#elif KELT_KERNEL_WIDTH == 4
    typedef double quarter __attribute__((vector_size(16)));
    const quarter q = __builtin_shufflevector(v, v, 0, 1) + __builtin_shufflevector(v, v, 2, 3);
    return q[0] + q[1];
#else
    return v[0] + v[1];
#endif
}

// Continues one product from chunk `from` (counted from the end) to its last chunk.
inline double finish(vec acc, const double* a_end, const double* b_end, unsigned n, unsigned from)
{
    const unsigned full = n / W;
    for (unsigned k = from; k < full; ++k) acc += load(a_end - (k + 1) * W) * load(b_end - (k + 1) * W);
    if (const unsigned rest = n % W) {
        acc += load_top(a_end - full * W, rest) * load_top(b_end - full * W, rest);
    }
    return reduce(acc);
}

double dot(const double* a_end, const double* b_end, unsigned n) { return finish(vec{}, a_end, b_end, n, 0); }

double scale_and_dot(double* a, const double* w, unsigned n)
{
    vec acc = {};
    unsigned k = 0;
    for (; k + W <= n; k += W) {
        const vec q = load(a + k);
        const vec s = q * load(w + k);
        store(a + k, s);
        acc += s * q;
    }
    double sum = reduce(acc);
    for (; k < n; ++k) {
        const double q = a[k];
        a[k] = q * w[k];
        sum += a[k] * q;
    }
    return sum;
}

void axpy(double alpha, const double* x, double* y, unsigned n)
{
    const vec va = alpha - vec{};
    unsigned k = 0;
    for (; k + W <= n; k += W) store(y + k, load(y + k) + va * load(x + k));
    for (; k < n; ++k) y[k] += alpha * x[k];
}

template <class T>
inline T min2(T a, T b) { return a < b ? a : b; }

constexpr unsigned MR = KELT_GEMM_MR, NR = 2 * W;

void gemm(unsigned kc, const double* a, const double* b, double* c, unsigned ldc, unsigned mr, unsigned nr)
{
    vec acc[MR][2] = {};
    for (unsigned r = 0; r < kc; ++r) {
        const vec b0 = load(b + r * NR), b1 = load(b + r * NR + W);
        const double* ar = a + r * MR;
        for (unsigned i = 0; i < MR; ++i) {
            const vec ai = ar[i] - vec{};
            acc[i][0] += ai * b0;
            acc[i][1] += ai * b1;
        }
    }
    if (nr == NR) {
        for (unsigned i = 0; i < mr; ++i) {
            store(c + std::size_t(i) * ldc, acc[i][0]);
            store(c + std::size_t(i) * ldc + W, acc[i][1]);
        }
        return;
    }
    for (unsigned i = 0; i < mr; ++i) {
        double row[NR];
        std::memcpy(row, &acc[i][0], sizeof(vec));
        std::memcpy(row + W, &acc[i][1], sizeof(vec));
        std::memcpy(c + std::size_t(i) * ldc, row, nr * sizeof(double));
    }
}

// Lanes are columns: W columns are solved at once, each row a vector.
void lower_solve(unsigned nq, const double* L, unsigned count, double* const* cols, const unsigned* lo)
{
    for (unsigned t0 = 0; t0 < count; t0 += W) {
        const unsigned lanes = min2(W, count - t0);
        vec X[lower_solve_max_rows]; // nq <= lower_solve_max_rows
        for (unsigned r = 0; r < nq; ++r) {
            vec v = {};
            for (unsigned l = 0; l < lanes; ++l)
                if (r >= lo[t0 + l]) v[l] = cols[t0 + l][r];
            X[r] = v;
        }
        for (unsigned r = 1; r < nq; ++r) {
            const double* Lr = L + r * nq;
            vec acc = X[r];
            for (unsigned k = 0; k < r; ++k) acc -= Lr[k] * X[k];
            X[r] = acc;
        }
        for (unsigned l = 0; l < lanes; ++l)
            for (unsigned r = lo[t0 + l]; r < nq; ++r) cols[t0 + l][r] = X[r][l];
    }
}

void gather_dots(const double* x_end, unsigned count, const double* const* ends, const unsigned* lens,
                 double* const* out)
{
    unsigned t = 0;
    for (; t + 4 <= count; t += 4) {
        const unsigned common = min2(min2(lens[t], lens[t + 1]), min2(lens[t + 2], lens[t + 3])) / W;
        const double *e0 = ends[t], *e1 = ends[t + 1], *e2 = ends[t + 2], *e3 = ends[t + 3];
        vec a0 = {}, a1 = {}, a2 = {}, a3 = {};
        for (unsigned k = 0; k < common; ++k) {
            const unsigned off = (k + 1) * W;
            const vec x = load(x_end - off);
            a0 += x * load(e0 - off);
            a1 += x * load(e1 - off);
            a2 += x * load(e2 - off);
            a3 += x * load(e3 - off);
        }
        *out[t] -= finish(a0, x_end, e0, lens[t], common);
        *out[t + 1] -= finish(a1, x_end, e1, lens[t + 1], common);
        *out[t + 2] -= finish(a2, x_end, e2, lens[t + 2], common);
        *out[t + 3] -= finish(a3, x_end, e3, lens[t + 3], common);
    }
    for (; t < count; ++t) *out[t] -= finish(vec{}, x_end, ends[t], lens[t], 0);
}

void scatter_axpys(double* y_end, unsigned count, const double* const* ends, const unsigned* lens,
                   const double* alpha)
{
    unsigned t = 0;
    for (; t + 4 <= count; t += 4) {
        const unsigned common = min2(min2(lens[t], lens[t + 1]), min2(lens[t + 2], lens[t + 3]));
        const unsigned full = common / W;
        const vec c0 = alpha[t] - vec{}, c1 = alpha[t + 1] - vec{}, c2 = alpha[t + 2] - vec{},
                  c3 = alpha[t + 3] - vec{};
        const double *e0 = ends[t], *e1 = ends[t + 1], *e2 = ends[t + 2], *e3 = ends[t + 3];
        for (unsigned k = 0; k < full; ++k) {
            const unsigned off = (k + 1) * W;
            vec y = load(y_end - off);
            y -= c0 * load(e0 - off);
            y -= c1 * load(e1 - off);
            y -= c2 * load(e2 - off);
            y -= c3 * load(e3 - off);
            store(y_end - off, y);
        }
        // The rest of each column, one at a time, from where the tile stopped.
        for (unsigned u = t; u < t + 4; ++u)
            for (unsigned k = full * W; k < lens[u]; ++k) y_end[-1 - int(k)] -= alpha[u] * ends[u][-1 - int(k)];
    }
    for (; t < count; ++t)
        for (unsigned k = 0; k < lens[t]; ++k) y_end[-1 - int(k)] -= alpha[t] * ends[t][-1 - int(k)];
}

// Block solves: V vectors of a row at a time, from column j0 of the rows; four
// factor columns share the loads of X (or of the rows they are added to).
template <unsigned V>
void block_dots_part(const double* X_end, unsigned nb, unsigned j0, unsigned count, const double* const* ends,
                     const unsigned* lens, double* const* out)
{
    const double* x = X_end + j0;
    const auto row = [&](unsigned k) { return x - std::size_t(k + 1) * nb; };
    const auto finish_one = [&](vec* acc, const double* e, unsigned from, unsigned n, double* o) {
        for (unsigned k = from; k < n; ++k) {
            const vec a = e[-1 - int(k)] - vec{};
            const double* xr = row(k);
            for (unsigned v = 0; v < V; ++v) acc[v] += a * load(xr + v * W);
        }
        for (unsigned v = 0; v < V; ++v) store(o + j0 + v * W, load(o + j0 + v * W) - acc[v]);
    };
    unsigned t = 0;
    for (; t + 4 <= count; t += 4) {
        const unsigned common = min2(min2(lens[t], lens[t + 1]), min2(lens[t + 2], lens[t + 3]));
        const double *e0 = ends[t], *e1 = ends[t + 1], *e2 = ends[t + 2], *e3 = ends[t + 3];
        vec acc[4][V] = {};
        for (unsigned k = 0; k < common; ++k) {
            const double* xr = row(k);
            vec xv[V];
            for (unsigned v = 0; v < V; ++v) xv[v] = load(xr + v * W);
            const vec a0 = e0[-1 - int(k)] - vec{}, a1 = e1[-1 - int(k)] - vec{}, a2 = e2[-1 - int(k)] - vec{},
                      a3 = e3[-1 - int(k)] - vec{};
            for (unsigned v = 0; v < V; ++v) {
                acc[0][v] += a0 * xv[v];
                acc[1][v] += a1 * xv[v];
                acc[2][v] += a2 * xv[v];
                acc[3][v] += a3 * xv[v];
            }
        }
        for (unsigned i = 0; i < 4; ++i) finish_one(acc[i], ends[t + i], common, lens[t + i], out[t + i]);
    }
    for (; t < count; ++t) {
        vec acc[V] = {};
        finish_one(acc, ends[t], 0, lens[t], out[t]);
    }
}

void block_dots(const double* X_end, unsigned nb, unsigned count, const double* const* ends, const unsigned* lens,
                double* const* out)
{
    unsigned j0 = 0;
    for (; j0 + 2 * W <= nb; j0 += 2 * W) block_dots_part<2>(X_end, nb, j0, count, ends, lens, out);
    for (; j0 < nb; j0 += W) block_dots_part<1>(X_end, nb, j0, count, ends, lens, out);
}

template <unsigned V>
void block_axpys_part(double* Y_end, unsigned nb, unsigned j0, unsigned count, const double* const* ends,
                      const unsigned* lens, const double* const* alpha)
{
    double* y = Y_end + j0;
    const auto row = [&](unsigned k) { return y - std::size_t(k + 1) * nb; };
    const auto one = [&](const vec* c, const double* e, unsigned from, unsigned n) {
        for (unsigned k = from; k < n; ++k) {
            const vec a = e[-1 - int(k)] - vec{};
            double* yr = row(k);
            for (unsigned v = 0; v < V; ++v) store(yr + v * W, load(yr + v * W) - a * c[v]);
        }
    };
    unsigned t = 0;
    for (; t + 4 <= count; t += 4) {
        const unsigned common = min2(min2(lens[t], lens[t + 1]), min2(lens[t + 2], lens[t + 3]));
        const double *e0 = ends[t], *e1 = ends[t + 1], *e2 = ends[t + 2], *e3 = ends[t + 3];
        vec c[4][V];
        for (unsigned i = 0; i < 4; ++i)
            for (unsigned v = 0; v < V; ++v) c[i][v] = load(alpha[t + i] + j0 + v * W);
        for (unsigned k = 0; k < common; ++k) {
            double* yr = row(k);
            const vec a0 = e0[-1 - int(k)] - vec{}, a1 = e1[-1 - int(k)] - vec{}, a2 = e2[-1 - int(k)] - vec{},
                      a3 = e3[-1 - int(k)] - vec{};
            for (unsigned v = 0; v < V; ++v) {
                vec yv = load(yr + v * W);
                yv = yv - a0 * c[0][v];
                yv = yv - a1 * c[1][v];
                yv = yv - a2 * c[2][v];
                yv = yv - a3 * c[3][v];
                store(yr + v * W, yv);
            }
        }
        // The rest of each column, in the order of t, from where the tile stopped.
        for (unsigned i = 0; i < 4; ++i) one(c[i], ends[t + i], common, lens[t + i]);
    }
    for (; t < count; ++t) {
        vec c[V];
        for (unsigned v = 0; v < V; ++v) c[v] = load(alpha[t] + j0 + v * W);
        one(c, ends[t], 0, lens[t]);
    }
}

void block_axpys(double* Y_end, unsigned nb, unsigned count, const double* const* ends, const unsigned* lens,
                 const double* const* alpha)
{
    unsigned j0 = 0;
    for (; j0 + 2 * W <= nb; j0 += 2 * W) block_axpys_part<2>(Y_end, nb, j0, count, ends, lens, alpha);
    for (; j0 < nb; j0 += W) block_axpys_part<1>(Y_end, nb, j0, count, ends, lens, alpha);
}

const kernel_table table = {KELT_KERNEL_NAME, dot,         scale_and_dot, axpy,         MR,
                            NR,               gemm,        lower_solve,   gather_dots, scatter_axpys,
                            W,                block_dots,  block_axpys};

} // namespace kelt::core::KELT_KERNEL_NS
