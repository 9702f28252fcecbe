// SPDX-License-Identifier: MIT
//
// The refinement kernel: first-order perturbation against full solutions, and a cycle's normal equations
// against sums formed by hand from differences of its own patterns.
#include <cmath>
#include <cstring>
#include <regex>

#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"
#include "refine_util.h"
#include "solver/ovfunc_potential.h"
#include "solver/ovfunc_tilt.h"
#include "solver/perturb.h"

using namespace orvel;
using namespace orvel_test;
using std::string;

static scratch room;

namespace {

// ---- perturbation ---------------------------------------------------------------------------

// Two atoms without symmetry, so that every value changes the potential; v names the value that moves.
const string cell = "1\n4.1\n5.2\n6.3\n85\n95\n100\n", other_atom = "Ge\n0\n0\n0\nISO\n0.5\n1\n0\n";
const string aniso = "Si\n0.3\n0.11\n0.23\nANISO\n0.012 ADJ v\n0.01\n0.008\n0.001\n0.002\n0.0005\n1\n0\n";
static string iso(const string& x, const string& B, const string& occ) {
    return "Si\n" + x + "\n0.11\n0.23\nISO\n" + B + "\n" + occ + "\n0\n";
}

// Intensities of one tilt of four exact and one Bethe beam with table vg, and by perturbation with pvg.
static void solve(int flag_bs, const csd& cr, complex** vg, complex*** pvg, std::vector<double>& full,
                  std::vector<double>& perturbed) {
    hkl beams[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}};
    const int out[4] = {0, 1, 2, 4}; // the last is a Bethe beam and stays dark
    const double thickness[2] = {150, 420};
    const uvw zone = {0, 0, 1};
    beam_setup setup = {{zone, zone, {1, 0, 0}, 0, 0, 100}, {}, 4, 1, beams};
    setup.beam_search.flag_bs = flag_bs;
    const beam_geometry geometry = pre_calc_intensity(setup, 27.0, lattice_of(cr));
    const tilt_problem problem = {setup, geometry, vg, 4, out, 2, thickness, pvg != nullptr ? 1 : 0, pvg};
    work_cal_int work;
    alloc_work_cal_int(5, 4, problem.num_perturb, work);
    double** I = new_matrix<double>(4, 2);
    double*** pI = new_tensor<double>(1, 4, 2);
    calc_intensity_with_perturb_ug(problem, {-0.4, 0.1, 0}, I, pI, work);
    full.assign(I[0], I[0] + 8);
    perturbed.assign(pI[0][0], pI[0][0] + 8);
    free_work_cal_int(work);
    free_matrix(I);
    free_tensor(pI);
}

static void make_table(csd& cr, complex** vg) {
    const hkl beams[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}};
    int flag;
    console_of([&] { potential_matrix_csd(4, 1, beams, cr, 100, lattice_of(cr), vg, flag); });
}

// Largest difference between first order and full solution with the value v raised by a step.
static double first_order_error(int flag_bs, const string& block, double step) {
    crystal cr(block), raised(block);
    complex*** pvg = new_tensor<complex>(1, 5, 5);
    complex** vg = new_matrix<complex>(5, 5);
    fit_value_list list = list_csd_values(raised);
    for (int i = 0; i < list.count; ++i)
        if (string(list.at[i].descriptor->id) == "v")
            *list.at[i].value += step;
    std::free(list.at);
    make_table(cr, vg);
    make_table(raised, pvg[0]);
    std::vector<double> base, first_order, full, unused;
    solve(flag_bs, cr, vg, pvg, base, first_order);
    solve(flag_bs, cr, pvg[0], nullptr, full, unused);
    double error = 0, change = 0;
    for (size_t i = 0; i < full.size(); ++i) {
        error = std::max(error, std::fabs(full[i] - first_order[i]));
        change = std::max(change, std::fabs(full[i] - base[i]));
    }
    EXPECT_LE(error, 0.3 * change + 1e-13) << block;
    EXPECT_EQ(first_order[6] + first_order[7] + full[6] + full[7], 0);
    free_matrix(vg);
    free_tensor(pvg);
    return error;
}

TEST(Perturbation, ErrorFallsWithTheSquareOfTheStep) {
    const table_dir dir;
    const auto low = [](const string& lines) {
        return crystal_text(cell, {other_atom, iso("0.3", "0.4", "1")}, lines);
    };
    const struct {
        string block;
        double step;
    } cases[] = {
        {crystal_text(cell, {other_atom, iso("0.3 ADJ v", "0.4", "1")}), 0.004},
        {crystal_text(cell, {other_atom, iso("0.3", "0.4 ADJ v", "1")}), 0.1},
        {crystal_text(cell, {other_atom, iso("0.3", "0.4", "1 ADJ v")}), 0.04},
        {crystal_text(cell, {other_atom, aniso}), 0.004},
        {low("1\n1\n1 0 0\n2.5 ADJ v\n0.3\n"), 0.1},
        {low("1\n2\n1 0 0\n2.5 ADJ v\n0.3\n"), 0.1},
        {low("1\n3\n1 0 0\n2.5\n0.1\n1.7 ADJ v\n0.1\n"), 0.1},
        {low("1\n4\n1 0 0\n2.5\n0.1\n1.7\n0.1 ADJ v\n"), 0.1},
    };
    for (const auto& c : cases) {
        for (int flag_bs : {0, 10}) {
            const double half = first_order_error(flag_bs, c.block, c.step / 2);
            EXPECT_NEAR(first_order_error(flag_bs, c.block, c.step) / half, 4, 0.6) << c.block;
        }
    }
    EXPECT_LT(first_order_error(0, cases[0].block, 0), 1e-13);

    dbg.process_mon_flag = dbg.a_mat_dump_flag = dbg.b_mat_dump_flag = dbg.b_cond_dump_flag = 1;
    dbg.eigval_dump_flag = dbg.eigvec_dump_flag = 1;
    const string shown = run_child([&] { first_order_error(0, cases[0].block, 0); }).out;
    string words;
    for (const string& line : lines_of(from(shown, "$$ eigen_vec_inv")))
        words += begins_with(line, "$$") ? line + "\n" : "";
    EXPECT_TRUE(begins_with(words, reference("trace.txt"))) << words;
}

TEST(Perturbation, DegeneratePairSplitsAsTheBlockSays) {
    // diag(5, 5, 2) + e [[0,1,1],[1,0,1],[1,1,0]]: to second order 5 + e + 2 e^2/3, 5 - e, 2 - 2 e^2/3.
    const double e = 0.01;
    complex **A = new_matrix<complex>(3, 3), **D = new_matrix<complex>(3, 3), **B = new_matrix<complex>(3, 3);
    complex **C = new_matrix<complex>(3, 3), **inverse = new_matrix<complex>(3, 3), **p_vec = new_matrix<complex>(3, 3);
    complex val[3], p_val[3], first[3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            A[i][j].re = i == j ? (i < 2 ? 5 : 2) : 0;
            D[i][j].re = i == j ? 0 : e;
            B[i][j].re = A[i][j].re + D[i][j].re;
        }
    eigmat(3, A, val, C, room);
    for (int i = 0; i < 3; ++i)
        std::memcpy(inverse[i], C[i], 3 * sizeof(complex));
    invmat(3, inverse, room);
    perturb(val, C, 3, D, epsilon.degeneracy_eps, p_val, p_vec, room);
    // The block gives 5 +- e; the second-order sums run over the unmixed pair, e^2/3 for each.
    EXPECT_NEAR(p_val[0].re, 5 + e + e * e / 3, 1e-12);
    EXPECT_NEAR(p_val[1].re, 5 - e + e * e / 3, 1e-12);
    EXPECT_NEAR(p_val[2].re, 2 - 2 * e * e / 3, 1e-12);
    eigen_val_perturbation(val, C, inverse, 3, A, B, first, room);
    perturbation2(val, C, inverse, 3, A, B, epsilon.degeneracy_eps, p_val, p_vec, room);
    for (int j = 0; j < 3; ++j) {
        EXPECT_NEAR(first[j].re, val[j].re, 1e-12); // no diagonal change
        EXPECT_NEAR(p_val[j].re, first[j].re, 1e-12);
    }
    EXPECT_EQ(p_vec[1][0].re * p_vec[0][1].re, 0);          // the pair does not mix
    EXPECT_NEAR(p_vec[2][0].re, e / 3 * C[0][0].re, 1e-12); // the third level does
    for (complex** m : {A, D, B, C, inverse, p_vec})
        free_matrix(m);
}

TEST(Perturbation, ComplexLevelsOfEqualRealPartDoNotMix) {
    // Levels 5, 5 + 0.1 i, 2 on the axes, so that the difference is its own matrix in their base.
    const double e = 0.01;
    const complex val[3] = {{5, 0}, {5, 0.1}, {2, 0}};
    complex **C = new_matrix<complex>(3, 3), **D = new_matrix<complex>(3, 3), **A = new_matrix<complex>(3, 3);
    complex **p_vec = new_matrix<complex>(3, 3), p_val[3], first[3];
    for (int i = 0; i < 3; ++i)
        C[i][i].re = 1;
    D[0][1] = {e, 0};
    D[0][2] = {e, e};
    D[1][1] = {0, 2 * e};
    D[2][0] = {2 * e, 0};
    eigen_val_perturbation(val, C, C, 3, A, D, first, room);
    EXPECT_EQ(first[1].im, 0.1 + 2 * e);
    eigen_val_perturbation(val, C, D, 3, A, D, first, room); // any matrix in place of the inverse: element 02 times 20
    EXPECT_NEAR(first[0].im, 2 * e * e, 1e-18);
    EXPECT_NEAR(first[2].im, 2 * e * e, 1e-18);
    perturb(val, C, 3, D, 1e-8, p_val, p_vec, room);
    // |e + i e|^2 / 3; the pair's own element counts in the block alone.
    EXPECT_NEAR(p_val[0].re, 5 + 2 * e * e / 3, 1e-14);
    EXPECT_NEAR(p_val[1].im, 0.1 + 2 * e, 1e-14);
    EXPECT_NEAR(p_val[2].re, 2 - 4 * e * e / 3, 1e-14);
    for (int call = 0; call < 2; ++call) {
        EXPECT_EQ(p_vec[0][1].im, 0); // the element over 0.1 i would be imaginary
        EXPECT_NEAR(p_vec[0][2].im, -e / 3, 1e-15);
        EXPECT_NEAR(p_vec[2][0].re, 2 * e / 3, 1e-15);
        perturbation2(val, C, C, 3, A, D, 1e-8, p_val, p_vec, room);
    }
    EXPECT_EQ(p_val[1].im, 0.1 + 2 * e);
    for (complex** m : {C, D, A, p_vec})
        free_matrix(m);
}

// Two pairs: beyond its own block each level feels both of the other pair, e^2/3 for each.
TEST(Perturbation, TwoPairs) {
    const double e = 0.01;
    const complex val[4] = {{5, 0}, {5, 0}, {2, 0}, {2, 0}};
    complex **C = new_matrix<complex>(4, 4), **D = new_matrix<complex>(4, 4), **p_vec = new_matrix<complex>(4, 4);
    complex p_val[4];
    for (int i = 0; i < 16; ++i)
        (i % 5 == 0 ? C : D)[i / 4][i % 4].re = i % 5 == 0 ? 1 : e;
    perturb(val, C, 4, D, 1e-8, p_val, p_vec, room);
    for (int j = 0; j < 4; ++j)
        EXPECT_NEAR(p_val[j].re, val[j].re + (j % 2 == 0 ? e : -e) + (j < 2 ? 2 : -2) * e * e / 3, 1e-12) << j;
    for (complex** m : {C, D, p_vec})
        free_matrix(m);
}

// ---- the cycle ------------------------------------------------------------------------------

typedef std::vector<std::vector<double>> jacobian;

// Columns of the named parameters by central differences of the pattern, zeros for all others.
static jacobian differences(fit& f, const string& names) {
    jacobian J(f.par.size(), std::vector<double>(f.pattern().size()));
    for (size_t j = 0; j < J.size(); ++j) {
        if (!contains(names, string(" ") + search_csd_fed(int(j), f.cr, f.num_fed, f.sets).id + " "))
            continue;
        const double centre = f.par[j], h = 1e-4 * centre;
        f.par[j] = centre + h;
        f.cycle();
        J[j] = f.pattern();
        f.par[j] = centre - h;
        f.cycle();
        const std::vector<double> below = f.pattern();
        for (size_t i = 0; i < below.size(); ++i)
            J[j][i] = (J[j][i] - below[i]) / (2 * h);
        f.par[j] = centre;
    }
    return J;
}

// A restraint: parameter, width, and the number of data sets in which it counts.
struct prior {
    size_t j;
    double width, times;
};

// The last cycle's normal equations and chi-square against sums over columns and restraints.
static void expect_sums(fit& f, const jacobian& J, const std::vector<prior>& priors) {
    const std::vector<double> w = f.weights(), d = f.residuals();
    std::vector<double> stiffness(J.size()), pull(J.size());
    double chisq = 0;
    for (size_t i = 0; i < w.size(); ++i)
        chisq += w[i] * d[i] * d[i];
    for (const prior& p : priors) {
        const double off = search_csd_fed(int(p.j), f.cr, f.num_fed, f.sets).ini_val - f.par[p.j];
        stiffness[p.j] = epsilon.scale_rst_chisq * p.times / (p.width * p.width);
        pull[p.j] = stiffness[p.j] * off;
        chisq += stiffness[p.j] * off * off;
    }
    EXPECT_NEAR(f.chisq, chisq, 1e-9 * chisq);
    for (size_t j = 0; j < J.size(); ++j) {
        double beta = pull[j], scale = 0;
        for (size_t i = 0; i < w.size(); ++i) {
            beta += w[i] * d[i] * J[j][i];
            scale += w[i] * std::fabs(d[i] * J[j][i]);
        }
        EXPECT_NEAR(f.beta[j], beta, 2e-3 * scale) << j;
        for (size_t k = 0; k < J.size(); ++k) {
            double alpha = j == k ? stiffness[j] : 0, size = 0;
            for (size_t i = 0; i < w.size(); ++i) {
                alpha += w[i] * J[j][i] * J[k][i];
                size += w[i] * std::fabs(J[j][i] * J[k][i]);
            }
            EXPECT_NEAR(f.alpha[j][k], k > j ? 77 : alpha, 2e-3 * size) << j << " " << k;
        }
    }
}

// Slope in pixels at place i of n values in steps of s, from the cubic inside and lines at the ends.
static double slope(const double* f, int i, int s, int n) {
    if (i == 0 || i >= n - 2)
        return i == 0 ? f[s] - f[0] : f[(n - 1) * s] - f[(n - 2) * s];
    return (-2 * f[(i - 1) * s] - 3 * f[i * s] + 6 * f[(i + 1) * s] - f[(i + 2) * s]) / 6;
}

// Values off those of the file, so that restraints speak and constraints have to follow.
static const changes moves = {{"4.1  ADJ", "4.15  ADJ"},
                              {"0.5  RST", "0.49  RST"},
                              {"0.3  ADJ", "0.31  ADJ"},
                              {"0.8  ADJ", "0.78  ADJ"},
                              {"0.6  ADJ", "0.65  ADJ"},
                              {"250  ADJ", "251  ADJ"},
                              {"420  RST", "421  RST"},
                              {"0.7  RST", "0.68  RST"},
                              {"0.02  RST", "0.022  RST"},
                              {"-0.03  RST", "-0.033  RST"}};

TEST(Cycle, NormalEquationsAreSumsOverDifferencesOfItsOwnPatterns) {
    const fit_files dir;
    fit f(dir.text), fresh(with(dir.text, moves));
    f.par = fresh.par;
    f.cycle();
    fresh.cycle();
    EXPECT_EQ(f.pattern(), fresh.pattern());
    // Measured planes are sampled where the shifts say.
    const double level[2] = {900, 1100}, h_min[2] = {0.1 - 0.5, 0.25 - 0.5}, g_min[2] = {-0.05 - 0.45, -0.6 - 0.45};
    size_t place = 0;
    const std::vector<double> measured = f.row([&](const fed& s, const ei& e, int r, int t, int p) {
        const int i = &s == f.sets ? 0 : 1;
        const double ih = (e.pixel[p].h - s.H_shift[r][t] - h_min[i]) / 0.125;
        const double ig = (e.pixel[p].g - s.G_shift[r][t] - g_min[i]) / 0.1125;
        return e.pixel[p].flag == 0 ? 0 : level[i] + 200 * t - 400 * r + 40 * ih - 25 * ig;
    });
    for (double obs : f.row([](const fed&, const ei&e, int r, int t, int p) { return e.obs[r][t][p]; }))
        EXPECT_NEAR(obs, measured[place++], 1e-9);
    EXPECT_TRUE(contains(read_file("a_res1.txt"), "\n4.15  5.26  6.3  85  95  100\n"));

    // Columns of the values of data sets do not follow constraints.
    f.sets[0].scale_fitpar[1].idx = f.sets[1].thickness_fitpar[1].idx = kind_fix;
    epsilon.scale_rst_chisq = 3;
    for (double accuracy : {1.0, 0.9}) {
        epsilon.bc_accuracy = accuracy;
        epsilon.num_thickwidth = accuracy < 1 ? 1 : 0;
        f.sets[0].thickness_width[1] = 9;
        jacobian J = differences(f, " Bg xs b11 b23 b13 fe q s0 t0 t1 s2 t2 s3 ");
        f.cycle();
        const std::vector<double> cal = f.pattern();
        for (size_t i = 0; i < cal.size(); ++i)
            J[0][i] = 5 * J[7][i]; // q has no reflection: both move zg alone, and derivatives hold the cell
        // The second data set begins at 4 49; its pitch is 0.12. g6 is of its second thickness, h7 of both.
        const size_t g6 = 4 * 49 + 36, h7 = g6 + 2 * 36;
        for (int i = 0; i < 36; ++i) {
            J[14][g6 + size_t(i)] = slope(&cal[g6] + i % 6, i / 6, 6, 6) / 0.12;
            J[15][h7 + size_t(i)] = slope(&cal[h7] + i - i % 6, i % 6, 1, 6) / 0.12;
        }
        expect_sums(f, J, {{1, 0.004, 2}, {10, 0.3, 1}, {13, 0.01, 1}, {14, 0.002, 1}, {15, 0.001, 1}});
    }
    fit none(std::regex_replace(dir.text, std::regex("  (ADJ|RST)  "), "  FIX  ")), all(dir.text);
    epsilon.scale_rst_chisq = 1;
    none.cycle();
    all.cycle();
    EXPECT_EQ(none.num_par, 0);
    EXPECT_EQ(none.pattern(), all.pattern());
    EXPECT_EQ(none.chisq, all.chisq);
}

TEST(Cycle, PatternIsTheMeanOverThicknesses) {
    const fit_files dir;
    fit f(dir.text);
    const double c = std::exp(-9.0 / 8), e = std::exp(-9.0 / 2), sum = 1 + 2 * c + 2 * e; // sigma 2/3 of a step
    const std::vector<std::vector<double>> weights = {
        {0.2, 0.2, 0.2, 0.2, 0.2}, {0, 0.25, 0.5, 0.25, 0}, {e / sum, c / sum, 1 / sum, c / sum, e / sum}};
    for (int type = 0; type < 3; ++type) {
        std::vector<double> mean(f.pattern().size());
        for (size_t i = 0; i < 5; ++i) {
            f.par[12] = 250 + 4 * (double(i) - 2);
            f.cycle();
            for (size_t p = 0; p < mean.size(); ++p)
                mean[p] += weights[size_t(type)][i] * f.pattern()[p];
        }
        f.par[12] = 250;
        f.sets[1].thickness_width[0] = 8;
        epsilon.num_thickwidth = 2;
        epsilon.thickwidth_type = type;
        EXPECT_EQ(contains(f.cycle(), "$$ num_thickwidth = 2\n"), type == 1);
        for (size_t p = 0; p < mean.size(); ++p)
            EXPECT_NEAR(f.pattern()[p], mean[p], 1e-10 * mean[p]) << type;
        f.sets[1].thickness_width[0] = epsilon.num_thickwidth = 0;
    }
}

TEST(Cycle, BeamsAreSearchedAtTheTiltOfTheSetAndTheConsoleTellsAll) {
    const fit_files dir;
    fit f(dir.text);
    const outcome shown = run_child([&] { f.loud_cycle(); f.loud_cycle(); });
    const string later = shown.out.substr(shown.out.rfind("reflex output ==> a_fg0.txt"));
    EXPECT_TRUE(matches(later, reference("cycle.txt"))) << later;

    hkl exact[60], bethe[60];
    fed& set = f.sets[1];
    const uvw zone = {0, 1, 1};
    found_beams found = {0, 0, exact, bethe};
    search_beams({{zone, zone, {1, 0.5, -0.5}, 0.25, -0.6, 200}, set.beam_search, 0, 0, nullptr}, f.cr, found);
    const int n = found.num_exact, m = found.num_bethe;
    string list = "10\n" + std::to_string(n) + " " + std::to_string(m) + "\n";
    for (int i = 0; i < n + m; ++i) {
        const hkl g = i < n ? exact[i] : bethe[i - n];
        list += std::to_string(g.h) + " " + std::to_string(g.k) + " " + std::to_string(g.l) + "\n";
    }
    EXPECT_GT(n, 3);
    EXPECT_GT(m, 2);
    const size_t at = dir.text.find("13  #search"), end = dir.text.find("}BEAM_SEARCH", at);
    fit manual(dir.text.substr(0, at) + list + dir.text.substr(end));
    f.cycle();
    manual.cycle();
    EXPECT_EQ(f.chisq, manual.chisq);
    EXPECT_EQ(f.beta, manual.beta);
    EXPECT_EQ(set.reflex_sel, nullptr);
    EXPECT_NEAR(set.g_len[1], std::sqrt(sq_abs({0, 1, -1}, lattice_of(f.cr))), 1e-15);
    EXPECT_EQ(f.data[0].sig[0][0][0], -1); // outside the disk
}

// Bg stands at the end of the absorptive tables, and its step leaves them; then itself beyond them.
TEST(Cycle, TellsOfPotentialsOutsideTheTablesAndDumpsThem) {
    const fit_files dir;
    fit f(dir.text);
    const auto told = [&](double B) {
        f.par[1] = B;
        const string shown = f.cycle();
        return std::pair(contains(shown, "$$ Error in Fg. You should check params.\n"),
                         contains(shown, "$$ Error in Fg calc.  Please check parameters.\n"));
    };
    EXPECT_EQ(told(0.5), std::pair(false, false));
    EXPECT_FALSE(std::filesystem::exists("a_vg.txt"));
    EXPECT_EQ(told(3), std::pair(false, true));
    dbg.vg_dump_flag = 1;
    EXPECT_EQ(told(3.1), std::pair(true, true));
    EXPECT_TRUE(begins_with(read_file("a_vg.txt"), "Vg: [Volt]\n"));
}

} // namespace
