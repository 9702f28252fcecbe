// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include "control/ov_debug.h"
#include "jobs/ov_sim_input.h"
#include "numeric/vecmat.h"

namespace orvel {

void ov_sim_coherent(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_sim_data(cond, crystal, file);
    input_sim_coherent_data(cond, file);
    std::fclose(file);

    complex** vg = new_potential_matrix("Potential:\n", cond, crystal, lattice_of(crystal), log);
    dbg_sel_vg_init(cond.num_exact_beam, cond.num_bethe_beam);
    calc_coherent_cbed_pattern(crystal, cond, vg, stem);
    dbg_dump_term();
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}

void calc_initial_phase(const sd& cond, double wavelength, complex* initial_phase, lattice lat) {
    const double cs = cond.coherent_cs;
    const double defocus = cond.coherent_defocus;
    const double* p = cond.probe_pos;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const r_hkl K_t = cond.k_tilt[k];
        const double q = sq_abs(K_t, lat);
        const double chi = pi * (defocus * wavelength * q +
                                 0.5 * cs * wavelength * wavelength * wavelength * q * q +
                                 2 * (K_t.h * p[0] + K_t.k * p[1] + K_t.l * p[2]));
        initial_phase[k] = c_exp({0.0, chi});
    }
}

} // namespace orvel
