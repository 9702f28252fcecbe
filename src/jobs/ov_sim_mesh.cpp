// SPDX-License-Identifier: MIT
#include "jobs/ov_sim_mesh.h"

#include <cmath>

#include "control/settings.h"
#include "numeric/vecmat.h"

namespace orvel {

// Coordinate i of n along one side of the mesh; the centre if there is only one.
static double mesh_coordinate(int i, int n, double d, double centre) {
    return n == 1 ? centre : i * (2 * d) / (n - 1) + (centre - d);
}

static int inside_disk(const sd& cond, double h, double g) {
    const double x = h - cond.h_tilt;
    const double y = g - cond.g_tilt;
    return std::sqrt(x * x + y * y) < cond.disksize + epsilon.general_eps ? 1 : 0;
}

void lay_mesh(sd& cond) {
    const int kind = cond.calc_type, n = cond.num_pix_side;
    const double d = cond.disksize;
    const bool along_h = kind != mesh_point, along_g = kind == mesh_disk || kind == mesh_square;
    const int num_h = along_h ? n : 1, num_g = along_g ? n : 1;
    const int first = kind == mesh_disk ? 0 : -(n / 2); // index along a side
    cond.h_bgn = along_h ? -d : 0.0;
    cond.h_end = along_h ? d : 0.0;
    cond.g_bgn = along_g ? -d : 0.0;
    cond.g_end = along_g ? d : 0.0;
    cond.k_pixel = new_vector<pixel>(countable(size_product(to_size(num_h), to_size(num_g))));
    cond.num_k_points = num_h * num_g;
    cond.num_k_points_effective = 0;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const int i = k % num_h, j = k / num_h;
        const double h = mesh_coordinate(i, num_h, d, cond.h_tilt);
        const double g = mesh_coordinate(j, num_g, d, cond.g_tilt);
        const int flag = kind == mesh_disk ? inside_disk(cond, h, g) : 1;
        cond.k_pixel[k] = {along_h ? i + first : 0, along_g ? j + first : 0, flag, h, g};
        cond.num_k_points_effective += flag;
    }
}

void chk_tilts(const sd& cond, solver_job job, double abs_K, lattice lat) {
    const double base_len = std::sqrt(sq_abs(cond.zolzbase1, lat));
    const bool first_only = job == solver_bloch || job == solver_tfringe;
    const int count = first_only ? 1 : cond.num_k_points;
    for (int k = 0; k < count; ++k) {
        const pixel& place = cond.k_pixel[k];
        if (job != solver_sim || place.flag == 1) // the mask of a disk is for patterns alone
            chk_tilt(abs_K, base_len, place.h, place.g);
    }
}

void calc_kxy_tilt(sd& cond, lattice lat) {
    cond.zolzbase2 = zolz_ort_base(cond.zone_uvw, cond.zolzbase1, lat);
    cond.k_tilt = new_vector<r_hkl>(to_size(cond.num_k_points));
    const r_hkl b1 = cond.zolzbase1;
    const r_hkl b2 = cond.zolzbase2;
    for (int k = 0; k < cond.num_k_points; ++k) {
        const double h = cond.k_pixel[k].h, g = cond.k_pixel[k].g;
        cond.k_tilt[k] = {0.5 * (h * b1.h + g * b2.h), 0.5 * (h * b1.k + g * b2.k), 0.5 * (h * b1.l + g * b2.l)};
    }
}

} // namespace orvel
