// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat2.h"

#include <algorithm>

#include "numeric/lb_rows.h"

namespace orvel {

// Column with the largest element of a row, the first one on ties.
static int largest_in_row(int n, const complex* row) {
    int c = 0;
    for (int j = 1; j < n; ++j)
        if (c_abs(row[j]) > c_abs(row[c]))
            c = j;
    return c;
}

// Elimination below the diagonal; row m = n - 1 takes no part in the pivoting.
ORVEL_VECTOR_CLONES
static void eliminate_rows(int n, complex** a, double tolerance) {
    const int m = n - 1;
    for (int k = 0; k < m; ++k) {
        const int p = largest_in_column(k, m, k, a);
        std::swap(a[p][k], a[k][k]);
        if (c_abs(a[k][k]) <= tolerance)
            return;
        if (p != k)
            std::swap_ranges(a[p] + k + 1, a[p] + n, a[k] + k + 1);
        for (int i = k + 1; i < n; ++i) {
            a[i][k] = c_div({-a[i][k].re, -a[i][k].im}, a[k][k]);
            row_add(n - k - 1, a[i] + k + 1, a[i][k], a[k] + k + 1);
        }
    }
}

void inverse(int n, complex** a, complex* x, double tolerance, int& info) {
    const int small_last_pivot = 30000;
    info = 0;
    if (n < 1)
        return;
    const int m = n - 1;
    const int c = largest_in_row(n, a[0]);
    for (int i = 0; i < n; ++i)
        std::swap(a[i][c], a[i][m]);
    if (m > 0)
        std::swap_ranges(a[0], a[0] + n, a[m]);
    eliminate_rows(n, a, tolerance);
    if (c_abs(a[m][m]) <= tolerance)
        info = small_last_pivot;

    x[m] = c_div({1.0, 0.0}, a[m][m]);
    for (int k = n - 2; k >= 0; --k) {
        complex sum;
        row_sums<1>(a + k, k + 1, n, 1, x, &sum);
        x[k] = c_div({-sum.re, -sum.im}, a[k][k]);
    }
    std::swap(x[c], x[m]);
}

} // namespace orvel
