// SPDX-License-Identifier: MIT
//
// The crystals that the benchmarks compute with, read as the program reads them: gallium arsenide
// and silicon of the examples, and spinel; the space group of the last two has 192 operations.
#pragma once

#include <cstdio>
#include <string>

#include "jobs/ov_sim_record.h"
#include "openblas.h"

namespace orvel_bench {

// Text of the crystal block of a file, whose name begins at the root of the project.
std::string crystal_block(const std::string& name);
constexpr const char* gaas_file = "/examples/gaas_bloch/gaas.dat";
constexpr const char* silicon_file = "/examples/silicon_cbed/silicon.dat";
constexpr const char* spinel_file = "/bench/spinel.dat";

// The settings block that goes in front: all defaults.
constexpr const char* default_settings = "EPS_CONTROL_PARAMETERS{\n}EPS_CONTROL_PARAMETERS\n";

// The line of a reflection in a list of beams.
std::string index_line(orvel::hkl g);

// The crystal of such a text. Sets epsilon to its defaults.
orvel::csd read_crystal(std::string text);

// A stream over a text, which must stay.
std::FILE* open_text(std::string& text);

// The reflections of Laue zones 0 to lz_max within g_max that the lattice allows, by growing |g|; a
// new array of at least n.
orvel::hkl* innermost_beams(int n, double g_max, int lz_max, orvel::uvw zone_uvw, orvel::r_hkl zolzbase1,
                            orvel::csd& crystal, double kv);

// A job's conditions with all that a tilt needs.
struct zone {
    orvel::csd crystal;
    orvel::sd cond;
    orvel::complex** vg;
    orvel::tilt_problem problem; // of all beams as exact ones
    orvel::r_hkl K_t;            // away from every symmetry
};

// Gallium arsenide along [1 1 0] at 100 kV with its 300 innermost beams, 20 of them for output. Read
// once.
constexpr int zone_beams = 300;
zone& gaas_zone();

// The problem with other counts: the first exact beams of the list, the next Bethe beams.
orvel::tilt_problem problem_of(int num_exact, int num_bethe);

// Structure matrix of the first n beams at K_t, a new matrix; the beams themselves stand in work.
orvel::complex** new_structure_matrix(int n);

// Eigenvectors of that matrix, [row][column], a new matrix.
orvel::complex** new_eigenvectors(int n);

// The n x n block of a matrix that begins at (first, first), a new matrix.
orvel::complex** new_block(int first, int n, const orvel::complex* const* matrix);

} // namespace orvel_bench
