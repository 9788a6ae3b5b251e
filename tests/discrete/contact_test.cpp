// Contact, stops and cables element by element: tangents and residuals as the
// derivatives of residuals and energies; the regularised law; refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "kelt/discrete/contact.h"
#include "support/values.h"

using namespace kelt;

namespace {

constexpr double sharp = std::numeric_limits<double>::max();

// One evaluation by DOF identifier: vector, matrix (Ke or the blocks), energy.
struct evaluation {
    error_type code = no_error;
    std::map<unsigned, double> F;
    std::map<std::pair<unsigned, unsigned>, double> K;
    double energy = 0.0;
    double f(unsigned i) const { return F.count(i) ? F.at(i) : 0.0; }
};

evaluation evaluate(const core::numerical_model_base& m, const std::map<unsigned, double>& U,
                    const dense2D<double>& pos, unsigned element = 0)
{
    core::element_work_type w;
    Ptr<vector_fast> rows(new vector_fast);
    for (const auto& [ID, v] : U) rows->push_back(ID), w.U.values.push_back(v);
    w.U.rows = rows, w.pos = pos, w.element = element;
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

template <class T, class... A>
Ptr<core::numerical_model_base> made(A... args)
{
    Ptr<T> m(new T(nullptr));
    return m->init(args...) == no_error ? Ptr<core::numerical_model_base>(m.get()) : nullptr;
}

} // namespace

// Central differences of the residual and of the energy at random states where
// every part is active (no switch within h): error ~ h² |F'''| ~ 1e-12 against
// rounding eps |F| / h ~ 1e-10, both far under the 1e-6 asked of the largest
// entry. Sphere and cylinder outside (no_pull false: the turn of the normal is in
// the tangent) and inside with a negative sharpness (a bore).
TEST(contact, tangents_are_the_derivatives_of_the_residual)
{
    dense2D<double> pos(3, 5, 0.0);
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> rnd(-1.0, 1.0);
    for (unsigned j = 1; j < 5; ++j)
        for (unsigned c = 0; c < 3; ++c) pos(c, j) = c == 2 && j < 3 ? -0.3 : rnd(gen); // 1, 2 under z = 0
    Ptr<core::law_scalar> law(new core::law_spring);
    dense1D<double, 8> k(3, 0.0);
    k[0] = 50.0;
    ASSERT_EQ(law->init(k), no_error);
    const double smooth = 20.0; // half the law at 0.05 of penetration
    const vector_fixed<double, 3> z{{0.0, 0.0, 1.0}}, tilted{{0.3, -0.2, 1.0}};
    const Ptr<core::numerical_model_base> cases[] = {
        made<core::contact_plane>(test::make<unsigned>({1, 2}), 0u, z, 0.0, sharp, 1e9),
        made<core::contact_plane>(test::make<unsigned>({1, 2, 3}), 0u, tilted, -0.3, smooth, 40.0),
        made<core::contact_sphere>(test::make<unsigned>({1, 2, 3, 4}), 0u, 2.0, smooth, sharp, false),
        made<core::contact_sphere>(test::make<unsigned>({1, 2, 3, 4}), 0u, 0.3, -sharp, sharp, true),
        made<core::contact_cylinder>(test::make<unsigned>({1, 2, 3, 4}), 0u, tilted, 2.0, sharp, sharp, false),
        made<core::contact_cylinder>(test::make<unsigned>({1, 2, 3, 4}), 0u, tilted, 0.2, -smooth, sharp, true),
        made<core::block_stops>(test::make<unsigned>({1, 3}), displacement_tag, tilted, -0.5),
        made<core::block_stops>(test::make<unsigned>({2}), rotation_tag, z, -0.5),
        made<core::cable>(test::make<unsigned>({1, 2, 3, 4}), law),               // over pulleys
        made<core::cable_rigid>(test::make<unsigned>({4, 1, 3}), true, 0.0, 0.5), // taut by its initial strain
    };
    for (unsigned n = 0; n < std::size(cases); ++n) {
        SCOPED_TRACE(n);
        ASSERT_TRUE(cases[n]);
        const core::numerical_model_base& m = *cases[n];
        std::map<unsigned, double> U;
        for (unsigned ID = 0; ID < 45; ++ID) U[ID] = ID % 9 < 6 ? 0.1 * rnd(gen) : 0.0;
        const evaluation e = evaluate(m, U, pos);
        ASSERT_EQ(e.code, no_error);
        double scale = 0.0, worst = 0.0, worst_F = 0.0;
        for (const auto& [ij, k] : e.K) scale = std::max(scale, std::fabs(k));
        ASSERT_GT(scale, 0.0);
        const double h = 1e-6;
        for (const auto& [j, unused] : e.F) {
            auto at = [&](double by) {
                auto V = U;
                V[j] += by;
                return evaluate(m, V, pos);
            };
            const evaluation p = at(h), q = at(-h);
            worst_F = std::max(worst_F, std::fabs(e.F.at(j) + (p.energy - q.energy) / (2 * h)));
            for (const auto& [i, unused_f] : e.F)
                worst = std::max(worst,
                                 std::fabs((e.K.count({i, j}) ? e.K.at({i, j}) : 0.0) + (p.f(i) - q.f(i)) / (2 * h)));
        }
        EXPECT_LT(worst, 1e-6 * scale);
        EXPECT_LT(worst_F, 1e-6 * scale);
    }
}

// The smooth law is half on at |g| = 1 / sharpness and off on the free side; the
// sharp one is off at exact touch. Refusals: a zero normal, axis or direction at
// init; an element other than 0 or all; a slave outside the positions; a cable of
// one node, which has no length. Repeats and the master leave the slave list.
TEST(contact, law_and_bad_input)
{
    EXPECT_DOUBLE_EQ(core::contact_law(-25.0, -1.0 / 25.0).c, 0.5);
    EXPECT_EQ(core::contact_law(-25.0, 1e-3).c, 0.0);
    EXPECT_EQ(core::contact_law(-sharp, 0.0).c, 0.0);
    EXPECT_EQ(core::contact_law(-sharp, -1e-300).c, 1.0);
    const vector_fixed<double, 3> zero{{0.0, 0.0, 0.0}}, z{{0.0, 0.0, 1.0}};
    EXPECT_FALSE(made<core::contact_plane>(test::make<unsigned>({1}), 0u, zero, 0.0, sharp, sharp));
    EXPECT_FALSE(made<core::contact_cylinder>(test::make<unsigned>({1}), 0u, zero, 1.0, sharp, sharp, true));
    EXPECT_FALSE(made<core::block_stops>(test::make<unsigned>({1}), displacement_tag, zero, 0.0));
    core::contact_plane plane(nullptr);
    ASSERT_EQ(plane.init(test::make<unsigned>({3, 1, 0, 3, 1}), 0, z, 0.0, sharp, sharp), no_error);
    EXPECT_TRUE(plane.nodes.size() == 2 && plane.nodes[0] == 1 && plane.nodes[1] == 3);
    dense2D<double> pos(3, 2, 0.0);
    EXPECT_EQ(evaluate(plane, {}, pos, 1).code, element_index_error);
    EXPECT_EQ(evaluate(plane, {}, pos, core::all_elements).code, invalid_data_error);
    EXPECT_EQ(evaluate(*made<core::cable_rigid>(test::make<unsigned>({1}), true, 0.0, 0.0), {}, pos).code,
              element_geometry_error);
}
