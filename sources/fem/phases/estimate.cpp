#include "kelt/fem/phases/estimate.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "kelt/core/OOC_mgr.h"
#include "kelt/core/process_mgr.h"
#include "kelt/engine/factor_cost.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/pivot.h"
#include "kelt/fem/solver_static_linear.h"

namespace kelt::core {

namespace {

// One large array as the budget sees it: what it wants and the least it works with.
struct array_need {
    std::uint64_t max_bytes, min_bytes;
    std::uint64_t file_bytes; // what its swap file takes
};

// The shares of a budget among arrays as the memory manager gives them: smallest
// first, each an equal part of what is left, none below its least, and an array
// given more than half of its size given all of it when the rest still fits.
std::vector<std::uint64_t> shares(std::vector<array_need> arrays, std::uint64_t budget)
{
    std::stable_sort(arrays.begin(), arrays.end(),
                     [](const array_need& a, const array_need& b) { return a.max_bytes < b.max_bytes; });
    std::uint64_t R = budget, M = 0;
    for (const array_need& a : arrays) M += a.min_bytes;
    std::vector<std::uint64_t> out;
    const std::size_t N = arrays.size();
    for (std::size_t i = 0; i < N; ++i) {
        const array_need& x = arrays[i];
        std::uint64_t a = std::max(std::min(R / (N - i), x.max_bytes), x.min_bytes);
        const std::uint64_t cap = x.min_bytes + R >= M ? x.min_bytes + R - M : 0;
        a = std::min(a, cap);
        if (a < x.max_bytes && a > x.max_bytes / 2 && x.max_bytes < cap) a = x.max_bytes;
        out.push_back(a);
        R -= std::min(R, a);
        M -= x.min_bytes;
    }
    return out;
}

// Free bytes of the folder's file system; false when it cannot be asked (the
// folder is gone: the swap file's own error tells that better).
bool free_bytes(const char* folder, std::uint64_t& bytes)
{
    struct statvfs s {};
    if (!folder || statvfs(folder, &s) != 0) return false;
    bytes = std::uint64_t(s.f_bavail) * std::uint64_t(s.f_frsize);
    return true;
}

double MB(std::uint64_t bytes) { return double(bytes) * bytes_to_MB; }

} // namespace

fem::run_estimate estimate_needs(run_state& run, const numbering& n, const prescribed_set& prescribed,
                                 unsigned cases, bool with_cost)
{
    fem::run_estimate e;
    const unsigned Nf = n.size();
    e.nbr_free_DOFs = Nf;
    e.factor_bytes = n.K_bytes;
    e.factor_index_bytes = n.index_bytes;
    if (with_cost) e.factor_flops = factor_flops(n.profile);
    // K stays unfactored beside its factor when some case holds a DOF of K.
    bool held_in_K = false;
    std::vector<unsigned> out_of_K;
    for (unsigned id : prescribed.IDs) {
        if (n.free_IDs->rank(id) < Nf) held_in_K = true;
        else out_of_K.push_back(id);
    }
    std::sort(out_of_K.begin(), out_of_K.end());
    const std::uint64_t rows = Nf + std::uint64_t(std::unique(out_of_K.begin(), out_of_K.end()) - out_of_K.begin());
    e.states_bytes = rows * cases * 8;
    e.nbr_matrices = Nf ? 1u + held_in_K : 0u;

    // Each matrix registers its values and segment tables, and works with a window
    // of its largest block and a quarter more for the additions that wait.
    std::uint64_t segments = 0, largest = 0;
    for (const block_profile_type& b : n.profile.blocks) {
        std::uint64_t v = b.end - b.first;
        for (const auto& s : b.segments) v += s.second;
        segments += b.segments.size();
        largest = std::max<std::uint64_t>(largest, (v + b.segments.size()) * 8);
    }
    const std::uint64_t K_full = n.K_bytes + segments * 8, K_least = largest + largest / 4;
    std::vector<array_need> arrays;
    if (e.states_bytes) arrays.push_back({e.states_bytes, rows * 8, e.states_bytes});
    for (unsigned m = 0; m < e.nbr_matrices; ++m) arrays.push_back({std::max(K_full, K_least), K_least, n.K_bytes});
    for (const array_need& a : arrays) {
        e.peak_incore_bytes += a.max_bytes;
        e.least_incore_bytes += a.min_bytes;
    }
    if (const OOC_mgr* mgr = run.OOC(); mgr && mgr->max_incore_size != OOC_mgr::no_limit) {
        e.budget_bytes = mgr->max_incore_size;
        if (e.peak_incore_bytes > e.budget_bytes && e.least_incore_bytes <= e.budget_bytes) {
            const std::vector<std::uint64_t> given = shares(arrays, e.budget_bytes);
            std::stable_sort(arrays.begin(), arrays.end(),
                             [](const array_need& a, const array_need& b) { return a.max_bytes < b.max_bytes; });
            e.peak_incore_bytes = 0;
            for (std::size_t i = 0; i < arrays.size(); ++i) {
                e.peak_incore_bytes += given[i];
                if (given[i] < arrays[i].max_bytes) {
                    e.out_of_core = true;
                    e.disk_bytes += arrays[i].file_bytes;
                }
            }
        } else if (e.peak_incore_bytes > e.budget_bytes) {
            e.out_of_core = true;
            e.peak_incore_bytes = e.least_incore_bytes;
            for (const array_need& a : arrays) e.disk_bytes += a.file_bytes;
        }
        if (e.out_of_core) e.disk_free_known = free_bytes(mgr->temp_dir.path, e.disk_free_bytes);
    }
    if (run.context && e.factor_flops > 0.0) {
        e.flop_rate = factor_rate(*run.context);
        if (e.flop_rate > 0.0) e.factor_seconds = e.factor_flops / e.flop_rate;
    }
    return e;
}

bool check_needs(run_state& run, const fem::run_estimate& needs)
{
    char why[200];
    if (needs.budget_bytes && needs.least_incore_bytes > needs.budget_bytes) {
        std::snprintf(why, sizeof why, "The run needs at least %.1f MB in core; the in-core budget is %.1f MB.\n",
                      MB(needs.least_incore_bytes), MB(needs.budget_bytes));
    } else if (needs.out_of_core && needs.disk_free_known && needs.disk_bytes > needs.disk_free_bytes) {
        std::snprintf(why, sizeof why,
                      "The run writes %.1f MB to its swap folder beyond the in-core budget of %.1f MB; the folder "
                      "has %.1f MB free.\n",
                      MB(needs.disk_bytes), MB(needs.budget_bytes), MB(needs.disk_free_bytes));
    } else {
        return true;
    }
    KELT_RAISE(run, insufficient_memory_error, "Insufficient memory.");
    run.explain(why);
    run.log(1, "%s", why);
    return false;
}

double factor_rate(context_type& context)
{
    if (context.flop_rate > 0.0) return context.flop_rate;
    // A dense block as wide as the blocks of a solid's factor near its top (600
    // nodes of 3 DOFs at most), so that the panels and their products run as they
    // do there, where most of the flops are; about 0.6 Gflop a trial.
    constexpr unsigned n = 1200;
    profile_type profile;
    profile.blocks.resize(1);
    block_profile_type& b = profile.blocks[0];
    b.first = 0, b.end = n;
    for (unsigned c = 0; c < n; ++c) b.segments.push_back({c, c});
    const double flops = factor_flops(profile);
    const unsigned threads = std::max(1u, context.process_mgr->max_threads), LLC = context.process_mgr->LLC_size;
    // The best of three trials: one trial that the system interrupts would
    // otherwise set the rate of every estimate made on this context.
    double best = 0.0;
    for (int trial = 0; trial < 3; ++trial) {
        symmetric_hybrid_OOC<double> A;
        if (A.create(profile, n, 0.5) != no_error) return 0.0;
        const symmetric_skyline_block v = A.proxy()->block_for_access(0);
        for (unsigned s = 0; s < n; ++s) v.diag()[s] = double(n); // diagonally dominant: positive definite
        pivot_check_positive checker;
        const auto t0 = std::chrono::steady_clock::now();
        if (factorize(A, checker, LLC, threads) != no_error) return 0.0;
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (seconds > 0.0) best = std::max(best, flops / seconds);
    }
    context.flop_rate = best;
    return best;
}

error_type estimate_static_run(problem_data& problem, fem::run_estimate& out)
{
    out = fem::run_estimate();
    fem::solver_static_linear::settings_type quiet;
    fem::run_status status;
    run_state run(quiet, status);
    run.problem = &problem;
    run.context = problem.context.get();
    const numerical_model_base* model = problem.model();
    if (!model || !run.context) return invalid_data_error;
    const prescribed_set prescribed = collect_prescribed(problem);
    numbering n;
    double timer = 0.0;
    if (!number_DOFs(run, *model, kind_stiffness, prescribed.common, false, n, timer)) return status.error_code;
    out = estimate_needs(run, n, prescribed, problem.nbr_load_cases(), true);
    return no_error;
}

} // namespace kelt::core
