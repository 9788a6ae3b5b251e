// Steady heat conduction with many load cases: the static machinery on
// temperatures, conduction matrices always factorised under the stopping policy.
#pragma once

#include "kelt/fem/solver_static_linear.h"

namespace kelt::fem {

class solver_thermal_static_linear : public solver_base {
public:
    // The fields of the mechanical solver. `force_pivots` is kept for the shape of
    // the record only: reset() leaves it as it is, and nothing reads it.
    struct settings_type : solver_static_linear::settings_type {
        void reset() noexcept
        {
            const bool kept = force_pivots;
            *this = settings_type();
            force_pivots = kept;
        }
    };

    // The mechanical record, its states temperatures.
    using data_type = solver_static_linear::data_type;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
