// The engine of the nodal projections: nodes numbered as unknowns, M assembled
// and factorised once, then the right-hand sides of every state assembled side by
// side in the output and solved in blocks.
#include "kelt/fem/solver_least_squares.h"

#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/elements/physics.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/nodal_projection.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/states.h"
#include "kelt/fem/stress_helpers.h"

namespace kelt::core {

namespace {

numerical_model_base* nodal_model(const fem::nodal_record& data)
{
    problem_data* problem = problem_of(data);
    if (!problem) return nullptr;
    if (problem->context && problem->context->numerical_models_mgr)
        if (numerical_model_base* m = problem->context->numerical_models_mgr->get_NM(data.NM_ID)) return m;
    return problem->model();
}

void nodal_run(run_state& run, unsigned result, projected_field field, fem::nodal_record& data)
{
    problem_data* problem = problem_of(data);
    run.set_problem(problem, true);
    numerical_model_base* model = nodal_model(data);
    const FEM_real_states* U = input_states(data.U);
    if (!model || !U) return;
    unsigned code = 0;
    pass_kind kind = kind_none;
    model->get_result_field(result, code, kind);
    if (kind == kind_none) KELT_RAISE(run, element_type_error, "Model error.");
    // Plates and shells give two tensors a point: forces and moments.
    if (field.tensor && field.count == 6 && (code == physics_plate_code || code == physics_shell_code)) field.count = 12;
    if (run.stop_requested()) return;
    run.log(0, "NODAL STRESS RUN (KELT FEM 4.4.0.0)\n");
    const double start = wall_clock();

    numbering n;
    if (!number_nodes(run, *model, kind, n, data.time_numbering)) return;
    data.nbr_nodes = n.size();
    data.M_size_MB = n.K_size_MB;
    run.log(2, "Requested memory         : %10llu doubles (%.2f MB) \n", (unsigned long long)(n.K_bytes / 8),
            n.K_size_MB);
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);

    indexed_sym_matrix M;
    const bool assembled = assemble_nodal_matrix(run, *model, kind, result, make_pass(*problem), n, M,
                                                 data.time_M_assembly);
    run.log(1, "Numerical assembly matrix M        : %10.2f s.\n", data.time_M_assembly);
    if (!assembled) return;
    log_matrix_statistics(run, M.matrix);
    factor_report report;
    const bool factorised = factorise(run, M.matrix, n, factor_options(), report, data.time_factorization);
    data.pivot_min = report.pivot_min;
    data.pivot_max = report.pivot_max;
    data.bad_pivot_ID = report.bad_DOF;
    run.log(1, "Factorization matrix M             : %10.2f s.\n", data.time_factorization);
    if (!factorised) return;
    log_matrix_statistics(run, M.matrix);

    const unsigned states = U->cols(), columns = field.count * states;
    dense1D<unsigned, 8> nodes;
    if (!nodes.resize(n.size())) throw std::bad_alloc();
    for (unsigned r = 0; r < n.size(); ++r) nodes[r] = node_of(n.ID(r));
    FEM_real* values = output_matrix(data.values, nodes, columns);
    if (!values) return KELT_RAISE(run, memory_error, "Matrix allocation error.");
    data.nbr_components = field.count;
    const unsigned long long doubles = (unsigned long long)n.size() * columns;
    data.RHS_size_MB = double(doubles) * 8.0 * bytes_to_MB;
    run.log(2, "Requested memory RHS     : %10llu doubles (%.2f MB) \n", doubles, data.RHS_size_MB);
    if (!run.check_memory(data.M_size_MB + data.RHS_size_MB, __FILE__, __LINE__) || run.stop_requested()) return;

    {
        phase_timer t(data.time_resolution);
        for (unsigned s = 0; s < states; ++s) {
            if (run.stop_requested()) return;
            if (!load_column_states(run, *model, U, s)) return;
            element_pass_type pass = column_pass(*problem, U, s);
            if (auto e = assemble_nodal_rhs(*model, kind, result, pass, n, field, *values, s * field.count);
                e != no_error)
                return KELT_RAISE(run, e, "Assembly error.");
        }
        std::vector<double*> cols(columns);
        for (unsigned j = 0; j < columns; ++j) cols[j] = values->col(j).data();
        std::vector<double> energies(columns);
        if (!solve_columns(run, M.matrix, cols.data(), columns, energies.data())) return;
    }
    run.log(1, "Resolution RHS                     : %10.2f s.\n", data.time_resolution);
    data.time_total = wall_clock() - start;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

namespace {
constexpr const char* invalid_settings_text = "KELT solver_stress_nodal: invalid settings.\n";
constexpr const char* invalid_data_text = "KELT solver_stress_nodal: invalid data.\n";

bool is_tensor_result(unsigned result) { return result == core::result_strain || result == core::result_stress; }
} // namespace

bool nodal_record::valid() const
{
    const auto* U = core::input_states(this->U);
    return core::nodal_model(*this) && U && U->cols() != 0;
}

error_type nodal_record::tensor(unsigned node, unsigned state, field_tag f, symmetric_fixed<double, 3>& s) const
{
    s = {};
    unsigned first = 0;
    // 16 and 32 name the same two tensors as 8 and 24 without being fields of a node.
    switch (unsigned(f)) {
    case 8: case 16: first = 0; break;
    case 24: case 32: first = 6; break;
    default: return invalid_data_error;
    }
    const unsigned row = values.row_pos(node);
    if (row == 0xFFFFFFFFu || nbr_components == 0 || values.cols() < (state + 1) * nbr_components)
        return element_index_error;
    if (nbr_components < first + 6) return no_error;
    for (unsigned k = 0; k < 6; ++k)
        if (auto e = values.get_val(row, state * nbr_components + first + k, s[k]); e != no_error) return e;
    return no_error;
}

error_type nodal_record::tensor_val(unsigned node, unsigned state, field_tag f, const vector_fixed<double, 3>& n,
                                    double& value) const
{
    value = 0.0;
    symmetric_fixed<double, 3> s;
    if (auto e = tensor(node, state, f, s); e != no_error) return e;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) value += n[i] * s(i, j) * n[j];
    return no_error;
}

namespace {
// out: one row per node of `values`, `cols` columns, each from the node's tensor.
template <class Fill>
error_type per_node(const FEM_matrix& values, unsigned cols, FEM_matrix& out, const Fill& fill)
{
    const dense1D<unsigned, 8> nodes = values.get_IDs();
    out = FEM_matrix(nodes, cols);
    if (out.rows() != nodes.size()) return memory_error;
    for (unsigned r = 0; r < nodes.size(); ++r)
        if (auto e = fill(r, nodes[r]); e != no_error) return e;
    return no_error;
}
} // namespace

error_type nodal_record::Von_Mises(unsigned state, FEM_matrix& out) const
{
    return per_node(values, 1, out, [&](unsigned r, unsigned node) {
        symmetric_fixed<double, 3> s;
        if (auto e = tensor(node, state, displacement_tag, s); e != no_error) return e;
        return out.set_val(r, 0, compute_Von_Mises_stress(s));
    });
}

error_type nodal_record::principal(unsigned state, bool second, FEM_matrix& out) const
{
    return per_node(values, 3, out, [&](unsigned r, unsigned node) {
        symmetric_fixed<double, 3> s;
        if (auto e = tensor(node, state, second ? rotation_tag : displacement_tag, s); e != no_error) return e;
        vector_fixed<double, 3> v;
        matrix_fixed<double, 3, 3> axes;
        eigen_pairs(s, v, axes);
        for (unsigned k = 0; k < 3; ++k)
            if (auto e = out.set_val(r, k, v[k]); e != no_error) return e;
        return no_error;
    });
}

error_type solver_least_squares::data_type::get_vector(unsigned node, unsigned state, vector_fixed<double, 3>& v) const
{
    v = {};
    const unsigned row = values.row_pos(node);
    if (row == 0xFFFFFFFFu || nbr_components == 0 || values.cols() < (state + 1) * nbr_components)
        return element_index_error;
    for (unsigned k = 0; k < 3 && k < nbr_components; ++k)
        if (auto e = values.get_val(row, state * nbr_components + k, v[k]); e != no_error) return e;
    return no_error;
}

void solver_stress_nodal::run(data_type& data) const
{
    const unsigned result = settings.result == 1   ? core::result_strain
                            : settings.result == 2 ? core::result_stress
                                                   : settings.result;
    const core::projected_field field{6, is_tensor_result(result), result == core::result_strain};
    core::run_frame(settings, data, invalid_settings_text, invalid_data_text,
                    [&](core::run_state& run) { core::nodal_run(run, result, field, data); });
}

void solver_least_squares::run(data_type& data) const
{
    const unsigned result = settings.result;
    const core::projected_field field{settings.nbr_components,
                                      (settings.nbr_components == 6 || settings.nbr_components == 12) &&
                                          is_tensor_result(result),
                                      result == core::result_strain};
    core::run_frame(settings, data, invalid_settings_text, invalid_data_text,
                    [&](core::run_state& run) { core::nodal_run(run, result, field, data); });
}

} // namespace kelt::fem
