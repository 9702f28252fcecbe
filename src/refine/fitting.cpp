// SPDX-License-Identifier: MIT
#include "refine/fitting.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_debug.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "crystal/cnstfunc.h"
#include "numeric/vecmat.h"
#include "refine/fitfunc.h"
#include "solver/ovfunc_potential.h"
#include "solver/ovfunc_tilt.h"

namespace orvel {

void auto_ed_beams(fed& set, csd& crystal) {
    const beam_search& bs = set.beam_search;
    const int method = method_of(bs.flag_bs);
    if (method == -1 || method == method_manual)
        ov_abort(stdout, "$$ Invalid beam_search.flag_bs. (%d) Abort.\n", bs.flag_bs);
    found_beams found = new_found_beams(bs.num_g_limit);
    ov_fprintf(stdout, "Beam search (%s) ... ", method == method_wg ? "wg" : "sg");
    ov_fflush(stdout);
    search_beams(set, crystal, found);
    ov_fprintf(stdout, "$$ Exact = %d, Bethe = %d\n", found.num_exact, found.num_bethe);
    take_found_beams(found, set);
}

void perturbed_potential_matrix(int num_perturb, complex*** pvg, csd& crystal, const fed& set, lattice lat, int& flag) {
    const int N = set.num_exact_beam + set.num_bethe_beam;
    complex** vg = new_matrix<complex>(to_size(N), to_size(N));
    csd copy;
    alloc_csd(crystal.num_sym_op, crystal.num_site, crystal.num_lofg, copy);
    alloc_csd_sub_cstr(crystal.num_site, crystal.num_lofg, crystal.lof_type, copy);
    flag = 0;
    for (int k = 0; k < num_perturb; ++k) {
        int err_flag;
        cpy_csd(crystal, copy);
        make_csd_perturb(k, crystal, copy);
        potential_matrix_csd(set.num_exact_beam, set.num_bethe_beam, set.reflex_sel, copy, set.kv, lat, vg, err_flag);
        if (err_flag != 0)
            flag = 1;
        vg_to_pvg(k, N, vg, pvg);
    }
    free_csd(copy);
    free_matrix(vg);
}

void calc_K_xy_cbed(const fed& set, lattice lat, ei& intensity, r_hkl* K_t, int& effective) {
    if (set.calc_type != mesh_disk && set.calc_type != mesh_square)
        ov_abort(stderr, "$$(Calc_K_xy_cbed) Invalid calc_type (=%d). Abort.\n", set.calc_type);
    const int n = set.num_pix_side;
    const double D = set.disksize;
    const r_hkl e1 = set.zolzbase1;
    const r_hkl e2 = zolz_ort_base(set.zone_uvw, e1, lat);
    intensity.num_pix = n * n;
    effective = 0;
    int p = 0;
    for (int iy = 0; iy < n; ++iy) {
        for (int ix = 0; ix < n; ++ix) {
            const double G = iy * (D + D) / (n - 1) + (set.g_tilt - D);
            const double H = ix * (D + D) / (n - 1) + (set.h_tilt - D);
            const double x = H - set.h_tilt, y = G - set.g_tilt;
            const bool inside = set.calc_type == mesh_square || std::sqrt(x * x + y * y) < D + epsilon.general_eps;
            intensity.pixel[p] = {ix, iy, inside ? 1 : 0, H, G};
            K_t[p] = {(e1.h * H + e2.h * G) * 0.5, (e1.k * H + e2.k * G) * 0.5, (e1.l * H + e2.l * G) * 0.5};
            effective += inside ? 1 : 0;
            ++p;
        }
    }
    if (p != intensity.num_pix)
        ov_abort(stdout, "$$ Wrong ct(=%d) in calc_K_xy_cbed. Abort.\n", p);
}

void chk_incidence(const fed& set, csd& crystal, lattice lat) {
    const std::size_t size = size_product(to_size(set.num_pix_side), to_size(set.num_pix_side));
    r_hkl* K_t = new_vector<r_hkl>(size);
    ei grid = {};
    grid.pixel = new_vector<pixel>(size);
    int effective;
    calc_K_xy_cbed(set, lat, grid, K_t, effective);
    const double abs_K = chk_beam(set, crystal, lat);
    const double base_len = std::sqrt(sq_abs(set.zolzbase1, lat));
    for (int p = 0; p < grid.num_pix; ++p)
        if (grid.pixel[p].flag == 1)
            chk_tilt(abs_K, base_len, grid.pixel[p].h, grid.pixel[p].g);
    std::free(K_t);
    std::free(grid.pixel);
}

void set_calc_intensity_ei(int R, int T, int P, ei& intensity, double*** pix_int) {
    for (int r = 0; r < R; ++r)
        for (int t = 0; t < T; ++t)
            for (int p = 0; p < P; ++p)
                intensity.cal[r][t][p] = intensity.pixel[p].flag == 1 ? pix_int[p][r][t] : 0.0;
}

// ---- the pattern of one data set ------------------------------------------------------------

// Stores of one data set in one cycle: R reflections, T thicknesses, P pixels.
struct cycle_stores {
    int R, T, P;
    int num_thick;      // 2 T (2 n + 1) thicknesses of a tilt
    int* out_beams;     // R places in the beam list
    double* thick_list; // num_thick
    cycle_intensities calculated;
    r_hkl* K_t; // P
    work_cal_int work;
};

static cycle_stores new_stores(const fed& set, const ei& intensity, int num_perturb) {
    cycle_stores s = {};
    cycle_intensities& c = s.calculated;
    s.R = set.num_reflex;
    s.T = set.num_thickness;
    s.P = intensity.num_pix;
    c.n = epsilon.num_thickwidth;
    c.num_perturb = num_perturb;
    const std::size_t R = to_size(s.R), T = to_size(s.T), P = to_size(s.P), K = to_size(num_perturb);
    const std::size_t group = 2 * to_size(c.n) + 1, num_thick = size_product(2 * T, group);
    s.num_thick = static_cast<int>(num_thick);
    s.out_beams = new_vector<int>(R);
    s.thick_list = new_vector<double>(countable(num_thick));
    c.thick_wt = new_vector<double>(countable(group));
    c.tilt_int = new_matrix<double>(R, num_thick);
    c.pix_int = new_tensor<double>(P, R, 2 * T);
    if (num_perturb > 0) {
        c.tilt_p_int = new_tensor<double>(K, R, num_thick);
        c.pix_p_int = new_tensor4<double>(P, R, T, K);
    }
    s.K_t = new_vector<r_hkl>(P);
    alloc_work_cal_int(num_beams(set), s.R, num_perturb, s.work);
    return s;
}

static void free_stores(cycle_stores& s) {
    cycle_intensities& c = s.calculated;
    std::free(s.out_beams);
    std::free(s.thick_list);
    std::free(c.thick_wt);
    free_matrix(c.tilt_int);
    free_tensor(c.tilt_p_int);
    free_tensor(c.pix_int);
    free_tensor4(c.pix_p_int);
    std::free(s.K_t);
    free_work_cal_int(s.work);
}

static void find_reflections(fed& set, const ei& intensity, lattice lat, int* out_beams) {
    for (int r = 0; r < set.num_reflex; ++r) {
        const hkl g = intensity.reflex_hkl[r];
        out_beams[r] = find_n_g(num_beams(set), g.h, g.k, g.l, set.reflex_sel);
        if (out_beams[r] < 0)
            ov_abort(stdout, "$$ calc_cbed_pattern_perturb: %d %d %d not found. Abort.", g.h, g.k, g.l);
        set.g_len[r] = std::sqrt(sq_abs(hkl2rhkl(g.h, g.k, g.l), lat));
    }
}

// Computes pixel p: its places in pix_int and pix_p_int.
static void compute_pixel(const tilt_problem& problem, int p, const fed& set, cycle_stores& s) {
    calc_intensity_with_perturb_ug(problem, s.K_t[p], s.calculated.tilt_int, s.calculated.tilt_p_int, s.work);
    for (int r = 0; r < s.R; ++r)
        for (int t = 0; t < s.T; ++t)
            scale_tav(set, p, r, t, s.calculated);
}

// The tilt loop; pixels outside the disk keep their zeros.
static void walk_pixels(const tilt_problem& problem, const fed& set, const pixel* grid, int effective,
                        cycle_stores& s) {
    int count = 0;
    for (int p = 0; p < s.P; ++p) {
        if (grid[p].flag != 1)
            continue;
        if (count == 0) {
            exec_time_forecast(-1);
            ov_fprintf(stdout, " [one cycle] ");
        }
        progress_indicator(count, effective);
        compute_pixel(problem, p, set, s);
        if (count == 0)
            exec_time_forecast(effective);
        ++count;
    }
    exec_time_forecast(0);
}

// What all pixels share; refers to the stores.
static tilt_problem tilt_problem_of(const fed& set, csd& crystal, const cycle_potentials& potentials,
                                    const cycle_stores& s) {
    tilt_problem problem = new_tilt_problem(set, crystal, potentials.vg, lattice_of(crystal));
    problem.num_g = s.R;
    problem.out_beams = s.out_beams;
    problem.num_thickness = s.num_thick;
    problem.thickness = s.thick_list;
    problem.num_perturb = potentials.num_perturb;
    problem.pvg = potentials.pvg;
    return problem;
}

void calc_cbed_pattern_perturb(csd& crystal, fed& set, ei& intensity, const cycle_potentials& potentials,
                               normal_equations& equations, double& chisq, std::FILE* log) {
    const lattice lat = lattice_of(crystal);
    cycle_stores s = new_stores(set, intensity, potentials.num_perturb);
    thickweight_set(s.calculated.n, s.calculated.thick_wt);
    thickness_set(set, s.calculated.n, s.thick_list);
    int effective;
    calc_K_xy_cbed(set, lat, intensity, s.K_t, effective);
    find_reflections(set, intensity, lat, s.out_beams);
    ov_fprintf(stdout, "**CBED intensity calculation\n");
    walk_pixels(tilt_problem_of(set, crystal, potentials, s), set, intensity.pixel, effective, s);
    set_calc_intensity_ei(s.R, s.T, s.P, intensity, s.calculated.pix_int);
    set_extr_obs_int(s.T, s.R, set, intensity, log);
    chisq = calc_chisq(set, intensity);

    double penalty;
    eval_alpha_beta_rst(crystal, set, intensity, s.calculated, equations, penalty);
    ov_fprintf_stdo(log, "$$ chisq= %g, penalty_chisq= %g\n", chisq, penalty);
    chisq += penalty;
    free_stores(s);
}

// ---- the cycle ------------------------------------------------------------------------------

static cycle_potentials new_potentials(const fed& set, lattice lat, const fit_context& context) {
    const std::size_t N = to_size(set.num_exact_beam + set.num_bethe_beam);
    cycle_potentials potentials = {new_matrix<complex>(N, N), context.num_perturb, nullptr};
    ov_fprintf(stdout, "**Potential:\n");
    int flag;
    potential_matrix_csd(set.num_exact_beam, set.num_bethe_beam, set.reflex_sel, *context.csd, set.kv, lat,
                         potentials.vg, flag);
    if (flag != 0)
        ov_fprintf_stdo(context.log, "$$ Error in Fg. You should check params.\n");
    debug_vg_dump(potentials.vg, static_cast<int>(N));
    if (context.num_perturb < 1)
        return potentials;
    ov_fprintf(stdout, "**Perturbed potentials:\n");
    ov_fflush(stdout);
    potentials.pvg = new_tensor<complex>(to_size(context.num_perturb), N, N);
    perturbed_potential_matrix(context.num_perturb, potentials.pvg, *context.csd, set, lat, flag);
    if (flag != 0)
        ov_fprintf_stdo(context.log, "$$ Error in Fg calc.  Please check parameters.\n");
    return potentials;
}

// One data set: beams, potentials, pattern. Returns its chi-square.
static double calc_data_set(int i, normal_equations& equations, lattice lat, fit_context& context) {
    csd& crystal = *context.csd;
    fed& set = context.fed[i];
    const bool automatic = method_of(set.beam_search.flag_bs) != method_manual;
    if (automatic)
        auto_ed_beams(set, crystal);
    reflex_dump_csd(i, set, crystal, lat);
    cycle_potentials potentials = new_potentials(set, lat, context);
    double chisq;
    calc_cbed_pattern_perturb(crystal, set, context.ei[i], potentials, equations, chisq, context.log);
    free_matrix(potentials.vg);
    free_tensor(potentials.pvg);
    if (automatic) {
        std::free(set.reflex_sel);
        set.reflex_sel = nullptr;
    }
    return chisq;
}

void dynamical_calculation(const double* par, int num_fitpar, double** alpha, double* beta, double& chisq,
                           fit_context& context) {
    static int ct_iter = 0;
    csd& crystal = *context.csd;
    fitpar_to_csd_fed(crystal, context.num_fed, context.fed, num_fitpar, par);
    constraint_csd(crystal);
    constraint_fed(context.num_fed, context.fed);
    const lattice lat = lattice_of(crystal);
    for (int i = 0; i < context.num_fed; ++i)
        chk_incidence(context.fed[i], crystal, lat);
    normal_equations equations;
    equations.num_fitpar = num_fitpar;
    equations.alpha = alpha;
    equations.beta = beta;
    chisq = 0.0;
    for (int i = 0; i < context.num_fed; ++i)
        chisq += calc_data_set(i, equations, lat, context);

    if (ct_iter == 0) {
        ov_fprintf_stdo(context.log, "$$ 1st cycle\n");
        ov_fprintf_stdo(context.log, "chisq of the 1st cycle = %g.\n", chisq);
    }
    char base[path_max];
    std::snprintf(base, sizeof base, ct_iter == 0 ? "%s_fst" : "%s_res", context.stem);
    ++ct_iter;
    for (int i = 0; i < context.num_fed; ++i)
        ov_fprintf_stdo(context.log, "Intensity output: %s%d.txt\n", base, i);
    fit_res_output(context.num_fed, context.fed, context.ei, crystal, base);
}

} // namespace orvel
