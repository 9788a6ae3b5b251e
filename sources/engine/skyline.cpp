#include "kelt/engine/skyline.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace kelt::core {

unsigned symmetric_skyline_block::find_segment(unsigned column, unsigned& hint) const noexcept
{
    if (column < first) return nbr_segments;
    if (column < end()) return column - first;
    if (hint < nbr_segments && columns[hint] == column) return hint;
    if (hint + 1 < nbr_segments && columns[hint + 1] == column) return hint = hint + 1;
    const unsigned* from = columns + (hint > dim && hint < nbr_segments && columns[hint] < column ? hint : dim);
    const unsigned* at = std::lower_bound(from, columns + nbr_segments, column);
    if (at == columns + nbr_segments || *at != column) return nbr_segments;
    return hint = unsigned(at - columns);
}

double* symmetric_skyline_block::entry(unsigned row, unsigned column, unsigned& hint) const noexcept
{
    const unsigned s = find_segment(column, hint);
    if (s == nbr_segments || row < first || row >= end() || row >= column) return nullptr;
    const unsigned e = column < end() ? column : end();
    if (e - row > seg_length(s)) return nullptr;
    return values + ends[s] - (e - row);
}

block_proxy_data::block_proxy_data(const profile_type& profile, unsigned nbr_rows, double default_value,
                                   OOC_mgr* mgr, error_type& error)
    : nbr_rows_(nbr_rows), default_value_(default_value), mgr_(mgr)
{
    error = no_error;
    try {
        build_shape(profile);
        // The least window holds the largest block with room to spare for pending additions.
        std::uint64_t largest = 0;
        for (unsigned b = 0; b < nbr_blocks(); ++b)
            largest = std::max<std::uint64_t>(largest, (value_pos_[b + 1] - value_pos_[b] + blocks_[b].nbr_segments) * 8);
        full_bytes_ = (std::uint64_t(nbr_values_) + nbr_segments_) * 8;
        if (!mgr_) {
            error = allocate(OOC_mgr::no_limit, &profile);
        } else {
            const std::uint64_t min_bytes = largest + largest / 4;
            registered_ = true;
            error = mgr_->update_array(this, swap_skyline, std::max(full_bytes_, min_bytes), min_bytes, &profile);
        }
    } catch (const std::bad_alloc&) {
        error = memory_error;
    } catch (...) {
        error = internal_error;
    }
    if (error != no_error) {
        if (registered_) (void)mgr_->update_array(this, swap_skyline, 0, 0, nullptr);
        registered_ = false;
        reset();
        blocks_.clear();
        nbr_rows_ = 0;
        nbr_values_ = nbr_segments_ = 0;
        max_extra_segments_ = 0;
    }
}

block_proxy_data::~block_proxy_data()
{
    if (registered_) (void)mgr_->update_array(this, swap_skyline, 0, 0, nullptr);
    reset();
}

void block_proxy_data::build_shape(const profile_type& profile)
{
    const unsigned nb = profile.size();
    std::vector<std::size_t> seg_start(std::size_t(nb) + 1, 0);
    value_pos_.assign(std::size_t(nb) + 1, 0);
    for (unsigned b = 0; b < nb; ++b) {
        const block_profile_type& p = profile.blocks[b];
        const unsigned dim = p.end - p.first;
        if (dim == 0 || p.segments.size() < dim || p.end > nbr_rows_ || (b && p.first != profile.blocks[b - 1].end))
            throw std::invalid_argument("profile");
        std::size_t v = dim;
        for (unsigned s = 0; s < p.segments.size(); ++s) {
            const auto [c, len] = p.segments[s];
            if ((s < dim && c != p.first + s) || (s == 0 && len != 0) || (s >= dim && c < p.end) ||
                (s > dim && c <= p.segments[s - 1].first))
                throw std::invalid_argument("profile");
            v += len;
        }
        if (v > 0xFFFFFFFFull) throw std::invalid_argument("profile");
        value_pos_[b + 1] = value_pos_[b] + v;
        seg_start[b + 1] = seg_start[b] + p.segments.size();
        max_extra_segments_ = std::max(max_extra_segments_, unsigned(p.segments.size() - dim));
        largest_block_values_ = std::max(largest_block_values_, v);
    }
    if (nb && profile.blocks.back().end != nbr_rows_) throw std::invalid_argument("profile");
    nbr_values_ = value_pos_[nb];
    nbr_segments_ = seg_start[nb];
    columns_.resize(nbr_segments_);
    ends_.resize(nbr_segments_);
    block_of_row_.resize(nbr_rows_);
    blocks_.resize(nb);
    written_.assign(nb, false);
    for (unsigned b = 0; b < nb; ++b) {
        const block_profile_type& p = profile.blocks[b];
        symmetric_skyline_block& view = blocks_[b];
        view.first = p.first;
        view.dim = p.end - p.first;
        view.nbr_segments = unsigned(p.segments.size());
        view.values = nullptr;
        view.columns = columns_.data() + seg_start[b];
        view.ends = ends_.data() + seg_start[b];
        unsigned at = view.dim;
        for (unsigned s = 0; s < view.nbr_segments; ++s) {
            at += p.segments[s].second;
            columns_[seg_start[b] + s] = p.segments[s].first;
            ends_[seg_start[b] + s] = at;
        }
        for (unsigned r = p.first; r < p.end; ++r) block_of_row_[r] = b;
    }
}

void block_proxy_data::reset() noexcept
{
    if (file_ != -1) {
        if (mgr_) mgr_->delete_file(file_name_, file_);
        else temp_dir_type().delete_swap_file(file_name_, file_);
    }
    drop_window();
    storage_.release();
    scratch_.release();
    window_base_ = pending_values_ = nullptr;
    window_bytes_ = pending_capacity_ = pending_used_ = 0;
    pending_.clear();
    pending_indices_.clear();
    max_incore_bytes_ = 0;
    std::fill(written_.begin(), written_.end(), false);
}

void block_proxy_data::drop_window() noexcept
{
    for (unsigned b = first_block_; b < window_end(); ++b) blocks_[b].values = nullptr;
    first_block_ = blocks_held_ = 0;
}

error_type block_proxy_data::resize_storage(bool full) noexcept
{
    drop_window();
    pending_.clear();
    pending_used_ = 0;
    const unsigned sector = mgr_ ? mgr_->temp_dir.sector_size : 64;
    std::uint64_t bytes = std::uint64_t(nbr_values_) * 8;
    // A window must take the largest block whatever the sector rounding.
    if (!full)
        bytes = std::max<std::uint64_t>(std::uint64_t(0.95 * max_incore_bytes_),
                                        std::uint64_t(largest_block_values_) * 8 * 100 / 85 + 4u * sector);
    if (mgr_) return mgr_->temp_dir.aligned_resize(storage_, std::size_t(bytes), full ? 0 : 2);
    return storage_.reserve(std::size_t(std::max<std::uint64_t>(bytes, 8)), sector);
}

void block_proxy_data::split_storage(bool with_pending) noexcept
{
    const std::size_t total = storage_.capacity();
    const unsigned sector = mgr_ ? mgr_->temp_dir.sector_size : 64;
    window_bytes_ = total;
    if (with_pending && !fully_in_core()) {
        std::size_t w = (std::size_t(0.85 * double(total)) + sector - 1) / sector * sector;
        w = std::max<std::size_t>(w, (largest_block_values_ * 8 + 3 * std::size_t(sector)) / sector * sector);
        window_bytes_ = std::min(w, total);
    }
    // The window may have grown into what now serves the pending buffer.
    if (blocks_held_ && std::uint64_t(reinterpret_cast<char*>(blocks_[window_end() - 1].values) -
                                      static_cast<char*>(storage_.data())) +
                                (value_pos_[window_end()] - value_pos_[window_end() - 1]) * 8 >
                            window_bytes_)
        drop_window();
    pending_values_ = reinterpret_cast<double*>(static_cast<char*>(storage_.data()) + window_bytes_);
    pending_capacity_ = (total - window_bytes_) / 8;
    pending_used_ = 0;
    pending_.clear();
    try {
        pending_indices_.resize(pending_capacity_);
        pending_.reserve(std::max(max_extra_segments_, 10u));
    } catch (const std::bad_alloc&) {
        pending_capacity_ = 0;
    }
}

error_type block_proxy_data::allocate(std::uint64_t bytes, const void* init)
{
    const bool full = bytes >= full_bytes_ || !mgr_;
    error_type e = no_error;
    if (bytes == 0) {
        reset();
        return no_error;
    }
    if (bytes == max_incore_bytes_ && !init && storage_.data()) return no_error;
    if (full && init) {
        max_incore_bytes_ = bytes;
        if ((e = resize_storage(true)) == no_error) {
            window_base_ = static_cast<double*>(storage_.data());
            split_storage(false);
            for (unsigned b = 0; b < nbr_blocks(); ++b) blocks_[b].values = window_base_ + value_pos_[b];
            first_block_ = 0;
            blocks_held_ = nbr_blocks();
            std::fill(window_base_, window_base_ + nbr_values_, default_value_);
            window_dirty_ = true;
        }
    } else if (full) {
        if (fully_in_core() && storage_.data()) {
            max_incore_bytes_ = bytes;
            return no_error;
        }
        if (!read_mode_) {
            if ((e = flush_window()) == no_error) e = flush_pending(false);
        }
        max_incore_bytes_ = bytes;
        if (e == no_error) e = resize_storage(true);
        if (e == no_error) {
            split_storage(false);
            e = load_range(0, nbr_blocks());
        }
    } else if (init) {
        max_incore_bytes_ = bytes;
        if (file_ == -1) e = mgr_->create_file(std::uint64_t(nbr_values_) * 8, 1, file_name_, file_);
        if (e == no_error) e = resize_storage(false);
        if (e == no_error) split_storage(true);
    } else {
        if (!fully_in_core() && read_mode_ && storage_.data()) return no_error;
        if (file_ == -1) e = mgr_->create_file(std::uint64_t(nbr_values_) * 8, 1, file_name_, file_);
        if (e == no_error) e = flush_window();
        if (e == no_error) e = flush_pending(false);
        if (e == no_error && !storage_.data()) e = internal_error;
        // A whole matrix in core is written once before it leaves.
        if (e == no_error && fully_in_core() && blocks_held_) {
            window_base_ = blocks_[0].values;
            window_dirty_ = true;
            e = flush_window();
        }
        max_incore_bytes_ = bytes;
        if (e == no_error) e = resize_storage(false);
        if (e == no_error) split_storage(!read_mode_);
    }
    if (e != no_error) reset();
    return e;
}

error_type block_proxy_data::flush_window() noexcept
{
    // In write mode the window may have changed through any view.
    if (file_ == -1 || blocks_held_ == 0 || (read_mode_ && !window_dirty_)) return no_error;
    const std::uint64_t pos = value_pos_[first_block_] * 8, bytes = (value_pos_[window_end()] - value_pos_[first_block_]) * 8;
    const unsigned sector = mgr_->temp_dir.sector_size;
    // The window image starts where the read put it: at the position's offset in its sector.
    if (reinterpret_cast<char*>(window_base_) - static_cast<char*>(storage_.data()) != std::ptrdiff_t(pos % sector))
        return internal_error;
    if (auto e = mgr_->temp_dir.write_range(storage_.data(), window_bytes_, file_, pos, std::size_t(bytes)); e != no_error)
        return e;
    bytes_written_ += bytes;
    for (unsigned b = first_block_; b < window_end(); ++b) written_[b] = true;
    window_dirty_ = false;
    return no_error;
}

error_type block_proxy_data::load_range(unsigned first, unsigned last) noexcept
{
    drop_window();
    if (first >= last || last > nbr_blocks()) return internal_error;
    const temp_dir_type& dir = mgr_->temp_dir;
    const std::uint64_t pos = value_pos_[first] * 8, bytes = (value_pos_[last] - value_pos_[first]) * 8;
    if (dir.round_up(pos + bytes) - dir.round_down(pos) > window_bytes_) return internal_error;
    // Sectors shared with a neighbour are read too, since they are written back whole.
    bool any_written = false;
    for (unsigned b = first ? first - 1 : 0; b < std::min(last + 1, nbr_blocks()) && !any_written; ++b)
        any_written = written_[b];
    char* view = static_cast<char*>(storage_.data()) + pos % dir.sector_size;
    if (any_written) {
        if (auto e = dir.read_range(storage_.data(), window_bytes_, file_, pos, std::size_t(bytes), view); e != no_error)
            return e;
        bytes_read_ += bytes;
    }
    window_base_ = reinterpret_cast<double*>(view);
    for (unsigned b = first; b < last; ++b) {
        blocks_[b].values = window_base_ + (value_pos_[b] - value_pos_[first]);
        if (!written_[b]) std::fill(blocks_[b].values, blocks_[b].values + blocks_[b].nbr_values(), default_value_);
    }
    first_block_ = first;
    blocks_held_ = last - first;
    window_dirty_ = !read_mode_;
    return no_error;
}

error_type block_proxy_data::load_from(unsigned b, bool forward) noexcept
{
    if (b >= nbr_blocks()) return internal_error;
    if (fully_in_core()) return no_error;
    const std::uint64_t avail = (window_bytes_ - 2 * std::size_t(mgr_->temp_dir.sector_size)) / 8;
    const auto begin = value_pos_.begin();
    if (forward) {
        const unsigned last = unsigned(std::upper_bound(begin + b + 1, value_pos_.end(), value_pos_[b] + avail) - begin) - 1;
        return load_range(b, std::max(last, b + 1));
    }
    const std::uint64_t low = value_pos_[b + 1] > avail ? value_pos_[b + 1] - avail : 0;
    const unsigned first = unsigned(std::lower_bound(begin, begin + b + 1, low) - begin);
    return load_range(std::min(first, b), b + 1);
}

error_type block_proxy_data::load_window(unsigned b) noexcept
{
    // A walk down the blocks keeps going down: the window then ends at b.
    const bool backward = b + 1 == first_block_ || b + 1 >= nbr_blocks();
    return load_from(b, !backward);
}

symmetric_skyline_block block_proxy_data::block_for_access(unsigned b) noexcept
{
    if (const symmetric_skyline_block* view = find_block(b)) return *view;
    if (b >= nbr_blocks() || flush_window() != no_error || load_window(b) != no_error ||
        flush_pending(true) != no_error)
        return symmetric_skyline_block();
    const symmetric_skyline_block* view = find_block(b);
    return view ? *view : symmetric_skyline_block();
}

error_type block_proxy_data::make_room(unsigned count, bool reload) noexcept
{
    if (pending_free() >= count) return no_error;
    if (auto e = flush_pending(reload); e != no_error) return e;
    return pending_free() >= count ? no_error : internal_error;
}

// Appends a record of `r.end` values (factor times `values`) at the end of the
// pending buffer, which make_room has sized.
error_type block_proxy_data::queue(buff_data_type r, const double* values, double factor) noexcept
{
    const unsigned count = r.end;
    r.begin = unsigned(pending_used_);
    r.end = r.begin + count;
    try {
        pending_.push_back(r);
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    double* out = pending_values_ + pending_used_;
    for (unsigned k = 0; k < count; ++k) out[k] = factor * values[k];
    pending_used_ += count;
    return no_error;
}

error_type block_proxy_data::add_values(unsigned b, unsigned row, const double* values, const unsigned* columns,
                                        unsigned count, bool reload) noexcept
{
    if (b >= nbr_blocks()) return internal_error;
    if (!find_block(b)) {
        if (auto e = make_room(count, reload); e != no_error) return e;
        if (!find_block(b)) {
            std::copy(columns, columns + count, pending_indices_.data() + pending_used_);
            return queue({b, row, 0, count, none}, values, 1.0);
        }
    }
    return add_row_to(blocks_[b], row, values, columns, count);
}

error_type block_proxy_data::add_row_to(const symmetric_skyline_block& view, unsigned row, const double* values,
                                        const unsigned* columns, unsigned count) noexcept
{
    if (row < view.first || row >= view.end()) return internal_error;
    unsigned hint = view.dim;
    for (unsigned i = 0; i < count; ++i) {
        if (columns[i] == row) {
            view.values[row - view.first] += values[i];
            continue;
        }
        double* at = view.entry(row, columns[i], hint);
        if (!at) return internal_error;
        *at += values[i];
    }
    return no_error;
}

error_type block_proxy_data::add_column(unsigned b, unsigned column, unsigned first_row, const double* values,
                                        unsigned count, double factor, bool reload) noexcept
{
    if (b >= nbr_blocks()) return internal_error;
    if (!find_block(b)) {
        if (auto e = make_room(count, reload); e != no_error) return e;
        if (!find_block(b)) return queue({b, column, 0, count, first_row}, values, factor);
    }
    return add_column_to(blocks_[b], column, first_row, values, count, factor);
}

error_type block_proxy_data::add_column_to(const symmetric_skyline_block& view, unsigned column, unsigned first_row,
                                           const double* values, unsigned count, double factor) noexcept
{
    unsigned n = count;
    if (first_row + n - 1 == column) view.values[column - view.first] += factor * values[--n];
    if (n == 0) return no_error;
    unsigned hint = view.dim;
    double* at = view.entry(first_row, column, hint);
    if (!at || first_row + n > view.end()) return internal_error;
    for (unsigned k = 0; k < n; ++k) at[k] += factor * values[k];
    return no_error;
}

error_type block_proxy_data::apply(const symmetric_skyline_block& view, const buff_data_type& r) noexcept
{
    const double* v = pending_values_ + r.begin;
    if (r.first_row == none) return add_row_to(view, r.row, v, pending_indices_.data() + r.begin, r.end - r.begin);
    return add_column_to(view, r.row, r.first_row, v, r.end - r.begin, 1.0);
}

// Adds the records [from, to) of one block outside the window to the file: the
// block alone goes through a scratch buffer, the window stays. Sectors shared
// with the window are copied into it too, since the window writes them back whole.
error_type block_proxy_data::add_through_scratch(const buff_data_type* from, const buff_data_type* to) noexcept
{
    const temp_dir_type& dir = mgr_->temp_dir;
    const unsigned b = from->block;
    const std::uint64_t pos = value_pos_[b] * 8, bytes = (value_pos_[b + 1] - value_pos_[b]) * 8;
    if (auto e = dir.aligned_resize(scratch_, std::size_t(bytes), 2); e != no_error) return e;
    char* view_at = nullptr;
    if (auto e = dir.read_range(scratch_.data(), scratch_.capacity(), file_, pos, std::size_t(bytes), view_at);
        e != no_error)
        return e;
    bytes_read_ += bytes;
    symmetric_skyline_block view = blocks_[b];
    view.values = reinterpret_cast<double*>(view_at);
    if (!written_[b]) std::fill(view.values, view.values + view.nbr_values(), default_value_);
    for (const buff_data_type* r = from; r != to; ++r)
        if (auto e = apply(view, *r); e != no_error) return e;
    if (auto e = dir.write_range(scratch_.data(), scratch_.capacity(), file_, pos, std::size_t(bytes)); e != no_error)
        return e;
    bytes_written_ += bytes;
    written_[b] = true;
    if (blocks_held_) {
        const std::uint64_t w0 = dir.round_down(value_pos_[first_block_] * 8), w1 = dir.round_up(value_pos_[window_end()] * 8);
        // Only the block's own bytes: the rest of a shared sector is newer in the window.
        const std::uint64_t lo = std::max(w0, pos), hi = std::min(w1, pos + bytes), s0 = dir.round_down(pos);
        if (lo < hi)
            std::memcpy(static_cast<char*>(storage_.data()) + (lo - w0), static_cast<const char*>(scratch_.data()) + (lo - s0),
                        std::size_t(hi - lo));
    }
    return no_error;
}

error_type block_proxy_data::flush_pending(bool reload) noexcept
{
    if (pending_.empty()) return no_error;
    const unsigned remembered = first_block_;
    std::stable_sort(pending_.begin(), pending_.end(),
                     [](const buff_data_type& a, const buff_data_type& b) { return a.block < b.block; });
    error_type e = no_error;
    for (std::size_t i = 0; i < pending_.size() && e == no_error;) {
        const buff_data_type& r = pending_[i];
        if (const symmetric_skyline_block* view = find_block(r.block)) {
            e = apply(*view, r);
            ++i;
            continue;
        }
        if (reload) {
            std::size_t j = i + 1;
            while (j < pending_.size() && pending_[j].block == r.block) ++j;
            e = add_through_scratch(&pending_[i], &pending_[j]);
            i = j;
            continue;
        }
        if ((e = flush_window()) == no_error) e = load_from(r.block, true);
    }
    pending_.clear();
    pending_used_ = 0;
    // Kept, the window stays as it is; moved, it is written where the sweep ended.
    if (e == no_error && !reload) e = flush_window();
    if (e == no_error && reload && first_block_ != remembered) e = load_from(remembered, true);
    return e;
}

error_type block_proxy_data::set_read_mode(bool mode) noexcept
{
    if (mode == read_mode_) return no_error;
    if (fully_in_core()) {
        read_mode_ = mode;
        return no_error;
    }
    error_type e = no_error;
    if (mode) {
        if ((e = flush_window()) == no_error) e = flush_pending(false);
        read_mode_ = true;
        window_dirty_ = false;
        split_storage(false);
    } else {
        read_mode_ = false;
        split_storage(true);
        window_dirty_ = blocks_held_ > 0;
    }
    return e;
}

error_type for_windows(block_proxy_data& data, bool up, const std::function<void(unsigned, unsigned)>& body)
{
    const unsigned nb = data.nbr_blocks();
    if (up) {
        for (unsigned b = 0; b < nb;) {
            if (data.block_for_access(b).empty()) return internal_error;
            const unsigned end = data.window_end();
            body(b, end);
            b = end;
        }
        return no_error;
    }
    for (unsigned b = nb; b > 0;) {
        if (data.block_for_access(b - 1).empty()) return internal_error;
        const unsigned first = data.first_block();
        body(first, b);
        b = first;
    }
    return no_error;
}

error_type symmetric_hybrid_OOC<double>::create(const profile_type& profile, unsigned nbr_rows, double default_value,
                                              OOC_mgr* mgr)
{
    error_type error = no_error;
    Ptr<block_proxy_data> data = new (std::nothrow) block_proxy_data(profile, nbr_rows, default_value, mgr, error);
    if (!data) return memory_error;
    if (error != no_error) return error;
    data_ = data;
    return no_error;
}

double symmetric_hybrid_OOC<double>::get(unsigned i, unsigned j) const noexcept
{
    if (!data_ || i >= nbr_rows() || j >= nbr_rows()) return 0.0;
    if (i > j) std::swap(i, j);
    const symmetric_skyline_block view = data_->block_for_access(data_->block_of_row(i));
    if (view.empty()) return 0.0;
    if (i == j) return view.values[i - view.first];
    unsigned hint = view.dim;
    const double* at = view.entry(i, j, hint);
    return at ? *at : 0.0;
}

error_type copy_matrix_values(const symmetric_hybrid_OOC<double>& from, symmetric_hybrid_OOC<double>& to)
{
    if (from.nbr_rows() != to.nbr_rows() || from.nbr_blocks() != to.nbr_blocks()) return internal_error;
    const block_cursor source(from, true), target(to, false);
    if (source.error != no_error) return source.error;
    if (target.error != no_error) return target.error;
    for (unsigned b = 0; b < source.nbr_blocks(); ++b) {
        const symmetric_skyline_block s = source[b], t = target[b];
        if (s.empty() || t.empty() || s.nbr_values() != t.nbr_values()) return internal_error;
        std::copy(s.values, s.values + s.nbr_values(), t.values);
    }
    return no_error;
}

std::size_t count_zeros(const symmetric_hybrid_OOC<double>& A) noexcept
{
    std::size_t z = 0;
    const block_proxy_data* d = A.proxy();
    if (!d) return 0;
    for (unsigned b = 0; b < d->nbr_blocks(); ++b) {
        const symmetric_skyline_block* view = d->find_block(b);
        if (!view) continue;
        const unsigned n = view->nbr_values();
        for (unsigned k = 0; k < n; ++k) z += view->values[k] == 0.0;
    }
    return z;
}

} // namespace kelt::core
