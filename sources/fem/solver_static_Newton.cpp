// Non-linear statics by Newton-Raphson in pseudo-time steps. Each iteration: the
// tangent and the residual at the current state in one sweep (or the residual
// alone when K is kept), the reaction to the imposed increment still to apply,
// the external loads at the step's time, one solve whose forward pass gives the
// energy correction, a step length capped in closed form, and the four
// convergence tests. A converged step commits the internal states; every
// output_period steps its state, internal states and time are kept.
#include "kelt/fem/solver_static_Newton.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <random>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/internal_states.h"
#include "kelt/core/load_pass.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/report.h"
#include "kelt/fem/phases/states.h"

namespace kelt::fem {

bool Newton_settings::valid() const noexcept
{
    // The periods are not examined: 0 acts as 1.
    return t_start < t_end && nbr_steps != 0 && max_iters != 0 && max_dU > 0.0 && tol_U > 0.0 && tol_F > 0.0 &&
           tol_E > 0.0 && tol_W >= 0.0;
}

} // namespace kelt::fem

namespace kelt::core {

using fem::solver_static_Newton;
using Newton_data = solver_static_Newton::data_type;

namespace {

constexpr unsigned none = 0xFFFFFFFFu;

// The largest magnitude; a NaN, once met, stays, so that the tests see it.
double max_abs(const double* v, unsigned n) noexcept
{
    double m = 0.0;
    for (unsigned r = 0; r < n; ++r) m = std::fabs(v[r]) > m || std::isnan(v[r]) ? std::fabs(v[r]) : m;
    return m;
}

// The largest magnitude over the rows whose DOF place lies in [first, last].
double max_abs_on(const double* v, const numbering& n, unsigned first, unsigned last) noexcept
{
    double m = 0.0;
    for (unsigned r = 0; r < n.size(); ++r) {
        const unsigned place = n.ID(r) % DOFs_mgr::nbr_places;
        if (place >= first && place <= last && (std::fabs(v[r]) > m || std::isnan(v[r]))) m = std::fabs(v[r]);
    }
    return m;
}

// What the step loop holds. R is over the free DOFs in solver order and is
// solved in place into the correction; u and P are over all rows of the output
// states (free DOFs, then prescribed ones).
struct Newton_work {
    numerical_model_base* model = nullptr;
    const loads_mgr* loads = nullptr;    // of load case 0
    stress_super_mgr* thermal = nullptr; // of load case 0
    numbering n;
    indexed_sym_matrix K;
    dense1D<double, 8> R, u, P;
    Ptr<vector_fast> rows; // of u and P
    bool has_P = false;
    double E = 0.0, F_ref = 0.0, L = 1.0;
    double pivot_min = 0.0, pivot_max = 0.0;
    bool rebuild = true; // the previous iteration's decision
    bool converged = false;
    std::mt19937 generator{5489u}; // of the forced-pivot iterations: runs repeat bit for bit
};

// A pass over all elements at t on the current state, thermal loads seen as strains.
element_pass_type working_pass(const run_state& run, const Newton_work& w, double t)
{
    element_pass_type pass = make_pass(*run.problem, t);
    pass.with_transform = true;
    pass.U.rows = w.rows;
    pass.U.values = w.u;
    pass.has_thermal = w.thermal != nullptr;
    pass.thermal = w.thermal;
    return pass;
}

// P = the prescribed values at t minus the current state on their DOFs; none when
// they already hold.
void imposed_increment(Newton_work& w, double t)
{
    w.has_P = false;
    if (!w.loads || w.loads->nbr_prescribed_values() == 0) return;
    std::fill(w.P.begin(), w.P.end(), 0.0);
    vector_null_assembler nothing;
    const load_pass_type lp(nothing, 1.0, t, 0);
    w.loads->prescribed_vector(lp, *w.rows, w.P);
    // The prescribed DOFs are the rows after the free ones.
    for (unsigned r = w.n.size(); r < w.P.size(); ++r) w.P[r] -= w.u[r];
    w.has_P = std::any_of(w.P.begin(), w.P.end(), [](double x) { return x != 0.0; });
}

// The norms of one iteration, as the convergence tests and the host see them.
struct iteration_norms {
    double dU = 0.0, dF = 0.0, dE = 0.0, U_max = 0.0, alpha = 1.0;
};

// The pivot report of this iteration's factorisation: a rejected pivot, or the
// smallest one more than 12 decades below the largest.
struct pivot_flags {
    bool rejected = false;
    bool small = false;
};

// K rebuilt (tangent and residual in one sweep, then factorised) or kept (the
// residual alone), then the reaction to P and the external loads: R = F_ext - F_int.
pivot_flags residual_and_tangent(run_state& run, const fem::Newton_settings& s, Newton_work& w, unsigned i,
                                 double t, Newton_data& data)
{
    pivot_flags flags;
    indexed_vector R;
    R.values = w.R;
    R.IDs = w.n.free_IDs;
    const element_pass_type pass = working_pass(run, w, t);
    unsigned skipped = 0;
    // The loads first, for this phase zeroes R; thermal loads are strains of the
    // element passes, so that the laws see them.
    if (const error_type e = assemble_loads(*run.problem, *w.model, kind_stiffness, 0, t, pass.U, R, skipped, false);
        e != no_error)
        KELT_RAISE(run, e, "FEM error.");
    if (w.rebuild && w.n.size()) {
        if (!run.stop_requested() &&
            assemble_tangent(run, *w.model, kind_stiffness, pass, w.n, w.K, R, w.E, data.time_K_assembly)) {
            factor_options options;
            options.policy =
                i < s.nbr_forced_pivot_iters ? pivot_policy::force_positive_random : pivot_policy::check_positive;
            options.generator = &w.generator;
            options.warn_small_pivots = false;
            factor_report report;
            (void)factorise(run, w.K.matrix, w.n, options, report, data.time_factorization);
            w.pivot_min = report.pivot_min;
            w.pivot_max = report.pivot_max;
            run.log(2, "  pivot max              : %+E \n", w.pivot_max);
            run.log(2, "  pivot min              : %+E \n", w.pivot_min);
            flags.rejected = report.bad_DOF != none;
            flags.small = w.pivot_max * 1e-12 > w.pivot_min && report.min_row != none;
            if (flags.rejected)
                data.bad_pivot_DOF = report.bad_DOF;
            else if (flags.small && i >= s.nbr_forced_pivot_iters) {
                run.raise_warning(pivot_warning, "Pivot warning.");
                data.bad_pivot_DOF = w.n.ID(report.min_row);
            }
        }
    } else if (!run.stop_requested()) {
        if (const error_type e = assemble_vector(*w.model, kind_stiffness, pass, R, 1.0, &w.E); e != no_error)
            KELT_RAISE(run, e, "FEM error.");
    }
    if (w.has_P && !run.stop_requested()) {
        const error_type e = multiply_at_state(*w.model, kind_stiffness, pass, *w.rows, w.P.data(), {0, w.P.size()},
                                               w.R.data(), {0, w.n.size()});
        if (e != no_error) KELT_RAISE(run, e, "FEM error.");
    }
    return flags;
}

// dU = K⁻¹ R in place, with R K⁻¹ R from the forward pass; nothing but zeros
// when the run is ending.
double correction(run_state& run, Newton_work& w)
{
    double dE0 = 0.0;
    if (!run.stop_requested()) {
        double* column = w.R.data();
        (void)solve_columns(run, w.K.matrix, &column, 1, &dE0);
    }
    if (!run.going()) {
        std::fill(w.R.begin(), w.R.end(), 0.0);
        dE0 = 0.0;
    }
    return dE0;
}

// The step length: no correction moves translations by more than max_dU or the
// model's size, nor rotations by more than max_dR.
double step_length(const fem::Newton_settings& s, const Newton_work& w)
{
    const double dU_t = max_abs_on(w.R.data(), w.n, place_x, place_z);
    const double dU_r = max_abs_on(w.R.data(), w.n, place_rx, place_rz);
    double alpha_t = 1.0, alpha_r = 1.0;
    if (dU_t > s.max_dU) alpha_t = s.max_dU / dU_t;
    if (w.L < alpha_t * dU_t) alpha_t = w.L / dU_t;
    if (dU_r > s.max_dR) alpha_r = s.max_dR / dU_r;
    return std::min(alpha_t, alpha_r);
}

void log_iteration(const run_state& run, const Newton_work& w, const iteration_norms& x)
{
    if (x.alpha < 1.0) run.log(2, "  alpha                  : %+E # \n", x.alpha);
    run.log(2, "  max_norm(dF)           : %+E (%.2E %%)\n", x.dF, w.F_ref != 0.0 ? 100.0 * x.dF / w.F_ref : 0.0);
    run.log(2, "  max_norm(dU)           : %+E (%.2E %%)\n", x.dU, x.U_max != 0.0 ? 100.0 * x.dU / x.U_max : 0.0);
    double lo = 0.0, hi = 0.0;
    field_range(w.u, *w.rows, place_x, place_z, lo, hi);
    run.log(2, "  max U                  : %+E \n", hi);
    run.log(2, "  min U                  : %+E \n", lo);
    field_range(w.u, *w.rows, place_rx, place_rz, lo, hi);
    run.log(2, "  max R                  : %+E \n", hi);
    run.log(2, "  min R                  : %+E \n", lo);
    if (w.E != 0.0) run.log(2, "  dE                     : %+E (%.2E %%) \n", x.dE, 100.0 * std::fabs(x.dE / w.E));
    run.log(2, "  Elastic energy         : %+E \n", w.E);
}

// How an iteration ends: another one follows, the step converged, a stop came
// at its head (counted as no iteration), or the step failed.
enum class next { iterate, converged, stopped, leave };

next iterate(run_state& run, const fem::Newton_settings& s, Newton_work& w, unsigned k, unsigned i, double t,
             Newton_data& data)
{
    // A stop here keeps the converged flag of the previous step.
    if (run.stop_requested()) return next::stopped;
    run.log(2, " *iter #%d \n", int(i));
    switch (s.K_update_mode) {
    case 0: w.rebuild = false; break;
    case 1: w.rebuild = (k - 1) % s.K_update_period == 0; break;
    case 2: w.rebuild = i % s.K_update_period == 0; break;
    default: break;
    }
    std::fill(w.R.begin(), w.R.end(), 0.0);
    const pivot_flags pivots = residual_and_tangent(run, s, w, i, t, data);

    iteration_norms x;
    x.dF = max_abs(w.R.data(), w.R.size());
    if (k + i == 1) w.F_ref = x.dF;
    if (i == 0) w.F_ref = std::max(w.F_ref, x.dF);
    const double dE0 = correction(run, w);
    const double dU0 = max_abs(w.R.data(), w.R.size());
    if (!std::isfinite(dU0) || !std::isfinite(dE0)) KELT_RAISE(run, inf_nan_error, "INF or NaN encountered.");

    x.alpha = step_length(s, w);
    x.dE = x.alpha * dE0;
    w.E += x.dE;
    x.dU = x.alpha * dU0;
    for (unsigned r = 0; r < w.R.size(); ++r) w.u[r] += x.alpha * w.R[r];
    if (w.has_P) {
        for (unsigned r = 0; r < w.P.size(); ++r) w.u[r] += x.alpha * w.P[r];
        // The part of the imposed motion not applied comes back in the next iteration.
        if (x.alpha == 1.0)
            w.has_P = false;
        else
            for (double& p : w.P) p *= 1.0 - x.alpha;
    }
    x.U_max = max_abs(w.u.data(), w.u.size());
    log_iteration(run, w, x);

    const bool A = std::fabs(x.dE) <= s.tol_E * w.E && x.dF <= s.tol_F * w.F_ref && x.dU <= s.tol_U * x.U_max;
    const bool B = std::fabs(x.dE) <= s.tol_W || x.dF * x.dU <= s.tol_W;
    const bool C = x.dU == 0.0;
    // A shortened step converges on force only.
    const bool D = x.alpha == 1.0 || x.dF <= s.tol_F * w.F_ref;
    w.converged = (A || B || C) && D && !pivots.rejected && !run.failed();
    if (i < s.nbr_forced_pivot_iters && pivots.small) w.converged = false;

    if (s.iteration_hdl)
        s.iteration_hdl(s.user_data, t, k, i, data.nbr_outputs, w.E, x.dU, x.dF, x.dE,
                        x.U_max > 0.0 ? x.dU / x.U_max : 0.0, w.F_ref > 0.0 ? x.dF / w.F_ref : 0.0,
                        w.E > 0.0 ? std::fabs(x.dE) / w.E : 0.0);

    if ((!w.converged && i + 1 >= s.max_iters) || !std::isfinite(x.dU) || !std::isfinite(x.dF) ||
        !std::isfinite(w.E) || run.failed()) {
        KELT_RAISE(run, non_convergence_error, "Non convergence of the Newton-Raphson algorithm.");
        return next::leave;
    }
    ++data.total_iters;
    return w.converged ? next::converged : next::iterate;
}

// The working state into output column c.
void store(Newton_work& w, FEM_real_states& out, unsigned c)
{
    dense1D<double, 8> col = out.col(c);
    if (col.size() != w.u.size()) throw std::bad_alloc();
    std::copy(w.u.begin(), w.u.end(), col.begin());
}

// The converged state made final; every output_period steps kept with its
// internal states, thermal loads and time.
void commit_step(run_state& run, const fem::Newton_settings& s, Newton_work& w, unsigned k, double t,
                 FEM_real_states& out, Newton_data& data)
{
    if (!commit_internal_states(run, *w.model, kind_stiffness, working_pass(run, w, t))) return;
    if (k % s.output_period != 0) return;
    const unsigned c = data.nbr_outputs;
    store(w, out, c);
    if (w.model->has_internal_states()) {
        Ptr<internal_states> kept = new internal_states;
        if (w.model->get_internal_states(*kept) == no_error) (void)out.set_internal_state(c, kept.get());
    }
    // The thermal loads as they stand at t, so that the column's stresses can be
    // found again whatever their evolution functions.
    if (w.thermal) {
        const Ptr<stress_super_mgr> frozen = w.thermal->frozen_at(t);
        if (!frozen) throw std::bad_alloc();
        (void)out.set_stress_mgr(c, frozen.get());
    }
    data.times.push_back(t); // reserved for every step
    ++data.nbr_outputs;
}

void step_loop(run_state& run, const fem::Newton_settings& s, Newton_work& w, FEM_real_states& out,
               Newton_data& data)
{
    phase_timer timer(data.time_resolution);
    unsigned col = 0; // the open column
    while (data.nbr_steps_done < s.nbr_steps && run.going()) {
        if (run.stop_requested()) break;
        const unsigned k = ++data.nbr_steps_done;
        const double t = s.t_start + (s.t_end - s.t_start) * k / s.nbr_steps;
        if (k > 1 && (k - 1) % s.output_period == 0) {
            // A new column starts from the last kept state, which u holds.
            col = data.nbr_outputs;
            store(w, out, col);
        }
        if (k % s.output_period == 0)
            run.log(0, "** Step #%d (t = %+E), Output #%d\n", int(k), t, int(data.nbr_outputs));
        else
            run.log(0, "** Step #%d (t = %+E) \n", int(k), t);
        imposed_increment(w, t);

        unsigned i = 0;
        for (next n = next::iterate; n == next::iterate;) {
            n = iterate(run, s, w, k, i, t, data);
            if (n == next::iterate || n == next::converged) ++i;
        }
        data.iters[k - 1] = i;
        data.pivot_min[k - 1] = w.pivot_min;
        data.pivot_max[k - 1] = w.pivot_max;
        data.energy[k - 1] = w.E;
        if (w.converged) commit_step(run, s, w, k, t, out, data);
        store(w, out, col);
    }
    // The columns past the open one were never reached.
    if (col + 1 < out.cols()) {
        const FEM_real_states used(out, 0, col + 1);
        static_cast<FEM_real&>(out) = used;
        out.stress_mgrs = used.stress_mgrs;
        out.internal_states = used.internal_states;
    }
}

void Newton_run(run_state& run, const fem::Newton_settings& settings, Newton_data& data)
{
    // A period of 0, which the settings' check lets through, acts as 1 rather
    // than divide by 0.
    fem::Newton_settings s = settings;
    s.K_update_period = std::max(1u, s.K_update_period);
    s.output_period = std::max(1u, s.output_period);
    Newton_work w;
    w.model = take_problem(run, problem_of(data));
    if (!w.model || run.stop_requested()) return;
    const problem_data& problem = *run.problem;
    const double start_time = wall_clock();
    run.log(0, "STATIC NEWTON RUN (KELT FEM 4.4.0.0)\n");

    // The prescribed DOFs of load case 0 stay out of K: their motion comes as P.
    const prescribed_set all = collect_prescribed(problem);
    prescribed_set prescribed;
    prescribed.offsets = {0, all.offsets.size() > 1 ? all.offsets[1] : 0u};
    if (!prescribed.IDs.reserve(prescribed.offsets[1], 1) || !prescribed.common.reserve(prescribed.offsets[1], 1))
        throw std::bad_alloc();
    for (unsigned j = 0; j < prescribed.offsets[1]; ++j) prescribed.IDs.push_back(all.IDs[j]);
    prescribed.common = prescribed.IDs;
    if (!number_DOFs(run, *w.model, kind_stiffness, prescribed.common, false, w.n, data.time_numbering)) return;
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);
    log_K_request(run, w.n);
    if (run.stop_requested()) return;

    // Rows: the free DOFs in solver order, then the prescribed ones. One column
    // per output and the open one, under the context's budget.
    dense1D<unsigned, 8> row_IDs;
    if (!row_IDs.reserve(w.n.size() + prescribed.IDs.size(), 1)) throw std::bad_alloc();
    for (unsigned r = 0; r < w.n.size(); ++r) row_IDs.push_back(w.n.ID(r));
    for (unsigned id : prescribed.IDs) row_IDs.push_back(id);
    const unsigned cols = 1 + (s.nbr_steps - 1) / s.output_period;
    const std::uint64_t rows = row_IDs.size();
    const double states_MB = double(rows) * double(cols) * 8.0 * bytes_to_MB;
    if (!run.check_memory(w.n.K_size_MB + states_MB, __FILE__, __LINE__)) return;
    if (!allocate_matrix(run, w.n, w.K)) return;
    run.log(2, "Requested memory RHS     : %10llu doubles (%.2f MB) \n", (unsigned long long)(rows * cols), states_MB);
    FEM_real_states& out = output_states(data.U);
    if (rows && (!out.IDs->assign(row_IDs.data(), row_IDs.size()) || out.IDs->size() != rows ||
                 !out.resize(unsigned(rows), cols, 0.0, run.OOC()))) {
        out.clear();
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        return;
    }
    out.stress_mgrs.assign(cols, nullptr);
    out.internal_states.assign(cols, nullptr);

    if (out.rows() && !run.failed()) {
        w.rows = out.IDs;
        w.loads = problem.loads.empty() ? nullptr : problem.loads[0].get();
        w.thermal = problem.stresses.empty() ? nullptr : problem.stresses[0].get();
        if (!w.R.resize(w.n.size(), 0.0) || !w.u.resize(out.rows(), 0.0) || !w.P.resize(out.rows(), 0.0) ||
            !data.energy.resize(s.nbr_steps, 0.0) || !data.pivot_min.resize(s.nbr_steps, 0.0) ||
            !data.pivot_max.resize(s.nbr_steps, 0.0) || !data.iters.resize(s.nbr_steps, 0u) ||
            !data.times.reserve(s.nbr_steps, 1))
            throw std::bad_alloc();
        // A continuation: the state and internal states of an earlier run, read by DOF.
        if (const FEM_real_states* start = input_states(data.U_start); start && start->cols()) {
            const DOF_values_view u0 = state_view(start, 0);
            for (unsigned r = 0; r < w.u.size() && !u0.empty(); ++r) w.u[r] += u0.get((*w.rows)[r]);
            (void)out.set_internal_state(0, start->internal_state(0));
            (void)out.set_stress_mgr(0, start->stress_mgr(0));
            if (!restore_internal_states(run, *w.model, start->internal_state(0))) return;
        }
        w.L = w.model->get_mesh_size(problem.pos);
        if (w.L == 0.0) w.L = 1.0;
        step_loop(run, s, w, out, data);
    }

    if (data.nbr_steps_done) data.avg_iters = double(data.total_iters) / data.nbr_steps_done;
    run.log(1, "Steps                              : %10u \n", data.nbr_steps_done);
    run.log(1, "Total iterations                   : %10u \n", data.total_iters);
    run.log(1, "Avrg iters/step                    : %10.1f \n", data.avg_iters);
    run.log(1, "Resolution non-linear system       : %10.2f s.\n", data.time_resolution);
    data.time_total = wall_clock() - start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_static_Newton::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_static_Newton: invalid settings.\n",
                    "KELT solver_static_Newton: invalid data.\n",
                    [&](core::run_state& run) { core::Newton_run(run, settings, data); });
}

} // namespace kelt::fem
