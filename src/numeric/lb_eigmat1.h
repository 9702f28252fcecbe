// SPDX-License-Identifier: MIT
//
// Eigensolver for general complex matrices without balancing: reduction to Hessenberg form by
// stabilised elimination, then an explicitly shifted QR iteration with plane rotations. Its
// tolerance is relative to the norm of the matrix, and a code tells when it did not converge.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// All eigenvalues and right eigenvectors of a[row][column] (order n, destroyed): A v = w v for v
// the column eigen_vec[.][j] of unit length and w = eigen_val[j]. sort_flag 1 sorts by descending
// real part, -1 by ascending; any other value but 0 sorts by modulus (norm_csort); 0 asks for
// unsorted eigenvalues alone and leaves eigen_vec untouched unless the code is 1. Returns
//   0      success,
//   1      n is 1, or the norm is below the tolerance: the diagonal and unit vectors, whatever sort_flag,
//   3      n below 1 or tolerance not above 0: a message on standard error, nothing is set,
//   30000  31 sweeps did not isolate an eigenvalue: eigen_val is not set.
int eigen_c_mat(int n, double tolerance, int sort_flag, complex** a,
                complex* eigen_val, complex** eigen_vec, scratch& room);

// Sorts n eigenvalues with the columns of eigen_vec in descending order of a key: the real part,
// the squared modulus; a negative sort_flag changes the sign of the key. Not stable.
void re_part_csort(int n, complex* eigen_val, complex** eigen_vec, int sort_flag, scratch& room);
void norm_csort(int n, complex* eigen_val, complex** eigen_vec, int sort_flag, scratch& room);

} // namespace orvel
