// SPDX-License-Identifier: MIT
//
// The refinement kernel: first-order perturbation against full solutions, a cycle's normal equations
// against sums formed by hand from differences of its own patterns, the model of the experiment, the
// reports on a data set small enough for hand-made numbers, and the writer read back.
#include <cmath>
#include <cstring>

#include "control/orvel.h"
#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "crystal_util.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"
#include "solver/perturb.h"

using namespace orvel;
using namespace orvel_test;
using std::string;

namespace {

// ---- crystals and data sets -----------------------------------------------------------------

// Two atoms without symmetry, so that every value changes the potential. NAME marks a kind word.
static const string cell = "1\n4.1\n5.2\n6.3\n85\n95\n100\n";
static string iso(const string& x, const string& B, const string& occ) {
    return "Si\n" + x + "\n0.11\n0.23\nISO\n" + B + "\n" + occ + "\n0\n";
}
static const string other_atom = "Ge\n0\n0\n0\nISO\n0.5\n1\n0\n";
static const string aniso = "Si\n0.3\n0.11\n0.23\nANISO\n0.012 ADJ v\n0.01\n0.008\n0.001\n0.002\n0.0005\n1\n0\n";
static const string four_beams = "0\n4 1\n0 0 0\n1 0 0\n0 1 0\n-1 0 0\n1 1 0\n";

static string data_set_text(const string& scale, const string& thickness, const string& shift) {
    return "DATA_SET{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n0.1\n-0.05\n100\n}INCIDENT_BEAM\n"
           "CALC_KXY_RANGE{\n2\n7\n0.4\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n" +
           four_beams + "}BEAM_SEARCH\nINTENSITY_DATA{\nint.txt\n1\n2\n}INTENSITY_DATA\n"
                        "THICKNESS_BLOCK{\nSTW_PAR{\n" +
           scale + "\n" + thickness + "\n0\n0 0\n}STW_PAR\nREFLEX_SHIFT_PAR{\n0 0 0\n" + shift +
           "\n0\n1 0 0 0.5\n0\n0\n}REFLEX_SHIFT_PAR\n}THICKNESS_BLOCK\n}DATA_SET\n";
}

// A smooth measured pattern on 9 x 9 points that reach beyond the disk.
static string intensity_text(const string& head = "FIT_EXPDATA_RAW\n") {
    string text = head + "CR{\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0.1 -0.05\n}CR\nPAR{\n1\n2\n81 9\n-0.5 0.5 -0.5 0.5\n}PAR\nTHICKNESS{\n";
    for (const char* g : {"0 0 0", "1 0 0"}) {
        text += string("RF{\n") + g + "\n";
        for (int i = 0; i < 81; ++i)
            text += std::to_string(3000 + 40 * (i % 9) - 25 * (i / 9)) + " 50\n" + (i % 9 == 8 ? "\n" : "");
        text += "}RF\n";
    }
    return text + "}THICKNESS\n";
}

struct settings : table_dir {
    settings() {
        write_file("eps.txt", "EPS_CONTROL_PARAMETERS{\nperturb_step 1e-4\n}EPS_CONTROL_PARAMETERS\n");
        std::FILE* file = std::fopen("eps.txt", "r");
        read_eps_ctrl_params(file);
        std::fclose(file);
        copy_name();
        write_file("int.txt", intensity_text());
    }
    static void copy_name() { std::snprintf(dbg.base_name, sizeof dbg.base_name, "a"); }
};

// A crystal with its data sets, numbered, and the normal equations of its cycles.
struct fit {
    crystal cr;
    int num_fed;
    fed* sets;
    ei* data;
    int num_par, slots, num_csd, num_rst;
    std::vector<double> par, beta;
    double** alpha;
    double chisq = 0;
    std::FILE* log = std::tmpfile();

    fit(const string& crystal_block, const std::vector<string>& texts) : cr(crystal_block), num_fed(int(texts.size())) {
        sets = new_vector<fed>(texts.size());
        data = new_vector<ei>(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            std::FILE* stream = text_stream(texts[i]);
            input_fit_exp_dataset(sets[i], data[i], stream);
            std::fclose(stream);
        }
        count_num_fitpar(cr, num_fed, sets, num_par, slots, num_csd, num_rst);
        set_csd_fed_step(cr, num_fed, sets);
        par.resize(size_t(num_par));
        beta.resize(size_t(num_par));
        csd_fed_to_fitpar(cr, num_fed, sets, num_par, par.data());
        alpha = new_matrix<double>(size_t(num_par), size_t(num_par));
    }
    ~fit() {
        free_fed_vector(num_fed, sets);
        free_fei_vector(num_fed, data);
        free_matrix(alpha);
        std::fclose(log);
    }
    // One cycle; the upper triangle of alpha starts as 77.
    void cycle() {
        for (int j = 0; j < num_par; ++j) {
            beta[size_t(j)] = 0;
            for (int k = 0; k < num_par; ++k)
                alpha[j][k] = k > j ? 77 : 0;
        }
        testing::internal::CaptureStdout();
        loud_cycle();
        testing::internal::GetCapturedStdout();
    }
    void loud_cycle() {
        fit_context context = {&cr, sets, data, num_fed, num_csd, "a", log};
        dynamical_calculation(par.data(), num_par, alpha, beta.data(), chisq, context);
    }
    // The calculated pattern of all data sets in one row, and the weights and residuals beside it.
    std::vector<double> pattern() const { return row([](const fed&, const ei& e, int r, int p) { return e.cal[r][0][p]; }); }
    std::vector<double> weights() const {
        return row([](const fed& s, const ei& e, int r, int p) { return e.pixel_grid[p].flag ? eval_weight(e.sig[r][0][p], s.weight[r][0]) : 0.0; });
    }
    std::vector<double> residuals() const { return row([](const fed&, const ei& e, int r, int p) { return e.obs[r][0][p] - e.cal[r][0][p]; }); }
    template <class F> std::vector<double> row(F value) const {
        std::vector<double> v;
        for (int i = 0; i < num_fed; ++i)
            for (int r = 0; r < 2; ++r)
                for (int p = 0; p < data[i].num_pix; ++p)
                    v.push_back(value(sets[i], data[i], r, p));
        return v;
    }
};

// ---- perturbation ---------------------------------------------------------------------------

// Intensities of one tilt of four exact and one Bethe beam with table vg, and by perturbation with pvg.
static void solve(const csd& cr, complex** vg, complex*** pvg, std::vector<double>& full, std::vector<double>& perturbed) {
    const hkl beams[5] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 1, 0}};
    const int out[4] = {0, 1, 2, 3};
    const double thickness[2] = {150, 420};
    const lattice lat = lattice_of(cr);
    const uvw zone = {0, 0, 1};
    beam_search bs = {};
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
static double first_order_error(const string& block, double step) {
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
    solve(cr, vg, pvg, base, first_order);
    solve(cr, pvg[0], nullptr, full, unused);
    double error = 0, change = 0;
    for (size_t i = 0; i < full.size(); ++i) {
        error = std::max(error, std::fabs(full[i] - first_order[i]));
        change = std::max(change, std::fabs(full[i] - base[i]));
    }
    EXPECT_LT(error, 0.3 * change) << block;
    free_matrix(vg);
    free_tensor(pvg);
    return error;
}

TEST(Perturbation, ErrorFallsWithTheSquareOfTheStep) {
    settings dir;
    const string lof = "1\n%\n1 0 0\n2.5 ADJ v\n0.3\n";
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
        const double ratio = first_order_error(c.block, c.step) / first_order_error(c.block, c.step / 2);
        EXPECT_NEAR(ratio, 4, 0.6) << c.block;
    }
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
    eigmat(3, A, val, C);
    for (int i = 0; i < 3; ++i)
        std::memcpy(inverse[i], C[i], 3 * sizeof(complex));
    invmat(3, inverse);
    perturb(val, C, 3, D, epsilon.degeneracy_eps, p_val, p_vec);
    // The block gives 5 +- e; the second-order sums run over the unmixed pair, e^2/3 for each.
    EXPECT_NEAR(p_val[0].re, 5 + e + e * e / 3, 1e-12);
    EXPECT_NEAR(p_val[1].re, 5 - e + e * e / 3, 1e-12);
    EXPECT_NEAR(p_val[2].re, 2 - 2 * e * e / 3, 1e-12);
    eigen_val_perturbation(val, C, inverse, 3, A, B, first);
    perturbation2(val, C, inverse, 3, A, B, epsilon.degeneracy_eps, p_val, p_vec);
    for (int j = 0; j < 3; ++j) {
        EXPECT_NEAR(first[j].re, val[j].re, 1e-12); // no diagonal change
        EXPECT_NEAR(p_val[j].re, first[j].re, 1e-12);
    }
    EXPECT_EQ(p_vec[1][0].re * p_vec[0][1].re, 0);        // the pair does not mix
    EXPECT_NEAR(p_vec[2][0].re, e / 3 * C[0][0].re, 1e-12); // the third level does
    for (complex** m : {A, D, B, C, inverse, p_vec})
        free_matrix(m);
}

// ---- the cycle ------------------------------------------------------------------------------

static const string refined = crystal_text(cell, {"Ge\n0\n0\n0\nISO\n0.5 RST Bge 0.2\n1\n0\n", "Si\n0.3 ADJ xs\n=xs-0.2 CST ys\n0.23\nISO\n=Bge CST Bs\n1\n0\n"});

TEST(Cycle, NormalEquationsAreSumsOverDifferencesOfPatterns) {
    settings dir;
    fit f(refined, {data_set_text("0.8 ADJ s", "300 ADJ t", "0.01 ADJ h")});
    ASSERT_EQ(f.num_par, 5);
    ASSERT_EQ(f.num_csd, 2);
    ASSERT_EQ(f.num_rst, 1);
    EXPECT_EQ(f.slots, 6 + 5 + 5 + 1 + 2 + 4);
    std::vector<std::vector<double>> J;
    for (size_t j = 0; j < 4; ++j) { // the shift moves no calculated pattern
        const double centre = f.par[j], h = 1e-4 * centre;
        f.par[j] = centre + h;
        f.cycle();
        std::vector<double> column = f.pattern();
        f.par[j] = centre - h;
        f.cycle();
        const std::vector<double> below = f.pattern();
        for (size_t i = 0; i < column.size(); ++i)
            column[i] = (column[i] - below[i]) / (2 * h);
        J.push_back(column);
        f.par[j] = centre;
    }
    f.par[0] = 0.6; // off its initial value: the restraint speaks
    f.cycle();
    const std::vector<double> w = f.weights(), d = f.residuals();
    double chisq = std::pow(0.1 / 0.2, 2);
    for (size_t i = 0; i < w.size(); ++i)
        chisq += w[i] * d[i] * d[i];
    EXPECT_NEAR(f.chisq, chisq, 1e-9 * chisq);
    f.par[0] = 0.5;
    f.cycle();
    const std::vector<double> w0 = f.weights(), d0 = f.residuals();
    for (size_t j = 0; j < 4; ++j) {
        double beta = 0, scale = 0;
        for (size_t i = 0; i < w0.size(); ++i) {
            beta += w0[i] * d0[i] * J[j][i];
            scale += w0[i] * std::fabs(d0[i] * J[j][i]);
        }
        EXPECT_NEAR(f.beta[j], beta, 2e-3 * scale) << j;
        for (size_t k = 0; k < 4; ++k) {
            double alpha = j == 0 && k == 0 ? 1 / (0.2 * 0.2) : 0, size = 0;
            for (size_t i = 0; i < w0.size(); ++i) {
                alpha += w0[i] * J[j][i] * J[k][i];
                size += w0[i] * std::fabs(J[j][i] * J[k][i]);
            }
            EXPECT_NEAR(f.alpha[j][k], k > j ? 77 : alpha, 2e-3 * size) << j << k;
        }
    }
    EXPECT_GT(f.alpha[4][4], 0);
    EXPECT_NEAR(J[2][10], f.pattern()[10] / 0.8, 1e-4 * std::fabs(J[2][10]));
    EXPECT_TRUE(std::filesystem::exists("a_res0.txt"));
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

// ---- model of the experiment ----------------------------------------------------------------

TEST(FitModel, ShiftSlopesAreThoseOfACubicInsideAndOfALineAtTheRim) {
    settings dir;
    const int n = 7;
    double x[n], **f = new_matrix<double>(n, n), **g = new_matrix<double>(n, n);
    int** inside = new_matrix<int>(n, n);
    for (int i = 0; i < n; ++i) {
        x[i] = -0.6 + 0.2 * i;
        for (int j = 0; j < n; ++j) {
            f[i][j] = std::pow(-0.6 + 0.2 * i, 3) + 2 * std::pow(-0.6 + 0.2 * j, 3);
            inside[i][j] = i > 0 || j != 3;
        }
    }
    const double s = 0.05;
    const auto cubic = [&](double at) { return (std::pow(at + s, 3) - std::pow(at, 3)) / s; };
    calc_Hshift_grad(s, -0.6, 0.6, n, n, x, x, f, inside, g);
    EXPECT_NEAR(g[3][2], cubic(0), 1e-12);
    EXPECT_NEAR(g[0][2], (f[1][2] - f[0][2]) / 0.2, 1e-12);   // no point in front: a line
    EXPECT_NEAR(g[6][2], (f[6][2] - f[5][2]) / 0.2, 1e-12);   // none behind: continued
    EXPECT_NEAR(g[1][3], (f[2][3] - f[1][3]) / 0.2, 1e-12);   // a masked neighbour in front
    EXPECT_EQ(g[0][3], 0);                                    // itself masked
    calc_Gshift_grad(s, -0.6, 0.6, n, n, x, x, f, inside, g);
    EXPECT_NEAR(g[2][3], 2 * cubic(0), 1e-12);
    EXPECT_NEAR(bicubic_intrpl(0.07, -0.33, n, n, x, x, f), std::pow(0.07, 3) - 2 * std::pow(0.33, 3), 1e-12);
    EXPECT_NEAR(bilin_intrpl(0.25, 0.5, 1, 5, 3, 7), 3, 1e-15);
    free_matrix(f);
    free_matrix(g);
    free_matrix(inside);
}

TEST(FitModel, ThicknessGroupsWeightsAndKernels) {
    settings dir;
    fed set;
    alloc_ed({}, 1, 1, 1, set);
    set.thickness[0] = 100;
    set.thickness_width[0] = 6;
    set.thickness_fitpar[0].step = 0.5;
    double list[6], wt[5];
    thickness_set(set, 1, list);
    EXPECT_EQ(std::vector<double>(list, list + 6), (std::vector<double>{94, 100, 106, 94.5, 100.5, 106.5}));
    const double gauss = std::exp(-0.5 * 9 / 4); // sigma 2/3
    const std::vector<std::vector<double>> expected = {{0.2, 0.2, 0.2}, {0, 0.25, 0.5}, {gauss * gauss * gauss * gauss, gauss, 1}};
    for (int type = 0; type < 3; ++type) {
        epsilon.thickwidth_type = type;
        const outcome shown = run_child([&] { thickweight_set(2, wt); });
        EXPECT_EQ(shown.out, type == 1 ? "$$ num_thickwidth = 2\n" : "");
        testing::internal::CaptureStdout();
        thickweight_set(2, wt);
        testing::internal::GetCapturedStdout();
        double sum = wt[0] + wt[1] + wt[2] + wt[3] + wt[4];
        EXPECT_NEAR(sum, 1, 1e-15);
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(wt[i] / wt[2], expected[size_t(type)][i] / expected[size_t(type)][2], 1e-14) << type;
    }
    const double values[3] = {1, 2, 6}, thirds[3] = {0.5, 0.25, 0.25};
    EXPECT_EQ(thickness_average(1, 0, values, thirds), 1);
    EXPECT_EQ(thickness_average(1, -5, values, thirds), 2.5);
    free_ed(set);

    double** kernel = new_matrix<double>(3, 3);
    const outcome written = run_child([&] { calc_avrpix_wt(3, kernel, -2); });
    EXPECT_EQ(written.out, "$$Weights for convolution --> convlt.dat\n");
    // r = 1: y = pi/2, (2/pi)^2; r = sqrt(2): (sin(y)/y)^2 with y = pi/sqrt(2).
    const double side = 4 / (pi * pi), corner = std::pow(std::sin(pi / std::sqrt(2.0)) * std::sqrt(2.0) / pi, 2);
    char line[64];
    std::snprintf(line, sizeof line, "%g  %g  %g  \n", corner / (1 + 4 * side + 4 * corner),
                  side / (1 + 4 * side + 4 * corner), corner / (1 + 4 * side + 4 * corner));
    EXPECT_TRUE(begins_with(read_file("convlt.dat"), line));
    double** picture = new_matrix<double>(3, 3);
    picture[0][0] = 1;
    kernel[0][0] = 5; // the point lands where the kernel's element says: turned by nothing
    kernel[1][1] = 2;
    kernel[2][1] = 3;
    gaussian_convolution(3, picture, 3, kernel);
    EXPECT_EQ(picture[0][0], 2);
    EXPECT_EQ(picture[1][0], 3);
    EXPECT_EQ(picture[0][1], 0);
    free_matrix(picture);
    free_matrix(kernel);
}

// ---- residuals and reports ------------------------------------------------------------------

// One thickness, three reflections of the zones 0, 1, -1, four points: sigma 2, 0, -1, and masked.
struct tiny_set {
    fed set;
    ei data;
    tiny_set() {
        alloc_ed({}, 1, 3, 1, set);
        set.zone_uvw = {0, 0, 1};
        data = {};
        data.num_pix = 4;
        data.num_pix_side = data.num_obs_pix_side = 2;
        data.num_obs_pix = 4;
        alloc_ei(3, 1, data);
        const double sig[4] = {2, 0, -1, 2}, obs[4] = {10, 20, 30, 40}, cal[4] = {7, 20.5, 5, 5};
        for (int r = 0; r < 3; ++r) {
            set.weight[r][0] = 4;
            data.reflex_hkl[r] = {r, 0, r == 2 ? -1 : r};
            for (int p = 0; p < 4; ++p) {
                data.obs[r][0][p] = data.obs_raw[r][0][p] = obs[p] + r;
                data.cal[r][0][p] = cal[p];
                data.sig[r][0][p] = data.sig_raw[r][0][p] = sig[p];
                data.pixel_grid[p].flag = p != 3;
            }
        }
    }
    ~tiny_set() {
        free_ed(set);
        free_ei(data);
    }
};

TEST(Reports, TinyDataSetGivesHandMadeNumbers) {
    settings dir;
    tiny_set tiny;
    // Only point 0 counts, with w = 4/4 = 1: obs 10, 11, 12 against cal 7; chi-square 9 + 16 + 25.
    const outcome chisq = run_child([&] { std::printf("%g", calc_chisq(tiny.set, tiny.data)); });
    EXPECT_EQ(chisq.out, "$$Warning: obs_int obs_sig = 20 0\n$$Warning: obs_int obs_sig = 21 0\n$$Warning: obs_int obs_sig = 22 0\n50");
    std::FILE* log = std::fopen("log", "w");
    const outcome report = run_child([&] { print_Rw_factors(log, 1, &tiny.set, &tiny.data); std::fclose(log); });
    // R = 12/33, 3/10, 4/11; Rw = sqrt(50/365), 3/10, 4/11; GoF = sqrt(50/3), 3, 4.
    const string text = "Residual indices:\n Chisq = 50, Chisq_ZOLZ = 9, Chisq_HOLZ = 16\n  Ratio chisq_zolz / chisq_holz = 0.5625\n"
                        " GoF = 4.08248, num_data = 3\n GoF(ZOLZ) = 3, num_data(ZOLZ) = 1\n GoF(HOLZ) = 4, num_data(HOLZ) = 1\n"
                        " (Ref: R = 0.363636, R_ZOLZ = 0.3, R_HOLZ = 0.363636)\n"
                        " (Ref: Rw = 0.370117, Rw_ZOLZ = 0.3, Rw_HOLZ = 0.363636)\n";
    EXPECT_EQ(report.out, text);
    EXPECT_EQ(read_file("log"), text);
    // Ideal scale (70 + 77 + 84)/147 = 11/7: residuals -1, 0, 1. Raw points: also the masked one.
    const outcome others = run_child([&] {
        print_scaled_Rw_factors(stdout, 1, &tiny.set, &tiny.data);
        print_int_ratio(stdout, 1, &tiny.set, &tiny.data);
    });
    EXPECT_EQ(others.out, "\n (Ref: Adjusted scale = 1.57143, Scaled R_w = 0.0740233)\n\nNumber of data points:\n  (ZOLZ)= 2, (HOLZ)= 2, (Total)= 4\n"
                          "Integrated intensity:\n  (ZOLZ)= 50, (HOLZ)= 52, (Total)= 102\n  Ratio: ZOLZ/HOLZ = 0.961538\n"
                          "Squares of weighted integrated intensities:\n  (ZOLZ)= 1700, (HOLZ)= 1802, (Total)= 3502\n  Ratio: ZOLZ/HOLZ = 0.943396\n\n");
    testing::internal::CaptureStdout();
    fit_res_output(1, &tiny.set, &tiny.data, 4, 5, 6, 90, 90, 90, "b");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Result: res file      -- b0.txt\n");
    EXPECT_TRUE(contains(read_file("b0.txt"), "RF{\n1  0  1  4   #h k l\n#Obs  Cal  Sig\n#(H, G) = (0,0)\n#(H, G) = (0,1)\n#     .....    \n"
                                              "11  7  2\n21  20.5  0\n\n31  5  -1\n41  5  2\n\n}RF\n"));
    const struct {
        int status;
        string text;
    } ends[] = {{1, "\n  ** Normal convergence **\n\n"},
                {2, "\n  ** Convergence **\n  Chi square 0.5 is less than tol_chisq_abs. * num_fitpar (=0.03).\n  Check your data again.\n\n"},
                {3, "\n  ** Convergence **\n  Residual sum of squares has slightly increased.\n  This increase is probably due to a round-off error and tolerable.\n\n"},
                {-1, "\n  ** Not converged **\n  Too large lambda (=1e+07).\n  Please change initial values and try again.\n\n"},
                {0, "\n  ** Not converged **\n"}};
    for (const auto& end : ends)
        EXPECT_EQ(run_child([&] { output_fit_diagnostics(end.status, 3, 0.5, 1e7, stderr); }).out, end.text);
}

TEST(Reports, ParametersAndCorrelations) {
    settings dir;
    fit f(refined, {data_set_text("0.8 ADJ s", "300 ADJ t", "0.01 ADJ h")});
    double** cov = new_matrix<double>(5, 5);
    for (int i = 0; i < 5; ++i)
        cov[i][i] = 0.01;
    cov[0][1] = 0.0075;
    cov[2][3] = -0.002;
    fitpar_sigma_to_csd_fed(f.cr, 1, f.sets, 5, cov);
    const outcome shown = run_child([&] {
        par_output_short(f.cr, 1, f.sets, stderr, "shift.txt");
        output_corr_coef(f.cr, 1, f.sets, 5, cov, "corr.txt", stdout);
    });
    const string parameters = "\nRefined parameters:\n [0] Bge= 0.5, esd= 0.1 (ini_val= 0.5, rst= 0.2)\n [1] xs= 0.3, esd= 0.1 (ini_val= 0.3)\n"
                              " [2] s= 0.8, esd= 0.1 (ini_val= 0.8)\n [3] t= 300, esd= 0.1 (ini_val= 300)\n SHIFT parameters output: shift.txt\n";
    EXPECT_EQ(shown.err, parameters);
    EXPECT_EQ(shown.out, parameters + "Correlation coef. output ==> corr.txt\nCorrelation coef. (>0.5):\n rho[ 0][ 1] =  0.75\n");
    EXPECT_EQ(read_file("shift.txt"), "HG SHIFT parameters\nit= 0 [4] h= 0.01, esd= 0.1 (ini_val= 0.01)\n");
    EXPECT_TRUE(begins_with(read_file("corr.txt"), "% corr.txt\nCorrelation coefficients:\n par[0]: Bge\n par[1]: xs\n par[2]: s\n par[3]: t\n par[4]: h\n"
                                                   " rho[ 0][ 1] =  0.75\n rho[ 0][ 2] =  0.00\n"));
    free_matrix(cov);
}

// ---- the writer -----------------------------------------------------------------------------

TEST(Writer, FileReadBackGivesKindsNamesRestraintsAndValues) {
    settings dir;
    const string low = "1\n4\n0 0 2\n1.25 ADJ fa\n0.5\n=2*fa CST fb\n0.25 RST fi 0.05\n";
    fit f(crystal_text(cell, {other_atom, aniso}, low), {data_set_text("0.8 ADJ s", "300 RST t 4", "0.01 ADJ h")});
    output_FIT_MODE_file("out.dat", f.cr, 7, 1, f.sets, f.data);
    std::FILE* file = std::fopen("out.dat", "r");
    char word[line_max];
    EXPECT_STREQ(fget_1s(word, file), "FIT_MODE");
    read_eps_ctrl_params(file);
    csd cr;
    fed set;
    ei data;
    int iterations, sets;
    input_csd_cstr(cr, file, "a");
    chk_data("FIT_CALCULATION_CONDITION{", file);
    read_ITEM_EXP_NUM(iterations, sets, file);
    testing::internal::CaptureStdout();
    input_fit_exp_dataset(set, data, file);
    testing::internal::GetCapturedStdout();
    chk_data("}FIT_CALCULATION_CONDITION", file);
    std::fclose(file);
    EXPECT_EQ(iterations, 7);
    EXPECT_EQ(sets, 1);
    EXPECT_EQ(set.num_bethe_beam, 1);
    EXPECT_EQ(set.weight[1][0], 0.5);
    for (auto [a, b] : {std::pair(list_csd_values(f.cr), list_csd_values(cr)), std::pair(list_fed_values(1, f.sets), list_fed_values(1, &set))}) {
        ASSERT_EQ(a.count, b.count);
        for (int i = 0; i < a.count; ++i) {
            const fitpar &was = *a.at[i].descriptor, &is = *b.at[i].descriptor;
            EXPECT_EQ(was.idx, is.idx) << was.id;
            EXPECT_STREQ(was.id, is.id);
            EXPECT_EQ(was.rst, is.rst) << was.id;
            EXPECT_NEAR(*a.at[i].value, *b.at[i].value, 1e-6 * std::fabs(*a.at[i].value)) << was.id;
        }
        std::free(a.at);
        std::free(b.at);
    }
    free_csd(cr);
    free_ed(set);
    free_ei(data);
}

// ---- faults ---------------------------------------------------------------------------------

TEST(RefineFaults, EachMessageOnce) {
    settings dir;
    const string good = data_set_text("1", "300", "0");
    const auto read = [](const string& text, const string& intensities = intensity_text()) {
        return [=] {
            write_file("int.txt", intensities);
            fed set;
            ei data;
            std::FILE* stream = text_stream(text);
            std::freopen("/dev/null", "w", stderr);
            input_fit_exp_dataset(set, data, stream);
        };
    };
    const string head = "Exact = 4, Bethe = 1\n$$ vg_select_flag is set to 0.\n";
    fit f(refined, {good});
    double picture_row[2] = {}, *picture[2] = {picture_row, picture_row};
    pixel grid[4];
    r_hkl K_t[4];
    int n = 0, m = 0;
    const auto in_cycle = [&](const std::function<void()>& change) {
        return [=, &f] { change(); double w[9]; f.sets[0].num_thickness = 1; thickweight_set(epsilon.num_thickwidth, w); double l[4]; thickness_set(f.sets[0], epsilon.num_thickwidth, l); };
    };
    expect_faults({
        {read(replaced(good, "{\n2\n7\n", "{\n4\n7\n")), "$$ Invalid calc_type=4. Abort.\n", ""},
        {read(replaced(good, "{\n2\n7\n", "{\n2\n1\n")), "$$ Invalid num_pix_side(=1). Abort.\n", ""},
        {read(replaced(good, "CALC_KXY_RANGE{", "CALC_KXY_RANGE{ ")), "$$ Data format error has been found at CALC_KXY_RANGE{.\n$$ Abort.\n$$ buf=CALC_KXY_RANGE{ \n$$$$Error: CALC_KXY_RANGE must be placed before BEAM_SEARCH. $$\n", ""},
        {read(good, "FIT_DATA\n"), head + "$$ Data format error.\n$$ Abort.\n$$ buf=FIT_DATA\n", ""},
        {read(good, replaced(intensity_text(), "81 9", "80 9")), head + "$$ Data set does not agree with its intensity file (80, 9). Abort.\n", ""},
        {read(replaced(good, "int.txt\n1\n2\n", "int.txt\n1\n3\n")), head + "$$ Data set does not agree with its intensity file (3, 2). Abort.\n", ""},
        {read(good, replaced(intensity_text(), " 50\n\n", " 50\n")), head + "$$ Data format error has been found at .\n$$ Abort.\n$$ buf=2975\n", ""},
        {read(replaced(good, "300\n0\n0 0", "300\n5\n0 0")), head + "$$ thickwidth = 5 and num_thickwidth = 0. Abort.\n", ""},
        {read(replaced(good, "0 0\n}STW", "2 1\n}STW")), head + "$$ The number of averaging points must be odd number. Abort.\n$$ (calc_avrpix_wt)\n", ""},
        {read(replaced(good, "0 0\n}STW", "3 0\n}STW")), head + "$$ Gaussian_par must not be 0.0. Abort.\n", ""},
        {[&] { fed s = {}; std::FILE* t = text_stream("7\n"); fget_ed_beams(s, t); }, "", "Invalid flag_bs 7\n"},
        {[&] { fed s = {}; s.beam_search.flag_bs = 0; auto_ed_beams(s, f.cr); }, "$$ Invalid beam_search.flag_bs. (0) Abort.\n", ""},
        {[&] { calc_K_xy_cbed(n, m, K_t, grid, 0, 0, {0, 0, 1}, {1, 0, 0}, lattice_of(f.cr), 1, 1, 2); }, "", "$$(Calc_K_xy_cbed) Invalid calc_type (=1). Abort.\n"},
        {[&] { calc_K_xy_cbed(n, m, K_t, grid, 0, 0, {0, 0, 1}, {1, 0, 0}, lattice_of(f.cr), 2, 1, -1); }, "$$ Wrong ct(=0) in calc_K_xy_cbed. Abort.\n", ""},
        {in_cycle([] { epsilon.num_thickwidth = -1; }), "$$ num_thickwidth = -1. Abort.\n", ""},
        {in_cycle([] { epsilon.num_thickwidth = 1; epsilon.thickwidth_type = 3; }), "$$ Sorry, thickwidth_type=3 is not supported. Abort.\n", ""},
        {[&] { scale_tav(-1, 1, 0, 0, 1, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr); }, "$$ num_thickwidth must not be less than 0. Abort.\n", ""},
        {[&] { gaussian_convolution(2, picture, 2, picture); }, "$$num_avrpix = 2: num_avrpix must be odd number. Abort.\n$$(gaussian_convolution)\n", ""},
        {[&] { gaussian_conv(2, 2, picture, 4, picture); }, "$$num_avrpix = 4: num_avrpix must be odd number. Abort.\n$$(gaussian_conv)\n", ""},
        {[&] { calc_Hshift_grad(-0.1, -1, 1, 2, 2, nullptr, nullptr, picture, nullptr, picture); }, "$$(calc_Hshift_int) Hshift(=-0.1) must be positive. Abort.)", ""},
        {[&] { calc_Gshift_grad(3, -1, 1, 2, 2, nullptr, nullptr, picture, nullptr, picture); }, "$$ (calc_Gshift_int) Too large shift. Abort.)", ""},
        {[&] { search_csd_fed(5, f.cr, 1, f.sets); }, "$$error: (search_csd_fed) invalid ntp=5\n", ""},
        {[&] { val_search_fed("nobody", 1, f.sets); }, "$$error: (val_search_fed) constraint nobody not found\n", ""},
        {[&] { f.sets[0].kv_fitpar.idx = kind_rst; count_num_fitpar(f.cr, 1, f.sets, n, n, n, n); }, "$$ Restraint width of " + string(f.sets[0].kv_fitpar.id) + " is 0. Abort.\n", ""},
        {[&] { fprintf_cstr({7, 0, 0, 0, 0, 0, "", ""}, 0, "", stderr); }, "$$(fprintf_cstr) Invalid flg(=7). Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; print_CRYSTAL_STRUCTURE_DATA(std::tmpfile(), f.cr); }, "$$ Invalid b_flag. Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; par_output_short(f.cr, 0, f.sets, stderr, "x"); }, "\nRefined parameters:\nInvalid b_flag.\n", "\nRefined parameters:\n"},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 6; print_LOW_ORDER_FG(std::tmpfile(), f.cr); }, "$$ Invalid lof_type (=6). Abort.\n", ""},
    });
    const outcome missing = run_child([&] { f.data[0].reflex_hkl[1] = {9, 0, 0}; f.loud_cycle(); });
    EXPECT_TRUE(ends_with(missing.out, "$$ calc_cbed_pattern_perturb: 9 0 0 not found. Abort.")) << missing.out;
    EXPECT_EQ(missing.status, 1);
    const outcome outside = run_child([&] { f.sets[0].H_shift[1][0] = 0.2; f.loud_cycle(); });
    EXPECT_TRUE(contains(outside.out, "$$Warning: out of area. g=1 0 0\n")) << outside.out;
    EXPECT_FALSE(contains(outside.out, "g=0 0 0"));
}

} // namespace
