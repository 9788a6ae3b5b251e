// Integration rules of every reference cell, the local_point that each of their
// points becomes, the fixed point sets that element servers hold, and the
// kinematic_item through which a server reads shape data and DOF values at a point.
// Everything is constexpr, so a kernel may hold its point set as a compile-time
// constant.
#pragma once

#include "kelt/core/types.h"

namespace kelt::core {

// The laws key a point's state by ID modulo this number, so no rule may hold as many
// points.
inline constexpr unsigned max_points_per_rule = 50;

// Identifiers from here up to 399 stand for evaluation points given by coordinates.
inline constexpr unsigned evaluation_point_base = 350;

// Index of a point in its rule, from its identifier.
constexpr unsigned point_index(unsigned ID) noexcept { return ID % max_points_per_rule; }

// One integration point. ID is the point's index in its rule plus a base that tells
// the rule family. Coordinates that the cell does not have stay 0.
struct local_point {
    unsigned ID = 0;
    double weight = 0.0;
    double x[3] = {};
};

namespace gauss_tables {

struct rule_entry {
    double x[3];
    double weight;
};

template <unsigned N>
struct rule_table {
    rule_entry e[N];
    constexpr const rule_entry& operator[](unsigned k) const noexcept { return e[k]; }
};

// Gauss-Legendre on [-1, 1]: the rule of n points starts at entry n (n - 1) / 2.
inline constexpr double gauss_edge_points[21] = {
    0.0,
    -0.577350269189626, 0.577350269189626,
    0.0, -0.774596669241483, 0.774596669241483,
    -0.339981043584856, 0.339981043584856, -0.861136311594053, 0.861136311594053,
    0.0, -0.538469310105683, 0.538469310105683, -0.906179845938664, 0.906179845938664,
    -0.238619186083197, 0.238619186083197, -0.661209386466265, 0.661209386466265, -0.932469514203152,
    0.932469514203152,
};

inline constexpr double gauss_edge_weights[21] = {
    2.0,
    1.0, 1.0,
    0.888888888888889, 0.555555555555556, 0.555555555555556,
    0.652145154862546, 0.652145154862546, 0.347854845137454, 0.347854845137454,
    0.568888888888889, 0.478628670499366, 0.478628670499366, 0.236926885056189, 0.236926885056189,
    0.467913934572691, 0.467913934572691, 0.360761573048139, 0.360761573048139, 0.17132449237917,
    0.17132449237917,
};

// The unit triangle, weights summing to its area 1/2. Rules of 1, 3, 4, 6 and 7 points
// start at entries 0, 1, 4, 8 and 14.
inline constexpr double faceT6_a = 0.445948490915965, faceT6_b = 0.091576213509771;
inline constexpr double faceT7_c = 0.470142064105115, faceT7_d = 0.101286507323456;
inline constexpr rule_entry gauss_faceT[21] = {
    {{1.0 / 3.0, 1.0 / 3.0, 0.0}, 0.5},

    {{1.0 / 6.0, 1.0 / 6.0, 0.0}, 1.0 / 6.0},
    {{2.0 / 3.0, 1.0 / 6.0, 0.0}, 1.0 / 6.0},
    {{1.0 / 6.0, 2.0 / 3.0, 0.0}, 1.0 / 6.0},

    {{1.0 / 3.0, 1.0 / 3.0, 0.0}, -0.28125},
    {{0.2, 0.2, 0.0}, 0.260416666666667},
    {{0.6, 0.2, 0.0}, 0.260416666666667},
    {{0.2, 0.6, 0.0}, 0.260416666666667},

    {{faceT6_a, faceT6_a, 0.0}, 0.111690794839005},
    {{1.0 - 2.0 * faceT6_a, faceT6_a, 0.0}, 0.111690794839005},
    {{faceT6_a, 1.0 - 2.0 * faceT6_a, 0.0}, 0.111690794839005},
    {{faceT6_b, faceT6_b, 0.0}, 0.054975871827661},
    {{1.0 - 2.0 * faceT6_b, faceT6_b, 0.0}, 0.054975871827661},
    {{faceT6_b, 1.0 - 2.0 * faceT6_b, 0.0}, 0.054975871827661},

    {{1.0 / 3.0, 1.0 / 3.0, 0.0}, 0.1125},
    {{faceT7_c, faceT7_c, 0.0}, 0.066197076394253},
    {{1.0 - 2.0 * faceT7_c, faceT7_c, 0.0}, 0.066197076394253},
    {{faceT7_c, 1.0 - 2.0 * faceT7_c, 0.0}, 0.066197076394253},
    {{faceT7_d, faceT7_d, 0.0}, 0.062969590272413},
    {{1.0 - 2.0 * faceT7_d, faceT7_d, 0.0}, 0.062969590272413},
    {{faceT7_d, 1.0 - 2.0 * faceT7_d, 0.0}, 0.062969590272413},
};

// The unit tetrahedron, weights summing to 1 (the volume 1/6 is applied by the rule).
// Rules of 1, 4, 5 and 11 points start at entries 0, 1, 5 and 10.
inline constexpr double tetra4_p = 0.5854101966249685, tetra4_q = 0.1381966011250105;
inline constexpr double tetra11_u = 0.7857142857142857, tetra11_v = 0.0714285714285714;
inline constexpr double tetra11_w = 0.1005964238332008, tetra11_x = 0.3994035761667992;
// 14 points of positive weights, degree 5: two sets at (a, a, a) and the other
// three corners' images, one at two coordinates b and two 1/2 - b.
inline constexpr double tetra14_a1 = 0.3108859192633006, tetra14_r1 = 1.0 - 3.0 * tetra14_a1;
inline constexpr double tetra14_a2 = 0.0927352503108912, tetra14_r2 = 1.0 - 3.0 * tetra14_a2;
inline constexpr double tetra14_b = 0.0455037041256496, tetra14_c = 0.5 - tetra14_b;
inline constexpr double tetra14_w1 = 0.1126879257180159, tetra14_w2 = 0.0734930431163619,
                        tetra14_w3 = 0.0425460207770815;
inline constexpr rule_entry gauss_tetra[35] = {
    {{0.25, 0.25, 0.25}, 1.0},

    {{tetra4_p, tetra4_q, tetra4_q}, 0.25},
    {{tetra4_q, tetra4_q, tetra4_q}, 0.25},
    {{tetra4_q, tetra4_q, tetra4_p}, 0.25},
    {{tetra4_q, tetra4_p, tetra4_q}, 0.25},

    {{0.25, 0.25, 0.25}, -0.8},
    {{0.5, 1.0 / 6.0, 1.0 / 6.0}, 0.45},
    {{1.0 / 6.0, 0.5, 1.0 / 6.0}, 0.45},
    {{1.0 / 6.0, 1.0 / 6.0, 0.5}, 0.45},
    {{1.0 / 6.0, 1.0 / 6.0, 1.0 / 6.0}, 0.45},

    {{0.25, 0.25, 0.25}, -0.0789333333333333},
    {{tetra11_u, tetra11_v, tetra11_v}, 0.0457333333333333},
    {{tetra11_v, tetra11_v, tetra11_v}, 0.0457333333333333},
    {{tetra11_v, tetra11_v, tetra11_u}, 0.0457333333333333},
    {{tetra11_v, tetra11_u, tetra11_v}, 0.0457333333333333},
    {{tetra11_w, tetra11_x, tetra11_x}, 0.1493333333333333},
    {{tetra11_x, tetra11_w, tetra11_x}, 0.1493333333333333},
    {{tetra11_x, tetra11_x, tetra11_w}, 0.1493333333333333},
    {{tetra11_x, tetra11_w, tetra11_w}, 0.1493333333333333},
    {{tetra11_w, tetra11_x, tetra11_w}, 0.1493333333333333},
    {{tetra11_w, tetra11_w, tetra11_x}, 0.1493333333333333},

    {{tetra14_a1, tetra14_a1, tetra14_a1}, tetra14_w1},
    {{tetra14_r1, tetra14_a1, tetra14_a1}, tetra14_w1},
    {{tetra14_a1, tetra14_r1, tetra14_a1}, tetra14_w1},
    {{tetra14_a1, tetra14_a1, tetra14_r1}, tetra14_w1},
    {{tetra14_a2, tetra14_a2, tetra14_a2}, tetra14_w2},
    {{tetra14_r2, tetra14_a2, tetra14_a2}, tetra14_w2},
    {{tetra14_a2, tetra14_r2, tetra14_a2}, tetra14_w2},
    {{tetra14_a2, tetra14_a2, tetra14_r2}, tetra14_w2},
    {{tetra14_b, tetra14_b, tetra14_c}, tetra14_w3},
    {{tetra14_b, tetra14_c, tetra14_b}, tetra14_w3},
    {{tetra14_c, tetra14_b, tetra14_b}, tetra14_w3},
    {{tetra14_b, tetra14_c, tetra14_c}, tetra14_w3},
    {{tetra14_c, tetra14_b, tetra14_c}, tetra14_w3},
    {{tetra14_c, tetra14_c, tetra14_b}, tetra14_w3},
};

// The pyramid on the square [-1, 1]^2 at t = 0 with its apex at (0, 0, 1), weights
// summing to 1 (the volume 4/3 is applied by the rule). Rules of 1, 8 and 27 points
// start at entries 0, 1 and 9; the 27 points are three layers in t of a 3 x 3 grid,
// r running fastest.
inline constexpr double pyramid27_t[3] = {0.07299402407314975, 0.3470037660383519, 0.7050022098884984};
inline constexpr double pyramid27_c[3] = {0.7180557413198889, 0.505808707853925, 0.2285043056539673};
inline constexpr double pyramid27_w[3][3] = {
    {0.03637415765390899, 0.05819865224625435, 0.09311784359400693},
    {0.03385330306941346, 0.05416528491106152, 0.08666445585769839},
    {0.006933033103838128, 0.011092852966141, 0.0177485647458256},
};
inline constexpr rule_table<36> gauss_pyramid = [] {
    rule_table<36> out{};
    out.e[0] = {{0.0, 0.0, 0.25}, 1.0};
    constexpr double a = 0.5066163033497875, ta = 0.1225148226554414, wa = 0.1744105884401308;
    constexpr double b = 0.2631840555697136, tb = 0.5441518440112253, wb = 0.07558941155986901;
    constexpr double sign[4][2] = {{-1.0, -1.0}, {1.0, -1.0}, {-1.0, 1.0}, {1.0, 1.0}};
    for (unsigned k = 0; k < 4; ++k) {
        out.e[1 + k] = {{sign[k][0] * a, sign[k][1] * a, ta}, wa};
        out.e[5 + k] = {{sign[k][0] * b, sign[k][1] * b, tb}, wb};
    }
    // Grid weight: corners w_a, edge middles w_b, centre w_c.
    constexpr unsigned grid_kind[9] = {0, 1, 0, 1, 2, 1, 0, 1, 0};
    constexpr double offset[3] = {-1.0, 0.0, 1.0};
    for (unsigned layer = 0; layer < 3; ++layer)
        for (unsigned g = 0; g < 9; ++g) {
            const double c = pyramid27_c[layer];
            out.e[9 + 9 * layer + g] = {{offset[g % 3] * c, offset[g / 3] * c, pyramid27_t[layer]},
                                        pyramid27_w[layer][grid_kind[g]]};
        }
    return out;
}();

// The rules of a table family: how many points, the first table entry, the
// highest degree of the polynomials integrated exactly.
struct rule_row {
    unsigned n;
    unsigned offset;
    unsigned degree;
};
inline constexpr rule_row faceT_rows[] = {{1, 0, 1}, {3, 1, 2}, {4, 4, 3}, {6, 8, 4}, {7, 14, 5}};
inline constexpr rule_row tetra_rows[] = {{1, 0, 1}, {4, 1, 2}, {5, 5, 3}, {11, 10, 4}, {14, 21, 5}};
inline constexpr rule_row pyramid_rows[] = {{1, 0, 1}, {8, 1, 3}, {27, 9, 5}};

// The weights of the tables sum to 1 on the tetrahedron and the pyramid: the cell's
// volume is applied here.
constexpr double faceT_weight(double w) noexcept { return w; }
constexpr double tetra_weight(double w) noexcept { return w / 6.0; }
constexpr double pyramid_weight(double w) noexcept { return w * (4.0 / 3.0); }

} // namespace gauss_tables

// Every rule is a local_point made from (point index, rule parameters). A parameter
// that names no rule, or an index past the rule's points, gives a point of weight 0 at
// the origin: a bad request then adds nothing rather than read outside the tables.

struct Gauss_edge : local_point {
    static constexpr unsigned base = 100;
    static constexpr bool valid(unsigned n) noexcept { return n >= 1 && n <= 6; }
    // Highest degree of the polynomials integrated exactly.
    static constexpr unsigned degree(unsigned n) noexcept { return 2 * n - 1; }

    constexpr Gauss_edge(unsigned i, unsigned n) noexcept
    {
        ID = base + i;
        if (!valid(n) || i >= n) return;
        const unsigned e = n * (n - 1) / 2 + i;
        weight = gauss_tables::gauss_edge_weights[e];
        x[0] = gauss_tables::gauss_edge_points[e];
    }
};

// A family of rules read from a table: `Rows` says where each rule starts, `Weight`
// scales a table weight to the cell.
template <unsigned Base, const auto& Rows, const auto& Table, double (*Weight)(double)>
struct table_rule : local_point {
    static constexpr unsigned base = Base;
    static constexpr const gauss_tables::rule_row* row(unsigned n) noexcept
    {
        for (const gauss_tables::rule_row& r : Rows)
            if (r.n == n) return &r;
        return nullptr;
    }
    // Compares counts, not pointers: a sanitised build cannot fold a pointer test.
    static constexpr bool valid(unsigned n) noexcept
    {
        for (const gauss_tables::rule_row& r : Rows)
            if (r.n == n) return true;
        return false;
    }
    static constexpr unsigned degree(unsigned n) noexcept { return valid(n) ? row(n)->degree : 0; }

    constexpr table_rule(unsigned i, unsigned n) noexcept
    {
        ID = Base + i;
        if (!valid(n) || i >= n) return;
        const gauss_tables::rule_entry& e = Table[row(n)->offset + i];
        weight = Weight(e.weight);
        for (unsigned k = 0; k < 3; ++k) x[k] = e.x[k];
    }
};

struct Gauss_faceT : table_rule<200, gauss_tables::faceT_rows, gauss_tables::gauss_faceT, gauss_tables::faceT_weight> {
    using table_rule::table_rule;
};

// Product of two Gauss_edge rules: index i mod n1 on r, i / n1 on s.
struct Gauss_faceQ : local_point {
    static constexpr unsigned base = 300;
    static constexpr bool valid(unsigned n1, unsigned n2) noexcept
    {
        return Gauss_edge::valid(n1) && Gauss_edge::valid(n2) && n1 * n2 < max_points_per_rule;
    }

    constexpr Gauss_faceQ(unsigned i, unsigned n1, unsigned n2) noexcept
    {
        ID = base + i;
        if (!valid(n1, n2) || i >= n1 * n2) return;
        const Gauss_edge a(i % n1, n1), b(i / n1, n2);
        weight = a.weight * b.weight;
        x[0] = a.x[0];
        x[1] = b.x[0];
    }
};

struct Gauss_tetra : table_rule<400, gauss_tables::tetra_rows, gauss_tables::gauss_tetra, gauss_tables::tetra_weight> {
    using table_rule::table_rule;
};

// Collapsed products of Gauss-Legendre in r and s with Gauss-Jacobi in t, so a rule
// of m points per direction is exact for polynomials of total degree 2 m - 1.
struct Gauss_pyramid
    : table_rule<500, gauss_tables::pyramid_rows, gauss_tables::gauss_pyramid, gauss_tables::pyramid_weight> {
    using table_rule::table_rule;
};

// Product of a Gauss_edge rule of n1 points in t (index i / n2) and a Gauss_faceT rule
// of n2 points in (r, s) (index i mod n2). Shares its base with Gauss_pyramid.
struct Gauss_wedge : local_point {
    static constexpr unsigned base = 500;
    static constexpr bool valid(unsigned n1, unsigned n2) noexcept
    {
        return Gauss_edge::valid(n1) && Gauss_faceT::valid(n2) && n1 * n2 < max_points_per_rule;
    }

    constexpr Gauss_wedge(unsigned i, unsigned n1, unsigned n2) noexcept
    {
        ID = base + i;
        if (!valid(n1, n2) || i >= n1 * n2) return;
        const Gauss_edge line(i / n2, n1);
        const Gauss_faceT face(i % n2, n2);
        weight = line.weight * face.weight;
        x[0] = face.x[0];
        x[1] = face.x[1];
        x[2] = line.x[0];
    }
};

// Product of three Gauss_edge rules: i mod n1 on r, (i / n1) mod n2 on s, i / (n1 n2)
// on t.
struct Gauss_hexa : local_point {
    static constexpr unsigned base = 700;
    static constexpr bool valid(unsigned n1, unsigned n2, unsigned n3) noexcept
    {
        return Gauss_edge::valid(n1) && Gauss_edge::valid(n2) && Gauss_edge::valid(n3) &&
               n1 * n2 * n3 < max_points_per_rule;
    }

    constexpr Gauss_hexa(unsigned i, unsigned n1, unsigned n2, unsigned n3) noexcept
    {
        ID = base + i;
        if (!valid(n1, n2, n3) || i >= n1 * n2 * n3) return;
        const Gauss_edge a(i % n1, n1), b((i / n1) % n2, n2), c(i / (n1 * n2), n3);
        weight = a.weight * b.weight * c.weight;
        x[0] = a.x[0];
        x[1] = b.x[0];
        x[2] = c.x[0];
    }
};

// The fixed point arrays that servers hold. A parameter that names no rule does not
// compile.
template <unsigned N>
struct local_points_array {
    static constexpr unsigned nbr_points = N;
    local_point points[N];

    constexpr const local_point& operator[](unsigned i) const noexcept { return points[i]; }
    constexpr const local_point* begin() const noexcept { return points; }
    constexpr const local_point* end() const noexcept { return points + N; }
};

template <class Rule, unsigned N>
struct local_points_set : local_points_array<N> {
    static_assert(Rule::valid(N), "no rule of this family has that many points");
    constexpr local_points_set() noexcept
    {
        for (unsigned i = 0; i < N; ++i) this->points[i] = Rule(i, N);
    }
};

template <class Rule, unsigned N1, unsigned N2>
struct local_points_set_prod2 : local_points_array<N1 * N2> {
    static_assert(Rule::valid(N1, N2), "no rule of this family with these parameters");
    constexpr local_points_set_prod2() noexcept
    {
        for (unsigned i = 0; i < N1 * N2; ++i) this->points[i] = Rule(i, N1, N2);
    }
};

template <class Rule, unsigned N1, unsigned N2, unsigned N3>
struct local_points_set_prod3 : local_points_array<N1 * N2 * N3> {
    static_assert(Rule::valid(N1, N2, N3), "no rule of this family with these parameters");
    constexpr local_points_set_prod3() noexcept
    {
        for (unsigned i = 0; i < N1 * N2 * N3; ++i) this->points[i] = Rule(i, N1, N2, N3);
    }
};

// Element kinematics at one integration point, one record per element DOF. The shape
// data (N, dN) are filled once per point; U and U_ref are written at the start of each
// element, and the spatial gradients of N by the server's Jacobian.
template <class Shape>
struct kinematic_item {
    unsigned DOF = 0;               // node * 9 + place
    double N = 0.0;                 // shape value at the point
    double dN[Shape::dim] = {};     // local derivatives
    double U = 0.0;                 // current value of the DOF
    double U_ref = 0.0;             // reference value of the DOF
    double dN_element[3] = {};      // gradient of N in the element frame
    double dN_global[3] = {};       // gradient of N in the physical frame
};

} // namespace kelt::core
