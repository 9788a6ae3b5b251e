// One element through the model's own operations: the element routine of a pass
// kind on a work record of its own, then its point results.
#include "kelt/fem/elementary_server.h"

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"

namespace kelt::core {

using fem::elementary_server;

namespace {

// Point results of one kind into `out`, their points' identifiers and weights.
error_type point_results(const numerical_model_base& model, unsigned result, const element_pass_type& pass,
                         unsigned element, elementary_server::data_type& data, dense2D<double>& out)
{
    element_work_type w;
    w.start(pass, model.ID);
    w.element = element;
    if (auto e = model.compute_element_results(kind_stiffness, result, w); e != no_error) return e;
    out = w.results;
    data.point_IDs = w.point_IDs;
    data.weights = w.weights;
    return no_error;
}

void elementary_run(run_state& run, const elementary_server::settings_type& settings,
                    elementary_server::data_type& data, bool results)
{
    problem_data* problem = problem_of(data);
    const double start = wall_clock();
    run.set_problem(problem, true);
    numerical_model_base* model = nullptr;
    if (problem->context && problem->context->numerical_models_mgr)
        model = problem->context->numerical_models_mgr->get_NM(data.NM_ID);
    if (!model) model = problem->model();
    if (!model || run.stop_requested()) return;
    const FEM_real_states* U = input_states(data.U);
    element_pass_type pass = column_pass(*problem, U, data.state);
    pass.factor = settings.factor;
    pass.element = data.element;
    element_work_type w;
    w.start(pass, model->ID);
    w.element = data.element;
    w.matrix_mode = matrix_mode_type(settings.matrix_mode);
    w.vector_mode = 1;
    if (settings.kind < kind_stiffness || settings.kind > kind_thermal_load)
        return KELT_RAISE(run, invalid_data_error, "FEM error.");
    if (auto e = model->compute_element(pass_kind(settings.kind), w); e != no_error)
        return KELT_RAISE(run, e, "FEM error.");
    data.K = w.Ke;
    data.F = w.Fe;
    data.energy = w.energy;
    data.IDs = w.DOFs;
    data.Kgen = w.Kgen;
    if (results && settings.kind == kind_stiffness) {
        error_type e = point_results(*model, result_strain, pass, data.element, data, data.strains);
        if (e == no_error) e = point_results(*model, result_stress, pass, data.element, data, data.stresses);
        if (e != no_error) return KELT_RAISE(run, e, "FEM error.");
    }
    data.time_total = wall_clock() - start;
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void elementary_server::run(data_type& data, bool results) const
{
    core::run_frame(settings, data, nullptr, "KELT elementary_server: invalid data.\n",
                    [&](core::run_state& run) { core::elementary_run(run, settings, data, results); });
}

} // namespace kelt::fem
