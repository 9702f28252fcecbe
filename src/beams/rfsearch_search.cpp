// SPDX-License-Identifier: MIT
#include "beams/rfsearch.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "crystal/strct_f_stock.h"
#include "solver/ovfunc.h"

namespace orvel {

// From here on a limit on the extinction distance is none, and no structure factor is needed.
static const double any_xig = 1e10;

// Reflections of the largest box: minutes of walking, where a real search has some thousands.
static const double box_max = 1e10;

enum beam_class {
    beam_dropped,
    beam_exact,
    beam_bethe,
};

// What does not change during a search.
struct search_frame {
    int method;
    const beam_search* bs;
    uvw zone_uvw;
    r_hkl base1, base2;
    double h_tilt, g_tilt, kv;
    csd* crystal;
    lattice lat;
    double zone_len, abs_K, gamma, wavelength;
    fg_stock stock;
};

static int smallest_index(double g_max, r_hkl axis, lattice lat) {
    int n = 1;
    while (n < index_max && std::sqrt(sq_abs({n * axis.h, n * axis.k, n * axis.l}, lat)) < g_max)
        ++n;
    return n;
}

void evaluate_hklmax(double g_max, int& hmax, int& kmax, int& lmax, lattice lat) {
    hmax = smallest_index(g_max, {1, 0, 0}, lat);
    kmax = smallest_index(g_max, {0, 1, 0}, lat);
    lmax = smallest_index(g_max, {0, 0, 1}, lat);
    const bool too_large = hmax == index_max || kmax == index_max || lmax == index_max;
    if (std::isnan(g_max) || too_large || 8.0 * hmax * kmax * lmax > box_max)
        ov_abort(stdout, "$$ Invalid g_max(=%g). Abort.\n", g_max);
}

double abs_edge_s_g_tilt(hkl g, uvw zone_uvw, r_hkl base1, r_hkl base2, double h_tilt, double g_tilt,
                         double zone_len, double abs_K, double disksize, double& s1, double& s2, lattice lat) {
    const double g_z = calc_g_z(g, zone_len, zone_uvw);
    double x, y;
    const r_hkl in_plane = proj_to_zolz(g, zone_uvw, base1, lat, x, y);
    const r_hkl n = normalize_vec(in_plane, base1, lat);
    double* const edges[2] = {&s1, &s2};
    for (int i = 0; i < 2; ++i) {
        const double d = i == 0 ? disksize : -disksize;
        const r_hkl K_t = {
            0.5 * (h_tilt * base1.h + g_tilt * base2.h + d * n.h),
            0.5 * (h_tilt * base1.k + g_tilt * base2.k + d * n.k),
            0.5 * (h_tilt * base1.l + g_tilt * base2.l + d * n.l),
        };
        *edges[i] = calc_excitation_error(K_t, calc_K_z(abs_K, K_t, lat), abs_K, g, g_z, lat);
    }
    if (s1 * s2 < 0)
        return 0.0;
    return std::fmin(std::fabs(s1), std::fabs(s2));
}

static double edge_error(const search_frame& f, hkl g) {
    double s1, s2;
    return abs_edge_s_g_tilt(g, f.zone_uvw, f.base1, f.base2, f.h_tilt, f.g_tilt,
                             f.zone_len, f.abs_K, f.bs->disksize, s1, s2, f.lat);
}

static double extinction_distance(search_frame& f, hkl g) {
    int flag; // values beyond the tables are shown by the potential table, not by a search
    const complex fg = structure_factor_ext_tbl(g, *f.crystal, f.kv, f.lat, f.stock, flag);
    return fg_to_xig2(fg, f.gamma, f.wavelength, f.lat);
}

static beam_class class_of(double figure, double exact_limit, double bethe_limit) {
    if (figure < exact_limit)
        return beam_exact;
    return figure < bethe_limit ? beam_bethe : beam_dropped;
}

// Class of a reflection by the excitation error alone, behind a limit on the extinction distance.
static beam_class class_by_sg(search_frame& f, hkl g, double exact_limit, double bethe_limit, double xigmax) {
    const double xi = xigmax < any_xig ? extinction_distance(f, g) : any_xig;
    if (xi >= xigmax)
        return beam_dropped;
    return class_of(edge_error(f, g), exact_limit, bethe_limit);
}

static beam_class class_by_wg(search_frame& f, hkl g) {
    const double xi = extinction_distance(f, g);
    if (xi >= f.bs->xigmax)
        return beam_dropped;
    return class_of(xi * edge_error(f, g), f.bs->wgbmin, f.bs->wgmax);
}

static beam_class classify(search_frame& f, hkl g, int lz) {
    const beam_search& bs = *f.bs;
    switch (f.method) {
    case method_wg:
        return class_by_wg(f, g);
    case method_sg:
        return class_by_sg(f, g, bs.sgbmin, bs.sgmax, bs.xigmax);
    default:
        return class_by_sg(f, g, bs.sgbmin_lz[lz], bs.sgmax_lz[lz], bs.xigmax_lz[lz]);
    }
}

static void chk_list_room(int count, int num_g_limit) {
    if (num_g_limit > count)
        return;
    ov_fprintf(stdout, "$$ num_g has exceeded num_g_max.\n");
    ov_abort(stdout, "$$ Please set a greater value into num_g. Abort.\n");
}

static bool is_000(hkl g) { return g.h == 0 && g.k == 0 && g.l == 0; }

// Judges one reflection of the box and puts it into its list.
static void take_reflection(search_frame& f, hkl g, int& num_exact, int& num_bethe, hkl* exact, hkl* bethe) {
    const beam_search& bs = *f.bs;
    if (is_000(g))
        return;
    const int lz = laue_zone(f.zone_uvw, g);
    if (lz < bs.lz_min || lz > bs.lz_max)
        return;
    if (!(std::sqrt(sq_abs(hkl2rhkl(g.h, g.k, g.l), f.lat)) < bs.g_max))
        return;
    if (extinction_rule(g.h, g.k, g.l, f.crystal->latt_type, f.crystal->r_hex_axes) != 0)
        return;
    chk_list_room(num_exact, bs.num_g_limit); // a limit of 1 has room for 000 alone
    switch (classify(f, g, lz)) {
    case beam_exact:
        exact[num_exact++] = g;
        break;
    case beam_bethe:
        bethe[num_bethe++] = g;
        break;
    case beam_dropped:
        break;
    }
    chk_list_room(num_exact, bs.num_g_limit);
    chk_list_room(num_bethe, bs.num_g_limit);
}

static void search(int method, int& num_exact, int& num_bethe, hkl* exact, hkl* bethe, const beam_search& bs,
                   uvw zone_uvw, r_hkl zolzbase1, double h_tilt, double g_tilt, double kv, csd& crystal) {
    chk_list_room(0, bs.num_g_limit);
    search_frame f;
    f.method = method;
    f.bs = &bs;
    f.zone_uvw = zone_uvw;
    f.base1 = zolzbase1;
    f.h_tilt = h_tilt;
    f.g_tilt = g_tilt;
    f.kv = kv;
    f.crystal = &crystal;
    f.lat = lattice_of(crystal);
    f.stock = new_stock_with_lofg(crystal, kv, f.lat);
    f.base2 = zolz_ort_base(zone_uvw, zolzbase1, f.lat);
    f.zone_len = abs_uvw(zone_uvw, f.lat);
    f.wavelength = wavelength(kv);
    f.abs_K = calc_abs_K(crystal, kv, f.lat);
    f.gamma = relativ_corr(kv);

    int hmax, kmax, lmax;
    evaluate_hklmax(bs.g_max, hmax, kmax, lmax, f.lat);
    exact[0] = {0, 0, 0};
    num_exact = 1;
    num_bethe = 0;
    for (int h = -hmax; h <= hmax; ++h)
        for (int k = -kmax; k <= kmax; ++k)
            for (int l = -lmax; l <= lmax; ++l)
                take_reflection(f, {h, k, l}, num_exact, num_bethe, exact, bethe);
    sort_reflex(num_exact, exact, f.lat);
    sort_reflex(num_bethe, bethe, f.lat);
    free_stock(f.stock);
}

void simple_beam_search_wg(int& num_exact, int& num_bethe, hkl* exact, hkl* bethe, beam_search bs, uvw zone_uvw,
                           r_hkl zolzbase1, double h_tilt, double g_tilt, double kv, csd& crystal) {
    search(method_wg, num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
}

void simple_beam_search_sg(int& num_exact, int& num_bethe, hkl* exact, hkl* bethe, beam_search bs, uvw zone_uvw,
                           r_hkl zolzbase1, double h_tilt, double g_tilt, double kv, csd& crystal) {
    search(method_sg, num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
}

void beam_search_sg_multi(int& num_exact, int& num_bethe, hkl* exact, hkl* bethe, beam_search bs, uvw zone_uvw,
                          r_hkl zolzbase1, double h_tilt, double g_tilt, double kv, csd& crystal) {
    search(method_sg_multi, num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
}

void search_beams(int& num_exact, int& num_bethe, hkl* exact, hkl* bethe, const beam_search& bs, uvw zone_uvw,
                  r_hkl zolzbase1, double h_tilt, double g_tilt, double kv, csd& crystal) {
    switch (method_of(bs.flag_bs)) {
    case method_wg:
        simple_beam_search_wg(num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
        break;
    case method_sg:
        simple_beam_search_sg(num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
        break;
    default:
        beam_search_sg_multi(num_exact, num_bethe, exact, bethe, bs, zone_uvw, zolzbase1, h_tilt, g_tilt, kv, crystal);
        break;
    }
}

void beam_search_sphere(int& num_exact, int& num_bethe, hkl* exact, hkl* /*bethe*/, beam_search bs, double /*kv*/,
                        const csd& crystal) {
    chk_list_room(0, bs.num_g_limit);
    const lattice lat = lattice_of(crystal);
    int hmax, kmax, lmax;
    evaluate_hklmax(bs.g_max, hmax, kmax, lmax, lat);
    exact[0] = {0, 0, 0};
    num_exact = 1;
    for (int h = -hmax; h <= hmax; ++h) {
        for (int k = -kmax; k <= kmax; ++k) {
            for (int l = -lmax; l <= lmax; ++l) {
                if (is_000({h, k, l}) || !(sq_abs(hkl2rhkl(h, k, l), lat) < bs.g_max * bs.g_max) ||
                    extinction_rule(h, k, l, crystal.latt_type, crystal.r_hex_axes) != 0)
                    continue;
                chk_list_room(num_exact, bs.num_g_limit);
                exact[num_exact++] = {h, k, l};
                chk_list_room(num_exact, bs.num_g_limit);
            }
        }
    }
    num_bethe = 0;
    sort_reflex(num_exact, exact, lat);
}

} // namespace orvel
