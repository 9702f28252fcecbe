// SPDX-License-Identifier: MIT
#include "jobs/ov_sim.h"

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

map_waves new_map_waves(const sd& cond, int n, const hkl* beams) {
    const int num_points = std::max(cond.ny, 1);
    const r_uvw spacing = map_point(cond, 0.0, map_coordinate(1, num_points, 0.0, cond.range_y2 - cond.range_y1));
    double* step = new_vector<double>(to_size(n));
    for (int i = 0; i < n; ++i)
        step[i] = phase_at(hkl2rhkl(beams[i].h, beams[i].k, beams[i].l), spacing);
    const map_waves waves = {&cond, n, beams, new_wave_table(n, step, num_points),
                             new_vector<complex>(to_size(n)), new_vector<complex>(to_size(n)), 0};
    std::free(step);
    return waves;
}

void free_map_waves(map_waves& waves) {
    free_wave_table(waves.table);
    std::free(waves.first);
    std::free(waves.amplitude);
}

int start_run(map_waves& waves, double x, int iy) {
    const sd& cond = *waves.cond;
    const r_uvw r = map_point(cond, x, map_coordinate(iy, cond.ny, cond.range_y1, cond.range_y2));
    for (int i = 0; i < waves.n; ++i)
        waves.first[i] = plane_wave(waves.beams[i], r);
    waves.count = std::min(waves.table.width, cond.ny - iy);
    return waves.count;
}

void sum_run(map_waves& waves, const complex* coef, complex* values) {
    for (int i = 0; i < waves.n; ++i)
        waves.amplitude[i] = c_mul(coef[i], waves.first[i]);
    sum_waves(waves.table, waves.amplitude, waves.count, values);
}

void print_complex_map(const sd& cond, int n, const hkl* beams, const complex* coef, std::FILE* file) {
    map_waves waves = new_map_waves(cond, n, beams);
    complex values[wave_run_max];
    for (int ix = 0; ix < cond.nx; ++ix) {
        progress_indicator(ix, cond.nx);
        const double x = map_coordinate(ix, cond.nx, cond.range_x1, cond.range_x2);
        for (int iy = 0, count; iy < cond.ny; iy += count) {
            count = start_run(waves, x, iy);
            sum_run(waves, coef, values);
            for (int j = 0; j < count; ++j) {
                const double y = map_coordinate(iy + j, cond.ny, cond.range_y1, cond.range_y2);
                ov_fprintf(file, "%g\t%g\t%g\t%g\n", x, y, values[j].re, values[j].im);
            }
        }
        ov_fprintf(file, "\n");
    }
    ov_fprintf(stdout, "100%%.\n");
    free_map_waves(waves);
}

} // namespace orvel
