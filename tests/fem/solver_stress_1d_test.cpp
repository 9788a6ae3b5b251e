// Results along beams and rods against statics: the moments and shears of a
// cantilever and of a simply supported beam between the nodes, every element's
// end values in balance with its loads, a constant axial force in a rod, and the
// inputs that are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "kelt/fem.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

unsigned ID(unsigned node, field_tag f, unsigned c) { return fem::DOFs_mgr::ID(node, f, c); }

// A straight beam (or rod) along x of n elements over [0, L]; `held` lists the
// (node, field, component) that are not free.
struct line {
    static constexpr double L = 6.0, E = 2000.0, G = 800.0;

    line(unsigned n_, bool rod, std::initializer_list<std::array<unsigned, 3>> held) : n(n_)
    {
        pos = dense2D<double>(3, n + 1, 0.0);
        for (unsigned i = 0; i <= n; ++i) pos(0, i) = L * i / n;
        fem::DOFs_mgr dofs(n + 1, false);
        for (unsigned i = 0; i <= n; ++i) {
            EXPECT_EQ(dofs.set(i, displacement_tag, true), no_error);
            if (!rod) {
                EXPECT_EQ(dofs.set(i, rotation_tag, true), no_error);
            }
        }
        for (const auto& h : held) EXPECT_EQ(dofs.set(h[0], field_tag(h[1]), h[2], false), no_error);
        dense2D<unsigned> cells(2, n);
        for (unsigned e = 0; e < n; ++e) cells(0, e) = e, cells(1, e) = e + 1;
        if (rod) {
            dense1D<double, 8> d(3, 0.0);
            d[0] = E;
            EXPECT_EQ(spring.init(d), no_error);
            EXPECT_EQ(rod_physics.init(spring), no_error);
            EXPECT_EQ(model.init(t.ctx, rod_physics, cells, element_edge2), no_error);
        } else {
            const double v[15] = {0, 1, 0, E, G, 0.0, 1.0, 0.6, 0.5, 0.3, 0.2, 0.1, 0.0, 0.0, 0.0};
            dense1D<double, 8> d(22, 0.0);
            for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
            EXPECT_EQ(law.init(d), no_error);
            EXPECT_EQ(physics.init(law), no_error);
            EXPECT_EQ(model.init(t.ctx, physics, cells, element_edge2), no_error);
        }
        problem = fem::problem_data(t.ctx, pos, dofs, model.get_ID(), 1);
    }

    void spread(double qx, double qy, double qz)
    {
        fem::elementary_load q;
        q.kind = 1;
        q.values.push_back(qx), q.values.push_back(qy), q.values.push_back(qz);
        for (unsigned e = 0; e < n; ++e)
            EXPECT_EQ(problem.get_loads_mgr(0).record_NM_load(model.get_ID(), e, q, no_func), no_error);
    }

    fem::post_processor_1d::data_type sample(const dense1D<double, 8>& abscissas)
    {
        fem::solver_static_linear statics;
        fem::solver_static_linear::data_type U(problem);
        statics.run(U);
        EXPECT_EQ(U.error_code, no_error) << U.msg_title << U.msg_detail;
        fem::post_processor_1d post;
        post.settings.abscissas = abscissas;
        fem::post_processor_1d::data_type data(problem);
        data.U = U.U;
        post.run(data);
        EXPECT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        return data;
    }

    unsigned n;
    test_context t;
    dense2D<double> pos;
    fem::law_beam_StVenant law;
    fem::law_spring spring;
    fem::model_beam_lin physics;
    fem::model_rod_lin rod_physics;
    fem::numerical_model_stiff_lin model{t.ctx};
    fem::problem_data problem{t.ctx};
};

dense1D<double, 8> points(std::initializer_list<double> a)
{
    dense1D<double, 8> d;
    for (double v : a) d.push_back(v);
    return d;
}

constexpr unsigned d_ = displacement_tag, r_ = rotation_tag;

} // namespace

// A tip force P along y on a cantilever clamped at x = 0: Mz(x) = P (L - x) and
// Vy = P at every point of every element; nothing else.
TEST(post_processor_1d, cantilever_under_a_tip_force)
{
    constexpr double P = 3.0;
    line b(4, false, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {0, r_, 0}, {0, r_, 1}, {0, r_, 2}});
    ASSERT_EQ(b.problem.get_loads_mgr(0).record_DOF_load(ID(4, displacement_tag, 1), P, no_func), no_error);
    const dense1D<double, 8> a = points({0.0, 0.2, 0.5, 0.75, 1.0});
    const auto data = b.sample(a);
    ASSERT_EQ(data.forces.cols(), 4u * 5u);
    for (unsigned c = 0; c < data.forces.cols(); ++c) {
        const double x = line::L * (c / 5 + a[c % 5]) / 4.0;
        SCOPED_TRACE(x);
        EXPECT_NEAR(data.moments(2, c), P * (line::L - x), 1e-10 * P * line::L);
        EXPECT_NEAR(data.forces(1, c), P, 1e-10 * P);
        for (double other : {data.forces(0, c), data.forces(2, c), data.moments(0, c), data.moments(1, c)})
            EXPECT_NEAR(other, 0.0, 1e-10 * P * line::L);
    }
    EXPECT_NEAR(data.Mz_max, P * line::L, 1e-10 * P * line::L);
    // The end values per element say the same, in the element's axes and in the
    // global ones (the same here).
    for (bool global : {false, true}) {
        fem::solver_stress_1d ends;
        ends.settings.global_frame = global;
        fem::solver_stress_1d::data_type e(b.problem);
        e.U = data.U;
        ends.run(e);
        ASSERT_EQ(e.error_code, no_error) << e.msg_title;
        ASSERT_EQ(e.results.cols(), 12u);
        for (unsigned c = 0; c < 8; ++c) {
            double Mz = 0.0, Vy = 0.0;
            ASSERT_EQ(e.results.getID_val(c / 2, 6 * (c % 2) + 2, Mz), no_error);
            ASSERT_EQ(e.results.getID_val(c / 2, 6 * (c % 2) + 4, Vy), no_error);
            EXPECT_NEAR(Mz, P * line::L * (1.0 - (c / 2 + c % 2) / 4.0), 1e-10 * P * line::L);
            EXPECT_NEAR(Vy, P, 1e-10 * P);
        }
    }
}

// A uniform load q against y on a simply supported beam: Mz = q x (L - x) / 2 and
// Vy = q (x - L / 2) (the forces beyond x) between the nodes as at them.
TEST(post_processor_1d, simply_supported_beam_under_a_uniform_load)
{
    constexpr double q = 1.5;
    line b(3, false, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {0, r_, 0}, {3, d_, 1}, {3, d_, 2}});
    b.spread(0.0, -q, 0.0);
    const dense1D<double, 8> a = points({0.0, 0.1, 0.3, 0.5, 0.8, 1.0});
    const auto data = b.sample(a);
    ASSERT_EQ(data.moments.cols(), 3u * 6u);
    for (unsigned c = 0; c < data.moments.cols(); ++c) {
        const double x = line::L * (c / 6 + a[c % 6]) / 3.0;
        SCOPED_TRACE(x);
        EXPECT_NEAR(data.moments(2, c), q * x * (line::L - x) / 2.0, 1e-10 * q * line::L * line::L);
        EXPECT_NEAR(data.forces(1, c), q * (x - line::L / 2.0), 1e-10 * q * line::L);
    }
    // Displacements are continuous from one element to the next.
    for (unsigned e = 0; e + 1 < 3; ++e)
        for (unsigned r = 0; r < 3; ++r)
            EXPECT_NEAR(data.displacements(r, 6 * e + 5), data.displacements(r, 6 * (e + 1)),
                        1e-9 * data.displacement_max);
}

// A uniform load q against y on a beam clamped at both ends, in two elements: the
// closed-form element's end moments of the load make the nodes exact, so the
// mid-span deflection is q L^4 / (384 E Iz) + q L^2 / (8 G Ay) and the moment
// Mz = q x (L - x) / 2 - q L^2 / 12 at every point.
TEST(post_processor_1d, beam_clamped_at_both_ends_under_a_uniform_load)
{
    constexpr double q = 1.5, L = line::L, Iz = 0.1, Ay = 0.6;
    line b(2, false, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {0, r_, 0}, {0, r_, 1}, {0, r_, 2},
                      {2, d_, 0}, {2, d_, 1}, {2, d_, 2}, {2, r_, 0}, {2, r_, 1}, {2, r_, 2}});
    b.spread(0.0, -q, 0.0);
    const dense1D<double, 8> a = points({0.0, 0.25, 0.5, 1.0});
    const auto data = b.sample(a);
    const double w = q * L * L * L * L / (384.0 * line::E * Iz) + q * L * L / (8.0 * line::G * Ay);
    EXPECT_NEAR(value(data.U, ID(1, displacement_tag, 1)), -w, 1e-12 * w);
    for (unsigned c = 0; c < data.moments.cols(); ++c) {
        const double x = L * (c / 4 + a[c % 4]) / 2.0;
        EXPECT_NEAR(data.moments(2, c), q * x * (L - x) / 2.0 - q * L * L / 12.0, 1e-10 * q * L * L) << x;
    }
}

// Each element's end values balance the loads on it, in every direction: the
// forces change by q Le, the moments by the shear's lever and q Le^2 / 2.
TEST(post_processor_1d, end_values_of_every_element_balance_its_loads)
{
    struct row {
        double qx, qy, qz;
    };
    for (const row r : {row{0.0, -1.0, 0.0}, row{0.5, 0.0, 2.0}, row{-0.3, 0.7, -1.1}}) {
        SCOPED_TRACE(testing::Message() << r.qx << " " << r.qy << " " << r.qz);
        line b(4, false, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {0, r_, 0}, {0, r_, 1}, {0, r_, 2}, {4, d_, 1}});
        b.spread(r.qx, r.qy, r.qz);
        const auto data = b.sample(points({0.0, 1.0}));
        const double Le = line::L / 4.0, tol = 1e-10 * (1.0 + data.Mz_max + data.My_max);
        for (unsigned e = 0; e < 4; ++e) {
            const unsigned s = 2 * e, t = s + 1;
            EXPECT_NEAR(data.forces(0, s) - data.forces(0, t), r.qx * Le, tol);
            EXPECT_NEAR(data.forces(1, s) - data.forces(1, t), r.qy * Le, tol);
            EXPECT_NEAR(data.forces(2, s) - data.forces(2, t), r.qz * Le, tol);
            EXPECT_NEAR(data.moments(2, s) - data.moments(2, t) - data.forces(1, t) * Le, r.qy * Le * Le / 2.0, tol);
            EXPECT_NEAR(data.moments(1, s) - data.moments(1, t) + data.forces(2, t) * Le, -r.qz * Le * Le / 2.0, tol);
        }
    }
}

// A rod under an axial force: N constant along every element.
TEST(post_processor_1d, rod_under_an_axial_force)
{
    constexpr double P = 7.0;
    line b(3, true, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {1, d_, 1}, {1, d_, 2}, {2, d_, 1}, {2, d_, 2}, {3, d_, 1},
                     {3, d_, 2}});
    ASSERT_EQ(b.problem.get_loads_mgr(0).record_DOF_load(ID(3, displacement_tag, 0), P, no_func), no_error);
    const auto data = b.sample(points({0.0, 0.4, 1.0}));
    for (unsigned c = 0; c < data.forces.cols(); ++c) EXPECT_NEAR(data.forces(0, c), P, 1e-12 * P);
    EXPECT_NEAR(data.N_min, P, 1e-12 * P);
    EXPECT_NEAR(data.N_max, P, 1e-12 * P);
}

TEST(post_processor_1d, refuses_what_is_not_a_line_model_and_bad_abscissas)
{
    cantilever solid;
    fem::solver_stress_1d ends;
    fem::solver_stress_1d::data_type e(solid.problem);
    ends.run(e);
    EXPECT_EQ(e.error_code, element_type_error);
    EXPECT_STREQ(e.msg_title, "KELT solver_stress_1d: invalid model type.");
    fem::post_processor_1d post;
    fem::post_processor_1d::data_type p(solid.problem);
    post.run(p);
    EXPECT_STREQ(p.msg_title, "DATA ERROR");
    EXPECT_EQ(std::string(p.msg_detail).rfind("KELT post_processor_1d: invalid numerical model.\n", 0), 0u);

    line b(2, false, {{0, d_, 0}, {0, d_, 1}, {0, d_, 2}, {0, r_, 0}, {0, r_, 1}, {0, r_, 2}});
    struct row {
        dense1D<double, 8> abscissas;
        unsigned nbr_points;
    };
    const row bad[] = {{points({0.1, 0.5}), 2}, {points({0.0, 0.5, 0.5}), 2}, {points({0.0, 0.7, 0.3}), 2},
                       {points({0.0}), 2},      {points({0.0, 1.5}), 2},      {dense1D<double, 8>(), 1}};
    for (const row& r : bad) {
        post.settings.abscissas = r.abscissas;
        post.settings.nbr_points = r.nbr_points;
        fem::post_processor_1d::data_type d(b.problem);
        post.run(d);
        EXPECT_EQ(d.error_code, invalid_data_error);
        EXPECT_STREQ(d.msg_title, "MODE ERROR");
    }
}
