// SPDX-License-Identifier: MIT
//
// Elastic electron scattering factors and the absorptive factor of thermal diffuse scattering.
// The absorptive factor is a two-dimensional integral over the Einstein model of independent
// isotropic vibrations: C. R. Hall and P. B. Hirsch (1965) Proc. R. Soc. A286, 158-177; D. M. Bird
// and Q. A. King (1990) Acta Cryst. A46, 202-208. s = sin(theta)/lambda in 1/A, B in A^2.
#pragma once

#include "table_io.h"

namespace orvel::tables {

// f(s) = sum_i a_i / (q^2 + b_i) + sum_i c_i exp(-d_i q^2) in angstrom, q = 2 s. The published
// fits have three terms of each kind.
struct elastic_fit {
    int num_lorentz, num_gauss;
    double a[3], b[3];
    double c[4], d[4];
};

// 2 h / (m0 c), twice the Compton wavelength, in angstrom (CODATA 2022): the absorptive factor is
// f' = (tds_scale / beta) J with beta = v / c.
constexpr double tds_scale = 0.0485262047;

// The fit in a line of electron_kirkland.csv.
elastic_fit read_elastic_fit(const csv_table& kirkland, std::size_t row);

// f(s) in angstrom. Beyond the range of the fit (s up to 6) it goes as 1/s^2, as it should.
double elastic_factor(const elastic_fit& fit, double s);

// The limit of s^2 f(s) at large s, in 1/angstrom.
double elastic_limit(const elastic_fit& fit);

// J(s, B), in angstrom^2 / angstrom^2: the integral over the plane of
//   f(|s/2 + s'|) f(|s/2 - s'|) [ 1 - exp(-2 B (s'^2 - s^2/4)) ]
// up to |s'| = 1e4 1/A. The factor exp(-B s^2) of the structure-factor sum is taken out: it may be
// negative at large B s^2. refine multiplies the number of steps (1 is enough for the table).
double tds_integral(const elastic_fit& fit, double s, double B, int refine = 1);

// G(M), the limit of s^2 J(s, M / s^2) / elastic_limit^2 at large s: J of the factor 1/s^2 at s
// = 1.
double tds_limit(double M);

} // namespace orvel::tables
