// SPDX-License-Identifier: MIT
//
// From the eigenvectors of a tilt to its waves: boundary condition at the entrance surface, choice of
// branches (a Bloch wave is a branch), and amplitudes at any thickness. Index letters: r output
// reflection, t thickness; i, j beams. Thicknesses in angstrom, eigenvalues in 1/angstrom^2. Theory:
// A. J. F. Metherell in Electron Microscopy in Materials Science II (1975) 401.
#pragma once

#include "numeric/complex.h"
#include "numeric/scratch.h"
#include "solver/ovfunc_matrix.h"

namespace orvel {

// ---- boundary condition ---------------------------------------------------------------------

// Excitation amplitudes bc[j] of n Bloch waves whose eigenvectors are the columns of eigen_vec: the
// wave at the entrance surface is 1 in the beam at position 0 and 0 in all others. Returns 1 if
// dbg.bc_chk_flag asks for a report and one was given, else 0.
int upper_b_cond(int n, const double* beta_sel, const complex* const* eigen_vec, complex* bc, scratch& room);

// The same with the incident amplitude phase in place of 1.
int upper_b_cond_coherent(int n, const double* beta_sel, complex phase, const complex* const* eigen_vec, complex* bc,
                          scratch& room);

// Branches to sum over: all n in their order if bc_accuracy is exactly 1, else as many as are needed,
// by descending excitation, to hold that part of the total sum of |bc|^2.
void limited_branch(double bc_accuracy, int n, const complex* bc, int& n_branch, int* branch, scratch& room);

// ---- amplitudes -----------------------------------------------------------------------------

// The branches of a solved tilt, for an incident wave of amplitude 1 unless another one is in bc.
struct bloch_waves : beam_selection {
    double K_n;          // normal component of the incident wave vector, 1/angstrom, negative
    double* beta_sel;    // surface-normal factors of the selected beams
    complex* eigen_val;  // nesel eigenvalues
    complex** eigen_vec; // eigenvectors, [exact beam][branch]
    complex* bc;         // excitation amplitudes
    int n_branch;        // branches kept
    int* branch;         // their numbers
};

// Amplitude, and intensity, at thickness t of the beam at place pos among the exact beams; 0 for a
// place outside. The plain sum over the branches, which psi_of_beams forms for all beams at once.
complex psi_limited_ug(int pos, double t, const bloch_waves& waves);
double psi_to_intensity_limited_ug(int pos, double t, const bloch_waves& waves);

// Amplitudes psi[r][t] (one block) of num_g beams at the places pos[r] for all thicknesses: the
// product of what the branches have in each beam with their propagation to each thickness.
void psi_of_beams(int num_g, const int* pos, int num_thickness, const double* thickness, const bloch_waves& waves,
                  complex* psi, scratch& room);

} // namespace orvel
