// SPDX-License-Identifier: MIT
//
// The many-beam solver, tilt by tilt: kinematics of the incident beam (ovfunc_kinematics.cpp), the
// potentials of all beam differences (ovfunc_potential.cpp), selection of beams, structure matrix
// and Bethe reduction (ovfunc_matrix.cpp), boundary condition, amplitudes and the whole of one tilt
// (ovfunc.cpp).
//
// Voltages in kV, lengths in angstrom, wave numbers and reciprocal vectors in 1/angstrom without
// 2 pi, V in volts, U in 1/angstrom^2. z runs along the zone axis; the incident wave points against
// it, so that K_z and K_n are negative: the phase exp(-i pi lambda t / K_n) rests on that. Index
// letters: r output reflection, t thickness, k perturbation; i, j beams. Theory: J. M. Cowley,
// Diffraction Physics (1995); H. A. Bethe, Ann. Phys. 87 (1928) 55; A. J. F. Metherell in Electron
// Microscopy in Materials Science II (1975) 401.
#pragma once

#include "beams/rfsearch.h"
#include "control/records.h"
#include "crystal/strct_f.h"
#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// ---- kinematics -----------------------------------------------------------------------------

// Wave number inside the crystal: vacuum wave number and the real mean inner potential, which is
// the low-order entry 000 if there is one, else calc_F_0_re.
double calc_abs_K(csd& crystal, double kv, lattice lat);

// Components of the incident wave vector along the zone axis (negative) and along the surface
// normal. cos_zn is the cosine between the two directions.
double calc_K_z(double abs_K, r_hkl K_t, lattice lat);
double calc_K_n(r_hkl K_t, double K_z, double normal_len, uvw normal_uvw, double cos_zn);

// Components of a reflection along the zone axis and along the surface normal.
double calc_g_z(hkl g, double zone_len, uvw zone_uvw);
double calc_g_n(hkl g, double normal_len, uvw normal_uvw);

// S_g = (K^2 - |K + g|^2) / (2 K), positive for a point inside the Ewald sphere.
double calc_excitation_error(r_hkl K_t, double K_z, double abs_K, hkl g, double g_z, lattice lat);

// Excitation errors Sg and surface-normal factors beta_ge = 1 + g_n / K_n of all beams of the list.
void calc_sg_beta_g(r_hkl K_t, double K_z, double K_n, double abs_K,
                    double zone_len, uvw zone_uvw, double normal_len, uvw normal_uvw,
                    int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, lattice lat,
                    double* Sg, double* beta_ge);

// What a job needs once for all tilts: lengths of zone axis and surface normal, the cosine between
// them, the wavelength, and the corrected energy (eV).
void pre_calc_intensity(double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                        double& zone_len, double& normal_len, double& cos_zn,
                        double& wavelength, double& evdash);

// Ends the process if there is no wave number in the crystal (a voltage that is not above 0) or if
// the surface normal does not point to the side of the zone axis: the phases rest on both.
void chk_incidence(double kv, double abs_K, uvw zone_uvw, uvw normal_uvw, double cos_zn);

// ---- potentials -----------------------------------------------------------------------------

// vg[i][j] = V(g_i - g_j) in volts for all N x N beams of the list: real part elastic, imaginary
// part absorptive. err_flag becomes 1 if a reflection lies outside the scattering tables, else 0.
// Applies the crystal's constraints first.
void potential_matrix_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv,
                          lattice lat, complex** vg, int& err_flag);

// Potentials vgv[i] = V(g_i) in volts of all N beams of a list: elastic and absorptive, through the
// low-order entries. A reflection outside the scattering tables is told on the console.
void vgv_reim_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv);

// Elastic potentials, and the X-ray structure factors fxgv[i] (electrons in a cell) that belong to
// them by the formula of Mott, with the nuclear charges of all sites.
void vgv_fxgv_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv, complex* fxgv);

// Copies an n x n table between vg and the perturbed table of the given number.
void pvg_to_vg(int index, int n, complex*** pvg, complex** vg);
void vg_to_pvg(int index, int n, complex** vg, complex*** pvg);

// Writes the table into %s_vg.txt if dbg.vg_dump_flag is 1.
void debug_vg_dump(complex* const* vg, int n);

// ---- selection and structure matrix ---------------------------------------------------------

// Divides the beams of the list for one tilt: sel holds the positions of nesel exact and then nbsel
// Bethe beams, each ascending. With epsilon.vg_select_flag 0 the list stands as it is. A list that
// does not begin with 000 ends the process.
void vg_select_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                       const complex* const* vg, const hkl* reflex_sel, const double* Sg,
                       const beam_search& bs, uvw zone_uvw, double kv);
void vg_select_wg_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                          const complex* const* vg, const hkl* reflex_sel, const double* Sg,
                          double wgbmin, double wgmax, double kv);
void vg_select_sg_info_ug(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                          const hkl* reflex_sel, const double* Sg, double sgbmin, double sgmax);
void vg_select_sg_info_ug_multi(int num_exact_beam, int num_bethe_beam, int& nesel, int& nbsel, int* sel,
                                const hkl* reflex_sel, const double* Sg,
                                const double* sgbmin_lz, const double* sgmax_lz, uvw zone_uvw);

// beta_ge of the selected beams, and out_pos[r]: the place of each output beam (a position in the
// list) among the exact beams of the selection, or -1.
void vg_select_trans_ug(int num_exact_beam, int num_bethe_beam, int nesel, int nbsel, const int* sel,
                        const double* beta_ge, double* beta_sel, int num_g, const int* out_beams, int* out_pos);

// Structure matrix of the selected beams, order nesel + nbsel: U(g_i - g_j) / sqrt(beta_i beta_j)
// off the diagonal, (2 K S_i + i U'_0) / beta_i on it, in 1/angstrom^2.
void construct_ug_mat_slct(int nesel, int nbsel, const int* sel, double kv, const complex* const* vg,
                           const double* Sg, const double* beta_ge, complex** a_matrix, scratch& room);

// Reduction to the exact beams, a_matrix left unchanged. Generalised: A11 - A12 A22^-1 A21; simple:
// only the diagonal of A22 stands in the denominator.
void g_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room);
void simple_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room);

// The form that flag_bs names.
void bethe_reduction(int flag_bs, int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix,
                     scratch& room);

// ---- boundary condition and amplitudes ------------------------------------------------------

// Excitation amplitudes bc[j] of n Bloch waves whose eigenvectors are the columns of eigen_vec: the
// wave at the entrance surface is 1 in the beam at position 0 and 0 in all others. Returns 1 if
// dbg.bc_chk_flag asks for a report and one was given, else 0.
int upper_b_cond(int n, const double* beta_sel, const complex* const* eigen_vec, complex* bc, scratch& room);

// Branches to sum over: all n in their order if bc_accuracy is exactly 1, else as many as are needed,
// by descending excitation, to hold that part of the total sum of |bc|^2.
void limited_branch(double bc_accuracy, int n, const complex* bc, int& n_branch, int* branch, scratch& room);

// The same with the incident amplitude phase in place of 1.
int upper_b_cond_coherent(int n, const double* beta_sel, complex phase, const complex* const* eigen_vec, complex* bc,
                          scratch& room);

// Amplitude, and intensity, at thickness t (angstrom) of the beam at place pos among n exact beams,
// for an incident wave of amplitude 1; 0 for a place outside.
complex psi_limited_ug(int pos, double t, int n, int n_branch, const int* branch, double K_n, const double* beta_sel,
                       const complex* eigen_val, const complex* const* eigen_vec, const complex* bc, scratch& room);
double psi_to_intensity_limited_ug(int pos, double t, int n, int n_branch, const int* branch, double K_n,
                                   const double* beta_sel, const complex* eigen_val,
                                   const complex* const* eigen_vec, const complex* bc, scratch& room);

// Amplitudes psi[r][t] (one block) of num_g beams at the places pos[r] for all thicknesses: the
// product of what the branches have in each beam with their propagation to each thickness.
void psi_of_beams(int num_g, const int* pos, int num_thickness, const double* thickness, int n,
                  int n_branch, const int* branch, double K_n, const double* beta_sel, const complex* eigen_val,
                  const complex* const* eigen_vec, const complex* bc, complex* psi, scratch& room);

// Working store of a job for N beams; each member is written anew at each tilt.
struct work_cal_int {
    double* Sg;             // N: excitation errors
    double* beta_ge;        // N: surface-normal factors
    double* beta_sel;       // N: the same of the selected beams
    complex** a_matrix;     // N x N: structure matrix
    complex** bethe_matrix; // N x N: reduced matrix
    complex** eigen_vec;    // N x N: eigenvectors, [beam][branch]
    complex* eigen_val;     // N: eigenvalues, 1/angstrom^2
    complex* bc;            // N: excitation amplitudes
    int* branch;            // N: branches kept
    int* out_pos;           // num_g: output beams among the exact beams
    int* sel;               // N: selected beams
    int num_perturb;        // perturbed potentials; without any the members below are null
    complex** eigen_vec_inv;
    complex** p_a_matrix;
    complex** p_bethe_matrix;
    complex** p_eigen_vec;
    complex* p_eigen_val;
    complex* p_bc;
    scratch room; // what a tilt needs beside, mostly in numeric
};
void alloc_work_cal_int(int N, int num_g, int num_perturb, work_cal_int& work);
void free_work_cal_int(work_cal_int& work);

// ---- one tilt -------------------------------------------------------------------------------

// What stays the same for all tilts of a job. The arrays belong to the job.
struct tilt_problem {
    const beam_search* bs;
    int num_exact_beam;
    int num_bethe_beam;
    const hkl* reflex_sel;
    complex** vg;         // potentials of all beam differences, volts
    int num_g;            // output beams
    const int* out_beams; // their positions in reflex_sel
    double kv;
    uvw zone_uvw;
    uvw normal_uvw;
    lattice lat;
    double abs_K;    // wave number in the crystal
    double zone_len; // lengths of zone axis and surface normal, cosine between them
    double normal_len;
    double cos_zn;
};

// What the solution of one tilt leaves beside the working store.
struct tilt_state {
    double K_n;   // normal component of the incident wave vector, negative
    int nesel;    // exact beams of this tilt
    int nbsel;    // Bethe beams of this tilt
    int n_branch; // branches kept
};

// First half of a tilt: wave vector, excitation errors, selection of beams.
tilt_state select_tilt(const tilt_problem& problem, r_hkl K_t, work_cal_int& work);

// Second half: structure matrix, Bethe reduction, eigensolution, boundary condition, branches.
// bethe_word is the trace text of the reduction; phase the incident amplitude, or null for 1.
void solve_tilt(const tilt_problem& problem, const char* bethe_word, const complex* phase,
                tilt_state& state, work_cal_int& work);

// Amplitudes psi[r] of all output beams of a solved tilt at thickness t, angstrom; and psi[r][t] (one
// block) for all thicknesses.
void tilt_amplitudes(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                     double t, complex* psi);
void tilt_amplitudes(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                     int num_thickness, const double* thickness, complex* psi);

// One tilt from K_t to intensity[r][t], for an incident intensity of 1; a beam that the selection of
// this tilt leaves out has 0. With num_perturb above 0 also p_intensity[k][r][t] for the perturbed
// tables pvg[k]. While the selection dump is active, its row is written and intensities are 0.
void calc_intensity_with_perturb_ug(r_hkl K_t, double abs_K, const beam_search& bs,
                                    int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel,
                                    complex** vg, int num_perturb, complex*** pvg,
                                    int num_g, const int* out_beams, int num_thickness, const double* thickness,
                                    double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                                    double zone_len, double normal_len, double cos_zn,
                                    double** intensity, double*** p_intensity, work_cal_int& work);

// The same for an incident wave of amplitude phase: amplitude[r][t]. Perturbations end the process.
void calc_intensity_ug_coherent(r_hkl K_t, double abs_K, complex phase, const beam_search& bs,
                                int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel,
                                complex** vg, int num_perturb, complex*** pvg,
                                int num_g, const int* out_beams, int num_thickness, const double* thickness,
                                double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                                double zone_len, double normal_len, double cos_zn,
                                complex** amplitude, double*** p_intensity, work_cal_int& work);

} // namespace orvel
