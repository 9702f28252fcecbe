// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

#include <cmath>
#include <cstdlib>

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc.h"

namespace orvel {

// Sets the shape of the mesh: tilts along H and along G, first mesh indices, range.
static void mesh_shape(sd& cond, int& num_h, int& num_g, int& first_h, int& first_g) {
    const int n = cond.num_pix_side;
    const double d = cond.disksize;
    num_h = num_g = 1;
    first_h = first_g = 0;
    cond.h_bgn = cond.h_end = cond.g_bgn = cond.g_end = 0.0;
    if (cond.calc_type == mesh_point)
        return;
    num_h = n;
    cond.h_bgn = -d;
    cond.h_end = d;
    if (cond.calc_type != mesh_disk)
        first_h = -(n / 2);
    if (cond.calc_type == mesh_line)
        return;
    num_g = n;
    first_g = first_h;
    cond.g_bgn = -d;
    cond.g_end = d;
}

// Coordinate i of n along one side of the mesh; the centre if there is only one.
static double mesh_coordinate(int i, int n, double d, double centre) {
    return n == 1 ? centre : i * (2 * d) / (n - 1) + (centre - d);
}

static int inside_disk(const sd& cond, double h, double g) {
    const double x = h - cond.h_tilt;
    const double y = g - cond.g_tilt;
    return std::sqrt(x * x + y * y) < cond.disksize + epsilon.general_eps ? 1 : 0;
}

// Sets the places of all tilts.
static void lay_pixels(sd& cond) {
    int num_h, num_g, first_h, first_g;
    mesh_shape(cond, num_h, num_g, first_h, first_g);
    cond.k_pixel = new_vector<pixel>(countable(size_product(to_size(num_h), to_size(num_g))));
    cond.num_k_points = num_h * num_g;
    cond.num_k_points_effective = 0;
    for (int j = 0; j < num_g; ++j) {
        for (int i = 0; i < num_h; ++i) {
            const double h = mesh_coordinate(i, num_h, cond.disksize, cond.h_tilt);
            const double g = mesh_coordinate(j, num_g, cond.disksize, cond.g_tilt);
            const int flag = cond.calc_type == mesh_disk ? inside_disk(cond, h, g) : 1;
            cond.k_pixel[j * num_h + i] = {i + first_h, j + first_g, flag, h, g};
            cond.num_k_points_effective += flag;
        }
    }
}

void calc_kxy_tilt(sd& cond, lattice lat) {
    cond.zolzbase2 = zolz_ort_base(cond.zone_uvw, cond.zolzbase1, lat);
    lay_pixels(cond);
    cond.k_tilt = new_vector<r_hkl>(to_size(cond.num_k_points));
    const r_hkl b1 = cond.zolzbase1;
    const r_hkl b2 = cond.zolzbase2;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const double h = cond.k_pixel[k].h, g = cond.k_pixel[k].g;
        cond.k_tilt[k] = {0.5 * (h * b1.h + g * b2.h), 0.5 * (h * b1.k + g * b2.k), 0.5 * (h * b1.l + g * b2.l)};
    }
}

complex** new_potential_matrix(const char* head, const sd& cond, csd& crystal, lattice lat, std::FILE* log) {
    ov_fprintf(stdout, "%s", head);
    ov_fflush(stdout);
    const int N = cond.num_exact_beam + cond.num_bethe_beam;
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
    tilt_problem problem = {&cond.beam_search, cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel, vg,
                            cond.num_g, cond.out_beams, cond.kv, cond.zone_uvw, cond.normal_uvw, lat,
                            calc_abs_K(crystal, cond.kv, lat), 0.0, 0.0, 0.0};
    double lambda, energy;
    pre_calc_intensity(cond.kv, cond.zone_uvw, cond.normal_uvw, lat,
                       problem.zone_len, problem.normal_len, problem.cos_zn, lambda, energy);
    return problem;
}

void chk_incidence(const sd& cond, solver_job job, csd& crystal) {
    const lattice lat = lattice_of(crystal);
    const double abs_K = chk_incidence(crystal, cond.kv, cond.zone_uvw, cond.normal_uvw, lat);
    const double base_len = std::sqrt(sq_abs(cond.zolzbase1, lat));
    sd mesh = cond;
    lay_pixels(mesh);
    const bool first_only = job == solver_bloch || job == solver_tfringe;
    const int count = first_only ? 1 : mesh.num_k_points;
    for (int k = 0; k < count; ++k) {
        const pixel& place = mesh.k_pixel[k];
        if (job != solver_sim || place.flag == 1) // the mask of a disk is for patterns alone
            chk_tilt(abs_K, base_len, place.h, place.g);
    }
    std::free(mesh.k_pixel);
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
