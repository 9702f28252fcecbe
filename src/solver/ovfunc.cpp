// SPDX-License-Identifier: MIT
#include "solver/ovfunc.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/utils.h"
#include "numeric/fast/fast.h"
#include "numeric/lb_eigmat.h"
#include "numeric/lb_invmat.h"
#include "numeric/vecmat.h"
#include "solver/perturb.h"

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
static planes beam_factors(int num_g, const int* pos, int n, int n_branch, const int* branch, const double* beta_sel,
                           const complex* const* eigen_vec, const complex* bc, scratch& room) {
    const planes factor = take_planes(room, num_g, n_branch);
    for (int r = 0; r < num_g; ++r) {
        const bool there = pos[r] >= 0 && pos[r] < n;
        const double inverse_root = there ? 1 / std::sqrt(beta_sel[pos[r]]) : 0.0;
        for (int b = 0; b < n_branch; ++b) {
            const int j = branch[b];
            const complex f = there ? c_mul(bc[j], eigen_vec[pos[r]][j]) : complex{0.0, 0.0};
            set_element(factor, r, b, {f.re * inverse_root, f.im * inverse_root});
        }
    }
    return factor;
}

// wave[b][t] = the propagation of the branch in place b to thickness t.
static planes propagations(int n_branch, const int* branch, int num_thickness, const double* thickness, double K_n,
                           const complex* eigen_val, scratch& room) {
    const planes wave = take_planes(room, n_branch, num_thickness);
    for (int b = 0; b < n_branch; ++b)
        for (int t = 0; t < num_thickness; ++t)
            set_element(wave, b, t, propagation(thickness[t], K_n, eigen_val[branch[b]]));
    return wave;
}

void psi_of_beams(int num_g, const int* pos, int num_thickness, const double* thickness, int n,
                  int n_branch, const int* branch, double K_n, const double* beta_sel, const complex* eigen_val,
                  const complex* const* eigen_vec, const complex* bc, complex* psi, scratch& room) {
    const scratch_mark begin = mark_scratch(room);
    const planes amplitude = beam_factors(num_g, pos, n, n_branch, branch, beta_sel, eigen_vec, bc, room);
    const int together = 64; // thicknesses, so that work space does not grow with their number
    for (int first = 0, count; first < num_thickness; first += count) {
        count = std::min(together, num_thickness - first);
        const scratch_mark before = mark_scratch(room);
        const planes wave = propagations(n_branch, branch, count, thickness + first, K_n, eigen_val, room);
        const planes sum = take_zero_planes(room, num_g, count);
        add_product(num_g, count, n_branch, sum, as_factors(amplitude), wave);
        for (int r = 0; r < num_g; ++r) {
            complex* row = psi + to_size(r) * to_size(num_thickness) + first;
            if (pos[r] >= 0 && pos[r] < n)
                join(count, row_at(sum, r, 0), row);
            else
                std::fill_n(row, count, complex{0.0, 0.0});
        }
        release_scratch(room, before);
    }
    release_scratch(room, begin);
}

complex psi_limited_ug(int pos, double t, int n, int n_branch, const int* branch, double K_n, const double* beta_sel,
                       const complex* eigen_val, const complex* const* eigen_vec, const complex* bc, scratch& room) {
    complex psi;
    psi_of_beams(1, &pos, 1, &t, n, n_branch, branch, K_n, beta_sel, eigen_val, eigen_vec, bc, &psi, room);
    return psi;
}

double psi_to_intensity_limited_ug(int pos, double t, int n, int n_branch, const int* branch, double K_n,
                                   const double* beta_sel, const complex* eigen_val,
                                   const complex* const* eigen_vec, const complex* bc, scratch& room) {
    return c_norm(psi_limited_ug(pos, t, n, n_branch, branch, K_n, beta_sel, eigen_val, eigen_vec, bc, room));
}

// ---- the working store ----------------------------------------------------------------------

void alloc_work_cal_int(int N, int num_g, int num_perturb, work_cal_int& work) {
    const std::size_t n = to_size(N);
    work = {};
    work.Sg = new_vector<double>(n);
    work.beta_ge = new_vector<double>(n);
    work.beta_sel = new_vector<double>(n);
    work.a_matrix = new_matrix<complex>(n, n);
    work.bethe_matrix = new_matrix<complex>(n, n);
    work.eigen_vec = new_matrix<complex>(n, n);
    work.eigen_val = new_vector<complex>(n);
    work.bc = new_vector<complex>(n);
    work.branch = new_vector<int>(n);
    work.out_pos = new_vector<int>(to_size(num_g));
    work.sel = new_vector<int>(n);
    work.num_perturb = num_perturb;
    if (num_perturb < 1)
        return;
    work.eigen_vec_inv = new_matrix<complex>(n, n);
    work.p_a_matrix = new_matrix<complex>(n, n);
    work.p_bethe_matrix = new_matrix<complex>(n, n);
    work.p_eigen_vec = new_matrix<complex>(n, n);
    work.p_eigen_val = new_vector<complex>(n);
    work.p_bc = new_vector<complex>(n);
}

void free_work_cal_int(work_cal_int& work) {
    std::free(work.Sg);
    std::free(work.beta_ge);
    std::free(work.beta_sel);
    free_matrix(work.a_matrix);
    free_matrix(work.bethe_matrix);
    free_matrix(work.eigen_vec);
    std::free(work.eigen_val);
    std::free(work.bc);
    std::free(work.branch);
    std::free(work.out_pos);
    std::free(work.sel);
    free_scratch(work.room);
    if (work.num_perturb < 1)
        return;
    free_matrix(work.eigen_vec_inv);
    free_matrix(work.p_a_matrix);
    free_matrix(work.p_bethe_matrix);
    free_matrix(work.p_eigen_vec);
    std::free(work.p_eigen_val);
    std::free(work.p_bc);
}

// ---- one tilt -------------------------------------------------------------------------------

tilt_state select_tilt(const tilt_problem& problem, r_hkl K_t, work_cal_int& work) {
    const tilt_problem& p = problem;
    tilt_state state = {};
    dbg_mon("$$ calc_sg_beta_g\n");
    const double K_z = calc_K_z(p.abs_K, K_t, p.lat);
    state.K_n = calc_K_n(K_t, K_z, p.normal_len, p.normal_uvw, p.cos_zn);
    calc_sg_beta_g(K_t, K_z, state.K_n, p.abs_K, p.zone_len, p.zone_uvw, p.normal_len, p.normal_uvw,
                   p.num_exact_beam, p.num_bethe_beam, p.reflex_sel, p.lat, work.Sg, work.beta_ge);
    dbg_mon("$$ vg_select\n");
    vg_select_info_ug(p.num_exact_beam, p.num_bethe_beam, state.nesel, state.nbsel, work.sel,
                      p.vg, p.reflex_sel, work.Sg, *p.bs, p.zone_uvw, p.kv);
    vg_select_trans_ug(p.num_exact_beam, p.num_bethe_beam, state.nesel, state.nbsel, work.sel,
                       work.beta_ge, work.beta_sel, p.num_g, p.out_beams, work.out_pos);
    return state;
}

void solve_tilt(const tilt_problem& problem, const char* bethe_word, const complex* phase,
                tilt_state& state, work_cal_int& work) {
    dbg_mon("$$ construct_matrix\n");
    construct_ug_mat_slct(state.nesel, state.nbsel, work.sel, problem.kv, problem.vg, work.Sg, work.beta_ge,
                          work.a_matrix, work.room);
    dbg_print_cmat(dbg.a_mat_dump_flag, "a_matrix:", state.nesel + state.nbsel, work.a_matrix);

    dbg_mon(bethe_word);
    bethe_reduction(problem.bs->flag_bs, state.nesel, state.nbsel, work.a_matrix, work.bethe_matrix, work.room);
    dbg_print_cmat(dbg.b_mat_dump_flag, "bethe_matrix:", state.nesel, work.bethe_matrix);

    eigmat(state.nesel, work.bethe_matrix, work.eigen_val, work.eigen_vec, work.room);

    dbg_mon("$$ upper_b_cond\n");
    if (phase == nullptr)
        upper_b_cond(state.nesel, work.beta_sel, work.eigen_vec, work.bc, work.room);
    else
        upper_b_cond_coherent(state.nesel, work.beta_sel, *phase, work.eigen_vec, work.bc, work.room);
    dbg_print_cvec(dbg.b_cond_dump_flag, "upper_b_cond:", state.nesel, work.bc);
    limited_branch(epsilon.bc_accuracy, state.nesel, work.bc, state.n_branch, work.branch, work.room);
}

void tilt_amplitudes(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                     double t, complex* psi) {
    tilt_amplitudes(problem, state, work, 1, &t, psi);
}

void tilt_amplitudes(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                     int num_thickness, const double* thickness, complex* psi) {
    psi_of_beams(problem.num_g, work.out_pos, num_thickness, thickness, state.nesel, state.n_branch, work.branch,
                 state.K_n, work.beta_sel, work.eigen_val, work.eigen_vec, work.bc, psi, work.room);
}

// One tilt up to its branches; false if the selection dump took its place.
static bool run_tilt(const tilt_problem& problem, r_hkl K_t, const char* bethe_word, const complex* phase,
                     tilt_state& state, work_cal_int& work) {
    state = select_tilt(problem, K_t, work);
    if (dbg_sel_vg_active()) {
        dbg_sel_vg_row(K_t, problem.num_exact_beam + problem.num_bethe_beam, state.nesel, state.nbsel, work.sel);
        return false;
    }
    solve_tilt(problem, bethe_word, phase, state, work);
    dbg_mon("$$ calc_intensity\n");
    return true;
}

// Amplitudes of all output beams for all thicknesses, [r][t], in scratch space.
static const complex* all_amplitudes(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                                     int num_thickness, const double* thickness) {
    complex* psi = take<complex>(work.room, size_product(to_size(problem.num_g), to_size(num_thickness)));
    tilt_amplitudes(problem, state, work, num_thickness, thickness, psi);
    return psi;
}

void calc_intensity_with_perturb_ug(r_hkl K_t, double abs_K, const beam_search& bs,
                                    int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel,
                                    complex** vg, int num_perturb, complex*** pvg,
                                    int num_g, const int* out_beams, int num_thickness, const double* thickness,
                                    double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                                    double zone_len, double normal_len, double cos_zn,
                                    double** intensity, double*** p_intensity, work_cal_int& work) {
    const tilt_problem problem = {&bs, num_exact_beam, num_bethe_beam, reflex_sel, vg, num_g, out_beams,
                                  kv, zone_uvw, normal_uvw, lat, abs_K, zone_len, normal_len, cos_zn};
    tilt_state state;
    const scratch_mark begin = mark_scratch(work.room);
    const bool solved = run_tilt(problem, K_t, "$$ Bethe Approx.\n", nullptr, state, work);
    const complex* psi = solved ? all_amplitudes(problem, state, work, num_thickness, thickness) : nullptr;
    for (int r = 0; r < num_g; ++r)
        for (int t = 0; t < num_thickness; ++t)
            intensity[r][t] = solved ? c_norm(*psi++) : 0.0;
    release_scratch(work.room, begin);
    if (num_perturb > 0 && solved)
        calc_perturb_ug(num_exact_beam, num_bethe_beam, bs.flag_bs, num_perturb, pvg, num_g, num_thickness, thickness,
                        kv, state.n_branch, work.branch, state.nesel, state.nbsel, work.sel, work.out_pos,
                        work.Sg, work.beta_ge, work.beta_sel, state.K_n, work.bethe_matrix, work.eigen_vec,
                        work.eigen_val, p_intensity, work);
}

void calc_intensity_ug_coherent(r_hkl K_t, double abs_K, complex phase, const beam_search& bs,
                                int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel,
                                complex** vg, int num_perturb, complex*** /*pvg*/,
                                int num_g, const int* out_beams, int num_thickness, const double* thickness,
                                double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                                double zone_len, double normal_len, double cos_zn,
                                complex** amplitude, double*** /*p_intensity*/, work_cal_int& work) {
    if (num_perturb > 0)
        ov_error_exit(stdout, "perturbation is not available in coherent mode.");
    const tilt_problem problem = {&bs, num_exact_beam, num_bethe_beam, reflex_sel, vg, num_g, out_beams,
                                  kv, zone_uvw, normal_uvw, lat, abs_K, zone_len, normal_len, cos_zn};
    tilt_state state;
    const scratch_mark begin = mark_scratch(work.room);
    const bool solved = run_tilt(problem, K_t, "$$ GBA\n", &phase, state, work);
    const complex* psi = solved ? all_amplitudes(problem, state, work, num_thickness, thickness) : nullptr;
    for (int r = 0; r < num_g; ++r)
        for (int t = 0; t < num_thickness; ++t)
            amplitude[r][t] = solved ? *psi++ : complex{0.0, 0.0};
    release_scratch(work.room, begin);
}

} // namespace orvel
