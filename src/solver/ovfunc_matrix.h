// SPDX-License-Identifier: MIT
//
// The matrix of a tilt: selection of its beams, structure matrix and Bethe reduction. Potentials V in
// volts, U in 1/angstrom^2, excitation errors in 1/angstrom. Tables keep the order of the list of
// beams; what a tilt takes of it is a list of positions. Theory: J. M. Cowley, Diffraction Physics
// (1995); H. A. Bethe, Ann. Phys. 87 (1928) 55.
#pragma once

#include "beams/rfsearch.h"
#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel {

// ---- selection ------------------------------------------------------------------------------

// The beams of one tilt. sel has room for all beams of the list and holds the positions of nesel
// exact and then nbsel Bethe beams, each ascending.
struct beam_selection {
    int nesel;
    int nbsel;
    int* sel;
};

// Divides the beams of the list for one tilt. With epsilon.vg_select_flag 0 the list stands as it is.
// A list that does not begin with 000 ends the process.
void vg_select_info_ug(const beam_setup& setup, const complex* const* vg, const double* Sg, beam_selection& selection);

// By w_g, by the excitation error, and by the latter with limits for each Laue zone. 000 is exact.
void vg_select_wg_info_ug(const beam_setup& setup, const complex* const* vg, const double* Sg,
                          beam_selection& selection);
void vg_select_sg_info_ug(const beam_setup& setup, const double* Sg, beam_selection& selection);
void vg_select_sg_info_ug_multi(const beam_setup& setup, const double* Sg, beam_selection& selection);

// beta_ge of the selected beams, and out_pos[r]: the place of each output beam (a position in the
// list) among the exact beams of the selection, or -1.
void vg_select_trans_ug(const beam_selection& selection, const double* beta_ge, double* beta_sel,
                        int num_g, const int* out_beams, int* out_pos);

// ---- structure matrix -----------------------------------------------------------------------

// Structure matrix of the selected beams, order nesel + nbsel: U(g_i - g_j) / sqrt(beta_i beta_j)
// off the diagonal, (2 K S_i + i U'_0) / beta_i on it, in 1/angstrom^2.
void construct_ug_mat_slct(const beam_selection& selection, double kv, const complex* const* vg,
                           const double* Sg, const double* beta_ge, complex** a_matrix, scratch& room);

// Reduction to the exact beams, a_matrix left unchanged. Generalised: A11 - A12 A22^-1 A21; simple:
// only the diagonal of A22 stands in the denominator.
void g_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room);
void simple_bethe(int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix, scratch& room);

// The form that flag_bs names.
void bethe_reduction(int flag_bs, int nesel, int nbsel, const complex* const* a_matrix, complex** bethe_matrix,
                     scratch& room);

} // namespace orvel
