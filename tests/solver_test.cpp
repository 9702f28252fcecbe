// SPDX-License-Identifier: MIT
//
// One tilt of the many-beam solver against a matrix exponential that knows nothing of eigenvectors, its
// reductions and sums against plain ones, and the choices that it takes.
#include <algorithm>
#include <complex>
#include <numeric>
#include <random>
#include <valarray>

#include <gtest/gtest.h>

#include "control/settings.h"
#include "crystal_util.h"
#include "numeric/fast/dispatch.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc_potential.h"
#include "solver/ovfunc_tilt.h"

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
    hkl* list;
    tilt_problem p = {};
    std::vector<int> out_beams; // all of the list

    specimen(const std::string& text, double kv, uvw zone, uvw normal, r_hkl base1, const std::string& search)
        : xtal(with_default_settings(text)) {
        std::FILE* file = text_stream(search);
        beam_setup setup = {{zone, normal, base1, 0, 0, kv}, {}, 0, 0, nullptr};
        setup.beam_search.disksize = 0.5;
        fget_beam_list(file, setup, xtal);
        std::fclose(file);
        list = setup.reflex_sel;
        while (static_cast<int>(out_beams.size()) < num_beams(setup))
            out_beams.push_back(static_cast<int>(out_beams.size()));
        p = new_tilt_problem(setup, xtal, nullptr, lattice_of(xtal));
        p.num_g = static_cast<int>(out_beams.size());
        p.out_beams = out_beams.data();
        p.vg = new_matrix<complex>(out_beams.size(), out_beams.size());
        int flag;
        potential_matrix_csd(p.num_exact_beam, p.num_bethe_beam, list, xtal, kv, p.geometry.lat, p.vg, flag);
        EXPECT_EQ(flag, 0);
    }
    ~specimen() {
        free_matrix(p.vg);
        std::free(list);
    }
    specimen(const specimen&) = delete;
    specimen& operator=(const specimen&) = delete;
};

// A solved tilt: the beams that took part, and the waves of all beams of the list.
struct solved_tilt {
    places exact, bethe;
    std::vector<double> beta;
    square psi; // [thickness][position]
};

} // namespace

static const std::string triclinic =
    crystal_text("1\n4.1\n4.6\n5.3\n82\n97\n105\n",
                 {"Ga\n0.1\n0.25\n0.05\nISO\n0.6\n1\n0\n", "As\n0.63\n0.7\n0.52\nISO\n0.5\n0.9\n1\n"});

static solved_tilt solve(const specimen& s, r_hkl K_t, const std::vector<double>& thickness) {
    work_cal_int work;
    alloc_work_cal_int(s.p.num_g, s.p.num_g, 0, work);
    select_tilt(s.p, K_t, work);
    solve_tilt(s.p, nullptr, work);
    const int num_g = s.p.num_g;
    const int *const exact = work.sel, *const bethe = exact + work.nesel;
    solved_tilt tilt = {{exact, bethe}, {bethe, bethe + work.nbsel}, {work.beta_ge, work.beta_ge + num_g}, {}};
    std::vector<complex> psi(to_size(num_g));
    for (double t : thickness) {
        tilt_amplitudes(s.p, work, t, psi.data());
        tilt.psi.emplace_back();
        for (complex wave : psi)
            tilt.psi.back().push_back(std_of(wave));
    }
    free_work_cal_int(work);
    return tilt;
}

// ---- waves -----------------------------------------------------------------------------------

// exp(-i pi lambda t / K_n) for lambda = 0.01 + 0.002 i, t = 1000, K_n = -25 is exp(0.4 pi i - 0.08 pi);
// bc C / sqrt(beta) is 1 there. All beams and thicknesses at once against one after another, with two of
// three branches; a beam outside 0 .. n - 1 has no wave.
TEST(Solver, WavesOfTheBranches) {
    const int pos[] = {2, -1, 0, 3, 1};
    int branch[] = {2, 0};
    double beta[] = {4, 1.5, 0.7};
    complex value[] = {{-0.02, 0.001}, {9, 9}, {0.01, 0.002}}, bc[] = {{0.3, -0.4}, {9, 9}, {2, 0}};
    complex rows[3][3] = {
        {{0, 0}, {9, 9}, {1, 0}}, {{0.2, 0.5}, {9, 9}, {-0.1, 0.6}}, {{1, -2}, {9, 9}, {0.4, 3}}};
    complex* vectors[] = {rows[0], rows[1], rows[2]};
    const bloch_waves waves = {{3, 0, nullptr}, -25, beta, value, vectors, bc, 2, branch};
    const complex psi = psi_limited_ug(0, 1000, waves);
    EXPECT_NEAR(psi.re, 0.24034343, 1e-8);
    EXPECT_NEAR(psi.im, 0.73970102, 1e-8);
    std::vector<double> thickness(150); // more than are worked on at once
    std::iota(thickness.begin(), thickness.end(), 900.0);
    std::vector<complex> many(5 * thickness.size(), {1, 1});
    psi_of_beams(5, pos, 150, thickness.data(), waves, many.data(), room);
    for (std::size_t i = 0; i < many.size(); ++i) {
        const double t = thickness[i % 150];
        const complex one = psi_limited_ug(pos[i / 150], t, waves);
        EXPECT_LT(c_abs(c_sub(many[i], one)), 1e-14) << i;
        EXPECT_EQ(psi_to_intensity_limited_ug(pos[i / 150], t, waves),
                  c_norm(one));
        EXPECT_EQ(c_norm(one) == 0, i / 150 % 2 == 1) << i;
    }
}

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
    const double rad = pi / 180, cg = std::cos(c.gamma * rad), sg = std::sin(c.gamma * rad),
                 cb = std::cos(c.beta * rad);
    const double c_y = (std::cos(c.alpha * rad) - cb * cg) / sg;
    const vec a1 = {c.a, 0, 0}, a2 = {c.b * cg, c.b * sg, 0},
              a3 = {c.c * cb, c.c * c_y, c.c * std::sqrt(1 - cb * cb - c_y * c_y)};
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
    const vec k_t = at(K_t.h, K_t.k, K_t.l), n = along(s.p.normal_uvw),
              k = k_t - std::sqrt(K * K - dot(k_t, k_t)) * along(s.p.zone_uvw);
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
    m = folded(N, m, exact, s.p.beam_search.flag_bs >= 10);
    for (std::size_t i = 0; i < exact; ++i) {
        const hkl g = s.list[beams[i]];
        m[std::slice(i * exact, exact, 1)] *= matrix(cplx(0, -pi * t) / (K_n + dot(at(g.h, g.k, g.l), n)), exact);
    }
    return exponential(exact, m)[std::slice(0, exact, exact)];
}

TEST(Solver, WavesAgreeWithTheMatrixExponential) {
    static const struct {
        double kv;
        uvw zone, normal;
        r_hkl base1, K_t;
        const char* search;
    } cases[] = {
        {100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, {0.13, -0.21, 0}, // zero layer
         "2\n200 1.6 0 0\n0.008 0.012 1e11\n"},
        {100, {0, 0, 1}, {0, 0, 1}, {1, 0, 0}, {0.13, -0.21, 0}, // three layers
         "2\n400 2.6 0 2\n0.012 0.014 1e11\n"},
        {40, {1, 0, 1}, {1, -1, 3}, {0, 1, 0}, {0.1, 0.3, -0.1}, // tilted surface, simple form
         "12\n400 2 -1 1\n0.02 0.03 1e11\n"},
        {200, {1, 1, 0}, {1, 0, 0}, {0, 0, 1}, {-0.2, 0.2, 0.4}, // tilted surface, by w
         "1\n400 2.6 -1 1\n25 60 1e9\n"},
        {300, {0, 1, 0}, {-1, 5, 2}, {0, 0, 1}, {0.2, 0, 0.1}, // by layers, simple form
         "13\n400 2.6 0 1\n0.006 0.008 1e11\n0.003 0.006 1e11\n"}};
    for (const auto& c : cases) {
        specimen s(triclinic, c.kv, c.zone, c.normal, c.base1, c.search);
        epsilon.eigmat_func = static_cast<int>(&c - cases) % 2; // both solvers
        const std::vector<double> thickness = {0, 137, 1000};
        const solved_tilt tilt = solve(s, c.K_t, thickness);
        EXPECT_TRUE(tilt.exact.size() > 10 && tilt.exact.size() < 60 && tilt.bethe.size() > 3) << c.search;
        for (std::size_t t = 0; t < thickness.size(); ++t) {
            const matrix wanted = waves_by_exponential(s, c.K_t, tilt, thickness[t]);
            for (std::size_t i = 0; i < wanted.size(); ++i)
                EXPECT_LT(std::abs(wanted[i] - tilt.psi[t][tilt.exact[i]]), 1e-7)
                    << c.search << " " << thickness[t] << " " << i;
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
    const std::string trace = "$$ invmat: Numpack inv_c_mat()\n",
                      anomalous = "$$ Anomalous termination in inv_c_mat.\n";
    EXPECT_EQ(end.out, trace + anomalous + "$$ (invmat): inv_c_mat = 1\n-9\n" + trace + anomalous + "10\n" + trace +
                           "$$ (inv_c_mat) invalid n or epsilon.\n$$ (invmat): inv_c_mat = 30000\n4\n"
                           "$$ Invalid epsilon.invmat_func=1. Abort.\n");
    free_matrix(a);
    free_matrix(b);
}

// The third of three tables takes the place of the second.
TEST(Solver, PerturbedTables) {
    complex*** pvg = new_tensor<complex>(3, 2, 2);
    complex** vg = new_matrix<complex>(2, 2);
    for (int n = 0; n < 12; ++n)
        pvg[0][0][n] = {10.0 * n, -1.0 * n};
    pvg_to_vg(2, 2, pvg, vg);
    vg_to_pvg(1, 2, vg, pvg);
    for (int n = 0; n < 12; ++n)
        EXPECT_EQ(std_of(pvg[0][0][n]), cplx(10, -1) * double(n / 4 == 1 ? n + 4 : n)) << n;
    free_tensor(pvg);
    free_matrix(vg);
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
    hkl list[] = {{0, 0, 0}, {1, -1, 0}, {0, 1, -1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    complex** vg = new_matrix<complex>(6, 6);
    vg[3][0] = {0, -3};
    vg[4][0] = {3, 0};
    vg[5][0] = {6.3e-10, 0}; // U = 5e-12 does not vanish: xi = 5.4e12
    const struct {
        int flag_bs, vg_select_flag;
        std::vector<double> Sg;
        double exact_limit, bethe_limit;
        std::string classes;
    } cases[] = {
        {2, 1, {9, 0.01, -0.01, 0.005, -0.03, 0.05}, 0.01, 0.03, "211200"},
        {12, 2, {9, 0.01, -0.01, 0.005, -0.03, 0.02}, 0.01, 0.03, "211201"},
        {2, 1, {9, 0, -0, 0, 0, 0}, 0, 0.01, "211111"},
        {2, 1, {NAN, NAN, 0.1, NAN, 0.1, 0.1}, 1, 2, "202022"},
        {2, 0, {9, 0.01, -0.01, 0.005, -0.03, 0.05}, 0.01, 0.03, "222211"},
        {0, 1, {9, 9, 9, 9, 9, 9}, 0.01, 0.03, "222211"},
        {1, 1, {9, small, -small, 1, 1, small / 300}, 1e10 * small, 2e10 * small, "211001"},
        {11, 1, {9, small, 3 * small, 0.01, -0.01, 1}, xi * 0.01 * (1 + 1e-12), 2 * xi * 0.01, "220220"},
        {1, 1, {9, 1, 1, 0.01, -0.02, 1}, xi * 0.01 * (1 - 1e-12), xi * 0.02 * (1 + 1e-12), "200110"},
        // layers 0 0 1 1 2 along [1 1 1], each with half the limits of the one before
        {3, 1, {9, 0.04, 0.03, 0.02, 0.019, 0.01}, 0.04, 0.08, "212121"},
        {13, 1, {9, -0.08, 0.079, 0.04, -0.039, 0.0099}, 0.04, 0.08, "201012"}};
    for (const auto& c : cases) {
        beam_setup setup = {{{1, 1, 1}, {}, {}, 0, 0, 100}, {}, 4, 2, list};
        beam_search& bs = setup.beam_search;
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
        int sel[6], out_pos[3];
        double beta_sel[6];
        beam_selection s = {0, 0, sel};
        vg_select_info_ug(setup, vg, c.Sg.data(), s);
        vg_select_trans_ug(s, beta_ge, beta_sel, 3, out_beams, out_pos);
        const int nesel = s.nesel, nbsel = s.nbsel;
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
            setup.num_bethe_beam = 0;
            setup.reflex_sel += 1 + c.flag_bs % 2;
            vg_select_info_ug(setup, vg, c.Sg.data(), s);
        });
        EXPECT_EQ(end.out + end.err, "$$error: reflex_sel[0] must be 000\n");
        EXPECT_EQ(end.status, 1);
    }
    epsilon.vg_select_flag = 1;
    free_matrix(vg);
}

// M = ((7/8, 0), (0.25, 1)) with row 1 halved by beta = 4: amplitudes 8/7 and -2/7, the first above 1.
TEST(Solver, BoundaryConditionAndItsCheck) {
    complex row_0[] = {{0.5, 0}, {0, 0}}, row_1[] = {{0.25, 0}, {1, 0}};
    const complex* const vectors[] = {row_0, row_1};
    const double beta_sel[] = {1, 4};
    const std::string line = "$$ bc[0] = 1.14286, 0 (c_abs = 1.14286)\n";
    const std::string vector = "$$ vec[0][0]=0.875 0\n$$ vec[1][0]=0.25 0\n$$ norm^2 = 0.828125\n";
    const struct {
        int flag;
        double first;
        std::string out;
    } cases[] = {{0, .875, ""}, {1, .875, line}, {2, .875, line + vector}, {3, .875, ""}, {-1, .875, ""}, {2, 1, ""}};
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
