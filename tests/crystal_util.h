// SPDX-License-Identifier: MIT
//
// Crystals for the tests: a working directory with the data tables, the text of a crystal block,
// and a crystal read from a text.
#pragma once

#include <gtest/gtest.h>

#include "crystal/strct_f_stock.h"
#include "test_util.h"

namespace orvel_test {

// A directory with copies of the data tables, the current one as long as the object lives.
struct table_dir : temp_dir {
    std::filesystem::path before = std::filesystem::current_path();
    table_dir() {
        for (const char* name : {"orvelspg.dat", "orvelxdt.dat", "orvelbk.dat"})
            std::filesystem::copy_file(std::filesystem::path(ORVEL_DATA_DIR) / name, path / name);
        std::filesystem::current_path(path);
    }
    ~table_dir() { std::filesystem::current_path(before); }
};

// The block of a crystal: lattice holds the lines of LATTICE, each site those of its SITE, low_order
// those of LOW_ORDER_FG.
inline std::string crystal_text(const std::string& lattice, const std::vector<std::string>& sites,
                                const std::string& low_order = "0\n") {
    std::string text = "CRYSTAL_STRUCTURE_DATA{\nLATTICE{\n" + lattice + "}LATTICE\nATOM{\n" +
                       std::to_string(sites.size()) + "\n";
    for (const std::string& site : sites)
        text += "SITE{\n" + site + "}SITE\n";
    return text + "}ATOM\nLOW_ORDER_FG{\n" + low_order + "}LOW_ORDER_FG\n}CRYSTAL_STRUCTURE_DATA\n";
}

// A crystal read from its block; the current directory holds the tables.
struct crystal : orvel::csd {
    explicit crystal(const std::string& text, const char* stem = "a") {
        std::FILE* stream = text_stream(text);
        orvel::input_csd_cstr(*this, stream, stem);
        std::fclose(stream);
    }
    ~crystal() { orvel::free_csd(*this); }
    crystal(const crystal&) = delete;
    crystal& operator=(const crystal&) = delete;
};

// The text with the first place of a part replaced.
inline std::string replaced(std::string text, const std::string& part, const std::string& by) {
    return text.replace(text.find(part), part.size(), by);
}

// What is refused, and how it is told, from tests/refused: a case a line, its fields between bars, with \n and
// \t in them as in C; missing ones at the end are empty.
using text_row = std::vector<std::string>;
inline std::vector<text_row> refused(const std::string& name, std::size_t fields) {
    std::vector<text_row> rows;
    for (const std::string& line : lines_of(read_file(ORVEL_DATA_DIR "/../tests/refused/" + name))) {
        if (line[0] == '#')
            continue;
        text_row row(1);
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] == '|')
                row.emplace_back();
            else if (line[i] == '\\')
                row.back() += line[++i] == 'n' ? '\n' : '\t';
            else
                row.back() += line[i];
        }
        row.resize(fields);
        rows.push_back(row);
    }
    return rows;
}

// A call that ends the process with status 1, and all that it prints.
struct fault {
    std::function<void()> call;
    std::string out, err;
};
inline void expect_faults(const std::vector<fault>& faults) {
    for (const fault& c : faults) {
        const outcome end = run_child(c.call);
        EXPECT_EQ(end.out, c.out);
        EXPECT_EQ(end.err, c.err) << c.out;
        EXPECT_EQ(end.status, 1) << c.out << c.err;
    }
}

} // namespace orvel_test
