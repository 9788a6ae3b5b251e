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

template <class Source>
void element_work_type::share(const Source& s)
{
    pos = s.pos;
    U = s.U;
    U_ref = s.U_ref;
    element = s.element;
    factor = s.factor;
    time = s.time;
    parameters[0] = s.parameters[0];
    parameters[1] = s.parameters[1];
    with_transform = s.with_transform;
    commit = s.commit;
    penalty_displacement = s.penalty_displacement;
    penalty_rotation = s.penalty_rotation;
}

void element_work_type::start(const element_pass_type& pass, unsigned model_)
{
    share(pass);
    const bool no_matrix = !pass.matrix || pass.matrix->is_null();
    const bool no_vector = !pass.vector || pass.vector->is_null();
    matrix_mode = no_matrix ? matrix_none : pass.matrix_mode;
    vector_mode = no_vector ? 0 : 1;
    thermal = nullptr;
    model = model_;
}

std::unique_ptr<element_work_type> element_work_type::private_copy() const
{
    auto w = std::make_unique<element_work_type>();
    w->share(*this);
    w->matrix_mode = matrix_mode;
    w->vector_mode = vector_mode;
    w->thread_private = true;
    w->thermal = thermal;
    w->model = model;
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
    point_nodes.clear();
    point_shapes.clear();
}

} // namespace kelt::core
