// SPDX-License-Identifier: MIT
//
// Sums of plane waves at evenly spaced points. A wave at point j of a run is that at its first point
// times exp(i j step). These factors are tabled once for all runs of one spacing, so that a run
// needs one exponential per wave instead of one per wave and point.
#pragma once

#include "numeric/complex.h"

namespace orvel {

constexpr int wave_run_max = 64; // points of a run: its exponentials then hardly count

// Factors of n waves at the points of a run, [wave][point]; real and imaginary parts apart, so that
// neighbouring points share a vector register.
struct wave_table {
    int n;
    int width; // points of a full run
    double **re, **im;
};

// The table for runs through num_points points; shorter runs if n is large, so that the table stays
// in the second cache. step[wave] is the phase between neighbouring points in radians.
wave_table new_wave_table(int n, const double* step, int num_points);
void free_wave_table(wave_table& table);

// values[j] = sum over waves of amplitude exp(i j step) for the first count points of a run. Each
// sum runs in the order of the waves. amplitude is the wave at the first point.
void sum_waves(const wave_table& table, const complex* amplitude, int count, complex* values);

} // namespace orvel
