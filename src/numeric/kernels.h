// SPDX-License-Identifier: MIT
//
// The inner loops that a tilt spends its time in: real and imaginary parts apart, four numbers at a
// time, each compiled for every machine it may run on (numeric/machine.h). The modules that call them
// hold the algorithms, with their tests and messages; a kernel tests nothing but its own shapes.
#pragma once

#include <cstddef>

#include "numeric/complex.h"
#include "numeric/machine.h"

namespace orvel {

// Declares a kernel on both machines, and the function of that name that calls the one in use.
#ifdef ORVEL_WIDE_KERNELS
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace plain {                             \
    void name parameters;                         \
    }                                             \
    namespace wide {                              \
    void name parameters;                         \
    }                                             \
    inline void name parameters {                 \
        if (machine() == machine_wide)            \
            wide::name arguments;                 \
        else                                      \
            plain::name arguments;                \
    }
#else
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace plain {                             \
    void name parameters;                         \
    }                                             \
    inline void name parameters { plain::name arguments; }
#endif

// A complex matrix as two planes of doubles: element (i, j) is re[i * ld + j] + i im[i * ld + j].
struct planes {
    double* re;
    double* im;
    std::ptrdiff_t ld; // doubles from one row to the next
};

// ---- products, eliminations, inverses (kernel_planes.cpp, kernel_product.cpp) ----------------

// The part of planes that begins at (row, column).
inline planes part(planes p, int row, int column) {
    const std::ptrdiff_t offset = row * p.ld + column;
    return {p.re + offset, p.im + offset, p.ld};
}

inline complex element(planes p, int i, int j) { return {*part(p, i, j).re, *part(p, i, j).im}; }

// Factors of a product: element (i, k) stands at i * row + k * column.
struct factors {
    const double* re;
    const double* im;
    std::ptrdiff_t row;
    std::ptrdiff_t column;
};

// c += a b for c of m rows and n columns and b of l rows. The columns are worked on in fours: what
// stands behind the n-th one up to the next multiple of four must be room, and changes.
ORVEL_KERNEL(add_product, (int m, int n, int l, planes c, factors a, planes b), (m, n, l, c, a, b))

// sum[i] = sum over j of a(i, j) x(j) for m rows and n columns.
ORVEL_KERNEL(times_vector, (int m, int n, planes a, planes x, complex* sum), (m, n, a, x, sum))

// Row of n numbers to planes and back. To planes, it is filled up with zeros to a multiple of four.
ORVEL_KERNEL(split_row, (int n, const complex* z, double* re, double* im), (n, z, re, im))
ORVEL_KERNEL(join_row, (int n, const double* re, const double* im, complex* z), (n, re, im, z))

// columns[j][i] = rows[i][j] for m rows of n elements.
ORVEL_KERNEL(rows_to_columns,
             (int m, int n, const double* rows, std::ptrdiff_t ld, double* columns, std::ptrdiff_t columns_ld),
             (m, n, rows, ld, columns, columns_ld))

// z *= f for a row of n numbers, worked on in fours.
ORVEL_KERNEL(scale_row, (int n, double* re, double* im, complex f), (n, re, im, f))

// Squared moduli of n numbers, the largest of them, the place of the first that is at least close
// times the largest, and how many such there are. NaN counts as below all.
struct largest_square {
    double largest;
    int first;
    int count;
};
ORVEL_KERNEL(find_largest,
             (int n, const double* re, const double* im, double close, double* square, largest_square* found),
             (n, re, im, close, square, found))

// quotient[j] = z[j] / divisor[j] for n numbers, by Smith's scaled division; quotient may be z.
ORVEL_KERNEL(divide_row, (int n, const complex* z, const complex* divisor, complex* quotient),
             (n, z, divisor, quotient))

ORVEL_KERNEL(exchange_rows, (int n, planes a, int i, int j), (n, a, i, j))

} // namespace orvel
