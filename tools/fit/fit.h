// SPDX-License-Identifier: MIT
//
// orvel_fit: a Levenberg-Marquardt iteration around the refinement kernel, and a simulator of the
// data that it refines. This header is what the parts of the tool share. The driver's own records
// hold Eigen vectors; everything that reaches the kernel stays in the kernel's plain shapes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include <Eigen/Core>

#include "control/limits.h"
#include "refine/fitfunc.h"

namespace orvel {

// ---- the problem (fit_input.cpp) --------------------------------------------------------------

// What a parameter file holds, and the numbering of its parameters.
struct fit_problem {
    csd crystal;
    fed* sets; // num_fed of both
    ei* intensities;
    int num_fed;
    int max_iteration; // largest number of trial vectors
    int num_fitpar;    // all parameters, crystal first
    int num_csd_fitpar;
    std::vector<fit_value> parameter; // num_fitpar: the value and descriptor behind each number
};

// Reads a FIT_MODE file and numbers its parameters. Without intensities, which do not exist yet when
// they are to be simulated, the reflections come from the parameter file and the calculation grid
// stays unallocated. Every fault ends the process.
void read_fit_problem(const char* file_name, const char* stem, bool with_intensities, fit_problem& problem);
void free_fit_problem(fit_problem& problem);

// ---- one cycle (fit_cycle.cpp) ----------------------------------------------------------------

// A vector and what the kernel made of it.
struct fit_cycle {
    Eigen::VectorXd par;
    double chisq;
    Eigen::MatrixXd alpha; // both triangles
    Eigen::VectorXd beta;
};

// A refinement while it runs.
struct fit_run {
    fit_problem* problem;
    fit_context context;
    int max_calls;    // limit of kernel calls; 0: none
    bool dump_normal; // print the normal equations of each call
    int calls;        // kernel calls so far
};

// One call of the kernel.
fit_cycle run_cycle(const Eigen::VectorXd& par, fit_run& run);

// True if chi-square and the normal equations are numbers.
bool is_finite(const fit_cycle& cycle);

// Numbers of the parameters on which the measured points depend, by the diagonal of alpha without
// its restraints. The others have a column of zeros: they stay where they are.
std::vector<int> free_parameters(const fit_cycle& cycle, const fit_problem& problem);

// Solution of (alpha + lambda diag(alpha)) step = beta over the free parameters, 0 for the others; by
// epsilon.svd_flag.
Eigen::VectorXd solve_step(const fit_cycle& cycle, const std::vector<int>& free, double lambda);

// Inverse of alpha over the free parameters, with rows and columns of zeros for the others. Where
// alpha determines a combination of parameters not at all, their variances come out immense.
Eigen::MatrixXd covariance_of(const fit_cycle& cycle, const std::vector<int>& free);

// ---- the iteration (fit_iterate.cpp) ----------------------------------------------------------

// How it ended; the status is that of output_fit_diagnostics.
struct fit_end {
    int status;
    double lambda;
};

// Moves from the values of the file to the minimum of chi-square. Records and files then belong to
// the best vector, which best holds.
fit_end iterate(fit_run& run, fit_cycle& best);

// ---- reports (fit_report.cpp) -----------------------------------------------------------------

// Warns of every parameter that is not free, or whose derivative is not the whole one.
void warn_of_fixed(const fit_problem& problem, const std::vector<int>& free, std::FILE* log);

// Standard deviations, residuals, parameters, correlations, diagnostics, and the refined file.
void report_fit(const fit_run& run, const fit_cycle& best, const fit_end& end, const char* stem);

// Text of a file name: stem and suffix; path_max bytes. A stem is short enough for all suffixes.
void file_name_of(const char* stem, const char* suffix, char* name);

// ---- simulation (fit_simulate.cpp) ------------------------------------------------------------

// Writes the intensity file of each data set as the model gives it at the values of the parameter
// file: sigma is the square root of the intensity, 1 at least, and noise sigma times a normal random
// number is added. The same seed gives the same numbers everywhere. A file that is no simulated one
// is not overwritten; this ends the process.
void simulate(fit_problem& problem, double noise, std::uint64_t seed, std::FILE* log);

} // namespace orvel
