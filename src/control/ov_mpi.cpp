// SPDX-License-Identifier: MIT
#include "control/ov_mpi.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "control/open_files.h"
#include "control/signals.h"
#include "control/unsound_tables.h"

namespace orvel {

int num_procs = 1;
int proc_id = 0;

// ---- start and end of the process -----------------------------------------------------------------

void ov_init() {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    handle_signals();
}

[[noreturn]] static void not_written(const char* name) {
    ov_abort(stderr, "$$ Cannot write %s. Abort.\n", name);
}

[[noreturn]] static void not_written(const std::FILE* stream) {
    if (stream == stdout && errno == EPIPE) // whoever read the console has seen enough
        ov_exit_failed();
    not_written(name_of_output(stream));
}

void ov_exit() {
    for (const open_file& file : open_files)
        if (file.stream != nullptr)
            ov_fclose(file.stream);
    ov_fflush(stdout);
    if (close(STDOUT_FILENO) != 0)
        not_written(stdout);
    print_unsound_tables();
    std::exit(EXIT_SUCCESS);
}

// On a full disk, what goes makes room for what stays.
void ov_exit_failed() {
    remove_incomplete();
    for (const open_file& file : open_files)
        if (file.stream != nullptr && !file.removable)
            std::fflush(file.stream);
    std::fflush(stdout);
    std::_Exit(EXIT_FAILURE);
}

// ---- text ---------------------------------------------------------------------------------------

static void print(std::FILE* stream, const char* format, std::va_list values) {
    std::va_list looked_at;
    va_copy(looked_at, values);
    chk_numbers(stream, format, looked_at);
    va_end(looked_at);
    if (std::vfprintf(stream, format, values) < 0) // a full disk: no job computes on for nothing
        not_written(stream);
}

void ov_fprintf(std::FILE* stream, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    print(stream, format, values);
    va_end(values);
}

void ov_fprintf_stdo(std::FILE* stream, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    std::va_list again;
    va_copy(again, values);
    print(stream, format, values);
    print(stdout, format, again);
    va_end(again);
    va_end(values);
}

int ov_fflush(std::FILE* stream) {
    const int result = std::fflush(stream);
    if (result != 0)
        not_written(stream);
    return result;
}

std::FILE* ov_fopen_wmode(const char* path) {
    open_file* file = find_file(nullptr);
    if (file == nullptr || std::strlen(path) >= sizeof file->name)
        return nullptr;
    std::FILE* stream = std::fopen(path, "w");
    if (stream == nullptr)
        return nullptr;
    struct stat status = {};
    std::snprintf(file->name, sizeof file->name, "%s", path);
    file->removable = fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode);
    file->chk_numbers = true;
    forget_unsound(path);
    file->stream = stream;
    return stream;
}

std::FILE* ov_fopen_chk_wmode(const char* path) {
    std::FILE* stream = ov_fopen_wmode(path);
    if (stream == nullptr)
        ov_abort(stderr, "$$ Cannot open %s. Abort.\n", path);
    return stream;
}

void ov_keep(std::FILE* stream) {
    std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
    open_file* file = find_file(stream);
    file->removable = false;
    file->chk_numbers = false;
}

void ov_fclose(std::FILE* stream) {
    if (std::ferror(stream) != 0 || std::fflush(stream) != 0)
        not_written(stream);
    open_file* file = find_file(stream);
    const char* name = name_of_output(stream);
    const bool closed = std::fclose(stream) == 0; // a file server may tell so late
    if (file != nullptr && closed)
        file->stream = nullptr;
    else if (file != nullptr)
        file->removable = true; // nobody knows what is stored, be it the log
    if (!closed)
        not_written(name);
}

// ---- files that are being read ------------------------------------------------------------------

std::FILE* ov_fopen_rmode(const char* path) {
    std::FILE* stream = std::fopen(path, "r");
    if (stream != nullptr)
        note_input(stream, path);
    return stream;
}

bool ov_is_device(std::FILE* stream) {
    struct stat status = {};
    const int file = fileno(stream);
    return fstat(file, &status) == 0 && S_ISCHR(status.st_mode) && isatty(file) == 0;
}

void ov_cannot_read(std::FILE* stream) { ov_abort(stderr, "$$ Cannot read %s. Abort.\n", name_of_input(stream)); }

// ---- ends with a message -----------------------------------------------------------------------

void ov_exit_with(std::FILE* stream, const char* prefix, const char* format, std::va_list values) {
    std::fputs(prefix, stream);
    std::vfprintf(stream, format, values);
    std::fputc('\n', stream);
    ov_exit_failed();
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
    ov_exit_failed();
}

} // namespace orvel
