// The strain energy of a model's states, per element and in all.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/fem/solver_reactions.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

struct energy_inputs {
    FEM_states U;
};

struct energy_outputs {
    FEM_matrix element_energies; // rows: global element numbers; one column per state taken
    dense1D<double, 8> energies; // their sums
};

class solver_energy : public solver_base {
public:
    // The value of `column` that takes every state.
    static constexpr unsigned all_columns = 0xFFFFFFFEu;

    struct settings_type {
        unsigned column = all_columns; // one state of U, or all
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    using data_type = solver_record<energy_inputs, energy_outputs, results_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
