// What the supports give back: per state, the internal forces K U less the loads
// of the state's case, on every DOF of the model. At a free DOF of a solved state
// it is the residual (zero to rounding), at a blocked or prescribed one the
// reaction, so that the reactions and the loads are in balance. For a conduction
// model they are the heat flows at the held temperatures.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"

namespace kelt::fem {

struct reactions_inputs {
    FEM_states U; // the states, one a column; column i takes the loads of case i
};

struct reactions_outputs {
    FEM_matrix reactions;     // rows: the model's DOFs; one column per column of U
    unsigned nbr_columns = 1; // of reactions
};

struct results_timers {
    double time_total = 0.0;
};

class solver_reactions : public solver_base {
public:
    struct settings_type {
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    using data_type = solver_record<reactions_inputs, reactions_outputs, results_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
