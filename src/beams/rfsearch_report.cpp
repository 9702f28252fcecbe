// SPDX-License-Identifier: MIT
#include "beams/rfsearch.h"

#include <cmath>

#include "control/orvel.h"
#include "control/ov_mpi.h"
#include "control/utils.h"
#include "crystal/strct_f_stock.h"

namespace orvel {

static void print_head(std::FILE* file, const beam_search& bs) {
    switch (method_of(bs.flag_bs)) {
    case method_manual:
        ov_fprintf(file, "# beam_search --> manual\n");
        break;
    case method_wg:
        ov_fprintf(file, "# beam_search par.: \n");
        ov_fprintf(file, " wgbmin=%lg, wgmax=%lg, xigmax=%lg, lz:%d-%d, gmax=%lg\n",
                   bs.wgbmin, bs.wgmax, bs.xigmax, bs.lz_min, bs.lz_max, bs.g_max);
        break;
    case method_sg:
        ov_fprintf(file, "# beam_search par.: \n");
        ov_fprintf(file, " sgbmin=%lg, sgmax=%lg, xigmax=%lg, lz:%d-%d, gmax=%lg\n",
                   bs.sgbmin, bs.sgmax, bs.xigmax, bs.lz_min, bs.lz_max, bs.g_max);
        break;
    case method_sg_multi:
        ov_fprintf(file, "# beam_search ---> multi sg\n");
        break;
    default:
        ov_fprintf(stdout, "$$ beam_search: manual\n");
        ov_fprintf(stdout, "$$ beam_search.flag_bs = %d\n", bs.flag_bs);
        break;
    }
}

void print_rfinfo(int i, int bethe, int h, int k, int l, fg_stock& stock, csd& crystal, uvw zone_uvw,
                  r_hkl zolzbase1, double kv, lattice lat, std::FILE* file) {
    const hkl g = {h, k, l};
    double x, y;
    proj_to_zolz(g, zone_uvw, zolzbase1, lat, x, y);
    int flag; // values beyond the tables are shown as they are
    const complex fg = structure_factor_ext_tbl(g, crystal, kv, lat, stock, flag);
    const complex ela = calc_Fg_ela(g, crystal, kv, lat);
    const complex inela = calc_Fg_inela(g, crystal, kv, lat);
    ov_fprintf(file, "%d\t%3d\t%3d\t%3d\t%d\t%f\t%f\t%d\t%f\t%f\t%f\t%f",
               i, h, k, l, laue_zone(zone_uvw, g), x, y, bethe,
               std::sqrt(sq_abs(hkl2rhkl(h, k, l), lat)), fg.re, fg.im, std::sqrt(c_norm(fg)));
    ov_fprintf(file, "\t%f\t%f\t%f\t%f\n", ela.re, ela.im, inela.re, inela.im);
}

static bool equal(hkl g1, hkl g2) { return g1.h == g2.h && g1.k == g2.k && g1.l == g2.l; }

void reflex_dump_csd(int id, int num_exact, int num_bethe, const hkl* reflex_sel, csd& crystal, const beam_search& bs,
                     uvw zone_uvw, r_hkl zolzbase1, double kv, lattice lat) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_fg%d.txt", dbg.base_name, id);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(stdout, "reflex output ==> %s\n", name);
    fg_stock stock = new_stock_with_lofg(crystal, kv, lat);

    print_head(file, bs);
    ov_fprintf(file, "# [%d %d %d]\n", zone_uvw.u, zone_uvw.v, zone_uvw.w);
    ov_fprintf(file, "# Exact= %d  Bethe= %d\n", num_exact, num_bethe);
    ov_fprintf(file, "i\th\tk\tl\tnlz\tx\ty\tBethe\tg\tFg_re\tFg_im\tFg_abs");
    ov_fprintf(file, "\tFgela_re\tFgela_im\tFginela_re\tFginela_im\n");

    const auto row = [&](int i, int bethe, hkl g) {
        print_rfinfo(i, bethe, g.h, g.k, g.l, stock, crystal, zone_uvw, zolzbase1, kv, lat, file);
    };
    // 000 and the base vector come first; the beams at position 1 and at the base vector's position
    // change numbers, as in a list where the base vector stands at position 1.
    const hkl origin = {0, 0, 0};
    const hkl base = {real_to_int(zolzbase1.h), real_to_int(zolzbase1.k), real_to_int(zolzbase1.l)};
    const int q = find_n_g(num_exact, base.h, base.k, base.l, reflex_sel);
    if (find_n_g(num_exact, 0, 0, 0, reflex_sel) >= 0)
        row(0, 0, origin);
    if (q >= 0)
        row(1, 0, base);
    for (int p = 0; p < num_exact; ++p)
        if (!equal(reflex_sel[p], origin) && !equal(reflex_sel[p], base))
            row(p == 1 && q >= 0 ? q : p, 0, reflex_sel[p]);
    for (int p = num_exact; p < num_exact + num_bethe; ++p)
        row(p, 1, reflex_sel[p]);

    ov_fclose(file);
    free_stock(stock);
    if (dbg.reflex_only_flag == 1) {
        ov_fprintf(stdout, "$$ reflex_only_flag=1. exit.\n");
        ov_exit();
    }
}

} // namespace orvel
