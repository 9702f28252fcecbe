// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

void ov_sim_coherent(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_sim_data(cond, crystal, file);
    input_sim_coherent_data(cond, crystal, file);
    std::fclose(file);

    complex** vg = new_potential_matrix("Potential:\n", cond, crystal, lattice_of(crystal), log);
    dbg_sel_vg_init(cond.num_exact_beam, cond.num_bethe_beam);
    calc_coherent_cbed_pattern(crystal, cond, vg, stem, log);
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

// The tilt loop: fills coherent_amp. Unlike in SIM_MODE, progress and forecast count all tilts.
static void walk_tilts(const sd& cond, const tilt_problem& problem, const complex* initial_phase,
                       complex** amplitude, complex*** coherent_amp, work_cal_int& work) {
    for (int k = 0; k < cond.num_k_points; ++k) {
        const pixel& place = cond.k_pixel[k];
        if (k == 0)
            exec_time_forecast(-1);
        progress_indicator(k, cond.num_k_points);
        if (place.flag == 1) {
            dbg_sel_vg_pos(place.ih, place.ig);
            calc_intensity_ug_coherent(cond.k_tilt[k], problem.abs_K, initial_phase[k], cond.beam_search,
                                       cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel,
                                       problem.vg, 0, nullptr,
                                       cond.num_g, cond.out_beams, cond.num_thickness, cond.thickness,
                                       cond.kv, cond.zone_uvw, cond.normal_uvw, problem.lat,
                                       problem.zone_len, problem.normal_len, problem.cos_zn, amplitude, nullptr, work);
            for (int r = 0; r < cond.num_g; ++r)
                for (int t = 0; t < cond.num_thickness; ++t)
                    coherent_amp[r][t][k] = amplitude[r][t];
        }
        if (k == 0)
            exec_time_forecast(cond.num_k_points);
    }
    exec_time_forecast(0);
}

void calc_coherent_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem, std::FILE* /*log*/) {
    const lattice lat = lattice_of(crystal);
    calc_kxy_tilt(cond, lat);
    ov_fprintf(stdout, "$$ num_k_points = %d, num_k_points_effective = %d\n",
               cond.num_k_points, cond.num_k_points_effective);
    const tilt_problem problem = tilt_problem_of(cond, crystal, vg, lat);
    const std::size_t num_g = to_size(cond.num_g);
    const std::size_t num_thickness = to_size(cond.num_thickness);
    complex* initial_phase = new_vector<complex>(to_size(cond.num_k_points));
    calc_initial_phase(cond, wavelength(cond.kv), initial_phase, lat);
    complex*** coherent_amp = new_tensor<complex>(num_g, num_thickness, to_size(cond.num_k_points));
    complex** amplitude = new_matrix<complex>(num_g, num_thickness);
    work_cal_int work;
    alloc_work_cal_int(cond.num_exact_beam + cond.num_bethe_beam, cond.num_g, 0, work);

    ov_fprintf(stdout, "Intensity calculation\n");
    walk_tilts(cond, problem, initial_phase, amplitude, coherent_amp, work);
    ov_fprintf(stdout, "$$Intensity output\n");
    sim_coherent_output(cond, coherent_amp, crystal.a, crystal.b, crystal.c,
                        crystal.alpha, crystal.beta, crystal.gamma, stem);
    free_work_cal_int(work);
    free_matrix(amplitude);
    free_tensor(coherent_amp);
    std::free(initial_phase);
}

} // namespace orvel
