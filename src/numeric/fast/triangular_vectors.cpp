// SPDX-License-Identifier: MIT
//
// Eigenvectors of the triangular form and the reflections that carry them back, a strip of columns at a
// time.
#include "numeric/fast/simd.h"

namespace orvel {
namespace ORVEL_MACHINE {

// Sum over j = begin .. end-1 of f_j, or conj(f_j), times row j of a strip. Products with the imaginary
// parts have sums of their own, so that no sum waits for itself twice.
template <bool conj>
static inline strip_row combine_rows(int begin, int end, split_vector f, planes strip) {
    strip_row by_re = {}, by_im = {}, sum;
    for (int j = begin; j < end; ++j) {
        const strip_row x = load_row(row_at(strip, j, 0));
        const cvec<> f_j = all(f.re[j], f.im[j]);
        for (int k = 0; k < strip_registers; ++k) {
            by_re.v[k] = {by_re.v[k].re + f_j.re * x.v[k].re, by_re.v[k].im + f_j.re * x.v[k].im};
            by_im.v[k] = {by_im.v[k].re + f_j.im * x.v[k].im, by_im.v[k].im + f_j.im * x.v[k].re};
        }
    }
    for (int k = 0; k < strip_registers; ++k) {
        const cvec<> a = by_re.v[k], b = by_im.v[k];
        sum.v[k] = conj ? cvec<>{a.re + b.re, a.im - b.im} : cvec<>{a.re - b.re, a.im + b.im};
    }
    return sum;
}

static inline vec<> modulus_1(cvec<> z) { return (z.re < 0 ? -z.re : z.re) + (z.im < 0 ? -z.im : z.im); }

// a / b, scaled by |Re b| + |Im b|.
static inline cvec<> cdiv(cvec<> a, cvec<> b) {
    const vec<> s = modulus_1(b);
    a = {a.re / s, a.im / s};
    b = {b.re / s, b.im / s};
    const vec<> d = b.re * b.re + b.im * b.im;
    return {(a.re * b.re + a.im * b.im) / d, (a.im * b.re - a.re * b.im) / d};
}

// Divides column c of a strip from row i to row end by the element in row i if that is so large that
// its inverse does not count beside it.
static void control_overflow(planes strip, int i, int end, int c, double smallest) {
    const split_vector x = row_at(strip, i, c);
    const double r = __builtin_fabs(x.re[0]) + __builtin_fabs(x.im[0]);
    if (r < smallest || r + 1.0 / r > r)
        return;
    for (; i <= end; ++i) {
        strip.re[i * strip.ld + c] /= r;
        strip.im[i * strip.ld + c] /= r;
    }
}

// The columns of a strip: their eigenvalues and numbers.
struct strip_heads {
    cvec<> w[strip_registers];
    vec<> number[strip_registers];
};

// Divides the sums x of row i by the differences of eigenvalues, in columns behind the diagonal. True if
// some element is large, or no number.
static inline bool divide_sums(const triangle& of, const strip_heads& heads, int i, int end, split_vector row,
                               const strip_row& sum) {
    const double large = 1e7; // below the root of the inverse of a rounding
    bool some_large = false;
    for (int k = 0; k < strip_registers; ++k) {
        cvec<> difference = {heads.w[k].re - of.w[i].re, heads.w[k].im - of.w[i].im};
        const mask<> equal = (difference.re == 0) & (difference.im == 0);
        difference.re = equal ? all(of.replaced_difference) : difference.re;
        const cvec<> quotient = cdiv(sum.v[k], difference);
        const split_vector place = at(row, k * register_lanes);
        const cvec<> before = load(place);
        const mask<> upper = (heads.number[k] > i) & (heads.number[k] < end);
        const cvec<> x = {upper ? quotient.re : before.re, upper ? quotient.im : before.im};
        store(place, x);
        const mask<> above = ~(modulus_1(x) <= large);
        for (int c = 0; c < register_lanes; ++c)
            some_large = some_large || above[c] != 0;
    }
    return some_large;
}

void form_vectors(const triangle& of, int column, planes strip) {
    const int end = column + strip_columns < of.n ? column + strip_columns : of.n;
    strip_heads heads = {};
    for (int c = 0; c < strip_columns; ++c) {
        heads.number[c / register_lanes][c % register_lanes] = column + c;
        if (column + c >= end)
            continue;
        heads.w[c / register_lanes].re[c % register_lanes] = of.w[column + c].re;
        heads.w[c / register_lanes].im[c % register_lanes] = of.w[column + c].im;
        row_at(strip, column + c, c).re[0] = 1.0;
    }
    for (int i = end - 2; i >= 0; --i) {
        const strip_row sum = combine_rows<false>(i + 1, end, row_at(of.t, i, 0), strip);
        if (!divide_sums(of, heads, i, end, row_at(strip, i, 0), sum))
            continue;
        for (int j = i + 1 > column ? i + 1 : column; j < end; ++j)
            control_overflow(strip, i, j, j - column, of.smallest);
    }
}

void reflect_strip(planes strip, planes u, const double* norm, const complex* phase, int first, int last) {
    for (int i = first; i <= last; ++i) {
        strip_row x = load_row(row_at(strip, i, 0));
        for (cvec<>& v : x.v)
            v = mul(all(phase[i].re, phase[i].im), v);
        store_row(row_at(strip, i, 0), x);
    }
    for (int k = last - 1; k > first; --k) {
        if (norm[k] == 0.0)
            continue;
        const split_vector u_k = row_at(u, k, 0);
        strip_row f = combine_rows<true>(k, last + 1, u_k, strip);
        for (cvec<>& v : f.v)
            v = {v.re / norm[k], v.im / norm[k]};
        for (int i = k; i <= last; ++i) {
            strip_row x = load_row(row_at(strip, i, 0));
            for (int m = 0; m < strip_registers; ++m)
                x.v[m] = add_mul(x.v[m], all(u_k.re[i], u_k.im[i]), f.v[m]);
            store_row(row_at(strip, i, 0), x);
        }
    }
}

} // namespace ORVEL_MACHINE
} // namespace orvel
