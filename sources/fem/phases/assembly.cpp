#include "kelt/fem/phases/assembly.h"

#include <algorithm>

#include "kelt/core/load_pass.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/progress.h"

namespace kelt::core {

element_pass_type make_pass(const problem_data& problem, double time)
{
    element_pass_type pass;
    pass.pos = problem.pos;
    pass.time = time;
    pass.penalty_displacement = problem.penalty_displacement;
    pass.penalty_rotation = problem.penalty_rotation;
    return pass;
}

DOF_values_view state_view(const FEM_real_states* states, unsigned col)
{
    DOF_values_view v;
    if (states && col < states->cols()) (void)v.assign(*states, col);
    return v;
}

element_pass_type column_pass(const problem_data& problem, const FEM_real_states* states, unsigned col)
{
    element_pass_type pass = make_pass(problem);
    pass.U = state_view(states, col);
    pass.thermal = states ? states->stress_mgr(col) : nullptr;
    pass.has_thermal = pass.thermal != nullptr;
    return pass;
}

bool allocate_matrix(run_state& run, const numbering& n, indexed_sym_matrix& A)
{
    A.IDs = n.free_IDs;
    error_type e = A.matrix.create(n.profile, n.size(), 0.0, run.OOC());
    if (e == no_error && A.nbr_rows() != n.size()) e = memory_error;
    if (e != no_error) {
        A.matrix.clear();
        raise_allocation_error(run, e, __FILE__, __LINE__);
        return false;
    }
    return true;
}

bool assemble_matrix(run_state& run, numerical_model_base& model, pass_kind kind, element_pass_type pass,
                     const numbering& n, indexed_sym_matrix& A, double& timer, double factor, bool add)
{
    phase_timer t(timer);
    if (!add && !allocate_matrix(run, n, A)) return false;
    matrix_sym_assembler<indexed_sym_matrix> into(A, factor);
    pass.matrix = &into;
    phase_progress progress(run, "matrix assembly", double(model.nbr_elements()));
    pass.progress = progress.sink();
    error_type e = model.run_elements(kind, pass);
    if (e == no_error && A.matrix.proxy()) e = A.matrix.proxy()->flush_pending(false);
    if (e == interrupted_warning) return false; // the host asked to stop from its progress report
    if (e != no_error) KELT_RAISE(run, e, "Assembly error.");
    if (e == no_error) progress.finish();
    return e == no_error;
}

error_type assemble_vector(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                           indexed_vector& target, double factor, double* energy)
{
    vector_assembler<indexed_vector> into(target, factor);
    pass.matrix_mode = matrix_none;
    pass.vector = &into;
    const error_type e = model.run_elements(kind, pass);
    if (energy) *energy = pass.total_energy;
    return e;
}

bool assemble_split_matrix(run_state& run, numerical_model_base& model, pass_kind kind, element_pass_type pass,
                           const numbering& n, const vector_fast& masters, indexed_sym_matrix& A,
                           symmetric_full<double>& Kmm, std::vector<coupling_entry>& Kim,
                           std::vector<std::size_t>& Kim_start, double& timer)
{
    phase_timer t(timer);
    if (!allocate_matrix(run, n, A)) return false;
    Kmm = 0.0;
    Kim.clear();
    matrix_split_assembler into(A, masters, Kmm, Kim);
    pass.matrix = &into;
    error_type e = model.run_elements(kind, pass);
    if (e == no_error && A.matrix.proxy()) e = A.matrix.proxy()->flush_pending(false);
    if (e != no_error) {
        KELT_RAISE(run, e, "Assembly error.");
        return false;
    }
    // Stable: repeats are summed in element order.
    std::stable_sort(Kim.begin(), Kim.end(), [](const coupling_entry& a, const coupling_entry& b) {
        return a.master < b.master || (a.master == b.master && a.row < b.row);
    });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < Kim.size(); ++i)
        if (kept && Kim[kept - 1].master == Kim[i].master && Kim[kept - 1].row == Kim[i].row)
            Kim[kept - 1].value += Kim[i].value;
        else
            Kim[kept++] = Kim[i];
    Kim.resize(kept);
    Kim_start.assign(std::size_t(Kmm.order()) + 1, 0);
    for (const coupling_entry& c : Kim) ++Kim_start[c.master + 1];
    for (unsigned k = 0; k < Kmm.order(); ++k) Kim_start[k + 1] += Kim_start[k];
    return true;
}

bool assemble_tangent(run_state& run, numerical_model_base& model, pass_kind kind, element_pass_type pass,
                      const numbering& n, indexed_sym_matrix& A, indexed_vector& residual, double& energy,
                      double& timer)
{
    phase_timer t(timer);
    if (!allocate_matrix(run, n, A)) return false;
    matrix_sym_assembler<indexed_sym_matrix> into(A, 1.0);
    vector_assembler<indexed_vector> forces(residual, 1.0);
    pass.matrix = &into;
    pass.vector = &forces;
    pass.matrix_mode = matrix_tangent;
    error_type e = model.run_elements(kind, pass);
    energy = pass.total_energy;
    if (e == no_error && A.matrix.proxy()) e = A.matrix.proxy()->flush_pending(false);
    if (e != no_error) KELT_RAISE(run, e, "FEM error.");
    return e == no_error;
}

namespace {
// True when a case has thermal loads for some model.
bool has_thermal_loads(const stress_super_mgr* s) noexcept
{
    return s && std::any_of(s->thermal.begin(), s->thermal.end(), [](const auto& t) { return bool(t); });
}
} // namespace

error_type assemble_loads(const problem_data& problem, numerical_model_base& model, pass_kind thermal_kind,
                          unsigned i, double time, const DOF_values_view& state, indexed_vector& target,
                          unsigned& skipped, bool with_thermal)
{
    std::fill(target.values.begin(), target.values.end(), 0.0);
    element_pass_type pass = make_pass(problem, time);
    pass.U = state;
    // Sizes are read again at each case: a host may have changed the problem in a
    // callback, against the contract, and a case that is gone has no load.
    if (const loads_mgr* loads = i < problem.loads.size() ? problem.loads[i].get() : nullptr) {
        vector_assembler<indexed_vector> into(target, 1.0);
        load_pass_type lp(into, 1.0, time, i);
        lp.element_pass = &pass;
        lp.rows = target.IDs.get();
        const error_type e = loads->assemble(lp);
        skipped += lp.nbr_skipped;
        if (e != no_error) return e;
    }
    const stress_super_mgr* thermal = i < problem.stresses.size() ? problem.stresses[i].get() : nullptr;
    if (!with_thermal || !has_thermal_loads(thermal)) return no_error;
    pass.U.clear();
    pass.has_thermal = true;
    pass.thermal = thermal;
    return assemble_vector(model, thermal_kind, pass, target);
}

bool assemble_load_cases(run_state& run, numerical_model_base& model, pass_kind thermal_kind, double time,
                         const DOF_values_view& state, FEM_real_states& U, double& timer)
{
    {
        phase_timer t(timer);
        unsigned skipped = 0;
        for (unsigned i = 0; i < U.cols(); ++i) {
            if (run.stop_requested()) return false;
            indexed_vector target;
            target.values = U.col(i);
            target.IDs = U.IDs;
            if (target.values.size() != U.rows()) {
                KELT_RAISE(run, internal_error, "Assembly error.");
                break;
            }
            if (const error_type e = assemble_loads(*run.problem, model, thermal_kind, i, time, state, target, skipped);
                e != no_error) {
                KELT_RAISE(run, e, "Assembly error.");
                break;
            }
        }
        if (skipped) run.log(1, "Loads with no DOF or element      : %10u \n", skipped);
    }
    run.log(1, "Numerical assembly matrix RHS      : %10.2f s.\n", timer);
    return !run.failed() && !run.stop_requested();
}

error_type multiply_by_model(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                             const Ptr<vector_fast>& rows, const double* x, matrix_product_assembler::row_range x_rows,
                             double* y, matrix_product_assembler::row_range y_rows, double& energy)
{
    matrix_product_assembler product(*rows, x, x_rows, y, y_rows, -1.0);
    pass.U.rows = rows;
    pass.U.values = dense1D<double, 8>(rows->size(), const_cast<double*>(x));
    pass.matrix = &product;
    const error_type e = model.run_elements(kind, pass);
    energy = pass.total_energy;
    return e;
}

error_type multiply_at_state(numerical_model_base& model, pass_kind kind, element_pass_type pass,
                             const vector_fast& rows, const double* x, matrix_product_assembler::row_range x_rows,
                             double* y, matrix_product_assembler::row_range y_rows)
{
    matrix_product_assembler product(rows, x, x_rows, y, y_rows, -1.0);
    pass.matrix = &product;
    pass.vector = nullptr;
    pass.matrix_mode = matrix_tangent;
    return model.run_elements(kind, pass);
}

} // namespace kelt::core
