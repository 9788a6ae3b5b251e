// The elastoplastic laws at a point: uniaxial stress reached by a Newton loop on
// the law's own tangent against the closed forms of each hardening curve, pure
// shear, the consistent tangent against finite differences, repeated trials, and
// the one-dimensional laws with their limits and force floors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "kelt/laws/law_scalar_ep.h"
#include "kelt/laws/law_solid_ep.h"
#include "support/values.h"

using namespace kelt;
using core::constitutive6;
using core::voigt6;

namespace {

constexpr double E = 200e3, nu = 0.3, sy = 250.0, G = E / (2.0 * (1.0 + nu));

dense1D<double, 8> values(std::initializer_list<double> list) { return test::make(list); }

// A point with its committed state, driven by strains or by stresses.
struct point {
    const core::law_solid_stiff& law;
    double committed[13] = {};
    double trial[13] = {};
    voigt6 eps{}, sigma{};
    constitutive6 D{};

    void at(const voigt6& e)
    {
        eps = e;
        double energy = 0.0;
        EXPECT_TRUE(law.get_stress({}, eps, D, sigma, energy, committed, trial));
    }
    // Uniaxial stress s along x: the axial and the two equal lateral strains by
    // Newton on the law's tangent from the current strain, whose first step is
    // elastic (a point at the yield surface may unload); then committed.
    void reach(double s)
    {
        double x = eps[0], y = eps[1];
        for (unsigned it = 0; it < 30; ++it) {
            at(voigt6{{x, y, y, 0, 0, 0}});
            const double r0 = s - sigma[0], r1 = -sigma[1];
            if (std::max(std::fabs(r0), std::fabs(r1)) <= 1e-12 * sy) break;
            if (it == 0) law.get_constitutive({}, D);
            const double a = D(0, 0), b = D(0, 1) + D(0, 2), c = D(1, 0), d = D(1, 1) + D(1, 2);
            x += (d * r0 - b * r1) / (a * d - b * c);
            y += (a * r1 - c * r0) / (a * d - b * c);
        }
        std::copy(trial, trial + 13, committed);
    }
};

// The plastic strain in uniaxial tension at the stress s of each curve, in closed
// form: a = 0.002, n = 5 for the power curves, a bilinear table.
struct curve_case {
    const char* name;
    std::function<std::unique_ptr<core::law_solid_stiff>()> make;
    std::function<double(double)> plastic_strain;
    // The stresses driven. The power curves start above p = 1e-6, where their
    // slope is the tangent and not the secant of the curve's start.
    double bottom, top;
};

template <class Law>
std::unique_ptr<core::law_solid_stiff> made(std::initializer_list<double> data)
{
    auto law = std::make_unique<Law>();
    EXPECT_EQ(law->init(values(data)), no_error);
    return law;
}

std::unique_ptr<core::law_solid_stiff> perfect(double Et)
{
    return made<core::law_solid_ep_perfect>({E, nu, 0, Et, sy});
}

constexpr double a = 0.002, n = 5.0;

std::vector<curve_case> curves()
{
    const double Et = E / 20, H = E * Et / (E - Et);
    return {
        {"linear", [=] { return perfect(Et); }, [=](double s) { return (s - sy) / H; }, 0.8 * sy, 1.6 * sy},
        {"power", [] { return made<core::law_solid_ep_power>({E, nu, 0, sy, a, n}); },
         [](double s) { return a * sy / E * std::pow((s - sy) / sy, n); }, 1.9 * sy, 2.3 * sy},
        {"Ramberg-Osgood", [] { return made<core::law_solid_ep_RambergOsgood>({E, nu, 0, sy, a, n}); },
         [](double s) { return a * sy / E * std::pow(s / sy, n); }, 0.9 * sy, 1.3 * sy},
        {"piecewise",
         [] {
             // Slopes E, E/10, E/40 ending at the strains 1.25e-3, 3e-3, 9e-3.
             auto law = std::make_unique<core::law_solid_ep_piecewise_linear>();
             EXPECT_EQ(law->init(values({E, nu, 0.0}), values({E, E / 10, E / 40}), values({1.25e-3, 3e-3, 9e-3})),
                       no_error);
             return std::unique_ptr<core::law_solid_stiff>(std::move(law));
         },
         [](double s) {
             // Total strain on the given polyline, less the elastic part.
             const double s1 = sy + (3e-3 - 1.25e-3) * E / 10;
             const double eps = s <= s1 ? 1.25e-3 + (s - sy) / (E / 10) : 3e-3 + (s - s1) / (E / 40);
             return eps - s / E;
         },
         0.8 * sy, 1.25 * sy}, // 1.26 sy at the last strain, then flat
    };
}

// Loading in uniaxial stress past yield follows eps = s / E + p(s) of the curve,
// with lateral strains -nu s / E - p / 2; unloading to zero leaves p.
TEST(law_solid_ep, uniaxial_stress_follows_the_closed_form_curve_and_unloads_elastically)
{
    for (const curve_case& c : curves()) {
        SCOPED_TRACE(c.name);
        auto law = c.make();
        point pt{*law};
        pt.at(voigt6{});
        for (double s = c.bottom; s <= c.top + 1e-9; s += 0.05 * sy) {
            pt.reach(s);
            const double p = std::max(0.0, c.plastic_strain(s));
            EXPECT_NEAR(pt.eps[0], s / E + p, 1e-8 * (s / E + p)) << s;
            EXPECT_NEAR(pt.eps[1], -nu * s / E - p / 2, 1e-8 * (s / E + p)) << s;
            EXPECT_NEAR(pt.committed[12], p, 1e-8 * (s / E + p) + 1e-15) << s;
        }
        const double p = c.plastic_strain(c.top);
        pt.reach(0.0);
        EXPECT_NEAR(pt.eps[0], p, 1e-8 * p);
        EXPECT_NEAR(pt.eps[2], -p / 2, 1e-8 * p);
        EXPECT_NEAR(pt.committed[12], p, 1e-8 * p);
    }
}

// Pure shear yields at tau = sy / sqrt 3: below it nothing is stored, beyond it a
// perfectly plastic point holds that stress.
TEST(law_solid_ep, pure_shear_yields_at_a_third_of_root_three_of_the_yield_stress)
{
    auto law = perfect(0.0);
    point pt{*law};
    const double gamma_y = sy / std::sqrt(3.0) / G;
    pt.at(voigt6{{0, 0, 0, 0.999 * gamma_y, 0, 0}});
    EXPECT_NEAR(pt.sigma[3], 0.999 * sy / std::sqrt(3.0), 1e-12 * sy);
    EXPECT_TRUE(std::all_of(pt.trial, pt.trial + 13, [](double v) { return v == 0.0; }));
    pt.at(voigt6{{0, 0, 0, 3 * gamma_y, 0, 0}});
    EXPECT_NEAR(pt.sigma[3], sy / std::sqrt(3.0), 1e-12 * sy);
    EXPECT_NEAR(pt.trial[12], 2 * gamma_y / std::sqrt(3.0), 1e-12); // p = gamma_p / sqrt 3
    for (unsigned i : {0u, 1u, 2u, 4u, 5u}) EXPECT_NEAR(pt.sigma[i], 0.0, 1e-12 * sy);
}

// The tangent is the derivative of the returned stress. Central differences err
// by O(h^2) and by rounding eps_mach |sigma| / h; the return converges
// quadratically, so its own error is far below either. Trials read the commit
// only: after all the others, the first trial comes back bit for bit.
TEST(law_solid_ep, consistent_tangent_matches_finite_differences)
{
    const voigt6 states[] = {
        {{1e-2, 0, 0, 0, 0, 0}},
        {{6e-3, -3e-3, 1.5e-3, 6e-3, 0, 0}},
        {{-3e-3, 3e-3, 6e-3, 3e-3, -9e-3, 6e-3}},
    };
    for (const curve_case& c : curves())
        for (const voigt6& e : states) {
            SCOPED_TRACE(c.name);
            auto law = c.make();
            point pt{*law};
            pt.at(e);
            ASSERT_GT(pt.trial[12], 1e-5); // plastic, away from the power laws' secant start
            const constitutive6 D = pt.D;
            const voigt6 first = pt.sigma;
            const double h = 1e-8;
            double largest = 0.0, error = 0.0;
            for (unsigned j = 0; j < 6; ++j) {
                voigt6 up = e, down = e;
                up[j] += h;
                down[j] -= h;
                pt.at(up);
                const voigt6 s_up = pt.sigma;
                pt.at(down);
                for (unsigned i = 0; i < 6; ++i) {
                    largest = std::max(largest, std::fabs(D(i, j)));
                    error = std::max(error, std::fabs((s_up[i] - pt.sigma[i]) / (2 * h) - D(i, j)));
                }
            }
            EXPECT_LE(error, 1e-5 * largest);
            pt.at(e);
            EXPECT_TRUE(std::equal(first.v, first.v + 6, pt.sigma.v));
        }
}

TEST(law_solid_ep, parameter_checks_and_points_that_cannot_return)
{
    core::law_solid_ep_perfect perfect_law;
    EXPECT_EQ(perfect_law.init(values({E, nu, 0.0, 0.0})), core::law_data_error);
    EXPECT_EQ(perfect_law.init(values({E, nu, 0.0, 0.0, sy})), no_error);
    EXPECT_EQ(perfect_law.get_data().size(), 11u);
    core::law_solid_ep_piecewise_linear table;
    EXPECT_EQ(table.init(values({E, nu, 0.0}), values({E, E / 10}), values({2e-3, 1e-3})), core::law_data_error);
    EXPECT_EQ(table.init(values({E, nu, 0.0}), values({-E}), values({1e-3})), core::law_data_error);
    EXPECT_TRUE(table.get_data().empty());
    // Et = E: the slope is infinite and a point beyond yield keeps its elastic
    // trial and its commit.
    auto rigid = perfect(E);
    point pt{*rigid};
    pt.at(voigt6{{2 * sy / E, 0, 0, 0, 0, 0}});
    EXPECT_NEAR(pt.sigma[0], (1 - nu) * E / ((1 + nu) * (1 - 2 * nu)) * 2 * sy / E, 1e-9 * sy);
    EXPECT_TRUE(std::all_of(pt.trial, pt.trial + 13, [](double v) { return v == 0.0; }));
}

struct force_point {
    const core::law_scalar& law;
    double committed[3] = {}, trial[3] = {};
    double k = 0, f = 0, energy = 0;
    double at(double s) { return law.get_force({}, s, k, f, energy, committed, trial), f; }
    void commit() { std::copy(trial, trial + 3, committed); }
};

// Loading past the limit follows the curve with the tangent k H / (k + H);
// unloading goes back at k; a reversal yields at the hardened stress.
TEST(law_1d_ep, loading_unloading_and_reversal)
{
    const double k0 = 1000.0, kt = 100.0, fy = 10.0, H = k0 * kt / (k0 - kt);
    core::law_scalar_ep_perfect law;
    ASSERT_EQ(law.init(values({k0, kt, fy})), no_error);
    force_point pt{law};
    EXPECT_DOUBLE_EQ(pt.at(0.5 * fy / k0), 0.5 * fy);
    EXPECT_EQ(pt.trial[2], 0.0);
    const double s1 = 3 * fy / k0, f1 = fy + kt * (s1 - fy / k0);
    EXPECT_NEAR(pt.at(s1), f1, 1e-12 * f1);
    EXPECT_NEAR(pt.k, k0 * H / (k0 + H), 1e-12 * k0);
    EXPECT_NEAR(pt.trial[2], (f1 - fy) / H, 1e-15);
    pt.commit();
    const double s2 = s1 - 0.5 * f1 / k0;
    EXPECT_NEAR(pt.at(s2), 0.5 * f1, 1e-12 * f1);
    EXPECT_EQ(pt.k, k0);
    // In compression the yield force is the hardened f1.
    const double s3 = s1 - 2 * f1 / k0 - fy / k0;
    EXPECT_NEAR(pt.at(s3), -(f1 + kt * fy / k0), 1e-9 * f1);
}

TEST(law_1d_ep, curves_in_one_dimension_give_their_closed_forms)
{
    const double s0 = 10.0, k0 = 1000.0;
    core::law_scalar_ep_power power;
    core::law_scalar_ep_RambergOsgood ro;
    ASSERT_EQ(power.init(values({k0, s0, a, n})), no_error);
    ASSERT_EQ(ro.init(values({k0, s0, a, n})), no_error);
    for (double f : {2.0 * s0, 3.0 * s0}) {
        force_point p1{power}, p2{ro};
        EXPECT_NEAR(p1.at(f / k0 + a * s0 / k0 * std::pow((f - s0) / s0, n)), f, 1e-9 * f);
        EXPECT_NEAR(p2.at(f / k0 + a * s0 / k0 * std::pow(f / s0, n)), f, 1e-9 * f);
    }
}

// Beyond a limit the member carries nothing; a force floor bounds the force.
TEST(law_1d_ep, limits_and_force_floors)
{
    core::law_spring_ep_perfect spring;
    ASSERT_EQ(spring.init(values({1000.0, 0.0, 0.0, 0.0, 10.0, 0.0, -5.0})), no_error);
    force_point pt{spring};
    EXPECT_DOUBLE_EQ(pt.at(0.004), -5.0); // 4 lies above the floor -5: the floor wins
    EXPECT_DOUBLE_EQ(pt.at(-0.004), -5.0);
    EXPECT_DOUBLE_EQ(pt.at(-0.008), -8.0);
    spring.set_limit_states(0.02, 1e300);
    EXPECT_DOUBLE_EQ(pt.at(-0.019), -10.0);
    EXPECT_EQ(pt.at(-0.02) + 5.0, 0.0); // broken: 0, then the floor
    EXPECT_EQ(pt.k, 0.0);
    core::law_scalar_ep_perfect scalar;
    ASSERT_EQ(scalar.init(values({1000.0, 0.0, 10.0})), no_error);
    scalar.set_limit_states(1e300, 10.0);
    force_point q{scalar};
    EXPECT_DOUBLE_EQ(q.at(0.009), 9.0);
    EXPECT_EQ(q.at(0.05), 0.0); // the force reaches the limit stress
    EXPECT_EQ(q.k, 0.0);
}

// Rows (0, largest) with stiffness (1, 0): the force is x below 0 and 0 above;
// the shift moves the origin.
TEST(law_scalar_nl, a_two_row_table_and_its_shift)
{
    core::law_scalar_nl law;
    dense2D<double> table(2, 2, 0.0);
    table(0, 1) = 1.0;
    const auto force = [&](double s) {
        double k, f, e;
        law.get_force({}, s, k, f, e);
        return std::make_pair(f, e);
    };
    ASSERT_EQ(law.init(table, 0.0), no_error);
    EXPECT_EQ(force(-2.0), std::make_pair(-2.0, 2.0));
    EXPECT_EQ(force(3.0), std::make_pair(0.0, 0.0));
    ASSERT_EQ(law.init(table, -1.0), no_error);
    EXPECT_EQ(force(0.5).first, -0.5);
    EXPECT_EQ(law.init(dense2D<double>(2, 3), 0.0), core::law_data_error);
}

} // namespace
