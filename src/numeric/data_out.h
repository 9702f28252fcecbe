// SPDX-License-Identifier: MIT
//
// Writer of matrices for the dump files.
#pragma once

#include <cstdio>

#include "numeric/complex.h"

namespace orvel {

// Square matrix m[i][j] of order n, one element a line: i, j, real and imaginary part, the second
// index in the outer loop.
void fprint_complexmat(std::FILE* stream, int n, const complex* const* m);

} // namespace orvel
