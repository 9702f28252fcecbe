// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

void ov_dispersion_surface(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_dispsurf_data(cond, crystal, file);
    std::fclose(file);

    const lattice lat = lattice_of(crystal);
    // The wave number comes before the table, whose constraint pass may still move the crystal.
    tilt_problem problem = tilt_problem_of(cond, crystal, nullptr, lat);
    problem.vg = new_potential_matrix("Potential.\n", cond, crystal, lat, log);
    calc_kxy_tilt(cond, lat);
    ov_fprintf(stdout, "$$ num_k_points = %d\n", cond.num_k_points);
    calc_disp_surf_ug(problem, cond.num_k_points, cond.k_tilt, cond.k_pixel,
                      cond.branch_begin, cond.branch_end, cond.num_thickness, cond.thickness, stem);
    free_matrix(problem.vg);
    free_sd(cond);
    free_csd(crystal);
}

// The three tables of a sweep, and what their rows and headings run over.
struct dispsurf_tables {
    std::FILE* surface;
    std::FILE* amplitude;
    std::FILE* intensity;
    char surface_name[path_max];
    char amplitude_name[path_max];
    char intensity_name[path_max];
    int branch_begin, branch_end;
    int num_thickness;
    const double* thickness;
};

static void print_reflections(const tilt_problem& problem, std::FILE* file) {
    for (int i = 0; i < problem.num_g; ++i) {
        const hkl g = problem.reflex_sel[problem.out_beams[i]];
        ov_fprintf(file, "# g %d: %d %d %d\n", i, g.h, g.k, g.l);
    }
}

static void print_headings(const tilt_problem& problem, const dispsurf_tables& tables) {
    ov_fprintf(tables.surface, "# Dispersion surface\n");
    ov_fprintf(tables.surface, "# kn, excitation(=eps^2)\n");
    ov_fprintf(tables.surface, "kxy(H)\tkxy(G)\tKz");
    for (int j = tables.branch_begin; j <= tables.branch_end; ++j)
        ov_fprintf(tables.surface, "\tRe(kz%d)\tIm(kz%d)\tRe(gamma%d)\tIm(gamma%d)\tSq(eps%d)", j, j, j, j, j);
    ov_fprintf(tables.surface, "\n");

    ov_fprintf(tables.amplitude, "# Amplitudes of reflections Cg (multiplied by excitation)\n");
    ov_fprintf(tables.amplitude, "# (Amplitude and Phase (rad),  g:reflection, j:branch)\n");
    print_reflections(problem, tables.amplitude);
    ov_fprintf(tables.amplitude, "kxy(H)\tkxy(G)");
    for (int i = 0; i < problem.num_g; ++i)
        for (int j = tables.branch_begin; j <= tables.branch_end; ++j)
            ov_fprintf(tables.amplitude, "\tA(eC)g%dj%d\tP(eC)g%dj%d", i, j, i, j);
    ov_fprintf(tables.amplitude, "\n");

    ov_fprintf(tables.intensity, "# Diffracted intensities\n");
    print_reflections(problem, tables.intensity);
    for (int q = 0; q < tables.num_thickness; ++q)
        ov_fprintf(tables.intensity, "# thickness %d: %g[A]\n", q, tables.thickness[q]);
    ov_fprintf(tables.intensity, "kxy(H)\tkxy(G)");
    for (int i = 0; i < problem.num_g; ++i)
        for (int q = 0; q < tables.num_thickness; ++q)
            ov_fprintf(tables.intensity, "\tg%dt%d", i, q);
    ov_fprintf(tables.intensity, "\n");
}

// Wave-vector components K_n + lambda / (2 K_n) of the branches, as moduli since K_n is negative.
static void print_surface_row(const tilt_state& state, const work_cal_int& work, const pixel& place,
                              const dispsurf_tables& tables) {
    ov_fprintf(tables.surface, "%g\t%g\t%.12lg", place.h, place.g, std::fabs(state.K_n));
    for (int j = tables.branch_begin - 1; j < tables.branch_end; ++j) {
        const complex lambda = work.eigen_val[j];
        ov_fprintf(tables.surface, "\t%.12lg\t%lg\t%lg\t%lg\t%lg",
                   std::fabs(state.K_n + lambda.re / (2 * state.K_n)), std::fabs(lambda.im / (2 * state.K_n)),
                   lambda.re, lambda.im, c_norm(work.bc[j]));
    }
    ov_fprintf(tables.surface, "\n");
}

static void print_intensity_row(const tilt_problem& problem, const tilt_state& state, work_cal_int& work,
                                const pixel& place, const dispsurf_tables& tables) {
    const scratch_mark begin = mark_scratch(work.room);
    complex** psi = take_matrix(work.room, tables.num_thickness, problem.num_g);
    for (int q = 0; q < tables.num_thickness; ++q)
        tilt_amplitudes(problem, state, work, tables.thickness[q], psi[q]);
    ov_fprintf(tables.intensity, "%g\t%g", place.h, place.g);
    for (int i = 0; i < problem.num_g; ++i)
        for (int q = 0; q < tables.num_thickness; ++q)
            ov_fprintf(tables.intensity, "\t%g", c_norm(psi[q][i]) * epsilon.intensity_scaling);
    ov_fprintf(tables.intensity, "\n");
    release_scratch(work.room, begin);
}

// Amplitude of each output beam in each branch, excitation included.
static void print_amplitude_row(const tilt_problem& problem, const work_cal_int& work, const pixel& place,
                                const dispsurf_tables& tables) {
    ov_fprintf(tables.amplitude, "%g\t%g", place.h, place.g);
    for (int i = 0; i < problem.num_g; ++i) {
        const int g = problem.out_beams[i];
        const double root = std::sqrt(work.beta_ge[g]);
        for (int j = tables.branch_begin - 1; j < tables.branch_end; ++j) {
            const complex eC = c_mul(work.bc[j], work.eigen_vec[g][j]);
            const complex scaled = {eC.re / root, eC.im / root};
            ov_fprintf(tables.amplitude, "\t%lg\t%lg", c_abs(scaled), c_arg(scaled));
        }
    }
    ov_fprintf(tables.amplitude, "\n");
}

static dispsurf_tables open_tables(const char* stem) {
    dispsurf_tables tables = {};
    std::snprintf(tables.surface_name, path_max, "%s_ds.txt", stem);
    std::snprintf(tables.amplitude_name, path_max, "%s_amp.txt", stem);
    std::snprintf(tables.intensity_name, path_max, "%s_int.txt", stem);
    tables.surface = ov_fopen_chk_wmode(tables.surface_name);
    tables.amplitude = ov_fopen_chk_wmode(tables.amplitude_name);
    tables.intensity = ov_fopen_chk_wmode(tables.intensity_name);
    return tables;
}

static void write_script(const tilt_problem& problem, const dispsurf_tables& tables, const char* stem) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_dre.txt", stem);
    std::FILE* script = ov_fopen_chk_wmode(name);
    ov_fprintf(script, "DRENU_SCRIPT\n");
    ov_fprintf(script, "DISPSURF_VISUAL_MODE\n");
    ov_fprintf(script, "HTML_OPEN\n");
    ov_fprintf(script, "%s_.html\n", stem);
    ov_fprintf(script, "DISPSURF_VISUAL\n");
    ov_fprintf(script, "%d  #branch_begin\n", tables.branch_begin);
    ov_fprintf(script, "%d  #branch_end\n", tables.branch_end);
    ov_fprintf(script, "%d  #num_rf_amp\n", problem.num_g);
    ov_fprintf(script, "%d  #num_thick\n", tables.num_thickness);
    ov_fprintf(script, "%s\n", stem);
    ov_fprintf(script, "%s\n", tables.surface_name);
    ov_fprintf(script, "%s\n", tables.amplitude_name);
    ov_fprintf(script, "%s\n", tables.intensity_name);
    ov_fprintf(script, "HTML_CLOSE\n");
    ov_fclose(script);
    ov_fprintf(stdout, "\n>> drenu %s\n", name);
}

void calc_disp_surf_ug(const tilt_problem& problem, int num_k_points, const r_hkl* k_tilt, const pixel* k_pixel,
                       int branch_begin, int branch_end, int num_thickness, const double* thickness, const char* stem) {
    epsilon.vg_select_flag = 0;
    ov_fprintf(stdout, "(calc_disp_surf_ug) vg_select_flag is set to 0.\n");
    dispsurf_tables tables = open_tables(stem);
    tables.branch_begin = branch_begin;
    tables.branch_end = branch_end;
    tables.num_thickness = num_thickness;
    tables.thickness = thickness;
    print_headings(problem, tables);

    work_cal_int work;
    alloc_work_cal_int(problem.num_exact_beam + problem.num_bethe_beam, problem.num_g, 0, work);
    for (int m = 0; m < num_k_points; ++m) {
        progress_indicator(m, num_k_points);
        tilt_state state = select_tilt(problem, k_tilt[m], work);
        solve_tilt(problem, "$$ Bethe Approx.\n", nullptr, state, work);
        dbg_mon("$$ calc_intensity\n");
        print_surface_row(state, work, k_pixel[m], tables);
        print_intensity_row(problem, state, work, k_pixel[m], tables);
        print_amplitude_row(problem, work, k_pixel[m], tables);
    }
    ov_fprintf(stdout, "100%%\n");
    ov_fclose(tables.surface);
    ov_fclose(tables.amplitude);
    ov_fclose(tables.intensity);
    write_script(problem, tables, stem);
    free_work_cal_int(work);
}

} // namespace orvel
