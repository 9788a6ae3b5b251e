// Second-order jets: a value with its gradient and Hessian over N variables,
// carried through arithmetic by the chain rule. Elements whose strains are
// awkward closed forms of their unknowns (finite rotations) write the strains
// once on jets and read the exact first and second derivatives from them.
#pragma once

#include <cmath>

namespace kelt {

template <unsigned N>
struct jet2 {
    double v = 0.0;
    double g[N] = {};
    double h[N][N] = {};

    jet2() = default;
    jet2(double value) : v(value) {} // NOLINT: constants mix freely with jets

    // The variable number i, at value x.
    static jet2 variable(unsigned i, double x)
    {
        jet2 r(x);
        r.g[i] = 1.0;
        return r;
    }

    jet2& operator+=(const jet2& b)
    {
        v += b.v;
        for (unsigned i = 0; i < N; ++i) {
            g[i] += b.g[i];
            for (unsigned j = 0; j < N; ++j) h[i][j] += b.h[i][j];
        }
        return *this;
    }
    jet2& operator-=(const jet2& b) { return *this += -b; }
    jet2& operator*=(double s)
    {
        v *= s;
        for (unsigned i = 0; i < N; ++i) {
            g[i] *= s;
            for (unsigned j = 0; j < N; ++j) h[i][j] *= s;
        }
        return *this;
    }
    jet2 operator-() const
    {
        jet2 r = *this;
        return r *= -1.0;
    }
};

template <unsigned N>
jet2<N> operator+(jet2<N> a, const jet2<N>& b)
{
    return a += b;
}
template <unsigned N>
jet2<N> operator-(jet2<N> a, const jet2<N>& b)
{
    return a -= b;
}
template <unsigned N>
jet2<N> operator*(jet2<N> a, double s)
{
    return a *= s;
}
template <unsigned N>
jet2<N> operator*(double s, jet2<N> a)
{
    return a *= s;
}
template <unsigned N>
jet2<N> operator*(const jet2<N>& a, const jet2<N>& b)
{
    jet2<N> r(a.v * b.v);
    for (unsigned i = 0; i < N; ++i) {
        r.g[i] = a.v * b.g[i] + b.v * a.g[i];
        for (unsigned j = 0; j < N; ++j)
            r.h[i][j] = a.v * b.h[i][j] + b.v * a.h[i][j] + a.g[i] * b.g[j] + b.g[i] * a.g[j];
    }
    return r;
}

// f(a) from f, f' and f'' at a.v.
template <unsigned N>
jet2<N> compose(const jet2<N>& a, double f, double df, double d2f)
{
    jet2<N> r(f);
    for (unsigned i = 0; i < N; ++i) {
        r.g[i] = df * a.g[i];
        for (unsigned j = 0; j < N; ++j) r.h[i][j] = df * a.h[i][j] + d2f * a.g[i] * a.g[j];
    }
    return r;
}

template <unsigned N>
jet2<N> operator/(const jet2<N>& a, const jet2<N>& b)
{
    const double inv = 1.0 / b.v;
    return a * compose(b, inv, -inv * inv, 2.0 * inv * inv * inv);
}
template <unsigned N>
jet2<N> sqrt(const jet2<N>& a)
{
    const double s = std::sqrt(a.v);
    return compose(a, s, 0.5 / s, -0.25 / (s * a.v));
}
template <unsigned N>
jet2<N> sin(const jet2<N>& a)
{
    return compose(a, std::sin(a.v), std::cos(a.v), -std::sin(a.v));
}
template <unsigned N>
jet2<N> cos(const jet2<N>& a)
{
    return compose(a, std::cos(a.v), -std::sin(a.v), -std::cos(a.v));
}

inline double value_of(double x) { return x; }
template <unsigned N>
double value_of(const jet2<N>& x)
{
    return x.v;
}

} // namespace kelt
