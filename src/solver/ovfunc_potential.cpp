// SPDX-License-Identifier: MIT
#include "solver/ovfunc.h"

#include "control/orvel.h"
#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "crystal/cnstfunc.h"
#include "numeric/cmatutil.h"
#include "numeric/data_out.h"

namespace orvel {

void potential_matrix_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv,
                          lattice lat, complex** vg, int& err_flag) {
    err_flag = 0;
    constraint_csd(crystal);
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);
    const int N = num_exact_beam + num_bethe_beam;
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        int flag = 0;
        for (int j = 0; j < N; ++j) {
            const hkl difference = hkl_difference(reflex_sel[i], reflex_sel[j]);
            vg[i][j] = fg_to_vg(stocked_fg(difference, crystal, kv, lat, stock, flag), lat);
        }
        if (flag != 0)
            err_flag = 1;
    }
    ov_fprintf(stdout, "100%%\n");
    free_stock(stock);
}

void vgv_reim_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv) {
    constraint_csd(crystal);
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);
    const int N = num_exact_beam + num_bethe_beam;
    int flag = 0;
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        const hkl g = reflex_sel[i];
        const int known = search_g_table(stock.count, g.h, g.k, g.l, stock.g);
        const complex fg = known >= 0 ? stock.fg[known] : stocked_fg(g, crystal, kv, lat, stock, flag);
        vgv[i] = fg_to_vg(fg, lat);
    }
    ov_fprintf(stdout, "100%%.\n");
    if (flag != 0)
        ov_fprintf(stdout, "$$ Error in Fg calc. You should check params. (flag=%d)\n", flag);
    free_stock(stock);
}

// Fg of the X-rays from that of the electrons by the formula of Mott, solved for it.
static complex mott_fxg(complex z_factor, complex fg, double sq_g) {
    const double c = 0.25 * sq_g * 131.2625 / pi;
    return {z_factor.re - c * fg.re, z_factor.im - c * fg.im};
}

void vgv_fxgv_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv, complex* fxgv) {
    constraint_csd(crystal);
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);
    const int N = num_exact_beam + num_bethe_beam;
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        const hkl g = reflex_sel[i];
        const int known = search_g_table(stock.count, g.h, g.k, g.l, stock.g);
        complex fg;
        if (known >= 0) {
            fg = stock.fg[known];
        } else {
            fg = calc_Fg_ela(g.h, g.k, g.l, crystal.num_sym_op, crystal.sym_op, crystal.num_site, crystal.site,
                             crystal.xdt, crystal.bk, kv, lat);
            stock_fg_tbl_sym(g.h, g.k, g.l, fg, stock, crystal.num_sym_op, crystal.sym_op);
        }
        vgv[i] = fg_to_vg(fg, lat);
        const complex Z = calc_z_factor(g.h, g.k, g.l, crystal.num_sym_op, crystal.sym_op, crystal.num_site,
                                        crystal.site, crystal.xdt, lat);
        fxgv[i] = mott_fxg(Z, fg, sq_abs(hkl2rhkl(g.h, g.k, g.l), lat));
    }
    ov_fprintf(stdout, "100%%.\n");
    free_stock(stock);
}

void pvg_to_vg(int index, int n, complex*** pvg, complex** vg) { c_matcopy2(n, pvg[index], vg); }

void vg_to_pvg(int index, int n, complex** vg, complex*** pvg) { c_matcopy2(n, vg, pvg[index]); }

void debug_vg_dump(complex* const* vg, int n) {
    if (dbg.vg_dump_flag != 1)
        return;
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_vg.txt", dbg.base_name);
    std::FILE* file = std::fopen(name, "w");
    if (file == nullptr)
        ov_abort(stdout, "$$ Cannot open %s. Abort.\n", name);
    ov_fprintf(stdout, "vg_data output ==> %s\n", name);
    ov_fprintf(file, "Vg: [Volt]\n");
    fprint_complexmat(file, n, vg);
    ov_fclose(file);
}

} // namespace orvel
