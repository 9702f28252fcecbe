// SPDX-License-Identifier: MIT
//
// Maps in a plane of the crystal: sums of plane waves at the points x base_x1 + y base_x2 of a job, x
// in the outer loop.
#pragma once

#include <cstdio>

#include "jobs/ov_sim_record.h"
#include "jobs/wave_sums.h"

namespace orvel {

// Coordinate i of n evenly spaced ones from first to last; first if there is only one.
double map_coordinate(int i, int n, double first, double last);

// The point x base_x1 + y base_x2 of a map.
r_uvw map_point(const sd& cond, double x, double y);

// The wave exp(2 pi i g.r).
complex plane_wave(r_hkl g, r_uvw r);
complex plane_wave(hkl g, r_uvw r);

// A walk over the points of a map with the sums of coef exp(2 pi i g.r) over n beams there, one or two of
// them. Neighbouring points of constant x are computed together. Refers to all that it is made with.
struct map_cursor {
    const sd* cond;
    int n;
    const hkl* beams;
    const complex* coef[2]; // n coefficients of each sum; the second may be null
    wave_table table;
    complex* first;     // n waves at the first point of the run
    complex* amplitude; // n, of one sum
    int ix, iy;         // the point at hand
    double x, y;
    int run_begin, run_end; // points along y that are computed
    complex sums[2][wave_run_max];
    complex value[2]; // the sums at the point
};
map_cursor new_map_cursor(const sd& cond, int n, const hkl* beams, const complex* coef, const complex* coef2 = nullptr);
void free_map_cursor(map_cursor& cursor);

// Goes to the next row of constant x, in front of its points; false behind the last one. Progress and its
// end go to the console.
bool next_row(map_cursor& cursor);

// Goes to the next point of the row; false behind the last one.
bool next_point(map_cursor& cursor);

// The map of one sum: rows of x, y, real and imaginary part into file.
void print_complex_map(const sd& cond, int n, const hkl* beams, const complex* coef, std::FILE* file);

} // namespace orvel
