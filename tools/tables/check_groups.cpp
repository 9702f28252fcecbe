// SPDX-License-Identifier: MIT
#include "checks.h"
#include "spg_group.h"

#include "crystal/lattice.h"
#include "crystal/strct_f.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace orvel::tables {

// A space group as the program holds it.
struct read_group {
    int num_sym_op;
    int inversion_flag;
    char latt_type[2];
    int r_hex_axes;
    std::vector<sym_op> ops;
};

static read_group read_table(int number) {
    read_group g{};
    sym_op* ops =
        read_sp_group_tbl(number, g.num_sym_op, g.inversion_flag, g.latt_type, g.r_hex_axes);
    g.ops.assign(ops, ops + g.num_sym_op);
    std::free(ops);
    return g;
}

// The operation in whole numbers; false if a translation is not a multiple of 1/24 within 1e-6.
static bool to_exact(const sym_op& op, seitz& exact) {
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j)
            exact.rot[3 * i + j] = static_cast<int>(op.rot[3 * j + i]);
        const int t = static_cast<int>(std::lround(op.trans[i] * trans_unit));
        if (std::fabs(op.trans[i] - static_cast<double>(t) / trans_unit) > 1e-6)
            return false;
        exact.trans[i] = ((t % trans_unit) + trans_unit) % trans_unit;
    }
    return true;
}

static bool before(const seitz& a, const seitz& b) {
    return a.rot != b.rot ? a.rot < b.rot : a.trans < b.trans;
}

// The operations sorted; an operation that is not exact leaves the list short.
static std::vector<seitz> exact_set(const read_group& g) {
    std::vector<seitz> ops;
    for (const sym_op& op : g.ops) {
        seitz exact{};
        if (to_exact(op, exact))
            ops.push_back(exact);
    }
    std::sort(ops.begin(), ops.end(), before);
    return ops;
}

// True if the lattice rule of the program forbids exactly the reflections that the group's pure
// translations extinguish.
static bool same_extinctions(const read_group& g, const spg_setting& setting) {
    constexpr int range = 4;
    const std::vector<seitz> translations = centring(setting);
    for (int h = -range; h <= range; ++h)
        for (int k = -range; k <= range; ++k)
            for (int l = -range; l <= range; ++l) {
                bool extinct = false;
                for (const seitz& t : translations)
                    extinct = extinct ||
                              (h * t.trans[0] + k * t.trans[1] + l * t.trans[2]) % trans_unit != 0;
                if ((extinction_rule(h, k, l, g.latt_type, g.r_hex_axes) != 0) != extinct)
                    return false;
            }
    return true;
}

static void write_operations(std::FILE* file, const spg_setting& s,
                             const std::vector<seitz>& ops) {
    std::fprintf(file, "%d;%d;%s;%s;%zu\n", s.number, s.standard ? 1 : 0, s.choice.c_str(),
                 s.hall_symbol.c_str(), ops.size());
    for (const seitz& op : ops) {
        for (int r : op.rot)
            std::fprintf(file, "%d ", r);
        std::fprintf(file, "%d %d %d\n", op.trans[0], op.trans[1], op.trans[2]);
    }
}

static void check_settings(check_log& log, const std::string& source_dir,
                           const std::string& path) {
    std::FILE* file = path.empty() ? nullptr : std::fopen(path.c_str(), "w");
    if (!path.empty() && file == nullptr)
        table_fail("Cannot write %s.", path.c_str());
    int same = 0, extinctions = 0, flags = 0, centric = 0;
    std::size_t listed = 0, standard = 0, other = 0;
    const std::vector<spg_setting> settings =
        read_settings(source_dir + "space_group_generators.csv");
    for (const spg_setting& s : settings) {
        const read_group g = read_table(table_number(s));
        const std::vector<seitz> ops = exact_set(g);
        std::vector<seitz> closure = close_group(s);
        std::sort(closure.begin(), closure.end(), before);
        if (ops.size() == g.ops.size() &&
            std::equal(ops.begin(), ops.end(), closure.begin(), closure.end(), same_op))
            ++same;
        if (same_extinctions(g, s))
            ++extinctions;
        (s.standard ? standard : other) += g.ops.size();
        if (s.standard) {
            listed += g.ops.size() / (centring(s).size() + 1) / (g.inversion_flag == 1 ? 2 : 1);
            flags += g.inversion_flag;
            centric += has_inversion(closure) ? 1 : 0;
        }
        if (file != nullptr)
            write_operations(file, s, ops);
    }
    if (file != nullptr)
        std::fclose(file);
    check(log, settings.size() == 530 && same == 530,
          "%d of %zu settings: operations as the closure", same, settings.size());
    check(log, extinctions == 530, "%d settings: lattice rule as the pure translations",
          extinctions);
    check(log, listed == 1874 && standard == 4425 && other == 2963,
          "1 to 230: %zu operations listed, %zu general positions; other settings: %zu", listed,
          standard, other);
    check(log, flags == 92 && centric == 92,
          "1 to 230: %d with inversion flag, %d centrosymmetric", flags, centric);
}

// Zones of reflections: those for which both linear forms vanish.
static const struct {
    const char* name;
    int form[2][3];
} zones[] = {
    {"hkl", {{0, 0, 0}, {0, 0, 0}}},
    {"0kl", {{1, 0, 0}, {0, 0, 0}}},
    {"h0l", {{0, 1, 0}, {0, 0, 0}}},
    {"hk0", {{0, 0, 1}, {0, 0, 0}}},
    {"h00", {{0, 1, 0}, {0, 0, 1}}},
    {"0k0", {{1, 0, 0}, {0, 0, 1}}},
    {"00l", {{1, 0, 0}, {0, 1, 0}}},
    {"hhl", {{1, -1, 0}, {0, 0, 0}}},
    {"h-hl", {{1, 1, 0}, {0, 0, 0}}},
    {"h-2hl", {{2, 1, 0}, {0, 0, 0}}},
    {"-2kkl", {{1, 2, 0}, {0, 0, 0}}},
};

// Conditions of the International Tables, Vol. A, for general positions: in the zone the form is a
// multiple of the modulus, or the reflection is absent. Cyclic: the same for k l h and l h k.
static const struct condition_row {
    int number;
    bool cyclic;
    struct {
        const char* zone;
        int form[3];
        int modulus;
    } conditions[6];
} conditions[] = {
    // one group for each lattice letter, without glide planes and screw axes
    {2, false, {}},
    {5, false, {{"hkl", {1, 1, 0}, 2}}},
    {1010, false, {{"hkl", {0, 1, 1}, 2}}},
    {1013, false, {{"hkl", {1, 0, 1}, 2}}},
    {22, false, {{"hkl", {1, 1, 0}, 2}, {"hkl", {0, 1, 1}, 2}}},
    {23, false, {{"hkl", {1, 1, 1}, 2}}},
    {146, false, {{"hkl", {-1, 1, 1}, 3}}},
    {1434, false, {}},
    // glide planes and screw axes
    {4, false, {{"0k0", {0, 1, 0}, 2}}},
    {14, false, {{"h0l", {0, 0, 1}, 2}, {"0k0", {0, 1, 0}, 2}}},
    {1082, false, {{"h0l", {1, 0, 1}, 2}, {"0k0", {0, 1, 0}, 2}}},
    {15, false, {{"hkl", {1, 1, 0}, 2}, {"h0l", {0, 0, 1}, 2}}},
    {19, true, {{"h00", {1, 0, 0}, 2}}},
    {33, false, {{"0kl", {0, 1, 1}, 2}, {"h0l", {1, 0, 0}, 2}}},
    {43,
     false,
     {{"hkl", {1, 1, 0}, 2}, {"hkl", {0, 1, 1}, 2}, {"0kl", {0, 1, 1}, 4}, {"h0l", {1, 0, 1}, 4}}},
    {62, false, {{"0kl", {0, 1, 1}, 2}, {"hk0", {1, 0, 0}, 2}}},
    {1294, false, {{"0kl", {0, 1, 0}, 2}, {"h0l", {1, 0, 1}, 2}}},
    {70, true, {{"hkl", {1, 1, 0}, 2}, {"0kl", {0, 1, 1}, 4}}},
    {76, false, {{"00l", {0, 0, 1}, 4}}},
    {92, false, {{"00l", {0, 0, 1}, 4}, {"h00", {1, 0, 0}, 2}, {"0k0", {0, 1, 0}, 2}}},
    {136, false, {{"0kl", {0, 1, 1}, 2}, {"h0l", {1, 0, 1}, 2}}},
    {141,
     false,
     {{"hkl", {1, 1, 1}, 2},
      {"hk0", {1, 0, 0}, 2},
      {"hhl", {2, 0, 1}, 4},
      {"h-hl", {2, 0, 1}, 4}}},
    {144, false, {{"00l", {0, 0, 1}, 3}}},
    {167,
     false,
     {{"hkl", {-1, 1, 1}, 3},
      {"h-hl", {0, 0, 1}, 2},
      {"0kl", {0, 0, 1}, 2},
      {"h0l", {0, 0, 1}, 2}}},
    {1461, true, {{"hhl", {0, 0, 1}, 2}}},
    {169, false, {{"00l", {0, 0, 1}, 6}}},
    {194, false, {{"hhl", {0, 0, 1}, 2}, {"h-2hl", {0, 0, 1}, 2}, {"-2kkl", {0, 0, 1}, 2}}},
    {205, true, {{"0kl", {0, 1, 0}, 2}}},
    {206, true, {{"hkl", {1, 1, 1}, 2}, {"0kl", {0, 1, 0}, 2}}},
    {213, true, {{"h00", {1, 0, 0}, 4}}},
    {219, true, {{"hkl", {1, 1, 0}, 2}, {"hhl", {0, 0, 1}, 2}, {"h-hl", {0, 0, 1}, 2}}},
    {227, true, {{"hkl", {1, 1, 0}, 2}, {"0kl", {0, 1, 1}, 4}}},
    {1525, true, {{"hkl", {1, 1, 0}, 2}, {"0kl", {0, 1, 1}, 4}}},
    {230,
     true,
     {{"hkl", {1, 1, 1}, 2},
      {"0kl", {0, 1, 0}, 2},
      {"hhl", {2, 0, 1}, 4},
      {"h-hl", {2, 0, 1}, 4}}},
};

static int value(const int form[3], const int g[3]) {
    return form[0] * g[0] + form[1] * g[1] + form[2] * g[2];
}

static bool in_zone(const char* name, const int g[3]) {
    for (const auto& zone : zones)
        if (std::string(zone.name) == name)
            return value(zone.form[0], g) == 0 && value(zone.form[1], g) == 0;
    table_fail("There is no zone %s.", name);
}

// True if the conditions say that the reflection is absent.
static bool absent(const condition_row& row, const int hkl_values[3]) {
    for (int turn = 0; turn < (row.cyclic ? 3 : 1); ++turn) {
        const int g[3] = {hkl_values[turn % 3], hkl_values[(turn + 1) % 3],
                          hkl_values[(turn + 2) % 3]};
        for (const auto& c : row.conditions)
            if (c.zone != nullptr && in_zone(c.zone, g) && value(c.form, g) % c.modulus != 0)
                return true;
    }
    return false;
}

// Largest |F| of a unit scatterer at three general positions, over the number of operations.
static double largest_factor(read_group& g, const int h[3]) {
    double largest = 0.0;
    csd crystal{};
    crystal.num_sym_op = g.num_sym_op;
    crystal.sym_op = g.ops.data();
    crystal.num_site = 1;
    for (int i = 0; i < 3; ++i) {
        atom site{};
        site.x = 0.1234 + 0.0717 * i;
        site.y = 0.2967 - 0.0433 * i;
        site.z = 0.4191 + 0.1129 * i;
        site.multiplicity = site.occupancy = 1.0;
        const double one = 1.0, zero = 0.0;
        crystal.site = &site;
        const complex f = calc_structure_factor_ph({h[0], h[1], h[2]}, 0.0, crystal, &one, &zero);
        largest = std::max(largest, std::hypot(f.re, f.im) / g.num_sym_op);
    }
    return largest;
}

static void check_conditions(check_log& log) {
    constexpr int range = 8;
    int groups = 0, reflections = 0, absences = 0;
    double strongest_absent = 0.0, strongest_absent_r = 0.0, weakest_present = 1.0;
    for (const condition_row& row : conditions) {
        read_group g = read_table(row.number);
        ++groups;
        for (int h = -range; h <= range; ++h)
            for (int k = -range; k <= range; ++k)
                for (int l = 0; l <= range; ++l) { // the opposite reflections have the same |F|
                    const int indices[3] = {h, k, l};
                    const double f = largest_factor(g, indices);
                    ++reflections;
                    if (absent(row, indices)) {
                        ++absences;
                        double& strongest =
                            g.r_hex_axes == 1 ? strongest_absent_r : strongest_absent;
                        strongest = std::max(strongest, f);
                    } else {
                        weakest_present = std::min(weakest_present, f);
                    }
                }
    }
    // the reader's thirds of seven digits leave 1e-6 in R groups; present ones have a random size
    check(log, strongest_absent < 1e-12 && strongest_absent_r < 5e-6 && weakest_present > 1e-3,
          "reflection conditions, %d groups: |F| of %d absent below %.1e (%.1e with letter R), "
          "of %d present above %.1e",
          groups, absences, strongest_absent, strongest_absent_r, reflections - absences,
          weakest_present);
}

void check_groups(check_log& log, const std::string& source_dir,
                  const std::string& operations_path) {
    check_settings(log, source_dir, operations_path);
    check_conditions(log);
}

} // namespace orvel::tables
