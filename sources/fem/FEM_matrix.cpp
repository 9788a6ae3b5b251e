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

// A new core object in the handle; on memory failure the handle stays empty.
template <class Core, class H, class... Args>
void make(H& h, const Args&... args) noexcept
{
    try {
        attach(h, new Core(args...));
    } catch (...) {
    }
}

template <class Core, class H>
unsigned rows_of(const H& h) noexcept
{
    const Core* c = static_cast<const Core*>(core_of(h));
    return c ? c->rows() : 0;
}

template <class Core, class H>
unsigned cols_of(const H& h) noexcept
{
    const Core* c = static_cast<const Core*>(core_of(h));
    return c ? c->cols() : 0;
}

template <class Core, class H>
unsigned row_pos_of(const H& h, unsigned ID) noexcept
{
    const Core* c = static_cast<const Core*>(core_of(h));
    return c ? c->row_pos(ID) : 0xFFFFFFFFu;
}

template <class Core, class H>
dense1D<unsigned, 8> IDs_of(const H& h)
{
    Ptr<Core> c = held<Core>(h);
    return c ? c->get_IDs() : dense1D<unsigned, 8>();
}

template <class Core, class H, class T>
dense1D<T, 8> col_of(const H& h, unsigned j)
{
    Ptr<Core> c = held<Core>(h);
    return c ? c->col(j) : dense1D<T, 8>();
}

template <class Core, class H>
void copy_into(H& to, const H& from) noexcept
{
    if (core_of(to) == core_of(from)) return;
    Ptr<Core> src = held<Core>(from);
    run<Core>(to, [&](Core& m) {
        if (src)
            (void)m.copy(*src);
        else
            m.clear();
    });
}

// The source matrix of a two-matrix operation, or an empty one.
template <class Core, class H>
Ptr<Core> source(const H& h)
{
    Ptr<Core> c = held<Core>(h);
    return c ? c : Ptr<Core>(new Core);
}

} // namespace

// ---- FEM_matrix -----------------------------------------------------------

FEM_matrix::FEM_matrix() { make<real>(*this); }

FEM_matrix::FEM_matrix(const dense1D<unsigned, 8>& IDs, unsigned cols) { make<real>(*this, IDs, cols); }

FEM_matrix::FEM_matrix(const FEM_matrix& src, unsigned first, unsigned n)
{
    try {
        make<real>(*this, *source<real>(src), first, n);
    } catch (...) {
    }
}

FEM_matrix::FEM_matrix(const FEM_matrix& src, const dense2D<double>& coefficients)
{
    try {
        make<real>(*this, *source<real>(src), coefficients);
    } catch (...) {
    }
}

unsigned FEM_matrix::rows() const { return rows_of<real>(*this); }
unsigned FEM_matrix::cols() const { return cols_of<real>(*this); }
void FEM_matrix::clear() { run<real>(*this, [](real& m) { m.clear(); }); }
void FEM_matrix::copy(const FEM_matrix& src) { copy_into<real>(*this, src); }
dense1D<unsigned, 8> FEM_matrix::get_IDs() const { return IDs_of<real>(*this); }
unsigned FEM_matrix::row_pos(unsigned ID) const { return row_pos_of<real>(*this, ID); }

error_type FEM_matrix::get_val(unsigned row, unsigned col, double& value) const
{
    return call<real>(*this, [&](real& m) { return m.get_val(row, col, value); });
}
error_type FEM_matrix::set_val(unsigned row, unsigned col, double value)
{
    return call<real>(*this, [&](real& m) { return m.set_val(row, col, value); });
}
error_type FEM_matrix::getID_val(unsigned ID, unsigned col, double& value) const
{
    return call<real>(*this, [&](real& m) { return m.getID_val(ID, col, value); });
}
error_type FEM_matrix::setID_val(unsigned ID, unsigned col, double value)
{
    return call<real>(*this, [&](real& m) { return m.setID_val(ID, col, value); });
}

dense1D<double, 8> FEM_matrix::col(unsigned j) const { return col_of<real, FEM_matrix, double>(*this, j); }

error_type FEM_matrix::get_col(unsigned j, dense1D<double, 8>& out) const
{
    out.clear();
    return call<real>(*this, [&](real& m) { return m.get_col(j, out); });
}
error_type FEM_matrix::set_col(unsigned j, const dense1D<double, 8>& values)
{
    return call<real>(*this, [&](real& m) { return m.set_col(j, values); });
}
error_type FEM_matrix::get_row(unsigned row, dense1D<double, 8>& out, unsigned step) const
{
    out.clear();
    return call<real>(*this, [&](real& m) { return m.get_row(row, out, step); });
}
error_type FEM_matrix::get_row(unsigned row, dense1D<double, 8>& out, unsigned first, unsigned n, unsigned step) const
{
    out.clear();
    return call<real>(*this, [&](real& m) { return m.get_row(row, out, first, n, step); });
}
error_type FEM_matrix::getID_row(unsigned ID, dense1D<double, 8>& out, unsigned step) const
{
    out.clear();
    return call<real>(*this, [&](real& m) { return m.getID_row(ID, out, step); });
}
error_type FEM_matrix::getID_row(unsigned ID, dense1D<double, 8>& out, unsigned first, unsigned n,
                                 unsigned step) const
{
    out.clear();
    return call<real>(*this, [&](real& m) { return m.getID_row(ID, out, first, n, step); });
}
error_type FEM_matrix::set_row(unsigned row, const dense1D<double, 8>& values, unsigned step)
{
    return call<real>(*this, [&](real& m) { return m.set_row(row, values, step); });
}
error_type FEM_matrix::setID_row(unsigned ID, const dense1D<double, 8>& values, unsigned step)
{
    return call<real>(*this, [&](real& m) { return m.setID_row(ID, values, step); });
}

error_type FEM_matrix::get_vector(unsigned node, field_tag f, unsigned col, vector_fixed<double, 3>& v) const
{
    v = vector_fixed<double, 3>();
    return call<real>(*this, [&](real& m) { return m.get_vector(node, f, col, v.v); });
}
error_type FEM_matrix::set_vector(unsigned node, field_tag f, unsigned col, const vector_fixed<double, 3>& v)
{
    return call<real>(*this, [&](real& m) { return m.set_vector(node, f, col, v.data(), 3); });
}
error_type FEM_matrix::get_vectors(unsigned first_node, field_tag f, unsigned col, dense2D<double>& out) const
{
    return call<real>(*this, [&](real& m) { return m.get_vectors(first_node, f, col, out); });
}

error_type FEM_matrix::axpy(double a, const FEM_matrix& x)
{
    Ptr<real> xc = held<real>(x);
    if (!xc) return invalid_data_error;
    return call<real>(*this, [&](real& m) { return m.axpy(a, *xc); });
}

error_type FEM_matrix::add_displacements(dense2D<double>& pos, unsigned col, double factor) const
{
    return call<real>(*this, [&](real& m) { return m.add_displacements(pos, col, factor); });
}

// ---- FEM_Zmatrix ----------------------------------------------------------

FEM_Zmatrix::FEM_Zmatrix() { make<cplx>(*this); }

FEM_Zmatrix::FEM_Zmatrix(const dense1D<unsigned, 8>& IDs, unsigned cols) { make<cplx>(*this, IDs, cols); }

FEM_Zmatrix::FEM_Zmatrix(const FEM_Zmatrix& src, unsigned first, unsigned n)
{
    try {
        make<cplx>(*this, *source<cplx>(src), first, n);
    } catch (...) {
    }
}

FEM_Zmatrix::FEM_Zmatrix(const FEM_Zmatrix& src, const dense2D<complex>& coefficients)
{
    try {
        make<cplx>(*this, *source<cplx>(src), coefficients);
    } catch (...) {
    }
}

unsigned FEM_Zmatrix::rows() const { return rows_of<cplx>(*this); }
unsigned FEM_Zmatrix::cols() const { return cols_of<cplx>(*this); }
void FEM_Zmatrix::clear() { run<cplx>(*this, [](cplx& m) { m.clear(); }); }
void FEM_Zmatrix::copy(const FEM_Zmatrix& src) { copy_into<cplx>(*this, src); }
dense1D<unsigned, 8> FEM_Zmatrix::get_IDs() const { return IDs_of<cplx>(*this); }
unsigned FEM_Zmatrix::row_pos(unsigned ID) const { return row_pos_of<cplx>(*this, ID); }

error_type FEM_Zmatrix::get_val(unsigned row, unsigned col, complex& value) const
{
    return call<cplx>(*this, [&](cplx& m) { return m.get_val(row, col, value); });
}
error_type FEM_Zmatrix::set_val(unsigned row, unsigned col, complex value)
{
    return call<cplx>(*this, [&](cplx& m) { return m.set_val(row, col, value); });
}
error_type FEM_Zmatrix::getID_val(unsigned ID, unsigned col, complex& value) const
{
    return call<cplx>(*this, [&](cplx& m) { return m.getID_val(ID, col, value); });
}
error_type FEM_Zmatrix::setID_val(unsigned ID, unsigned col, complex value)
{
    return call<cplx>(*this, [&](cplx& m) { return m.setID_val(ID, col, value); });
}

dense1D<FEM_Zmatrix::complex, 8> FEM_Zmatrix::col(unsigned j) const
{
    return col_of<cplx, FEM_Zmatrix, complex>(*this, j);
}

error_type FEM_Zmatrix::get_col(unsigned j, dense1D<complex, 8>& out) const
{
    out.clear();
    return call<cplx>(*this, [&](cplx& m) { return m.get_col(j, out); });
}
error_type FEM_Zmatrix::set_col(unsigned j, const dense1D<complex, 8>& values)
{
    return call<cplx>(*this, [&](cplx& m) { return m.set_col(j, values); });
}
error_type FEM_Zmatrix::get_row(unsigned row, dense1D<complex, 8>& out, unsigned step) const
{
    out.clear();
    return call<cplx>(*this, [&](cplx& m) { return m.get_row(row, out, step); });
}
error_type FEM_Zmatrix::get_row(unsigned row, dense1D<complex, 8>& out, unsigned first, unsigned n,
                                unsigned step) const
{
    out.clear();
    return call<cplx>(*this, [&](cplx& m) { return m.get_row(row, out, first, n, step); });
}
error_type FEM_Zmatrix::getID_row(unsigned ID, dense1D<complex, 8>& out, unsigned step) const
{
    out.clear();
    return call<cplx>(*this, [&](cplx& m) { return m.getID_row(ID, out, step); });
}
error_type FEM_Zmatrix::getID_row(unsigned ID, dense1D<complex, 8>& out, unsigned first, unsigned n,
                                  unsigned step) const
{
    out.clear();
    return call<cplx>(*this, [&](cplx& m) { return m.getID_row(ID, out, first, n, step); });
}
error_type FEM_Zmatrix::set_row(unsigned row, const dense1D<complex, 8>& values, unsigned step)
{
    return call<cplx>(*this, [&](cplx& m) { return m.set_row(row, values, step); });
}
error_type FEM_Zmatrix::setID_row(unsigned ID, const dense1D<complex, 8>& values, unsigned step)
{
    return call<cplx>(*this, [&](cplx& m) { return m.setID_row(ID, values, step); });
}

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
error_type FEM_Zmatrix::get_vectors(unsigned first_node, field_tag f, unsigned col, dense2D<complex>& out) const
{
    return call<cplx>(*this, [&](cplx& m) { return m.get_vectors(first_node, f, col, out); });
}

namespace {

template <class X, class H, class S>
error_type z_axpy(FEM_Zmatrix& y, const S& a, const H& x) noexcept
{
    Ptr<X> xc = held<X>(x);
    if (!xc) return invalid_data_error;
    return call<cplx>(y, [&](cplx& m) { return m.axpy(a, *xc); });
}

} // namespace

error_type FEM_Zmatrix::axpy(double a, const FEM_matrix& x) { return z_axpy<real>(*this, a, x); }
error_type FEM_Zmatrix::axpy(complex a, const FEM_matrix& x) { return z_axpy<real>(*this, a, x); }
error_type FEM_Zmatrix::axpy(double a, const FEM_Zmatrix& x) { return z_axpy<cplx>(*this, a, x); }
error_type FEM_Zmatrix::axpy(complex a, const FEM_Zmatrix& x) { return z_axpy<cplx>(*this, a, x); }

} // namespace kelt::fem
