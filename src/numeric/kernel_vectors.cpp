// SPDX-License-Identifier: MIT
//
// Eigenvectors of the triangular form and the reflections that carry them back, a panel of columns
// at a time.
#include "numeric/panel.h"

namespace orvel {
namespace ORVEL_MACHINE {

static inline row_part zero_row() {
    row_part x;
    for (int k = 0; k < row_vectors; ++k)
        x.v[k] = row_all(0.0, 0.0);
    return x;
}

// Sum over j = begin .. end-1 of f_j row_j, or conj(f_j) row_j, rows of a panel. Products with the
// imaginary parts have sums of their own, so that no sum waits for itself twice.
template <bool conj>
static inline row_part combine_rows(int begin, int end, const double* f_re, const double* f_im, const double* panel) {
    row_part by_re = zero_row();
    row_part by_im = zero_row();
    for (int j = begin; j < end; ++j) {
        const row_part x = load_row(panel + j * panel_row);
        const row_vec re = row_all(f_re[j]);
        const row_vec im = row_all(f_im[j]);
        for (int k = 0; k < row_vectors; ++k) {
            by_re.v[k] = {by_re.v[k].re + re * x.v[k].re, by_re.v[k].im + re * x.v[k].im};
            by_im.v[k] = {by_im.v[k].re + im * x.v[k].im, by_im.v[k].im + im * x.v[k].re};
        }
    }
    row_part sum;
    for (int k = 0; k < row_vectors; ++k) {
        const row_cvec a = by_re.v[k];
        const row_cvec b = by_im.v[k];
        sum.v[k] = conj ? row_cvec{a.re + b.re, a.im - b.im} : row_cvec{a.re - b.re, a.im + b.im};
    }
    return sum;
}

static inline row_vec modulus_1(row_cvec z) { return (z.re < 0 ? -z.re : z.re) + (z.im < 0 ? -z.im : z.im); }

// a / b, scaled by |Re b| + |Im b|.
static inline row_cvec scaled_quotient(row_cvec a, row_cvec b) {
    const row_vec s = modulus_1(b);
    a = {a.re / s, a.im / s};
    b = {b.re / s, b.im / s};
    const row_vec d = b.re * b.re + b.im * b.im;
    return {(a.re * b.re + a.im * b.im) / d, (a.im * b.re - a.re * b.im) / d};
}

// Divides column c of a panel from row i to row end by the element in row i if that is so large that
// its inverse does not count beside it.
static void control_overflow(double* panel, int i, int end, int c, double smallest) {
    double* re = panel + i * panel_row + c;
    const double r = __builtin_fabs(re[0]) + __builtin_fabs(re[panel_width]);
    if (r < smallest || r + 1.0 / r > r)
        return;
    for (; i <= end; ++i, re += panel_row) {
        re[0] /= r;
        re[panel_width] /= r;
    }
}

void back_substitute(planes t, const complex* w, int n, int column, double replaced_difference, double smallest,
                     double* panel) {
    const int end = column + panel_width < n ? column + panel_width : n;
    const double large = 1e7; // below the root of the inverse of a rounding
    row_part w_column = zero_row();
    row_vec number[row_vectors];
    for (int c = 0; c < panel_width; ++c) {
        number[c / row_lanes][c % row_lanes] = column + c;
        if (column + c >= end)
            continue;
        w_column.v[c / row_lanes].re[c % row_lanes] = w[column + c].re;
        w_column.v[c / row_lanes].im[c % row_lanes] = w[column + c].im;
        panel[(column + c) * panel_row + c] = 1.0;
    }
    for (int i = end - 2; i >= 0; --i) {
        double* row = panel + i * panel_row;
        row_part x = combine_rows<false>(i + 1, end, t.re + i * t.ld, t.im + i * t.ld, panel);
        const row_part before_row = load_row(row);
        bool some_large = false;
        for (int k = 0; k < row_vectors; ++k) {
            row_cvec difference = {w_column.v[k].re - w[i].re, w_column.v[k].im - w[i].im};
            const row_mask equal = (difference.re == 0) & (difference.im == 0);
            difference.re = equal ? row_all(replaced_difference) : difference.re;
            const row_cvec quotient = scaled_quotient(x.v[k], difference);
            const row_mask upper = (number[k] > i) & (number[k] < end);
            const row_cvec before = before_row.v[k];
            x.v[k] = {upper ? quotient.re : before.re, upper ? quotient.im : before.im};
            const row_mask above = ~(modulus_1(x.v[k]) <= large); // NaN, too
            for (int c = 0; c < row_lanes; ++c)
                some_large = some_large || above[c] != 0;
        }
        store_row(row, x);
        if (some_large)
            for (int c = 0; column + c < end; ++c)
                if (column + c > i)
                    control_overflow(panel, i, column + c, c, smallest);
    }
}

void reflect_panel(double* panel, planes u, const double* norm, const complex* phase, int first, int last) {
    for (int i = first; i <= last; ++i) {
        row_part x = load_row(panel + i * panel_row);
        for (row_cvec& v : x.v)
            v = mul(row_all(phase[i].re, phase[i].im), v);
        store_row(panel + i * panel_row, x);
    }
    for (int k = last - 1; k > first; --k) {
        if (norm[k] == 0.0)
            continue;
        const double* u_re = u.re + k * u.ld;
        const double* u_im = u.im + k * u.ld;
        row_part f = combine_rows<true>(k, last + 1, u_re, u_im, panel);
        for (row_cvec& v : f.v)
            v = {v.re / norm[k], v.im / norm[k]};
        for (int i = k; i <= last; ++i) {
            row_part x = load_row(panel + i * panel_row);
            for (int m = 0; m < row_vectors; ++m)
                x.v[m] = add_mul(x.v[m], row_all(u_re[i], u_im[i]), f.v[m]);
            store_row(panel + i * panel_row, x);
        }
    }
}

} // namespace ORVEL_MACHINE
} // namespace orvel
