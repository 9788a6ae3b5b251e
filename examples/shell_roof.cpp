// The Scordelis-Lo barrel roof: a cylindrical shell of radius 25, length 50 and
// thickness 0.25 (E 4.32e8, nu 0) spanning an 80 degree arc, carried at both ends by
// diaphragms (rigid in their plane, free out of it), free along its straight edges,
// under its self-weight of 90 per unit area. A quarter is meshed with quadrilateral
// shells (edge-tied transverse shear, drilling penalty) from 4 x 4 to 16 x 16, and
// the vertical deflection at the middle of a free edge is printed beside the
// reference value 0.3024. Exits non-zero when the finest mesh is more than 2 % off,
// or when the meshes do not approach the reference.
#include <kelt/fem.h>
#include <kelt/fem/solver_static_linear.h>

#include <cmath>
#include <cstdio>
#include <vector>

using namespace kelt;

namespace {

constexpr double R = 25.0, L = 50.0, t = 0.25, E = 4.32e8, nu = 0.0, weight = 90.0;
constexpr double arc = 40.0 * 3.14159265358979323846 / 180.0; // half the arc
constexpr double reference = 0.3024;
constexpr unsigned no_func = 0xFFFFFFFFu;

// The quarter x in [0, L/2], phi in [0, arc] from the crown; y = R sin phi, z = R cos phi.
struct quarter {
    unsigned n;
    unsigned node(unsigned i, unsigned j) const { return j * (n + 1) + i; }
    unsigned nbr_nodes() const { return (n + 1) * (n + 1); }
};

// The deflection at the middle of the free edge, downward positive; NAN on failure.
double midside_deflection(unsigned n)
{
    const quarter q{n};
    fem::context ctx;
    ctx.set_max_threads(2);
    dense2D<double> pos(3, q.nbr_nodes());
    for (unsigned j = 0; j <= n; ++j)
        for (unsigned i = 0; i <= n; ++i) {
            const double phi = arc * j / n;
            pos(0, q.node(i, j)) = 0.5 * L * i / n;
            pos(1, q.node(i, j)) = R * std::sin(phi);
            pos(2, q.node(i, j)) = R * std::cos(phi);
        }
    dense2D<unsigned> cells(4, n * n);
    for (unsigned j = 0, e = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i, ++e) {
            cells(0, e) = q.node(i, j);
            cells(1, e) = q.node(i + 1, j);
            cells(2, e) = q.node(i + 1, j + 1);
            cells(3, e) = q.node(i, j + 1);
        }

    fem::DOFs_mgr dofs(q.nbr_nodes(), false);
    for (unsigned a = 0; a < q.nbr_nodes(); ++a)
        if (dofs.set(a, displacement_tag, true) != no_error || dofs.set(a, rotation_tag, true) != no_error)
            return NAN;

    fem::law_shell_StVenant law;
    dense1D<double, 8> params;
    for (double v : {E, nu, 0.0, t}) params.push_back(v);
    fem::model_shell_lin shell;
    fem::numerical_model_stiff_lin model(ctx);
    if (law.init(params) != no_error || shell.init(law) != no_error ||
        model.init(ctx, shell, cells, element_faceQ4) != no_error)
        return NAN;

    fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);
    fem::loads_mgr loads = problem.get_loads_mgr(0);
    // Self-weight: a force per unit area (element load kind 1), downward.
    fem::elementary_load gravity;
    gravity.kind = 1;
    for (double v : {0.0, 0.0, -weight}) gravity.values.push_back(v);
    for (unsigned e = 0; e < n * n; ++e)
        if (loads.record_NM_load(model.get_ID(), e, gravity, no_func) != no_error) return NAN;
    // Supports as prescribed zeros: diaphragm at x = 0 (v, w), symmetry at x = L/2
    // (u and the rotations about y and z), symmetry at the crown (v and the
    // rotations about x and z).
    const auto hold = [&](unsigned node, field_tag f, unsigned c) {
        return loads.record_DOF_prescribed_value(fem::DOFs_mgr::ID(node, f, c), 0.0, no_func) == no_error;
    };
    bool ok = true;
    for (unsigned k = 0; k <= n; ++k) {
        ok = ok && hold(q.node(0, k), displacement_tag, 1) && hold(q.node(0, k), displacement_tag, 2);
        ok = ok && hold(q.node(n, k), displacement_tag, 0) && hold(q.node(n, k), rotation_tag, 1) &&
             hold(q.node(n, k), rotation_tag, 2);
        ok = ok && hold(q.node(k, 0), displacement_tag, 1) && hold(q.node(k, 0), rotation_tag, 0) &&
             hold(q.node(k, 0), rotation_tag, 2);
    }
    if (!ok) return NAN;

    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    if (data.error_raised()) {
        std::printf("run failed: %d %s%s", int(data.error_code), data.msg_title, data.msg_detail);
        return NAN;
    }
    double w = 0.0;
    if (data.U.getID_val(fem::DOFs_mgr::ID(q.node(n, n), displacement_tag, 2), 0, w) != no_error) return NAN;
    return -w;
}

} // namespace

int main()
{
    std::printf("kelt FEM %s: Scordelis-Lo roof, quarter in quadrilateral shells\n", fem::version());
    std::printf("  mesh      midside deflection   reference   ratio\n");
    std::vector<double> gaps;
    double finest = NAN;
    for (unsigned n : {4u, 8u, 12u, 16u}) {
        const double w = midside_deflection(n);
        if (!std::isfinite(w)) return 1;
        std::printf("  %2u x %-2u   %.5f              %.4f      %.4f\n", n, n, w, reference, w / reference);
        gaps.push_back(std::fabs(w - reference));
        finest = w;
    }
    // The published value has four figures and the 16 x 16 quarter is a fine mesh
    // for this element: 2 %. The gap also narrows from the coarsest to the finest.
    const bool ok = std::fabs(finest - reference) < 0.02 * reference && gaps.back() < gaps.front();
    std::printf("%s\n", ok ? "checks passed" : "CHECK FAILED");
    return ok ? 0 : 1;
}
