// The line frame and the turn of six-component node blocks: the checks that catch a
// transposed frame, a left-handed one, or a rotation applied on one side only.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "kelt/elements/element_frame.h"

using namespace kelt;
using namespace kelt::core;

namespace {

double dot3(const double* a, const double* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

struct line_case {
    double x1[3], x2[3], orientation[3];
    error_type expected;
};

} // namespace

TEST(element_frame, line_frame_is_right_handed_along_the_line)
{
    const line_case cases[] = {
        {{0, 0, 0}, {2, 0, 0}, {0, 1, 0}, no_error},
        {{1, 2, 3}, {1, 2, 7}, {1, 0, 0}, no_error},
        {{0, 0, 0}, {1, 1, 1}, {0.3, -2, 0.7}, no_error},
        {{0, 0, 0}, {1, 0, 0}, {5, 1e-3, 0}, no_error},      // nearly along, still a frame
        {{1, 1, 1}, {1, 1, 1}, {0, 1, 0}, element_geometry_error}, // zero length
        {{0, 0, 0}, {0, 3, 0}, {0, -2, 0}, element_geometry_error}, // orientation along the axis
        {{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, element_geometry_error},
        {{0, 0, 0}, {NAN, 0, 0}, {0, 1, 0}, element_geometry_error},
    };
    for (const line_case& c : cases) {
        frame3 f;
        double L = -1;
        ASSERT_EQ(line_frame(c.x1, c.x2, c.orientation, f, L), c.expected);
        if (c.expected != no_error) continue;
        double axis[3][3];
        for (unsigned k = 0; k < 3; ++k)
            for (unsigned i = 0; i < 3; ++i) axis[k][i] = f(i, k);
        const double d[3] = {c.x2[0] - c.x1[0], c.x2[1] - c.x1[1], c.x2[2] - c.x1[2]};
        EXPECT_NEAR(L, std::sqrt(dot3(d, d)), 1e-14 * L);
        EXPECT_NEAR(dot3(axis[0], d), L, 1e-12 * L);                // x along the line
        EXPECT_NEAR(dot3(axis[2], c.orientation), 0.0, 1e-12);      // y in the plane of x and the vector
        EXPECT_GT(dot3(axis[1], c.orientation), 0.0);
        for (unsigned a = 0; a < 3; ++a)
            for (unsigned b = 0; b < 3; ++b) EXPECT_NEAR(dot3(axis[a], axis[b]), a == b ? 1.0 : 0.0, 1e-14);
        const double zx = axis[0][1] * axis[1][2] - axis[0][2] * axis[1][1];
        EXPECT_NEAR(zx, axis[2][0], 1e-14); // z = x cross y, first component
    }
}

// K_g u_g = R (K_l u_l) with u_g = R u_l, for a full symmetric K_l of four nodes of six
// components (eight blocks), and F turned as the force it is.
TEST(element_frame, rotated_matrix_acts_on_rotated_displacements)
{
    const unsigned blocks = 8, n = 3 * blocks;
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    frame3 f;
    double L;
    const double x1[3] = {0, 0, 0}, x2[3] = {0.3, -1.2, 0.8}, v[3] = {1, 0.4, -0.2};
    ASSERT_EQ(line_frame(x1, x2, v, f, L), no_error);

    symmetric_full<double> K(n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) K(i, j) = r(gen);
    symmetric_full<double> K_local;
    ASSERT_TRUE(K_local.copy(K));
    std::vector<double> ul(n), ug(n, 0.0);
    for (double& x : ul) x = r(gen);
    dense1D<double, 8> F;
    ASSERT_TRUE(F.resize(n));
    for (unsigned i = 0; i < n; ++i) {
        F[i] = 0.0;
        for (unsigned j = 0; j < n; ++j) F[i] += K_local(i, j) * ul[j];
    }
    for (unsigned I = 0; I < blocks; ++I)
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned k = 0; k < 3; ++k) ug[3 * I + i] += f(i, k) * ul[3 * I + k];

    rotate_to_global(f, blocks, K, F);
    for (unsigned i = 0; i < n; ++i) {
        double Kug = 0.0;
        for (unsigned j = 0; j < n; ++j) Kug += K(i, j) * ug[j];
        EXPECT_NEAR(Kug, F[i], 1e-12) << "row " << i;
    }
}
