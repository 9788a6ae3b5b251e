#include "kelt/engine/factorize.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

#include "kelt/engine/factor_cost.h"
#include "kelt/engine/kernels.h"

namespace kelt::core {

namespace {

constexpr unsigned none = 0xFFFFFFFFu;
constexpr unsigned lock_stripes = 256;
constexpr unsigned max_group_tile = 64;
constexpr unsigned max_solve_tile = 64;
constexpr std::size_t small_level_values = 1u << 15; // below this a level runs on one thread

// The columns of pair products computed at once in the factorisation, whose packed
// panel and products a thread keeps while the rows stream past: one column per
// 512 KiB of last-level cache, in whole register tiles of the product kernel, up to
// the 64 columns at which they were tuned (reached at 32 MiB); larger tiles only
// cut the work into fewer pieces. It changes no result: each product is summed in
// the order of its rows from a panel boundary fixed by the kernel.
struct tile_sizes {
    unsigned group_cols;
};

tile_sizes tiles_for(unsigned LLC_size)
{
    const kernel_table& K = kernels();
    const unsigned step = std::max({K.gemm_mr, K.gemm_nr, 4u}); // powers of two, at most 16
    const unsigned cols = std::max(LLC_size / (512u << 10) / step * step, step);
    return {std::min(cols, max_group_tile / step * step)};
}

// A column restricted to rows below a given row: its values for rows top .. r1 - 1
// end at `end`, the address of row r1; rows above `top` count as zeros.
struct column_ref {
    const double* end;
    unsigned top;
};

// Columns packed for the product kernel over rows [r0, r1): `panels` of `width`
// columns interleaved row by row, zeros above each column's top and past the last
// column, optionally scaled by the inverse pivots of the rows.
struct packed_columns {
    std::vector<double> values;
    std::vector<unsigned> tops; // highest top of each panel
    unsigned r0 = 0, kc = 0, width = 0;

    void pack(const std::vector<column_ref>& cols, unsigned n, unsigned from, unsigned to, unsigned panel_width,
              const double* w_from)
    {
        r0 = from;
        kc = to - from;
        width = panel_width;
        const unsigned panels = (n + width - 1) / width;
        values.assign(std::size_t(panels) * kc * width, 0.0);
        tops.assign(panels, to);
        for (unsigned i = 0; i < n; ++i) {
            const unsigned p = i / width, lane = i % width, top = std::max(cols[i].top, from);
            tops[p] = std::min(tops[p], top);
            double* out = values.data() + std::size_t(p) * kc * width + lane;
            const double* end = cols[i].end;
            for (unsigned r = top; r < to; ++r)
                out[std::size_t(r - from) * width] = w_from ? end[int(r) - int(to)] * w_from[r - from] : end[int(r) - int(to)];
        }
    }
    const double* panel(unsigned p, unsigned skip) const
    {
        return values.data() + std::size_t(p) * kc * width + std::size_t(skip) * width;
    }
};

// A run of rows that follow each other in one target block.
struct run_type {
    unsigned begin, end;
    const symmetric_skyline_block* T; // null when the block waits outside the window
    unsigned hint, block;
};

struct team_buffers {
    std::vector<double> C;
    std::vector<run_type> runs;
};

struct workspace {
    unsigned group_cols = 64;
    std::vector<column_ref> A, B;
    packed_columns pack_a, pack_b;
    std::vector<unsigned> later;
    std::vector<team_buffers> team; // one a thread of the block's team
};

// Locks against other blocks adding to the same columns at the same time.
struct update_locks {
    omp_lock_t stripe[lock_stripes];
    omp_mutex pending; // the additions that wait for blocks outside the window
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

// C[(i - i0) * ldc + (j - j0)] = sum over the packed rows of a_i * b_j, for i in
// [i0, i1) and j in [j0, j1), i0 and j0 on panel boundaries. With `lower`, tiles
// wholly above the diagonal (i < j) are skipped.
void packed_products(const packed_columns& A, unsigned i0, unsigned i1, const packed_columns& B, unsigned j0,
                     unsigned j1, bool lower, double* C, unsigned ldc)
{
    const kernel_table& K = kernels();
    const unsigned MR = K.gemm_mr, NR = K.gemm_nr, r1 = A.r0 + A.kc;
    for (unsigned ib = i0; ib < i1; ib += MR) {
        const unsigned mr = std::min(MR, i1 - ib);
        if (lower && ib + mr <= j0) continue;
        for (unsigned jb = j0; jb < j1; jb += NR) {
            const unsigned nr = std::min(NR, j1 - jb);
            if (lower && ib + mr <= jb) continue;
            // Rows where every column of the tile is zero add nothing: start below them.
            const unsigned top = std::max(A.tops[ib / MR], B.tops[jb / NR]);
            double* c = C + std::size_t(ib - i0) * ldc + (jb - j0);
            if (top >= r1) {
                for (unsigned ii = 0; ii < mr; ++ii) std::fill(c + std::size_t(ii) * ldc, c + std::size_t(ii) * ldc + nr, 0.0);
                continue;
            }
            const unsigned skip = top - A.r0;
            K.gemm(r1 - top, A.panel(ib / MR, skip), B.panel(jb / NR, skip), c, ldc, mr, nr);
        }
    }
}

// Rows of a sub-panel: the triangular solve inside a panel goes by sub-panels,
// dots inside each, products between them.
constexpr unsigned sub_panel_rows = 16;
static_assert(sub_panel_rows <= lower_solve_max_rows, "a sub-panel is solved by one call of lower_solve");

// The panel's rows applied to the later columns at the panel's rows: a triangular
// solve with the panel's finished columns, by sub-panels.
void panel_solve(const block_ref& B, unsigned p0, unsigned p1, workspace& ws, unsigned threads)
{
    const kernel_table& K = kernels();
    const std::vector<unsigned>& later = ws.later;
    const unsigned n = unsigned(later.size());
    for (unsigned q0 = p0; q0 < p1; q0 += sub_panel_rows) {
        const unsigned q1 = std::min(p1, q0 + sub_panel_rows);
        // Inside the sub-panel: the panel columns' finished values over it, as a
        // small dense triangle, solved for many later columns at once.
        const unsigned nq = q1 - q0;
        double Lq[sub_panel_rows * sub_panel_rows] = {};
        for (unsigned r = q0 + 1; r < q1; ++r) {
            const unsigned sr = r - B.f, lo = std::max(q0, B.top(sr));
            for (unsigned k = lo; k < r; ++k) Lq[(r - q0) * nq + (k - q0)] = *B.at(sr, k);
        }
        team_for(n, threads, 64, [&](unsigned b, unsigned e, unsigned) {
            double* cols[64];
            unsigned lo[64];
            for (unsigned i0 = b; i0 < e; i0 += 64) {
                unsigned count = 0;
                for (unsigned i = i0; i < std::min(e, i0 + 64); ++i) {
                    const unsigned s = later[i], top = B.top(s);
                    if (top >= q1) continue;
                    const unsigned c = B.v.columns[s];
                    cols[count] = B.v.seg_end(s) - (c < B.e ? c : B.e) + q0; // cols[t][r] is row q0 + r
                    lo[count++] = top > q0 ? top - q0 : 0;
                }
                K.lower_solve(nq, Lq, count, cols, lo);
            }
        });
        if (q1 == p1) break;
        // From the sub-panel to the panel's rows below it: the panel columns k in
        // [q1, p1) act as rows, with their finished values over the sub-panel.
        const unsigned nk = p1 - q1;
        ws.B.resize(nk);
        for (unsigned j = 0; j < nk; ++j) ws.B[j] = {B.at(q1 + j - B.f, q1), std::max(B.top(q1 + j - B.f), q0)};
        ws.A.resize(n);
        for (unsigned i = 0; i < n; ++i) ws.A[i] = {B.at(later[i], q1), std::max(B.top(later[i]), q0)};
        ws.pack_a.pack(ws.A, n, q0, q1, K.gemm_mr, nullptr);
        ws.pack_b.pack(ws.B, nk, q0, q1, K.gemm_nr, nullptr);
        const unsigned group_cols = ws.group_cols, blocks = (n + group_cols - 1) / group_cols;
        team_dynamic(blocks, threads, [&](unsigned g, unsigned t) {
            const unsigned i0 = g * group_cols, i1 = std::min(n, i0 + group_cols);
            team_buffers& buf = ws.team[t];
            buf.C.resize(std::size_t(i1 - i0) * nk);
            packed_products(ws.pack_a, i0, i1, ws.pack_b, 0, nk, false, buf.C.data(), nk);
            for (unsigned i = i0; i < i1; ++i) {
                const unsigned s = later[i], c = B.v.columns[s];
                double* base = B.v.seg_end(s) - (c < B.e ? c : B.e); // base[row] is entry (row, c)
                const double* Ci = buf.C.data() + std::size_t(i - i0) * nk;
                const unsigned top = B.top(s), from = top > q1 ? top - q1 : 0;
                for (unsigned j = from; j < nk; ++j) base[q1 + j] -= Ci[j];
            }
        });
    }
}

// The panel's rows applied to every later (row, column) pair below the panel.
void panel_trailing(const block_ref& B, unsigned p0, unsigned p1, unsigned band_count, workspace& ws,
                    unsigned threads)
{
    const std::vector<unsigned>& later = ws.later;
    const unsigned n = unsigned(later.size());
    if (band_count == 0) return;
    ws.A.resize(n);
    for (unsigned i = 0; i < n; ++i) ws.A[i] = {B.at(later[i], p1), std::max(B.top(later[i]), p0)};
    const kernel_table& K = kernels();
    ws.pack_a.pack(ws.A, n, p0, p1, K.gemm_mr, nullptr);
    ws.pack_b.pack(ws.A, band_count, p0, p1, K.gemm_nr, B.v.diag() + (p0 - B.f));
    const unsigned group_cols = ws.group_cols, groups = (band_count + group_cols - 1) / group_cols;
    team_dynamic(groups, threads, [&](unsigned g, unsigned t) {
        const unsigned j0 = g * group_cols, j1 = std::min(band_count, j0 + group_cols), nj = j1 - j0;
        team_buffers& buf = ws.team[t];
        const unsigned i0 = j0 - j0 % K.gemm_mr;
        buf.C.resize(std::size_t(n - i0) * nj);
        packed_products(ws.pack_a, i0, n, ws.pack_b, j0, j1, true, buf.C.data(), nj);
        for (unsigned i = j0 + 1; i < n; ++i) {
            const unsigned s = later[i], c = B.v.columns[s];
            double* base = B.v.seg_end(s) - (c < B.e ? c : B.e); // base[row] is entry (row, c)
            const double* Ci = buf.C.data() + std::size_t(i - i0) * nj;
            const unsigned jend = std::min(j1, i);
            if (jend > j0 && later[jend - 1] - later[j0] == jend - 1 - j0) {
                double* target = base + later[j0] + B.f; // rows that follow each other
                for (unsigned j = 0, m = jend - j0; j < m; ++j) target[j] -= Ci[j];
            } else {
                for (unsigned j = j0; j < jend; ++j) base[later[j] + B.f] -= Ci[j - j0];
            }
        }
    });
}

// The block's Schur complement, added to the later blocks; the extra segments then
// hold L.
error_type send_updates(const block_ref& B, block_proxy_data& data, workspace& ws, update_locks& locks,
                        unsigned threads)
{
    const unsigned E = B.v.nbr_extra(), dim = B.v.dim;
    if (E == 0) return no_error;
    double* dinv = B.v.diag();
    ws.A.resize(E);
    for (unsigned x = 0; x < E; ++x) ws.A[x] = {B.v.seg_end(dim + x), B.e - B.v.seg_length(dim + x)};
    unsigned r0 = B.e;
    for (const column_ref& c : ws.A) r0 = std::min(r0, c.top);
    const kernel_table& K = kernels();
    ws.pack_a.pack(ws.A, E, r0, B.e, K.gemm_mr, nullptr);
    ws.pack_b.pack(ws.A, E, r0, B.e, K.gemm_nr, dinv + (r0 - B.f));
    std::atomic<int> failed{0};
    const unsigned group_cols = ws.group_cols, groups = (E + group_cols - 1) / group_cols;
    team_dynamic(groups, threads, [&](unsigned g, unsigned t) {
        const unsigned j0 = g * group_cols, j1 = std::min(E, j0 + group_cols), nj = j1 - j0;
        const unsigned i0 = j0 - j0 % K.gemm_mr, ni = E - i0;
        team_buffers& buf = ws.team[t];
        buf.C.resize(std::size_t(ni) * nj);
        packed_products(ws.pack_a, i0, E, ws.pack_b, j0, j1, true, buf.C.data(), nj);
        // Column by column of the target. The group's rows fall in runs of rows that
        // follow each other in one target block: each run is one stretch of the
        // target's segment, and columns come in ascending order, so each run keeps
        // its own search hint.
        const unsigned* rows = B.v.columns + dim + j0;
        std::vector<run_type>& runs = buf.runs;
        runs.clear();
        for (unsigned jj = 0; jj < nj;) {
            const unsigned tb = data.block_of_row(rows[jj]), tend = data.shape(tb).end();
            const symmetric_skyline_block* T = data.find_block(tb);
            unsigned end = jj + 1;
            while (end < nj && rows[end] == rows[end - 1] + 1 && rows[end] < tend) ++end;
            runs.push_back({jj, end, T, T ? T->dim : 0, tb});
            jj = end;
        }
        for (unsigned ii = j0 - i0; ii < ni; ++ii) {
            const unsigned column = B.v.columns[dim + i0 + ii];
            const unsigned jend = std::min(nj, i0 + ii - j0 + 1);
            const double* Ci = buf.C.data() + std::size_t(ii) * nj;
            omp_set_lock(&locks.of(column));
            for (run_type& run : runs) {
                if (run.begin >= jend) break;
                unsigned e = std::min(run.end, jend);
                if (!run.T) {
                    omp_guard hold(locks.pending);
                    if (data.add_column(run.block, column, rows[run.begin], Ci + run.begin, e - run.begin, -1.0, true) !=
                        no_error) {
                        failed = 1;
                        break;
                    }
                    continue;
                }
                const symmetric_skyline_block* T = run.T;
                if (rows[e - 1] == column) { // the diagonal of the target
                    T->values[column - T->first] -= Ci[e - 1];
                    --e;
                }
                if (run.begin == e) continue;
                const unsigned s = T->find_segment(column, run.hint);
                const unsigned te = T->end(), ce = column < te ? column : te;
                if (s == T->nbr_segments || rows[run.begin] + T->seg_length(s) < ce) {
                    failed = 1;
                    break;
                }
                double* target = T->seg_end(s) - (ce - rows[run.begin]);
                const double* c = Ci + run.begin;
                for (unsigned k = 0, n = e - run.begin; k < n; ++k) target[k] -= c[k];
            }
            omp_unset_lock(&locks.of(column));
        }
    });
    if (failed) return internal_error;
    for (unsigned x = 0; x < E; ++x) {
        const unsigned len = B.v.seg_length(dim + x);
        double* u = B.v.seg_end(dim + x) - len;
        const double* w = dinv + (B.e - len - B.f);
        for (unsigned k = 0; k < len; ++k) u[k] *= w[k];
    }
    return no_error;
}

template <class Checker>
error_type factor_block(block_proxy_data& data, unsigned b, Checker& checker, workspace& ws, update_locks& locks,
                        unsigned threads, unsigned send_threads)
{
    const symmetric_skyline_block view = data.block_for_access(b);
    if (view.empty()) return internal_error;
    const block_ref B(view);
    const kernel_table& K = kernels();
    ws.team.resize(std::max(threads, 1u));
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
    return send_updates(B, data, ws, locks, send_threads);
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

namespace {

// Blocks [b0, b1) by level of the block elimination tree cut to that range: the
// parent of a block is the block of its first extra column, and a parent stands a
// level above all its children.
struct level_lists {
    std::vector<unsigned> ptr, blocks;
    level_lists(const block_proxy_data& data, unsigned b0, unsigned b1)
    {
        std::vector<unsigned> level(b1 - b0, 0);
        for (unsigned k = b0; k < b1; ++k) {
            const symmetric_skyline_block& v = data.shape(k);
            if (!v.nbr_extra()) continue;
            const unsigned p = data.block_of_row(v.columns[v.dim]);
            if (p < b1) level[p - b0] = std::max(level[p - b0], level[k - b0] + 1);
        }
        const unsigned n = level.empty() ? 0 : *std::max_element(level.begin(), level.end()) + 1;
        ptr.assign(n + 1, 0);
        for (unsigned l : level) ++ptr[l + 1];
        for (unsigned l = 0; l < n; ++l) ptr[l + 1] += ptr[l];
        blocks.resize(level.size());
        std::vector<unsigned> fill(ptr.begin(), ptr.end() - 1);
        for (unsigned k = 0; k < level.size(); ++k) blocks[fill[level[k]]++] = b0 + k;
    }
    unsigned size() const { return unsigned(ptr.size() - 1); }
};

// Values that block b sends to blocks beyond row `R`: one a pair of its extra
// columns at or past R.
std::size_t pending_need(const block_proxy_data& data, unsigned b, unsigned R)
{
    const symmetric_skyline_block& v = data.shape(b);
    const unsigned* from = std::lower_bound(v.columns + v.dim, v.columns + v.nbr_segments, R);
    const std::size_t e = std::size_t(v.columns + v.nbr_segments - from);
    return e * (e + 1) / 2;
}

// The blocks from b on, inside the window, whose sends beyond the window all fit
// in the pending buffer together; 0 when not even block b's do.
unsigned span_of(const block_proxy_data& data, unsigned b)
{
    const unsigned wend = data.window_end();
    if (wend == data.nbr_blocks()) return wend - b;
    const unsigned R = data.shape(wend - 1).end();
    std::size_t need = 0, room = data.pending_free();
    unsigned k = b;
    for (; k < wend; ++k) {
        need += pending_need(data, k, R);
        if (need > room) break;
    }
    return k - b;
}

template <class Checker>
struct factor_run {
    block_proxy_data& data;
    Checker& checker;
    unsigned T;
    update_locks locks;
    std::vector<workspace> ws;
    std::vector<Checker> copies;
    std::atomic<int> error{no_error};
    factor_progress* progress;
    double flops_done = 0.0, flops_total = 0.0;
    std::vector<double> block_cost; // flops by block, when counted

    factor_run(block_proxy_data& d, Checker& c, unsigned LLC_size, unsigned threads, factor_progress* p)
        : data(d), checker(c), T(threads), ws(threads), copies(threads, fresh_copy(c)), progress(p)
    {
        for (workspace& w : ws) w.group_cols = tiles_for(LLC_size).group_cols;
    }

    // The `count` blocks of `list` are finished: the caller hears of it.
    void finished(const unsigned* list, unsigned count)
    {
        if (!progress || error != no_error) return;
        if (!block_cost.empty())
            for (unsigned i = 0; i < count; ++i) flops_done += block_cost[list[i]];
        if (!progress->advance(flops_done, flops_total)) record(interrupted_warning);
    }
    void finished(unsigned b) { finished(&b, 1); }

    void record(error_type e)
    {
        int expected = no_error;
        if (e != no_error) error.compare_exchange_strong(expected, e);
    }

    // Blocks [b0, b1) level by level. Blocks of one level are independent; their
    // sends reach common targets under the locks.
    void levels(unsigned b0, unsigned b1)
    {
        const level_lists L(data, b0, b1);
        for (unsigned l = 0; l < L.size() && error == no_error; ++l) {
            const unsigned first = L.ptr[l], count = L.ptr[l + 1] - first;
            // A level with little work runs on this thread: waking a team costs more.
            // A level of a few large blocks of unequal work runs them one after the
            // other, each on all threads, when that ends sooner than one block a thread.
            std::size_t values = 0;
            std::vector<double> work(count);
            for (unsigned i = 0; i < count; ++i) {
                const symmetric_skyline_block& v = data.shape(L.blocks[first + i]);
                values += v.nbr_values();
                work[i] = double(v.nbr_values()) * double(v.nbr_values()) / double(v.nbr_segments + 1);
            }
            unsigned team = std::min(count, T), inner = std::max(T / team, 1u);
            if (values < small_level_values) {
                team = inner = 1;
            } else if (count > 1 && count < 4 * T) {
                std::sort(work.begin(), work.end(), std::greater<>());
                std::vector<double> load(team, 0.0);
                double total = 0.0;
                for (double w : work) {
                    *std::min_element(load.begin(), load.end()) += w;
                    total += w;
                }
                const double by_blocks = *std::max_element(load.begin(), load.end());
                const double by_teams = total / T / 0.85; // nested teams share a block less well
                if (by_teams < by_blocks) team = 1, inner = T;
            }
#pragma omp parallel for num_threads(team) schedule(dynamic, 1) if (team > 1)
            for (unsigned i = 0; i < count; ++i) {
                if (error != no_error) continue;
                const unsigned t = unsigned(omp_get_thread_num());
                record(factor_block(data, L.blocks[first + i], copies[t], ws[t], locks, inner, inner));
            }
            finished(L.blocks.data() + first, count);
        }
    }

    // The window from b on, span after span; returns the first block past the window.
    unsigned window(unsigned b, bool sequential)
    {
        const unsigned wend = data.window_end();
        while (b < wend && error == no_error) {
            if (sequential) {
                record(factor_block(data, b, copies[0], ws[0], locks, T, data.fully_in_core() ? T : 1));
                finished(b++);
                continue;
            }
            unsigned span = span_of(data, b);
            if (span == 0) {
                record(data.flush_pending(true));
                span = span_of(data, b);
            }
            if (span == 0) {
                // Its sends overflow the pending buffer, which then empties on the way:
                // only one thread may add them while the window moves.
                record(factor_block(data, b, copies[0], ws[0], locks, T, 1));
                finished(b++);
                continue;
            }
            levels(b, b + span);
            b += span;
        }
        return b;
    }

    error_type run()
    {
        const unsigned nb = data.nbr_blocks();
        const bool sequential = T < 2 || nb < 2 || data.nbr_values() <= 128;
        // Counting walks every value of the profile once, shared by the threads.
        if (progress && progress->counts_flops()) {
            block_cost.resize(nb);
#pragma omp parallel for num_threads(T) schedule(dynamic, 16)
            for (unsigned b = 0; b < nb; ++b) block_cost[b] = block_flops(data.shape(b));
            for (unsigned b = 0; b < nb; ++b) flops_total += block_cost[b];
        }
        const int saved_levels = omp_get_max_active_levels();
        if (!sequential) omp_set_max_active_levels(2);
        for (unsigned b = 0; b < nb && error == no_error;) {
            if (data.block_for_access(b).empty()) {
                record(internal_error);
                break;
            }
            b = window(b, sequential);
        }
        if (error == no_error) record(data.flush_pending(false));
        omp_set_max_active_levels(saved_levels);
        for (const Checker& c : copies) {
            if constexpr (requires { checker.count; }) checker.merge(c);
            else checker.pivot_checker_base::merge(c);
        }
        return error_type(error.load());
    }
};

} // namespace

template <class Checker>
error_type factorize(symmetric_hybrid_OOC<double>& A, Checker& checker, unsigned LLC_size, unsigned nbr_threads,
                     factor_progress* progress)
{
    block_proxy_data* data = A.proxy();
    if (!data) return no_error;
    block_cursor cursor(A, false);
    if (cursor.error != no_error) return cursor.error;
    try {
        factor_run<Checker> run(*data, checker, LLC_size, std::max(nbr_threads, 1u), progress);
        return run.run();
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_check_positive&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_definite&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_positive_rnd&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, pivot_force_relative&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<false>&, unsigned, unsigned,
                             factor_progress*);
template error_type factorize(symmetric_hybrid_OOC<double>&, count_n_force_definite<true>&, unsigned, unsigned,
                             factor_progress*);

namespace {

bool solve_in_parallel(const block_proxy_data& data, unsigned threads)
{
    return threads >= 2 && data.nbr_blocks() >= 2 && data.nbr_values() > 16384;
}

// The band of one block in the forward solve; the products of its extra columns with
// the band go to `extra` (subtracted from x by the caller). Returns the block's energy.
double forward_block(const symmetric_skyline_block& v, double* x, double* extra, unsigned tile)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    for (unsigned s = 1; s < v.dim; ++s) x[f + s] -= K.dot(v.seg_end(s), x + f + s, v.seg_length(s));
    // The extra columns all end at the band's end: a few at a time share the loads of
    // x. Each keeps its own dot, so the tile changes no result.
    for (unsigned s0 = v.dim; s0 < v.nbr_segments; s0 += tile) {
        const unsigned count = std::min(tile, v.nbr_segments - s0);
        const double* ends[max_solve_tile];
        unsigned lens[max_solve_tile];
        double* out[max_solve_tile];
        for (unsigned t = 0; t < count; ++t) {
            ends[t] = v.seg_end(s0 + t), lens[t] = v.seg_length(s0 + t);
            out[t] = extra ? extra + (s0 - v.dim + t) : x + v.columns[s0 + t];
        }
        K.gather_dots(x + e, count, ends, lens, out);
    }
    return K.scale_and_dot(x + f, v.diag(), v.dim);
}

void backward_block(const symmetric_skyline_block& v, double* x, unsigned tile)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    // Extra columns from the last down, also inside a tile, so that every row of x
    // takes its terms in the same order whatever the tile.
    for (unsigned s1 = v.nbr_segments; s1 > v.dim;) {
        const unsigned s0 = s1 > v.dim + tile ? s1 - tile : v.dim, count = s1 - s0;
        const double* ends[max_solve_tile];
        unsigned lens[max_solve_tile];
        double alpha[max_solve_tile];
        for (unsigned t = 0; t < count; ++t) {
            const unsigned s = s1 - 1 - t;
            ends[t] = v.seg_end(s), lens[t] = v.seg_length(s), alpha[t] = x[v.columns[s]];
        }
        K.scatter_axpys(x + e, count, ends, lens, alpha);
        s1 = s0;
    }
    for (unsigned s = v.dim; s-- > 1;) {
        const unsigned len = v.seg_length(s);
        K.axpy(-x[f + s], v.seg_end(s) - len, x + f + s - len, len);
    }
}

// The solve tile of the single-column solves, which take no cache size.
constexpr unsigned single_solve_tile = 64;

// Forward over the window's blocks [b0, b1); their energies are added to `total`
// in block order whatever the threads.
void forward_range(const block_proxy_data& data, double* x, unsigned b0, unsigned b1, unsigned threads,
                   unsigned tile, double& total)
{
    if (!solve_in_parallel(data, threads)) {
        for (unsigned b = b0; b < b1; ++b) total += forward_block(*data.find_block(b), x, nullptr, tile);
        return;
    }
    // Blocks of one level read only their own rows; what they send to later rows is
    // kept apart and added after the level, in block order.
    const level_lists levels(data, b0, b1);
    std::vector<double> energy(b1 - b0, 0.0), extra;
    std::vector<std::size_t> offset;
    for (unsigned l = 0; l < levels.size(); ++l) {
        const unsigned first = levels.ptr[l], count = levels.ptr[l + 1] - first;
        offset.assign(count + 1, 0);
        for (unsigned i = 0; i < count; ++i) offset[i + 1] = offset[i] + data.shape(levels.blocks[first + i]).nbr_extra();
        extra.assign(offset[count], 0.0);
        const int team = int(std::min(count, threads));
#pragma omp parallel for num_threads(team) schedule(dynamic, 1) if (team > 1)
        for (unsigned i = 0; i < count; ++i) {
            const unsigned b = levels.blocks[first + i];
            energy[b - b0] = forward_block(*data.find_block(b), x, extra.data() + offset[i], tile);
        }
        for (unsigned i = 0; i < count; ++i) {
            const symmetric_skyline_block& v = data.shape(levels.blocks[first + i]);
            for (unsigned t = 0; t < v.nbr_extra(); ++t) x[v.columns[v.dim + t]] += extra[offset[i] + t];
        }
    }
    for (double e : energy) total += e;
}

// Backward over [b0, b1): blocks of one level write only their own rows and read
// rows already final.
void backward_range(const block_proxy_data& data, double* x, unsigned b0, unsigned b1, unsigned threads,
                    unsigned tile)
{
    if (!solve_in_parallel(data, threads)) {
        for (unsigned b = b1; b-- > b0;) backward_block(*data.find_block(b), x, tile);
        return;
    }
    const level_lists levels(data, b0, b1);
    for (unsigned l = levels.size(); l-- > 0;) {
        const unsigned first = levels.ptr[l], count = levels.ptr[l + 1] - first;
        const int team = int(std::min(count, threads));
#pragma omp parallel for num_threads(team) schedule(dynamic, 1) if (team > 1)
        for (unsigned i = 0; i < count; ++i) backward_block(*data.find_block(levels.blocks[first + i]), x, tile);
    }
}

// Solves of many columns: the columns are cut into groups, each group held by rows
// (row r of a group at X + r nb, nb a multiple of the kernels' block width, the
// lanes past the group's columns zero), so that each factor value read serves a
// whole row of the group. Every lane runs the same operations in the same order
// whatever the group, its width or the thread, so the results are those of the
// matrix alone.
constexpr unsigned max_group_cols = 32;
constexpr unsigned band_tile = 4;   // band columns whose dots share the loads of X
constexpr unsigned extra_tile = 64; // extra columns a kernel call takes

struct column_groups {
    unsigned rows = 0, nb = 0, count = 0, per = 0, cols = 0;
    std::vector<double> values;

    column_groups(unsigned n, unsigned nbr_cols, unsigned threads)
        : rows(n), cols(nbr_cols)
    {
        const unsigned width = kernels().block_width;
        count = std::max((nbr_cols + max_group_cols - 1) / max_group_cols, std::min(threads, nbr_cols));
        per = (nbr_cols + count - 1) / count;
        count = (nbr_cols + per - 1) / per;
        nb = (per + width - 1) / width * width;
        values.assign(std::size_t(count) * rows * nb, 0.0);
    }
    double* group(unsigned g) { return values.data() + std::size_t(g) * rows * nb; }
    unsigned first(unsigned g) const { return g * per; }
    unsigned width(unsigned g) const { return std::min(per, cols - g * per); }

    void pack(const double* X, unsigned ld)
    {
        for (unsigned g = 0; g < count; ++g) {
            double* G = group(g);
            const double* Xg = X + std::size_t(first(g)) * ld;
            const unsigned w = width(g);
            for (unsigned r = 0; r < rows; ++r)
                for (unsigned j = 0; j < w; ++j) G[std::size_t(r) * nb + j] = Xg[std::size_t(j) * ld + r];
        }
    }
    void unpack(double* X, unsigned ld)
    {
        for (unsigned g = 0; g < count; ++g) {
            const double* G = group(g);
            double* Xg = X + std::size_t(first(g)) * ld;
            const unsigned w = width(g);
            for (unsigned j = 0; j < w; ++j)
                for (unsigned r = 0; r < rows; ++r) Xg[std::size_t(j) * ld + r] = G[std::size_t(r) * nb + j];
        }
    }
};

// Row `row` -= l * row `from`, over nb lanes.
inline void row_update(double* X, unsigned nb, unsigned row, unsigned from, double l)
{
    double* y = X + std::size_t(row) * nb;
    const double* x = X + std::size_t(from) * nb;
    for (unsigned j = 0; j < nb; ++j) y[j] -= l * x[j];
}

// The forward solve of one block on a group; energy[j] gets the block's part of lane j.
void forward_block_rows(const symmetric_skyline_block& v, double* X, unsigned nb, double* energy)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    // Band columns a tile at a time: their dots over the rows above the tile share
    // the loads of X; the few terms inside the tile follow, row by row.
    for (unsigned s0 = 1; s0 < v.dim; s0 += band_tile) {
        const unsigned count = std::min(band_tile, v.dim - s0);
        const double* ends[band_tile];
        unsigned lens[band_tile];
        double* out[band_tile];
        for (unsigned i = 0; i < count; ++i) {
            const unsigned len = v.seg_length(s0 + i), cut = std::min(i, len);
            ends[i] = v.seg_end(s0 + i) - cut, lens[i] = len - cut;
            out[i] = X + std::size_t(f + s0 + i) * nb;
        }
        K.block_dots(X + std::size_t(f + s0) * nb, nb, count, ends, lens, out);
        for (unsigned i = 1; i < count; ++i) {
            const unsigned s = s0 + i, from = std::max(v.seg_top(s), f + s0);
            for (unsigned r = from; r < f + s; ++r) row_update(X, nb, f + s, r, v.seg_end(s)[int(r) - int(f + s)]);
        }
    }
    for (unsigned s0 = v.dim; s0 < v.nbr_segments; s0 += extra_tile) {
        const unsigned count = std::min(extra_tile, v.nbr_segments - s0);
        const double* ends[extra_tile];
        unsigned lens[extra_tile];
        double* out[extra_tile];
        for (unsigned t = 0; t < count; ++t) {
            ends[t] = v.seg_end(s0 + t), lens[t] = v.seg_length(s0 + t);
            out[t] = X + std::size_t(v.columns[s0 + t]) * nb;
        }
        K.block_dots(X + std::size_t(e) * nb, nb, count, ends, lens, out);
    }
    const double* d = v.diag();
    for (unsigned s = 0; s < v.dim; ++s) {
        double* x = X + std::size_t(f + s) * nb;
        for (unsigned j = 0; j < nb; ++j) {
            const double old = x[j];
            x[j] = old * d[s];
            energy[j] += x[j] * old;
        }
    }
}

void backward_block_rows(const symmetric_skyline_block& v, double* X, unsigned nb)
{
    const kernel_table& K = kernels();
    const unsigned f = v.first, e = v.end();
    // Extra columns from the last down, as in the single solve.
    for (unsigned s1 = v.nbr_segments; s1 > v.dim;) {
        const unsigned s0 = s1 > v.dim + extra_tile ? s1 - extra_tile : v.dim, count = s1 - s0;
        const double* ends[extra_tile];
        unsigned lens[extra_tile];
        const double* alpha[extra_tile];
        for (unsigned t = 0; t < count; ++t) {
            const unsigned s = s1 - 1 - t;
            ends[t] = v.seg_end(s), lens[t] = v.seg_length(s), alpha[t] = X + std::size_t(v.columns[s]) * nb;
        }
        K.block_axpys(X + std::size_t(e) * nb, nb, count, ends, lens, alpha);
        s1 = s0;
    }
    // Band columns from the last down, a tile at a time: first the terms inside the
    // tile, which finish its rows, then the rows above the tile all at once.
    for (unsigned s1 = v.dim; s1 > 1;) {
        const unsigned s0 = s1 > band_tile + 1 ? s1 - band_tile : 1, count = s1 - s0;
        const double* ends[band_tile];
        unsigned lens[band_tile];
        const double* alpha[band_tile];
        for (unsigned t = 0; t < count; ++t) {
            const unsigned s = s1 - 1 - t, from = std::max(v.seg_top(s), f + s0);
            for (unsigned r = from; r < f + s; ++r) row_update(X, nb, r, f + s, v.seg_end(s)[int(r) - int(f + s)]);
            const unsigned len = v.seg_length(s), cut = std::min(s - s0, len);
            ends[t] = v.seg_end(s) - cut, lens[t] = len - cut, alpha[t] = X + std::size_t(f + s) * nb;
        }
        K.block_axpys(X + std::size_t(f + s0) * nb, nb, count, ends, lens, alpha);
        s1 = s0;
    }
}

// Runs body(group, thread) over the groups, on at most `threads` threads.
template <class Body>
void for_groups(unsigned count, unsigned threads, Body&& body)
{
    const int T = int(std::max(1u, std::min(threads, count)));
#pragma omp parallel for num_threads(T) schedule(dynamic, 1) if (T > 1)
    for (unsigned g = 0; g < count; ++g) body(g);
}

} // namespace

error_type forward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads, double& energy)
{
    energy = 0.0;
    block_proxy_data* data = A.proxy();
    if (!data) return no_error;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return cursor.error;
    return for_windows(*data, true, [&](unsigned b0, unsigned b1) {
        forward_range(*data, x, b0, b1, nbr_threads, single_solve_tile, energy);
    });
}

error_type backward(const symmetric_hybrid_OOC<double>& A, double* x, unsigned nbr_threads)
{
    block_proxy_data* data = A.proxy();
    if (!data) return no_error;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return cursor.error;
    return for_windows(*data, false, [&](unsigned b0, unsigned b1) {
        backward_range(*data, x, b0, b1, nbr_threads, single_solve_tile);
    });
}

// Windows outermost, so that a matrix on disk is read once whatever the columns.
error_type forward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols,
                         double* energies, unsigned, unsigned nbr_threads)
{
    block_proxy_data* data = A.proxy();
    for (unsigned j = 0; j < cols; ++j) energies[j] = 0.0;
    if (!data || cols == 0) return no_error;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return cursor.error;
    try {
        column_groups groups(data->nbr_rows(), cols, nbr_threads);
        groups.pack(X, ld);
        std::vector<double> energy(std::size_t(groups.count) * groups.nb, 0.0);
        const error_type e = for_windows(*data, true, [&](unsigned b0, unsigned b1) {
            for_groups(groups.count, nbr_threads, [&](unsigned g) {
                double* G = groups.group(g);
                for (unsigned b = b0; b < b1; ++b)
                    forward_block_rows(*data->find_block(b), G, groups.nb, energy.data() + std::size_t(g) * groups.nb);
            });
        });
        if (e != no_error) return e;
        groups.unpack(X, ld);
        for (unsigned g = 0; g < groups.count; ++g)
            for (unsigned j = 0; j < groups.width(g); ++j) energies[groups.first(g) + j] = energy[std::size_t(g) * groups.nb + j];
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

error_type backward_multi(const symmetric_hybrid_OOC<double>& A, double* X, unsigned ld, unsigned cols, unsigned,
                          unsigned nbr_threads)
{
    block_proxy_data* data = A.proxy();
    if (!data || cols == 0) return no_error;
    block_cursor cursor(A, true);
    if (cursor.error != no_error) return cursor.error;
    try {
        column_groups groups(data->nbr_rows(), cols, nbr_threads);
        groups.pack(X, ld);
        const error_type e = for_windows(*data, false, [&](unsigned b0, unsigned b1) {
            for_groups(groups.count, nbr_threads, [&](unsigned g) {
                double* G = groups.group(g);
                for (unsigned b = b1; b-- > b0;) backward_block_rows(*data->find_block(b), G, groups.nb);
            });
        });
        if (e != no_error) return e;
        groups.unpack(X, ld);
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

error_type solve_single(const symmetric_hybrid_OOC<double>& A, const double* b, double* x, double& energy,
                        const std::vector<unsigned>& fixed_rows, unsigned nbr_threads)
{
    const unsigned n = A.nbr_rows();
    if (x != b) std::copy(b, b + n, x);
    if (auto e = forward(A, x, nbr_threads, energy); e != no_error) return e;
    if (auto e = backward(A, x, nbr_threads); e != no_error) return e;
    for (unsigned r : fixed_rows)
        if (r < n) x[r] = 0.0;
    return no_error;
}

} // namespace kelt::core
