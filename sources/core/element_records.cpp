// Filling the element records from a pass, and the private copies of the threads.
#include "kelt/core/element_records.h"

namespace kelt::core {

bool DOF_values_view::assign(const FEM_real& m, unsigned col)
{
    clear();
    if (col >= m.cols()) return false;
    const dense1D<double, 8> c = m.col_read(col);
    if (c.size() != m.rows()) return false;
    rows = m.IDs;
    values = c;
    return true;
}

void element_work_type::start(const element_pass_type& pass, unsigned kind_, unsigned model_)
{
    pos = pass.pos;
    U = pass.U;
    U_ref = pass.U_ref;
    element = pass.element;
    factor = pass.factor;
    time = pass.time;
    parameters[0] = pass.parameters[0];
    parameters[1] = pass.parameters[1];
    with_transform = pass.with_transform;
    commit = pass.commit;
    const bool no_matrix = !pass.matrix || pass.matrix->is_null();
    const bool no_vector = !pass.vector || pass.vector->is_null();
    matrix_mode = no_matrix ? matrix_none : pass.matrix_mode;
    vector_mode = no_vector ? 0 : 1;
    thermal = nullptr;
    kind = kind_;
    model = model_;
    penalty_displacement = pass.penalty_displacement;
    penalty_rotation = pass.penalty_rotation;
}

std::unique_ptr<element_work_type> element_work_type::private_copy() const
{
    auto w = std::make_unique<element_work_type>();
    w->pos = pos;
    w->U = U;
    w->U_ref = U_ref;
    w->element = element;
    w->factor = factor;
    w->time = time;
    w->parameters[0] = parameters[0];
    w->parameters[1] = parameters[1];
    w->with_transform = with_transform;
    w->commit = commit;
    w->matrix_mode = matrix_mode;
    w->vector_mode = vector_mode;
    w->thread_private = true;
    w->thermal = thermal;
    w->kind = kind;
    w->model = model;
    w->penalty_displacement = penalty_displacement;
    w->penalty_rotation = penalty_rotation;
    return w;
}

void element_work_type::clear_outputs()
{
    weights.clear();
    Ke.clear();
    Kdiag.clear();
    Kblocks.clear();
    Kgen.clear();
    Fe.clear();
    energy = 0.0;
    for (double& s : sums4) s = 0.0;
    for (double& s : sums6) s = 0.0;
    state_out.clear();
    committed_states = nullptr;
    trial_states = nullptr;
    states_per_point = 0;
    results.clear();
    point_IDs.clear();
}

} // namespace kelt::core
