#include "kelt/fem/solver_frame.h"

#include <algorithm>

#include "kelt/core/OOC_mgr.h"
#include "kelt/core/process_mgr.h"

namespace kelt::core {

namespace {
void copy_text(char* to, const char* text)
{
    std::snprintf(to, fem::run_status::text_size, "%s", text ? text : "");
}
} // namespace

void run_state::set_problem(problem_data* p, bool compute_penalties)
{
    problem = p;
    context = p ? p->context.get() : nullptr;
    if (!p) return;
    if (compute_penalties) p->compute_penalties();
    if (numerical_model_base* model = p->model()) model->clear_internal_states();
}

bool run_state::stop_requested()
{
    if (status.error_code != no_error) return true;
    if (status.warning_code != interrupted_warning && interrupt_hdl && interrupt_hdl(user_data))
        status.warning_code = interrupted_warning;
    return status.warning_code == interrupted_warning;
}

void run_state::raise_error(error_type code, const char* title, const char* file, int line)
{
    if (status.error_code != no_error) return;
    status.error_code = code;
    copy_text(status.msg_title, title);
    std::snprintf(status.msg_detail, fem::run_status::text_size, "\nFile = %s, Line #%d. \n", source_name(file),
                  line);
}

void run_state::explain(const char* why)
{
    if (status.error_code == no_error || !why) return;
    char detail[fem::run_status::text_size];
    std::snprintf(detail, sizeof detail, "%s%s", why, status.msg_detail);
    copy_text(status.msg_detail, detail);
}

void run_state::raise_warning(error_type code, const char* title)
{
    if (status.error_code != no_error || status.warning_code != no_error) return;
    status.warning_code = code;
    copy_text(status.msg_title, title);
    status.msg_detail[0] = 0;
}

void run_state::log(unsigned level, const char* format, ...) const
{
    if (!log_hdl) return;
    char line[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    log_hdl(user_data, level, line);
}

void run_state::log(unsigned level, const char* line)
{
    if (log_hdl) log_hdl(user_data, level, line);
}

bool run_state::above_total_limit(double megabytes) const noexcept
{
    const unsigned limit = context ? context->process_mgr->max_total_size : 0xFFFFFFFFu;
    return limit != 0xFFFFFFFFu && double(limit) < megabytes;
}

bool run_state::check_memory(double megabytes, const char* file, int line)
{
    if (!above_total_limit(megabytes)) return true;
    raise_error(insufficient_memory_error, "Insufficient memory.", file, line);
    char why[160];
    std::snprintf(why, sizeof why, "The run needs %.1f MB; the limit of the context (set_max_total_size) is %u MB.\n",
                  megabytes, context->process_mgr->max_total_size);
    explain(why);
    return false;
}

unsigned run_state::threads() const noexcept
{
    return context ? std::max(1u, context->process_mgr->max_threads) : 1u;
}

unsigned run_state::LLC_size() const noexcept { return context ? context->process_mgr->LLC_size : 0x100000u; }

OOC_mgr* run_state::OOC() const noexcept { return context ? the_OOC_mgr(*context) : nullptr; }

} // namespace kelt::core
