// How a model moves its laws' states in and out of a store: the defaults of the
// model interface, written in terms of the per-element operations.
#include "kelt/elements/internal_states.h"

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
