// SPDX-License-Identifier: MIT
//
// The fast Fourier transforms: against direct sums in double, signs and scaling by numbers worked
// out by hand, and the statics that stay from call to call.
#include <array>
#include <complex>
#include <random>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "numeric/lb_fft.h"
#include "numeric/vecmat.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

using grid = std::vector<std::complex<double>>; // [i][j][k] row by row
using floats = std::vector<float>;

// The transform along axis a, exp(+2 pi i jk/n) backward, exp(-2 pi i jk/n) / n forward.
static grid direct_sum(int direction, const int n[3], int a, const grid& f) {
    const int strides[3] = {n[1] * n[2], n[2], 1};
    const std::size_t length = to_size(n[a]), stride = to_size(strides[a]);
    const double unit = (direction == 1 ? 2 : -2) * std::acos(-1.0) / n[a];
    grid F(f.size());
    for (std::size_t p = 0; p < f.size(); ++p) {
        const std::size_t k = p / stride % length, first = p - k * stride;
        for (std::size_t j = 0; j < length; ++j)
            F[p] += f[first + j * stride] * std::polar(1.0, unit * static_cast<double>(j * k % length));
        F[p] /= direction == 1 ? 1 : n[a];
    }
    return F;
}

static grid transformed(int direction, const int n[3], const grid& f) {
    float*** re = new_tensor<float>(to_size(n[0]), to_size(n[1]), to_size(n[2]));
    float*** im = new_tensor<float>(to_size(n[0]), to_size(n[1]), to_size(n[2]));
    for (std::size_t p = 0; p < f.size(); ++p) {
        re[0][0][p] = static_cast<float>(f[p].real());
        im[0][0][p] = static_cast<float>(f[p].imag());
    }
    fft3d_nxnynz(direction, n[0], n[1], n[2], re, im);
    grid F(f.size());
    for (std::size_t p = 0; p < f.size(); ++p)
        F[p] = {re[0][0][p], im[0][0][p]};
    free_tensor(re);
    free_tensor(im);
    return F;
}

static void expect_near(const grid& a, const grid& b, double tolerance) {
    double largest = 0;
    for (std::size_t p = 0; p < a.size(); ++p)
        largest = std::fmax(largest, std::abs(a[p] - b[p]));
    EXPECT_LT(largest, tolerance) << a.size();
}

// Values are of the order of 1, sums over n of them of the order of sqrt(n); the longest sums have 9
// stages of butterflies, each with roundings of 6e-8.
TEST(Fft, DirectSumsAndRoundTrip) {
    std::vector<std::array<int, 3>> grids = {{1, 4, 32}, {4, 8, 1}, {32, 1, 1}, {2, 4, 8}, {16, 4, 2}, {8, 8, 8}};
    for (int length = 1; length <= 256; length *= 2)
        grids.push_back({1, 1, length});
    std::mt19937 random(1);
    std::uniform_real_distribution<float> real(-1, 1);
    for (const auto& lengths : grids) {
        const int* n = lengths.data();
        grid f(to_size(n[0] * n[1] * n[2]));
        for (auto& z : f)
            z = {real(random), real(random)};
        for (int direction : {0, 1}) {
            grid expected = f;
            for (int axis : {0, 1, 2})
                expected = direct_sum(direction, n, axis, expected);
            const grid F = transformed(direction, n, f);
            const double size = std::sqrt(static_cast<double>(f.size()));
            expect_near(F, expected, 1e-6 * (direction == 1 ? size : 1 / size));
            expect_near(transformed(1 - direction, n, F), f, 1e-6);
        }
    }
}

static void expect_transform(int direction, const floats& x, const floats& y, const floats& X, const floats& Y) {
    floats re = x, im = y;
    EXPECT_EQ(fft1d(direction, static_cast<int>(x.size()), re.data(), im.data()), 0);
    EXPECT_EQ(re, X) << "direction " << direction;
    EXPECT_EQ(im, Y) << "direction " << direction;
}

// Backward turns the unit at place 1 into 1, i, -1, -i.
TEST(Fft, Conventions) {
    for (int direction : {1, -1, -7, 0, 2, 5}) {
        const bool backward = direction == 1 || direction < 0;
        const float h = backward ? 1.0f : 0.5f, s = h * h, t = backward ? s : -s;
        expect_transform(direction, {3}, {-2}, {3}, {-2});
        expect_transform(direction, {1, 0}, {0, 0}, {h, h}, {0, 0});
        expect_transform(direction, {1, 3}, {2, 0}, {4 * h, -2 * h}, {2 * h, 2 * h});
        expect_transform(direction, {0, 1, 0, 0}, {0, 0, 0, 0}, {s, 0, -s, 0}, {0, t, 0, -t});
        expect_transform(direction, {5, 0, 0, 0}, {4, 0, 0, 0}, floats(4, 5 * s), floats(4, 4 * s));
    }
    const int n[3] = {4, 2, 8};
    grid expected(64);
    expected[0] = {0.75, -3};
    EXPECT_EQ(transformed(0, n, grid(64, expected[0])), expected);
}

// Tables follow the length; the sign of a length means nothing, and length 0 frees them.
TEST(Fft, LengthsInTurn) {
    const auto after = [](const std::vector<int>& lengths) {
        floats x = {0, 1, 4, 2, 2, 4, 1, 0}, y(8, 1.0f), other(64, 2.0f), another(64, 3.0f);
        for (int n : lengths)
            EXPECT_EQ(fft1d(1, n, other.data(), another.data()), 0);
        EXPECT_EQ(fft1d(1, lengths.back() < 0 ? -8 : 8, x.data(), y.data()), 0);
        x.insert(x.end(), y.begin(), y.end());
        return x;
    };
    const floats expected = after({8, 8});
    const std::vector<std::vector<int>> cases = {{4}, {64, 16}, {1}, {2, 1}, {0}, {8, 0, 0}, {-4}, {-64, -8}};
    for (const auto& lengths : cases)
        EXPECT_EQ(after(lengths), expected);
}

TEST(Fft, NoMemoryForTheTables) {
    static const int n = 1 << 30; // 9 GB of tables
    const std::string message = "$$ Not enough memory for sintbl or bitrev \n", abort = "$$ error in fft1d\n";
    const struct {
        void (*transform)(float* x);
        std::string out, err;
        int status;
    } cases[] = {
        {[](float* x) { for (int length : {n, n, 1}) std::printf("%d", fft1d(1, length, x, x)); },
         "110", message + message, 0},
        {[](float* x) { fft2d_nxny(1, 1, n, &x, &x); }, abort, message, 1},
        {[](float* x) { float** rows = &x; fft3d_nxnynz(1, 1, 1, n, &rows, &rows); }, abort, message, 1},
    };
    for (const auto& c : cases) {
        const outcome end = run_child([&] {
            const rlimit limit = {4u << 30, 4u << 30};
            setrlimit(RLIMIT_AS, &limit);
            float x = 1;
            c.transform(&x);
        });
        EXPECT_EQ(end.out, c.out);
        EXPECT_EQ(end.err, c.err);
        EXPECT_EQ(end.status, c.status);
    }
}
