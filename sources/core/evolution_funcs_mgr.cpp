#include "kelt/core/evolution_funcs_mgr.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace kelt::core {

namespace {

dense1D<double, 8> deep_copy(const dense1D<double, 8>& src)
{
    dense1D<double, 8> out;
    if (!out.copy(src)) throw std::bad_alloc();
    return out;
}

} // namespace

double evolution_func_constant::value(double) const { return c; }

double evolution_func_linear::value(double t) const { return a * t; }

double evolution_func_sinus::value(double t) const { return std::sin(omega * t + phi); }

double evolution_func_triangle::value(double t) const
{
    const double v = 1.0 + slope * std::fabs(t - center);
    return v > 0.0 ? v : 0.0; // also 0 for a NaN
}

double evolution_func_trapeze::value(double t) const { return t0 <= t && t < t1 ? a * t + b : 0.0; }

evolution_func_discret::evolution_func_discret(const dense1D<double, 8>& times_, const dense1D<double, 8>& values_)
    : times(deep_copy(times_)), values(deep_copy(values_))
{
}

double evolution_func_discret::value(double t) const
{
    const unsigned n = times.size();
    const unsigned m = values.size();
    if (n == 0 || m == 0) return 0.0;
    if (n == 1) return values[0];
    const unsigned k = unsigned(std::upper_bound(times.begin(), times.end(), t) - times.begin());
    double r = 1.0;
    unsigned i = 0;
    if (k == n)
        i = n - 1;
    else if (k > 0) {
        r = (times[k] - t) / (times[k] - times[k - 1]);
        i = k - 1;
    }
    if (i + 1 < m) return r * (values[i] - values[i + 1]) + values[i + 1];
    return values[m - 1];
}

double evolution_func_sum::value(double t) const
{
    double sum = 0.0;
    for (unsigned i = 0; i < funcs.size(); ++i) sum += coefficients[i] * (funcs[i] ? funcs[i]->value(t) : 1.0);
    return sum;
}

double evolution_func_mult::value(double t) const
{
    if (funcs.empty()) return 0.0;
    double product = 1.0;
    for (const auto& f : funcs)
        if (f) product *= f->value(t);
    return product;
}

evolution_funcs_mgr::evolution_funcs_mgr()
{
    add(new evolution_func_constant(1.0));
    add(new evolution_func_linear(1.0));
}

unsigned evolution_funcs_mgr::add(evolution_func_base* f)
{
    funcs.push_back(Ptr<evolution_func_base>(f));
    return size() - 1;
}

std::vector<Ptr<evolution_func_base>> evolution_funcs_mgr::slots(const dense1D<unsigned, 8>& IDs) const
{
    std::vector<Ptr<evolution_func_base>> out(IDs.size());
    for (unsigned i = 0; i < IDs.size(); ++i)
        if (IDs[i] < funcs.size()) out[i] = funcs[IDs[i]];
    return out;
}

void evolution_funcs_mgr::clear() { funcs.resize(2); }

double evolution_funcs_mgr::value(unsigned index, double t) const
{
    return index < funcs.size() ? funcs[index]->value(t) : 0.0;
}

} // namespace kelt::core
