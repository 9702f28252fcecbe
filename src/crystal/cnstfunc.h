// SPDX-License-Identifier: MIT
//
// Constraints: values of a crystal that are computed from others. The expression of such a value
// stands in the val_str of its fitpar (control/records.h) and is a sum of products of numbers and
// names, as in =0.5*a0+0.25; it has no parentheses, no division and no operators of its own sign.
#pragma once

#include "control/records.h"
#include "crystal/csd.h"

namespace orvel {

// An expression while it is read: next_token gives its tokens one after the other, and
// take_token_value puts the value of each into the sum. The values come from the caller, who knows
// what the names mean; at the end sum is the value of the expression.
struct expression {
    const char* rest; // text behind the last token's operator
    char operation;   // operator behind the last token; '\0' at the end
    double sum;
    double factor; // product of the tokens of the open term, with its sign
};
expression begin_expression(const char* expr);
bool next_token(expression& e, char* token); // expr_max characters; false behind the last one
void take_token_value(expression& e, double value);

// Value of a token that is no name: 0 for an empty one, or a number. False for a name.
bool number_token(const char* token, double& value);

// Value of an expression whose names are those of the crystal's values. Blanks and '=' are skipped;
// a minus sign closes the product before it, so that a negative factor must stand first.
double constraint_value_csd(const char* expr, csd& crystal);

// Value of one token: 0 if empty, a number if it begins with a digit, else a named value.
double val_trans_csd(const char* token, csd& crystal);

// Current value of the first value with this name, in the order cell, sites, low-order values. An
// unknown name ends the process.
double val_search_csd(const char* name, csd& crystal);

// One sweep in the order of val_search_csd that replaces each value of kind_cst by its expression;
// the parts of the sweep below. An expression sees new values of what comes before it.
void constraint_csd(csd& crystal);
void constraint_csd_lp(csd& crystal);
void constraint_csd_atm(csd& crystal);
void constraint_csd_lofg(csd& crystal);

// Ends the process for a value of an unknown kind in this part: bf_text for a site, else of lof_type.
[[noreturn]] void invalid_kind(const csd& crystal, int part, const char* bf_text);

} // namespace orvel
