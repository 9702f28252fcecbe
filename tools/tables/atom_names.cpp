// SPDX-License-Identifier: MIT
#include "atom_names.h"

#include <cstdlib>

namespace orvel::tables {

static const char* const unusable[] = {"Bi5+", "Ru4+"};

std::vector<atom_name> list_atom_names(const csv_table& xray) {
    const std::size_t name_column = csv_column(xray, "name");
    const std::size_t z_column = csv_column(xray, "Z");
    const std::size_t charge_column = csv_column(xray, "charge");
    std::vector<atom_name> names;
    for (std::size_t r = 0; r < xray.rows.size(); ++r) {
        atom_name atom{xray.rows[r][name_column], static_cast<int>(csv_number(xray, r, z_column)),
                       static_cast<int>(csv_number(xray, r, charge_column)), r};
        bool usable = true;
        for (const char* name : unusable)
            usable = usable && atom.name != name;
        if (!usable)
            continue;
        names.push_back(atom);
        if (atom.name == "H") {
            atom.name = "D";
            names.push_back(atom);
        } else if (std::abs(atom.charge) == 1) {
            atom.name.erase(atom.name.find('1'), 1);
            names.push_back(atom);
        }
    }
    return names;
}

} // namespace orvel::tables
