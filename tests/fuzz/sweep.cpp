// SPDX-License-Identifier: MIT
//
// orvel_sweep: the examples with small sizes, one fault at a time. Each mutation of each line of their files is run
// with limited memory, file size and time, and must end with status 0 or with status 1 and a message, without a
// signal, a report of a sanitizer, or results that look complete behind status 1.
//   orvel_sweep [N [JOB]]     every N-th run (default 1), of the jobs whose names contain JOB
//   orvel_sweep --seeds DIR   writes the jobs as inputs of fuzz_run instead
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "mutations.h"

namespace fs = std::filesystem;
using file_set = std::map<std::string, std::string>;

struct job {
    std::string name, program;
    file_set files; // a.dat, orvel.ini, the tables, measured.int
    std::vector<std::string> mutated_files;
};

struct result {
    int state; // of waitpid
    std::string text;
    file_set written;
};

static const char* const tables[] = {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"};

// Beginnings of lines that give sizes, and small ones.
static const std::pair<const char*, const char*> smaller[] = {
    {"31  ", "5  "}, {"49  ", "5  "}, {"121  ", "5  "}, {"301  ", "5  "}, {"21  ", "4  "},
    {"81 57", "5 4"}, {"64 64 64", "4 4 4"}, {"400  4.0", "300  1.1"}, {"2000  4.0", "300  1.1"}, {"200  3.0", "300  1.1"},
    {"200  1.0", "200  0.6"}, {"e_density_gmax_val  5.5", "e_density_gmax_val  1.5"}};

// Other kinds of input than the examples have.
static const struct {
    const char *example, *name, *from, *to;
} variants[] = {
    {"silicon_cbed/silicon.dat", "table", "0              scattering", "1              scattering"},
    {"silicon_cbed/silicon.dat", "low_order", "0              number of given structure factors\n",
     "2\n1\n1 1 1\n1.2 ADJ F\n0.1 FIX Fi\n2 2 0\n=F*0.9-a CST G\n0 RST g 0.1\n"},
    {"silicon_fringes/fringes.dat", "site_factors", "0              number of given structure factors\n",
     "1\n3\n1 1 1\n1.2 ADJ F\n=F*0.9 CST G\n"},
    {"silicon_coherent/probe.dat", "aniso", "ISO            isotropic temperature factor\n0.46 ",
     "ANISO\n0.01\n0.01\n0.01\n0.001\n0.001\n0 "},
    {"gaas_maps/density.dat", "layers", "2              search by s_g", "3              search by s_g"},
};

// Switches that dump all there is.
static const char* const ini =
    "eigval_dump_flag 1\neigvec_dump_flag 1\nsg_dump_flag 1\nbetag_dump_flag 1\nvg_dump_flag 1\na_mat_dump_flag 1\n"
    "b_mat_dump_flag 1\nb_cond_dump_flag 1\nbc_chk_flag 2\natm_pos_out_flag 1\nprocess_mon_flag 1\n"
    "reflex_only_flag 0\nvg_sel_chk_flag 0\nchk_data_dump_flag 1\nINI_PARAM_END\n";

static std::string read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

static std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

static bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

static std::string with_small_sizes(const std::string& text) {
    std::string small;
    for (std::string line : lines_of(text)) {
        for (const auto& [from, to] : smaller)
            if (line.rfind(from, 0) == 0)
                line.replace(0, std::strlen(from), to);
        if (line[0] != '#')
            small += line + "\n";
    }
    return small;
}

// What a job with silicon reads of a table: its head and one entry.
static std::string part(const std::string& text, const char* first_entry, const char* from, const char* to) {
    const std::size_t begin = text.find(from) + 1;
    return text.substr(0, text.find(first_entry)) + "\n" + text.substr(begin, text.find(to, begin) - begin) + "\n";
}

// Runs a job in the current folder, which then holds its files and what it wrote.
static result run(const std::string& program, const std::vector<const char*>& arguments, const file_set& files) {
    for (const auto& entry : fs::directory_iterator("."))
        if (files.count(entry.path().filename().string()) == 0)
            fs::remove(entry);
    for (const auto& [name, text] : files)
        if (read_file(name) != text)
            std::ofstream(name, std::ios::binary) << text;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> argv = {const_cast<char*>(program.c_str())};
        for (const char* argument : arguments)
            argv.push_back(const_cast<char*>(argument));
        argv.push_back(nullptr);
        const rlimit file_size = {64 << 20, 64 << 20};
        setrlimit(RLIMIT_FSIZE, &file_size);
        std::signal(SIGXFSZ, SIG_IGN);
#ifndef ORVEL_SANITIZED // whose shadow memory needs all addresses
        const rlimit memory = {1 << 30, 1 << 30};
        setrlimit(RLIMIT_AS, &memory);
#endif
        setenv("ASAN_OPTIONS", "allocator_may_return_null=1:max_allocation_size_mb=1024:exitcode=99", 1);
        if (std::freopen("console.txt", "w", stdout) != nullptr && dup2(STDOUT_FILENO, STDERR_FILENO) >= 0) {
            alarm(10);
            execv(program.c_str(), argv.data());
        }
        _exit(127);
    }
    result r = {};
    waitpid(child, &r.state, 0);
    r.text = read_file("console.txt");
    for (const auto& entry : fs::directory_iterator(".")) {
        const std::string name = entry.path().filename().string();
        if (files.count(name) == 0 && name != "console.txt")
            r.written[name] = read_file(name);
    }
    return r;
}

static result run(const job& j, const file_set& files) {
    return run(j.program, {"a.dat"}, files);
}

static std::vector<job> prepare() {
    std::vector<job> jobs;
    file_set shared = {{"orvel.ini", ini}};
    for (const char* name : tables)
        shared[name] = read_file(fs::path(ORVEL_DATA_DIR) / name);
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(ORVEL_EXAMPLES_DIR))
        if (entry.path().extension() == ".dat" && entry.path().filename() != "truth.dat")
            paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
        job j = {fs::relative(path, ORVEL_EXAMPLES_DIR).string(), ORVEL_PROGRAM, shared, {"a.dat"}};
        const std::string text = read_file(path);
        j.files["a.dat"] = with_small_sizes(text);
        if (contains(text, "FIT_MODE")) {
            j.program = ORVEL_FIT_PROGRAM;
            if (j.program.empty())
                continue;
            file_set truth = shared;
            truth["truth.dat"] = with_small_sizes(read_file(path.parent_path() / "truth.dat"));
            j.files["measured.int"] = run(j.program, {"truth.dat", "--simulate"}, truth).written["measured.int"];
            j.mutated_files.push_back("measured.int");
        }
        if (j.name == "silicon_cbed/silicon.dat") {
            j.files["orvelspg.dat"] = part(shared["orvelspg.dat"], "\n# P1,", "\n24 1 227 ", "\n#");
            j.files["orvelxdt.dat"] = part(shared["orvelxdt.dat"], "\nH ", "\nSi ", "\n");
            j.files["orvelbk.dat"] = part(shared["orvelbk.dat"], "\nH\n", "\nSi\n", "\nP\n");
            j.mutated_files.insert(j.mutated_files.end(), {"orvel.ini", tables[0], tables[1], tables[2]});
        }
        jobs.push_back(j);
        for (const auto& v : variants) {
            const std::size_t at = j.files["a.dat"].find(v.from);
            if (j.name != v.example || at == std::string::npos)
                continue;
            job other = j;
            other.name = std::string(v.example) + "+" + v.name;
            other.files["a.dat"].replace(at, std::strlen(v.from), v.to);
            other.mutated_files = {"a.dat"};
            jobs.push_back(other);
        }
    }
    return jobs;
}

// What is wrong with an end, if anything is; good is the end of the job as it should be.
static const char* fault_of(const result& r, const result& good) {
    if (!WIFEXITED(r.state))
        return WTERMSIG(r.state) == SIGALRM ? "time-out" : "signal";
    const int status = WEXITSTATUS(r.state);
    if (status > 1 || contains(r.text, "Sanitizer:") || contains(r.text, "runtime error:"))
        return "status or sanitizer report";
    const bool closed = contains(r.text, "See you again!!");
    if (status == 0)
        return closed || contains(r.text, "reflex_only_flag=1. exit.") ? nullptr : "no closing text";
    static const char* const messages[] = {"Abort", "$$error", "$$ERROR: ", "Cannot open", "Not enough memory", "Invalid flag_bs",
                                           "$$ Invalid paramter: branch_begin", "$$ Space group no. =", "Invalid lattice type",
                                           "$Error in zolz_ort_base", "is invalid for 3D Density calc"};
    if (std::none_of(std::begin(messages), std::end(messages), [&](const char* m) { return contains(r.text, m); }))
        return "no message";
    if (closed)
        return "closing text behind a failure";
    for (const auto& [name, text] : r.written) {
        const auto whole = good.written.find(name);
        const bool report = contains(name, "_fg0") || contains(name, "_vg") || contains(name, "_aps");
        if (!report && whole != good.written.end() && text.size() >= whole->second.size())
            return "complete result behind a failure";
    }
    return nullptr;
}

static bool is_not_finite(const std::pair<const std::string, std::string>& file) {
    return contains(file.second, "nan") || contains(file.second, "inf\t") || contains(file.second, "inf\n");
}

static int sweep(const job& j, long stride, long& count) {
    const result good = run(j, j.files);
    int runs = 0, fine = 0, not_finite = 0, faults = 0;
    if (good.state != 0)
        std::printf("%s fails as it is:\n%s", j.name.c_str(), good.text.c_str()), ++faults;
    for (const std::string& file : j.mutated_files) {
        const std::vector<std::string> lines = lines_of(j.files.at(file));
        for (std::size_t at = 0; at < lines.size(); ++at) {
            for (int how = 0; how < orvel_test::num_mutations; ++how) {
                file_set files = j.files;
                files[file] = orvel_test::mutated(lines, at, how);
                if (files[file] == j.files.at(file) || count++ % stride != 0)
                    continue;
                const result r = run(j, files);
                ++runs;
                fine += r.state == 0;
                const char* what = fault_of(r, good);
                const char* kind = what != nullptr ? "FAULT" : "note";
                faults += what != nullptr;
                if (what == nullptr && r.state == 0 && std::any_of(r.written.begin(), r.written.end(), is_not_finite)) {
                    ++not_finite;
                    what = "numbers that are not finite";
                }
                if (what != nullptr)
                    std::printf("%s %s, %s line %zu \"%s\", mutation %d: %s, state %d\n", kind, j.name.c_str(), file.c_str(),
                                at + 1, lines[at].c_str(), how, what, r.state);
                if (what != nullptr && *kind == 'F')
                    std::printf("%s\n", r.text.substr(r.text.size() - std::min<std::size_t>(r.text.size(), 1000)).c_str());
            }
        }
    }
    std::printf("%-40s %6d runs, %6d status 0 (%d with numbers that are not finite), %d faults\n", j.name.c_str(), runs,
                fine, not_finite, faults);
    std::fflush(stdout);
    return faults;
}

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool seeds = !arguments.empty() && arguments[0] == "--seeds";
    const fs::path target = seeds && argc > 2 ? fs::absolute(arguments[1]) : fs::path();
    std::string folder = (fs::temp_directory_path() / "orvel_sweep_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return EXIT_FAILURE;
    fs::current_path(folder);
    long count = 0;
    int faults = 0;
    for (const job& j : prepare()) {
        if (seeds) {
            std::string name = j.name;
            std::replace(name.begin(), name.end(), '/', '_');
            std::ofstream seed(target / name, std::ios::binary);
            seed << j.files.at("a.dat");
            for (const auto& [file, text] : j.files)
                if (text.size() < 10000 && file != "a.dat")
                    seed << "@" << file << "\n" << text;
        } else if (argc < 3 || contains(j.name, argv[2])) {
            faults += sweep(j, argc > 1 ? std::atol(argv[1]) : 1, count);
        }
    }
    fs::current_path("/");
    fs::remove_all(folder);
    return faults == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
