// The membrane laws and the plane view of the solid laws: sizes, short forms, the
// plane-stress matrix against the solid's own with its normal stress released, the
// turn of orthotropic axes, and the permutation of the view.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "kelt/laws/law_membrane.h"

using namespace kelt;

namespace {

dense1D<double, 8> values(std::initializer_list<double> list)
{
    dense1D<double, 8> d;
    for (double v : list) d.push_back(v);
    return d;
}

core::constitutive3 D_of(const core::law_membrane_stiff& law)
{
    core::constitutive3 D;
    core::membrane3 N;
    double e = 0.0;
    EXPECT_TRUE(law.get_stress({}, core::membrane3{}, D, N, e));
    return D;
}

TEST(membrane_laws, sizes_short_forms_and_stiffness_range)
{
    struct row {
        bool orthotropic;
        unsigned size;
        error_type expected;
        unsigned processed;
    };
    const row rows[] = {{false, 2, error_type(-1), 0}, {false, 3, no_error, 4}, {false, 5, error_type(-1), 0},
                        {true, 12, error_type(-1), 0}, {true, 16, no_error, 17}, {true, 18, error_type(-1), 0}};
    for (const row& r : rows) {
        SCOPED_TRACE(r.size);
        Ptr<core::law_base> law = r.orthotropic ? static_cast<core::law_base*>(new core::law_membrane_orthotropic)
                                                : new core::law_membrane_StVenant;
        dense1D<double, 8> d(r.size, 2.0);
        EXPECT_EQ(law->init(d), r.expected);
        EXPECT_EQ(law->data.size(), r.processed);
    }
    core::law_membrane_StVenant thin;
    ASSERT_EQ(thin.init(values({200.0, 0.3, 0.0})), no_error);
    EXPECT_EQ(thin.data[3], 1.0);
    ASSERT_EQ(thin.init(values({200.0, 0.3, 0.0, 0.5})), no_error);
    EXPECT_EQ(thin.get_stiffness_range(displacement_tag), std::make_pair(100.0, 100.0));
}

// Plane stress is the solid law with sigma_zz = 0: the condensed solid matrix.
TEST(membrane_laws, plane_stress_is_the_solid_matrix_with_its_normal_stress_released)
{
    const double E = 210.0, nu = 0.3, h = 0.2;
    core::law_membrane_StVenant law;
    ASSERT_EQ(law.init(values({E, nu, 0.0, h})), no_error);
    const core::constitutive3 D = D_of(law);
    core::constitutive6 S;
    core::law_solid_StVenant::isotropic(E, nu, S);
    const unsigned m[3] = {0, 1, 3};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            const double condensed = S(m[i], m[j]) - S(m[i], 2) * S(2, m[j]) / S(2, 2);
            EXPECT_NEAR(D(i, j), h * condensed, 1e-12 * E);
        }
}

// Axes turned a quarter swap 11 and 22; an eighth of a turn of an isotropic
// material changes nothing.
TEST(membrane_laws, orthotropic_axes_turn_with_their_angle)
{
    const double pi = std::numbers::pi;
    const auto law_at = [](double E1, double E2, double nu12, double angle) {
        const double G = E1 / (2 * (1 + nu12)), d = 1 - nu12 * nu12 * E2 / E1;
        Ptr<core::law_membrane_orthotropic> law = new core::law_membrane_orthotropic;
        EXPECT_EQ(law->init(values({E1 / d, E2 / d, G, E1, E2, nu12 * E2 / d, angle, 0, 0, 0, 0, 0, 0.1})),
                  no_error);
        return D_of(*law);
    };
    const core::constitutive3 straight = law_at(300.0, 100.0, 0.25, 0.0), quarter = law_at(300.0, 100.0, 0.25, pi / 2);
    EXPECT_NEAR(quarter(0, 0), straight(1, 1), 1e-10);
    EXPECT_NEAR(quarter(1, 1), straight(0, 0), 1e-10);
    EXPECT_NEAR(quarter(0, 2), 0.0, 1e-10);
    const core::constitutive3 iso = law_at(200.0, 200.0, 0.3, 0.0), turned = law_at(200.0, 200.0, 0.3, pi / 4);
    for (unsigned k = 0; k < 6; ++k) EXPECT_NEAR(turned[k], iso[k], 1e-10);
}

// The view of the plane normal to x sees the solid's yy as its a, zz as b, xx as c.
TEST(membrane_laws, the_plane_view_permutes_the_solid_components)
{
    Ptr<core::law_solid_orthotropic> solid = new core::law_solid_orthotropic;
    // Diagonal 10 to 60; couplings xx-yy 1, xx-zz 2, yy-zz 3.
    ASSERT_EQ(solid->init(values({10, 20, 30, 40, 50, 60, 1, 1, 1, 1, 2, 3, 0, 0, 0, 0, 0, 0})), no_error);
    const unsigned axes[3] = {1, 2, 0};
    core::law_solid_stiff_2d view(solid, axes);
    core::constitutive6 D;
    core::voigt6 sigma;
    double e;
    EXPECT_TRUE(view.get_stress({}, core::voigt6{}, D, sigma, e, nullptr, nullptr));
    // a = y, b = z, c = x; ab = yz, ac = xy, bc = xz.
    const double diagonal[6] = {20, 30, 10, 60, 40, 50};
    for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(D(i, i), diagonal[i]);
    EXPECT_EQ(D(0, 1), 3.0);
    EXPECT_EQ(D(0, 2), 1.0);
    EXPECT_EQ(D(1, 2), 2.0);
}

} // namespace
