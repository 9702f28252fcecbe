// SPDX-License-Identifier: MIT
//
// Readers of the line-oriented input: one call takes one line that is no comment (a reader with a
// count takes that many) and converts it. Block words are checked, values are not: what is no
// number reads as 0, and text behind the wanted tokens is ignored. At end of file a reader of
// values ends the process with "$$ Unexpected end of file. Abort.\n" and status 1.
#pragma once

#include <cstdio>

#include "control/records.h"

namespace orvel {

// Reads a line and compares its first token with the block word; text behind it is allowed. A
// mismatch ends the process with the data-format message and the token found.
void chk_data(const char* word, std::FILE* stream);

// Reads a line and compares all of it with the block word. A mismatch ends the process with the
// data-format message, the line found, and the hint.
void chk_data_info(const char* word, const char* hint, std::FILE* stream);

// The data-format message of a block word, with what was found in its place; status 1.
[[noreturn]] void data_format_error(const char* word, const char* found, const char* hint);

// "$$ Data format error in %s. Abort.\n" with the name of a data table; status 1.
[[noreturn]] void table_format_error(const char* file_name);

// First token of a line, newline off, into destination (line_max bytes). Returns what
// comment_skip_fgets returned: null at end of file, with an empty destination.
char* fget_1s(char* destination, std::FILE* stream);

// The same for a word that must be there: end of file ends the process.
void fget_word(char* destination, std::FILE* stream);

// A whole line, newline off, into destination (line_max bytes); end of file ends the process.
void fget_text(char* destination, std::FILE* stream);

// First integer or number of a line.
int fget_i(std::FILE* stream);
double fget_d(std::FILE* stream);

// The first n numbers of a line of at most size - 1 characters (size up to line_max); missing ones
// are 0. Returns how many tokens it found.
int fget_reals(int n, double* values, int size, std::FILE* stream);

// Up to four numbers of a line; missing ones are 0.
void fget_2d(double* a, double* b, std::FILE* stream);
void fget_3d(double* a, double* b, double* c, std::FILE* stream);
void fget_4d(double* a, double* b, double* c, double* d, std::FILE* stream);
void fget_r_hkl(r_hkl* g, std::FILE* stream);

// The same, each number truncated toward zero.
void fget_2i(int* a, int* b, std::FILE* stream);
void fget_3i(int* a, int* b, int* c, std::FILE* stream);
void fget_hkl(hkl* g, std::FILE* stream);
void fget_uvw(uvw* t, std::FILE* stream);

// Three integers (atoi) and a weight, which is 1 if there is no fourth token or it begins with
// '%'. Fewer than three tokens end the process.
void fget_hkl_weight(hkl* g, double* weight, std::FILE* stream);

// A value line: value, then optionally a kind word (ADJ or 2, FIX or 0, CST or -1, RST or 1), an
// id, and for RST the restraint width. Fills the descriptor (all but step and ntp) and the value,
// which is 0 for CST. A value without a kind word gets a generated id. A kind word without its id
// (and RST without its width) ends the process.
void fget_fitpar(fitpar* descriptor, double* value, std::FILE* stream);

// n lines of h k l; index[i] receives the position of the i-th among the first num_exact_beam
// entries of list. A reflection that is not there ends the process.
void fget_cal_g(int n, int num_exact_beam, int* index, const hkl* list, std::FILE* stream);

// n lines of one number each, in angstrom.
void fget_cal_thick(int n, double* thickness, std::FILE* stream);

// Second token of a line, tokenised in place; 0 if there is none.
int second_int(char* line);
double second_double(char* line);

} // namespace orvel
