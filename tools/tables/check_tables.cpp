// SPDX-License-Identifier: MIT
//
// Checks the tables of a data folder. Use: check_tables data [operations.txt]
// The folder holds the tables and, in source/, the numbers that they are made of. The second
// argument names a file for all symmetry operations, which compare_groups.py reads.
#include "checks.h"
#include "table_io.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace orvel::tables {

void check(check_log& log, bool ok, const char* format, ...) {
    ++(ok ? log.passed : log.failed);
    std::fputs(ok ? "ok   " : "FAIL ", stdout);
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

double beta(double kv) {
    constexpr double rest_energy = 510.99895; // keV
    return std::sqrt(1.0 - 1.0 / std::pow(1.0 + kv / rest_energy, 2));
}

} // namespace orvel::tables

int main(int argc, char** argv) {
    using namespace orvel::tables;
    namespace fs = std::filesystem;
    if (argc != 2 && argc != 3)
        table_fail("Usage: check_tables data [operations.txt]");
    std::error_code error;
    const std::string operations = argc == 3 ? fs::absolute(argv[2], error).string() : "";
    fs::current_path(argv[1], error); // the readers open the tables by their bare names
    if (error)
        table_fail("Cannot go into %s.", argv[1]);
    check_log log = {0, 0};
    check_groups(log, "source/", operations);
    check_factors(log, "source/");
    check_crystals(log);
    std::printf("%d checks passed, %d failed\n", log.passed, log.failed);
    return log.failed == 0 ? 0 : 1;
}
