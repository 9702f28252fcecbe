// SPDX-License-Identifier: MIT
//
// Runs the product again and again in one process although each failure ends it: the linker hands its exits,
// allocations and files to the functions behind this header. Files to read are texts in memory, what is written
// goes nowhere, and what a run leaves open or allocated is taken back.
#pragma once

#include <map>
#include <string>

namespace orvel_fuzz {

using file_set = std::map<std::string, std::string>;

// Runs body, which finds these files and no others, until it returns, ends the process, or has used up its work.
void run_caught(file_set files, void (*body)());

} // namespace orvel_fuzz
