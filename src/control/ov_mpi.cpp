// SPDX-License-Identifier: MIT
#include "control/ov_mpi.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "control/limits.h"

namespace orvel {

int num_procs = 1;
int proc_id = 0;

// ---- files that are being written ---------------------------------------------------------------

// A signal may read the table at any time: an entry counts while its stream is set, the last of its
// fields to come and the first to go.
struct open_file {
    std::atomic<std::FILE*> stream; // null: no entry
    char name[path_max];
    bool removable;   // a regular file that a failed run takes away
    bool chk_numbers; // a table in which no number was infinite or NaN so far
};
static open_file open_files[open_max];

static open_file* find_file(const std::FILE* stream) {
    for (open_file& file : open_files)
        if (file.stream == stream)
            return &file;
    return nullptr;
}

static const char* name_of(const std::FILE* stream) {
    const open_file* file = find_file(stream);
    if (file != nullptr)
        return file->name;
    return stream == stdout ? "standard output" : "standard error"; // which nobody opens
}

// A table that ends early reads as complete, so it goes; where its name is a link, what stands behind
// the link is emptied. Calls only what a signal handler may call.
static void remove_incomplete() {
    for (const open_file& file : open_files) {
        if (file.stream == nullptr || !file.removable)
            continue;
        close(open(file.name, O_WRONLY | O_TRUNC));
        unlink(file.name);
    }
}

// ---- tables with values that are no numbers --------------------------------------------------

// Name of a table that holds an infinite number or NaN; of a file written again, the last text counts.
struct unsound_table {
    unsound_table* next;
    char name[path_max];
};
static unsound_table* unsound_tables = nullptr; // in the order of their finding

// The link that leads to a name, or the last one, which leads nowhere.
static unsound_table*& find_unsound(const char* name) {
    unsound_table** link = &unsound_tables;
    while (*link != nullptr && std::strcmp((*link)->name, name) != 0)
        link = &(*link)->next;
    return *link;
}

static void forget_unsound(unsound_table*& link) {
    unsound_table* table = link;
    if (table == nullptr)
        return;
    link = table->next;
    std::free(table);
}

static void print_unsound(const char* name) {
    std::fprintf(stderr, "$$Warning: %s holds values that are no numbers.\n", name);
}

static void note_unsound(const char* name) {
    auto* table = static_cast<unsound_table*>(std::malloc(sizeof(unsound_table)));
    if (table == nullptr) { // better early than never
        print_unsound(name);
        return;
    }
    table->next = nullptr;
    std::memcpy(table->name, name, sizeof table->name);
    find_unsound(name) = table;
}

// Flags, width and precision of a conversion.
static bool is_layout(char c) { return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == ' '; }

// Whether one of the values is an infinite number or NaN; the format says which are real numbers. Every
// row of every table comes by, so no function of the library is called.
static bool has_no_number(const char* format, std::va_list values) {
    for (const char* c = format; *c != '\0'; ++c) {
        if (*c != '%')
            continue;
        do
            ++c;
        while (is_layout(*c));
        int longs = 0;
        for (; *c == 'l'; ++c)
            ++longs;
        switch (*c) {
        case 'e':
        case 'f':
        case 'g':
            if (!std::isfinite(va_arg(values, double)))
                return true;
            break;
        case 's':
            va_arg(values, const char*);
            break;
        case 'c':
        case 'd':
        case 'u':
            static_cast<void>(longs == 0   ? va_arg(values, int)
                              : longs == 1 ? va_arg(values, long)
                                           : va_arg(values, long long));
            break;
        case '%':
            break;
        default: // what takes another kind of value
            return false;
        }
    }
    return false;
}

static void chk_numbers(const std::FILE* stream, const char* format, std::va_list values) {
    if (stream == stdout || !has_no_number(format, values))
        return;
    open_file* file = find_file(stream);
    if (file == nullptr || !file->chk_numbers)
        return;
    file->chk_numbers = false;
    note_unsound(file->name);
}

// ---- start and end of the process -----------------------------------------------------------------

// The signal comes once more, now to end the process as if nobody had handled it.
static void stopped(int signal) {
    remove_incomplete();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void ov_init() {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    // A closed pipe and a limit of the file size are write errors like any other.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU})
        if (std::signal(signal, stopped) == SIG_IGN) // as nohup wants it
            std::signal(signal, SIG_IGN);
}

[[noreturn]] static void not_written(const char* name) {
    ov_abort(stderr, "$$ Cannot write %s. Abort.\n", name);
}

[[noreturn]] static void not_written(const std::FILE* stream) {
    if (stream == stdout && errno == EPIPE) // whoever read the console has seen enough
        ov_exit_failed();
    not_written(name_of(stream));
}

void ov_exit() {
    for (const open_file& file : open_files)
        if (file.stream != nullptr)
            ov_fclose(file.stream);
    ov_fflush(stdout);
    if (close(STDOUT_FILENO) != 0)
        not_written(stdout);
    while (unsound_tables != nullptr) {
        print_unsound(unsound_tables->name);
        forget_unsound(unsound_tables);
    }
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
    forget_unsound(find_unsound(path));
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
    const char* name = name_of(stream);
    const bool closed = std::fclose(stream) == 0; // a file server may tell so late
    if (file != nullptr && closed)
        file->stream = nullptr;
    else if (file != nullptr)
        file->removable = true; // nobody knows what is stored, be it the log
    if (!closed)
        not_written(name);
}

// ---- files that are being read ------------------------------------------------------------------

// Name of what stands behind a descriptor. The system hands out the lowest number that is free, so few
// numbers come up however many files are read.
struct input_file {
    int descriptor;
    char name[path_max]; // empty: no entry
};
static input_file inputs[2 * open_max];

// The entry of a descriptor, or the first empty one; null if there is neither.
static input_file* find_input(int descriptor) {
    for (input_file& input : inputs)
        if (input.descriptor == descriptor || input.name[0] == '\0')
            return &input;
    return nullptr;
}

std::FILE* ov_fopen_rmode(const char* path) {
    std::FILE* stream = std::fopen(path, "r");
    input_file* input = stream != nullptr ? find_input(fileno(stream)) : nullptr;
    if (input != nullptr) {
        input->descriptor = fileno(stream);
        std::snprintf(input->name, sizeof input->name, "%s", path);
    }
    return stream;
}

bool ov_is_device(std::FILE* stream) {
    struct stat status = {};
    const int file = fileno(stream);
    return fstat(file, &status) == 0 && S_ISCHR(status.st_mode) && isatty(file) == 0;
}

void ov_cannot_read(std::FILE* stream) {
    const input_file* input = stream != stdin ? find_input(fileno(stream)) : nullptr;
    ov_abort(stderr, "$$ Cannot read %s. Abort.\n", input != nullptr ? input->name : "standard input");
}

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
