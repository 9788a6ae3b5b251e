// Linear statics, as a run of shared phases: the prescribed DOFs of every case and
// their intersection, numbering, memory, the right-hand sides before the matrix (a
// mistake in the loads ends a run before the expensive part), K and its factor,
// then the resolution of all cases and the report.
#include "kelt/fem/solver_static_linear.h"

#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/estimate.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/core/DOFs_mgr.h"
#include "kelt/fem/phases/report.h"
#include "kelt/fem/phases/static_resolution.h"

namespace kelt::core {

using fem::solver_static_linear;

namespace {

void static_linear_run(run_state& run, const solver_static_linear::settings_type& settings,
                       solver_static_linear::data_type& data)
{
    const static_run r = begin_static_run(run, settings, data, "STATIC LINEAR RUN (KELT FEM 4.4.0.0) (%d RHS)\n");
    if (!r.model) return;
    numerical_model_base& model = *r.model;
    FEM_real_states& U = *r.U;

    // DOFs prescribed in every case leave K, the others stay in it.
    static_setup s;
    if (!set_up_static(run, model, kind_stiffness, settings.RHS_only, U, s, data, data.time_numbering)) return;
    log_K_request(run, s.n);
    log_states_request(run, (unsigned long long)U.rows() * U.cols(), data.RHS_size_MB);
    if (run.stop_requested()) return;

    if (!assemble_static_loads(run, model, kind_stiffness, r.start, U, data.time_RHS_assembly)) return;
    if (!data.energies.resize(U.cols(), 0.0)) throw std::bad_alloc();

    if (!settings.RHS_only) {
        factor_options options;
        options.policy = settings.force_pivots ? pivot_policy::force_positive : pivot_policy::check_positive;
        if (!solve_static(run, model, kind_stiffness, s, state_view(r.start, 0), options,
                          {settings.CG_max_iters, settings.CG_tolerance}, U, data, data))
            return;
    }
    data.uses_disk = uses_disk(run);

    for (unsigned i = 0; i < U.cols(); ++i) {
        const dense1D<double, 8> col = U.col_read(i);
        run.log(2, "%3d ||du||               : %+E \n", int(i), two_norm(col));
        log_field_extremes(run, i, "displacement", col, *U.IDs, place_x, place_z);
        log_field_extremes(run, i, "rotation", col, *U.IDs, place_rx, place_rz);
        run.log(2, "%3d elastic energy       : %+E \n", int(i), data.energies[i]);
    }
    data.time_total = wall_clock() - r.start_time;
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

namespace kelt::fem {

error_type solver_static_linear::estimate(const data_type& data, run_estimate& out) const
{
    out = run_estimate();
    core::problem_data* problem = core::problem_of(data);
    if (!problem) return invalid_data_error;
    try {
        return core::estimate_static_run(*problem, out);
    } catch (const std::bad_alloc&) {
        return memory_error;
    } catch (...) {
        return internal_error;
    }
}

} // namespace kelt::fem
