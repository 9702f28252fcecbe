// SPDX-License-Identifier: MIT
//
// Command line, and the run from the parameter file to the last report.
#include "fit.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "numeric/vecmat.h"

using namespace orvel;

static const char* const usage =
    "Usage: orvel_fit PARAMFILE [--cycles N] [--dump-normal]\n"
    "       orvel_fit PARAMFILE --simulate [--noise F] [--seed N]\n"
    "       orvel_fit --help\n";

static const char* const help =
    "\n"
    "Refines the crystal and the experiment of a FIT_MODE parameter file against its data sets.\n"
    "\n"
    "  --cycles N     make at most N cycles (N >= 1); with 1 nothing moves. The last one is kept back\n"
    "                 to repeat the best vector where the cycle before it was no success\n"
    "  --dump-normal  print vector, chi-square and normal equations of every cycle\n"
    "  --simulate     write the intensity files that PARAMFILE names from its own model, and end\n"
    "  --noise F      add F times sigma times a normal random number (default 1)\n"
    "  --seed N       seed of the random numbers (default 1)\n"
    "  --help         show this text\n";

// The command line.
struct fit_options {
    const char* file; // null: none
    int cycles;       // 0: no limit
    bool dump_normal;
    bool simulate;
    double noise;
    std::uint64_t seed;
    bool has_noise, has_seed;
};

[[noreturn]] static void bad_usage(const char* what, const char* which) {
    ov_fprintf(stdout, "$$ %s %s. Abort.\n", what, which);
    ov_abort(stdout, "%s", usage);
}

// The value of option i; i then stands on it.
static const char* value_of(int& i, int argc, char** argv) {
    if (i + 1 >= argc)
        bad_usage("Missing value of", argv[i]);
    return argv[++i];
}

static std::uint64_t count_of(const char* text, std::uint64_t least, std::uint64_t most) {
    char* end;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 10);
    if (text[0] < '0' || text[0] > '9' || *end != '\0' || errno != 0 || value < least || value > most)
        bad_usage("Invalid number", text);
    return value;
}

static double factor_of(const char* text) {
    const double largest = 1e6; // no data are worse
    char* end;
    const double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(value >= 0 && value <= largest))
        bad_usage("Invalid number", text);
    return value;
}

static fit_options read_options(int argc, char** argv) {
    fit_options o = {nullptr, 0, false, false, 1.0, 1, false, false};
    for (int i = 1; i < argc; ++i) {
        const char* word = argv[i];
        if (std::strcmp(word, "--help") == 0) {
            ov_fprintf(stdout, "%s%s", usage, help);
            ov_exit();
        } else if (std::strcmp(word, "--cycles") == 0) {
            o.cycles = static_cast<int>(count_of(value_of(i, argc, argv), 1, INT_MAX));
        } else if (std::strcmp(word, "--dump-normal") == 0) {
            o.dump_normal = true;
        } else if (std::strcmp(word, "--simulate") == 0) {
            o.simulate = true;
        } else if (std::strcmp(word, "--noise") == 0) {
            o.noise = factor_of(value_of(i, argc, argv));
            o.has_noise = true;
        } else if (std::strcmp(word, "--seed") == 0) {
            o.seed = count_of(value_of(i, argc, argv), 0, UINT64_MAX);
            o.has_seed = true;
        } else if (word[0] == '-') {
            bad_usage("Unknown option", word);
        } else if (o.file != nullptr) {
            bad_usage("More than one parameter file:", word);
        } else {
            o.file = word;
        }
    }
    if (o.file == nullptr)
        bad_usage("No parameter file", "was given");
    if (o.simulate && (o.cycles != 0 || o.dump_normal))
        bad_usage("There are no cycles with", "--simulate");
    if (!o.simulate && (o.has_noise || o.has_seed))
        bad_usage("--noise and --seed belong to", "--simulate");
    return o;
}

static void refine(const fit_options& options, const char* stem, std::FILE* log) {
    fit_problem problem = {};
    read_fit_problem(options.file, stem, true, problem);
    set_csd_fed_step(problem.crystal, problem.num_fed, problem.sets);
    fit_run run = {&problem, {}, options.cycles, options.dump_normal, 0};
    run.context = {&problem.crystal, problem.sets, problem.intensities, problem.num_fed,
                   problem.num_csd_fitpar, stem, log};
    fit_cycle best;
    const fit_end end = iterate(run, best);
    report_fit(run, best, end, stem);
    free_fit_problem(problem);
}

static void simulate_data(const fit_options& options, const char* stem, std::FILE* log) {
    fit_problem problem = {};
    read_fit_problem(options.file, stem, false, problem);
    simulate(problem, options.noise, options.seed, log);
    free_fit_problem(problem);
}

// The linear algebra throws where memory runs out, and nothing else here throws.
static void no_memory() { chk_vector(nullptr); }

int main(int argc, char** argv) {
    ov_init();
    std::set_terminate(no_memory);
    const fit_options options = read_options(argc, argv);
    char stem[name_max], log_name[name_max];
    // The stem is no longer than the name.
    if (std::strlen(options.file) >= name_max)
        ov_abort(stdout, "$$ Parameter file name is too long. Abort.\n");
    remove_extention(options.file, stem);
    if (std::snprintf(log_name, name_max, "%s_log.txt", stem) >= name_max)
        ov_abort(stdout, "$$ Parameter file name is too long. Abort.\n");

    ov_fprintf(stdout, "\n#####  ORVEL - refinement of crystals from CBED patterns\n");
    read_ini_file();
    copy_text(dbg.base_name, name_max, stem);
    std::FILE* log = ov_fopen_chk_wmode(log_name);
    ov_keep(log);
    ov_fprintf_stdo(log, "parameter_file: %s\n", options.file);
    if (options.simulate) {
        ov_fprintf_stdo(log, "##### Simulation of measured intensities #####\n");
        simulate_data(options, stem, log);
    } else {
        ov_fprintf_stdo(log, "##### Refinement #####\n");
        refine(options, stem, log);
    }
    ov_fprintf(log, "\nSee you again!!!\n"); // all files are complete
    ov_fclose(log);
    ov_fprintf(stdout, "See \"%s\".  See you again!!\n\n", log_name);
    ov_exit();
}
