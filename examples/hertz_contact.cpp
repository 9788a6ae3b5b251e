// A rigid ball of radius R = 1 pressed d = 0.01 into an elastic block (E = 1000,
// nu = 0, so E* = E): the force beside Hertz's F = 4/3 E* sqrt(R) d^1.5, with the
// contact radius a = sqrt(R d) = 0.1. A quarter of the block, 6 = 60 a each way, on
// its symmetry planes x = 0 and y = 0, its base held, its top nodes the slaves of a
// contact_sphere whose master, the ball's centre, is moved down by d; 7³ hexa27
// graded towards the contact. Solved by Newton; exits non-zero when the force is
// not within 5 % of Hertz's.
//
//   example_hertz_contact
#include <kelt/fem.h>
#include <kelt/fem/solver_static_Newton.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "hexa27_grid.h"

using namespace kelt;

namespace {

constexpr double R = 1.0, d = 0.01, E = 1000.0, size = 6.0;
constexpr unsigned cells = 7;
// The contact's stiffness: nodal forces of a few tenths sink a few 1e-4 of d.
constexpr double k = 1e5;

// From the unit cube to the block: linear near the contact, its first cell half of
// a across, cubic beyond, so that the far field costs few cells.
double graded(double x)
{
    constexpr double fine = 0.05 * cells / size;
    return size * (fine * x + (1 - fine) * x * x * x);
}

} // namespace

int main()
{
    fem::context ctx;
    ctx.set_max_threads(1);
    std::printf("kelt FEM %s: a rigid ball of radius %g pressed %g into a block, E = %g, nu = 0\n", fem::version(), R,
                d, E);

    // Node (i, j, k) of the grid at (graded x, graded y, -graded (1 - z)): the top
    // is z = 0, the contact at its corner; one node more, the ball's centre.
    const examples::hexa27_grid grid{cells, cells, cells, 1.0, 1.0, 1.0};
    const dense2D<double> unit = grid.positions();
    const unsigned n = grid.nbr_nodes(), centre = n;
    dense2D<double> pos(3, n + 1, 0.0);
    fem::DOFs_mgr dofs(n + 1, true);
    dense1D<unsigned, 8> top;
    for (unsigned i = 0; i < n; ++i) {
        pos(0, i) = graded(unit(0, i)), pos(1, i) = graded(unit(1, i)), pos(2, i) = -graded(1 - unit(2, i));
        for (unsigned c = 0; c < 2; ++c)
            if (unit(c, i) == 0.0 && dofs.set(i, displacement_tag, c, false) != no_error) return 1;
        if (unit(2, i) == 0.0 && dofs.set(i, displacement_tag, false) != no_error) return 1;
        if (unit(2, i) == 1.0) top.push_back(i);
    }
    pos(2, centre) = R * (1 - 1e-9); // a touch of overlap, so that the first tangent has the contact

    fem::law_solid_StVenant law;
    dense1D<double, 8> params;
    params.push_back(E), params.push_back(0.0), params.push_back(0.0);
    fem::model_solid_lin solid;
    fem::numerical_model_stiff_lin block(ctx);
    fem::contact_sphere ball(ctx);
    fem::numerical_model_composite all(ctx);
    if (law.init(params) != no_error || solid.init(law) != no_error ||
        block.init(ctx, solid, grid.connectivity(), element_hexa27) != no_error ||
        ball.init(top, centre, R, std::numeric_limits<double>::max(), k, true) != no_error ||
        all.insert(block.get_ID()) != no_error || all.insert(ball.get_ID()) != no_error) {
        std::printf("model set-up failed\n");
        return 1;
    }
    fem::problem_data problem(ctx, pos, dofs, all.get_ID(), 1);
    fem::loads_mgr press = problem.get_loads_mgr(0);
    for (unsigned c = 0; c < 3; ++c)
        if (press.record_DOF_prescribed_value(fem::DOFs_mgr::ID(centre, displacement_tag, c), c == 2 ? -d : 0.0,
                                              0xFFFFFFFFu) != no_error)
            return 1;

    fem::solver_static_Newton solver;
    fem::solver_static_Newton::data_type result(problem);
    solver.run(result);
    if (result.error_raised()) {
        std::printf("run failed: %d %s%s", int(result.error_code), result.msg_title, result.msg_detail);
        return 1;
    }

    // The force of the ball: k times each slave's penetration along its normal,
    // four times over for the quarter.
    double F = 0.0;
    for (unsigned i : top) {
        double x[3];
        for (unsigned c = 0; c < 3; ++c) {
            double u = 0.0; // 0 where a symmetry plane holds it
            (void)result.U.getID_val(fem::DOFs_mgr::ID(i, displacement_tag, c), 0, u);
            x[c] = pos(c, i) + u - (c == 2 ? pos(2, centre) - d : 0.0);
        }
        const double r = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
        if (r < R) F += 4.0 * k * (R - r) * -x[2] / r;
    }
    const double Hertz = 4.0 / 3.0 * E * std::sqrt(R) * std::pow(d, 1.5), gap = std::fabs(F - Hertz) / Hertz;
    std::printf("Newton iterations: %u\n", result.total_iters);
    std::printf("force (N)   : %.5f\nHertz (N)   : %.5f  gap %.2f %%\n", F, Hertz, 100 * gap);

    // Tolerance: the base held at the depth D = 6 stiffens the block by about
    // Boussinesq's displacement there, (4/3) (3 / 2 pi) a / D = 1 % of d; the rest
    // of the 5 % is the mesh's, a few nodes a side inside the contact circle.
    const bool ok = gap < 0.05;
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
