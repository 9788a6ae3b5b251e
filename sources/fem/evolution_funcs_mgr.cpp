#include "kelt/fem/evolution_funcs_mgr.h"

#include "kelt/core/evolution_funcs_mgr.h"

namespace kelt::fem {

namespace {
using core_mgr = kelt::core::evolution_funcs_mgr;
}

unsigned evolution_funcs_mgr::add(core::evolution_func_base* f) { return hold<core_mgr>()->add(f); }

std::vector<Ptr<core::evolution_func_base>> evolution_funcs_mgr::slots(const dense1D<unsigned, 8>& IDs) const
{
    return hold<core_mgr>()->slots(IDs);
}

unsigned evolution_funcs_mgr::size() const { return core<core_mgr>()->size(); }

void evolution_funcs_mgr::clear() { hold<core_mgr>()->clear(); }

double evolution_funcs_mgr::value(unsigned index, double t) const { return hold<core_mgr>()->value(index, t); }

} // namespace kelt::fem
