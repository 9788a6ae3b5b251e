// Matrices of DOF values as solvers return them: one row per DOF identifier, one
// column per load case, time step or mode. The row list is shared by every matrix
// with the same rows and is read-only once built.
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/dense2D_OOC.h"
#include "kelt/core/types.h"
#include "kelt/core/vector_fast.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

template <class ID_list, class Storage>
class indexed2D_row : public Storage {
public:
    using value_type = typename Storage::value_type;
    using T = value_type;
    static constexpr unsigned none = 0xFFFFFFFFu;

    indexed2D_row() : IDs(new ID_list) {}
    // One row per identifier in the given order (a repeat keeps its first row),
    // all values 0. Empty when memory fails.
    indexed2D_row(const dense1D<unsigned, 8>& ids, unsigned cols) : indexed2D_row()
    {
        if (!IDs->assign(ids.data(), ids.size()) || !this->resize(IDs->size(), cols)) {
            clear();
            return;
        }
        this->request_incore();
    }
    // Shares the data and the row list.
    indexed2D_row(const indexed2D_row& o) : Storage(o), IDs(o.IDs) {}
    // A window of n columns from `first`, sharing the data and the row list; empty
    // when the range leaves the source.
    indexed2D_row(const indexed2D_row& src, unsigned first, unsigned n) : indexed2D_row()
    {
        if (std::uint64_t(first) + n > src.cols()) return;
        Storage::operator=(Storage(src, 0, first, src.rows(), n));
        IDs = src.IDs;
        this->request_incore();
    }
    // src x coefficients, with the row list of src; empty when the columns of src
    // are not the rows of the coefficients.
    indexed2D_row(const indexed2D_row& src, const dense2D<T>& coefficients) : indexed2D_row()
    {
        if (src.cols() != coefficients.rows() || !this->resize(src.rows(), coefficients.cols())) return;
        IDs = src.IDs;
        for (unsigned j = 0; j < coefficients.cols(); ++j) {
            dense1D<T, 8> y = this->col(j);
            for (unsigned k = 0; k < src.cols(); ++k) {
                const T c = coefficients(k, j);
                if (c == T()) continue;
                const dense1D<T, 8> x = src.col_read(k);
                if (x.size() != y.size()) {
                    clear();
                    return;
                }
                for (unsigned i = 0; i < y.size(); ++i) y[i] += c * x[i];
            }
        }
        this->request_incore();
    }
    indexed2D_row& operator=(const indexed2D_row& o)
    {
        Storage::operator=(o);
        IDs = o.IDs;
        return *this;
    }

    // Empty, with a new empty row list; views taken before keep the old data.
    void clear()
    {
        Storage::clear();
        IDs = new ID_list;
    }

    // Deep copy of values and row list. False, with this matrix unchanged, when
    // memory fails.
    [[nodiscard]] bool copy(const indexed2D_row& src)
    {
        if (&src == this) return true;
        Ptr<ID_list> ids = new ID_list;
        if (!ids->assign(src.IDs->IDs().data(), src.IDs->size())) return false;
        Storage values;
        if (!values.resize(src.rows(), src.cols())) return false;
        for (unsigned j = 0; j < src.cols(); ++j) {
            const dense1D<T, 8> from = src.col_read(j);
            dense1D<T, 8> to = values.col(j);
            if (from.size() != to.size()) return false;
            std::copy(from.begin(), from.end(), to.begin());
        }
        Storage::operator=(values);
        IDs = ids;
        this->request_incore();
        return true;
    }

    const dense1D<unsigned, 8>& get_IDs() const noexcept { return IDs->IDs(); }

    // Row of an identifier, none when it has none.
    unsigned row_pos(unsigned ID) const noexcept
    {
        const unsigned r = IDs->rank(ID);
        return r < this->rows() ? r : none;
    }

    [[nodiscard]] error_type get_val(unsigned row, unsigned col, T& value) const
    {
        if (row >= this->rows() || col >= this->cols()) return invalid_data_error;
        const dense1D<T, 8> c = this->col_read(col);
        if (c.size() != this->rows()) return internal_error;
        value = c[row];
        return no_error;
    }
    [[nodiscard]] error_type set_val(unsigned row, unsigned col, const T& value)
    {
        if (row >= this->rows() || col >= this->cols()) return invalid_data_error;
        dense1D<T, 8> c = this->col(col);
        if (c.size() != this->rows()) return internal_error;
        c[row] = value;
        return no_error;
    }
    [[nodiscard]] error_type getID_val(unsigned ID, unsigned col, T& value) const
    {
        return get_val(row_pos(ID), col, value);
    }
    [[nodiscard]] error_type setID_val(unsigned ID, unsigned col, const T& value)
    {
        return set_val(row_pos(ID), col, value);
    }

    // A copy of a column; `out` is cleared first and stays so on failure.
    [[nodiscard]] error_type get_col(unsigned col, dense1D<T, 8>& out) const
    {
        out.clear();
        if (col >= this->cols()) return invalid_data_error;
        const dense1D<T, 8> c = this->col_read(col);
        if (c.size() != this->rows()) return internal_error;
        if (!out.copy(c)) {
            out.clear();
            return memory_error;
        }
        return no_error;
    }
    [[nodiscard]] error_type set_col(unsigned col, const dense1D<T, 8>& values)
    {
        if (col >= this->cols() || values.size() != this->rows()) return invalid_data_error;
        dense1D<T, 8> c = this->col(col);
        if (c.size() != this->rows()) return internal_error;
        std::copy(values.begin(), values.end(), c.begin());
        return no_error;
    }

    // Every step-th column of a row, from column 0; every column must be in core.
    [[nodiscard]] error_type get_row(unsigned row, dense1D<T, 8>& out, unsigned step) const
    {
        out.clear();
        if (row >= this->rows() || step == 0 || this->cols() % step || !this->all_in_core())
            return invalid_data_error;
        return gather_row(row, out, 0, this->cols() / step, step);
    }
    // n values of a row from column `first`, at intervals of `step`.
    [[nodiscard]] error_type get_row(unsigned row, dense1D<T, 8>& out, unsigned first, unsigned n,
                                     unsigned step) const
    {
        out.clear();
        if (!row_range_valid(row, first, n, step)) return invalid_data_error;
        return gather_row(row, out, first, n, step);
    }
    [[nodiscard]] error_type getID_row(unsigned ID, dense1D<T, 8>& out, unsigned step) const
    {
        return get_row(row_pos(ID), out, step);
    }
    [[nodiscard]] error_type getID_row(unsigned ID, dense1D<T, 8>& out, unsigned first, unsigned n,
                                       unsigned step) const
    {
        return get_row(row_pos(ID), out, first, n, step);
    }

    // Writes values[k] into column k * step of the row, under the tests of get_row;
    // the values must fill the row exactly.
    [[nodiscard]] error_type set_row(unsigned row, const dense1D<T, 8>& values, unsigned step)
    {
        if (row >= this->rows() || step == 0 || this->cols() % step || !this->all_in_core() ||
            values.size() != this->cols() / step)
            return invalid_data_error;
        for (unsigned k = 0; k < values.size(); ++k) {
            dense1D<T, 8> c = this->col(k * step);
            if (c.size() != this->rows()) return internal_error;
            c[row] = values[k];
        }
        return no_error;
    }
    [[nodiscard]] error_type setID_row(unsigned ID, const dense1D<T, 8>& values, unsigned step)
    {
        return set_row(row_pos(ID), values, step);
    }

    // True when `f` is a field whose identifiers at `node` do not fit in 32 bits:
    // such a node has no rows anywhere, and reading it as an absent one would hide
    // a host's mistake.
    static bool beyond_numbering(unsigned node, field_tag f) noexcept
    {
        return DOFs_mgr::ID(node, f, 2) == DOFs_mgr::no_ID && DOFs_mgr::ID(0, f, 2) != DOFs_mgr::no_ID;
    }

    // The three components of a nodal field in a column; rows that do not exist
    // read as 0. A temperature fills all three with its one value.
    [[nodiscard]] error_type get_vector(unsigned node, field_tag f, unsigned col, T (&out)[3]) const
    {
        out[0] = out[1] = out[2] = T();
        if (col >= this->cols() || beyond_numbering(node, f)) return invalid_data_error;
        const dense1D<T, 8> c = this->col_read(col);
        if (c.size() != this->rows()) return internal_error;
        for (unsigned k = 0; k < 3; ++k)
            if (const unsigned r = row_pos(DOFs_mgr::ID(node, f, k)); r != none) out[k] = c[r];
        return no_error;
    }
    // The mirror image; components with no row are skipped.
    [[nodiscard]] error_type set_vector(unsigned node, field_tag f, unsigned col, const T* in, unsigned n)
    {
        if (col >= this->cols() || beyond_numbering(node, f)) return invalid_data_error;
        dense1D<T, 8> c = this->col(col);
        if (c.size() != this->rows()) return internal_error;
        for (unsigned k = 0; k < 3 && k < n; ++k)
            if (const unsigned r = row_pos(DOFs_mgr::ID(node, f, k)); r != none) c[r] = in[k];
        return no_error;
    }
    // Column k of `out` gets node first_node + k, for as many columns as `out` has
    // (and as nodes can be numbered), and as many components as it has rows, up to 3.
    [[nodiscard]] error_type get_vectors(unsigned first_node, field_tag f, unsigned col, dense2D<T>& out) const
    {
        if (col >= this->cols()) return invalid_data_error;
        const unsigned m = out.rows() < 3 ? out.rows() : 3;
        for (unsigned k = 0;
             k < out.cols() && std::uint64_t(first_node) + k <= 0xFFFFFFFFull && !beyond_numbering(first_node + k, f);
             ++k) {
            T v[3];
            if (auto e = get_vector(first_node + k, f, col, v); e != no_error) return e;
            for (unsigned i = 0; i < m; ++i) out(i, k) = v[i];
        }
        return no_error;
    }

    // this += a x, column by column; rows are matched by position.
    template <class S, class X>
    [[nodiscard]] error_type axpy(const S& a, const X& x)
    {
        if (x.cols() != this->cols() || x.rows() != this->rows()) return invalid_data_error;
        if (!this->all_in_core() || !x.all_in_core()) return invalid_data_error;
        for (unsigned j = 0; j < this->cols(); ++j) {
            const auto xj = x.col_read(j);
            dense1D<T, 8> yj = this->col(j);
            if (xj.size() != this->rows() || yj.size() != this->rows()) return internal_error;
            for (unsigned i = 0; i < yj.size(); ++i) yj[i] += a * xj[i];
        }
        return no_error;
    }

    // Moves node positions by the translations of a column: rotations and
    // temperatures leave them alone, as do nodes beyond the position matrix.
    [[nodiscard]] error_type add_displacements(dense2D<double>& pos, unsigned col, double factor) const
    {
        if constexpr (!std::is_same_v<T, double>) return invalid_data_error; // real displacements only
        if (col >= this->cols()) return invalid_data_error;
        if (pos.rows() == 0 || pos.cols() == 0) return no_error;
        const dense1D<T, 8> c = this->col_read(col);
        if (c.size() != this->rows()) return internal_error;
        const dense1D<unsigned, 8>& ids = get_IDs();
        for (unsigned r = 0; r < this->rows(); ++r) {
            const unsigned ID = ids[r], node = ID / DOFs_mgr::nbr_places, place = ID % DOFs_mgr::nbr_places;
            // ID mod 3 is the direction: the node stride is a multiple of 3.
            if constexpr (std::is_same_v<T, double>)
                if (node < pos.cols() && ID % 3 < pos.rows() && place <= 2) pos(ID % 3, node) += c[r] * factor;
        }
        return no_error;
    }

    Ptr<ID_list> IDs;

private:
    bool row_range_valid(unsigned row, unsigned first, unsigned n, unsigned step) const noexcept
    {
        if (row >= this->rows() || step == 0) return false;
        if (std::uint64_t(first) + std::uint64_t(n) * step > this->cols()) return false;
        return n == 0 || this->in_core(first, (n - 1) * step + 1);
    }
    error_type gather_row(unsigned row, dense1D<T, 8>& out, unsigned first, unsigned n, unsigned step) const
    {
        dense1D<T, 8> fresh; // a buffer of its own: `out` may be a view on other data
        if (!fresh.resize(n)) return memory_error;
        for (unsigned k = 0; k < n; ++k) {
            const dense1D<T, 8> c = this->col_read(first + k * step);
            if (c.size() != this->rows()) return internal_error;
            fresh[k] = c[row];
        }
        out = fresh;
        return no_error;
    }
};

using FEM_real = indexed2D_row<vector_fast, dense2D_OOC<double>>;
using FEM_complex = indexed2D_row<vector_fast, dense2D_OOC<std::complex<double>>>;

extern template class indexed2D_row<vector_fast, dense2D_OOC<double>>;
extern template class indexed2D_row<vector_fast, dense2D_OOC<std::complex<double>>>;

} // namespace kelt::core
