// SPDX-License-Identifier: MIT
//
// The refinement kernel: first-order perturbation against full solutions, and a cycle's normal equations
// against sums formed by hand from differences of its own patterns.
#include <climits>
#include <cmath>
#include <cstring>

#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"
#include "refine_util.h"
#include "solver/perturb.h"

using namespace orvel;
using namespace orvel_test;

static scratch room;
using std::string;

namespace {

// ---- perturbation ---------------------------------------------------------------------------

// Intensities of one tilt of four exact and one Bethe beam with table vg, and by perturbation with pvg.
static void solve(int flag_bs, const csd& cr, complex** vg, complex*** pvg, std::vector<double>& full, std::vector<double>& perturbed) {
    const hkl beams[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}};
    const int out[4] = {0, 1, 2, 4}; // the last is a Bethe beam and stays dark
    const double thickness[2] = {150, 420};
    const lattice lat = lattice_of(cr);
    const uvw zone = {0, 0, 1};
    beam_search bs = {};
    bs.flag_bs = flag_bs;
    double zone_len, normal_len, cos_zn, lambda, energy;
    pre_calc_intensity(100, zone, zone, lat, zone_len, normal_len, cos_zn, lambda, energy);
    work_cal_int work;
    alloc_work_cal_int(5, 4, pvg != nullptr ? 1 : 0, work);
    double** I = new_matrix<double>(4, 2);
    double*** pI = new_tensor<double>(1, 4, 2);
    calc_intensity_with_perturb_ug({-0.4, 0.1, 0}, 27.0, bs, 4, 1, beams, vg, pvg != nullptr ? 1 : 0, pvg, 4, out, 2, thickness,
                                   100, zone, zone, lat, zone_len, normal_len, cos_zn, I, pI, work);
    full.assign(I[0], I[0] + 8);
    perturbed.assign(pI[0][0], pI[0][0] + 8);
    free_work_cal_int(work);
    free_matrix(I);
    free_tensor(pI);
}

static void make_table(csd& cr, complex** vg) {
    const hkl beams[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}};
    int flag;
    testing::internal::CaptureStdout();
    potential_matrix_csd(4, 1, beams, cr, 100, lattice_of(cr), vg, flag);
    testing::internal::GetCapturedStdout();
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
    settings dir;
    const auto low = [](const string& lines) { return crystal_text(cell, {other_atom, iso("0.3", "0.4", "1")}, lines); };
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
            const double ratio = first_order_error(flag_bs, c.block, c.step) / first_order_error(flag_bs, c.block, c.step / 2);
            EXPECT_NEAR(ratio, 4, 0.6) << c.block;
        }
    }
    EXPECT_LT(first_order_error(0, cases[0].block, 0), 1e-13);
}

TEST(Perturbation, DegeneratePairSplitsAsTheBlockSays) {
    settings dir;
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
    perturb(val, C, 3, D, 1e-8, p_val, p_vec, room);
    EXPECT_NEAR(p_val[0].re, 5 + 2 * e * e / 3, 1e-14); // |e + i e|^2 / 3; the pair's own element counts in the block alone
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
    complex **C = new_matrix<complex>(4, 4), **D = new_matrix<complex>(4, 4), **p_vec = new_matrix<complex>(4, 4), p_val[4];
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

// Columns of the first n parameters by central differences of the pattern.
static jacobian differences(fit& f, size_t n) {
    jacobian J(n);
    for (size_t j = 0; j < n; ++j) {
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

// The normal equations of the last cycle against sums over columns; prior is what restraints add to the diagonal.
static void expect_sums(const fit& f, const jacobian& J, const std::vector<double>& prior) {
    const std::vector<double> w = f.weights(), d = f.residuals();
    for (size_t j = 0; j < J.size(); ++j) {
        double beta = 0, scale = 0;
        for (size_t i = 0; i < w.size(); ++i) {
            beta += w[i] * d[i] * J[j][i];
            scale += w[i] * std::fabs(d[i] * J[j][i]);
        }
        EXPECT_NEAR(f.beta[j], beta, 2e-3 * scale) << j;
        for (size_t k = 0; k < J.size(); ++k) {
            double alpha = j == k ? prior[j] : 0, size = 0;
            for (size_t i = 0; i < w.size(); ++i) {
                alpha += w[i] * J[j][i] * J[k][i];
                size += w[i] * std::fabs(J[j][i] * J[k][i]);
            }
            EXPECT_NEAR(f.alpha[j][k], k > j ? 77 : alpha, 2e-3 * size) << j << k;
        }
    }
}

TEST(Cycle, NormalEquationsAreSumsOverDifferencesOfPatterns) {
    settings dir;
    fit f(refined, {data_set_text("0.8 ADJ s", "300 ADJ t", "0.01 ADJ h")});
    ASSERT_EQ(f.num_par, 5);
    ASSERT_EQ(f.num_csd, 2);
    ASSERT_EQ(f.num_rst, 1);
    EXPECT_EQ(f.slots, 6 + 5 + 5 + 1 + 2 + 4);
    const jacobian J = differences(f, 4); // the shift moves no calculated pattern
    f.cycle();
    expect_sums(f, J, {1 / (0.2 * 0.2), 0, 0, 0});
    const double beta = f.beta[0], alpha = f.alpha[0][0];
    f.cr.site_fitpar[0].slot[slot_B].ini_val = 0.4; // off its initial value the restraint speaks
    f.cr.site_fitpar[0].slot[slot_B].rst = 1e-3;
    f.cycle();
    const std::vector<double> w = f.weights(), d = f.residuals();
    double chisq = std::pow(0.1 / 1e-3, 2);
    for (size_t i = 0; i < w.size(); ++i)
        chisq += w[i] * d[i] * d[i];
    EXPECT_NEAR(f.chisq, chisq, 1e-9 * chisq);
    EXPECT_NEAR(f.beta[0] - beta, -0.1 / 1e-6, 1e-3);
    EXPECT_NEAR(f.alpha[0][0] - alpha, 1e6 - 25, 1e-3);
    EXPECT_GT(f.alpha[4][4], 0);
    EXPECT_NEAR(J[2][10], f.pattern()[10] / 0.8, 1e-4 * std::fabs(J[2][10]));
    EXPECT_TRUE(std::filesystem::exists("a_res0.txt"));
}

// Slope in pixels at place i of n values in steps of s, from the cubic inside and lines at the ends.
static double slope(const double* f, int i, int s, int n) {
    if (i == 0 || i >= n - 2)
        return i == 0 ? f[s] - f[0] : f[(n - 1) * s] - f[(n - 2) * s];
    return (-2 * f[(i - 1) * s] - 3 * f[i * s] + 6 * f[(i + 1) * s] - f[(i + 2) * s]) / 6;
}

TEST(Cycle, SquareGridTwoThicknessesWidthsAndShifts) {
    settings dir;
    epsilon.num_thickwidth = 1;
    epsilon.thickwidth_type = 0;
    const string one = replaced(data_set_text("0.8 ADJ s", "300 ADJ t", "0"), "{\n2\n7\n", "{\n3\n6\n");
    const size_t begin = one.find("THICKNESS_BLOCK{");
    const string block = replaced(replaced(one.substr(begin, one.find("}DATA_SET") - begin), "0.8 ADJ s\n300 ADJ t\n0\n", "0.5 ADJ s1\n420 RST t1 0.01\n8\n"),
                                  "0 0 0\n0\n0\n1 0 0 0.5\n0\n", "0 0 0\n0\n0.02 ADJ g0\n1 0 0 0.5\n-0.03 ADJ h1\n");
    string low = replaced(intensity_text(), "1\n2\n81", "2\n2\n81");
    write_file("int.txt", low + replaced(low.substr(low.find("THICKNESS{")), "3120 50", "3120 -50")); // a gap at the point (3, 0)
    fit f(refined, {replaced(replaced(one, "int.txt\n1", "int.txt\n2"), "}DATA_SET", block + "}DATA_SET")});
    ASSERT_EQ(f.num_par, 8);
    jacobian J = differences(f, 6);
    f.cycle();
    const std::vector<double> cal = f.pattern();
    double** sig = f.data[0].sig[0];
    EXPECT_EQ(std::vector<double>({sig[0][1], sig[1][0], sig[1][1], sig[1][2], sig[1][3], sig[1][7]}), std::vector<double>({50, 50, -1, -1, 50, 50}));
    const size_t P = 36;
    ASSERT_EQ(cal.size(), 4 * P);
    J.resize(8, std::vector<double>(4 * P));
    for (int i = 0; i < 36; ++i) { // pitch 0.16: the shift along G of 000 and along H of 100, both at t = 1
        J[6][P + size_t(i)] = slope(&cal[P] + i % 6, i / 6, 6, 6) / 0.16;
        J[7][3 * P + size_t(i)] = slope(&cal[3 * P] + i - i % 6, i % 6, 1, 6) / 0.16;
    }
    expect_sums(f, J, {25, 0, 0, 0, 0, 1e4, 0, 0});
    std::vector<double> mean(4 * P);
    f.sets[0].thickness_width[1] = 0;
    for (double t : {412.0, 420.0, 428.0}) {
        f.par[5] = t;
        f.cycle();
        for (size_t i = 0; i < mean.size(); ++i)
            mean[i] += f.pattern()[i] / 3;
    }
    for (size_t i = 0; i < mean.size(); ++i)
        EXPECT_NEAR(cal[i], mean[i], 1e-10 * mean[i]);
}

TEST(Cycle, SearchedBeamsAreThoseOfAManualListAndTheConsoleTellsAll) {
    settings dir;
    const string set = data_set_text("0.8 ADJ s", "300 ADJ t", "0.01 ADJ h");
    fit found(refined, {replaced(set, four_beams, "2\n100 0.3 0 0 0.4\n0.02 0.1 1e9\n")});
    epsilon.vg_select_flag = 0;
    const string base = fit::cycles == 0 ? "a_fst" : "a_res", bar = "    " + progress + "100%";
    const outcome shown = run_child([&] { found.loud_cycle(); });
    // The full stop would be read as part of a whole number.
    EXPECT_TRUE(matches(fit::cycles == 0 ? replaced(shown.out, ".\nIntensity", " .\nIntensity") : shown.out, "Beam search (sg) ... $$ Exact = @, Bethe = @\nreflex output ==> a_fg0.txt\n**Potential:\n" + bar + "\n**Perturbed potentials:\n" + bar + "\n" + bar +
                                                                                                                 "\n**CBED intensity calculation\n  Estimating exec. time ....  [one cycle]  Maybe not so long.\n" + bar + "\n    elapsed time: @ [min] = @ [hour]\n** Calculating Jacobian 0-4:\n" + bar +
                                                                                                                 ".\n$$ chisq= @, penalty_chisq= @\n" + (fit::cycles == 0 ? "$$ 1st cycle\nchisq of the 1st cycle = @ .\n" : "") + "Intensity output: " + base + "0.txt\nResult: res file      -- " + base + "0.txt\n"))
        << shown.out;
    EXPECT_TRUE(ends_with(run_child([&] { found.loud_cycle(); found.loud_cycle(); }).out, "-- a_res0.txt\n"));
    found.cycle();
    fed& s = found.sets[0];
    EXPECT_EQ(s.reflex_sel, nullptr);
    EXPECT_NEAR(s.g_len[1], std::sqrt(sq_abs({1, 0, 0}, lattice_of(found.cr))), 1e-15);
    testing::internal::CaptureStdout();
    auto_ed_beams(s, found.cr);
    EXPECT_TRUE(begins_with(testing::internal::GetCapturedStdout(), "Beam search (sg) ... $$ Exact = "));
    fed copy;
    alloc_ed(s.beam_search, 0, 2, 1, copy);
    cpy_fed(1, &s, &copy);
    EXPECT_EQ(copy.reflex_sel, nullptr);
    free_ed(copy);
    fed by_w = s;
    by_w.beam_search.flag_bs = 1;
    EXPECT_TRUE(begins_with(run_child([&] { auto_ed_beams(by_w, found.cr); }).out, "Beam search (wg) ... $$ Exact = "));
    string list = "0\n" + std::to_string(s.num_exact_beam) + " " + std::to_string(s.num_bethe_beam) + "\n";
    for (int i = 0; i < s.num_exact_beam + s.num_bethe_beam; ++i)
        list += std::to_string(s.reflex_sel[i].h) + " " + std::to_string(s.reflex_sel[i].k) + " " + std::to_string(s.reflex_sel[i].l) + "\n";
    EXPECT_GT(s.num_exact_beam, 4);
    std::free(s.reflex_sel);
    s.reflex_sel = nullptr;
    fit manual(refined, {replaced(set, four_beams, list)});
    manual.cycle();
    EXPECT_EQ(found.chisq, manual.chisq);
    EXPECT_EQ(found.beta, manual.beta);
}

TEST(Cycle, DataSetsAddUpAndRestraintsCountOnceForEach) {
    settings dir;
    const string set = data_set_text("0.8", "300", "0");
    fit one(refined, {set}), two(refined, {set, set}), none(crystal_text(cell, {other_atom, iso("0.3", "0.4", "1")}), {set});
    one.par[0] = two.par[0] = 0.45;
    one.cycle();
    two.cycle();
    none.cycle();
    EXPECT_NEAR(two.chisq, 2 * one.chisq, 1e-12 * two.chisq);
    for (int j = 0; j < 2; ++j) {
        EXPECT_NEAR(two.beta[size_t(j)], 2 * one.beta[size_t(j)], 1e-9 * std::fabs(two.beta[size_t(j)]));
        EXPECT_NEAR(two.alpha[j][j], 2 * one.alpha[j][j], 1e-9 * two.alpha[j][j]);
    }
    EXPECT_EQ(none.num_par, 0);
    EXPECT_GT(none.chisq, 0);
    EXPECT_NEAR(one.cr.site[1].y, one.cr.site[1].x - 0.2, 1e-12); // the constraint follows
    EXPECT_EQ(one.cr.site[1].B, 0.45);
}

} // namespace
