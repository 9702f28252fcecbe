// SPDX-License-Identifier: MIT
#include "numeric/lb_fft.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
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

static void exchange(float& a, float& b) {
    const float t = a;
    a = b;
    b = t;
}

// All butterflies of one transform; sign is -1 for the backward one.
static void butterflies(int n, float sign, const float* sintbl, float* x, float* y) {
    for (int k = 1; k < n; k *= 2) {
        const int k2 = 2 * k;
        const int d = n / k2;
        for (int j = 0; j < k; ++j) {
            const int h = j * d;
            // A table of length 2 has no place of its own for the cosine of 0.
            const float c = h == 0 ? 1.0f : sintbl[h + n / 4];
            const float s = sign * sintbl[h];
            for (int i = j; i < n; i += k2) {
                const int ik = i + k;
                const float dx = s * y[ik] + c * x[ik];
                const float dy = c * y[ik] - s * x[ik];
                x[ik] = x[i] - dx;
                x[i] += dx;
                y[ik] = y[i] - dy;
                y[i] += dy;
            }
        }
    }
}

int fft1d(int direction, int n, float* x, float* y) {
    static int last_n = 0;
    static float* sintbl = nullptr;
    static int* bitrev = nullptr;

    n = std::abs(std::max(n, -INT_MAX)); // INT_MIN has no positive twin
    if (n < 1 || n != last_n) {
        last_n = n;
        std::free(sintbl);
        std::free(bitrev);
        sintbl = nullptr;
        bitrev = nullptr;
        if (n < 1)
            return 0;
        sintbl = static_cast<float*>(std::malloc((to_size(n) + to_size(n) / 4) * sizeof(float)));
        bitrev = static_cast<int*>(std::malloc(to_size(n) * sizeof(int)));
        if (sintbl == nullptr || bitrev == nullptr) {
            last_n = 0;
            ov_fprintf(stderr, "$$ Not enough memory for sintbl or bitrev \n");
            return 1;
        }
        make_sintbl(n, sintbl);
        make_bitrev(n, bitrev);
    }
    const bool backward = direction == 1 || direction < 0;
    for (int i = 0; i < n; ++i) {
        if (i < bitrev[i]) {
            exchange(x[i], x[bitrev[i]]);
            exchange(y[i], y[bitrev[i]]);
        }
    }
    butterflies(n, backward ? -1.0f : 1.0f, sintbl, x, y);
    for (int i = 0; i < n && !backward; ++i) {
        x[i] /= static_cast<float>(n);
        y[i] /= static_cast<float>(n);
    }
    return 0;
}

static void fft1d_or_exit(int direction, int n, float* x, float* y) {
    if (fft1d(direction, n, x, y) != 0)
        ov_abort(stdout, "$$ error in fft1d\n");
}

void fft2d_nxny(int direction, int nx, int ny, float** re, float** im) {
    // A row lies in memory as fft1d wants it; a column is copied out and back.
    for (int i = 0; i < nx; ++i)
        fft1d_or_exit(direction, ny, re[i], im[i]);
    float* x = new_vector<float>(to_size(nx));
    float* y = new_vector<float>(to_size(nx));
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            x[i] = re[i][j];
            y[i] = im[i][j];
        }
        fft1d_or_exit(direction, nx, x, y);
        for (int i = 0; i < nx; ++i) {
            re[i][j] = x[i];
            im[i][j] = y[i];
        }
    }
    std::free(x);
    std::free(y);
}

void fft3d_nxnynz(int direction, int nx, int ny, int nz, float*** re, float*** im) {
    for (int i = 0; i < nx; ++i)
        fft2d_nxny(direction, ny, nz, re[i], im[i]);
    float* x = new_vector<float>(to_size(nx));
    float* y = new_vector<float>(to_size(nx));
    for (int j = 0; j < ny; ++j) {
        for (int k = 0; k < nz; ++k) {
            for (int i = 0; i < nx; ++i) {
                x[i] = re[i][j][k];
                y[i] = im[i][j][k];
            }
            fft1d_or_exit(direction, nx, x, y);
            for (int i = 0; i < nx; ++i) {
                re[i][j][k] = x[i];
                im[i][j][k] = y[i];
            }
        }
    }
    std::free(x);
    std::free(y);
}

} // namespace orvel
