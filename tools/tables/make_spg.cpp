// SPDX-License-Identifier: MIT
//
// Writes orvelspg.dat, the table of space groups, from the generators of their settings. Every
// group is closed in integers; listed are the operations that the reader of the table does not
// make itself by centring and inversion. Use: make_spg space_group_generators.csv orvelspg.dat
#include "spg_group.h"

using namespace orvel::tables;

namespace {

constexpr std::size_t line_limit = 98; // the reader takes 99 characters, line end included
constexpr std::size_t term_limit = 6;  // longest term of all settings; the reader has room for 9

const char* const head[] = {
    "orvelspg.dat, made by make_spg: the operations of the space groups, from the generators of",
    "International Tables for Crystallography, Vol. A, and the symbols of S. R. Hall (1981),",
    "Acta Cryst. A37, 517-525.",
    "A record is a head line and a line for each operation. Head line: number of these lines,",
    "1 if the reader adds the inversion at the origin, number, class, symbol. The reader adds",
    "the centring translations of the letter as well.",
    "Numbers 1 to 230, the standard settings: unique axis b and cell choice 1 (monoclinic),",
    "  hexagonal axes (letter R), origin at an inversion centre where there are two choices.",
    "Numbers above 1000, all other settings: 1000 + serial (Hall) number of the setting.",
    "Classes: 1 -1, 2 2/m, 3 mmm, 4 4/m, 5 4/mmm, 6 m-3, 7 m-3m, 8 and 9 -3, 10 and 11 -3m,",
    "  12 6/m, 13 6/mmm. Letter R: 8 and 10 rhombohedral axes, 9 and 11 hexagonal axes.",
};

int common_divisor(int a, int b) { return b == 0 ? a : common_divisor(b, a % b); }

// One coordinate of an operation in the grammar of the table, such as -X+1/2 or X-Y+2/3: capital
// letters, at most one negative, the translation as a positive fraction of single digits.
std::string term(const seitz& op, std::size_t i) {
    std::string text;
    int negative = 0;
    for (std::size_t j = 0; j < 3; ++j) {
        const int c = op.rot[3 * i + j];
        if (c == 0)
            continue;
        if (c < 0)
            ++negative;
        if (c < 0 || !text.empty())
            text += c < 0 ? '-' : '+';
        text += static_cast<char>('X' + static_cast<int>(j));
    }
    if (op.trans[i] != 0) {
        const int d = common_divisor(op.trans[i], trans_unit);
        text += "+" + std::to_string(op.trans[i] / d) + "/" + std::to_string(trans_unit / d);
    }
    const std::size_t slash = text.find('/');
    const bool digits =
        slash == std::string::npos || (slash + 2 == text.size() && text[slash - 2] == '+');
    if (negative > 1 || !digits || text.size() > term_limit)
        table_fail("The term %s cannot be written.", text.c_str());
    return text;
}

void put_setting(table_file& table, const spg_setting& s) {
    const std::vector<seitz> group = close_group(s);
    const std::vector<seitz> listed = listed_operations(group);
    std::string remark =
        "# " + s.symbol + ", Hall symbol " + s.hall_symbol + " (" + std::to_string(s.hall) + ")";
    if (!s.choice.empty())
        remark += ", choice " + s.choice;
    if (!s.standard)
        remark += ", a setting of " + std::to_string(s.number);
    put_line(table, "%s", remark.c_str());
    put_line(table, "%zu %d %d %d %s", listed.size(), has_inversion(group) ? 1 : 0,
             table_number(s), class_number(s), s.symbol.c_str());
    for (const seitz& op : listed)
        put_line(table, "%s,%s,%s", term(op, 0).c_str(), term(op, 1).c_str(), term(op, 2).c_str());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        table_fail("Usage: make_spg space_group_generators.csv orvelspg.dat");
    const std::vector<spg_setting> settings = read_settings(argv[1]);
    table_file table = {argv[2], line_limit, ""};
    for (const char* line : head)
        put_line(table, "# %s", line);
    for (const bool standard : {true, false})
        for (const spg_setting& s : settings)
            if (s.standard == standard)
                put_setting(table, s);
    write_table(table);
    return 0;
}
