// SPDX-License-Identifier: MIT
#include "tds_integral.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace orvel::tables {

constexpr double pi = 3.14159265358979323846;
constexpr double s_end = 1e4; // outer limit of |s'|; what lies beyond is below 1e-8 of J

elastic_fit read_elastic_fit(const csv_table& kirkland, std::size_t row) {
    elastic_fit fit{3, 3, {}, {}, {}, {}};
    double* const terms[] = {fit.a, fit.b, fit.c, fit.d};
    for (std::size_t t = 0; t < 4; ++t)
        for (int i = 0; i < 3; ++i)
            terms[t][i] = csv_number(
                kirkland, row, csv_column(kirkland, ("abcd"[t] + std::to_string(i + 1)).c_str()));
    return fit;
}

double elastic_factor(const elastic_fit& fit, double s) {
    const double q2 = 4.0 * s * s;
    double f = 0.0;
    for (int i = 0; i < fit.num_lorentz; ++i)
        f += fit.a[i] / (q2 + fit.b[i]);
    for (int i = 0; i < fit.num_gauss; ++i)
        f += fit.c[i] * std::exp(-fit.d[i] * q2);
    return f;
}

double elastic_limit(const elastic_fit& fit) { return (fit.a[0] + fit.a[1] + fit.a[2]) / 4.0; }

// J(0, B) = integral of 2 pi r^2 f(r)^2 [1 - exp(-2 B r^2)] dt with r = exp(t): the trapezoidal
// rule of a smooth function that vanishes at both ends converges exponentially.
static double tds_integral_forward(const elastic_fit& fit, double B, int refine) {
    constexpr double r_begin = 1e-6;
    const int steps = 2000 * refine;
    const double dt = std::log(s_end / r_begin) / steps;
    double sum = 0.0;
    for (int i = 0; i <= steps; ++i) {
        const double r = r_begin * std::exp(i * dt);
        const double f = elastic_factor(fit, r);
        const double weight = i == 0 || i == steps ? 0.5 : 1.0;
        sum -= weight * r * r * f * f * std::expm1(-2.0 * B * r * r);
    }
    return 2.0 * pi * dt * sum;
}

// Elliptic coordinates u, v with the points s' = -s/2 and +s/2 as foci take the peaks of f out of
// the integrand: r1 = (s/2)(cosh u + cos v), r2 = (s/2)(cosh u - cos v), d^2s' = r1 r2 du dv and
// s'^2 - s^2/4 = (s/2)^2 (sinh^2 u - sin^2 v). It is even in u, and even about v = 0 and pi/2, so
// the trapezoidal rule over one quadrant converges exponentially.
double tds_integral(const elastic_fit& fit, double s, double B, int refine) {
    if (s == 0.0)
        return tds_integral_forward(fit, B, refine);
    const int steps_u = 200 * refine;
    const int steps_v = 32 * refine;
    const double du = std::acosh(std::max(50.0, 2.0 * s_end / s)) / steps_u;
    const double dv = pi / 2.0 / steps_v;
    double sum = 0.0;
    for (int i = 0; i <= steps_u; ++i) {
        const double sinh_u = std::sinh(i * du);
        const double sinh_half = std::sinh(i * du / 2.0);
        double row = 0.0;
        for (int j = 0; j <= steps_v; ++j) {
            const double sin_v = std::sin(j * dv);
            const double sin_half = std::sin(j * dv / 2.0);
            const double r2 = s * (sinh_half * sinh_half + sin_half * sin_half);
            const double r1 = r2 + s * std::cos(j * dv);
            const double exponent = B * s * s / 2.0 * (sinh_u * sinh_u - sin_v * sin_v);
            const double weight = j == 0 || j == steps_v ? 0.5 : 1.0;
            row -= weight * r1 * r2 * elastic_factor(fit, r1) * elastic_factor(fit, r2) *
                   std::expm1(-exponent);
        }
        sum += i == 0 || i == steps_u ? 0.5 * row : row;
    }
    return 4.0 * du * dv * sum;
}

// In polar coordinates about the middle of the two foci the bracket depends on r alone, and the
// integral over the angle of 1 / (r1^2 r2^2) is 2 pi / ((r^2 + 1/4) |r^2 - 1/4|). With
// y = |r^2 - 1/4| outside (y > 0) and inside (y < 1/4) the circle through the foci
//   G = pi integral_0^inf (1 - exp(-2 M y)) / (y (y + 1/2)) dy
//     - pi integral_0^1/4 (exp(2 M y) - 1) / (y (1/2 - y)) dy.
// y = exp(t) outside and y = 1 / (4 (1 + exp(-t))) inside make both vanish at both ends as
// exp(-|t|), where the trapezoidal rule converges exponentially.
double tds_limit(double M) {
    constexpr double t_end = 45.0;
    constexpr int steps = 1800;
    constexpr double dt = 2.0 * t_end / steps;
    double sum = 0.0;
    for (int i = 0; i <= steps; ++i) {
        const double e = std::exp(-t_end + i * dt);
        const double y = e / (1.0 + e) / 4.0;
        sum -= std::expm1(-2.0 * M * e) / (e + 0.5);
        sum -= std::expm1(2.0 * M * y) / (0.5 - y) / (1.0 + e);
    }
    return pi * dt * sum;
}

} // namespace orvel::tables
