// SPDX-License-Identifier: MIT
//
// Fuzz target of whole runs. An input is the parameter file; a line "@NAME" begins another file, for instance
// orvel.ini or measured.int. The data tables are the real ones where the input has none. Jobs run whole, and
// FIT_MODE reads its data sets, makes a cycle and writes its parameter file.
#include <random>

#include "mutations.h"
#include "control/orvel.h"
#include "fit.h"
#include "harness.h"

using namespace orvel;

static bool is_fit;

static void fit() {
    static fit_problem problem; // its vectors outlive an end in the middle
    problem.parameter.clear();
    read_fit_problem("a.dat", "a", true, problem);
    set_csd_fed_step(problem.crystal, problem.num_fed, problem.sets);
    static std::vector<double> par, alpha, beta;
    const std::size_t n = std::size_t(problem.num_fitpar);
    par.assign(n, 0.0);
    beta.assign(n, 0.0);
    alpha.assign(n * n, 0.0);
    static std::vector<double*> rows;
    rows.clear();
    for (std::size_t i = 0; i < n; ++i)
        rows.push_back(&alpha[i * n]);
    csd_fed_to_fitpar(problem.crystal, problem.num_fed, problem.sets, problem.num_fitpar, par.data());
    fit_context context = {&problem.crystal, problem.sets, problem.intensities, problem.num_fed,
                           problem.num_csd_fitpar, "a", std::fopen("a_log.txt", "w")};
    double chisq;
    dynamical_calculation(par.data(), problem.num_fitpar, rows.data(), beta.data(), chisq, context);
    par_output_short(problem.crystal, problem.num_fed, problem.sets, context.log, "a_shift.txt");
    print_Rw_factors(context.log, problem.num_fed, problem.sets, problem.intensities);
    output_FIT_MODE_file("a_out.dat", problem.crystal, problem.max_iteration, problem.num_fed, problem.sets,
                         problem.intensities);
    free_fit_problem(problem);
}

static void run() {
    read_ini_file();
    if (is_fit)
        fit();
    else
        ov_job("a.dat", "a", std::fopen("a_log.txt", "w"));
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const std::map<std::string, std::string> tables = [] {
        std::map<std::string, std::string> files;
        for (const char* name : {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
            files[name] = orvel_fuzz::file_text(std::string(ORVEL_DATA_DIR "/") + name);
        return files;
    }();
    std::map<std::string, std::string> files = tables;
    std::string name = "a.dat";
    for (std::size_t begin = 0, end; begin < size; begin = end) {
        const void* newline = std::memchr(data + begin, '\n', size - begin);
        end = newline != nullptr ? std::size_t(static_cast<const unsigned char*>(newline) - data) + 1 : size;
        const std::string line(data + begin, data + end);
        if (line[0] == '@')
            files[name = line.substr(1, line.size() - 2)].clear();
        else
            files[name] += line;
    }
    is_fit = files["a.dat"].find("FIT_MODE") != std::string::npos;
    orvel_fuzz::run_caught(std::move(files), run);
    return 0;
}

// Half of the mutations know lines and numbers, the other half are libFuzzer's.
extern "C" std::size_t LLVMFuzzerMutate(unsigned char* data, std::size_t size, std::size_t size_max);
extern "C" std::size_t LLVMFuzzerCustomMutator(unsigned char* data, std::size_t size, std::size_t size_max, unsigned seed) {
    std::minstd_rand random(seed);
    std::vector<std::string> lines;
    std::istringstream text(std::string(data, data + size));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    if (lines.empty() || random() % 2 == 0)
        return LLVMFuzzerMutate(data, size, size_max);
    const std::string result = orvel_test::mutated(lines, random() % lines.size(), int(random() % orvel_test::num_mutations));
    size = std::min(result.size(), size_max);
    std::memcpy(data, result.data(), size);
    return size;
}
