// SPDX-License-Identifier: MIT
//
// The jobs of the many-beam solver and what they share: the record of a job's conditions, its
// blocks of the parameter file, the mesh of incident tilts, and the result files.
#pragma once

#include <cstdio>

#include "beams/rfsearch.h"
#include "control/records.h"
#include "crystal/strct_f.h"
#include "jobs/wave_sums.h"
#include "numeric/complex.h"
#include "solver/ovfunc.h"

namespace orvel {

// Kinds of tilt mesh, calc_type. A job that builds no mesh sets mesh_none.
enum mesh_kind {
    mesh_none = -1,
    mesh_point = 0,  // one tilt
    mesh_line = 1,   // along H
    mesh_disk = 2,   // square with a round mask
    mesh_square = 3, // square
};

// Place of a tilt in the mesh.
struct pixel {
    int ih, ig;  // mesh indices: from 0 for the disk, around 0 for line and square
    int flag;    // 1: computed, 0: outside the disk
    double h, g; // tilt coordinates
};

// Conditions of a job: a local of the job function and owner of its arrays. A tilt (H, G) is the
// tangential wave vector K_t = (H zolzbase1 + G zolzbase2) / 2.
struct sd {
    uvw zone_uvw;          // zone axis, pointing upward
    uvw normal_uvw;        // surface normal, pointing upward
    r_hkl zolzbase1;       // first base vector of the ZOLZ
    r_hkl zolzbase2;       // second one: perpendicular, of the same length
    double h_tilt, g_tilt; // centre of the mesh
    double kv;             // accelerating voltage, kV
    struct beam_search beam_search;
    int num_exact_beam;
    int num_bethe_beam;
    hkl* reflex_sel; // all beams, exact ones first
    int num_g;       // output reflections
    int* out_beams;  // num_g positions in reflex_sel
    int num_thickness;
    double* thickness;   // num_thickness, angstrom
    int calc_type;       // a mesh_kind
    double disksize;     // half width of the mesh, radius of the disk
    double h_bgn, h_end; // range of the mesh relative to its centre
    double g_bgn, g_end;
    int num_k_points;             // tilts of the mesh
    int num_k_points_effective;   // tilts that are computed
    int num_pix_side;             // tilts along one side
    r_hkl* k_tilt;                // num_k_points: K_t, row by row, H fastest
    pixel* k_pixel;               // num_k_points
    double*** sim_intensity;      // [reflection][thickness][tilt]
    double coherent_cs;           // spherical aberration, angstrom
    double coherent_defocus;      // angstrom
    double probe_pos[3];          // probe position, direct-lattice coordinates
    int branch_begin, branch_end; // branches to report, from 1, both included
    r_uvw base_x1, base_x2;       // real-space base vectors of a map, of length 1/|zolzbase1|
    int nx, ny;                   // points of a map along them
    double range_x1, range_x2;    // first and last coefficient along base_x1
    double range_y1, range_y2;    // and along base_x2
    double area_proj_cell;        // area of the projected cell, square angstrom
    int nz;                       // points of a three-dimensional map along c
    double range_z1, range_z2;    // its first and last coefficient
    int unitcell_xyz;             // 1: the map is the whole cell
};

// The jobs of the solver. Their blocks differ in a few words and limits, tables of which go by this.
enum solver_job { solver_sim,
                  solver_dispsurf,
                  solver_bloch,
                  solver_tfringe };

// ---- the job functions ----------------------------------------------------------------------
// Each gets the parameter file, which stands behind the settings block and which it closes, the
// log, and the stem that its files are named from.

// SIM_MODE: intensities of a CBED pattern; stem_dre.txt and one stem_rs%d.txt for each thickness.
void ov_simulation(std::FILE* file, std::FILE* log, const char* stem);

// SIM_COHERENT_MODE: complex amplitudes with the phase of a probe; files as in SIM_MODE.
void ov_sim_coherent(std::FILE* file, std::FILE* log, const char* stem);

// DISPSURF_MODE: branches over a mesh of tilts; stem_ds.txt, stem_amp.txt, stem_int.txt, stem_dre.txt.
void ov_dispersion_surface(std::FILE* file, std::FILE* log, const char* stem);

// BLOCH_MODE: Bloch states of one tilt; stem_kn.txt, stem_pp.txt, one stem_b%d.txt for each branch,
// stem_dre.txt.
void ov_bloch_state(std::FILE* file, std::FILE* log, const char* stem);

// TFRINGE_MODE: one tilt over thickness; stem_int.txt, stem_re_im.txt, stem.plt.
void ov_tfringe(std::FILE* file, std::FILE* log, const char* stem);

// ---- blocks of the parameter file -----------------------------------------------------------

// The condition block of each job whole, with the beam search and its report.
void input_sim_data(sd& cond, csd& crystal, std::FILE* file);
void input_sim_coherent_data(sd& cond, csd& crystal, std::FILE* file); // the COHERENT block behind it
void input_dispsurf_data(sd& cond, csd& crystal, std::FILE* file);
void input_bloch_data(sd& cond, csd& crystal, std::FILE* file);
void input_tfringe_data(sd& cond, csd& crystal, std::FILE* file);

// Single blocks, words included.
void fget_incident_beam(sd& cond, std::FILE* file);
void fget_calc_kxy_range(sd& cond, solver_job job, std::FILE* file);
void fget_beam_search_block(sd& cond, csd& crystal, std::FILE* file);
void report_beams(const sd& cond, csd& crystal); // the reflection report of the list
void fget_output_branch(sd& cond, solver_job job, std::FILE* file);
void fget_output_reflex(sd& cond, solver_job job, std::FILE* file);
void fget_output_thickness(sd& cond, solver_job job, std::FILE* file);
void fget_calc_t_range(sd& cond, std::FILE* file);

// CALC_RXY_RANGE with the base vectors of the map, and these alone; both are told on the console.
void fget_calc_rxy_range(sd& cond, lattice lat, std::FILE* file);
void make_map_base(sd& cond, lattice lat);

// Contents of the BEAM_SEARCH block.
void fget_sd_beams(sd& cond, csd& crystal, std::FILE* file);

// ---- steps of a job -------------------------------------------------------------------------

// Sets zolzbase2 and the tilt mesh.
void calc_kxy_tilt(sd& cond, lattice lat);

// New table of the potentials of all beam differences, N x N in volts, with its dump; head is the
// console's text in front. Tells log and console if a reflection lies outside the scattering tables.
complex** new_potential_matrix(const char* head, const sd& cond, csd& crystal, lattice lat, std::FILE* log);

// What all tilts of a job share; refers to arrays of cond and to vg.
tilt_problem tilt_problem_of(const sd& cond, csd& crystal, complex** vg, lattice lat);

// The tilt loops of SIM_MODE and SIM_COHERENT_MODE with their output.
void calc_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem);
void calc_coherent_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem, std::FILE* log);

// Script and one result file for each thickness: intensities of cond, or amplitudes
// coherent_amp[reflection][thickness][tilt]. a .. gamma are the cell parameters.
void sim_output(const sd& cond, double a, double b, double c, double alpha, double beta, double gamma,
                const char* stem);
void sim_coherent_output(const sd& cond, complex*** coherent_amp, double a, double b, double c,
                         double alpha, double beta, double gamma, const char* stem);

// Phase factor of each tilt: aberrations of the lens and position of the probe. Sign and form as
// in J. C. H. Spence & J. M. Zuo, Electron Microdiffraction (1992).
void calc_initial_phase(const sd& cond, double wavelength, complex* initial_phase, lattice lat);

// The sweep of DISPSURF_MODE over all tilts of the mesh; clears epsilon.vg_select_flag so that a
// branch number means the same at every tilt.
void calc_disp_surf_ug(const tilt_problem& problem, int num_k_points, const r_hkl* k_tilt, const pixel* k_pixel,
                       int branch_begin, int branch_end, int num_thickness, const double* thickness, const char* stem);

// The tilt of BLOCH_MODE and its maps; clears epsilon.vg_select_flag.
void calc_bloch_state_ug(const tilt_problem& problem, r_hkl K_t, const sd& cond, const char* stem, std::FILE* log);

// Potential in volts at r (direct-lattice coordinates) from the first n beams.
complex calc_projpot(r_uvw r, int n, const hkl* reflex_sel, const complex* const* vg);

// Bloch state j (from 0) at r from n exact beams; no excitation amplitude enters.
complex calc_bloch_state_func_ug(int j, r_uvw r, int n, const hkl* reflex_sel, r_hkl K_t,
                                 const double* beta_ge, const complex* const* eigen_vec);

// The tilt of TFRINGE_MODE and its tables.
void calc_tfringe_ug(const tilt_problem& problem, r_hkl K_t, int num_thickness, const double* thickness,
                     const char* stem);

// Frees the arrays of a job.
void free_sd(sd& cond);

// ---- maps -----------------------------------------------------------------------------------

// Coordinate i of n evenly spaced ones from first to last; first if there is only one.
double map_coordinate(int i, int n, double first, double last);

// The point x base_x1 + y base_x2 of a map.
r_uvw map_point(const sd& cond, double x, double y);

// The wave exp(2 pi i g.r).
complex plane_wave(r_hkl g, r_uvw r);
complex plane_wave(hkl g, r_uvw r);

// Waves of n beams along the rows of a map, summed run by run: neighbouring points of constant x
// that are computed together. Refers to cond and beams.
struct map_waves {
    const sd* cond;
    int n;
    const hkl* beams;
    wave_table table;
    complex* first;     // n waves at the first point of the run
    complex* amplitude; // n, of one sum
    int count;          // points of the run
};
map_waves new_map_waves(const sd& cond, int n, const hkl* beams);
void free_map_waves(map_waves& waves);

// Goes to the run that begins at point iy of the row at x. Returns its number of points, at most
// wave_run_max.
int start_run(map_waves& waves, double x, int iy);

// The sums of coef exp(2 pi i g.r) at the points of the run.
void sum_run(map_waves& waves, const complex* coef, complex* values);

// The map of the sum over n beams of coef exp(2 pi i g.r): rows of x, y, real and imaginary part
// into file, progress to the console.
void print_complex_map(const sd& cond, int n, const hkl* beams, const complex* coef, std::FILE* file);

} // namespace orvel
