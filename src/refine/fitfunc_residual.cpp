// SPDX-License-Identifier: MIT
#include "refine/fitfunc.h"

#include <cmath>

#include "control/ov_mpi.h"

namespace orvel {

double eval_weight(double sigma, double weight) { return sigma > 0 ? weight / (sigma * sigma) : 0.0; }

double calc_chisq(const fed& set, const ei& intensity) {
    const ei& e = intensity;
    double chisq = 0.0;
    for (int t = 0; t < set.num_thickness; ++t) {
        for (int r = 0; r < set.num_reflex; ++r) {
            for (int p = 0; p < e.num_pix; ++p) {
                if (e.pixel[p].flag != 1)
                    continue;
                const double d = e.obs[r][t][p] - e.cal[r][t][p];
                if (e.sig[r][t][p] == 0.0)
                    ov_fprintf(stdout, "$$Warning: obs_int obs_sig = %.3g %.3g\n", e.obs[r][t][p], e.sig[r][t][p]);
                chisq += eval_weight(e.sig[r][t][p], set.weight[r][t]) * d * d;
            }
        }
    }
    return chisq;
}

// ---- residual indices -----------------------------------------------------------------------

// Sums of a group of points; w is the weight, d the residual.
struct residual_sums {
    double w_d2, w_obs2, abs_d, abs_obs;
    int n;
};

static void add_point(residual_sums& sums, double w, double obs, double d) {
    sums.w_d2 += w * d * d;
    sums.w_obs2 += w * obs * obs;
    if (w > 0) {
        ++sums.n;
        sums.abs_d += std::fabs(d);
        sums.abs_obs += std::fabs(obs);
    }
}

// The sums of all points, of the zero-order Laue zone and of higher ones. A reflection with a negative
// zone number is in the first alone.
struct zone_sums {
    residual_sums total, zolz, holz;
};

static void add_data_set(zone_sums& sums, const fed& set, const ei& intensity) {
    const ei& e = intensity;
    for (int t = 0; t < set.num_thickness; ++t) {
        for (int r = 0; r < set.num_reflex; ++r) {
            const int L = laue_zone(set.zone_uvw, e.reflex_hkl[r]);
            for (int p = 0; p < e.num_pix; ++p) {
                if (e.pixel[p].flag != 1)
                    continue;
                const double obs = e.obs[r][t][p];
                const double d = obs - e.cal[r][t][p];
                const double w = eval_weight(e.sig[r][t][p], set.weight[r][t]);
                add_point(sums.total, w, obs, d);
                if (L == 0)
                    add_point(sums.zolz, w, obs, d);
                else if (L > 0)
                    add_point(sums.holz, w, obs, d);
            }
        }
    }
}

// empty_Rw stands for the weighted R factor of a group without intensity.
static residual_group quotients(const residual_sums& sums, double empty_Rw) {
    residual_group group;
    group.chisq = sums.w_d2;
    group.R = sums.abs_obs > 0 ? sums.abs_d / sums.abs_obs : -1.0;
    group.Rw = sums.w_obs2 > 0 ? std::sqrt(sums.w_d2 / sums.w_obs2) : empty_Rw;
    group.GoF = sums.n > 0 ? std::sqrt(sums.w_d2 / sums.n) : -1.0;
    group.num_data = sums.n;
    return group;
}

void calc_total_Rw_factors(int num_fed, const fed* sets, const ei* intensities, residual_set& residuals) {
    zone_sums sums = {};
    for (int i = 0; i < num_fed; ++i)
        add_data_set(sums, sets[i], intensities[i]);
    residuals.total = quotients(sums.total, 0.0);
    residuals.zolz = quotients(sums.zolz, -1.0);
    residuals.holz = quotients(sums.holz, 0.0);
}

void calc_Rw_factor(const fed& set, const ei& intensity, residual_set& residuals) {
    calc_total_Rw_factors(1, &set, &intensity, residuals);
}

void calc_scaled_Rw_factor(const fed& set, const ei& intensity, double& scale, double& Rw) {
    const ei& e = intensity;
    double d2 = 0.0, obs2 = 0.0;
    scale = 0.0;
    for (int t = 0; t < set.num_thickness; ++t) {
        // Sums of w obs^2, w obs cal and w cal^2; the residual is summed anew, since their difference
        // would cancel.
        double oo = 0.0, oc = 0.0, cc = 0.0;
        for (int r = 0; r < set.num_reflex; ++r) {
            for (int p = 0; p < e.num_pix; ++p) {
                if (e.pixel[p].flag != 1)
                    continue;
                const double w = eval_weight(e.sig[r][t][p], set.weight[r][t]);
                oo += w * e.obs[r][t][p] * e.obs[r][t][p];
                oc += w * e.obs[r][t][p] * e.cal[r][t][p];
                cc += w * e.cal[r][t][p] * e.cal[r][t][p];
            }
        }
        scale = oc / cc;
        for (int r = 0; r < set.num_reflex; ++r) {
            for (int p = 0; p < e.num_pix; ++p) {
                if (e.pixel[p].flag != 1)
                    continue;
                const double d = e.obs[r][t][p] - scale * e.cal[r][t][p];
                d2 += eval_weight(e.sig[r][t][p], set.weight[r][t]) * d * d;
            }
        }
        obs2 += oo;
    }
    Rw = std::sqrt(d2 / obs2);
}

// ---- printed --------------------------------------------------------------------------------

static void print_residuals(std::FILE* log, const residual_set& s) {
    ov_fprintf_stdo(log, " Chisq = %g, Chisq_ZOLZ = %g, Chisq_HOLZ = %g\n", s.total.chisq, s.zolz.chisq, s.holz.chisq);
    if (s.holz.chisq > 0)
        ov_fprintf_stdo(log, "  Ratio chisq_zolz / chisq_holz = %g\n", s.zolz.chisq / s.holz.chisq);
    if (s.total.GoF > 0)
        ov_fprintf_stdo(log, " GoF = %g, num_data = %d\n", s.total.GoF, s.total.num_data);
    if (s.zolz.GoF > 0)
        ov_fprintf_stdo(log, " GoF(ZOLZ) = %g, num_data(ZOLZ) = %d\n", s.zolz.GoF, s.zolz.num_data);
    if (s.holz.GoF > 0)
        ov_fprintf_stdo(log, " GoF(HOLZ) = %g, num_data(HOLZ) = %d\n", s.holz.GoF, s.holz.num_data);
    if (s.total.R > 0)
        ov_fprintf_stdo(log, " (Ref: R = %g", s.total.R);
    if (s.zolz.R > 0)
        ov_fprintf_stdo(log, ", R_ZOLZ = %g", s.zolz.R);
    if (s.holz.R > 0)
        ov_fprintf_stdo(log, ", R_HOLZ = %g", s.holz.R);
    ov_fprintf_stdo(log, ")\n");
    if (s.total.Rw > 0)
        ov_fprintf_stdo(log, " (Ref: Rw = %g", s.total.Rw);
    if (s.zolz.Rw > 0)
        ov_fprintf_stdo(log, ", Rw_ZOLZ = %g", s.zolz.Rw);
    if (s.holz.Rw > 0)
        ov_fprintf_stdo(log, ", Rw_HOLZ = %g", s.holz.Rw);
    ov_fprintf_stdo(log, ")\n");
}

void print_Rw_factors(std::FILE* log, int num_fed, const fed* sets, const ei* intensities) {
    residual_set residuals;
    ov_fprintf_stdo(log, "Residual indices:\n");
    for (int i = 0; i < num_fed && num_fed > 1; ++i) {
        ov_fprintf_stdo(log, " # Data set %d:\n", i);
        calc_Rw_factor(sets[i], intensities[i], residuals);
        print_residuals(log, residuals);
    }
    if (num_fed > 1)
        ov_fprintf_stdo(log, " # Total data:\n");
    calc_total_Rw_factors(num_fed, sets, intensities, residuals);
    print_residuals(log, residuals);
}

void print_scaled_Rw_factors(std::FILE* stream, int num_fed, const fed* sets, const ei* intensities) {
    ov_fprintf(stream, "\n");
    for (int i = 0; i < num_fed; ++i) {
        double scale, Rw;
        calc_scaled_Rw_factor(sets[i], intensities[i], scale, Rw);
        if (num_fed == 1)
            ov_fprintf(stream, " (Ref: ");
        else
            ov_fprintf(stream, " (Ref: Data set %d: ", i);
        ov_fprintf(stream, "Adjusted scale = %g, ", scale);
        ov_fprintf(stream, "Scaled R_w = %g)\n", Rw);
    }
}

// Measured intensity of a Laue zone.
struct zone_intensity {
    long count;
    double sum;
    double w_obs2;
};

static void add_measured(zone_intensity& zolz, zone_intensity& holz, const fed& set, const ei& e) {
    for (int t = 0; t < set.num_thickness; ++t) {
        for (int r = 0; r < set.num_reflex; ++r) {
            const int L = laue_zone(set.zone_uvw, e.reflex_hkl[r]);
            zone_intensity& zone = L == 0 ? zolz : holz;
            for (int i = 0; i < e.num_obs_pix && L >= 0; ++i) {
                const double w = eval_weight(e.sig_raw[r][t][i], set.weight[r][t]);
                const double obs = e.obs_raw[r][t][i];
                if (!(w > 0))
                    continue;
                ++zone.count;
                zone.sum += obs;
                zone.w_obs2 += w * obs * obs;
            }
        }
    }
}

static void print_zones(std::FILE* stream, double zolz, double holz) {
    ov_fprintf(stream, "  (ZOLZ)= %g, (HOLZ)= %g, (Total)= %g\n", zolz, holz, zolz + holz);
    if (holz > 0)
        ov_fprintf(stream, "  Ratio: ZOLZ/HOLZ = %g\n", zolz / holz);
}

void print_int_ratio(std::FILE* stream, int num_fed, const fed* sets, const ei* intensities) {
    zone_intensity zolz = {}, holz = {};
    for (int i = 0; i < num_fed; ++i)
        add_measured(zolz, holz, sets[i], intensities[i]);
    ov_fprintf(stream, "\nNumber of data points:\n");
    ov_fprintf(stream, "  (ZOLZ)= %ld, (HOLZ)= %ld, (Total)= %ld\n", zolz.count, holz.count, zolz.count + holz.count);
    ov_fprintf(stream, "Integrated intensity:\n");
    print_zones(stream, zolz.sum, holz.sum);
    ov_fprintf(stream, "Squares of weighted integrated intensities:\n");
    print_zones(stream, zolz.w_obs2, holz.w_obs2);
    ov_fprintf(stream, "\n");
}

} // namespace orvel
