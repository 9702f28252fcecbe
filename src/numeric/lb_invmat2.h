// SPDX-License-Identifier: MIT
//
// First column of an inverse at the cost of one elimination: the row of the unit right-hand side
// is moved to the end and kept out of the pivot search, so that the right-hand side never changes
// and needs no storage.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// Solves A x = e0 for a[row][column] (order n, destroyed) and x (n elements). tolerance is the
// largest modulus of a pivot that does not count: such a pivot ends the elimination early, and x
// follows from what stands then. info receives 0, or 30000 if the last pivot does not count.
void inverse(int n, complex** a, complex* x, double tolerance, int& info, scratch& room);

} // namespace orvel
