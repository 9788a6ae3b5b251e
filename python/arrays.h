// The module's conversions between NumPy arrays and the library's containers.
// Inputs are copied once into the container the library keeps (any order, any
// integer or float dtype); results come back as arrays on the library's own
// counted buffers, whose capsule holds a reference so the array may outlive
// every handle.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>

#include "kelt/fem.h"

namespace kelt::py {

namespace pyb = pybind11;

// The exception a failed call raises as kelt.Error(code, title, detail).
struct error {
    error_type code;
    std::string title, detail;
};

[[noreturn]] inline void raise(error_type code, std::string title, std::string detail = {})
{
    throw error{code, std::move(title), std::move(detail)};
}

// A 1D or 2D array on the buffer of `keep`, which the array's base holds.
template <class T, class Keep>
pyb::array view_on(const Keep& keep, const T* p, std::vector<pyb::ssize_t> shape, std::vector<pyb::ssize_t> strides)
{
    auto* held = new Keep(keep);
    pyb::capsule base(held, [](void* q) { delete static_cast<Keep*>(q); });
    return pyb::array(pyb::dtype::of<T>(), std::move(shape), std::move(strides), p, base);
}

template <class T>
pyb::array view(const dense1D<T, 8>& v)
{
    return view_on<T>(v, v.data(), {pyb::ssize_t(v.size())}, {pyb::ssize_t(sizeof(T))});
}

template <class T>
pyb::array view(const dense2D<T>& m)
{
    return view_on<T>(m, m.data(), {pyb::ssize_t(m.rows()), pyb::ssize_t(m.cols())},
                      {pyb::ssize_t(sizeof(T)), pyb::ssize_t(sizeof(T)) * m.leading_dim()});
}

// Rows x columns of a matrix of DOF values: its columns are windows of one
// buffer at a constant distance.
template <class T>
pyb::array view(const fem::basic_FEM_matrix<T>& M)
{
    const unsigned rows = M.rows(), cols = M.cols();
    if (rows == 0 || cols == 0) return pyb::array(pyb::dtype::of<T>(), {pyb::ssize_t(rows), pyb::ssize_t(cols)});
    const dense1D<T, 8> first = M.col(0);
    const pyb::ssize_t ld = cols > 1 ? M.col(1).data() - first.data() : rows;
    return view_on<T>(first, first.data(), {rows, cols}, {pyb::ssize_t(sizeof(T)), pyb::ssize_t(sizeof(T)) * ld});
}

// Reads element k of a strided array of any integer or float dtype as Dst;
// integers that Dst cannot hold are refused.
template <class Dst>
struct element_reader {
    const char* base;
    char kind;
    unsigned itemsize;

    bool operator()(std::ptrdiff_t byte_offset, Dst& out) const
    {
        const char* p = base + byte_offset;
        if (kind == 'f') {
            double v = itemsize == 4 ? double(*reinterpret_cast<const float*>(p)) : *reinterpret_cast<const double*>(p);
            if constexpr (std::is_integral_v<Dst>) {
                if (!(v >= 0.0 && v <= 4294967295.0) || v != double(std::uint64_t(v))) return false;
            }
            out = Dst(v);
            return true;
        }
        long double v = 0;
        if (kind == 'i') {
            switch (itemsize) {
            case 1: v = *reinterpret_cast<const std::int8_t*>(p); break;
            case 2: v = *reinterpret_cast<const std::int16_t*>(p); break;
            case 4: v = *reinterpret_cast<const std::int32_t*>(p); break;
            default: v = *reinterpret_cast<const std::int64_t*>(p); break;
            }
        } else {
            switch (itemsize) {
            case 1: v = *reinterpret_cast<const std::uint8_t*>(p); break;
            case 2: v = *reinterpret_cast<const std::uint16_t*>(p); break;
            case 4: v = *reinterpret_cast<const std::uint32_t*>(p); break;
            default: v = *reinterpret_cast<const std::uint64_t*>(p); break;
            }
        }
        if constexpr (std::is_integral_v<Dst>) {
            if (v < 0 || v > 4294967295.0L) return false;
        }
        out = Dst(v);
        return true;
    }
};

// The array behind `src` when it is numeric (a list becomes one), else none.
inline pyb::array numeric_array(pyb::handle src)
{
    pyb::array a = pyb::array::ensure(src);
    if (!a) {
        PyErr_Clear();
        return {};
    }
    const char k = a.dtype().kind();
    if (k != 'f' && k != 'i' && k != 'u' && k != 'b') return {};
    return a;
}

template <class T>
element_reader<T> reader_of(const pyb::array& a)
{
    const char k = a.dtype().kind();
    return {static_cast<const char*>(a.data()), k == 'b' ? 'u' : k, unsigned(a.itemsize())};
}

} // namespace kelt::py

namespace pybind11::detail {

template <class T>
struct type_caster<kelt::dense1D<T, 8>> {
    using held_type = kelt::dense1D<T, 8>;
    PYBIND11_TYPE_CASTER(held_type, const_name("numpy.ndarray"));

    bool load(handle src, bool)
    {
        array a = kelt::py::numeric_array(src);
        if (!a || a.ndim() > 1) return false;
        const unsigned n = a.ndim() == 0 ? 1u : unsigned(a.shape(0));
        const std::ptrdiff_t stride = a.ndim() == 0 ? 0 : a.strides(0);
        value = kelt::dense1D<T, 8>();
        if (!value.resize(n)) throw std::bad_alloc();
        const auto read = kelt::py::reader_of<T>(a);
        for (unsigned i = 0; i < n; ++i)
            if (!read(i * stride, value[i]))
                kelt::py::raise(kelt::invalid_data_error, "DATA ERROR", "a value does not fit a 32-bit index");
        return true;
    }
    static handle cast(const kelt::dense1D<T, 8>& v, return_value_policy, handle)
    {
        return kelt::py::view(v).release();
    }
};

template <class T>
struct type_caster<kelt::dense2D<T>> {
    using held_type = kelt::dense2D<T>;
    PYBIND11_TYPE_CASTER(held_type, const_name("numpy.ndarray"));

    bool load(handle src, bool)
    {
        array a = kelt::py::numeric_array(src);
        if (!a || a.ndim() != 2) return false;
        const unsigned rows = unsigned(a.shape(0)), cols = unsigned(a.shape(1));
        value = kelt::dense2D<T>();
        if (!value.resize(rows, cols)) throw std::bad_alloc();
        const auto read = kelt::py::reader_of<T>(a);
        for (unsigned j = 0; j < cols; ++j)
            for (unsigned i = 0; i < rows; ++i)
                if (!read(i * a.strides(0) + j * a.strides(1), value(i, j)))
                    kelt::py::raise(kelt::invalid_data_error, "DATA ERROR", "a value does not fit a 32-bit index");
        return true;
    }
    static handle cast(const kelt::dense2D<T>& m, return_value_policy, handle) { return kelt::py::view(m).release(); }
};

// Small fixed values travel by copy.
template <class T, unsigned N>
struct type_caster<kelt::vector_fixed<T, N>> {
    using held_type = kelt::vector_fixed<T, N>;
    PYBIND11_TYPE_CASTER(held_type, const_name("numpy.ndarray"));

    bool load(handle src, bool)
    {
        array a = kelt::py::numeric_array(src);
        if (!a || a.ndim() != 1 || a.shape(0) != N) return false;
        const auto read = kelt::py::reader_of<T>(a);
        for (unsigned i = 0; i < N; ++i)
            if (!read(i * a.strides(0), value[i])) return false;
        return true;
    }
    static handle cast(const kelt::vector_fixed<T, N>& v, return_value_policy, handle)
    {
        return array_t<T>(N, v.data()).release();
    }
};

template <class T, unsigned R, unsigned C>
struct type_caster<kelt::matrix_fixed<T, R, C>> {
    using held_type = kelt::matrix_fixed<T, R, C>;
    PYBIND11_TYPE_CASTER(held_type, const_name("numpy.ndarray"));

    bool load(handle src, bool)
    {
        array a = kelt::py::numeric_array(src);
        if (!a || a.ndim() != 2 || a.shape(0) != R || a.shape(1) != C) return false;
        const auto read = kelt::py::reader_of<T>(a);
        for (unsigned j = 0; j < C; ++j)
            for (unsigned i = 0; i < R; ++i)
                if (!read(i * a.strides(0) + j * a.strides(1), value(i, j))) return false;
        return true;
    }
    static handle cast(const kelt::matrix_fixed<T, R, C>& m, return_value_policy, handle)
    {
        array_t<T> out({pybind11::ssize_t(R), pybind11::ssize_t(C)});
        auto w = out.template mutable_unchecked<2>();
        for (unsigned i = 0; i < R; ++i)
            for (unsigned j = 0; j < C; ++j) w(i, j) = m(i, j);
        return out.release();
    }
};

// A symmetric tensor comes out as the full N x N array.
template <class T, unsigned N>
struct type_caster<kelt::symmetric_fixed<T, N>> {
    using held_type = kelt::symmetric_fixed<T, N>;
    PYBIND11_TYPE_CASTER(held_type, const_name("numpy.ndarray"));

    bool load(handle src, bool)
    {
        array a = kelt::py::numeric_array(src);
        if (!a || a.ndim() != 2 || a.shape(0) != N || a.shape(1) != N) return false;
        const auto read = kelt::py::reader_of<T>(a);
        for (unsigned j = 0; j < N; ++j)
            for (unsigned i = 0; i <= j; ++i)
                if (!read(i * a.strides(0) + j * a.strides(1), value(i, j))) return false;
        return true;
    }
    static handle cast(const kelt::symmetric_fixed<T, N>& s, return_value_policy, handle)
    {
        array_t<T> out({pybind11::ssize_t(N), pybind11::ssize_t(N)});
        auto w = out.template mutable_unchecked<2>();
        for (unsigned i = 0; i < N; ++i)
            for (unsigned j = 0; j < N; ++j) w(i, j) = s(i, j);
        return out.release();
    }
};

} // namespace pybind11::detail
