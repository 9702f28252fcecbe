// SPDX-License-Identifier: MIT
#include "crystal/lattice.h"

#include <cmath>
#include <cstdlib>

#include "control/ov_mpi.h"
#include "control/utils.h"
#include "numeric/complex.h"

namespace orvel {

static const double shortest = 1e-12; // below it a vector, or its square, counts as zero

lattice bravai(double a, double b, double c, double alpha, double beta, double gamma) {
    const double A = alpha * pi / 180;
    const double B = beta * pi / 180;
    const double C = gamma * pi / 180;
    const double cA = std::cos(A), cB = std::cos(B), cC = std::cos(C);
    const double sA = std::sin(A), sB = std::sin(B), sC = std::sin(C);

    lattice lat;
    lat.s11 = b * b * c * c * sA * sA;
    lat.s22 = a * a * c * c * sB * sB;
    lat.s33 = a * a * b * b * sC * sC;
    lat.s12 = a * b * c * c * (cA * cB - cC);
    lat.s13 = a * b * b * c * (cC * cA - cB);
    lat.s23 = a * a * b * c * (cB * cC - cA);
    lat.vol = a * b * c * std::sqrt(1 - cA * cA - cB * cB - cC * cC + 2 * cA * cB * cC);

    const double as = b * c * sA / lat.vol;
    const double bs = a * c * sB / lat.vol;
    const double cs = a * b * sC / lat.vol;
    lat.as2 = as * as;
    lat.bs2 = bs * bs;
    lat.cs2 = cs * cs;
    lat.asbs = as * bs * (cA * cB - cC) / (sA * sB);
    lat.bscs = bs * cs * (cB * cC - cA) / (sB * sC);
    lat.ascs = as * cs * (cC * cA - cB) / (sC * sA);

    lat.a2 = a * a;
    lat.b2 = b * b;
    lat.c2 = c * c;
    lat.ab = a * b * cC;
    lat.bc = b * c * cA;
    lat.ac = a * c * cB;
    return lat;
}

double sq_abs(r_hkl g, lattice lat) {
    return g.h * g.h * lat.as2 + g.k * g.k * lat.bs2 + g.l * g.l * lat.cs2 +
           2 * g.h * g.k * lat.asbs + 2 * g.k * g.l * lat.bscs + 2 * g.h * g.l * lat.ascs;
}

double inner_product(r_hkl g1, r_hkl g2, lattice lat) {
    return g1.h * g2.h * lat.as2 + g1.k * g2.k * lat.bs2 + g1.l * g2.l * lat.cs2 +
           (g1.h * g2.k + g1.k * g2.h) * lat.asbs +
           (g1.k * g2.l + g1.l * g2.k) * lat.bscs +
           (g1.l * g2.h + g1.h * g2.l) * lat.ascs;
}

r_hkl hkl2rhkl(int h, int k, int l) {
    return {static_cast<double>(h), static_cast<double>(k), static_cast<double>(l)};
}

static int clamped_difference(int a, int b) {
    return real_to_int(static_cast<double>(a) - static_cast<double>(b));
}

hkl hkl_difference(hkl g1, hkl g2) {
    return {clamped_difference(g1.h, g2.h), clamped_difference(g1.k, g2.k), clamped_difference(g1.l, g2.l)};
}

// Products of direct vectors in real coordinates; integers of any sensible size stay exact.
static double inner_product_r_uvw(r_uvw s, r_uvw t, lattice lat) {
    return (s.u * t.u) * lat.a2 + (s.v * t.v) * lat.b2 + (s.w * t.w) * lat.c2 +
           (s.u * t.v + s.v * t.u) * lat.ab +
           (s.v * t.w + s.w * t.v) * lat.bc +
           (s.w * t.u + s.u * t.w) * lat.ac;
}

static r_uvw to_r_uvw(uvw t) {
    return {static_cast<double>(t.u), static_cast<double>(t.v), static_cast<double>(t.w)};
}

double inner_product_uvw(uvw t1, uvw t2, lattice lat) {
    return inner_product_r_uvw(to_r_uvw(t1), to_r_uvw(t2), lat);
}

double abs_uvw(uvw t, lattice lat) { return std::sqrt(inner_product_uvw(t, t, lat)); }

double abs_r_uvw(r_uvw t, lattice lat) { return std::sqrt(inner_product_r_uvw(t, t, lat)); }

double inner_product_uvw_hkl(uvw t, r_hkl g) { return t.u * g.h + t.v * g.k + t.w * g.l; }

int laue_zone(uvw t, hkl g) {
    return real_to_int(inner_product_uvw_hkl(t, hkl2rhkl(g.h, g.k, g.l)));
}

r_hkl zolz_ort_base(uvw t, r_hkl g, lattice lat) {
    const double Gx = g.h * lat.as2 + g.k * lat.asbs + g.l * lat.ascs;
    const double Gy = g.h * lat.asbs + g.k * lat.bs2 + g.l * lat.bscs;
    const double Gz = g.h * lat.ascs + g.k * lat.bscs + g.l * lat.cs2;
    const r_hkl cross = {
        (t.v * Gz - t.w * Gy) * lat.vol,
        (t.w * Gx - t.u * Gz) * lat.vol,
        (t.u * Gy - t.v * Gx) * lat.vol,
    };
    const double n = std::sqrt(sq_abs(cross, lat));
    if (n < shortest)
        ov_abort(stdout, "$Error in zolz_ort_base: g2 = 0");
    const double scale = std::sqrt(sq_abs(g, lat)) / n;
    return {cross.h * scale, cross.k * scale, cross.l * scale};
}

r_uvw zolz_ort_base_uvw(uvw t, r_hkl g, lattice lat) {
    const double ta = t.u * lat.a2 + t.v * lat.ab + t.w * lat.ac;
    const double tb = t.u * lat.ab + t.v * lat.b2 + t.w * lat.bc;
    const double tc = t.u * lat.ac + t.v * lat.bc + t.w * lat.c2;
    const r_uvw cross = {
        (g.l * tb - g.k * tc) / lat.vol,
        (g.h * tc - g.l * ta) / lat.vol,
        (g.k * ta - g.h * tb) / lat.vol,
    };
    const double n = abs_r_uvw(cross, lat);
    if (n < shortest)
        ov_abort(stdout, "$Error in zolz_ort_base_uvw: g2 = 0");
    const double scale = 1 / std::sqrt(sq_abs(g, lat)) / n;
    return {cross.u * scale, cross.v * scale, cross.w * scale};
}

void zolz_ort_base_two_uvw(uvw t, r_hkl g, lattice lat, r_uvw& first, r_uvw& second) {
    second = zolz_ort_base_uvw(t, g, lat);
    const r_uvw opposite = zolz_ort_base_uvw(t, zolz_ort_base(t, g, lat), lat);
    first = {-opposite.u, -opposite.v, -opposite.w};
}

r_hkl proj_to_zolz(hkl g, uvw t, r_hkl base1, lattice lat, double& x, double& y) {
    const r_hkl base2 = zolz_ort_base(t, base1, lat);
    const r_hkl point = hkl2rhkl(g.h, g.k, g.l);
    x = inner_product(point, base1, lat) / sq_abs(base1, lat);
    y = inner_product(point, base2, lat) / sq_abs(base1, lat);
    return {x * base1.h + y * base2.h, x * base1.k + y * base2.k, x * base1.l + y * base2.l};
}

r_hkl normalize_vec(r_hkl v, r_hkl ref, lattice lat) {
    const double square = sq_abs(v, lat);
    if (square < shortest)
        return {0.0, 0.0, 0.0};
    const double scale = std::sqrt(sq_abs(ref, lat) / square);
    return {v.h * scale, v.k * scale, v.l * scale};
}

int extinction_rule(int h, int k, int l, const char* latt_type, int r_hex_axes) {
    // 64 bits: a manual beam list may hold any int.
    const long long H = h, K = k, L = l;
    switch (latt_type[0]) {
    case 'P':
        return 0;
    case 'I':
        return static_cast<int>((H + K + L) % 2);
    case 'F':
        return static_cast<int>(std::llabs((H + K) % 2) + std::llabs((K + L) % 2) + std::llabs((H + L) % 2));
    case 'A':
        return static_cast<int>((K + L) % 2);
    case 'B':
        return static_cast<int>((H + L) % 2);
    case 'C':
        return static_cast<int>((H + K) % 2);
    case 'R':
        return r_hex_axes == 1 ? static_cast<int>((K + L - H) % 3) : 0;
    default:
        ov_fprintf(stdout, "$$ Lattice type %s is invalid", latt_type);
        ov_abort(stdout, " in extinction_rule() of lattice\n");
    }
}

double wavelength(double kv) {
    const double volts = 1000 * kv;
    return 12.264263 / std::sqrt(volts * (1 + 9.7847537e-07 * volts));
}

double relativ_corr(double kv) { return 1 + 1.9569507e-06 * (1000 * kv); }

double evdash(double kv) {
    const double rest_energy = 510999.0; // eV
    const double volts = 1000 * kv;
    return volts * (1 + 0.5 * volts / rest_energy) / (1 + volts / rest_energy);
}

} // namespace orvel
