// A steel cantilever of hexa27 solids, perfectly plastic, under a tip
// load that grows until the section at the root can take no more: the plastic
// hinge. The load climbs in increments, each a Newton run continued from the
// last converged state and its plastic strains; an increment that does not
// converge is halved. Prints the load-deflection curve as P / (M_p / L), with
// M_p = sigma_y b h^2 / 4 the plastic moment of the rectangle, the tip
// deflection against the elastic line, and the iterations of each increment;
// checks that the last converged load lies above the first-yield load
// sigma_y b h^2 / (6 L), within 15 % of M_p / L, where the deflection runs away.
//
//   example_plastic_hinge [elements along the length]   (default 10; 1 x 2 across)
#include <kelt/fem.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "hexa27_grid.h"

using namespace kelt;

namespace {

// The beam: [0, L] x [0, b] x [0, h], held at x = 0.
constexpr double L = 10.0, b = 1.0, h = 1.0;
constexpr double E = 210000.0, nu = 0.3, sigma_y = 250.0;

} // namespace

int main(int argc, char** argv)
{
    const unsigned along = argc > 1 ? unsigned(std::atoi(argv[1])) : 10u;
    if (along < 1 || along > 100) {
        std::fprintf(stderr, "usage: %s [elements along the length, 1 to 100]\n", argv[0]);
        return 2;
    }
    const examples::hexa27_grid grid{along, 1, 2, L, b, h};

    fem::context ctx;
    ctx.set_max_threads(2);
    std::printf("kelt FEM %s, %u thread(s)\n", fem::version(), ctx.get_max_threads());

    fem::DOFs_mgr dofs(grid.nbr_nodes(), false);
    for (unsigned n = 0; n < grid.nbr_nodes(); ++n)
        if (dofs.set(n, displacement_tag, true) != no_error) return 1;
    // The root face is held as a plane of symmetry: no axial motion, and just
    // enough across (y on its vertical mid-line, z on its horizontal one) to
    // stop rigid motions. Its section may then contract as a beam's does; a
    // full clamp would restrain it and raise the collapse load by some 10 %.
    for (unsigned k = 0; k < grid.gz(); ++k)
        for (unsigned j = 0; j < grid.gy(); ++j) {
            const unsigned n = grid.node(0, j, k);
            if (dofs.set(n, displacement_tag, 0, false) != no_error ||
                (2 * j + 1 == grid.gy() && dofs.set(n, displacement_tag, 1, false) != no_error) ||
                (2 * k + 1 == grid.gz() && dofs.set(n, displacement_tag, 2, false) != no_error))
                return 1;
        }

    // E, nu, thermal expansion, tangent modulus 0 (no hardening), yield stress.
    fem::law_solid_ep_perfect steel;
    dense1D<double, 8> params;
    params.push_back(E), params.push_back(nu), params.push_back(0.0), params.push_back(0.0),
        params.push_back(sigma_y);
    fem::model_solid_lin solid;
    fem::numerical_model_stiff_lin model(ctx);
    if (steel.init(params) != no_error || solid.init(steel) != no_error ||
        model.init(ctx, solid, grid.connectivity(), element_hexa27) != no_error) {
        std::printf("model set-up failed\n");
        return 1;
    }
    dense2D<double> pos = grid.positions();
    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);

    // The reference load P_p = M_p / L as a uniform traction on the end face,
    // scaled by the time (evolution function 1): the time is the load factor.
    const double M_p = sigma_y * b * h * h / 4.0, P_p = M_p / L, P_y = sigma_y * b * h * h / (6.0 * L);
    const std::vector<double> wy = grid.line_weights(grid.ey), wz = grid.line_weights(grid.ez);
    const unsigned tip = grid.gx() - 1;
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    for (unsigned k = 0; k < grid.gz(); ++k)
        for (unsigned j = 0; j < grid.gy(); ++j) {
            const unsigned ID = fem::DOFs_mgr::ID(grid.node(tip, j, k), displacement_tag, 2);
            if (loads.record_DOF_load(ID, -P_p * wy[j] * wz[k], 1) != no_error) return 1;
        }
    const unsigned centre = fem::DOFs_mgr::ID(grid.node(tip, grid.gy() / 2, grid.gz() / 2), displacement_tag, 2);
    const double I = b * h * h * h / 12.0, elastic_per_load = L * L * L / (3.0 * E * I);

    std::printf("\nhexa27 mesh %u x %u x %u; beam %g x %g x %g, E %g, nu %g, sigma_y %g, no hardening\n", grid.ex,
                grid.ey, grid.ez, L, b, h, E, nu, sigma_y);
    std::printf("first yield P_y = sigma_y b h^2 / (6 L) = %.4f = %.4f M_p / L; M_p / L = %.4f\n\n", P_y, P_y / P_p,
                P_p);
    std::printf("  %10s %14s %16s %6s\n", "P / P_p", "deflection", "/ elastic line", "iters");

    // Increments of the load factor: 0.1 of P_p up to first yield, halved on
    // every failure, until an increment of 1/1000 fails too.
    fem::solver_static_Newton solver;
    solver.settings.max_iters = 25;
    fem::FEM_states state; // the last converged one, with its plastic strains
    double t = 0.0, dt = 0.1;
    unsigned total_iters = 0, increments = 0;
    while (dt >= 1e-3 && t < 2.0) {
        solver.settings.t_start = t, solver.settings.t_end = t + dt;
        fem::solver_static_Newton::data_type data(problem);
        data.U_start = state;
        solver.run(data);
        // Near collapse the tangent loses its stiffness: the iterations stall or
        // a pivot is no longer positive.
        if (data.error_code == non_convergence_error || data.error_code == pivot_error) {
            dt /= 2;
            continue;
        }
        if (data.error_raised()) {
            std::printf("run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
            return 1;
        }
        t += dt;
        state = data.U;
        total_iters += data.total_iters, ++increments;
        double w = 0.0;
        if (state.getID_val(centre, 0, w) != no_error) return 1;
        std::printf("  %10.4f %+14.6e %16.4f %6u\n", t, w, -w / (t * P_p * elastic_per_load), data.total_iters);
    }
    const double last = t * P_p;
    std::printf("\n%u increments, %u iterations; last converged load %.4f = %.4f M_p / L (%.2f P_y)\n", increments,
                total_iters, last, t, last / P_y);

    // The collapse load of a beam is M_p / L. The solid's comes out some 10 %
    // higher: near the root its stress is not uniaxial (the held face keeps the
    // section plane), and elements of displacements are stiff against the
    // volume-keeping plastic flow, so they approach collapse from above. The
    // curve must pass first yield, then flatten there: the last increment
    // multiplies the elastic deflection many times over.
    double w_last = 0.0;
    if (state.getID_val(centre, 0, w_last) != no_error) return 1;
    const double ratio_last = -w_last / (last * elastic_per_load);
    const bool ok = last > 1.2 * P_y && t > 0.95 && t < 1.15 && ratio_last > 5.0;
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
