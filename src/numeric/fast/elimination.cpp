// SPDX-License-Identifier: MIT
#include "numeric/fast/elimination.h"

#include <algorithm>

namespace orvel {

elimination new_elimination(scratch& room, int rows, int columns, int steps, bool inverting) {
    return {rows, columns, steps, inverting, take_planes(room, rows, columns), take_planes(room, steps, rows),
            take<int>(room, to_size(steps))};
}

// A square below which a modulus is smaller than that of z for certain; none if it is out of range.
static double clearly_smaller(complex z) {
    const double safe = 1 - 1e-14, least = 1e-280, most = 1e280;
    const double square = c_norm(z);
    return square > least && square < most ? safe * square : -1.0;
}

// Place of the largest of n moduli, the first one on ties.
static int largest_modulus(int n, split_vector x) {
    int place = 0;
    double passed = clearly_smaller(element(x, 0));
    for (int i = 1; i < n; ++i) {
        const complex z = element(x, i);
        if (c_norm(z) < passed || !(c_abs(z) > c_abs(element(x, place))))
            continue;
        place = i;
        passed = clearly_smaller(z);
    }
    return place;
}

static void exchange(int n, split_vector x, split_vector y) {
    std::swap_ranges(x.re, x.re + n, y.re);
    std::swap_ranges(x.im, x.im + n, y.im);
}

// Brings column d of a panel up to date with the first c columns of it.
static void update_column(int rows, int c, planes panel, int d) {
    for (int i = 1; i < c; ++i)
        for (int q = 0; q < i; ++q)
            set_element(panel, d, i, c_add(element(panel, d, i), c_mul(element(panel, q, i), element(panel, d, q))));
    add_product(1, rows - c, c, at(panel, d, c), as_factors(at(panel, d, 0)), at(panel, 0, c));
}

// Factorises the columns of the panel that begins at k0, its multipliers with negative sign.
static bool factorise_panel(const elimination& e, int k0, int width, double limit) {
    const int rows = e.rows - k0;
    const planes panel = at(e.panels, k0, k0);
    for (int c = 0; c < width; ++c)
        for (int i = 0; i < rows; ++i)
            set_element(panel, c, i, element(e.a, k0 + i, k0 + c));
    for (int c = 0; c < width; ++c) {
        if (c > 0)
            update_column(rows, c, panel, c);
        const int p = c + largest_modulus(e.steps - k0 - c, row_at(panel, c, c));
        const complex pivot = element(panel, c, p);
        if (c_abs(pivot) <= limit)
            return false;
        e.perm[k0 + c] = k0 + p;
        for (int d = 0; d < width && p != c; ++d)
            exchange(1, row_at(panel, d, c), row_at(panel, d, p));
        scale_row(rows - c - 1, c_div({-1.0, 0.0}, pivot), row_at(panel, c, c + 1));
    }
    return true;
}

// The columns of a panel become those of the unit matrix, from its first row on.
static void begin_inverse(const elimination& e, int k0, int width) {
    for (int i = k0; i < e.rows; ++i)
        for (int j = k0; j < k0 + width; ++j)
            set_element(e.a, i, j, {i == j ? 1.0 : 0.0, 0.0});
}

// Takes a panel into the other columns of the matrix.
static void update_matrix(const elimination& e, int k0, int width) {
    const int first = e.inverting ? 0 : k0 + width;
    const int n = e.columns - first;
    for (int k = k0; k < k0 + width; ++k)
        if (e.perm[k] != k)
            exchange(n, row_at(e.a, k, first), row_at(e.a, e.perm[k], first));
    if (e.inverting)
        begin_inverse(e, k0, width);
    const planes panel = at(e.panels, k0, k0), rows = at(e.a, k0, first);
    for (int c = 1; c < width; ++c)
        add_product(1, n, c, at(rows, c, 0), as_transposed_factors(at(panel, 0, c)), rows);
    add_product(e.rows - k0 - width, n, width, at(rows, width, 0), as_transposed_factors(at(panel, 0, width)), rows);
    for (int c = 0; c < width; ++c)
        for (int i = 0; i <= c; ++i)
            set_element(e.a, k0 + i, k0 + c, element(panel, c, i));
}

bool eliminate(const elimination& e, double limit) {
    for (int k0 = 0; k0 < e.steps; k0 += panel_columns) {
        const int width = std::min(panel_columns, e.steps - k0);
        if (!factorise_panel(e, k0, width, limit))
            return false;
        update_matrix(e, k0, width);
    }
    return true;
}

} // namespace orvel
