// SPDX-License-Identifier: MIT
#include "crystal/strct_f.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "numeric/vecmat.h"

namespace orvel {

// h^2 / (2 pi m0 e), V angstrom^2 per angstrom of Fg, as its inverse; pi divided by it is the
// constant between Vg and Ug. Both are this program's own values.
static const double inverse_volts_per_fg = 0.020886563;
static const double volts_per_ug = 150.41214074282078;

static const double longest_xig = 1e10;  // extinction distance of a vanishing potential
static const double smallest_ug = 1e-12; // below it a potential counts as vanishing

// ---- sums over operations -------------------------------------------------------------------

// Argument of the anisotropic temperature factor of a reflection.
static double beta_form(const atom& site, hkl g) {
    const double h = g.h, k = g.k, l = g.l;
    return site.beta11 * h * h + site.beta22 * k * k + site.beta33 * l * l +
           2 * site.beta12 * h * k + 2 * site.beta13 * h * l + 2 * site.beta23 * k * l;
}

// Geometric structure factor of one site: the sum of phases over all operations with temperature
// factor, occupancy and multiplicity. The translation goes with the original indices, the position
// with the rotated ones.
static complex site_sum(hkl g, double sq_s, int num_sym_op, const sym_op* sym_ops, const atom& site) {
    if (site.bf != 0 && site.bf != 1)
        ov_abort(stdout, "ERROR: Invalid atom.bf. Abort.\n");
    complex sum = {0.0, 0.0};
    for (int n = 0; n < num_sym_op; ++n) {
        const sym_op& op = sym_ops[n];
        const hkl r = gen_reflex(g, op);
        const double phase = -two_pi * (r.h * site.x + r.k * site.y + r.l * site.z +
                                        g.h * op.trans[0] + g.k * op.trans[1] + g.l * op.trans[2]);
        const double T = site.bf == 1 ? std::exp(-beta_form(site, r)) : 1.0;
        sum.re += T * std::cos(phase);
        sum.im += T * std::sin(phase);
    }
    double weight = site.occupancy * site.multiplicity;
    if (site.bf == 0)
        weight *= std::exp(-site.B * sq_s);
    return {sum.re * weight, sum.im * weight};
}

complex calc_structure_factor_ph(int h, int k, int l, double sq_s, int num_sym_op, const sym_op* sym_ops,
                                 int num_site, const atom* sites, const double* f_ela, const double* f_inela) {
    complex fg = {0.0, 0.0};
    for (int i = 0; i < num_site; ++i) {
        const complex sum = site_sum({h, k, l}, sq_s, num_sym_op, sym_ops, sites[i]);
        fg = c_add(fg, c_mul(sum, {f_ela[i], f_inela[i]}));
    }
    return fg;
}

// ---- atomic factors -------------------------------------------------------------------------

// Stores the isotropic B that is equivalent to the tensor of an anisotropic site: the absorptive
// tables want one number. (4/3) sum of beta_ij a_i.a_j, as in B. T. M. Willis & A. W. Pryor,
// Thermal Vibrations in Crystallography (1975).
static void set_equivalent_B(atom& site, lattice lat) {
    if (site.bf != 1)
        return;
    site.B = 4.0 / 3.0 *
             (site.beta11 * lat.a2 + site.beta22 * lat.b2 + site.beta33 * lat.c2 +
              2 * (site.beta12 * lat.ab + site.beta23 * lat.bc + site.beta13 * lat.ac));
}

[[noreturn]] static void invalid_af() { ov_abort(stdout, "$$ Invalid af. Abort.\n"); }

static double quarter_sq_abs(int h, int k, int l, lattice lat) {
    return sq_abs(hkl2rhkl(h, k, l), lat) * 0.25;
}

complex calc_structure_factor(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                              const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat, int& flag) {
    const double sq_s = quarter_sq_abs(h, k, l, lat);
    complex fg = {0.0, 0.0};
    flag = 0;
    for (int i = 0; i < num_site; ++i) {
        if (sites[i].af != 0 && sites[i].af != 1)
            invalid_af();
        set_equivalent_B(sites[i], lat);
        double f[2];
        if (atom_bk(bk[i], std::sqrt(sq_s), sites[i].B, f, kv) > bk_in_range)
            flag = 1;
        if (sites[i].af == 0)
            f[0] = atomsf_xdt(sq_s, xdt[i]);
        const complex sum = site_sum({h, k, l}, sq_s, num_sym_op, sym_ops, sites[i]);
        fg = c_add(fg, c_mul(sum, {f[0], f[1]}));
    }
    return fg;
}

complex calc_Fg_ela(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                    const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat) {
    const double sq_s = quarter_sq_abs(h, k, l, lat);
    complex fg = {0.0, 0.0};
    for (int i = 0; i < num_site; ++i) {
        set_equivalent_B(sites[i], lat);
        double f[2];
        // 2 means a Bird & King factor here, and nowhere else.
        if (sites[i].af == 0)
            f[0] = atomsf_xdt(sq_s, xdt[i]);
        else if (sites[i].af == 1 || sites[i].af == 2)
            atom_bk(bk[i], std::sqrt(sq_s), sites[i].B, f, kv);
        else
            invalid_af();
        const complex sum = site_sum({h, k, l}, sq_s, num_sym_op, sym_ops, sites[i]);
        fg = c_add(fg, c_mul(sum, {f[0], 0.0}));
    }
    return fg;
}

complex calc_Fg_inela(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                      const bk_tbl* bk, double kv, lattice lat) {
    const double sq_s = quarter_sq_abs(h, k, l, lat);
    complex fg = {0.0, 0.0};
    for (int i = 0; i < num_site; ++i) {
        if (sites[i].af != 0 && sites[i].af != 1)
            invalid_af();
        set_equivalent_B(sites[i], lat);
        double f[2];
        atom_bk(bk[i], std::sqrt(sq_s), sites[i].B, f, kv);
        const complex sum = site_sum({h, k, l}, sq_s, num_sym_op, sym_ops, sites[i]);
        fg = c_add(fg, c_mul(sum, {0.0, f[1]}));
    }
    return fg;
}

complex calc_z_factor(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                      const xdt_tbl* xdt, lattice lat) {
    const double sq_s = quarter_sq_abs(h, k, l, lat);
    complex fg = {0.0, 0.0};
    for (int i = 0; i < num_site; ++i) {
        set_equivalent_B(sites[i], lat);
        const complex sum = site_sum({h, k, l}, sq_s, num_sym_op, sym_ops, sites[i]);
        fg = c_add(fg, c_mul(sum, {xdt[i].z, 0.0}));
    }
    return fg;
}

double calc_F_0_re(int num_sym_op, int num_site, const atom* sites, const bk_tbl* bk) {
    const double any_kv = 100.0; // f at zero angle does not depend on the voltage
    double sum = 0.0;
    for (int i = 0; i < num_site; ++i) {
        double f[2];
        atom_bk(bk[i], 0.0, 0.0, f, any_kv);
        sum += f[0] * sites[i].occupancy * num_sym_op * sites[i].multiplicity;
    }
    return sum;
}

complex structure_factor_ext(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                             const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat,
                             const char* latt_type, int r_hex_axes, int& flag) {
    if (extinction_rule(h, k, l, latt_type, r_hex_axes) != 0) {
        flag = 0;
        return {0.0, 0.0};
    }
    return calc_structure_factor(h, k, l, num_sym_op, sym_ops, num_site, sites, xdt, bk, kv, lat, flag);
}

// ---- the stock ------------------------------------------------------------------------------

fg_stock new_stock() { return {0, new_vector<hkl>(stock_max), new_vector<complex>(stock_max)}; }

void free_stock(fg_stock& stock) {
    std::free(stock.g);
    std::free(stock.fg);
}

fg_stock new_stock_with_lofg(csd& crystal, double kv, lattice lat) {
    fg_stock stock = new_stock();
    for (int i = 0; i < crystal.num_lofg; ++i) {
        const hkl g = crystal.lofg_hkl[i];
        const complex fg = lofg_to_fg(g.h, g.k, g.l, crystal.lof_type, crystal.lofg[i],
                                      crystal.num_sym_op, crystal.sym_op, crystal.num_site, crystal.site,
                                      crystal.bk, crystal.xdt, kv, lat);
        stock_fg_tbl_sym(g.h, g.k, g.l, fg, stock, crystal.num_sym_op, crystal.sym_op);
    }
    return stock;
}

int search_g_table(int count, int h, int k, int l, const hkl* g) {
    for (int i = 0; i < count; ++i)
        if (g[i].h == h && g[i].k == k && g[i].l == l)
            return i;
    return -1;
}

static void append(fg_stock& stock, hkl g, complex fg) {
    stock.g[stock.count] = g;
    stock.fg[stock.count] = fg;
    ++stock.count;
}

void stock_fg_tbl_sym(int h, int k, int l, complex fg, fg_stock& stock, int num_sym_op, const sym_op* sym_ops) {
    if (stock.count >= stock_max)
        return;
    append(stock, {h, k, l}, fg);
    for (int n = 0; n < num_sym_op && stock.count < stock_max; ++n) {
        const sym_op& op = sym_ops[n];
        const hkl r = gen_reflex({h, k, l}, op);
        if (search_g_table(stock.count, r.h, r.k, r.l, stock.g) >= 0)
            continue;
        // F(R^T h) = F(h) exp(+2 pi i h.t): the opposite sign of the sum's phase.
        const double phase = two_pi * (h * op.trans[0] + k * op.trans[1] + l * op.trans[2]);
        append(stock, r, c_mul(fg, c_exp({0.0, phase})));
    }
}

complex structure_factor_ext_tbl(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                                 const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat,
                                 const char* latt_type, int r_hex_axes, fg_stock& stock, int& flag) {
    const int known = search_g_table(stock.count, h, k, l, stock.g);
    if (known >= 0) {
        flag = 0;
        return stock.fg[known];
    }
    const complex fg = structure_factor_ext(h, k, l, num_sym_op, sym_ops, num_site, sites, xdt, bk, kv, lat,
                                            latt_type, r_hex_axes, flag);
    stock_fg_tbl_sym(h, k, l, fg, stock, num_sym_op, sym_ops);
    return fg;
}

complex stocked_fg(hkl g, csd& crystal, double kv, lattice lat, fg_stock& stock, int& flag) {
    return structure_factor_ext_tbl(g.h, g.k, g.l, crystal.num_sym_op, crystal.sym_op, crystal.num_site, crystal.site,
                                    crystal.xdt, crystal.bk, kv, lat, crystal.latt_type, crystal.r_hex_axes,
                                    stock, flag);
}

complex lofg_to_fg(int h, int k, int l, int lof_type, const lofg_value& value, int num_sym_op, const sym_op* sym_ops,
                   int num_site, atom* sites, const bk_tbl* bk, const xdt_tbl* /*xdt*/, double kv, lattice lat) {
    if (lof_type == lof_fg)
        return {value.fg_re, value.fg_im};
    if (lof_type != lof_fg_ela && lof_type != lof_f && lof_type != lof_f_inela)
        ov_abort(stdout, "$$ Invalid lof_type. Abort.\n");

    complex fg = {value.fg_ela_re, value.fg_ela_im};
    if (lof_type != lof_fg_ela)
        fg = calc_structure_factor_ph(h, k, l, quarter_sq_abs(h, k, l, lat), num_sym_op, sym_ops,
                                      num_site, sites, value.f_ela, value.f_inela);
    if (lof_type != lof_f)
        fg = c_add(fg, calc_Fg_inela(h, k, l, num_sym_op, sym_ops, num_site, sites, bk, kv, lat));
    return fg;
}

// ---- conversions ----------------------------------------------------------------------------

static complex divided(complex z, double real) { return {z.re / real, z.im / real}; }

static double ug_to_xig(complex ug, double wavelength) {
    const double u = c_abs(ug);
    return u < smallest_ug ? longest_xig : 1 / (u * wavelength);
}

complex fg_to_vg(complex fg, lattice lat) { return divided(fg, inverse_volts_per_fg * lat.vol); }

complex fg_to_ug(complex fg, double kv, lattice lat) { return divided(fg, pi * lat.vol / relativ_corr(kv)); }

complex vg_to_ug(complex vg, double gamma) {
    const double factor = gamma * inverse_volts_per_fg / pi;
    return {vg.re * factor, vg.im * factor};
}

double fg_to_xig2(complex fg, double gamma, double wavelength, lattice lat) {
    return ug_to_xig(divided(fg, pi * lat.vol / gamma), wavelength);
}

double vg_to_xig(complex vg, double gamma, double wavelength) {
    return ug_to_xig(divided(vg, volts_per_ug / gamma), wavelength);
}

} // namespace orvel
