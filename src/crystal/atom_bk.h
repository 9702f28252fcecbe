// SPDX-License-Identifier: MIT
//
// Elastic and absorptive (thermal diffuse) electron scattering factors from tables in the form of
// D. M. Bird & Q. A. King, Acta Cryst. A46 (1990) 202: the elastic factor f on a grid of
// s = sin(theta)/lambda, and a coded absorptive function on a grid of the Debye-Waller parameter B
// and of M = B s^2. s is in 1/angstrom, B in square angstrom, f and f' in angstrom.
#pragma once

namespace orvel {

constexpr int bk_num_s = 27; // grid points of s
constexpr int bk_num_b = 6;  // grid points of B
constexpr int bk_num_m = 10; // grid points of M

// Header of the table and one element's entry together.
struct bk_tbl {
    double dt[bk_num_s];          // elastic factor at dts, in 1/1000 angstrom
    double dts[bk_num_s];         // grid of s, ascending
    double f[bk_num_b][bk_num_m]; // coded absorptive function at gm[i], gms2[j]
    double gm[bk_num_b];          // grid of B, ascending
    double gms2[bk_num_m];        // grid of M, ascending
    double mlt_fct;               // scale of the coded values
    double add_fct;               // offset of the coded values
};

// What atom_bk tells; any value above 0 is an argument outside the table.
enum bk_status {
    bk_in_range = 0,
    bk_s_beyond_table = 1,  // both factors 0
    bk_b_outside_table = 2, // computed with B at the table's edge
    bk_s_negative = 3,      // both factors 0
    bk_voltage_invalid = 4, // both factors 0
};

// Finds the element's entry in orvelbk.dat (working directory). No such entry, or a table that is
// not in the format, ends the process.
bk_tbl read_atom_dat_table(const char* element);

// pair[0] = f and pair[1] = f' at s and B for electrons of kv kilovolts (above 0, at most 10000).
// f' is 0 where M is beyond its grid. Returns a bk_status.
int atom_bk(const bk_tbl& bk, double s, double B, double pair[2], double kv);

// Lagrange polynomial through 3 and through 4 points (xs, ys), at x.
double quad_int(const double* xs, double x, const double* ys);
double cub_int(const double* xs, double x, const double* ys);

// Four-point Lagrange value at x of a table of n points: the interval of x and its neighbours.
double cub_int_2(double x, int n, const double* xs, const double* ys);

// Decoded absorptive function at B and M, from the 3 x 3 points that end in row p and column q, and
// from the 4 x 4 points around B and M.
double fabs_bi_quad_int(double B, double M, int p, int q, const bk_tbl& bk);
double fabs_bi_cub_int(double B, double M, const bk_tbl& bk);

} // namespace orvel
