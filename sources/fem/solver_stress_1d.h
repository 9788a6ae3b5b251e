// Results of a one-dimensional model (beams, rods): section values at the two ends
// of each element (solver_stress_1d), and displacements, rotations, section forces
// and moments at points along each element with the element's own loads between
// its nodes (post_processor_1d). Section values are in the element's frame: forces
// N, Vy, Vz and moments T, My, Mz; a rod gives N only.
#pragma once

#include <cmath>

#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/fem/solver_reactions.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::fem {

struct stress_1d_inputs {
    FEM_matrix U; // the states, one per column (the solution of a static run)
};

struct stress_1d_outputs {
    // Rows: element numbers of the model. Per state 12 columns: N, My, Mz, T, Vy, Vz
    // at the first node, then at the second (strains in the same order with
    // `result` 1). A rod gives N at both ends and zeros.
    FEM_matrix results;
    unsigned nbr_elements = 0;
    // Over all elements and states: N_min, N_max, and the largest magnitudes of Vy,
    // Vz, T, My, Mz, of the shear resultant and of the bending resultant; and the
    // model's length.
    double N_min = 0.0, N_max = 0.0, Vy_max = 0.0, Vz_max = 0.0, T_max = 0.0, My_max = 0.0, Mz_max = 0.0;
    double V_max = 0.0, M_max = 0.0, length = 0.0;
};

class solver_stress_1d : public solver_base {
public:
    struct settings_type {
        unsigned result = 2;       // 1 generalised strains, 2 section forces
        bool global_frame = false; // forces and moments (strains alike) turned to the global axes
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    using data_type = solver_record<stress_1d_inputs, stress_1d_outputs, results_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

struct post_1d_inputs {
    FEM_matrix U;                 // one state per load case, column i for case i
    dense1D<unsigned, 8> elements; // the elements to sample, all when empty
};

struct post_1d_outputs {
    // 3 rows each; one column per (case, element, point), the points fastest, then
    // the elements in their order, then the cases. Displacements and rotations in
    // the global frame; forces (N, Vy, Vz) and moments (T, My, Mz) in the element's.
    dense2D<double> displacements, rotations, forces, moments;
    // Over all columns: N_min, N_max, and the largest magnitudes of Vy, Vz, T, My,
    // Mz, of the displacement and of the rotation.
    double N_min = 0.0, N_max = 0.0, Vy_max = 0.0, Vz_max = 0.0, T_max = 0.0, My_max = 0.0, Mz_max = 0.0;
    double displacement_max = 0.0, rotation_max = 0.0;
};

class post_processor_1d : public solver_base {
public:
    struct settings_type {
        // Points as fractions of each element's length from its first node: 0
        // first, increasing, at most 1. Empty: nbr_points evenly spaced from 0 to 1.
        dense1D<double, 8> abscissas;
        unsigned nbr_points = 2;
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept
        {
            if (abscissas.empty()) return nbr_points >= 2;
            if (abscissas.size() < 2 || !(std::fabs(abscissas[0]) <= 1e-12)) return false;
            for (unsigned i = 1; i < abscissas.size(); ++i)
                if (!(abscissas[i] > abscissas[i - 1]) || !(abscissas[i] <= 1.0)) return false;
            return true;
        }
    };

    using data_type = solver_record<post_1d_inputs, post_1d_outputs, results_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
