// SPDX-License-Identifier: MIT
//
// The output layer. All text of the program leaves through it: console, log and result files are
// plain streams, and the console is standard output. A failure ends the process with status 1.
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

// Formatted text to one stream. A stream that cannot take it (a full disk): message on standard
// error, status 1.
void ov_fprintf(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// The same text to the stream and then to the console.
void ov_fprintf_stdo(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// Flushes the stream; returns what the library returns.
int ov_fflush(std::FILE* stream);

// Opens a path for writing. On failure: message on standard error, status 1.
std::FILE* ov_fopen_chk_wmode(const char* path);

// Closes a stream that was written to. If any of its text could not be stored (a full disk):
// message on standard error, status 1.
void ov_fclose(std::FILE* stream);

// "$$error: ", the text and a line end to the stream; status 1.
[[noreturn]] void ov_error_exit(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

// Prefix, formatted text and a line end to the stream; status 1. For exits with a
// prefix of their own.
[[noreturn]] void ov_exit_with(std::FILE* stream, const char* prefix, const char* format, std::va_list values);

// The text as it is to the stream; status 1.
[[noreturn]] void ov_abort(std::FILE* stream, const char* format, ...) ORVEL_PRINTF(2, 3);

} // namespace orvel
