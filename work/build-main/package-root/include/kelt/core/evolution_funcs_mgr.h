// Evolution functions: scalar functions of time that scale loads and prescribed
// values, and the manager that hands out their indices.
#pragma once

#include <algorithm>
#include <limits>
#include <new>
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

// The create_ operations, written once for the manager and its public handle: each
// builds a function and hands it to Self::add, which returns its index, size() - 1.
// Self::slots gives the functions named by a list of indices, an index at or past
// the end leaving an empty slot. Allocation failures throw std::bad_alloc.
template <class Self>
class evolution_funcs_creation {
public:
    unsigned create_cste(double c) { return self().add(new evolution_func_constant(c)); }
    unsigned create_linear(double a) { return self().add(new evolution_func_linear(a)); }
    unsigned create_sinus(double omega, double phi) { return self().add(new evolution_func_sinus(omega, phi)); }
    // A spike of height 1 at center falling to 0 at center +- width / 2; width <= 0
    // leaves the spike alone.
    unsigned create_triangle(double center, double width)
    {
        const double slope = width <= 0.0 ? std::numeric_limits<double>::lowest() : -2.0 / width;
        return self().add(new evolution_func_triangle(center, slope));
    }
    // From v0 at t0 towards v1 at t1, t1 excluded; 0 everywhere unless t1 > t0.
    unsigned create_trapeze(double t0, double t1, double v0, double v1)
    {
        double a = 0.0, b = 0.0;
        if (t1 > t0) {
            a = (v1 - v0) / (t1 - t0);
            b = (t1 * v0 - t0 * v1) / (t1 - t0);
        }
        return self().add(new evolution_func_trapeze(t0, t1, a, b));
    }
    // Piecewise linear through the points, constant outside; times must increase.
    unsigned create_discret(const dense1D<double, 8>& times, const dense1D<double, 8>& values)
    {
        return self().add(new evolution_func_discret(times, values));
    }
    // An unknown index leaves a slot worth 1.0. Coefficients beyond the IDs are
    // ignored and missing ones are 0.
    unsigned create_sum(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& coefficients)
    {
        Ptr<evolution_func_sum> sum = new evolution_func_sum;
        sum->funcs = self().slots(IDs);
        // Evaluation reads one coefficient per function: the sizes are matched here.
        if (!sum->coefficients.resize(IDs.size(), 0.0)) throw std::bad_alloc();
        std::copy_n(coefficients.begin(), std::min(IDs.size(), coefficients.size()), sum->coefficients.begin());
        return self().add(sum.get());
    }
    // Product; an unknown index is a factor 1.0, and an empty list gives 0.
    unsigned create_mult(const dense1D<unsigned, 8>& IDs)
    {
        Ptr<evolution_func_mult> mult = new evolution_func_mult;
        mult->funcs = self().slots(IDs);
        return self().add(mult.get());
    }

private:
    Self& self() noexcept { return static_cast<Self&>(*this); }
};

// Index 0 is the constant 1 and index 1 the time itself, from construction on and
// through clear().
class evolution_funcs_mgr : public ref_counted, public evolution_funcs_creation<evolution_funcs_mgr> {
public:
    evolution_funcs_mgr();

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

    // The index of a new function, which the manager then holds.
    unsigned add(evolution_func_base* f);
    std::vector<Ptr<evolution_func_base>> slots(const dense1D<unsigned, 8>& IDs) const;

    std::vector<Ptr<evolution_func_base>> funcs;
};

} // namespace kelt::core
