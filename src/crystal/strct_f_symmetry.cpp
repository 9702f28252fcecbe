// SPDX-License-Identifier: MIT
#include "crystal/strct_f_symmetry.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/utils.h"
#include "numeric/vecmat.h"

namespace orvel {

static const char* const spg_file_name = "orvelspg.dat";

// Centring translations that each lattice letter adds, in the order of their blocks.
static const struct {
    char letter;
    int count;
    double trans[3][3];
} centrings[] = {
    {'P', 0, {}},
    {'I', 1, {{0.5, 0.5, 0.5}}},
    {'A', 1, {{0.0, 0.5, 0.5}}},
    {'B', 1, {{0.5, 0.0, 0.5}}},
    {'C', 1, {{0.5, 0.5, 0.0}}},
    {'F', 3, {{0.0, 0.5, 0.5}, {0.5, 0.0, 0.5}, {0.5, 0.5, 0.0}}},
    {'R', 2, {{0.6666667, 0.3333333, 0.3333333}, {0.3333333, 0.6666667, 0.6666667}}},
};
static const int largest_expansion = 8; // F centring and inversion

// Head line of a record of the table.
struct spg_head {
    int num_listed;
    int inversion_flag;
    int sg_no;
    int group_class;
    char letter;     // '\0' if the line has fewer than five tokens
    int num_numbers; // of the four in front of it, how many there are
};

static spg_head parse_head(char* line) {
    spg_head head = {};
    int* const numbers[4] = {&head.num_listed, &head.inversion_flag, &head.sg_no, &head.group_class};
    const char* token = std::strtok(line, separators);
    for (int* number : numbers) {
        if (token == nullptr)
            return head;
        *number = text_to_int(token);
        ++head.num_numbers;
        token = std::strtok(nullptr, separators);
    }
    if (token != nullptr)
        head.letter = token[0];
    return head;
}

// Leaves the file behind the head line of the wanted record.
static spg_head find_head(int sg_no, std::FILE* file) {
    char line[table_line_max];
    while (comment_skip_fgets(table_line_max, line, file) != nullptr) {
        const spg_head head = parse_head(line);
        if (head.sg_no == sg_no && head.num_numbers >= 3) // what a line lacks is 0
            return head;
        for (int i = 0; i < head.num_listed; ++i)
            if (comment_skip_fgets(table_line_max, line, file) == nullptr)
                break;
    }
    ov_abort(stdout, "$$ Space group no. = %d is not found in the table.\n", sg_no);
}

// Appends a copy of the first n operations with a translation added.
static void append_centring(int n, const double* trans, int& num_sym_op, sym_op* sym_ops) {
    for (int i = 0; i < n; ++i) {
        sym_op op = sym_ops[i];
        for (int x = 0; x < 3; ++x)
            op.trans[x] += trans[x];
        sym_ops[num_sym_op++] = op;
    }
}

static void append_centrings(char letter, int r_hex_axes, int& num_sym_op, sym_op* sym_ops) {
    const int n = num_sym_op;
    for (const auto& centring : centrings) {
        if (centring.letter != letter)
            continue;
        // On rhombohedral axes the listed operations are complete.
        const int count = letter == 'R' && r_hex_axes == 0 ? 0 : centring.count;
        for (int block = 0; block < count; ++block)
            append_centring(n, centring.trans[block], num_sym_op, sym_ops);
        return;
    }
    ov_abort(stderr, "Invalid lattice type in space-group table.\n");
}

sym_op* read_sp_group_tbl(int sg_no, int& num_sym_op, int& inversion_flag, char* latt_type, int& r_hex_axes) {
    std::FILE* file = ov_fopen_rmode(spg_file_name);
    if (file == nullptr)
        ov_abort(stdout, "Cannot open %s.\n", spg_file_name);
    const spg_head head = find_head(sg_no, file);
    if (head.num_listed < 1)
        table_format_error(spg_file_name);
    inversion_flag = head.inversion_flag;
    latt_type[0] = head.letter;
    latt_type[1] = '\0';
    // Laue classes -3 and -3m on hexagonal axes.
    r_hex_axes = head.letter == 'R' && (head.group_class == 9 || head.group_class == 11) ? 1 : 0;

    sym_op* sym_ops = new_vector<sym_op>(size_product(to_size(head.num_listed), largest_expansion));
    char line[table_line_max];
    for (num_sym_op = 0; num_sym_op < head.num_listed; ++num_sym_op) {
        if (comment_skip_fgets(table_line_max, line, file) == nullptr)
            table_format_error(spg_file_name);
        sym_ops[num_sym_op] = decode_sym_op(line);
    }
    std::fclose(file);

    append_centrings(head.letter, r_hex_axes, num_sym_op, sym_ops);
    if (inversion_flag == 1) {
        const int n = num_sym_op;
        for (int i = 0; i < n; ++i)
            sym_ops[num_sym_op++] = inv_sym_op(sym_ops[i]);
    }
    return sym_ops;
}

// One digit of a fraction; what is no digit reads as 0.
static double digit(char c) { return c >= '0' && c <= '9' ? c - '0' : 0; }

sym_op decode_sym_op(char* line) {
    static const char letters[3] = {'X', 'Y', 'Z'};
    sym_op op = {};
    const char* term = std::strtok(line, ",");
    for (int i = 0; i < 3; ++i) {
        if (term == nullptr)
            table_format_error(spg_file_name);
        const char* minus = std::strchr(term, '-');
        for (int j = 0; j < 3; ++j) {
            if (std::strchr(term, letters[j]) != nullptr)
                op.rot[3 * j + i] = minus != nullptr && minus[1] == letters[j] ? -1.0 : 1.0;
        }
        const char* slash = std::strchr(term, '/');
        if (slash != nullptr && slash != term) {
            const double denominator = digit(slash[1]);
            if (denominator == 0.0)
                table_format_error(spg_file_name);
            op.trans[i] = digit(slash[-1]) / denominator;
        }
        term = std::strtok(nullptr, ",");
    }
    return op;
}

sym_op inv_sym_op(const sym_op& op) {
    sym_op inverse;
    for (int i = 0; i < 9; ++i)
        inverse.rot[i] = -op.rot[i];
    for (int i = 0; i < 3; ++i)
        inverse.trans[i] = -op.trans[i];
    return inverse;
}

r_uvw gen_pos(r_uvw position, const sym_op& op) {
    const double x[3] = {position.u, position.v, position.w};
    double moved[3];
    for (int i = 0; i < 3; ++i)
        moved[i] = op.rot[i] * x[0] + op.rot[3 + i] * x[1] + op.rot[6 + i] * x[2] + op.trans[i];
    return {moved[0], moved[1], moved[2]};
}

hkl gen_reflex(hkl g, const sym_op& op) {
    // Sums of products of small whole numbers are exact; the conversion guards a beam typed in
    // with indices at the limits of int.
    const double h[3] = {static_cast<double>(g.h), static_cast<double>(g.k), static_cast<double>(g.l)};
    int moved[3];
    const double* rot = op.rot;
    for (int j = 0; j < 3; ++j, rot += 3)
        moved[j] = real_to_int(rot[0] * h[0] + rot[1] * h[1] + rot[2] * h[2]);
    return {moved[0], moved[1], moved[2]};
}

double fractional(double x) {
    double f = x - std::floor(x);
    if (f >= 1.0)
        f -= 1.0;
    return f;
}

int judge_two_atom(r_uvw position1, r_uvw position2) {
    const double tolerance = 0.0001;
    const double p1[3] = {position1.u, position1.v, position1.w};
    const double p2[3] = {position2.u, position2.v, position2.w};
    for (int i = 0; i < 3; ++i) {
        const double d = std::fabs(fractional(p1[i]) - fractional(p2[i]));
        if (!(d < tolerance || std::fabs(d - 1) < tolerance))
            return 0;
    }
    return 1;
}

int special_pos_check(int n, r_uvw* positions) {
    int kept = 0;
    for (int i = 0; i < n; ++i) {
        int known = 0;
        while (known < kept && judge_two_atom(positions[i], positions[known]) == 0)
            ++known;
        if (known == kept)
            positions[kept++] = positions[i];
    }
    return kept;
}

} // namespace orvel
