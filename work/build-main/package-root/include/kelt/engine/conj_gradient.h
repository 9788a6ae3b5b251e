// The preconditioned conjugate gradient: solves A x = b for an operator given by
// its product, with a factored matrix as preconditioner. The static solver runs it
// on systems where some DOFs of the matrix are held at given values: the operator
// is the assembled matrix with those rows masked, the preconditioner the factor
// of a matrix close to it, so that a few steps suffice.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kelt/core/types.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/iteration_observer.h"
#include "kelt/engine/multiply.h"
#include "kelt/engine/skyline.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

struct conj_gradient_settings {
    double tol = 1e-8;
    bool absolute = false; // false: tol is relative to the first residual
    unsigned max_iters = 100;
};

// Plain vector loops, four at a time.
double vector_dot(const double* a, const double* b, unsigned n) noexcept;
// y += alpha x
void vector_axpy(double alpha, const double* x, double* y, unsigned n) noexcept;
// y = beta y + x
void vector_aypx(double beta, const double* x, double* y, unsigned n) noexcept;

// Solves A x = b from the x given. `op(in, out)` adds A in to out; `precond(in,
// out, rho)` sets out = M⁻¹ in and rho = inᵀ M⁻¹ in, and returns an error_type.
// The residual is measured in the norm of the preconditioner; its last value goes
// to `residual_norm` when given. Returns inf_nan_error when a step length is not
// finite, non_convergence_error when the iterations run out, and no_error when
// converged or stopped by the observer; x keeps the last iterate in every case.
template <class Op, class Precond>
[[nodiscard]] error_type conj_gradient(Op&& op, Precond&& precond, const dense1D<double, 8>& b, dense1D<double, 8>& x,
                                       conj_gradient_settings settings, iteration_observer& observer,
                                       double* residual_norm = nullptr)
{
    if (observer.stop_requested()) return no_error;
    const unsigned n = b.size();
    if (x.size() != n) return invalid_data_error;
    dense1D<double, 8> g, p, q; // residual, search direction, work
    if (!g.resize(n) || !p.resize(n) || !q.resize(n)) return memory_error;
    char line[256];
    observer.log(2, "Conjugate gradient algorithm.\n");

    std::copy(b.begin(), b.end(), g.begin());
    if (std::any_of(x.begin(), x.end(), [](double v) { return v != 0.0; })) {
        op(x.data(), q.data());
        vector_axpy(-1.0, q.data(), g.data(), n);
    }
    double rho = 0.0;
    if (auto e = precond(g.data(), p.data(), rho); e != no_error) return e;
    double threshold = settings.tol * settings.tol;
    if (!settings.absolute) threshold *= rho;

    unsigned k = 0;
    error_type status = no_error;
    bool stopped = false;
    for (;;) {
        std::snprintf(line, sizeof line, "%3d  two_norm(g)         : %+.5E (%.5E) \n", int(k), std::sqrt(rho),
                      std::sqrt(rho / threshold));
        observer.log(2, line);
        if (rho < threshold || k + 1 >= settings.max_iters) break;
        ++k;
        if ((stopped = observer.stop_requested())) break;
        std::fill(q.begin(), q.end(), 0.0);
        op(p.data(), q.data());
        const double alpha = vector_dot(g.data(), p.data(), n) / vector_dot(q.data(), p.data(), n);
        if (!std::isfinite(alpha)) {
            status = inf_nan_error;
            break;
        }
        vector_axpy(alpha, p.data(), x.data(), n);
        vector_axpy(-alpha, q.data(), g.data(), n);
        const double rho_old = rho;
        if (auto e = precond(g.data(), q.data(), rho); e != no_error) return e;
        const double beta = rho / rho_old;
        if (!std::isfinite(beta)) {
            status = inf_nan_error;
            break;
        }
        vector_aypx(beta, q.data(), p.data(), n);
        observer.iteration(k, std::sqrt(rho));
    }
    if (residual_norm) *residual_norm = std::sqrt(rho);
    if (status != no_error || stopped) return status;
    if (!(rho < threshold)) return non_convergence_error;
    std::snprintf(line, sizeof line, "Convergence within %d iterations.\n", int(k));
    observer.log(2, line);
    return no_error;
}

// The gradient of a static run: the operator is K with the rows of `fixed_rows`
// masked, the preconditioner `factor` (a factored matrix of the same order) with
// the same rows set to 0, so that the values of x on those rows stay as given.
// `residual_norm` gets the last residual norm.
[[nodiscard]] error_type conj_gradient_static(const symmetric_hybrid_OOC<double>& K,
                                              const symmetric_hybrid_OOC<double>& factor,
                                              const std::vector<unsigned>& fixed_rows, const dense1D<double, 8>& b,
                                              dense1D<double, 8>& x, const conj_gradient_settings& settings,
                                              iteration_observer& observer, double& residual_norm,
                                              unsigned nbr_threads);

} // namespace kelt::core
