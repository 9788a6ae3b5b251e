// Local bases: every frame is a rotation, each kind points its axes where its
// geometry says, and tensor rotations keep what a change of frame must keep.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "kelt/core/bases_mgr.h"

using kelt::core::frame3;
using kelt::core::point3;
using kelt::core::voigt6;

namespace {

// Entries are sums of a few dozen products of numbers of size 1 (coordinates up to
// 5 enter only through normalised differences): a few hundred ulps at most.
constexpr double tol = 1e-13;

double dot(const point3& a, const point3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
point3 cross(const point3& a, const point3& b)
{
    return {{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}};
}
point3 sub(const point3& a, const point3& b) { return {{a[0] - b[0], a[1] - b[1], a[2] - b[2]}}; }
point3 col(const frame3& q, unsigned j) { return {{q(0, j), q(1, j), q(2, j)}}; }
double det(const frame3& q) { return dot(col(q, 0), cross(col(q, 1), col(q, 2))); }

void expect_near3(const point3& a, const point3& b, double eps = tol)
{
    for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], eps) << "entry " << i;
}

void expect_rotation(const frame3& q, double handedness = 1.0)
{
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) EXPECT_NEAR(dot(col(q, i), col(q, j)), i == j ? 1.0 : 0.0, tol);
    EXPECT_NEAR(det(q), handedness, tol);
}

struct random_source {
    std::mt19937 rng{20240611};
    double operator()(double lo = -5.0, double hi = 5.0) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
    point3 point() { return {{(*this)(), (*this)(), (*this)()}}; }
    voigt6 tensor()
    {
        voigt6 s;
        for (unsigned i = 0; i < 6; ++i) s[i] = (*this)();
        return s;
    }
};

enum class kind { cartesian, cylindrical, spherical };

struct basis_case {
    const char* name;
    kind type;
    point3 origin;
    point3 axis; // for cartesian: the first column, the others random
};

std::ostream& operator<<(std::ostream& os, const basis_case& c) { return os << c.name; }

// The axes a caller may give: unit, long, tiny, null, slanted.
const basis_case cases[] = {
    {"cartesian_random", kind::cartesian, {}, {{2.0, -1.0, 0.5}}},
    {"cartesian_null_first_column", kind::cartesian, {}, {}},
    {"cylinder_z", kind::cylindrical, {}, {{0.0, 0.0, 1.0}}},
    {"cylinder_long_slanted", kind::cylindrical, {{1.0, -2.0, 0.5}}, {{3.0, 4.0, 12.0}}},
    {"cylinder_diagonal", kind::cylindrical, {{0.5, 0.5, 0.5}}, {{1.0, 1.0, 1.0}}},
    {"cylinder_null_axis", kind::cylindrical, {{1.0, 1.0, 0.0}}, {}},
    {"sphere_z", kind::spherical, {}, {{0.0, 0.0, 1.0}}},
    {"sphere_tiny_slanted", kind::spherical, {{-1.0, 2.0, 3.0}}, {{1e-6, -2e-6, 3e-7}}},
    {"sphere_diagonal", kind::spherical, {{0.5, 0.5, 0.5}}, {{-1.0, -1.0, -1.0}}},
    {"sphere_null_axis", kind::spherical, {}, {}},
};

class every_basis : public ::testing::TestWithParam<basis_case> {
protected:
    void SetUp() override
    {
        const basis_case& c = GetParam();
        frame3 f;
        for (unsigned i = 0; i < 3; ++i) {
            f(i, 0) = c.axis[i];
            f(i, 1) = rnd();
            f(i, 2) = rnd();
        }
        // Orthonormalisation keeps the handedness of its input: make it right-handed,
        // counting a null first column as the x it will become.
        frame3 g = f;
        if (dot(c.axis, c.axis) == 0.0) g(0, 0) = 1.0;
        if (det(g) < 0.0)
            for (unsigned i = 0; i < 3; ++i) f(i, 2) = -f(i, 2);
        if (c.type == kind::cartesian) index = mgr.create_cartesian(f);
        if (c.type == kind::cylindrical) index = mgr.create_cylindrical(c.origin, c.axis);
        if (c.type == kind::spherical) index = mgr.create_spherical(c.origin, c.axis);
        basis = mgr.get(index);
        ASSERT_NE(basis, nullptr);
    }

    // Random points, the origin, points on the axis and points a hair off it.
    std::vector<point3> points()
    {
        const basis_case& c = GetParam();
        const point3 a = kelt::core::normalised_axis(c.axis);
        std::vector<point3> out{c.origin};
        for (double s : {-3.0, 0.7, 1e-13})
            out.push_back({{c.origin[0] + s * a[0], c.origin[1] + s * a[1], c.origin[2] + s * a[2]}});
        out.push_back({{c.origin[0] + 1e-13, c.origin[1], c.origin[2] + 2.0}});
        // Far along the axis and close to it: rounding of the coordinates is then
        // large beside the distance to the axis, or the angle to it.
        const point3 side = cross(a, {{a[2], a[0], -a[1]}});
        const double n = std::sqrt(dot(side, side));
        for (const auto& [along, off] : {std::pair{1e4, 1e-9}, std::pair{1e2, 1e-8}}) {
            point3 far;
            for (unsigned i = 0; i < 3; ++i) far[i] = c.origin[i] + along * a[i] + off * side[i] / n;
            out.push_back(far);
        }
        for (int k = 0; k < 50; ++k) out.push_back(rnd.point());
        return out;
    }

    random_source rnd;
    kelt::core::bases_mgr mgr;
    unsigned index = 0;
    const kelt::core::basis_base* basis = nullptr;
};

TEST_P(every_basis, frame_is_a_right_handed_rotation_everywhere)
{
    for (const point3& p : points()) {
        SCOPED_TRACE(testing::Message() << "P = " << p[0] << ", " << p[1] << ", " << p[2]);
        frame3 q;
        basis->get_matrix(p, q);
        expect_rotation(q);
    }
}

TEST_P(every_basis, to_local_keeps_lengths_and_angles_and_inverts)
{
    for (const point3& p : points()) {
        frame3 q;
        basis->get_matrix(p, q);
        const point3 u = rnd.point(), v = rnd.point();
        point3 lu = u, lv = v; // components up to 5: products reach 75, hence 50 tol
        basis->to_local(p, lu);
        basis->to_local(p, lv);
        EXPECT_NEAR(dot(lu, lv), dot(u, v), 50 * tol);
        EXPECT_NEAR(dot(lu, lu), dot(u, u), 50 * tol);
        basis->to_global(p, lu);
        expect_near3(lu, u, 10 * tol);
        for (unsigned j = 0; j < 3; ++j) { // each local axis is a unit vector of the local frame
            point3 axis = col(q, j), e;
            e[j] = 1.0;
            basis->to_local(p, axis);
            expect_near3(axis, e);
        }
    }
}

// Invariants of a symmetric tensor from its components (tensor shears).
struct invariants {
    double i1, i2, i3;
};
invariants of(const voigt6& s)
{
    return {s[0] + s[1] + s[2], s[0] * s[1] + s[1] * s[2] + s[2] * s[0] - s[3] * s[3] - s[4] * s[4] - s[5] * s[5],
            s[0] * s[1] * s[2] + 2 * s[3] * s[4] * s[5] - s[0] * s[5] * s[5] - s[1] * s[4] * s[4] - s[2] * s[3] * s[3]};
}
double voigt_dot(const voigt6& a, const voigt6& b)
{
    double sum = 0.0;
    for (unsigned i = 0; i < 6; ++i) sum += a[i] * b[i];
    return sum;
}
voigt6 halve_shears(voigt6 e)
{
    for (unsigned i = 3; i < 6; ++i) e[i] *= 0.5;
    return e;
}

TEST_P(every_basis, tensor_rotation_keeps_invariants_and_energy)
{
    // Components up to 5: products of three reach ~1e3, hence the scaled bounds.
    for (const point3& p : points()) {
        const voigt6 sigma = rnd.tensor(), eps = rnd.tensor();
        voigt6 ls = sigma, le = eps;
        basis->rotate_stress_to_local(p, ls);
        basis->rotate_strain_to_local(p, le);
        const invariants a = of(sigma), b = of(ls), c = of(halve_shears(eps)), d = of(halve_shears(le));
        EXPECT_NEAR(b.i1, a.i1, 10 * tol);
        EXPECT_NEAR(b.i2, a.i2, 1e3 * tol);
        EXPECT_NEAR(b.i3, a.i3, 1e4 * tol);
        EXPECT_NEAR(d.i1, c.i1, 10 * tol);
        EXPECT_NEAR(d.i2, c.i2, 1e3 * tol);
        EXPECT_NEAR(voigt_dot(ls, le), voigt_dot(sigma, eps), 1e3 * tol);
        basis->rotate_stress_to_global(p, ls);
        basis->rotate_strain_to_global(p, le);
        for (unsigned i = 0; i < 6; ++i) {
            EXPECT_NEAR(ls[i], sigma[i], 100 * tol);
            EXPECT_NEAR(le[i], eps[i], 100 * tol);
        }
    }
}

TEST_P(every_basis, uniaxial_local_stress_is_n_n_in_global)
{
    const point3 p = rnd.point();
    frame3 q;
    basis->get_matrix(p, q);
    voigt6 s;
    s[0] = 7.0; // tension along the first local axis
    basis->rotate_stress_to_global(p, s);
    const point3 n = col(q, 0);
    const double expected[6] = {n[0] * n[0], n[1] * n[1], n[2] * n[2], n[0] * n[1], n[0] * n[2], n[1] * n[2]};
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(s[i], 7.0 * expected[i], 100 * tol);
}

INSTANTIATE_TEST_SUITE_P(bases, every_basis, ::testing::ValuesIn(cases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(cartesian_basis, gram_schmidt_of_a_skewed_frame_is_q_of_qr)
{
    // F = Q R with R upper triangular and a positive diagonal, in whatever units.
    random_source rnd;
    for (int k = 0; k < 100; ++k) {
        frame3 f;
        for (unsigned i = 0; i < 9; ++i) f.v[i] = rnd() * (k % 2 ? 1e6 : 1e-6);
        const frame3 q = kelt::core::orthonormalised(f);
        expect_rotation(q, det(f) > 0.0 ? 1.0 : -1.0);
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j <= i; ++j) {
                const double r = dot(col(q, i), col(f, j)) / std::sqrt(dot(col(f, j), col(f, j)));
                if (i == j) EXPECT_GT(r, 0.0);
                else EXPECT_NEAR(r, 0.0, tol); // the second projection removes what rounding left
            }
    }
}

TEST(cartesian_basis, degenerate_columns_still_give_a_rotation)
{
    const point3 x{{1.0, 0.0, 0.0}};
    frame3 nulls, parallel, planar;
    for (unsigned i = 0; i < 3; ++i) {
        parallel(i, 0) = parallel(i, 1) = 1.0 + i;
        parallel(i, 2) = 3.0 - i;
        planar(i, 0) = 1.0 + i;
        planar(i, 1) = 2.0 - i;
        planar(i, 2) = planar(i, 0) + 2 * planar(i, 1);
    }
    expect_rotation(kelt::core::orthonormalised(nulls));
    expect_near3(col(kelt::core::orthonormalised(nulls), 0), x); // a null first column is x
    expect_rotation(kelt::core::orthonormalised(parallel));
    expect_rotation(kelt::core::orthonormalised(planar));
}

TEST(cylindrical_basis, axes_point_radially_tangentially_and_axially)
{
    random_source rnd;
    const point3 origin{{1.0, 2.0, -1.0}}, axis{{0.0, 3.0, 4.0}}, unit{{0.0, 0.6, 0.8}};
    const kelt::core::cylindrical_basis b(origin, axis);
    for (int k = 0; k < 50; ++k) {
        const point3 p = rnd.point(), d = sub(p, origin);
        frame3 q;
        b.get_matrix(p, q);
        // P = origin + h axis + rho radial, with rho the distance to the axis.
        const double h = dot(d, unit), rho = std::sqrt(dot(d, d) - h * h);
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(origin[i] + h * unit[i] + rho * q(i, 0), p[i], 1e-12);
        // The tangential axis is the direction in which P turns about the axis.
        const point3 turn = cross(unit, d);
        expect_near3(col(q, 1), {{turn[0] / rho, turn[1] / rho, turn[2] / rho}}, 1e-12);
        expect_near3(col(q, 2), unit);
    }
}

TEST(spherical_basis, third_axis_is_radial_and_first_is_along_the_parallel)
{
    random_source rnd;
    const point3 origin{{0.5, -1.0, 2.0}}, axis{{1.0, 2.0, 2.0}}, unit{{1.0 / 3, 2.0 / 3, 2.0 / 3}};
    const kelt::core::spherical_basis b(origin, axis);
    for (int k = 0; k < 50; ++k) {
        const point3 p = rnd.point(), d = sub(p, origin);
        const double r = std::sqrt(dot(d, d));
        frame3 q;
        b.get_matrix(p, q);
        expect_near3(col(q, 2), {{d[0] / r, d[1] / r, d[2] / r}});
        const point3 east = cross(unit, d); // the parallel through P
        const double len = std::sqrt(dot(east, east));
        expect_near3(col(q, 0), {{east[0] / len, east[1] / len, east[2] / len}}, 1e-12);
    }
}

TEST(bases_edge_cases, null_axes_degenerate_points_and_counts)
{
    kelt::core::bases_mgr mgr;
    const point3 zero, z{{0.0, 0.0, 1.0}}, x{{1.0, 0.0, 0.0}};
    frame3 q;
    EXPECT_EQ(mgr.create_cylindrical(zero, zero), 0u);
    EXPECT_EQ(mgr.size(), 1u);
    mgr.get(0)->get_matrix({{3.0, 4.0, 5.0}}, q);
    expect_near3(col(q, 2), z); // a null axis is z
    EXPECT_EQ(mgr.create_cylindrical(zero, {{0.0, 0.0, 2.5}}), 1u);
    mgr.get(1)->get_matrix({{0.0, 0.0, 7.0}}, q); // on the axis
    expect_near3(col(q, 0), x);
    expect_rotation(q);
    EXPECT_EQ(mgr.create_spherical(zero, {{0.3, -0.2, 0.9}}), 2u);
    mgr.get(2)->get_matrix(zero, q); // at the origin
    expect_rotation(q);
    EXPECT_EQ(mgr.get(3), nullptr);
    mgr.clear();
    EXPECT_EQ(mgr.size(), 0u);
    EXPECT_EQ(mgr.get(0), nullptr);
}

TEST(tensor_rotation, quarter_turn_about_z_swaps_xx_and_yy)
{
    // Local axes y, -x, z: local xy = -xy, xz = yz and yz = -xz.
    frame3 q;
    q(1, 0) = 1.0;
    q(0, 1) = -1.0;
    q(2, 2) = 1.0;
    const voigt6 s{{1.0, 2.0, 3.0, 4.0, 5.0, 6.0}}, expected{{2.0, 1.0, 3.0, -4.0, 6.0, -5.0}};
    voigt6 stress = s, strain = s;
    kelt::core::rotate_stress_to_local(q, stress);
    kelt::core::rotate_strain_to_local(q, strain);
    for (unsigned i = 0; i < 6; ++i) {
        EXPECT_DOUBLE_EQ(stress[i], expected[i]);
        EXPECT_DOUBLE_EQ(strain[i], expected[i]);
    }
}

TEST(tensor_rotation, constitutive_matrix_follows_strain_and_stress)
{
    random_source rnd;
    kelt::core::spherical_basis b({{0.0, 0.0, 0.0}}, {{1.0, -1.0, 2.0}});
    frame3 q;
    b.get_matrix(rnd.point(), q);
    // Isotropic: unchanged by any rotation (E = 1, nu = 0.25 scaled to unit size).
    kelt::matrix_fixed<double, 6, 6> iso, ortho;
    for (unsigned i = 0; i < 3; ++i) {
        for (unsigned j = 0; j < 3; ++j) iso(i, j) = 0.4;
        iso(i, i) = 1.2;
        iso(i + 3, i + 3) = 0.4;
    }
    kelt::matrix_fixed<double, 6, 6> rotated = iso;
    kelt::core::rotate_constitutive_to_global(q, rotated);
    for (unsigned i = 0; i < 36; ++i) EXPECT_NEAR(rotated.v[i], iso.v[i], 10 * tol);
    // Orthotropic in the frame: D_global eps = global(D_local local(eps)).
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j <= i; ++j) ortho(i, j) = ortho(j, i) = i == j ? 10.0 + i : (i < 3 ? 1.0 + i + j : 0.0);
    rotated = ortho;
    kelt::core::rotate_constitutive_to_global(q, rotated);
    const voigt6 eps = rnd.tensor();
    voigt6 local = eps, sigma;
    kelt::core::rotate_strain_to_local(q, local);
    for (unsigned i = 0; i < 6; ++i)
        for (unsigned j = 0; j < 6; ++j) sigma[i] += ortho(i, j) * local[j];
    kelt::core::rotate_stress_to_global(q, sigma);
    for (unsigned i = 0; i < 6; ++i) {
        double direct = 0.0;
        for (unsigned j = 0; j < 6; ++j) direct += rotated(i, j) * eps[j];
        EXPECT_NEAR(direct, sigma[i], 1e3 * tol);
    }
}

} // namespace
