// SPDX-License-Identifier: MIT
//
// Scalars, memory that is not to be had, the sort, and the two progress aids.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <random>

#include <gtest/gtest.h>

#include "control/ov_debug.h"
#include "control/utils.h"
#include "numeric/complex.h"
#include "numeric/scratch.h"
#include "numeric/vecmat.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

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
        for (const std::size_t size : std::initializer_list<std::size_t>{1, 0, 70, 40000, 5, 100000, 64})
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
    std::mt19937 random(3);
    for (std::size_t n = 5; n < 40; ++n) {
        std::vector<double> input(n), sorted;
        std::generate(input.begin(), input.end(), random);
        sorted = input;
        std::vector<int> places(n, -1);
        d_heapsort(static_cast<int>(n), sorted.data(), places.data());
        EXPECT_TRUE(std::is_sorted(sorted.rbegin(), sorted.rend())) << n;
        for (std::size_t i = 0; i < n; ++i)
            EXPECT_EQ(input.at(static_cast<std::size_t>(places[i])), sorted[i]) << n;
    }
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
    const auto work = [] {
        const std::clock_t begin = std::clock();
        while (std::clock() - begin < CLOCKS_PER_SEC * 12 / 100) {
        }
    };
    const outcome quick = run_child([&] {
        work(); // before the start nothing counts
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

    const outcome slow = run_child([&] {
        exec_time_forecast(-1);
        work();
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
