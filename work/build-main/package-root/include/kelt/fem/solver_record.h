// A solver's data record, built from plain groups of fields that each state their
// defaults once: the solver's inputs, its outputs, then the run status and the
// timers. Copying shares handles and copies numbers and texts; clearing the
// outputs restores every default of the output groups and leaves the inputs.
#pragma once

#include "kelt/fem/problem_data.h"
#include "kelt/fem/solver_base.h"

namespace kelt::fem {

template <class Inputs, class Outputs, class Timers>
class solver_record : public problem_data, public Inputs, public Outputs, public run_status, public Timers {
public:
    explicit solver_record(const problem_data& p) : problem_data(p) {}

    // Outputs to their defaults (output containers new and empty), texts blank;
    // inputs untouched.
    void clear_data_out()
    {
        static_cast<Outputs&>(*this) = Outputs();
        static_cast<run_status&>(*this) = run_status();
        static_cast<Timers&>(*this) = Timers();
    }
    // The problem names a model of its context's registry.
    bool valid() const { return has_numerical_model(); }
};

} // namespace kelt::fem
