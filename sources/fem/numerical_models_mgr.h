// Public handle on the context's registry of numerical models.
#pragma once

#include "kelt/fem/base_class.h"

namespace kelt::fem {

class context;

class numerical_models_mgr : public base_class {
public:
    // Identifiers handed out so far, freed ones included.
    unsigned nbr_models() const;
    void clear();

protected:
    numerical_models_mgr() = default;
    friend class context;
};

} // namespace kelt::fem
