// SPDX-License-Identifier: MIT
//
// Line and token primitives of all text input, checked opening of files, and the one sort of the
// solver. Lines that begin with '%' or '#' and block comments from a line "COMMENT{" to a line
// "}COMMENT" are skipped; tokens are separated by blanks, commas and tabs, while the newline stays
// on the last token of a line.
#pragma once

#include <cstdio>

namespace orvel {

// Separators between the tokens of a line.
constexpr const char* separators = " ,\t";

// Reads the next line that is no comment into buf (n bytes, newline kept) and returns buf, or null
// at end of file, also inside a block comment. A longer line is split at n - 1 characters, but that of
// a device, which may never end; CR LF counts as one newline. What cannot be read ends the process as
// ov_cannot_read does.
char* comment_skip_fgets(int n, char* buf, std::FILE* stream);

// Removes the last character of a text that contains a newline. Returns the text.
char* rm_cr(char* text);

// Sets n values to 0, then stores the first tokens of the text, at most n. Returns how many it
// stored. Tokenises the text in place.
int str_to_fs(int n, char* text, double* values);

// Stem of a file name: its first token with '.' as the only separator ("./a.b.dat" gives "/a").
// stem has room for as many characters as name.
void remove_extention(const char* name, char* stem);

// Opens for reading or writing; on failure a message on standard error and status 1.
std::FILE* fopen_chk_rmode(const char* path);
std::FILE* fopen_chk_wmode(const char* path);

// Toward zero into int; clamped to the range of int, NaN gives 0.
int real_to_int(double value);

// Integer at the start of a text as atoi reads it, clamped to the range of int; 0 without one.
int text_to_int(const char* text);

// Copies a text into a destination of size bytes, cut where it does not fit.
void copy_text(char* destination, int size, const char* text);

// Heap sort of a[0..n-1] in place into descending order; idx[k] becomes the place that a[k] had in
// the input. Not stable: of equal elements the order is that of the sift (a left child is taken
// unless it is strictly greater than the right one).
void d_heapsort(int n, double* a, int* idx);

} // namespace orvel
