// SPDX-License-Identifier: MIT
//
// Rows of a panel in registers; for kernel sources alone, as lanes.h.
#pragma once

#include "numeric/kernels.h"
#include "numeric/lanes.h"

namespace orvel {
namespace {

constexpr int row_vectors = panel_width / lanes;

struct row_part {
    cvec v[row_vectors];
};

inline row_part load_row(const double* re, const double* im) {
    row_part x;
    for (int k = 0; k < row_vectors; ++k)
        x.v[k] = load(re + k * lanes, im + k * lanes);
    return x;
}
inline row_part load_row(const double* row) { return load_row(row, row + panel_width); }

inline void store_row(double* re, double* im, const row_part& x) {
    for (int k = 0; k < row_vectors; ++k)
        store(re + k * lanes, im + k * lanes, x.v[k]);
}
inline void store_row(double* row, const row_part& x) { store_row(row, row + panel_width, x); }

} // namespace
} // namespace orvel
