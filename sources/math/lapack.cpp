#include "kelt/math/lapack.h"

#include <climits>
#include <vector>

// Reference LAPACK with 32-bit Fortran integers.
extern "C" {
void dspev_(const char* jobz, const char* uplo, const int* n, double* ap, double* w, double* z, const int* ldz,
            double* work, int* info, std::size_t, std::size_t);
void zgesv_(const int* n, const int* nrhs, std::complex<double>* a, const int* lda, int* ipiv,
            std::complex<double>* b, const int* ldb, int* info);
}

namespace kelt::lapack {

namespace {
bool fits(long v) { return v >= 0 && v <= INT_MAX; }
} // namespace

void dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz, double* work, long& info)
{
    if (!fits(n) || !fits(ldz)) {
        info = -3;
        return;
    }
    const int n32 = int(n), ldz32 = int(ldz);
    int info32 = 0;
    dspev_(&jobz, &uplo, &n32, ap, w, z, &ldz32, work, &info32, 1, 1);
    info = info32;
}

void zgesv(long n, long nrhs, std::complex<double>* a, long lda, long* ipiv, std::complex<double>* b, long ldb,
           long& info)
{
    if (!fits(n) || !fits(nrhs) || !fits(lda) || !fits(ldb)) {
        info = -1;
        return;
    }
    const int n32 = int(n), nrhs32 = int(nrhs), lda32 = int(lda), ldb32 = int(ldb);
    std::vector<int> pivots(static_cast<std::size_t>(n32));
    int info32 = 0;
    zgesv_(&n32, &nrhs32, a, &lda32, pivots.data(), b, &ldb32, &info32);
    for (int i = 0; i < n32; ++i) ipiv[i] = pivots[std::size_t(i)];
    info = info32;
}

} // namespace kelt::lapack
