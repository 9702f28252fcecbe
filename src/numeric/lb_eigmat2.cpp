// SPDX-License-Identifier: MIT
#include "numeric/lb_eigmat2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "numeric/lb_rows.h"
#include "numeric/planes.h"
#include "numeric/vecmat.h"
#include "numeric/workspace.h"

namespace orvel {

// ---- balancing ----

// Elements that count as zero when eigenvalues are isolated; NaN is one.
static bool negligible(complex z) { return !(std::fabs(z.re) > eps || std::fabs(z.im) > eps); }

static bool row_is_isolated(int j, int l, const complex* const* a) {
    for (int i = 0; i < l; ++i)
        if (i != j && !negligible(a[j][i]))
            return false;
    return true;
}

static bool column_is_isolated(int j, int k, int l, const complex* const* a) {
    for (int i = k; i < l; ++i)
        if (i != j && !negligible(a[i][j]))
            return false;
    return true;
}

void matexchange_rowcol(int n, int j, int k, int l, int m, complex** a) {
    if (j == m)
        return;
    for (int i = 0; i < l; ++i)
        std::swap(a[i][j - 1], a[i][m - 1]);
    std::swap_ranges(a[j - 1] + (k - 1), a[j - 1] + n, a[m - 1] + (k - 1));
}

// Pushes rows that isolate an eigenvalue to the bottom of rows 1..l, and lowers l: each search
// runs upward from row l. False when the last row went, so that nothing is left to balance.
static bool isolate_rows(int n, complex** a, int& l, double* scale) {
    for (int j = l; j >= 1; --j) {
        if (!row_is_isolated(j - 1, l, a))
            continue;
        scale[l] = j;
        matexchange_rowcol(n, j, 1, l, l, a);
        if (l == 1)
            return false;
        j = l--; // the loop goes on with the new l
    }
    return true;
}

// Pushes columns that isolate an eigenvalue to the left of columns k..l, and raises k.
static void isolate_columns(int n, complex** a, int& k, int l, double* scale) {
    for (int j = k; j <= l; ++j) {
        if (!column_is_isolated(j - 1, k - 1, l, a))
            continue;
        scale[k] = j;
        matexchange_rowcol(n, j, k, l, k, a);
        j = k++; // the loop goes on with the new k
    }
}

// The power of 16 that makes column and row sums c and r most alike, or 1 if it gains too little.
// Sums that are zero or infinite have none: the loops would not end.
static double balancing_factor(double c, double r) {
    const double radix = 16.0;
    const double worth = 0.95; // a smaller gain in c + r is not worth the work
    if (c < eps || r < eps || c == 0.0 || r == 0.0 || std::isinf(c) || std::isinf(r))
        return 1.0;
    const double sum = c + r;
    double f = 1.0;
    if (c < r / radix) {
        for (; c < r / radix; c *= radix * radix)
            f *= radix;
    } else {
        for (; c >= r * radix; c /= radix * radix)
            f /= radix;
    }
    return (c + r) / f < worth * sum ? f : 1.0;
}

// One balancing sweep over rows and columns k..l. True if it has scaled anything.
static bool balance_once(int n, int k, int l, complex** a, double* scale) {
    bool scaled = false;
    for (int i = k - 1; i < l; ++i) {
        double c = 0.0;
        double r = 0.0;
        for (int j = k - 1; j < l; ++j) {
            if (j == i)
                continue;
            c = c + std::fabs(a[j][i].re) + std::fabs(a[j][i].im);
            r = r + std::fabs(a[i][j].re) + std::fabs(a[i][j].im);
        }
        const double f = balancing_factor(c, r);
        if (f == 1.0)
            continue;
        scaled = true;
        scale[i + 1] *= f;
        row_scale(n - (k - 1), a[i] + (k - 1), 1.0 / f);
        for (int j = 0; j < l; ++j)
            a[j][i] = {a[j][i].re * f, a[j][i].im * f};
    }
    return scaled;
}

void cbal(int n, complex** a, int& low, int& igh, double* scale) {
    low = 1;
    igh = n;
    if (!isolate_rows(n, a, igh, scale))
        return;
    isolate_columns(n, a, low, igh, scale);
    for (int i = low; i <= igh; ++i)
        scale[i] = 1.0;
    while (balance_once(n, low, igh, a, scale))
        ;
}

// ---- reduction to Hessenberg form ----

// Where corth works: the matrix, the reflection that it still lacks, the next vector v, and what a pass
// over the matrix gives for it.
struct hessenberg_work {
    planes a;
    pending_reflection old;
    double *v_re, *v_im, *sum_re, *sum_im, *product_re, *product_im;
};

static hessenberg_work begin_reduction(int n, int first, const complex* const* a) {
    const std::size_t num_vectors = 14;
    const std::size_t ld = padded_columns(n);
    const std::size_t size = planes_size(n) + num_vectors * ld;
    double* block = workspace(slot_eigensystem, size);
    hessenberg_work w;
    w.a = take_planes(block, n);
    w.old.first = first;
    for (double** vector : {&w.old.u_re, &w.old.u_im, &w.old.z_re, &w.old.z_im, &w.old.y_re, &w.old.y_im,
                            &w.old.u_col_re, &w.old.u_col_im, &w.v_re, &w.v_im, &w.sum_re, &w.sum_im,
                            &w.product_re, &w.product_im})
        *vector = take_zeros(block, ld);
    to_planes(n, a, w.a);
    return w;
}

// Applies what is pending to one column, rows 0..last, ahead of the others.
static void update_column(int column, int last, hessenberg_work& w) {
    pending_reflection& old = w.old;
    const complex y = {old.y_re[column], old.y_im[column]};
    const complex u_col = {old.u_col_re[column], old.u_col_im[column]};
    for (int i = 0; i <= last; ++i) {
        const complex left = c_mul({old.u_re[i], old.u_im[i]}, y);
        const complex right = c_mul({old.z_re[i], old.z_im[i]}, u_col);
        set_element(w.a, i, column, c_sub(c_sub(element(w.a, i, column), left), right));
    }
    old.y_re[column] = old.y_im[column] = 0.0;
    old.u_col_re[column] = old.u_col_im[column] = 0.0;
}

// The Householder vector v[m..last] that clears column m - 1 below its subdiagonal element, which
// becomes minus g times itself; the reflection is I - v v^H / h. False for a negligible one.
static bool householder(int m, int last, hessenberg_work& w, double& scale, double& g, double& h) {
    scale = 0.0;
    for (int i = m; i <= last; ++i) {
        const complex x = element(w.a, i, m - 1);
        scale = scale + std::fabs(x.re) + std::fabs(x.im);
    }
    if (scale < eps)
        return false;
    std::fill(w.v_re, w.v_re + m, 0.0);
    std::fill(w.v_im, w.v_im + m, 0.0);
    h = 0.0;
    for (int i = last; i >= m; --i) {
        const complex x = element(w.a, i, m - 1);
        w.v_re[i] = x.re / scale;
        w.v_im[i] = x.im / scale;
        h = h + w.v_re[i] * w.v_re[i] + w.v_im[i] * w.v_im[i];
    }
    g = std::sqrt(h);
    const double f = pythag(w.v_re[m], w.v_im[m]);
    if (f < eps) {
        w.v_re[m] = g;
        w.a.re[m * w.a.ld + m - 1] = scale;
    } else {
        h += f * g;
        g /= f;
        w.v_re[m] = (1.0 + g) * w.v_re[m];
        w.v_im[m] = (1.0 + g) * w.v_im[m];
    }
    return true;
}

// Makes the reflection of v the pending one, from the sums and products that the pass has left.
static void set_pending(int n, int m, int last, double h, hessenberg_work& w) {
    pending_reflection& old = w.old;
    old.first = m;
    complex y_u = {0.0, 0.0};
    for (int j = 0; j < n; ++j) {
        const complex y = j < m ? complex{0.0, 0.0} : complex{w.sum_re[j] / h, w.sum_im[j] / h};
        old.y_re[j] = y.re;
        old.y_im[j] = y.im;
        old.u_re[j] = old.u_col_re[j] = w.v_re[j];
        old.u_im[j] = w.v_im[j];
        old.u_col_im[j] = -w.v_im[j];
        y_u = c_add(y_u, c_mul(y, {w.v_re[j], w.v_im[j]}));
    }
    for (int i = 0; i <= last; ++i) {
        const complex inner = c_mul({w.v_re[i], w.v_im[i]}, y_u);
        old.z_re[i] = (w.product_re[i] - inner.re) / h;
        old.z_im[i] = (w.product_im[i] - inner.im) / h;
    }
}

static void pass_over(int n, int last, hessenberg_work& w) {
    reflect_and_multiply(w.a, n, last, w.old, w.v_re, w.v_im, w.sum_re, w.sum_im, w.product_re, w.product_im);
}

void corth(int n, int low, int igh, complex** a, double* ortr, double* orti) {
    const int last = igh - 1;
    if (last - low < 1)
        return;
    hessenberg_work w = begin_reduction(n, low, a);
    for (int m = low; m < last; ++m) {
        double scale, g, h;
        ortr[m + 1] = 0.0;
        orti[m + 1] = 0.0;
        update_column(m - 1, last, w);
        if (!householder(m, last, w, scale, g, h))
            continue;
        pass_over(n, last, w);
        set_pending(n, m, last, h, w);
        ortr[m + 1] = scale * w.v_re[m];
        orti[m + 1] = scale * w.v_im[m];
        const complex below = element(w.a, m, m - 1);
        set_element(w.a, m, m - 1, {-g * below.re, -g * below.im});
    }
    std::fill(w.v_re, w.v_re + n, 0.0);
    std::fill(w.v_im, w.v_im + n, 0.0);
    pass_over(n, last, w);
    from_planes(n, w.a, a);
}

// ---- the chain ----

void cbabk2(int n, int low, int igh, const double* scale, int m, complex** eigen_vec) {
    if (igh != low) {
        for (int i = low; i <= igh; ++i)
            row_scale(m, eigen_vec[i - 1], scale[i]);
    }
    const auto exchange_back = [&](int i) { // undoes one exchange of cbal
        const int k = static_cast<int>(scale[i]);
        if (k != i)
            std::swap_ranges(eigen_vec[i - 1], eigen_vec[i - 1] + m, eigen_vec[k - 1]);
    };
    for (int i = low - 1; i >= 1; --i)
        exchange_back(i);
    for (int i = igh + 1; i <= n; ++i)
        exchange_back(i);
}

void sort_eigval_eigvec(int n, complex* eigen_val, complex** eigen_vec) {
    int* from = new_vector<int>(to_size(n));
    complex* row = new_vector<complex>(to_size(n));
    for (int i = 0; i < n; ++i) {
        int place = 0;
        while (place < i && !(eigen_val[from[place]].re < eigen_val[i].re))
            ++place;
        std::copy_backward(from + place, from + i, from + i + 1);
        from[place] = i;
    }
    const auto reorder = [&](complex* x) {
        std::copy(x, x + n, row);
        for (int j = 0; j < n; ++j)
            x[j] = row[from[j]];
    };
    reorder(eigen_val);
    for (int i = 0; i < n; ++i)
        reorder(eigen_vec[i]);
    std::free(row);
    std::free(from);
}

void eispack_cg(int n, double tolerance, complex** a, complex* eigen_val, complex** eigen_vec) {
    eps = tolerance;
    if (n < 1)
        return;
    double* scale = new_vector<double>(to_size(n) + 1);
    double* ortr = new_vector<double>(to_size(n) + 1);
    double* orti = new_vector<double>(to_size(n) + 1);
    int low, igh;
    cbal(n, a, low, igh, scale);
    corth(n, low, igh, a, ortr, orti);
    comqr2(n, low, igh, ortr, orti, a, eigen_val, eigen_vec);
    cbabk2(n, low, igh, scale, n, eigen_vec);
    sort_eigval_eigvec(n, eigen_val, eigen_vec);
    std::free(orti);
    std::free(ortr);
    std::free(scale);
}

} // namespace orvel
