// Discrete elements against closed forms: a block settling on springs, a point mass
// on a spring vibrating at sqrt(k/m) / 2 pi, the parallel-axis rule of an offset
// mass, a damped one decaying in time, user matrices equal to the elements they
// replace (a beam's among them), C = alpha K + beta M, and the refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kelt/discrete/discrete_elements.h"
#include "kelt/fem.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/numbering.h"
#include "support/core_context.h"
#include "support/solid_problems.h"
#include "support/values.h"

using namespace kelt;
using namespace kelt::test;

namespace {

constexpr unsigned ground = 0xFFFFFFFFu;


fem::law_scalar scalar(double k)
{
    fem::law_scalar law;
    EXPECT_EQ(law.init(k), no_error);
    return law;
}

fem::solver_static_linear::data_type solve(fem::problem_data& p)
{
    fem::solver_static_linear s;
    fem::solver_static_linear::data_type data(p);
    s.run(data);
    EXPECT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    return data;
}

// One core element evaluated on a state U (by identifier), kind and mode as given.
struct element_run {
    core::element_work_type w;
    Ptr<vector_fast> rows{new vector_fast};

    explicit element_run(const std::vector<std::pair<unsigned, double>>& U, dense2D<double> pos = {})
    {
        w.pos = pos;
        for (const auto& [ID, v] : U) {
            rows->push_back(ID);
            w.U.values.push_back(v);
        }
        w.U.rows = rows;
    }
    error_type run(const core::numerical_model_base& m, core::pass_kind kind, unsigned element = 0)
    {
        w.element = element;
        return m.compute_element(kind, w);
    }
    double force(unsigned ID) const
    {
        for (unsigned i = 0; i < w.DOFs.size(); ++i)
            if (w.DOFs[i] == ID && i < w.Fe.size()) return w.Fe[i];
        return 0.0;
    }
};

} // namespace

// One hexa8 on four grounded springs under a load F on its top: each base node
// settles by F / (4 k), each spring carries k u, and the energy is half the work.
TEST(discrete_springs, a_block_on_springs_settles_by_F_over_n_k)
{
    test_context t;
    mesh m = box_mesh(element_hexa8, {1.0, 1.0, 1.0}, {1, 1, 1});
    const double k = 250.0, F = -8.0;
    std::vector<unsigned> IDs{t.solid(m, 1000.0, 0.3)};
    std::vector<fem::spring> springs;
    fem::law_scalar law = scalar(k);
    std::vector<unsigned> base, top;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) (m.pos(2, node) == 0.0 ? base : top).push_back(node);
    ASSERT_EQ(base.size(), 4u);
    for (unsigned i = 0; i < base.size(); ++i) {
        springs.emplace_back(t.ctx);
        // Both ways of saying "to the ground": the ground first, or twice the node.
        const unsigned other = i % 2 ? ground : base[i];
        ASSERT_EQ(springs.back().init(other, base[i], displacement_tag, law), no_error);
        IDs.push_back(springs.back().get_ID());
    }
    fem::numerical_model_composite all(t.ctx);
    for (unsigned ID : IDs) ASSERT_EQ(all.insert(ID), no_error);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    fem::problem_data p(t.ctx, m.pos, DOFs, all.get_ID(), 1);
    for (unsigned node : top) ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(node, 2), F / 4, no_func), no_error);
    auto data = solve(p);
    double work = 0.0, spring_forces = 0.0;
    for (unsigned node : top) work += F / 4 * value(data.U, dof(node, 2));
    for (unsigned node : base) {
        const double u = value(data.U, dof(node, 2));
        EXPECT_NEAR(u, F / (4 * k), 1e-10 * std::fabs(F / k)) << node;
        spring_forces += k * u;
    }
    EXPECT_NEAR(spring_forces, F, 1e-10 * std::fabs(F));
    EXPECT_NEAR(data.energies[0], 0.5 * work, 1e-10 * std::fabs(work));
}

// A node held by three directional springs on rotated axes, by the same springs in
// one stiffness_sym of either packing, and by stiffness_diag in the axes of the
// frame: the same displacement, R diag(1/k) R' F.
TEST(discrete_springs, rotated_directional_springs_equal_their_matrix)
{
    const double c = std::cos(0.4), s = std::sin(0.4), ks[3] = {100.0, 300.0, 700.0};
    const double R[3][3] = {{c, -s, 0.0}, {s * 0.6, c * 0.6, 0.8}, {-s * 0.8, -c * 0.8, 0.6}}; // columns: the axes
    const double F[3] = {1.0, -2.0, 0.5};
    double K[3][3] = {}, expected[3] = {};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned a = 0; a < 3; ++a) {
                K[i][j] += R[i][a] * ks[a] * R[j][a];
                expected[i] += R[i][a] * R[j][a] / ks[a] * F[j];
            }
    enum form { directional, sym_by_rows, sym_by_columns };
    for (form f : {directional, sym_by_rows, sym_by_columns}) {
        SCOPED_TRACE(int(f));
        test_context t;
        fem::numerical_model_composite all(t.ctx);
        std::vector<fem::spring_directional> springs;
        fem::stiffness_sym matrix;
        if (f == directional) {
            for (unsigned a = 0; a < 3; ++a) {
                springs.emplace_back(t.ctx);
                ASSERT_EQ(springs.back().init(0, ground, displacement_tag, {{R[0][a], R[1][a], R[2][a]}}, 1.0, 0.0,
                                              scalar(ks[a])),
                          no_error);
                ASSERT_EQ(all.insert(springs.back().get_ID()), no_error);
            }
        } else {
            symmetric_full<double> packed(3);
            unsigned at = 0;
            // The lower triangle by rows, or by columns.
            for (unsigned a = 0; a < 3; ++a)
                for (unsigned b = f == sym_by_rows ? 0 : a; f == sym_by_rows ? b <= a : b < 3; ++b)
                    packed.data()[at++] = f == sym_by_rows ? K[a][b] : K[b][a];
            matrix.create(t.ctx);
            ASSERT_EQ(matrix.init(packed, make<unsigned>({dof(0, 0), dof(0, 1), dof(0, 2)}), f == sym_by_rows ? 1 : 0),
                      no_error);
            ASSERT_EQ(all.insert(matrix.get_ID()), no_error);
        }
        dense2D<double> pos(3, 1, 0.0);
        fem::DOFs_mgr DOFs(1, true);
        fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
        for (unsigned i = 0; i < 3; ++i) ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(0, i), F[i], no_func), no_error);
        auto data = solve(p);
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(value(data.U, dof(0, i)), expected[i], 1e-12) << i;
    }
}

// A mass on a grounded spring vibrates at sqrt(k/m) / 2 pi, whatever the offset of
// its centre (the spring holds translations only, and rotations have no stiffness).
TEST(discrete_masses, a_mass_on_a_spring_vibrates_at_sqrt_k_over_m)
{
    test_context t;
    const double k = 4.0e4, m = 2.5;
    fem::spring support(t.ctx);
    ASSERT_EQ(support.init(0, ground, displacement_tag, scalar(k)), no_error);
    fem::mass_punctual body(t.ctx);
    ASSERT_EQ(body.init(0, m), no_error);
    fem::numerical_model_composite all(t.ctx);
    ASSERT_EQ(all.insert(make<unsigned>({support.get_ID(), body.get_ID()})), no_error);
    dense2D<double> pos(3, 1, 0.0);
    fem::DOFs_mgr DOFs(1, true);
    ASSERT_EQ(DOFs.set(0, displacement_tag, 1, 2, false), no_error); // x alone vibrates
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 0);
    fem::solver_modal s;
    s.settings.max_modes = 1;
    fem::solver_modal::data_type data(p);
    s.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    ASSERT_EQ(data.freqs.size(), 1u);
    const double f0 = std::sqrt(k / m) / (2 * M_PI);
    EXPECT_NEAR(data.freqs[0], f0, 1e-10 * f0);
}

// Two point masses, one with an offset and its own inertia: the weighing finds the
// centre at the offset centres and the inertia moved by the parallel axes.
TEST(discrete_masses, an_offset_moves_the_centre_and_the_inertia_by_parallel_axes)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 2.0;
    const double m1 = 3.0, m2 = 1.0;
    symmetric_fixed<double, 3> J;
    J(0, 0) = 0.5, J(1, 1) = 0.7, J(2, 2) = 0.9, J(0, 1) = 0.1;
    const vector_fixed<double, 3> o{{0.0, 1.0, -1.0}};
    fem::mass_punctual a(t.ctx), b(t.ctx);
    ASSERT_EQ(a.init(0, m1, J, o), no_error);
    ASSERT_EQ(b.init(1, m2), no_error);
    fem::numerical_model_composite all(t.ctx);
    ASSERT_EQ(all.insert(make<unsigned>({a.get_ID(), b.get_ID()})), no_error);
    fem::DOFs_mgr DOFs(2, true);
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 0);
    // Centres of the two masses, the common centre, and the tensor by hand.
    const double x1[3] = {0.0, 1.0, -1.0}, x2[3] = {2.0, 0.0, 0.0};
    double G[3], I[3][3];
    for (unsigned i = 0; i < 3; ++i) G[i] = (m1 * x1[i] + m2 * x2[i]) / (m1 + m2);
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            I[i][j] = J(i, j);
            for (const auto& [mk, x] : {std::pair{m1, x1}, std::pair{m2, x2}}) {
                double d[3], d2 = 0.0;
                for (unsigned c = 0; c < 3; ++c) d[c] = x[c] - G[c], d2 += d[c] * d[c];
                I[i][j] += mk * ((i == j ? d2 : 0.0) - d[i] * d[j]);
            }
        }
    for (unsigned mode : {0u, 4u}) {
        fem::solver_mass s;
        s.settings.mode = mode;
        fem::solver_mass::data_type data(p);
        s.run(data);
        ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
        EXPECT_NEAR(data.total_mass, m1 + m2, 1e-14);
        if (mode != 4) continue;
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(data.center[i], G[i], 1e-14) << i;
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) EXPECT_NEAR(data.inertia(i, j), I[i][j], 1e-13) << i << j;
    }
}

// The forces of the elements on a state, by the sign rule: Fe = -A u.
TEST(discrete_elements, forces_follow_the_sign_rule_and_the_spring_reads_its_law_as_secant)
{
    core_context c;
    // A spring law whose stiffness is 1 up to 1 and 3 beyond: at s = 2 its force
    // is 4, but the spring's force is the secant 3 x 2.
    fem::law_spring_nl curved;
    dense2D<double> table(2, 2);
    table(0, 0) = 1.0, table(0, 1) = 2.0, table(1, 0) = 1.0, table(1, 1) = 3.0;
    ASSERT_EQ(curved.init(table, 0.0, 0.0, 0.0, 0.0), no_error);
    Ptr<core::law_scalar> law(dynamic_cast<core::law_scalar*>(fem::core_of(curved)));
    Ptr<core::spring> sp(new core::spring(c.ctx));
    ASSERT_EQ(sp->init(3, 7, displacement_tag, law), no_error);
    element_run r({{dof(7, 0), 1.2}, {dof(7, 1), 1.6}, {dof(3, 0), 0.0}}); // |d| = 2
    ASSERT_EQ(r.run(*sp, core::kind_stiffness), no_error);
    EXPECT_DOUBLE_EQ(r.force(dof(7, 0)), -3.0 * 1.2);
    EXPECT_DOUBLE_EQ(r.force(dof(7, 1)), -3.0 * 1.6);
    EXPECT_DOUBLE_EQ(r.force(dof(3, 1)), +3.0 * 1.6);
    EXPECT_EQ(r.w.DOFs.size(), 6u);

    // A dash-pot is the same spring on velocities, in the damping pass alone.
    fem::dash_pot damper(c.host);
    ASSERT_EQ(damper.init(7, 7, displacement_tag, scalar(5.0)), no_error);
    auto* d = static_cast<core::numerical_model_base*>(fem::core_of(damper));
    ASSERT_EQ(r.run(*d, core::kind_stiffness), no_error);
    ASSERT_EQ(r.run(*d, core::kind_damping), no_error);
    EXPECT_EQ(r.w.DOFs.size(), 3u); // the same node twice: to the ground
    EXPECT_DOUBLE_EQ(r.force(dof(7, 1)), -5.0 * 1.6);

    // A drilling spring: a rigid rotation about z strains nothing, a rotation of
    // node1 alone gives k theta² / 2.
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 2.0;
    Ptr<core::spring_drill> drill(new core::spring_drill(c.ctx));
    ASSERT_EQ(drill->init(pos, 0, 1, {{0.0, 0.0, 3.0}}, Ptr<core::law_scalar>(new core::law_scalar)), no_error);
    Ptr<core::law_scalar> k10(dynamic_cast<core::law_scalar*>(fem::core_of(scalar(10.0))));
    ASSERT_EQ(drill->init(pos, 0, 1, {{0.0, 0.0, 3.0}}, k10), no_error);
    const double theta = 0.01;
    element_run rigid({{0 * 9 + 5, theta}, {dof(1, 1), theta * 2.0}});
    ASSERT_EQ(rigid.run(*drill, core::kind_stiffness), no_error);
    EXPECT_NEAR(rigid.w.energy, 0.0, 1e-18);
    element_run alone({{0 * 9 + 5, theta}});
    ASSERT_EQ(alone.run(*drill, core::kind_stiffness), no_error);
    EXPECT_NEAR(alone.w.energy, 0.5 * 10.0 * theta * theta, 1e-15);

    // A diagonal mass and a point mass with an offset: -M u.
    Ptr<core::mass_punctual> pm(new core::mass_punctual(c.ctx));
    ASSERT_EQ(pm->init(0, 2.0, {}, {{0.0, 0.0, 0.5}}), no_error);
    element_run moving({{dof(0, 0), 1.0}}, pos);
    ASSERT_EQ(moving.run(*pm, core::kind_mass), no_error);
    EXPECT_DOUBLE_EQ(moving.force(dof(0, 0)), -2.0);
    EXPECT_DOUBLE_EQ(moving.force(0 * 9 + 4), +2.0 * 0.5); // -(ry, ux) = m oz
    EXPECT_DOUBLE_EQ(moving.w.energy, 0.5 * 2.0);
}

// C = alpha K + beta M, assembled on the solver's numbering; an identifier that
// names no model leaves the other term alone.
TEST(discrete_damping, Rayleigh_is_alpha_K_plus_beta_M)
{
    test_context t;
    mesh m = box_mesh(element_hexa8, {2.0, 1.0, 1.0}, {2, 1, 1});
    const unsigned K_ID = t.solid(m, 1000.0, 0.3), M_ID = t.mass(m, 2.0);
    const double alpha = 0.03, beta = 5.0;
    fem::damping_Rayleigh full(t.ctx), half(t.ctx);
    ASSERT_EQ(full.init(alpha, K_ID, beta, M_ID), no_error);
    ASSERT_EQ(half.init(alpha, 0xFFFFFF00u, beta, M_ID), no_error);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    fem::problem_data p(t.ctx, m.pos, DOFs, K_ID, 0);
    auto& cp = *static_cast<core::problem_data*>(fem::core_of(p));
    fem::solver_static_linear::settings_type settings;
    fem::run_status status;
    core::run_state run(settings, status);
    run.set_problem(&cp, true);
    auto& mgr = *static_cast<core::context_type*>(fem::core_of(t.ctx))->numerical_models_mgr;
    core::numbering n;
    double timer = 0.0;
    ASSERT_TRUE(core::number_DOFs(run, *mgr.get_NM(K_ID), core::kind_stiffness, {}, false, n, timer));
    auto assemble = [&](unsigned ID, core::pass_kind kind) {
        core::indexed_sym_matrix A;
        EXPECT_TRUE(core::assemble_matrix(run, *mgr.get_NM(ID), kind, core::make_pass(cp), n, A, timer));
        return A;
    };
    auto K = assemble(K_ID, core::kind_stiffness), M = assemble(M_ID, core::kind_mass);
    auto C = assemble(full.get_ID(), core::kind_damping), C_half = assemble(half.get_ID(), core::kind_damping);
    double worst = 0.0, worst_half = 0.0, scale = 0.0;
    for (unsigned i = 0; i < n.size(); ++i)
        for (unsigned j = 0; j <= i; ++j) {
            const double k = K.matrix.get(i, j), mm = M.matrix.get(i, j);
            scale = std::max(scale, std::fabs(alpha * k));
            worst = std::max(worst, std::fabs(C.matrix.get(i, j) - (alpha * k + beta * mm)));
            worst_half = std::max(worst_half, std::fabs(C_half.matrix.get(i, j) - beta * mm));
        }
    ASSERT_GT(scale, 0.0);
    EXPECT_LE(worst, 1e-14 * scale);
    EXPECT_LE(worst_half, 1e-14 * scale);
}

// Refusals, each with its code; a refused matrix leaves the element empty.
TEST(discrete_elements, bad_input_is_refused_with_its_code)
{
    core_context c;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 1.0;
    Ptr<core::law_scalar> k1(new core::law_scalar);
    ASSERT_EQ(k1->init(make<double>({1.0})), no_error);
    const vector_fixed<double, 3> z{{0.0, 0.0, 1.0}}, zero{};

    Ptr<core::spring_drill> drill(new core::spring_drill(c.ctx));
    Ptr<core::spring_directional> dir(new core::spring_directional(c.ctx));
    Ptr<core::spring> sp(new core::spring(c.ctx));
    struct refusal {
        const char* what;
        error_type code;
        error_type got;
    };
    const refusal table[] = {
        {"drill on coincident nodes", invalid_data_error, drill->init(pos, 0, 0, z, k1)},
        {"drill on a zero axis", invalid_data_error, drill->init(pos, 0, 1, zero, k1)},
        {"drill on a node without position", invalid_data_error, drill->init(pos, 0, 2, z, k1)},
        {"spring without law", invalid_data_error, sp->init(0, 1, displacement_tag, nullptr)},
        {"spring on two grounds", invalid_data_error, sp->init(ground, ground, displacement_tag, k1)},
        {"spring on an unknown field", invalid_data_error, sp->init(0, 1, field_tag(9), k1)},
        {"list and coefficients of two sizes", invalid_data_error,
         dir->init(make<unsigned>({0, 1}), make<double>({1.0}), k1)},
        {"zero direction: an empty element", no_error, dir->init(0, 1, displacement_tag, zero, 1.0, -1.0, k1)},
    };
    for (const refusal& r : table) EXPECT_EQ(r.got, r.code) << r.what;
    EXPECT_EQ(dir->DOFs.size(), 0u);

    // The same DOF twice sums; opposite coefficients stay listed with 0; on the
    // temperature field three components fall on one DOF.
    ASSERT_EQ(dir->init(make<unsigned>({4, 5, 4, 5}), make<double>({1.0, 2.0, 0.5, -2.0}), k1), no_error);
    ASSERT_EQ(dir->DOFs.size(), 2u);
    EXPECT_EQ(dir->coefs[0], 1.5);
    EXPECT_EQ(dir->coefs[1], 0.0);
    ASSERT_EQ(dir->init(1, ground, temperature_tag, {{1.0, 0.0, 0.0}}, 2.0, 0.0, k1), no_error);
    ASSERT_EQ(dir->DOFs.size(), 1u);
    EXPECT_EQ(dir->DOFs[0], 1u * 9 + 6);

    // A matrix of the wrong order, or one whose order counts a DOF listed twice.
    test_context t;
    fem::stiffness_sym user(t.ctx);
    symmetric_full<double> K2(2, 1.0), back;
    dense1D<unsigned, 8> listed;
    int order = 0;
    ASSERT_EQ(user.init(K2, make<unsigned>({3, 4}), 1), no_error);
    EXPECT_EQ(user.init(K2, make<unsigned>({3, 4, 5}), 1), invalid_data_error);
    ASSERT_EQ(user.get_params(back, listed, order), no_error);
    EXPECT_EQ(back.order(), 0u);
    EXPECT_EQ(listed.size(), 0u);
    EXPECT_EQ(user.init(K2, make<unsigned>({3, 4, 3}), 1), no_error);

    // An element index other than 0 or all.
    {
        auto* nm = static_cast<core::numerical_model_base*>(fem::core_of(user));
        element_run r({{3, 1.0}}, pos);
        EXPECT_EQ(r.run(*nm, core::kind_stiffness, 1), element_index_error);
        EXPECT_EQ(r.run(*nm, core::kind_stiffness, core::all_elements), no_error);
        EXPECT_EQ(r.w.Ke.order(), 2u);
    }
    for (core::numerical_model_base* nm : {static_cast<core::numerical_model_base*>(sp.get()),
                                           static_cast<core::numerical_model_base*>(drill.get())}) {
        element_run r({}, pos);
        EXPECT_EQ(r.run(*nm, core::kind_stiffness, 2), element_index_error);
    }
}

// Heat through two conductances in series, given as a symmetric matrix between
// the nodes and a diagonal film to the ambient: T0 = Q / g, T1 = Q / g + Q / h.
TEST(discrete_thermal, conductances_in_series_through_the_thermal_solver)
{
    test_context t;
    const double h = 4.0, g = 10.0, Q = 30.0;
    const unsigned T0 = fem::DOFs_mgr::ID(0, temperature_tag, 0), T1 = fem::DOFs_mgr::ID(1, temperature_tag, 0);
    fem::thermal_sym link(t.ctx);
    symmetric_full<double> H(2);
    H(0, 0) = H(1, 1) = h, H(0, 1) = -h;
    ASSERT_EQ(link.init(H, make<unsigned>({T0, T1})), no_error);
    fem::thermal_diag film(t.ctx);
    ASSERT_EQ(film.init(make<double>({g}), make<unsigned>({T0})), no_error);
    fem::numerical_model_composite all(t.ctx);
    ASSERT_EQ(all.insert(make<unsigned>({link.get_ID(), film.get_ID()})), no_error);
    dense2D<double> pos(3, 2, 0.0);
    fem::DOFs_mgr DOFs(2, true);
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
    ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(T1, Q, no_func), no_error);
    fem::solver_thermal_static_linear s;
    fem::solver_thermal_static_linear::data_type data(p);
    s.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_NEAR(value(data.U, T0), Q / g, 1e-13);
    EXPECT_NEAR(value(data.U, T1), Q / g + Q / h, 1e-13);
}

// A mass on a grounded spring and dash-pot under a step load, stepped in time: it
// swings about F / k with the damped period, and each swing is smaller than the one
// before by the damping ratio c / (2 sqrt(k m)).
TEST(discrete_masses, a_damped_mass_on_a_spring_decays_in_time)
{
    test_context t;
    const double k = 4.0e4, m = 2.5, zeta = 0.05, c = 2.0 * zeta * std::sqrt(k * m), F = 100.0;
    fem::spring support(t.ctx);
    fem::dash_pot damper(t.ctx);
    fem::mass_punctual body(t.ctx);
    ASSERT_EQ(support.init(0, ground, displacement_tag, scalar(k)), no_error);
    ASSERT_EQ(damper.init(0, ground, displacement_tag, scalar(c)), no_error);
    ASSERT_EQ(body.init(0, m), no_error);
    fem::numerical_model_composite all(t.ctx);
    ASSERT_EQ(all.insert(make<unsigned>({support.get_ID(), damper.get_ID(), body.get_ID()})), no_error);
    dense2D<double> pos(3, 1, 0.0);
    fem::DOFs_mgr DOFs(1, false); // x alone: a step needs every free DOF to have mass or stiffness
    ASSERT_EQ(DOFs.set(0, displacement_tag, 0, true), no_error);
    fem::problem_data p(t.ctx, pos, DOFs, all.get_ID(), 1);
    ASSERT_EQ(p.get_loads_mgr(0).record_DOF_load(dof(0, 0), F, no_func), no_error);

    const double w = std::sqrt(k / m), T = 2.0 * M_PI / w, Td = T / std::sqrt(1.0 - zeta * zeta);
    const unsigned steps = 1200;
    fem::solver_Newmark s;
    s.settings.dt = T / 400.0, s.settings.t_end = steps * s.settings.dt;
    fem::solver_Newmark::data_type data(p);
    s.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    std::vector<double> swing(steps);
    for (unsigned n = 0; n < steps; ++n) swing[n] = value(data.U, dof(0, 0), n) - F / k;
    std::vector<unsigned> peaks;
    for (unsigned n = 1; n + 1 < steps; ++n)
        if (swing[n] > swing[n - 1] && swing[n] >= swing[n + 1]) peaks.push_back(n);
    ASSERT_GE(peaks.size(), 2u);
    const double delta = std::log(swing[peaks[0]] / swing[peaks[1]]);
    EXPECT_NEAR(delta / std::sqrt(4.0 * M_PI * M_PI + delta * delta), zeta, 1e-2 * zeta);
    EXPECT_NEAR((peaks[1] - peaks[0]) * s.settings.dt, Td, 2.0 * s.settings.dt);
}

// A user matrix holding a beam element's 12 x 12 stiffness (six DOFs a node, a skew
// axis, a skew section with offsets) carries a tip load as the beam does.
TEST(discrete_springs, a_beam_matrix_as_stiffness_sym_deflects_as_the_beam)
{
    test_context t;
    dense2D<double> pos(3, 2, 0.0);
    pos(0, 1) = 1.0, pos(1, 1) = 2.0, pos(2, 1) = 2.0;
    dense2D<unsigned> cells(2, 1);
    cells(0, 0) = 0, cells(1, 0) = 1;
    dense1D<double, 8> section;
    for (double v : {1.0, 0.0, 0.3, 2.1e5, 8.0e4, 0.0, 3.0, 2.5, 2.0, 1.5, 2.0, 1.2, 0.3, 0.05, -0.02})
        section.push_back(v);
    fem::law_beam_StVenant law;
    fem::model_beam_lin physics;
    fem::numerical_model_stiff_lin beam(t.ctx);
    ASSERT_EQ(law.init(section), no_error);
    ASSERT_EQ(physics.init(law), no_error);
    ASSERT_EQ(beam.init(t.ctx, physics, cells, element_edge2), no_error);

    fem::DOFs_mgr DOFs(2, false);
    ASSERT_EQ(DOFs.set(1, displacement_tag, true), no_error);
    ASSERT_EQ(DOFs.set(1, rotation_tag, true), no_error);
    const double F[6] = {1.0, -2.0, 0.5, 0.3, -0.1, 0.2};
    auto tip_of = [&](unsigned model) {
        fem::problem_data p(t.ctx, pos, DOFs, model, 1);
        for (unsigned i = 0; i < 6; ++i)
            EXPECT_EQ(p.get_loads_mgr(0).record_DOF_load(fem::DOFs_mgr::ID(1, i < 3 ? displacement_tag : rotation_tag,
                                                                            i % 3),
                                                         F[i], no_func),
                      no_error);
        auto data = solve(p);
        std::vector<double> u;
        for (unsigned i = 0; i < 6; ++i)
            u.push_back(value(data.U, fem::DOFs_mgr::ID(1, i < 3 ? displacement_tag : rotation_tag, i % 3)));
        return u;
    };

    fem::problem_data whole(t.ctx, pos, DOFs, beam.get_ID(), 1);
    fem::elementary_server server;
    fem::elementary_server::data_type element(whole);
    server.run(element, false);
    ASSERT_EQ(element.error_code, no_error) << element.msg_title << element.msg_detail;
    ASSERT_EQ(element.K.order(), 12u);
    fem::stiffness_sym matrix(t.ctx);
    ASSERT_EQ(matrix.init(element.K, element.IDs, 1), no_error); // the upper triangle by columns

    const std::vector<double> expected = tip_of(beam.get_ID()), got = tip_of(matrix.get_ID());
    for (unsigned i = 0; i < 6; ++i) EXPECT_NEAR(got[i], expected[i], 1e-10 * std::fabs(expected[0])) << i;
}
