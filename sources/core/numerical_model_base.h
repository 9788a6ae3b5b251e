// The one interface through which solvers reach the physics: a numerical model
// (a mesh, a discrete element, a composite of models), numbered by the context's
// registry and driven through its virtual operations.
#pragma once

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"

namespace kelt::core {

class context_type;
struct elementary_load;
struct load_pass_type;
// The records of the element loops belong to the element layer.
struct element_pass_type;
struct element_work_type;

inline constexpr unsigned no_model = 0xFFFFFFFFu;
// The element selector that stands for all elements of a model.
inline constexpr unsigned all_elements = 0xFFFFFFFEu;

class numerical_model_base : public ref_counted {
public:
    // A model of no context and no identifier yet: `record` gives it one.
    numerical_model_base() noexcept;
    explicit numerical_model_base(context_type* context) noexcept;
    ~numerical_model_base() override;
    numerical_model_base(const numerical_model_base&) = delete;
    numerical_model_base& operator=(const numerical_model_base&) = delete;

    // The virtual operations, in the order of the whole interface; each
    // family overrides what it answers.
    virtual unsigned nbr_elements() const;
    // Upper reference value of the stiffness of the model's laws for a field: the
    // scale of the penalty factors. 0 for a model that has none.
    virtual double get_stiffness_scale(field_tag field) const;
    // Forgets the states of the laws, so that a run starts from a clean model.
    virtual void clear_internal_states();
    // Adds one elementary load on the element `pass.element` (or all elements) to
    // the pass's right-hand side.
    [[nodiscard]] virtual error_type run_element_loads(const elementary_load& load, load_pass_type& pass);

    // Registers the model with its current element count in the context's
    // registry, under its identifier or a new one. `invalid_data_error` without a
    // context, `memory_error` when the registry cannot grow.
    [[nodiscard]] error_type record();
    void set_evolution_func_ID(unsigned func) noexcept { evolution_func_ID = func; }

    // Not a counted reference: the context's registry holds its models, so a model
    // holding its context would keep both alive for ever. The registry clears this
    // link when it lets the model go, and only a recorded model keeps one.
    context_type* context = nullptr;
    unsigned ID = no_model;
    // The function that scales every load and matrix of the model; none by default.
    unsigned evolution_func_ID = 0xFFFFFFFFu;
};

} // namespace kelt::core
