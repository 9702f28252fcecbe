// SPDX-License-Identifier: MIT
//
// Around a refinement cycle: numbering and copies, measured data sets, the model of the experiment, the
// reports and the writer against reference files, and what stops a refinement.
#include <climits>
#include <cmath>
#include <cstring>

#include "control/ov_mpi.h"
#include "refine_util.h"
#include "solver/ovfunc_tilt.h"

using namespace orvel;
using namespace orvel_test;
using std::string;

namespace {

// ---- parameters and records -----------------------------------------------------------------

TEST(Cycle, GridOfTangentialVectors) {
    const lattice lat = bravai(4.1, 5.2, 6.3, 85, 95, 100);
    pixel grid[9];
    r_hkl K_t[9];
    int effective;
    const r_hkl e1 = {1, 0.5, -0.5}, e2 = zolz_ort_base({0, 1, 1}, e1, lat);
    fed set = {};
    static_cast<incidence&>(set) = {{0, 1, 1}, {}, e1, 0.1, -0.2, 100};
    set.calc_type = mesh_disk;
    set.disksize = 0.4;
    set.num_pix_side = 3;
    ei intensity = {};
    intensity.pixel = grid;
    calc_K_xy_cbed(set, lat, intensity, K_t, effective);
    EXPECT_EQ(std::vector<int>({intensity.num_pix, effective, grid[5].ih, grid[5].ig, grid[5].flag, grid[8].flag}),
              std::vector<int>({9, 5, 2, 1, 1, 0}));
    EXPECT_NEAR(K_t[5].h, 0.5 * (0.5 * e1.h - 0.2 * e2.h), 1e-15); // H = 0.1 + 0.4, G = -0.2
    EXPECT_NEAR(K_t[5].k, 0.5 * (0.5 * e1.k - 0.2 * e2.k), 1e-15);
    EXPECT_NEAR(K_t[5].l, 0.5 * (0.5 * e1.l - 0.2 * e2.l), 1e-15);
    EXPECT_NEAR(K_t[7].h, 0.5 * (0.1 * e1.h + 0.2 * e2.h), 1e-15);
}

static void expect_copies(fit_value_list a, fit_value_list b, int raised) {
    for (int i = 0; i < a.count; ++i) {
        const fitpar& descriptor = *a.at[i].descriptor;
        EXPECT_NE(a.at[i].value, b.at[i].value);
        EXPECT_EQ(*b.at[i].value, *a.at[i].value + (descriptor.ntp == raised ? descriptor.step : 0)) << i;
        EXPECT_STREQ(b.at[i].descriptor->id, descriptor.id);
    }
    std::free(a.at);
    std::free(b.at);
}

TEST(Parameters, OrderStepsConstraintsAndCopies) {
    const fit_files dir;
    // What has no weight is not adjusted; a remark is no weight.
    fit f(with(dir.text, {{"0.12  FIX  fi", "0.12  ADJ  fi"},
                          {"0.1  FIX  H0", "0.1  ADJ  H0"},
                          {"-0.05  FIX  G0", "-0.05  ADJ  G0"},
                          {"100  FIX  kv0", "100  ADJ  kv0"},
                          {"0  FIX  w0", "0  ADJ  w0"},
                          {"1  0  0  0.5  #h k l weight\n0  FIX", "1  0  0  0\n0  ADJ"},
                          {"-0.02  FIX  g1", "-0.02  RST  g1  1"},
                          {"0  1  -1  3", "0  1  -1  % 3"}}));
    string names;
    for (int i = 0; i < f.num_par; ++i)
        names += string(search_csd_fed(i, f.cr, 2, f.sets).id) + " ";
    EXPECT_EQ(names, "a Bg xs b11 b23 b13 fe fi q H0 G0 kv0 s0 t0 w0 g1 t1 s2 t2 s3 g6 h7 ");
    EXPECT_EQ(f.num_csd, 9);
    EXPECT_EQ(f.num_rst, 6);
    EXPECT_EQ(f.slots, 6 + 5 + 10 + 8 + 2 * (1 + 2 * (2 + 4)));
    EXPECT_EQ(f.sets[1].weight[1][1], 1);
    f.cycle();
    EXPECT_DOUBLE_EQ(f.sets[0].scale_factor[1], 0.5 * 0.8 + 0.1 * 0.6); // names of all sets
    EXPECT_EQ(f.sets[1].thickness[1], 360);
    EXPECT_NEAR(f.cr.site[1].y, 0.1, 1e-15);
    EXPECT_DOUBLE_EQ(f.sets[0].thickness_fitpar[0].step, 0.03);
    EXPECT_EQ(f.sets[0].H_shift_fitpar[1][0].step, 1e-10);
    EXPECT_EQ(f.sets[0].thickness_width_fitpar[0].step, 0);
    EXPECT_DOUBLE_EQ(eval_step(-2), 2e-4);

    double** const bell = f.sets[0].avrpix_wt[0]; // of parameter 1.5
    EXPECT_NEAR(bell[0][1] / bell[1][1], std::exp(-1 / 2.25), 1e-15);
    EXPECT_NEAR(bell[0][0] / bell[1][1], std::exp(-2 / 2.25), 1e-15);
    EXPECT_NEAR(4 * bell[0][0] + 4 * bell[0][1] + bell[1][1], 1, 1e-15);
    EXPECT_EQ(read_file("convlt.dat"), reference("convlt.txt"));

    csd copy;
    alloc_csd(f.cr.num_sym_op, 2, 2, copy);
    alloc_csd_sub_cstr(2, 2, f.cr.lof_type, copy);
    cpy_csd(f.cr, copy);
    EXPECT_EQ(copy.lofg_hkl[1].h, 9);
    make_csd_perturb(4, f.cr, copy);
    expect_copies(list_csd_values(f.cr), list_csd_values(copy), 4);
    fed other;
    alloc_ed(f.sets[0].beam_search, 7, 2, 2, other);
    EXPECT_EQ(console_of([&] { cpy_fed(1, f.sets, &other); }), "$$Weights for convolution --> convlt.dat\n");
    expect_copies(list_fed_values(1, f.sets), list_fed_values(1, &other), 99);
    EXPECT_EQ(other.avrpix_wt[0][0][1], bell[0][1]);
    EXPECT_EQ(other.reflex_sel[6].k, -2);
    EXPECT_EQ(other.g_len[1], f.sets[0].g_len[1]);
    free_csd(copy);
    free_ed(other);
    fed searched;
    alloc_ed(f.sets[1].beam_search, 0, 2, 2, searched);
    console_of([&] { cpy_fed(1, f.sets + 1, &searched); });
    EXPECT_EQ(searched.reflex_sel, nullptr);
    free_ed(searched);
}

TEST(Readers, MeasuredPointsStandOnTheirSquare) {
    const fit_files dir;
    // Not measured are point 10 of the first reflection, and 78 of the last, whose point 79 has sigma 0.
    string text = replaced(dir.a_int, "_RAW", "_BGS");
    text = replaced(text, "\n915 51\n", "\n915 -51\n");
    const size_t last = text.rfind("RF{");
    const string end = with(text.substr(last), {{"\n740 57\n", "\n740 -57\n"}, {"\n780 58\n", "\n780 0\n"}});
    write_file("a.int", text.substr(0, last) + end);
    fit f(dir.text);
    const ei& e = f.data[0];
    EXPECT_EQ(f.sets[0].beam_search.disksize, 0.4);
    EXPECT_EQ(e.obs_raw[0][0][10], 915);
    EXPECT_EQ(e.sig_raw[0][0][10], -51);
    EXPECT_EQ(std::vector<int>({e.obs_pixel[10].flag, e.obs_pixel[78].flag, e.obs_pixel[79].flag, e.obs_pixel[10].ih,
                                e.obs_pixel[10].ig}),
              std::vector<int>({1, 0, 1, 1, 1}));
    EXPECT_DOUBLE_EQ(e.obs_pixel[12].h, 0.1 - 0.5 + 3 * 0.125);
    EXPECT_DOUBLE_EQ(e.obs_pixel[21].g, -0.05 - 0.45 + 2 * 0.1125);
    // On the bounds: none beyond.
    int outside;
    measured_cell c = find_mat_ii_obs(e.obs_h_max, -0.2, e, e.obs_raw[1][0], e.sig_raw[1][0], outside);
    EXPECT_EQ(std::vector<double>({c.u, c.i00, c.i10, c.s10}), std::vector<double>({0, 820 - 25 * 2, 0, 1}));
    EXPECT_EQ(outside, 0);
    c = find_mat_ii_obs(e.obs_h_min, e.obs_g_max, e, e.obs_raw[1][0], e.sig_raw[1][0], outside);
    EXPECT_EQ(std::vector<double>({c.v, c.i00, c.i01, c.s01}), std::vector<double>({0, 500 - 25 * 8, 0, 1}));

    // One pixel between the points (2, 3), (3, 3), (2, 4), (3, 4) of a plane, of sigmas of a plane, once shifted
    // there.
    pixel at = {0, 0, 1, 0.1 - 0.5 + 2.25 * 0.125 + 0.03, -0.05 - 0.45 + 3.5 * 0.1125 - 0.02};
    ei single = e;
    single.num_pix = 1;
    single.pixel = &at;
    double *sig = e.sig_raw[0][0], &obs_at = e.obs[0][0][0], &sig_at = e.sig[0][0][0];
    const auto sample = [&](double H_shift, double G_shift) {
        calc_extr_obs_int(H_shift, G_shift, single, 0, 0, outside);
    };
    for (int i = 0; i < 81; ++i)
        sig[i] = 50 + i % 9 + 2 * (i / 9);
    sample(0.03, -0.02);
    EXPECT_NEAR(obs_at, 900 + 40 * 2.25 - 25 * 3.5, 1e-9);
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
    // A point lands where the kernel's element says, turned by nothing; what leaves the picture is lost.
    double **picture = new_matrix<double>(3, 3), **kernel = new_matrix<double>(3, 3);
    picture[0][0] = 10;
    picture[1][1] = 1;
    kernel[0][0] = 5;
    kernel[1][1] = 2;
    kernel[2][1] = 3;
    gaussian_convolution(3, picture, 3, kernel);
    EXPECT_EQ(std::vector<double>({picture[0][0], picture[1][0], picture[1][1], picture[2][1], picture[0][1]}),
              std::vector<double>({5 + 10 * 2, 10 * 3, 2, 3, 0}));
    EXPECT_NEAR(bilin_intrpl(0.25, 0.5, 1, 5, 3, 7), 3, 1e-15);
    for (double** m : {f, g, picture, kernel})
        free_matrix(m);
    free_matrix(inside);
}

// ---- residuals and reports ------------------------------------------------------------------

// A data set of R reflections, T thicknesses and 2 x 2 points, whose numbers the caller fills in.
struct tiny_set {
    fed set;
    ei data = {};
    tiny_set(int R, int T, uvw zone, r_hkl base1, double h_tilt, double g_tilt, double disksize) {
        alloc_ed({}, 1, R, T, set);
        set.zone_uvw = zone;
        set.zolzbase1 = base1;
        set.h_tilt = h_tilt;
        set.g_tilt = g_tilt;
        set.disksize = disksize;
        data.num_pix = data.num_obs_pix = 4;
        data.num_pix_side = data.num_obs_pix_side = 2;
        alloc_ei(R, T, data);
    }
    ~tiny_set() {
        free_ed(set);
        free_ei(data);
    }
    void point(int r, int t, int p, double obs, double cal, double sig, int flag) {
        data.obs[r][t][p] = data.obs_raw[r][t][p] = obs;
        data.cal[r][t][p] = cal;
        data.sig[r][t][p] = data.sig_raw[r][t][p] = sig;
        data.pixel[p].flag = flag;
    }
};

// Two data sets. The first has reflections of the zones 0, 1 and -1, and at each thickness one point that
// counts, one of sigma 0, one of sigma -1, and one outside the disk; the second has the zone 0 alone.
TEST(Reports, PatternsAndResidualsOfHandMadeNumbers) {
    const table_dir dir;
    tiny_set first(3, 2, {0, 0, 1}, {1, 0.5, 0}, 0.1, -0.05, 0.4), second(2, 1, {0, 1, 1}, {1, 0, 0}, -0.2, 0.3, 0.7);
    const double obs[2][3] = {{10, 11, 15}, {20, 21, 25}}, cal[2][4] = {{3, 5, 5, 8}, {6, 10, 14, 10}};
    for (int r = 0; r < 3; ++r)
        for (int t = 0; t < 2; ++t) {
            first.data.reflex_hkl[r] = {r, 0, r == 2 ? -1 : r};
            first.set.weight[r][t] = t == 0 ? 4 : 32;
            first.point(r, t, 0, obs[t][r], t == 0 ? 8 : 14, 2 + 2 * t, 1);
            first.point(r, t, 1, 5, 1, 0, 1);
            first.point(r, t, 2, 6, 1, -1, 1);
            first.point(r, t, 3, 2 * obs[t][r], 1, 2 + 2 * t, 0);
        }
    for (int r = 0; r < 2; ++r)
        for (int p = 0; p < 4; ++p) {
            second.data.reflex_hkl[r] = {r, r, -r};
            second.set.weight[r][0] = r == 0 ? 1 : 0.25;
            second.point(r, 0, p, (4 + p) * (r + 1), cal[r][p], 1, 1);
        }
    const fed sets[2] = {first.set, second.set};
    const ei data[2] = {first.data, second.data};
    const outcome shown = run_child([&] {
        for (int i = 0; i < 2; ++i) {
            print_Rw_factors(stderr, 2 - i, sets + i, data + i);
            print_scaled_Rw_factors(stdout, 2 - i, sets + i, data + i);
            print_int_ratio(stdout, 2 - i, sets + i, data + i);
        }
    });
    const string all = reference("residuals.txt");
    EXPECT_EQ(shown.out, all);
    const size_t blank = all.find("\n\n") + 1, again = all.rfind("Residual");
    EXPECT_EQ(shown.err, all.substr(0, blank) + all.substr(again, all.find("\n\n", again) + 1 - again));
    double chisq = 0;
    string warnings;
    for (int i = 0; i < 6; ++i)
        warnings += "$$Warning: obs_int obs_sig = 5 0\n";
    EXPECT_EQ(console_of([&] { chisq = calc_chisq(first.set, first.data); }), warnings);
    EXPECT_EQ(chisq, 474);
    csd cell = {};
    cell.a = 4, cell.b = 5, cell.c = 6, cell.alpha = 80, cell.beta = 95, cell.gamma = 100;
    EXPECT_EQ(console_of([&] { fit_res_output(2, sets, data, cell, "b"); }),
              "Result: res file      -- b0.txt\nResult: res file      -- b1.txt\n");
    EXPECT_EQ(read_file("b0.txt"), reference("fit_result0.txt"));
    EXPECT_EQ(read_file("b1.txt"), reference("fit_result1.txt"));
}

TEST(Reports, ParametersCorrelationsAndEnds) {
    const fit_files dir;
    fit f(dir.text);
    double** cov = new_matrix<double>(16, 16);
    for (int i = 0; i < 16; ++i)
        cov[i][i] = i == 6 ? 0 : 1e-4 * (i + 1) * (i + 1); // fe is not determined
    cov[0][1] = 0.75 * 0.01 * 0.02;
    cov[3][12] = -0.6 * 0.04 * 0.13;
    cov[2][5] = 0.45 * 0.03 * 0.06;
    fitpar_sigma_to_csd_fed(f.cr, 2, f.sets, 16, cov);
    const outcome shown = run_child([&] {
        par_output_short(f.cr, 2, f.sets, stderr, "shift.txt");
        output_corr_coef(f.cr, 2, f.sets, 16, cov, "corr.txt", stdout);
    });
    EXPECT_EQ(shown.err, reference("parameters.txt"));
    EXPECT_EQ(shown.out, reference("parameters.txt") + reference("corr_console.txt"));
    EXPECT_EQ(read_file("shift.txt"), reference("shift.txt"));
    EXPECT_EQ(read_file("corr.txt"), reference("corr.txt"));
    free_matrix(cov);
    const outcome ends = run_child([] {
        for (int status : {1, 2, 3, -1, 0})
            output_fit_diagnostics(status, 3, 0.5, 1e7, stderr);
        fit_end_message(stderr);
    });
    EXPECT_EQ(ends.out, reference("ends.txt"));
    EXPECT_EQ(ends.err, ends.out);
}

// ---- the writer -----------------------------------------------------------------------------

// The text with the block behind a place replaced by that of a reference file.
static string with_block(string text, const string& file, size_t from = 0) {
    const string block = reference(file), word = block.substr(0, block.find('{'));
    const size_t at = text.find(word + "{\n", from), end = text.find("}" + word, at) + word.size() + 2;
    return text.replace(at, end - at, block);
}

// A file in the writer's form comes back as it is, whatever its low-order reflections and searches.
TEST(Writer, WritesWhatWasRead) {
    const fit_files dir;
    const string fi = "4.5)\n [7] fi= 0.3, esd= 0 (ini_val= 0.3)\n [8] q=";
    const size_t second = dir.text.find("# Data set no. 1");
    const struct {
        string text, low_order, search;
    } cases[] = {
        {dir.text, " [6] fe= 4.5, esd= 0 (ini_val= 4.5)\n [7] q=", "sg"},
        {with_block(dir.text, "low_order_1.txt"), fi, "sg"},
        {with_block(dir.text, "low_order_2.txt"), fi, "sg"},
        {with_block(dir.text, "low_order_4.txt"), "4.5)\n [8] q=", "sg"},
        {with_block(dir.text, "search_wg.txt", second), "", "wg"},
        {with_block(dir.text, "search_sg.txt", second), "", "sg"},
    };
    for (const auto& c : cases) {
        fit f(c.text);
        output_FIT_MODE_file("fit.dat", f.cr, f.max_iteration, 2, f.sets, f.data);
        EXPECT_EQ(read_file("fit.dat"), c.text);
        const string shown = console_of([&] { par_output_short(f.cr, 2, f.sets, f.log, "x"); });
        EXPECT_TRUE(contains(shown, c.low_order)) << shown;
        const string told = console_of([&] { auto_ed_beams(f.sets[1], f.cr); });
        EXPECT_TRUE(begins_with(told, "Beam search (" + c.search + ") ... $$ Exact = ")) << told;
    }
}

// ---- faults ---------------------------------------------------------------------------------

TEST(RefineFaults, OfFiles) {
    const fit_files dir;
    const string disagrees = "$$ Data set does not agree with its intensity file ", a = dir.a_int;
    const string none = "THICKNESS{\n}THICKNESS\n", last = a.substr(a.rfind("RF{"));
    const struct {
        std::array<string, 2> change, in_data;
        string end;
    } cases[] = {
        {{"{\n2  #0", "{\n4  #0"}, {}, "$$ Invalid calc_type=4. Abort.\n"},
        {{"{\n2  #0", "{\n-1  #0"}, {}, "$$ Invalid calc_type=-1. Abort.\n"},
        {{"7  #num_cal", "1  #num_cal"}, {}, "$$ Invalid num_pix_side(=1). Abort.\n"},
        {{"7  #num_cal", "46341  #num_cal"}, {}, "Not enough memory for vector.\n"},
        {{"KXY_RANGE{", "KXY_RANGE{ "},
         {},
         "$$ Data format error has been found at CALC_KXY_RANGE{.\n$$ Abort.\n$$ buf=CALC_KXY_RANGE{ \n"
         "$$$$Error: CALC_KXY_RANGE must be placed before BEAM_SEARCH. $$\n"},
        {{"0  #search", "7  #search"}, {}, "Invalid flag_bs 7\n"},
        {{"2    # Number of ref", "3    # Number of ref"}, {}, disagrees + "(3, 2). Abort.\n"},
        {{"2    # Number of thick", "1    # Number of thick"}, {}, disagrees + "(1, 2). Abort.\n"},
        {{"2    # Number of ref", "-2    # Number of ref"},
         {a.substr(a.find("2\n81 9")), "-2\n81 9\n0 1 0 1\n}PAR\n" + none + none},
         disagrees + "(-2, -2). Abort.\n"},
        {{}, {a, "FIT_DATA\n"}, "$$ Data format error.\n$$ Abort.\n$$ buf=FIT_DATA\n"},
        {{}, {"81 9", "80 9"}, disagrees + "(80, 9). Abort.\n"},
        {{}, {"81 9", "1 1"}, disagrees + "(1, 1). Abort.\n"},
        {{}, {" 58\n\n", " 58\n"}, "$$ Data format error has been found at .\n$$ Abort.\n$$ buf=875\n"},
        {{"0  FIX  w0", "5  FIX  w0"}, {}, "$$ thickwidth = 5 and num_thickwidth = 0. Abort.\n"},
        {{"3  1.5", "2  1.5"},
         {},
         "$$ The number of averaging points must be odd number. Abort.\n$$ (calc_avrpix_wt)\n"},
        {{"3  1.5", "3  0"}, {}, "$$ Gaussian_par must not be 0.0. Abort.\n"},
        {{"100  FIX  kv0", "100  RST  kv0  0"}, {}, "$$ Restraint width of kv0 is 0. Abort.\n"},
        {{"=h0+", "=nobody+"}, {}, "$$error: (val_search_fed) constraint nobody not found\n"},
        {{"0  1  -1  3  #h k l weight", "0  1"}, {}, "$$(fget_hkl_weight) Format error. Abort. buf=0."},
        {{}, {last, replaced(last, "1 0 0", "9 0 0")}, "$$ calc_cbed_pattern_perturb: 9 0 0 not found. Abort."},
    };
    for (const auto& c : cases) {
        write_file("a.int", c.in_data[0].empty() ? a : replaced(a, c.in_data[0], c.in_data[1]));
        const outcome end = run_child([&] {
            fit f;
            f.read(c.change[0].empty() ? dir.text : replaced(dir.text, c.change[0], c.change[1]));
            f.loud_cycle();
        });
        EXPECT_TRUE(ends_with(end.err.empty() ? end.out : end.err, c.end)) << c.end << end.out << end.err;
        EXPECT_EQ(end.status, 1) << c.end;
    }
}

TEST(RefineFaults, EachMessageOnce) {
    const fit_files dir;
    fit f(dir.text);
    double picture_row[2] = {}, *picture[2] = {picture_row, picture_row}, list[9];
    const auto grid_of = [&](int calc_type, int num_pix_side) {
        return [=, &f] {
            r_hkl K_t[4];
            int effective;
            f.sets[0].calc_type = calc_type;
            f.sets[0].num_pix_side = num_pix_side;
            calc_K_xy_cbed(f.sets[0], lattice_of(f.cr), f.data[0], K_t, effective);
        };
    };
    const string no_bf = "\nRefined parameters:\n [0] a= 4.1, esd= 0 (ini_val= 4.1)\n";
    const auto widths = [&](int num_thickwidth, int type) {
        return [=, &f, &list] {
            epsilon.thickwidth_type = type;
            thickweight_set(num_thickwidth, list);
            thickness_set(f.sets[0], num_thickwidth, list);
        };
    };
    const auto invalid = [&](int lof_type, const std::function<void()>& call) {
        return [=, &f] { f.cr.lof_type = lof_type; call(); };
    };
    const auto searched = [&] { search_csd_fed(0, f.cr, 1, f.sets); };
    expect_faults({
        {[&] { auto_ed_beams(f.sets[0], f.cr); }, "$$ Invalid beam_search.flag_bs. (0) Abort.\n", ""},
        {grid_of(mesh_line, 2), "", "$$(Calc_K_xy_cbed) Invalid calc_type (=1). Abort.\n"},
        {grid_of(mesh_disk, -1), "$$ Wrong ct(=0) in calc_K_xy_cbed. Abort.\n", ""},
        {widths(-1, 2), "$$ num_thickwidth = -1. Abort.\n", ""},
        {widths(INT_MIN, 1), "$$ num_thickwidth = -2147483648\n$$ num_thickwidth = -2147483648. Abort.\n", ""},
        {widths(1, 3), "$$ Sorry, thickwidth_type=3 is not supported. Abort.\n", ""},
        {[&] { cycle_intensities c = {}; c.n = -1; scale_tav(f.sets[0], 0, 0, 0, c); },
         "$$ num_thickwidth must not be less than 0. Abort.\n", ""},
        {[&] { gaussian_convolution(2, picture, 2, picture); },
         "$$num_avrpix = 2: num_avrpix must be odd number. Abort.\n$$(gaussian_convolution)\n", ""},
        {[&] { gaussian_conv(2, 2, picture, 4, picture); },
         "$$num_avrpix = 4: num_avrpix must be odd number. Abort.\n$$(gaussian_conv)\n", ""},
        {[&] { calc_Hshift_grad(-0.1, -1, 1, 2, 2, picture, nullptr, picture); },
         "$$(calc_Hshift_int) Hshift(=-0.1) must be positive. Abort.)", ""},
        {[&] { calc_Gshift_grad(3, -1, 1, 2, 2, picture, nullptr, picture); },
         "$$ (calc_Gshift_int) Too large shift. Abort.)", ""},
        {[&] { search_csd_fed(0, f.cr, 0, f.sets); }, "$$error: (search_csd_fed) invalid ntp=0\n", ""},
        {[&] { search_csd_fed(16, f.cr, 2, f.sets); }, "$$error: (search_csd_fed) invalid ntp=16\n", ""},
        {[&] { f.cr.site[0].bf = 3; searched(); }, "$$error: invalid bf\n", ""},
        {invalid(6, searched), "$$error: (fget_low_g_cst) invalid lof_type(=6)\n", ""},
        {invalid(5, searched), "$$error: lof_type=5 not available\n", ""},
        {invalid(0, searched), "$$error: (fget_low_g_cst) invalid lof_type(=0)\n", ""},
        {invalid(6, [&] { list_csd_values(f.cr); }), "$$ Invalid lof_type 6. Abort.\n", ""},
        {invalid(6, [&] { print_LOW_ORDER_FG(f.log, f.cr); }), "$$ Invalid lof_type (=6). Abort.\n", ""},
        {[&] { fprintf_cstr({7, 0, 0, 0, 0, 0, "", ""}, 0, "", f.log); },
         "$$(fprintf_cstr) Invalid flg(=7). Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; print_CRYSTAL_STRUCTURE_DATA(f.log, f.cr); }, "$$ Invalid b_flag. Abort.\n", ""},
        {[&] { f.cr.site[0].bf = 3; par_output_short(f.cr, 0, f.sets, stderr, "x"); },
         no_bf + "Invalid b_flag.\n", no_bf},
        {[&] { val_search_fed("nobody", 2, f.sets); }, "$$error: (val_search_fed) constraint nobody not found\n", ""},
        {[] {
             work_cal_int w;
             tilt_problem p = {};
             p.num_perturb = 1;
             calc_intensity_ug_coherent(p, {}, {}, nullptr, w);
         },
         "$$error: perturbation is not available in coherent mode.\n", ""},
    });
    const outcome wide = run_child([&] { epsilon.num_thickwidth = INT_MAX; f.loud_cycle(); });
    EXPECT_EQ(wide.err, "Not enough memory for vector.\n");
    const string told = run_child(invalid(7, [&] { par_output_short(f.cr, 1, f.sets, stderr, "x"); })).out;
    EXPECT_TRUE(contains(told, "$$ invalid lof_type (=7).\n$$ invalid lof_type (=7).\n [8] s0")) << told;
    f.sets[0].H_shift[1][0] = 0.2;
    const string outside = f.cycle();
    EXPECT_TRUE(contains(outside, "$$Warning: out of area. g=1 0 0\n")) << outside;
    EXPECT_FALSE(contains(outside, "g=0 "));
}

} // namespace
