// SPDX-License-Identifier: MIT
#include "solver/ovfunc.h"

#include <cmath>

#include "control/orvel.h"
#include "control/ov_mpi.h"
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

double calc_g_z(hkl g, double zone_len, uvw zone_uvw) {
    return inner_product_uvw_hkl(zone_uvw, hkl2rhkl(g.h, g.k, g.l)) / zone_len;
}

double calc_g_n(hkl g, double normal_len, uvw normal_uvw) { return calc_g_z(g, normal_len, normal_uvw); }

double calc_excitation_error(r_hkl K_t, double K_z, double abs_K, hkl g, double g_z, lattice lat) {
    const r_hkl midway = {K_t.h + 0.5 * g.h, K_t.k + 0.5 * g.k, K_t.l + 0.5 * g.l};
    return (-K_z * g_z - inner_product(midway, hkl2rhkl(g.h, g.k, g.l), lat)) / abs_K;
}

void calc_sg_beta_g(r_hkl K_t, double K_z, double K_n, double abs_K,
                    double zone_len, uvw zone_uvw, double normal_len, uvw normal_uvw,
                    int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, lattice lat,
                    double* Sg, double* beta_ge) {
    for (int i = 0; i < num_exact_beam + num_bethe_beam; ++i) {
        const hkl g = reflex_sel[i];
        Sg[i] = calc_excitation_error(K_t, K_z, abs_K, g, calc_g_z(g, zone_len, zone_uvw), lat);
        beta_ge[i] = 1 + calc_g_n(g, normal_len, normal_uvw) / K_n;
        if (dbg.sg_dump_flag == 1)
            ov_fprintf(stdout, "$$ Sg(%d %d %d) = %g\n", g.h, g.k, g.l, Sg[i]);
        if (dbg.betag_dump_flag == 1)
            ov_fprintf(stdout, "$$ beta_ge(%d %d %d) = %g\n", g.h, g.k, g.l, beta_ge[i]);
    }
}

void pre_calc_intensity(double kv, uvw zone_uvw, uvw normal_uvw, lattice lat,
                        double& zone_len, double& normal_len, double& cos_zn,
                        double& wavelength, double& evdash) {
    wavelength = orvel::wavelength(kv);
    evdash = orvel::evdash(kv);
    zone_len = abs_uvw(zone_uvw, lat);
    normal_len = abs_uvw(normal_uvw, lat);
    cos_zn = inner_product_uvw(zone_uvw, normal_uvw, lat) / (zone_len * normal_len);
}

void chk_kv(double kv) {
    if (!(kv > 0 && wavelength(kv) > 0))
        ov_abort(stdout, "$$ Invalid kv(=%g). Abort.\n", kv);
}

double chk_incidence(csd& crystal, double kv, uvw zone_uvw, uvw normal_uvw, lattice lat) {
    chk_kv(kv);
    double zone_len, normal_len, cos_zn, lambda, energy;
    pre_calc_intensity(kv, zone_uvw, normal_uvw, lat, zone_len, normal_len, cos_zn, lambda, energy);
    const double right_angle = 1e-12; // rounding leaves less of its cosine
    if (zone_len != 0 && !(cos_zn > right_angle))
        ov_abort(stdout, "$$ Surface normal [%d %d %d] does not point upward along [%d %d %d]. Abort.\n",
                 normal_uvw.u, normal_uvw.v, normal_uvw.w, zone_uvw.u, zone_uvw.v, zone_uvw.w);
    const double abs_K = calc_abs_K(crystal, kv, lat);
    if (!(abs_K > 0 && std::isfinite(abs_K)))
        ov_abort(stdout, "$$ Invalid mean inner potential(=%g). Abort.\n", calc_V_0(crystal, kv, lat));
    return abs_K;
}

void chk_tilt(double abs_K, double base_len, double h, double g) {
    if (!(0.5 * base_len * std::hypot(h, g) < abs_K))
        ov_abort(stdout, "$$ Tilt (%g, %g) is outside the Ewald sphere. Abort.\n", h, g);
}

} // namespace orvel
