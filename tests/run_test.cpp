// SPDX-License-Identifier: MIT
//
// Whole runs of the program: how it starts and ends, what the console and the log show, where the
// names of its files come from, and what stops it.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace orvel_test;
namespace fs = std::filesystem;

static const std::string settings = "EPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n";

// Silicon, two beams by hand, one tilt and one thickness.
static const std::string two_beams =
    "SIM_MODE\n" + settings +
    "CRYSTAL_STRUCTURE_DATA{\nLATTICE{\n227\n5.431\n5.431\n5.431\n90\n90\n90\n}LATTICE\n"
    "ATOM{\n1\nSITE{\nSi\n0.125\n0.125\n0.125\nISO\n0.46\n1\n0\n}SITE\n}ATOM\n"
    "LOW_ORDER_FG{\n0\n}LOW_ORDER_FG\n}CRYSTAL_STRUCTURE_DATA\n"
    "SIM_CALCULATION_CONDITION{\nINCIDENT_BEAM{\n1 1 1\n1 1 1\n2 -2 0\n1\n0\n100\n}INCIDENT_BEAM\n"
    "CALC_KXY_RANGE{\n0\n1\n1\n}CALC_KXY_RANGE\n"
    "BEAM_SEARCH{\n0\n2 0\n0 0 0\n2 -2 0\n}BEAM_SEARCH\n"
    "OUTPUT_REFLEX{\n0\n}OUTPUT_REFLEX\nOUTPUT_THICKNESS{\n1\n100\n}OUTPUT_THICKNESS\n"
    "}SIM_CALCULATION_CONDITION\n";

static const std::string version = "#####  Ver. 3.7v4e updated on 110530\n";
static const std::string no_ini = "Cannot find orvel.ini file.  No options.\n";
static const std::string last_frame = "#####  [Single CPU version]\n#####\n";
static const std::string bad_block =
    "$$ Data format error has been found at EPS_CONTROL_PARAMETERS{.\n$$ Abort.\n$$ buf=";
static const std::string sim_title = "##### Many-beam dynamical simulation #####\n";

static std::string with_cr(std::string text) {
    for (std::size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i + 2))
        text.insert(i, "\r");
    return text;
}

namespace {

// A run in a fresh directory with the data tables, for one parameter file.
struct run_dir : temp_dir {
    run_dir() {
        for (const auto& entry : fs::directory_iterator(ORVEL_DATA_DIR))
            if (entry.path().extension() == ".dat")
                fs::create_symlink(entry.path(), path / entry.path().filename());
    }
    outcome run(const std::string& name, const std::string& text) const {
        write_file(path / name, text);
        return run_orvel(path, {name});
    }
};

} // namespace

TEST(Run, ConsoleAndLogOfANormalRun) {
    const run_dir dir;
    fs::create_symlink("orvel.ini", dir.path / "orvel.ini"); // a link to itself opens no less than a missing file
    const outcome end = dir.run("a.b.dat", two_beams);
    const std::string body = "parameter_file: a.b.dat\n" + sim_title;
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.err, "");
    EXPECT_TRUE(begins_with(end.out, "\n#####  Welcome to ORVEL\n" + version + "#####\n"));
    EXPECT_TRUE(contains(end.out, last_frame + no_ini + body)) << end.out;
    EXPECT_TRUE(ends_with(end.out, "\nSee \"a_log.txt\".  See you again!!\n\n")) << end.out;
    EXPECT_TRUE(fs::exists(dir.path / "a_rs0.txt"));

    const std::string log = read_file(dir.path / "a_log.txt");
    EXPECT_TRUE(begins_with(log, version + "#####\n")) << log;
    EXPECT_TRUE(contains(log, last_frame + body + "\n")) << log;
    EXPECT_TRUE(ends_with(log, "\n\nSee you again!!!\n")) << log;

    // Both banners: a rule, the name, a rule, the authors, a rule, thanks in 4 or 3 lines, ...
    std::vector<std::string> console_lines = lines_of(end.out), log_lines = lines_of(log);
    console_lines.erase(console_lines.begin(), console_lines.begin() + 3);
    log_lines.erase(log_lines.begin());
    const auto rules = [](const std::vector<std::string>& lines) {
        std::string kinds;
        for (std::size_t i = 0; i < lines.size() && begins_with(lines[i], "#####"); ++i)
            kinds += lines[i] == "#####" ? '-' : 't';
        return kinds;
    };
    EXPECT_EQ(rules(console_lines), "-t-t-tttt-t-");
    EXPECT_EQ(rules(log_lines), "-t-t-ttt-t-");
}

// Line ends of another system, comments everywhere, and a log of an earlier run change nothing.
TEST(Run, SameResultsFromOtherLineEnds) {
    const run_dir plain, other;
    const outcome first = plain.run("a.dat", two_beams);
    write_file(other.path / "a_log.txt", std::string(5000, 'x'));
    write_file(other.path / "orvel.ini", "vg_dump_flag 1\r\nINI_PARAM_END\r\n");
    const std::string comments = "# first\nCOMMENT{\nx\n}COMMENT\n";
    const outcome second = other.run("a.dat", with_cr(comments + two_beams));
    EXPECT_EQ(first.status + second.status, 0) << second.out;
    for (const char* name : {"a_log.txt", "a_rs0.txt", "a_fg0.txt", "a_dre.txt"})
        EXPECT_EQ(read_file(plain.path / name), read_file(other.path / name)) << name;
    EXPECT_TRUE(fs::exists(other.path / "a_vg.txt"));
}

TEST(Run, ReflectionsOnly) {
    const run_dir dir;
    write_file(dir.path / "orvel.ini", "reflex_only_flag 1\nwhat is this\n\nINI_PARAM_END\nx\n");
    const outcome end = dir.run("a.dat", two_beams.substr(0, two_beams.find("}BEAM_SEARCH")));
    const std::string head = "Reading orvel.ini\nwhat is this is ignored.\n is ignored.\n";
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(contains(end.out, last_frame + head + "parameter_file: a.dat\n")) << end.out;
    EXPECT_TRUE(ends_with(end.out, "$$ reflex_only_flag=1. exit.\n")) << end.out;
    EXPECT_TRUE(fs::exists(dir.path / "a_fg0.txt"));
    EXPECT_TRUE(ends_with(read_file(dir.path / "a_log.txt"), sim_title));
}

static const std::string cannot_read = "$$ (fopen_chk_rmode) Cannot open ";

TEST(Run, NameFromThePrompt) {
    const std::string prompt = no_ini + "Parameter file (with file extension) >>";
    const std::string name = "parameter_file: ";
    const std::string none = "$$ No parameter file was given. Abort.\n";
    const struct {
        const char* input;
        std::string answer, err; // what follows the prompt on the console, standard error
    } cases[] = {
        {"# p\nCOMMENT{\np\n}COMMENT\n p.dat, q\nq\n", name + "p.dat\n" + bad_block + "x\n", ""},
        {"p.dat", name + "p.dat\n" + bad_block + "x\n", ""},
        {"no.dat\n", name + "no.dat\n", cannot_read + "no.dat. Abort.\n"},
        {"", none, ""},
        {"# only\n", none, ""},
    };
    for (const auto& c : cases) {
        const temp_dir dir;
        write_file(dir.path / "p.dat", "SIM_MODE\nx\n");
        const outcome end = run_orvel(dir.path, {}, c.input);
        EXPECT_TRUE(ends_with(end.out, prompt + c.answer)) << c.input << end.out;
        EXPECT_EQ(end.err, c.err);
        EXPECT_EQ(end.status, 1);
    }
}

// What stops a run in front of its job: the end of the console, all of standard error, and the
// stem of the log, whose last line is the parameter file's name (no stem: no log).
TEST(Run, Ends) {
    const std::string unknown = "SIM_MODUS\n" + settings;
    const std::string no_job = "$$ chk_data: EPS_CONTROL_PARAMETERS{ ok.\n"
                               "##### Job mode SIM_MODUS is not supported. Abort.\n";
    const std::string open_block = " has been found at }EPS_CONTROL_PARAMETERS.\n"
                                   "$$ Abort.\n$$ buf=\n";
    const std::string open_ini = "\n\n$$ No INI_PARAM_END command in orvel.ini. Abort.\n";
    const std::string file_end = "$$ Unexpected end of file. Abort.\n";
    const std::string too_long = no_ini + "$$ Parameter file name is too long. Abort.\n";
    const std::string n247(247, 'n'), x253(253, 'x');
    const struct {
        std::string name, text, ini, out, err, stem;
    } cases[] = {
        {"a.dat", unknown, "chk_data_dump_flag\t1\nINI_PARAM_END", no_job, "", "a"},
        {"a.dat", "FIT_MODE, x\n" + settings, "", "FIT_MODE is not supported. Abort.\n", "", "a"},
        {"a.dat", "sim_mode\n" + settings, "", "sim_mode is not supported. Abort.\n", "", "a"},
        {"a.dat", "SIM_MODUS\n", "", bad_block + "\n", "", "a"},
        {"a.dat", "SIM_MODUS\nEPS_CONTROL x\n", "", bad_block + "EPS_CONTROL\n", "", "a"},
        {"a.dat", "SIM_MODE\nEPS_CONTROL_PARAMETERS{ x\nnumh 3\n", "", open_block, "", "a"},
        {"a.dat", "", "", file_end, "", "a"},
        {"a.dat", "COMMENT{\nSIM_MODE\n", "", file_end, "", "a"},
        {"a.dat", unknown, "vg_dump_flag 1\n", open_ini, "", ""},
        {"a.dat", unknown, "INI_PARAM_END vg_dump_flag\n#INI_PARAM_END\n", open_ini, "", ""},
        {"no.dat", "", "", "parameter_file: no.dat\n", cannot_read + "no.dat. Abort.\n", "no"},
        {"no p.dat", "", "", ": no p.dat\n", cannot_read + "no p.dat. Abort.\n", "no p"},
        {"no/a.dat", "", "", no_ini, "$$ Cannot open no/a_log.txt. Abort.\n", ""},
        {".", "", "", file_end, "", "."}, // a folder; its stem is empty
        {n247, "", "", file_end, "", n247},
        {n247 + "n", "", "", too_long, "", ""},
        {"a." + x253, "", "", file_end, "", "a"},
        {"a.x" + x253, "", "", too_long, "", ""},
    };
    for (const auto& c : cases) {
        const temp_dir dir;
        if (c.name != "." && !begins_with(c.name, "no") && c.out != too_long)
            write_file(dir.path / c.name, c.text);
        if (!c.ini.empty())
            write_file(dir.path / "orvel.ini", c.ini);
        const outcome end = run_orvel(dir.path, {c.name});
        EXPECT_TRUE(ends_with(end.out, c.out)) << c.out << end.out;
        EXPECT_EQ(end.err, c.err) << c.out;
        EXPECT_EQ(end.status, 1) << c.out;
        const fs::path log = dir.path / ((c.stem == "." ? "" : c.stem) + "_log.txt");
        EXPECT_EQ(fs::exists(log), !c.stem.empty()) << c.out << log;
        const std::string last = last_frame + "parameter_file: " + c.name + "\n";
        EXPECT_TRUE(c.stem.empty() || ends_with(read_file(log), last)) << c.out;
    }
    const temp_dir dir;
    const outcome usage = run_orvel(dir.path, {"a.dat", "b.dat"});
    EXPECT_TRUE(ends_with(usage.out, no_ini + "Usage: orvel parameter_file (with extension)\n"));
    EXPECT_EQ(usage.status, 1);
    EXPECT_TRUE(fs::is_empty(dir.path));
}

// Each job word brings its title to log and console before any of its blocks is read.
TEST(Run, JobTitles) {
    static const char* const jobs[][2] = {
        {"SIM_MODE", "Many-beam dynamical simulation"},
        {"SIM_COHERENT_MODE", "Many-beam dyn. sim. of coherent CBED patterns"},
        {"DISPSURF_MODE", "Calculation of dispersion surface"},
        {"BLOCH_MODE", "Calculation of Bloch states"},
        {"TFRINGE_MODE", "Calculation of thickness fringes"},
        {"E_DENSITY_PROJ_MODE", "Calculation of projected electron density"},
        {"POTENTIAL_REIM_PROJ_MODE", "Calculation of projected potential"},
        {"E_DENSITY_3D_UNITCELL_MODE", "Calculation of 3D electron density"},
        {"POTENTIAL_REIM_3D_UNITCELL_MODE", "Calculation of 3D electrostatic potential"},
    };
    for (const auto& [word, title] : jobs) {
        const run_dir dir;
        const outcome end = dir.run("a.dat", std::string(word) + " remark\n" + settings);
        const std::string head = "parameter_file: a.dat\n##### " + std::string(title) + " #####\n";
        EXPECT_TRUE(contains(end.out, head + "$$ ")) << end.out;
        EXPECT_TRUE(ends_with(read_file(dir.path / "a_log.txt"), last_frame + head)) << word;
        EXPECT_EQ(end.status, 1) << word;
    }
}
