// SPDX-License-Identifier: MIT
//
// The mesh of incident tilts in words that the jobs share with the refinement: its kinds and its points.
#pragma once

namespace orvel {

// Kinds of tilt mesh, calc_type. A job that builds no mesh sets mesh_none.
enum mesh_kind {
    mesh_none = -1,
    mesh_point = 0,  // one tilt
    mesh_line = 1,   // along H
    mesh_disk = 2,   // square with a round mask
    mesh_square = 3, // square
};

// Place of a tilt in the mesh.
struct pixel {
    int ih, ig;  // mesh indices: from 0 for the disk, around 0 for line and square
    int flag;    // 1: computed, 0: outside the disk
    double h, g; // tilt coordinates
};

} // namespace orvel
