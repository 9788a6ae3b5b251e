// The whole static run through the public solver, as a host would make it: build
// the in-memory model of a clamped hexa8 block of 4n x n x n elements, then one
// solver_static_linear run (numbering, assembly, factorisation, solve). Prints the
// record's phase times, the wall time from model to U, the factor's size and the
// peak memory, for each size and thread count. Each case runs in a child process
// of its own, so that its peak memory is its own. Run:
//   static_bench [-t 1,2] [-v] [n ...]
// Default sizes 10 20 30 (1.5e4, 1.1e5 and 3.5e5 DOFs) on 1 and 2 threads. The
// factor of a block grows as n^4: n = 43 (1.0e6 DOFs) needs about 14 GB, so on a
// smaller machine set a budget and let the matrix go to disk. -v prints the run log. n = 20
// is the reference block 80 x 20 x 20, whose tip deflection is printed beside the
// value other solvers give.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/fem.h"
#include "kelt/fem/solver_static_linear.h"

using namespace kelt;
using bench::clock_type;
using bench::seconds_since;

namespace {

// Deflection of the reference block at its tip node (last x, middle y, middle z),
// on which independent sparse direct solvers agree to all printed digits.
constexpr double reference_tip = -1.253668712e-03;

// What a case sends back to the parent through its pipe.
struct case_result {
    unsigned n = 0, threads = 0, DOFs = 0;
    int error = 0;
    double build = 0, numbering = 0, K_assembly = 0, RHS_assembly = 0, factorization = 0, resolution = 0,
           total = 0, wall = 0, cpu = 0, K_MB = 0, profile_MB = 0, tip = 0, peak_MB = 0;
};

struct log_capture {
    bool verbose = false;
    double profile_MB = 0.0; // of the last "profile" statistics line: the factor
};

void capture_log(void* user, unsigned level, const char* text)
{
    auto& c = *static_cast<log_capture*>(user);
    if (c.verbose) std::printf("    log %u | %s", level, text);
    if (const char* p = std::strstr(text, "profile"); p && level == 3) {
        unsigned long long values = 0;
        double mb = 0.0;
        if (std::sscanf(p, "profile : %llu (%lf MB)", &values, &mb) == 2) c.profile_MB = mb;
    }
}

// The model of the block through the public interface, and its single load case:
// the total load in -z shared equally by the nodes of the face x = lx.
case_result run_case(unsigned n, unsigned threads, bool verbose)
{
    case_result r;
    r.n = n;
    r.threads = threads;
    const bench::hexa8_block block{4 * n, n, n};
    const auto t0 = clock_type::now();

    fem::context ctx;
    ctx.set_max_threads(threads);
    dense2D<double> pos = block.positions();
    fem::DOFs_mgr DOFs = block.clamped_DOFs();
    const bench::block_solid solid(ctx, block);
    if (!solid.ok) {
        r.error = int(invalid_data_error);
        return r;
    }
    fem::problem_data problem(ctx, pos, DOFs, solid.model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    const double share = block.total_load / ((block.ny + 1) * (block.nz + 1));
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j)
            (void)loads.record_nodal_load(block.node(block.nx, j, k), displacement_tag, 2, share, 0);
    r.build = seconds_since(t0);

    log_capture capture{verbose};
    fem::solver_static_linear solver;
    solver.settings.log_hdl = capture_log;
    solver.settings.user_data = &capture;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    r.wall = seconds_since(t0);

    r.error = int(data.error_code);
    r.DOFs = data.nbr_free_DOFs;
    r.numbering = data.time_numbering;
    r.K_assembly = data.time_K_assembly;
    r.RHS_assembly = data.time_RHS_assembly;
    r.factorization = data.time_factorization;
    r.resolution = data.time_resolution;
    r.total = data.time_total;
    r.K_MB = data.K_size_MB;
    r.profile_MB = capture.profile_MB;
    if (data.error_raised()) std::printf("    run failed: %d %s%s", r.error, data.msg_title, data.msg_detail);
    else if (data.U.getID_val(block.tip_DOF(), 0, r.tip) != no_error) r.error = int(invalid_data_error);
    return r;
}

double peak_MB(const rusage& use) { return double(use.ru_maxrss) / 1024.0; } // ru_maxrss is in KiB

// Runs the case in a child, which reports through a pipe; the child's own peak
// resident size and processor time come from wait4.
bool run_in_child(unsigned n, unsigned threads, bool verbose, case_result& out)
{
    int fds[2];
    if (pipe(fds) != 0) return false;
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        close(fds[0]);
        const case_result r = run_case(n, threads, verbose);
        std::fflush(stdout);
        const bool sent = write(fds[1], &r, sizeof r) == ssize_t(sizeof r);
        _exit(sent ? 0 : 1);
    }
    close(fds[1]);
    const bool got = read(fds[0], &out, sizeof out) == ssize_t(sizeof out);
    close(fds[0]);
    int status = 0;
    rusage use{};
    if (wait4(pid, &status, 0, &use) != pid || !got || !WIFEXITED(status)) return false;
    out.peak_MB = peak_MB(use);
    out.cpu = double(use.ru_utime.tv_sec) + double(use.ru_stime.tv_sec) +
              1e-6 * double(use.ru_utime.tv_usec + use.ru_stime.tv_usec);
    return true;
}

std::vector<unsigned> parse_list(const char* text)
{
    std::vector<unsigned> values;
    for (const char* p = text; *p;) {
        char* end = nullptr;
        const unsigned long v = std::strtoul(p, &end, 10);
        if (end == p) break;
        values.push_back(unsigned(v));
        p = *end ? end + 1 : end;
    }
    return values;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<unsigned> sizes, threads{1, 2};
    bool verbose = false;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-v")) verbose = true;
        else if (!std::strcmp(argv[i], "-t") && i + 1 < argc) threads = parse_list(argv[++i]);
        else if (const unsigned n = unsigned(std::atoi(argv[i])); n > 0 && n < 200) sizes.push_back(n);
        else {
            std::fprintf(stderr, "usage: %s [-t 1,2] [-v] [n ...]\n", argv[0]);
            return 2;
        }
    }
    if (sizes.empty()) sizes = {10, 20, 30};

    std::printf("kelt FEM %s: static linear run on clamped hexa8 blocks 4n x n x n, E 210000, nu 0.3, "
                "total load -1 in z on the face x = 4\n", fem::version());
    std::vector<case_result> results;
    for (unsigned n : sizes)
        for (unsigned t : threads) {
            std::printf("n = %u (%u x %u x %u), %u thread(s)\n", n, 4 * n, n, n, t);
            case_result r;
            if (!run_in_child(n, t, verbose, r)) {
                std::printf("    the case did not finish\n");
                continue;
            }
            std::printf("    %u DOFs: build %.2f, numbering %.2f, K assembly %.2f, RHS %.2f, factorisation %.2f, "
                        "resolution %.2f, total %.2f s; wall model to U %.2f s\n",
                        r.DOFs, r.build, r.numbering, r.K_assembly, r.RHS_assembly, r.factorization, r.resolution,
                        r.total, r.wall);
            std::printf("    factor %.1f MB (K estimate %.1f MB), peak resident %.1f MB, tip deflection %.9e\n",
                        r.profile_MB, r.K_MB, r.peak_MB, r.tip);
            if (n == 20)
                std::printf("    reference block: tip %.9e against %.9e, relative gap %.1e\n", r.tip, reference_tip,
                            std::fabs(r.tip - reference_tip) / std::fabs(reference_tip));
            results.push_back(r);
        }

    // Seconds, but for the sizes; "cpu" is the processor time of the whole case.
    std::printf("\n%4s %3s %9s %7s %7s %7s %7s %8s %7s %8s %8s %8s %9s %9s %16s\n", "n", "thr", "DOFs", "build",
                "number", "K asm", "RHS", "factor", "solve", "total", "wall", "cpu", "factor MB", "peak MB", "tip");
    for (const case_result& r : results)
        std::printf("%4u %3u %9u %7.2f %7.2f %7.2f %7.2f %8.2f %7.2f %8.2f %8.2f %8.2f %9.1f %9.1f %16.9e%s\n", r.n,
                    r.threads, r.DOFs, r.build, r.numbering, r.K_assembly, r.RHS_assembly, r.factorization,
                    r.resolution, r.total, r.wall, r.cpu, r.profile_MB, r.peak_MB, r.tip, r.error ? "  FAILED" : "");
    for (const case_result& r : results)
        if (r.error) return 1;
    return 0;
}
