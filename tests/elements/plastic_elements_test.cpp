// Elastoplastic laws through the element loop: an elastic range is the elastic
// law's answer and leaves no state; a committed plastic strain leaves the
// residual stress of its closed form; trials from one commit agree; rods and
// discrete springs keep the force of their commit when unloaded.
#include <gtest/gtest.h>

#include <cmath>

#include "element_test_support.h"
#include "kelt/core/internal_states.h"
#include "kelt/discrete/discrete_elements.h"
#include "kelt/laws/law_scalar_ep.h"
#include "kelt/laws/law_solid_ep.h"
#include "support/values.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr double E = 1000.0, nu = 0.3, sy = 2.0, Et = 50.0, G = E / (2 * (1 + nu));
constexpr unsigned places[3] = {0, 1, 2};

dense1D<double, 8> values(std::initializer_list<double> list) { return make(list); }

struct pass_result {
    dense_assembler K;
    sum_vector_assembler F;
};

error_type pass(core::numerical_model_base& model, const dense2D<double>& pos, const core::DOF_values_view& U,
                pass_result& r, bool commit = false)
{
    core::element_pass_type p;
    p.pos = pos;
    p.U = U;
    p.matrix = &r.K;
    p.vector = &r.F;
    p.commit = commit;
    return model.run_elements(core::kind_stiffness, p);
}

unsigned elements_with_states(const core::numerical_model_base& model)
{
    core::internal_states store;
    EXPECT_EQ(model.get_internal_states(store), no_error);
    const core::internal_states_block* b = store.find(model.ID);
    unsigned n = 0;
    for (unsigned e = 0; b && e < model.nbr_elements(); ++e) n += b->slice(e).size() != 0;
    return n;
}

struct solid_ep : ::testing::Test {
    solid_ep() : m(cube_mesh(element_hexa8, 2, 0.2))
    {
        Ptr<core::law_solid_ep_perfect> law = new core::law_solid_ep_perfect;
        EXPECT_EQ(law->init(values({E, nu, 0.0, Et, sy})), no_error);
        model = mc.solid(m, Ptr<core::law_solid_stiff>(law.get()));
        elastic = mc.solid(m, StVenant(E, nu));
    }
    // u = (a x, b y, c z): a homogeneous strain.
    core::DOF_values_view stretch(double a, double b = 0.0, double c = 0.0) const
    {
        return values_of(m, 3, places, [&, a, b, c](unsigned n, unsigned k) {
            return (k == 0 ? a : k == 1 ? b : c) * m.pos(k, n);
        });
    }
    model_context mc;
    test_mesh m;
    Ptr<core::numerical_model_base> model, elastic;
};

// Below yield the plastic law is the elastic one, matrix and forces bit for bit,
// and a commit stores nothing.
TEST_F(solid_ep, an_elastic_range_gives_the_elastic_answer_and_no_state)
{
    const double a = 0.9 * sy / (2 * G); // q = 2 G a in uniaxial strain
    pass_result plastic_run, elastic_run;
    ASSERT_EQ(pass(*model, m.pos, stretch(a), plastic_run, true), no_error);
    ASSERT_EQ(pass(*elastic, m.pos, stretch(a), elastic_run), no_error);
    EXPECT_TRUE(plastic_run.K.A == elastic_run.K.A);
    EXPECT_TRUE(plastic_run.F.sums == elastic_run.F.sums);
    EXPECT_EQ(elements_with_states(*model), 0u);
    ASSERT_EQ(pass(*model, m.pos, stretch(1.5 * a), plastic_run, true), no_error);
    EXPECT_EQ(elements_with_states(*model), model->nbr_elements());
}

// Uniaxial strain a past yield, committed, then unloaded: the stress left is the
// returned deviator less the trial one, G l (-2, 1, 1) with l = (2 G a - sy) /
// (3 G + H), whose von Mises value 3 G l stays below the new yield stress for
// a = 1.5 sy / 2 G; trials from that commit repeat bit for bit.
TEST_F(solid_ep, unloading_leaves_the_residual_stress_of_the_return)
{
    const double a = 1.5 * sy / (2 * G), H = E * Et / (E - Et), l = (2 * G * a - sy) / (3 * G + H);
    pass_result loaded, first, between, second;
    ASSERT_EQ(pass(*model, m.pos, stretch(a), loaded, true), no_error);
    ASSERT_EQ(pass(*model, m.pos, stretch(0.5 * a, 0.2 * a), first), no_error);
    ASSERT_EQ(pass(*model, m.pos, stretch(-a), between), no_error);
    ASSERT_EQ(pass(*model, m.pos, stretch(0.5 * a, 0.2 * a), second), no_error);
    EXPECT_TRUE(first.K.A == second.K.A);
    EXPECT_TRUE(first.F.sums == second.F.sums);

    core::element_work_type w;
    core::element_pass_type p;
    p.pos = m.pos;
    p.U = stretch(0.0);
    w.start(p, model->ID);
    const double expected[6] = {-2 * G * l, G * l, G * l, 0, 0, 0};
    double error = 0.0;
    for (unsigned e = 0; e < model->nbr_elements(); ++e) {
        w.element = e;
        ASSERT_EQ(model->compute_element_results(core::kind_stiffness, core::result_stress, w), no_error);
        for (unsigned q = 0; q < w.results.cols(); ++q)
            for (unsigned i = 0; i < 6; ++i) error = std::max(error, std::fabs(w.results(3 + i, q) - expected[i]));
    }
    // Strains of a homogeneous field in distorted elements are exact but for the
    // rounding of a few hundred operations on values of the size E a.
    EXPECT_LE(error, 1e-11 * E * a);
    EXPECT_GT(G * l, 0.1 * sy);
}

// A rod of unit length along x and a directional spring on the x of its second
// node (identifier 9), of stiffness k: stretched to s1 = 3 fy / k (force f1,
// tangent kt), committed, then shortened by 1.5 f1 / k, elastically back to
// -f1 / 2, short of the hardened yield force f1 in compression. The spring's
// state also goes out and back in through a store.
TEST(line_and_spring_ep, a_committed_stretch_unloads_elastically)
{
    const double k = 100.0, kt = 10.0, fy = 1.0, s1 = 3 * fy / k, f1 = fy + kt * (s1 - fy / k);
    Ptr<core::law_spring_ep_perfect> rod_law = new core::law_spring_ep_perfect;
    Ptr<core::law_scalar_ep_perfect> spring_law = new core::law_scalar_ep_perfect;
    ASSERT_EQ(rod_law->init(values({k, 0.0, 0.0, kt, fy})), no_error);
    ASSERT_EQ(spring_law->init(values({k, kt, fy})), no_error);
    test_mesh m;
    m.type = element_edge2;
    m.pos = dense2D<double>(3, 2, 0.0);
    m.pos(0, 1) = 1.0;
    m.cells = dense2D<unsigned>(2, 1);
    m.cells(0, 0) = 0, m.cells(1, 0) = 1;
    model_context mc;
    Ptr<core::spring_directional> spring = new core::spring_directional(mc.ctx);
    ASSERT_EQ(spring->init(make({9u}), values({1.0}), Ptr<core::law_scalar>(spring_law.get())), no_error);
    ASSERT_EQ(spring->record(), no_error);
    const auto U = [&](double s) {
        return values_of(m, 3, places, [&](unsigned n, unsigned c) { return c == 0 ? s * m.pos(0, n) : 0.0; });
    };
    const Ptr<core::numerical_model_base> rod = mc.stiff(m, new core::rod_small(Ptr<core::law_spring>(rod_law.get())));
    for (Ptr<core::numerical_model_base> model : {rod, Ptr<core::numerical_model_base>(spring.get())}) {
        ASSERT_TRUE(model && model->has_internal_states());
        pass_result loaded, unloaded, restored;
        ASSERT_EQ(pass(*model, m.pos, U(s1), loaded, true), no_error);
        EXPECT_NEAR(loaded.F.sums[9], -f1, 1e-12 * f1);
        EXPECT_NEAR(loaded.K.get(loaded.K.rank(9), loaded.K.rank(9)), kt, 1e-12 * k);
        core::internal_states store;
        ASSERT_EQ(model->get_internal_states(store), no_error);
        ASSERT_EQ(pass(*model, m.pos, U(s1 - 1.5 * f1 / k), unloaded), no_error);
        EXPECT_NEAR(unloaded.F.sums[9], 0.5 * f1, 1e-12 * f1);
        EXPECT_NEAR(unloaded.K.get(unloaded.K.rank(9), unloaded.K.rank(9)), k, 1e-12 * k);
        model->clear_internal_states();
        ASSERT_EQ(model->set_internal_states(store), no_error);
        ASSERT_EQ(pass(*model, m.pos, U(s1 - 1.5 * f1 / k), restored), no_error);
        EXPECT_EQ(restored.F.sums[9], unloaded.F.sums[9]);
    }
}

} // namespace
