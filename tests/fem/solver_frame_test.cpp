// The run protocol through a small solver written here: validation, stop checks,
// the first-error rule, warnings, the log, the memory check, exceptions, and the
// problem that a run takes from its record.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelt/core/problem_data.h"
#include "kelt/fem/context.h"
#include "kelt/fem/problem_data.h"
#include "kelt/fem/solver_frame.h"
#include "support/log_capture.h"

using namespace kelt;
using test::log_capture;

namespace {

// What the test solver's body does, step by step.
enum class action { log_phase, warn_pivot, warn_convergence, raise_pivot, raise_memory, throw_bad_alloc, throw_other, need_memory };

class counting_solver : public fem::solver_base {
public:
    struct settings_type : fem::run_callbacks<> {
        int phases = 3;
        std::vector<action> actions;
        void reset() { *this = settings_type(); }
        bool valid() const { return phases >= 0; }
    };
    struct data_type : fem::problem_data, fem::run_status {
        explicit data_type(const fem::problem_data& p) : fem::problem_data(p) {}
        unsigned phases_done = 0;
        double total_time = 0.0;
        void clear_data_out()
        {
            clear_status();
            phases_done = 0;
            total_time = 0.0;
        }
        bool valid() const { return has_numerical_model(); }
    };

    counting_solver() { settings.reset(); }
    void run(data_type& data) const;

    settings_type settings;
};

// The body: phases that each start with a stop check and do what the settings ask.
void counting_body(core::run_state& run, const counting_solver::settings_type& settings,
                   counting_solver::data_type& data)
{
    run.set_problem(static_cast<core::problem_data*>(fem::core_of(data)), true);
    core::phase_timer total(data.total_time);
    run.log(0, "KELT counting solver.\n");
    for (int p = 0; p < settings.phases; ++p) {
        if (run.stop_requested()) return;
        for (action a : settings.actions) switch (a) {
            case action::log_phase: run.log(2, "Value = %g.\n", 1.5); break;
            case action::warn_pivot: run.raise_warning(pivot_warning, "Pivot warning."); break;
            case action::warn_convergence: run.raise_warning(convergence_warning, "Convergence warning."); break;
            case action::raise_pivot: KELT_RAISE(run, pivot_error, "Pivot error."); break;
            case action::raise_memory: KELT_RAISE(run, memory_error, "Memory error."); break;
            case action::throw_bad_alloc: throw std::bad_alloc();
            case action::throw_other: throw std::runtime_error("unexpected");
            case action::need_memory: (void)run.check_memory(1.5 + 0.75, __FILE__, __LINE__); break;
            }
        ++data.phases_done;
        run.log(1, "Phase %d done.\n", p);
    }
}

void counting_solver::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT counting: invalid settings.\n", "KELT counting: invalid data.\n",
                    [&](core::run_state& run) { counting_body(run, settings, data); });
}

// The smallest model: it counts how often a run resets it.
class resettable_model : public core::numerical_model_base {
public:
    explicit resettable_model(core::context_type* ctx) : numerical_model_base(ctx) {}
    double get_stiffness_scale(field_tag f) const override { return f == displacement_tag ? 1e9 : 1e7; }
    void clear_internal_states() override { ++resets; }
    unsigned resets = 0;
};

// A context with one registered model and a one-case problem on it; the registry
// is cleared at the end, which breaks the ring between the context and its model.
struct test_problem {
    test_problem() : problem(ctx)
    {
        model = new resettable_model(static_cast<core::context_type*>(fem::core_of(ctx)));
        EXPECT_EQ(model->record(), no_error);
        dense2D<double> pos(3, 2);
        fem::DOFs_mgr DOFs(2, true);
        problem.init(pos, DOFs, model->ID, 1);
    }

    fem::context ctx;
    fem::problem_data problem;
    Ptr<resettable_model> model;
};

counting_solver with_capture(log_capture& c)
{
    counting_solver s;
    test::report_to(s.settings, c);
    return s;
}

// Every run: a solver that reports to a capture, and a record of the one-case problem.
struct solver_frame : ::testing::Test {
    log_capture c;
    counting_solver s = with_capture(c);
    test_problem t;
    counting_solver::data_type d{t.problem};
};

} // namespace

TEST_F(solver_frame, clean_run_logs_every_phase_with_its_level)
{
    s.run(d);
    EXPECT_FALSE(d.error_raised());
    EXPECT_FALSE(d.warning_raised());
    EXPECT_EQ(d.phases_done, 3u);
    ASSERT_EQ(c.lines.size(), 4u);
    EXPECT_EQ(c.lines[0].first, 0u);
    EXPECT_EQ(c.lines[2].second, "Phase 1 done.\n");
    EXPECT_GE(d.total_time, 0.0);
    EXPECT_EQ(c.interrupt_calls, 3);
}

TEST_F(solver_frame, invalid_settings_then_data_are_refused_before_any_log)
{
    s.settings.phases = -1;
    s.run(d);
    EXPECT_EQ(d.error_code, invalid_data_error);
    EXPECT_STREQ(d.msg_title, "MODE ERROR");
    EXPECT_STREQ(d.msg_detail, "KELT counting: invalid settings.\n");

    s.settings.phases = 2;
    dense2D<double> pos = d.get_pos_matrix();
    fem::DOFs_mgr DOFs = d.get_DOFs_mgr();
    d.init(pos, DOFs, t.model->ID + 1, 1); // names no model
    s.run(d); // the record is cleared first: a new error, not the old one
    EXPECT_EQ(d.error_code, invalid_data_error);
    EXPECT_STREQ(d.msg_title, "DATA ERROR");
    EXPECT_STREQ(d.msg_detail, "KELT counting: invalid data.\n");
    EXPECT_TRUE(c.lines.empty());
    EXPECT_EQ(c.interrupt_calls, 0);

}

TEST_F(solver_frame, first_error_stays_stops_the_run_and_no_warning_replaces_it)
{
    s.settings.actions = {action::raise_pivot, action::raise_memory};
    s.run(d);
    EXPECT_EQ(d.error_code, pivot_error);
    EXPECT_STREQ(d.msg_title, "Pivot error.");
    const std::string detail = d.msg_detail;
    EXPECT_EQ(detail.rfind("\nFile = solver_frame_test.cpp, Line #", 0), 0u) << detail;
    EXPECT_EQ(detail.substr(detail.size() - 3), ". \n");
    EXPECT_EQ(d.phases_done, 1u); // the failing phase ends, the next stop check ends the run

    s.settings.actions = {action::raise_memory, action::warn_pivot};
    s.run(d);
    EXPECT_EQ(d.error_code, memory_error);
    EXPECT_EQ(d.warning_code, no_error);
    EXPECT_STREQ(d.msg_title, "Memory error.");
}

TEST_F(solver_frame, warnings_keep_the_first_and_the_interrupt_overwrites)
{
    s.settings.actions = {action::warn_pivot, action::warn_convergence};
    s.run(d);
    EXPECT_EQ(d.warning_code, pivot_warning);
    EXPECT_STREQ(d.msg_title, "Pivot warning.");
    EXPECT_STREQ(d.msg_detail, "");
    EXPECT_EQ(d.phases_done, 3u); // a warning does not stop

    // Stop at the second check, after a warning was stored, then at the first,
    // which is polled once.
    for (int after : {1, 0}) {
        c = log_capture();
        c.interrupt_at = after;
        s.run(d);
        EXPECT_EQ(d.error_code, no_error);
        EXPECT_EQ(d.warning_code, interrupted_warning);
        EXPECT_EQ(d.phases_done, unsigned(after));
        EXPECT_EQ(c.interrupt_calls, after + 1);
    }
}

TEST_F(solver_frame, exceptions_become_errors)
{
    s.settings.actions = {action::throw_bad_alloc};
    s.run(d);
    EXPECT_EQ(d.error_code, memory_error);
    EXPECT_STREQ(d.msg_title, "MEMORY ERROR");
    EXPECT_STREQ(d.msg_detail, "");

    s.settings.actions = {action::throw_other};
    s.run(d);
    EXPECT_EQ(d.error_code, internal_error);
    EXPECT_STREQ(d.msg_title, "INTERNAL ERROR");

    s.settings.actions = {action::raise_pivot, action::throw_other};
    s.run(d); // an error raised before the throw stays
    EXPECT_EQ(d.error_code, pivot_error);
}

TEST_F(solver_frame, memory_check_against_the_context_limit)
{
    s.settings.actions = {action::need_memory}; // 2.25 MB asked
    t.ctx.set_max_total_size(3);
    s.run(d);
    EXPECT_EQ(d.error_code, no_error);
    t.ctx.set_max_total_size(2);
    s.run(d);
    EXPECT_EQ(d.error_code, insufficient_memory_error);
    EXPECT_STREQ(d.msg_title, "Insufficient memory.");
    EXPECT_EQ(d.phases_done, 1u); // the next stop check ends the run
}

TEST_F(solver_frame, null_handlers_change_no_result)
{
    counting_solver without;
    s.settings.actions = without.settings.actions = {action::log_phase, action::warn_pivot};
    counting_solver::data_type b(t.problem);
    s.run(d);
    without.run(b);
    EXPECT_EQ(d.phases_done, b.phases_done);
    EXPECT_EQ(d.warning_code, b.warning_code);
    EXPECT_STREQ(d.msg_title, b.msg_title);
    EXPECT_FALSE(c.lines.empty());
}

TEST_F(solver_frame, long_log_lines_are_cut_at_the_buffer)
{
    core::run_state run(s.settings, d);
    run.log(2, "%s", std::string(600, 'x').c_str());
    ASSERT_EQ(c.lines.size(), 1u);
    EXPECT_EQ(c.lines[0].second.size(), 255u);
}

TEST_F(solver_frame, a_run_takes_the_problem_caches_its_penalties_and_resets_the_model)
{
    t.ctx.set_raw_penalty_factor(100.0);
    t.ctx.set_min_penalty_factor(1.0);
    s.run(d);
    ASSERT_FALSE(d.error_raised());
    EXPECT_EQ(t.model->resets, 1u);
    const auto& problem = *static_cast<core::problem_data*>(fem::core_of(t.problem));
    EXPECT_EQ(problem.penalty_displacement, 1e11); // the record shares the problem
    EXPECT_EQ(problem.penalty_rotation, 1e9);
    s.run(d);
    EXPECT_EQ(t.model->resets, 2u);
}
