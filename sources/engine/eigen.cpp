// The eigen kernels. Bases are column stores that may hold only a window of
// columns in memory: every walk reads or writes one column at a time through the
// store, or runs of columns that the window holds together, so the same code
// runs in core and out of core. Sums over rows are taken in row order by one
// thread each, so results do not depend on the thread count.
#include "kelt/engine/eigen.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <tuple>

#include "kelt/engine/factorize.h"
#include "kelt/engine/multiply.h"
#include "kelt/engine/wall_clock.h"
#include "kelt/math/lapack.h"

namespace kelt::core {

namespace {

double dot(const double* a, const double* b, unsigned n) noexcept
{
    double s = 0.0;
    for (unsigned i = 0; i < n; ++i) s += a[i] * b[i];
    return s;
}

// Column j of a store for writing; null when the window cannot reach it.
double* column(eigen_basis& X, unsigned j)
{
    dense1D<double, 8> c = X.col(j);
    return c.size() == X.rows() ? c.data() : nullptr;
}

const double* column_read(const eigen_basis& X, unsigned j)
{
    const dense1D<double, 8> c = X.col_read(j);
    return c.size() == X.rows() ? c.data() : nullptr;
}

// Columns [0, n) of X replaced by K⁻¹ X, by runs of columns that the window holds
// together.
error_type solve_in_place(const symmetric_hybrid_OOC<double>& K, eigen_basis& X, unsigned n, unsigned threads,
                          unsigned LLC_size)
{
    std::vector<double> energies(n, 0.0);
    for (unsigned j = 0; j < n;) {
        double* p = column(X, j);
        if (!p) return memory_error;
        unsigned run = 1;
        while (j + run < n && X.in_core(j, run + 1)) ++run;
        error_type e = no_error;
        if (run == 1) {
            e = forward(K, p, threads, energies[j]);
            if (e == no_error) e = backward(K, p, threads);
        } else {
            const unsigned ld = X.proxy->window.leading_dim();
            e = forward_multi(K, p, ld, run, energies.data() + j, LLC_size, threads);
            if (e == no_error) e = backward_multi(K, p, ld, run, LLC_size, threads);
        }
        if (e != no_error) return e;
        j += run;
    }
    return no_error;
}

error_type copy_columns(eigen_basis& from, eigen_basis& to, unsigned n)
{
    for (unsigned j = 0; j < n; ++j) {
        const double* x = column_read(from, j);
        double* y = column(to, j);
        if (!x || !y) return memory_error;
        std::copy(x, x + from.rows(), y);
    }
    return no_error;
}

// R(i, j) = X_i . Y_j for i <= j < n, packed.
error_type project(const eigen_basis& X, const eigen_basis& Y, unsigned n, std::vector<double>& R, unsigned threads)
{
    R.assign(std::size_t(n) * (n + 1) / 2, 0.0);
    const unsigned rows = X.rows();
    if (X.all_in_core() && Y.all_in_core()) {
        std::vector<const double*> x(n), y(n);
        for (unsigned j = 0; j < n; ++j) {
            x[j] = column_read(X, j), y[j] = column_read(Y, j);
            if (!x[j] || !y[j]) return memory_error;
        }
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads) if (threads > 1 && rows > 4096)
        for (long j = 0; j < long(n); ++j)
            for (unsigned i = 0; i <= unsigned(j); ++i) R[packed_at(i, unsigned(j))] = dot(x[i], y[unsigned(j)], rows);
        return no_error;
    }
    for (unsigned j = 0; j < n; ++j) {
        const double* y = column_read(Y, j);
        if (!y) return memory_error;
        for (unsigned i = 0; i <= j; ++i) {
            const double* x = column_read(X, i);
            if (!x) return memory_error;
            R[packed_at(i, j)] = dot(x, y, rows);
        }
    }
    return no_error;
}

// L D Lᵀ of a small packed matrix: the first row whose pivot is at most 0 (n when
// none), and the extremes of the pivots.
unsigned first_bad_pivot(const std::vector<double>& A, unsigned n, double& lo, double& hi)
{
    std::vector<double> F(std::size_t(n) * n), D(n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) F[std::size_t(i) * n + j] = F[std::size_t(j) * n + i] = A[packed_at(i, j)];
    lo = DBL_MAX, hi = -DBL_MAX;
    unsigned bad = n;
    for (unsigned j = 0; j < n; ++j) {
        double d = F[std::size_t(j) * n + j];
        for (unsigned k = 0; k < j; ++k) d -= F[std::size_t(j) * n + k] * F[std::size_t(j) * n + k] * D[k];
        lo = std::min(lo, d), hi = std::max(hi, d);
        if (!std::isfinite(d)) {
            lo = d;
            return std::min(bad, j);
        }
        if (!(d > 0.0)) {
            bad = std::min(bad, j);
            d = 1.0; // go on, for the extremes only
        }
        D[j] = d;
        for (unsigned i = j + 1; i < n; ++i) {
            double s = F[std::size_t(i) * n + j];
            for (unsigned k = 0; k < j; ++k) s -= F[std::size_t(i) * n + k] * F[std::size_t(j) * n + k] * D[k];
            F[std::size_t(i) * n + j] = s / d;
        }
    }
    return bad;
}

// Uniform values in [-s, s) added to columns [first, end) of X.
error_type add_random(eigen_basis& X, unsigned first, unsigned end, std::mt19937& generator, double scale)
{
    for (unsigned c = first; c < end; ++c) {
        double* x = column(X, c);
        if (!x) return memory_error;
        for (unsigned i = 0; i < X.rows(); ++i) x[i] += double(generator()) * scale - 0.5 * scale * 4294967296.0;
    }
    return no_error;
}

// x scaled to M-norm 1; the square of the former norm comes back.
double M_normalise(const compressed_sym& M, double* x, unsigned n, std::vector<double>& w, unsigned threads)
{
    std::fill(w.begin(), w.end(), 0.0);
    M.multiply(x, w.data(), threads);
    const double v = dot(x, w.data(), n);
    if (v > 0.0) {
        const double f = 1.0 / std::sqrt(v);
        for (unsigned i = 0; i < n; ++i) x[i] *= f;
    }
    return v;
}

void log_line(iteration_observer& o, unsigned level, const char* format, double a)
{
    char line[256];
    std::snprintf(line, sizeof line, format, a);
    o.log(level, line);
}

void log_line(iteration_observer& o, unsigned level, const char* format, int a)
{
    char line[256];
    std::snprintf(line, sizeof line, format, a);
    o.log(level, line);
}

void log_line(iteration_observer& o, unsigned level, const char* format, int a, double b)
{
    char line[256];
    std::snprintf(line, sizeof line, format, a, b);
    o.log(level, line);
}

} // namespace

error_type compressed_sym::build(const symmetric_hybrid_OOC<double>& A)
{
    const unsigned n = A.nbr_rows();
    diag_.assign(n, 0.0);
    starts_.assign(std::size_t(n) + 1, 0);
    cols_.clear(), values_.clear();
    block_proxy_data* data = A.proxy();
    if (!data || n == 0) return no_error;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return cursor.error;
    // Two walks: the count of each row's off-diagonal nonzeros, then their places.
    std::vector<std::size_t> fill;
    for (int pass = 0; pass < 2; ++pass) {
        const error_type e = for_windows(*data, true, [&](unsigned b0, unsigned b1) {
            for (unsigned b = b0; b < b1; ++b) {
                const symmetric_skyline_block& v = *data->find_block(b);
                if (pass == 0)
                    for (unsigned s = 0; s < v.dim; ++s) diag_[v.first + s] = v.values[s];
                for (unsigned s = 1; s < v.nbr_segments; ++s) {
                    const unsigned c = v.columns[s], top = v.seg_top(s), len = v.seg_length(s);
                    const double* a = v.seg_end(s) - len;
                    for (unsigned i = top; i < top + len; ++i, ++a) {
                        if (*a == 0.0) continue;
                        if (pass == 0) {
                            ++starts_[i + 1], ++starts_[c + 1];
                        } else {
                            cols_[fill[i]] = c, values_[fill[i]++] = *a;
                            cols_[fill[c]] = i, values_[fill[c]++] = *a;
                        }
                    }
                }
            }
        });
        if (e != no_error) return e;
        if (pass == 0) {
            for (unsigned r = 0; r < n; ++r) starts_[r + 1] += starts_[r];
            cols_.resize(starts_[n]), values_.resize(starts_[n]);
            fill.assign(starts_.begin(), starts_.end() - 1);
        }
    }
    // Each row in column order, so that its sum does not depend on the blocks.
    std::vector<std::pair<unsigned, double>> row;
    for (unsigned r = 0; r < n; ++r) {
        row.clear();
        for (std::size_t k = starts_[r]; k < starts_[r + 1]; ++k) row.emplace_back(cols_[k], values_[k]);
        std::sort(row.begin(), row.end());
        for (std::size_t k = 0; k < row.size(); ++k) cols_[starts_[r] + k] = row[k].first, values_[starts_[r] + k] = row[k].second;
    }
    return no_error;
}

void compressed_sym::multiply(const double* x, double* y, unsigned threads, double factor) const
{
    const long n = long(diag_.size());
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1 && n > 16384)
    for (long r = 0; r < n; ++r) {
        double s = diag_[std::size_t(r)] * x[r];
        for (std::size_t k = starts_[std::size_t(r)]; k < starts_[std::size_t(r) + 1]; ++k) s += values_[k] * x[cols_[k]];
        y[r] += factor * s;
    }
}

void compressed_sym::multiply_rows(const double* X, double* Y, unsigned nb, unsigned threads) const
{
    const long n = long(diag_.size());
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1 && n > 4096)
    for (long r = 0; r < n; ++r) {
        double* y = Y + std::size_t(r) * nb;
        const double d = diag_[std::size_t(r)];
        const double* x = X + std::size_t(r) * nb;
        for (unsigned j = 0; j < nb; ++j) y[j] = d * x[j];
        for (std::size_t k = starts_[std::size_t(r)]; k < starts_[std::size_t(r) + 1]; ++k) {
            const double v = values_[k];
            const double* xc = X + std::size_t(cols_[k]) * nb;
            for (unsigned j = 0; j < nb; ++j) y[j] += v * xc[j];
        }
    }
}

// Y = M X on columns [0, n): in core by groups of columns held by rows, so that M
// is read once a group; otherwise column by column.
error_type multiply_columns(const compressed_sym& M, eigen_basis& X, eigen_basis& Y, unsigned n, unsigned threads)
{
    const unsigned rows = X.rows();
    if (n > 1 && X.all_in_core() && Y.all_in_core()) {
        constexpr unsigned group = 16;
        std::vector<double> Xr, Yr;
        for (unsigned j0 = 0; j0 < n; j0 += group) {
            const unsigned nb = std::min(group, n - j0);
            const double* x[group];
            double* y[group];
            for (unsigned j = 0; j < nb; ++j)
                if (!(x[j] = column_read(X, j0 + j)) || !(y[j] = column(Y, j0 + j))) return memory_error;
            Xr.resize(std::size_t(rows) * nb), Yr.resize(std::size_t(rows) * nb);
            for (unsigned r = 0; r < rows; ++r)
                for (unsigned j = 0; j < nb; ++j) Xr[std::size_t(r) * nb + j] = x[j][r];
            M.multiply_rows(Xr.data(), Yr.data(), nb, threads);
            for (unsigned j = 0; j < nb; ++j)
                for (unsigned r = 0; r < rows; ++r) y[j][r] = Yr[std::size_t(r) * nb + j];
        }
        return no_error;
    }
    for (unsigned j = 0; j < n; ++j) {
        const double* x = column_read(X, j);
        double* y = column(Y, j);
        if (!x || !y) return memory_error;
        std::fill(y, y + Y.rows(), 0.0);
        M.multiply(x, y, threads);
    }
    return no_error;
}

error_type combine_columns(eigen_basis& B, const std::vector<double>& C, unsigned nB, unsigned n, eigen_basis& X,
                           unsigned threads)
{
    const unsigned rows = B.rows();
    if (B.all_in_core() && X.all_in_core()) {
        std::vector<const double*> b(nB);
        std::vector<double*> x(n);
        for (unsigned k = 0; k < nB; ++k)
            if (!(b[k] = column_read(B, k))) return memory_error;
        for (unsigned j = 0; j < n; ++j)
            if (!(x[j] = column(X, j))) return memory_error;
        // By slices of rows, each row's sum in the order of the columns of B.
        constexpr unsigned slice = 512;
        const long slices = long((rows + slice - 1) / slice);
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1 && rows > 4096)
        for (long s = 0; s < slices; ++s) {
            const unsigned r0 = unsigned(s) * slice, r1 = std::min(rows, r0 + slice);
            for (unsigned j = 0; j < n; ++j) {
                double* xj = x[j];
                std::fill(xj + r0, xj + r1, 0.0);
                for (unsigned k = 0; k < nB; ++k) {
                    const double c = C[std::size_t(j) * nB + k];
                    if (c == 0.0) continue;
                    const double* bk = b[k];
                    for (unsigned r = r0; r < r1; ++r) xj[r] += c * bk[r];
                }
            }
        }
        return no_error;
    }
    std::vector<double> acc(rows);
    for (unsigned j = 0; j < n; ++j) {
        std::fill(acc.begin(), acc.end(), 0.0);
        for (unsigned k = 0; k < nB; ++k) {
            const double c = C[std::size_t(j) * nB + k];
            if (c == 0.0) continue;
            const double* bk = column_read(B, k);
            if (!bk) return memory_error;
            for (unsigned r = 0; r < rows; ++r) acc[r] += c * bk[r];
        }
        double* xj = column(X, j);
        if (!xj) return memory_error;
        std::copy(acc.begin(), acc.end(), xj);
    }
    return no_error;
}

error_type reduced_solve(const std::vector<double>& Kr, const std::vector<double>& Mr, unsigned n,
                         std::vector<double>& eigenvalues, std::vector<double>& Q)
{
    eigenvalues.assign(n, 0.0);
    Q.assign(std::size_t(n) * n, 0.0);
    if (n == 0) return no_error;
    // Mr = L Lᵀ, L lower, row major.
    std::vector<double> L(std::size_t(n) * n, 0.0);
    for (unsigned j = 0; j < n; ++j) {
        double d = Mr[packed_at(j, j)];
        for (unsigned k = 0; k < j; ++k) d -= L[std::size_t(j) * n + k] * L[std::size_t(j) * n + k];
        if (!(d > 0.0) || !std::isfinite(d)) return internal_error;
        const double l = std::sqrt(d);
        L[std::size_t(j) * n + j] = l;
        for (unsigned i = j + 1; i < n; ++i) {
            double s = Mr[packed_at(j, i)];
            for (unsigned k = 0; k < j; ++k) s -= L[std::size_t(i) * n + k] * L[std::size_t(j) * n + k];
            L[std::size_t(i) * n + j] = s / l;
        }
    }
    // C = L⁻¹ Kr L⁻ᵀ: W = L⁻¹ Kr column by column, then C = L⁻¹ Wᵀ.
    std::vector<double> W(std::size_t(n) * n), C(std::size_t(n) * n);
    const auto lower_solve = [&](const double* b, double* x) {
        for (unsigned i = 0; i < n; ++i) {
            double s = b[i];
            for (unsigned k = 0; k < i; ++k) s -= L[std::size_t(i) * n + k] * x[k];
            x[i] = s / L[std::size_t(i) * n + i];
        }
    };
    std::vector<double> col(n), out(n);
    for (unsigned j = 0; j < n; ++j) {
        for (unsigned i = 0; i < n; ++i) col[i] = Kr[i <= j ? packed_at(i, j) : packed_at(j, i)];
        lower_solve(col.data(), out.data());
        for (unsigned i = 0; i < n; ++i) W[std::size_t(i) * n + j] = out[i]; // W row major
    }
    for (unsigned j = 0; j < n; ++j) {
        lower_solve(&W[std::size_t(j) * n], out.data()); // row j of W is column j of Wᵀ
        for (unsigned i = 0; i < n; ++i) C[std::size_t(j) * n + i] = out[i];
    }
    std::vector<double> AP(std::size_t(n) * (n + 1) / 2), Z(std::size_t(n) * n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i)
            AP[packed_at(i, j)] = 0.5 * (C[std::size_t(j) * n + i] + C[std::size_t(i) * n + j]);
    double small[9];
    std::vector<double> big;
    double* work = small;
    if (n > 3) {
        big.resize(3 * std::size_t(n) + 1);
        work = big.data();
    }
    long info = 0;
    lapack::dspev('V', 'U', long(n), AP.data(), eigenvalues.data(), Z.data(), long(n), work, info);
    if (info != 0) return error_type(info < 0 ? internal_error : non_convergence_error);
    // q = L⁻ᵀ z, then scaled to qᵀ Mr q = 1.
    for (unsigned j = 0; j < n; ++j) {
        double* q = &Q[std::size_t(j) * n];
        const double* z = &Z[std::size_t(j) * n];
        for (unsigned ii = n; ii-- > 0;) {
            double s = z[ii];
            for (unsigned k = ii + 1; k < n; ++k) s -= L[std::size_t(k) * n + ii] * q[k];
            q[ii] = s / L[std::size_t(ii) * n + ii];
        }
        double m = 0.0;
        for (unsigned a = 0; a < n; ++a)
            for (unsigned b = 0; b < n; ++b) m += q[a] * Mr[a <= b ? packed_at(a, b) : packed_at(b, a)] * q[b];
        if (m > 0.0) {
            const double f = 1.0 / std::sqrt(m);
            for (unsigned a = 0; a < n; ++a) q[a] *= f;
        }
    }
    // dspev gives them ascending already; a stable sort keeps that promise for ties.
    std::vector<unsigned> order(n);
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](unsigned a, unsigned b) { return eigenvalues[a] < eigenvalues[b]; });
    std::vector<double> values(n), sorted(std::size_t(n) * n);
    for (unsigned k = 0; k < n; ++k) {
        values[k] = eigenvalues[order[k]];
        std::copy_n(&Q[std::size_t(order[k]) * n], n, &sorted[std::size_t(k) * n]);
    }
    eigenvalues.swap(values);
    Q.swap(sorted);
    return no_error;
}

std::pair<unsigned, unsigned> select_modes(const std::vector<double>& values, const eigen_band& band,
                                           unsigned nbr_wanted, double pivot)
{
    unsigned first = unsigned(std::lower_bound(values.begin(), values.end(), band.lower) - values.begin());
    unsigned last = unsigned(std::upper_bound(values.begin(), values.end(), band.upper) - values.begin());
    if (last < first) last = first;
    while (last > first && values[last - 1] == DBL_MAX) --last;
    if (last - first <= nbr_wanted) return {first, last};
    if (pivot == -DBL_MAX) return {first, first + nbr_wanted};
    if (pivot == DBL_MAX) return {last - nbr_wanted, last};
    std::vector<unsigned> pos(last - first);
    std::iota(pos.begin(), pos.end(), first);
    std::stable_sort(pos.begin(), pos.end(),
                     [&](unsigned a, unsigned b) { return std::fabs(values[a] - pivot) < std::fabs(values[b] - pivot); });
    const unsigned lowest = *std::min_element(pos.begin(), pos.begin() + nbr_wanted);
    return {lowest, lowest + nbr_wanted};
}

error_type start_vectors(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M,
                         unsigned first, eigen_basis& X, std::mt19937& generator, unsigned threads)
{
    const unsigned cols = X.cols(), rows = X.rows();
    if (first >= cols || rows == 0) return no_error;
    const double s = 1.0 / std::sqrt(double(rows));
    for (unsigned c = first; c < cols; ++c) {
        double* x = column(X, c);
        if (!x) return memory_error;
        std::fill(x, x + rows, 0.0);
    }
    std::vector<double> d = M.diagonal();
    d.resize(rows, 0.0);
    if (std::all_of(d.begin(), d.end(), [](double v) { return v == 0.0; }))
        return add_random(X, first, cols, generator, 2.0 * s * 2.3283064365386963e-10);
    {
        double* x = column(X, first);
        if (!x) return memory_error;
        std::copy(d.begin(), d.end(), x);
    }
    // The diagonal swept by the factor ranks the positions where unit vectors
    // start; the random factor breaks ties of a regular mesh.
    double energy = 0.0;
    if (K.nbr_rows() == rows)
        if (const error_type e = forward(K, d.data(), threads, energy); e != no_error) return e;
    for (double& v : d) v *= double(generator()) * 1.1641532185403987e-10 + 0.75;
    unsigned c = first + 1;
    for (; c < cols; ++c) {
        unsigned i = 0;
        for (unsigned r = 1; r < rows; ++r)
            if (std::fabs(d[r]) > std::fabs(d[i])) i = r;
        if (d[i] == 0.0) break;
        double* x = column(X, c);
        if (!x) return memory_error;
        x[i] = d[i] < 0.0 ? -1.0 : 1.0;
        d[i] = 0.0;
    }
    return add_random(X, c, cols, generator, s * 4.656612874161595e-10);
}

error_type lanczos(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M, eigen_basis& X,
                   std::mt19937& generator, iteration_observer& observer, unsigned threads, unsigned& filled)
{
    const unsigned n = X.cols(), rows = X.rows();
    filled = 0;
    if (n == 0 || rows == 0) return no_error;
    std::vector<double> q(rows), w(rows), signs(n, 1.0), d(n);
    const double s = 1.0 / std::sqrt(double(rows));
    bool restart = true;
    unsigned restarts = 0, j = 0;
    const auto M_dot = [&](const std::vector<double>& v) {
        std::fill(w.begin(), w.end(), 0.0);
        M.multiply(v.data(), w.data(), threads);
        return dot(v.data(), w.data(), rows);
    };
    while (j < n && !observer.stop_requested()) {
        const bool random = restart || n < 7 || j % (n / 6) == 0;
        if (!random) {
            const double* prev = column_read(X, j - 1);
            if (!prev) return memory_error;
            std::fill(q.begin(), q.end(), 0.0);
            M.multiply(prev, q.data(), threads);
            double energy = 0.0;
            error_type e = forward(K, q.data(), threads, energy);
            if (e == no_error) e = backward(K, q.data(), threads);
            if (e != no_error) return e;
        }
        if (restart) {
            if (j != 0) log_line(observer, 3, "iter #%d : restart.\n", int(j));
            if (++restarts >= 4) break;
        }
        if (random)
            for (double& v : q) v = double(generator()) * (2.0 * s * 2.3283064365386963e-10) - s;
        double v = M_dot(q);
        if (v == 0.0) {
            restart = true;
            continue;
        }
        double f = 1.0 / std::sqrt(std::fabs(v));
        for (double& x : q) x *= f;
        double sign = v > 0.0 ? 1.0 : -1.0;
        bool accepted = false;
        for (unsigned pass = 0; pass < 3 && !accepted; ++pass) {
            std::fill(w.begin(), w.end(), 0.0);
            M.multiply(q.data(), w.data(), threads);
            for (unsigned k = 0; k < j; ++k) {
                const double* xk = column_read(X, k);
                if (!xk) return memory_error;
                d[k] = dot(w.data(), xk, rows);
            }
            for (unsigned k = 0; k < j; ++k) {
                const double* xk = column_read(X, k);
                if (!xk) return memory_error;
                const double c = d[k] * signs[k];
                for (unsigned r = 0; r < rows; ++r) q[r] -= c * xk[r];
            }
            v = M_dot(q);
            accepted = std::fabs(v) > 0.25 && (v > 0.0) == (sign > 0.0);
            if (v == 0.0) break;
            f = 1.0 / std::sqrt(std::fabs(v));
            for (double& x : q) x *= f;
            sign = v > 0.0 ? 1.0 : -1.0;
        }
        if (accepted) {
            double* x = column(X, j);
            if (!x) return memory_error;
            std::copy(q.begin(), q.end(), x);
            signs[j] = sign;
            restarts = 0;
            restart = false;
            filled = ++j;
        } else {
            restart = true;
        }
    }
    return no_error;
}

error_type eigen_subspace::run(const symmetric_hybrid_OOC<double>& K, const symmetric_hybrid_OOC<double>& M_matrix,
                               double sigma, eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y,
                               unsigned nbr_wanted, unsigned nbr_cols, unsigned nbr_given, const eigen_band& band,
                               double pivot)
{
    compressed_sym M;
    if (const error_type e = M.build(M_matrix); e != no_error) return e;
    return run(K, M, sigma, X, lambda, Y, nbr_wanted, nbr_cols, nbr_given, band, pivot);
}

error_type eigen_subspace::run(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M, double sigma,
                               eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y, unsigned nbr_wanted,
                               unsigned nbr_cols, unsigned nbr_given, const eigen_band& band, double pivot)
{
    lambda.clear();
    iterations = 0;
    nbr_cols = std::min(nbr_cols, X.cols());
    const unsigned rows = X.rows();
    if (nbr_cols == 0 || rows == 0) return no_error;
    if (Y.rows() != rows || Y.cols() < nbr_cols || Y.proxy == X.proxy) return internal_error;
    observer.log(2, "Subspace iterations algorithm.\n");
    const unsigned threads = std::max(1u, settings.threads);
    std::mt19937 generator(1);
    std::vector<double> Kr, Mr, Q, values, previous;
    unsigned previous_first = 0;
    nbr_given = std::min(nbr_given, nbr_cols);

    eigen_basis A(X, 0, 0, rows, nbr_cols), B(Y, 0, 0, rows, nbr_cols); // A solved, B multiplied
    for (unsigned j = 0; j < nbr_cols; ++j) {
        double* b = column(B, j);
        if (!b) return memory_error;
        std::fill(b, b + rows, 0.0);
    }
    error_type e = multiply_columns(M, A, B, nbr_given, threads);
    if (e == no_error) e = start_vectors(K, M, nbr_given, B, generator, threads);
    if (e != no_error) return e;

    bool converged = false, have_modes = false;
    unsigned first = 0, last = 0;
    while (e == no_error && !observer.stop_requested() && nbr_cols > 0) {
        have_modes = false;
        A = eigen_basis(A, 0, 0, rows, nbr_cols);
        B = eigen_basis(B, 0, 0, rows, nbr_cols);
        if ((e = copy_columns(B, A, nbr_cols)) != no_error) break;
        if ((e = solve_in_place(K, A, nbr_cols, threads, settings.LLC_size)) != no_error) break;
        if ((e = project(A, B, nbr_cols, Kr, threads)) != no_error) break;
        if ((e = multiply_columns(M, A, B, nbr_cols, threads)) != no_error) break;
        if ((e = project(A, B, nbr_cols, Mr, threads)) != no_error) break;
        for (std::size_t k = 0; k < Kr.size(); ++k) Kr[k] += sigma * Mr[k];
        if (observer.stop_requested()) break;
        double lo = 0.0, hi = 0.0;
        unsigned bad = first_bad_pivot(Kr, nbr_cols, lo, hi);
        if (!std::isfinite(lo) || !std::isfinite(hi)) break;
        if (bad == nbr_cols) {
            // A dependent basis may still pass Kr and fail the Cholesky step of Mr.
            e = reduced_solve(Kr, Mr, nbr_cols, values, Q);
            if (e == internal_error) e = no_error, bad = nbr_cols - 1;
            if (e != no_error) break;
        }
        if (bad < nbr_cols) {
            log_line(observer, 2, "%3d- bad mode(s).\n", int(iterations));
            previous.clear();
            --nbr_cols;
            if (nbr_cols == 0) break;
            A = eigen_basis(A, 0, 0, rows, nbr_cols);
            B = eigen_basis(B, 0, 0, rows, nbr_cols);
            if ((e = start_vectors(K, M, std::min(bad, nbr_cols), A, generator, threads)) != no_error) break;
            if (iterations++ >= settings.max_iters) break;
            if ((e = multiply_columns(M, A, B, nbr_cols, threads)) != no_error) break;
            continue;
        }
        have_modes = true;
        for (double& v : values) v -= sigma;
        std::tie(first, last) = select_modes(values, band, nbr_wanted, pivot);
        double residue = iterations == 0 ? 1.0 : 0.0;
        if (iterations > 0) {
            for (unsigned i = first; i < last; ++i) {
                const unsigned k = i - first + previous_first;
                double r = 1.0;
                if (k < previous.size()) {
                    const double a = values[i], b = previous[k], m = std::max(std::fabs(a), std::fabs(b));
                    r = m == 0.0 ? 0.0 : std::fabs(a - b) / m;
                }
                if (std::isfinite(r)) residue = std::max(residue, r);
            }
        }
        previous = values;
        previous_first = first;
        log_line(observer, 2, "%3d- residue             : %+E\n", int(iterations), residue);
        observer.iteration(iterations, residue);
        converged = residue < settings.tolerance;
        if (settings.convergence_check) settings.convergence_check(settings.user_data, iterations, residue, converged);
        if (converged) break;
        if (iterations >= settings.max_iters) {
            ++iterations;
            break;
        }
        // The next right-hand sides: (M A) Q, into A, which then plays B.
        if ((e = combine_columns(B, Q, nbr_cols, nbr_cols, A, threads)) != no_error) break;
        std::swap(A, B);
        ++iterations;
    }
    if (e != no_error) return e;
    if (!have_modes || observer.stop_requested()) first = last = 0;
    if (converged) log_line(observer, 2, "Convergence within %d iterations.\n", int(iterations));
    const unsigned m = last - first;
    lambda.assign(values.begin() + first, values.begin() + last);
    std::vector<double> kept(std::size_t(nbr_cols) * m);
    for (unsigned k = 0; k < m; ++k)
        std::copy_n(&Q[std::size_t(first + k) * nbr_cols], nbr_cols, &kept[std::size_t(k) * nbr_cols]);
    // The modes A Q go to B's store, which the caller then sees as X.
    eigen_basis modes(B, 0, 0, rows, m);
    if (m) {
        if ((e = combine_columns(A, kept, nbr_cols, m, modes, threads)) != no_error) return e;
        std::vector<double> w(rows);
        for (unsigned j = 0; j < m; ++j) {
            double* x = column(modes, j);
            if (!x) return memory_error;
            (void)M_normalise(M, x, rows, w, threads);
        }
    }
    const eigen_basis work = A.proxy == X.proxy ? X : Y;
    X = modes;
    Y = work;
    return converged ? no_error : non_convergence_error;
}

error_type eigen_Lanczos_hybrid::run(const symmetric_hybrid_OOC<double>& K, const symmetric_hybrid_OOC<double>& M_matrix,
                                     double sigma, eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y,
                                     unsigned nbr_wanted, unsigned nbr_given, const eigen_band& band, double pivot)
{
    compressed_sym M;
    if (const error_type e = M.build(M_matrix); e != no_error) return e;
    return run(K, M, sigma, X, lambda, Y, nbr_wanted, nbr_given, band, pivot);
}

error_type eigen_Lanczos_hybrid::run(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M, double sigma,
                                     eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y, unsigned nbr_wanted,
                                     unsigned nbr_given, const eigen_band& band, double pivot)
{
    lambda.clear();
    iterations = 0;
    if (X.empty()) return no_error;
    observer.log(2, "Lanczos hybrid algorithm.\n");
    double t = wall_clock();
    std::mt19937 generator(1);
    unsigned filled = 0;
    const error_type e = lanczos(K, M, X, generator, observer, std::max(1u, settings.threads), filled);
    nbr_wanted = std::min(nbr_wanted, X.cols());
    log_line(observer, 3, "  Lanczos                          : %10.2f s.\n", wall_clock() - t);
    if (e != no_error) return e;
    (void)nbr_given;
    t = wall_clock();
    eigen_subspace subspace(settings, observer);
    const error_type r = subspace.run(K, M, sigma, X, lambda, Y, nbr_wanted, X.cols(), filled, band, pivot);
    iterations = subspace.iterations;
    log_line(observer, 3, "  Subspace iterations              : %10.2f s.\n", wall_clock() - t);
    return r;
}

error_type orthonormalize(const compressed_sym& M, eigen_basis& V, unsigned nbr_done, eigen_basis& X,
                          eigen_basis& Y, double drop, unsigned passes, unsigned threads, unsigned& kept)
{
    (void)Y;
    const unsigned rows = X.rows();
    std::vector<double> q(rows), w(rows);
    kept = 0;
    for (unsigned c = 0; c < X.cols(); ++c) {
        const double* src = column_read(X, c);
        if (!src) return memory_error;
        std::copy(src, src + rows, q.begin());
        std::fill(w.begin(), w.end(), 0.0);
        M.multiply(q.data(), w.data(), threads);
        const double before = dot(q.data(), w.data(), rows);
        for (unsigned pass = 0; pass < passes; ++pass) {
            if (pass > 0) {
                std::fill(w.begin(), w.end(), 0.0);
                M.multiply(q.data(), w.data(), threads);
            }
            const auto remove = [&](const double* v) {
                const double a = dot(v, w.data(), rows);
                for (unsigned r = 0; r < rows; ++r) q[r] -= a * v[r];
            };
            for (unsigned k = 0; k < nbr_done; ++k) {
                const double* v = column_read(V, k);
                if (!v) return memory_error;
                remove(v);
            }
            for (unsigned k = 0; k < kept; ++k) {
                const double* v = column_read(X, k);
                if (!v) return memory_error;
                remove(v);
            }
        }
        const double after = M_normalise(M, q.data(), rows, w, threads);
        if (!(before > 0.0) || !(after > 0.0) || std::sqrt(after) < drop * std::sqrt(before)) continue;
        double* x = column(X, kept);
        if (!x) return memory_error;
        std::copy(q.begin(), q.end(), x);
        ++kept;
    }
    return no_error;
}

error_type eigen_LDRV::run(const symmetric_hybrid_OOC<double>& K, const matrix_product& product,
                           const symmetric_hybrid_OOC<double>& M_matrix, const eigen_band& band, eigen_basis& V,
                           std::vector<double>& lambda, std::vector<double>& Q, eigen_basis& X, eigen_basis& Y)
{
    compressed_sym M;
    if (const error_type e = M.build(M_matrix); e != no_error) return e;
    return run(K, product, M, band, V, lambda, Q, X, Y);
}

error_type eigen_LDRV::run(const symmetric_hybrid_OOC<double>& K, const matrix_product& product,
                           const compressed_sym& M, const eigen_band& band, eigen_basis& V,
                           std::vector<double>& lambda, std::vector<double>& Q, eigen_basis& X, eigen_basis& Y)
{
    lambda.clear();
    Q.clear();
    block_widths.clear();
    if (V.cols() == 0) return no_error;
    const unsigned rows = V.rows(), threads = std::max(1u, settings.threads);
    double t = wall_clock();
    unsigned done = 0, width = X.cols();
    error_type e = no_error;
    eigen_basis Xb = X, Yb = Y;
    while (e == no_error && !observer.stop_requested() && done < V.cols() && width > 0) {
        unsigned kept = 0;
        if ((e = orthonormalize(M, V, done, Xb, Yb, 1e-12, 2, threads, kept)) != no_error) break;
        const unsigned added = std::min(kept, V.cols() - done);
        for (unsigned j = 0; j < added; ++j) {
            const double* x = column_read(Xb, j);
            double* v = column(V, done + j);
            if (!x || !v) return memory_error;
            std::copy(x, x + rows, v);
        }
        if (added) block_widths.push_back(added);
        done += added;
        width = kept;
        if (width == 0 || done >= V.cols()) break;
        Xb = eigen_basis(X, 0, 0, rows, width);
        Yb = eigen_basis(Y, 0, 0, rows, width);
        if ((e = multiply_columns(M, Xb, Yb, width, threads)) != no_error) break;
        if ((e = copy_columns(Yb, Xb, width)) != no_error) break;
        e = solve_in_place(K, Xb, width, threads, settings.LLC_size);
    }
    log_line(observer, 3, "  LDRV generation                  : %10.2f s.\n", wall_clock() - t);
    V = eigen_basis(V, 0, 0, rows, done);
    if (e != no_error || done == 0 || observer.stop_requested()) return e;
    t = wall_clock();
    // V is M-orthonormal: Vᵀ A V x = λ x is a standard problem.
    std::vector<double> AP(std::size_t(done) * (done + 1) / 2), y(rows), values(done), Z(std::size_t(done) * done);
    for (unsigned j = 0; j < done; ++j) {
        std::vector<double> x(rows);
        {
            const double* v = column_read(V, j);
            if (!v) return memory_error;
            std::copy(v, v + rows, x.begin());
        }
        std::fill(y.begin(), y.end(), 0.0);
        if ((e = product(x.data(), y.data())) != no_error) return e;
        for (unsigned i = 0; i <= j; ++i) {
            const double* v = column_read(V, i);
            if (!v) return memory_error;
            AP[packed_at(i, j)] = dot(v, y.data(), rows);
        }
    }
    std::vector<double> work(3 * std::size_t(done) + 1);
    long info = 0;
    lapack::dspev('V', 'U', long(done), AP.data(), values.data(), Z.data(), long(done), work.data(), info);
    if (info != 0) return internal_error;
    unsigned last = unsigned(std::upper_bound(values.begin(), values.end(), band.upper) - values.begin());
    unsigned first = 0;
    if (band.lower > -DBL_MAX)
        first = std::min(last, unsigned(std::lower_bound(values.begin(), values.end(), band.lower) - values.begin()));
    lambda.assign(values.begin() + first, values.begin() + last);
    Q.assign(Z.begin() + std::ptrdiff_t(first) * done, Z.begin() + std::ptrdiff_t(last) * done);
    log_line(observer, 3, "  Eigen resolution                 : %10.2f s.\n", wall_clock() - t);
    return no_error;
}

} // namespace kelt::core
