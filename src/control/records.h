// SPDX-License-Identifier: MIT
//
// The small records that one line of a parameter file fills: index triples and the descriptor
// beside a refinable value. They stand below the crystal model so that the line readers need
// nothing of it; crystal/lattice.h and crystal/cnstfunc.h give them their meaning.
#pragma once

#include "control/limits.h"

namespace orvel {

// Miller indices of a reflection.
struct hkl {
    int h, k, l;
};

// Reciprocal vector in real coordinates along a*, b*, c*.
struct r_hkl {
    double h, k, l;
};

// Direct-lattice vector.
struct uvw {
    int u, v, w;
};

// Direct-space vector in real coordinates along a, b, c.
struct r_uvw {
    double u, v, w;
};

// Kinds of a refinable value, the field idx of a fitpar.
enum fitpar_kind {
    kind_cst = -1, // computed from the expression in val_str
    kind_fix = 0,  // stays as read
    kind_rst = 1,  // free, tied to its initial value by the width rst
    kind_adj = 2,  // free
};

// Descriptor beside every refinable value.
struct fitpar {
    int idx;                // a fitpar_kind
    double step;            // derivative step
    double esd;             // estimated standard deviation; 0 until a refinement has ended
    double rst;             // restraint width of kind_rst
    double ini_val;         // value as read: the centre of a restraint
    int ntp;                // number in the fit vector, from 0; -1: not in it
    char id[id_max];        // name by which expressions find the value
    char val_str[expr_max]; // first token of the value line; the expression of kind_cst
};

} // namespace orvel
