// SPDX-License-Identifier: MIT
//
// comqr2 of the chain. Indices inside count from 0: lo..hi are the rows that balancing has left,
// low - 1 to igh - 1. The product of all transformations is never formed: the rotations of all sweeps
// are kept, and act at the end, like the reflections of corth, on the eigenvectors of the triangular
// form, a strip of columns at a time. So do, on the matrix itself, the rotations of a sweep outside
// its strips.
#include <algorithm>
#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/fast/fast.h"
#include "numeric/lb_eigmat2.h"

namespace orvel {

// z1 / z2, scaled by |Re z2| + |Im z2|.
static inline complex cdiv(complex z1, complex z2) {
    const double s = std::fabs(z2.re) + std::fabs(z2.im);
    const complex a = {z1.re / s, z1.im / s};
    const complex b = {z2.re / s, z2.im / s};
    const double d = b.re * b.re + b.im * b.im;
    return {(a.re * b.re + a.im * b.im) / d, (a.im * b.re - a.re * b.im) / d};
}

// The matrix while it iterates, and what has been done to it.
struct qr_work {
    planes h;
    planes u;         // row k: the vector of reflection k of corth, over rows k..hi
    double* norm;     // of each reflection: minus the h of corth times its scaling; 0 if there is none
    complex* phase;   // that made the subdiagonal real, of each row
    qr_sweep* sweeps; // in the order of time
    int num_sweeps;
    int max_sweeps;
};

static qr_work begin_iteration(int n, scratch& room) {
    const int sweeps_of_row = 30; // as published
    qr_work w = {};
    w.h = take_zero_planes(room, n, n);
    w.u = take_planes(room, n, n);
    w.norm = take<double>(room, to_size(n));
    std::fill(w.norm, w.norm + n, 0.0);
    w.phase = take<complex>(room, to_size(n));
    w.max_sweeps = sweeps_of_row * n;
    w.sweeps = take<qr_sweep>(room, to_size(w.max_sweeps));
    return w;
}

// Takes the reflections of corth out of h: their vectors stand below the subdiagonal, but for the
// first elements, which are ortr, orti.
static void read_reflections(int lo, int hi, const double* ortr, const double* orti, const complex* const* h,
                             qr_work& w) {
    for (int k = hi - 1; k > lo; --k) {
        const complex ort = {ortr[k + 1], orti[k + 1]};
        const complex below = h[k][k - 1];
        if ((std::fabs(ort.re) < eps && std::fabs(ort.im) < eps) ||
            (std::fabs(below.re) < eps && std::fabs(below.im) < eps))
            continue;
        w.norm[k] = below.re * ort.re + below.im * ort.im;
        set_element(w.u, k, k, ort);
        for (int i = k + 1; i <= hi; ++i)
            set_element(w.u, k, i, h[i][k - 1]);
    }
}

// Makes the subdiagonal real by a diagonal unitary transformation. Its elements depend on each
// other along the subdiagonal only, so that they come first, into phase. The matrix goes to planes,
// with zeros below the subdiagonal.
static void make_subdiagonal_real(int n, int lo, int hi, complex** h, qr_work& w) {
    complex* phase = w.phase;
    std::fill(phase, phase + n, complex{1.0, 0.0});
    for (int i = lo + 1; i <= hi; ++i) {
        complex& below = h[i][i - 1];
        below = c_mul(below, phase[i - 1]);
        if (std::fabs(below.im) < eps)
            continue;
        const double norm = pythag(below.re, below.im);
        phase[i] = {below.re / norm, below.im / norm};
        below = {norm, 0.0};
    }
    to_planes(n, n, h, w.h);
    for (int i = 0; i < n; ++i) {
        const int begin = i >= std::max(lo, 1) && i <= hi ? i - 1 : i; // exceptional_shift reads that of row lo
        const split_vector row = row_at(w.h, i, 0);
        std::fill(row.re, row.re + begin, 0.0);
        std::fill(row.im, row.im + i, 0.0);
        for (int j = i; j < n; ++j)
            set_element(w.h, i, j, c_mul(c_mul(c_conj(phase[i]), h[i][j]), phase[j]));
    }
}

// First row of the last diagonal block that no negligible subdiagonal element divides.
static int active_block(int lo, int en, planes h) {
    int l = en;
    while (l > lo && !(std::fabs(element(h, l, l - 1).re) < eps))
        --l;
    return l;
}

// Eigenvalue of the last 2 by 2 block that is closer to its last element.
static complex shift(int en, planes h) {
    const complex last = element(h, en, en);
    const complex before = element(h, en - 1, en - 1);
    const complex beside = element(h, en - 1, en);
    const double below = element(h, en, en - 1).re;
    const complex x = {beside.re * below, beside.im * below};
    if (std::fabs(x.re) <= eps && std::fabs(x.im) <= eps)
        return last;
    const complex y = {(before.re - last.re) / 2.0, (before.im - last.im) / 2.0};
    complex z = csroot({y.re * y.re - y.im * y.im + x.re, 2.0 * y.re * y.im + x.im});
    if (y.re * z.re + y.im * z.im < 0.0)
        z = {-z.re, -z.im};
    return c_sub(last, cdiv(x, c_add(y, z)));
}

// A shift that breaks the cycle of an iteration that does not converge.
static complex exceptional_shift(int en, planes h) {
    if (en < 2)
        ov_abort(stdout, "$$ en=%d, abort.\n", en + 1);
    return {std::fabs(element(h, en, en - 1).re) + std::fabs(element(h, en - 1, en - 2).re), 0.0};
}

// Makes the last diagonal element of a triangular block real. Returns the factor that column en
// still lacks, 1 if it is real within eps.
static complex make_last_real(int en, planes h) {
    const complex last = element(h, en, en);
    if (std::fabs(last.im) <= eps)
        return {1.0, 0.0};
    const double norm = pythag(last.re, last.im);
    const complex q = {last.re / norm, last.im / norm};
    set_element(h, en, en, {norm, 0.0});
    return q;
}

// Row en of the strip that begins left of it, behind column en, times a factor.
static void turn_last_row(int en, planes h, complex factor) {
    const int end = (en / strip_columns + 1) * strip_columns;
    for (int j = en + 1; j < end; ++j)
        set_element(h, en, j, c_mul(factor, element(h, en, j)));
}

// One step H - sI = QR to RQ on the block l..en, s being subtracted already. An element to the left
// of the block is negligible and takes no part.
static void qr_step(int l, int en, qr_work& w, scratch& room) {
    rotation* g = take<rotation>(room, to_size(en) + 1);
    double* beside = l > 0 ? at(w.h, l, l - 1).re : nullptr;
    const double negligible = l > 0 ? *beside : 0.0;
    if (l > 0)
        *beside = 0.0;
    rotate_to_triangle(w.h, l, en, g);
    const complex q = make_last_real(en, w.h);
    turn_last_row(en, w.h, c_conj(q));
    const complex column_phase = std::fabs(q.im) < eps ? complex{1.0, 0.0} : q;
    rotate_columns(w.h, l, en, g, column_phase);
    if (l > 0)
        *beside = negligible;
    w.sweeps[w.num_sweeps++] = {l, en, q, column_phase, g};
}

// QR iteration on the block lo..hi. Returns how many roots it has not found.
static int find_roots(int lo, int hi, complex* roots, qr_work& w, scratch& room) {
    complex t = {0.0, 0.0}; // sum of the shifts
    for (int en = hi; en >= lo; --en) {
        int l = active_block(lo, en, w.h);
        for (int its = 0; l != en; ++its, l = active_block(lo, en, w.h)) {
            if (w.num_sweeps == w.max_sweeps)
                return en + 1;
            const complex x = its == 10 || its == 20 ? exceptional_shift(en, w.h) : shift(en, w.h);
            for (int i = lo; i <= en; ++i)
                set_element(w.h, i, i, c_sub(element(w.h, i, i), x));
            t = c_add(t, x);
            qr_step(l, en, w, room);
        }
        const complex root = c_add(element(w.h, en, en), t);
        set_element(w.h, en, en, root);
        roots[en] = root;
    }
    return 0;
}

// What an iteration without success leaves in place of the roots: the cosines of its rotations.
static void leave_cosines(const qr_work& w, int num_left, complex* roots) {
    for (int k = 0; k < w.num_sweeps; ++k)
        for (int j = w.sweeps[k].first + 1; j <= std::min(w.sweeps[k].last, num_left); ++j)
            roots[j - 1] = {w.sweeps[k].g[j].c_re, w.sweeps[k].g[j].c_im};
}

// A zero denominator becomes the first of 0.01 norm, 0.0001 norm ... that norm does not feel.
static double smallest_denominator(double norm) {
    double y = norm;
    do
        y *= 0.01;
    while (norm + y > norm);
    return y;
}

static double largest_element(int n, planes h) {
    double norm = 0.0;
    for (int i = 0; i < n; ++i) {
        const split_vector row = row_at(h, i, 0);
        for (int j = i; j < n; ++j)
            norm = std::max(norm, std::fabs(row.re[j]) + std::fabs(row.im[j]));
    }
    return norm;
}

// Unit length for each column of a strip whose squared length is not below eps.
static void normalise(int n, planes strip) {
    double length[strip_columns] = {};
    for (int i = 0; i < n; ++i)
        for (int c = 0; c < strip_columns; ++c)
            length[c] += c_norm(element(strip, i, c));
    for (double& l : length)
        l = l >= eps ? std::sqrt(l) : 1.0;
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < strip_columns; ++c) {
            const complex z = element(strip, i, c);
            set_element(strip, i, c, {z.re / length[c], z.im / length[c]});
        }
    }
}

// A strip of n rows: real and imaginary parts of a row side by side, so that it lies close together.
static planes take_strip(int n, scratch& room) {
    double* p = take<double>(room, 2 * strip_columns * to_size(n));
    return {p, p + strip_columns, 2 * strip_columns};
}

// The vectors of the triangular form, or without vectors the unit matrix, through all transformations
// back into the columns from number column on.
static void carry_back(int lo, int hi, const triangle& of, bool with_vectors, int column, planes strip,
                       const qr_work& w, complex** eigen_vec) {
    const int end = std::min(column + strip_columns, of.n);
    std::fill(strip.re, strip.re + strip.ld * of.n, 0.0);
    if (with_vectors)
        form_vectors(of, column, strip);
    // Without vectors the transformation itself is given out. The publication forms no product for
    // the columns up to low and behind igh, so that the overflow control has no hold of their diagonal.
    for (int j = column; j < end; ++j)
        if (!with_vectors || j <= lo || j > hi)
            set_element(strip, j, j - column, {1.0, 0.0});
    apply_sweeps_back(strip, column, w.num_sweeps, w.sweeps);
    reflect_strip(strip, w.u, w.norm, w.phase, lo, hi);
    if (with_vectors)
        normalise(of.n, strip);
    for (int i = 0; i < of.n; ++i)
        join(end - column, row_at(strip, i, 0), eigen_vec[i] + column);
}

void comqr2(int n, int low, int igh, double* ortr, double* orti, complex** h, complex* eigen_val,
            complex** eigen_vec, scratch& room) {
    const int lo = low - 1, hi = igh - 1;
    const scratch_mark begin = mark_scratch(room);
    qr_work w = begin_iteration(n, room);
    read_reflections(lo, hi, ortr, orti, h, w);
    make_subdiagonal_real(n, lo, hi, h, w);
    for (int i = 0; i < n; ++i)
        if (i < lo || i > hi)
            eigen_val[i] = h[i][i];

    const int num_left = find_roots(lo, hi, eigen_val, w, room);
    leave_cosines(w, num_left, eigen_val);
    for (int column = 0; column < n; column += strip_columns)
        apply_sweeps(w.h, column, w.num_sweeps, w.sweeps);
    const double norm = num_left == 0 ? largest_element(n, w.h) : 0.0;
    const bool with_vectors = num_left == 0 && n > 1 && !(norm < eps);
    const triangle of = {n, w.h, eigen_val, with_vectors ? smallest_denominator(norm) : 0.0, eps};
    const planes strip = take_strip(n, room);
    for (int column = 0; column < n; column += strip_columns)
        carry_back(lo, hi, of, with_vectors, column, strip, w, eigen_vec);
    release_scratch(room, begin);
}

} // namespace orvel
