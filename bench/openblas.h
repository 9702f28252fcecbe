// SPDX-License-Identifier: MIT
//
// The chain of a tilt as a user would build it from OpenBLAS: the structure matrix in a plain loop,
// LAPACK for factors, eigensystem and solutions, BLAS for products. Matrices are columns one behind
// the other, as LAPACK wants them; the middle layer of LAPACKE is used, which neither copies nor
// looks for NaN.
#pragma once

#include <vector>

#include "numeric/complex.h"
#include "solver/ovfunc_tilt.h"

struct openblas_float_complex {
    float re, im;
};
#define LAPACK_COMPLEX_CUSTOM
#define lapack_complex_double orvel::complex
#define lapack_complex_float openblas_float_complex
#include <cblas.h>
#include <lapacke.h>

extern "C" {
void openblas_set_num_threads(int num_threads);
char* openblas_get_config(void);
char* openblas_get_corename(void);
}

namespace orvel_bench {

using complex_vector = std::vector<orvel::complex>;

// Columns of an n x n matrix [row][column].
complex_vector columns_of(int n, const orvel::complex* const* matrix);

// What the routines need, kept between calls.
struct openblas_work {
    complex_vector val;          // eigenvalues
    complex_vector vec;          // eigenvectors
    complex_vector work;         // of zgeev
    std::vector<double> rwork;   // of zgeev
    std::vector<lapack_int> piv; // of the factors
};
openblas_work new_openblas_work(int n);

// c (n x m) = alpha a (n x l) b (l x m) + beta c; ld.. are the distances of columns.
void zgemm(int n, int m, int l, double alpha, const orvel::complex* a, int lda, const orvel::complex* b, int ldb,
           double beta, orvel::complex* c, int ldc);

// Eigenvalues and right eigenvectors into work; a is destroyed.
void zgeev(int n, orvel::complex* a, int lda, openblas_work& work);

// b (n x m) becomes the solution of a x = b; a becomes its factors. zgetrf and zgetrs, which is zgesv.
void solve(int n, int m, orvel::complex* a, int lda, orvel::complex* b, int ldb, openblas_work& work);

// a becomes its inverse: zgetrf and zgetri.
void invert(int n, orvel::complex* a, openblas_work& work);

// Generalised Bethe reduction in the leading block of a, order nesel + nbsel.
void bethe(int nesel, int nbsel, orvel::complex* a, openblas_work& work);

// One tilt from K_t to intensity[r + t num_g], and for each perturbed table pvg[k] the intensities
// to first order behind them, by the same theory as the program's: matrix, reduction, two products
// for the change in the base of the eigenvectors, one for the vectors, one solution.
void openblas_tilt(const orvel::tilt_problem& problem, orvel::r_hkl K_t, int num_thickness, const double* thickness,
                   int num_perturb, orvel::complex*** pvg, double* intensity);

} // namespace orvel_bench
