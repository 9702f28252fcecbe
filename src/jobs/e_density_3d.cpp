// SPDX-License-Identifier: MIT
#include "jobs/e_density.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "jobs/ov_sim_input.h"
#include "numeric/lb_fft.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc_potential.h"

namespace orvel {

// ---- the block ------------------------------------------------------------------------------

void fget_sd_beams_3d(sd& cond, csd& crystal, std::FILE* file) {
    beam_search& bs = cond.beam_search;
    bs.flag_bs = fget_flag_bs(file);
    switch (bs.flag_bs) {
    case method_manual:
        fget_manual_beams(file, cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel);
        return;
    case method_wg:
    case method_sg:
    case method_sg_multi:
    case method_sg_multi + simple_form:
        break;
    default:
        ov_abort(stderr, "Flag_bs = %d is invalid for 3D Density calc.\n", bs.flag_bs);
    }
    fget_search_rows(file, bs);
    make_beam_list(cond, method_of(bs.flag_bs) != method_sg_multi, crystal);
}

// Three integers with nothing but white space between them.
static bool parse_counts(const char* line, int counts[3]) {
    for (int i = 0; i < 3; ++i) {
        char* end;
        const long value = std::strtol(line, &end, 10);
        if (end == line)
            return false;
        counts[i] = real_to_int(static_cast<double>(value));
        line = end;
    }
    return true;
}

// CALC_RXY_RANGE_3D: the whole cell, or counts and ranges of a part of it.
static void fget_calc_rxy_range_3d(sd& cond, std::FILE* file) {
    static const char* const keyword = "UNITCELL_XYZ";
    chk_data("CALC_RXY_RANGE_3D{", file);
    char line[line_max];
    fget_text(line, file);
    if (std::strncmp(line, keyword, std::strlen(keyword)) == 0) {
        cond.unitcell_xyz = 1;
        fget_3i(&cond.nx, &cond.ny, &cond.nz, file);
        cond.range_x1 = cond.range_y1 = cond.range_z1 = 0.0;
        cond.range_x2 = cond.range_y2 = cond.range_z2 = 1.0;
    } else {
        int counts[3];
        if (!parse_counts(line, counts)) {
            ov_fprintf(stdout, "$$Data format error in CALC_RXY_RANGE_3D. Abort.\n");
            ov_abort(stdout, "$$buf=%s", line);
        }
        cond.unitcell_xyz = 0;
        cond.nx = counts[0];
        cond.ny = counts[1];
        cond.nz = counts[2];
        fget_2d(&cond.range_x1, &cond.range_x2, file);
        fget_2d(&cond.range_y1, &cond.range_y2, file);
        fget_2d(&cond.range_z1, &cond.range_z2, file);
    }
    chk_data("}CALC_RXY_RANGE_3D", file);
}

void input_density_3d_data(sd& cond, csd& crystal, std::FILE* file) {
    begin_density_data(cond, file);
    chk_data("BEAM_SEARCH_3D{", file);
    fget_sd_beams_3d(cond, crystal, file);
    report_density_beams(cond, crystal);
    chk_data("}BEAM_SEARCH_3D", file);
    make_map_base(cond, lattice_of(crystal));
    fget_calc_rxy_range_3d(cond, file);
    chk_data("}E_DENSITY_CALCULATION_CONDITION", file);
    std::fclose(file);
}

// ---- reflections and grids ------------------------------------------------------------------

static bool is_power_of_2(int n) { return n >= 2 && (n & (n - 1)) == 0; }

[[noreturn]] static void refuse_counts(const sd& cond, const char* rule) {
    ov_fprintf(stdout, "$$ number of pixels should be %s. Abort.\n", rule);
    ov_abort(stdout, "$$ x,y,z = %d %d %d\n", cond.nx, cond.ny, cond.nz);
}

static void chk_counts(const sd& cond) {
    if (cond.nx < 1 || cond.ny < 1 || cond.nz < 1)
        refuse_counts(cond, "greater than 0");
    if (!is_power_of_2(cond.nx) || !is_power_of_2(cond.ny) || !is_power_of_2(cond.nz))
        refuse_counts(cond, "a power of 2");
}

// Replaces the beam list by every reflection that the grid holds in full: |h| < nx/2 and so on.
static void list_all_reflections(sd& cond) {
    const int hx = cond.nx / 2, hy = cond.ny / 2, hz = cond.nz / 2;
    const std::size_t layer = size_product(to_size(cond.nx - 1), to_size(cond.ny - 1));
    const std::size_t count = size_product(layer, to_size(cond.nz - 1));
    std::free(cond.reflex_sel);
    cond.reflex_sel = new_vector<hkl>(countable(count));
    cond.num_exact_beam = static_cast<int>(count);
    cond.num_bethe_beam = 0;
    ov_fprintf(stdout, "$$ number of reflections for FFT = %d\n", cond.num_exact_beam);
    hkl* next = cond.reflex_sel;
    for (int h = 1 - hx; h <= hx - 1; ++h)
        for (int k = 1 - hy; k <= hy - 1; ++k)
            for (int l = 1 - hz; l <= hz - 1; ++l)
                *next++ = {h, k, l};
}

static int grid_index(int h, int n) { return h < 0 ? h + n : h; }

// A grid of the whole cell, re[i][j][k] and im[i][j][k] in single precision.
struct cell_grid {
    float*** re;
    float*** im;
};

// The coefficients of all reflections at their places. The planes of the half-way indices, which
// no reflection of the list reaches, stay 0.
static cell_grid new_grid(const sd& cond, const complex* coef) {
    const std::size_t nx = to_size(cond.nx), ny = to_size(cond.ny), nz = to_size(cond.nz);
    cell_grid grid = {new_tensor<float>(nx, ny, nz), new_tensor<float>(nx, ny, nz)};
    for (int n = 0; n < cond.num_exact_beam; ++n) {
        const hkl g = cond.reflex_sel[n];
        const int i = grid_index(g.h, cond.nx), j = grid_index(g.k, cond.ny), k = grid_index(g.l, cond.nz);
        grid.re[i][j][k] = static_cast<float>(coef[n].re);
        grid.im[i][j][k] = static_cast<float>(coef[n].im);
    }
    return grid;
}

static void free_grid(cell_grid& grid) {
    free_tensor(grid.re);
    free_tensor(grid.im);
}

static void chk_unitcell(const sd& cond) {
    if (cond.unitcell_xyz != 1)
        ov_abort(stdout, "$$error. Use UNITCELL_XYZ mode.\n");
}

static void to_real_space(const char* what, const sd& cond, cell_grid& grid) {
    const int backward = 1;
    ov_fprintf(stdout, "%s...\n", what);
    fft3d_nxnynz(backward, cond.nx, cond.ny, cond.nz, grid.re, grid.im);
}

// ---- the VEND format ------------------------------------------------------------------------

// Writes values divided by divisor on the grid closed by repetition: line (i, j) holds all k.
static void print_vend(const char* title, const csd& crystal, const sd& cond, float*** values, double divisor,
                       std::FILE* file) {
    ov_fprintf(file, "%s\n", title);
    ov_fprintf(file, "%lg %lg %lg %lg %lg %lg\n",
               crystal.a, crystal.b, crystal.c, crystal.alpha, crystal.beta, crystal.gamma);
    ov_fprintf(file, "%d  %d  %d\n", cond.nx + 1, cond.ny + 1, cond.nz + 1);
    for (int i = 0; i <= cond.nx; ++i) {
        for (int j = 0; j <= cond.ny; ++j) {
            const float* line = values[i % cond.nx][j % cond.ny];
            for (int k = 0; k < cond.nz; ++k)
                ov_fprintf(file, "%lg  ", line[k] / divisor);
            ov_fprintf(file, "%lg\n", line[0] / divisor);
        }
    }
}

// ---- E_DENSITY_3D_UNITCELL_MODE -------------------------------------------------------------

// Sets the coefficients beyond the threshold of g to 0.
static void filter_gmax(const sd& cond, lattice lat, complex* vg_coef, complex* xg_coef) {
    const double gmax = epsilon.e_density_gmax_val;
    int filtered = 0;
    ov_fprintf(stdout, "$$ Threshold gmax = %lf.\n", gmax);
    for (int n = 0; n < cond.num_exact_beam; ++n) {
        const hkl g = cond.reflex_sel[n];
        if (!(std::sqrt(sq_abs(hkl2rhkl(g.h, g.k, g.l), lat)) > gmax))
            continue;
        vg_coef[n] = {0.0, 0.0};
        xg_coef[n] = {0.0, 0.0};
        ++filtered;
    }
    ov_fprintf(stdout, "%s\n", filtered > 0 ? "$$ gmax filtered." : "$$ All reflections are within gmax");
}

void ov_electron_density_3d_unitcell(std::FILE* file, std::FILE* /*log*/, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_density_3d_data(cond, crystal, file);
    const lattice lat = lattice_of(crystal);
    chk_counts(cond);
    list_all_reflections(cond);
    complex* vg_coef = new_vector<complex>(to_size(cond.num_exact_beam));
    complex* xg_coef = new_vector<complex>(to_size(cond.num_exact_beam));
    ov_fprintf(stdout, "Potential.\n");
    vgv_fxgv_csd(cond.num_exact_beam, 0, cond.reflex_sel, crystal, cond.kv, lat, vg_coef, xg_coef);
    filter_gmax(cond, lat, vg_coef, xg_coef);
    ov_fprintf(stdout, "$$ Fourier coef. transfering...\n");
    cell_grid density = new_grid(cond, xg_coef);
    std::free(xg_coef);
    cell_grid potential = new_grid(cond, vg_coef);
    std::free(vg_coef);
    chk_unitcell(cond);
    to_real_space("Electron density", cond, density);
    to_real_space("Electrostatic potential", cond, potential);

    std::FILE* density_file = open_map("_ed.3ed", "Electron density (VEND-format):", stem);
    std::FILE* potential_file = open_map("_pt.3ed", "Potential.re (VEND-format):       ", stem);
    print_vend("#Electron density [e/A^3]", crystal, cond, density.re, lat.vol, density_file);
    print_vend("#Electrostatic potential [V]", crystal, cond, potential.re, 1.0, potential_file);
    ov_fclose(density_file);
    ov_fclose(potential_file);

    free_grid(density);
    free_grid(potential);
    free_sd(cond);
    free_csd(crystal);
}

// ---- POTENTIAL_REIM_3D_UNITCELL_MODE --------------------------------------------------------

void ov_potential_reim_3d_unitcell(std::FILE* file, std::FILE* /*log*/, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_density_3d_data(cond, crystal, file);
    chk_counts(cond);
    list_all_reflections(cond);
    complex* vg_coef = new_vector<complex>(to_size(cond.num_exact_beam));
    ov_fprintf(stdout, "Potential.\n");
    vgv_reim_csd(cond.num_exact_beam, 0, cond.reflex_sel, crystal, cond.kv, lattice_of(crystal), vg_coef);
    ov_fprintf(stdout, "$$ Fourier coef. transfering...\n");
    cell_grid potential = new_grid(cond, vg_coef);
    std::free(vg_coef);
    chk_unitcell(cond);
    to_real_space("Electrostatic potential", cond, potential);

    std::FILE* re_file = open_map("_pt.3ed", "Potential.re (VEND-format):       ", stem);
    std::FILE* im_file = open_map("_ptim.3ed", "Potential.im (VEND-format):       ", stem);
    print_vend("#Electrostatic potential [V]", crystal, cond, potential.re, 1.0, re_file);
    print_vend("#Imaginary potential [V]", crystal, cond, potential.im, 1.0, im_file);
    ov_fclose(re_file);
    ov_fclose(im_file);

    free_grid(potential);
    free_sd(cond);
    free_csd(crystal);
}

} // namespace orvel
