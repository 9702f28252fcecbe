// SPDX-License-Identifier: MIT
//
// Inversion of a complex matrix in place, by an LU factorisation with row pivoting.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// Replaces a[row][column] (order n) by its inverse. tolerance is the smallest modulus of a pivot.
// Returns 0; 30000 with a message if n is below 1 or the tolerance not above 0; with a message the
// column k (from 0) without a pivot, where a is left half transformed: columns up to k factorised,
// the others as they were. For the first column that code reads as success.
int inv_c_mat(int n, double tolerance, complex** a, scratch& room);

} // namespace orvel
