// Line elements against closed forms: cantilevers of Timoshenko beams in both
// planes and with a rotated section, a thin beam that must not lock, a taper against
// an exact integral, the offset coupling of the section matrix, a statically
// indeterminate truss, a heated beam, rigid modes, masses, energies, threads and the
// refusals of bad geometry and of mismatched laws.
#include <array>
#include <cmath>
#include <functional>
#include <map>

#include "elements/element_test_support.h"
#include "kelt/elements/element_frame.h"
#include "kelt/core/finite_rotation.h"
#include "kelt/fem/numerical_models.h"
#include "kelt/laws/law_beam.h"
#include "kelt/laws/law_spring.h"

namespace kelt::test {
namespace {

using core::law_beam_StVenant;
using core::frame3;
using vec3 = double[3];

// n elements of `type` on the straight line from a to b.
test_mesh line_mesh(element_type type, unsigned n, const vec3& a, const vec3& b)
{
    const bool quad = type == element_edge3;
    const unsigned points = quad ? 2 * n + 1 : n + 1;
    test_mesh m{dense2D<double>(3, points), dense2D<unsigned>(quad ? 3 : 2, n), type};
    for (unsigned i = 0; i < points; ++i)
        for (unsigned k = 0; k < 3; ++k) m.pos(k, i) = a[k] + (b[k] - a[k]) * i / (points - 1);
    for (unsigned e = 0; e < n; ++e) {
        m.cells(0, e) = quad ? 2 * e : e;
        m.cells(1, e) = quad ? 2 * e + 2 : e + 1;
        if (quad) m.cells(2, e) = 2 * e + 1;
    }
    return m;
}

struct section_values {
    double y[3] = {0, 1, 0};
    double E = 200.0, G = 80.0, alpha = 0.0, A = 3.0, Ay = 2.5, Az = 2.5, J = 1.5, Iy = 2.0, Iz = 1.0, Iyz = 0.0,
           yc = 0.0, zc = 0.0;
};

Ptr<core::law_beam_stiff> beam_law(const section_values& s)
{
    Ptr<law_beam_StVenant> law = new law_beam_StVenant;
    const double v[15] = {s.y[0], s.y[1], s.y[2], s.E, s.G, s.alpha, s.A, s.Ay, s.Az, s.J, s.Iy, s.Iz, s.Iyz, s.yc, s.zc};
    dense1D<double, 8> d(22, 0.0);
    for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
    EXPECT_EQ(law->init(d), no_error);
    return law;
}

Ptr<core::physics_base> beam(const section_values& s, bool finite = false)
{
    return finite ? Ptr<core::physics_base>(new core::beam_finite(beam_law(s))) : new core::beam_small(beam_law(s));
}

Ptr<core::law_spring> spring_law(double k)
{
    Ptr<core::law_spring> law = new core::law_spring;
    dense1D<double, 8> d(3, 0.0);
    d[0] = k;
    EXPECT_EQ(law->init(d), no_error);
    return law;
}

// Every element of a model into K and f, with an optional thermal source.
error_type sum_elements(const core::numerical_model_base& model, const test_mesh& m, dense_assembler& K,
                        std::map<unsigned, double>& f, const core::DOF_values_view* U = nullptr,
                        const core::stress_mgr_thermal* thermal = nullptr,
                        core::matrix_mode_type mode = core::matrix_tangent, core::pass_kind kind = core::kind_stiffness)
{
    for (unsigned e = 0; e < m.cells.cols(); ++e) {
        element_run run;
        core::element_pass_type pass;
        pass.pos = m.pos;
        if (U) pass.U = *U;
        run.work.start(pass, model.ID);
        run.work.matrix_mode = mode;
        run.work.vector_mode = 1;
        run.work.element = e;
        run.work.thermal = thermal;
        if (auto err = model.compute_element(kind, run.work); err != no_error) return err;
        if (run.work.Ke.order()) (void)K.add_symmetric(run.work.Ke, run.work.DOFs, false);
        for (unsigned i = 0; i < run.work.Fe.size(); ++i) f[run.work.DOFs[i]] += run.work.Fe[i];
    }
    return no_error;
}

// K u = f with the DOFs for which `held` is true kept at 0; u by identifier.
std::map<unsigned, double> solve_held(const dense_assembler& K, const std::function<bool(unsigned)>& held,
                                      const std::map<unsigned, double>& f)
{
    std::vector<unsigned> free;
    for (unsigned r = 0; r < K.n; ++r)
        if (!held(K.rows[r])) free.push_back(r);
    const unsigned n = unsigned(free.size());
    std::vector<double> A(std::size_t(n) * n), b(n, 0.0);
    for (unsigned j = 0; j < n; ++j) {
        for (unsigned i = 0; i < n; ++i) A[std::size_t(j) * n + i] = K.get(free[i], free[j]);
        const auto it = f.find(K.rows[free[j]]);
        if (it != f.end()) b[j] = it->second;
    }
    const std::vector<double> x = solve_dense(A, b, n);
    std::map<unsigned, double> u;
    for (unsigned j = 0; j < n; ++j) u[K.rows[free[j]]] = x[j];
    return u;
}

std::function<bool(unsigned)> node_held(unsigned node)
{
    return [node](unsigned ID) { return ID / 9 == node; };
}

// ---------------------------------------------------------------------------------

// A tip force along a principal direction of the section: P L^3 / (3 E I) +
// P L / (G As), I the principal inertia of that direction; no motion across it.
struct cantilever_case {
    const char* name;
    element_type type;
    unsigned n;
    vec3 b, y;
    double Iyz, As;
    bool larger; // the larger principal inertia
    bool finite;
    double tol;
};

TEST(line_beam, cantilever_against_Timoshenko)
{
    // Tolerances: the closed forms hold to the rounding of the 12 x 12 solve
    // (cond ~ (L/r)^2); the integrated rows converge with n, see below.
    const cantilever_case cases[] = {
        {"closed x, plane of Iy", element_edge2, 1, {4, 0, 0}, {0, 1, 0}, 0.0, 2.5, true, false, 1e-11},
        {"closed x, plane of Iz", element_edge2, 1, {4, 0, 0}, {0, 1, 0}, 0.0, 2.5, false, false, 1e-11},
        {"closed skew, Iyz", element_edge2, 1, {1, 2, 2}, {1, 0, 0.3}, 0.6, 2.5, true, false, 1e-11},
        {"closed skew, Iyz, other plane", element_edge2, 1, {1, 2, 2}, {1, 0, 0.3}, 0.6, 2.5, false, false, 1e-11},
        {"closed, no shear areas: A", element_edge2, 1, {4, 0, 0}, {0, 0, 1}, 0.0, 0.0, true, false, 1e-11},
        {"closed deep", element_edge2, 1, {0.3, 0, 0}, {0, 1, 0}, 0.0, 2.5, true, false, 1e-11},
        {"edge3 skew, Iyz", element_edge3, 1, {1, 2, 2}, {1, 0, 0.3}, 0.6, 2.5, true, false, 1e-9},
        {"edge3 skew, 3 elements", element_edge3, 3, {1, 2, 2}, {1, 0, 0.3}, 0.6, 2.5, false, false, 1e-9},
    };
    for (const cantilever_case& c : cases) {
        SCOPED_TRACE(c.name);
        section_values s;
        for (unsigned k = 0; k < 3; ++k) s.y[k] = c.y[k];
        s.Iyz = c.Iyz, s.Ay = s.Az = c.As;
        const vec3 a = {0, 0, 0};
        const test_mesh m = line_mesh(c.type, c.n, a, c.b);
        model_context mc;
        auto model = mc.stiff(m, beam(s, c.finite));
        ASSERT_TRUE(model);
        dense_assembler K;
        std::map<unsigned, double> f;
        ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
        // Principal inertia and direction v in (y, z) of the bending block; the
        // force Q v = (-v_z, v_y) bends about it.
        const double mean = 0.5 * (s.Iy + s.Iz), r = std::hypot(0.5 * (s.Iy - s.Iz), s.Iyz);
        const double I = c.larger ? mean + r : mean - r;
        double v[2] = {s.Iyz, I - s.Iy};
        if (std::hypot(v[0], v[1]) < 1e-12) v[0] = I == s.Iy ? 1.0 : 0.0, v[1] = I == s.Iy ? 0.0 : 1.0;
        const double vn = std::hypot(v[0], v[1]);
        frame3 R;
        double L;
        ASSERT_EQ(core::line_frame(a, c.b, s.y, R, L), no_error);
        double F[3];
        for (unsigned i = 0; i < 3; ++i) F[i] = (-v[1] * R(i, 1) + v[0] * R(i, 2)) / vn;
        const double P = 0.7;
        const unsigned tip = c.type == element_edge3 ? 2 * c.n : c.n;
        std::map<unsigned, double> load;
        for (unsigned i = 0; i < 3; ++i) load[tip * 9 + i] = P * F[i];
        const auto u = solve_held(K, node_held(0), load);
        double along = 0.0, across2 = 0.0;
        for (unsigned i = 0; i < 3; ++i) along += u.at(tip * 9 + i) * F[i];
        for (unsigned i = 0; i < 3; ++i) across2 += std::pow(u.at(tip * 9 + i) - along * F[i], 2);
        const double As = c.As > 0.0 ? c.As : s.A;
        const double expected = P * L * L * L / (3.0 * s.E * I) + P * L / (s.G * As);
        EXPECT_NEAR(along, expected, c.tol * expected);
        EXPECT_LT(std::sqrt(across2), c.tol * expected);
    }
}

// A thin beam (L / h = 1000) of integrated elements keeps its bending deflection:
// a locked element would be stiffer by (L / h)^2. Three-node elements on two points
// are exact at the nodes for an end load, to the rounding of a matrix of condition
// (L / r)^2 n^2 ~ 3e9 at n = 16; two-node ones on one point converge as 1 / (4 n^2).
TEST(line_beam, thin_integrated_beam_does_not_lock)
{
    struct row {
        element_type type;
        bool finite, exact;
        double tol; // relative error at 16 elements, or at every n when exact
    };
    const row rows[] = {{element_edge3, false, true, 1e-6}, {element_edge3, true, true, 1e-6},
                        {element_edge2, true, false, 2e-3}};
    for (const row& r : rows) {
        SCOPED_TRACE(r.type == element_edge3 ? "edge3" : "edge2 finite");
        section_values s;
        const double h = 0.1;
        s.A = s.Ay = s.Az = h * h;
        s.Iy = s.Iz = h * h * h * h / 12.0;
        const vec3 a = {0, 0, 0}, b = {100, 0, 0};
        double last = 1.0;
        for (unsigned n : {1u, 4u, 16u}) {
            const test_mesh m = line_mesh(r.type, n, a, b);
            model_context mc;
            auto model = mc.stiff(m, beam(s, r.finite));
            dense_assembler K;
            std::map<unsigned, double> f;
            ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
            const unsigned tip = r.type == element_edge3 ? 2 * n : n;
            const auto u = solve_held(K, node_held(0), {{tip * 9 + 2, 1.0}});
            const double exact = 1e6 / (3.0 * s.E * s.Iy) + 100.0 / (s.G * s.A);
            const double error = std::fabs(u.at(tip * 9 + 2) / exact - 1.0);
            if (r.exact) EXPECT_LT(error, r.tol);
            else EXPECT_LT(error, last);
            last = error;
        }
        EXPECT_LT(last, r.tol);
    }
}

// A tapered member: the tip deflection of one closed-form element against the
// exact integral of its linearly varying section.
TEST(line_beam, taper_against_exact_integral)
{
    section_values s;
    const double end2[6] = {1.5, 1.2, 1.2, 0.8, 0.7, 0.4}; // A, Ay, Az, J, Iy, Iz at the second end
    dense1D<double, 8> d(31, 0.0);
    const double v[15] = {0, 1, 0, s.E, s.G, 0, s.A, s.Ay, s.Az, s.J, s.Iy, s.Iz, 0, 0, 0};
    for (unsigned i = 0; i < 15; ++i) d[i] = v[i];
    for (unsigned i = 0; i < 6; ++i) d[15 + i] = end2[i];
    Ptr<law_beam_StVenant> law = new law_beam_StVenant;
    ASSERT_EQ(law->init(d), no_error);
    const double L = 5.0;
    const vec3 a = {0, 0, 0}, b = {L, 0, 0};
    const test_mesh m = line_mesh(element_edge2, 1, a, b);
    model_context mc;
    auto model = mc.stiff(m, new core::beam_small(law));
    dense_assembler K;
    std::map<unsigned, double> f;
    ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
    const auto u = solve_held(K, node_held(0), {{9 + 2, 1.0}});
    // delta = int (L - x)^2 / (E Iy(x)) + 1 / (G Az(x)), Iy and Az linear; the
    // antiderivatives are closed: with I = a + b x, int (L-x)^2/I = ...
    const auto exact = [&](double e1, double e2, bool moment) {
        const double p = e1, q = (e2 - e1) / L; // value p + q x
        if (!moment) return std::log(e2 / e1) / q;
        // (L - x)^2 = (c - t)^2 / q^2 with t = p + q x, c = p + q L.
        const double c = p + q * L, t0 = p, t1 = e2;
        const auto F = [&](double t) { return c * c * std::log(t) - 2.0 * c * t + 0.5 * t * t; };
        return (F(t1) - F(t0)) / (q * q * q);
    };
    const double expected = exact(s.Iy, end2[4], true) / s.E + exact(s.Az, end2[2], false) / s.G;
    // Six Gauss points on 1 / (1 + c xi) err by about 4 rho^12, rho = c / (1 +
    // sqrt(1 - c^2)), for the steepest taper c of the two sections integrated.
    double rho = 0.0;
    for (const auto& [e1, e2] : {std::pair{s.Iy, end2[4]}, std::pair{s.Az, end2[2]}}) {
        const double c = std::fabs(e2 - e1) / (e2 + e1);
        rho = std::max(rho, c / (1.0 + std::sqrt(1.0 - c * c)));
    }
    EXPECT_NEAR(u.at(9 + 2), expected, 4.0 * std::pow(rho, 12) * expected);
}

// An axial stretch of an offset section: the end forces are D(., 0) eps, as the
// section matrix couples axial and bending.
TEST(line_beam, offset_couples_axial_and_bending)
{
    for (element_type type : {element_edge2, element_edge3}) {
        SCOPED_TRACE(type);
        section_values s;
        s.yc = 0.3, s.zc = 0.5; // keeps D positive definite
        const vec3 a = {0, 0, 0}, b = {2, 0, 0};
        const test_mesh m = line_mesh(type, 1, a, b);
        model_context mc;
        auto model = mc.stiff(m, beam(s));
        const double eps = 1e-3;
        const unsigned six[6] = {0, 1, 2, 3, 4, 5};
        const auto U = values_of(m, 6, six, [&](unsigned node, unsigned place) {
            return place == 0 ? eps * m.pos(0, node) : 0.0;
        });
        element_run run;
        compute(*model, core::kind_stiffness, 0, m, U, run);
        ASSERT_EQ(run.status, no_error);
        const double EA = s.E * s.A;
        const double end[6] = {EA * eps, 0, 0, 0, EA * s.yc * eps, EA * s.zc * eps};
        for (unsigned i = 0; i < 6; ++i) {
            EXPECT_NEAR(run.work.Fe[6 + i], -end[i], 1e-12 * EA * eps);
            EXPECT_NEAR(run.work.Fe[i], i == 0 || i > 3 ? end[i] : 0.0, 1e-12 * EA * eps);
        }
    }
}

// Three rods from a joint to three supports, the middle one vertical: N_middle =
// P / (1 + 2 cos^3 t), N_side = P cos^2 t / (1 + 2 cos^3 t).
TEST(line_rod, three_bar_truss)
{
    const double t = 0.5, H = 2.0, P = 10.0, EA = 300.0;
    test_mesh m;
    m.type = element_edge2;
    m.pos = dense2D<double>(3, 4);
    const double x[4] = {0.0, -H * std::tan(t), 0.0, H * std::tan(t)};
    for (unsigned i = 0; i < 4; ++i) m.pos(0, i) = x[i], m.pos(1, i) = i == 0 ? 0.0 : H, m.pos(2, i) = 0.0;
    m.cells = dense2D<unsigned>(2, 3);
    for (unsigned e = 0; e < 3; ++e) m.cells(0, e) = e + 1, m.cells(1, e) = 0;
    model_context mc;
    auto model = mc.stiff(m, new core::rod_small(spring_law(EA)));
    ASSERT_TRUE(model);
    dense_assembler K;
    std::map<unsigned, double> f;
    ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
    // The supports and the joint's z (no stiffness across the plane) are held.
    const auto u = solve_held(K, [](unsigned ID) { return ID / 9 != 0 || ID % 9 == 2; }, {{1, -P}});
    const double c = std::cos(t), middle = P / (1.0 + 2.0 * c * c * c), side = middle * c * c;
    const unsigned places[3] = {0, 1, 2};
    const auto U = values_of(m, 3, places, [&](unsigned node, unsigned place) {
        return node == 0 && place < 2 ? u.at(place) : 0.0;
    });
    const double expected[3] = {side, middle, side};
    for (unsigned e = 0; e < 3; ++e) {
        element_run run;
        core::element_pass_type pass;
        pass.pos = m.pos;
        pass.U = U;
        run.work.start(pass, model->ID);
        run.work.element = e;
        ASSERT_EQ(model->compute_element_results(core::kind_stiffness, core::result_stress, run.work), no_error);
        EXPECT_NEAR(run.work.results(3, 0), expected[e], 1e-12 * P) << e;
    }
}

// A beam heated by dT across its height h bends into the arc of curvature
// alpha dT / h: the tip turns by kappa L and moves by kappa L^2 / 2.
TEST(line_beam, heated_beam_bends_into_arc)
{
    for (element_type type : {element_edge2, element_edge3}) {
        SCOPED_TRACE(type);
        section_values s;
        s.alpha = 1.2e-5;
        const double dT = 50.0, h = 0.2, L = 3.0, kappa = s.alpha * dT / h;
        const vec3 a = {0, 0, 0}, b = {L, 0, 0};
        const test_mesh m = line_mesh(type, 4, a, b);
        model_context mc;
        auto model = mc.stiff(m, beam(s));
        core::stress_mgr_thermal thermal(mc.ctx);
        const double T[2] = {0.0, dT / h};
        ASSERT_TRUE(thermal.set_uniform(T, 2, 0xFFFFFFFFu));
        dense_assembler K;
        std::map<unsigned, double> f;
        ASSERT_EQ(sum_elements(*model, m, K, f, nullptr, &thermal), no_error);
        const auto u = solve_held(K, node_held(0), f);
        const unsigned tip = type == element_edge3 ? 8 : 4, half = tip / 2;
        EXPECT_NEAR(u.at(tip * 9 + 4), kappa * L, 1e-9 * kappa * L);
        EXPECT_NEAR(u.at(tip * 9 + 2), -0.5 * kappa * L * L, 1e-9 * kappa * L * L);
        EXPECT_NEAR(u.at(half * 9 + 2), -0.125 * kappa * L * L, 1e-9 * kappa * L * L);
    }
}

// ---------------------------------------------------------------------------------

// Three elements on a line skew to every axis.
test_mesh skew_mesh(element_type type) { return line_mesh(type, 3, vec3{0, 0, 0}, vec3{3, 1, 0.5}); }

TEST(line_models, free_structures_have_six_rigid_modes)
{
    struct row {
        const char* name;
        std::function<Ptr<core::numerical_model_base>(model_context&, test_mesh&)> make;
    };
    section_values s;
    s.y[0] = 0.2, s.y[2] = 1.0, s.Iyz = 0.4, s.yc = 0.1, s.zc = 0.2;
    const row rows[] = {
        {"closed form", [&](model_context& mc, test_mesh& m) { m = skew_mesh(element_edge2); return mc.stiff(m, beam(s)); }},
        {"edge3", [&](model_context& mc, test_mesh& m) { m = skew_mesh(element_edge3); return mc.stiff(m, beam(s)); }},
        {"edge2 finite", [&](model_context& mc, test_mesh& m) { m = skew_mesh(element_edge2); return mc.stiff(m, beam(s, true)); }},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        model_context mc;
        test_mesh m;
        auto model = r.make(mc, m);
        ASSERT_TRUE(model);
        dense_assembler K;
        std::map<unsigned, double> f;
        ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
        std::vector<double> A(std::size_t(K.n) * K.n);
        for (unsigned j = 0; j < K.n; ++j)
            for (unsigned i = 0; i < K.n; ++i) A[std::size_t(j) * K.n + i] = K.get(i, j);
        // Rounding of dsyev: n eps |K|, n <= 42.
        EXPECT_EQ(nbr_zero_eigenvalues(eigenvalues(A, K.n), 1e-11), 6u);
    }
}

// Masses: a rigid translation carries rho A L in every direction, a spin about
// the axis rho (Ip + A (yc^2 + zc^2)) L.
TEST(line_models, mass_of_rigid_motions)
{
    const double rho = 7.8, A = 0.3, Ip = 0.05, yc = 0.1, zc = -0.2, L = std::sqrt(9.0 + 1.0 + 0.25);
    for (element_type type : {element_edge2, element_edge3})
        for (bool is_beam : {true, false}) {
            SCOPED_TRACE(testing::Message() << type << (is_beam ? " beam" : " rod"));
            model_context mc;
            const test_mesh m = skew_mesh(type);
            Ptr<core::physics_base> physics;
            if (is_beam) {
                Ptr<core::law_beam_mass> law = new core::law_beam_mass;
                const double v[11] = {0, 0, 1, rho, A, Ip, 0.03, 0.02, 0.01, yc, zc};
                dense1D<double, 8> d(11, 0.0);
                for (unsigned i = 0; i < 11; ++i) d[i] = v[i];
                ASSERT_EQ(law->init(d), no_error);
                physics = new core::beam_mass(law);
            } else {
                Ptr<core::law_scalar> law = new core::law_scalar;
                ASSERT_EQ(law->init(dense1D<double, 8>(1, rho * A)), no_error);
                physics = new core::line_mass(law);
            }
            auto model = mc.mass_of(m, physics);
            ASSERT_TRUE(model);
            dense_assembler M;
            std::map<unsigned, double> f;
            ASSERT_EQ(sum_elements(*model, m, M, f, nullptr, nullptr, core::matrix_tangent, core::kind_mass), no_error);
            const auto quadratic = [&](const std::function<double(unsigned)>& u) {
                double s = 0.0;
                for (unsigned j = 0; j < M.n; ++j)
                    for (unsigned i = 0; i < M.n; ++i) s += u(M.rows[i]) * M.get(i, j) * u(M.rows[j]);
                return s;
            };
            for (unsigned k = 0; k < 3; ++k)
                EXPECT_NEAR(quadratic([k](unsigned ID) { return ID % 9 == k ? 1.0 : 0.0; }), rho * A * L, 1e-12 * L);
            if (!is_beam) continue;
            // Spin about the axis: every node turns by the unit axis, the nodes on it.
            const double axis[3] = {3.0 / L, 1.0 / L, 0.5 / L};
            const double spin = quadratic([&](unsigned ID) { return ID % 9 >= 3 ? axis[ID % 9 - 3] : 0.0; });
            EXPECT_NEAR(spin, rho * (Ip + A * (yc * yc + zc * zc)) * L, 1e-12 * L);
        }
}

// The turn's coefficients a, b, c of s = |theta|^2 switch from their series to
// their closed forms at s = 1/4: on either side, values and first and second
// derivatives agree with the closed forms' (the derivatives by differences of
// the closed forms, away from where they cancel).
TEST(line_models, finite_turn_coefficients_are_their_closed_forms_on_both_sides_of_the_switch)
{
    const auto closed = [](double s) {
        const double t = std::sqrt(s);
        return std::array<double, 3>{std::sin(t) / t, (1 - std::cos(t)) / s, (t - std::sin(t)) / (s * t)};
    };
    for (const double s : {0.01, 0.2499, 0.2501, 2.0, 39.0}) {
        jet2<1> a, b, c;
        core::turn_coefficients(jet2<1>::variable(0, s), a, b, c);
        const double h = 1e-3;
        const auto f0 = closed(s), fp = closed(s + h), fm = closed(s - h);
        const jet2<1>* j[3] = {&a, &b, &c};
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_NEAR(j[k]->v, f0[k], 1e-13 * std::fabs(f0[k]) + 1e-15) << s << " " << k;
            EXPECT_NEAR(j[k]->g[0], (fp[k] - fm[k]) / (2 * h), 1e-6) << s << " " << k;
            EXPECT_NEAR(j[k]->h[0][0], (fp[k] - 2 * f0[k] + fm[k]) / (h * h), 1e-5) << s << " " << k;
        }
    }
}

// The finite variants' matrices are the derivatives of the opposite of their vectors
// and split into material and geometric modes, the small variants' geometric
// modes (integrated forms) being the finite ones'. A rod's forces come from the
// length, not from Green-Lagrange strains: the two agree as displacements vanish.
TEST(line_models, tangent_is_the_derivative_of_the_internal_forces_and_splits_into_its_modes)
{
    section_values s;
    s.y[0] = 0.2, s.y[2] = 1.0, s.Iyz = 0.4, s.yc = 0.1, s.zc = 0.2;
    const unsigned places[6] = {0, 1, 2, 3, 4, 5};
    const struct {
        const char* name;
        element_type type;
        Ptr<core::physics_base> finite, small; // small null: its form differs (closed form, exact turns)
        unsigned places;
        double amplitude, same;
    } rows[] = {{"rod", element_edge2, new core::rod_finite(spring_law(2.5)), nullptr, 3, 0.05, 0.0},
                {"rod near rest", element_edge2, new core::rod_finite(spring_law(2.5)),
                 new core::rod_small(spring_law(2.5)), 3, 1e-8, 1e-6},
                {"beam edge2", element_edge2, beam(s, true), nullptr, 6, 0.05, 0.0},
                {"beam edge3", element_edge3, beam(s, true), nullptr, 6, 0.05, 0.0}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        model_context mc;
        const test_mesh m = line_mesh(r.type, 1, vec3{0, 0, 0}, vec3{3, 1, 0.5});
        auto finite = mc.stiff(m, r.finite);
        auto small = r.small ? mc.stiff(m, r.small) : Ptr<core::numerical_model_base>();
        ASSERT_TRUE(finite && (small || !r.small));
        std::vector<double> u(r.places * m.nbr_nodes());
        for (unsigned i = 0; i < u.size(); ++i) u[i] = r.amplitude * std::sin(1.7 * i + 0.3);
        const tangent_errors e = tangent_errors_of(*finite, small.get(), m, r.places, places, u);
        EXPECT_LT(e.derivative, 1e-6);
        EXPECT_LT(e.split, 1e-12);
        EXPECT_LE(e.small, r.same);
    }
}

// Element energy is U.K.U / 2 and Fe = -K U for the linear models; spring beds
// carry k times their measure under a unit translation along their direction.
TEST(line_models, energy_and_forces_agree_with_the_matrix)
{
    section_values s;
    s.y[0] = 0.2, s.y[2] = 1.0, s.Iyz = 0.4, s.yc = 0.1, s.zc = 0.2;
    const double k = 2.5, dir[3] = {0.0, 0.6, 0.8};
    struct row {
        const char* name;
        element_type type;
        std::function<Ptr<core::physics_base>()> physics;
        double measure; // of the mesh under a unit translation along dir; 0 for no bed
    };
    const row rows[] = {
        {"closed form", element_edge2, [&] { return beam(s); }, 0.0},
        {"edge3", element_edge3, [&] { return beam(s); }, 0.0},
        {"rod", element_edge2, [&] { return Ptr<core::physics_base>(new core::rod_small(spring_law(k))); }, 0.0},
        {"bed edge3", element_edge3, [&] { return Ptr<core::physics_base>(new core::distributed_spring_1d(spring_law(k), dir)); }, 2.0},
        {"bed faceQ9", element_faceQ9, [&] { return Ptr<core::physics_base>(new core::distributed_spring_2d(spring_law(k), dir)); }, 2.0},
        {"bed faceT3", element_faceT3, [&] { return Ptr<core::physics_base>(new core::distributed_spring_2d(spring_law(k), dir)); }, 2.0},
    };
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> U01(-1.0, 1.0);
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        model_context mc;
        const test_mesh m = flat_mesh(r.type, 2, 2, 0.2);
        auto model = mc.stiff(m, r.physics());
        ASSERT_TRUE(model);
        const unsigned six[6] = {0, 1, 2, 3, 4, 5};
        const auto U = values_of(m, 6, six, [&](unsigned, unsigned) { return U01(gen); });
        for (unsigned e = 0; e < m.cells.cols(); ++e) {
            element_run run;
            compute(*model, core::kind_stiffness, e, m, U, run);
            ASSERT_EQ(run.status, no_error);
            const unsigned n = run.work.Ke.order();
            double energy = 0.0, scale = 0.0;
            for (unsigned i = 0; i < n; ++i) {
                double Ku = 0.0;
                for (unsigned j = 0; j < n; ++j) Ku += run.work.Ke(i, j) * U.get(run.work.DOFs[j]);
                energy += 0.5 * U.get(run.work.DOFs[i]) * Ku;
                scale = std::max(scale, std::fabs(Ku));
                EXPECT_NEAR(run.work.Fe[i], -Ku, 1e-12 * scale + 1e-300);
            }
            EXPECT_NEAR(run.work.energy, energy, 1e-12 * std::fabs(energy));
        }
        if (r.measure == 0.0) continue;
        dense_assembler K;
        std::map<unsigned, double> f;
        ASSERT_EQ(sum_elements(*model, m, K, f), no_error);
        double along = 0.0;
        for (unsigned j = 0; j < K.n; ++j)
            for (unsigned i = 0; i < K.n; ++i) along += dir[K.rows[i] % 9] * K.get(i, j) * dir[K.rows[j] % 9];
        EXPECT_NEAR(along, k * r.measure, 1e-12 * k * r.measure);
    }
}

// Beams and solids in one assembly: the same matrix, bit for bit, on 1 and 2 threads.
TEST(line_models, mixed_assembly_is_thread_independent)
{
    std::vector<double> results[2];
    for (unsigned t = 0; t < 2; ++t) {
        model_context mc;
        mc.host.set_max_threads(t + 1);
        const test_mesh solid = cube_mesh(element_hexa8, 3, 0.2);
        const test_mesh line = line_mesh(element_edge2, 40, vec3{0, 0, 0}, vec3{1, 1, 1});
        section_values s;
        s.y[2] = 1.0;
        auto bm = mc.stiff(line, beam(s));
        auto sm = mc.solid(solid, StVenant(100.0, 0.3));
        ASSERT_TRUE(bm && sm);
        dense_assembler K;
        ASSERT_EQ(assemble(*sm, core::kind_stiffness, solid, K), no_error);
        ASSERT_EQ(assemble(*bm, core::kind_stiffness, line, K), no_error);
        results[t] = K.A;
    }
    EXPECT_TRUE(results[0] == results[1]);
}

// Degenerate geometry gives -106 and no matrix; a law of the wrong family is
// refused when the physics or the model is made.
TEST(line_models, bad_geometry_and_mismatched_laws)
{
    section_values s, parallel;
    parallel.y[0] = 2.0, parallel.y[1] = 0.0;
    struct row {
        const char* name;
        element_type type;
        bool zero_length;
        std::function<Ptr<core::physics_base>()> physics;
    };
    const row rows[] = {
        {"closed, zero length", element_edge2, true, [&] { return beam(s); }},
        {"closed, parallel", element_edge2, false, [&] { return beam(parallel); }},
        {"edge3, zero length", element_edge3, true, [&] { return beam(s); }},
        {"edge3, parallel", element_edge3, false, [&] { return beam(parallel); }},
        {"finite, parallel", element_edge2, false, [&] { return beam(parallel, true); }},
        {"rod, zero length", element_edge2, true, [&] { return Ptr<core::physics_base>(new core::rod_finite(spring_law(1.0))); }},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        const vec3 a = {1, 0, 0}, b = {r.zero_length ? 1.0 : 3.0, 0, 0};
        const test_mesh m = line_mesh(r.type, 1, a, b);
        model_context mc;
        auto model = mc.stiff(m, r.physics());
        ASSERT_TRUE(model);
        element_run run;
        compute(*model, core::kind_stiffness, 0, m, core::DOF_values_view{}, run);
        EXPECT_EQ(run.status, element_geometry_error);
        EXPECT_EQ(run.work.Ke.order(), 0u);
        if (r.type == element_edge2 && !r.zero_length) {
            frame3 basis;
            EXPECT_EQ(model->get_element_basis(0, m.pos, nullptr, basis), element_geometry_error);
        }
    }
    model_context mc;
    const test_mesh line = line_mesh(element_edge2, 1, vec3{0, 0, 0}, vec3{1, 0, 0});
    const test_mesh hexa = single_element(element_hexa8, 0.0);
    const test_mesh quad3 = line_mesh(element_edge3, 1, vec3{0, 0, 0}, vec3{1, 0, 0});
    Ptr<core::numerical_model_base> out;
    EXPECT_EQ(core::make_stiff_mesh(mc.ctx, new core::solid_small(StVenant(1.0, 0.3)), line.cells, line.type, out),
              element_type_error);
    EXPECT_EQ(core::make_stiff_mesh(mc.ctx, beam(s), hexa.cells, hexa.type, out), element_type_error);
    EXPECT_EQ(core::make_stiff_mesh(mc.ctx, new core::rod_small(spring_law(1.0)), quad3.cells, quad3.type, out),
              element_type_error);
    // The public physics take only their own family of law.
    fem::law_beam_StVenant beam_law_handle;
    fem::law_solid_StVenant solid_law_handle;
    fem::model_solid_lin solid;
    fem::model_beam_lin beam_handle;
    EXPECT_EQ(solid.init(beam_law_handle), invalid_data_error);
    EXPECT_EQ(beam_handle.init(solid_law_handle), invalid_data_error);
}

// Conduction along a line: a linear temperature puts no flux into interior nodes
// and k T' through the ends.
TEST(line_models, conduction_of_a_linear_temperature)
{
    for (element_type type : {element_edge2, element_edge3}) {
        model_context mc;
        const test_mesh m = line_mesh(type, 3, vec3{0, 0, 0}, vec3{0, 1.5, 2}); // length 2.5
        Ptr<core::law_scalar> law = new core::law_scalar;
        ASSERT_EQ(law->init(dense1D<double, 8>(1, 4.0)), no_error);
        auto model = mc.thermal_of(m, new core::conduction_1d(law));
        const unsigned place[1] = {6};
        const auto T = values_of(m, 1, place, [&](unsigned n, unsigned) { return 0.6 * m.pos(1, n) + 0.8 * m.pos(2, n); });
        dense_assembler K;
        std::map<unsigned, double> f;
        ASSERT_EQ(sum_elements(*model, m, K, f, &T, nullptr, core::matrix_tangent, core::kind_conduction), no_error);
        for (const auto& [ID, value] : f)
            EXPECT_NEAR(value, ID / 9 == 0 ? 4.0 : ID / 9 == m.nbr_nodes() - 1 ? -4.0 : 0.0, 1e-12) << type;
    }
}

} // namespace
} // namespace kelt::test
