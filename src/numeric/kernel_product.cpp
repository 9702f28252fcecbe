// SPDX-License-Identifier: MIT
#include "numeric/panel.h"

namespace orvel {
namespace ORVEL_MACHINE {

// Rows of a block: as many as leave its sums in registers.
constexpr int block_rows = row_lanes == 8 ? 4 : 2;

// Reg is a vector as wide as a register, or what is left of columns narrower than that; sums wider than
// a register are kept in memory by compilers.
template <class Reg>
static inline Reg load_reg(const double* p) {
    typedef Reg in_memory __attribute__((aligned(8), may_alias));
    return *reinterpret_cast<const in_memory*>(p);
}
template <class Reg>
static inline void store_reg(double* p, Reg x) {
    typedef Reg in_memory __attribute__((aligned(8), may_alias));
    *reinterpret_cast<in_memory*>(p) = x;
}
template <class Reg>
constexpr int width_of = sizeof(Reg) / sizeof(double);

// R rows and V registers of c stay where they are while k runs.
template <class Reg, int R, int V>
static inline void add_block(int l, planes c, factors a, planes b) {
    constexpr int width = width_of<Reg>;
    Reg re[R][V], im[R][V];
    for (int r = 0; r < R; ++r) {
        for (int v = 0; v < V; ++v) {
            re[r][v] = load_reg<Reg>(c.re + r * c.ld + v * width);
            im[r][v] = load_reg<Reg>(c.im + r * c.ld + v * width);
        }
    }
    for (int k = 0; k < l; ++k) {
        for (int r = 0; r < R; ++r) {
            const Reg x = Reg{} + a.re[r * a.row], y = Reg{} + a.im[r * a.row];
            for (int v = 0; v < V; ++v) {
                const Reg u = load_reg<Reg>(b.re + v * width), w = load_reg<Reg>(b.im + v * width);
                re[r][v] = re[r][v] + x * u - y * w;
                im[r][v] = im[r][v] + x * w + y * u;
            }
        }
        a.re += a.column;
        a.im += a.column;
        b.re += b.ld;
        b.im += b.ld;
    }
    for (int r = 0; r < R; ++r) {
        for (int v = 0; v < V; ++v) {
            store_reg(c.re + r * c.ld + v * width, re[r][v]);
            store_reg(c.im + r * c.ld + v * width, im[r][v]);
        }
    }
}

// A strip of V registers, some rows at a time.
template <class Reg, int V>
static inline void add_strip(int m, int l, int column, planes c, factors a, planes b) {
    c = {c.re + column, c.im + column, c.ld};
    b = {b.re + column, b.im + column, b.ld};
    for (int i = 0; i < m;) {
        const int rows = i + block_rows <= m ? block_rows : 1;
        if (rows == block_rows)
            add_block<Reg, block_rows, V>(l, c, a, b);
        else
            add_block<Reg, 1, V>(l, c, a, b);
        i += rows;
        c.re += rows * c.ld;
        c.im += rows * c.ld;
        a.re += rows * a.row;
        a.im += rows * a.row;
    }
}

void add_product(int m, int n, int l, planes c, factors a, planes b) {
    constexpr int strip = 2 * row_lanes;
    int j = 0;
    for (; j + strip <= n; j += strip)
        add_strip<row_vec, 2>(m, l, j, c, a, b);
    for (; j + row_lanes <= n && row_lanes > lanes; j += row_lanes)
        add_strip<row_vec, 1>(m, l, j, c, a, b);
    for (; j < n; j += lanes) {
        if (row_lanes >= lanes)
            add_strip<vec, 1>(m, l, j, c, a, b);
        else
            add_strip<row_vec, 2>(m, l, j, c, a, b);
    }
}

// R rows share each load of x.
template <int R>
static inline void sum_rows(int n, planes a, planes x, complex* sum) {
    cvec s[R] = {};
    for (int j = 0; j < n; j += lanes) {
        const cvec z = load(x.re + j, x.im + j);
        for (int r = 0; r < R; ++r)
            s[r] = add_mul(s[r], load(a.re + r * a.ld + j, a.im + r * a.ld + j), z);
    }
    for (int r = 0; r < R; ++r)
        sum[r] = {sum_of(s[r].re), sum_of(s[r].im)};
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
