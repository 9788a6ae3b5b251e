// What a run tells its host: the log lines with their levels, and an interrupt
// handler that says stop at a chosen call.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kelt::test {

struct log_capture {
    std::vector<std::pair<unsigned, std::string>> lines;
    int interrupt_at = -1; // the call of the interrupt handler that says stop, from 0
    int interrupt_calls = 0;
    std::vector<std::pair<unsigned, double>> iterations; // (load case, residual) per reported iteration

    // True when a line starts with `start`.
    bool has(const std::string& start) const;
    // The text after the colon of the first line that contains `key`.
    std::string value_of(const std::string& key) const;
};

void capture(void* user, unsigned level, const char* text);
bool interrupt(void* user);

// Points the callbacks of a solver's settings at `c`.
template <class Settings>
void report_to(Settings& settings, log_capture& c)
{
    settings.log_hdl = capture;
    settings.interrupt_hdl = interrupt;
    settings.user_data = &c;
}

} // namespace kelt::test
