// The counted buffer under every container window. Growth is the only path that
// moves data, and windows address it by offset, so growing keeps every window valid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

#include "kelt/math/ptr.h"
#include "kelt/math/ref_counted.h"

namespace kelt {

// Raw memory for container buffers: null on failure, never throws.
void* __vector_num_alloc(unsigned bytes) noexcept;
void __vector_num_free(void* p) noexcept;

// Data are aligned to a cache line whatever the nominal alignment: the kernels
// stream them with full-width vector loads.
inline constexpr std::size_t buffer_alignment = 64;

template <class T, unsigned Align = 8>
class vector_num : public math1::ref_counted {
    static_assert(Align <= buffer_alignment);

public:
    vector_num() noexcept = default;
    // A buffer over memory that the caller keeps: it is never freed here.
    vector_num(T* external, unsigned n) noexcept : data_(external), capacity_(n), owns_(false) {}
    vector_num(const vector_num&) = delete;
    vector_num& operator=(const vector_num&) = delete;
    ~vector_num() override { release_storage(); }

    T* data() noexcept { return data_; }
    const T* data() const noexcept { return data_; }
    unsigned capacity() const noexcept { return capacity_; }
    bool owns_memory() const noexcept { return owns_; }

    // New capacity = max(capacity * factor, 2, needed); keeps the first `used`
    // elements. False, with the buffer unchanged, when memory or 32 bits run out.
    bool __grow(unsigned needed, unsigned used, unsigned factor) noexcept
    {
        const std::uint64_t scaled = std::uint64_t(capacity_) * factor;
        if (scaled > 0xFFFFFFFFull) return false;
        std::uint64_t cap = scaled;
        if (cap < 2) cap = 2;
        if (cap < needed) cap = needed;
        if (cap >= (std::uint64_t(1) << 32) / sizeof(T)) return false;
        const std::uint64_t bytes = cap * sizeof(T) + buffer_alignment - 1;
        if (bytes > 0xFFFFFFFFull) return false;
        void* raw = __vector_num_alloc(unsigned(bytes));
        if (!raw) return false;
        const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(raw);
        const std::uintptr_t aligned = (at + buffer_alignment - 1) & ~std::uintptr_t(buffer_alignment - 1);
        T* fresh = reinterpret_cast<T*>(aligned);
        if (used > capacity_) used = capacity_;
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (used) std::memcpy(static_cast<void*>(fresh), data_, std::size_t(used) * sizeof(T));
            if constexpr (!std::is_trivially_default_constructible_v<T>)
                for (std::uint64_t i = used; i < cap; ++i) new (fresh + i) T();
            else
                std::memset(static_cast<void*>(fresh + used), 0, std::size_t(cap - used) * sizeof(T));
        } else {
            for (unsigned i = 0; i < used; ++i) new (fresh + i) T(std::move(data_[i]));
            for (std::uint64_t i = used; i < cap; ++i) new (fresh + i) T();
        }
        release_storage();
        data_ = fresh;
        capacity_ = unsigned(cap);
        shift_ = unsigned(aligned - at);
        owns_ = true;
        return true;
    }

private:
    void release_storage() noexcept
    {
        if (!owns_ || !data_) return;
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (unsigned i = 0; i < capacity_; ++i) data_[i].~T();
        __vector_num_free(reinterpret_cast<char*>(data_) - shift_);
        data_ = nullptr;
        capacity_ = 0;
    }

    T* data_ = nullptr;
    unsigned capacity_ = 0;
    unsigned shift_ = 0; // bytes between the raw allocation and data_
    bool owns_ = true;
};

} // namespace kelt
