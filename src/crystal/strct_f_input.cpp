// SPDX-License-Identifier: MIT
#include "crystal/strct_f.h"

#include <cstdlib>
#include <cstring>

#include "control/orvel.h"
#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/utils.h"
#include "crystal/cnstfunc.h"
#include "numeric/vecmat.h"

namespace orvel {

const atom_value atom_values[num_atom_values] = {
    {&atom::x, slot_x, -1, "x (frac. coord.)"},
    {&atom::y, slot_y, -1, "y (frac. coord.)"},
    {&atom::z, slot_z, -1, "z (frac. coord.)"},
    {&atom::B, slot_B, 0, "B [A^{2}]"},
    {&atom::beta11, slot_beta11, 1, "beta11"},
    {&atom::beta22, slot_beta22, 1, "beta22"},
    {&atom::beta33, slot_beta33, 1, "beta33"},
    {&atom::beta12, slot_beta12, 1, "beta12"},
    {&atom::beta13, slot_beta13, 1, "beta13"},
    {&atom::beta23, slot_beta23, 1, "beta23"},
    {&atom::occupancy, slot_occupancy, -1, "occupancy (0-1)"},
};

cell_values cell_of(csd& crystal) {
    return {{&crystal.a, &crystal.b, &crystal.c, &crystal.alpha, &crystal.beta, &crystal.gamma}};
}

lattice lattice_of(const csd& crystal) {
    return bravai(crystal.a, crystal.b, crystal.c, crystal.alpha, crystal.beta, crystal.gamma);
}

void fget_latpar_cstr(std::FILE* file, cell_values values, fitpar* descriptors) {
    for (int i = 0; i < 6; ++i)
        fget_fitpar(&descriptors[i], values.value[i], file);
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

static void fget_site(std::FILE* file, atom& site, atom_fitpar& descriptors, xdt_tbl& xdt, bk_tbl& bk) {
    chk_data("SITE{", file);
    fget_element(site, file);
    xdt = read_xdt_table(site.element);
    bk = read_atom_dat_table(site.element);
    for (const atom_value& entry : atom_values) {
        // The kind of temperature factor stands between the coordinates and its values.
        if (entry.slot == slot_B)
            site.bf = fget_bf(file);
        if (entry.only_bf == -1 || entry.only_bf == site.bf)
            fget_fitpar(&descriptors.slot[entry.slot], &(site.*entry.value), file);
    }
    site.af = fget_i(file);
    chk_data("}SITE", file);
}

void fget_atmpar_cstr(std::FILE* file, int num_site, atom* sites, atom_fitpar* descriptors, xdt_tbl* xdt, bk_tbl* bk) {
    for (int i = 0; i < num_site; ++i)
        fget_site(file, sites[i], descriptors[i], xdt[i], bk[i]);
}

void fget_lofg_cstr(std::FILE* file, int num_site, int num_lofg, hkl* hkls, int lof_type,
                    lofg_value* values, lofg_fitpar_set* descriptors) {
    for (int i = 0; i < num_lofg; ++i) {
        fget_hkl(&hkls[i], file);
        lofg_value& value = values[i];
        lofg_fitpar_set& descriptor = descriptors[i];
        switch (lof_type) {
        case lof_fg:
            fget_fitpar(&descriptor.fg_re, &value.fg_re, file);
            fget_fitpar(&descriptor.fg_im, &value.fg_im, file);
            break;
        case lof_fg_ela:
            fget_fitpar(&descriptor.fg_ela_re, &value.fg_ela_re, file);
            fget_fitpar(&descriptor.fg_ela_im, &value.fg_ela_im, file);
            break;
        case lof_f:
        case lof_f_inela:
            for (int site = 0; site < num_site; ++site) {
                fget_fitpar(&descriptor.f_ela[site], &value.f_ela[site], file);
                fget_fitpar(&descriptor.f_inela[site], &value.f_inela[site], file);
            }
            break;
        default:
            break;
        }
    }
}

static void chk_lof_type(int lof_type) {
    if (lof_type == lof_reserved)
        ov_abort(stdout, "$$ Sorry, lof_type = 5 is not available. Abort.\n");
    if (lof_type < lof_fg || lof_type > lof_reserved)
        ov_abort(stdout, "$$(fget_low_g_cst) Invalid lof_type(=%d). Abort.\n", lof_type);
}

static bool has_site_factors(int lof_type) { return lof_type == lof_f || lof_type == lof_f_inela; }

void alloc_csd_sub_cstr(int num_site, int num_lofg, int lof_type, csd& crystal) {
    if (!has_site_factors(lof_type))
        return;
    const std::size_t n = to_size(num_site);
    for (int i = 0; i < num_lofg; ++i) {
        crystal.lofg[i].f_ela = new_vector<double>(n);
        crystal.lofg[i].f_inela = new_vector<double>(n);
        crystal.lofg_fitpar[i].f_ela = new_vector<fitpar>(n);
        crystal.lofg_fitpar[i].f_inela = new_vector<fitpar>(n);
    }
}

static void input_lattice(csd& crystal, std::FILE* file) {
    int inversion_flag;
    chk_data("LATTICE{", file);
    crystal.sg_no = fget_i(file);
    crystal.sym_op = read_sp_group_tbl(crystal.sg_no, crystal.num_sym_op, inversion_flag,
                                       crystal.latt_type, crystal.r_hex_axes);
    fget_latpar_cstr(file, cell_of(crystal), crystal.lp_fitpar);
    chk_data("}LATTICE", file);
}

static void input_atoms(csd& crystal, std::FILE* file) {
    chk_data("ATOM{", file);
    crystal.num_site = fget_i(file);
    const std::size_t n = to_size(crystal.num_site);
    crystal.site = new_vector<atom>(n);
    crystal.site_fitpar = new_vector<atom_fitpar>(n);
    crystal.xdt = new_vector<xdt_tbl>(n);
    crystal.bk = new_vector<bk_tbl>(n);
    fget_atmpar_cstr(file, crystal.num_site, crystal.site, crystal.site_fitpar, crystal.xdt, crystal.bk);
    chk_data("}ATOM", file);
}

static void input_low_order(csd& crystal, std::FILE* file) {
    chk_data("LOW_ORDER_FG{", file);
    crystal.num_lofg = fget_i(file);
    if (crystal.num_lofg > 0) {
        const std::size_t n = to_size(crystal.num_lofg);
        crystal.lofg_hkl = new_vector<hkl>(n);
        crystal.lofg = new_vector<lofg_value>(n);
        crystal.lofg_fitpar = new_vector<lofg_fitpar_set>(n);
        crystal.lof_type = fget_i(file);
        chk_lof_type(crystal.lof_type);
        alloc_csd_sub_cstr(crystal.num_site, crystal.num_lofg, crystal.lof_type, crystal);
        fget_lofg_cstr(file, crystal.num_site, crystal.num_lofg, crystal.lofg_hkl, crystal.lof_type,
                       crystal.lofg, crystal.lofg_fitpar);
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
    atom_multiplicity(crystal.num_site, crystal.site, crystal.num_sym_op, crystal.sym_op);
    dbg_atm_pos_out(crystal, stem);
}

void free_csd(csd& crystal) {
    std::free(crystal.sym_op);
    std::free(crystal.site);
    std::free(crystal.site_fitpar);
    std::free(crystal.xdt);
    std::free(crystal.bk);
    if (crystal.num_lofg < 1)
        return;
    std::free(crystal.lofg_hkl);
    for (int i = 0; i < crystal.num_lofg && has_site_factors(crystal.lof_type); ++i) {
        std::free(crystal.lofg[i].f_ela);
        std::free(crystal.lofg[i].f_inela);
        std::free(crystal.lofg_fitpar[i].f_ela);
        std::free(crystal.lofg_fitpar[i].f_inela);
    }
    std::free(crystal.lofg);
    std::free(crystal.lofg_fitpar);
}

static void gen_all_pos(const atom& site, int num_sym_op, const sym_op* sym_ops, r_uvw* positions) {
    for (int i = 0; i < num_sym_op; ++i)
        positions[i] = gen_pos({site.x, site.y, site.z}, sym_ops[i]);
}

void atom_multiplicity(int num_site, atom* sites, int num_sym_op, const sym_op* sym_ops) {
    r_uvw* positions = new_vector<r_uvw>(to_size(num_sym_op));
    for (int i = 0; i < num_site; ++i) {
        gen_all_pos(sites[i], num_sym_op, sym_ops, positions);
        const int count = special_pos_check(num_sym_op, positions);
        if (epsilon.auto_multiplicity_off == 0)
            sites[i].multiplicity = static_cast<double>(count) / num_sym_op;
        else if (epsilon.auto_multiplicity_off == 1)
            sites[i].multiplicity = 1.0;
        else
            ov_abort(stdout, "$$ invalid auto_multiplicity_off=%d\n. Abort.\n", epsilon.auto_multiplicity_off);
    }
    std::free(positions);
}

void newpos_sym_op(int num_site, const atom* sites, int* counts, r_uvw** positions,
                   int num_sym_op, const sym_op* sym_ops) {
    for (int i = 0; i < num_site; ++i) {
        gen_all_pos(sites[i], num_sym_op, sym_ops, positions[i]);
        if (epsilon.auto_multiplicity_off == 0)
            counts[i] = special_pos_check(num_sym_op, positions[i]);
        else if (epsilon.auto_multiplicity_off == 1)
            counts[i] = num_sym_op;
        else
            ov_abort(stdout, "$$ Invalid epsilon.auto_multiplicity_off. Abort.\n");
    }
}

void fprint_gen_atom_pos(std::FILE* file, int num_sym_op, const sym_op* sym_ops, int num_site, const atom* sites) {
    int* counts = new_vector<int>(to_size(num_site));
    r_uvw** positions = new_matrix<r_uvw>(to_size(num_site), to_size(num_sym_op));
    newpos_sym_op(num_site, sites, counts, positions, num_sym_op, sym_ops);

    ov_fprintf(file, "* All atom positions\n*\n");
    for (int i = 0; i < num_site; ++i) {
        ov_fprintf(file, "* Atom[%d]: %s\n", i + 1, sites[i].element);
        ov_fprintf(file, "* number of atom positions = %d  (multiplicity = %d/%d = %g)\n",
                   counts[i], counts[i], num_sym_op, static_cast<double>(counts[i]) / num_sym_op);
        ov_fprintf(file, "no:\tx\ty\tz\n");
        for (int n = 0; n < counts[i]; ++n)
            ov_fprintf(file, "%d\t%g\t%g\t%g\n", n, positions[i][n].u, positions[i][n].v, positions[i][n].w);
        ov_fprintf(file, " Occupancy = %g\n", sites[i].occupancy);
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
    fprint_gen_atom_pos(file, crystal.num_sym_op, crystal.sym_op, crystal.num_site, crystal.site);
    ov_fclose(file);
}

} // namespace orvel
