// SPDX-License-Identifier: MIT
//
// Crystals, data sets and cycles for the tests of the refinement kernel: a triclinic crystal of two
// atoms, the text of a data set with a smooth measured pattern, and a fit that is read from such texts,
// numbered, and run cycle by cycle.
#pragma once

#include <cmath>

#include "control/orvel.h"
#include "control/ov_input.h"
#include "job_util.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel_test {

using namespace orvel;

// ---- crystals and data sets -----------------------------------------------------------------

// Two atoms without symmetry, so that every value changes the potential. NAME marks a kind word.
inline const std::string cell = "1\n4.1\n5.2\n6.3\n85\n95\n100\n";
inline std::string iso(const std::string& x, const std::string& B, const std::string& occ) {
    return "Si\n" + x + "\n0.11\n0.23\nISO\n" + B + "\n" + occ + "\n0\n";
}
inline const std::string other_atom = "Ge\n0\n0\n0\nISO\n0.5\n1\n0\n";
inline const std::string aniso = "Si\n0.3\n0.11\n0.23\nANISO\n0.012 ADJ v\n0.01\n0.008\n0.001\n0.002\n0.0005\n1\n0\n";
inline const std::string four_beams = "0\n4 1\n0 0 0\n1 0 0\n0 1 0\n-1 0 0\n1 1 0\n";

inline std::string data_set_text(const std::string& scale, const std::string& thickness, const std::string& shift) {
    return "DATA_SET{\nINCIDENT_BEAM{\n0 0 1\n0 0 1\n1 0 0\n0.1\n-0.05\n100\n}INCIDENT_BEAM\n"
           "CALC_KXY_RANGE{\n2\n7\n0.4\n}CALC_KXY_RANGE\nBEAM_SEARCH{\n" +
           four_beams + "}BEAM_SEARCH\nINTENSITY_DATA{\nint.txt\n1\n2\n}INTENSITY_DATA\n"
                        "THICKNESS_BLOCK{\nSTW_PAR{\n" +
           scale + "\n" + thickness + "\n0\n0 0\n}STW_PAR\nREFLEX_SHIFT_PAR{\n0 0 0\n" + shift +
           "\n0\n1 0 0 0.5\n0\n0\n}REFLEX_SHIFT_PAR\n}THICKNESS_BLOCK\n}DATA_SET\n";
}

// A smooth measured pattern on 9 x 9 points that reach beyond the disk.
inline std::string intensity_text(const std::string& head = "FIT_EXPDATA_RAW\n") {
    std::string text = head + "CR{\n0 0 0\n0 0 0\n0 0 0\n0 0 0\n0.1 -0.05\n}CR\nPAR{\n1\n2\n81 9\n-0.5 0.5 -0.5 0.5\n}PAR\nTHICKNESS{\n";
    for (const char* g : {"0 0 0", "1 0 0"}) {
        text += std::string("RF{\n") + g + "\n";
        for (int i = 0; i < 81; ++i)
            text += std::to_string(3000 + 40 * (i % 9) - 25 * (i / 9)) + " 50\n" + (i % 9 == 8 ? "\n" : "");
        text += "}RF\n";
    }
    return text + "}THICKNESS\n";
}

struct settings : table_dir {
    settings() {
        write_file("eps.txt", "EPS_CONTROL_PARAMETERS{\nperturb_step 1e-4\n}EPS_CONTROL_PARAMETERS\n");
        std::FILE* file = std::fopen("eps.txt", "r");
        read_eps_ctrl_params(file);
        std::fclose(file);
        copy_name();
        write_file("int.txt", intensity_text());
    }
    static void copy_name() { std::snprintf(dbg.base_name, sizeof dbg.base_name, "a"); }
};

// A crystal with its data sets, numbered, and the normal equations of its cycles.
struct fit {
    crystal cr;
    int num_fed;
    fed* sets;
    ei* data;
    int num_par, slots, num_csd, num_rst;
    std::vector<double> par, beta;
    double** alpha;
    double chisq = 0;
    std::FILE* log = std::tmpfile();

    fit(const std::string& crystal_block, const std::vector<std::string>& texts) : cr(crystal_block), num_fed(int(texts.size())) {
        sets = new_vector<fed>(texts.size());
        data = new_vector<ei>(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            std::FILE* stream = text_stream(texts[i]);
            input_fit_exp_dataset(sets[i], data[i], stream);
            std::fclose(stream);
        }
        count_num_fitpar(cr, num_fed, sets, num_par, slots, num_csd, num_rst);
        set_csd_fed_step(cr, num_fed, sets);
        par.resize(size_t(num_par));
        beta.resize(size_t(num_par));
        csd_fed_to_fitpar(cr, num_fed, sets, num_par, par.data());
        alpha = new_matrix<double>(size_t(num_par), size_t(num_par));
    }
    ~fit() {
        free_fed_vector(num_fed, sets);
        free_fei_vector(num_fed, data);
        free_matrix(alpha);
        std::fclose(log);
    }
    // One cycle; the upper triangle of alpha starts as 77.
    void cycle() {
        for (int j = 0; j < num_par; ++j) {
            beta[size_t(j)] = 0;
            for (int k = 0; k < num_par; ++k)
                alpha[j][k] = k > j ? 77 : 0;
        }
        testing::internal::CaptureStdout();
        loud_cycle();
        testing::internal::GetCapturedStdout();
    }
    static inline int cycles = 0; // of this process
    void loud_cycle() {
        ++cycles;
        fit_context context = {&cr, sets, data, num_fed, num_csd, "a", log};
        dynamical_calculation(par.data(), num_par, alpha, beta.data(), chisq, context);
    }
    // The calculated pattern of all data sets in one row, and the weights and residuals beside it.
    std::vector<double> pattern() const {
        return row([](const fed&, const ei& e, int r, int t, int p) { return e.cal[r][t][p]; });
    }
    std::vector<double> weights() const {
        return row([](const fed& s, const ei& e, int r, int t, int p) { return e.pixel[p].flag ? eval_weight(e.sig[r][t][p], s.weight[r][t]) : 0.0; });
    }
    std::vector<double> residuals() const {
        return row([](const fed&, const ei& e, int r, int t, int p) { return e.obs[r][t][p] - e.cal[r][t][p]; });
    }
    template <class F>
    std::vector<double> row(F value) const {
        std::vector<double> v;
        for (int i = 0; i < num_fed; ++i)
            for (int r = 0; r < 2; ++r)
                for (int t = 0; t < sets[i].num_thickness; ++t)
                    for (int p = 0; p < data[i].num_pix; ++p)
                        v.push_back(value(sets[i], data[i], r, t, p));
        return v;
    }
};

// Two restrained and adjusted values with constraints that hang on them.
inline const std::string refined = crystal_text(cell, {"Ge\n0\n0\n0\nISO\n0.5 RST Bge 0.2\n1\n0\n", "Si\n0.3 ADJ xs\n=xs-0.2 CST ys\n0.23\nISO\n=Bge CST Bs\n1\n0\n"});

} // namespace orvel_test
