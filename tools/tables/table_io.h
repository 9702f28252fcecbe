// SPDX-License-Identifier: MIT
//
// Files of the table generators: source numbers come in as CSV with remark lines, tables go out
// line by line under the length limit of the program that will read them. A table appears under
// its name only when it is complete. Every fault ends the process with a line "$$ ... Abort."
// and status 1.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace orvel::tables {

// The contents of a CSV file: the words of the line that names the columns, and the data lines.
struct csv_table {
    std::string path;
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows; // every row has as many words as there are columns
};

// A table as it grows: nothing is written before it is complete.
struct table_file {
    std::string path;
    std::size_t max_length; // longest line allowed, remarks included, line end not counted
    std::string text;
};

// Prints "$$ ", the text and " Abort.\n" to standard error and ends the process with status 1.
[[noreturn]] void table_fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Reads a file in which lines that begin with "#" are remarks and the first other line names the
// columns. Ends the process if the file cannot be read or a row has another number of words.
csv_table read_csv(const std::string& path, char separator);

// Index of the column with this name; ends the process if there is none.
std::size_t csv_column(const csv_table& table, const char* name);

// The word as a number; ends the process if it is anything else.
double csv_number(const csv_table& table, std::size_t row, std::size_t column);

// Appends one line (printf form, without its line end); ends the process if it is too long.
void put_line(table_file& table, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes the table to path + ".new" and gives it its name; ends the process if that fails.
void write_table(const table_file& table);

} // namespace orvel::tables
