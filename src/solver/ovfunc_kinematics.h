// SPDX-License-Identifier: MIT
//
// Kinematics of the incident beam: the incidence itself, what all its tilts share, wave vectors,
// excitation errors, surface-normal factors, and the checks of an incidence.
//
// Voltages in kV, lengths in angstrom, wave numbers and reciprocal vectors in 1/angstrom without
// 2 pi. z runs along the zone axis; the incident wave points against it, so that K_z and K_n are
// negative: the phase exp(-i pi lambda t / K_n) of the solver rests on that. A tilt (H, G) is the
// tangential wave vector K_t = (H zolzbase1 + G zolzbase2) / 2. Theory: A. J. F. Metherell in Electron
// Microscopy in Materials Science II (1975) 401.
#pragma once

#include "control/records.h"
#include "crystal/strct_f.h"

namespace orvel {

// The incident beam of a job or of a data set.
struct incidence {
    uvw zone_uvw;          // zone axis, pointing upward
    uvw normal_uvw;        // surface normal, pointing upward
    r_hkl zolzbase1;       // first base vector of the zero-order Laue zone
    double h_tilt, g_tilt; // centre of the tilts (H, G)
    double kv;             // accelerating voltage, kV
};

// What all tilts of an incidence share.
struct beam_geometry {
    lattice lat;
    double abs_K;      // wave number in the crystal
    double zone_len;   // length of the zone axis
    double normal_len; // length of the surface normal
    double cos_zn;     // cosine of the angle between them
    double wavelength; // in vacuum
    double evdash;     // relativistically corrected energy, eV
};

// Wave vector of a tilt in the crystal.
struct wave_vector {
    r_hkl K_t; // tangential part
    double K_z, K_n;
};

// Mean inner potential in volts: the real part of the low-order entry 000 if there is one, else
// calc_F_0_re. Wave number inside the crystal: that of the vacuum, and the mean inner potential.
double calc_V_0(csd& crystal, double kv, lattice lat);
double calc_abs_K(csd& crystal, double kv, lattice lat);

// Components of the incident wave vector along the zone axis (negative) and along the surface
// normal. cos_zn is the cosine between the two directions.
double calc_K_z(double abs_K, r_hkl K_t, lattice lat);
double calc_K_n(r_hkl K_t, double K_z, double normal_len, uvw normal_uvw, double cos_zn);

// The wave vector whose tangential part is K_t.
wave_vector calc_wave_vector(const incidence& at, const beam_geometry& geometry, r_hkl K_t);

// Components of a reflection along the zone axis and along the surface normal.
double calc_g_z(hkl g, double zone_len, uvw zone_uvw);
double calc_g_n(hkl g, double normal_len, uvw normal_uvw);

// S_g = (K^2 - |K + g|^2) / (2 K), positive for a point inside the Ewald sphere.
double calc_excitation_error(r_hkl K_t, double K_z, double abs_K, hkl g, double g_z, lattice lat);

// Excitation errors Sg and surface-normal factors beta_ge = 1 + g_n / K_n of the n beams of a list.
void calc_sg_beta_g(const incidence& at, const beam_geometry& geometry, wave_vector K, int n, const hkl* reflex_sel,
                    double* Sg, double* beta_ge);

// The geometry of an incidence in a crystal of wave number abs_K.
beam_geometry pre_calc_intensity(const incidence& at, double abs_K, lattice lat);

// Checks of the incidence, before anything is computed with it. Each ends the process.
// A voltage that is not above 0, or so high that no wavelength is left.
void chk_kv(double kv);

// In this order: the voltage; a surface normal that does not point to the side of the zone axis, on
// which the phases rest; a mean inner potential that leaves no real wave number in the crystal.
// Returns the wave number. A zone axis of length 0 is left to the search for its base vectors.
double chk_beam(const incidence& at, csd& crystal, lattice lat);

// A tilt (h, g) whose K_t is not shorter than the wave number, so that K_z is not real. The two base
// vectors are perpendicular and both of length base_len.
void chk_tilt(double abs_K, double base_len, double h, double g);

} // namespace orvel
