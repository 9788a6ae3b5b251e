// Seismic response by spectrum combination: for each direction of excitation and
// each component of the modes, the modal responses are combined through a
// correlation matrix of the modes, the static pseudo modes added with full
// correlation, and the share that the pseudo modes bring is reported.
#pragma once

#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/fem/tables.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::fem {

// The correlation of the modal responses, from the pulsations of the modes.
class spectrum_combination {
public:
    virtual ~spectrum_combination() = default;
    virtual symmetric_full<double> operator()(const dense1D<double, 8>& omega) const = 0;
};

// Complete quadratic combination with a damping ratio per mode, read from a table
// of the pulsation.
class spectrum_combination_cqc : public spectrum_combination {
public:
    void init(const oneD_table& damping) { damping_ = damping; }
    // rho(i, j) for r = w[i] / w[j], a = x[i], b = x[j]:
    // 8 sqrt(a b r) r (r a + b) / ((1 - r²)² + 4 a b r (1 + r²) + 4 r² (a² + b²)).
    // Every pair is computed (i, j and j, i), the later one stays; the form gives
    // both the same value, unequal dampings included. A zero pulsation makes r
    // infinite: rigid modes are the host's to leave out.
    symmetric_full<double> operator()(const dense1D<double, 8>& omega) const override;

private:
    oneD_table damping_;
};

struct response_spectrum_settings {
    unsigned stride = 1;         // columns of each mode: the components combined
    unsigned nbr_directions = 1; // directions of excitation
    log_handler log_hdl = nullptr;
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;

    void reset() noexcept { *this = response_spectrum_settings(); }
    bool valid() const noexcept { return stride > 0; }
};

struct response_spectrum_inputs {
    FEM_states modes;               // stride columns per dynamic mode
    FEM_states pseudo_modes;        // stride columns per static pseudo mode, on the rows of `modes`
    unsigned nbr_dynamic_modes = 0;
    unsigned nbr_static_modes = 0;
    // Modal amplitude of mode i in direction d at (i, d): the participation factor
    // times the spectral displacement (PF_div_omega2 turns an acceleration's
    // factors into displacements).
    dense2D<double> PF;
    dense2D<double> static_PF;      // the same for the pseudo modes
    dense1D<double, 8> omega;       // pulsations of the dynamic modes (rad/s)
    const spectrum_combination* combination = nullptr;
};

struct response_spectrum_outputs {
    FEM_matrix response;            // column d * stride + c: direction d, component c
    dense1D<double, 8> correction;  // sqrt((T - D) / T) per column of `response`
};

struct response_spectrum_timers {
    double time_total = 0.0;
};

class solver_response_spectrum : public solver_base {
public:
    using settings_type = response_spectrum_settings;
    class data_type : public solver_record<response_spectrum_inputs, response_spectrum_outputs,
                                           response_spectrum_timers> {
    public:
        explicit data_type(const problem_data& p) : solver_record(p) {}
        // Each factor PF(i, d) over omega[i]²; code -101 and nothing changed when
        // PF has not one row per pulsation.
        void PF_div_omega2();
        bool valid() const;
    };

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
