// SPDX-License-Identifier: MIT
#include "crystal/atomf.h"

#include <cmath>
#include <cstring>

#include "control/ov_debug.h"
#include "control/ov_input.h"
#include "control/settings.h"
#include "control/utils.h"

namespace orvel {

static const char* const xdt_file_name = "orvelxdt.dat";

// The numbers of a row behind its name; false if one is missing.
static bool parse_row(char* numbers, xdt_tbl& row) {
    double v[10];
    if (str_to_fs(10, rm_cr(numbers), v) < 10)
        return false;
    row = {v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[0]};
    return true;
}

xdt_tbl read_xdt_table(char* element) {
    element[std::strcspn(element, separators)] = '\0';
    std::FILE* file = fopen_chk_rmode(xdt_file_name);
    char line[table_line_max];
    while (comment_skip_fgets(table_line_max, line, file) != nullptr) {
        char* begin = line + std::strspn(line, separators);
        const std::size_t length = std::strcspn(begin, separators);
        if (length != std::strlen(element) || std::strncmp(begin, element, length) != 0)
            continue;
        xdt_tbl row;
        if (!parse_row(begin + length, row))
            table_format_error(xdt_file_name);
        std::fclose(file);
        return row;
    }
    error_exit(stdout, "not found the element (%s) in read_xdt_table", element);
}

double atomsf_xdt(double sq_s, const xdt_tbl& xdt) {
    // m0 e^2 / (8 pi^2 eps0 hbar^2) in 1/angstrom, times the square angstrom of 1/s^2; the limit
    // carries one digit less, as it always did in this program.
    const double mott = 0.02393367;
    const double mott_limit = 0.023934;

    if (sq_s > epsilon.general_eps) {
        // At small angles the terms cancel: their order is part of the result.
        double rest = xdt.z - xdt.a1 * std::exp(-xdt.b1 * sq_s) - xdt.a2 * std::exp(-xdt.b2 * sq_s);
        rest = rest - xdt.a3 * std::exp(-xdt.b3 * sq_s) - xdt.a4 * std::exp(-xdt.b4 * sq_s) - xdt.c;
        return mott * rest / sq_s;
    }
    if (sq_s >= 0.0)
        return mott_limit * (xdt.a1 * xdt.b1 + xdt.a2 * xdt.b2 + xdt.a3 * xdt.b3 + xdt.a4 * xdt.b4);
    error_exit(stdout, "atomsf_dtxn (sq_s=%g)", sq_s);
}

} // namespace orvel
