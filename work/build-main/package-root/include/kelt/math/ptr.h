// Strong pointer over any intrusively counted object.
#pragma once

#include <utility>

namespace kelt {

template <class T>
class Ptr {
public:
    Ptr() noexcept = default;
    Ptr(T* p) noexcept : p_(p) { if (p_) p_->acquire(); }
    Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
    template <class U>
    Ptr(const Ptr<U>& o) noexcept : Ptr(o.get()) {}
    ~Ptr() { if (p_) p_->release(); }

    // Acquire first, then release: assigning what is already held must not destroy it.
    Ptr& operator=(T* p) noexcept
    {
        if (p) p->acquire();
        if (p_) p_->release();
        p_ = p;
        return *this;
    }
    Ptr& operator=(const Ptr& o) noexcept { return *this = o.p_; }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    operator T*() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

private:
    T* p_ = nullptr;
};

} // namespace kelt
