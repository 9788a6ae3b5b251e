// What a solver is given: node positions, the DOF table, the numerical model to
// solve, and per load case its loads and its thermal loads. A solver's record
// shares this object with the problem it was made from.
#pragma once

#include <vector>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/loads_mgr.h"
#include "kelt/core/numerical_model_base.h"
#include "kelt/core/omp_lock.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/core/types.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

class context_type;

class problem_data : public ref_counted {
public:
    // Bound to a context (which may be null), with an empty DOF table.
    explicit problem_data(context_type* context);
    ~problem_data() override;
    problem_data(const problem_data&) = delete;
    problem_data& operator=(const problem_data&) = delete;

    // Binds positions, table, model and load cases; with no context, stops after
    // emptying the problem with `invalid_data_error`. A position matrix of other
    // than 3 rows is resized to 3, which the caller sees.
    [[nodiscard]] error_type init(dense2D<double>& pos, DOFs_mgr* DOFs, unsigned NM_ID, unsigned nbr_load_cases);
    // Shares the positions, growing the table to their nodes.
    void set_pos_matrix(dense2D<double>& pos);
    // Load case j of this problem becomes sum_i factors(i, j) x case i of `p`:
    // loads with `load_factors`, thermal loads with `stress_factors`. Missing
    // coefficients count as 0.
    [[nodiscard]] error_type combine(const problem_data& p, const dense2D<double>& load_factors,
                                     const dense2D<double>& stress_factors);

    unsigned nbr_load_cases() const noexcept { return unsigned(loads.size()); }
    // The model named by NM_ID in the context's registry, null when there is none.
    numerical_model_base* model() const noexcept;
    // The model's stiffness scale times the raw factor, never below the minimum
    // factor; 1.0 without a context.
    double get_penalty_factor(field_tag tag) const;
    // Fills the cached penalties of translations and rotations.
    void compute_penalties();

    Ptr<context_type> context;
    dense2D<double> pos; // always 3 rows, one column per node
    Ptr<DOFs_mgr> DOFs;
    unsigned NM_ID = no_model;
    std::vector<Ptr<loads_mgr>> loads;           // one per load case
    std::vector<Ptr<stress_super_mgr>> stresses; // one per load case
    double penalty_displacement = 1.0;
    double penalty_rotation = 1.0;
    omp_mutex lock;

private:
    [[nodiscard]] error_type make_load_cases(unsigned n);
};

} // namespace kelt::core
