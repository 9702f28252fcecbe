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

void invalid_kind(const csd& crystal, int part, const char* bf_text) {
    if (part < lofg_part(crystal, 0))
        ov_error_exit(stdout, "%s", bf_text);
    if (crystal.lof_type == lof_reserved)
        ov_error_exit(stdout, "lof_type=5 not available");
    ov_error_exit(stdout, "(fget_low_g_cst) invalid lof_type(=%d)", crystal.lof_type);
}

double val_search_csd(const char* name, csd& crystal) {
    for (int part = cell_part; part < num_parts(crystal); ++part) {
        for (int n = 0; n < num_values(crystal, part); ++n) {
            const csd_value v = value_of(crystal, part, n);
            if (v.value == nullptr)
                invalid_kind(crystal, part, "Invalid bf");
            if (std::strcmp(v.descriptor->id, name) == 0)
                return *v.value;
        }
    }
    ov_error_exit(stdout, "$$ (val_search_csd) constraint %s not found", name);
}

static void constrain_parts(csd& crystal, int begin, int end) {
    for (int part = begin; part < end; ++part) {
        for (int n = 0; n < num_values(crystal, part); ++n) {
            const csd_value v = value_of(crystal, part, n);
            if (v.value == nullptr)
                invalid_kind(crystal, part, "invalid bf");
            if (v.descriptor->idx == kind_cst)
                *v.value = constraint_value_csd(v.descriptor->val_str, crystal);
        }
    }
}

void constraint_csd_lp(csd& crystal) { constrain_parts(crystal, cell_part, site_part(0)); }

void constraint_csd_atm(csd& crystal) { constrain_parts(crystal, site_part(0), lofg_part(crystal, 0)); }

void constraint_csd_lofg(csd& crystal) { constrain_parts(crystal, lofg_part(crystal, 0), num_parts(crystal)); }

void constraint_csd(csd& crystal) {
    constraint_csd_lp(crystal);
    constraint_csd_atm(crystal);
    constraint_csd_lofg(crystal);
}

} // namespace orvel
