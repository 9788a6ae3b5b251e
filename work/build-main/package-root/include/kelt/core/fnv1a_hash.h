// FNV-1a over the four bytes of a 32-bit key, low byte first: the hash of the
// tables keyed by identifiers, fixed so that their walks do not depend on the
// standard library's hash.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelt::core {

struct fnv1a_hash {
    std::size_t operator()(unsigned key) const noexcept
    {
        std::uint32_t h = 2166136261u;
        for (unsigned b = 0; b < 4; ++b) {
            h ^= (key >> (8 * b)) & 0xFFu;
            h *= 16777619u;
        }
        return h;
    }
};

} // namespace kelt::core
