// The entry every fuzz target defines, and a reader that turns the fuzzer's bytes
// into the choices of a host: once the bytes run out every read gives 0, so any
// input is a complete description.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kelt::fuzz {

class byte_reader {
public:
    byte_reader(const std::uint8_t* data, std::size_t size) : p(data), end(data + size) {}

    std::uint8_t u8() noexcept { return p != end ? *p++ : 0; }
    // A number below n (n > 0).
    unsigned below(unsigned n) noexcept { return u8() % n; }
    std::uint32_t u32() noexcept
    {
        std::uint32_t v = 0;
        for (unsigned k = 0; k < 4; ++k) v = (v << 8) | u8();
        return v;
    }
    bool flag() noexcept { return u8() & 1; }
    // Mostly ordinary values, sometimes the ones that break arithmetic.
    double real() noexcept
    {
        switch (const std::uint8_t b = u8(); b >> 4) {
        case 0: return 0.0;
        case 1: return std::numeric_limits<double>::quiet_NaN();
        case 2: return (b & 1 ? -1 : 1) * std::numeric_limits<double>::infinity();
        case 3: return (b & 1 ? -1 : 1) * 1e308;
        case 4: return (b & 1 ? -1 : 1) * 1e-300;
        case 5: {
            double d;
            const std::uint64_t bits = (std::uint64_t(u32()) << 32) | u32();
            std::memcpy(&d, &bits, sizeof d);
            return d;
        }
        default: return (int(b & 15) - 7) * 0.25 + (b >> 4) * 10.0;
        }
    }
    bool empty() const noexcept { return p == end; }

private:
    const std::uint8_t* p;
    const std::uint8_t* end;
};

} // namespace kelt::fuzz
