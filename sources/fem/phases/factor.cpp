#include "kelt/fem/phases/factor.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "kelt/core/OOC_mgr.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/pivot.h"

namespace kelt::core {

namespace {

// The run is asked between blocks, so that an interrupt does not wait for the whole factor.
template <class Checker>
error_type run_policy(Checker& checker, symmetric_hybrid_OOC<double>& A, run_state& run)
{
    return factorize(A, checker, run.LLC_size(), run.threads(), &run);
}

} // namespace

bool factorise(run_state& run, symmetric_hybrid_OOC<double>& A, const numbering& n, const factor_options& options,
               factor_report& report, double& timer)
{
    if (!run.going()) return false;
    phase_timer t(timer);
    pivot_checker_base* checker = nullptr;
    error_type e = no_error;
    pivot_check_positive stopping;
    pivot_force_positive replacing;
    pivot_force_definite definite;
    pivot_force_positive_rnd random;
    count_n_force_definite<false> counting;
    switch (options.policy) {
    case pivot_policy::check_positive: e = run_policy(stopping, A, run), checker = &stopping; break;
    case pivot_policy::force_positive: e = run_policy(replacing, A, run), checker = &replacing; break;
    case pivot_policy::force_definite: e = run_policy(definite, A, run), checker = &definite; break;
    case pivot_policy::force_positive_random:
        random.generator = options.generator;
        e = run_policy(random, A, run), checker = &random;
        break;
    case pivot_policy::count_below:
        counting.bound = options.bound;
        e = run_policy(counting, A, run), checker = &counting;
        report.nbr_below = counting.count;
        break;
    }
    // An unfinished factor has nothing to report.
    if (run.interrupted()) return false;
    if (options.policy != pivot_policy::count_below)
        log_pivot_events(checker->events, [&](unsigned level, const char* line) { run.log(level, line); });
    report.pivot_min = checker->min_value;
    report.pivot_max = checker->max_value;
    report.min_row = checker->min_index;
    std::vector<unsigned> bad;
    for (const pivot_event& ev : checker->events) bad.push_back(ev.index);
    std::sort(bad.begin(), bad.end());
    bad.erase(std::unique(bad.begin(), bad.end()), bad.end());
    report.bad_IDs.clear();
    if (!report.bad_IDs.reserve(unsigned(bad.size()), 1)) throw std::bad_alloc();
    for (unsigned r : bad) report.bad_IDs.push_back(n.ID(r));
    if (checker->bad_index != 0xFFFFFFFFu) {
        KELT_RAISE(run, pivot_error, "Pivot error.");
        report.bad_DOF = n.ID(checker->bad_index);
    } else if (e == no_error && options.policy != pivot_policy::count_below && options.warn_small_pivots &&
               report.pivot_max * 1e-12 > report.pivot_min && checker->min_index != 0xFFFFFFFFu) {
        if (run.status.warning_code == no_error && run.status.error_code == no_error)
            report.bad_DOF = n.ID(checker->min_index);
        run.raise_warning(pivot_warning, "Pivot warning.");
    }
    if (e != no_error && e != pivot_error) KELT_RAISE(run, e, "Factorization error.");
    return !run.failed();
}

void log_matrix_statistics(const run_state& run, const symmetric_hybrid_OOC<double>& A)
{
    if (run.log_hdl) print_statistics(A, [&](unsigned level, const char* line) { run.log(level, "%s", line); });
}

bool uses_disk(const run_state& run) noexcept
{
    const OOC_mgr* mgr = run.OOC();
    return mgr && mgr->files_created.load() > 0;
}

void raise_allocation_error(run_state& run, error_type code, const char* file, int line)
{
    switch (code) {
    case insufficient_memory_error: run.raise_error(code, "Insufficient memory.", file, line); break;
    case temp_file_error: run.raise_error(code, "Memory error.", file, line); break;
    default: run.raise_error(memory_error, "Matrix allocation error.", file, line); break;
    }
}

bool check_finite(run_state& run, const FEM_real& U, const char* file, int line)
{
    for (unsigned j = 0; j < U.cols(); ++j) {
        const dense1D<double, 8> col = U.col_read(j);
        if (!std::all_of(col.begin(), col.end(), [](double v) { return std::isfinite(v); })) {
            run.raise_error(inf_nan_error, "INF or NaN detected.", file, line);
            return false;
        }
    }
    return true;
}

bool copy_for_factor(run_state& run, const indexed_sym_matrix& A, const numbering& n, indexed_sym_matrix& copy)
{
    copy.IDs = A.IDs;
    error_type e = copy.matrix.create(n.profile, A.nbr_rows(), 0.0, run.OOC());
    if (e == no_error && copy.nbr_rows() != A.nbr_rows()) e = memory_error;
    if (e == no_error) e = copy_matrix_values(A.matrix, copy.matrix);
    if (e != no_error) raise_allocation_error(run, e, __FILE__, __LINE__);
    return e == no_error;
}

bool solve_columns(run_state& run, const symmetric_hybrid_OOC<double>& A, double* const* columns, unsigned count,
                   double* energies)
{
    std::fill(energies, energies + count, 0.0);
    if (A.nbr_rows() == 0 || count == 0) return true;
    // The block solve wants the columns at a constant stride in memory; others are
    // gathered into one array for it, or, when that cannot be had, solved one at a time.
    bool strided = count > 1 && columns[1] > columns[0];
    for (unsigned j = 2; strided && j < count; ++j) strided = columns[j] - columns[j - 1] == columns[1] - columns[0];
    const unsigned n = A.nbr_rows();
    std::vector<double> gathered;
    if (!strided && count > 1) {
        try {
            gathered.resize(std::size_t(n) * count);
        } catch (const std::bad_alloc&) {
            gathered.clear();
        }
    }
    error_type e = no_error;
    if (strided) {
        const auto ld = unsigned(columns[1] - columns[0]);
        e = forward_multi(A, columns[0], ld, count, energies, run.LLC_size(), run.threads());
        if (e == no_error) e = backward_multi(A, columns[0], ld, count, run.LLC_size(), run.threads());
    } else if (!gathered.empty()) {
        for (unsigned j = 0; j < count; ++j) std::copy(columns[j], columns[j] + n, gathered.data() + std::size_t(j) * n);
        e = forward_multi(A, gathered.data(), n, count, energies, run.LLC_size(), run.threads());
        if (e == no_error) e = backward_multi(A, gathered.data(), n, count, run.LLC_size(), run.threads());
        if (e == no_error)
            for (unsigned j = 0; j < count; ++j)
                std::copy(gathered.data() + std::size_t(j) * n, gathered.data() + std::size_t(j + 1) * n, columns[j]);
    } else {
        for (unsigned j = 0; j < count && e == no_error; ++j) {
            e = forward(A, columns[j], run.threads(), energies[j]);
            if (e == no_error) e = backward(A, columns[j], run.threads());
        }
    }
    if (e != no_error) KELT_RAISE(run, e, "Solver error.");
    return e == no_error;
}

} // namespace kelt::core
