// SPDX-License-Identifier: MIT
//
// The refinement kernel: measured data sets with their readers (fitting_data.cpp) and storage
// (fitting_store.cpp), one least-squares cycle over them (fitting.cpp), and its Jacobian and normal
// equations (fitting_jacobian.cpp). The iteration around a cycle stands outside. Index letters:
// r reflection, t thickness, p pixel of the calculation grid, i measured point, k crystal parameter.
// Intensities are in units of epsilon.intensity_scaling times the scale factor, lengths in angstrom.
#pragma once

#include <cstdio>

#include "beams/rfsearch.h"
#include "control/records.h"
#include "crystal/csd.h"
#include "jobs/tilt_mesh.h"
#include "numeric/complex.h"

namespace orvel {

// One measured data set: the conditions of the experiment and all of it that may be refined. Every
// refinable value has its descriptor beside it. Matrices are [reflection][thickness].
struct fed : beam_setup { // a searched list is made anew in each cycle
    fitpar h_tilt_fitpar, g_tilt_fitpar;
    fitpar kv_fitpar;
    double* scale_factor; // num_thickness of each of the following
    fitpar* scale_fitpar;
    int num_thickness;
    double* thickness; // angstrom
    fitpar* thickness_fitpar;
    double* thickness_width; // half width of the thickness average, angstrom
    fitpar* thickness_width_fitpar;
    int* num_avrpix;         // size of the pixel-averaging kernel; 0: none
    double*** avrpix_wt;     // the kernels, square matrices
    double* gaussian_par;    // their parameter
    int calc_type;           // mesh_disk or mesh_square
    int num_pix_side;        // points on a side of the calculation grid
    double disksize;         // its half width
    char int_file[line_max]; // name of the intensity file
    int num_reflex;
    double* g_len;    // |g| of each reflection, filled in each cycle
    double** weight;  // weight in all sums
    double** H_shift; // shift of the measured pattern along H
    fitpar** H_shift_fitpar;
    double** G_shift; // and along G
    fitpar** G_shift_fitpar;
};

// Sigma of a grid point without measurement.
constexpr double not_measured = -1.0;

// The intensities of a data set, measured and calculated.
struct ei {
    int num_reflex;
    hkl* reflex_hkl; // in file order: the order of r everywhere
    int num_thickness;
    int num_obs_pix;             // measured points of a reflection at a thickness
    int num_obs_pix_side;        // in a row
    double obs_h_min, obs_h_max; // absolute bounds of the measured square
    double obs_g_min, obs_g_max;
    struct pixel* obs_pixel;       // num_obs_pix
    double ***obs_raw, ***sig_raw; // [r][t][i] as read
    int num_pix;                   // points of the calculation grid
    int num_pix_side;
    struct pixel* pixel;   // num_pix
    double*** cal;         // [r][t][p] calculated
    double ***obs, ***sig; // [r][t][p] measured, brought onto the grid; sig may be
                           // not_measured
};

// What a driver hands to each cycle.
struct fit_context {
    struct csd* csd; // its values are written by the cycle
    struct fed* fed; // num_fed data sets
    struct ei* ei;   // their intensities, same order
    int num_fed;
    int num_perturb;  // crystal parameters: num_csd_fitpar of count_num_fitpar
    const char* stem; // base of the result files
    std::FILE* log;
};

// Potentials of the beams of a data set in a cycle, N x N in volts, and those with each crystal parameter
// raised by its step, pvg[k] (null for none).
struct cycle_potentials {
    complex** vg;
    int num_perturb;
    complex*** pvg;
};

// Intensities of a data set in a cycle: raw ones of a single tilt and, from them, scaled ones of all
// pixels. c runs over the thicknesses of thickness_set. Without crystal parameters the stores of
// perturbations are null.
struct cycle_intensities {
    int n;                // the thickness average takes 2 n + 1 values
    double* thick_wt;     // their weights
    double** tilt_int;    // [r][c]
    double*** tilt_p_int; // [k][r][c]
    double*** pix_int;    // [p][r][2 T]: at thickness t, and at T + t with t raised by its step
    int num_perturb;
    double**** pix_p_int; // [p][r][t][k]: with crystal parameter k raised
};

// Normal equations alpha delta = beta of num_fitpar parameters. alpha[j][k] for k <= j is accumulated
// into, like beta: the driver clears both.
struct normal_equations {
    int num_fitpar;
    double** alpha;
    double* beta;
};

// ---- reading --------------------------------------------------------------------------------
// Faults of the files end the process.

// ITER_EXP_NUM: limit of iterations and number of data sets.
void read_ITEM_EXP_NUM(int& max_iteration, int& num_fed, std::FILE* file);

// One DATA_SET block with its intensity file; allocates all stores of both records.
void input_fit_exp_dataset(fed& set, ei& intensity, std::FILE* file);

// Its pieces.
void read_INCIDENT_BEAM(fed& set, std::FILE* file);
void read_CALC_KXY_RANGE(fed& set, ei& intensity, std::FILE* file);
void read_BEAM_SEARCH(fed& set, std::FILE* file);
void fget_ed_beams(fed& set, std::FILE* file);
void read_INTENSITY_DATA(fed& set, std::FILE* file);
void read_int_file(ei& intensity, const char* name);
void read_THICKNESS_BLOCK(int t, fed& set, std::FILE* file);
void read_STW_block(int t, fed& set, std::FILE* file);
void read_REFLEX_SHIFT_PAR(int t, fed& set, std::FILE* file);

// ---- storage --------------------------------------------------------------------------------

// Allocates the arrays of a data set; the beam list only for a manual method, with num_beams entries.
void alloc_ed(const beam_search& bs, int num_beams, int num_reflex, int num_thickness, fed& set);

// Allocates points and intensities by the sizes that the record holds; sig starts as "no measurement".
void alloc_ei(int num_reflex, int num_thickness, ei& intensity);

// Parts of both: the arrays of a data set by its counts; measured points; the calculation grid.
void alloc_ed_arrays(fed& set);
void alloc_ei_obs(ei& intensity);
void alloc_ei_grid(ei& intensity);

// Copies values and descriptors into records made by alloc_ed; averaging kernels are made anew.
void cpy_fed(int num_fed, const fed* source, fed* dest);

// Release of one record, and of arrays of them.
void free_ed(fed& set);
void free_ei(ei& intensity);
void free_fed_vector(int num_fed, fed* sets);
void free_fei_vector(int num_fed, ei* intensities);

// ---- one cycle ------------------------------------------------------------------------------

// One cycle for the fit vector par: writes it into the records, computes all patterns, and gives
// chi-square with the penalties of restraints, and the normal equations. Writes the patterns to
// stem_fst%d.txt in the first cycle of the process and to stem_res%d.txt in later ones.
void dynamical_calculation(const double* par, int num_fitpar, double** alpha, double* beta, double& chisq,
                           fit_context& context);

// Judges the incidence of a data set as chk_incidence of the solver jobs does, at the pixels that are
// computed; a cycle begins with it for all sets. What is no incidence ends the process.
void chk_incidence(const fed& set, csd& crystal, lattice lat);

// Potentials with crystal parameter k raised by its step, in pvg[k] (N x N each). flag becomes 1 if a
// reflection lies outside the scattering tables. lat is that of the unperturbed cell.
void perturbed_potential_matrix(int num_perturb, complex*** pvg, csd& crystal, const fed& set, lattice lat, int& flag);

// Beam search of a data set whose method is not manual; fills the counts and a new list.
void auto_ed_beams(fed& set, csd& crystal);

// The calculation grid around (h_tilt, g_tilt): point p = iy n + ix of n = num_pix_side on a side, with
// its tilt in K_t. effective counts the points that are computed.
void calc_K_xy_cbed(const fed& set, lattice lat, ei& intensity, r_hkl* K_t, int& effective);

// Pattern, chi-square and normal equations of one data set.
void calc_cbed_pattern_perturb(csd& crystal, fed& set, ei& intensity, const cycle_potentials& potentials,
                               normal_equations& equations, double& chisq, std::FILE* log);

// Copies pix_int[p][r][t] into cal; 0 outside the disk.
void set_calc_intensity_ei(int R, int T, int P, ei& intensity, double*** pix_int);

// ---- Jacobian and normal equations ----------------------------------------------------------

// The restraint of the parameter that a column belongs to.
struct restraint {
    int rst_flag;   // 1: there is one
    double value;   // current value
    double ini_val; // centre
    double rst;     // width
};

// Adds the normal equations of a data set to alpha and beta; penalty is the chi-square of restraints.
void eval_alpha_beta_rst(csd& crystal, const fed& set, const ei& intensity, const cycle_intensities& calculated,
                         normal_equations& equations, double& penalty);

// Sums over all points: weight times column times column, and weight times residual times column.
double calc_alpha_elm(const fed& set, const ei& intensity, double*** J_j, double*** J_k);
double calc_beta_elm(const fed& set, const ei& intensity, double*** J_j);

// Column J[r][t][p] of parameter j, which starts as zeros, and its restraint. The three below it are
// for scale and thickness, for crystal values, and for shifts; each writes only what is its own.
void calc_jacobian_rst_j(int j, csd& crystal, const fed& set, const ei& intensity,
                         const cycle_intensities& calculated, double*** J, restraint& rst);
void calc_jac_rst_st_j(int j, const fed& set, const ei& intensity, double*** pix_int, double*** J, restraint& rst);
void calc_jac_rst_perturb_j(int j, csd& crystal, const fed& set, const ei& intensity,
                            const cycle_intensities& calculated, double*** J, restraint& rst);
void calc_jac_rst_shift_j(int j, const fed& set, const ei& intensity, double*** J, restraint& rst);

// The column of one crystal value, if it is parameter j.
void eval_jac_2D_rst_j(double value, const fitpar& descriptor, int j, const fed& set, const ei& intensity,
                       double**** pix_p_int, double*** J, restraint& rst);

// Clears a column.
void init_jacobian_j(int R, int T, int P, double*** J);

} // namespace orvel
