// Factorisation benchmark on clamped hexa8 blocks of shape 4:1:1: ordering and
// profile, assembly, factorisation and solve on 1 and 2 threads, the factor's size,
// its flop count and rate, and the residual of the solve. Run:
//   factor_bench [n ...]   (blocks 4n x n x n; default 11 20 30)
#include <omp.h>

#include <chrono>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/core/process_mgr.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/kernels.h"
#include "kelt/engine/multiply.h"

using namespace kelt;
using bench::clock_type;
using bench::cpu_seconds;
using bench::factor_flops;
using bench::seconds_since;

namespace {

// The cache size the library finds on this machine, as a context would use it.
const unsigned LLC_size = Ptr<core::process_mgr>(new core::process_mgr)->LLC_size;

void run(unsigned n)
{
    bench::hexa8_block mesh{4 * n, n, n};
    vector_fast free_IDs;
    core::profile_type profile;
    const double t_order = mesh.number(free_IDs, profile);
    if (t_order < 0) {
        std::printf("numbering failed\n");
        return;
    }
    auto t0 = clock_type::now();
    const unsigned rows = free_IDs.size();
    std::printf("\n%u x %u x %u hexa8, %u DOFs, %u blocks\n", mesh.nx, mesh.ny, mesh.nz, rows, profile.size());
    std::printf("  ordering and profile : %8.3f s\n", t_order);

    const std::vector<double> f = mesh.load(free_IDs);
    for (unsigned threads : {1u, 2u}) {
        core::symmetric_hybrid_OOC<double> A, K;
        t0 = clock_type::now();
        if (A.create(profile, rows) != no_error || K.create(profile, rows) != no_error) {
            std::printf("  matrix allocation failed\n");
            return;
        }
        mesh.assemble(free_IDs, A);
        const double t_assemble = seconds_since(t0);
        mesh.assemble(free_IDs, K);
        const double flops = factor_flops(A);

        core::pivot_check_positive checker;
        t0 = clock_type::now();
        const double c0 = cpu_seconds();
        const error_type e = core::factorize(A, checker, LLC_size, threads);
        const double t_factor = seconds_since(t0), c_factor = cpu_seconds() - c0;
        if (e != no_error) {
            std::printf("  factorisation failed: %d\n", int(e));
            return;
        }
        std::vector<double> x = f;
        t0 = clock_type::now();
        double energy = 0.0;
        (void)core::forward(A, x.data(), threads, energy);
        (void)core::backward(A, x.data(), threads);
        const double t_solve = seconds_since(t0);

        std::vector<double> r(rows, 0.0);
        core::multiply(K, 1.0, x.data(), r.data(), 1);
        double rn = 0.0, fn = 0.0;
        for (unsigned i = 0; i < rows; ++i) rn += (r[i] - f[i]) * (r[i] - f[i]), fn += f[i] * f[i];
        const double tip = x[free_IDs.rank(mesh.tip_DOF())];
        std::printf("  %u thread(s): assembly %.3f s, factorisation %8.3f s (%.2e flops, %6.2f GFLOP/s; processor "
                    "time %.3f s), solve %.3f s\n",
                    threads, t_assemble, t_factor, flops, flops / t_factor * 1e-9, c_factor, t_solve);
        std::printf("    factor %zu values (%.1f MB), residual |Ax-b|/|b| = %.2e, tip deflection %.9e\n",
                    A.proxy()->nbr_values(), A.proxy()->nbr_values() * 8.0 / 1048576.0, std::sqrt(rn / fn), tip);
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::printf("kernels: %s, OpenMP threads available: %d, last-level cache %u bytes\n", core::kernels().name,
                omp_get_max_threads(), LLC_size);
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(unsigned(std::atoi(argv[i])));
    if (sizes.empty()) sizes = {11, 20, 30};
    for (unsigned n : sizes) run(n);
}
