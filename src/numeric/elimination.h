// SPDX-License-Identifier: MIT
//
// Gaussian elimination with row pivoting on planes of doubles: what both inversions and the
// reduction of a block are made of. Columns are eliminated in panels; the rest of the matrix takes
// each panel in one product.
#pragma once

#include "numeric/kernels.h"
#include "numeric/workspace.h"

namespace orvel {

constexpr int panel_columns = 8; // the last panel may be narrower

struct elimination {
    int rows;
    int columns;
    int steps;       // columns to eliminate; as many leading rows take part in the pivoting
    double smallest; // an element of a smaller modulus is no pivot
    bool inverting;  // the inverse of the lower factor takes the place of what is eliminated
    planes a;        // the matrix; behind each row there is room up to a multiple of four
    planes panels;   // column k as eliminated, along memory, from the first row of its panel on
    int* perm;       // row that came to row k
};

// Work space for a matrix and its elimination; the caller fills a and perm (steps elements).
elimination new_elimination(int rows, int columns, int steps, double smallest, bool inverting, int* perm);

// Eliminates, and returns steps, or the column k without a pivot; perm[k] is then the row with its
// largest element, still unmoved. All elements on and above the diagonal are final, or as they stand
// after k steps. The panels hold the multipliers, with negative sign, below the diagonal: rows are
// exchanged as of the end of the panel, and not by later panels.
int eliminate(const elimination& e);

// Element (i, k) of the panels, for rows i from the panel's first column on.
complex panel_element(const elimination& e, int i, int k);

} // namespace orvel
