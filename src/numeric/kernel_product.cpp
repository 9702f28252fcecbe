// SPDX-License-Identifier: MIT
#include "numeric/kernels.h"
#include "numeric/lanes.h"

namespace orvel {
namespace ORVEL_MACHINE {

// As wide as a register, since sums that take two are kept in memory by compilers.
#ifdef ORVEL_WIDE
typedef vec reg;
static inline reg all_reg(double x) { return all(x); }
#else
typedef double reg __attribute__((vector_size(16)));
static inline reg all_reg(double x) { return reg{x, x}; }
#endif
typedef reg unaligned_reg __attribute__((aligned(8), may_alias)); // in memory
constexpr int reg_lanes = sizeof(reg) / sizeof(double);

static inline reg load_reg(const double* p) { return *reinterpret_cast<const unaligned_reg*>(p); }
static inline void store_reg(double* p, reg x) { *reinterpret_cast<unaligned_reg*>(p) = x; }

// R rows and V registers of c stay where they are while k runs.
template <int R, int V>
static inline void add_block(int l, planes c, factors a, planes b) {
    reg re[R][V], im[R][V];
    for (int r = 0; r < R; ++r) {
        for (int v = 0; v < V; ++v) {
            re[r][v] = load_reg(c.re + r * c.ld + v * reg_lanes);
            im[r][v] = load_reg(c.im + r * c.ld + v * reg_lanes);
        }
    }
    for (int k = 0; k < l; ++k) {
        for (int r = 0; r < R; ++r) {
            const reg x = all_reg(a.re[r * a.row]), y = all_reg(a.im[r * a.row]);
            for (int v = 0; v < V; ++v) {
                const reg u = load_reg(b.re + v * reg_lanes), w = load_reg(b.im + v * reg_lanes);
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
            store_reg(c.re + r * c.ld + v * reg_lanes, re[r][v]);
            store_reg(c.im + r * c.ld + v * reg_lanes, im[r][v]);
        }
    }
}

// A strip of V registers, two rows at a time.
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
    constexpr int strip = 2 * reg_lanes;
    int j = 0;
    for (; j + strip <= n; j += strip)
        add_strip<2>(m, l, {c.re + j, c.im + j, c.ld}, a, {b.re + j, b.im + j, b.ld});
    for (; j < n; j += lanes)
        add_strip<lanes / reg_lanes>(m, l, {c.re + j, c.im + j, c.ld}, a, {b.re + j, b.im + j, b.ld});
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
