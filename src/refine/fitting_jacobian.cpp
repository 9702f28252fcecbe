// SPDX-License-Identifier: MIT
#include "refine/fitting.h"

#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel {

// A point has a derivative if it is calculated and measured.
static bool counts(const ei& e, int r, int t, int p) { return e.pixel[p].flag == 1 && e.sig[r][t][p] > 0; }

static void take_restraint(double value, const fitpar& descriptor, restraint& rst) {
    if (descriptor.idx == kind_rst)
        rst = {1, value, descriptor.ini_val, descriptor.rst};
}

void init_jacobian_j(int R, int T, int P, double*** J) {
    for (int r = 0; r < R; ++r)
        for (int t = 0; t < T; ++t)
            for (int p = 0; p < P; ++p)
                J[r][t][p] = 0.0;
}

// ---- columns --------------------------------------------------------------------------------

void calc_jac_rst_st_j(int j, const fed& set, const ei& intensity, double*** pix_int, double*** J, restraint& rst) {
    const ei& e = intensity;
    const int T = set.num_thickness;
    for (int t = 0; t < T; ++t) {
        const bool scale = set.scale_fitpar[t].ntp == j;
        const bool thickness = set.thickness_fitpar[t].ntp == j;
        if (!scale && !thickness)
            continue;
        if (scale)
            take_restraint(set.scale_factor[t], set.scale_fitpar[t], rst);
        else
            take_restraint(set.thickness[t], set.thickness_fitpar[t], rst);
        for (int r = 0; r < set.num_reflex; ++r) {
            for (int p = 0; p < e.num_pix; ++p) {
                if (!counts(e, r, t, p))
                    continue;
                J[r][t][p] = scale ? e.cal[r][t][p] / set.scale_factor[t]
                                   : (pix_int[p][r][T + t] - e.cal[r][t][p]) / set.thickness_fitpar[t].step;
            }
        }
    }
}

void eval_jac_2D_rst_j(double value, const fitpar& descriptor, int j, const fed& set, const ei& intensity,
                       double**** pix_p_int, double*** J, restraint& rst) {
    if (descriptor.ntp != j)
        return;
    take_restraint(value, descriptor, rst);
    for (int r = 0; r < set.num_reflex; ++r)
        for (int t = 0; t < set.num_thickness; ++t)
            for (int p = 0; p < intensity.num_pix; ++p)
                if (counts(intensity, r, t, p))
                    J[r][t][p] = (pix_p_int[p][r][t][j] - intensity.cal[r][t][p]) / descriptor.step;
}

void calc_jac_rst_perturb_j(int j, csd& crystal, const fed& set, const ei& intensity,
                            const cycle_intensities& calculated, double*** J, restraint& rst) {
    if (j >= calculated.num_perturb)
        return;
    fit_value_list list = list_csd_values(crystal);
    for (int i = 0; i < list.count; ++i)
        eval_jac_2D_rst_j(*list.at[i].value, *list.at[i].descriptor, j, set, intensity, calculated.pix_p_int, J, rst);
    std::free(list.at);
}

// The column of the shift of one reflection at one thickness, along H or along G.
static void shift_column(bool along_H, int r, int t, double step, const fed& set, const ei& e, double*** J) {
    const int n = e.num_pix_side;
    const std::size_t side = to_size(n);
    double** pattern = new_matrix<double>(side, side);
    double** grad = new_matrix<double>(side, side);
    int** flag = new_matrix<int>(side, side);
    for (int p = 0; p < e.num_pix; ++p) {
        const int ix = p % n, iy = p / n;
        pattern[ix][iy] = e.cal[r][t][p];
        flag[ix][iy] = e.pixel[p].flag;
    }
    if (along_H)
        calc_Hshift_grad(step, -set.disksize, set.disksize, n, n, pattern, flag, grad);
    else
        calc_Gshift_grad(step, -set.disksize, set.disksize, n, n, pattern, flag, grad);
    for (int p = 0; p < e.num_pix; ++p)
        J[r][t][p] = counts(e, r, t, p) ? grad[p % n][p / n] : 0.0;
    free_matrix(pattern);
    free_matrix(grad);
    free_matrix(flag);
}

void calc_jac_rst_shift_j(int j, const fed& set, const ei& intensity, double*** J, restraint& rst) {
    for (int r = 0; r < set.num_reflex; ++r) {
        for (int t = 0; t < set.num_thickness; ++t) {
            const fitpar& H = set.H_shift_fitpar[r][t];
            const fitpar& G = set.G_shift_fitpar[r][t];
            if (H.ntp == j) {
                take_restraint(set.H_shift[r][t], H, rst);
                shift_column(true, r, t, H.step, set, intensity, J);
            } else if (G.ntp == j) {
                take_restraint(set.G_shift[r][t], G, rst);
                shift_column(false, r, t, G.step, set, intensity, J);
            }
        }
    }
}

void calc_jacobian_rst_j(int j, csd& crystal, const fed& set, const ei& intensity,
                         const cycle_intensities& calculated, double*** J, restraint& rst) {
    calc_jac_rst_st_j(j, set, intensity, calculated.pix_int, J, rst);
    calc_jac_rst_perturb_j(j, crystal, set, intensity, calculated, J, rst);
    calc_jac_rst_shift_j(j, set, intensity, J, rst);
}

// ---- normal equations -----------------------------------------------------------------------

double calc_alpha_elm(const fed& set, const ei& intensity, double*** J_j, double*** J_k) {
    const ei& e = intensity;
    double sum = 0.0;
    for (int r = 0; r < set.num_reflex; ++r)
        for (int t = 0; t < set.num_thickness; ++t)
            for (int p = 0; p < e.num_pix; ++p)
                if (e.pixel[p].flag == 1)
                    sum += eval_weight(e.sig[r][t][p], set.weight[r][t]) * J_j[r][t][p] * J_k[r][t][p];
    return sum;
}

double calc_beta_elm(const fed& set, const ei& intensity, double*** J_j) {
    const ei& e = intensity;
    double sum = 0.0;
    for (int r = 0; r < set.num_reflex; ++r)
        for (int t = 0; t < set.num_thickness; ++t)
            for (int p = 0; p < e.num_pix; ++p)
                if (e.pixel[p].flag == 1)
                    sum += eval_weight(e.sig[r][t][p], set.weight[r][t]) *
                           (e.obs[r][t][p] - e.cal[r][t][p]) * J_j[r][t][p];
    return sum;
}

// The restraint of parameter j as a Gaussian around its centre.
static void add_restraint(int j, const restraint& rst, normal_equations& equations, double& penalty) {
    const double s = epsilon.scale_rst_chisq, off = rst.ini_val - rst.value;
    equations.beta[j] += s * off / (rst.rst * rst.rst);
    equations.alpha[j][j] += s / (rst.rst * rst.rst);
    penalty += s * off * off / (rst.rst * rst.rst);
}

void eval_alpha_beta_rst(csd& crystal, const fed& set, const ei& intensity, const cycle_intensities& calculated,
                         normal_equations& equations, double& penalty) {
    const int R = set.num_reflex, T = set.num_thickness, P = intensity.num_pix, M = equations.num_fitpar;
    // Two columns at a time: all of them would be the largest store of a cycle.
    double*** J_j = new_tensor<double>(to_size(R), to_size(T), to_size(P));
    double*** J_k = new_tensor<double>(to_size(R), to_size(T), to_size(P));
    penalty = 0.0;
    ov_fprintf(stdout, "** Calculating Jacobian 0-%d:\n", M - 1);
    for (int j = 0; j < M; ++j) {
        progress_indicator(j, M);
        restraint rst = {}, unused = {};
        init_jacobian_j(R, T, P, J_j);
        calc_jacobian_rst_j(j, crystal, set, intensity, calculated, J_j, rst);
        equations.beta[j] += calc_beta_elm(set, intensity, J_j);
        for (int k = 0; k <= j; ++k) {
            init_jacobian_j(R, T, P, J_k);
            calc_jacobian_rst_j(k, crystal, set, intensity, calculated, J_k, unused);
            equations.alpha[j][k] += calc_alpha_elm(set, intensity, J_j, J_k);
        }
        if (rst.rst_flag == 1)
            add_restraint(j, rst, equations, penalty);
    }
    ov_fprintf(stdout, "100%%.\n");
    free_tensor(J_j);
    free_tensor(J_k);
}

} // namespace orvel
