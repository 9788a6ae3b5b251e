// The working side of every run: the record's status (first error, warnings, the
// interrupt), the host's callbacks, the run log, the memory check, timers, and the
// frame of `run` that keeps every exception away from the host. Phases receive a
// `run_state` and nothing of the solver that calls them.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <new>

#include "kelt/core/FEM_states.h"
#include "kelt/core/context.h"
#include "kelt/core/problem_data.h"
#include "kelt/core/ref_counted.h"
#include "kelt/engine/iteration_observer.h"
#include "kelt/engine/wall_clock.h"
#include "kelt/fem/solver_base.h"

namespace kelt::core {

class OOC_mgr;

// Adds the time of a scope to a timer of the record.
class phase_timer {
public:
    explicit phase_timer(double& timer) noexcept : timer_(timer), start_(wall_clock()) {}
    ~phase_timer() { timer_ += wall_clock() - start_; }
    phase_timer(const phase_timer&) = delete;
    phase_timer& operator=(const phase_timer&) = delete;

private:
    double& timer_;
    double start_;
};

// The file name that a raised error reports: the source file, without its folders.
constexpr const char* source_name(const char* path) noexcept
{
    const char* name = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\') name = p + 1;
    return name;
}

inline constexpr double bytes_to_MB = 9.5367431640625e-07;

class run_state final : public iteration_observer {
public:
    template <class Settings>
    run_state(const Settings& s, fem::run_status& record)
        : log_hdl(s.log_hdl), interrupt_hdl(s.interrupt_hdl), user_data(s.user_data), status(record)
    {
    }
    run_state(const run_state&) = delete;
    run_state& operator=(const run_state&) = delete;

    // Takes the problem and its context for the run; with `compute_penalties` the
    // problem caches its penalty factors. The model forgets its internal states,
    // so that a run starts from a clean model.
    void set_problem(problem_data* p, bool compute_penalties);

    // True when the body must end: an error, or an interrupt asked by the host now
    // or earlier. The interrupt overwrites any warning.
    bool stop_requested() override;
    bool failed() const noexcept { return status.error_code != no_error; }
    bool interrupted() const noexcept { return status.warning_code == interrupted_warning; }
    // Neither an error nor an interrupt so far.
    bool going() const noexcept { return !failed() && !interrupted(); }

    // The first error stays.
    void raise_error(error_type code, const char* title, const char* file, int line);
    // Puts `why` before the source line of the error's detail: what the host can
    // act on. Nothing without an error.
    void explain(const char* why);
    // A warning is kept only on a clean record.
    void raise_warning(error_type code, const char* title);

    // One line of the run log, formatted in 256 characters; the text carries its
    // own line ending.
    __attribute__((format(printf, 3, 4))) void log(unsigned level, const char* format, ...) const;
    void log(unsigned level, const char* line) override;
    void iteration(unsigned k, double residual_norm) override
    {
        if (on_iteration) on_iteration(k, residual_norm);
    }

    // True when `megabytes` pass the context's limit. The default limit, 0xFFFFFFFF,
    // is none: a model whose estimate no longer fits 32 bits still runs where memory allows.
    bool above_total_limit(double megabytes) const noexcept;
    // "Insufficient memory." when `megabytes` pass the limit; false then.
    bool check_memory(double megabytes, const char* file, int line);

    unsigned threads() const noexcept;
    unsigned LLC_size() const noexcept;
    // The budget that large arrays share, null when all stay in core.
    OOC_mgr* OOC() const noexcept;

    fem::log_handler log_hdl;
    fem::interrupt_handler interrupt_hdl;
    void* user_data;
    fem::run_status& status;
    Ptr<problem_data> problem;
    Ptr<context_type> context;
    // The solver's per-iteration report to the host, if it gives one, and the
    // load case (or step) that the iterations belong to.
    std::function<void(unsigned, double)> on_iteration;
    unsigned current_case = 0;
};

#define KELT_RAISE(run, code, title) (run).raise_error((code), (title), __FILE__, __LINE__)

// The frame of every `run`: clear the record, check settings and data, run the
// body on a `run_state`, bring the output states in core, and turn whatever the
// body throws into the record's error.
template <class Settings, class Data, class Body>
void run_frame(const Settings& settings, Data& data, const char* invalid_settings_text,
               const char* invalid_data_text, Body&& body)
{
    fem::run_status& status = data;
    auto refuse = [&](const char* title, const char* text) {
        status.error_code = invalid_data_error;
        std::snprintf(status.msg_title, fem::run_status::text_size, "%s", title);
        std::snprintf(status.msg_detail, fem::run_status::text_size, "%s", text);
    };
    data.clear_data_out();
    if (invalid_settings_text && !settings.valid()) return refuse("MODE ERROR", invalid_settings_text);
    if (!data.valid()) return refuse("DATA ERROR", invalid_data_text);
    auto fail = [&](error_type code, const char* title) {
        if (status.error_code != no_error) return;
        status.error_code = code;
        std::snprintf(status.msg_title, fem::run_status::text_size, "%s", title);
        status.msg_detail[0] = 0;
    };
    try {
        run_state run(settings, status);
        body(run);
        // The output states end wholly in core: the whole of them if the budget
        // allows, else the part held now.
        if constexpr (requires { data.U; })
            if (auto* U = static_cast<FEM_real_states*>(fem::core_of(data.U)))
                if (U->cols() && !U->force_incore() && !U->in_core(0, 1)) fail(memory_error, "MEMORY ERROR");
    } catch (const std::bad_alloc&) {
        fail(memory_error, "MEMORY ERROR");
    } catch (...) {
        fail(internal_error, "INTERNAL ERROR");
    }
}

} // namespace kelt::core
