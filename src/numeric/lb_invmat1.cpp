// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat1.h"

#include <algorithm>

#include "control/ov_mpi.h"
#include "numeric/cmatutil.h"
#include "numeric/fast/elimination.h"

namespace orvel {

// Moves rows first .. end-1 of the upper factor to a place of their own, with negative sign, and
// leaves the upper part of the unit matrix there: what the inverse of the lower factor holds.
static void take_upper(planes a, int n, int first, int end, planes upper) {
    for (int i = first; i < end; ++i) {
        for (int j = i; j < n; ++j) {
            const complex u = element(a, i, j);
            set_element(upper, i - first, j, {-u.re, -u.im});
            set_element(a, i, j, {j == i ? 1.0 : 0.0, 0.0});
        }
    }
}

// The inverse of the lower factor, below the diagonal of a, becomes that of the upper factor times
// it: some rows at a time, from the last ones up.
static void multiply_by_upper_inverse(int n, planes a, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    const planes upper = take_planes(room, panel_columns, n);
    for (int first = (n - 1) / panel_columns * panel_columns; first >= 0; first -= panel_columns) {
        const int end = std::min(first + panel_columns, n);
        take_upper(a, n, first, end, upper);
        add_product(end - first, n, n - end, at(a, first, 0), as_factors(at(upper, 0, end)), at(a, end, 0));
        for (int i = end - 1; i >= first; --i) {
            const planes u = at(upper, i - first, i);
            add_product(1, n, end - i - 1, at(a, i, 0), as_factors(at(u, 0, 1)), at(a, i + 1, 0));
            scale_row(n, c_div({-1.0, 0.0}, element(u, 0, 0)), row_at(a, i, 0));
        }
    }
    release_scratch(room, begin);
}

// Back to records, with the row exchanges undone on the columns.
static void store_exchanged(const elimination& e, scratch& room, complex** a) {
    const int n = e.rows;
    const scratch_mark begin = mark_scratch(room);
    int* source = take<int>(room, to_size(n));
    for (int j = 0; j < n; ++j)
        source[j] = j;
    for (int k = n - 2; k >= 0; --k)
        std::swap(source[k], source[e.perm[k]]);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            a[i][j] = element(e.a, i, source[j]);
    release_scratch(room, begin);
}

// False, with a unchanged, if a pivot has no larger modulus than the limit.
static bool invert(int n, double limit, complex** a, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    const elimination e = new_elimination(room, n, n, n, true);
    to_planes(n, n, a, e.a);
    const bool done = eliminate(e, limit);
    if (done) {
        multiply_by_upper_inverse(n, e.a, room);
        store_exchanged(e, room, a);
    }
    release_scratch(room, begin);
    return done;
}

// a[i][k] plus the sum over j < end of a[i][j] a[j][k].
static complex add_row(complex** a, int i, int k, int end) {
    complex sum = a[i][k];
    for (int j = 0; j < end; ++j)
        sum = c_add(sum, c_mul(a[i][j], a[j][k]));
    return sum;
}

// The factorisation column by column, multipliers with negative sign: what stands where a pivot is
// missing. Returns its column, or n.
static int factorise(int n, double tolerance, complex** a, int* perm) {
    for (int k = 0; k < n; ++k) {
        for (int i = 0; i < k; ++i) {
            std::swap(a[perm[i]][k], a[i][k]);
            a[i][k] = add_row(a, i, k, i);
        }
        int p = k;
        for (int i = k; i < n; ++i) {
            a[i][k] = add_row(a, i, k, k);
            p = c_abs(a[i][k]) > c_abs(a[p][k]) ? i : p;
        }
        if (c_abs(a[p][k]) < tolerance)
            return k;
        perm[k] = p;
        std::swap_ranges(a[p], a[p] + (p != k ? k + 1 : 0), a[k]);
        for (int i = k + 1; i < n; ++i)
            a[i][k] = c_div(a[i][k], {-a[k][k].re, -a[k][k].im});
    }
    return n;
}

// What a matrix without a pivot leaves. The first columns decide again: rounding may find a pivot here.
static int leave_factorised(int n, double tolerance, complex** a, scratch& room) {
    const double none = -1.0; // no limit
    const scratch_mark begin = mark_scratch(room);
    complex** copy = take_copy(room, n, n, a);
    const int code = factorise(n, tolerance, copy, take<int>(room, to_size(n)));
    if (code < n) {
        ov_fprintf(stdout, "$$ Anomalous termination in inv_c_mat.\n");
        c_matcopy2(n, copy, a);
    } else {
        invert(n, none, a, room);
    }
    release_scratch(room, begin);
    return code < n ? code : 0;
}

int inv_c_mat(int n, double tolerance, complex** a, scratch& room) {
    const int invalid_argument = 30000;
    if (n < 1 || !(tolerance > 0.0)) {
        ov_fprintf(stdout, "$$ (inv_c_mat) invalid n or epsilon.\n");
        return invalid_argument;
    }
    return invert(n, tolerance, a, room) ? 0 : leave_factorised(n, tolerance, a, room);
}

} // namespace orvel
