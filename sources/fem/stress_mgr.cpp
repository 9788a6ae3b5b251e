#include "kelt/fem/stress_mgr.h"

#include "kelt/core/context.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using super = core::stress_super_mgr;
using detail::call;
using detail::held;

core::context_type* core_context(const context& ctx)
{
    return static_cast<core::context_type*>(core_of(ctx));
}

error_type uniform(const stress_mgr& h, unsigned model, const double* v, unsigned n, unsigned evol)
{
    return call<super>(h, [&](super& s) { return s.set_thermal_load(model, v, n, evol); });
}

error_type element(const stress_mgr& h, unsigned model, unsigned e, const double* v, unsigned n, unsigned evol)
{
    return call<super>(h, [&](super& s) { return s.set_thermal_load_element(model, e, v, n, evol); });
}

} // namespace

stress_mgr::stress_mgr(context& ctx) { create(ctx); }

void stress_mgr::create(context& ctx)
{
    try {
        set_w(new super(core_context(ctx)));
    } catch (...) {
        clear_w();
    }
}

void stress_mgr::clear() { detail::run<super>(*this, [](super& s) { s.clear(); }); }

error_type stress_mgr::set_thermal_load(unsigned model, double value, unsigned evol)
{
    return uniform(*this, model, &value, 1, evol);
}
error_type stress_mgr::set_thermal_load(unsigned model, const vector_fixed<double, 2>& value, unsigned evol)
{
    return uniform(*this, model, value.data(), 2, evol);
}
error_type stress_mgr::set_thermal_load(unsigned model, const vector_fixed<double, 3>& value, unsigned evol)
{
    return uniform(*this, model, value.data(), 3, evol);
}

error_type stress_mgr::set_thermal_load_element(unsigned model, unsigned e, double value, unsigned evol)
{
    return element(*this, model, e, &value, 1, evol);
}
error_type stress_mgr::set_thermal_load_element(unsigned model, unsigned e, const vector_fixed<double, 2>& value,
                                                unsigned evol)
{
    return element(*this, model, e, value.data(), 2, evol);
}
error_type stress_mgr::set_thermal_load_element(unsigned model, unsigned e, const vector_fixed<double, 3>& value,
                                                unsigned evol)
{
    return element(*this, model, e, value.data(), 3, evol);
}

namespace {

// Column j of `values` to element (by_node: node) j of the model.
error_type columns(const stress_mgr& h, unsigned model, bool by_node, const FEM_matrix& values,
                   const dense1D<unsigned, 8>* evols, unsigned evol)
{
    Ptr<core::FEM_real> m = held<core::FEM_real>(values);
    if (!m) return invalid_data_error;
    return call<super>(h, [&](super& s) { return s.set_columns(model, by_node, *m, evols, evol); });
}

} // namespace

error_type stress_mgr::set_thermal_load_elements(unsigned model, const FEM_matrix& values, unsigned evol)
{
    return columns(*this, model, false, values, nullptr, evol);
}
error_type stress_mgr::set_thermal_load_elements(unsigned model, const FEM_matrix& values,
                                                 const dense1D<unsigned, 8>& evols)
{
    return columns(*this, model, false, values, &evols, core::stress_mgr_base::no_evol);
}
error_type stress_mgr::set_thermal_load_nodal(unsigned model, const FEM_matrix& values, unsigned evol)
{
    return columns(*this, model, true, values, nullptr, evol);
}
error_type stress_mgr::set_thermal_load_nodal(unsigned model, const FEM_matrix& values,
                                              const dense1D<unsigned, 8>& evols)
{
    return columns(*this, model, true, values, &evols, core::stress_mgr_base::no_evol);
}

} // namespace kelt::fem
