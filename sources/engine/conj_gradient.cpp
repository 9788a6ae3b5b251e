// The vector loops of the conjugate gradient, and its static form.
#include "kelt/engine/conj_gradient.h"

namespace kelt::core {

double vector_dot(const double* a, const double* b, unsigned n) noexcept
{
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    unsigned i = 0;
    for (; i + 4 <= n; i += 4) {
        s0 += a[i] * b[i];
        s1 += a[i + 1] * b[i + 1];
        s2 += a[i + 2] * b[i + 2];
        s3 += a[i + 3] * b[i + 3];
    }
    for (; i < n; ++i) s0 += a[i] * b[i];
    return (s0 + s1) + (s2 + s3);
}

void vector_axpy(double alpha, const double* x, double* y, unsigned n) noexcept
{
    unsigned i = 0;
    for (; i + 4 <= n; i += 4) {
        y[i] += alpha * x[i];
        y[i + 1] += alpha * x[i + 1];
        y[i + 2] += alpha * x[i + 2];
        y[i + 3] += alpha * x[i + 3];
    }
    for (; i < n; ++i) y[i] += alpha * x[i];
}

void vector_aypx(double beta, const double* x, double* y, unsigned n) noexcept
{
    unsigned i = 0;
    for (; i + 4 <= n; i += 4) {
        y[i] = beta * y[i] + x[i];
        y[i + 1] = beta * y[i + 1] + x[i + 1];
        y[i + 2] = beta * y[i + 2] + x[i + 2];
        y[i + 3] = beta * y[i + 3] + x[i + 3];
    }
    for (; i < n; ++i) y[i] = beta * y[i] + x[i];
}

error_type conj_gradient_static(const symmetric_hybrid_OOC<double>& K, const symmetric_hybrid_OOC<double>& factor,
                                const std::vector<unsigned>& fixed_rows, const dense1D<double, 8>& b,
                                dense1D<double, 8>& x, const conj_gradient_settings& settings,
                                iteration_observer& observer, double& residual_norm, unsigned nbr_threads)
{
    residual_norm = 0.0;
    const unsigned n = K.nbr_rows();
    if (factor.nbr_rows() != n || b.size() != n || x.size() != n) return internal_error;
    for (unsigned r : fixed_rows)
        if (r >= n) return internal_error;
    const unsigned nbr_fixed = unsigned(fixed_rows.size());
    auto op = [&](const double* in, double* out) {
        (void)multiply_fixed(K, 1.0, in, out, fixed_rows.data(), nbr_fixed, nbr_threads);
    };
    auto precond = [&](const double* in, double* out, double& rho) {
        return solve_single(factor, in, out, rho, fixed_rows, nbr_threads);
    };
    return conj_gradient(op, precond, b, x, settings, observer, &residual_norm);
}

} // namespace kelt::core
