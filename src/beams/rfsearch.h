// SPDX-License-Identifier: MIT
//
// The finite list of reflections of a job: typed in, or found by walking a box of reciprocal space
// and judging each reflection at the rim of the convergent-beam disk; and its report. A list holds
// the exact beams, which enter the eigenproblem, and then the Bethe beams, which enter it as a
// perturbation; a search puts 000 first and orders both by growing |g|.
#pragma once

#include <cstdio>

#include "crystal/strct_f_stock.h"
#include "solver/ovfunc_kinematics.h"

namespace orvel {

struct fg_stock; // crystal/strct_f_stock.h

// flag_bs: the last digit says how beams are found, the tens digit how Bethe beams are folded in
// (0 to 9 generalised, from 10 on simple).
enum beam_method {
    method_manual = 0,
    method_wg = 1,       // by w_g, extinction distance times excitation error
    method_sg = 2,       // by the excitation error
    method_sg_multi = 3, // by the excitation error, with limits for each Laue zone
    simple_form = 10,    // added: the simple Bethe form
};

// Search parameters. Lengths in angstrom, reciprocal lengths and excitation errors in 1/angstrom.
struct beam_search {
    int flag_bs;     // a beam_method, plus simple_form or not
    int num_g_limit; // neither list may reach it
    int lz_min;      // Laue zones, both limits included
    int lz_max;
    double g_max;                // limit on |g|
    double disksize;             // radius of the disk, in units of the tilt coordinates
    double wgbmin;               // w_g below it: exact
    double wgmax;                // w_g below it: Bethe
    double sgbmin;               // excitation error below it: exact
    double sgmax;                // excitation error below it: Bethe
    double xigmax;               // extinction distances from it on are dropped
    double sgbmin_lz[layer_max]; // the last three for each Laue zone
    double sgmax_lz[layer_max];
    double xigmax_lz[layer_max];
};

// An incidence and its beams: what jobs, data sets and tilts have in common.
struct beam_setup : incidence {
    struct beam_search beam_search;
    int num_exact_beam;
    int num_bethe_beam;
    hkl* reflex_sel; // all beams, exact ones first
};

// Number of all beams of the list.
inline int num_beams(const beam_setup& setup) { return setup.num_exact_beam + setup.num_bethe_beam; }

// Method of a flag_bs, without the form; -1 for a flag that is none of the eight.
int method_of(int flag_bs);

// Reads the lines between BEAM_SEARCH{ and }BEAM_SEARCH and makes the list: search parameters (disksize is set
// already, like the incidence), counts, and a new array of all beams. A manual list clears
// epsilon.vg_select_flag. Faults end the process.
void fget_beam_list(std::FILE* file, beam_setup& setup, csd& crystal);

// Its steps. The first line; the rows of the method that bs.flag_bs names; the search with its
// console lines, sphere for all reflections up to g_max with no other limit.
int fget_flag_bs(std::FILE* file);
void fget_search_rows(std::FILE* file, beam_search& bs);
void make_beam_list(beam_setup& setup, bool sphere, csd& crystal);

// The rows of the three search methods, and a manual list.
void fget_beam_search_wg(std::FILE* file, beam_search& bs);
void fget_beam_search_sg(std::FILE* file, beam_search& bs);
void fget_beam_search_sg_multi(std::FILE* file, beam_search& bs);
void fget_beams(int num_exact, int num_bethe, hkl* list, std::FILE* file);

// Reads the counts of a manual list and the list, a new array; checks the counts.
void fget_manual_beams(std::FILE* file, int& num_exact_beam, int& num_bethe_beam, hkl*& reflex_sel);

// reflex_sel = the exact list, then the Bethe list.
void beam_merge(int num_exact, int num_bethe, const hkl* exact, const hkl* bethe, hkl* reflex_sel);

// Position of the first of n entries equal to (h, k, l), or -1.
int find_n_g(int n, int h, int k, int l, const hkl* list);

// 0 for 000, else 1/|g| in angstrom.
double spacing(int h, int k, int l, lattice lat);

// Sorts by growing |g|, 000 first; spacings that agree within 1e-9 count as equal and run by h, k, l.
void sort_reflex(int n, hkl* list, lattice lat);

// ---- searches -------------------------------------------------------------------------------

// Search box: hmax is the smallest n >= 1 with |(n, 0, 0)| >= g_max; likewise kmax and lmax. A g_max
// whose box is larger than any crystal needs ends the process.
void evaluate_hklmax(double g_max, int& hmax, int& kmax, int& lmax, lattice lat);

// Excitation error of a reflection at its nearest edge of the disk around the centre of the tilts, s1 and s2 at
// both edges along the direction of the reflection; 0 if the Bragg condition lies between them. base2 is the
// second base vector; of the geometry lattice, wave number and length of the zone axis are needed.
double abs_edge_s_g_tilt(hkl g, const incidence& at, r_hkl base2, const beam_geometry& geometry, double disksize,
                         double& s1, double& s2);

// The two lists of a search, each with room for num_g_limit entries.
struct found_beams {
    int num_exact;
    int num_bethe;
    hkl* exact;
    hkl* bethe;
};
found_beams new_found_beams(int num_g_limit);

// Hands the lists over as the list of the setup, a new array, and gives them back.
void take_found_beams(found_beams& found, beam_setup& setup);

// The searches by limits and incidence of the setup. A list that reaches num_g_limit ends the process.
void simple_beam_search_wg(const beam_setup& setup, csd& crystal, found_beams& found);
void simple_beam_search_sg(const beam_setup& setup, csd& crystal, found_beams& found);
void beam_search_sg_multi(const beam_setup& setup, csd& crystal, found_beams& found);

// The search that flag_bs names.
void search_beams(const beam_setup& setup, csd& crystal, found_beams& found);

// All reflections with |g| below g_max that the lattice allows, with no other limit, as exact beams.
void beam_search_sphere(const beam_setup& setup, csd& crystal, found_beams& found);

// ---- report ---------------------------------------------------------------------------------

// Writes the beam table %s_fg%d.txt (stem of the parameter file, id). With dbg.reflex_only_flag the
// run ends behind it with status 0.
void reflex_dump_csd(int id, const beam_setup& setup, csd& crystal, lattice lat);

// The table while it is written.
struct beam_table {
    const beam_setup* setup;
    csd* crystal;
    lattice lat;
    fg_stock stock;
    std::FILE* file;
};

// One row of it: number, indices, Laue zone, place in the pattern in units of |zolzbase1|, class,
// |g|, Fg total (through the stock), elastic and absorptive.
void print_rfinfo(int i, int bethe, hkl g, beam_table& table);

} // namespace orvel
