// SPDX-License-Identifier: MIT
//
// Maps against their plain forms, and the Fourier transform against FFTW.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include <fftw3.h>

#include "bench_crystal.h"
#include "bench_util.h"
#include "jobs/e_density.h"
#include "numeric/lb_fft.h"
#include "numeric/vecmat.h"
#include "plain_sums.h"
#include "solver/ovfunc_potential.h"

using namespace orvel;
using namespace orvel_bench;

// ---- projected maps -------------------------------------------------------------------------

// Text of a job that maps the potential of gallium arsenide along [1 1 0] by its n innermost beams.
static std::string map_job(int points, int n) {
    csd crystal = read_crystal(crystal_block(gaas_file));
    hkl* beams = innermost_beams(n, 4, 0, {1, 1, 0}, {0, 0, 2}, crystal, 100);
    const std::string side = std::to_string(points);
    std::string text = crystal_block(gaas_file) +
                       "E_DENSITY_CALCULATION_CONDITION{\n"
                       "INCIDENT_BEAM{\n1 1 0\n1 1 0\n0 0 2\n0\n0\n100\n}INCIDENT_BEAM\nBEAM_SEARCH{\n0\n" +
                       std::to_string(n) + " 0\n";
    for (int i = 0; i < n; ++i)
        text += index_line(beams[i]);
    std::free(beams);
    free_csd(crystal);
    return text + "}BEAM_SEARCH\nCALC_RXY_RANGE{\n" + side + " " + side +
           "\n-0.75 1.25\n-0.70711 0.70711\n}CALC_RXY_RANGE\n"
           "AREA_PROJ_CELL{\n45.197\n}AREA_PROJ_CELL\n}E_DENSITY_CALCULATION_CONDITION\n";
}

static double run_map_job(std::string job, const std::string& stem) {
    std::FILE* file = open_text(job);
    const double begin = now();
    ov_potential_reim_proj(file, stdout, stem.c_str());
    return now() - begin;
}

// Seconds of a plain job: coefficients and sums, and what every job spends on reading and writing.
struct job_seconds {
    double sums, files;
};

static job_seconds run_plain_map_job(std::string job, const std::string& stem) {
    std::FILE* file = open_text(job);
    const double begin = now();
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem.c_str());
    input_density_proj_data(cond, crystal, file);
    const double begin_sums = now();
    const std::vector<complex> map = plain_map(cond, plain_list(cond, crystal).data());
    const double end_sums = now();
    std::FILE* table = std::fopen((stem + "_pp.txt").c_str(), "w");
    print_plain_map(cond, map, table);
    std::fclose(table);
    const double end = now();
    free_sd(cond);
    free_csd(crystal);
    return {end_sums - begin_sums, begin_sums - begin + end - end_sums};
}

// All numbers of a table.
static std::vector<double> numbers_of(const std::string& name) {
    std::ifstream table(name);
    std::vector<double> numbers;
    for (std::string line; std::getline(table, line);) {
        std::istringstream row(line[0] == '#' ? "" : line);
        for (double x; row >> x;)
            numbers.push_back(x);
    }
    return numbers;
}

// A whole job against one that reads and writes the same and sums plainly; or the sums alone, which
// is what is left of both without the time of reading and writing.
static void projected_map(benchmark::State& state, bool with_files) {
    const int points = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
    const std::string job = map_job(points, n);
    const std::string folder = new_folder(), own_stem = folder + "/own", plain_stem = folder + "/plain";
    const std::string before = enter(folder);
    for (auto _ : state) {
        comparison rounds;
        std::vector<double> files;
        const int console = silence();
        while (wants_round(rounds)) {
            rounds.own.push_back(run_map_job(job, own_stem));
            const job_seconds plain = run_plain_map_job(job, plain_stem);
            rounds.other.push_back(plain.sums + plain.files);
            files.push_back(plain.files);
        }
        end_silence(console);
        if (!with_files)
            rounds = {{lower_quartile(rounds.own) - lower_quartile(files)},
                      {lower_quartile(rounds.other) - lower_quartile(files)}};
        report(state, rounds, "plain sums");
    }
    enter(before);
    const std::vector<double> own = numbers_of(own_stem + "_pp.txt"), plain = numbers_of(plain_stem + "_pp.txt");
    double difference = own.size() == plain.size() ? 0 : 1;
    for (std::size_t i = 0; i < own.size() && difference < 1; ++i)
        difference = larger(difference, std::fabs(own[i] - plain[i]));
    must_agree(state, difference, 1e-4); // the last of six digits
    std::filesystem::remove_all(folder);
}
BENCHMARK_CAPTURE(projected_map, job, true)->ArgNames({"points", "beams"})->Args({200, 300})->Apply(once);
BENCHMARK_CAPTURE(projected_map, sums, false)->ArgNames({"points", "beams"})->Args({200, 300})->Apply(once);

// ---- maps of the cell -----------------------------------------------------------------------

// Every step-th reflection that a grid of n^3 points holds.
static std::vector<hkl> grid_reflections(int n, int step) {
    std::vector<hkl> list;
    const int side = n - 1, max = n / 2 - 1;
    for (int p = 0; p < side * side * side; p += step)
        list.push_back({p / side / side - max, p / side % side - max, p % side - max});
    return list;
}

// Coefficients of density and potential, and both transforms, of a cell of silicon. The plain sums
// are those of every 32nd reflection, times 32; both sides transform by the same function.
static void cell_map(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0)), part = 32;
    const double kv = 100;
    csd crystal = read_crystal(crystal_block(silicon_file));
    const std::vector<hkl> all = grid_reflections(n, 1), some = grid_reflections(n, part);
    complex_vector vg(all.size()), xg(all.size()), plain_vg(some.size()), plain_xg(some.size());
    float*** re = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    float*** im = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            const int console = silence();
            const double begin = now();
            vgv_fxgv_csd(static_cast<int>(all.size()), 0, all.data(), crystal, kv, lattice_of(crystal),
                         vg.data(), xg.data());
            end_silence(console);
            const double begin_transform = now();
            fft3d_nxnynz(1, n, n, n, re, im);
            fft3d_nxnynz(1, n, n, n, re, im);
            const double end = now();
            plain_coefficients(static_cast<int>(some.size()), some.data(), crystal, kv,
                               plain_vg.data(), plain_xg.data());
            rounds.own.push_back(end - begin);
            rounds.other.push_back(part * (now() - end) + end - begin_transform);
        }
        report(state, rounds, "plain sums and the same transform");
    }
    double difference = 0;
    for (std::size_t i = 0; i < some.size(); ++i) {
        difference = larger(difference, c_abs(c_sub(vg[i * part], plain_vg[i])));
        difference = larger(difference, c_abs(c_sub(xg[i * part], plain_xg[i])));
    }
    must_agree(state, difference, 1e-9);
    free_tensor(re);
    free_tensor(im);
    free_csd(crystal);
}
ORVEL_BENCHMARK(cell_map)->ArgName("points")->Arg(128);

// ---- Fourier transform ----------------------------------------------------------------------

// One transform of n^3 complex points in single precision, in place, backward; FFTW has measured
// its plan.
static void transform(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const std::size_t size = to_size(n * n * n);
    float*** re = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    float*** im = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    fftwf_complex* grid = fftwf_alloc_complex(size);
    const fftwf_plan plan = fftwf_plan_dft_3d(n, n, n, grid, grid, FFTW_BACKWARD, FFTW_MEASURE);
    std::mt19937 random(1);
    std::uniform_real_distribution<float> value(-1, 1);
    std::vector<float> x(size), y(size);
    for (std::size_t i = 0; i < size; ++i) {
        x[i] = value(random);
        y[i] = value(random);
    }
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            for (std::size_t i = 0; i < size; ++i) {
                re[0][0][i] = grid[i][0] = x[i];
                im[0][0][i] = grid[i][1] = y[i];
            }
            double begin = now();
            fft3d_nxnynz(1, n, n, n, re, im);
            rounds.own.push_back(now() - begin);
            begin = now();
            fftwf_execute(plan);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "fftwf, in place");
    }
    double difference = 0;
    for (std::size_t i = 0; i < size; ++i) {
        difference = larger(difference, std::fabs(re[0][0][i] - grid[i][0]));
        difference = larger(difference, std::fabs(im[0][0][i] - grid[i][1]));
    }
    must_agree(state, difference, 1e-5 * std::sqrt(static_cast<double>(size)));
    fftwf_destroy_plan(plan);
    fftwf_free(grid);
    free_tensor(re);
    free_tensor(im);
}
ORVEL_BENCHMARK(transform)->Name("fft3d_nxnynz")->ArgName("n")->Arg(32)->Arg(64)->Arg(128);
