// SPDX-License-Identifier: MIT
#include "control/settings.h"

#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/utils.h"

namespace orvel {

dbg_record dbg = {};
epsilon_record epsilon = {};
double eps = 0.0;

static const char* const ini_file_name = "orvel.ini";

// Keys of orvel.ini in the order of their test: none of them holds another.
static const struct {
    const char* key;
    int dbg_record::*flag;
} dbg_keys[] = {
    {"eigval_dump_flag", &dbg_record::eigval_dump_flag},
    {"eigvec_dump_flag", &dbg_record::eigvec_dump_flag},
    {"sg_dump_flag", &dbg_record::sg_dump_flag},
    {"betag_dump_flag", &dbg_record::betag_dump_flag},
    {"reflex_dump_flag", &dbg_record::reflex_dump_flag},
    {"reflex_only_flag", &dbg_record::reflex_only_flag},
    {"vg_dump_flag", &dbg_record::vg_dump_flag},
    {"a_mat_dump_flag", &dbg_record::a_mat_dump_flag},
    {"b_mat_dump_flag", &dbg_record::b_mat_dump_flag},
    {"b_cond_dump_flag", &dbg_record::b_cond_dump_flag},
    {"bc_chk_flag", &dbg_record::bc_chk_flag},
    {"all_int_out_flag", &dbg_record::all_int_out_flag},
    {"covar_dump_flag", &dbg_record::covar_dump_flag},
    {"alpha_dump_flag", &dbg_record::alpha_dump_flag},
    {"beta_dump_flag", &dbg_record::beta_dump_flag},
    {"obs_cal_dump_flag", &dbg_record::obs_cal_dump_flag},
    {"ideal_cr_cal_flag", &dbg_record::ideal_cr_cal_flag},
    {"atm_pos_out_flag", &dbg_record::atm_pos_out_flag},
    {"vg_sel_chk_flag", &dbg_record::vg_sel_chk_flag},
    {"process_mon_flag", &dbg_record::process_mon_flag},
    {"wg_xig_list_flag", &dbg_record::wg_xig_list_flag},
    {"print_bij_flag", &dbg_record::print_bij_flag},
    {"chk_data_dump_flag", &dbg_record::chk_data_dump_flag},
};

// Keys of the settings block in the order of their test: a key that holds another one stands in
// front of it. Each sets a double or an int.
static const struct {
    const char* key;
    double epsilon_record::*real;
    int epsilon_record::*integer;
} epsilon_keys[] = {
    {"general_eps", &epsilon_record::general_eps, nullptr},
    {"eigen_eps", &epsilon_record::eigen_eps, nullptr},
    {"inv_eps", &epsilon_record::inv_eps, nullptr},
    {"degeneracy_eps", &epsilon_record::degeneracy_eps, nullptr},
    {"perturb_step", &epsilon_record::perturb_step, nullptr},
    {"tol_chisq_abs", &epsilon_record::tol_chisq_abs, nullptr},
    {"tol_chisq_rel", &epsilon_record::tol_chisq_rel, nullptr},
    {"tol_parameter", &epsilon_record::tol_parameter, nullptr},
    {"tol_lambda", &epsilon_record::tol_lambda, nullptr},
    {"marq_lambda_max", &epsilon_record::marq_lambda_max, nullptr},
    {"intensity_scaling", &epsilon_record::intensity_scaling, nullptr},
    {"bc_accuracy", &epsilon_record::bc_accuracy, nullptr},
    {"corr_threshold", &epsilon_record::corr_threshold, nullptr},
    {"w_sq_coef", &epsilon_record::w_sq_coef, nullptr},
    {"w_exponent_coef", &epsilon_record::w_exponent_coef, nullptr},
    {"w_exponent", &epsilon_record::w_exponent, nullptr},
    {"scale_rst_chisq", &epsilon_record::scale_rst_chisq, nullptr},
    {"e_density_gmax_val", &epsilon_record::e_density_gmax_val, nullptr},
    {"vg_select_flag", nullptr, &epsilon_record::vg_select_flag},
    {"eigmat_func", nullptr, &epsilon_record::eigmat_func},
    {"bc_invmat_func", nullptr, &epsilon_record::bc_invmat_func},
    {"invmat_func", nullptr, &epsilon_record::invmat_func},
    {"svd_flag", nullptr, &epsilon_record::svd_flag},
    {"thickwidth_type", nullptr, &epsilon_record::thickwidth_type},
    {"num_thickwidth", nullptr, &epsilon_record::num_thickwidth},
    {"cal_range_flag", nullptr, &epsilon_record::cal_range_flag},
    {"numh", nullptr, &epsilon_record::numh},
    {"auto_multiplicity_off", nullptr, &epsilon_record::auto_multiplicity_off},
    {"flag_modified_marquardt", nullptr, &epsilon_record::flag_modified_marquardt},
};

static void set_dbg_defaults() {
    dbg = {};
    dbg.print_bij_flag = 1;
}

// Stores the flag whose key stands in the line; false if there is none.
static bool take_dbg_line(char* line) {
    for (const auto& entry : dbg_keys) {
        if (std::strstr(line, entry.key) != nullptr) {
            dbg.*entry.flag = second_int(line);
            return true;
        }
    }
    return false;
}

void read_ini_file() {
    set_dbg_defaults();
    std::FILE* ini = ov_fopen_rmode(ini_file_name);
    if (ini == nullptr) {
        ov_fprintf(stdout, "Cannot find orvel.ini file.  No options.\n");
        return;
    }
    ov_fprintf(stdout, "Reading orvel.ini\n");
    ov_fflush(stdout);
    char line[ini_line_max];
    while (comment_skip_fgets(ini_line_max, line, ini) != nullptr) {
        if (take_dbg_line(line))
            continue;
        if (std::strstr(line, "INI_PARAM_END") != nullptr) {
            std::fclose(ini);
            return;
        }
        ov_fprintf(stdout, "%s is ignored.\n", rm_cr(line));
    }
    ov_abort(stdout, "\n$$ No INI_PARAM_END command in orvel.ini. Abort.\n");
}

static void set_epsilon_defaults() {
    epsilon = {};
    epsilon.general_eps = 1e-10;
    epsilon.eigen_eps = 1e-8;
    epsilon.inv_eps = 1e-8;
    epsilon.degeneracy_eps = 1e-8;
    epsilon.perturb_step = 0.001;
    epsilon.tol_chisq_abs = 0.01;
    epsilon.tol_chisq_rel = 0.001;
    epsilon.tol_parameter = 0.01;
    epsilon.tol_lambda = 10.0;
    epsilon.marq_lambda_max = 1e6;
    epsilon.intensity_scaling = 10000.0;
    epsilon.bc_accuracy = 1.0;
    epsilon.corr_threshold = 0.5;
    epsilon.w_sq_coef = 1.0;
    epsilon.w_exponent_coef = 0.0;
    epsilon.w_exponent = 4.0;
    epsilon.scale_rst_chisq = 1.0;
    epsilon.e_density_gmax_val = 12.0;
    epsilon.vg_select_flag = 1;
    epsilon.svd_flag = 1;
    epsilon.thickwidth_type = 2;
    epsilon.numh = 20;
    epsilon.flag_modified_marquardt = 1;
}

static bool take_epsilon_line(char* line) {
    for (const auto& entry : epsilon_keys) {
        if (std::strstr(line, entry.key) == nullptr)
            continue;
        if (entry.real != nullptr)
            epsilon.*entry.real = second_double(line);
        else
            epsilon.*entry.integer = second_int(line);
        return true;
    }
    return false;
}

void read_eps_ctrl_params(std::FILE* stream) {
    static const char* const end_word = "}EPS_CONTROL_PARAMETERS";

    set_epsilon_defaults();
    chk_data("EPS_CONTROL_PARAMETERS{", stream);
    char line[eps_line_max];
    while (comment_skip_fgets(eps_line_max, line, stream) != nullptr) {
        if (std::strstr(line, end_word) != nullptr)
            return;
        if (!take_epsilon_line(line))
            ov_fprintf(stdout, "$$ The next line could not be recognized.\n%s\n", rm_cr(line));
    }
    data_format_error(end_word, "", nullptr);
}

} // namespace orvel
