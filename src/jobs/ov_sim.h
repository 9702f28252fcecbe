// SPDX-License-Identifier: MIT
//
// The jobs of the many-beam solver. What they share stands beside: the record of a job's conditions
// (ov_sim_record.h), its blocks of the parameter file (ov_sim_input.h), the mesh of incident tilts
// (ov_sim_mesh.h), maps (ov_sim_maps.h).
#pragma once

#include <cstdio>

#include "jobs/ov_sim_record.h"

namespace orvel {

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

// ---- patterns -------------------------------------------------------------------------------

// The tilt loops of SIM_MODE and SIM_COHERENT_MODE with their output.
void calc_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem);
void calc_coherent_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem);

// Script and one result file for each thickness: intensities of cond, or amplitudes
// coherent_amp[reflection][thickness][tilt].
void sim_output(const sd& cond, const csd& crystal, const char* stem);
void sim_coherent_output(const sd& cond, complex*** coherent_amp, const csd& crystal, const char* stem);

// Phase factor of each tilt: aberrations of the lens and position of the probe. Sign and form as
// in J. C. H. Spence & J. M. Zuo, Electron Microdiffraction (1992).
void calc_initial_phase(const sd& cond, double wavelength, complex* initial_phase, lattice lat);

// ---- dispersion surface, Bloch states, thickness fringes ------------------------------------

// The sweep of DISPSURF_MODE over all tilts of the mesh; clears epsilon.vg_select_flag so that a
// branch number means the same at every tilt.
void calc_disp_surf_ug(const tilt_problem& problem, const sd& cond, const char* stem);

// The tilt of BLOCH_MODE, the first of the mesh, and its maps; clears epsilon.vg_select_flag.
void calc_bloch_state_ug(const tilt_problem& problem, const sd& cond, const char* stem, std::FILE* log);

// Potential in volts at r (direct-lattice coordinates) from the first n beams.
complex calc_projpot(r_uvw r, int n, const hkl* reflex_sel, const complex* const* vg);

// Bloch state j (from 0) at r from n exact beams; no excitation amplitude enters.
complex calc_bloch_state_func_ug(int j, r_uvw r, int n, const hkl* reflex_sel, r_hkl K_t,
                                 const double* beta_ge, const complex* const* eigen_vec);

// The tilt K_t of TFRINGE_MODE and its tables.
void calc_tfringe_ug(const tilt_problem& problem, r_hkl K_t, const char* stem);

} // namespace orvel
