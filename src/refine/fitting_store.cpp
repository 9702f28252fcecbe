// SPDX-License-Identifier: MIT
#include "refine/fitting.h"

#include <cstdlib>

#include "numeric/vecmat.h"
#include "refine/fitfunc.h"

namespace orvel {

// ---- data sets ------------------------------------------------------------------------------

// The arrays of a data set by their shapes: a place for each thickness, for each reflection, and
// [reflection][thickness]. The averaging kernels and the beam list have sizes of their own.
static constexpr auto by_thickness = std::make_tuple(
    &fed::scale_factor, &fed::scale_fitpar, &fed::thickness, &fed::thickness_fitpar, &fed::thickness_width,
    &fed::thickness_width_fitpar, &fed::num_avrpix, &fed::gaussian_par);
static constexpr auto by_reflection = std::make_tuple(&fed::g_len);
static constexpr auto by_both = std::make_tuple(
    &fed::weight, &fed::H_shift, &fed::H_shift_fitpar, &fed::G_shift, &fed::G_shift_fitpar);

template <class T>
static void alloc_vector(std::size_t n, T*& array) {
    array = new_vector<T>(n);
}

template <class T>
static void alloc_matrix(std::size_t rows, std::size_t columns, T**& array) {
    array = new_matrix<T>(rows, columns);
}

void alloc_ed_arrays(fed& set) {
    const std::size_t T = to_size(set.num_thickness), R = to_size(set.num_reflex);
    each_array(by_thickness, [&](auto array) { alloc_vector(T, set.*array); });
    each_array(by_reflection, [&](auto array) { alloc_vector(R, set.*array); });
    each_array(by_both, [&](auto array) { alloc_matrix(R, T, set.*array); });
    set.avrpix_wt = new_vector<double**>(T);
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
    for (int t = 0; t < set.num_thickness && set.avrpix_wt != nullptr; ++t)
        free_matrix(set.avrpix_wt[t]);
    std::free(set.avrpix_wt);
    each_array(by_thickness, [&](auto array) { std::free(set.*array); });
    each_array(by_reflection, [&](auto array) { std::free(set.*array); });
    each_array(by_both, [&](auto array) { free_matrix(set.*array); });
}

void free_fed_vector(int num_fed, fed* sets) {
    for (int i = 0; i < num_fed; ++i)
        free_ed(sets[i]);
    std::free(sets);
}

static void copy_set(const fed& source, fed& dest) {
    const fed owner = dest; // of the arrays of dest
    const std::size_t T = to_size(source.num_thickness), R = to_size(source.num_reflex), RT = size_product(R, T);
    dest = source;
    dest.reflex_sel = owner.reflex_sel;
    dest.avrpix_wt = owner.avrpix_wt;
    each_array(by_thickness, [&](auto array) { copy_array(T, source.*array, dest.*array = owner.*array); });
    each_array(by_reflection, [&](auto array) { copy_array(R, source.*array, dest.*array = owner.*array); });
    each_array(by_both, [&](auto array) {
        dest.*array = owner.*array;
        copy_array(RT, (source.*array)[0], (dest.*array)[0]);
    });
    if (method_of(source.beam_search.flag_bs) == method_manual)
        copy_array(to_size(source.num_exact_beam + source.num_bethe_beam), source.reflex_sel, dest.reflex_sel);
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

} // namespace orvel
