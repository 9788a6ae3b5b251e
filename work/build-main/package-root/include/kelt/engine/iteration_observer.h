// The link between an iterative kernel of the engine and whoever runs it: the
// kernel reports through it and asks it whether to go on, and knows nothing more
// of its caller.
#pragma once

namespace kelt::core {

// What an iterative kernel tells its caller and asks of it, between iterations.
class iteration_observer {
public:
    virtual ~iteration_observer() = default;
    virtual void log(unsigned level, const char* line) = 0;      // a whole line, with its end
    virtual bool stop_requested() = 0;                             // true: end now, no error
    virtual void iteration(unsigned k, double residual_norm) = 0; // after each iteration
};

} // namespace kelt::core
