// SPDX-License-Identifier: MIT
#include "refine/fitting.h"

#include <cstdlib>
#include <cstring>

#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel {

// ---- data sets ------------------------------------------------------------------------------

void alloc_ed_arrays(fed& set) {
    const std::size_t T = to_size(set.num_thickness), R = to_size(set.num_reflex);
    set.scale_factor = new_vector<double>(T);
    set.scale_fitpar = new_vector<fitpar>(T);
    set.thickness = new_vector<double>(T);
    set.thickness_fitpar = new_vector<fitpar>(T);
    set.thickness_width = new_vector<double>(T);
    set.thickness_width_fitpar = new_vector<fitpar>(T);
    set.num_avrpix = new_vector<int>(T);
    set.avrpix_wt = new_vector<double**>(T);
    set.gaussian_par = new_vector<double>(T);
    set.g_len = new_vector<double>(R);
    set.weight = new_matrix<double>(R, T);
    set.H_shift = new_matrix<double>(R, T);
    set.H_shift_fitpar = new_matrix<fitpar>(R, T);
    set.G_shift = new_matrix<double>(R, T);
    set.G_shift_fitpar = new_matrix<fitpar>(R, T);
}

void alloc_ed(const beam_search& bs, int num_beams, int num_reflex, int num_thickness, fed& set) {
    set = {};
    set.beam_search = bs;
    set.num_reflex = num_reflex;
    set.num_thickness = num_thickness;
    if (method_of(bs.flag_bs) == method_manual)
        set.reflex_sel = new_vector<hkl>(to_size(num_beams));
    alloc_ed_arrays(set);
}

void free_ed(fed& set) {
    std::free(set.reflex_sel);
    std::free(set.scale_factor);
    std::free(set.scale_fitpar);
    std::free(set.thickness);
    std::free(set.thickness_fitpar);
    std::free(set.thickness_width);
    std::free(set.thickness_width_fitpar);
    std::free(set.num_avrpix);
    for (int t = 0; t < set.num_thickness && set.avrpix_wt != nullptr; ++t)
        free_matrix(set.avrpix_wt[t]);
    std::free(set.avrpix_wt);
    std::free(set.gaussian_par);
    std::free(set.g_len);
    free_matrix(set.weight);
    free_matrix(set.H_shift);
    free_matrix(set.H_shift_fitpar);
    free_matrix(set.G_shift);
    free_matrix(set.G_shift_fitpar);
}

void free_fed_vector(int num_fed, fed* sets) {
    for (int i = 0; i < num_fed; ++i)
        free_ed(sets[i]);
    std::free(sets);
}

template <class T>
static void copy_array(std::size_t n, const T* source, T* dest) {
    for (std::size_t i = 0; i < n; ++i)
        dest[i] = source[i];
}

static void copy_set(const fed& source, fed& dest) {
    const fed arrays = dest; // owner of the arrays of dest
    const std::size_t T = to_size(source.num_thickness), RT = size_product(to_size(source.num_reflex), T);
    dest = source;
    dest.reflex_sel = arrays.reflex_sel;
    dest.scale_factor = arrays.scale_factor;
    dest.scale_fitpar = arrays.scale_fitpar;
    dest.thickness = arrays.thickness;
    dest.thickness_fitpar = arrays.thickness_fitpar;
    dest.thickness_width = arrays.thickness_width;
    dest.thickness_width_fitpar = arrays.thickness_width_fitpar;
    dest.num_avrpix = arrays.num_avrpix;
    dest.avrpix_wt = arrays.avrpix_wt;
    dest.gaussian_par = arrays.gaussian_par;
    dest.g_len = arrays.g_len;
    dest.weight = arrays.weight;
    dest.H_shift = arrays.H_shift;
    dest.H_shift_fitpar = arrays.H_shift_fitpar;
    dest.G_shift = arrays.G_shift;
    dest.G_shift_fitpar = arrays.G_shift_fitpar;

    if (method_of(source.beam_search.flag_bs) == method_manual)
        copy_array(to_size(source.num_exact_beam + source.num_bethe_beam), source.reflex_sel, dest.reflex_sel);
    copy_array(T, source.scale_factor, dest.scale_factor);
    copy_array(T, source.scale_fitpar, dest.scale_fitpar);
    copy_array(T, source.thickness, dest.thickness);
    copy_array(T, source.thickness_fitpar, dest.thickness_fitpar);
    copy_array(T, source.thickness_width, dest.thickness_width);
    copy_array(T, source.thickness_width_fitpar, dest.thickness_width_fitpar);
    copy_array(T, source.num_avrpix, dest.num_avrpix);
    copy_array(T, source.gaussian_par, dest.gaussian_par);
    copy_array(to_size(source.num_reflex), source.g_len, dest.g_len);
    copy_array(RT, source.weight[0], dest.weight[0]);
    copy_array(RT, source.H_shift[0], dest.H_shift[0]);
    copy_array(RT, source.H_shift_fitpar[0], dest.H_shift_fitpar[0]);
    copy_array(RT, source.G_shift[0], dest.G_shift[0]);
    copy_array(RT, source.G_shift_fitpar[0], dest.G_shift_fitpar[0]);
}

void cpy_fed(int num_fed, const fed* source, fed* dest) {
    for (int i = 0; i < num_fed; ++i) {
        copy_set(source[i], dest[i]);
        for (int t = 0; t < dest[i].num_thickness; ++t) {
            const std::size_t side = to_size(dest[i].num_avrpix[t]);
            free_matrix(dest[i].avrpix_wt[t]);
            dest[i].avrpix_wt[t] = new_matrix<double>(side, side);
            calc_avrpix_wt(dest[i].num_avrpix[t], dest[i].avrpix_wt[t], dest[i].gaussian_par[t]);
        }
    }
}

// ---- intensities ----------------------------------------------------------------------------

void alloc_ei_obs(ei& e) {
    const std::size_t R = to_size(e.num_reflex), T = to_size(e.num_thickness), points = to_size(e.num_obs_pix);
    e.reflex_hkl = new_vector<hkl>(R);
    e.obs_pixel = new_vector<pixel>(points);
    e.obs_raw = new_tensor<double>(R, T, points);
    e.sig_raw = new_tensor<double>(R, T, points);
}

void alloc_ei_grid(ei& e) {
    const std::size_t R = to_size(e.num_reflex), T = to_size(e.num_thickness), P = to_size(e.num_pix);
    e.pixel = new_vector<pixel>(P);
    e.cal = new_tensor<double>(R, T, P);
    e.obs = new_tensor<double>(R, T, P);
    e.sig = new_tensor<double>(R, T, P);
    for (std::size_t i = 0; i < R * T * P; ++i)
        e.sig[0][0][i] = not_measured;
}

void alloc_ei(int num_reflex, int num_thickness, ei& intensity) {
    intensity.num_reflex = num_reflex;
    intensity.num_thickness = num_thickness;
    alloc_ei_obs(intensity);
    alloc_ei_grid(intensity);
}

void free_ei(ei& e) {
    std::free(e.reflex_hkl);
    std::free(e.obs_pixel);
    free_tensor(e.obs_raw);
    free_tensor(e.sig_raw);
    std::free(e.pixel);
    free_tensor(e.cal);
    free_tensor(e.obs);
    free_tensor(e.sig);
}

void free_fei_vector(int num_fed, ei* intensities) {
    for (int i = 0; i < num_fed; ++i)
        free_ei(intensities[i]);
    std::free(intensities);
}

// ---- crystals -------------------------------------------------------------------------------

void alloc_csd(int num_sym_op, int num_site, int num_lofg, csd& crystal) {
    crystal = {};
    crystal.num_sym_op = num_sym_op;
    crystal.num_site = num_site;
    crystal.num_lofg = num_lofg;
    crystal.sym_op = new_vector<sym_op>(to_size(num_sym_op));
    crystal.site = new_vector<atom>(to_size(num_site));
    crystal.site_fitpar = new_vector<atom_fitpar>(to_size(num_site));
    crystal.xdt = new_vector<xdt_tbl>(to_size(num_site));
    crystal.bk = new_vector<bk_tbl>(to_size(num_site));
    if (num_lofg < 1)
        return;
    crystal.lofg_hkl = new_vector<hkl>(to_size(num_lofg));
    crystal.lofg = new_vector<lofg_value>(to_size(num_lofg));
    crystal.lofg_fitpar = new_vector<lofg_fitpar_set>(to_size(num_lofg));
}

static void copy_lofg(int num_site, const lofg_value& source, const lofg_fitpar_set& source_fitpar,
                      lofg_value& dest, lofg_fitpar_set& dest_fitpar) {
    const lofg_value arrays = dest;
    const lofg_fitpar_set fitpar_arrays = dest_fitpar;
    dest = source;
    dest_fitpar = source_fitpar;
    dest.f_ela = arrays.f_ela;
    dest.f_inela = arrays.f_inela;
    dest_fitpar.f_ela = fitpar_arrays.f_ela;
    dest_fitpar.f_inela = fitpar_arrays.f_inela;
    const std::size_t n = source.f_ela != nullptr ? to_size(num_site) : 0;
    copy_array(n, source.f_ela, dest.f_ela);
    copy_array(n, source.f_inela, dest.f_inela);
    copy_array(n, source_fitpar.f_ela, dest_fitpar.f_ela);
    copy_array(n, source_fitpar.f_inela, dest_fitpar.f_inela);
}

void cpy_csd(const csd& source, csd& dest) {
    const csd arrays = dest; // owner of the arrays of dest
    dest = source;
    dest.sym_op = arrays.sym_op;
    dest.site = arrays.site;
    dest.site_fitpar = arrays.site_fitpar;
    dest.xdt = arrays.xdt;
    dest.bk = arrays.bk;
    dest.lofg_hkl = arrays.lofg_hkl;
    dest.lofg = arrays.lofg;
    dest.lofg_fitpar = arrays.lofg_fitpar;
    const std::size_t sites = to_size(source.num_site);
    copy_array(to_size(source.num_sym_op), source.sym_op, dest.sym_op);
    copy_array(sites, source.site, dest.site);
    copy_array(sites, source.site_fitpar, dest.site_fitpar);
    copy_array(sites, source.xdt, dest.xdt);
    copy_array(sites, source.bk, dest.bk);
    for (int i = 0; i < source.num_lofg; ++i) {
        dest.lofg_hkl[i] = source.lofg_hkl[i];
        copy_lofg(source.num_site, source.lofg[i], source.lofg_fitpar[i], dest.lofg[i], dest.lofg_fitpar[i]);
    }
}

} // namespace orvel
