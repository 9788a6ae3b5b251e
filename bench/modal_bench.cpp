// The modal run through the public solver, as a host would make it: the clamped
// hexa8 block of 4n x n x n elements of the static bench (E 210000, nu 0.3) with
// a density of 7.85e-9, then one solver_modal run for its lowest modes. Prints
// each phase's time from the record, the wall time from model to modes, the peak
// memory and the frequencies. Run:
//   modal_bench [-t threads] [-m modes] [-v] [n]
// Defaults: 2 threads, 10 modes, n = 20 (the reference block 80 x 20 x 20,
// 105,840 DOFs, whose first frequency is a pair, the section being square).
// -v prints the run log.
#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/fem.h"
#include "kelt/fem/solver_modal.h"

using namespace kelt;
using bench::clock_type;
using bench::seconds_since;

namespace {

constexpr double density = 7.85e-9;

void print_log(void* user, unsigned level, const char* text)
{
    if (*static_cast<bool*>(user)) std::printf("    log %u | %s", level, text);
}

} // namespace

int main(int argc, char** argv)
{
    unsigned n = 20, threads = 2, modes = 10;
    bool verbose = false;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "-v")) verbose = true;
        else if (!std::strcmp(argv[i], "-t") && i + 1 < argc) threads = unsigned(std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "-m") && i + 1 < argc) modes = unsigned(std::atoi(argv[++i]));
        else if (const int v = std::atoi(argv[i]); v > 0 && v < 200) n = unsigned(v);
        else {
            std::fprintf(stderr, "usage: %s [-t threads] [-m modes] [-v] [n]\n", argv[0]);
            return 2;
        }
    }
    const bench::hexa8_block block{4 * n, n, n};
    std::printf("kelt FEM %s: modal run on the clamped hexa8 block %u x %u x %u, E %g, nu %g, density %g, "
                "%u modes, %u thread(s)\n",
                fem::version(), block.nx, block.ny, block.nz, block.E, block.nu, density, modes, threads);
    const auto t0 = clock_type::now();

    fem::context ctx;
    ctx.set_max_threads(threads);
    dense2D<double> pos = block.positions();
    const dense2D<unsigned> mesh = block.cells();
    fem::DOFs_mgr DOFs = block.clamped_DOFs();

    fem::law_solid_StVenant law;
    dense1D<double, 8> params;
    params.push_back(block.E), params.push_back(block.nu), params.push_back(0.0);
    fem::law_scalar rho;
    fem::model_solid_lin physics;
    fem::model_solid_mass inertia;
    fem::numerical_model_stiff_lin stiffness(ctx);
    fem::numerical_model_mass mass(ctx);
    fem::numerical_model_composite both(ctx);
    if (law.init(params) != no_error || physics.init(law) != no_error || rho.init(density) != no_error ||
        inertia.init(rho) != no_error || stiffness.init(ctx, physics, mesh, element_hexa8) != no_error ||
        mass.init(ctx, inertia, mesh, element_hexa8) != no_error || both.insert(stiffness.get_ID()) != no_error ||
        both.insert(mass.get_ID()) != no_error) {
        std::printf("    the model could not be built\n");
        return 1;
    }
    fem::problem_data problem(ctx, pos, DOFs, both.get_ID(), 0);
    const double build = seconds_since(t0);

    fem::solver_modal solver;
    solver.settings.max_modes = modes;
    solver.settings.log_hdl = print_log;
    solver.settings.user_data = &verbose;
    fem::solver_modal::data_type data(problem);
    solver.run(data);
    const double wall = seconds_since(t0);
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    const double cpu = double(use.ru_utime.tv_sec) + double(use.ru_stime.tv_sec) +
                       1e-6 * double(use.ru_utime.tv_usec + use.ru_stime.tv_usec);

    if (data.error_raised()) {
        std::printf("    run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return 1;
    }
    std::printf("    %u DOFs: build %.2f, numbering %.2f, K assembly %.2f, M assembly %.2f, factorisation %.2f, "
                "resolution %.2f, total %.2f s; wall model to modes %.2f s, processor %.2f s, peak resident %.1f MB\n",
                data.nbr_free_DOFs, build, data.time_numbering, data.time_K_assembly, data.time_M_assembly,
                data.time_factorization, data.time_resolution, data.time_total, wall, cpu,
                double(use.ru_maxrss) / 1024.0);
    if (data.warning_raised()) std::printf("    warning %d: %s\n", int(data.warning_code), data.msg_title);
    std::printf("    frequencies (Hz):");
    for (unsigned i = 0; i < data.freqs.size(); ++i) std::printf(" %.6g", data.freqs[i]);
    std::printf("\n");
    // The summary row that a comparison script reads: n, threads, DOFs, wall, cpu, peak MB, first frequency.
    std::printf("summary %u %u %u %.2f %.2f %.1f %.6f\n", n, threads, data.nbr_free_DOFs, wall, cpu,
                double(use.ru_maxrss) / 1024.0, data.freqs.size() ? data.freqs[0] : 0.0);
    return 0;
}
