#include "kelt/fem/evolution_funcs_mgr.h"

#include "kelt/core/evolution_funcs_mgr.h"

namespace kelt::fem {

namespace {
using core_mgr = kelt::core::evolution_funcs_mgr;
}

unsigned evolution_funcs_mgr::create_cste(double c) { return hold<core_mgr>()->create_cste(c); }

unsigned evolution_funcs_mgr::create_linear(double a) { return hold<core_mgr>()->create_linear(a); }

unsigned evolution_funcs_mgr::create_sinus(double omega, double phi)
{
    return hold<core_mgr>()->create_sinus(omega, phi);
}

unsigned evolution_funcs_mgr::create_triangle(double center, double width)
{
    return hold<core_mgr>()->create_triangle(center, width);
}

unsigned evolution_funcs_mgr::create_trapeze(double t0, double t1, double v0, double v1)
{
    return hold<core_mgr>()->create_trapeze(t0, t1, v0, v1);
}

unsigned evolution_funcs_mgr::create_discret(const dense1D<double, 8>& times, const dense1D<double, 8>& values)
{
    return hold<core_mgr>()->create_discret(times, values);
}

unsigned evolution_funcs_mgr::create_sum(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& coefficients)
{
    return hold<core_mgr>()->create_sum(IDs, coefficients);
}

unsigned evolution_funcs_mgr::create_mult(const dense1D<unsigned, 8>& IDs)
{
    return hold<core_mgr>()->create_mult(IDs);
}

unsigned evolution_funcs_mgr::size() const { return core<core_mgr>()->size(); }

void evolution_funcs_mgr::clear() { hold<core_mgr>()->clear(); }

double evolution_funcs_mgr::value(unsigned index, double t) const { return hold<core_mgr>()->value(index, t); }

} // namespace kelt::fem
