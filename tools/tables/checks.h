// SPDX-License-Identifier: MIT
//
// The long checks of the three data tables, read by the program's own readers from the working
// directory. Each check prints one line with its figures. References are the exact groups and
// integrals of the generators, the International Tables, and published values.
#pragma once

#include <string>

namespace orvel::tables {

struct check_log {
    int passed, failed;
};

// Prints "ok   " or "FAIL ", the text (printf form) and a line end, and counts.
void check(check_log& log, bool ok, const char* format, ...) __attribute__((format(printf, 3, 4)));

// v/c of electrons of kv kilovolts.
double beta(double kv);

// orvelspg.dat. If operations_path is not empty, all operations as the program expands them go
// into that file, for a comparison with another library.
void check_groups(check_log& log, const std::string& source_dir,
                  const std::string& operations_path);

// orvelxdt.dat, orvelbk.dat and the integrals behind the latter.
void check_factors(check_log& log, const std::string& source_dir);

// Crystals computed with the tables: extinction distances and absorptive potentials.
void check_crystals(check_log& log);

} // namespace orvel::tables
