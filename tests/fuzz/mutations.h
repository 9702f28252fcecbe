// SPDX-License-Identifier: MIT
//
// Faults that a text file may have, one at a time: what happens to one of its lines, or to a number in it.
#pragma once

#include <string>
#include <vector>

namespace orvel_test {

inline const char* const bad_numbers[] = {"0", "-1", "1e99", "nan", "abc", "99999999999999999999", "2147483647"};
constexpr int num_bad_numbers = 7, num_line_faults = 5, num_places = 4; // each of the first numbers of a line
constexpr int num_mutations = num_line_faults + num_places * num_bad_numbers;

// The text of a file with one mutation in a line, or as it is where that has no meaning.
inline std::string mutated(std::vector<std::string> lines, std::size_t at, int mutation) {
    std::string& line = lines[at];
    switch (mutation) {
    case 0:
        lines.erase(lines.begin() + long(at));
        break;
    case 1:
        lines.insert(lines.begin() + long(at), std::string(line));
        break;
    case 2:
        line.clear();
        break;
    case 3:
        line += std::string(300, line.empty() ? 'x' : line.back());
        break;
    case 4:
        lines.resize(at);
        break;
    default:
        std::size_t begin = line.find_first_not_of(" ,\t"), end = line.find_first_of(" ,\t", begin);
        for (int place = (mutation - num_line_faults) / num_bad_numbers; place > 0; --place) {
            begin = line.find_first_not_of(" ,\t", end);
            end = line.find_first_of(" ,\t", begin);
        }
        if (begin < line.size() && std::string("+-.0123456789").find(line[begin]) != std::string::npos)
            line.replace(begin, end - begin, bad_numbers[(mutation - num_line_faults) % num_bad_numbers]);
    }
    std::string text;
    for (const std::string& l : lines)
        text += l + "\n";
    return text;
}

} // namespace orvel_test
