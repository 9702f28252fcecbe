// SPDX-License-Identifier: MIT
//
// The EISPACK chain cbal, corth, comqr2, cbabk2 (texts of August 1983) with its tests against eps, as
// published: element by element, indices from 1. What the fast forms of the program are compared with.
#pragma once

#include "matrix_util.h"

namespace orvel_test {

// Its tests, each by what makes it true: an element is there, a row is scaled, ...
enum chain_test { element_there,
                  scaled_row,
                  reflected,
                  phase_taken,
                  reflection_kept,
                  phase_made,
                  negligible,
                  shift_corrected,
                  last_made_real,
                  column_turned,
                  too_small,
                  tiny_component,
                  unit_length,
                  num_tests };

// Eigenvalues and vectors in the order of the chain, unsorted. Returns en where an exceptional shift has
// no element to take, else 0. Adds to met[test][outcome] how often each test came out false and true.
int published_chain(const square& matrix, double eps, std::vector<orvel::complex>& w, square& v, int met[num_tests][2]);

} // namespace orvel_test
