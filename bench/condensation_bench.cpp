// Static condensation of the static bench's clamped hexa8 block (4n x n x n
// elements) to its loaded face x = lx: 3 (n + 1)^2 master DOFs, 1323 for the
// reference block n = 20. Each size is condensed twice through the public solver:
// the coupling columns solved in groups (the many-column solve) and one column per
// solve, and prints the phase times of both, so that the resolution times stand
// side by side. Run:
//   condensation_bench [-t threads] [n ...]
// Default size 20 (1.1e5 DOFs) on 2 threads.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/fem.h"

using namespace kelt;
using bench::clock_type;
using bench::seconds_since;

namespace {

int run_case(unsigned n, unsigned threads)
{
    const bench::hexa8_block block{4 * n, n, n};
    fem::context ctx;
    ctx.set_max_threads(threads);
    dense2D<double> pos = block.positions();
    fem::DOFs_mgr DOFs = block.clamped_DOFs();
    const bench::block_solid solid(ctx, block);
    if (!solid.ok) return 1;
    fem::problem_data problem(ctx, pos, DOFs, solid.model.get_ID(), 1);
    fem::solver_condensation_static::data_type data(problem);
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j)
            for (unsigned c = 0; c < 3; ++c)
                data.master_IDs.push_back(fem::DOFs_mgr::ID(block.node(block.nx, j, k), displacement_tag, c));

    std::printf("n = %u, %u threads, %u masters\n", n, threads, data.master_IDs.size());
    std::printf("  %-22s %9s %9s %9s %9s %9s %9s\n", "columns per solve", "interior", "number", "K1", "factor",
                "resolve", "wall");
    double Kc_first = 0.0;
    for (unsigned block_size : {0u, 1u}) {
        fem::solver_condensation_static solver;
        solver.settings.mode = 2;
        solver.settings.block_size = block_size;
        const auto t0 = clock_type::now();
        solver.run(data);
        const double wall = seconds_since(t0);
        if (data.error_raised()) {
            std::printf("  run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
            return 1;
        }
        std::printf("  %-22s %9u %9.2f %9.2f %9.2f %9.2f %9.2f\n", block_size ? "1" : "groups (64)",
                    data.nbr_free_DOFs, data.time_numbering, data.time_K_assembly, data.time_factorization,
                    data.time_resolution, wall);
        if (block_size == 0) Kc_first = data.Kc(0, 0);
        else if (std::fabs(data.Kc(0, 0) - Kc_first) > 1e-9 * std::fabs(Kc_first))
            std::printf("  Kc differs between the two: %.15e %.15e\n", Kc_first, data.Kc(0, 0));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    unsigned threads = 2;
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-t") && i + 1 < argc) threads = unsigned(std::atoi(argv[++i]));
        else sizes.push_back(unsigned(std::atoi(argv[i])));
    }
    if (sizes.empty()) sizes.push_back(20);
    for (unsigned n : sizes)
        if (n == 0 || run_case(n, threads) != 0) return 1;
    return 0;
}
