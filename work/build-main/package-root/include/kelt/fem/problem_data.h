// Public handle on what a solver is given: node positions, the DOF table, the
// numerical model to solve and its load cases. Every solver's data record derives
// from it and shares the problem it was made from.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/DOFs_mgr.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/loads_mgr.h"
#include "kelt/fem/stress_mgr.h"
#include "kelt/math/dense2D.h"

namespace kelt::fem {

class context;

class problem_data : public base_class {
public:
    explicit problem_data(context& ctx);
    // Positions (3 x nodes: a matrix of other than 3 rows is resized to 3, which
    // the caller sees), DOF table, model identifier and number of load cases.
    problem_data(context& ctx, dense2D<double>& pos, DOFs_mgr& DOFs, unsigned NM_ID, unsigned nbr_load_cases);
    // Load case j of the new problem is sum_i load_factors(i, j) x case i of `p`,
    // for its loads and its thermal loads alike.
    problem_data(const problem_data& p, const dense2D<double>& load_factors);
    // The same with separate factors for the thermal loads.
    problem_data(const problem_data& p, const dense2D<double>& load_factors, const dense2D<double>& stress_factors);

    // A new problem on the context, with an empty DOF table; the old one is released.
    void create(context& ctx);
    // Rebinds positions, table, model and load cases; the old load cases go.
    void init(dense2D<double>& pos, DOFs_mgr& DOFs, unsigned NM_ID, unsigned nbr_load_cases);

    // 0xFFFFFFFF when no model is named.
    unsigned NM_ID() const;
    // True when NM_ID names a model of the context's registry.
    bool has_numerical_model() const;
    // The positions, shared with the caller both ways.
    dense2D<double> get_pos_matrix() const;
    void set_pos_matrix(dense2D<double>& pos);
    DOFs_mgr get_DOFs_mgr() const;

    unsigned nbr_load_cases() const;
    // An empty handle out of range.
    loads_mgr get_loads_mgr(unsigned i) const;
    // Out of range, or with an empty handle, nothing happens.
    void set_loads_mgr(unsigned i, const loads_mgr& loads);
    stress_mgr get_stress_mgr(unsigned i) const;
    void set_stress_mgr(unsigned i, const stress_mgr& stresses);

    // Penalty factor of the stiff springs that tie DOFs of a field: the model's
    // stiffness scale times the context's raw factor, never below its minimum.
    double get_penalty_factor(field_tag tag) const;

protected:
    problem_data() = default;
};

} // namespace kelt::fem
