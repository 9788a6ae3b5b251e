// A three-field record, as load cases keep a value on a DOF: identifier,
// evolution function index, value.
#pragma once

namespace kelt {

template <class A, class B, class C>
struct triad {
    A first{};
    B second{};
    C third{};
};

} // namespace kelt
