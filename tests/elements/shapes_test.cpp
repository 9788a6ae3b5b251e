// Shape functions: node order, Kronecker property, partition of unity, derivatives
// against central differences, exact reproduction of polynomials, conformity of the
// face traces and the pyramid apex.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "kelt/core/element_catalogue.h"
#include "kelt/elements/shapes.h"

namespace elfes = kelt::elfes;

namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();
// One evaluation sums at most 16 terms of size at most 4, each after a few roundings.
constexpr double delta = 256 * eps;

using point = std::array<double, 3>;

enum class cell { line, triangle, square, tetra, pyramid, wedge, cube };

// Independent node lists, as the catalogue describes them: corners, then nodes at the
// centres of listed corner groups.
std::vector<point> with_centres(std::vector<point> nodes, std::initializer_list<std::vector<unsigned>> groups)
{
    for (const auto& g : groups) {
        point c{};
        for (unsigned b : g)
            for (unsigned k = 0; k < 3; ++k) c[k] += nodes[b][k] / double(g.size());
        nodes.push_back(c);
    }
    return nodes;
}

const std::vector<point> tri3 = {{1, 0, 0}, {0, 1, 0}, {0, 0, 0}};
const std::vector<point> quad4 = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};
const std::vector<point> tet4 = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}};
const std::vector<point> pyr5 = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, 0, 1}};
const std::vector<point> wed6 = {{1, 0, -1}, {0, 1, -1}, {0, 0, -1}, {1, 0, 1}, {0, 1, 1}, {0, 0, 1}};
const std::vector<point> hex8 = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                 {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};

struct shape_case {
    std::string name;
    kelt::element_type type;
    cell domain;
    unsigned nbr_nodes, dim, degree;
    std::vector<point> expected_nodes;
    std::function<point(unsigned)> node_point;
    std::function<void(const double*, double*)> values;      // nbr_nodes entries
    std::function<void(const double*, double*)> derivatives; // nbr_nodes x dim, node by node
    double third_derivative_bound; // along any axis, at points with 1 - t >= 1/4
};

void PrintTo(const shape_case& c, std::ostream* os) { *os << c.name; }

template <class Shape>
shape_case make(const char* name, cell domain, std::vector<point> nodes, double m3 = 0.0)
{
    static const Shape shape{};
    return {name,
            Shape::type,
            domain,
            Shape::nbr_nodes,
            Shape::dim,
            Shape::degree,
            std::move(nodes),
            [](unsigned a) {
                const double* x = Shape::node_point(a);
                return point{x[0], x[1], x[2]};
            },
            [](const double* x, double* out) {
                double N[Shape::nbr_nodes];
                shape.values(x, N);
                std::copy(N, N + Shape::nbr_nodes, out);
            },
            [](const double* x, double* out) {
                double dN[Shape::nbr_nodes][Shape::dim];
                shape.derivatives(x, dN);
                std::copy(&dN[0][0], &dN[0][0] + Shape::nbr_nodes * Shape::dim, out);
            },
            m3};
}

// Polynomial shapes are at most quadratic along every axis, so central differences
// have no truncation error. For the rational pyramids the third t-derivative of each
// term r^a s^b (1 - t)^m is at most 24 / (1 - t) (m >= -2) and of t r^a s^b (1 - t)^m
// at most 6 t / (1 - t)^2 + 6 / (1 - t): with coefficients summing to 4 and 1 - t >= 1/4
// that is below 512.
std::vector<shape_case> all_shapes()
{
    return {
        make<elfes::shape_edge2>("edge2", cell::line, {{-1, 0, 0}, {1, 0, 0}}),
        make<elfes::shape_edge3>("edge3", cell::line, {{-1, 0, 0}, {1, 0, 0}, {0, 0, 0}}),
        make<elfes::shape_faceT3>("faceT3", cell::triangle, tri3),
        make<elfes::shape_faceQ4>("faceQ4", cell::square, quad4),
        make<elfes::shape_faceT6>("faceT6", cell::triangle, with_centres(tri3, {{1, 2}, {2, 0}, {0, 1}})),
        make<elfes::shape_faceQ9>("faceQ9", cell::square,
                                  with_centres(quad4, {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 1, 2, 3}})),
        make<elfes::shape_tetra4>("tetra4", cell::tetra, tet4),
        make<elfes::shape_tetra10>("tetra10", cell::tetra,
                                   with_centres(tet4, {{1, 2}, {2, 0}, {0, 1}, {0, 3}, {1, 3}, {2, 3}})),
        make<elfes::shape_pyramid5>("pyramid5", cell::pyramid, pyr5, 512.0),
        make<elfes::shape_pyramid14>("pyramid14", cell::pyramid,
                                     with_centres(pyr5, {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4},
                                                         {3, 4}, {0, 1, 2, 3}}),
                                     512.0),
        make<elfes::shape_wedge6>("wedge6", cell::wedge, wed6),
        make<elfes::shape_wedge18>("wedge18", cell::wedge,
                                   with_centres(wed6, {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3},
                                                       {3, 4}, {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}})),
        make<elfes::shape_hexa8>("hexa8", cell::cube, hex8),
        make<elfes::shape_hexa27>("hexa27", cell::cube,
                                  with_centres(hex8, {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4},
                                                      {0, 4}, {1, 5}, {2, 6}, {3, 7}, {0, 3, 7, 4}, {1, 5, 6, 2},
                                                      {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5},
                                                      {0, 1, 2, 3, 4, 5, 6, 7}})),
    };
}

// Uniform-ish points of the reference cell; pyramid points keep 1 - t >= 1 - max_t.
struct sampler {
    std::mt19937 rng{20240917};
    double u(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
    point operator()(cell c, double max_t = 0.99)
    {
        switch (c) {
        case cell::line: return {u(-1, 1), 0, 0};
        case cell::square: return {u(-1, 1), u(-1, 1), 0};
        case cell::cube: return {u(-1, 1), u(-1, 1), u(-1, 1)};
        case cell::triangle:
        case cell::wedge: {
            double r = u(0, 1), s = u(0, 1);
            if (r + s > 1) r = 1 - r, s = 1 - s;
            return {r, s, c == cell::wedge ? u(-1, 1) : 0.0};
        }
        case cell::tetra:
            for (;;) {
                point p{u(0, 1), u(0, 1), u(0, 1)};
                if (p[0] + p[1] + p[2] <= 1) return p;
            }
        case cell::pyramid: {
            const double t = u(0, max_t), h = 1 - t;
            return {u(-h, h), u(-h, h), t};
        }
        }
        return {};
    }
};

bool is_vertex(cell c, const point& x)
{
    auto end = [](double v) { return std::abs(v) == 1.0; };
    auto tri_vertex = [](const point& p) {
        return (p[0] == 1 && p[1] == 0) || (p[0] == 0 && p[1] == 1) || (p[0] == 0 && p[1] == 0);
    };
    switch (c) {
    case cell::line: return end(x[0]);
    case cell::square: return end(x[0]) && end(x[1]);
    case cell::cube: return end(x[0]) && end(x[1]) && end(x[2]);
    case cell::triangle: return tri_vertex(x);
    case cell::wedge: return tri_vertex(x) && end(x[2]);
    case cell::tetra: return x[2] == 0 ? tri_vertex(x) : (x[0] == 0 && x[1] == 0 && x[2] == 1);
    case cell::pyramid: return (end(x[0]) && end(x[1]) && x[2] == 0) || (x[0] == 0 && x[1] == 0 && x[2] == 1);
    }
    return false;
}

class shapes : public ::testing::TestWithParam<shape_case> {};

TEST_P(shapes, catalogue_agrees_and_corner_nodes_come_first)
{
    const shape_case& c = GetParam();
    EXPECT_EQ(kelt::nbr_nodes(c.type), c.nbr_nodes);
    EXPECT_EQ(kelt::element_dim(c.type), c.dim);
    for (unsigned a = 0; a < c.nbr_nodes; ++a)
        EXPECT_EQ(is_vertex(c.domain, c.expected_nodes[a]), a < kelt::nbr_base_nodes(c.type)) << "node " << a;
}

TEST_P(shapes, nodes_in_stated_order_with_kronecker_property)
{
    const shape_case& c = GetParam();
    ASSERT_EQ(c.expected_nodes.size(), c.nbr_nodes);
    std::vector<double> N(c.nbr_nodes);
    for (unsigned b = 0; b < c.nbr_nodes; ++b) {
        SCOPED_TRACE("node " + std::to_string(b));
        const point x = c.node_point(b);
        for (unsigned k = 0; k < 3; ++k) EXPECT_EQ(x[k], c.expected_nodes[b][k]) << "coordinate " << k;
        c.values(c.expected_nodes[b].data(), N.data());
        for (unsigned a = 0; a < c.nbr_nodes; ++a) EXPECT_NEAR(N[a], a == b ? 1.0 : 0.0, delta) << "function " << a;
    }
}

TEST_P(shapes, partition_of_unity_and_derivatives_summing_to_zero)
{
    const shape_case& c = GetParam();
    sampler random;
    std::vector<double> N(c.nbr_nodes), dN(c.nbr_nodes * c.dim);
    for (unsigned p = 0; p < 200; ++p) {
        const point x = random(c.domain);
        c.values(x.data(), N.data());
        c.derivatives(x.data(), dN.data());
        double sum = 0.0, dsum[3] = {};
        for (unsigned a = 0; a < c.nbr_nodes; ++a) {
            sum += N[a];
            for (unsigned k = 0; k < c.dim; ++k) dsum[k] += dN[a * c.dim + k];
        }
        EXPECT_NEAR(sum, 1.0, c.nbr_nodes * delta);
        for (unsigned k = 0; k < c.dim; ++k) EXPECT_NEAR(dsum[k], 0.0, 4 * c.nbr_nodes * delta) << "axis " << k;
    }
}

// |central difference - derivative| <= M3 h^2 / 6 (truncation) + delta / h (the
// rounding of two evaluations divided by 2 h).
TEST_P(shapes, derivatives_match_central_differences)
{
    const shape_case& c = GetParam();
    const double h = c.third_derivative_bound > 0 ? 1e-5 : 1e-3;
    const double tol = c.third_derivative_bound * h * h / 6 + delta / h;
    sampler random;
    std::vector<double> dN(c.nbr_nodes * c.dim), plus(c.nbr_nodes), minus(c.nbr_nodes);
    for (unsigned p = 0; p < 100; ++p) {
        const point x = random(c.domain, 0.75);
        c.derivatives(x.data(), dN.data());
        for (unsigned k = 0; k < c.dim; ++k) {
            point xp = x, xm = x;
            xp[k] += h;
            xm[k] -= h;
            c.values(xp.data(), plus.data());
            c.values(xm.data(), minus.data());
            for (unsigned a = 0; a < c.nbr_nodes; ++a)
                EXPECT_NEAR((plus[a] - minus[a]) / (xp[k] - xm[k]), dN[a * c.dim + k], tol)
                    << "function " << a << ", axis " << k;
        }
    }
}

// Interpolating a monomial of degree up to the shape's degree from its nodal values
// gives the monomial and its gradient back; some monomial one degree higher does not.
TEST_P(shapes, reproduce_polynomials_of_their_degree)
{
    const shape_case& c = GetParam();
    sampler random;
    std::vector<double> N(c.nbr_nodes), dN(c.nbr_nodes * c.dim);
    auto mono = [](const unsigned* e, const point& x) {
        return std::pow(x[0], e[0]) * std::pow(x[1], e[1]) * std::pow(x[2], e[2]);
    };
    double worst_beyond = 0.0;
    for (unsigned e0 = 0; e0 <= c.degree + 1; ++e0)
        for (unsigned e1 = 0; e1 <= (c.dim > 1 ? c.degree + 1 : 0); ++e1)
            for (unsigned e2 = 0; e2 <= (c.dim > 2 ? c.degree + 1 : 0); ++e2) {
                const unsigned e[3] = {e0, e1, e2};
                const unsigned total = e0 + e1 + e2;
                if (total > c.degree + 1) continue;
                SCOPED_TRACE("r^" + std::to_string(e0) + " s^" + std::to_string(e1) + " t^" + std::to_string(e2));
                for (unsigned p = 0; p < 20; ++p) {
                    const point x = random(c.domain);
                    c.values(x.data(), N.data());
                    c.derivatives(x.data(), dN.data());
                    double v = 0.0, g[3] = {};
                    for (unsigned a = 0; a < c.nbr_nodes; ++a) {
                        const double m = mono(e, c.expected_nodes[a]);
                        v += m * N[a];
                        for (unsigned k = 0; k < c.dim; ++k) g[k] += m * dN[a * c.dim + k];
                    }
                    if (total > c.degree) {
                        worst_beyond = std::max(worst_beyond, std::abs(v - mono(e, x)));
                        continue;
                    }
                    EXPECT_NEAR(v, mono(e, x), c.nbr_nodes * delta);
                    for (unsigned k = 0; k < c.dim; ++k) {
                        unsigned ek[3] = {e0, e1, e2};
                        double exact = 0.0;
                        if (ek[k] > 0) {
                            --ek[k];
                            exact = e[k] * mono(ek, x);
                        }
                        EXPECT_NEAR(g[k], exact, 8 * c.nbr_nodes * delta) << "axis " << k;
                    }
                }
            }
    EXPECT_GT(worst_beyond, 1e-6) << "the shape reproduces more than its stated degree";
}

INSTANTIATE_TEST_SUITE_P(all, shapes, ::testing::ValuesIn(all_shapes()),
                         [](const auto& info) { return info.param.name; });

// The trace of a volume shape on a face is the face shape of the face's nodes, and the
// functions of the other nodes vanish there: neighbours then share their values.
struct face_case {
    std::string name;
    unsigned volume;          // index in all_shapes()
    unsigned face;            // index in all_shapes()
    std::vector<unsigned> on; // volume node of each face node, in face order
};

void PrintTo(const face_case& c, std::ostream* os) { *os << c.name; }

class face_traces : public ::testing::TestWithParam<face_case> {};

TEST_P(face_traces, equal_the_face_shape)
{
    const face_case& f = GetParam();
    const auto shapes = all_shapes();
    const shape_case& v = shapes[f.volume];
    const shape_case& s = shapes[f.face];
    ASSERT_EQ(f.on.size(), s.nbr_nodes);
    sampler random;
    std::vector<double> Nf(s.nbr_nodes), Nv(v.nbr_nodes);
    for (unsigned p = 0; p < 50; ++p) {
        const point xi = random(s.domain);
        s.values(xi.data(), Nf.data());
        point x{};
        for (unsigned b = 0; b < s.nbr_nodes; ++b)
            for (unsigned k = 0; k < 3; ++k) x[k] += Nf[b] * v.expected_nodes[f.on[b]][k];
        v.values(x.data(), Nv.data());
        std::vector<double> expected(v.nbr_nodes, 0.0);
        for (unsigned b = 0; b < s.nbr_nodes; ++b) expected[f.on[b]] = Nf[b];
        for (unsigned a = 0; a < v.nbr_nodes; ++a)
            EXPECT_NEAR(Nv[a], expected[a], 4 * v.nbr_nodes * delta) << "node " << a;
    }
}

// Indices in all_shapes(): 2 faceT3, 3 faceQ4, 4 faceT6, 5 faceQ9, 7 tetra10,
// 8 pyramid5, 9 pyramid14, 11 wedge18, 13 hexa27.
INSTANTIATE_TEST_SUITE_P(
    all, face_traces,
    ::testing::Values(face_case{"pyramid5_base", 8, 3, {0, 1, 2, 3}},
                      face_case{"pyramid5_side", 8, 2, {1, 2, 4}},
                      face_case{"pyramid14_base", 9, 5, {0, 1, 2, 3, 5, 6, 7, 8, 13}},
                      face_case{"pyramid14_side_front", 9, 4, {0, 1, 4, 10, 9, 5}},
                      face_case{"pyramid14_side_right", 9, 4, {1, 2, 4, 11, 10, 6}},
                      face_case{"pyramid14_side_back", 9, 4, {2, 3, 4, 12, 11, 7}},
                      face_case{"pyramid14_side_left", 9, 4, {3, 0, 4, 9, 12, 8}},
                      face_case{"tetra10_slanted", 7, 4, {0, 1, 2, 4, 5, 6}},
                      face_case{"tetra10_bottom", 7, 4, {0, 1, 3, 8, 7, 6}},
                      face_case{"wedge18_bottom", 11, 4, {0, 1, 2, 9, 10, 11}},
                      face_case{"wedge18_side", 11, 5, {0, 1, 4, 3, 11, 7, 14, 6, 17}},
                      face_case{"hexa27_bottom", 13, 5, {0, 1, 2, 3, 8, 9, 10, 11, 24}},
                      face_case{"hexa27_front", 13, 5, {0, 1, 5, 4, 8, 17, 12, 16, 22}}),
    [](const auto& info) { return info.param.name; });

// At the apex the guard q = 0 replaces the limit: values are exact and derivatives
// finite.
template <class Shape>
void check_apex()
{
    const Shape shape{};
    const double apex[3] = {0.0, 0.0, 1.0};
    double N[Shape::nbr_nodes], dN[Shape::nbr_nodes][3];
    shape.values(apex, N);
    shape.derivatives(apex, dN);
    double dsum[3] = {};
    for (unsigned a = 0; a < Shape::nbr_nodes; ++a) {
        EXPECT_EQ(N[a], a == 4 ? 1.0 : 0.0) << "node " << a;
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_TRUE(std::isfinite(dN[a][k])) << "node " << a << ", axis " << k;
            dsum[k] += dN[a][k];
        }
    }
    for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(dsum[k], 0.0, delta) << "axis " << k;
}

TEST(pyramid_apex, exact_values_and_finite_derivatives)
{
    check_apex<elfes::shape_pyramid5>();
    check_apex<elfes::shape_pyramid14>();
}

} // namespace
