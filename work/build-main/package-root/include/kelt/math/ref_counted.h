// Intrusive reference counting shared by the three families of counted objects
// (math buffers, core objects, public handles). Counts are atomic and start at 0:
// the first holder acquires.
#pragma once

#include <atomic>
#include <cstdint>

namespace kelt {

template <class Family>
class basic_ref_counted {
public:
    basic_ref_counted() noexcept : count_(0) {}
    // A copy is a new object: it starts unheld.
    basic_ref_counted(const basic_ref_counted&) noexcept : count_(0) {}
    // Assignment copies no count: the holders of each side stay its own.
    basic_ref_counted& operator=(const basic_ref_counted&) noexcept { return *this; }
    virtual ~basic_ref_counted() = default;

    void acquire() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    void release() const noexcept
    {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            __destroy();
    }
    std::uint32_t use_count() const noexcept { return count_.load(std::memory_order_acquire); }

private:
    void __destroy() const noexcept { delete this; }
    mutable std::atomic<std::uint32_t> count_;
};

namespace math1 {
struct family_tag;
using ref_counted = basic_ref_counted<family_tag>;
} // namespace math1

} // namespace kelt
