// SPDX-License-Identifier: MIT
#include "refine/fitfunc.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "crystal/cnstfunc.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- lists of values ------------------------------------------------------------------------

static void append(fit_value_list& list, double& value, fitpar& descriptor, fit_value_kind kind,
                   int set, int t, int r) {
    list.at[list.count++] = {&value, &descriptor, kind, set, t, r};
}

static void append_part(fit_value_list& list, csd& crystal, int part) {
    for (int n = 0; n < num_values(crystal, part); ++n) {
        const csd_value v = value_of(crystal, part, n);
        if (v.value != nullptr)
            append(list, *v.value, *v.descriptor, value_crystal, -1, -1, -1);
        else if (part >= lofg_part(crystal, 0))
            ov_abort(stdout, "$$ Invalid lof_type %d. Abort.\n", crystal.lof_type);
    }
}

fit_value_list list_csd_values(csd& crystal) {
    std::size_t capacity = 0;
    for (int part = cell_part; part < num_parts(crystal); ++part)
        capacity += to_size(num_values(crystal, part));
    fit_value_list list = {0, new_vector<fit_value>(capacity)};
    append_part(list, crystal, cell_part);
    for (int i = 0; i < crystal.num_site; ++i) {
        append_part(list, crystal, site_part(i));
        // Numbers go by slot: beta23 comes before beta13, both in front of the occupancy.
        if (crystal.site[i].bf == 1)
            std::swap(list.at[list.count - 3], list.at[list.count - 2]);
    }
    for (int i = 0; i < crystal.num_lofg; ++i)
        append_part(list, crystal, lofg_part(crystal, i));
    return list;
}

fit_value_list list_fed_values(int num_fed, fed* sets) {
    std::size_t capacity = 0;
    for (int i = 0; i < num_fed; ++i)
        capacity += 3 + size_product(to_size(sets[i].num_thickness), 3 + 2 * to_size(sets[i].num_reflex));
    fit_value_list list = {0, new_vector<fit_value>(capacity)};
    for (int i = 0; i < num_fed; ++i) {
        fed& set = sets[i];
        append(list, set.h_tilt, set.h_tilt_fitpar, value_condition, i, -1, -1);
        append(list, set.g_tilt, set.g_tilt_fitpar, value_condition, i, -1, -1);
        append(list, set.kv, set.kv_fitpar, value_condition, i, -1, -1);
        for (int t = 0; t < set.num_thickness; ++t) {
            append(list, set.scale_factor[t], set.scale_fitpar[t], value_scale, i, t, -1);
            append(list, set.thickness[t], set.thickness_fitpar[t], value_thickness, i, t, -1);
            append(list, set.thickness_width[t], set.thickness_width_fitpar[t], value_width, i, t, -1);
            for (int r = 0; r < set.num_reflex; ++r) {
                append(list, set.H_shift[r][t], set.H_shift_fitpar[r][t], value_H_shift, i, t, r);
                append(list, set.G_shift[r][t], set.G_shift_fitpar[r][t], value_G_shift, i, t, r);
            }
        }
    }
    return list;
}

// Both lists one behind the other: the order of the numbering.
static fit_value_list list_all_values(csd& crystal, int num_fed, fed* sets) {
    fit_value_list crystal_list = list_csd_values(crystal);
    fit_value_list fed_list = list_fed_values(num_fed, sets);
    fit_value_list list = {0, new_vector<fit_value>(to_size(crystal_list.count) + to_size(fed_list.count))};
    for (int i = 0; i < crystal_list.count; ++i)
        list.at[list.count++] = crystal_list.at[i];
    for (int i = 0; i < fed_list.count; ++i)
        list.at[list.count++] = fed_list.at[i];
    std::free(crystal_list.at);
    std::free(fed_list.at);
    return list;
}

// ---- constraints over data sets -------------------------------------------------------------

double val_search_fed(const char* name, int num_fed, fed* sets) {
    fit_value_list list = list_fed_values(num_fed, sets);
    for (int i = 0; i < list.count; ++i) {
        if (std::strcmp(list.at[i].descriptor->id, name) == 0) {
            const double value = *list.at[i].value;
            std::free(list.at);
            return value;
        }
    }
    ov_error_exit(stdout, "(val_search_fed) constraint %s not found", name);
}

double val_trans_fed(const char* token, int num_fed, fed* sets) {
    double value;
    return number_token(token, value) ? value : val_search_fed(token, num_fed, sets);
}

double constraint_value_fed(const char* expr, int num_fed, fed* sets) {
    expression e = begin_expression(expr);
    char token[expr_max];
    while (next_token(e, token))
        take_token_value(e, val_trans_fed(token, num_fed, sets));
    return e.sum;
}

void constraint_fed(int num_fed, fed* sets) {
    fit_value_list list = list_fed_values(num_fed, sets);
    for (int i = 0; i < list.count; ++i)
        if (list.at[i].descriptor->idx == kind_cst)
            *list.at[i].value = constraint_value_fed(list.at[i].descriptor->val_str, num_fed, sets);
    std::free(list.at);
}

// ---- numbering ------------------------------------------------------------------------------

void chk_fitpar(int idx, int& ntp, int& next, int& num_rst) {
    ntp = -1;
    if (idx != kind_adj && idx != kind_rst)
        return;
    ntp = next++;
    if (idx == kind_rst)
        ++num_rst;
}

static void number_values(const fit_value_list& list, int& next, int& num_rst) {
    for (int i = 0; i < list.count; ++i) {
        fitpar& descriptor = *list.at[i].descriptor;
        if (descriptor.idx == kind_rst && descriptor.rst == 0.0)
            ov_abort(stdout, "$$ Restraint width of %s is 0. Abort.\n", descriptor.id);
        chk_fitpar(descriptor.idx, descriptor.ntp, next, num_rst);
    }
}

// Data sets are counted by scale, thickness and shifts alone, and one for each set.
static int fed_value_slots(int num_fed, const fed* sets) {
    int slots = 0;
    for (int i = 0; i < num_fed; ++i)
        slots += 1 + sets[i].num_thickness * (2 + 2 * sets[i].num_reflex);
    return slots;
}

void count_num_fitpar(csd& crystal, int num_fed, fed* sets, int& num_fitpar, int& num_value_slots,
                      int& num_csd_fitpar, int& num_rst_fitpar) {
    num_fitpar = num_rst_fitpar = 0;
    fit_value_list crystal_list = list_csd_values(crystal);
    number_values(crystal_list, num_fitpar, num_rst_fitpar);
    num_csd_fitpar = num_fitpar;
    num_value_slots = crystal_list.count + fed_value_slots(num_fed, sets);
    fit_value_list fed_list = list_fed_values(num_fed, sets);
    number_values(fed_list, num_fitpar, num_rst_fitpar);
    std::free(crystal_list.at);
    std::free(fed_list.at);
}

// ---- the vector -----------------------------------------------------------------------------

void csd_fed_to_fitpar(csd& crystal, int num_fed, fed* sets, int /*num_fitpar*/, double* par) {
    fit_value_list list = list_all_values(crystal, num_fed, sets);
    for (int i = 0; i < list.count; ++i)
        if (list.at[i].descriptor->ntp >= 0)
            par[list.at[i].descriptor->ntp] = *list.at[i].value;
    std::free(list.at);
}

void fitpar_to_csd_fed(csd& crystal, int num_fed, fed* sets, int /*num_fitpar*/, const double* par) {
    fit_value_list list = list_all_values(crystal, num_fed, sets);
    for (int i = 0; i < list.count; ++i)
        if (list.at[i].descriptor->ntp >= 0)
            *list.at[i].value = par[list.at[i].descriptor->ntp];
    std::free(list.at);
}

void fitpar_sigma_to_csd_fed(csd& crystal, int num_fed, fed* sets, int num_fitpar, const double* const* covariance) {
    fit_value_list list = list_all_values(crystal, num_fed, sets);
    for (int i = 0; i < list.count; ++i) {
        const int ntp = list.at[i].descriptor->ntp;
        if (ntp >= 0 && ntp < num_fitpar)
            list.at[i].descriptor->esd = std::sqrt(covariance[ntp][ntp]);
    }
    std::free(list.at);
}

// The search tells of an invalid crystal in the words of the constraint search.
static void chk_searchable(csd& crystal) {
    for (int part = cell_part; part < num_parts(crystal); ++part)
        for (int n = 0; n < num_values(crystal, part); ++n)
            if (value_of(crystal, part, n).value == nullptr)
                invalid_kind(crystal, part, "invalid bf");
}

fitpar search_csd_fed(int ntp, csd& crystal, int num_fed, fed* sets) {
    chk_searchable(crystal);
    fit_value_list list = list_all_values(crystal, num_fed, sets);
    for (int i = 0; i < list.count && num_fed > 0; ++i) {
        if (list.at[i].descriptor->ntp == ntp) {
            const fitpar found = *list.at[i].descriptor;
            std::free(list.at);
            return found;
        }
    }
    ov_error_exit(stdout, "(search_csd_fed) invalid ntp=%d", ntp);
}

// ---- steps ----------------------------------------------------------------------------------

double eval_step(double value) { return std::fmax(std::fabs(value) * epsilon.perturb_step, epsilon.general_eps); }

void set_csd_fed_step(csd& crystal, int num_fed, fed* sets) {
    fit_value_list list = list_all_values(crystal, num_fed, sets);
    for (int i = 0; i < list.count; ++i)
        if (list.at[i].kind != value_width)
            list.at[i].descriptor->step = eval_step(*list.at[i].value);
    std::free(list.at);
}

void ith_csd_prtb(int i, int ntp, double& dest, double value, double step) {
    dest = i == ntp ? value + step : value;
}

void make_csd_perturb(int ntp, csd& crystal, csd& perturbed) {
    fit_value_list from = list_csd_values(crystal);
    fit_value_list to = list_csd_values(perturbed);
    for (int i = 0; i < from.count; ++i)
        ith_csd_prtb(from.at[i].descriptor->ntp, ntp, *to.at[i].value, *from.at[i].value, from.at[i].descriptor->step);
    std::free(from.at);
    std::free(to.at);
}

} // namespace orvel
