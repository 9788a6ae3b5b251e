// Transient dynamics, M a + C v + K u = F(t), integrated in time by the Newmark
// method in acceleration form: one factorisation of the effective matrix, then one
// right-hand side and one solve per step. Non-linear elements enter explicitly:
// their internal forces are read at each predicted state, their tangent only when
// the matrix is rebuilt.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

// Called at the end of each step with its time, its number (from 1) and the first
// column of the state group it wrote. `stop` is true on entry at the last step
// planned; true on return ends the run there.
using step_handler = void (*)(void* user_data, double t, unsigned step, unsigned column, bool* stop);

struct Newmark_settings {
    double t_start = 0.0;
    double t_end = 0.0; // the defaults make the settings invalid until t_end and dt are set
    double dt = 0.0;
    double beta = 0.25; // displacement parameter: 1/4 with gamma 1/2 is the average acceleration
    double gamma = 0.5; // velocity parameter: above 1/2 damps the high frequencies
    double damping_K = 0.0; // Rayleigh damping C += damping_K K + damping_M M
    double damping_M = 0.0;
    unsigned K_update_period = 0; // matrix rebuilt and internal states committed every this many steps; 0: once
    unsigned output_period = 1;   // one output every this many steps
    unsigned output_fields = 256; // 256 U; 512 U and V; 1024 U, V and A
    log_handler log_hdl = nullptr;
    step_handler iteration_hdl = nullptr;
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;

    void reset() noexcept { *this = Newmark_settings(); }
    bool valid() const noexcept;
};

struct Newmark_inputs {
    FEM_states U_start; // column 0 the initial displacement (with its internal states), column 1 the velocity
};

struct Newmark_outputs {
    // Output j is the group of columns j f .. j f + f - 1 (f = 1, 2, 3 fields):
    // U, then V, then A at its time. The last group holds all three fields of the
    // last step done. Rows: the free DOFs in solver order.
    FEM_states U;
    dense1D<double, 8> times; // one per column of U
    double t = 0.0;           // the time reached
    unsigned nbr_steps_done = 0;
    unsigned bad_pivot_DOF = 0xFFFFFFFFu; // DOF of the offending pivot
};

struct Newmark_timers {
    double time_numbering = 0.0;
    double time_K_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0; // the steps: right-hand sides and solves
    double time_total = 0.0;
};

class solver_Newmark : public solver_base {
public:
    using settings_type = Newmark_settings;
    using data_type = solver_record<Newmark_inputs, Newmark_outputs, Newmark_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
