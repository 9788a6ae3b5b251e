// The conjugate gradient: on a system with DOFs held at given values, preconditioned
// by the factor of a matrix that misses some elements, it reaches the direct
// answer within the bound that its stopping test promises; and its edge cases
// (zero data, one iteration, an exact start, interrupts, earlier errors) end as
// the solvers expect.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <string>

#include "engine_test_support.h"
#include "kelt/engine/assemblers.h"
#include "kelt/engine/conj_gradient.h"

using namespace kelt;
using namespace kelt::core;

namespace {

// What the gradient tells its caller: the lines, the iterations; and a stop
// answered after a given number of checks.
struct test_solver final : iteration_observer {
    std::vector<std::pair<unsigned, std::string>> lines;
    std::vector<std::pair<unsigned, double>> reports; // (k, residual norm) per iteration
    unsigned stop_after = 0xFFFFFFFFu; // stop checks answered false before the first true
    unsigned stop_checks = 0;

    void log(unsigned level, const char* line) override { lines.emplace_back(level, line); }
    bool stop_requested() override { return stop_checks++ >= stop_after; }
    void iteration(unsigned k, double residual_norm) override { reports.emplace_back(k, residual_norm); }

    // The count of "Convergence within %d iterations.", -1 without that line.
    int iterations() const
    {
        int k = -1;
        if (!lines.empty()) std::sscanf(lines.back().second.c_str(), "Convergence within %d iterations.\n", &k);
        return k;
    }
    unsigned norm_lines() const
    {
        unsigned c = 0;
        for (const auto& l : lines) c += l.second.find("two_norm(g)") != std::string::npos;
        return c;
    }
};

dense1D<double, 8> vector_of(const std::vector<double>& v)
{
    dense1D<double, 8> out(unsigned(v.size()));
    std::copy(v.begin(), v.end(), out.begin());
    return out;
}

// K from random SPD elements plus the identity, so that K ⪰ I; M the same less
// every `drop_every`-th element, factored. K - M is a sum of elements, hence
// positive semi-definite: M ⪯ K.
struct system_type {
    test::numbered num;
    std::vector<test::element_matrix> elements;
    symmetric_hybrid_OOC<double> K, M;
    test::dense_sum_type dense;
    unsigned n = 0;
};

void build(const test::dof_model& model, unsigned drop_every, system_type& s)
{
    s.num = test::number(model);
    s.n = s.num.free_IDs.size();
    s.elements = test::random_element_matrices(model, 17);
    const unsigned nbr_random = unsigned(s.elements.size());
    for (unsigned id : model.DOFs) {
        test::element_matrix unit;
        unit.IDs = dense1D<unsigned, 8>(1, id);
        (void)unit.Ke.resize(1, 1.0);
        s.elements.push_back(unit);
    }
    Ptr<vector_fast> rows = new vector_fast(s.num.free_IDs);
    ASSERT_EQ(s.K.create(s.num.profile, s.n), no_error);
    ASSERT_EQ(s.M.create(s.num.profile, s.n), no_error);
    indexed_sym_matrix K{s.K, rows}, M{s.M, rows};
    sym_assembler to_K(K), to_M(M);
    for (unsigned e = 0; e < s.elements.size(); ++e) {
        ASSERT_EQ(to_K.add_symmetric(s.elements[e].Ke, s.elements[e].IDs, true), no_error);
        if (drop_every && e < nbr_random && e % drop_every == 0) continue;
        ASSERT_EQ(to_M.add_symmetric(s.elements[e].Ke, s.elements[e].IDs, true), no_error);
    }
    pivot_check_positive checker;
    ASSERT_EQ(factorize(s.M, checker, 1u << 20, 1), no_error);
    s.dense = test::dense_sum(s.elements, s.num.free_IDs);
}

struct cg_case {
    const char* name;
    test::dof_model model;
    unsigned threads;
};

std::vector<cg_case> cg_cases()
{
    return {
        {"plate_2d", test::grid_model(9, 6, 0, 2), 1},
        {"block_3d", test::grid_model(4, 3, 2, 3), 2},
        {"random", test::random_model(200, 160, 7, 3), 1},
    };
}

} // namespace

class conj_gradient_cases : public ::testing::TestWithParam<unsigned> {};

// Error e = x - x*, true residual r on the free rows: eᵀ K_ff e = rᵀ K_ff⁻¹ r. The
// preconditioner measures rho = rᵀ (M⁻¹)_ff r, and (M⁻¹)_ff ⪰ M_ff⁻¹ ⪰ K_ff⁻¹ since
// M ⪯ K; so eᵀ K_ff e ≤ rho, and with K ⪰ I, |e|² ≤ rho too. The rounding of the
// dense reference and of the recurrence adds about (n ε |K| |x|)².
TEST_P(conj_gradient_cases, reaches_the_direct_answer_with_fixed_rows_within_its_residual)
{
    const cg_case c = cg_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    system_type s;
    build(c.model, 3, s);
    const unsigned n = s.n;
    std::vector<unsigned> fixed;
    std::vector<char> is_fixed(n, 0);
    for (unsigned r = 2; r < n; r += 9) fixed.push_back(r), is_fixed[r] = 1;
    std::vector<double> x0(n, 0.0), b(n, 0.0);
    for (unsigned i = 0; i < n; ++i) (is_fixed[i] ? x0[i] : b[i]) = std::sin(1.0 + 0.37 * i);

    dense1D<double, 8> x = vector_of(x0);
    conj_gradient_settings settings;
    settings.tol = 1e-6;
    settings.max_iters = 500;
    test_solver solver;
    double residual = -1.0;
    ASSERT_EQ(conj_gradient_static(s.K, s.M, fixed, vector_of(b), x, settings, solver, residual, c.threads), no_error);
    // The preconditioner misses elements: several steps, each logged and reported
    // in turn, the last report being the norm handed back.
    const int k = solver.iterations();
    EXPECT_GT(k, 2);
    EXPECT_EQ(solver.norm_lines(), unsigned(k + 1));
    ASSERT_EQ(solver.reports.size(), unsigned(k));
    for (unsigned i = 0; i < solver.reports.size(); ++i) EXPECT_EQ(solver.reports[i].first, i + 1);
    EXPECT_EQ(solver.reports.back().second, residual);
    for (unsigned r : fixed) EXPECT_EQ(x[r], x0[r]);

    // K_ff x_f = b_f - K_fF x_F, densely.
    std::vector<unsigned> free_rows;
    for (unsigned i = 0; i < n; ++i)
        if (!is_fixed[i]) free_rows.push_back(i);
    const unsigned nf = unsigned(free_rows.size());
    std::vector<double> Kff(std::size_t(nf) * nf), rhs(nf);
    double K_norm = 0.0, x_norm = 0.0;
    for (unsigned a = 0; a < nf; ++a) {
        rhs[a] = b[free_rows[a]];
        for (unsigned r : fixed) rhs[a] -= s.dense(free_rows[a], r) * x0[r];
        for (unsigned d = 0; d < nf; ++d) Kff[a + std::size_t(d) * nf] = s.dense(free_rows[a], free_rows[d]);
    }
    for (double v : s.dense.sum) K_norm = std::max(K_norm, std::fabs(v));
    const std::vector<double> direct = test::dense_solve(Kff, rhs, nf);
    std::vector<double> e(nf);
    for (unsigned a = 0; a < nf; ++a) e[a] = x[free_rows[a]] - direct[a], x_norm = std::max(x_norm, std::fabs(direct[a]));
    double eKe = 0.0, e2 = 0.0;
    for (unsigned a = 0; a < nf; ++a) {
        e2 += e[a] * e[a];
        for (unsigned d = 0; d < nf; ++d) eKe += e[a] * Kff[a + std::size_t(d) * nf] * e[d];
    }
    const double floor = std::pow(n * DBL_EPSILON * K_norm * x_norm, 2.0);
    EXPECT_LE(eKe, residual * residual + floor);
    EXPECT_LE(e2, residual * residual + floor);
    EXPECT_GT(e2, 0.0); // an inexact answer: the bound above is what is tested
}

TEST_P(conj_gradient_cases, an_interrupt_leaves_the_last_iterate)
{
    const cg_case c = cg_cases()[GetParam()];
    SCOPED_TRACE(c.name);
    system_type s;
    build(c.model, 2, s);
    const std::vector<unsigned> fixed = {0, s.n / 2};
    std::vector<double> b(s.n, 1.0);
    b[0] = b[s.n / 2] = 0.0;
    conj_gradient_settings settings;
    double residual = 0.0;

    // Stopped at the entry: nothing happens.
    test_solver at_entry;
    at_entry.stop_after = 0;
    dense1D<double, 8> x(s.n, 0.0);
    EXPECT_EQ(conj_gradient_static(s.K, s.M, fixed, vector_of(b), x, settings, at_entry, residual, c.threads),
              no_error);
    EXPECT_TRUE(at_entry.lines.empty());
    for (double v : x) EXPECT_EQ(v, 0.0);

    // Stopped before the second step: the first step's x, unconverged, and no error:
    // the caller knows why it stopped.
    test_solver once;
    once.stop_after = 2;
    EXPECT_EQ(conj_gradient_static(s.K, s.M, fixed, vector_of(b), x, settings, once, residual, c.threads), no_error);
    EXPECT_EQ(once.norm_lines(), 2u);
    EXPECT_EQ(once.reports.size(), 1u);
    EXPECT_EQ(once.iterations(), -1);
    EXPECT_EQ(x[0], 0.0);
    EXPECT_NE(x[1], 0.0);
}

INSTANTIATE_TEST_SUITE_P(engine, conj_gradient_cases, ::testing::Range(0u, unsigned(cg_cases().size())));

namespace {

// A small system preconditioned by its own factor.
class conj_gradient_edges : public ::testing::Test {
protected:
    void SetUp() override
    {
        build(test::grid_model(3, 2, 0, 2), 0, s);
        b.assign(s.n, 0.0);
        for (unsigned i = 0; i < s.n; ++i) b[i] = std::cos(0.5 + i);
    }
    error_type run(const std::vector<double>& rhs, dense1D<double, 8>& x, double tol, bool absolute,
                   unsigned max_iters)
    {
        conj_gradient_settings settings;
        settings.tol = tol;
        settings.absolute = absolute;
        settings.max_iters = max_iters;
        double residual = 0.0;
        return conj_gradient_static(s.K, s.M, {}, vector_of(rhs), x, settings, solver, residual, 1);
    }
    system_type s;
    std::vector<double> b;
    test_solver solver;
};

} // namespace

TEST_F(conj_gradient_edges, zero_data_divide_zero_by_zero_unless_the_tolerance_is_absolute)
{
    const std::vector<double> zero(s.n, 0.0);
    dense1D<double, 8> x(s.n, 0.0);
    EXPECT_EQ(run(zero, x, 1e-8, false, 100), inf_nan_error);
    EXPECT_TRUE(solver.reports.empty());
    for (double v : x) EXPECT_EQ(v, 0.0);

    test_solver fresh;
    solver = fresh;
    EXPECT_EQ(run(zero, x, 1e-8, true, 100), no_error);
    ASSERT_EQ(solver.lines.size(), 3u);
    EXPECT_EQ(solver.lines[0].second, "Conjugate gradient algorithm.\n");
    EXPECT_EQ(solver.lines[1].second.substr(0, 28), "  0  two_norm(g)         : +");
    EXPECT_EQ(solver.lines[2].second, "Convergence within 0 iterations.\n");
    for (const auto& l : solver.lines) EXPECT_EQ(l.first, 2u);
}

TEST_F(conj_gradient_edges, one_iteration_allowed_means_none_done)
{
    dense1D<double, 8> x(s.n, 0.0);
    EXPECT_EQ(run(b, x, 1e-8, false, 1), non_convergence_error);
    EXPECT_EQ(solver.norm_lines(), 1u);
    // The first line measures the start against itself: rho / (tol² rho) = 1 / tol².
    EXPECT_NE(solver.lines[1].second.find(" (1.00000E+08) \n"), std::string::npos) << solver.lines[1].second;
    for (double v : x) EXPECT_EQ(v, 0.0);
}

TEST_F(conj_gradient_edges, an_exact_start_takes_one_step_unless_the_tolerance_exceeds_one)
{
    dense1D<double, 8> exact(s.n);
    double energy = 0.0;
    ASSERT_EQ(solve_single(s.M, b.data(), exact.data(), energy, {}, 1), no_error);
    // The start is exact to rounding, not to the bit: the first residual is not 0.
    std::vector<double> r = b;
    multiply(s.K, -1.0, exact.data(), r.data(), 1);
    ASSERT_GT(test::max_abs(r), 0.0);

    dense1D<double, 8> x;
    ASSERT_TRUE(x.copy(exact));
    EXPECT_EQ(run(b, x, 1e-8, false, 100), no_error);
    EXPECT_EQ(solver.iterations(), 1);

    test_solver fresh;
    solver = fresh;
    ASSERT_TRUE(x.copy(exact));
    EXPECT_EQ(run(b, x, 2.0, false, 100), no_error);
    EXPECT_EQ(solver.iterations(), 0);
    for (unsigned i = 0; i < s.n; ++i) EXPECT_EQ(x[i], exact[i]);
}

TEST_F(conj_gradient_edges, bad_sizes_stop_before_anything)
{
    dense1D<double, 8> x(s.n, 0.0);
    dense1D<double, 8> short_x(s.n - 1, 0.0);
    auto identity = [](const double* in, double* out, double& rho) {
        std::copy(in, in + 3, out);
        rho = vector_dot(in, in, 3);
        return no_error;
    };
    auto none = [](const double*, double*) {};
    EXPECT_EQ(conj_gradient(none, identity, vector_of(b), short_x, {}, solver), invalid_data_error);
    double residual = 0.0;
    EXPECT_EQ(conj_gradient_static(s.K, s.M, {s.n}, vector_of(b), x, {}, solver, residual, 1), internal_error);
    EXPECT_TRUE(solver.lines.empty());
}

// Without preconditioning, the gradient ends in as many steps as the operator has
// distinct eigenvalues (the Krylov spaces stop growing there).
TEST(conj_gradient, ends_in_as_many_steps_as_distinct_eigenvalues)
{
    const unsigned n = 40;
    const double lambda[3] = {1.0, 4.0, 9.0};
    auto op = [&](const double* in, double* out) {
        for (unsigned i = 0; i < n; ++i) out[i] += lambda[i % 3] * in[i];
    };
    auto identity = [&](const double* in, double* out, double& rho) {
        std::copy(in, in + n, out);
        rho = vector_dot(in, in, n);
        return no_error;
    };
    std::vector<double> rhs(n);
    for (unsigned i = 0; i < n; ++i) rhs[i] = 1.0 + std::sin(double(i));
    dense1D<double, 8> x(n, 0.0);
    conj_gradient_settings settings;
    settings.tol = 1e-12;
    test_solver solver;
    double residual = -1.0;
    ASSERT_EQ(conj_gradient(op, identity, vector_of(rhs), x, settings, solver, &residual), no_error);
    EXPECT_EQ(solver.iterations(), 3);
    EXPECT_GE(residual, 0.0);
    // Converged to the relative tolerance: |x - b / λ| ≤ tol |b| / λmin.
    for (unsigned i = 0; i < n; ++i) EXPECT_NEAR(x[i], rhs[i] / lambda[i % 3], 1e-12 * 2.0 * std::sqrt(double(n)));
}
