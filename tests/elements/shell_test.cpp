// Mindlin plates and shells: the laws' layouts, rigid modes and symmetry of single
// elements, the drilling penalty, the membrane patch test, the simply supported
// square plate against the series solution, the mass of the section, refusals,
// and assembly with solids on 1 and 2 threads.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

#include "element_test_support.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/fem.h"
#include "kelt/laws/law_membrane.h"
#include "kelt/laws/law_shell.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr element_type face_types[4] = {element_faceT3, element_faceQ4, element_faceT6, element_faceQ9};

Ptr<core::law_shell_stiff> shell_law(double E, double nu, double h)
{
    Ptr<core::law_shell_StVenant> law = new core::law_shell_StVenant;
    dense1D<double, 8> d;
    for (double v : {E, nu, 0.0, h}) d.push_back(v);
    EXPECT_EQ(law->init(d), no_error);
    return law;
}

Ptr<core::numerical_model_base> made(model_context& mc, Ptr<core::physics_base> physics, const test_mesh& m,
                                     bool mass = false)
{
    Ptr<core::numerical_model_base> out;
    const error_type e = mass ? core::make_mass_mesh(mc.ctx, physics, m.cells, m.type, out)
                              : core::make_stiff_mesh(mc.ctx, physics, m.cells, m.type, out);
    if (e != no_error || !out) return {};
    out->context = mc.ctx;
    return out->record() == no_error ? out : Ptr<core::numerical_model_base>();
}

// A flat mesh on the unit square, turned into a general plane of space when `tilt`.
test_mesh square(element_type type, unsigned n, double distortion, bool tilt)
{
    test_mesh m = flat_mesh(type, n, n, distortion);
    for (unsigned a = 0; a < m.nbr_nodes(); ++a) {
        const double x = 0.5 * m.pos(0, a), y = m.pos(1, a);  // [0, 2] x [0, 1] to the unit square
        m.pos(0, a) = x;
        if (tilt) {
            // Rotation by 30 degrees about x, then 45 about z.
            const double c = std::sqrt(0.75), s = 0.5, r = std::sqrt(0.5);
            const double X = x, Y = c * y, Z = s * y;
            m.pos(0, a) = r * X - r * Y;
            m.pos(1, a) = r * X + r * Y;
            m.pos(2, a) = Z;
        }
    }
    return m;
}

unsigned zeros_of(const core::numerical_model_base& model, const test_mesh& m, unsigned element, double rel)
{
    element_run run;
    compute(model, core::kind_stiffness, element, m, {}, run);
    EXPECT_EQ(run.status, no_error);
    const symmetric_full<double>& K = run.work.Ke;
    return nbr_zero_eigenvalues(eigenvalues(K), rel);
}

TEST(shell_laws, sizes_and_completed_entries)
{
    const double E = 2.6, nu = 0.3, h = 0.2, z = 0.05, I = h * h * h / 12.0;
    core::law_shell_StVenant law;
    struct row { std::vector<double> given; error_type status; double e4, e5, e6; };
    const row table[] = {
        {{E, nu, 0.0, h}, no_error, 5.0 / 6.0 * E / (2.0 * nu + 2.0), I, 0.0},
        {{E, nu, 0.0, h, 0.7, z}, no_error, 0.7, I + z * z * h, h * z},
        {{E, nu, 0.0, h, 0.7}, core::law_data_error, 0, 0, 0},
        {{E, nu, 0.0}, core::law_data_error, 0, 0, 0},
    };
    for (const row& r : table) {
        dense1D<double, 8> d;
        for (double v : r.given) d.push_back(v);
        ASSERT_EQ(law.init(d), r.status) << r.given.size();
        if (r.status != no_error) {
            EXPECT_TRUE(law.get_data().empty());
            continue;
        }
        ASSERT_EQ(law.get_data().size(), 15u);
        EXPECT_DOUBLE_EQ(law.get_data()[4], r.e4);
        EXPECT_DOUBLE_EQ(law.get_data()[5], r.e5);
        EXPECT_DOUBLE_EQ(law.get_data()[6], r.e6);
    }
    core::law_shell_mass mass;
    EXPECT_EQ(mass.init(dense1D<double, 8>(4, 1.0)), core::law_data_error);
    ASSERT_EQ(mass.init(dense1D<double, 8>(2, 1.0)), no_error);
    EXPECT_EQ(mass.get_data().size(), 3u);
    // The section: membrane h C, bending I C, shear 5/6 G h, ranges h E and I E.
    dense1D<double, 8> d;
    for (double v : {E, nu, 0.0, h}) d.push_back(v);
    ASSERT_EQ(law.init(d), no_error);
    core::section8 D;
    ASSERT_TRUE(law.get_section({}, D));
    const double C11 = E / (1.0 - nu * nu);
    EXPECT_DOUBLE_EQ(D(0, 0), h * C11);
    EXPECT_DOUBLE_EQ(D(3, 4), I * C11 * nu);
    EXPECT_DOUBLE_EQ(D(5, 5), I * C11 * (1.0 - nu) / 2.0);
    EXPECT_DOUBLE_EQ(D(7, 7), 5.0 / 6.0 * E / (2.0 + 2.0 * nu) * h);
    EXPECT_DOUBLE_EQ(law.get_stiffness_range(rotation_tag).first, I * E);
}

// Free elements: symmetric, six rigid modes for a shell in a general plane of
// space (drilling on), three for a plate; with the drilling factor 0 a flat shell
// has one more zero per node.
TEST(shell_elements, rigid_modes_symmetry_and_drilling)
{
    for (element_type type : face_types) {
        SCOPED_TRACE(type);
        model_context mc;
        const test_mesh m = square(type, 1, 0.0, true);
        Ptr<core::law_shell_stiff> law = shell_law(1000.0, 0.3, 0.05);
        auto shell = made(mc, new core::shell_small(law), m);
        ASSERT_TRUE(shell);
        element_run run;
        compute(*shell, core::kind_stiffness, 0, m, {}, run);
        const symmetric_full<double>& K = run.work.Ke;
        double asym = 0.0, big = 0.0;
        for (unsigned i = 0; i < K.order(); ++i)
            for (unsigned j = 0; j < K.order(); ++j) {
                asym = std::fmax(asym, std::fabs(K(i, j) - K(j, i)));
                big = std::fmax(big, std::fabs(K(i, j)));
            }
        EXPECT_LE(asym, 1e-14 * big);
        // The drilling penalty is 1e-6 of the bending scale I E / A, some 1e-10 of
        // the largest membrane term here; the rigid modes are rounding, 1e-14.
        EXPECT_EQ(zeros_of(*shell, m, 0, 1e-12), 6u);
        mc.ctx->shell_drilling_factor = 0.0;
        EXPECT_EQ(zeros_of(*shell, m, 0, 1e-12), 6u + nbr_nodes(type));
        const test_mesh flat = square(type, 1, 0.0, false);
        auto plate = made(mc, new core::plate_small(law, 2), flat);
        ASSERT_TRUE(plate);
        EXPECT_EQ(zeros_of(*plate, flat, 0, 1e-9), 3u);
    }
}

// Linear membrane displacements on a distorted mesh in a tilted plane: the interior
// nodes are in balance, and the energy is h/2 eps.C.eps times the area.
TEST(shell_elements, membrane_patch_test)
{
    for (element_type type : face_types) {
        SCOPED_TRACE(type);
        model_context mc;
        test_mesh m = square(type, 3, 0.3, true);
        const double E = 1000.0, nu = 0.25, h = 0.1;
        auto shell = made(mc, new core::shell_small(shell_law(E, nu, h)), m);
        ASSERT_TRUE(shell);
        dense_assembler K;
        ASSERT_EQ(assemble(*shell, core::kind_stiffness, m, K), no_error);
        // In-plane axes of the tilted square: images of x and y.
        const double c = std::sqrt(0.75), s = 0.5, r = std::sqrt(0.5);
        const double ex[3] = {r, r, 0.0}, ey[3] = {-r * c, r * c, s};
        const double exx = 1e-3, eyy = -2e-3, gxy = 3e-3;
        std::vector<double> u(K.n, 0.0);
        for (unsigned i = 0; i < K.n; ++i) {
            const unsigned ID = K.rows[i], node = ID / 9, place = ID % 9;
            if (place > 2) continue;
            double X = 0.0, Y = 0.0;
            for (unsigned k = 0; k < 3; ++k) {
                X += ex[k] * m.pos(k, node);
                Y += ey[k] * m.pos(k, node);
            }
            u[i] = (exx * X + 0.5 * gxy * Y) * ex[place] + (eyy * Y + 0.5 * gxy * X) * ey[place];
        }
        double worst = 0.0, scale = 0.0, energy = 0.0;
        for (unsigned i = 0; i < K.n; ++i) {
            double f = 0.0;
            for (unsigned j = 0; j < K.n; ++j) f += K.get(i, j) * u[j];
            energy += 0.5 * f * u[i];
            const unsigned node = K.rows[i] / 9;
            const double x = (ex[0] * m.pos(0, node) + ex[1] * m.pos(1, node));
            const double y = ey[0] * m.pos(0, node) + ey[1] * m.pos(1, node) + ey[2] * m.pos(2, node);
            const bool boundary = std::fabs(x) < 1e-9 || std::fabs(x - 1.0) < 1e-9 || std::fabs(y) < 1e-9 ||
                                  std::fabs(y - 1.0) < 1e-9;
            scale = std::fmax(scale, std::fabs(f));
            if (!boundary) worst = std::fmax(worst, std::fabs(f));
        }
        EXPECT_LE(worst, 1e-10 * scale);
        const double C = E / (1.0 - nu * nu);
        const double expected = 0.5 * h *
                                (C * (exx * exx + eyy * eyy + 2.0 * nu * exx * eyy) + C * (1.0 - nu) / 2.0 * gxy * gxy);
        EXPECT_NEAR(energy, expected, 1e-10 * expected);
    }
}

// Centre deflection of a simply supported square plate (side a, hard support:
// w and the rotation about the edge's normal held) under a uniform load q.
double plate_centre(element_type type, unsigned n, double a_over_h)
{
    model_context mc;
    const test_mesh m = square(type, n, 0.0, false);
    const double E = 1.0e4, nu = 0.3, h = 1.0 / a_over_h, q = 1.0;
    const test_mesh& sq = m;
    auto plate = made(mc, new core::plate_small(shell_law(E, nu, h), 2), sq);
    if (!plate) return NAN;
    dense_assembler K;
    if (assemble(*plate, core::kind_stiffness, sq, K) != no_error) return NAN;
    std::vector<double> F(K.n, 0.0);
    core::elementary_load load;
    load.kind = core::load_force;
    for (double v : {0.0, 0.0, q}) load.values.push_back(v);
    for (unsigned e = 0; e < plate->nbr_elements(); ++e) {
        core::element_work_type w;
        core::element_pass_type pass;
        pass.pos = sq.pos;
        w.start(pass, plate->ID);
        w.element = e;
        if (plate->compute_element_load(load, w) != no_error) return NAN;
        for (unsigned i = 0; i < w.DOFs.size(); ++i) F[K.rank(w.DOFs[i])] += w.Fe[i];
    }
    std::vector<unsigned> free;
    unsigned centre = 0;
    for (unsigned i = 0; i < K.n; ++i) {
        const unsigned node = K.rows[i] / 9, place = K.rows[i] % 9;
        const double x = sq.pos(0, node), y = sq.pos(1, node);
        const bool on_x = std::fabs(x) < 1e-12 || std::fabs(x - 1.0) < 1e-12;
        const bool on_y = std::fabs(y) < 1e-12 || std::fabs(y - 1.0) < 1e-12;
        if (place == 2 && (on_x || on_y)) continue;
        if (place == 3 && on_x) continue;
        if (place == 4 && on_y) continue;
        if (place == 2 && std::fabs(x - 0.5) < 1e-12 && std::fabs(y - 0.5) < 1e-12) centre = free.size();
        free.push_back(i);
    }
    const unsigned nf = free.size();
    std::vector<double> A(std::size_t(nf) * nf), b(nf);
    for (unsigned j = 0; j < nf; ++j) {
        b[j] = F[free[j]];
        for (unsigned i = 0; i < nf; ++i) A[std::size_t(j) * nf + i] = K.get(free[i], free[j]);
    }
    return solve_dense(A, b, nf)[centre];
}

TEST(plate, simply_supported_square_against_the_series)
{
    const double E = 1.0e4, nu = 0.3, q = 1.0, a = 1.0;
    struct row { element_type type; unsigned coarse, fine; };
    // The triangles take twice the cells of the quadrilaterals for a like count of DOFs.
    const row table[] = {{element_faceT3, 8, 16}, {element_faceQ4, 8, 16}, {element_faceT6, 4, 8}, {element_faceQ9, 4, 8}};
    for (const row& r : table)
        for (double a_over_h : {1000.0, 10.0}) {
            SCOPED_TRACE(testing::Message() << r.type << " a/h " << a_over_h);
            const double h = a / a_over_h, D = E * h * h * h / (12.0 * (1.0 - nu * nu)), G = E / (2.0 + 2.0 * nu);
            const double kirchhoff = 0.00406 * q * a * a * a * a / D;
            // The shear part at the centre: the Marcus moment over the shear
            // stiffness, whose centre value on the square is 0.0737 q a^2.
            const double mindlin = kirchhoff + 0.0737 * q * a * a / (5.0 / 6.0 * G * h);
            const double reference = a_over_h > 100.0 ? kirchhoff : mindlin;
            const double coarse = plate_centre(r.type, r.coarse, a_over_h);
            const double fine = plate_centre(r.type, r.fine, a_over_h);
            if (r.type == element_faceT6 && a_over_h > 100.0) {
                // Neither tying nor reduction: the thin six-node triangle locks, and
                // stays well below the series on these meshes.
                EXPECT_LT(fine, 0.9 * reference);
                continue;
            }
            // Three figures of the series; then the meshes' own error.
            EXPECT_NEAR(fine, reference, 0.015 * reference);
            EXPECT_LE(std::fabs(fine - reference), std::fabs(coarse - reference) + 1e-3 * reference);
            if (a_over_h < 100.0) {
                EXPECT_GT(fine, kirchhoff * 1.03);
            }
        }
}

// Translations carry rho h A in each direction; the tangential rotations carry
// rho (h^3/12 + z^2 h) A and the normal one nothing.
TEST(shell_mass, sums_and_offset)
{
    for (element_type type : face_types)
        for (double z : {0.0, 0.3}) {
            SCOPED_TRACE(testing::Message() << type << " z " << z);
            model_context mc;
            const test_mesh m = square(type, 2, 0.2, false);
            const double rho = 7.0, h = 0.1, area = 1.0;
            Ptr<core::law_shell_mass> law = new core::law_shell_mass;
            dense1D<double, 8> d;
            for (double v : {rho, h, z}) d.push_back(v);
            ASSERT_EQ(law->init(d), no_error);
            auto model = made(mc, new core::shell_mass(law), m, true);
            ASSERT_TRUE(model);
            dense_assembler M;
            ASSERT_EQ(assemble(*model, core::kind_mass, m, M), no_error);
            double sums[6][6] = {};
            for (unsigned i = 0; i < M.n; ++i)
                for (unsigned j = 0; j < M.n; ++j) sums[M.rows[i] % 9][M.rows[j] % 9] += M.get(i, j);
            const double R = rho * (h * h * h / 12.0 + z * z * h) * area;
            for (unsigned k = 0; k < 3; ++k) EXPECT_NEAR(sums[k][k], rho * h * area, 1e-12);
            EXPECT_NEAR(sums[3][3], R, 1e-12);
            EXPECT_NEAR(sums[4][4], R, 1e-12);
            EXPECT_NEAR(sums[5][5], 0.0, 1e-12);
            // u_x with theta_y: a turn about y moves the offset surface along +x by z theta.
            EXPECT_NEAR(sums[0][4], rho * h * z * area, 1e-12);
        }
}

TEST(shell_elements, bad_input)
{
    model_context mc;
    // Collinear nodes: no area.
    test_mesh m = square(element_faceQ4, 1, 0.0, false);
    for (unsigned a = 0; a < m.nbr_nodes(); ++a) m.pos(1, a) = m.pos(0, a);
    for (bool plate : {false, true}) {
        Ptr<core::law_shell_stiff> law = shell_law(1.0, 0.3, 0.1);
        Ptr<core::physics_base> physics = plate ? Ptr<core::physics_base>(new core::plate_small(law, 2))
                                                : Ptr<core::physics_base>(new core::shell_small(law));
        auto model = made(mc, physics, m);
        ASSERT_TRUE(model);
        element_run run;
        compute(*model, core::kind_stiffness, 0, m, {}, run);
        EXPECT_EQ(run.status, element_geometry_error);
    }
    fem::law_shell_StVenant law;
    EXPECT_EQ(law.init(dense1D<double, 8>(5, 1.0)), error_type(-1));
    ASSERT_EQ(law.init(dense1D<double, 8>(4, 0.1)), no_error);
    fem::model_plate_lin plate;
    EXPECT_EQ(plate.init(law, 3), invalid_data_error);
    EXPECT_EQ(plate.init(law, 2), no_error);
    EXPECT_EQ(plate.physics_variant_code(), 6000u);
    fem::model_shell_gnl shell;
    ASSERT_EQ(shell.init(law), no_error);
    EXPECT_EQ(shell.physics_variant_code(), 7300u);
}

// A box of solids with a shell on its top face, assembled on 1 and 2 threads.
TEST(shell_elements, assembly_with_solids_is_the_same_on_1_and_2_threads)
{
    model_context mc;
    const test_mesh solid_mesh = cube_mesh(element_hexa8, 3, 0.2);
    test_mesh top;
    top.pos = solid_mesh.pos;
    top.type = element_faceQ4;
    std::vector<unsigned> cells;
    for (unsigned e = 0; e < solid_mesh.cells.cols(); ++e) {
        // The upper face of a hexa8 (nodes 4 to 7) when it lies at z = 1.
        bool upper = true;
        for (unsigned a = 4; a < 8; ++a) upper = upper && std::fabs(solid_mesh.pos(2, solid_mesh.cells(a, e)) - 1.0) < 1e-12;
        if (upper)
            for (unsigned a = 4; a < 8; ++a) cells.push_back(solid_mesh.cells(a, e));
    }
    top.cells = dense2D<unsigned>(4, cells.size() / 4);
    for (unsigned i = 0; i < cells.size(); ++i) top.cells(i % 4, i / 4) = cells[i];
    ASSERT_GT(top.cells.cols(), 0u);
    auto solid = mc.solid(solid_mesh, StVenant(1.0, 0.3));
    auto shell = made(mc, new core::shell_small(shell_law(1.0, 0.3, 0.05)), top);
    ASSERT_TRUE(solid && shell);
    std::vector<double> first;
    for (unsigned threads : {1u, 2u}) {
        mc.ctx->process_mgr->max_threads = threads;
        dense_assembler K;
        ASSERT_EQ(assemble(*solid, core::kind_stiffness, solid_mesh, K), no_error);
        ASSERT_EQ(assemble(*shell, core::kind_stiffness, top, K), no_error);
        if (threads == 1)
            first = K.A;
        else
            EXPECT_TRUE(first == K.A);
    }
}

// Section temperatures on a free shell of every shape (distorted, in a general
// plane): the mean change dT with the expansion u = alpha dT x, and the gradient g
// with the bending w = -k r^2 / 2, k = alpha g (alpha dT / h for a difference dT
// between the faces), leave no force and no energy; held at rest, they do load
// the nodes.
TEST(shell_elements, free_thermal_expansion_and_bending_are_stress_free)
{
    const double E = 1000.0, nu = 0.3, h = 0.1, alpha = 1e-5, dT = 40.0, g = 30.0 / h;
    const unsigned six[6] = {0, 1, 2, 3, 4, 5};
    for (element_type type : face_types)
        for (unsigned n : {1u, 2u}) {
            SCOPED_TRACE(testing::Message() << type << " components " << n);
            model_context mc;
            const test_mesh m = square(type, 2, 0.2, false);
            Ptr<core::law_shell_StVenant> law = new core::law_shell_StVenant;
            dense1D<double, 8> d;
            for (double v : {E, nu, alpha, h}) d.push_back(v);
            ASSERT_EQ(law->init(d), no_error);
            auto shell = made(mc, new core::shell_small(law), m);
            ASSERT_TRUE(shell);
            core::stress_super_mgr thermal(mc.ctx);
            const double T[2] = {n == 1 ? dT : 0.0, g};
            ASSERT_EQ(thermal.set_thermal_load(shell->ID, T, n, 0xFFFFFFFFu), no_error);
            const auto run = [&](const core::DOF_values_view& U, sum_vector_assembler& F) {
                core::element_pass_type pass;
                pass.pos = m.pos;
                pass.U = U;
                pass.has_thermal = true;
                pass.thermal = &thermal;
                core::matrix_null_assembler none;
                pass.matrix = &none;
                pass.vector = &F;
                EXPECT_EQ(shell->run_elements(core::kind_stiffness, pass), no_error);
                return pass.total_energy;
            };
            const double e = alpha * dT, k = alpha * g;
            sum_vector_assembler free_F, held_F;
            const double free_energy = run(values_of(m, 6, six,
                                                     [&](unsigned node, unsigned place) {
                                                         const double x = m.pos(0, node), y = m.pos(1, node);
                                                         if (n == 1) return place == 0 ? e * x : place == 1 ? e * y : 0.0;
                                                         switch (place) {
                                                         case 2: return -0.5 * k * (x * x + y * y);
                                                         case 3: return -k * y;
                                                         case 4: return k * x;
                                                         default: return 0.0;
                                                         }
                                                     }),
                                           free_F);
            const double held_energy = run(core::DOF_values_view(), held_F);
            double largest = 0.0;
            for (const auto& [ID, f] : held_F.sums) largest = std::max(largest, std::fabs(f));
            ASSERT_GT(largest, 0.0);
            for (const auto& [ID, f] : free_F.sums) EXPECT_LT(std::fabs(f), 1e-10 * largest) << ID;
            EXPECT_LT(std::fabs(free_energy), 1e-12 * held_energy);
            // Held: the blocked expansion's energy h C e^2 (1 + nu) on the unit
            // area, or the blocked curvature's D k^2 (1 + nu).
            const double C = E / (1.0 - nu * nu);
            const double blocked = n == 1 ? h * C * e * e * (1.0 + nu) : C * h * h * h / 12.0 * k * k * (1.0 + nu);
            EXPECT_NEAR(held_energy, blocked, 1e-9 * blocked);
        }
}

// A flat shell loaded in its plane, its normal translations and its rotations held,
// The finite variants' matrices are the derivatives of the opposite of their vectors
// and split into material and geometric modes; on every face type, plates and shells.
TEST(shell_elements, tangent_is_the_derivative_of_the_internal_forces_and_splits_into_its_modes)
{
    const unsigned places[6] = {0, 1, 2, 3, 4, 5}, plate_places[3] = {2, 3, 4};
    for (element_type type : face_types)
        for (bool plate : {false, true}) {
            SCOPED_TRACE(testing::Message() << type << (plate ? " plate" : " shell"));
            model_context mc;
            test_mesh m = square(type, 1, 0.1, !plate);
            m.cells = m.cells.sub_matrix(0, 0, m.cells.rows(), 1); // one triangle of two
            const auto law = shell_law(1000.0, 0.3, 0.05);
            auto finite = plate ? made(mc, new core::plate_finite(law, 2), m) : made(mc, new core::shell_finite(law), m);
            auto small = plate ? made(mc, new core::plate_small(law, 2), m) : made(mc, new core::shell_small(law), m);
            ASSERT_TRUE(finite && small);
            const unsigned n = plate ? 3 : 6;
            // Turns of order one radian as well: the directors go by the exponential map.
            for (double amplitude : {0.05, 1.2}) {
                SCOPED_TRACE(amplitude);
                std::vector<double> u(n * m.cells.rows());
                for (unsigned i = 0; i < u.size(); ++i) u[i] = amplitude * std::sin(1.7 * i + 0.3);
                const tangent_errors e = tangent_errors_of(*finite, nullptr, m, n, plate ? plate_places : places, u);
                EXPECT_LT(e.derivative, 1e-6);
                EXPECT_LT(e.split, 1e-12);
            }
        }
}

// moves in its plane as the membrane of the same mesh and law.
TEST(shell_elements, flat_shell_in_its_plane_is_the_membrane)
{
    const double E = 1000.0, nu = 0.3, h = 0.1;
    for (element_type type : face_types) {
        SCOPED_TRACE(type);
        model_context mc;
        const test_mesh m = square(type, 3, 0.3, false);
        Ptr<core::law_membrane_StVenant> membrane_law = new core::law_membrane_StVenant;
        dense1D<double, 8> d;
        for (double v : {E, nu, 0.0, h}) d.push_back(v);
        ASSERT_EQ(membrane_law->init(d), no_error);
        std::map<unsigned, double> in_plane[2];
        for (unsigned which = 0; which < 2; ++which) {
            auto model = which == 0 ? made(mc, new core::shell_small(shell_law(E, nu, h)), m)
                                    : made(mc, new core::membrane_small(membrane_law), m);
            ASSERT_TRUE(model);
            dense_assembler K;
            ASSERT_EQ(assemble(*model, core::kind_stiffness, m, K), no_error);
            // x = 0 held along x, its corner along y too; a traction (1, 0.4) on x = 1.
            std::vector<unsigned> free;
            std::vector<double> b;
            for (unsigned i = 0; i < K.n; ++i) {
                const unsigned node = K.rows[i] / 9, place = K.rows[i] % 9;
                const double x = m.pos(0, node), y = m.pos(1, node);
                if (place > 1 || (x < 1e-12 && (place == 0 || y < 1e-12))) continue;
                free.push_back(i);
                b.push_back(std::fabs(x - 1.0) < 1e-12 ? (place == 0 ? 1.0 : 0.4) : 0.0);
            }
            const unsigned nf = free.size();
            std::vector<double> A(std::size_t(nf) * nf);
            for (unsigned j = 0; j < nf; ++j)
                for (unsigned i = 0; i < nf; ++i) A[std::size_t(j) * nf + i] = K.get(free[i], free[j]);
            const std::vector<double> u = solve_dense(A, b, nf);
            for (unsigned j = 0; j < nf; ++j) in_plane[which][K.rows[free[j]]] = u[j];
        }
        ASSERT_EQ(in_plane[0].size(), in_plane[1].size());
        double scale = 0.0;
        for (const auto& [ID, u] : in_plane[1]) scale = std::max(scale, std::fabs(u));
        ASSERT_GT(scale, 0.0);
        for (const auto& [ID, u] : in_plane[1]) EXPECT_NEAR(in_plane[0].at(ID), u, 1e-10 * scale) << ID;
    }
}

} // namespace
