// SPDX-License-Identifier: MIT
#include "test_util.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "control/settings.h"

namespace fs = std::filesystem;

// Sanitizers: memory that is not to be had gives null, as without them, and a report has a status
// of its own.
static const char* const asan_options = "allocator_may_return_null=1:exitcode=99";
extern "C" const char* __asan_default_options() { return asan_options; }

// Every test begins with the default settings, alone or behind others.
namespace {
struct default_settings : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        const std::string word = "EPS_CONTROL_PARAMETERS";
        std::FILE* block = orvel_test::text_stream(word + "{\n}" + word + "\n");
        orvel::dbg = {};
        orvel::dbg.print_bij_flag = 1;
        orvel::read_eps_ctrl_params(block);
        std::fclose(block);
    }
};
const bool listening = [] {
    int file; // in the place of standard streams that are closed, so that no file of a test comes to stand there
    do
        file = open("/dev/null", O_RDWR);
    while (file >= 0 && file <= STDERR_FILENO);
    close(file);
    testing::UnitTest::GetInstance()->listeners().Append(new default_settings);
    return true;
}();
} // namespace

namespace orvel_test {

temp_dir::temp_dir() {
    std::string name = (fs::temp_directory_path() / "orvel_test_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        std::abort();
    path = name;
}

temp_dir::~temp_dir() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

std::string read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_file(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.flush().good()) << "cannot write " << path;
}

std::FILE* text_stream(const std::string& text) {
    std::FILE* stream = std::tmpfile();
    if (stream == nullptr || std::fwrite(text.data(), 1, text.size(), stream) != text.size())
        std::abort();
    std::rewind(stream);
    return stream;
}

bool begins_with(const std::string& text, const std::string& head) {
    return text.compare(0, head.size(), head) == 0;
}

bool ends_with(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

static std::string stream_text(std::FILE* stream) {
    std::string text;
    std::rewind(stream);
    for (int c = std::getc(stream); c != EOF; c = std::getc(stream))
        text += static_cast<char>(c);
    std::fclose(stream);
    return text;
}

// Without the line in which AddressSanitizer tells that memory was not to be had.
static std::string own_text(const std::string& text) {
    std::string own;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end) {
        end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        const std::string line = text.substr(begin, end - begin);
        if (!contains(line, "WARNING: AddressSanitizer failed to allocate"))
            own += line;
    }
    return own;
}

// The status of std::exit as it is, without the work at the end of the test program itself.
static void leave_at_once(int status, void*) {
    std::fflush(nullptr);
    _exit(status);
}

// Forks; the child's streams are files, so that no pipe can fill up, and its life is limited.
static outcome in_child(const std::string& input, unsigned seconds, const std::function<void()>& body) {
    std::FILE* in = text_stream(input);
    std::FILE* out = text_stream("");
    std::FILE* err = text_stream("");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(fileno(in), STDIN_FILENO);
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(err), STDERR_FILENO);
        on_exit(leave_at_once, nullptr);
        alarm(seconds);
        body();
        std::exit(EXIT_SUCCESS);
    }
    int state = 0;
    EXPECT_EQ(waitpid(child, &state, 0), child);
    std::fclose(in);
    outcome result = {WIFEXITED(state) ? WEXITSTATUS(state) : -WTERMSIG(state),
                      stream_text(out), own_text(stream_text(err))};
    for (const char* report : {"Sanitizer:", "runtime error:"})
        EXPECT_FALSE(contains(result.err, report)) << result.err;
    return result;
}

outcome run_orvel(const fs::path& dir, const std::vector<std::string>& arguments,
                  const std::string& input, unsigned seconds) {
    return in_child(input, seconds, [&] {
        std::vector<char*> argv = {const_cast<char*>("orvel")};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        setenv("ASAN_OPTIONS", asan_options, 1);
        if (chdir(dir.c_str()) == 0)
            execv(ORVEL_PROGRAM, argv.data());
        std::perror("cannot start " ORVEL_PROGRAM);
        _exit(127);
    });
}

outcome run_child(const std::function<void()>& function, unsigned seconds) {
    return in_child("", seconds, function);
}

#ifdef ORVEL_FAILING_MALLOC
// The files of the current directory that are none of the old ones.
using file_texts = std::map<std::string, std::string>;
static file_texts new_files(const file_texts& old) {
    file_texts texts;
    for (const auto& entry : fs::directory_iterator("."))
        if (old.count(entry.path().filename()) == 0)
            texts[entry.path().filename()] = read_file(entry.path());
    return texts;
}

void expect_memory_faults(const std::function<outcome()>& run) {
    const file_texts inputs = new_files({});
    const auto run_with = [&](long fail_at) {
        for (const auto& file : new_files(inputs))
            fs::remove(file.first);
        setenv("ORVEL_FAIL_AT", std::to_string(fail_at).c_str(), 1);
        const fs::path library = ORVEL_FAILING_MALLOC; // a blank would end its name, but not that of its folder
        setenv("LD_LIBRARY_PATH", library.parent_path().c_str(), 1);
        setenv("LD_PRELOAD", library.filename().c_str(), 1);
        const outcome end = run();
        unsetenv("LD_PRELOAD");
        return end;
    };
    const outcome good = run_with(0);
    const file_texts wanted = new_files(inputs);
    const long count = std::atol(good.err.c_str());
    ASSERT_EQ(good.status, 0) << good.out << good.err;
    ASSERT_GT(count, 0) << good.err;
    long failed = 0;
    for (long at = 1; at <= count; ++at) {
        const outcome end = run_with(at);
        const std::string told = "allocation " + std::to_string(at) + ": " + end.out + end.err;
        failed += end.status;
        if (end.status == 0)
            EXPECT_TRUE(new_files(inputs) == wanted || contains(end.out, "Cannot find orvel.ini")) << told;
        else
            EXPECT_TRUE(end.status == 1 && !contains(end.err, "orvel.ini") &&
                        (contains(end.err, "Not enough memory for ") ||
                         contains(end.out + end.err, "Cannot open ")))
                << end.status << told;
        for (const auto& [name, text] : new_files(inputs))
            EXPECT_TRUE(text == wanted.at(name) || (ends_with(name, "_log.txt") && begins_with(wanted.at(name), text)))
                << name << " of " << told;
    }
    EXPECT_GT(failed, count / 2);
}
#else
void expect_memory_faults(const std::function<outcome()>&) { GTEST_SKIP() << "the sanitizers allocate by themselves"; }
#endif

} // namespace orvel_test
