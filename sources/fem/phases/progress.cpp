#include "kelt/fem/phases/progress.h"

#include <algorithm>
#include <chrono>

namespace kelt::core {

namespace {
// Seconds of a steady clock: the wall clock of the log has milliseconds only.
double now_seconds() noexcept
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}
} // namespace

phase_progress::phase_progress(run_state& run, const char* phase, double total) noexcept
    : run_(run), phase_(phase), total_(total), start_(now_seconds())
{
    if (const context_type* c = run.context.get(); c && c->progress_hdl) {
        hdl_ = c->progress_hdl;
        user_ = c->progress_user_data;
        interval_ = c->progress_interval;
    }
    polls_ = run.interrupt_hdl != nullptr;
}

void phase_progress::send(double fraction, double now)
{
    // The rounding of a sum of units must not make the fraction go back.
    fraction = std::clamp(fraction, last_fraction_, 1.0);
    const double elapsed = now - start_;
    const double left = fraction > 0.0 ? elapsed * (1.0 - fraction) / fraction : -1.0;
    hdl_(user_, phase_, fraction, left);
    last_ = now;
    last_fraction_ = fraction;
}

bool phase_progress::reach(double done)
{
    if (!active()) return true;
    if (stopped_) return false;
    done_ = done;
    const double now = now_seconds();
    if (last_ >= 0.0 && now - last_ < interval_) return true;
    if (hdl_)
        send(total_ > 0.0 ? done_ / total_ : 1.0, now);
    else
        last_ = now;
    stopped_ = run_.stop_requested();
    return !stopped_;
}

void phase_progress::finish()
{
    if (!hdl_ || stopped_ || !run_.going() || last_fraction_ == 1.0) return;
    send(1.0, now_seconds());
}

bool phase_progress::advance(double flops_done, double flops_total)
{
    total_ = flops_total;
    return reach(flops_done);
}

} // namespace kelt::core
