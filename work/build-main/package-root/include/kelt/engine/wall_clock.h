// Seconds from a millisecond wall clock: the time stamps of every run log.
#pragma once

#include <chrono>

namespace kelt::core {

inline double wall_clock() noexcept
{
    using namespace std::chrono;
    const auto ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return double(ms / 1000) + 0.001 * double(ms % 1000);
}

} // namespace kelt::core
