// Public handle on a numerical model: a mesh, a discrete element or a composite,
// known to the context's registry by its identifier.
#pragma once

#include "kelt/fem/base_class.h"

namespace kelt::fem {

class numerical_model_base : public base_class {
public:
    // An empty handle, for numerical_models_mgr::get_NM to attach.
    numerical_model_base() = default;

    // The model's identifier; 0xFFFFFFFF for an empty handle or a model that is
    // not registered.
    unsigned get_ID() const;
    // The evolution function that scales everything the model adds; an index past
    // the context's functions stands for the constant 1.
    void set_evolution_func_ID(unsigned func);
};

} // namespace kelt::fem
