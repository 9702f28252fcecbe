// SPDX-License-Identifier: MIT
#include "refine/fitfunc.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "crystal/atom_bk.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- thickness ------------------------------------------------------------------------------

void thickness_step(const fed& set, double* list) {
    for (int t = 0; t < set.num_thickness; ++t) {
        list[t] = set.thickness[t];
        list[set.num_thickness + t] = set.thickness[t] + set.thickness_fitpar[t].step;
    }
}

void thickness_set(const fed& set, int n, double* thick_list) {
    const double no_width = 1e-12; // angstrom
    if (n < 0)
        ov_abort(stdout, "$$ num_thickwidth = %d. Abort.\n", n);
    if (n == 0) {
        thickness_step(set, thick_list);
        return;
    }
    const int group = 2 * n + 1;
    for (int t = 0; t < set.num_thickness; ++t) {
        for (int j = -n; j <= n; ++j) {
            const double width = set.thickness_width[t];
            const double offset = std::fabs(width) < no_width ? 0.0 : width * j / n;
            const double thickness = offset + set.thickness[t];
            thick_list[t * group + n + j] = thickness;
            thick_list[(set.num_thickness + t) * group + n + j] = thickness + set.thickness_fitpar[t].step;
        }
    }
}

// Shapes of the distribution of thicknesses, epsilon.thickwidth_type.
enum thickness_shape {
    rectangle = 0,
    triangle = 1,
    gaussian = 2,
};

void thickweight_set(int n, double* thick_wt) {
    const int type = epsilon.thickwidth_type;
    if (n == 0) {
        thick_wt[0] = 1.0;
        return;
    }
    if (type != rectangle && type != triangle && type != gaussian)
        ov_abort(stdout, "$$ Sorry, thickwidth_type=%d is not supported. Abort.\n", type);
    if (type == triangle)
        ov_fprintf(stdout, "$$ num_thickwidth = %d\n", n);
    if (n < 0) // thickness_set tells of it
        return;
    const double sigma = n / 3.0;
    double sum = 0.0;
    for (int i = 0; i <= 2 * n; ++i) {
        const double x = i - n;
        thick_wt[i] = type == rectangle  ? 1.0 / (2 * n + 1)
                      : type == triangle ? 1 - std::fabs(x) / n
                                         : std::exp(-x * x / (2 * sigma * sigma));
        sum += thick_wt[i];
    }
    for (int i = 0; i <= 2 * n && type != rectangle; ++i)
        thick_wt[i] /= sum;
}

double thickness_average(int n, double width, const double* values, const double* thick_wt) {
    if (std::fabs(width) < epsilon.general_eps)
        return values[0];
    double sum = 0.0;
    for (int i = 0; i <= 2 * n; ++i)
        sum += values[i] * thick_wt[i];
    return sum;
}

void scale_tav(const fed& set, int p, int r, int t, cycle_intensities& c) {
    if (c.n < 0)
        ov_abort(stdout, "$$ num_thickwidth must not be less than 0. Abort.\n");
    const int group = 2 * c.n + 1, T = set.num_thickness;
    const double width = set.thickness_width[t];
    // The average is linear, so that the scale may follow it.
    const double scale = set.scale_factor[t] * epsilon.intensity_scaling;
    c.pix_int[p][r][t] = scale * thickness_average(c.n, width, c.tilt_int[r] + t * group, c.thick_wt);
    c.pix_int[p][r][T + t] = scale * thickness_average(c.n, width, c.tilt_int[r] + (T + t) * group, c.thick_wt);
    for (int k = 0; k < c.num_perturb; ++k)
        c.pix_p_int[p][r][t][k] = scale * thickness_average(c.n, width, c.tilt_p_int[k][r] + t * group, c.thick_wt);
}

// ---- pixel averaging ------------------------------------------------------------------------

static void write_kernel(int n, double** kernel) {
    static const char* const name = "convlt.dat";
    ov_fprintf(stdout, "$$Weights for convolution --> %s\n", name);
    std::FILE* file = ov_fopen_chk_wmode(name);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i)
            ov_fprintf(file, "%g  ", kernel[i][j]);
        ov_fprintf(file, "\n");
    }
    ov_fclose(file);
}

static double kernel_value(double r, double par) {
    if (par > 0)
        return std::exp(-(r / par) * (r / par));
    if (r < epsilon.general_eps)
        return 1.0;
    const double y = r * pi / -par;
    return std::sin(y) / y * (std::sin(y) / y);
}

void calc_avrpix_wt(int n, double** kernel, double gaussian_par) {
    if (n < 2)
        return;
    if (n % 2 == 0) {
        ov_fprintf(stdout, "$$ The number of averaging points must be odd number. Abort.\n");
        ov_abort(stdout, "$$ (calc_avrpix_wt)\n");
    }
    if (gaussian_par == 0.0)
        ov_abort(stdout, "$$ Gaussian_par must not be 0.0. Abort.\n");
    const int half = (n - 1) / 2;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            const double a = i - half, b = j - half;
            kernel[i][j] = kernel_value(std::sqrt(a * a + b * b), gaussian_par);
            sum += kernel[i][j];
        }
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            kernel[i][j] /= sum;
    write_kernel(n, kernel);
}

static void convolve(const char* caller, int rows, int columns, double** matrix, int n, double** kernel) {
    if (n < 2)
        return;
    if (n % 2 == 0) {
        ov_fprintf(stdout, "$$num_avrpix = %d: num_avrpix must be odd number. Abort.\n", n);
        ov_abort(stdout, "$$(%s)\n", caller);
    }
    const int half = (n - 1) / 2;
    double** result = new_matrix<double>(to_size(rows), to_size(columns));
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < columns; ++j)
            for (int a = 0; a < n; ++a)
                for (int b = 0; b < n; ++b) {
                    const int row = i + half - a, column = j + half - b;
                    if (row >= 0 && row < rows && column >= 0 && column < columns)
                        result[i][j] += kernel[a][b] * matrix[row][column];
                }
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < columns; ++j)
            matrix[i][j] = result[i][j];
    free_matrix(result);
}

void gaussian_convolution(int size, double** matrix, int n, double** kernel) {
    convolve("gaussian_convolution", size, size, matrix, n, kernel);
}

void gaussian_conv(int rows, int columns, double** matrix, int n, double** kernel) {
    convolve("gaussian_conv", rows, columns, matrix, n, kernel);
}

// ---- interpolation --------------------------------------------------------------------------

double cubic_intrpl(const double* x, double xq, const double* y) { return cub_int(x, xq, y); }

double bicub_intrpl(double xq, double yq, const double* x, const double* y, double** f) {
    double at_xq[4];
    for (int j = 0; j < 4; ++j) {
        const double column[4] = {f[0][j], f[1][j], f[2][j], f[3][j]};
        at_xq[j] = cubic_intrpl(x, xq, column);
    }
    return cubic_intrpl(y, yq, at_xq);
}

// First point of the four around xq.
static int window(double xq, int n, const double* x) {
    int i = 1;
    while (!(xq < x[i + 1]) && i + 1 < n - 2)
        ++i;
    return i - 1;
}

double bicubic_intrpl(double xq, double yq, int nx, int ny, const double* x, const double* y, double** f) {
    const int i = window(xq, nx, x);
    const int j = window(yq, ny, y);
    double* block[4] = {f[i] + j, f[i + 1] + j, f[i + 2] + j, f[i + 3] + j};
    return bicub_intrpl(xq, yq, x + i, y + j, block);
}

double bilin_intrpl(double u, double v, double f00, double f10, double f01, double f11) {
    return (f00 * (1 - v) + f01 * v) * (1 - u) + (f10 * (1 - v) + f11 * v) * u;
}

// ---- sampling the measured pattern ----------------------------------------------------------

// A measured point; beyond the last row or column it has weight 0 and does not exist.
static void measured_point(int ia, int ib, int n, const double* obs_raw, const double* sig_raw,
                           double& value, double& sigma) {
    const bool exists = ia < n && ib < n;
    value = exists ? obs_raw[ia + ib * n] : 0.0;
    sigma = exists ? sig_raw[ia + ib * n] : 1.0;
}

measured_cell find_mat_ii_obs(double h, double g, const ei& e, const double* obs_raw, const double* sig_raw,
                              int& flag) {
    const int n = e.num_obs_pix_side;
    flag = h >= e.obs_h_min && h <= e.obs_h_max && g >= e.obs_g_min && g <= e.obs_g_max ? 0 : 1;
    if (flag == 1)
        return {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0, 1.0};
    const double a = (h - e.obs_h_min) * (n - 1) / (e.obs_h_max - e.obs_h_min);
    const double b = (g - e.obs_g_min) * (n - 1) / (e.obs_g_max - e.obs_g_min);
    const int ia = real_to_int(a);
    const int ib = real_to_int(b);
    measured_cell c;
    c.u = a - ia;
    c.v = b - ib;
    measured_point(ia, ib, n, obs_raw, sig_raw, c.i00, c.s00);
    measured_point(ia + 1, ib, n, obs_raw, sig_raw, c.i10, c.s10);
    measured_point(ia, ib + 1, n, obs_raw, sig_raw, c.i01, c.s01);
    measured_point(ia + 1, ib + 1, n, obs_raw, sig_raw, c.i11, c.s11);
    return c;
}

void calc_extr_obs_int(double H_shift, double G_shift, ei& e, int r, int t, int& flag) {
    flag = 0;
    for (int p = 0; p < e.num_pix; ++p) {
        const pixel& at = e.pixel[p];
        if (at.flag != 1)
            continue;
        int outside;
        const measured_cell c =
            find_mat_ii_obs(at.h - H_shift, at.g - G_shift, e, e.obs_raw[r][t], e.sig_raw[r][t], outside);
        e.obs[r][t][p] = bilin_intrpl(c.u, c.v, c.i00, c.i10, c.i01, c.i11);
        const bool measured = c.s00 > 0 && c.s10 > 0 && c.s01 > 0 && c.s11 > 0;
        e.sig[r][t][p] = measured ? bilin_intrpl(c.u, c.v, c.s00, c.s10, c.s01, c.s11) : not_measured;
        if (outside != 0)
            flag = 1;
    }
}

void set_extr_obs_int(int T, int R, const fed& set, ei& intensity, std::FILE* log) {
    ei& e = intensity;
    for (int t = 0; t < T; ++t) {
        for (int r = 0; r < R; ++r) {
            int flag;
            calc_extr_obs_int(set.H_shift[r][t], set.G_shift[r][t], e, r, t, flag);
            if (flag != 0)
                ov_fprintf_stdo(log, "$$Warning: out of area. g=%d %d %d\n",
                                e.reflex_hkl[r].h, e.reflex_hkl[r].k, e.reflex_hkl[r].l);
        }
    }
}

// ---- derivative with respect to a shift -----------------------------------------------------

// Value of a line of n points at i + d, 0 <= d <= 1, from what is inside; false if nothing serves.
static bool value_beyond(int i, int n, double d, const double* f, const int* inside, double& value) {
    const bool b = inside[i] == 1;
    const bool a = i > 0 && inside[i - 1] == 1;
    const bool c = i < n - 1 && inside[i + 1] == 1;
    const bool first = i == 0, last_but_one = i == n - 2;
    if (!b)
        return false;
    if (a && c && !last_but_one && inside[i + 2] == 1) {
        const double places[4] = {0, 1, 2, 3};
        value = cubic_intrpl(places, 1 + d, f + i - 1);
        return true;
    }
    if (c) {
        value = (1 - d) * f[i] + d * f[i + 1];
        return true;
    }
    if (first || (!a && !last_but_one))
        return false;
    value = (1 - (1 + d)) * f[i - 1] + (1 + d) * f[i];
    return true;
}

// Slopes over the step of one line into grad.
static void line_slopes(int n, double step, double d, const double* f, const int* inside, double* grad) {
    for (int i = 0; i < n; ++i) {
        double value;
        grad[i] = value_beyond(i, n, d, f, inside, value) ? (value - f[i]) / step : 0.0;
    }
}

// H and G name the axis in messages; returns the step in units of the pitch.
static double relative_step(char axis, double step, double lower, double upper, int n) {
    const double pitch = (upper - lower) / (n - 1);
    if (step < 0)
        ov_abort(stdout, "$$(calc_%cshift_int) %cshift(=%g) must be positive. Abort.)", axis, axis, step);
    if (step > pitch)
        ov_abort(stdout, "$$ (calc_%cshift_int) Too large shift. Abort.)", axis);
    return step / pitch;
}

void calc_Hshift_grad(double step, double lower, double upper, int nx, int ny,
                      double** pattern, int** flag, double** grad) {
    const double d = relative_step('H', step, lower, upper, nx);
    double* f = new_vector<double>(to_size(nx));
    double* slopes = new_vector<double>(to_size(nx));
    int* inside = new_vector<int>(to_size(nx));
    for (int iy = 0; iy < ny; ++iy) {
        for (int ix = 0; ix < nx; ++ix) {
            f[ix] = pattern[ix][iy];
            inside[ix] = flag[ix][iy];
        }
        line_slopes(nx, step, d, f, inside, slopes);
        for (int ix = 0; ix < nx; ++ix)
            grad[ix][iy] = slopes[ix];
    }
    std::free(f);
    std::free(slopes);
    std::free(inside);
}

void calc_Gshift_grad(double step, double lower, double upper, int nx, int ny,
                      double** pattern, int** flag, double** grad) {
    const double d = relative_step('G', step, lower, upper, ny);
    for (int ix = 0; ix < nx; ++ix)
        line_slopes(ny, step, d, pattern[ix], flag[ix], grad[ix]);
}

} // namespace orvel
