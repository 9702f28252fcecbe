// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include "control/settings.h"
#include "matrix_util.h"
#include "numeric/fast/fast.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_eigmat1.h"
#include "numeric/lb_eigmat2.h"
#include "numeric/vecmat.h"
#include "published_chain.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

#ifdef ORVEL_HAVE_LAPACK
extern "C" void zgeev_(const char* left, const char* right, const int* n,
                       complex* a, const int* lda, complex* w,
                       complex* vl, const int* ldvl, complex* vr, const int* ldvr,
                       complex* work, const int* lwork, double* rwork, int* info);
#endif

struct OnEveryMachine : testing::TestWithParam<int> {
    void SetUp() override { use_machine(machine_kind(GetParam())); }
    void TearDown() override { use_machine(best_machine()); }
};
INSTANTIATE_TEST_SUITE_P(Eigen, OnEveryMachine, testing::Range(0, best_machine() + 1));

static const double ulp = std::numeric_limits<double>::epsilon();
static const double nan_value = std::numeric_limits<double>::quiet_NaN();

struct eigen_system {
    std::vector<complex> w;
    square v;
    int code;
};

// Solver 0 takes an absolute tolerance, solver 1 one relative to the norm.
static eigen_system solve(int solver, square a, double tolerance) {
    eigen_system s = {std::vector<complex>(to_size(a.n)), square(a.n), 0};
    if (solver == 0)
        eispack_cg(a.n, tolerance, a.table(), s.w.data(), s.v.table(), room);
    else
        s.code = eigen_c_mat(a.n, tolerance, 1, a.table(), s.w.data(), s.v.table(), room);
    return s;
}

static square matrix_2(complex a, complex b, complex c, complex d) {
    square m(2);
    std::copy_n(std::vector<complex>{a, b, c, d}.begin(), 4, m.data.begin());
    return m;
}

// ---- matrix families ----

static number family_element(const std::string& name, int n, int i, int j, number r) {
    if (name == "zero")
        return 0.0;
    if (name == "identity")
        return i == j ? 1.0 : 0.0;
    if (name == "clustered")
        return (i == j ? 1.0 : 0.0) + 1e-6 * r;
    if (name == "near overflow")
        return 1e150 * r;
    if (name == "large")
        return 1e6 * r;
    if (name == "badly scaled")
        return std::pow(10.0, 12.0 * (i - j) / n) * r;
    const int p = 43 * i % n, q = 43 * j % n; // an order in disguise
    if (name == "permuted triangular")
        return p > q ? 0.0 : (p == q ? 1.0 : 0.1) * r;
    if (name == "isolated") // a full block between rows and columns of a triangle
        return p <= q || (q >= n / 4 && p < n - n / 4) ? r : 0.0;
    if (name == "cyclic") // roots of unity; shifts of the last block leave it as it is
        return i == (j + 1) % n ? 1.0 : 0.0;
    if (name == "structure") // excitation errors and absorption; the potentials are made symmetric
        return i == j ? number(-0.01 * i * i, 0.004) : 0.05 * std::exp(-0.2 * std::abs(i - j)) * r;
    if (name == "decoupled" || name == "weakly coupled") // blocks of 5
        return i / 5 == j / 5 ? r : (name == "decoupled" ? 0.0 : 1e-9) * r;
    if (name == "equal, triangular") // some eigenvalues equal, some by a hair apart
        return i == j ? number(i % 3 + 1) + (i % 2 == 0 ? 0.0 : 1e-9) * r : (i < j ? r : 0.0);
    if (name == "graded")
        return std::pow(10.0, -4.0 * std::max(i, j) / n) * r;
    if (name == "sparse")
        return i == j || r.imag() > 0.3 ? r : 0.0;
    if (name == "real")
        return r.real();
    if (name == "near underflow")
        return 1e-150 * r;
    if (name == "cyclic inside") { // rows and columns that are isolated at a coarse tolerance
        const int first = n / 5, size = n - n / 6 - first;
        const bool inside = std::min(i, j) >= first && std::max(i, j) < first + size;
        return inside ? (i - first == (j - first + 1) % size ? 1.0 : 0.0) : (i <= j ? 1.0 : 0.02) * r;
    }
    if (name == "Jordan block") { // J between two factors 1 - 2 x x^T / n, x all ones
        const double jordan = i == j ? 2.0 : (j == i + 1 ? 1.0 : 0.0);
        const double sums = (j > 0 ? 3.0 : 2.0) + (i < n - 1 ? 3.0 : 2.0);
        return jordan - 2.0 / n * sums + 4.0 / n / n * (3.0 * n - 1.0);
    }
    return r;
}

static square family(const std::string& name, int n, unsigned seed) {
    square a = random_square(n, seed);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            a.at(i, j) = record(family_element(name, n, i, j, a(i, j)));
            if (name == "structure" && i > j)
                a.at(i, j) = a.at(j, i);
            if (name == "Hermitian" && i >= j)
                a.at(i, j) = record(i == j ? a(i, j).real() : std::conj(a(j, i)));
        }
    return a;
}
static square family(const std::string& name, int n) { return family(name, n, unsigned(n)); }

// |A V - V W| / (n (|A| ulp + tolerance)), each column taken by its length.
static double residual_ratio(const square& a, const eigen_system& s, double tolerance) {
    const double norm = norm_of(a);
    double sum = 0.0;
    for (int j = 0; j < a.n; ++j) {
        double length = 0.0;
        double residual = 0.0;
        for (int i = 0; i < a.n; ++i) {
            const number difference = product(a, s.v, i, j) - s.v(i, j) * number_of(s.w[to_size(j)]);
            length += std::norm(s.v(i, j));
            residual += std::norm(difference / norm);
        }
        sum += residual / length;
    }
    return std::sqrt(sum) / (a.n * (ulp + tolerance / norm));
}

// Left out for the chain: elements near overflow, which an absolute tolerance cannot judge, and
// the Jordan block of order 2, whose rows are isolated and enter without the overflow control.
TEST_P(OnEveryMachine, ResidualsOverMatrixFamilies) {
    const double tolerance = 1e-13;
    for (const std::string name : {"identity", "Jordan block", "clustered", "near overflow",
                                   "large", "badly scaled", "permuted triangular",
                                   "structure", "random"}) {
        for (const int n : {1, 2, 3, 5, 10, 20, 50}) {
            const square a = family(name, n);
            const bool for_chain = name != "near overflow" && (name != "Jordan block" || n > 2);
            for (int solver = for_chain ? 0 : 1; solver <= 1; ++solver) {
                SCOPED_TRACE(testing::Message() << name << " n " << n << " solver " << solver);
                const eigen_system s = solve(solver, a, tolerance);
                const double absolute = solver == 0 ? tolerance : tolerance * norm_of(a);
                EXPECT_LT(residual_ratio(a, s, absolute), 20.0);
                for (std::size_t j = 1; j < to_size(n); ++j)
                    EXPECT_GE(s.w[j - 1].re, s.w[j].re);
                EXPECT_EQ(s.code, solver == 1 && n == 1 ? 1 : 0);
            }
        }
    }
    for (const int n : {3, 4, 7}) { // only the chain has shifts that break the cycle
        const square a = family("cyclic", n);
        EXPECT_LT(residual_ratio(a, solve(0, a, tolerance), tolerance), 20.0);
        EXPECT_EQ(solve(1, a, tolerance).code, 30000);
    }
    for (const int solver : {0, 1}) {
        const eigen_system s = solve(solver, family("zero", 4), tolerance);
        EXPECT_EQ(s.code, solver);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                EXPECT_EQ(s.v(i, j), number(i == j ? 1.0 : 0.0));
    }
}

#ifdef ORVEL_HAVE_LAPACK
// Columns against those of the same rank in the real part: their overlap has the modulus 1.
TEST(Eigen, AgreesWithLapack) {
    for (const int n : {1, 2, 3, 5, 10, 20, 50, 100, 200}) {
        const square a = random_square(n, unsigned(n) + 1000);
        square transposed(n), vectors(n); // columns stand in a row
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                transposed.at(i, j) = record(a(j, i));
        const int lwork = 64 * n;
        std::vector<complex> w(to_size(n)), work(to_size(lwork));
        std::vector<double> rwork(to_size(2 * n));
        int info = -1;
        zgeev_("N", "V", &n, transposed.data.data(), &n, w.data(), nullptr, &n,
               vectors.data.data(), &n, work.data(), &lwork, rwork.data(), &info);
        ASSERT_EQ(info, 0);
        std::vector<int> rank(to_size(n));
        std::iota(rank.begin(), rank.end(), 0);
        std::sort(rank.begin(), rank.end(), [&](int i, int j) {
            return w[to_size(i)].re > w[to_size(j)].re;
        });
        for (const int solver : {0, 1}) {
            SCOPED_TRACE(testing::Message() << "n " << n << " solver " << solver);
            const eigen_system s = solve(solver, a, 1e-14);
            for (int j = 0; j < n; ++j) {
                const int k = rank[to_size(j)];
                EXPECT_LT(std::abs(number_of(w[to_size(k)]) - number_of(s.w[to_size(j)])), 1e-10);
                number overlap = 0.0;
                for (int i = 0; i < n; ++i)
                    overlap += std::conj(vectors(k, i)) * s.v(i, j);
                EXPECT_NEAR(std::abs(overlap), 1.0, 1e-10);
            }
        }
    }
}
#endif

// ---- against the published chain ----

// The first few also in large sizes.
static const std::size_t large_families = 5;
static const std::vector<std::string> compared_families = {
    "random", "structure", "decoupled", "Hermitian", "real", "clustered", "graded", "sparse",
    "isolated", "weakly coupled", "badly scaled", "large", "permuted triangular",
    "equal, triangular", "near underflow", "cyclic inside"};

// Tolerance and bounds, of the norm. A tolerance that drops next to nothing lets eigenvalues agree to
// 1e-12, but phases of vectors rest on numbers that are all rounding. What a coarser one drops carries the
// rounding that shifts close to eigenvalues amplify, the more the larger the matrix; and near 1 corth takes
// a small first element for none, so that its reflection is not unitary and amplifies as well. (A change of
// the matrix by one rounding moves the published eigenvalues as much.)
static const struct compared_level {
    double tolerance, values, vectors;
    int largest;
} compared_levels[] = {
    {1e-14, 1e-12, 0.0, 130}, {1e-9, 1e-9, 1e-4, 130}, // fine
    {1e-3, 1e-7, 1e-5, 24},
    {0.02, 1e-7, 1e-5, 24},
    {0.5, 1e-7, 1e-5, 24}};

// Eigenvalues that are not well separated belong to a matrix that is nearly defective: bounds grow with
// the inverse of the gap, and phases are left out. Returns the number of vectors compared.
static int expect_same(const eigen_system& fast, const eigen_system& published, double norm,
                       const compared_level& level) {
    int compared = 0;
    for (int j = 0; j < fast.v.n; ++j) {
        const number wanted = number_of(published.w[to_size(j)]);
        const auto distance = [&](complex z) { return std::abs(number_of(z) - wanted) / norm; };
        const auto closer = [&](complex x, complex y) { return distance(x) < distance(y); };
        const auto same = std::min_element(fast.w.begin(), fast.w.end(), closer);
        double gap = 1.0, difference = 0.0, length = 0.0;
        for (int k = 0; k < fast.v.n; ++k)
            gap = k == j ? gap : std::min(gap, distance(published.w[to_size(k)]));
        EXPECT_LE(distance(*same), level.values * std::max(1.0, std::pow(1e-3 / gap, 2)));
        if (level.vectors == 0.0 || gap < 1e-3)
            continue;
        for (int i = 0; i < fast.v.n; ++i) {
            difference += std::norm(fast.v(i, int(same - fast.w.begin())) - published.v(i, j));
            length += std::norm(published.v(i, j));
        }
        EXPECT_LE(std::sqrt(difference / length), level.vectors / gap);
        ++compared;
    }
    return compared;
}

TEST(EispackChain, IsThePublishedOneOnEveryMachine) {
    int met[num_tests][2] = {}, vectors = 0, compared = 0;
    unsigned seed = 0;
    std::vector<int> sizes(41);
    std::iota(sizes.begin(), sizes.end(), 1);
    sizes.insert(sizes.end(), {50, 64, 87, 130});
    const auto compare = [&](const std::string& name, int n, const compared_level& level) {
        const square a = family(name, n, ++seed);
        const double norm = norm_of(name == "badly scaled" ? random_square(n, seed) : a); // of a balanced one
        eigen_system published = {std::vector<complex>(to_size(n)), square(n), 0};
        if (published_chain(a, level.tolerance * norm, published.w, published.v, met) != 0)
            return;
        for (int kind = machine_plain; kind <= best_machine(); ++kind) {
            SCOPED_TRACE(testing::Message() << name << " " << n << " " << level.tolerance << " machine " << kind);
            use_machine(machine_kind(kind));
            spoil_room();
            const eigen_system fast = solve(0, a, level.tolerance * norm);
            compared += expect_same(fast, published, norm, level);
            vectors += level.vectors > 0.0 ? n : 0;
            const auto ratio = [&](const eigen_system& s) { return residual_ratio(a, s, level.tolerance * norm); };
            if (level.vectors == 0.0) { // a residual below the tolerance is as good as any
                EXPECT_LT(ratio(fast), 4.0 * ratio(published) + 1.0);
            }
        }
    };
    for (std::size_t f = 0; f < compared_families.size(); ++f)
        for (const int n : sizes)
            for (const compared_level& level : compared_levels)
                if (n <= std::min(f < large_families ? 130 : 41, level.largest))
                    compare(compared_families[f], n, level);
    use_machine(best_machine());
    EXPECT_GT(compared, vectors / 10 * 7);
    for (const auto& outcomes : met)
        EXPECT_TRUE(outcomes[0] > 0 && outcomes[1] > 0) << &outcomes - met;
}

// ---- tests against eps, in the order of the routines: what is just eps, and what no family has ----

struct balanced {
    int low, igh;
    double scale[4];
};

static balanced balance(square a) { // of order 3
    balanced b = {};
    cbal(3, a.table(), b.low, b.igh, b.scale);
    return b;
}

static eigen_system upper_part(square h, std::vector<double> ortr = {}) {
    const std::size_t size = std::size_t(h.n) + 1;
    ortr.resize(size);
    std::vector<double> orti(size);
    eigen_system s = {std::vector<complex>(size), square(h.n), 0};
    comqr2(h.n, 1, h.n, ortr.data(), orti.data(), h.table(), s.w.data(), s.v.table(), room);
    return s;
}

TEST(EispackChain, BalancingTakesElementsUpToEpsAsZero) {
    eps = 1e-8;
    for (const double small : {1e-8, 1.1e-8, nan_value}) {
        square row = random_square(3, 1), column = random_square(3, 2);
        row.at(0, 1) = row.at(0, 2) = column.at(0, 2) = column.at(1, 2) = {small, -small};
        const balanced r = balance(row), c = balance(column);
        EXPECT_EQ(1000 * r.low + 100 * r.igh + 10 * c.low + c.igh, !(small > eps) ? 1223 : 1313);
        EXPECT_EQ(r.scale[3] + 10 * c.scale[1], !(small > eps) ? 31 : 11); // what was exchanged with 1, or nothing
    }
    // Row 1 times 1/16 leaves 1.25e-9 in column 3, below eps, so that row 3 stays; or just eps, which is scaled.
    for (const double element : {2e-8, 16e-8}) {
        square guarded(3);
        guarded.data = {{0, 0}, {64, 0}, {element, 0}, {0.5, 0}, {0, 0}, {0, 0}, {0.5, 0}, {0, 0}, {0, 0}};
        const balanced g = balance(guarded);
        EXPECT_EQ(g.scale[1] + g.scale[2], 17.0);
        EXPECT_EQ(g.scale[3] == 1.0, element < 16e-8);
    }
    const balanced all = balance(family("identity", 3)); // every row isolated
    EXPECT_EQ(all.low + 10 * all.igh, 11);
}

TEST_P(OnEveryMachine, ReflectionsTakeSumsBelowEpsAsZero) {
    eps = 1e-8;
    const struct {
        number subdiagonal, below, ort, reduced; // column 1; ort(2), element (2,1) behind the reduction
    } cases[] = {
        {1e-8, 0.0, 2e-8, -1e-8},                                 // just eps
        {{0.0, 1e-8}, 1.0 - 1e-8, {0.0, 1.0}, {0.0, 1e-8 - 1.0}}, // just enough to take a phase from
        {{0.0, 3.0}, 4.0, {0.0, 8.0}, {0.0, -5.0}},               // 3 i (1 + 5/3), -5 i
    };
    for (const auto& c : cases) {
        square a = random_square(3, 3);
        a.at(1, 0) = record(c.subdiagonal);
        a.at(2, 0) = record(c.below);
        double ortr[4] = {}, orti[4] = {};
        corth(3, 1, 3, a.table(), ortr, orti, room);
        EXPECT_LT(std::abs(number(ortr[2], orti[2]) - c.ort) + std::abs(a(1, 0) - c.reduced), 1e-14);
    }
}

// Two links of the chain in numbers: (3 + 4 i, 12) has the length 13; what it leaves on the next diagonal,
// (3 + 4 i)(3 - 4 i) - 12 = 13, has with 84 the length 85. The squares of the last two cases leave the range.
TEST_P(OnEveryMachine, RotationsOfAChain) {
    for (const double scale : {1.0, 0.7, 1e-160, 1e160}) {
        const number rows[3][3] = {{{3, 4}, 13, {26, -13}}, {12, {39, -52}, {0, 13}}, {0, 84, {13, 26}}};
        const number c[2] = {number(3, 4) / 13.0, 13.0 / 85.0};
        const double s[2] = {12.0 / 13.0, 84.0 / 85.0};
        square wanted(3);
        const scratch_mark begin = mark_scratch(room);
        const planes h = take_zero_planes(room, 3, 3);
        for (int i = 0; i < 9; ++i) {
            set_element(h, i / 3, i % 3, record(scale * rows[i / 3][i % 3]));
            wanted.data[to_size(i)] = record(rows[i / 3][i % 3]);
        }
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 3; ++j) {
                const number x = wanted(i, j), y = wanted(i + 1, j);
                wanted.at(i, j) = record(std::conj(c[i]) * x + s[i] * y);
                wanted.at(i + 1, j) = record(c[i] * y - s[i] * x);
            }
        rotation g[3];
        rotate_to_triangle(h, 0, 2, g);
        for (int i = 0; i < 2; ++i)
            EXPECT_LT(std::abs(number(g[i + 1].c_re, g[i + 1].c_im) - c[i]) + std::abs(g[i + 1].s - s[i]), 4 * ulp);
        for (int i = 0; i < 9; ++i)
            EXPECT_LT(std::abs(number_of(element(h, i / 3, i % 3)) / scale - wanted(i / 3, i % 3)), 400 * ulp)
                << scale << " " << i;
        EXPECT_NEAR(h.re[0] / scale, 13.0, 20 * ulp);
        EXPECT_NEAR(h.re[h.ld + 1] / scale, 85.0, 400 * ulp);
        release_scratch(room, begin);
    }
}

TEST_P(OnEveryMachine, IterationTakesSubdiagonalsBelowEpsAsZero) {
    eps = 1e-8;
    // 1e6 beside it: the eigenvalues 2, 1 feel a subdiagonal element unless it is dropped.
    EXPECT_EQ(upper_part(matrix_2({2, 0}, {1e6, 0}, {0.9e-8, 0}, {1, 0})).w[0].re, 2.0);
    EXPECT_GT(upper_part(matrix_2({2, 0}, {1e6, 0}, {1e-8, 0}, {1, 0})).w[0].re, 2.009);
    // An imaginary part below eps is dropped: no phase moves; above, it turns the vectors.
    const auto phase = [](double im) {
        return std::arg(upper_part(matrix_2({1, 0}, {1e6, 0}, {2e-8, im}, {1, 0})).v(1, 0));
    };
    EXPECT_EQ(phase(0.0), phase(0.9e-8));
    EXPECT_GT(std::abs(phase(0.0) - phase(1e-8)), 0.1);
    // Reflections with a first element below eps are not accumulated.
    square h(3);
    h.data = {{3, 0}, {0, 0}, {0, 0}, {0, 0}, {2, 0}, {0, 0}, {1, 0}, {0, 0}, {1, 0}};
    const auto turned = [&](double subdiagonal, double ort) {
        h.at(1, 0) = {subdiagonal, 0.0};
        return upper_part(h, {0, 0, ort, 0}).v(2, 1);
    };
    EXPECT_TRUE(turned(0.9e-8, 1.0) == 0.0 && turned(1e-8, 1.0) != 0.0);
    EXPECT_TRUE(turned(-1.0, 0.9e-8) == 0.0 && turned(-1.0, 1e-8) != 0.0);
    EXPECT_NEAR(turned(-1.0, 1.0).real(), -1.0, 1e-7);
}

TEST_P(OnEveryMachine, BackSubstitution) {
    eps = 1e-8;
    // A norm below eps ends the work in front of it: the vectors are left as they are.
    EXPECT_EQ(upper_part(matrix_2({0, 0}, {0.9e-8, 0}, {0, 0}, {0.9e-8, 0})).v(0, 1), 0.0);
    EXPECT_NEAR(upper_part(matrix_2({0, 0}, {1e-8, 0}, {0, 0}, {1e-8, 0})).v(0, 1).real(), std::sqrt(0.5), 1e-12);
    // Equal eigenvalues: the denominator is 1e-16 of the norm 4, since 1e-14 of it still counts.
    const eigen_system jordan = upper_part(matrix_2({1, 0}, {4, 0}, {0, 0}, {1, 0}));
    EXPECT_EQ(jordan.v(0, 1), 1.0);
    EXPECT_NEAR(jordan.v(1, 1).real(), 1e-16, 1e-22);
    // A column scaled down in the middle keeps its direction: (1e10, 1) for the eigenvalue 2.
    const square steep = matrix_2({1, 0}, {1e10, 0}, {0, 0}, {2, 0});
    EXPECT_NEAR(upper_part(steep).v(1, 1).real(), 1e-10, 1e-20);
    // Where balancing has isolated the rows, their diagonal element is not scaled with the column.
    const eigen_system isolated = solve(0, steep, 1e-8);
    EXPECT_NEAR(std::abs(isolated.v(0, 0) - isolated.v(1, 0)), 0.0, 1e-9);
    // Neither is the first column that balancing has left: unit length, and 1 in the row of the large element.
    square beside(3);
    beside.data = {{0.5, 0}, {1e10, 0}, {0, 0}, {0, 0}, {3, 0}, {1, 0}, {0, 0}, {1, 0}, {2, 0}};
    const eigen_system first = solve(0, beside, 1e-8);
    EXPECT_EQ((std::abs(first.v(0, 0)) < 0.8) + (std::abs(first.v(0, 1)) < 0.8), 1);
    // A squared length of 2 becomes 1 if eps is not above it.
    for (const double length : {2.0, 2.1}) {
        eps = length;
        const eigen_system ones = upper_part(matrix_2({1, 0}, {2, 0}, {0, 0}, {3, 0}));
        EXPECT_NEAR(ones.v(0, 1).real(), eps > 2.0 ? 1.0 : std::sqrt(0.5), 1e-15);
    }
}

// ---- sorts ----

TEST(EigenSorts, OrderAndTies) {
    const struct {
        const char* name;
        int flag;
        std::vector<complex> values;
        std::vector<int> from; // column that comes to each place
    } cases[] = {
        {"chain", 0, {{1, 0}, {2, 1}, {1, 2}, {2, 3}}, {1, 3, 0, 2}}, // equals keep their order
        {"real", 1, {{1, 0}, {2, 1}, {1, 2}, {2, 3}}, {3, 1, 0, 2}},  // passes (2,3), (0,2)
        {"real", 1, {{1, 0}, {2, 1}, {3, 2}, {3, 3}}, {3, 2, 1, 0}},  // passes (0,3), (1,2)
        {"real", -1, {{1, 0}, {3, 1}, {-2, 2}}, {2, 0, 1}},
        {"norm", 1, {{1, 0}, {0, 3}, {-2, 0}}, {1, 2, 0}},
        {"norm", -2, {{0, 3}, {1, 0}, {-2, 0}}, {1, 2, 0}},
    };
    for (const auto& c : cases) {
        const int n = int(c.values.size());
        std::vector<complex> w = c.values;
        square v(n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                v.at(i, j) = {double(i), double(j)};
        if (c.name == std::string("chain"))
            sort_eigval_eigvec(n, w.data(), v.table(), room);
        else
            (c.name == std::string("real") ? re_part_csort : norm_csort)(n, w.data(), v.table(), c.flag, room);
        for (int j = 0; j < n; ++j) {
            const int from = c.from[to_size(j)];
            EXPECT_EQ(number_of(w[to_size(j)]), number_of(c.values[to_size(from)])) << c.name << j;
            for (int i = 0; i < n; ++i)
                EXPECT_EQ(v(i, j), number(i, from));
        }
    }
}

// ---- the entry ----

TEST(Eigmat, ConsoleAndInput) {
    const square diagonal = matrix_2({1, 0}, {0, 0}, {0, 0}, {2, 0.5});
    const square invalid = matrix_2({nan_value, 0}, {1, 0}, {1, 0}, {0, 0});
    const square cycle = matrix_2({3, 0}, {2e-8, 0}, {0.5, 0}, {3, 0});
    square endless = family("cyclic", 3);
    endless.at(0, 0) = {nan_value, 0.0};
    const char* const dump = "$$ eigen values:\n0\t2\t0.5\n1\t1\t0\n"
                             "$$ eigen vectors\n0\t0\t0\t0\n1\t0\t1\t0\n0\t1\t1\t0\n1\t1\t0\t0\n";
    const struct {
        int solver, n, monitor, dumps;
        square matrix;
        int status;
        std::string out, err;
    } cases[] = {
        {0, 1, 1, 0, diagonal, 0, "$$ eigen values and vectors: eispack_cg\n", ""},
        {1, 1, 1, 0, diagonal, 0,
         "$$ eigen values and vectors: eigen_c_mat\n$$ (eigmat): eigen_c_mat = 1\n", ""},
        {0, 2, 0, 1, diagonal, 0, dump, ""},
        {1, 2, 0, 1, diagonal, 0, dump, ""},
        {0, 0, 0, 0, diagonal, 0, "", ""},
        {1, 0, 0, 0, diagonal, 0, "$$ (eigmat): eigen_c_mat = 3\n",
         "$$ (eigen_c_mat) invalid n or epsilon.\n"},
        {2, 2, 1, 1, diagonal, 1, "$$ Invalid epsilon.eigmat_func=2. Abort.\n", ""},
        {-1, 2, 1, 1, diagonal, 1, "$$ Invalid epsilon.eigmat_func=-1. Abort.\n", ""},
        {0, 2, 0, 0, invalid, 1, "$$ en=2, abort.\n", ""}, // never converges; no row en - 2
        {0, 2, 0, 0, cycle, 1, "$$ en=2, abort.\n", ""},   // a correction of eps is none
        {0, 3, 0, 0, endless, 0, "", ""},                  // never converges, and says nothing
        {1, 3, 0, 0, endless, 0, "$$ (eigmat): eigen_c_mat = 30000\n", ""},
    };
    for (const auto& c : cases) {
        const outcome o = run_child([&] {
            epsilon = {};
            epsilon.eigen_eps = 1e-8;
            epsilon.eigmat_func = c.solver;
            dbg.process_mon_flag = c.monitor;
            dbg.eigval_dump_flag = dbg.eigvec_dump_flag = c.dumps;
            square matrix = c.matrix, vectors(3);
            std::vector<complex> values(3);
            eigmat(c.n, matrix.table(), values.data(), vectors.table(), room);
            const std::size_t bytes = matrix.data.size() * sizeof(complex);
            if (std::memcmp(matrix.data.data(), c.matrix.data.data(), bytes) != 0)
                std::puts("input changed");
        });
        EXPECT_EQ(o.status, c.status) << c.out;
        EXPECT_EQ(o.out, c.out);
        EXPECT_EQ(o.err, c.err);
    }
}

// Whatever stands in a matrix, and whatever the tolerance: an end within the limits of the sweeps.
TEST_P(OnEveryMachine, EndsOnAnyInput) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double value : {nan_value, infinity, 1.5e308, 1e-310}) {
        for (const int place : {1, 5, 12}) {
            for (const double tolerance : {1e-8, 0.0, -1.0, nan_value}) {
                const auto both = [&] {
                    square a = random_square(4, 5);
                    a.data[to_size(place)].im = value;
                    a.data[to_size(15 - place)].re = value;
                    solve(1, a, tolerance);
                    solve(0, family("identity", 4), tolerance);
                    solve(0, a, tolerance);
                };
                const outcome o = run_child(both, 20);
                EXPECT_TRUE(o.status == 0 || o.out.find("abort.") != std::string::npos)
                    << value << " at " << place << " tolerance " << tolerance << ": " << o.status;
            }
        }
    }
}

TEST(EigenCMat, EigenvaluesAloneAndEqualOnes) {
    square a = random_square(6, 9), b = a;
    std::vector<complex> with(6), alone(6);
    square v(6);
    EXPECT_EQ(eigen_c_mat(6, 1e-13, -1, a.table(), with.data(), v.table(), room), 0);
    EXPECT_EQ(eigen_c_mat(6, 1e-13, 0, b.table(), alone.data(), nullptr, room), 0);
    std::sort(alone.begin(), alone.end(), [](complex x, complex y) { return x.re < y.re; });
    for (std::size_t j = 0; j < 6; ++j)
        EXPECT_LT(std::abs(number_of(with[j]) - number_of(alone[j])), 1e-12);
    square c = random_square(6, 9);
    EXPECT_EQ(eigen_c_mat(6, 1e-13, 2, c.table(), with.data(), v.table(), room), 0);
    EXPECT_TRUE(std::is_sorted(with.rbegin(), with.rend(), [](complex x, complex y) { return c_norm(x) < c_norm(y); }));
    square unit(2), diagonal = matrix_2({1e-9, 0}, {0, 0}, {0, 0}, {2e-9, 0}); // below the tolerance, 1
    EXPECT_EQ(eigen_c_mat(2, 1.0, 0, diagonal.table(), alone.data(), unit.table(), room), 1);
    EXPECT_TRUE(number_of(alone[1]) == 2e-9 && unit(0, 0) == 1.0 && unit(0, 1) == 0.0 && unit(1, 1) == 1.0);
    // Two equal eigenvalues: the denominator is the tolerance, 5e-8, so the vector is (1, 5e-8).
    const square equal = matrix_2({4, 0}, {1, 0}, {0, 0}, {4, 0});
    EXPECT_NEAR(solve(1, equal, 1e-8).v(1, 1).real(), 5e-8, 1e-15);
    EXPECT_NEAR(solve(1, equal, 1e-15).v(1, 1).real(), 5e-13, 1e-20); // 1e-13 at least
}
