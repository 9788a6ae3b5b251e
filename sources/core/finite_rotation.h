// Finite rotations of a node carried as a rotation vector theta: the turn is
// Lambda = exp(hat theta) = I + a hat theta + b hat theta^2, and the rate of turn
// along a line, in the turned frame, is T(theta)^T theta' with
// T = I + b hat theta + c hat theta^2, where s = |theta|^2 and
// a = sin t / t, b = (1 - cos t) / s, c = (t - sin t) / (s t), t = sqrt s.
// Written on any scalar type (double or a jet) so that the strains of a line
// of finite rotations come with their exact derivatives.
#pragma once

#include <array>
#include <cmath>

#include "kelt/math/jet.h"

namespace kelt::core {

// 1 / m! for m = 0 .. 19, the coefficients of the series below.
inline constexpr auto inverse_factorial = [] {
    std::array<double, 20> r{};
    double f = 1.0;
    for (unsigned m = 0; m < r.size(); ++m) {
        f *= m > 1 ? double(m) : 1.0;
        r[m] = 1.0 / f;
    }
    return r;
}();

// a, b, c of the turn as functions of s = |theta|^2: near 0 their series, whose
// derivatives stay exact where the closed forms cancel.
template <class T>
void turn_coefficients(const T& s, T& a, T& b, T& c)
{
    using std::cos, std::sin, std::sqrt;
    if (value_of(s) < 0.25) {
        // a = sum (-s)^k / (2k+1)!, b = sum (-s)^k / (2k+2)!, c = sum (-s)^k / (2k+3)!
        // up to s^8, by Horner: at s = 1/4 the next term is below 1e-25.
        constexpr unsigned last = 8;
        const double sign = last % 2 ? -1.0 : 1.0;
        a = T(sign * inverse_factorial[2 * last + 1]);
        b = T(sign * inverse_factorial[2 * last + 2]);
        c = T(sign * inverse_factorial[2 * last + 3]);
        for (unsigned k = last; k-- > 0;) {
            const double sk = k % 2 ? -1.0 : 1.0;
            a = a * s + T(sk * inverse_factorial[2 * k + 1]);
            b = b * s + T(sk * inverse_factorial[2 * k + 2]);
            c = c * s + T(sk * inverse_factorial[2 * k + 3]);
        }
        return;
    }
    const T t = sqrt(s), st = sin(t);
    a = st / t;
    b = (T(1.0) - cos(t)) / s;
    c = (t - st) / (s * t);
}

// v - k theta x v + m theta x (theta x v): Lambda^T v for (k, m) = (a, b),
// T^T v for (k, m) = (b, c).
template <class T>
void turn_transposed(const T (&theta)[3], const T& k, const T& m, const T (&v)[3], T (&out)[3])
{
    const T w[3] = {theta[1] * v[2] - theta[2] * v[1], theta[2] * v[0] - theta[0] * v[2],
                    theta[0] * v[1] - theta[1] * v[0]};
    const T ww[3] = {theta[1] * w[2] - theta[2] * w[1], theta[2] * w[0] - theta[0] * w[2],
                     theta[0] * w[1] - theta[1] * w[0]};
    for (unsigned i = 0; i < 3; ++i) out[i] = v[i] - k * w[i] + m * ww[i];
}

// The strains of a straight line of finite rotations along local x, in the
// turned frame, from the displacement gradient du, the rotation vector r and
// its gradient dr: in the order axial, bending y, bending z, torsion, shear y,
// shear z, Gamma = Lambda^T (e_x + du) - e_x and K = T^T dr.
template <class T>
void finite_line_strains(const T (&du)[3], const T (&r)[3], const T (&dr)[3], T (&e)[6])
{
    const T s = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
    T a, b, c;
    turn_coefficients(s, a, b, c);
    const T x[3] = {T(1.0) + du[0], du[1], du[2]};
    T gamma[3], kappa[3];
    turn_transposed(r, a, b, x, gamma);
    turn_transposed(r, b, c, dr, kappa);
    e[0] = gamma[0] - T(1.0);
    e[1] = kappa[1];
    e[2] = kappa[2];
    e[3] = kappa[0];
    e[4] = gamma[1];
    e[5] = gamma[2];
}

} // namespace kelt::core
