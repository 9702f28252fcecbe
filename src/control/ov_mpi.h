// SPDX-License-Identifier: MIT
//
// The output layer, and the opening of files. All text of the program leaves through it: console, log
// and result files are plain streams, and the console is standard output. A failure ends the process
// with status 1, and takes away the files that are still open for writing: none looks complete and is
// not. Numbers that are none are told at the end of the run.
#pragma once

#include <cstdarg>
#include <cstdio>

// Lets the compiler check the values of a call against its format (argument numbers from 1).
#define ORVEL_PRINTF(format_arg, first_value) \
    __attribute__((format(printf, format_arg, first_value)))

namespace orvel {

// Number of processes and own number: one process, always 1 and 0.
extern int num_procs;
extern int proc_id;

// To be called first. Lines of the console show at once, also in a pipe or a file. A signal that stops
// the process takes away the files that are still open for writing.
void ov_init();

// Ends a run that went well: closes every file and the console, as ov_fclose does, and names each file
// that holds an infinite number or NaN on standard error; status 0.
[[noreturn]] void ov_exit();

// Ends a run that failed: texts go out, files that are still open for writing go away; status 1.
[[noreturn]] void ov_exit_failed();

// Formatted text to one stream. A stream that cannot take it (a full disk): message with the file's
// name on standard error, status 1; without a message if the console is a pipe that nobody reads.
// Formats know the conversions c, d, e, f, g, s and u with fixed widths.
void ov_fprintf(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// The same text to the stream and then to the console.
void ov_fprintf_stdo(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// Flushes the stream; returns what the library returns. Ends the process as ov_fprintf does.
int ov_fflush(std::FILE* stream);

// Opens a path for writing. On failure: null; message on standard error, status 1.
std::FILE* ov_fopen_wmode(const char* path);
std::FILE* ov_fopen_chk_wmode(const char* path);

// For the log, right behind its opening: its lines go out as they are written, and a run that fails leaves
// it so far, for it has an end to tell by. Its numbers are text.
void ov_keep(std::FILE* stream);

// Closes a stream that was written to. Ends the process as ov_fprintf does if any of its text could
// not be stored.
void ov_fclose(std::FILE* stream);

// Opens a path for reading; null on failure.
std::FILE* ov_fopen_rmode(const char* path);

// True for a device other than a terminal: a line in it may never end.
bool ov_is_device(std::FILE* stream);

// "$$ Cannot read %s. Abort.\n" with the name of a stream opened for reading, on standard error; status 1.
[[noreturn]] void ov_cannot_read(std::FILE* stream);

// "$$error: ", the text and a line end to the stream; status 1.
[[noreturn]] void ov_error_exit(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// Prefix, formatted text and a line end to the stream; status 1. For exits with a
// prefix of their own.
[[noreturn]] void ov_exit_with(std::FILE* stream, const char* prefix, const char* format, std::va_list values);

// The text as it is to the stream; status 1.
[[noreturn]] void ov_abort(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

} // namespace orvel
