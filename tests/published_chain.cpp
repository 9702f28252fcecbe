// SPDX-License-Identifier: MIT
#include "published_chain.h"

#include <algorithm>
#include <cmath>

namespace orvel_test {
namespace {

template <class T>
struct table { // rows of n elements, from 1; a vector with n = 1
    int n;
    std::vector<T> x;
    T& operator()(int i, int j = 1) { return x[std::size_t((i - 1) * n + j - 1)]; }
};
using matrix = table<number>;

struct chain {
    int n, low, igh;
    double eps;
    matrix h, z, ort, w;
    table<double> scale, sine;
    int (*counts)[2];
};

bool met(chain& c, chain_test test, bool outcome) {
    ++c.counts[test][outcome];
    return outcome;
}

template <class F>
auto sum(int first, int last, F f) {
    decltype(f(first)) s = 0.0;
    for (int i = first; i <= last; ++i)
        s += f(i);
    return s;
}

double parts(number z) { return std::abs(z.real()) + std::abs(z.imag()); }
double larger(number z) { return std::max(std::abs(z.real()), std::abs(z.imag())); }

void scale_row(matrix& a, int i, int first, int last, number f) {
    for (int j = first; j <= last; ++j)
        a(i, j) *= f;
}
void scale_column(matrix& a, int j, int first, int last, number f) {
    for (int i = first; i <= last; ++i)
        a(i, j) *= f;
}

// Row (or column) j holds nothing but its diagonal element, and was exchanged with number m.
bool isolate(chain& c, int j, int m, bool row) {
    for (int i = c.low; i <= c.igh; ++i)
        if (i != j && met(c, element_there, larger(row ? c.h(j, i) : c.h(i, j)) > c.eps))
            return false;
    c.scale(m) = j;
    for (int i = 1; i <= c.igh && j != m; ++i)
        std::swap(c.h(i, j), c.h(i, m));
    for (int i = c.low; i <= c.n && j != m; ++i)
        std::swap(c.h(j, i), c.h(m, i));
    return true;
}

bool balance(chain& c, int i) {
    double column = sum(c.low, c.igh, [&](int j) { return j == i ? 0.0 : parts(c.h(j, i)); });
    const double row = sum(c.low, c.igh, [&](int j) { return j == i ? 0.0 : parts(c.h(i, j)); });
    const double before = column + row;
    double f = 1.0;
    if (!met(c, scaled_row, column >= c.eps && row >= c.eps))
        return false;
    for (; column < row / 16.0; column *= 256.0)
        f *= 16.0;
    for (; column >= row * 16.0; column /= 256.0)
        f /= 16.0;
    if ((column + row) / f >= 0.95 * before)
        return false;
    c.scale(i) *= f;
    scale_row(c.h, i, c.low, c.n, 1.0 / f);
    scale_column(c.h, i, 1, c.igh, f);
    return true;
}

void cbal(chain& c) {
    for (int j = c.n; j >= 1; --j)
        if (isolate(c, j, c.igh, true)) {
            if (c.igh == 1)
                return;
            j = c.igh--; // the search starts again
        }
    for (int j = 1; j <= c.igh; ++j)
        if (isolate(c, j, c.low, false))
            j = c.low++;
    std::fill(&c.scale(c.low), &c.scale(c.igh) + 1, 1.0);
    while (sum(c.low, c.igh, [&](int i) { return int(balance(c, i)); }) > 0)
        ;
}

void corth(chain& c) {
    matrix &a = c.h, &u = c.ort;
    for (int m = c.low + 1; m < c.igh; ++m) {
        const double scale = sum(m, c.igh, [&](int i) { return parts(a(i, m - 1)); });
        if (!met(c, reflected, scale >= c.eps))
            continue;
        double h = sum(m, c.igh, [&](int i) { return std::norm(u(i) = a(i, m - 1) / scale); });
        double g = std::sqrt(h);
        const double f = std::abs(u(m));
        if (met(c, phase_taken, f >= c.eps)) {
            h += f * g;
            g /= f;
            u(m) *= 1.0 + g;
        } else {
            u(m).real(g);
            a(m, m - 1).real(scale);
        }
        for (int j = m; j <= c.n; ++j) {
            const number s = sum(m, c.igh, [&](int i) { return std::conj(u(i)) * a(i, j); }) / h;
            for (int i = m; i <= c.igh; ++i)
                a(i, j) -= s * u(i);
        }
        for (int i = 1; i <= c.igh; ++i) {
            const number s = sum(m, c.igh, [&](int j) { return a(i, j) * u(j); }) / h;
            for (int j = m; j <= c.igh; ++j)
                a(i, j) -= s * std::conj(u(j));
        }
        u(m) *= scale;
        a(m, m - 1) *= -g;
        std::fill(&u(m) + 1, &u(c.igh) + 1, 0.0); // of columns that are left out
    }
}

void accumulate(chain& c) {
    for (int i = 1; i <= c.n; ++i)
        c.z(i, i) = 1.0;
    for (int i = c.igh - 1; i > c.low; --i) {
        const number below = c.h(i, i - 1), ort = c.ort(i);
        if (!met(c, reflection_kept, larger(ort) >= c.eps && larger(below) >= c.eps))
            continue;
        for (int k = i + 1; k <= c.igh; ++k)
            c.ort(k) = c.h(k, i - 1);
        for (int j = i; j <= c.igh; ++j) {
            const number s = sum(i, c.igh, [&](int k) { return std::conj(c.ort(k)) * c.z(k, j); });
            for (int k = i; k <= c.igh; ++k)
                c.z(k, j) += s / (below.real() * ort.real() + below.imag() * ort.imag()) * c.ort(k);
        }
    }
}

void make_subdiagonal_real(chain& c) {
    for (int i = c.low + 1; i <= c.igh; ++i) {
        const number below = c.h(i, i - 1), y = below / std::abs(below);
        if (!met(c, phase_made, std::abs(below.imag()) >= c.eps))
            continue;
        c.h(i, i - 1) = std::abs(below);
        scale_row(c.h, i, i, c.n, std::conj(y));
        scale_column(c.h, i, 1, std::min(i + 1, c.igh), y);
        scale_column(c.z, i, c.low, c.igh, y);
    }
}

number csroot(number z) { // std::sqrt takes -0.0 in the imaginary part for negative
    return std::sqrt(z.imag() == 0.0 ? number(z.real(), 0.0) : z);
}

number shift(chain& c, int en) {
    const number s = c.h(en, en), x = c.h(en - 1, en) * c.h(en, en - 1).real();
    if (!met(c, shift_corrected, larger(x) > c.eps))
        return s;
    const number y = (c.h(en - 1, en - 1) - s) / 2.0, root = csroot(y * y + x);
    return s - x / (y + (y.real() * root.real() + y.imag() * root.imag() < 0.0 ? -root : root));
}

void rotate(number& x, number& y, number cosine, double sine) {
    const number a = x;
    x = cosine * a + sine * y;
    y = std::conj(cosine) * y - sine * a;
}

void sweep(chain& c, int l, int en) {
    matrix& h = c.h;
    for (int i = l + 1; i <= en; ++i) {
        const double sr = h(i, i - 1).real(), norm = std::hypot(std::abs(h(i - 1, i - 1)), sr);
        c.w(i - 1) = h(i - 1, i - 1) / norm;
        c.sine(i) = sr / norm;
        h(i - 1, i - 1) = norm;
        h(i, i - 1) = 0.0;
        for (int j = i; j <= c.n; ++j)
            rotate(h(i - 1, j), h(i, j), std::conj(c.w(i - 1)), c.sine(i));
    }
    number q = 1.0;
    if (met(c, last_made_real, std::abs(h(en, en).imag()) > c.eps)) {
        q = h(en, en) / std::abs(h(en, en));
        h(en, en) = std::abs(h(en, en));
        scale_row(h, en, en + 1, c.n, std::conj(q));
    }
    for (int j = l + 1; j <= en; ++j) {
        for (int i = 1; i <= j; ++i)
            rotate(h(i, j - 1), h(i, j), c.w(j - 1), c.sine(j));
        h(j, j - 1).imag(0.0);
        for (int i = c.low; i <= c.igh; ++i)
            rotate(c.z(i, j - 1), c.z(i, j), c.w(j - 1), c.sine(j));
    }
    if (met(c, column_turned, std::abs(q.imag()) >= c.eps)) {
        scale_column(h, en, 1, en, q);
        scale_column(c.z, en, c.low, c.igh, q);
    }
}

// False at the end of 30 n sweeps, or where it has to abort.
bool iterate(chain& c, int& aborted) {
    number t = 0.0;
    int left = 30 * c.n;
    for (int en = c.igh; en >= c.low; --en) {
        for (int its = 0;; ++its) {
            int l = en;
            while (l > c.low && !met(c, negligible, std::abs(c.h(l, l - 1).real()) < c.eps))
                --l;
            if (l == en)
                break;
            const bool exceptional = its == 10 || its == 20;
            if (left-- == 0 || (aborted = exceptional && en < 3 ? en : 0) != 0)
                return false;
            const number s = exceptional ? std::abs(c.h(en, en - 1).real()) + std::abs(c.h(en - 1, en - 2).real())
                                         : shift(c, en);
            for (int i = c.low; i <= en; ++i)
                c.h(i, i) -= s;
            t += s;
            sweep(c, l, en);
        }
        c.w(en) = c.h(en, en) += t;
    }
    return true;
}

void back_substitute(chain& c, double norm) {
    for (int en = c.n; en > 1; --en) {
        c.h(en, en) = 1.0;
        for (int i = en - 1; i >= 1; --i) {
            number y = c.w(en) - c.w(i);
            if (y == 0.0)
                for (y = 0.01 * norm; norm + y.real() > norm;)
                    y *= 0.01;
            c.h(i, en) = sum(i + 1, en, [&](int j) { return c.h(i, j) * c.h(j, en); }) / y;
            const double r = parts(c.h(i, en));
            if (!met(c, tiny_component, r < c.eps) && !(r + 1.0 / r > r))
                scale_column(c.h, en, i, en, 1.0 / r);
        }
    }
}

void form_vectors(chain& c) {
    double norm = 0.0;
    for (int i = 1; i <= c.n; ++i)
        for (int j = i; j <= c.n; ++j)
            norm = std::max(norm, parts(c.h(i, j)));
    if (c.n == 1 || met(c, too_small, norm < c.eps))
        return;
    back_substitute(c, norm);
    for (int j = c.n; j >= 1; --j) {
        const int m = std::min(j, c.igh);
        for (int i = 1; i <= c.n; ++i)
            if ((i < c.low || i > c.igh) && i < j)
                c.z(i, j) = c.h(i, j);
            else if (i >= c.low && i <= c.igh && j > c.low)
                c.z(i, j) = sum(c.low, m, [&](int k) { return c.z(i, k) * c.h(k, j); });
        const double s = sum(1, c.n, [&](int i) { return std::norm(c.z(i, j)); });
        if (met(c, unit_length, s >= c.eps))
            scale_column(c.z, j, 1, c.n, 1.0 / std::sqrt(s));
    }
}

void cbabk2(chain& c) {
    for (int i = c.low; c.igh != c.low && i <= c.igh; ++i)
        scale_row(c.z, i, 1, c.n, c.scale(i));
    for (int ii = 1; ii <= c.n; ++ii) {
        const int i = ii < c.low ? c.low - ii : ii;
        for (int j = 1; (i < c.low || i > c.igh) && j <= c.n; ++j)
            std::swap(c.z(i, j), c.z(int(c.scale(i)), j));
    }
}

} // namespace

int published_chain(const square& a, double eps, std::vector<orvel::complex>& w, square& v, int counts[num_tests][2]) {
    const std::size_t n = std::size_t(a.n);
    const matrix zero = {a.n, std::vector<number>(n * n)}, zeros = {1, std::vector<number>(n)};
    const table<double> reals = {1, std::vector<double>(n)};
    chain c = {a.n, 1, a.n, eps, zero, zero, zeros, zeros, reals, reals, counts};
    std::transform(a.data.begin(), a.data.end(), c.h.x.begin(), number_of);
    cbal(c);
    corth(c);
    accumulate(c);
    make_subdiagonal_real(c);
    for (int i = 1; i <= a.n; ++i)
        c.w(i) = i < c.low || i > c.igh ? c.h(i, i) : 0.0;
    int aborted = 0;
    if (iterate(c, aborted))
        form_vectors(c);
    cbabk2(c);
    std::transform(c.w.x.begin(), c.w.x.end(), w.begin(), record);
    std::transform(c.z.x.begin(), c.z.x.end(), v.data.begin(), record);
    return aborted;
}

} // namespace orvel_test
