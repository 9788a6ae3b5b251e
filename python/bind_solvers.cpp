// Bindings of the solvers: each settings record and data record as a class whose
// fields are Python properties, and `run` through the one generic runner.
#include "common.h"

namespace kelt::py {

using namespace fem;

namespace {

// Settings records list their fields once, callbacks excluded: `run` sets those.
#define KELT_FIELDS(cls, Type, ...) KELT_EACH(cls, Type, __VA_ARGS__) static_assert(true)
#define KELT_F1(c, T, a) KELT_FIELD(c, T, a);
#define KELT_EACH(c, T, ...) KELT_EACH_(__VA_ARGS__, KELT_E12, KELT_E11, KELT_E10, KELT_E9, KELT_E8, KELT_E7, KELT_E6, \
                                        KELT_E5, KELT_E4, KELT_E3, KELT_E2, KELT_E1)(c, T, __VA_ARGS__)
#define KELT_EACH_(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, N, ...) N
#define KELT_E1(c, T, a) KELT_F1(c, T, a)
#define KELT_E2(c, T, a, ...) KELT_F1(c, T, a) KELT_E1(c, T, __VA_ARGS__)
#define KELT_E3(c, T, a, ...) KELT_F1(c, T, a) KELT_E2(c, T, __VA_ARGS__)
#define KELT_E4(c, T, a, ...) KELT_F1(c, T, a) KELT_E3(c, T, __VA_ARGS__)
#define KELT_E5(c, T, a, ...) KELT_F1(c, T, a) KELT_E4(c, T, __VA_ARGS__)
#define KELT_E6(c, T, a, ...) KELT_F1(c, T, a) KELT_E5(c, T, __VA_ARGS__)
#define KELT_E7(c, T, a, ...) KELT_F1(c, T, a) KELT_E6(c, T, __VA_ARGS__)
#define KELT_E8(c, T, a, ...) KELT_F1(c, T, a) KELT_E7(c, T, __VA_ARGS__)
#define KELT_E9(c, T, a, ...) KELT_F1(c, T, a) KELT_E8(c, T, __VA_ARGS__)
#define KELT_E10(c, T, a, ...) KELT_F1(c, T, a) KELT_E9(c, T, __VA_ARGS__)
#define KELT_E11(c, T, a, ...) KELT_F1(c, T, a) KELT_E10(c, T, __VA_ARGS__)
#define KELT_E12(c, T, a, ...) KELT_F1(c, T, a) KELT_E11(c, T, __VA_ARGS__)

template <class S>
pyb::class_<S> settings_class(pyb::handle scope, const char* name)
{
    pyb::class_<S> c(scope, name);
    c.def(pyb::init<>());
    c.def("reset", &S::reset);
    c.def("valid", &S::valid);
    return c;
}

template <class Rec>
void static_linear_fields(pyb::class_<Rec, problem_data>& c)
{
    KELT_FIELDS(c, static_linear_inputs, U_start);
    KELT_FIELDS(c, static_linear_outputs, U, nbr_free_DOFs, nbr_prescribed_in_K, nbr_prescribed_out_K, nbr_rows,
                energies, bad_IDs, nbr_bad, pivot_min, pivot_max, bad_pivot_ID, K_size_MB);
    KELT_FIELDS(c, static_linear_outputs, RHS_size_MB, total_size_MB, uses_disk);
    KELT_FIELDS(c, static_linear_timers, time_numbering, time_K_assembly, time_RHS_assembly, time_factorization,
                time_resolution, time_total);
}

template <class Rec>
void modal_fields(pyb::class_<Rec, problem_data>& c)
{
    KELT_FIELDS(c, modal_outputs, modes, static_modes, freqs, nbr_modes_in_range, nbr_free_DOFs,
                static_participation, dynamic_participation, pivot_min, pivot_max, error_DOF, K_size_MB,
                Kcpy_size_MB);
    KELT_FIELDS(c, modal_outputs, M_size_MB, S_modes_size_MB, D_modes_size_MB, total_size_MB, uses_disk);
    KELT_FIELDS(c, modal_timers, time_numbering, time_K_assembly, time_M_assembly, time_RHS_assembly,
                time_factorization, time_resolution, time_total);
}

// The smoothed nodal fields' record, shared by the stress and least-squares solvers.
template <class D>
pyb::class_<D, problem_data> nodal_record_class(pyb::handle scope)
{
    auto d = record_class<D>(scope, "data_type");
    d.def_property(
        "input_NM_ID", [](const D& r) { return r.nodal_inputs::NM_ID; },
        [](D& r, unsigned v) { r.nodal_inputs::NM_ID = v; }, "The model whose field is smoothed.");
    KELT_FIELDS(d, nodal_inputs, U);
    KELT_FIELDS(d, nodal_outputs, values, nbr_components, nbr_nodes, pivot_min, pivot_max, bad_pivot_ID, M_size_MB,
                RHS_size_MB);
    KELT_FIELDS(d, nodal_timers, time_numbering, time_M_assembly, time_factorization, time_resolution, time_total);
    return d;
}

} // namespace

void bind_solvers(pyb::module_& m)
{
    // Linear statics and steady conduction share their data record.
    {
        auto s = solver_class<solver_static_linear>(m, "solver_static_linear",
                                                    "Linear statics with many load cases.");
        auto st = settings_class<solver_static_linear::settings_type>(s, "settings_type");
        KELT_FIELDS(st, solver_static_linear::settings_type, RHS_only, force_pivots, CG_max_iters, CG_tolerance);
        auto d = record_class<solver_static_linear::data_type>(s, "data_type");
        static_linear_fields(d);

        auto t = solver_class<solver_thermal_static_linear>(m, "solver_thermal_static_linear",
                                                            "Steady heat conduction with many load cases.");
        pyb::class_<solver_thermal_static_linear::settings_type, solver_static_linear::settings_type>(
            t, "settings_type")
            .def(pyb::init<>())
            .def("reset", &solver_thermal_static_linear::settings_type::reset);
        t.attr("data_type") = d;
        solver_run(s);
        solver_run(t);
    }
    {
        auto s = solver_class<solver_reactions>(m, "solver_reactions", "Reactions (K u - f) of given states.");
        settings_class<solver_reactions::settings_type>(s, "settings_type");
        auto d = record_class<solver_reactions::data_type>(s, "data_type");
        KELT_FIELDS(d, reactions_inputs, U);
        KELT_FIELDS(d, reactions_outputs, reactions, nbr_columns);
        KELT_FIELDS(d, results_timers, time_total);
        solver_run(s);
    }
    {
        auto s = solver_class<solver_energy>(m, "solver_energy", "Element energies of given states.");
        auto st = settings_class<solver_energy::settings_type>(s, "settings_type");
        KELT_FIELDS(st, solver_energy::settings_type, column);
        auto d = record_class<solver_energy::data_type>(s, "data_type");
        KELT_FIELDS(d, energy_inputs, U);
        KELT_FIELDS(d, energy_outputs, element_energies, energies);
        KELT_FIELDS(d, results_timers, time_total);
        solver_run(s);
    }
    {
        auto s = solver_class<solver_mass>(m, "solver_mass", "Mass, centre and inertia of a model.");
        auto st = settings_class<solver_mass::settings_type>(s, "settings_type");
        KELT_FIELDS(st, solver_mass::settings_type, mode);
        auto d = record_class<solver_mass::data_type>(s, "data_type");
        d.def_property(
            "input_NM_ID", [](const solver_mass::data_type& r) { return r.mass_inputs::NM_ID; },
            [](solver_mass::data_type& r, unsigned v) { r.mass_inputs::NM_ID = v; }, "The model to weigh.");
        KELT_FIELDS(d, mass_outputs, total_mass, center, inertia, first_moments, inertia_origin);
        KELT_FIELDS(d, results_timers, time_total);
        solver_run(s);
    }
    {
        auto s = solver_class<solver_stress_nodal>(m, "solver_stress_nodal", "Stresses or strains smoothed at nodes.");
        auto st = settings_class<solver_stress_nodal::settings_type>(s, "settings_type");
        KELT_FIELDS(st, solver_stress_nodal::settings_type, result, flag);
        using D = solver_stress_nodal::data_type;
        auto d = nodal_record_class<D>(s);
        d.def(
            "get_stress_tensor",
            [](const D& r, unsigned node, unsigned state, field_tag f) {
                symmetric_fixed<double, 3> S;
                check(r.get_stress_tensor(node, state, f, S));
                return S;
            },
            pyb::arg("node"), pyb::arg("state"), pyb::arg("f"), "The 3 x 3 tensor at a node.");
        d.def(
            "get_Von_Mises_stresses",
            [](const D& r, unsigned state) {
                FEM_matrix out;
                check(r.get_Von_Mises_stresses(state, out));
                return out;
            },
            pyb::arg("state"));
        solver_run(s);
    }
    {
        auto s = solver_class<solver_least_squares>(m, "solver_least_squares",
                                                    "A result of the elements smoothed at nodes by least squares.");
        auto st = settings_class<solver_least_squares::settings_type>(s, "settings_type");
        KELT_FIELDS(st, solver_least_squares::settings_type, result, nbr_components, flag);
        using D = solver_least_squares::data_type;
        nodal_record_class<D>(s).def(
            "get_tensor",
            [](const D& r, unsigned node, unsigned state, field_tag f) {
                symmetric_fixed<double, 3> S;
                check(r.get_tensor(node, state, f, S));
                return S;
            },
            pyb::arg("node"), pyb::arg("state"), pyb::arg("f"), "The 3 x 3 tensor at a node.");
        solver_run(s);
    }
    {
        auto ms = settings_class<modal_settings>(m, "modal_settings");
        KELT_FIELDS(ms, modal_settings, freq_min, freq_max, max_modes, static_mode_count, static_modes_only,
                    max_iters, tolerance);
        auto s = solver_class<solver_modal>(m, "solver_modal", "Natural modes by subspace iteration.");
        s.attr("settings_type") = ms;
        auto d = record_class<solver_modal::data_type>(s, "data_type");
        modal_fields(d);

        auto l = solver_class<solver_modal_ldrv>(m, "solver_modal_ldrv", "Natural modes by load-dependent Ritz blocks.");
        l.attr("settings_type") = ms;
        pyb::class_<solver_modal_ldrv::data_type, solver_modal::data_type>(l, "data_type")
            .def(pyb::init<const problem_data&>(), pyb::arg("problem"))
            .def_readwrite("nbr_blocks", &modal_ldrv_outputs::nbr_blocks);
        solver_run(s);
        solver_run(l);
    }
    {
        auto s = solver_class<solver_buckling_Euler>(m, "solver_buckling_Euler", "Linear buckling multipliers.");
        auto st = settings_class<buckling_Euler_settings>(s, "settings_type");
        KELT_FIELDS(st, buckling_Euler_settings, lambda_min, lambda_max, nbr_modes, max_iters, tolerance);
        auto d = record_class<solver_buckling_Euler::data_type>(s, "data_type");
        KELT_FIELDS(d, buckling_Euler_outputs, modes, lambdas, nbr_modes_in_range, nbr_free_DOFs, pivot_min,
                    pivot_max, error_DOF, energy, total_size_MB);
        KELT_FIELDS(d, buckling_Euler_timers, time_numbering, time_assembly, time_resolution, time_total);
        solver_run(s);
    }
    {
        auto s = solver_class<solver_static_Newton>(m, "solver_static_Newton", "Nonlinear statics by Newton steps.");
        auto st = settings_class<Newton_settings>(s, "settings_type");
        KELT_FIELDS(st, Newton_settings, t_start, t_end, nbr_steps, max_iters, max_dU, max_dR, nbr_forced_pivot_iters,
                    tol_U, tol_F, tol_E, tol_W, K_update_mode);
        KELT_FIELDS(st, Newton_settings, K_update_period, output_period);
        auto d = record_class<solver_static_Newton::data_type>(s, "data_type");
        KELT_FIELDS(d, Newton_inputs, U_start);
        KELT_FIELDS(d, Newton_outputs, U, times, energy, pivot_min, pivot_max, iters, nbr_steps_done, nbr_outputs,
                    total_iters, avg_iters, bad_pivot_DOF);
        KELT_FIELDS(d, Newton_timers, time_numbering, time_K_assembly, time_factorization, time_resolution,
                    time_total);
        solver_run(s);
    }
    {
        auto s = solver_class<solver_Newmark>(m, "solver_Newmark", "Transient dynamics by Newmark steps.");
        auto st = settings_class<Newmark_settings>(s, "settings_type");
        KELT_FIELDS(st, Newmark_settings, t_start, t_end, dt, beta, gamma, damping_K, damping_M, K_update_period,
                    output_period, output_fields);
        auto d = record_class<solver_Newmark::data_type>(s, "data_type");
        KELT_FIELDS(d, Newmark_inputs, U_start);
        KELT_FIELDS(d, Newmark_outputs, U, times, t, nbr_steps_done, bad_pivot_DOF);
        KELT_FIELDS(d, Newmark_timers, time_numbering, time_K_assembly, time_factorization, time_resolution,
                    time_total);
        solver_run(s);
    }
}

} // namespace kelt::py
