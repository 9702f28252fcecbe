// SPDX-License-Identifier: MIT
//
// cbal and cbabk2: balancing, and its way back on the vectors.
#include <algorithm>
#include <cmath>

#include "control/settings.h"
#include "numeric/lb_eigmat2.h"

namespace orvel {

// Elements that count as zero when eigenvalues are isolated; NaN is one.
static bool negligible(complex z) { return !(std::fabs(z.re) > eps || std::fabs(z.im) > eps); }

static bool row_is_isolated(int j, int l, const complex* const* a) {
    for (int i = 0; i < l; ++i)
        if (i != j && !negligible(a[j][i]))
            return false;
    return true;
}

static bool column_is_isolated(int j, int k, int l, const complex* const* a) {
    for (int i = k; i < l; ++i)
        if (i != j && !negligible(a[i][j]))
            return false;
    return true;
}

void matexchange_rowcol(int n, int j, int k, int l, int m, complex** a) {
    if (j == m)
        return;
    for (int i = 0; i < l; ++i)
        std::swap(a[i][j - 1], a[i][m - 1]);
    std::swap_ranges(a[j - 1] + (k - 1), a[j - 1] + n, a[m - 1] + (k - 1));
}

// Pushes rows that isolate an eigenvalue to the bottom of rows 1..l, and lowers l: each search
// runs upward from row l. False when the last row went, so that nothing is left to balance.
static bool isolate_rows(int n, complex** a, int& l, double* scale) {
    for (int j = l; j >= 1; --j) {
        if (!row_is_isolated(j - 1, l, a))
            continue;
        scale[l] = j;
        matexchange_rowcol(n, j, 1, l, l, a);
        if (l == 1)
            return false;
        j = l--; // the loop goes on with the new l
    }
    return true;
}

// Pushes columns that isolate an eigenvalue to the left of columns k..l, and raises k.
static void isolate_columns(int n, complex** a, int& k, int l, double* scale) {
    for (int j = k; j <= l; ++j) {
        if (!column_is_isolated(j - 1, k - 1, l, a))
            continue;
        scale[k] = j;
        matexchange_rowcol(n, j, k, l, k, a);
        j = k++; // the loop goes on with the new k
    }
}

// The power of 16 that makes column and row sums c and r most alike, or 1 if it gains too little.
// Sums that are zero or infinite have none: the loops would not end.
static double balancing_factor(double c, double r) {
    const double radix = 16.0;
    const double worth = 0.95; // a smaller gain in c + r is not worth the work
    if (c < eps || r < eps || c == 0.0 || r == 0.0 || std::isinf(c) || std::isinf(r))
        return 1.0;
    const double sum = c + r;
    double f = 1.0;
    if (c < r / radix) {
        for (; c < r / radix; c *= radix * radix)
            f *= radix;
    } else {
        for (; c >= r * radix; c /= radix * radix)
            f /= radix;
    }
    return (c + r) / f < worth * sum ? f : 1.0;
}

// x *= f for n elements.
static void scale_by(int n, double f, complex* x) {
    for (int j = 0; j < n; ++j)
        x[j] = {f * x[j].re, f * x[j].im};
}

// One pass of balancing over rows and columns k..l. True if it has scaled anything.
static bool balance_once(int n, int k, int l, complex** a, double* scale) {
    bool scaled = false;
    for (int i = k - 1; i < l; ++i) {
        double c = 0.0;
        double r = 0.0;
        for (int j = k - 1; j < l; ++j) {
            if (j == i)
                continue;
            c = c + std::fabs(a[j][i].re) + std::fabs(a[j][i].im);
            r = r + std::fabs(a[i][j].re) + std::fabs(a[i][j].im);
        }
        const double f = balancing_factor(c, r);
        if (f == 1.0)
            continue;
        scaled = true;
        scale[i + 1] *= f;
        scale_by(n - (k - 1), 1.0 / f, a[i] + (k - 1));
        for (int j = 0; j < l; ++j)
            a[j][i] = {a[j][i].re * f, a[j][i].im * f};
    }
    return scaled;
}

void cbal(int n, complex** a, int& low, int& igh, double* scale) {
    low = 1;
    igh = n;
    if (!isolate_rows(n, a, igh, scale))
        return;
    isolate_columns(n, a, low, igh, scale);
    for (int i = low; i <= igh; ++i)
        scale[i] = 1.0;
    while (balance_once(n, low, igh, a, scale))
        ;
}

void cbabk2(int n, int low, int igh, const double* scale, int m, complex** eigen_vec) {
    if (igh != low) {
        for (int i = low; i <= igh; ++i)
            scale_by(m, scale[i], eigen_vec[i - 1]);
    }
    const auto exchange_back = [&](int i) { // undoes one exchange of cbal
        const int k = static_cast<int>(scale[i]);
        if (k != i)
            std::swap_ranges(eigen_vec[i - 1], eigen_vec[i - 1] + m, eigen_vec[k - 1]);
    };
    for (int i = low - 1; i >= 1; --i)
        exchange_back(i);
    for (int i = igh + 1; i <= n; ++i)
        exchange_back(i);
}

} // namespace orvel
