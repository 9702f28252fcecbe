// SPDX-License-Identifier: MIT
//
// The blocks of the parameter file that hold the conditions of the solver's jobs. Faults of the file
// end the process.
#pragma once

#include <cstdio>

#include "jobs/ov_sim_mesh.h"

namespace orvel {

// The condition block of each job whole, with the beam search and its report.
void input_sim_data(sd& cond, csd& crystal, std::FILE* file);
void input_sim_coherent_data(sd& cond, std::FILE* file); // the COHERENT block behind it
void input_dispsurf_data(sd& cond, csd& crystal, std::FILE* file);
void input_bloch_data(sd& cond, csd& crystal, std::FILE* file);
void input_tfringe_data(sd& cond, csd& crystal, std::FILE* file);

// INCIDENT_BEAM, words included.
void fget_incident_beam(sd& cond, std::FILE* file);

// CALC_RXY_RANGE with the base vectors of the map, and these alone; both are told on the console.
void fget_calc_rxy_range(sd& cond, lattice lat, std::FILE* file);
void make_map_base(sd& cond, lattice lat);

// Contents of the BEAM_SEARCH block, and the reflection report of its list.
void fget_sd_beams(sd& cond, csd& crystal, std::FILE* file);
void report_beams(const sd& cond, csd& crystal);

} // namespace orvel
