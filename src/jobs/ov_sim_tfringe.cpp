// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "jobs/ov_sim_input.h"
#include "jobs/ov_sim_mesh.h"
#include "numeric/vecmat.h"

namespace orvel {

void ov_tfringe(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_tfringe_data(cond, crystal, file);
    std::fclose(file);

    const lattice lat = lattice_of(crystal);
    complex** vg = new_potential_matrix("Potential.\n", cond, crystal, lat, log);
    calc_kxy_tilt(cond, lat);
    calc_tfringe_ug(tilt_problem_of(cond, crystal, vg, lat), cond.k_tilt[0], stem);
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}

static void print_heading(const tilt_problem& problem, std::FILE* file) {
    ov_fprintf(file, "#thickness");
    for (int i = 0; i < problem.num_g; ++i) {
        const hkl g = problem.reflex_sel[problem.out_beams[i]];
        ov_fprintf(file, "\t%d_%d_%d", g.h, g.k, g.l);
    }
    ov_fprintf(file, "\n");
}

// The script behind its first line, up to the plot command.
static void print_plot(const tilt_problem& problem, const char* table_name, const char* stem, std::FILE* script) {
    ov_fprintf(script, "set xlabel \"thickness [A]\"\nset ylabel \"Intensity\"\n");
    ov_fprintf(script, "set title \"Thickness fringes\"\nset term png\nset output \"%s_out.png\"\n", stem);
    ov_fprintf(script, "plot ");
    for (int i = 0; i < problem.num_g; ++i) {
        const hkl g = problem.reflex_sel[problem.out_beams[i]];
        ov_fprintf(script, "%s\"%s\" using 1:%d title \"%d %d %d\" with lines ", i > 0 ? ",\\\n" : "",
                   table_name, i + 2, g.h, g.k, g.l);
    }
    ov_fprintf(script, "\n");
}

static void print_rows(const tilt_problem& problem, work_cal_int& work, double t, complex* psi,
                       std::FILE* intensity, std::FILE* re_im) {
    const double s = std::sqrt(epsilon.intensity_scaling);
    tilt_amplitudes(problem, work, t, psi);
    ov_fprintf(intensity, "%lg", t);
    ov_fprintf(re_im, "%lg", t);
    for (int i = 0; i < problem.num_g; ++i) {
        ov_fprintf(intensity, "\t%lg", c_norm(psi[i]) * epsilon.intensity_scaling);
        ov_fprintf(re_im, "\t%lg\t%lg", s * psi[i].re, s * psi[i].im);
    }
    ov_fprintf(intensity, "\n");
    ov_fprintf(re_im, "\n");
}

void calc_tfringe_ug(const tilt_problem& problem, r_hkl K_t, const char* stem) {
    char intensity_name[path_max], script_name[path_max], re_im_name[path_max];
    std::snprintf(intensity_name, path_max, "%s_int.txt", stem);
    std::snprintf(script_name, path_max, "%s.plt", stem);
    std::snprintf(re_im_name, path_max, "%s_re_im.txt", stem);
    std::FILE* intensity = ov_fopen_chk_wmode(intensity_name);
    std::FILE* script = ov_fopen_chk_wmode(script_name);
    ov_fprintf(script, "#\n");
    std::FILE* re_im = ov_fopen_chk_wmode(re_im_name);

    work_cal_int work;
    alloc_work_cal_int(num_beams(problem), problem.num_g, 0, work);
    complex* psi = new_vector<complex>(to_size(problem.num_g));
    select_tilt(problem, K_t, work);
    solve_tilt(problem, nullptr, work);
    dbg_mon("$$ calc_intensity\n");

    print_heading(problem, intensity);
    print_heading(problem, re_im);
    print_plot(problem, intensity_name, stem, script);
    for (int t = 0; t < problem.num_thickness; ++t)
        print_rows(problem, work, problem.thickness[t], psi, intensity, re_im);
    ov_fprintf(script, "#pause -1 \n");
    ov_fclose(intensity);
    ov_fclose(script);
    ov_fclose(re_im);
    std::free(psi);
    free_work_cal_int(work);
    ov_fprintf(stdout, "\n==> SEE %s\n", script_name);
}

} // namespace orvel
