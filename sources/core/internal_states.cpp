// How a model moves its states in and out of a store (the defaults of the model
// interface, written in terms of the per-element operations), and the live states
// of one model.
#include "kelt/core/internal_states.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "kelt/core/numerical_model_base.h"

namespace kelt::core {

bool numerical_model_base::layout_internal_states(internal_states_block& block) const
{
    block.clear();
    (void)block.offsets.resize(1, 0u);
    return false;
}

error_type numerical_model_base::set_element_states(unsigned, const dense1D<double, 8>&) { return no_error; }

error_type numerical_model_base::get_element_states(internal_states_block&, unsigned) const { return no_error; }

error_type numerical_model_base::set_internal_states(const internal_states& store)
{
    if (!has_internal_states()) return no_error;
    const internal_states_block* block = store.find(ID);
    const dense1D<double, 8> none;
    const unsigned n = nbr_elements();
    error_type first = no_error;
    for (unsigned e = 0; e < n; ++e) {
        const error_type err = set_element_states(e, block ? block->slice(e) : none);
        if (first == no_error) first = err;
    }
    return first;
}

error_type numerical_model_base::get_internal_states(internal_states& store) const
{
    if (!has_internal_states()) return no_error;
    try {
        internal_states_block block;
        if (!layout_internal_states(block)) {
            store.erase(ID);
            return no_error;
        }
        const unsigned n = nbr_elements();
        for (unsigned e = 0; e < n; ++e)
            if (auto err = get_element_states(block, e); err != no_error) return err;
        store.at(ID) = block;
        return no_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
}

} // namespace kelt::core

namespace kelt::core {

bool element_states_store::allocate(unsigned n, unsigned stride)
{
    if (std::uint64_t(n) * stride > 0xFFFFFFFFull) return false;
    const unsigned size = n * stride;
    if (stride == stride_ && committed_.size() == size && trial_.size() == size) return true;
    dense1D<double, 8> committed, trial;
    if (!committed.resize(size, 0.0) || !trial.resize(size, 0.0)) return false;
    stride_ = stride;
    committed_ = committed;
    trial_ = trial;
    return true;
}

const double* element_states_store::committed(unsigned element) const noexcept
{
    if (element >= nbr_elements()) return nullptr;
    return committed_.data() + std::size_t(element) * stride_;
}

double* element_states_store::trial(unsigned element) noexcept
{
    if (element >= nbr_elements()) return nullptr;
    return trial_.data() + std::size_t(element) * stride_;
}

void element_states_store::set(unsigned element, const double* values) noexcept
{
    if (element >= nbr_elements()) return;
    double* c = committed_.data() + std::size_t(element) * stride_;
    double* t = trial_.data() + std::size_t(element) * stride_;
    for (unsigned k = 0; k < stride_; ++k) c[k] = t[k] = values ? values[k] : 0.0;
}

bool element_states_store::has_state(unsigned element) const noexcept
{
    const double* c = committed(element);
    if (!c) return false;
    return std::any_of(c, c + stride_, [](double v) { return v != 0.0; });
}

void element_states_store::commit() noexcept { std::copy(trial_.begin(), trial_.end(), committed_.data()); }

void element_states_store::rollback() noexcept { std::copy(committed_.begin(), committed_.end(), trial_.data()); }

void element_states_store::clear() noexcept
{
    committed_ = 0.0;
    trial_ = 0.0;
}

} // namespace kelt::core
