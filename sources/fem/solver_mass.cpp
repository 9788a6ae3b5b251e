// The mass of a model, from its assembled mass matrix on the rows of one
// translation, or from the sums that its elements give: mass, first moments and
// the inertia tensor about the origin, then moved to the centre of gravity.
#include "kelt/fem/solver_mass.h"

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/engine/assemblers.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"

namespace kelt::core {

using fem::solver_mass;

namespace {

// The translation DOFs of one place, or of all three.
struct translation_selector {
    unsigned place = 3; // 3: all three
    bool selects(unsigned ID) const noexcept { return place > 2 ? ID % 9 < 3 : ID % 9 == place; }
};

void mass_run(run_state& run, const solver_mass::settings_type& settings, solver_mass::data_type& data)
{
    problem_data* problem = problem_of(data);
    run.set_problem(problem, true);
    if (run.stop_requested()) return;
    run.log(0, "MASS RUN (KELT FEM 4.4.0.0)\n");
    const double start = wall_clock();
    numerical_model_base* model = nullptr;
    if (problem->context && problem->context->numerical_models_mgr)
        model = problem->context->numerical_models_mgr->get_NM(data.NM_ID);
    if (!model) model = problem->model();
    if (!model) return;
    element_pass_type pass = make_pass(*problem);
    error_type e = no_error;
    if (settings.mode <= 3) {
        const translation_selector selector{settings.mode == 0 ? 3u : settings.mode - 1};
        matrix_sym_assembler_projection<translation_selector> sum(selector);
        pass.matrix = &sum;
        e = model->run_elements(kind_mass, pass);
        // uᵀ M u with u = 1 on every translation counts the mass once a direction.
        data.total_mass = settings.mode == 0 ? sum.sum / 3.0 : sum.sum;
    } else {
        pass.matrix_mode = matrix_none;
        e = model->run_elements(kind_mass, pass);
        data.total_mass = pass.sums4[0];
        for (unsigned i = 0; i < 3; ++i) data.first_moments[i] = pass.sums4[1 + i];
        for (unsigned k = 0; k < 6; ++k) data.inertia_origin[k] = pass.sums6[k];
    }
    if (e != no_error) return KELT_RAISE(run, e, "Assembly error");
    if (data.total_mass > 0.0) {
        const double m = data.total_mass;
        vector_fixed<double, 3>& c = data.center;
        for (unsigned i = 0; i < 3; ++i) c[i] = data.first_moments[i] / m;
        // Parallel axes: I_G = I_O - m (|c|² I - c cᵀ).
        const double c2 = c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i <= j; ++i)
                data.inertia(i, j) = data.inertia_origin(i, j) - m * ((i == j ? c2 : 0.0) - c[i] * c[j]);
    } else if (data.total_mass < 0.0) {
        return KELT_RAISE(run, invalid_data_error, "Negative mass.");
    }
    run.log(0, "Total mass                         : %+E \n", data.total_mass);
    data.time_total = wall_clock() - start;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_mass::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT solver_mass: invalid data.\n",
                    [&](core::run_state& run) { core::mass_run(run, settings, data); });
}

} // namespace kelt::fem
