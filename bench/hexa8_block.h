// The stiffness matrix of a clamped block of hexa8 elements, assembled straight
// into the engine's matrix: the benchmark problem of the factorisation. A regular
// nx x ny x nz mesh on [0, lx] x [0, ly] x [0, lz], E and nu given, trilinear
// elements with 2 x 2 x 2 Gauss points, face x = 0 clamped, a total load in -z
// shared equally by the nodes of the face x = lx.
#pragma once

#include <array>
#include <chrono>
#include <cmath>
#include <vector>

#include "kelt/engine/profile.h"
#include "kelt/engine/skyline.h"
#include "kelt/fem/DOFs_mgr.h"
#include "kelt/fem/context.h"
#include "kelt/fem/laws.h"
#include "kelt/fem/numerical_models.h"
#include "kelt/fem/physics_models.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::bench {

struct hexa8_block {
    unsigned nx, ny, nz;
    double lx = 4.0, ly = 1.0, lz = 1.0, E = 210000.0, nu = 0.3, total_load = -1.0;

    unsigned node(unsigned i, unsigned j, unsigned k) const { return (k * (ny + 1) + j) * (nx + 1) + i; }
    unsigned nbr_nodes() const { return (nx + 1) * (ny + 1) * (nz + 1); }

    // 24 x 24 stiffness of one element, DOFs node-major (x, y, z of node 0, ...).
    std::array<double, 576> element_stiffness() const
    {
        const double hx = lx / nx, hy = ly / ny, hz = lz / nz;
        const double lam = E * nu / ((1 + nu) * (1 - 2 * nu)), mu = E / (2 * (1 + nu));
        const int corner[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                  {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
        std::array<double, 576> K{};
        const double g = 1.0 / std::sqrt(3.0);
        for (int a = 0; a < 2; ++a)
            for (int b = 0; b < 2; ++b)
                for (int c = 0; c < 2; ++c) {
                    const double p[3] = {a ? g : -g, b ? g : -g, c ? g : -g};
                    double dN[8][3];
                    for (int n = 0; n < 8; ++n) {
                        const double s[3] = {1 + corner[n][0] * p[0], 1 + corner[n][1] * p[1], 1 + corner[n][2] * p[2]};
                        dN[n][0] = corner[n][0] * s[1] * s[2] / 8 * 2 / hx;
                        dN[n][1] = corner[n][1] * s[0] * s[2] / 8 * 2 / hy;
                        dN[n][2] = corner[n][2] * s[0] * s[1] / 8 * 2 / hz;
                    }
                    const double w = hx * hy * hz / 8;
                    for (int m = 0; m < 8; ++m)
                        for (int n = 0; n < 8; ++n)
                            for (int i = 0; i < 3; ++i)
                                for (int j = 0; j < 3; ++j) {
                                    double v = lam * dN[m][i] * dN[n][j] + mu * dN[m][j] * dN[n][i];
                                    if (i == j) v += mu * (dN[m][0] * dN[n][0] + dN[m][1] * dN[n][1] + dN[m][2] * dN[n][2]);
                                    K[(3 * m + i) * 24 + 3 * n + j] += w * v;
                                }
                }
        return K;
    }

    // DOF identifiers of an element, in the order of element_stiffness.
    std::array<unsigned, 24> element_DOFs(unsigned i, unsigned j, unsigned k) const
    {
        const unsigned nodes[8] = {node(i, j, k),         node(i + 1, j, k),         node(i + 1, j + 1, k),
                                   node(i, j + 1, k),     node(i, j, k + 1),         node(i + 1, j, k + 1),
                                   node(i + 1, j + 1, k + 1), node(i, j + 1, k + 1)};
        std::array<unsigned, 24> ids;
        for (int n = 0; n < 8; ++n)
            for (int c = 0; c < 3; ++c) ids[3 * n + c] = nodes[n] * 9 + c;
        return ids;
    }

    // The order and block profile of the free DOFs; the seconds that took, negative
    // when it failed.
    double number(vector_fast& free_IDs, core::profile_type& profile) const
    {
        dense1D<unsigned, 8> DOFs, clamped;
        std::vector<unsigned> ptr, ids;
        connectivity(DOFs, ptr, ids, clamped);
        const auto t0 = std::chrono::steady_clock::now();
        std::uint64_t value_bytes = 0, index_bytes = 0;
        if (core::number_and_profile(DOFs, ptr, ids, clamped, false, free_IDs, profile, value_bytes, index_bytes) !=
            no_error)
            return -1.0;
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }

    void connectivity(dense1D<unsigned, 8>& DOFs, std::vector<unsigned>& ptr, std::vector<unsigned>& ids,
                      dense1D<unsigned, 8>& clamped) const
    {
        (void)DOFs.resize(3 * nbr_nodes());
        for (unsigned n = 0; n < nbr_nodes(); ++n)
            for (unsigned c = 0; c < 3; ++c) DOFs[3 * n + c] = n * 9 + c;
        ptr.assign(1, 0);
        ids.clear();
        ids.reserve(std::size_t(nx) * ny * nz * 24);
        for (unsigned k = 0; k < nz; ++k)
            for (unsigned j = 0; j < ny; ++j)
                for (unsigned i = 0; i < nx; ++i) {
                    const auto e = element_DOFs(i, j, k);
                    ids.insert(ids.end(), e.begin(), e.end());
                    ptr.push_back(unsigned(ids.size()));
                }
        clamped.clear();
        for (unsigned k = 0; k <= nz; ++k)
            for (unsigned j = 0; j <= ny; ++j)
                for (unsigned c = 0; c < 3; ++c) clamped.push_back(node(0, j, k) * 9 + c);
    }

    // Adds the stiffness by rows of matrix positions, as the symmetric assembler does.
    void assemble(const vector_fast& free_IDs, core::symmetric_hybrid_OOC<double>& A) const
    {
        const auto Ke = element_stiffness();
        core::block_proxy_data* data = A.proxy();
        std::vector<std::pair<unsigned, unsigned>> pairs;
        std::vector<double> values;
        std::vector<unsigned> columns;
        for (unsigned k = 0; k < nz; ++k)
            for (unsigned j = 0; j < ny; ++j)
                for (unsigned i = 0; i < nx; ++i) {
                    const auto ids = element_DOFs(i, j, k);
                    pairs.clear();
                    for (unsigned l = 0; l < 24; ++l)
                        if (const unsigned r = free_IDs.rank(ids[l]); r != vector_fast::none) pairs.emplace_back(r, l);
                    std::stable_sort(pairs.begin(), pairs.end(),
                                     [](const auto& a, const auto& b) { return a.first < b.first; });
                    for (unsigned p = 0; p < pairs.size(); ++p) {
                        values.clear();
                        columns.clear();
                        for (unsigned q = p; q < pairs.size(); ++q) {
                            const double v = Ke[pairs[p].second * 24 + pairs[q].second];
                            if (v == 0.0) continue;
                            values.push_back(v);
                            columns.push_back(pairs[q].first);
                        }
                        (void)data->add_values(data->block_of_row(pairs[p].first), pairs[p].first, values.data(),
                                               columns.data(), unsigned(values.size()), false);
                    }
                }
    }

    // The load vector by matrix position.
    std::vector<double> load(const vector_fast& free_IDs) const
    {
        std::vector<double> f(free_IDs.size(), 0.0);
        const double share = total_load / ((ny + 1) * (nz + 1));
        for (unsigned k = 0; k <= nz; ++k)
            for (unsigned j = 0; j <= ny; ++j)
                if (const unsigned r = free_IDs.rank(node(nx, j, k) * 9 + 2); r != vector_fast::none) f[r] = share;
        return f;
    }

    // The model through the public interface: node coordinates, hexa8 cells and the
    // translations, those of the face x = 0 blocked.
    dense2D<double> positions() const
    {
        dense2D<double> pos(3, nbr_nodes());
        for (unsigned k = 0; k <= nz; ++k)
            for (unsigned j = 0; j <= ny; ++j)
                for (unsigned i = 0; i <= nx; ++i) {
                    const unsigned n = node(i, j, k);
                    pos(0, n) = lx * i / nx;
                    pos(1, n) = ly * j / ny;
                    pos(2, n) = lz * k / nz;
                }
        return pos;
    }
    dense2D<unsigned> cells() const
    {
        dense2D<unsigned> mesh(8, nx * ny * nz);
        unsigned e = 0;
        for (unsigned k = 0; k < nz; ++k)
            for (unsigned j = 0; j < ny; ++j)
                for (unsigned i = 0; i < nx; ++i, ++e) {
                    const auto ids = element_DOFs(i, j, k);
                    for (unsigned a = 0; a < 8; ++a) mesh(a, e) = ids[3 * a] / 9;
                }
        return mesh;
    }
    fem::DOFs_mgr clamped_DOFs() const
    {
        fem::DOFs_mgr DOFs(nbr_nodes(), false);
        for (unsigned n = 0; n < nbr_nodes(); ++n) (void)DOFs.set(n, displacement_tag, true);
        for (unsigned k = 0; k <= nz; ++k)
            for (unsigned j = 0; j <= ny; ++j) (void)DOFs.set(node(0, j, k), displacement_tag, false);
        return DOFs;
    }

    unsigned tip_DOF() const { return node(nx, ny / 2, nz / 2) * 9 + 2; }
};

// The block's elastic solids through the public interface, on a context:
// `ok` when the law, the physics and the model took their data.
struct block_solid {
    block_solid(fem::context& ctx, const hexa8_block& block) : model(ctx)
    {
        dense1D<double, 8> params;
        params.push_back(block.E), params.push_back(block.nu), params.push_back(0.0);
        const dense2D<unsigned> mesh = block.cells();
        ok = law.init(params) == no_error && physics.init(law) == no_error &&
             model.init(ctx, physics, mesh, element_hexa8) == no_error;
    }
    fem::law_solid_StVenant law;
    fem::model_solid_lin physics;
    fem::numerical_model_stiff_lin model;
    bool ok = false;
};

} // namespace kelt::bench
