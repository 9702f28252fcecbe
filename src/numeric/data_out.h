// SPDX-License-Identifier: MIT
//
// Writers of matrices for the dumps.
#pragma once

#include <cstdio>

#include "numeric/complex.h"

namespace orvel {

// Square matrix m[i][j] of order n, one element a line: i, j, real and imaginary part, the second
// index in the outer loop.
void fprint_complexmat(std::FILE* stream, int n, const complex* const* m);

// If flag is not 0: label and elements i of a vector of n.
void dbg_print_cvec(int flag, const char* label, int n, const complex* vector);

// If flag is not 0: label and elements [i][j] of a square matrix, j in the outer loop.
void dbg_print_cmat(int flag, const char* label, int n, complex* const* matrix);

} // namespace orvel
