#include "kelt/core/DOFs_mgr.h"

#include <algorithm>
#include <bit>

namespace kelt::core {

namespace {

constexpr unsigned no_place = 0xFFFFFFFFu;

// First place of a field within a node, no_place for a foreign tag.
constexpr unsigned first_place(field_tag f) noexcept
{
    switch (f) {
    case displacement_tag: return place_x;
    case rotation_tag: return place_rx;
    case temperature_tag: return place_temperature;
    }
    return no_place;
}

constexpr unsigned words_for(unsigned n) noexcept { return (n >> 5) + ((n & 31) != 0); }

} // namespace

// ---- packed_bits ----------------------------------------------------------

void packed_bits::fill(unsigned from, unsigned to, bool state) noexcept
{
    while (from < to) {
        const unsigned lo = from & 31;
        const unsigned hi = std::min(32u, lo + (to - from));
        const unsigned mask = (hi == 32 ? ~0u : (1u << hi) - 1) & ~((1u << lo) - 1);
        if (state)
            words[from >> 5] |= mask;
        else
            words[from >> 5] &= ~mask;
        from += hi - lo;
    }
}

bool packed_bits::resize(unsigned n, bool state)
{
    if (n <= size) {
        if (n & 31) words[n >> 5] &= (1u << (n & 31)) - 1;
        if (!words.resize(words_for(n))) return false; // shrinking: cannot fail
        size = n;
        return true;
    }
    // Words added by the container come zeroed, which keeps the tail clear.
    if (!words.resize(words_for(n))) return false;
    const unsigned old = size;
    size = n;
    fill(old, n, state);
    return true;
}

unsigned packed_bits::count() const noexcept
{
    unsigned n = 0;
    for (unsigned w : words) n += unsigned(std::popcount(w));
    return n;
}

void packed_bits::clear() noexcept
{
    words.clear();
    size = 0;
}

// ---- DOFs_mgr -------------------------------------------------------------

unsigned DOFs_mgr::ID(unsigned node, field_tag f, unsigned comp) noexcept
{
    const unsigned first = first_place(f);
    if (first == no_place) return no_ID;
    return place_ID(node, f == temperature_tag ? first : std::uint64_t(first) + comp);
}

unsigned DOFs_mgr::nbr_nodes() const noexcept
{
    // A shrinking resize may leave more added nodes than the table holds.
    const unsigned all = bits.size / nbr_places;
    return all > added_nodes.size() ? all - added_nodes.size() : 0;
}

unsigned DOFs_mgr::nbr_DOFs(bool state) const noexcept
{
    const unsigned set_bits = bits.count();
    return state ? set_bits : bits.size - set_bits;
}

void DOFs_mgr::clear() noexcept
{
    bits.clear();
    added_nodes.clear();
}

void DOFs_mgr::resize(unsigned nodes, bool state)
{
    const std::uint64_t n = std::uint64_t(nodes) * nbr_places;
    if (n > 0xFFFFFFFFull) return;
    (void)bits.resize(unsigned(n), state);
}

unsigned DOFs_mgr::add_node(unsigned regular_node)
{
    const std::uint64_t n = std::uint64_t(bits.size) + nbr_places;
    if (n > 0xFFFFFFFFull) return no_ID;
    // Room for the entry first, so that the bits never grow without it.
    if (!added_nodes.reserve(added_nodes.size() + 1, 2)) return no_ID;
    if (!bits.resize(unsigned(n), false)) return no_ID;
    added_nodes.push_back(regular_node);
    return unsigned(n / nbr_places) - 1;
}

error_type DOFs_mgr::set(unsigned ID, bool state) noexcept
{
    if (ID >= bits.size) return invalid_data_error;
    bits.put(ID, state);
    return no_error;
}

error_type DOFs_mgr::set(unsigned node, field_tag f, unsigned comp, bool state) noexcept
{
    const unsigned id = ID(node, f, comp);
    if (id >= bits.size) return invalid_data_error;
    bits.put(id, state);
    return no_error;
}

error_type DOFs_mgr::set(unsigned node, field_tag f, bool state) noexcept
{
    const unsigned first = ID(node, f, 0);
    if (first >= bits.size) return invalid_data_error;
    // The size is a multiple of 9, so the whole field lies inside once its first
    // place does.
    bits.fill(first, first + (f == temperature_tag ? 1 : 3), state);
    return no_error;
}

error_type DOFs_mgr::set(unsigned node, field_tag f, unsigned c1, unsigned c2, bool state) noexcept
{
    if (f != displacement_tag && f != rotation_tag) return invalid_data_error;
    if (c1 > 2 || c2 > 2) return invalid_data_error;
    const unsigned first = ID(node, f, 0);
    if (first >= bits.size) return invalid_data_error;
    bits.put(first + c1, state);
    bits.put(first + c2, state);
    return no_error;
}

error_type DOFs_mgr::get(unsigned ID, bool& state) const noexcept
{
    state = false;
    if (ID >= bits.size) return invalid_data_error;
    state = bits.get(ID);
    return no_error;
}

error_type DOFs_mgr::get(unsigned node, field_tag f, unsigned comp, bool& state) const noexcept
{
    state = false;
    const unsigned id = ID(node, f, comp);
    if (id >= bits.size) return invalid_data_error;
    state = bits.get(id);
    return no_error;
}

void DOFs_mgr::get_info(unsigned ID, unsigned& node, field_tag& f, unsigned& comp, bool map_added) const noexcept
{
    node = ID / nbr_places;
    const unsigned place = ID % nbr_places;
    f = place < 3 ? displacement_tag : place < 6 ? rotation_tag : temperature_tag;
    // Not place % 3 per field: places 7 and 8 report components 1 and 2.
    comp = ID % 3;
    if (!map_added) return;
    const unsigned regular = nbr_nodes();
    // Identifiers past the table are answered without mapping rather than read
    // out of bounds.
    if (node >= regular && node - regular < added_nodes.size()) node = added_nodes[node - regular];
}

void DOFs_mgr::copy_IDs(dense1D<unsigned, 8>& ids, bool state) const
{
    const unsigned n = nbr_DOFs(state);
    // Growth by push_back remains the fallback when the reservation fails.
    if (std::uint64_t(ids.size()) + n <= 0xFFFFFFFFull) (void)ids.reserve(ids.size() + n, 2);
    const unsigned nbr_words = words_for(bits.size);
    for (unsigned k = 0; k < nbr_words; ++k) {
        unsigned w = state ? bits.words[k] : ~bits.words[k];
        if (k + 1 == nbr_words && (bits.size & 31)) w &= (1u << (bits.size & 31)) - 1;
        while (w) {
            ids.push_back(k * 32 + unsigned(std::countr_zero(w)));
            w &= w - 1;
        }
    }
}

} // namespace kelt::core
