// SPDX-License-Identifier: MIT
//
// Limits that a user may meet and sizes of buffers, each with its reason; sizes that serve one function
// alone stand there. Sizes of text buffers count the terminator, so a line of line_max - 1 characters
// is the longest that one read takes.
#pragma once

namespace orvel {

constexpr int line_max = 256;           // one read of a parameter file or of orvelbk.dat
constexpr int ini_line_max = 80;        // one read of orvel.ini
constexpr int eps_line_max = 128;       // one read inside EPS_CONTROL_PARAMETERS
constexpr int table_line_max = 100;     // one read of orvelspg.dat and orvelxdt.dat
constexpr int search_line_max = 90;     // one read of a search row inside BEAM_SEARCH
constexpr int name_max = 256;           // parameter file name, its stem, the log's name
constexpr int path_max = name_max + 64; // a stem with any suffix that a job appends
constexpr int open_max = 16;            // files written at once: a job has up to four, and the log
constexpr int id_max = 32;              // name of a refinable value
constexpr int expr_max = 260;           // first token of a value line: longer than any read
constexpr int element_max = 8;          // element or ion name
constexpr int stock_max = 1000;         // structure factors in a stock, equivalents included
constexpr int layer_max = 100;          // Laue zones with limits of their own, from 0
constexpr int index_max = 100000;       // Miller index of a search box: beyond it no crystal goes

} // namespace orvel
