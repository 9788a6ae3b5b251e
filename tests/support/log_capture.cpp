#include "log_capture.h"

#include <algorithm>

namespace kelt::test {

bool log_capture::has(const std::string& start) const
{
    return std::any_of(lines.begin(), lines.end(), [&](const auto& l) { return l.second.rfind(start, 0) == 0; });
}

std::string log_capture::value_of(const std::string& key) const
{
    for (const auto& l : lines)
        if (l.second.find(key) != std::string::npos) return l.second.substr(l.second.find(':') + 1);
    return "";
}

void capture(void* user, unsigned level, const char* text)
{
    static_cast<log_capture*>(user)->lines.emplace_back(level, text);
}

bool interrupt(void* user)
{
    auto* c = static_cast<log_capture*>(user);
    return c->interrupt_calls++ == c->interrupt_at;
}

} // namespace kelt::test
