// SPDX-License-Identifier: MIT
//
// Square complex matrices for the tests of eigensolvers and inversions, with a shape of row
// pointers as the solvers take them, and plain sums as their independent check.
#pragma once

#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "numeric/complex.h"
#include "numeric/scratch.h"

namespace orvel_test {

using number = std::complex<double>;

// Work space of all solvers; and NaN wherever the last call has left its numbers.
inline orvel::scratch room;
inline void spoil_room() {
    for (const auto& b : room.block)
        if (b.data != nullptr)
            std::memset(b.data, 0xff, b.size);
}

inline number number_of(orvel::complex z) { return {z.re, z.im}; }
inline orvel::complex record(number z) { return {z.real(), z.imag()}; }

struct square {
    int n;
    std::vector<orvel::complex> data;
    std::vector<orvel::complex*> rows;

    explicit square(int order) : n(order), data(std::size_t(n) * std::size_t(n)) { point(); }
    square(const square& other) : n(other.n), data(other.data) { point(); }
    square& operator=(const square&) = delete;
    orvel::complex** table() { return rows.data(); }
    orvel::complex& at(int i, int j) { return rows[std::size_t(i)][j]; }
    number operator()(int i, int j) const { return number_of(rows[std::size_t(i)][j]); }

private:
    void point() {
        for (int i = 0; i < n; ++i)
            rows.push_back(data.data() + std::size_t(i) * std::size_t(n));
    }
};

inline square random_square(int n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    square a(n);
    for (orvel::complex& z : a.data)
        z = {value(random), value(random)};
    return a;
}

// Largest sum of moduli in a column.
inline double norm_of(const square& a) {
    double norm = 0.0;
    for (int j = 0; j < a.n; ++j) {
        double sum = 0.0;
        for (int i = 0; i < a.n; ++i)
            sum += std::abs(a(i, j));
        norm = std::max(norm, sum);
    }
    return norm;
}

inline number product(const square& a, const square& b, int i, int j) {
    number sum = 0.0;
    for (int k = 0; k < a.n; ++k)
        sum += a(i, k) * b(k, j);
    return sum;
}

} // namespace orvel_test
