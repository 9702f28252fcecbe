// SPDX-License-Identifier: MIT
#include "fit.h"

#include <algorithm>
#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/vecmat.h"

namespace orvel {

// Statuses of output_fit_diagnostics.
enum fit_status {
    status_too_damped = -1,
    status_running = 0, // at the end: not converged
    status_converged = 1,
    status_below_limit = 2,
    status_tolerable = 3,
};

static const double first_lambda = 1e-3;
static const double least_lambda = 1e-7;  // no damping to speak of: from less the way back is long
static const double lambda_factor = 10.0; // by which lambda falls and rises

// What the quadratic model promises at a vector.
struct outlook {
    std::vector<int> free;
    Eigen::VectorXd esd;
    double gain;     // decrease of chi-square from here to the model's minimum
    double farthest; // largest move to it, in units of the standard deviations
};

static outlook look_ahead(const fit_cycle& cycle, const fit_problem& problem) {
    outlook view;
    view.free = free_parameters(cycle, problem);
    view.esd = covariance_of(cycle, view.free).diagonal().cwiseSqrt();
    const Eigen::VectorXd step = solve_step(cycle, view.free, 0.0);
    view.gain = cycle.beta.dot(step);
    view.farthest = 0.0;
    for (int j : view.free)
        view.farthest = std::max(view.farthest, std::fabs(step[j]) / view.esd[j]);
    return view;
}

// Status of a vector by itself.
static int judge(const fit_cycle& cycle, const outlook& view, const fit_problem& problem) {
    if (cycle.chisq < epsilon.tol_chisq_abs * problem.num_fitpar)
        return status_below_limit;
    if (view.farthest <= epsilon.tol_parameter && view.gain <= epsilon.tol_chisq_rel * cycle.chisq)
        return status_converged;
    return status_running;
}

// A trial vector that made chi-square grow: is that rounding? It is where the model promises no more than
// the tolerance, and that is little for so many parameters, or even a step short by damping led uphill.
static bool is_tolerable(double increase, const fit_cycle& best, const outlook& view, double lambda) {
    const double tolerance = epsilon.tol_chisq_rel * best.chisq;
    const double little = epsilon.tol_chisq_abs * static_cast<double>(view.free.size());
    return increase <= tolerance && view.gain <= tolerance && (view.gain <= little || lambda > epsilon.tol_lambda);
}

// lambda behind a trial. Plainly it falls behind a success and rises behind a failure. The modified
// form lets it fall only where chi-square decreased as the model had promised, keeps it where the model
// was fair, and raises it where it was poor (R. Fletcher, AERE Report R 6799 (1971)).
static double next_lambda(double lambda, double decrease, double promised) {
    const double good = 0.75, poor = 0.25, small_rise = 2.0;
    const double less = std::fmax(lambda / lambda_factor, least_lambda);
    if (!(decrease >= 0))
        return std::fmax(lambda * lambda_factor, first_lambda);
    if (epsilon.flag_modified_marquardt == 0 || decrease > good * promised)
        return less;
    return decrease >= poor * promised ? lambda : small_rise * lambda;
}

// The next trial's step. No scale factor and no thickness falls below half its value: at 0 they lose
// their meaning.
static Eigen::VectorXd trial_step(const fit_cycle& best, const outlook& view, const fit_problem& problem,
                                  double lambda) {
    const double largest_part = 0.5;
    const Eigen::VectorXd step = solve_step(best, view.free, lambda);
    double shrink = 1.0;
    for (int j : view.free) {
        const fit_value_kind kind = problem.parameter[to_size(j)].kind;
        const double fall = largest_part * best.par[j];
        if ((kind == value_scale || kind == value_thickness) && fall > 0 && -step[j] > fall)
            shrink = std::fmin(shrink, -fall / step[j]);
    }
    return shrink * step;
}

static void report_trial(const fit_run& run, const fit_cycle& trial, double lambda, bool better) {
    ov_fprintf_stdo(run.context.log, "** Cycle %d: chisq = %g, lambda = %g: %s\n",
                    run.calls, trial.chisq, lambda, better ? "accepted" : "rejected");
}

// True if there is a call for a trial vector and, should it fail, one to repeat the best.
static bool may_try(const fit_run& run, int trials) {
    return trials < run.problem->max_iteration && (run.max_calls == 0 || run.calls + 2 <= run.max_calls);
}

fit_end iterate(fit_run& run, fit_cycle& best) {
    fit_problem& problem = *run.problem;
    Eigen::VectorXd start(problem.num_fitpar);
    csd_fed_to_fitpar(problem.crystal, problem.num_fed, problem.sets, problem.num_fitpar, start.data());
    best = run_cycle(start, run);
    if (!is_finite(best))
        ov_abort(stdout, "$$ Chi-square or its derivatives are no numbers at the start. Abort.\n");
    outlook view = look_ahead(best, problem);
    warn_of_fixed(problem, view.free, run.context.log);

    fit_end end = {judge(best, view, problem), first_lambda};
    bool at_best = true;
    for (int trials = 0; end.status == status_running && may_try(run, trials); ++trials) {
        const double lambda = end.lambda;
        const Eigen::VectorXd step = trial_step(best, view, problem, lambda);
        const fit_cycle trial = run_cycle(best.par + step, run);
        const double promised = step.dot(2 * best.beta - best.alpha * step);
        const double decrease = is_finite(trial) ? best.chisq - trial.chisq : -HUGE_VAL;
        at_best = decrease >= 0;
        report_trial(run, trial, lambda, at_best);
        end.lambda = next_lambda(lambda, decrease, promised);
        if (at_best) {
            best = trial;
            view = look_ahead(best, problem);
            end.status = judge(best, view, problem);
        } else if (is_tolerable(-decrease, best, view, lambda)) {
            end.status = status_tolerable;
        } else if (end.lambda > epsilon.marq_lambda_max) {
            end.status = status_too_damped;
        }
    }
    if (!at_best) {
        ov_fprintf_stdo(run.context.log, "** The best vector once more:\n");
        run_cycle(best.par, run);
    }
    return end;
}

} // namespace orvel
