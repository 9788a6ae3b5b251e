#include "kelt/core/problem_data.h"

#include <algorithm>
#include <new>

#include "kelt/core/context.h"

namespace kelt::core {

problem_data::problem_data(context_type* context_) : context(context_), DOFs(new DOFs_mgr) {}

problem_data::~problem_data() = default;

void problem_data::set_pos_matrix(dense2D<double>& host_pos)
{
    if (DOFs && host_pos.cols() > DOFs->nbr_nodes()) DOFs->resize(host_pos.cols(), false);
    if (host_pos.rows() != 3) (void)host_pos.resize(3, host_pos.cols(), 0.0);
    pos = host_pos;
}

error_type problem_data::make_load_cases(unsigned n)
{
    try {
        std::vector<Ptr<loads_mgr>> new_loads;
        std::vector<Ptr<stress_super_mgr>> new_stresses;
        new_loads.reserve(n);
        new_stresses.reserve(n);
        for (unsigned i = 0; i < n; ++i) {
            new_loads.emplace_back(new loads_mgr(context));
            new_stresses.emplace_back(new stress_super_mgr(context));
        }
        loads.swap(new_loads);
        stresses.swap(new_stresses);
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

error_type problem_data::init(dense2D<double>& host_pos, DOFs_mgr* table, unsigned NM_ID_, unsigned n)
{
    NM_ID = no_model;
    pos.clear();
    // A table of our own, emptied: the former one may be shared with other problems.
    DOFs = new DOFs_mgr;
    loads.clear();
    stresses.clear();
    if (!context) return invalid_data_error;
    NM_ID = NM_ID_;
    if (table) DOFs = table;
    set_pos_matrix(host_pos);
    return make_load_cases(n);
}

numerical_model_base* problem_data::model() const noexcept
{
    return context ? context->numerical_models_mgr->get_NM(NM_ID) : nullptr;
}

double problem_data::get_penalty_factor(field_tag tag) const
{
    if (!context) return 1.0;
    Ptr<numerical_model_base> m = model();
    const double raw = m ? m->get_stiffness_scale(tag) * context->raw_penalty_factor : 0.0;
    return std::max(raw, context->min_penalty_factor);
}

void problem_data::compute_penalties()
{
    const double displacement = get_penalty_factor(displacement_tag);
    const double rotation = get_penalty_factor(rotation_tag);
    omp_guard guard(lock);
    penalty_displacement = displacement;
    penalty_rotation = rotation;
}

error_type problem_data::combine(const problem_data& p, const dense2D<double>& load_factors,
                                 const dense2D<double>& stress_factors)
{
    context = p.context;
    dense2D<double> p_pos = p.pos;
    if (auto e = init(p_pos, p.DOFs, p.NM_ID, 0); e != no_error) return e;
    penalty_displacement = p.penalty_displacement;
    penalty_rotation = p.penalty_rotation;
    const unsigned n = load_factors.cols();
    if (auto e = make_load_cases(n); e != no_error) return e;
    const auto factor = [](const dense2D<double>& f, unsigned i, unsigned j) {
        return i < f.rows() && j < f.cols() ? f(i, j) : 0.0;
    };
    for (unsigned j = 0; j < n; ++j) {
        dense1D<double, 8> column;
        if (!column.resize(p.nbr_load_cases())) return memory_error;
        for (unsigned i = 0; i < column.size(); ++i) column[i] = factor(load_factors, i, j);
        try {
            loads[j] = new loads_mgr(context, p.loads, column);
        } catch (const std::bad_alloc&) {
            return memory_error;
        }
        for (unsigned i = 0; i < p.stresses.size(); ++i)
            if (p.stresses[i])
                if (auto e = stresses[j]->add_scaled(*p.stresses[i], factor(stress_factors, i, j)); e != no_error)
                    return e;
    }
    return no_error;
}

} // namespace kelt::core
