// SPDX-License-Identifier: MIT
#include "numeric/lb_fft.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "numeric/clones.h"
#include "numeric/complex.h"
#include "numeric/vecmat.h"

namespace orvel {

// sintbl[i] = sin(2 pi i / n) for n + n/4 values, so that the cosine stands n/4 further. Built by
// the addition theorem in double, with the small difference 1 - cos kept instead of cos.
static void make_sintbl(int n, float* sintbl) {
    const int half = n / 2, quarter = n / 4, eighth = n / 8;
    double t = std::sin(pi / n);
    double dc = 2 * t * t;
    double ds = std::sqrt(dc * (2 - dc));
    t = 2 * dc;
    double c = 1, s = 0;
    sintbl[quarter] = 1;
    sintbl[0] = 0;
    for (int i = 1; i < eighth; ++i) {
        c -= dc;
        dc += t * c;
        s += ds;
        ds -= t * s;
        sintbl[i] = static_cast<float>(s);
        sintbl[quarter - i] = static_cast<float>(c);
    }
    if (eighth != 0)
        sintbl[eighth] = static_cast<float>(std::sqrt(0.5));
    for (int i = 0; i < quarter; ++i)
        sintbl[half - i] = sintbl[i];
    for (int i = 0; i < half + quarter; ++i)
        sintbl[i + half] = -sintbl[i];
}

static void make_bitrev(int n, int* bitrev) {
    int j = 0;
    bitrev[0] = 0;
    for (int i = 1; i < n; ++i) {
        int k = n / 2;
        while (k <= j) {
            j -= k;
            k /= 2;
        }
        j += k;
        bitrev[i] = j;
    }
}

// m transforms of length n side by side: element i of all of them lies in x[i * pitch] and the next
// m - 1 values. A single transform has m = pitch = 1.
struct side_by_side {
    int n, m;
    std::size_t pitch;
    float *x, *y;
};

// Elements i and k of all transforms change places.
static void exchange(const side_by_side& t, int i, int k) {
    std::swap_ranges(t.x + to_size(i) * t.pitch, t.x + to_size(i) * t.pitch + t.m, t.x + to_size(k) * t.pitch);
    std::swap_ranges(t.y + to_size(i) * t.pitch, t.y + to_size(i) * t.pitch + t.m, t.y + to_size(k) * t.pitch);
}

// One butterfly of m transforms: elements x, y and, half a block further, xk, yk.
static inline void butterfly(int m, float c, float s, float* __restrict x, float* __restrict y,
                             float* __restrict xk, float* __restrict yk) {
    for (int p = 0; p < m; ++p) {
        const float dx = s * yk[p] + c * xk[p];
        const float dy = c * yk[p] - s * xk[p];
        xk[p] = x[p] - dx;
        x[p] += dx;
        yk[p] = y[p] - dy;
        y[p] += dy;
    }
}

// All butterflies; sign is -1 for the backward transform.
static inline void butterflies(const side_by_side& t, float sign, const float* sintbl) {
    for (int k = 1; k < t.n; k *= 2) {
        const int k2 = 2 * k;
        const int d = t.n / k2;
        for (int j = 0; j < k; ++j) {
            const int h = j * d;
            // A table of length 2 has no place of its own for the cosine of 0.
            const float c = h == 0 ? 1.0f : sintbl[h + t.n / 4];
            const float s = sign * sintbl[h];
            for (int i = j; i < t.n; i += k2) {
                float* x = t.x + to_size(i) * t.pitch;
                float* y = t.y + to_size(i) * t.pitch;
                butterfly(t.m, c, s, x, y, x + to_size(k) * t.pitch, y + to_size(k) * t.pitch);
            }
        }
    }
}

ORVEL_VECTOR_CLONES
static void butterflies_of_many(const side_by_side& t, float sign, const float* sintbl) {
    butterflies(t, sign, sintbl);
}

// The tables of the last length, which stay for the next call.
struct fft_tables {
    int n;
    float* sintbl;
    int* bitrev;
};

// False without memory. n = 0 frees the tables.
static bool make_tables(int n, fft_tables& tables) {
    if (n > 0 && n == tables.n)
        return true;
    std::free(tables.sintbl);
    std::free(tables.bitrev);
    tables = {0, nullptr, nullptr};
    if (n < 1)
        return true;
    tables.sintbl = static_cast<float*>(std::malloc((to_size(n) + to_size(n) / 4) * sizeof(float)));
    tables.bitrev = static_cast<int*>(std::malloc(to_size(n) * sizeof(int)));
    if (tables.sintbl == nullptr || tables.bitrev == nullptr) {
        ov_fprintf(stderr, "$$ Not enough memory for sintbl or bitrev \n");
        return false;
    }
    tables.n = n;
    make_sintbl(n, tables.sintbl);
    make_bitrev(n, tables.bitrev);
    return true;
}

// As fft1d, for all of t; t.n is not negative.
static int transform(int direction, const side_by_side& t) {
    static fft_tables tables = {0, nullptr, nullptr};
    if (!make_tables(t.n, tables))
        return 1;
    const bool backward = direction == 1 || direction < 0;
    const float sign = backward ? -1.0f : 1.0f;
    for (int i = 0; i < t.n; ++i)
        if (i < tables.bitrev[i])
            exchange(t, i, tables.bitrev[i]);
    if (t.pitch == 1) // a row in memory
        butterflies({t.n, 1, 1, t.x, t.y}, sign, tables.sintbl);
    else
        butterflies_of_many(t, sign, tables.sintbl);
    for (int i = 0; i < t.n && !backward; ++i) {
        for (int p = 0; p < t.m; ++p) {
            t.x[to_size(i) * t.pitch + to_size(p)] /= static_cast<float>(t.n);
            t.y[to_size(i) * t.pitch + to_size(p)] /= static_cast<float>(t.n);
        }
    }
    return 0;
}

int fft1d(int direction, int n, float* x, float* y) {
    n = std::abs(std::max(n, -INT_MAX)); // INT_MIN has no positive twin
    return transform(direction, {n, 1, 1, x, y});
}

static void transform_or_exit(int direction, const side_by_side& t) {
    if (transform(direction, t) != 0)
        ov_abort(stdout, "$$ error in fft1d\n");
}

void fft2d_nxny(int direction, int nx, int ny, float** re, float** im) {
    for (int i = 0; i < nx; ++i)
        transform_or_exit(direction, {ny, 1, 1, re[i], im[i]});
    transform_or_exit(direction, {nx, ny, to_size(ny), re[0], im[0]});
}

void fft3d_nxnynz(int direction, int nx, int ny, int nz, float*** re, float*** im) {
    for (int i = 0; i < nx; ++i)
        fft2d_nxny(direction, ny, nz, re[i], im[i]);
    for (int j = 0; j < ny; ++j)
        transform_or_exit(direction, {nx, nz, to_size(ny) * to_size(nz), re[0][j], im[0][j]});
}

} // namespace orvel
