// SPDX-License-Identifier: MIT
#include "solver/ovfunc.h"

#include <cmath>

#include "control/orvel.h"
#include "control/ov_mpi.h"
#include "crystal/strct_f_stock.h"

namespace orvel {

double calc_abs_K(csd& crystal, double kv, lattice lat) {
    const int entry = crystal.num_lofg > 0 ? search_g_table(crystal.num_lofg, 0, 0, 0, crystal.lofg_hkl) : -1;
    complex F_0;
    if (entry >= 0)
        F_0 = lofg_to_fg(entry, crystal, kv, lat);
    else
        F_0 = c_conv(calc_F_0_re(crystal), 0.0);
    const double lambda = wavelength(kv);
    return std::sqrt(1 / (lambda * lambda) + fg_to_ug(F_0, kv, lat).re);
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

void chk_incidence(double kv, double abs_K, uvw zone_uvw, uvw normal_uvw, double cos_zn) {
    if (!(kv > 0 && abs_K > 0))
        ov_abort(stdout, "$$ Invalid kv(=%g). Abort.\n", kv);
    const double right_angle = 1e-12; // rounding leaves less of its cosine
    if (!(cos_zn > right_angle))
        ov_abort(stdout, "$$ Surface normal [%d %d %d] does not point upward along [%d %d %d]. Abort.\n",
                 normal_uvw.u, normal_uvw.v, normal_uvw.w, zone_uvw.u, zone_uvw.v, zone_uvw.w);
}

} // namespace orvel
