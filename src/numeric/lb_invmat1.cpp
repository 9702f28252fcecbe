// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat1.h"

#include <algorithm>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "numeric/elimination.h"
#include "numeric/vecmat.h"

namespace orvel {

// What stands without a pivot in column k: the columns up to it, factorised, with rows exchanged.
static void store_factorised(const elimination& e, int k, complex** a) {
    for (int c = 0; c <= k; ++c) {
        const int first = c / panel_columns * panel_columns;
        for (int i = 0; i < e.rows; ++i)
            a[i][c] = i < first ? element(e.a, i, c) : panel_element(e, i, c);
        for (int later = first + panel_columns; later < k; ++later)
            std::swap(a[later][c], a[e.perm[later]][c]);
    }
}

// Moves rows first .. end-1 of the upper factor to a place of their own, with negative sign, and
// leaves the upper part of the unit matrix there: what the inverse of the lower factor holds.
static planes take_upper(planes a, int n, int first, int end) {
    const planes upper = work_planes(slot_a, panel_columns, n);
    for (int i = first; i < end; ++i) {
        const planes from = part(a, i, 0), to = part(upper, i - first, 0);
        for (int j = i; j < n; ++j) {
            to.re[j] = -from.re[j];
            to.im[j] = -from.im[j];
            from.re[j] = j == i ? 1.0 : 0.0;
            from.im[j] = 0.0;
        }
    }
    return upper;
}

// The inverse of the lower factor, below the diagonal of a, becomes that of the upper factor times
// it: some rows at a time, from the last ones up.
static void multiply_by_upper_inverse(int n, planes a) {
    for (int first = (n - 1) / panel_columns * panel_columns; first >= 0; first -= panel_columns) {
        const int end = std::min(first + panel_columns, n);
        const planes upper = take_upper(a, n, first, end), row = part(a, first, 0);
        add_product(end - first, n, n - end, row, {upper.re + end, upper.im + end, upper.ld, 1}, part(a, end, 0));
        for (int i = end - 1; i >= first; --i) {
            const planes x = part(a, i, 0), u = part(upper, i - first, i);
            add_product(1, n, end - i - 1, x, {u.re + 1, u.im + 1, u.ld, 1}, part(a, i + 1, 0));
            scale_row(n, x.re, x.im, c_div({-1.0, 0.0}, element(u, 0, 0)));
        }
    }
}

// Back to records, with the row exchanges undone on the columns.
static void store_exchanged(const elimination& e, complex** a) {
    const int n = e.rows;
    int* source = new_vector<int>(to_size(n));
    for (int j = 0; j < n; ++j)
        source[j] = j;
    for (int k = n - 2; k >= 0; --k)
        std::swap(source[k], source[e.perm[k]]);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = element(e.a, i, source[j]);
    std::free(source);
}

int inv_c_mat(int n, double tolerance, complex** a) {
    const int invalid_argument = 30000;
    if (n < 1 || !(tolerance > 0.0)) {
        ov_fprintf(stdout, "$$ (inv_c_mat) invalid n or epsilon.\n");
        return invalid_argument;
    }
    int* perm = new_vector<int>(to_size(n));
    const elimination e = new_elimination(n, n, n, tolerance, true, perm);
    for (int i = 0; i < n; ++i)
        split_row(n, a[i], part(e.a, i, 0).re, part(e.a, i, 0).im);
    int code = eliminate(e);
    if (code < n) {
        ov_fprintf(stdout, "$$ Anomalous termination in inv_c_mat.\n");
        store_factorised(e, code, a);
    } else {
        code = 0;
        multiply_by_upper_inverse(n, e.a);
        store_exchanged(e, a);
    }
    std::free(perm);
    return code;
}

} // namespace orvel
