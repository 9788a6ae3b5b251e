// The Newton run of a clamped hexa8 block of 4n x n x n elements, perfectly
// plastic, under an end load ramped in 10 steps to 1.45 times the load at which
// the root first yields (sigma_y b h^2 / (6 x 4)): full Newton (K rebuilt every
// iteration) against K_update_mode 1 (K rebuilt in the first step only, then
// kept). Prints per case the record's phase times (K assembly with its residual,
// factorisation, and the rest of the step loop: solves, residual-only passes and
// commits), the iterations of each step and the tip deflection. Run:
//   newton_bench [-t threads] [n ...]     (default n = 4, 2 threads)
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

constexpr double sigma_y = 250.0;

struct case_result {
    int error = 0;
    unsigned DOFs = 0, total_iters = 0;
    std::vector<unsigned> iters;
    double numbering = 0, K_assembly = 0, factorization = 0, loop = 0, total = 0, wall = 0, cpu = 0, tip = 0;
};

case_result run_case(unsigned n, unsigned threads, unsigned K_update_mode)
{
    case_result r;
    bench::hexa8_block block{4 * n, n, n};
    // The root moment 4 P reaches the first-yield moment sigma_y b h^2 / 6 at
    // P_y; the end load goes 45 % past it, just below the plastic limit 1.5 P_y.
    const double P_y = sigma_y * block.ly * block.lz * block.lz / 6.0 / block.lx;
    block.total_load = -1.45 * P_y;
    fem::context ctx;
    ctx.set_max_threads(threads);
    dense2D<double> pos = block.positions();
    fem::DOFs_mgr DOFs = block.clamped_DOFs();
    fem::law_solid_ep_perfect law;
    dense1D<double, 8> params;
    params.push_back(block.E), params.push_back(block.nu), params.push_back(0.0), params.push_back(0.0),
        params.push_back(sigma_y);
    fem::model_solid_lin physics;
    fem::numerical_model_stiff_lin model(ctx);
    if (law.init(params) != no_error || physics.init(law) != no_error ||
        model.init(ctx, physics, block.cells(), element_hexa8) != no_error) {
        r.error = int(invalid_data_error);
        return r;
    }
    fem::problem_data problem(ctx, pos, DOFs, model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    const double share = block.total_load / ((block.ny + 1) * (block.nz + 1));
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j)
            (void)loads.record_nodal_load(block.node(block.nx, j, k), displacement_tag, 2, share, 1); // times t

    fem::solver_static_Newton solver;
    solver.settings.nbr_steps = 10;
    solver.settings.K_update_mode = K_update_mode;
    solver.settings.K_update_period = K_update_mode == 1 ? 1000 : 1; // mode 1: the first step only
    solver.settings.max_iters = 200;
    fem::solver_static_Newton::data_type data(problem);
    const auto t0 = clock_type::now();
    const double c0 = bench::cpu_seconds();
    solver.run(data);
    r.wall = seconds_since(t0);
    r.cpu = bench::cpu_seconds() - c0;
    r.error = int(data.error_code);
    r.numbering = data.time_numbering;
    r.K_assembly = data.time_K_assembly;
    r.factorization = data.time_factorization;
    r.loop = data.time_resolution - data.time_K_assembly - data.time_factorization;
    r.total = data.time_total;
    r.total_iters = data.total_iters;
    for (unsigned k = 0; k < data.nbr_steps_done; ++k) r.iters.push_back(data.iters[k]);
    if (data.error_raised()) std::printf("    run failed: %d %s%s", r.error, data.msg_title, data.msg_detail);
    else {
        r.DOFs = data.U.rows(); // the free DOFs: nothing is prescribed
        const unsigned last = data.U.cols() - 1;
        if (data.U.getID_val(block.tip_DOF(), last, r.tip) != no_error) r.error = int(invalid_data_error);
    }
    return r;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<unsigned> sizes;
    unsigned threads = 2;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-t") && i + 1 < argc) threads = unsigned(std::atoi(argv[++i]));
        else if (const unsigned n = unsigned(std::atoi(argv[i])); n > 0 && n < 100) sizes.push_back(n);
        else {
            std::fprintf(stderr, "usage: %s [-t threads] [n ...]\n", argv[0]);
            return 2;
        }
    }
    if (sizes.empty()) sizes = {4};
    if (threads == 0) threads = 1;

    std::printf("kelt FEM %s: Newton run of clamped hexa8 blocks 4n x n x n, E 210000, nu 0.3, sigma_y %g, "
                "perfectly plastic, end load to 1.45 x first yield in 10 steps, %u thread(s)\n",
                fem::version(), sigma_y, threads);
    bool failed = false;
    for (unsigned n : sizes)
        for (unsigned mode : {2u, 1u}) {
            const case_result r = run_case(n, threads, mode);
            failed = failed || r.error != 0;
            std::printf("n = %u, %s: %u DOFs, %u iterations\n", n,
                        mode == 2 ? "full Newton (mode 2)" : "K of the first step (mode 1)", r.DOFs, r.total_iters);
            std::printf("    numbering %.3f, K assembly %.3f, factorisation %.3f, solves and residuals %.3f, "
                        "total %.3f s (wall %.3f, cpu %.3f)\n",
                        r.numbering, r.K_assembly, r.factorization, r.loop, r.total, r.wall, r.cpu);
            std::printf("    iterations per step:");
            for (unsigned i : r.iters) std::printf(" %u", i);
            std::printf("; tip deflection %+.9e%s\n", r.tip, r.error ? "  FAILED" : "");
        }
    return failed ? 1 : 0;
}
