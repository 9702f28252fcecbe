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

void find_largest(int n, const double* re, const double* im, double close, double* square, largest_square* found) {
    vec most = all(-1.0);
    int i = 0;
    for (; i + lanes <= n; i += lanes) {
        const cvec z = load(re + i, im + i);
        const vec s = z.re * z.re + z.im * z.im;
        store(square + i, s);
        most = s > most ? s : most;
    }
    double largest = -1.0;
    for (; i < n; ++i) {
        square[i] = re[i] * re[i] + im[i] * im[i];
        largest = square[i] > largest ? square[i] : largest;
    }
    for (int r = 0; r < lanes; ++r)
        largest = most[r] > largest ? most[r] : largest;

    const double limit = close * largest;
    vec count = {}, first = all(n), place = {0.0, 1.0, 2.0, 3.0};
    for (i = 0; i + lanes <= n; i += lanes) {
        const mask near = load(square + i) >= all(limit);
        count = near ? count + 1.0 : count;
        first = (near & (place < first)) ? place : first;
        place = place + double(lanes);
    }
    *found = {largest, n, static_cast<int>(sum_of(count))};
    for (; i < n; ++i) {
        if (square[i] >= limit) {
            found->first = i < found->first ? i : found->first;
            ++found->count;
        }
    }
    for (int r = 0; r < lanes; ++r)
        found->first = first[r] < found->first ? static_cast<int>(first[r]) : found->first;
}

static inline vec modulus(vec x) { return x < 0.0 ? -x : x; }

static inline cvec quotient_of(cvec z, cvec d) {
    const mask by_real = modulus(d.re) >= modulus(d.im);
    const vec larger = by_real ? d.re : d.im, smaller = by_real ? d.im : d.re;
    const vec r = smaller / larger, den = larger + smaller * r;
    const vec re = by_real ? z.re + z.im * r : z.re * r + z.im;
    const vec im = by_real ? z.im - z.re * r : z.im * r - z.re;
    return {re / den, im / den};
}

void divide_row(int n, const complex* z, const complex* divisor, complex* quotient) {
    int j = 0;
    for (; j + lanes <= n; j += lanes)
        store_numbers(&quotient[j].re, quotient_of(load_numbers(&z[j].re), load_numbers(&divisor[j].re)));
    for (; j < n; ++j) {
        const cvec q = quotient_of(all(z[j].re, z[j].im), all(divisor[j].re, divisor[j].im));
        quotient[j] = {q.re[0], q.im[0]};
    }
}

static inline void exchange(int n, double* x, double* y) {
    int j = 0;
    for (; j + lanes <= n; j += lanes) {
        const vec t = load(x + j);
        store(x + j, load(y + j));
        store(y + j, t);
    }
    for (; j < n; ++j) {
        const double t = x[j];
        x[j] = y[j];
        y[j] = t;
    }
}

void exchange_rows(int n, planes a, int i, int j) {
    exchange(n, a.re + i * a.ld, a.re + j * a.ld);
    exchange(n, a.im + i * a.ld, a.im + j * a.ld);
}

} // namespace ORVEL_MACHINE
} // namespace orvel
