// SPDX-License-Identifier: MIT
//
// What all benchmarks share: a comparison taken in turn (own code, then the library or plain form,
// then own code again ...), its report, and a silent console while the program's functions run.
// Times are those that the processor spends on this thread, and the lower quartile of the rounds of
// each side counts: what else the machine does then hardly matters.
#pragma once

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "numeric/complex.h"

namespace orvel_bench {

// Processor time of this thread so far, in seconds.
double now();

// Seconds of each round of a comparison.
struct comparison {
    std::vector<double> own;
    std::vector<double> other;
};

// True until the rounds suffice: five at least and three tenths of a second of both sides, or what
// two seconds hold, at least one.
bool wants_round(const comparison& rounds);

double lower_quartile(std::vector<double> rounds);

// The benchmark's time is the lower quartile of the own rounds. Counters: other_ms, that of the other
// side; times_faster, other over own. With nothing on the other side there is only the time.
void report(benchmark::State& state, const comparison& rounds, const std::string& label);

// Ends the benchmark as failed unless both sides agree: a ratio means nothing between different
// results. difference is in the same unit as limit.
void must_agree(benchmark::State& state, double difference, double limit);

// The larger number, or NaN if there is one: results that are none must not pass.
double larger(double a, double b);

// Largest modulus of a difference, and of an element.
double largest_difference(std::size_t n, const orvel::complex* a, const orvel::complex* b);
double largest(std::size_t n, const orvel::complex* a);

// A new folder for a job, with the three tables that a run wants; whoever asks for it removes it.
std::string new_folder();

// Changes the working directory; comes back with the one before.
std::string enter(const std::string& folder);

// Contents of a file.
std::string text_of(const std::string& name);

// Sends stdout to nowhere; what comes back restores it.
int silence();
void end_silence(int console);

// A comparison measures its own rounds, so that Google Benchmark calls it once.
inline void once(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

} // namespace orvel_bench

#define ORVEL_BENCHMARK(function) BENCHMARK(function)->Apply(orvel_bench::once)
