// SPDX-License-Identifier: MIT
#include "refine/fitfunc.h"

#include "control/ov_mpi.h"
#include "control/settings.h"

namespace orvel {

static const char* const double_rule = "# ==================================================\n";
static const char* const single_rule = "# --------------------------------------------------\n";

void fprintf_cstr(const fitpar& descriptor, double value, const char* label, std::FILE* stream) {
    switch (descriptor.idx) {
    case kind_fix:
        ov_fprintf(stream, "%g  FIX  %s  #%s\n", value, descriptor.id, label);
        break;
    case kind_adj:
        ov_fprintf(stream, "%g  ADJ  %s  #%s\n", value, descriptor.id, label);
        break;
    case kind_rst:
        ov_fprintf(stream, "%g  RST  %s  %g  #%s\n", value, descriptor.id, descriptor.rst, label);
        break;
    case kind_cst:
        ov_fprintf(stream, "%s  CST  %s  #%s\n", descriptor.val_str, descriptor.id, label);
        break;
    default:
        ov_abort(stdout, "$$(fprintf_cstr) Invalid flg(=%d). Abort.\n", descriptor.idx);
    }
}

void print_fit_mode_opening(std::FILE* stream, const char* name) {
    ov_fprintf(stream, "# %s\n", name);
    ov_fprintf(stream, "# data format for orvel ver 3.*\n");
    ov_fprintf(stream, "%s", double_rule);
    ov_fprintf(stream, "# job type\n");
    ov_fprintf(stream, "FIT_MODE\n");
    ov_fprintf(stream, "%s", double_rule);
}

void print_EPS_CONTROL_PARAMETERS(std::FILE* stream) {
    ov_fprintf(stream, "EPS_CONTROL_PARAMETERS{\n");
    ov_fprintf(stream, "intensity_scaling  %g  #Scaling incident beam intensity\n", epsilon.intensity_scaling);
    ov_fprintf(stream, "auto_multiplicity_off  %d  #0:normal 1:manual (for the split-atom method)\n",
               epsilon.auto_multiplicity_off);
    ov_fprintf(stream, "}EPS_CONTROL_PARAMETERS\n");
}

static void print_fitting_remarks(std::FILE* stream) {
    ov_fprintf(stream, "%s", double_rule);
    ov_fprintf(stream, "# fitting parameter:\n");
    ov_fprintf(stream, "#  value (or constraint), fitting flag, parameter's name\n");
    ov_fprintf(stream, "#  - constraint:\n");
    ov_fprintf(stream, "#  - fitting flag:   FIX:fix, ADJ:fit, CST:constrained\n");
    ov_fprintf(stream, "#  - parameter's name: \n");
    ov_fprintf(stream, "#\n");
}

// ---- the crystal ----------------------------------------------------------------------------

// Values begin .. end - 1 of a part.
static void print_values(std::FILE* stream, csd& crystal, int part, int begin, int end) {
    for (int n = begin; n < end; ++n) {
        const csd_value v = value_of(crystal, part, n);
        fprintf_cstr(*v.descriptor, *v.value, v.label, stream);
    }
}

static void print_site(std::FILE* stream, csd& crystal, int i) {
    const int part = site_part(i);
    const atom& site = crystal.site[i];
    if (site.bf != 0 && site.bf != 1)
        ov_abort(stdout, "$$ Invalid b_flag. Abort.\n");
    ov_fprintf(stream, "SITE{\n");
    ov_fprintf(stream, "%s\n", site.element);
    print_values(stream, crystal, part, 0, temperature_place);
    ov_fprintf(stream, "%d    # B type (0: isotropic, 1:anisotropic)\n", site.bf);
    print_values(stream, crystal, part, temperature_place, num_values(crystal, part));
    ov_fprintf(stream, "%d  # f-table (0:Mott+BK, 1:B&K)\n", site.af);
    ov_fprintf(stream, "}SITE\n");
}

// Lines in front of the low-order reflections.
static void print_lof_head(std::FILE* stream, int lof_type) {
    switch (lof_type) {
    case lof_fg:
        ov_fprintf(stream, "%d    #lof_type\n# (total Fg)\n", lof_type);
        break;
    case lof_fg_ela:
        ov_fprintf(stream, "%d\n# (elastic Fg) \n", lof_type);
        break;
    case lof_f:
        ov_fprintf(stream, "%d\n# (elastic ang inelastic f)\n", lof_type);
        break;
    case lof_f_inela:
        ov_fprintf(stream, "# lof_type\n#  (elastic f)\n%d\n", lof_type);
        break;
    default:
        ov_abort(stdout, "$$ Invalid lof_type (=%d). Abort.\n", lof_type);
    }
}

static void print_lof_entry(std::FILE* stream, csd& crystal, int i) {
    const hkl g = crystal.lofg_hkl[i];
    const int part = lofg_part(crystal, i);
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "%d  %d  %d  #hkl\n", g.h, g.k, g.l);
    print_values(stream, crystal, part, 0, num_values(crystal, part));
}

void print_LOW_ORDER_FG(std::FILE* stream, csd& crystal) {
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "%s", single_rule);
    ov_fprintf(stream, "# Low-order Fg for electrons\n");
    ov_fprintf(stream, "#  - Angstrom unit without relativistic correction\n");
    ov_fprintf(stream, "#  - lof_type\n");
    ov_fprintf(stream, "#     1: total (ela + inela) Fg.re, Fg.im\n");
    ov_fprintf(stream, "#     2: elastic Fg.re and Fg.im\n");
    ov_fprintf(stream, "#  - The values for symmetrically-equivalent \n");
    ov_fprintf(stream, "#     reflections are automatically generated.\n");
    ov_fprintf(stream, "%s", single_rule);
    ov_fprintf(stream, "LOW_ORDER_FG{\n");
    ov_fprintf(stream, "%d  # Number of low-order g\n", crystal.num_lofg);
    // Less than none was read as none.
    if (crystal.num_lofg > 0)
        print_lof_head(stream, crystal.lof_type);
    for (int i = 0; i < crystal.num_lofg; ++i)
        print_lof_entry(stream, crystal, i);
    ov_fprintf(stream, "}LOW_ORDER_FG\n");
}

void print_CRYSTAL_STRUCTURE_DATA(std::FILE* stream, csd& crystal) {
    ov_fprintf(stream, "CRYSTAL_STRUCTURE_DATA{\n");
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "LATTICE{\n");
    ov_fprintf(stream, "%d    # space group number\n", crystal.sg_no);
    ov_fprintf(stream, "# lattice parameter\n");
    print_values(stream, crystal, cell_part, 0, num_values(crystal, cell_part));
    ov_fprintf(stream, "}LATTICE\n");
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "ATOM{\n");
    ov_fprintf(stream, "%d    # number of independent sites\n", crystal.num_site);
    for (int i = 0; i < crystal.num_site; ++i)
        print_site(stream, crystal, i);
    ov_fprintf(stream, "}ATOM\n");
    print_LOW_ORDER_FG(stream, crystal);
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "}CRYSTAL_STRUCTURE_DATA\n");
    ov_fprintf(stream, "%s%s", double_rule, double_rule);
}

// ---- data sets ------------------------------------------------------------------------------

static void print_search_limits(std::FILE* stream, const char* kind, const char* limits, const beam_search& bs) {
    ov_fprintf(stream, "#Auto type [%s]\n", kind);
    ov_fprintf(stream, "# num_g_limit  g_max[A^{-1}]  lz_min  lz_max  disksize\n");
    ov_fprintf(stream, "%d  %g  %d  %d  %g\n", bs.num_g_limit, bs.g_max, bs.lz_min, bs.lz_max, bs.disksize);
    ov_fprintf(stream, "# %s,  xi_g_max\n", limits);
}

static void print_manual_beams(std::FILE* stream, const fed& set) {
    ov_fprintf(stream, "#Manual type\n");
    ov_fprintf(stream, "%d  %d    #num_exact_beam num_bethe_beam\n", set.num_exact_beam, set.num_bethe_beam);
    ov_fprintf(stream, "# hkl\n");
    for (int i = 0; i < set.num_exact_beam + set.num_bethe_beam; ++i)
        ov_fprintf(stream, "%d  %d  %d\n", set.reflex_sel[i].h, set.reflex_sel[i].k, set.reflex_sel[i].l);
}

void print_BEAM_SEARCH(std::FILE* stream, const fed& set) {
    const beam_search& bs = set.beam_search;
    ov_fprintf(stream, "# ----- Beam search -------------------------\n");
    ov_fprintf(stream, "# search method\n");
    ov_fprintf(stream, "#   0: manual\n");
    ov_fprintf(stream, "#   1,2,3: automatic + generalized Bethe approx.\n");
    ov_fprintf(stream, "#          [1:wg, 2:sg, 3:sg-multi] \n");
    ov_fprintf(stream, "#   11,12,13: automatic + simple Bethe approx.\n");
    ov_fprintf(stream, "#             [11:wg, 12:sg, 13:sg-multi] \n");
    ov_fprintf(stream, "BEAM_SEARCH{\n");
    ov_fprintf(stream, "%d  #search method\n", bs.flag_bs);
    switch (method_of(bs.flag_bs)) {
    case method_manual:
        print_manual_beams(stream, set);
        break;
    case method_wg:
        print_search_limits(stream, "wg", "w_g_bethe_min,  w_g_max", bs);
        ov_fprintf(stream, "%g  %g  %g\n", bs.wgbmin, bs.wgmax, bs.xigmax);
        break;
    case method_sg:
        print_search_limits(stream, "sg", "s_g_bethe_min,  s_g_max", bs);
        ov_fprintf(stream, "%g  %g  %g\n", bs.sgbmin, bs.sgmax, bs.xigmax);
        break;
    case method_sg_multi:
        print_search_limits(stream, "sg-multi", "s_g_bethe_min,  s_g_max", bs);
        for (int lz = 0; lz <= bs.lz_max; ++lz)
            ov_fprintf(stream, "%g  %g  %g  #d-LZ:\n", bs.sgbmin_lz[lz], bs.sgmax_lz[lz], bs.xigmax_lz[lz]);
        break;
    default:
        break;
    }
    ov_fprintf(stream, "}BEAM_SEARCH\n");
}

void print_calcpar1(std::FILE* stream, int i, const fed* sets) {
    const fed& set = sets[i];
    ov_fprintf(stream, "INCIDENT_BEAM{\n");
    ov_fprintf(stream, "%d  %d  %d  #Incidence  (upward)\n", set.zone_uvw.u, set.zone_uvw.v, set.zone_uvw.w);
    ov_fprintf(stream, "%d  %d  %d  #Surface normal (upward)\n", set.normal_uvw.u, set.normal_uvw.v, set.normal_uvw.w);
    ov_fprintf(stream, "%g  %g  %g  #ZOLZ base vector\n", set.zolzbase1.h, set.zolzbase1.k, set.zolzbase1.l);
    fprintf_cstr(set.h_tilt_fitpar, set.h_tilt, "H_tilt", stream);
    fprintf_cstr(set.g_tilt_fitpar, set.g_tilt, "G_tilt", stream);
    fprintf_cstr(set.kv_fitpar, set.kv, "Accelerating Voltage [kV]", stream);
    ov_fprintf(stream, "}INCIDENT_BEAM\n");
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "CALC_KXY_RANGE{\n");
    ov_fprintf(stream, "%d  #0: 0D, 1: 1D, 2: 2D disk, 3: 2D square\n", set.calc_type);
    ov_fprintf(stream, "%d  #num_cal_pix_side\n", set.num_pix_side);
    ov_fprintf(stream, "%g    #Disksize\n", set.disksize);
    ov_fprintf(stream, "}CALC_KXY_RANGE\n");
    print_BEAM_SEARCH(stream, set);
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "INTENSITY_DATA{\n");
    ov_fprintf(stream, "# Intensity file\n");
    ov_fprintf(stream, "%s\n", set.int_file);
    ov_fprintf(stream, "%d    # Number of thicknesses\n", set.num_thickness);
    ov_fprintf(stream, "%d    # Number of reflections\n", set.num_reflex);
    ov_fprintf(stream, "}INTENSITY_DATA\n");
}

static void print_reflex_shift(std::FILE* stream, int r, int t, const fed& set, const ei& e) {
    const hkl g = e.reflex_hkl[r];
    ov_fprintf(stream, "#reflex %d\n", r);
    ov_fprintf(stream, "%d  %d  %d  %g  #h k l weight\n", g.h, g.k, g.l, set.weight[r][t]);
    fprintf_cstr(set.H_shift_fitpar[r][t], set.H_shift[r][t], "H_shift", stream);
    fprintf_cstr(set.G_shift_fitpar[r][t], set.G_shift[r][t], "G_shift", stream);
}

void print_THICKNESS_BLOCK(std::FILE* stream, int i, int t, const fed* sets, const ei* intensities) {
    const fed& set = sets[i];
    ov_fprintf(stream, "THICKNESS_BLOCK{\n");
    ov_fprintf(stream, "# Thickness No. %d \n", t);
    ov_fprintf(stream, "STW_PAR{\n");
    fprintf_cstr(set.scale_fitpar[t], set.scale_factor[t], "scale_factor", stream);
    fprintf_cstr(set.thickness_fitpar[t], set.thickness[t], "thickness", stream);
    fprintf_cstr(set.thickness_width_fitpar[t], set.thickness_width[t], "thickness_width[plus-minus]", stream);
    ov_fprintf(stream, "# num_thickwidth  0  # num_thickwidth * 2 + 1 --> calc. points\n");
    ov_fprintf(stream, "# thickwidth_type  1  # 0:rectangle, 1:triangle, 2:Gaussian\n");
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "# Gaussian convolution:\n");
    ov_fprintf(stream, "#   number of pixels (odd), Gaussian par. (a: exp(-x^2/a^2) )\n");
    ov_fprintf(stream, "#   if num.=0 then no convolution\n");
    ov_fprintf(stream, "%d  %g\n", set.num_avrpix[t], set.gaussian_par[t]);
    ov_fprintf(stream, "}STW_PAR\n");
    ov_fprintf(stream, "REFLEX_SHIFT_PAR{\n");
    for (int r = 0; r < set.num_reflex; ++r)
        print_reflex_shift(stream, r, t, set, intensities[i]);
    ov_fprintf(stream, "}REFLEX_SHIFT_PAR\n");
    ov_fprintf(stream, "}THICKNESS_BLOCK\n");
}

void output_FIT_MODE_file(const char* name, csd& crystal, int max_iteration, int num_fed, fed* sets,
                          const ei* intensities) {
    std::FILE* stream = ov_fopen_chk_wmode(name);
    print_fit_mode_opening(stream, name);
    print_EPS_CONTROL_PARAMETERS(stream);
    print_fitting_remarks(stream);
    print_CRYSTAL_STRUCTURE_DATA(stream, crystal);
    ov_fprintf(stream, "#\n");
    ov_fprintf(stream, "FIT_CALCULATION_CONDITION{\n");
    ov_fprintf(stream, "ITER_EXP_NUM{\n");
    ov_fprintf(stream, "%d    #Max. number of iteration\n", max_iteration);
    ov_fprintf(stream, "%d    #Number of experimental data sets\n", num_fed);
    ov_fprintf(stream, "}ITER_EXP_NUM\n");
    ov_fprintf(stream, "#\n");
    for (int i = 0; i < num_fed; ++i) {
        ov_fprintf(stream, "DATA_SET{\n");
        ov_fprintf(stream, "# Data set no. %d\n", i);
        print_calcpar1(stream, i, sets);
        for (int t = 0; t < sets[i].num_thickness; ++t) {
            ov_fprintf(stream, "#\n");
            print_THICKNESS_BLOCK(stream, i, t, sets, intensities);
        }
        ov_fprintf(stream, "}DATA_SET\n");
    }
    ov_fprintf(stream, "}FIT_CALCULATION_CONDITION\n");
    ov_fclose(stream);
}

} // namespace orvel
