// SPDX-License-Identifier: MIT
//
// The crystal: its record with storage and the enumeration of its refinable values (csd.cpp), and its
// block of the parameter file with what is derived from it (csd_input.cpp).
#pragma once

#include <cstdio>

#include "control/records.h"
#include "crystal/atom_bk.h"
#include "crystal/atomf.h"
#include "crystal/lattice.h"
#include "crystal/strct_f_symmetry.h"

namespace orvel {

// One independent site.
struct atom {
    char element[element_max]; // key into both scattering tables
    int bf;                    // temperature factor: 0 isotropic, 1 anisotropic
    int af;                    // elastic factor: 0 Mott formula, 1 Bird & King table
    double x, y, z;            // fractional coordinates
    double multiplicity;       // distinct positions / operations, or 1; derived, never read
    double B;                  // isotropic Debye-Waller parameter, square angstrom; for bf = 1 the
                               // equivalent value, stored by the structure-factor routines
    // exp(-(beta11 h^2 + .. + 2 beta12 h k + ..))
    double beta11, beta22, beta33, beta12, beta13, beta23;
    double occupancy;
};

// Slots of a site's descriptors. Mind that beta23 and beta13 change places against the values.
enum atom_slot {
    slot_x,
    slot_y,
    slot_z,
    slot_B,
    slot_beta11,
    slot_beta22,
    slot_beta33,
    slot_beta12,
    slot_beta23,
    slot_beta13,
    slot_occupancy,
    num_atom_slots,
};
struct atom_fitpar {
    fitpar slot[num_atom_slots];
};

// Kinds of low-order data: what a given reflection holds.
enum lof_kind {
    lof_fg = 1,      // total Fg
    lof_fg_ela = 2,  // elastic Fg; the absorptive part is computed
    lof_f = 3,       // elastic and absorptive atomic factors of each site
    lof_f_inela = 4, // the same, with the computed absorptive Fg on top
    lof_reserved = 5 // refused
};

// Value of one low-order reflection, in angstrom without relativistic correction.
struct lofg_value {
    double fg_re, fg_im;         // lof_fg
    double fg_ela_re, fg_ela_im; // lof_fg_ela
    double* f_ela;               // lof_f, lof_f_inela: num_site values; owned
    double* f_inela;
};

// Its descriptors, in the order of the values.
struct lofg_fitpar_set {
    fitpar fg_re, fg_im, fg_ela_re, fg_ela_im;
    fitpar* f_ela; // num_site each; owned
    fitpar* f_inela;
};

// One crystal; owner of its arrays. It holds no metric: whoever needs it calls lattice_of.
struct csd {
    int sg_no;                 // key into orvelspg.dat
    int num_sym_op;            // operations, centring and inversion included
    struct sym_op* sym_op;     // num_sym_op of them
    char latt_type[2];         // lattice letter P, A, B, C, I, F or R
    int r_hex_axes;            // 1: R lattice on hexagonal axes
    double a, b, c;            // cell lengths, angstrom
    double alpha, beta, gamma; // cell angles, degrees
    fitpar lp_fitpar[6];       // descriptors of a .. gamma
    int num_site;              // independent sites
    atom* site;                // num_site of each of these four
    atom_fitpar* site_fitpar;
    xdt_tbl* xdt;
    bk_tbl* bk;
    int num_lofg;  // low-order reflections; 0 or less: none
    int lof_type;  // a lof_kind, if there are any
    hkl* lofg_hkl; // num_lofg of each of these three
    lofg_value* lofg;
    lofg_fitpar_set* lofg_fitpar;
};

// The metric of the crystal's cell as it now stands.
lattice lattice_of(const csd& crystal);

// ---- storage --------------------------------------------------------------------------------

// Clears the record and allocates its arrays, but for the per-site arrays of its low-order entries;
// its sites alone, its low-order entries alone; the per-site arrays, or nothing for kinds without.
void alloc_csd(int num_sym_op, int num_site, int num_lofg, csd& crystal);
void alloc_csd_sites(int num_site, csd& crystal);
void alloc_csd_lofg(int num_lofg, csd& crystal);
void alloc_csd_sub_cstr(int num_site, int num_lofg, int lof_type, csd& crystal);

// Copies all values and descriptors into a record of the same counts, made by the two above.
void cpy_csd(const csd& source, csd& dest);

// Gives back all arrays.
void free_csd(csd& crystal);

// ---- the enumeration of the values ----------------------------------------------------------
// All refinable values in the order of the parameter file, by parts: part 0 is the cell, the next
// num_site parts are the sites, the last num_lofg the low-order entries. Who reads, writes, reports,
// numbers, searches or constrains values goes through this list.

// value and descriptor are null in the place of values of an unknown kind: bf of a site, lof_type.
struct csd_value {
    double* value;
    fitpar* descriptor;
    const char* label; // remark behind it in a parameter file
};

constexpr int cell_part = 0;
int site_part(int i);
int lofg_part(const csd& crystal, int i);
int num_parts(const csd& crystal);

// The kind of temperature factor stands in front of this value of a site.
constexpr int temperature_place = 3;

// Values of a part, and value n of them.
int num_values(const csd& crystal, int part);
csd_value value_of(csd& crystal, int part, int n);

// ---- the CRYSTAL_STRUCTURE_DATA block -------------------------------------------------------

// Reads the block from the open parameter file, looks sites up in the tables, evaluates the
// constraints and sets the multiplicities. Writes stem_aps.txt with dbg.atm_pos_out_flag. Every
// fault ends the process.
void input_csd_cstr(csd& crystal, std::FILE* file, const char* stem);

// Readers of the parts of the block: six cell parameters; num_site SITE blocks; the low-order
// entries of its kind.
void fget_latpar_cstr(std::FILE* file, csd& crystal);
void fget_atmpar_cstr(std::FILE* file, csd& crystal);
void fget_lofg_cstr(std::FILE* file, csd& crystal);

// Sets the multiplicity of all sites; 1 with epsilon.auto_multiplicity_off.
void atom_multiplicity(csd& crystal);

// Positions of each site: counts[i] of them in positions[i][..] (num_sym_op columns), distinct ones
// only unless epsilon.auto_multiplicity_off is 1.
void newpos_sym_op(const csd& crystal, int* counts, r_uvw** positions);

// Writes all generated positions into stem_aps.txt if dbg.atm_pos_out_flag is 1; the second writes
// the contents.
void dbg_atm_pos_out(const csd& crystal, const char* stem);
void fprint_gen_atom_pos(std::FILE* file, const csd& crystal);

} // namespace orvel
