// Vibration modes: numbering, K and M on one profile, the Sturm count of the band,
// K + sigma M factored (sigma puts the band's middle, or its lower end, at zero,
// or makes a free structure definite), the static modes of the load cases, then
// the eigen kernels (Lanczos-started subspace iteration, or load-dependent Ritz
// vectors grown from the static modes) and the report.
#include "kelt/fem/solver_modal.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "kelt/engine/eigen.h"
#include "kelt/engine/multiply.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"

namespace kelt::core {

using fem::solver_modal;
using fem::solver_modal_ldrv;

namespace {

constexpr double two_pi = 6.283185307179586;
constexpr double to_hertz = 0.15915494309189535;

// The band in squared circular frequencies and the shift of K.
struct modal_shift {
    double L1 = 0.0, L2 = DBL_MAX, w2 = DBL_MAX, sigma = 0.0;
    bool L2_bounded = false;
};

modal_shift shift_of(const fem::modal_settings& s, unsigned cases)
{
    modal_shift h;
    const double w1 = std::max(two_pi * s.freq_min, 0.0);
    h.w2 = s.freq_max >= 2.861117485757028e+307 ? DBL_MAX : two_pi * s.freq_max;
    h.L1 = w1 >= 1.3407807929942596e+154 ? DBL_MAX : w1 * w1;
    h.L2 = h.w2 >= 1.3407807929942596e+154 ? DBL_MAX : h.w2 * h.w2;
    h.L2_bounded = h.L2 < DBL_MAX;
    if (h.L2_bounded)
        h.sigma = -0.5 * h.L1 - 0.5 * h.L2;
    else if (h.L1 > 0.0)
        h.sigma = -h.L1;
    else
        h.sigma = cases == 0 ? 1.0 : 0.0;
    return h;
}

void log_request(const run_state& run, const char* label, std::uint64_t bytes, double megabytes)
{
    if (bytes < 0xFFFFFFFFu)
        run.log(2, "Requested memory for %s: %10llu doubles (%.2f MB)\n", label, (unsigned long long)(bytes / 8),
                megabytes);
    else
        run.log(2, "Requested memory for %s: more than %.2f GB !\n", label, 3.9999999990686774);
}

// What a modal run holds between its phases.
struct modal_work {
    numerical_model_base* model = nullptr;
    numbering n;
    modal_shift shift;
    indexed_sym_matrix K, M;
    compressed_sym Mc;           // M's nonzeros: what the kernels read once M is dropped
    bool sturm = false;          // the band's Sturm count was made
    unsigned count = 0;          // modes asked for
    FEM_real* S = nullptr;       // static modes
    std::vector<double> F;       // the load columns, rows x cases
    double start_time = 0.0;
};

// The matrix K + sigma M, assembled and factored under the definite policy, its
// lines logged and its pivots in the record.
bool factor_shifted(run_state& run, modal_work& w, solver_modal::data_type& data, factor_report& report)
{
    element_pass_type pass = make_pass(*run.problem);
    if (run.stop_requested()) return false;
    if (w.K.matrix.empty() && w.n.size() > 0) {
        // Refilled from the elements: the former values were factored.
        if (!assemble_matrix(run, *w.model, kind_stiffness, pass, w.n, w.K, data.time_K_assembly)) return false;
    }
    if (w.shift.sigma != 0.0 &&
        !assemble_matrix(run, *w.model, kind_mass, pass, w.n, w.K, data.time_K_assembly, w.shift.sigma, true))
        return false;
    factor_options options;
    options.policy = pivot_policy::force_definite;
    (void)factorise(run, w.K.matrix, w.n, options, report, data.time_factorization);
    data.pivot_min = report.pivot_min;
    data.pivot_max = report.pivot_max;
    if (report.bad_DOF != 0xFFFFFFFFu) data.error_DOF = report.bad_DOF;
    run.log(1, "Factorization matrix K             : %10.2f s.\n", data.time_factorization);
    log_matrix_statistics(run, w.K.matrix);
    if (w.n.size() > 0 && !run.failed()) {
        run.log(2, "  pivot max              : %+E \n", data.pivot_max);
        run.log(2, "  pivot min              : %+E \n", data.pivot_min);
    }
    return !run.failed() && !run.stop_requested();
}

// The pivots of K - lambda M below 1e-12 on a copy of K: the eigenvalues below lambda.
bool count_below(run_state& run, modal_work& w, double lambda, unsigned& count, double& timer)
{
    indexed_sym_matrix copy;
    if (!copy_for_factor(run, w.K, w.n, copy)) return false;
    if (lambda != 0.0 && !assemble_matrix(run, *w.model, kind_mass, make_pass(*run.problem), w.n, copy, timer,
                                          -lambda, true))
        return false;
    factor_options options;
    options.policy = pivot_policy::count_below;
    options.bound = 1e-12;
    factor_report report;
    if (!factorise(run, copy.matrix, w.n, options, report, timer)) return false;
    count = report.nbr_below;
    return true;
}

// Steps shared by both modal solvers: set-up, K and M, the count, the factor of
// K + sigma M, and the static modes. False when the run ends here.
bool modal_head(run_state& run, const fem::modal_settings& settings, solver_modal::data_type& data, bool ldrv,
                modal_work& w)
{
    problem_data* problem = problem_of(data);
    run.set_problem(problem, true);
    w.model = problem->model();
    if (!w.model) return false;
    run.log(0, ldrv ? "MODAL LDRV RUN (KELT FEM 4.4.0.0)\n" : "MODAL RUN (KELT FEM 4.4.0.0)\n");
    w.start_time = wall_clock();
    const bool static_only = settings.static_modes_only;
    const unsigned cases = problem->nbr_load_cases();
    const prescribed_set prescribed = collect_prescribed(*problem);
    if (!number_DOFs(run, *w.model, kind_stiffness, prescribed.common, false, w.n, data.time_numbering)) return false;
    data.nbr_free_DOFs = w.n.size();
    w.shift = shift_of(settings, cases);
    const modal_shift& h = w.shift;
    // Only a bounded band needs counting: unbounded, every free DOF is in it.
    w.sturm = !ldrv && !static_only && std::isfinite(h.L1) && std::isfinite(h.L2) && h.L1 != h.L2 && h.L2_bounded;
    data.K_size_MB = data.M_size_MB = w.n.K_size_MB;
    data.Kcpy_size_MB = w.sturm ? w.n.K_size_MB : 0.0;
    log_request(run, "K   ", w.n.K_bytes, data.K_size_MB);
    if (w.sturm) log_request(run, "Kcpy", w.n.K_bytes, data.Kcpy_size_MB);
    log_request(run, "M   ", w.n.K_bytes, data.M_size_MB);
    run.log(2, "Numbering and matrix profiles      : %10.2f s.\n", data.time_numbering);
    data.total_size_MB = data.K_size_MB + data.Kcpy_size_MB + data.M_size_MB;
    if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__) || run.stop_requested()) return false;

    const element_pass_type pass = make_pass(*problem);
    const bool K_done = assemble_matrix(run, *w.model, kind_stiffness, pass, w.n, w.K, data.time_K_assembly);
    run.log(1, "Numerical assembly matrix K        : %10.2f s.\n", data.time_K_assembly);
    if (!K_done) return false;
    log_matrix_statistics(run, w.K.matrix);
    if (run.stop_requested()) return false;
    const bool M_done = assemble_matrix(run, *w.model, kind_mass, pass, w.n, w.M, data.time_M_assembly);
    run.log(1, "Numerical assembly matrix M        : %10.2f s.\n", data.time_M_assembly);
    if (!M_done) return false;
    log_matrix_statistics(run, w.M.matrix);
    // Beyond this point M enters through the elements (K + s M) or by its nonzeros:
    // its skyline, as large as the factor's profile, goes.
    if (const error_type e = w.Mc.build(w.M.matrix); e != no_error) {
        KELT_RAISE(run, e, "Matrix allocation error.");
        return false;
    }
    w.M.matrix.clear();
    if (run.stop_requested()) return false;

    unsigned count = w.n.size();
    if (w.sturm) {
        unsigned up = 0, low = 0;
        if (!count_below(run, w, h.L2, up, data.time_factorization) ||
            !count_below(run, w, h.L1, low, data.time_factorization))
            return false;
        count = std::min(up < low ? 0u : up - low, w.n.size());
    }
    data.nbr_modes_in_range = count;
    if (settings.freq_max >= DBL_MAX)
        run.log(1, "#modes in range [%+E +INF] : %d \n", settings.freq_min, int(count));
    else
        run.log(1, "#modes in range [%+E %+E] : %d \n", settings.freq_min, settings.freq_max, int(count));
    if (count > settings.max_modes && !static_only) {
        run.log(1, "  !! => limited to %d modes. \n", int(settings.max_modes));
        count = settings.max_modes;
    }
    w.count = static_only ? 0 : count;
    if (run.stop_requested()) return false;

    factor_report report;
    if (!factor_shifted(run, w, data, report)) return false;
    // A free structure whose positive shift was not enough: more of M.
    if (w.shift.sigma > 0.0 &&
        (report.pivot_min <= 0.0 || run.status.warning_code == pivot_warning) && report.min_row < w.n.size()) {
        const double m = w.Mc.diagonal()[report.min_row];
        if (m > 0.0) {
            if (run.status.warning_code == pivot_warning) {
                run.status.warning_code = no_error;
                run.status.msg_title[0] = run.status.msg_detail[0] = 0;
            }
            data.error_DOF = 0xFFFFFFFFu;
            w.shift.sigma += std::max(-report.pivot_min, 1.0) / m;
            w.K.matrix.clear();
            if (!factor_shifted(run, w, data, report)) return false;
        }
    }
    data.uses_disk = uses_disk(run);

    // Static modes: K⁻¹ F for each case, and their energies.
    const unsigned rows = w.n.size();
    data.S_modes_size_MB = double(rows) * cases * 8.0 * bytes_to_MB;
    run.log(2, "Requested memory S-modes : %10llu doubles (%.2f MB)\n", (unsigned long long)rows * cases,
            data.S_modes_size_MB);
    data.total_size_MB += data.S_modes_size_MB;
    if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__)) return false;
    FEM_real& S = output_matrix(data.static_modes);
    w.S = &S;
    if (cases == 0 || rows == 0) return !run.stop_requested();
    S = FEM_real(w.n.free_IDs->IDs(), cases);
    if (S.rows() != rows || S.cols() != cases) {
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        return false;
    }
    w.F.assign(std::size_t(rows) * cases, 0.0);
    {
        phase_timer t(data.time_RHS_assembly);
        unsigned skipped = 0;
        for (unsigned i = 0; i < cases; ++i) {
            if (run.stop_requested()) return false;
            indexed_vector target;
            target.values = S.col(i);
            target.IDs = S.IDs;
            if (const error_type e = assemble_loads(*problem, *w.model, kind_stiffness, i, 0.0, DOF_values_view(),
                                                    target, skipped);
                e != no_error) {
                KELT_RAISE(run, e, "Assembly error.");
                break;
            }
            std::copy(target.values.begin(), target.values.end(), w.F.begin() + std::ptrdiff_t(i) * rows);
        }
    }
    run.log(2, "Numerical assembly matrix RHS    : %10.2f s.\n", data.time_RHS_assembly);
    if (run.stop_requested()) return false;
    double time_solve = 0.0;
    {
        phase_timer t(time_solve);
        std::vector<double*> columns(cases);
        for (unsigned i = 0; i < cases; ++i) columns[i] = S.col(i).data();
        std::vector<double> energies(cases, 0.0);
        if (!solve_columns(run, w.K.matrix, columns.data(), cases, energies.data())) return false;
        if (!data.static_participation.resize(cases, 0.0)) throw std::bad_alloc();
        for (unsigned i = 0; i < cases; ++i) data.static_participation[i] = 0.5 * energies[i];
    }
    data.time_resolution += time_solve;
    run.log(2, "Resolution matrix RHS              : %10.2f s.\n", time_solve);
    return !run.stop_requested();
}

void log_list(const run_state& run, const char* title, const double* v, std::size_t n)
{
    run.log(2, "%s", title);
    for (std::size_t i = 0; i < n; ++i) run.log(2, "%+E \n", v[i]);
    run.log(2, "] \n");
}

// Modes into the record from the basis, frequencies, participations and the
// closing lines.
void modal_report(run_state& run, modal_work& w, solver_modal::data_type& data, eigen_basis& X,
                  std::vector<double>& lambda, double sigma, unsigned wanted, double time_eigen)
{
    for (double& l : lambda) l = std::max(l - sigma, 0.0);
    const unsigned m = unsigned(lambda.size()), rows = w.n.size();
    FEM_real& modes = output_matrix(data.modes);
    if (m && rows) {
        modes = FEM_real(w.n.free_IDs->IDs(), m);
        if (modes.cols() != m) {
            KELT_RAISE(run, memory_error, "MEMORY ERROR");
            return;
        }
        for (unsigned j = 0; j < m; ++j) {
            const dense1D<double, 8> x = X.col_read(j);
            dense1D<double, 8> y = modes.col(j);
            if (x.size() != rows || y.size() != rows) {
                KELT_RAISE(run, memory_error, "MEMORY ERROR");
                return;
            }
            std::copy(x.begin(), x.end(), y.begin());
        }
    }
    if (m < wanted) {
        run.log(2, "solver_modal: only %d vectors computed, out of %d.\n", int(m), int(wanted));
        if (w.sturm) run.raise_warning(missing_modes_warning, "Potentially missing modes.");
    }
    if (!data.freqs.resize(m, 0.0)) throw std::bad_alloc();
    for (unsigned i = 0; i < m; ++i) data.freqs[i] = std::sqrt(lambda[i]) * to_hertz;
    const unsigned cases = w.S ? w.S->cols() : 0;
    if (m && cases) {
        if (!data.dynamic_participation.resize(m, cases, 0.0)) throw std::bad_alloc();
        for (unsigned i = 0; i < m; ++i) {
            const dense1D<double, 8> phi = modes.col_read(i);
            for (unsigned j = 0; j < cases; ++j) {
                double s = 0.0;
                const double* f = w.F.data() + std::size_t(j) * rows;
                for (unsigned r = 0; r < rows; ++r) s += phi[r] * f[r];
                data.dynamic_participation(i, j) = s;
            }
        }
    }
    data.time_resolution += time_eigen;
    run.log(1, "Resolution                         : %10.2f s.\n", data.time_resolution);
    run.log(1, "Dynamic modes actually computed    : %d \n", int(m));
    run.log(1, "Static modes actually computed     : %d \n", int(cases));
    log_list(run, "Vibration frequencies (Hz) = [ \n", data.freqs.begin(), m);
    log_list(run, "Static participation ratios = [ \n", data.static_participation.begin(),
             data.static_participation.size());
    run.log(2, "Dynamic participation ratios = [ \n");
    for (unsigned i = 0; i < data.dynamic_participation.rows(); ++i)
        for (unsigned j = 0; j < data.dynamic_participation.cols(); ++j)
            run.log(2, "%+E \n", data.dynamic_participation(i, j));
    run.log(2, "] \n");
}

eigen_settings kernel_settings(const run_state& run, const fem::modal_settings& s)
{
    eigen_settings e;
    e.max_iters = s.max_iters;
    e.tolerance = s.tolerance;
    e.convergence_check = s.convergence_check;
    e.user_data = s.user_data;
    e.threads = run.threads();
    e.LLC_size = run.LLC_size();
    return e;
}

// Two column stores of rows x cols under the budget; "Matrix allocation error.".
bool make_bases(run_state& run, unsigned rows, unsigned cols, eigen_basis& X, eigen_basis& Y)
{
    if (X.resize(rows, cols, 0.0, run.OOC()) && Y.resize(rows, cols, 0.0, run.OOC())) return true;
    KELT_RAISE(run, memory_error, "Matrix allocation error.");
    return false;
}

void modal_run(run_state& run, const fem::modal_settings& settings, solver_modal::data_type& data)
{
    if (!settings.static_modes_only && settings.max_modes == 0) return;
    modal_work w;
    if (!modal_head(run, settings, data, false, w)) return;
    std::vector<double> lambda;
    eigen_basis X, Y;
    double time_eigen = 0.0;
    const unsigned rows = w.n.size();
    if (!settings.static_modes_only && w.count > 0) {
        const unsigned n_basis = std::min(2 * w.count + 4, rows);
        data.D_modes_size_MB = double(rows) * n_basis * 8.0 * bytes_to_MB;
        run.log(2, "Requested memory D-modes : %10llu doubles (%.2f MB)\n", (unsigned long long)rows * n_basis,
                data.D_modes_size_MB);
        data.total_size_MB += data.D_modes_size_MB;
        if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__) || run.stop_requested()) return;
        if (!make_bases(run, rows, n_basis, X, Y)) return;
        const double sigma = w.shift.sigma;
        eigen_band band;
        band.lower = sigma - 0.05 * std::fabs(sigma) + w.shift.L1;
        band.upper = w.shift.L2_bounded ? w.shift.L2 + sigma : DBL_MAX;
        const eigen_settings es = kernel_settings(run, settings);
        {
            phase_timer t(time_eigen);
            // The band's lower end has a margin against rounding, in which a few
            // modes below freq_min may lie: they are asked for too, then dropped.
            const unsigned margin = w.shift.L1 > 0.0 ? 4u : 0u;
            eigen_Lanczos_hybrid kernel(es, run);
            const error_type e = kernel.run(w.K.matrix, w.Mc, std::max(-sigma, 0.0) + 1.0, X, lambda, Y,
                                            std::min(w.count + margin, n_basis), 0, band, -DBL_MAX);
            unsigned below = 0;
            while (margin && below < lambda.size() && lambda[below] - sigma < w.shift.L1 * (1.0 - 1e-9)) ++below;
            const unsigned kept = std::min<unsigned>(unsigned(lambda.size()) - below, w.count);
            if (below || kept < lambda.size()) {
                lambda = std::vector<double>(lambda.begin() + below, lambda.begin() + below + kept);
                X = eigen_basis(X, 0, below, rows, kept);
            }
            if (e == non_convergence_error)
                run.raise_warning(convergence_warning, "Convergence warning.");
            else if (e != no_error)
                KELT_RAISE(run, e, "Modal solver.");
        }
        data.uses_disk = uses_disk(run);
        if (!run.going()) return; // an interrupt in the kernel leaves no mode
    }
    modal_report(run, w, data, X, lambda, w.shift.sigma, w.count, time_eigen);
    if (run.failed()) return;
    data.time_total = wall_clock() - w.start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

void modal_ldrv_run(run_state& run, const fem::modal_settings& settings, solver_modal_ldrv::data_type& data)
{
    if (!settings.static_modes_only && settings.max_modes == 0) return;
    modal_work w;
    if (!modal_head(run, settings, data, true, w)) return;
    std::vector<double> lambda;
    eigen_basis V;
    double time_eigen = 0.0;
    const unsigned rows = w.n.size(), c = w.S ? w.S->cols() : 0;
    const double sigma = w.shift.sigma;
    if (!settings.static_modes_only && w.shift.w2 > 0.0 && c > 0 && w.count > 0 && rows > 0) {
        // Blocks of c vectors, as many as fit in the count; a block that loses
        // dependent vectors leaves room for more blocks.
        const unsigned nbr_vectors = std::min(w.count, rows);
        data.D_modes_size_MB = double(rows) * (nbr_vectors + 2.0 * c) * 8.0 * bytes_to_MB;
        run.log(2, "Requested memory D-modes : %10llu doubles (%.2f MB)\n",
                (unsigned long long)rows * (nbr_vectors + 2ull * c), data.D_modes_size_MB);
        data.total_size_MB += data.D_modes_size_MB;
        if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__) || run.stop_requested()) return;
        eigen_basis X, Y;
        if (!V.resize(rows, nbr_vectors, 0.0, run.OOC()) || !make_bases(run, rows, c, X, Y)) {
            KELT_RAISE(run, memory_error, "Matrix allocation error.");
            return;
        }
        for (unsigned j = 0; j < c; ++j) {
            const dense1D<double, 8> s = w.S->col_read(j);
            dense1D<double, 8> x = X.col(j);
            std::copy(s.begin(), s.end(), x.begin());
        }
        eigen_band band;
        band.lower = w.shift.L1 <= 0.0 ? -DBL_MAX : w.shift.L1 + sigma - 0.05 * std::fabs(sigma);
        band.upper = w.shift.L2_bounded ? w.shift.L2 + sigma : DBL_MAX;
        if (sigma == 0.0 && w.shift.L1 == 0.0) band.lower = 0.0;
        // Products with K + sigma M as assembled, through the elements.
        const matrix_product product = [&](const double* x, double* y) {
            double energy = 0.0;
            const matrix_product_assembler::row_range all{0, rows};
            const error_type e =
                multiply_by_model(*w.model, kind_stiffness, make_pass(*run.problem), w.n.free_IDs, x, all, y, all, energy);
            for (unsigned r = 0; r < rows; ++r) y[r] = -y[r];
            if (sigma != 0.0) w.Mc.multiply(x, y, run.threads(), sigma);
            return e;
        };
        const eigen_settings es = kernel_settings(run, settings);
        std::vector<double> Q;
        error_type e = no_error;
        {
            phase_timer t(time_eigen);
            eigen_LDRV kernel(es, run);
            e = kernel.run(w.K.matrix, product, w.Mc, band, V, lambda, Q, X, Y);
            data.nbr_blocks = unsigned(kernel.block_widths.size());
            if (e == no_error && run.going()) {
                // Rounding leaves a rigid direction with a tiny value of either sign:
                // null is at most 1e-10 of the scale of K over M.
                double M_max = 0.0;
                for (double d : w.Mc.diagonal()) M_max = std::max(M_max, d);
                const double null_below = M_max > 0.0 ? 1e-10 * std::fabs(data.pivot_max) / M_max : 0.0;
                bool null = lambda.empty();
                for (double l : lambda) null = null || l - sigma <= null_below;
                if (null) {
                    KELT_RAISE(run, internal_error, "Error in LDRV modal solver: null frequency(ies)");
                    return;
                }
                const unsigned m = unsigned(lambda.size());
                if (!X.resize(rows, m, 0.0, run.OOC())) {
                    KELT_RAISE(run, memory_error, "Matrix allocation error.");
                    return;
                }
                if ((e = combine_columns(V, Q, V.cols(), m, X, run.threads())) == no_error) V = X;
            }
        }
        if (e != no_error) {
            KELT_RAISE(run, internal_error, "Error in LDRV modal solver.");
            return;
        }
        data.uses_disk = uses_disk(run);
        if (!run.going()) return;
    }
    modal_report(run, w, data, V, lambda, sigma, w.count, time_eigen);
    if (run.failed()) return;
    data.time_total = wall_clock() - w.start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

// A run state for the damping helpers, which work on a finished record.
struct helper_run {
    helper_run(const fem::modal_settings& s, solver_modal::data_type& data) : run(s, data)
    {
        run.set_problem(problem_of(data), true);
    }
    run_state run;
};

// y = C x over the rows of the modes, through the elements.
error_type damping_product(run_state& run, const FEM_real& modes, const double* x, std::vector<double>& y)
{
    std::fill(y.begin(), y.end(), 0.0);
    numerical_model_base* model = run.problem->model();
    if (!model) return invalid_data_error;
    const matrix_product_assembler::row_range all{0, modes.rows()};
    double energy = 0.0;
    const error_type e = multiply_by_model(*model, kind_damping, make_pass(*run.problem), modes.IDs, x, all, y.data(),
                                           all, energy);
    for (double& v : y) v = -v;
    return e;
}

double dot(const dense1D<double, 8>& a, const double* b)
{
    double s = 0.0;
    for (unsigned i = 0; i < a.size(); ++i) s += a[i] * b[i];
    return s;
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

namespace {
core::FEM_real* modes_of(const FEM_matrix& m) { return static_cast<core::FEM_real*>(core_of(m)); }

void raise_data_error(run_status& s, const char* file, int line)
{
    if (s.error_code != no_error) return;
    s.error_code = invalid_data_error;
    std::snprintf(s.msg_title, run_status::text_size, "%s", "DATA ERROR");
    std::snprintf(s.msg_detail, run_status::text_size, "\nFile = %s, Line #%d. \n", core::source_name(file), line);
}
// The helpers run outside the frame of `run`: they keep exceptions away themselves.
void raise_memory_error(run_status& s)
{
    if (s.error_code != no_error) return;
    s.error_code = memory_error;
    std::snprintf(s.msg_title, run_status::text_size, "%s", "MEMORY ERROR");
    s.msg_detail[0] = 0;
}
} // namespace

void solver_modal::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_modal: invalid settings.\n", "KELT solver_modal: invalid data.\n",
                    [&](core::run_state& run) { core::modal_run(run, settings, data); });
}

void solver_modal_ldrv::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_modal: invalid settings.\n", "KELT solver_modal: invalid data.\n",
                    [&](core::run_state& run) { core::modal_ldrv_run(run, settings, data); });
}

void solver_modal::compute_damping_decay_factors(const FEM_matrix& modes, double alpha, dense1D<double, 8>& decay)
{
    const core::FEM_real* X = modes_of(modes);
    const unsigned m = X ? X->cols() : 0;
    if (!decay.resize(m, 0.0)) return decay.clear(); // no room: no factor at all
    std::fill(decay.begin(), decay.end(), 0.0);
    if (alpha == 0.0 || !(alpha == alpha)) return;
    for (unsigned i = 0; i < m; ++i) {
        const dense1D<double, 8> phi = X->col_read(i);
        decay[i] = -0.5 * alpha * core::dot(phi, phi.begin());
    }
}

void solver_modal::compute_damping_decay_factors(data_type& data, const dense1D<double, 8>& coeffs,
                                                 dense1D<double, 8>& decay) const
{
    const core::FEM_real* X = modes_of(data.modes);
    const unsigned m = X ? X->cols() : 0;
    if (coeffs.size() != m) return raise_data_error(data, __FILE__, __LINE__);
    if (!decay.resize(m, 0.0)) return raise_memory_error(data);
    for (unsigned i = 0; i < m; ++i) {
        const dense1D<double, 8> phi = X->col_read(i);
        decay[i] = -0.5 * coeffs[i] * core::dot(phi, phi.begin());
    }
}

void solver_modal::compute_damping_decay_factors(data_type& data, dense1D<double, 8>& decay) const
{
    const core::FEM_real* X = modes_of(data.modes);
    const unsigned m = X ? X->cols() : 0;
    if (!decay.resize(m, 0.0)) return raise_memory_error(data);
    std::fill(decay.begin(), decay.end(), 0.0);
    if (!m || !data.has_numerical_model()) return;
    try {
        core::helper_run h(settings, data);
        std::vector<double> y(X->rows());
        for (unsigned i = 0; i < m && !data.error_raised(); ++i) {
            const dense1D<double, 8> phi = X->col_read(i);
            if (const error_type e = core::damping_product(h.run, *X, phi.begin(), y); e != no_error)
                KELT_RAISE(h.run, e, "Assembly error.");
            decay[i] = -0.5 * core::dot(phi, y.data());
        }
    } catch (...) {
        raise_memory_error(data);
    }
}

void solver_modal::compute_damping_corrections(data_type& data, dense1D<double, 8>& decay,
                                               FEM_matrix& corrections) const
{
    try {
        const core::FEM_real* X = modes_of(data.modes);
        const unsigned m = X ? X->cols() : 0;
        if (data.freqs.size() != m || !m) return raise_data_error(data, __FILE__, __LINE__);
        compute_damping_decay_factors(data, decay);
        if (data.error_raised()) return;
        core::FEM_real& C = core::output_matrix(corrections);
        C = core::FEM_real(X->get_IDs(), m);
        const double tol = settings.tolerance;
        core::helper_run h(settings, data);
        std::vector<double> y(X->rows());
        for (unsigned i = 0; i < m && !data.error_raised(); ++i) {
            const dense1D<double, 8> phi_i = X->col_read(i);
            std::vector<double> x(phi_i.begin(), phi_i.end());
            if (const error_type e = core::damping_product(h.run, *X, x.data(), y); e != no_error) {
                KELT_RAISE(h.run, e, "Assembly error.");
                return;
            }
            dense1D<double, 8> out = C.col(i);
            const double fi = data.freqs[i];
            for (unsigned j = 0; j < m; ++j) {
                const double fj = data.freqs[j];
                if (j == i || fj == fi) continue;
                const dense1D<double, 8> phi_j = X->col_read(j);
                double c = core::dot(phi_j, y.data());
                if (c * c < tol * tol * 4.0 * decay[j] * decay[i]) c = 0.0;
                c = (fi / ((fi - fj) * (fi + fj) * core::two_pi)) * c;
                if (c == 0.0) continue;
                out = C.col(i);
                for (unsigned r = 0; r < out.size(); ++r) out[r] += c * phi_j[r];
            }
        }
    } catch (...) {
        raise_memory_error(data);
    }
}

} // namespace kelt::fem
