// SPDX-License-Identifier: MIT
#include "fit.h"

#include <cstdlib>
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "numeric/vecmat.h"

namespace orvel {

static void skip_lines(int n, std::FILE* file) {
    char line[line_max];
    for (int i = 0; i < n; ++i)
        comment_skip_fgets(line_max, line, file);
}

// The reflections of the first THICKNESS_BLOCK, in front of which the file stands before and after.
static void peek_reflections(int num_reflex, hkl* reflex_hkl, std::FILE* file) {
    const int stw_lines = 4, shift_lines = 2; // value lines of STW_PAR, and behind each reflection
    const long place = std::ftell(file);
    chk_data("THICKNESS_BLOCK{", file);
    chk_data("STW_PAR{", file);
    skip_lines(stw_lines, file);
    chk_data("}STW_PAR", file);
    chk_data("REFLEX_SHIFT_PAR{", file);
    for (int r = 0; r < num_reflex; ++r) {
        double weight;
        fget_hkl_weight(&reflex_hkl[r], &weight, file);
        skip_lines(shift_lines, file);
    }
    if (std::fseek(file, place, SEEK_SET) != 0)
        ov_abort(stdout, "$$ The parameter file cannot be read twice. Abort.\n");
}

// A DATA_SET block whose intensity file is yet to be written.
static void read_set_alone(fed& set, ei& intensity, std::FILE* file) {
    chk_data("DATA_SET{", file);
    read_INCIDENT_BEAM(set, file);
    read_CALC_KXY_RANGE(set, intensity, file);
    read_BEAM_SEARCH(set, file);
    read_INTENSITY_DATA(set, file);
    if (set.num_thickness < 1)
        ov_abort(stdout, "$$ Invalid num_thickness(=%d). Abort.\n", set.num_thickness);
    if (set.num_reflex < 1)
        ov_abort(stdout, "$$ Invalid num_reflex(=%d). Abort.\n", set.num_reflex);
    alloc_ed_arrays(set);
    intensity.num_reflex = set.num_reflex;
    intensity.num_thickness = set.num_thickness;
    intensity.reflex_hkl = new_vector<hkl>(to_size(set.num_reflex));
    peek_reflections(set.num_reflex, intensity.reflex_hkl, file);
    for (int t = 0; t < set.num_thickness; ++t)
        read_THICKNESS_BLOCK(t, set, file);
    chk_data("}DATA_SET", file);
}

// A point of negative weight would draw the model away from the data.
static void chk_weights(const fed& set, const ei& intensity) {
    for (int r = 0; r < set.num_reflex; ++r) {
        const hkl g = intensity.reflex_hkl[r];
        for (int t = 0; t < set.num_thickness; ++t)
            if (!(set.weight[r][t] >= 0))
                ov_abort(stdout, "$$ Invalid weight(=%g) of %d %d %d. Abort.\n", set.weight[r][t], g.h, g.k, g.l);
    }
}

static void chk_switch(const char* name, int value) {
    if (value != 0 && value != 1)
        ov_abort(stdout, "$$ Invalid epsilon.%s=%d. Abort.\n", name, value);
}

static void number_parameters(fit_problem& problem) {
    int num_value_slots, num_rst_fitpar;
    count_num_fitpar(problem.crystal, problem.num_fed, problem.sets, problem.num_fitpar, num_value_slots,
                     problem.num_csd_fitpar, num_rst_fitpar);
    problem.parameter.resize(to_size(problem.num_fitpar));
    const fit_value_list lists[2] = {list_csd_values(problem.crystal), list_fed_values(problem.num_fed, problem.sets)};
    for (const fit_value_list& list : lists) {
        for (int i = 0; i < list.count; ++i)
            if (list.at[i].descriptor->ntp >= 0)
                problem.parameter[to_size(list.at[i].descriptor->ntp)] = list.at[i];
        std::free(list.at);
    }
}

void read_fit_problem(const char* file_name, const char* stem, bool with_intensities, fit_problem& problem) {
    std::FILE* file = fopen_chk_rmode(file_name);
    char word[line_max];
    fget_word(word, file);
    read_eps_ctrl_params(file);
    if (std::strcmp(word, "FIT_MODE") != 0)
        ov_abort(stdout, "$$ Job mode %s is not FIT_MODE. Abort.\n", word);
    chk_switch("svd_flag", epsilon.svd_flag);
    chk_switch("flag_modified_marquardt", epsilon.flag_modified_marquardt);
    input_csd_cstr(problem.crystal, file, stem);
    chk_data("FIT_CALCULATION_CONDITION{", file);
    read_ITEM_EXP_NUM(problem.max_iteration, problem.num_fed, file);
    if (problem.num_fed < 1)
        ov_abort(stdout, "$$ Invalid number of data sets(=%d). Abort.\n", problem.num_fed);
    problem.sets = new_vector<fed>(to_size(problem.num_fed));
    problem.intensities = new_vector<ei>(to_size(problem.num_fed));
    for (int i = 0; i < problem.num_fed; ++i) {
        if (with_intensities)
            input_fit_exp_dataset(problem.sets[i], problem.intensities[i], file);
        else
            read_set_alone(problem.sets[i], problem.intensities[i], file);
        chk_weights(problem.sets[i], problem.intensities[i]);
    }
    chk_data("}FIT_CALCULATION_CONDITION", file);
    std::fclose(file);
    number_parameters(problem);
}

void free_fit_problem(fit_problem& problem) {
    free_csd(problem.crystal);
    free_fed_vector(problem.num_fed, problem.sets);
    free_fei_vector(problem.num_fed, problem.intensities);
}

} // namespace orvel
