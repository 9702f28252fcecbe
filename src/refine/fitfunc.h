// SPDX-License-Identifier: MIT
//
// What a refinement cycle and its driver work with: the numbering of fit parameters and the vector
// of their values (fitfunc.cpp), the model of the experiment between raw intensities and measured
// ones (fitfunc_model.cpp), residuals and reports (fitfunc_residual.cpp, fitfunc_report.cpp), and
// the writer of a complete parameter file (fitfunc_writer.cpp).
#pragma once

#include <cstdio>

#include "refine/fitting.h"

namespace orvel {

// ---- refinable values -----------------------------------------------------------------------

// What a refinable value belongs to.
enum fit_value_kind {
    value_crystal,
    value_condition, // tilts and voltage: no derivative is computed
    value_scale,
    value_thickness,
    value_width, // no derivative is computed
    value_H_shift,
    value_G_shift,
};

// A refinable value, its descriptor and its place: data set, thickness, reflection (-1: none).
struct fit_value {
    double* value;
    fitpar* descriptor;
    fit_value_kind kind;
    int set, t, r;
};

// All refinable values in the order of their numbering. The array goes back by std::free.
struct fit_value_list {
    int count;
    fit_value* at;
};

// The values of a crystal: cell; for each site coordinates, temperature factor by slot, occupancy;
// low-order values by lof_type, whose invalid kinds end the process.
fit_value_list list_csd_values(csd& crystal);

// The values of data sets: tilts, voltage; for each thickness scale, thickness, width, and for each
// reflection both shifts.
fit_value_list list_fed_values(int num_fed, fed* sets);

// ---- constraints over data sets -------------------------------------------------------------
// As in crystal/cnstfunc.h, with the names of all data sets and none of the crystal.

double constraint_value_fed(const char* expr, int num_fed, fed* sets);
double val_trans_fed(const char* token, int num_fed, fed* sets);
double val_search_fed(const char* name, int num_fed, fed* sets);
void constraint_fed(int num_fed, fed* sets);

// ---- the parameter vector -------------------------------------------------------------------

// Numbers all parameters, crystal first. Hands out how many there are in all, how many values there
// are, how many parameters the crystal has, and how many are restrained. A restraint of width 0 ends
// the process.
void count_num_fitpar(csd& crystal, int num_fed, fed* sets, int& num_fitpar, int& num_value_slots,
                      int& num_csd_fitpar, int& num_rst_fitpar);

// One value of it: kind_adj and kind_rst take the number next, others -1.
void chk_fitpar(int idx, int& ntp, int& next, int& num_rst);

// Values of all parameters into the vector, and back.
void csd_fed_to_fitpar(csd& crystal, int num_fed, fed* sets, int num_fitpar, double* par);
void fitpar_to_csd_fed(csd& crystal, int num_fed, fed* sets, int num_fitpar, const double* par);

// esd of each parameter from the diagonal of the covariance matrix.
void fitpar_sigma_to_csd_fed(csd& crystal, int num_fed, fed* sets, int num_fitpar, const double* const* covariance);

// Copy of the descriptor of parameter ntp; an unknown number ends the process.
fitpar search_csd_fed(int ntp, csd& crystal, int num_fed, fed* sets);

// Derivative step of a value: relative, with a floor. And the steps of all values but the widths.
double eval_step(double value);
void set_csd_fed_step(csd& crystal, int num_fed, fed* sets);

// Writes all values into a full copy of the crystal, parameter ntp raised by its step; one value.
void make_csd_perturb(int ntp, csd& crystal, csd& perturbed);
void ith_csd_prtb(int i, int ntp, double& dest, double value, double step);

// ---- model of the experiment ----------------------------------------------------------------

// Thicknesses to evaluate: T groups of 2 n + 1 around each thickness, then the same raised by the
// step of the thickness; the second for n = 0.
void thickness_set(const fed& set, int n, double* thick_list);
void thickness_step(const fed& set, double* list);

// 2 n + 1 averaging weights by epsilon.thickwidth_type, and the average of a group of values; a width
// of 0 takes the first.
void thickweight_set(int n, double* thick_wt);
double thickness_average(int n, double width, const double* values, const double* thick_wt);

// Scaled and averaged intensities of pixel p, reflection r, thickness t from the raw ones of its tilt.
void scale_tav(const fed& set, int p, int r, int t, cycle_intensities& calculated);

// Kernel of pixel averaging (n x n, odd n), divided by its sum: a Gaussian for par above 0, the square
// of sin(y)/y below. Written to convlt.dat.
void calc_avrpix_wt(int n, double** kernel, double gaussian_par);

// Convolution in place with such a kernel; terms outside the matrix are left out.
void gaussian_convolution(int size, double** matrix, int n, double** kernel);
void gaussian_conv(int rows, int columns, double** matrix, int n, double** kernel);

// Interpolations: cubic through 4 points; bicubic in a table f[i][j] and in a block of 4 x 4;
// bilinear in a unit square.
double cubic_intrpl(const double* x, double xq, const double* y);
double bicubic_intrpl(double xq, double yq, int nx, int ny, const double* x, const double* y, double** f);
double bicub_intrpl(double xq, double yq, const double* x, const double* y, double** f);
double bilin_intrpl(double u, double v, double f00, double f10, double f01, double f11);

// The four measured points around a point, which lies at the fractions u and v between them: intensities
// and sigmas. Index 1 is the next one along h, then along g.
struct measured_cell {
    double u, v;
    double i00, i10, i01, i11;
    double s00, s10, s01, s11;
};

// The points around (h, g) in a measured pattern of intensity; flag is 1 outside its square.
measured_cell find_mat_ii_obs(double h, double g, const ei& intensity, const double* obs_raw, const double* sig_raw,
                              int& flag);

// Samples the measured pattern of reflection r and thickness t at the shifted pixels of the grid, into obs
// and sig. flag is 1 if any lies outside.
void calc_extr_obs_int(double H_shift, double G_shift, ei& intensity, int r, int t, int& flag);

// All reflections and thicknesses of a data set; tells of those with points outside.
void set_extr_obs_int(int T, int R, const fed& set, ei& intensity, std::FILE* log);

// Slope grad[ix][iy] of pattern[ix][iy] over a step along the first or second index; lower and upper
// are the bounds of that axis. Where no neighbour is inside (flag) it is 0. A step below 0 or
// above the pitch ends the process.
void calc_Hshift_grad(double step, double lower, double upper, int nx, int ny,
                      double** pattern, int** flag, double** grad);
void calc_Gshift_grad(double step, double lower, double upper, int nx, int ny,
                      double** pattern, int** flag, double** grad);

// ---- residuals ------------------------------------------------------------------------------

// weight / sigma^2, or 0 for a sigma that is not above 0.
double eval_weight(double sigma, double weight);

// Weighted sum of squared residuals of a data set.
double calc_chisq(const fed& set, const ei& intensity);

// Residual indices of one group of points.
struct residual_group {
    double chisq;
    double R;     // unweighted, over points with a weight
    double Rw;    // weighted
    double GoF;   // goodness of fit
    int num_data; // points with a weight
};

// All points, those of the zero-order Laue zone, and those of higher zones. What has no points is -1
// or 0.
struct residual_set {
    residual_group total, zolz, holz;
};
void calc_Rw_factor(const fed& set, const ei& intensity, residual_set& residuals);
void calc_total_Rw_factors(int num_fed, const fed* sets, const ei* intensities, residual_set& residuals);

// Scale of the last thickness and weighted R factor for an ideal scale at each thickness.
void calc_scaled_Rw_factor(const fed& set, const ei& intensity, double& scale, double& Rw);

// ---- reports --------------------------------------------------------------------------------

void print_Rw_factors(std::FILE* log, int num_fed, const fed* sets, const ei* intensities);
void print_scaled_Rw_factors(std::FILE* stream, int num_fed, const fed* sets, const ei* intensities);
void print_int_ratio(std::FILE* stream, int num_fed, const fed* sets, const ei* intensities);

// One file base%d.txt for each data set with observed and calculated patterns, under the cell.
void fit_res_output(int num_fed, const fed* sets, const ei* intensities, const csd& crystal, const char* base);

// Refined parameters with their esd; shifts go to a file of their own.
void par_output_short(csd& crystal, int num_fed, fed* sets, std::FILE* log, const char* shift_file);
void fprintf_fitpar(const fitpar& descriptor, double value, std::FILE* stream);
void fprintf_fitpar_stdo(const fitpar& descriptor, double value, std::FILE* stream);

// Correlation coefficients into a file; those above epsilon.corr_threshold also to the stream.
void output_corr_coef(csd& crystal, int num_fed, fed* sets, int num_fitpar, const double* const* covariance,
                      const char* file_name, std::FILE* stream);

// How a refinement ended: 1 converged, 2 chi-square below its tolerance, 3 tolerable increase, -1
// lambda too large, others not converged.
void output_fit_diagnostics(int status, int num_fitpar, double chisq, double lambda, std::FILE* log);
void fit_end_message(std::FILE* log);

// ---- parameter-file writer ------------------------------------------------------------------

// A complete parameter file of the job word FIT_MODE; pieces of it below. i is the number of a data
// set, t of a thickness. A value line by its kind; an unknown kind ends the process.
void output_FIT_MODE_file(const char* name, csd& crystal, int max_iteration, int num_fed, fed* sets,
                          const ei* intensities);
void print_fit_mode_opening(std::FILE* stream, const char* name);
void print_EPS_CONTROL_PARAMETERS(std::FILE* stream);
void print_CRYSTAL_STRUCTURE_DATA(std::FILE* stream, csd& crystal);
void print_LOW_ORDER_FG(std::FILE* stream, csd& crystal);
void print_calcpar1(std::FILE* stream, int i, const fed* sets);
void print_BEAM_SEARCH(std::FILE* stream, const fed& set);
void print_THICKNESS_BLOCK(std::FILE* stream, int i, int t, const fed* sets, const ei* intensities);
void fprintf_cstr(const fitpar& descriptor, double value, const char* label, std::FILE* stream);

} // namespace orvel
