// SPDX-License-Identifier: MIT
//
// Start of the benchmarks: OpenBLAS on one thread, as the program has but one, and a context that
// says what was compared with what.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fftw3.h>

#include "numeric/fast/dispatch.h"
#include "openblas.h"

#ifdef __clang__
static const char* const compiler = __VERSION__;
#else
static const char* const compiler = "GCC " __VERSION__;
#endif

// File of the library that holds a routine.
static std::string library_of(const char* routine) {
    void* address = dlsym(RTLD_DEFAULT, routine);
    Dl_info info = {};
    return address != nullptr && dladdr(address, &info) != 0 ? info.dli_fname : "";
}

// Takes --machine=plain, wide or widest out of the arguments: kernels for less than the machine has.
static void choose_machine(int& argc, char** argv) {
    const char* const names[] = {"plain", "wide", "widest"};
    const std::string option = "--machine=";
    int kept = 0;
    for (int i = 0; i < argc; ++i) {
        if (argv[i] != option + names[0] && argv[i] != option + names[1] && argv[i] != option + names[2])
            argv[kept++] = argv[i];
        for (const orvel::machine_kind kind : {orvel::machine_plain, orvel::machine_wide, orvel::machine_widest})
            if (argv[i] == option + names[kind])
                orvel::use_machine(kind);
    }
    argc = kept;
    benchmark::AddCustomContext("kernels", names[orvel::machine()]);
}

int main(int argc, char** argv) {
    choose_machine(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    openblas_set_num_threads(1);
    const std::string lapack = library_of("zgeev_");
    if (lapack.find("openblas") == std::string::npos) {
        std::fprintf(stderr, "LAPACK is not that of OpenBLAS but %s\n", lapack.c_str());
        return EXIT_FAILURE;
    }
    benchmark::AddCustomContext("compiler", compiler);
    benchmark::AddCustomContext("openblas", openblas_get_config());
    benchmark::AddCustomContext("openblas_core", openblas_get_corename());
    benchmark::AddCustomContext("lapack_from", lapack);
    benchmark::AddCustomContext("fftw", fftwf_version);
    benchmark::RunSpecifiedBenchmarks();
}
