// SPDX-License-Identifier: MIT
//
// The line readers, the block words and the two readers of settings, against exact values, texts,
// streams and statuses.
#include <climits>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "control/ov_debug.h"
#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "test_util.h"

using namespace orvel;
using namespace orvel_test;

using texts = std::vector<std::string>;

// Calls a reader with a stream of the text.
template <class Reader>
static auto reading(const std::string& text, Reader reader) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(text_stream(text), std::fclose);
    return reader(stream.get());
}

static texts data_lines(const std::string& text) {
    return reading(text, [](std::FILE* stream) {
        texts lines;
        char buf[line_max];
        while (comment_skip_fgets(line_max, buf, stream) != nullptr)
            lines.emplace_back(buf);
        return lines;
    });
}

TEST(Lines, CommentsAndLongLines) {
    const std::string x255(255, 'x');
    static const struct {
        std::string text;
        texts lines;
    } cases[] = {
        {"# a\n%b\n #c\n\nd", {" #c\n", "\n", "d"}},
        {"COMMENT{ more\nx\n# y\nCOMMENT{\n }COMMENT\n}COMMENT more\n%z\nw\n", {"w\n"}},
        {"COMMENT{\n}COMMENT\nCOMMENT{\n}COMMENT{\nw\n}COMMENT\n", {"w\n", "}COMMENT\n"}},
        {"COMMENT {\n COMMENT{\n", {"COMMENT {\n", " COMMENT{\n"}},
        {"a\nCOMMENT{\nb\n", {"a\n"}},
        {"a\r\n\r\nb\rc\r\r\n#\r\nd\r", {"a\n", "\n", "b\rc\r\n", "d\r"}},
        {x255 + "yz\nw\n", {x255, "yz\n", "w\n"}},
        {x255 + "#no data\nw\n", {x255, "w\n"}},
        {x255 + "\r\nw\n", {x255, "\n", "w\n"}},
        {std::string("a\0b\n\0c\nd\n", 9), {"a", "", "d\n"}}, // what stands behind a NUL is lost, no more
    };
    for (const auto& c : cases)
        EXPECT_EQ(data_lines(c.text), c.lines) << c.text;
}

TEST(Lines, StemsAndTokens) {
    static const char* const stems[][2] = {
        {"a.b.dat", "a"}, {"./a.dat", "/a"}, {"plain", "plain"}, {"..", ""}, {"../x/y.z", "/x/y"}};
    for (const auto& [name, stem] : stems) {
        char buf[name_max];
        remove_extention(name, buf);
        EXPECT_STREQ(buf, stem);
    }
    static const char* const words[][2] = {
        {" ,\tWORD{, rest\n", "WORD{"}, {"WORD\n", "WORD"}, {" , \t\n", ""}, {"  ", ""}};
    for (const auto& [line, word] : words) {
        char buf[line_max];
        EXPECT_EQ(reading(line, [&](std::FILE* stream) { return fget_1s(buf, stream); }), buf);
        EXPECT_STREQ(buf, word);
    }
    char buf[line_max] = "old";
    EXPECT_EQ(reading("# x\n", [&](std::FILE* stream) { return fget_1s(buf, stream); }), nullptr);
    EXPECT_STREQ(buf, "");

    double v[3] = {9, 9, 9};
    char numbers[] = "1 2,3\t4 5";
    EXPECT_EQ(str_to_fs(3, numbers, v), 3);
    EXPECT_EQ(v[2], 3.0);
    EXPECT_STREQ(std::strtok(nullptr, separators), "4") << "what is not wanted stays unread";
    char empty[] = "\n";
    EXPECT_EQ(str_to_fs(3, empty, v), 1);
    EXPECT_EQ(v[0] + v[1] + v[2], 0.0);
    EXPECT_EQ(str_to_fs(0, numbers, v), 0);
}

TEST(Fields, Numbers) {
    static const struct {
        const char* line;
        int h, k, l, first;
        double real;
    } cases[] = {
        {"1 -1\n", 1, -1, 0, 1, 1.0},
        {"1.7,2.2 -0.9 remark\n", 1, 2, 0, 1, 1.7},
        {"\t-3.5e1 x 7\n", -35, 0, 7, -3, -35.0},
        {"word 2 3\n", 0, 2, 3, 0, 0.0},
        {"\n", 0, 0, 0, 0, 0.0},
        {"99999999999999999999 -1e99 nan\n", INT_MAX, INT_MIN, 0, INT_MAX, 1e20},
    };
    for (const auto& c : cases) {
        hkl g = {9, 9, 9};
        uvw t = {9, 9, 9};
        int i = 9, j = 9;
        reading(c.line, [&](std::FILE* stream) { fget_hkl(&g, stream); });
        reading(c.line, [&](std::FILE* stream) { fget_uvw(&t, stream); });
        reading(c.line, [&](std::FILE* stream) { fget_2i(&i, &j, stream); });
        EXPECT_EQ((std::vector<int>{g.h, g.k, g.l, t.u, t.v, t.w, i, j}),
                  (std::vector<int>{c.h, c.k, c.l, c.h, c.k, c.l, c.h, c.k}))
            << c.line;
        EXPECT_EQ(reading(c.line, fget_i), c.first) << c.line;
        EXPECT_EQ(reading(c.line, fget_d), c.real) << c.line;
    }
    double v[10];
    reading("1 2 9\n3 4 5\n6 7 8 9 10\n.5,-.5\n", [&](std::FILE* stream) {
        r_hkl g;
        fget_2d(&v[0], &v[1], stream);
        fget_3d(&v[2], &v[3], &v[4], stream);
        fget_4d(&v[5], &v[6], &v[7], &v[8], stream);
        fget_r_hkl(&g, stream);
        v[9] = g.h + 10 * g.k + 100 * g.l;
    });
    const std::vector<double> wanted = {1, 2, 3, 4, 5, 6, 7, 8, 9, -4.5};
    EXPECT_EQ(std::vector<double>(v, v + 10), wanted);
}

TEST(Fields, ListsOfReflectionsAndThicknesses) {
    static const struct {
        const char* line;
        double weight;
    } weights[] = {
        {"1 -2 3.9 0.25\n", 0.25}, {"1 -2 3\n", 1.0}, {"1,-2,3 %4\n", 1.0}, {"1 -2 3 \n", 0.0}};
    for (const auto& c : weights) {
        hkl g;
        double weight = 9.0;
        reading(c.line, [&](std::FILE* stream) { fget_hkl_weight(&g, &weight, stream); });
        EXPECT_EQ((std::vector<int>{g.h, g.k, g.l}), (std::vector<int>{1, -2, 3}));
        EXPECT_EQ(weight, c.weight) << c.line;
    }
    const hkl list[] = {{0, 0, 0}, {2, 0, 0}, {-2, 0, 0}, {2, 0, 0}};
    int index[3] = {9, 9, 9};
    reading("-2 0 0\n# remark\n2 0 0.5\nrest\n", [&](std::FILE* stream) {
        fget_cal_g(2, 4, index, list, stream);
        fget_cal_g(0, 4, index + 2, list, stream);
        char rest[line_max];
        EXPECT_STREQ(fget_1s(rest, stream), "rest");
    });
    EXPECT_EQ(std::vector<int>(index, index + 3), (std::vector<int>{2, 1, 9}));
    double t[2];
    reading("100.5 # first\n  2e2\n", [&](std::FILE* stream) { fget_cal_thick(2, t, stream); });
    EXPECT_EQ(t[0] + 1000 * t[1], 200100.5);
}

TEST(Fields, ValueLines) {
    const std::string long_id(40, 'i');
    static const struct {
        std::string line;
        int idx;
        std::string id; // empty: generated
        double value, rst;
        std::string val_str;
    } cases[] = {
        {"5.43\n", 0, "", 5.43, -1, "5.43\n"},
        {"5.43 ADJ a0\n", 2, "a0", 5.43, -1, "5.43"},
        {"5.43 ADJ\n", 0, "", 5.43, -1, "5.43"}, // the word still carries its line end
        {"5.43 adj a0\n", 0, "", 5.43, -1, "5.43"},
        {"5.43,FIX,f remark\n", 0, "f", 5.43, -1, "5.43"},
        {"5.43 1 b1 0.01\n", 1, "b1", 5.43, 0.01, "5.43"},
        {"5.43 RST b1 \n", 1, "b1", 5.43, 0, "5.43"},
        {"=a0*2 CST c0\n", -1, "c0", 0, -1, "=a0*2"},
        {"7 -1 c0\n", -1, "c0", 0, -1, "7"},
        {"7 2 " + long_id + "\n", 2, long_id.substr(0, 31), 7, -1, "7"},
        {"\n", 0, "", 0, -1, "\n"},
        {" ,", 0, "", 0, -1, ""},
    };
    int generated = -1;
    for (const auto& c : cases) {
        fitpar p = {};
        p.rst = -1;
        p.esd = 9;
        double value = 9;
        reading(c.line, [&](std::FILE* stream) { fget_fitpar(&p, &value, stream); });
        EXPECT_EQ(p.idx, c.idx) << c.line;
        EXPECT_EQ(p.esd, 0.0);
        EXPECT_EQ(p.rst, c.rst) << c.line;
        EXPECT_EQ(value, c.value) << c.line;
        EXPECT_EQ(p.ini_val, c.value) << c.line;
        EXPECT_EQ(p.val_str, c.val_str);
        if (!c.id.empty()) {
            EXPECT_EQ(p.id, c.id);
            continue;
        }
        const int number = std::atoi(p.id + 2);
        EXPECT_EQ(p.id, "id" + std::to_string(number));
        EXPECT_TRUE(generated < 0 || number == generated + 1) << "generated ids only";
        generated = number;
    }
}

// Everything that ends the process, with the exact text on the exact stream.
TEST(Readers, RefusedInput) {
    const std::string eof = "$$ Unexpected end of file. Abort.\n";
    const std::string format = "$$ Data format error has been found at WORD{.\n$$ Abort.\n";
    const std::string unknown = "$$ The next line could not be recognized.\n";
    const std::string no_file = " Cannot open no/a. Abort.\n";
    const std::string value_line = "$$ (fget_fitpar) Input data error. Abort.\n$$ buf=";
    const auto word = [](std::FILE* s) { chk_data("WORD{", s); };
    const auto info = [](std::FILE* s) { chk_data_info("WORD{", "hint", s); };
    const auto fitpar_line = [](std::FILE* s) {
        fitpar p;
        double value;
        fget_fitpar(&p, &value, s);
    };
    const auto weight_line = [](std::FILE* s) {
        hkl g;
        double weight;
        fget_hkl_weight(&g, &weight, s);
    };
    const auto cal_g = [](std::FILE* s) {
        const hkl list[] = {{0, 0, 0}, {1, 1, 1}};
        int index[2];
        fget_cal_g(2, 1, index, list, s);
    };
    const struct {
        std::string text;
        std::function<void(std::FILE*)> read;
        std::string out, err;
    } cases[] = {
        {"WORD {\n", word, format + "$$ buf=WORD\n", ""},
        {"word{ x\n", word, format + "$$ buf=word{\n", ""},
        {"", word, format + "$$ buf=\n", ""},
        {"WORD{ \n", info, format + "$$ buf=WORD{ \n$$hint\n", ""},
        {"COMMENT{\nWORD{\n", info, format + "$$ buf=\n$$hint\n", ""},
        {"1 RST b1\n", fitpar_line, value_line + "1", ""},
        {"1.5,FIX\t\n", fitpar_line, "", ""}, // the line end is a token
        {"1.5,FIX", fitpar_line, value_line + "1.5", ""},
        {"#\n", fitpar_line, eof, ""},
        {"1 2\n", weight_line, "$$(fget_hkl_weight) Format error. Abort. buf=1.", ""},
        {"", weight_line, eof, ""},
        {"0 0 0\n1 1 1\n", cal_g, "$$ cal_g: 1 1 1 is not found in the exact beams. Abort.\n", ""},
        {"0 0 0\n", cal_g, eof, ""},
        {"", [](std::FILE* s) { fget_i(s); }, eof, ""},
        {"EPS_CONTROL_PARAMETERS{\nnumh 3\nfoo 1\n\n", read_eps_ctrl_params,
         unknown + "foo 1\n" + unknown +
             "\n$$ Data format error has been found at }EPS_CONTROL_PARAMETERS.\n"
             "$$ Abort.\n$$ buf=\n",
         ""},
        {"", [](std::FILE* s) { fget_d(s); }, eof, ""},
        {"", [](std::FILE*) { fopen_chk_rmode("no/a"); }, "", "$$ (fopen_chk_rmode)" + no_file},
        {"", [](std::FILE*) { fopen_chk_wmode("no/a"); }, "", "$$ (fopen_chk_wmode)" + no_file},
        {"", [](std::FILE*) { ov_fopen_chk_wmode("no/a"); }, "", "$$" + no_file},
        {"", [](std::FILE*) { ov_fopen_chk_wmode((std::string(path_max, '/') + "dev/null").c_str()); }, "",
         "$$ Cannot open " + std::string(path_max, '/') + "dev/null. Abort.\n"},
        {"", [](std::FILE*) { for (int i = 0; i <= open_max; ++i) ov_fopen_chk_wmode("/dev/null"); }, "",
         "$$ Cannot open /dev/null. Abort.\n"},
        {"", [](std::FILE*) { ov_error_exit(stdout, "%d%s", 7, "x"); }, "$$error: 7x\n", ""},
        {"", [](std::FILE*) { error_exit(stderr, "%d%s", 7, "x"); }, "", "$$ERROR: 7x\n"},
    };
    for (const auto& c : cases) {
        const outcome end = run_child([&] { reading(c.text, [&](std::FILE* s) { c.read(s); }); });
        EXPECT_EQ(end.out, c.out) << c.text;
        EXPECT_EQ(end.err, c.err) << c.text;
        EXPECT_EQ(end.status, c.out.empty() && c.err.empty() ? 0 : 1) << c.text;
    }
    const outcome good = run_child([&] {
        dbg.chk_data_dump_flag = 1;
        reading("WORD{ remark\nWORD{\r\n", [&](std::FILE* s) { word(s), info(s); });
        dbg.chk_data_dump_flag = 2;
        reading("WORD{,remark\n", word);
    });
    EXPECT_EQ(good.out, "$$ chk_data: WORD{ ok.\n");
    EXPECT_EQ(good.status, 0);
}

namespace {

// A setting with its default.
struct setting {
    std::string name;
    double (*value)();
    double standard;
};

} // namespace

static setting setting_of(const char* name, double (*value)(), double standard) {
    return {name, value, standard};
}
#define SETTING(field, standard) setting_of( \
    #field, [] { return 0.0 + field; }, standard)

static const std::vector<setting> flags = {
    SETTING(dbg.eigval_dump_flag, 0), SETTING(dbg.eigvec_dump_flag, 0), SETTING(dbg.sg_dump_flag, 0),
    SETTING(dbg.betag_dump_flag, 0), SETTING(dbg.reflex_dump_flag, 0), SETTING(dbg.reflex_only_flag, 0),
    SETTING(dbg.vg_dump_flag, 0), SETTING(dbg.a_mat_dump_flag, 0), SETTING(dbg.b_mat_dump_flag, 0),
    SETTING(dbg.b_cond_dump_flag, 0), SETTING(dbg.bc_chk_flag, 0), SETTING(dbg.all_int_out_flag, 0),
    SETTING(dbg.covar_dump_flag, 0), SETTING(dbg.alpha_dump_flag, 0), SETTING(dbg.beta_dump_flag, 0),
    SETTING(dbg.obs_cal_dump_flag, 0), SETTING(dbg.ideal_cr_cal_flag, 0), SETTING(dbg.atm_pos_out_flag, 0),
    SETTING(dbg.vg_sel_chk_flag, 0), SETTING(dbg.process_mon_flag, 0), SETTING(dbg.wg_xig_list_flag, 0),
    SETTING(dbg.chk_data_dump_flag, 0), SETTING(dbg.print_bij_flag, 1)};

static const std::vector<setting> tolerances = {
    SETTING(epsilon.general_eps, 1e-10), SETTING(epsilon.eigen_eps, 1e-8), SETTING(epsilon.inv_eps, 1e-8),
    SETTING(epsilon.degeneracy_eps, 1e-8), SETTING(epsilon.perturb_step, 0.001), SETTING(epsilon.tol_chisq_abs, 0.01),
    SETTING(epsilon.tol_chisq_rel, 0.001), SETTING(epsilon.tol_parameter, 0.01), SETTING(epsilon.tol_lambda, 10),
    SETTING(epsilon.marq_lambda_max, 1e6), SETTING(epsilon.intensity_scaling, 1e4), SETTING(epsilon.bc_accuracy, 1),
    SETTING(epsilon.corr_threshold, 0.5), SETTING(epsilon.w_sq_coef, 1), SETTING(epsilon.w_exponent_coef, 0),
    SETTING(epsilon.w_exponent, 4), SETTING(epsilon.scale_rst_chisq, 1), SETTING(epsilon.e_density_gmax_val, 12),
    SETTING(epsilon.vg_select_flag, 1), SETTING(epsilon.eigmat_func, 0), SETTING(epsilon.invmat_func, 0),
    SETTING(epsilon.bc_invmat_func, 0), SETTING(epsilon.svd_flag, 1), SETTING(epsilon.num_thickwidth, 0),
    SETTING(epsilon.thickwidth_type, 2), SETTING(epsilon.cal_range_flag, 0), SETTING(epsilon.numh, 20),
    SETTING(epsilon.auto_multiplicity_off, 0), SETTING(epsilon.flag_modified_marquardt, 1)};

// The settings that differ from their defaults, as "name=value name=value ".
static std::string changes(const std::vector<setting>& all) {
    std::string changed;
    for (const setting& s : all)
        if (s.value() != s.standard)
            changed += s.name + "=" + std::to_string(std::lround(s.value())) + " ";
    return changed;
}

static std::string changed_settings(const std::string& lines) {
    const std::string word = "EPS_CONTROL_PARAMETERS";
    reading(word + "{\n" + lines + "}" + word + "\n", read_eps_ctrl_params);
    return changes(tolerances);
}

TEST(Settings, Block) {
    EXPECT_EQ(changed_settings(""), "");
    for (const auto& s : tolerances)
        EXPECT_EQ(changed_settings("x" + s.name + "\t7 remark\n"), s.name + "=7 ");
    const std::string x120(120, 'x');
    static const struct {
        std::string lines, changed;
    } cases[] = {
        {"epsilon.num_thickwidth\t\t2 remark\n", "epsilon.num_thickwidth=2 "},
        {"num_thickwidth 5 of thickwidth_type\n", "epsilon.thickwidth_type=5 "},
        {"numh 5\nnumh 6.9\n", "epsilon.numh=6 "},
        {"num_thickwidth\nsvd_flag x\n", "epsilon.svd_flag=0 "},
        {x120 + " 3 xx numh\n", ""}, // two reads of at most 127 characters
        {x120 + " 3 xx\n# numh\nnumh,4\r\n", "epsilon.numh=4 "},
        {"COMMENT{\nnumh 3\n}COMMENT\nx }EPS_CONTROL_PARAMETERS numh 3\nnumh 4\n", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(changed_settings(c.lines), c.changed) << c.lines;
}

static std::string changed_flags(const std::string& lines) {
    const temp_dir dir;
    const std::filesystem::path home = std::filesystem::current_path();
    std::filesystem::current_path(dir.path);
    write_file("orvel.ini", lines + "INI_PARAM_END\n");
    read_ini_file();
    std::filesystem::current_path(home);
    return changes(flags);
}

TEST(Settings, IniFile) {
    EXPECT_EQ(changed_flags(""), "");
    for (const auto& f : flags)
        EXPECT_EQ(changed_flags("x" + f.name + ", 2 remark\n"), f.name + "=2 ");
    EXPECT_EQ(changed_flags("print_bij_flag\n"), "dbg.print_bij_flag=0 ");
    EXPECT_EQ(changed_flags("# sg_dump_flag 1\nCOMMENT{\nsg_dump_flag 1\n}COMMENT\n"), "");
    EXPECT_EQ(changed_flags("INI_PARAM_END vg_dump_flag\nbc_chk_flag 2\r\n"), "dbg.bc_chk_flag=2 ")
        << "a key is looked for in front of the end word";
    // One read takes 79 characters; what follows is a line of its own.
    EXPECT_EQ(changed_flags("x 2" + std::string(64, ' ') + "sg_dump_flagvg_dump_flag 1\n"),
              "dbg.sg_dump_flag=2 dbg.vg_dump_flag=1 ");
}
