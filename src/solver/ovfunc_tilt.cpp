// SPDX-License-Identifier: MIT
#include "solver/ovfunc_tilt.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/data_out.h"
#include "numeric/lb_eigmat.h"
#include "numeric/vecmat.h"
#include "solver/perturb.h"

namespace orvel {

tilt_problem new_tilt_problem(const beam_setup& setup, csd& crystal, complex** vg, lattice lat) {
    const double abs_K = calc_abs_K(crystal, setup.kv, lat);
    return {setup, pre_calc_intensity(setup, abs_K, lat), vg, 0, nullptr, 0, nullptr, 0, nullptr};
}

// ---- the working store ----------------------------------------------------------------------

void alloc_work_cal_int(int N, int num_g, int num_perturb, work_cal_int& work) {
    const std::size_t n = to_size(N);
    work = {};
    work.num_perturb = num_perturb;
    work.out_pos = new_vector<int>(to_size(num_g));
    for (int** numbers : {&work.sel, &work.branch})
        *numbers = new_vector<int>(n);
    for (double** factors : {&work.Sg, &work.beta_ge, &work.beta_sel})
        *factors = new_vector<double>(n);
    for (complex** vector : {&work.eigen_val, &work.bc})
        *vector = new_vector<complex>(n);
    for (complex*** matrix : {&work.a_matrix, &work.bethe_matrix, &work.eigen_vec})
        *matrix = new_matrix<complex>(n, n);
    if (num_perturb < 1)
        return;
    for (complex** vector : {&work.p_eigen_val, &work.p_bc})
        *vector = new_vector<complex>(n);
    for (complex*** matrix : {&work.eigen_vec_inv, &work.p_a_matrix, &work.p_bethe_matrix, &work.p_eigen_vec})
        *matrix = new_matrix<complex>(n, n);
}

void free_work_cal_int(work_cal_int& work) {
    for (int* numbers : {work.sel, work.branch, work.out_pos})
        std::free(numbers);
    for (double* factors : {work.Sg, work.beta_ge, work.beta_sel})
        std::free(factors);
    for (complex* vector : {work.eigen_val, work.bc, work.p_eigen_val, work.p_bc})
        std::free(vector);
    for (complex** matrix : {work.a_matrix, work.bethe_matrix, work.eigen_vec, work.eigen_vec_inv, work.p_a_matrix,
                             work.p_bethe_matrix, work.p_eigen_vec})
        free_matrix(matrix);
    free_scratch(work.room);
}

// ---- one tilt -------------------------------------------------------------------------------

void select_tilt(const tilt_problem& problem, r_hkl K_t, work_cal_int& work) {
    const tilt_problem& p = problem;
    dbg_mon("$$ calc_sg_beta_g\n");
    const wave_vector K = calc_wave_vector(p, p.geometry, K_t);
    work.K_n = K.K_n;
    calc_sg_beta_g(p, p.geometry, K, num_beams(p), p.reflex_sel, work.Sg, work.beta_ge);
    dbg_mon("$$ vg_select\n");
    vg_select_info_ug(p, p.vg, work.Sg, work);
    vg_select_trans_ug(work, work.beta_ge, work.beta_sel, p.num_g, p.out_beams, work.out_pos);
}

void solve_tilt(const tilt_problem& problem, const complex* phase, work_cal_int& work) {
    const int n = work.nesel;
    dbg_mon("$$ construct_matrix\n");
    construct_ug_mat_slct(work, problem.kv, problem.vg, work.Sg, work.beta_ge, work.a_matrix, work.room);
    dbg_print_cmat(dbg.a_mat_dump_flag, "a_matrix:", n + work.nbsel, work.a_matrix);

    dbg_mon(phase == nullptr ? "$$ Bethe Approx.\n" : "$$ GBA\n");
    bethe_reduction(problem.beam_search.flag_bs, n, work.nbsel, work.a_matrix, work.bethe_matrix, work.room);
    dbg_print_cmat(dbg.b_mat_dump_flag, "bethe_matrix:", n, work.bethe_matrix);

    eigmat(n, work.bethe_matrix, work.eigen_val, work.eigen_vec, work.room);

    dbg_mon("$$ upper_b_cond\n");
    if (phase == nullptr)
        upper_b_cond(n, work.beta_sel, work.eigen_vec, work.bc, work.room);
    else
        upper_b_cond_coherent(n, work.beta_sel, *phase, work.eigen_vec, work.bc, work.room);
    dbg_print_cvec(dbg.b_cond_dump_flag, "upper_b_cond:", n, work.bc);
    limited_branch(epsilon.bc_accuracy, n, work.bc, work.n_branch, work.branch, work.room);
}

void tilt_amplitudes(const tilt_problem& problem, work_cal_int& work, double t, complex* psi) {
    psi_of_beams(problem.num_g, work.out_pos, 1, &t, work, psi, work.room);
}

void tilt_amplitudes(const tilt_problem& problem, work_cal_int& work, complex* psi) {
    psi_of_beams(problem.num_g, work.out_pos, problem.num_thickness, problem.thickness, work, psi, work.room);
}

// One tilt: amplitudes psi[r][t] of all output beams for all thicknesses, in scratch space. While the
// selection dump is active, its row is written and they are 0.
static const complex* run_tilt(const tilt_problem& problem, r_hkl K_t, const complex* phase, work_cal_int& work) {
    const std::size_t count = size_product(to_size(problem.num_g), to_size(problem.num_thickness));
    complex* psi = take<complex>(work.room, count);
    select_tilt(problem, K_t, work);
    if (dbg_sel_vg_active()) {
        dbg_sel_vg_row(K_t, num_beams(problem), work.nesel, work.nbsel, work.sel);
        std::fill_n(psi, count, complex{0.0, 0.0});
        return psi;
    }
    solve_tilt(problem, phase, work);
    dbg_mon("$$ calc_intensity\n");
    tilt_amplitudes(problem, work, psi);
    return psi;
}

void calc_intensity_with_perturb_ug(const tilt_problem& problem, r_hkl K_t, double** intensity, double*** p_intensity,
                                    work_cal_int& work) {
    const scratch_mark begin = mark_scratch(work.room);
    const complex* psi = run_tilt(problem, K_t, nullptr, work);
    for (int r = 0; r < problem.num_g; ++r)
        for (int t = 0; t < problem.num_thickness; ++t)
            intensity[r][t] = c_norm(*psi++);
    release_scratch(work.room, begin);
    if (problem.num_perturb > 0 && !dbg_sel_vg_active())
        calc_perturb_ug(problem, p_intensity, work);
}

void calc_intensity_ug_coherent(const tilt_problem& problem, r_hkl K_t, complex phase, complex** amplitude,
                                work_cal_int& work) {
    if (problem.num_perturb > 0)
        ov_error_exit(stdout, "perturbation is not available in coherent mode.");
    const scratch_mark begin = mark_scratch(work.room);
    const complex* psi = run_tilt(problem, K_t, &phase, work);
    for (int r = 0; r < problem.num_g; ++r)
        for (int t = 0; t < problem.num_thickness; ++t)
            amplitude[r][t] = *psi++;
    release_scratch(work.room, begin);
}

} // namespace orvel
