// SPDX-License-Identifier: MIT
//
// Rotations of the QR iteration that are known already, on other rows and columns. Of each pair of rows
// (or columns) that a rotation mixes, the one that the next rotation mixes again stays in registers.
#include "numeric/fast/simd.h"

namespace orvel {
namespace ORVEL_MACHINE {

// ---- rows -----------------------------------------------------------------------------------

// Rows j - 1 and j: (a, b) := (conj(c) a + s b, c b - s a).
void rotate_rows(planes strip, int first, int last, const rotation* g) {
    strip_row carried = load_row(row_at(strip, first, 0));
    for (int j = first + 1; j <= last; ++j) {
        const cvec<> c = all(g[j].c_re, g[j].c_im);
        const vec<> s = all(g[j].s);
        const strip_row next = load_row(row_at(strip, j, 0));
        strip_row out;
        for (int k = 0; k < strip_registers; ++k) {
            const cvec<> a = carried.v[k], b = next.v[k];
            out.v[k] = {s * b.re + c.re * a.re + c.im * a.im, s * b.im + c.re * a.im - c.im * a.re};
            carried.v[k] = {c.re * b.re - c.im * b.im - s * a.re, c.re * b.im + c.im * b.re - s * a.im};
        }
        store_row(row_at(strip, j - 1, 0), out);
    }
    store_row(row_at(strip, last, 0), carried);
}

void apply_sweeps(planes h, int column, int num_sweeps, const qr_sweep* sweeps) {
    for (int k = 0; k < num_sweeps; ++k) {
        const qr_sweep& step = sweeps[k];
        if (step.last >= column)
            continue;
        rotate_rows(at(h, 0, column), step.first, step.last, step.g);
        strip_row last = load_row(row_at(h, step.last, column));
        for (cvec<>& x : last.v)
            x = conj_mul(all(step.row_phase.re, step.row_phase.im), x);
        store_row(row_at(h, step.last, column), last);
    }
}

// ---- columns --------------------------------------------------------------------------------

// Turns a square of group rows in registers into its columns, and back.
static inline void transpose_square(vec<group>* x) {
    const vec<group> even_01 = __builtin_shufflevector(x[0], x[1], 0, 4, 2, 6);
    const vec<group> odd_01 = __builtin_shufflevector(x[0], x[1], 1, 5, 3, 7);
    const vec<group> even_23 = __builtin_shufflevector(x[2], x[3], 0, 4, 2, 6);
    const vec<group> odd_23 = __builtin_shufflevector(x[2], x[3], 1, 5, 3, 7);
    x[0] = __builtin_shufflevector(even_01, even_23, 0, 1, 4, 5);
    x[1] = __builtin_shufflevector(odd_01, odd_23, 0, 1, 4, 5);
    x[2] = __builtin_shufflevector(even_01, even_23, 2, 3, 6, 7);
    x[3] = __builtin_shufflevector(odd_01, odd_23, 2, 3, 6, 7);
}

static inline cvec<group> load_column(planes h) {
    cvec<group> x;
    for (int r = 0; r < group; ++r) {
        x.re[r] = h.re[r * h.ld];
        x.im[r] = h.im[r * h.ld];
    }
    return x;
}

static inline void store_column(planes h, cvec<group> x) {
    for (int r = 0; r < group; ++r) {
        h.re[r * h.ld] = x.re[r];
        h.im[r * h.ld] = x.im[r];
    }
}

// (x, y) := (c x + s y, conj(c) y - s x); leaves y in x's place and returns x.
static inline cvec<group> rotate_pair(cvec<group>& x, cvec<group> y, const rotation& g) {
    const cvec<group> a = x, c = all<group>(g.c_re, g.c_im);
    const vec<group> s = all<group>(g.s);
    x = {c.re * y.re + c.im * y.im - s * a.re, c.re * y.im - c.im * y.re - s * a.im};
    return {s * y.re + c.re * a.re - c.im * a.im, s * y.im + c.re * a.im + c.im * a.re};
}

// Rotations begin .. last of a group of rows.
static inline void rotate_columns_of_group(planes h, int begin, int last, const rotation* g, cvec<group> phase) {
    cvec<group> carried = load_column(at(h, 0, begin - 1));
    int j = begin;
    for (; j + group <= last + 1; j += group) {
        vec<group> re[group], im[group];
        for (int r = 0; r < group; ++r) {
            re[r] = load<group>(row_at(h, r, j).re);
            im[r] = load<group>(row_at(h, r, j).im);
        }
        transpose_square(re);
        transpose_square(im);
        for (int k = 0; k < group; ++k) {
            const cvec<group> out = rotate_pair(carried, {re[k], im[k]}, g[j + k]);
            re[k] = out.re;
            im[k] = out.im;
        }
        transpose_square(re);
        transpose_square(im);
        for (int r = 0; r < group; ++r) {
            store(row_at(h, r, j - 1).re, re[r]);
            store(row_at(h, r, j - 1).im, im[r]);
        }
    }
    for (; j <= last; ++j)
        store_column(at(h, 0, j - 1), rotate_pair(carried, load_column(at(h, 0, j)), g[j]));
    store_column(at(h, 0, last), mul(phase, carried));
}

void rotate_columns(planes h, int first, int last, const rotation* g, complex phase) {
    for (int i = 0; i <= last; i += group)
        rotate_columns_of_group(at(h, i, 0), i > first ? i : first + 1, last, g, all<group>(phase.re, phase.im));
}

// ---- vectors --------------------------------------------------------------------------------

// Rows j - 1 and j: (a, b) := (c a - s b, s a + conj(c) b), from the last pair to the first.
static inline void rotate_up(planes strip, const qr_sweep& step) {
    strip_row carried = load_row(row_at(strip, step.last, 0));
    for (cvec<>& x : carried.v)
        x = mul(all(step.column_phase.re, step.column_phase.im), x);
    for (int j = step.last; j > step.first; --j) {
        const cvec<> c = all(step.g[j].c_re, step.g[j].c_im);
        const vec<> s = all(step.g[j].s);
        const strip_row above = load_row(row_at(strip, j - 1, 0));
        strip_row out;
        for (int k = 0; k < strip_registers; ++k) {
            const cvec<> a = above.v[k], b = carried.v[k];
            out.v[k] = {s * a.re + c.re * b.re + c.im * b.im, s * a.im + c.re * b.im - c.im * b.re};
            carried.v[k] = {c.re * a.re - c.im * a.im - s * b.re, c.re * a.im + c.im * a.re - s * b.im};
        }
        store_row(row_at(strip, j, 0), out);
    }
    store_row(row_at(strip, step.first, 0), carried);
}

void apply_sweeps_back(planes strip, int column, int num_sweeps, const qr_sweep* sweeps) {
    for (int k = num_sweeps - 1; k >= 0; --k)
        if (sweeps[k].first < column + strip_columns)
            rotate_up(strip, sweeps[k]);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
