// Steady conduction, as a run of the static phases: the right-hand sides come
// before the request for K, the matrix is a conduction one, always factorised
// under the stopping policy, and the report speaks of temperatures.
#include "kelt/fem/solver_thermal_static_linear.h"

#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/core/DOFs_mgr.h"
#include "kelt/fem/phases/report.h"
#include "kelt/fem/phases/static_resolution.h"

namespace kelt::core {

using fem::solver_thermal_static_linear;

namespace {

void thermal_static_linear_run(run_state& run, const solver_thermal_static_linear::settings_type& settings,
                               solver_thermal_static_linear::data_type& data)
{
    const static_run r = begin_static_run(run, settings, data, "THERMAL STATIC LINEAR RUN (KELT FEM 4.4.0.0) (%d RHS)\n");
    if (!r.model) return;
    numerical_model_base& model = *r.model;
    FEM_real_states& U = *r.U;

    static_setup s;
    if (!set_up_static(run, model, kind_conduction, settings.RHS_only, U, s, data, data.time_numbering)) return;
    log_states_request(run, (unsigned long long)U.rows() * U.cols(), data.RHS_size_MB);
    if (run.stop_requested()) return;

    // Heat loads first; the request for K is told once they are known to be right.
    if (!assemble_static_loads(run, model, kind_thermal_load, r.start, U, data.time_RHS_assembly)) return;
    log_K_request(run, s.n);
    if (!data.energies.resize(U.cols(), 0.0)) throw std::bad_alloc();

    if (!settings.RHS_only &&
        !solve_static(run, model, kind_conduction, s, state_view(r.start, 0), factor_options{},
                      {settings.CG_max_iters, settings.CG_tolerance}, U, data, data))
        return;
    data.uses_disk = uses_disk(run);

    for (unsigned i = 0; i < U.cols(); ++i) {
        const dense1D<double, 8> col = U.col_read(i);
        run.log(2, "%3d ||dTH||              : %+E \n", int(i), two_norm(col));
        // Places 7 and 8 carry no field and read as temperature.
        log_field_extremes(run, i, "temperature", col, *U.IDs, place_temperature, DOFs_mgr::nbr_places - 1);
    }
    data.time_total = wall_clock() - r.start_time;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_thermal_static_linear::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT solver_thermal_static_linear: invalid data.\n",
                    [&](core::run_state& run) { core::thermal_static_linear_run(run, settings, data); });
}

} // namespace kelt::fem
