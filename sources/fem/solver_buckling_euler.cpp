// Euler buckling: the load case solved statically on the material stiffness K1,
// the geometric stiffness K2 of its stresses, the Sturm count of the range of
// multipliers, and the subspace iteration on the pencil (K1, G), G = -K2, so that
// a compressive reference load has positive multipliers. A closed range that
// leaves out 0 is shifted to its middle: K1 - s G is factored on the copy of K1
// kept for the counts.
#include "kelt/fem/solver_buckling_euler.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "kelt/engine/eigen.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/static_resolution.h"

namespace kelt::core {

using fem::solver_buckling_Euler;

namespace {

// Where the Sturm counts of an open end are made: at this many times the largest
// ratio of K1's pivots to G's diagonal, past any multiplier of the structure.
constexpr double open_end_scale = 1e6;

void log_request(const run_state& run, const char* label, std::uint64_t bytes, double megabytes)
{
    if (bytes < 0xFFFFFFFFu)
        run.log(2, "Requested memory %s: %10llu doubles (%.2f MB)\n", label, (unsigned long long)(bytes / 8),
                megabytes);
    else
        run.log(2, "Requested memory %s: more than %.2f GB !\n", label, 3.9999999990686774);
}

// What a buckling run holds between its phases.
struct buckling_work {
    numerical_model_base* model = nullptr;
    static_setup s;
    FEM_real_states U;        // the static state of the load case
    indexed_sym_matrix K1;    // as assembled: the counts and the shifted matrix start from it
    indexed_sym_matrix K1f;   // K1's factor: the static solve, and the iteration when unshifted
    compressed_sym G;         // -K2 by its nonzeros
    double G_diag_max = 0.0;
};

// The geometric stiffness of the static state, times `factor`, into A (added
// to what A holds with `add`).
bool assemble_geometric(run_state& run, buckling_work& w, indexed_sym_matrix& A, double factor, bool add,
                        double& timer)
{
    element_pass_type pass = make_pass(*run.problem);
    pass.matrix_mode = matrix_geometric;
    pass.U = state_view(&w.U, 0);
    return assemble_matrix(run, *w.model, kind_stiffness, pass, w.s.n, A, timer, factor, add);
}

// The number of multipliers strictly between 0 and `lambda` (of its sign): the
// pivots of K1 - lambda G below 1e-12, on a copy of K1.
bool count_to(run_state& run, buckling_work& w, double lambda, unsigned& count, double& timer)
{
    count = 0;
    if (lambda == 0.0) return true;
    indexed_sym_matrix copy;
    if (!copy_for_factor(run, w.K1, w.s.n, copy)) return false;
    if (!assemble_geometric(run, w, copy, lambda, true, timer)) return false;
    factor_options options;
    options.policy = pivot_policy::count_below;
    options.bound = 1e-12;
    factor_report report;
    if (!factorise(run, copy.matrix, w.s.n, options, report, timer)) return false;
    count = report.nbr_below;
    return true;
}

// The Sturm count of [lo, hi], each end at ±`far` when open.
bool count_in_range(run_state& run, buckling_work& w, double lo, double hi, unsigned& count, double& timer)
{
    unsigned n_lo = 0, n_hi = 0;
    if (!count_to(run, w, lo, n_lo, timer) || !count_to(run, w, hi, n_hi, timer)) return false;
    if (lo >= 0.0)
        count = n_hi > n_lo ? n_hi - n_lo : 0;
    else if (hi <= 0.0)
        count = n_lo > n_hi ? n_lo - n_hi : 0;
    else
        count = n_lo + n_hi;
    count = std::min(count, w.s.n.size());
    return true;
}

void buckling_run(run_state& run, const fem::buckling_Euler_settings& settings,
                  solver_buckling_Euler::data_type& data)
{
    problem_data* problem = problem_of(data);
    if (problem->nbr_load_cases() != 1) {
        KELT_RAISE(run, invalid_data_error, "DATA ERROR");
        std::snprintf(run.status.msg_detail, fem::run_status::text_size,
                      "KELT solver_buckling_Euler: Needs exactly one load case.\n\nFile = %s, Line #%d. \n",
                      source_name(__FILE__), __LINE__);
        return;
    }
    if (settings.nbr_modes == 0) return;
    run.set_problem(problem, true);
    buckling_work w;
    w.model = problem->model();
    if (!w.model) return;
    run.log(0, "EULER BUCKLING RUN (KELT FEM 4.4.0.0)\n");
    const double start_time = wall_clock();

    const bool open_lo = settings.lambda_min <= -DBL_MAX, open_hi = settings.lambda_max >= DBL_MAX;
    const bool shifted = !open_lo && !open_hi && (settings.lambda_min > 0.0 || settings.lambda_max < 0.0);
    const double shift = shifted ? 0.5 * settings.lambda_min + 0.5 * settings.lambda_max : 0.0;

    // 1. Numbering: the case's prescribed DOFs leave K.
    w.s.prescribed = collect_prescribed(*problem);
    if (!number_DOFs(run, *w.model, kind_stiffness, w.s.prescribed.common, false, w.s.n, data.time_numbering))
        return;
    const unsigned rows = w.s.n.size();
    data.nbr_free_DOFs = rows;
    if (!size_static_states(run, w.U, w.s.n, w.s.prescribed, 1, w.s.layout)) return;
    const double K_MB = w.s.n.K_size_MB;
    log_request(run, "for K0 ", w.s.n.K_bytes, K_MB);
    if (shifted)
        run.log(2, "Requested memory K0cpy   : %10llu doubles (%.2f MB)\n", (unsigned long long)(w.s.n.K_bytes / 8),
                K_MB);
    log_request(run, "for K1 ", w.s.n.K_bytes, K_MB);
    run.log(2, "Numbering and matrix profiles      : %10.2f s.\n", data.time_numbering);
    const double S_MB = double(w.U.rows()) * 8.0 * bytes_to_MB;
    run.log(2, "Requested memory S-mode  : %10llu doubles (%.2f MB)\n", (unsigned long long)w.U.rows(), S_MB);
    // K1, its factor, a copy for the counts (or the shifted matrix), G.
    data.total_size_MB = 4.0 * K_MB + S_MB;
    if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__) || run.stop_requested()) return;

    // 2. The material stiffness.
    run.log(2, "Computing K1...\n");
    element_pass_type pass = make_pass(*problem);
    pass.matrix_mode = matrix_material;
    if (!assemble_matrix(run, *w.model, kind_stiffness, pass, w.s.n, w.K1, data.time_assembly)) return;
    if (run.stop_requested()) return;

    // 3. Its factor.
    run.log(2, "Factorizing K1...\n");
    if (!copy_for_factor(run, w.K1, w.s.n, w.K1f)) return;
    factor_options options;
    options.policy = pivot_policy::check_positive;
    factor_report report;
    double time_factor = 0.0;
    (void)factorise(run, w.K1f.matrix, w.s.n, options, report, time_factor);
    data.time_resolution += time_factor;
    data.pivot_min = report.pivot_min;
    data.pivot_max = report.pivot_max;
    data.error_DOF = report.bad_DOF;
    if (rows > 0 && !run.failed()) {
        run.log(2, "pivot max              : %+E \n", data.pivot_max);
        run.log(2, "pivot min              : %+E \n", data.pivot_min);
    }
    if (run.stop_requested()) return;

    // 4. The static state of the reference load.
    if (!assemble_load_cases(run, *w.model, kind_stiffness, 0.0, DOF_values_view(), w.U, data.time_assembly) ||
        !check_finite(run, w.U, __FILE__, __LINE__))
        return;
    run.log(2, "Solving K1 %% U = S_mode...\n");
    {
        phase_timer t(data.time_resolution);
        const static_system system{*w.model, kind_stiffness, w.s.n, w.s.prescribed, w.s.layout, w.U, w.K1f, w.K1f};
        dense1D<double, 8> energies;
        if (!energies.resize(1, 0.0)) throw std::bad_alloc();
        solve_static_cases(run, system, gradient_settings(), energies);
        // The halved work is the system's convention; the log wants Sᵀ K1⁻¹ S.
        data.energy = 2.0 * energies[0];
    }
    if (!run.going() || !check_finite(run, w.U, __FILE__, __LINE__)) return;
    {
        const dense1D<double, 8> u = w.U.col_read(0);
        double n2 = 0.0;
        for (unsigned r = 0; r < rows; ++r) n2 += u[r] * u[r];
        run.log(2, "||U mech||             : %+E \n", std::sqrt(n2));
        run.log(2, "elastic energy         : %+E \n", data.energy);
    }
    if (run.stop_requested()) return;

    // 5. The geometric stiffness of that state, as G = -K2 by its nonzeros.
    run.log(1, "Computing K2...\n");
    {
        indexed_sym_matrix K2;
        if (!assemble_geometric(run, w, K2, -1.0, false, data.time_assembly)) return;
        if (const error_type e = w.G.build(K2.matrix); e != no_error) {
            KELT_RAISE(run, e, "Matrix allocation error.");
            return;
        }
    }
    for (double d : w.G.diagonal()) w.G_diag_max = std::max(w.G_diag_max, std::fabs(d));
    run.log(1, "Numerical assembly matrices        : %10.2f s.\n", data.time_assembly);
    if (run.stop_requested()) return;

    // 6. The Sturm count of the range. No stress, no multiplier.
    unsigned count = 0;
    if (w.G_diag_max > 0.0 && rows > 0) {
        const double far = open_end_scale * std::fabs(data.pivot_max) / w.G_diag_max;
        const double lo = open_lo ? -far : settings.lambda_min, hi = open_hi ? far : settings.lambda_max;
        if (!count_in_range(run, w, lo, hi, count, data.time_resolution)) return;
    }
    data.nbr_modes_in_range = count;
    if (!open_lo && !open_hi)
        run.log(1, "#modes in range [%+E %+E] : %d \n", settings.lambda_min, settings.lambda_max, int(count));
    else if (!open_lo)
        run.log(1, "#modes in range [%+E +INF] : %d \n", settings.lambda_min, int(count));
    else if (!open_hi)
        run.log(1, "#modes in range [-INF %+E] : %d \n", settings.lambda_max, int(count));
    else
        run.log(1, "#modes in range [-INF +INF] : %d \n", int(count));
    if (settings.nbr_modes < count) {
        run.log(1, "!! => limited to %d modes. \n", int(settings.nbr_modes));
        count = settings.nbr_modes;
    }
    if (run.stop_requested()) return;

    // 7. The subspace iteration on (K1 - s G, G), its values moved back by s.
    std::vector<double> lambda;
    eigen_basis X, Y;
    double time_eigen = 0.0;
    if (count > 0) {
        const unsigned n_basis = std::min(std::max(2 * count, count + 8), rows);
        const double B_MB = 2.0 * double(rows) * n_basis * 8.0 * bytes_to_MB;
        run.log(2, "Requested memory B-modes : %10llu doubles (%.2f MB)\n", 2ull * rows * n_basis, B_MB);
        data.total_size_MB += B_MB;
        if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__) || run.stop_requested()) return;
        indexed_sym_matrix* A = &w.K1f;
        if (shifted) {
            // K0cpy: K1 itself, no longer needed as assembled, becomes K1 - s G.
            w.K1f = indexed_sym_matrix();
            if (!assemble_geometric(run, w, w.K1, shift, true, data.time_assembly)) return;
            factor_options definite;
            definite.policy = pivot_policy::force_definite;
            factor_report shifted_report;
            if (!factorise(run, w.K1.matrix, w.s.n, definite, shifted_report, data.time_resolution)) return;
            A = &w.K1;
        } else {
            w.K1 = indexed_sym_matrix();
        }
        if (!X.resize(rows, n_basis, 0.0, run.OOC()) || !Y.resize(rows, n_basis, 0.0, run.OOC())) {
            KELT_RAISE(run, memory_error, "Matrix allocation error.");
            return;
        }
        eigen_settings es;
        es.max_iters = settings.max_iters;
        es.tolerance = settings.tolerance;
        es.threads = run.threads();
        es.LLC_size = run.LLC_size();
        eigen_band band;
        band.lower = open_lo ? -DBL_MAX : settings.lambda_min - shift;
        band.upper = open_hi ? DBL_MAX : settings.lambda_max - shift;
        {
            phase_timer t(time_eigen);
            eigen_subspace kernel(es, run);
            const error_type e = kernel.run(A->matrix, w.G, shift, X, lambda, Y, count, n_basis, 0, band, -DBL_MAX);
            if (e == non_convergence_error)
                run.raise_warning(convergence_warning, "Convergence warning.");
            else if (e != no_error)
                KELT_RAISE(run, e, "Modal solver.");
        }
        if (!run.going()) return;
        for (double& l : lambda) l += shift;
    }
    const unsigned m = unsigned(lambda.size());
    if (m < count) {
        run.log(1, "solver_buckling_Euler: only %d vectors computed, out of %d.\n", int(m), int(count));
        run.raise_warning(missing_modes_warning, "Potentially missing modes.");
    }

    // 8. The modes and multipliers into the record.
    FEM_real_states& modes = output_states(data.modes);
    if (m) {
        static_cast<FEM_real&>(modes) = FEM_real(w.s.n.free_IDs->IDs(), m);
        if (modes.cols() != m || modes.rows() != rows) {
            KELT_RAISE(run, memory_error, "Matrix allocation error.");
            return;
        }
        for (unsigned j = 0; j < m; ++j) {
            const dense1D<double, 8> x = X.col_read(j);
            dense1D<double, 8> y = modes.col(j);
            std::copy(x.begin(), x.end(), y.begin());
        }
    }
    if (!data.lambdas.resize(m, 0.0)) throw std::bad_alloc();
    std::copy(lambda.begin(), lambda.end(), data.lambdas.begin());
    data.time_resolution += time_eigen;
    run.log(1, "Resolution                         : %10.2f s.\n", data.time_resolution);
    run.log(1, "Buckling modes actually computed   : %d \n", int(m));
    run.log(1, "Buckling loads = [ \n");
    for (unsigned i = 0; i < m; ++i) run.log(1, "%+E \n", lambda[i]);
    run.log(1, "] \n");
    data.time_total = wall_clock() - start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_buckling_Euler::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_buckling_Euler: invalid settings.\n",
                    "KELT solver_buckling_Euler: invalid data.\n",
                    [&](core::run_state& run) { core::buckling_run(run, settings, data); });
}

} // namespace kelt::fem
