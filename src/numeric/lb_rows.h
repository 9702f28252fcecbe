// SPDX-License-Identifier: MIT
//
// Row operations that the eigensolvers and inversions are made of. Each loop walks along rows of
// row-major matrices, and each sum keeps the order of terms of its textbook form, so that results
// agree with that form to rounding.
#pragma once

#include "numeric/clones.h"
#include "numeric/complex.h"

namespace orvel {

// y += f x, for n elements that do not overlap.
inline void row_add(int n, complex* __restrict y, complex f, const complex* __restrict x) {
    for (int j = 0; j < n; ++j) {
        y[j].re = y[j].re + f.re * x[j].re - f.im * x[j].im;
        y[j].im = y[j].im + f.re * x[j].im + f.im * x[j].re;
    }
}

// x *= f.
inline void row_scale(int n, complex* x, complex f) {
    for (int j = 0; j < n; ++j)
        x[j] = c_mul(f, x[j]);
}
inline void row_scale(int n, complex* x, double f) {
    for (int j = 0; j < n; ++j)
        x[j] = {f * x[j].re, f * x[j].im};
}

// sum[r] = sum of row[r][j] x[j] for j = from, from + step ... before end, for R rows. Several rows
// at a time, and the products with the two parts of x apart, keep the processor busy while each
// sum waits for its last term.
template <int R>
inline void row_sums(complex* const* row, int from, int end, int step, const complex* x, complex* sum) {
    complex p[R] = {};
    complex q[R] = {};
    for (int j = from; j != end; j += step) {
        for (int r = 0; r < R; ++r) {
            p[r].re += x[j].re * row[r][j].re;
            p[r].im += x[j].re * row[r][j].im;
            q[r].re += x[j].im * row[r][j].re;
            q[r].im += x[j].im * row[r][j].im;
        }
    }
    for (int r = 0; r < R; ++r)
        sum[r] = {p[r].re - q[r].im, p[r].im + q[r].re};
}

// Product of a row with an upper triangular matrix: for j = first .. n-1, sum[j] = sum over
// k = first .. min(j, last) of x[k] upper[k][j], k ascending.
inline void row_times_upper(int n, int first, int last, const complex* x,
                            const complex* const* upper, complex* sum) {
    for (int j = first; j < n; ++j)
        sum[j] = {0.0, 0.0};
    for (int k = first; k <= last; ++k)
        row_add(n - k, sum + k, x[k], upper[k] + k);
}

// Row first .. end-1 with the largest modulus in a column, the first one on ties.
inline int largest_in_column(int first, int end, int column, const complex* const* a) {
    int row = first;
    double largest = c_abs(a[first][column]);
    for (int i = first + 1; i < end; ++i) {
        const double modulus = c_abs(a[i][column]);
        if (modulus > largest) {
            largest = modulus;
            row = i;
        }
    }
    return row;
}

// In place, for matrices held by columns in between.
inline void transpose(int n, complex** a) {
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < i; ++j) {
            const complex t = a[i][j];
            a[i][j] = a[j][i];
            a[j][i] = t;
        }
    }
}

} // namespace orvel
