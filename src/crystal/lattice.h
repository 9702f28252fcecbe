// SPDX-License-Identifier: MIT
//
// Geometry of a triclinic cell: the scalar products of its direct and reciprocal axes, vectors of
// the zero-order Laue zone (ZOLZ), lattice extinctions, and the constants of an electron beam.
// Reciprocal vectors have no factor 2 pi: |a*| = b c sin(alpha) / V and |g| = 1/d. Lengths are in
// angstrom and 1/angstrom, voltages in kV. All functions are pure; lattice goes by value.
#pragma once

#include "control/records.h"

namespace orvel {

struct lattice {
    double s11, s22, s33;    // cofactors of the direct metric: b^2 c^2 sin^2(alpha), ...
    double s12, s13, s23;    // a b c^2 (cos(alpha) cos(beta) - cos(gamma)), ...
    double vol;              // cell volume, cubic angstrom
    double as2, bs2, cs2;    // a*^2, b*^2, c*^2
    double asbs, bscs, ascs; // a*.b*, b*.c*, a*.c*
    double a2, b2, c2;       // a^2, b^2, c^2
    double ab, bc, ac;       // a.b, b.c, a.c
};

// Metric of a cell: lengths in angstrom, angles in degrees. Angles that close no cell give NaN.
lattice bravai(double a, double b, double c, double alpha, double beta, double gamma);

// g.g and g1.g2 in inverse square angstrom.
double sq_abs(r_hkl g, lattice lat);
double inner_product(r_hkl g1, r_hkl g2, lattice lat);

// The same numbers as reals.
r_hkl hkl2rhkl(int h, int k, int l);

// g1 - g2, clamped to the range of int.
hkl hkl_difference(hkl g1, hkl g2);

// t1.t2 in square angstrom; lengths of direct vectors in angstrom.
double inner_product_uvw(uvw t1, uvw t2, lattice lat);
double abs_uvw(uvw t, lattice lat);
double abs_r_uvw(r_uvw t, lattice lat);

// u h + v k + w l: a direct times a reciprocal vector needs no metric.
double inner_product_uvw_hkl(uvw t, r_hkl g);

// Number of the Laue zone of a reflection: u h + v k + w l; clamped to the range of int.
int laue_zone(uvw t, hkl g);

// Second base vector of the ZOLZ of zone axis t: along t x g, as long as g, in reciprocal
// coordinates. g need not be perpendicular to t. g parallel to t, or zero, ends the process.
r_hkl zolz_ort_base(uvw t, r_hkl g, lattice lat);

// t x g in direct coordinates, of length 1/|g|. g parallel to t, or zero, ends the process.
r_uvw zolz_ort_base_uvw(uvw t, r_hkl g, lattice lat);

// The two real-space base vectors of a projection along t: first along g, second along the second
// ZOLZ base vector, both of length 1/|g|.
void zolz_ort_base_two_uvw(uvw t, r_hkl g, lattice lat, r_uvw& first, r_uvw& second);

// g projected on the ZOLZ plane; x and y are its coordinates along base1 and the second base
// vector, in units of |base1|.
r_hkl proj_to_zolz(hkl g, uvw t, r_hkl base1, lattice lat, double& x, double& y);

// v scaled to the length of ref; the zero vector if v.v is below 1e-12.
r_hkl normalize_vec(r_hkl v, r_hkl ref, lattice lat);

// 0 if the lattice centring allows the reflection, else non-zero. r_hex_axes is 1 for an R lattice
// on hexagonal axes. A letter other than P, A, B, C, I, F, R ends the process.
int extinction_rule(int h, int k, int l, const char* latt_type, int r_hex_axes);

// Relativistic electron wavelength (angstrom), mass ratio m/m0, and relativistically corrected
// energy (eV) of electrons accelerated by kv kilovolts. The constants are this program's own
// values, so that results of different versions and machines agree to the last digit.
double wavelength(double kv);
double relativ_corr(double kv);
double evdash(double kv);

} // namespace orvel
