// SPDX-License-Identifier: MIT
#include "crystal/csd.h"

#include <cstdlib>
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "crystal/cnstfunc.h"
#include "numeric/vecmat.h"

namespace orvel {

// Values begin .. end - 1 of a part, one line each.
static void fget_values(std::FILE* file, csd& crystal, int part, int begin, int end) {
    for (int n = begin; n < end; ++n) {
        const csd_value v = value_of(crystal, part, n);
        fget_fitpar(v.descriptor, v.value, file);
    }
}

void fget_latpar_cstr(std::FILE* file, csd& crystal) {
    fget_values(file, crystal, cell_part, 0, num_values(crystal, cell_part));
}

static void fget_element(atom& site, std::FILE* file) {
    char name[line_max];
    fget_word(name, file);
    if (std::strlen(name) >= element_max)
        ov_abort(stdout, "$$ Element name %s is too long. Abort.\n", name);
    copy_text(site.element, element_max, name);
}

static int fget_bf(std::FILE* file) {
    char word[line_max];
    fget_word(word, file);
    if (std::strcmp(word, "ISO") == 0 || std::strcmp(word, "0") == 0)
        return 0;
    if (std::strcmp(word, "ANISO") == 0 || std::strcmp(word, "1") == 0)
        return 1;
    ov_abort(stdout, "$$ Invalid bf. Abort.\n");
}

static void fget_site(std::FILE* file, csd& crystal, int i) {
    const int part = site_part(i);
    atom& site = crystal.site[i];
    chk_data("SITE{", file);
    fget_element(site, file);
    crystal.xdt[i] = read_xdt_table(site.element);
    crystal.bk[i] = read_atom_dat_table(site.element);
    fget_values(file, crystal, part, 0, temperature_place);
    site.bf = fget_bf(file);
    fget_values(file, crystal, part, temperature_place, num_values(crystal, part));
    site.af = fget_i(file);
    chk_data("}SITE", file);
}

void fget_atmpar_cstr(std::FILE* file, csd& crystal) {
    for (int i = 0; i < crystal.num_site; ++i)
        fget_site(file, crystal, i);
}

void fget_lofg_cstr(std::FILE* file, csd& crystal) {
    for (int i = 0; i < crystal.num_lofg; ++i) {
        const int part = lofg_part(crystal, i);
        fget_hkl(&crystal.lofg_hkl[i], file);
        fget_values(file, crystal, part, 0, num_values(crystal, part));
    }
}

static void chk_lof_type(int lof_type) {
    if (lof_type == lof_reserved)
        ov_abort(stdout, "$$ Sorry, lof_type = 5 is not available. Abort.\n");
    if (lof_type < lof_fg || lof_type > lof_reserved)
        ov_abort(stdout, "$$(fget_low_g_cst) Invalid lof_type(=%d). Abort.\n", lof_type);
}

static void input_lattice(csd& crystal, std::FILE* file) {
    int inversion_flag;
    chk_data("LATTICE{", file);
    crystal.sg_no = fget_i(file);
    crystal.sym_op = read_sp_group_tbl(crystal.sg_no, crystal.num_sym_op, inversion_flag,
                                       crystal.latt_type, crystal.r_hex_axes);
    fget_latpar_cstr(file, crystal);
    chk_data("}LATTICE", file);
}

static void input_atoms(csd& crystal, std::FILE* file) {
    chk_data("ATOM{", file);
    alloc_csd_sites(fget_i(file), crystal);
    fget_atmpar_cstr(file, crystal);
    chk_data("}ATOM", file);
}

static void input_low_order(csd& crystal, std::FILE* file) {
    chk_data("LOW_ORDER_FG{", file);
    crystal.num_lofg = fget_i(file);
    if (crystal.num_lofg > 0) {
        alloc_csd_lofg(crystal.num_lofg, crystal);
        crystal.lof_type = fget_i(file);
        chk_lof_type(crystal.lof_type);
        alloc_csd_sub_cstr(crystal.num_site, crystal.num_lofg, crystal.lof_type, crystal);
        fget_lofg_cstr(file, crystal);
    }
    chk_data("}LOW_ORDER_FG", file);
}

void input_csd_cstr(csd& crystal, std::FILE* file, const char* stem) {
    crystal = {};
    chk_data("CRYSTAL_STRUCTURE_DATA{", file);
    input_lattice(crystal, file);
    input_atoms(crystal, file);
    input_low_order(crystal, file);
    chk_data("}CRYSTAL_STRUCTURE_DATA", file);
    constraint_csd(crystal);
    atom_multiplicity(crystal);
    dbg_atm_pos_out(crystal, stem);
}

static void gen_all_pos(const csd& crystal, int i, r_uvw* positions) {
    const atom& site = crystal.site[i];
    for (int n = 0; n < crystal.num_sym_op; ++n)
        positions[n] = gen_pos({site.x, site.y, site.z}, crystal.sym_op[n]);
}

void atom_multiplicity(csd& crystal) {
    r_uvw* positions = new_vector<r_uvw>(to_size(crystal.num_sym_op));
    for (int i = 0; i < crystal.num_site; ++i) {
        gen_all_pos(crystal, i, positions);
        const int count = special_pos_check(crystal.num_sym_op, positions);
        if (epsilon.auto_multiplicity_off == 0)
            crystal.site[i].multiplicity = static_cast<double>(count) / crystal.num_sym_op;
        else if (epsilon.auto_multiplicity_off == 1)
            crystal.site[i].multiplicity = 1.0;
        else
            ov_abort(stdout, "$$ invalid auto_multiplicity_off=%d\n. Abort.\n", epsilon.auto_multiplicity_off);
    }
    std::free(positions);
}

void newpos_sym_op(const csd& crystal, int* counts, r_uvw** positions) {
    for (int i = 0; i < crystal.num_site; ++i) {
        gen_all_pos(crystal, i, positions[i]);
        if (epsilon.auto_multiplicity_off == 0)
            counts[i] = special_pos_check(crystal.num_sym_op, positions[i]);
        else if (epsilon.auto_multiplicity_off == 1)
            counts[i] = crystal.num_sym_op;
        else
            ov_abort(stdout, "$$ Invalid epsilon.auto_multiplicity_off. Abort.\n");
    }
}

void fprint_gen_atom_pos(std::FILE* file, const csd& crystal) {
    const int num_sym_op = crystal.num_sym_op;
    int* counts = new_vector<int>(to_size(crystal.num_site));
    r_uvw** positions = new_matrix<r_uvw>(to_size(crystal.num_site), to_size(num_sym_op));
    newpos_sym_op(crystal, counts, positions);

    ov_fprintf(file, "* All atom positions\n*\n");
    for (int i = 0; i < crystal.num_site; ++i) {
        ov_fprintf(file, "* Atom[%d]: %s\n", i + 1, crystal.site[i].element);
        ov_fprintf(file, "* number of atom positions = %d  (multiplicity = %d/%d = %g)\n",
                   counts[i], counts[i], num_sym_op, static_cast<double>(counts[i]) / num_sym_op);
        ov_fprintf(file, "no:\tx\ty\tz\n");
        for (int n = 0; n < counts[i]; ++n)
            ov_fprintf(file, "%d\t%g\t%g\t%g\n", n, positions[i][n].u, positions[i][n].v, positions[i][n].w);
        ov_fprintf(file, " Occupancy = %g\n", crystal.site[i].occupancy);
    }
    free_matrix(positions);
    std::free(counts);
}

void dbg_atm_pos_out(const csd& crystal, const char* stem) {
    if (dbg.atm_pos_out_flag != 1)
        return;
    char name[path_max];
    std::snprintf(name, sizeof name, "%s_aps.txt", stem);
    std::FILE* file = ov_fopen_chk_wmode(name);
    ov_fprintf(stdout, "$$ Generated atom positions ==> %s\n", name);
    fprint_gen_atom_pos(file, crystal);
    ov_fclose(file);
}

} // namespace orvel
