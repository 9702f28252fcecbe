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

// Declares a kernel on all machines, and the function of that name that calls the one in use.
#ifdef ORVEL_WIDE_KERNELS
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace kernels_plain {                     \
    void name parameters;                         \
    }                                             \
    namespace kernels_wide {                      \
    void name parameters;                         \
    }                                             \
    namespace kernels_widest {                    \
    void name parameters;                         \
    }                                             \
    inline void name parameters {                 \
        if (machine() == machine_widest)          \
            kernels_widest::name arguments;       \
        else if (machine() == machine_wide)       \
            kernels_wide::name arguments;         \
        else                                      \
            kernels_plain::name arguments;        \
    }
#else
#define ORVEL_KERNEL(name, parameters, arguments) \
    namespace kernels_plain {                     \
    void name parameters;                         \
    }                                             \
    inline void name parameters { kernels_plain::name arguments; }
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

// sum[i] = sum over j of a(i, j) x(j) for m rows and n columns, n a multiple of four.
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

// ---- eigensystems ---------------------------------------------------------------------------

// Columns of a panel: a strip of a matrix that stays in the first cache while many operations pass
// over it. Each of its rows is panel_width real parts and then as many imaginary parts.
constexpr int panel_width = 8;
constexpr int panel_row = 2 * panel_width; // doubles

// Columns of planes come in whole panels, rows in whole groups; what is beyond the matrix is zero.
constexpr int row_group = 4;

// A reflection I - u u^H / h that waits to be applied to both sides of a matrix:
// A - u_row y - z u_col for u_row = u, u_col = u^H, y = u^H A / h, z = A u / h - u (u^H A u) / h^2.
// Entries of y and u_col become zero once their column of the matrix has been brought up to date.
struct pending_reflection {
    int first;                                 // u begins in this row and column
    double *u_re, *u_im, *z_re, *z_im;         // by rows
    double *y_re, *y_im, *u_col_re, *u_col_im; // by columns
};

// Applies a pending reflection and, in the same pass over the matrix (rows 0..last, n columns), forms
// sums and products with the next vector v: sum_j = sum over i of conj(v_i) a_ij, product_i = sum over
// j of a_ij v_j. Vectors by columns fill whole lanes, and all are zero outside their range.
ORVEL_KERNEL(reflect_and_multiply,
             (planes a, int n, int last, const pending_reflection& old,
              const double* v_re, const double* v_im, double* sum_re, double* sum_im,
              double* product_re, double* product_im),
             (a, n, last, old, v_re, v_im, sum_re, sum_im, product_re, product_im))

// A plane rotation; in arrays number j is that of rows, or columns, j - 1 and j.
struct rotation {
    double c_re, c_im; // cosine
    double s;          // sine, real
};

// QR factorisation of the block first..last of a Hessenberg matrix with real subdiagonal, in all
// panels of its columns; stores the rotations first + 1 .. last.
ORVEL_KERNEL(rotate_to_triangle, (planes h, int first, int last, rotation* g), (h, first, last, g))

// Their inverses on columns first..last, which makes the triangular block a Hessenberg one again, and
// a factor on the last column. Rows 0..last take part, and what a whole group of rows adds, below the
// Hessenberg form.
ORVEL_KERNEL(rotate_columns, (planes h, int first, int last, const rotation* g, complex phase),
             (h, first, last, g, phase))

// One QR sweep on rows first..last.
struct sweep {
    int first, last;
    complex row_phase;    // of the last diagonal element, made real behind the rotations; 1 if it was real
    complex column_phase; // the same, but 1 if that is real within eps
    std::size_t place;    // of its rotation 0 among those of all sweeps
};

// The sweeps whose last row lies above a panel of columns, on these columns of a matrix.
ORVEL_KERNEL(apply_sweeps, (planes h, int column, int num_sweeps, const sweep* sweeps, const rotation* g),
             (h, column, num_sweeps, sweeps, g))

// All sweeps as factors on the left of a panel whose columns, from column on, are zero below their
// diagonal; the last one first.
ORVEL_KERNEL(apply_sweeps_back, (double* panel, int column, int num_sweeps, const sweep* sweeps, const rotation* g),
             (panel, column, num_sweeps, sweeps, g))

// Eigenvectors column .. column + panel_width - 1 of an upper triangular matrix t of order n with
// eigenvalues w, into the rows of a panel that hold zeros before: unit diagonal, each column divided
// by an element so large that its inverse vanishes beside it, unless it is below smallest. Where two
// eigenvalues are equal, their difference is replaced.
ORVEL_KERNEL(back_substitute,
             (planes t, const complex* w, int n, int column, double replaced_difference, double smallest,
              double* panel),
             (t, w, n, column, replaced_difference, smallest, panel))

// Rows first..last of a panel times phase, and then the reflections x += u (u^H x) / norm, the last one
// first: number k, first < k < last, has the vector u_k[i] over rows i = k..last, row k of the planes.
// Those with norm 0 do nothing.
ORVEL_KERNEL(reflect_panel, (double* panel, planes u, const double* norm, const complex* phase, int first, int last),
             (panel, u, norm, phase, first, last))

} // namespace orvel
