// Shape functions of the fourteen element shapes that carry models, on their reference
// cells, with their local derivatives. Everything is constexpr, fixed-size and free of
// virtual calls, so that element kernels can be templates over the shape.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <type_traits>
#include <utility>

#include "kelt/core/types.h"

namespace kelt::elfes {

// ---------------------------------------------------------------------------------
// Polynomial pieces.

// Linear factor on [-1, 1]: c0 + c1 s.
struct linear_1d {
    double c0 = 0.0, c1 = 0.0;

    // The function that is 1 at the end s_node (-1 or +1) and 0 at the other end.
    static constexpr linear_1d at_node(double s_node) noexcept { return {0.5, 0.5 * s_node}; }
    constexpr double value(double s) const noexcept { return c0 + c1 * s; }
    constexpr double derivative(double /*s*/) const noexcept { return c1; }
};

// Quadratic factor on [-1, 1], as the coefficients of s, 1 and s*s.
struct quadratic_1d {
    double cs = 0.0, c1 = 0.0, css = 0.0;

    // The function that is 1 at s_node (-1, 0 or +1) and 0 at the two others.
    static constexpr quadratic_1d at_node(double s_node) noexcept
    {
        if (s_node == 0.0) return {0.0, 1.0, -1.0};
        return {0.5 * s_node, 0.0, 0.5};
    }
    constexpr double value(double s) const noexcept { return (css * s + cs) * s + c1; }
    constexpr double derivative(double s) const noexcept { return 2.0 * css * s + cs; }
};

// Degree one in D variables: the constant, then one coefficient per variable.
template <unsigned D>
struct linear_poly {
    double c[D + 1] = {};

    constexpr double value(const double* x) const noexcept
    {
        double v = c[0];
        for (unsigned k = 0; k < D; ++k) v += c[1 + k] * x[k];
        return v;
    }
    constexpr void gradient(const double* /*x*/, double* g) const noexcept
    {
        for (unsigned k = 0; k < D; ++k) g[k] = c[1 + k];
    }
};

// Degree two in D variables: the constant, the D linear terms, the D squares, then the
// products x_j x_k for j < k in lexicographic order (for D = 2: 1, r, s, r*r, s*s, r*s).
template <unsigned D>
struct quadratic_poly {
    static constexpr unsigned size = (D + 1) * (D + 2) / 2;
    double c[size] = {};

    static constexpr unsigned cross(unsigned j, unsigned k) noexcept
    {
        return 1 + 2 * D + j * (2 * D - j - 1) / 2 + (k - j - 1);
    }
    // a * b + beta * l
    static constexpr quadratic_poly product(const linear_poly<D>& a, const linear_poly<D>& b, double alpha,
                                            const linear_poly<D>& l, double beta) noexcept
    {
        quadratic_poly p;
        p.c[0] = alpha * a.c[0] * b.c[0] + beta * l.c[0];
        for (unsigned k = 0; k < D; ++k) {
            p.c[1 + k] = alpha * (a.c[0] * b.c[1 + k] + a.c[1 + k] * b.c[0]) + beta * l.c[1 + k];
            p.c[1 + D + k] = alpha * a.c[1 + k] * b.c[1 + k];
            for (unsigned m = k + 1; m < D; ++m)
                p.c[cross(k, m)] = alpha * (a.c[1 + k] * b.c[1 + m] + a.c[1 + m] * b.c[1 + k]);
        }
        return p;
    }
    constexpr double value(const double* x) const noexcept
    {
        double v = c[0];
        for (unsigned k = 0; k < D; ++k) {
            v += (c[1 + D + k] * x[k] + c[1 + k]) * x[k];
            for (unsigned m = k + 1; m < D; ++m) v += c[cross(k, m)] * x[k] * x[m];
        }
        return v;
    }
    constexpr void gradient(const double* x, double* g) const noexcept
    {
        for (unsigned k = 0; k < D; ++k) {
            double d = c[1 + k] + 2.0 * c[1 + D + k] * x[k];
            for (unsigned m = 0; m < D; ++m) {
                if (m < k) d += c[cross(m, k)] * x[m];
                if (m > k) d += c[cross(k, m)] * x[m];
            }
            g[k] = d;
        }
    }
};

// ---------------------------------------------------------------------------------
// Node tables: the local coordinates of each node, in mesh-column order. The shape
// functions are built from them, so the order lives in one place.

namespace detail {

template <unsigned N>
struct node_table {
    static constexpr unsigned nbr_nodes = N;
    double x[N][3] = {};

    constexpr void set(unsigned a, double r, double s = 0.0, double t = 0.0) noexcept
    {
        x[a][0] = r;
        x[a][1] = s;
        x[a][2] = t;
    }
    // Node a at the centre of the listed nodes (mid-edge, face centre, cell centre).
    constexpr void centre(unsigned a, std::initializer_list<unsigned> of) noexcept
    {
        for (unsigned k = 0; k < 3; ++k) {
            double sum = 0.0;
            for (unsigned b : of) sum += x[b][k];
            x[a][k] = sum / double(of.size());
        }
    }
};

inline constexpr node_table<2> edge2_nodes = [] {
    node_table<2> n;
    n.set(0, -1.0);
    n.set(1, 1.0);
    return n;
}();

inline constexpr node_table<3> edge3_nodes = [] {
    node_table<3> n;
    n.set(0, -1.0);
    n.set(1, 1.0);
    n.set(2, 0.0);
    return n;
}();

// The third vertex, not the first, sits at the local origin.
inline constexpr node_table<3> faceT3_nodes = [] {
    node_table<3> n;
    n.set(0, 1.0, 0.0);
    n.set(1, 0.0, 1.0);
    n.set(2, 0.0, 0.0);
    return n;
}();

// Mid-edge node k + 3 lies on the edge opposite vertex k.
inline constexpr node_table<6> faceT6_nodes = [] {
    node_table<6> n;
    for (unsigned a = 0; a < 3; ++a) n.set(a, faceT3_nodes.x[a][0], faceT3_nodes.x[a][1]);
    n.centre(3, {1, 2});
    n.centre(4, {2, 0});
    n.centre(5, {0, 1});
    return n;
}();

inline constexpr node_table<4> faceQ4_nodes = [] {
    node_table<4> n;
    n.set(0, -1.0, -1.0);
    n.set(1, 1.0, -1.0);
    n.set(2, 1.0, 1.0);
    n.set(3, -1.0, 1.0);
    return n;
}();

inline constexpr node_table<9> faceQ9_nodes = [] {
    node_table<9> n;
    for (unsigned a = 0; a < 4; ++a) n.set(a, faceQ4_nodes.x[a][0], faceQ4_nodes.x[a][1]);
    n.centre(4, {0, 1});
    n.centre(5, {1, 2});
    n.centre(6, {2, 3});
    n.centre(7, {3, 0});
    n.centre(8, {0, 1, 2, 3});
    return n;
}();

inline constexpr node_table<4> tetra4_nodes = [] {
    node_table<4> n;
    n.set(0, 1.0, 0.0, 0.0);
    n.set(1, 0.0, 1.0, 0.0);
    n.set(2, 0.0, 0.0, 1.0);
    n.set(3, 0.0, 0.0, 0.0);
    return n;
}();

// As on a triangle face: nodes 4, 5, 6 on the edges of face (0, 1, 2) opposite its
// vertices 0, 1, 2; then nodes 7, 8, 9 on the edges from those vertices to vertex 3.
inline constexpr node_table<10> tetra10_nodes = [] {
    node_table<10> n;
    for (unsigned a = 0; a < 4; ++a) n.set(a, tetra4_nodes.x[a][0], tetra4_nodes.x[a][1], tetra4_nodes.x[a][2]);
    n.centre(4, {1, 2});
    n.centre(5, {2, 0});
    n.centre(6, {0, 1});
    n.centre(7, {0, 3});
    n.centre(8, {1, 3});
    n.centre(9, {2, 3});
    return n;
}();

inline constexpr node_table<5> pyramid5_nodes = [] {
    node_table<5> n;
    for (unsigned a = 0; a < 4; ++a) n.set(a, faceQ4_nodes.x[a][0], faceQ4_nodes.x[a][1], 0.0);
    n.set(4, 0.0, 0.0, 1.0);
    return n;
}();

// Base edges in the order of the quadrilateral faces, then the edges to the apex, then
// the base centre.
inline constexpr node_table<14> pyramid14_nodes = [] {
    node_table<14> n;
    for (unsigned a = 0; a < 5; ++a) n.set(a, pyramid5_nodes.x[a][0], pyramid5_nodes.x[a][1], pyramid5_nodes.x[a][2]);
    n.centre(5, {0, 1});
    n.centre(6, {1, 2});
    n.centre(7, {2, 3});
    n.centre(8, {3, 0});
    for (unsigned k = 0; k < 4; ++k) n.centre(9 + k, {k, 4});
    n.centre(13, {0, 1, 2, 3});
    return n;
}();

inline constexpr node_table<6> wedge6_nodes = [] {
    node_table<6> n;
    for (unsigned a = 0; a < 3; ++a) {
        n.set(a, faceT3_nodes.x[a][0], faceT3_nodes.x[a][1], -1.0);
        n.set(a + 3, faceT3_nodes.x[a][0], faceT3_nodes.x[a][1], 1.0);
    }
    return n;
}();

inline constexpr node_table<18> wedge18_nodes = [] {
    node_table<18> n;
    for (unsigned a = 0; a < 6; ++a) n.set(a, wedge6_nodes.x[a][0], wedge6_nodes.x[a][1], wedge6_nodes.x[a][2]);
    n.centre(6, {0, 3});
    n.centre(7, {1, 4});
    n.centre(8, {2, 5});
    n.centre(9, {1, 2});
    n.centre(10, {2, 0});
    n.centre(11, {0, 1});
    n.centre(12, {4, 5});
    n.centre(13, {5, 3});
    n.centre(14, {3, 4});
    n.centre(15, {2, 1, 4, 5});
    n.centre(16, {0, 2, 5, 3});
    n.centre(17, {1, 0, 3, 4});
    return n;
}();

inline constexpr node_table<8> hexa8_nodes = [] {
    node_table<8> n;
    for (unsigned a = 0; a < 4; ++a) {
        n.set(a, faceQ4_nodes.x[a][0], faceQ4_nodes.x[a][1], -1.0);
        n.set(a + 4, faceQ4_nodes.x[a][0], faceQ4_nodes.x[a][1], 1.0);
    }
    return n;
}();

inline constexpr node_table<27> hexa27_nodes = [] {
    node_table<27> n;
    for (unsigned a = 0; a < 8; ++a) n.set(a, hexa8_nodes.x[a][0], hexa8_nodes.x[a][1], hexa8_nodes.x[a][2]);
    constexpr unsigned edges[12][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                                       {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    for (unsigned e = 0; e < 12; ++e) n.centre(8 + e, {edges[e][0], edges[e][1]});
    n.centre(20, {0, 3, 7, 4});
    n.centre(21, {1, 5, 6, 2});
    n.centre(22, {0, 4, 5, 1});
    n.centre(23, {3, 2, 6, 7});
    n.centre(24, {0, 1, 2, 3});
    n.centre(25, {4, 7, 6, 5});
    n.centre(26, {0, 1, 2, 3, 4, 5, 6, 7});
    return n;
}();

// Barycentric coordinate k of the unit simplex in D variables: x_k for k < D, and
// 1 - sum x for k = D.
template <unsigned D>
constexpr linear_poly<D> barycentric(unsigned k) noexcept
{
    linear_poly<D> p;
    if (k < D) {
        p.c[1 + k] = 1.0;
    } else {
        p.c[0] = 1.0;
        for (unsigned m = 0; m < D; ++m) p.c[1 + m] = -1.0;
    }
    return p;
}

// Linear Lagrange function of the simplex vertex at xn.
template <unsigned D>
constexpr linear_poly<D> simplex_linear(const double* xn) noexcept
{
    for (unsigned k = 0; k <= D; ++k)
        if (barycentric<D>(k).value(xn) == 1.0) return barycentric<D>(k);
    return {};
}

// Quadratic Lagrange function of the simplex node at xn: L (2 L - 1) at a vertex,
// 4 L_i L_j at the middle of edge (i, j).
template <unsigned D>
constexpr quadratic_poly<D> simplex_quadratic(const double* xn) noexcept
{
    unsigned ends[2] = {D + 1, D + 1};
    unsigned found = 0;
    for (unsigned k = 0; k <= D; ++k) {
        const double l = barycentric<D>(k).value(xn);
        if (l == 1.0) {
            const linear_poly<D> L = barycentric<D>(k);
            return quadratic_poly<D>::product(L, L, 2.0, L, -1.0);
        }
        if (l == 0.5 && found < 2) ends[found++] = k;
    }
    if (found < 2) return {};
    return quadratic_poly<D>::product(barycentric<D>(ends[0]), barycentric<D>(ends[1]), 4.0, linear_poly<D>{}, 0.0);
}

// Local coordinates of the pyramid seen from the cube: xi = r q, eta = s q with
// q = 1 / (1 - t), and q = 0 where 1 - t is exactly 0 (the apex).
struct collapsed_point {
    double t, u, q, xi, eta;

    explicit constexpr collapsed_point(const double* x) noexcept
        : t(x[2]), u(1.0 - x[2]), q(u == 0.0 ? 0.0 : 1.0 / u), xi(x[0] * q), eta(x[1] * q)
    {
    }
};

// Value and (xi, eta) derivatives of a function of the base square.
struct planar_value {
    double g, g_xi, g_eta;
};

// Bilinear function of corner (a, b) of the square.
constexpr planar_value bilinear(double a, double b, double xi, double eta) noexcept
{
    return {(1.0 + a * xi) * (1.0 + b * eta) / 4.0, a * (1.0 + b * eta) / 4.0, b * (1.0 + a * xi) / 4.0};
}

// Biquadratic function of node (a, b) of the 3 x 3 grid of the square.
constexpr planar_value biquadratic(double a, double b, double xi, double eta) noexcept
{
    const quadratic_1d fa = quadratic_1d::at_node(a), fb = quadratic_1d::at_node(b);
    return {fa.value(xi) * fb.value(eta), fa.derivative(xi) * fb.value(eta), fa.value(xi) * fb.derivative(eta)};
}

// Adds the term A(t) g(xi, eta) to a value and its (r, s, t) derivatives, by the chain
// rule through xi and eta; the factor q keeps the apex guard in the derivatives.
constexpr void add_collapsed_term(const collapsed_point& p, double A, double A_t, const planar_value& g,
                                  double& v, double* d) noexcept
{
    v += A * g.g;
    d[0] += A * p.q * g.g_xi;
    d[1] += A * p.q * g.g_eta;
    d[2] += A_t * g.g + A * p.q * (p.xi * g.g_xi + p.eta * g.g_eta);
}

} // namespace detail

// ---------------------------------------------------------------------------------
// Function families: one object per node, built from the node's index, immutable.

// Tensor product of D one-dimensional factors, one per local coordinate, each
// taking the value 1 at the node's coordinate in the table.
template <class Factor, unsigned D, const auto& Nodes>
class tensor_function {
public:
    static constexpr unsigned dim = D;
    static constexpr const auto& nodes = Nodes;

    explicit constexpr tensor_function(unsigned node) noexcept : node_(node)
    {
        for (unsigned k = 0; k < D; ++k) f_[k] = Factor::at_node(Nodes.x[node][k]);
    }

    constexpr unsigned node() const noexcept { return node_; }
    constexpr const Factor& factor(unsigned k) const noexcept { return f_[k]; }
    constexpr double value(const double* x) const noexcept
    {
        double v = 1.0;
        for (unsigned k = 0; k < D; ++k) v *= f_[k].value(x[k]);
        return v;
    }
    constexpr void derivatives(const double* x, double* d) const noexcept
    {
        double v[D] = {};
        for (unsigned k = 0; k < D; ++k) v[k] = f_[k].value(x[k]);
        for (unsigned k = 0; k < D; ++k) {
            double p = f_[k].derivative(x[k]);
            for (unsigned m = 0; m < D; ++m)
                if (m != k) p *= v[m];
            d[k] = p;
        }
    }

private:
    unsigned node_;
    Factor f_[D] = {};
};

// The Lagrange polynomial of degree 1 or 2 of the simplex node at xn.
template <class Poly, unsigned D>
constexpr Poly simplex_lagrange(const double* xn) noexcept
{
    if constexpr (std::is_same_v<Poly, linear_poly<D>>)
        return detail::simplex_linear<D>(xn);
    else
        return detail::simplex_quadratic<D>(xn);
}

// A polynomial in the D coordinates of a simplex.
template <class Poly, unsigned D, const auto& Nodes>
class simplex_function {
public:
    static constexpr unsigned dim = D;
    static constexpr const auto& nodes = Nodes;

    explicit constexpr simplex_function(unsigned node) noexcept
        : node_(node), p_(simplex_lagrange<Poly, D>(Nodes.x[node]))
    {
    }

    constexpr unsigned node() const noexcept { return node_; }
    constexpr const Poly& polynomial() const noexcept { return p_; }
    constexpr double value(const double* x) const noexcept { return p_.value(x); }
    constexpr void derivatives(const double* x, double* d) const noexcept { p_.gradient(x, d); }

private:
    unsigned node_;
    Poly p_;
};

// A triangle function of (r, s) times a line factor of t.
template <class Poly, class Factor, const auto& Nodes>
class prism_function {
public:
    static constexpr unsigned dim = 3;
    static constexpr const auto& nodes = Nodes;

    explicit constexpr prism_function(unsigned node) noexcept
        : node_(node), p_(simplex_lagrange<Poly, 2>(Nodes.x[node])), f_(Factor::at_node(Nodes.x[node][2]))
    {
    }

    constexpr unsigned node() const noexcept { return node_; }
    constexpr double value(const double* x) const noexcept { return p_.value(x) * f_.value(x[2]); }
    constexpr void derivatives(const double* x, double* d) const noexcept
    {
        const double ft = f_.value(x[2]);
        p_.gradient(x, d);
        d[0] *= ft;
        d[1] *= ft;
        d[2] = p_.value(x) * f_.derivative(x[2]);
    }

private:
    unsigned node_;
    Poly p_;
    Factor f_;
};

// ---------------------------------------------------------------------------------
// The per-node classes. The constructor takes a node index below the shape's count.

using edge2 = tensor_function<linear_1d, 1, detail::edge2_nodes>;
using edge3 = tensor_function<quadratic_1d, 1, detail::edge3_nodes>;
using faceT3 = simplex_function<linear_poly<2>, 2, detail::faceT3_nodes>;
using faceT6 = simplex_function<quadratic_poly<2>, 2, detail::faceT6_nodes>;
using faceQ4 = tensor_function<linear_1d, 2, detail::faceQ4_nodes>;
using faceQ9 = tensor_function<quadratic_1d, 2, detail::faceQ9_nodes>;
using tetra4 = simplex_function<linear_poly<3>, 3, detail::tetra4_nodes>;
using tetra10 = simplex_function<quadratic_poly<3>, 3, detail::tetra10_nodes>;
using wedge6 = prism_function<linear_poly<2>, linear_1d, detail::wedge6_nodes>;
using wedge18 = prism_function<quadratic_poly<2>, quadratic_1d, detail::wedge18_nodes>;
using hexa8 = tensor_function<linear_1d, 3, detail::hexa8_nodes>;
using hexa27 = tensor_function<quadratic_1d, 3, detail::hexa27_nodes>;

// The pyramids' functions, value and derivatives from one evaluation of the
// collapsed coordinates by Function::evaluate.
template <class Function, const auto& Nodes>
class collapsed_function {
public:
    static constexpr unsigned dim = 3;
    static constexpr const auto& nodes = Nodes;

    explicit constexpr collapsed_function(unsigned node) noexcept : node_(node) {}
    constexpr unsigned node() const noexcept { return node_; }
    constexpr double value(const double* x) const noexcept
    {
        double v = 0.0, d[3] = {};
        static_cast<const Function*>(this)->evaluate(x, v, d);
        return v;
    }
    constexpr void derivatives(const double* x, double* d) const noexcept
    {
        double v = 0.0;
        d[0] = d[1] = d[2] = 0.0;
        static_cast<const Function*>(this)->evaluate(x, v, d);
    }

protected:
    unsigned node_;
};

// Rational functions on q = 1 / (1 - t): the base nodes are (1 - t) times the bilinear
// function of (r q, s q), the apex is t.
class pyramid5 : public collapsed_function<pyramid5, detail::pyramid5_nodes> {
    friend collapsed_function;

public:
    using collapsed_function::collapsed_function;

private:
    constexpr void evaluate(const double* x, double& v, double* d) const noexcept
    {
        const detail::collapsed_point p(x);
        if (node_ == 4) {
            v = p.t;
            d[2] = 1.0;
            return;
        }
        const auto g = detail::bilinear(nodes.x[node_][0], nodes.x[node_][1], p.xi, p.eta);
        detail::add_collapsed_term(p, p.u, -1.0, g, v, d);
    }
};

// The space is 1 + (1 - t) Q1(xi, eta) + (1 - t)^2 Q2(xi, eta) with xi = r q,
// eta = s q: it holds every quadratic of (r, s, t), and its trace on the base is
// biquadratic and on a triangular face quadratic, so it conforms with the nine-node
// quadrilateral and the six-node triangle. In Lagrange form:
//   apex          t (2 t - 1)
//   base corner   (1 - t)^2 Q9(xi, eta) - t (1 - t) Q1(xi, eta)
//   base others   (1 - t)^2 Q9(xi, eta)
//   to the apex   4 t (1 - t) Q1 of the edge's base corner
class pyramid14 : public collapsed_function<pyramid14, detail::pyramid14_nodes> {
    friend collapsed_function;

public:
    using collapsed_function::collapsed_function;

private:
    constexpr void evaluate(const double* x, double& v, double* d) const noexcept
    {
        const detail::collapsed_point p(x);
        if (node_ == 4) {
            v = p.t * (2.0 * p.t - 1.0);
            d[2] = 4.0 * p.t - 1.0;
            return;
        }
        if (node_ >= 9 && node_ <= 12) {
            const double* c = nodes.x[node_ - 9];
            const auto g = detail::bilinear(c[0], c[1], p.xi, p.eta);
            detail::add_collapsed_term(p, 4.0 * p.t * p.u, 4.0 * (1.0 - 2.0 * p.t), g, v, d);
            return;
        }
        const double* c = nodes.x[node_];
        detail::add_collapsed_term(p, p.u * p.u, -2.0 * p.u, detail::biquadratic(c[0], c[1], p.xi, p.eta), v, d);
        if (node_ < 4)
            detail::add_collapsed_term(p, -p.t * p.u, 2.0 * p.t - 1.0, detail::bilinear(c[0], c[1], p.xi, p.eta), v, d);
    }
};

// ---------------------------------------------------------------------------------
// Shape classes: the functions of all nodes of one element type.

// Derivatives are returned node by node (dN[a][k] = dN_a / dx_k) so that a kernel
// reads one node's gradient contiguously when it builds a Jacobian or a B matrix.
template <class Function, element_type Type, unsigned NbrNodes, unsigned Degree>
class shape_base {
public:
    using function_type = Function;
    static constexpr element_type type = Type;
    static constexpr unsigned nbr_nodes = NbrNodes;
    static constexpr unsigned dim = Function::dim;
    // Every polynomial of the local coordinates of at most this total degree is
    // reproduced exactly by interpolation at the nodes.
    static constexpr unsigned degree = Degree;
    // node_point and the functions read the node table by node index.
    static_assert(std::remove_cvref_t<decltype(Function::nodes)>::nbr_nodes == NbrNodes);

    constexpr shape_base() noexcept : shape_base(std::make_index_sequence<NbrNodes>{}) {}

    constexpr const Function& operator[](unsigned a) const noexcept { return f_[a]; }
    // Local coordinates of node a (3 places, unused ones 0).
    static constexpr const double* node_point(unsigned a) noexcept { return Function::nodes.x[a]; }

    constexpr void values(const double* x, double (&N)[NbrNodes]) const noexcept
    {
        for (unsigned a = 0; a < NbrNodes; ++a) N[a] = f_[a].value(x);
    }
    constexpr void derivatives(const double* x, double (&dN)[NbrNodes][dim]) const noexcept
    {
        for (unsigned a = 0; a < NbrNodes; ++a) f_[a].derivatives(x, dN[a]);
    }

private:
    template <std::size_t... I>
    constexpr explicit shape_base(std::index_sequence<I...>) noexcept : f_{Function(unsigned(I))...}
    {
    }

    Function f_[NbrNodes];
};

class shape_edge2 : public shape_base<edge2, element_edge2, 2, 1> {};
class shape_edge3 : public shape_base<edge3, element_edge3, 3, 2> {};
class shape_faceT3 : public shape_base<faceT3, element_faceT3, 3, 1> {};
class shape_faceQ4 : public shape_base<faceQ4, element_faceQ4, 4, 1> {};
class shape_faceT6 : public shape_base<faceT6, element_faceT6, 6, 2> {};
class shape_faceQ9 : public shape_base<faceQ9, element_faceQ9, 9, 2> {};
class shape_tetra4 : public shape_base<tetra4, element_tetra4, 4, 1> {};
class shape_tetra10 : public shape_base<tetra10, element_tetra10, 10, 2> {};
class shape_pyramid5 : public shape_base<pyramid5, element_pyramid5, 5, 1> {};
class shape_pyramid14 : public shape_base<pyramid14, element_pyramid14, 14, 2> {};
class shape_wedge6 : public shape_base<wedge6, element_wedge6, 6, 1> {};
class shape_wedge18 : public shape_base<wedge18, element_wedge18, 18, 2> {};
class shape_hexa8 : public shape_base<hexa8, element_hexa8, 8, 1> {};
class shape_hexa27 : public shape_base<hexa27, element_hexa27, 27, 2> {};

// The shape class of an element type, for templates that start from the type.
template <element_type Type>
struct shape_of;
template <> struct shape_of<element_edge2> { using type = shape_edge2; };
template <> struct shape_of<element_edge3> { using type = shape_edge3; };
template <> struct shape_of<element_faceT3> { using type = shape_faceT3; };
template <> struct shape_of<element_faceQ4> { using type = shape_faceQ4; };
template <> struct shape_of<element_faceT6> { using type = shape_faceT6; };
template <> struct shape_of<element_faceQ9> { using type = shape_faceQ9; };
template <> struct shape_of<element_tetra4> { using type = shape_tetra4; };
template <> struct shape_of<element_tetra10> { using type = shape_tetra10; };
template <> struct shape_of<element_pyramid5> { using type = shape_pyramid5; };
template <> struct shape_of<element_pyramid14> { using type = shape_pyramid14; };
template <> struct shape_of<element_wedge6> { using type = shape_wedge6; };
template <> struct shape_of<element_wedge18> { using type = shape_wedge18; };
template <> struct shape_of<element_hexa8> { using type = shape_hexa8; };
template <> struct shape_of<element_hexa27> { using type = shape_hexa27; };

} // namespace kelt::elfes
