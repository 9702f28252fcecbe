// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>

#include "control/limits.h"
#include "control/ov_mpi.h"
#include "control/settings.h"

namespace orvel {

// Words and formats of a kind of result.
struct result_words {
    const char* script_mode;
    const char* visualize; // in front of each file in the script
    int contrast_reversal; // of a viewer
    const char* result;    // first line of a file
    const char* coord;     // a row of COORD
    bool relative;         // coordinates from the centre
};
static const result_words intensity_words = {
    "SIM_VISUAL_MODE", "SIM_VISUALIZE", 1, "SIM_RESULT", "%g %g %d %d %d\n", true};
static const result_words amplitude_words = {
    "SIM_COHERENT_VISUAL_MODE", "SIM_COHERENT_VISUALIZE", 0, "SIM_COHERENT_RESULT", "%g\t%g\t%d\t%d\t%d\n", false};

// What the result files hold: the intensities of cond, or amplitudes where amp is not null.
struct sim_result {
    const result_words* words;
    const sd* cond;
    complex*** amp; // [reflection][thickness][tilt]
    const csd* crystal;
};

// Largest and smallest intensity of a thickness over all reflections and tilts, masked ones too.
// Amplitudes get fixed numbers.
static void intensity_range(const sim_result& result, int t, double& max, double& min) {
    const sd& cond = *result.cond;
    if (result.amp != nullptr) {
        max = 10000;
        min = 0;
        return;
    }
    max = min = cond.sim_intensity[0][t][0];
    for (int r = 0; r < cond.num_g; ++r) {
        for (int k = 0; k < cond.num_k_points; ++k) {
            const double value = cond.sim_intensity[r][t][k];
            max = value > max ? value : max;
            min = value < min ? value : min;
        }
    }
}

// How a viewer shows the pattern by default.
static void print_visual(const sim_result& result, int t, std::FILE* file) {
    double max, min;
    intensity_range(result, t, max, min);
    ov_fprintf(file, "VISUAL{\n# default max and min [>0]\n%g\t%g\n", max, min);
    ov_fprintf(file, "# default gamma [>0]\n1.0\n# defalut magnification (integer only)\n1\n");
    ov_fprintf(file, "# default contrast-reverse-flag\n#  1:reverse, 0:not reverse\n0\n}VISUAL\n#\n");
}

static void print_cr_parameters(const sim_result& result, int t, std::FILE* file) {
    const sd& cond = *result.cond;
    const csd& c = *result.crystal;
    ov_fprintf(file, "CR_PARAMETERS{\n# lattice parameter\n# a,b,c,alpha,beta,gamma\n");
    ov_fprintf(file, "%g\t%g\t%g\t%g\t%g\t%g\n", c.a, c.b, c.c, c.alpha, c.beta, c.gamma);
    ov_fprintf(file, "# incident direction\n");
    ov_fprintf(file, "%d\t%d\t%d\n", cond.zone_uvw.u, cond.zone_uvw.v, cond.zone_uvw.w);
    ov_fprintf(file, "# zolzbase1\n%g\t%g\t%g\n", cond.zolzbase1.h, cond.zolzbase1.k, cond.zolzbase1.l);
    ov_fprintf(file, "# tilt HG\n%g\t%g\n", cond.h_tilt, cond.g_tilt);
    ov_fprintf(file, "# thickness [Angstrom]\n%g\n", cond.thickness[t]);
    ov_fprintf(file, "}CR_PARAMETERS\n#\n");
}

// Output reflections with the place of their disks in pixels.
static void print_rf_index(const sim_result& result, std::FILE* file) {
    const sd& cond = *result.cond;
    const lattice lat = lattice_of(*result.crystal);
    const double scale = cond.disksize != 0.0 ? cond.num_pix_side / cond.disksize : 0.0;
    ov_fprintf(file, "RF_INDEX{\n# reflections\n# number of reflections\n%d\n", cond.num_g);
    ov_fprintf(file, "# h k l, position (pixel coord)\n");
    for (int r = 0; r < cond.num_g; ++r) {
        const hkl g = cond.reflex_sel[cond.out_beams[r]];
        double x, y;
        proj_to_zolz(g, cond.zone_uvw, cond.zolzbase1, lat, x, y);
        ov_fprintf(file, "%d\t%d\t%d\t%g\t%g\n", g.h, g.k, g.l, scale * x, scale * y);
    }
    ov_fprintf(file, "}RF_INDEX\n");
}

static void print_coord(const sim_result& result, std::FILE* file) {
    const sd& cond = *result.cond;
    ov_fprintf(file, "COORD{\n%d %d    #num_pix, num_pix_side\n", cond.num_k_points, cond.num_pix_side);
    ov_fprintf(file, "%g %g %g %g    #Hbgn Hend Gbgn Gend\n", cond.h_bgn, cond.h_end, cond.g_bgn, cond.g_end);
    ov_fprintf(file, "# H, G, ih, ig, flag\n");
    const double h0 = result.words->relative ? cond.h_tilt : 0.0;
    const double g0 = result.words->relative ? cond.g_tilt : 0.0;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const pixel& p = cond.k_pixel[k];
        ov_fprintf(file, result.words->coord, p.h - h0, p.g - g0, p.ih, p.ig, p.flag);
    }
    ov_fprintf(file, "}COORD\n");
}

static void print_values(const sim_result& result, int t, std::FILE* file) {
    const sd& cond = *result.cond;
    const double s = std::sqrt(epsilon.intensity_scaling);
    ov_fprintf(file, "# intensities\n");
    for (int r = 0; r < cond.num_g; ++r) {
        const hkl g = cond.reflex_sel[cond.out_beams[r]];
        ov_fprintf(file, "RF{\n# hkl\n%d\t%d\t%d\n", g.h, g.k, g.l);
        for (int k = 0; k < cond.num_k_points; ++k) {
            if (result.amp != nullptr)
                ov_fprintf(file, "%g\t%g\n", result.amp[r][t][k].re * s, result.amp[r][t][k].im * s);
            else
                ov_fprintf(file, "%g\n", cond.sim_intensity[r][t][k]);
        }
        ov_fprintf(file, "}RF\n");
    }
}

static void print_result_file(const sim_result& result, int t, const char* name) {
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(file, "%s\n", result.words->result);
    ov_fprintf(file, "# %s\n", name);
    ov_fprintf(file, "#\n");
    print_visual(result, t, file);
    print_cr_parameters(result, t, file);
    print_rf_index(result, file);
    print_coord(result, file);
    print_values(result, t, file);
    ov_fclose(file);
}

static void print_script_head(const char* mode, const char* stem, std::FILE* script) {
    ov_fprintf(script, "DRENU_SCRIPT\n# script for drenu.\n%s\n", mode);
    ov_fprintf(script, "#\n# VISUAL\n# rs_file gamma_coef mag(int) cont_reverse_flag\n#\nHTML_OPEN\n");
    ov_fprintf(script, "%s_.html\n", stem);
    ov_fprintf(script, "#\n");
}

static void write_results(const sim_result& result, const char* stem) {
    const double shown_gamma = 0.5; // weak disks stay visible beside strong ones
    const result_words& words = *result.words;
    char script_name[path_max];
    std::snprintf(script_name, sizeof script_name, "%s_dre.txt", stem);
    std::FILE* script = ov_fopen_chk_wmode(script_name);
    print_script_head(words.script_mode, stem, script);
    for (int t = 0; t < result.cond->num_thickness; ++t) {
        char name[path_max];
        std::snprintf(name, sizeof name, "%s_rs%d.txt", stem, t);
        print_result_file(result, t, name);
        ov_fprintf(script, "%s\n", words.visualize);
        ov_fprintf(script, "%s %g 1 %d\n", name, shown_gamma, words.contrast_reversal);
    }
    ov_fprintf(script, "HTML_CLOSE\n");
    ov_fclose(script);
    ov_fprintf(stdout, "\nThe script for visualization ==> %s\n", script_name);
    ov_fprintf(stdout, "Usage: drenu %s\n", script_name);
}

void sim_output(const sd& cond, const csd& crystal, const char* stem) {
    write_results({&intensity_words, &cond, nullptr, &crystal}, stem);
}

void sim_coherent_output(const sd& cond, complex*** coherent_amp, const csd& crystal, const char* stem) {
    write_results({&amplitude_words, &cond, coherent_amp, &crystal}, stem);
}

} // namespace orvel
