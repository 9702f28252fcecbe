// SPDX-License-Identifier: MIT
#include "control/utils.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "control/ov_mpi.h"

namespace orvel {

// One character in text mode: a CR in front of a newline vanishes.
static int get_text_char(std::FILE* stream) {
    const int c = std::getc(stream);
    if (c != '\r')
        return c;
    const int next = std::getc(stream);
    if (next == '\n')
        return next;
    if (next != EOF)
        std::ungetc(next, stream);
    return c;
}

// fgets in text mode, on any platform. What cannot be read ends the process: a directory, a device
// that fails, and one whose line does not end.
static char* get_line(int n, char* buf, std::FILE* stream) {
    int length = 0;
    int c = 0;
    while (c != '\n' && length < n - 1) {
        c = get_text_char(stream);
        if (c == EOF)
            break;
        buf[length++] = static_cast<char>(c);
    }
    const bool cut = c != EOF && c != '\n';
    if (std::ferror(stream) != 0 || (cut && ov_is_device(stream)))
        ov_cannot_read(stream);
    buf[length] = '\0';
    return length > 0 ? buf : nullptr;
}

static bool begins_with(const char* text, const char* word) {
    return std::strncmp(text, word, std::strlen(word)) == 0;
}

char* comment_skip_fgets(int n, char* buf, std::FILE* stream) {
    while (get_line(n, buf, stream) != nullptr) {
        if (begins_with(buf, "COMMENT{")) {
            do {
                if (get_line(n, buf, stream) == nullptr)
                    return nullptr;
            } while (!begins_with(buf, "}COMMENT"));
        } else if (buf[0] != '%' && buf[0] != '#') {
            return buf;
        }
    }
    return nullptr;
}

char* rm_cr(char* text) {
    if (std::strchr(text, '\n') != nullptr)
        text[std::strlen(text) - 1] = '\0';
    return text;
}

int str_to_fs(int n, char* text, double* values) {
    for (int i = 0; i < n; ++i)
        values[i] = 0.0;
    int stored = 0;
    for (; stored < n; ++stored) {
        const char* token = std::strtok(stored == 0 ? text : nullptr, separators);
        if (token == nullptr)
            break;
        values[stored] = std::atof(token);
    }
    return stored;
}

void remove_extention(const char* name, char* stem) {
    const char* begin = name + std::strspn(name, ".");
    const std::size_t length = std::strcspn(begin, ".");
    std::memcpy(stem, begin, length);
    stem[length] = '\0';
}

std::FILE* fopen_chk_rmode(const char* path) {
    std::FILE* stream = ov_fopen_rmode(path);
    if (stream == nullptr)
        ov_abort(stderr, "$$ (fopen_chk_rmode) Cannot open %s. Abort.\n", path);
    return stream;
}

std::FILE* fopen_chk_wmode(const char* path) {
    std::FILE* stream = ov_fopen_wmode(path);
    if (stream == nullptr)
        ov_abort(stderr, "$$ (fopen_chk_wmode) Cannot open %s. Abort.\n", path);
    return stream;
}

int real_to_int(double value) {
    if (value >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (value <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return value == value ? static_cast<int>(value) : 0;
}

int text_to_int(const char* text) {
    return real_to_int(static_cast<double>(std::strtol(text, nullptr, 10)));
}

void copy_text(char* destination, int size, const char* text) {
    std::snprintf(destination, static_cast<std::size_t>(size), "%s", text);
}

// Sifts the element at p down within the first n elements of a min-heap (places from 0).
static void sift_down(int p, int n, double* a, int* idx) {
    const double x = a[p];
    const int x_idx = idx[p];
    while (2 * p + 1 < n) {
        int child = 2 * p + 1;
        if (child + 1 < n && a[child] > a[child + 1])
            ++child;
        if (a[child] >= x)
            break;
        a[p] = a[child];
        idx[p] = idx[child];
        p = child;
    }
    a[p] = x;
    idx[p] = x_idx;
}

void d_heapsort(int n, double* a, int* idx) {
    for (int k = 0; k < n; ++k)
        idx[k] = k;
    for (int p = n / 2 - 1; p >= 0; --p)
        sift_down(p, n, a, idx);
    for (int m = n - 1; m >= 1; --m) {
        const double x = a[0];
        const int x_idx = idx[0];
        a[0] = a[m];
        idx[0] = idx[m];
        a[m] = x;
        idx[m] = x_idx;
        sift_down(0, m, a, idx);
    }
}

} // namespace orvel
