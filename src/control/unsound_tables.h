// SPDX-License-Identifier: MIT
//
// Tables of numbers that hold a value that is none: found as they are written, told at the end of the
// run.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace orvel {

// Looks at the real numbers of a formatted write to a stream and notes its file if one of them is
// infinite or NaN. The console and the log are no tables.
void chk_numbers(const std::FILE* stream, const char* format, std::va_list values);

// Forgets what was noted of a file: it is written again.
void forget_unsound(const char* name);

// Names each file noted on standard error, in the order of their finding, and forgets all.
void print_unsound_tables();

} // namespace orvel
