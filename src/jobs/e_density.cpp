// SPDX-License-Identifier: MIT
#include "jobs/e_density.h"

#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/utils.h"
#include "numeric/vecmat.h"

namespace orvel {

// ---- the block ------------------------------------------------------------------------------

void begin_density_data(sd& cond, std::FILE* file) {
    const double disksize = 1.0; // the block holds none, and the search needs one
    cond = {};
    cond.disksize = disksize;
    cond.beam_search.disksize = disksize;
    cond.calc_type = mesh_none;
    chk_data("E_DENSITY_CALCULATION_CONDITION{", file);
    fget_incident_beam(cond, file);
    chk_kv(cond.kv); // the search and the factors rest on it
}

void report_density_beams(sd& cond, csd& crystal) {
    report_beams(cond, crystal);
    ov_fprintf(stdout, "$$disksize = %f\n", cond.disksize);
}

void input_density_proj_data(sd& cond, csd& crystal, std::FILE* file) {
    begin_density_data(cond, file);
    chk_data("BEAM_SEARCH{", file);
    fget_sd_beams(cond, crystal, file);
    report_density_beams(cond, crystal);
    chk_data("}BEAM_SEARCH", file);
    fget_calc_rxy_range(cond, lattice_of(crystal), file);
    chk_data("AREA_PROJ_CELL{", file);
    cond.area_proj_cell = fget_d(file);
    chk_data("}AREA_PROJ_CELL", file);
    chk_data("}E_DENSITY_CALCULATION_CONDITION", file);
    std::fclose(file);
}

// ---- maps -----------------------------------------------------------------------------------

complex calc_inv_fourier(r_uvw r, int n, const hkl* beams, const complex* coef) {
    complex sum = {0.0, 0.0};
    for (int i = 0; i < n; ++i)
        sum = c_add(sum, c_mul(coef[i], plane_wave(beams[i], r)));
    return sum;
}

std::FILE* open_map(const char* suffix, const char* what, const char* stem) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s%s", stem, suffix);
    ov_fprintf(stdout, "%s ==> %s\n", what, name);
    return fopen_chk_wmode(name);
}

static void print_table_head(const char* what, const char* columns, const sd& cond, std::FILE* table) {
    ov_fprintf(table, "# %s (formed by %d beams)\n", what, cond.num_exact_beam + cond.num_bethe_beam);
    ov_fprintf(table, "# nx  ny\n");
    ov_fprintf(table, "# %d  %d\n", cond.nx, cond.ny);
    ov_fprintf(table, "# x\ty\t%s\n", columns);
}

// A gnuplot script, stem + suffix + ".plt", that draws one column of a table into a picture.
static void write_plot(const char* first_line, const char* zrange, const char* table_suffix, int column,
                       const char* suffix, const char* stem) {
    char name[path_max];
    std::snprintf(name, sizeof name, "%s%s.plt", stem, suffix);
    std::FILE* script = fopen_chk_wmode(name);
    ov_fprintf(script, "%s\n", first_line);
    ov_fprintf(script, "set pm3d\n");
    ov_fprintf(script, "set nosurface\n");
    ov_fprintf(script, "set view 0,0\n");
    ov_fprintf(script, "set size square\n");
    ov_fprintf(script, "set term png crop\n");
    ov_fprintf(script, "set output \"%s%s.png\"\n", stem, suffix);
    ov_fprintf(script, "#set zrange %s\n", zrange);
    ov_fprintf(script, "splot \"%s%s\" using 1:2:%d with lines\n", stem, table_suffix, column);
    ov_fprintf(script, "pause -1\n");
    ov_fclose(script);
}

// ---- E_DENSITY_PROJ_MODE --------------------------------------------------------------------

static void print_density_maps(const sd& cond, const complex* vg_coef, const complex* xg_coef,
                               std::FILE* potential, std::FILE* density) {
    map_waves waves = new_map_waves(cond, cond.num_exact_beam + cond.num_bethe_beam, cond.reflex_sel);
    complex V[wave_run_max], X[wave_run_max];
    for (int ix = 0; ix < cond.nx; ++ix) {
        progress_indicator(ix, cond.nx);
        const double x = map_coordinate(ix, cond.nx, cond.range_x1, cond.range_x2);
        for (int iy = 0, count; iy < cond.ny; iy += count) {
            count = start_run(waves, x, iy);
            sum_run(waves, vg_coef, V);
            sum_run(waves, xg_coef, X);
            for (int j = 0; j < count; ++j) {
                const double y = map_coordinate(iy + j, cond.ny, cond.range_y1, cond.range_y2);
                ov_fprintf(potential, "%g\t%g\t%g\n", x, y, V[j].re);
                ov_fprintf(density, "%g\t%g\t%g\n", x, y, X[j].re / cond.area_proj_cell);
            }
        }
        ov_fprintf(potential, "\n");
        ov_fprintf(density, "\n");
    }
    ov_fprintf(stdout, "100%%.\n");
    free_map_waves(waves);
}

void ov_electron_density_proj(std::FILE* file, std::FILE* /*log*/, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_density_proj_data(cond, crystal, file);
    const std::size_t N = to_size(cond.num_exact_beam + cond.num_bethe_beam);
    complex* vg_coef = new_vector<complex>(N);
    complex* xg_coef = new_vector<complex>(N);
    ov_fprintf(stdout, "Fourier coef. calculation....\n");
    vgv_fxgv_csd(cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel, crystal, cond.kv, lattice_of(crystal),
                 vg_coef, xg_coef);

    std::FILE* potential = open_map("_pp.txt", "Projected potential       ", stem);
    std::FILE* density = open_map("_ed.txt", "Projected electron density", stem);
    print_table_head("Projected potential", "potential.re[V])", cond, potential);
    print_table_head("Projected electron density", "potential.re[V])", cond, density);
    print_density_maps(cond, vg_coef, xg_coef, potential, density);
    ov_fclose(potential);
    ov_fclose(density);
    write_plot("#", "[0:3]", "_ed.txt", 3, "_ed", stem);
    write_plot("#", "[0:20]", "_pp.txt", 3, "_pp", stem);

    std::free(vg_coef);
    std::free(xg_coef);
    free_sd(cond);
    free_csd(crystal);
}

// ---- POTENTIAL_REIM_PROJ_MODE ---------------------------------------------------------------

void ov_potential_reim_proj(std::FILE* file, std::FILE* /*log*/, const char* stem) {
    csd crystal;
    sd cond;
    input_csd_cstr(crystal, file, stem);
    input_density_proj_data(cond, crystal, file);
    complex* vg_coef = new_vector<complex>(to_size(cond.num_exact_beam + cond.num_bethe_beam));
    ov_fprintf(stdout, "Fourier coef. calculation....\n");
    vgv_reim_csd(cond.num_exact_beam, cond.num_bethe_beam, cond.reflex_sel, crystal, cond.kv, lattice_of(crystal),
                 vg_coef);

    std::FILE* table = open_map("_pp.txt", "Projected potential       ", stem);
    print_table_head("Projected potential", "pot.re[V]\tpot.im[V])", cond, table);
    print_complex_map(cond, cond.num_exact_beam + cond.num_bethe_beam, cond.reflex_sel, vg_coef, table);
    ov_fclose(table);
    write_plot("#Real (elastic) potential plot", "[0:20]", "_pp.txt", 3, "_re_pp", stem);
    write_plot("#Imaginary (inelastic) potential plot", "[-3:3]", "_pp.txt", 4, "_im_pp", stem);

    std::free(vg_coef);
    free_sd(cond);
    free_csd(crystal);
}

} // namespace orvel
