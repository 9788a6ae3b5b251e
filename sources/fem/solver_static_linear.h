// Linear statics with many right-hand sides: one matrix, one factorisation, block
// solves of the load cases, and a preconditioned conjugate gradient for the cases
// that prescribe DOFs which other cases leave free.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/run_estimate.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

// Reported after each iteration of the gradient on a case's prescribed DOFs.
using CG_iteration_handler = void (*)(void* user_data, unsigned load_case, unsigned iteration, double residual);

// The records of the static solvers, shared by the thermal one.
struct static_linear_inputs {
    FEM_states U_start; // optional: first column the starting state, with its internal states
};

struct static_linear_outputs {
    FEM_states U;                 // one column per load case: free DOFs in solver order, then prescribed ones out of K
    unsigned nbr_free_DOFs = 0;   // order of K
    unsigned nbr_prescribed_in_K = 0;
    unsigned nbr_prescribed_out_K = 0;
    unsigned nbr_rows = 0;        // of U
    dense1D<double, 8> energies;  // ½ uᵀ K u per load case
    dense1D<unsigned, 8> bad_IDs; // DOFs whose pivot was rejected or replaced
    unsigned nbr_bad = 0;
    double pivot_min = 0.0;
    double pivot_max = 0.0;
    unsigned bad_pivot_ID = 0xFFFFFFFFu; // DOF of the offending pivot
    double K_size_MB = 0.0;
    double RHS_size_MB = 0.0;
    double total_size_MB = 0.0; // compared with the context's limit
    bool uses_disk = false;     // K has a part in a swap file
};

struct static_linear_timers {
    double time_numbering = 0.0;
    double time_K_assembly = 0.0;
    double time_RHS_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0;
    double time_total = 0.0;
};

class solver_static_linear : public solver_base {
public:
    struct settings_type {
        bool RHS_only = false;     // stop after the right-hand sides: the output holds the loads
        bool force_pivots = false; // replace bad pivots by 1 instead of stopping
        unsigned CG_max_iters = 100;
        double CG_tolerance = 1e-8; // relative to the gradient's first residual
        log_handler log_hdl = nullptr;
        CG_iteration_handler iteration_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    using data_type = solver_record<static_linear_inputs, static_linear_outputs, static_linear_timers>;

    void run(data_type& data) const;

    // What `run` on `data` will need, from the numbering alone: nothing is
    // assembled and the record is left as it is. invalid_data_error when the
    // record names no model.
    [[nodiscard]] error_type estimate(const data_type& data, run_estimate& out) const;

    settings_type settings;
};

} // namespace kelt::fem
