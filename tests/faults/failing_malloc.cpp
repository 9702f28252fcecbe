// SPDX-License-Identifier: MIT
//
// A library to be preloaded: allocation number ORVEL_FAIL_AT of the process, from 1, finds no memory;
// with 0 the number of allocations goes to standard error at the end of a run that ended well.
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

static long fail_at = -1; // until the process has set itself up
static long count = 0;

static bool fails() {
    if (fail_at < 0 || ++count != fail_at)
        return false;
    errno = ENOMEM;
    return true;
}

__attribute__((constructor)) static void begin() {
    const char* at = std::getenv("ORVEL_FAIL_AT");
    fail_at = at != nullptr ? std::atol(at) : -1;
}

__attribute__((destructor)) static void end() {
    if (fail_at == 0)
        dprintf(STDERR_FILENO, "%ld\n", count);
}

// The C library's own functions stand behind these names as well.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) { return fails() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t n, std::size_t size) { return fails() ? nullptr : __libc_calloc(n, size); }
void* realloc(void* block, std::size_t size) { return fails() ? nullptr : __libc_realloc(block, size); }
}
