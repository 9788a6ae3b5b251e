// How models are made: the choice of instance and its refusals, the codes, what a
// model says of itself, the host's way through the public handles, the assembled
// matrix of a real mesh on several threads, and an oriented material.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/bases_mgr.h"
#include "kelt/fem.h"

using namespace kelt;
using namespace kelt::test;

namespace {

Ptr<core::physics_base> solid_physics() { return new core::solid_small(StVenant(1.0, 0.3)); }

error_type make(model_context& mc, core::physics_base* physics, const dense2D<unsigned>& mesh, element_type type)
{
    Ptr<core::numerical_model_base> out;
    return core::make_stiff_mesh(mc.ctx, physics, mesh, type, out);
}

TEST(model_init, pairs_without_an_instance_are_refused)
{
    model_context mc;
    Ptr<core::physics_base> solid = solid_physics();
    for (element_type t : {element_none, element_node, element_edge2, element_faceQ4, element_solid, element_hexa20,
                           element_wedge15, element_pyramid13, element_type(99)}) {
        const dense2D<unsigned> mesh(unsigned(t) < nbr_element_types ? nbr_nodes(t) : 1, 1, 0u);
        EXPECT_EQ(make(mc, solid, mesh, t), element_type_error) << t;
    }
    // The conduction physics has no stiffness instance, the solid no conduction one.
    Ptr<core::law_scalar> k = new core::law_scalar;
    Ptr<core::physics_base> conduction = new core::conduction_3d(k);
    const dense2D<unsigned> hexa(8, 1, 0u);
    EXPECT_EQ(make(mc, conduction, hexa, element_hexa8), element_type_error);
    Ptr<core::numerical_model_base> out;
    EXPECT_EQ(core::make_thermal_mesh(mc.ctx, solid, hexa, element_hexa8, out), element_type_error);
    EXPECT_EQ(core::make_mass_mesh(mc.ctx, solid, hexa, element_hexa8, out), element_type_error);
    EXPECT_FALSE(out);
}

TEST(model_init, physics_and_mesh_size_are_checked)
{
    model_context mc;
    EXPECT_EQ(make(mc, nullptr, dense2D<unsigned>(8, 1, 0u), element_hexa8), invalid_data_error);
    EXPECT_EQ(make(mc, solid_physics(), dense2D<unsigned>(7, 2, 0u), element_hexa8), connectivity_size_error);
    // No columns: any number of rows passes.
    Ptr<core::numerical_model_base> out;
    EXPECT_EQ(core::make_stiff_mesh(mc.ctx, solid_physics(), dense2D<unsigned>(5, 0), element_tetra10, out), no_error);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->nbr_elements(), 0u);
}

TEST(model_init, the_element_basis_follows_the_element)
{
    model_context mc;
    test_mesh m = single_element(element_hexa8, 0.0);
    // Turn the cube by 0.5 about z and stretch it along its own x.
    const double c = std::cos(0.5), s = std::sin(0.5);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        const double x = 3.0 * m.pos(0, node), y = m.pos(1, node);
        m.pos(0, node) = c * x - s * y;
        m.pos(1, node) = s * x + c * y;
    }
    auto model = mc.solid(m, StVenant(1.0, 0.3));
    matrix_fixed<double, 3, 3> basis;
    ASSERT_EQ(model->get_element_basis(0, m.pos, nullptr, basis), no_error);
    EXPECT_NEAR(basis(0, 0), c, 1e-14);
    EXPECT_NEAR(basis(1, 0), s, 1e-14);
    EXPECT_NEAR(basis(0, 1), -s, 1e-14);
    EXPECT_NEAR(basis(2, 2), 1.0, 1e-14);
    EXPECT_EQ(model->get_element_basis(1, m.pos, nullptr, basis), element_index_error);
}

TEST(model_init, a_host_builds_models_through_the_handles)
{
    fem::context ctx;
    fem::law_solid_StVenant law;
    ASSERT_EQ(law.init(dense1D<double, 8>(3, 0.25)), no_error);
    fem::model_solid_lin physics;
    ASSERT_EQ(physics.init(law), no_error);
    EXPECT_EQ(physics.physics_code(), 4000u);
    test_mesh m = cube_mesh(element_hexa27, 1, 0.0);
    fem::numerical_model_stiff_lin nm(ctx);
    EXPECT_EQ(nm.get_ID(), 0xFFFFFFFFu);
    ASSERT_EQ(nm.init(ctx, physics, m.cells, element_hexa27), no_error);
    EXPECT_NE(nm.get_ID(), 0xFFFFFFFFu);
    EXPECT_EQ(nm.get_FE_type(), element_hexa27);
    EXPECT_EQ(nm.get_physics_model().physics_variant_code(), 4000u);
    fem::numerical_model_base found;
    ASSERT_EQ(ctx.the_NM_mgr().get_NM(nm.get_ID(), found), no_error);
    EXPECT_EQ(found.get_ID(), nm.get_ID());
    // A failed init leaves the handle with its model.
    const unsigned ID = nm.get_ID();
    EXPECT_EQ(nm.init(ctx, physics, dense2D<unsigned>(20, 1, 0u), element_hexa20), element_type_error);
    EXPECT_EQ(nm.init(ctx, physics, m.cells, element_hexa20), connectivity_size_error);
    EXPECT_EQ(nm.get_ID(), ID);

    fem::model_solid_gnl large;
    ASSERT_EQ(large.init(law), no_error);
    fem::numerical_model_stiff_gnl gnl(ctx, large, m.cells, element_hexa27);
    EXPECT_EQ(gnl.get_physics_model().physics_variant_code(), 4300u);

    fem::law_scalar density;
    ASSERT_EQ(density.init(7800.0), no_error);
    fem::model_solid_lin wrong;
    EXPECT_EQ(wrong.init(density), invalid_data_error); // a density is no stiffness law
    fem::model_solid_mass mass_physics;
    ASSERT_EQ(mass_physics.init(density), no_error);
    fem::numerical_model_mass mass(ctx, mass_physics, m.cells, element_hexa27);
    EXPECT_NE(mass.get_ID(), 0xFFFFFFFFu);
    fem::model_heat_conduction_3d heat;
    ASSERT_EQ(heat.init(density), no_error);
    fem::numerical_model_heat_conduction conduction(ctx, heat, m.cells, element_hexa27);
    EXPECT_NE(conduction.get_ID(), 0xFFFFFFFFu);
    fem::numerical_model_load_only loads(ctx, m.cells, element_hexa27);
    EXPECT_NE(loads.get_ID(), 0xFFFFFFFFu);

    fem::numerical_model_composite all(ctx);
    ASSERT_EQ(all.insert(nm.get_ID()), no_error);
    dense1D<unsigned, 8> more;
    more.push_back(mass.get_ID());
    ASSERT_EQ(all.insert(more), no_error);
    auto* composite = static_cast<core::numerical_model_base*>(fem::core_of(all));
    unsigned counter = 0;
    EXPECT_EQ(composite->add_nbr_elements(counter), 2u);
    ctx.the_NM_mgr().clear();
}

// The stiffness of a distorted mesh, assembled on 1, 2 and 8 threads: the same
// matrix bit for bit, since assembly follows the element order.
TEST(model_init, the_assembled_matrix_of_a_mesh_is_the_same_on_any_number_of_threads)
{
    model_context mc;
    const test_mesh m = cube_mesh(element_hexa8, 6, 0.2);
    auto model = mc.solid(m, StVenant(1000.0, 0.3));
    std::vector<std::vector<double>> results;
    for (unsigned nt : {1u, 2u, 8u}) {
        mc.ctx->process_mgr->max_threads = nt;
        dense_assembler K;
        ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
        std::vector<double> flat;
        for (unsigned c = 0; c < K.n; ++c)
            for (unsigned r = 0; r < K.n; ++r) flat.push_back(K.get(r, c));
        results.push_back(flat);
    }
    EXPECT_TRUE(results[1] == results[0]);
    EXPECT_TRUE(results[2] == results[0]);
}

// A stiff fibre along (1, 1, 0) / sqrt(2) given in a material basis: a uniaxial
// strain along the fibre costs the fibre's modulus, across it the matrix's.
TEST(model_init, an_orthotropic_law_works_in_its_material_basis)
{
    model_context mc;
    const test_mesh m = single_element(element_hexa8, 0.0);
    core::frame3 frame;
    const double r = 1.0 / std::sqrt(2.0);
    frame(0, 0) = r, frame(1, 0) = r;
    frame(0, 1) = -r, frame(1, 1) = r;
    frame(2, 2) = 1.0;
    const unsigned basis = mc.ctx->bases_mgr->create_cartesian(frame);
    Ptr<core::law_solid_orthotropic> law = new core::law_solid_orthotropic;
    dense1D<double, 8> d;
    for (double v : {100.0, 5.0, 5.0, 2.0, 2.0, 2.0, 100.0, 5.0, 5.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}) d.push_back(v);
    ASSERT_EQ(law->init(d, mc.ctx->bases_mgr, basis), no_error);
    auto model = mc.solid(m, law);
    constexpr unsigned translations[3] = {0, 1, 2};
    const double eps = 1e-3;
    const auto energy_along = [&](double dx, double dy) {
        const core::DOF_values_view U = values_of(m, 3, translations, [&](unsigned node, unsigned k) {
            const double along = dx * m.pos(0, node) + dy * m.pos(1, node);
            return k == 0 ? eps * along * dx : k == 1 ? eps * along * dy : 0.0;
        });
        element_run run;
        compute(*model, core::kind_stiffness, 0, m, U, run);
        EXPECT_EQ(run.status, no_error);
        return run.work.energy;
    };
    EXPECT_NEAR(energy_along(r, r), 0.5 * 100.0 * eps * eps, 1e-12);
    EXPECT_NEAR(energy_along(-r, r), 0.5 * 5.0 * eps * eps, 1e-12);
}

} // namespace
