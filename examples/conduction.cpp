// Steady heat conduction along a bar of hexa8 elements, two load cases in one
// run: (a) temperatures held at both ends, (b) the end x = 0 held and a heat flux
// entering the end x = L. Both fields are linear in x, which trilinear elements
// reproduce at the nodes; prints the temperature along the bar beside them, the
// heat the held ends give back beside the heat that flows through the bar, and
// exits non-zero on a mismatch.
//
//   example_conduction [elements along the length]   (default 20; 2 x 2 across)
#include <kelt/fem.h>
#include <kelt/fem/solver_reactions.h>
#include <kelt/fem/solver_static_linear.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace kelt;

namespace {

constexpr double L = 2.0, b = 0.1, h = 0.1; // m
constexpr double k = 50.0;                  // conductivity, W / (m K)
constexpr double T0 = 20.0, T1 = 120.0;     // held temperatures of case (a), deg C
constexpr double q = 5000.0;                // flux into the end x = L in case (b), W / m^2

struct bar_mesh {
    unsigned nx, ny, nz;

    unsigned node(unsigned i, unsigned j, unsigned l) const { return (l * (ny + 1) + j) * (nx + 1) + i; }
    unsigned nbr_nodes() const { return (nx + 1) * (ny + 1) * (nz + 1); }

    dense2D<double> positions() const
    {
        dense2D<double> pos(3, nbr_nodes());
        for (unsigned l = 0; l <= nz; ++l)
            for (unsigned j = 0; j <= ny; ++j)
                for (unsigned i = 0; i <= nx; ++i) {
                    pos(0, node(i, j, l)) = L * i / nx;
                    pos(1, node(i, j, l)) = b * j / ny;
                    pos(2, node(i, j, l)) = h * l / nz;
                }
        return pos;
    }

    // Corners in the hexa8 order: the face z = bottom counterclockwise, then above.
    dense2D<unsigned> connectivity() const
    {
        dense2D<unsigned> mesh(8, nx * ny * nz);
        unsigned e = 0;
        for (unsigned l = 0; l < nz; ++l)
            for (unsigned j = 0; j < ny; ++j)
                for (unsigned i = 0; i < nx; ++i, ++e) {
                    const unsigned c[8] = {node(i, j, l),         node(i + 1, j, l),
                                           node(i + 1, j + 1, l), node(i, j + 1, l),
                                           node(i, j, l + 1),     node(i + 1, j, l + 1),
                                           node(i + 1, j + 1, l + 1), node(i, j + 1, l + 1)};
                    for (unsigned a = 0; a < 8; ++a) mesh(a, e) = c[a];
                }
        return mesh;
    }

    // Share of a uniform flux on the end face that a node of it receives: a quarter
    // of each bilinear face around it.
    double face_share(unsigned j, unsigned l) const
    {
        const double wy = (j == 0 || j == ny) ? 0.5 : 1.0, wz = (l == 0 || l == nz) ? 0.5 : 1.0;
        return wy * wz / (ny * nz);
    }
};

void print_log(void*, unsigned level, const char* text)
{
    std::printf("  log %u | %*s%s", level, int(2 * level), "", text);
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned along = argc > 1 ? unsigned(std::atoi(argv[1])) : 20u;
    if (along < 1 || along > 1000) {
        std::fprintf(stderr, "usage: %s [elements along the length, 1 to 1000]\n", argv[0]);
        return 2;
    }
    const bar_mesh grid{along, 2, 2};

    fem::context ctx;
    ctx.set_max_threads(2);
    std::printf("kelt FEM %s, %u thread(s)\n", fem::version(), ctx.get_max_threads());

    // One temperature per node, all free: the held ends are load-case data.
    fem::DOFs_mgr dofs(grid.nbr_nodes(), false);
    for (unsigned n = 0; n < grid.nbr_nodes(); ++n)
        if (dofs.set(n, temperature_tag, true) != no_error) return 1;

    fem::law_scalar conductivity;
    fem::model_heat_conduction_3d physics;
    fem::numerical_model_heat_conduction model(ctx);
    if (conductivity.init(k) != no_error || physics.init(conductivity) != no_error ||
        model.init(ctx, physics, grid.connectivity(), element_hexa8) != no_error) {
        std::printf("model set-up failed\n");
        return 1;
    }
    dense2D<double> pos = grid.positions();
    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 2);

    // The end x = 0 is held in both cases, so it leaves the matrix; the end x = L
    // is held in (a) only, and that case is solved by the conjugate gradient.
    fem::loads_mgr held = problem.get_loads_mgr(0), heated = problem.get_loads_mgr(1);
    const double area = b * h;
    for (unsigned l = 0; l <= grid.nz; ++l)
        for (unsigned j = 0; j <= grid.ny; ++j) {
            const unsigned cold = fem::DOFs_mgr::ID(grid.node(0, j, l), temperature_tag, 0);
            const unsigned hot = fem::DOFs_mgr::ID(grid.node(grid.nx, j, l), temperature_tag, 0);
            if (held.record_DOF_prescribed_value(cold, T0, 0) != no_error ||
                held.record_DOF_prescribed_value(hot, T1, 0) != no_error ||
                heated.record_DOF_prescribed_value(cold, T0, 0) != no_error ||
                heated.record_DOF_load(hot, q * area * grid.face_share(j, l), 0) != no_error)
                return 1;
        }

    fem::solver_thermal_static_linear solver;
    solver.settings.log_hdl = print_log;
    fem::solver_thermal_static_linear::data_type data(problem);
    solver.run(data);
    if (data.error_raised()) {
        std::printf("run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return 1;
    }
    if (data.warning_raised()) std::printf("warning %d: %s\n", int(data.warning_code), data.msg_title);

    // Analytic fields: (a) T0 + (T1 - T0) x / L; (b) T0 + q x / k.
    std::printf("\nbar %g m long, section %g x %g m, k %g W/(m K); %u hexa8 along, %u free DOFs\n", L, b, h, k,
                grid.nx, data.nbr_free_DOFs);
    std::printf("%8s  %12s %12s  %12s %12s\n", "x (m)", "(a) T", "exact", "(b) T", "exact");
    double worst = 0.0;
    const unsigned every = grid.nx < 10 ? 1 : grid.nx / 10; // about ten printed sections
    for (unsigned i = 0; i <= grid.nx; ++i) {
        const double x = L * i / grid.nx;
        const double exact_a = T0 + (T1 - T0) * x / L, exact_b = T0 + q * x / k;
        // Every node of the section has the value of the section.
        for (unsigned l = 0; l <= grid.nz; ++l)
            for (unsigned j = 0; j <= grid.ny; ++j) {
                const unsigned ID = fem::DOFs_mgr::ID(grid.node(i, j, l), temperature_tag, 0);
                double Ta = 0.0, Tb = 0.0;
                if (data.U.getID_val(ID, 0, Ta) != no_error || data.U.getID_val(ID, 1, Tb) != no_error) return 1;
                worst = std::fmax(worst, std::fmax(std::fabs(Ta - exact_a) / (T1 - T0),
                                                   std::fabs(Tb - exact_b) / (q * L / k)));
                const bool printed = j == grid.ny / 2 && l == grid.nz / 2 && (i % every == 0 || i == grid.nx);
                if (printed)
                    std::printf("%8.3f  %12.6f %12.6f  %12.6f %12.6f\n", x, Ta, exact_a, Tb, exact_b);
            }
    }
    std::printf("largest gap to the linear field, relative to the rise along the bar: %.1e\n", worst);

    // The heat the held ends put in: in (a) the hot end supplies k A (T1 - T0) / L
    // and the cold end takes it out; in (b) the cold end takes out all of q A.
    fem::solver_reactions reactions;
    fem::solver_reactions::data_type held_ends(problem);
    held_ends.U = data.U;
    reactions.run(held_ends);
    if (held_ends.error_raised()) {
        std::printf("reactions failed: %s%s", held_ends.msg_title, held_ends.msg_detail);
        return 1;
    }
    double cold_a = 0.0, hot_a = 0.0, cold_b = 0.0;
    for (unsigned l = 0; l <= grid.nz; ++l)
        for (unsigned j = 0; j <= grid.ny; ++j) {
            const unsigned cold = fem::DOFs_mgr::ID(grid.node(0, j, l), temperature_tag, 0);
            const unsigned hot = fem::DOFs_mgr::ID(grid.node(grid.nx, j, l), temperature_tag, 0);
            double ca = 0.0, ha = 0.0, cb = 0.0;
            if (held_ends.reactions.getID_val(cold, 0, ca) != no_error ||
                held_ends.reactions.getID_val(hot, 0, ha) != no_error ||
                held_ends.reactions.getID_val(cold, 1, cb) != no_error)
                return 1;
            cold_a += ca, hot_a += ha, cold_b += cb;
        }
    const double flow_a = k * area * (T1 - T0) / L, flow_b = q * area;
    std::printf("(a) heat at the held ends: cold %+.6e, hot %+.6e W   k A (T1 - T0) / L = %.6e W\n", cold_a, hot_a,
                flow_a);
    std::printf("(b) heat at the cold end : %+.6e W   q A = %.6e W\n", cold_b, flow_b);
    const bool balanced = std::fabs(cold_a + flow_a) < 1e-6 * flow_a && std::fabs(hot_a - flow_a) < 1e-6 * flow_a &&
                          std::fabs(cold_b + flow_b) < 1e-9 * flow_b;

    // The fields lie in the elements' space, so the only error is the solve's:
    // rounding, and in (a) the gradient's relative tolerance 1e-8.
    const bool ok = worst < 1e-6 && balanced;
    // Every digit, for hosts in other languages that repeat this run and compare.
    if (std::getenv("KELT_EXACT"))
        std::printf("exact %.17g %.17g %.17g %.17g\n", worst, cold_a, hot_a, cold_b);
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
