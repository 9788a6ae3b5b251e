// Euler buckling of a steel column of 20 beams, 6 m long, a square tube 0.2 x 0.2
// x 0.01, under a unit thrust: pinned at both ends and clamped at its base and
// free at its top. Prints the two lowest critical loads of each beside
// pi^2 E I / (K L)^2 (K = 1 pinned, 2 for the cantilever; the second mode at 4 and
// 9 times the first in a symmetric tube: here the modes come in pairs, one per
// plane), and exits non-zero when the first differs by more than 0.5 % from
// Engesser's P = Pe / (1 + Pe / (G As)), the Euler load less the shear of the
// tube's webs (0.9 % pinned, 0.2 % for the cantilever).
//
//   example_column
#include <kelt/fem.h>

#include <cmath>
#include <cstdio>

using namespace kelt;

namespace {

constexpr double Lc = 6.0, E = 210e9, nu = 0.3, pi = 3.141592653589793;
constexpr double A = 0.2 * 0.2 - 0.18 * 0.18, I = (0.2 * 0.2 * 0.2 * 0.2 - 0.18 * 0.18 * 0.18 * 0.18) / 12.0;
constexpr unsigned n = 20;

void print_log(void*, unsigned level, const char* text)
{
    if (level <= 1) std::printf("  log %u | %*s%s", level, int(2 * level), "", text);
}

// The first critical load of the column, 0 on failure.
double critical_load(bool pinned, double& second)
{
    fem::context ctx;
    ctx.set_max_threads(2);
    dense2D<double> pos(3, n + 1);
    for (unsigned i = 0; i <= n; ++i) pos(2, i) = Lc * i / n;
    fem::DOFs_mgr dofs(n + 1, false);
    for (unsigned i = 0; i <= n; ++i)
        if (dofs.set(i, displacement_tag, true) != no_error || dofs.set(i, rotation_tag, true) != no_error) return 0.0;
    bool ok = dofs.set(0, displacement_tag, false) == no_error;
    if (pinned)
        ok = ok && dofs.set(0, rotation_tag, 2, false) == no_error &&
             dofs.set(n, displacement_tag, 0, 1, false) == no_error;
    else
        ok = ok && dofs.set(0, rotation_tag, false) == no_error;
    const double G = E / (2.0 * (1.0 + nu));
    const double v[15] = {1, 0, 0, E, G, 0.0, A, 0.5 * A, 0.5 * A, 2.0 * I, I, I, 0, 0, 0};
    dense1D<double, 8> d(22, 0.0);
    for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
    dense2D<unsigned> cells(2, n);
    for (unsigned e = 0; e < n; ++e) cells(0, e) = e, cells(1, e) = e + 1;
    fem::law_beam_StVenant law;
    fem::model_beam_lin physics;
    fem::numerical_model_stiff_lin model(ctx);
    if (!ok || law.init(d) != no_error || physics.init(law) != no_error ||
        model.init(ctx, physics, cells, element_edge2) != no_error)
        return 0.0;
    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    if (loads.record_DOF_load(fem::DOFs_mgr::ID(n, displacement_tag, 2), -1.0, 0xFFFFFFFFu) != no_error) return 0.0;

    fem::solver_buckling_Euler solver;
    solver.settings.nbr_modes = 4;
    solver.settings.tolerance = 1e-8;
    solver.settings.log_hdl = print_log;
    fem::solver_buckling_Euler::data_type data(problem);
    solver.run(data);
    if (data.error_raised() || data.lambdas.size() < 4) {
        std::printf("run failed: %d %s%s\n", int(data.error_code), data.msg_title, data.msg_detail);
        return 0.0;
    }
    second = data.lambdas[2];
    return data.lambdas[0];
}

} // namespace

int main()
{
    std::printf("kelt FEM %s: Euler loads of a tube column, L = %g m, E I = %.4e N m2\n", fem::version(), Lc, E * I);
    bool ok = true;
    for (const bool pinned : {true, false}) {
        const double K = pinned ? 1.0 : 2.0, Pe = pi * pi * E * I / (K * Lc * K * Lc);
        double second = 0.0;
        // The webs carry the shear: As = A / 2.
        const double G = E / (2.0 * (1.0 + nu)), Pg = Pe / (1.0 + Pe / (G * 0.5 * A));
        const double P = critical_load(pinned, second);
        const double gap = std::fabs(P - Pg) / Pg;
        std::printf("%s: P1 %.6e N  pi^2 E I / (K L)^2 %.6e N  with shear %.6e N  gap %.3f %%;  P2 / P1 %.3f "
                    "(theory %g)\n",
                    pinned ? "pinned    " : "cantilever", P, Pe, Pg, 100.0 * gap, P > 0.0 ? second / P : 0.0,
                    pinned ? 4.0 : 9.0);
        ok = ok && gap < 5e-3;
    }
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
