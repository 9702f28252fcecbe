// SPDX-License-Identifier: MIT
//
// Whole runs of the four jobs that draw densities and potentials: every line of console and files on
// maps known by hand, direct sums, one job against another, physics, and all that stops them.
#include <algorithm>
#include <cmath>
#include <complex>
#include <map>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

#include "job_util.h"
#include "jobs/e_density.h"
#include "jobs/ov_sim.h"
#include "jobs/ov_sim_maps.h"
#include "numeric/vecmat.h"

using namespace orvel;
using namespace orvel_test;
namespace fs = std::filesystem;

static const struct map_job {
    std::string word, title;
    bool volume;
} ed2 = {"E_DENSITY_PROJ_MODE", "projected electron density", false},
  pt2 = {"POTENTIAL_REIM_PROJ_MODE", "projected potential", false},
  ed3 = {"E_DENSITY_3D_UNITCELL_MODE", "3D electron density", true},
  pt3 = {"POTENTIAL_REIM_3D_UNITCELL_MODE", "3D electrostatic potential", true};

// Silicon alone in a cell of 4 x 5 x 6 angstrom with F(000) and F(100) = F(-100) given.
static const std::string given_waves = "3\n1\n0 0 0\n9.6\n0.6\n1 0 0\n2.4\n0.3\n-1 0 0\n2.4\n0.3\n";
static const std::string waves =
    crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n1\n0\n"}, given_waves);
static const std::string three_beams = "0\n2 1\n0 0 0\n1 0 0\n-1 0 0\n";

// Two sites in a cell with no symmetry.
static std::string two_sites(const std::string& gamma) {
    const std::string As = "As\n0.6\n0.71\n0.05\nANISO\n0.01\n0.008\n0.006\n0.001\n-0.002\n0.0015\n1\n0\n";
    return crystal_text("1\n4\n5\n6\n90\n90\n" + gamma + "\n", {"Ga\n0.1\n0.23\n0.4\nISO\n0.4\n0.9\n1\n", As},
                        "1\n1\n1 0 -1\n3\n-2\n");
}

// The parameter file of a job along [001]; range "" is a small one.
static std::string parameters(const map_job& j, const std::string& crystal_block, const std::string& beams,
                              std::string range = "", const std::string& settings = "") {
    const std::string d = j.volume ? "_3D" : "", area = j.volume ? "" : "AREA_PROJ_CELL{\n20\n}AREA_PROJ_CELL\n";
    if (range.empty())
        range = j.volume ? "UNITCELL_XYZ\n4 4 2" : "2 2\n0 1\n0 1";
    return j.word + "\nEPS_CONTROL_PARAMETERS{\n" + settings + "}EPS_CONTROL_PARAMETERS\n" + crystal_block +
           "E_DENSITY_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n0\n0\n100\n}INCIDENT_BEAM\n" +
           "BEAM_SEARCH" + d + "{\n" + beams + "}BEAM_SEARCH" + d + "\nCALC_RXY_RANGE" + d + "{\n" + range +
           "\n}CALC_RXY_RANGE" + d + "\n" + area + "}E_DENSITY_CALCULATION_CONDITION\n";
}

// Runs a text under the stem a; the current directory is that of the tables.
static outcome run(const std::string& text, int status = 0) {
    write_file("a.dat", text);
    const outcome end = run_orvel(".", {"a.dat"});
    EXPECT_EQ(end.status, status) << end.out << end.err;
    return end;
}

// ---- every line ------------------------------------------------------------------------------

static const std::string done = progress + "100%.\n", loop = "    " + done; // of one item, and of several

// Coefficients of the crystal of waves: V + iW in volts; X in electrons, m = 131.2625 / pi / (4 16).
static const double pi_ = std::acos(-1.0), V0 = 9.6 / (0.020886563 * 120), V1 = V0 / 4, W0 = V0 / 16, W1 = W0 / 2;
static const double X0 = 14, X1 = 14 * std::exp(-0.3 / 64) - 131.2625 / pi_ / 64 * 2.4;

// A run with three beams: the console from the file's name on, with told at its end, and the files.
static void expect_run(const map_job& j, const std::string& range, const std::string& settings, const std::string& told,
                       const std::map<std::string, std::string>& files) {
    const outcome end = run(parameters(j, waves, three_beams, range, settings));
    const std::string head =
        "parameter_file: a.dat\n##### Calculation of " + j.title + " #####\nExact = 2, Bethe = 1\n";
    const std::string report = "$$ vg_select_flag is set to 0.\nreflex output ==> a_fg0.txt\n$$disksize = 1.000000\n";
    const std::string base = "real-space base-vector ( length = 1/|zolzbase1| )\nx1 = 1 @ @, x2 = 0 0.8 @\n";
    EXPECT_PRED2(matches, from(end.out, head), head + report + base + told + "See \"a_log.txt\".  See you again!!\n\n");
    EXPECT_EQ(end.err, "");
    for (const auto& [name, text] : files)
        EXPECT_EQ(read_file(name), text) << name << " of " << j.word;
}

static std::string script(const std::string& title, const std::string& name, const std::string& zrange,
                          const std::string& plot) {
    const std::string view =
        "\nset pm3d\nset nosurface\nset view 0,0\nset size square\nset term png crop\nset output \"";
    return title + view + name + ".png\"\n#set zrange " + zrange + "\nsplot \"" + plot + " with lines\npause -1\n";
}

TEST(Maps, ProjectedFiles) {
    const table_dir dir;
    std::vector<double> many; // more points than one run of a row takes
    for (int i = 0; i < 131; ++i)
        many.push_back(i / 64.0 - 1);
    const struct {
        std::string range, counts;
        std::vector<double> x, y;
        std::string loop;
    } cases[] = {
        {"3 2\n0 0.5\n-1 7", "3  2", {0, 0.25, 0.5}, {-1, 7}, loop},
        {"2 131\n0 0.25\n-1 1.03125", "2  131", {0, 0.25}, many, loop},
        {"1 3\n0.25 9\n1 0", "1  3", {0.25}, {1, 0.5, 0}, done},
        {"2 1\n-1 1\n0.3 nan", "2  1", {-1, 1}, {0.3}, loop},
        {"2 0\n0 1\n0 1", "2  0", {0, 1}, {}, loop},
        {"0 2\n0 1\n0 1", "0  2", {}, {}, "100%.\n"},
        {"-1e99 -1.5\n0 1\n0 1", "-2147483648  -1", {}, {}, "100%.\n"},
    };
    const std::string coefficients =
        "Fourier coef. calculation....\n" + loop + "Projected potential        ==> a_pp.txt\n";
    for (const auto& c : cases) {
        const std::string by = " (formed by 3 beams)\n# nx  ny\n# " + c.counts + "\n# x\ty\t";
        std::string pp = "# Projected potential" + by + "potential.re[V])\n";
        std::string reim = "# Projected potential" + by + "pot.re[V]\tpot.im[V])\n";
        std::string ed = "# Projected electron density" + by + "potential.re[V])\n";
        for (double x : c.x) {
            const double wave = 2 * std::cos(2 * pi_ * x);
            for (double y : c.y) {
                const std::string V = number(x) + "\t" + number(y) + "\t" + number(V0 + V1 * wave);
                pp += V + "\n";
                reim += V + "\t" + number(W0 + W1 * wave) + "\n";
                ed += number(x) + "\t" + number(y) + "\t" + number((X0 + X1 * wave) / 20) + "\n";
            }
            for (std::string* table : {&pp, &reim, &ed})
                *table += "\n";
        }
        expect_run(ed2, c.range, "", coefficients + "Projected electron density ==> a_ed.txt\n" + c.loop,
                   {{"a_pp.txt", pp},
                    {"a_ed.txt", ed},
                    {"a_ed.plt", script("#", "a_ed", "[0:3]", "a_ed.txt\" using 1:2:3")},
                    {"a_pp.plt", script("#", "a_pp", "[0:20]", "a_pp.txt\" using 1:2:3")}});
        expect_run(
            pt2, c.range, "", coefficients + c.loop,
            {{"a_pp.txt", reim},
             {"a_re_pp.plt", script("#Real (elastic) potential plot", "a_re_pp", "[0:20]", "a_pp.txt\" using 1:2:3")},
             {"a_im_pp.plt",
              script("#Imaginary (inelastic) potential plot", "a_im_pp", "[-3:3]", "a_pp.txt\" using 1:2:4")}});
    }
}

static std::string vend_text(const std::string& title, double constant, double wave) {
    std::string text = title + "\n4 5 6 90 90 90\n5  3  3\n";
    for (double cosine : {1, 0, -1, 0, 1}) {
        const std::string v = number(constant + 2 * wave * cosine), line = v + "  " + v + "  " + v + "\n";
        text += line + line + line;
    }
    return text;
}

// The threshold of g counts for the density job alone; |g(100)| is exactly 0.25.
TEST(Maps, VolumeFiles) {
    const table_dir dir;
    static const struct {
        const char *settings, *told;
        int wave;
    } cases[] = {
        {"", "12.000000.\n$$ All reflections are within gmax\n", 1},
        {"e_density_gmax_val 0.25\n", "0.250000.\n$$ All reflections are within gmax\n", 1},
        {"e_density_gmax_val 0.2499999\n", "0.250000.\n$$ gmax filtered.\n", 0},
    };
    const std::string range = "UNITCELL_XYZ, and more\n4 2 2", layout = "$$ Fourier coef. transfering...\n";
    const std::string coefficients = "$$ number of reflections for FFT = 3\nPotential.\n" + loop;
    const std::string pt = "Potential.re (VEND-format):        ==> a_pt.3ed\n", fft = "Electrostatic potential...\n";
    for (const auto& c : cases) {
        const std::string filter =
            "$$ Threshold gmax = " + std::string(c.told) + layout + "Electron density...\n" + fft;
        expect_run(ed3, range, c.settings,
                   coefficients + filter + "Electron density (VEND-format): ==> a_ed.3ed\n" + pt,
                   {{"a_ed.3ed", vend_text("#Electron density [e/A^3]", X0 / 120, c.wave * X1 / 120)},
                    {"a_pt.3ed", vend_text("#Electrostatic potential [V]", V0, c.wave * V1)}});
        expect_run(pt3, range, c.settings,
                   coefficients + layout + fft + pt + "Potential.im (VEND-format):        ==> a_ptim.3ed\n",
                   {{"a_pt.3ed", vend_text("#Electrostatic potential [V]", V0, V1)},
                    {"a_ptim.3ed", vend_text("#Imaginary potential [V]", W0, W1)}});
    }
}

// ---- numbers ---------------------------------------------------------------------------------

namespace {
// A map of a cell from its file, n[] closed planes along each axis.
struct volume_map {
    table rows;
    int n[3];
    double largest = -HUGE_VAL;
    explicit volume_map(const std::string& name) : rows(numbers(read_file(name))) {
        for (int axis : {0, 1, 2})
            n[axis] = static_cast<int>(rows.at(1).at(static_cast<std::size_t>(axis)));
        EXPECT_EQ(static_cast<int>(rows.size()), 2 + n[0] * n[1]) << name;
        for (int line = 0; line < n[0] * n[1]; ++line) {
            const std::vector<double>& row = rows.at(static_cast<std::size_t>(2 + line));
            EXPECT_EQ(row, along_c(line / n[1], line % n[1])) << name << " line " << line;
            EXPECT_EQ(static_cast<int>(row.size()), n[2]);
            EXPECT_EQ(row.front(), row.back());
            largest = std::max(largest, *std::max_element(row.begin(), row.end()));
        }
    }
    const std::vector<double>& along_c(int i, int j) const {
        return rows[static_cast<std::size_t>(2 + i % (n[0] - 1) * n[1] + j % (n[1] - 1))];
    }
    double at(int i, int j, int k) const { return along_c(i, j)[static_cast<std::size_t>(k % (n[2] - 1))]; }
    double mean_along_c(int i, int j) const {
        return std::accumulate(along_c(i, j).begin() + 1, along_c(i, j).end(), 0.0) / (n[2] - 1);
    }
};
} // namespace

// Coefficients of both jobs formed anew for each reflection, and their sums point by point.
TEST(Maps, DirectSums) {
    using cplx = std::complex<double>;
    const table_dir dir;
    crystal c(two_sites("110"));
    const lattice lat = bravai(4, 5, 6, 90, 90, 110);
    const double gmax = 0.6, volts = 1 / (0.020886563 * lat.vol);
    run(parameters(ed3, two_sites("110"), three_beams, "UNITCELL_XYZ\n8 4 16", "e_density_gmax_val 0.6\n"));
    const volume_map ed("a_ed.3ed"), elastic("a_pt.3ed");
    run(parameters(pt3, two_sites("110"), three_beams, "UNITCELL_XYZ\n8 4 16", "e_density_gmax_val 0.6\n"));
    const volume_map re("a_pt.3ed"), im("a_ptim.3ed");
    for (int point = 0; point < 24; ++point) {
        const int i = point * 5 % 8, j = point * 7 % 4, l = point * 3 % 16;
        cplx X, V, W;
        for (int p = 0; p < 7 * 3 * 15; ++p) {
            const hkl g = {p / 45 - 3, p / 15 % 3 - 1, p % 15 - 7};
            const auto F = [&](fg_part part) {
                int flag;
                const complex fg = crystal_fg(part, g, c, 100, lat, nullptr, flag);
                return g.h == 1 && g.k == 0 && g.l == -1 && part != fg_z ? cplx(3, -2) : cplx(fg.re, fg.im);
            };
            const cplx wave = std::polar(1.0, 2 * pi_ * (g.h * i / 8.0 + g.k * j / 4.0 + g.l * l / 16.0));
            const double sq_g = sq_abs(hkl2rhkl(g.h, g.k, g.l), lat);
            W += F(fg_total) * wave;
            if (sq_g > gmax * gmax)
                continue;
            V += F(fg_ela) * wave;
            X += (F(fg_z) - sq_g / 4 * 131.2625 / pi_ * F(fg_ela)) * wave;
        }
        EXPECT_NEAR(ed.at(i, j, l), X.real() / lat.vol, 2e-6 * ed.largest);
        EXPECT_NEAR(elastic.at(i, j, l), V.real() * volts, 2e-6 * re.largest);
        EXPECT_NEAR(re.at(i, j, l), W.real() * volts, 2e-6 * re.largest);
        EXPECT_NEAR(im.at(i, j, l), W.imag() * volts, 2e-6 * re.largest);
    }
}

// The integral of a map along c is the map projected along c of the same reflections hk0. The
// projected points are those of the cell: the base vectors are a and 0.8 b.
TEST(Maps, ProjectionIsTheIntegral) {
    const table_dir dir;
    std::string beams = "0\n11 10\n";
    for (int h = -3; h <= 3; ++h)
        for (const char* k : {" -1 0\n", " 0 0\n", " 1 0\n"})
            beams += std::to_string(h) + k;
    const auto compare = [](const std::string& flat, std::size_t column, const std::string& volume, double length) {
        const table rows = numbers(read_file(flat));
        const volume_map map(volume);
        ASSERT_EQ(rows.size(), 32u);
        for (int p = 0; p < 32; ++p)
            EXPECT_NEAR(rows[static_cast<std::size_t>(p)].at(column), map.mean_along_c(p / 4, p % 4) * length,
                        3e-6 * map.largest * length);
    };
    for (const auto& [flat, volume] : {std::pair{ed2, ed3}, {pt2, pt3}}) {
        run(parameters(flat, two_sites("90"), beams, "8 4\n0 0.875\n0 0.9375"));
        run(parameters(volume, two_sites("90"), beams, "UNITCELL_XYZ\n8 4 8"));
        compare("a_pp.txt", 2, "a_pt.3ed", 1);
    }
    compare("a_pp.txt", 3, "a_ptim.3ed", 1);
    compare("a_ed.txt", 2, "a_ed.3ed", 6); // the area 20 times the length 6 is the volume
}

// Sums of whole runs against those point by point: last runs of all lengths, long lists with short runs.
TEST(Maps, RunsOfARow) {
    const struct {
        int n, ny, largest;
    } cases[] = {{1, 1, 5}, {1, 200, 30}, {7, 63, 30}, {5, 64, 30}, {40, 65, 30}, // below, at and above one run
                 {300, 131, 25},
                 {40, 70, 900},
                 {3000, 50, 20},
                 {9000, 19, 30}};
    std::mt19937 random(1);
    std::uniform_real_distribution<double> real(-1, 1);
    for (const auto& c : cases) {
        sd cond = {};
        cond.nx = 3;
        cond.ny = c.ny;
        cond.range_x1 = -0.37;
        cond.range_x2 = 4.5;
        cond.range_y1 = -1.3;
        cond.range_y2 = 1.9;
        cond.base_x1 = {0.3, -0.7, 0.1};
        cond.base_x2 = {0.2, 0.4, -0.9};
        std::vector<hkl> beams(to_size(c.n));
        std::vector<complex> coef[2];
        complex** columns = new_matrix<complex>(to_size(c.n), 2); // of a potential, and of twice a state
        for (hkl& g : beams) {
            const auto index = [&] { return static_cast<int>(c.largest * real(random)); };
            g = {index(), index(), index()};
            complex* row = columns[&g - beams.data()];
            row[0] = {real(random), real(random)};
            row[1] = {real(random), real(random)};
            coef[0].push_back(row[0]);
            coef[1].push_back({row[1].re / 2, row[1].im / 2});
        }
        const std::vector<double> beta(to_size(c.n), 4);
        const r_hkl K_t = {0.3, -0.2, 0.7};
        const double tolerance = 1e-12 * c.n * std::max(1, c.largest / 30);
        map_cursor at = new_map_cursor(cond, c.n, beams.data(), coef[0].data(), coef[1].data());
        int points = 0;
        testing::internal::CaptureStdout(); // progress
        while (next_row(at))
            for (; next_point(at); ++points) {
                const double x = map_coordinate(at.ix, 3, -0.37, 4.5), y = map_coordinate(at.iy, c.ny, -1.3, 1.9);
                const r_uvw r = map_point(cond, x, y);
                const complex pairs[][2] = {
                    {at.value[0], calc_projpot(r, c.n, beams.data(), columns)},
                    {at.value[1], calc_inv_fourier(r, c.n, beams.data(), coef[1].data())},
                    {c_mul(at.value[1], plane_wave(K_t, r)),
                     calc_bloch_state_func_ug(1, r, c.n, beams.data(), K_t, beta.data(), columns)}};
                for (const auto& [fast, plain] : pairs)
                    EXPECT_LT(c_abs(c_sub(fast, plain)), tolerance) << c.n << " beams, point " << at.iy;
            }
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(points, 3 * c.ny);
        free_matrix(columns);
        free_map_cursor(at);
    }
}

// ---- searches and failures -------------------------------------------------------------------

// The map has all reflections of its grid, whatever list was searched and reported.
TEST(Maps, Searches) {
    const table_dir dir;
    static const struct {
        std::string block, told, counts, head;
    } cases[] = {
        {"0\n2 1\n0 0 0\n7 0 0\n9 9 9\n", "", "2, Bethe = 1\n$$ vg_select_flag is set to 0.\n", "--> manual\n"},
        {"1\n12 0.3 5 6\n1 2 3\n", "Beam search (wg)... ", "11, Bethe = 0\n",
         "par.: \n wgbmin=1, wgmax=2, xigmax=3, lz:5-6, gmax=0.3\n"},
        {"2\n12 0.3 5 6\n0 0 0\n", "Beam search (sg)... ", "11, Bethe = 0\n",
         "par.: \n sgbmin=0, sgmax=0, xigmax=0, lz:5-6, gmax=0.3\n"},
        {"3\n12 0.3 0 1\n1 1 1e11\n0 1 1e11\n", "Beam search (sg)... ", "5, Bethe = 3\n", "---> multi sg\n"},
        {"13\n12 0.3 0 0\n1 1 1e11\n", "Beam search (sg)... ", "5, Bethe = 0\n", "---> multi sg\n"},
    };
    run(parameters(pt3, waves, three_beams));
    const std::string expected = read_file("a_ptim.3ed");
    for (const auto& c : cases) {
        const outcome end = run(parameters(pt3, waves, c.block));
        EXPECT_TRUE(contains(end.out, "#####\n" + c.told + "Exact = " + c.counts + "reflex output")) << end.out;
        EXPECT_TRUE(begins_with(read_file("a_fg0.txt"), "# beam_search " + c.head + "# [0 0 1]\n# Exact= ")) << c.block;
        EXPECT_EQ(read_file("a_ptim.3ed"), expected) << c.block;
    }
    // A disk of radius 1 excites what its centre alone (|s| = 0.0007 and more) would not.
    const outcome disk = run(parameters(ed2, waves, "2\n12 0.3 0 0\n0.0005 0.0005 1e11\n"));
    EXPECT_TRUE(contains(disk.out, "Beam search (sg)... Exact = 5, Bethe = 0\n")) << disk.out;
}

// Beyond the scattering tables the potential jobs warn, if it is the last structure factor that is
// computed; the density jobs have no absorption and no warning.
TEST(Maps, BeyondTheTables) {
    const table_dir dir;
    const std::string warning = "100%.\n$$ Error in Fg calc. You should check params. (flag=1)\n";
    EXPECT_TRUE(contains(run(parameters(pt2, waves, "0\n2 0\n60 0 0\n0 0 0\n")).out, warning));
    EXPECT_FALSE(contains(run(parameters(pt2, waves, "0\n2 0\n60 0 0\n2 0 0\n")).out, "$$ Error"));
    EXPECT_FALSE(contains(run(parameters(ed2, waves, "0\n2 0\n60 0 0\n0 0 0\n")).out, "$$ Error"));
}

static void expect_abort(const std::string& text, const std::string& out, const std::string& err) {
    const outcome end = run(text, 1);
    EXPECT_TRUE(ends_with(end.out, out)) << out << end.out;
    EXPECT_EQ(end.err, err);
}

TEST(Maps, Failures) {
    const table_dir dir;
    for (const text_row& row : refused("maps.txt", 5)) {
        const map_job& j = row[0] == ed2.word ? ed2 : row[0] == pt2.word ? pt2
                                                  : row[0] == ed3.word   ? ed3
                                                                         : pt3;
        ASSERT_EQ(j.word, row[0]);
        expect_abort(replaced(parameters(j, waves, three_beams), row[1], row[2]), row[3], row[4]);
    }
    for (const map_job& j : {ed2, pt3}) {
        const std::string text = parameters(j, waves, three_beams);
        for (const std::string& word : lines_of(text.substr(text.find("E_DENSITY_CALC"))))
            if (word.find_first_of("{}") != std::string::npos)
                expect_abort(replaced(text, word, "{" + word), "at " + word + ".\n$$ Abort.\n$$ buf={" + word + "\n",
                             "");
    }
    for (const char* name : {"a_pp.txt", "a_ed.txt", "a_ed.3ed", "a_pt.3ed", "a_ptim.3ed"})
        EXPECT_FALSE(fs::exists(name)) << "of a run that failed before its maps";
}
