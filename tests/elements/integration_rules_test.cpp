// Integration rules: weights sum to the reference measure, every point lies in its
// cell, every monomial up to the stated degree is integrated exactly and one degree
// more is not, identifiers follow the point index, and each shape maps its
// rule's points and measure through an affine element exactly.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "kelt/elements/integration_rules.h"
#include "kelt/elements/shapes.h"

using namespace kelt::core;

namespace {

constexpr double eps = std::numeric_limits<double>::epsilon();
// Rule values are stated with 15 or more decimals, a few truncated rather than rounded:
// each is within one unit of its 15th decimal.
constexpr double stated = 1e-15;

using exponents = std::array<unsigned, 3>;

enum class cell { line, triangle, square, tetra, pyramid, wedge, cube };

double factorial(unsigned n) { return n < 2 ? 1.0 : n * factorial(n - 1); }
double line_integral(unsigned a) { return a % 2 ? 0.0 : 2.0 / (a + 1); }

// Exact integral of r^a s^b t^c over the reference cell.
double exact_integral(cell c, const exponents& e)
{
    const unsigned a = e[0], b = e[1], t = e[2];
    switch (c) {
    case cell::line: return line_integral(a);
    case cell::square: return line_integral(a) * line_integral(b);
    case cell::cube: return line_integral(a) * line_integral(b) * line_integral(t);
    case cell::triangle: return factorial(a) * factorial(b) / factorial(a + b + 2);
    case cell::wedge: return factorial(a) * factorial(b) / factorial(a + b + 2) * line_integral(t);
    case cell::tetra: return factorial(a) * factorial(b) * factorial(t) / factorial(a + b + t + 3);
    case cell::pyramid:
        // Layer t has the square of half-side 1 - t: the (r, s) integral is
        // 4 (1 - t)^(a + b + 2) / ((a + 1)(b + 1)), then a Beta integral in t.
        if (a % 2 || b % 2) return 0.0;
        return 4.0 / ((a + 1) * (b + 1)) * factorial(t) * factorial(a + b + 2) / factorial(a + b + t + 3);
    }
    return 0.0;
}

bool inside(cell c, const double* x)
{
    const double m = 4 * stated;
    auto in = [m](double v, double lo, double hi) { return v >= lo - m && v <= hi + m; };
    switch (c) {
    case cell::line: return in(x[0], -1, 1);
    case cell::square: return in(x[0], -1, 1) && in(x[1], -1, 1);
    case cell::cube: return in(x[0], -1, 1) && in(x[1], -1, 1) && in(x[2], -1, 1);
    case cell::triangle: return in(x[0], 0, 1) && in(x[1], 0, 1) && in(x[0] + x[1], 0, 1);
    case cell::wedge: return in(x[0], 0, 1) && in(x[1], 0, 1) && in(x[0] + x[1], 0, 1) && in(x[2], -1, 1);
    case cell::tetra: return in(x[0], 0, 1) && in(x[1], 0, 1) && in(x[2], 0, 1) && in(x[0] + x[1] + x[2], 0, 1);
    case cell::pyramid: return in(x[2], 0, 1) && in(x[0], x[2] - 1, 1 - x[2]) && in(x[1], x[2] - 1, 1 - x[2]);
    }
    return false;
}

struct rule_case {
    std::string name;
    cell domain;
    double volume;
    unsigned base;
    std::vector<local_point> points;
    std::function<bool(const exponents&)> claimed; // integrated exactly
    exponents max_exponent;                          // monomials tried
    std::vector<std::vector<exponents>> beyond;      // each group holds a monomial the rule misses
};

void PrintTo(const rule_case& c, std::ostream* os) { *os << c.name; }

template <class Rule, class... P>
std::vector<local_point> points_of(unsigned n, P... parameters)
{
    std::vector<local_point> v;
    for (unsigned i = 0; i < n; ++i) v.push_back(Rule(i, parameters...));
    return v;
}

std::vector<exponents> of_total_degree(unsigned d, unsigned dim)
{
    std::vector<exponents> v;
    for (unsigned a = 0; a <= d; ++a)
        for (unsigned b = 0; b <= (dim > 1 ? d - a : 0); ++b)
            if (dim > 2 || a + b == d) v.push_back({a, b, dim > 2 ? d - a - b : 0});
    return v;
}

rule_case simplex_case(const char* family, cell c, double volume, unsigned base, std::vector<local_point> p,
                       unsigned degree, unsigned dim)
{
    const unsigned top = degree + 1;
    return {std::string(family) + std::to_string(p.size()), c, volume, base, std::move(p),
            [degree](const exponents& e) { return e[0] + e[1] + e[2] <= degree; },
            {top, dim > 1 ? top : 0, dim > 2 ? top : 0}, {of_total_degree(top, dim)}};
}

std::vector<rule_case> all_rules()
{
    std::vector<rule_case> v;
    for (unsigned n = 1; n <= 6; ++n) {
        const unsigned d = Gauss_edge::degree(n);
        v.push_back({"edge" + std::to_string(n), cell::line, 2.0, 100, points_of<Gauss_edge>(n, n),
                     [d](const exponents& e) { return e[0] <= d; }, {d + 1, 0, 0}, {{{d + 1, 0, 0}}}});
    }
    for (unsigned n : {1u, 3u, 4u, 6u, 7u})
        v.push_back(simplex_case("faceT", cell::triangle, 0.5, 200, points_of<Gauss_faceT>(n, n),
                                 Gauss_faceT::degree(n), 2));
    for (unsigned n : {1u, 4u, 5u, 11u, 14u})
        v.push_back(simplex_case("tetra", cell::tetra, 1.0 / 6.0, 400, points_of<Gauss_tetra>(n, n),
                                 Gauss_tetra::degree(n), 3));
    for (unsigned n : {1u, 8u, 27u})
        v.push_back(simplex_case("pyramid", cell::pyramid, 4.0 / 3.0, 500, points_of<Gauss_pyramid>(n, n),
                                 Gauss_pyramid::degree(n), 3));
    for (unsigned n1 = 1; n1 <= 6; ++n1)
        for (unsigned n2 = 1; n2 <= 6; ++n2) {
            const unsigned d1 = Gauss_edge::degree(n1), d2 = Gauss_edge::degree(n2);
            v.push_back({"faceQ" + std::to_string(n1) + "x" + std::to_string(n2), cell::square, 4.0, 300,
                         points_of<Gauss_faceQ>(n1 * n2, n1, n2),
                         [d1, d2](const exponents& e) { return e[0] <= d1 && e[1] <= d2; },
                         {d1 + 1, d2 + 1, 0}, {{{d1 + 1, 0, 0}}, {{0, d2 + 1, 0}}}});
        }
    for (unsigned n1 = 1; n1 <= 6; ++n1)
        for (unsigned n2 : {1u, 3u, 4u, 6u, 7u}) {
            const unsigned d1 = Gauss_edge::degree(n1), d2 = Gauss_faceT::degree(n2);
            v.push_back({"wedge" + std::to_string(n1) + "x" + std::to_string(n2), cell::wedge, 1.0, 500,
                         points_of<Gauss_wedge>(n1 * n2, n1, n2),
                         [d1, d2](const exponents& e) { return e[0] + e[1] <= d2 && e[2] <= d1; },
                         {d2 + 1, d2 + 1, d1 + 1}, {of_total_degree(d2 + 1, 2), {{0, 0, d1 + 1}}}});
        }
    for (unsigned n1 = 1; n1 <= 6; ++n1)
        for (unsigned n2 = 1; n2 <= 6; ++n2)
            for (unsigned n3 = 1; n3 <= 6; ++n3) {
                if (!Gauss_hexa::valid(n1, n2, n3)) continue;
                const unsigned d1 = 2 * n1 - 1, d2 = 2 * n2 - 1, d3 = 2 * n3 - 1;
                v.push_back({"hexa" + std::to_string(n1) + "x" + std::to_string(n2) + "x" + std::to_string(n3),
                             cell::cube, 8.0, 700, points_of<Gauss_hexa>(n1 * n2 * n3, n1, n2, n3),
                             [d1, d2, d3](const exponents& e) { return e[0] <= d1 && e[1] <= d2 && e[2] <= d3; },
                             {d1 + 1, d2 + 1, d3 + 1},
                             {{{d1 + 1, 0, 0}}, {{0, d2 + 1, 0}}, {{0, 0, d3 + 1}}}});
            }
    return v;
}

double quadrature(const std::vector<local_point>& points, const exponents& e)
{
    double q = 0.0;
    for (const local_point& p : points) {
        double m = p.weight;
        for (unsigned k = 0; k < 3; ++k)
            for (unsigned j = 0; j < e[k]; ++j) m *= p.x[k];
        q += m;
    }
    return q;
}

// A weight is a product of at most three stated values of size at most 2, scaled by at
// most 4/3: off by at most 16 stated units. A coordinate (1 - 2a at worst) is off by 2,
// which moves a monomial of degree d (coordinates within 1) by 2 d stated units; then
// the rounding of d + 2 products and of the sum.
double tolerance(const rule_case& c, const exponents& e)
{
    const unsigned d = e[0] + e[1] + e[2];
    double total_weight = 0.0;
    for (const local_point& p : c.points) total_weight += std::abs(p.weight);
    const double n = double(c.points.size());
    return n * 16 * stated + total_weight * (2 * d * stated + (d + 2 + n) * eps);
}

class rules : public ::testing::TestWithParam<rule_case> {};

TEST_P(rules, weights_sum_to_the_reference_measure)
{
    const rule_case& c = GetParam();
    EXPECT_NEAR(quadrature(c.points, {0, 0, 0}), c.volume, tolerance(c, {0, 0, 0}));
}

TEST_P(rules, points_lie_in_the_cell_with_identifiers_by_index)
{
    const rule_case& c = GetParam();
    ASSERT_LT(c.points.size(), max_points_per_rule);
    for (unsigned i = 0; i < c.points.size(); ++i) {
        const local_point& p = c.points[i];
        EXPECT_TRUE(inside(c.domain, p.x)) << "point " << i;
        EXPECT_EQ(p.ID, c.base + i);
        EXPECT_EQ(point_index(p.ID), i);
    }
}

TEST_P(rules, integrate_exactly_up_to_their_degree_and_no_further)
{
    const rule_case& c = GetParam();
    for (unsigned a = 0; a <= c.max_exponent[0]; ++a)
        for (unsigned b = 0; b <= c.max_exponent[1]; ++b)
            for (unsigned t = 0; t <= c.max_exponent[2]; ++t) {
                const exponents e{a, b, t};
                if (!c.claimed(e)) continue;
                EXPECT_NEAR(quadrature(c.points, e), exact_integral(c.domain, e), tolerance(c, e))
                    << "r^" << a << " s^" << b << " t^" << t;
            }
    for (const auto& group : c.beyond) {
        double worst = 0.0;
        for (const exponents& e : group)
            worst = std::max(worst, std::abs(quadrature(c.points, e) - exact_integral(c.domain, e)));
        EXPECT_GT(worst, 1e-8) << "the rule is exact beyond its stated degree";
    }
}

INSTANTIATE_TEST_SUITE_P(all, rules, ::testing::ValuesIn(all_rules()),
                         [](const auto& info) { return info.param.name; });

// No table entry answers for a parameter that is not a rule, nor for an index past the
// rule's points.
TEST(rule_tables, non_rules_give_empty_points)
{
    const local_point none[] = {Gauss_faceT(0, 2), Gauss_faceT(1, 5), Gauss_edge(0, 7), Gauss_edge(3, 3),
                                Gauss_tetra(0, 6), Gauss_pyramid(0, 9), Gauss_faceQ(0, 7, 1),
                                Gauss_wedge(0, 2, 2), Gauss_hexa(0, 4, 4, 4)};
    for (const local_point& p : none) {
        EXPECT_EQ(p.weight, 0.0) << "ID " << p.ID;
        EXPECT_EQ(p.x[0], 0.0) << "ID " << p.ID;
    }
}

// An element whose nodes are an affine image x = A xi + b of the reference nodes: the
// isoparametric map sends every point to A xi + b, the Jacobian is A, and the rule
// gives det(A) times the reference measure.
struct mapped_case {
    std::string name;
    std::function<void(const double (&)[3][3], double&, double&)> run; // measure, worst map error
    double reference_measure;
};

double det(const double (&J)[3][3], unsigned dim)
{
    if (dim == 1) return J[0][0];
    if (dim == 2) return J[0][0] * J[1][1] - J[0][1] * J[1][0];
    return J[0][0] * (J[1][1] * J[2][2] - J[1][2] * J[2][1]) - J[0][1] * (J[1][0] * J[2][2] - J[1][2] * J[2][0]) +
           J[0][2] * (J[1][0] * J[2][1] - J[1][1] * J[2][0]);
}

template <class Shape, class Set>
mapped_case mapped(const char* name, double reference_measure)
{
    auto run = [](const double (&A)[3][3], double& measure, double& map_error) {
        constexpr unsigned dim = Shape::dim;
        static constexpr Shape shape{};
        static constexpr Set set{};
        const double b[3] = {0.5, -1.25, 2.0};
        double X[Shape::nbr_nodes][3] = {};
        for (unsigned a = 0; a < Shape::nbr_nodes; ++a)
            for (unsigned i = 0; i < dim; ++i) {
                X[a][i] = b[i];
                for (unsigned k = 0; k < dim; ++k) X[a][i] += A[i][k] * Shape::node_point(a)[k];
            }
        measure = 0.0;
        map_error = 0.0;
        for (const local_point& p : set) {
            double N[Shape::nbr_nodes], dN[Shape::nbr_nodes][dim];
            shape.values(p.x, N);
            shape.derivatives(p.x, dN);
            kinematic_item<Shape> items[Shape::nbr_nodes];
            for (unsigned a = 0; a < Shape::nbr_nodes; ++a) {
                items[a].DOF = a * 9;
                items[a].N = N[a];
                for (unsigned k = 0; k < dim; ++k) items[a].dN[k] = dN[a][k];
            }
            double J[3][3] = {}, x[3] = {};
            for (const auto& item : items)
                for (unsigned i = 0; i < dim; ++i) {
                    x[i] += item.N * X[item.DOF / 9][i];
                    for (unsigned k = 0; k < dim; ++k) J[i][k] += X[item.DOF / 9][i] * item.dN[k];
                }
            for (unsigned i = 0; i < dim; ++i) {
                double expected = b[i];
                for (unsigned k = 0; k < dim; ++k) expected += A[i][k] * p.x[k];
                map_error = std::max(map_error, std::abs(x[i] - expected));
            }
            measure += p.weight * det(J, dim);
        }
    };
    return {name, run, reference_measure};
}

void PrintTo(const mapped_case& c, std::ostream* os) { *os << c.name; }

class affine_elements : public ::testing::TestWithParam<mapped_case> {};

TEST_P(affine_elements, measure_and_map_are_exact)
{
    const mapped_case& c = GetParam();
    const double A[3][3] = {{1.5, 0.25, -0.5}, {0.125, 0.75, 0.25}, {-0.25, 0.5, 2.0}};
    double measure = 0.0, map_error = 0.0;
    c.run(A, measure, map_error);
    unsigned dim = c.name.rfind("edge", 0) == 0 ? 1 : c.name.rfind("face", 0) == 0 ? 2 : 3;
    // Entries of size about 4 summed over at most 27 nodes and 27 points.
    EXPECT_NEAR(map_error, 0.0, 1e-13);
    EXPECT_NEAR(measure, det(A, dim) * c.reference_measure, 1e-13);
}

INSTANTIATE_TEST_SUITE_P(
    all, affine_elements,
    ::testing::Values(
        mapped<kelt::elfes::shape_edge2, local_points_set<Gauss_edge, 1>>("edge2", 2.0),
        mapped<kelt::elfes::shape_edge3, local_points_set<Gauss_edge, 2>>("edge3", 2.0),
        mapped<kelt::elfes::shape_faceT3, local_points_set<Gauss_faceT, 1>>("faceT3", 0.5),
        mapped<kelt::elfes::shape_faceT6, local_points_set<Gauss_faceT, 3>>("faceT6", 0.5),
        mapped<kelt::elfes::shape_faceQ4, local_points_set_prod2<Gauss_faceQ, 2, 2>>("faceQ4", 4.0),
        mapped<kelt::elfes::shape_faceQ9, local_points_set_prod2<Gauss_faceQ, 3, 3>>("faceQ9", 4.0),
        mapped<kelt::elfes::shape_tetra4, local_points_set<Gauss_tetra, 1>>("tetra4", 1.0 / 6.0),
        mapped<kelt::elfes::shape_tetra10, local_points_set<Gauss_tetra, 4>>("tetra10", 1.0 / 6.0),
        mapped<kelt::elfes::shape_pyramid5, local_points_set<Gauss_pyramid, 8>>("pyramid5", 4.0 / 3.0),
        mapped<kelt::elfes::shape_pyramid14, local_points_set<Gauss_pyramid, 27>>("pyramid14", 4.0 / 3.0),
        mapped<kelt::elfes::shape_wedge6, local_points_set_prod2<Gauss_wedge, 2, 3>>("wedge6", 1.0),
        mapped<kelt::elfes::shape_wedge18, local_points_set_prod2<Gauss_wedge, 3, 6>>("wedge18", 1.0),
        mapped<kelt::elfes::shape_hexa8, local_points_set_prod3<Gauss_hexa, 2, 2, 2>>("hexa8", 8.0),
        mapped<kelt::elfes::shape_hexa27, local_points_set_prod3<Gauss_hexa, 3, 3, 3>>("hexa27", 8.0)),
    [](const auto& info) { return info.param.name; });

} // namespace
