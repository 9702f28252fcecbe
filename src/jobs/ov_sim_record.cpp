// SPDX-License-Identifier: MIT
#include "jobs/ov_sim_record.h"

#include <cstdlib>

#include "control/ov_mpi.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc_potential.h"

namespace orvel {

complex** new_potential_matrix(const char* head, const sd& cond, csd& crystal, lattice lat, std::FILE* log) {
    ov_fprintf(stdout, "%s", head);
    ov_fflush(stdout);
    const int N = num_beams(cond);
    complex** vg = new_matrix<complex>(to_size(N), to_size(N));
    int err_flag;
    potential_matrix_csd(cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel, crystal, cond.kv, lat, vg,
                         err_flag);
    if (err_flag != 0)
        ov_fprintf_stdo(log, "$$ Error in Fg calc. You should check params.\n");
    debug_vg_dump(vg, N);
    return vg;
}

tilt_problem tilt_problem_of(const sd& cond, csd& crystal, complex** vg, lattice lat) {
    tilt_problem problem = new_tilt_problem(cond, crystal, vg, lat);
    problem.num_g = cond.num_g;
    problem.out_beams = cond.out_beams;
    problem.num_thickness = cond.num_thickness;
    problem.thickness = cond.thickness;
    return problem;
}

void free_sd(sd& cond) {
    std::free(cond.reflex_sel);
    std::free(cond.out_beams);
    std::free(cond.thickness);
    std::free(cond.k_pixel);
    std::free(cond.k_tilt);
    free_tensor(cond.sim_intensity);
}

} // namespace orvel
