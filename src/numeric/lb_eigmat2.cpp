// SPDX-License-Identifier: MIT
#include "numeric/lb_eigmat2.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "numeric/lb_rows.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- balancing ----

// Elements that count as zero when eigenvalues are isolated; NaN does not.
static bool negligible(complex z) { return std::fabs(z.re) <= eps && std::fabs(z.im) <= eps; }

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
    if (n < 1 || !isolate_rows(n, a, igh, scale))
        return;
    isolate_columns(n, a, low, igh, scale);
    for (int i = low; i <= igh; ++i)
        scale[i] = 1.0;
    while (balance_once(n, low, igh, a, scale))
        ;
}

// ---- reduction to Hessenberg form ----

// The Householder vector u[m..last] that clears column m - 1 below its subdiagonal element, which
// becomes minus g times itself; the reflection is I - u u^H / h. False for a negligible one.
static bool householder(int m, int last, complex** a, complex* u,
                        double& scale, double& g, double& h) {
    scale = 0.0;
    for (int i = m; i <= last; ++i)
        scale = scale + std::fabs(a[i][m - 1].re) + std::fabs(a[i][m - 1].im);
    if (scale < eps)
        return false;
    h = 0.0;
    for (int i = last; i >= m; --i) {
        u[i] = {a[i][m - 1].re / scale, a[i][m - 1].im / scale};
        h = h + u[i].re * u[i].re + u[i].im * u[i].im;
    }
    g = std::sqrt(h);
    const double f = pythag(u[m].re, u[m].im);
    if (f < eps) {
        u[m].re = g;
        a[m][m - 1].re = scale;
    } else {
        h += f * g;
        g /= f;
        u[m] = {(1.0 + g) * u[m].re, (1.0 + g) * u[m].im};
    }
    return true;
}

// A := (I - u u^H / h) A (I - u u^H / h) for u[m..last]; the left factor on columns m..n-1, the
// right one on rows 0..last. The two meet in one pass, so that each row is fetched once.
ORVEL_VECTOR_CLONES
static void reflect(int n, int m, int last, complex** a, const complex* u, double h, complex* sum,
                    complex* u_conj) {
    for (int j = m; j < n; ++j)
        sum[j] = {0.0, 0.0};
    for (int i = last; i >= m; --i)
        row_add(n - m, sum + m, c_conj(u[i]), a[i] + m);
    for (int j = m; j < n; ++j)
        sum[j] = {sum[j].re / h, sum[j].im / h};
    for (int j = m; j <= last; ++j)
        u_conj[j] = c_conj(u[j]);

    constexpr int together = 4;
    complex f[together];
    for (int i = 0; i <= last;) {
        const int rows = i + together <= last + 1 ? together : 1;
        for (int r = std::max(i, m); r < i + rows; ++r)
            row_add(n - m, a[r] + m, sum + m, {-u[r].re, -u[r].im});
        if (rows == together)
            row_sums<together>(a + i, last, m - 1, -1, u, f);
        else
            row_sums<1>(a + i, last, m - 1, -1, u, f);
        for (int r = 0; r < rows; ++r, ++i)
            row_add(last - m + 1, a[i] + m, {-f[r].re / h, -f[r].im / h}, u_conj + m);
    }
}

void corth(int n, int low, int igh, complex** a, double* ortr, double* orti) {
    const int last = igh - 1;
    complex* u = new_vector<complex>(to_size(n));
    complex* u_conj = new_vector<complex>(to_size(n));
    complex* sum = new_vector<complex>(to_size(n));
    for (int m = low; m < last; ++m) {
        double scale, g, h;
        ortr[m + 1] = 0.0;
        orti[m + 1] = 0.0;
        if (!householder(m, last, a, u, scale, g, h))
            continue;
        reflect(n, m, last, a, u, h, sum, u_conj);
        ortr[m + 1] = scale * u[m].re;
        orti[m + 1] = scale * u[m].im;
        a[m][m - 1] = {-g * a[m][m - 1].re, -g * a[m][m - 1].im};
    }
    std::free(sum);
    std::free(u_conj);
    std::free(u);
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
