// SPDX-License-Identifier: MIT
//
// Structure factors of a crystal and what they convert into (strct_f.cpp), and the phases that long
// lists of them share (strct_f_phases.cpp). The stock that keeps them is strct_f_stock.h. Fg is the sum
// of atomic factors in angstrom without relativistic correction, elastic part plus i times absorptive
// part, with the phase exp(-2 pi i g.r); Vg is in volts, Ug in inverse square angstrom. kv is the
// accelerating voltage in kV, lat the metric that goes with the crystal.
#pragma once

#include "crystal/csd.h"
#include "numeric/complex.h"

namespace orvel {

// ---- phases ---------------------------------------------------------------------------------

// Anisotropic temperature factor exp(-(b11 h^2 + .. + 2 b12 h k + ..)).
struct beta_tensor {
    double b11, b22, b33, b12, b13, b23;
};
double beta_form(const beta_tensor& b, hkl g); // its argument

// Phases of one site: the sum over operations is that over its distinct positions x_p, and
// exp(-2 pi i g.x_p) the product of three powers. Positions of an anisotropic site go by the tensor
// that the operation makes of the site's, so that each tensor is taken once. The sums agree with
// those by sines and cosines to rounding.
struct site_phases {
    int num_tensors;       // distinct tensors; 1 of an isotropic site, which has none
    beta_tensor* tensors;  // null for an isotropic site
    int* tensor_end;       // end of each tensor's positions
    int num_pos;           // distinct positions
    double* counts;        // operations that lead to each
    complex **h, **k, **l; // [n + max][position]: exp(-2 pi i n x_p) for each coordinate
    complex* hk;           // product for last_h, last_k with the counts: lists run through l
    int last_h, last_k;
};

// Phases of all sites for indices up to max. Valid as long as the sites keep places and tensors.
struct phase_table {
    hkl max;
    int num_site;
    site_phases* site;
};
phase_table new_phase_table(const csd& crystal, hkl max);
void free_phase_table(phase_table& table);
bool in_phase_table(const phase_table& table, hkl g);

// Sum over operations of exp(-2 pi i g.x) for site i, with the temperature factor of an anisotropic
// site; g must be in the table.
complex tabled_phase_sum(phase_table& table, int i, hkl g);

// ---- structure factors ----------------------------------------------------------------------

// Parts of a structure factor: total, elastic, absorptive, and that of the nuclear charges.
enum fg_part {
    fg_total,
    fg_ela,
    fg_inela,
    fg_z,
};

// A part of Fg. phases may be null; reflections outside them form sines and cosines anew. flag is 1 if
// any site's tables do not cover the reflection (its value stands all the same), else 0. An invalid af
// or bf ends the process, here and below. Sites with bf = 1 receive their equivalent isotropic B.
complex crystal_fg(fg_part part, hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, int& flag);

// The elastic part, and that of the nuclear charges on the way: long lists want both.
complex crystal_fg_ela(hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, complex& z_factor);

// Single parts without a table of phases: total, elastic, absorptive, nuclear charges.
complex calc_structure_factor(hkl g, csd& crystal, double kv, lattice lat, int& flag);
complex calc_Fg_ela(hkl g, csd& crystal, double kv, lattice lat);
complex calc_Fg_inela(hkl g, csd& crystal, double kv, lattice lat);
complex calc_z_factor(hkl g, csd& crystal, lattice lat);

// Total Fg, or exactly 0 with flag 0 if the lattice centring forbids the reflection.
complex structure_factor_ext(hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, int& flag);

// Fg for given elastic and absorptive factors of each site; sq_s = |g|^2 / 4.
complex calc_structure_factor_ph(hkl g, double sq_s, const csd& crystal, const double* f_ela, const double* f_inela);

// Re F(000) from the Bird & King factors of all sites, whatever their af.
double calc_F_0_re(const csd& crystal);

// Fg that a low-order entry stands for; an invalid lof_type ends the process.
complex lofg_to_fg(int entry, csd& crystal, double kv, lattice lat);

// ---- conversions ----------------------------------------------------------------------------

// Vg (V), Ug (1/angstrom^2) and extinction distance (angstrom; 1e10 for a vanishing potential). gamma is
// relativ_corr, wavelength in angstrom.
complex fg_to_vg(complex fg, lattice lat);
complex fg_to_ug(complex fg, double kv, lattice lat);
complex vg_to_ug(complex vg, double gamma);
double fg_to_xig2(complex fg, double gamma, double wavelength, lattice lat);
double vg_to_xig(complex vg, double gamma, double wavelength);

} // namespace orvel
