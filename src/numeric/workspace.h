// SPDX-License-Identifier: MIT
//
// Memory that the numerical modules keep between calls, since to map it anew at each tilt costs as
// much as some of the work done in it. Each user has a slot of its own.
#pragma once

#include <cstddef>

namespace orvel {

enum workspace_slot {
    workspace_hessenberg, // corth
    workspace_qr,         // comqr2
    workspace_rotations,  // comqr2: those of all sweeps
    workspace_sweeps,     // comqr2: the sweeps
    num_workspace_slots
};

// The block of a slot, of at least so many bytes, aligned to lines of the cache. What stood in it
// stays when it grows. Without memory the process ends as chk_vector does.
void* workspace(workspace_slot slot, std::size_t bytes);

} // namespace orvel
