#include "kelt/core/loads_mgr.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/context.h"

namespace kelt::core {

namespace {

void push(dense1D<DOF_value, 8>& list, unsigned ID, double value, unsigned func)
{
    list.push_back(DOF_value{ID, func, value});
}

} // namespace

loads_mgr::loads_mgr(context_type* context_) : context(context_)
{
    NM_loads.max_load_factor(1.0f);
    NM_loads.rehash(8);
}

loads_mgr::loads_mgr(context_type* context_, const std::vector<Ptr<loads_mgr>>& list,
                     const dense1D<double, 8>& coefficients)
    : loads_mgr(context_)
{
    for (unsigned i = 0; i < list.size() && i < coefficients.size(); ++i)
        if (list[i]) merge(*list[i], coefficients[i]);
}

loads_mgr::~loads_mgr() = default;

error_type loads_mgr::record_value(load_list which, unsigned ID, double value, unsigned func)
{
    push(which == load_list::forces ? DOF_loads : prescribed_values, ID, value, func);
    return no_error;
}

error_type loads_mgr::record_values(load_list which, const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                                    const dense1D<unsigned, 8>* funcs, unsigned func)
{
    if (IDs.size() != values.size() || (funcs && funcs->size() != IDs.size())) return invalid_data_error;
    dense1D<DOF_value, 8>& list = which == load_list::forces ? DOF_loads : prescribed_values;
    if (!list.reserve(list.size() + IDs.size(), 2)) return no_error; // dropped whole, as push_back drops
    for (unsigned i = 0; i < IDs.size(); ++i) push(list, IDs[i], values[i], funcs ? (*funcs)[i] : func);
    return no_error;
}

bool loads_mgr::store_load(const elementary_load& load, unsigned func, double factor, unsigned& index)
{
    elementary_load entry;
    entry.kind = load.kind;
    entry.type = load.type;
    entry.func = func;
    if (!entry.values.copy(load.values)) return false;
    if (factor != 1.0)
        for (double& v : entry.values) v *= factor;
    // Loads repeated on consecutive elements share one entry; looking back over a
    // few keeps recording at constant cost.
    const std::size_t n = elementary_loads.size();
    for (std::size_t k = n; k > 0 && n - k < look_back; --k)
        if (elementary_loads[k - 1].same_as(entry)) {
            index = unsigned(k - 1);
            return true;
        }
    if (n >= 0xFFFFFFFFu) return false;
    try {
        elementary_loads.push_back(entry);
    } catch (const std::bad_alloc&) {
        return false;
    }
    index = unsigned(n);
    return true;
}

void loads_mgr::add_NM_load(unsigned func, const NM_load_record& record)
{
    try {
        NM_loads.emplace(func, record);
    } catch (const std::bad_alloc&) {
        // dropped, as push_back drops
    }
}

error_type loads_mgr::record_NM_load(unsigned NM_ID, unsigned element, const elementary_load& load, unsigned func)
{
    if (load.is_zero() || NM_ID == DOFs_mgr::no_ID || element == DOFs_mgr::no_ID) return no_error;
    unsigned index;
    if (store_load(load, func, 1.0, index)) add_NM_load(func, NM_load_record{NM_ID, element, index});
    return no_error;
}

void loads_mgr::clear()
{
    NM_loads.clear();
    elementary_loads.clear();
    DOF_loads.clear();
    prescribed_values.clear();
}

double loads_mgr::evolution(unsigned func, double t) const
{
    if (!context) return 1.0;
    const evolution_func_base* f = context->evolution_funcs_mgr->get(func);
    return f ? f->value(t) : 1.0;
}

namespace {

// The elements a load on `model` can reach: a composite hands the index to each
// of its members, so an index reaches something while it is below the largest.
unsigned reachable_elements(numerical_model_base& model, std::vector<Ptr<numerical_model_base>>& members)
{
    members.clear();
    model.collect_models(members);
    unsigned n = 0;
    for (const auto& m : members)
        if (m) n = std::max(n, m->nbr_elements());
    return n;
}

} // namespace

error_type loads_mgr::assemble(load_pass_type& pass) const
{
    const auto skipped = [&] {
        return pass.assembler.is_null() || pass.case_index == load_pass_type::no_case || pass.factor == 0.0;
    };
    if (skipped()) return no_error;
    const unsigned case_index = pass.case_index, element = pass.element;
    error_type e = no_error;
    if (context) {
        Ptr<numerical_models_mgr> models = context->numerical_models_mgr;
        std::vector<Ptr<numerical_model_base>> members;
        const numerical_model_base* last = nullptr; // the model whose count is `reach`
        unsigned reach = 0;
        for (const auto& [func, record] : NM_loads) {
            numerical_model_base* model = models->get_NM(record.NM_ID);
            if (!model || record.load >= elementary_loads.size()) {
                ++pass.nbr_skipped;
                continue;
            }
            Ptr<numerical_model_base> held = model;
            if (model != last) {
                try {
                    reach = reachable_elements(*model, members);
                } catch (const std::bad_alloc&) {
                    reach = 0xFFFFFFFFu; // counted as reached: the count is a report only
                }
                last = model;
            }
            if (record.element != all_elements && record.element >= reach) ++pass.nbr_skipped;
            pass.element = record.element;
            e = model->run_element_loads(elementary_loads[record.load], pass);
            if (e != no_error) break;
        }
    }
    pass.case_index = case_index;
    pass.element = element;
    if (e != no_error || skipped()) return e;
    for (const DOF_value& load : DOF_loads) {
        // The assembler drops what has no row; the count only reports it.
        if (pass.rows && !pass.rows->contains(load.first)) ++pass.nbr_skipped;
        if (auto a = pass.assembler.add(load.first, evolution(load.second, pass.time) * pass.factor * load.third);
            a != no_error)
            return a;
    }
    return no_error;
}

void loads_mgr::prescribed_IDs(dense1D<unsigned, 8>& list) const
{
    if (!list.reserve(list.size() + prescribed_values.size(), 2)) return;
    for (const DOF_value& p : prescribed_values) list.push_back(p.first);
}

void loads_mgr::prescribed_vector(const load_pass_type& pass, const vector_fast& rows,
                                  dense1D<double, 8>& values) const
{
    if (values.empty()) return;
    const auto position = [&](unsigned ID) {
        const unsigned r = rows.rank(ID);
        return r < values.size() ? r : vector_fast::none;
    };
    // Cleared first, then summed, so that several values on one DOF add up.
    for (const DOF_value& p : prescribed_values)
        if (const unsigned r = position(p.first); r != vector_fast::none) values[r] = 0.0;
    for (const DOF_value& p : prescribed_values)
        if (const unsigned r = position(p.first); r != vector_fast::none)
            values[r] += evolution(p.second, pass.time) * pass.factor * p.third;
}

void loads_mgr::merge(const loads_mgr& other, double factor)
{
    if (factor == 0.0 || std::isnan(factor)) return;
    // Snapshots: `other` may be this one.
    std::vector<std::pair<unsigned, NM_load_record>> records;
    std::vector<elementary_load> loads;
    try {
        records.assign(other.NM_loads.begin(), other.NM_loads.end());
        loads = other.elementary_loads;
        NM_loads.reserve(NM_loads.size() + other.NM_loads.size());
    } catch (const std::bad_alloc&) {
        return;
    }
    for (const auto& [func, record] : records) {
        if (record.load >= loads.size()) continue;
        unsigned index;
        if (store_load(loads[record.load], loads[record.load].func, factor, index))
            add_NM_load(func, NM_load_record{record.NM_ID, record.element, index});
    }
    const dense1D<DOF_value, 8> forces = other.DOF_loads, imposed = other.prescribed_values;
    if (!DOF_loads.reserve(DOF_loads.size() + forces.size(), 2) ||
        !prescribed_values.reserve(prescribed_values.size() + imposed.size(), 2))
        return;
    for (const DOF_value& v : forces) push(DOF_loads, v.first, factor * v.third, v.second);
    for (const DOF_value& v : imposed) push(prescribed_values, v.first, factor * v.third, v.second);
}

} // namespace kelt::core
