// SPDX-License-Identifier: MIT
//
// Whole runs of SIM_MODE on tiny problems: every line of console and files, the dumps, and all that
// stops the job. Most runs have two beams of given structure factors, whose intensities are known.
#include <algorithm>
#include <cmath>

#include "job_util.h"

using namespace orvel_test;
using orvel::pi;
namespace fs = std::filesystem;

// A cell of 4 x 5 x 6 angstrom with F(000) = 9.6 and F(100) = F(-100) = 2.4 at 100 kV: K = 27.0170930845
// and U = 0.00761203123284 for 100; without absorption.
static const std::string two_beams =
    "SIM_MODE\nEPS_CONTROL_PARAMETERS{\n# SETTINGS\n}EPS_CONTROL_PARAMETERS\n" +
    crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n1\n0\n"},
                 "3\n1\n0 0 0\n9.6\n0\n1 0 0\n2.4\n0\n-1 0 0\n2.4\n0\n") +
    "SIM_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n-0.5\n0.25\n100\n}INCIDENT_BEAM\n"
    "CALC_KXY_RANGE{\n0\n3\n0.5\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n0\n2 0\n0 0 0\n1 0 0\n}BEAM_SEARCH\n"
    "OUTPUT_REFLEX{\n2\n1 0 0\n0 0 0\n}OUTPUT_REFLEX\nOUTPUT_THICKNESS{\n2\n700\n1500.5\n}OUTPUT_THICKNESS\n"
    "}SIM_CALCULATION_CONDITION\n";

// I(100) = sin^2(pi t s_eff) / (1 + w^2) at the tilt (H, G), |zolzbase1| = |zolzbase2| = 1/4.
static double I_100(double H, double G, double t) {
    const double K = 27.0170930845, K_n = std::sqrt(K * K - (H * H + G * G) / 64), xi = K_n / 0.00761203123284;
    const double s = -(1 + H) / (32 * K_n), wave = std::sin(pi * t * std::sqrt(s * s + 1 / (xi * xi)));
    return wave * wave / (1 + s * xi * s * xi);
}

// The text with each "{}" replaced by the next value.
static std::string filled(std::string text, const std::vector<std::string>& values) {
    for (const std::string& value : values)
        text = replaced(text, "{}", value);
    return text;
}

static std::string between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::string rest = from(text, begin);
    return rest.substr(begin.size(), rest.find(end, begin.size()) - begin.size());
}

namespace {
struct sim_dir : job_dir {
    std::string file(const std::string& name) const { return read_file(path / name); }
};
} // namespace

static const std::string fg_error = "$$ Error in Fg calc. You should check params.\n";

TEST(SimJob, EveryLineOfConsoleAndFiles) {
    const sim_dir dir;
    const outcome end = dir.run(two_beams);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.err, "");
    EXPECT_PRED2(matches, from(end.out, "parameter_file"),
                 filled("parameter_file: a.dat\n##### Many-beam dynamical simulation #####\nExact = 2, Bethe = 0\n"
                        "$$ vg_select_flag is set to 0.\nreflex output ==> a_fg0.txt\nnum_g = 2\nnum_thickness = 2\nPotential:\n"
                        "    {}100%\n\n$$ vg_select_flag = 0\n$$ num_k_points = 1, num_k_points_effective = 1\nIntensity calculation\n"
                        "  Estimating exec. time .... {} Maybe not so long.\n100%\n    elapsed time: @ [min] = @ [hour]\n"
                        "$$Intensity output\n\nThe script for visualization ==> a_dre.txt\nUsage: drenu a_dre.txt\n"
                        "See \"a_log.txt\".  See you again!!\n\n",
                        {progress, progress}));
    EXPECT_EQ(dir.file("a_dre.txt"),
              "DRENU_SCRIPT\n# script for drenu.\nSIM_VISUAL_MODE\n#\n# VISUAL\n"
              "# rs_file gamma_coef mag(int) cont_reverse_flag\n#\nHTML_OPEN\na_.html\n#\n"
              "SIM_VISUALIZE\na_rs0.txt 0.5 1 1\nSIM_VISUALIZE\na_rs1.txt 0.5 1 1\nHTML_CLOSE\n");
    for (const std::string t : {"700", "1500.5"}) {
        const std::string name = t == "700" ? "a_rs0.txt" : "a_rs1.txt";
        const double I = 1e4 * I_100(-0.5, 0.25, std::atof(t.c_str()));
        EXPECT_LT(I, 5e3) << "the smaller of the two";
        EXPECT_EQ(dir.file(name),
                  filled("SIM_RESULT\n# {}\n#\nVISUAL{\n# default max and min [>0]\n{}\t{}\n# default gamma [>0]\n1.0\n"
                         "# defalut magnification (integer only)\n1\n# default contrast-reverse-flag\n#  1:reverse, 0:not reverse\n0\n"
                         "}VISUAL\n#\nCR_PARAMETERS{\n# lattice parameter\n# a,b,c,alpha,beta,gamma\n4\t5\t6\t90\t90\t90\n"
                         "# incident direction\n0\t0\t1\n# zolzbase1\n1\t0\t0\n# tilt HG\n-0.5\t0.25\n# thickness [Angstrom]\n{}\n"
                         "}CR_PARAMETERS\n#\nRF_INDEX{\n# reflections\n# number of reflections\n2\n# h k l, position (pixel coord)\n"
                         "1\t0\t0\t6\t0\n0\t0\t0\t0\t0\n}RF_INDEX\nCOORD{\n1 3    #num_pix, num_pix_side\n"
                         "0 0 0 0    #Hbgn Hend Gbgn Gend\n# H, G, ih, ig, flag\n0 0 0 0 1\n}COORD\n# intensities\n"
                         "RF{\n# hkl\n1\t0\t0\n{}\n}RF\nRF{\n# hkl\n0\t0\t0\n{}\n}RF\n",
                         {name, number(1e4 - I), number(I), t, number(I), number(1e4 - I)}));
    }
    EXPECT_FALSE(fs::exists(dir.path / "a_rs2.txt"));
}

// Each kind of mesh: its counts, its coordinates, and intensities that are known at every tilt.
TEST(SimJob, Meshes) {
    static const struct {
        const char *mesh, *counts, *scale, *size, *range, *rows;
    } cases[] = {
        {"1\n5\n0.5\n", "5, num_k_points_effective = 5", "10", "5 5", "-0.5 0.5 0 0",
         "-0.5 0 -2 0 1\n-0.25 0 -1 0 1\n0 0 0 0 1\n0.25 0 1 0 1\n0.5 0 2 0 1\n"},
        {"1\n4\n0.75\n", "4, num_k_points_effective = 4", "5.33333", "4 4", "-0.75 0.75 0 0",
         "-0.75 0 -2 0 1\n-0.25 0 -1 0 1\n0.25 0 0 0 1\n0.75 0 1 0 1\n"},
        {"2\n3\n1\n", "9, num_k_points_effective = 5", "3", "9 3", "-1 1 -1 1",
         "-1 -1 0 0 0\n0 -1 1 0 1\n1 -1 2 0 0\n-1 0 0 1 1\n0 0 1 1 1\n1 0 2 1 1\n-1 1 0 2 0\n0 1 1 2 1\n1 1 2 2 0\n"},
        {"2\n2\n0.5\n", "4, num_k_points_effective = 0", "4", "4 2", "-0.5 0.5 -0.5 0.5",
         "-0.5 -0.5 0 0 0\n0.5 -0.5 1 0 0\n-0.5 0.5 0 1 0\n0.5 0.5 1 1 0\n"},
        {"3\n2\n0.5\n", "4, num_k_points_effective = 4", "4", "4 2", "-0.5 0.5 -0.5 0.5",
         "-0.5 -0.5 -1 -1 1\n0.5 -0.5 0 -1 1\n-0.5 0.5 -1 0 1\n0.5 0.5 0 0 1\n"},
        {"3\n2\n0\n", "4, num_k_points_effective = 4", "0", "4 2", "-0 0 -0 0", "0 0 -1 -1 1\n0 0 0 -1 1\n0 0 -1 0 1\n0 0 0 0 1\n"}};
    for (const auto& c : cases) {
        const sim_dir dir;
        const std::string all_exact = replaced(two_beams, "2\n1 0 0\n0 0 0\n}OUTPUT_REFLEX", "0\n}OUTPUT_REFLEX");
        const outcome end = dir.run(replaced(replaced(all_exact, "0\n3\n0.5\n", c.mesh), "# SETTINGS", "intensity_scaling 2"));
        EXPECT_EQ(between(end.out, "num_k_points = ", "\n"), c.counts);
        EXPECT_TRUE(contains(end.out, "num_g = 2\n"));

        std::string origin, base;
        double max = 0.0, min = 2.0;
        for (const std::string& row : lines_of(c.rows)) {
            double H, G;
            int flag;
            ASSERT_EQ(std::sscanf(row.c_str(), "%lg %lg %*d %*d %d", &H, &G, &flag), 3);
            const double I = flag * I_100(H - 0.5, G + 0.25, 1500.5);
            origin += number(flag * 2 - 2 * I) + "\n";
            base += number(2 * I) + "\n";
            max = std::max({max, flag * 2 - 2 * I, 2 * I});
            min = std::min({min, flag * 2 - 2 * I, 2 * I});
        }
        const std::string result = dir.file("a_rs1.txt");
        EXPECT_EQ(between(result, "[>0]\n", "\n"), number(max) + "\t" + number(min));
        EXPECT_EQ(from(result, "RF_INDEX{"),
                  filled("RF_INDEX{\n# reflections\n# number of reflections\n2\n# h k l, position (pixel coord)\n"
                         "0\t0\t0\t0\t0\n1\t0\t0\t{}\t0\n}RF_INDEX\nCOORD{\n{}    #num_pix, num_pix_side\n"
                         "{}    #Hbgn Hend Gbgn Gend\n# H, G, ih, ig, flag\n{}}COORD\n# intensities\n"
                         "RF{\n# hkl\n0\t0\t0\n{}}RF\nRF{\n# hkl\n1\t0\t0\n{}}RF\n",
                         {c.scale, c.size, c.range, c.rows, origin, base}));
    }
}

// All dumps of one tilt in their order; a Bethe beam brings the inversion in. A flag of 2 is on where
// the flag only has to differ from 0.
TEST(SimJob, DumpsOfATilt) {
    const double K = 27.0170930845;
    const std::string list = "0\t@\t@\n1\t@\t@\n", pair = "0\t0\t@\t@\n1\t0\t@\t@\n0\t1\t@\t@\n1\t1\t@\t@\n";
    const std::string vg_file = "Vg: [Volt]\n0\t0\t3.83021\t0\n1\t0\t0.957553\t0\n2\t0\t0.957553\t0\n0\t1\t0.957553\t0\n"
                                "1\t1\t3.83021\t0\n2\t1\t@\t@\n0\t2\t0.957553\t0\n1\t2\t@\t@\n2\t2\t3.83021\t0\n";
    const struct {
        std::string text;
        bool at_2;
    } pieces[] = {
        {"$$ calc_sg_beta_g\n$$ Sg(0 0 0) = 0\n$$ beta_ge(0 0 0) = 1\n$$ Sg(1 0 0) = " + number(-0.5 / 32 / K) +
             "\n$$ beta_ge(1 0 0) = 1\n$$ Sg(-1 0 0) = " + number(-1.5 / 32 / K) + "\n$$ beta_ge(-1 0 0) = 1\n",
         false},
        {"$$ vg_select\n$$ construct_matrix\n", false},
        {"$$a_matrix:\n0\t0\t0\t0\n1\t0\t0.00761203\t0\n2\t0\t0.00761203\t0\n0\t1\t0.00761203\t0\n1\t1\t-0.03125\t0\n"
         "2\t1\t@\t@\n0\t2\t0.00761203\t0\n1\t2\t@\t@\n2\t2\t-0.09375\t0\n",
         true},
        {"$$ Bethe Approx.\n$$ invmat: Numpack inv_c_mat()\n", false},
        {"$$bethe_matrix:\n0\t0\t" + number(0.00761203123284 * 0.00761203123284 / 0.09375) + "\t0\n" +
             pair.substr(pair.find('\n') + 1),
         true},
        {"$$ eigen values and vectors: eispack_cg\n", false},
        {"$$ eigen values:\n" + list + "$$ eigen vectors\n" + pair, true},
        {"$$ upper_b_cond\n", false},
        {"$$upper_b_cond:\n" + list, true},
        {"$$ calc_intensity\n", false}};
    for (const char value : {'1', '2'}) {
        std::string ini, expected;
        for (const char* flag : {"eigval_dump", "eigvec_dump", "sg_dump", "betag_dump", "a_mat_dump", "b_mat_dump", "b_cond_dump",
                                 "process_mon", "vg_dump"})
            ini += std::string(flag) + "_flag " + value + "\n";
        for (const auto& piece : pieces)
            expected += value == '1' || piece.at_2 ? piece.text : "";
        const sim_dir dir;
        const outcome end = dir.run(replaced(two_beams, "2 0\n0 0 0\n1 0 0\n", "2 1\n0 0 0\n1 0 0\n-1 0 0\n"), ini);
        EXPECT_PRED2(matches, between(end.out, ".... " + progress, " Maybe"), expected);
        EXPECT_EQ(between(end.out, "95%100%\n", "\n$$ vg_select_flag"), value == '1' ? "vg_data output ==> a_vg.txt\n" : "");
        EXPECT_EQ(fs::exists(dir.path / "a_vg.txt"), value == '1');
        if (value == '1') {
            EXPECT_PRED2(matches, dir.file("a_vg.txt"), vg_file);
        }
    }
}

// |S| is |0.04 +- 0.05 G| / (2 K) for 0 +-1 0 and (1 +- H) / (32 K) for +-1 0 0; 2 is exact, 1 Bethe,
// 0 left out. A masked tilt has no row, and a beam that a tilt does not take as exact no intensity.
TEST(SimJob, SelectionOfEachTilt) {
    std::string text = replaced(two_beams, "0\n3\n0.5\n", "2\n3\n1\n");
    text = replaced(text, "0\n2 0\n0 0 0\n1 0 0\n", "2\n100 0.26 0 0\n0.0008 0.0015 1e11\n");
    text = replaced(replaced(text, "2\n1 0 0\n0 0 0\n}", "0\n}"), "-0.5\n0.25\n", "0\n0\n");
    const sim_dir dir, plain, blocked;
    const std::string disk = text;
    const outcome end = dir.run(disk, "vg_sel_chk_flag 1\n"), usual = plain.run(disk);
    EXPECT_EQ(between(end.out, "$$ vg_select_flag = 1\n", "$$ num_k_points"),
              "$$ Debug output ==> a.dbg\n$$ chk_sel_vg mode. No intensity calculation.\n");
    const std::vector<std::string> classes = {"20211", "22202", "22211", "22220", "22011"};
    const std::vector<std::string> tilts = {"1\t0", "0\t1", "1\t1", "2\t1", "1\t2"};
    std::string rows = "H\tG\th\tk\t\tl\tnesel\tnbsel\t0\t1\t2\t3\t4\n";
    for (std::size_t i = 0; i < 5; ++i) {
        rows += tilts[i] + "\t@\t@\t\t@\t" + std::to_string(std::count(classes[i].begin(), classes[i].end(), '2')) + "\t" +
                std::to_string(std::count(classes[i].begin(), classes[i].end(), '1'));
        for (char c : classes[i])
            rows += std::string("\t") + c;
        rows += "\n";
    }
    EXPECT_PRED2(matches, dir.file("a.dbg"), rows);
    EXPECT_EQ(between(dir.file("a_rs0.txt"), "[>0]\n", "\n"), "0\t0");

    const std::vector<std::string> values = lines_of(from(plain.file("a_rs0.txt"), "# intensities"));
    const std::size_t places[] = {1, 3, 4, 5, 7};
    for (std::size_t r = 0; r < 5; ++r)
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_EQ(values[4 + 13 * r + places[i]] == "0", classes[i][r] != '2') << r << " " << i;

    // K_t = (1 1 0)/2 + (-0.8 1.25 0)/2, the second vector being [0 0 1] x (1 1 0) in this cell.
    text = replaced(two_beams, "0 0 1\n1 0 0\n-0.5\n0.25\n", "0 0 1\n1 1 0\n1\n1\n");
    EXPECT_EQ(dir.run(text, "vg_sel_chk_flag 2\n").status, 0);
    EXPECT_PRED2(matches, dir.file("a.dbg"), "H\tG\th\tk\t\tl\tnesel\tnbsel\t0\t1\n0\t0\t0.1\t1.125\t\t@\t2\t0\t2\t2\n");
    fs::create_directory(blocked.path / "a.dbg");
    const outcome without = blocked.run(disk, "vg_sel_chk_flag 1\n");
    EXPECT_EQ(between(without.out, "$$ vg_select_flag = 1\n", "$$ num_k_points"), "Cannot open a.dbg\n");
    EXPECT_EQ(blocked.file("a_rs0.txt"), plain.file("a_rs0.txt"));
    EXPECT_EQ(usual.status + without.status + end.status, 0);
}

TEST(SimJob, FactorsBeyondTheTablesAreToldAndUsed) {
    const sim_dir dir;
    const outcome end = dir.run(replaced(two_beams, "2 0\n0 0 0\n1 0 0\n", "3 0\n0 0 0\n1 0 0\n99 0 0\n"));
    EXPECT_EQ(between(end.out, "95%100%\n", "\n$$ vg_select_flag"), fg_error);
    EXPECT_EQ(between(dir.file("a_log.txt"), "simulation #####\n", "\n"), fg_error.substr(0, fg_error.size() - 1));
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(fs::exists(dir.path / "a_rs1.txt"));
}

// Everything that stops the job: the end of the console, all of standard error, status 1.
TEST(SimJob, Ends) {
    const std::string mesh = "0\n3\n0.5\n", hint = "$$$$ Caution!!! CALC_KXY_RANGE must be before BEAM_SEARCH. $$\n";
    const std::string format = "$$ Data format error has been found at ", parallel = "$Error in zolz_ort_base: g2 = 0";
    const std::string last = "}OUTPUT_THICKNESS\n}SIM_CALCULATION_CONDITION\n";
    struct row {
        std::string from, to, out, err = "", ini = "", blocked = "";
    };
    std::vector<row> rows = {
        {mesh, "4\n3\n0.5\n", "$$ Invalid calc_type(=4)x. Abort.\n"},
        {mesh, "-1\n", "$$ Invalid calc_type(=-1)x. Abort.\n"},
        {mesh, "1\n1\n", "$$ Invalid num_pix_side(=1). Abort.\n"},
        {mesh, "3\n-5\n", "$$ Invalid num_pix_side(=-5). Abort.\n"},
        {mesh, "3\n2000000000\n0.5\n", "simulation #####\n", "Not enough memory for vector.\n", "", ""},
        {"{\n2\n1 0 0\n", "{\n-1\n", "$$ Invalid num_g(=-1). Abort.\n"},
        {"{\n2\n1 0 0\n", "{\n2\n1 0 1\n", "num_g = 2\n$$ cal_g: 1 0 1 is not found in the exact beams. Abort.\n"},
        {"2 0\n0 0 0\n", "1 1\n0 0 0\n", "$$ cal_g: 1 0 0 is not found in the exact beams. Abort.\n"},
        {"2\n700\n", "0\n", "num_g = 2\n$$ Invalid num_thickness(=0). Abort.\n"},
        {"1500.5\n" + last, "", "num_thickness = 2\n$$ Unexpected end of file. Abort.\n"},
        {last, "", format + "}OUTPUT_THICKNESS.\n$$ Abort.\n$$ buf=\n"},
        {"0 0 1\n0 0 1\n1 0 0\n", "0 0 1\n0 0 1\n0 0 1\n", parallel},
        {"0 0 1\n0 0 1\n1 0 0\n", "0 0 0\n0 0 1\n1 0 0\n", parallel},
        {"# SETTINGS", "eigmat_func 2", progress + "$$ Invalid epsilon.eigmat_func=2. Abort.\n"},
        {"# SETTINGS", "bc_invmat_func -1", progress + "$$ Invalid epsilon.bc_invmat_func=-1. Abort.\n"},
        {"CALC_KXY_RANGE{\n", "CALC_KXY_RANGE{ \n", format + "CALC_KXY_RANGE{.\n$$ Abort.\n$$ buf=CALC_KXY_RANGE{ \n" + hint},
        {"# SETTINGS", "", "", "$$ Cannot open a_dre.txt. Abort.\n", "", "a_dre.txt"},
        {"# SETTINGS", "", "", "$$ Cannot open a_rs1.txt. Abort.\n", "", "a_rs1.txt"},
        {"# SETTINGS", "", "$$ Cannot open a_vg.txt. Abort.\n", "", "vg_dump_flag 1\n", "a_vg.txt"}};
    for (const std::string word : {"SIM_CALCULATION_CONDITION{", "INCIDENT_BEAM{", "}INCIDENT_BEAM", "CALC_KXY_RANGE{", "}CALC_KXY_RANGE",
                                   "BEAM_SEARCH{", "}BEAM_SEARCH", "OUTPUT_REFLEX{", "}OUTPUT_REFLEX", "OUTPUT_THICKNESS{",
                                   "}OUTPUT_THICKNESS", "}SIM_CALCULATION_CONDITION"})
        rows.push_back({"\n" + word + "\n", "\nx" + word + "\n",
                        format + word + ".\n$$ Abort.\n$$ buf=x" + word + "\n" + (word == "CALC_KXY_RANGE{" ? hint : "")});
    for (const auto& c : rows) {
        const sim_dir dir;
        if (!c.blocked.empty())
            fs::create_directory(dir.path / c.blocked);
        const outcome end = dir.run(replaced(two_beams, c.from, c.to), c.ini);
        EXPECT_TRUE(ends_with(end.out, c.out)) << c.out << end.out;
        EXPECT_EQ(end.err, c.err) << c.to;
        EXPECT_EQ(end.status, 1) << c.to << c.blocked;
        EXPECT_EQ(fs::exists(dir.path / "a_rs0.txt"), c.blocked == "a_rs1.txt") << c.to << c.blocked;
    }
}
