// The elastic solid laws: parameter checks and per-element values, the isotropic
// matrix against the moduli it stands for, orthotropic and skyline patterns, thermal
// strains and initial stresses.
#include <gtest/gtest.h>

#include <cmath>

#include "kelt/laws/law_scalar.h"
#include "kelt/laws/law_solid.h"

using namespace kelt;
using core::constitutive6;
using core::voigt6;
using core::frame3;
using core::point3;

namespace {

dense1D<double, 8> values(std::initializer_list<double> list)
{
    dense1D<double, 8> d;
    for (double v : list) d.push_back(v);
    return d;
}

voigt6 stress_of(const core::law_solid_stiff& law, const voigt6& eps, const core::law_key& key = {})
{
    constitutive6 D;
    voigt6 sigma;
    double energy = 0.0;
    EXPECT_TRUE(law.get_stress(key, eps, D, sigma, energy, nullptr, nullptr));
    double work = 0.0;
    for (unsigned i = 0; i < 6; ++i) work += eps[i] * sigma[i];
    EXPECT_DOUBLE_EQ(energy, work / 2);
    return sigma;
}

voigt6 v6(std::initializer_list<double> list)
{
    voigt6 v;
    unsigned i = 0;
    for (double x : list) v[i++] = x;
    return v;
}

TEST(law_solid_StVenant, only_three_or_nine_parameters_are_valid)
{
    core::law_solid_StVenant law;
    EXPECT_EQ(law.init(values({210e3, 0.3, 1e-5, 0.0})), core::law_data_error);
    EXPECT_TRUE(law.get_data().empty());
    EXPECT_EQ(law.init(values({210e3, 0.3, 1e-5})), no_error);
    EXPECT_EQ(law.get_data().size(), 3u);
    EXPECT_EQ(law.init(values({210e3, 0.3, 1e-5, 1, 2, 3, 4, 5, 6})), no_error);
    EXPECT_EQ(law.get_stiffness_range(displacement_tag), std::make_pair(210e3, 210e3));
    EXPECT_EQ(law.get_stiffness_range(rotation_tag), std::make_pair(0.0, 0.0));
}

// Uniaxial stress, pure shear and pure dilatation: the three states whose answers
// define E, G = E / (2 (1 + nu)) and K = E / (3 (1 - 2 nu)).
TEST(law_solid_StVenant, the_matrix_gives_the_moduli_it_stands_for)
{
    const double E = 200.0, nu = 0.27;
    core::law_solid_StVenant law;
    ASSERT_EQ(law.init(values({E, nu, 0.0})), no_error);
    const double s = 3.0;
    const voigt6 uniaxial = stress_of(law, v6({s / E, -nu * s / E, -nu * s / E, 0, 0, 0}));
    EXPECT_NEAR(uniaxial[0], s, 1e-13 * s);
    for (unsigned i = 1; i < 6; ++i) EXPECT_NEAR(uniaxial[i], 0.0, 1e-13 * s);
    const double gamma = 1e-2;
    const voigt6 shear = stress_of(law, v6({0, 0, 0, 0, gamma, 0}));
    EXPECT_NEAR(shear[4], E / (2 * (1 + nu)) * gamma, 1e-13 * E * gamma);
    EXPECT_EQ(shear[0], 0.0);
    EXPECT_EQ(shear[3], 0.0);
    const double e = 1e-3;
    const voigt6 dilatation = stress_of(law, v6({e, e, e, 0, 0, 0}));
    for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(dilatation[i], E / (1 - 2 * nu) * e, 1e-13 * E * e);
}

TEST(law_solid_StVenant, poisson_ratios_of_minus_one_and_one_half_give_a_zero_matrix)
{
    for (double nu : {-1.0, 0.5, 0.7}) {
        constitutive6 D;
        core::law_solid_StVenant::isotropic(100.0, nu, D);
        for (double v : D.v) EXPECT_EQ(v, 0.0) << nu;
    }
}

TEST(law_solid_StVenant, thermal_strain_and_initial_stress)
{
    core::law_solid_StVenant law;
    ASSERT_EQ(law.init(values({1000.0, 0.3, 2e-5, 10, -20, 30, 4, -5, 6})), no_error);
    const double T = 50.0;
    voigt6 th;
    law.get_thermal_strain({}, &T, 1, th);
    EXPECT_EQ(th[0], 2e-5 * T);
    EXPECT_EQ(th[2], 2e-5 * T);
    EXPECT_EQ(th[3], 0.0);
    // The initial stress comes out of a zero strain as it was given.
    voigt6 eps;
    law.add_initial_strain({}, eps);
    const voigt6 sigma = stress_of(law, eps);
    const double given[6] = {10, -20, 30, 4, -5, 6};
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(sigma[i], given[i], 1e-12 * 30);
}

TEST(law_solid_StVenant, element_parameters_replace_the_law_for_that_element_only)
{
    core::law_solid_StVenant law;
    // With no parameters yet, the first element call initialises the law.
    ASSERT_EQ(law.set_element_by_element(0, 0, values({100.0, 0.25, 0.0})), no_error);
    EXPECT_EQ(law.get_data().size(), 3u);
    EXPECT_FALSE(law.has_element_data(0, 0));
    // The law's own values store nothing.
    ASSERT_EQ(law.set_element_by_element(2, 7, values({100.0, 0.25, 0.0})), no_error);
    EXPECT_FALSE(law.has_element_data(2, 7));
    ASSERT_EQ(law.set_element_by_element(2, 7, values({300.0, 0.25, 0.0})), no_error);
    EXPECT_TRUE(law.has_element_data(2, 7));
    EXPECT_EQ(law.set_element_by_element(2, 8, values({300.0})), core::law_data_error);
    const voigt6 eps = v6({1e-3, 0, 0, 0, 0, 0});
    EXPECT_NEAR(stress_of(law, eps, {2, 7, 0})[0] / stress_of(law, eps, {2, 6, 0})[0], 3.0, 1e-14);
    dense1D<double, 8> out;
    ASSERT_EQ(law.get_element_data(2, 7, out), no_error);
    out[0] = 1.0; // a copy: the law keeps its values
    EXPECT_EQ(law.element_data(2, 7)[0], 300.0);
    // Back to the law's values: the element's entry goes.
    ASSERT_EQ(law.set_element_by_element(2, 7, values({100.0, 0.25, 0.0})), no_error);
    EXPECT_FALSE(law.has_element_data(2, 7));
}

// The orthotropic vector: diagonal, moduli, normal couplings, expansion, initial stress.
dense1D<double, 8> orthotropic_values(bool initial)
{
    dense1D<double, 8> d = values({11, 12, 13, 4, 5, 6, 100, 300, 200, 1.5, 2.5, 3.5, 1e-5, 2e-5, 3e-5, 0, 4e-6, 0});
    if (initial)
        for (double v : {1.0, 2.0, 3.0, 0.5, 0.25, 0.125}) d.push_back(v);
    return d;
}

TEST(law_solid_orthotropic, values_land_in_their_places)
{
    core::law_solid_orthotropic law;
    EXPECT_EQ(law.init(values({1, 2, 3})), core::law_data_error);
    ASSERT_EQ(law.init(orthotropic_values(false)), no_error);
    constitutive6 D;
    law.get_constitutive({}, D);
    const double diag[6] = {11, 12, 13, 4, 5, 6};
    for (unsigned i = 0; i < 6; ++i) EXPECT_EQ(D(i, i), diag[i]);
    EXPECT_EQ(D(0, 1), 1.5);
    EXPECT_EQ(D(0, 2), 2.5);
    EXPECT_EQ(D(1, 2), 3.5);
    EXPECT_EQ(D(0, 3), 0.0);
    EXPECT_EQ(D(3, 4), 0.0);
    EXPECT_EQ(law.get_stiffness_range(displacement_tag), std::make_pair(100.0, 300.0));
    const double T = 2.0;
    voigt6 th;
    law.get_thermal_strain({}, &T, 1, th);
    EXPECT_EQ(th[1], 4e-5);
    EXPECT_EQ(th[4], 8e-6);
    frame3 Q;
    EXPECT_FALSE(law.get_material_basis({}, point3{}, Q)); // no basis: the global frame

    ASSERT_EQ(law.init(orthotropic_values(true)), no_error);
    voigt6 eps;
    law.add_initial_strain({}, eps);
    const voigt6 sigma = stress_of(law, eps);
    const double given[6] = {1.0, 2.0, 3.0, 0.5, 0.25, 0.125};
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(sigma[i], given[i], 1e-13);
}

TEST(law_solid_orthotropic, an_isotropic_set_of_values_is_the_StVenant_law)
{
    const double E = 70.0, nu = 0.33;
    constitutive6 iso;
    core::law_solid_StVenant::isotropic(E, nu, iso);
    core::law_solid_orthotropic law;
    ASSERT_EQ(law.init(values({iso(0, 0), iso(1, 1), iso(2, 2), iso(3, 3), iso(4, 4), iso(5, 5), E, E, E, iso(0, 1),
                               iso(0, 2), iso(1, 2), 0, 0, 0, 0, 0, 0})),
              no_error);
    constitutive6 D;
    law.get_constitutive({}, D);
    for (unsigned k = 0; k < 21; ++k) EXPECT_EQ(D.v[k], iso.v[k]);
}

TEST(law_solid_skyline, heights_give_the_pattern_of_the_matrix)
{
    // The solid pattern (0, 1, 2, 0, 0, 0) is the orthotropic law.
    core::law_solid_skyline normal(vector_fixed<unsigned, 6>{{0, 1, 2, 0, 0, 0}});
    ASSERT_EQ(normal.init(values({1.5, 2.5, 3.5, 11, 12, 13, 4, 5, 6, 100, 300, 200, 1e-5, 2e-5, 3e-5, 0, 4e-6, 0})),
              no_error);
    core::law_solid_orthotropic ortho;
    ASSERT_EQ(ortho.init(orthotropic_values(false)), no_error);
    constitutive6 A, B;
    normal.get_constitutive({}, A);
    ortho.get_constitutive({}, B);
    for (unsigned k = 0; k < 21; ++k) EXPECT_EQ(A.v[k], B.v[k]);
    EXPECT_EQ(normal.get_stiffness_range(displacement_tag), std::make_pair(100.0, 300.0));

    // A full fourth column couples the xy shear to the three normal terms.
    core::law_solid_skyline coupled(vector_fixed<unsigned, 6>{{0, 0, 0, 3, 0, 0}});
    ASSERT_EQ(coupled.init(values({0.1, 0.2, 0.3, 11, 12, 13, 4, 5, 6, 1, 1, 1, 0, 0, 0, 0, 0, 0})), no_error);
    coupled.get_constitutive({}, A);
    EXPECT_EQ(A(0, 3), 0.1);
    EXPECT_EQ(A(2, 3), 0.3);
    EXPECT_EQ(A(0, 1), 0.0);
    EXPECT_EQ(A(3, 3), 4.0);
    // A column cannot reach above the first row.
    core::law_solid_skyline too_high(vector_fixed<unsigned, 6>{{1, 0, 0, 0, 0, 0}});
    EXPECT_EQ(too_high.init(values({0, 11, 12, 13, 4, 5, 6, 1, 1, 1, 0, 0, 0, 0, 0, 0})), core::law_data_error);
}

TEST(law_scalar, one_value)
{
    core::law_scalar law;
    EXPECT_EQ(law.init(values({1, 2})), core::law_data_error);
    ASSERT_EQ(law.init(values({7800.0})), no_error);
    EXPECT_EQ(law.get_value({0, 3, 700}), 7800.0);
    ASSERT_EQ(law.set_element_by_element(0, 3, values({2700.0})), no_error);
    EXPECT_EQ(law.get_value({0, 3, 700}), 2700.0);
    EXPECT_EQ(law.get_value({0, 4, 700}), 7800.0);
}

} // namespace
