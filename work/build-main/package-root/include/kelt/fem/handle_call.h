// How the handles of this folder run code on their core objects: a reference held
// for the call, an empty handle refused, and no exception let through.
#pragma once

#include <new>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"

namespace kelt::fem::detail {

template <class Core, class H>
Ptr<Core> held(const H& h) noexcept
{
    return Ptr<Core>(static_cast<Core*>(core_of(h)));
}

// f(core) for an attached handle; `invalid_data_error` for an empty one.
template <class Core, class H, class F>
error_type call(const H& h, F&& f) noexcept
{
    try {
        Ptr<Core> c = held<Core>(h);
        if (!c) return invalid_data_error;
        return f(*c);
    } catch (const std::bad_alloc&) {
        return memory_error;
    } catch (...) {
        return internal_error;
    }
}

// The same for operations that report nothing: a failure leaves things as they are.
template <class Core, class H, class F>
void run(const H& h, F&& f) noexcept
{
    try {
        if (Ptr<Core> c = held<Core>(h)) f(*c);
    } catch (...) {
    }
}

} // namespace kelt::fem::detail
