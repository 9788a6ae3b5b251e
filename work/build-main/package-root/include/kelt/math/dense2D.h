// dense2D: a column-major window (rows, cols, leading dimension) on a shared
// counted buffer. Element (i, j) lies at offset + j * ld + i, so a column is a
// contiguous window.
#pragma once

#include <algorithm>

#include "kelt/math/dense1D.h"

namespace kelt {

template <class T>
class dense2D {
public:
    using buffer_type = vector_num<T, 8>;
    using value_type = T;

    dense2D() : buf_(new buffer_type) {}
    dense2D(unsigned rows, unsigned cols) : dense2D() { (void)resize(rows, cols); }
    dense2D(unsigned rows, unsigned cols, const T& v) : dense2D() { (void)resize(rows, cols, v); }
    // A window on memory that the caller owns and must keep alive.
    dense2D(unsigned rows, unsigned cols, unsigned leading, T* p)
        : buf_(new buffer_type(p, cols ? leading * (cols - 1) + rows : 0)),
          size_(rows * cols), rows_(rows), cols_(cols), ld_(leading)
    {
    }
    dense2D(const dense2D&) = default;
    dense2D& operator=(const dense2D&) = default;
    ~dense2D() = default;

    void shallow_copy(const dense2D& o) { *this = o; }

    dense2D& operator=(const T& v)
    {
        for (unsigned j = 0; j < cols_; ++j) std::fill(col_data(j), col_data(j) + rows_, v);
        return *this;
    }

    unsigned rows() const noexcept { return rows_; }
    unsigned cols() const noexcept { return cols_; }
    unsigned leading_dim() const noexcept { return ld_; }
    unsigned size() const noexcept { return size_; }
    unsigned offset() const noexcept { return offset_; }
    T* data() noexcept { return buf_->data() + offset_; }
    const T* data() const noexcept { return buf_->data() + offset_; }
    T* col_data(unsigned j) noexcept { return data() + std::size_t(j) * ld_; }
    const T* col_data(unsigned j) const noexcept { return data() + std::size_t(j) * ld_; }
    T& operator()(unsigned i, unsigned j) noexcept { return buf_->data()[offset_ + std::size_t(j) * ld_ + i]; }
    const T& operator()(unsigned i, unsigned j) const noexcept
    {
        return buf_->data()[offset_ + std::size_t(j) * ld_ + i];
    }
    const Ptr<buffer_type>& buffer() const noexcept { return buf_; }

    dense1D<T, 8> col(unsigned j) const { return dense1D<T, 8>(buf_, offset_ + j * ld_, rows_); }
    dense2D sub_matrix(unsigned i, unsigned j, unsigned rows, unsigned cols) const
    {
        dense2D w(*this);
        w.offset_ = offset_ + j * ld_ + i;
        w.rows_ = rows;
        w.cols_ = cols;
        w.size_ = rows * cols;
        return w;
    }

    void clear() noexcept { rows_ = cols_ = size_ = 0; }
    void clear_hard()
    {
        buf_ = new buffer_type;
        rows_ = cols_ = size_ = offset_ = 0;
        ld_ = 0;
    }

    [[nodiscard]] bool reserve(unsigned rows, unsigned cols, unsigned growth)
    {
        const std::uint64_t n = std::uint64_t(rows) * cols + offset_;
        if (n > 0xFFFFFFFFull) return false;
        if (n <= buf_->capacity()) return true;
        return buf_->__grow(unsigned(n), used_extent(), growth);
    }

    // Entries (i, j) inside both shapes keep their values; new ones get `v`.
    [[nodiscard]] bool resize(unsigned rows, unsigned cols) { return resize(rows, cols, T()); }
    [[nodiscard]] bool resize(unsigned rows, unsigned cols, const T& v)
    {
        const std::uint64_t n = std::uint64_t(rows) * cols;
        if (n > 0xFFFFFFFFull) return false;
        const T keep = v;
        if (rows == rows_ && (ld_ == rows_ || cols_ <= 1)) {
            // Same column length in a packed layout: extend the buffer in place.
            if (!reserve(rows, cols, 1)) return false;
            ld_ = rows;
            for (unsigned j = cols_; j < cols; ++j) std::fill(col_data(j), col_data(j) + rows, keep);
            cols_ = cols;
            size_ = unsigned(n);
            return true;
        }
        Ptr<buffer_type> fresh = new (std::nothrow) buffer_type;
        if (!fresh || (n && !fresh->__grow(unsigned(n), 0, 1))) return false;
        T* out = fresh->data();
        for (unsigned j = 0; j < cols; ++j)
            for (unsigned i = 0; i < rows; ++i)
                out[std::size_t(j) * rows + i] = (i < rows_ && j < cols_) ? (*this)(i, j) : keep;
        buf_ = fresh;
        offset_ = 0;
        rows_ = rows;
        cols_ = cols;
        ld_ = rows;
        size_ = unsigned(n);
        return true;
    }

    // Deep copy into a packed buffer of this window's own.
    [[nodiscard]] bool copy(const dense2D& src)
    {
        if (&src == this) return true;
        const std::uint64_t n = std::uint64_t(src.rows_) * src.cols_;
        const bool reusable = buf_->use_count() == 1 && buf_ != src.buf_ && n <= buf_->capacity();
        if (!reusable) {
            Ptr<buffer_type> fresh = new (std::nothrow) buffer_type;
            if (!fresh || (n && !fresh->__grow(unsigned(n), 0, 1))) return false;
            buf_ = fresh;
        }
        offset_ = 0;
        rows_ = src.rows_;
        cols_ = src.cols_;
        ld_ = src.rows_;
        size_ = unsigned(n);
        for (unsigned j = 0; j < cols_; ++j) std::copy(src.col_data(j), src.col_data(j) + rows_, col_data(j));
        return true;
    }

private:
    unsigned used_extent() const noexcept
    {
        return cols_ ? offset_ + (cols_ - 1) * ld_ + rows_ : offset_;
    }

    Ptr<buffer_type> buf_;
    unsigned size_ = 0;
    unsigned offset_ = 0;
    unsigned rows_ = 0;
    unsigned cols_ = 0;
    unsigned ld_ = 0;
};

extern template class dense2D<double>;
extern template class dense2D<unsigned>;

} // namespace kelt
