// SPDX-License-Identifier: MIT
//
// The stock of structure factors: one sum serves a reflection and all its equivalents, and the
// low-order entries of a crystal, which stand in it first, take the place of what would be computed.
#pragma once

#include "crystal/strct_f.h"

namespace orvel {

// Structure factors in the order of their arrival, at most stock_max. The owner makes a stock for one
// calculation and frees it. What comes when it is full does not enter it; an owner that asks for a
// reflection many times has it noted behind the stock instead, each with the flag of its computation.
struct fg_stock {
    int count;     // in the stock
    int num_notes; // behind it, from place stock_max on
    int max_notes; // room for them
    hkl* g;        // stock_max + max_notes of each of these three
    complex* fg;
    int* flag;           // 0 in the stock
    int* index;          // finds the first entry of a reflection without a search
    unsigned index_bits; // of its number of places
    phase_table* phases; // null, or the owner's phases for what is computed
};
fg_stock new_stock(int max_notes = 0);
void free_stock(fg_stock& stock);

// A new stock that holds the crystal's low-order entries and their equivalents.
fg_stock new_stock_with_lofg(csd& crystal, double kv, lattice lat, int max_notes = 0);

// Position of a reflection in the stock, or -1.
int search_stock(const fg_stock& stock, hkl g);

// structure_factor_ext through the stock: a stocked value comes back with flag 0, a noted one with its
// own; a computed one is stocked with its equivalents, or noted.
complex structure_factor_ext_tbl(hkl g, csd& crystal, double kv, lattice lat, fg_stock& stock, int& flag);

// Adds a reflection and those of its equivalents that are not there yet, as long as there is room.
void stock_fg_tbl_sym(hkl g, complex fg, fg_stock& stock, const csd& crystal);

// First place of exactly these indices among the first count of a list, or -1.
int search_g_table(int count, int h, int k, int l, const hkl* g);

} // namespace orvel
