// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "jobs/ov_sim_input.h"
#include "numeric/vecmat.h"

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

} // namespace orvel
