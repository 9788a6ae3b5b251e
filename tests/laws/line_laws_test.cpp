// The laws of line elements: the sizes and short forms of the beam section, its
// taper and shear areas, and the spring laws' forces, floors and tables.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kelt/laws/law_beam.h"
#include "kelt/laws/law_spring.h"

namespace kelt::test {
namespace {

using namespace kelt::core;

dense1D<double, 8> values(std::initializer_list<double> v)
{
    dense1D<double, 8> d;
    for (double x : v) d.push_back(x);
    return d;
}

TEST(beam_section_law, sizes_and_short_forms)
{
    const struct {
        unsigned given, kept; // 0: refused
    } sizes[] = {{9, 22}, {15, 22}, {22, 22}, {24, 31}, {31, 31}, {8, 0}, {10, 0}, {23, 0}, {30, 0}, {0, 0}};
    for (const auto& s : sizes) {
        law_beam_StVenant law;
        dense1D<double, 8> d(s.given, 1.0);
        EXPECT_EQ(law.init(d), s.kept ? no_error : law_data_error) << s.given;
        EXPECT_EQ(law.get_data().size(), s.kept) << s.given;
    }
    // The 9-value form: one section value in entry 6, nu in entry 4.
    law_beam_StVenant law;
    ASSERT_EQ(law.init(values({0, 1, 0, 260.0, 0.3, 1e-5, 4.0, 9, 9})), no_error);
    const dense1D<double, 8>& d = law.get_data();
    const double expected[15] = {0, 1, 0, 260.0, 100.0, 1e-5, 4.0, 4.0, 4.0, 8.0, 4.0, 4.0, 0, 0, 0};
    for (unsigned i = 0; i < 15; ++i) EXPECT_DOUBLE_EQ(d[i], expected[i]) << i;
    for (unsigned i = 15; i < 22; ++i) EXPECT_EQ(d[i], 0.0) << i;
}

// Shear areas that are not positive take A; the range of rotations is
// (E x highest inertia, E x lowest).
TEST(beam_section_law, section_matrix_and_range)
{
    law_beam_StVenant law;
    // orientation, E, G, a, A, Ay, Az, J, Iy, Iz, Iyz, yc, zc
    ASSERT_EQ(law.init(values({0, 1, 0, 10, 4, 0, 2, -1, 0, 3, 5, 7, 0.5, 0.2, 0.3})), no_error);
    section6 D;
    ASSERT_TRUE(law.get_section(law_key{}, 0.0, D));
    EXPECT_DOUBLE_EQ(D(4, 4), 4 * 2.0);
    EXPECT_DOUBLE_EQ(D(5, 5), 4 * 2.0);
    EXPECT_DOUBLE_EQ(D(3, 3), 4 * 3.0);
    EXPECT_DOUBLE_EQ(D(1, 1), 10 * (2 * 0.09 + 5));
    EXPECT_DOUBLE_EQ(D(2, 2), 10 * (2 * 0.04 + 7));
    EXPECT_DOUBLE_EQ(D(1, 2), 10 * (2 * 0.06 + 0.5));
    EXPECT_DOUBLE_EQ(D(0, 1), 10 * 2 * 0.2);
    EXPECT_DOUBLE_EQ(D(0, 2), 10 * 2 * 0.3);
    EXPECT_EQ(law.get_stiffness_range(displacement_tag), std::make_pair(20.0, 20.0));
    EXPECT_EQ(law.get_stiffness_range(rotation_tag), std::make_pair(70.0, 5.0));
}

// No taper when the ends sum to nothing or when one end has the other sign.
TEST(beam_section_law, taper)
{
    EXPECT_EQ(law_beam_StVenant::taper(0.0, 0.0), 0.0);
    EXPECT_EQ(law_beam_StVenant::taper(-1e-13, 1e-13), 0.0);
    EXPECT_EQ(law_beam_StVenant::taper(-1.0, 3.0), 0.0);
    EXPECT_DOUBLE_EQ(law_beam_StVenant::taper(1.0, 3.0), 0.5);
}

TEST(spring_laws, linear_spring)
{
    law_spring law;
    EXPECT_EQ(law.init(values({1, 2})), law_data_error);
    EXPECT_EQ(law.init(values({1, 2, 3, 4})), law_data_error);
    ASSERT_EQ(law.init(values({5.0, 7.0, 0.1})), no_error);
    EXPECT_EQ(law.get_data().size(), 5u);
    double k, f, e;
    law.get_force(law_key{}, 0.2, k, f, e);
    EXPECT_DOUBLE_EQ(f, 1.0);
    EXPECT_DOUBLE_EQ(e, 0.1);
    double strain = 0.0;
    law.get_thermal_strain(law_key{}, 3.0, strain);
    EXPECT_DOUBLE_EQ(strain, -0.3);
    // A floor of 2 lifts a smaller force; a floor of -2 caps it from above.
    for (const auto& [floor, s, expected] : {std::tuple{2.0, 0.2, 2.0}, std::tuple{2.0, 1.0, 5.0},
                                            std::tuple{-2.0, 0.2, -2.0}, std::tuple{-2.0, -1.0, -5.0}}) {
        ASSERT_EQ(law.init(values({5.0, 7.0, 0.1, 0.0, floor})), no_error);
        law.get_force(law_key{}, s, k, f, e);
        EXPECT_DOUBLE_EQ(f, expected) << floor << " " << s;
    }
}

// The table's force is the integral of its stiffness from 0, the energy the
// integral of the force.
TEST(spring_laws, table_spring)
{
    law_spring_nl law;
    EXPECT_EQ(law.init(dense2D<double>(2, 3), 0, 0, 0, 0), law_data_error);
    dense2D<double> t(2, 2);
    t(0, 0) = 0.0, t(1, 0) = 1.0, t(0, 1) = 1.0, t(1, 1) = 0.0;
    ASSERT_EQ(law.init(t, 0, 0, 0, 0), no_error);
    double k, f, e;
    for (const auto& [x, force] : {std::pair{-2.0, -2.0}, std::pair{-0.5, -0.5}, std::pair{3.0, 0.0}}) {
        law.get_force(law_key{}, x, k, f, e);
        EXPECT_DOUBLE_EQ(f, force) << x;
    }
    // Stiffness 1 up to -1, 3 on (-1, 2], 0.5 beyond.
    dense2D<double> s(3, 2);
    s(0, 0) = -1.0, s(1, 0) = 2.0, s(2, 0) = 0.0;
    s(0, 1) = 1.0, s(1, 1) = 3.0, s(2, 1) = 0.5;
    ASSERT_EQ(law.init(s, 0, 0, 0, 0), no_error);
    const auto force = [](double x) {
        if (x <= -1.0) return -3.0 + (x + 1.0);
        if (x <= 2.0) return 3.0 * x;
        return 6.0 + 0.5 * (x - 2.0);
    };
    for (double x : {-3.0, -1.0, -0.4, 1.0, 2.0, 5.0}) {
        law.get_force(law_key{}, x, k, f, e);
        EXPECT_DOUBLE_EQ(f, force(x)) << x;
        // Simpson on a grid that holds the breakpoints is exact on linear pieces.
        double energy = 0.0;
        const unsigned n = 600;
        for (unsigned i = 0; i < n; ++i) {
            const double a = x * i / n, b = x * (i + 1) / n;
            energy += (b - a) / 6.0 * (force(a) + 4.0 * force(0.5 * (a + b)) + force(b));
        }
        EXPECT_NEAR(e, energy, 1e-12 * std::fabs(energy) + 1e-15) << x;
    }
    EXPECT_EQ(law.get_stiffness_range(displacement_tag), std::make_pair(0.5, 3.0));
}

} // namespace
} // namespace kelt::test
