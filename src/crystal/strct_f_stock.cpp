// SPDX-License-Identifier: MIT
#include "crystal/strct_f_stock.h"

#include <cstdlib>

#include "numeric/vecmat.h"

namespace orvel {

fg_stock new_stock(int max_notes) {
    const std::size_t room = to_size(stock_max) + to_size(max_notes);
    unsigned bits = 1;
    while (std::size_t{1} << bits < 2 * room) // enough free places that chains stay short
        ++bits;
    return {0, 0, max_notes, new_vector<hkl>(room), new_vector<complex>(room), new_vector<int>(room),
            new_vector<int>(std::size_t{1} << bits), bits, nullptr};
}

void free_stock(fg_stock& stock) {
    std::free(stock.g);
    std::free(stock.fg);
    std::free(stock.flag);
    std::free(stock.index);
}

fg_stock new_stock_with_lofg(csd& crystal, double kv, lattice lat, int max_notes) {
    fg_stock stock = new_stock(max_notes);
    for (int i = 0; i < crystal.num_lofg; ++i)
        stock_fg_tbl_sym(crystal.lofg_hkl[i], lofg_to_fg(i, crystal, kv, lat), stock, crystal);
    return stock;
}

int search_g_table(int count, int h, int k, int l, const hkl* g) {
    for (int i = 0; i < count; ++i)
        if (g[i].h == h && g[i].k == k && g[i].l == l)
            return i;
    return -1;
}

// Place of the index that holds g, or the free one where it would go. A place holds a position
// among the entries plus 1.
static unsigned index_place(const fg_stock& stock, hkl g) {
    // Any odd multipliers that spread neighbouring indices over the upper bits serve.
    const unsigned hash = static_cast<unsigned>(g.h) * 0x9e3779b1u + static_cast<unsigned>(g.k) * 0x85ebca77u +
                          static_cast<unsigned>(g.l) * 0xc2b2ae3du;
    const unsigned last = (1u << stock.index_bits) - 1;
    unsigned place = hash >> (32 - stock.index_bits);
    for (; stock.index[place] != 0; place = (place + 1) & last) {
        const hkl known = stock.g[stock.index[place] - 1];
        if (known.h == g.h && known.k == g.k && known.l == g.l)
            break;
    }
    return place;
}

// Position of g in the stock or among the notes, or -1.
static int search_entry(const fg_stock& stock, hkl g) { return stock.index[index_place(stock, g)] - 1; }

int search_stock(const fg_stock& stock, hkl g) {
    const int known = search_entry(stock, g);
    return known < stock_max ? known : -1;
}

// A duplicate keeps its first place in the index, as in a search from the front.
static void set_entry(fg_stock& stock, int position, hkl g, complex fg, int flag) {
    const unsigned place = index_place(stock, g);
    stock.g[position] = g;
    stock.fg[position] = fg;
    stock.flag[position] = flag;
    if (stock.index[place] == 0)
        stock.index[place] = position + 1;
}

static void append(fg_stock& stock, hkl g, complex fg) { set_entry(stock, stock.count++, g, fg, 0); }

static void note(fg_stock& stock, hkl g, complex fg, int flag) {
    if (stock.num_notes < stock.max_notes)
        set_entry(stock, stock_max + stock.num_notes++, g, fg, flag);
}

void stock_fg_tbl_sym(hkl g, complex fg, fg_stock& stock, const csd& crystal) {
    if (stock.count >= stock_max)
        return;
    append(stock, g, fg);
    for (int n = 0; n < crystal.num_sym_op && stock.count < stock_max; ++n) {
        const sym_op& op = crystal.sym_op[n];
        const hkl r = gen_reflex(g, op);
        if (search_stock(stock, r) >= 0)
            continue;
        // F(R^T h) = F(h) exp(+2 pi i h.t): the opposite sign of the sum's phase.
        const double phase = two_pi * (g.h * op.trans[0] + g.k * op.trans[1] + g.l * op.trans[2]);
        append(stock, r, c_mul(fg, c_exp({0.0, phase})));
    }
}

complex structure_factor_ext_tbl(hkl g, csd& crystal, double kv, lattice lat, fg_stock& stock, int& flag) {
    const int known = search_entry(stock, g);
    if (known >= 0) {
        flag = stock.flag[known];
        return stock.fg[known];
    }
    const complex fg = structure_factor_ext(g, crystal, kv, lat, stock.phases, flag);
    if (stock.count < stock_max)
        stock_fg_tbl_sym(g, fg, stock, crystal);
    else
        note(stock, g, fg, flag);
    return fg;
}

} // namespace orvel
