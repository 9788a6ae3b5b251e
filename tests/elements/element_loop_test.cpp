// The element loop: which elements it visits, the evolution factor, the order of
// assembly whatever the number of threads, the first failure, the energies; the
// DOF listings and the equations-to-elements map; the internal-state store.
#include <gtest/gtest.h>

#include <cmath>
#include <array>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/internal_states.h"
#include "kelt/core/load_pass.h"
#include "kelt/elements/numerical_model_composite.h"
#include "kelt/elements/numerical_model_mesh.h"

using namespace kelt;
using namespace kelt::test;

namespace {

// Element e touches DOFs 9 e to 9 e + 8 of a ring of 40 nodes, with a 3 x 3
// matrix of values whose sums depend on the order in which they are added.
class ring_model : public core::numerical_model_stiff {
public:
    explicit ring_model(core::context_type* ctx, unsigned n) : numerical_model_stiff(ctx), elements(n) {}
    unsigned nbr_elements() const override { return elements; }
    error_type compute_element(core::pass_kind, core::element_work_type& w) const override
    {
        w.clear_outputs();
        ++computed;
        if (w.element == failing) return element_geometry_error;
        const unsigned nodes[3] = {w.element % 40, (w.element + 1) % 40, (w.element + 7) % 40};
        if (!w.DOFs.resize(3) || !w.Ke.resize(3) || !w.Fe.resize(3)) return memory_error;
        for (unsigned i = 0; i < 3; ++i) {
            w.DOFs[i] = 9 * nodes[i];
            w.Fe[i] = w.factor * std::sin(1e3 * w.element + i) * 1e-3;
            for (unsigned j = 0; j <= i; ++j) w.Ke(j, i) = w.factor * (1.0 + std::sin(w.element * 0.37 + i + 3 * j) / 3.0);
        }
        w.energy = w.factor * (1.0 + w.element % 5);
        return no_error;
    }
    unsigned elements;
    unsigned failing = 0xFFFFFFFFu;
    mutable std::atomic<unsigned> computed{0};
};

struct loop_fixture : ::testing::Test {
    loop_fixture()
    {
        model = new ring_model(mc.ctx, 997);
        EXPECT_EQ(model->record(), no_error);
    }
    void set_threads(unsigned n) { mc.ctx->process_mgr->max_threads = n; }
    // One stiffness pass into fresh assemblers.
    struct pass_run {
        dense_assembler K;
        sum_vector_assembler F;
        core::element_pass_type pass;
    };
    error_type run(pass_run& r)
    {
        r.pass.matrix = &r.K;
        r.pass.vector = &r.F;
        return model->run_elements(core::kind_stiffness, r.pass);
    }
    model_context mc;
    Ptr<ring_model> model;
};

TEST_F(loop_fixture, assembly_is_bit_identical_on_1_2_and_8_threads)
{
    std::vector<std::vector<double>> matrices;
    std::vector<double> energies;
    for (unsigned nt : {1u, 2u, 8u}) {
        SCOPED_TRACE(nt);
        set_threads(nt);
        pass_run r;
        ASSERT_EQ(run(r), no_error);
        EXPECT_EQ(r.K.calls, 997u);
        std::vector<double> flat;
        for (unsigned c = 0; c < r.K.n; ++c)
            for (unsigned i = 0; i < r.K.n; ++i) flat.push_back(r.K.get(i, c));
        for (const auto& [ID, f] : r.F.sums) flat.push_back(f);
        matrices.push_back(flat);
        energies.push_back(r.pass.total_energy);
    }
    EXPECT_TRUE(matrices[1] == matrices[0]);
    EXPECT_TRUE(matrices[2] == matrices[0]);
    EXPECT_EQ(energies[1], energies[0]);
    EXPECT_EQ(energies[2], energies[0]);
}

TEST_F(loop_fixture, the_first_failure_in_element_order_stops_the_loop)
{
    model->failing = 300;
    for (unsigned nt : {1u, 2u, 8u}) {
        SCOPED_TRACE(nt);
        set_threads(nt);
        pass_run r;
        EXPECT_EQ(run(r), element_geometry_error);
        // None after the failing one is assembled. Serially all before it are; on
        // threads, one that had not started when the failure was seen is skipped.
        if (nt == 1)
            EXPECT_EQ(r.K.calls, 300u);
        else
            EXPECT_LE(r.K.calls, 300u);
    }
}

TEST_F(loop_fixture, a_zero_evolution_factor_leaves_the_assemblers_untouched)
{
    set_threads(2);
    model->evolution_func_ID = mc.ctx->evolution_funcs_mgr->create_cste(0.0);
    pass_run zero;
    EXPECT_EQ(run(zero), no_error);
    EXPECT_EQ(zero.K.calls, 0u);
    EXPECT_TRUE(zero.F.sums.empty());
    EXPECT_EQ(model->computed, 0u);

    // A function of 2 doubles everything; an index past the functions is 1.
    model->evolution_func_ID = mc.ctx->evolution_funcs_mgr->create_cste(2.0);
    pass_run twice, once;
    ASSERT_EQ(run(twice), no_error);
    model->evolution_func_ID = 1000;
    ASSERT_EQ(run(once), no_error);
    EXPECT_EQ(twice.pass.total_energy, 2.0 * once.pass.total_energy);
    for (unsigned i = 0; i < once.K.n; ++i) EXPECT_EQ(twice.K.get(i, i), 2.0 * once.K.get(i, i));
}

TEST_F(loop_fixture, one_element_or_none_past_the_end)
{
    set_threads(8);
    pass_run r;
    r.pass.element = 5;
    ASSERT_EQ(run(r), no_error);
    EXPECT_EQ(r.K.calls, 1u);
    EXPECT_EQ(r.pass.total_energy, 1.0 + 5 % 5);
    r.pass.element = 997;
    const unsigned before = model->computed;
    EXPECT_EQ(run(r), no_error);
    EXPECT_EQ(r.K.calls, 1u);
    EXPECT_EQ(model->computed, before);
}

TEST_F(loop_fixture, element_energies_land_at_their_mapped_places)
{
    set_threads(2);
    vector_fast map; // global element numbers 990 down to 0 in steps of 10
    for (unsigned g = 0; g <= 990; g += 10) (void)map.push_back(990 - g);
    dense1D<double, 8> energies(3 + map.size(), 0.0);
    pass_run r;
    r.pass.element_energies = &energies;
    r.pass.energy_offset = 3;
    r.pass.energy_map = &map;
    ASSERT_EQ(run(r), no_error);
    const unsigned first = mc.ctx->numerical_models_mgr->global_FE_ID(model->ID);
    for (unsigned i = 0; i < map.size(); ++i) EXPECT_EQ(energies[3 + i], 1.0 + (map[i] - first) % 5) << i;
    EXPECT_EQ(energies[0], 0.0);
}

// ---------------------------------------------------------------------------------
// DOF listings of a mesh.

TEST(DOF_listings, elements_DOFs_are_the_translations_of_the_nodes_in_column_order)
{
    model_context mc;
    const test_mesh m = cube_mesh(element_wedge6, 2, 0.1);
    auto model = mc.solid(m, StVenant(1.0, 0.2));
    std::vector<unsigned> ends, DOFs;
    ASSERT_EQ(model->get_elements_DOFs(core::all_elements, core::kind_stiffness, m.pos, core::all_fields, ends, DOFs),
              no_error);
    ASSERT_EQ(ends.size(), model->nbr_elements() + 1);
    EXPECT_EQ(ends[0], 0u);
    for (unsigned e = 0; e < model->nbr_elements(); ++e) {
        ASSERT_EQ(ends[e + 1] - ends[e], 18u);
        for (unsigned a = 0; a < 6; ++a)
            for (unsigned k = 0; k < 3; ++k) EXPECT_EQ(DOFs[ends[e] + 3 * a + k], m.cells(a, e) * 9 + k);
    }
    // Other kinds and other fields list nothing, but still mark each element.
    std::vector<unsigned> ends2, DOFs2;
    ASSERT_EQ(model->get_elements_DOFs(core::all_elements, core::kind_mass, m.pos, core::all_fields, ends2, DOFs2),
              no_error);
    EXPECT_TRUE(DOFs2.empty());
    EXPECT_EQ(ends2.size(), model->nbr_elements() + 1);
    std::vector<unsigned> ends3, DOFs3;
    ASSERT_EQ(model->get_elements_DOFs(3, core::kind_stiffness, m.pos, temperature_tag, ends3, DOFs3), no_error);
    EXPECT_TRUE(DOFs3.empty());

    // The model's list: every node's translations once.
    dense1D<unsigned, 8> all;
    ASSERT_EQ(model->get_model_DOFs(core::kind_stiffness, m.pos, core::all_fields, all), no_error);
    EXPECT_EQ(all.size(), 3 * m.nbr_nodes());
    EXPECT_EQ(std::set<unsigned>(all.begin(), all.end()).size(), all.size());
}

TEST(DOF_listings, DOF_to_elements_is_the_transpose_of_the_connectivity)
{
    model_context mc;
    const test_mesh a = cube_mesh(element_hexa8, 2, 0.1), b = cube_mesh(element_tetra4, 1, 0.0);
    auto first = mc.solid(a, StVenant(1.0, 0.2));
    auto second = mc.solid(b, StVenant(1.0, 0.2));
    Ptr<core::numerical_model_composite> both = new core::numerical_model_composite(mc.ctx);
    ASSERT_EQ(both->record(), no_error);
    ASSERT_EQ(both->insert(first->ID), no_error);
    ASSERT_EQ(both->insert(second->ID), no_error);
    ASSERT_EQ(both->insert(12345), no_error); // no such model: skipped

    // Equations: every third DOF of the first mesh, in a scrambled order.
    vector_fast map;
    for (unsigned node = a.nbr_nodes(); node-- > 0;)
        if (node % 3 == 0) (void)map.push_back(node * 9 + node % 3);
    dense1D<unsigned, 8> offsets;
    dense1D<core::FE_pair, 8> pairs;
    ASSERT_EQ(both->get_DOF_to_elements(core::all_elements, core::kind_stiffness, map, offsets, pairs), no_error);
    ASSERT_EQ(offsets.size(), map.size() + 1);
    EXPECT_EQ(offsets[0], 0u);
    EXPECT_EQ(offsets[map.size()], pairs.size());
    // Brute force: for each equation the (model, element) pairs that hold it, in
    // the order of the models and then of the elements.
    for (unsigned r = 0; r < map.size(); ++r) {
        std::vector<std::pair<unsigned, unsigned>> expected;
        for (const auto& [model, mesh] : {std::pair{first.get(), &a}, std::pair{second.get(), &b}})
            for (unsigned e = 0; e < mesh->cells.cols(); ++e)
                for (unsigned k = 0; k < mesh->cells.rows(); ++k)
                    for (unsigned p = 0; p < 3; ++p)
                        if (mesh->cells(k, e) * 9 + p == map[r]) expected.push_back({model->ID, e});
        std::vector<std::pair<unsigned, unsigned>> got;
        for (unsigned q = offsets[r]; q < offsets[r + 1]; ++q) got.push_back({pairs[q].model, pairs[q].element});
        EXPECT_EQ(got, expected) << r;
    }
    // An empty map gives the single offset 0.
    vector_fast none;
    ASSERT_EQ(both->get_DOF_to_elements(core::all_elements, core::kind_stiffness, none, offsets, pairs), no_error);
    ASSERT_EQ(offsets.size(), 1u);
    EXPECT_EQ(offsets[0], 0u);
}

// ---------------------------------------------------------------------------------
// The internal-state store.

// Elements with an even index keep two values of state each.
class stateful_model : public core::numerical_model_base {
public:
    explicit stateful_model(core::context_type* ctx) : numerical_model_base(ctx), states(10) {}
    unsigned nbr_elements() const override { return 10; }
    bool has_internal_states() const override { return true; }
    bool layout_internal_states(core::internal_states_block& block) const override
    {
        block.clear();
        block.stride = 2;
        unsigned at = 0;
        block.offsets.push_back(0);
        for (unsigned e = 0; e < 10; ++e) {
            if (!states[e].empty()) at += 2;
            block.offsets.push_back(at);
        }
        return block.values.resize(at, 0.0);
    }
    error_type get_element_states(core::internal_states_block& block, unsigned e) const override
    {
        if (states[e].empty()) return no_error;
        for (unsigned k = 0; k < 2; ++k) block.values[block.offsets[e] + k] = states[e][k];
        return no_error;
    }
    error_type set_element_states(unsigned e, const dense1D<double, 8>& values) override
    {
        states[e].assign(values.begin(), values.end());
        return no_error;
    }
    std::vector<std::vector<double>> states;
};

TEST(internal_states, a_store_keeps_and_restores_the_states_of_a_model)
{
    model_context mc;
    Ptr<stateful_model> model = new stateful_model(mc.ctx);
    ASSERT_EQ(model->record(), no_error);
    for (unsigned e = 0; e < 10; e += 2) model->states[e] = {1.0 + e, -2.0 * e};
    core::internal_states store;
    ASSERT_EQ(model->get_internal_states(store), no_error);
    const core::internal_states_block* block = store.find(model->ID);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->values.size(), 10u);
    const auto saved = model->states;

    for (auto& s : model->states) s = {9.0, 9.0};
    ASSERT_EQ(model->set_internal_states(store), no_error);
    EXPECT_EQ(model->states, saved); // odd elements: an empty slice erased their state

    // A wrong width loads the element as if it had no state.
    core::internal_states_block& b = store.at(model->ID);
    b.offsets[3] = b.offsets[2] + 1;
    ASSERT_EQ(model->set_internal_states(store), no_error);
    EXPECT_TRUE(model->states[2].empty());
    EXPECT_EQ(model->states[4], saved[4]);

    // No block at all: every element is emptied.
    core::internal_states empty;
    ASSERT_EQ(model->set_internal_states(empty), no_error);
    for (const auto& s : model->states) EXPECT_TRUE(s.empty());
}

} // namespace

namespace {

// An elastic law whose points carry two values of state, passed on unchanged.
class law_with_states : public core::law_solid_StVenant {
public:
    unsigned nbr_internal_states() const override { return 2; }
    bool get_stress(const core::law_key& key, const core::voigt6& eps, core::constitutive6& D, core::voigt6& sigma,
                    double& energy_density, const double* in, double* out) const override
    {
        for (unsigned k = 0; out && k < 2; ++k) out[k] = in ? in[k] : 0.0;
        return law_solid_StVenant::get_stress(key, eps, D, sigma, energy_density, nullptr, nullptr);
    }
};

TEST(internal_states, a_mesh_moves_the_states_of_its_points)
{
    model_context mc;
    const test_mesh m = cube_mesh(element_hexa8, 1, 0.0);
    test_mesh three = m;
    (void)three.cells.resize(8, 3); // three copies of the cell
    for (unsigned e = 1; e < 3; ++e)
        for (unsigned a = 0; a < 8; ++a) three.cells(a, e) = m.cells(a, 0);
    Ptr<law_with_states> law = new law_with_states;
    (void)law->init(dense1D<double, 8>(3, 0.2));
    auto model = mc.solid(three, Ptr<core::law_solid_stiff>(law.get()));
    ASSERT_TRUE(model->has_internal_states());
    dense1D<double, 8> values;
    for (unsigned p = 0; p < 8; ++p) {
        values.push_back(double(p));
        values.push_back(-1.0 * p);
    }
    ASSERT_EQ(model->set_element_states(1, values), no_error);
    core::internal_states store;
    ASSERT_EQ(model->get_internal_states(store), no_error);
    const core::internal_states_block* block = store.find(model->ID);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->stride, 16u); // 2 values at 8 points
    const unsigned offsets[4] = {0, 0, 16, 16};
    for (unsigned e = 0; e < 4; ++e) EXPECT_EQ(block->offsets[e], offsets[e]);
    for (unsigned p = 0; p < 8; ++p) EXPECT_EQ(block->values[2 * p], double(p));

    // Cleared, no element has a state; the store brings element 1's back.
    model->clear_internal_states();
    core::internal_states cleared;
    ASSERT_EQ(model->get_internal_states(cleared), no_error);
    EXPECT_EQ(cleared.find(model->ID)->values.size(), 0u);
    ASSERT_EQ(model->set_internal_states(store), no_error);
    core::internal_states again;
    ASSERT_EQ(model->get_internal_states(again), no_error);
    ASSERT_EQ(again.find(model->ID)->values.size(), 16u);
    EXPECT_EQ(again.find(model->ID)->values[7], -3.0);
    ASSERT_EQ(model->set_element_states(1, dense1D<double, 8>()), no_error);
    ASSERT_EQ(model->get_internal_states(again), no_error);
    EXPECT_EQ(again.find(model->ID)->values.size(), 0u);
    EXPECT_EQ(model->set_element_states(1, dense1D<double, 8>(3, 1.0)), invalid_data_error);
    EXPECT_EQ(model->set_element_states(3, values), element_index_error);
}

} // namespace
