// A two-storey steel frame whose floors are rigid diaphragms: four columns per
// storey clamped at the base, stiff floor beams round each floor, and a node at
// the centre of each floor, tied to its corners by a rigid_diaphragm_lin, which
// takes the lateral load. Prints the storey drifts beside the shear-building hand
// calculation, and exits non-zero when they disagree beyond the tolerance below.
//
//   example_rigid_floor
#include <kelt/fem.h>
#include <kelt/fem/solver_static_linear.h>

#include <cmath>
#include <cstdio>

using namespace kelt;

namespace {

constexpr double B = 6.0, D = 4.0, h = 3.5; // bay along x, along y, storey height (m)
constexpr double E = 210e9, nu = 0.3;
// Columns: a square tube 0.2 x 0.2 x 0.01; floor beams stiffer by 1000 in bending
// and in shear (a beam stiff in bending alone is held back by its shear), so that
// the floors hold the column ends square.
constexpr double A_c = 0.2 * 0.2 - 0.18 * 0.18, I_c = (0.2 * 0.2 * 0.2 * 0.2 - 0.18 * 0.18 * 0.18 * 0.18) / 12.0;
constexpr double As_c = 0.5 * A_c, J_c = 2.0 * I_c;
constexpr double I_b = 1000.0 * I_c, As_b = 1000.0 * As_c;
// The shear building takes the columns as rigid along their axis: without that the
// overturning moment tilts the floors, and each tilt leans every storey above.
constexpr double A_axial = 1000.0 * A_c;
constexpr double P[2] = {30e3, 20e3}; // N along x at the first floor and at the roof

// Corner c of level l (0 the base, 1, 2 the floors) is node 4 l + c, at
// (B (c & 1), D (c >> 1), l h); the centre of floor f (1, 2) is node 11 + f.
constexpr unsigned corner(unsigned level, unsigned c) { return 4 * level + c; }
constexpr unsigned centre(unsigned floor) { return 11 + floor; }

dense1D<double, 8> section(double y0, double y1, double y2, double A, double As, double I)
{
    const double G = E / (2.0 * (1.0 + nu));
    const double v[15] = {y0, y1, y2, E, G, 0.0, A, As, As, J_c, I, I, 0.0, 0.0, 0.0};
    dense1D<double, 8> d(22, 0.0);
    for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
    return d;
}

double gap(double value, double reference) { return std::fabs(value - reference) / std::fabs(reference); }

} // namespace

int main()
{
    fem::context ctx;
    ctx.set_max_threads(2);
    std::printf("kelt FEM %s: a two-storey frame %g x %g m, storeys of %g m, rigid floors\n", fem::version(), B, D, h);

    dense2D<double> pos(3, 14);
    for (unsigned level = 0; level < 3; ++level)
        for (unsigned c = 0; c < 4; ++c) {
            const unsigned n = corner(level, c);
            pos(0, n) = B * (c & 1), pos(1, n) = D * (c >> 1), pos(2, n) = level * h;
        }
    for (unsigned f = 1; f <= 2; ++f) pos(0, centre(f)) = B / 2, pos(1, centre(f)) = D / 2, pos(2, centre(f)) = f * h;

    // The corners of the floors are free; a centre node has only what its
    // diaphragm holds: the two translations in the floor and the turn about z.
    fem::DOFs_mgr dofs(14, false);
    for (unsigned n = corner(1, 0); n <= corner(2, 3); ++n)
        if (dofs.set(n, displacement_tag, true) != no_error || dofs.set(n, rotation_tag, true) != no_error) return 1;
    for (unsigned f = 1; f <= 2; ++f)
        if (dofs.set(centre(f), displacement_tag, 0, 1, true) != no_error ||
            dofs.set(centre(f), rotation_tag, 2, true) != no_error)
            return 1;

    dense2D<unsigned> columns(2, 8), beams(2, 8);
    for (unsigned s = 0; s < 2; ++s)
        for (unsigned c = 0; c < 4; ++c) columns(0, 4 * s + c) = corner(s, c), columns(1, 4 * s + c) = corner(s + 1, c);
    const unsigned sides[4][2] = {{0, 1}, {2, 3}, {0, 2}, {1, 3}};
    for (unsigned f = 0; f < 2; ++f)
        for (unsigned e = 0; e < 4; ++e)
            beams(0, 4 * f + e) = corner(f + 1, sides[e][0]), beams(1, 4 * f + e) = corner(f + 1, sides[e][1]);

    // Columns: local y along global y; beams: local y up.
    fem::law_beam_StVenant column_law, beam_law;
    fem::model_beam_lin column_physics, beam_physics;
    fem::numerical_model_stiff_lin column_model(ctx), beam_model(ctx);
    if (column_law.init(section(0, 1, 0, A_axial, As_c, I_c)) != no_error || beam_law.init(section(0, 0, 1, A_c, As_b, I_b)) != no_error ||
        column_physics.init(column_law) != no_error || beam_physics.init(beam_law) != no_error ||
        column_model.init(ctx, column_physics, columns, element_edge2) != no_error ||
        beam_model.init(ctx, beam_physics, beams, element_edge2) != no_error) {
        std::printf("model set-up failed\n");
        return 1;
    }
    fem::numerical_model_composite frame(ctx);
    if (frame.insert(column_model.get_ID()) != no_error || frame.insert(beam_model.get_ID()) != no_error) return 1;
    fem::rigid_diaphragm_lin floors[2] = {fem::rigid_diaphragm_lin(ctx), fem::rigid_diaphragm_lin(ctx)};
    for (unsigned f = 1; f <= 2; ++f) {
        dense1D<unsigned, 8> nodes;
        nodes.push_back(centre(f)); // the master
        for (unsigned c = 0; c < 4; ++c) nodes.push_back(corner(f, c));
        if (floors[f - 1].init(nodes, 2) != no_error || frame.insert(floors[f - 1].get_ID()) != no_error) return 1;
    }

    fem::problem_data problem(ctx, pos, dofs, frame.get_ID(), 1);
    fem::loads_mgr lateral = problem.get_loads_mgr(0);
    for (unsigned f = 1; f <= 2; ++f)
        if (lateral.record_DOF_load(fem::DOFs_mgr::ID(centre(f), displacement_tag, 0), P[f - 1], 0) != no_error)
            return 1;

    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    if (data.error_raised()) {
        std::printf("run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return 1;
    }

    // Shear building: each column clamped at both ends by floors that do not turn,
    // k = 12 E I / (h^3 (1 + phi)) with phi = 12 E I / (G As h^2) for the shear of
    // a Timoshenko column; a storey of four columns carries the loads above it.
    const double G = E / (2.0 * (1.0 + nu)), phi = 12.0 * E * I_c / (G * As_c * h * h);
    const double K = 4.0 * 12.0 * E * I_c / (h * h * h * (1.0 + phi));
    const double shear[2] = {P[0] + P[1], P[1]};
    double below = 0.0, worst = 0.0, spread = 0.0;
    std::printf("\nstorey  shear (N)   drift (m)      hand V / K (m)  gap\n");
    for (unsigned f = 1; f <= 2; ++f) {
        double u = 0.0, lo = 1e300, hi = -1e300;
        if (data.U.getID_val(fem::DOFs_mgr::ID(centre(f), displacement_tag, 0), 0, u) != no_error) return 1;
        // The diaphragm moves the corners with the centre: the spread of their
        // sway is the floor's in-plane deformation.
        for (unsigned c = 0; c < 4; ++c) {
            double v = 0.0;
            if (data.U.getID_val(fem::DOFs_mgr::ID(corner(f, c), displacement_tag, 0), 0, v) != no_error) return 1;
            lo = std::fmin(lo, v), hi = std::fmax(hi, v);
        }
        spread = std::fmax(spread, (hi - lo) / std::fabs(u));
        const double drift = u - below, hand = shear[f - 1] / K;
        worst = std::fmax(worst, gap(drift, hand));
        std::printf("%5u  %10.1f  %.6e  %.6e    %.3f %%\n", f, shear[f - 1], drift, hand, 100.0 * gap(drift, hand));
        below = u;
    }
    std::printf("largest spread of the corners' sway within a floor: %.1e of the sway\n", spread);

    // Tolerances: the hand calculation holds the floors square. The floor beams,
    // 1000 times stiffer than the columns, still let the joints turn, by about the
    // ratio of the columns' end stiffness to the beams', 4 E I_c / h against
    // 2 x 6 E I_b / B: a few tenths of a percent of drift, more in the upper storey
    // whose both ends turn; 1 %. The corners of a floor move as one to the
    // penalty's accuracy, the ratio of the frame's stiffness to the penalty, at
    // most 1e-4 by default.
    const bool ok = worst < 1e-2 && spread < 1e-3;
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
