// Newmark steps on the static bench's clamped hexa8 block (4n x n x n, stiffness and
// mass) under a tip load applied at t = 0, on 2 threads: the time per step after
// the factorisation beside one forward and backward solve of the same effective
// matrix, factored again here through the phases. A step is one right-hand side
// assembly and one solve, so the two should be close. Run:
//   newmark_bench [n] [steps] [threads]     (default 20 200 2: the reference block 80 x 20 x 20)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench_support.h"
#include "hexa8_block.h"
#include "kelt/fem.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/solver_Newmark.h"

using namespace kelt;
using bench::clock_type;
using bench::seconds_since;

int main(int argc, char** argv)
{
    const unsigned n = argc > 1 ? unsigned(std::atoi(argv[1])) : 20u, steps = argc > 2 ? unsigned(std::atoi(argv[2])) : 200u;
    const unsigned threads = argc > 3 ? unsigned(std::atoi(argv[3])) : 2u;
    if (n < 1 || n > 60 || steps < 1 || threads < 1) {
        std::fprintf(stderr, "usage: %s [n, 1 to 60] [steps] [threads]\n", argv[0]);
        return 2;
    }
    const bench::hexa8_block block{4 * n, n, n};
    fem::context ctx;
    ctx.set_max_threads(threads);
    const unsigned nodes = block.nbr_nodes();
    dense2D<double> pos(3, nodes);
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j)
            for (unsigned i = 0; i <= block.nx; ++i) {
                const unsigned node = block.node(i, j, k);
                pos(0, node) = block.lx * i / block.nx, pos(1, node) = block.ly * j / block.ny;
                pos(2, node) = block.lz * k / block.nz;
            }
    dense2D<unsigned> mesh(8, block.nx * block.ny * block.nz);
    unsigned e = 0;
    for (unsigned k = 0; k < block.nz; ++k)
        for (unsigned j = 0; j < block.ny; ++j)
            for (unsigned i = 0; i < block.nx; ++i, ++e) {
                const auto ids = block.element_DOFs(i, j, k);
                for (unsigned a = 0; a < 8; ++a) mesh(a, e) = ids[3 * a] / 9;
            }
    fem::DOFs_mgr DOFs(nodes, true);
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j) (void)DOFs.set(block.node(0, j, k), displacement_tag, false);

    fem::law_solid_StVenant law;
    dense1D<double, 8> params;
    params.push_back(block.E), params.push_back(block.nu), params.push_back(0.0);
    fem::law_scalar density;
    fem::model_solid_lin physics;
    fem::model_solid_mass inertia;
    fem::numerical_model_stiff_lin stiffness(ctx);
    fem::numerical_model_mass mass(ctx);
    fem::numerical_model_composite model(ctx);
    if (law.init(params) != no_error || physics.init(law) != no_error || density.init(7.85e-9) != no_error ||
        inertia.init(density) != no_error || stiffness.init(ctx, physics, mesh, element_hexa8) != no_error ||
        mass.init(ctx, inertia, mesh, element_hexa8) != no_error || model.insert(stiffness.get_ID()) != no_error ||
        model.insert(mass.get_ID()) != no_error)
        return 1;
    fem::problem_data problem(ctx, pos, DOFs, model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    const double share = block.total_load / ((block.ny + 1) * (block.nz + 1));
    for (unsigned k = 0; k <= block.nz; ++k)
        for (unsigned j = 0; j <= block.ny; ++j)
            (void)loads.record_nodal_load(block.node(block.nx, j, k), displacement_tag, 2, share, 0);

    fem::solver_Newmark solver;
    solver.settings.dt = 1e-5;
    solver.settings.t_end = steps * solver.settings.dt;
    solver.settings.output_period = steps; // one output: the bench times the steps, not the disk
    fem::solver_Newmark::data_type data(problem);
    const auto t0 = clock_type::now();
    solver.run(data);
    const double wall = seconds_since(t0);
    if (data.error_raised()) {
        std::printf("run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return 1;
    }

    // One forward and backward solve with the factor of the same effective matrix.
    auto& p = *static_cast<core::problem_data*>(fem::core_of(problem));
    fem::run_status status;
    core::run_state run(solver.settings, status);
    run.set_problem(&p, true);
    core::numbering num;
    core::indexed_sym_matrix K;
    core::factor_report report;
    double timer = 0.0;
    const double b = solver.settings.beta * solver.settings.dt * solver.settings.dt;
    if (!core::number_DOFs(run, *p.model(), {core::kind_stiffness, core::kind_mass, core::kind_damping}, {}, num, timer) ||
        !core::assemble_matrix(run, *p.model(), core::kind_mass, core::make_pass(p), num, K, timer) ||
        !core::assemble_matrix(run, *p.model(), core::kind_stiffness, core::make_pass(p), num, K, timer, b, true) ||
        !core::factorise(run, K.matrix, num, core::factor_options{}, report, timer))
        return 1;
    std::vector<double> x(num.size(), 1.0);
    double* column = x.data();
    double energy = 0.0, solve = 1e300;
    for (unsigned r = 0; r < 3; ++r) { // the best of three
        const auto t1 = clock_type::now();
        if (!core::solve_columns(run, K.matrix, &column, 1, &energy)) return 1;
        solve = std::min(solve, seconds_since(t1));
    }
    const double per_step = data.time_resolution / data.nbr_steps_done;
    std::printf("block %u x %u x %u hexa8, %zu DOFs, %u thread(s), %u steps\n", block.nx, block.ny, block.nz, x.size(),
                ctx.get_max_threads(), data.nbr_steps_done);
    std::printf("  numbering %.2f s, K_eff assembly %.2f s, factorisation %.2f s, steps %.2f s, run %.2f s\n",
                data.time_numbering, data.time_K_assembly, data.time_factorization, data.time_resolution, wall);
    std::printf("  time per step %.4f s; one forward + backward solve %.4f s; ratio %.2f\n", per_step, solve,
                per_step / solve);
    return 0;
}
