// SPDX-License-Identifier: MIT
//
// Beam lists and their report: searches against a search in Cartesian vectors, their limits one by
// one, and whole runs of all methods with every line of console and file.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <valarray>

#include <gtest/gtest.h>

#include "beams/rfsearch.h"
#include "control/settings.h"
#include "job_util.h"

using namespace orvel;
using namespace orvel_test;

using indices = std::array<int, 3>;
using vec = std::valarray<double>;

static std::vector<indices> beams_of(int n, const hkl* list) {
    std::vector<indices> beams;
    for (int i = 0; i < n; ++i)
        beams.push_back({list[i].h, list[i].k, list[i].l});
    return beams;
}

namespace {
// The result of a search; room is what the lists can hold.
struct found {
    std::vector<indices> exact, bethe;
    found(crystal& c, const beam_search& bs, uvw zone, r_hkl base1, double H, double G, double kv,
          bool sphere = false) {
        std::vector<hkl> e(to_size(bs.num_g_limit)), b(to_size(bs.num_g_limit));
        const beam_setup setup = {{zone, zone, base1, H, G, kv}, bs, 0, 0, nullptr};
        found_beams lists = {1, 1, e.data(), b.data()};
        if (sphere)
            beam_search_sphere(setup, c, lists);
        else
            search_beams(setup, c, lists);
        exact = beams_of(lists.num_exact, e.data());
        bethe = beams_of(lists.num_bethe, b.data());
    }
    static std::size_t to_size(int n) { return static_cast<std::size_t>(n); }
};
} // namespace

static double dot(const vec& a, const vec& b) { return (a * b).sum(); }

// Orthorhombic 4 x 5 x 6 angstrom, zone [1 1 2] with the base vector 1 -1 0 at right angles, tilted.
// Each reflection is judged by S = (K^2 - |K + g|^2)/(2K) at both edges of the disk.
TEST(Beams, SearchesAgreeWithCartesianOnes) {
    const table_dir dir;
    epsilon.general_eps = 1e-10;
    crystal c(crystal_text("1\n4\n5\n6\n90\n90\n90\n",
                           {"Si\n0.1\n0.2\n0\nISO\n0.5\n1\n0\n", "O\n0.6\n0\n0.4\n0\n0.5\n1\n1\n"},
                           "1\n1\n0 0 0\n1e4\n0\n")); // a mean potential that K cannot miss
    const lattice lat = lattice_of(c);
    const double kv = 100, H = 0.4, G = -0.3, gamma = 1.19569507, lambda = 0.037014376587273,
                 pi_V = 120 * std::acos(-1.0);
    const double K = std::sqrt(1 / (lambda * lambda) + gamma * 1e4 / pi_V);
    const double len = std::sqrt(16.0 + 25 + 144);
    const vec z = {4 / len, 5 / len, 12 / len}, b1 = {0.25, -0.2, 0},
              b2 = {z[2] * 0.2, z[2] * 0.25, z[0] * -0.2 - z[1] * 0.25};

    beam_search bs = {};
    bs.num_g_limit = 1000;
    bs.g_max = 1.7;
    bs.lz_max = 2;
    bs.disksize = 0.6;
    bs.wgbmin = 20;
    bs.wgmax = 60;
    bs.sgbmin = 0.01;
    bs.sgmax = 0.03;
    for (int layer = 0; layer <= 2; ++layer) {
        bs.sgbmin_lz[layer] = 0.01 * (layer + 1);
        bs.sgmax_lz[layer] = 0.02 + 0.02 * layer;
        bs.xigmax_lz[layer] = layer == 1 ? 1e11 : 5000 + 1000 * layer;
    }
    for (const auto& [method, xigmax] : {std::pair<int, double>{1, 6000}, {2, 20000}, {12, 2e10}, {3, 0}, {13, 0}}) {
        bs.flag_bs = method;
        bs.xigmax = xigmax;
        std::vector<std::pair<double, indices>> wanted[2] = {{{0, {0, 0, 0}}}, {}};
        for (int h = -9; h <= 9; ++h)
            for (int k = -9; k <= 9; ++k)
                for (int l = -11; l <= 11; ++l) {
                    const vec g = {h / 4.0, k / 5.0, l / 6.0};
                    const int lz = h + k + 2 * l;
                    if (lz < 0 || lz > 2 || dot(g, g) >= 1.7 * 1.7 || (h == 0 && k == 0 && l == 0))
                        continue;
                    vec n = g - dot(g, z) * z;
                    n *= dot(n, n) > 1e-12 ? std::sqrt(dot(b1, b1) / dot(n, n)) : 0;
                    double s[2];
                    for (int edge = 0; edge < 2; ++edge) {
                        const vec K_t = 0.5 * (H * b1 + G * b2 + (edge == 0 ? 0.6 : -0.6) * n);
                        const vec scattered = K_t - std::sqrt(K * K - dot(K_t, K_t)) * z + g;
                        s[edge] = (K * K - dot(scattered, scattered)) / (2 * K);
                    }
                    const double error = s[0] * s[1] < 0 ? 0 : std::fmin(std::fabs(s[0]), std::fabs(s[1]));
                    int flag;
                    const double xi =
                        pi_V / (gamma * lambda * c_abs(crystal_fg(fg_total, {h, k, l}, c, kv, lat, nullptr, flag)));
                    const bool by_w = method == 1, layered = method % 10 == 3;
                    if (xi >= (layered ? bs.xigmax_lz[lz] : xigmax))
                        continue;
                    const double figure = by_w ? xi * error : error;
                    double limits[2] = {by_w ? 20 : 0.01, by_w ? 60 : 0.03};
                    if (layered)
                        std::tie(limits[0], limits[1]) = std::pair(bs.sgbmin_lz[lz], bs.sgmax_lz[lz]);
                    if (figure < limits[1])
                        wanted[figure < limits[0] ? 0 : 1].push_back({std::round(1e9 * dot(g, g)), {h, k, l}});
                }
        const found result(c, bs, {1, 1, 2}, {1, -1, 0}, H, G, kv);
        for (int kind = 0; kind < 2; ++kind) {
            std::sort(wanted[kind].begin(), wanted[kind].end()); // by length, then by h, k, l
            std::vector<indices> list;
            for (const auto& beam : wanted[kind])
                list.push_back(beam.second);
            EXPECT_GT(list.size(), 3u) << method;
            EXPECT_EQ(kind == 0 ? result.exact : result.bethe, list) << method << kind;
        }
    }
}

// A cubic cell of 4 angstrom along [0 0 1]: four reflections of 0.25 in the zero layer, which all
// cross a disk of radius 1.2 around the zone axis.
TEST(Beams, LimitsOneByOne) {
    const table_dir dir;
    epsilon.general_eps = 1e-10;
    const std::string empty = "Si\n0\n0\n0\nISO\n0\n0\n0\n",
                      silicon = replaced(empty, "0\n0\n0\nISO\n0\n0", "0\n0\n0\nISO\n0\n1");
    const auto cubic = [](const std::string& site) { return crystal_text("1\n4\n4\n4\n90\n90\n90\n", {site}); };
    crystal c(cubic(silicon)), no_atom(cubic(empty));
    const double above = 1.0000001e10;
    const struct {
        crystal& c;
        int method;
        std::array<double, 5> limits; // g_max, disk, exact, Bethe, extinction distance
        int lz_max;
        std::array<std::size_t, 2> counts;
    } cases[] = {
        {c, 1, {.3, 1.2, 1, 2, 1e11}, 0, {5, 0}},
        {c, 1, {.3, 1.2, 0, 2, 1e11}, 0, {1, 4}}, // limits are strict
        {c, 1, {.3, 1.2, 0, 0, 1e11}, 0, {1, 0}},
        {c, 1, {.3, 1.2, 1, 2, 100}, 0, {1, 0}},
        {c, 1, {.25, 1.2, 1, 2, 1e11}, 0, {1, 0}},
        {c, 1, {.2501, 1.2, 1, 2, 1e11}, 0, {5, 0}},
        {no_atom, 1, {.3, 1.2, 1, 2, 1e10}, 0, {1, 0}}, // F = 0 counts as a distance of 1e10
        {no_atom, 1, {.3, 1.2, 1, 2, above}, 0, {5, 0}},
        {c, 2, {.3, 1.2, 1, 2, 1e10}, 0, {1, 0}}, // by S no distance is formed from 1e10 on
        {c, 2, {.3, 1.2, 1, 2, above}, 0, {5, 0}},
        {c, 2, {.3, 1.2, 0, 2, above}, 0, {1, 4}},
        {c, 2, {.3, 1.2, 1, 2, above}, 1, {6, 0}},
        {c, 2, {.3, 0, .001, 2, above}, 0, {1, 4}}, // S = 0.0625 / 54 = 0.00116 without a disk
        {c, 2, {.3, 0, .0012, 2, above}, 0, {5, 0}},
        {c, 2, {-1, 1.2, 1, 2, above}, 0, {1, 0}},
    };
    beam_search bs = {};
    bs.num_g_limit = 7;
    for (const auto& k : cases) {
        bs.flag_bs = k.method;
        bs.g_max = k.limits[0];
        bs.disksize = k.limits[1];
        bs.wgbmin = bs.sgbmin = k.limits[2];
        bs.wgmax = bs.sgmax = k.limits[3];
        bs.xigmax = k.limits[4];
        bs.lz_max = k.lz_max;
        const found result(k.c, bs, {0, 0, 1}, {1, 0, 0}, 0, 0, 100);
        EXPECT_EQ((std::array<std::size_t, 2>{result.exact.size(), result.bethe.size()}), k.counts) << &k - cases;
    }
    // Absorption, which the voltage weakens, is a part of the distance.
    int flag;
    const lattice lat = lattice_of(c);
    const double xi = fg_to_xig2(crystal_fg(fg_total, {1, 0, 0}, c, 200, lat, nullptr, flag),
                                 relativ_corr(200), wavelength(200), lat);
    bs.flag_bs = method_wg;
    bs.disksize = 1.2;
    bs.g_max = 0.3;
    for (const auto& [part, count] : {std::pair(1 - 1e-9, 1u), {1 + 1e-9, 5u}}) {
        bs.xigmax = part * xi;
        EXPECT_EQ(found(c, bs, {0, 0, 1}, {1, 0, 0}, 0, 0, 200).exact.size(), count);
    }
    bs.num_g_limit = 8;
    bs.g_max = 0.25;
    EXPECT_EQ(found(c, bs, {0, 0, 1}, {1, 0, 0}, 0, 0, 100, true).exact.size(), 1u) << "open";
    for (double g_max : {0.3, -0.3}) { // only its square counts in a sphere
        bs.g_max = g_max;
        const found sphere(c, bs, {0, 0, 1}, {1, 0, 0}, 0, 0, 100, true);
        EXPECT_TRUE(sphere.bethe.empty());
        const std::vector<indices> nearest = {{-1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {0, 0, 1}, {0, 1, 0}, {1, 0, 0}};
        EXPECT_EQ(std::vector<indices>(sphere.exact.begin() + 1, sphere.exact.end()), nearest);
    }
    int h, k, l;
    evaluate_hklmax(1, h, k, l, lattice_of(c)); // n / 4 >= 1
    EXPECT_EQ((indices{h, k, l}), (indices{4, 4, 4}));
    evaluate_hklmax(0.99, h, k, l, bravai(3, 3, 5, 90, 90, 120)); // a* = 2/(3 sqrt 3) = 0.385
    EXPECT_EQ((indices{h, k, l}), (indices{3, 3, 5}));
    // K = 27: S = -g^2/(2K) without a disk; along the zone axis -K_z g_z/K less that; K_t = -g/2 is excited.
    double s1, s2;
    const auto error = [&](hkl g, double tilt, double disk) {
        const beam_geometry geometry = {lattice_of(c), 27, 4, 0, 0, 0, 0};
        return abs_edge_s_g_tilt(g, {{0, 0, 1}, {0, 0, 1}, {1, 0, 0}, tilt, 0, 0}, {0, 1, 0}, geometry, disk, s1, s2);
    };
    EXPECT_NEAR(error({1, 0, 0}, 0, 0), 0.0625 / 54, 1e-15);
    EXPECT_NEAR(error({0, 0, 1}, 0, 0.7), 0.25 - 0.03125 / 27, 1e-12);
    EXPECT_EQ(s1, s2);
    EXPECT_EQ(error({1, 0, 0}, -0.9, 0.2), 0.0);
    EXPECT_NEAR(error({1, 0, 0}, 0, 0.2), 0.8 * 0.0625 / 54, 1e-15) << "the nearer edge";
    EXPECT_EQ(spacing(0, 0, 0, lattice_of(c)), 0.0);
    EXPECT_DOUBLE_EQ(spacing(0, -2, 0, lattice_of(c)), 2.0);
    hkl list[] = {{2, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 0, -1}, {1, 1, 0}, {-1, 0, 0}, {0, 0, 1}};
    // Rounding decides no order, and what is equal is so to the first of them, not each to the next.
    sort_reflex(7, list, bravai(4, 4 * (1 + 1.6e-9), 4 * (1 + 8e-10), 90, 90, 90));
    EXPECT_EQ(beams_of(7, list),
              (std::vector<indices>{{0, 0, 0}, {0, 0, -1}, {0, 0, 1}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}, {2, 0, 0}}));
}

// ---- whole runs -----------------------------------------------------------------------------

static const std::string given = "4\n1\n0 0 0\n9\n0.5\n1 0 0\n3\n-4\n0 1 0\n-2\n0\n1 0 1\n0\n0.25\n";

// A cubic cell with an empty site, so that only given factors show.
static std::string cubic_cell(const std::string& site) {
    return crystal_text("1\n4\n4\n4\n90\n90\n90\n", {site}, given);
}
static const std::string empty_cell = cubic_cell("Si\n0\n0\n0\n0\n0.5\n0\n1\n");

// A run up to the report.
static outcome run_search(const std::string& search, const std::string& base1 = "1 0 0",
                          const std::string& crystal_block = empty_cell) {
    write_file("orvel.ini", "reflex_only_flag 1\nINI_PARAM_END\n");
    write_file("a.dat", "SIM_MODE\nEPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n" + crystal_block +
                            "SIM_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n" + base1 +
                            "\n0\n0\n100\n}INCIDENT_BEAM\nCALC_KXY_RANGE{\n0\n1\n1.2\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n" +
                            search);
    outcome end = run_orvel(std::filesystem::current_path(), {"a.dat"});
    const std::string title = "##### Many-beam dynamical simulation #####\n";
    end.out = end.out.substr(std::min(end.out.find(title) + title.size(), end.out.size()));
    return end;
}

static const std::string columns =
    "i\th\tk\tl\tnlz\tx\ty\tBethe\tg\tFg_re\tFg_im\tFg_abs\tFgela_re\tFgela_im\tFginela_re\tFginela_im\n";
// The report, with noughts of either sign alike: a projection's sign there is that of a rounding.
static std::string report_file() {
    std::string text = read_file("a_fg0.txt");
    for (std::size_t at; (at = text.find("-0.000000")) != std::string::npos;)
        text.erase(at, 1);
    return text;
}
static const std::string zeros = "\t0.000000\t0.000000\t0.000000\t0.000000\n";
static const std::string row_000 =
    "0\t  0\t  0\t  0\t0\t0.000000\t0.000000\t0\t0.000000\t9.000000\t0.500000\t9.013878" + zeros;

// Number, h and k of each row of the report.
static std::string places() {
    std::string text;
    for (const std::vector<double>& row : numbers(from(read_file("a_fg0.txt"), "\n0\t")))
        text += number(row.at(0)) + number(row.at(1)) + number(row.at(2)) + " ";
    return text;
}

// The base vector (1.5, 0, 0) is looked for as 100 and x is in its units; places 1 and 4 change numbers.
TEST(Report, ManualListToTheLetter) {
    const table_dir dir;
    const std::string list = "5 1\n0 0 0\n0 1 0\n0 2 0\n1 0 1 remark\n1 0 0\n1 0 0\n";
    const outcome end = run_search("0\n" + list, "1.5 0 0");
    EXPECT_EQ(end.out, "Exact = 5, Bethe = 1\n$$ vg_select_flag is set to 0.\nreflex output ==> a_fg0.txt\n$$ "
                       "reflex_only_flag=1. exit.\n");
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    const std::string f_100 = "0.250000\t3.000000\t-4.000000\t5.000000" + zeros,
                      f_010 = "0.250000\t-2.000000\t0.000000\t2.000000" + zeros;
    const std::string report =
        "# beam_search --> manual\n# [0 0 1]\n# Exact= 5  Bethe= 1\n" + columns + row_000 +
        "1\t  1\t  0\t  0\t0\t0.666667\t0.000000\t0\t" + f_100 + "4\t  0\t  1\t  0\t0\t0.000000\t0.666667\t0\t" +
        f_010 + "2\t  0\t  2\t  0\t0\t0.000000\t1.333333\t0\t0.500000\t0.000000\t0.000000\t0.000000" + zeros +
        "3\t  1\t  0\t  1\t1\t0.666667\t0.000000\t0\t0.353553\t0.000000\t0.250000\t0.250000" + zeros +
        "5\t  1\t  0\t  0\t0\t0.666667\t0.000000\t1\t" + f_100;
    EXPECT_EQ(report_file(), report);
    EXPECT_FALSE(std::filesystem::exists("a_rs0.txt"));
    EXPECT_EQ(run_search("10\n" + list, "1.5 0 0").status, 0);
    EXPECT_EQ(report_file(), report);
    // Without the base vector among the exact beams, rows have their places; 000 comes first anyway.
    // In front of 000, it gives its place to the next.
    static const char* const lists[][2] = {{"3 1\n0 1 0\n0 2 0\n0 0 0\n1 0 0\n", "000 001 102 310 "},
                                           {"3 1\n1 0 0\n0 1 0\n0 0 0\n0 2 0\n", "000 110 001 302 "}};
    for (const auto& [beams, rows] : lists) {
        EXPECT_EQ(run_search("0\n" + std::string(beams)).status, 0);
        EXPECT_EQ(places(), rows);
    }
    // Bethe beams come in their own order.
    EXPECT_EQ(run_search("1\n9 0.3 0 0\n0 0.5 2e11\n").status, 0);
    EXPECT_EQ(places(), "000 1-10 20-1 301 410 ");
}

// Atoms without a centre: both parts of a factor, which add up to it, have phases of their own.
TEST(Report, FactorsAndTheirParts) {
    const table_dir dir;
    const std::string block = crystal_text("1\n4\n5\n6\n80\n95\n110\n", {"Ga\n.1\n.2\n.05\nISO\n0.6\n1\n0\n",
                                                                         "O\n.6\n.7\n.5\nISO\n1.5\n0.9\n1\n"});
    EXPECT_EQ(run_search("0\n2 2\n0 0 0\n1 0 0\n1 -2 0\n2 1 -1\n", "1 0 0", block).status, 0);
    crystal c(block);
    const lattice lat = lattice_of(c);
    for (const std::vector<double>& row : numbers(from(report_file(), "\n0\t"))) {
        const hkl g = {static_cast<int>(row.at(1)), static_cast<int>(row[2]), static_cast<int>(row[3])};
        int flag;
        const complex fg = crystal_fg(fg_total, g, c, 100, lat, nullptr, flag),
                      ela = crystal_fg(fg_ela, g, c, 100, lat, nullptr, flag),
                      inela = crystal_fg(fg_inela, g, c, 100, lat, nullptr, flag);
        const double length = std::sqrt(sq_abs(hkl2rhkl(g.h, g.k, g.l), lat));
        const double wanted[] = {length, fg.re, fg.im, c_abs(fg), ela.re, ela.im, inela.re, inela.im};
        for (std::size_t i = 0; i < 8; ++i)
            EXPECT_NEAR(row.at(8 + i), wanted[i], 5.1e-7) << g.h << g.k << g.l << " " << i;
        EXPECT_EQ(row[7], row[0] < 2 ? 0 : 1);
    }
}

TEST(Report, EverySearchMethod) {
    const table_dir dir;
    static const struct {
        std::string block, console, head;
    } cases[] = {
        {"1\n9 0.3 0 0\n1 2 1e11\n", "wg)... Exact = 5, Bethe = 0",
         "# beam_search par.: \n wgbmin=1, wgmax=2, xigmax=1e+11, lz:0-0, gmax=0.3\n"},
        {"11.9 x\n9,0.3,0.9,-0.9,x\n0 0.5 2e11 x\n", "wg)... Exact = 1, Bethe = 4",
         "# beam_search par.: \n wgbmin=0, wgmax=0.5, xigmax=2e+11, lz:0-0, gmax=0.3\n"},
        {"2\n9 0.3 0 1\n1 2 1e11\n", "sg)... Exact = 6, Bethe = 0",
         "# beam_search par.: \n sgbmin=1, sgmax=2, xigmax=1e+11, lz:0-1, gmax=0.3\n"},
        {"12\n9 0.3\n1 2\n", "sg)... Exact = 1, Bethe = 0",
         "# beam_search par.: \n sgbmin=1, sgmax=2, xigmax=0, lz:0-0, gmax=0.3\n"},
        {"3\n9 0.3 1 2\n1 2 1e11\n0.2 0.25 1e11\n1 2 1e11\n", "sg)... Exact = 1, Bethe = 1",
         "# beam_search ---> multi sg\n"},
        {"13\n9 0.3 0 1\n1 2 5000\n1 2 1e11\n", "sg)... Exact = 4, Bethe = 0", "# beam_search ---> multi sg\n"}};
    for (const auto& c : cases) {
        const outcome end = run_search(c.block);
        EXPECT_EQ(end.out,
                  "Beam search (" + c.console + "\nreflex output ==> a_fg0.txt\n$$ reflex_only_flag=1. exit.\n");
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(read_file("a_fg0.txt").substr(0, c.head.size() + 10), c.head + "# [0 0 1]\n");
    }
    crystal c(crystal_text("1\n4\n4\n4\n90\n90\n90\n", {}));
    beam_search bs = {};
    bs.flag_bs = 7;
    const beam_setup setup = {{{0, 0, 1}, {}, {1, 0, 0}, 0, 0, 100}, bs, 0, 0, nullptr};
    EXPECT_EQ(run_child([&] { reflex_dump_csd(3, setup, c, lattice_of(c)); }).out,
              "reflex output ==> _fg3.txt\n$$ beam_search: manual\n$$ beam_search.flag_bs = 7\n");
    EXPECT_EQ(read_file("_fg3.txt"), "# [0 0 1]\n# Exact= 0  Bethe= 0\n" + columns);
}

TEST(Beams, Faults) {
    const table_dir dir;
    const auto expect = [](const outcome& end, const std::string& out, const std::string& err,
                           const std::string& what) {
        EXPECT_EQ(end.out, out) << what;
        EXPECT_EQ(end.err, err) << what;
        EXPECT_EQ(end.status, 1) << what;
    };
    for (const text_row& row : refused("beams.txt", 4))
        expect(run_search(row[0], row[3].empty() ? "1 0 0" : row[3]), row[1], row[2], row[0]);
    expect(run_search("1\n9 0.4 0 0\n1 2 3\n", "1 0 0", cubic_cell("Si\n0\n0\n0\n0\n0.5\n1\n2\n")),
           "Beam search (wg)... $$ Invalid af. Abort.\n", "", "kind of atomic factor");
    for (const lattice& lat :
         {bravai(1e6, 1, 1, 90, 90, 90), bravai(1, 1e6, 1, 90, 90, 90), bravai(1, 1, 1e6, 90, 90, 90)})
        expect_faults({{[&] { int h, k, l; evaluate_hklmax(1.5, h, k, l, lat); },
                        "$$ Invalid g_max(=1.5). Abort.\n", ""}});
    std::filesystem::create_directory("a_fg0.txt");
    EXPECT_EQ(run_search("0\n1 0\n0 0 0\n").err, "$$ Cannot open a_fg0.txt. Abort.\n");
}
