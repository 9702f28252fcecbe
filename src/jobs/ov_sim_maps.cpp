// SPDX-License-Identifier: MIT
#include "jobs/ov_sim_maps.h"

#include <algorithm>
#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

double map_coordinate(int i, int n, double first, double last) {
    return n == 1 ? first : first + i * (last - first) / (n - 1);
}

r_uvw map_point(const sd& cond, double x, double y) {
    return {x * cond.base_x1.u + y * cond.base_x2.u,
            x * cond.base_x1.v + y * cond.base_x2.v,
            x * cond.base_x1.w + y * cond.base_x2.w};
}

static double phase_at(r_hkl g, r_uvw r) { return two_pi * (g.h * r.u + g.k * r.v + g.l * r.w); }

complex plane_wave(r_hkl g, r_uvw r) { return c_exp({0.0, phase_at(g, r)}); }

complex plane_wave(hkl g, r_uvw r) { return plane_wave(hkl2rhkl(g.h, g.k, g.l), r); }

map_cursor new_map_cursor(const sd& cond, int n, const hkl* beams, const complex* coef, const complex* coef2) {
    const int num_points = std::max(cond.ny, 1);
    const r_uvw spacing = map_point(cond, 0.0, map_coordinate(1, num_points, 0.0, cond.range_y2 - cond.range_y1));
    double* step = new_vector<double>(to_size(n));
    for (int i = 0; i < n; ++i)
        step[i] = phase_at(hkl2rhkl(beams[i].h, beams[i].k, beams[i].l), spacing);
    const wave_table table = new_wave_table(n, step, num_points);
    complex *first = new_vector<complex>(to_size(n)), *amplitude = new_vector<complex>(to_size(n));
    const map_cursor cursor = {&cond, n, beams, {coef, coef2}, table, first, amplitude, -1, 0, 0, 0, 0, 0, {}, {}};
    std::free(step);
    return cursor;
}

void free_map_cursor(map_cursor& cursor) {
    free_wave_table(cursor.table);
    std::free(cursor.first);
    std::free(cursor.amplitude);
}

bool next_row(map_cursor& cursor) {
    const sd& cond = *cursor.cond;
    if (++cursor.ix >= cond.nx) {
        ov_fprintf(stdout, "100%%.\n");
        return false;
    }
    progress_indicator(cursor.ix, cond.nx);
    cursor.x = map_coordinate(cursor.ix, cond.nx, cond.range_x1, cond.range_x2);
    cursor.iy = -1;
    cursor.run_begin = cursor.run_end = 0;
    return true;
}

// Computes the points from the one at hand on, as many as the table of waves holds.
static void compute_run(map_cursor& cursor) {
    const sd& cond = *cursor.cond;
    const r_uvw r = map_point(cond, cursor.x, cursor.y);
    for (int i = 0; i < cursor.n; ++i)
        cursor.first[i] = plane_wave(cursor.beams[i], r);
    const int count = std::min(cursor.table.width, cond.ny - cursor.iy);
    cursor.run_begin = cursor.iy;
    cursor.run_end = cursor.iy + count;
    for (int s = 0; s < 2 && cursor.coef[s] != nullptr; ++s) {
        for (int i = 0; i < cursor.n; ++i)
            cursor.amplitude[i] = c_mul(cursor.coef[s][i], cursor.first[i]);
        sum_waves(cursor.table, cursor.amplitude, count, cursor.sums[s]);
    }
}

bool next_point(map_cursor& cursor) {
    const sd& cond = *cursor.cond;
    if (++cursor.iy >= cond.ny)
        return false;
    cursor.y = map_coordinate(cursor.iy, cond.ny, cond.range_y1, cond.range_y2);
    if (cursor.iy == cursor.run_end)
        compute_run(cursor);
    for (int s = 0; s < 2; ++s)
        cursor.value[s] = cursor.sums[s][cursor.iy - cursor.run_begin];
    return true;
}

void print_complex_map(const sd& cond, int n, const hkl* beams, const complex* coef, std::FILE* file) {
    map_cursor at = new_map_cursor(cond, n, beams, coef);
    while (next_row(at)) {
        while (next_point(at))
            ov_fprintf(file, "%g\t%g\t%g\t%g\n", at.x, at.y, at.value[0].re, at.value[0].im);
        ov_fprintf(file, "\n");
    }
    free_map_cursor(at);
}

} // namespace orvel
