// SPDX-License-Identifier: MIT
//
// Dispatch of a job by the first word of the parameter file: the table of job words stands in
// orvel_job.cpp.
#pragma once

#include <cstdio>

namespace orvel {

// Opens the parameter file, reads the job word and the settings block, and runs the job. Comes
// back only when the job has ended normally.
void ov_job(const char* parameter_file_name, const char* stem, std::FILE* log);

} // namespace orvel
