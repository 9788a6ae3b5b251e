// The working side of every solver: the stop check, the error and warning record,
// the run log, timers, the memory check, and the frame of `run` that keeps every
// exception away from the host.
#pragma once

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <initializer_list>
#include <new>

#include "kelt/core/assembler_base.h"
#include "kelt/core/context.h"
#include "kelt/engine/wall_clock.h"
#include "kelt/core/problem_data.h"
#include "kelt/core/ref_counted.h"
#include "kelt/fem/solver_base.h"

namespace kelt::core {


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

template <class Types, class Settings, class Data>
class solver_base : public ref_counted {
public:
    using settings_type = Settings;
    using data_type = Data;

    solver_base(const Settings& s, Data& d) : settings(s), data(&d) {}

    // Takes the problem and its context for the run; with `compute_penalties` the
    // problem caches its penalty factors. The model forgets its internal states,
    // so that a run starts from a clean model.
    void set_problem(problem_data* p, bool compute_penalties)
    {
        problem = p;
        context = p ? p->context.get() : nullptr;
        if (!p) return;
        if (compute_penalties) p->compute_penalties();
        if (Ptr<numerical_model_base> model = p->model()) model->clear_internal_states();
    }

    // True when the body must end: an error, or an interrupt asked by the host now
    // or earlier. The interrupt overwrites any warning.
    bool stop_requested()
    {
        if (data->error_code != no_error) return true;
        if (data->warning_code != interrupted_warning && settings.interrupt_hdl &&
            settings.interrupt_hdl(settings.user_data))
            data->warning_code = interrupted_warning;
        return data->warning_code == interrupted_warning;
    }

    // The first error stays.
    void raise_error(error_type code, const char* title, const char* file, int line)
    {
        if (data->error_code != no_error) return;
        data->error_code = code;
        copy_text(data->msg_title, title);
        std::snprintf(data->msg_detail, fem::run_status::text_size, "\nFile = %s, Line #%d. \n", source_name(file),
                      line);
    }

    // A warning is kept only on a clean record.
    void raise_warning(error_type code, const char* title)
    {
        if (data->error_code != no_error || data->warning_code != no_error) return;
        data->warning_code = code;
        copy_text(data->msg_title, title);
        data->msg_detail[0] = 0;
    }

    // One line of the run log, formatted in 256 characters; the text carries its
    // own line ending.
    __attribute__((format(printf, 3, 4))) void log(unsigned level, const char* format, ...) const
    {
        if (!settings.log_hdl) return;
        char line[256];
        va_list args;
        va_start(args, format);
        std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        settings.log_hdl(settings.user_data, level, line);
    }
    // True when `megabytes` pass the context's limit. The default limit, 0xFFFFFFFF,
    // is none: a model whose estimate no longer fits 32 bits still runs where memory allows.
    bool above_total_limit(double megabytes) const
    {
        const unsigned limit = context ? context->process_mgr->max_total_size : 0xFFFFFFFFu;
        return limit != 0xFFFFFFFFu && double(limit) < megabytes;
    }
    void log_memory(unsigned level, const char* format, unsigned count, double megabytes) const
    {
        log(level, format, count, megabytes);
    }
    void log_value(unsigned level, const char* format, double value) const { log(level, format, value); }

    // Raises `insufficient_memory_error` when the requests, in bytes, add up to more
    // megabytes than the context allows. Returns false then.
    bool check_memory(std::initializer_list<double> request_bytes, const char* file, int line)
    {
        double total = 0.0;
        for (double b : request_bytes) total += b * bytes_to_MB;
        if (above_total_limit(total)) {
            raise_error(insufficient_memory_error, "Insufficient memory.", file, line);
            return false;
        }
        return true;
    }

    // Where a solver wants no matrix or no vector built.
    matrix_null_assembler matrix_null;
    vector_null_assembler vector_null;
    Ptr<problem_data> problem;
    Ptr<context_type> context;
    Settings settings;
    Data* data;

private:
    static void copy_text(char* to, const char* text)
    {
        std::snprintf(to, fem::run_status::text_size, "%s", text ? text : "");
    }
};

#define KELT_RAISE(solver, code, title) (solver).raise_error((code), (title), __FILE__, __LINE__)

// The frame of every `run`: clear the record, check settings and data, run the
// body, and turn whatever it throws into the record's error.
template <class Solver, class Body>
void run_frame(Solver& solver, const char* invalid_settings_text, const char* invalid_data_text, Body&& body)
{
    auto& data = *solver.data;
    data.clear_data_out();
    if (invalid_settings_text && !solver.settings.valid()) {
        data.error_code = invalid_data_error;
        std::snprintf(data.msg_title, fem::run_status::text_size, "%s", "MODE ERROR");
        std::snprintf(data.msg_detail, fem::run_status::text_size, "%s", invalid_settings_text);
        return;
    }
    if (!data.valid()) {
        if (data.error_code == no_error) {
            data.error_code = invalid_data_error;
            std::snprintf(data.msg_title, fem::run_status::text_size, "%s", "DATA ERROR");
            std::snprintf(data.msg_detail, fem::run_status::text_size, "%s", invalid_data_text);
        }
        return;
    }
    try {
        body();
    } catch (const std::bad_alloc&) {
        if (data.error_code == no_error) {
            data.error_code = memory_error;
            std::snprintf(data.msg_title, fem::run_status::text_size, "%s", "MEMORY ERROR");
            data.msg_detail[0] = 0;
        }
    } catch (...) {
        if (data.error_code == no_error) {
            data.error_code = internal_error;
            std::snprintf(data.msg_title, fem::run_status::text_size, "%s", "INTERNAL ERROR");
            data.msg_detail[0] = 0;
        }
    }
}

} // namespace kelt::core
