// SPDX-License-Identifier: MIT
//
// Scalars, shapes, matrix products, the sort, the matrix writers, and the two progress aids.
#include <algorithm>
#include <complex>
#include <cstdint>
#include <ctime>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/utils.h"
#include "numeric/cmatutil.h"
#include "numeric/complex.h"
#include "numeric/data_out.h"
#include "numeric/scratch.h"
#include "numeric/vecmat.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

static std::complex<double> std_of(complex z) { return {z.re, z.im}; }

TEST(Complex, ExactValues) {
    EXPECT_EQ(c_abs({0.0, -2.0}), 2.0);
    EXPECT_EQ(c_abs({-3.0, 0.0}), 3.0);
    EXPECT_EQ(c_abs({0.0, 0.0}), 0.0);
    EXPECT_DOUBLE_EQ(c_abs({3.0, 4.0}), 5.0);
    EXPECT_DOUBLE_EQ(c_abs({1e300, 1e300}), std::sqrt(2.0) * 1e300);
    EXPECT_DOUBLE_EQ(c_abs({-1e-300, 1e-300}), std::sqrt(2.0) * 1e-300);

    static const struct {
        complex z, root;
    } roots[] = {
        {{-4.0, 0.0}, {0.0, 2.0}},
        {{-4.0, -0.0}, {0.0, 2.0}},
        {{0.0, 2.0}, {1.0, 1.0}},
        {{0.0, -2.0}, {1.0, -1.0}},
        {{-3.0, -4.0}, {1.0, -2.0}},
        {{0.0, 0.0}, {0.0, 0.0}},
    };
    for (const auto& c : roots) {
        const complex root = c_sqrt(c.z);
        EXPECT_DOUBLE_EQ(root.re, c.root.re) << c.z.re << " " << c.z.im;
        EXPECT_DOUBLE_EQ(root.im, c.root.im) << c.z.re << " " << c.z.im;
    }
    const complex q = c_div({1.0, 0.0}, {0.0, 1.0});
    EXPECT_EQ(q.re, 0.0);
    EXPECT_EQ(q.im, -1.0);
    const complex big = c_div({1e300, 1e300}, {1e300, -1e300});
    EXPECT_DOUBLE_EQ(big.im, 1.0);
    EXPECT_FALSE(std::isfinite(c_div({1.0, 1.0}, {0.0, 0.0}).re)) << "nothing is trapped";
}

TEST(Complex, AgreesWithTheStandardLibrary) {
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    for (int i = 0; i < 1000; ++i) {
        const complex a = {normal(random), normal(random)};
        const complex b = {normal(random), normal(random)};
        const struct {
            const char* name;
            complex got;
            std::complex<double> wanted;
        } cases[] = {
            {"add", c_add(a, b), std_of(a) + std_of(b)},
            {"sub", c_sub(a, b), std_of(a) - std_of(b)},
            {"mul", c_mul(a, b), std_of(a) * std_of(b)},
            {"div", c_div(a, b), std_of(a) / std_of(b)},
            {"conj", c_conj(a), std::conj(std_of(a))},
            {"exp", c_exp(a), std::exp(std_of(a))},
            {"sqrt", c_sqrt(a), std::sqrt(std_of(a))},
            {"polar", {c_abs(a), c_arg(a)}, {std::abs(std_of(a)), std::arg(std_of(a))}},
        };
        for (const auto& c : cases)
            EXPECT_LT(std::abs(std_of(c.got) - c.wanted), 4e-15 * (1 + std::abs(c.wanted))) << c.name;
    }
}

// Every element of a shape is its place in the one block, and starts as zero.
TEST(Shapes, OneBlockInRowMajorOrder) {
    const std::size_t d0 = 2, d1 = 3, d2 = 4, d3 = 5;
    double**** t = new_tensor4<double>(d0, d1, d2, d3);
    double* base = t[0][0][0];
    EXPECT_TRUE(std::all_of(base, base + d0 * d1 * d2 * d3, [](double x) { return x == 0.0; }));
    std::iota(base, base + d0 * d1 * d2 * d3, 0.0);
    EXPECT_EQ(t[1][2][3][4], 119.0);
    EXPECT_EQ(t[1][0][2][1], 71.0);
    EXPECT_EQ(&t[0][2][0][0], base + 2 * d2 * d3);
    free_tensor4(t);

    complex*** u = new_tensor<complex>(3, 2, 7);
    EXPECT_EQ(&u[2][1][6], u[0][0] + 41);
    free_tensor(u);
    complex** m = new_matrix<complex>(3, 2);
    EXPECT_EQ(&m[2][1], m[0] + 5);
    free_matrix(m);
    free_matrix(nullptr);
    free_tensor(nullptr);
    free_tensor4(nullptr);
}

TEST(Shapes, WithoutMemoryTheRunEnds) {
    const std::size_t much = std::size_t{1} << 40;
    EXPECT_EQ(size_product(much, much), SIZE_MAX);
    EXPECT_EQ(mmalloc(much, much), nullptr);
    EXPECT_EQ(mmmalloc(2, much, much), nullptr);
    EXPECT_EQ(mmmmalloc(2, 2, much, much), nullptr);
    scratch room = {};
    EXPECT_EQ(run_child([&] { take<complex>(room, SIZE_MAX / 9); }).err, "Not enough memory for vector.\n");
    EXPECT_EQ(run_child([&] { take_matrix(room, INT_MAX, INT_MAX); }).err, "Not enough memory for matrix.\n");
    const struct {
        void (*check)(const void*);
        const char* message;
    } cases[] = {
        {chk_vector, "Not enough memory for vector.\n"},
        {chk_matrix, "Not enough memory for matrix.\n"},
        {chk_tensor, "Not enough memory for tensor.\n"},
        {chk_tensor4, "Not enough memory for tensor4.\n"},
    };
    for (const auto& c : cases) {
        const outcome end = run_child([&] { c.check(nullptr); });
        EXPECT_EQ(end.err, c.message);
        EXPECT_EQ(end.out, "");
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(run_child([&] { c.check(&c); }).status, 0);
    }
}

TEST(Scratch, PiecesStayAndComeAgain) {
    scratch room = {};
    std::vector<std::pair<char*, std::size_t>> taken;
    const auto take_all = [&] {
        taken.clear();
        for (const std::size_t size : {1, 0, 70, 40000, 5, 100000, 64})
            taken.push_back({take<char>(room, size), size});
    };
    take_all();
    for (const auto& [p, size] : taken) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u);
        for (const auto& [q, other] : taken)
            EXPECT_TRUE(p == q || p + size <= q || q + other <= p);
        std::fill_n(p, size, char(size)); // so that a sanitizer sees all of it
    }
    const std::vector<std::pair<char*, std::size_t>> before = taken;
    release_scratch(room, {0, 0});
    take_all();
    EXPECT_EQ(taken, before);
    const scratch_mark behind = mark_scratch(room);
    char* const next = take<char>(room, 9);
    release_scratch(room, behind);
    EXPECT_EQ(take<char>(room, 9), next);
    free_scratch(room);
    EXPECT_EQ(room.block[0].data, nullptr);
}

TEST(Matrices, ProductsAgreeWithDirectSums) {
    const int n = 3, m = 5, l = 4;
    scratch room = {};
    std::mt19937 random(2);
    std::normal_distribution<double> normal;
    complex** a = new_matrix<complex>(n, l);
    complex** b = new_matrix<complex>(l, m);
    complex** c = new_matrix<complex>(n, m);
    complex** s = new_matrix<complex>(n, n);
    complex** r = new_matrix<complex>(n, n);
    for (int i = 0; i < n * l; ++i)
        a[0][i] = {normal(random), normal(random)};
    for (int i = 0; i < l * m; ++i)
        b[0][i] = {normal(random), normal(random)};
    c_matmult(n, m, l, c, a, b, room);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < m; ++j) {
            std::complex<double> sum = 0.0;
            for (int k = 0; k < l; ++k)
                sum += std_of(a[i][k]) * std_of(b[k][j]);
            EXPECT_LT(std::abs(sum - std_of(c[i][j])), 1e-14) << i << " " << j;
        }

    c_matcopy2(n, a, s); // the left square of a
    c_matmult(n, n, n, r, s, b, room);
    c_matmult2(n, s, b, room);
    c_matsub2(n, s, r); // the same product in both ways
    for (int i = 0; i < n * n; ++i)
        EXPECT_EQ(c_abs(s[0][i]), 0.0);
    c_matmult(n, n, 0, r, a, b, room);
    EXPECT_EQ(c_abs(r[2][2]), 0.0) << "an empty sum";
    c_matmult(-9, -9, -9, nullptr, nullptr, nullptr, room); // nothing
    for (complex** matrix : {a, b, c, s, r})
        free_matrix(matrix);
}

TEST(Heapsort, DescendingWithPlacesAndSettledTies) {
    static const struct {
        std::vector<double> input, sorted;
        std::vector<int> places;
    } cases[] = {
        {{7}, {7}, {0}},
        {{1, 2}, {2, 1}, {1, 0}},
        {{5, 1, 9}, {9, 5, 1}, {2, 0, 1}},
        {{2, 1, 1}, {2, 1, 1}, {0, 2, 1}},
        {{1, 1, 2, 2}, {2, 2, 1, 1}, {3, 2, 1, 0}},
    };
    for (auto c : cases) {
        std::vector<int> places(c.input.size(), -1);
        d_heapsort(static_cast<int>(c.input.size()), c.input.data(), places.data());
        EXPECT_EQ(c.input, c.sorted);
        EXPECT_EQ(places, c.places);
    }
}

TEST(Dumps, MatricesColumnByColumn) {
    complex** m = new_matrix<complex>(2, 2);
    m[0][0] = {1, 0};
    m[1][0] = {2.5, -1};
    m[0][1] = {1e-7, 1e10};
    m[1][1] = {4, 1.0 / 3};
    const std::string rows = "0\t0\t1\t0\n1\t0\t2.5\t-1\n0\t1\t1e-07\t1e+10\n1\t1\t4\t0.333333\n";
    EXPECT_EQ(run_child([&] { fprint_complexmat(stdout, 2, m); }).out, rows);
    EXPECT_EQ(run_child([&] { dbg_print_cmat(2, "a_mat:", 2, m); }).out, "$$a_mat:\n" + rows);
    EXPECT_EQ(run_child([&] { dbg_print_cvec(1, "upper_b_cond:", 2, m[1]); }).out,
              "$$upper_b_cond:\n0\t2.5\t-1\n1\t4\t0.333333\n");
    EXPECT_EQ(run_child([&] {
                  dbg_print_cmat(0, "a_matrix:", 2, m);
                  dbg_print_cvec(0, "upper_b_cond:", 2, m[1]);
                  dbg.process_mon_flag = 2;
                  dbg_mon("$$ silent\n");
                  dbg.process_mon_flag = 1;
                  dbg_mon("$$ calc_intensity\n");
              }).out,
              "$$ calc_intensity\n");
    free_matrix(m);
}

TEST(Dumps, SelectionOfEachTilt) {
    const temp_dir dir;
    const auto dump = [&](int flag, const char* stem) {
        return run_child([&] {
            std::filesystem::current_path(dir.path);
            dbg.vg_sel_chk_flag = flag;
            copy_text(dbg.base_name, name_max, stem);
            const int sel[] = {0, 3, 1};
            dbg_sel_vg_init(2, 2);
            std::printf("%d", dbg_sel_vg_active());
            dbg_sel_vg_pos(-1, 2);
            dbg_sel_vg_row({0.5, 0, -1e-7}, 4, 2, 1, sel);
            dbg_dump_term();
        });
    };
    EXPECT_EQ(dump(1, "a").out, "$$ Debug output ==> a.dbg\n"
                                "$$ chk_sel_vg mode. No intensity calculation.\n1");
    EXPECT_EQ(read_file(dir.path / "a.dbg"),
              "H\tG\th\tk\t\tl\tnesel\tnbsel\t0\t1\t2\t3\n"
              "-1\t2\t0.5\t0\t\t-1e-07\t2\t1\t2\t1\t0\t2\n");
    EXPECT_EQ(dump(1, "no/a").out, "Cannot open no/a.dbg\n0");
    EXPECT_EQ(dump(0, "b").out, "0");
    EXPECT_FALSE(std::filesystem::exists(dir.path / "b.dbg"));
}

TEST(Progress, StepsOfFiveOnOneLine) {
    const std::string all = "5%10%15%20%25%30%35%40%45%50%55%60%65%70%75%80%85%90%95%";
    for (int n : {1, 2, 3, 10, 19, 20, 21, 1000}) {
        const outcome loop = run_child([&] {
            progress_indicator(n - 1, n); // what an earlier loop left behind does not matter
            std::printf("|");
            for (int i = 0; i < n; ++i)
                progress_indicator(i, n);
        });
        EXPECT_EQ(loop.out.substr(loop.out.find('|') + 1), (n > 1 ? "    " : "") + all) << n;
    }
    const auto until = [](int last, int n) {
        return run_child([&] {
                   for (int i = 0; i <= last; ++i)
                       progress_indicator(i, n);
               })
            .out;
    };
    EXPECT_EQ(until(1, 20), "") << "5% alone is not above 5%";
    EXPECT_EQ(until(2, 20), "    5%10%");
    EXPECT_EQ(until(1, 3), "    5%10%15%20%25%30%");
}

TEST(Progress, Forecast) {
    const outcome quick = run_child([] {
        exec_time_forecast(-1);
        exec_time_forecast(100);
        exec_time_forecast(0);
    });
    const std::string head = "  Estimating exec. time ....  Maybe not so long.\n100%\n";
    ASSERT_EQ(quick.out.substr(0, head.size()), head);
    double minutes = -1.0, hours = -1.0;
    char rest = '\0';
    ASSERT_EQ(std::sscanf(quick.out.c_str() + head.size(),
                          "    elapsed time: %lg [min] = %lg [hour]%c", &minutes, &hours, &rest),
              3);
    EXPECT_EQ(rest, '\n');
    EXPECT_NEAR(hours * 60.0, minutes, 1e-5 * minutes);

    const outcome slow = run_child([] {
        exec_time_forecast(-1);
        const std::clock_t begin = std::clock();
        while (std::clock() - begin < CLOCKS_PER_SEC * 12 / 100) {
        }
        exec_time_forecast(6000);
        exec_time_forecast(0);
    });
    // 6000 items of at least 0.12 s, and of no more than the time that has passed in the end.
    double forecast = -1.0;
    char unit[20] = "";
    const char* const text = "  Estimating exec. time ....  %lg [min] %19[^\n] 100%% "
                             "elapsed time: %lg";
    ASSERT_EQ(std::sscanf(slow.out.c_str(), text, &forecast, unit, &minutes), 3) << slow.out;
    EXPECT_STREQ(unit, "(1CPU)");
    EXPECT_GE(forecast, 12.0);
    EXPECT_LE(forecast, 6000 * minutes + 0.1);
}
