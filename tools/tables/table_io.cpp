// SPDX-License-Identifier: MIT
#include "table_io.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace orvel::tables {

void table_fail(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::fputs("$$ ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputs(" Abort.\n", stderr);
    va_end(args);
    std::exit(1);
}

// The next line of the file without its line end; false at the end of the file.
static bool next_line(std::FILE* file, std::string& line) {
    line.clear();
    int c = std::fgetc(file);
    if (c == EOF)
        return false;
    for (; c != EOF && c != '\n'; c = std::fgetc(file))
        if (c != '\r')
            line.push_back(static_cast<char>(c));
    return true;
}

static std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> words(1);
    for (char c : line) {
        if (c == separator)
            words.emplace_back();
        else
            words.back().push_back(c);
    }
    return words;
}

csv_table read_csv(const std::string& path, char separator) {
    csv_table table{path, {}, {}};
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr)
        table_fail("Cannot open %s.", path.c_str());
    std::string line;
    while (next_line(file, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        std::vector<std::string> words = split(line, separator);
        if (table.columns.empty())
            table.columns = words;
        else if (words.size() == table.columns.size())
            table.rows.push_back(words);
        else
            table_fail("%s: wrong number of columns in \"%s\".", path.c_str(), line.c_str());
    }
    if (std::ferror(file) != 0 || table.rows.empty())
        table_fail("%s cannot be read or is empty.", path.c_str());
    std::fclose(file);
    return table;
}

std::size_t csv_column(const csv_table& table, const char* name) {
    for (std::size_t i = 0; i < table.columns.size(); ++i)
        if (table.columns[i] == name)
            return i;
    table_fail("%s has no column \"%s\".", table.path.c_str(), name);
}

double csv_number(const csv_table& table, std::size_t row, std::size_t column) {
    const char* word = table.rows[row][column].c_str();
    char* end = nullptr;
    const double value = std::strtod(word, &end);
    if (end == word || *end != '\0')
        table_fail("%s: \"%s\" is not a number.", table.path.c_str(), word);
    return value;
}

void put_line(table_file& table, const char* format, ...) {
    char line[512]; // longer than any line that a table may have
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    const std::size_t limit = std::min(table.max_length, sizeof line - 1);
    if (length < 0 || static_cast<std::size_t>(length) > limit)
        table_fail("%s: a line of %d characters, more than %zu.", table.path.c_str(), length,
                   table.max_length);
    table.text.append(line).append("\n");
}

void write_table(const table_file& table) {
    const std::string draft = table.path + ".new";
    std::FILE* file = std::fopen(draft.c_str(), "w");
    if (file == nullptr)
        table_fail("Cannot write %s.", draft.c_str());
    bool written = std::fwrite(table.text.data(), 1, table.text.size(), file) == table.text.size();
    written = std::fclose(file) == 0 && written;
    if (!written || std::rename(draft.c_str(), table.path.c_str()) != 0) {
        std::remove(draft.c_str());
        table_fail("Cannot write %s.", table.path.c_str());
    }
}

} // namespace orvel::tables
