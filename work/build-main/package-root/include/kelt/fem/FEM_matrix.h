// Public matrices of DOF values, real and complex: rows are DOF identifiers,
// columns are load cases, time steps or modes. Copies share; `copy` is deep.
#pragma once

#include <complex>

#include "kelt/core/types.h"
#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"
#include "kelt/math/fixed.h"

namespace kelt::fem {

// `row` is a row position, `col` a column index and `ID` a DOF identifier. A failed
// operation gives its code and leaves the matrix as it was; a getter leaves its
// output cleared. What the real and the complex matrices share, over their scalar T.
template <class T>
class basic_FEM_matrix : public base_class {
public:
    basic_FEM_matrix();
    // One row per identifier, in order (a repeated one keeps its first row), all 0.
    basic_FEM_matrix(const dense1D<unsigned, 8>& IDs, unsigned cols);
    // n columns from `first`, sharing data and rows; empty when out of range.
    basic_FEM_matrix(const basic_FEM_matrix& src, unsigned first, unsigned n);
    // src x coefficients, with the rows of src; empty when the sizes disagree.
    basic_FEM_matrix(const basic_FEM_matrix& src, const dense2D<T>& coefficients);

    unsigned rows() const;
    unsigned cols() const;
    // Empty, with a new empty row list; windows taken before keep the data.
    void clear();
    // Deep copy of values and rows.
    void copy(const basic_FEM_matrix& src);
    dense1D<unsigned, 8> get_IDs() const;
    // 0xFFFFFFFF for an identifier that has no row.
    unsigned row_pos(unsigned ID) const;

    [[nodiscard]] error_type get_val(unsigned row, unsigned col, T& value) const;
    [[nodiscard]] error_type set_val(unsigned row, unsigned col, T value);
    [[nodiscard]] error_type getID_val(unsigned ID, unsigned col, T& value) const;
    [[nodiscard]] error_type setID_val(unsigned ID, unsigned col, T value);

    // The column in place; empty when out of range.
    dense1D<T, 8> col(unsigned col) const;
    [[nodiscard]] error_type get_col(unsigned col, dense1D<T, 8>& out) const;
    [[nodiscard]] error_type set_col(unsigned col, const dense1D<T, 8>& values);
    // Every step-th column, from 0; step must divide the columns.
    [[nodiscard]] error_type get_row(unsigned row, dense1D<T, 8>& out, unsigned step) const;
    // n values from column `first`, at intervals of step.
    [[nodiscard]] error_type get_row(unsigned row, dense1D<T, 8>& out, unsigned first, unsigned n,
                                     unsigned step) const;
    [[nodiscard]] error_type getID_row(unsigned ID, dense1D<T, 8>& out, unsigned step) const;
    [[nodiscard]] error_type getID_row(unsigned ID, dense1D<T, 8>& out, unsigned first, unsigned n,
                                       unsigned step) const;
    [[nodiscard]] error_type set_row(unsigned row, const dense1D<T, 8>& values, unsigned step);
    [[nodiscard]] error_type setID_row(unsigned ID, const dense1D<T, 8>& values, unsigned step);

    // Column k of `out` gets node first_node + k; absent rows read 0.
    [[nodiscard]] error_type get_vectors(unsigned first_node, field_tag f, unsigned col, dense2D<T>& out) const;

protected:
    // For derived handles that attach an object of their own.
    struct no_object {};
    explicit basic_FEM_matrix(no_object) noexcept {}
};

extern template class basic_FEM_matrix<double>;
extern template class basic_FEM_matrix<std::complex<double>>;

class FEM_matrix : public basic_FEM_matrix<double> {
public:
    using basic_FEM_matrix::basic_FEM_matrix;

    // The three components of a nodal field; absent rows read 0.
    [[nodiscard]] error_type get_vector(unsigned node, field_tag f, unsigned col, vector_fixed<double, 3>& v) const;
    [[nodiscard]] error_type set_vector(unsigned node, field_tag f, unsigned col, const vector_fixed<double, 3>& v);

    // this += a x, over all columns; both must have the same rows and columns.
    [[nodiscard]] error_type axpy(double a, const FEM_matrix& x);
    // pos(direction, node) += factor x the translation of a column.
    [[nodiscard]] error_type add_displacements(dense2D<double>& pos, unsigned col, double factor) const;
};

class FEM_Zmatrix : public basic_FEM_matrix<std::complex<double>> {
public:
    using complex = std::complex<double>;
    using basic_FEM_matrix::basic_FEM_matrix;

    // Three values, absent rows 0.
    [[nodiscard]] error_type get_vector(unsigned node, field_tag f, unsigned col, dense1D<complex, 8>& v) const;
    // Up to three values; entries with no row are skipped.
    [[nodiscard]] error_type set_vector(unsigned node, field_tag f, unsigned col, const dense1D<complex, 8>& v);

    [[nodiscard]] error_type axpy(double a, const FEM_matrix& x);
    [[nodiscard]] error_type axpy(complex a, const FEM_matrix& x);
    [[nodiscard]] error_type axpy(double a, const FEM_Zmatrix& x);
    [[nodiscard]] error_type axpy(complex a, const FEM_Zmatrix& x);
};

} // namespace kelt::fem
