// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "control/settings.h"
#include "matrix_util.h"
#include "numeric/fast/dispatch.h"
#include "numeric/lb_invmat.h"
#include "numeric/lb_invmat1.h"
#include "numeric/lb_invmat2.h"
#include "numeric/vecmat.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

static const double nan_value = std::numeric_limits<double>::quiet_NaN();

static square matrix_of(int n, const std::vector<double>& real_elements) {
    square a(n);
    for (std::size_t i = 0; i < a.data.size(); ++i)
        a.data[i] = {real_elements[i], 0.0};
    return a;
}

// Without a pivot the matrix stays half transformed, and the caller goes on with what stands.
TEST(Inverse, WhatStandsWithoutAPivot) {
    const struct {
        int n, code;
        std::vector<double> a, left;
    } cases[] = {
        {1, 0, {1e-9}, {1e-9}},
        {2, 1, {1, 2, 2, 4}, {2, 4, -0.5, 0}}, // rows exchanged, multiplier -1/2, then 2 - 4/2
        {2, 1, {2, 4, -2, -4}, {2, 4, 1, 0}},  // a tie: the first row
        {3, 1, {4, 8, 1, 2, 4, 5, 1, 2, 7}, {4, 8, 1, -0.5, 0, 5, -0.25, 0, 7}},
        {3, 0, {0, 1, 2, 0, 3, 4, 0, 5, 6}, {0, 1, 2, 0, 3, 4, 0, 5, 6}},
    };
    for (const auto& c : cases) {
        square a = matrix_of(c.n, c.a);
        EXPECT_EQ(inv_c_mat(c.n, 1e-8, a.table(), room), c.code);
        for (std::size_t i = 0; i < c.left.size(); ++i)
            EXPECT_EQ(number_of(a.data[i]), number(c.left[i], 0.0)) << i;
    }
}

TEST(Inverse, FirstColumnOfSmallMatrices) {
    const struct {
        int n, info;
        std::vector<double> a, x;
    } cases[] = {
        {1, 0, {4}, {0.25}},
        {1, 30000, {1e-9}, {1e9}},
        {3, 0, {2, 0, 0, 0, 4, 0, 0, 0, 8}, {0.5, 0, 0}},
        {2, 0, {1, 2, 3, 4}, {-2, 1.5}},              // last column largest: only rows change
        {2, 30000, {1, 2, 1, 2 + 1e-9}, {2e9, -1e9}}, // last pivot -1e-9: told, and used
        {2, 30000, {0, 0, 1, 2}, {nan_value, nan_value}},
        // Small first pivot 1e-9: only that element changes its row, then x follows from
        // 1e-9 3 5 / 0 2 6 / 1 2 4, columns 0 and 2 exchanged.
        {3, 0, {4, 2, 1, 6, 2, 1e-9, 5, 3, 0}, {0.25, -0.75, 1e9}},
    };
    for (const auto& c : cases) {
        square a = matrix_of(c.n, c.a);
        std::vector<complex> x(to_size(c.n));
        int info = -1;
        inverse(c.n, a.table(), x.data(), 1e-8, info, room);
        EXPECT_EQ(info, c.info);
        for (std::size_t i = 0; i < c.x.size(); ++i) {
            if (std::isnan(c.x[i]))
                EXPECT_TRUE(std::isnan(x[i].re));
            else
                EXPECT_LE(std::abs(number_of(x[i]) - c.x[i]), 1e-6 * std::abs(c.x[i])) << c.n << i;
        }
    }
}

TEST(Inverse, EntriesAndTheirMessages) {
    const struct {
        bool column;
        int selector, n, monitor;
        double first;
        int status;
        std::string out;
    } cases[] = {
        {false, 0, 1, 1, 2.0, 0, "$$ invmat: Numpack inv_c_mat()\n0 0.5\n"},
        {false, 0, 0, 0, 2.0, 0,
         "$$ (inv_c_mat) invalid n or epsilon.\n$$ (invmat): inv_c_mat = 30000\n0 2\n"},
        {false, 0, 1, 0, 0.0, 0, "$$ Anomalous termination in inv_c_mat.\n0 0\n"},
        {false, 0, 2, 0, 1.0, 0,
         "$$ Anomalous termination in inv_c_mat.\n$$ (invmat): inv_c_mat = 1\n0 1\n"},
        {false, 3, 1, 1, 2.0, 1, "$$ Invalid epsilon.invmat_func=3. Abort.\n"},
        {true, 0, 1, 1, 2.0, 0, "0 0.5\n"},
        {true, 0, 1, 0, 1e-9, 0, "30000 1e+09\n"},
        {true, 0, 0, 0, 1.0, 0, "0 0\n"},
        {true, -1, 1, 0, 2.0, 1, "$$ Invalid epsilon.bc_invmat_func=-1. Abort.\n"},
    };
    for (const auto& c : cases) {
        const outcome o = run_child([&] {
            epsilon = {};
            epsilon.inv_eps = 1e-8;
            (c.column ? epsilon.bc_invmat_func : epsilon.invmat_func) = c.selector;
            dbg.process_mon_flag = c.monitor;
            square a = matrix_of(2, {c.first, 0.0, 0.0, 0.0});
            complex x = {0.0, 0.0};
            const int code = c.column ? bc_invmat(c.n, a.table(), &x, room) : invmat(c.n, a.table(), room);
            std::printf("%d %g\n", code, c.column ? x.re : a(0, 0).real());
        });
        EXPECT_EQ(o.status, c.status);
        EXPECT_EQ(o.out, c.out);
    }
}

// ---- against the plain forms ----------------------------------------------------------------

namespace {

// What one call leaves: its code, the matrix, and the column solved for.
struct result {
    int code;
    std::vector<number> left;
};

} // namespace

// The matrix and the unit matrix side by side, row by row. A column without a pivot is its code.
static result plain_inv_c_mat(square m, double tolerance) {
    const int n = m.n;
    square x(n);
    for (int i = 0; i < n; ++i)
        x.at(i, i) = {1.0, 0.0};
    for (int k = 0; k < n; ++k) {
        int p = k;
        for (int i = k; i < n; ++i)
            p = c_abs(m.at(i, k)) > c_abs(m.at(p, k)) ? i : p;
        if (c_abs(m.at(p, k)) < tolerance)
            return {k, {}};
        const complex pivot = m.at(p, k);
        for (square* a : {&m, &x})
            for (int j = 0; j < n; ++j) {
                std::swap(a->at(p, j), a->at(k, j));
                a->at(k, j) = c_div(a->at(k, j), pivot);
            }
        for (int i = 0; i < n; ++i) {
            const complex f = m.at(i, k);
            for (square* a : {&m, &x})
                for (int j = 0; j < n && i != k; ++j)
                    a->at(i, j) = c_sub(a->at(i, j), c_mul(f, a->at(k, j)));
        }
    }
    result r = {0, {}};
    for (const complex z : x.data)
        r.left.push_back(number_of(z));
    return r;
}

// The elimination that keeps its right-hand side in the last row.
static result plain_inverse(square m, double tolerance) {
    const int n = m.n, last = n - 1;
    const auto a = [&](int i, int j) -> complex& { return m.at(i, j); };
    int c = 0;
    for (int j = 1; j < n; ++j)
        c = c_abs(a(0, j)) > c_abs(a(0, c)) ? j : c;
    for (int i = 0; i < n; ++i)
        std::swap(a(i, c), a(i, last));
    for (int j = 0; j < n && last > 0; ++j)
        std::swap(a(0, j), a(last, j));
    for (int k = 0; k < last; ++k) {
        int p = k;
        for (int i = k; i < last; ++i)
            p = c_abs(a(i, k)) > c_abs(a(p, k)) ? i : p;
        std::swap(a(p, k), a(k, k));
        if (c_abs(a(k, k)) <= tolerance)
            break;
        for (int i = k + 1; i < n; ++i)
            a(i, k) = c_div({-a(i, k).re, -a(i, k).im}, a(k, k));
        for (int j = k + 1; j < n; ++j) {
            std::swap(a(p, j), a(k, j));
            for (int i = k + 1; i < n; ++i)
                a(i, j) = c_add(a(i, j), c_mul(a(i, k), a(k, j)));
        }
    }
    result r = {c_abs(a(last, last)) <= tolerance ? 30000 : 0, std::vector<number>(to_size(n))};
    r.left[to_size(last)] = 1.0 / m(last, last);
    for (int k = n - 2; k >= 0; --k) {
        number sum = 0.0;
        for (int j = k + 1; j < n; ++j)
            sum += m(k, j) * r.left[to_size(j)];
        r.left[to_size(k)] = -sum / m(k, k);
    }
    std::swap(r.left[to_size(c)], r.left[to_size(last)]);
    return r;
}

static result fast_inv_c_mat(square m, double tolerance) {
    result r = {inv_c_mat(m.n, tolerance, m.table(), room), {}};
    for (const complex z : m.data)
        r.left.push_back(number_of(z));
    return r;
}

static result fast_inverse(square m, double tolerance) {
    std::vector<complex> x(to_size(m.n));
    result r = {-1, {}};
    inverse(m.n, m.table(), x.data(), tolerance, r.code, room);
    for (const complex z : x)
        r.left.push_back(number_of(z));
    return r;
}

static double distance(const result& a, const result& b) {
    double most = 0.0;
    for (std::size_t i = 0; i < std::min(a.left.size(), b.left.size()); ++i)
        most = std::max(most, std::abs(a.left[i] - b.left[i]));
    return most;
}

// Of some kinds: all alike; rows that grow downwards, so that each step exchanges; a heavy diagonal
// as of weak beams; columns that fade; a few values with many ties; a column twice the first one.
static square matrix_of_kind(int kind, int n, std::mt19937& random) {
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    square a(n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            a.at(i, j) = {value(random), value(random)};
            const double scale = kind == 1 ? std::ldexp(1.0, i) : kind == 2 && i != j ? 0.03
                                                              : kind == 3             ? std::ldexp(1.0, -j)
                                                                                      : 1.0;
            a.at(i, j) = {a.at(i, j).re * scale, a.at(i, j).im * scale};
            if (kind == 4)
                a.at(i, j) = {std::round(2 * a.at(i, j).re), std::round(a.at(i, j).im)};
        }
    const int twice = static_cast<int>(random() % unsigned(n));
    for (int i = 0; i < n && kind == 5 && twice > 0; ++i)
        a.at(i, twice) = {2 * a.at(i, 0).re, 2 * a.at(i, 0).im};
    return a;
}

// The fast forms differ from the plain ones by less than these do for a matrix changed in its
// fourteenth digits. Large tolerances end the work in every column.
TEST(Inverse, AgreesWithThePlainForm) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<int> ends(41);
    testing::internal::CaptureStdout();
    for (int trial = 0; trial < 3000; ++trial) {
        const int n = trial == 0 ? 150 : trial % 300 == 299 ? 70 + trial % 7
                                                            : 1 + trial % 40,
                  kind = trial / 40 % 6;
        const double tolerance = trial % 3 != 0 ? 1e-8 : std::pow(10.0, 1.5 * value(random));
        const square a = matrix_of_kind(kind, n, random);
        square moved = a;
        for (complex& z : moved.data)
            z = {z.re * (1 + 1e-14 * value(random)), z.im * (1 + 1e-14 * value(random))};
        for (const bool column : {false, true}) {
            if (column && kind == 5) // what follows from rounding
                continue;
            const auto run_plain = column ? plain_inverse : plain_inv_c_mat;
            const auto run_fast = column ? fast_inverse : fast_inv_c_mat;
            const result wanted = run_plain(a, tolerance), nearby = run_plain(moved, tolerance);
            if (!column && wanted.code > 0)
                ++ends[to_size(std::min(wanted.code, 40))];
            for (const machine_kind machine : {machine_plain, machine_wide, machine_widest}) {
                use_machine(machine);
                spoil_room();
                const result got = run_fast(a, tolerance);
                const double limit = distance(wanted, nearby) * 4 + 1e-14;
                // The first column of A times its inverse.
                for (int i = 0; i < n && kind == 0 && tolerance == 1e-8; ++i) {
                    number sum = 0.0;
                    for (int k = 0; k < n; ++k)
                        sum += a(i, k) * got.left[to_size(column ? k : k * n)];
                    EXPECT_LT(std::abs(sum - (i == 0 ? 1.0 : 0.0)), 1e-9) << trial;
                }
                for (int i = 0; i < n && !column && got.code > 0 && got.code < n - 1; ++i)
                    EXPECT_EQ(got.left[to_size(i * n + n - 1)], a(i, n - 1)) << "behind the column without a pivot";
                EXPECT_TRUE(got.code == wanted.code || wanted.code != nearby.code) << trial;
                EXPECT_TRUE(!(distance(wanted, got) > limit))
                    << trial << " " << column << " " << n << " " << kind << " " << distance(wanted, got) << " "
                    << limit;
            }
        }
    }
    testing::internal::GetCapturedStdout();
    for (int k = 1; k < 30; ++k)
        EXPECT_GT(ends[to_size(k)], 0) << "a column without a pivot";
    for (const double odd : {nan_value, std::numeric_limits<double>::infinity()})
        for (int n = 1; n < 20; ++n) {
            square a = random_square(n, 3);
            a.at(n / 2, n / 3) = {odd, 1.0};
            for (const auto run : {fast_inv_c_mat, fast_inverse}) {
                const result r = run(a, 1e-8);
                EXPECT_TRUE(std::isinf(odd) || std::isnan(r.left[0].real())) << n;
            }
        }
}
