// SPDX-License-Identifier: MIT
#include "beams/rfsearch.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "crystal/strct_f_stock.h"
#include "solver/ovfunc_kinematics.h"

namespace orvel {

// From here on a limit on the extinction distance is none, and no structure factor is needed.
static const double any_xig = 1e10;

// Reflections of the largest box: minutes of walking, where a real search has some thousands.
static const double box_max = 1e10;

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

double abs_edge_s_g_tilt(hkl g, const incidence& at, r_hkl base2, const beam_geometry& geometry, double disksize,
                         double& s1, double& s2) {
    const lattice lat = geometry.lat;
    const r_hkl base1 = at.zolzbase1;
    const double g_z = calc_g_z(g, geometry.zone_len, at.zone_uvw);
    double x, y;
    const r_hkl in_plane = proj_to_zolz(g, at.zone_uvw, base1, lat, x, y);
    const r_hkl n = normalize_vec(in_plane, base1, lat);
    double* const edges[2] = {&s1, &s2};
    for (int i = 0; i < 2; ++i) {
        const double d = i == 0 ? disksize : -disksize;
        const r_hkl K_t = {
            0.5 * (at.h_tilt * base1.h + at.g_tilt * base2.h + d * n.h),
            0.5 * (at.h_tilt * base1.k + at.g_tilt * base2.k + d * n.k),
            0.5 * (at.h_tilt * base1.l + at.g_tilt * base2.l + d * n.l),
        };
        const double K_z = calc_K_z(geometry.abs_K, K_t, lat);
        *edges[i] = calc_excitation_error(K_t, K_z, geometry.abs_K, g, g_z, lat);
    }
    if (s1 * s2 < 0)
        return 0.0;
    return std::fmin(std::fabs(s1), std::fabs(s2));
}

// ---- the walk through the box ---------------------------------------------------------------

// A walk through the reflections of the box that a search may judge, and what it judges them by.
struct box_walk {
    const beam_setup* setup;
    csd* crystal;
    bool sphere; // |g| alone is a limit
    beam_geometry geometry;
    r_hkl base2;
    double gamma;
    fg_stock stock;
    hkl max; // corner of the box
    hkl g;   // the reflection at hand
};

static void chk_list_room(int count, int num_g_limit) {
    if (num_g_limit > count)
        return;
    ov_fprintf(stdout, "$$ num_g has exceeded num_g_max.\n");
    ov_abort(stdout, "$$ Please set a greater value into num_g. Abort.\n");
}

// Begins both lists and the walk, in front of its first reflection.
static box_walk begin_walk(const beam_setup& setup, bool sphere, csd& crystal, found_beams& found) {
    chk_list_room(0, setup.beam_search.num_g_limit);
    box_walk walk = {&setup, &crystal, sphere, {}, {}, 0.0, {}, {}, {}};
    const lattice lat = lattice_of(crystal);
    walk.geometry.lat = lat;
    if (!sphere) {
        walk.stock = new_stock_with_lofg(crystal, setup.kv, lat);
        walk.base2 = zolz_ort_base(setup.zone_uvw, setup.zolzbase1, lat);
        walk.geometry = pre_calc_intensity(setup, calc_abs_K(crystal, setup.kv, lat), lat);
        walk.gamma = relativ_corr(setup.kv);
    }
    evaluate_hklmax(setup.beam_search.g_max, walk.max.h, walk.max.k, walk.max.l, lat);
    walk.g = {-walk.max.h, -walk.max.k, -walk.max.l - 1};
    found.exact[0] = {0, 0, 0};
    found.num_exact = 1;
    found.num_bethe = 0;
    return walk;
}

static bool is_000(hkl g) { return g.h == 0 && g.k == 0 && g.l == 0; }

static bool within_limits(const box_walk& walk) {
    const beam_search& bs = walk.setup->beam_search;
    const r_hkl g = hkl2rhkl(walk.g.h, walk.g.k, walk.g.l);
    if (walk.sphere)
        return sq_abs(g, walk.geometry.lat) < bs.g_max * bs.g_max;
    const int lz = laue_zone(walk.setup->zone_uvw, walk.g);
    return lz >= bs.lz_min && lz <= bs.lz_max && std::sqrt(sq_abs(g, walk.geometry.lat)) < bs.g_max;
}

// Steps to the next point of the box, h in the outer loop; false behind the last one.
static bool step(box_walk& walk) {
    if (++walk.g.l > walk.max.l) {
        walk.g.l = -walk.max.l;
        if (++walk.g.k > walk.max.k) {
            walk.g.k = -walk.max.k;
            ++walk.g.h;
        }
    }
    return walk.g.h <= walk.max.h;
}

// Goes to the next reflection but 000 that is within the limits and that the lattice allows.
static bool next_reflection(box_walk& walk, const found_beams& found) {
    const csd& crystal = *walk.crystal;
    while (step(walk)) {
        const hkl g = walk.g;
        if (is_000(g) || !within_limits(walk) ||
            extinction_rule(g.h, g.k, g.l, crystal.latt_type, crystal.r_hex_axes) != 0)
            continue;
        chk_list_room(found.num_exact, walk.setup->beam_search.num_g_limit); // a limit of 1 has room for 000 alone
        return true;
    }
    return false;
}

static void end_walk(box_walk& walk, found_beams& found) {
    sort_reflex(found.num_exact, found.exact, walk.geometry.lat);
    sort_reflex(found.num_bethe, found.bethe, walk.geometry.lat);
    free_stock(walk.stock);
}

// ---- judgement ------------------------------------------------------------------------------

static double edge_error(const box_walk& walk) {
    double s1, s2;
    return abs_edge_s_g_tilt(walk.g, *walk.setup, walk.base2, walk.geometry, walk.setup->beam_search.disksize, s1, s2);
}

static double extinction_distance(box_walk& walk) {
    int flag; // values beyond the tables are shown by the potential table, not by a search
    const lattice lat = walk.geometry.lat;
    const complex fg = structure_factor_ext_tbl(walk.g, *walk.crystal, walk.setup->kv, lat, walk.stock, flag);
    return fg_to_xig2(fg, walk.gamma, walk.geometry.wavelength, lat);
}

// Puts the reflection at hand into the list that its figure belongs to, if it does to one.
static void take(const box_walk& walk, double figure, double exact_limit, double bethe_limit, found_beams& found) {
    if (figure < exact_limit)
        found.exact[found.num_exact++] = walk.g;
    else if (figure < bethe_limit)
        found.bethe[found.num_bethe++] = walk.g;
    chk_list_room(found.num_exact, walk.setup->beam_search.num_g_limit);
    chk_list_room(found.num_bethe, walk.setup->beam_search.num_g_limit);
}

// Judges by the excitation error alone, behind a limit on the extinction distance.
static void take_by_sg(box_walk& walk, double exact_limit, double bethe_limit, double xigmax, found_beams& found) {
    const double xi = xigmax < any_xig ? extinction_distance(walk) : any_xig;
    if (!(xi >= xigmax))
        take(walk, edge_error(walk), exact_limit, bethe_limit, found);
}

// ---- searches -------------------------------------------------------------------------------

void simple_beam_search_wg(const beam_setup& setup, csd& crystal, found_beams& found) {
    const beam_search& bs = setup.beam_search;
    box_walk walk = begin_walk(setup, false, crystal, found);
    while (next_reflection(walk, found)) {
        const double xi = extinction_distance(walk);
        if (!(xi >= bs.xigmax))
            take(walk, xi * edge_error(walk), bs.wgbmin, bs.wgmax, found);
    }
    end_walk(walk, found);
}

void simple_beam_search_sg(const beam_setup& setup, csd& crystal, found_beams& found) {
    const beam_search& bs = setup.beam_search;
    box_walk walk = begin_walk(setup, false, crystal, found);
    while (next_reflection(walk, found))
        take_by_sg(walk, bs.sgbmin, bs.sgmax, bs.xigmax, found);
    end_walk(walk, found);
}

void beam_search_sg_multi(const beam_setup& setup, csd& crystal, found_beams& found) {
    const beam_search& bs = setup.beam_search;
    box_walk walk = begin_walk(setup, false, crystal, found);
    while (next_reflection(walk, found)) {
        const int lz = laue_zone(setup.zone_uvw, walk.g);
        take_by_sg(walk, bs.sgbmin_lz[lz], bs.sgmax_lz[lz], bs.xigmax_lz[lz], found);
    }
    end_walk(walk, found);
}

void search_beams(const beam_setup& setup, csd& crystal, found_beams& found) {
    const int method = method_of(setup.beam_search.flag_bs);
    if (method == method_wg)
        simple_beam_search_wg(setup, crystal, found);
    else if (method == method_sg)
        simple_beam_search_sg(setup, crystal, found);
    else
        beam_search_sg_multi(setup, crystal, found);
}

void beam_search_sphere(const beam_setup& setup, csd& crystal, found_beams& found) {
    const double figure = 0.0, limit = 1.0; // all are taken
    box_walk walk = begin_walk(setup, true, crystal, found);
    while (next_reflection(walk, found))
        take(walk, figure, limit, limit, found);
    end_walk(walk, found);
}

} // namespace orvel
