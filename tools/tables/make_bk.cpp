// SPDX-License-Identifier: MIT
//
// Writes orvelbk.dat, the table of elastic and absorptive electron scattering factors, from
// published elastic fits and the integral of thermal diffuse scattering.
// Use: make_bk xray_4gauss.csv electron_kirkland.csv orvelbk.dat (the first for the names)
#include "atom_names.h"
#include "tds_integral.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

using namespace orvel::tables;

namespace {

constexpr std::size_t line_limit = 254; // the reader takes 255 characters at a time

const char* const head[] = {
    "orvelbk.dat, made by make_bk: elastic and absorptive electron scattering factors.",
    "Elastic f(s), s = sin(theta)/lambda up to 6 1/A: E. J. Kirkland, Advanced Computing in",
    "Electron Microscopy, 2nd ed. (Springer 2010), Appendix C; an ion has its atom's entry.",
    "Absorptive f'(s, B), B from 0.1 to 3 A^2, of thermal diffuse scattering (Einstein model):",
    "C. R. Hall and P. B. Hirsch (1965) Proc. R. Soc. A286, 158-177; D. M. Bird and Q. A. King",
    "(1990) Acta Cryst. A46, 202-208.",
    "Grids: DTS of s in 1/A, GM of B in A^2, GMS2 of M = B s^2.",
    "An entry: name; mlt_fct add_fct; 1000 f at the 27 s, in A; 60 codes, GM running fastest:",
    "f' beta / f = (code * 10 / mlt_fct - add_fct * 1e-6) exp(M), beta = v/c.",
};

constexpr std::size_t num_dts = 27, num_gm = 6, num_gms2 = 10, num_codes = num_gm * num_gms2;

// f is smooth enough for the reader's cubic interpolation to be right to 0.28 % on this grid of s.
const double dts[num_dts] = {0, 0.035, 0.07, 0.105, 0.145, 0.2, 0.25, 0.3, 0.37,
                             0.44, 0.53, 0.63, 0.75, 0.88, 1.03, 1.22, 1.43, 1.67,
                             1.95, 2.27, 2.64, 3.06, 3.54, 4.09, 4.7, 5.4, 6};

// The grids of B and M with the smallest error of the reader's interpolation for B from 0.1 to 3
// and s up to 2. M is dense near 0 since at B = 0.1 a step of 0.1 in M is a step of 1 in s.
const double gm[num_gm] = {0, 0.1, 0.21, 0.71, 1.82, 3};
const double gms2[num_gms2] = {0, 0.0018, 0.008, 0.0257, 0.089, 0.286, 0.76, 1.69, 2.58, 8};

// One element's lines of numbers.
struct bk_entry {
    double mlt_fct, add_fct;
    double dt[num_dts];
    double code[num_codes];
};

// I(B, M) = f' beta / f at s = sqrt(M / B). For B = 0 it is the limit of small B at fixed M.
double absorptive_ratio(const elastic_fit& fit, double B, double M) {
    if (B == 0.0)
        return tds_scale * elastic_limit(fit) * tds_limit(M);
    const double s = std::sqrt(M / B);
    return tds_scale * tds_integral(fit, s, B) / elastic_factor(fit, s);
}

// Codes W = I exp(-M) as integers from 0 to 999999: add_fct lifts the smallest W to 0, mlt_fct,
// of four figures and no more than a 32-bit integer holds, spreads the largest over the range.
bk_entry make_entry(const elastic_fit& fit) {
    bk_entry e{};
    for (std::size_t i = 0; i < num_dts; ++i)
        e.dt[i] = 1000.0 * elastic_factor(fit, dts[i]);
    double w[num_codes];
    for (std::size_t n = 0; n < num_codes; ++n) {
        const double M = gms2[n / num_gm];
        w[n] = absorptive_ratio(fit, gm[n % num_gm], M) * std::exp(-M);
    }
    e.add_fct = std::max(0.0, std::ceil(-1e6 * *std::min_element(w, w + num_codes)));
    const double largest = *std::max_element(w, w + num_codes) + 1e-6 * e.add_fct;
    const double full_range = 10.0 * 999999.0 / largest;
    const double unit = std::pow(10.0, std::floor(std::log10(full_range)) - 3.0);
    e.mlt_fct = std::min(2e9, std::floor(full_range / unit) * unit);
    for (std::size_t n = 0; n < num_codes; ++n)
        e.code[n] = std::nearbyint((w[n] + 1e-6 * e.add_fct) * e.mlt_fct / 10.0);
    return e;
}

// Writes numbers in lines of the given count; the last line takes what is left.
void put_numbers(table_file& table, const double* x, std::size_t n, std::size_t per_line) {
    for (std::size_t i = 0; i < n; i += per_line) {
        std::string line;
        for (std::size_t k = i; k < std::min(i + per_line, n); ++k) {
            char word[32];
            std::snprintf(word, sizeof word, "%s%.6g", k > i ? " " : "", x[k]);
            line += word;
        }
        put_line(table, "%s", line.c_str());
    }
}

void put_grid(table_file& table, const char* word, const double* x, std::size_t n,
              std::size_t per_line) {
    put_line(table, "%s", word);
    put_numbers(table, x, n, per_line);
}

void put_entry(table_file& table, const char* name, const bk_entry& e) {
    put_line(table, "%s", name);
    put_line(table, "%.0f %.0f", e.mlt_fct, e.add_fct);
    put_numbers(table, e.dt, num_dts, 9);
    put_numbers(table, e.code, num_codes, 13);
}

// Entries of all elements, in the order of the file of fits.
std::vector<bk_entry> make_entries(const csv_table& kirkland) {
    std::vector<bk_entry> entries;
    for (std::size_t row = 0; row < kirkland.rows.size(); ++row) {
        if (row % 20 == 0) {
            std::printf("make_bk: %zu of %zu elements\n", row, kirkland.rows.size());
            std::fflush(stdout);
        }
        entries.push_back(make_entry(read_elastic_fit(kirkland, row)));
    }
    return entries;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        table_fail("Usage: make_bk xray_4gauss.csv electron_kirkland.csv orvelbk.dat");
    const csv_table xray = read_csv(argv[1], ',');
    const csv_table kirkland = read_csv(argv[2], ',');
    const std::size_t z_column = csv_column(kirkland, "Z");
    const std::vector<bk_entry> entries = make_entries(kirkland);
    table_file table = {argv[3], line_limit, ""};
    for (const char* line : head)
        put_line(table, "# %s", line);
    put_grid(table, "DTS", dts, num_dts, 9);
    put_grid(table, "GM", gm, num_gm, 6);
    put_grid(table, "GMS2", gms2, num_gms2, 5);
    for (const atom_name& atom : list_atom_names(xray)) {
        std::size_t row = 0;
        while (row < kirkland.rows.size() && csv_number(kirkland, row, z_column) != atom.z)
            ++row;
        if (row == kirkland.rows.size())
            table_fail("%s has no elastic factor of Z = %d.", argv[2], atom.z);
        put_entry(table, atom.name.c_str(), entries[row]);
    }
    write_table(table);
    return 0;
}
