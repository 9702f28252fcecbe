// SPDX-License-Identifier: MIT
//
// Maps of the crystal from its Fourier coefficients, without any diffraction: projected along the
// incident direction by a direct sum (e_density.cpp), and over the whole cell in three dimensions
// by the fast Fourier transform (e_density_3d.cpp). Potentials in volts; densities in electrons per
// square or cubic angstrom, from the X-ray structure factors that belong to the electron ones.
#pragma once

#include <cstdio>

#include "jobs/ov_sim_record.h"

namespace orvel {

// ---- job functions: parameter file (closed by the job), log, stem of the result files --------

// E_DENSITY_PROJ_MODE: stem_pp.txt, stem_ed.txt, stem_ed.plt, stem_pp.plt.
void ov_electron_density_proj(std::FILE* file, std::FILE* log, const char* stem);

// POTENTIAL_REIM_PROJ_MODE: stem_pp.txt, stem_re_pp.plt, stem_im_pp.plt.
void ov_potential_reim_proj(std::FILE* file, std::FILE* log, const char* stem);

// E_DENSITY_3D_UNITCELL_MODE: stem_ed.3ed, stem_pt.3ed.
void ov_electron_density_3d_unitcell(std::FILE* file, std::FILE* log, const char* stem);

// POTENTIAL_REIM_3D_UNITCELL_MODE: stem_pt.3ed, stem_ptim.3ed.
void ov_potential_reim_3d_unitcell(std::FILE* file, std::FILE* log, const char* stem);

// ---- what they share ------------------------------------------------------------------------

// The E_DENSITY_CALCULATION_CONDITION block of the projected and of the 3D jobs, with the beam
// search and its report; the file is closed.
void input_density_proj_data(sd& cond, csd& crystal, std::FILE* file);
void input_density_3d_data(sd& cond, csd& crystal, std::FILE* file);

// Block and incident beam that both begin with, and what both set behind the beam list.
void begin_density_data(sd& cond, std::FILE* file);
void report_density_beams(sd& cond, csd& crystal);

// Opens the file stem + suffix of a map; what it is and its name are told on the console.
std::FILE* open_map(const char* suffix, const char* what, const char* stem);

// Contents of BEAM_SEARCH_3D: the twin of fget_sd_beams whose searches by w_g and s_g take all
// reflections up to g_max.
void fget_sd_beams_3d(sd& cond, csd& crystal, std::FILE* file);

// Sum over n beams of coef exp(+2 pi i g.r) at r in direct-lattice coordinates.
complex calc_inv_fourier(r_uvw r, int n, const hkl* beams, const complex* coef);

} // namespace orvel
