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
    // A law with history reads the point's last committed state at `state_in` and
    // writes its new one at `state_out` (nbr_internal_states values each), as the
    // solid laws do; null pointers are the virgin state and a state not wanted.
    virtual void get_force(const law_key& key, double s, double& k, double& f, double& energy,
                           const double* state_in, double* state_out) const;
    void get_force(const law_key& key, double s, double& k, double& f, double& energy) const
    {
        get_force(key, s, k, f, energy, nullptr, nullptr);
    }
};

} // namespace kelt::core
