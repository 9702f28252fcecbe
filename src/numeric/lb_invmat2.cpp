// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "numeric/elimination.h"
#include "numeric/vecmat.h"

namespace orvel {

// Column with the largest element of a row, the first one on ties.
static int largest_in_row(int n, const complex* row) {
    int c = 0;
    for (int j = 1; j < n; ++j)
        if (c_abs(row[j]) > c_abs(row[c]))
            c = j;
    return c;
}

// The matrix with columns c and m exchanged, and rows 0 and m.
static void load_exchanged(int n, const complex* const* a, int c, planes p) {
    const int m = n - 1;
    for (int i = 0; i < n; ++i) {
        const planes row = part(p, i, 0);
        const int from = i == m ? 0 : (i == 0 ? m : i);
        split_row(n, a[from], row.re, row.im);
        std::swap(row.re[c], row.re[m]);
        std::swap(row.im[c], row.im[m]);
    }
}

// Solves U x = e_m for the upper triangle of a. The sums over what is known already are formed for
// some rows at a time.
static void back_substitute(int n, planes a, complex* x) {
    const int together = 4; // as times_vector wants it
    const planes known = work_planes(slot_a, 1, n);
    for (int end = n; end > 0; end -= together) {
        const int first = std::max(end - together, 0);
        complex sum[together];
        const planes behind = part(known, 0, end);
        times_vector(end - first, n - end, part(a, first, end), behind, sum);
        for (int k = end - 1; k >= first; --k) {
            complex right = k == n - 1 ? complex{1.0, 0.0} : complex{-sum[k - first].re, -sum[k - first].im};
            for (int j = k + 1; j < end; ++j)
                right = c_sub(right, c_mul(element(a, k, j), x[j]));
            x[k] = c_div(right, element(a, k, k));
            known.re[k] = x[k].re;
            known.im[k] = x[k].im;
        }
    }
}

void inverse(int n, complex** a, complex* x, double tolerance, int& info) {
    const int small_last_pivot = 30000;
    info = 0;
    if (n < 1)
        return;
    const int m = n - 1;
    int* perm = new_vector<int>(to_size(m));
    // A pivot must be larger than the tolerance.
    const double smallest = std::nextafter(tolerance, std::numeric_limits<double>::infinity());
    const elimination e = new_elimination(n, n, m, smallest, false, perm);
    const int c = largest_in_row(n, a[0]);
    load_exchanged(n, a, c, e.a);
    const int k = eliminate(e);
    if (k < m) { // the small pivot alone comes to its row
        const complex pivot = panel_element(e, perm[k], k);
        *part(e.a, k, k).re = pivot.re;
        *part(e.a, k, k).im = pivot.im;
    }
    if (c_abs(element(e.a, m, m)) <= tolerance)
        info = small_last_pivot;
    back_substitute(n, e.a, x);
    std::swap(x[c], x[m]);
    std::free(perm);
}

} // namespace orvel
