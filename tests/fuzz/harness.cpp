// SPDX-License-Identifier: MIT
#include "harness.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <unordered_set>

#include "control/ov_mpi.h"
#include "numeric/lb_fft.h"

static const long work_max = 3000000; // calls of functions: tables and some dozen beams

static std::jmp_buf way_back;
static bool running = false; // what is opened and allocated is the product's
static long work;
static orvel_fuzz::file_set inputs;
static std::unordered_set<std::FILE*> streams;
static std::unordered_set<void*> blocks;

// Notes what the product took or gave back; the set's own memory is none of it.
template <class T>
static T* noted(std::unordered_set<T*>& set, T* what, bool taken) {
    if (!running)
        return what;
    running = false;
    if (taken && what != nullptr)
        set.insert(what);
    else
        set.erase(what);
    running = true;
    return what;
}

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t n, std::size_t size);
void __real_free(void* block);
[[noreturn]] void __real_exit(int status);
[[noreturn]] void __real__Exit(int status);
std::FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(std::FILE* stream);
int __real_close(int file);

// The product knows two statuses; libFuzzer has others for what it finds.
[[noreturn]] static void leave(int status, void (*real)(int)) {
    if (running && (status == EXIT_SUCCESS || status == EXIT_FAILURE))
        std::longjmp(way_back, 1);
    real(status);
    std::abort();
}
void __wrap_exit(int status) { leave(status, __real_exit); }
void __wrap__Exit(int status) { leave(status, __real__Exit); }

void* __wrap_malloc(std::size_t size) { return noted(blocks, __real_malloc(size), true); }
void* __wrap_calloc(std::size_t n, std::size_t size) { return noted(blocks, __real_calloc(n, size), true); }
void __wrap_free(void* block) { __real_free(noted(blocks, block, false)); }
int __wrap_fclose(std::FILE* stream) { return __real_fclose(noted(streams, stream, false)); }
int __wrap_close(int file) { return running && file == STDOUT_FILENO ? 0 : __real_close(file); }

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (!running || std::strncmp(path, "finds/", 6) == 0) // where libFuzzer keeps what it has found
        return __real_fopen(path, mode);
    const auto file = inputs.find(path);
    if (mode[0] == 'w')
        return __real_fopen("/dev/null", mode); // the product has a list of these
    if (file == inputs.end())
        return nullptr;
    return noted(streams, fmemopen(file->second.data(), file->second.size(), mode), true);
}

// Called at the entry of each function of the product, where no lock of the library is held.
[[gnu::no_instrument_function]] void __cyg_profile_func_enter(void*, void*) {
    if (running && ++work > work_max)
        std::longjmp(way_back, 1);
}
[[gnu::no_instrument_function]] void __cyg_profile_func_exit(void*, void*) {}

// More memory than this is not to be had; what a run of orvel_fit holds when it is cut off is lost.
const char* __asan_default_options() { return "allocator_may_return_null=1:max_allocation_size_mb=256:detect_leaks=0"; }
}

void orvel_fuzz::run_caught(file_set files, void (*body)()) {
    inputs = std::move(files);
    work = 0;
    running = true;
    if (setjmp(way_back) == 0)
        body();
    work = 0;
    orvel::fft1d(0, 0, nullptr, nullptr); // its tables stay for the next call
    if (setjmp(way_back) == 0)
        orvel::ov_exit(); // empties its lists of files
    running = false;
    for (std::FILE* stream : streams)
        std::fclose(stream);
    for (void* block : blocks)
        std::free(block);
    streams.clear();
    blocks.clear();
}
