// SPDX-License-Identifier: MIT
//
// The Bethe reduction and one tilt from wave vector to intensities, with and without perturbations,
// against the same built from OpenBLAS calls.
#include <algorithm>
#include <cmath>

#include "bench_crystal.h"
#include "bench_util.h"
#include "numeric/vecmat.h"

using namespace orvel;
using namespace orvel_bench;

// Arguments: exact and Bethe beams.
static void bethe_form(benchmark::State& state) {
    const int nesel = static_cast<int>(state.range(0)), nbsel = static_cast<int>(state.range(1)), n = nesel + nbsel;
    complex** a = new_structure_matrix(n);
    complex** reduced = new_matrix<complex>(to_size(nesel), to_size(nesel));
    const complex_vector columns = columns_of(n, a);
    complex_vector copy;
    openblas_work work = new_openblas_work(n);
    scratch room = {};
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            double begin = now();
            g_bethe(nesel, nbsel, a, reduced, room);
            rounds.own.push_back(now() - begin);
            copy = columns;
            begin = now();
            bethe(nesel, nbsel, copy.data(), work);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "zgetrf + zgetrs + zgemm");
    }
    double difference = 0;
    for (int i = 0; i < nesel; ++i)
        for (int j = 0; j < nesel; ++j)
            difference = larger(difference, c_abs(c_sub(reduced[i][j], copy[to_size(i + j * n)])));
    must_agree(state, difference, 1e-9 * largest(to_size(nesel * nesel), reduced[0]));
    free_scratch(room);
    free_matrix(reduced);
    free_matrix(a);
}
ORVEL_BENCHMARK(bethe_form)->Name("g_bethe")->ArgNames({"exact", "bethe"})->Args({80, 150})->Args({40, 60});

// Tables of a crystal whose absorption differs by some per cent.
static complex*** new_perturbed_tables(int num_perturb, int n, const complex* const* vg) {
    const double step = 0.01;
    complex*** tables = new_tensor<complex>(to_size(num_perturb), to_size(n), to_size(n));
    for (int k = 0; k < num_perturb; ++k)
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                tables[k][i][j] = {vg[i][j].re, vg[i][j].im * (1 + step * (k + 1))};
    return tables;
}

// Intensities [r][t] and behind them [k][r][t], in one row each as the OpenBLAS form has them.
static std::vector<double> in_one_row(int num_g, int num_thickness, const double* const* intensity, int num_perturb,
                                      const double* const* const* p_intensity) {
    std::vector<double> row;
    for (int k = -1; k < num_perturb; ++k)
        for (int t = 0; t < num_thickness; ++t)
            for (int r = 0; r < num_g; ++r)
                row.push_back(k < 0 ? intensity[r][t] : p_intensity[k][r][t]);
    return row;
}

// Arguments: exact beams, Bethe beams, perturbations. 20 beams out at 20 thicknesses.
static void tilt(benchmark::State& state) {
    const int num_exact = static_cast<int>(state.range(0)), num_bethe = static_cast<int>(state.range(1)),
              num_perturb = static_cast<int>(state.range(2)), num_thickness = 20, n = num_exact + num_bethe;
    tilt_problem p = problem_of(num_exact, num_bethe);
    const r_hkl K_t = gaas_zone().K_t;
    double thickness[num_thickness];
    for (int t = 0; t < num_thickness; ++t)
        thickness[t] = 100.0 * (t + 1);
    p.num_thickness = num_thickness;
    p.thickness = thickness;
    p.num_perturb = num_perturb;
    p.pvg = new_perturbed_tables(num_perturb, n, p.vg);
    double** intensity = new_matrix<double>(to_size(p.num_g), num_thickness);
    double*** p_intensity = new_tensor<double>(to_size(num_perturb), to_size(p.num_g), num_thickness);
    std::vector<double> other(to_size((1 + num_perturb) * p.num_g * num_thickness));
    work_cal_int work;
    alloc_work_cal_int(n, p.num_g, num_perturb, work);
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            double begin = now();
            calc_intensity_with_perturb_ug(p, K_t, intensity, p_intensity, work);
            rounds.own.push_back(now() - begin);
            begin = now();
            openblas_tilt(p, K_t, num_thickness, thickness, num_perturb, p.pvg, other.data());
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "the same from OpenBLAS calls");
    }
    const std::vector<double> own = in_one_row(p.num_g, num_thickness, intensity, num_perturb, p_intensity);
    double difference = 0;
    for (std::size_t i = 0; i < own.size(); ++i)
        difference = larger(difference, std::fabs(own[i] - other[i]));
    must_agree(state, difference, 1e-6); // of the incident beam
    free_work_cal_int(work);
    free_tensor(p_intensity);
    free_matrix(intensity);
    free_tensor(p.pvg);
}
ORVEL_BENCHMARK(tilt)
    ->ArgNames({"exact", "bethe", "perturb"})
    ->Args({80, 150, 0})
    ->Args({80, 0, 0})
    ->Args({30, 40, 0})
    ->Args({80, 150, 10});
