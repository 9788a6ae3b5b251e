// The resolution of a static system with many load cases and prescribed values:
// the layout of its solution, the elimination of the prescribed values that stay
// out of K, block solves of the cases that need the factor alone, and the
// gradient for the cases that hold DOFs of K at given values.
#pragma once

#include <vector>

#include "kelt/core/FEM_states.h"
#include "kelt/engine/skyline.h"
#include "kelt/core/element_records.h"
#include "kelt/fem/phases/factor.h"
#include "kelt/fem/phases/numbering.h"
#include "kelt/fem/phases/problem.h"
#include "kelt/fem/solver_frame.h"
#include "kelt/fem/solver_static_linear.h"

namespace kelt::core {

// Where each case's prescribed DOFs lie: inside K (a DOF some other case leaves
// free) or out of it.
struct prescribed_layout {
    std::vector<bool> in_K;  // per case
    std::vector<bool> out_K; // per case
    unsigned nbr_in_K = 0;   // entries of all lists inside K
};

// U sized for `cases` columns over the free DOFs in solver order, then the
// prescribed DOFs out of K, each once ("Matrix allocation error." when it cannot
// be had), and where the prescribed DOFs lie.
[[nodiscard]] bool size_static_states(run_state& run, FEM_real_states& U, const numbering& n,
                                      const prescribed_set& prescribed, unsigned cases, prescribed_layout& layout);

// K factorised under `options`, with its log lines ("Factorization matrix K", the
// statistics, the pivot extremes) and the pivot report in the record. False when
// the run must end.
[[nodiscard]] bool factorise_static(run_state& run, indexed_sym_matrix& K, const numbering& n,
                                    const factor_options& options, fem::static_linear_outputs& out, double& timer);

struct static_system {
    numerical_model_base& model;
    pass_kind kind; // of K
    const numbering& n;
    const prescribed_set& prescribed;
    const prescribed_layout& layout;
    FEM_real_states& U;                 // the right-hand sides in, the solutions out
    const indexed_sym_matrix& K;        // as assembled: the gradient's operator
    const indexed_sym_matrix& factor;   // K's factor (K itself when factorised in place)
};


struct gradient_settings {
    unsigned max_iters = 100;
    double tolerance = 1e-8;
};

// The head of a static run: the problem taken, U emptied, the gradient's
// iterations sent to the host's handler, the banner (with the number of cases)
// logged. A null model: nothing to do, and no log at all.
struct static_run {
    numerical_model_base* model = nullptr;
    FEM_real_states* U = nullptr;
    const FEM_real_states* start = nullptr; // the starting state, when the record gives one
    double start_time = 0.0;
};
static_run begin_static_run(run_state& run, const fem::solver_static_linear::settings_type& settings,
                            fem::solver_static_linear::data_type& data, const char* banner);

// What the static solvers share of a run's set-up.
struct static_setup {
    prescribed_set prescribed;
    numbering n;
    prescribed_layout layout;
};

// The prescribed DOFs of every case, the DOFs of `kind` numbered (those held in
// every case left out), U sized, the memory checked, the counts and sizes into the
// record; the numbering's time logged. False when the run must end.
[[nodiscard]] bool set_up_static(run_state& run, const numerical_model_base& model, pass_kind kind, bool order_only,
                                 FEM_real_states& U, static_setup& s, fem::static_linear_outputs& out,
                                 double& time_numbering);

// Every column of U filled with its load case (thermal loads through passes of
// `thermal_kind`) from the starting state, checked finite, its norm logged.
[[nodiscard]] bool assemble_static_loads(run_state& run, numerical_model_base& model, pass_kind thermal_kind,
                                         const FEM_real_states* start, FEM_real_states& U, double& timer);

// K of `kind` assembled and factorised under `options` (a copy when some case
// holds a DOF inside K, for the gradient multiplies by K as assembled), then every
// case solved and checked finite, each phase logged.
[[nodiscard]] bool solve_static(run_state& run, numerical_model_base& model, pass_kind kind, const static_setup& s,
                                const DOF_values_view& start, const factor_options& options,
                                const gradient_settings& cg, FEM_real_states& U, fem::static_linear_outputs& out,
                                fem::static_linear_timers& timers);

// Every column of U solved; energies[i] = ½ uᵢᵀ K uᵢ with the work of the
// prescribed rows included.
void solve_static_cases(run_state& run, const static_system& s, const gradient_settings& cg,
                        dense1D<double, 8>& energies);

} // namespace kelt::core
