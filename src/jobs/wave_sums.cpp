// SPDX-License-Identifier: MIT
#include "jobs/wave_sums.h"

#include <algorithm>

#include "numeric/clones.h"
#include "numeric/vecmat.h"

namespace orvel {

static int run_width(int n, int num_points) {
    const int least = 8; // of a long list: below it the vector registers stay empty
    const int table_size = 1 << 16;
    return std::clamp(num_points, 1, std::clamp(table_size / std::max(n, 1), least, wave_run_max));
}

wave_table new_wave_table(int n, const double* step, int num_points) {
    const int width = run_width(n, num_points);
    wave_table table = {n, width, new_matrix<double>(to_size(n), to_size(width)),
                        new_matrix<double>(to_size(n), to_size(width))};
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < width; ++j) {
            const complex factor = c_exp({0.0, j * step[i]});
            table.re[i][j] = factor.re;
            table.im[i][j] = factor.im;
        }
    }
    return table;
}

void free_wave_table(wave_table& table) {
    free_matrix(table.re);
    free_matrix(table.im);
}

ORVEL_VECTOR_CLONES
static void add_waves(const wave_table& table, const complex* amplitude, int count,
                      double* __restrict sum_re, double* __restrict sum_im) {
    for (int i = 0; i < table.n; ++i) {
        const complex a = amplitude[i];
        const double* re = table.re[i];
        const double* im = table.im[i];
        for (int j = 0; j < count; ++j) {
            sum_re[j] += a.re * re[j] - a.im * im[j];
            sum_im[j] += a.re * im[j] + a.im * re[j];
        }
    }
}

void sum_waves(const wave_table& table, const complex* amplitude, int count, complex* values) {
    double sum_re[wave_run_max] = {}, sum_im[wave_run_max] = {};
    add_waves(table, amplitude, count, sum_re, sum_im);
    for (int j = 0; j < count; ++j)
        values[j] = {sum_re[j], sum_im[j]};
}

} // namespace orvel
