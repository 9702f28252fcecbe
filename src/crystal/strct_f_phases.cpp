// SPDX-License-Identifier: MIT
#include "crystal/strct_f.h"

#include <cmath>
#include <cstdlib>

#include "numeric/vecmat.h"

namespace orvel {

// Positions that agree modulo the cell to this are one: the difference of their phases stays below
// the rounding of the sums even for indices in the hundreds.
static const double same_position = 1e-15;

static bool coincide(double x, double y) {
    const double d = std::fabs(fractional(x) - fractional(y));
    return d <= same_position || 1 - d <= same_position;
}

static bool coincide(r_uvw p1, r_uvw p2) {
    return coincide(p1.u, p2.u) && coincide(p1.v, p2.v) && coincide(p1.w, p2.w);
}

static bool equal(const beta_tensor& b1, const beta_tensor& b2) {
    return b1.b11 == b2.b11 && b1.b22 == b2.b22 && b1.b33 == b2.b33 &&
           b1.b12 == b2.b12 && b1.b13 == b2.b13 && b1.b23 == b2.b23;
}

// The tensor that takes the original indices instead of the rotated ones, h' = R^T h: R beta R^T.
static beta_tensor rotated(const atom& site, const sym_op& op) {
    const double beta[3][3] = {{site.beta11, site.beta12, site.beta13},
                               {site.beta12, site.beta22, site.beta23},
                               {site.beta13, site.beta23, site.beta33}};
    const auto element = [&](int i, int j) {
        double sum = 0.0;
        for (int m = 0; m < 3; ++m)
            for (int n = 0; n < 3; ++n)
                sum += op.rot[3 * m + i] * beta[m][n] * op.rot[3 * n + j];
        return sum;
    };
    return {element(0, 0), element(1, 1), element(2, 2), element(0, 1), element(0, 2), element(1, 2)};
}

// The distinct tensors of an anisotropic site, and which one belongs to each operation.
static void find_tensors(const atom& site, int num_sym_op, const sym_op* sym_ops, site_phases& s, int* tensor_of) {
    s.tensors = new_vector<beta_tensor>(to_size(num_sym_op));
    s.num_tensors = 0;
    for (int n = 0; n < num_sym_op; ++n) {
        const beta_tensor tensor = rotated(site, sym_ops[n]);
        int known = 0;
        while (known < s.num_tensors && !equal(tensor, s.tensors[known]))
            ++known;
        if (known == s.num_tensors)
            s.tensors[s.num_tensors++] = tensor;
        tensor_of[n] = known;
    }
}

// The distinct positions of each tensor in turn, and how many operations lead to each.
static void find_positions(const atom& site, int num_sym_op, const sym_op* sym_ops, const int* tensor_of,
                           site_phases& s, r_uvw* positions) {
    for (int t = 0; t < s.num_tensors; ++t) {
        const int begin = s.num_pos;
        for (int n = 0; n < num_sym_op; ++n) {
            if (tensor_of[n] != t)
                continue;
            const r_uvw p = gen_pos({site.x, site.y, site.z}, sym_ops[n]);
            int known = begin;
            while (known < s.num_pos && !coincide(p, positions[known]))
                ++known;
            if (known == s.num_pos)
                positions[s.num_pos++] = p;
            s.counts[known] += 1.0;
        }
        s.tensor_end[t] = s.num_pos;
    }
}

// powers[n + max][p] = exp(-2 pi i n x_p) for n = -max .. max, x_p one coordinate of position p.
static complex** new_powers(int max, int num_pos, const r_uvw* positions, double r_uvw::*coordinate) {
    complex** powers = new_matrix<complex>(2 * to_size(max) + 1, to_size(num_pos));
    for (int n = 0; n <= max; ++n) {
        for (int p = 0; p < num_pos; ++p) {
            powers[max + n][p] = c_exp({0.0, -two_pi * (n * (positions[p].*coordinate))});
            powers[max - n][p] = c_conj(powers[max + n][p]);
        }
    }
    return powers;
}

static site_phases new_site_phases(const atom& site, int num_sym_op, const sym_op* sym_ops, hkl max) {
    const int anisotropic = 1;
    site_phases s = {};
    int* tensor_of = new_vector<int>(to_size(num_sym_op));
    s.num_tensors = 1;
    if (site.bf == anisotropic)
        find_tensors(site, num_sym_op, sym_ops, s, tensor_of);
    s.tensor_end = new_vector<int>(to_size(s.num_tensors));
    s.counts = new_vector<double>(to_size(num_sym_op));
    r_uvw* positions = new_vector<r_uvw>(to_size(num_sym_op));
    find_positions(site, num_sym_op, sym_ops, tensor_of, s, positions);
    s.h = new_powers(max.h, s.num_pos, positions, &r_uvw::u);
    s.k = new_powers(max.k, s.num_pos, positions, &r_uvw::v);
    s.l = new_powers(max.l, s.num_pos, positions, &r_uvw::w);
    s.hk = new_vector<complex>(to_size(s.num_pos));
    s.last_h = max.h + 1; // no product stands yet
    std::free(positions);
    std::free(tensor_of);
    return s;
}

phase_table new_phase_table(const csd& crystal, hkl max) {
    phase_table table = {max, crystal.num_site, new_vector<site_phases>(to_size(crystal.num_site))};
    for (int i = 0; i < crystal.num_site; ++i)
        table.site[i] = new_site_phases(crystal.site[i], crystal.num_sym_op, crystal.sym_op, max);
    return table;
}

void free_phase_table(phase_table& table) {
    for (int i = 0; i < table.num_site; ++i) {
        site_phases& s = table.site[i];
        std::free(s.tensors);
        std::free(s.tensor_end);
        std::free(s.counts);
        free_matrix(s.h);
        free_matrix(s.k);
        free_matrix(s.l);
        std::free(s.hk);
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
    for (int t = 0, p = 0; t < s.num_tensors; ++t) {
        complex of_tensor = {0.0, 0.0};
        for (; p < s.tensor_end[t]; ++p)
            of_tensor = c_add(of_tensor, c_mul(s.hk[p], l[p]));
        const double T = s.tensors == nullptr ? 1.0 : std::exp(-beta_form(s.tensors[t], g));
        sum = c_add(sum, {T * of_tensor.re, T * of_tensor.im});
    }
    return sum;
}

} // namespace orvel
