// SPDX-License-Identifier: MIT
//
// Whole runs of orvel_fit: data simulated from a known crystal and the way back to it, the normal
// equations against differences of chi-square, how a run ends, and what stops it.
#include <gtest/gtest.h>

#ifdef ORVEL_FIT_PROGRAM

#include <cmath>
#include <map>
#include <regex>
#include <sstream>

#include <unistd.h>

#include "refine_util.h"

using namespace orvel_test;
namespace fs = std::filesystem;

// Two atoms with an inversion centre, 13 beams by hand, 5 measured ones. The second atom hangs on the
// first.
static const std::string truth =
    "FIT_MODE\nEPS_CONTROL_PARAMETERS{\nintensity_scaling 100000\n}EPS_CONTROL_PARAMETERS\n"
    "CRYSTAL_STRUCTURE_DATA{\nLATTICE{\n2\n4 FIX a\n5\n6\n80\n95\n100\n}LATTICE\nATOM{\n2\n"
    "SITE{\nSi\n0.12 ADJ x\n0.23\n0.37\nISO\n0.5 ADJ B\n1\n0\n}SITE\n"
    "SITE{\nO\n=0.5*x+0.35 CST x2\n0.1\n0.2\nISO\n=2*B CST B2\n1\n0\n}SITE\n}ATOM\n"
    "LOW_ORDER_FG{\n0\n}LOW_ORDER_FG\n}CRYSTAL_STRUCTURE_DATA\n"
    "FIT_CALCULATION_CONDITION{\nITER_EXP_NUM{\n15\n1\n}ITER_EXP_NUM\n"
    "DATA_SET{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n0.1 FIX H\n-0.07 FIX G\n100 FIX kV\n}INCIDENT_BEAM\n"
    "CALC_KXY_RANGE{\n2\n11\n0.5\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n0\n11 2\n"
    "0 0 0\n1 0 0\n-1 0 0\n0 1 0\n0 -1 0\n1 1 0\n-1 -1 0\n1 -1 0\n-1 1 0\n2 0 0\n-2 0 0\n0 2 0\n0 -2 0\n}BEAM_SEARCH\n"
    "INTENSITY_DATA{\na.int\n1\n5\n}INTENSITY_DATA\n"
    "THICKNESS_BLOCK{\nSTW_PAR{\n1 ADJ scale\n700 ADJ thickness\n0 FIX width\n0 0\n}STW_PAR\nREFLEX_SHIFT_PAR{\n"
    "0 0 0\n0\n0\n1 0 0\n0 FIX H1\n0 FIX G1\n-1 0 0\n0\n0\n0 1 0\n0\n0\n1 1 0\n0\n0\n}REFLEX_SHIFT_PAR\n"
    "}THICKNESS_BLOCK\n}DATA_SET\n}FIT_CALCULATION_CONDITION\n";

// Rows of a dumped cycle.
enum { par,
       chisq,
       alpha };

// Off by 8 to 15 %.
static const changes off = {
    {"0.12 ADJ", "0.13 ADJ"},
    {"0.5 ADJ", "0.57 ADJ"},
    {"1 ADJ", "0.9 ADJ"},
    {"700 ADJ", "756 ADJ"},
};

namespace {
struct parameter {
    double value, esd;
};

// A run of orvel_fit and what its console tells.
struct fit_run : outcome {
    std::vector<table> cycles; // per kernel call the rows of numbers: par, chisq, alpha ..., beta
    std::map<std::string, parameter> end;
    double gof = 0;
    explicit fit_run(const outcome& run) : outcome(run) {
        std::smatch m;
        for (const std::string& line : lines_of(out)) {
            std::istringstream in(line.substr(std::min(line.size(), line.find(' '))));
            if (begins_with(line, "@cycle "))
                cycles.push_back({});
            else if (begins_with(line, "@"))
                cycles.back().emplace_back(std::istream_iterator<double>(in), std::istream_iterator<double>());
            else if (std::regex_search(line, m, std::regex("^ \\[\\d+\\] (\\w+)= (\\S+), esd= (\\S+) ")))
                end[m[1]] = {std::stod(m[2]), std::stod(m[3])};
            else if (std::regex_search(line, m, std::regex("^ GoF = (\\S+),")))
                gof = std::stod(m[1]);
        }
    }
};

struct fit_dir : job_dir {
    fit_run run(const std::vector<std::string>& arguments) const {
        return fit_run(run_child([&] {
            std::vector<char*> argv = {const_cast<char*>("orvel_fit")};
            for (const std::string& argument : arguments)
                argv.push_back(const_cast<char*>(argument.c_str()));
            argv.push_back(nullptr);
            setenv("ASAN_OPTIONS", "exitcode=99", 1);
            execv(ORVEL_FIT_PROGRAM, argv.data());
            _exit(127);
        },
                                 300));
    }
    fit_run run(const std::string& text, const std::vector<std::string>& options) const {
        write_file("a.dat", text);
        std::vector<std::string> arguments = {"a.dat"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return run(arguments);
    }
    // Data of a crystal; then the refinement from another one.
    fit_run recover(const std::string& from, const std::string& start,
                    const std::vector<std::string>& options = {}) const {
        EXPECT_EQ(run(from, {"--simulate"}).status, 0);
        return run(start, options);
    }
};
} // namespace

static void expect_recovered(const fit_run& end, const std::map<std::string, double>& values) {
    EXPECT_EQ(end.status, 0) << end.out << end.err;
    EXPECT_TRUE(contains(end.out, "\n  ** Normal convergence **\n\n")) << end.out;
    EXPECT_LE(end.cycles.size(), 10u);
    EXPECT_NEAR(end.gof, 1.0, 0.1);
    for (const auto& [id, value] : values) {
        ASSERT_EQ(end.end.count(id), 1u) << id << end.out;
        EXPECT_GT(end.end.at(id).esd, 0) << id;
        EXPECT_LT(end.end.at(id).esd, 0.03 * std::fabs(value)) << id;
        EXPECT_NEAR(end.end.at(id).value, value, 4 * end.end.at(id).esd) << id;
    }
}

TEST(Fit, RecoversACoordinateAndAgain) {
    const fit_dir dir;
    const std::map<std::string, double> values = {{"x", 0.12}, {"B", 0.5}, {"scale", 1}, {"thickness", 700}};
    const fit_run end = dir.recover(truth, with(truth, off), {"--dump-normal"});
    expect_recovered(end, values);
    ASSERT_GT(end.cycles.size(), 3u);
    // The refined file starts at the minimum and stays there, with all its names.
    const fit_run again = dir.run({"a_fit.txt", "--dump-normal"});
    expect_recovered(again, values);
    ASSERT_EQ(again.cycles.size(), 1u);
    EXPECT_NEAR(again.cycles[0][chisq][0], end.cycles.back()[chisq][0], 1e-3);
    EXPECT_TRUE(contains(read_file("a_fit.txt"), "\n=0.5*x+0.35  CST  x2  #x (frac. coord.)\n"));
    // Other ways to the same point.
    for (const char* setting : {"svd_flag 0", "flag_modified_marquardt 0"}) {
        const fit_run other = dir.run(with(with(truth, off), {{"}EPS", std::string(setting) + "\n}EPS"}}), {});
        for (const auto& [id, found] : end.end)
            EXPECT_NEAR(other.end.at(id).value, found.value, 0.02 * found.esd) << setting << id;
    }
    const outcome program = run_orvel(dir.path, {"a.dat"});
    EXPECT_TRUE(ends_with(program.out, "##### Job mode FIT_MODE is not supported. Abort.\n")) << program.out;
}

// A low-order structure factor from two data sets, one of them with two thicknesses.
TEST(Fit, RecoversAStructureFactor) {
    const fit_dir dir;
    const std::size_t set = truth.find("DATA_SET{"), block = truth.find("THICKNESS_BLOCK{");
    const std::string more = with(truth.substr(block, truth.find("}DATA_SET") - block),
                                  {{"1 ADJ scale", "0.8 ADJ scale2"}, {"700 ADJ thickness", "900 ADJ thickness2"}});
    const std::string second = with(truth.substr(set, truth.find("}FIT_") - set),
                                    {{"a.int\n1", "b.int\n2"},
                                     {"700 ADJ thickness", "700 RST held 0.01"},
                                     {"}DATA_SET\n", more + "}DATA_SET\n"}});
    const std::string from = with(truth, {{"}FIT_", second + "}FIT_"},
                                          {"15\n1", "15\n2"},
                                          {"4 FIX a", "4 RST a 0.1"},
                                          {"0.12 ADJ", "0.12 FIX"},
                                          {"FG{\n0\n", "FG{\n1\n2\n1 0 0\n5 ADJ F100\n0.2 FIX F100i\n"}});
    const std::string start = with(from, {{"5 ADJ F100", "5.4 ADJ F100"},
                                          {"0.5 ADJ", "0.55 ADJ"},
                                          {"0.8 ADJ", "0.7 ADJ"},
                                          {"900 ADJ", "840 ADJ"}});
    const fit_run end = dir.recover(from, start, {"--dump-normal"});
    expect_recovered(end, {{"F100", 5}, {"B", 0.5}, {"scale2", 0.8}, {"thickness2", 900}});
    EXPECT_EQ(end.end.at("a").esd, 0) << "the restraint alone, in both data sets";
    EXPECT_NEAR(end.end.at("held").esd, 0.01, 1e-3) << "a restraint beside the data";
    // The first cycle of a process is told, and its patterns stay.
    char told[80];
    std::snprintf(told, sizeof told, "\n$$ 1st cycle\nchisq of the 1st cycle = %g.\n", end.cycles[0][chisq][0]);
    for (const std::string& text : {end.out, read_file("a_log.txt")}) {
        EXPECT_TRUE(contains(text, std::string(told) + "Intensity output: a_fst0.txt\nIntensity output: a_fst1.txt\n"));
        EXPECT_EQ(text.find("1st cycle", text.find("a_fst1.txt")), std::string::npos);
    }
    EXPECT_NE(read_file("a_fst1.txt"), read_file("a_res1.txt"));
}

// A disk that was measured beside its place is found up to what the interpolation of the measured
// points leaves, a tenth of their distance.
TEST(Fit, RecoversAShift) {
    const fit_dir dir;
    const std::string other = with(truth, {{"-1 0 0\n0\n", "-1 0 0\n-0.06\n"}}); // moved along H alone
    const fit_run end = dir.recover(with(other, {{"0 FIX H1", "-0.06 FIX H1"}, {"0 FIX G1", "=2*H1 CST G1"}}),
                                    with(other, {{"0 FIX H1", "0 ADJ H1"}, {"0 FIX G1", "0 ADJ G1"}}));
    EXPECT_EQ(end.status, 0) << end.out;
    std::smatch m;
    const std::string shifts = read_file("a_shift.txt");
    const std::regex lines("HG SHIFT parameters\nit= 0 \\[4\\] H1= (\\S+), .*\n \\[5\\] G1= (\\S+), .*\n");
    ASSERT_TRUE(std::regex_match(shifts, m, lines)) << shifts;
    EXPECT_NEAR(std::stod(m[1]), -0.06, 0.01);
    EXPECT_NEAR(std::stod(m[2]), -0.12, 0.01);
    EXPECT_LT(end.gof, 2);
}

// The dump of one cycle: its form; alpha is positive definite; beta is half the slope of chi-square
// against differences of it, in which constrained values follow their parameters.
TEST(Fit, OneCycleMovesNothing) {
    const fit_dir dir;
    const std::string start = with(with(truth, off), {{"}EPS", "perturb_step 0.00001\n}EPS"}});
    const fit_run one = dir.recover(truth, start, {"--cycles", "1", "--dump-normal"});
    ASSERT_EQ(one.cycles.size(), 1u) << one.out;
    EXPECT_TRUE(contains(one.out, "\n  ** Not converged **\n"));
    EXPECT_TRUE(fs::exists("a_fg0.txt"));
    EXPECT_FALSE(fs::exists("a_res0.txt"));
    const table& rows = one.cycles[0];
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[par], (std::vector<double>{0.13, 0.57, 0.9, 756}));
    for (const auto& [id, parameter] : one.end)
        EXPECT_GT(parameter.esd, 0) << id;
    EXPECT_EQ(std::to_string(one.end.at("x").value), "0.130000");
    for (const std::string& line : lines_of(one.out)) {
        if (!begins_with(line, "@"))
            continue;
        std::istringstream in(line);
        std::string text, token;
        for (in >> text; in >> token;) {
            char number[32];
            std::snprintf(number, sizeof number, "%.10g", std::stod(token));
            text += " " + std::string(number);
        }
        EXPECT_EQ(text, line);
    }

    const std::size_t n = 4;
    table L = {rows.begin() + alpha, rows.begin() + alpha + n};
    for (std::size_t j = 0; j < n; ++j) {
        ASSERT_EQ(L[j].size(), j + 1);
        for (std::size_t k = 0; k <= j; ++k) {
            for (std::size_t i = 0; i < k; ++i)
                L[j][k] -= L[j][i] * L[k][i];
            if (k == j) {
                EXPECT_GT(L[j][j], 1e-6 * rows[alpha + j][j]);
                L[j][j] = std::sqrt(L[j][j]);
            } else {
                L[j][k] /= L[k][k];
            }
        }
    }
    // The last diagonal element of the inverse of L L^T.
    EXPECT_NEAR(one.end.at("thickness").esd * L[n - 1][n - 1], 1, 1e-5);
    for (std::size_t j = 0; j < n; ++j) {
        double value[2], at[2];
        for (std::size_t side = 0; side < 2; ++side) {
            const std::string by = std::to_string(rows[par][j] * (side == 0 ? 0.9999 : 1.0001)) + " ADJ";
            const fit_run moved = dir.run(with(start, {{off[j][1], by}}), {"--cycles", "1", "--dump-normal"});
            value[side] = moved.cycles.at(0)[par][j];
            at[side] = moved.cycles.at(0)[chisq][0];
        }
        const double slope = (at[1] - at[0]) / (value[1] - value[0]);
        EXPECT_NEAR(rows[alpha + n][j], -slope / 2, 1e-4 * std::sqrt(rows[alpha + j][j] * rows[chisq][0])) << j;
    }
}

// What the data do not determine stays as it is; a restraint that is tight holds its parameter.
TEST(Fit, FixedAndRestrained) {
    const fit_dir dir;
    const changes more = {
        {"4 FIX a", "4 RST a 0.1"},
        {"0.1 FIX H", "0.1 ADJ H"},
        {"100 FIX kV", "100 ADJ kV"},
        {"0 FIX width", "0 ADJ width"},
        {"0.13 ADJ x", "0.121 RST x 1e-7"},
        {"}EPS", "scale_rst_chisq 4\n}EPS"},
    };
    const fit_run end = dir.recover(truth, with(with(truth, off), more), {"--dump-normal"});
    EXPECT_EQ(end.status, 0) << end.out;
    for (const char* warning : {"[0] a stays fixed: derivatives hold the geometry of the cell.",
                                "[3] H stays fixed: no derivative is computed for it.",
                                "[4] kV stays fixed: no derivative is computed for it.",
                                "[7] width stays fixed: no derivative is computed for it."})
        EXPECT_TRUE(contains(end.out, "\n$$Warning: parameter " + std::string(warning) + "\n")) << end.out;
    EXPECT_EQ(end.out.find("stays fixed", end.out.rfind("$$Warning") + 40), std::string::npos);
    const std::map<std::string, double> fixed = {{"a", 4}, {"H", 0.1}, {"kV", 100}, {"width", 0}};
    for (const auto& [id, value] : fixed) {
        EXPECT_EQ(end.end.at(id).value, value) << id;
        EXPECT_EQ(end.end.at(id).esd, 0) << id;
    }
    EXPECT_NEAR(end.end.at("x").value, 0.121, 1e-5);
    EXPECT_NEAR(end.end.at("x").esd, 1e-7 / 2, 1e-9); // a restraint four times as strong
    EXPECT_GT(std::fabs(end.end.at("thickness").value - 756), 30);
    for (const table& rows : end.cycles)
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_EQ(rows[alpha + 3][k], 0) << "H";
}

// Two halves of one atom: only their sum is determined.
TEST(Fit, Inseparable) {
    const fit_dir dir;
    const std::size_t at = truth.find("SITE{\n");
    const std::string site = truth.substr(at, truth.find("SITE{\nO") - at);
    const changes half = {{"0.12 ADJ x", "0.12 FIX x"}, {"0.5 ADJ B\n1\n", "0.5 FIX B\n0.5 ADJ o1\n"}};
    const std::string other = with(site, {{"0.12 ADJ x", "0.12"}, {"0.5 ADJ B\n1\n", "0.5\n0.5 ADJ o2\n"}});
    const std::string from = with(truth, {{site, with(site, half) + other}, {"ATOM{\n2", "ATOM{\n3"}});
    const fit_run end = dir.recover(from, with(from, {{"700 ADJ", "720 ADJ"}}));
    EXPECT_EQ(end.status, 0) << end.out;
    for (const std::string id : {"[0] o1", "[1] o2"})
        EXPECT_TRUE(contains(end.out, "$$Warning: the data do not separate " + id + " from other")) << end.out;
    EXPECT_NEAR(end.end.at("o1").value + end.end.at("o2").value, 1, 0.01);
    EXPECT_NEAR(end.end.at("thickness").value, 700, 4 * end.end.at("thickness").esd);
}

// From here the third trial leads uphill.
static const changes far_off = {{"0.5 ADJ", "2 ADJ"}, {"700 ADJ", "950 ADJ"}};

TEST(Fit, RejectedTrialIsTakenBack) {
    const fit_dir dir;
    const fit_run end = dir.recover(truth, with(truth, far_off), {"--cycles", "5", "--dump-normal"});
    ASSERT_EQ(end.cycles.size(), 5u) << end.out;
    EXPECT_EQ(end.cycles[1][par][2], 0.5) << "half the scale factor, and no less";
    EXPECT_GT(end.cycles[3][chisq][0], end.cycles[2][chisq][0]);
    EXPECT_EQ(end.cycles[4], end.cycles[2]);
    EXPECT_NEAR(end.end.at("thickness").value, end.cycles[2][par][3], 1e-2);
    const std::string pattern = read_file("a_res0.txt");
    EXPECT_EQ(dir.run(with(truth, far_off), {"--cycles", "4"}).status, 0);
    EXPECT_EQ(read_file("a_res0.txt"), pattern) << "one call is kept back";
}

static double element(const table& cycle, std::size_t i, std::size_t j) {
    return cycle[alpha + std::max(i, j)][std::min(i, j)];
}

// Solution of (alpha + lambda diag alpha) x = beta, by elimination.
static std::vector<double> marquardt_step(const table& cycle, double lambda) {
    const std::size_t n = 4;
    table a(n, std::vector<double>(n));
    std::vector<double> x = cycle[alpha + n];
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            a[i][j] = element(cycle, i, j) * (i == j ? 1 + lambda : 1);
    for (std::size_t k = 0; k < n; ++k)
        for (std::size_t i = k + 1; i < n; ++i) {
            const double f = a[i][k] / a[k][k];
            for (std::size_t j = k; j < n; ++j)
                a[i][j] -= f * a[k][j];
            x[i] -= f * x[k];
        }
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t j = i + 1; j < n; ++j)
            x[i] -= a[i][j] * x[j];
        x[i] /= a[i][i];
    }
    return x;
}

// Each trial goes where the equations of the best vector so far and lambda send it (half of what scale factor
// or thickness have left at most), and lambda follows chi-square as Fletcher lets it.
TEST(Fit, TrialsFollowFromTheEquationsBeforeThem) {
    const fit_dir dir;
    ASSERT_EQ(dir.run(truth, {"--simulate"}).status, 0);
    int met = 0; // uphill, poor, fair, shortened
    for (const changes& start : {far_off, changes{{"0.12 ADJ", "0.16 ADJ"}, {"700 ADJ", "800 ADJ"}}}) {
        const fit_run end = dir.run(with(truth, start), {"--dump-normal"});
        const std::regex line("\\*\\* Cycle (\\d+): chisq = \\S+, lambda = (\\S+): (\\w+)");
        std::smatch m;
        std::size_t best = 0, k = 1;
        double lambda = 1e-3;
        for (const std::string& told : lines_of(end.out)) {
            if (!std::regex_match(told, m, line))
                continue;
            ASSERT_EQ(std::stoul(m[1]), k + 1);
            EXPECT_NEAR(std::stod(m[2]), lambda, 1e-5 * lambda);
            const table &at = end.cycles[best], &trial = end.cycles[k];
            std::vector<double> step = marquardt_step(at, lambda);
            double shrink = 1, promised = 0;
            for (const std::size_t j : {2u, 3u}) // scale factor and thickness
                shrink = std::min(shrink, step[j] < 0 ? -at[par][j] / 2 / step[j] : 1.0);
            for (double& s : step)
                s *= shrink;
            for (std::size_t i = 0; i < 4; ++i) {
                EXPECT_NEAR(trial[par][i], at[par][i] + step[i], 1e-4 * std::fabs(at[par][i])) << k << " " << i;
                promised += 2 * at.back()[i] * step[i];
                for (std::size_t j = 0; j < 4; ++j)
                    promised -= step[i] * element(at, i, j) * step[j];
            }
            const double fall = (at[chisq][0] - trial[chisq][0]) / promised;
            EXPECT_EQ(m[3], fall >= 0 ? "accepted" : "rejected");
            met |= (fall < 0 ? 1 : fall < 0.25 ? 2
                               : fall <= 0.75  ? 4
                                               : 0) |
                   (shrink < 1 ? 8 : 0);
            if (fall >= 0)
                best = k;
            if (fall < 0 || fall > 0.75)
                lambda = fall < 0 ? std::max(10 * lambda, 1e-3) : std::max(lambda / 10, 1e-7);
            else
                lambda *= fall < 0.25 ? 2 : 1;
            ++k;
        }
    }
    EXPECT_EQ(met, 15);
}

TEST(Fit, StopsByEachCriterion) {
    const struct {
        std::string setting;
        changes start;
        std::string message;
    } cases[] = {
        {"tol_chisq_abs 200", {}, "\n  ** Convergence **\n  Chi square "}, // for each parameter
        {"tol_parameter 0", {}, "\n  ** Convergence **\n  Residual sum of squares has slightly increased.\n"},
        {"marq_lambda_max 0.0001", far_off, "\n  ** Not converged **\n  Too large lambda (="},
        {"numh 1",
         {{"15\n1", "2\n1"}, {"700 ADJ", "756 ADJ"}, {"1 1 0\n0\n", "1 1 0 0\n0\n"}},
         "\n  ** Not converged **\nRefined parameter file: "},
    };
    const fit_dir dir;
    ASSERT_EQ(dir.run(truth, {"--simulate"}).status, 0);
    for (const auto& c : cases) {
        const fit_run end = dir.run(with(with(truth, c.start), {{"}EPS", c.setting + "\n}EPS"}}), {});
        EXPECT_EQ(end.status, 0) << end.out;
        EXPECT_TRUE(contains(end.out, c.message)) << c.setting << end.out;
        EXPECT_TRUE(contains(read_file("a_log.txt"), c.message)) << c.setting;
    }
}

// The same numbers for the same seed, deviates of mean 0 and variance 1 behind the model, and no word
// over measured data.
TEST(Fit, Simulates) {
    const fit_dir dir;
    const auto data = [&](const std::vector<std::string>& options) {
        std::vector<std::string> all = {"--simulate"};
        all.insert(all.end(), options.begin(), options.end());
        EXPECT_EQ(dir.run(truth, all).status, 0);
        return read_file("a.int");
    };
    const std::string first = data({});
    EXPECT_EQ(data({"--noise", "1", "--seed", "1"}), first);
    EXPECT_NE(data({"--seed", "2"}), first);
    const table exact = numbers(data({"--noise", "0"})), noisy = numbers(first);
    ASSERT_EQ(exact.size(), noisy.size());
    const double points = 5 * 13 * 13;
    double sum = 0, sum2 = 0, scaled = 0;
    for (std::size_t i = 0; i < exact.size(); ++i) {
        if (exact[i].size() != 2 || exact[i] == noisy[i])
            continue;
        EXPECT_EQ(noisy[i][1], exact[i][1]);
        EXPECT_NEAR(exact[i][1], std::sqrt(std::max(exact[i][0], 1.0)), 1e-5 * exact[i][1]);
        const double deviate = (noisy[i][0] - exact[i][0]) / exact[i][1];
        sum += deviate;
        sum2 += deviate * deviate;
        scaled += 1;
    }
    EXPECT_EQ(scaled, points);
    EXPECT_NEAR(sum / points, 0, 4 / std::sqrt(points));
    EXPECT_NEAR(sum2 / points, 1, 4 * std::sqrt(2 / points));

    const std::string measured = replaced(first, "# simulated", "# measured");
    write_file("a.int", measured);
    const fit_run refused = dir.run(truth, {"--simulate"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(ends_with(refused.out, "$$ a.int is no simulated file and stays. Abort.\n")) << refused.out;
    EXPECT_EQ(read_file("a.int"), measured);
}

TEST(Fit, EveryAllocationFails) {
    const fit_dir dir;
    const std::string outer = "1 -1 0\n-1 1 0\n2 0 0\n-2 0 0\n0 2 0\n0 -2 0\n";
    write_file("a.dat", with(truth, {{"2\n11\n", "2\n2\n"}, {"11 2\n", "7 0\n"}, {outer, ""}}));
    expect_memory_faults([&] { return dir.run({"a.dat", "--simulate"}); });
    ASSERT_EQ(dir.run({"a.dat", "--simulate"}).status, 0);
    expect_memory_faults([&] { return dir.run({"a.dat", "--cycles", "2"}); });
}

TEST(Fit, BadCommandLines) {
    const fit_dir dir;
    write_file("a.dat", truth);
    const std::string usage = "Usage: orvel_fit PARAMFILE [--cycles N] [--dump-normal]\n"
                              "       orvel_fit PARAMFILE --simulate [--noise F] [--seed N]\n       orvel_fit --help\n";
    const struct {
        std::vector<std::string> arguments;
        std::string message;
    } cases[] = {
        {{}, "No parameter file was given"},
        {{"a.dat", "b.dat"}, "More than one parameter file: b.dat"},
        {{"a.dat", "--cycle", "1"}, "Unknown option --cycle"},
        {{"a.dat", "-h"}, "Unknown option -h"},
        {{"a.dat", "--cycles"}, "Missing value of --cycles"},
        {{"a.dat", "--cycles", "0"}, "Invalid number 0"},
        {{"a.dat", "--cycles", "-1"}, "Invalid number -1"},
        {{"a.dat", "--cycles", "2x"}, "Invalid number 2x"},
        {{"a.dat", "--cycles", "99999999999"}, "Invalid number 99999999999"},
        {{"a.dat", "--simulate", "--noise", "nan"}, "Invalid number nan"},
        {{"a.dat", "--simulate", "--noise", "-0.5"}, "Invalid number -0.5"},
        {{"a.dat", "--simulate", "--seed", "1.5"}, "Invalid number 1.5"},
        {{"a.dat", "--simulate", "--seed", "+1"}, "Invalid number +1"},
        {{"a.dat", "--simulate", "--seed", "18446744073709551616"}, "Invalid number 18446744073709551616"},
        {{"a.dat", "--simulate", "--cycles", "2"}, "There are no cycles with --simulate"},
        {{"a.dat", "--seed", "2"}, "--noise and --seed belong to --simulate"},
    };
    for (const auto& c : cases) {
        const fit_run end = dir.run(c.arguments);
        EXPECT_EQ(end.out, "$$ " + c.message + ". Abort.\n" + usage);
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, 1) << c.message;
    }
    EXPECT_FALSE(fs::exists("a_log.txt"));
    const fit_run help = dir.run({"a.dat", "--help"});
    EXPECT_TRUE(begins_with(help.out, usage)) << help.out;
    EXPECT_EQ(help.status, 0);
}

TEST(Fit, BadFiles) {
    const std::vector<std::string> refine, simulate = {"--simulate"};
    const struct {
        std::vector<std::string> options;
        std::array<std::string, 2> change;
        std::string end; // of both streams
    } cases[] = {
        {refine, {"FIT_MODE", "SIM_MODE"}, "$$ Job mode SIM_MODE is not FIT_MODE. Abort.\n"},
        {refine, {"}EPS", "svd_flag 2\n}EPS"}, "$$ Invalid epsilon.svd_flag=2. Abort.\n"},
        {refine, {"15\n1", "15\n0"}, "$$ Invalid number of data sets(=0). Abort.\n"},
        {refine, {"a.int", "no.int"}, "$$ (fopen_chk_rmode) Cannot open no.int. Abort.\n"},
        {refine, {"0\n0\n1 1 0\n", "0\n0\n1 1 0 -2\n"}, "$$ Invalid weight(=-2) of 1 1 0. Abort.\n"},
        {refine, {"700 ADJ", "nan ADJ"}, "$$ Chi-square or its derivatives are no numbers at the start. Abort.\n"},
        {refine, {"0.5 ADJ B", "0.5 RST B 0"}, "$$ Restraint width of B is 0. Abort.\n"},
        {simulate, {"2\n11\n", "1\n11\n"}, "$$ Invalid calc_type=1. Abort.\n"},
        {simulate, {"11\n0.5\n", "11\n0\n"}, "$$ Invalid disksize(=0). Abort.\n"},
        {simulate, {"0 FIX H1", "0.6 FIX H1"}, "$$ Shift 0.6 is larger than the disk. Abort.\n"},
        {simulate, {"0 FIX G1", "nan FIX G1"}, "$$ Shift nan is larger than the disk. Abort.\n"},
        {simulate, {"100 FIX kV", "0 FIX kV"}, "$$ Invalid kv(=0). Abort.\n"},
        {simulate, {"scaling 100000", "scaling inf"}, "$$ The model gives intensities that are no numbers. Abort.\n"},
        {simulate, {"a.int\n1", "a.int\n0"}, "$$ Invalid num_thickness(=0). Abort.\n"},
        {simulate, {"a.int\n1\n5", "a.int\n1\n6"}, "$$(fget_hkl_weight) Format error. Abort. buf=}REFLEX_SHIFT_PAR\n."},
        {simulate, {"\n1 0 0\n-1 0 0", "\n0 0 1\n-1 0 0"}, "$$ calc_cbed_pattern_perturb: 1 0 0 not found. Abort."},
    };
    const fit_dir dir;
    ASSERT_EQ(dir.run(truth, {"--simulate"}).status, 0);
    for (const auto& c : cases) {
        const fit_run end = dir.run(with(truth, {c.change}), c.options);
        EXPECT_EQ(end.status, 1) << c.end;
        EXPECT_TRUE(ends_with(end.err.empty() ? end.out : end.err, c.end)) << c.end << end.out << end.err;
    }
}

#else
TEST(Fit, IsNotBuilt) { GTEST_SKIP() << "orvel_fit needs Eigen"; }
#endif
