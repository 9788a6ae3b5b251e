// Small fixed-size values with no indirection, zero when default-constructed.
#pragma once

#include <cstddef>

namespace kelt {

template <class T, unsigned N>
struct vector_fixed {
    T v[N] = {};
    static constexpr unsigned size() noexcept { return N; }
    T& operator[](unsigned i) noexcept { return v[i]; }
    const T& operator[](unsigned i) const noexcept { return v[i]; }
    T* data() noexcept { return v; }
    const T* data() const noexcept { return v; }
};

template <class T, unsigned R, unsigned C>
struct matrix_fixed {
    T v[R * C] = {}; // column-major, like dense2D
    static constexpr unsigned rows() noexcept { return R; }
    static constexpr unsigned cols() noexcept { return C; }
    T& operator()(unsigned i, unsigned j) noexcept { return v[j * R + i]; }
    const T& operator()(unsigned i, unsigned j) const noexcept { return v[j * R + i]; }
    T* data() noexcept { return v; }
    const T* data() const noexcept { return v; }
};

// Packed order s00, s01, s11, s02, s12, s22: column j of the upper triangle
// starts at j (j + 1) / 2.
template <class T, unsigned N>
struct symmetric_fixed {
    static constexpr unsigned packed_size = N * (N + 1) / 2;
    T v[packed_size] = {};
    static constexpr unsigned order() noexcept { return N; }
    static constexpr unsigned index(unsigned i, unsigned j) noexcept
    {
        return i <= j ? j * (j + 1) / 2 + i : i * (i + 1) / 2 + j;
    }
    T& operator()(unsigned i, unsigned j) noexcept { return v[index(i, j)]; }
    const T& operator()(unsigned i, unsigned j) const noexcept { return v[index(i, j)]; }
    T& operator[](unsigned k) noexcept { return v[k]; }
    const T& operator[](unsigned k) const noexcept { return v[k]; }
};

} // namespace kelt
