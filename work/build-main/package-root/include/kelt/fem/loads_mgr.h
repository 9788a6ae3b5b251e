// Public handle on one load case: forces on DOFs, values imposed on DOFs and loads
// on the elements of numerical models, each scaled in time by an evolution
// function given by index.
#pragma once

#include "kelt/core/DOF_load_recording.h"
#include "kelt/core/elementary_load.h"
#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class context;
class problem_data;

// A load on elements: kind, type, values; its function is given when recorded.
using elementary_load = core::elementary_load;

// Recording checks no DOF identifier and no function index; an index past the
// context's functions stands for the constant 1. A batch whose sizes differ is
// refused whole with `invalid_data_error`.
class loads_mgr : public base_class, public core::DOF_load_recording<loads_mgr> {
public:
    explicit loads_mgr(context& ctx);

    // A new, empty load case on the context; the old one is released.
    void create(context& ctx);

    // A load on element `element` of model `NM_ID`. An all-zero load is not kept;
    // equal loads on consecutive elements share one copy.
    [[nodiscard]] error_type record_NM_load(unsigned NM_ID, unsigned element, const elementary_load& load,
                                            unsigned func);
    void clear();

protected:
    loads_mgr() = default;
    friend class problem_data;

private:
    friend class core::DOF_load_recording<loads_mgr>;
    error_type record_value(core::load_list which, unsigned ID, double value, unsigned func);
    error_type record_values(core::load_list which, const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                             const dense1D<unsigned, 8>* funcs, unsigned func);
};

} // namespace kelt::fem
