// The formulation of solids that stay right as the material nears incompressibility
// (B-bar): the volumetric strain of an element is replaced by its L2 projection,
// over the element, on a space of fewer terms than the displacement gives it, the
// constants (the mean dilatation) or 1, x, y, z. A displacement whose volumetric
// strain lies in that space keeps its strain, so the patch test still holds; the
// element then carries one or four volume constraints, not one a point.
#pragma once

#include <cmath>

#include "kelt/core/element_records.h"

namespace kelt::core {

template <unsigned Terms>
struct volume_projection {
    static_assert(Terms == 1 || Terms == 4, "constants, or 1, x, y, z");
    static constexpr bool projects_volume = true;
    static void apply(element_work_type&) noexcept {}

    // One element's projection: the volumetric strain at point p is the sum of
    // nbar[p][a][k] u_ak, where a plain element has the gradient n[p][a][k].
    template <unsigned NN, unsigned NP>
    struct element_data {
        double nbar[NP][NN][3];

        // From the points' volumes dV (det times weight), positions x and global
        // gradients n; false when a volume is not positive or the space degenerates.
        [[nodiscard]] bool make(const double (&dV)[NP], const double (&x)[NP][3], const double (&n)[NP][NN][3])
        {
            double V = 0.0, c[3] = {};
            for (unsigned p = 0; p < NP; ++p) {
                if (!(dV[p] > 0.0)) return false;
                V += dV[p];
                for (unsigned i = 0; i < 3; ++i) c[i] += dV[p] * x[p][i];
            }
            // Terms centred and scaled by the element's size, so that M is of order V
            // in every entry, whatever the units.
            const double h = std::cbrt(V);
            double q[NP][Terms];
            for (unsigned p = 0; p < NP; ++p) {
                q[p][0] = 1.0;
                for (unsigned i = 1; i < Terms; ++i) q[p][i] = (x[p][i - 1] - c[i - 1] / V) / h;
            }
            double M[Terms][Terms] = {}, G[Terms][NN][3] = {};
            for (unsigned p = 0; p < NP; ++p)
                for (unsigned j = 0; j < Terms; ++j) {
                    const double s = dV[p] * q[p][j];
                    for (unsigned l = 0; l < Terms; ++l) M[j][l] += s * q[p][l];
                    for (unsigned a = 0; a < NN; ++a)
                        for (unsigned k = 0; k < 3; ++k) G[j][a][k] += s * n[p][a][k];
                }
            if (!cholesky(M)) return false;
            for (unsigned p = 0; p < NP; ++p) {
                double y[Terms];
                for (unsigned j = 0; j < Terms; ++j) y[j] = q[p][j];
                solve(M, y);
                for (unsigned a = 0; a < NN; ++a)
                    for (unsigned k = 0; k < 3; ++k) {
                        double s = 0.0;
                        for (unsigned j = 0; j < Terms; ++j) s += y[j] * G[j][a][k];
                        nbar[p][a][k] = s;
                    }
            }
            return true;
        }

        // eps (any orthonormal frame: the trace does not change) with its volumetric
        // part replaced by the projected one; u holds 3 values a node.
        void strain(unsigned p, const double* u, voigt6& eps) const
        {
            double theta = 0.0;
            for (unsigned a = 0; a < NN; ++a)
                for (unsigned k = 0; k < 3; ++k) theta += nbar[p][a][k] * u[3 * a + k];
            const double d = (theta - eps[0] - eps[1] - eps[2]) / 3.0;
            for (unsigned i = 0; i < 3; ++i) eps[i] += d;
        }

        // The same on the rows of B: the sum of a row's normal terms is its
        // volumetric strain, in the material frame as in the global one.
        void rows(unsigned p, double (&B)[3 * NN][6]) const
        {
            for (unsigned a = 0; a < NN; ++a)
                for (unsigned k = 0; k < 3; ++k) {
                    double* row = B[3 * a + k];
                    const double d = (nbar[p][a][k] - row[0] - row[1] - row[2]) / 3.0;
                    for (unsigned i = 0; i < 3; ++i) row[i] += d;
                }
        }

    private:
        // M = L L^T in place (L in the lower triangle); false unless positive definite.
        static bool cholesky(double (&M)[Terms][Terms])
        {
            for (unsigned j = 0; j < Terms; ++j) {
                double d = M[j][j];
                for (unsigned k = 0; k < j; ++k) d -= M[j][k] * M[j][k];
                if (!(d > 1e-12 * M[0][0])) return false;
                M[j][j] = std::sqrt(d);
                for (unsigned i = j + 1; i < Terms; ++i) {
                    double s = M[i][j];
                    for (unsigned k = 0; k < j; ++k) s -= M[i][k] * M[j][k];
                    M[i][j] = s / M[j][j];
                }
            }
            return true;
        }
        static void solve(const double (&L)[Terms][Terms], double (&y)[Terms])
        {
            for (unsigned i = 0; i < Terms; ++i) {
                for (unsigned k = 0; k < i; ++k) y[i] -= L[i][k] * y[k];
                y[i] /= L[i][i];
            }
            for (unsigned i = Terms; i-- > 0;) {
                for (unsigned k = i + 1; k < Terms; ++k) y[i] -= L[k][i] * y[k];
                y[i] /= L[i][i];
            }
        }
    };
};

} // namespace kelt::core
