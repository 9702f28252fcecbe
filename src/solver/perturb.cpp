// SPDX-License-Identifier: MIT
#include "solver/perturb.h"

#include <algorithm>
#include <cmath>

#include "control/ov_debug.h"
#include "control/settings.h"
#include "numeric/cmatutil.h"
#include "numeric/data_out.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"

namespace orvel {

static bool near_equal(complex lambda1, complex lambda2, double degeneracy_eps) {
    return std::fabs(lambda1.re - lambda2.re) < degeneracy_eps;
}

void perturbation2(const complex* eigen_val, const complex* const* eigen_vec, const complex* const* eigen_vec_inv,
                   int n, const complex* const* bethe_matrix, const complex* const* p_bethe_matrix,
                   double degeneracy_eps, complex* p_eigen_val, complex** p_eigen_vec, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    dbg_mon("$$ p-diff-mat\n");
    complex** D = take_copy(room, n, n, p_bethe_matrix);
    complex** B = take_matrix(room, n, n);
    c_matsub2(n, D, bethe_matrix);

    dbg_mon("$$ p-b_ij\n");
    c_matmult(n, n, n, B, eigen_vec_inv, D, room);
    c_matmult2(n, B, eigen_vec, room);

    dbg_mon("$$ p-eigen_val\n");
    for (int j = 0; j < n; ++j)
        p_eigen_val[j] = c_add(eigen_val[j], B[j][j]);

    dbg_mon("$$ p-eigen_vec\n");
    complex** U = D;
    complex* gap = take<complex>(room, to_size(n));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            gap[j] = c_sub(eigen_val[j], eigen_val[i]);
        c_div_row(n, B[i], gap, U[i]);
        for (int j = 0; j < n; ++j)
            if (near_equal(eigen_val[i], eigen_val[j], degeneracy_eps))
                U[i][j] = {0.0, 0.0};
        U[i][i] = {1.0, 0.0};
    }
    c_matmult(n, n, n, p_eigen_vec, eigen_vec, U, room);
    release_scratch(room, begin);
}

void eigen_val_perturbation(const complex* eigen_val, const complex* const* eigen_vec,
                            const complex* const* eigen_vec_inv, int n, const complex* const* matrix,
                            const complex* const* p_matrix, complex* p_eigen_val, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    complex** T = take_copy(room, n, n, p_matrix);
    c_matsub2(n, T, matrix);
    c_matmult2(n, T, eigen_vec, room);
    for (int j = 0; j < n; ++j) {
        complex sum = {0.0, 0.0};
        for (int k = 0; k < n; ++k)
            sum = c_add(sum, c_mul(eigen_vec_inv[j][k], T[k][j]));
        p_eigen_val[j] = c_add(eigen_val[j], sum);
    }
    release_scratch(room, begin);
}

// ---- with degenerate sets -------------------------------------------------------------------

// Solves the block of B over the m members of a set, with their eigenvalues on the diagonal.
static void solve_set(int m, const int* member, const complex* eigen_val, const complex* const* B,
                      complex* p_eigen_val, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    complex** block = take_matrix(room, m, m);
    complex** block_vec = take_matrix(room, m, m);
    complex* block_val = take<complex>(room, to_size(m));
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < m; ++j)
            block[i][j] = B[member[i]][member[j]];
        block[i][i] = c_add(block[i][i], eigen_val[member[i]]);
    }
    eigmat(m, block, block_val, block_vec, room);
    for (int i = 0; i < m; ++i)
        p_eigen_val[member[i]] = block_val[i];
    release_scratch(room, begin);
}

// Marks the members of all sets of two or more and gives them their eigenvalue of the block.
static void solve_sets(int n, const complex* eigen_val, const complex* const* B, double degeneracy_eps,
                       complex* p_eigen_val, int* marked, scratch& room) {
    int* member = take<int>(room, to_size(n));
    std::fill(marked, marked + n, 0);
    for (int i = 0; i < n; ++i) {
        if (marked[i] != 0)
            continue;
        int m = 0;
        member[m++] = i;
        for (int j = i + 1; j < n; ++j)
            if (near_equal(eigen_val[i], eigen_val[j], degeneracy_eps))
                member[m++] = j;
        if (m == 1)
            continue;
        for (int k = 0; k < m; ++k)
            marked[member[k]] = 1;
        solve_set(m, member, eigen_val, B, p_eigen_val, room);
    }
}

// Second-order term of eigenvalue j; within a set the block has taken it.
static complex second_order(int j, int n, const complex* eigen_val, const complex* const* B, double degeneracy_eps,
                            const int* marked) {
    complex sum = {0.0, 0.0};
    for (int k = 0; k < n; ++k) {
        const bool same_set = marked[j] != 0 && marked[k] != 0 &&
                              near_equal(eigen_val[j], eigen_val[k], degeneracy_eps);
        if (k != j && !same_set)
            sum = c_add(sum, c_div({c_norm(B[j][k]), 0.0}, c_sub(eigen_val[j], eigen_val[k])));
    }
    return sum;
}

void perturb(const complex* eigen_val, const complex* const* eigen_vec, int n, const complex* const* D,
             double degeneracy_eps, complex* p_eigen_val, complex** p_eigen_vec, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    complex** inverse = take_copy(room, n, n, eigen_vec);
    complex** B = take_matrix(room, n, n);
    complex** U = take_matrix(room, n, n);
    int* marked = take<int>(room, to_size(n));
    invmat(n, inverse, room);
    c_matmult(n, n, n, U, D, eigen_vec, room);
    c_matmult(n, n, n, B, inverse, U, room);

    for (int j = 0; j < n; ++j)
        p_eigen_val[j] = c_add(eigen_val[j], B[j][j]);
    solve_sets(n, eigen_val, B, degeneracy_eps, p_eigen_val, marked, room);
    for (int j = 0; j < n; ++j)
        p_eigen_val[j] = c_add(p_eigen_val[j], second_order(j, n, eigen_val, B, degeneracy_eps, marked));

    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < n; ++k) {
            if (i == k)
                U[i][k] = {1.0, 0.0};
            else if (marked[k] != 0 && near_equal(eigen_val[i], eigen_val[k], degeneracy_eps))
                U[i][k] = {0.0, 0.0};
            else
                U[i][k] = c_div(B[i][k], c_sub(eigen_val[k], eigen_val[i]));
        }
    }
    c_matmult(n, n, n, p_eigen_vec, eigen_vec, U, room);
    release_scratch(room, begin);
}

// ---- one tilt -------------------------------------------------------------------------------

// The eigensolution of the tilt with the table vg, to first order, in the perturbed stores of work.
static void perturb_tilt(const tilt_problem& problem, const complex* const* vg, work_cal_int& work) {
    const int n = work.nesel;
    dbg_mon("$$ p-construct_matrix\n");
    construct_ug_mat_slct(work, problem.kv, vg, work.Sg, work.beta_ge, work.p_a_matrix, work.room);
    dbg_print_cmat(dbg.a_mat_dump_flag, "a_matrix: (perturb)", n + work.nbsel, work.p_a_matrix);
    dbg_mon("$$ p-g-bethe\n");
    bethe_reduction(problem.beam_search.flag_bs, n, work.nbsel, work.p_a_matrix, work.p_bethe_matrix, work.room);
    dbg_print_cmat(dbg.b_mat_dump_flag, "bethe_matrix: (perturb)", n, work.p_bethe_matrix);
    dbg_mon("$$ perturbation2\n");
    perturbation2(work.eigen_val, work.eigen_vec, work.eigen_vec_inv, n, work.bethe_matrix, work.p_bethe_matrix,
                  epsilon.degeneracy_eps, work.p_eigen_val, work.p_eigen_vec, work.room);
    dbg_print_cvec(dbg.eigval_dump_flag, "perturbed eigen values:", n, work.p_eigen_val);
    dbg_print_cmat(dbg.eigvec_dump_flag, "perturbed eigen vectors", n, work.p_eigen_vec);
    dbg_mon("$$ p-upper_b_cond\n");
    upper_b_cond(n, work.beta_sel, work.p_eigen_vec, work.p_bc, work.room);
    dbg_print_cvec(dbg.b_cond_dump_flag, "p-upper_b_cond:", n, work.p_bc);
}

void calc_perturb_ug(const tilt_problem& problem, double*** p_intensity, work_cal_int& work) {
    const int num_g = problem.num_g, num_thickness = problem.num_thickness;
    dbg_mon("$$ eigen_vec_inv\n");
    c_matcopy2(work.nesel, work.eigen_vec, work.eigen_vec_inv);
    invmat(work.nesel, work.eigen_vec_inv, work.room);
    bloch_waves waves = work; // selection, K_n and branches stay those of the tilt
    waves.eigen_val = work.p_eigen_val;
    waves.eigen_vec = work.p_eigen_vec;
    waves.bc = work.p_bc;
    const scratch_mark begin = mark_scratch(work.room);
    complex* psi = take<complex>(work.room, size_product(to_size(num_g), to_size(num_thickness)));
    for (int k = 0; k < problem.num_perturb; ++k) {
        dbg_mon("$$ transfer perturbed vg\n");
        perturb_tilt(problem, problem.pvg[k], work);
        dbg_mon("$$ p-intensities\n");
        psi_of_beams(num_g, work.out_pos, num_thickness, problem.thickness, waves, psi, work.room);
        for (int r = 0; r < num_g; ++r)
            for (int t = 0; t < num_thickness; ++t)
                p_intensity[k][r][t] = c_norm(psi[to_size(r) * to_size(num_thickness) + to_size(t)]);
    }
    release_scratch(work.room, begin);
    dbg_mon("$$perturbation end\n");
}

} // namespace orvel
