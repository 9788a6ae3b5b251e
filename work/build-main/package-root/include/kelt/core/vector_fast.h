// vector_fast: DOF identifiers in rank order, with a hash table from identifier to
// rank. Once a numbering has run, a rank is a matrix position. Row lists are
// shared by the matrices that have the same rows, hence the count.
#pragma once

#include <cstdint>
#include <vector>

#include "kelt/core/ref_counted.h"
#include "kelt/math/dense1D.h"

namespace kelt {

class vector_fast : public ref_counted {
public:
    static constexpr unsigned none = 0xFFFFFFFFu;

    unsigned size() const noexcept { return ids_.size(); }
    bool empty() const noexcept { return ids_.size() == 0; }
    // Identifier at a rank.
    unsigned operator[](unsigned rank) const noexcept { return ids_[rank]; }
    const dense1D<unsigned, 8>& IDs() const noexcept { return ids_; }

    // Rank of an identifier, `none` when absent.
    unsigned rank(unsigned ID) const noexcept
    {
        if (slots_.empty()) return none;
        const unsigned mask = unsigned(slots_.size()) - 1;
        for (unsigned s = ID & mask;; s = (s + 1) & mask) {
            const slot& e = slots_[s];
            if (e.ID == ID) return e.rank;
            if (e.ID == none) return none;
        }
    }
    bool contains(unsigned ID) const noexcept { return rank(ID) != none; }

    // Appends an identifier not yet present and returns its rank (the existing rank
    // if present). `none` for the identifier `none` or when memory fails.
    unsigned push_back(unsigned ID)
    {
        if (ID == none) return none;
        if (const unsigned r = rank(ID); r != none) return r;
        if (2ull * (ids_.size() + 1) > slots_.size() && !rehash(2 * (ids_.size() + 1))) return none;
        const unsigned r = ids_.size();
        if (!ids_.reserve(r + 1, 2)) return none;
        ids_.push_back(ID);
        insert(ID, r);
        return r;
    }

    // Replaces the content by identifiers in rank order; duplicates keep their first rank.
    [[nodiscard]] bool assign(const unsigned* IDs, unsigned n)
    {
        clear();
        if (!ids_.reserve(n, 1) || !rehash(2ull * n)) return false;
        for (unsigned i = 0; i < n; ++i)
            if (IDs[i] != none && rank(IDs[i]) == none) {
                insert(IDs[i], ids_.size());
                ids_.push_back(IDs[i]);
            }
        return true;
    }

    void clear()
    {
        ids_.clear();
        for (slot& e : slots_) e = slot();
    }

private:
    struct slot {
        unsigned ID = none;
        unsigned rank = none;
    };

    void insert(unsigned ID, unsigned r) noexcept
    {
        const unsigned mask = unsigned(slots_.size()) - 1;
        unsigned s = ID & mask;
        while (slots_[s].ID != none) s = (s + 1) & mask;
        slots_[s] = {ID, r};
    }

    bool rehash(std::uint64_t wanted)
    {
        std::uint64_t buckets = 8;
        while (buckets < wanted) buckets *= 2;
        if (buckets <= slots_.size()) return true;
        if (buckets > 0x80000000ull) return false;
        std::vector<slot> old;
        old.swap(slots_);
        slots_.assign(std::size_t(buckets), slot());
        for (const slot& e : old)
            if (e.ID != none) insert(e.ID, e.rank);
        return true;
    }

    dense1D<unsigned, 8> ids_;
    std::vector<slot> slots_;
};

} // namespace kelt
