// Small values the tests write inline.
#pragma once

#include <initializer_list>

#include "kelt/math/dense1D.h"

namespace kelt::test {

// A vector of the listed values.
template <class T>
dense1D<T, 8> make(std::initializer_list<T> values)
{
    dense1D<T, 8> out;
    for (T v : values) out.push_back(v);
    return out;
}

} // namespace kelt::test
