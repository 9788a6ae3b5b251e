#include "kelt/fem/bases_mgr.h"

#include "kelt/core/bases_mgr.h"

namespace kelt::fem {

namespace {
using core_mgr = kelt::core::bases_mgr;
}

bases_mgr::bases_mgr() { set_w(new core_mgr); }

unsigned bases_mgr::create_cartesian(const matrix_fixed<double, 3, 3>& frame)
{
    return hold<core_mgr>()->create_cartesian(frame);
}

unsigned bases_mgr::create_cylindrical(const vector_fixed<double, 3>& origin, const vector_fixed<double, 3>& axis)
{
    return hold<core_mgr>()->create_cylindrical(origin, axis);
}

unsigned bases_mgr::create_spherical(const vector_fixed<double, 3>& origin, const vector_fixed<double, 3>& axis)
{
    return hold<core_mgr>()->create_spherical(origin, axis);
}

unsigned bases_mgr::size() const { return core<core_mgr>()->size(); }

void bases_mgr::clear() { hold<core_mgr>()->clear(); }

} // namespace kelt::fem
