// SPDX-License-Identifier: MIT
//
// Faults of the machine, one run after the other: files and consoles that cannot be written, memory that
// runs out at every allocation of every job, and runs that are stopped. None ends without a word, but
// where nobody listens, and none leaves a file that looks complete and is not.
#include <array>
#include <cmath>
#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "control/ov_mpi.h"
#include "job_util.h"

using namespace orvel_test;
namespace fs = std::filesystem;

static const std::string reflexes = "OUTPUT_REFLEX{\n1\n0 0 0\n}OUTPUT_REFLEX\n",
                         depths = "OUTPUT_THICKNESS{\n1\n700\n}OUTPUT_THICKNESS\n",
                         branches = "OUTPUT_BRANCH{\n1 2\n}OUTPUT_BRANCH\n", beams = "0\n2 0\n0 0 0\n1 0 0\n",
                         plane = "CALC_RXY_RANGE{\n2 1\n0 1\n0 1\n}CALC_RXY_RANGE\n";

// The parameter file of a job: the lines of its mesh of tilts (a map has none) and those behind its beams.
static std::string parameters(const std::string& word, const std::string& condition, const std::string& mesh,
                              const std::string& blocks, const std::string& volume = "") {
    const std::string block = condition + "_CALCULATION_CONDITION", search = "BEAM_SEARCH" + volume;
    return word + "\nEPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n" +
           crystal_text("1\n4\n5\n6\n90\n90\n90\n", {"Si\n0\n0\n0\nISO\n0.3\n1\n0\n"}, "1\n1\n0 0 0\n9.6\n0.48\n") +
           block +
           "{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n0\n0\n100\n}INCIDENT_BEAM\n" +
           (mesh.empty() ? "" : "CALC_KXY_RANGE{\n" + mesh + "}CALC_KXY_RANGE\n") + search + "{\n" + beams + "}" +
           search + "\n" + blocks + "}" + block + "\n";
}
static std::string pattern(const std::string& mesh) { return parameters("SIM_MODE", "SIM", mesh, reflexes + depths); }
static std::string surface(const std::string& mesh) {
    return parameters("DISPSURF_MODE", "DISPSURF", mesh, branches + reflexes + depths);
}

// Every job, as small as can be.
static const std::string one = "0\n1\n1\n", area = "AREA_PROJ_CELL{\n20\n}AREA_PROJ_CELL\n",
                         cell = "CALC_RXY_RANGE_3D{\nUNITCELL_XYZ\n2 2 2\n}CALC_RXY_RANGE_3D\n";
static const std::vector<std::string> jobs = {
    pattern(one),
    parameters("SIM_COHERENT_MODE", "SIM", one, reflexes + depths) + "COHERENT{\n2e7\n-900\n0.4 -0.3 9\n}COHERENT\n",
    surface(one),
    parameters("BLOCH_MODE", "BLOCH", one, plane + branches),
    parameters("TFRINGE_MODE", "TFRINGE", one, "CALC_T_RANGE{\n2\n700 1500\n}CALC_T_RANGE\n" + reflexes),
    parameters("E_DENSITY_PROJ_MODE", "E_DENSITY", "", plane + area),
    parameters("POTENTIAL_REIM_PROJ_MODE", "E_DENSITY", "", plane + area),
    parameters("E_DENSITY_3D_UNITCELL_MODE", "E_DENSITY", "", cell, "_3D"),
    parameters("POTENTIAL_REIM_3D_UNITCELL_MODE", "E_DENSITY", "", cell, "_3D"),
};

static const std::string dumps = "vg_dump_flag 1\natm_pos_out_flag 1\n";

TEST(Fault, EveryAllocationFails) {
    const job_dir dir;
    for (const std::string& text : jobs)
        expect_memory_faults([&] { return dir.run(text, dumps); });
}

TEST(Fault, AnythingThatCannotBeWritten) {
    const std::string program = std::string("exec '") + ORVEL_PROGRAM + "' a.dat ", full = "ln -s /dev/full ";
    const struct {
        std::string ini, command, name;      // what cannot be written
        std::vector<std::string> gone, stay; // files of the run, and the target of a link
    } cases[] = {
        {"", program + "> /dev/full", "standard output", {"a_log.txt"}, {}},
        {"", program + ">&-", "standard output", {"a_log.txt"}, {}},
        {"", full + "a_log.txt; " + program, "a_log.txt", {"a_fg0.txt"}, {}},
        {"", full + "a_fg0.txt; " + program, "a_fg0.txt", {"a_rs0.txt"}, {"a_log.txt"}},
        {"", full + "a_rs0.txt; " + program, "a_rs0.txt", {"a_dre.txt"}, {"a_log.txt", "a_fg0.txt"}},
        {dumps, full + "a_vg.txt; " + program, "a_vg.txt", {"a_rs0.txt"}, {"a_fg0.txt"}},
        {dumps, full + "a_aps.txt; " + program, "a_aps.txt", {"a_fg0.txt"}, {}},
        {"vg_sel_chk_flag 1\n", full + "a.dbg; " + program, "a.dbg", {"a_rs0.txt"}, {"a_fg0.txt"}},
        {"", "ulimit -f 8; " + program, "a_rs0.txt", {"a_rs0.txt", "a_dre.txt"}, {"a_log.txt", "a_fg0.txt"}},
        {"vg_sel_chk_flag 1\n", "ulimit -f 8; " + program, "a.dbg", {"a.dbg", "a_rs0.txt"}, {"a_fg0.txt"}},
        {"", "ln -s b a_rs0.txt; ulimit -f 8; " + program, "a_rs0.txt", {"a_rs0.txt"}, {"b"}},
    };
    for (const auto& c : cases) {
        const table_dir dir;
        write_file("a.dat", pattern("3\n41\n0.5\n"));
        write_file("orvel.ini", c.ini + "INI_PARAM_END\n");
        const outcome end = run_child([&] { execl("/bin/sh", "sh", "-c", c.command.c_str(), nullptr); });
        EXPECT_EQ(end.err, "$$ Cannot write " + c.name + ". Abort.\n") << c.command << end.out;
        EXPECT_EQ(end.status, 1) << c.command;
        for (const std::string& name : c.gone)
            EXPECT_FALSE(fs::exists(fs::symlink_status(name))) << name << " is left by " << c.command;
        for (const std::string& name : c.stay)
            EXPECT_TRUE(fs::exists(name) && fs::is_empty(name) == (name == "b")) << name << " of " << c.command;
        EXPECT_TRUE(c.name == "a_log.txt" || !fs::exists("a_log.txt") || !contains(read_file("a_log.txt"), "See you"));
    }
}

// A folder, a read error and a device whose line never ends, in the place of each file and of the prompt.
TEST(Fault, AnythingThatCannotBeRead) {
    std::vector<std::array<std::string, 3>> cases; // command, arguments of the program, what cannot be read
    for (const std::string name : {"a.dat", "orvel.ini", "orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
        for (const std::string way : {"mkdir ", "ln -s /proc/self/mem ", "ln -s /dev/zero "})
            cases.push_back({"rm -f " + name + "; " + way + name + "; ", "a.dat", name});
    for (const std::string input : {"< .", "<&-", "< /dev/zero"})
        cases.push_back({"", input, "standard input"});
    for (const auto& [command, arguments, name] : cases) {
        const table_dir dir;
        write_file("a.dat", jobs[0]);
        const std::string line = command + "exec '" ORVEL_PROGRAM "' " + arguments;
        const outcome end = run_child([&] { execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); });
        EXPECT_EQ(end.err, "$$ Cannot read " + name + ". Abort.\n") << line;
        EXPECT_EQ(end.status, 1) << line;
    }
}

// Each file whose last text holds a number that is none is told once; texts, whole numbers, the log and
// the console are none.
TEST(Fault, NumbersThatAreNone) {
    const auto warnings = [](const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names)
            text += "$$Warning: " + name + " holds values that are no numbers.\n";
        return text;
    };
    const table_dir dir;
    const outcome kinds = run_child([] {
        const double inf = HUGE_VAL, nan = NAN;
        for (const bool last : {false, true}) {
            std::FILE *log = orvel::ov_fopen_wmode("log"), *good = orvel::ov_fopen_wmode("good"),
                      *mended = orvel::ov_fopen_wmode("mended"), *bad = orvel::ov_fopen_wmode("bad"),
                      *late = orvel::ov_fopen_wmode("late");
            orvel::ov_keep(log);
            orvel::ov_fprintf_stdo(log, "%g\n", nan);
            orvel::ov_fprintf(good, "%s %c%d %3ld %llu%% %5.2lf inf\n", "nan", 'n', 7, 7L, 7ULL, 0.5);
            orvel::ov_fprintf(mended, "%.12lg\n", last ? 0.5 : inf);
            orvel::ov_fprintf(bad, "%s %c%d %3ld %llu%% %5.2lf\n", "a", 'b', 7, 7L, 7ULL, -inf);
            orvel::ov_fprintf_stdo(late, "%g%f\n", 0.5, last ? nan : 0.5);
            for (std::FILE* file : {log, good, mended, bad, late})
                orvel::ov_fclose(file);
        }
        orvel::ov_exit();
    });
    EXPECT_EQ(kinds.err, warnings({"bad", "late"}));
    EXPECT_EQ(kinds.status, 0);

    const std::string thick = "1\n700\n}", no_thick = "1\nnan\n}", grid = "2 1\n0 1\n", no_grid = "2 1\n0 nan\n";
    const struct {
        std::string text;
        std::vector<std::string> names;
    } runs[] = {
        {replaced(jobs[0], "1\n700\n", "2\nnan\ninf\n"), {"a_rs0.txt", "a_rs1.txt"}},
        {replaced(jobs[1], thick, no_thick), {"a_rs0.txt"}},
        {replaced(jobs[2], thick, no_thick), {"a_int.txt"}},
        {replaced(jobs[3], grid, no_grid), {"a_pp.txt", "a_b1.txt", "a_b2.txt"}},
        {replaced(jobs[4], "700 1500", "700 nan"), {"a_int.txt", "a_re_im.txt"}},
        {replaced(jobs[5], grid, no_grid), {"a_pp.txt", "a_ed.txt"}},
        {replaced(jobs[6], grid, no_grid), {"a_pp.txt"}},
        {replaced(jobs[8], "9.6\n", "nan\n"), {"a_fg0.txt", "a_pt.3ed"}},
    };
    for (const auto& c : runs) {
        const job_dir job;
        const outcome end = job.run(c.text);
        EXPECT_EQ(end.err, warnings(c.names)) << c.text;
        EXPECT_EQ(end.status, 0) << end.out;
    }
}

// A file server may tell of a full disk when a file is closed, be it the log; an error told earlier is kept.
TEST(Fault, ToldLate) {
    const table_dir dir;
    for (const bool kept : {false, true}) {
        const outcome end = run_child([&] {
            std::FILE* file = orvel::ov_fopen_wmode("late");
            if (kept)
                orvel::ov_keep(file);
            close(fileno(file));
            orvel::ov_fclose(file);
        });
        EXPECT_EQ(end.err, "$$ Cannot write late. Abort.\n");
        EXPECT_FALSE(fs::exists("late")) << kept;
    }
    const outcome early = run_child([] {
        std::FILE* file = orvel::ov_fopen_wmode("/dev/full");
        std::setvbuf(file, nullptr, _IONBF, 0);
        std::fputc('x', file);
        orvel::ov_fclose(file);
    });
    EXPECT_EQ(early.err, "$$ Cannot write /dev/full. Abort.\n");
}

// A run whose console is a pipe is left alone until its first percentage shows there; then what comes to
// it is a signal, one that it was told to ignore and another one, or the end of the pipe.
TEST(Fault, StoppedInItsLoop) {
    const struct {
        int ignored, sent, status;
    } cases[] = {
        {0, SIGINT, -SIGINT},
        {0, SIGTERM, -SIGTERM},
        {0, SIGHUP, -SIGHUP},
        {0, SIGXCPU, -SIGXCPU},
        {SIGHUP, SIGTERM, -SIGTERM},
        {0, 0, 1},
        {SIGPIPE, 0, 1},
    };
    for (const auto& c : cases) {
        const table_dir dir;
        write_file("a.dat", surface("3\n701\n0.5\n"));
        int console[2];
        ASSERT_EQ(pipe(console), 0);
        const pid_t run = fork();
        if (run == 0) {
            for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGXCPU, SIGPIPE})
                std::signal(signal, signal == c.ignored ? SIG_IGN : SIG_DFL);
            dup2(console[1], STDOUT_FILENO);
            dup2(creat("err", S_IRWXU), STDERR_FILENO);
            close(console[0]);
            alarm(120);
            execl(ORVEL_PROGRAM, "orvel", "a.dat", nullptr);
            _exit(127);
        }
        close(console[1]);
        std::string out;
        const auto in_loop = [&] { return contains(out, "(calc_disp_surf_ug)") && ends_with(out, " 5%"); };
        for (char next; !in_loop() && read(console[0], &next, 1) == 1;)
            out += next;
        EXPECT_TRUE(in_loop()) << out;
        for (const char* name : {"a_ds.txt", "a_amp.txt", "a_int.txt"})
            EXPECT_TRUE(fs::exists(name)) << name;
        if (c.sent == 0)
            close(console[0]);
        for (int signal : {c.ignored, c.sent})
            kill(run, signal);
        int state = 0;
        ASSERT_EQ(waitpid(run, &state, 0), run);
        if (c.sent != 0)
            close(console[0]);
        EXPECT_EQ(WIFEXITED(state) ? WEXITSTATUS(state) : -WTERMSIG(state), c.status);
        EXPECT_EQ(read_file("err"), "") << c.sent;
        for (const char* name : {"a_ds.txt", "a_amp.txt", "a_int.txt"})
            EXPECT_FALSE(fs::exists(name)) << name << " after signal " << c.sent;
        EXPECT_TRUE(ends_with(read_file("a_log.txt"), "dispersion surface #####\n")) << c.sent;
        EXPECT_TRUE(fs::exists("a_fg0.txt"));
    }
}
