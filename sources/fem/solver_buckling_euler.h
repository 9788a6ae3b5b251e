// Linear (Euler) buckling: the critical multipliers of one load case, from the
// material stiffness K1 and the geometric stiffness K2 of the case's static
// stresses, K1 φ = λ (-K2) φ.
#pragma once

#include <cfloat>

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

struct buckling_Euler_settings {
    double lambda_min = 0.0;     // -DBL_MAX: no lower end
    double lambda_max = DBL_MAX; // DBL_MAX: no upper end
    unsigned nbr_modes = 1;      // 0: the run stops after its checks
    unsigned max_iters = 50;
    double tolerance = 0.001; // relative change of the multipliers between iterations
    log_handler log_hdl = nullptr;
    void* iteration_hdl = nullptr; // no per-iteration report
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;

    void reset() noexcept { *this = buckling_Euler_settings(); }
    bool valid() const noexcept { return max_iters > 0 && lambda_min < lambda_max && tolerance > 0.0; }
};

struct buckling_Euler_inputs {};

struct buckling_Euler_outputs {
    FEM_states modes;               // one column per multiplier, rows the free DOFs, (-K2)-norm 1
    dense1D<double, 8> lambdas;     // load multipliers, ascending
    unsigned nbr_modes_in_range = 0; // the Sturm count of the range
    unsigned nbr_free_DOFs = 0;
    double pivot_min = 0.0; // of K1
    double pivot_max = 0.0;
    unsigned error_DOF = 0xFFFFFFFFu;
    double energy = 0.0;    // Sᵀ K1⁻¹ S of the reference load
    double total_size_MB = 0.0;
};

struct buckling_Euler_timers {
    double time_numbering = 0.0;
    double time_assembly = 0.0;
    double time_resolution = 0.0;
    double time_total = 0.0;
};

class solver_buckling_Euler : public solver_base {
public:
    using settings_type = buckling_Euler_settings;
    using data_type = solver_record<buckling_Euler_inputs, buckling_Euler_outputs, buckling_Euler_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
