// SPDX-License-Identifier: MIT
//
// One tilt of the many-beam solver: against numbers worked out by hand, the two-beam formula, a
// matrix exponential that knows nothing of eigenvectors, and the symmetries that physics demands.
#include <algorithm>
#include <complex>
#include <numeric>
#include <random>
#include <valarray>

#include <gtest/gtest.h>

#include "control/orvel.h"
#include "crystal_util.h"
#include "numeric/fast/dispatch.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc.h"

using namespace orvel;
using namespace orvel_test;

static scratch room;

using cplx = std::complex<double>;
using square = std::vector<std::vector<cplx>>;
using places = std::vector<std::size_t>;

static cplx std_of(complex z) { return {z.re, z.im}; }

// Sets all settings to their defaults, and hands a text on.
static const std::string& with_default_settings(const std::string& text) {
    std::FILE* settings = text_stream("EPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n");
    read_eps_ctrl_params(settings);
    std::fclose(settings);
    return text;
}

namespace {

// A crystal with a list of beams and its potentials; crystal and search are texts of a parameter file.
struct specimen {
    table_dir tables;
    crystal xtal;
    beam_search bs = {};
    hkl* list;
    tilt_problem p = {};
    std::vector<int> out_beams; // all of the list

    specimen(const std::string& text, double kv, uvw zone, uvw normal, r_hkl base1, const std::string& search)
        : xtal(with_default_settings(text)) {
        std::FILE* file = text_stream(search);
        bs.disksize = 0.5;
        fget_beam_list(file, bs, p.num_exact_beam, p.num_bethe_beam, list, zone, base1, 0.0, 0.0, kv, xtal);
        std::fclose(file);
        while (static_cast<int>(out_beams.size()) < p.num_exact_beam + p.num_bethe_beam)
            out_beams.push_back(static_cast<int>(out_beams.size()));
        p.bs = &bs;
        p.reflex_sel = list;
        p.num_g = static_cast<int>(out_beams.size());
        p.out_beams = out_beams.data();
        p.kv = kv;
        p.zone_uvw = zone;
        p.normal_uvw = normal;
        p.lat = lattice_of(xtal);
        p.abs_K = calc_abs_K(xtal, kv, p.lat);
        double lambda, energy;
        pre_calc_intensity(kv, zone, normal, p.lat, p.zone_len, p.normal_len, p.cos_zn, lambda, energy);
        p.vg = new_matrix<complex>(out_beams.size(), out_beams.size());
        int flag;
        potential_matrix_csd(p.num_exact_beam, p.num_bethe_beam, list, xtal, kv, p.lat, p.vg, flag);
        EXPECT_EQ(flag, 0);
    }
    ~specimen() {
        free_matrix(p.vg);
        std::free(list);
    }
    specimen(const specimen&) = delete;
    specimen& operator=(const specimen&) = delete;

    // Leaves the elastic potential alone, V(g) = conj V(-g).
    void take_absorption_away() {
        for (int i = 0; i < p.num_g; ++i)
            for (int j = 0; j <= i; ++j) {
                p.vg[i][j] = {(p.vg[i][j].re + p.vg[j][i].re) / 2, (p.vg[i][j].im - p.vg[j][i].im) / 2};
                p.vg[j][i] = c_conj(p.vg[i][j]);
            }
    }
};

// A solved tilt: the beams that took part, and the waves of all beams of the list.
struct solved_tilt {
    places exact, bethe;
    std::vector<double> beta;
    square psi; // [thickness][position]
    double intensity(std::size_t i, std::size_t t) const { return std::norm(psi[t][i]); }
};

} // namespace

static const std::string triclinic =
    crystal_text("1\n4.1\n4.6\n5.3\n82\n97\n105\n", {"Ga\n0.1\n0.25\n0.05\nISO\n0.6\n1\n0\n", "As\n0.63\n0.7\n0.52\nISO\n0.5\n0.9\n1\n"});
static const std::string silicon =
    crystal_text("227\n5.431\n5.431\n5.431\n90\n90\n90\n", {"Si\n0.125\n0.125\n0.125\nISO\n0.46\n1\n0\n"});

// One atom in a cell of 4 x 5 x 6 angstrom.
static std::string one_atom(const std::string& low_order) {
    return crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0.1\n0\n0\nISO\n0.3\n1\n0\n"}, low_order);
}
// The same with given F(000) = 9.6 + i F_im and F(100) = F(-100) = 2.4.
static std::string given_factors(const std::string& F_im) {
    return one_atom("3\n1\n0 0 0\n9.6\n" + F_im + "\n1 0 0\n2.4\n0\n-1 0 0\n2.4\n0\n");
}

static solved_tilt solve(const specimen& s, r_hkl K_t, const std::vector<double>& thickness) {
    work_cal_int work;
    alloc_work_cal_int(s.p.num_g, s.p.num_g, 0, work);
    tilt_state state = select_tilt(s.p, K_t, work);
    solve_tilt(s.p, "", nullptr, state, work);
    const int num_g = s.p.num_g;
    const int *const exact = work.sel, *const bethe = exact + state.nesel;
    solved_tilt tilt = {{exact, bethe}, {bethe, bethe + state.nbsel}, {work.beta_ge, work.beta_ge + num_g}, {}};
    std::vector<complex> psi(to_size(num_g));
    for (double t : thickness) {
        tilt_amplitudes(s.p, state, work, t, psi.data());
        tilt.psi.emplace_back();
        for (complex wave : psi)
            tilt.psi.back().push_back(std_of(wave));
    }
    free_work_cal_int(work);
    return tilt;
}

// ---- numbers by hand ------------------------------------------------------------------------

static void expect_near(const char* what, const std::vector<double>& got, const std::vector<double>& wanted) {
    for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_NEAR(got[i], wanted[i], 2e-12 * std::max(1.0, std::fabs(wanted[i]))) << what << " " << i;
}

// 100 kV: lambda = 12.264263 / sqrt(1e5 (1 + 0.097847537)) = 0.0370143766, gamma = 1.19569507.
// V(g) = F / (0.020886563 * 120) and U = gamma F / (120 pi): F(000) = 9.6 + 0.12 i gives
// U = 0.0304481249 + 0.000380601562 i, F(100) = 2.4 gives V = 0.957553428 and U = 0.00761203123.
// K = sqrt(1/lambda^2 + 0.0304481249). With K_t = (0.2, -0.1, 0): k_x = 0.05, k_y = -0.02 and
// K_z = -sqrt(K^2 - 0.0029). The normal [0 1 2] is (0, 5, 12)/13 in this cell: K_n = -0.02 * 5/13 +
// K_z * 12/13. S = -(2 K.g + g^2) / (2 K), beta = 1 + g_n / K_n.
TEST(Solver, HandWorkedNumbers) {
    specimen s(given_factors("0.12"), 100, {0, 0, 1}, {0, 1, 2}, {1, 0, 0}, "0\n4 0\n0 0 0\n1 0 0\n0 2 1\n-1 1 -1\n");
    double lengths[3], lambda, energy, S[4], beta[4];
    pre_calc_intensity(100, s.p.zone_uvw, s.p.normal_uvw, s.p.lat, lengths[0], lengths[1], lengths[2], lambda, energy);
    const double K_z = calc_K_z(s.p.abs_K, {0.2, -0.1, 0}, s.p.lat);
    const double K_n = calc_K_n({0.2, -0.1, 0}, K_z, lengths[1], s.p.normal_uvw, lengths[2]);
    calc_sg_beta_g({0.2, -0.1, 0}, K_z, K_n, s.p.abs_K,
                   lengths[0], s.p.zone_uvw, lengths[1], s.p.normal_uvw, 3, 1, s.list, s.p.lat, S, beta);
    const int sel[3] = {0, 2, 1};
    complex** A = new_matrix<complex>(3, 3);
    construct_ug_mat_slct(2, 1, sel, 100, s.p.vg, S, beta, A, room);
    const double U_0 = 0.000380601562, beta_021 = 0.987665911718;
    const cplx U_g = std_of(s.p.vg[2][1]) * (1.19569507 * 0.020886563 / pi);
    expect_near("job", {lambda, relativ_corr(100), energy, lengths[0], lengths[1], lengths[2]},
                {0.0370143765873, 1.19569507, 1e5 * (1 + 5e4 / 510999) / (1 + 1e5 / 510999), 6, 13, 12.0 / 13});
    expect_near("V of 000, 100, -100",
                {s.p.vg[3][3].re, s.p.vg[1][0].re, s.p.vg[0][1].re}, {3.83021371204, 0.95755342801, 0.95755342801});
    expect_near("K", {s.p.abs_K, K_z, K_n}, {27.0170930845, -27.0170394147, -24.9464979213});
    expect_near("S", {S[0], S[1], S[2], S[3]}, {0, -0.00161934519984, 0.163487278211, -0.168466636181});
    expect_near("beta", {beta[0], beta[1], beta[2], beta[3]}, {1, 1, beta_021, 1.00308352207});
    // (2 K S + i U'(0)) / beta on the diagonal, U / sqrt(beta beta) off it; beams 000, 021, 100
    expect_near("real diagonal", {A[0][0].re, A[1][1].re, A[2][2].re}, {0, 8.94422083655, -0.0875});
    expect_near("imaginary diagonal", {A[0][0].im, A[1][1].im, A[2][2].im}, {U_0, U_0 / beta_021, U_0});
    expect_near("given U", {A[0][2].re, A[2][0].re, A[2][0].im}, {0.00761203123284, 0.00761203123284, 0});
    expect_near("computed U", {A[1][2].re, A[1][2].im}, {U_g.real() / std::sqrt(beta_021), U_g.imag() / std::sqrt(beta_021)});
    free_matrix(A);

    // Without a given F(000), K takes the tabulated factor at s = 0. One atom at x = 0.1: the phase
    // of g = 100 is -36 degrees, for elastic and absorptive part alike.
    specimen atom(one_atom("0\n"), 100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, "0\n2 0\n0 0 0\n1 0 0\n");
    const double vacuum = 27.0165295812;
    EXPECT_NEAR(atom.p.abs_K,
                std::sqrt(vacuum * vacuum + 1.19569507 * atom.xtal.bk[0].dt[0] / 1000 / (120 * pi)), 1e-9);
    const cplx V = std_of(atom.p.vg[1][0]), V_minus = std_of(atom.p.vg[0][1]);
    EXPECT_NEAR(std::arg(V + std::conj(V_minus)) * 180 / pi, -36, 1e-9) << "elastic";
    EXPECT_NEAR(std::arg((V - std::conj(V_minus)) / cplx(0, 1)) * 180 / pi, -36, 1e-9) << "absorptive";

    // exp(-i pi lambda t / K_n) for lambda = 0.01 + 0.002 i, t = 1000, K_n = -25 is
    // exp(0.4 pi i - 0.08 pi), divided here by sqrt(beta) = 2. No beam outside 0 .. n - 1 has a wave.
    const int branch[] = {0};
    const double beta_sel[] = {4};
    const complex value[] = {{0.01, 0.002}}, bc[] = {{2, 0}}, vector[] = {{1, 0}};
    const complex* const vectors[] = {vector};
    const complex psi = psi_limited_ug(0, 1000, 1, 1, branch, -25, beta_sel, value, vectors, bc, room);
    EXPECT_NEAR(psi.re, 0.24034343, 1e-8);
    EXPECT_NEAR(psi.im, 0.73970102, 1e-8);
    for (int pos : {-1, 1})
        EXPECT_EQ(psi_to_intensity_limited_ug(pos, 0, 1, 1, branch, -25, beta_sel, value, vectors, bc, room), 0.0) << pos;
    std::vector<double> thickness(150); // more than are worked on at once
    std::iota(thickness.begin(), thickness.end(), 900.0);
    const int out_pos[] = {1, 0};
    std::vector<complex> many(2 * thickness.size(), {1, 1});
    psi_of_beams(2, out_pos, 150, thickness.data(), 1, 1, branch, -25, beta_sel, value, vectors, bc, many.data(), room);
    for (std::size_t t = 0; t < 150; ++t) {
        const complex one = psi_limited_ug(0, thickness[t], 1, 1, branch, -25, beta_sel, value, vectors, bc, room);
        EXPECT_LT(c_abs(c_sub(many[150 + t], one)), 1e-15) << t;
        EXPECT_EQ(c_abs(many[t]), 0.0) << t;
    }
}

// I_g = sin^2(pi t s_eff) / (1 + w^2), s_eff^2 = s^2 + 1/xi^2, w = s xi, along the surface normal:
// xi = |K_n| / U and s = S K / |K_n|, with the numbers of the cell above and g = 1/4.
TEST(Solver, TwoBeamFormula) {
    specimen s(given_factors("0"), 100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, "0\n2 0\n0 0 0\n1 0 0\n");
    const double U = 0.00761203123284, K = 27.0170930845;
    const std::vector<double> thickness = {0, 400, 1774.6, 8000};
    for (double H : {-1.3, -1.05, -1.0, -0.9, 0.0, 0.7}) {
        const solved_tilt tilt = solve(s, {0.5 * H, 0, 0}, thickness);
        const double K_n = std::sqrt(K * K - H * H / 64), xi = K_n / U, sg = -(1 + H) / (32 * K_n);
        for (std::size_t t = 0; t < thickness.size(); ++t) {
            const double wave = std::sin(pi * thickness[t] * std::sqrt(sg * sg + 1 / (xi * xi)));
            const double I_g = wave * wave / (1 + sg * xi * sg * xi);
            EXPECT_NEAR(tilt.intensity(1, t), I_g, 1e-6) << H << " " << thickness[t];
            EXPECT_NEAR(tilt.intensity(0, t), 1 - I_g, 1e-6) << H << " " << thickness[t];
        }
    }
    // A single beam only loses intensity: exp(-2 pi t U'(0) / |K_n|).
    specimen one(given_factors("0.12"), 100, {0, 0, 1}, {0, 1, 2}, {1, 0, 0}, "0\n1 0\n0 0 0\n");
    const solved_tilt alone = solve(one, {0.2, -0.1, 0}, {0, 700});
    EXPECT_NEAR(alone.intensity(0, 0), 1, 1e-12);
    EXPECT_NEAR(alone.intensity(0, 1), std::exp(-2 * pi * 700 * 0.000380601562 / 24.9464979213), 1e-9);
}

// ---- the matrix exponential -----------------------------------------------------------------

// Square matrices row by row, n to a row.
using matrix = std::valarray<cplx>;

static matrix product(std::size_t n, const matrix& a, const matrix& b) {
    matrix c(n * n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t k = 0; k < n; ++k)
            for (std::size_t j = 0; j < n; ++j)
                c[i * n + j] += a[i * n + k] * b[k * n + j];
    return c;
}

// Taylor's series of exp at m / 2^k, of a norm below 1/2, then k squarings.
static matrix exponential(std::size_t n, matrix m) {
    int squarings = 0;
    for (double norm = std::abs(abs(m).sum()); norm > 0.5; norm /= 2)
        ++squarings;
    m *= std::ldexp(1.0, -squarings);
    matrix sum(n * n);
    sum[std::slice(0, n, n + 1)] = 1.0;
    matrix term = sum;
    for (int k = 1; k <= 20; ++k) {
        term = product(n, term, m) / cplx(k);
        sum += term;
    }
    for (int k = 0; k < squarings; ++k)
        sum = product(n, sum, sum);
    return sum;
}

// The leading s x s part with the rest folded in: one row and column after another by elimination,
// which makes up the whole inverse of the rest; in the simple form all from the matrix as it is.
static matrix folded(std::size_t n, const matrix& a, std::size_t s, bool simple) {
    matrix b = a;
    for (std::size_t k = n - 1; k >= s; --k) {
        const matrix& from = simple ? a : b;
        for (std::size_t i = 0; i < k; ++i)
            for (std::size_t j = 0; j < k; ++j)
                b[i * n + j] -= from[i * n + k] * from[k * n + j] / from[k * n + k];
    }
    return b[std::gslice(0, {s, s}, {n, 1})];
}

using vec = std::valarray<double>;
static double dot(const vec& a, const vec& b) { return (a * b).sum(); }
static vec cross(const vec& a, const vec& b) { return a.cshift(1) * b.cshift(2) - a.cshift(2) * b.cshift(1); }

// Waves behind a crystal of thickness t without symmetry, in a Cartesian frame and without any
// routine of the solver: d psi / dt = -i pi / K_n B^-1 U~ psi, where U~ holds U(g - h) off the
// diagonal and 2 K S + i U'(0) on it, and B = 1 + g_n / K_n. No square root of B, no eigenvector.
static matrix waves_by_exponential(const specimen& s, r_hkl K_t, const solved_tilt& tilt, double t) {
    const csd& c = s.xtal;
    const double rad = pi / 180, cg = std::cos(c.gamma * rad), sg = std::sin(c.gamma * rad), cb = std::cos(c.beta * rad);
    const double c_y = (std::cos(c.alpha * rad) - cb * cg) / sg;
    const vec a1 = {c.a, 0, 0}, a2 = {c.b * cg, c.b * sg, 0}, a3 = {c.c * cb, c.c * c_y, c.c * std::sqrt(1 - cb * cb - c_y * c_y)};
    const double vol = dot(a1, cross(a2, a3));
    const vec b1 = cross(a2, a3) / vol, b2 = cross(a3, a1) / vol, b3 = cross(a1, a2) / vol;
    const auto at = [&](double h, double k, double l) { return vec(h * b1 + k * b2 + l * b3); };
    const auto along = [&](uvw d) {
        const vec v = double(d.u) * a1 + double(d.v) * a2 + double(d.w) * a3;
        return vec(v / std::sqrt(dot(v, v)));
    };
    const double volts = 1000 * s.p.kv, lambda = 12.264263 / std::sqrt(volts * (1 + 9.7847537e-7 * volts));
    const double U_per_F = (1 + 1.9569507e-6 * volts) / (pi * vol);
    const auto U = [&](int h, int k, int l) {
        const double sq_s = dot(at(h, k, l), at(h, k, l)) / 4;
        cplx F = 0.0;
        for (int i = 0; i < c.num_site; ++i) {
            const atom& site = c.site[i];
            double pair[2];
            atom_bk(c.bk[i], std::sqrt(sq_s), site.B, pair, s.p.kv);
            F += cplx(site.af == 0 ? atomsf_xdt(sq_s, c.xdt[i]) : pair[0], pair[1]) * site.occupancy *
                 std::exp(cplx(-site.B * sq_s, -2 * pi * (h * site.x + k * site.y + l * site.z)));
        }
        return F * U_per_F;
    };
    double F_0 = 0.0; // of the mean inner potential: the tables at s = 0
    for (int i = 0; i < c.num_site; ++i)
        F_0 += c.bk[i].dt[0] / 1000 * c.site[i].occupancy;
    const double K = std::sqrt(1 / (lambda * lambda) + F_0 * U_per_F);
    const double K_matrix = std::sqrt(1 / (lambda * lambda) + U(0, 0, 0).real());
    const vec k_t = at(K_t.h, K_t.k, K_t.l), n = along(s.p.normal_uvw), k = k_t - std::sqrt(K * K - dot(k_t, k_t)) * along(s.p.zone_uvw);
    const double K_n = dot(k, n);

    places beams = tilt.exact;
    beams.insert(beams.end(), tilt.bethe.begin(), tilt.bethe.end());
    const std::size_t N = beams.size(), exact = tilt.exact.size();
    matrix m(N * N);
    for (std::size_t i = 0; i < N; ++i) {
        const hkl g = s.list[beams[i]];
        const vec k_g = k + at(g.h, g.k, g.l);
        for (std::size_t j = 0; j < N; ++j)
            m[i * N + j] = U(g.h - s.list[beams[j]].h, g.k - s.list[beams[j]].k, g.l - s.list[beams[j]].l);
        m[i * N + i] = {K_matrix / K * (K * K - dot(k_g, k_g)), U(0, 0, 0).imag()};
    }
    m = folded(N, m, exact, s.bs.flag_bs >= 10);
    for (std::size_t i = 0; i < exact; ++i) {
        const hkl g = s.list[beams[i]];
        m[std::slice(i * exact, exact, 1)] *= matrix(cplx(0, -pi * t) / (K_n + dot(at(g.h, g.k, g.l), n)), exact);
    }
    return exponential(exact, m)[std::slice(0, exact, exact)];
}

TEST(Solver, WavesAgreeWithTheMatrixExponential) {
    static const struct {
        const char* what;
        double kv;
        uvw zone, normal;
        r_hkl base1;
        const char* search;
        r_hkl K_t;
    } cases[] = {
        {"zero layer", 100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, "2\n200 1.6 0 0\n0.008 0.012 1e11\n", {0.13, -0.21, 0}},
        {"three layers", 100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, "2\n400 2.6 0 2\n0.012 0.014 1e11\n", {0.13, -0.21, 0}},
        {"tilted surface, simple form", 40, {1, 0, 1}, {1, -1, 3}, {0, 1, 0}, "12\n400 2 -1 1\n0.02 0.03 1e11\n", {0.1, 0.3, -0.1}},
        {"tilted surface, by w", 200, {1, 1, 0}, {1, 0, 0}, {0, 0, 1}, "1\n400 2.6 -1 1\n25 60 1e9\n", {-0.2, 0.2, 0.4}},
        {"by layers, simple form", 300, {0, 1, 0}, {-1, 5, 2}, {0, 0, 1}, "13\n400 2.6 0 1\n0.006 0.008 1e11\n0.003 0.006 1e11\n", {0.2, 0, 0.1}}};
    for (const auto& c : cases) {
        specimen s(triclinic, c.kv, c.zone, c.normal, c.base1, c.search);
        const std::vector<double> thickness = {0, 137, 1000};
        const solved_tilt tilt = solve(s, c.K_t, thickness);
        EXPECT_TRUE(tilt.exact.size() > 10 && tilt.exact.size() < 60 && tilt.bethe.size() > 3) << c.what;
        for (std::size_t t = 0; t < thickness.size(); ++t) {
            const matrix wanted = waves_by_exponential(s, c.K_t, tilt, thickness[t]);
            for (std::size_t i = 0; i < wanted.size(); ++i)
                EXPECT_LT(std::abs(wanted[i] - tilt.psi[t][tilt.exact[i]]), 1e-7) << c.what << " " << thickness[t] << " " << i;
        }
    }
}

TEST(Solver, BetheReductions) {
    const std::size_t s = 5, n = 18;
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    complex** a = new_matrix<complex>(n, n);
    complex** b = new_matrix<complex>(n, n);
    for (std::size_t i = 0; i < n * n; ++i)
        a[0][i] = {normal(random) + (i / n == i % n && i / n >= s ? 3 : 0), normal(random)};
    for (int trial = 0; trial < 36; ++trial)
        for (int flag_bs : {9, 10}) {
            use_machine(trial % 2 == 0 ? machine_plain : machine_wide);
            const int weak = trial / 2 % 14;
            const std::size_t N = s + to_size(weak);
            matrix m(N * N);
            for (std::size_t i = 0; i < N * N; ++i)
                m[i] = std_of(a[i / N][i % N]);
            bethe_reduction(flag_bs, s, weak, a, b, room);
            // With one weak beam both forms are the same; with none they copy.
            const matrix wanted = folded(N, m, s, flag_bs == 10 || weak == 1);
            for (std::size_t i = 0; i < s * s; ++i)
                EXPECT_LT(std::abs(std_of(b[i / s][i % s]) - wanted[i]), 1e-12) << flag_bs << " " << weak;
            for (std::size_t i = 0; i < N * N; ++i)
                EXPECT_EQ(std_of(a[i / N][i % N]), m[i]) << "a_matrix stays";
        }
    // Weak beams without a pivot in their second column: what invmat leaves takes the inverse's
    // place, (1 2 / 2 4) as (2 4 / -1/2 0); then an element too small from the first.
    const outcome end = run_child([&] {
        const double rows[3][3] = {{10, 1, 2}, {3, 1, 2}, {4, 2, 4}};
        dbg.process_mon_flag = 1;
        for (int i = 0; i < 9; ++i)
            a[i / 3][i % 3] = {rows[i / 3][i % 3], 0};
        g_bethe(1, 2, a, b, room);
        std::printf("%g\n", b[0][0].re);
        a[1][1] = {1e-9, 0};
        g_bethe(1, 1, a, b, room);
        std::printf("%g\n", b[0][0].re);
        a[1][1] = {2, 0}; // no tolerance, no inverse: the matrix itself
        epsilon.inv_eps = 0;
        g_bethe(1, 1, a, b, room);
        std::printf("%g\n", b[0][0].re);
        epsilon.invmat_func = 1;
        g_bethe(1, 1, a, b, room);
    });
    const std::string trace = "$$ invmat: Numpack inv_c_mat()\n", anomalous = "$$ Anomalous termination in inv_c_mat.\n";
    EXPECT_EQ(end.out, trace + anomalous + "$$ (invmat): inv_c_mat = 1\n-9\n" + trace + anomalous + "10\n" + trace +
                           "$$ (inv_c_mat) invalid n or epsilon.\n$$ (invmat): inv_c_mat = 30000\n4\n$$ Invalid epsilon.invmat_func=1. Abort.\n");
    free_matrix(a);
    free_matrix(b);
}

// ---- symmetry and conservation --------------------------------------------------------------

TEST(Solver, FluxIsKeptWithoutAbsorption) {
    const auto flux_of = [](const solved_tilt& tilt, std::size_t t) {
        double flux = 0.0;
        for (std::size_t i : tilt.exact)
            flux += tilt.beta[i] * tilt.intensity(i, t);
        return flux;
    };
    for (uvw normal : {uvw{0, 0, 1}, uvw{1, -1, 4}})
        for (const char* search : {"2\n400 2.6 0 1\n0.012 0.014 1e11\n", "12\n400 2.6 0 1\n0.012 0.014 1e11\n"}) {
            specimen s(triclinic, 100, {0, 0, 1}, normal, {1, 0, 0}, search);
            EXPECT_LT(flux_of(solve(s, {0.1, 0.2, 0}, {1000}), 0), 0.99);
            s.take_absorption_away();
            const solved_tilt tilt = solve(s, {0.1, 0.2, 0}, {0, 100, 1000, 5000});
            for (std::size_t t = 0; t < 4; ++t)
                EXPECT_NEAR(flux_of(tilt, t), 1, 1e-7) << search << t;
            EXPECT_NEAR(tilt.intensity(0, 0), 1, 1e-12) << "no thickness";
        }
}

// The largest difference between the intensities at K_t and those of their images at its image.
template <class Map>
static double asymmetry(const specimen& s, Map map, r_hkl K_t) {
    const solved_tilt here = solve(s, K_t, {300, 900}), there = solve(s, map(K_t), {300, 900});
    double worst = 0.0;
    for (std::size_t i : here.exact) {
        const r_hkl g = map(hkl2rhkl(s.list[i].h, s.list[i].k, s.list[i].l));
        const int at = find_n_g(s.p.num_g, int(g.h), int(g.k), int(g.l), s.list);
        for (std::size_t t = 0; t < 2 && at >= 0; ++t)
            worst = std::max(worst, std::fabs(here.intensity(i, t) - there.intensity(to_size(at), t)));
    }
    return worst;
}

// Silicon [1 1 1]: the zero layer alone is a projection with six-fold symmetry; the first layer
// takes it down to three-fold.
TEST(Solver, PointSymmetryOfSilicon111) {
    specimen zero_layer(silicon, 100, {1, 1, 1}, {1, 1, 1}, {2, -2, 0}, "1\n400 3 0 0\n60 200 4e4\n");
    specimen two_layers(silicon, 100, {1, 1, 1}, {1, 1, 1}, {2, -2, 0}, "1\n400 3 0 1\n60 200 4e4\n");
    const auto turned = [](r_hkl v) { return r_hkl{v.l, v.h, v.k}; };
    const auto mirrored = [](r_hkl v) { return r_hkl{v.k, v.h, v.l}; };
    const auto opposite = [](r_hkl v) { return r_hkl{-v.k, -v.l, -v.h}; };
    double six_fold = 0.0;
    for (r_hkl K_t : {r_hkl{0.31, -0.13, -0.18}, r_hkl{0.4, 0.05, -0.45}, r_hkl{-0.6, 0.33, 0.27}}) {
        for (specimen* s : {&zero_layer, &two_layers}) {
            EXPECT_LT(asymmetry(*s, turned, K_t), 1e-7);
            EXPECT_LT(asymmetry(*s, mirrored, K_t), 1e-7);
        }
        EXPECT_LT(asymmetry(zero_layer, opposite, K_t), 1e-7);
        six_fold = std::max(six_fold, asymmetry(two_layers, opposite, K_t));
    }
    EXPECT_GT(six_fold, 1e-4);
}

// The solvers differ by what their tolerance leaves of the matrix: some eigen_eps pi t / K.
TEST(Solver, BothEigensolversAndTheBranchLimit) {
    specimen s(silicon, 100, {1, 1, 1}, {1, 1, 1}, {2, -2, 0}, "1\n400 3 0 1\n60 200 4e4\n");
    const auto solved = [&](int eigmat_func, double eigen_eps, double bc_accuracy) {
        epsilon.eigmat_func = eigmat_func;
        epsilon.eigen_eps = eigen_eps;
        epsilon.bc_accuracy = bc_accuracy;
        return solve(s, {0.31, -0.13, -0.18}, {500, 1500});
    };
    const auto difference = [](const solved_tilt& a, const solved_tilt& b) {
        double worst = 0.0;
        for (std::size_t i : a.exact)
            for (std::size_t t = 0; t < 2; ++t)
                worst = std::max(worst, std::fabs(a.intensity(i, t) - b.intensity(i, t)));
        return worst;
    };
    for (auto [accuracy, limit] : {std::pair(1e-8, 1e-7), {1e-13, 1e-11}})
        EXPECT_LT(difference(solved(0, accuracy, 1), solved(1, accuracy, 1)), limit);
    const double change = difference(solved(0, 1e-8, 0.999), solved(0, 1e-8, 1));
    EXPECT_TRUE(change > 1e-6 && change < 0.1) << change;
    s.take_absorption_away();
    const solved_tilt strongest = solved(0, 1e-8, 0);
    for (std::size_t i : strongest.exact)
        EXPECT_NEAR(strongest.intensity(i, 0), strongest.intensity(i, 1), 1e-9) << "one wave does not beat";
    solved(0, 1e-8, 1);
}

// ---- choices --------------------------------------------------------------------------------

TEST(Solver, LimitedBranch) {
    const double nan = std::nan("");
    const std::vector<complex> three = {{1, 0}, {-3, 0}, {0, 2}};
    const struct {
        double accuracy;
        std::vector<complex> bc;
        std::vector<int> branches;
    } cases[] = {
        {1.0, three, {0, 1, 2}},
        {1 - 1e-15, three, {1, 2, 0}},
        {2.0, three, {1, 2, 0}},
        {nan, three, {1, 2, 0}},
        {9.0 / 14, three, {1}},
        {0.65, three, {1, 2}},
        {0.0, three, {1}},
        {-1.0, three, {1}},
        {0.9, {{0, 0}, {0, 0}}, {1, 0}},
        {0.5, {{nan, 0}}, {0}},
        {0.5, {{0.7, 0.7}}, {0}}};
    for (const auto& c : cases) {
        int n_branch = -1, branch[3] = {-1, -1, -1};
        limited_branch(c.accuracy, static_cast<int>(c.bc.size()), c.bc.data(), n_branch, branch, room);
        EXPECT_EQ(std::vector<int>(branch, branch + n_branch), c.branches) << c.accuracy;
    }
}

// Beam by beam: 2 exact, 1 Bethe, 0 left out. All comparisons are strict; 000 is always exact.
TEST(Solver, SelectionPerTilt) {
    // w = xi |Sg|: 1e10 angstrom for a vanishing potential; xi of 3 V at 100 kV
    const double small = std::ldexp(1.0, -30), xi = 150.41214074282078 / (1.19569507 * 3 * 0.037014376587273065);
    const hkl list[] = {{0, 0, 0}, {1, -1, 0}, {0, 1, -1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    complex** vg = new_matrix<complex>(6, 6);
    vg[3][0] = {0, -3};
    vg[4][0] = {3, 0};
    const struct {
        int flag_bs, vg_select_flag;
        std::vector<double> Sg;
        double exact_limit, bethe_limit;
        std::string classes;
    } cases[] = {
        {2, 1, {9, 0.01, -0.01, 0.005, -0.03, 0.05}, 0.01, 0.03, "211200"},
        {12, 1, {9, 0.01, -0.01, 0.005, -0.03, 0.02}, 0.01, 0.03, "211201"},
        {2, 1, {9, 0, -0, 0, 0, 0}, 0, 0.01, "211111"},
        {2, 1, {NAN, NAN, 0.1, NAN, 0.1, 0.1}, 1, 2, "202022"},
        {2, 0, {9, 0.01, -0.01, 0.005, -0.03, 0.05}, 0.01, 0.03, "222211"},
        {0, 1, {9, 9, 9, 9, 9, 9}, 0.01, 0.03, "222211"},
        {1, 1, {9, small, -small, 1, 1, 0}, 1e10 * small, 2e10 * small, "211002"},
        {11, 1, {9, small, 3 * small, 0.01, -0.01, 1}, xi * 0.01 * (1 + 1e-12), 2 * xi * 0.01, "220220"},
        {1, 1, {9, 1, 1, 0.01, -0.02, 1}, xi * 0.01 * (1 - 1e-12), xi * 0.02 * (1 + 1e-12), "200110"},
        // layers 0 0 1 1 2 along [1 1 1], each with half the limits of the one before
        {3, 1, {9, 0.04, 0.03, 0.02, 0.019, 0.01}, 0.04, 0.08, "212121"},
        {13, 1, {9, -0.08, 0.079, 0.04, -0.039, 0.0099}, 0.04, 0.08, "201012"}};
    for (const auto& c : cases) {
        beam_search bs = {};
        bs.flag_bs = c.flag_bs;
        bs.wgbmin = bs.sgbmin = c.exact_limit;
        bs.wgmax = bs.sgmax = c.bethe_limit;
        for (int lz = 0; lz < 3; ++lz) {
            bs.sgbmin_lz[lz] = std::ldexp(c.exact_limit, -lz);
            bs.sgmax_lz[lz] = std::ldexp(c.bethe_limit, -lz);
        }
        epsilon.vg_select_flag = c.vg_select_flag;
        const double beta_ge[] = {1, 2, 3, 4, 5, 6};
        const int out_beams[] = {3, 0, 5};
        int nesel, nbsel, sel[6], out_pos[3];
        double beta_sel[6];
        vg_select_info_ug(4, 2, nesel, nbsel, sel, vg, list, c.Sg.data(), bs, {1, 1, 1}, 100);
        vg_select_trans_ug(4, 2, nesel, nbsel, sel, beta_ge, beta_sel, 3, out_beams, out_pos);
        std::string classes(6, '0');
        for (int i = 0; i < nesel + nbsel; ++i) {
            classes[to_size(sel[i])] = i < nesel ? '2' : '1';
            EXPECT_EQ(beta_sel[i], sel[i] + 1);
        }
        EXPECT_EQ(classes, c.classes) << c.flag_bs;
        EXPECT_TRUE(std::is_sorted(sel, sel + nesel) && std::is_sorted(sel + nesel, sel + nesel + nbsel)) << c.flag_bs;
        for (int r = 0; r < 3; ++r) {
            const auto beam = classes.begin() + out_beams[r];
            EXPECT_EQ(out_pos[r], *beam == '2' ? std::count(classes.begin(), beam, '2') : -1) << c.flag_bs;
        }
        if (c.vg_select_flag == 0 || c.flag_bs == 0)
            continue;
        const outcome end = run_child([&] {
            vg_select_info_ug(4, 0, nesel, nbsel, sel, vg, list + 1 + c.flag_bs % 2, c.Sg.data(), bs, {1, 1, 1}, 100);
        });
        EXPECT_EQ(end.out + end.err, "$$error: reflex_sel[0] must be 000\n");
        EXPECT_EQ(end.status, 1);
    }
    epsilon.vg_select_flag = 1;
    free_matrix(vg);
}

// M = ((0.5, 0), (0.25, 1)) with row 1 halved by beta = 4: amplitudes 2 and -0.5, the first above 1.
TEST(Solver, BoundaryConditionAndItsCheck) {
    complex row_0[] = {{0.5, 0}, {0, 0}}, row_1[] = {{0.25, 0}, {1, 0}};
    const complex* const vectors[] = {row_0, row_1};
    const double beta_sel[] = {1, 4};
    const std::string line = "$$ bc[0] = 2, 0 (c_abs = 2)\n";
    const std::string vector = "$$ vec[0][0]=0.5 0\n$$ vec[1][0]=0.25 0\n$$ norm^2 = 0.3125\n";
    const struct {
        int flag;
        double first;
        std::string out;
    } cases[] = {{0, 0.5, ""}, {1, 0.5, line}, {2, 0.5, line + vector}, {3, 0.5, ""}, {-1, 0.5, ""}, {2, 1, ""}};
    for (const auto& c : cases) {
        const outcome end = run_child([&] {
            dbg.bc_chk_flag = c.flag;
            row_0[0].re = c.first;
            complex bc[2];
            const int found = upper_b_cond(2, beta_sel, vectors, bc, room);
            const bool right = bc[0].re == 1 / c.first && bc[0].im == 0 && bc[1].re == -0.25 / c.first && bc[1].im == 0;
            std::exit(right ? found : 10);
        });
        EXPECT_EQ(end.out, c.out) << c.flag;
        EXPECT_EQ(end.status, c.out.empty() ? 0 : 1) << c.flag;
    }
}
