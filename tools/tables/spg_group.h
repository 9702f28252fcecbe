// SPDX-License-Identifier: MIT
//
// Space groups in exact arithmetic: a group is closed from the generators of its setting, with
// translations in units of 1/24, and reduced to the operations that a table lists. Rotations are
// the integer matrices of the setting's axes. The generators of orvelspg.dat and its check share
// these functions.
#pragma once

#include "table_io.h"

#include <array>
#include <string>
#include <vector>

namespace orvel::tables {

constexpr int trans_unit = 24; // translations of all settings are multiples of 1/24

// The operation x' = W x + w/24.
struct seitz {
    std::array<int, 9> rot;   // W: rot[3 i + j] is the coefficient of input j in output i
    std::array<int, 3> trans; // w, from 0 to 23
};

// One setting of one space group: a line of space_group_generators.csv.
struct spg_setting {
    int hall;                // serial number of the setting, 1 to 530
    int number;              // space-group number, 1 to 230
    std::string choice;      // unique axis, cell choice, origin choice, or axes H and R
    std::string symbol;      // Hermann-Mauguin symbol without blanks
    std::string hall_symbol; // the setting's symbol after Hall (1981)
    char letter;             // lattice letter P A B C I F R
    bool hexagonal;          // letter R on hexagonal axes: centred, obverse setting
    bool standard;           // the setting that stands under the space-group number itself
    int num_general;         // order of the group modulo the cell, centring included
    std::vector<seitz> generators;
};

bool same_op(const seitz& a, const seitz& b);

// a after b, its translation brought back into the cell.
seitz product(const seitz& a, const seitz& b);

// All settings of the file, in its order.
std::vector<spg_setting> read_settings(const std::string& path);

// The key of a setting in orvelspg.dat: the space-group number of a standard setting, else
// 1000 + serial number.
int table_number(const spg_setting& setting);

// Laue class as the number 1 to 13 that orvelspg.dat gives in its head lines.
int class_number(const spg_setting& setting);

// Centring translations of the setting's letter without (0 0 0).
std::vector<seitz> centring(const spg_setting& setting);

// The group of all operations modulo the cell; ends the process if its order is not the setting's.
std::vector<seitz> close_group(const spg_setting& setting);

// True if the inversion at the origin is among the operations.
bool has_inversion(const std::vector<seitz>& group);

// The operations that centring, and the inversion at the origin, do not generate, the identity
// first. Of several translations of one rotation the one with the smallest sum is taken.
std::vector<seitz> listed_operations(const std::vector<seitz>& group);

} // namespace orvel::tables
