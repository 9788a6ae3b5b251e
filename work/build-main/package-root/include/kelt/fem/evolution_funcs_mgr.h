// Public handle on the context's evolution functions: scalar functions of time,
// referred to by index, that scale loads and prescribed values.
#pragma once

#include <vector>

#include "kelt/core/evolution_funcs_mgr.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

class context;

// Index 0 is the constant 1 and index 1 the time itself; they survive clear().
// The create_ operations are those of the context's manager.
class evolution_funcs_mgr : public base_class, public core::evolution_funcs_creation<evolution_funcs_mgr> {
public:
    unsigned size() const;
    void clear();
    // Value of function `index` at time t; 0.0 for an index out of range.
    double value(unsigned index, double t) const;

protected:
    evolution_funcs_mgr() = default;
    friend class context;

private:
    friend class core::evolution_funcs_creation<evolution_funcs_mgr>;
    unsigned add(core::evolution_func_base* f);
    std::vector<Ptr<core::evolution_func_base>> slots(const dense1D<unsigned, 8>& IDs) const;
};

} // namespace kelt::fem
