// SPDX-License-Identifier: MIT
//
// Row operations that the eigensolvers are made of, on records. Each loop walks along rows of
// row-major matrices, and each sum keeps the order of terms of its textbook form, so that results
// agree with that form to rounding.
#pragma once

#include "numeric/clones.h"
#include "numeric/complex.h"

namespace orvel {

// A complex number in a vector register. Loops that carry numbers from one step to the next, where
// compilers find no vectors of their own, gain a third by it.
typedef double pair __attribute__((vector_size(16)));

// y += f x, for n elements that do not overlap.
inline void row_add(int n, complex* __restrict y, complex f, const complex* __restrict x) {
    for (int j = 0; j < n; ++j) {
        y[j].re = y[j].re + f.re * x[j].re - f.im * x[j].im;
        y[j].im = y[j].im + f.re * x[j].im + f.im * x[j].re;
    }
}

// x *= f.
inline void row_scale(int n, complex* x, double f) {
    for (int j = 0; j < n; ++j)
        x[j] = {f * x[j].re, f * x[j].im};
}

// Sum of x[j] row[j] for j = from .. end-1.
inline complex row_sum(int from, int end, const complex* row, const complex* x) {
    pair sum = {};
    for (int j = from; j < end; ++j) {
        const pair im = {-x[j].im, x[j].im};
        sum = sum + x[j].re * pair{row[j].re, row[j].im} + im * pair{row[j].im, row[j].re};
    }
    return {sum[0], sum[1]};
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
