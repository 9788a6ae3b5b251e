// Vibration modes of small solid blocks against the dense generalised eigen-
// solution of the same K and M, the identities the modes satisfy, the band and
// its count, free structures, Ritz vectors, and every failure the record reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "kelt/engine/eigen.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/multiply.h"
#include "kelt/fem.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/numbering.h"
#include "support/log_capture.h"
#include "support/solid_problems.h"

extern "C" void dsygv_(const int* itype, const char* jobz, const char* uplo, const int* n, double* a, const int* lda,
                       double* b, const int* ldb, double* w, double* work, const int* lwork, int* info, std::size_t,
                       std::size_t);

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr double hertz = 0.15915494309189535;

// A block of hexa8, L x 1 x 0.6 (no two bending modes alike), of solid and mass models, clamped at x = 0 unless
// free, with `cases` load cases: a shear at the far end, then the same times two.
struct block {
    block(bool clamped, unsigned cases, unsigned nx = 6, unsigned ny = 2)
        : m(box_mesh(element_hexa8, {double(nx), 1.0, 0.6}, {nx, ny, ny})),
          model(t.composite({t.solid(m, 1000.0, 0.3), t.mass(m, 1e-3)}))
    {
        fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
        for (unsigned node = 0; node < m.nbr_nodes() && clamped; ++node)
            if (m.pos(0, node) == 0.0) { EXPECT_EQ(DOFs.set(node, displacement_tag, false), no_error); }
        problem = fem::problem_data(t.ctx, m.pos, DOFs, model, cases);
        for (unsigned c = 0; c < cases; ++c)
            for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
                if (m.pos(0, node) == double(nx)) {
                    EXPECT_EQ(problem.get_loads_mgr(c).record_DOF_load(dof(node, 2), -1.0 * (c + 1), no_func), no_error);
                }
            }
    }

    // K and M on the solver's numbering, dense, and the generalised eigenvalues.
    void dense(std::vector<double>& lambda, std::vector<double>& K, std::vector<double>& M, std::vector<unsigned>& IDs)
    {
        auto& p = *static_cast<core::problem_data*>(fem::core_of(problem));
        fem::solver_modal::settings_type s;
        fem::run_status status;
        core::run_state run(s, status);
        run.set_problem(&p, true);
        core::numerical_model_base& nm = *p.model();
        core::numbering n;
        double timer = 0.0;
        ASSERT_TRUE(core::number_DOFs(run, nm, core::kind_stiffness, {}, false, n, timer));
        core::indexed_sym_matrix Ks, Ms;
        ASSERT_TRUE(core::assemble_matrix(run, nm, core::kind_stiffness, core::make_pass(p), n, Ks, timer));
        ASSERT_TRUE(core::assemble_matrix(run, nm, core::kind_mass, core::make_pass(p), n, Ms, timer));
        const int N = int(n.size());
        K.assign(std::size_t(N) * N, 0.0), M = K, lambda.assign(N, 0.0), IDs.resize(N);
        for (int i = 0; i < N; ++i) {
            IDs[i] = n.ID(i);
            for (int j = 0; j < N; ++j) K[i * N + j] = Ks.matrix.get(i, j), M[i * N + j] = Ms.matrix.get(i, j);
        }
        std::vector<double> a = K, b = M, work(std::size_t(64) * N);
        const int one = 1, lwork = int(work.size());
        int info = 0;
        dsygv_(&one, "N", "U", &N, a.data(), &N, b.data(), &N, lambda.data(), work.data(), &lwork, &info, 1, 1);
        ASSERT_EQ(info, 0);
    }

    test_context t;
    mesh m;
    unsigned model;
    fem::problem_data problem{t.ctx};
};

fem::solver_modal modal(unsigned modes, double tolerance = 1e-10)
{
    fem::solver_modal s;
    s.settings.max_modes = modes;
    s.settings.tolerance = tolerance;
    s.settings.max_iters = 200;
    return s;
}

// Φᵀ A Φ for modes stored by the identifiers of the dense A's rows.
std::vector<double> project(const fem::FEM_matrix& phi, const std::vector<double>& A, const std::vector<unsigned>& IDs)
{
    const unsigned m = phi.cols(), N = unsigned(IDs.size());
    std::vector<std::vector<double>> x(m, std::vector<double>(N));
    for (unsigned k = 0; k < m; ++k)
        for (unsigned r = 0; r < N; ++r) { EXPECT_EQ(phi.getID_val(IDs[r], k, x[k][r]), no_error); }
    std::vector<double> P(std::size_t(m) * m, 0.0);
    for (unsigned a = 0; a < m; ++a)
        for (unsigned b = 0; b < m; ++b)
            for (unsigned i = 0; i < N; ++i)
                for (unsigned j = 0; j < N; ++j) P[a * m + b] += x[a][i] * A[std::size_t(i) * N + j] * x[b][j];
    return P;
}

} // namespace

TEST(solver_modal, lowest_modes_of_a_clamped_block_are_the_dense_ones_and_orthonormal)
{
    block b(true, 1);
    std::vector<double> lambda, K, M;
    std::vector<unsigned> IDs;
    b.dense(lambda, K, M, IDs);
    log_capture c;
    fem::solver_modal solver = modal(10);
    report_to(solver.settings, c);
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.warning_code, no_error) << data.msg_title;
    ASSERT_EQ(data.freqs.size(), 10u);
    ASSERT_EQ(data.modes.cols(), 10u);
    for (unsigned i = 0; i < 10; ++i) EXPECT_NEAR(data.freqs[i], std::sqrt(lambda[i]) * hertz, 1e-8 * data.freqs[i]) << i;
    const std::vector<double> PM = project(data.modes, M, IDs), PK = project(data.modes, K, IDs);
    for (unsigned a = 0; a < 10; ++a)
        for (unsigned bb = 0; bb < 10; ++bb) {
            EXPECT_NEAR(PM[a * 10 + bb], a == bb ? 1.0 : 0.0, 1e-9) << a << " " << bb;
            EXPECT_NEAR(PK[a * 10 + bb], a == bb ? lambda[a] : 0.0, 1e-8 * lambda[9]) << a << " " << bb;
        }
    // Static mode and its energy: ½ Fᵀ K⁻¹ F equals ½ Fᵀ u.
    ASSERT_EQ(data.static_modes.cols(), 1u);
    ASSERT_EQ(data.static_participation.size(), 1u);
    EXPECT_GT(data.static_participation[0], 0.0);
    EXPECT_EQ(data.dynamic_participation.rows(), 10u);
    EXPECT_TRUE(c.has("MODAL RUN (KELT FEM 4.4.0.0)"));
    EXPECT_TRUE(c.has("Lanczos hybrid algorithm."));
    EXPECT_TRUE(c.has("Total computing time"));
}

TEST(solver_modal, the_count_of_a_band_is_the_dense_count_and_the_modes_are_those_in_it)
{
    block b(true, 0);
    std::vector<double> lambda, K, M;
    std::vector<unsigned> IDs;
    b.dense(lambda, K, M, IDs);
    const auto f = [&](unsigned i) { return std::sqrt(lambda[i]) * hertz; };
    struct band {
        double lo, hi;
    };
    // Bands cut half way between modes, one holding no mode at all.
    const band bands[] = {{0.0, 0.5 * (f(3) + f(4))},
                          {0.5 * (f(2) + f(3)), 0.5 * (f(8) + f(9))},
                          {0.5 * (f(5) + f(6)), 0.5 * (f(5) + f(6)) * (1.0 + 1e-9)}};
    for (const band& w : bands) {
        const unsigned expected = unsigned(std::count_if(lambda.begin(), lambda.end(), [&](double l) {
            const double fl = std::sqrt(l) * hertz;
            return fl >= w.lo && fl < w.hi;
        }));
        fem::solver_modal solver = modal(20);
        solver.settings.freq_min = w.lo;
        solver.settings.freq_max = w.hi;
        fem::solver_modal::data_type data(b.problem);
        solver.run(data);
        SCOPED_TRACE(w.lo);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        EXPECT_NE(data.warning_code, missing_modes_warning);
        EXPECT_EQ(data.nbr_modes_in_range, expected);
        ASSERT_EQ(data.freqs.size(), expected);
        for (unsigned i = 0; i < expected; ++i) {
            EXPECT_GE(data.freqs[i], w.lo);
            EXPECT_LE(data.freqs[i], w.hi);
        }
        if (expected) {
            const auto lowest = unsigned(std::lower_bound(lambda.begin(), lambda.end(), std::pow(w.lo / hertz, 2)) -
                                         lambda.begin());
            EXPECT_NEAR(data.freqs[0], f(lowest), 1e-7 * w.hi);
        }
    }
}

TEST(solver_modal, a_free_block_gives_six_zero_frequencies_then_the_dense_ones)
{
    block b(false, 0, 4);
    std::vector<double> lambda, K, M;
    std::vector<unsigned> IDs;
    b.dense(lambda, K, M, IDs);
    fem::solver_modal solver = modal(9);
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    ASSERT_EQ(data.freqs.size(), 9u);
    for (unsigned i = 0; i < 6; ++i) EXPECT_LT(data.freqs[i], 1e-4 * data.freqs[6]) << i;
    for (unsigned i = 6; i < 9; ++i) { EXPECT_NEAR(data.freqs[i], std::sqrt(lambda[i]) * hertz, 1e-7 * data.freqs[i]); }
}

TEST(solver_modal, one_and_two_threads_and_a_basis_on_disk_agree)
{
    // Each row compares a run with the first one of its block: a chunky block on
    // 2 threads (a slender one would show its condition number, not the threads),
    // and a slender one whose K of a few MB goes past a budget of 1 MB.
    struct row {
        unsigned nx, ny, threads;
        bool disk;
    };
    const row rows[] = {{12, 6, 2, false}, {40, 3, 1, true}};
    for (const row& r : rows) {
        block b(true, 1, r.nx, r.ny);
        b.t.ctx.set_max_threads(1);
        fem::solver_modal solver = modal(8, 1e-13);
        fem::solver_modal::data_type first(b.problem), second(b.problem);
        solver.run(first);
        ASSERT_EQ(first.error_code, no_error) << first.msg_title;
        b.t.ctx.set_max_threads(r.threads);
        if (r.disk) { ASSERT_EQ(b.t.ctx.set_max_incore_size(1), no_error); }
        solver.run(second);
        ASSERT_EQ(second.error_code, no_error) << second.msg_title << second.msg_detail;
        EXPECT_EQ(second.uses_disk, r.disk);
        ASSERT_EQ(second.freqs.size(), first.freqs.size());
        for (unsigned i = 0; i < first.freqs.size(); ++i) {
            EXPECT_NEAR(second.freqs[i], first.freqs[i], 1e-10 * first.freqs[i]) << r.nx << " " << i;
        }
    }
}

namespace {
// K factored and M of a clamped block, on the solver's numbering, for the kernels.
struct kernel_problem {
    kernel_problem() : run(s, status)
    {
        auto& p = *static_cast<core::problem_data*>(fem::core_of(b.problem));
        run.set_problem(&p, true);
        double timer = 0.0;
        EXPECT_TRUE(core::number_DOFs(run, *p.model(), core::kind_stiffness, {}, false, n, timer));
        EXPECT_TRUE(core::assemble_matrix(run, *p.model(), core::kind_stiffness, core::make_pass(p), n, K, timer));
        EXPECT_TRUE(core::assemble_matrix(run, *p.model(), core::kind_mass, core::make_pass(p), n, M, timer));
        core::pivot_check_positive checker;
        EXPECT_EQ(core::factorize(K.matrix, checker, 1u << 20, 1), no_error);
        es.tolerance = 1e-12;
        es.max_iters = 500;
    }
    block b{true, 0};
    fem::solver_modal::settings_type s;
    fem::run_status status;
    core::run_state run;
    core::numbering n;
    core::indexed_sym_matrix K, M;
    core::eigen_settings es;
};
} // namespace

TEST(eigen_kernels, lanczos_hybrid_and_plain_subspace_agree)
{
    kernel_problem k;
    std::vector<double> lambda, Kd, Md;
    std::vector<unsigned> IDs;
    k.b.dense(lambda, Kd, Md, IDs);
    std::vector<double> hybrid, plain;
    for (int pass = 0; pass < 2; ++pass) {
        core::eigen_basis X(k.n.size(), 12), Y(k.n.size(), 12);
        std::vector<double>& l = pass ? plain : hybrid;
        const core::eigen_band band;
        const error_type e =
            pass ? core::eigen_subspace(k.es, k.run).run(k.K.matrix, k.M.matrix, 1.0, X, l, Y, 4, 12, 0, band, -DBL_MAX)
                 : core::eigen_Lanczos_hybrid(k.es, k.run).run(k.K.matrix, k.M.matrix, 1.0, X, l, Y, 4, 0, band,
                                                               -DBL_MAX);
        ASSERT_EQ(e, no_error) << pass;
        ASSERT_EQ(l.size(), 4u);
    }
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_NEAR(hybrid[i], lambda[i], 1e-9 * lambda[i]);
        EXPECT_NEAR(plain[i], hybrid[i], 1e-9 * lambda[i]);
    }
}

TEST(eigen_kernels, a_zero_mass_makes_every_basis_dependent_and_gives_no_mode)
{
    kernel_problem k;
    core::symmetric_hybrid_OOC<double> zero;
    ASSERT_EQ(zero.create(k.n.profile, k.n.size(), 0.0), no_error);
    core::eigen_basis X(k.n.size(), 6), Y(k.n.size(), 6);
    std::vector<double> l;
    k.es.max_iters = 20;
    const error_type e =
        core::eigen_subspace(k.es, k.run).run(k.K.matrix, zero, 1.0, X, l, Y, 2, 6, 0, core::eigen_band(), -DBL_MAX);
    EXPECT_EQ(e, non_convergence_error);
    EXPECT_TRUE(l.empty());
}

TEST(eigen_kernels, select_modes_keeps_the_band_and_the_wanted_ones)
{
    const std::vector<double> v = {-2.0, 1.0, 2.0, 3.0, 4.0, DBL_MAX};
    struct row {
        double lo, hi;
        unsigned wanted;
        double pivot;
        unsigned first, last;
    };
    const row rows[] = {{0.0, DBL_MAX, 9, -DBL_MAX, 1, 5},  {0.0, DBL_MAX, 2, -DBL_MAX, 1, 3},
                        {0.0, DBL_MAX, 2, DBL_MAX, 3, 5},   {0.0, DBL_MAX, 2, 3.1, 3, 5},
                        {1.5, 3.5, 9, -DBL_MAX, 2, 4},      {5.0, 6.0, 9, -DBL_MAX, 5, 5}};
    for (const row& r : rows) {
        const auto [f, l] = core::select_modes(v, {r.lo, r.hi}, r.wanted, r.pivot);
        EXPECT_EQ(f, r.first) << r.lo << " " << r.pivot;
        EXPECT_EQ(l, r.last) << r.lo << " " << r.pivot;
    }
}

TEST(solver_modal_ldrv, one_case_grows_one_vector_a_block_and_a_dependent_case_is_dropped)
{
    struct row {
        unsigned cases, vectors, blocks;
    };
    // Two cases whose loads differ by a factor: one vector a block all the same.
    const row rows[] = {{1, 3, 3}, {2, 4, 4}};
    for (const row& r : rows) {
        block b(true, r.cases);
        std::vector<double> lambda, K, M;
        std::vector<unsigned> IDs;
        b.dense(lambda, K, M, IDs);
        fem::solver_modal_ldrv solver;
        solver.settings.max_modes = r.vectors;
        fem::solver_modal_ldrv::data_type data(b.problem);
        solver.run(data);
        SCOPED_TRACE(r.cases);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title;
        EXPECT_EQ(data.nbr_blocks, r.blocks);
        ASSERT_EQ(data.freqs.size(), r.vectors);
        // Ritz values bound the true ones from above; the first bending mode, which
        // the tip load excites, is caught closely.
        for (unsigned i = 0; i < r.vectors; ++i) { EXPECT_GE(data.freqs[i], std::sqrt(lambda[i]) * hertz * (1 - 1e-9)); }
        EXPECT_NEAR(data.freqs[0], std::sqrt(lambda[0]) * hertz, 1e-3 * data.freqs[0]);
        const std::vector<double> PM = project(data.modes, M, IDs);
        for (unsigned a = 0; a < r.vectors; ++a)
            for (unsigned c = 0; c < r.vectors; ++c) { EXPECT_NEAR(PM[a * r.vectors + c], a == c ? 1.0 : 0.0, 1e-9); }
    }
}

TEST(solver_modal_ldrv, a_free_block_has_null_frequencies)
{
    block b(false, 1, 4);
    fem::solver_modal_ldrv solver;
    solver.settings.max_modes = 4;
    fem::solver_modal_ldrv::data_type data(b.problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, internal_error);
    EXPECT_STREQ(data.msg_title, "Error in LDRV modal solver: null frequency(ies)");
}

TEST(solver_modal, failures_reach_the_record)
{
    struct row {
        const char* what;
        double freq_min, freq_max;
        unsigned max_modes, max_iters, limit_MB;
        error_type error, warning;
        const char* title;
    };
    const row rows[] = {
        {"band upside down", 10.0, 5.0, 4, 50, 0xFFFFFFFFu, invalid_data_error, no_error, "MODE ERROR"},
        {"no iteration", 0.0, DBL_MAX, 4, 0, 0xFFFFFFFFu, invalid_data_error, no_error, "MODE ERROR"},
        {"band not a number", std::nan(""), DBL_MAX, 4, 50, 0xFFFFFFFFu, invalid_data_error, no_error, "MODE ERROR"},
        {"nothing asked", 0.0, DBL_MAX, 0, 50, 0xFFFFFFFFu, no_error, no_error, ""},
        {"one iteration", 0.0, DBL_MAX, 4, 1, 0xFFFFFFFFu, no_error, convergence_warning, "Convergence warning."},
        {"no memory", 0.0, DBL_MAX, 4, 50, 0, insufficient_memory_error, no_error, "Insufficient memory."},
    };
    for (const row& r : rows) {
        block b(true, 1);
        b.t.ctx.set_max_total_size(r.limit_MB);
        log_capture c;
        fem::solver_modal solver = modal(r.max_modes, 1e-12);
        solver.settings.freq_min = r.freq_min, solver.settings.freq_max = r.freq_max;
        solver.settings.max_iters = r.max_iters;
        report_to(solver.settings, c);
        fem::solver_modal::data_type data(b.problem);
        solver.run(data);
        SCOPED_TRACE(r.what);
        EXPECT_EQ(data.error_code, r.error);
        EXPECT_EQ(data.warning_code, r.warning);
        EXPECT_STREQ(data.msg_title, r.title);
        if (r.error == invalid_data_error) { EXPECT_STREQ(data.msg_detail, "KELT solver_modal: invalid settings.\n"); }
        if (r.max_modes == 0) { EXPECT_TRUE(c.lines.empty()); }
        if (r.warning == convergence_warning) { EXPECT_EQ(data.freqs.size(), 4u); } // the modes as found
    }
}

TEST(solver_modal, an_interrupt_at_any_check_leaves_a_warning_and_no_error)
{
    block b(true, 1);
    log_capture clean;
    fem::solver_modal solver = modal(4);
    report_to(solver.settings, clean);
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    const int checks = clean.interrupt_calls;
    ASSERT_GT(checks, 8);
    for (int k = 0; k < checks; k += std::max(1, checks / 12)) {
        log_capture c;
        c.interrupt_at = k;
        report_to(solver.settings, c);
        solver.run(data);
        SCOPED_TRACE(k);
        EXPECT_EQ(data.error_code, no_error);
        EXPECT_EQ(data.warning_code, interrupted_warning);
        EXPECT_EQ(c.interrupt_calls, k + 1);
        EXPECT_FALSE(c.has("Total computing time"));
    }
}

TEST(solver_modal, static_modes_are_the_static_solution_and_its_energy)
{
    block b(true, 2);
    fem::solver_modal solver = modal(1);
    solver.settings.static_modes_only = true;
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    EXPECT_EQ(data.freqs.size(), 0u);
    EXPECT_EQ(data.modes.cols(), 0u);
    ASSERT_EQ(data.static_modes.cols(), 2u);
    fem::solver_static_linear statics;
    fem::solver_static_linear::data_type reference(b.problem);
    statics.run(reference);
    ASSERT_EQ(reference.error_code, no_error);
    const dense1D<unsigned, 8> IDs = data.static_modes.get_IDs();
    for (unsigned c = 0; c < 2; ++c) {
        EXPECT_NEAR(data.static_participation[c], reference.energies[c], 1e-10 * reference.energies[c]);
        for (unsigned id : IDs) {
            double u = 0.0, v = 0.0;
            ASSERT_EQ(data.static_modes.getID_val(id, c, u), no_error);
            ASSERT_EQ(reference.U.getID_val(id, c, v), no_error);
            ASSERT_NEAR(u, v, 1e-10 * std::fabs(reference.energies[c])) << id;
        }
    }
}

namespace {
void converged_at_once(void* user, unsigned iteration, double, bool& converged)
{
    ++*static_cast<int*>(user);
    converged = converged || iteration == 0;
}
} // namespace

TEST(solver_modal, the_convergence_check_can_end_the_iterations_at_the_first_pass)
{
    block b(true, 0);
    std::vector<double> lambda, K, M;
    std::vector<unsigned> IDs;
    b.dense(lambda, K, M, IDs);
    fem::solver_modal solver = modal(3, 1e-14);
    int calls = 0;
    solver.settings.convergence_check = converged_at_once;
    solver.settings.user_data = &calls;
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    EXPECT_EQ(data.warning_code, no_error);
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(data.freqs.size(), 3u);
    // One pass on the Lanczos basis already bounds the values from above, closely.
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_GE(data.freqs[i], std::sqrt(lambda[i]) * hertz * (1 - 1e-12));
        EXPECT_NEAR(data.freqs[i], std::sqrt(lambda[i]) * hertz, 5e-2 * data.freqs[i]);
    }
}

TEST(solver_modal, damping_helpers_check_their_counts)
{
    block b(true, 0);
    fem::solver_modal solver = modal(3);
    fem::solver_modal::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    // A mass-proportional coefficient per mode gives what one coefficient gives.
    dense1D<double, 8> one, each, coeffs, from_models;
    solver.compute_damping_decay_factors(data, 0.3, one);
    for (unsigned i = 0; i < 3; ++i) coeffs.push_back(0.3);
    solver.compute_damping_decay_factors(data, coeffs, each);
    ASSERT_EQ(one.size(), 3u);
    ASSERT_EQ(each.size(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_LT(one[i], 0.0);
        EXPECT_EQ(one[i], each[i]);
    }
    solver.compute_damping_decay_factors(data, std::nan(""), one);
    for (double d : one) EXPECT_EQ(d, 0.0);
    // No model assembles damping here: no decay and no correction.
    fem::FEM_matrix corrections;
    solver.compute_damping_corrections(data, from_models, corrections);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title;
    ASSERT_EQ(from_models.size(), 3u);
    ASSERT_EQ(corrections.cols(), 3u);
    for (unsigned j = 0; j < 3; ++j) {
        EXPECT_EQ(from_models[j], 0.0);
        for (double v : corrections.col(j)) EXPECT_EQ(v, 0.0);
    }
    coeffs.push_back(0.3);
    solver.compute_damping_decay_factors(data, coeffs, each);
    EXPECT_EQ(data.error_code, invalid_data_error);
    EXPECT_STREQ(data.msg_title, "DATA ERROR");
}
