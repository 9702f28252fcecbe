// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat2.h"

#include <algorithm>

#include "numeric/fast/elimination.h"

namespace orvel {

// Column with the largest element of a row, the first one on ties.
static int largest_in_row(int n, const complex* row) {
    int c = 0;
    for (int j = 1; j < n; ++j)
        if (c_abs(row[j]) > c_abs(row[c]))
            c = j;
    return c;
}

// Columns c and m change places, and rows 0 and m.
static void exchange_to_last(int n, int c, complex** a) {
    const int m = n - 1;
    for (int i = 0; i < n; ++i)
        std::swap(a[i][c], a[i][m]);
    if (m > 0)
        std::swap_ranges(a[0], a[0] + n, a[m]);
}

// The elimination step by step, in place, up to a pivot that does not count.
static void eliminate_to_pivot(int n, double tolerance, complex** a) {
    const int m = n - 1;
    for (int k = 0; k < m; ++k) {
        int p = k;
        for (int i = k; i < m; ++i)
            p = c_abs(a[i][k]) > c_abs(a[p][k]) ? i : p;
        std::swap(a[p][k], a[k][k]);
        if (c_abs(a[k][k]) <= tolerance)
            return;
        for (int i = k + 1; i < n; ++i)
            a[i][k] = c_div({-a[i][k].re, -a[i][k].im}, a[k][k]);
        for (int j = k + 1; j < n; ++j) {
            std::swap(a[p][j], a[k][j]);
            for (int i = k + 1; i < n; ++i)
                a[i][j] = c_add(a[i][j], c_mul(a[i][k], a[k][j]));
        }
    }
}

// Solves U x = e_m for the upper triangle of a. The sums over what is known already are formed for
// some rows at a time.
static void solve_upper(int n, planes a, split_vector known, complex* x) {
    for (int end = n; end > 0; end -= group) {
        const int first = std::max(end - group, 0);
        complex sum[group];
        times_vector(end - first, n - end, at(a, first, end), at(known, end), sum);
        for (int k = end - 1; k >= first; --k) {
            complex right = k == n - 1 ? complex{1.0, 0.0} : complex{-sum[k - first].re, -sum[k - first].im};
            for (int j = k + 1; j < end; ++j)
                right = c_sub(right, c_mul(element(a, k, j), x[j]));
            x[k] = c_div(right, element(a, k, k));
            set_element(known, k, x[k]);
        }
    }
}

void inverse(int n, complex** a, complex* x, double tolerance, int& info, scratch& room) {
    const int small_last_pivot = 30000;
    info = 0;
    if (n < 1)
        return;
    const int m = n - 1;
    const scratch_mark begin = mark_scratch(room);
    const elimination e = new_elimination(room, n, n, m, false);
    const int c = largest_in_row(n, a[0]);
    exchange_to_last(n, c, a);
    to_planes(n, n, a, e.a);
    if (!eliminate(e, tolerance)) {
        eliminate_to_pivot(n, tolerance, a);
        to_planes(n, n, a, e.a);
    }
    if (c_abs(element(e.a, m, m)) <= tolerance)
        info = small_last_pivot;
    solve_upper(n, e.a, take_zero_vector(room, n), x);
    std::swap(x[c], x[m]);
    release_scratch(room, begin);
}

} // namespace orvel
