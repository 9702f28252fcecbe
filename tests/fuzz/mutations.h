// SPDX-License-Identifier: MIT
//
// Faults that a text file may have, one at a time: what happens to one of its lines, or to a number in it.
#pragma once

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace orvel_test {

// What stands in the place of a number; behind them each of the first numbers of a line has its turn.
inline const char* const bad_numbers[] = {"0", "-1", "1e99", "nan", "abc", "99999999999999999999", "2147483647"};
constexpr int num_bad_numbers = 7, num_line_faults = 5, mutated_tokens = 4;
constexpr int num_mutations = num_line_faults + mutated_tokens * num_bad_numbers;

// Token t of a line replaced, if it is a number; else the line as it is.
inline std::string with_token(const std::string& line, int t, const char* by) {
    std::size_t begin = 0, end = 0;
    for (int i = 0; i <= t; ++i) {
        begin = line.find_first_not_of(" ,\t", end);
        if (begin == std::string::npos)
            return line;
        end = std::min(line.find_first_of(" ,\t", begin), line.size());
    }
    const bool is_number = std::strchr("+-.0123456789", line[begin]) != nullptr;
    return is_number ? std::string(line).replace(begin, end - begin, by) : line;
}

// The file with mutation how (from 0) in a line; an unchanged file where that has no meaning.
inline std::string mutated(std::vector<std::string> lines, std::size_t at, int how) {
    std::string& line = lines[at];
    const int number = how - num_line_faults;
    if (how == 0)
        lines.erase(lines.begin() + long(at));
    else if (how == 1)
        lines.insert(lines.begin() + long(at), std::string(line));
    else if (how == 2)
        line.clear();
    else if (how == 3)
        line = line.substr(0, line.size() / 2) + std::string(300, line.empty() ? 'x' : line.back());
    else if (how == 4)
        lines.resize(at);
    else
        line = with_token(line, number / num_bad_numbers, bad_numbers[number % num_bad_numbers]);
    std::string text;
    for (const std::string& l : lines)
        text += l + "\n";
    return text;
}

} // namespace orvel_test
