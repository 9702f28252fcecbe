// SPDX-License-Identifier: MIT
//
// Rows of a panel in registers; for kernel sources alone, as lanes.h.
#pragma once

#include "numeric/kernels.h"
#include "numeric/lanes.h"

namespace orvel {
namespace {

// As many numbers as a register of the machine holds.
#if defined(__AVX512F__)
constexpr int row_lanes = 8;
#elif defined(__AVX2__)
constexpr int row_lanes = 4;
#else
constexpr int row_lanes = 2;
#endif
constexpr int row_vectors = panel_width / row_lanes;
typedef double row_vec __attribute__((vector_size(8 * row_lanes)));
typedef long long row_mask __attribute__((vector_size(8 * row_lanes)));
typedef row_vec unaligned_row_vec __attribute__((aligned(8), may_alias));
using row_cvec = complex_lanes<row_vec>;

inline row_vec row_all(double x) { return row_vec{} + x; }
inline row_cvec row_all(double re, double im) { return {row_all(re), row_all(im)}; }

struct row_part {
    row_cvec v[row_vectors];
};

inline row_vec load_part(const double* p) { return *reinterpret_cast<const unaligned_row_vec*>(p); }
inline void store_part(double* p, row_vec x) { *reinterpret_cast<unaligned_row_vec*>(p) = x; }

inline row_cvec load_part(const double* re, const double* im) { return {load_part(re), load_part(im)}; }
inline void store_part(double* re, double* im, row_cvec z) {
    store_part(re, z.re);
    store_part(im, z.im);
}

inline double sum_of_part(row_vec x) {
    double sum = 0.0;
    for (int i = 0; i < row_lanes; ++i)
        sum += x[i];
    return sum;
}

inline row_part load_row(const double* re, const double* im) {
    row_part x;
    for (int k = 0; k < row_vectors; ++k)
        x.v[k] = load_part(re + k * row_lanes, im + k * row_lanes);
    return x;
}
inline row_part load_row(const double* row) { return load_row(row, row + panel_width); }

inline void store_row(double* re, double* im, const row_part& x) {
    for (int k = 0; k < row_vectors; ++k)
        store_part(re + k * row_lanes, im + k * row_lanes, x.v[k]);
}
inline void store_row(double* row, const row_part& x) { store_row(row, row + panel_width, x); }

} // namespace
} // namespace orvel
