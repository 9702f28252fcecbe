// SPDX-License-Identifier: MIT
#include "program/orvel_job.h"

#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "jobs/e_density.h"
#include "jobs/ov_sim.h"

namespace orvel {

enum job_number {
    job_sim,
    job_sim_coherent,
    job_dispsurf,
    job_bloch,
    job_tfringe,
    job_e_density_proj,
    job_potential_reim_proj,
    job_e_density_3d_unitcell,
    job_potential_reim_3d_unitcell,
};

struct job_entry {
    const char* word;
    job_number number;
    const char* title;
};

static const job_entry jobs[] = {
    {"SIM_MODE", job_sim,
     "##### Many-beam dynamical simulation #####\n"},
    {"SIM_COHERENT_MODE", job_sim_coherent,
     "##### Many-beam dyn. sim. of coherent CBED patterns #####\n"},
    {"DISPSURF_MODE", job_dispsurf,
     "##### Calculation of dispersion surface #####\n"},
    {"BLOCH_MODE", job_bloch,
     "##### Calculation of Bloch states #####\n"},
    {"TFRINGE_MODE", job_tfringe,
     "##### Calculation of thickness fringes #####\n"},
    {"E_DENSITY_PROJ_MODE", job_e_density_proj,
     "##### Calculation of projected electron density #####\n"},
    {"POTENTIAL_REIM_PROJ_MODE", job_potential_reim_proj,
     "##### Calculation of projected potential #####\n"},
    {"E_DENSITY_3D_UNITCELL_MODE", job_e_density_3d_unitcell,
     "##### Calculation of 3D electron density #####\n"},
    {"POTENTIAL_REIM_3D_UNITCELL_MODE", job_potential_reim_3d_unitcell,
     "##### Calculation of 3D electrostatic potential #####\n"},
};

// The entry of a job word; an unknown word ends the process.
static const job_entry& find_job(const char* word) {
    for (const job_entry& job : jobs)
        if (std::strcmp(word, job.word) == 0)
            return job;
    ov_abort(stdout, "##### Job mode %s is not supported. Abort.\n", word);
}

void ov_job(const char* parameter_file_name, const char* stem, std::FILE* log) {
    copy_text(dbg.base_name, name_max, stem);
    std::FILE* file = fopen_chk_rmode(parameter_file_name);
    char word[line_max];
    fget_word(word, file);
    read_eps_ctrl_params(file);

    const job_entry& job = find_job(word);
    ov_fprintf_stdo(log, "%s", job.title);
    switch (job.number) {
    case job_sim:
        ov_simulation(file, log, stem);
        break;
    case job_sim_coherent:
        ov_sim_coherent(file, log, stem);
        break;
    case job_dispsurf:
        ov_dispersion_surface(file, log, stem);
        break;
    case job_bloch:
        ov_bloch_state(file, log, stem);
        break;
    case job_tfringe:
        ov_tfringe(file, log, stem);
        break;
    case job_e_density_proj:
        ov_electron_density_proj(file, log, stem);
        break;
    case job_potential_reim_proj:
        ov_potential_reim_proj(file, log, stem);
        break;
    case job_e_density_3d_unitcell:
        ov_electron_density_3d_unitcell(file, log, stem);
        break;
    case job_potential_reim_3d_unitcell:
        ov_potential_reim_3d_unitcell(file, log, stem);
        break;
    }
}

} // namespace orvel
