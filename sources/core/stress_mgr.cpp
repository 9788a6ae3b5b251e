#include "kelt/core/stress_mgr.h"

#include <algorithm>
#include <new>
#include <utility>

#include "kelt/core/context.h"

namespace kelt::core {

// ---- keyed_values ---------------------------------------------------------

bool keyed_values::set(unsigned key, const double* v, unsigned n, unsigned evol)
{
    if (key == vector_fast::none) return false;
    const unsigned rows = std::max(values.rows(), n);
    unsigned c = keys.rank(key);
    if (c == vector_fast::none) {
        c = keys.size();
        if (!values.resize(rows, c + 1, 0.0)) return false;
        if (!evols.reserve(c + 1, 2) || keys.push_back(key) != c) {
            (void)values.resize(rows, c); // shrinking keeps the buffer
            return false;
        }
        evols.push_back(evol);
    } else if (rows != values.rows() && !values.resize(rows, values.cols(), 0.0)) {
        return false;
    }
    for (unsigned i = 0; i < rows; ++i) values(i, c) = i < n ? v[i] : 0.0;
    evols[c] = evol;
    return true;
}

bool keyed_values::add_scaled(const keyed_values& other, double factor)
{
    const unsigned rows = std::max(values.rows(), other.values.rows());
    if (rows != values.rows() && !values.resize(rows, values.cols(), 0.0)) return false;
    dense1D<double, 8> scaled;
    if (!scaled.resize(other.values.rows())) return false;
    for (unsigned k = 0; k < other.size(); ++k) {
        const unsigned key = other.keys[k];
        const unsigned c = keys.rank(key);
        if (c == vector_fast::none) {
            for (unsigned i = 0; i < scaled.size(); ++i) scaled[i] = factor * other.values(i, k);
            if (!set(key, scaled.data(), scaled.size(), other.evols[k])) return false;
        } else {
            for (unsigned i = 0; i < other.values.rows(); ++i) values(i, c) += factor * other.values(i, k);
        }
    }
    return true;
}

void keyed_values::clear()
{
    keys.clear();
    values.clear_hard();
    evols.clear();
}

// ---- stress_mgr_base, stress_mgr_thermal ----------------------------------

stress_mgr_base::stress_mgr_base(context_type* context_) : context(context_) {}

stress_mgr_base::~stress_mgr_base() = default;

double stress_mgr_base::evolution(unsigned evol, double t) const
{
    if (!context) return 1.0;
    const evolution_func_base* f = context->evolution_funcs_mgr->get(evol);
    return f ? f->value(t) : 1.0;
}

Ptr<stress_mgr_thermal> stress_mgr_thermal::clone() const { return Ptr<stress_mgr_thermal>(new stress_mgr_thermal(context)); }

namespace {

// out := factor x v[0..n), in a buffer of its own.
void scaled_into(const double* v, unsigned n, double factor, dense1D<double, 8>& out)
{
    dense1D<double, 8> fresh;
    out.clear();
    if (!fresh.resize(n)) return;
    for (unsigned i = 0; i < n; ++i) fresh[i] = factor * v[i];
    out = fresh;
}

} // namespace

void stress_mgr_thermal::get_uniform(double t, dense1D<double, 8>& out) const
{
    scaled_into(uniform.data(), uniform.size(), evolution(uniform_evol, t), out);
}

bool stress_mgr_thermal::get_keyed(const keyed_values& table, unsigned key, double t, dense1D<double, 8>& out) const
{
    out.clear();
    const unsigned c = table.keys.rank(key);
    if (c == vector_fast::none) return false;
    scaled_into(table.values.col_data(c), table.values.rows(), evolution(table.evols[c], t), out);
    return out.size() == table.values.rows();
}

bool stress_mgr_thermal::get_element_value(unsigned element, double t, dense1D<double, 8>& out) const
{
    return get_keyed(elements, element, t, out);
}

bool stress_mgr_thermal::get_nodal_value(unsigned node, double t, dense1D<double, 8>& out) const
{
    return get_keyed(nodes, node, t, out);
}

bool stress_mgr_thermal::set_uniform(const double* v, unsigned n, unsigned evol)
{
    dense1D<double, 8> fresh;
    if (!fresh.resize(n)) return false;
    std::copy(v, v + n, fresh.begin());
    uniform = fresh;
    uniform_evol = evol;
    return true;
}

bool stress_mgr_thermal::add_scaled(const stress_mgr_thermal& other, double factor)
{
    if (factor == 0.0) return true;
    const unsigned n = std::max(uniform.size(), other.uniform.size());
    dense1D<double, 8> sum;
    if (!sum.resize(n, 0.0)) return false;
    for (unsigned i = 0; i < uniform.size(); ++i) sum[i] = uniform[i];
    for (unsigned i = 0; i < other.uniform.size(); ++i) sum[i] += factor * other.uniform[i];
    if (uniform.empty()) uniform_evol = other.uniform_evol;
    uniform = sum;
    return elements.add_scaled(other.elements, factor) && nodes.add_scaled(other.nodes, factor);
}

Ptr<stress_mgr_thermal> stress_mgr_thermal::frozen_at(double t) const
{
    Ptr<stress_mgr_thermal> f = clone();
    dense1D<double, 8> v;
    get_uniform(t, v);
    if (!f->set_uniform(v.data(), v.size(), no_evol)) return nullptr;
    for (const auto& [from, to] : {std::pair{&elements, &f->elements}, std::pair{&nodes, &f->nodes}})
        for (unsigned c = 0; c < from->size(); ++c) {
            if (!get_keyed(*from, from->keys[c], t, v) || !to->set(from->keys[c], v.data(), v.size(), no_evol))
                return nullptr;
        }
    return f;
}

// ---- stress_super_mgr -----------------------------------------------------

stress_super_mgr::stress_super_mgr(context_type* context_) : context(context_) {}

stress_super_mgr::~stress_super_mgr() = default;

stress_mgr_thermal* stress_super_mgr::find_or_create(unsigned model, bool check_model, error_type& e)
{
    e = no_error;
    if (check_model && (!context || !context->numerical_models_mgr->exists(model))) {
        e = invalid_data_error;
        return nullptr;
    }
    try {
        if (model >= thermal.size()) thermal.resize(std::size_t(model) + 1);
        if (!thermal[model]) thermal[model] = new stress_mgr_thermal(context);
    } catch (const std::bad_alloc&) {
        e = memory_error;
        return nullptr;
    }
    return thermal[model];
}

error_type stress_super_mgr::set_thermal_load(unsigned model, const double* v, unsigned n, unsigned evol)
{
    error_type e;
    stress_mgr_thermal* m = find_or_create(model, true, e);
    if (!m) return e;
    return m->set_uniform(v, n, evol) ? no_error : memory_error;
}

error_type stress_super_mgr::set_thermal_load_element(unsigned model, unsigned element, const double* v, unsigned n,
                                                      unsigned evol)
{
    if (element == vector_fast::none) return invalid_data_error;
    error_type e;
    stress_mgr_thermal* m = find_or_create(model, true, e);
    if (!m) return e;
    return m->elements.set(element, v, n, evol) ? no_error : memory_error;
}

error_type stress_super_mgr::set_columns(unsigned model, bool by_node, const FEM_real& values,
                                         const dense1D<unsigned, 8>* evols, unsigned evol)
{
    if (evols && !evols->empty() && evols->size() != values.cols()) return invalid_data_error;
    error_type e;
    stress_mgr_thermal* m = find_or_create(model, true, e);
    if (!m) return e;
    keyed_values& table = by_node ? m->nodes : m->elements;
    for (unsigned j = 0; j < values.cols(); ++j) {
        const dense1D<double, 8> c = values.col_read(j);
        if (c.size() != values.rows()) return internal_error;
        const unsigned ev = !evols ? evol : evols->empty() ? stress_mgr_base::no_evol : (*evols)[j];
        if (!table.set(j, c.data(), c.size(), ev)) return memory_error;
    }
    return no_error;
}

error_type stress_super_mgr::add_scaled(const stress_super_mgr& other, double factor)
{
    if (factor == 0.0) return no_error;
    // A snapshot of the other's models: `other` may be this one.
    std::vector<Ptr<stress_mgr_thermal>> from;
    try {
        from = other.thermal;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    for (unsigned model = 0; model < from.size(); ++model) {
        if (!from[model]) continue;
        error_type e;
        stress_mgr_thermal* m = find_or_create(model, false, e);
        if (!m) return e;
        if (!m->add_scaled(*from[model], factor)) return memory_error;
    }
    return no_error;
}

Ptr<stress_super_mgr> stress_super_mgr::frozen_at(double t) const
{
    Ptr<stress_super_mgr> f(new stress_super_mgr(context.get()));
    try {
        f->thermal.resize(thermal.size());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    for (unsigned model = 0; model < thermal.size(); ++model)
        if (thermal[model] && !(f->thermal[model] = thermal[model]->frozen_at(t))) return nullptr;
    return f;
}

} // namespace kelt::core
