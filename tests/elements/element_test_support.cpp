// Meshes of the unit cube in each volume type, and small dense linear algebra for
// the element tests.
#include "element_test_support.h"

#include <array>
#include <stdexcept>

#include "kelt/math/lapack.h"

namespace kelt::test {

namespace {

using point = std::array<double, 3>;

struct linear_mesh {
    std::vector<point> x;
    std::vector<std::vector<unsigned>> cells;
};

element_type base_type_of(element_type t)
{
    switch (t) {
    case element_edge3: return element_edge2;
    case element_faceT6: return element_faceT3;
    case element_faceQ9: return element_faceQ4;
    case element_tetra10: return element_tetra4;
    case element_pyramid14: return element_pyramid5;
    case element_wedge18: return element_wedge6;
    case element_hexa27: return element_hexa8;
    default: return t;
    }
}

double det3(const point& a, const point& b, const point& c)
{
    return a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) + a[2] * (b[0] * c[1] - b[1] * c[0]);
}
point minus(const point& a, const point& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
point cross(const point& a, const point& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double dot(const point& a, const point& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// The cells of one hexahedron (corners c in hexa8 order) in a linear type.
void split_hexahedron(element_type base, const unsigned (&c)[8], linear_mesh& m)
{
    switch (base) {
    case element_hexa8: m.cells.push_back({c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]}); break;
    case element_wedge6:
        // The same diagonal in every cell, so that the triangles of neighbours meet.
        m.cells.push_back({c[0], c[1], c[2], c[4], c[5], c[6]});
        m.cells.push_back({c[0], c[2], c[3], c[4], c[6], c[7]});
        break;
    case element_tetra4: {
        // Kuhn's six tetrahedra along the main diagonal: conforming under translation.
        const unsigned perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
        const auto corner = [&](unsigned bits) {
            const unsigned x = bits & 1, y = (bits >> 1) & 1, z = (bits >> 2) & 1;
            return c[4 * z + (y ? (x ? 2 : 3) : (x ? 1 : 0))];
        };
        for (const auto& p : perms) {
            unsigned bits = 0, path[4];
            path[0] = corner(bits);
            for (unsigned k = 0; k < 3; ++k) {
                bits |= 1u << p[k];
                path[k + 1] = corner(bits);
            }
            std::vector<unsigned> t = {path[1], path[2], path[3], path[0]};
            if (det3(minus(m.x[t[0]], m.x[t[3]]), minus(m.x[t[1]], m.x[t[3]]), minus(m.x[t[2]], m.x[t[3]])) < 0)
                std::swap(t[0], t[1]);
            m.cells.push_back(t);
        }
        break;
    }
    case element_pyramid5: {
        point centre = {0, 0, 0};
        for (unsigned a = 0; a < 8; ++a)
            for (unsigned k = 0; k < 3; ++k) centre[k] += m.x[c[a]][k] / 8.0;
        const unsigned apex = unsigned(m.x.size());
        m.x.push_back(centre);
        const unsigned faces[6][4] = {{0, 1, 2, 3}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                      {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
        for (const auto& f : faces) {
            std::vector<unsigned> q = {c[f[0]], c[f[1]], c[f[2]], c[f[3]]};
            point mid = {0, 0, 0};
            for (unsigned a : q)
                for (unsigned k = 0; k < 3; ++k) mid[k] += m.x[a][k] / 4.0;
            const point n = cross(minus(m.x[q[2]], m.x[q[0]]), minus(m.x[q[3]], m.x[q[1]]));
            if (dot(n, minus(m.x[apex], mid)) < 0) std::swap(q[1], q[3]);
            q.push_back(apex);
            m.cells.push_back(q);
        }
        break;
    }
    default: throw std::logic_error("not a linear volume");
    }
}

linear_mesh cube_linear(element_type base, unsigned n, double distortion, unsigned seed)
{
    linear_mesh m;
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> shift(-distortion / n, distortion / n);
    const auto id = [&](unsigned i, unsigned j, unsigned k) { return (k * (n + 1) + j) * (n + 1) + i; };
    for (unsigned k = 0; k <= n; ++k)
        for (unsigned j = 0; j <= n; ++j)
            for (unsigned i = 0; i <= n; ++i) {
                point p = {double(i) / n, double(j) / n, double(k) / n};
                const bool interior = i > 0 && i < n && j > 0 && j < n && k > 0 && k < n;
                if (interior)
                    for (double& v : p) v += shift(gen);
                m.x.push_back(p);
            }
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i) {
                const unsigned c[8] = {id(i, j, k),         id(i + 1, j, k),         id(i + 1, j + 1, k),
                                       id(i, j + 1, k),     id(i, j, k + 1),         id(i + 1, j, k + 1),
                                       id(i + 1, j + 1, k + 1), id(i, j + 1, k + 1)};
                split_hexahedron(base, c, m);
            }
    return m;
}

// The higher-order nodes of Shape on the cells of its base shape: each at the mean of
// the base nodes on which the base shape is non-zero there, shared by key.
template <class Shape, class Base>
test_mesh finish_as(const linear_mesh& lin)
{
    constexpr unsigned NN = Shape::nbr_nodes, NB = Base::nbr_nodes;
    std::vector<point> x = lin.x;
    std::map<std::vector<unsigned>, unsigned> made;
    std::vector<std::array<unsigned, NN>> cells;
    const Base base{};
    for (const auto& c : lin.cells) {
        std::array<unsigned, NN> cell{};
        for (unsigned a = 0; a < NB; ++a) cell[a] = c[a];
        for (unsigned a = NB; a < NN; ++a) {
            std::vector<unsigned> parents;
            for (unsigned b = 0; b < NB; ++b)
                if (base[b].value(Shape::node_point(a)) > 1e-12) parents.push_back(c[b]);
            std::sort(parents.begin(), parents.end());
            auto it = made.find(parents);
            if (it == made.end()) {
                point p = {0, 0, 0};
                for (unsigned q : parents)
                    for (unsigned k = 0; k < 3; ++k) p[k] += x[q][k] / parents.size();
                it = made.emplace(parents, unsigned(x.size())).first;
                x.push_back(p);
            }
            cell[a] = it->second;
        }
        cells.push_back(cell);
    }
    test_mesh m;
    m.type = Shape::type;
    (void)m.pos.resize(3, unsigned(x.size()));
    for (unsigned i = 0; i < x.size(); ++i)
        for (unsigned k = 0; k < 3; ++k) m.pos(k, i) = x[i][k];
    (void)m.cells.resize(NN, unsigned(cells.size()));
    for (unsigned e = 0; e < cells.size(); ++e)
        for (unsigned a = 0; a < NN; ++a) m.cells(a, e) = cells[e][a];
    return m;
}

test_mesh finish(const linear_mesh& lin, element_type type)
{
    using namespace elfes;
    switch (type) {
    case element_edge2: return finish_as<shape_edge2, shape_edge2>(lin);
    case element_edge3: return finish_as<shape_edge3, shape_edge2>(lin);
    case element_faceT3: return finish_as<shape_faceT3, shape_faceT3>(lin);
    case element_faceT6: return finish_as<shape_faceT6, shape_faceT3>(lin);
    case element_faceQ4: return finish_as<shape_faceQ4, shape_faceQ4>(lin);
    case element_faceQ9: return finish_as<shape_faceQ9, shape_faceQ4>(lin);
    case element_tetra4: return finish_as<shape_tetra4, shape_tetra4>(lin);
    case element_tetra10: return finish_as<shape_tetra10, shape_tetra4>(lin);
    case element_pyramid5: return finish_as<shape_pyramid5, shape_pyramid5>(lin);
    case element_pyramid14: return finish_as<shape_pyramid14, shape_pyramid5>(lin);
    case element_wedge6: return finish_as<shape_wedge6, shape_wedge6>(lin);
    case element_wedge18: return finish_as<shape_wedge18, shape_wedge6>(lin);
    case element_hexa8: return finish_as<shape_hexa8, shape_hexa8>(lin);
    case element_hexa27: return finish_as<shape_hexa27, shape_hexa8>(lin);
    default: throw std::logic_error("not a volume type");
    }
}

} // namespace

test_mesh cube_mesh(element_type type, unsigned n, double distortion, unsigned seed)
{
    return finish(cube_linear(base_type_of(type), n, distortion, seed), type);
}

test_mesh flat_mesh(element_type type, unsigned nx, unsigned ny, double distortion)
{
    const element_type base = base_type_of(type);
    const bool line = base == element_edge2;
    if (line) ny = 0;
    linear_mesh m;
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> shift(-distortion / nx, distortion / nx);
    const auto id = [&](unsigned i, unsigned j) { return j * (nx + 1) + i; };
    for (unsigned j = 0; j <= ny; ++j)
        for (unsigned i = 0; i <= nx; ++i) {
            point p = {2.0 * i / nx, line ? 0.0 : double(j) / ny, 0.0};
            const bool interior = i > 0 && i < nx && (line || (j > 0 && j < ny));
            if (interior)
                for (unsigned k = 0; k < (line ? 1u : 2u); ++k) p[k] += shift(gen);
            m.x.push_back(p);
        }
    for (unsigned j = 0; j < std::max(ny, 1u); ++j)
        for (unsigned i = 0; i < nx; ++i) {
            if (line) {
                m.cells.push_back({id(i, 0), id(i + 1, 0)});
                continue;
            }
            const unsigned c[4] = {id(i, j), id(i + 1, j), id(i + 1, j + 1), id(i, j + 1)};
            if (base == element_faceQ4) {
                m.cells.push_back({c[0], c[1], c[2], c[3]});
            } else {
                // The third node of a triangle sits at its local origin.
                m.cells.push_back({c[1], c[2], c[0]});
                m.cells.push_back({c[2], c[3], c[0]});
            }
        }
    return finish(m, type);
}

test_mesh single_element(element_type type, double distortion, unsigned seed)
{
    linear_mesh all = cube_linear(base_type_of(type), 1, 0.0, seed);
    linear_mesh one;
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> shift(-distortion, distortion);
    std::vector<unsigned> cell;
    for (unsigned v : all.cells[0]) {
        point p = all.x[v];
        for (double& c : p) c += shift(gen);
        cell.push_back(unsigned(one.x.size()));
        one.x.push_back(p);
    }
    one.cells.push_back(cell);
    return finish(one, type);
}

std::vector<double> eigenvalues(const std::vector<double>& A, unsigned n)
{
    std::vector<double> ap(std::size_t(n) * (n + 1) / 2), w(n), work(3 * std::size_t(n));
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i <= j; ++i) ap[std::size_t(j) * (j + 1) / 2 + i] = A[std::size_t(j) * n + i];
    long info = 0;
    double z = 0.0;
    lapack::dspev('N', 'U', long(n), ap.data(), w.data(), &z, 1, work.data(), info);
    if (info != 0) throw std::runtime_error("dspev failed");
    return w;
}

std::vector<double> eigenvalues(const symmetric_full<double>& K)
{
    const unsigned n = K.order();
    std::vector<double> A(std::size_t(n) * n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) A[std::size_t(j) * n + i] = K(i, j);
    return eigenvalues(A, n);
}

std::vector<double> solve_dense(std::vector<double> A, std::vector<double> b, unsigned n)
{
    for (unsigned k = 0; k < n; ++k) {
        unsigned p = k;
        for (unsigned i = k + 1; i < n; ++i)
            if (std::fabs(A[std::size_t(k) * n + i]) > std::fabs(A[std::size_t(k) * n + p])) p = i;
        if (p != k) {
            for (unsigned j = 0; j < n; ++j) std::swap(A[std::size_t(j) * n + k], A[std::size_t(j) * n + p]);
            std::swap(b[k], b[p]);
        }
        const double d = A[std::size_t(k) * n + k];
        for (unsigned i = k + 1; i < n; ++i) {
            const double f = A[std::size_t(k) * n + i] / d;
            if (f == 0.0) continue;
            for (unsigned j = k; j < n; ++j) A[std::size_t(j) * n + i] -= f * A[std::size_t(j) * n + k];
            b[i] -= f * b[k];
        }
    }
    std::vector<double> x(n);
    for (unsigned k = n; k-- > 0;) {
        double s = b[k];
        for (unsigned j = k + 1; j < n; ++j) s -= A[std::size_t(j) * n + k] * x[j];
        x[k] = s / A[std::size_t(k) * n + k];
    }
    return x;
}

tangent_errors tangent_errors_of(const core::numerical_model_base& finite, const core::numerical_model_base* small,
                                 const test_mesh& m, unsigned nbr_places, const unsigned* places,
                                 const std::vector<double>& u)
{
    std::vector<unsigned> slot(m.nbr_nodes(), 0);
    for (unsigned a = 0; a < m.cells.rows(); ++a) slot[m.cells(a, 0)] = a;
    const auto view_of = [&](const std::vector<double>& v, double scale) {
        return values_of(m, nbr_places, places, [&](unsigned node, unsigned k) {
            for (unsigned p = 0; p < nbr_places; ++p)
                if (places[p] == k) return scale * v[nbr_places * slot[node] + p];
            return 0.0;
        });
    };
    const auto run = [&](element_run& r, const core::numerical_model_base& model, const std::vector<double>& v,
                         double scale, core::matrix_mode_type mode) {
        compute(model, core::kind_stiffness, 0, m, view_of(v, scale), r, mode);
        EXPECT_EQ(r.status, no_error);
    };
    const unsigned n = unsigned(u.size());
    element_run tangent, material, geometric;
    run(tangent, finite, u, 1.0, core::matrix_tangent);
    run(material, finite, u, 1.0, core::matrix_material);
    run(geometric, finite, u, 1.0, core::matrix_geometric);
    tangent_errors e;
    if (tangent.work.Ke.order() != n || material.work.Ke.order() != n || geometric.work.Ke.order() != n) {
        ADD_FAILURE() << "matrix order";
        return e;
    }
    double largest = 0.0;
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) largest = std::max(largest, std::fabs(tangent.work.Ke(i, j)));
    const double h = 1e-6;
    for (unsigned j = 0; j < n; ++j) {
        std::vector<double> up = u, down = u;
        up[j] += h;
        down[j] -= h;
        element_run p, q;
        run(p, finite, up, 1.0, core::matrix_tangent);
        run(q, finite, down, 1.0, core::matrix_tangent);
        for (unsigned i = 0; i < n; ++i) {
            const double fd = -(p.work.Fe[i] - q.work.Fe[i]) / (2 * h);
            e.derivative = std::max(e.derivative, std::fabs(fd - tangent.work.Ke(i, j)) / largest);
            e.split = std::max(e.split, std::fabs(material.work.Ke(i, j) + geometric.work.Ke(i, j) -
                                                  tangent.work.Ke(i, j)) / largest);
        }
    }
    if (small) {
        element_run lin;
        run(lin, *small, u, 1.0, core::matrix_geometric);
        if (lin.work.Ke.order() != n) {
            ADD_FAILURE() << "small variant's matrix order";
            return e;
        }
        double g = 0.0;
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i) g = std::max(g, std::fabs(lin.work.Ke(i, j)));
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
                e.small = std::max(e.small, std::fabs(geometric.work.Ke(i, j) - lin.work.Ke(i, j)) / g);
    }
    return e;
}

} // namespace kelt::test
