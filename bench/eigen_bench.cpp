// SPDX-License-Identifier: MIT
//
// Eigensystems, inverses and solutions against OpenBLAS, on the matrices of a tilt: the structure
// matrix of the innermost beams, its eigenvectors, and a block of weak beams.
#include <algorithm>
#include <cstdlib>

#include "bench_crystal.h"
#include "bench_util.h"
#include "control/settings.h"
#include "numeric/cmatutil.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"
#include "numeric/vecmat.h"

using namespace orvel;
using namespace orvel_bench;

static scratch room;

static bool right_of(complex a, complex b) { return a.re > b.re; }

// Arguments: epsilon.eigmat_func and the order.
static void eigensystem(benchmark::State& state) {
    const int n = static_cast<int>(state.range(1));
    complex** a = new_structure_matrix(n);
    complex** vec = new_matrix<complex>(to_size(n), to_size(n));
    complex* val = new_vector<complex>(to_size(n));
    const complex_vector columns = columns_of(n, a);
    complex_vector copy;
    openblas_work work = new_openblas_work(n);
    epsilon.eigmat_func = static_cast<int>(state.range(0));
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            double begin = now();
            eigmat(n, a, val, vec, room);
            rounds.own.push_back(now() - begin);
            copy = columns;
            begin = now();
            zgeev(n, copy.data(), n, work);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "zgeev");
    }
    epsilon.eigmat_func = 0;
    std::sort(work.val.begin(), work.val.end(), right_of);
    must_agree(state, largest_difference(to_size(n), val, work.val.data()), 1e-7 * largest(to_size(n), val));
    std::free(val);
    free_matrix(vec);
    free_matrix(a);
}
ORVEL_BENCHMARK(eigensystem)->ArgNames({"eigmat_func", "n"})->ArgsProduct({{0, 1}, {10, 20, 40, 80, 120, 200, 300}});

// The inverse of the block of n weak beams that follow the first 80, as in a Bethe reduction.
static void inverse_of_matrix(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0)), num_exact = 80;
    complex** all = new_structure_matrix(num_exact + n);
    complex** block = new_block(num_exact, n, all);
    complex** inverse = new_matrix<complex>(to_size(n), to_size(n));
    const complex_vector columns = columns_of(n, block);
    complex_vector copy;
    openblas_work work = new_openblas_work(n);
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            c_matcopy2(n, block, inverse);
            double begin = now();
            invmat(n, inverse, room);
            rounds.own.push_back(now() - begin);
            copy = columns;
            begin = now();
            invert(n, copy.data(), work);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "zgetrf + zgetri");
    }
    const complex_vector own = columns_of(n, inverse);
    must_agree(state, largest_difference(own.size(), own.data(), copy.data()), 1e-9 * largest(own.size(), own.data()));
    free_matrix(inverse);
    free_matrix(block);
    free_matrix(all);
}
ORVEL_BENCHMARK(inverse_of_matrix)->Name("invmat")->ArgName("n")->Arg(20)->Arg(40)->Arg(80)->Arg(150)->Arg(200);

// Excitation amplitudes: one solution with the eigenvectors of n beams as matrix.
static void boundary_condition(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    complex** vec = new_eigenvectors(n);
    complex** own = new_matrix<complex>(to_size(n), to_size(n));
    const complex_vector columns = columns_of(n, vec);
    complex_vector copy, bc(to_size(n)), x(to_size(n));
    openblas_work work = new_openblas_work(n);
    for (auto _ : state) {
        comparison rounds;
        while (wants_round(rounds)) {
            c_matcopy2(n, vec, own);
            double begin = now();
            bc_invmat(n, own, bc.data(), room);
            rounds.own.push_back(now() - begin);
            copy = columns;
            std::fill(x.begin(), x.end(), complex{0, 0});
            x[0] = {1, 0};
            begin = now();
            solve(n, 1, copy.data(), n, x.data(), n, work);
            rounds.other.push_back(now() - begin);
        }
        report(state, rounds, "zgetrf + zgetrs");
    }
    must_agree(state, largest_difference(to_size(n), bc.data(), x.data()), 1e-7);
    free_matrix(own);
    free_matrix(vec);
}
ORVEL_BENCHMARK(boundary_condition)->Name("bc_invmat")->ArgName("n")->Arg(20)->Arg(40)->Arg(80)->Arg(120)->Arg(200);
