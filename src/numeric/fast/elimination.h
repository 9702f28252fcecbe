// SPDX-License-Identifier: MIT
//
// Gaussian elimination with row pivoting in planes: what both inversions and the reduction of a block
// are made of. Columns are eliminated in panels; the rest of the matrix takes each panel in one product.
#pragma once

#include "numeric/fast/fast.h"

namespace orvel {

constexpr int panel_columns = 8; // the last panel may be narrower

struct elimination {
    int rows;
    int columns;
    int steps;      // columns to eliminate; as many leading rows take part in the pivoting
    bool inverting; // the inverse of the lower factor takes the place of what is eliminated
    planes a;       // the matrix, for the caller to fill
    planes panels;  // row k: column k as eliminated, from the first row of its panel on
    int* perm;      // row that came to row k
};
elimination new_elimination(scratch& room, int rows, int columns, int steps, bool inverting);

// Eliminates; false, with nothing of use left, at a pivot whose modulus is not above the limit. Rows are
// exchanged for the largest element of a column, the first one on ties.
bool eliminate(const elimination& e, double limit);

} // namespace orvel
