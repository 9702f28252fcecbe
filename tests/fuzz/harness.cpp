// SPDX-License-Identifier: MIT
#include "harness.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <unordered_map>

#include "numeric/lb_fft.h"

namespace {

constexpr long work_max = 3000000;            // calls: tables and some dozen beams
constexpr std::size_t memory_max = 256 << 20; // bytes

std::jmp_buf way_back;
bool running = false; // the product is: what it opens and allocates is noted
long work = 0;
std::size_t memory = 0;
std::map<std::string, std::string> inputs;
std::set<std::FILE*> streams;
std::unordered_map<void*, std::size_t> blocks;

[[noreturn]] void come_back() {
    running = false;
    std::longjmp(way_back, 1);
}

} // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t n, std::size_t size);
void __real_free(void* block);
[[noreturn]] void __real__Exit(int status);
[[noreturn]] void __real_exit(int status);
std::FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(std::FILE* stream);

void __wrap__Exit(int status) {
    if (running)
        come_back();
    __real__Exit(status);
}

void __wrap_exit(int status) {
    if (running)
        come_back();
    __real_exit(status);
}

static void* noted(void* block, std::size_t size) {
    running = false;
    if (block != nullptr)
        memory += blocks[block] = size;
    running = true;
    return block;
}

void* __wrap_malloc(std::size_t size) {
    if (!running)
        return __real_malloc(size);
    return size > memory_max - memory ? nullptr : noted(__real_malloc(size), size);
}

void* __wrap_calloc(std::size_t n, std::size_t size) {
    if (!running)
        return __real_calloc(n, size);
    return size != 0 && n > (memory_max - memory) / size ? nullptr : noted(__real_calloc(n, size), n * size);
}

void __wrap_free(void* block) {
    if (running) {
        running = false;
        const auto known = blocks.find(block);
        if (known != blocks.end()) {
            memory -= known->second;
            blocks.erase(known);
        }
        running = true;
    }
    __real_free(block);
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    if (!running)
        return __real_fopen(path, mode);
    running = false;
    const auto file = inputs.find(path);
    std::FILE* stream = nullptr;
    if (mode[0] == 'w')
        stream = __real_fopen("/dev/null", mode);
    else if (file != inputs.end())
        stream = fmemopen(file->second.data(), file->second.size(), mode);
    if (stream != nullptr)
        streams.insert(stream);
    running = true;
    return stream;
}

int __wrap_fclose(std::FILE* stream) {
    if (running) {
        running = false;
        streams.erase(stream);
        running = true;
    }
    return __real_fclose(stream);
}

// Called at the entry of each function of the product, where no lock of the library is held.
[[gnu::no_instrument_function]] void __cyg_profile_func_enter(void*, void*) {
    if (!running || ++work <= work_max)
        return;
    running = false; // before the next call
    come_back();
}
[[gnu::no_instrument_function]] void __cyg_profile_func_exit(void*, void*) {}
}

namespace orvel_fuzz {

void run_caught(std::map<std::string, std::string> files, void (*body)()) {
    inputs = std::move(files);
    work = 0;
    if (setjmp(way_back) == 0) {
        running = true;
        body();
    }
    work = 0;
    running = true;
    orvel::fft1d(0, 0, nullptr, nullptr); // its tables stay for the next call
    running = false;
    for (std::FILE* stream : streams)
        std::fclose(stream);
    for (const auto& block : blocks)
        std::free(block.first);
    streams.clear();
    blocks.clear();
    memory = 0;
}

std::string file_text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace orvel_fuzz
