// SPDX-License-Identifier: MIT
#include "solver/ovfunc_amplitude.h"

#include <algorithm>
#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "numeric/fast/fast.h"
#include "numeric/lb_invmat.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- boundary condition ---------------------------------------------------------------------

static void print_eigenvector(int n, int j, const complex* const* eigen_vec) {
    double norm2 = 0.0;
    for (int i = 0; i < n; ++i) {
        ov_fprintf(stdout, "$$ vec[%d][%d]=%g %g\n", i, j, eigen_vec[i][j].re, eigen_vec[i][j].im);
        norm2 += c_norm(eigen_vec[i][j]);
    }
    ov_fprintf(stdout, "$$ norm^2 = %g\n", norm2);
}

// Reports amplitudes above 1, which hint at an ill-conditioned set of eigenvectors. Changes nothing.
static int chk_excitation(int n, const complex* const* eigen_vec, const complex* bc) {
    int found = 0;
    if (dbg.bc_chk_flag != 1 && dbg.bc_chk_flag != 2)
        return found;
    for (int j = 0; j < n; ++j) {
        if (!(c_abs(bc[j]) > 1))
            continue;
        found = 1;
        ov_fprintf(stdout, "$$ bc[%d] = %g, %g (c_abs = %g)\n", j, bc[j].re, bc[j].im, c_abs(bc[j]));
        if (dbg.bc_chk_flag == 2)
            print_eigenvector(n, j, eigen_vec);
    }
    return found;
}

// Amplitudes without the check.
static void solve_b_cond(int n, const double* beta_sel, const complex* const* eigen_vec, complex* bc, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    complex** M = take_matrix(room, n, n);
    for (int i = 0; i < n; ++i) {
        const double inverse_root = 1 / std::sqrt(beta_sel[i]);
        for (int j = 0; j < n; ++j)
            M[i][j] = {eigen_vec[i][j].re * inverse_root, eigen_vec[i][j].im * inverse_root};
    }
    bc_invmat(n, M, bc, room);
    release_scratch(room, begin);
}

int upper_b_cond(int n, const double* beta_sel, const complex* const* eigen_vec, complex* bc, scratch& room) {
    solve_b_cond(n, beta_sel, eigen_vec, bc, room);
    return chk_excitation(n, eigen_vec, bc);
}

int upper_b_cond_coherent(int n, const double* beta_sel, complex phase, const complex* const* eigen_vec, complex* bc,
                          scratch& room) {
    solve_b_cond(n, beta_sel, eigen_vec, bc, room);
    for (int j = 0; j < n; ++j)
        bc[j] = c_mul(phase, bc[j]);
    return chk_excitation(n, eigen_vec, bc);
}

void limited_branch(double bc_accuracy, int n, const complex* bc, int& n_branch, int* branch, scratch& room) {
    for (int j = 0; j < n; ++j)
        branch[j] = j;
    n_branch = n;
    if (bc_accuracy == 1.0)
        return;
    const scratch_mark begin = mark_scratch(room);
    double* p = take<double>(room, to_size(n));
    double total = 0.0;
    for (int j = 0; j < n; ++j) {
        p[j] = c_norm(bc[j]);
        total += p[j];
    }
    d_heapsort(n, p, branch);
    double sum = 0.0;
    for (int j = 0; j < n; ++j) {
        sum += p[j];
        if (sum / total >= bc_accuracy) {
            n_branch = j + 1;
            break;
        }
    }
    release_scratch(room, begin);
}

// ---- amplitudes -----------------------------------------------------------------------------

// exp(-i pi lambda t / K_n): the phase and the damping of a branch at thickness t.
static complex propagation(double t, double K_n, complex lambda) {
    const double c = -pi * t / K_n;
    return c_exp({-c * lambda.im, c * lambda.re});
}

// factor[r][b] = alpha_j C_j / sqrt(beta) of the beam of row r and the branch j in place b.
static planes beam_factors(int num_g, const int* pos, const bloch_waves& waves, scratch& room) {
    const planes factor = take_planes(room, num_g, waves.n_branch);
    for (int r = 0; r < num_g; ++r) {
        const bool there = pos[r] >= 0 && pos[r] < waves.nesel;
        const double inverse_root = there ? 1 / std::sqrt(waves.beta_sel[pos[r]]) : 0.0;
        for (int b = 0; b < waves.n_branch; ++b) {
            const int j = waves.branch[b];
            const complex f = there ? c_mul(waves.bc[j], waves.eigen_vec[pos[r]][j]) : complex{0.0, 0.0};
            set_element(factor, r, b, {f.re * inverse_root, f.im * inverse_root});
        }
    }
    return factor;
}

// wave[b][t] = the propagation of the branch in place b to thickness t.
static planes propagations(int num_thickness, const double* thickness, const bloch_waves& waves, scratch& room) {
    const planes wave = take_planes(room, waves.n_branch, num_thickness);
    for (int b = 0; b < waves.n_branch; ++b)
        for (int t = 0; t < num_thickness; ++t)
            set_element(wave, b, t, propagation(thickness[t], waves.K_n, waves.eigen_val[waves.branch[b]]));
    return wave;
}

void psi_of_beams(int num_g, const int* pos, int num_thickness, const double* thickness, const bloch_waves& waves,
                  complex* psi, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    const planes amplitude = beam_factors(num_g, pos, waves, room);
    const int together = 64; // thicknesses, so that work space does not grow with their number
    for (int first = 0, count; first < num_thickness; first += count) {
        count = std::min(together, num_thickness - first);
        const scratch_mark before = mark_scratch(room);
        const planes wave = propagations(count, thickness + first, waves, room);
        const planes sum = take_zero_planes(room, num_g, count);
        add_product(num_g, count, waves.n_branch, sum, as_factors(amplitude), wave);
        for (int r = 0; r < num_g; ++r) {
            complex* row = psi + to_size(r) * to_size(num_thickness) + first;
            if (pos[r] >= 0 && pos[r] < waves.nesel)
                join(count, row_at(sum, r, 0), row);
            else
                std::fill_n(row, count, complex{0.0, 0.0});
        }
        release_scratch(room, before);
    }
    release_scratch(room, begin);
}

complex psi_limited_ug(int pos, double t, const bloch_waves& waves) {
    complex psi = {0.0, 0.0};
    if (pos < 0 || pos >= waves.nesel)
        return psi;
    const double inverse_root = 1 / std::sqrt(waves.beta_sel[pos]);
    for (int b = 0; b < waves.n_branch; ++b) {
        const int j = waves.branch[b];
        const complex C = {waves.eigen_vec[pos][j].re * inverse_root, waves.eigen_vec[pos][j].im * inverse_root};
        psi = c_add(psi, c_mul(c_mul(waves.bc[j], C), propagation(t, waves.K_n, waves.eigen_val[j])));
    }
    return psi;
}

double psi_to_intensity_limited_ug(int pos, double t, const bloch_waves& waves) {
    return c_norm(psi_limited_ug(pos, t, waves));
}

} // namespace orvel
