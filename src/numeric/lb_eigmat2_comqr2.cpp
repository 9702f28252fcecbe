// SPDX-License-Identifier: MIT
//
// comqr2 of the chain. Indices inside count from 0: lo..hi are the rows that balancing has left,
// low - 1 to igh - 1. The product of all transformations is never formed: the rotations of all sweeps
// are kept, and act at the end, like the reflections of corth, on the eigenvectors of the triangular
// form, a panel of columns at a time. So do, on the matrix itself, the rotations of a sweep outside
// its panels.
#include "numeric/lb_eigmat2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_mpi.h"
#include "numeric/planes.h"
#include "numeric/workspace.h"

namespace orvel {

// Far from the limits of the number range the plain root is as good as the iteration, at a tenth of
// the time.
double pythag(double a, double b) {
    const double smallest = 1e-280;
    const double largest = 1e280;
    const double squares = a * a + b * b;
    if (squares > smallest && squares < largest)
        return std::sqrt(squares);
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

// The matrix while it iterates, and what has been done to it.
struct qr_work {
    planes h;
    planes u;       // row k: the vector of reflection k of corth, over rows k..hi
    double* norm;   // of each reflection: minus the h of corth times its scaling; 0 if there is none
    double* panel;  // n rows
    complex* phase; // that made the subdiagonal real, of each row
    sweep* sweeps;  // in the order of time
    rotation* g;    // of all sweeps
    int num_sweeps;
    std::size_t num_rotations;
};

static qr_work begin_iteration(int n) {
    const std::size_t rows = padded_rows(n);
    const std::size_t size = 2 * planes_size(n) + (panel_row + 3) * rows;
    double* block = workspace(slot_eigensystem, size);
    qr_work w = {};
    w.h = take_planes(block, n);
    w.u = take_planes(block, n);
    w.panel = take(block, panel_row * rows);
    w.norm = take_zeros(block, rows);
    w.phase = reinterpret_cast<complex*>(take(block, 2 * rows));
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
    to_planes(n, h, w.h);
    for (int i = 0; i < n; ++i) {
        const int begin = i >= std::max(lo, 1) && i <= hi ? i - 1 : i; // exceptional_shift reads that of row lo
        std::fill(w.h.re + i * w.h.ld, w.h.re + i * w.h.ld + begin, 0.0);
        std::fill(w.h.im + i * w.h.ld, w.h.im + i * w.h.ld + begin, 0.0);
        if (begin < i)
            w.h.im[i * w.h.ld + begin] = 0.0;
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

// First column of the panel behind that of column j.
static int next_panel(int j) { return (j / panel_width + 1) * panel_width; }

static void scale_row(planes h, int row, int begin, int end, complex factor) {
    for (int j = begin; j < end; ++j)
        set_element(h, row, j, c_mul(factor, element(h, row, j)));
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

// Room for the rotations of one more sweep of n rows.
static sweep* next_sweep(int n, qr_work& w) {
    const std::size_t sweeps_at_once = 1024;
    const std::size_t rotations_at_once = to_size(n) * to_size(n) / 2 + 1; // of about n^2 in all
    const std::size_t sweeps = (to_size(w.num_sweeps) / sweeps_at_once + 1) * sweeps_at_once;
    const std::size_t end = w.num_rotations + to_size(n);
    const std::size_t all = (end / rotations_at_once + 1) * rotations_at_once;
    w.sweeps = reinterpret_cast<sweep*>(workspace(slot_sweeps, size_product(sweeps, sizeof(sweep) / sizeof(double))));
    w.g = reinterpret_cast<rotation*>(workspace(slot_rotations, size_product(all, sizeof(rotation) / sizeof(double))));
    return w.sweeps + w.num_sweeps++;
}

// One step H - sI = QR to RQ on the block l..en, s being subtracted already. An element to the left
// of the block is negligible and takes no part.
static void qr_step(int n, int l, int en, qr_work& w) {
    sweep* step = next_sweep(n, w);
    rotation* g = w.g + w.num_rotations;
    double* beside = l > 0 ? w.h.re + l * w.h.ld + l - 1 : nullptr;
    const double negligible = l > 0 ? *beside : 0.0;
    if (l > 0)
        *beside = 0.0;
    rotate_to_triangle(w.h, l, en, g);
    const complex q = make_last_real(en, w.h);
    scale_row(w.h, en, en + 1, next_panel(en), c_conj(q));
    const complex column_phase = std::fabs(q.im) < eps ? complex{1.0, 0.0} : q;
    rotate_columns(w.h, l, en, g, column_phase);
    if (l > 0)
        *beside = negligible;
    *step = {l, en, q, column_phase, w.num_rotations};
    w.num_rotations += to_size(en) + 1;
}

// QR iteration on the block lo..hi. False if 30 n sweeps do not suffice.
static bool find_roots(int n, int lo, int hi, complex* roots, int& num_left, qr_work& w) {
    complex t = {0.0, 0.0}; // sum of the shifts
    int sweeps_left = 30 * n;
    for (int en = hi; en >= lo; --en) {
        int l = active_block(lo, en, w.h);
        for (int its = 0; l != en; ++its, l = active_block(lo, en, w.h)) {
            if (sweeps_left-- == 0) {
                num_left = en + 1;
                return false;
            }
            const complex x = its == 10 || its == 20 ? exceptional_shift(en, w.h) : shift(en, w.h);
            for (int i = lo; i <= en; ++i)
                set_element(w.h, i, i, c_sub(element(w.h, i, i), x));
            t = c_add(t, x);
            qr_step(n, l, en, w);
        }
        const complex root = c_add(element(w.h, en, en), t);
        set_element(w.h, en, en, root);
        roots[en] = root;
    }
    return true;
}

// What an iteration without success leaves in place of the roots: the cosines of its rotations.
static void leave_cosines(const qr_work& w, int num_left, complex* roots) {
    for (int k = 0; k < w.num_sweeps; ++k)
        for (int j = w.sweeps[k].first + 1; j <= w.sweeps[k].last; ++j)
            if (j <= num_left)
                roots[j - 1] = {w.g[w.sweeps[k].place + to_size(j)].c_re, w.g[w.sweeps[k].place + to_size(j)].c_im};
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
        const double* re = h.re + i * h.ld;
        const double* im = h.im + i * h.ld;
        for (int j = i; j < n; ++j)
            norm = std::max(norm, std::fabs(re[j]) + std::fabs(im[j]));
    }
    return norm;
}

static complex panel_element(const double* panel, int row, int c) {
    return {panel[row * panel_row + c], panel[row * panel_row + panel_width + c]};
}
static void set_panel_element(double* panel, int row, int c, complex z) {
    panel[row * panel_row + c] = z.re;
    panel[row * panel_row + panel_width + c] = z.im;
}
// Unit length for each column whose squared length is not below eps.
static void normalise(int n, double* panel) {
    double length[panel_width] = {};
    for (int i = 0; i < n; ++i)
        for (int c = 0; c < panel_width; ++c)
            length[c] += c_norm(panel_element(panel, i, c));
    for (double& l : length)
        l = l >= eps ? std::sqrt(l) : 1.0;
    for (int i = 0; i < n; ++i)
        for (int c = 0; c < panel_width; ++c) {
            panel[i * panel_row + c] /= length[c];
            panel[i * panel_row + panel_width + c] /= length[c];
        }
}

void comqr2(int n, int low, int igh, double* ortr, double* orti, complex** h, complex* eigen_val,
            complex** eigen_vec) {
    const int lo = low - 1;
    const int hi = igh - 1;
    qr_work w = begin_iteration(n);
    read_reflections(lo, hi, ortr, orti, h, w);
    make_subdiagonal_real(n, lo, hi, h, w);
    for (int i = 0; i < n; ++i)
        if (i < lo || i > hi)
            eigen_val[i] = h[i][i];

    int num_left = 0;
    const bool found = find_roots(n, lo, hi, eigen_val, num_left, w);
    if (!found)
        leave_cosines(w, num_left, eigen_val);
    for (int column = 0; column < n; column += panel_width)
        apply_sweeps(w.h, column, w.num_sweeps, w.sweeps, w.g);
    const double norm = found ? largest_element(n, w.h) : 0.0;
    const bool with_vectors = found && n > 1 && !(norm < eps);
    const double replaced_difference = with_vectors ? smallest_denominator(norm) : 0.0;
    for (int column = 0; column < n; column += panel_width) {
        const int columns = std::min(panel_width, n - column);
        std::fill(w.panel, w.panel + panel_row * n, 0.0);
        if (with_vectors)
            back_substitute(w.h, eigen_val, n, column, replaced_difference, eps, w.panel);
        // Without vectors the transformation itself is given out. The publication forms no product for
        // the columns up to low and behind igh, so that the overflow control has no hold of their diagonal.
        for (int j = column; j < column + columns; ++j)
            if (!with_vectors || j <= lo || j > hi)
                set_panel_element(w.panel, j, j - column, {1.0, 0.0});
        apply_sweeps_back(w.panel, column, w.num_sweeps, w.sweeps, w.g);
        reflect_panel(w.panel, w.u, w.norm, w.phase, lo, hi);
        if (with_vectors)
            normalise(n, w.panel);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < columns; ++c)
                eigen_vec[i][column + c] = panel_element(w.panel, i, c);
    }
}

} // namespace orvel
