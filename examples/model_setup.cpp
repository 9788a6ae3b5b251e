// Sets up what a static analysis of a clamped bar needs before any solver: the
// context, the degrees of freedom of 11 nodes with the end x = 0 clamped, a load
// ramp in time and a stress-strain curve. Prints them and checks that the free
// DOF count is the 10 unclamped nodes' translations and that the ramp and the
// curve reproduce their straight lines. Exits non-zero on a mismatch.
#include <kelt/fem.h>

#include <cmath>
#include <cstdio>

using namespace kelt;

int main()
{
    fem::context ctx;
    ctx.set_max_threads(2);
    std::printf("kelt FEM %s, %u thread(s), last-level cache %u KiB\n", fem::version(), ctx.get_max_threads(),
                ctx.get_LLC_size() / 1024);

    // A bar of 11 nodes carrying translations only; node 0 is clamped.
    const unsigned nodes = 11;
    fem::DOFs_mgr dofs(nodes, false);
    for (unsigned n = 0; n < nodes; ++n)
        if (dofs.set(n, displacement_tag, true) != no_error) return 1;
    if (dofs.set(0, displacement_tag, false) != no_error) return 1;
    std::printf("DOF table: %u nodes, %u slots, %u free, %u blocked\n", dofs.nbr_nodes(), dofs.size(),
                dofs.nbr_DOFs(true), dofs.nbr_DOFs(false));

    // Load factor rising from 0 at t = 0 to 1 at t = 2.
    fem::evolution_funcs_mgr funcs = ctx.the_evol_funcs_mgr();
    const unsigned ramp = funcs.create_trapeze(0.0, 2.0, 0.0, 1.0);
    double worst_ramp = 0.0;
    for (double t = 0.0; t < 2.0; t += 0.25) {
        std::printf("  t = %4.2f  load factor %.4f\n", t, funcs.value(ramp, t));
        worst_ramp = std::fmax(worst_ramp, std::fabs(funcs.value(ramp, t) - t / 2.0));
    }

    // An elastic-perfectly-plastic curve: E = 210000, yield at 235.
    dense1D<double> strains(3), stresses(3);
    strains[0] = 0.0, strains[1] = 235.0 / 210000.0, strains[2] = 0.05;
    stresses[0] = 0.0, stresses[1] = 235.0, stresses[2] = 235.0;
    fem::oneD_table curve(strains, stresses);
    const double elastic = curve(0.5e-3), plastic = curve(0.01);
    std::printf("curve: stress %.3f at strain 0.0005 (E x strain = %.3f), %.3f at 0.01\n", elastic,
                210000.0 * 0.5e-3, plastic);

    const bool ok = dofs.nbr_DOFs(true) == 3 * (nodes - 1) && worst_ramp < 1e-15 &&
                    std::fabs(elastic - 105.0) < 1e-9 && plastic == 235.0;
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
