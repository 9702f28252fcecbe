// SPDX-License-Identifier: MIT
#include "plain_sums.h"

#include "control/limits.h"
#include "jobs/e_density.h"
#include "jobs/ov_sim_maps.h"
#include "numeric/vecmat.h"

using namespace orvel;

namespace orvel_bench {

plain_stock new_plain_stock() { return {0, std::vector<hkl>(stock_max), std::vector<complex>(stock_max)}; }

static void add(plain_stock& stock, hkl g, complex fg) {
    stock.g[to_size(stock.count)] = g;
    stock.fg[to_size(stock.count++)] = fg;
}

// Adds a reflection and its equivalents as long as there is room.
static void add_class(plain_stock& stock, hkl g, complex fg, const csd& crystal) {
    if (stock.count >= stock_max)
        return;
    add(stock, g, fg);
    for (int n = 0; n < crystal.num_sym_op && stock.count < stock_max; ++n) {
        const sym_op& op = crystal.sym_op[n];
        const hkl r = gen_reflex(g, op);
        if (search_g_table(stock.count, r.h, r.k, r.l, stock.g.data()) >= 0)
            continue;
        const double phase = two_pi * (g.h * op.trans[0] + g.k * op.trans[1] + g.l * op.trans[2]);
        add(stock, r, c_mul(fg, c_exp({0.0, phase})));
    }
}

complex plain_fg(hkl g, csd& crystal, double kv, lattice lat, plain_stock& stock) {
    const int known = search_g_table(stock.count, g.h, g.k, g.l, stock.g.data());
    if (known >= 0)
        return stock.fg[to_size(known)];
    int flag;
    const complex fg = structure_factor_ext(g, crystal, kv, lat, nullptr, flag);
    add_class(stock, g, fg, crystal);
    return fg;
}

complex plain_elastic_fg(hkl g, csd& crystal, double kv, lattice lat, plain_stock& stock) {
    const int known = search_g_table(stock.count, g.h, g.k, g.l, stock.g.data());
    if (known >= 0)
        return stock.fg[to_size(known)];
    const complex fg = calc_Fg_ela(g, crystal, kv, lat);
    add_class(stock, g, fg, crystal);
    return fg;
}

std::vector<complex> plain_potentials(int n, const hkl* beams, csd& crystal, double kv) {
    const lattice lat = lattice_of(crystal);
    plain_stock stock = new_plain_stock();
    std::vector<complex> vg;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            vg.push_back(fg_to_vg(plain_fg(hkl_difference(beams[i], beams[j]), crystal, kv, lat, stock), lat));
    return vg;
}

void plain_coefficients(int n, const hkl* beams, csd& crystal, double kv, complex* vg, complex* xg) {
    const lattice lat = lattice_of(crystal);
    plain_stock stock = new_plain_stock();
    for (int i = 0; i < n; ++i) {
        const hkl g = beams[i];
        const complex fg = plain_elastic_fg(g, crystal, kv, lat, stock);
        const complex Z = calc_z_factor(g, crystal, lat);
        const double c = 0.25 * sq_abs(hkl2rhkl(g.h, g.k, g.l), lat) * 131.2625 / pi; // formula of Mott
        vg[i] = fg_to_vg(fg, lat);
        xg[i] = {Z.re - c * fg.re, Z.im - c * fg.im};
    }
}

std::vector<complex> plain_list(const sd& cond, csd& crystal) {
    const lattice lat = lattice_of(crystal);
    plain_stock stock = new_plain_stock();
    std::vector<complex> vg(to_size(cond.num_exact_beam));
    for (int i = 0; i < cond.num_exact_beam; ++i)
        vg[to_size(i)] = fg_to_vg(plain_fg(cond.reflex_sel[i], crystal, cond.kv, lat, stock), lat);
    return vg;
}

std::vector<complex> plain_map(const sd& cond, const complex* vg) {
    std::vector<complex> map;
    for (int ix = 0; ix < cond.nx; ++ix)
        for (int iy = 0; iy < cond.ny; ++iy) {
            const double x = map_coordinate(ix, cond.nx, cond.range_x1, cond.range_x2);
            const double y = map_coordinate(iy, cond.ny, cond.range_y1, cond.range_y2);
            map.push_back(calc_inv_fourier(map_point(cond, x, y), cond.num_exact_beam, cond.reflex_sel, vg));
        }
    return map;
}

void print_plain_map(const sd& cond, const std::vector<complex>& map, std::FILE* table) {
    for (int ix = 0; ix < cond.nx; ++ix) {
        for (int iy = 0; iy < cond.ny; ++iy) {
            const complex V = map[to_size(ix * cond.ny + iy)];
            std::fprintf(table, "%g\t%g\t%g\t%g\n", map_coordinate(ix, cond.nx, cond.range_x1, cond.range_x2),
                         map_coordinate(iy, cond.ny, cond.range_y1, cond.range_y2), V.re, V.im);
        }
        std::fprintf(table, "\n");
    }
}

} // namespace orvel_bench
