// The public handle: one pointer to a counted object of the implementation layer.
// Copies share the object; only operations named `copy` are deep. Derived handles
// keep the implicit copy, move and destructor, which come down to the ones here.
#pragma once

#include "kelt/core/ref_counted.h"

namespace kelt::fem {

namespace handle_family {
struct tag;
}
using ref_counted = basic_ref_counted<handle_family::tag>;

class base_class : public ref_counted {
public:
    ~base_class() override { clear_w(); }

    // True when the handle is attached to an object.
    bool attached() const noexcept { return w != nullptr; }

protected:
    base_class() noexcept = default;
    base_class(const base_class& o) noexcept : ref_counted(), w(o.w)
    {
        if (&o != this && w) w->acquire();
    }
    // Moving is copying: the source stays valid.
    base_class(base_class&& o) noexcept : base_class(static_cast<const base_class&>(o)) {}
    base_class& operator=(const base_class& o) noexcept
    {
        set_w(o.w);
        return *this;
    }
    base_class& operator=(base_class&& o) noexcept { return *this = static_cast<const base_class&>(o); }

    // Acquire the new object before releasing the old: setting what is already
    // held must not destroy it.
    void set_w(kelt::ref_counted* p) noexcept
    {
        if (p) p->acquire();
        if (w) w->release();
        w = p;
    }
    void clear_w() noexcept
    {
        if (w) w->release();
        w = nullptr;
    }

    template <class T>
    T* core() const noexcept
    {
        return static_cast<T*>(w);
    }
    // A strong reference held for the time of a call that runs code on the object.
    template <class T>
    Ptr<T> hold() const noexcept
    {
        return Ptr<T>(static_cast<T*>(w));
    }

    kelt::ref_counted* w = nullptr;

    template <class H>
    friend kelt::ref_counted* core_of(const H&) noexcept;
    template <class H>
    friend void attach(H&, kelt::ref_counted*) noexcept;
};

// Access to the core object of any handle, for the library's own layers.
template <class H>
kelt::ref_counted* core_of(const H& h) noexcept
{
    return static_cast<const base_class&>(h).w;
}

// Attaches a handle to an object, for the library's own layers.
template <class H>
void attach(H& h, kelt::ref_counted* p) noexcept
{
    static_cast<base_class&>(h).set_w(p);
}

} // namespace kelt::fem
