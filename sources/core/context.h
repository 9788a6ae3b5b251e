// The run-wide object that a host creates first: the managers of models, time
// functions, bases, threads and memory budget, and the penalty and drilling factors.
#pragma once

#include "kelt/core/bases_mgr.h"
#include "kelt/core/evolution_funcs_mgr.h"
#include "kelt/core/numerical_models_mgr.h"
#include "kelt/core/process_mgr.h"

namespace kelt::core {

// The host's report of a run's progress: the phase, the fraction of it done and
// the seconds it has left by the rate so far (negative while unknown).
using progress_handler = void (*)(void* user_data, const char* phase, double fraction, double seconds_left);

class context_type : public ref_counted {
public:
    context_type();

    Ptr<core::numerical_models_mgr> numerical_models_mgr;
    Ptr<core::evolution_funcs_mgr> evolution_funcs_mgr;
    Ptr<core::bases_mgr> bases_mgr;
    Ptr<core::process_mgr> process_mgr;
    // The memory budget lives in the engine; held here by its counted base so that
    // this layer does not depend on it. Null until an in-core limit is set.
    Ptr<ref_counted> OOC_mgr;
    double raw_penalty_factor = 10000.0;
    double min_penalty_factor = 1e12;
    double shell_drilling_factor = 1e-6;
    // Progress of the runs on this context, at most once per `progress_interval`
    // seconds a phase, on the thread that called `run`.
    progress_handler progress_hdl = nullptr;
    void* progress_user_data = nullptr;
    double progress_interval = 0.1;
    // Flops a second of the factorisation on this machine, 0 until measured.
    double flop_rate = 0.0;
};

} // namespace kelt::core
