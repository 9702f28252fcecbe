// SPDX-License-Identifier: MIT
//
// First-order perturbation of the eigensolution of a tilt: the intensities of a slightly changed
// crystal without another eigenproblem. Matrices are [row][column], eigenvectors are columns; C is
// the matrix of eigenvectors, B = C^-1 D C the change of the matrix in their base. The theory is
// that of Schroedinger for a matrix that need not be Hermitian (J. H. Wilkinson, The Algebraic
// Eigenvalue Problem (1965), chapter 2).
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"
#include "solver/ovfunc_tilt.h"

namespace orvel {

// Intensities p_intensity[k][r][t] of the tilt solved in work for each perturbed table of the problem; the
// selection of beams, the kinematics and the branches are those of the tilt.
void calc_perturb_ug(const tilt_problem& problem, double*** p_intensity, work_cal_int& work);

// Eigenvalues and eigenvectors of p_bethe_matrix to first order from those of bethe_matrix, order n.
// Eigenvalues whose real parts are closer than degeneracy_eps do not mix.
void perturbation2(const complex* eigen_val, const complex* const* eigen_vec, const complex* const* eigen_vec_inv,
                   int n, const complex* const* bethe_matrix, const complex* const* p_bethe_matrix,
                   double degeneracy_eps, complex* p_eigen_val, complex** p_eigen_vec, scratch& room);

// The same for the difference matrix D, with degenerate sets solved by themselves and eigenvalues to
// second order.
void perturb(const complex* eigen_val, const complex* const* eigen_vec, int n, const complex* const* D,
             double degeneracy_eps, complex* p_eigen_val, complex** p_eigen_vec, scratch& room);

// Eigenvalues alone, to first order, of p_matrix from those of matrix.
void eigen_val_perturbation(const complex* eigen_val, const complex* const* eigen_vec,
                            const complex* const* eigen_vec_inv, int n, const complex* const* matrix,
                            const complex* const* p_matrix, complex* p_eigen_val, scratch& room);

} // namespace orvel
