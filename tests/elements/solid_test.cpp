// The solid family on the 8 volumes: rigid modes, the patch test on distorted
// meshes, the factor, the modes of the matrix, inverted geometry, the finite
// variant against its own energy, and thermal expansion.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/stress_mgr.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr unsigned translations[3] = {0, 1, 2};

// u(x) = A x + c, with a non-symmetric A: a rotation part and a strain part.
constexpr double A_field[3][3] = {{1e-3, 4e-4, -2e-4}, {-1e-4, -5e-4, 3e-4}, {6e-4, 1e-4, 2e-3}};
constexpr double c_field[3] = {1e-3, -2e-3, 5e-4};

double linear_field(const test_mesh& m, unsigned node, unsigned k)
{
    double u = c_field[k];
    for (unsigned j = 0; j < 3; ++j) u += A_field[k][j] * m.pos(j, node);
    return u;
}

struct solid_shapes : ::testing::TestWithParam<element_type> {};

INSTANTIATE_TEST_SUITE_P(volumes, solid_shapes, ::testing::ValuesIn(volume_types),
                         [](const auto& info) { return std::string(type_name(info.param)); });

TEST_P(solid_shapes, stiffness_is_symmetric_with_exactly_six_rigid_modes)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.solid(m, StVenant(1000.0, 0.3));
    ASSERT_TRUE(model);
    element_run run;
    compute(*model, core::kind_stiffness, 0, m, core::DOF_values_view(), run);
    ASSERT_EQ(run.status, no_error);
    const unsigned n = 3 * nbr_nodes(GetParam());
    ASSERT_EQ(run.work.Ke.order(), n);
    // Packed storage is symmetric by construction; the spectrum is the test: six
    // zeros (to rounding of the largest) and a clear gap to the first elastic mode.
    const std::vector<double> w = eigenvalues(run.work.Ke);
    EXPECT_EQ(nbr_zero_eigenvalues(w, 1e-10), 6u);
    EXPECT_GT(w[6], 1e-6 * w.back());
}

// A linear field on the boundary nodes, the interior nodes solved for: the solution
// is the linear field itself and the stress the constant D eps at every point.
TEST_P(solid_shapes, patch_test_on_a_distorted_mesh)
{
    model_context mc;
    // Three cells a side for the linear types, two for the quadratic ones: at least
    // eight interior nodes each.
    const unsigned cells = nbr_nodes(GetParam()) == nbr_base_nodes(GetParam()) ? 3 : 2;
    const test_mesh m = cube_mesh(GetParam(), cells, 0.2);
    const double E = 1000.0, nu = 0.3;
    auto model = mc.solid(m, StVenant(E, nu));
    ASSERT_TRUE(model);
    dense_assembler K;
    ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
    // Free (interior) and fixed (boundary) rows of the assembled matrix.
    std::vector<unsigned> free_rows, fixed_rows;
    std::vector<double> fixed_values;
    for (unsigned r = 0; r < K.n; ++r) {
        const unsigned ID = K.rows[r], node = ID / 9, k = ID % 9;
        if (m.on_boundary(node)) {
            fixed_rows.push_back(r);
            fixed_values.push_back(linear_field(m, node, k));
        } else {
            free_rows.push_back(r);
        }
    }
    const unsigned nf = unsigned(free_rows.size());
    ASSERT_GT(nf, 0u);
    std::vector<double> A(std::size_t(nf) * nf), b(nf, 0.0);
    for (unsigned j = 0; j < nf; ++j)
        for (unsigned i = 0; i < nf; ++i) A[std::size_t(j) * nf + i] = K.get(free_rows[i], free_rows[j]);
    for (unsigned i = 0; i < nf; ++i)
        for (unsigned j = 0; j < fixed_rows.size(); ++j) b[i] -= K.get(free_rows[i], fixed_rows[j]) * fixed_values[j];
    const std::vector<double> u = solve_dense(A, b, nf);
    double max_error = 0.0;
    for (unsigned i = 0; i < nf; ++i) {
        const unsigned ID = K.rows[free_rows[i]];
        max_error = std::max(max_error, std::fabs(u[i] - linear_field(m, ID / 9, ID % 9)));
    }
    EXPECT_LT(max_error, 1e-12) << nf << " interior DOFs";

    // Stresses at the points of every element, from the linear field.
    const core::DOF_values_view U =
        values_of(m, 3, translations, [&](unsigned node, unsigned k) { return linear_field(m, node, k); });
    const double eps[6] = {A_field[0][0],
                           A_field[1][1],
                           A_field[2][2],
                           A_field[0][1] + A_field[1][0],
                           A_field[0][2] + A_field[2][0],
                           A_field[1][2] + A_field[2][1]};
    core::constitutive6 D;
    core::law_solid_StVenant::isotropic(E, nu, D);
    double sigma[6] = {};
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j) sigma[i] += D(i, j) * eps[j];
    core::element_work_type w;
    core::element_pass_type pass;
    pass.pos = m.pos;
    pass.U = U;
    w.start(pass, model->ID);
    double max_stress_error = 0.0;
    for (unsigned e = 0; e < model->nbr_elements(); ++e) {
        w.element = e;
        ASSERT_EQ(model->compute_element_results(core::kind_stiffness, core::result_stress, w), no_error);
        ASSERT_EQ(w.results.rows(), 9u);
        for (unsigned p = 0; p < w.results.cols(); ++p)
            for (unsigned i = 0; i < 6; ++i)
                max_stress_error = std::max(max_stress_error, std::fabs(w.results(3 + i, p) - sigma[i]));
    }
    EXPECT_LT(max_stress_error, 1e-10 * E * 1e-3);
}

TEST_P(solid_shapes, factor_two_doubles_matrix_vector_and_energy)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.solid(m, StVenant(1000.0, 0.25));
    const core::DOF_values_view U = values_of(m, 3, translations, [&](unsigned node, unsigned k) {
        return 1e-3 * std::sin(3.0 * node + k);
    });
    element_run one, two;
    compute(*model, core::kind_stiffness, 0, m, U, one, core::matrix_tangent, 1.0);
    compute(*model, core::kind_stiffness, 0, m, U, two, core::matrix_tangent, 2.0);
    ASSERT_EQ(one.status, no_error);
    ASSERT_EQ(two.status, no_error);
    ASSERT_GT(one.work.energy, 0.0);
    EXPECT_EQ(two.work.energy, 2.0 * one.work.energy);
    ASSERT_EQ(two.work.Fe.size(), one.work.Fe.size());
    for (unsigned i = 0; i < one.work.Fe.size(); ++i) EXPECT_EQ(two.work.Fe[i], 2.0 * one.work.Fe[i]);
    const unsigned n = one.work.Ke.order();
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) ASSERT_EQ(two.work.Ke(i, j), 2.0 * one.work.Ke(i, j));
    // And 0 skips the element: nothing at all.
    element_run none;
    compute(*model, core::kind_stiffness, 0, m, U, none, core::matrix_tangent, 0.0);
    EXPECT_EQ(none.status, no_error);
    EXPECT_EQ(none.work.Ke.order(), 0u);
    EXPECT_TRUE(none.work.Fe.empty());
}

TEST_P(solid_shapes, geometric_mode_with_zero_stress_is_the_zero_matrix_of_full_size)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.solid(m, StVenant(1000.0, 0.3));
    element_run run;
    compute(*model, core::kind_stiffness, 0, m, core::DOF_values_view(), run, core::matrix_geometric);
    ASSERT_EQ(run.status, no_error);
    const unsigned n = 3 * nbr_nodes(GetParam());
    ASSERT_EQ(run.work.Ke.order(), n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) ASSERT_EQ(run.work.Ke(i, j), 0.0);
    // Under a stress it is not: the same routine does see the state.
    const core::DOF_values_view U =
        values_of(m, 3, translations, [&](unsigned node, unsigned k) { return linear_field(m, node, k); });
    compute(*model, core::kind_stiffness, 0, m, U, run, core::matrix_geometric);
    double largest = 0.0;
    for (unsigned j = 0; j < n; ++j) largest = std::max(largest, std::fabs(run.work.Ke(j, j)));
    EXPECT_GT(largest, 0.0);
}

TEST_P(solid_shapes, material_mode_does_not_depend_on_the_state_for_a_linear_law)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.solid(m, StVenant(1000.0, 0.3));
    const core::DOF_values_view U =
        values_of(m, 3, translations, [&](unsigned node, unsigned k) { return 0.01 * std::cos(node + 2.0 * k); });
    element_run at_rest, moved;
    compute(*model, core::kind_stiffness, 0, m, core::DOF_values_view(), at_rest, core::matrix_material);
    compute(*model, core::kind_stiffness, 0, m, U, moved, core::matrix_material);
    const unsigned n = at_rest.work.Ke.order();
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) ASSERT_EQ(moved.work.Ke(i, j), at_rest.work.Ke(i, j));
}

// The finite variant's matrix is the derivative of the opposite of its vector and
// splits into its material and geometric modes; the small variant's geometric
// mode is the finite one's.
TEST_P(solid_shapes, tangent_is_the_derivative_of_the_internal_forces_and_splits_into_its_modes)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.solid(m, StVenant(1000.0, 0.3), true);
    auto small = mc.solid(m, StVenant(1000.0, 0.3), false);
    ASSERT_TRUE(model && small);
    EXPECT_EQ(model->model_code(), 4300u + GetParam());
    std::vector<double> u(3 * nbr_nodes(GetParam()));
    for (unsigned i = 0; i < u.size(); ++i) u[i] = 0.05 * std::sin(1.7 * i + 0.3);
    const tangent_errors e = tangent_errors_of(*model, small.get(), m, 3, translations, u);
    // Central differences err by h^2 times third derivatives of a quartic energy.
    EXPECT_LT(e.derivative, 1e-6);
    EXPECT_LT(e.split, 1e-12);
    EXPECT_LT(e.small, 1e-12);
}

TEST_P(solid_shapes, finite_variant_sees_no_strain_in_a_large_rotation)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto finite = mc.solid(m, StVenant(1000.0, 0.3), true);
    auto small = mc.solid(m, StVenant(1000.0, 0.3), false);
    const double c = std::cos(0.6), s = std::sin(0.6);
    const core::DOF_values_view U = values_of(m, 3, translations, [&](unsigned node, unsigned k) {
        const double x = m.pos(0, node), y = m.pos(1, node);
        return k == 0 ? c * x - s * y - x : k == 1 ? s * x + c * y - y : 0.0;
    });
    element_run f, l;
    compute(*finite, core::kind_stiffness, 0, m, U, f);
    compute(*small, core::kind_stiffness, 0, m, U, l);
    EXPECT_LT(std::fabs(f.work.energy), 1e-12 * l.work.energy);
    for (unsigned i = 0; i < f.work.Fe.size(); ++i) EXPECT_LT(std::fabs(f.work.Fe[i]), 1e-10);
}

TEST(solid_element, inverted_hexa8_fails_after_all_its_points)
{
    model_context mc;
    test_mesh m = single_element(element_hexa8, 0.0);
    // Top and bottom faces swapped: the map turns inside out.
    for (unsigned a = 0; a < 4; ++a) std::swap(m.cells(a, 0), m.cells(a + 4, 0));
    auto model = mc.solid(m, StVenant(1000.0, 0.3));
    element_run run;
    compute(*model, core::kind_stiffness, 0, m, core::DOF_values_view(), run);
    EXPECT_EQ(run.status, element_geometry_error);
    EXPECT_EQ(run.work.weights.size(), 8u);
    for (double w : run.work.weights) EXPECT_LT(w, 0.0);
    EXPECT_EQ(run.work.Ke.order(), 0u);
    // The loop stops on it and returns it.
    dense_assembler K;
    EXPECT_EQ(assemble(*model, core::kind_stiffness, m, K), element_geometry_error);
    EXPECT_EQ(K.calls, 0u);
}

// A uniform temperature and the free expansion it causes: no stress, no force and
// no energy; held at rest instead, the forces balance and the energy is that of
// the blocked expansion.
TEST(solid_element, free_thermal_expansion_is_stress_free)
{
    model_context mc;
    const test_mesh m = cube_mesh(element_hexa8, 2, 0.2);
    const double E = 1000.0, nu = 0.25, a = 1e-5, T = 40.0;
    auto model = mc.solid(m, StVenant(E, nu, a));
    core::stress_super_mgr thermal(mc.ctx);
    ASSERT_EQ(thermal.set_thermal_load(model->ID, &T, 1, 0xFFFFFFFFu), no_error);
    const auto run = [&](const core::DOF_values_view& U, sum_vector_assembler& F) {
        core::element_pass_type pass;
        pass.pos = m.pos;
        pass.U = U;
        pass.has_thermal = true;
        pass.thermal = &thermal;
        core::matrix_null_assembler none;
        pass.matrix = &none;
        pass.vector = &F;
        EXPECT_EQ(model->run_elements(core::kind_stiffness, pass), no_error);
        return pass.total_energy;
    };
    sum_vector_assembler free_F, held_F;
    const double free_energy = run(values_of(m, 3, translations,
                                             [&](unsigned node, unsigned k) { return a * T * m.pos(k, node); }),
                                   free_F);
    double largest = 0.0;
    const double held_energy = run(core::DOF_values_view(), held_F);
    for (const auto& [ID, f] : held_F.sums) largest = std::max(largest, std::fabs(f));
    ASSERT_GT(largest, 0.0);
    for (const auto& [ID, f] : free_F.sums) EXPECT_LT(std::fabs(f), 1e-10 * largest);
    EXPECT_LT(std::fabs(free_energy), 1e-20);
    // Blocked: sigma = -3 K a T on the diagonal, energy density 9 K (a T)^2 / 2 on
    // the unit volume, with K = E / (3 (1 - 2 nu)).
    const double bulk = E / (3.0 * (1.0 - 2.0 * nu));
    EXPECT_NEAR(held_energy, 4.5 * bulk * a * T * a * T, 1e-12 * bulk * a * T * a * T);
    double sum[3] = {};
    for (const auto& [ID, f] : held_F.sums) sum[ID % 9] += f;
    for (double s : sum) EXPECT_LT(std::fabs(s), 1e-12 * largest);
}

} // namespace
