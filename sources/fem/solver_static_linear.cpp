// Linear statics, as a run of shared phases: the prescribed DOFs of every case and
// their intersection, numbering, memory, the right-hand sides before the matrix (a
// mistake in the loads ends a run before the expensive part), K and its factor,
// then the resolution of all cases and the report.
#include "kelt/fem/solver_static_linear.h"

#include <algorithm>

#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/report.h"
#include "kelt/fem/phases/static_resolution.h"
#include "kelt/fem/phases/states.h"

namespace kelt::core {

using fem::solver_static_linear;

namespace {

void static_linear_run(run_state& run, const solver_static_linear::settings_type& settings,
                       solver_static_linear::data_type& data)
{
    numerical_model_base* model = take_problem(run, problem_of(data));
    if (!model) return;
    const problem_data& problem = *run.problem;
    const unsigned cases = problem.nbr_load_cases();
    FEM_real_states& U = output_states(data.U);
    const FEM_real_states* U_start = input_states(data.U_start);
    if (settings.iteration_hdl)
        run.on_iteration = [&](unsigned k, double r) { settings.iteration_hdl(run.user_data, run.current_case, k, r); };

    run.log(0, "STATIC LINEAR RUN (KELT FEM 4.4.0.0) (%d RHS)\n", int(cases));
    const double start = wall_clock();

    // Numbering: DOFs prescribed in every case leave K, the others stay in it.
    const prescribed_set prescribed = collect_prescribed(problem);
    numbering n;
    if (!number_DOFs(run, *model, kind_stiffness, prescribed.common, settings.RHS_only, n, data.time_numbering))
        return;
    prescribed_layout layout;
    if (size_static_states(run, U, n, prescribed, cases, layout)) {
        data.RHS_size_MB = double(U.rows()) * double(U.cols()) * 8.0 * bytes_to_MB;
        data.K_size_MB = n.K_size_MB;
        data.total_size_MB += data.K_size_MB + data.RHS_size_MB;
        (void)run.check_memory(data.total_size_MB, __FILE__, __LINE__);
    }
    data.nbr_free_DOFs = n.size();
    data.nbr_rows = U.rows();
    data.nbr_prescribed_out_K = U.rows() - std::min(U.rows(), n.size());
    data.nbr_prescribed_in_K = layout.nbr_in_K;
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);
    log_K_request(run, n);
    log_states_request(run, (unsigned long long)U.rows() * U.cols(), data.RHS_size_MB);
    if (run.stop_requested()) return;

    // Right-hand sides, with the thermal loads of each case.
    for (unsigned i = 0; i < U.cols() && i < problem.stresses.size(); ++i)
        (void)U.set_stress_mgr(i, problem.stresses[i].get());
    if (U_start && U_start->cols() && !restore_internal_states(run, *model, U_start->internal_state(0))) return;
    if (!assemble_load_cases(run, *model, kind_stiffness, 0.0, state_view(U_start, 0), U, data.time_RHS_assembly))
        return;
    if (!check_finite(run, U, __FILE__, __LINE__)) return;
    for (unsigned i = 0; i < U.cols(); ++i) run.log(2, "%3d ||F||                : %+E \n", int(i), two_norm(U.col_read(i)));
    data.energies.clear();
    if (!data.energies.resize(cases, 0.0)) throw std::bad_alloc();

    if (!settings.RHS_only) {
        // The gradient multiplies by K as assembled: K then keeps its values and a
        // copy is factorised.
        indexed_sym_matrix K, copy;
        element_pass_type pass = make_pass(problem);
        pass.U = state_view(U_start, 0);
        if (run.stop_requested()) return;
        const bool assembled = assemble_matrix(run, *model, kind_stiffness, pass, n, K, data.time_K_assembly);
        run.log(1, "Numerical assembly matrix K        : %10.2f s.\n", data.time_K_assembly);
        if (!assembled) return;
        log_matrix_statistics(run, K.matrix);
        const bool keep_K = layout.nbr_in_K > 0;
        if (keep_K && !copy_for_factor(run, K, n, copy)) return;
        indexed_sym_matrix& F = keep_K ? copy : K;
        factor_options options;
        options.policy = settings.force_pivots ? pivot_policy::force_positive : pivot_policy::check_positive;
        if (!factorise_static(run, F, n, options, data, data.time_factorization)) return;
        data.uses_disk = uses_disk(run);

        if (run.stop_requested()) return;
        {
            phase_timer t(data.time_resolution);
            const static_system system{*model, kind_stiffness, n, prescribed, layout, U, K, F};
            solve_static_cases(run, system, {settings.CG_max_iters, settings.CG_tolerance}, data.energies);
        }
        run.log(1, "Resolution RHS                     : %10.2f s.\n", data.time_resolution);
        if (!run.going() || !check_finite(run, U, __FILE__, __LINE__)) return;
    }
    data.uses_disk = uses_disk(run);

    for (unsigned i = 0; i < U.cols(); ++i) {
        const dense1D<double, 8> col = U.col_read(i);
        double lo = 0.0, hi = 0.0;
        run.log(2, "%3d ||du||               : %+E \n", int(i), two_norm(col));
        field_range(col, *U.IDs, 0, 2, lo, hi);
        run.log(2, "%3d max displacement     : %+E \n", int(i), hi);
        run.log(2, "%3d min displacement     : %+E \n", int(i), lo);
        field_range(col, *U.IDs, 3, 5, lo, hi);
        run.log(2, "%3d max rotation         : %+E \n", int(i), hi);
        run.log(2, "%3d min rotation         : %+E \n", int(i), lo);
        run.log(2, "%3d elastic energy       : %+E \n", int(i), data.energies[i]);
    }
    data.time_total = wall_clock() - start;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_static_linear::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT solver_static_linear: invalid data.\n",
                    [&](core::run_state& run) { core::static_linear_run(run, settings, data); });
}

} // namespace kelt::fem
