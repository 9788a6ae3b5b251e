// Dense symmetric matrix of order n, packed by columns of its upper triangle
// (entry (i, j), i <= j, at j (j + 1) / 2 + i). Copies share; `copy` is deep.
#pragma once

#include <utility>

#include "kelt/math/dense1D.h"

namespace kelt {

template <class T>
class symmetric_full {
public:
    symmetric_full() = default;
    explicit symmetric_full(unsigned n) { (void)resize(n); }
    symmetric_full(unsigned n, const T& v) { (void)resize(n, v); }

    unsigned order() const noexcept { return n_; }
    unsigned size() const noexcept { return n_; }
    T* data() noexcept { return values_.data(); }
    const T* data() const noexcept { return values_.data(); }

    static std::size_t packed_index(unsigned i, unsigned j) noexcept
    {
        if (i > j) std::swap(i, j);
        return std::size_t(j) * (j + 1) / 2 + i;
    }
    T& operator()(unsigned i, unsigned j) noexcept { return values_.data()[packed_index(i, j)]; }
    const T& operator()(unsigned i, unsigned j) const noexcept { return values_.data()[packed_index(i, j)]; }

    symmetric_full& operator=(const T& v)
    {
        values_ = v;
        return *this;
    }

    [[nodiscard]] bool resize(unsigned n) { return resize(n, T()); }
    [[nodiscard]] bool resize(unsigned n, const T& v)
    {
        const std::uint64_t packed = std::uint64_t(n) * (n + 1) / 2;
        if (packed > 0xFFFFFFFFull) return false;
        if (!values_.resize(unsigned(packed), v)) return false;
        n_ = n;
        return true;
    }
    [[nodiscard]] bool copy(const symmetric_full& src)
    {
        if (!values_.copy(src.values_)) return false;
        n_ = src.n_;
        return true;
    }
    void clear() noexcept
    {
        values_.clear();
        n_ = 0;
    }

private:
    dense1D<T, 8> values_;
    unsigned n_ = 0;
};

} // namespace kelt
