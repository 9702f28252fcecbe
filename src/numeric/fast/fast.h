// SPDX-License-Identifier: MIT
//
// The map of this room, which holds what exists for speed alone. Only numeric looks in, and the sums of
// waves in solver.
//
//   planes                   matrices and vectors with real and imaginary parts apart
//   elimination              LU factorisation in planes, for inverses, solutions and reductions
//   fast.h                   the kernels, declared: the loops that a tilt spends its time in
//   product.cpp              products of matrices, and with a vector
//   hessenberg.cpp           reflections of the reduction to Hessenberg form
//   rotation_chain.cpp       QR factorisation of a Hessenberg block, the only step that waits for itself
//   rotations.cpp            the same rotations on everything else
//   triangular_vectors.cpp   eigenvectors of the triangular form, reflections on them
//   simd.h                   what these five are written in: vectors of doubles, and their widths
//   dispatch                 each kernel is compiled for several machines; the running one chooses
//
// The modules that call kernels hold the algorithms, with their tests and messages; a kernel tests
// nothing but its own shapes.
#pragma once

#include "numeric/fast/dispatch.h"
#include "numeric/fast/planes.h"

namespace orvel {

// ---- products and rows (product.cpp) -----------------------------------------------------------------

// Factors of a product: element (i, k) stands at i * row + k * column.
struct factors {
    const double* re;
    const double* im;
    std::ptrdiff_t row;
    std::ptrdiff_t column;
};

// A matrix as factors, and its transpose.
inline factors as_factors(planes a) { return {a.re, a.im, a.ld, 1}; }
inline factors as_transposed_factors(planes a) { return {a.re, a.im, 1, a.ld}; }

// c += a b for c of m rows and n columns and b of l rows. The columns are worked on in groups: what
// stands behind the n-th one up to the next whole group must be room, and changes.
ORVEL_KERNEL(add_product, (int m, int n, int l, planes c, factors a, planes b), (m, n, l, c, a, b))

// sum[i] = sum over j of a(i, j) x(j) for m rows and n columns, n a whole number of groups.
ORVEL_KERNEL(times_vector, (int m, int n, planes a, split_vector x, complex* sum), (m, n, a, x, sum))

// x *= f for n elements.
ORVEL_KERNEL(scale_row, (int n, complex f, split_vector x), (n, f, x))

// quotient[j] = z[j] / divisor[j] for n numbers, as c_div; the quotient is a row of its own.
ORVEL_KERNEL(divide_row, (int n, const complex* z, const complex* divisor, complex* quotient),
             (n, z, divisor, quotient))

// ---- reduction to Hessenberg form (hessenberg.cpp) ------------------------------------------

// A reflection I - u u^H / h that waits to be applied to both sides of a matrix:
// A - u_row y - z u_col for u_row = u, u_col = u^H, y = u^H A / h, z = A u / h - u (u^H A u) / h^2.
// Entries of y and u_col become zero once their column of the matrix has been brought up to date.
struct pending_reflection {
    int first;             // u begins in this row and column
    split_vector u, z;     // by rows
    split_vector y, u_col; // by columns
};

// The next vector v and what a pass over the matrix gives for it: sum_j = sum over i of conj(v_i) a_ij,
// product_i = sum over j of a_ij v_j.
struct matrix_products {
    split_vector v, sum, product;
};

// Applies a pending reflection to rows 0..last and n columns and, in the same pass, forms the products
// with the next vector. Vectors by columns fill whole groups, and all are zero outside their range.
ORVEL_KERNEL(reflect_and_multiply,
             (planes a, int n, int last, const pending_reflection& old, const matrix_products& next),
             (a, n, last, old, next))

// ---- rotations (rotation_chain.cpp, rotations.cpp) ------------------------------------------

// A plane rotation; in arrays number j is that of rows, or columns, j - 1 and j.
struct rotation {
    double c_re, c_im; // cosine
    double s;          // sine, real
};

// What one QR sweep did to rows first..last.
struct qr_sweep {
    int first, last;
    complex row_phase;    // of the last diagonal element, made real behind the rotations; 1 if it was real
    complex column_phase; // the same, but 1 if that is real within eps
    const rotation* g;    // numbers first + 1 .. last
};

// Rotations first + 1 .. last on the rows of a strip.
ORVEL_KERNEL(rotate_rows, (planes strip, int first, int last, const rotation* g), (strip, first, last, g))

// QR factorisation of the block first..last of a Hessenberg matrix with real subdiagonal, in all
// strips of its columns; stores the rotations.
ORVEL_KERNEL(rotate_to_triangle, (planes h, int first, int last, rotation* g), (h, first, last, g))

// Their inverses on columns first..last, which makes the triangular block a Hessenberg one again, and
// a factor on the last column. Rows 0..last take part, and what a whole group of rows adds, below the
// Hessenberg form.
ORVEL_KERNEL(rotate_columns, (planes h, int first, int last, const rotation* g, complex phase),
             (h, first, last, g, phase))

// The sweeps whose last row lies above a strip, on the columns of the strip that begins at column.
ORVEL_KERNEL(apply_sweeps, (planes h, int column, int num_sweeps, const qr_sweep* sweeps),
             (h, column, num_sweeps, sweeps))

// All sweeps as factors on the left of a strip, the last one first. The strip holds the columns from
// number column on of a matrix that is zero below its diagonal.
ORVEL_KERNEL(apply_sweeps_back, (planes strip, int column, int num_sweeps, const qr_sweep* sweeps),
             (strip, column, num_sweeps, sweeps))

// ---- eigenvectors of the triangular form (triangular_vectors.cpp) ---------------------------

// An upper triangular matrix of order n with its eigenvalues, and the limits of its eigenvectors.
struct triangle {
    int n;
    planes t;
    const complex* w;
    double replaced_difference; // of two equal eigenvalues
    double smallest;            // a column is not divided by a smaller element
};

// The eigenvectors from number column on into a strip that holds zeros before: unit diagonal, each column
// divided by an element so large that its inverse vanishes beside it.
ORVEL_KERNEL(form_vectors, (const triangle& of, int column, planes strip), (of, column, strip))

// Rows first..last of a strip times phase, and then the reflections x += u (u^H x) / norm, the last one
// first: number k, first < k < last, has the vector u_k[i] over rows i = k..last, row k of the planes.
// Those with norm 0 do nothing.
ORVEL_KERNEL(reflect_strip, (planes strip, planes u, const double* norm, const complex* phase, int first, int last),
             (strip, u, norm, phase, first, last))

} // namespace orvel
