// SPDX-License-Identifier: MIT
//
// Symmetry: the operations of a space group from the table orvelspg.dat, and what they make of
// positions and reflections.
#pragma once

#include "control/records.h"

namespace orvel {

// Symmetry operation: x'_i = sum over j of rot[3 j + i] x_j + trans[i].
struct sym_op {
    double rot[9];   // -1, 0 or 1; rot[3 j + i] is the coefficient of input coordinate j
    double trans[3]; // not brought back into the cell
};

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

} // namespace orvel
