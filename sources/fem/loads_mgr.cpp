#include "kelt/fem/loads_mgr.h"

#include "kelt/core/context.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {
using lm = core::loads_mgr;
using detail::call;
} // namespace

loads_mgr::loads_mgr(context& ctx) { create(ctx); }

void loads_mgr::create(context& ctx)
{
    try {
        set_w(new lm(static_cast<core::context_type*>(core_of(ctx))));
    } catch (...) {
        clear_w();
    }
}

error_type loads_mgr::record_value(core::load_list which, unsigned ID, double value, unsigned func)
{
    return call<lm>(*this, [&](lm& l) { return l.record_value(which, ID, value, func); });
}

error_type loads_mgr::record_values(core::load_list which, const dense1D<unsigned, 8>& IDs,
                                    const dense1D<double, 8>& values, const dense1D<unsigned, 8>* funcs, unsigned func)
{
    return call<lm>(*this, [&](lm& l) { return l.record_values(which, IDs, values, funcs, func); });
}

error_type loads_mgr::record_NM_load(unsigned NM_ID, unsigned element, const elementary_load& load, unsigned func)
{
    return call<lm>(*this, [&](lm& l) { return l.record_NM_load(NM_ID, element, load, func); });
}

void loads_mgr::clear() { detail::run<lm>(*this, [](lm& l) { l.clear(); }); }

} // namespace kelt::fem
