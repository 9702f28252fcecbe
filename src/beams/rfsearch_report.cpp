// SPDX-License-Identifier: MIT
#include "beams/rfsearch.h"

#include <cmath>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "crystal/strct_f_stock.h"

namespace orvel {

static void print_head(std::FILE* file, const beam_search& bs) {
    const int method = method_of(bs.flag_bs);
    if (method == method_manual)
        ov_fprintf(file, "# beam_search --> manual\n");
    else if (method == method_wg)
        ov_fprintf(file, "# beam_search par.: \n wgbmin=%lg, wgmax=%lg, xigmax=%lg, lz:%d-%d, gmax=%lg\n",
                   bs.wgbmin, bs.wgmax, bs.xigmax, bs.lz_min, bs.lz_max, bs.g_max);
    else if (method == method_sg)
        ov_fprintf(file, "# beam_search par.: \n sgbmin=%lg, sgmax=%lg, xigmax=%lg, lz:%d-%d, gmax=%lg\n",
                   bs.sgbmin, bs.sgmax, bs.xigmax, bs.lz_min, bs.lz_max, bs.g_max);
    else if (method == method_sg_multi)
        ov_fprintf(file, "# beam_search ---> multi sg\n");
    else {
        ov_fprintf(stdout, "$$ beam_search: manual\n");
        ov_fprintf(stdout, "$$ beam_search.flag_bs = %d\n", bs.flag_bs);
    }
}

void print_rfinfo(int i, int bethe, hkl g, beam_table& table) {
    const beam_setup& setup = *table.setup;
    csd& crystal = *table.crystal;
    const lattice lat = table.lat;
    double x, y;
    proj_to_zolz(g, setup.zone_uvw, setup.zolzbase1, lat, x, y);
    int flag; // values beyond the tables are shown as they are
    const complex fg = structure_factor_ext_tbl(g, crystal, setup.kv, lat, table.stock, flag);
    const complex ela = calc_Fg_ela(g, crystal, setup.kv, lat);
    const complex inela = calc_Fg_inela(g, crystal, setup.kv, lat);
    ov_fprintf(table.file, "%d\t%3d\t%3d\t%3d\t%d\t%f\t%f\t%d\t%f\t%f\t%f\t%f",
               i, g.h, g.k, g.l, laue_zone(setup.zone_uvw, g), x, y, bethe,
               std::sqrt(sq_abs(hkl2rhkl(g.h, g.k, g.l), lat)), fg.re, fg.im, std::sqrt(c_norm(fg)));
    ov_fprintf(table.file, "\t%f\t%f\t%f\t%f\n", ela.re, ela.im, inela.re, inela.im);
}

static bool equal(hkl g1, hkl g2) { return g1.h == g2.h && g1.k == g2.k && g1.l == g2.l; }

// 000 and the base vector come first; the beams at position 1 and at the base vector's position
// change numbers, as in a list where the base vector stands at position 1.
static void print_rows(beam_table& table) {
    const beam_setup& setup = *table.setup;
    const hkl* list = setup.reflex_sel;
    const hkl origin = {0, 0, 0};
    const hkl base = {real_to_int(setup.zolzbase1.h), real_to_int(setup.zolzbase1.k), real_to_int(setup.zolzbase1.l)};
    const int q = find_n_g(setup.num_exact_beam, base.h, base.k, base.l, list);
    if (find_n_g(setup.num_exact_beam, 0, 0, 0, list) >= 0)
        print_rfinfo(0, 0, origin, table);
    if (q >= 0)
        print_rfinfo(1, 0, base, table);
    for (int p = 0; p < setup.num_exact_beam; ++p)
        if (!equal(list[p], origin) && !equal(list[p], base))
            print_rfinfo(p == 1 && q >= 0 ? q : p, 0, list[p], table);
    for (int p = setup.num_exact_beam; p < num_beams(setup); ++p)
        print_rfinfo(p, 1, list[p], table);
}

void reflex_dump_csd(int id, const beam_setup& setup, csd& crystal, lattice lat) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_fg%d.txt", dbg.base_name, id);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(stdout, "reflex output ==> %s\n", name);
    beam_table table = {&setup, &crystal, lat, new_stock_with_lofg(crystal, setup.kv, lat), file};

    print_head(file, setup.beam_search);
    ov_fprintf(file, "# [%d %d %d]\n", setup.zone_uvw.u, setup.zone_uvw.v, setup.zone_uvw.w);
    ov_fprintf(file, "# Exact= %d  Bethe= %d\n", setup.num_exact_beam, setup.num_bethe_beam);
    ov_fprintf(file, "i\th\tk\tl\tnlz\tx\ty\tBethe\tg\tFg_re\tFg_im\tFg_abs");
    ov_fprintf(file, "\tFgela_re\tFgela_im\tFginela_re\tFginela_im\n");
    print_rows(table);

    ov_fclose(file);
    free_stock(table.stock);
    if (dbg.reflex_only_flag == 1) {
        ov_fprintf(stdout, "$$ reflex_only_flag=1. exit.\n");
        ov_exit();
    }
}

} // namespace orvel
