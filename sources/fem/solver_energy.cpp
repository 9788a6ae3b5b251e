// Strain energies: one pass of the stiffness kind and one of the conduction kind
// per state, with no assembler, whose element energies land at the rows of their
// global element numbers.
#include "kelt/fem/solver_energy.h"

#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/states.h"

namespace kelt::core {

using fem::solver_energy;

namespace {

// The global numbers of every element of the model, model after model.
dense1D<unsigned, 8> global_elements(numerical_model_base& model)
{
    std::vector<Ptr<numerical_model_base>> leaves;
    model.collect_models(leaves);
    dense1D<unsigned, 8> IDs;
    const numerical_models_mgr* mgr = model.context ? model.context->numerical_models_mgr.get() : nullptr;
    if (!mgr) return IDs;
    for (const auto& m : leaves) {
        const auto [first, end] = mgr->global_FE_ID_range(m->ID);
        if (first == numerical_models_mgr::none) continue;
        if (!IDs.reserve(IDs.size() + (end - first), 2)) throw std::bad_alloc();
        for (unsigned g = first; g < end; ++g) IDs.push_back(g);
    }
    return IDs;
}

void energy_run(run_state& run, const solver_energy::settings_type& settings, solver_energy::data_type& data)
{
    problem_data* problem = problem_of(data);
    const double start = wall_clock();
    run.set_problem(problem, true);
    numerical_model_base* model = problem->model();
    const FEM_real_states* U = input_states(data.U);
    if (!model || !U || U->cols() == 0 || run.stop_requested()) return;
    const bool all = settings.column == solver_energy::all_columns;
    if (!all && settings.column >= U->cols()) return KELT_RAISE(run, invalid_data_error, "FEM error.");
    const unsigned first = all ? 0 : settings.column, count = all ? U->cols() : 1;
    FEM_real* E = output_matrix(data.element_energies, global_elements(*model), count);
    if (!E || !data.energies.resize(count, 0.0)) return KELT_RAISE(run, memory_error, "Matrix allocation error.");
    for (unsigned j = 0; j < count; ++j) {
        if (run.stop_requested()) return;
        dense1D<double, 8> column = E->col(j);
        if (column.size() != E->rows()) return KELT_RAISE(run, memory_error, "Matrix allocation error.");
        if (!load_column_states(run, *model, U, first + j)) return;
        element_pass_type pass = column_pass(*problem, U, first + j);
        pass.matrix_mode = matrix_none;
        pass.element_energies = &column;
        pass.energy_map = E->IDs.get();
        // A model answers its own kind alone: solids the stiffness, conductors the
        // conduction, whose energy is T.K.T / 2 as the thermal solver reports it.
        for (pass_kind kind : {kind_stiffness, kind_conduction})
            if (auto e = model->run_elements(kind, pass); e != no_error) return KELT_RAISE(run, e, "Assembly error.");
        data.energies[j] = pass.total_energy;
    }
    data.time_total = wall_clock() - start;
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_energy::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT fem::solver_energy: invalid data.\n",
                    [&](core::run_state& run) { core::energy_run(run, settings, data); });
}

} // namespace kelt::fem
