// The LAPACK wrappers on problems whose answers are known in closed form.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "kelt/math/lapack.h"

TEST(lapack, dspev_of_the_second_difference_matrix)
{
    // tridiag(-1, 2, -1) of order n has eigenvalues 2 - 2 cos(k pi / (n + 1)).
    const long n = 9;
    std::vector<double> ap(n * (n + 1) / 2, 0.0), w(n), z(n * n), work(3 * n);
    for (long j = 0; j < n; ++j) {
        ap[j * (j + 1) / 2 + j] = 2.0;
        if (j > 0) ap[j * (j + 1) / 2 + j - 1] = -1.0;
    }
    long info = -1;
    kelt::lapack::dspev('V', 'U', n, ap.data(), w.data(), z.data(), n, work.data(), info);
    ASSERT_EQ(info, 0);
    for (long k = 1; k <= n; ++k) EXPECT_NEAR(w[k - 1], 2.0 - 2.0 * std::cos(k * M_PI / (n + 1)), 1e-13);
    double norm = 0.0;
    for (long i = 0; i < n; ++i) norm += z[i] * z[i];
    EXPECT_NEAR(norm, 1.0, 1e-13);
}

TEST(lapack, zgesv_solves_and_reports_a_singular_matrix)
{
    using c = std::complex<double>;
    // A = [[1+i, 2], [3, 4-i]] (column-major), x = (1, i); b = A x.
    std::vector<c> a = {c(1, 1), c(3, 0), c(2, 0), c(4, -1)};
    const c x0(1, 0), x1(0, 1);
    std::vector<c> b = {a[0] * x0 + a[2] * x1, a[1] * x0 + a[3] * x1};
    std::vector<long> ipiv(2);
    long info = -1;
    kelt::lapack::zgesv(2, 1, a.data(), 2, ipiv.data(), b.data(), 2, info);
    ASSERT_EQ(info, 0);
    EXPECT_NEAR(std::abs(b[0] - x0), 0.0, 1e-14);
    EXPECT_NEAR(std::abs(b[1] - x1), 0.0, 1e-14);

    std::vector<c> singular = {c(1, 0), c(2, 0), c(2, 0), c(4, 0)};
    std::vector<c> rhs = {c(1, 0), c(1, 0)};
    kelt::lapack::zgesv(2, 1, singular.data(), 2, ipiv.data(), rhs.data(), 2, info);
    EXPECT_GT(info, 0);
}
