// SPDX-License-Identifier: MIT
#include "solver/ovfunc_potential.h"

#include <algorithm>
#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "crystal/cnstfunc.h"
#include "crystal/strct_f_stock.h"
#include "numeric/cmatutil.h"
#include "numeric/data_out.h"

namespace orvel {

// Modulus of an index, clamped so that a phase table up to it stays small.
static int tabled_index(int h) {
    const int table_max = 1000;
    return std::abs(std::clamp(h, -table_max, table_max));
}

static hkl largest_indices(int n, const hkl* list) {
    hkl max = {0, 0, 0};
    for (int i = 0; i < n; ++i) {
        max.h = std::max(max.h, tabled_index(list[i].h));
        max.k = std::max(max.k, tabled_index(list[i].k));
        max.l = std::max(max.l, tabled_index(list[i].l));
    }
    return max;
}

// Largest indices of the differences of a list: twice those of the list.
static hkl largest_differences(int n, const hkl* list) {
    const hkl max = largest_indices(n, list);
    return {tabled_index(2 * max.h), tabled_index(2 * max.k), tabled_index(2 * max.l)};
}

// How many distinct differences a list of N beams may have. Those of one Laue zone have 4 N, of some
// zones together up to 20 N; the few lists with more pay with time instead of memory.
static int distinct_differences(int N) { return N * std::min(N, 32); }

void potential_matrix_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv,
                          lattice lat, complex** vg, int& err_flag) {
    err_flag = 0;
    constraint_csd(crystal);
    const int N = num_exact_beam + num_bethe_beam;
    phase_table phases = new_phase_table(crystal, largest_differences(N, reflex_sel));
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat, distinct_differences(N));
    stock.phases = &phases;
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        int flag = 0;
        for (int j = 0; j < N; ++j) {
            const hkl difference = hkl_difference(reflex_sel[i], reflex_sel[j]);
            vg[i][j] = fg_to_vg(structure_factor_ext_tbl(difference, crystal, kv, lat, stock, flag), lat);
        }
        if (flag != 0)
            err_flag = 1;
    }
    ov_fprintf(stdout, "100%%\n");
    free_stock(stock);
    free_phase_table(phases);
}

void vgv_reim_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv) {
    constraint_csd(crystal);
    const int N = num_exact_beam + num_bethe_beam;
    phase_table phases = new_phase_table(crystal, largest_indices(N, reflex_sel));
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);
    stock.phases = &phases;
    int flag = 0;
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        const int known = search_stock(stock, reflex_sel[i]);
        const complex fg = known >= 0 ? stock.fg[known]
                                      : structure_factor_ext_tbl(reflex_sel[i], crystal, kv, lat, stock, flag);
        vgv[i] = fg_to_vg(fg, lat);
    }
    ov_fprintf(stdout, "100%%.\n");
    if (flag != 0)
        ov_fprintf(stdout, "$$ Error in Fg calc. You should check params. (flag=%d)\n", flag);
    free_stock(stock);
    free_phase_table(phases);
}

// Fg of the X-rays from that of the electrons by the formula of Mott, solved for it.
static complex mott_fxg(complex z_factor, complex fg, double sq_g) {
    const double c = 0.25 * sq_g * 131.2625 / pi;
    return {z_factor.re - c * fg.re, z_factor.im - c * fg.im};
}

void vgv_fxgv_csd(int num_exact_beam, int num_bethe_beam, const hkl* reflex_sel, csd& crystal, double kv, lattice lat,
                  complex* vgv, complex* fxgv) {
    constraint_csd(crystal);
    const int N = num_exact_beam + num_bethe_beam;
    phase_table phases = new_phase_table(crystal, largest_indices(N, reflex_sel));
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);
    for (int i = 0; i < N; ++i) {
        progress_indicator(i, N);
        const hkl g = reflex_sel[i];
        const int known = search_stock(stock, g);
        complex fg, Z;
        if (known >= 0) {
            int unused_flag; // nuclear charges have no table to leave
            fg = stock.fg[known];
            Z = crystal_fg(fg_z, g, crystal, kv, lat, &phases, unused_flag);
        } else {
            fg = crystal_fg_ela(g, crystal, kv, lat, &phases, Z);
            stock_fg_tbl_sym(g, fg, stock, crystal);
        }
        vgv[i] = fg_to_vg(fg, lat);
        fxgv[i] = mott_fxg(Z, fg, sq_abs(hkl2rhkl(g.h, g.k, g.l), lat));
    }
    ov_fprintf(stdout, "100%%.\n");
    free_stock(stock);
    free_phase_table(phases);
}

void pvg_to_vg(int index, int n, complex*** pvg, complex** vg) { c_matcopy2(n, pvg[index], vg); }

void vg_to_pvg(int index, int n, complex** vg, complex*** pvg) { c_matcopy2(n, vg, pvg[index]); }

void debug_vg_dump(complex* const* vg, int n) {
    if (dbg.vg_dump_flag != 1)
        return;
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_vg.txt", dbg.base_name);
    std::FILE* file = ov_fopen_wmode(name);
    if (file == nullptr)
        ov_abort(stdout, "$$ Cannot open %s. Abort.\n", name);
    ov_fprintf(stdout, "vg_data output ==> %s\n", name);
    ov_fprintf(file, "Vg: [Volt]\n");
    fprint_complexmat(file, n, vg);
    ov_fclose(file);
}

} // namespace orvel
