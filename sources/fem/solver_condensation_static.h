// Static condensation: the structure reduced to a set of master DOFs, as a dense
// stiffness Kc = Kmm - Kmi K1⁻¹ Kim and loads Fc = Fm - Kmi K1⁻¹ Fi (one column per
// load case) that stand for the whole of it on those DOFs. K1, the interior
// stiffness, is factorised once; the coupling columns are solved in groups.
//
// settings.mode: 1 Kc and Fc; 2 Kc only (no load is assembled, no case needed);
// 3 Fc only (for new load cases on a structure already condensed: no coupling
// solve but that of the loads). settings.block_size: coupling columns per
// group of the many-column solve, 0 for the solver's choice (64, fewer when a
// group of them would pass a quarter of the context's budget or 256 MB).
// settings.force_pivots: 0 stops on a pivot at most 0, 1 replaces it by 1.
//
// The masters must be free DOFs of the model, each once, prescribed in no load
// case; DOFs prescribed in some cases only are refused, for K1 would then depend
// on the case. DOFs prescribed in every case leave K1, their values going to Fc.
#pragma once

#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::fem {

struct condensation_inputs {
    dense1D<unsigned, 8> master_IDs; // the DOFs kept: rows and columns of Kc, rows of Fc, in this order
};

struct condensation_outputs {
    symmetric_full<double> Kc;
    dense2D<double> Fc;          // masters x load cases
    dense1D<double, 8> energies; // ½ Fiᵀ K1⁻¹ Fi per case: the interior's energy with the masters held at 0
    unsigned nbr_free_DOFs = 0;  // order of K1
    unsigned nbr_masters = 0;
    dense1D<unsigned, 8> bad_IDs; // DOFs whose pivot was rejected or replaced
    unsigned nbr_bad = 0;
    double pivot_min = 0.0;
    double pivot_max = 0.0;
    unsigned bad_pivot_ID = 0xFFFFFFFFu;
    double K_size_MB = 0.0; // of K1
    double Kc_size_MB = 0.0;
    double RHS_size_MB = 0.0; // of Fc
    double total_size_MB = 0.0;
    bool uses_disk = false;
};

struct condensation_timers {
    double time_numbering = 0.0;
    double time_K_assembly = 0.0;
    double time_RHS_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0;
    double time_total = 0.0;
};

class solver_condensation_static : public solver_base {
public:
    struct settings_type {
        unsigned mode = 1;         // 1 Kc and Fc, 2 Kc only, 3 Fc only
        unsigned block_size = 0;   // coupling columns per solve, 0: the solver's choice
        unsigned force_pivots = 0; // 1: replace a pivot at most 0 by 1 instead of stopping
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return mode >= 1 && mode <= 3 && force_pivots <= 1; }
    };

    using data_type = solver_record<condensation_inputs, condensation_outputs, condensation_timers>;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
