// Public handle on the context's evolution functions: scalar functions of time,
// referred to by index, that scale loads and prescribed values.
#pragma once

#include "kelt/fem/base_class.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

class context;

// Index 0 is the constant 1 and index 1 the time itself; they survive clear().
// Each create_ returns the index of the new function, size() - 1.
class evolution_funcs_mgr : public base_class {
public:
    unsigned create_cste(double c);
    unsigned create_linear(double a);
    // sin(omega t + phi).
    unsigned create_sinus(double omega, double phi);
    // 1 at center, falling linearly to 0 at center +- width / 2; width <= 0 leaves a
    // spike of height 1 at center alone.
    unsigned create_triangle(double center, double width);
    // Linear from v0 at t0 towards v1 at t1 on [t0, t1), 0 elsewhere and everywhere
    // unless t1 > t0.
    unsigned create_trapeze(double t0, double t1, double v0, double v1);
    // Piecewise linear through the points, constant outside; times must increase.
    unsigned create_discret(const dense1D<double, 8>& times, const dense1D<double, 8>& values);
    // An unknown index leaves a slot worth 1.0. Extra coefficients are ignored and missing ones are 0.
    unsigned create_sum(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& coefficients);
    // Product; an unknown index is a factor 1.0, and an empty list gives 0.
    unsigned create_mult(const dense1D<unsigned, 8>& IDs);

    unsigned size() const;
    void clear();
    // Value of function `index` at time t; 0.0 for an index out of range.
    double value(unsigned index, double t) const;

protected:
    evolution_funcs_mgr() = default;
    friend class context;
};

} // namespace kelt::fem
