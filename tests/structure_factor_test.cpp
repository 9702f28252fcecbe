// SPDX-License-Identifier: MIT
//
// Atomic factors on tables whose interpolation error is known in closed form, their two files, and
// structure factors: numbers worked by hand, direct sums over positions, the stock, low-order data.
#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <tuple>

#include <gtest/gtest.h>

#include "control/settings.h"
#include "crystal_util.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc_potential.h"

using namespace orvel;
using namespace orvel_test;

using cplx = std::complex<double>;
static const double tau = 2 * std::acos(-1.0);

static cplx std_of(complex z) { return {z.re, z.im}; }
static void expect_near(complex got, cplx wanted, const std::string& what, double tolerance = 1e-11) {
    EXPECT_NEAR(std::abs(std_of(got) - wanted), 0, tolerance * (1 + std::abs(wanted))) << what;
}

// ---- atomic factors -------------------------------------------------------------------------

// x^n less the product of x - xs[i] over n points up to xs[last]: what the polynomial through these
// points of x^n has at x. So the value tells which points were used.
static double through(int n, const double* xs, int last, double x) {
    double product = 1;
    for (int i = last - n + 1; i <= last; ++i)
        product *= x - xs[i];
    return std::pow(x, n) - product;
}

TEST(AtomicFactors, Interpolation) {
    const double xs[] = {0, 1, 3, 4, 7, 8}, quartic[] = {0, 1, 81, 256, 2401, 4096}, cubic[] = {0, 1, 27, 64, 343, 512};
    EXPECT_DOUBLE_EQ(quad_int(xs, 2, cubic), through(3, xs, 2, 2));
    EXPECT_DOUBLE_EQ(cub_int(xs + 2, 5, quartic + 2), through(4, xs, 5, 5));
    static const struct {
        double x;
        int last;
    } cases[] = {{-1, 3}, {2, 3}, {3, 4}, {3.5, 4}, {4, 5}, {9, 5}};
    for (const auto& c : cases)
        EXPECT_NEAR(cub_int_2(c.x, 6, xs, quartic), through(4, xs, c.last, c.x), 1e-10) << c.x;
}

// f = 2 everywhere; the decoded absorptive function is B^n M^n, coded with mlt = 10/5, add = 3.
static bk_tbl power_table(int n, std::vector<double> gms2) {
    bk_tbl t = {{}, {}, {}, {0.5, 1, 2, 3, 4, 6}, {}, 5, 3e6};
    for (int i = 0; i < 27; ++i) {
        t.dts[i] = 0.5 * i;
        t.dt[i] = 2000;
    }
    std::copy(gms2.begin(), gms2.end(), t.gms2);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 10; ++j)
            t.f[i][j] = (std::pow(t.gm[i] * t.gms2[j], n) * std::exp(-t.gms2[j]) + 3) / 2;
    return t;
}

// beta^2 = 1 - 261127 / (100 x 1122 + 261127) = 112200 / 373327 at 100 kV.
static const double f_over_beta = 2 / std::sqrt(112200.0 / 373327);

namespace {
// first and last: the last rows or columns of the stencils whose mean is taken at x; of a cubic one last.
struct stencil {
    double x;
    int first, last;
};
} // namespace

TEST(AtomicFactors, AbsorptiveStencils) {
    const bk_tbl quad = power_table(3, {0, .1, .3, .6, 1, 1.2, 1.4, 1.6, 1.8, 6});
    const stencil rows[] = {{.7, 2, 3}, {1, 2, 3}, {1.5, 2, 3}, {2.5, 3, 4}, {3.5, 4, 5}, {5, 5, 5}, {7, 5, 5}};
    const stencil columns[] = {{.05, 2, 2}, {.2, 2, 3}, {.5, 3, 4}, {1.3, 6, 7}, {1.7, 8, 9}, {1.9, 9, 9}};
    double f[2];
    for (const stencil& p : rows) {
        for (const stencil& q : columns) {
            const double B = std::fmin(p.x, 6), M = q.x; // M goes with the B as given
            const int q_last = p.x < 1 && M < .1 ? 3 : q.last;
            const double I = (through(3, quad.gm, p.first, B) + through(3, quad.gm, p.last, B)) / 2 *
                             (through(3, quad.gms2, q.first, M) + through(3, quad.gms2, q_last, M)) / 2;
            EXPECT_EQ(atom_bk(quad, std::sqrt(M / p.x), p.x, f, 100), p.x > 6 ? bk_b_outside_table : bk_in_range);
            EXPECT_NEAR(f[1], f_over_beta * I, 1e-10 * (1 + std::fabs(I))) << p.x << " " << M;
        }
    }
    const bk_tbl cubic = power_table(4, {0, .1, .3, .6, 1, 1.8, 2.5, 3.2, 4, 6});
    const stencil cubic_rows[] = {{.7, 0, 3}, {1.5, 0, 3}, {2, 0, 4}, {2.5, 0, 4}, {3.5, 0, 5}, {5, 0, 5}};
    for (const stencil& p : cubic_rows) {
        for (const stencil& q : {stencil{2, 0, 7}, {2.1, 0, 7}, {2.8, 0, 8}, {3.5, 0, 9}, {5, 0, 9}}) {
            if (q.x == 2 && p.x != 2)
                continue; // M = 2 without rounding
            atom_bk(cubic, std::sqrt(q.x / p.x), p.x, f, 100);
            const double I = through(4, cubic.gm, p.last, p.x) * through(4, cubic.gms2, q.last, q.x);
            EXPECT_NEAR(f[1], f_over_beta * I, 1e-9 * std::fabs(I)) << p.x << " " << q.x;
        }
    }
}

TEST(AtomicFactors, RangesOfTheTable) {
    const bk_tbl t = power_table(0, {0, .1, .3, .6, 1, 1.8, 2.5, 3, 4, 6}); // I = 1
    static const struct {
        double s, B, kv;
        int status;
        double f, absorptive;
    } cases[] = {
        {13, .5, 100, 0, 2, 0},
        {13.001, 1, 100, 1, 0, 0},
        {-1e-9, 1, 100, 3, 0, 0},
        {0, 1, 0, 4, 0, 0},
        {0, 1, -1, 4, 0, 0},
        {0, 1, 10000.1, 4, 0, 0},
        {0, -.1, 100, 2, 2, 0},
        {0, .4, 100, 0, 2, 0},
        {0, 6, 100, 0, 2, f_over_beta},
        {0, 6, 0.5, 0, 2, 2 / std::sqrt(511.25 / 261638.25)},
        {1, 6, 100, 0, 2, f_over_beta},
        {1, 6.1, 100, 2, 2, 0},
        {.5, 7, 100, 2, 2, f_over_beta},
        {2, .5, 100, 0, 2, f_over_beta},
    };
    for (const auto& c : cases) {
        double f[2];
        EXPECT_EQ(atom_bk(t, c.s, c.B, f, c.kv), c.status) << c.s << " " << c.B << " " << c.kv;
        EXPECT_NEAR(f[0], c.f, 1e-13);
        EXPECT_NEAR(f[1], c.absorptive, 1e-10) << c.s << " " << c.B;
    }
    double f[2];
    EXPECT_EQ(atom_bk(t, 0, 1, f, 10000), bk_in_range);
    EXPECT_NEAR(f[1], 2.0, 5e-3) << "v is nearly c";
}

// z = 6, f_x = 4 exp(-10 s^2) + 2: f(0.1) = 0.02393367 (4 - 4/e) / 0.1, limit 0.023934 x 40.
TEST(AtomicFactors, MottFormula) {
    const xdt_tbl row = {4, 10, 0, 1, 0, 1, 0, 1, 2, 6};
    epsilon.general_eps = 1e-10;
    EXPECT_NEAR(atomsf_xdt(0.1, row), 0.605158594, 1e-9);
    EXPECT_DOUBLE_EQ(atomsf_xdt(0, row), 0.95736);
    EXPECT_DOUBLE_EQ(atomsf_xdt(1e-10, row), 0.95736);
    EXPECT_NEAR(atomsf_xdt(2e-10, row), 0.9573468, 2e-6);
    expect_faults({{[&] { atomsf_xdt(-0.5, row); }, "$$ERROR: atomsf_dtxn (sq_s=-0.5)\n", ""},
                   {[&] { atomsf_xdt(std::nan(""), row); }, "$$ERROR: atomsf_dtxn (sq_s=nan)\n", ""}});
}

static std::string numbers(int first, int n) {
    std::string text;
    for (int i = first; i < first + n; ++i)
        text += std::to_string(i) + (i % 2 == 0 ? " " : ",\t");
    return text + "\n";
}

TEST(AtomicFactors, Files) {
    const table_dir dir;
    write_file("orvelxdt.dat", "# Si\nSi1 any thing\nSi4\n \tSi,14 1 2 3 4\t5 6 7 8 -9 more\nSi 0 0 0 0 0 0 0 0 0 0\n");
    char name[element_max] = "Si, x";
    const xdt_tbl x = read_xdt_table(name);
    EXPECT_STREQ(name, "Si");
    EXPECT_EQ((std::vector<double>{x.a1, x.b1, x.a2, x.b2, x.a3, x.b3, x.a4, x.b4, x.c, x.z}),
              (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, -9, 14}));

    const std::string dts = "DTS x\n" + numbers(0, 9) + numbers(9, 9) + numbers(18, 9), gm = "GM\n" + numbers(0, 6);
    const std::string head = dts + gm + "%\nGMS2\n" + numbers(0, 5) + numbers(5, 5),
                      other = "A\nX\nX\nX\nX\nX\nX\nX\nX\nX\n";
    const std::string codes = numbers(0, 13) + numbers(13, 13) + numbers(26, 13) + numbers(39, 13);
    const std::string entry =
        "X\n7 8\n" + numbers(100, 9) + "COMMENT{\nX\n}COMMENT\n" + numbers(109, 9) + numbers(118, 9) + codes;
    const std::string whole = head + other + "X \n1\n2\n3\n4\n5\n6\n7\n8\n9\n" + entry + numbers(52, 10);
    write_file("orvelbk.dat", whole);
    const bk_tbl t = read_atom_dat_table("X");
    EXPECT_EQ((std::vector<double>{t.dts[0], t.dts[26], t.gm[5], t.gms2[9], t.mlt_fct, t.add_fct, t.dt[0], t.dt[26]}),
              (std::vector<double>{0, 26, 5, 9, 7, 8, 100, 126}));
    EXPECT_EQ((std::vector<double>{t.f[0][0], t.f[1][0], t.f[0][1], t.f[4][8], t.f[5][9]}),
              (std::vector<double>{0, 1, 6, 52, 59}));

    const std::string bad = "$$ Data format error in orvelbk.dat. Abort.\n",
                      unknown = "$$ERROR: Element X was not found in orvelbk.dat\n";
    const struct {
        const std::string& message;
        std::vector<std::string> tables;
    } cases[] = {
        {bad,
         {"", dts, replaced(whole, "DTS", "SDT"), replaced(whole, "GM\n", "G\n"), replaced(whole, "GMS2", "GM"),
          head + entry, head + "X", head + replaced(entry, "7 8", "7"), head + other + "X\r\n1 2\r\n"}},
        {unknown, {head, head + other, head + "x\n"}},
    };
    for (const auto& c : cases) {
        for (const std::string& table : c.tables) {
            write_file("orvelbk.dat", table);
            expect_faults({{[] { read_atom_dat_table("X"); }, c.message, ""}});
        }
    }
}

// ---- structure factors ----------------------------------------------------------------------

static sym_op operation(std::string line) { return decode_sym_op(line.data()); }

// One atom at x = 1/4: F(100) = f exp(-2 pi i/4) = -i f. A screw along z through it: 1 + exp(-2 pi i/4)
// for 001. The operation (z, x, y + 1/4) takes (1/4, 0, 0) to (0, 1/4, 1/4): -i for 010 and 001.
TEST(StructureFactors, PhasesByHand) {
    atom site = {"", 0, 0, 0.25, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1};
    sym_op screw[] = {operation("X,Y,Z"), operation("-X,-Y,Z+1/4")}, turn = operation("Z,X,Y+1/4");
    csd c = {};
    c.num_site = 1;
    c.site = &site;
    const auto sum = [&](int num_sym_op, sym_op* ops, hkl g, double sq_s = 0, double f = 1, double f_abs = 0) {
        c.num_sym_op = num_sym_op;
        c.sym_op = ops;
        return calc_structure_factor_ph(g, sq_s, c, &f, &f_abs);
    };
    expect_near(sum(2, screw, {0, 0, 1}), {1, -1}, "screw");
    expect_near(sum(1, &turn, {0, 1, 0}), {0, -1}, "010");
    expect_near(sum(1, &turn, {0, 0, 1}), {0, -1}, "001");
    expect_near(sum(1, &turn, {1, 0, 0}), {1, 0}, "100");
    site.B = 3;
    site.occupancy = 0.25;
    site.multiplicity = 2; // (2 + 0.5 i)(-i) exp(-3 x 0.2) / 2
    expect_near(sum(1, screw, {1, 0, 0}, 0.2, 2, 0.5), 0.5 * std::exp(-0.6) * cplx(0.5, -2), "100");
    // The tensor takes the rotated indices (1, 2, 3) of 312, the translation the given ones: exp(-pi i).
    site = {"", 1, 0, 0, 0, 0, 1, 0, .01, .04, .09, .001, .002, .003, 1};
    expect_near(sum(1, &turn, {3, 1, 2}, 9),
                std::polar(std::exp(-(.01 + .16 + .81 + 2 * (.002 + .006 + .018))), -tau / 2), "anisotropic");
}

// A direct sum over distinct positions, which owes nothing to the program's own helpers.
static cplx direct_sum(const csd& c, hkl g, double sq_s, const double* f, const double* f_abs) {
    cplx sum = 0;
    for (int i = 0; i < c.num_site; ++i) {
        const atom& s = c.site[i];
        std::vector<std::array<double, 3>> seen;
        for (int n = 0; n < c.num_sym_op; ++n) {
            const sym_op& op = c.sym_op[n];
            std::array<double, 3> p;
            for (std::size_t a = 0; a < 3; ++a)
                p[a] = op.rot[a] * s.x + op.rot[3 + a] * s.y + op.rot[6 + a] * s.z + op.trans[a];
            const auto is_p = [&](const std::array<double, 3>& q) {
                return std::hypot(std::remainder(p[0] - q[0], 1), std::remainder(p[1] - q[1], 1),
                                  std::remainder(p[2] - q[2], 1)) < 1e-4;
            };
            if (std::any_of(seen.begin(), seen.end(), is_p))
                continue;
            seen.push_back(p);
            sum += s.occupancy * std::exp(-s.B * sq_s) * cplx(f[i], f_abs[i]) *
                   std::polar(1.0, -tau * (g.h * p[0] + g.k * p[1] + g.l * p[2]));
        }
    }
    return sum;
}

// Sums against direct sums; each equivalent that the stock derives against a sum of its own (the
// centring of R has thirds of seven digits), and tabled phases against plain ones, with a tensor of no
// symmetry and with one that some operations leave alone too.
TEST(StructureFactors, AgreeWithDirectSums) {
    const table_dir dir;
    static const struct {
        const char* lattice;
        const char* special; // a special position, if there is one
    } cases[] = {
        {"2\n3\n4\n5\n80\n95\n110\n", "0.5\n0\n0\n"},
        {"2\n3\n4\n5\n80\n95\n110\n", "0.5\n0.0003\n0\n"}, // nearly one
        {"62\n5\n6\n7\n90\n90\n90\n", "0.1\n0.25\n0.4\n"},
        {"166\n4\n4\n9\n90\n90\n120\n", "0\n0\n0.2\n"},
        {"144\n5\n5\n7\n90\n90\n120\n", "0.3\n0.1\n0\n"}, // a screw axis of one hand
        {"194\n3\n3\n5\n90\n90\n120\n", "0.3333333333333333\n0.6666666666666667\n0.25\n"},
        {"227\n5.4\n5.4\n5.4\n90\n90\n90\n", "0.125\n0.125\n0.125\n"},
    };
    const double f[2] = {2, 3}, f_abs[2] = {0.2, 0.1};
    for (const auto& c : cases) {
        crystal cr(crystal_text(c.lattice, {"Si\n" + std::string(c.special) + "ISO\n0.5\n1\n0\n",
                                            "O\n0.11\n0.23\n0.37\nISO\n0.8\n0.6\n1\n"}));
        const lattice lat = lattice_of(cr);
        const double f_0[2] = {cr.bk[0].dt[0] / 1000, cr.bk[1].dt[0] / 1000}, none[2] = {};
        expect_near({calc_F_0_re(cr), 0}, direct_sum(cr, {0, 0, 0}, 0, f_0, none), "F_0");
        fg_stock stock = new_stock();
        phase_table phases = new_phase_table(cr, {9, 9, 9});
        for (const hkl g : {hkl{0, 0, 0}, {1, 1, 1}, {-2, 0, 2}, {1, 2, 3}, {2, -1, 5}, {0, 0, 6}, {9, 9, -9}}) {
            const std::string what = c.lattice + std::to_string(g.h) + std::to_string(g.k) + std::to_string(g.l);
            const double sq_s = sq_abs(hkl2rhkl(g.h, g.k, g.l), lat) / 4;
            expect_near(calc_structure_factor_ph(g, sq_s, cr, f, f_abs), direct_sum(cr, g, sq_s, f, f_abs), what);
            int flag, n = stock.count;
            for (structure_factor_ext_tbl(g, cr, 100, lat, stock, flag); n < stock.count; ++n) {
                const cplx plain = std_of(crystal_fg(fg_total, stock.g[n], cr, 100, lat, nullptr, flag));
                expect_near(stock.fg[n], plain, what, cr.r_hex_axes == 1 ? 1e-4 : 1e-11);
                if (in_phase_table(phases, stock.g[n]))
                    expect_near(crystal_fg(fg_total, stock.g[n], cr, 100, lat, &phases, flag), plain, what);
            }
        }
        free_phase_table(phases);
        free_stock(stock);
        for (double beta13 : {0.0, 0.0007}) {
            cr.site[0].bf = cr.site[1].bf = 1;
            for (atom* site : {cr.site, cr.site + 1})
                std::tie(site->beta11, site->beta22, site->beta33, site->beta12, site->beta13, site->beta23) =
                    std::make_tuple(0.004, 0.004, 0.003, 0.002, beta13, -2 * beta13);
            phases = new_phase_table(cr, {5, 7, 9});
            for (const hkl g : {hkl{0, 0, 0}, {1, 1, 1}, {-2, 0, 2}, {5, -7, -3}, {2, -1, 5}, {-4, 0, 9}}) {
                int flag;
                complex Z, plain_Z = crystal_fg(fg_z, g, cr, 100, lat, nullptr, flag);
                expect_near(crystal_fg(fg_total, g, cr, 100, lat, &phases, flag),
                            std_of(crystal_fg(fg_total, g, cr, 100, lat, nullptr, flag)), c.lattice);
                expect_near(crystal_fg_ela(g, cr, 100, lat, &phases, Z),
                            std_of(crystal_fg(fg_ela, g, cr, 100, lat, nullptr, flag)), c.lattice);
                expect_near(Z, std_of(plain_Z), c.lattice);
            }
            free_phase_table(phases);
        }
    }
}

// A table whose differences are many more than a stock takes: each one computed by itself, except what
// the stock derived by symmetry from the first of its kind.
TEST(StructureFactors, PotentialsOfALongList) {
    const table_dir dir;
    crystal c(crystal_text("62\n5\n6\n7\n90\n90\n90\n", {"Ga\n.1\n.25\n.4\nANISO\n.004\n.005\n.006\n0\n.001\n0\n1\n0\n",
                                                         "O\n.11\n.23\n.37\nISO\n.8\n.6\n1\n"}));
    const lattice lat = lattice_of(c);
    for (int n : {1, 2, 130}) { // with 130 even the notes are too few
        std::vector<hkl> beams;
        for (int i = 0; i < n; ++i)
            beams.push_back({i * 7 % 40, i * i % 31, i == 129 ? 99 : -i * 11 % 23});
        complex** vg = new_matrix<complex>(to_size(n), to_size(n));
        int flag, err_flag;
        potential_matrix_csd(n, 0, beams.data(), c, 200, lat, vg, err_flag);
        EXPECT_EQ(err_flag, n == 130 ? 1 : 0) << "the last beam lies beyond the tables";
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                const complex fg = crystal_fg(fg_total, hkl_difference(beams[to_size(i)], beams[to_size(j)]), c, 200,
                                              lat, nullptr, flag);
                expect_near(vg[i][j], std_of(fg_to_vg(fg, lat)), std::to_string(i) + " " + std::to_string(j));
            }
        free_matrix(vg);
    }
}

static const std::string triclinic = "1\n3\n4\n5\n80\n95\n110\n";
static const std::string two_atoms[] = {"Ga\n.1\n.2\n.05\nISO\n0.6\n1\n0\n", "As\n.6\n.7\n.5\nISO\n0.5\n0.9\n1\n"};

// beta_ij = (B/4) a*_i.a*_j is an isotropic B.
TEST(StructureFactors, AnisotropicSites) {
    const table_dir dir;
    epsilon.general_eps = 1e-10;
    crystal c(crystal_text(triclinic, {two_atoms[0], two_atoms[1]}));
    const lattice lat = lattice_of(c);
    int flag;
    const cplx isotropic = std_of(crystal_fg(fg_total, {1, -2, 3}, c, 200, lat, nullptr, flag));
    for (int i = 0; i < 2; ++i) {
        atom& s = c.site[i];
        const double b = s.B / 4;
        s = {"", 1, s.af, s.x, s.y, s.z, 1, 9, // an old B
             b * lat.as2, b * lat.bs2, b * lat.cs2, b * lat.asbs, b * lat.ascs, b * lat.bscs, s.occupancy};
    }
    expect_near(crystal_fg(fg_total, {1, -2, 3}, c, 200, lat, nullptr, flag), isotropic, "equal tensors");
    EXPECT_NEAR(c.site[0].B, 0.6, 1e-12);
}

// Elastic and absorptive parts are each of a real function: P(-g) = E* + i A* where P(g) = E + i A.
// Every part is the sum with its own factors.
TEST(StructureFactors, PartsAndTheirSymmetry) {
    const table_dir dir;
    crystal c(crystal_text(triclinic, {two_atoms[0], two_atoms[1]}));
    const lattice lat = lattice_of(c);
    int flag;
    const auto part = [&](fg_part p, int h, int k, int l) {
        return std_of(crystal_fg(p, {h, k, l}, c, 200, lat, nullptr, flag));
    };
    const cplx i(0, 1), E = part(fg_ela, 2, 1, -1), iA = part(fg_inela, 2, 1, -1);
    EXPECT_GT(std::abs(iA), 0.01);
    EXPECT_NEAR(std::abs(part(fg_total, 2, 1, -1) - E - iA), 0, 1e-12);
    EXPECT_NEAR(std::abs(part(fg_total, -2, -1, 1) - std::conj(E) - i * std::conj(iA / i)), 0, 1e-12);

    const double sq_s = sq_abs({2, 1, -1}, lat) / 4, no[2] = {}, z[2] = {31, 33};
    double pair[2][2], f[2], f_abs[2];
    for (int s = 0; s < 2; ++s) {
        atom_bk(c.bk[s], std::sqrt(sq_s), c.site[s].B, pair[s], 200);
        f[s] = s == 0 ? atomsf_xdt(sq_s, c.xdt[s]) : pair[s][0]; // af 0 and 1
        f_abs[s] = pair[s][1];
    }
    expect_near(calc_Fg_ela({2, 1, -1}, c, 200, lat), direct_sum(c, {2, 1, -1}, sq_s, f, no), "elastic");
    expect_near(calc_Fg_inela({2, 1, -1}, c, 200, lat), direct_sum(c, {2, 1, -1}, sq_s, no, f_abs), "absorptive");
    expect_near(calc_z_factor({2, 1, -1}, c, lat), direct_sum(c, {2, 1, -1}, sq_s, z, no), "charges");
    // Beyond s = 6 the Mott factor of the first site stands alone and the flag tells.
    const double far = sq_abs({40, 0, 0}, lat) / 4, mott[2] = {atomsf_xdt(far, c.xdt[0]), 0};
    for (const int num_site : {1, 2}) {
        c.num_site = num_site;
        expect_near(calc_structure_factor({40, 0, 0}, c, 200, lat, flag), direct_sum(c, {40, 0, 0}, far, mott, no),
                    "beyond the table");
        EXPECT_EQ(flag, 1);
    }
    calc_structure_factor({1, 0, 0}, c, 200, lat, flag);
    EXPECT_EQ(flag, 0);
    c.site[1].B = 6.1; // nor does the table of absorption reach so far
    calc_structure_factor({1, 0, 0}, c, 200, lat, flag);
    EXPECT_EQ(flag, 1);
    c.site[0].af = 2; // a word of the elastic part alone
    const double bk_alone[2] = {pair[0][0], f[1]};
    EXPECT_NEAR(std::abs(part(fg_ela, 2, 1, -1) - direct_sum(c, {2, 1, -1}, sq_s, bk_alone, no)), 0, 1e-12);
    const auto total = [&] { calc_structure_factor({1, 0, 0}, c, 200, lat, flag); };
    expect_faults({{total, "$$ Invalid af. Abort.\n", ""},
                   {[&] { part(fg_inela, 1, 0, 0); }, "$$ Invalid af. Abort.\n", ""},
                   {[&] { c.site[0].af = -1, part(fg_ela, 1, 0, 0); }, "$$ Invalid af. Abort.\n", ""},
                   {[&] { c.site[0] = c.site[1], c.site[0].bf = 2, total(); }, "ERROR: Invalid atom.bf. Abort.\n", ""},
                   {[&] { alloc_csd_lofg(1, c), c.lof_type = 5, lofg_to_fg(0, c, 200, lat); },
                    "$$ Invalid lof_type. Abort.\n", ""}});
}

// The earlier value of a reflection counts. A reflection beyond the tables raises its flag until it is stocked;
// one of a full stock every time, be it noted or not.
TEST(StructureFactors, StockAndItsFlags) {
    const table_dir dir;
    crystal c(crystal_text("227\n5.43\n5.43\n5.43\n90\n90\n90\n", {"Si\n.125\n.125\n.125\nISO\n0.5\n1\n0\n"}));
    const lattice lat = lattice_of(c);
    fg_stock stock = new_stock(3);
    phase_table phases = new_phase_table(c, {3, 3, 91});
    stock.phases = &phases; // all but the first far reflection use them
    int flag = 7;
    const auto value = [&](hkl g) { return std_of(structure_factor_ext_tbl(g, c, 100, lat, stock, flag)); };
    EXPECT_EQ(value({1, 0, 0}), 0.0);
    EXPECT_EQ(flag, 0) << "forbidden";
    const cplx beyond = value({80, 0, 0});
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(value({0, -80, 0}), beyond);
    EXPECT_EQ(flag, 0);
    stock_fg_tbl_sym({1, 1, 1}, {5, 0}, stock, c);
    stock_fg_tbl_sym({1, 1, 1}, {6, 0}, stock, c);
    csd alone = c;
    alone.num_sym_op = 1; // the identity
    for (int h = 1000; stock.count < stock_max - 5; ++h)
        stock_fg_tbl_sym({h, 0, 0}, {1, 0}, stock, alone);
    for (const hkl g : {hkl{1, 3, 5}, {1, 3, 91}, {1, 1, 91}, {1, 3, 91}, {1, -1, 91}, {-1, 1, 91}, {-1, 1, 91}}) {
        int plain_flag;
        EXPECT_EQ(value(g), std_of(crystal_fg(fg_total, g, c, 100, lat, &phases, plain_flag)));
        EXPECT_EQ(flag, g.l == 91);
        EXPECT_EQ(stock.count, stock_max);
    }
    EXPECT_EQ(stock.num_notes, 3);
    EXPECT_EQ(value({1, 1, 1}), 5.0);
    EXPECT_EQ(flag, 0);
    free_phase_table(phases);
    free_stock(stock);
}

TEST(StructureFactors, LowOrderKinds) {
    const table_dir dir;
    epsilon.general_eps = 1e-10;
    const double f[] = {2, 4}, f_abs[] = {3, 5};
    const std::string factors = "2\n3\n4\n5\n";
    const struct {
        int type;
        std::string values;
        bool absorptive_on_top;
    } cases[] = {{1, "2\n3\n", false}, {2, "2\n3\n", true}, {3, factors, false}, {4, factors, true}};
    for (const auto& k : cases) {
        const std::string low = "2\n" + std::to_string(k.type) + "\n0 1 2\n" + k.values + "0 -1 -2\n" + k.values;
        crystal c(crystal_text(replaced(triclinic, "1", "2"), {two_atoms[0], two_atoms[1]}, low));
        const lattice lat = lattice_of(c);
        int flag;
        cplx wanted = k.type < 3 ? cplx(2, 3) : direct_sum(c, {0, 1, 2}, sq_abs({0, 1, 2}, lat) / 4, f, f_abs);
        if (k.absorptive_on_top)
            wanted += std_of(crystal_fg(fg_inela, {0, 1, 2}, c, 100, lat, nullptr, flag));
        fg_stock stock = new_stock_with_lofg(c, 100, lat);
        EXPECT_EQ(stock.count, 3) << "the second entry is an equivalent of the first";
        expect_near(structure_factor_ext_tbl({0, 1, 2}, c, 100, lat, stock, flag), wanted, "entry");
        expect_near(structure_factor_ext_tbl({0, -1, -2}, c, 100, lat, stock, flag), wanted, "equivalent");
        free_stock(stock);
    }
}
