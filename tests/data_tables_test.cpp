// SPDX-License-Identifier: MIT
//
// The data tables as the program reads them: facts of crystallography and of scattering theory
// that hold whatever made the tables. The long checks are the program tools/tables/check_tables.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "crystal/strct_f.h"
#include "test_util.h"

namespace orvel {
namespace {

// The readers open the tables by name in the working directory.
struct data_tables : testing::Test {
    std::filesystem::path before = std::filesystem::current_path();
    data_tables() { std::filesystem::current_path(ORVEL_DATA_DIR); }
    ~data_tables() override { std::filesystem::current_path(before); }
};

struct group {
    int num_ops, flag, hex;
    char letter[2];
    std::vector<sym_op> ops;
};

group read_group(int number) {
    group g{};
    sym_op* ops = read_sp_group_tbl(number, g.num_ops, g.flag, g.letter, g.hex);
    g.ops.assign(ops, ops + g.num_ops);
    std::free(ops);
    return g;
}

// The images of a general position on a grid of 1/3000, which every operation keeps, are as many
// as there are operations, and every operation maps them on themselves.
TEST_F(data_tables, everySpaceGroupIsAGroup) {
    const int grid = 3000;
    const auto key = [](r_uvw p) {
        const auto whole = [](double x) { return std::lround(grid * fractional(x)) % grid; };
        return std::array<long, 3>{whole(p.u), whole(p.v), whole(p.w)};
    };
    int positions = 0, centrosymmetric = 0;
    for (int number = 1; number <= 230; ++number) {
        const group g = read_group(number);
        std::vector<r_uvw> images;
        std::set<std::array<long, 3>> keys;
        for (const sym_op& op : g.ops) {
            images.push_back(gen_pos({137.0 / grid, 452.0 / grid, 1031.0 / grid}, op));
            keys.insert(key(images.back()));
        }
        ASSERT_EQ(keys.size(), g.ops.size()) << number;
        for (const sym_op& op : g.ops)
            for (const r_uvw& image : images)
                ASSERT_EQ(keys.count(key(gen_pos(image, op))), 1u) << number;
        positions += g.num_ops;
        centrosymmetric += g.flag;
    }
    EXPECT_EQ(positions, 4425);
    EXPECT_EQ(centrosymmetric, 92);
}

// Letter, general positions, inversion flag, hexagonal axes.
TEST_F(data_tables, knownGroups) {
    const int numbers[] = {15, 43, 141, 146, 227, 1010, 1013, 1459, 1525};
    const char* const expected[] = {"C 8 1 0", "F 16 0 0", "I 32 1 0", "R 9 0 1", "F 192 1 0",
                                    "A 4 0 0", "B 4 0 0", "R 12 1 0", "F 192 0 0"};
    for (std::size_t i = 0; i < std::size(numbers); ++i) {
        const group g = read_group(numbers[i]);
        std::ostringstream text;
        text << g.letter << ' ' << g.num_ops << ' ' << g.flag << ' ' << g.hex;
        EXPECT_EQ(text.str(), expected[i]) << numbers[i];
    }
}

bool even(int n) { return n % 2 == 0; }

// Reflection conditions of the International Tables: P21/c, Pnma, R3c, P63/mmc, Fd-3m.
const struct {
    int number;
    bool (*present)(int h, int k, int l);
} rules[] = {
    {14, [](int h, int k, int l) { return (k != 0 || even(l)) && (h || l || even(k)); }},
    {62, [](int h, int k, int l) { return (h != 0 || even(k + l)) && (l != 0 || even(h)); }},
    {161, [](int h, int k, int l) { return (k + l - h) % 3 == 0 &&
                                           ((h && k && h + k) || even(l)); }},
    {194, [](int h, int k, int l) { return (h - k) * (h + 2 * k) * (2 * h + k) != 0 || even(l); }},
    {227, [](int h, int k, int l) {
         return even(h + k) && even(k + l) && (h != 0 || (k + l) % 4 == 0) &&
                (k != 0 || (h + l) % 4 == 0) && (l != 0 || (h + k) % 4 == 0);
     }},
};

TEST_F(data_tables, reflectionConditions) {
    atom site = {};
    site.x = 0.13717, site.y = 0.28931, site.z = 0.41459, site.multiplicity = site.occupancy = 1;
    const double one = 1, zero = 0;
    for (const auto& rule : rules) {
        group g = read_group(rule.number);
        csd crystal = {};
        crystal.num_sym_op = g.num_ops;
        crystal.sym_op = g.ops.data();
        crystal.num_site = 1;
        crystal.site = &site;
        const double noise = g.hex == 1 ? 1e-5 : 1e-11; // seven-digit thirds in R groups
        for (int i = 0; i < 15 * 15 * 8; ++i) {
            const int h = i % 15 - 7, k = i / 15 % 15 - 7, l = i / 225;
            const complex f = calc_structure_factor_ph({h, k, l}, 0, crystal, &one, &zero);
            ASSERT_EQ(std::hypot(f.re, f.im) > noise * g.num_ops, rule.present(h, k, l))
                << rule.number << ": " << h << ' ' << k << ' ' << l;
        }
    }
}

// Every name of orvelxdt.dat: the row sums to the electrons of the atom or ion, whose charge the
// name tells, and the name has an entry in orvelbk.dat.
TEST_F(data_tables, everyRowSumsToItsElectrons) {
    int names = 0;
    for (const std::string& line : orvel_test::lines_of(orvel_test::read_file("orvelxdt.dat"))) {
        if (line[0] == '#')
            continue;
        std::string name = line.substr(0, line.find(' '));
        const xdt_tbl x = read_xdt_table(name.data());
        const std::size_t digit = name.find_first_of("0123456789");
        const int size = digit == std::string::npos ? 1 : name[digit] - '0';
        const int charge = size * ((name.back() == '+') - (name.back() == '-'));
        EXPECT_NEAR(x.a1 + x.a2 + x.a3 + x.a4 + x.c, x.z - charge, charge == 0 ? 0.059 : 0.028) << name;
        // where the charge of an ion is no longer felt, both tables have one elastic factor
        const bk_tbl bk = read_atom_dat_table(name.c_str());
        EXPECT_NEAR(1000 * atomsf_xdt(1, x) / cub_int_2(1, bk_num_s, bk.dts, bk.dt), 1, 0.01) << name;
        ++names;
    }
    EXPECT_EQ(names, 226);
}

// f of the table; beyond its range the power law of a bare nucleus.
double elastic(const bk_tbl& bk, double s) {
    const double end = bk.dts[bk_num_s - 1];
    return s <= end ? cub_int_2(s, bk_num_s, bk.dts, bk.dt) / 1000
                    : bk.dt[bk_num_s - 1] / 1000 * end * end / (s * s);
}

// Integral over the plane of f(|s/2 + r|) f(|s/2 - r|) (1 - exp(-2 B (r^2 - s^2/4))), the diffuse
// scattering of independent vibrations: a plain sum in polar coordinates about the middle.
double diffuse(const bk_tbl& bk, double s, double B) {
    const double pi = std::acos(-1.0), step = 0.02;
    const int turns = 48;
    double sum = 0;
    for (double t = -8; t < 7; t += step) {
        const double r = std::exp(t);
        double around = 0;
        for (int i = 0; i < turns; ++i) {
            const double c = std::cos(pi / 2 * (i + 0.5) / turns);
            around += elastic(bk, std::sqrt(r * r + s * s / 4 + r * s * c)) *
                      elastic(bk, std::sqrt(r * r + s * s / 4 - r * s * c));
        }
        sum -= 2 * pi * around / turns * r * r * step * std::expm1(-2 * B * (r * r - s * s / 4));
    }
    return sum;
}

// At the points of the table's grid only f is interpolated, to 0.28 %, four times that where its
// products cancel. Where f' changes its sign, a tenth of its size at s = 0 is the measure.
TEST_F(data_tables, absorptiveFactorIsTheDiffuseScattering) {
    const double two_h_over_mc = 0.0485262, kv = 200;
    const double beta = std::sqrt(1 - 1 / std::pow(1 + kv / 510.99895, 2));
    for (const char* name : {"H", "Si", "Cs", "Au"}) {
        const bk_tbl bk = read_atom_dat_table(name);
        for (int i = 1; i < bk_num_b; ++i) {
            const double B = bk.gm[i], forward = two_h_over_mc * diffuse(bk, 0, B);
            for (const double M : bk.gms2) {
                const double s = std::sqrt(M / B) * (1 - 1e-12); // not beyond the last M
                double pair[2];
                if (atom_bk(bk, s, B, pair, kv) == bk_s_beyond_table)
                    continue;
                const double exact = two_h_over_mc * diffuse(bk, s, B);
                const double scale = std::max(std::fabs(exact), forward / 10 * std::exp(M));
                EXPECT_NEAR(pair[1] * beta / scale, exact / scale, 0.012) << name << B << ' ' << M;
            }
        }
    }
}

} // namespace
} // namespace orvel
