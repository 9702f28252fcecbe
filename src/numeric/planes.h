// SPDX-License-Identifier: MIT
//
// Matrices as two planes, the form that the kernels work on: made from records, and back.
#pragma once

#include <algorithm>

#include "numeric/kernels.h"
#include "numeric/vecmat.h"

namespace orvel {

// Doubles in a row of planes with n columns and room for some more: whole panels, but no multiple of
// the distance at which all rows would fall into the same few lines of the cache.
inline std::size_t padded_columns(int n, std::size_t room = 0) {
    const std::size_t crowded = 64;
    const std::size_t width = (to_size(n) + room + panel_width - 1) / panel_width * panel_width;
    return width % crowded == 0 ? width + panel_width : width;
}

// Rows of planes with n rows: whole groups.
inline std::size_t padded_rows(int n) { return (to_size(n) + row_group - 1) / row_group * row_group; }

// Doubles of n x n planes.
inline std::size_t planes_size(int n) { return size_product(2 * padded_rows(n), padded_columns(n)); }

// Takes memory from the front of a block.
inline double* take(double*& block, std::size_t count) {
    double* const taken = block;
    block += count;
    return taken;
}
inline double* take_zeros(double*& block, std::size_t count) {
    std::fill(block, block + count, 0.0);
    return take(block, count);
}
inline planes take_planes(double*& block, int n) {
    const std::size_t ld = padded_columns(n);
    const std::size_t size = ld * padded_rows(n);
    double* const re = take(block, size);
    return {re, take(block, size), static_cast<std::ptrdiff_t>(ld)};
}

inline void set_element(planes a, int i, int j, complex z) {
    a.re[i * a.ld + j] = z.re;
    a.im[i * a.ld + j] = z.im;
}

// The n x n records of a as planes, with zeros around, and back.
void to_planes(int n, const complex* const* a, planes p);
void from_planes(int n, planes p, complex** a);

} // namespace orvel
