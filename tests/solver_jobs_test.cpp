// SPDX-License-Identifier: MIT
//
// Whole runs of the solver's other jobs: coherent patterns, dispersion surfaces, Bloch states, thickness
// fringes. Two beams have closed forms, the jobs must agree with SIM_MODE and with each other, and every
// text of files, console and log stands here once.
#include <algorithm>
#include <complex>
#include <map>

#include "control/settings.h"
#include "job_util.h"
#include "jobs/ov_sim.h"
#include "refine/fitfunc.h"

using namespace orvel_test;
using orvel::pi;
using cplx = std::complex<double>;
using waves = std::vector<cplx>;
using std::string;

// ---- parameter files and their runs ---------------------------------------------------------

static const string depths = "OUTPUT_THICKNESS{\n2\n700\n1500.5\n}OUTPUT_THICKNESS\n",
                    reflexes = "OUTPUT_REFLEX{\n2\n1 0 0\n0 0 0\n}OUTPUT_REFLEX\n",
                    branches = "OUTPUT_BRANCH{\n1 2\n}OUTPUT_BRANCH\n",
                    map = "CALC_RXY_RANGE{\n2 1\n0.5 0.25\n0 7\n}CALC_RXY_RANGE\n",
                    range = "CALC_T_RANGE{\n2\n700 1500.5\n}CALC_T_RANGE\n",
                    lens = "COHERENT{\n2e7\n-900\n0.4 -0.3 9\n}COHERENT\n";

// The words of a job, the blocks in its condition and behind it, the form in which it tells an invalid
// mesh kind, its hint at a misplaced CALC_KXY_RANGE, and files that it writes.
struct job {
    const char *word, *condition, *title, *potential;
    string blocks, behind;
    const char *kind, *hint, *files;
};
static const string must = "CALC_KXY_RANGE must be before BEAM_SEARCH";
static const job sim = {"SIM_MODE", "SIM", "", "", reflexes + depths, "", "", "", ""};
static const job coherent = {"SIM_COHERENT_MODE", "SIM", "Many-beam dyn. sim. of coherent CBED patterns", "Potential:",
                             reflexes + depths, lens, "(=4)x", "$$$$ Caution!!! @. $$\n", "a_dre.txt a_rs1.txt"};
static const job dispsurf = {"DISPSURF_MODE", "DISPSURF", "Calculation of dispersion surface", "Potential.",
                             branches + reflexes + depths, "", "=4", "$$$$ Caution!! @. $$\n",
                             "a_ds.txt a_amp.txt a_int.txt a_dre.txt"};
static const job bloch = {"BLOCH_MODE", "BLOCH", "Calculation of Bloch states", "Potential calc.", map + branches, "",
                          "=4", "$$$$$$$ Caution!!! @. $$$$$\n", "a_dre.txt a_kn.txt a_pp.txt a_b2.txt"};
static const job tfringe = {"TFRINGE_MODE", "TFRINGE", "Calculation of thickness fringes", "Potential.",
                            range + reflexes, "", "=4", "$$$$ Caution!!! @!\n", "a_int.txt a.plt a_re_im.txt"};
static const job* const jobs[] = {&coherent, &dispsurf, &bloch, &tfringe};

// What the jobs of one problem share. 4 x 5 x 6 angstrom, F(000) = 9.6 + 0.48 i, F(100) = F(-100) = 2.4.
struct problem {
    string crystal = crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n1\n0\n"},
                                  "3\n1\n0 0 0\n9.6\n0.48\n1 0 0\n2.4\n0\n-1 0 0\n2.4\n0\n");
    string incident = "0 0 1\n0 0 1\n1 0 0\n-0.5\n0.25\n100\n", mesh = "0\n1\n0.5\n";
    string beams = "0\n2 0\n0 0 0\n1 0 0\n";
};
static const problem pair;

static const string both = "2\n1 0 0\n0 0 0\n}"; // the lines of reflexes
using changes = std::vector<std::pair<string, string>>;

// The parameter file of a job with parts of it changed.
static string file(const job& j, const problem& p, const changes& all = {}) {
    string text = string(j.word) + "\nEPS_CONTROL_PARAMETERS{\n# SETTINGS\n}EPS_CONTROL_PARAMETERS\n" + p.crystal +
                  j.condition + "_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n" + p.incident +
                  "}INCIDENT_BEAM\nCALC_KXY_RANGE{\n" + p.mesh + "}CALC_KXY_RANGE\nBEAM_SEARCH{\n" + p.beams +
                  "}BEAM_SEARCH\n" + j.blocks + "}" + j.condition + "_CALCULATION_CONDITION\n" + j.behind;
    for (const auto& [part, by] : all)
        text = replaced(text, part, by);
    return text;
}

static void run_to_end(const job_dir& dir, const string& text) {
    const outcome end = dir.run(text);
    EXPECT_EQ(end.status, 0) << end.out << end.err;
}

// Intensities or amplitudes of a pattern, reflection by reflection, tilt by tilt.
static waves disks(const string& text, int t) {
    const job_dir dir;
    run_to_end(dir, text);
    waves values;
    for (const auto& r : numbers(from(read_file("a_rs" + std::to_string(t) + ".txt"), "# intensities")))
        if (r.size() < 3) // others are indices
            values.emplace_back(r[0], r.size() == 2 ? r[1] : 0.0);
    return values;
}

// ---- two beams ------------------------------------------------------------------------------

// Pair at 100 kV: K^2 = 1/lambda^2 + Re U(000), U = 1.19569507 F / (120 pi). The structure matrix
// (0, U; U, 2 x) with x = K S = -(1 + H) / 32 has the eigenvalues x +- sqrt(x^2 + U^2), the larger one
// first; excitation times component is U^2 in 000 and U gamma in 100, over U^2 + gamma^2.
static const double K = 27.0170930845, U = 0.00761203123284, U_im = 0.00152240624657, lambda = 0.0370143765873;
struct two_beams {
    double K_n, gamma[2];
    cplx amplitude[2][2]; // [beam][branch]
    two_beams(double H, double G) : K_n(-std::sqrt(K * K - (H * H + G * G) / 64)) {
        const double x = -(1 + H) / 32, root = std::sqrt(x * x + U * U);
        for (int j : {0, 1}) {
            gamma[j] = j == 0 ? x + root : x - root;
            amplitude[0][j] = U * U / (U * U + gamma[j] * gamma[j]);
            amplitude[1][j] = amplitude[0][j] * gamma[j] / U;
        }
    }
    cplx psi(int beam, double t) const {
        const cplx i_c(0, -pi * t / K_n);
        return amplitude[beam][0] * std::exp(i_c * cplx(gamma[0], U_im)) +
               amplitude[beam][1] * std::exp(i_c * cplx(gamma[1], U_im));
    }
};

// Console from the file's name on, and log: input is what the blocks tell, steps what follows the potentials.
static void expect_told(const job& j, const outcome& end, const string& input, const string& steps,
                        const string& logged = "") {
    const string head = "parameter_file: a.dat\n##### " + string(j.title) + " #####\n";
    EXPECT_PRED2(matches, from(end.out, "parameter_file"),
                 head + input + j.potential + (contains(input, "Exact = 1,") ? "\n" : "\n    ") + progress + "100%\n" +
                     steps + "See \"a_log.txt\".  See you again!!\n\n");
    EXPECT_TRUE(begins_with(from(read_file("a_log.txt"), "parameter_file"), head + logged + "\n")) << end.err;
    EXPECT_EQ(end.status, 0);
}
static const string listed = "Exact = 2, Bethe = 0\n$$ vg_select_flag is set to 0.\nreflex output ==> a_fg0.txt\n";

// A disk of five tilts; the phase of the probe is exp(i chi), and K_t = (H / 2, 5 G / 8).
TEST(SolverJobs, CoherentPattern) {
    const job_dir dir;
    problem disk = pair;
    disk.mesh = "2\n3\n1\n";
    run_to_end(dir, file(sim, disk));
    const string plain = read_file("a_rs1.txt");
    const outcome end = dir.run(file(coherent, disk, {{"# SETTINGS", "intensity_scaling 4"}}));
    expect_told(coherent, end, listed + "num_g = 2\nnum_thickness = 2\n",
                "$$ num_k_points = 9, num_k_points_effective = 5\nIntensity calculation\n"
                "  Estimating exec. time ....  Maybe not so long.\n    " +
                    progress +
                    "100%\n    elapsed time: @ [min] = @ [hour]\n$$Intensity output\n\n"
                    "The script for visualization ==> a_dre.txt\nUsage: drenu a_dre.txt\n");
    string coord, values[2];
    for (int k = 0; k < 9; ++k) {
        const double H = k % 3 - 1.5, G = k / 3 - 0.75, q = (H * H + G * G) / 64;
        const double inside = k % 2 == 1 || k == 4 ? 1 : 0;
        const double chi = -900 * lambda * q + 1e7 * std::pow(lambda, 3) * q * q + 2 * (0.4 * H / 2 - 0.3 * 5 * G / 8);
        coord += row({H, G, k % 3 + 0.0, std::floor(k / 3), inside});
        for (int beam : {0, 1}) {
            const cplx psi = inside * std::polar(2.0, pi * chi) * two_beams(H, G).psi(beam, 1500.5);
            values[beam] += inside != 0 ? row({psi.real(), psi.imag()}) : "0\t0\n";
        }
    }
    const std::size_t defaults = plain.find("# default gamma"), tilts = plain.find("# H, G, ih");
    EXPECT_EQ(read_file("a_rs1.txt"),
              "SIM_COHERENT_RESULT\n# a_rs1.txt\n#\nVISUAL{\n# default max and min [>0]\n10000\t0\n" +
                  plain.substr(defaults, tilts - defaults) + "# H, G, ih, ig, flag\n" + coord +
                  "}COORD\n# intensities\nRF{\n# hkl\n1\t0\t0\n" + values[1] +
                  "}RF\nRF{\n# hkl\n0\t0\t0\n" + values[0] + "}RF\n");
    EXPECT_EQ(read_file("a_dre.txt"),
              "DRENU_SCRIPT\n# script for drenu.\nSIM_COHERENT_VISUAL_MODE\n#\n# VISUAL\n"
              "# rs_file gamma_coef mag(int) cont_reverse_flag\n#\nHTML_OPEN\na_.html\n#\n"
              "SIM_COHERENT_VISUALIZE\na_rs0.txt 0.5 1 0\nSIM_COHERENT_VISUALIZE\na_rs1.txt 0.5 1 0\nHTML_CLOSE\n");
    EXPECT_EQ(dir.run(file(coherent, disk), "vg_sel_chk_flag 1\n").status, 0);
    EXPECT_TRUE(contains(read_file("a_rs1.txt"), "0\t0\t0\n0\t0\n0\t0\n0\t0\n0\t0\n0\t0\n")) << "nothing is solved";
}

// A line of tilts around the Bragg position H = -1, where the surfaces are U / |K_n| apart.
TEST(SolverJobs, DispersionSurface) {
    const job_dir dir;
    problem line = pair;
    line.mesh = "1\n3\n0.5\n";
    line.incident = replaced(pair.incident, "-0.5", "-1");
    const string told = "(calc_disp_surf_ug) vg_select_flag is set to 0.\n    " + progress +
                        "100%\n\n>> drenu a_dre.txt\n";
    const outcome end = dir.run(file(dispsurf, line));
    expect_told(dispsurf, end, listed + "num_g = 2\nnum_thickness = 2\n", "$$ num_k_points = 3\n" + told);
    string surface = "# Dispersion surface\n# kn, excitation(=eps^2)\nkxy(H)\tkxy(G)\tKz", amplitude, intensity;
    for (const string j : {"1", "2"})
        surface += "\tRe(kz" + j + ")\tIm(kz" + j + ")\tRe(gamma" + j + ")\tIm(gamma" + j + ")\tSq(eps" + j + ")";
    surface += "\n";
    const table ds = numbers(read_file("a_ds.txt"));
    for (std::size_t m = 0; m < 3; ++m) {
        const double H = -1.5 + 0.5 * static_cast<double>(m);
        const two_beams exact(H, 0.25);
        const string tilt = number(H) + "\t0.25";
        surface += tilt + "\t@";
        amplitude += tilt;
        intensity += tilt;
        EXPECT_NEAR(ds.at(m).at(2), -exact.K_n, 1e-10);
        for (std::size_t j : {0U, 1U}) {
            EXPECT_NEAR(ds[m].at(3 + 5 * j), -exact.K_n - exact.gamma[j] / (2 * exact.K_n), 1e-10);
            surface += "\t@\t" + number(-U_im / 2 / exact.K_n) + "\t" + number(exact.gamma[j]) + "\t" + number(U_im) +
                       "\t" + number(exact.amplitude[0][j].real());
        }
        surface += "\n";
        for (int beam : {1, 0}) {
            for (int j : {0, 1})
                amplitude += "\t" + number(std::abs(exact.amplitude[beam][j])) + "\t@";
            for (double t : {700.0, 1500.5})
                intensity += "\t" + number(1e4 * std::norm(exact.psi(beam, t)));
        }
        amplitude += "\n";
        intensity += "\n";
    }
    EXPECT_NEAR(ds[1][3] - ds[1][8], U / std::sqrt(K * K - (1 + 0.0625) / 64), 1e-10);
    EXPECT_PRED2(matches, read_file("a_ds.txt"), surface);
    EXPECT_PRED2(matches, read_file("a_amp.txt"),
                 "# Amplitudes of reflections Cg (multiplied by excitation)\n"
                 "# (Amplitude and Phase (rad),  g:reflection, j:branch)\n# g 0: 1 0 0\n# g 1: 0 0 0\nkxy(H)\tkxy(G)"
                 "\tA(eC)g0j1\tP(eC)g0j1\tA(eC)g0j2\tP(eC)g0j2\tA(eC)g1j1\tP(eC)g1j1\tA(eC)g1j2\tP(eC)g1j2\n" +
                     amplitude);
    EXPECT_EQ(read_file("a_int.txt"),
              "# Diffracted intensities\n# g 0: 1 0 0\n# g 1: 0 0 0\n# thickness 0: 700[A]\n# thickness 1: 1500.5[A]\n"
              "kxy(H)\tkxy(G)\tg0t0\tg0t1\tg1t0\tg1t1\n" +
                  intensity);
    const string script = "DRENU_SCRIPT\nDISPSURF_VISUAL_MODE\nHTML_OPEN\na_.html\nDISPSURF_VISUAL\n",
                 files = "a\na_ds.txt\na_amp.txt\na_int.txt\nHTML_CLOSE\n";
    EXPECT_EQ(read_file("a_dre.txt"),
              script + "1  #branch_begin\n2  #branch_end\n2  #num_rf_amp\n2  #num_thick\n" + files);

    // One branch, no reflections, no thicknesses, a disk that masks nothing here.
    line.mesh = "2\n2\n0.5\n";
    const changes least = {{"1 2\n", "2 2\n"}, {both, "0\n}"}, {"2\n700\n1500.5\n", "0\n"}};
    const outcome bare = dir.run(file(dispsurf, line, least));
    expect_told(dispsurf, bare, listed + "num_g = 0\nnum_thickness = 0\n", "$$ num_k_points = 4\n" + told);
    const string tilts = "kxy(H)\tkxy(G)\n-1.5\t-0.25\n-0.5\t-0.25\n-1.5\t0.75\n-0.5\t0.75\n";
    EXPECT_EQ(from(read_file("a_amp.txt"), "kxy"), tilts);
    EXPECT_EQ(read_file("a_int.txt"), "# Diffracted intensities\n" + tilts);
    EXPECT_TRUE(contains(read_file("a_ds.txt"), "Kz\tRe(kz2)\tIm(kz2)\tRe(gamma2)\tIm(gamma2)\tSq(eps2)\n-1.5\t"));
    EXPECT_EQ(numbers(read_file("a_ds.txt")).at(3).size(), 8U);
    EXPECT_EQ(read_file("a_dre.txt"),
              script + "2  #branch_begin\n2  #branch_end\n0  #num_rf_amp\n0  #num_thick\n" + files);
}

TEST(SolverJobs, Fringes) {
    const job_dir dir;
    expect_told(tfringe, dir.run(file(tfringe, pair)), listed + "  sd->num_thickness = 2\nnum_g = 2\n",
                "\n==> SEE a.plt\n");
    string intensity = "#thickness\t1_0_0\t0_0_0\n", amplitude = intensity;
    for (double t : {700.0, 1500.5}) {
        const cplx psi[] = {100.0 * two_beams(-0.5, 0.25).psi(1, t), 100.0 * two_beams(-0.5, 0.25).psi(0, t)};
        intensity += row({t, std::norm(psi[0]), std::norm(psi[1])});
        amplitude += row({t, psi[0].real(), psi[0].imag(), psi[1].real(), psi[1].imag()});
    }
    EXPECT_EQ(read_file("a_int.txt"), intensity);
    EXPECT_EQ(read_file("a_re_im.txt"), amplitude);
    EXPECT_EQ(read_file("a.plt"),
              "#\nset xlabel \"thickness [A]\"\nset ylabel \"Intensity\"\nset title \"Thickness fringes\"\n"
              "set term png\nset output \"a_out.png\"\nplot \"a_int.txt\" using 1:2 title \"1 0 0\" with lines ,\\\n"
              "\"a_int.txt\" using 1:3 title \"0 0 0\" with lines \n#pause -1 \n");
}

// The beam 000 alone: the plane wave exp(2 pi i K_t r), K_t = (-0.25, ...), in the mean potential.
TEST(SolverJobs, BlochStates) {
    const job_dir dir;
    problem one = pair;
    one.beams = "0\n1 0\n0 0 0\n";
    const string maps = progress + "100%.\n";
    expect_told(bloch, dir.run(file(bloch, one, {{"1 2\n", "1 1\n"}})),
                "$$disksize = 0.500000\nExact = 1, Bethe = 0\n$$ vg_select_flag is set to 0.\n"
                "reflex output ==> a_fg0.txt\nreal-space base-vector ( length = 1/|zolzbase1| )\n"
                "x1 = 1 @ @, x2 = 0 0.8 @\n",
                "Proj. potential\n    " + maps + "Branch 1\n    " + maps + "\n>> drenu a_dre.txt\n",
                " k_n ==> a_kn.txt\n Projected potential: ==> a_pp.txt\n Prob. density (branch 1): ==> a_b1.txt\n");
    EXPECT_EQ(read_file("a_kn.txt"),
              "% kn\n% branch_i\tRe_eigenvalue\tIm_eigenvalue\teps^2\n1: 0 " + number(U_im) + " 1\n");
    EXPECT_EQ(read_file("a_pp.txt"),
              "# Projected potential (formed by 1-beams)\n#nx ny\n#2 1\n#x\ty\t\tpotential.re[V]\tpotential.im[V]\n"
              "0.5\t0\t3.83021\t0.191511\n\n0.25\t0\t3.83021\t0.191511\n\n");
    EXPECT_EQ(read_file("a_b1.txt"),
              "# Bloch state: branch 1)\n# branch:1, eigen_val:0, excitation(eps^2):1\n# nx ny\n# 2 1\n"
              "#x\ty\tdensity\tangle\tre\tim\n0.5\t0\t1\t-0.785398\t0.707107\t-0.707107\n\n"
              "0.25\t0\t1\t-0.392699\t0.92388\t-0.382683\n\n");
    // A Bethe beam takes part in the potential alone, and a script names each branch: V(g) = 2.4 cos 2 pi x.
    one.beams = "0\n2 1\n0 0 0\n1 0 0\n-1 0 0\n";
    run_to_end(dir, file(bloch, one));
    EXPECT_EQ(read_file("a_pp.txt"),
              "# Projected potential (formed by 3-beams)\n#nx ny\n#2 1\n#x\ty\t\tpotential.re[V]\tpotential.im[V]\n"
              "0.5\t0\t1.91511\t0.191511\n\n0.25\t0\t3.83021\t0.191511\n\n");
    string scripted;
    for (int j : {1, 2}) {
        const string line = lines_of(read_file("a_kn.txt")).at(static_cast<std::size_t>(1 + j)), branch = number(j);
        scripted +=
            "a_b" + branch + ".txt\n" + branch + "    # branch\n" + line.substr(line.rfind(' ') + 1) + "    # eps^2\n";
    }
    EXPECT_EQ(read_file("a_dre.txt"),
              "DRENU_SCRIPT\nBLOCH_VISUAL_MODE\nHTML_OPEN\na_.html\nBLOCH_VISUAL\na\na_pp.txt\n1    # branch_begin\n"
              "2    # branch_end\n" +
                  scripted + "HTML_CLOSE\n");
    // Along [1 0 0] with (0 1 1) the base is G / G^2 = (0, 0.2, 1/6) / 0.067778 and a unit of [1 0 0] across it.
    problem turned = one;
    turned.incident = "1 0 0\n1 0 0\n0 1 1\n0\n0\n100\n";
    EXPECT_PRED2(matches, lines_of(from(dir.run(file(bloch, turned, {{"1 2\n", "1 1\n"}})).out, "x1 = ")).at(0),
                 "x1 = @ 0.590164 0.409836, x2 = @ -0.491803 0.491803");
    // Without points along x there are heads alone.
    run_to_end(dir, file(bloch, one, {{"1 2\n", "1 1\n"}, {"2 1\n0.5", "0 -3\n0.5"}}));
    EXPECT_EQ(lines_of(read_file("a_pp.txt")).size() + lines_of(read_file("a_b1.txt")).size(), 9U);
}

// ---- many beams -----------------------------------------------------------------------------

// Polar, oblique, absorbing, with the surface tilted away from the zone axis.
static const problem polar = {
    crystal_text("1\n4.1\n4.6\n5.3\n82\n97\n105\n", {"Ga\n0.1\n0.25\n0.05\nISO\n0.6\n1\n0\n",
                                                     "As\n0.63\n0.7\n0.52\nISO\n0.5\n0.9\n1\n"}),
    "0 0 1\n0 1 1\n1 0 0\n0.25\n-0.25\n100\n", "3\n2\n0.1\n", ""};

// All jobs on the same mesh: fringes are those of its first tilt, and surfaces have the list held fixed, so
// that a beam which a tilt would leave out takes part.
TEST(SolverJobs, AgreeWithSimMode) {
    static const char* const cases[][2] = {{"1\n100 1 0 1\n15 60 30000\n", "intensity_scaling 7"},
                                           {"12\n100 1 0 1\n0.008 0.03 30000\n", "bc_accuracy 0.95"},
                                           {"3\n100 1 0 1\n0.008 0.03 1e11\n0.004 0.02 1e11\n", "eigmat_func 1"}};
    for (const auto& [beams, settings] : cases) {
        problem p = polar;
        p.beams = beams;
        const changes all = {{both, "0\n}"}, {"# SETTINGS", settings}};
        changes in_focus = all, fixed = {{"# SETTINGS", settings + string("\nvg_select_flag 0")}};
        in_focus.emplace_back("{\n2e7\n-900\n0.4 -0.3 9\n", "{\n0\n0\n0\n");
        const job_dir dir;
        run_to_end(dir, file(tfringe, p, all));
        const table fringes = numbers(read_file("a_int.txt")), re_im = numbers(read_file("a_re_im.txt"));
        run_to_end(dir, file(dispsurf, p, {{"# SETTINGS", settings}}));
        const table surface = numbers(read_file("a_int.txt")), ds = numbers(read_file("a_ds.txt"));
        run_to_end(dir, file(bloch, p, {{"# SETTINGS", settings}}));
        const std::vector<string> states = lines_of(read_file("a_kn.txt"));
        for (std::size_t j : {0U, 1U}) {
            const double* group = &ds.at(0).at(5 + 5 * j);
            EXPECT_EQ(states.at(2 + j), std::to_string(j + 1) + ": " + number(group[0]) + " " + number(group[1]) + " " +
                                            number(group[2]));
        }
        for (std::size_t t : {0U, 1U}) {
            const int number_of_t = static_cast<int>(t);
            const waves I = disks(file(sim, p, all), number_of_t),
                        psi = disks(file(coherent, p, in_focus), number_of_t),
                        I_fixed = disks(file(sim, p, fixed), number_of_t);
            ASSERT_EQ(I.size(), psi.size());
            ASSERT_EQ(I.size(), 4 * (fringes.at(t).size() - 1));
            EXPECT_GT(I.size(), 20U) << "exact beams";
            for (std::size_t i = 0; i < I.size(); ++i) {
                EXPECT_NEAR(std::norm(psi[i]), I[i].real(), 1.6e-5 * I[i].real()) << "six digits each";
                if (i % 4 == 0) {
                    EXPECT_EQ(fringes[t][1 + i / 4], I[i].real());
                    EXPECT_EQ(cplx(re_im[t].at(1 + i / 2), re_im[t].at(2 + i / 2)), psi[i]);
                }
            }
            for (std::size_t i = 0; i < 8; ++i)
                EXPECT_EQ(surface.at(i % 4).at(2 + 2 * (i / 4) + t), I_fixed.at(i).real()) << i;
        }
    }
}

// The written amplitudes of all branches add up to the wave at the entrance surface, 1 in 000 and 0 elsewhere;
// with the written eigenvalues those that bc_accuracy leaves, the strongest first, give the written intensities.
TEST(SolverJobs, BranchesMakeUpTheWave) {
    problem p = polar;
    p.beams = "10\n5 2\n0 0 0\n1 0 0\n0 -1 0\n-1 1 0\n1 1 -1\n2 0 0\n0 2 0\n";
    const job_dir dir;
    const changes more = {{"1 2\n}", "1 5\n}"},
                          {both, "3\n0 0 0\n0 -1 0\n1 1 -1\n}"},
                          {"700\n", "240\n"},
                          {"# SETTINGS", "bc_accuracy 0.9"}};
    run_to_end(dir, file(dispsurf, p, more));
    const table ds = numbers(read_file("a_ds.txt")), amp = numbers(read_file("a_amp.txt")),
                intensity = numbers(read_file("a_int.txt"));
    ASSERT_EQ(ds.size(), 4U);
    for (std::size_t m = 0; m < 4; ++m) {
        std::map<double, std::size_t, std::greater<>> branch_of; // by excitation
        double total = 0;
        for (std::size_t j = 0; j < 5; ++j) {
            branch_of[ds[m].at(7 + 5 * j)] = j;
            total += ds[m][7 + 5 * j];
        }
        for (std::size_t g = 0; g < 3; ++g) {
            cplx entrance = 0, wave = 0;
            double taken = 0;
            for (const auto& [excitation, j] : branch_of) {
                const double* group = &ds[m].at(3 + 5 * j);
                const cplx eC = std::polar(amp[m].at(2 + 10 * g + 2 * j), amp[m].at(3 + 10 * g + 2 * j));
                entrance += eC;
                if (taken < 0.9 * total)
                    wave += eC * std::exp(cplx(0, pi * 240 / ds[m][2]) * cplx(group[2], group[3]));
                taken += excitation;
            }
            EXPECT_LT(std::abs(entrance - (g == 0 ? 1.0 : 0.0)), 1e-5) << m << " " << g;
            EXPECT_NEAR(intensity[m].at(2 + 2 * g), 1e4 * std::norm(wave), 0.1) << m << " " << g;
        }
    }
}

// lambda = 0.04, Cs = 1e7, defocus -500; a cell with a* = 1/2 (gamma = 30 degrees) and c* = 1/6, so that
// |K|^2 is 1/64 for (0.25 0 0) and 1/16 for (0 0 1.5). Defocus gives -500 lambda |K|^2 = -0.3125, -1.25; Cs
// 0.5e7 lambda^3 |K|^4 = 320 |K|^4 = 0.078125, 1.25; the probe at (0.21875 7 0.25) 2 K p = 0.109375, 0.75.
TEST(SolverJobs, PhasesOfTheProbe) {
    const orvel::lattice lat = orvel::bravai(4, 5, 6, 90, 90, 30);
    orvel::r_hkl tilts[] = {{0, 0, 0}, {0.25, 0, 0}, {0, 0, 1.5}};
    const double probes[][3] = {{0, 0, 0}, {0.21875, 7, 0.25}, {3, -2, 5}};
    const double chi[][3] = {{0, -0.234375, 0}, {0, -0.125, 0.75}, {0, 1.265625, 15}}; // in units of pi
    orvel::sd cond = {};
    cond.k_tilt = tilts;
    cond.num_k_points = 3;
    cond.coherent_cs = 1e7;
    cond.coherent_defocus = -500;
    orvel::complex phase[3];
    for (int p : {0, 1, 2}) {
        std::copy_n(probes[p], 3, cond.probe_pos);
        orvel::calc_initial_phase(cond, 0.04, phase, lat);
        for (int k : {0, 1, 2})
            EXPECT_LT(std::abs(cplx(phase[k].re, phase[k].im) - std::polar(1.0, pi * chi[p][k])), 1e-12) << p << k;
    }
}

// One atom at (5/16, 3/16) of a projected cell of 4 x 5 angstrom, no absorption: F(g) = F exp(-2 pi i g r). The
// base of the map is 4 angstrom long, so the cell ends at 1.25 along y. Tilt (-0.5, 0.25): K_t = (-0.25, 0.15625).
TEST(SolverJobs, BlochStatesOnTheCell) {
    const int n = 16; // intervals of the map along each side of the cell
    string low_order;
    for (int h = -2; h <= 2; ++h)
        for (int k = -2; k <= 2; ++k) {
            const cplx F = 9.6 * std::exp(cplx(-0.4 * (h * h + k * k), -2 * pi * (h * 5 + k * 3) / 16));
            low_order += number(h) + " " + number(k) + " 0\n" + number(F.real()) + "\n" + number(F.imag()) + "\n";
        }
    problem p = pair;
    p.crystal = crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n1\n0\n"}, "25\n1\n" + low_order);
    p.beams = "0\n5 0\n0 0 0\n1 0 0\n-1 0 0\n0 1 0\n0 -1 0\n";
    const job_dir dir;
    run_to_end(dir, file(bloch, p, {{"2 1\n0.5 0.25\n0 7\n", "17 17\n0 1\n0 1.25\n"}, {"1 2\n}", "1 5\n}"}}));
    const std::vector<string> states = lines_of(read_file("a_kn.txt"));
    std::vector<table> maps = {numbers(read_file("a_pp.txt"))}; // then branch by branch
    for (int j = 1; j <= 5; ++j)
        maps.push_back(numbers(read_file("a_b" + std::to_string(j) + ".txt")));
    const auto at = [&](std::size_t j, int x, int y) { return maps[j].at(static_cast<std::size_t>(x * (n + 1) + y)); };
    const auto wave = [&](std::size_t j, int x, int y) { return cplx(at(j, x, y).at(4), at(j, x, y)[5]); };
    for (int ix = 0; ix <= n; ++ix)
        for (int iy = 0; iy <= n; ++iy) {
            const double near_x = std::cos(2 * pi * (ix - 5) / n), near_y = std::cos(2 * pi * (iy - 3) / n);
            const double V = 9.6 / (0.020886563 * 120) * (1 + 2 * std::exp(-0.4) * (near_x + near_y));
            const double expected[] = {ix / 16.0, iy * 1.25 / 16, V, 0};
            for (std::size_t i = 0; i < 4; ++i)
                EXPECT_NEAR(at(0, ix, iy).at(i), expected[i], 6e-5) << ix << " " << iy;
            EXPECT_LE(at(1, ix, iy).at(2), at(1, 5, 3)[2]) << "the state of the largest eigenvalue sits on the atom";
        }
    const cplx step_a = std::polar(1.0, -0.5 * pi), step_b = std::polar(1.0, 0.3125 * pi);
    for (std::size_t i = 1; i <= 5; ++i) {
        for (int k = 0; k <= n; ++k) {
            EXPECT_LT(std::abs(wave(i, n, k) - wave(i, 0, k) * step_a), 1e-5) << i << k;
            EXPECT_LT(std::abs(wave(i, k, n) - wave(i, k, 0) * step_b), 1e-5) << i << k;
            EXPECT_NEAR(at(i, n, k)[2], at(i, 0, k)[2], 2e-5) << "periodic along a";
            EXPECT_NEAR(at(i, k, n)[2], at(i, k, 0)[2], 2e-5) << "and along b";
        }
        for (const auto& r : maps[i])
            EXPECT_LT(std::abs(std::polar(std::sqrt(r[2]), r[3]) - cplx(r[4], r[5])), 1e-5);
        // |alpha|^2 = |C_0|^2, and C_0 is the mean of the wave without the phase of the tilt.
        cplx C_0 = 0, overlap[6] = {};
        for (int ix = 0; ix < n; ++ix)
            for (int iy = 0; iy < n; ++iy) {
                C_0 += wave(i, ix, iy) * std::polar(1.0 / n / n, 2 * pi * (0.25 * ix - 0.15625 * iy) / n);
                for (std::size_t j = 1; j <= i; ++j)
                    overlap[j] += std::conj(wave(j, ix, iy)) * wave(i, ix, iy) / double(n * n);
            }
        char value[32], excitation[32];
        ASSERT_EQ(std::sscanf(states.at(i + 1).c_str(), "%*d: %31s %*s %31s", value, excitation), 2);
        EXPECT_NEAR(std::atof(excitation), std::norm(C_0), 1e-5);
        EXPECT_EQ(lines_of(read_file("a_b" + std::to_string(i) + ".txt")).at(1),
                  "# branch:" + std::to_string(i) + ", eigen_val:" + value + ", excitation(eps^2):" + excitation);
        for (std::size_t j = 1; j <= i; ++j)
            EXPECT_LT(std::abs(overlap[j] - (i == j ? 1.0 : 0.0)), 1e-5) << i << " " << j;
    }
}

// A chain of constraints, whose first value is still 0 when the crystal has been read: the surface takes its
// wave number then, here that of the vacuum, and its potentials behind the next pass.
TEST(SolverJobs, WaveNumberOfTheSurface) {
    problem chain = pair;
    chain.crystal = crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n=q CST p\n0\n",
                                                              "Si\n=1 CST q\n0\n0\nISO\n0.3\n0\n0\n"});
    const job_dir dir;
    run_to_end(dir, file(dispsurf, chain));
    const std::vector<double> tilt = numbers(read_file("a_ds.txt")).at(0);
    EXPECT_NEAR(tilt.at(2), std::sqrt(1 / (lambda * lambda) - 0.3125 / 64), 1e-9);
    EXPECT_GT(std::fabs(tilt.at(3) - tilt.at(8)), 1e-4) << "the branches feel the atom";
}

// ---- traces and ends ------------------------------------------------------------------------

// The same stages and dumps in every job; a factor beyond the tables is told to console and log.
TEST(SolverJobs, TracesAndFactorsBeyondTheTables) {
    problem far = pair;
    far.beams = "0\n2 1\n0 0 0\n1 0 0\n99 0 0\n";
    const string error = "$$ Error in Fg calc. You should check params.\n";
    for (const job* each : jobs) {
        const job& j = *each;
        const job_dir dir;
        const outcome end = dir.run(file(j, far), "process_mon_flag 1\na_mat_dump_flag 1\nb_mat_dump_flag 1\n"
                                                  "b_cond_dump_flag 1\nvg_dump_flag 1\n");
        EXPECT_TRUE(contains(end.out, "100%\n" + error + "vg_data output ==> a_vg.txt\n")) << end.out;
        EXPECT_TRUE(contains(read_file("a_log.txt"), j.title + string(" #####\n") + error));
        string stages;
        for (const string& line : lines_of(from(end.out, "$$ calc_sg_beta_g")))
            stages += begins_with(line, "$$") && !contains(line, "output") ? line.substr(2) : "";
        EXPECT_EQ(stages, " calc_sg_beta_g vg_select construct_matrixa_matrix:" +
                              string(&j == &coherent ? " GBA" : " Bethe Approx.") +
                              " invmat: Numpack inv_c_mat()bethe_matrix: eigen values and vectors: eispack_cg"
                              " upper_b_condupper_b_cond:" +
                              (&j == &bloch ? "" : " calc_intensity"));
        EXPECT_EQ(end.status, 0);
    }
}

// Faults of the incidence, all in one file and mended one by one in the order in which they are told, in
// front of the search for beams. The search itself would find no 100, which the file then asks for.
TEST(SolverJobs, Incidence) {
    problem searched = pair;
    searched.beams = "1\n99 0.3 0 0\n1e9 2e9 1e11\n";
    const string V_0 = "$$ Invalid mean inner potential(=", above = "\n9.6\n", axes = "{\n0 0 1\n0 0 1\n",
                 upward = "] does not point upward along [0 0 1]. Abort.\n",
                 sphere = " is outside the Ewald sphere. Abort.\n",
                 mesh = "{\n0\n1\n0.5\n", center = "1 0 0\n-0.5\n", kv = "\n100\n}INC";
    const struct {
        string part, by, message;
    } faults[] = {{kv, "\n-2000\n}INC", "$$ Invalid kv(=-2000). Abort.\n"}, // of a real wavelength
                  {axes, "{\n0 0 1\n0 1 -1\n", "$$ Surface normal [0 1 -1" + upward},
                  {above, "\n-1e6\n", V_0 + number(-1e6 / (120 * 0.020886563)) + "). Abort.\n"},
                  {center, "1 0 0\n-300\n", "$$ Tilt (-300, 0.25)" + sphere}};
    const auto expect = [](const string& text, const string& message) {
        const job_dir dir;
        const outcome end = dir.run(text);
        EXPECT_TRUE(ends_with(end.out, message)) << message << end.out;
        EXPECT_EQ(contains(end.out, "Beam search"), message.empty()) << end.out;
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, message.empty() ? 0 : 1) << message;
    };
    for (const job* each : jobs) {
        const job& j = *each;
        changes all;
        for (const auto& fault : faults)
            all.emplace_back(fault.part, fault.by);
        for (const auto& fault : faults) {
            expect(file(j, searched, all), fault.message);
            all.erase(all.begin());
        }
        for (const string bad : {"0", "nan", "1e+300"})
            expect(file(j, searched, {{kv, "\n" + bad + "\n}INC"}}), "$$ Invalid kv(=" + bad + "). Abort.\n");
        expect(file(j, searched, {{above, "\nnan\n"}}), V_0 + "nan). Abort.\n");
        expect(file(j, searched, {{axes, "{\n0 0 1\n0 0 0\n"}}), "$$ Surface normal [0 0 0" + upward);
        // K is reached at |(H, G)| = 8 K = 216.1. Corners of a disk are no tilts of a pattern; the jobs of one
        // tilt take the first of the mesh.
        const bool one_tilt = &j == &bloch || &j == &tfringe;
        const string corner = "$$ Tilt (-200.5, -199.75)" + sphere;
        expect(file(j, searched, {{mesh, "{\n2\n3\n200\n"}}), &j == &coherent ? "" : corner);
        expect(file(j, searched, {{mesh, "{\n3\n3\n200\n"}}), corner);
        expect(file(j, searched, {{mesh, "{\n1\n2\n150\n"}, {center, "1 0 0\n100\n"}}),
               one_tilt ? "" : "$$ Tilt (250, 0.25)" + sphere);
    }
}

// A refinement judges all data sets before the beams of the first are searched; the pixels outside a disk
// are none of its tilts. A flag_bs of 1e1 is the number 10.
TEST(SolverJobs, IncidenceOfDataSets) {
    const string set = "DATA_SET{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n-0.5\n0.25\n100\n}INCIDENT_BEAM\n"
                       "CALC_KXY_RANGE{\n2\n3\n200\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n" +
                       replaced(pair.beams, "0\n", "1e1\n") +
                       "}BEAM_SEARCH\nINTENSITY_DATA{\nint.txt\n1\n1\n}INTENSITY_DATA\n"
                       "THICKNESS_BLOCK{\nSTW_PAR{\n1\n700\n0\n0 0\n}STW_PAR\n"
                       "REFLEX_SHIFT_PAR{\n0 0 0\n0\n0\n}REFLEX_SHIFT_PAR\n}THICKNESS_BLOCK\n}DATA_SET\n";
    const string center = "1 0 0\n-0.5\n", kv = "\n100\n}INC", axes = "0 0 1\n0 0 1\n", grid = "2\n3\n200\n";
    const struct {
        string part, by, message, F_000;
    } cases[] = {
        {"", "", "", "9.6"},
        {kv, "\nnan\n}INC", "$$ Invalid kv(=nan). Abort.\n", "9.6"},
        {axes, "0 0 1\n1 0 0\n", "$$ Surface normal [1 0 0] does not point upward along [0 0 1]. Abort.\n", "9.6"},
        {center, "1 0 0\n400\n", "$$ Invalid mean inner potential(=nan). Abort.\n", "nan"},
        {center, "1 0 0\n400\n", "$$ Tilt (400, -199.75) is outside the Ewald sphere. Abort.\n", "9.6"},
        {grid, "3\n3\n200\n", "$$ Tilt (-200.5, -199.75) is outside the Ewald sphere. Abort.\n", "9.6"},
    };
    const job_dir dir;
    write_file("int.txt", "FIT_EXPDATA_RAW\nCR{\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0 0\n}CR\n"
                          "PAR{\n1\n1\n4 2\n-300 300 -300 300\n"
                          "}PAR\nTHICKNESS{\nRF{\n0 0 0\n1 1\n1 1\n\n1 1\n1 1\n\n}RF\n}THICKNESS\n");
    for (const auto& c : cases) {
        const outcome end = run_child([&] {
            orvel::read_eps_ctrl_params(text_stream("EPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n"));
            crystal xtal(replaced(pair.crystal, "9.6", c.F_000));
            orvel::fed sets[2];
            orvel::ei data[2];
            orvel::input_fit_exp_dataset(sets[0], data[0], text_stream(set));
            orvel::input_fit_exp_dataset(sets[1], data[1], text_stream(replaced(set, c.part, c.by)));
            int num_par, slots, num_csd, num_rst;
            orvel::count_num_fitpar(xtal, 2, sets, num_par, slots, num_csd, num_rst);
            double chisq;
            orvel::fit_context context = {&xtal, sets, data, 2, num_csd, "a", std::tmpfile()};
            std::printf("flag_bs %d\n", sets[0].beam_search.flag_bs);
            orvel::dynamical_calculation(nullptr, num_par, nullptr, nullptr, chisq, context);
        });
        EXPECT_TRUE(contains(end.out, "flag_bs 10\n")) << end.out;
        EXPECT_TRUE(ends_with(end.out, c.message.empty() ? "1.txt\n" : "flag_bs 10\n" + c.message)) << end.out;
        EXPECT_EQ(end.status, c.message.empty() ? 0 : 1) << c.message;
    }
}

// Everything that stops a job of its own: the end of the console, all of standard error, status 1.
TEST(SolverJobs, RefusedInput) {
    struct stop {
        const job& j;
        string part, by, out, blocked;
    };
    const string paramter = "$$ Invalid paramter: branch_begin = ", format = "$$ Data format error has been found at ";
    std::vector<stop> stops = {{dispsurf, "2 0\n0", "1 1\n0", paramter + "1, branch_end = 2. Abort.\n", ""},
                               {dispsurf, "1 2\n}", "0 2\n}", paramter + "0, branch_end = 2. Abort.\n", ""},
                               {bloch, "1 2\n}", "2 1\n}", paramter + "2, branch_end = 1\n", ""},
                               {dispsurf, "2\n700", "-1\n", "num_g = 2\n$$ Invalid num_thickness(=-1). Abort.\n", ""},
                               {tfringe, "2\n700 ", "1\n700 ", "$$ Invalid num_thickness(=1). Abort.\n", ""}};
    for (const job* each : jobs) {
        const job& j = *each;
        std::istringstream files(j.files);
        stops.push_back({j, pair.mesh, "4\n", string("$$ Invalid calc_type") + j.kind + ". Abort.\n", ""});
        for (string name; files >> name;)
            stops.push_back({j, "# SETTINGS", "", "", name});
        const std::vector<string> lines = lines_of(file(j, pair));
        const auto condition = std::find(lines.begin(), lines.end(), string(j.condition) + "_CALCULATION_CONDITION{");
        for (auto word = condition; word != lines.end(); ++word)
            if (contains(*word, "{") || contains(*word, "}"))
                stops.push_back({j, "\n" + *word + "\n", "\nx\n",
                                 format + *word + ".\n$$ Abort.\n$$ buf=x\n" +
                                     (*word == "CALC_KXY_RANGE{" ? replaced(j.hint, "@", must) : ""),
                                 ""});
        if (&j == &bloch)
            continue;
        stops.push_back({j, both, "-1\n}", "$$ Invalid num_g(=-1). Abort.\n", ""});
        stops.push_back({j, both, "2\n0 1 0\n",
                         "num_g = 2\n$$ cal_g: 0 1 0 is not found in the exact beams. Abort.\n", ""});
    }
    for (const stop& s : stops) {
        const job_dir dir;
        if (!s.blocked.empty())
            std::filesystem::create_directory(s.blocked);
        const outcome end = dir.run(file(s.j, pair, {{s.part, s.by}}));
        EXPECT_TRUE(ends_with(end.out, s.out)) << s.out << end.out;
        EXPECT_EQ(end.err, s.blocked.empty() ? "" : "$$ Cannot open " + s.blocked + ". Abort.\n") << s.j.word << s.by;
        EXPECT_EQ(end.status, 1) << s.j.word << s.by << s.blocked;
    }
}
