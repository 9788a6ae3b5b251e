// The context's registry of numerical models: identifiers, and one global number
// for every finite element of all models together.
#pragma once

#include <vector>

#include "kelt/core/omp_lock.h"
#include "kelt/core/ref_counted.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

class numerical_models_mgr : public ref_counted {
public:
    // Identifiers ever handed out and not reused, freed slots included.
    unsigned nbr_models() const noexcept { return next_ID; }
    bool exists(unsigned ID) const noexcept { return ID < models.size() && models[ID]; }
    void clear();

    unsigned next_ID = 0;
    dense1D<unsigned, 8> free_IDs;   // identifiers given back, used as a stack
    std::vector<Ptr<ref_counted>> models; // indexed by identifier; a slot may be null
    dense1D<unsigned, 8> FE_offsets; // first global element number of each model, then the total
    omp_mutex lock;
};

} // namespace kelt::core
