// SPDX-License-Identifier: MIT
//
// The files that the process has open, by name: those that it writes, so that a failure or a signal
// can take away what is incomplete and messages can say what they are about, and those that it reads.
// For the output layer (control/ov_mpi.h) and the signals.
#pragma once

#include <atomic>
#include <cstdio>

#include "control/limits.h"

namespace orvel {

// A file that is being written. A signal may read the table at any time: an entry counts while its
// stream is set, the last of its fields to come and the first to go.
struct open_file {
    std::atomic<std::FILE*> stream; // null: no entry
    char name[path_max];
    bool removable;   // a regular file that a failed run takes away
    bool chk_numbers; // a table in which no number was infinite or NaN so far
};
extern open_file open_files[open_max];

// The entry of a stream, null if it has none; of null, the first free entry.
open_file* find_file(const std::FILE* stream);

// Name of a stream that is written to, the console's two included.
const char* name_of_output(const std::FILE* stream);

// Takes away the removable files. Where the name of one is a link, what stands behind the link is
// emptied. Calls only what a signal handler may call.
void remove_incomplete();

// Keeps the name of what is being read behind a descriptor; and that name.
void note_input(std::FILE* stream, const char* path);
const char* name_of_input(std::FILE* stream);

} // namespace orvel
