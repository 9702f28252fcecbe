// SPDX-License-Identifier: MIT
#include "numeric/elimination.h"

#include <algorithm>

#include "numeric/vecmat.h"

namespace orvel {

elimination new_elimination(int rows, int columns, int steps, double smallest, bool inverting, int* perm) {
    return {rows, columns, steps, smallest, inverting, work_planes(slot_eliminated, rows, columns),
            work_planes(slot_panels, steps + 1, rows), perm};
}

complex panel_element(const elimination& e, int i, int k) {
    return element(e.panels, k, i);
}

// Row first .. end-1 with the largest modulus in a column of the panels, the first one on ties.
// Squares decide unless they are too close, or out of range.
static int largest_in_panel(const elimination& e, int first, int end, int k) {
    const double close = 1 - 1e-14, least = 1e-280, most = 1e280;
    const planes column = part(e.panels, k, first);
    largest_square found;
    double* square = part(e.panels, e.steps, 0).re; // a column of its own
    find_largest(end - first, column.re, column.im, close, square, &found);
    const bool safe = found.largest > least && found.largest < most && square[0] == square[0];
    if (safe && found.count == 1)
        return first + found.first;
    int row = first;
    for (int i = first + 1; i < end; ++i)
        if (c_abs(panel_element(e, i, k)) > c_abs(panel_element(e, row, k)))
            row = i;
    return row;
}

// z += x y for elements of planes.
static void add_to(planes z, planes x, planes y) {
    *z.re += *x.re * *y.re - *x.im * *y.im;
    *z.im += *x.re * *y.im + *x.im * *y.re;
}

// Brings column d of a panel up to date with the first c columns of it.
static void update_column(int rows, int c, planes panel, int d) {
    for (int i = 1; i < c; ++i)
        for (int q = 0; q < i; ++q)
            add_to(part(panel, d, i), part(panel, q, i), part(panel, d, q));
    const planes x = part(panel, d, 0);
    add_product(1, rows - c, c, part(x, 0, c), {x.re, x.im, 0, 1}, part(panel, 0, c));
}

// Factorises the columns of the panel that begins at k0, its multipliers with negative sign. Returns
// the number of columns done; those behind a column without a pivot are brought up to date as well.
static int factorise_panel(const elimination& e, int k0, int width) {
    const int rows = e.rows - k0;
    const planes from = part(e.a, k0, k0), panel = part(e.panels, k0, k0);
    rows_to_columns(rows, width, from.re, from.ld, panel.re, panel.ld);
    rows_to_columns(rows, width, from.im, from.ld, panel.im, panel.ld);
    for (int c = 0; c < width; ++c) {
        const int k = k0 + c;
        if (c > 0)
            update_column(rows, c, panel, c);
        e.perm[k] = largest_in_panel(e, k, e.steps, k);
        const complex pivot = panel_element(e, e.perm[k], k);
        if (c_abs(pivot) < e.smallest) {
            for (int d = c + 1; d < width && c > 0; ++d)
                update_column(rows, c, panel, d);
            return c;
        }
        for (int d = 0; d < width && e.perm[k] != k; ++d) {
            std::swap(*part(panel, d, c).re, *part(panel, d, e.perm[k] - k0).re);
            std::swap(*part(panel, d, c).im, *part(panel, d, e.perm[k] - k0).im);
        }
        const planes below = part(panel, c, c + 1);
        scale_row(rows - c - 1, below.re, below.im, c_div({-1.0, 0.0}, pivot));
    }
    return width;
}

// The columns of a panel become those of the unit matrix, from its first row on.
static void begin_inverse(const elimination& e, int k0, int width) {
    for (int i = k0; i < e.rows; ++i) {
        const planes row = part(e.a, i, k0);
        std::fill(row.re, row.re + width, 0.0);
        std::fill(row.im, row.im + width, 0.0);
        if (i < k0 + width)
            row.re[i - k0] = 1.0;
    }
}

// Takes the first done columns of a panel into the other columns of the matrix.
static void update_matrix(const elimination& e, int k0, int width, int done) {
    const int first = e.inverting ? 0 : k0 + width;
    const int n = e.columns - first;
    for (int k = k0; k < k0 + done; ++k)
        if (e.perm[k] != k)
            exchange_rows(n, part(e.a, 0, first), k, e.perm[k]);
    if (e.inverting)
        begin_inverse(e, k0, width);
    const planes panel = part(e.panels, k0, k0), rows = part(e.a, k0, first);
    for (int c = 1; c < done; ++c)
        add_product(1, n, c, part(rows, c, 0), {panel.re + c, panel.im + c, 1, panel.ld}, rows);
    add_product(e.rows - k0 - done, n, done, part(rows, done, 0),
                {panel.re + done, panel.im + done, 1, panel.ld}, rows);
    for (int c = 0; c < width; ++c) {
        for (int i = 0; i <= c; ++i) {
            *part(e.a, k0 + i, k0 + c).re = *part(panel, c, i).re;
            *part(e.a, k0 + i, k0 + c).im = *part(panel, c, i).im;
        }
    }
}

int eliminate(const elimination& e) {
    for (int k0 = 0; k0 < e.steps; k0 += panel_columns) {
        const int width = std::min(panel_columns, e.steps - k0);
        const int done = factorise_panel(e, k0, width);
        update_matrix(e, k0, width, done);
        if (done < width)
            return k0 + done;
    }
    return e.steps;
}

} // namespace orvel
