// A load given on the elements of a numerical model: what it is (kind and type,
// whose meaning belongs to the element families), the evolution function that
// scales it and its values. Load cases store each distinct one once.
#pragma once

#include "kelt/math/dense1D.h"

namespace kelt::core {

struct elementary_load {
    unsigned kind = 0; // family of load: the element layer numbers them
    unsigned type = 0; // load-on-element type within the kind
    unsigned func = 0; // evolution function index
    dense1D<double, 8> values;

    // True when every value is exactly 0, or there is none: such a load adds nothing.
    bool is_zero() const noexcept
    {
        for (double v : values)
            if (v != 0.0) return false;
        return true;
    }
    // Same kind, type, function and values: one stored entry can stand for both.
    bool same_as(const elementary_load& o) const noexcept
    {
        if (kind != o.kind || type != o.type || func != o.func || values.size() != o.values.size()) return false;
        for (unsigned i = 0; i < values.size(); ++i)
            if (values[i] != o.values[i]) return false;
        return true;
    }
};

} // namespace kelt::core
