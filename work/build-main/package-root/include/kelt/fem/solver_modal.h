// Undamped vibration modes in a frequency band, with static modes for the load
// cases, and the modal damping data computed from them afterwards. The load-
// dependent Ritz variant grows its basis from the static modes instead.
#pragma once

#include <cfloat>

#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::fem {

// Called after each iteration of the eigen solution; may overrule `converged`.
using convergence_handler = void (*)(void* user_data, unsigned iteration, double residue, bool& converged);

struct modal_settings {
    double freq_min = 0.0;     // Hz
    double freq_max = DBL_MAX; // Hz; from 2.861117485757028e+307 on, no upper end
    unsigned max_modes = 1;    // 0 without static_modes_only: nothing to do
    unsigned static_mode_count = 1;
    bool static_modes_only = false; // no eigen solution
    unsigned max_iters = 50;
    double tolerance = 0.001; // relative change of the eigenvalues between iterations
    log_handler log_hdl = nullptr;
    void* iteration_hdl = nullptr; // no per-iteration report: the convergence check stands for it
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;
    convergence_handler convergence_check = nullptr;

    void reset() noexcept { *this = modal_settings(); }
    // A band that is not a number is no band.
    bool valid() const noexcept
    {
        return freq_min == freq_min && (freq_min > 0.0 ? freq_min : 0.0) < freq_max && max_iters > 0 && tolerance > 0.0;
    }
};

struct modal_inputs {};

struct modal_outputs {
    FEM_matrix modes;                   // one column per mode, M-norm 1, rows the free DOFs
    FEM_matrix static_modes;            // one column per load case
    dense1D<double, 8> freqs;           // Hz, ascending
    unsigned nbr_modes_in_range = 0;    // the Sturm count, or the number of free DOFs
    unsigned nbr_free_DOFs = 0;
    dense1D<double, 8> static_participation; // ½ Fᵀ K⁻¹ F per load case
    dense2D<double> dynamic_participation;   // φᵢ . F_j: one row per mode, one column per case
    double pivot_min = 0.0;
    double pivot_max = 0.0;
    unsigned error_DOF = 0xFFFFFFFFu; // DOF of the offending pivot
    double K_size_MB = 0.0;
    double Kcpy_size_MB = 0.0;
    double M_size_MB = 0.0;
    double S_modes_size_MB = 0.0;
    double D_modes_size_MB = 0.0;
    double total_size_MB = 0.0; // compared with the context's limit
    bool uses_disk = false;
};

struct modal_timers {
    double time_numbering = 0.0;
    double time_K_assembly = 0.0;
    double time_M_assembly = 0.0;
    double time_RHS_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0;
    double time_total = 0.0;
};

class solver_modal : public solver_base {
public:
    using settings_type = modal_settings;
    using data_type = solver_record<modal_inputs, modal_outputs, modal_timers>;

    void run(data_type& data) const;

    // decay[i] = -½ φᵢᵀ C φᵢ, C the damping the models assemble.
    void compute_damping_decay_factors(data_type& data, dense1D<double, 8>& decay) const;
    // decay[i] = -½ coeffs[i] |φᵢ|²; one coefficient per mode, else "DATA ERROR".
    void compute_damping_decay_factors(data_type& data, const dense1D<double, 8>& coeffs,
                                       dense1D<double, 8>& decay) const;
    // decay[i] = -½ alpha |φᵢ|², all 0 for alpha 0 or not a number.
    static void compute_damping_decay_factors(const FEM_matrix& modes, double alpha, dense1D<double, 8>& decay);
    void compute_damping_decay_factors(data_type& data, double alpha, dense1D<double, 8>& decay) const
    {
        compute_damping_decay_factors(data.modes, alpha, decay);
    }
    // First-order corrections of the modes by the coupling terms φⱼᵀ C φᵢ.
    void compute_damping_corrections(data_type& data, dense1D<double, 8>& decay, FEM_matrix& corrections) const;

    settings_type settings;
};

struct modal_ldrv_outputs {
    unsigned nbr_blocks = 0; // Ritz blocks grown
};

class solver_modal_ldrv : public solver_base {
public:
    using settings_type = modal_settings;
    class data_type : public solver_modal::data_type, public modal_ldrv_outputs {
    public:
        explicit data_type(const problem_data& p) : solver_modal::data_type(p) {}
        void clear_data_out()
        {
            solver_modal::data_type::clear_data_out();
            static_cast<modal_ldrv_outputs&>(*this) = modal_ldrv_outputs();
        }
    };

    void run(data_type& data) const;

    void compute_damping_decay_factors(data_type& data, dense1D<double, 8>& decay) const
    {
        solver_modal s;
        s.settings = settings;
        s.compute_damping_decay_factors(data, decay);
    }
    void compute_damping_decay_factors(data_type& data, const dense1D<double, 8>& coeffs,
                                       dense1D<double, 8>& decay) const
    {
        solver_modal s;
        s.settings = settings;
        s.compute_damping_decay_factors(data, coeffs, decay);
    }
    void compute_damping_decay_factors(data_type& data, double alpha, dense1D<double, 8>& decay) const
    {
        solver_modal::compute_damping_decay_factors(data.modes, alpha, decay);
    }
    void compute_damping_corrections(data_type& data, dense1D<double, 8>& decay, FEM_matrix& corrections) const
    {
        solver_modal s;
        s.settings = settings;
        s.compute_damping_corrections(data, decay, corrections);
    }

    settings_type settings;
};

} // namespace kelt::fem
