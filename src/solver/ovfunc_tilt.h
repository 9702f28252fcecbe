// SPDX-License-Identifier: MIT
//
// One tilt from its wave vector to amplitudes and intensities: what all tilts of a job share, the
// working store, and the steps of a tilt. Tilts are independent of each other. Index letters: r output
// reflection, t thickness, k perturbation; thicknesses in angstrom.
#pragma once

#include "beams/rfsearch.h"
#include "numeric/complex.h"
#include "numeric/scratch.h"
#include "solver/ovfunc_amplitude.h"
#include "solver/ovfunc_kinematics.h"

namespace orvel {

// What stays the same for all tilts of a job. The arrays belong to the job.
struct tilt_problem : beam_setup {
    beam_geometry geometry;
    complex** vg;         // potentials of all beam differences, volts
    int num_g;            // output beams
    const int* out_beams; // their positions in reflex_sel
    int num_thickness;
    const double* thickness;
    int num_perturb; // perturbed potentials
    complex*** pvg;  // a table each
};

// The problem of a setup with the table vg, as yet without output and perturbations. lat is that of the crystal.
tilt_problem new_tilt_problem(const beam_setup& setup, csd& crystal, complex** vg, lattice lat);

// Working store of a job for N beams: the tilt at hand, with its selection and its branches in front.
// Each member is written anew at each tilt.
struct work_cal_int : bloch_waves {
    double* Sg;             // N: excitation errors
    double* beta_ge;        // N: surface-normal factors
    complex** a_matrix;     // N x N: structure matrix
    complex** bethe_matrix; // N x N: reduced matrix
    int* out_pos;           // num_g: output beams among the exact beams
    scratch room;           // what a tilt needs beside, mostly in numeric
    int num_perturb;        // perturbed potentials; without any the members below are null
    complex** eigen_vec_inv;
    complex** p_a_matrix;
    complex** p_bethe_matrix;
    complex** p_eigen_vec;
    complex* p_eigen_val;
    complex* p_bc;
};
void alloc_work_cal_int(int N, int num_g, int num_perturb, work_cal_int& work);
void free_work_cal_int(work_cal_int& work);

// First half of a tilt: wave vector, excitation errors, selection of beams.
void select_tilt(const tilt_problem& problem, r_hkl K_t, work_cal_int& work);

// Second half: structure matrix, Bethe reduction, eigensolution, boundary condition, branches. phase is the
// incident amplitude, or null for 1.
void solve_tilt(const tilt_problem& problem, const complex* phase, work_cal_int& work);

// Amplitudes psi[r] of all output beams of a solved tilt at thickness t; and psi[r][t] (one block) for all
// thicknesses of the problem.
void tilt_amplitudes(const tilt_problem& problem, work_cal_int& work, double t, complex* psi);
void tilt_amplitudes(const tilt_problem& problem, work_cal_int& work, complex* psi);

// One tilt from K_t to intensity[r][t], for an incident intensity of 1; a beam that the selection of
// this tilt leaves out has 0. With perturbed potentials also p_intensity[k][r][t] for each table pvg[k].
// While the selection dump is active, its row is written and intensities are 0.
void calc_intensity_with_perturb_ug(const tilt_problem& problem, r_hkl K_t, double** intensity, double*** p_intensity,
                                    work_cal_int& work);

// The same for an incident wave of amplitude phase: amplitude[r][t]. Perturbations end the process.
void calc_intensity_ug_coherent(const tilt_problem& problem, r_hkl K_t, complex phase, complex** amplitude,
                                work_cal_int& work);

} // namespace orvel
