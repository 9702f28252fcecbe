// SPDX-License-Identifier: MIT
//
// orvel_sweep: the examples with small sizes, and each mutation of each line of their files. With limited memory,
// disk and time every run must end with status 0, or with status 1, a message, and without results that look
// complete; numbers that are none are told. ORVEL_SWEEP_STRIDE=N takes every N-th run, ORVEL_SWEEP_SEEDS=FOLDER
// writes the jobs as inputs of fuzz_run instead.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "mutations.h"
#include "test_util.h"

using namespace orvel_test;
namespace fs = std::filesystem;
using file_set = std::map<std::string, std::string>;

// An example, or it with a part replaced.
struct job {
    std::string example, name, from, to;
};

// Other kinds of input than the examples have.
static const job variants[] = {
    {"silicon_cbed/silicon.dat", "table", "0              scattering", "1              scattering"},
    {"silicon_cbed/silicon.dat", "low_order", "0              number of given structure factors\n",
     "2\n1\n1 1 1\n1.2 ADJ F\n0.1 FIX Fi\n2 2 0\n=F*0.9-a CST G\n0 RST g 0.1\n"},
    {"silicon_fringes/fringes.dat", "site_factors", "0              number of given structure factors\n",
     "1\n3\n1 1 1\n1.2 ADJ F\n=F*0.9 CST G\n"},
    {"silicon_coherent/probe.dat", "aniso", "ISO            isotropic temperature factor\n0.46 ",
     "ANISO\n0.01\n0.01\n0.01\n0.001\n0.001\n0 "},
    {"silicon_fit/silicon.dat", "kinds", "0.0     FIX H0     shifts of the measured disk\n0.0     FIX G0\n",
     "0.01 RST H0 0.1\n=H0*0.5 CST G0\n"},
    {"gaas_maps/density.dat", "layers", "2              search by s_g", "3              search by s_g"},
};

static std::vector<job> jobs() {
    std::vector<job> all(std::begin(variants), std::end(variants));
    for (const auto& entry : fs::recursive_directory_iterator(ORVEL_EXAMPLES_DIR))
        if (entry.path().extension() == ".dat" && entry.path().filename() != "truth.dat")
            all.push_back({fs::relative(entry.path(), ORVEL_EXAMPLES_DIR).string(), "plain", "", ""});
    return all;
}

// Beginnings of lines that give sizes, and small ones.
static std::string with_small_sizes(const std::string& text) {
    static const char* const sizes[][2] = {
        {"31  ", "5  "},
        {"49  ", "5  "},
        {"121  ", "5  "},
        {"301  ", "5  "},
        {"21  ", "4  "}, // points
        {"81 57", "5 4"},
        {"64 64 64", "4 4 4"}, // maps
        {"400  4.0", "300  1.1"},
        {"2000  4.0", "300  1.1"},
        {"200  3.0", "300  1.1"}, // beams
        {"200  1.0", "200  0.6"},
        {"e_density_gmax_val  5.5", "e_density_gmax_val  1.5"},
    };
    std::string small;
    for (std::string line : lines_of(text)) {
        for (const auto& [from, to] : sizes)
            if (begins_with(line, from))
                line.replace(0, std::string(from).size(), to);
        small += line[0] == '#' ? "" : line + "\n";
    }
    return small;
}

// What a job with silicon reads of a table: its head and one entry.
static std::string part(const char* name, const char* first_entry, const char* from, const char* to) {
    const std::string text = read_file(fs::path(ORVEL_DATA_DIR) / name);
    const std::size_t begin = text.find(from) + 1;
    return text.substr(0, text.find(first_entry)) + "\n" + text.substr(begin, text.find(to, begin) - begin) + "\n";
}

// Runs a program in the current folder, in which nothing but these files and what it wrote stays.
static outcome run(const std::vector<std::string>& arguments, const file_set& files) {
    for (const auto& entry : fs::directory_iterator("."))
        if (files.count(entry.path().filename()) == 0)
            fs::remove(entry);
    for (const auto& [name, text] : files)
        if (!fs::exists(name) || read_file(name) != text)
            write_file(name, text);
    return run_child([&] {
        const rlimit disk = {4 << 20, 4 << 20}, seconds = {10, 10};
        setrlimit(RLIMIT_FSIZE, &disk);
        setrlimit(RLIMIT_CPU, &seconds);
        std::signal(SIGXFSZ, SIG_IGN);
#ifndef ORVEL_SANITIZED // whose shadow memory takes all addresses
        const rlimit memory = {1 << 30, 1 << 30};
        setrlimit(RLIMIT_AS, &memory);
#endif
        setenv("ASAN_OPTIONS", "allocator_may_return_null=1:max_allocation_size_mb=1024:exitcode=99", 1);
        std::vector<char*> argv;
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    });
}

// Lines of each result file of the last run. Dumps and lists of beams stand for themselves.
static std::map<std::string, std::size_t> results(const file_set& files) {
    std::map<std::string, std::size_t> found;
    for (const auto& entry : fs::directory_iterator(".")) {
        const std::string name = entry.path().filename();
        const auto has = [&](const char* kind) { return contains(name, kind); };
        if (files.count(name) == 0 && !has("_log") && !has("_fg0") && !has("_vg") && !has("_aps"))
            found[name] = lines_of(read_file(name)).size();
    }
    return found;
}

// The files of the last run with nan or inf where a number stands, of which it said nothing.
static std::set<std::string> untold_numbers(const file_set& files, const std::string& err) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(".")) {
        const std::string name = entry.path().filename();
        if (files.count(name) == 1 || contains(name, "_log") || contains(err, "$$Warning: " + name + " holds values"))
            continue;
        const std::string text = " " + read_file(name) + " ";
        for (const char* word : {"nan", "inf"})
            for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
                if (std::strchr(" \t\n=:-", text[at - 1]) != nullptr && std::strchr(" \t\n,)", text[at + 3]) != nullptr)
                    names.insert(name);
    }
    return names;
}

static bool has_message(const std::string& text) {
    static const char* const messages[] = {
        "Abort", "$$error", "$$ERROR: ", "Cannot open", "Not enough memory", "$$ Invalid paramter: branch_begin",
        "Invalid flag_bs", "$$ Space group no. =", "Invalid lattice type", "$Error in zolz_ort_base",
        "is invalid for 3D Density calc"};
    return std::any_of(std::begin(messages), std::end(messages), [&](const char* m) { return contains(text, m); });
}

struct Sweep : testing::TestWithParam<job> {};
INSTANTIATE_TEST_SUITE_P(Files, Sweep, testing::ValuesIn(jobs()), [](const auto& chosen) {
    std::string name = chosen.param.example + "_" + chosen.param.name;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
    return name;
});

TEST_P(Sweep, EndsInAResultOrAMessage) {
    static long count = 0; // over all jobs
    const char* const stride = std::getenv("ORVEL_SWEEP_STRIDE");
    const char* const seeds = std::getenv("ORVEL_SWEEP_SEEDS");
    const job& j = GetParam();
    const fs::path example = fs::path(ORVEL_EXAMPLES_DIR) / j.example;
    const temp_dir dir;
    fs::current_path(dir.path);

    file_set files = {{"orvel.ini", "INI_PARAM_END\n"}, {"a.dat", with_small_sizes(read_file(example))}};
    for (const char* name : {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
        files[name] = read_file(fs::path(ORVEL_DATA_DIR) / name);
    std::vector<std::string> command = {ORVEL_PROGRAM, "a.dat"}, mutable_files = {"a.dat"};
    if (contains(files["a.dat"], "FIT_MODE")) {
        command[0] = ORVEL_FIT_PROGRAM;
        if (command[0].empty())
            GTEST_SKIP() << "orvel_fit needs Eigen";
        files["truth.dat"] = with_small_sizes(read_file(example.parent_path() / "truth.dat"));
        run({ORVEL_FIT_PROGRAM, "truth.dat", "--simulate"}, files);
        files.erase("truth.dat");
        files["measured.int"] = read_file("measured.int");
        mutable_files.push_back("measured.int");
    }
    if (j.name == "plain" && j.example == "silicon_cbed/silicon.dat") {
        files["orvelspg.dat"] = part("orvelspg.dat", "\n# P1,", "\n24 1 227 ", "\n#");
        files["orvelxdt.dat"] = part("orvelxdt.dat", "\nH ", "\nSi ", "\n");
        files["orvelbk.dat"] = part("orvelbk.dat", "\nH\n", "\nSi\n", "\nP\n");
        files["orvel.ini"] =
            "eigval_dump_flag 1\neigvec_dump_flag 1\nsg_dump_flag 1\nbetag_dump_flag 1\nvg_dump_flag 1\n"
            "a_mat_dump_flag 1\nb_mat_dump_flag 1\nb_cond_dump_flag 1\nbc_chk_flag 2\natm_pos_out_flag 1\n"
            "process_mon_flag 1\nreflex_only_flag 0\nvg_sel_chk_flag 0\nchk_data_dump_flag 1\nINI_PARAM_END\n";
        mutable_files.insert(mutable_files.end(), {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat", "orvel.ini"});
    }
    ASSERT_TRUE(contains(files["a.dat"], j.from.c_str()));
    files["a.dat"].replace(files["a.dat"].find(j.from), j.from.size(), j.to);

    if (seeds != nullptr) {
        std::string seed;
        for (const std::string& file : mutable_files)
            seed += (file == "a.dat" ? "" : "@" + file + "\n") + files[file];
        const fs::path name = testing::UnitTest::GetInstance()->current_test_info()->name();
        write_file(seeds / name.filename(), seed);
        return;
    }
    const outcome whole = run(command, files);
    ASSERT_EQ(whole.status, 0) << whole.out << whole.err;
    const auto whole_results = results(files);
    int runs = 0, good = 0;
    for (const std::string& file : mutable_files) {
        const std::vector<std::string> lines = lines_of(files[file]);
        for (int i = 0; i < int(lines.size()) * num_mutations; ++i) {
            file_set changed = files;
            changed[file] = mutated(lines, std::size_t(i / num_mutations), i % num_mutations);
            if (changed[file] == files[file] || (stride != nullptr && count++ % std::atol(stride) != 0))
                continue;
            const std::size_t at = std::size_t(i / num_mutations);
            const outcome end = run(command, changed);
            const std::string text = end.out + end.err;
            const bool closed = contains(text, "See you again!!") || contains(text, "reflex_only_flag=1. exit.");
            const bool told = end.status == 1 && has_message(text) && !closed && results(changed) != whole_results;
            const std::string where = file + " line " + std::to_string(at + 1) + " \"" + lines[at] + "\", mutation " +
                                      std::to_string(i % num_mutations);
            EXPECT_TRUE(end.status == 0 ? closed : told)
                << where << ": status " << end.status << "\n"
                << text.substr(text.size() - std::min<std::size_t>(text.size(), 1000));
            const std::set<std::string> untold = untold_numbers(changed, end.err);
            EXPECT_TRUE(end.status != 0 || untold.empty()) << where << ": nan or inf in " << *untold.begin();
            ++runs;
            good += end.status == 0;
        }
    }
    std::printf("%d runs, %d with status 0\n", runs, good);
}
