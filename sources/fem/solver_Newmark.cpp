// Newmark time stepping: numbering over the stiffness, mass and damping kinds, the
// effective matrix (1 + g a_M) M + g C + (g a_K + b) K factorised once (and again
// every K_update_period steps), then per step a predictor, one right-hand side at
// the predicted state, one solve for the acceleration and a corrector. The working
// U, V and A live in memory; the kept columns go to the output states, which may
// spill to disk under the context's budget.
#include "kelt/fem/solver_Newmark.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "kelt/core/internal_states.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/states.h"

namespace kelt::fem {

bool Newmark_settings::valid() const noexcept
{
    return std::isfinite(t_start) && std::isfinite(t_end) && t_end > t_start && std::isfinite(dt) && dt > 0.0 &&
           std::isfinite(beta) && beta >= 0.0 && std::isfinite(gamma) && gamma > 0.0 && output_period != 0;
}

} // namespace kelt::fem

namespace kelt::core {

using fem::solver_Newmark;

namespace {

// (t_end - t_start) / dt to the nearest integer, a half to the even one: the last
// step may end slightly before or after t_end. False when it does not fit a count.
bool step_count(const fem::Newmark_settings& s, unsigned& steps)
{
    const double x = (s.t_end - s.t_start) / s.dt;
    if (!(x < 4294967295.5)) return false;
    double r = std::floor(x);
    const double rest = x - r;
    if (rest > 0.5 || (rest == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    steps = unsigned(r);
    return true;
}

unsigned fields_of(unsigned output_fields) { return output_fields == 1024 ? 3u : output_fields == 512 ? 2u : 1u; }

// What the step loop holds: the working vectors over the free DOFs in solver
// order, the effective matrix, and the output group being filled.
struct Newmark_work {
    numerical_model_base* model = nullptr;
    numbering n;
    indexed_sym_matrix K;
    dense1D<double, 8> U, V, A, scratch;
    unsigned fields = 1;
    unsigned group = 0; // output j fills columns j f .. j f + 2
};

DOF_values_view view_of(const Newmark_work& w, const dense1D<double, 8>& v)
{
    DOF_values_view view;
    view.rows = w.n.free_IDs;
    view.values = v;
    return view;
}

// The effective matrix of the acceleration form at the current state, factorised.
bool factor_effective(run_state& run, const fem::Newmark_settings& s, Newmark_work& w, double t,
                      solver_Newmark::data_type& data)
{
    const double g = s.gamma * s.dt, b = s.beta * s.dt * s.dt;
    element_pass_type pass = make_pass(*run.problem, t);
    pass.U = view_of(w, w.U);
    if (run.stop_requested()) return false;
    bool ok = assemble_matrix(run, *w.model, kind_mass, pass, w.n, w.K, data.time_K_assembly, 1.0 + g * s.damping_M);
    pass.U = view_of(w, w.V);
    ok = ok && assemble_matrix(run, *w.model, kind_damping, pass, w.n, w.K, data.time_K_assembly, g, true);
    pass.U = view_of(w, w.U);
    const double k = g * s.damping_K + b;
    if (ok && k != 0.0) ok = assemble_matrix(run, *w.model, kind_stiffness, pass, w.n, w.K, data.time_K_assembly, k, true);
    if (!ok) return false;
    if (run.stop_requested()) return false;
    factor_report report;
    const bool factored = factorise(run, w.K.matrix, w.n, factor_options{}, report, data.time_factorization);
    if (report.bad_DOF != 0xFFFFFFFFu) data.bad_pivot_DOF = report.bad_DOF;
    log_matrix_statistics(run, w.K.matrix);
    return factored;
}

// R = F(t) - K (U + a_K V) - a_M M V - C V at the predicted state, into w.A.
bool assemble_rhs(run_state& run, const fem::Newmark_settings& s, Newmark_work& w, double t)
{
    const problem_data& problem = *run.problem;
    indexed_vector R;
    R.values = w.A;
    R.IDs = w.n.free_IDs;
    unsigned skipped = 0;
    // Every load case acts at once: the history is the sum of their loads in time.
    error_type e = assemble_loads(problem, *w.model, kind_stiffness, 0, t, view_of(w, w.U), R, skipped);
    for (unsigned i = 1; i < problem.nbr_load_cases() && e == no_error; ++i) {
        indexed_vector F;
        F.values = w.scratch;
        F.IDs = w.n.free_IDs;
        e = assemble_loads(problem, *w.model, kind_stiffness, i, t, view_of(w, w.U), F, skipped);
        for (unsigned r = 0; r < R.size() && e == no_error; ++r) R[r] += F[r];
    }
    element_pass_type pass = make_pass(problem, t);
    pass.U = view_of(w, w.U);
    if (e == no_error && s.damping_K != 0.0) {
        // The state of the stiffness pass is U + a_K V, in a vector of its own so
        // that U keeps its bits.
        for (unsigned r = 0; r < w.U.size(); ++r) w.scratch[r] = w.U[r] + s.damping_K * w.V[r];
        pass.U = view_of(w, w.scratch);
    }
    if (e == no_error) e = assemble_vector(*w.model, kind_stiffness, pass, R);
    pass.U = view_of(w, w.V);
    if (e == no_error && s.damping_M != 0.0) e = assemble_vector(*w.model, kind_mass, pass, R, s.damping_M);
    if (e == no_error) e = assemble_vector(*w.model, kind_damping, pass, R);
    if (e != no_error) KELT_RAISE(run, e, "FEM error.");
    return e == no_error;
}

// The working U, V, A into the columns of output group j, with their time.
bool write_group(run_state& run, Newmark_work& w, FEM_real_states& out, dense1D<double, 8>& times, double t)
{
    const dense1D<double, 8>* work[3] = {&w.U, &w.V, &w.A};
    for (unsigned k = 0; k < 3; ++k) {
        const unsigned c = w.group * w.fields + k;
        dense1D<double, 8> col = out.col(c);
        if (col.size() != w.U.size()) {
            KELT_RAISE(run, memory_error, "Memory error.");
            return false;
        }
        std::copy(work[k]->begin(), work[k]->end(), col.begin());
        times[c] = t;
    }
    return true;
}

// The internal states of the model and the thermal loads, with the group's columns.
void keep_states(const problem_data& problem, Newmark_work& w, FEM_real_states& out)
{
    Ptr<internal_states> store;
    if (w.model->has_internal_states()) {
        store = new internal_states;
        if (w.model->get_internal_states(*store) != no_error) store = nullptr;
    }
    stress_super_mgr* thermal = problem.stresses.empty() ? nullptr : problem.stresses[0].get();
    for (unsigned k = 0; k < 3; ++k) {
        (void)out.set_internal_state(w.group * w.fields + k, store.get());
        (void)out.set_stress_mgr(w.group * w.fields + k, thermal);
    }
}

void Newmark_run(run_state& run, const fem::Newmark_settings& s, solver_Newmark::data_type& data)
{
    Newmark_work w;
    w.model = take_problem(run, problem_of(data));
    if (!w.model || run.stop_requested()) return;
    const double start_time = wall_clock();
    run.log(0, "LINEAR NEWMARK RUN (KELT FEM 4.4.0.0)\n");

    // DOFs prescribed in every case are held: motions come through the loads.
    const prescribed_set prescribed = collect_prescribed(*run.problem);
    if (!number_DOFs(run, *w.model, {kind_stiffness, kind_mass, kind_damping}, prescribed.common, w.n,
                     data.time_numbering))
        return;
    if (w.n.K_bytes < 0xFFFFFFFFu)
        run.log(2, "Requested memory         : %10llu doubles (%.2f MB) \n", (unsigned long long)(w.n.K_bytes / 8),
                w.n.K_size_MB);
    else
        run.log(2, "Requested memory         : more than %.2f GB ! \n", 3.9999999990686774);
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);

    unsigned nbr_steps = 0;
    if (!step_count(s, nbr_steps)) {
        KELT_RAISE(run, invalid_data_error, "Solver error.");
        run.explain("The step count (t_end - t_start) / dt passes 4294967295.");
        return;
    }
    w.fields = fields_of(s.output_fields);
    const unsigned outputs = std::max(1u, nbr_steps / s.output_period + (nbr_steps % s.output_period != 0));
    const std::uint64_t cols = std::uint64_t(outputs - 1) * w.fields + 3, rows = w.n.size();
    const double states_MB = double(rows) * double(cols) * 8.0 * bytes_to_MB;
    run.log(2, "Requested memory RHS     : %10llu doubles (%.2f MB) \n", (unsigned long long)(rows * cols), states_MB);
    if (!run.check_memory(w.n.K_size_MB + states_MB, __FILE__, __LINE__)) return;

    // The output states: their columns under the budget, the working ones in memory.
    FEM_real_states& out = output_states(data.U);
    const unsigned ncols = cols > 0xFFFFFFFFu ? 0u : unsigned(cols);
    if (!ncols || !out.IDs->assign(w.n.free_IDs->IDs().data(), w.n.size()) ||
        !out.resize(unsigned(rows), ncols, 0.0, run.OOC()) || !data.times.resize(ncols, 0.0)) {
        out.clear();
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        return;
    }
    out.stress_mgrs.assign(ncols, nullptr);
    out.internal_states.assign(ncols, nullptr);
    if (!w.U.resize(w.n.size(), 0.0) || !w.V.resize(w.n.size(), 0.0) || !w.A.resize(w.n.size(), 0.0) ||
        !w.scratch.resize(w.n.size(), 0.0))
        throw std::bad_alloc();

    // The starting state, read by DOF: no initial equilibrium, A starts at 0.
    if (const FEM_real_states* start = input_states(data.U_start)) {
        const DOF_values_view u0 = state_view(start, 0), v0 = state_view(start, 1);
        for (unsigned r = 0; r < w.n.size(); ++r) {
            if (!u0.empty()) w.U[r] = u0.get(w.n.ID(r));
            if (!v0.empty()) w.V[r] = v0.get(w.n.ID(r));
        }
        if (start->cols() && !restore_internal_states(run, *w.model, start->internal_state(0))) return;
    }
    data.t = s.t_start;
    if (!write_group(run, w, out, data.times, s.t_start)) return;

    const double dt = s.dt, dt2 = dt * dt;
    bool completed = true; // the working vectors hold a finished step
    while (data.nbr_steps_done < nbr_steps && !run.stop_requested()) {
        const unsigned k = data.nbr_steps_done;
        if (k == 0 || (s.K_update_period && k % s.K_update_period == 0)) {
            if (!factor_effective(run, s, w, data.t, data)) break;
        }
        const unsigned n = k + 1;
        const double t = n * dt + s.t_start;
        if (n > 1 && (n - 1) % s.output_period == 0) {
            // The group closes with the state of its last step; the next starts from it.
            if (!write_group(run, w, out, data.times, data.t)) break;
            ++w.group;
            if (!write_group(run, w, out, data.times, data.t)) break;
        }
        if (n % s.output_period == 0)
            run.log(0, "** Time step #%d (t = %+E s), Output #%d\n", int(n), t, int(n / s.output_period));
        else
            run.log(0, "** Time step #%d (t = %+E s)\n", int(n), t);
        completed = false;
        {
            phase_timer timer(data.time_resolution);
            for (unsigned r = 0; r < w.U.size(); ++r) {
                w.U[r] += dt * w.V[r];
                w.U[r] += (0.5 - s.beta) * dt2 * w.A[r];
                w.V[r] += (1.0 - s.gamma) * dt * w.A[r];
            }
            if (run.stop_requested() || !assemble_rhs(run, s, w, t) || run.stop_requested()) break;
            double* column = w.A.data();
            double energy = 0.0;
            if (!solve_columns(run, w.K.matrix, &column, 1, &energy)) break;
            if (!std::isfinite(energy)) {
                KELT_RAISE(run, inf_nan_error, "INF or NaN detected.");
                break;
            }
            // A finite acceleration can still overflow the state: that step fails too.
            double sum = 0.0;
            for (unsigned r = 0; r < w.U.size(); ++r) {
                w.U[r] += s.beta * dt2 * w.A[r];
                w.V[r] += s.gamma * dt * w.A[r];
                sum += std::fabs(w.U[r]) + std::fabs(w.V[r]);
            }
            if (!std::isfinite(sum)) {
                KELT_RAISE(run, inf_nan_error, "INF or NaN detected.");
                break;
            }
        }
        data.nbr_steps_done = n;
        data.t = t;
        completed = true;
        if (s.K_update_period && n % s.K_update_period == 0) {
            element_pass_type pass = make_pass(*run.problem, t);
            pass.U = view_of(w, w.U);
            if (!commit_internal_states(run, *w.model, kind_stiffness, pass)) break;
        }
        if (n % s.output_period == 0) keep_states(*run.problem, w, out);
        bool stop = n == nbr_steps;
        if (s.iteration_hdl) s.iteration_hdl(s.user_data, t, n, w.group * w.fields, &stop);
        if (stop) break;
    }
    // A step cut short leaves its group as the group's last write had it.
    if (completed) (void)write_group(run, w, out, data.times, data.t);
    // The record ends with its first columns in core when the whole cannot be.
    (void)out.col_read(0);

    run.log(1, "Numerical assembly matrix K        : %10.2f s.\n", data.time_K_assembly);
    run.log(1, "Factorization matrix K             : %10.2f s.\n", data.time_factorization);
    run.log(1, "Resolution Newmark                 : %10.2f s.\n", data.time_resolution);
    run.log(1, "Steps                              : %10u \n", data.nbr_steps_done);
    run.log(1, "Final time                         : %+E \n", data.t);
    if (run.failed()) return;
    data.time_total = wall_clock() - start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_Newmark::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_Newmark: invalid settings.\n", "KELT solver_Newmark: invalid data.\n",
                    [&](core::run_state& run) { core::Newmark_run(run, settings, data); });
}

} // namespace kelt::fem
