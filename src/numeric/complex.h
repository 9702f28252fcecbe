// SPDX-License-Identifier: MIT
//
// Complex scalar arithmetic: a record of two doubles, passed by value, with free functions that
// inline into the innermost loops of the solver. Nothing is trapped: infinities and NaN travel.
#pragma once

#include <cmath>

namespace orvel {

struct complex {
    double re;
    double im;
};

constexpr double pi = 3.141592653589793;
constexpr double two_pi = 6.283185307179586;

inline complex c_conv(double re, double im) { return {re, im}; }

inline complex c_conj(complex z) { return {z.re, -z.im}; }

inline complex c_add(complex z1, complex z2) { return {z1.re + z2.re, z1.im + z2.im}; }

inline complex c_sub(complex z1, complex z2) { return {z1.re - z2.re, z1.im - z2.im}; }

inline complex c_mul(complex z1, complex z2) {
    return {z1.re * z2.re - z1.im * z2.im, z1.re * z2.im + z1.im * z2.re};
}

// z1 / z2 by Smith's scaled division (Commun. ACM 5 (1962) 435); a zero divisor is not tested.
inline complex c_div(complex z1, complex z2) {
    if (std::fabs(z2.re) >= std::fabs(z2.im)) {
        const double r = z2.im / z2.re;
        const double den = z2.re + z2.im * r;
        return {(z1.re + z1.im * r) / den, (z1.im - z1.re * r) / den};
    }
    const double r = z2.re / z2.im;
    const double den = z2.im + z2.re * r;
    return {(z1.re * r + z1.im) / den, (z1.im * r - z1.re) / den};
}

// Modulus without overflow of the squares.
inline double c_abs(complex z) {
    const double x = std::fabs(z.re);
    const double y = std::fabs(z.im);
    if (x == 0.0)
        return y;
    if (y == 0.0)
        return x;
    const double big = y > x ? y : x;
    const double ratio = y > x ? x / y : y / x;
    return big * std::sqrt(1.0 + ratio * ratio);
}

// Re^2 + Im^2.
inline double c_norm(complex z) { return z.re * z.re + z.im * z.im; }

// Argument in radians, in the range of atan2.
inline double c_arg(complex z) { return std::atan2(z.im, z.re); }

inline complex c_exp(complex z) {
    const double r = std::exp(z.re);
    return {r * std::cos(z.im), r * std::sin(z.im)};
}

// Square root with non-negative real part; a negative real number, whatever the sign of its zero,
// has its root on the positive imaginary axis. The root of zero is zero.
inline complex c_sqrt(complex z) {
    const double half_sqrt = 0.7071067811865476; // 1/sqrt(2)
    const double w = std::sqrt(c_abs(z) + std::fabs(z.re));
    if (w == 0.0)
        return {0.0, 0.0};
    if (z.re >= 0.0)
        return {half_sqrt * w, half_sqrt * z.im / w};
    return {half_sqrt * std::fabs(z.im) / w, z.im >= 0.0 ? half_sqrt * w : -half_sqrt * w};
}

} // namespace orvel
