// SPDX-License-Identifier: MIT
//
// The crystal: its record and block of the parameter file (strct_f_input.cpp), its symmetry from
// the table orvelspg.dat (strct_f_symmetry.cpp), and its structure factors with the stock that
// keeps them (strct_f.cpp). Fg is the sum of atomic factors in angstrom without relativistic
// correction, elastic part plus i times absorptive part, with the phase exp(-2 pi i g.r); Vg is in
// volts, Ug in inverse square angstrom.
#pragma once

#include <cstdio>

#include "control/records.h"
#include "crystal/atom_bk.h"
#include "crystal/atomf.h"
#include "crystal/lattice.h"
#include "numeric/complex.h"

namespace orvel {

// Symmetry operation: x'_i = sum over j of rot[3 j + i] x_j + trans[i].
struct sym_op {
    double rot[9];   // -1, 0 or 1; rot[3 j + i] is the coefficient of input coordinate j
    double trans[3]; // not brought back into the cell
};

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

// The values of a site in the order of the parameter file, each with its slot. only_bf is the kind
// of temperature factor that a value belongs to, or -1 for both.
struct atom_value {
    double atom::*value;
    atom_slot slot;
    int only_bf;
    const char* label;
};
constexpr int num_atom_values = 11;
extern const atom_value atom_values[num_atom_values];

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

// One crystal; owner of its arrays. It holds no metric: whoever needs it calls bravai.
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

// ---- the CRYSTAL_STRUCTURE_DATA block -------------------------------------------------------

// Reads the block from the open parameter file, looks sites up in the tables, evaluates the
// constraints and sets the multiplicities. Writes stem_aps.txt with dbg.atm_pos_out_flag. Every
// fault ends the process.
void input_csd_cstr(csd& crystal, std::FILE* file, const char* stem);

// Gives back all that input_csd_cstr took.
void free_csd(csd& crystal);

// Pointers to the six cell parameters a .. gamma.
struct cell_values {
    double* value[6];
};
cell_values cell_of(csd& crystal);

// The metric of the crystal's cell as it now stands.
lattice lattice_of(const csd& crystal);

// Readers of the parts of the block: six cell parameters; num_site SITE blocks; the low-order
// entries of a kind.
void fget_latpar_cstr(std::FILE* file, cell_values values, fitpar* descriptors);
void fget_atmpar_cstr(std::FILE* file, int num_site, atom* sites, atom_fitpar* descriptors, xdt_tbl* xdt, bk_tbl* bk);
void fget_lofg_cstr(std::FILE* file, int num_site, int num_lofg, hkl* hkls, int lof_type,
                    lofg_value* values, lofg_fitpar_set* descriptors);

// Allocates the per-site arrays of the low-order entries; nothing for the kinds without.
void alloc_csd_sub_cstr(int num_site, int num_lofg, int lof_type, csd& crystal);

// Sets the multiplicity of all sites; 1 with epsilon.auto_multiplicity_off.
void atom_multiplicity(int num_site, atom* sites, int num_sym_op, const sym_op* sym_ops);

// Positions of each site: counts[i] of them in positions[i][..] (num_sym_op columns), distinct ones
// only unless epsilon.auto_multiplicity_off is 1.
void newpos_sym_op(int num_site, const atom* sites, int* counts, r_uvw** positions,
                   int num_sym_op, const sym_op* sym_ops);

// Writes all generated positions into stem_aps.txt if dbg.atm_pos_out_flag is 1; the second writes
// the contents.
void dbg_atm_pos_out(const csd& crystal, const char* stem);
void fprint_gen_atom_pos(std::FILE* file, int num_sym_op, const sym_op* sym_ops, int num_site, const atom* sites);

// ---- symmetry -------------------------------------------------------------------------------

// Finds the space group in orvelspg.dat (working directory) and returns the new array of all its
// operations: those listed, then their copies by centring, then the inverse of all. latt_type has
// room for the letter and a terminator. Faults of the table end the process.
sym_op* read_sp_group_tbl(int sg_no, int& num_sym_op, int& inversion_flag, char* latt_type, int& r_hex_axes);

// Operation of a line of three terms such as "-X+1/2,Y,Z"; the line is tokenised in place. A line
// with fewer terms, or a fraction over zero, ends the process.
sym_op decode_sym_op(char* line);

// The operation with all its numbers negated.
sym_op inv_sym_op(const sym_op& op);

// Position that the operation makes of a position.
r_uvw gen_pos(r_uvw position, const sym_op& op);

// Equivalent reflection h'_j = sum over i of rot[3 j + i] h_i, so that h'.x = h.(R x).
hkl gen_reflex(hkl g, const sym_op& op);

// x - floor(x), always in [0, 1).
double fractional(double x);

// 1 if two positions coincide modulo the cell within 0.0001 in each coordinate, else 0.
int judge_two_atom(r_uvw position1, r_uvw position2);

// Removes positions that coincide with an earlier one, in place; returns how many are left.
int special_pos_check(int n, r_uvw* positions);

// ---- structure factors ----------------------------------------------------------------------

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

// A stock of structure factors in the order of their arrival, at most stock_max. Its owner makes
// it for one calculation and frees it. What comes when the stock is full does not enter it; an
// owner that asks for a reflection many times has it noted behind the stock instead, each with the
// flag of its computation.
struct fg_stock {
    int count;     // in the stock
    int num_notes; // behind it, from place stock_max on
    int max_notes; // room for them
    hkl* g;        // stock_max + max_notes of each of these three
    complex* fg;
    int* flag;           // 0 in the stock
    int* index;          // finds the first entry of a reflection without a search
    unsigned index_bits; // of its number of places
    phase_table* phases; // null, or the owner's phases for stocked_fg
};
fg_stock new_stock(int max_notes = 0);
void free_stock(fg_stock& stock);

// A new stock that holds the crystal's low-order entries and their equivalents.
fg_stock new_stock_with_lofg(csd& crystal, double kv, lattice lat, int max_notes = 0);

// Position of a reflection in the stock, or -1.
int search_stock(const fg_stock& stock, hkl g);

// Parts of a structure factor: total, elastic, absorptive, and that of the nuclear charges.
enum fg_part {
    fg_total,
    fg_ela,
    fg_inela,
    fg_z,
};

// A part of Fg of a crystal. phases may be null; without them sines and cosines are formed anew.
complex crystal_fg(fg_part part, hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, int& flag);

// The elastic part, and that of the nuclear charges on the way: long lists want both.
complex crystal_fg_ela(hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, complex& z_factor);

// Fg for given elastic and absorptive factors of each site; sq_s = |g|^2 / 4.
complex calc_structure_factor_ph(int h, int k, int l, double sq_s, int num_sym_op, const sym_op* sym_ops,
                                 int num_site, const atom* sites, const double* f_ela, const double* f_inela);

// Total Fg. flag is 1 if any site's tables do not cover the reflection (its value stands all the
// same), else 0. An invalid af or bf ends the process, here and below. Sites with bf = 1 receive
// their equivalent isotropic B.
complex calc_structure_factor(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                              const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat, int& flag);

// Elastic and absorptive part alone, and the structure factor of the nuclear charges.
complex calc_Fg_ela(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                    const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat);
complex calc_Fg_inela(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                      const bk_tbl* bk, double kv, lattice lat);
complex calc_z_factor(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                      const xdt_tbl* xdt, lattice lat);

// Re F(000) from the Bird & King factors of all sites, whatever their af.
double calc_F_0_re(int num_sym_op, int num_site, const atom* sites, const bk_tbl* bk);

// Total Fg, or exactly 0 with flag 0 if the lattice centring forbids the reflection.
complex structure_factor_ext(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                             const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat,
                             const char* latt_type, int r_hex_axes, int& flag);

// The same through a stock: a stocked value comes back with flag 0; a computed one is stocked.
complex structure_factor_ext_tbl(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                                 const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat,
                                 const char* latt_type, int r_hex_axes, fg_stock& stock, int& flag);

// The same for a crystal, which is what every owner of a stock asks for.
complex stocked_fg(hkl g, csd& crystal, double kv, lattice lat, fg_stock& stock, int& flag);

// Adds a reflection and those of its equivalents that are not there yet, as long as there is room.
void stock_fg_tbl_sym(int h, int k, int l, complex fg, fg_stock& stock, int num_sym_op, const sym_op* sym_ops);

// First place of exactly these indices among the first count, or -1.
int search_g_table(int count, int h, int k, int l, const hkl* g);

// Fg that a low-order entry of the given kind stands for.
complex lofg_to_fg(int h, int k, int l, int lof_type, const lofg_value& value, int num_sym_op, const sym_op* sym_ops,
                   int num_site, atom* sites, const bk_tbl* bk, const xdt_tbl* xdt, double kv, lattice lat);

// Conversions: Vg (V), Ug (1/angstrom^2) and extinction distance (angstrom; 1e10 for a vanishing
// potential). gamma is relativ_corr, wavelength in angstrom.
complex fg_to_vg(complex fg, lattice lat);
complex fg_to_ug(complex fg, double kv, lattice lat);
complex vg_to_ug(complex vg, double gamma);
double fg_to_xig2(complex fg, double gamma, double wavelength, lattice lat);
double vg_to_xig(complex vg, double gamma, double wavelength);

} // namespace orvel
