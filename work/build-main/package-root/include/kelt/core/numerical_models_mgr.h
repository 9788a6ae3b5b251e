// The context's registry of numerical models: identifiers, and one global number
// for every finite element of all models together.
//
// The registry holds its models; a model reaches its context through a plain link
// that the registry clears when it lets the model go.
#pragma once

#include <utility>
#include <vector>

#include "kelt/core/numerical_model_base.h"
#include "kelt/core/omp_lock.h"
#include "kelt/core/ref_counted.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

class numerical_models_mgr : public ref_counted {
public:
    static constexpr unsigned none = 0xFFFFFFFFu;

    numerical_models_mgr() = default;
    ~numerical_models_mgr() override;

    // Identifiers ever handed out and not reused, freed slots included.
    unsigned nbr_models() const noexcept { return next_ID; }
    bool exists(unsigned ID) const noexcept { return ID < models.size() && models[ID]; }
    // The model of an identifier, null for an empty or unknown slot.
    numerical_model_base* get_NM(unsigned ID) const noexcept { return exists(ID) ? models[ID].get() : nullptr; }
    void clear();

    // Puts `model` in slot `ID` with `nbr_elements` elements; a model with no
    // identifier (none) gets one, reused from the freed ones first, written back to
    // `ID`. `memory_error`, with the registry unchanged, when it cannot grow.
    [[nodiscard]] error_type record(numerical_model_base* model, unsigned& ID, unsigned nbr_elements);
    // Empties a slot and gives its identifier back for reuse. The model, if any,
    // loses its identifier.
    void free_ID(unsigned ID);

    // Global number of the first element of a model, none when it has no range.
    unsigned global_FE_ID(unsigned ID) const noexcept;
    // First global number of a model and the first beyond it; both none when
    // the model has no range.
    std::pair<unsigned, unsigned> global_FE_ID_range(unsigned ID) const noexcept;
    // Model and local index of a global element number; both none past the total.
    std::pair<unsigned, unsigned> local_FE_ID(unsigned global) const noexcept;

    unsigned next_ID = 0;
    dense1D<unsigned, 8> free_IDs; // identifiers given back, used as a stack
    std::vector<Ptr<numerical_model_base>> models; // indexed by identifier; a slot may be null
    // First global element number of each model, then the total.
    dense1D<unsigned, 8> FE_offsets;
    omp_mutex lock;

private:
    // Makes the range of `model` hold n elements, moving every later range.
    [[nodiscard]] bool set_nbr_elements(unsigned model, unsigned n);
};

} // namespace kelt::core
