// The one interface through which solvers reach the physics: a numerical model
// (a mesh, a discrete element, a composite of models), numbered by the context's
// registry and driven through its virtual operations.
#pragma once

#include <vector>

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"

namespace kelt {
class vector_fast;
}

namespace kelt::core {

class context_type;
struct elementary_load;
struct load_pass_type;
// The records of the element loops and the state store (element_records.h,
// internal_states.h), which include this header.
struct element_pass_type;
struct element_work_type;
struct DOF_values_view;
struct internal_states_block;
class internal_states;

inline constexpr unsigned no_model = 0xFFFFFFFFu;
// The element selector that stands for all elements of a model.
inline constexpr unsigned all_elements = 0xFFFFFFFEu;
// The field selector of the DOF listings that keeps every field.
inline constexpr unsigned all_fields = 0;

// The kind of an element pass: which matrix and vector the models compute.
// Kind 6 means something else to each family that answers it. To a stiffness
// model it is the thermal coupling pass: the forces that a temperature field
// gives the structure; the solid volumes take their thermal strains into the
// vector of the stiffness pass when it carries a thermal source, and give nothing
// to kind 6. To a conduction model it is the right-hand side pass of a heat
// problem: it lists the temperature DOFs for the numbering, and its element
// routine gives nothing, for heat sources and fluxes come as element loads.
enum pass_kind : unsigned {
    kind_none = 0, // no pass: what a result that no pass delivers reports
    kind_stiffness = 1,
    kind_mass = 2,
    kind_damping = 3,
    kind_gyroscopic = 4,
    kind_conduction = 5,
    kind_thermal_load = 6,
};

// Which stiffness a stiffness pass assembles.
enum matrix_mode_type : unsigned {
    matrix_none = 0,
    matrix_tangent = 1,  // material plus geometric
    matrix_material = 2, // material only
    matrix_geometric = 3,
};

// One (model, element) that touches an equation.
struct FE_pair {
    unsigned model = 0xFFFFFFFFu;
    unsigned element = 0xFFFFFFFFu;
};

class numerical_model_base : public ref_counted {
public:
    // A model of no context and no identifier yet: `record` gives it one.
    numerical_model_base() noexcept;
    explicit numerical_model_base(context_type* context) noexcept;
    numerical_model_base(const numerical_model_base&) = delete;
    numerical_model_base& operator=(const numerical_model_base&) = delete;

    // The virtual operations, in the order of the whole interface; each family
    // overrides what it answers.
    ~numerical_model_base() override;
    // The physics object of a mesh, null for other models.
    virtual Ptr<ref_counted> get_physics_model() const;
    virtual unsigned physics_code() const;
    virtual unsigned physics_variant_code() const;
    virtual unsigned model_code() const;
    // A shared view of the connectivity (one column of node numbers per element)
    // and its type; empty and element_none for a model without a mesh.
    virtual void get_mesh(dense2D<unsigned>& mesh, element_type& type) const;
    virtual element_type get_FE_type() const;
    virtual unsigned element_dim() const;
    virtual unsigned nbr_elements() const;
    // counter += the number of elements, returned.
    virtual unsigned add_nbr_elements(unsigned& counter) const;
    // Appends this model (a composite: its children) to `list`.
    virtual void collect_models(std::vector<Ptr<numerical_model_base>>& list);
    virtual Ptr<numerical_model_base> find_model(unsigned ID);
    // True when the model takes part in passes of this kind.
    virtual bool handles_field_family(pass_kind kind) const;
    // Upper reference value of the stiffness of the model's laws for a field: the
    // scale of the penalty factors. 0 for a model that has none.
    virtual double get_stiffness_scale(field_tag field) const;
    // A parameter of the model's laws that gives no usable matrix, said in `text`;
    // false when there is none (a model without law has none).
    virtual bool describe_unusable_law(char* text, unsigned size) const;
    // A length from the bounding box of the model's nodes, 0 without nodes.
    virtual double get_mesh_size(const dense2D<double>& pos) const;
    // Columns of `basis`: the element's own orthonormal axes at its centre, in the
    // state U when given (null: the positions alone).
    [[nodiscard]] virtual error_type get_element_basis(unsigned element, const dense2D<double>& pos,
                                                       const DOF_values_view* U,
                                                       matrix_fixed<double, 3, 3>& basis) const;
    // Hard offsets and relaxations act through this object; null for none.
    virtual void set_FE_transformer(const Ptr<ref_counted>& transformer);
    // Inserts the element's DOF identifiers of a pass kind into a set.
    virtual void get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>& pos,
                                  unsigned field_selector, vector_fast& DOF_set) const;
    // Connectivity in DOFs as compressed rows: each selected element appends its
    // DOF identifiers to `DOFs` and its end position to `ends` (which gets a leading
    // 0 when empty).
    [[nodiscard]] virtual error_type get_elements_DOFs(unsigned element_selector, pass_kind kind,
                                                       const dense2D<double>& pos, unsigned field_selector,
                                                       std::vector<unsigned>& ends,
                                                       std::vector<unsigned>& DOFs) const;
    // For each element, each of its DOFs with a rank r in `DOF_index_map`: with
    // `pairs` empty, ++counters[r]; else pairs[counters[r]++] = (model, element).
    virtual void fill_DOF_to_elements(unsigned element_selector, pass_kind kind, const vector_fast& DOF_index_map,
                                      dense1D<unsigned, 8>& counters, dense1D<FE_pair, 8>& pairs) const;
    // The equations-to-elements map as compressed rows: the pairs of rank r are
    // pairs[offsets[r]] to pairs[offsets[r + 1]].
    [[nodiscard]] virtual error_type get_DOF_to_elements(unsigned element_selector, pass_kind kind,
                                                         const vector_fast& DOF_index_map,
                                                         dense1D<unsigned, 8>& offsets,
                                                         dense1D<FE_pair, 8>& pairs) const;
    virtual bool has_internal_states() const;
    // Prepares the offsets and values of one block; false when there is nothing
    // to keep.
    virtual bool layout_internal_states(internal_states_block& block) const;
    // Empty `values` erase the element's states.
    [[nodiscard]] virtual error_type set_element_states(unsigned element, const dense1D<double, 8>& values);
    [[nodiscard]] virtual error_type get_element_states(internal_states_block& block, unsigned element) const;
    // Zeroes the committed and the trial states, so that a run starts from a
    // virgin model.
    virtual void clear_internal_states();
    // Element passes read the committed states and write trial ones. Commit makes
    // the trial states the committed ones (after a converged step); rollback makes
    // the trial states the committed ones again (before a step is retried).
    [[nodiscard]] virtual error_type commit_states();
    virtual void rollback_states();
    [[nodiscard]] virtual error_type set_internal_states(const internal_states& store);
    [[nodiscard]] virtual error_type get_internal_states(internal_states& store) const;
    // Fills the matrices and vector of `work` for `work.element`.
    [[nodiscard]] virtual error_type compute_element(pass_kind kind, element_work_type& work) const;
    // Adds one elementary load on `work.element` to `work.Fe`.
    [[nodiscard]] virtual error_type compute_element_load(const elementary_load& load,
                                                          element_work_type& work) const;
    // Values of a result (strains, stresses, fluxes) at the element's points.
    [[nodiscard]] virtual error_type compute_element_results(pass_kind kind, unsigned result,
                                                             element_work_type& work) const;
    // The element loop: matrices and vectors of a pass into its assemblers. With
    // `pass.commit` set, a loop that returns no error ends with commit_states.
    [[nodiscard]] virtual error_type run_elements(pass_kind kind, element_pass_type& pass);
    // Adds one elementary load on the element `pass.element` (or all elements) to
    // the pass's right-hand side.
    [[nodiscard]] virtual error_type run_element_loads(const elementary_load& load, load_pass_type& pass);
    [[nodiscard]] virtual error_type run_element_results(pass_kind kind, unsigned result, element_pass_type& pass);
    // The physics family code and the pass kind that a result belongs to.
    virtual void get_result_field(unsigned result, unsigned& physics_code, pass_kind& kind) const;
    [[nodiscard]] virtual error_type get_element_transform(unsigned element, dense2D<double>& transform) const;

    // Registers the model with its current element count in the context's
    // registry, under its identifier or a new one. `invalid_data_error` without a
    // context, `memory_error` when the registry cannot grow.
    [[nodiscard]] error_type record();
    void set_evolution_func_ID(unsigned func) noexcept { evolution_func_ID = func; }
    // The value of the model's evolution function at t: 1.0 when it names none.
    double evolution_factor(double t) const;
    // All DOF identifiers of the model for a pass kind, each once, in order of
    // first meeting: the list the numbering starts from.
    [[nodiscard]] error_type get_model_DOFs(pass_kind kind, const dense2D<double>& pos, unsigned field_selector,
                                            dense1D<unsigned, 8>& DOFs) const;

    // Not a counted reference: the context's registry holds its models, so a model
    // holding its context would keep both alive for ever. The registry clears this
    // link when it lets the model go, and only a recorded model keeps one.
    context_type* context = nullptr;
    unsigned ID = no_model;
    // The function that scales every load and matrix of the model; none by default.
    unsigned evolution_func_ID = 0xFFFFFFFFu;
    Ptr<ref_counted> FE_transformer;
};

} // namespace kelt::core
