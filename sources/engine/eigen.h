// Eigen kernels for K x = λ M x on a factored, shifted K: block inverse iteration
// with Rayleigh-Ritz reduction (subspace), the same started from an M-orthogonal
// Lanczos basis (hybrid), and load-dependent Ritz vectors. The bases are column
// stores that may live partly on disk; the reduced problems are small and dense.
#pragma once

#include <cfloat>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "kelt/core/dense2D_OOC.h"
#include "kelt/core/types.h"
#include "kelt/engine/iteration_observer.h"
#include "kelt/engine/skyline.h"

namespace kelt::core {

using eigen_basis = dense2D_OOC<double>;

// The host may overrule the convergence decision after each iteration.
using convergence_handler = void (*)(void* user_data, unsigned iteration, double residue, bool& converged);

struct eigen_settings {
    unsigned max_iters = 50;
    double tolerance = 0.001; // on the relative change of the eigenvalues between iterations
    convergence_handler convergence_check = nullptr;
    void* user_data = nullptr;
    unsigned threads = 1;
    unsigned LLC_size = 1u << 20;
};

struct eigen_band {
    double lower = -DBL_MAX;
    double upper = DBL_MAX;
};

// The nonzeros of a symmetric matrix, both triangles, by rows: M is stored on its
// factor's profile, whose fill the many products of the kernels would read in
// vain. Each row's sum runs in column order on one thread.
class compressed_sym {
public:
    // From a block skyline matrix, unfactored.
    [[nodiscard]] error_type build(const symmetric_hybrid_OOC<double>& A);
    // y += factor A x.
    void multiply(const double* x, double* y, unsigned threads, double factor = 1.0) const;
    // Y = A X on `nb` columns held by rows (row r of X at X + r nb): each nonzero is
    // read once for all of them. Each column's sums are those of `multiply`.
    void multiply_rows(const double* X, double* Y, unsigned nb, unsigned threads) const;
    const std::vector<double>& diagonal() const noexcept { return diag_; }
    unsigned rows() const noexcept { return unsigned(diag_.size()); }

private:
    std::vector<std::size_t> starts_;
    std::vector<unsigned> cols_;
    std::vector<double> values_, diag_;
};

// Packed upper triangles, column after column: (i, j), i <= j, at j (j + 1) / 2 + i.
inline std::size_t packed_at(unsigned i, unsigned j) noexcept
{
    return std::size_t(j) * (j + 1) / 2 + i;
}

// The pencil (Kr, Mr) of order n made standard through the Cholesky factor of Mr,
// solved by dspev and brought back: eigenvalues ascending, Q (n x n, column major)
// with each column of Mr-norm 1. The status of dspev is returned; a Mr that is
// not positive definite gives internal_error.
[[nodiscard]] error_type reduced_solve(const std::vector<double>& Kr, const std::vector<double>& Mr, unsigned n,
                                       std::vector<double>& eigenvalues, std::vector<double>& Q);

// The range [first, last) of the ascending `values` kept: those in the band, at
// most `nbr_wanted`, the lowest (pivot -DBL_MAX), the highest (DBL_MAX), or those
// closest to `pivot`.
std::pair<unsigned, unsigned> select_modes(const std::vector<double>& values, const eigen_band& band,
                                           unsigned nbr_wanted, double pivot);

// Columns `first` and up of X set to start vectors: M's diagonal, then unit
// vectors where the diagonal, swept by K's factor, is largest, then random ones.
[[nodiscard]] error_type start_vectors(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M,
                                       unsigned first, eigen_basis& X, std::mt19937& generator, unsigned threads);

// Fills the columns of X with an M-orthonormal basis, Krylov vectors of K⁻¹ M
// mixed with random restarts; the number filled comes back in `filled`.
[[nodiscard]] error_type lanczos(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M,
                                 eigen_basis& X, std::mt19937& generator, iteration_observer& observer,
                                 unsigned threads, unsigned& filled);

// Block inverse iteration on the factor K of a matrix A: the eigenpairs of
// A x = μ M x in the band, nearest 0 first. `sigma` is added to the reduced
// stiffness (Kr + sigma Mr, positive definite for an A shifted below its spectrum)
// and taken off the values again. On return X holds the modes (M-norm 1) and
// lambda their values, ascending.
class eigen_subspace {
public:
    eigen_subspace(const eigen_settings& s, iteration_observer& o) : settings(s), observer(o) {}

    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const symmetric_hybrid_OOC<double>& M,
                                 double sigma, eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y,
                                 unsigned nbr_wanted, unsigned nbr_cols, unsigned nbr_given, const eigen_band& band,
                                 double pivot);
    // The same with M compressed already (the caller may then drop its skyline).
    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M, double sigma,
                                 eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y, unsigned nbr_wanted,
                                 unsigned nbr_cols, unsigned nbr_given, const eigen_band& band, double pivot);

    const eigen_settings& settings;
    iteration_observer& observer;
    unsigned iterations = 0;
};

// A Lanczos basis handed to the subspace iteration as its start.
class eigen_Lanczos_hybrid {
public:
    eigen_Lanczos_hybrid(const eigen_settings& s, iteration_observer& o) : settings(s), observer(o) {}

    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const symmetric_hybrid_OOC<double>& M,
                                 double sigma, eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y,
                                 unsigned nbr_wanted, unsigned nbr_given, const eigen_band& band, double pivot);
    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const compressed_sym& M, double sigma,
                                 eigen_basis& X, std::vector<double>& lambda, eigen_basis& Y, unsigned nbr_wanted,
                                 unsigned nbr_given, const eigen_band& band, double pivot);

    const eigen_settings& settings;
    iteration_observer& observer;
    unsigned iterations = 0;
};

// y = A x with A as assembled (its factor alone cannot give it).
using matrix_product = std::function<error_type(const double* x, double* y)>;

// Load-dependent Ritz vectors: the columns of X (the static responses) grown into
// an M-orthonormal basis V by blocks, A (the factored matrix, as `product` gives
// it) reduced on it once. Q (count x count, column major) gives the vectors V Q;
// lambda ascending, cut to the band; V is cut to the vectors made.
class eigen_LDRV {
public:
    eigen_LDRV(const eigen_settings& s, iteration_observer& o) : settings(s), observer(o) {}

    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const matrix_product& product,
                                 const symmetric_hybrid_OOC<double>& M, const eigen_band& band, eigen_basis& V,
                                 std::vector<double>& lambda, std::vector<double>& Q, eigen_basis& X, eigen_basis& Y);
    [[nodiscard]] error_type run(const symmetric_hybrid_OOC<double>& K, const matrix_product& product,
                                 const compressed_sym& M, const eigen_band& band, eigen_basis& V,
                                 std::vector<double>& lambda, std::vector<double>& Q, eigen_basis& X, eigen_basis& Y);

    const eigen_settings& settings;
    iteration_observer& observer;
    std::vector<unsigned> block_widths; // of each block appended to V
};

// Each column of X made M-orthogonal to V[0, nbr_done) and to the columns before
// it, in `passes` of Gram-Schmidt, and of M-norm 1; a column whose M-norm falls
// below `drop` of what it had is removed and the later ones move down. The
// number kept comes back.
[[nodiscard]] error_type orthonormalize(const compressed_sym& M, eigen_basis& V, unsigned nbr_done,
                                        eigen_basis& X, eigen_basis& Y, double drop, unsigned passes,
                                        unsigned threads, unsigned& kept);

// y = M x over the n first columns.
[[nodiscard]] error_type multiply_columns(const compressed_sym& M, eigen_basis& X, eigen_basis& Y,
                                          unsigned n, unsigned threads);

// X = B C, with C (B.cols x n, column major): n columns of X, different stores.
[[nodiscard]] error_type combine_columns(eigen_basis& B, const std::vector<double>& C, unsigned nB, unsigned n,
                                         eigen_basis& X, unsigned threads);

} // namespace kelt::core
