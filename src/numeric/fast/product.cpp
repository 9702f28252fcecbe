// SPDX-License-Identifier: MIT
#include "numeric/fast/simd.h"

namespace orvel {
namespace ORVEL_MACHINE {

// R rows and V vectors of N columns of c stay where they are while k runs. Sums in vectors wider than a
// register would be kept in memory by compilers.
template <int N, int R, int V>
static inline void add_block(int l, planes c, factors a, planes b) {
    cvec<N> sum[R][V];
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < V; ++v)
            sum[r][v] = load<N>(row_at(c, r, v * N));
    for (int k = 0; k < l; ++k) {
        for (int r = 0; r < R; ++r) {
            const cvec<N> x = all<N>(a.re[r * a.row], a.im[r * a.row]);
            for (int v = 0; v < V; ++v) {
                const cvec<N> y = load<N>(row_at(b, 0, v * N));
                sum[r][v].re = sum[r][v].re + x.re * y.re - x.im * y.im;
                sum[r][v].im = sum[r][v].im + x.re * y.im + x.im * y.re;
            }
        }
        a.re += a.column;
        a.im += a.column;
        b = at(b, 1, 0);
    }
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < V; ++v)
            store(row_at(c, r, v * N), sum[r][v]);
}

// V vectors of columns, some rows at a time.
template <int N, int V>
static inline void add_columns(int m, int l, planes c, factors a, planes b) {
    for (int i = 0; i < m;) {
        const int rows = i + product_rows <= m ? product_rows : 1;
        if (rows == product_rows)
            add_block<N, product_rows, V>(l, c, a, b);
        else
            add_block<N, 1, V>(l, c, a, b);
        i += rows;
        c = at(c, rows, 0);
        a.re += rows * a.row;
        a.im += rows * a.row;
    }
}

void add_product(int m, int n, int l, planes c, factors a, planes b) {
    int j = 0;
    for (; j + 2 * register_lanes <= n; j += 2 * register_lanes)
        add_columns<register_lanes, 2>(m, l, at(c, 0, j), a, at(b, 0, j));
    for (; j + register_lanes <= n && register_lanes > group; j += register_lanes)
        add_columns<register_lanes, 1>(m, l, at(c, 0, j), a, at(b, 0, j));
    for (; j < n; j += group) { // a group is one vector, or two narrow ones
        constexpr int lanes = register_lanes < group ? register_lanes : group;
        add_columns<lanes, group / lanes>(m, l, at(c, 0, j), a, at(b, 0, j));
    }
}

static inline double sum_in_pairs(vec<group> x) { return (x[0] + x[1]) + (x[2] + x[3]); }

// R rows share each load of x.
template <int R>
static inline void sum_rows(int n, planes a, split_vector x, complex* sum) {
    cvec<group> s[R] = {};
    for (int j = 0; j < n; j += group) {
        const cvec<group> y = load<group>(at(x, j));
        for (int r = 0; r < R; ++r)
            s[r] = add_mul(s[r], load<group>(row_at(a, r, j)), y);
    }
    for (int r = 0; r < R; ++r)
        sum[r] = {sum_in_pairs(s[r].re), sum_in_pairs(s[r].im)};
}

void times_vector(int m, int n, planes a, split_vector x, complex* sum) {
    int i = 0;
    for (; i + group <= m; i += group)
        sum_rows<group>(n, at(a, i, 0), x, sum + i);
    for (; i < m; ++i)
        sum_rows<1>(n, at(a, i, 0), x, sum + i);
}

// ---- rows, in loops that compilers can work on by several numbers at once -------------------

void scale_row(int n, complex f, split_vector x) {
    for (int j = 0; j < n; ++j) {
        const complex z = {x.re[j], x.im[j]};
        x.re[j] = f.re * z.re - f.im * z.im;
        x.im[j] = f.re * z.im + f.im * z.re;
    }
}

// Both cases of c_div without a branch.
void divide_row(int n, const complex* z, const complex* divisor, complex* __restrict quotient) {
    for (int j = 0; j < n; ++j) {
        const complex a = z[j], b = divisor[j];
        const bool by_real = __builtin_fabs(b.re) >= __builtin_fabs(b.im);
        const double larger = by_real ? b.re : b.im, smaller = by_real ? b.im : b.re;
        const double first = by_real ? a.re : a.im, second = by_real ? a.im : a.re;
        const double r = smaller / larger, den = larger + smaller * r, cross = first * r;
        quotient[j] = {(first + second * r) / den, (by_real ? second - cross : cross - second) / den};
    }
}

} // namespace ORVEL_MACHINE
} // namespace orvel
