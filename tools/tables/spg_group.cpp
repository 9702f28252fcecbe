// SPDX-License-Identifier: MIT
#include "spg_group.h"

#include <algorithm>

namespace orvel::tables {

static const seitz identity{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
static const seitz inversion{{-1, 0, 0, 0, -1, 0, 0, 0, -1}, {0, 0, 0}};

bool same_op(const seitz& a, const seitz& b) { return a.rot == b.rot && a.trans == b.trans; }

seitz product(const seitz& a, const seitz& b) {
    seitz c{};
    for (std::size_t i = 0; i < 3; ++i) {
        int t = a.trans[i];
        for (std::size_t k = 0; k < 3; ++k) {
            t += a.rot[3 * i + k] * b.trans[k];
            for (std::size_t j = 0; j < 3; ++j)
                c.rot[3 * i + j] += a.rot[3 * i + k] * b.rot[3 * k + j];
        }
        c.trans[i] = ((t % trans_unit) + trans_unit) % trans_unit;
    }
    return c;
}

static int determinant(const seitz& op) {
    const std::array<int, 9>& w = op.rot;
    return w[0] * (w[4] * w[8] - w[5] * w[7]) - w[1] * (w[3] * w[8] - w[5] * w[6]) +
           w[2] * (w[3] * w[7] - w[4] * w[6]);
}

// Reads a term such as -x+1/2, y or x-y, any number of signs in it, into row i of the operation.
static bool read_term(const char*& p, seitz& op, std::size_t i) {
    int sign = 1;
    const char* start = p;
    for (; *p != '\0' && *p != ',' && *p != ' '; ++p) {
        if (*p == '+' || *p == '-') {
            sign = *p == '-' ? -1 : 1;
        } else if (*p >= 'x' && *p <= 'z') {
            op.rot[3 * i + static_cast<std::size_t>(*p - 'x')] += sign;
        } else if (*p >= '1' && *p <= '9' && p[1] == '/' && p[2] >= '1' && p[2] <= '9' &&
                   trans_unit % (p[2] - '0') == 0) {
            op.trans[i] += sign * (*p - '0') * trans_unit / (p[2] - '0');
            p += 2;
        } else {
            return false;
        }
    }
    return p != start;
}

// Reads triplets such as -x,y+1/2,-z separated by blanks.
static std::vector<seitz> read_triplets(const std::string& text) {
    std::vector<seitz> ops;
    for (const char* p = text.c_str(); *p != '\0';) {
        seitz op{};
        for (std::size_t i = 0; i < 3; ++i) {
            if (!read_term(p, op, i) || (i < 2 && *p++ != ','))
                table_fail("\"%s\" is not a list of symmetry operations.", text.c_str());
        }
        while (*p == ' ')
            ++p;
        ops.push_back(product(op, identity)); // brings the translation into the cell
    }
    return ops;
}

std::vector<spg_setting> read_settings(const std::string& path) {
    const csv_table csv = read_csv(path, ';');
    const auto column = [&csv](const char* name) { return csv_column(csv, name); };
    std::vector<spg_setting> settings;
    for (std::size_t r = 0; r < csv.rows.size(); ++r) {
        const std::vector<std::string>& row = csv.rows[r];
        const auto number = [&](const char* name) {
            return static_cast<int>(csv_number(csv, r, column(name)));
        };
        spg_setting s;
        s.hall = number("hall_number");
        s.number = number("it_number");
        s.choice = row[column("choice")];
        s.symbol = row[column("symbol")];
        s.hall_symbol = row[column("hall_symbol")];
        s.letter = row[column("letter")][0];
        s.hexagonal = number("hexagonal_axes") == 1;
        s.standard = number("standard") == 1;
        s.num_general = number("general_positions");
        s.generators = read_triplets(row[column("generators")]);
        settings.push_back(s);
    }
    return settings;
}

int table_number(const spg_setting& setting) {
    return setting.standard ? setting.number : 1000 + setting.hall;
}

int class_number(const spg_setting& setting) {
    static const struct {
        int last_number; // the last space group of the Laue class
        int class_other; // on rhombohedral axes, where there is that choice
        int class_hex;
    } classes[] = {
        {2, 1, 1},     // -1
        {15, 2, 2},    // 2/m
        {74, 3, 3},    // mmm
        {88, 4, 4},    // 4/m
        {142, 5, 5},   // 4/mmm
        {148, 8, 9},   // -3
        {167, 10, 11}, // -3m
        {176, 12, 12}, // 6/m
        {194, 13, 13}, // 6/mmm
        {206, 6, 6},   // m-3
        {230, 7, 7},   // m-3m
    };
    for (const auto& c : classes)
        if (setting.number <= c.last_number)
            return setting.letter == 'R' && !setting.hexagonal ? c.class_other : c.class_hex;
    table_fail("There is no space group %d.", setting.number);
}

std::vector<seitz> centring(const spg_setting& setting) {
    static const struct {
        char letter;
        std::array<int, 3> trans;
    } vectors[] = {
        {'I', {12, 12, 12}},
        {'A', {0, 12, 12}},
        {'B', {12, 0, 12}},
        {'C', {12, 12, 0}},
        {'F', {0, 12, 12}},
        {'F', {12, 0, 12}},
        {'F', {12, 12, 0}},
        {'R', {16, 8, 8}},
        {'R', {8, 16, 16}},
    };
    if (std::string("PABCIFR").find(setting.letter) == std::string::npos)
        table_fail("There is no lattice letter %c.", setting.letter);
    std::vector<seitz> ops;
    for (const auto& v : vectors)
        if (v.letter == setting.letter && (v.letter != 'R' || setting.hexagonal))
            ops.push_back({identity.rot, v.trans});
    return ops;
}

static bool contains(const std::vector<seitz>& ops, const seitz& op) {
    for (const seitz& o : ops)
        if (same_op(o, op))
            return true;
    return false;
}

std::vector<seitz> close_group(const spg_setting& setting) {
    std::vector<seitz> generators = setting.generators;
    for (const seitz& c : centring(setting))
        generators.push_back(c);
    std::vector<seitz> group{identity};
    const std::size_t order = static_cast<std::size_t>(setting.num_general);
    for (std::size_t i = 0; i < group.size() && group.size() <= order; ++i) {
        for (const seitz& g : generators) {
            const seitz op = product(g, group[i]);
            if (!contains(group, op))
                group.push_back(op);
        }
    }
    if (group.size() != order)
        table_fail("Setting %d closes to %zu operations, not %zu.", setting.hall, group.size(),
                   order);
    return group;
}

bool has_inversion(const std::vector<seitz>& group) { return contains(group, inversion); }

static bool has_rotation(const std::vector<seitz>& ops, const seitz& op) {
    for (const seitz& o : ops)
        if (o.rot == op.rot)
            return true;
    return false;
}

// The operation of the group with this rotation and the smallest sum of translations, of equal
// sums the one with the largest x, then y.
static seitz smallest_translation(const std::vector<seitz>& group, const seitz& rotation) {
    const seitz* best = nullptr;
    const auto sum = [](const seitz& o) { return o.trans[0] + o.trans[1] + o.trans[2]; };
    for (const seitz& o : group) {
        if (o.rot == rotation.rot && (best == nullptr || sum(o) < sum(*best) ||
                                      (sum(o) == sum(*best) && best->trans < o.trans)))
            best = &o;
    }
    return *best;
}

// The rotations from which every point group is built as a chain of cosets, in the order in which
// they are tried: main axis, second axis, cube diagonal, diagonal axes, inversion.
static const char chain[] = "x-y,x,z -x+y,-x,-z -y,x-y,z "   // 6, -6, 3 along c on hexagonal axes
                            "-y,x,z y,-x,-z -x,-y,z x,y,-z " // 4, -4, 2, m along c
                            "x,-y,-z -x,y,z -x,y,-z x,-y,z " // 2, m along a and b
                            "z,x,y "                         // 3 along the diagonal of the cell
                            "-y,-x,-z y,x,z y,x,-z -y,-x,z " // 2 and m across the face diagonals
                            "-x,-y,-z";

std::vector<seitz> listed_operations(const std::vector<seitz>& group) {
    const bool flag = has_inversion(group);
    const bool centric = has_rotation(group, inversion);
    std::vector<seitz> listed{identity};
    for (const seitz& step : read_triplets(chain)) {
        // a centrosymmetric group is its proper rotations, then these times the inversion
        const bool wanted =
            !centric || determinant(step) == 1 || (!flag && step.rot == inversion.rot);
        if (!wanted || !has_rotation(group, step) || has_rotation(listed, step))
            continue;
        const std::size_t order = listed.size();
        for (seitz power = step; !has_rotation(listed, power); power = product(step, power))
            for (std::size_t i = 0; i < order; ++i)
                listed.push_back(smallest_translation(group, product(power, listed[i])));
    }
    std::size_t generated = flag ? 2 : 1; // operations that the reader makes of each one listed
    generated *= static_cast<std::size_t>(std::count_if(
        group.begin(), group.end(), [](const seitz& o) { return o.rot == identity.rot; }));
    if (listed.size() * generated != group.size())
        table_fail("A group of order %zu with %zu operations listed.", group.size(),
                   listed.size());
    return listed;
}

} // namespace orvel::tables
