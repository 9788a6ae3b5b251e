// A law that is one value: a density for the mass models, a conductivity for the
// conduction models.
#pragma once

#include "kelt/laws/law_base.h"

namespace kelt::core {

class law_scalar : public law_1d {
public:
    bool valid(const dense1D<double, 8>& data) const override;
    // The element's value; 0 when it cannot be read.
    double get_value(const law_key& key) const noexcept;
    // At the number s: stiffness k, force f, energy. Here k is the value, f = k s.
    virtual void get_force(const law_key& key, double s, double& k, double& f, double& energy) const;
};

} // namespace kelt::core
