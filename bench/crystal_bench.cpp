// SPDX-License-Identifier: MIT
//
// The table of potentials of all beam differences against its plain form, for crystals of 192
// operations.
#include <cstdlib>

#include "bench_crystal.h"
#include "bench_util.h"
#include "numeric/vecmat.h"
#include "plain_sums.h"
#include "solver/ovfunc_potential.h"

using namespace orvel;
using namespace orvel_bench;

static void potential_matrix(benchmark::State& state, const char* file) {
    const int n = static_cast<int>(state.range(0));
    const double kv = 100, g_max = 6;
    csd crystal = read_crystal(crystal_block(file));
    const lattice lat = lattice_of(crystal);
    hkl* beams = innermost_beams(n, g_max, 2, {1, 1, 1}, {2, -2, 0}, crystal, kv);
    complex** vg = new_matrix<complex>(to_size(n), to_size(n));
    std::vector<complex> plain;
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            const int console = silence();
            int flag;
            double begin = now();
            potential_matrix_csd(n, 0, beams, crystal, kv, lat, vg, flag);
            rounds.own.push_back(now() - begin);
            end_silence(console);
            begin = now();
            plain = plain_potentials(n, beams, crystal, kv);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "plain sums");
    }
    must_agree(state, largest_difference(plain.size(), vg[0], plain.data()), 1e-11 * c_abs(vg[0][0]));
    free_matrix(vg);
    std::free(beams);
    free_csd(crystal);
}

BENCHMARK_CAPTURE(potential_matrix, silicon, silicon_file)->ArgName("n")->Arg(500)->Apply(once);
BENCHMARK_CAPTURE(potential_matrix, spinel, spinel_file)->ArgName("n")->Arg(500)->Apply(once);
