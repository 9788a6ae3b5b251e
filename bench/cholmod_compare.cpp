// The engine's factorisation beside CHOLMOD's on clamped hexa8 blocks of shape
// 4:1:1: the same stiffness, clamped DOFs removed, factorised by the engine and by
// CHOLMOD with a METIS order, supernodal (L Lᵀ on BLAS) and simplicial (L D Lᵀ), on
// 1 and 2 threads. Run:
//   cholmod_compare [n ...]   (blocks 4n x n x n; default 11 20 30)
// CHOLMOD threads through the BLAS that libblas.so.3 resolves to: over the reference
// BLAS it runs on one thread at a few GFLOP/s, so point LD_LIBRARY_PATH at an
// OpenBLAS libblas.so.3 for a fair comparison.
#include <cholmod.h>
#include <dlfcn.h>
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/kernels.h"

using namespace kelt;
using bench::clock_type;
using bench::cpu_seconds;
using bench::factor_flops;
using bench::seconds_since;
using sparse_index = SuiteSparse_long;

namespace {

cholmod_common cm; // started in main

// The simplicial run does about 1 GFLOP/s: beyond this it takes minutes.
constexpr unsigned simplicial_max_DOFs = 200000;



[[noreturn]] void fail(const char* what)
{
    std::printf("%s failed\n", what);
    std::exit(1);
}

// CHOLMOD threads through its BLAS, and a little through its own OpenMP loops.
// OpenBLAS is reached by name at run time, so that the program also runs over a
// BLAS that has no threads.
void set_CHOLMOD_threads(unsigned threads)
{
    omp_set_num_threads(int(threads));
    if (auto set = reinterpret_cast<void (*)(int)>(dlsym(RTLD_DEFAULT, "openblas_set_num_threads")))
        set(int(threads));
}

void print_BLAS()
{
    Dl_info info{};
    if (void* gemm = dlsym(RTLD_DEFAULT, "dgemm_"); gemm && dladdr(gemm, &info))
        std::printf("BLAS under CHOLMOD: %s\n", info.dli_fname);
    auto config = reinterpret_cast<char* (*)()>(dlsym(RTLD_DEFAULT, "openblas_get_config"));
    auto core = reinterpret_cast<char* (*)()>(dlsym(RTLD_DEFAULT, "openblas_get_corename"));
    if (config && core)
        std::printf("  OpenBLAS (%s, kernels %s): threads set with openblas_set_num_threads\n", config(), core());
    else
        std::printf("  not OpenBLAS: CHOLMOD's BLAS calls run on one thread whatever the thread count\n");
}


struct result {
    double analyse = 0, factor = 0, factor_cpu = 0, solve = 0;
    double nnz_L = 0, stored = 0, flops = 0, residual = 0, tip = 0;
};

void print(const char* name, const result& r)
{
    std::printf("    %-20s analyse %7.3f s, factorisation %8.3f s (processor %8.3f s), solve %6.3f s\n", name,
                r.analyse, r.factor, r.factor_cpu, r.solve);
    std::printf("    %-20s nnz(L) %.4e (%.4e stored), %.3e flops, %6.2f GFLOP/s, |Ax-b|/|b| %.1e, tip %.10e\n",
                "", r.nnz_L, r.stored, r.flops, r.flops / r.factor * 1e-9, r.residual, r.tip);
}

// One block: the engine's numbering and profile, and the same matrix for CHOLMOD
// in the order of the free DOF identifiers.
struct problem {
    bench::hexa8_block mesh;
    vector_fast free_IDs;
    core::profile_type profile;
    double t_order = 0;
    std::vector<unsigned> rank_of; // engine's rank of each CHOLMOD row
    sparse_index tip_row = 0;
    cholmod_sparse* A = nullptr;   // lower triangle
    cholmod_dense* b = nullptr;

    explicit problem(unsigned n) : mesh{4 * n, n, n}
    {
        dense1D<unsigned, 8> DOFs, clamped;
        std::vector<unsigned> ptr, ids;
        mesh.connectivity(DOFs, ptr, ids, clamped);
        const auto t0 = clock_type::now();
        std::uint64_t value_bytes = 0, index_bytes = 0;
        if (core::number_and_profile(DOFs, ptr, ids, clamped, false, free_IDs, profile, value_bytes, index_bytes) !=
            no_error)
            fail("numbering");
        t_order = seconds_since(t0);

        std::vector<sparse_index> row_of_ID(9 * mesh.nbr_nodes(), -1);
        for (unsigned i = 0; i < DOFs.size(); ++i)
            if (const unsigned r = free_IDs.rank(DOFs[i]); r != vector_fast::none) {
                row_of_ID[DOFs[i]] = sparse_index(rank_of.size());
                rank_of.push_back(r);
            }
        tip_row = row_of_ID[mesh.tip_DOF()];
        assemble(row_of_ID);

        const std::vector<double> f = mesh.load(free_IDs);
        b = cholmod_l_allocate_dense(rank_of.size(), 1, rank_of.size(), CHOLMOD_REAL, &cm);
        for (std::size_t i = 0; i < rank_of.size(); ++i) static_cast<double*>(b->x)[i] = f[rank_of[i]];
    }
    problem(const problem&) = delete;
    problem& operator=(const problem&) = delete;
    ~problem()
    {
        cholmod_l_free_sparse(&A, &cm);
        cholmod_l_free_dense(&b, &cm);
    }

    // Element by element into triplets; duplicates are summed on conversion. Zeros
    // are left out, as the engine's assembly does.
    void assemble(const std::vector<sparse_index>& row_of_ID)
    {
        const auto Ke = mesh.element_stiffness();
        const std::size_t max_entries = std::size_t(mesh.nx) * mesh.ny * mesh.nz * 300;
        const std::size_t rows = rank_of.size();
        cholmod_triplet* T = cholmod_l_allocate_triplet(rows, rows, max_entries, -1, CHOLMOD_REAL, &cm);
        if (!T) fail("triplet allocation");
        auto* Ti = static_cast<sparse_index*>(T->i);
        auto* Tj = static_cast<sparse_index*>(T->j);
        auto* Tx = static_cast<double*>(T->x);
        std::size_t k = 0;
        for (unsigned ez = 0; ez < mesh.nz; ++ez)
            for (unsigned ey = 0; ey < mesh.ny; ++ey)
                for (unsigned ex = 0; ex < mesh.nx; ++ex) {
                    const auto ids = mesh.element_DOFs(ex, ey, ez);
                    for (unsigned p = 0; p < 24; ++p)
                        for (unsigned q = p; q < 24; ++q) {
                            const sparse_index r = row_of_ID[ids[p]], s = row_of_ID[ids[q]];
                            if (r < 0 || s < 0 || Ke[p * 24 + q] == 0.0) continue;
                            Ti[k] = std::max(r, s), Tj[k] = std::min(r, s), Tx[k++] = Ke[p * 24 + q];
                        }
                }
        T->nnz = k;
        A = cholmod_l_triplet_to_sparse(T, 0, &cm);
        cholmod_l_free_triplet(&T, &cm);
        if (!A) fail("CHOLMOD matrix");
    }

    // |Ax - b| / |b| for x in CHOLMOD's rows, and the tip deflection.
    void check(cholmod_dense* x, result& out) const
    {
        cholmod_dense* r = cholmod_l_copy_dense(b, &cm);
        double one[2] = {1, 0}, minus_one[2] = {-1, 0};
        cholmod_l_sdmult(A, 0, one, minus_one, x, r, &cm);
        out.residual = cholmod_l_norm_dense(r, 2, &cm) / cholmod_l_norm_dense(b, 2, &cm);
        out.tip = static_cast<const double*>(x->x)[tip_row];
        cholmod_l_free_dense(&r, &cm);
    }
};

result run_engine(const problem& p, unsigned threads)
{
    const unsigned rows = p.free_IDs.size();
    result out;
    out.analyse = p.t_order;
    core::symmetric_hybrid_OOC<double> A;
    if (A.create(p.profile, rows) != no_error) fail("matrix allocation");
    p.mesh.assemble(p.free_IDs, A);
    out.flops = factor_flops(A);
    out.nnz_L = out.stored = double(A.proxy()->nbr_values());

    core::pivot_check_positive checker;
    auto t0 = clock_type::now();
    const double c0 = cpu_seconds();
    if (core::factorize(A, checker, 32u << 20, threads) != no_error) fail("factorisation");
    out.factor = seconds_since(t0), out.factor_cpu = cpu_seconds() - c0;

    std::vector<double> x = p.mesh.load(p.free_IDs);
    t0 = clock_type::now();
    double energy = 0.0;
    if (core::forward(A, x.data(), threads, energy) != no_error) fail("forward solve");
    if (core::backward(A, x.data(), threads) != no_error) fail("backward solve");
    out.solve = seconds_since(t0);

    // The residual against CHOLMOD's matrix also checks that both assemblies agree.
    cholmod_dense* y = cholmod_l_allocate_dense(rows, 1, rows, CHOLMOD_REAL, &cm);
    for (unsigned i = 0; i < rows; ++i) static_cast<double*>(y->x)[i] = x[p.rank_of[i]];
    p.check(y, out);
    cholmod_l_free_dense(&y, &cm);
    return out;
}

result run_cholmod(const problem& p, bool supernodal)
{
    cholmod_common* c = &cm;
    c->nmethods = 1;
    c->method[0].ordering = CHOLMOD_METIS;
    c->postorder = true;
    c->supernodal = supernodal ? CHOLMOD_SUPERNODAL : CHOLMOD_SIMPLICIAL;
    c->final_ll = false;
    result out;
    auto t0 = clock_type::now();
    cholmod_factor* L = cholmod_l_analyze(p.A, c);
    out.analyse = seconds_since(t0);
    if (!L || c->method[c->selected].ordering != CHOLMOD_METIS) fail("CHOLMOD analysis with METIS");
    out.nnz_L = c->lnz, out.flops = c->fl;

    t0 = clock_type::now();
    const double c0 = cpu_seconds();
    if (!cholmod_l_factorize(p.A, L, c) || c->status != CHOLMOD_OK) fail("CHOLMOD factorisation");
    out.factor = seconds_since(t0), out.factor_cpu = cpu_seconds() - c0;
    if (L->is_super)
        out.stored = double(L->xsize);
    else
        for (std::size_t j = 0; j < L->n; ++j) out.stored += double(static_cast<const sparse_index*>(L->nz)[j]);

    t0 = clock_type::now();
    cholmod_dense* x = cholmod_l_solve(CHOLMOD_A, L, p.b, c);
    out.solve = seconds_since(t0);
    if (!x) fail("CHOLMOD solve");
    p.check(x, out);
    cholmod_l_free_dense(&x, c);
    cholmod_l_free_factor(&L, c);
    return out;
}

void run(unsigned n)
{
    const problem p(n);
    const std::size_t rows = p.rank_of.size();
    std::printf("\n%u x %u x %u hexa8, %zu DOFs, %.4e nonzeros in the lower triangle, %u engine blocks\n", p.mesh.nx,
                p.mesh.ny, p.mesh.nz, rows, double(cholmod_l_nnz(p.A, &cm)), p.profile.size());
    for (unsigned threads : {1u, 2u}) {
        std::printf("  %u thread(s)\n", threads);
        set_CHOLMOD_threads(threads);
        const result ours = run_engine(p, threads);
        print("engine", ours);
        const result super = run_cholmod(p, true);
        print("CHOLMOD supernodal", super);
        // The simplicial factorisation calls no BLAS: one run tells all.
        if (threads == 1 && rows <= simplicial_max_DOFs)
            print("CHOLMOD simplicial", run_cholmod(p, false));
        else if (threads == 1)
            std::printf("    CHOLMOD simplicial   skipped above %u DOFs (minutes)\n", simplicial_max_DOFs);
        std::printf("    engine / CHOLMOD supernodal: factorisation time %.2f (processor time %.2f), solve time "
                    "%.2f, factor size %.3f (nnz(L) %.3f)\n",
                    ours.factor / super.factor, ours.factor_cpu / super.factor_cpu, ours.solve / super.solve,
                    ours.stored / super.stored, ours.nnz_L / super.nnz_L);
    }
}

} // namespace

int main(int argc, char** argv)
{
    cholmod_l_start(&cm);
    std::printf("kernels: %s, OpenMP threads available: %d\n", core::kernels().name, omp_get_max_threads());
    print_BLAS();
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(unsigned(std::atoi(argv[i])));
    if (sizes.empty()) sizes = {11, 20, 30};
    for (unsigned n : sizes) run(n);
    cholmod_l_finish(&cm);
}
