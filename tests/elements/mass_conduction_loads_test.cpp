// The kernels beyond stiffness: consistent mass, steady conduction, and the element
// loads of the solid, conduction and load-only meshes, checked against the totals
// that physics gives on meshes of known measure.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/load_pass.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/elements/element_loads.h"

using namespace kelt;
using namespace kelt::test;

namespace {

struct volume_kernels : ::testing::TestWithParam<element_type> {};

INSTANTIATE_TEST_SUITE_P(volumes, volume_kernels, ::testing::ValuesIn(volume_types),
                         [](const auto& info) { return std::string(type_name(info.param)); });

// On each direction the entries of a consistent mass add up to the mass of the
// body: density times the volume of the unit cube, distorted inside.
TEST_P(volume_kernels, consistent_mass_sums_to_density_times_volume)
{
    model_context mc;
    const test_mesh m = cube_mesh(GetParam(), 2, 0.2);
    const double rho = 7.5;
    auto model = mc.mass(m, rho);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->model_code(), 0u);
    EXPECT_EQ(model->physics_code(), 0u);
    dense_assembler M;
    ASSERT_EQ(assemble(*model, core::kind_mass, m, M), no_error);
    double sums[3][3] = {};
    for (unsigned c = 0; c < M.n; ++c)
        for (unsigned r = 0; r < M.n; ++r) sums[M.rows[r] % 9][M.rows[c] % 9] += M.get(r, c);
    for (unsigned k = 0; k < 3; ++k)
        for (unsigned l = 0; l < 3; ++l) EXPECT_NEAR(sums[k][l], k == l ? rho : 0.0, 1e-12 * rho) << k << l;
    // A stiffness pass finds nothing to do in a mass model.
    dense_assembler K;
    ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
    EXPECT_EQ(K.calls, 0u);
}

TEST_P(volume_kernels, a_single_element_mass_is_positive_definite)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.mass(m, 2.0);
    element_run run;
    compute(*model, core::kind_mass, 0, m, core::DOF_values_view(), run);
    ASSERT_EQ(run.status, no_error);
    const std::vector<double> w = eigenvalues(run.work.Ke);
    EXPECT_GT(w.front(), 1e-8 * w.back());
}

TEST_P(volume_kernels, a_conduction_element_has_one_zero_energy_mode)
{
    model_context mc;
    const test_mesh m = single_element(GetParam(), 0.1);
    auto model = mc.conduction(m, 45.0);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->model_code(), 19000u + GetParam());
    element_run run;
    compute(*model, core::kind_conduction, 0, m, core::DOF_values_view(), run);
    ASSERT_EQ(run.status, no_error);
    ASSERT_EQ(run.work.Ke.order(), nbr_nodes(GetParam()));
    for (unsigned a = 0; a < run.work.DOFs.size(); ++a) EXPECT_EQ(run.work.DOFs[a] % 9, 6u);
    EXPECT_EQ(nbr_zero_eigenvalues(eigenvalues(run.work.Ke), 1e-10), 1u);
}

// A linear temperature carries a constant flux: every interior node is in balance,
// and the flux at each point is -k grad T.
TEST_P(volume_kernels, conduction_passes_the_patch_test)
{
    model_context mc;
    const test_mesh m = cube_mesh(GetParam(), 2, 0.2);
    const double k = 3.0, g[3] = {2.0, -1.0, 0.5};
    auto model = mc.conduction(m, k);
    constexpr unsigned temperature[1] = {6};
    const core::DOF_values_view T = values_of(m, 1, temperature, [&](unsigned node, unsigned) {
        return 10.0 + g[0] * m.pos(0, node) + g[1] * m.pos(1, node) + g[2] * m.pos(2, node);
    });
    dense_assembler K;
    sum_vector_assembler F;
    ASSERT_EQ(assemble(*model, core::kind_conduction, m, K, &F, &T), no_error);
    for (const auto& [ID, f] : F.sums) {
        if (!m.on_boundary(ID / 9)) {
            EXPECT_LT(std::fabs(f), 1e-12 * k) << ID;
        }
    }
    core::element_work_type w;
    core::element_pass_type pass;
    pass.pos = m.pos;
    pass.U = T;
    w.start(pass, model->ID);
    w.element = model->nbr_elements() - 1;
    ASSERT_EQ(model->compute_element_results(core::kind_conduction, core::result_heat_flux, w), no_error);
    ASSERT_GT(w.results.cols(), 0u);
    for (unsigned p = 0; p < w.results.cols(); ++p)
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(w.results(3 + i, p), -k * g[i], 1e-12 * k);
}

// A load case of one body force per element, assembled through the loads manager.
std::map<unsigned, double> assemble_case(model_context& mc, core::numerical_model_base& model, const test_mesh& m,
                                         const core::elementary_load& load, double factor)
{
    core::loads_mgr loads(mc.ctx);
    for (unsigned e = 0; e < model.nbr_elements(); ++e)
        EXPECT_EQ(loads.record_NM_load(model.ID, e, load, 0), no_error);
    sum_vector_assembler F;
    core::element_pass_type element_pass;
    element_pass.pos = m.pos;
    core::load_pass_type pass(F, factor, 0.0, 0);
    pass.element_pass = &element_pass;
    EXPECT_EQ(loads.assemble(pass), no_error);
    return F.sums;
}

core::elementary_load load_of(unsigned kind, std::initializer_list<double> values)
{
    core::elementary_load l;
    l.kind = kind;
    for (double v : values) l.values.push_back(v);
    return l;
}

TEST_P(volume_kernels, body_forces_and_heat_sources_total_their_density_times_volume)
{
    model_context mc;
    mc.ctx->process_mgr->max_threads = 2;
    const test_mesh m = cube_mesh(GetParam(), 2, 0.2);
    auto solid = mc.solid(m, StVenant(1.0, 0.3));
    double total[3] = {};
    for (const auto& [ID, f] : assemble_case(mc, *solid, m, load_of(core::load_force, {1.0, -2.0, 0.5}), 3.0))
        total[ID % 9] += f;
    EXPECT_NEAR(total[0], 3.0, 1e-12);
    EXPECT_NEAR(total[1], -6.0, 1e-12);
    EXPECT_NEAR(total[2], 1.5, 1e-12);

    auto conduction = mc.conduction(m, 1.0);
    double heat = 0.0;
    for (const auto& [ID, q] : assemble_case(mc, *conduction, m, load_of(core::load_heat, {4.0}), 1.0)) {
        EXPECT_EQ(ID % 9, 6u);
        heat += q;
    }
    EXPECT_NEAR(heat, 4.0, 1e-12);

    auto carrier = mc.load_only(m);
    double carried = 0.0;
    for (const auto& [ID, f] : assemble_case(mc, *carrier, m, load_of(core::load_force, {0.0, 0.0, 2.0}), 1.0))
        carried += f;
    EXPECT_NEAR(carried, 2.0, 1e-12);
}

TEST(element_loads, a_model_refuses_a_load_it_does_not_carry)
{
    model_context mc;
    const test_mesh m = single_element(element_hexa8, 0.0);
    auto solid = mc.solid(m, StVenant(1.0, 0.3));
    core::element_work_type w;
    core::element_pass_type pass;
    pass.pos = m.pos;
    w.start(pass, solid->ID);
    w.element = 0;
    EXPECT_EQ(solid->compute_element_load(load_of(core::load_heat, {1.0}), w), invalid_data_error);
    EXPECT_EQ(solid->compute_element_load(load_of(core::load_pressure, {1.0}), w), invalid_data_error);
    EXPECT_EQ(solid->compute_element_load(load_of(99, {1.0}), w), invalid_data_error);
    w.element = 1;
    EXPECT_EQ(solid->compute_element_load(load_of(core::load_force, {1.0}), w), element_index_error);
}

struct flat_loads : ::testing::TestWithParam<element_type> {};

std::string face_name(element_type t)
{
    switch (t) {
    case element_faceT3: return "T3";
    case element_faceT6: return "T6";
    case element_faceQ4: return "Q4";
    default: return "Q9";
    }
}

INSTANTIATE_TEST_SUITE_P(faces, flat_loads,
                         ::testing::Values(element_faceT3, element_faceT6, element_faceQ4, element_faceQ9),
                         [](const auto& info) { return face_name(info.param); });

// A 2 x 1 rectangle turned into a tilted plane: a pressure gives -p A n, a traction
// t A and a heat flux q A, wherever the interior nodes lie.
TEST_P(flat_loads, pressure_traction_and_flux_total_over_a_tilted_plane)
{
    model_context mc;
    test_mesh m = flat_mesh(GetParam(), 3, 2, 0.2);
    const double c = std::cos(0.4), s = std::sin(0.4);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        const double y = m.pos(1, node), z = m.pos(2, node);
        m.pos(1, node) = c * y - s * z + 1.0;
        m.pos(2, node) = s * y + c * z - 2.0;
    }
    const double normal[3] = {0.0, -s, c}, area = 2.0;
    auto model = mc.load_only(m);
    ASSERT_TRUE(model);
    EXPECT_FALSE(model->handles_field_family(core::kind_stiffness));
    const auto totals = [&](const core::elementary_load& load) {
        double t[9] = {};
        for (const auto& [ID, f] : assemble_case(mc, *model, m, load, 1.0)) t[ID % 9] += f;
        return std::vector<double>(t, t + 9);
    };
    const std::vector<double> p = totals(load_of(core::load_pressure, {5.0}));
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(p[k], -5.0 * area * normal[k], 1e-12);
    const std::vector<double> t = totals(load_of(core::load_force, {1.0, 2.0, 3.0}));
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(t[k], (k + 1.0) * area, 1e-12);
    EXPECT_NEAR(totals(load_of(core::load_heat, {0.25}))[6], 0.25 * area, 1e-12);
}

TEST(element_loads, line_loads_total_over_the_length)
{
    for (element_type type : {element_edge2, element_edge3}) {
        model_context mc;
        test_mesh m = flat_mesh(type, 4, 0, 0.2);
        auto model = mc.load_only(m);
        ASSERT_TRUE(model);
        double t[3] = {};
        for (const auto& [ID, f] : assemble_case(mc, *model, m, load_of(core::load_force, {1.0, 0.0, -1.0}), 1.0))
            t[ID % 9] += f;
        EXPECT_NEAR(t[0], 2.0, 1e-12);
        EXPECT_NEAR(t[2], -2.0, 1e-12);
        // A line has no normal to press on.
        core::element_work_type w;
        core::element_pass_type pass;
        pass.pos = m.pos;
        w.start(pass, model->ID);
        w.element = 0;
        EXPECT_EQ(model->compute_element_load(load_of(core::load_pressure, {1.0}), w), invalid_data_error);
    }
}

} // namespace
