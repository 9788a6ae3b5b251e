#include "kelt/fem/phases/static_resolution.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "kelt/core/loads_mgr.h"
#include "kelt/engine/conj_gradient.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/multiply.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/diagnosis.h"
#include "kelt/fem/phases/estimate.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/progress.h"
#include "kelt/fem/phases/report.h"
#include "kelt/fem/phases/states.h"

namespace kelt::core {

bool size_static_states(run_state& run, FEM_real_states& U, const numbering& n, const prescribed_set& prescribed,
                        unsigned cases, prescribed_layout& layout)
{
    const unsigned Nf = n.size();
    dense1D<unsigned, 8> rows;
    if (!rows.reserve(Nf + prescribed.IDs.size(), 1)) throw std::bad_alloc();
    for (unsigned r = 0; r < Nf; ++r) rows.push_back(n.ID(r));
    for (unsigned id : prescribed.IDs) rows.push_back(id); // repeats keep their first row
    const FEM_real sized = rows.size() ? FEM_real(rows, cases) : FEM_real();
    const unsigned expected = sized.IDs->size();
    bool ok = true;
    if (sized.rows() != expected || (expected && sized.cols() != cases)) {
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        ok = false;
    } else {
        static_cast<FEM_real&>(U) = sized;
        U.stress_mgrs.assign(U.cols(), nullptr);
        U.internal_states.assign(U.cols(), nullptr);
    }
    layout = prescribed_layout();
    layout.in_K.assign(cases, false);
    layout.out_K.assign(cases, false);
    for (unsigned i = 0; i < prescribed.nbr_cases() && i < cases; ++i)
        for (const unsigned* id = prescribed.begin(i); id != prescribed.end(i); ++id) {
            const bool inner = n.free_IDs->rank(*id) < Nf;
            layout.nbr_in_K += inner;
            (inner ? layout.in_K : layout.out_K)[i] = true;
        }
    return ok;
}

static_run begin_static_run(run_state& run, const fem::solver_static_linear::settings_type& settings,
                            fem::solver_static_linear::data_type& data, const char* banner)
{
    static_run r;
    r.model = take_problem(run, problem_of(data));
    if (!r.model) return r;
    r.U = &output_states(data.U);
    r.start = input_states(data.U_start);
    if (settings.iteration_hdl)
        run.on_iteration = [&run, handler = settings.iteration_hdl](unsigned k, double residual) {
            handler(run.user_data, run.current_case, k, residual);
        };
    run.log(0, banner, int(run.problem->nbr_load_cases()));
    r.start_time = wall_clock();
    return r;
}

bool set_up_static(run_state& run, const numerical_model_base& model, pass_kind kind, bool order_only,
                   FEM_real_states& U, static_setup& s, fem::static_linear_outputs& out, double& time_numbering)
{
    const unsigned cases = run.problem->nbr_load_cases();
    s.prescribed = collect_prescribed(*run.problem);
    if (!number_DOFs(run, model, kind, s.prescribed.common, order_only, s.n, time_numbering)) return false;
    if (size_static_states(run, U, s.n, s.prescribed, cases, s.layout)) {
        out.RHS_size_MB = double(U.rows()) * double(U.cols()) * 8.0 * bytes_to_MB;
        out.K_size_MB = s.n.K_size_MB;
        out.total_size_MB += out.K_size_MB + out.RHS_size_MB;
        (void)run.check_memory(out.total_size_MB, __FILE__, __LINE__);
        // Under a budget, a run that neither memory nor disk can hold is told now,
        // before any assembly.
        if (!order_only && run.OOC() && run.going())
            (void)check_needs(run, estimate_needs(run, s.n, s.prescribed, cases, false));
    }
    out.nbr_free_DOFs = s.n.size();
    out.nbr_rows = U.rows();
    out.nbr_prescribed_out_K = U.rows() - std::min(U.rows(), s.n.size());
    out.nbr_prescribed_in_K = s.layout.nbr_in_K;
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", time_numbering);
    return true;
}

bool assemble_static_loads(run_state& run, numerical_model_base& model, pass_kind thermal_kind,
                           const FEM_real_states* start, FEM_real_states& U, double& timer)
{
    const problem_data& problem = *run.problem;
    for (unsigned i = 0; i < U.cols() && i < problem.stresses.size(); ++i)
        (void)U.set_stress_mgr(i, problem.stresses[i].get());
    if (start && start->cols() && !restore_internal_states(run, model, start->internal_state(0))) return false;
    if (!assemble_load_cases(run, model, thermal_kind, 0.0, state_view(start, 0), U, timer)) return false;
    if (!check_finite(run, U, __FILE__, __LINE__)) return false;
    for (unsigned i = 0; i < U.cols(); ++i) run.log(2, "%3d ||F||                : %+E \n", int(i), two_norm(U.col_read(i)));
    return true;
}

bool solve_static(run_state& run, numerical_model_base& model, pass_kind kind, const static_setup& s,
                  const DOF_values_view& start, const factor_options& options, const gradient_settings& cg,
                  FEM_real_states& U, fem::static_linear_outputs& out, fem::static_linear_timers& timers)
{
    indexed_sym_matrix K, copy;
    element_pass_type pass = make_pass(*run.problem);
    pass.U = start;
    if (run.stop_requested()) return false;
    // Parts that nothing holds are named now, from the connectivity alone: their
    // pivots would only name one DOF of them, after the assembly.
    const std::vector<floating_part> floating = find_floating_parts(run, model, kind, s.n);
    const bool assembled = assemble_matrix(run, model, kind, pass, s.n, K, timers.time_K_assembly);
    run.log(1, "Numerical assembly matrix K        : %10.2f s.\n", timers.time_K_assembly);
    if (!assembled) return false;
    log_matrix_statistics(run, K.matrix);
    const bool keep_K = s.layout.nbr_in_K > 0;
    if (keep_K && !copy_for_factor(run, K, s.n, copy)) return false;
    indexed_sym_matrix& F = keep_K ? copy : K;
    const bool factored = factorise_static(run, F, s.n, options, out, timers.time_factorization);
    if (run.status.error_code == pivot_error || (factored && out.nbr_bad > 0)) {
        // What moves, named by nodes: a pivot alone names one DOF of the mechanism.
        const std::vector<mechanism> modes = find_mechanisms(run, model, kind, s.n, pass);
        char why[256];
        // A law that init accepted may be the cause: a modulus at or below 0 gives
        // a zero or negative pivot, which names a DOF but not the law.
        if (run.status.error_code == pivot_error && model.describe_unusable_law(why, sizeof why)) {
            run.explain(why);
        } else if (!modes.empty()) {
            describe(modes.front(), why, sizeof why);
            run.explain(why);
        } else if (!floating.empty()) {
            describe(floating.front(), why, sizeof why);
            run.explain(why);
        }
    }
    if (!factored) return false;
    out.uses_disk = uses_disk(run);

    if (run.stop_requested()) return false;
    {
        phase_timer t(timers.time_resolution);
        const static_system system{model, kind, s.n, s.prescribed, s.layout, U, K, F};
        solve_static_cases(run, system, cg, out.energies);
    }
    run.log(1, "Resolution RHS                     : %10.2f s.\n", timers.time_resolution);
    return run.going() && check_finite(run, U, __FILE__, __LINE__);
}

bool factorise_static(run_state& run, indexed_sym_matrix& K, const numbering& n, const factor_options& options,
                      fem::static_linear_outputs& out, double& timer)
{
    if (run.stop_requested()) return false;
    factor_report report;
    (void)factorise(run, K.matrix, n, options, report, timer);
    out.pivot_min = report.pivot_min;
    out.pivot_max = report.pivot_max;
    out.bad_pivot_ID = report.bad_DOF;
    out.bad_IDs = report.bad_IDs;
    out.nbr_bad = report.bad_IDs.size();
    run.log(1, "Factorization matrix K             : %10.2f s.\n", timer);
    log_matrix_statistics(run, K.matrix);
    if (K.nbr_rows() > 0 && !run.failed()) {
        run.log(2, "  pivot max              : %+E \n", out.pivot_max);
        run.log(2, "  pivot min              : %+E \n", out.pivot_min);
    }
    return !run.failed();
}

namespace {

// One static system's cases, solved in order.
class static_cases {
public:
    static_cases(run_state& run, const static_system& s, const gradient_settings& cg, dense1D<double, 8>& energies)
        : run_(run), s_(s), cg_(cg), energies_(energies), Nf_(s.n.size()), rows_(s.U.rows())
    {
    }

    void solve()
    {
        for (unsigned i = 0; i < s_.U.cols(); ++i)
            if (!eliminate_prescribed(i)) return;
        phase_progress progress(run_, "resolution", double(s_.U.cols()));
        for (unsigned i = 0; i < s_.U.cols();) {
            if (i > 0 && !progress.reach(i)) return;
            if (run_.stop_requested()) return;
            if (s_.layout.in_K[i]) {
                solve_constrained(i);
                ++i;
            } else {
                unsigned count = 1;
                while (i + count < s_.U.cols() && !s_.layout.in_K[i + count]) ++count;
                solve_group(i, count);
                i += count;
            }
            if (run_.failed()) return;
        }
        progress.finish();
    }

private:
    // Column i of U: all its rows, empty when it cannot be had.
    dense1D<double, 8> column(unsigned i) { return s_.U.col(i); }

    error_type multiply(const double* x, matrix_product_assembler::row_range x_rows, double* y,
                        matrix_product_assembler::row_range y_rows, double& energy)
    {
        return multiply_by_model(s_.model, s_.kind, make_pass(*run_.problem), s_.U.IDs, x, x_rows, y, y_rows,
                                 energy);
    }

    // The prescribed values of case i over the rows of U (0 elsewhere); false when
    // the case has none.
    bool gather_prescribed(unsigned i, dense1D<double, 8>& values)
    {
        const auto& cases = run_.problem->loads;
        const loads_mgr* loads = i < cases.size() ? cases[i].get() : nullptr; // gone if a callback changed the problem
        if (!loads || s_.prescribed.empty(i)) return false;
        if (!values.resize(rows_)) throw std::bad_alloc();
        std::fill(values.begin(), values.end(), 0.0);
        vector_null_assembler none;
        const load_pass_type lp(none, 1.0, 0.0, i);
        loads->prescribed_vector(lp, *s_.U.IDs, values);
        if (!std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); })) {
            KELT_RAISE(run_, inf_nan_error, "INF or NaN detected.");
            return false;
        }
        return true;
    }

    // Prescribed values out of K: written into U's rows and taken to the
    // right-hand side as F - K_fp u_p, whose pass gives the energy u_p K_pp u_p / 2.
    bool eliminate_prescribed(unsigned i)
    {
        if (s_.prescribed.empty(i)) return true;
        if (run_.stop_requested()) return false;
        dense1D<double, 8> values;
        if (!gather_prescribed(i, values)) return !run_.failed();
        dense1D<double, 8> col = column(i);
        if (col.size() != rows_) {
            KELT_RAISE(run_, internal_error, "Solver error.");
            return false;
        }
        // The rows out of K take their values also when these are 0: the loads
        // assembled there (thermal ones, forces on held DOFs) are not displacements.
        std::fill(values.begin(), values.begin() + Nf_, 0.0); // those inside K are the gradient's
        std::copy(values.begin() + Nf_, values.end(), col.begin() + Nf_);
        if (std::all_of(values.begin(), values.end(), [](double v) { return v == 0.0; })) return true;
        if (!s_.layout.out_K[i]) return true;
        double energy = 0.0;
        if (auto e = multiply(values.data(), {Nf_, rows_}, col.data(), {0, Nf_}, energy); e != no_error) {
            KELT_RAISE(run_, e, "Assembly error.");
            return false;
        }
        energies_[i] = energy;
        return true;
    }

    // Work of the prescribed rows out of K on the solution: u_p . K_pf u_f.
    double prescribed_work(unsigned i)
    {
        if (!s_.layout.out_K[i] || rows_ == Nf_) return 0.0;
        dense1D<double, 8> col = column(i);
        if (col.size() != rows_) return 0.0;
        if (std::all_of(col.begin() + Nf_, col.end(), [](double v) { return v == 0.0; })) return 0.0;
        std::vector<double> product(rows_, 0.0); // -K_pf u_f on the rows out of K
        double unused = 0.0;
        if (auto e = multiply(col.data(), {0, Nf_}, product.data(), {Nf_, rows_}, unused); e != no_error) {
            KELT_RAISE(run_, e, "Assembly error.");
            return 0.0;
        }
        col = column(i);
        double work = 0.0;
        for (unsigned r = Nf_; r < rows_; ++r) work -= product[r] * col[r];
        return work;
    }

    // Columns first .. first + count - 1 solved with the factor, at once when they
    // are all in memory; each column's x . b goes, halved, to its energy.
    void solve_group(unsigned first, unsigned count)
    {
        std::vector<double> energy(count, 0.0);
        if (s_.U.in_core(first, count)) {
            std::vector<double*> cols(count);
            for (unsigned j = 0; j < count; ++j) cols[j] = column(first + j).data();
            (void)solve_columns(run_, s_.factor.matrix, cols.data(), count, energy.data());
        } else {
            for (unsigned j = 0; j < count && !run_.failed(); ++j) {
                double* x = column(first + j).data();
                (void)solve_columns(run_, s_.factor.matrix, &x, 1, &energy[j]);
            }
        }
        for (unsigned j = 0; j < count; ++j) {
            const unsigned i = first + j;
            energies_[i] += 0.5 * energy[j];
            energies_[i] += prescribed_work(i);
        }
    }

    // A case that holds DOFs of K at given values: the gradient on K with those
    // rows fixed, preconditioned by the factor.
    void solve_constrained(unsigned i)
    {
        dense1D<double, 8> values, b, x;
        if (!gather_prescribed(i, values)) return;
        if (!b.resize(Nf_) || !x.resize(Nf_)) throw std::bad_alloc();
        dense1D<double, 8> col = column(i);
        if (col.size() != rows_) {
            KELT_RAISE(run_, internal_error, "Solver error.");
            return;
        }
        std::copy(col.begin(), col.begin() + Nf_, b.begin());
        std::fill(x.begin(), x.end(), 0.0);
        std::vector<unsigned> fixed;
        for (const unsigned* id = s_.prescribed.begin(i); id != s_.prescribed.end(i); ++id)
            if (const unsigned r = s_.n.free_IDs->rank(*id); r < Nf_) {
                fixed.push_back(r);
                b[r] = 0.0;
                x[r] = values[r];
            }
        conj_gradient_settings settings;
        settings.tol = cg_.tolerance;
        settings.max_iters = cg_.max_iters;
        double residual = 0.0;
        run_.current_case = i;
        const error_type e = conj_gradient_static(s_.K.matrix, s_.factor.matrix, fixed, b, x, settings, run_,
                                                  residual, run_.threads());
        col = column(i);
        std::copy(x.begin(), x.end(), col.begin());
        // x K x / 2 is x . b / 2 on the free rows, plus the work on the held ones.
        double xb = 0.0;
        for (unsigned r = 0; r < Nf_; ++r) xb += x[r] * b[r];
        std::vector<double> Kx(Nf_, 0.0);
        const double held = multiply_fixed(s_.K.matrix, 1.0, x.data(), Kx.data(), fixed.data(),
                                           unsigned(fixed.size()), run_.threads());
        energies_[i] += 0.5 * xb + held + prescribed_work(i);
        if (e == inf_nan_error)
            KELT_RAISE(run_, e, "INF or NaN detected.");
        else if (e != no_error && !run_.interrupted()) // an interrupt ends it unconverged: a warning, not an error
            KELT_RAISE(run_, e, "Solver error.");
    }

    run_state& run_;
    const static_system& s_;
    const gradient_settings& cg_;
    dense1D<double, 8>& energies_;
    const unsigned Nf_, rows_;
};

} // namespace

void solve_static_cases(run_state& run, const static_system& s, const gradient_settings& cg,
                        dense1D<double, 8>& energies)
{
    static_cases(run, s, cg, energies).solve();
}

} // namespace kelt::core
