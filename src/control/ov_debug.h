// SPDX-License-Identifier: MIT
//
// Progress of long loops and dumps on request of the switches of dbg. All of it goes to the
// console but the selection dump, which has a file of its own.
#pragma once

#include <cstdio>

#include "control/ov_mpi.h"
#include "control/records.h"

namespace orvel {

// "$$ERROR: ", the text and a line end to the stream; status 1. For the atomic tables.
[[noreturn]] void error_exit(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// Percentages in steps of 5 on one console line: i is the number of the item now being worked on,
// from 0, n the number of items. A finished run has printed 5 to 95.
void progress_indicator(int i, int n);

// -1 starts the timer of a loop; n > 0, right behind the first item, forecasts the time of n such
// items; 0 ends the progress line and prints the elapsed time.
void exec_time_forecast(int n);

// Text at once on the console while process_mon_flag is 1.
void dbg_mon(const char* text);

// The selection dump %s.dbg, a table of the beams that each tilt selects. init opens the file and
// writes its head if vg_sel_chk_flag is set; a file that cannot be opened is reported, and the job
// runs as without the flag. pos begins the row of a tilt with its mesh indices, row completes it:
// K_t, the two counts, and for each beam of the list 2 (exact), 1 (Bethe) or 0 (left out), where
// sel holds the positions of nesel exact and then nbsel Bethe beams. term closes the file.
void dbg_sel_vg_init(int num_exact_beam, int num_bethe_beam);
void dbg_sel_vg_pos(int ih, int ig);
void dbg_sel_vg_row(r_hkl K_t, int num_beam, int nesel, int nbsel, const int* sel);
void dbg_dump_term();

// True while the selection dump replaces the calculation of intensities.
bool dbg_sel_vg_active();

} // namespace orvel
