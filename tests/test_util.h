// SPDX-License-Identifier: MIT
//
// Helpers shared by the tests: a working directory of its own for each test, files as texts, and
// child processes whose output streams and status are caught. A child that hangs is ended by a
// time limit; a report of a sanitizer in a child fails the test that started it. Each test of a
// program that links this begins with the default settings.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace orvel_test {

// What a child process left behind. status is its exit status, or minus the signal that ended it
// (-14 on the time limit).
struct outcome {
    int status;
    std::string out;
    std::string err;
};

// An empty directory below the system's temporary one; it goes with the object.
struct temp_dir {
    std::filesystem::path path;
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;
};

// A file's whole text, byte for byte; a file that cannot be read fails the test.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& text);

// A stream that reads the text from its start; whoever asks for it closes it.
std::FILE* text_stream(const std::string& text);

bool begins_with(const std::string& text, const std::string& head);
bool ends_with(const std::string& text, const std::string& tail);
bool contains(const std::string& text, const std::string& part);

// Lines of a text without their line ends.
std::vector<std::string> lines_of(const std::string& text);

// Runs the program in a directory with arguments and a text on its standard input.
outcome run_orvel(const std::filesystem::path& dir, const std::vector<std::string>& arguments,
                  const std::string& input = "", unsigned seconds = 120);

// Runs a function in a child process, in the current directory: for functions that end the
// process, and to see what they print. The status is 0 if the function returns.
outcome run_child(const std::function<void()>& function, unsigned seconds = 60);

// Lets each allocation of a run in the current directory fail in turn. Each such run must end with a
// message and status 1, and leave no result file but complete ones, or not differ from a run with memory.
void expect_memory_faults(const std::function<outcome()>& run);

} // namespace orvel_test
