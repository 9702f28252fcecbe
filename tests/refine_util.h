// SPDX-License-Identifier: MIT
//
// One refinement problem for all tests of the refinement kernel: reference/fit_mode.txt has two lit data
// sets with two reflections and two thicknesses each, every kind of value, and no two numbers alike. A
// fit is read from that text, changed or as it is, numbered, and run cycle by cycle.
#pragma once

#include <cmath>

#include "control/ov_input.h"
#include "control/settings.h"
#include "job_util.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel_test {

using namespace orvel;

// A text of the folder reference, which tells how each is founded.
inline std::string reference(const std::string& name) {
    return read_file(std::filesystem::path(ORVEL_REFERENCE_DIR) / name);
}

using changes = std::vector<std::array<std::string, 2>>;
inline std::string with(std::string text, const changes& list) {
    for (const auto& [part, by] : list)
        text = replaced(text, part, by);
    return text;
}

// What a function prints on the console.
template <class F>
std::string console_of(F function) {
    testing::internal::CaptureStdout();
    function();
    return testing::internal::GetCapturedStdout();
}

// A smooth measured pattern of two reflections on 9 x 9 points that reach beyond the grid: at thickness t
// level + 200 t + 40 ih - 25 ig, the second reflection 400 below; sigma 50 + ih + t.
inline std::string intensity_text(const std::string& tilt, const std::string& second, int level) {
    std::string text = "FIT_EXPDATA_RAW\nCR{\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n" + tilt +
                       "\n}CR\nPAR{\n2\n2\n81 9\n-0.5 0.5 -0.45 0.45\n}PAR\n";
    for (int t = 0; t < 2; ++t) {
        text += "THICKNESS{\n";
        for (const std::string& g : {std::string("0 0 0"), second}) {
            text += "RF{\n" + g + "\n";
            for (int i = 0; i < 81; ++i)
                text += std::to_string(level + 200 * t - (g == second ? 400 : 0) + 40 * (i % 9) - 25 * (i / 9)) + " " +
                        std::to_string(50 + i % 9 + t) + (i % 9 == 8 ? "\n\n" : "\n");
            text += "}RF\n";
        }
        text += "}THICKNESS\n";
    }
    return text;
}

// A directory with the tables and the intensity files of the problem.
struct fit_files : table_dir {
    const std::string text = reference("fit_mode.txt");
    const std::string a_int = intensity_text("0.1 -0.05", "1 0 0", 900);
    fit_files() {
        std::snprintf(dbg.base_name, sizeof dbg.base_name, "a");
        write_file("a.int", a_int);
        write_file("b.int", intensity_text("0.25 -0.6", "0 1 -1", 1100));
    }
};

struct fit {
    csd cr = {};
    int num_fed = 0, max_iteration;
    fed* sets = nullptr;
    ei* data = nullptr;
    int num_par, slots, num_csd, num_rst;
    std::vector<double> par, beta;
    double **alpha = nullptr, chisq;
    std::FILE* log = std::tmpfile();

    fit() = default;
    explicit fit(const std::string& text) {
        console_of([&] { read(text); });
    }
    ~fit() {
        free_fed_vector(num_fed, sets);
        free_fei_vector(num_fed, data);
        free_csd(cr);
        free_matrix(alpha);
        std::fclose(log);
    }
    void read(const std::string& text) {
        std::FILE* file = text_stream(text);
        char word[line_max];
        fget_1s(word, file);
        read_eps_ctrl_params(file);
        epsilon.perturb_step = 1e-4; // small, for differences
        input_csd_cstr(cr, file, "a");
        chk_data("FIT_CALCULATION_CONDITION{", file);
        read_ITEM_EXP_NUM(max_iteration, num_fed, file);
        sets = new_vector<fed>(size_t(num_fed));
        data = new_vector<ei>(size_t(num_fed));
        for (int i = 0; i < num_fed; ++i)
            input_fit_exp_dataset(sets[i], data[i], file);
        std::fclose(file);
        count_num_fitpar(cr, num_fed, sets, num_par, slots, num_csd, num_rst);
        set_csd_fed_step(cr, num_fed, sets);
        par.resize(size_t(num_par));
        beta.resize(size_t(num_par));
        csd_fed_to_fitpar(cr, num_fed, sets, num_par, par.data());
        alpha = new_matrix<double>(size_t(num_par), size_t(num_par));
    }
    // One cycle and its console; the upper triangle of alpha starts as 77.
    std::string cycle() {
        return console_of([&] { loud_cycle(); });
    }
    void loud_cycle() {
        for (int j = 0; j < num_par; ++j) {
            beta[size_t(j)] = 0;
            for (int k = 0; k < num_par; ++k)
                alpha[j][k] = k > j ? 77 : 0;
        }
        fit_context context = {&cr, sets, data, num_fed, num_csd, "a", log};
        dynamical_calculation(par.data(), num_par, alpha, beta.data(), chisq, context);
    }
    // The calculated pattern of all data sets in one row, and the weights and residuals beside it.
    std::vector<double> pattern() const {
        return row([](const fed&, const ei& e, int r, int t, int p) { return e.cal[r][t][p]; });
    }
    std::vector<double> weights() const {
        return row([](const fed& s, const ei& e, int r, int t, int p) {
            return e.pixel[p].flag ? eval_weight(e.sig[r][t][p], s.weight[r][t]) : 0.0;
        });
    }
    std::vector<double> residuals() const {
        return row([](const fed&, const ei& e, int r, int t, int p) { return e.obs[r][t][p] - e.cal[r][t][p]; });
    }
    template <class F>
    std::vector<double> row(F value) const {
        std::vector<double> v;
        for (int i = 0; i < num_fed; ++i)
            for (int r = 0; r < sets[i].num_reflex; ++r)
                for (int t = 0; t < sets[i].num_thickness; ++t)
                    for (int p = 0; p < data[i].num_pix; ++p)
                        v.push_back(value(sets[i], data[i], r, t, p));
        return v;
    }
};

} // namespace orvel_test
