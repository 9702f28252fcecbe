// SPDX-License-Identifier: MIT
//
// Fuzz target of whole runs of orvel, or of two cycles of orvel_fit for a FIT_MODE file. An input is the parameter
// file; a line "@NAME" begins another file, for instance orvel.ini or measured.int. The data tables are the real
// ones where the input has none.
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

#include "harness.h"
#include "mutations.h"

int orvel_main(int argc, char** argv);
int orvel_fit_main(int argc, char** argv);

template <int N>
static void call(int (*program)(int, char**), const char* const (&arguments)[N]) {
    program(N, const_cast<char**>(arguments));
}
static void run() { call(orvel_main, {"orvel", "a.dat"}); }
static void run_fit() { call(orvel_fit_main, {"orvel_fit", "a.dat", "--cycles", "2"}); }

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static orvel_fuzz::file_set tables;
    for (const char* name : {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
        if (tables[name].empty())
            std::getline(std::ifstream(std::string(ORVEL_DATA_DIR "/") + name), tables[name], '\0');
    orvel_fuzz::file_set files = tables;
    std::string* file = &files["a.dat"];
    std::istringstream text(std::string(data, data + size));
    for (std::string line; std::getline(text, line);) {
        if (line[0] == '@')
            (file = &files[line.substr(1)])->clear();
        else
            *file += text.eof() ? line : line + "\n";
    }
    const bool is_fit = files["a.dat"].find("FIT_MODE") != std::string::npos;
    orvel_fuzz::run_caught(std::move(files), is_fit ? run_fit : run);
    return 0;
}

// Half of the mutations know lines and numbers, the other half are libFuzzer's.
extern "C" std::size_t LLVMFuzzerMutate(unsigned char* data, std::size_t size, std::size_t size_max);
extern "C" std::size_t LLVMFuzzerCustomMutator(unsigned char* data, std::size_t size, std::size_t size_max,
                                               unsigned seed) {
    std::minstd_rand random(seed);
    std::vector<std::string> lines;
    std::istringstream text(std::string(data, data + size));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    if (lines.empty() || random() % 2 == 0)
        return LLVMFuzzerMutate(data, size, size_max);
    const std::size_t at = random() % lines.size();
    const std::string result = orvel_test::mutated(lines, at, int(random() % orvel_test::num_mutations));
    size = std::min(result.size(), size_max);
    std::memcpy(data, result.data(), size);
    return size;
}
