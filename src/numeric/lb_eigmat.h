// SPDX-License-Identifier: MIT
//
// The eigenproblem of a general complex matrix, the hottest code of the program. eigmat is its one
// entry; epsilon.eigmat_func selects one of two solvers: 0 the EISPACK chain of lb_eigmat2, which
// balances and reduces by unitary transformations, 1 eigen_c_mat of lb_eigmat1, which reduces by
// stabilised elimination.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// All eigenvalues and right eigenvectors of matrix[row][column] (order n, left unchanged), sorted
// by descending real part. eigen_vec[i][j] is component i of eigenvector j. A solver that did not
// converge leaves what it has; an unknown epsilon.eigmat_func ends the process. Returns 0.
int eigmat(int n, const complex* const* matrix, complex* eigen_val, complex** eigen_vec, scratch& room);

} // namespace orvel
