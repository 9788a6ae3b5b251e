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

void block_proxy_data::aligned_free::operator()(double* p) const noexcept { std::free(p); }

block_proxy_data::block_proxy_data(const profile_type& profile, unsigned nbr_rows, double default_value,
                                   error_type& error)
    : nbr_rows_(nbr_rows), default_value_(default_value)
{
    error = no_error;
    try {
        const unsigned nb = profile.size();
        std::vector<std::size_t> value_start(std::size_t(nb) + 1, 0), seg_start(std::size_t(nb) + 1, 0);
        for (unsigned b = 0; b < nb; ++b) {
            const block_profile_type& p = profile.blocks[b];
            const unsigned dim = p.end - p.first;
            if (dim == 0 || p.segments.size() < dim || p.end > nbr_rows || (b && p.first != profile.blocks[b - 1].end))
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
            value_start[b + 1] = value_start[b] + v;
            seg_start[b + 1] = seg_start[b] + p.segments.size();
            max_extra_segments_ = std::max(max_extra_segments_, unsigned(p.segments.size() - dim));
        }
        if (nb && profile.blocks.back().end != nbr_rows) throw std::invalid_argument("profile");
        nbr_values_ = value_start[nb];
        nbr_segments_ = seg_start[nb];

        const std::size_t bytes = ((std::max<std::size_t>(nbr_values_, 1) * sizeof(double) + 63) / 64) * 64;
        storage_.reset(static_cast<double*>(std::aligned_alloc(64, bytes)));
        if (!storage_) throw std::bad_alloc();
        columns_.resize(nbr_segments_);
        ends_.resize(nbr_segments_);
        block_of_row_.resize(nbr_rows);
        blocks_.resize(nb);
        for (unsigned b = 0; b < nb; ++b) {
            const block_profile_type& p = profile.blocks[b];
            symmetric_skyline_block& view = blocks_[b];
            view.first = p.first;
            view.dim = p.end - p.first;
            view.nbr_segments = unsigned(p.segments.size());
            view.values = storage_.get() + value_start[b];
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
        max_extra_values_ = 0;
        for (const auto& view : blocks_) {
            std::size_t extra = 0;
            for (unsigned s = view.dim; s < view.nbr_segments; ++s) extra += view.seg_length(s);
            max_extra_values_ = std::max(max_extra_values_, extra);
        }
        fill(default_value);
    } catch (const std::bad_alloc&) {
        error = memory_error;
    } catch (...) {
        error = internal_error;
    }
    if (error != no_error) {
        storage_.reset();
        columns_.clear();
        ends_.clear();
        blocks_.clear();
        block_of_row_.clear();
        nbr_rows_ = 0;
        nbr_values_ = nbr_segments_ = max_extra_values_ = 0;
        max_extra_segments_ = 0;
    }
}

symmetric_skyline_block block_proxy_data::block_for_access(unsigned b) noexcept
{
    const symmetric_skyline_block* view = find_block(b);
    return view ? *view : symmetric_skyline_block();
}

error_type block_proxy_data::add_values(unsigned b, unsigned row, const double* values, const unsigned* columns,
                                        unsigned count, bool) noexcept
{
    if (b >= blocks_.size()) return internal_error;
    const symmetric_skyline_block& view = blocks_[b];
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

error_type block_proxy_data::flush_pending(bool) noexcept { return no_error; }

void block_proxy_data::fill(double v) noexcept
{
    if (storage_) std::fill(storage_.get(), storage_.get() + nbr_values_, v);
}

error_type symmetric_hybrid_OOC<double>::create(const profile_type& profile, unsigned nbr_rows, double default_value)
{
    error_type error = no_error;
    Ptr<block_proxy_data> data = new (std::nothrow) block_proxy_data(profile, nbr_rows, default_value, error);
    if (!data) return memory_error;
    if (error != no_error) return error;
    data_ = data;
    return no_error;
}

double symmetric_hybrid_OOC<double>::get(unsigned i, unsigned j) const noexcept
{
    if (!data_ || i >= nbr_rows() || j >= nbr_rows()) return 0.0;
    if (i > j) std::swap(i, j);
    const symmetric_skyline_block* view = data_->find_block(data_->block_of_row(i));
    if (!view) return 0.0;
    if (i == j) return view->values[i - view->first];
    unsigned hint = view->dim;
    const double* at = view->entry(i, j, hint);
    return at ? *at : 0.0;
}

std::size_t count_zeros(const symmetric_hybrid_OOC<double>& A) noexcept
{
    std::size_t z = 0;
    const block_proxy_data* d = A.proxy();
    if (!d) return 0;
    for (unsigned b = 0; b < d->nbr_blocks(); ++b) {
        const symmetric_skyline_block* view = d->find_block(b);
        const unsigned n = view->nbr_values();
        for (unsigned k = 0; k < n; ++k) z += view->values[k] == 0.0;
    }
    return z;
}

} // namespace kelt::core
