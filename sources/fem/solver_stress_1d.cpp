// Results of line elements through the model's own element operations: the
// section values at the ends, and the values along each element with the loads
// that the load cases put on it.
#include "kelt/fem/solver_stress_1d.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "kelt/core/element_records.h"
#include "kelt/core/load_pass.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/engine/assemblers.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/phases/problem.h"

namespace kelt::core {

using fem::post_processor_1d;
using fem::solver_stress_1d;

namespace {

// The model of a problem when it is one of line elements, null otherwise.
numerical_model_base* line_model(run_state& run, problem_data* problem)
{
    run.set_problem(problem, true);
    numerical_model_base* model = problem->model();
    return model && model->get_FE_type() != element_none && model->element_dim() == 1 ? model : nullptr;
}

const FEM_real* input_matrix(const fem::FEM_matrix& handle) noexcept
{
    return static_cast<const FEM_real*>(fem::core_of(handle));
}

// A force (slots f) and a moment (slots m) of a section's six values turned from
// the element's axes (columns of `basis`) to the global ones.
void turn_to_global(const matrix_fixed<double, 3, 3>& basis, double (&v)[6])
{
    constexpr unsigned f[3] = {0, 4, 5}, m[3] = {3, 1, 2};
    double F[3], M[3];
    for (unsigned k = 0; k < 3; ++k) {
        F[k] = M[k] = 0.0;
        for (unsigned i = 0; i < 3; ++i) {
            F[k] += basis(k, i) * v[f[i]];
            M[k] += basis(k, i) * v[m[i]];
        }
    }
    for (unsigned k = 0; k < 3; ++k) v[f[k]] = F[k], v[m[k]] = M[k];
}

void stress_1d_run(run_state& run, const solver_stress_1d::settings_type& settings, solver_stress_1d::data_type& data)
{
    const double start = wall_clock();
    numerical_model_base* model = line_model(run, problem_of(data));
    if (!model) {
        KELT_RAISE(run, element_type_error, "KELT solver_stress_1d: invalid model type.");
        return;
    }
    const FEM_real* U = input_matrix(data.U);
    const unsigned states = U ? U->cols() : 0u, ne = model->nbr_elements();
    dense1D<unsigned, 8> IDs;
    if (!IDs.reserve(ne, 1)) throw std::bad_alloc();
    for (unsigned e = 0; e < ne; ++e) IDs.push_back(e);
    FEM_real* R = output_matrix(data.results, IDs, 12 * states);
    if (!R || R->rows() != ne || R->cols() != 12 * states) {
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        return;
    }
    data.nbr_elements = ne;
    const unsigned result = settings.result == 1 ? result_strain : result_stress;
    bool first = true;
    for (unsigned j = 0; j < states; ++j) {
        if (run.stop_requested()) return;
        element_pass_type pass = make_pass(*run.problem);
        if (!pass.U.assign(*U, j)) throw std::bad_alloc();
        dense1D<double, 8> columns[12];
        for (unsigned c = 0; c < 12; ++c) {
            columns[c] = R->col(12 * j + c);
            if (columns[c].size() != ne) return (void)KELT_RAISE(run, memory_error, "Matrix allocation error.");
        }
        for (unsigned e = 0; e < ne; ++e) {
            element_work_type w;
            w.start(pass, model->ID);
            w.element = e;
            if (auto err = model->compute_element_results(kind_stiffness, result, w); err != no_error)
                return (void)KELT_RAISE(run, err, "Element results error.");
            double v[2][6] = {};
            if (w.results.rows() >= 9 && w.results.cols() == 2) {
                for (unsigned p = 0; p < 2; ++p)
                    for (unsigned i = 0; i < 6; ++i) v[p][i] = w.results(3 + i, p);
            } else if (w.results.rows() >= 4 && w.results.cols() >= 1) {
                v[0][0] = v[1][0] = w.results(3, 0);
            }
            if (settings.global_frame) {
                matrix_fixed<double, 3, 3> basis;
                if (auto err = model->get_element_basis(e, run.problem->pos, &pass.U, basis); err != no_error)
                    return (void)KELT_RAISE(run, err, "Element results error.");
                turn_to_global(basis, v[0]);
                turn_to_global(basis, v[1]);
            }
            for (unsigned p = 0; p < 2; ++p) {
                const double* s = v[p];
                for (unsigned i = 0; i < 6; ++i) columns[6 * p + i][e] = s[i];
                data.N_min = first ? s[0] : std::min(data.N_min, s[0]);
                data.N_max = first ? s[0] : std::max(data.N_max, s[0]);
                first = false;
                data.My_max = std::max(data.My_max, std::fabs(s[1]));
                data.Mz_max = std::max(data.Mz_max, std::fabs(s[2]));
                data.T_max = std::max(data.T_max, std::fabs(s[3]));
                data.Vy_max = std::max(data.Vy_max, std::fabs(s[4]));
                data.Vz_max = std::max(data.Vz_max, std::fabs(s[5]));
                data.M_max = std::max(data.M_max, std::hypot(s[1], s[2]));
                data.V_max = std::max(data.V_max, std::hypot(s[4], s[5]));
            }
            if (j == 0 && w.weights.size()) data.length += w.weights[0];
        }
    }
    data.time_total = wall_clock() - start;
}

// What the loads of case i put on element e's six places a node, through the
// model's own load routine, as the static run assembled them.
error_type element_loads(numerical_model_base& model, const loads_mgr* loads, unsigned i, unsigned e,
                         element_pass_type& pass, const Ptr<vector_fast>& rows, indexed_vector& out)
{
    if (!out.create(rows)) throw std::bad_alloc();
    if (!loads) return no_error;
    for (const auto& entry : loads->NM_loads) {
        const NM_load_record& r = entry.second;
        if (r.NM_ID != model.ID || (r.element != e && r.element != all_elements) ||
            r.load >= loads->elementary_loads.size())
            continue;
        vector_assembler<indexed_vector> into(out, 1.0);
        load_pass_type lp(into, 1.0, 0.0, i);
        lp.element = e;
        lp.element_pass = &pass;
        if (auto err = model.run_element_loads(loads->elementary_loads[r.load], lp); err != no_error) return err;
    }
    return no_error;
}

void post_1d_run(run_state& run, const post_processor_1d::settings_type& settings,
                 post_processor_1d::data_type& data)
{
    const double start = wall_clock();
    numerical_model_base* model = line_model(run, problem_of(data));
    if (!model) {
        KELT_RAISE(run, invalid_data_error, "DATA ERROR");
        run.explain("KELT post_processor_1d: invalid numerical model.\n");
        return;
    }
    const unsigned ne = model->nbr_elements();
    dense1D<unsigned, 8> elements = data.elements;
    if (elements.empty())
        for (unsigned e = 0; e < ne; ++e) elements.push_back(e);
    for (unsigned e : elements)
        if (e >= ne) {
            KELT_RAISE(run, element_index_error, "Element not in the model.");
            return;
        }
    dense1D<double, 8> abscissas = settings.abscissas;
    if (abscissas.empty())
        for (unsigned p = 0; p < settings.nbr_points; ++p) abscissas.push_back(double(p) / (settings.nbr_points - 1));
    const FEM_real* U = input_matrix(data.U);
    const unsigned cases = U ? U->cols() : 0u, np = abscissas.size(), nel = elements.size();
    const std::uint64_t columns = std::uint64_t(cases) * nel * np;
    if (columns > 0xFFFFFFFFull || !data.displacements.resize(3, unsigned(columns), 0.0) ||
        !data.rotations.resize(3, unsigned(columns), 0.0) || !data.forces.resize(3, unsigned(columns), 0.0) ||
        !data.moments.resize(3, unsigned(columns), 0.0)) {
        KELT_RAISE(run, memory_error, "Matrix allocation error.");
        return;
    }
    dense2D<unsigned> mesh;
    element_type type = element_none;
    model->get_mesh(mesh, type);
    bool first = true;
    for (unsigned i = 0; i < cases; ++i) {
        if (run.stop_requested()) return;
        const auto& all = run.problem->loads;
        const loads_mgr* loads = i < all.size() ? all[i].get() : nullptr;
        element_pass_type pass = make_pass(*run.problem);
        if (!pass.U.assign(*U, i)) throw std::bad_alloc();
        for (unsigned k = 0; k < nel; ++k) {
            const unsigned e = elements[k];
            Ptr<vector_fast> rows = new vector_fast;
            for (unsigned a = 0; a < 2; ++a)
                for (unsigned place = 0; place < 6; ++place) (void)rows->push_back(mesh(a, e) * 9 + place);
            indexed_vector f;
            if (auto err = element_loads(*model, loads, i, e, pass, rows, f); err != no_error)
                return (void)KELT_RAISE(run, err, "Assembly error.");
            element_work_type w;
            w.start(pass, model->ID);
            w.element = e;
            w.abscissas = abscissas;
            w.element_loads = f.values;
            if (auto err = model->compute_element_results(kind_stiffness, result_along, w); err != no_error)
                return (void)KELT_RAISE(run, err, "Element results error.");
            if (w.results.rows() < 15 || w.results.cols() != np) // a family that gives no values along
                return (void)KELT_RAISE(run, element_type_error, "Element results error.");
            for (unsigned p = 0; p < np; ++p) {
                const unsigned c = unsigned((std::uint64_t(i) * nel + k) * np + p);
                for (unsigned r = 0; r < 3; ++r) {
                    data.displacements(r, c) = w.results(3 + r, p);
                    data.rotations(r, c) = w.results(6 + r, p);
                    data.forces(r, c) = w.results(9 + r, p);
                    data.moments(r, c) = w.results(12 + r, p);
                }
                const double N = data.forces(0, c);
                data.N_min = first ? N : std::min(data.N_min, N);
                data.N_max = first ? N : std::max(data.N_max, N);
                first = false;
                data.Vy_max = std::max(data.Vy_max, std::fabs(data.forces(1, c)));
                data.Vz_max = std::max(data.Vz_max, std::fabs(data.forces(2, c)));
                data.T_max = std::max(data.T_max, std::fabs(data.moments(0, c)));
                data.My_max = std::max(data.My_max, std::fabs(data.moments(1, c)));
                data.Mz_max = std::max(data.Mz_max, std::fabs(data.moments(2, c)));
                data.displacement_max = std::max(data.displacement_max, std::hypot(data.displacements(0, c),
                                                                                   data.displacements(1, c),
                                                                                   data.displacements(2, c)));
                data.rotation_max = std::max(
                    data.rotation_max, std::hypot(data.rotations(0, c), data.rotations(1, c), data.rotations(2, c)));
            }
        }
    }
    data.time_total = wall_clock() - start;
}

} // namespace

} // namespace kelt::core

namespace kelt::fem {

void solver_stress_1d::run(data_type& data) const
{
    core::run_frame(settings, data, nullptr, "KELT solver_stress_1d: invalid data.\n",
                    [&](core::run_state& run) { core::stress_1d_run(run, settings, data); });
}

void post_processor_1d::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT post_processor_1d: invalid settings.\n",
                    "KELT post_processor_1d: invalid numerical model.\n",
                    [&](core::run_state& run) { core::post_1d_run(run, settings, data); });
}

} // namespace kelt::fem
