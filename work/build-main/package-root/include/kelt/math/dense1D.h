// dense1D: a window (size, offset) on a shared counted buffer. Copies share;
// `copy` is the only deep operation.
#pragma once

#include <algorithm>

#include "kelt/math/vector_num.h"

namespace kelt {

template <class T, unsigned Align = 8>
class dense1D {
public:
    using buffer_type = vector_num<T, Align>;
    using value_type = T;

    dense1D() : buf_(new buffer_type) {}
    explicit dense1D(unsigned n) : dense1D() { (void)resize(n); }
    dense1D(unsigned n, const T& v) : dense1D() { (void)resize(n, v); }
    // A window on memory that the caller owns and must keep alive.
    dense1D(unsigned n, T* p) : buf_(new buffer_type(p, n)), size_(n) {}
    // A window on a given buffer.
    dense1D(const Ptr<buffer_type>& buf, unsigned offset, unsigned n) : buf_(buf), size_(n), offset_(offset) {}
    dense1D(const dense1D&) = default;
    dense1D& operator=(const dense1D&) = default;
    ~dense1D() = default;

    void shallow_copy(const dense1D& o) { *this = o; }

    dense1D& operator=(const T& v)
    {
        std::fill(begin(), end(), v);
        return *this;
    }

    unsigned size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    unsigned offset() const noexcept { return offset_; }
    unsigned capacity() const noexcept { return buf_->capacity() - offset_; }
    T* data() noexcept { return buf_->data() + offset_; }
    const T* data() const noexcept { return buf_->data() + offset_; }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + size_; }
    const T* begin() const noexcept { return data(); }
    const T* end() const noexcept { return data() + size_; }
    T& operator[](unsigned i) noexcept { return buf_->data()[offset_ + i]; }
    const T& operator[](unsigned i) const noexcept { return buf_->data()[offset_ + i]; }
    const Ptr<buffer_type>& buffer() const noexcept { return buf_; }

    // Dropped without a report when memory fails: callers that must not lose data
    // reserve first.
    void push_back(const T& v)
    {
        const unsigned end = offset_ + size_;
        if (buf_->capacity() <= end) {
            const T keep = v; // v may live in this buffer
            if (!buf_->__grow(end + 1, end, 2)) return;
            buf_->data()[end] = keep;
        } else {
            buf_->data()[end] = v;
        }
        ++size_;
    }

    [[nodiscard]] bool push_back_n(const T& v, unsigned n)
    {
        const T keep = v; // v may live in this buffer, which may move
        const unsigned old = size_;
        if (std::uint64_t(old) + n > 0xFFFFFFFFull - offset_) return false;
        if (!reserve(old + n, 2)) return false;
        size_ = old + n;
        std::fill(begin() + old, end(), keep);
        return true;
    }

    [[nodiscard]] bool reserve(unsigned n, unsigned growth)
    {
        if (std::uint64_t(offset_) + n > 0xFFFFFFFFull) return false;
        if (offset_ + n <= buf_->capacity()) return true;
        return buf_->__grow(offset_ + n, offset_ + size_, growth);
    }

    // Growth keeps the buffer shared; shrinking keeps the storage.
    [[nodiscard]] bool resize(unsigned n)
    {
        if (!reserve(n, 1)) return false;
        if (n > size_) std::fill(begin() + size_, begin() + n, T());
        size_ = n;
        return true;
    }
    [[nodiscard]] bool resize(unsigned n, const T& v)
    {
        const T keep = v;
        if (!reserve(n, 1)) return false;
        if (n > size_) std::fill(begin() + size_, begin() + n, keep);
        size_ = n;
        return true;
    }

    void clear() noexcept { size_ = 0; }
    void clear_hard()
    {
        buf_ = new buffer_type;
        size_ = 0;
        offset_ = 0;
    }

    // Deep copy. Afterwards this window shares its storage with no other window:
    // the buffer is reused only when this window is its sole holder.
    [[nodiscard]] bool copy(const dense1D& src)
    {
        if (&src == this) return true;
        const unsigned n = src.size_;
        const bool reusable = buf_->use_count() == 1 && buf_ != src.buf_ && offset_ + n <= buf_->capacity();
        if (!reusable) {
            Ptr<buffer_type> fresh = new (std::nothrow) buffer_type;
            if (!fresh || (n && !fresh->__grow(n, 0, 1))) return false;
            std::copy(src.begin(), src.end(), fresh->data());
            buf_ = fresh;
            offset_ = 0;
        } else {
            std::copy(src.begin(), src.end(), data());
        }
        size_ = n;
        return true;
    }

    dense1D sub_vector(unsigned first, unsigned n) const { return dense1D(buf_, offset_ + first, n); }

private:
    Ptr<buffer_type> buf_;
    unsigned size_ = 0;
    unsigned offset_ = 0;
};

extern template class vector_num<double, 8>;
extern template class vector_num<unsigned, 8>;
extern template class dense1D<double, 8>;
extern template class dense1D<unsigned, 8>;

} // namespace kelt
