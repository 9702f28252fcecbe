// SPDX-License-Identifier: MIT
//
// Potentials and maps by the plain reading of their formulas, to measure the program's forms
// against: every structure factor a sum over all operations with a sine and a cosine each, the stock
// searched from its front, every point of a map a sum of exponentials.
#pragma once

#include <cstdio>
#include <vector>

#include "crystal/strct_f_stock.h"
#include "jobs/ov_sim_record.h"

namespace orvel_bench {

// A stock of structure factors in the order of their arrival.
struct plain_stock {
    int count;
    std::vector<orvel::hkl> g;
    std::vector<orvel::complex> fg;
};
plain_stock new_plain_stock();

// Total structure factor, and the elastic one, through a stock.
orvel::complex plain_fg(orvel::hkl g, orvel::csd& crystal, double kv, orvel::lattice lat, plain_stock& stock);
orvel::complex plain_elastic_fg(orvel::hkl g, orvel::csd& crystal, double kv, orvel::lattice lat, plain_stock& stock);

// Potentials of all differences of n beams, row by row.
std::vector<orvel::complex> plain_potentials(int n, const orvel::hkl* beams, orvel::csd& crystal, double kv);

// Potentials and X-ray structure factors of n reflections.
void plain_coefficients(int n, const orvel::hkl* beams, orvel::csd& crystal, double kv,
                        orvel::complex* vg, orvel::complex* xg);

// Potentials of the beams of a job.
std::vector<orvel::complex> plain_list(const orvel::sd& cond, orvel::csd& crystal);

// Projected potential on the points of cond, row by row.
std::vector<orvel::complex> plain_map(const orvel::sd& cond, const orvel::complex* vg);

// The rows of its table.
void print_plain_map(const orvel::sd& cond, const std::vector<orvel::complex>& map, std::FILE* table);

} // namespace orvel_bench
