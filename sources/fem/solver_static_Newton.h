// Non-linear statics: equilibrium in pseudo-time steps, each solved by a
// Newton-Raphson iteration on the displacements. Elements with a state (laws with
// history, finite strains, contact) give a tangent, a residual and trial states;
// this solver decides when each is evaluated and when the states become final.
// The loads, prescribed values and thermal loads are those of load case 0, at
// the step's time through their evolution functions.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

// Called once per iteration after its convergence decision: the time, the step
// (from 1), the iteration (from 0), the outputs kept so far, the energy, the
// norms of the correction and of the residual, the signed energy correction, and
// the three relative to the largest displacement, the reference force and the
// energy (0 where that reference is not positive).
using Newton_iteration_handler = void (*)(void* user_data, double t, unsigned step, unsigned iteration,
                                          unsigned output, double E, double dU, double dF, double dE,
                                          double rel_dU, double rel_dF, double rel_dE);

struct Newton_settings {
    double t_start = 0.0;
    double t_end = 1.0;
    unsigned nbr_steps = 1; // equal steps from t_start to t_end
    unsigned max_iters = 50; // per step
    double max_dU = 1.7976931348623157e308; // cap on the largest translation of one correction
    double max_dR = 0.5235987755982988;     // the same on rotations, in radians (pi / 6)
    unsigned nbr_forced_pivot_iters = 0;    // first iterations of a step that replace bad pivots at random
    double tol_U = 1e-4; // relative to the largest displacement
    double tol_F = 1e-4; // relative to the reference force
    double tol_E = 1e-8; // relative to the energy
    double tol_W = 1e-16; // absolute, on the work of a correction
    // When K is rebuilt: 0 never; 1 in every iteration of the steps k with (k - 1)
    // a multiple of the period; 2 in the iterations i that are multiples of the
    // period (full Newton with period 1); any other value: every iteration.
    unsigned K_update_mode = 2;
    unsigned K_update_period = 1; // in steps (mode 1) or iterations (mode 2); 0 acts as 1
    unsigned output_period = 1;   // one state kept every this many steps; 0 acts as 1
    log_handler log_hdl = nullptr;
    Newton_iteration_handler iteration_hdl = nullptr;
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;

    void reset() noexcept { *this = Newton_settings(); }
    bool valid() const noexcept;
};

struct Newton_inputs {
    FEM_states U_start; // column 0, with its internal states, is the initial state
};

struct Newton_outputs {
    // One column per kept step, then the open column: the state of the last step
    // started (unconverged when the run failed). Rows: the free DOFs in solver
    // order, then the prescribed ones.
    FEM_states U;
    dense1D<double, 8> times;       // of each kept column
    dense1D<double, 8> energy;      // elastic energy at the end of each step
    dense1D<double, 8> pivot_min;   // extremes of the last factorisation of each step
    dense1D<double, 8> pivot_max;
    dense1D<unsigned, 8> iters;     // iterations of each step
    unsigned nbr_steps_done = 0;    // steps started
    unsigned nbr_outputs = 0;       // columns kept
    unsigned total_iters = 0;
    double avg_iters = 0.0;         // total_iters / nbr_steps_done, at the end
    unsigned bad_pivot_DOF = 0xFFFFFFFFu; // DOF of the last reported pivot
};

struct Newton_timers {
    double time_numbering = 0.0;
    double time_K_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0; // the whole step loop
    double time_total = 0.0;
};

class solver_static_Newton : public solver_base {
public:
    using settings_type = Newton_settings;
    using data_type = solver_record<Newton_inputs, Newton_outputs, Newton_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
