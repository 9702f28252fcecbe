// SPDX-License-Identifier: MIT
#include "crystal/strct_f.h"

#include <cmath>

#include "control/ov_mpi.h"

namespace orvel {

// h^2 / (2 pi m0 e), V angstrom^2 per angstrom of Fg, as its inverse; pi divided by it is the
// constant between Vg and Ug. Both are this program's own values.
static const double inverse_volts_per_fg = 0.020886563;
static const double volts_per_ug = 150.41214074282078;

static const double longest_xig = 1e10;  // extinction distance of a vanishing potential
static const double smallest_ug = 1e-12; // below it a potential counts as vanishing

// ---- sums over operations -------------------------------------------------------------------

double beta_form(const beta_tensor& b, hkl g) {
    const double h = g.h, k = g.k, l = g.l;
    return b.b11 * h * h + b.b22 * k * k + b.b33 * l * l + 2 * b.b12 * h * k + 2 * b.b13 * h * l + 2 * b.b23 * k * l;
}

// Sum of the phases over all operations, for an anisotropic site with its temperature factor. The
// translation goes with the original indices, the position with the rotated ones.
static complex phase_sum(hkl g, const csd& crystal, const atom& site) {
    const beta_tensor beta = {site.beta11, site.beta22, site.beta33, site.beta12, site.beta13, site.beta23};
    complex sum = {0.0, 0.0};
    for (int n = 0; n < crystal.num_sym_op; ++n) {
        const sym_op& op = crystal.sym_op[n];
        const hkl r = gen_reflex(g, op);
        const double phase = -two_pi * (r.h * site.x + r.k * site.y + r.l * site.z +
                                        g.h * op.trans[0] + g.k * op.trans[1] + g.l * op.trans[2]);
        const double T = site.bf == 1 ? std::exp(-beta_form(beta, r)) : 1.0;
        sum.re += T * std::cos(phase);
        sum.im += T * std::sin(phase);
    }
    return sum;
}

// Geometric structure factor of site i: phases, temperature factor, occupancy and multiplicity.
static complex site_sum(hkl g, double sq_s, const csd& crystal, phase_table* phases, int i) {
    const atom& site = crystal.site[i];
    if (site.bf != 0 && site.bf != 1)
        ov_abort(stdout, "ERROR: Invalid atom.bf. Abort.\n");
    const bool tabled = phases != nullptr && in_phase_table(*phases, g);
    const complex sum = tabled ? tabled_phase_sum(*phases, i, g) : phase_sum(g, crystal, site);
    double weight = site.occupancy * site.multiplicity;
    if (site.bf == 0)
        weight *= std::exp(-site.B * sq_s);
    return {sum.re * weight, sum.im * weight};
}

complex calc_structure_factor_ph(hkl g, double sq_s, const csd& crystal, const double* f_ela, const double* f_inela) {
    complex fg = {0.0, 0.0};
    for (int i = 0; i < crystal.num_site; ++i)
        fg = c_add(fg, c_mul(site_sum(g, sq_s, crystal, nullptr, i), {f_ela[i], f_inela[i]}));
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

// The atomic factor of site i: elastic part, and absorptive part as imaginary one. flag becomes 1 if the
// absorptive tables do not cover the reflection.
static complex atomic_factor(fg_part part, double sq_s, const csd& crystal, int i, double kv, int& flag) {
    const atom& site = crystal.site[i];
    const bool elastic = part == fg_total || part == fg_ela;
    // 2 means a Bird & King factor in the elastic part alone, and nowhere else.
    if (part != fg_z && site.af != 0 && site.af != 1 && !(part == fg_ela && site.af == 2))
        ov_abort(stdout, "$$ Invalid af. Abort.\n");
    if (part == fg_z)
        return {crystal.xdt[i].z, 0.0};
    if (part == fg_ela && site.af == 0)
        return {atomsf_xdt(sq_s, crystal.xdt[i]), 0.0};
    double f[2];
    if (atom_bk(crystal.bk[i], std::sqrt(sq_s), site.B, f, kv) > bk_in_range)
        flag = 1;
    if (!elastic)
        return {0.0, f[1]};
    const double f_ela = site.af == 0 ? atomsf_xdt(sq_s, crystal.xdt[i]) : f[0];
    return {f_ela, part == fg_ela ? 0.0 : f[1]};
}

// ---- structure factors ----------------------------------------------------------------------

static double sq_s_of(hkl g, lattice lat) { return sq_abs(hkl2rhkl(g.h, g.k, g.l), lat) * 0.25; }

complex crystal_fg(fg_part part, hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, int& flag) {
    const double sq_s = sq_s_of(g, lat);
    complex fg = {0.0, 0.0};
    flag = 0;
    for (int i = 0; i < crystal.num_site; ++i) {
        set_equivalent_B(crystal.site[i], lat);
        const complex f = atomic_factor(part, sq_s, crystal, i, kv, flag);
        fg = c_add(fg, c_mul(site_sum(g, sq_s, crystal, phases, i), f));
    }
    return fg;
}

complex crystal_fg_ela(hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, complex& z_factor) {
    const double sq_s = sq_s_of(g, lat);
    int unused_flag = 0; // the elastic factors have no limit that matters here
    complex fg = {0.0, 0.0};
    z_factor = {0.0, 0.0};
    for (int i = 0; i < crystal.num_site; ++i) {
        set_equivalent_B(crystal.site[i], lat);
        const complex f = atomic_factor(fg_ela, sq_s, crystal, i, kv, unused_flag);
        const complex sum = site_sum(g, sq_s, crystal, phases, i);
        fg = c_add(fg, c_mul(sum, f));
        z_factor = c_add(z_factor, c_mul(sum, {crystal.xdt[i].z, 0.0}));
    }
    return fg;
}

complex calc_structure_factor(hkl g, csd& crystal, double kv, lattice lat, int& flag) {
    return crystal_fg(fg_total, g, crystal, kv, lat, nullptr, flag);
}

complex calc_Fg_ela(hkl g, csd& crystal, double kv, lattice lat) {
    int flag;
    return crystal_fg(fg_ela, g, crystal, kv, lat, nullptr, flag);
}

complex calc_Fg_inela(hkl g, csd& crystal, double kv, lattice lat) {
    int flag;
    return crystal_fg(fg_inela, g, crystal, kv, lat, nullptr, flag);
}

complex calc_z_factor(hkl g, csd& crystal, lattice lat) {
    int flag;
    const double no_kv = 0.0; // nuclear charges know no voltage
    return crystal_fg(fg_z, g, crystal, no_kv, lat, nullptr, flag);
}

complex structure_factor_ext(hkl g, csd& crystal, double kv, lattice lat, phase_table* phases, int& flag) {
    flag = 0;
    if (extinction_rule(g.h, g.k, g.l, crystal.latt_type, crystal.r_hex_axes) != 0)
        return {0.0, 0.0};
    return crystal_fg(fg_total, g, crystal, kv, lat, phases, flag);
}

double calc_F_0_re(const csd& crystal) {
    const double any_kv = 100.0; // f at zero angle does not depend on the voltage
    double sum = 0.0;
    for (int i = 0; i < crystal.num_site; ++i) {
        double f[2];
        atom_bk(crystal.bk[i], 0.0, 0.0, f, any_kv);
        sum += f[0] * crystal.site[i].occupancy * crystal.num_sym_op * crystal.site[i].multiplicity;
    }
    return sum;
}

complex lofg_to_fg(int entry, csd& crystal, double kv, lattice lat) {
    const hkl g = crystal.lofg_hkl[entry];
    const lofg_value& value = crystal.lofg[entry];
    const int lof_type = crystal.lof_type;
    if (lof_type == lof_fg)
        return {value.fg_re, value.fg_im};
    if (lof_type != lof_fg_ela && lof_type != lof_f && lof_type != lof_f_inela)
        ov_abort(stdout, "$$ Invalid lof_type. Abort.\n");

    complex fg = {value.fg_ela_re, value.fg_ela_im};
    if (lof_type != lof_fg_ela)
        fg = calc_structure_factor_ph(g, sq_s_of(g, lat), crystal, value.f_ela, value.f_inela);
    if (lof_type != lof_f)
        fg = c_add(fg, calc_Fg_inela(g, crystal, kv, lat));
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
