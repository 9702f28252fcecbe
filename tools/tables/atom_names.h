// SPDX-License-Identifier: MIT
//
// The names under which orvelxdt.dat and orvelbk.dat carry atoms and ions. Both tables have the
// same names in the same order, since a site needs an entry in each. The list follows
// xray_4gauss.csv, with aliases added and two unusable fits left out.
#pragma once

#include "table_io.h"

#include <string>
#include <vector>

namespace orvel::tables {

struct atom_name {
    std::string name;
    int z;           // nuclear charge
    int charge;      // of the ion, in units of the elementary charge
    std::size_t row; // its line in xray_4gauss.csv
};

// All names: those of the file, D behind H, and behind an ion of charge 1 its name without the
// digit (Na1+, Na+). Bi5+ and Ru4+ are left out: their published fits fail above s = 0.5 1/A
// (at s = 2 that of Bi5+ gives -0.7 electrons).
std::vector<atom_name> list_atom_names(const csv_table& xray);

} // namespace orvel::tables
