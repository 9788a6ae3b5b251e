// The block skyline matrix: a symmetric matrix stored as a sequence of blocks, each
// owning a band of consecutive rows of the upper triangle. Inside the band a column
// is one run of rows ending just above the diagonal; beyond the band, each column
// with a non-zero in the band is one run ending at the band's last row (an extra
// segment). The profile gives the shape, fill included, so the factor is computed
// in the same place.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "kelt/core/OOC_mgr.h"
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

// One addition waiting for its block to come into the window. A row addition
// (`first_row` none) takes columns from the index buffer; a column run adds to
// rows first_row, first_row + 1, ... of column `row`.
struct buff_data_type {
    unsigned block, row, begin, end, first_row;
};

// The storage of all blocks and how to reach them. The shape (segment tables) is
// always in memory; the values are either all in core or, under a memory budget,
// in a swap file with a window of consecutive blocks in memory and a buffer of
// additions waiting for blocks outside the window.
class block_proxy_data : public ref_counted, public swap_array {
public:
    static constexpr unsigned none = 0xFFFFFFFFu;

    block_proxy_data(const profile_type& profile, unsigned nbr_rows, double default_value, OOC_mgr* mgr,
                     error_type& error);
    ~block_proxy_data() override;

    unsigned nbr_rows() const noexcept { return nbr_rows_; }
    unsigned nbr_blocks() const noexcept { return unsigned(blocks_.size()); }
    std::size_t nbr_values() const noexcept { return nbr_values_; }
    std::size_t nbr_segments() const noexcept { return nbr_segments_; }
    unsigned max_extra_segments() const noexcept { return max_extra_segments_; }
    unsigned block_of_row(unsigned row) const noexcept { return block_of_row_[row]; }
    bool fully_in_core() const noexcept { return blocks_held_ == nbr_blocks(); }
    bool read_mode() const noexcept { return read_mode_; }
    double default_value() const noexcept { return default_value_; }
    // Bytes moved to and from the swap file since the array was built.
    std::uint64_t bytes_read() const noexcept { return bytes_read_; }
    std::uint64_t bytes_written() const noexcept { return bytes_written_; }

    // The window.
    unsigned first_block() const noexcept { return first_block_; }
    unsigned blocks_held() const noexcept { return blocks_held_; }
    unsigned window_end() const noexcept { return first_block_ + blocks_held_; }
    const symmetric_skyline_block* find_block(unsigned b) const noexcept
    {
        return b - first_block_ < blocks_held_ ? &blocks_[b] : nullptr;
    }
    // The shape of any block; its values are reachable only inside the window.
    const symmetric_skyline_block& shape(unsigned b) const noexcept { return blocks_[b]; }
    // The view of block b, brought into the window if needed; an empty view when it
    // cannot be had.
    symmetric_skyline_block block_for_access(unsigned b) noexcept;

    // Adds values to row `row` of block b at the given columns (each at or after
    // the row; the row's own column is its diagonal); for a block outside the
    // window they wait in the pending buffer.
    [[nodiscard]] error_type add_values(unsigned b, unsigned row, const double* values, const unsigned* columns,
                                        unsigned count, bool reload) noexcept;
    // Adds `factor` times values to rows first_row, first_row + 1, ... of `column`
    // in block b (the last may be the diagonal).
    [[nodiscard]] error_type add_column(unsigned b, unsigned column, unsigned first_row, const double* values,
                                        unsigned count, double factor, bool reload) noexcept;
    // Room left in the pending buffer, in values.
    std::size_t pending_free() const noexcept { return pending_capacity_ - pending_used_; }
    [[nodiscard]] error_type flush_pending(bool reload) noexcept;
    [[nodiscard]] error_type flush_window() noexcept;
    [[nodiscard]] error_type load_window(unsigned b) noexcept;
    [[nodiscard]] error_type set_read_mode(bool mode) noexcept;

    [[nodiscard]] error_type allocate(std::uint64_t bytes, const void* init) override;

private:
    void build_shape(const profile_type& profile);
    [[nodiscard]] error_type load_range(unsigned first, unsigned last) noexcept;
    [[nodiscard]] error_type load_from(unsigned b, bool forward) noexcept;
    void drop_window() noexcept;
    [[nodiscard]] error_type resize_storage(bool full) noexcept;
    void split_storage(bool with_pending) noexcept;
    [[nodiscard]] error_type apply(const symmetric_skyline_block& view, const buff_data_type& r) noexcept;
    [[nodiscard]] error_type add_through_scratch(const buff_data_type* from, const buff_data_type* to) noexcept;
    [[nodiscard]] static error_type add_row_to(const symmetric_skyline_block& view, unsigned row, const double* values,
                                               const unsigned* columns, unsigned count) noexcept;
    [[nodiscard]] static error_type add_column_to(const symmetric_skyline_block& view, unsigned column,
                                                  unsigned first_row, const double* values, unsigned count,
                                                  double factor) noexcept;
    [[nodiscard]] error_type make_room(unsigned count, bool reload) noexcept;
    [[nodiscard]] error_type queue(buff_data_type r, const double* values, double factor) noexcept;
    void reset() noexcept;

    sector_buffer storage_; // window values, then pending values
    sector_buffer scratch_; // one block outside the window, while additions reach it
    double* window_base_ = nullptr;   // where the first block of the window starts
    std::size_t window_bytes_ = 0;    // part of storage that serves the window
    double* pending_values_ = nullptr;
    std::size_t pending_capacity_ = 0, pending_used_ = 0;
    std::vector<unsigned> pending_indices_;
    std::vector<buff_data_type> pending_;
    std::vector<unsigned> columns_, ends_, block_of_row_;
    std::vector<std::uint64_t> value_pos_; // start of each block's values, in doubles
    std::vector<symmetric_skyline_block> blocks_;
    std::vector<bool> written_;
    unsigned first_block_ = 0, blocks_held_ = 0;
    unsigned nbr_rows_ = 0;
    std::size_t nbr_values_ = 0, nbr_segments_ = 0, largest_block_values_ = 0;
    unsigned max_extra_segments_ = 0;
    std::uint64_t max_incore_bytes_ = 0;
    std::uint64_t full_bytes_ = 0, bytes_read_ = 0, bytes_written_ = 0;
    double default_value_ = 0.0;
    int file_ = -1;
    char file_name_[temp_dir_type::path_capacity] = {};
    bool read_mode_ = false;
    bool window_dirty_ = false; // the window holds values the file lacks
    bool registered_ = false;
    Ptr<OOC_mgr> mgr_;
};

// Walks the windows of a matrix up (from the first block) or down, calling
// body(b0, b1) with the blocks [b0, b1) of each window; internal_error when a
// window cannot be had.
[[nodiscard]] error_type for_windows(block_proxy_data& data, bool up,
                                   const std::function<void(unsigned, unsigned)>& body);

// The matrix: a strong pointer to its blocks.
template <class T>
class symmetric_hybrid_OOC;

template <>
class symmetric_hybrid_OOC<double> {
public:
    symmetric_hybrid_OOC() = default;
    // A matrix on a profile, every value at `default_value`.
    [[nodiscard]] error_type create(const profile_type& profile, unsigned nbr_rows, double default_value = 0.0,
                                    OOC_mgr* mgr = nullptr);
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
        if (data_) error = data_->set_read_mode(for_reading);
    }
    symmetric_skyline_block operator[](unsigned b) const noexcept { return data_->block_for_access(b); }
    unsigned nbr_blocks() const noexcept { return data_ ? data_->nbr_blocks() : 0; }
    error_type error = no_error; // of the change of mode

private:
    Ptr<block_proxy_data> data_;
};

// Deep copy of the values of a matrix into one built on the same profile.
[[nodiscard]] error_type copy_matrix_values(const symmetric_hybrid_OOC<double>& from,
                                            symmetric_hybrid_OOC<double>& to);

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
