// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc.h"

namespace orvel {

void ov_simulation(std::FILE* file, std::FILE* log, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_sim_data(cond, crystal, file);
    std::fclose(file);

    complex** vg = new_potential_matrix("Potential:\n", cond, crystal, lattice_of(crystal), log);
    ov_fprintf(stdout, "\n$$ vg_select_flag = %d\n", epsilon.vg_select_flag);
    dbg_sel_vg_init(cond.num_exact_beam, cond.num_bethe_beam);
    calc_cbed_pattern(crystal, cond, vg, stem);
    dbg_dump_term();
    free_matrix(vg);
    free_sd(cond);
    free_csd(crystal);
}

// The tilt loop: fills cond.sim_intensity. Nothing of one tilt is used in the next.
static void walk_tilts(csd& crystal, sd& cond, complex** vg, lattice lat, double** intensity, work_cal_int& work) {
    const tilt_problem problem = tilt_problem_of(cond, crystal, vg, lat);
    const int effective = cond.num_k_points_effective;
    int computed = 0;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const pixel& place = cond.k_pixel[k];
        if (place.flag != 1)
            continue; // the tensor is 0 there
        dbg_sel_vg_pos(place.ih, place.ig);
        if (computed == 0)
            exec_time_forecast(-1);
        progress_indicator(computed, effective);
        calc_intensity_with_perturb_ug(cond.k_tilt[k], problem.abs_K, cond.beam_search,
                                       cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel,
                                       vg, 0, nullptr,
                                       cond.num_g, cond.out_beams, cond.num_thickness, cond.thickness,
                                       cond.kv, cond.zone_uvw, cond.normal_uvw, lat,
                                       problem.zone_len, problem.normal_len, problem.cos_zn, intensity, nullptr, work);
        if (computed == 0)
            exec_time_forecast(effective);
        ++computed;
        for (int r = 0; r < cond.num_g; ++r)
            for (int t = 0; t < cond.num_thickness; ++t)
                cond.sim_intensity[r][t][k] = intensity[r][t] * epsilon.intensity_scaling;
    }
    exec_time_forecast(0);
}

void calc_cbed_pattern(csd& crystal, sd& cond, complex** vg, const char* stem) {
    const lattice lat = lattice_of(crystal);
    calc_kxy_tilt(cond, lat);
    ov_fprintf(stdout, "$$ num_k_points = %d, num_k_points_effective = %d\n",
               cond.num_k_points, cond.num_k_points_effective);
    const std::size_t num_g = to_size(cond.num_g);
    const std::size_t num_thickness = to_size(cond.num_thickness);
    cond.sim_intensity = new_tensor<double>(num_g, num_thickness, to_size(cond.num_k_points));
    double** intensity = new_matrix<double>(num_g, num_thickness);
    work_cal_int work;
    alloc_work_cal_int(cond.num_exact_beam + cond.num_bethe_beam, cond.num_g, 0, work);

    ov_fprintf(stdout, "Intensity calculation\n");
    walk_tilts(crystal, cond, vg, lat, intensity, work);
    ov_fprintf(stdout, "$$Intensity output\n");
    sim_output(cond, crystal.a, crystal.b, crystal.c, crystal.alpha, crystal.beta, crystal.gamma, stem);
    free_work_cal_int(work);
    free_matrix(intensity);
}

} // namespace orvel
