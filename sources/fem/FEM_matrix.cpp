#include "kelt/fem/FEM_matrix.h"

#include "kelt/core/FEM_matrix.h"
#include "kelt/fem/handle_call.h"

namespace kelt::fem {

namespace {

using real = core::FEM_real;
using cplx = core::FEM_complex;
using detail::call;
using detail::held;
using detail::run;

// The core object of the matrices of scalar T.
template <class T>
struct core_of_scalar;
template <>
struct core_of_scalar<double> {
    using type = real;
};
template <>
struct core_of_scalar<std::complex<double>> {
    using type = cplx;
};
template <class T>
using core_type = typename core_of_scalar<T>::type;

// A new core object in the handle; on memory failure the handle stays empty.
template <class Core, class H, class... Args>
void make(H& h, const Args&... args) noexcept
{
    try {
        attach(h, new Core(args...));
    } catch (...) {
    }
}

// The source matrix of a two-matrix operation, or an empty one.
template <class Core, class H>
Ptr<Core> source(const H& h)
{
    Ptr<Core> c = held<Core>(h);
    return c ? c : Ptr<Core>(new Core);
}

// y += a x, for the core types Y of y and X of x.
template <class Y, class X, class HY, class HX, class S>
error_type axpy_into(HY& y, const S& a, const HX& x) noexcept
{
    Ptr<X> xc = held<X>(x);
    if (!xc) return invalid_data_error;
    return call<Y>(y, [&](Y& m) { return m.axpy(a, *xc); });
}

} // namespace

template <class T>
basic_FEM_matrix<T>::basic_FEM_matrix()
{
    make<core_type<T>>(*this);
}

template <class T>
basic_FEM_matrix<T>::basic_FEM_matrix(const dense1D<unsigned, 8>& IDs, unsigned cols)
{
    make<core_type<T>>(*this, IDs, cols);
}

template <class T>
basic_FEM_matrix<T>::basic_FEM_matrix(const basic_FEM_matrix& src, unsigned first, unsigned n)
{
    try {
        make<core_type<T>>(*this, *source<core_type<T>>(src), first, n);
    } catch (...) {
    }
}

template <class T>
basic_FEM_matrix<T>::basic_FEM_matrix(const basic_FEM_matrix& src, const dense2D<T>& coefficients)
{
    try {
        make<core_type<T>>(*this, *source<core_type<T>>(src), coefficients);
    } catch (...) {
    }
}

template <class T>
unsigned basic_FEM_matrix<T>::rows() const
{
    const auto* c = this->template core<core_type<T>>();
    return c ? c->rows() : 0;
}

template <class T>
unsigned basic_FEM_matrix<T>::cols() const
{
    const auto* c = this->template core<core_type<T>>();
    return c ? c->cols() : 0;
}

template <class T>
void basic_FEM_matrix<T>::clear()
{
    run<core_type<T>>(*this, [](core_type<T>& m) { m.clear(); });
}

template <class T>
void basic_FEM_matrix<T>::copy(const basic_FEM_matrix& src)
{
    using Core = core_type<T>;
    if (core_of(*this) == core_of(src)) return;
    Ptr<Core> from = held<Core>(src);
    run<Core>(*this, [&](Core& m) {
        if (from)
            (void)m.copy(*from);
        else
            m.clear();
    });
}

template <class T>
dense1D<unsigned, 8> basic_FEM_matrix<T>::get_IDs() const
{
    Ptr<core_type<T>> c = held<core_type<T>>(*this);
    return c ? c->get_IDs() : dense1D<unsigned, 8>();
}

template <class T>
unsigned basic_FEM_matrix<T>::row_pos(unsigned ID) const
{
    const auto* c = this->template core<core_type<T>>();
    return c ? c->row_pos(ID) : 0xFFFFFFFFu;
}

template <class T>
error_type basic_FEM_matrix<T>::get_val(unsigned row, unsigned col, T& value) const
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.get_val(row, col, value); });
}

template <class T>
error_type basic_FEM_matrix<T>::set_val(unsigned row, unsigned col, T value)
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.set_val(row, col, value); });
}

template <class T>
error_type basic_FEM_matrix<T>::getID_val(unsigned ID, unsigned col, T& value) const
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.getID_val(ID, col, value); });
}

template <class T>
error_type basic_FEM_matrix<T>::setID_val(unsigned ID, unsigned col, T value)
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.setID_val(ID, col, value); });
}

template <class T>
dense1D<T, 8> basic_FEM_matrix<T>::col(unsigned j) const
{
    Ptr<core_type<T>> c = held<core_type<T>>(*this);
    return c ? c->col(j) : dense1D<T, 8>();
}

template <class T>
error_type basic_FEM_matrix<T>::get_col(unsigned j, dense1D<T, 8>& out) const
{
    out.clear();
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.get_col(j, out); });
}

template <class T>
error_type basic_FEM_matrix<T>::set_col(unsigned j, const dense1D<T, 8>& values)
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.set_col(j, values); });
}

template <class T>
error_type basic_FEM_matrix<T>::get_row(unsigned row, dense1D<T, 8>& out, unsigned step) const
{
    out.clear();
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.get_row(row, out, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::get_row(unsigned row, dense1D<T, 8>& out, unsigned first, unsigned n,
                                        unsigned step) const
{
    out.clear();
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.get_row(row, out, first, n, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::getID_row(unsigned ID, dense1D<T, 8>& out, unsigned step) const
{
    out.clear();
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.getID_row(ID, out, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::getID_row(unsigned ID, dense1D<T, 8>& out, unsigned first, unsigned n,
                                          unsigned step) const
{
    out.clear();
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.getID_row(ID, out, first, n, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::set_row(unsigned row, const dense1D<T, 8>& values, unsigned step)
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.set_row(row, values, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::setID_row(unsigned ID, const dense1D<T, 8>& values, unsigned step)
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.setID_row(ID, values, step); });
}

template <class T>
error_type basic_FEM_matrix<T>::get_vectors(unsigned first_node, field_tag f, unsigned col, dense2D<T>& out) const
{
    return call<core_type<T>>(*this, [&](core_type<T>& m) { return m.get_vectors(first_node, f, col, out); });
}

template class basic_FEM_matrix<double>;
template class basic_FEM_matrix<std::complex<double>>;

// ---- FEM_matrix -----------------------------------------------------------

error_type FEM_matrix::get_vector(unsigned node, field_tag f, unsigned col, vector_fixed<double, 3>& v) const
{
    v = vector_fixed<double, 3>();
    return call<real>(*this, [&](real& m) { return m.get_vector(node, f, col, v.v); });
}
error_type FEM_matrix::set_vector(unsigned node, field_tag f, unsigned col, const vector_fixed<double, 3>& v)
{
    return call<real>(*this, [&](real& m) { return m.set_vector(node, f, col, v.data(), 3); });
}

error_type FEM_matrix::axpy(double a, const FEM_matrix& x) { return axpy_into<real, real>(*this, a, x); }

error_type FEM_matrix::add_displacements(dense2D<double>& pos, unsigned col, double factor) const
{
    return call<real>(*this, [&](real& m) { return m.add_displacements(pos, col, factor); });
}

// ---- FEM_Zmatrix ----------------------------------------------------------

error_type FEM_Zmatrix::get_vector(unsigned node, field_tag f, unsigned col, dense1D<complex, 8>& v) const
{
    return call<cplx>(*this, [&](cplx& m) {
        complex values[3];
        const error_type e = m.get_vector(node, f, col, values);
        dense1D<complex, 8> fresh; // a buffer of its own: `v` may be a view on other data
        if (!fresh.resize(3)) return memory_error;
        for (unsigned k = 0; k < 3; ++k) fresh[k] = values[k];
        v = fresh;
        return e;
    });
}
error_type FEM_Zmatrix::set_vector(unsigned node, field_tag f, unsigned col, const dense1D<complex, 8>& v)
{
    return call<cplx>(*this, [&](cplx& m) { return m.set_vector(node, f, col, v.data(), v.size()); });
}

error_type FEM_Zmatrix::axpy(double a, const FEM_matrix& x) { return axpy_into<cplx, real>(*this, a, x); }
error_type FEM_Zmatrix::axpy(complex a, const FEM_matrix& x) { return axpy_into<cplx, real>(*this, a, x); }
error_type FEM_Zmatrix::axpy(double a, const FEM_Zmatrix& x) { return axpy_into<cplx, cplx>(*this, a, x); }
error_type FEM_Zmatrix::axpy(complex a, const FEM_Zmatrix& x) { return axpy_into<cplx, cplx>(*this, a, x); }

} // namespace kelt::fem
