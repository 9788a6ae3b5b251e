// The table of degrees of freedom: one bit per DOF identifier (set = free,
// clear = blocked), every node owning the same nine places.
#pragma once

#include <cstdint>

#include "kelt/core/ref_counted.h"
#include "kelt/core/types.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

// A growable bit vector packed 32 to a word, bit i at position i % 32 of word
// i / 32. Bits of the last word past `size` stay clear, so counting needs no mask
// and a later growth never brings back a value cut off before.
struct packed_bits {
    dense1D<unsigned, 8> words;
    unsigned size = 0;

    bool get(unsigned i) const noexcept { return (words[i >> 5] >> (i & 31)) & 1u; }
    void put(unsigned i, bool state) noexcept
    {
        const unsigned mask = 1u << (i & 31);
        if (state)
            words[i >> 5] |= mask;
        else
            words[i >> 5] &= ~mask;
    }
    // Bits [from, to) to `state`; both below `size`.
    void fill(unsigned from, unsigned to, bool state) noexcept;
    // New bits get `state`, old ones keep their value. False, unchanged, when
    // memory runs out.
    [[nodiscard]] bool resize(unsigned n, bool state);
    unsigned count() const noexcept;
    void clear() noexcept;
};

// The places of a node's stride: three translations, three rotations, the
// temperature; places 7 and 8 keep the stride at 9 and carry no field.
enum DOF_place : unsigned {
    place_x = 0,
    place_y = 1,
    place_z = 2,
    place_rx = 3,
    place_ry = 4,
    place_rz = 5,
    place_temperature = 6,
};

class DOFs_mgr : public ref_counted {
public:
    static constexpr unsigned no_ID = 0xFFFFFFFFu;
    static constexpr unsigned nbr_places = 9;

    DOFs_mgr() = default;
    DOFs_mgr(unsigned nodes, bool state) { resize(nodes, state); }

    // The identifier of `place` of `node`, or no_ID when node * 9 + place does not
    // fit in 32 bits: a large node must not wrap onto a small one. Every
    // identifier formed from a node goes through here.
    static constexpr unsigned place_ID(unsigned node, std::uint64_t place) noexcept
    {
        const std::uint64_t id = std::uint64_t(node) * nbr_places + place;
        return id < no_ID ? unsigned(id) : no_ID;
    }
    // place_ID of the field's first place plus `comp` (temperature has one place);
    // no_ID for a tag that is no field or an identifier that does not fit.
    static unsigned ID(unsigned node, field_tag f, unsigned comp) noexcept;
    static unsigned stride() noexcept { return nbr_places; }
    static unsigned DOF_STRIDE() noexcept { return nbr_places; }

    unsigned size() const noexcept { return bits.size; }
    // Regular nodes only: the added ones sit behind them.
    unsigned nbr_nodes() const noexcept;
    unsigned nbr_DOFs(bool state) const noexcept;

    void clear() noexcept;
    // Memory failure leaves the table as it was, unreported: a later `set` on the
    // missing nodes then fails.
    void resize(unsigned nodes, bool state);
    // Appends a node that stands for `regular_node`, all its DOFs blocked.
    // Returns the number of the new node, or no_ID when memory runs out.
    unsigned add_node(unsigned regular_node);

    [[nodiscard]] error_type set(unsigned ID, bool state) noexcept;
    [[nodiscard]] error_type set(unsigned node, field_tag f, unsigned comp, bool state) noexcept;
    [[nodiscard]] error_type set(unsigned node, field_tag f, bool state) noexcept;
    [[nodiscard]] error_type set(unsigned node, field_tag f, unsigned c1, unsigned c2, bool state) noexcept;
    [[nodiscard]] error_type get(unsigned ID, bool& state) const noexcept;
    [[nodiscard]] error_type get(unsigned node, field_tag f, unsigned comp, bool& state) const noexcept;

    void get_info(unsigned ID, unsigned& node, field_tag& f, unsigned& comp, bool map_added) const noexcept;
    void copy_IDs(dense1D<unsigned, 8>& ids, bool state) const;

    packed_bits bits;
    // For each added node, the regular node it stands for.
    dense1D<unsigned, 8> added_nodes;
};

} // namespace kelt::core
