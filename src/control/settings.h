// SPDX-License-Identifier: MIT
//
// The two global records of settings and their readers: dbg comes from the optional file orvel.ini,
// epsilon from the EPS_CONTROL_PARAMETERS block of the parameter file. Both are complete before a job
// begins; a new key is a field here and a row of the tables in settings.cpp.
#pragma once

#include <cstdio>

#include "control/limits.h"

namespace orvel {

// Dump switches. reflex_only_flag ends the run behind the beam table and vg_sel_chk_flag replaces
// intensities by the selection of beams; the others add console text or files. "Stored" flags are read
// and kept, and nothing looks at them.
struct dbg_record {
    std::FILE* dump_fp;       // stream of the selection dump; null while none is open
    char base_name[name_max]; // stem of the parameter file
    int eigval_dump_flag;     // eigenvalues of each eigensolution
    int eigvec_dump_flag;     // eigenvectors of each eigensolution
    int sg_dump_flag;         // 1: excitation errors
    int betag_dump_flag;      // 1: surface-normal factors
    int reflex_dump_flag;     // stored
    int reflex_only_flag;     // 1: the run ends behind the reflection report
    int vg_dump_flag;         // 1: potential table into %s_vg.txt
    int a_mat_dump_flag;      // structure matrix of each tilt
    int b_mat_dump_flag;      // Bethe-reduced matrix of each tilt
    int b_cond_dump_flag;     // excitation amplitudes of each tilt
    int bc_chk_flag;          // 1, 2: report excitation amplitudes above 1
    int all_int_out_flag;     // stored
    int covar_dump_flag;      // stored
    int alpha_dump_flag;      // stored
    int beta_dump_flag;       // stored
    int obs_cal_dump_flag;    // stored
    int ideal_cr_cal_flag;    // stored
    int atm_pos_out_flag;     // 1: generated atom positions into %s_aps.txt
    int vg_sel_chk_flag;      // selection dump of the tilt loop instead of its intensities
    int process_mon_flag;     // 1: trace of the stages of each tilt
    int wg_xig_list_flag;     // stored
    int print_bij_flag;       // stored; 1 unless set
    int chk_data_dump_flag;   // 1: report each block word that matched
};

// Numerical settings; the default stands behind each.
struct epsilon_record {
    double general_eps;          // 1e-10: disk test of the tilt mesh, small arguments
    double eigen_eps;            // 1e-8: tolerance of the eigensolvers
    double inv_eps;              // 1e-8: absolute pivot limit of the inversions
    double degeneracy_eps;       // 1e-8: eigenvalues closer than this do not mix
    double perturb_step;         // 0.001: relative step of numerical derivatives
    double tol_chisq_abs;        // 0.01
    double tol_chisq_rel;        // 0.001
    double tol_parameter;        // 0.01
    double tol_lambda;           // 10
    double marq_lambda_max;      // 1e6
    double intensity_scaling;    // 10000: intensity of the incident beam
    double bc_accuracy;          // 1: part of the excitation kept; exactly 1 keeps all branches
    double corr_threshold;       // 0.5: correlations above it are reported
    double w_sq_coef;            // 1
    double w_exponent_coef;      // 0
    double w_exponent;           // 4
    double scale_rst_chisq;      // 1
    double e_density_gmax_val;   // 12: largest g of a 3D density map, 1/angstrom
    int vg_select_flag;          // 1: beams are selected anew for each tilt; 0: the list stands
    int eigmat_func;             // 0: eispack_cg, 1: eigen_c_mat
    int invmat_func;             // 0: inv_c_mat
    int bc_invmat_func;          // 0: inverse
    int svd_flag;                // 1
    int num_thickwidth;          // 0: half width of the thickness averaging, in points
    int thickwidth_type;         // 2: 0 rectangle, 1 triangle, 2 Gaussian
    int cal_range_flag;          // 0
    int numh;                    // 20
    int auto_multiplicity_off;   // 0: multiplicities follow from the symmetry; 1: they are 1
    int flag_modified_marquardt; // 1
};

extern dbg_record dbg;
extern epsilon_record epsilon;

// Tolerance that the routines behind eispack_cg work with; set by each call of it.
extern double eps;

// Sets dbg to its defaults and reads orvel.ini in the working directory, if there is one. A file
// without INI_PARAM_END ends the process.
void read_ini_file();

// Sets epsilon to its defaults and reads the EPS_CONTROL_PARAMETERS block; the stream then stands
// behind the block. A missing block word ends the process.
void read_eps_ctrl_params(std::FILE* stream);

} // namespace orvel
