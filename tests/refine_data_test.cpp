// SPDX-License-Identifier: MIT
//
// Around a refinement cycle: numbering and copies, measured data sets, the model of the experiment, the
// reports on a data set small enough for hand-made numbers, and the writer read back.
#include <climits>
#include <cmath>
#include <cstring>

#include "control/ov_mpi.h"
#include "refine_util.h"
#include "solver/ovfunc.h"

using namespace orvel;
using namespace orvel_test;
using std::string;

namespace {

// ---- parameters and records -----------------------------------------------------------------

TEST(Cycle, GridOfTangentialVectors) {
    settings dir;
    fit f(refined, {data_set_text("1", "300", "0")});
    r_hkl K_t[9];
    int effective;
    const r_hkl e1 = {1, 0.5, 0}, e2 = zolz_ort_base({0, 0, 1}, e1, lattice_of(f.cr));
    f.sets[0].zolzbase1 = e1;
    f.sets[0].g_tilt = -0.2;
    f.sets[0].num_pix_side = 3;
    calc_K_xy_cbed(f.sets[0], lattice_of(f.cr), f.data[0], K_t, effective);
    const pixel* grid = f.data[0].pixel;
    EXPECT_EQ(std::vector<int>({f.data[0].num_pix, effective, grid[5].ih, grid[5].ig, grid[5].flag, grid[8].flag}), std::vector<int>({9, 5, 2, 1, 1, 0}));
    EXPECT_NEAR(K_t[5].h, 0.5 * (0.5 * e1.h - 0.2 * e2.h), 1e-15); // H = 0.1 + 0.4, G = -0.2
    EXPECT_NEAR(K_t[5].k, 0.5 * (0.5 * e1.k - 0.2 * e2.k), 1e-15);
    EXPECT_NEAR(K_t[7].h, 0.5 * (0.1 * e1.h + 0.2 * e2.h), 1e-15);
}

static const string numbered_site = "Si\n0.3\n0.11\n0.23\nANISO\n0.012\n0.01\n0.008\n0.001 ADJ b12\n0.002 ADJ b13\n0.0005 RST b23 0.1\n1 ADJ occ\n0\n";

TEST(Parameters, OrderStepsConstraintsAndCopies) {
    settings dir;
    const string conditioned = replaced(data_set_text("=t CST s", "300 ADJ t", "0"), "0.1\n-0.05\n100\n", "0.1 ADJ H\n-0.05 ADJ G\n100 ADJ kv\n");
    const string weightless = replaced(replaced(data_set_text("=2*t-0.5*kv+1 CST s", "0", "0 ADJ h"), "0 0 0\n0 ADJ h\n0\n", "0 0 0 0 ADJ\n0 ADJ h\n0 RST g 1\n"), "1 0 0 0.5\n", "1 0 0 % remark\n");
    fit f(crystal_text(cell, {other_atom, numbered_site}, "1\n3\n1 0 0\n1\n2 ADJ fi\n3 ADJ fe\n4\n"), {replaced(conditioned, "0 0\n}STW", "3 1.5\n}STW"), weightless});
    const char* const names[] = {"b12", "b23", "b13", "occ", "fi", "fe", "H", "G", "kv", "t", "g"};
    ASSERT_EQ(f.num_par, 11);
    EXPECT_EQ(f.num_csd, 6);
    EXPECT_EQ(f.num_rst, 2);
    EXPECT_EQ(f.slots, 6 + 5 + 10 + 4 + 2 * (1 + 2 + 4));
    for (int i = 0; i < 11; ++i)
        EXPECT_STREQ(search_csd_fed(i, f.cr, 2, f.sets).id, names[i]);
    EXPECT_EQ(f.sets[1].weight[1][0], 1);
    f.cycle();
    EXPECT_EQ(f.data[0].sig[0][0][0], -1); // outside the disk
    EXPECT_TRUE(std::filesystem::exists("a_fg1.txt"));
    EXPECT_EQ(f.sets[0].scale_factor[0], 300);
    EXPECT_EQ(f.sets[1].scale_factor[0], 551); // names of all sets
    EXPECT_DOUBLE_EQ(f.sets[0].thickness_fitpar[0].step, 0.03);
    EXPECT_EQ(f.sets[0].H_shift_fitpar[0][0].step, 1e-10);
    EXPECT_EQ(f.sets[0].thickness_width_fitpar[0].step, 0);
    EXPECT_DOUBLE_EQ(eval_step(-2), 2e-4);

    csd copy;
    alloc_csd(f.cr.num_sym_op, 2, 1, copy);
    alloc_csd_sub_cstr(2, 1, f.cr.lof_type, copy);
    cpy_csd(f.cr, copy);
    EXPECT_EQ(copy.lofg_hkl[0].h, 1);
    EXPECT_EQ(copy.lofg[0].f_inela[1], 4);
    make_csd_perturb(4, f.cr, copy);
    fed other;
    alloc_ed(f.sets[0].beam_search, 5, 2, 1, other);
    testing::internal::CaptureStdout();
    cpy_fed(1, f.sets, &other);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(other.avrpix_wt[0][0][1], f.sets[0].avrpix_wt[0][0][1]);
    EXPECT_EQ(other.reflex_sel[4].k, 1);
    EXPECT_EQ(other.g_len[1], f.sets[0].g_len[1]);
    for (auto [a, b] : {std::pair(list_csd_values(f.cr), list_csd_values(copy)), std::pair(list_fed_values(1, f.sets), list_fed_values(1, &other))}) {
        for (int i = 0; i < a.count; ++i) {
            EXPECT_NE(a.at[i].value, b.at[i].value);
            EXPECT_EQ(*b.at[i].value - *a.at[i].value, a.at[i].descriptor->ntp == 4 ? 2.0002 - 2 : 0) << i;
            EXPECT_STREQ(b.at[i].descriptor->id, a.at[i].descriptor->id);
        }
        std::free(a.at);
        std::free(b.at);
    }
    free_csd(copy);
    free_ed(other);
}

TEST(Readers, MeasuredPointsStandOnTheirSquare) {
    settings dir;
    const auto gaps = replaced(intensity_text("FIT_EXPDATA_BGS\n"), "3015 50", "3015 -1");                                   // point 10 of the first reflection
    write_file("int.txt", gaps.substr(0, gaps.rfind("3040 50")) + replaced(gaps.substr(gaps.rfind("3040 50")), "50", "-1")); // 78 of the last
    fit f(refined, {data_set_text("1", "300", "0")});
    const ei& e = f.data[0];
    EXPECT_EQ(f.sets[0].beam_search.disksize, 0.4);
    EXPECT_EQ(e.obs_raw[0][0][10], 3015);
    EXPECT_EQ(e.sig_raw[0][0][10], -1);
    EXPECT_EQ(std::vector<int>({e.obs_pixel[10].flag, e.obs_pixel[78].flag, e.obs_pixel[10].ih, e.obs_pixel[10].ig}), std::vector<int>({1, 0, 1, 1}));
    EXPECT_DOUBLE_EQ(e.obs_pixel[12].h, 0.1 - 0.5 + 3 * 0.125);
    EXPECT_DOUBLE_EQ(e.obs_pixel[21].g, -0.05 - 0.5 + 2 * 0.125);
    int outside;
    measured_cell c = find_mat_ii_obs(e.obs_h_max, -0.3, e, e.obs_raw[1][0], e.sig_raw[1][0], outside);
    EXPECT_EQ(std::vector<double>({c.u, c.i00, c.i10, c.s10}), std::vector<double>({0, 3320 - 25 * 2, 0, 1})); // on the bound: none beyond
    EXPECT_EQ(outside, 0);
    c = find_mat_ii_obs(e.obs_h_min, e.obs_g_max, e, e.obs_raw[1][0], e.sig_raw[1][0], outside);
    EXPECT_EQ(std::vector<double>({c.v, c.i00, c.i01, c.s01}), std::vector<double>({0, 3000 - 25 * 8, 0, 1}));

    // One pixel between the points (2, 3), (3, 3), (2, 4), (3, 4) of a plane, of sigmas of a plane, once shifted there.
    double *sig = e.sig_raw[0][0], &obs_at = e.obs[0][0][24], &sig_at = e.sig[0][0][24];
    const auto sample = [&](double H_shift, double G_shift) {
        e.pixel[24] = {0, 0, 1, 0.1 - 0.5 + 2.25 * 0.125 + 0.03, -0.05 - 0.5 + 3.5 * 0.125 - 0.02};
        calc_extr_obs_int(H_shift, G_shift, f.data[0], 0, 0, outside);
    };
    for (int i = 0; i < 81; ++i)
        sig[i] = 50 + i % 9 + 2 * (i / 9);
    sample(0.03, -0.02);
    EXPECT_NEAR(obs_at, 3000 + 40 * 2.25 - 25 * 3.5, 1e-9);
    EXPECT_NEAR(sig_at, 50 + 2.25 + 2 * 3.5, 1e-9);
    for (int neighbour : {29, 30, 38, 39}) {
        sig[neighbour] = 0;
        sample(0.03, -0.02);
        EXPECT_EQ(sig_at, -1) << neighbour;
        sig[neighbour] = 60;
    }
    for (auto [H, G] : {std::pair(1.0, 0.0), {-1.0, 0.0}, {0.0, 1.0}, {0.0, -1.0}}) {
        sample(H, G);
        EXPECT_EQ(std::vector<double>({obs_at, sig_at, double(outside)}), std::vector<double>({0, 1, 1}));
    }
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
    for (auto [i, j] : {std::pair(5, 5), {1, 1}, {4, 4}, {6, 4}, {2, 6}, {4, 6}})
        inside[i][j] = 0;
    const double s = 0.05;
    const auto cubic = [&](double at) { return (std::pow(at + s, 3) - std::pow(at, 3)) / s; };
    calc_Hshift_grad(s, -0.6, 0.6, n, n, f, inside, g);
    EXPECT_NEAR(g[3][2], cubic(0), 1e-12);
    EXPECT_NEAR(g[0][2], (f[1][2] - f[0][2]) / 0.2, 1e-12); // no point in front: a line
    EXPECT_NEAR(g[6][2], (f[6][2] - f[5][2]) / 0.2, 1e-12); // none behind: continued
    EXPECT_NEAR(g[1][3], (f[2][3] - f[1][3]) / 0.2, 1e-12); // a masked neighbour in front
    EXPECT_EQ(g[0][3], 0);                                  // itself masked
    EXPECT_EQ(g[0][1], 0);                                  // the first, alone
    EXPECT_NEAR(g[3][5], (f[4][5] - f[3][5]) / 0.2, 1e-12); // the second behind is masked: a line
    EXPECT_NEAR(g[4][5], (f[4][5] - f[3][5]) / 0.2, 1e-12); // the first behind is masked: continued
    EXPECT_NEAR(g[5][4], (f[5][4] - f[4][4]) / 0.2, 1e-12); // last but one: continued from whatever is in front
    EXPECT_EQ(g[3][6], 0);                                  // alone
    EXPECT_EQ(g[6][5], 0);
    calc_Hshift_grad(0.25, -0.75, 0.75, n, n, f, inside, g); // a whole pitch
    EXPECT_NEAR(g[3][2], (f[4][2] - f[3][2]) / 0.25, 1e-12);
    calc_Gshift_grad(s, -0.6, 0.6, n, n, f, inside, g);
    EXPECT_NEAR(g[2][3], 2 * cubic(0), 1e-12);
    EXPECT_NEAR(bicubic_intrpl(0.07, -0.33, n, n, x, x, f), std::pow(0.07, 3) - 2 * std::pow(0.33, 3), 1e-12);
    EXPECT_NEAR(bicubic_intrpl(0.59, -0.59, n, n, x, x, f), std::pow(0.59, 3) - 2 * std::pow(0.59, 3), 1e-12);
    gaussian_convolution(n, f, 1, nullptr);
    EXPECT_NEAR(f[6][6], 3 * 0.216, 1e-15);
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
    for (double width : {1e-11, 1e-13}) { // spread, or none; the average takes the first of the group either way
        set.thickness_width[0] = width;
        thickness_set(set, 1, list);
        EXPECT_EQ(list[0] < 100, width == 1e-11);
    }
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
    EXPECT_EQ(thickness_average(1, 1e-11, values, thirds), 1);
    EXPECT_EQ(thickness_average(1, -5, values, thirds), 2.5);
    free_ed(set);

    double** kernel = new_matrix<double>(3, 3);
    testing::internal::CaptureStdout();
    double** bell = new_matrix<double>(3, 3);
    calc_avrpix_wt(3, bell, 2);
    testing::internal::GetCapturedStdout();
    EXPECT_NEAR(bell[0][1] / bell[1][1], std::exp(-0.25), 1e-15);
    EXPECT_NEAR(bell[0][0] / bell[1][1], std::exp(-0.5), 1e-15);
    free_matrix(bell);
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
                data.pixel[p].flag = p != 3;
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
    tiny_set dark;
    for (int i = 0; i < 12; ++i)
        dark.data.sig[0][0][i] = -1;
    const fed sets[2] = {tiny.set, dark.set};
    const ei data[2] = {tiny.data, dark.data};
    const outcome both = run_child([&] { print_Rw_factors(stderr, 2, sets, data); print_scaled_Rw_factors(stdout, 2, sets, data); });
    const string block = text.substr(text.find(" Chisq")), dark_block = " Chisq = 0, Chisq_ZOLZ = 0, Chisq_HOLZ = 0\n)\n)\n";
    EXPECT_EQ(both.err, "Residual indices:\n # Data set 0:\n" + block + " # Data set 1:\n" + dark_block + " # Total data:\n" + block);
    EXPECT_TRUE(contains(both.out, "\n (Ref: Data set 0: Adjusted scale = 1.57143, Scaled R_w = 0.0740233)\n (Ref: Data set 1: Adjusted"));
    testing::internal::CaptureStdout();
    csd cell = {};
    cell.a = 4, cell.b = 5, cell.c = 6, cell.alpha = cell.beta = cell.gamma = 90;
    fit_res_output(1, &tiny.set, &tiny.data, cell, "b");
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

TEST(Reports, LowOrderValuesOfEachKindAndDataSets) {
    settings dir;
    const string set = data_set_text("0.8", "300", "0");
    const char* const lows[] = {"1\n1\n1 0 0\n1 ADJ a\n2 ADJ b\n", "1\n2\n1 0 0\n1 ADJ a\n2 ADJ b\n", "1\n3\n1 0 0\n1 ADJ a\n2 ADJ b\n3 ADJ c\n4 ADJ d\n", "1\n4\n1 0 0\n1 ADJ a\n2 ADJ b\n3 ADJ c\n4 ADJ d\n"};
    const string b = " [2] b= 2, esd= 0 (ini_val= 2)\n", c = " [3] c= 3, esd= 0 (ini_val= 3)\n", told[] = {b, b, b + c + " [4] d= 4, esd= 0 (ini_val= 4)\n", c};
    // Heads, and the lines of the reflection, as the writer has them.
    const char* const written[] = {"1    #lof_type\n# (total Fg)\n@1  ADJ  a  #Fg.re [A]\n2  ADJ  b  #Fg.im [A]\n", "2\n# (elastic Fg) \n@1  ADJ  a  #Fg_ela.re [A]\n2  ADJ  b  #Fg_ela.im [A]\n",
                                   "3\n# (elastic ang inelastic f)\n@1  ADJ  a  #f_ela [A]\n2  ADJ  b  #f_inela [A]\n3  ADJ  c  #f_ela [A]\n4  ADJ  d  #f_inela [A]\n", "# lof_type\n#  (elastic f)\n4\n@1  ADJ  a  #f_ela [A]\n2  ADJ  b  #f_inela [A]\n3  ADJ  c  #f_ela [A]\n4  ADJ  d  #f_inela [A]\n"};
    for (int type = 0; type < 4; ++type) {
        fit f(crystal_text(cell, {aniso, other_atom}, lows[type]), {set, set});
        const outcome shown = run_child([&] { par_output_short(f.cr, 2, f.sets, stderr, "x.txt"); print_LOW_ORDER_FG(stdout, f.cr); fit_end_message(stderr); });
        EXPECT_TRUE(begins_with(shown.out, string("\nRefined parameters:\n [0] v= 0.012, esd= 0 (ini_val= 0.012)\n [1] a= 1, esd= 0 (ini_val= 1)\n") + told[type] +
                                               " # Data set 0:\n SHIFT parameters output: x.txt\n # Data set 1:\n SHIFT parameters output: x.txt\n#\n# ---"))
            << shown.out;
        EXPECT_EQ(read_file("x.txt"), "HG SHIFT parameters\nExp. dataset: 0\nit= 0Exp. dataset: 1\nit= 0");
        EXPECT_TRUE(contains(shown.out, replaced("LOW_ORDER_FG{\n1  # Number of low-order g\n" + string(written[type]), "@", "#\n1  0  0  #hkl\n") + "}LOW_ORDER_FG\n")) << shown.out;
        EXPECT_TRUE(ends_with(shown.err, "\n** ORVEL has done a fitting job. You should judge if it is right!\n\n"));
    }
}

TEST(Reports, ParametersAndCorrelations) {
    settings dir;
    fit f(refined, {data_set_text("0.8 ADJ s", "300 ADJ t", "0.01 ADJ h")});
    double** cov = new_matrix<double>(5, 5);
    for (int i = 0; i < 5; ++i)
        cov[i][i] = 0.01;
    cov[0][1] = 0.0075;
    cov[2][3] = -0.0075;
    fitpar_sigma_to_csd_fed(f.cr, 1, f.sets, 5, cov);
    cov[4][4] = 0; // no correlation with what is not determined
    const outcome shown = run_child([&] {
        par_output_short(f.cr, 1, f.sets, stderr, "shift.txt");
        output_corr_coef(f.cr, 1, f.sets, 5, cov, "corr.txt", stdout);
    });
    const string parameters = "\nRefined parameters:\n [0] Bge= 0.5, esd= 0.1 (ini_val= 0.5, rst= 0.2)\n [1] xs= 0.3, esd= 0.1 (ini_val= 0.3)\n"
                              " [2] s= 0.8, esd= 0.1 (ini_val= 0.8)\n [3] t= 300, esd= 0.1 (ini_val= 300)\n SHIFT parameters output: shift.txt\n";
    EXPECT_EQ(shown.err, parameters);
    EXPECT_EQ(shown.out, parameters + "Correlation coef. output ==> corr.txt\nCorrelation coef. (>0.5):\n rho[ 0][ 1] =  0.75\n rho[ 2][ 3] = -0.75\n");
    EXPECT_EQ(read_file("shift.txt"), "HG SHIFT parameters\nit= 0 [4] h= 0.01, esd= 0.1 (ini_val= 0.01)\n");
    EXPECT_TRUE(begins_with(read_file("corr.txt"), "% corr.txt\nCorrelation coefficients:\n par[0]: Bge\n par[1]: xs\n par[2]: s\n par[3]: t\n par[4]: h\n"
                                                   " rho[ 0][ 1] =  0.75\n rho[ 0][ 2] =  0.00\n"));
    EXPECT_FALSE(contains(read_file("corr.txt"), "][ 4]"));
    free_matrix(cov);
}

// ---- the writer -----------------------------------------------------------------------------

TEST(Writer, TextsOfEachPiece) {
    settings dir;
    fit f(crystal_text(cell, {aniso}), {data_set_text("0.8 ADJ s", "300 RST t 4", "0.01 ADJ h")});
    output_FIT_MODE_file("out.dat", f.cr, 7, 1, f.sets, f.data);
    const string text = read_file("out.dat"), rule = "# ==================================================\n";
    // FIX values have names by their number in the process.
    const auto part = [&](const string& from, const string& to) { const size_t at = text.find(from); return text.substr(at, text.find(to, at) + to.size() - at); };
    EXPECT_TRUE(begins_with(text, "# out.dat\n# data format for orvel ver 3.*\n" + rule + "# job type\nFIT_MODE\n" + rule +
                                      "EPS_CONTROL_PARAMETERS{\nintensity_scaling  10000  #Scaling incident beam intensity\nauto_multiplicity_off  0  #0:normal 1:manual (for the split-atom method)\n}EPS_CONTROL_PARAMETERS\n" + rule +
                                      "# fitting parameter:\n#  value (or constraint), fitting flag, parameter's name\n#  - constraint:\n#  - fitting flag:   FIX:fix, ADJ:fit, CST:constrained\n#  - parameter's name: \n#\nCRYSTAL_STRUCTURE_DATA{\n#\nLATTICE{\n1    # space group number\n# lattice parameter\n"));
    EXPECT_TRUE(matches(part("4.1  FIX", "}ATOM\n"), "4.1  FIX  id@  #a[A]\n5.2  FIX  id@  #b[A]\n6.3  FIX  id@  #c[A]\n85  FIX  id@  #alpha[deg.]\n95  FIX  id@  #beta[deg.]\n100  FIX  id@  #gamma[deg.]\n}LATTICE\n#\nATOM{\n1    # number of independent sites\nSITE{\nSi\n"
                                                     "0.3  FIX  id@  #x (frac. coord.)\n0.11  FIX  id@  #y (frac. coord.)\n0.23  FIX  id@  #z (frac. coord.)\n1    # B type (0: isotropic, 1:anisotropic)\n0.012  ADJ  v  #beta11\n0.01  FIX  id@  #beta22\n0.008  FIX  id@  #beta33\n0.001  FIX  id@  #beta12\n0.002  FIX  id@  #beta13\n0.0005  FIX  id@  #beta23\n"
                                                     "1  FIX  id@  #occupancy (0-1)\n0  # f-table (0:Mott+BK, 1:B&K)\n}SITE\n}ATOM\n"));
    EXPECT_TRUE(contains(text, "# Low-order Fg for electrons\n#  - Angstrom unit without relativistic correction\n#  - lof_type\n#     1: total (ela + inela) Fg.re, Fg.im\n#     2: elastic Fg.re and Fg.im\n#  - The values for symmetrically-equivalent \n#     reflections are automatically generated.\n# ---"));
    EXPECT_TRUE(matches(part("}LOW_ORDER_FG", "}FIT"), "}LOW_ORDER_FG\n#\n}CRYSTAL_STRUCTURE_DATA\n" + rule + rule + "#\nFIT_CALCULATION_CONDITION{\nITER_EXP_NUM{\n7    #Max. number of iteration\n1    #Number of experimental data sets\n}ITER_EXP_NUM\n#\nDATA_SET{\n# Data set no. 0\n"
                                                                                                                     "INCIDENT_BEAM{\n0  0  1  #Incidence  (upward)\n0  0  1  #Surface normal (upward)\n1  0  0  #ZOLZ base vector\n0.1  FIX  id@  #H_tilt\n-0.05  FIX  id@  #G_tilt\n100  FIX  id@  #Accelerating Voltage [kV]\n}INCIDENT_BEAM\n#\n"
                                                                                                                     "CALC_KXY_RANGE{\n2  #0: 0D, 1: 1D, 2: 2D disk, 3: 2D square\n7  #num_cal_pix_side\n0.4    #Disksize\n}CALC_KXY_RANGE\n# ----- Beam search -------------------------\n# search method\n#   0: manual\n#   1,2,3: automatic + generalized Bethe approx.\n#          [1:wg, 2:sg, 3:sg-multi] \n#   11,12,13: automatic + simple Bethe approx.\n#             [11:wg, 12:sg, 13:sg-multi] \nBEAM_SEARCH{\n0  #search method\n#Manual type\n4  1    #num_exact_beam num_bethe_beam\n# hkl\n0  0  0\n1  0  0\n0  1  0\n-1  0  0\n1  1  0\n}BEAM_SEARCH\n#\n"
                                                                                                                     "INTENSITY_DATA{\n# Intensity file\nint.txt\n1    # Number of thicknesses\n2    # Number of reflections\n}INTENSITY_DATA\n#\nTHICKNESS_BLOCK{\n# Thickness No. 0 \nSTW_PAR{\n0.8  ADJ  s  #scale_factor\n300  RST  t  4  #thickness\n0  FIX  id@  #thickness_width[plus-minus]\n# num_thickwidth  0  # num_thickwidth * 2 + 1 --> calc. points\n# thickwidth_type  1  # 0:rectangle, 1:triangle, 2:Gaussian\n#\n"
                                                                                                                     "# Gaussian convolution:\n#   number of pixels (odd), Gaussian par. (a: exp(-x^2/a^2) )\n#   if num.=0 then no convolution\n0  0\n}STW_PAR\nREFLEX_SHIFT_PAR{\n#reflex 0\n0  0  0  1  #h k l weight\n0.01  ADJ  h  #H_shift\n0  FIX  id@  #G_shift\n#reflex 1\n1  0  0  0.5  #h k l weight\n0  FIX  id@  #H_shift\n0  FIX  id@  #G_shift\n}REFLEX_SHIFT_PAR\n}THICKNESS_BLOCK\n}DATA_SET\n}FIT"));
    const string limits = "# num_g_limit  g_max[A^{-1}]  lz_min  lz_max  disksize\n50  0.9  0  1  0.4\n";
    const std::pair<int, string> methods[] = {{1, "1  #search method\n#Auto type [wg]\n" + limits + "# w_g_bethe_min,  w_g_max,  xi_g_max\n2  3  9\n}BEAM_SEARCH\n"},
                                              {12, "12  #search method\n#Auto type [sg]\n" + limits + "# s_g_bethe_min,  s_g_max,  xi_g_max\n4  5  9\n}BEAM_SEARCH\n"},
                                              {3, "3  #search method\n#Auto type [sg-multi]\n" + limits + "# s_g_bethe_min,  s_g_max,  xi_g_max\n0.1  0.2  0.3  #d-LZ:\n0.4  0.5  0.6  #d-LZ:\n}BEAM_SEARCH\n"}};
    for (const auto& [flag_bs, lines] : methods) {
        fed set = {};
        set.beam_search = {flag_bs, 50, 0, 1, 0.9, 0.4, 2, 3, 4, 5, 9, {0.1, 0.4}, {0.2, 0.5}, {0.3, 0.6}};
        EXPECT_TRUE(ends_with(run_child([&] { print_BEAM_SEARCH(stdout, set); }).out, "BEAM_SEARCH{\n" + lines));
    }
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
    const string none = replaced(intensity_text(), "PAR{\n1\n2\n", "PAR{\n1\n-2\n");
    double picture_row[2] = {}, *picture[2] = {picture_row, picture_row};
    r_hkl K_t[4];
    int n = 0, m = 0;
    f.cr.lofg = new_vector<lofg_value>(1);
    f.cr.lofg_fitpar = new_vector<lofg_fitpar_set>(1);
    const auto in_cycle = [&](const std::function<void()>& change) {
        return [=, &f] { change(); double w[9]; f.sets[0].num_thickness = 1; thickweight_set(epsilon.num_thickwidth, w); double l[4]; thickness_set(f.sets[0], epsilon.num_thickwidth, l); };
    };
    expect_faults({
        {read(replaced(good, "{\n2\n7\n", "{\n4\n7\n")), "$$ Invalid calc_type=4. Abort.\n", ""},
        {read(replaced(good, "{\n2\n7\n", "{\n-1\n7\n")), "$$ Invalid calc_type=-1. Abort.\n", ""},
        {read(replaced(good, "{\n2\n7\n", "{\n2\n1\n")), "$$ Invalid num_pix_side(=1). Abort.\n", ""},
        {read(replaced(good, "CALC_KXY_RANGE{", "CALC_KXY_RANGE{ ")), "$$ Data format error has been found at CALC_KXY_RANGE{.\n$$ Abort.\n$$ buf=CALC_KXY_RANGE{ \n$$$$Error: CALC_KXY_RANGE must be placed before BEAM_SEARCH. $$\n", ""},
        {read(good, "FIT_DATA\n"), head + "$$ Data format error.\n$$ Abort.\n$$ buf=FIT_DATA\n", ""},
        {read(good, replaced(intensity_text(), "81 9", "80 9")), head + "$$ Data set does not agree with its intensity file (80, 9). Abort.\n", ""},
        {read(good, replaced(intensity_text(), "81 9", "1 1")), head + "$$ Data set does not agree with its intensity file (1, 1). Abort.\n", ""},
        {read(replaced(good, "int.txt\n1\n2\n", "int.txt\n1\n3\n")), head + "$$ Data set does not agree with its intensity file (3, 2). Abort.\n", ""},
        {read(good, replaced(intensity_text(), " 50\n\n", " 50\n")), head + "$$ Data format error has been found at .\n$$ Abort.\n$$ buf=2975\n", ""},
        {read(replaced(good, "300\n0\n0 0", "300\n5\n0 0")), head + "$$ thickwidth = 5 and num_thickwidth = 0. Abort.\n", ""},
        {read(replaced(good, "0 0\n}STW", "2 1\n}STW")), head + "$$ The number of averaging points must be odd number. Abort.\n$$ (calc_avrpix_wt)\n", ""},
        {read(replaced(good, "0 0\n}STW", "3 0\n}STW")), head + "$$ Gaussian_par must not be 0.0. Abort.\n", ""},
        {[&] { fed s = {}; std::FILE* t = text_stream("7\n"); fget_ed_beams(s, t); }, "", "Invalid flag_bs 7\n"},
        {[&] { fed s = {}; s.beam_search.flag_bs = 0; auto_ed_beams(s, f.cr); }, "$$ Invalid beam_search.flag_bs. (0) Abort.\n", ""},
        {[&] { f.sets[0].calc_type = 1; calc_K_xy_cbed(f.sets[0], lattice_of(f.cr), f.data[0], K_t, m); }, "", "$$(Calc_K_xy_cbed) Invalid calc_type (=1). Abort.\n"},
        {[&] { f.sets[0].num_pix_side = -1; calc_K_xy_cbed(f.sets[0], lattice_of(f.cr), f.data[0], K_t, m); }, "$$ Wrong ct(=0) in calc_K_xy_cbed. Abort.\n", ""},
        {in_cycle([] { epsilon.num_thickwidth = -1; }), "$$ num_thickwidth = -1. Abort.\n", ""},
        {in_cycle([] { epsilon.num_thickwidth = 1; epsilon.thickwidth_type = 3; }), "$$ Sorry, thickwidth_type=3 is not supported. Abort.\n", ""},
        {[&] { cycle_intensities c = {}; c.n = -1; scale_tav(f.sets[0], 0, 0, 0, c); }, "$$ num_thickwidth must not be less than 0. Abort.\n", ""},
        {[&] { gaussian_convolution(2, picture, 2, picture); }, "$$num_avrpix = 2: num_avrpix must be odd number. Abort.\n$$(gaussian_convolution)\n", ""},
        {[&] { gaussian_conv(2, 2, picture, 4, picture); }, "$$num_avrpix = 4: num_avrpix must be odd number. Abort.\n$$(gaussian_conv)\n", ""},
        {[&] { calc_Hshift_grad(-0.1, -1, 1, 2, 2, picture, nullptr, picture); }, "$$(calc_Hshift_int) Hshift(=-0.1) must be positive. Abort.)", ""},
        {[&] { calc_Gshift_grad(3, -1, 1, 2, 2, picture, nullptr, picture); }, "$$ (calc_Gshift_int) Too large shift. Abort.)", ""},
        {read(replaced(good, "int.txt\n1\n2\n", "int.txt\n1\n-2\n"), none.substr(0, none.find("RF{")) + "}THICKNESS\n"), head + "$$ Data set does not agree with its intensity file (-2, -2). Abort.\n", ""},
        {[&] { fed s; ei d; std::FILE* t = text_stream("CALC_KXY_RANGE{\n2\n46341\n"); read_CALC_KXY_RANGE(s, d, t); }, "", "Not enough memory for vector.\n"},
        {in_cycle([] { epsilon.num_thickwidth = INT_MIN; epsilon.thickwidth_type = 1; }), "$$ num_thickwidth = -2147483648\n$$ num_thickwidth = -2147483648. Abort.\n", ""},
        {[&] { search_csd_fed(0, f.cr, 0, f.sets); }, "$$error: (search_csd_fed) invalid ntp=0\n", ""},
        {[&] { f.cr.site[0].bf = 3; search_csd_fed(0, f.cr, 1, f.sets); }, "$$error: invalid bf\n", ""},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 6; search_csd_fed(0, f.cr, 1, f.sets); }, "$$error: (fget_low_g_cst) invalid lof_type(=6)\n", ""},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 6; list_csd_values(f.cr); }, "$$ Invalid lof_type 6. Abort.\n", ""},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 5; search_csd_fed(0, f.cr, 1, f.sets); }, "$$error: lof_type=5 not available\n", ""},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 0; search_csd_fed(0, f.cr, 1, f.sets); }, "$$error: (fget_low_g_cst) invalid lof_type(=0)\n", ""},
        {[&] { work_cal_int w; calc_intensity_ug_coherent({}, 0, {}, {}, 0, 0, nullptr, nullptr, 1, nullptr, 0, nullptr, 0, nullptr, 0, {}, {}, {}, 0, 0, 0, nullptr, nullptr, w); },
         "$$error: perturbation is not available in coherent mode.\n", ""},
        {[&] { search_csd_fed(5, f.cr, 1, f.sets); }, "$$error: (search_csd_fed) invalid ntp=5\n", ""},
        {[&] { val_search_fed("nobody", 1, f.sets); }, "$$error: (val_search_fed) constraint nobody not found\n", ""},
        {[&] { f.sets[0].kv_fitpar.idx = kind_rst; count_num_fitpar(f.cr, 1, f.sets, n, n, n, n); }, "$$ Restraint width of " + string(f.sets[0].kv_fitpar.id) + " is 0. Abort.\n", ""},
        {[&] { fprintf_cstr({7, 0, 0, 0, 0, 0, "", ""}, 0, "", stderr); }, "$$(fprintf_cstr) Invalid flg(=7). Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; print_CRYSTAL_STRUCTURE_DATA(std::tmpfile(), f.cr); }, "$$ Invalid b_flag. Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; par_output_short(f.cr, 0, f.sets, stderr, "x"); }, "\nRefined parameters:\nInvalid b_flag.\n", "\nRefined parameters:\n"},
        {[&] { f.cr.num_lofg = 1; f.cr.lof_type = 6; print_LOW_ORDER_FG(std::tmpfile(), f.cr); }, "$$ Invalid lof_type (=6). Abort.\n", ""},
    });
    const outcome wide = run_child([&] { epsilon.num_thickwidth = INT_MAX; f.loud_cycle(); });
    EXPECT_EQ(wide.err, "Not enough memory for vector.\n");
    f.cr.lof_type = 7;
    f.cr.num_lofg = 1;
    EXPECT_TRUE(contains(run_child([&] { par_output_short(f.cr, 1, f.sets, stderr, "x"); }).out, "$$ invalid lof_type (=7).\n SHIFT"));
    std::free(f.cr.lofg);
    std::free(f.cr.lofg_fitpar);
    f.cr.num_lofg = 0;
    const outcome missing = run_child([&] { f.data[0].reflex_hkl[1] = {9, 0, 0}; f.loud_cycle(); });
    EXPECT_TRUE(ends_with(missing.out, "$$ calc_cbed_pattern_perturb: 9 0 0 not found. Abort.")) << missing.out;
    EXPECT_EQ(missing.status, 1);
    const outcome outside = run_child([&] { f.sets[0].H_shift[1][0] = 0.2; f.loud_cycle(); });
    EXPECT_TRUE(contains(outside.out, "$$Warning: out of area. g=1 0 0\n")) << outside.out;
    EXPECT_FALSE(contains(outside.out, "g=0 0 0"));
}

} // namespace
