// The mass of a model: its total, and with the moments its centre of gravity and
// its inertia tensor at that centre.
#pragma once

#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/fem/solver_reactions.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

struct mass_inputs {
    unsigned NM_ID = 0xFFFFFFFFu; // the model to weigh; the problem's when none bears it
};

struct mass_outputs {
    double total_mass = 0.0;
    vector_fixed<double, 3> center;
    symmetric_fixed<double, 3> inertia; // at the centre of gravity
    vector_fixed<double, 3> first_moments;
    symmetric_fixed<double, 3> inertia_origin; // about the origin
};

class solver_mass : public solver_base {
public:
    struct settings_type {
        // 0: the mass seen by the three translations together (their mean), 1 to 3:
        // by the translation x, y or z alone, from the assembled mass matrix;
        // above 3: mass, centre and inertia from the model's own sums.
        unsigned mode = 0;
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    // NM_ID names the input field, not the problem's model.
    class data_type : public solver_record<mass_inputs, mass_outputs, results_timers> {
    public:
        using solver_record::solver_record;
        using mass_inputs::NM_ID;
    };

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
