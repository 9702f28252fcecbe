// SPDX-License-Identifier: MIT
#include "numeric/lb_invmat1.h"

#include <algorithm>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "numeric/lb_rows.h"
#include "numeric/vecmat.h"

namespace orvel {

// Brings column k up to date with the columns in front of it, whose row exchanges perm holds;
// column receives a copy of its part above the diagonal.
ORVEL_VECTOR_CLONES
static void update_column(int n, int k, complex** a, const int* perm, complex* column) {
    constexpr int together = 4;
    complex sum[together];
    for (int i = 0; i < k; ++i) {
        std::swap(a[perm[i]][k], a[i][k]);
        row_sums<1>(a + i, 0, i, 1, column, sum);
        column[i] = a[i][k] = c_add(a[i][k], sum[0]);
    }
    for (int i = k; i < n;) {
        const int rows = i + together <= n ? together : 1;
        if (rows == together)
            row_sums<together>(a + i, 0, k, 1, column, sum);
        else
            row_sums<1>(a + i, 0, k, 1, column, sum);
        for (int r = 0; r < rows; ++r, ++i)
            a[i][k] = c_add(a[i][k], sum[r]);
    }
}

// LU factorisation by columns, the multipliers with negative sign. Returns n, or the column
// without a pivot.
static int factorise(int n, double tolerance, complex** a, int* perm, complex* column) {
    for (int k = 0; k < n; ++k) {
        update_column(n, k, a, perm, column);
        const int p = largest_in_column(k, n, k, a);
        if (c_abs(a[p][k]) < tolerance)
            return k;
        perm[k] = p;
        if (p != k)
            std::swap_ranges(a[p], a[p] + k + 1, a[k]);
        const complex divisor = {-a[k][k].re, -a[k][k].im};
        for (int i = k + 1; i < n; ++i)
            a[i][k] = c_div(a[i][k], divisor);
    }
    return n;
}

// Both factors in place. Each row of an inverse is a sum of rows, whose factors stand in the row
// itself until their own turn.
ORVEL_VECTOR_CLONES
static void invert_factors(int n, complex** a) {
    for (int r = 2; r < n; ++r)
        for (int j = 1; j < r; ++j)
            row_add(j, a[r], a[r][j], a[j]);

    for (int i = 0; i < n; ++i)
        a[i][i] = c_div({1.0, 0.0}, a[i][i]);
    for (int i = 0; i < n; ++i) {
        row_scale(n - i - 1, a[i] + i + 1, a[i][i]);
        for (int j = i + 1; j < n; ++j) {
            a[i][j] = c_mul({-a[j][j].re, -a[j][j].im}, a[i][j]);
            row_add(n - j - 1, a[i] + j + 1, a[i][j], a[j] + j + 1);
        }
    }
}

// The inverse of the upper factor times that of the lower one.
ORVEL_VECTOR_CLONES
static void multiply_factors(int n, complex** a) {
    for (int i = 0; i < n; ++i) {
        row_scale(i, a[i], a[i][i]);
        for (int j = i + 1; j < n; ++j)
            row_add(j, a[i], a[i][j], a[j]);
    }
}

int inv_c_mat(int n, double tolerance, complex** a) {
    const int invalid_argument = 30000;
    if (n < 1 || !(tolerance > 0.0)) {
        ov_fprintf(stdout, "$$ (inv_c_mat) invalid n or epsilon.\n");
        return invalid_argument;
    }
    int* perm = new_vector<int>(to_size(n));
    complex* column = new_vector<complex>(to_size(n));
    int code = factorise(n, tolerance, a, perm, column);
    if (code < n) {
        ov_fprintf(stdout, "$$ Anomalous termination in inv_c_mat.\n");
    } else {
        code = 0;
        invert_factors(n, a);
        multiply_factors(n, a);
        for (int k = n - 2; k >= 0; --k)
            if (perm[k] != k)
                for (int i = 0; i < n; ++i)
                    std::swap(a[i][perm[k]], a[i][k]);
    }
    std::free(column);
    std::free(perm);
    return code;
}

} // namespace orvel
