// The static linear solvers against physics, through their public handles: patch
// tests of the volume shapes, a cantilever against beam theory, a linear
// temperature through a bar, the conjugate gradient against the direct solution,
// energies, thread counts, and every failure the record can report.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "kelt/fem.h"
#include "support/log_capture.h"
#include "support/solid_problems.h"

using namespace kelt;
using namespace kelt::test;

namespace {

template <class Solver>
Solver solver_with(log_capture& c)
{
    Solver s;
    report_to(s.settings, c);
    s.settings.CG_tolerance = 1e-12;
    return s;
}


// The largest difference of two columns, relative to the largest value of the first.
double largest_gap(const dense1D<double, 8>& a, const dense1D<double, 8>& b)
{
    double scale = 0.0, gap = 0.0;
    for (unsigned r = 0; r < a.size() && r < b.size(); ++r) {
        scale = std::max(scale, std::fabs(a[r]));
        gap = std::max(gap, std::fabs(a[r] - b[r]));
    }
    return gap / scale;
}

bool on_boundary(const mesh& m, unsigned node, const double (&size)[3])
{
    for (unsigned d = 0; d < 3; ++d)
        if (m.pos(d, node) == 0.0 || m.pos(d, node) == size[d]) return true;
    return false;
}

// u = A x + c, and its elastic energy density for an isotropic law.
struct linear_field {
    double A[3][3];
    double c[3];

    double at(const mesh& m, unsigned node, unsigned i) const
    {
        return c[i] + A[i][0] * m.pos(0, node) + A[i][1] * m.pos(1, node) + A[i][2] * m.pos(2, node);
    }
    double energy_density(double E, double nu) const
    {
        const double lambda = E * nu / ((1 + nu) * (1 - 2 * nu)), mu = E / (2 * (1 + nu));
        double eps[3][3], tr = 0.0, ee = 0.0;
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) eps[i][j] = 0.5 * (A[i][j] + A[j][i]);
        for (unsigned i = 0; i < 3; ++i) tr += eps[i][i];
        for (unsigned i = 0; i < 3; ++i)
            for (unsigned j = 0; j < 3; ++j) ee += eps[i][j] * eps[i][j];
        return 0.5 * (lambda * tr * tr + 2 * mu * ee);
    }
};

const linear_field field_a = {{{1e-3, 2e-3, -1e-3}, {5e-4, -2e-3, 1e-3}, {3e-3, 1e-3, 2e-3}}, {0.1, -0.2, 0.3}};
const linear_field field_b = {{{-2e-3, 1e-3, 0.0}, {1e-3, 1e-3, -3e-3}, {0.0, 2e-3, -1e-3}}, {0.0, 0.05, 0.0}};

void prescribe(fem::loads_mgr loads, const mesh& m, unsigned node, const linear_field& f, double extra = 0.0)
{
    for (unsigned i = 0; i < 3; ++i)
        ASSERT_EQ(loads.record_DOF_prescribed_value(dof(node, i), f.at(m, node, i) + (i == 0 ? extra : 0.0), no_func),
                  no_error);
}

// ---------------------------------------------------------------------------------
// Patch test: a linear displacement held on the boundary of a distorted patch gives
// the same linear field inside, and the energy of its constant strain. Two cases,
// both held on the whole boundary: one matrix, one block solve of both.

class static_linear_patch : public testing::TestWithParam<element_type> {};

TEST_P(static_linear_patch, boundary_values_of_a_linear_field_give_it_inside_exactly)
{
    const double size[3] = {1, 1, 1};
    const double E = 1000.0, nu = 0.3;
    mesh m = box_mesh(GetParam(), size, {2, 2, 2}, 0.2);
    test_context t;
    fem::problem_data problem = t.problem(m, t.solid(m, E, nu), 2);
    unsigned held = 0;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.used[node] && on_boundary(m, node, size)) {
            prescribe(problem.get_loads_mgr(0), m, node, field_a);
            prescribe(problem.get_loads_mgr(1), m, node, field_b);
            held += 3;
        }
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_EQ(data.warning_code, no_error);
    EXPECT_EQ(data.bad_pivot_ID, 0xFFFFFFFFu);
    EXPECT_EQ(data.nbr_prescribed_out_K, held);
    EXPECT_EQ(data.nbr_prescribed_in_K, 0u);
    EXPECT_EQ(data.nbr_rows, data.nbr_free_DOFs + held);
    EXPECT_FALSE(c.has("Conjugate gradient"));
    const linear_field* fields[2] = {&field_a, &field_b};
    for (unsigned col = 0; col < 2; ++col) {
        double worst = 0.0;
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.used[node])
                for (unsigned i = 0; i < 3; ++i)
                    worst = std::max(worst, std::fabs(value(data.U, dof(node, i), col) - fields[col]->at(m, node, i)));
        EXPECT_LT(worst, 1e-12) << "case " << col; // values of order 1e-3: rounding of a few hundred sums
        // The whole cube is at one constant strain: energy = density x volume 1.
        const double expected = fields[col]->energy_density(E, nu);
        EXPECT_NEAR(data.energies[col], expected, 1e-9 * expected) << "case " << col;
    }
}

INSTANTIATE_TEST_SUITE_P(volume_shapes, static_linear_patch,
                         testing::Values(element_hexa8, element_hexa27, element_wedge6, element_wedge18,
                                         element_tetra4, element_tetra10, element_pyramid5, element_pyramid14),
                         [](const testing::TestParamInfo<element_type>& p) {
                             switch (p.param) {
                             case element_hexa8: return std::string("hexa8");
                             case element_hexa27: return std::string("hexa27");
                             case element_wedge6: return std::string("wedge6");
                             case element_wedge18: return std::string("wedge18");
                             case element_tetra4: return std::string("tetra4");
                             case element_pyramid5: return std::string("pyramid5");
                             case element_pyramid14: return std::string("pyramid14");
                             default: return std::string("tetra10");
                             }
                         });

TEST(solver_static_linear, cantilever_deflects_as_a_timoshenko_beam)
{
    cantilever beam;
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(beam.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    // Bending P L^3 / 3EI plus shear P L / (kappa G A), kappa = 5/6. The clamped
    // section cannot warp and the end load is not the beam's parabolic shear, so
    // a 3D solution of this slenderness stands within a few percent of the beam.
    const double I = cantilever::b * std::pow(cantilever::h, 3) / 12.0, A = cantilever::b * cantilever::h;
    const double G = cantilever::E / (2 * (1 + cantilever::nu));
    const double beam_theory = cantilever::P * std::pow(cantilever::L, 3) / (3 * cantilever::E * I) +
                               cantilever::P * cantilever::L / (5.0 / 6.0 * G * A);
    const double deflection = value(data.U, dof(beam.tip, 2), 0);
    EXPECT_NEAR(deflection, beam_theory, 0.04 * std::fabs(beam_theory));
    // The blocked root is not a row of the solution.
    EXPECT_EQ(data.U.row_pos(dof(0, 0)), 0xFFFFFFFFu);
    EXPECT_EQ(data.nbr_rows, data.nbr_free_DOFs);
    // Clapeyron: with no value held away from 0, the elastic energy is half the work of the loads.
    double work = 0.0;
    for (const auto& [ID, f] : beam.forces) work += f * value(data.U, ID, 0);
    EXPECT_NEAR(data.energies[0], 0.5 * work, 1e-10 * std::fabs(work));
    EXPECT_TRUE(c.has("STATIC LINEAR RUN (KELT FEM 4.4.0.0) (1 RHS)\n"));
    for (const char* line : {"  0 max displacement     : ", "  0 min rotation         : +0.000000E+00 \n"})
        EXPECT_TRUE(c.has(line)) << line;
    EXPECT_TRUE(c.has("Total computing time"));
}

// Node 1908874355 has identifiers past 32 bits: its x, 1908874355 x 9, wraps onto
// 11, the z of node 1, a free DOF of the beam. Every operation that forms an identifier from it
// refuses it, and the run is what it was without the attempts.
// An elastoplastic law whose yield stress lies far above the beam's largest
// stress (6 P L / (b h^2) = 60) gives the elastic solution exactly.
TEST(solver_static_linear, an_elastoplastic_law_in_its_elastic_range_is_the_elastic_law)
{
    fem::law_solid_ep_perfect law;
    dense1D<double, 8> d;
    for (double v : {cantilever::E, cantilever::nu, 0.0, 0.0, 1e3}) d.push_back(v);
    ASSERT_EQ(law.init(d), no_error);
    cantilever elastic, plastic(&law);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type a(elastic.problem), b(plastic.problem);
    solver.run(a);
    solver.run(b);
    ASSERT_EQ(b.error_code, no_error) << b.msg_title << b.msg_detail;
    for (const auto& [ID, f] : elastic.forces) EXPECT_EQ(value(a.U, ID, 0), value(b.U, ID, 0));
    EXPECT_NE(value(b.U, dof(plastic.tip, 2), 0), 0.0);
}

TEST(solver_static_linear, a_node_whose_identifiers_pass_32_bits_is_refused_and_changes_nothing)
{
    constexpr unsigned far = 1908874355u;
    cantilever beam;
    ASSERT_GT(beam.m.pos(0, 1), 0.0); // node 1 is not on the clamped root
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type before(beam.problem);
    solver.run(before);
    ASSERT_EQ(before.error_code, no_error);

    fem::loads_mgr loads = beam.problem.get_loads_mgr(0);
    fem::DOFs_mgr DOFs = beam.problem.get_DOFs_mgr();
    const vector_fixed<double, 3> big{{1e3, 1e3, 1e3}};
    vector_fixed<double, 3> read;
    const std::pair<const char*, error_type> refused[] = {
        {"nodal load", loads.record_nodal_load(far, displacement_tag, 0, 1e3, no_func)},
        {"nodal prescribed value", loads.record_nodal_prescribed_value(far, displacement_tag, 0, 1.0, no_func)},
        {"force and moment", loads.record_nodal_load(far, big, big, no_func)},
        {"prescribed vectors", loads.record_nodal_prescribed_values(far, big, big, no_func)},
        {"temperature load", loads.record_nodal_load(far, temperature_tag, 0, 1e3, no_func)},
        {"DOF table", DOFs.set(far, displacement_tag, 0, true)},
        {"read from U", before.U.get_vector(far, displacement_tag, 0, read)},
        {"write into U", before.U.set_vector(far, displacement_tag, 0, big)},
    };
    for (const auto& [what, e] : refused) EXPECT_EQ(e, invalid_data_error) << what;
    EXPECT_EQ(fem::DOFs_mgr::ID(far, displacement_tag, 0), 0xFFFFFFFFu);
    EXPECT_EQ(fem::DOFs_mgr::ID(far, rotation_tag, 0), 0xFFFFFFFFu);

    fem::solver_static_linear::data_type after(beam.problem);
    solver.run(after);
    ASSERT_EQ(after.error_code, no_error);
    EXPECT_EQ(after.nbr_prescribed_in_K, 0u);
    ASSERT_EQ(after.U.rows(), before.U.rows());
    const dense1D<double, 8> a = before.U.col(0), b = after.U.col(0);
    // The same problem solved twice: the sums may only differ in their order.
    EXPECT_LE(largest_gap(a, b), 1e-11);
}

TEST(solver_static_linear, one_and_two_threads_agree_to_rounding)
{
    cantilever beam;
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type one(beam.problem), two(beam.problem);
    beam.t.ctx.set_max_threads(1);
    solver.run(one);
    beam.t.ctx.set_max_threads(2);
    solver.run(two);
    ASSERT_EQ(one.error_code, no_error);
    ASSERT_EQ(two.error_code, no_error);
    ASSERT_EQ(one.U.rows(), two.U.rows());
    const dense1D<double, 8> a = one.U.col(0), b = two.U.col(0);
    // Sums of a factorisation in another order: a few hundred roundings at most.
    EXPECT_LE(largest_gap(a, b), 1e-11);
}

TEST(solver_static_linear, RHS_only_leaves_the_loads_and_factorises_nothing)
{
    cantilever beam;
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    solver.settings.RHS_only = true;
    fem::solver_static_linear::data_type data(beam.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    for (const auto& [ID, f] : beam.forces) EXPECT_EQ(value(data.U, ID, 0), f);
    EXPECT_EQ(c.value_of("||du||"), c.value_of("||F||"));
    EXPECT_NE(c.value_of("||F||"), "");
    EXPECT_FALSE(c.has("Factorization"));
    EXPECT_FALSE(c.has("Resolution"));
    EXPECT_EQ(data.energies[0], 0.0);
}

// ---------------------------------------------------------------------------------
// A DOF prescribed in one case of two stays in K and its case goes through the
// gradient; solved alone, with the DOF out of K, the same case must agree.

struct held_inside {
    static constexpr double size[3] = {1, 1, 1};

    held_inside() : m(box_mesh(element_hexa27, size, {2, 2, 2}, 0.15))
    {
        model = t.solid(m, 1000.0, 0.25);
        // The one interior vertex, moved off the centre of the cube.
        double nearest = 1.0;
        for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
            double d = 0.0;
            for (unsigned k = 0; k < 3; ++k) d += std::pow(m.pos(k, node) - 0.5, 2);
            if (m.used[node] && d < nearest) nearest = d, centre = node;
        }
    }

    // Field b on the boundary and the centre pushed off it by 0.01 along x, in one case.
    void hold_b_and_centre(fem::loads_mgr loads)
    {
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.used[node] && on_boundary(m, node, size)) prescribe(loads, m, node, field_b);
        prescribe(loads, m, centre, field_b, 0.01);
    }
    // Case 0: field a on the boundary; case 1: field b and the centre.
    fem::problem_data two_cases()
    {
        fem::problem_data p = t.problem(m, model, 2);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.used[node] && on_boundary(m, node, size)) prescribe(p.get_loads_mgr(0), m, node, field_a);
        hold_b_and_centre(p.get_loads_mgr(1));
        return p;
    }

    test_context t;
    mesh m;
    unsigned model = 0;
    unsigned centre = 0;
};

TEST(solver_static_linear, a_value_held_by_one_case_of_two_goes_through_the_gradient_and_agrees)
{
    held_inside s;
    log_capture c, r;
    auto solver = solver_with<fem::solver_static_linear>(c);
    solver.settings.iteration_hdl = [](void* user, unsigned load_case, unsigned k, double residual) {
        auto& it = static_cast<log_capture*>(user)->iterations;
        EXPECT_EQ(k, it.size() + 1); // after each iteration, from the first
        it.emplace_back(load_case, residual);
    };
    fem::solver_static_linear::data_type data(s.two_cases());
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_EQ(data.nbr_prescribed_in_K, 3u); // the centre's three components
    EXPECT_TRUE(c.has("Conjugate gradient algorithm.\n"));
    // Each iteration is reported to the host, for the case that holds the value.
    ASSERT_GE(c.iterations.size(), 2u);
    EXPECT_TRUE(std::all_of(c.iterations.begin(), c.iterations.end(), [](const auto& i) { return i.first == 1; }));
    EXPECT_LT(c.iterations.back().second, 1e-10 * c.iterations.front().second);

    // The reference: case 1 alone, where every value it holds is common, so out of K.
    fem::problem_data single = s.t.problem(s.m, s.model, 1);
    s.hold_b_and_centre(single.get_loads_mgr(0));
    auto direct = solver_with<fem::solver_static_linear>(r);
    fem::solver_static_linear::data_type ref(single);
    direct.run(ref);
    ASSERT_EQ(ref.error_code, no_error);
    EXPECT_EQ(ref.nbr_prescribed_in_K, 0u);
    EXPECT_EQ(ref.nbr_free_DOFs + 3, data.nbr_free_DOFs);
    EXPECT_FALSE(r.has("Conjugate gradient"));

    double gap = 0.0, scale = 0.0;
    for (unsigned node = 0; node < s.m.nbr_nodes(); ++node)
        if (s.m.used[node])
            for (unsigned i = 0; i < 3; ++i) {
                const double u = value(ref.U, dof(node, i), 0);
                scale = std::max(scale, std::fabs(u));
                gap = std::max(gap, std::fabs(value(data.U, dof(node, i), 1) - u));
            }
    EXPECT_LT(gap, 1e-9 * scale); // the gradient stops at a relative residual of 1e-12
    EXPECT_NEAR(data.energies[1], ref.energies[0], 1e-9 * ref.energies[0]);
    // The other case does not see the centre: the linear field a, exactly.
    EXPECT_NEAR(value(data.U, dof(s.centre, 0), 0), field_a.at(s.m, s.centre, 0), 1e-12);
    EXPECT_EQ(value(data.U, dof(s.centre, 0), 1), field_b.at(s.m, s.centre, 0) + 0.01);
}

TEST(solver_static_linear, a_gradient_that_cannot_converge_is_a_solver_error)
{
    held_inside s;
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    solver.settings.CG_max_iters = 1;
    fem::solver_static_linear::data_type data(s.two_cases());
    solver.run(data);
    EXPECT_EQ(data.error_code, non_convergence_error);
    EXPECT_STREQ(data.msg_title, "Solver error.");
    EXPECT_FALSE(c.has("Total computing time"));
}

// ---------------------------------------------------------------------------------
// Conduction through a bar: the ends held at two temperatures, or one end held and
// a flux through the other, give a linear temperature.

TEST(solver_thermal_static_linear, held_ends_and_a_flux_give_a_linear_temperature)
{
    const double size[3] = {2.0, 0.1, 0.1}, k = 50.0, q = 2500.0; // W / m2
    test_context t;
    mesh m = box_mesh(element_hexa8, size, {10, 1, 1});
    fem::problem_data problem = t.problem(m, t.conduction(m, k), 2);
    const auto T = [](unsigned node) { return fem::DOFs_mgr::ID(node, temperature_tag, 0); };
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        if (m.pos(0, node) == 0.0) {
            for (unsigned c = 0; c < 2; ++c)
                ASSERT_EQ(problem.get_loads_mgr(c).record_DOF_prescribed_value(T(node), 20.0, no_func), no_error);
        }
        if (m.pos(0, node) == size[0]) {
            ASSERT_EQ(problem.get_loads_mgr(0).record_DOF_prescribed_value(T(node), 120.0, no_func), no_error);
            ASSERT_EQ(problem.get_loads_mgr(1).record_DOF_load(T(node), q * size[1] * size[2] / 4, no_func),
                      no_error);
        }
    }
    log_capture c;
    auto solver = solver_with<fem::solver_thermal_static_linear>(c);
    fem::solver_thermal_static_linear::data_type data(problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_EQ(data.nbr_prescribed_in_K, 4u); // the hot end, held by case 0 only
    EXPECT_TRUE(c.has("THERMAL STATIC LINEAR RUN (KELT FEM 4.4.0.0) (2 RHS)\n"));
    EXPECT_TRUE(c.has("  1 max temperature      : "));
    EXPECT_TRUE(c.has("  0 max temperature      : +1.200000E+02 \n"));
    EXPECT_FALSE(c.has("  0 elastic energy"));
    double worst = 0.0;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        const double x = m.pos(0, node);
        worst = std::max(worst, std::fabs(value(data.U, T(node), 0) - (20.0 + 100.0 * x / size[0])));
        worst = std::max(worst, std::fabs(value(data.U, T(node), 1) - (20.0 + q / k * x)));
    }
    EXPECT_LT(worst, 1e-9 * 100.0);
}

// ---------------------------------------------------------------------------------
// The energy of a case is U.K.U / 2 over all its rows, free and held: ten hexa8 with
// one end held at 0 and the other at `end` store (EA / L) end^2 / 2, or (kA / L)
// end^2 / 2 in conduction (A = L = 1), plus c end^2 / 2 a DOF of a diagonal user
// matrix c on the held end, with that end out of K, or in K when a second case
// loads it instead; the energy solver reads the same from the field.

template <class Solver>
void bar_energy(fem::problem_data& problem, unsigned cases, double expected)
{
    log_capture log;
    auto solver = solver_with<Solver>(log);
    typename Solver::data_type data(problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_EQ(data.nbr_prescribed_in_K, cases == 2 ? 4u : 0u);
    EXPECT_NEAR(data.energies[0], expected, 1e-12 * expected);
    fem::solver_energy reader;
    fem::solver_energy::data_type read(problem);
    read.U = data.U;
    reader.run(read);
    for (unsigned i = 0; i < cases; ++i) EXPECT_NEAR(read.energies[i], data.energies[i], 1e-12 * data.energies[i]);
}

TEST(held_bar_energy, is_half_UKU_on_both_paths_mechanical_and_thermal)
{
    const double size[3] = {1, 1, 1}, E = 2000.0, k = 0.2, c = 0.05;
    for (bool thermal : {false, true})
        for (unsigned cases : {1u, 2u})
            for (unsigned threads : {1u, 2u}) {
                SCOPED_TRACE(testing::Message() << thermal << cases << threads);
                test_context t;
                t.ctx.set_max_threads(threads);
                mesh m = box_mesh(element_hexa8, size, {10, 1, 1});
                const double end = thermal ? 100.0 : 1.0;
                dense1D<double, 8> values;
                dense1D<unsigned, 8> IDs;
                for (unsigned node = 0; node < m.nbr_nodes(); ++node)
                    if (m.pos(0, node) == size[0])
                        values.push_back(c), IDs.push_back(thermal ? fem::DOFs_mgr::ID(node, temperature_tag, 0) : dof(node, 0));
                fem::stiffness_diag spring(t.ctx);
                fem::thermal_diag film(t.ctx);
                ASSERT_EQ(thermal ? film.init(values, IDs) : spring.init(values, IDs), no_error);
                const unsigned body = thermal ? t.conduction(m, k) : t.solid(m, E, 0.0);
                fem::problem_data problem =
                    t.problem(m, t.composite({body, thermal ? film.get_ID() : spring.get_ID()}), cases);
                for (unsigned i = 0; i < cases; ++i)
                    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
                        fem::loads_mgr loads = problem.get_loads_mgr(i);
                        for (unsigned d = 1; d < 3 && !thermal; ++d) { // nu = 0: it slides on y = 0 and z = 0
                            if (m.pos(d, node) == 0.0) {
                                ASSERT_EQ(loads.record_DOF_prescribed_value(dof(node, d), 0.0, no_func), no_error);
                            }
                        }
                        const double x = m.pos(0, node);
                        const unsigned ID = thermal ? fem::DOFs_mgr::ID(node, temperature_tag, 0) : dof(node, 0);
                        if (x == 0.0 || (x == size[0] && i == 0)) {
                            ASSERT_EQ(loads.record_DOF_prescribed_value(ID, x * end, no_func), no_error);
                        } else if (x == size[0]) {
                            ASSERT_EQ(loads.record_DOF_load(ID, 1.0, no_func), no_error);
                        }
                    }
                const double expected = 0.5 * ((thermal ? k : E) + 4 * c) * end * end;
                if (thermal)
                    bar_energy<fem::solver_thermal_static_linear>(problem, cases, expected);
                else
                    bar_energy<fem::solver_static_linear>(problem, cases, expected);
            }
}

// ---------------------------------------------------------------------------------
// Failures and edge cases of the record.

TEST(solver_static_linear, a_record_without_model_is_a_data_error_without_log)
{
    test_context t;
    dense2D<double> pos(3, 1);
    fem::DOFs_mgr DOFs(1, true);
    const fem::problem_data nothing(t.ctx, pos, DOFs, 0xFFFFFFFFu, 1);
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(nothing);
    solver.run(data);
    EXPECT_EQ(data.error_code, -101);
    EXPECT_STREQ(data.msg_title, "DATA ERROR");
    EXPECT_STREQ(data.msg_detail, "KELT solver_static_linear: invalid data.\n");
    EXPECT_TRUE(c.lines.empty());
    auto thermal = solver_with<fem::solver_thermal_static_linear>(c);
    fem::solver_thermal_static_linear::data_type hot(nothing);
    thermal.run(hot);
    EXPECT_STREQ(hot.msg_detail, "KELT solver_thermal_static_linear: invalid data.\n");
}

TEST(solver_static_linear, no_load_case_is_no_run_and_no_error)
{
    const double size[3] = {1, 1, 1};
    test_context t;
    mesh m = box_mesh(element_hexa8, size, {1, 1, 1});
    fem::problem_data problem = t.problem(m, t.solid(m, 1.0, 0.0), 0);
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, no_error);
    EXPECT_EQ(data.warning_code, no_error);
    EXPECT_EQ(data.U.cols(), 0u);
    EXPECT_TRUE(c.lines.empty());
    EXPECT_EQ(c.interrupt_calls, 0);
}

TEST(solver_static_linear, a_model_with_no_free_DOF_gives_the_held_values_and_their_energy)
{
    const double size[3] = {1, 1, 1}, E = 10.0, nu = 0.2;
    test_context t;
    mesh m = box_mesh(element_hexa8, size, {1, 1, 1});
    fem::problem_data problem = t.problem(m, t.solid(m, E, nu), 1);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) prescribe(problem.get_loads_mgr(0), m, node, field_a);
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error) << data.msg_title << data.msg_detail;
    EXPECT_EQ(data.nbr_free_DOFs, 0u);
    EXPECT_EQ(data.nbr_rows, 24u);
    EXPECT_FALSE(c.has("  pivot max"));
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        EXPECT_EQ(value(data.U, dof(node, 1), 0), field_a.at(m, node, 1));
    const double expected = field_a.energy_density(E, nu); // unit volume
    EXPECT_NEAR(data.energies[0], expected, 1e-12 * expected);
}

TEST(solver_static_linear, an_interrupt_at_any_check_leaves_a_warning_and_no_error)
{
    held_inside s;
    log_capture clean;
    auto solver = solver_with<fem::solver_static_linear>(clean);
    fem::solver_static_linear::data_type data(s.two_cases());
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    const int checks = clean.interrupt_calls;
    ASSERT_GT(checks, 6); // numbering, sizes, two cases, loads, K, factor, resolution, ...
    for (int k = 0; k < checks; ++k) {
        log_capture c;
        c.interrupt_at = k;
        auto stopped = solver_with<fem::solver_static_linear>(c);
        stopped.run(data);
        SCOPED_TRACE(k);
        EXPECT_EQ(data.error_code, no_error);
        EXPECT_EQ(data.warning_code, interrupted_warning);
        EXPECT_EQ(c.interrupt_calls, k + 1); // never asked again
        EXPECT_FALSE(c.has("Total computing time"));
        EXPECT_TRUE(data.U.cols() == 0 || data.U.cols() == 2); // what was done so far stays
    }
}

TEST(solver_static_linear, memory_beyond_the_limit_stops_with_the_sizes)
{
    cantilever beam;
    beam.t.ctx.set_max_total_size(0);
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(beam.problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, insufficient_memory_error);
    EXPECT_STREQ(data.msg_title, "Insufficient memory.");
    EXPECT_GT(data.K_size_MB, 0.0);
    EXPECT_GT(data.RHS_size_MB, 0.0);
    EXPECT_EQ(data.total_size_MB, data.K_size_MB + data.RHS_size_MB);
    EXPECT_EQ(data.energies.size(), 0u);
    EXPECT_FALSE(c.has("Numerical assembly"));
}

// Two cubes side by side in one composite: one supported, one of zero stiffness
// whose DOFs have nothing on their diagonal.
TEST(solver_static_linear, a_zero_pivot_is_reported_with_its_DOF_unless_forced)
{
    const double size[3] = {1, 1, 1};
    test_context t;
    mesh m = box_mesh(element_hexa8, size, {2, 1, 1});
    mesh left = m, right = m;
    left.cells = m.cells.sub_matrix(0, 0, 8, 1);
    right.cells = m.cells.sub_matrix(0, 1, 8, 1);
    const unsigned model = t.composite({t.solid(left, 1.0, 0.0), t.solid(right, 0.0, 0.0)});
    fem::problem_data problem = t.problem(m, model, 1);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) prescribe(problem.get_loads_mgr(0), m, node, field_a);
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, pivot_error);
    EXPECT_STREQ(data.msg_title, "Pivot error.");
    ASSERT_NE(data.bad_pivot_ID, 0xFFFFFFFFu);
    const unsigned node = data.bad_pivot_ID / 9;
    EXPECT_GT(m.pos(0, node), 0.0); // a node that only the cube of no stiffness holds
    EXPECT_TRUE(c.has("Bad pivot detected: +0.000000E+00.\n"));
    EXPECT_FALSE(c.has("Resolution"));

    solver.settings.force_pivots = true;
    solver.run(data);
    EXPECT_EQ(data.error_code, no_error);
    EXPECT_EQ(data.pivot_min, 0.0);
    EXPECT_TRUE(std::isfinite(value(data.U, data.U.get_IDs()[0], 0)));
}

// A bar whose first half is 1e14 times stiffer than its second: the pivots spread
// beyond 1e12, the run warns and still solves.
TEST(solver_static_linear, a_stiffness_spread_beyond_1e12_warns_and_solves)
{
    const double size[3] = {4, 1, 1};
    test_context t;
    mesh m = box_mesh(element_hexa8, size, {4, 1, 1});
    mesh stiff = m, soft = m;
    stiff.cells = m.cells.sub_matrix(0, 0, 8, 2);
    soft.cells = m.cells.sub_matrix(0, 2, 8, 2);
    const unsigned model = t.composite({t.solid(stiff, 1e14, 0.0), t.solid(soft, 1.0, 0.0)});
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) {
            ASSERT_EQ(DOFs.set(node, displacement_tag, false), no_error);
        }
    fem::problem_data problem(t.ctx, m.pos, DOFs, model, 1);
    unsigned tip = 0, middle = 0;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node) {
        if (m.pos(0, node) == 4.0) {
            ASSERT_EQ(problem.get_loads_mgr(0).record_DOF_load(dof(node, 0), 0.25, no_func), no_error);
            tip = node;
        }
        if (m.pos(0, node) == 2.0) middle = node;
    }
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, no_error);
    EXPECT_EQ(data.warning_code, pivot_warning);
    EXPECT_STREQ(data.msg_title, "Pivot warning.");
    EXPECT_NE(data.bad_pivot_ID, 0xFFFFFFFFu);
    EXPECT_GT(data.pivot_max * 1e-12, data.pivot_min);
    // Unit load on a unit section of E 1 and nu 0 over length 2: the soft half
    // stretches by 2, the stiff half by 1e-14 of that.
    EXPECT_NEAR(value(data.U, dof(tip, 0), 0), 2.0, 1e-6);
    EXPECT_LT(std::fabs(value(data.U, dof(middle, 0), 0)), 1e-12);
    EXPECT_TRUE(c.has("Total computing time"));
}

} // namespace

TEST(solver_static_linear, a_matrix_on_disk_gives_the_results_in_core)
{
    // A slender hexa27 beam whose matrix (a few MB) exceeds a budget of 1 MB. The
    // second case also holds a node half way, so K and the copy that the gradient
    // needs share the budget.
    test_context t;
    const double size[3] = {30.0, 1.0, 1.0};
    mesh m = box_mesh(element_hexa27, size, {30, 2, 2});
    const unsigned model = t.solid(m, 1000.0, 0.3);
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) {
            EXPECT_EQ(DOFs.set(node, displacement_tag, false), no_error);
        }
    fem::problem_data problem(t.ctx, m.pos, DOFs, model, 2);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.used[node] && m.pos(0, node) == size[0]) {
            EXPECT_EQ(problem.get_loads_mgr(0).record_DOF_load(dof(node, 2), -1.0, no_func), no_error);
            EXPECT_EQ(problem.get_loads_mgr(1).record_DOF_load(dof(node, 1), 0.5, no_func), no_error);
        }
    unsigned middle = 0;
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.used[node] && m.pos(0, node) == size[0] / 2) middle = node;
    EXPECT_EQ(problem.get_loads_mgr(1).record_DOF_prescribed_value(dof(middle, 1), 0.01, no_func), no_error);
    t.ctx.set_max_threads(1);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type in_core(problem), on_disk(problem);
    solver.run(in_core);
    ASSERT_EQ(in_core.error_code, no_error) << in_core.msg_title;
    EXPECT_FALSE(in_core.uses_disk);
    ASSERT_GT(in_core.K_size_MB, 2.0);
    ASSERT_EQ(in_core.nbr_prescribed_in_K, 1u); // the held node goes through the gradient
    ASSERT_EQ(t.ctx.set_max_incore_size(1), no_error);
    solver.run(on_disk);
    ASSERT_EQ(on_disk.error_code, no_error) << on_disk.msg_title << on_disk.msg_detail;
    EXPECT_TRUE(on_disk.uses_disk);
    // One thread sums in the same order in core and on disk.
    for (unsigned j = 0; j < 2; ++j) {
        const dense1D<double, 8> a = in_core.U.col(j), b = on_disk.U.col(j);
        ASSERT_EQ(a.size(), b.size());
        for (unsigned r = 0; r < a.size(); ++r) ASSERT_EQ(a[r], b[r]) << r;
        EXPECT_EQ(in_core.energies[j], on_disk.energies[j]);
    }
    EXPECT_EQ(in_core.pivot_min, on_disk.pivot_min);
}

// ---------------------------------------------------------------------------------
// Input that a careless host gives: no run reports a non-finite result as a
// success, a budget's own code reaches the record, and a problem changed inside a
// callback does not bring the run down.

TEST(solver_static_linear, non_finite_loads_or_held_values_are_refused)
{
    const double huge = 1e308, nan = std::nan("");
    const struct row {
        const char* what;
        double load, held;
    } rows[] = {{"two loads of 1e308 on one DOF", huge, 0.0}, {"a NaN held value", 0.0, nan}};
    for (const row& w : rows) {
        cantilever beam;
        fem::loads_mgr loads = beam.problem.get_loads_mgr(0);
        EXPECT_EQ(loads.record_DOF_load(dof(beam.tip, 1), w.load, no_func), no_error);
        EXPECT_EQ(loads.record_DOF_load(dof(beam.tip, 1), w.load, no_func), no_error);
        EXPECT_EQ(loads.record_DOF_prescribed_value(dof(beam.tip, 0), w.held, no_func), no_error);
        fem::solver_static_linear solver;
        fem::solver_static_linear::data_type data(beam.problem);
        solver.run(data);
        EXPECT_EQ(data.error_code, inf_nan_error) << w.what;
        EXPECT_STREQ(data.msg_title, "INF or NaN detected.") << w.what;
    }
}

TEST(solver_static_linear, a_swap_folder_gone_keeps_its_own_code)
{
    test_context t; // a matrix of a few MB, beyond a budget of 1 MB
    const double size[3] = {30.0, 1.0, 1.0};
    mesh m = box_mesh(element_hexa27, size, {30, 2, 2});
    fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
    for (unsigned node = 0; node < m.nbr_nodes(); ++node)
        if (m.pos(0, node) == 0.0) (void)DOFs.set(node, displacement_tag, false);
    fem::problem_data problem(t.ctx, m.pos, DOFs, t.solid(m, 1000.0, 0.3), 1);
    char root[] = "/tmp/kelt_gone_XXXXXX";
    ASSERT_NE(mkdtemp(root), nullptr);
    const std::string swap = std::string(root) + "/swap";
    ASSERT_EQ(::mkdir(swap.c_str(), 0700), 0);
    ASSERT_EQ(t.ctx.set_max_incore_size(1, (std::string(root) + "/").c_str(), "swap/"), no_error);
    ASSERT_EQ(::rmdir(swap.c_str()), 0);
    ASSERT_EQ(::rmdir(root), 0);
    fem::solver_static_linear solver;
    fem::solver_static_linear::data_type data(problem);
    solver.run(data);
    EXPECT_EQ(data.error_code, temp_file_error) << data.msg_title; // not an allocation error: the host moves the folder
}

TEST(solver_static_linear, a_problem_emptied_inside_the_interrupt_handler_ends_the_run_cleanly)
{
    struct host {
        fem::problem_data* problem;
        int at, calls = 0;
    };
    for (int at = 1; at < 12; ++at) {
        held_inside s;
        fem::problem_data p = s.two_cases();
        host h{&p, at};
        fem::solver_static_linear solver;
        solver.settings.user_data = &h;
        solver.settings.interrupt_hdl = [](void* user) {
            auto* h = static_cast<host*>(user);
            if (++h->calls == h->at) {
                dense2D<double> pos = h->problem->get_pos_matrix();
                fem::DOFs_mgr DOFs = h->problem->get_DOFs_mgr();
                h->problem->init(pos, DOFs, h->problem->NM_ID(), 0); // no load case any more
            }
            return false;
        };
        fem::solver_static_linear::data_type data(p);
        solver.run(data);
        EXPECT_EQ(data.error_code, no_error) << at << data.msg_title;
    }
}

TEST(solver_static_linear, a_pivot_error_from_an_unusable_law_names_the_value)
{
    const struct row {
        double E, nu;
        const char* detail;
    } rows[] = {{-2.0e5, 0.3, "Law parameter E = -200000 is not positive."},
                {2.0e5, 0.5, "Law parameter nu = 0.5 lies outside (-1, 0.5)."},
                {2.0e5, -1.0, "Law parameter nu = -1 lies outside (-1, 0.5)."}};
    for (const row& w : rows) {
        test_context t;
        const double size[3] = {2.0, 1.0, 1.0};
        mesh m = box_mesh(element_hexa8, size, {2, 1, 1});
        fem::DOFs_mgr DOFs(m.nbr_nodes(), true);
        for (unsigned node = 0; node < m.nbr_nodes(); ++node)
            if (m.pos(0, node) == 0.0) (void)DOFs.set(node, displacement_tag, false);
        fem::problem_data problem(t.ctx, m.pos, DOFs, t.solid(m, w.E, w.nu), 1);
        fem::solver_static_linear solver;
        fem::solver_static_linear::data_type data(problem);
        solver.run(data);
        EXPECT_EQ(data.error_code, pivot_error) << w.detail;
        EXPECT_EQ(std::string(data.msg_detail).rfind(std::string(w.detail) + "\nFile = ", 0), 0u) << data.msg_detail;
    }
}

TEST(solver_static_linear, loads_that_reach_nothing_are_counted_in_the_log)
{
    cantilever beam;
    fem::loads_mgr loads = beam.problem.get_loads_mgr(0);
    EXPECT_EQ(loads.record_DOF_load(dof(0, 2), 5.0, no_func), no_error); // on the clamped root
    EXPECT_EQ(loads.record_DOF_load(fem::DOFs_mgr::ID(beam.tip, rotation_tag, 0), 5.0, no_func), no_error); // a solid has none
    log_capture c;
    auto solver = solver_with<fem::solver_static_linear>(c);
    fem::solver_static_linear::data_type data(beam.problem);
    solver.run(data);
    ASSERT_EQ(data.error_code, no_error);
    EXPECT_EQ(c.value_of("Loads with no DOF or element"), "          2 \n");
    const auto line = std::find_if(c.lines.begin(), c.lines.end(),
                                   [](const auto& l) { return l.second.rfind("Loads with no DOF", 0) == 0; });
    ASSERT_NE(line, c.lines.end());
    EXPECT_EQ(line->first, 1u);
}
