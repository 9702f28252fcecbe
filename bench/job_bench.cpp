// SPDX-License-Identifier: MIT
//
// Whole jobs: the program as a child process, from its start to its last file, in processor time
// and peak memory.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "bench_crystal.h"
#include "bench_util.h"
#include "numeric/vecmat.h"

using namespace orvel;
using namespace orvel_bench;
namespace fs = std::filesystem;

// What a run of the program took; the peak is that of its resident memory.
struct usage {
    double seconds, peak_MiB;
};

static double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

// Runs the program in a folder. A process inherits the peak of the one that starts it, so that a
// small shell starts the program, leaves it in the background and ends; as its next parent this
// process then gets its account.
static usage run_program(const std::string& folder, const std::string& parameter_file, benchmark::State& state) {
    const std::string command = "cd " + folder + " && exec " ORVEL_PROGRAM " " + parameter_file + " > console.txt &";
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int status = 0;
    rusage used = {};
    if (std::system(command.c_str()) != 0 || wait4(-1, &status, 0, &used) < 0 || status != 0)
        state.SkipWithError(("failed: " + parameter_file).c_str());
    return {seconds_of(used.ru_utime) + seconds_of(used.ru_stime), static_cast<double>(used.ru_maxrss) / 1024};
}

static std::string job_folder(const std::string& text) {
    std::string folder = new_folder();
    std::ofstream(folder + "/job.dat") << text;
    return folder;
}

static void report_job(benchmark::State& state, const comparison& rounds, double peak_MiB, const std::string& label) {
    report(state, rounds, label);
    state.counters["peak_MiB"] = peak_MiB;
}

// ---- examples -------------------------------------------------------------------------------

static void example(benchmark::State& state, const char* name) {
    const std::string folder = job_folder(text_of(ORVEL_SOURCE_DIR "/examples/" + std::string(name)));
    for (auto _ : state) {
        comparison rounds;
        usage run = {};
        while (wants_round(rounds)) {
            run = run_program(folder, "job.dat", state);
            rounds.own.push_back(run.seconds);
        }
        report_job(state, rounds, run.peak_MiB, name);
    }
    fs::remove_all(folder);
}
BENCHMARK_CAPTURE(example, cbed, "silicon_cbed/silicon.dat")->Apply(once);
BENCHMARK_CAPTURE(example, coherent, "silicon_coherent/probe.dat")->Apply(once);
BENCHMARK_CAPTURE(example, fringes, "silicon_fringes/fringes.dat")->Apply(once);
BENCHMARK_CAPTURE(example, dispersion, "silicon_dispersion/row.dat")->Apply(once);
BENCHMARK_CAPTURE(example, bloch, "gaas_bloch/gaas.dat")->Apply(once);
BENCHMARK_CAPTURE(example, projected_maps, "gaas_maps/density.dat")->Apply(once);
BENCHMARK_CAPTURE(example, cell_maps, "silicon_cell/density.dat")->Apply(once);

// ---- CBED patterns --------------------------------------------------------------------------

// A CBED job of gallium arsenide along [1 1 0] with a list of beams, on a square of side x side
// tilts, around the same tilt as the stages.
static std::string cbed_job(int side, int num_exact, int num_bethe, int num_g, int num_thickness) {
    const hkl* beams = gaas_zone().cond.reflex_sel;
    std::string list, out, thickness;
    for (int i = 0; i < num_exact + num_bethe; ++i)
        list += index_line(beams[i]);
    for (int r = 0; r < num_g; ++r)
        out += index_line(beams[r]);
    for (int t = 1; t <= num_thickness; ++t)
        thickness += std::to_string(100 * t) + "\n";
    return "SIM_MODE\n" + std::string(default_settings) + crystal_block(gaas_file) +
           "SIM_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n1 1 0\n1 1 0\n0 0 2\n0.31\n-0.17\n100\n}INCIDENT_BEAM\n"
           "CALC_KXY_RANGE{\n3\n" +
           std::to_string(side) + "\n0.3\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n0\n" +
           std::to_string(num_exact) + " " + std::to_string(num_bethe) + "\n" + list + "}BEAM_SEARCH\n" +
           "OUTPUT_REFLEX{\n" + std::to_string(num_g) + "\n" + out + "}OUTPUT_REFLEX\n" +
           "OUTPUT_THICKNESS{\n" + std::to_string(num_thickness) + "\n" + thickness + "}OUTPUT_THICKNESS\n" +
           "}SIM_CALCULATION_CONDITION\n";
}

// A whole job against nothing but the tilts of it, built from OpenBLAS calls.
static void cbed(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0)), num_exact = 80, num_bethe = 150, num_thickness = 20;
    const tilt_problem p = problem_of(num_exact, num_bethe);
    const std::string folder = job_folder(cbed_job(side, num_exact, num_bethe, p.num_g, num_thickness));
    double thickness[num_thickness];
    for (int t = 0; t < num_thickness; ++t)
        thickness[t] = 100.0 * (t + 1);
    std::vector<double> intensity(to_size(p.num_g * num_thickness));
    for (auto _ : state) {
        comparison rounds;
        usage run = {};
        while (wants_round(rounds)) {
            run = run_program(folder, "job.dat", state);
            rounds.own.push_back(run.seconds);
            const double begin = now();
            for (int k = 0; k < side * side; ++k)
                openblas_tilt(p, gaas_zone().K_t, num_thickness, thickness, 0, nullptr, intensity.data());
            rounds.other.push_back(now() - begin);
        }
        report_job(state, rounds, run.peak_MiB, "its tilts from OpenBLAS calls");
    }
    fs::remove_all(folder);
}
ORVEL_BENCHMARK(cbed)->Name("job/cbed")->ArgName("side")->Arg(7);

// Few beams and many tilts: what the tilt loop leaves behind would show in the peak, which beside
// results_MiB (intensities, tilts and their places) must not depend on their number.
static void cbed_memory(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0)), num_exact = 20, num_bethe = 30, num_g = 5, num_thickness = 2;
    const std::string folder = job_folder(cbed_job(side, num_exact, num_bethe, num_g, num_thickness));
    const std::size_t tilt_bytes = num_g * num_thickness * sizeof(double) + sizeof(r_hkl) + sizeof(pixel);
    for (auto _ : state) {
        comparison rounds;
        usage run = {};
        while (wants_round(rounds)) {
            run = run_program(folder, "job.dat", state);
            rounds.own.push_back(run.seconds);
        }
        report_job(state, rounds, run.peak_MiB, std::to_string(side * side) + " tilts");
        state.counters["results_MiB"] = static_cast<double>(tilt_bytes) * side * side / (1024 * 1024);
    }
    fs::remove_all(folder);
}
ORVEL_BENCHMARK(cbed_memory)->Name("job/cbed_memory")->ArgName("side")->Arg(10)->Arg(45);
