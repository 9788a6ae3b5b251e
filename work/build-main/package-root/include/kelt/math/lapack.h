// The two LAPACK routines the library uses, over the system LAPACK.
#pragma once

#include <complex>

namespace kelt::lapack {

// All eigenvalues, and with jobz 'V' the eigenvectors, of a packed symmetric matrix.
void dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz, double* work, long& info);

// Complex dense solve A X = B by LU with partial pivoting.
void zgesv(long n, long nrhs, std::complex<double>* a, long lda, long* ipiv, std::complex<double>* b, long ldb,
           long& info);

} // namespace kelt::lapack
