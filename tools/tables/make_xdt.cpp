// SPDX-License-Identifier: MIT
//
// Writes orvelxdt.dat, the table of X-ray scattering factors, from the published fits. The numbers
// are carried over digit by digit. Use: make_xdt xray_4gauss.csv orvelxdt.dat
#include "atom_names.h"

using namespace orvel::tables;

namespace {

constexpr std::size_t line_limit = 98; // the reader takes 99 characters, line end included

const char* const head[] = {
    "orvelxdt.dat, made by make_xdt: X-ray scattering factors of atoms and ions, in electrons,",
    "f_x(s) = sum_i a_i exp(-b_i s^2) + c, valid for s = sin(theta)/lambda up to 2 1/A.",
    "International Tables for Crystallography, Vol. C (1992), Table 6.1.1.4, pp. 500-502;",
    "O2-: E. Hovestreydt (1983) Acta Cryst. A39, 268-269.",
    "H is hydrogen contracted as in a bond (D the same), Hiso the isolated atom.",
    "A line: name, nuclear charge Z (of the neutral atom), a1 b1 a2 b2 a3 b3 a4 b4 c",
};

const char* const fit_columns[] = {"a1", "b1", "a2", "b2", "a3", "b3", "a4", "b4", "c"};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        table_fail("Usage: make_xdt xray_4gauss.csv orvelxdt.dat");
    const csv_table xray = read_csv(argv[1], ',');
    table_file table = {argv[2], line_limit, ""};
    for (const char* line : head)
        put_line(table, "# %s", line);
    for (const atom_name& atom : list_atom_names(xray)) {
        std::string numbers;
        for (const char* column : fit_columns) {
            const std::size_t c = csv_column(xray, column);
            csv_number(xray, atom.row, c); // the published digits are copied, but must be a number
            numbers += " " + xray.rows[atom.row][c];
        }
        put_line(table, "%-5s %2d%s", atom.name.c_str(), atom.z, numbers.c_str());
    }
    write_table(table);
    return 0;
}
