// SPDX-License-Identifier: MIT
//
// Elastic electron scattering factors from X-ray scattering factors: the rows of orvelxdt.dat
// (four Gaussians and a constant, P. A. Doyle & P. S. Turner, Acta Cryst. A24 (1968) 390, and
// later fits of the same form) and the formula of N. F. Mott (Proc. R. Soc. A127 (1930) 658).
#pragma once

namespace orvel {

// A row: f_x(s) = sum of a_i exp(-b_i s^2) + c, b_i in square angstrom; z is the nuclear charge.
struct xdt_tbl {
    double a1, b1, a2, b2, a3, b3, a4, b4;
    double c;
    double z;
};

// Finds the first row of orvelxdt.dat (working directory) whose name is that of the element. The
// name is cut at its first separator, in place. No such row, or a row without all its ten numbers,
// ends the process.
xdt_tbl read_xdt_table(char* element);

// Elastic factor f (angstrom, not relativistic) at sq_s = (sin(theta)/lambda)^2 in inverse square
// angstrom; below epsilon.general_eps its limit for zero angle. Negative or NaN ends the process.
double atomsf_xdt(double sq_s, const xdt_tbl& xdt);

} // namespace orvel
