// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>
#include <initializer_list>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "jobs/ov_sim_input.h"
#include "jobs/ov_sim_mesh.h"
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
    calc_disp_surf_ug(problem, cond, stem);
    free_matrix(problem.vg);
    free_sd(cond);
    free_csd(crystal);
}

// A result file while it is written.
struct result_table {
    char name[path_max];
    std::FILE* file;
};

static result_table open_table(const char* stem, const char* suffix) {
    result_table table;
    std::snprintf(table.name, path_max, "%s%s", stem, suffix);
    table.file = ov_fopen_chk_wmode(table.name);
    return table;
}

// The three tables of a sweep, and the branches of their rows and headings.
struct dispsurf_tables {
    result_table surface, amplitude, intensity;
    int branch_begin, branch_end;
};

static void print_reflections(const tilt_problem& problem, std::FILE* file) {
    for (int i = 0; i < problem.num_g; ++i) {
        const hkl g = problem.reflex_sel[problem.out_beams[i]];
        ov_fprintf(file, "# g %d: %d %d %d\n", i, g.h, g.k, g.l);
    }
}

static void print_headings(const tilt_problem& problem, const dispsurf_tables& tables) {
    ov_fprintf(tables.surface.file, "# Dispersion surface\n# kn, excitation(=eps^2)\nkxy(H)\tkxy(G)\tKz");
    for (int j = tables.branch_begin; j <= tables.branch_end; ++j)
        ov_fprintf(tables.surface.file, "\tRe(kz%d)\tIm(kz%d)\tRe(gamma%d)\tIm(gamma%d)\tSq(eps%d)", j, j, j, j, j);
    ov_fprintf(tables.surface.file, "\n");

    ov_fprintf(tables.amplitude.file, "# Amplitudes of reflections Cg (multiplied by excitation)\n");
    ov_fprintf(tables.amplitude.file, "# (Amplitude and Phase (rad),  g:reflection, j:branch)\n");
    print_reflections(problem, tables.amplitude.file);
    ov_fprintf(tables.amplitude.file, "kxy(H)\tkxy(G)");
    for (int i = 0; i < problem.num_g; ++i)
        for (int j = tables.branch_begin; j <= tables.branch_end; ++j)
            ov_fprintf(tables.amplitude.file, "\tA(eC)g%dj%d\tP(eC)g%dj%d", i, j, i, j);
    ov_fprintf(tables.amplitude.file, "\n");

    ov_fprintf(tables.intensity.file, "# Diffracted intensities\n");
    print_reflections(problem, tables.intensity.file);
    for (int q = 0; q < problem.num_thickness; ++q)
        ov_fprintf(tables.intensity.file, "# thickness %d: %g[A]\n", q, problem.thickness[q]);
    ov_fprintf(tables.intensity.file, "kxy(H)\tkxy(G)");
    for (int i = 0; i < problem.num_g; ++i)
        for (int q = 0; q < problem.num_thickness; ++q)
            ov_fprintf(tables.intensity.file, "\tg%dt%d", i, q);
    ov_fprintf(tables.intensity.file, "\n");
}

// Wave-vector components K_n + lambda / (2 K_n) of the branches, as moduli since K_n is negative.
static void print_surface_row(const work_cal_int& work, const pixel& place, const dispsurf_tables& tables) {
    ov_fprintf(tables.surface.file, "%g\t%g\t%.12lg", place.h, place.g, std::fabs(work.K_n));
    for (int j = tables.branch_begin - 1; j < tables.branch_end; ++j) {
        const complex lambda = work.eigen_val[j];
        ov_fprintf(tables.surface.file, "\t%.12lg\t%lg\t%lg\t%lg\t%lg",
                   std::fabs(work.K_n + lambda.re / (2 * work.K_n)), std::fabs(lambda.im / (2 * work.K_n)),
                   lambda.re, lambda.im, c_norm(work.bc[j]));
    }
    ov_fprintf(tables.surface.file, "\n");
}

static void print_intensity_row(const tilt_problem& problem, work_cal_int& work, const pixel& place,
                                const dispsurf_tables& tables) {
    const std::size_t count = to_size(problem.num_g) * to_size(problem.num_thickness);
    const scratch_mark begin = mark_scratch(work.room);
    complex* psi = take<complex>(work.room, count);
    tilt_amplitudes(problem, work, psi);
    ov_fprintf(tables.intensity.file, "%g\t%g", place.h, place.g);
    for (std::size_t i = 0; i < count; ++i)
        ov_fprintf(tables.intensity.file, "\t%g", c_norm(psi[i]) * epsilon.intensity_scaling);
    ov_fprintf(tables.intensity.file, "\n");
    release_scratch(work.room, begin);
}

// Amplitude of each output beam in each branch, excitation included.
static void print_amplitude_row(const tilt_problem& problem, const work_cal_int& work, const pixel& place,
                                const dispsurf_tables& tables) {
    ov_fprintf(tables.amplitude.file, "%g\t%g", place.h, place.g);
    for (int i = 0; i < problem.num_g; ++i) {
        const int g = problem.out_beams[i];
        const double root = std::sqrt(work.beta_ge[g]);
        for (int j = tables.branch_begin - 1; j < tables.branch_end; ++j) {
            const complex eC = c_mul(work.bc[j], work.eigen_vec[g][j]);
            const complex scaled = {eC.re / root, eC.im / root};
            ov_fprintf(tables.amplitude.file, "\t%lg\t%lg", c_abs(scaled), c_arg(scaled));
        }
    }
    ov_fprintf(tables.amplitude.file, "\n");
}

static void write_script(const tilt_problem& problem, const dispsurf_tables& tables, const char* stem) {
    const result_table table = open_table(stem, "_dre.txt");
    std::FILE* script = table.file;
    ov_fprintf(script, "DRENU_SCRIPT\nDISPSURF_VISUAL_MODE\nHTML_OPEN\n%s_.html\n", stem);
    ov_fprintf(script, "DISPSURF_VISUAL\n%d  #branch_begin\n%d  #branch_end\n", tables.branch_begin, tables.branch_end);
    ov_fprintf(script, "%d  #num_rf_amp\n%d  #num_thick\n", problem.num_g, problem.num_thickness);
    ov_fprintf(script, "%s\n%s\n%s\n%s\n", stem, tables.surface.name, tables.amplitude.name, tables.intensity.name);
    ov_fprintf(script, "HTML_CLOSE\n");
    ov_fclose(script);
    ov_fprintf(stdout, "\n>> drenu %s\n", table.name);
}

// Solves one tilt and writes its row of each table.
static void print_tilt(const tilt_problem& problem, r_hkl K_t, const pixel& place, const dispsurf_tables& tables,
                       work_cal_int& work) {
    select_tilt(problem, K_t, work);
    solve_tilt(problem, nullptr, work);
    dbg_mon("$$ calc_intensity\n");
    print_surface_row(work, place, tables);
    print_intensity_row(problem, work, place, tables);
    print_amplitude_row(problem, work, place, tables);
}

void calc_disp_surf_ug(const tilt_problem& problem, const sd& cond, const char* stem) {
    epsilon.vg_select_flag = 0;
    ov_fprintf(stdout, "(calc_disp_surf_ug) vg_select_flag is set to 0.\n");
    const dispsurf_tables tables = {open_table(stem, "_ds.txt"), open_table(stem, "_amp.txt"),
                                    open_table(stem, "_int.txt"), cond.branch_begin, cond.branch_end};
    print_headings(problem, tables);

    work_cal_int work;
    alloc_work_cal_int(num_beams(problem), problem.num_g, 0, work);
    for (int k = 0; k < cond.num_k_points; ++k) {
        progress_indicator(k, cond.num_k_points);
        print_tilt(problem, cond.k_tilt[k], cond.k_pixel[k], tables, work);
    }
    ov_fprintf(stdout, "100%%\n");
    for (std::FILE* file : {tables.surface.file, tables.amplitude.file, tables.intensity.file})
        ov_fclose(file);
    write_script(problem, tables, stem);
    free_work_cal_int(work);
}

} // namespace orvel
