// SPDX-License-Identifier: MIT
//
// Times of what a run spends its time on. The eigensolvers report their time as a multiple of that
// of LAPACK on the same matrix, taken in turn in the same run, so that machines can be compared.
#include <chrono>
#include <filesystem>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "control/orvel.h"
#include "jobs/ov_sim.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_fft.h"
#include "numeric/vecmat.h"

using namespace orvel;

// LAPACK: eigenvalues w and vectors of the columns of a, which is destroyed.
extern "C" void zgeev_(const char* jobvl, const char* jobvr, const int* n, complex* a, const int* lda, complex* w,
                       complex* vl, const int* ldvl, complex* vr, const int* ldvr,
                       complex* work, const int* lwork, double* rwork, int* info);

static double seconds_of(const std::chrono::steady_clock::time_point& begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// A matrix like that of a tilt: real excitation errors on the diagonal, Hermitian potentials, and
// absorption of a tenth of them.
static void fill_structure_matrix(int n, complex** a) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> value(-0.01, 0.01);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) {
            const complex u = {value(random), i == j ? 0.0 : value(random)};
            const double absorption = 0.1 * value(random);
            a[i][j] = {u.re, u.im + absorption};
            a[j][i] = {u.re, absorption - u.im};
        }
    for (int i = 0; i < n; ++i)
        a[i][i].re -= 0.001 * i;
}

static double seconds_of_zgeev(int n, const complex* const* a) {
    const int size = 66 * n; // of a blocked work space
    std::vector<complex> matrix(a[0], a[0] + n * n), w(to_size(n)), vr(to_size(n * n)), work(to_size(size));
    std::vector<double> rwork(to_size(2 * n));
    int info;
    const auto begin = std::chrono::steady_clock::now();
    zgeev_("N", "V", &n, matrix.data(), &n, w.data(), nullptr, &n, vr.data(), &n,
           work.data(), &size, rwork.data(), &info);
    return seconds_of(begin);
}

// Arguments: order of the matrix, and epsilon.eigmat_func.
static void eigensystem(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    epsilon.eigmat_func = static_cast<int>(state.range(1));
    complex** a = new_matrix<complex>(to_size(n), to_size(n));
    complex** vectors = new_matrix<complex>(to_size(n), to_size(n));
    complex* values = new_vector<complex>(to_size(n));
    fill_structure_matrix(n, a);
    double own = 0, lapack = 0;
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        eigmat(n, a, values, vectors);
        const double seconds = seconds_of(begin);
        state.SetIterationTime(seconds);
        own += seconds;
        lapack += seconds_of_zgeev(n, a);
    }
    state.counters["times_zgeev"] = own / lapack;
    state.SetLabel(epsilon.eigmat_func == 0 ? "EISPACK chain" : "eigen_c_mat");
    std::free(values);
    free_matrix(vectors);
    free_matrix(a);
}
BENCHMARK(eigensystem)->ArgsProduct({{50, 100, 200}, {0, 1}})->UseManualTime()->Unit(benchmark::kMillisecond);

// One transform in place; values would overflow without the scaled direction.
static void fft3d(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    float*** re = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    float*** im = new_tensor<float>(to_size(n), to_size(n), to_size(n));
    re[0][0][1] = 1.0f;
    int direction = 1;
    for (auto _ : state) {
        fft3d_nxnynz(direction, n, n, n, re, im);
        direction = 1 - direction;
    }
    state.SetLabel("3D transform of n^3 points");
    free_tensor(re);
    free_tensor(im);
}
BENCHMARK(fft3d)->Arg(64)->Unit(benchmark::kMillisecond);

// ---- silicon ---------------------------------------------------------------------------------

static const char* const silicon =
    "EPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n"
    "CRYSTAL_STRUCTURE_DATA{\nLATTICE{\n227\n5.431\n5.431\n5.431\n90\n90\n90\n}LATTICE\n"
    "ATOM{\n1\nSITE{\nSi\n0.125\n0.125\n0.125\nISO\n0.46\n1\n0\n}SITE\n}ATOM\n"
    "LOW_ORDER_FG{\n0\n}LOW_ORDER_FG\n}CRYSTAL_STRUCTURE_DATA\n"
    "1\n500 4 0 1\n60 600 40000\n"; // a search by w_g

static csd crystal;
static sd cond; // of [111] at 100 kV: all that a tilt needs
static complex** vg;

// Reads the crystal, which wants its tables in the current folder, and searches the beams.
static void read_silicon() {
    std::FILE* file = std::tmpfile();
    std::fputs(silicon, file);
    std::rewind(file);
    read_eps_ctrl_params(file);
    input_csd_cstr(crystal, file, "unused");
    cond.zone_uvw = cond.normal_uvw = {1, 1, 1};
    cond.zolzbase1 = {2, -2, 0};
    cond.kv = 100;
    cond.beam_search.disksize = 0.5;
    fget_sd_beams(cond, crystal, file);
    std::fclose(file);
    vg = new_potential_matrix("", cond, crystal, lattice_of(crystal), stdout);
}

// Total structure factors of all |h|, |k|, |l| up to 15. Argument 1: with tabled phases, as the
// jobs with long lists sum them; 0: with sines and cosines.
static void structure_factors(benchmark::State& state) {
    const int max = 15, side = 2 * max + 1;
    const lattice lat = lattice_of(crystal);
    const bool tabled = state.range(0) == 1;
    for (auto _ : state) {
        phase_table phases = new_phase_table(crystal, {max, max, max});
        for (int p = 0; p < side * side * side; ++p) {
            const hkl g = {p / side / side - max, p / side % side - max, p % side - max};
            int flag;
            benchmark::DoNotOptimize(crystal_fg(fg_total, g, crystal, cond.kv, lat, tabled ? &phases : nullptr, flag));
        }
        free_phase_table(phases);
    }
    state.SetItemsProcessed(state.iterations() * side * side * side);
    state.SetLabel(tabled ? "tabled phases" : "sines and cosines");
}
BENCHMARK(structure_factors)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// All of one tilt: beam selection, Bethe reduction, eigensystem, boundary condition, intensities.
static void one_tilt(benchmark::State& state) {
    const r_hkl K_t = {0.1, -0.1, 0.02};
    const int N = cond.num_exact_beam + cond.num_bethe_beam, out_beam = 1;
    const double thickness = 500;
    const tilt_problem p = tilt_problem_of(cond, crystal, vg, lattice_of(crystal));
    double** intensity = new_matrix<double>(1, 1);
    work_cal_int work;
    alloc_work_cal_int(N, 1, 0, work);
    epsilon.eigmat_func = 0;
    for (auto _ : state)
        calc_intensity_with_perturb_ug(K_t, p.abs_K, cond.beam_search, p.num_exact_beam, p.num_bethe_beam, p.reflex_sel,
                                       vg, 0, nullptr, 1, &out_beam, 1, &thickness, p.kv, p.zone_uvw, p.normal_uvw,
                                       p.lat, p.zone_len, p.normal_len, p.cos_zn, intensity, nullptr, work);
    state.SetLabel(std::to_string(p.num_exact_beam) + " exact and " + std::to_string(p.num_bethe_beam) + " Bethe beams");
    free_work_cal_int(work);
    free_matrix(intensity);
}
BENCHMARK(one_tilt)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(ORVEL_DATA_DIR);
    read_silicon();
    std::filesystem::current_path(before);
    benchmark::RunSpecifiedBenchmarks();
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}
