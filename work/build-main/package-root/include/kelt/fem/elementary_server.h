// One element of a model at a time: its matrix, vector and energy in a state,
// and its point results.
#pragma once

#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/fem/solver_reactions.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::fem {

struct elementary_inputs {
    unsigned NM_ID = 0xFFFFFFFFu; // the model; the problem's when none bears it
    unsigned element = 0;         // within that model
    FEM_states U;         // optional: the state, its column `state`
    unsigned state = 0;
};

struct elementary_outputs {
    symmetric_full<double> K;
    dense1D<double, 8> F; // the opposite of the internal forces
    double energy = 0.0;
    dense1D<unsigned, 8> IDs;       // the DOFs of K and F
    dense1D<unsigned, 8> point_IDs; // of the columns below
    dense2D<double> strains;        // per point: coordinates, then xx, yy, zz, xy, xz, yz
    dense2D<double> stresses;
    dense1D<double, 8> weights;     // determinant times rule weight per point
    dense2D<double> Kgen;           // a general element matrix, for the families that give one
};

class elementary_server : public solver_base {
public:
    struct settings_type {
        unsigned kind = 1;        // of the pass: 1 stiffness, 2 mass, ...
        unsigned matrix_mode = 1; // 0 none, 1 tangent, 2 material, 3 geometric
        double factor = 1.0;
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    // NM_ID names the input field, not the problem's model.
    class data_type : public solver_record<elementary_inputs, elementary_outputs, results_timers> {
    public:
        using solver_record::solver_record;
        using elementary_inputs::NM_ID;
    };

    // With `results`, the strains and stresses at the points as well.
    void run(data_type& data, bool results = true) const;

    settings_type settings;
};

} // namespace kelt::fem
