// SPDX-License-Identifier: MIT
//
// Inversion of complex matrices, with epsilon.inv_eps as absolute pivot limit. A singular matrix
// never stops the program: the caller goes on with the numbers it gets.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// Replaces a[row][column] (order n) by its inverse. A failure is told on the console. Returns 0.
int invmat(int n, complex** a, scratch& room);

// Solves A x = e0, so that x (n elements) is the first column of the inverse; a is destroyed.
// Returns 0, or 30000 if the last pivot is too small.
int bc_invmat(int n, complex** a, complex* x, scratch& room);

// b (order n) = A11 - A12 A22^-1 A21 for the blocks of a, A11 of order n and A22 of order m, by
// eliminating A22 instead of inverting it; settings, limit of pivots and trace are those of invmat.
// False, with nothing done or told, where invmat would complain: then invmat has to be called.
bool fold_block(int n, int m, const complex* const* a, complex** b, scratch& room);

} // namespace orvel
