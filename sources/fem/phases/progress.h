// The host's progress report of one phase of a run: the fraction done (flops for a
// factorisation, elements for an element loop, columns for the solves) and the
// time left by the rate so far, at most once per interval of the context, always
// from the thread that called `run`. Each report polls the host's interrupt, so a
// host that asks to stop from inside its progress handler ends the run there.
#pragma once

#include "kelt/core/element_records.h"
#include "kelt/engine/factorize.h"
#include "kelt/fem/solver_frame.h"

namespace kelt::core {

class phase_progress final : public factor_progress, public loop_progress {
public:
    // `total`: the units of the whole phase (flops, elements, columns).
    phase_progress(run_state& run, const char* phase, double total) noexcept;
    phase_progress(const phase_progress&) = delete;
    phase_progress& operator=(const phase_progress&) = delete;

    // No handler on the context and no interrupt to ask: nothing to report, and
    // the phase runs as without. With an interrupt alone, it is asked as often as
    // a report would be sent, so that a long phase stops soon after the host asks.
    bool active() const noexcept { return hdl_ != nullptr || polls_; }
    // Null when not active: what a phase hands down to a loop or a kernel.
    phase_progress* sink() noexcept { return active() ? this : nullptr; }

    // `done` units of the total reached; false when the run must stop.
    bool reach(double done);
    // The last report, at 1, unless the phase stopped.
    void finish();

    bool advance(double flops_done, double flops_total) override;
    bool counts_flops() const override { return hdl_ != nullptr; }
    bool elements_done(unsigned count) override { return reach(done_ + count); }

private:
    void send(double fraction, double now);

    run_state& run_;
    progress_handler hdl_ = nullptr;
    void* user_ = nullptr;
    const char* phase_;
    double total_, done_ = 0.0, interval_ = 0.1;
    double start_, last_ = -1.0, last_fraction_ = 0.0;
    bool stopped_ = false;
    bool polls_ = false;
};

} // namespace kelt::core
