// SPDX-License-Identifier: MIT
#include "crystal/strct_f.h"

#include <cmath>
#include <cstdlib>

#include "numeric/vecmat.h"

namespace orvel {

// ---- phases ---------------------------------------------------------------------------------

// Positions that agree modulo the cell to this are one: the difference of their phases stays below
// the rounding of the sums even for indices in the hundreds.
static const double same_position = 1e-15;

static bool coincide(double x, double y) {
    const double d = std::fabs(fractional(x) - fractional(y));
    return d <= same_position || 1 - d <= same_position;
}

// The distinct positions of a site, and how many operations lead to each. Returns their number.
static int distinct_positions(const atom& site, int num_sym_op, const sym_op* sym_ops, r_uvw* positions, double* counts) {
    int distinct = 0;
    for (int n = 0; n < num_sym_op; ++n) {
        const r_uvw p = gen_pos({site.x, site.y, site.z}, sym_ops[n]);
        int known = 0;
        while (known < distinct && !(coincide(p.u, positions[known].u) && coincide(p.v, positions[known].v) &&
                                     coincide(p.w, positions[known].w)))
            ++known;
        if (known == distinct) {
            positions[distinct] = p;
            counts[distinct++] = 0.0;
        }
        counts[known] += 1.0;
    }
    return distinct;
}

// powers[n + max][p] = exp(-2 pi i n x_p) for n = -max .. max, x_p one coordinate of position p.
static complex** new_powers(int max, int num_pos, const r_uvw* positions, double r_uvw::*coordinate) {
    complex** powers = new_matrix<complex>(2 * to_size(max) + 1, to_size(num_pos));
    for (int n = -max; n <= max; ++n)
        for (int p = 0; p < num_pos; ++p)
            powers[n + max][p] = c_exp({0.0, -two_pi * (n * (positions[p].*coordinate))});
    return powers;
}

phase_table new_phase_table(const csd& crystal, hkl max) {
    phase_table table = {max, crystal.num_site, new_vector<site_phases>(to_size(crystal.num_site))};
    r_uvw* positions = new_vector<r_uvw>(to_size(crystal.num_sym_op));
    for (int i = 0; i < crystal.num_site; ++i) {
        site_phases& s = table.site[i];
        s.counts = new_vector<double>(to_size(crystal.num_sym_op));
        s.num_pos = distinct_positions(crystal.site[i], crystal.num_sym_op, crystal.sym_op, positions, s.counts);
        s.h = new_powers(max.h, s.num_pos, positions, &r_uvw::u);
        s.k = new_powers(max.k, s.num_pos, positions, &r_uvw::v);
        s.l = new_powers(max.l, s.num_pos, positions, &r_uvw::w);
        s.hk = new_vector<complex>(to_size(s.num_pos));
        s.last_h = max.h + 1; // no product stands yet
    }
    std::free(positions);
    return table;
}

void free_phase_table(phase_table& table) {
    for (int i = 0; i < table.num_site; ++i) {
        std::free(table.site[i].counts);
        free_matrix(table.site[i].h);
        free_matrix(table.site[i].k);
        free_matrix(table.site[i].l);
        std::free(table.site[i].hk);
    }
    std::free(table.site);
}

static bool within(int h, int max) { return h >= -max && h <= max; }

bool in_phase_table(const phase_table& table, hkl g) {
    return within(g.h, table.max.h) && within(g.k, table.max.k) && within(g.l, table.max.l);
}

complex tabled_phase_sum(phase_table& table, int i, hkl g) {
    site_phases& s = table.site[i];
    if (g.h != s.last_h || g.k != s.last_k) {
        const complex* h = s.h[g.h + table.max.h];
        const complex* k = s.k[g.k + table.max.k];
        for (int p = 0; p < s.num_pos; ++p) {
            const complex product = c_mul(h[p], k[p]);
            s.hk[p] = {s.counts[p] * product.re, s.counts[p] * product.im};
        }
        s.last_h = g.h;
        s.last_k = g.k;
    }
    const complex* l = s.l[g.l + table.max.l];
    complex sum = {0.0, 0.0};
    for (int p = 0; p < s.num_pos; ++p)
        sum = c_add(sum, c_mul(s.hk[p], l[p]));
    return sum;
}

// ---- the stock ------------------------------------------------------------------------------

// Places of the index: a power of 2 well above the capacity, so that chains stay short.
static const unsigned index_size = 4096;
static_assert(index_size >= 2 * stock_max, "the index must keep free places");

fg_stock new_stock() {
    return {0, new_vector<hkl>(stock_max), new_vector<complex>(stock_max), new_vector<int>(index_size), nullptr};
}

void free_stock(fg_stock& stock) {
    std::free(stock.g);
    std::free(stock.fg);
    std::free(stock.index);
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

// Place of the index that holds g, or the free one where it would go. A place holds a position in
// the stock plus 1.
static unsigned index_place(const fg_stock& stock, hkl g) {
    // Any odd multipliers that spread neighbouring indices serve.
    unsigned place = static_cast<unsigned>(g.h) * 73856093u ^ static_cast<unsigned>(g.k) * 19349663u ^
                     static_cast<unsigned>(g.l) * 83492791u;
    for (place %= index_size; stock.index[place] != 0; place = (place + 1) % index_size) {
        const hkl known = stock.g[stock.index[place] - 1];
        if (known.h == g.h && known.k == g.k && known.l == g.l)
            break;
    }
    return place;
}

int search_stock(const fg_stock& stock, hkl g) { return stock.index[index_place(stock, g)] - 1; }

// A duplicate keeps its first place in the index, as in a search from the front.
static void append(fg_stock& stock, hkl g, complex fg) {
    const unsigned place = index_place(stock, g);
    stock.g[stock.count] = g;
    stock.fg[stock.count] = fg;
    ++stock.count;
    if (stock.index[place] == 0)
        stock.index[place] = stock.count;
}

void stock_fg_tbl_sym(int h, int k, int l, complex fg, fg_stock& stock, int num_sym_op, const sym_op* sym_ops) {
    if (stock.count >= stock_max)
        return;
    append(stock, {h, k, l}, fg);
    for (int n = 0; n < num_sym_op && stock.count < stock_max; ++n) {
        const sym_op& op = sym_ops[n];
        const hkl r = gen_reflex({h, k, l}, op);
        if (search_stock(stock, r) >= 0)
            continue;
        // F(R^T h) = F(h) exp(+2 pi i h.t): the opposite sign of the sum's phase.
        const double phase = two_pi * (h * op.trans[0] + k * op.trans[1] + l * op.trans[2]);
        append(stock, r, c_mul(fg, c_exp({0.0, phase})));
    }
}

complex structure_factor_ext_tbl(int h, int k, int l, int num_sym_op, const sym_op* sym_ops, int num_site, atom* sites,
                                 const xdt_tbl* xdt, const bk_tbl* bk, double kv, lattice lat,
                                 const char* latt_type, int r_hex_axes, fg_stock& stock, int& flag) {
    const int known = search_stock(stock, {h, k, l});
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
    if (stock.phases == nullptr || !in_phase_table(*stock.phases, g))
        return structure_factor_ext_tbl(g.h, g.k, g.l, crystal.num_sym_op, crystal.sym_op, crystal.num_site,
                                        crystal.site, crystal.xdt, crystal.bk, kv, lat, crystal.latt_type,
                                        crystal.r_hex_axes, stock, flag);
    flag = 0;
    const int known = search_stock(stock, g);
    if (known >= 0)
        return stock.fg[known];
    complex fg = {0.0, 0.0};
    if (extinction_rule(g.h, g.k, g.l, crystal.latt_type, crystal.r_hex_axes) == 0)
        fg = crystal_fg(fg_total, g, crystal, kv, lat, stock.phases, flag);
    stock_fg_tbl_sym(g.h, g.k, g.l, fg, stock, crystal.num_sym_op, crystal.sym_op);
    return fg;
}

} // namespace orvel
