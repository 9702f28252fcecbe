// SPDX-License-Identifier: MIT
//
// Work space of the numerical routines: one block for each use, kept between calls, so that a tilt
// loop takes no memory from the system after its largest tilt. A block grows when more is asked for
// and is never given back.
#pragma once

#include <cstddef>

#include "numeric/complex.h"
#include "numeric/kernels.h"

namespace orvel {

// One slot for each room that must not share its block with another one at the same time.
enum workspace_slot {
    slot_eliminated, // matrix under elimination, in planes
    slot_panels,     // columns of the matrix under elimination
    slot_a,          // factors and result of a product, in planes
    slot_b,
    slot_c,
    slot_matrix, // matrices that live while others of this list are formed
    slot_matrix2,
    slot_roots,
    slot_waves,
    slot_eigensystem, // the matrix that corth and then comqr2 works on, with its vectors
    slot_rotations,   // of all sweeps
    slot_sweeps,      // what else they did
    slot_count
};

// Room for count doubles, aligned to 64 bytes. It is valid until the next call for the same slot; what
// stands in it stays when it grows, and is arbitrary before. Without memory the process ends.
double* workspace(workspace_slot slot, std::size_t count);

// The same as complex numbers, and as rows of complex numbers behind a table of row pointers.
complex* workspace_vector(workspace_slot slot, std::size_t count);
complex** workspace_matrix(workspace_slot slot, int rows, int columns);

// Planes of the given shape, with the room behind each row that kernels need; of zeros; and with a
// matrix in them.
planes work_planes(workspace_slot slot, int rows, int columns);
planes zero_planes(workspace_slot slot, int rows, int columns);
planes split_matrix(workspace_slot slot, int rows, int columns, const complex* const* m);

} // namespace orvel
