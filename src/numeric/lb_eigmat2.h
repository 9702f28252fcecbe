// SPDX-License-Identifier: MIT
//
// Eigensolver of the published EISPACK chain for complex general matrices (B. T. Smith et al.,
// Matrix Eigensystem Routines, Springer 1976; texts of August 1983): balance, reduce to Hessenberg
// form by unitary transformations, QR iteration with vectors, transform back. It differs from the
// publication in its tests, which compare with the absolute tolerance eps where the publication
// asks for exact zeros or for relative smallness. NaN and infinity travel to the results.
//
// Matrices are a[row][column] from 0. low, igh and the entries of scale count rows from 1 as in
// the publication, and the vectors scale, ortr, orti have n + 1 elements, used from index 1.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// All eigenvalues and right eigenvectors of a (order n, destroyed): A v = w v for v the column
// eigen_vec[.][j] and w = eigen_val[j], in descending order of the real part. Columns have unit
// length unless balancing scaled them. Sets eps to the tolerance. If 30 n QR sweeps do not
// suffice, what stands is sorted and given out, without a message. n below 1 does nothing.
void eispack_cg(int n, double tolerance, complex** a, complex* eigen_val, complex** eigen_vec, scratch& room);

// Balances a (order n, in place): P^-1 D^-1 A D P with a permutation P that isolates eigenvalues
// in the rows outside low..igh, where a is then upper triangular, and a diagonal matrix D of
// powers of 16 that brings rows and columns low..igh to similar 1-norms. scale[j] holds the
// row exchanged with row j for j outside low..igh, the factor of D within.
void cbal(int n, complex** a, int& low, int& igh, double* scale);

// Exchange of cbal, indices from 1: for j other than m columns j and m over rows 1 to l, then rows
// j and m over columns k to n.
void matexchange_rowcol(int n, int j, int k, int l, int m, complex** a);

// Reduces rows and columns low..igh of a (order n, in place) to upper Hessenberg form H = Q^H A Q
// by Householder reflections. What defines Q stands below the subdiagonal of a and in
// ortr + i orti.
void corth(int n, int low, int igh, complex** a, double* ortr, double* orti, scratch& room);

// Eigenvalues and eigenvectors of the matrix that was reduced to h by corth: QR iteration with
// shifts of origin, then back-substitution. h, ortr, orti are destroyed. A column of eigen_vec
// whose squared length is eps or more is scaled to unit length. After 30 n sweeps without success:
// eigen_val holds the roots found, behind them in eigen_val and in eigen_vec stands what the
// iteration left there. An exceptional shift (after 10 and 20 sweeps on one root) for one of the
// first two roots ends the process with a message.
void comqr2(int n, int low, int igh, double* ortr, double* orti, complex** h, complex* eigen_val,
            complex** eigen_vec, scratch& room);

// Turns the first m columns of eigen_vec, vectors of the balanced matrix, into those of the
// matrix that cbal was given: v := D P v.
void cbabk2(int n, int low, int igh, const double* scale, int m, complex** eigen_vec);

// Stable sort of eigenvalues and columns by descending real part.
void sort_eigval_eigvec(int n, complex* eigen_val, complex** eigen_vec, scratch& room);

// Square root with non-negative real part, its imaginary part with the sign of that of z.
complex csroot(complex z);

// sqrt(a^2 + b^2) without overflow or harmful underflow (C. Moler, D. Morrison, IBM J. Res. Dev.
// 27 (1983) 577).
double pythag(double a, double b);

} // namespace orvel
