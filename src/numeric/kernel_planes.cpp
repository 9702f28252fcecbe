// SPDX-License-Identifier: MIT
#include "numeric/kernels.h"
#include "numeric/lanes.h"

namespace orvel {
namespace ORVEL_MACHINE {

void split_row(int n, const complex* z, double* re, double* im) {
    int j = 0;
    for (; j + lanes <= n; j += lanes)
        store(re + j, im + j, load_numbers(&z[j].re));
    if (j == n)
        return;
    cvec rest = {};
    for (int r = 0; j + r < n; ++r) {
        rest.re[r] = z[j + r].re;
        rest.im[r] = z[j + r].im;
    }
    store(re + j, im + j, rest);
}

void join_row(int n, const double* re, const double* im, complex* z) {
    int j = 0;
    for (; j + lanes <= n; j += lanes)
        store_numbers(&z[j].re, load(re + j, im + j));
    for (; j < n; ++j)
        z[j] = {re[j], im[j]};
}

void rows_to_columns(int m, int n, const double* rows, std::ptrdiff_t ld, double* columns, std::ptrdiff_t columns_ld) {
    int i = 0;
    for (; i + lanes <= m; i += lanes) {
        int j = 0;
        for (; j + lanes <= n; j += lanes) {
            const double* from = rows + i * ld + j;
            double* to = columns + j * columns_ld + i;
            vec a = load(from), b = load(from + ld), c = load(from + 2 * ld), d = load(from + 3 * ld);
            transpose(a, b, c, d);
            store(to, a);
            store(to + columns_ld, b);
            store(to + 2 * columns_ld, c);
            store(to + 3 * columns_ld, d);
        }
        for (; j < n; ++j)
            for (int r = i; r < i + lanes; ++r)
                columns[j * columns_ld + r] = rows[r * ld + j];
    }
    for (; i < m; ++i)
        for (int j = 0; j < n; ++j)
            columns[j * columns_ld + i] = rows[i * ld + j];
}

void scale_row(int n, double* re, double* im, complex f) {
    const cvec factor = all(f.re, f.im);
    for (int j = 0; j < n; j += lanes)
        store(re + j, im + j, mul(factor, load(re + j, im + j)));
}

void squared_moduli(int n, const double* re, const double* im, double* square, double* largest) {
    vec most = all(-1.0);
    int i = 0;
    for (; i + lanes <= n; i += lanes) {
        const cvec z = load(re + i, im + i);
        const vec s = z.re * z.re + z.im * z.im;
        store(square + i, s);
        most = s > most ? s : most;
    }
    double max = -1.0;
    for (; i < n; ++i) {
        square[i] = re[i] * re[i] + im[i] * im[i];
        max = square[i] > max ? square[i] : max;
    }
    for (int r = 0; r < lanes; ++r)
        max = most[r] > max ? most[r] : max;
    *largest = max;
}

} // namespace ORVEL_MACHINE
} // namespace orvel
