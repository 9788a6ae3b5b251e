// The records of the element loops: what a solver asks of a pass over the elements
// of a model (element_pass_type), and the scratch with which one thread computes one
// element at a time (element_work_type).
#pragma once

#include <memory>
#include <vector>

#include "kelt/core/FEM_matrix.h"
#include "kelt/core/assembler_base.h"
#include "kelt/core/numerical_model_base.h"
#include "kelt/core/stress_mgr.h"
#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"
#include "kelt/math/symmetric_full.h"

namespace kelt::core {

// Results of compute_element_results: one column per integration point, the
// point's coordinates in rows 0 to 2 and the values below.
inline constexpr unsigned result_temperature_gradient = 7; // 3 values
inline constexpr unsigned result_heat_flux = 8;            // 3 values
inline constexpr unsigned result_strain = 11;              // xx, yy, zz, xy, xz, yz, engineering shears
inline constexpr unsigned result_stress = 12;              // xx, yy, zz, xy, xz, yz
// Along a line element, at the fractions of its length in `abscissas`: rows 3 to
// 5 the displacement and 6 to 8 the rotation (global frame), 9 to 11 the section
// forces N, Vy, Vz and 12 to 14 the moments T, My, Mz (element frame).
inline constexpr unsigned result_along = 13;

// One column of a state matrix, read by DOF identifier; a DOF without a row reads 0.
struct DOF_values_view {
    Ptr<vector_fast> rows;
    dense1D<double, 8> values;

    bool empty() const noexcept { return !rows || values.size() == 0; }
    double get(unsigned ID) const noexcept
    {
        const unsigned r = rows->rank(ID);
        return r < values.size() ? values[r] : 0.0;
    }
    // A view of column `col` of `m`; false, with the view empty, when there is no
    // such column or it cannot be read.
    bool assign(const FEM_real& m, unsigned col);
    void clear()
    {
        rows = nullptr;
        values = dense1D<double, 8>();
    }
};

// Where the element results of a pass go.
class result_assembler_base {
public:
    virtual ~result_assembler_base() = default;
    // `values` has one column per point of `point_IDs`.
    virtual error_type add_results(unsigned model, unsigned element, const dense1D<unsigned, 8>& point_IDs,
                                   const dense2D<double>& values) = 0;
    // The whole record of an element, for assemblers that also want its point
    // weights and shape values; by default the values alone.
    virtual error_type add_element_results(const element_work_type& w);
};

// Told by the element loop, on the thread that runs the pass, of the elements
// it has assembled; false ends the loop with `interrupted_warning`.
class loop_progress {
public:
    virtual ~loop_progress() = default;
    virtual bool elements_done(unsigned count) = 0;
};

struct element_pass_type {
    dense2D<double> pos; // 3 x nodes
    DOF_values_view U;
    DOF_values_view U_ref; // may be empty
    unsigned element = all_elements;
    double factor = 1.0;
    double time = 0.0;
    double parameters[2] = {0.0, 0.0}; // a solver's own per-pass values
    bool with_transform = false;
    bool commit = false;
    matrix_mode_type matrix_mode = matrix_tangent;
    bool has_thermal = false;
    const stress_super_mgr* thermal = nullptr; // read when has_thermal is set
    // Null stands for the null assembler: no matrix (vector) is then computed.
    matrix_assembler_base* matrix = nullptr;
    vector_assembler_base* vector = nullptr;
    result_assembler_base* results = nullptr;
    // Energies per element: element_energies[energy_offset + energy_map rank of the
    // element's global number]. Null for none.
    dense1D<double, 8>* element_energies = nullptr;
    unsigned energy_offset = 0;
    const vector_fast* energy_map = nullptr;
    double total_energy = 0.0;
    double sums4[4] = {};
    double sums6[6] = {};
    // Stiffness of the springs that tie DOFs, from the problem's penalty factors.
    double penalty_displacement = 1.0;
    double penalty_rotation = 1.0;
    loop_progress* progress = nullptr; // null: nothing reported
};

// A symmetric block with DOFs of its own, for models that deliver several.
struct element_block {
    symmetric_full<double> K;
    dense1D<unsigned, 8> DOFs;
};

struct element_work_type {
    element_work_type() = default;
    element_work_type(const element_work_type&) = delete;
    element_work_type& operator=(const element_work_type&) = delete;

    // Takes the pass's data (shared, not copied) for a loop on a model.
    void start(const element_pass_type& pass, unsigned model);
    // Another thread's record: the same shared data, scratch of its own.
    std::unique_ptr<element_work_type> private_copy() const;
    // Empties every output before an element.
    void clear_outputs();

private:
    // The fields that a work record and a pass share by name.
    template <class Source>
    void share(const Source& s);

public:

    // Shared with the pass.
    dense2D<double> pos;
    DOF_values_view U;
    DOF_values_view U_ref;
    unsigned element = 0;
    double factor = 1.0;
    double time = 0.0;
    double parameters[2] = {0.0, 0.0};
    bool with_transform = false;
    bool commit = false;
    matrix_mode_type matrix_mode = matrix_tangent;
    unsigned vector_mode = 1;
    bool thread_private = false;
    const stress_mgr_thermal* thermal = nullptr;
    pass_kind kind = kind_stiffness;
    unsigned model = no_model;
    double penalty_displacement = 1.0;
    double penalty_rotation = 1.0;

    // Scratch of one element.
    dense2D<double> node_pos;         // 3 x its nodes
    matrix_fixed<double, 3, 3> basis; // material or element frame at the point
    matrix_fixed<double, 3, 3> jacobian;
    dense1D<double, 8> weights; // determinant times rule weight, per point
    symmetric_full<double> Ke;
    dense1D<double, 8> Kdiag;
    std::vector<element_block> Kblocks;
    dense2D<double> Kgen;
    dense1D<double, 8> Fe;
    dense1D<unsigned, 8> DOFs; // rows of Ke, Kdiag, Kgen and Fe
    double energy = 0.0;
    double sums4[4] = {};
    double sums6[6] = {};
    dense1D<double, 8> Ue;
    dense2D<double> B; // one row per element DOF
    dense1D<double, 8> state_out;
    // The element's internal states, states_per_point values a point, points in
    // rule order: the last committed ones to read and the trial ones to write.
    // Set by the model before each element; null for a law without states, and
    // trial_states null when the pass keeps no trial (results).
    const double* committed_states = nullptr;
    double* trial_states = nullptr;
    unsigned states_per_point = 0;
    dense2D<double> results; // one column per point
    dense1D<unsigned, 8> point_IDs;
    // Of a results pass, for the projections on the nodes: the element's nodes and
    // the shape value of each node at each point (one column per point); the
    // points' weights are in `weights`. Empty for a family that gives none.
    dense1D<unsigned, 8> point_nodes;
    dense2D<double> point_shapes;
    dense1D<double, 8> thermal_value; // the value a thermal source gives
    // Of a result_along pass: the points, as fractions of the length from the first
    // node, and what the element's own loads put on its DOFs (global frame, in the
    // element's DOF order), taken as uniform between the nodes.
    dense1D<double, 8> abscissas;
    dense1D<double, 8> element_loads;
};

inline error_type result_assembler_base::add_element_results(const element_work_type& w)
{
    return add_results(w.model, w.element, w.point_IDs, w.results);
}

} // namespace kelt::core
