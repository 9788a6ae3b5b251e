#include "kelt/core/numerical_models_mgr.h"

#include <algorithm>
#include <new>

namespace kelt::core {

namespace {
// A model the registry lets go no longer reaches its context.
void detach(std::vector<Ptr<numerical_model_base>>& gone)
{
    for (auto& m : gone)
        if (m) m->context = nullptr;
}
} // namespace

numerical_models_mgr::~numerical_models_mgr()
{
    std::vector<Ptr<numerical_model_base>> gone;
    {
        omp_guard guard(lock);
        gone.swap(models);
    }
    detach(gone);
}

void numerical_models_mgr::clear()
{
    // The models are released once the lock is free.
    std::vector<Ptr<numerical_model_base>> gone;
    {
        omp_guard guard(lock);
        gone.swap(models);
        next_ID = 0;
        free_IDs.clear();
        FE_offsets.clear();
    }
    detach(gone);
}

bool numerical_models_mgr::set_nbr_elements(unsigned model, unsigned n)
{
    const unsigned size = FE_offsets.size();
    if (std::uint64_t(model) + 1 < size) {
        const unsigned old = FE_offsets[model + 1] - FE_offsets[model];
        if (n != old)
            for (unsigned i = model + 1; i < size; ++i) FE_offsets[i] += n - old; // modulo 2^32, exact
        return true;
    }
    const unsigned last = size ? FE_offsets[size - 1] : 0;
    if (!FE_offsets.reserve(model + 2, 2)) return false;
    if (!FE_offsets.push_back_n(last, model + 1 - size)) return false;
    FE_offsets.push_back(last + n);
    return true;
}

error_type numerical_models_mgr::record(numerical_model_base* model, unsigned& ID, unsigned nbr_elements)
{
    omp_guard guard(lock);
    unsigned slot = ID;
    const bool fresh = slot == none;
    const bool reused = fresh && !free_IDs.empty();
    if (fresh) slot = reused ? free_IDs[free_IDs.size() - 1] : next_ID;
    if (slot == none) return invalid_data_error; // the numbers are exhausted
    try {
        if (slot >= models.size()) models.resize(std::size_t(slot) + 1);
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    if (!set_nbr_elements(slot, nbr_elements)) return memory_error;
    if (models[slot] && models[slot].get() != model) models[slot]->context = nullptr;
    models[slot] = model;
    if (reused) (void)free_IDs.resize(free_IDs.size() - 1); // shrinking cannot fail
    // An identifier given by the caller past the counter moves it too, so that no
    // later model gets the same one.
    if (slot >= next_ID) next_ID = slot + 1;
    ID = slot;
    return no_error;
}

void numerical_models_mgr::free_ID(unsigned ID)
{
    Ptr<numerical_model_base> gone;
    {
        omp_guard guard(lock);
        // Only a slot that holds a model has an identifier to give back.
        if (ID >= models.size() || !models[ID] || std::uint64_t(ID) + 1 >= FE_offsets.size()) return;
        if (!free_IDs.reserve(free_IDs.size() + 1, 2)) return;
        gone = models[ID];
        models[ID] = nullptr;
        if (gone) gone->ID = no_model, gone->context = nullptr;
        (void)set_nbr_elements(ID, 0); // a known range shrinks in place: cannot fail
        free_IDs.push_back(ID);
    }
}

unsigned numerical_models_mgr::global_FE_ID(unsigned ID) const noexcept
{
    return std::uint64_t(ID) + 1 < FE_offsets.size() ? FE_offsets[ID] : none;
}

std::pair<unsigned, unsigned> numerical_models_mgr::global_FE_ID_range(unsigned ID) const noexcept
{
    if (std::uint64_t(ID) + 1 >= FE_offsets.size()) return {none, none};
    return {FE_offsets[ID], FE_offsets[ID + 1]};
}

std::pair<unsigned, unsigned> numerical_models_mgr::local_FE_ID(unsigned global) const noexcept
{
    // The first entry above `global` ends the range that holds it; among equal
    // entries (models with no element) the last one starts that range.
    const unsigned* first = FE_offsets.begin();
    const unsigned* end = FE_offsets.end();
    const unsigned* above = std::upper_bound(first, end, global);
    if (above == end || above == first) return {none, none};
    const unsigned model = unsigned(above - first) - 1;
    return {model, global - FE_offsets[model]};
}

} // namespace kelt::core
