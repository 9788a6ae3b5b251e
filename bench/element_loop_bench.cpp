// Element loop benchmark: the stiffness pass of solid meshes of about 10^5
// elements (hexa8, hexa27, tetra10) on 1 and 2 threads, in elements per second.
// Assembly is a running sum of the diagonals, so the figure is the element routine
// and the loop around it. Run:
//   element_loop_bench [n]   (n^3 cells a side; default 46 for the hexahedra and
//                             26 cubes of 6 tetrahedra)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unordered_map>
#include <vector>

#include "kelt/core/context.h"
#include "kelt/core/element_catalogue.h"
#include "kelt/core/element_records.h"
#include "kelt/elements/model_init.h"
#include "kelt/fem/context.h"

using namespace kelt;
using clock_type = std::chrono::steady_clock;

namespace {

double cpu_seconds()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

// Adds up the diagonals: enough to use every matrix, nothing of a real assembly.
class trace_assembler : public core::matrix_assembler_base {
public:
    bool is_null() const override { return false; }
    error_type add_diagonal(const dense1D<double, 8>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_general(const dense2D<double>&, const dense1D<unsigned, 8>&) override { return no_error; }
    error_type add_symmetric(const symmetric_full<double>& K, const dense1D<unsigned, 8>&, bool) override
    {
        for (unsigned i = 0; i < K.order(); ++i) trace += K(i, i);
        return no_error;
    }
    double trace = 0.0;
};

struct mesh_type {
    dense2D<double> pos;
    dense2D<unsigned> cells;
    element_type type;
};

// The unit cube in n^3 cells on a grid of m points a side (m = n + 1 for hexa8,
// 2 n + 1 for the 27-node cells and the tetrahedra, whose mid-edge nodes lie on the
// doubled grid).
mesh_type cube(element_type type, unsigned n)
{
    mesh_type mesh;
    mesh.type = type;
    const unsigned step = type == element_hexa8 ? 1 : 2, m = step * n + 1;
    (void)mesh.pos.resize(3, m * m * m);
    const auto id = [&](unsigned i, unsigned j, unsigned k) { return (k * m + j) * m + i; };
    for (unsigned k = 0; k < m; ++k)
        for (unsigned j = 0; j < m; ++j)
            for (unsigned i = 0; i < m; ++i) {
                mesh.pos(0, id(i, j, k)) = double(i) / (m - 1);
                mesh.pos(1, id(i, j, k)) = double(j) / (m - 1);
                mesh.pos(2, id(i, j, k)) = double(k) / (m - 1);
            }
    std::vector<unsigned> cells;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i) {
                const unsigned I = step * i, J = step * j, K = step * k;
                if (type == element_hexa8) {
                    for (unsigned c : {id(I, J, K), id(I + 1, J, K), id(I + 1, J + 1, K), id(I, J + 1, K),
                                       id(I, J, K + 1), id(I + 1, J, K + 1), id(I + 1, J + 1, K + 1),
                                       id(I, J + 1, K + 1)})
                        cells.push_back(c);
                } else if (type == element_hexa27) {
                    // Corners, the 12 edges, the 6 faces and the centre in the node order.
                    const int g[27][3] = {{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}, {0, 0, 2}, {2, 0, 2}, {2, 2, 2},
                                          {0, 2, 2}, {1, 0, 0}, {2, 1, 0}, {1, 2, 0}, {0, 1, 0}, {1, 0, 2}, {2, 1, 2},
                                          {1, 2, 2}, {0, 1, 2}, {0, 0, 1}, {2, 0, 1}, {2, 2, 1}, {0, 2, 1}, {0, 1, 1},
                                          {2, 1, 1}, {1, 0, 1}, {1, 2, 1}, {1, 1, 0}, {1, 1, 2}, {1, 1, 1}};
                    for (const auto& p : g) cells.push_back(id(I + p[0], J + p[1], K + p[2]));
                } else {
                    // Kuhn's six tetrahedra; vertex 3 at the cube's first corner, the
                    // mid-edge nodes at the grid points between the vertices.
                    const unsigned perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
                    for (const auto& p : perms) {
                        int v[4][3] = {};
                        for (unsigned s = 1; s < 4; ++s) {
                            for (unsigned c = 0; c < 3; ++c) v[s][c] = v[s - 1][c];
                            v[s][p[s - 1]] = 2;
                        }
                        // Vertices 0, 1, 2 of the element, then 3 at the origin; a
                        // right-handed order for the even permutations.
                        const bool even = p[0] == 0 ? p[1] == 1 : p[0] == 1 ? p[1] == 2 : p[1] == 0;
                        const int* t[4] = {v[even ? 1 : 2], v[even ? 2 : 1], v[3], v[0]};
                        const unsigned edges[6][2] = {{1, 2}, {2, 0}, {0, 1}, {0, 3}, {1, 3}, {2, 3}};
                        for (unsigned a = 0; a < 4; ++a) cells.push_back(id(I + t[a][0], J + t[a][1], K + t[a][2]));
                        for (const auto& e : edges)
                            cells.push_back(id(I + (t[e[0]][0] + t[e[1]][0]) / 2, J + (t[e[0]][1] + t[e[1]][1]) / 2,
                                               K + (t[e[0]][2] + t[e[1]][2]) / 2));
                    }
                }
            }
    const unsigned per = nbr_nodes(type);
    (void)mesh.cells.resize(per, unsigned(cells.size() / per));
    for (unsigned e = 0; e < mesh.cells.cols(); ++e)
        for (unsigned a = 0; a < per; ++a) mesh.cells(a, e) = cells[std::size_t(e) * per + a];
    return mesh;
}

void run(core::context_type* ctx, element_type type, const char* name, unsigned n)
{
    const mesh_type mesh = cube(type, n);
    Ptr<core::law_solid_StVenant> law = new core::law_solid_StVenant;
    dense1D<double, 8> data;
    for (double v : {210000.0, 0.3, 1.2e-5}) data.push_back(v);
    if (law->init(data) != no_error) return;
    Ptr<core::physics_base> physics = new core::solid_small(Ptr<core::law_solid_stiff>(law.get()));
    Ptr<core::numerical_model_base> model;
    if (core::make_stiff_mesh(ctx, physics, mesh.cells, type, model) != no_error) {
        std::printf("%s: no model\n", name);
        return;
    }
    model->context = ctx;
    (void)model->record();
    std::printf("\n%s: %u elements, %u nodes\n", name, model->nbr_elements(), mesh.pos.cols());
    for (unsigned threads : {1u, 2u}) {
        ctx->process_mgr->max_threads = threads;
        trace_assembler K;
        core::element_pass_type pass;
        pass.pos = mesh.pos;
        pass.matrix = &K;
        const auto t0 = clock_type::now();
        const double c0 = cpu_seconds();
        const error_type e = model->run_elements(core::kind_stiffness, pass);
        const double wall = std::chrono::duration<double>(clock_type::now() - t0).count();
        const double cpu = cpu_seconds() - c0;
        if (e != no_error) {
            std::printf("  %u thread(s): failed with %d\n", threads, int(e));
            continue;
        }
        std::printf("  %u thread(s): %8.3f s, %10.0f elements/s (processor %.3f s), trace %.6e\n", threads, wall,
                    model->nbr_elements() / wall, cpu, K.trace);
    }
    ctx->numerical_models_mgr->clear();
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned n = argc > 1 ? unsigned(std::atoi(argv[1])) : 0;
    fem::context host;
    auto* ctx = static_cast<core::context_type*>(fem::core_of(host));
    run(ctx, element_hexa8, "hexa8", n ? n : 46);
    run(ctx, element_hexa27, "hexa27", n ? n : 46);
    run(ctx, element_tetra10, "tetra10", n ? n : 26);
    return 0;
}
