// SPDX-License-Identifier: MIT
#include "numeric/kernels.h"
#include "numeric/lanes.h"

namespace orvel {
namespace ORVEL_MACHINE {

// Vectors in a strip of columns: what the registers hold for two rows.
#ifdef ORVEL_WIDE
constexpr int strip = 2;
#else
constexpr int strip = 1;
#endif

// R rows and V vectors of c stay in registers while k runs.
template <int R, int V>
static inline void add_block(int l, planes c, factors a, planes b) {
    cvec sum[R][V];
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < V; ++v)
            sum[r][v] = load(c.re + r * c.ld + v * lanes, c.im + r * c.ld + v * lanes);
    for (int k = 0; k < l; ++k) {
        cvec row[V];
        for (int v = 0; v < V; ++v)
            row[v] = load(b.re + v * lanes, b.im + v * lanes);
        for (int r = 0; r < R; ++r) {
            const cvec factor = all(a.re[r * a.row], a.im[r * a.row]);
            for (int v = 0; v < V; ++v)
                sum[r][v] = add_mul(sum[r][v], factor, row[v]);
        }
        a.re += a.column;
        a.im += a.column;
        b.re += b.ld;
        b.im += b.ld;
    }
    for (int r = 0; r < R; ++r)
        for (int v = 0; v < V; ++v)
            store(c.re + r * c.ld + v * lanes, c.im + r * c.ld + v * lanes, sum[r][v]);
}

template <int V>
static inline void add_strip(int m, int l, planes c, factors a, planes b) {
    int i = 0;
    for (; i + 2 <= m; i += 2) {
        add_block<2, V>(l, c, a, b);
        c.re += 2 * c.ld;
        c.im += 2 * c.ld;
        a.re += 2 * a.row;
        a.im += 2 * a.row;
    }
    if (i < m)
        add_block<1, V>(l, c, a, b);
}

void add_product(int m, int n, int l, planes c, factors a, planes b) {
    int j = 0;
    for (; j + strip * lanes <= n; j += strip * lanes)
        add_strip<strip>(m, l, {c.re + j, c.im + j, c.ld}, a, {b.re + j, b.im + j, b.ld});
    for (; j < n; j += lanes)
        add_strip<1>(m, l, {c.re + j, c.im + j, c.ld}, a, {b.re + j, b.im + j, b.ld});
}

// R rows share each load of x.
template <int R>
static inline void sum_rows(int n, planes a, planes x, complex* sum) {
    cvec s[R] = {};
    int j = 0;
    for (; j + lanes <= n; j += lanes) {
        const cvec z = load(x.re + j, x.im + j);
        for (int r = 0; r < R; ++r)
            s[r] = add_mul(s[r], load(a.re + r * a.ld + j, a.im + r * a.ld + j), z);
    }
    for (int r = 0; r < R; ++r)
        sum[r] = {sum_of(s[r].re), sum_of(s[r].im)};
    for (; j < n; ++j) {
        for (int r = 0; r < R; ++r) {
            const double re = a.re[r * a.ld + j], im = a.im[r * a.ld + j];
            sum[r].re += re * x.re[j] - im * x.im[j];
            sum[r].im += re * x.im[j] + im * x.re[j];
        }
    }
}

void times_vector(int m, int n, planes a, planes x, complex* sum) {
    constexpr int together = 4;
    int i = 0;
    for (; i + together <= m; i += together)
        sum_rows<together>(n, {a.re + i * a.ld, a.im + i * a.ld, a.ld}, x, sum + i);
    for (; i < m; ++i)
        sum_rows<1>(n, {a.re + i * a.ld, a.im + i * a.ld, a.ld}, x, sum + i);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
