// SPDX-License-Identifier: MIT
//
// SIM_MODE and SIM_COHERENT_MODE: the same patterns, of intensities and of amplitudes.
#include "jobs/ov_sim.h"

#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "jobs/ov_sim_input.h"
#include "numeric/vecmat.h"

namespace orvel {

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

// A pattern and the row of one tilt, [r][t]. A coherent one has amplitudes and the phase of each tilt,
// any other one intensities; what it has not is null.
struct pattern {
    sd* cond; // its sim_intensity takes the intensities
    double** intensity;
    complex** amplitude;
    complex*** coherent_amp;
    complex* initial_phase;
};

// Computes the row of tilt k.
static void compute_row(const tilt_problem& problem, int k, pattern& p, work_cal_int& work) {
    const pixel& place = p.cond->k_pixel[k];
    const r_hkl K_t = p.cond->k_tilt[k];
    dbg_sel_vg_pos(place.ih, place.ig);
    if (p.initial_phase == nullptr)
        calc_intensity_with_perturb_ug(problem, K_t, p.intensity, nullptr, work);
    else
        calc_intensity_ug_coherent(problem, K_t, p.initial_phase[k], p.amplitude, work);
}

static void store_row(int k, pattern& p) {
    for (int r = 0; r < p.cond->num_g; ++r) {
        for (int t = 0; t < p.cond->num_thickness; ++t) {
            if (p.initial_phase == nullptr)
                p.cond->sim_intensity[r][t][k] = p.intensity[r][t] * epsilon.intensity_scaling;
            else
                p.coherent_amp[r][t][k] = p.amplitude[r][t];
        }
    }
}

// The tilt loop. Nothing of one tilt is used in the next; the results of tilts that are not computed stay 0.
// Progress and forecast count the computed tilts, those of a coherent pattern all.
static void walk_tilts(const tilt_problem& problem, pattern& p) {
    const sd& cond = *p.cond;
    const bool all_count = p.initial_phase != nullptr;
    const int total = all_count ? cond.num_k_points : cond.num_k_points_effective;
    work_cal_int work;
    alloc_work_cal_int(num_beams(problem), problem.num_g, 0, work);
    ov_fprintf(stdout, "Intensity calculation\n");
    int count = 0;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const bool computed = cond.k_pixel[k].flag == 1;
        if (!computed && !all_count)
            continue;
        if (count == 0)
            exec_time_forecast(-1);
        progress_indicator(count, total);
        if (computed) {
            compute_row(problem, k, p, work);
            store_row(k, p);
        }
        if (count == 0)
            exec_time_forecast(total);
        ++count;
    }
    exec_time_forecast(0);
    ov_fprintf(stdout, "$$Intensity output\n");
    free_work_cal_int(work);
}

// The mesh of the pattern, told on the console, and what its tilts share.
static tilt_problem begin_pattern(csd& crystal, sd& cond, complex** vg) {
    const lattice lat = lattice_of(crystal);
    calc_kxy_tilt(cond, lat);
    ov_fprintf(stdout, "$$ num_k_points = %d, num_k_points_effective = %d\n",
               cond.num_k_points, cond.num_k_points_effective);
    return tilt_problem_of(cond, crystal, vg, lat);
}

void calc_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem) {
    const tilt_problem problem = begin_pattern(crystal, cond, vg);
    const std::size_t R = to_size(cond.num_g), T = to_size(cond.num_thickness), K = to_size(cond.num_k_points);
    cond.sim_intensity = new_tensor<double>(R, T, K);
    pattern p = {&cond, new_matrix<double>(R, T), nullptr, nullptr, nullptr};
    walk_tilts(problem, p);
    sim_output(cond, crystal, stem);
    free_matrix(p.intensity);
}

void calc_coherent_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem) {
    const tilt_problem problem = begin_pattern(crystal, cond, vg);
    const std::size_t R = to_size(cond.num_g), T = to_size(cond.num_thickness), K = to_size(cond.num_k_points);
    complex* initial_phase = new_vector<complex>(K);
    calc_initial_phase(cond, problem.geometry.wavelength, initial_phase, problem.geometry.lat);
    complex*** coherent_amp = new_tensor<complex>(R, T, K);
    pattern p = {&cond, nullptr, new_matrix<complex>(R, T), coherent_amp, initial_phase};
    walk_tilts(problem, p);
    sim_coherent_output(cond, coherent_amp, crystal, stem);
    free_matrix(p.amplitude);
    free_tensor(coherent_amp);
    std::free(initial_phase);
}

// ---- the jobs -------------------------------------------------------------------------------

static void run_job(bool coherent, std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_sim_data(cond, crystal, file);
    if (coherent)
        input_sim_coherent_data(cond, file);
    std::fclose(file);

    complex** vg = new_potential_matrix("Potential:\n", cond, crystal, lattice_of(crystal), log);
    if (!coherent)
        ov_fprintf(stdout, "\n$$ vg_select_flag = %d\n", epsilon.vg_select_flag);
    dbg_sel_vg_init(cond.num_exact_beam, cond.num_bethe_beam);
    if (coherent)
        calc_coherent_cbed_pattern(crystal, cond, vg, stem);
    else
        calc_cbed_pattern(crystal, cond, vg, stem);
    dbg_dump_term();
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}

void ov_simulation(std::FILE* file, std::FILE* log, const char* stem) { run_job(false, file, log, stem); }

void ov_sim_coherent(std::FILE* file, std::FILE* log, const char* stem) { run_job(true, file, log, stem); }

} // namespace orvel
