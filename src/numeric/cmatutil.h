// SPDX-License-Identifier: MIT
//
// Helpers for square complex matrices m[row][column] of order n; for n below 1 they do nothing.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// dst = src; the two may not overlap.
void c_matcopy2(int n, const complex* const* src, complex** dst);

// c (n by m) = a (n by l) times b (l by m). Every element is summed over the inner index in ascending
// order; both factors are read before c is written.
void c_matmult(int n, int m, int l, complex** c, const complex* const* a, const complex* const* b, scratch& room);

// a := a times b, in place.
void c_matmult2(int n, complex** a, const complex* const* b, scratch& room);

// a := a - b, in place.
void c_matsub2(int n, complex** a, const complex* const* b);

// quotient[j] = z[j] / divisor[j] for n numbers, as c_div; the quotient is a row of its own.
void c_div_row(int n, const complex* z, const complex* divisor, complex* quotient);

} // namespace orvel
