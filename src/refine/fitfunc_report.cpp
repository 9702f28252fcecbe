// SPDX-License-Identifier: MIT
#include "refine/fitfunc.h"

#include <cmath>
#include <cstdlib>

#include "control/limits.h"
#include "control/ov_mpi.h"
#include "control/settings.h"

namespace orvel {

// ---- patterns -------------------------------------------------------------------------------

// Observed, calculated and sigma of one reflection at one thickness, row by row of the grid.
static void print_reflection(std::FILE* file, const fed& set, const ei& e, int r, int t) {
    const hkl g = e.reflex_hkl[r];
    ov_fprintf(file, "RF{\n");
    ov_fprintf(file, "%d  %d  %d  %g   #h k l\n", g.h, g.k, g.l, set.weight[r][t]);
    ov_fprintf(file, "#Obs  Cal  Sig\n");
    ov_fprintf(file, "#(H, G) = (0,0)\n");
    ov_fprintf(file, "#(H, G) = (0,1)\n");
    ov_fprintf(file, "#     .....    \n");
    for (int p = 0; p < e.num_pix; ++p) {
        ov_fprintf(file, "%g  %g  %g\n", e.obs[r][t][p], e.cal[r][t][p], e.sig[r][t][p]);
        if ((p + 1) % e.num_pix_side == 0)
            ov_fprintf(file, "\n");
    }
    ov_fprintf(file, "}RF\n");
}

static void print_fit_result(std::FILE* file, int i, const fed& set, const ei& e, const csd& c) {
    ov_fprintf(file, "FIT_RESULT\n");
    ov_fprintf(file, "#Dataset no. %d\n", i);
    ov_fprintf(file, "CR_PAR{\n");
    ov_fprintf(file, "# lattice parameter\n");
    ov_fprintf(file, "# a,b,c,alpha,beta,gamma\n");
    ov_fprintf(file, "%g  %g  %g  %g  %g  %g\n", c.a, c.b, c.c, c.alpha, c.beta, c.gamma);
    ov_fprintf(file, "%d  %d  %d    # incident direction\n", set.zone_uvw.u, set.zone_uvw.v, set.zone_uvw.w);
    ov_fprintf(file, "%g  %g  %g    # zolzbase1\n", set.zolzbase1.h, set.zolzbase1.k, set.zolzbase1.l);
    ov_fprintf(file, "%g  %g    # tiltH tiltG\n", set.h_tilt, set.g_tilt);
    ov_fprintf(file, "%g    # disksize\n", set.disksize);
    ov_fprintf(file, "}CR_PAR\n");
    ov_fprintf(file, "NUM{\n");
    ov_fprintf(file, "%d    #num_reflex\n", set.num_reflex);
    ov_fprintf(file, "%d    #num_thickness\n", set.num_thickness);
    ov_fprintf(file, "%d  %d    #num_pix, num_pix_side\n", e.num_pix, e.num_pix_side);
    ov_fprintf(file, "}NUM\n");
    for (int t = 0; t < set.num_thickness; ++t) {
        ov_fprintf(file, "THICKNESS{\n");
        for (int r = 0; r < set.num_reflex; ++r)
            print_reflection(file, set, e, r, t);
        ov_fprintf(file, "}THICKNESS\n");
    }
}

void fit_res_output(int num_fed, const fed* sets, const ei* intensities, const csd& crystal, const char* base) {
    for (int i = 0; i < num_fed; ++i) {
        char name[path_max];
        std::snprintf(name, sizeof name, "%s%d.txt", base, i);
        std::FILE* file = ov_fopen_chk_wmode(name);
        ov_fprintf(stdout, "Result: res file      -- %s\n", name);
        print_fit_result(file, i, sets[i], intensities[i], crystal);
        ov_fclose(file);
    }
}

// ---- parameters -----------------------------------------------------------------------------

void fprintf_fitpar(const fitpar& descriptor, double value, std::FILE* stream) {
    if (descriptor.idx == kind_adj)
        ov_fprintf(stream, " [%d] %s= %g, esd= %g (ini_val= %g)\n",
                   descriptor.ntp, descriptor.id, value, descriptor.esd, descriptor.ini_val);
    else if (descriptor.idx == kind_rst)
        ov_fprintf(stream, " [%d] %s= %g, esd= %g (ini_val= %g, rst= %g)\n",
                   descriptor.ntp, descriptor.id, value, descriptor.esd, descriptor.ini_val, descriptor.rst);
}

void fprintf_fitpar_stdo(const fitpar& descriptor, double value, std::FILE* stream) {
    fprintf_fitpar(descriptor, value, stream);
    fprintf_fitpar(descriptor, value, stdout);
}

// Every value of a part, or every second one.
static void report_part(csd& crystal, int part, int step, std::FILE* log) {
    for (int n = 0; n < num_values(crystal, part); n += step) {
        const csd_value v = value_of(crystal, part, n);
        if (v.value == nullptr)
            ov_fprintf(stdout, "$$ invalid lof_type (=%d).\n", crystal.lof_type);
        else
            fprintf_fitpar_stdo(*v.descriptor, *v.value, log);
    }
}

static void report_crystal(csd& crystal, std::FILE* log) {
    report_part(crystal, cell_part, 1, log);
    for (int i = 0; i < crystal.num_site; ++i) {
        if (crystal.site[i].bf != 0 && crystal.site[i].bf != 1)
            ov_abort(stdout, "Invalid b_flag.\n");
        report_part(crystal, site_part(i), 1, log);
    }
    const int step = crystal.lof_type == lof_f_inela ? 2 : 1; // this kind reports f_ela alone
    for (int i = 0; i < crystal.num_lofg; ++i)
        report_part(crystal, lofg_part(crystal, i), step, log);
}

static void report_data_set(const fed& set, std::FILE* log, const char* shift_name, std::FILE* shifts) {
    fprintf_fitpar_stdo(set.h_tilt_fitpar, set.h_tilt, log);
    fprintf_fitpar_stdo(set.g_tilt_fitpar, set.g_tilt, log);
    fprintf_fitpar_stdo(set.kv_fitpar, set.kv, log);
    for (int t = 0; t < set.num_thickness; ++t) {
        fprintf_fitpar_stdo(set.scale_fitpar[t], set.scale_factor[t], log);
        fprintf_fitpar_stdo(set.thickness_fitpar[t], set.thickness[t], log);
        fprintf_fitpar_stdo(set.thickness_width_fitpar[t], set.thickness_width[t], log);
        ov_fprintf_stdo(log, " SHIFT parameters output: %s\n", shift_name);
        ov_fprintf(shifts, "it= %d", t);
        for (int r = 0; r < set.num_reflex; ++r) {
            fprintf_fitpar(set.H_shift_fitpar[r][t], set.H_shift[r][t], shifts);
            fprintf_fitpar(set.G_shift_fitpar[r][t], set.G_shift[r][t], shifts);
        }
    }
}

void par_output_short(csd& crystal, int num_fed, fed* sets, std::FILE* log, const char* shift_file) {
    ov_fprintf_stdo(log, "\nRefined parameters:\n");
    report_crystal(crystal, log);
    std::FILE* shifts = ov_fopen_chk_wmode(shift_file);
    ov_fprintf(shifts, "HG SHIFT parameters\n");
    for (int i = 0; i < num_fed; ++i) {
        if (num_fed > 1) {
            ov_fprintf(shifts, "Exp. dataset: %d\n", i);
            ov_fprintf_stdo(log, " # Data set %d:\n", i);
        }
        report_data_set(sets[i], log, shift_file, shifts);
    }
    ov_fclose(shifts);
    ov_fflush(log);
}

void output_corr_coef(csd& crystal, int num_fed, fed* sets, int num_fitpar, const double* const* covariance,
                      const char* file_name, std::FILE* stream) {
    std::FILE* file = ov_fopen_chk_wmode(file_name);
    ov_fprintf(file, "%% %s\n", file_name);
    ov_fprintf(stream, "Correlation coef. output ==> %s\n", file_name);
    ov_fprintf(stream, "Correlation coef. (>%g):\n", epsilon.corr_threshold);
    ov_fprintf(file, "Correlation coefficients:\n");
    for (int i = 0; i < num_fitpar; ++i)
        ov_fprintf(file, " par[%d]: %s\n", i, search_csd_fed(i, crystal, num_fed, sets).id);
    for (int i = 0; i < num_fitpar; ++i) {
        for (int j = i + 1; j < num_fitpar; ++j) {
            if (!(covariance[i][i] > epsilon.general_eps) || !(covariance[j][j] > epsilon.general_eps))
                continue;
            const double rho = covariance[i][j] / (std::sqrt(covariance[i][i]) * std::sqrt(covariance[j][j]));
            if (std::fabs(rho) > epsilon.corr_threshold)
                ov_fprintf(stream, " rho[%2d][%2d] = %5.2lf\n", i, j, rho);
            ov_fprintf(file, " rho[%2d][%2d] = %5.2lf\n", i, j, rho);
        }
    }
    ov_fclose(file);
}

// ---- the end --------------------------------------------------------------------------------

void output_fit_diagnostics(int status, int num_fitpar, double chisq, double lambda, std::FILE* log) {
    switch (status) {
    case 1:
        ov_fprintf_stdo(log, "\n  ** Normal convergence **\n\n");
        break;
    case 2:
        ov_fprintf_stdo(log, "\n  ** Convergence **\n");
        ov_fprintf_stdo(log, "  Chi square %g is less than tol_chisq_abs. * num_fitpar (=%g).\n",
                        chisq, num_fitpar * epsilon.tol_chisq_abs);
        ov_fprintf_stdo(log, "  Check your data again.\n\n");
        break;
    case 3:
        ov_fprintf_stdo(log, "\n  ** Convergence **\n");
        ov_fprintf_stdo(log, "  Residual sum of squares has slightly increased.\n");
        ov_fprintf_stdo(log, "  This increase is probably due to a round-off error and tolerable.\n\n");
        break;
    case -1:
        ov_fprintf_stdo(log, "\n  ** Not converged **\n");
        ov_fprintf_stdo(log, "  Too large lambda (=%g).\n", lambda);
        ov_fprintf_stdo(log, "  Please change initial values and try again.\n\n");
        break;
    default:
        ov_fprintf_stdo(log, "\n  ** Not converged **\n");
        break;
    }
}

void fit_end_message(std::FILE* log) {
    ov_fprintf_stdo(log, "\n** ORVEL has done a fitting job. ");
    ov_fprintf_stdo(log, "You should judge if it is right!\n\n");
}

} // namespace orvel
