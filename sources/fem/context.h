// The context: created first by a host, it holds the managers and settings that
// every model and run of one analysis share.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/bases_mgr.h"
#include "kelt/fem/evolution_funcs_mgr.h"
#include "kelt/fem/numerical_models_mgr.h"

namespace kelt::fem {

// The progress of a run: the phase ("matrix assembly", "factorization",
// "resolution"), the fraction of it done, and the seconds it has left by the rate
// so far (negative while unknown).
using progress_handler = void (*)(void* user_data, const char* phase, double fraction, double seconds_left);

class context : public base_class {
public:
    context();

    double get_raw_penalty_factor() const;
    void set_raw_penalty_factor(double f);
    double get_min_penalty_factor() const;
    void set_min_penalty_factor(double f);
    double get_shell_drilling_factor() const;
    void set_shell_drilling_factor(double f);

    // Threads of every parallel region: at most what OpenMP offers, at least 1.
    unsigned get_max_threads() const;
    void set_max_threads(unsigned n);
    // Last-level cache in bytes, which sizes the blocking of the factorisation.
    unsigned get_LLC_size() const;
    void set_LLC_size(unsigned bytes);
    // Limit in megabytes on the memory a run may estimate.
    void set_max_total_size(unsigned mb);
    // In-core budget in megabytes for the large arrays; 0 or 0xFFFFFFFF keeps all
    // in core. Swap files go to path + name (defaults "/" and "tmp/").
    [[nodiscard]] error_type set_max_incore_size(unsigned mb, const char* path = nullptr, const char* name = nullptr);
    [[nodiscard]] error_type memory_management(unsigned mb, const char* path = nullptr, const char* name = nullptr);

    // Progress of every run on this context, on the thread that called `run`, at
    // most once per `interval` seconds a phase, and at the end of each. A handler
    // that wants the run to stop makes the solver's `interrupt_hdl` say so: it is
    // polled after each report. Null: no report, and no cost.
    void set_progress_handler(progress_handler handler, void* user_data, double interval = 0.1);

    // Flops a second of the factorisation on this machine, measured once by a
    // short factorisation of a dense block (a few tens of milliseconds) and kept.
    double measure_factor_rate();

    numerical_models_mgr the_NM_mgr() const;
    bases_mgr the_bases_mgr() const;
    evolution_funcs_mgr the_evol_funcs_mgr() const;
};

// The library's version text.
const char* version();

} // namespace kelt::fem
