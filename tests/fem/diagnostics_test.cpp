// What a run tells a host before and while it costs: the factor's size and flops
// from the numbering alone against what the run allocates and counts, a budget
// that cannot hold the run refused before assembly, progress by phase with the
// interrupt from inside it, and singular models named by parts and modes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kelt/engine/factor_cost.h"
#include "kelt/engine/factorize.h"
#include "kelt/fem.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "support/log_capture.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// A block of hexa8, clamped on x = 0, pulled along z at x = n[0].
struct block {
    explicit block(unsigned nx, unsigned ny, unsigned nz)
        : m(box_mesh(element_hexa8, {double(nx), double(ny), double(nz)}, {nx, ny, nz}))
    {
        const unsigned model = t.solid(m, 1000.0, 0.3);
        fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
        for (unsigned v = 0; v < m.nbr_nodes(); ++v)
            if (m.pos(0, v) == 0.0) {
                EXPECT_EQ(DOFs.set(v, displacement_tag, false), no_error);
            }
        problem = fem::problem_data(t.ctx, m.pos, DOFs, model, 2);
        for (unsigned v = 0; v < m.nbr_nodes(); ++v)
            if (m.pos(0, v) == double(nx)) {
                EXPECT_EQ(problem.get_loads_mgr(1).record_DOF_load(dof(v, 2), 1.0, no_func), no_error);
            }
    }
    test_context t;
    mesh m;
    fem::problem_data problem{t.ctx};
};

struct flop_counter final : core::factor_progress {
    double done = 0.0;
    bool advance(double flops_done, double) override { return done = flops_done, true; }
};

// A dense matrix of order n cut into blocks at `cuts`.
core::profile_type dense_profile(unsigned n, std::vector<unsigned> cuts)
{
    core::profile_type p;
    cuts.push_back(n);
    unsigned first = 0;
    for (unsigned end : cuts) {
        core::block_profile_type& b = p.blocks.emplace_back();
        b.first = first, b.end = end;
        for (unsigned c = first; c < n; ++c) b.segments.push_back({c, c < end ? c - first : end - first});
        first = end;
    }
    return p;
}

std::vector<std::string> lines_with(const log_capture& c, const std::string& key)
{
    std::vector<std::string> out;
    for (const auto& l : c.lines) if (l.second.find(key) != std::string::npos) out.push_back(l.second);
    return out;
}

fem::solver_static_linear::data_type solve(const fem::problem_data& p, log_capture& c)
{
    fem::solver_static_linear s;
    report_to(s.settings, c);
    fem::solver_static_linear::data_type data(p);
    s.run(data);
    return data;
}

} // namespace

// Gaussian elimination of a dense matrix of order n costs n (n² - 1) / 3 flops,
// however the matrix is cut into blocks; the factorisation counts as much.
TEST(factor_cost, dense_matrix_costs_the_textbook_flops_in_any_blocks)
{
    struct row { unsigned n; std::vector<unsigned> cuts; } rows[] = {
        {1, {}}, {2, {1}}, {7, {}}, {7, {3}}, {40, {1, 17, 39}}, {300, {100, 200}}};
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.n << " in " << r.cuts.size() + 1 << " blocks");
        const core::profile_type p = dense_profile(r.n, r.cuts);
        const double n = r.n;
        EXPECT_EQ(core::factor_flops(p), n * (n * n - 1.0) / 3.0);
        core::symmetric_hybrid_OOC<double> A;
        ASSERT_EQ(A.create(p, r.n, 0.5), no_error);
        for (unsigned b = 0; b < A.nbr_blocks(); ++b) {
            const core::symmetric_skyline_block v = A.proxy()->block_for_access(b);
            for (unsigned s = 0; s < v.dim; ++s) v.diag()[s] = n;
        }
        core::pivot_check_positive checker;
        flop_counter counted;
        ASSERT_EQ(core::factorize(A, checker, 1u << 20, 2, &counted), no_error);
        EXPECT_EQ(counted.done, core::factor_flops(p));
    }
}

// The estimate is the run's: the values it allocates for K, the flops its
// factorisation counts, its order, and whether the budget sends it to disk.
TEST(solver_static_linear_estimate, equals_what_the_run_allocates_and_counts)
{
    block b(12, 6, 6);
    fem::solver_static_linear s;
    fem::solver_static_linear::data_type data(b.problem);
    fem::run_estimate e;
    ASSERT_EQ(s.estimate(data, e), no_error);
    EXPECT_GT(e.flop_rate, 0.0);
    EXPECT_FALSE(e.out_of_core);

    core::problem_data& p = *core::problem_of(data);
    fem::run_status status;
    core::run_state run(s.settings, status);
    run.set_problem(&p, true);
    core::numbering n;
    double timer = 0.0;
    ASSERT_TRUE(core::number_DOFs(run, *p.model(), core::kind_stiffness, core::collect_prescribed(p).common, false, n,
                                  timer));
    core::indexed_sym_matrix K;
    ASSERT_TRUE(core::assemble_matrix(run, *p.model(), core::kind_stiffness, core::make_pass(p), n, K, timer));
    EXPECT_EQ(e.factor_bytes, std::uint64_t(K.matrix.proxy()->nbr_values()) * 8);
    core::pivot_check_positive checker;
    flop_counter counted;
    ASSERT_EQ(core::factorize(K.matrix, checker, run.LLC_size(), run.threads(), &counted), no_error);
    EXPECT_EQ(counted.done, e.factor_flops);

    log_capture c;
    const auto solved = solve(b.problem, c);
    ASSERT_EQ(solved.error_code, no_error) << solved.msg_title << solved.msg_detail;
    EXPECT_EQ(e.nbr_free_DOFs, solved.nbr_free_DOFs);
    EXPECT_EQ(e.states_bytes, std::uint64_t(solved.nbr_rows) * 2 * 8);
}

// Whether a budget sends the run to disk is what the memory manager then does.
TEST(solver_static_linear_estimate, foretells_whether_the_budget_sends_the_run_to_disk)
{
    block b(24, 6, 6); // K of 4.5 MB, its least window 1.1 MB
    const std::string root = std::filesystem::temp_directory_path().string() + "/";
    for (unsigned MB : {0u, 2u, 64u}) {
        SCOPED_TRACE(MB);
        std::filesystem::create_directories(root + "kelt_diag_disk/");
        ASSERT_EQ(b.t.ctx.set_max_incore_size(MB, root.c_str(), "kelt_diag_disk/"), no_error);
        fem::solver_static_linear s;
        fem::solver_static_linear::data_type data(b.problem);
        fem::run_estimate e;
        ASSERT_EQ(s.estimate(data, e), no_error);
        s.run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        EXPECT_EQ(e.out_of_core, data.uses_disk);
        EXPECT_EQ(e.out_of_core, MB == 2u);
        if (e.out_of_core) {
            EXPECT_LE(e.peak_incore_bytes, e.budget_bytes);
            EXPECT_GE(e.disk_bytes, e.factor_bytes);
        }
        std::filesystem::remove_all(root + "kelt_diag_disk/");
    }
}

// A budget below the least window of K is refused at once, with both figures,
// before anything is assembled.
TEST(solver_static_linear_estimate, a_budget_too_small_is_refused_before_assembly)
{
    block b(32, 8, 8); // K's least window is near 3 MB
    const std::string root = std::filesystem::temp_directory_path().string() + "/";
    const std::filesystem::path folder = root + "kelt_diag_budget/";
    std::filesystem::create_directories(folder);
    ASSERT_EQ(b.t.ctx.set_max_incore_size(1, root.c_str(), "kelt_diag_budget/"), no_error);
    log_capture c;
    const auto data = solve(b.problem, c);
    EXPECT_EQ(data.error_code, insufficient_memory_error);
    EXPECT_STREQ(data.msg_title, "Insufficient memory.");
    const std::string detail = data.msg_detail;
    EXPECT_NE(detail.find("MB in core; the in-core budget is 1.0 MB"), std::string::npos) << detail;
    EXPECT_FALSE(c.has("Numerical assembly"));
    EXPECT_EQ(data.time_RHS_assembly + data.time_K_assembly, 0.0);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::remove_all(folder);

    // The same run against the context's limit on its total: the figure and the limit.
    block c2(32, 8, 8);
    c2.t.ctx.set_max_total_size(1);
    const auto limited = solve(c2.problem, c);
    EXPECT_EQ(limited.error_code, insufficient_memory_error);
    EXPECT_NE(std::string(limited.msg_detail).find("(set_max_total_size) is 1 MB"), std::string::npos)
        << limited.msg_detail;
}

// Progress by phase: in each, fractions that never fall and end at 1; a host that
// asks to stop from inside its report ends the run there, with no file left.
struct progress_log {
    std::vector<std::pair<std::string, double>> calls;
    std::string stop_in; // the phase whose first report asks to stop
    bool stop = false;
};

void on_progress(void* user, const char* phase, double fraction, double)
{
    auto* p = static_cast<progress_log*>(user);
    p->calls.emplace_back(phase, fraction);
    if (p->stop_in == phase) p->stop = true;
}

bool stop_asked(void* user) { return static_cast<progress_log*>(user)->stop; }

TEST(progress, fractions_rise_to_one_in_each_phase_and_an_interrupt_inside_stops_the_run)
{
    for (const std::string stop_in : {"", "matrix assembly", "factorization"}) {
        SCOPED_TRACE(stop_in);
        block b(24, 6, 6); // K of 4.5 MB, its least window 1.1 MB
        const std::string root = std::filesystem::temp_directory_path().string() + "/";
        const std::filesystem::path folder = root + "kelt_diag_progress/";
        std::filesystem::create_directories(folder);
        ASSERT_EQ(b.t.ctx.set_max_incore_size(2, root.c_str(), "kelt_diag_progress/"), no_error);
        progress_log log;
        log.stop_in = stop_in;
        b.t.ctx.set_progress_handler(on_progress, &log, 0.0);
        fem::solver_static_linear s;
        s.settings.interrupt_hdl = stop_asked;
        s.settings.user_data = &log;
        fem::solver_static_linear::data_type data(b.problem);
        s.run(data);
        b.t.ctx.set_progress_handler(nullptr, nullptr);
        EXPECT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        std::vector<std::string> phases;
        for (std::size_t i = 0; i < log.calls.size(); ++i) {
            const auto& [phase, f] = log.calls[i];
            if (phases.empty() || phases.back() != phase) phases.push_back(phase);
            else EXPECT_GE(f, log.calls[i - 1].second) << phase;
        }
        if (stop_in.empty()) {
            EXPECT_EQ(phases, (std::vector<std::string>{"matrix assembly", "factorization", "resolution"}));
            EXPECT_TRUE(data.uses_disk);
            for (std::size_t i = 0; i < log.calls.size(); ++i) {
                if (i + 1 == log.calls.size() || log.calls[i + 1].first != log.calls[i].first) {
                    EXPECT_EQ(log.calls[i].second, 1.0) << log.calls[i].first;
                }
            }
            EXPECT_GT(log.calls.size(), phases.size() + 3); // more than the final report of each
        } else {
            EXPECT_EQ(data.warning_code, interrupted_warning);
            EXPECT_EQ(phases.back(), stop_in); // nothing reported after the phase that stopped
            EXPECT_LT(log.calls.back().second, 1.0);
        }
        EXPECT_TRUE(std::filesystem::is_empty(folder));
        std::filesystem::remove_all(folder);
    }
}

// Singular models name what moves. Each row: the model, what the log must hold
// (in order: the floating part before the factorisation), and what no zero-energy
// mode may be.
namespace {

// Two hexa8 side by side with no node in common; the first clamped on x = 0.
fem::problem_data unattached_element(test_context& t, mesh& m)
{
    m.type = element_hexa8;
    m.pos = dense2D<double>(3, 16);
    m.cells = dense2D<unsigned>(8, 2);
    const double corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    for (unsigned e = 0; e < 2; ++e)
        for (unsigned k = 0; k < 8; ++k) {
            m.cells(k, e) = 8 * e + k;
            for (unsigned d = 0; d < 3; ++d) m.pos(d, 8 * e + k) = corner[k][d] + (d == 0 ? 2.0 * e : 0.0);
        }
    const unsigned model = t.solid(m, 1000.0, 0.3);
    fem::DOFs_mgr DOFs(16, true);
    for (unsigned v = 0; v < 16; ++v)
        if (m.pos(0, v) == 0.0) {
            EXPECT_EQ(DOFs.set(v, displacement_tag, false), no_error);
        }
    return fem::problem_data(t.ctx, m.pos, DOFs, model, 1);
}

// A bar of 4 hexa8 held in y and z at both ends and nowhere along x.
fem::problem_data sliding_bar(test_context& t, mesh& m)
{
    m = box_mesh(element_hexa8, {4.0, 1.0, 1.0}, {4, 1, 1});
    const unsigned model = t.solid(m, 1000.0, 0.3);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned v = 0; v < m.nbr_nodes(); ++v)
        if (m.pos(0, v) == 0.0 || m.pos(0, v) == 4.0) {
            EXPECT_EQ(DOFs.set(v, displacement_tag, 1, 2, false), no_error);
        }
    return fem::problem_data(t.ctx, m.pos, DOFs, model, 1);
}

// Two beams along x, pinned at both ends (held in place, free to turn): the twist
// of the whole member about its axis is held by nothing.
fem::problem_data beam_frame(test_context& t, mesh& m)
{
    m.pos = dense2D<double>(3, 3);
    m.pos(0, 1) = 1.0, m.pos(0, 2) = 2.0;
    const double I = 1.0 / 12.0, v[15] = {0, 0, 1, 1000.0, 400.0, 0.0, 1.0, 1.0, 1.0, 2 * I, I, I, 0, 0, 0};
    dense1D<double, 8> d(15, 0.0);
    std::copy(v, v + 15, d.begin());
    fem::law_beam_StVenant law;
    EXPECT_EQ(law.init(d), no_error);
    fem::model_beam_lin physics;
    EXPECT_EQ(physics.init(law), no_error);
    dense2D<unsigned> cells(2, 2);
    cells(0, 0) = 0, cells(1, 0) = 1, cells(0, 1) = 1, cells(1, 1) = 2;
    fem::numerical_model_stiff_lin model(t.ctx);
    EXPECT_EQ(model.init(t.ctx, physics, cells, element_edge2), no_error);
    fem::DOFs_mgr DOFs(3, true);
    EXPECT_EQ(DOFs.set(0, displacement_tag, false), no_error);
    EXPECT_EQ(DOFs.set(2, displacement_tag, false), no_error);
    return fem::problem_data(t.ctx, m.pos, DOFs, model.get_ID(), 1);
}

// A flat plate of 2 x 2 shell faceQ4 in the xy plane, clamped on x = 0, with no
// drilling stiffness: the rotation about z of every free node is held by nothing.
fem::problem_data drilling_plate(test_context& t, mesh& m)
{
    t.ctx.set_shell_drilling_factor(0.0);
    m.pos = dense2D<double>(3, 9);
    for (unsigned v = 0; v < 9; ++v) m.pos(0, v) = v % 3, m.pos(1, v) = v / 3;
    m.cells = dense2D<unsigned>(4, 4);
    for (unsigned e = 0; e < 4; ++e) {
        const unsigned c = e % 2 + 3 * (e / 2);
        m.cells(0, e) = c, m.cells(1, e) = c + 1, m.cells(2, e) = c + 4, m.cells(3, e) = c + 3;
    }
    dense1D<double, 8> d;
    for (double x : {1000.0, 0.3, 0.0, 0.1}) d.push_back(x);
    fem::law_shell_StVenant law;
    EXPECT_EQ(law.init(d), no_error);
    fem::model_shell_lin physics;
    EXPECT_EQ(physics.init(law), no_error);
    fem::numerical_model_stiff_lin model(t.ctx);
    EXPECT_EQ(model.init(t.ctx, physics, m.cells, element_faceQ4), no_error);
    fem::DOFs_mgr DOFs(9, true);
    for (unsigned v = 0; v < 9; v += 3) {
        EXPECT_EQ(DOFs.set(v, displacement_tag, false), no_error);
        EXPECT_EQ(DOFs.set(v, rotation_tag, false), no_error);
    }
    return fem::problem_data(t.ctx, m.pos, DOFs, model.get_ID(), 1);
}

} // namespace

TEST(diagnosis, singular_models_name_the_nodes_that_move)
{
    struct row {
        const char* name;
        fem::problem_data (*make)(test_context&, mesh&);
        std::vector<std::string> expected; // log lines that must appear, in this order
        const char* every_mode;            // what each zero-energy mode line contains
        unsigned min_modes;
    } rows[] = {
        {"unattached element",
         unattached_element,
         {"Floating part: nodes 8 to 15 (8 nodes)", "Factorization matrix K", "Zero-energy mode: rigid"},
         "Zero-energy mode: rigid",
         6},
        {"sliding bar", sliding_bar, {"rigid translation along (1, 0, 0) of nodes 0 to 19 (20 nodes)"}, "rigid translation along (1, 0, 0)", 1},
        {"pinned beam", beam_frame, {"free rotation rx of nodes 0 to 2 (3 nodes)"}, "free rotation rx of nodes 0 to 2", 1},
        {"shell without drilling", drilling_plate, {"free rotation rz of node "}, "free rotation rz of node ", 6},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        test_context t;
        mesh m;
        const fem::problem_data p = r.make(t, m);
        log_capture c;
        const auto data = solve(p, c);
        EXPECT_EQ(data.error_code, pivot_error);
        EXPECT_STREQ(data.msg_title, "Pivot error.");
        EXPECT_NE(std::string(data.msg_detail).find("Zero-energy mode"), std::string::npos) << data.msg_detail;
        std::size_t at = 0;
        for (const std::string& key : r.expected) {
            std::size_t i = at;
            while (i < c.lines.size() && c.lines[i].second.find(key) == std::string::npos) ++i;
            EXPECT_LT(i, c.lines.size()) << "missing after line " << at << ": " << key;
            at = i;
        }
        const auto modes = lines_with(c, "Zero-energy mode");
        EXPECT_GE(modes.size(), r.min_modes);
        for (const std::string& l : modes) EXPECT_NE(l.find(r.every_mode), std::string::npos) << l;
        EXPECT_EQ(lines_with(c, "Floating part").size(), std::string(r.name) == "unattached element" ? 1u : 0u);
    }
}
