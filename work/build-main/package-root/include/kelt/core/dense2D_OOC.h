// Large dense matrices of a run (solutions, modes, right-hand sides): a shared
// column store that keeps a window of consecutive columns in memory, and
// rectangular views on it. Under a memory budget the columns outside the window
// live in a swap file; a column never written costs no transfer at all.
#pragma once

#include <complex>
#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "kelt/core/DOFs_mgr.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"
#include "kelt/math/dense2D.h"

namespace kelt::core {

template <class T>
class dense2D_proxy_data : public ref_counted, public swap_array {
public:
    static constexpr unsigned kind = std::is_same_v<T, double> ? swap_dense_real : swap_dense_complex;

    dense2D_proxy_data() = default;
    dense2D_proxy_data(const dense2D_proxy_data&) = delete;
    dense2D_proxy_data& operator=(const dense2D_proxy_data&) = delete;
    ~dense2D_proxy_data() override
    {
        if (registered) (void)mgr->update_array(this, kind, 0, 0, nullptr);
        reset();
    }

    // Sizes the store with every value `value`. Without a manager the window holds
    // all columns; with one the budget decides, in steps of `least_cols` columns.
    // False, and empty, when memory or the budget run out, or the values outnumber
    // what a 32-bit count of elements holds.
    [[nodiscard]] bool allocate(unsigned nbr_rows, unsigned nbr_cols, const T& value, OOC_mgr* manager = nullptr,
                                unsigned least_cols = 1)
    {
        if (registered) (void)mgr->update_array(this, kind, 0, 0, nullptr);
        registered = false;
        reset();
        const std::uint64_t values = std::uint64_t(nbr_rows) * nbr_cols, bytes = values * sizeof(T);
        if (values > 0xFFFFFFFFull || !written.resize(nbr_cols, false)) return false;
        rows = nbr_rows;
        cols = nbr_cols;
        default_value = value;
        min_cols = std::max(1u, std::min(least_cols, nbr_cols));
        mgr = manager;
        if (!mgr || bytes == 0) {
            if (!window.resize(nbr_rows, nbr_cols, value)) {
                reset();
                return false;
            }
            window_cols = nbr_cols;
            max_incore_bytes = bytes;
            return true;
        }
        registered = true;
        if (mgr->update_array(this, kind, bytes, column_bytes() * min_cols, this) != no_error) {
            registered = false;
            reset();
            return false;
        }
        return true;
    }

    // The allocation the budget gives: a window of whole steps of columns, the rest
    // in a swap file made on the first move out of core.
    [[nodiscard]] error_type allocate(std::uint64_t bytes, const void* init) override
    {
        const std::uint64_t full = column_bytes() * cols;
        if (bytes == max_incore_bytes && !init && storage.data()) return no_error;
        if (bytes == 0) {
            reset_storage();
            return no_error;
        }
        if (bytes < column_bytes() * min_cols) return insufficient_memory_error;
        max_incore_bytes = bytes;
        error_type e = no_error;
        unsigned n = cols;
        if (init) {
            if (bytes < full) {
                if (file == -1) e = mgr->create_file(full, 1, file_name, file);
                n = window_step(bytes);
            }
            if (e == no_error) e = resize_storage(n);
            if (e == no_error) e = load_window(0, n);
        } else if (bytes >= full) {
            if (!all_in_core()) {
                if ((e = flush_window()) == no_error && (e = resize_storage(cols)) == no_error) e = load_window(0, cols);
            }
        } else {
            if (file == -1) e = mgr->create_file(full, 1, file_name, file);
            if (e == no_error && all_in_core() && window_cols) {
                // Everything in core lives only here: written out whatever the mode.
                const bool was = read_only;
                read_only = false;
                dirty = true;
                e = flush_window();
                read_only = was;
                window_cols = 0;
            }
            n = window_step(bytes);
            if (e == no_error && n != window_cols) {
                if ((e = flush_window()) == no_error && (e = resize_storage(n)) == no_error) e = load_window(0, n);
            }
        }
        if (e != no_error) reset_storage();
        return e;
    }

    void reset()
    {
        reset_storage();
        written.clear();
        rows = cols = 0;
        min_cols = 1;
        read_only = false;
    }

    bool holds(unsigned col) const noexcept { return col >= first_col && col - first_col < window_cols; }
    bool holds(unsigned first, unsigned n) const noexcept
    {
        return first >= first_col && std::uint64_t(first) + n <= std::uint64_t(first_col) + window_cols;
    }
    bool all_in_core() const noexcept { return window_cols == cols; }

    // Writes the window back to the swap file; nothing without a file or while
    // the window is read only.
    [[nodiscard]] error_type flush_window()
    {
        if (file == -1 || window_cols == 0 || read_only || !dirty) return no_error;
        const std::uint64_t pos = column_bytes() * first_col;
        if (auto e = mgr->temp_dir.write_range(storage.data(), storage.capacity(), file, pos,
                                               std::size_t(column_bytes() * window_cols));
            e != no_error)
            return e;
        written.fill(first_col, first_col + window_cols, true);
        dirty = false;
        return no_error;
    }

    // Brings columns [first, first + count) into the window: steps of `min_cols`,
    // except a window that ends at the last column. Columns never written read
    // as the default value.
    [[nodiscard]] error_type load_window(unsigned first, unsigned count)
    {
        if (first % min_cols || (count % min_cols && std::uint64_t(first) + count != cols) ||
            std::uint64_t(first) + count > cols)
            return internal_error;
        if (!mgr || !storage.data()) return holds(first, count) ? no_error : internal_error;
        const std::uint64_t pos = column_bytes() * first, bytes = column_bytes() * count;
        char* view = static_cast<char*>(storage.data()) + pos % mgr->temp_dir.sector_size;
        bool any_written = false;
        for (unsigned c = first ? first - 1 : 0; c < std::min(first + count + 1, cols) && !any_written; ++c)
            any_written = written.get(c);
        if (file != -1 && any_written)
            if (auto e = mgr->temp_dir.read_range(storage.data(), storage.capacity(), file, pos, std::size_t(bytes), view);
                e != no_error)
                return e;
        window = dense2D<T>(rows, count, rows, reinterpret_cast<T*>(view));
        first_col = first;
        window_cols = count;
        dirty = false;
        for (unsigned c = first; c < first + count; ++c)
            if (!written.get(c)) std::fill_n(window.col(c - first).data(), rows, default_value);
        return no_error;
    }

    // Moves the window so that it holds `col`; a walk down keeps going down.
    [[nodiscard]] error_type move_window(unsigned col)
    {
        if (file == -1) return holds(col) ? no_error : internal_error;
        if (col >= cols) return internal_error;
        if (auto e = flush_window(); e != no_error) return e;
        const unsigned n = window_step(max_incore_bytes);
        const bool backward = col + 1 == first_col || col + 1 >= cols;
        unsigned first = col - col % min_cols;
        if (backward && col + 1 > n) {
            const unsigned lowest = col + 1 - n;
            first = std::min(first, (lowest + min_cols - 1) / min_cols * min_cols);
        } else if (backward) {
            first = 0;
        }
        return load_window(first, std::min(n, cols - first));
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
    std::uint64_t max_incore_bytes = 0;
    sector_buffer storage; // the window's memory under a budget
    dense2D<T> window;
    unsigned window_cols = 0;
    int file = -1;
    char file_name[temp_dir_type::path_capacity] = {};
    bool read_only = false; // while set the window is never written back
    packed_bits written;    // columns that the swap file holds
    T default_value = T();  // value of a column never written
    Ptr<OOC_mgr> mgr;       // the memory budget, null when every array stays in core
    bool registered = false;
    bool dirty = false; // the window was open for writing since it was loaded or written

private:
    std::uint64_t column_bytes() const noexcept { return std::uint64_t(rows) * sizeof(T); }
    // Columns in `bytes`, whole steps, at most all.
    unsigned window_step(std::uint64_t bytes) const noexcept
    {
        const std::uint64_t per = std::max<std::uint64_t>(column_bytes(), 1);
        const unsigned n = unsigned(std::min<std::uint64_t>(bytes / per, cols));
        return n == cols ? n : n - n % min_cols;
    }
    [[nodiscard]] error_type resize_storage(unsigned n)
    {
        window = dense2D<T>();
        window_cols = first_col = 0;
        return mgr->temp_dir.aligned_resize(storage, std::size_t(column_bytes() * n), 2);
    }
    void reset_storage() noexcept
    {
        if (file != -1) mgr->delete_file(file_name, file);
        window = dense2D<T>();
        storage.release();
        first_col = window_cols = max_incore_bytes = 0;
        if (written.size) written.fill(0, written.size, false);
    }
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
    // With a manager the budget decides how many columns stay in core, in steps
    // of `min_cols`.
    [[nodiscard]] bool resize(unsigned rows, unsigned cols, const T& value = T(), OOC_mgr* mgr = nullptr,
                              unsigned min_cols = 1)
    {
        Ptr<dense2D_proxy_data<T>> fresh = new dense2D_proxy_data<T>;
        const bool ok = fresh->allocate(rows, cols, value, mgr, min_cols);
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
        dense1D<T, 8> c = proxy->column(col_offset + j, row_offset, nbr_rows);
        proxy->dirty = true; // after the move, which loads a clean window
        return c;
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
        dense2D_proxy_data<T>& p = *proxy;
        if (!p.mgr || !p.registered) return p.all_in_core();
        const std::uint64_t full = std::uint64_t(p.rows) * p.cols * sizeof(T),
                            least = std::uint64_t(p.rows) * p.min_cols * sizeof(T);
        if (p.mgr->update_array(&p, p.kind, full, full, nullptr) == no_error) {
            p.min_cols = p.cols;
            return true;
        }
        // The manager forgot every array: this one joins again with its former bounds.
        p.registered = p.mgr->update_array(&p, p.kind, full, least, nullptr) == no_error;
        return false;
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
