// What every public solver shares: the handle base, the host callbacks at the
// end of each settings record, and the status fields at the end of each data record.
#pragma once

#include <cstring>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"

namespace kelt::fem {

using log_handler = void (*)(void* user_data, unsigned level, const char* text);
using interrupt_handler = bool (*)(void* user_data);

// A solver is a value: its settings are a public member named `settings`, and
// `run(data_type&) const` does all the work on a record.
class solver_base : public base_class {
protected:
    solver_base() = default;
    solver_base(const solver_base&) = default;
    solver_base& operator=(const solver_base&) = default;
};

// The four callback fields of every settings record; `Iteration` is the type of
// the per-iteration report of the solvers that iterate.
template <class Iteration = void*>
struct run_callbacks {
    log_handler log_hdl = nullptr;
    Iteration iteration_hdl = nullptr;
    interrupt_handler interrupt_hdl = nullptr;
    void* user_data = nullptr;

    void reset_callbacks() noexcept { *this = run_callbacks(); }
};

// The status of a run, at the end of every data record.
struct run_status {
    static constexpr unsigned text_size = 256;

    error_type error_code = no_error;
    error_type warning_code = no_error;
    char msg_title[text_size] = {};
    char msg_detail[text_size] = {};

    bool error_raised() const noexcept { return error_code != no_error; }
    bool warning_raised() const noexcept { return warning_code != no_error; }
    void clear_status() noexcept
    {
        error_code = no_error;
        warning_code = no_error;
        msg_title[0] = 0;
        msg_detail[0] = 0;
    }
};

} // namespace kelt::fem
