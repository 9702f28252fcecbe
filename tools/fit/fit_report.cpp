// SPDX-License-Identifier: MIT
#include "fit.h"

#include <cmath>

#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

void file_name_of(const char* stem, const char* suffix, char* name) {
    std::snprintf(name, path_max, "%s%s", stem, suffix);
}

// ---- warnings ---------------------------------------------------------------------------------

static bool is_cell(const csd& crystal, const fitpar* descriptor) {
    for (const fitpar& cell : crystal.lp_fitpar)
        if (&cell == descriptor)
            return true;
    return false;
}

// Why a parameter has a column of zeros.
static const char* reason(const fit_problem& problem, const fit_value& parameter) {
    if (parameter.kind == value_condition || parameter.kind == value_width)
        return "no derivative is computed for it";
    if (is_cell(problem.crystal, parameter.descriptor))
        return "derivatives hold the geometry of the cell";
    return "no measured point depends on it";
}

void warn_of_fixed(const fit_problem& problem, const std::vector<int>& free, std::FILE* log) {
    std::size_t next = 0;
    for (int j = 0; j < problem.num_fitpar; ++j) {
        const fit_value& parameter = problem.parameter[to_size(j)];
        if (next == free.size() || free[next] != j) {
            ov_fprintf_stdo(log, "$$Warning: parameter [%d] %s stays fixed: %s.\n", j, parameter.descriptor->id,
                            reason(problem, parameter));
            continue;
        }
        ++next;
        if (is_cell(problem.crystal, parameter.descriptor))
            ov_fprintf_stdo(log, "$$Warning: the derivative of [%d] %s holds the geometry of the cell.\n", j,
                            parameter.descriptor->id);
    }
}

// Parameters whose standard deviation is that much larger than with all others fixed.
static void warn_of_inseparable(const fit_run& run, const fit_cycle& best, const Eigen::MatrixXd& covariance) {
    const double inflation = 1e6; // of a variance: what rounding and finite steps leave of no difference
    for (int j = 0; j < run.problem->num_fitpar; ++j)
        if (covariance(j, j) * best.alpha(j, j) > inflation)
            ov_fprintf_stdo(run.context.log, "$$Warning: the data do not separate [%d] %s from other parameters.\n", j,
                            run.problem->parameter[to_size(j)].descriptor->id);
}

// ---- the end ----------------------------------------------------------------------------------

// The covariance in the kernel's shape: row pointers into a matrix stored by columns, which for a
// symmetric one is the same.
static std::vector<const double*> rows_of(const Eigen::MatrixXd& covariance) {
    std::vector<const double*> rows;
    for (Eigen::Index j = 0; j < covariance.cols(); ++j)
        rows.push_back(covariance.col(j).data());
    return rows;
}

void report_fit(const fit_run& run, const fit_cycle& best, const fit_end& end, const char* stem) {
    fit_problem& p = *run.problem;
    std::FILE* log = run.context.log;
    char shift_name[path_max], corr_name[path_max], fit_name[path_max];
    file_name_of(stem, "_shift.txt", shift_name);
    file_name_of(stem, "_corr.txt", corr_name);
    file_name_of(stem, "_fit.txt", fit_name);

    const Eigen::MatrixXd covariance = covariance_of(best, free_parameters(best, p));
    const std::vector<const double*> rows = rows_of(covariance);
    warn_of_inseparable(run, best, covariance);
    fitpar_sigma_to_csd_fed(p.crystal, p.num_fed, p.sets, p.num_fitpar, rows.data());
    for (std::FILE* stream : {log, stdout})
        print_int_ratio(stream, p.num_fed, p.sets, p.intensities);
    print_Rw_factors(log, p.num_fed, p.sets, p.intensities);
    for (std::FILE* stream : {log, stdout})
        print_scaled_Rw_factors(stream, p.num_fed, p.sets, p.intensities);
    par_output_short(p.crystal, p.num_fed, p.sets, log, shift_name);
    output_corr_coef(p.crystal, p.num_fed, p.sets, p.num_fitpar, rows.data(), corr_name, log);
    output_fit_diagnostics(end.status, p.num_fitpar, best.chisq, end.lambda, log);
    output_FIT_MODE_file(fit_name, p.crystal, p.max_iteration, p.num_fed, p.sets, p.intensities);
    ov_fprintf_stdo(log, "Refined parameter file: %s\n", fit_name);
    fit_end_message(log);
}

} // namespace orvel
