// Factorisation and solve of a clamped hexa8 block in core and under memory
// budgets of 1/2, 1/4 and 1/8 of the factor: the time against in core and the
// bytes moved to and from the swap file. Run:
//   ooc_bench [n [threads [swap folder]]]   (block 4n x n x n; default 20 2 /tmp/)
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/engine/factorize.h"

using namespace kelt;
using bench::clock_type;
using bench::seconds_since;

namespace {

struct outcome {
    double assemble = 0, factor = 0, solve = 0, tip = 0;
    double read_MB = 0, written_MB = 0;
    bool ok = false;
};

outcome run_once(const bench::hexa8_block& mesh, const vector_fast& free_IDs, const core::profile_type& profile,
                 core::OOC_mgr* mgr, unsigned threads)
{
    outcome out;
    core::symmetric_hybrid_OOC<double> A;
    auto t0 = clock_type::now();
    if (A.create(profile, free_IDs.size(), 0.0, mgr) != no_error) return out;
    mesh.assemble(free_IDs, A);
    out.assemble = seconds_since(t0);
    core::pivot_check_positive checker;
    t0 = clock_type::now();
    if (core::factorize(A, checker, 32u << 20, threads) != no_error) return out;
    out.factor = seconds_since(t0);
    std::vector<double> x = mesh.load(free_IDs);
    t0 = clock_type::now();
    double energy = 0.0;
    if (core::forward(A, x.data(), threads, energy) != no_error) return out;
    if (core::backward(A, x.data(), threads) != no_error) return out;
    out.solve = seconds_since(t0);
    out.tip = x[free_IDs.rank(mesh.tip_DOF())];
    out.read_MB = double(A.proxy()->bytes_read()) / 1048576.0;
    out.written_MB = double(A.proxy()->bytes_written()) / 1048576.0;
    out.ok = true;
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned n = argc > 1 ? unsigned(std::atoi(argv[1])) : 20;
    const unsigned threads = argc > 2 ? unsigned(std::atoi(argv[2])) : 2;
    const std::string folder = argc > 3 ? argv[3] : "/tmp/";
    bench::hexa8_block mesh{4 * n, n, n};
    vector_fast free_IDs;
    core::profile_type profile;
    if (mesh.number(free_IDs, profile) < 0) {
        std::printf("numbering failed\n");
        return 1;
    }
    std::printf("%u x %u x %u hexa8, %u DOFs, %u thread(s), swap folder %s\n", mesh.nx, mesh.ny, mesh.nz,
                free_IDs.size(), threads, folder.c_str());
    const outcome base = run_once(mesh, free_IDs, profile, nullptr, threads);
    if (!base.ok) {
        std::printf("in-core run failed\n");
        return 1;
    }
    core::symmetric_hybrid_OOC<double> probe;
    (void)probe.create(profile, free_IDs.size());
    const double factor_MB = double((probe.proxy()->nbr_values() + probe.proxy()->nbr_segments()) * 8) / 1048576.0;
    probe.clear();
    std::printf("factor %.1f MB\n", factor_MB);
    std::printf("%-10s %10s %10s %10s %10s %8s %12s %12s %16s\n", "budget", "MB", "assembly s", "factor s",
                "solve s", "ratio", "read MB", "written MB", "tip");
    std::printf("%-10s %10.1f %10.3f %10.3f %10.3f %8.2f %12.1f %12.1f %16.9e\n", "in core", factor_MB,
                base.assemble, base.factor, base.solve, 1.0, 0.0, 0.0, base.tip);
    for (unsigned part : {2u, 4u, 8u}) {
        Ptr<core::OOC_mgr> mgr = new core::OOC_mgr;
        const std::size_t slash = folder.find_last_of('/', folder.size() - 2);
        const std::string root = folder.substr(0, slash + 1), name = folder.substr(slash + 1);
        const double budget = factor_MB * 1048576.0 / part;
        if (mgr->set_limit(unsigned(budget), root.c_str(), name.c_str()) != no_error) {
            std::printf("swap folder refused\n");
            return 1;
        }
        const outcome o = run_once(mesh, free_IDs, profile, mgr.get(), threads);
        char label[16];
        std::snprintf(label, sizeof label, "1/%u", part);
        if (!o.ok) {
            std::printf("%-10s run failed\n", label);
            continue;
        }
        std::printf("%-10s %10.1f %10.3f %10.3f %10.3f %8.2f %12.1f %12.1f %16.9e\n", label, budget / 1048576.0,
                    o.assemble, o.factor, o.solve, o.factor / base.factor, o.read_MB, o.written_MB, o.tip);
    }
}
