// SPDX-License-Identifier: MIT
//
// Symmetry operations and their table, the crystal block with all its faults,
// generated positions, low-order values and constraints.
#include <array>
#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

#include "control/settings.h"
#include "crystal/cnstfunc.h"
#include "crystal_util.h"

using namespace orvel;
using namespace orvel_test;

using reals = std::vector<double>;
using whole_numbers = std::vector<int>;

// ---- symmetry -------------------------------------------------------------------------------

// rows[i] holds the coefficients of x, y, z in output coordinate i, and the translation.
TEST(Symmetry, Operations) {
    static const struct {
        const char* line;
        double rows[3][4];
    } cases[] = {{"X,Y,Z\n", {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}},
                 {"X-Y, -X+Y ,Z+1/3", {{1, -1, 0, 0}, {-1, 1, 0, 0}, {0, 0, 1, 1.0 / 3}}},
                 {"1/2-X,Y+3/4,Z-1/4", {{-1, 0, 0, 0.5}, {0, 1, 0, 0.75}, {0, 0, 1, 0.25}}}, // no sign of a translation
                 {"/2X,Y+/2,Z", {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}},
                 {"-X-Y,- Z,x", {{-1, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 0}}}}; // nor a second minus is read
    for (const auto& c : cases) {
        std::string line = std::string("7") + c.line; // what stands in front of a line is none of it
        const sym_op op = decode_sym_op(line.data() + 1), inverse = inv_sym_op(op);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j)
                EXPECT_EQ(op.rot[3 * j + i], c.rows[i][j]) << c.line << i << j;
            EXPECT_EQ(op.trans[i], c.rows[i][3]) << c.line << i;
            EXPECT_EQ(inverse.trans[i] + 10 * inverse.rot[i], -c.rows[i][3] - 10 * c.rows[i][0]) << c.line << i;
        }
    }
    // x' = z, y' = x, z' = y + 1/3; from h'.x = h.(R x) follows h' = (k, l, h).
    std::string line = "Z,X,Y+1/3";
    const sym_op op = decode_sym_op(line.data());
    const r_uvw p = gen_pos({0.1, 0.2, 0.3}, op);
    EXPECT_EQ((reals{p.u, p.v, p.w}), (reals{0.3, 0.1, 0.2 + 1.0 / 3}));
    const hkl g = gen_reflex({1, 2, 4}, op);
    EXPECT_EQ((whole_numbers{g.h, g.k, g.l}), (whole_numbers{2, 4, 1}));
}

TEST(Symmetry, PositionsModuloTheCell) {
    EXPECT_DOUBLE_EQ(fractional(-0.25), 0.75);
    EXPECT_EQ(fractional(1.0), 0.0);
    EXPECT_EQ(fractional(-1e-20), 0.0) << "1 - 1e-20 rounds to 1, which is outside";
    static const double pairs[][3] = {{0.99995, 0.00002, 1}, {1.0, 0.0, 1}, {0.5, -0.5, 1}, // whole turns
                                      {0.5, 0.50009, 1},
                                      {0.5, 0.50011, 0},
                                      {0.9998, 0.0001, 0}};
    for (const auto& [a, b, same] : pairs) {
        EXPECT_EQ(judge_two_atom({a, 0.1, 0.2}, {b, 1.1, -0.8}), same) << a << " " << b;
        EXPECT_EQ(judge_two_atom({0, 0.3, a}, {0, 0.3, b}), same) << a << " " << b;
    }
    r_uvw list[] = {{0.1, 0, 0}, {0.2, 0, 0}, {1.1, 1, -1}, {0.3, 0, 0}, {0.2, 0, 1}};
    ASSERT_EQ(special_pos_check(5, list), 3);
    EXPECT_EQ((reals{list[0].u, list[1].u, list[2].u}), (reals{0.1, 0.2, 0.3}));
}

// Records of other groups are skipped by their counts; the first record of a number counts.
TEST(Symmetry, TableRecords) {
    static const struct {
        const char* head;
        whole_numbers sizes; // operations, inversion flag, hexagonal axes
        reals first, last;   // translations of the first appended and of the very last operation
    } cases[] = {{"2,0\t1 1 Pmm", {2, 0, 0}, {}, {0, 0, 0.5}},
                 {"2 1 1 1 I", {8, 1, 0}, {0.5, 0.5, 0.5}, {-0.5, -0.5, -1}},
                 {"2 0 1 1 A", {4, 0, 0}, {0, 0.5, 0.5}, {0, 0.5, 1}},
                 {"2 2 1 1 B", {4, 2, 0}, {0.5, 0, 0.5}, {0.5, 0, 1}},
                 {"2 0 1 1 C", {4, 0, 0}, {0.5, 0.5, 0}, {0.5, 0.5, 0.5}},
                 {"2 1 1 1 F", {16, 1, 0}, {0, 0.5, 0.5}, {-0.5, -0.5, -0.5}},
                 {"2 0 1 9 R", {6, 0, 1}, {0.6666667, 0.3333333, 0.3333333}, {0.3333333, 0.6666667, 1.1666667}},
                 {"2 1 1 11 R", {12, 1, 1}, {0.6666667, 0.3333333, 0.3333333}, {-0.3333333, -0.6666667, -1.1666667}},
                 {"2 0 1 10 R", {2, 0, 0}, {}, {0, 0, 0.5}},
                 {"2 0 1 9 P", {2, 0, 0}, {}, {0, 0, 0.5}}};
    const table_dir dir;
    for (const auto& c : cases) {
        write_file("orvelspg.dat", std::string("# x\n1 0 7 1 P\n1 0 1 1 P\n\n0 0 8 1 P\nCOMMENT{\n}COMMENT\n") +
                                       c.head + "\n%\nX,Y,Z\n-X,-Y,Z+1/2\n1 1 1 1 P\nX,Y,Z\n");
        int count, inversion, hex;
        char letter[2];
        sym_op* ops = read_sp_group_tbl(1, count, inversion, letter, hex);
        EXPECT_EQ((whole_numbers{count, inversion, hex}), c.sizes) << c.head;
        EXPECT_NE(std::string(c.head).find(std::string(" ") + letter), std::string::npos) << c.head;
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(c.first.empty() ? 0 : ops[2].trans[i] - c.first[i], 0) << c.head << i;
            EXPECT_DOUBLE_EQ(ops[count - 1].trans[i], c.last[i]) << c.head << i;
        }
        std::free(ops);
    }
}

TEST(Symmetry, TableFaults) {
    const table_dir dir;
    const std::string bad = "$$ Data format error in orvelspg.dat. Abort.\n",
                      none = "$$ Space group no. = 1 is not found in the table.\n";
    const struct {
        std::string out, err;
        std::vector<const char*> tables;
    } cases[] = {
        {none, "", {"", "1 0 2 1 P\nX,Y,Z\n", "\n1 0\n", "2000000000 0 2 1 P\n1 0 1 1 P\nX,Y,Z\n"}},
        {"", "Invalid lattice type in space-group table.\n", // no letter, too
         {"1 0 1 1 p\nX,Y,Z\n", "1 0 1 1\nX,Y,Z\n", "1 0 1\nX,Y,Z\n1 0 1 1 P\nX,Y,Z\n"}},
        {bad, "", // too short, or a fraction over zero
         {"0 0 1 1 P\n", "2 0 1 1 P\nX,Y,Z\n", "1 0 1 1 P\nX,Y\n", "1 0 1 1 P\nX,Y,Z+1/0\n", "1 0 1 1 P\nX,Y,Z+1/Y\n"}},
    };
    const auto read = [] { crystal c(crystal_text("1\n", {})); };
    for (const auto& c : cases) {
        for (const char* table : c.tables) {
            write_file("orvelspg.dat", table);
            expect_faults({{read, c.out, c.err}});
        }
    }
    write_file("orvelspg.dat", "0 0\n"); // holds no number of a group, not even 0
    expect_faults({{[] { crystal c(crystal_text("0\n", {})); },
                    "$$ Space group no. = 0 is not found in the table.\n", ""}});
    std::filesystem::remove("orvelspg.dat");
    expect_faults({{read, "Cannot open orvelspg.dat.\n", ""}});
}

// ---- the block ------------------------------------------------------------------------------

static const std::string cell = "2\n3 ADJ a0\n4\n5\n80\n95\n110 RST gam 0.5\n";
static const std::string aniso_site =
    "O, x\n0.1 FIX x1\n0.2\n0.3\n1\n1 FIX b11\n2\n3\n4 FIX b12\n5 FIX b13\n6 ADJ b23\n0.9 FIX occ\n1\n";
static const std::string iso_site = "Si\n0.5\n0\n0\nISO\n0.4 FIX B0\n1\n0\n";
static const std::string whole = crystal_text(cell, {iso_site, aniso_site}, "1\n1\n1 1.9 -1\n7 FIX fre\n8\n");

TEST(Crystal, Block) {
    const table_dir dir;
    const crystal c(whole);
    const atom &si = c.site[0], &o = c.site[1];
    const hkl g = c.lofg_hkl[0];
    EXPECT_EQ((whole_numbers{c.sg_no, c.num_sym_op, c.r_hex_axes, c.num_site, c.num_lofg, c.lof_type, g.h, g.k, g.l,
                             si.bf, si.af, o.bf, o.af}),
              (whole_numbers{2, 2, 0, 2, 1, 1, 1, 1, -1, 0, 0, 1, 1}));
    EXPECT_EQ((reals{c.a, c.b, c.c, c.alpha, c.beta, c.gamma, c.lofg[0].fg_re, c.lofg[0].fg_im}),
              (reals{3, 4, 5, 80, 95, 110, 7, 8}));
    EXPECT_EQ((reals{si.x, si.y, si.z, si.B, si.occupancy, si.multiplicity, c.xdt[0].z}),
              (reals{0.5, 0, 0, 0.4, 1, 0.5, 14}));
    EXPECT_EQ((reals{o.x, o.beta11, o.beta22, o.beta33, o.beta12, o.beta13, o.beta23, o.occupancy, o.multiplicity,
                     c.xdt[1].z}),
              (reals{0.1, 1, 2, 3, 4, 5, 6, 0.9, 1, 8}));
    EXPECT_EQ(std::string(c.latt_type) + si.element + o.element, "PSiO");
    EXPECT_LT(c.bk[1].dt[0], c.bk[0].dt[0]) << "each site has the table of its element";
    EXPECT_EQ((reals{double(c.lp_fitpar[0].idx), c.lp_fitpar[5].rst}), (reals{kind_adj, 0.5}));
    EXPECT_STREQ(c.lofg_fitpar[0].fg_re.id, "fre");
    // x, y, z, B, beta11, 22, 33, 12, 23, 13, occupancy: the slots of the last two betas change places.
    static const struct {
        int site, slot;
        const char* id;
    } ids[] = {{0, 3, "B0"}, {1, 0, "x1"}, {1, 4, "b11"}, {1, 7, "b12"}, {1, 8, "b23"}, {1, 9, "b13"}, {1, 10, "occ"}};
    for (const auto& s : ids)
        EXPECT_STREQ(c.site_fitpar[s.site].slot[s.slot].id, s.id);

    const reals held[] = {{2, 3, 0, 0, 0}, {0, 0, 2, 3, 0}, {0, 0, 0, 0, 5432}, {0, 0, 0, 0, 5432}};
    for (int type = 1; type <= 4; ++type) {
        const std::string entry = type < 3 ? "2\n3\n" : "2\n3\n4\n5\n";
        const crystal low(crystal_text(cell, {iso_site, iso_site},
                                       "2\n" + std::to_string(type) + "\n0 0 1\n" + entry + "0 0 2\n" + entry));
        const lofg_value& v = low.lofg[1];
        const double per_site = type < 3 ? 0 : v.f_ela[0] + 10 * v.f_inela[0] + 100 * v.f_ela[1] + 1000 * v.f_inela[1];
        EXPECT_EQ((reals{v.fg_re, v.fg_im, v.fg_ela_re, v.fg_ela_im, per_site}), held[type - 1]);
    }
    EXPECT_EQ(crystal(crystal_text(cell, {}, "-3\n")).num_lofg, -3);
    EXPECT_EQ(crystal(replaced(crystal_text(cell, {}), "ATOM{\n0", "ATOM{\n-1")).num_site, -1);
}

static std::string format_error(const std::string& word, const std::string& found) {
    return "$$ Data format error has been found at " + word + ".\n$$ Abort.\n$$ buf=" + found + "\n";
}

TEST(Crystal, BlockFaults) {
    const table_dir dir;
    write_file("orvelxdt.dat", read_file("orvelxdt.dat") + "Xa 1 1 2 3 4 5 6 7 8 9\nXb 1 1 2 3 4 5 6 7 8\n");
    const std::string file_end = "$$ Unexpected end of file. Abort.\n";
    std::vector<text_row> changes = refused("crystal.txt", 3);
    changes.push_back({whole.substr(whole.find("0.9 FIX")), "", file_end});
    changes.push_back({whole.substr(whole.find("ISO")), "", file_end});
    changes.push_back({whole.substr(whole.find("}ATOM")), "", format_error("}ATOM", "")});
    for (const char* word : {"\nLATTICE{", "\n}LATTICE", "\nATOM{", "\nSITE{", "\n}SITE", "\n}ATOM", "\nLOW_ORDER_FG{",
                             "\n}LOW_ORDER_FG", "\n}CRYSTAL_STRUCTURE_DATA"})
        changes.push_back({word, "\nx" + std::string(word + 1), format_error(word + 1, "x" + std::string(word + 1))});
    changes.push_back({"CRYSTAL_", "CRISTAL_", format_error("CRYSTAL_STRUCTURE_DATA{", "CRISTAL_STRUCTURE_DATA{")});
    for (const text_row& row : changes) {
        const std::string text = replaced(whole, row[0], row[1]);
        expect_faults({{[&] { crystal c(text); }, row[2], ""}});
    }
    const auto with_setting = [](int off) { epsilon.auto_multiplicity_off = off; };
    expect_faults({{[&] { with_setting(2); crystal c(whole); }, "$$ invalid auto_multiplicity_off=2\n. Abort.\n", ""},
                   {[&] { crystal c(whole); with_setting(-1); fprint_gen_atom_pos(stdout, c); },
                    "$$ Invalid epsilon.auto_multiplicity_off. Abort.\n", ""}});
    // A count beyond any memory ends the run at once, or at the first block that isn't there.
    for (const char* part : {"ATOM{\n2", "FG{\n1"}) {
        const std::string text = replaced(whole, part, std::string(part) + "000000000");
        const outcome end = run_child([&] { crystal c(text); });
        EXPECT_TRUE(end.err == "Not enough memory for vector.\n" || begins_with(end.out, "$$ ")) << end.out << end.err;
        EXPECT_EQ(end.status, 1);
    }
    for (const std::string table : {"orvelbk.dat", "orvelxdt.dat"}) { // the latter is looked at first
        std::filesystem::remove(table);
        expect_faults({{[] { crystal c(whole); }, "", "$$ (fopen_chk_rmode) Cannot open " + table + ". Abort.\n"}});
    }
}

TEST(Crystal, GeneratedPositions) {
    const table_dir dir;
    const std::string text = crystal_text("2\n4\n4\n4\n90\n90\n90\n", // constraints come before multiplicities
                                          {iso_site, "O\n0.1 CST x\nx+x CST y\n1.25 CST z\n0\n0\n0.5\n0\n"});
    const std::string number = "* number of atom positions = ", head = "no:\tx\ty\tz\n";
    for (const std::string& first : {"1  (multiplicity = 1/2 = 0.5)\n" + head + "0\t0.5\t0\t0\n",
                                     "2  (multiplicity = 2/2 = 1)\n" + head + "0\t0.5\t0\t0\n1\t-0.5\t-0\t-0\n"}) {
        const outcome end = run_child([&] {
            epsilon.auto_multiplicity_off = first[0] - '1';
            dbg.atm_pos_out_flag = 1;
            const crystal c(text, "stem");
            std::printf("%g", c.site[0].multiplicity + 10 * c.site[1].multiplicity);
        });
        const std::string multiplicity = first[0] == '1' ? "10.5" : "11";
        EXPECT_EQ(end.out, "$$ Generated atom positions ==> stem_aps.txt\n" + multiplicity);
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(read_file("stem_aps.txt"), "* All atom positions\n*\n* Atom[1]: Si\n" + number + first +
                                                 " Occupancy = 1\n* Atom[2]: O\n" + number +
                                                 "2  (multiplicity = 2/2 = 1)\n" + head +
                                                 "0\t0.1\t0.2\t1.25\n1\t-0.1\t-0.2\t-1.25\n Occupancy = 0.5\n");
    }
    EXPECT_EQ(run_child([&] { dbg.atm_pos_out_flag = 2; const crystal c(text); }).out, "");
    EXPECT_FALSE(std::filesystem::exists("a_aps.txt"));
    expect_faults({{[&] { dbg.atm_pos_out_flag = 1, crystal(text, "no/stem"); }, "",
                    "$$ Cannot open no/stem_aps.txt. Abort.\n"}});
}

// ---- constraints ----------------------------------------------------------------------------

TEST(Constraints, Expressions) {
    const table_dir dir;
    crystal c(whole); // a0 3, gam 110, B0 0.4, x1 0.1, b13 5, b23 6, occ 0.9, fre 7
    static const struct {
        double value;
        std::vector<const char*> exprs;
    } cases[] = {
        {3, {"=a0", "a0", "a=0"}},
        {1.75, {"=0.5*a0+0.25"}},
        {17, {"2*3*a0-1"}},
        {-2, {"a0*-2", "1e-3"}}, // a minus sign closes the product before it, in numbers as well
        {-6, {"-2*a0"}},
        {1000, {"1e3"}},
        {0, {"", "="}},
        {1.2, {"= a=0 *B 0"}},
        {2.6, {"a0--B0"}},
        {-1, {"b13-b23"}},
        {6.3, {"occ*fre"}},
        {110.1, {"gam+x1"}},
    };
    for (const auto& e : cases)
        for (const char* expr : e.exprs)
            EXPECT_NEAR(constraint_value_csd(expr, c), e.value, 1e-12) << expr;

    for (const char* type : {"1", "2", "3", "4"}) { // both values of a reflection of each kind
        crystal low(crystal_text(cell, {iso_site}, std::string("1\n") + type + "\n1 0 0\n2 FIX p\n3 FIX q\n"));
        EXPECT_EQ(constraint_value_csd("p-q*10", low), -28) << type;
    }
    const std::string t256(256, 't'), missing = "$$error: $$ (val_search_csd) constraint ";
    const auto value = [&](std::string expr) { return [&c, expr] { constraint_value_csd(expr.c_str(), c); }; };
    const auto search = [&](int type) { return [&c, type] { c.lof_type = type; val_search_csd("q", c); }; };
    const auto pass = [&](int type) { return [&c, type] { c.lof_type = type; constraint_csd(c); }; };
    expect_faults({
        {value(".5"), missing + ".5 not found\n", ""},
        {value("2*(a0)"), missing + "(a0) not found\n", ""},
        {value("B0/2"), missing + "B0/2 not found\n", ""},
        {value(t256), missing + t256 + " not found\n", ""},
        {value(t256 + "u"), "$$error: " + t256 + " too long\n", ""},
        {search(5), "$$error: lof_type=5 not available\n", ""},
        {search(6), "$$error: (fget_low_g_cst) invalid lof_type(=6)\n", ""},
        {pass(5), "$$error: lof_type=5 not available\n", ""},
        {pass(0), "$$error: (fget_low_g_cst) invalid lof_type(=0)\n", ""},
        {[&] { c.site[0].bf = 2; val_search_csd("fre", c); }, "$$error: Invalid bf\n", ""},
        {[&] { c.site[0].bf = 2; constraint_csd(c); }, "$$error: invalid bf\n", ""},
    });
}

// An expression sees what the sweep has already renewed, and the old value of what comes later.
TEST(Constraints, OneSweepInOrder) {
    const table_dir dir;
    const std::string site = "Si\n=late CST x1\n=a0*0.1 CST y1\n=y1+y1 CST z1\nISO\n=x1 CST late\n1\n0\n";
    crystal c(crystal_text("1\n5 ADJ a0\n=a0+1 CST b0\n=2*b0 CST c0\n90\n90\n90\n", {site},
                           "1\n3\n0 0 1\n2 FIX fe\n=-0.5*fe CST fi\n"));
    const atom& s = c.site[0];
    EXPECT_EQ((reals{c.b, c.c, s.x, s.y, s.z, s.B, c.lofg[0].f_inela[0]}), (reals{6, 12, 0, 0.5, 1, 0, -1}));
    c.a = 7;
    c.site[0].B = 0.3;
    constraint_csd(c);
    EXPECT_EQ((reals{c.b, c.c, s.x, s.B}), (reals{8, 16, 0.3, 0.3}));
}
