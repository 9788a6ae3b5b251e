#include "kelt/elements/numerical_model_composite.h"

#include <algorithm>
#include <new>

#include "kelt/core/context.h"
#include "kelt/core/element_records.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/internal_states.h"
#include "kelt/core/load_pass.h"

namespace kelt::core {

numerical_model_composite::~numerical_model_composite() = default;

error_type numerical_model_composite::insert(unsigned child)
{
    omp_guard guard(lock);
    if (!children.reserve(children.size() + 1, 2)) return memory_error;
    children.push_back(child);
    return no_error;
}

error_type numerical_model_composite::insert(const dense1D<unsigned, 8>& list)
{
    omp_guard guard(lock);
    if (!children.reserve(children.size() + list.size(), 2)) return memory_error;
    for (unsigned c : list) children.push_back(c);
    return no_error;
}

dense1D<unsigned, 8> numerical_model_composite::get_children() const
{
    omp_guard guard(lock);
    dense1D<unsigned, 8> out;
    if (!out.copy(children)) throw std::bad_alloc();
    return out;
}

template <class F>
void numerical_model_composite::for_each_child(F&& f) const
{
    if (!context || !context->numerical_models_mgr) return;
    const dense1D<unsigned, 8> list = get_children();
    for (unsigned c : list) {
        if (c == ID) continue;
        Ptr<numerical_model_base> child = context->numerical_models_mgr->get_NM(c);
        if (child) f(*child);
    }
}

template <class F>
error_type numerical_model_composite::for_each_child_status(F&& f) const
{
    error_type first = no_error;
    for_each_child([&](numerical_model_base& child) {
        const error_type e = f(child);
        if (first == no_error) first = e;
    });
    return first;
}

unsigned numerical_model_composite::add_nbr_elements(unsigned& counter) const
{
    for_each_child([&](numerical_model_base& c) { c.add_nbr_elements(counter); });
    return counter;
}

void numerical_model_composite::collect_models(std::vector<Ptr<numerical_model_base>>& list)
{
    for_each_child([&](numerical_model_base& c) { c.collect_models(list); });
}

Ptr<numerical_model_base> numerical_model_composite::find_model(unsigned ID_)
{
    if (ID_ == ID) return Ptr<numerical_model_base>(this);
    Ptr<numerical_model_base> found;
    for_each_child([&](numerical_model_base& c) {
        if (!found) found = c.find_model(ID_);
    });
    return found;
}

bool numerical_model_composite::describe_unusable_law(char* text, unsigned size) const
{
    bool found = false;
    for_each_child([&](numerical_model_base& c) { found = found || c.describe_unusable_law(text, size); });
    return found;
}

double numerical_model_composite::get_stiffness_scale(field_tag field) const
{
    double s = 0.0;
    for_each_child([&](numerical_model_base& c) { s = std::max(s, c.get_stiffness_scale(field)); });
    return s;
}

double numerical_model_composite::get_mesh_size(const dense2D<double>& pos) const
{
    double s = 0.0;
    for_each_child([&](numerical_model_base& c) { s = std::max(s, c.get_mesh_size(pos)); });
    return s;
}

void numerical_model_composite::set_FE_transformer(const Ptr<ref_counted>& transformer)
{
    FE_transformer = transformer;
    for_each_child([&](numerical_model_base& c) { c.set_FE_transformer(transformer); });
}

void numerical_model_composite::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos,
                                                 unsigned field_selector, vector_fast& DOF_set) const
{
    for_each_child([&](numerical_model_base& c) { c.get_element_DOFs(element, kind, pos, field_selector, DOF_set); });
}

error_type numerical_model_composite::get_elements_DOFs(unsigned element_selector, pass_kind kind,
                                                        const dense2D<double>& pos, unsigned field_selector,
                                                        std::vector<unsigned>& ends,
                                                        std::vector<unsigned>& DOFs) const
{
    return for_each_child_status([&](numerical_model_base& c) {
        return c.get_elements_DOFs(element_selector, kind, pos, field_selector, ends, DOFs);
    });
}

void numerical_model_composite::fill_DOF_to_elements(unsigned element_selector, pass_kind kind,
                                                     const vector_fast& DOF_index_map, dense1D<unsigned, 8>& counters,
                                                     dense1D<FE_pair, 8>& pairs) const
{
    for_each_child([&](numerical_model_base& c) {
        c.fill_DOF_to_elements(element_selector, kind, DOF_index_map, counters, pairs);
    });
}

void numerical_model_composite::clear_internal_states()
{
    for_each_child([](numerical_model_base& c) { c.clear_internal_states(); });
}

error_type numerical_model_composite::commit_states()
{
    return for_each_child_status([](numerical_model_base& c) { return c.commit_states(); });
}

void numerical_model_composite::rollback_states()
{
    for_each_child([](numerical_model_base& c) { c.rollback_states(); });
}

error_type numerical_model_composite::set_internal_states(const internal_states& store)
{
    return for_each_child_status([&](numerical_model_base& c) { return c.set_internal_states(store); });
}

error_type numerical_model_composite::get_internal_states(internal_states& store) const
{
    return for_each_child_status([&](numerical_model_base& c) { return c.get_internal_states(store); });
}

error_type numerical_model_composite::run_elements(pass_kind kind, element_pass_type& pass)
{
    return for_each_child_status([&](numerical_model_base& c) { return c.run_elements(kind, pass); });
}

error_type numerical_model_composite::run_element_loads(const elementary_load& load, load_pass_type& pass)
{
    return for_each_child_status([&](numerical_model_base& c) { return c.run_element_loads(load, pass); });
}

error_type numerical_model_composite::run_element_results(pass_kind kind, unsigned result, element_pass_type& pass)
{
    return for_each_child_status([&](numerical_model_base& c) { return c.run_element_results(kind, result, pass); });
}

void numerical_model_composite::get_result_field(unsigned result, unsigned& physics_code_, pass_kind& kind) const
{
    physics_code_ = 0;
    kind = kind_none;
    for_each_child([&](numerical_model_base& c) {
        if (physics_code_ != 0 || kind != kind_none) return;
        c.get_result_field(result, physics_code_, kind);
    });
}

} // namespace kelt::core
