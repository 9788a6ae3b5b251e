// The internal states of the laws: the live states of one model (committed and
// trial values of every element and point), and the store in which solvers keep
// them between runs and steps (per model identifier, one block of values with a
// slice per element that has states).
#pragma once

#include <cstdint>
#include <unordered_map>

#include "kelt/core/fnv1a_hash.h"
#include "kelt/core/ref_counted.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

// Element e owns values[offsets[e]] to values[offsets[e + 1]]: a slice of one stride
// when it has states, an empty one when it has none.
struct internal_states_block {
    unsigned stride = 0;
    dense1D<unsigned, 8> offsets;
    dense1D<double, 8> values;

    void clear()
    {
        stride = 0;
        offsets.clear();
        values.clear();
    }
    unsigned nbr_elements() const noexcept { return offsets.size() ? offsets.size() - 1 : 0; }
    // The element's slice when it is exactly one stride wide, else an empty one.
    dense1D<double, 8> slice(unsigned element) const
    {
        if (element + 1 >= offsets.size() || offsets[element + 1] - offsets[element] != stride || stride == 0 ||
            offsets[element + 1] > values.size())
            return dense1D<double, 8>(values.buffer(), values.offset(), 0);
        return values.sub_vector(offsets[element], stride);
    }
};

// The blocks of the store, by model identifier.
using model_ID_hash = fnv1a_hash;

// The states of every (element, integration point) of one model, `stride` values
// an element. Element passes read the committed values and write the trial ones,
// each element its own slice only, so that threads need no lock. Allocated when
// first needed, zero at start; a state of zeros is the virgin material's.
class element_states_store {
public:
    bool allocated() const noexcept { return committed_.size() != 0; }
    unsigned stride() const noexcept { return stride_; }
    unsigned nbr_elements() const noexcept { return stride_ ? committed_.size() / stride_ : 0; }
    // Sizes both sets to zeros unless they already have this shape; false when
    // memory fails (the store is then left unallocated) or the size overflows.
    [[nodiscard]] bool allocate(unsigned nbr_elements, unsigned stride);
    // Null when the store is not allocated or the element is out of range.
    const double* committed(unsigned element) const noexcept;
    double* trial(unsigned element) noexcept;
    // Both values of the element: from `values` (stride of them), or zeros.
    void set(unsigned element, const double* values) noexcept;
    // True when some committed value of the element is not zero.
    bool has_state(unsigned element) const noexcept;
    void commit() noexcept;   // committed := trial
    void rollback() noexcept; // trial := committed
    void clear() noexcept;    // both := 0

private:
    unsigned stride_ = 0;
    dense1D<double, 8> committed_;
    dense1D<double, 8> trial_;
};

class internal_states : public ref_counted {
public:
    // Null when the model has no block.
    const internal_states_block* find(unsigned model) const
    {
        const auto it = blocks.find(model);
        return it == blocks.end() ? nullptr : &it->second;
    }
    // The model's block, created empty if absent. Throws std::bad_alloc.
    internal_states_block& at(unsigned model) { return blocks[model]; }
    void erase(unsigned model) { blocks.erase(model); }
    void clear() { blocks.clear(); }
    unsigned size() const noexcept { return unsigned(blocks.size()); }

private:
    std::unordered_map<unsigned, internal_states_block, model_ID_hash> blocks;
};

} // namespace kelt::core
