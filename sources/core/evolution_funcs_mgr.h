// Evolution functions: scalar functions of time that scale loads and prescribed
// values, and the manager that hands out their indices.
#pragma once

#include <vector>

#include "kelt/core/ref_counted.h"
#include "kelt/math/dense1D.h"

namespace kelt::core {

class evolution_func_base : public ref_counted {
public:
    virtual double value(double t) const = 0;
};

class evolution_func_constant : public evolution_func_base {
public:
    explicit evolution_func_constant(double c_) : c(c_) {}
    double value(double t) const override;

    double c;
};

class evolution_func_linear : public evolution_func_base {
public:
    explicit evolution_func_linear(double a_) : a(a_) {}
    double value(double t) const override;

    double a;
};

// sin(omega t + phi).
class evolution_func_sinus : public evolution_func_base {
public:
    evolution_func_sinus(double omega_, double phi_) : omega(omega_), phi(phi_) {}
    double value(double t) const override;

    double omega;
    double phi;
};

// 1 + slope |t - center| where that is strictly positive, else 0.
class evolution_func_triangle : public evolution_func_base {
public:
    evolution_func_triangle(double center_, double slope_) : center(center_), slope(slope_) {}
    double value(double t) const override;

    double center;
    double slope;
};

// a t + b on [t0, t1), 0 elsewhere.
class evolution_func_trapeze : public evolution_func_base {
public:
    evolution_func_trapeze(double t0_, double t1_, double a_, double b_) : t0(t0_), t1(t1_), a(a_), b(b_) {}
    double value(double t) const override;

    double t0;
    double t1;
    double a;
    double b;
};

// Piecewise linear through (times[i], values[i]), constant outside the times;
// `times` must increase. Past the end of a shorter `values`, its last value holds.
class evolution_func_discret : public evolution_func_base {
public:
    // Deep copies of both; throws std::bad_alloc when memory fails.
    evolution_func_discret(const dense1D<double, 8>& times_, const dense1D<double, 8>& values_);
    double value(double t) const override;

    dense1D<double, 8> times;
    dense1D<double, 8> values;
};

// Sum of coefficients[i] value_i(t); an empty slot counts as 1.0. No terms: 0.
class evolution_func_sum : public evolution_func_base {
public:
    double value(double t) const override;

    std::vector<Ptr<evolution_func_base>> funcs;
    dense1D<double, 8> coefficients; // as many as funcs
};

// Product of value_i(t); an empty slot counts as 1.0. No factors: 0, not 1.
class evolution_func_mult : public evolution_func_base {
public:
    double value(double t) const override;

    std::vector<Ptr<evolution_func_base>> funcs;
};

// Index 0 is the constant 1 and index 1 the time itself, from construction on and
// through clear(). Each create_ returns the new index, size() - 1. Allocation
// failures throw std::bad_alloc, as the growth of the function list does.
class evolution_funcs_mgr : public ref_counted {
public:
    evolution_funcs_mgr();

    unsigned create_cste(double c);
    unsigned create_linear(double a);
    unsigned create_sinus(double omega, double phi);
    // A spike of height 1 at center falling to 0 at center +- width / 2; width <= 0
    // leaves the spike alone.
    unsigned create_triangle(double center, double width);
    // From v0 at t0 towards v1 at t1, t1 excluded; 0 everywhere unless t1 > t0.
    unsigned create_trapeze(double t0, double t1, double v0, double v1);
    unsigned create_discret(const dense1D<double, 8>& times, const dense1D<double, 8>& values);
    // An index at or past the end leaves an empty slot. Coefficients beyond the IDs are ignored and missing ones are 0.
    unsigned create_sum(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& coefficients);
    unsigned create_mult(const dense1D<unsigned, 8>& IDs);

    unsigned size() const noexcept { return unsigned(funcs.size()); }
    // Keeps the two permanent functions.
    void clear();
    // Null when out of range.
    const evolution_func_base* get(unsigned index) const noexcept
    {
        return index < funcs.size() ? funcs[index].get() : nullptr;
    }
    // 0.0 when out of range.
    double value(unsigned index, double t) const;

    std::vector<Ptr<evolution_func_base>> funcs;

private:
    unsigned add(evolution_func_base* f);
    std::vector<Ptr<evolution_func_base>> slots(const dense1D<unsigned, 8>& IDs) const;
};

} // namespace kelt::core
