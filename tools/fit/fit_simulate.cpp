// SPDX-License-Identifier: MIT
#include "fit.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "control/ov_mpi.h"
#include "control/utils.h"
#include "numeric/vecmat.h"
#include "solver/ovfunc_potential.h"

namespace orvel {

// First line of a simulated file, by which it may be overwritten.
static const char* const mark = "# simulated by orvel_fit";

// Ends the process if a file of this name was not written by the simulation.
static void chk_may_overwrite(const char* name) {
    std::FILE* file = std::fopen(name, "r");
    if (file == nullptr && errno == ENOENT)
        return;
    if (file == nullptr) // no memory, no permission: nobody knows what stands there
        ov_abort(stderr, "$$ Cannot open %s. Abort.\n", name);
    char line[line_max] = "";
    const bool readable = std::fgets(line, line_max, file) != nullptr;
    const bool simulated = readable && std::strncmp(line, mark, std::strlen(mark)) == 0;
    std::fclose(file);
    if (!simulated)
        ov_abort(stdout, "$$ %s is no simulated file and stays. Abort.\n", name);
}

// ---- noise ------------------------------------------------------------------------------------

// Uniform in (0, 1), on the grid of 53 bits. The generator's numbers are fixed by the language; the
// distributions of its library are not.
static double uniform(std::mt19937_64& generator) {
    const int dropped = 11;
    return (static_cast<double>(generator() >> dropped) + 0.5) / 9007199254740992.0; // 2^53
}

// Normal random number (G. E. P. Box & M. E. Muller, Ann. Math. Stat. 29 (1958) 610).
static double normal(std::mt19937_64& generator) {
    const double radius = std::sqrt(-2 * std::log(uniform(generator)));
    return radius * std::cos(2 * pi * uniform(generator));
}

// ---- the pattern ------------------------------------------------------------------------------

// The measured square: the calculation grid with so many points more on each side that every shift
// stays inside, so that its points fall on those of the grid where there is no shift.
struct measured_square {
    int side;    // points in a row
    double half; // half width
};

static measured_square square_of(const fed& set) {
    if (set.calc_type != mesh_disk && set.calc_type != mesh_square)
        ov_abort(stdout, "$$ Invalid calc_type=%d. Abort.\n", set.calc_type);
    if (!(set.disksize > 0))
        ov_abort(stdout, "$$ Invalid disksize(=%g). Abort.\n", set.disksize);
    double shift = 0.0;
    for (int r = 0; r < set.num_reflex; ++r) {
        for (int t = 0; t < set.num_thickness; ++t) {
            for (double value : {set.H_shift[r][t], set.G_shift[r][t]}) {
                if (!(std::fabs(value) <= set.disksize))
                    ov_abort(stdout, "$$ Shift %g is larger than the disk. Abort.\n", value);
                shift = std::max(shift, std::fabs(value));
            }
        }
    }
    const double pitch = 2 * set.disksize / (set.num_pix_side - 1);
    const int margin = 1 + static_cast<int>(std::ceil(shift / pitch));
    return {set.num_pix_side + 2 * margin, set.disksize + margin * pitch};
}

// Calculates the pattern of a data set over the square, its centre moved by a shift, into e.cal.
static void calc_shifted(csd& crystal, const fed& set, const measured_square& square, double H_shift, double G_shift,
                         complex** vg, ei& e, std::FILE* log) {
    fed moved = set;
    moved.calc_type = mesh_square;
    moved.num_pix_side = square.side;
    moved.disksize = square.half;
    moved.h_tilt += H_shift;
    moved.g_tilt += G_shift;
    normal_equations none = {};
    double chisq;
    calc_cbed_pattern_perturb(crystal, moved, e, {vg, 0, nullptr}, none, chisq, log);
}

// The kernel compares the model at (h, g) with the point measured at (h, g) less the shift: so what
// stands at a measured point is the model one shift away. Each distinct shift is a pattern of its
// own. Result in pattern[r][t][i].
static void calc_measured(csd& crystal, fed& set, const measured_square& square, ei& e, double*** pattern,
                          std::FILE* log) {
    chk_incidence(set, crystal, lattice_of(crystal));
    const bool automatic = method_of(set.beam_search.flag_bs) != method_manual;
    if (automatic)
        auto_ed_beams(set, crystal);
    const std::size_t N = to_size(set.num_exact_beam + set.num_bethe_beam);
    complex** vg = new_matrix<complex>(N, N);
    int flag;
    potential_matrix_csd(set.num_exact_beam, set.num_bethe_beam, set.reflex_sel, crystal, set.kv, lattice_of(crystal),
                         vg, flag);
    if (flag != 0)
        ov_fprintf_stdo(log, "$$ Error in Fg. You should check params.\n");
    const int R = set.num_reflex, T = set.num_thickness;
    std::vector<bool> done(to_size(R * T), false);
    for (int first = 0; first < R * T; ++first) {
        if (done[to_size(first)])
            continue;
        const double H = set.H_shift[first / T][first % T], G = set.G_shift[first / T][first % T];
        calc_shifted(crystal, set, square, H, G, vg, e, log);
        for (int at = first; at < R * T; ++at) {
            const int r = at / T, t = at % T;
            if (set.H_shift[r][t] != H || set.G_shift[r][t] != G)
                continue;
            std::copy_n(e.cal[r][t], e.num_pix, pattern[r][t]);
            done[to_size(at)] = true;
        }
    }
    free_matrix(vg);
}

// ---- the file ---------------------------------------------------------------------------------

static void print_points(std::FILE* file, const measured_square& square, const double* pattern, double noise,
                         std::mt19937_64& generator) {
    for (int i = 0; i < square.side * square.side; ++i) {
        const double sigma = std::sqrt(std::fmax(pattern[i], 1.0)); // of one count where there is less
        ov_fprintf(file, "%g %g\n", pattern[i] + noise * sigma * normal(generator), sigma);
        if ((i + 1) % square.side == 0)
            ov_fprintf(file, "\n");
    }
}

static void print_int_file(const csd& crystal, const fed& set, const ei& e, const measured_square& square,
                           double*** pattern, double noise, std::uint64_t seed, std::mt19937_64& generator) {
    std::FILE* file = ov_fopen_chk_wmode(set.int_file);
    ov_fprintf(file, "%s, noise %g, seed %llu\n", mark, noise, static_cast<unsigned long long>(seed));
    ov_fprintf(file, "FIT_EXPDATA_BGS\nCR{\n");
    ov_fprintf(file, "%g %g %g  # a b c\n", crystal.a, crystal.b, crystal.c);
    ov_fprintf(file, "%g %g %g  # alpha beta gamma\n", crystal.alpha, crystal.beta, crystal.gamma);
    ov_fprintf(file, "%d %d %d  # incidence\n", set.zone_uvw.u, set.zone_uvw.v, set.zone_uvw.w);
    ov_fprintf(file, "%g %g %g  # ZOLZ base vector\n", set.zolzbase1.h, set.zolzbase1.k, set.zolzbase1.l);
    ov_fprintf(file, "%.10g %.10g  # tilt centre H0 G0\n", set.h_tilt, set.g_tilt);
    ov_fprintf(file, "}CR\nPAR{\n%d  # thicknesses\n%d  # reflections\n", set.num_thickness, set.num_reflex);
    ov_fprintf(file, "%d %d  # points, points in a row\n", square.side * square.side, square.side);
    ov_fprintf(file, "%.10g %.10g %.10g %.10g  # bounds in H and G, from the centre\n}PAR\n",
               -square.half, square.half, -square.half, square.half);
    for (int t = 0; t < set.num_thickness; ++t) {
        ov_fprintf(file, "THICKNESS{\n");
        for (int r = 0; r < set.num_reflex; ++r) {
            const hkl g = e.reflex_hkl[r];
            ov_fprintf(file, "RF{\n%d %d %d\n", g.h, g.k, g.l);
            print_points(file, square, pattern[r][t], noise, generator);
            ov_fprintf(file, "}RF\n");
        }
        ov_fprintf(file, "}THICKNESS\n");
    }
    ov_fclose(file);
}

// The stores of a square whose points are the pixels; nothing is measured yet, and its bounds are wide
// enough for every shift.
static ei new_square_stores(const fed& set, const measured_square& square, const hkl* reflex_hkl) {
    ei e = {};
    e.num_obs_pix_side = e.num_pix_side = square.side;
    e.num_obs_pix = e.num_pix = square.side * square.side;
    e.obs_h_min = set.h_tilt - 2 * square.half;
    e.obs_h_max = set.h_tilt + 2 * square.half;
    e.obs_g_min = set.g_tilt - 2 * square.half;
    e.obs_g_max = set.g_tilt + 2 * square.half;
    alloc_ei(set.num_reflex, set.num_thickness, e);
    std::copy_n(reflex_hkl, set.num_reflex, e.reflex_hkl);
    return e;
}

void simulate(fit_problem& problem, double noise, std::uint64_t seed, std::FILE* log) {
    std::mt19937_64 generator(seed);
    constraint_fed(problem.num_fed, problem.sets);
    for (int i = 0; i < problem.num_fed; ++i)
        chk_may_overwrite(problem.sets[i].int_file);
    for (int i = 0; i < problem.num_fed; ++i) {
        fed& set = problem.sets[i];
        const measured_square square = square_of(set);
        ei e = new_square_stores(set, square, problem.intensities[i].reflex_hkl);
        double*** pattern = new_tensor<double>(to_size(set.num_reflex), to_size(set.num_thickness), to_size(e.num_pix));
        calc_measured(problem.crystal, set, square, e, pattern, log);
        const std::size_t points = to_size(set.num_reflex) * to_size(set.num_thickness) * to_size(e.num_pix);
        if (!std::all_of(pattern[0][0], pattern[0][0] + points, [](double I) { return std::isfinite(I); }))
            ov_abort(stdout, "$$ The model gives intensities that are no numbers. Abort.\n");
        print_int_file(problem.crystal, set, e, square, pattern, noise, seed, generator);
        ov_fprintf_stdo(log, "Simulated intensities: %s\n", set.int_file);
        free_tensor(pattern);
        free_ei(e);
    }
}

} // namespace orvel
