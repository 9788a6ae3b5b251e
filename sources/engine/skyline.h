// The block skyline matrix: a symmetric matrix stored as a sequence of blocks, each
// owning a band of consecutive rows of the upper triangle. Inside the band a column
// is one run of rows ending just above the diagonal; beyond the band, each column
// with a non-zero in the band is one run ending at the band's last row (an extra
// segment). The profile gives the shape, fill included, so the factor is computed
// in the same place.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/core/vector_fast.h"
#include "kelt/engine/profile.h"

namespace kelt::core {

// A view of one block. Its values are one run: the `dim` diagonal values, then the
// segments in the order of their columns: first the `dim` diagonal columns, then
// the extra columns ascending. `ends[s]` is where segment s ends in the run; the
// first segment is always empty, so a segment begins where the previous one ends.
struct symmetric_skyline_block {
    unsigned first = 0;
    unsigned dim = 0;
    unsigned nbr_segments = 0;
    double* values = nullptr;
    const unsigned* columns = nullptr;
    const unsigned* ends = nullptr;

    bool empty() const noexcept { return values == nullptr; }
    unsigned end() const noexcept { return first + dim; }
    double* diag() const noexcept { return values; }
    unsigned nbr_extra() const noexcept { return nbr_segments - dim; }
    unsigned nbr_values() const noexcept { return nbr_segments ? ends[nbr_segments - 1] : dim; }
    unsigned seg_begin(unsigned s) const noexcept { return s ? ends[s - 1] : ends[0]; }
    unsigned seg_length(unsigned s) const noexcept { return ends[s] - seg_begin(s); }
    double* seg_end(unsigned s) const noexcept { return values + ends[s]; }
    // Top row of a segment: a band column's run ends at the column, an extra one at the band's end.
    unsigned seg_top(unsigned s) const noexcept
    {
        const unsigned c = columns[s];
        return (c < end() ? c : end()) - seg_length(s);
    }

    // Segment of a column at or after `first`, or nbr_segments when the block has
    // none. `hint` speeds up columns asked in ascending order.
    unsigned find_segment(unsigned column, unsigned& hint) const noexcept;
    // Address of entry (row, column), row < column, row in the band; null when the
    // entry is outside the profile.
    double* entry(unsigned row, unsigned column, unsigned& hint) const noexcept;
};

// The storage of all blocks and how to reach them. Fully in core here; the window
// and pending operations keep the shape that a matrix partly on disk needs.
class block_proxy_data : public ref_counted {
public:
    block_proxy_data(const profile_type& profile, unsigned nbr_rows, double default_value, error_type& error);

    unsigned nbr_rows() const noexcept { return nbr_rows_; }
    unsigned nbr_blocks() const noexcept { return unsigned(blocks_.size()); }
    std::size_t nbr_values() const noexcept { return nbr_values_; }
    std::size_t nbr_segments() const noexcept { return nbr_segments_; }
    unsigned max_extra_segments() const noexcept { return max_extra_segments_; }
    std::size_t max_extra_values() const noexcept { return max_extra_values_; }
    unsigned block_of_row(unsigned row) const noexcept { return block_of_row_[row]; }
    bool fully_in_core() const noexcept { return true; }
    bool read_mode() const noexcept { return read_mode_; }
    double default_value() const noexcept { return default_value_; }

    // The window: every block here.
    unsigned first_block() const noexcept { return 0; }
    unsigned blocks_held() const noexcept { return nbr_blocks(); }
    const symmetric_skyline_block* find_block(unsigned b) const noexcept
    {
        return b < blocks_.size() ? &blocks_[b] : nullptr;
    }
    // The view of block b, brought into the window if needed; an empty view when it
    // cannot be had.
    symmetric_skyline_block block_for_access(unsigned b) noexcept;

    // Adds values to row `row` of block b at the given columns (each at or after
    // the row; the row's own column is its diagonal).
    [[nodiscard]] error_type add_values(unsigned b, unsigned row, const double* values, const unsigned* columns,
                                        unsigned count, bool reload) noexcept;
    [[nodiscard]] error_type flush_pending(bool reload) noexcept;
    void set_read_mode(bool mode) noexcept { read_mode_ = mode; }

    // Every value set to v.
    void fill(double v) noexcept;

private:
    struct aligned_free {
        void operator()(double* p) const noexcept;
    };
    std::unique_ptr<double[], aligned_free> storage_;
    std::vector<unsigned> columns_, ends_, block_of_row_;
    std::vector<symmetric_skyline_block> blocks_;
    unsigned nbr_rows_ = 0;
    std::size_t nbr_values_ = 0, nbr_segments_ = 0, max_extra_values_ = 0;
    unsigned max_extra_segments_ = 0;
    double default_value_ = 0.0;
    bool read_mode_ = false;
};

// The matrix: a strong pointer to its blocks.
template <class T>
class symmetric_hybrid_OOC;

template <>
class symmetric_hybrid_OOC<double> {
public:
    symmetric_hybrid_OOC() = default;
    // A matrix on a profile, every value at `default_value`.
    [[nodiscard]] error_type create(const profile_type& profile, unsigned nbr_rows, double default_value = 0.0);
    void clear() noexcept { data_ = nullptr; }

    bool empty() const noexcept { return !data_ || data_->nbr_rows() == 0; }
    unsigned nbr_rows() const noexcept { return data_ ? data_->nbr_rows() : 0; }
    unsigned nbr_blocks() const noexcept { return data_ ? data_->nbr_blocks() : 0; }
    block_proxy_data* proxy() const noexcept { return data_.get(); }

    // Entry (i, j) in either order; 0 outside the profile. For checks, not for loops.
    double get(unsigned i, unsigned j) const noexcept;

private:
    Ptr<block_proxy_data> data_;
};

// A block cursor: walking blocks for writing puts the matrix in write mode, for
// reading in read mode.
class block_cursor {
public:
    block_cursor(const symmetric_hybrid_OOC<double>& A, bool for_reading) : data_(A.proxy())
    {
        if (data_) data_->set_read_mode(for_reading);
    }
    symmetric_skyline_block operator[](unsigned b) const noexcept { return data_->block_for_access(b); }
    unsigned nbr_blocks() const noexcept { return data_ ? data_->nbr_blocks() : 0; }

private:
    Ptr<block_proxy_data> data_;
};

// The matrix with the DOF identifiers of its rows: row r is the DOF of rank r.
template <class ID_list, class Matrix>
struct indexed_sym {
    Matrix matrix;
    Ptr<ID_list> IDs;

    unsigned nbr_rows() const noexcept { return matrix.nbr_rows(); }
};

using indexed_sym_matrix = indexed_sym<vector_fast, symmetric_hybrid_OOC<double>>;

// The statistics of a matrix at log level 3, each line through `log(level, text)`.
template <class Log>
void print_statistics(const symmetric_hybrid_OOC<double>& A, Log&& log);

// Numerical zeros of a matrix held in core.
std::size_t count_zeros(const symmetric_hybrid_OOC<double>& A) noexcept;

template <class Log>
void print_statistics(const symmetric_hybrid_OOC<double>& A, Log&& log)
{
    const block_proxy_data* d = A.proxy();
    const unsigned long long blocks = d ? d->nbr_blocks() : 0, extra = d ? d->max_extra_segments() : 0;
    const unsigned long long n = A.nbr_rows(), p = d ? d->nbr_values() : 0;
    char line[256];
    std::snprintf(line, sizeof line, "  nbr blocks             : %10llu \n", blocks);
    log(3, line);
    std::snprintf(line, sizeof line, "  max extra segments     : %10llu \n", extra);
    log(3, line);
    std::snprintf(line, sizeof line, "  dimension              : %10llu \n", n);
    log(3, line);
    std::snprintf(line, sizeof line, "  profile                : %10llu (%.2f MB) \n", p, double(p) * 7.62939453125e-6);
    log(3, line);
    if (n == 0) return;
    const double full = double(n) * double(n + 1);
    std::snprintf(line, sizeof line, "  symbolical fill-ins    : %8.2f %% \n", 100.0 * (2.0 * double(p)) / full);
    log(3, line);
    if (!d->fully_in_core()) return;
    const unsigned long long z = count_zeros(A);
    std::snprintf(line, sizeof line, "  zeros                  : %10llu \n", z);
    log(3, line);
    std::snprintf(line, sizeof line, "  non zeros              : %10llu \n", p - z);
    log(3, line);
    std::snprintf(line, sizeof line, "  numerical fill-ins     : %8.2f %% (%.2f %%)\n", 100.0 * (2.0 * double(p - z)) / full,
                  100.0 * double(p - z) / double(p > 1 ? p : 1));
    log(3, line);
}

} // namespace kelt::core
