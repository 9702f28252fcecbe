// SPDX-License-Identifier: MIT
#include "control/ov_mpi.h"

#include <cstdarg>
#include <cstdlib>

namespace orvel {

int num_procs = 1;
int proc_id = 0;

// A failure ends the process at once: texts go out, and nothing else is tidied up.
[[noreturn]] static void end_failed() {
    std::fflush(nullptr);
    std::_Exit(EXIT_FAILURE);
}

[[noreturn]] static void not_written() {
    ov_abort(stderr, "$$ A result file could not be written completely. Abort.\n");
}

void ov_fprintf(std::FILE* stream, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int written = std::vfprintf(stream, format, values);
    va_end(values);
    if (written < 0) // a full disk: no job computes on for nothing
        not_written();
}

void ov_fprintf_stdo(std::FILE* stream, const char* format, ...) {
    va_list values;
    va_start(values, format);
    va_list again;
    va_copy(again, values);
    std::vfprintf(stream, format, values);
    std::vfprintf(stdout, format, again);
    va_end(again);
    va_end(values);
}

int ov_fflush(std::FILE* stream) { return std::fflush(stream); }

std::FILE* ov_fopen_chk_wmode(const char* path) {
    std::FILE* stream = std::fopen(path, "w");
    if (stream == nullptr)
        ov_abort(stderr, "$$ Cannot open %s. Abort.\n", path);
    return stream;
}

void ov_fclose(std::FILE* stream) {
    const bool failed = std::ferror(stream) != 0;
    if (std::fclose(stream) != 0 || failed)
        not_written();
}

void ov_exit_with(std::FILE* stream, const char* prefix, const char* format, std::va_list values) {
    std::fputs(prefix, stream);
    std::vfprintf(stream, format, values);
    std::fputc('\n', stream);
    end_failed();
}

void ov_error_exit(std::FILE* stream, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    ov_exit_with(stream, "$$error: ", format, values);
}

void ov_abort(std::FILE* stream, const char* format, ...) {
    va_list values;
    va_start(values, format);
    std::vfprintf(stream, format, values);
    va_end(values);
    end_failed();
}

} // namespace orvel
