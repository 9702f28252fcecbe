// SPDX-License-Identifier: MIT
#include "crystal/atom_bk.h"

#include <cmath>
#include <cstring>

#include "control/limits.h"
#include "control/ov_debug.h"
#include "control/ov_input.h"
#include "control/utils.h"

namespace orvel {

static const char* const bk_file_name = "orvelbk.dat";

static void next_line(char* line, std::FILE* file) {
    if (comment_skip_fgets(line_max, line, file) == nullptr)
        table_format_error(bk_file_name);
}

static void read_head_word(const char* word, std::FILE* file) {
    char line[line_max];
    next_line(line, file);
    if (std::strncmp(line, word, std::strlen(word)) != 0)
        table_format_error(bk_file_name);
}

// A row of n numbers, all of which must be there.
static void read_numbers(int n, double* values, std::FILE* file) {
    char line[line_max];
    next_line(line, file);
    if (str_to_fs(n, rm_cr(line), values) < n)
        table_format_error(bk_file_name);
}

static void read_rows(int rows, int n, double* values, std::FILE* file) {
    for (int row = 0; row < rows; ++row, values += n)
        read_numbers(n, values, file);
}

static void read_header(bk_tbl& bk, std::FILE* file) {
    read_head_word("DTS", file);
    read_rows(3, 9, bk.dts, file);
    read_head_word("GM", file);
    read_rows(1, 6, bk.gm, file);
    read_head_word("GMS2", file);
    read_rows(2, 5, bk.gms2, file);
}

// The nine lines behind an entry's name.
static void read_entry(bk_tbl& bk, std::FILE* file) {
    double factors[2];
    read_numbers(2, factors, file);
    bk.mlt_fct = factors[0];
    bk.add_fct = factors[1];
    read_rows(3, 9, bk.dt, file);
    double code[bk_num_b * bk_num_m];
    read_rows(4, 13, code, file);
    read_rows(1, 8, code + 52, file);
    for (int n = 0; n < bk_num_b * bk_num_m; ++n)
        bk.f[n % bk_num_b][n / bk_num_b] = code[n];
}

bk_tbl read_atom_dat_table(const char* element) {
    const int lines_behind_name = 9;
    bk_tbl bk;
    std::FILE* file = fopen_chk_rmode(bk_file_name);
    read_header(bk, file);
    char line[line_max];
    while (comment_skip_fgets(line_max, line, file) != nullptr) {
        if (std::strcmp(rm_cr(line), element) == 0) {
            read_entry(bk, file);
            std::fclose(file);
            return bk;
        }
        for (int skipped = 0; skipped < lines_behind_name; ++skipped)
            comment_skip_fgets(line_max, line, file);
    }
    error_exit(stdout, "Element %s was not found in %s", element, bk_file_name);
}

// Weights of the Lagrange polynomial through n points at x.
static void lagrange_weights(int n, const double* xs, double x, double* weights) {
    for (int i = 0; i < n; ++i) {
        weights[i] = 1.0;
        for (int j = 0; j < n; ++j)
            if (j != i)
                weights[i] *= (x - xs[j]) / (xs[i] - xs[j]);
    }
}

static double weighted_sum(int n, const double* weights, const double* ys) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i)
        sum += weights[i] * ys[i];
    return sum;
}

static double lagrange(int n, const double* xs, double x, const double* ys) {
    double weights[4];
    lagrange_weights(n, xs, x, weights);
    return weighted_sum(n, weights, ys);
}

double quad_int(const double* xs, double x, const double* ys) { return lagrange(3, xs, x, ys); }

double cub_int(const double* xs, double x, const double* ys) { return lagrange(4, xs, x, ys); }

// Smallest p from first up with x < xs[p], but at most last.
static int interval(double x, const double* xs, int first, int last) {
    int p = first;
    while (p < last && !(x < xs[p]))
        ++p;
    return p;
}

double cub_int_2(double x, int n, const double* xs, const double* ys) {
    const int p = interval(x, xs, 2, n - 2);
    return cub_int(xs + p - 2, x, ys + p - 2);
}

// Interpolation over size x size decoded values from row and column on: first over B, then over M.
static double fabs_stencil(int size, int row, int column, double B, double M, const bk_tbl& bk) {
    const double mlt = 10 / bk.mlt_fct;
    const double add = 1e-6 * bk.add_fct;
    double row_weights[4], at_B[4];
    lagrange_weights(size, bk.gm + row, B, row_weights);
    for (int j = 0; j < size; ++j) {
        const double factor = std::exp(bk.gms2[column + j]);
        double decoded[4];
        for (int i = 0; i < size; ++i)
            decoded[i] = (bk.f[row + i][column + j] * mlt - add) * factor;
        at_B[j] = weighted_sum(size, row_weights, decoded);
    }
    return lagrange(size, bk.gms2 + column, M, at_B);
}

double fabs_bi_quad_int(double B, double M, int p, int q, const bk_tbl& bk) {
    return fabs_stencil(3, p - 2, q - 2, B, M, bk);
}

double fabs_bi_cub_int(double B, double M, const bk_tbl& bk) {
    const int p = interval(B, bk.gm, 2, 4);
    const int q = interval(M, bk.gms2, 2, 8);
    return fabs_stencil(4, p - 2, q - 2, B, M, bk);
}

// Mean of the 3 x 3 stencils that overlap the cell of (B, M): two neighbours in each direction,
// one at the edges of the table, where a second one would have no rows or columns.
static double fabs_mean_of_quads(double B, double M, const bk_tbl& bk) {
    const int last_row = bk_num_b - 1;
    const int last_column = bk_num_m - 1;
    int i = interval(B, bk.gm, 1, last_row);
    const int j = interval(M, bk.gms2, 1, last_column);
    const int q_begin = j == 1 ? 2 : j;
    int q_end = j > 1 && j < last_column ? j + 1 : q_begin;
    if (i == 1) {
        i = 2;
        if (j == 1)
            q_end = 3;
    }
    const int p_end = i < last_row ? i + 1 : i;

    double sum = 0.0;
    for (int p = i; p <= p_end; ++p)
        for (int q = q_begin; q <= q_end; ++q)
            sum += fabs_bi_quad_int(B, M, p, q, bk);
    return sum / ((p_end - i + 1) * (q_end - q_begin + 1));
}

int atom_bk(const bk_tbl& bk, double s, double B, double pair[2], double kv) {
    const double kv_max = 10000;
    const double cubic_from = 2; // M from which the absorptive function is smooth enough

    pair[0] = pair[1] = 0.0;
    if (s > bk.dts[bk_num_s - 1])
        return bk_s_beyond_table;
    if (s < 0)
        return bk_s_negative;
    if (kv <= 0 || kv > kv_max)
        return bk_voltage_invalid;

    double table_B = B;
    int status = bk_in_range;
    if (B < 0) {
        table_B = 0;
        status = bk_b_outside_table;
    } else if (B > bk.gm[bk_num_b - 1]) {
        table_B = bk.gm[bk_num_b - 1];
        status = bk_b_outside_table;
    }
    // v/c from the energy; 261127 keV^2 and 1022 keV are this program's m0^2 c^4 and 2 m0 c^2.
    const double beta = std::sqrt(1 - 261127 / (kv * (kv + 1022) + 261127));
    pair[0] = cub_int_2(s, bk_num_s, bk.dts, bk.dt) / 1000;

    const double M = B * s * s;
    if (table_B < bk.gm[0] || M > bk.gms2[bk_num_m - 1])
        return status;
    const double I = M >= cubic_from ? fabs_bi_cub_int(table_B, M, bk) : fabs_mean_of_quads(table_B, M, bk);
    pair[1] = pair[0] / beta * I;
    return status;
}

} // namespace orvel
