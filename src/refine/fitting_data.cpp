// SPDX-License-Identifier: MIT
#include "refine/fitting.h"

#include <climits>
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel {

void read_ITEM_EXP_NUM(int& max_iteration, int& num_fed, std::FILE* file) {
    chk_data("ITER_EXP_NUM{", file);
    max_iteration = fget_i(file);
    num_fed = fget_i(file);
    chk_data("}ITER_EXP_NUM", file);
}

// ---- DATA_SET -------------------------------------------------------------------------------

void read_INCIDENT_BEAM(fed& set, std::FILE* file) {
    chk_data("INCIDENT_BEAM{", file);
    fget_uvw(&set.zone_uvw, file);
    fget_uvw(&set.normal_uvw, file);
    fget_r_hkl(&set.zolzbase1, file);
    fget_fitpar(&set.h_tilt_fitpar, &set.h_tilt, file);
    fget_fitpar(&set.g_tilt_fitpar, &set.g_tilt, file);
    fget_fitpar(&set.kv_fitpar, &set.kv, file);
    chk_data("}INCIDENT_BEAM", file);
}

void read_CALC_KXY_RANGE(fed& set, ei& intensity, std::FILE* file) {
    chk_data_info("CALC_KXY_RANGE{", "$$Error: CALC_KXY_RANGE must be placed before BEAM_SEARCH. $$", file);
    set.calc_type = fget_i(file);
    if (set.calc_type < mesh_point || set.calc_type > mesh_square)
        ov_abort(stdout, "$$ Invalid calc_type=%d. Abort.\n", set.calc_type);
    set.num_pix_side = fget_i(file);
    if (set.num_pix_side < 2 && set.calc_type != mesh_point)
        ov_abort(stdout, "$$ Invalid num_pix_side(=%d). Abort.\n", set.num_pix_side);
    intensity.num_pix_side = set.num_pix_side;
    const double square = static_cast<double>(set.num_pix_side) * set.num_pix_side;
    if (square > INT_MAX) // more than any memory holds
        chk_vector(nullptr);
    intensity.num_pix = static_cast<int>(square);
    set.disksize = fget_d(file);
    set.beam_search.disksize = set.disksize;
    chk_data("}CALC_KXY_RANGE", file);
}

void fget_ed_beams(fed& set, std::FILE* file) {
    beam_search& bs = set.beam_search;
    bs.flag_bs = fget_flag_bs(file);
    switch (method_of(bs.flag_bs)) {
    case -1:
        ov_abort(stderr, "Invalid flag_bs %d\n", bs.flag_bs);
    case method_manual:
        fget_manual_beams(file, set.num_exact_beam, set.num_bethe_beam, set.reflex_sel);
        break;
    default:
        fget_search_rows(file, bs);
        set.num_exact_beam = set.num_bethe_beam = 0;
        break;
    }
}

void read_BEAM_SEARCH(fed& set, std::FILE* file) {
    chk_data("BEAM_SEARCH{", file);
    fget_ed_beams(set, file);
    chk_data("}BEAM_SEARCH", file);
}

void read_INTENSITY_DATA(fed& set, std::FILE* file) {
    chk_data("INTENSITY_DATA{", file);
    fget_word(set.int_file, file);
    set.num_thickness = fget_i(file);
    set.num_reflex = fget_i(file);
    chk_data("}INTENSITY_DATA", file);
}

void read_STW_block(int t, fed& set, std::FILE* file) {
    chk_data("STW_PAR{", file);
    fget_fitpar(&set.scale_fitpar[t], &set.scale_factor[t], file);
    fget_fitpar(&set.thickness_fitpar[t], &set.thickness[t], file);
    fget_fitpar(&set.thickness_width_fitpar[t], &set.thickness_width[t], file);
    if (set.thickness_width[t] > epsilon.general_eps && epsilon.num_thickwidth == 0)
        ov_abort(stdout, "$$ thickwidth = %g and num_thickwidth = %d. Abort.\n",
                 set.thickness_width[t], epsilon.num_thickwidth);
    double size;
    fget_2d(&size, &set.gaussian_par[t], file);
    set.num_avrpix[t] = real_to_int(size);
    chk_data("}STW_PAR", file);
    const std::size_t side = to_size(set.num_avrpix[t]);
    set.avrpix_wt[t] = new_matrix<double>(side, side);
    calc_avrpix_wt(set.num_avrpix[t], set.avrpix_wt[t], set.gaussian_par[t]);
}

void read_REFLEX_SHIFT_PAR(int t, fed& set, std::FILE* file) {
    chk_data("REFLEX_SHIFT_PAR{", file);
    for (int r = 0; r < set.num_reflex; ++r) {
        hkl for_the_eye; // reflections go by their order in the intensity file
        fget_hkl_weight(&for_the_eye, &set.weight[r][t], file);
        fget_fitpar(&set.H_shift_fitpar[r][t], &set.H_shift[r][t], file);
        fget_fitpar(&set.G_shift_fitpar[r][t], &set.G_shift[r][t], file);
        if (!(set.weight[r][t] < epsilon.general_eps))
            continue;
        // What has no weight cannot be fitted.
        fitpar* const shifts[2] = {&set.H_shift_fitpar[r][t], &set.G_shift_fitpar[r][t]};
        for (fitpar* shift : shifts)
            if (shift->idx == kind_adj)
                shift->idx = kind_fix;
    }
    chk_data("}REFLEX_SHIFT_PAR", file);
}

void read_THICKNESS_BLOCK(int t, fed& set, std::FILE* file) {
    chk_data("THICKNESS_BLOCK{", file);
    read_STW_block(t, set, file);
    read_REFLEX_SHIFT_PAR(t, set, file);
    chk_data("}THICKNESS_BLOCK", file);
}

static void chk_agreement(int a, int b) {
    if (a != b || a < 0)
        ov_abort(stdout, "$$ Data set does not agree with its intensity file (%d, %d). Abort.\n", a, b);
}

void input_fit_exp_dataset(fed& set, ei& intensity, std::FILE* file) {
    set = {};
    intensity = {};
    chk_data("DATA_SET{", file);
    read_INCIDENT_BEAM(set, file);
    read_CALC_KXY_RANGE(set, intensity, file);
    read_BEAM_SEARCH(set, file);
    read_INTENSITY_DATA(set, file);
    read_int_file(intensity, set.int_file);
    chk_agreement(set.num_reflex, intensity.num_reflex);
    chk_agreement(set.num_thickness, intensity.num_thickness);
    alloc_ed_arrays(set);
    alloc_ei_grid(intensity);
    for (int t = 0; t < set.num_thickness; ++t)
        read_THICKNESS_BLOCK(t, set, file);
    chk_data("}DATA_SET", file);
}

// ---- the intensity file ---------------------------------------------------------------------

// Condition of the measurement; returns its tilt centre.
static void read_CR(double& H0, double& G0, std::FILE* file) {
    chk_data("CR{", file);
    for (int line = 0; line < 4; ++line) { // cell, incidence, base vector: the parameter file's hold
        double unused[3];
        fget_3d(&unused[0], &unused[1], &unused[2], file);
    }
    fget_2d(&H0, &G0, file);
    chk_data("}CR", file);
}

static void read_PAR(ei& e, double H0, double G0, std::FILE* file) {
    chk_data("PAR{", file);
    e.num_thickness = fget_i(file);
    e.num_reflex = fget_i(file);
    fget_2i(&e.num_obs_pix, &e.num_obs_pix_side, file);
    double dh1, dh2, dg1, dg2;
    fget_4d(&dh1, &dh2, &dg1, &dg2, file);
    chk_data("}PAR", file);
    const double square = static_cast<double>(e.num_obs_pix_side) * e.num_obs_pix_side;
    if (e.num_obs_pix_side < 2 || square != e.num_obs_pix)
        ov_abort(stdout, "$$ Data set does not agree with its intensity file (%d, %d). Abort.\n",
                 e.num_obs_pix, e.num_obs_pix_side);
    e.obs_h_min = dh1 + H0;
    e.obs_h_max = dh2 + H0;
    e.obs_g_min = dg1 + G0;
    e.obs_g_max = dg2 + G0;
}

// Points of reflection r at thickness t, row by row with an empty line behind each.
static void read_points(ei& e, int r, int t, std::FILE* file) {
    const int n = e.num_obs_pix_side;
    for (int i = 0; i < e.num_obs_pix; ++i) {
        fget_2d(&e.obs_raw[r][t][i], &e.sig_raw[r][t][i], file);
        const int ih = i % n, ig = i / n;
        e.obs_pixel[i] = {ih, ig, e.sig_raw[r][t][i] < 0 ? 0 : 1,
                          e.obs_h_min + ih * (e.obs_h_max - e.obs_h_min) / (n - 1),
                          e.obs_g_min + ig * (e.obs_g_max - e.obs_g_min) / (n - 1)};
        if (ih == n - 1)
            chk_data("", file);
    }
}

void read_int_file(ei& intensity, const char* name) {
    std::FILE* file = fopen_chk_rmode(name);
    char word[line_max];
    fget_1s(word, file);
    if (std::strcmp(word, "FIT_EXPDATA_RAW") != 0 && std::strcmp(word, "FIT_EXPDATA_BGS") != 0) {
        ov_fprintf(stdout, "$$ Data format error.\n$$ Abort.\n");
        ov_abort(stdout, "$$ buf=%s\n", word);
    }
    double H0, G0;
    read_CR(H0, G0, file);
    read_PAR(intensity, H0, G0, file);
    alloc_ei_obs(intensity);
    for (int t = 0; t < intensity.num_thickness; ++t) {
        chk_data("THICKNESS{", file);
        for (int r = 0; r < intensity.num_reflex; ++r) {
            chk_data("RF{", file);
            fget_hkl(&intensity.reflex_hkl[r], file);
            read_points(intensity, r, t, file);
            chk_data("}RF", file);
        }
        chk_data("}THICKNESS", file);
    }
    std::fclose(file);
}

} // namespace orvel
