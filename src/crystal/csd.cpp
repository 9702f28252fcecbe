// SPDX-License-Identifier: MIT
#include "crystal/csd.h"

#include <algorithm>
#include <cstdlib>

#include "numeric/vecmat.h"

namespace orvel {

lattice lattice_of(const csd& crystal) {
    return bravai(crystal.a, crystal.b, crystal.c, crystal.alpha, crystal.beta, crystal.gamma);
}

// ---- storage --------------------------------------------------------------------------------

// The arrays of num_site and of num_lofg places.
static constexpr auto site_arrays = std::make_tuple(&csd::site, &csd::site_fitpar, &csd::xdt, &csd::bk);
static constexpr auto lofg_arrays = std::make_tuple(&csd::lofg_hkl, &csd::lofg, &csd::lofg_fitpar);

// Those of a low-order entry, of num_site places; null for the kinds without.
static constexpr auto factors = std::make_tuple(&lofg_value::f_ela, &lofg_value::f_inela);
static constexpr auto factor_fitpars = std::make_tuple(&lofg_fitpar_set::f_ela, &lofg_fitpar_set::f_inela);

template <class T>
static void alloc_array(int n, T*& array) {
    array = new_vector<T>(to_size(n));
}

void alloc_csd_sites(int num_site, csd& crystal) {
    crystal.num_site = num_site;
    each_array(site_arrays, [&](auto array) { alloc_array(num_site, crystal.*array); });
}

void alloc_csd_lofg(int num_lofg, csd& crystal) {
    crystal.num_lofg = num_lofg;
    each_array(lofg_arrays, [&](auto array) { alloc_array(num_lofg, crystal.*array); });
}

void alloc_csd(int num_sym_op, int num_site, int num_lofg, csd& crystal) {
    crystal = {};
    crystal.num_sym_op = num_sym_op;
    alloc_array(num_sym_op, crystal.sym_op);
    alloc_csd_sites(num_site, crystal);
    if (num_lofg > 0)
        alloc_csd_lofg(num_lofg, crystal);
}

static bool has_site_factors(int lof_type) { return lof_type == lof_f || lof_type == lof_f_inela; }

void alloc_csd_sub_cstr(int num_site, int num_lofg, int lof_type, csd& crystal) {
    for (int i = 0; i < num_lofg && has_site_factors(lof_type); ++i) {
        each_array(factors, [&](auto array) { alloc_array(num_site, crystal.lofg[i].*array); });
        each_array(factor_fitpars, [&](auto array) { alloc_array(num_site, crystal.lofg_fitpar[i].*array); });
    }
}

// Copies a record but for some arrays, which dest keeps and whose n places are copied.
template <class Record, class Arrays>
static void copy_record(std::size_t n, const Arrays& arrays, const Record& source, Record& dest) {
    const Record owner = dest;
    dest = source;
    each_array(arrays, [&](auto array) { copy_array(n, source.*array, dest.*array = owner.*array); });
}

void cpy_csd(const csd& source, csd& dest) {
    const csd owner = dest;
    copy_record(to_size(source.num_site), site_arrays, source, dest);
    copy_array(to_size(source.num_sym_op), source.sym_op, dest.sym_op = owner.sym_op);
    each_array(lofg_arrays, [&](auto array) { dest.*array = owner.*array; });
    const int num_factors = has_site_factors(source.lof_type) ? source.num_site : 0;
    for (int i = 0; i < source.num_lofg; ++i) {
        dest.lofg_hkl[i] = source.lofg_hkl[i];
        copy_record(to_size(num_factors), factors, source.lofg[i], dest.lofg[i]);
        copy_record(to_size(num_factors), factor_fitpars, source.lofg_fitpar[i], dest.lofg_fitpar[i]);
    }
}

void free_csd(csd& crystal) {
    std::free(crystal.sym_op);
    each_array(site_arrays, [&](auto array) { std::free(crystal.*array); });
    if (crystal.num_lofg < 1)
        return;
    for (int i = 0; i < crystal.num_lofg && has_site_factors(crystal.lof_type); ++i) {
        each_array(factors, [&](auto array) { std::free(crystal.lofg[i].*array); });
        each_array(factor_fitpars, [&](auto array) { std::free(crystal.lofg_fitpar[i].*array); });
    }
    each_array(lofg_arrays, [&](auto array) { std::free(crystal.*array); });
}

// ---- the enumeration of the values ----------------------------------------------------------

static const struct {
    double csd::*value;
    const char* label;
} cell_rows[] = {
    {&csd::a, "a[A]"},
    {&csd::b, "b[A]"},
    {&csd::c, "c[A]"},
    {&csd::alpha, "alpha[deg.]"},
    {&csd::beta, "beta[deg.]"},
    {&csd::gamma, "gamma[deg.]"},
};
static const int num_cell_values = 6;

static const struct {
    double atom::*value;
    atom_slot slot;
    const char* label;
} site_rows[] = {
    {&atom::x, slot_x, "x (frac. coord.)"},
    {&atom::y, slot_y, "y (frac. coord.)"},
    {&atom::z, slot_z, "z (frac. coord.)"},
    {&atom::B, slot_B, "B [A^{2}]"},
    {&atom::beta11, slot_beta11, "beta11"},
    {&atom::beta22, slot_beta22, "beta22"},
    {&atom::beta33, slot_beta33, "beta33"},
    {&atom::beta12, slot_beta12, "beta12"},
    {&atom::beta13, slot_beta13, "beta13"},
    {&atom::beta23, slot_beta23, "beta23"},
    {&atom::occupancy, slot_occupancy, "occupancy (0-1)"},
};
static const int occupancy_row = num_atom_slots - 1;

int site_part(int i) { return cell_part + 1 + i; }

int lofg_part(const csd& crystal, int i) { return site_part(std::max(crystal.num_site, 0)) + i; }

int num_parts(const csd& crystal) { return lofg_part(crystal, std::max(crystal.num_lofg, 0)); }

static bool known_kind(int lof_type) { return lof_type >= lof_fg && lof_type < lof_reserved; }

int num_values(const csd& crystal, int part) {
    if (part == cell_part)
        return num_cell_values;
    if (part < lofg_part(crystal, 0)) // one of B and the tensor is not there
        return crystal.site[part - site_part(0)].bf == 1 ? num_atom_slots - 1 : temperature_place + 2;
    if (has_site_factors(crystal.lof_type))
        return 2 * crystal.num_site;
    return known_kind(crystal.lof_type) ? 2 : 1;
}

static csd_value site_value(csd& crystal, int i, int n) {
    atom& site = crystal.site[i];
    if (n == temperature_place && site.bf != 0 && site.bf != 1)
        return {nullptr, nullptr, nullptr};
    int row = n;
    if (n >= temperature_place && site.bf == 1) // B is left out
        row = n + 1;
    else if (n > temperature_place) // the tensor is
        row = occupancy_row;
    const auto& entry = site_rows[row];
    return {&(site.*entry.value), &crystal.site_fitpar[i].slot[entry.slot], entry.label};
}

static csd_value lofg_value_of(csd& crystal, int i, int n) {
    if (!known_kind(crystal.lof_type))
        return {nullptr, nullptr, nullptr};
    lofg_value& v = crystal.lofg[i];
    lofg_fitpar_set& d = crystal.lofg_fitpar[i];
    const bool first = n % 2 == 0;
    const int site = n / 2;
    if (crystal.lof_type == lof_fg)
        return first ? csd_value{&v.fg_re, &d.fg_re, "Fg.re [A]"} : csd_value{&v.fg_im, &d.fg_im, "Fg.im [A]"};
    if (crystal.lof_type == lof_fg_ela)
        return first ? csd_value{&v.fg_ela_re, &d.fg_ela_re, "Fg_ela.re [A]"}
                     : csd_value{&v.fg_ela_im, &d.fg_ela_im, "Fg_ela.im [A]"};
    return first ? csd_value{&v.f_ela[site], &d.f_ela[site], "f_ela [A]"}
                 : csd_value{&v.f_inela[site], &d.f_inela[site], "f_inela [A]"};
}

csd_value value_of(csd& crystal, int part, int n) {
    if (part == cell_part)
        return {&(crystal.*cell_rows[n].value), &crystal.lp_fitpar[n], cell_rows[n].label};
    if (part < lofg_part(crystal, 0))
        return site_value(crystal, part - site_part(0), n);
    return lofg_value_of(crystal, part - lofg_part(crystal, 0), n);
}

} // namespace orvel
