// SPDX-License-Identifier: MIT
#include "solver/ovfunc_kinematics.h"

#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "crystal/strct_f_stock.h"

namespace orvel {

// Structure factor at zero angle.
static complex calc_F_0(csd& crystal, double kv, lattice lat) {
    const int entry = crystal.num_lofg > 0 ? search_g_table(crystal.num_lofg, 0, 0, 0, crystal.lofg_hkl) : -1;
    if (entry >= 0)
        return lofg_to_fg(entry, crystal, kv, lat);
    return c_conv(calc_F_0_re(crystal), 0.0);
}

double calc_V_0(csd& crystal, double kv, lattice lat) { return fg_to_vg(calc_F_0(crystal, kv, lat), lat).re; }

double calc_abs_K(csd& crystal, double kv, lattice lat) {
    const double lambda = wavelength(kv);
    return std::sqrt(1 / (lambda * lambda) + fg_to_ug(calc_F_0(crystal, kv, lat), kv, lat).re);
}

double calc_K_z(double abs_K, r_hkl K_t, lattice lat) { return -std::sqrt(abs_K * abs_K - sq_abs(K_t, lat)); }

double calc_K_n(r_hkl K_t, double K_z, double normal_len, uvw normal_uvw, double cos_zn) {
    return inner_product_uvw_hkl(normal_uvw, K_t) / normal_len + cos_zn * K_z;
}

wave_vector calc_wave_vector(const incidence& at, const beam_geometry& geometry, r_hkl K_t) {
    const double K_z = calc_K_z(geometry.abs_K, K_t, geometry.lat);
    return {K_t, K_z, calc_K_n(K_t, K_z, geometry.normal_len, at.normal_uvw, geometry.cos_zn)};
}

double calc_g_z(hkl g, double zone_len, uvw zone_uvw) {
    return inner_product_uvw_hkl(zone_uvw, hkl2rhkl(g.h, g.k, g.l)) / zone_len;
}

double calc_g_n(hkl g, double normal_len, uvw normal_uvw) { return calc_g_z(g, normal_len, normal_uvw); }

double calc_excitation_error(r_hkl K_t, double K_z, double abs_K, hkl g, double g_z, lattice lat) {
    const r_hkl midway = {K_t.h + 0.5 * g.h, K_t.k + 0.5 * g.k, K_t.l + 0.5 * g.l};
    return (-K_z * g_z - inner_product(midway, hkl2rhkl(g.h, g.k, g.l), lat)) / abs_K;
}

void calc_sg_beta_g(const incidence& at, const beam_geometry& geometry, wave_vector K, int n, const hkl* reflex_sel,
                    double* Sg, double* beta_ge) {
    for (int i = 0; i < n; ++i) {
        const hkl g = reflex_sel[i];
        const double g_z = calc_g_z(g, geometry.zone_len, at.zone_uvw);
        Sg[i] = calc_excitation_error(K.K_t, K.K_z, geometry.abs_K, g, g_z, geometry.lat);
        beta_ge[i] = 1 + calc_g_n(g, geometry.normal_len, at.normal_uvw) / K.K_n;
        if (dbg.sg_dump_flag == 1)
            ov_fprintf(stdout, "$$ Sg(%d %d %d) = %g\n", g.h, g.k, g.l, Sg[i]);
        if (dbg.betag_dump_flag == 1)
            ov_fprintf(stdout, "$$ beta_ge(%d %d %d) = %g\n", g.h, g.k, g.l, beta_ge[i]);
    }
}

beam_geometry pre_calc_intensity(const incidence& at, double abs_K, lattice lat) {
    const double zone_len = abs_uvw(at.zone_uvw, lat);
    const double normal_len = abs_uvw(at.normal_uvw, lat);
    const double cos_zn = inner_product_uvw(at.zone_uvw, at.normal_uvw, lat) / (zone_len * normal_len);
    return {lat, abs_K, zone_len, normal_len, cos_zn, wavelength(at.kv), evdash(at.kv)};
}

void chk_kv(double kv) {
    if (!(kv > 0 && wavelength(kv) > 0))
        ov_abort(stdout, "$$ Invalid kv(=%g). Abort.\n", kv);
}

double chk_beam(const incidence& at, csd& crystal, lattice lat) {
    const double right_angle = 1e-12; // rounding leaves less of its cosine
    const uvw zone = at.zone_uvw, normal = at.normal_uvw;
    chk_kv(at.kv);
    const double abs_K = calc_abs_K(crystal, at.kv, lat);
    const beam_geometry geometry = pre_calc_intensity(at, abs_K, lat);
    if (geometry.zone_len != 0 && !(geometry.cos_zn > right_angle))
        ov_abort(stdout, "$$ Surface normal [%d %d %d] does not point upward along [%d %d %d]. Abort.\n",
                 normal.u, normal.v, normal.w, zone.u, zone.v, zone.w);
    if (!(abs_K > 0 && std::isfinite(abs_K)))
        ov_abort(stdout, "$$ Invalid mean inner potential(=%g). Abort.\n", calc_V_0(crystal, at.kv, lat));
    return abs_K;
}

void chk_tilt(double abs_K, double base_len, double h, double g) {
    if (!(0.5 * base_len * std::hypot(h, g) < abs_K))
        ov_abort(stdout, "$$ Tilt (%g, %g) is outside the Ewald sphere. Abort.\n", h, g);
}

} // namespace orvel
