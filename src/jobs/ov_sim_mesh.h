// SPDX-License-Identifier: MIT
//
// The mesh of incident tilts of a solver job: places, judgement, wave vectors.
#pragma once

#include "jobs/ov_sim_record.h"

namespace orvel {

// The jobs of the solver. Their blocks differ in a few words and limits, tables of which go by this.
enum solver_job { solver_sim,
                  solver_dispsurf,
                  solver_bloch,
                  solver_tfringe };

// Lays the mesh by kind, size and centre: places, range and counts.
void lay_mesh(sd& cond);

// Judges all tilts that the job will compute, in a crystal of wave number abs_K. One that is outside the
// Ewald sphere ends the process.
void chk_tilts(const sd& cond, solver_job job, double abs_K, lattice lat);

// Sets zolzbase2 and k_tilt of the mesh.
void calc_kxy_tilt(sd& cond, lattice lat);

} // namespace orvel
