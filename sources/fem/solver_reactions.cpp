// Reactions: per state, the loads of its case and the element vectors (the
// opposite of the internal forces) summed on every DOF of the model, sign turned.
#include "kelt/fem/solver_reactions.h"

#include <algorithm>

#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/states.h"

namespace kelt::core {

using fem::solver_reactions;

namespace {

void reactions_run(run_state& run, solver_reactions::data_type& data)
{
    problem_data* problem = problem_of(data);
    const FEM_real_states* U = input_states(data.U);
    if (!problem || problem->nbr_load_cases() == 0 || !U || U->cols() == 0) return;
    const double start = wall_clock();
    run.set_problem(problem, true);
    numerical_model_base* model = problem->model();
    if (!model || run.stop_requested()) return;
    // A conduction model's reactions are the heat flows at the held temperatures.
    const pass_kind kind = model->handles_field_family(kind_stiffness) ? kind_stiffness : kind_conduction;
    dense1D<unsigned, 8> IDs;
    if (auto e = model->get_model_DOFs(kind, problem->pos, all_fields, IDs); e != no_error)
        return KELT_RAISE(run, e, "Model error.");
    FEM_real* R = output_matrix(data.reactions, IDs, U->cols());
    if (!R) return KELT_RAISE(run, memory_error, "Matrix allocation error.");
    data.nbr_columns = R->cols();
    for (unsigned j = 0; j < U->cols(); ++j) {
        if (run.stop_requested()) return;
        indexed_vector target;
        target.values = R->col(j);
        target.IDs = R->IDs;
        if (target.values.size() != R->rows()) return KELT_RAISE(run, memory_error, "Matrix allocation error.");
        if (!load_column_states(run, *model, U, j)) return;
        const DOF_values_view state = state_view(U, j);
        unsigned skipped = 0;
        // A solid's thermal loads enter as strains of its internal forces, as in
        // the solve of a non-linear state.
        const bool as_strain = kind == kind_stiffness;
        error_type e = j < problem->nbr_load_cases()
                           ? assemble_loads(*problem, *model, kind, j, 0.0, state, target, skipped, !as_strain)
                           : no_error;
        element_pass_type pass = column_pass(*problem, U, j);
        if (!as_strain) pass.has_thermal = false, pass.thermal = nullptr;
        if (e == no_error) e = assemble_vector(*model, kind, pass, target);
        if (e != no_error) return KELT_RAISE(run, e, "Assembly error.");
        for (double& v : target.values) v = -v;
    }
    data.time_total = wall_clock() - start;
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_reactions::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT fem::solver_reactions: invalid data.\n",
                    [&](core::run_state& run) { core::reactions_run(run, data); });
}

} // namespace kelt::fem
