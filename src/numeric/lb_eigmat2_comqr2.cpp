// SPDX-License-Identifier: MIT
//
// comqr2 of the chain. Indices inside count from 0: lo..hi are the rows that balancing has left,
// low - 1 to igh - 1. While it iterates, the transformation is held transposed (zt), so that the
// rotation of two of its columns walks along two rows.
#include "numeric/lb_eigmat2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_mpi.h"
#include "numeric/lb_rows.h"
#include "numeric/vecmat.h"

namespace orvel {

double pythag(double a, double b) {
    const double x = std::fabs(a);
    const double y = std::fabs(b);
    double p = x > y ? x : y;
    double r = (x > y ? y : x) / p;
    if (!(r <= 1.0))
        return x + y; // both zero, both infinite, or NaN
    r *= r;
    for (double t = 4.0 + r; t != 4.0; t = 4.0 + r) {
        const double s = r / t;
        const double u = 1.0 + 2.0 * s;
        p *= u;
        r *= (s / u) * (s / u);
    }
    return p;
}

complex csroot(complex z) {
    const double s = std::sqrt(0.5 * (pythag(z.re, z.im) + std::fabs(z.re)));
    const double signed_s = z.im < 0.0 ? -s : s;
    if (z.re > 0.0)
        return {s, 0.5 * (z.im / s)};
    if (z.re < 0.0)
        return {0.5 * (z.im / signed_s), signed_s};
    return {s, signed_s};
}

// z1 / z2, scaled by |Re z2| + |Im z2|.
static inline complex cdiv(complex z1, complex z2) {
    const double s = std::fabs(z2.re) + std::fabs(z2.im);
    const complex a = {z1.re / s, z1.im / s};
    const complex b = {z2.re / s, z2.im / s};
    const double d = b.re * b.re + b.im * b.im;
    return {(a.re * b.re + a.im * b.im) / d, (a.im * b.re - a.re * b.im) / d};
}

// z = product of the reflections of corth. Their vectors stand below the subdiagonal of h, but for
// the first elements, which are ortr, orti; norm is minus the h of corth times its scaling.
ORVEL_VECTOR_CLONES
static void accumulate(int n, int lo, int hi, const double* ortr, const double* orti,
                       const complex* const* h, complex** z, complex* sum) {
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            z[i][j] = {0.0, 0.0};
        z[i][i] = {1.0, 0.0};
    }
    for (int i = hi - 1; i > lo; --i) {
        const complex ort = {ortr[i + 1], orti[i + 1]};
        const complex below = h[i][i - 1];
        if ((std::fabs(ort.re) < eps && std::fabs(ort.im) < eps) ||
            (std::fabs(below.re) < eps && std::fabs(below.im) < eps))
            continue;
        const int count = hi - i + 1;
        const double norm = below.re * ort.re + below.im * ort.im;
        for (int j = i; j <= hi; ++j)
            sum[j] = {0.0, 0.0};
        for (int k = i; k <= hi; ++k)
            row_add(count, sum + i, c_conj(k == i ? ort : h[k][i - 1]), z[k] + i);
        for (int j = i; j <= hi; ++j)
            sum[j] = {sum[j].re / norm, sum[j].im / norm};
        for (int k = i; k <= hi; ++k)
            row_add(count, z[k] + i, sum + i, k == i ? ort : h[k][i - 1]);
    }
}

// Makes the subdiagonal real by a diagonal unitary transformation. Its elements depend on each
// other along the subdiagonal only, so that they come first, into phase.
static void make_subdiagonal_real(int n, int lo, int hi, complex** h, complex** z,
                                  complex* phase) {
    phase[lo] = {1.0, 0.0};
    for (int i = lo + 1; i <= hi; ++i) {
        complex& below = h[i][i - 1];
        below = c_mul(below, phase[i - 1]);
        phase[i] = {1.0, 0.0};
        if (std::fabs(below.im) < eps)
            continue;
        const double norm = pythag(below.re, below.im);
        phase[i] = {below.re / norm, below.im / norm};
        below = {norm, 0.0};
    }
    for (int i = 0; i <= hi; ++i) {
        if (i > lo)
            row_scale(n - i, h[i] + i, c_conj(phase[i]));
        for (int j = std::max(i, lo + 1); j <= hi; ++j)
            h[i][j] = c_mul(phase[j], h[i][j]);
    }
    for (int i = lo; i <= hi; ++i)
        for (int j = lo + 1; j <= hi; ++j)
            z[i][j] = c_mul(phase[j], z[i][j]);
}

// First row of the last diagonal block that no negligible subdiagonal element divides.
static int active_block(int lo, int en, const complex* const* h) {
    int l = en;
    while (l > lo && !(std::fabs(h[l][l - 1].re) < eps))
        --l;
    return l;
}

// Eigenvalue of the last 2 by 2 block that is closer to its last element.
static complex shift(int en, const complex* const* h) {
    const complex last = h[en][en];
    const double below = h[en][en - 1].re;
    const complex x = {h[en - 1][en].re * below, h[en - 1][en].im * below};
    if (std::fabs(x.re) <= eps && std::fabs(x.im) <= eps)
        return last;
    const complex y = {(h[en - 1][en - 1].re - last.re) / 2.0,
                       (h[en - 1][en - 1].im - last.im) / 2.0};
    complex z = csroot({y.re * y.re - y.im * y.im + x.re, 2.0 * y.re * y.im + x.im});
    if (y.re * z.re + y.im * z.im < 0.0)
        z = {-z.re, -z.im};
    return c_sub(last, cdiv(x, c_add(y, z)));
}

// A shift that breaks the cycle of an iteration that does not converge.
static complex exceptional_shift(int en, const complex* const* h) {
    if (en < 2)
        ov_abort(stdout, "$$ en=%d, abort.\n", en + 1);
    return {std::fabs(h[en][en - 1].re) + std::fabs(h[en - 1][en - 2].re), 0.0};
}

// (x, y) := (conj(c) x + s y, c y - s x) for n elements each.
static inline void rotate_rows(int n, complex* __restrict x, complex* __restrict y,
                               complex c, double s) {
    for (int j = 0; j < n; ++j) {
        const complex a = x[j];
        const complex b = y[j];
        x[j] = {c.re * a.re + c.im * a.im + s * b.re, c.re * a.im - c.im * a.re + s * b.im};
        y[j] = {c.re * b.re - c.im * b.im - s * a.re, c.re * b.im + c.im * b.re - s * a.im};
    }
}

// Length of (Re z, Im z, x), which every rotation needs. Far from the limits of the number range
// the plain root is the same to rounding, at a tenth of the time.
static inline double length_3(complex z, double x) {
    const double smallest = 1e-280;
    const double largest = 1e280;
    const double squares = z.re * z.re + z.im * z.im + x * x;
    if (squares > smallest && squares < largest)
        return std::sqrt(squares);
    return pythag(pythag(z.re, z.im), x);
}

// Reduces rows l..en to triangular form. Rotation i, of rows i - 1 and i, has cosine c[i - 1] and
// sine s[i].
ORVEL_VECTOR_CLONES
static void sweep_rows(int n, int l, int en, complex** h, complex* c, double* s) {
    for (int i = l + 1; i <= en; ++i) {
        const complex diagonal = h[i - 1][i - 1];
        const double below = h[i][i - 1].re;
        const double norm = length_3(diagonal, below);
        c[i - 1] = {diagonal.re / norm, diagonal.im / norm};
        s[i] = below / norm;
        h[i - 1][i - 1] = {norm, 0.0};
        h[i][i - 1] = {0.0, 0.0};
        rotate_rows(n - i, h[i - 1] + i, h[i] + i, c[i - 1], s[i]);
    }
}

// Makes the last diagonal element of a triangular block real. Returns the factor that column en
// still lacks, 1 if it is real within eps.
static complex make_last_real(int n, int en, complex** h) {
    const complex last = h[en][en];
    if (std::fabs(last.im) <= eps)
        return {1.0, 0.0};
    const double norm = pythag(last.re, last.im);
    const complex q = {last.re / norm, last.im / norm};
    h[en][en] = {norm, 0.0};
    row_scale(n - en - 1, h[en] + en + 1, c_conj(q));
    return std::fabs(q.im) < eps ? complex{1.0, 0.0} : q;
}

// Applies the rotations first..en to columns of R rows, each row by itself from left to right.
template <int R>
static inline void rotate_columns(complex* const* row, int first, int en,
                                  const complex* c, const double* s) {
    pair x[R];
    for (int r = 0; r < R; ++r)
        x[r] = load(row[r] + first - 1);
    for (int j = first; j <= en; ++j) {
        const double c_re = c[j - 1].re;
        const pair c_im = {-c[j - 1].im, c[j - 1].im};
        for (int r = 0; r < R; ++r) {
            const pair a = x[r];
            const pair b = load(row[r] + j);
            store(row[r] + j - 1, c_re * a + c_im * exchanged(a) + s[j] * b);
            x[r] = c_re * b - c_im * exchanged(b) - s[j] * a;
        }
    }
    for (int r = 0; r < R; ++r)
        store(row[r] + en, x[r]);
}

// The inverse operation on columns. Row i begins at its subdiagonal element, so that the rows of a
// block go one by one up to the first column that all of them have. Of the new subdiagonal only
// the real part counts.
ORVEL_VECTOR_CLONES
static void sweep_columns(int l, int en, complex** h, const complex* c, const double* s) {
    constexpr int together = 4;
    for (int i = 0; i <= en;) {
        const int rows = i + together - 1 <= en ? together : 1;
        const int common = std::max(i + rows - 1, l + 1);
        for (int r = i; r < i + rows; ++r)
            if (std::max(r, l + 1) < common)
                rotate_columns<1>(h + r, std::max(r, l + 1), common - 1, c, s);
        if (rows == together)
            rotate_columns<together>(h + i, common, en, c, s);
        else
            rotate_columns<1>(h + i, common, en, c, s);
        i += rows;
    }
}

ORVEL_VECTOR_CLONES
static void sweep_vectors(int l, int en, int lo, int hi, complex** zt,
                          const complex* c, const double* s) {
    for (int j = l + 1; j <= en; ++j)
        rotate_rows(hi - lo + 1, zt[j - 1] + lo, zt[j] + lo, c_conj(c[j - 1]), s[j]);
}

// QR iteration on the block lo..hi. The cosines of the last sweep stand in w, as long as no root
// takes their place. False if 30 n sweeps do not suffice.
static bool find_roots(int n, int lo, int hi, complex** h, complex* w, complex** zt, double* s) {
    complex t = {0.0, 0.0}; // sum of the shifts
    int sweeps_left = 30 * n;
    for (int en = hi; en >= lo; --en) {
        int l = active_block(lo, en, h);
        for (int its = 0; l != en; ++its, l = active_block(lo, en, h)) {
            if (sweeps_left-- == 0)
                return false;
            const complex x = its == 10 || its == 20 ? exceptional_shift(en, h) : shift(en, h);
            for (int i = lo; i <= en; ++i)
                h[i][i] = c_sub(h[i][i], x);
            t = c_add(t, x);
            sweep_rows(n, l, en, h, w, s);
            const complex q = make_last_real(n, en, h);
            sweep_columns(l, en, h, w, s);
            sweep_vectors(l, en, lo, hi, zt, w, s);
            if (q.im != 0.0) {
                for (int i = 0; i <= en; ++i)
                    h[i][en] = c_mul(q, h[i][en]);
                row_scale(hi - lo + 1, zt[en] + lo, q);
            }
        }
        h[en][en] = c_add(h[en][en], t);
        w[en] = h[en][en];
    }
    return true;
}

// Divides column en of the vectors from row i down by r if r is so large that 1 / r does not count
// beside it.
static void control_overflow(int i, int en, complex** h) {
    const double r = std::fabs(h[i][en].re) + std::fabs(h[i][en].im);
    if (r < eps || r + 1.0 / r > r)
        return;
    for (int j = i; j <= en; ++j)
        h[j][en] = {h[j][en].re / r, h[j][en].im / r};
}

// A zero denominator becomes the first of 0.01 norm, 0.0001 norm ... that norm does not feel.
static double smallest_denominator(double norm) {
    double y = norm;
    do
        y *= 0.01;
    while (norm + y > norm);
    return y;
}

// Replaces the upper triangle of h by its eigenvectors with unit diagonal, all columns of a row at
// a time from the bottom up: h(i,en) = sum over j = i+1..en of h(i,j) h(j,en) / (w(en) - w(i)).
ORVEL_VECTOR_CLONES
static void back_substitute(int n, complex** h, const complex* w, double norm, complex* sum) {
    for (int i = n - 2; i >= 0; --i) {
        h[i + 1][i + 1] = {1.0, 0.0};
        row_times_upper(n, i + 1, n - 1, h[i], h, sum);
        for (int en = i + 1; en < n; ++en) {
            complex y = c_sub(w[en], w[i]);
            if (y.re == 0.0 && y.im == 0.0)
                y.re = smallest_denominator(norm);
            h[i][en] = cdiv(sum[en], y);
            control_overflow(i, en, h);
        }
    }
}

static double largest_element(int n, const complex* const* h) {
    double norm = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
            norm = std::max(norm, std::fabs(h[i][j].re) + std::fabs(h[i][j].im));
    return norm;
}

// Vectors of the triangular form, in the upper triangle of h, to those of the full matrix.
ORVEL_VECTOR_CLONES
static void multiply_vectors(int n, int lo, int hi, const complex* const* h, complex** z,
                             complex* sum) {
    for (int i = 0; i < n; ++i) {
        if (i < lo || i > hi) {
            std::copy(h[i] + i + 1, h[i] + n, z[i] + i + 1);
        } else {
            row_times_upper(n, lo, hi, z[i], h, sum);
            std::copy(sum + lo + 1, sum + n, z[i] + lo + 1);
        }
    }
}

// Unit length for each column whose squared length is not below eps.
static void normalise(int n, complex** z, double* length) {
    for (int j = 0; j < n; ++j)
        length[j] = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            length[j] += c_norm(z[i][j]);
    for (int j = 0; j < n; ++j)
        length[j] = length[j] >= eps ? std::sqrt(length[j]) : 1.0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            z[i][j] = {z[i][j].re / length[j], z[i][j].im / length[j]};
}

void comqr2(int n, int low, int igh, double* ortr, double* orti, complex** h, complex* eigen_val,
            complex** eigen_vec) {
    const int lo = low - 1;
    const int hi = igh - 1;
    complex* sum = new_vector<complex>(to_size(n));
    accumulate(n, lo, hi, ortr, orti, h, eigen_vec, sum);
    make_subdiagonal_real(n, lo, hi, h, eigen_vec, sum);
    for (int i = 0; i < n; ++i)
        if (i < lo || i > hi)
            eigen_val[i] = h[i][i];

    transpose(n, eigen_vec);
    const bool found = find_roots(n, lo, hi, h, eigen_val, eigen_vec, ortr);
    transpose(n, eigen_vec);
    const double norm = found ? largest_element(n, h) : 0.0;
    if (found && n > 1 && !(norm < eps)) {
        back_substitute(n, h, eigen_val, norm, sum);
        multiply_vectors(n, lo, hi, h, eigen_vec, sum);
        normalise(n, eigen_vec, ortr);
    }
    std::free(sum);
}

} // namespace orvel
