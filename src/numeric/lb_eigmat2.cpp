// SPDX-License-Identifier: MIT
#include "numeric/lb_eigmat2.h"

#include <algorithm>
#include <cmath>

#include "control/settings.h"

namespace orvel {

// Far from the limits of the number range the plain root is as good as the iteration, at a tenth of
// the time.
double pythag(double a, double b) {
    const double smallest = 1e-280;
    const double largest = 1e280;
    const double squares = a * a + b * b;
    if (squares > smallest && squares < largest)
        return std::sqrt(squares);
    const double x = std::fabs(a);
    const double y = std::fabs(b);
    double p = x > y ? x : y;
    double r = (x > y ? y : x) / p;
    if (!(r <= 1.0))
        return x + y; // both zero, both infinite, or NaN
    r *= r;
    for (double t = 4.0 + r; t != 4.0; t = 4.0 + r) {
        const double s = r / t;
        const double u = 1.0 + 2.0 * s;
        p *= u;
        r *= (s / u) * (s / u);
    }
    return p;
}

complex csroot(complex z) {
    const double s = std::sqrt(0.5 * (pythag(z.re, z.im) + std::fabs(z.re)));
    const double signed_s = z.im < 0.0 ? -s : s;
    if (z.re > 0.0)
        return {s, 0.5 * (z.im / s)};
    if (z.re < 0.0)
        return {0.5 * (z.im / signed_s), signed_s};
    return {s, signed_s};
}

static void reorder(int n, const int* from, complex* x, complex* before) {
    std::copy(x, x + n, before);
    for (int j = 0; j < n; ++j)
        x[j] = before[from[j]];
}

void sort_eigval_eigvec(int n, complex* eigen_val, complex** eigen_vec, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    int* from = take<int>(room, to_size(n));
    complex* before = take<complex>(room, to_size(n));
    for (int i = 0; i < n; ++i) {
        int place = 0;
        while (place < i && !(eigen_val[from[place]].re < eigen_val[i].re))
            ++place;
        std::copy_backward(from + place, from + i, from + i + 1);
        from[place] = i;
    }
    reorder(n, from, eigen_val, before);
    for (int i = 0; i < n; ++i)
        reorder(n, from, eigen_vec[i], before);
    release_scratch(room, begin);
}

void eispack_cg(int n, double tolerance, complex** a, complex* eigen_val, complex** eigen_vec, scratch& room) {
    eps = tolerance;
    if (n < 1)
        return;
    const scratch_mark begin = mark_scratch(room);
    double* scale = take<double>(room, to_size(n) + 1);
    double* ortr = take<double>(room, to_size(n) + 1);
    double* orti = take<double>(room, to_size(n) + 1);
    std::fill(ortr, ortr + n + 1, 0.0);
    std::fill(orti, orti + n + 1, 0.0);
    int low, igh;
    cbal(n, a, low, igh, scale);
    corth(n, low, igh, a, ortr, orti, room);
    comqr2(n, low, igh, ortr, orti, a, eigen_val, eigen_vec, room);
    cbabk2(n, low, igh, scale, n, eigen_vec);
    sort_eigval_eigvec(n, eigen_val, eigen_vec, room);
    release_scratch(room, begin);
}

} // namespace orvel
