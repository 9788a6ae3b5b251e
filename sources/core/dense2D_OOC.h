// Large dense matrices of a run (solutions, modes, right-hand sides): a shared
// column store that keeps a window of consecutive columns in memory, and
// rectangular views on it. Every array here lives wholly in core; the window,
// its bounds and the `written` bits are the seams through which a memory budget
// can later move columns to a swap file without a caller noticing.
#pragma once

#include <complex>
#include <cstdint>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

template <class T>
class dense2D_proxy_data : public ref_counted {
public:
    dense2D_proxy_data() = default;
    dense2D_proxy_data(const dense2D_proxy_data&) = delete;
    dense2D_proxy_data& operator=(const dense2D_proxy_data&) = delete;

    // Sizes the store with every value `value`, the window holding all columns.
    // False, and empty, when memory or 32 bits run out.
    [[nodiscard]] bool allocate(unsigned nbr_rows, unsigned nbr_cols, const T& value)
    {
        reset();
        const std::uint64_t bytes = std::uint64_t(nbr_rows) * nbr_cols * sizeof(T);
        if (bytes > 0xFFFFFFFFull || !window.resize(nbr_rows, nbr_cols, value) || !written.resize(nbr_cols, false)) {
            reset();
            return false;
        }
        rows = nbr_rows;
        cols = nbr_cols;
        default_value = value;
        storage = dense1D<T, 8>(window.buffer(), window.offset(), window.size());
        first_col = 0;
        window_cols = nbr_cols;
        max_incore_bytes = unsigned(bytes);
        return true;
    }

    void reset()
    {
        window.clear_hard();
        storage.clear_hard();
        written.clear();
        rows = cols = first_col = window_cols = max_incore_bytes = 0;
        min_cols = 1;
        read_only = false;
    }

    bool holds(unsigned col) const noexcept { return col >= first_col && col - first_col < window_cols; }
    bool holds(unsigned first, unsigned n) const noexcept
    {
        return first >= first_col && std::uint64_t(first) + n <= std::uint64_t(first_col) + window_cols;
    }
    bool all_in_core() const noexcept { return window_cols == cols; }

    // Writes the window back to the swap file; with no file there is nothing to do.
    [[nodiscard]] error_type flush_window()
    {
        if (file == -1 || window_cols == 0 || read_only) return no_error;
        return internal_error; // a file exists only under a memory budget
    }

    // Brings columns [first, first + count) into the window. In core the window
    // already holds them all; only the alignment rule is checked.
    [[nodiscard]] error_type load_window(unsigned first, unsigned count)
    {
        if (min_cols == 0 || first % min_cols || count % min_cols) return internal_error;
        return holds(first, count) ? no_error : internal_error;
    }

    // Moves the window so that it holds `col`; no effect without a file.
    [[nodiscard]] error_type move_window(unsigned col)
    {
        if (file == -1) return holds(col) ? no_error : internal_error;
        return internal_error;
    }

    // A view of `n` values of column `col`, from row `row`; empty when the column
    // cannot be brought into the window.
    dense1D<T, 8> column(unsigned col, unsigned row, unsigned n)
    {
        if (!holds(col) && (flush_window() != no_error || move_window(col) != no_error)) return dense1D<T, 8>();
        return dense1D<T, 8>(window.buffer(),
                             window.offset() + unsigned(std::uint64_t(col - first_col) * window.leading_dim()) + row, n);
    }

    unsigned rows = 0;
    unsigned cols = 0;
    unsigned first_col = 0;
    unsigned min_cols = 1; // least window, and the step of its positions and sizes
    unsigned max_incore_bytes = 0;
    dense1D<T, 8> storage;
    dense2D<T> window;
    unsigned window_cols = 0;
    int file = -1;
    char file_name[256] = {};
    bool read_only = false; // while set the window is never written back
    packed_bits written;    // columns that the swap file holds
    T default_value = T();  // value of a column never written
    Ptr<ref_counted> mgr;   // the memory budget, null when every array stays in core
};

// A rectangular view of a shared store. Copies and sub-views share the store.
template <class T>
class dense2D_OOC : public ref_counted {
public:
    using value_type = T;

    dense2D_OOC() : proxy(new dense2D_proxy_data<T>) {}
    // A new store of rows x cols values `value`; empty when memory fails.
    dense2D_OOC(unsigned rows, unsigned cols, const T& value = T()) : dense2D_OOC() { (void)resize(rows, cols, value); }
    dense2D_OOC(const dense2D_OOC& o)
        : ref_counted(), nbr_rows(o.nbr_rows), nbr_cols(o.nbr_cols), row_offset(o.row_offset),
          col_offset(o.col_offset), proxy(o.proxy)
    {
    }
    // A sub-view; the caller keeps it inside the source.
    dense2D_OOC(const dense2D_OOC& o, unsigned row, unsigned col, unsigned rows, unsigned cols) : dense2D_OOC(o)
    {
        row_offset += row;
        col_offset += col;
        nbr_rows = rows;
        nbr_cols = cols;
    }
    dense2D_OOC& operator=(const dense2D_OOC& o)
    {
        nbr_rows = o.nbr_rows;
        nbr_cols = o.nbr_cols;
        row_offset = o.row_offset;
        col_offset = o.col_offset;
        proxy = o.proxy;
        return *this;
    }

    unsigned rows() const noexcept { return nbr_rows; }
    unsigned cols() const noexcept { return nbr_cols; }
    bool empty() const noexcept { return nbr_rows == 0 || nbr_cols == 0; }

    // A fresh store, detached from the former one; views of that one keep it.
    [[nodiscard]] bool resize(unsigned rows, unsigned cols, const T& value = T())
    {
        Ptr<dense2D_proxy_data<T>> fresh = new dense2D_proxy_data<T>;
        const bool ok = fresh->allocate(rows, cols, value);
        proxy = fresh;
        row_offset = col_offset = 0;
        nbr_rows = ok ? rows : 0;
        nbr_cols = ok ? cols : 0;
        return ok;
    }
    void clear() { (void)resize(0, 0); }

    // Write access to column j of the view: the window is written back when it
    // moves on.
    dense1D<T, 8> col(unsigned j)
    {
        if (j >= nbr_cols) return dense1D<T, 8>();
        proxy->read_only = false;
        return proxy->column(col_offset + j, row_offset, nbr_rows);
    }
    // Read access: the view may be stale once another column is asked for.
    dense1D<T, 8> col_read(unsigned j) const
    {
        if (j >= nbr_cols) return dense1D<T, 8>();
        if (!proxy->read_only) {
            if (!proxy->all_in_core() && proxy->flush_window() != no_error) return dense1D<T, 8>();
            proxy->read_only = true;
        }
        return proxy->column(col_offset + j, row_offset, nbr_rows);
    }

    // True when columns [first, first + n) of the view are in the window now.
    bool in_core(unsigned first, unsigned n) const noexcept
    {
        return std::uint64_t(first) + n <= nbr_cols && proxy->holds(col_offset + first, n);
    }
    bool all_in_core() const noexcept { return in_core(0, nbr_cols); }

    // Asks for the whole store in memory for good. Without a memory budget it
    // always is.
    bool force_incore()
    {
        if (!proxy->mgr) return true;
        return proxy->all_in_core();
    }
    // The request that ends every constructor: the whole store, else what it
    // holds now, else nothing at all.
    void request_incore()
    {
        if (force_incore()) return;
        if (proxy->window_cols >= proxy->min_cols) return;
        clear();
    }

    unsigned nbr_rows = 0;
    unsigned nbr_cols = 0;
    unsigned row_offset = 0;
    unsigned col_offset = 0;
    Ptr<dense2D_proxy_data<T>> proxy;
};

extern template class dense2D_proxy_data<double>;
extern template class dense2D_proxy_data<std::complex<double>>;
extern template class dense2D_OOC<double>;
extern template class dense2D_OOC<std::complex<double>>;

} // namespace kelt::core
