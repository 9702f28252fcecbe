// SPDX-License-Identifier: MIT
//
// Complex matrices and vectors with real and imaginary parts apart, the form that the kernels work on,
// and their way from records and back.
#pragma once

#include <cstddef>

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// Columns of a strip, which many operations pass over while it stays in the first cache; a whole number
// of registers on every machine.
constexpr int strip_columns = 8;

// Rows, or columns at the end of a product, that kernels treat together: a register of the machine
// with AVX2, and a square to transpose.
constexpr int group = 4;

// Element (i, j) of a matrix is re[i * ld + j] + i im[i * ld + j].
struct planes {
    double* re;
    double* im;
    std::ptrdiff_t ld; // doubles from one row to the next
};

// Element i of a vector is re[i] + i im[i].
struct split_vector {
    double* re;
    double* im;
};

// These are local to each source, since the kernels are compiled for more than one machine.
namespace {

// What begins at an element: the rest of a vector, the planes to the right and below, the row to the right.
inline split_vector at(split_vector x, int i) { return {x.re + i, x.im + i}; }
inline planes at(planes p, int i, int j) { return {p.re + i * p.ld + j, p.im + i * p.ld + j, p.ld}; }
inline split_vector row_at(planes p, int i, int j) { return {p.re + i * p.ld + j, p.im + i * p.ld + j}; }

inline complex element(split_vector x, int i) { return {x.re[i], x.im[i]}; }
inline complex element(planes p, int i, int j) { return element(row_at(p, i, 0), j); }
inline void set_element(split_vector x, int i, complex z) {
    x.re[i] = z.re;
    x.im[i] = z.im;
}
inline void set_element(planes p, int i, int j, complex z) { set_element(row_at(p, i, 0), j, z); }

} // namespace

// Doubles in a row of n columns. Behind the last column there is room for a group that begins with it;
// rows are whole lines of the cache, and not so far apart that all fall into the same few of them.
std::size_t padded_columns(int n);

// Planes in scratch space with whole groups of rows: zeros around arbitrary numbers, or nothing but zeros.
planes take_planes(scratch& room, int rows, int columns);
planes take_zero_planes(scratch& room, int rows, int columns);

// A vector of n zeros, with as much behind it as behind a row of planes.
split_vector take_zero_vector(scratch& room, int n);

// Rows of records to planes, and back.
void to_planes(int rows, int columns, const complex* const* m, planes p);
void from_planes(int rows, int columns, planes p, complex** m);

// One row of n records.
void split(int n, const complex* z, split_vector x);
void join(int n, split_vector x, complex* z);

} // namespace orvel
