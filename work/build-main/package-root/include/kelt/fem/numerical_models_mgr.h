// Public handle on the context's registry of numerical models.
#pragma once

#include <utility>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/fem/numerical_model_base.h"

namespace kelt::fem {

class context;

// Models are numbered from 0; their elements are numbered globally, model after
// model. The registry keeps its models alive, and they keep their context: clear()
// ends both.
class numerical_models_mgr : public base_class {
public:
    // Identifiers handed out so far, freed ones included.
    unsigned nbr_models() const;
    void clear();

    // The identifier kept in the model; 0xFFFFFFFF for an empty handle.
    unsigned get_ID(const numerical_model_base& m) const;
    // Attaches the model of `ID` to `m`, or nothing. `element_type_error` when
    // the slot is empty or unknown.
    [[nodiscard]] error_type get_NM(unsigned ID, numerical_model_base& m) const;
    // Global number of the first element of a model; 0xFFFFFFFF for an unknown one.
    unsigned global_FE_ID(unsigned ID) const;
    // First global number of a model and the first beyond it.
    std::pair<unsigned, unsigned> global_FE_ID_range(unsigned ID) const;
    // Model and local index of a global element number; 0xFFFFFFFF twice past the end.
    std::pair<unsigned, unsigned> local_FE_ID(unsigned global) const;

protected:
    numerical_models_mgr() = default;
    friend class context;
};

} // namespace kelt::fem
