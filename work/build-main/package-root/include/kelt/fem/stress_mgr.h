// Public handle on the thermal loads of one load case: per numerical model a
// uniform value, values per element and values per node, of 1 to 3 components
// (a temperature, or a temperature with its gradient terms), each scaled in time
// by an evolution function.
#pragma once

#include "kelt/core/types.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

class context;

// Setters refuse an identifier that names no model of the context with
// `invalid_data_error`. An evolution index 0xFFFFFFFF (or any index past the
// context's functions) stands for the constant 1.
class stress_mgr : public base_class {
public:
    // An empty handle.
    stress_mgr() = default;
    explicit stress_mgr(context& ctx);

    // A new manager on the context; the old one is released.
    void create(context& ctx);
    // Forgets every thermal load.
    void clear();

    // The value of the whole model; replaces the previous one.
    [[nodiscard]] error_type set_thermal_load(unsigned model, double value, unsigned evol);
    [[nodiscard]] error_type set_thermal_load(unsigned model, const vector_fixed<double, 2>& value, unsigned evol);
    [[nodiscard]] error_type set_thermal_load(unsigned model, const vector_fixed<double, 3>& value, unsigned evol);
    // The value of one element; setting it again replaces value and evolution.
    [[nodiscard]] error_type set_thermal_load_element(unsigned model, unsigned element, double value, unsigned evol);
    [[nodiscard]] error_type set_thermal_load_element(unsigned model, unsigned element,
                                                      const vector_fixed<double, 2>& value, unsigned evol);
    [[nodiscard]] error_type set_thermal_load_element(unsigned model, unsigned element,
                                                      const vector_fixed<double, 3>& value, unsigned evol);
    // Column j of `values` is the value of element j, one row per component.
    // `evols` is empty (no function) or has one entry per column.
    [[nodiscard]] error_type set_thermal_load_elements(unsigned model, const FEM_matrix& values, unsigned evol);
    [[nodiscard]] error_type set_thermal_load_elements(unsigned model, const FEM_matrix& values,
                                                       const dense1D<unsigned, 8>& evols);
    // The same by node: column j is the value of node j.
    [[nodiscard]] error_type set_thermal_load_nodal(unsigned model, const FEM_matrix& values, unsigned evol);
    [[nodiscard]] error_type set_thermal_load_nodal(unsigned model, const FEM_matrix& values,
                                                    const dense1D<unsigned, 8>& evols);
};

} // namespace kelt::fem
