// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "control/orvel.h"
#include "matrix_util.h"
#include "numeric/lb_invmat.h"
#include "numeric/lb_invmat1.h"
#include "numeric/lb_invmat2.h"
#include "numeric/vecmat.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

static const double ulp = std::numeric_limits<double>::epsilon();
static const double nan_value = std::numeric_limits<double>::quiet_NaN();

static square matrix_of(int n, const std::vector<double>& real_elements) {
    square a(n);
    for (std::size_t i = 0; i < a.data.size(); ++i)
        a.data[i] = {real_elements[i], 0.0};
    return a;
}

TEST(Inverse, RandomMatrices) {
    for (const int n : {1, 2, 3, 4, 5, 8, 13, 50, 150}) {
        SCOPED_TRACE(n);
        square a = random_square(n, unsigned(n));
        if (n == 5) // the largest element of the first row in the last column
            a.at(0, 4) = {3.0, 0.0};
        square inverted = a, destroyed = a;
        ASSERT_EQ(inv_c_mat(n, 1e-8, inverted.table()), 0);
        const double scale = norm_of(a) * norm_of(inverted) * ulp;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                EXPECT_LT(std::abs(product(a, inverted, i, j) - (i == j ? 1.0 : 0.0)), scale);
        std::vector<complex> x(to_size(n));
        int info = -1;
        inverse(n, destroyed.table(), x.data(), 1e-8, info);
        EXPECT_EQ(info, 0);
        for (int i = 0; i < n; ++i)
            EXPECT_LT(std::abs(plain(x[to_size(i)]) - inverted(i, 0)), scale * norm_of(inverted));
    }
}

TEST(Inverse, PermutationsAndDiagonalsAreExact) {
    std::vector<int> column = {0, 1, 2, 3};
    do {
        square a(4);
        for (int i = 0; i < 4; ++i)
            a.at(i, column[to_size(i)]) = {0.0, std::ldexp(1.0, i)};
        square inverted = a;
        EXPECT_EQ(inv_c_mat(4, 1e-8, inverted.table()), 0);
        std::vector<complex> x(4);
        int info = -1;
        inverse(4, a.table(), x.data(), 1e-8, info);
        EXPECT_EQ(info, 0);
        for (int i = 0; i < 4; ++i) {
            for (int j = 0; j < 4; ++j) {
                const double element = column[to_size(j)] == i ? -std::ldexp(1.0, -j) : 0.0;
                EXPECT_EQ(inverted(i, j), number(0.0, element));
            }
            EXPECT_EQ(plain(x[to_size(i)]), inverted(i, 0));
        }
    } while (std::next_permutation(column.begin(), column.end()));
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
        EXPECT_EQ(inv_c_mat(c.n, 1e-8, a.table()), c.code);
        for (std::size_t i = 0; i < c.left.size(); ++i)
            EXPECT_EQ(plain(a.data[i]), number(c.left[i], 0.0)) << i;
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
        inverse(c.n, a.table(), x.data(), 1e-8, info);
        EXPECT_EQ(info, c.info);
        for (std::size_t i = 0; i < c.x.size(); ++i) {
            if (std::isnan(c.x[i]))
                EXPECT_TRUE(std::isnan(x[i].re));
            else
                EXPECT_LE(std::abs(plain(x[i]) - c.x[i]), 1e-6 * std::abs(c.x[i])) << c.n << i;
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
            const int code = c.column ? bc_invmat(c.n, a.table(), &x) : invmat(c.n, a.table());
            std::printf("%d %g\n", code, c.column ? x.re : a(0, 0).real());
        });
        EXPECT_EQ(o.status, c.status);
        EXPECT_EQ(o.out, c.out);
    }
}
