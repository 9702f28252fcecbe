// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "jobs/ov_sim_input.h"
#include "jobs/ov_sim_maps.h"
#include "jobs/ov_sim_mesh.h"
#include "numeric/vecmat.h"

namespace orvel {

void ov_bloch_state(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_bloch_data(cond, crystal, file);
    std::fclose(file);

    const lattice lat = lattice_of(crystal);
    complex** vg = new_potential_matrix("Potential calc.\n", cond, crystal, lat, log);
    calc_kxy_tilt(cond, lat);
    cond.num_g = 0;
    calc_bloch_state_ug(tilt_problem_of(cond, crystal, vg, lat), cond, stem, log);
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}

complex calc_projpot(r_uvw r, int n, const hkl* reflex_sel, const complex* const* vg) {
    complex sum = {0.0, 0.0};
    for (int i = 0; i < n; ++i)
        sum = c_add(sum, c_mul(vg[i][0], plane_wave(reflex_sel[i], r)));
    return sum;
}

// Coefficient of beam g in Bloch state j: the scaling of the eigenvectors by the beta factors is undone.
static complex bloch_coefficient(int j, int g, const double* beta_ge, const complex* const* eigen_vec) {
    const double root = std::sqrt(beta_ge[g]);
    return {eigen_vec[g][j].re / root, eigen_vec[g][j].im / root};
}

complex calc_bloch_state_func_ug(int j, r_uvw r, int n, const hkl* reflex_sel, r_hkl K_t,
                                 const double* beta_ge, const complex* const* eigen_vec) {
    complex S = {0.0, 0.0};
    for (int g = 0; g < n; ++g)
        S = c_add(S, c_mul(bloch_coefficient(j, g, beta_ge, eigen_vec), plane_wave(reflex_sel[g], r)));
    return c_mul(S, plane_wave(K_t, r));
}

static void print_eigenvalues(const tilt_problem& problem, const work_cal_int& work, const char* stem, std::FILE* log) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_kn.txt", stem);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(file, "%% kn\n%% branch_i\tRe_eigenvalue\tIm_eigenvalue\teps^2\n");
    for (int j = 0; j < problem.num_exact_beam; ++j)
        ov_fprintf(file, "%d: %g %g %g\n", j + 1, work.eigen_val[j].re, work.eigen_val[j].im, c_norm(work.bc[j]));
    ov_fclose(file);
    ov_fprintf(log, " k_n ==> %s\n", name);
}

static void print_potential_map(const tilt_problem& problem, const sd& cond, const char* stem, std::FILE* log) {
    const int N = num_beams(problem);
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_pp.txt", stem);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(file, "# Projected potential (formed by %d-beams)\n", N);
    ov_fprintf(file, "#nx ny\n#%d %d\n", cond.nx, cond.ny);
    ov_fprintf(file, "#x\ty\t\tpotential.re[V]\tpotential.im[V]\n");
    ov_fprintf(stdout, "Proj. potential\n");
    complex* V_g = new_vector<complex>(to_size(N));
    for (int i = 0; i < N; ++i)
        V_g[i] = problem.vg[i][0];
    print_complex_map(cond, N, problem.reflex_sel, V_g, file);
    std::free(V_g);
    ov_fclose(file);
    ov_fprintf(log, " Projected potential: ==> %s\n", name);
}

// Wave function of Bloch state j, from 0, on the grid of the map.
static void print_bloch_state(int j, const tilt_problem& problem, const sd& cond, const work_cal_int& work,
                              std::FILE* file) {
    complex* C = new_vector<complex>(to_size(problem.num_exact_beam));
    for (int g = 0; g < problem.num_exact_beam; ++g)
        C[g] = bloch_coefficient(j, g, work.beta_ge, work.eigen_vec);
    map_cursor at = new_map_cursor(cond, problem.num_exact_beam, problem.reflex_sel, C);
    while (next_row(at)) {
        while (next_point(at)) {
            const complex B = c_mul(at.value[0], plane_wave(cond.k_tilt[0], map_point(cond, at.x, at.y)));
            ov_fprintf(file, "%g\t%g\t%g\t%g\t%g\t%g\n", at.x, at.y, c_norm(B), c_arg(B), B.re, B.im);
        }
        ov_fprintf(file, "\n");
    }
    free_map_cursor(at);
    std::free(C);
}

// The map of branch j, counted from 1, with its lines of the script.
static void print_branch_map(int j, const tilt_problem& problem, const sd& cond, const work_cal_int& work,
                             const char* stem, std::FILE* script, std::FILE* log) {
    const double excitation = c_norm(work.bc[j - 1]);
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_b%d.txt", stem, j);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(log, " Prob. density (branch %d): ==> %s\n", j, name);
    ov_fprintf(script, "%s\n", name);
    ov_fprintf(script, "%d    # branch\n", j);
    ov_fprintf(script, "%g    # eps^2\n", excitation);
    ov_fprintf(file, "# Bloch state: branch %d)\n", j);
    ov_fprintf(file, "# branch:%d, eigen_val:%g, excitation(eps^2):%g\n", j, work.eigen_val[j - 1].re, excitation);
    ov_fprintf(file, "# nx ny\n# %d %d\n", cond.nx, cond.ny);
    ov_fprintf(file, "#x\ty\tdensity\tangle\tre\tim\n");
    ov_fprintf(stdout, "Branch %d\n", j);
    print_bloch_state(j - 1, problem, cond, work, file);
    ov_fclose(file);
}

static void print_script_head(const char* stem, std::FILE* script) {
    ov_fprintf(script, "DRENU_SCRIPT\nBLOCH_VISUAL_MODE\nHTML_OPEN\n%s_.html\n", stem);
    ov_fprintf(script, "BLOCH_VISUAL\n%s\n", stem);
}

void calc_bloch_state_ug(const tilt_problem& problem, const sd& cond, const char* stem, std::FILE* log) {
    epsilon.vg_select_flag = 0;
    work_cal_int work;
    alloc_work_cal_int(num_beams(problem), problem.num_g, 0, work);
    select_tilt(problem, cond.k_tilt[0], work);
    solve_tilt(problem, nullptr, work);

    char script_name[path_max];
    std::snprintf(script_name, sizeof script_name, "%s_dre.txt", stem);
    std::FILE* script = ov_fopen_chk_wmode(script_name);
    print_script_head(stem, script);
    print_eigenvalues(problem, work, stem, log);
    print_potential_map(problem, cond, stem, log);
    ov_fprintf(script, "%s_pp.txt\n", stem);
    ov_fprintf(script, "%d    # branch_begin\n", cond.branch_begin);
    ov_fprintf(script, "%d    # branch_end\n", cond.branch_end);
    for (int j = cond.branch_begin; j <= cond.branch_end; ++j)
        print_branch_map(j, problem, cond, work, stem, script, log);
    ov_fprintf(script, "HTML_CLOSE\n");
    ov_fclose(script);
    ov_fprintf(stdout, "\n>> drenu %s\n", script_name);
    free_work_cal_int(work);
}

} // namespace orvel
