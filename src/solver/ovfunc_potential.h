// SPDX-License-Identifier: MIT
//
// The potentials of a list of beams: of all its differences, which the structure matrices are made
// of, and of the beams themselves for maps. V in volts, kv in kV; all of the N = num_exact_beam +
// num_bethe_beam beams count alike.
#pragma once

#include "control/records.h"
#include "crystal/strct_f.h"
#include "numeric/complex.h"

namespace orvel {

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

} // namespace orvel
