// SPDX-License-Identifier: MIT
//
// The record of a job's conditions, and what every job of the solver makes of it before its tilts.
#pragma once

#include <cstdio>

#include "beams/rfsearch.h"
#include "control/records.h"
#include "jobs/tilt_mesh.h"
#include "numeric/complex.h"
#include "solver/ovfunc_tilt.h"

namespace orvel {

// Conditions of a job: a local of the job function and owner of its arrays. Incidence and
// beams come first.
struct sd : beam_setup {
    r_hkl zolzbase2; // second base vector of the zero-order Laue zone: perpendicular, of the same length
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

// New table of the potentials of all beam differences, N x N in volts, with its dump; head is the
// console's text in front. Tells log and console if a reflection lies outside the scattering tables.
complex** new_potential_matrix(const char* head, const sd& cond, csd& crystal, lattice lat, std::FILE* log);

// What all tilts of a job share; refers to arrays of cond and to vg.
tilt_problem tilt_problem_of(const sd& cond, csd& crystal, complex** vg, lattice lat);

// Frees the arrays of a job.
void free_sd(sd& cond);

} // namespace orvel
