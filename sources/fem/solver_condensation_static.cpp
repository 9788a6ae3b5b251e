// Static condensation as a run of shared phases: the masters checked, the interior
// numbered, K1 assembled with its coupling and master blocks in one sweep and
// factorised, the loads reduced, then the coupling columns solved in groups.
#include "kelt/fem/solver_condensation_static.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/core/load_pass.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"

namespace kelt::core {

using fem::solver_condensation_static;

namespace {

using settings_type = solver_condensation_static::settings_type;
using data_type = solver_condensation_static::data_type;

// The error of a master list, with the DOF it names before the source line.
bool refuse_masters(run_state& run, const char* title, const char* what, unsigned ID, const char* file, int line)
{
    run.raise_error(invalid_data_error, title, file, line);
    char why[128];
    std::snprintf(why, sizeof why, "%s: DOF %u (node %u, place %u).", what, ID, ID / DOFs_mgr::nbr_places,
                  ID % DOFs_mgr::nbr_places);
    run.explain(why);
    return false;
}

// The masters, ranked in their order: free DOFs of the model, each once, held in
// no case; and every case holds the same DOFs, so that one K1 serves them all.
bool take_masters(run_state& run, const numerical_model_base& model, const dense1D<unsigned, 8>& IDs,
                  const prescribed_set& prescribed, vector_fast& masters)
{
    const problem_data& problem = *run.problem;
    if (IDs.empty()) {
        KELT_RAISE(run, invalid_data_error, "No master DOF.");
        return false;
    }
    dense1D<unsigned, 8> listed;
    if (auto e = model.get_model_DOFs(kind_stiffness, problem.pos, all_fields, listed); e != no_error) {
        KELT_RAISE(run, e, "Model error.");
        return false;
    }
    vector_fast model_DOFs;
    for (unsigned id : listed)
        if (model_DOFs.push_back(id) == vector_fast::none) throw std::bad_alloc();
    for (unsigned id : IDs) {
        bool free_DOF = false;
        if (problem.DOFs) (void)problem.DOFs->get(id, free_DOF);
        if (!model_DOFs.contains(id) || !free_DOF)
            return refuse_masters(run, "Master DOF not in the model.", "not a free DOF of the model", id, __FILE__,
                                  __LINE__);
        if (masters.contains(id))
            return refuse_masters(run, "Master DOF repeated.", "listed twice", id, __FILE__, __LINE__);
        if (masters.push_back(id) == vector_fast::none) throw std::bad_alloc();
    }
    for (unsigned id : prescribed.IDs)
        if (masters.contains(id))
            return refuse_masters(run, "Master DOF prescribed.", "held by a load case", id, __FILE__, __LINE__);
    if (prescribed.IDs.size() != prescribed.common.size() * prescribed.nbr_cases()) {
        KELT_RAISE(run, invalid_data_error, "Prescribed DOFs differ between load cases.");
        return false;
    }
    return true;
}

// Coupling columns per group: many at once read the factor once per group, which
// matters most when it is on disk; a group stays under a quarter of the budget.
unsigned group_size(const run_state& run, unsigned requested, unsigned masters, unsigned interior)
{
    unsigned g = requested ? requested : 64u;
    g = std::max(1u, std::min(g, masters));
    if (requested || interior == 0) return g;
    double limit = 256.0 * 1048576.0;
    if (const OOC_mgr* mgr = run.OOC(); mgr && mgr->max_incore_size != OOC_mgr::no_limit)
        limit = std::min(limit, 0.25 * double(mgr->max_incore_size));
    const double per_column = 8.0 * interior;
    return std::max(1u, std::min(g, unsigned(limit / per_column)));
}

// sum over the coupling entries of master k of K_ik x_i.
double coupling_dot(const std::vector<coupling_entry>& Kim, const std::vector<std::size_t>& start, unsigned k,
                    const double* x)
{
    double s = 0.0;
    for (std::size_t e = start[k]; e < start[k + 1]; ++e) s += Kim[e].value * x[Kim[e].row];
    return s;
}

// Each case's loads over the interior (into `Fi`, one column of n.size() per
// case) and the masters (into Fc), the values held in every case taken to the
// right-hand side through the elements.
bool assemble_condensed_loads(run_state& run, numerical_model_base& model, const numbering& n,
                              const vector_fast& masters, const prescribed_set& prescribed, std::vector<double>& Fi,
                              dense2D<double>& Fc, double& timer)
{
    {
        phase_timer t(timer);
        const problem_data& problem = *run.problem;
        const unsigned Ni = n.size(), m = masters.size();
        Ptr<vector_fast> rows = new vector_fast;
        for (unsigned r = 0; r < Ni; ++r) (void)rows->push_back(n.ID(r));
        for (unsigned k = 0; k < m; ++k) (void)rows->push_back(masters[k]);
        for (unsigned id : prescribed.common) (void)rows->push_back(id);
        if (rows->size() != Ni + m + prescribed.common.size()) throw std::bad_alloc();
        const unsigned kept = Ni + m, total = rows->size();
        unsigned skipped = 0;
        for (unsigned i = 0; i < Fc.cols(); ++i) {
            if (run.stop_requested()) return false;
            indexed_vector f;
            if (!f.create(rows)) throw std::bad_alloc();
            error_type e = assemble_loads(problem, model, kind_stiffness, i, 0.0, DOF_values_view(), f, skipped);
            if (e == no_error && !prescribed.empty(i)) {
                dense1D<double, 8> held(total, 0.0);
                vector_null_assembler none;
                problem.loads[i]->prescribed_vector(load_pass_type(none, 1.0, 0.0, i), *rows, held);
                double energy = 0.0;
                if (std::any_of(held.begin() + kept, held.end(), [](double v) { return v != 0.0; }))
                    e = multiply_by_model(model, kind_stiffness, make_pass(problem), rows, held.data(), {kept, total},
                                          f.values.data(), {0, kept}, energy);
            }
            if (e != no_error) {
                KELT_RAISE(run, e, "Assembly error.");
                return false;
            }
            if (!std::all_of(f.values.begin(), f.values.begin() + kept, [](double v) { return std::isfinite(v); })) {
                KELT_RAISE(run, inf_nan_error, "INF or NaN detected.");
                return false;
            }
            std::copy(f.values.begin(), f.values.begin() + Ni, Fi.begin() + std::size_t(i) * Ni);
            for (unsigned k = 0; k < m; ++k) Fc(k, i) = f.values[Ni + k];
        }
        if (skipped) run.log(1, "Loads with no DOF or element      : %10u \n", skipped);
    }
    run.log(1, "Numerical assembly matrix RHS      : %10.2f s.\n", timer);
    return !run.stop_requested();
}

void condensation_run(run_state& run, const settings_type& settings, data_type& data)
{
    problem_data* problem = problem_of(data);
    run.set_problem(problem, true);
    numerical_model_base* model = problem->model();
    if (!model) return;
    run.log(0, "STATIC CONDENSATION RUN (KELT FEM 4.4.0.0)\n");
    const double start = wall_clock();
    const bool want_K = settings.mode != 3, want_F = settings.mode != 2;
    const unsigned m = data.master_IDs.size(), cases = want_F ? problem->nbr_load_cases() : 0u;

    const prescribed_set prescribed = collect_prescribed(*problem);
    vector_fast masters;
    if (!take_masters(run, *model, data.master_IDs, prescribed, masters)) return;

    data.Kc_size_MB = want_K ? double(m) * (double(m) + 1.0) * 4.0 * bytes_to_MB : 0.0;
    data.RHS_size_MB = double(m) * cases * 8.0 * bytes_to_MB;
    data.total_size_MB = data.Kc_size_MB + data.RHS_size_MB;
    if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__)) return;
    if ((want_K && !data.Kc.resize(m, 0.0)) || (cases && !data.Fc.resize(m, cases, 0.0))) {
        KELT_RAISE(run, memory_error, "Memory error.");
        return;
    }
    if (run.stop_requested()) return;

    dense1D<unsigned, 8> excluded;
    if (!excluded.reserve(prescribed.common.size() + m, 1)) throw std::bad_alloc();
    for (unsigned id : prescribed.common) excluded.push_back(id);
    for (unsigned id : data.master_IDs) excluded.push_back(id);
    std::sort(excluded.begin(), excluded.end());
    numbering n;
    if (!number_DOFs(run, *model, kind_stiffness, excluded, false, n, data.time_numbering)) return;
    const unsigned Ni = n.size();
    data.nbr_free_DOFs = Ni;
    data.nbr_masters = m;
    run.log(2, "Requested memory for Kc  : %10llu doubles (%.2f MB) \n",
            want_K ? (unsigned long long)m * (m + 1) / 2 : 0ull, data.Kc_size_MB);
    run.log(2, "Requested memory for Fc  : %10llu doubles (%.2f MB) \n", (unsigned long long)m * cases,
            data.RHS_size_MB);
    run.log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);
    data.K_size_MB = n.K_size_MB;
    data.total_size_MB += data.K_size_MB;
    if (!run.check_memory(data.total_size_MB, __FILE__, __LINE__)) return;
    run.log(2, "Requested memory for K1  : %10llu doubles (%.2f MB) \n", (unsigned long long)(n.K_bytes / 8),
            n.K_size_MB);
    if (run.stop_requested()) return;

    indexed_sym_matrix K1;
    symmetric_full<double> Kmm;
    if (!Kmm.resize(m, 0.0)) throw std::bad_alloc();
    std::vector<coupling_entry> Kim;
    std::vector<std::size_t> Kim_start;
    const bool assembled = assemble_split_matrix(run, *model, kind_stiffness, make_pass(*problem), n, masters, K1,
                                                 Kmm, Kim, Kim_start, data.time_K_assembly);
    run.log(1, "Numerical assembly matrix K1       : %10.2f s.\n", data.time_K_assembly);
    if (!assembled) return;
    log_matrix_statistics(run, K1.matrix);
    if (run.stop_requested()) return;

    factor_options options;
    options.policy = settings.force_pivots ? pivot_policy::force_positive : pivot_policy::check_positive;
    factor_report report;
    const bool factored = factorise(run, K1.matrix, n, options, report, data.time_factorization);
    data.pivot_min = report.pivot_min;
    data.pivot_max = report.pivot_max;
    data.bad_pivot_ID = report.bad_DOF;
    data.bad_IDs = report.bad_IDs;
    data.nbr_bad = report.bad_IDs.size();
    run.log(1, "Factorization matrix K1            : %10.2f s.\n", data.time_factorization);
    log_matrix_statistics(run, K1.matrix);
    if (!factored) {
        char why[160];
        if (run.status.error_code == pivot_error && model->describe_unusable_law(why, sizeof why)) run.explain(why);
        return;
    }
    if (Ni > 0) {
        run.log(2, "  pivot max              : %+E \n", data.pivot_max);
        run.log(2, "  pivot min              : %+E \n", data.pivot_min);
    }
    data.uses_disk = uses_disk(run);

    std::vector<double> X(std::size_t(Ni) * cases, 0.0);
    if (cases && !assemble_condensed_loads(run, *model, n, masters, prescribed, X, data.Fc, data.time_RHS_assembly))
        return;
    if (!data.energies.resize(cases, 0.0)) throw std::bad_alloc();

    {
        phase_timer t(data.time_resolution);
        // The loads: Fc = Fm - Kmi K1⁻¹ Fi, all cases at once.
        if (cases) {
            std::vector<double*> columns(cases);
            for (unsigned i = 0; i < cases; ++i) columns[i] = X.data() + std::size_t(i) * Ni;
            if (!solve_columns(run, K1.matrix, columns.data(), cases, data.energies.data())) return;
            for (unsigned i = 0; i < cases; ++i) {
                data.energies[i] *= 0.5;
                for (unsigned k = 0; k < m; ++k) data.Fc(k, i) -= coupling_dot(Kim, Kim_start, k, columns[i]);
            }
        }
        // The stiffness: Kc = Kmm - Kmi K1⁻¹ Kim, a group of coupling columns per
        // many-column solve; the upper triangle only, so Kc is symmetric as stored.
        if (want_K) {
            const unsigned g = group_size(run, settings.block_size, m, Ni);
            std::vector<double> Y(std::size_t(Ni) * g), energy(g);
            std::vector<double*> columns(g);
            for (unsigned first = 0; first < m; first += g) {
                if (run.stop_requested()) return;
                const unsigned count = std::min(g, m - first);
                std::fill(Y.begin(), Y.end(), 0.0);
                for (unsigned c = 0; c < count; ++c) {
                    columns[c] = Y.data() + std::size_t(c) * Ni;
                    for (std::size_t e = Kim_start[first + c]; e < Kim_start[first + c + 1]; ++e)
                        columns[c][Kim[e].row] = Kim[e].value;
                }
                if (!solve_columns(run, K1.matrix, columns.data(), count, energy.data())) return;
                for (unsigned c = 0; c < count; ++c) {
                    const unsigned j = first + c;
                    for (unsigned k = 0; k <= j; ++k)
                        data.Kc(k, j) = Kmm(k, j) - coupling_dot(Kim, Kim_start, k, columns[c]);
                }
            }
        }
    }
    run.log(1, "Resolution                         : %10.2f s.\n", data.time_resolution);
    bool finite = std::all_of(data.Kc.data(), data.Kc.data() + (want_K ? std::size_t(m) * (m + 1) / 2 : 0u),
                              [](double v) { return std::isfinite(v); });
    for (unsigned i = 0; i < cases; ++i)
        for (unsigned k = 0; k < m; ++k) finite = finite && std::isfinite(data.Fc(k, i));
    if (!finite) {
        KELT_RAISE(run, inf_nan_error, "INF or NaN detected.");
        return;
    }
    data.time_total = wall_clock() - start;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_condensation_static::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_condensation_static: invalid mode.\n",
                    "KELT solver_condensation_static: invalid data.\n",
                    [&](core::run_state& run) { core::condensation_run(run, settings, data); });
}

} // namespace kelt::fem
