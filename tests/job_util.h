// SPDX-License-Identifier: MIT
//
// Whole runs of jobs: a directory in which parameter files run under the stem a, the numbers of their
// tables, and the comparison of texts with patterns.
#pragma once

#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "crystal_util.h"

namespace orvel_test {

// The percentages of a loop; one of several items has four blanks in front.
inline const std::string progress = "5%10%15%20%25%30%35%40%45%50%55%60%65%70%75%80%85%90%95%";

struct job_dir : table_dir {
    outcome run(const std::string& text, const std::string& ini = "") const {
        write_file(path / "a.dat", text);
        write_file(path / "orvel.ini", ini + "INI_PARAM_END\n");
        return run_orvel(path, {"a.dat"});
    }
};

// Each row of a table as far as it holds numbers; lines that begin with no number are left out.
using table = std::vector<std::vector<double>>;
inline table numbers(const std::string& text) {
    table rows;
    for (const std::string& line : lines_of(text)) {
        std::istringstream in(line);
        rows.emplace_back(std::istream_iterator<double>(in), std::istream_iterator<double>());
        if (rows.back().empty())
            rows.pop_back();
    }
    return rows;
}

// Values as a table has them.
inline std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}
inline std::string row(const std::vector<double>& values) {
    std::string text;
    for (double value : values)
        text += (text.empty() ? "" : "\t") + number(value);
    return text + "\n";
}

// Where a pattern has '@', the text may have any number.
inline bool matches(const std::string& text, const std::string& pattern) {
    const char* c = text.c_str();
    for (char p : pattern) {
        char* end = const_cast<char*>(c) + (*c == p ? 1 : 0);
        if (p == '@')
            std::strtod(c, &end);
        if (end == c)
            return false;
        c = end;
    }
    return *c == '\0';
}

// A text from the first place of a part on; all of it if the part is not there.
inline std::string from(const std::string& text, const std::string& part) {
    const std::size_t at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part << " is not in " << text;
    return at == std::string::npos ? text : text.substr(at);
}

} // namespace orvel_test
