// SPDX-License-Identifier: MIT
//
// Runs the product again and again in one process although each failure ends it: the linker hands its exits,
// allocations and files to the functions behind this header. Files to read are texts in memory, what is written
// goes nowhere, and what a run leaves open or allocated is taken back.
#pragma once

#include <map>
#include <string>

namespace orvel_fuzz {

// Runs body, which finds these files and no others, until it returns, ends the process, or has used up its work
// (calls of functions) or its memory, of which the last fails like any allocation without memory.
void run_caught(std::map<std::string, std::string> files, void (*body)());

// A file of the project as text.
std::string file_text(const std::string& path);

} // namespace orvel_fuzz
