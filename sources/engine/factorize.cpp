#include "kelt/engine/factorize.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "kelt/engine/kernels.h"

namespace kelt::core {

namespace {

constexpr unsigned none = 0xFFFFFFFFu;
constexpr unsigned group_cols = 64;   // columns of pair products computed at once
constexpr unsigned lock_stripes = 256;

struct workspace {
    std::vector<double> W;
    std::vector<const double*> A, B;
    std::vector<unsigned> la, lb, later;
    std::vector<double*> targets;
    std::vector<unsigned> avail;
    std::vector<std::vector<double>> C; // one a thread of the block's team
};

// Locks against other blocks adding to the same columns at the same time.
struct update_locks {
    omp_lock_t stripe[lock_stripes];
    update_locks()
    {
        for (auto& l : stripe) omp_init_lock(&l);
    }
    ~update_locks()
    {
        for (auto& l : stripe) omp_destroy_lock(&l);
    }
    omp_lock_t& of(unsigned column) { return stripe[column % lock_stripes]; }
};

// Addressing inside one block.
struct block_ref {
    const symmetric_skyline_block& v;
    unsigned f, e;
    explicit block_ref(const symmetric_skyline_block& view) : v(view), f(view.first), e(view.end()) {}
    unsigned top(unsigned s) const { return v.seg_top(s); }
    // Address of the entry of segment s at row r: the r just past the segment's end is its end.
    double* at(unsigned s, unsigned r) const
    {
        const unsigned c = v.columns[s];
        return v.seg_end(s) - ((c < e ? c : e) - r);
    }
};

// Splits [0, n) among the team of the calling thread and runs body(begin, end, thread).
template <class Body>
void team_for(unsigned n, unsigned threads, unsigned min_work, Body&& body)
{
    if (threads < 2 || n < 2 || n < min_work) {
        body(0u, n, 0u);
        return;
    }
#pragma omp parallel num_threads(threads)
    {
        const unsigned t = unsigned(omp_get_thread_num()), team = unsigned(omp_get_num_threads());
        const unsigned chunk = (n + team - 1) / team;
        const unsigned b = std::min(n, t * chunk), e = std::min(n, b + chunk);
        if (b < e) body(b, e, t);
    }
}

// Dynamic version for uneven items.
template <class Body>
void team_dynamic(unsigned n, unsigned threads, Body&& body)
{
    if (threads < 2 || n < 2) {
        for (unsigned i = 0; i < n; ++i) body(i, 0u);
        return;
    }
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1)
    for (unsigned i = 0; i < n; ++i) body(i, unsigned(omp_get_thread_num()));
}

// Later columns of a panel: band columns after it and extra columns with a row in it.
void collect_later(const block_ref& B, unsigned p1, std::vector<unsigned>& later, unsigned& band_count)
{
    later.clear();
    for (unsigned s = p1 - B.f; s < B.v.dim; ++s)
        if (B.top(s) < p1) later.push_back(s);
    band_count = unsigned(later.size());
    for (unsigned s = B.v.dim; s < B.v.nbr_segments; ++s)
        if (B.top(s) < p1) later.push_back(s);
}

// The panel's rows applied to the later columns inside the panel: a triangular
// solve, one row at a time, four columns at a time.
void panel_solve(const block_ref& B, unsigned p0, unsigned p1, workspace& ws, unsigned threads)
{
    const kernel_table& K = kernels();
    const std::vector<unsigned>& later = ws.later;
    team_for(unsigned(later.size()), threads, 8, [&](unsigned b, unsigned e, unsigned) {
        std::vector<double*> targets;
        std::vector<unsigned> avail;
        targets.reserve(e - b);
        avail.reserve(e - b);
        for (unsigned k = p0; k < p1; ++k) {
            const unsigned sk = k - B.f, lo_k = std::max(p0, B.top(sk));
            if (lo_k >= k) continue;
            targets.clear();
            avail.clear();
            for (unsigned i = b; i < e; ++i) {
                const unsigned s = later[i], top = B.top(s);
                if (top > k) continue;
                const unsigned lo = std::max(top, p0);
                if (lo >= k) continue;
                targets.push_back(B.at(s, k));
                avail.push_back(k - lo);
            }
            K.row_update(B.at(sk, k), k - lo_k, unsigned(targets.size()), targets.data(), avail.data());
        }
    });
}

// The panel's rows applied to every later (row, column) pair below the panel.
void panel_trailing(const block_ref& B, unsigned p0, unsigned p1, unsigned band_count, workspace& ws,
                    unsigned threads)
{
    const kernel_table& K = kernels();
    const std::vector<unsigned>& later = ws.later;
    const unsigned n = unsigned(later.size()), P = p1 - p0;
    if (band_count == 0) return;
    const double* dinv = B.v.diag();
    // Scaled copies of the later band columns over the panel, right-aligned in slots.
    ws.W.resize(std::size_t(band_count) * P);
    ws.A.resize(n);
    ws.la.resize(n);
    ws.B.resize(band_count);
    ws.lb.resize(band_count);
    for (unsigned i = 0; i < n; ++i) {
        const unsigned s = later[i], lo = std::max(B.top(s), p0);
        ws.A[i] = B.at(s, p1);
        ws.la[i] = p1 - lo;
        if (i < band_count) {
            double* slot_end = ws.W.data() + std::size_t(i + 1) * P;
            const double* u = B.at(s, lo);
            for (unsigned r = lo; r < p1; ++r) slot_end[int(r) - int(p1)] = u[r - lo] * dinv[r - B.f];
            ws.B[i] = slot_end;
            ws.lb[i] = p1 - lo;
        }
    }
    const unsigned groups = (band_count + group_cols - 1) / group_cols;
    team_dynamic(groups, threads, [&](unsigned g, unsigned t) {
        const unsigned j0 = g * group_cols, nj = std::min(group_cols, band_count - j0), ni = n - j0;
        std::vector<double>& C = ws.C[t];
        C.resize(std::size_t(ni) * nj);
        K.pair_dots(ws.A.data() + j0, ws.la.data() + j0, ni, ws.B.data() + j0, ws.lb.data() + j0, nj, C.data(), ni,
                    true);
        for (unsigned jj = 0; jj < nj; ++jj) {
            const unsigned row = later[j0 + jj] + B.f; // a later band column is a later row
            for (unsigned ii = jj + 1; ii < ni; ++ii) *B.at(later[j0 + ii], row) -= C[ii + std::size_t(jj) * ni];
        }
    });
}

// The block's Schur complement, added to the later blocks.
error_type send_updates(const block_ref& B, block_proxy_data& data, workspace& ws, update_locks& locks,
                        unsigned threads)
{
    const kernel_table& K = kernels();
    const unsigned E = B.v.nbr_extra(), dim = B.v.dim;
    if (E == 0) return no_error;
    const double* dinv = B.v.diag();
    std::size_t total = 0;
    for (unsigned x = 0; x < E; ++x) total += B.v.seg_length(dim + x);
    ws.W.resize(total);
    ws.A.resize(E);
    ws.la.resize(E);
    ws.B.resize(E);
    ws.lb.resize(E);
    std::size_t at = 0;
    for (unsigned x = 0; x < E; ++x) {
        const unsigned s = dim + x, len = B.v.seg_length(s), top = B.e - len;
        const double* u = B.v.seg_end(s) - len;
        double* w = ws.W.data() + at;
        for (unsigned k = 0; k < len; ++k) w[k] = u[k] * dinv[top - B.f + k];
        at += len;
        ws.A[x] = B.v.seg_end(s);
        ws.la[x] = len;
        ws.B[x] = w + len;
        ws.lb[x] = len;
    }
    std::atomic<int> failed{0};
    const unsigned groups = (E + group_cols - 1) / group_cols;
    team_dynamic(groups, threads, [&](unsigned g, unsigned t) {
        const unsigned j0 = g * group_cols, nj = std::min(group_cols, E - j0), ni = E - j0;
        std::vector<double>& C = ws.C[t];
        C.resize(std::size_t(ni) * nj);
        K.pair_dots(ws.A.data() + j0, ws.la.data() + j0, ni, ws.B.data() + j0, ws.lb.data() + j0, nj, C.data(), ni,
                    true);
        // Column by column of the target: the rows of one target block are one run.
        for (unsigned ii = 0; ii < ni; ++ii) {
            const unsigned column = B.v.columns[dim + j0 + ii];
            const unsigned jend = std::min(nj, ii + 1);
            omp_set_lock(&locks.of(column));
            for (unsigned jj = 0; jj < jend;) {
                const unsigned row0 = B.v.columns[dim + j0 + jj];
                const unsigned tb = data.block_of_row(row0);
                const symmetric_skyline_block* T = data.find_block(tb);
                unsigned hint = T->dim;
                const unsigned s = T->find_segment(column, hint);
                const unsigned te = T->end(), ce = column < te ? column : te;
                for (; jj < jend; ++jj) {
                    const unsigned row = B.v.columns[dim + j0 + jj];
                    if (row >= te) break;
                    const double v = C[ii + std::size_t(jj) * ni];
                    if (row == column) {
                        T->values[row - T->first] -= v;
                    } else if (s < T->nbr_segments && ce - row <= T->seg_length(s)) {
                        T->seg_end(s)[-int(ce - row)] -= v;
                    } else {
                        failed = 1;
                    }
                }
            }
            omp_unset_lock(&locks.of(column));
        }
    });
    if (failed) return internal_error;
    // The extra segments now hold L.
    at = 0;
    for (unsigned x = 0; x < E; ++x) {
        const unsigned len = ws.la[x];
        std::memcpy(B.v.seg_end(dim + x) - len, ws.W.data() + at, len * sizeof(double));
        at += len;
    }
    return no_error;
}

template <class Checker>
error_type factor_block(block_proxy_data& data, unsigned b, Checker& checker, workspace& ws, update_locks& locks,
                        unsigned threads)
{
    const symmetric_skyline_block view = data.block_for_access(b);
    if (view.empty()) return internal_error;
    const block_ref B(view);
    const kernel_table& K = kernels();
    ws.C.resize(std::max(threads, 1u));
    double* diag = view.diag();
    for (unsigned p0 = B.f; p0 < B.e; p0 += factor_panel_rows) {
        const unsigned p1 = std::min(B.e, p0 + factor_panel_rows);
        // The panel's own columns: the panel rows above each, then its pivot.
        for (unsigned r = p0; r < p1; ++r) {
            const unsigned s = r - B.f, top = B.top(s), m = view.seg_length(s);
            for (unsigned k = std::max(top, p0); k < r; ++k) {
                const unsigned sk = k - B.f, lo = std::max({p0, top, B.top(sk)});
                if (lo < k) *B.at(s, k) -= K.dot(B.at(sk, k), B.at(s, k), k - lo);
            }
            double d = diag[s] - K.scale_and_dot(B.at(s, top), diag + (top - B.f), m);
            if (auto e = checker.check(d, r); e != no_error) return e;
            diag[s] = 1.0 / d;
        }
        unsigned band_count = 0;
        collect_later(B, p1, ws.later, band_count);
        if (ws.later.empty()) continue;
        panel_solve(B, p0, p1, ws, threads);
        panel_trailing(B, p0, p1, band_count, ws, threads);
    }
    return send_updates(B, data, ws, locks, threads);
}

// Each thread's own checker, merged into the shared one.
template <class Checker>
Checker fresh_copy(const Checker& c)
{
    Checker copy = c;
    copy.reset_statistics();
    if constexpr (requires { copy.count; }) copy.count = 0;
    return copy;
}

} // namespace

std::vector<unsigned> block_parents(const block_proxy_data& data)
{
    std::vector<unsigned> parent(data.nbr_blocks(), none);
    for (unsigned b = 0; b < data.nbr_blocks(); ++b) {
        const symmetric_skyline_block* v = data.find_block(b);
        if (v && v->nbr_extra()) parent[b] = data.block_of_row(v->columns[v->dim]);
    }
    return parent;
}

std::vector<unsigned> block_levels(const std::vector<unsigned>& parents)
{
    std::vector<unsigned> level(parents.size(), 0);
    for (unsigned k = 0; k < parents.size(); ++k)
        if (parents[k] != none) level[parents[k]] = std::max(level[parents[k]], level[k] + 1);
    return level;
}

template <class Checker>
error_type factorize(symmetric_hybrid_OOC<double>& A, Checker& checker, unsigned, unsigned nbr_threads)
{
    block_proxy_data* data = A.proxy();
    if (!data) return no_error;
    block_cursor cursor(A, false);
    const unsigned nb = data->nbr_blocks(), T = std::max(nbr_threads, 1u);
    try {
        update_locks locks;
        if (T < 2 || nb < 2 || data->nbr_values() <= 128) {
            workspace ws;
            for (unsigned b = 0; b < nb; ++b)
                if (auto e = factor_block(*data, b, checker, ws, locks, T); e != no_error) return e;
            return no_error;
        }
        const std::vector<unsigned> level = block_levels(block_parents(*data));
        const unsigned nbr_levels = nb ? *std::max_element(level.begin(), level.end()) + 1 : 0;
        std::vector<unsigned> level_ptr(nbr_levels + 1, 0), by_level(nb);
        for (unsigned l : level) ++level_ptr[l + 1];
        for (unsigned l = 0; l < nbr_levels; ++l) level_ptr[l + 1] += level_ptr[l];
        {
            std::vector<unsigned> fill(level_ptr.begin(), level_ptr.end() - 1);
            for (unsigned b = 0; b < nb; ++b) by_level[fill[level[b]]++] = b;
        }
        const int saved_levels = omp_get_max_active_levels();
        omp_set_max_active_levels(2);
        std::vector<workspace> ws(T);
        std::vector<Checker> copies(T, fresh_copy(checker));
        std::atomic<int> error{no_error};
        for (unsigned l = 0; l < nbr_levels && error == no_error; ++l) {
            const unsigned first = level_ptr[l], count = level_ptr[l + 1] - first;
            const unsigned team = std::min(count, T), inner = std::max(T / team, 1u);
#pragma omp parallel for num_threads(team) schedule(dynamic, 1)
            for (unsigned i = 0; i < count; ++i) {
                if (error != no_error) continue;
                const unsigned t = unsigned(omp_get_thread_num());
                const error_type e = factor_block(*data, by_level[first + i], copies[t], ws[t], locks, inner);
                if (e != no_error) {
                    int expected = no_error;
                    error.compare_exchange_strong(expected, e);
                }
            }
        }
        omp_set_max_active_levels(saved_levels);
        for (const Checker& c : copies) {
            if constexpr (requires { checker.count; }) checker.merge(c);
            else checker.pivot_checker_base::merge(c);
        }
        return error_type(error.load());
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_check_positive&, unsigned, unsigned);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive&, unsigned, unsigned);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_definite&, unsigned, unsigned);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive_rnd&, unsigned, unsigned);
template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<false>&, unsigned, unsigned);
template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<true>&, unsigned, unsigned);

double forward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned)
{
    const block_proxy_data* data = A.proxy();
    if (!data) return 0.0;
    const kernel_table& K = kernels();
    double total = 0.0;
    for (unsigned b = 0; b < data->nbr_blocks(); ++b) {
        const symmetric_skyline_block& v = *data->find_block(b);
        const unsigned f = v.first, e = v.end();
        for (unsigned s = 1; s < v.dim; ++s) x[f + s] -= K.dot(v.seg_end(s), x + f + s, v.seg_length(s));
        for (unsigned s = v.dim; s < v.nbr_segments; ++s) x[v.columns[s]] -= K.dot(v.seg_end(s), x + e, v.seg_length(s));
        total += K.scale_and_dot(x + f, v.diag(), v.dim);
    }
    return total;
}

error_type backward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned)
{
    const block_proxy_data* data = A.proxy();
    if (!data) return no_error;
    const kernel_table& K = kernels();
    for (unsigned b = data->nbr_blocks(); b-- > 0;) {
        const symmetric_skyline_block& v = *data->find_block(b);
        const unsigned f = v.first, e = v.end();
        for (unsigned s = v.nbr_segments; s-- > v.dim;) {
            const unsigned len = v.seg_length(s);
            K.axpy(-x[v.columns[s]], v.seg_end(s) - len, x + e - len, len);
        }
        for (unsigned s = v.dim; s-- > 1;) {
            const unsigned len = v.seg_length(s);
            K.axpy(-x[f + s], v.seg_end(s) - len, x + f + s - len, len);
        }
    }
    return no_error;
}

void forward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols, double* energies,
                   unsigned, unsigned nbr_threads)
{
    const int T = int(std::max(1u, std::min(nbr_threads, cols)));
#pragma omp parallel for num_threads(T) schedule(dynamic, 1) if (T > 1)
    for (unsigned j = 0; j < cols; ++j) energies[j] = forward(A, X + std::size_t(j) * ld, 1);
}

error_type backward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols, unsigned,
                          unsigned nbr_threads)
{
    const int T = int(std::max(1u, std::min(nbr_threads, cols)));
#pragma omp parallel for num_threads(T) schedule(dynamic, 1) if (T > 1)
    for (unsigned j = 0; j < cols; ++j) (void)backward(A, X + std::size_t(j) * ld, 1);
    return no_error;
}

error_type solve_single(const symmetric_hybrid_OOC<double>& A, const double* b, double* x, double& energy,
                        const std::vector<unsigned>& fixed_rows, unsigned nbr_threads)
{
    const unsigned n = A.nbr_rows();
    if (x != b) std::copy(b, b + n, x);
    energy = forward(A, x, nbr_threads);
    if (auto e = backward(A, x, nbr_threads); e != no_error) return e;
    for (unsigned r : fixed_rows)
        if (r < n) x[r] = 0.0;
    return no_error;
}

} // namespace kelt::core
