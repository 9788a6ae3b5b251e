// The phases that every solver composes, called alone as a new solver would: the
// stiffness and mass of one model, K - s M for a Sturm count, a factor and its
// solve against the whole static solver, and the pivot report.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "kelt/fem.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/phases/static_resolution.h"
#include "kelt/engine/multiply.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::core;
using namespace kelt::test;

namespace {

// A bar of n hexa8 along x, 1 x 1 in section, clamped at x = 0, pulled down at
// its far end in one load case, with a mass model on the same mesh.
struct bar {
    explicit bar(unsigned n) : m(box_mesh(element_hexa8, {double(n), 1.0, 1.0}, {n, 1, 1}))
    {
        fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(0, node) == 0.0) (void)DOFs.set(node, displacement_tag, false);
        problem = fem::problem_data(t.ctx, m.pos, DOFs, stiff, 1);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(0, node) == double(n)) (void)problem.get_loads_mgr(0).record_DOF_load(dof(node, 2), -0.25, no_func);
    }
    core::problem_data& core_problem() { return *static_cast<core::problem_data*>(fem::core_of(problem)); }
    numerical_model_base& model(unsigned ID)
    {
        return *static_cast<core::context_type*>(fem::core_of(t.ctx))->numerical_models_mgr->get_NM(ID);
    }

    const double rho = 2.5;
    test_context t;
    mesh m;
    unsigned stiff = t.solid(m, 1000.0, 0.25), mass = t.mass(m, rho);
    fem::problem_data problem{t.ctx};
};

struct recorded_run {
    explicit recorded_run(core::problem_data& p) : run(settings, status) { run.set_problem(&p, true); }
    fem::solver_static_linear::settings_type settings;
    fem::run_status status;
    run_state run;
};

} // namespace

TEST(phases, stiffness_and_mass_of_one_model_give_the_static_solution_and_the_mass)
{
    bar b(6);
    recorded_run r(b.core_problem());
    double timer = 0.0;
    numbering n;
    ASSERT_TRUE(number_DOFs(r.run, b.model(b.stiff), kind_stiffness, {}, false, n, timer));
    EXPECT_EQ(n.size(), 3u * 4u * 6u);
    indexed_sym_matrix K, M;
    ASSERT_TRUE(assemble_matrix(r.run, b.model(b.stiff), kind_stiffness, make_pass(b.core_problem()), n, K, timer));
    ASSERT_TRUE(assemble_matrix(r.run, b.model(b.mass), kind_mass, make_pass(b.core_problem()), n, M, timer));

    // A rigid translation carries the mass of the free nodes' share: along each
    // axis tᵀ M t is the same, and K t vanishes away from the clamped face.
    std::vector<double> t(n.size()), Mt(n.size(), 0.0);
    for (unsigned r = 0; r < n.size(); ++r) t[r] = n.ID(r) % 9 == 0 ? 1.0 : 0.0;
    multiply(M.matrix, 1.0, t.data(), Mt.data(), r.run.threads());
    double tMt = 0.0;
    for (unsigned r = 0; r < n.size(); ++r) tMt += t[r] * Mt[r];
    // The clamped face takes away its own block (rho / 3 of the first element, by
    // the integral of its shape functions' sum squared) and twice its coupling
    // (rho / 6) with the rest.
    EXPECT_NEAR(tMt, b.rho * (6.0 - 2.0 / 3.0), 1e-12);

    // The factor and a solve by the phases alone equal the whole solver's, bit for bit.
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(b.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    FEM_real_states U;
    prescribed_layout layout;
    ASSERT_TRUE(size_static_states(r.run, U, n, collect_prescribed(b.core_problem()), 1, layout));
    ASSERT_TRUE(assemble_load_cases(r.run, b.model(b.stiff), kind_stiffness, 0.0, {}, U, timer));
    factor_report report;
    ASSERT_TRUE(factorise(r.run, K.matrix, n, {}, report, timer));
    EXPECT_EQ(report.pivot_min, data.pivot_min);
    EXPECT_EQ(report.pivot_max, data.pivot_max);
    double* x = U.col(0).data();
    double energy = 0.0;
    ASSERT_TRUE(solve_columns(r.run, K.matrix, &x, 1, &energy));
    EXPECT_EQ(0.5 * energy, data.energies[0]);
    for (unsigned r = 0; r < n.size(); ++r) EXPECT_EQ(x[r], data.U.col(0)[data.U.row_pos(n.ID(r))]) << r;

    // K - s M, from two passes into one matrix: below s lie as many modes as
    // negative pivots, and s between two such counts brackets a mode.
    auto below = [&](double s) {
        indexed_sym_matrix A;
        EXPECT_TRUE(assemble_matrix(r.run, b.model(b.stiff), kind_stiffness, make_pass(b.core_problem()), n, A, timer));
        EXPECT_TRUE(assemble_matrix(r.run, b.model(b.mass), kind_mass, make_pass(b.core_problem()), n, A, timer, -s, true));
        factor_options count;
        count.policy = pivot_policy::count_below;
        factor_report rep;
        EXPECT_TRUE(factorise(r.run, A.matrix, n, count, rep, timer));
        return rep.nbr_below;
    };
    EXPECT_EQ(below(-1.0), 0u);
    EXPECT_EQ(below(1e9), n.size());
    // Rayleigh: the static shape's quotient bounds the first mode from above.
    const double omega2 = 2.0 * data.energies[0] / 1.0; // uᵀKu, with uᵀMu below
    std::vector<double> u(n.size()), Mu(n.size(), 0.0);
    for (unsigned r = 0; r < n.size(); ++r) u[r] = x[r];
    multiply(M.matrix, 1.0, u.data(), Mu.data(), r.run.threads());
    double uMu = 0.0;
    for (unsigned r = 0; r < n.size(); ++r) uMu += u[r] * Mu[r];
    EXPECT_GE(below(omega2 / uMu * 1.0001), 1u);
    EXPECT_EQ(r.status.error_code, no_error);
}

namespace {

// A diagonal matrix whose pivots are its entries, on DOFs 100, 109, ...
symmetric_hybrid_OOC<double> diagonal(const std::vector<double>& d, numbering& n)
{
    const unsigned size = unsigned(d.size());
    n.profile.blocks.assign(1, {});
    n.profile.blocks[0].first = 0;
    n.profile.blocks[0].end = size;
    for (unsigned c = 0; c < size; ++c) n.profile.blocks[0].segments.emplace_back(c, c), n.free_IDs->push_back(100 + 9 * c);
    symmetric_hybrid_OOC<double> A;
    EXPECT_EQ(A.create(n.profile, size), no_error);
    for (unsigned c = 0; c < size; ++c) EXPECT_EQ(A.proxy()->add_values(0, c, &d[c], &c, 1, false), no_error);
    return A;
}

} // namespace

TEST(phases, the_pivot_report_names_the_DOF_and_follows_its_policy)
{
    bar b(1);
    recorded_run r(b.core_problem());
    std::vector<std::string> lines;
    r.run.log_hdl = [](void* u, unsigned, const char* t) { static_cast<std::vector<std::string>*>(u)->push_back(t); };
    r.run.user_data = &lines;
    constexpr unsigned none = 0xFFFFFFFFu;
    const struct row {
        std::vector<double> d;
        pivot_policy policy;
        error_type error, warning;
        unsigned bad_DOF, nbr_bad, below;
        std::string line;
    } rows[] = {
        {{1, 0, 3}, pivot_policy::check_positive, pivot_error, no_error, 109, 1, 0, "Bad pivot detected: +0.000000E+00.\n"},
        // Replaced, and still the smallest pivot.
        {{1, 0, 3}, pivot_policy::force_positive, no_error, pivot_warning, 109, 1, 0,
         "Bad pivot detected: +0.000000E+00. Replaced with: +1.000000E+00\n"},
        // A negative pivot is bad for the positive policy only.
        {{1, -2, 3}, pivot_policy::force_positive, no_error, pivot_warning, 109, 1, 0,
         "Bad pivot detected: -2.000000E+00. Replaced with: +1.000000E+00\n"},
        {{1, -2, 3}, pivot_policy::force_definite, no_error, pivot_warning, 109, 0, 0, ""},
        {{1, 1e-12}, pivot_policy::check_positive, no_error, no_error, none, 0, 0, ""}, // the spread test is strict
        {{1, 0.99e-12}, pivot_policy::check_positive, no_error, pivot_warning, 109, 0, 0, ""},
        {{2, -1, 5, -3, 0.5}, pivot_policy::count_below, no_error, no_error, none, 0, 2, ""},
    };
    for (const row& w : rows) {
        r.status = fem::run_status();
        lines.clear();
        numbering n;
        symmetric_hybrid_OOC<double> A = diagonal(w.d, n);
        factor_options o;
        o.policy = w.policy;
        factor_report rep;
        double timer = 0.0;
        (void)factorise(r.run, A, n, o, rep, timer);
        const std::string at = "policy " + std::to_string(int(w.policy)) + ", " + std::to_string(w.d[1]);
        EXPECT_EQ(r.status.error_code, w.error) << at;
        EXPECT_EQ(r.status.warning_code, w.warning) << at;
        EXPECT_EQ(rep.bad_DOF, w.bad_DOF) << at;
        EXPECT_EQ(rep.bad_IDs.size(), w.nbr_bad) << at;
        EXPECT_EQ(lines.size(), w.nbr_bad) << at;
        EXPECT_EQ(rep.nbr_below, w.below) << at;
        EXPECT_EQ(lines.empty() ? std::string() : lines[0], w.line) << at;
    }
}
