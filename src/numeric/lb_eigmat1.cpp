// SPDX-License-Identifier: MIT
#include "numeric/lb_eigmat1.h"

#include <algorithm>
#include <cmath>

#include "control/ov_mpi.h"
#include "numeric/clones.h"

namespace orvel {

// Codes of eigen_c_mat.
constexpr int converged = 0;
constexpr int trivial = 1;
constexpr int invalid_argument = 3;
constexpr int not_converged = 30000;

// ---- row operations: loops along rows, each sum in the order of its textbook form ----

// A complex number in a vector register. Loops that carry numbers from one step to the next, where
// compilers find no vectors of their own, gain a third by it.
typedef double pair __attribute__((vector_size(16)));

// y += f x, for n elements that do not overlap.
static inline void row_add(int n, complex* __restrict y, complex f, const complex* __restrict x) {
    for (int j = 0; j < n; ++j) {
        y[j].re = y[j].re + f.re * x[j].re - f.im * x[j].im;
        y[j].im = y[j].im + f.re * x[j].im + f.im * x[j].re;
    }
}

// Sum of x[j] row[j] for j = from .. end-1.
static inline complex row_sum(int from, int end, const complex* row, const complex* x) {
    pair sum = {};
    for (int j = from; j < end; ++j) {
        const pair im = {-x[j].im, x[j].im};
        sum = sum + x[j].re * pair{row[j].re, row[j].im} + im * pair{row[j].im, row[j].re};
    }
    return {sum[0], sum[1]};
}

// Product of a row with an upper triangular matrix: for j = first .. n-1, sum[j] = sum over
// k = first .. j of x[k] upper[k][j], k ascending.
static inline void row_times_upper(int n, int first, const complex* x, const complex* const* upper, complex* sum) {
    std::fill(sum + first, sum + n, complex{0.0, 0.0});
    for (int k = first; k < n; ++k)
        row_add(n - k, sum + k, x[k], upper[k] + k);
}

// Row first .. end-1 with the largest modulus in a column, the first one on ties.
static int largest_in_column(int first, int end, int column, const complex* const* a) {
    int row = first;
    for (int i = first + 1; i < end; ++i)
        row = c_abs(a[i][column]) > c_abs(a[row][column]) ? i : row;
    return row;
}

// In place, for matrices held by columns in between.
static void transpose(int n, complex** a) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j)
            std::swap(a[i][j], a[j][i]);
}

static void exchange_columns(int n, int j, int k, complex** a) {
    for (int i = 0; i < n; ++i)
        std::swap(a[i][j], a[i][k]);
}

// ---- the steps of the solver ----

// Largest sum of moduli in a column; NaN if there is any.
static double column_norm(int n, const complex* const* a) {
    double norm = 0.0;
    for (int j = 0; j < n; ++j) {
        double sum = 0.0;
        for (int i = 0; i < n; ++i)
            sum += c_abs(a[i][j]);
        if (sum > norm || std::isnan(sum))
            norm = sum;
    }
    return norm;
}

static void set_unit_matrix(int n, complex** z) {
    for (int i = 0; i < n; ++i) {
        std::fill(z[i], z[i] + n, complex{0.0, 0.0});
        z[i][i] = {1.0, 0.0};
    }
}

// Reduces a to Hessenberg form by elimination with pivoting. pivot[k] is the row exchanged with
// row k; the multipliers stay below the subdiagonal.
ORVEL_VECTOR_CLONES
static void reduce(int n, double tol, complex** a, int* pivot, complex* m) {
    for (int k = 1; k < n - 1; ++k) {
        const int p = k - 1;
        const int r = largest_in_column(k, n, p, a);
        pivot[k] = k;
        if (c_abs(a[r][p]) <= tol)
            continue;
        pivot[k] = r;
        std::swap(a[r][p], a[k][p]);
        const complex factor = c_div({-1.0, 0.0}, a[k][p]);
        for (int i = k + 1; i < n; ++i)
            m[i] = a[i][p] = c_mul(a[i][p], factor);
        if (r != k)
            std::swap_ranges(a[r] + k, a[r] + n, a[k] + k);
        for (int i = k + 1; i < n; ++i)
            row_add(n - k, a[i] + k, m[i], a[k] + k);
        if (r != k)
            exchange_columns(n, r, k, a);
        for (int i = 0; i < n; ++i)
            a[i][k] = c_sub(a[i][k], row_sum(k + 1, n, a[i], m));
    }
}

// The transformation that reduce has applied.
static void accumulate_pivots(int n, const complex* const* a, const int* pivot, complex** z) {
    set_unit_matrix(n, z);
    for (int i = 2; i < n; ++i)
        for (int c = 1; c < i; ++c)
            z[i][c] = {-a[i][c - 1].re, -a[i][c - 1].im};
    for (int k = n - 2; k >= 1; --k)
        if (pivot[k] != k)
            std::swap_ranges(z[k] + k, z[k] + n, z[pivot[k]] + k);
}

// Eigenvalue of the last 2 by 2 block that is closer to its last element.
static complex closer_eigenvalue(int en, const complex* const* a) {
    const complex last = a[en][en];
    const complex m = {(a[en - 1][en - 1].re + last.re) / 2.0,
                       (a[en - 1][en - 1].im + last.im) / 2.0};
    const complex d = c_sub(m, last);
    const complex q = c_sqrt(c_add(c_mul(d, d), c_mul(a[en - 1][en], a[en][en - 1])));
    return c_abs(c_sub(d, q)) >= c_abs(c_add(d, q)) ? c_add(m, q) : c_sub(m, q);
}

// (x, y) := (conj(c) x + conj(t) y, c y - t x) for n elements each.
static inline void rotate(int n, complex* __restrict x, complex* __restrict y,
                          complex c, complex t) {
    for (int j = 0; j < n; ++j) {
        const complex a = x[j];
        const complex b = y[j];
        x[j] = {c.re * a.re + c.im * a.im + t.re * b.re + t.im * b.im,
                c.re * a.im - c.im * a.re + t.re * b.im - t.im * b.re};
        y[j] = {c.re * b.re - c.im * b.im - t.re * a.re + t.im * a.im,
                c.re * b.im + c.im * b.re - t.re * a.im - t.im * a.re};
    }
}

// One QR step on the block l..en, H - sI = QR to RQ + sI. Rotation k, of rows and of columns k and
// k + 1, is (c[k], t[k]); zt, the transformation by columns, takes part unless it is null.
ORVEL_VECTOR_CLONES
static void qr_step(int n, int l, int en, complex** a, complex** zt, complex* c, complex* t) {
    const complex s = closer_eigenvalue(en, a);
    for (int i = l; i <= en; ++i)
        a[i][i] = c_sub(a[i][i], s);
    for (int k = l; k < en; ++k) {
        const complex x = a[k][k];
        const complex y = a[k + 1][k];
        const double r = c_abs({c_abs(x), c_abs(y)});
        c[k] = {x.re / r, x.im / r};
        t[k] = {y.re / r, y.im / r};
        a[k][k] = {r, 0.0};
        a[k + 1][k] = {0.0, 0.0};
        rotate(n - k - 1, a[k] + k + 1, a[k + 1] + k + 1, c[k], t[k]);
    }
    for (int i = 0; i <= en; ++i)
        for (int k = std::max(l, i - 1); k < en; ++k)
            rotate(1, a[i] + k, a[i] + k + 1, c_conj(c[k]), c_conj(t[k]));
    for (int i = l; i <= en; ++i)
        a[i][i] = c_add(a[i][i], s);
    if (zt == nullptr)
        return;
    for (int k = l; k < en; ++k)
        rotate(n, zt[k], zt[k + 1], c_conj(c[k]), c_conj(t[k]));
}

// QR iteration to triangular form. False if some eigenvalue needs too many steps.
static bool iterate(int n, double tol, complex** a, complex** zt, complex* c, complex* t) {
    const int max_steps = 31; // for one eigenvalue
    for (int en = n - 1; en >= 1; --en) {
        for (int steps = 0;; ++steps) {
            int l = en;
            while (l > 0 && !(c_abs(a[l][l - 1]) <= tol))
                --l;
            if (l == en)
                break;
            if (steps == max_steps)
                return false;
            qr_step(n, l, en, a, zt, c, t);
        }
    }
    return true;
}

// Eigenvectors of the triangular form, times the transformation z, into z.
ORVEL_VECTOR_CLONES
static void triangular_vectors(int n, double tol, complex** a, const complex* w, complex** z,
                               complex* sum) {
    for (int i = n - 1; i >= 0; --i) {
        row_times_upper(n, i + 1, a[i], a, sum);
        a[i][i] = {1.0, 0.0};
        for (int j = i + 1; j < n; ++j) {
            const complex d = c_sub(w[j], w[i]);
            a[i][j] = c_div(sum[j], c_abs(d) < tol ? complex{tol, 0.0} : d);
        }
    }
    for (int i = 0; i < n; ++i) {
        row_times_upper(n, 0, z[i], a, sum);
        std::copy(sum + 1, sum + n, z[i] + 1);
    }
}

static void set_unit_length(int n, complex** z) {
    for (int j = 0; j < n; ++j) {
        double sum = 0.0;
        for (int i = 0; i < n; ++i)
            sum += c_norm(z[i][j]);
        const double factor = 1.0 / std::sqrt(sum);
        for (int i = 0; i < n; ++i)
            z[i][j] = {z[i][j].re * factor, z[i][j].im * factor};
    }
}

int eigen_c_mat(int n, double tolerance, int sort_flag, complex** a,
                complex* eigen_val, complex** eigen_vec, scratch& room) {
    const double smallest_tolerance = 1e-13; // some hundred roundings
    const bool with_vectors = sort_flag != 0;
    if (n < 1 || !(tolerance > 0.0)) {
        ov_fprintf(stderr, "$$ (eigen_c_mat) invalid n or epsilon.\n");
        return invalid_argument;
    }
    const double norm = column_norm(n, a);
    if (n == 1 || norm < tolerance) {
        for (int i = 0; i < n; ++i)
            eigen_val[i] = a[i][i];
        set_unit_matrix(n, eigen_vec);
        return trivial;
    }

    const double tol = std::max(tolerance, smallest_tolerance) * norm;
    const scratch_mark begin = mark_scratch(room);
    int* pivot = take<int>(room, to_size(n));
    complex* c = take<complex>(room, to_size(n));
    complex* t = take<complex>(room, to_size(n));
    reduce(n, tol, a, pivot, c);
    if (with_vectors) {
        accumulate_pivots(n, a, pivot, eigen_vec);
        transpose(n, eigen_vec);
    }
    const bool success = iterate(n, tol, a, with_vectors ? eigen_vec : nullptr, c, t);
    if (with_vectors)
        transpose(n, eigen_vec);
    if (success) {
        for (int i = 0; i < n; ++i)
            eigen_val[i] = a[i][i];
        if (with_vectors) {
            triangular_vectors(n, tol, a, eigen_val, eigen_vec, c);
            set_unit_length(n, eigen_vec);
            if (sort_flag == 1 || sort_flag == -1)
                re_part_csort(n, eigen_val, eigen_vec, sort_flag, room);
            else
                norm_csort(n, eigen_val, eigen_vec, sort_flag, room);
        }
    }
    release_scratch(room, begin);
    return success ? converged : not_converged;
}

// Exchange sort by passes, descending: each pass finds the last place that has a smaller key in
// front of it, and exchanges it with the smallest one there, the last of equals.
static void exchange_sort(int n, double* key, complex* eigen_val, complex** eigen_vec) {
    for (int m = n - 1; m >= 1;) {
        int smallest = 0;
        int from = -1;
        int to = -1;
        for (int i = 1; i <= m; ++i) {
            if (key[i] > key[smallest]) {
                from = smallest;
                to = i;
            } else if (key[i] <= key[smallest]) {
                smallest = i;
            }
        }
        if (to < 0)
            return;
        std::swap(key[from], key[to]);
        std::swap(eigen_val[from], eigen_val[to]);
        exchange_columns(n, from, to, eigen_vec);
        m = to - 1;
    }
}

void re_part_csort(int n, complex* eigen_val, complex** eigen_vec, int sort_flag, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    double* key = take<double>(room, to_size(n));
    for (int i = 0; i < n; ++i)
        key[i] = sort_flag < 0 ? -eigen_val[i].re : eigen_val[i].re;
    exchange_sort(n, key, eigen_val, eigen_vec);
    release_scratch(room, begin);
}

void norm_csort(int n, complex* eigen_val, complex** eigen_vec, int sort_flag, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    double* key = take<double>(room, to_size(n));
    for (int i = 0; i < n; ++i)
        key[i] = sort_flag < 0 ? -c_norm(eigen_val[i]) : c_norm(eigen_val[i]);
    exchange_sort(n, key, eigen_val, eigen_vec);
    release_scratch(room, begin);
}

} // namespace orvel
