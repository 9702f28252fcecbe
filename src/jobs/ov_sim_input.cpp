// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- what differs between the jobs: each prints its own words -------------------------------

static const struct {
    const char* hint;          // behind a misplaced CALC_KXY_RANGE
    const char* before_number; // around the number in the message of an invalid mesh kind
    const char* behind_number;
} kxy_words[] = {
    {"$$ Caution!!! CALC_KXY_RANGE must be before BEAM_SEARCH. $$", "(=", ")x"},
    {"$$ Caution!! CALC_KXY_RANGE must be before BEAM_SEARCH. $$", "=", ""},
    {"$$$$$ Caution!!! CALC_KXY_RANGE must be before BEAM_SEARCH. $$$$$", "=", ""},
    {"$$ Caution!!! CALC_KXY_RANGE must be before BEAM_SEARCH!", "=", ""},
};

// ---- single blocks --------------------------------------------------------------------------

void fget_incident_beam(sd& cond, std::FILE* file) {
    chk_data("INCIDENT_BEAM{", file);
    fget_uvw(&cond.zone_uvw, file);
    fget_uvw(&cond.normal_uvw, file);
    fget_r_hkl(&cond.zolzbase1, file);
    cond.h_tilt = fget_d(file);
    cond.g_tilt = fget_d(file);
    cond.kv = fget_d(file);
    chk_data("}INCIDENT_BEAM", file);
}

void fget_calc_kxy_range(sd& cond, solver_job job, std::FILE* file) {
    const auto& words = kxy_words[job];
    chk_data_info("CALC_KXY_RANGE{", words.hint, file);
    cond.calc_type = fget_i(file);
    if (cond.calc_type < mesh_point || cond.calc_type > mesh_square)
        ov_abort(stdout, "$$ Invalid calc_type%s%d%s. Abort.\n",
                 words.before_number, cond.calc_type, words.behind_number);
    cond.num_pix_side = fget_i(file);
    // The spacing of a line or square divides by the number of its intervals.
    if (cond.num_pix_side < 2 && cond.calc_type != mesh_point)
        ov_abort(stdout, "$$ Invalid num_pix_side(=%d). Abort.\n", cond.num_pix_side);
    cond.disksize = fget_d(file);
    if (job == solver_bloch)
        ov_fprintf(stdout, "$$disksize = %f\n", cond.disksize);
    chk_data("}CALC_KXY_RANGE", file);
    cond.beam_search.disksize = cond.disksize;
}

void fget_sd_beams(sd& cond, csd& crystal, std::FILE* file) {
    fget_beam_list(file, cond.beam_search, cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel,
                   cond.zone_uvw, cond.zolzbase1, cond.h_tilt, cond.g_tilt, cond.kv, crystal);
}

void report_beams(const sd& cond, csd& crystal) {
    reflex_dump_csd(0, cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel, crystal, cond.beam_search,
                    cond.zone_uvw, cond.zolzbase1, cond.kv, lattice_of(crystal));
}

void fget_beam_search_block(sd& cond, csd& crystal, std::FILE* file) {
    chk_data("BEAM_SEARCH{", file);
    fget_sd_beams(cond, crystal, file);
    report_beams(cond, crystal);
    chk_data("}BEAM_SEARCH", file);
}

void fget_output_branch(sd& cond, solver_job job, std::FILE* file) {
    chk_data("OUTPUT_BRANCH{", file);
    fget_2i(&cond.branch_begin, &cond.branch_end, file);
    if (cond.branch_begin < 1 || cond.branch_begin > cond.branch_end || cond.branch_end > cond.num_exact_beam)
        ov_abort(stdout, "$$ Invalid paramter: branch_begin = %d, branch_end = %d%s\n",
                 cond.branch_begin, cond.branch_end, job == solver_bloch ? "" : ". Abort.");
    chk_data("}OUTPUT_BRANCH", file);
}

void fget_output_reflex(sd& cond, solver_job job, std::FILE* file) {
    chk_data("OUTPUT_REFLEX{", file);
    const int listed = fget_i(file);
    if (listed < 0)
        ov_abort(stdout, "$$ Invalid num_g(=%d). Abort.\n", listed);
    const bool all_exact = listed == 0 && job != solver_dispsurf;
    cond.num_g = all_exact ? cond.num_exact_beam : listed;
    ov_fprintf(stdout, "num_g = %d\n", cond.num_g);
    cond.out_beams = new_vector<int>(to_size(cond.num_g));
    for (int r = 0; r < cond.num_g && all_exact; ++r)
        cond.out_beams[r] = r;
    fget_cal_g(listed, cond.num_exact_beam, cond.out_beams, cond.reflex_sel, file);
    chk_data("}OUTPUT_REFLEX", file);
}

static int fget_num_thickness(int smallest, std::FILE* file) {
    const int num_thickness = fget_i(file);
    if (num_thickness < smallest)
        ov_abort(stdout, "$$ Invalid num_thickness(=%d). Abort.\n", num_thickness);
    return num_thickness;
}

void fget_output_thickness(sd& cond, solver_job job, std::FILE* file) {
    chk_data("OUTPUT_THICKNESS{", file);
    cond.num_thickness = fget_num_thickness(job == solver_dispsurf ? 0 : 1, file);
    ov_fprintf(stdout, "num_thickness = %d\n", cond.num_thickness);
    cond.thickness = new_vector<double>(to_size(cond.num_thickness));
    fget_cal_thick(cond.num_thickness, cond.thickness, file);
    chk_data("}OUTPUT_THICKNESS", file);
}

void fget_calc_t_range(sd& cond, std::FILE* file) {
    chk_data("CALC_T_RANGE{", file);
    cond.num_thickness = fget_num_thickness(2, file);
    ov_fprintf(stdout, "  sd->num_thickness = %d\n", cond.num_thickness);
    double first, last;
    fget_2d(&first, &last, file);
    cond.thickness = new_vector<double>(to_size(cond.num_thickness));
    for (int i = 0; i < cond.num_thickness; ++i)
        cond.thickness[i] = map_coordinate(i, cond.num_thickness, first, last);
    chk_data("}CALC_T_RANGE", file);
}

void make_map_base(sd& cond, lattice lat) {
    zolz_ort_base_two_uvw(cond.zone_uvw, cond.zolzbase1, lat, cond.base_x1, cond.base_x2);
    ov_fprintf(stdout, "real-space base-vector ( length = 1/|zolzbase1| )\n");
    ov_fprintf(stdout, "x1 = %g %g %g, x2 = %g %g %g\n", cond.base_x1.u, cond.base_x1.v, cond.base_x1.w,
               cond.base_x2.u, cond.base_x2.v, cond.base_x2.w);
}

void fget_calc_rxy_range(sd& cond, lattice lat, std::FILE* file) {
    chk_data("CALC_RXY_RANGE{", file);
    make_map_base(cond, lat);
    fget_2i(&cond.nx, &cond.ny, file);
    fget_2d(&cond.range_x1, &cond.range_x2, file);
    fget_2d(&cond.range_y1, &cond.range_y2, file);
    chk_data("}CALC_RXY_RANGE", file);
}

// ---- whole condition blocks -----------------------------------------------------------------

// What all solver jobs begin with. It is judged here, since the search already rests on it.
static void fget_incidence(sd& cond, solver_job job, csd& crystal, std::FILE* file) {
    fget_incident_beam(cond, file);
    fget_calc_kxy_range(cond, job, file);
    chk_incidence(cond, job, crystal);
}

void input_sim_data(sd& cond, csd& crystal, std::FILE* file) {
    cond = {};
    chk_data("SIM_CALCULATION_CONDITION{", file);
    fget_incidence(cond, solver_sim, crystal, file);
    fget_beam_search_block(cond, crystal, file);
    fget_output_reflex(cond, solver_sim, file);
    fget_output_thickness(cond, solver_sim, file);
    chk_data("}SIM_CALCULATION_CONDITION", file);
}

void input_sim_coherent_data(sd& cond, csd& /*crystal*/, std::FILE* file) {
    chk_data("COHERENT{", file);
    cond.coherent_cs = fget_d(file);
    cond.coherent_defocus = fget_d(file);
    fget_3d(&cond.probe_pos[0], &cond.probe_pos[1], &cond.probe_pos[2], file);
    chk_data("}COHERENT", file);
}

void input_dispsurf_data(sd& cond, csd& crystal, std::FILE* file) {
    cond = {};
    chk_data("DISPSURF_CALCULATION_CONDITION{", file);
    fget_incidence(cond, solver_dispsurf, crystal, file);
    fget_beam_search_block(cond, crystal, file);
    fget_output_branch(cond, solver_dispsurf, file);
    fget_output_reflex(cond, solver_dispsurf, file);
    fget_output_thickness(cond, solver_dispsurf, file);
    chk_data("}DISPSURF_CALCULATION_CONDITION", file);
}

void input_bloch_data(sd& cond, csd& crystal, std::FILE* file) {
    cond = {};
    chk_data("BLOCH_CALCULATION_CONDITION{", file);
    fget_incidence(cond, solver_bloch, crystal, file);
    fget_beam_search_block(cond, crystal, file);
    fget_calc_rxy_range(cond, lattice_of(crystal), file);
    fget_output_branch(cond, solver_bloch, file);
    chk_data("}BLOCH_CALCULATION_CONDITION", file);
}

void input_tfringe_data(sd& cond, csd& crystal, std::FILE* file) {
    cond = {};
    chk_data("TFRINGE_CALCULATION_CONDITION{", file);
    fget_incidence(cond, solver_tfringe, crystal, file);
    fget_beam_search_block(cond, crystal, file);
    fget_calc_t_range(cond, file);
    fget_output_reflex(cond, solver_tfringe, file);
    chk_data("}TFRINGE_CALCULATION_CONDITION", file);
}

} // namespace orvel
