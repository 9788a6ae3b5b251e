#include "kelt/laws/law_scalar.h"

namespace kelt::core {

bool law_scalar::valid(const dense1D<double, 8>& d) const { return d.size() == 1; }

double law_scalar::get_value(const law_key& key) const noexcept
{
    const dense1D<double, 8>& d = element_data(key.model, key.element);
    return d.size() ? d[0] : 0.0;
}

void law_scalar::get_force(const law_key& key, double s, double& k, double& f, double& energy, const double*,
                           double*) const
{
    k = get_value(key);
    f = k * s;
    energy = 0.5 * f * s;
}

} // namespace kelt::core
