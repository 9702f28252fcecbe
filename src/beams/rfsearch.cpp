// SPDX-License-Identifier: MIT
#include "beams/rfsearch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "crystal/strct_f_stock.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- the BEAM_SEARCH block ------------------------------------------------------------------

int method_of(int flag_bs) {
    const int method = flag_bs >= simple_form ? flag_bs - simple_form : flag_bs;
    return method >= method_manual && method <= method_sg_multi ? method : -1;
}

// Line 2 of the three searches. Returns how many numbers it has.
static int fget_search_limits(std::FILE* file, beam_search& bs) {
    double v[4];
    const int found = fget_reals(4, v, search_line_max, file);
    bs.num_g_limit = real_to_int(v[0]);
    bs.g_max = v[1];
    bs.lz_min = real_to_int(v[2]);
    bs.lz_max = real_to_int(v[3]);
    return found;
}

// A row of three limits: exact, Bethe, extinction distance.
static void fget_limit_row(std::FILE* file, double& exact, double& bethe, double& xig) {
    double v[3];
    fget_reals(3, v, search_line_max, file);
    exact = v[0];
    bethe = v[1];
    xig = v[2];
}

void fget_beam_search_wg(std::FILE* file, beam_search& bs) {
    fget_search_limits(file, bs);
    fget_limit_row(file, bs.wgbmin, bs.wgmax, bs.xigmax);
}

void fget_beam_search_sg(std::FILE* file, beam_search& bs) {
    fget_search_limits(file, bs);
    fget_limit_row(file, bs.sgbmin, bs.sgmax, bs.xigmax);
}

void fget_beam_search_sg_multi(std::FILE* file, beam_search& bs) {
    if (fget_search_limits(file, bs) < 4)
        ov_abort(stdout, "$$ Invalid format for beam_search. Abort.\n");
    if (bs.lz_min < 0 || bs.lz_max >= layer_max)
        ov_abort(stdout, "$$ Invalid range of Laue zones: %d-%d. Abort.\n", bs.lz_min, bs.lz_max);
    for (int lz = 0; lz <= bs.lz_max; ++lz)
        fget_limit_row(file, bs.sgbmin_lz[lz], bs.sgmax_lz[lz], bs.xigmax_lz[lz]);
}

void fget_beams(int num_exact, int num_bethe, hkl* list, std::FILE* file) {
    for (int i = 0; i < num_exact + num_bethe; ++i)
        fget_hkl(&list[i], file);
}

static hkl* new_reflex_sel(int num_exact, int num_bethe) {
    return new_vector<hkl>(countable(to_size(num_exact) + to_size(num_bethe)));
}

void fget_manual_beams(std::FILE* file, int& num_exact_beam, int& num_bethe_beam, hkl*& reflex_sel) {
    fget_2i(&num_exact_beam, &num_bethe_beam, file);
    if (num_exact_beam < 1 || num_bethe_beam < 0)
        ov_abort(stdout, "$$ Invalid number of beams: Exact = %d, Bethe = %d. Abort.\n",
                 num_exact_beam, num_bethe_beam);
    ov_fprintf(stdout, "Exact = %d, Bethe = %d\n", num_exact_beam, num_bethe_beam);
    reflex_sel = new_reflex_sel(num_exact_beam, num_bethe_beam);
    fget_beams(num_exact_beam, num_bethe_beam, reflex_sel, file);
    ov_fprintf(stdout, "$$ vg_select_flag is set to 0.\n");
    epsilon.vg_select_flag = 0;
}

void beam_merge(int num_exact, int num_bethe, const hkl* exact, const hkl* bethe, hkl* reflex_sel) {
    std::copy_n(exact, num_exact, reflex_sel);
    std::copy_n(bethe, num_bethe, reflex_sel + num_exact);
}

void fget_search_rows(std::FILE* file, beam_search& bs) {
    const int method = method_of(bs.flag_bs);
    if (method == method_wg)
        fget_beam_search_wg(file, bs);
    else if (method == method_sg)
        fget_beam_search_sg(file, bs);
    else
        fget_beam_search_sg_multi(file, bs);
}

found_beams new_found_beams(int num_g_limit) {
    return {0, 0, new_vector<hkl>(to_size(num_g_limit)), new_vector<hkl>(to_size(num_g_limit))};
}

void take_found_beams(found_beams& found, beam_setup& setup) {
    setup.num_exact_beam = found.num_exact;
    setup.num_bethe_beam = found.num_bethe;
    setup.reflex_sel = new_reflex_sel(found.num_exact, found.num_bethe);
    beam_merge(found.num_exact, found.num_bethe, found.exact, found.bethe, setup.reflex_sel);
    std::free(found.exact);
    std::free(found.bethe);
}

void make_beam_list(beam_setup& setup, bool sphere, csd& crystal) {
    found_beams found = new_found_beams(setup.beam_search.num_g_limit);
    ov_fprintf(stdout, "Beam search (%s)... ", method_of(setup.beam_search.flag_bs) == method_wg ? "wg" : "sg");
    ov_fflush(stdout);
    if (sphere)
        beam_search_sphere(setup, crystal, found);
    else
        search_beams(setup, crystal, found);
    ov_fprintf(stdout, "Exact = %d, Bethe = %d\n", found.num_exact, found.num_bethe);
    take_found_beams(found, setup);
}

int fget_flag_bs(std::FILE* file) {
    double flag;
    fget_reals(1, &flag, line_max, file);
    return real_to_int(flag);
}

void fget_beam_list(std::FILE* file, beam_setup& setup, csd& crystal) {
    beam_search& bs = setup.beam_search;
    bs.flag_bs = fget_flag_bs(file);
    const int method = method_of(bs.flag_bs);
    if (method == -1)
        ov_abort(stdout, "Invalid flag_bs\n");
    if (method == method_manual) {
        fget_manual_beams(file, setup.num_exact_beam, setup.num_bethe_beam, setup.reflex_sel);
        return;
    }
    fget_search_rows(file, bs);
    make_beam_list(setup, false, crystal);
}

// ---- lists ----------------------------------------------------------------------------------

int find_n_g(int n, int h, int k, int l, const hkl* list) { return search_g_table(n, h, k, l, list); }

double spacing(int h, int k, int l, lattice lat) {
    if (h == 0 && k == 0 && l == 0)
        return 0.0;
    return 1 / std::sqrt(sq_abs(hkl2rhkl(h, k, l), lat));
}

// A reflection with its spacing, while a list is sorted.
struct hkl_d {
    hkl g;
    double d;
};

// Larger spacings first.
static int hkld_comp(const void* first, const void* second) {
    const double d1 = static_cast<const hkl_d*>(first)->d;
    const double d2 = static_cast<const hkl_d*>(second)->d;
    if (d2 > d1)
        return 1;
    return d2 < d1 ? -1 : 0;
}

// Ascending by h, then k, then l.
static int hkl_comp(const void* first, const void* second) {
    const hkl g1 = static_cast<const hkl_d*>(first)->g;
    const hkl g2 = static_cast<const hkl_d*>(second)->g;
    const auto key1 = std::tie(g1.h, g1.k, g1.l), key2 = std::tie(g2.h, g2.k, g2.l);
    if (key1 < key2)
        return -1;
    return key2 < key1 ? 1 : 0;
}

void sort_reflex(int n, hkl* list, lattice lat) {
    const double first_of_all = 1e10; // "spacing" of 000
    const double equal_within = 1e-9; // relative: rounding must not decide an order
    hkl_d* sorted = new_vector<hkl_d>(to_size(n));
    for (int i = 0; i < n; ++i) {
        const double d = spacing(list[i].h, list[i].k, list[i].l, lat);
        sorted[i] = {list[i], d == 0.0 ? first_of_all : d};
    }
    std::qsort(sorted, to_size(n), sizeof(hkl_d), hkld_comp);
    int end = 0;
    for (int begin = 0; begin < n; begin = end) {
        end = begin + 1;
        while (end < n && sorted[end].d >= sorted[begin].d * (1 - equal_within))
            ++end;
        std::qsort(sorted + begin, to_size(end - begin), sizeof(hkl_d), hkl_comp);
    }
    for (int i = 0; i < n; ++i)
        list[i] = sorted[i].g;
    std::free(sorted);
}

} // namespace orvel
