// SPDX-License-Identifier: MIT
#include "bench_util.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace orvel_bench {

double now() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    const double nanosecond = 1e-9;
    return static_cast<double>(time.tv_sec) + nanosecond * static_cast<double>(time.tv_nsec);
}

static double sum(const std::vector<double>& values) { return std::accumulate(values.begin(), values.end(), 0.0); }

bool wants_round(const comparison& rounds) {
    const std::size_t enough_rounds = 5;
    const double enough_seconds = 0.3, too_long = 2;
    const double seconds = sum(rounds.own) + sum(rounds.other);
    if (rounds.own.empty())
        return true;
    return seconds < too_long && (rounds.own.size() < enough_rounds || seconds < enough_seconds);
}

double lower_quartile(std::vector<double> rounds) {
    const auto quarter = rounds.begin() + static_cast<std::ptrdiff_t>(rounds.size() / 4);
    std::nth_element(rounds.begin(), quarter, rounds.end());
    return *quarter;
}

void report(benchmark::State& state, const comparison& rounds, const std::string& label) {
    const double ms = 1e3;
    const double own = lower_quartile(rounds.own);
    state.SetIterationTime(own);
    state.SetLabel(label);
    if (rounds.other.empty())
        return;
    const double other = lower_quartile(rounds.other);
    state.counters["other_ms"] = other * ms;
    state.counters["times_faster"] = other / own;
}

void must_agree(benchmark::State& state, double difference, double limit) {
    std::ostringstream text;
    text << "the two sides differ by " << difference << ", more than " << limit;
    if (!(difference <= limit))
        state.SkipWithError(text.str().c_str());
}

double larger(double a, double b) { return std::isnan(a) || a > b ? a : b; }

double largest_difference(std::size_t n, const orvel::complex* a, const orvel::complex* b) {
    double difference = 0;
    for (std::size_t i = 0; i < n; ++i)
        difference = larger(difference, orvel::c_abs(orvel::c_sub(a[i], b[i])));
    return difference;
}

double largest(std::size_t n, const orvel::complex* a) {
    double modulus = 0;
    for (std::size_t i = 0; i < n; ++i)
        modulus = larger(modulus, orvel::c_abs(a[i]));
    return modulus;
}

std::string new_folder() {
    std::string folder = fs::temp_directory_path() / "orvel_bench_XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
        std::perror(folder.c_str());
    for (const char* table : {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
        fs::create_symlink(fs::path(ORVEL_SOURCE_DIR "/data") / table, fs::path(folder) / table);
    return folder;
}

std::string enter(const std::string& folder) {
    std::string before = fs::current_path();
    fs::current_path(folder);
    return before;
}

std::string text_of(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(name).rdbuf();
    return text.str();
}

int silence() {
    std::fflush(stdout);
    const int console = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    return console;
}

void end_silence(int console) {
    std::fflush(stdout);
    dup2(console, STDOUT_FILENO);
    close(console);
}

} // namespace orvel_bench
