// SPDX-License-Identifier: MIT
#include "crystal/cnstfunc.h"

#include <cstdlib>
#include <cstring>

#include "control/ov_mpi.h"

namespace orvel {

expression begin_expression(const char* expr) { return {expr, '+', 0.0, 1.0}; }

bool next_token(expression& e, char* token) {
    const int longest = 255;
    if (e.operation == '\0')
        return false;
    int length = 0;
    token[0] = '\0';
    for (;; ++e.rest) {
        const char c = *e.rest;
        if (c == ' ' || c == '=')
            continue;
        if (c == '*' || c == '+' || c == '-' || c == '\0') {
            e.operation = c;
            e.rest += c != '\0' ? 1 : 0;
            return true;
        }
        if (length > longest)
            ov_error_exit(stdout, "%s too long", token);
        token[length++] = c;
        token[length] = '\0';
    }
}

void take_token_value(expression& e, double value) {
    e.factor *= value;
    if (e.operation == '*')
        return;
    e.sum += e.factor;
    e.factor = e.operation == '-' ? -1.0 : 1.0;
}

bool number_token(const char* token, double& value) {
    value = 0.0;
    if (token[0] == '\0')
        return true;
    if (token[0] < '0' || token[0] > '9')
        return false;
    value = std::atof(token);
    return true;
}

double val_trans_csd(const char* token, csd& crystal) {
    double value;
    return number_token(token, value) ? value : val_search_csd(token, crystal);
}

double constraint_value_csd(const char* expr, csd& crystal) {
    expression e = begin_expression(expr);
    char token[expr_max];
    while (next_token(e, token))
        take_token_value(e, val_trans_csd(token, crystal));
    return e.sum;
}

// What one sweep over all values does with each of them: compare its name, or replace it.
struct sweep {
    const char* wanted; // name to search; null in a constraint pass
    double found;
    csd* crystal;
};

// Returns true if the value is the wanted one.
static bool visit(sweep& s, double& value, const fitpar& descriptor) {
    if (s.wanted == nullptr) {
        if (descriptor.idx == kind_cst)
            value = constraint_value_csd(descriptor.val_str, *s.crystal);
        return false;
    }
    if (std::strcmp(descriptor.id, s.wanted) != 0)
        return false;
    s.found = value;
    return true;
}

static bool sweep_lp(sweep& s, cell_values values, const fitpar* descriptors) {
    for (int i = 0; i < 6; ++i)
        if (visit(s, *values.value[i], descriptors[i]))
            return true;
    return false;
}

static bool sweep_atm(sweep& s, int num_site, atom* sites, const atom_fitpar* descriptors) {
    for (int i = 0; i < num_site; ++i) {
        for (const atom_value& entry : atom_values) {
            if (entry.slot == slot_B && sites[i].bf != 0 && sites[i].bf != 1)
                ov_error_exit(stdout, "%s", s.wanted != nullptr ? "Invalid bf" : "invalid bf");
            if (entry.only_bf != -1 && entry.only_bf != sites[i].bf)
                continue;
            if (visit(s, sites[i].*entry.value, descriptors[i].slot[entry.slot]))
                return true;
        }
    }
    return false;
}

static bool sweep_lofg(sweep& s, int num_site, int num_lofg, int lof_type,
                       lofg_value* values, const lofg_fitpar_set* descriptors) {
    for (int i = 0; i < num_lofg; ++i) {
        lofg_value& value = values[i];
        const lofg_fitpar_set& descriptor = descriptors[i];
        switch (lof_type) {
        case lof_fg:
            if (visit(s, value.fg_re, descriptor.fg_re) || visit(s, value.fg_im, descriptor.fg_im))
                return true;
            break;
        case lof_fg_ela:
            if (visit(s, value.fg_ela_re, descriptor.fg_ela_re) || visit(s, value.fg_ela_im, descriptor.fg_ela_im))
                return true;
            break;
        case lof_f:
        case lof_f_inela:
            for (int site = 0; site < num_site; ++site)
                if (visit(s, value.f_ela[site], descriptor.f_ela[site]) ||
                    visit(s, value.f_inela[site], descriptor.f_inela[site]))
                    return true;
            break;
        case lof_reserved:
            ov_error_exit(stdout, "lof_type=5 not available");
        default:
            ov_error_exit(stdout, "(fget_low_g_cst) invalid lof_type(=%d)", lof_type);
        }
    }
    return false;
}

double val_search_csd(const char* name, csd& crystal) {
    sweep s = {name, 0.0, &crystal};
    if (sweep_lp(s, cell_of(crystal), crystal.lp_fitpar) ||
        sweep_atm(s, crystal.num_site, crystal.site, crystal.site_fitpar) ||
        sweep_lofg(s, crystal.num_site, crystal.num_lofg, crystal.lof_type, crystal.lofg, crystal.lofg_fitpar))
        return s.found;
    ov_error_exit(stdout, "$$ (val_search_csd) constraint %s not found", name);
}

void constraint_csd_lp(cell_values values, const fitpar* descriptors, csd& crystal) {
    sweep s = {nullptr, 0.0, &crystal};
    sweep_lp(s, values, descriptors);
}

void constraint_csd_atm(int num_site, atom* sites, const atom_fitpar* descriptors, csd& crystal) {
    sweep s = {nullptr, 0.0, &crystal};
    sweep_atm(s, num_site, sites, descriptors);
}

void constraint_csd_lofg(int num_site, int num_lofg, const hkl* /*hkls*/, int lof_type,
                         lofg_value* values, const lofg_fitpar_set* descriptors, csd& crystal) {
    sweep s = {nullptr, 0.0, &crystal};
    sweep_lofg(s, num_site, num_lofg, lof_type, values, descriptors);
}

void constraint_csd(csd& crystal) {
    constraint_csd_lp(cell_of(crystal), crystal.lp_fitpar, crystal);
    constraint_csd_atm(crystal.num_site, crystal.site, crystal.site_fitpar, crystal);
    if (crystal.num_lofg > 0)
        constraint_csd_lofg(crystal.num_site, crystal.num_lofg, crystal.lofg_hkl, crystal.lof_type,
                            crystal.lofg, crystal.lofg_fitpar, crystal);
}

} // namespace orvel
