// Contact, stops and cables element by element: each tangent is the derivative of
// the element's own residual, and that residual the derivative of its energy;
// the smooth law's half-way point; refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <vector>

#include "kelt/discrete/contact.h"

using namespace kelt;

namespace {

constexpr double sharp = std::numeric_limits<double>::max();

unsigned id(unsigned node, unsigned place) { return node * 9 + place; }

dense1D<unsigned, 8> nodes(std::initializer_list<unsigned> v)
{
    dense1D<unsigned, 8> d;
    for (unsigned x : v) d.push_back(x);
    return d;
}

// One evaluation: the vector, the matrix (Ke or the sum of the blocks) and the
// energy, by DOF identifier.
struct evaluation {
    error_type code = no_error;
    std::map<unsigned, double> F;
    std::map<std::pair<unsigned, unsigned>, double> K;
    double energy = 0.0;
};

evaluation evaluate(const core::numerical_model_base& m, const std::map<unsigned, double>& U,
                    const dense2D<double>& pos, unsigned element = 0)
{
    core::element_work_type w;
    Ptr<vector_fast> rows(new vector_fast);
    for (const auto& [ID, v] : U) rows->push_back(ID), w.U.values.push_back(v);
    w.U.rows = rows;
    w.pos = pos;
    w.element = element;
    w.penalty_displacement = 1e3, w.penalty_rotation = 2e3;
    evaluation e;
    e.code = m.compute_element(core::kind_stiffness, w);
    for (unsigned i = 0; i < w.Fe.size(); ++i) e.F[w.DOFs[i]] += w.Fe[i];
    auto add = [&](const symmetric_full<double>& K, const dense1D<unsigned, 8>& IDs) {
        for (unsigned j = 0; j < IDs.size(); ++j)
            for (unsigned i = 0; i < IDs.size(); ++i) e.K[{IDs[i], IDs[j]}] += K(std::min(i, j), std::max(i, j));
    };
    if (w.Ke.order()) add(w.Ke, w.DOFs);
    for (const core::element_block& b : w.Kblocks) add(b.K, b.DOFs);
    e.energy = w.energy;
    return e;
}

} // namespace

// Central differences of the residual and of the energy at random states where
// every part is active (no switch within h): error ~ h² |F'''| ~ 1e-12 against
// rounding eps |F| / h ~ 1e-10, both far under the 1e-6 asked of the largest
// entry. Sphere and cylinder: outside them (no_pull false, so the turn of the
// normal is in the tangent) and inside them with a negative sharpness.
TEST(contact, tangents_are_the_derivatives_of_the_residual)
{
    dense2D<double> pos(3, 5, 0.0);
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> rnd(-1.0, 1.0);
    for (unsigned j = 1; j < 5; ++j)
        for (unsigned c = 0; c < 3; ++c) pos(c, j) = rnd(gen);
    pos(2, 1) = pos(2, 2) = -0.3; // the plane z = 0 through node 0 is penetrated
    Ptr<core::law_scalar> spring_law(new core::law_spring);
    dense1D<double, 8> k(3, 0.0);
    k[0] = 50.0;
    ASSERT_EQ(spring_law->init(k), no_error);
    auto smooth = 20.0; // half the law at 0.05 of penetration
    const vector_fixed<double, 3> z{{0.0, 0.0, 1.0}}, tilted{{0.3, -0.2, 1.0}};
    std::vector<std::pair<const char*, std::function<error_type(Ptr<core::numerical_model_base>&)>>> cases = {
        {"plane, sharp", [&](auto& m) { auto* c = new core::contact_plane(nullptr); m = c;
             return c->init(nodes({1, 2}), 0, z, 0.0, sharp, 1e9); }},
        {"plane, smooth, tilted, K_max", [&](auto& m) { auto* c = new core::contact_plane(nullptr); m = c;
             return c->init(nodes({1, 2, 3}), 0, tilted, -0.3, smooth, 40.0); }},
        {"sphere outside", [&](auto& m) { auto* c = new core::contact_sphere(nullptr); m = c;
             return c->init(nodes({1, 2, 3, 4}), 0, 2.0, smooth, sharp, false); }},
        {"sphere inside", [&](auto& m) { auto* c = new core::contact_sphere(nullptr); m = c;
             return c->init(nodes({1, 2, 3, 4}), 0, 0.3, -sharp, sharp, true); }},
        {"cylinder outside", [&](auto& m) { auto* c = new core::contact_cylinder(nullptr); m = c;
             return c->init(nodes({1, 2, 3, 4}), 0, tilted, 2.0, sharp, sharp, false); }},
        {"cylinder bore", [&](auto& m) { auto* c = new core::contact_cylinder(nullptr); m = c;
             return c->init(nodes({1, 2, 3, 4}), 0, tilted, 0.2, -smooth, sharp, true); }},
        {"stops, displacement", [&](auto& m) { auto* c = new core::block_stops(nullptr); m = c;
             return c->init(nodes({1, 3}), displacement_tag, tilted, -0.5); }},
        {"stops, rotation", [&](auto& m) { auto* c = new core::block_stops(nullptr); m = c;
             return c->init(nodes({2}), rotation_tag, z, -0.5); }},
        {"cable over pulleys", [&](auto& m) { auto* c = new core::cable(nullptr); m = c;
             return c->init(nodes({1, 2, 3, 4}), spring_law); }},
        {"rigid cable, tension only", [&](auto& m) { auto* c = new core::cable_rigid(nullptr); m = c;
             return c->init(nodes({4, 1, 3}), true, 0.0, 0.5); }},
    };
    for (auto& [name, make] : cases) {
        SCOPED_TRACE(name);
        Ptr<core::numerical_model_base> m;
        ASSERT_EQ(make(m), no_error);
        std::map<unsigned, double> U;
        for (unsigned j = 0; j < 5; ++j)
            for (unsigned place = 0; place < 6; ++place) U[id(j, place)] = 0.1 * rnd(gen);
        const evaluation e = evaluate(*m, U, pos);
        ASSERT_EQ(e.code, no_error);
        double scale = 0.0;
        for (const auto& [ij, k] : e.K) scale = std::max(scale, std::fabs(k));
        ASSERT_GT(scale, 0.0);
        ASSERT_FALSE(e.F.empty());
        const double h = 1e-6;
        double worst = 0.0, worst_F = 0.0;
        for (const auto& [j, unused] : e.F) {
            auto at = [&](double by) { auto V = U; V[j] += by; return evaluate(*m, V, pos); };
            const evaluation p = at(h), q = at(-h);
            worst_F = std::max(worst_F, std::fabs(e.F.at(j) + (p.energy - q.energy) / (2 * h)));
            for (const auto& [i, f] : e.F) {
                const double d = -((p.F.count(i) ? p.F.at(i) : 0.0) - (q.F.count(i) ? q.F.at(i) : 0.0)) / (2 * h);
                const double k = e.K.count({i, j}) ? e.K.at({i, j}) : 0.0;
                worst = std::max(worst, std::fabs(k - d));
            }
        }
        EXPECT_LT(worst, 1e-6 * scale);
        EXPECT_LT(worst_F, 1e-6 * scale);
    }
}

// The smooth law reaches half its coefficient at |g| = 1 / sharpness, acts on one
// side only, and its energy's series and closed form meet at y = 0.001.
TEST(contact, the_regularised_law)
{
    const double s = 25.0;
    EXPECT_DOUBLE_EQ(core::contact_law(-s, -1.0 / s).c, 0.5);
    EXPECT_EQ(core::contact_law(-s, 1e-3).c, 0.0);
    EXPECT_EQ(core::contact_law(-sharp, 0.0).c, 0.0); // no force at exact touch
    EXPECT_EQ(core::contact_law(-sharp, -1e-300).c, 1.0);
    const double g = std::sqrt(0.001) / s;
    EXPECT_NEAR(core::contact_law(-s, -g * (1 - 1e-9)).e, core::contact_law(-s, -g * (1 + 1e-9)).e, 1e-8 * g * g);
}

TEST(contact, bad_input_is_refused_with_its_code)
{
    const vector_fixed<double, 3> zero{{0.0, 0.0, 0.0}}, z{{0.0, 0.0, 1.0}};
    core::contact_plane plane(nullptr);
    core::contact_cylinder bore(nullptr);
    core::block_stops stops(nullptr);
    EXPECT_EQ(plane.init(nodes({1}), 0, zero, 0.0, sharp, sharp), invalid_data_error);
    EXPECT_EQ(bore.init(nodes({1}), 0, zero, 1.0, sharp, sharp, true), invalid_data_error);
    EXPECT_EQ(stops.init(nodes({1}), displacement_tag, zero, 0.0), invalid_data_error);
    // Repeats and the master leave the slave list.
    ASSERT_EQ(plane.init(nodes({3, 1, 0, 3, 1}), 0, z, 0.0, sharp, sharp), no_error);
    ASSERT_EQ(plane.nodes.size(), 2u);
    EXPECT_TRUE(plane.nodes[0] == 1 && plane.nodes[1] == 3);
    // An element other than 0 or all; a slave outside the positions; a cable of
    // one node has no length.
    dense2D<double> pos(3, 2, 0.0);
    EXPECT_EQ(evaluate(plane, {}, pos, 1).code, element_index_error);
    EXPECT_EQ(evaluate(plane, {}, pos, core::all_elements).code, invalid_data_error);
    core::cable_rigid one(nullptr);
    ASSERT_EQ(one.init(nodes({1}), true, 0.0, 0.0), no_error);
    EXPECT_EQ(evaluate(one, {}, pos).code, element_geometry_error);
}
