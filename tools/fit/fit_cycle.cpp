// SPDX-License-Identifier: MIT
#include "fit.h"

#include <cmath>

#include <Eigen/Dense>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- the call ---------------------------------------------------------------------------------

static void print_row(const char* label, const double* row, int n) {
    ov_fprintf(stdout, "%s", label);
    for (int i = 0; i < n; ++i)
        ov_fprintf(stdout, " %.10g", row[i]);
    ov_fprintf(stdout, "\n");
}

static void print_normal(int call, const double* par, double chisq, const double* const* alpha,
                         const double* beta, int n) {
    ov_fprintf(stdout, "@cycle %d\n", call);
    print_row("@par", par, n);
    print_row("@chisq", &chisq, 1);
    for (int j = 0; j < n; ++j)
        print_row("@alpha", alpha[j], j + 1);
    print_row("@beta", beta, n);
}

fit_cycle run_cycle(const Eigen::VectorXd& par, fit_run& run) {
    const int n = run.problem->num_fitpar;
    fit_cycle cycle = {par, 0.0, Eigen::MatrixXd::Zero(n, n), Eigen::VectorXd::Zero(n)};
    double** alpha = new_matrix<double>(to_size(n), to_size(n));
    dynamical_calculation(par.data(), n, alpha, cycle.beta.data(), cycle.chisq, run.context);
    ++run.calls;
    for (int j = 0; j < n; ++j)
        for (int k = 0; k <= j; ++k)
            cycle.alpha(j, k) = cycle.alpha(k, j) = alpha[j][k];
    if (run.dump_normal)
        print_normal(run.calls, par.data(), cycle.chisq, alpha, cycle.beta.data(), n);
    free_matrix(alpha);
    return cycle;
}

bool is_finite(const fit_cycle& cycle) {
    return std::isfinite(cycle.chisq) && cycle.alpha.allFinite() && cycle.beta.allFinite();
}

// ---- linear algebra ---------------------------------------------------------------------------

// Share of restraints in the diagonal element of a parameter. That of a crystal parameter counts once
// for each data set.
static double restraint_share(const fit_value& parameter, int num_fed) {
    const fitpar& descriptor = *parameter.descriptor;
    if (descriptor.idx != kind_rst)
        return 0.0;
    const int times = parameter.kind == value_crystal ? num_fed : 1;
    return times * epsilon.scale_rst_chisq / (descriptor.rst * descriptor.rst);
}

std::vector<int> free_parameters(const fit_cycle& cycle, const fit_problem& problem) {
    const double rounding = 1e-12; // of the sum that holds both shares
    std::vector<int> free;
    for (int j = 0; j < problem.num_fitpar; ++j) {
        const double whole = cycle.alpha(j, j);
        const double data = whole - restraint_share(problem.parameter[to_size(j)], problem.num_fed);
        if (data > rounding * whole)
            free.push_back(j);
    }
    return free;
}

// Solution of (alpha' + lambda) x = rhs over the free parameters, alpha' being alpha in units in which
// its diagonal is 1: then the condition is that of the correlations, and lambda is that of Marquardt.
// A ridge that no correlation of use feels keeps the matrix regular, so that what the data do not
// determine gets an immense variance instead of a division by zero.
static Eigen::MatrixXd solve_scaled(const Eigen::MatrixXd& alpha, double lambda, const Eigen::MatrixXd& rhs) {
    const double ridge = 1e-12;
    const Eigen::VectorXd unit = alpha.diagonal().cwiseSqrt().cwiseInverse();
    Eigen::MatrixXd matrix = unit.asDiagonal() * alpha * unit.asDiagonal();
    matrix.diagonal().array() += lambda + ridge * static_cast<double>(alpha.rows());
    const Eigen::MatrixXd scaled_rhs = unit.asDiagonal() * rhs;
    Eigen::MatrixXd x;
    if (epsilon.svd_flag == 1)
        x = matrix.jacobiSvd(Eigen::ComputeThinU | Eigen::ComputeThinV).solve(scaled_rhs);
    else
        x = matrix.ldlt().solve(scaled_rhs);
    return unit.asDiagonal() * x;
}

Eigen::VectorXd solve_step(const fit_cycle& cycle, const std::vector<int>& free, double lambda) {
    Eigen::VectorXd step = Eigen::VectorXd::Zero(cycle.par.size());
    if (!free.empty())
        step(free) = solve_scaled(cycle.alpha(free, free), lambda, cycle.beta(free));
    return step;
}

Eigen::MatrixXd covariance_of(const fit_cycle& cycle, const std::vector<int>& free) {
    const Eigen::Index n = cycle.par.size(), m = static_cast<Eigen::Index>(free.size());
    Eigen::MatrixXd covariance = Eigen::MatrixXd::Zero(n, n);
    if (!free.empty())
        covariance(free, free) = solve_scaled(cycle.alpha(free, free), 0.0, Eigen::MatrixXd::Identity(m, m));
    return covariance;
}

} // namespace orvel
