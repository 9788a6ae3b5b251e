// What the numbering alone predicts of a static run against what the run then
// takes: for each clamped hexa8 block of 4n x n x n elements, the estimate of
// solver_static_linear (factor size, flops, time from the context's measured
// rate), then the run, with the ratio of measured to estimated factorisation
// time. With -p the run is made again with a progress handler on the context
// (reports at most ten a second), and the cost of the reports is printed. Run:
//   estimate_bench [-t threads] [-p] [n ...]
// Default sizes 20 and 30: the reference blocks of 105,840 and 345,960 DOFs
// (the second needs a few GB and some minutes; on a shared machine try n = 6).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/fem.h"
#include "kelt/fem/solver_static_linear.h"

using namespace kelt;

namespace {

// Counts the reports; a host would draw a bar.
void count_report(void* user, const char*, double, double) { ++*static_cast<unsigned*>(user); }

int run_case(unsigned n, unsigned threads, bool with_progress)
{
    const bench::hexa8_block block{4 * n, n, n};
    fem::context ctx;
    ctx.set_max_threads(threads);
    dense2D<double> pos = block.positions();
    fem::DOFs_mgr DOFs = block.clamped_DOFs();
    const bench::block_solid solid(ctx, block);
    if (!solid.ok) {
        std::printf("    the model could not be built\n");
        return 1;
    }
    fem::problem_data problem(ctx, pos, DOFs, solid.model.get_ID(), 1);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);

    const auto t0 = bench::clock_type::now();
    fem::run_estimate e;
    if (solver.estimate(data, e) != no_error) {
        std::printf("    the estimate failed\n");
        return 1;
    }
    const double estimating = bench::seconds_since(t0);
    solver.run(data);
    if (data.error_raised()) {
        std::printf("    run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return 1;
    }
    std::printf("  n = %u, %u DOFs, %u thread(s): factor %.1f MB, %.3g flops, peak in core %.1f MB, least %.1f MB; estimate "
                "took %.2f s (numbering %.2f s), rate %.2f Gflop/s\n",
                n, e.nbr_free_DOFs, threads, double(e.factor_bytes) / 1048576.0, e.factor_flops,
                double(e.peak_incore_bytes) / 1048576.0, double(e.least_incore_bytes) / 1048576.0, estimating, data.time_numbering, e.flop_rate * 1e-9);
    std::printf("    factorisation: estimated %.2f s, measured %.2f s, measured / estimated %.2f\n",
                e.factor_seconds, data.time_factorization,
                e.factor_seconds > 0.0 ? data.time_factorization / e.factor_seconds : 0.0);
    if (!with_progress) return 0;
    unsigned reports = 0;
    ctx.set_progress_handler(count_report, &reports);
    fem::solver_static_linear::data_type again(problem);
    solver.run(again);
    ctx.set_progress_handler(nullptr, nullptr);
    std::printf("    with progress (%u reports): factorisation %.2f s, total %.2f s; without: %.2f s, %.2f s\n",
                reports, again.time_factorization, again.time_total, data.time_factorization, data.time_total);
    return again.error_raised() ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    unsigned threads = 2;
    bool with_progress = false;
    std::vector<unsigned> sizes;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-t") && i + 1 < argc) threads = unsigned(std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "-p")) with_progress = true;
        else if (const int v = std::atoi(argv[i]); v > 0 && v < 200) sizes.push_back(unsigned(v));
        else {
            std::fprintf(stderr, "usage: %s [-t threads] [-p] [n ...]\n", argv[0]);
            return 2;
        }
    }
    if (sizes.empty()) sizes = {20, 30};
    std::printf("kelt FEM %s: estimated against measured factorisation of clamped hexa8 blocks\n", fem::version());
    int failures = 0;
    for (unsigned n : sizes) failures += run_case(n, threads, with_progress);
    return failures ? 1 : 0;
}
