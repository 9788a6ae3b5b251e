#include "solid_problems.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include <gtest/gtest.h>

namespace kelt::test {

namespace {

using parents = std::vector<unsigned>; // local vertices a node depends on

// Base cells of one hexahedron with corners c (hexa8 order), in a linear type;
// pyramids take the node `centre` as their common apex.
std::vector<std::vector<unsigned>> split(element_type base, const unsigned (&c)[8], unsigned centre)
{
    if (base == element_pyramid5) {
        // One pyramid a face, its base turning positively seen from the apex inside.
        const unsigned faces[6][4] = {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 3, 7, 4}, {1, 5, 6, 2}};
        std::vector<std::vector<unsigned>> out;
        for (const auto& f : faces) out.push_back({c[f[0]], c[f[1]], c[f[2]], c[f[3]], centre});
        return out;
    }
    if (base == element_hexa8) return {{c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]}};
    if (base == element_wedge6) return {{c[0], c[1], c[2], c[4], c[5], c[6]}, {c[0], c[2], c[3], c[4], c[6], c[7]}};
    // Six tetrahedra around the main diagonal c0 - c6, one per monotone path along
    // the edges; node 3 is the reference origin. A path that takes the axes in an
    // odd order turns the other way, which swapping two nodes undoes.
    const unsigned paths[6][4] = {{0, 1, 2, 6}, {0, 3, 2, 6}, {0, 1, 5, 6},
                                  {0, 4, 5, 6}, {0, 3, 7, 6}, {0, 4, 7, 6}};
    const bool odd[6] = {false, true, true, false, false, true};
    std::vector<std::vector<unsigned>> out;
    for (unsigned t = 0; t < 6; ++t) {
        const unsigned* p = paths[t];
        out.push_back({c[p[1]], c[p[2]], c[p[3]], c[p[0]]});
        if (odd[t]) std::swap(out.back()[0], out.back()[1]);
    }
    return out;
}

// The higher-order nodes of a type, by the local vertices of its base cell.
std::vector<parents> extra_nodes(element_type type)
{
    switch (type) {
    case element_hexa27:
        return {{0, 1}, {1, 2}, {2, 3}, {3, 0},       {4, 5},       {5, 6},       {6, 7},
                {7, 4}, {0, 4}, {1, 5}, {2, 6},       {3, 7},       {0, 3, 7, 4}, {1, 5, 6, 2},
                {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}, {0, 1, 2, 3, 4, 5, 6, 7}};
    case element_wedge18:
        return {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4},
                {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}};
    case element_tetra10: return {{1, 2}, {2, 0}, {0, 1}, {0, 3}, {1, 3}, {2, 3}};
    case element_pyramid14: return {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}, {0, 1, 2, 3}};
    default: return {};
    }
}

element_type base_of(element_type t)
{
    return t == element_hexa27 ? element_hexa8 : t == element_wedge18 ? element_wedge6
                                             : t == element_tetra10 ? element_tetra4
                                             : t == element_pyramid14 ? element_pyramid5
                                                                    : t;
}

} // namespace

mesh box_mesh(element_type type, const double (&size)[3], const unsigned (&n)[3], double distortion)
{
    std::vector<std::array<double, 3>> x;
    std::mt19937 gen(5);
    std::uniform_real_distribution<double> shift(-distortion, distortion);
    const auto vertex = [&](unsigned i, unsigned j, unsigned k) { return (k * (n[1] + 1) + j) * (n[0] + 1) + i; };
    for (unsigned k = 0; k <= n[2]; ++k)
        for (unsigned j = 0; j <= n[1]; ++j)
            for (unsigned i = 0; i <= n[0]; ++i) {
                const unsigned ijk[3] = {i, j, k};
                std::array<double, 3> p;
                bool interior = true;
                for (unsigned d = 0; d < 3; ++d) interior = interior && ijk[d] > 0 && ijk[d] < n[d];
                for (unsigned d = 0; d < 3; ++d)
                    p[d] = size[d] * (ijk[d] + (interior ? shift(gen) : 0.0)) / n[d];
                x.push_back(p);
            }
    std::map<parents, unsigned> made;
    std::vector<std::vector<unsigned>> cells;
    const std::vector<parents> extra = extra_nodes(type);
    for (unsigned k = 0; k < n[2]; ++k)
        for (unsigned j = 0; j < n[1]; ++j)
            for (unsigned i = 0; i < n[0]; ++i) {
                const unsigned c[8] = {vertex(i, j, k),         vertex(i + 1, j, k),     vertex(i + 1, j + 1, k),
                                       vertex(i, j + 1, k),     vertex(i, j, k + 1),     vertex(i + 1, j, k + 1),
                                       vertex(i + 1, j + 1, k + 1), vertex(i, j + 1, k + 1)};
                unsigned centre = 0;
                if (base_of(type) == element_pyramid5) {
                    std::array<double, 3> p = {0, 0, 0};
                    for (unsigned v : c)
                        for (unsigned d = 0; d < 3; ++d) p[d] += x[v][d] / 8;
                    centre = unsigned(x.size());
                    x.push_back(p);
                }
                for (std::vector<unsigned> cell : split(base_of(type), c, centre)) {
                    const std::vector<unsigned> base = cell;
                    for (const parents& local : extra) {
                        parents key;
                        for (unsigned a : local) key.push_back(base[a]);
                        std::sort(key.begin(), key.end());
                        auto it = made.find(key);
                        if (it == made.end()) {
                            std::array<double, 3> p = {0, 0, 0};
                            for (unsigned v : key)
                                for (unsigned d = 0; d < 3; ++d) p[d] += x[v][d] / key.size();
                            it = made.emplace(key, unsigned(x.size())).first;
                            x.push_back(p);
                        }
                        cell.push_back(it->second);
                    }
                    cells.push_back(cell);
                }
            }
    mesh m;
    m.type = type;
    (void)m.pos.resize(3, unsigned(x.size()));
    for (unsigned v = 0; v < x.size(); ++v)
        for (unsigned d = 0; d < 3; ++d) m.pos(d, v) = x[v][d];
    (void)m.cells.resize(unsigned(cells[0].size()), unsigned(cells.size()));
    m.used.assign(x.size(), false);
    for (unsigned e = 0; e < cells.size(); ++e)
        for (unsigned a = 0; a < cells[e].size(); ++a) {
            m.cells(a, e) = cells[e][a];
            m.used[cells[e][a]] = true;
        }
    return m;
}

sphere_octant::sphere_octant(element_type type, double a, double b, const unsigned (&n)[2])
{
    const element_type base = base_of(type);
    const bool quadratic = base != type;
    // Wedges are extruded through the wall, so that the faces between patches match.
    const bool radial = base == element_wedge6, triangles = radial || base == element_tetra4;
    const unsigned u_axis = radial ? 2 : 0, v_axis = (u_axis + 1) % 3, w_axis = (u_axis + 2) % 3;
    const element_type face = triangles ? (quadratic ? element_faceT6 : element_faceT3)
                                        : (quadratic ? element_faceQ9 : element_faceQ4);
    std::map<std::array<long long, 3>, unsigned> merged;
    std::vector<std::array<double, 3>> x;
    std::vector<std::vector<unsigned>> cells, faces;
    const double pi = std::acos(-1.0);
    for (unsigned patch = 0; patch < 3; ++patch) {
        const unsigned counts[3] = {radial ? n[1] : n[0], n[1], radial ? n[0] : n[1]};
        const mesh box = box_mesh(type, {1.0, 1.0, 1.0}, counts);
        std::vector<unsigned> global(box.nbr_nodes());
        std::map<std::pair<long long, long long>, unsigned> on_inner; // (v, w) in half cells
        for (unsigned node = 0; node < box.nbr_nodes(); ++node) {
            const double u = box.pos(u_axis, node), v = box.pos(v_axis, node), w = box.pos(w_axis, node);
            const double d[3] = {1.0, std::tan(v * pi / 4), std::tan(w * pi / 4)};
            const double r = (a + (b - a) * u) / std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            std::array<double, 3> p;
            for (unsigned i = 0; i < 3; ++i) p[(i + patch) % 3] = r * d[i]; // cyclic: orientation kept
            std::array<long long, 3> key;
            for (unsigned i = 0; i < 3; ++i) key[i] = std::llround(p[i] * 1e9);
            auto [it, fresh] = merged.emplace(key, unsigned(x.size()));
            if (fresh) x.push_back(p);
            global[node] = it->second;
            if (u == 0.0)
                on_inner[{std::llround(v * 2 * n[1]), std::llround(w * 2 * n[1])}] = it->second;
        }
        for (unsigned e = 0; e < box.cells.cols(); ++e) {
            cells.emplace_back();
            for (unsigned i = 0; i < box.cells.rows(); ++i) cells.back().push_back(global[box.cells(i, e)]);
        }
        // Faces turning clockwise in (v, w): their normal points to -u, into the cavity.
        const auto at = [&](long long v, long long w) { return on_inner.at({v, w}); };
        for (long long j = 0; j < 2 * n[1]; j += 2)
            for (long long k = 0; k < 2 * n[1]; k += 2) {
                const long long c[4][2] = {{j, k}, {j, k + 2}, {j + 2, k + 2}, {j + 2, k}};
                const std::vector<std::vector<unsigned>> split =
                    triangles ? std::vector<std::vector<unsigned>>{{0, 1, 2}, {0, 2, 3}}
                                           : std::vector<std::vector<unsigned>>{{0, 1, 2, 3}};
                for (const auto& f : split) {
                    std::vector<unsigned> cell;
                    for (unsigned v : f) cell.push_back(at(c[v][0], c[v][1]));
                    const unsigned m = unsigned(f.size());
                    // T6: the edge opposite each vertex; Q9: edges (i, i + 1), then the centre.
                    for (unsigned i = 0; quadratic && i < m; ++i) {
                        const unsigned p = m == 3 ? f[(i + 1) % 3] : f[i], q = m == 3 ? f[(i + 2) % 3] : f[(i + 1) % 4];
                        cell.push_back(at((c[p][0] + c[q][0]) / 2, (c[p][1] + c[q][1]) / 2));
                    }
                    if (quadratic && m == 4) cell.push_back(at(j + 1, k + 1));
                    faces.push_back(cell);
                }
            }
    }
    const auto fill = [&](mesh& out, element_type t, const std::vector<std::vector<unsigned>>& list) {
        out.type = t;
        (void)out.pos.resize(3, unsigned(x.size()));
        for (unsigned v = 0; v < x.size(); ++v)
            for (unsigned d = 0; d < 3; ++d) out.pos(d, v) = x[v][d];
        (void)out.cells.resize(unsigned(list[0].size()), unsigned(list.size()));
        out.used.assign(x.size(), false);
        for (unsigned e = 0; e < list.size(); ++e)
            for (unsigned i = 0; i < list[e].size(); ++i) out.cells(i, e) = list[e][i], out.used[list[e][i]] = true;
    };
    fill(solid, type, cells);
    fill(inner, face, faces);
}

namespace {

// The identifier of a new mesh model of type Model, on a Physics of `law`.
template <class Model, class Physics, class Law>
unsigned model_on(fem::context& ctx, const Law& law, const mesh& m)
{
    Physics physics;
    Model model(ctx);
    EXPECT_EQ(physics.init(law), no_error);
    EXPECT_EQ(model.init(ctx, physics, m.cells, m.type), no_error);
    return model.get_ID();
}

} // namespace

unsigned test_context::solid(const mesh& m, double E, double nu, bool projected)
{
    fem::law_solid_StVenant law;
    dense1D<double, 8> d;
    d.push_back(E), d.push_back(nu), d.push_back(0.0);
    EXPECT_EQ(law.init(d), no_error);
    if (projected) return model_on<fem::numerical_model_stiff_lin, fem::model_solid_projected_lin>(ctx, law, m);
    return model_on<fem::numerical_model_stiff_lin, fem::model_solid_lin>(ctx, law, m);
}

unsigned test_context::solid(const mesh& m, const fem::law_base& law)
{
    return model_on<fem::numerical_model_stiff_lin, fem::model_solid_lin>(ctx, law, m);
}

unsigned test_context::load_only(const mesh& m)
{
    fem::numerical_model_load_only model(ctx);
    EXPECT_EQ(model.init(ctx, m.cells, m.type), no_error);
    return model.get_ID();
}

unsigned test_context::conduction(const mesh& m, double k)
{
    fem::law_scalar law;
    EXPECT_EQ(law.init(k), no_error);
    return model_on<fem::numerical_model_heat_conduction, fem::model_heat_conduction_3d>(ctx, law, m);
}

unsigned test_context::mass(const mesh& m, double density)
{
    fem::law_scalar law;
    EXPECT_EQ(law.init(density), no_error);
    return model_on<fem::numerical_model_mass, fem::model_solid_mass>(ctx, law, m);
}

unsigned test_context::composite(std::initializer_list<unsigned> IDs)
{
    fem::numerical_model_composite c(ctx);
    for (unsigned id : IDs) EXPECT_EQ(c.insert(id), no_error);
    return c.get_ID();
}

fem::problem_data test_context::problem(mesh& m, unsigned model, unsigned cases)
{
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    return fem::problem_data(ctx, m.pos, DOFs, model, cases);
}

cantilever::cantilever(const fem::law_base* law) : m(box_mesh(element_hexa27, {L, b, h}, {along, 1, 1}))
{
    const unsigned model = law ? t.solid(m, *law) : t.solid(m, E, nu);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) {
            EXPECT_EQ(DOFs.set(node, displacement_tag, false), no_error);
        }
    problem = fem::problem_data(t.ctx, m.pos, DOFs, model, 1);
    // The traction P / (b h) on the end face as consistent nodal forces: Simpson's
    // weights 1/6, 4/6, 1/6 along each side of the one quadratic face.
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        if (m.pos(0, node) != L) continue;
        const auto w = [](double s) { return s == 0.0 || s == 1.0 ? 1.0 / 6.0 : 4.0 / 6.0; };
        const double f = P * w(m.pos(1, node) / b) * w(m.pos(2, node) / h);
        EXPECT_EQ(loads.record_DOF_load(dof(node, 2), f, no_func), no_error);
        forces.emplace_back(dof(node, 2), f);
        if (m.pos(1, node) == b / 2 && m.pos(2, node) == h / 2) tip = node;
    }
}

} // namespace kelt::test
