// Nodal values of point results, smooth, by least squares: a mass-like matrix on
// the nodes, factorised once, and one right-hand side per component and state.
// solver_stress_nodal does it for strains and stresses, solver_least_squares for
// any result a model offers; both run on one engine.
#pragma once

#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_record.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

struct nodal_inputs {
    unsigned NM_ID = 0xFFFFFFFFu; // the model; the problem's when none bears it
    FEM_states U;                 // the states, one a column
};

struct nodal_outputs {
    // Rows: node numbers; columns: the components of state 0, then of state 1, ...
    // Tensors are in packed order s00, s01, s11, s02, s12, s22 (strains tensorial).
    FEM_matrix values;
    unsigned nbr_components = 0; // per state
    unsigned nbr_nodes = 0;
    double pivot_min = 0.0;
    double pivot_max = 0.0;
    unsigned bad_pivot_ID = 0xFFFFFFFFu; // node x 9 of the offending pivot
    double M_size_MB = 0.0;
    double RHS_size_MB = 0.0;
};

struct nodal_timers {
    double time_numbering = 0.0;
    double time_M_assembly = 0.0;
    double time_factorization = 0.0;
    double time_resolution = 0.0;
    double time_total = 0.0;
};

// The record of both, with the readers of its values: a node's tensor (field 8
// or 16 the first six components of a state, 24 or 32 the next six, which need
// twelve: with six, 0 and a zero tensor), a tensor's value in a direction n
// (nᵀ S n), and per node the Von Mises value or the principal values. The ID
// forms take a DOF identifier of the node (node x 9 + place) in place of the node.
// element_index_error for a node or state that the values do not hold.
class nodal_record : public solver_record<nodal_inputs, nodal_outputs, nodal_timers> {
public:
    using solver_record::solver_record;
    // NM_ID names the input field, not the problem's model.
    using nodal_inputs::NM_ID;

    // The model exists and U has a state.
    bool valid() const;

protected:
    [[nodiscard]] error_type tensor(unsigned node, unsigned state, field_tag f, symmetric_fixed<double, 3>& s) const;
    [[nodiscard]] error_type tensor_val(unsigned node, unsigned state, field_tag f, const vector_fixed<double, 3>& n,
                                        double& value) const;
    [[nodiscard]] error_type Von_Mises(unsigned state, FEM_matrix& out) const;
    [[nodiscard]] error_type principal(unsigned state, bool second, FEM_matrix& out) const;
};

class solver_stress_nodal : public solver_base {
public:
    struct settings_type {
        unsigned result = 2; // 1 strains, 2 stresses; 11 and 12 as the models number them
        bool flag = false;
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return true; }
    };

    class data_type : public nodal_record {
    public:
        using nodal_record::nodal_record;

        [[nodiscard]] error_type get_stress_tensor(unsigned node, unsigned state, field_tag f,
                                                   symmetric_fixed<double, 3>& s) const
        {
            return tensor(node, state, f, s);
        }
        [[nodiscard]] error_type get_stress_val(unsigned node, unsigned state, field_tag f,
                                                const vector_fixed<double, 3>& n, double& value) const
        {
            return tensor_val(node, state, f, n, value);
        }
        [[nodiscard]] error_type getID_stress_tensor(unsigned ID, unsigned state, field_tag f,
                                                     symmetric_fixed<double, 3>& s) const
        {
            return tensor(ID / 9, state, f, s);
        }
        [[nodiscard]] error_type getID_stress_val(unsigned ID, unsigned state, field_tag f,
                                                  const vector_fixed<double, 3>& n, double& value) const
        {
            return tensor_val(ID / 9, state, f, n, value);
        }
        [[nodiscard]] error_type get_Von_Mises_stresses(unsigned state, FEM_matrix& out) const
        {
            return Von_Mises(state, out);
        }
        // With `second`, of the second tensor of each node (twelve components).
        [[nodiscard]] error_type get_principal_stresses(unsigned state, bool second, FEM_matrix& out) const
        {
            return principal(state, second, out);
        }
    };

    void run(data_type& data) const;

    settings_type settings;
};

class solver_least_squares : public solver_base {
public:
    struct settings_type {
        unsigned result = 10; // as the models number their results
        unsigned nbr_components = 2;
        bool flag = false;
        log_handler log_hdl = nullptr;
        interrupt_handler interrupt_hdl = nullptr;
        void* user_data = nullptr;

        void reset() noexcept { *this = settings_type(); }
        bool valid() const noexcept { return result >= 7 && result <= 13 && nbr_components != 0; }
    };

    class data_type : public nodal_record {
    public:
        using nodal_record::nodal_record;

        [[nodiscard]] error_type get_tensor(unsigned node, unsigned state, field_tag f,
                                            symmetric_fixed<double, 3>& s) const
        {
            return tensor(node, state, f, s);
        }
        [[nodiscard]] error_type get_tensor_val(unsigned node, unsigned state, field_tag f,
                                                const vector_fixed<double, 3>& n, double& value) const
        {
            return tensor_val(node, state, f, n, value);
        }
        // The first three components of a state at a node (absent ones 0).
        [[nodiscard]] error_type get_vector(unsigned node, unsigned state, vector_fixed<double, 3>& v) const;
        [[nodiscard]] error_type getID_tensor(unsigned ID, unsigned state, field_tag f,
                                              symmetric_fixed<double, 3>& s) const
        {
            return tensor(ID / 9, state, f, s);
        }
        [[nodiscard]] error_type getID_tensor_val(unsigned ID, unsigned state, field_tag f,
                                                  const vector_fixed<double, 3>& n, double& value) const
        {
            return tensor_val(ID / 9, state, f, n, value);
        }
        [[nodiscard]] error_type getID_vector(unsigned ID, unsigned state, vector_fixed<double, 3>& v) const
        {
            return get_vector(ID / 9, state, v);
        }
        [[nodiscard]] error_type get_principal_values(unsigned state, bool second, FEM_matrix& out) const
        {
            return principal(state, second, out);
        }
    };

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem
