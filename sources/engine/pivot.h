// Pivot policies of the factorisation. A policy is a type, so the kernel is built
// once per policy and no call per pivot is virtual. Each records the extremes of
// the pivots met (before any replacement) and what it did about a bad one; the log
// lines are kept and written by the caller's thread after the parallel work.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

#include "kelt/core/types.h"

namespace kelt::core {

struct dummy_verboser {
    void log(unsigned, const char*, ...) const {}
};

struct pivot_event {
    unsigned index;
    double value;
    double replacement;
    bool replaced;
};

class pivot_checker_base {
public:
    double min_value = DBL_MAX;
    double max_value = -DBL_MAX;
    unsigned min_index = 0xFFFFFFFFu;
    unsigned max_index = 0xFFFFFFFFu;
    unsigned bad_index = 0xFFFFFFFFu;
    double replacement = 1.0;
    std::vector<pivot_event> events; // bad pivots, in the order met

    void record(double value, unsigned index) noexcept
    {
        // Ties go to the lower position, so that merging copies in any order agrees.
        if (value < min_value || (value == min_value && index < min_index)) min_value = value, min_index = index;
        if (value > max_value || (value == max_value && index < max_index)) max_value = value, max_index = index;
    }
    void merge(const pivot_checker_base& o)
    {
        if (o.min_index != 0xFFFFFFFFu) record(o.min_value, o.min_index);
        if (o.max_index != 0xFFFFFFFFu) record(o.max_value, o.max_index);
        if (o.bad_index < bad_index) bad_index = o.bad_index;
        events.insert(events.end(), o.events.begin(), o.events.end());
    }
    // Fresh statistics, same settings.
    void reset_statistics() noexcept
    {
        min_value = DBL_MAX, max_value = -DBL_MAX;
        min_index = max_index = bad_index = 0xFFFFFFFFu;
        events.clear();
    }

protected:
    error_type reject(double value, unsigned index)
    {
        if (index < bad_index) bad_index = index;
        events.push_back({index, value, 0.0, false});
        return pivot_error;
    }
    // A replaced pivot; a value that is not finite still stops the factorisation.
    error_type replace(double& value, unsigned index, double by)
    {
        events.push_back({index, value, by, true});
        if (!std::isfinite(value)) {
            if (index < bad_index) bad_index = index;
            return pivot_error;
        }
        value = by;
        return no_error;
    }
};

// Bad: infinite, not a number, or at most 0. Stops.
struct pivot_check_positive : pivot_checker_base {
    error_type check(double& d, unsigned index)
    {
        record(d, index);
        return std::isfinite(d) && d > 0.0 ? no_error : reject(d, index);
    }
};

// Bad as above; replaced by `replacement` and the factorisation goes on.
struct pivot_force_positive : pivot_checker_base {
    error_type check(double& d, unsigned index)
    {
        record(d, index);
        return std::isfinite(d) && d > 0.0 ? no_error : replace(d, index, replacement);
    }
};

// Bad: infinite, not a number or exactly 0; negative pivots pass.
struct pivot_force_definite : pivot_checker_base {
    error_type check(double& d, unsigned index)
    {
        record(d, index);
        return std::isfinite(d) && d != 0.0 ? no_error : replace(d, index, replacement);
    }
};

// Bad also when far below the smallest pivot so far; the replacement is random so
// that a singular direction does not stay singular.
struct pivot_force_positive_rnd : pivot_checker_base {
    std::mt19937* generator = nullptr;

    error_type check(double& d, unsigned index)
    {
        const bool tiny = min_value < 1000000.0 && d < min_value * 1e-12;
        const bool bad = !std::isfinite(d) || d <= 0.0 || tiny;
        const double seen = d;
        if (!bad) {
            record(d, index);
            return no_error;
        }
        const double r = generator ? double((*generator)()) : 0.0;
        double by = std::fmax(std::fabs(d), 0.001 * max_value) * r * 2.3283064370807974e-10;
        if (!(by > 0.0)) by = 1.0;
        const error_type e = replace(d, index, by);
        record(seen, index);
        return e;
    }
};

// For the diagnosis of a singular matrix: bad also when the pivot has lost all but
// `tolerance` of its row's diagonal, which is what the pivot of a zero-energy
// mode keeps after rounding, whatever its sign; replaced by that diagonal, so
// that the rest of the factor keeps its scale.
struct pivot_force_relative : pivot_checker_base {
    const double* diagonal = nullptr; // of the matrix before factorisation, by position
    double tolerance = 1e-10;

    error_type check(double& d, unsigned index)
    {
        record(d, index);
        const double a = diagonal ? diagonal[index] : 1.0;
        if (std::isfinite(d) && d > tolerance * std::fabs(a)) return no_error;
        return replace(d, index, a > 0.0 ? a : 1.0);
    }
};

// Sturm count: replaces silently and counts the pivots below (or at) a bound.
template <bool or_equal>
struct count_n_force_definite : pivot_checker_base {
    double bound = 0.0;
    unsigned count = 0;

    error_type check(double& d, unsigned index)
    {
        record(d, index);
        if (or_equal ? d <= bound : d < bound) ++count;
        if (std::isfinite(d) && d != 0.0) return no_error;
        if (!std::isfinite(d)) {
            if (index < bad_index) bad_index = index;
            return pivot_error;
        }
        d = replacement;
        return no_error;
    }
    void merge(const count_n_force_definite& o)
    {
        pivot_checker_base::merge(o);
        count += o.count;
    }
};

// Writes the kept events to a log, in matrix order.
template <class Log>
void log_pivot_events(std::vector<pivot_event> events, Log&& log)
{
    std::stable_sort(events.begin(), events.end(),
                     [](const pivot_event& a, const pivot_event& b) { return a.index < b.index; });
    char line[256];
    for (const pivot_event& e : events) {
        if (e.replaced)
            std::snprintf(line, sizeof line, "Bad pivot detected: %+E. Replaced with: %+E\n", e.value, e.replacement);
        else
            std::snprintf(line, sizeof line, "Bad pivot detected: %+E.\n", e.value);
        log(3, line);
    }
}

} // namespace kelt::core
