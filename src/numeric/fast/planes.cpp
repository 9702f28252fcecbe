// SPDX-License-Identifier: MIT
#include "numeric/fast/planes.h"

#include <algorithm>

#include "numeric/vecmat.h"

namespace orvel {

std::size_t padded_columns(int n) {
    const std::size_t line = 8, crowded = 64;
    const std::size_t width = (to_size(n) + group - 1 + line - 1) / line * line;
    return width % crowded == 0 ? width + line : width;
}

static std::size_t padded_rows(int n) { return (to_size(n) + group - 1) / group * group; }

// Zeros from column begin on in rows first .. end-1.
static void fill_with_zeros(planes p, std::size_t first, std::size_t end, std::size_t begin) {
    const std::size_t ld = static_cast<std::size_t>(p.ld);
    for (std::size_t i = first; i < end; ++i) {
        std::fill(p.re + i * ld + begin, p.re + (i + 1) * ld, 0.0);
        std::fill(p.im + i * ld + begin, p.im + (i + 1) * ld, 0.0);
    }
}

planes take_planes(scratch& room, int rows, int columns) {
    const std::size_t ld = padded_columns(columns), all_rows = padded_rows(rows);
    const std::size_t size = size_product(all_rows, ld);
    double* const re = take<double>(room, size_product(2, size));
    const planes p = {re, re + size, static_cast<std::ptrdiff_t>(ld)};
    fill_with_zeros(p, 0, to_size(rows), to_size(columns));
    fill_with_zeros(p, to_size(rows), all_rows, 0);
    return p;
}

planes take_zero_planes(scratch& room, int rows, int columns) {
    const planes p = take_planes(room, rows, columns);
    fill_with_zeros(p, 0, to_size(rows), 0);
    return p;
}

split_vector take_zero_vector(scratch& room, int n) {
    const planes p = take_zero_planes(room, 1, n);
    return {p.re, p.im};
}

void split(int n, const complex* z, split_vector x) {
    for (int j = 0; j < n; ++j)
        set_element(x, j, z[j]);
}

void join(int n, split_vector x, complex* z) {
    for (int j = 0; j < n; ++j)
        z[j] = element(x, j);
}

void to_planes(int rows, int columns, const complex* const* m, planes p) {
    for (int i = 0; i < rows; ++i)
        split(columns, m[i], row_at(p, i, 0));
}

void from_planes(int rows, int columns, planes p, complex** m) {
    for (int i = 0; i < rows; ++i)
        join(columns, row_at(p, i, 0), m[i]);
}

} // namespace orvel
