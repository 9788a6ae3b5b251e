// What an iterative kernel tells its caller and asks of it, between iterations: the
// engine knows no solver record, so a solver hands it one of these.
#pragma once

namespace kelt::core {

class iteration_observer {
public:
    virtual ~iteration_observer() = default;
    virtual void log(unsigned level, const char* line) = 0;      // a whole line, with its end
    virtual bool stop_requested() = 0;                             // true: end now, no error
    virtual void iteration(unsigned k, double residual_norm) = 0; // after each iteration
};

} // namespace kelt::core
