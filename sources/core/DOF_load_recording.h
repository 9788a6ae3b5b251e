// The recording of values on DOF identifiers, written once for the load case and
// its public handle: each form comes down to one of two operations of Self, on the
// list of forces or on the list of prescribed values.
#pragma once

#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

enum class load_list { forces, prescribed };

// Self provides record_value(list, ID, value, func) and record_values(list, IDs,
// values, funcs or null, func). No identifier or function index is checked; a
// batch whose sizes differ is refused whole with `invalid_data_error`.
template <class Self>
class DOF_load_recording {
public:
    [[nodiscard]] error_type record_DOF_load(unsigned ID, double value, unsigned func)
    {
        return self().record_value(load_list::forces, ID, value, func);
    }
    [[nodiscard]] error_type record_DOF_loads(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                                              const dense1D<unsigned, 8>& funcs)
    {
        return self().record_values(load_list::forces, IDs, values, &funcs, 0);
    }
    [[nodiscard]] error_type record_DOF_loads(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& values,
                                              unsigned func)
    {
        return self().record_values(load_list::forces, IDs, values, nullptr, func);
    }
    [[nodiscard]] error_type record_DOF_prescribed_value(unsigned ID, double value, unsigned func)
    {
        return self().record_value(load_list::prescribed, ID, value, func);
    }
    [[nodiscard]] error_type record_DOF_prescribed_values(const dense1D<unsigned, 8>& IDs,
                                                          const dense1D<double, 8>& values,
                                                          const dense1D<unsigned, 8>& funcs)
    {
        return self().record_values(load_list::prescribed, IDs, values, &funcs, 0);
    }
    [[nodiscard]] error_type record_DOF_prescribed_values(const dense1D<unsigned, 8>& IDs,
                                                          const dense1D<double, 8>& values, unsigned func)
    {
        return self().record_values(load_list::prescribed, IDs, values, nullptr, func);
    }

private:
    Self& self() noexcept { return static_cast<Self&>(*this); }
};

} // namespace kelt::core
