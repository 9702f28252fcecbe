// SPDX-License-Identifier: MIT
//
// What README, docs and example pages promise: their commands run, the files that a page names come
// out and are all that come out, gnuplot takes the scripts, links lead somewhere, the table of messages
// holds each of them, and the tables of settings hold every key with its default.
#include <cstddef>
#include <cstring>
#include <regex>
#include <set>

#include <gtest/gtest.h>
#include <unistd.h>

#include "control/settings.h"
#include "test_util.h"

using namespace orvel_test;
namespace fs = std::filesystem;

static const fs::path root = fs::path(ORVEL_DATA_DIR).parent_path();

// The first group of every match.
static std::vector<std::string> matches(const std::string& text, const char* expression) {
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

static std::vector<std::string> shell_lines(const std::string& page) {
    std::vector<std::string> lines;
    for (const std::string& block : matches(page, "\n```sh\n([^`]*)```"))
        for (const std::string& line : lines_of(block))
            lines.push_back(line);
    return lines;
}

static std::vector<std::string> examples() {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(ORVEL_EXAMPLES_DIR))
        names.insert(entry.path().filename());
    return {names.begin(), names.end()};
}

class Example : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Docs, Example, testing::ValuesIn(examples()),
                         [](const auto& example) { return example.param; });

// The commands of a page, as they stand there, in a tree that looks like the built project.
TEST_P(Example, RunsAsItsPageSays) {
    const fs::path example = fs::path(ORVEL_EXAMPLES_DIR) / GetParam();
    const std::string page = read_file(example / "README.md");
    const bool gnuplot = std::system("command -v gnuplot >/dev/null") == 0;
    const temp_dir dir;
    fs::create_directories(dir.path / "build/release");
    fs::create_symlink(ORVEL_PROGRAM, dir.path / "build/release/orvel");
#ifdef ORVEL_FIT_PROGRAM
    fs::create_symlink(ORVEL_FIT_PROGRAM, dir.path / "build/release/orvel_fit");
#else
    if (contains(page, "/orvel_fit "))
        GTEST_SKIP() << "orvel_fit needs Eigen";
#endif
    for (const char* folder : {"data", "examples"})
        fs::create_symlink(root / folder, dir.path / folder);
    std::string script;
    for (const std::string& line : shell_lines(page))
        if (gnuplot || line.rfind("gnuplot", 0) != 0)
            script += line + "\n";
    const outcome end = run_child([&] {
        if (chdir(dir.path.c_str()) == 0)
            execl("/bin/sh", "sh", "-e", "-c", script.c_str(), nullptr);
        _exit(127);
    },
                                  600);
    EXPECT_EQ(end.status, 0) << end.out << end.err;

    const fs::path run = dir.path / "run" / GetParam();
    std::set<std::string> named;
    for (const std::string& name : matches(page, "`([a-z][a-z0-9_]*\\.(?:txt|plt|png|3ed))`")) {
        const bool picture = fs::path(name).extension() == ".png";
        named.insert(name);
        if (picture && !gnuplot)
            continue;
        const std::string text = read_file(run / name);
        EXPECT_GT(text.size(), picture ? 3000u : 0u) << name; // a picture without curves has less
        EXPECT_EQ(text.rfind("\x89PNG", 0) == 0, picture) << name;
    }
    for (const auto& entry : fs::directory_iterator(run)) {
        const fs::path name = entry.path().filename();
        EXPECT_TRUE(named.count(name) == 1 || fs::exists(example / name) || fs::exists(root / "data" / name)) << name;
    }
    if (!gnuplot)
        GTEST_SKIP() << "no gnuplot: pictures not checked";
}

TEST(Docs, LinksPathsAndScriptsExist) {
    std::vector<fs::path> pages = {root / "README.md"};
    for (const char* folder : {"data", "docs", "examples"})
        for (const auto& entry : fs::recursive_directory_iterator(root / folder))
            if (entry.path().extension() == ".md")
                pages.push_back(entry.path());
    for (const fs::path& page : pages) {
        const std::string text = read_file(page);
        for (const std::string& link : matches(text, "\\]\\(([^)#:]+)\\)"))
            EXPECT_TRUE(fs::exists(page.parent_path() / link)) << page << link;
        for (const std::string& path : matches(text, "`((?:src|tests|docs|examples|scripts|tools|\\.ci)/[^` *]*)`"))
            EXPECT_TRUE(path.find("name") != std::string::npos || fs::exists(root / path)) << page << path;
        for (const std::string& line : shell_lines(text))
            EXPECT_TRUE(line.rfind("scripts/", 0) != 0 || access((root / line).c_str(), X_OK) == 0) << page << line;
    }
}

// The literals of the sources that end a run or have the look of a message, without line ends around them.
static std::set<std::string> messages_of_sources() {
    const std::string literal = "\"((?:[^\"\\\\\n]|\\\\.)*)\"";
    const std::string ending = "(?:error_exit|ov_abort)\\(std\\w+, " + literal;
    const std::regex look("[$]|bort|Cannot|[Ii]nvalid"), edges("^(\\\\n| )+|(\\\\n| )+$");
    std::set<std::string> messages;
    for (const char* folder : {"src", "tools/fit"}) {
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            const std::string source = entry.path().extension() == ".cpp" ? read_file(entry.path()) : "";
            for (const std::string& text : matches(source, ending.c_str()))
                if (text != "%s")
                    messages.insert(std::regex_replace(text, edges, ""));
            for (const std::string& text : matches(source, literal.c_str()))
                if (std::regex_search(text, look))
                    messages.insert(std::regex_replace(text, edges, ""));
        }
    }
    return messages;
}

TEST(Docs, EveryMessageHasItsRow) {
    std::set<std::string> rows;
    for (const std::string& cell : matches(read_file(root / "docs/messages.md"), "\n[|] (`.*?) [|] "))
        for (const std::string& text : matches(cell, "`([^`]+)`"))
            EXPECT_TRUE(rows.insert(text).second) << "twice: " << text;
    const std::set<std::string> messages = messages_of_sources();
    EXPECT_GT(messages.size(), 100u);
    for (const std::string& text : messages)
        EXPECT_EQ(rows.count(text), 1u) << "no row: " << text;
    for (const std::string& text : rows)
        EXPECT_EQ(messages.count(text), 1u) << "no message: " << text;
}

// Feeds the documented keys and defaults to the readers: none is unknown, none changes anything.
TEST(Docs, SettingsAndTheirDefaults) {
    const std::string page = read_file(root / "docs/parameter-file.md");
    const std::size_t keys_part = page.find("\n## EPS"), flags_part = page.find("\n## orvel.ini");
    const auto rows = [](const std::string& part) {
        std::string text;
        for (const std::string& row : matches(part, "\n(\\| `[a-z_]+` \\| [-0-9.e]+ \\|)"))
            text += std::regex_replace(row, std::regex("[|`]"), "") + "\n";
        return text;
    };
    const std::string keys = rows(page.substr(keys_part, flags_part - keys_part));
    const std::string flags = rows(page.substr(flags_part));
    EXPECT_EQ(lines_of(keys).size(), 29u);
    EXPECT_EQ(lines_of(flags).size(), 23u);
    const temp_dir dir;
    write_file(dir.path / "orvel.ini", flags + "INI_PARAM_END\n");
    const outcome end = run_child([&] {
        orvel::epsilon_record records[2];
        for (int i = 0; i < 2; ++i) {
            const std::string word = "EPS_CONTROL_PARAMETERS";
            std::FILE* block = text_stream(word + "{\n" + (i == 0 ? "" : keys) + "}" + word + "\n");
            orvel::read_eps_ctrl_params(block);
            std::fclose(block);
            records[i] = orvel::epsilon;
        }
        const std::size_t size = offsetof(orvel::epsilon_record, flag_modified_marquardt) + sizeof(int);
        if (std::memcmp(&records[0], &records[1], size) != 0 || chdir(dir.path.c_str()) != 0)
            std::exit(1);
        orvel::read_ini_file();
        std::exit(orvel::dbg.print_bij_flag == 1 && orvel::dbg.reflex_only_flag == 0 ? 0 : 1);
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "Reading orvel.ini\n");
}
