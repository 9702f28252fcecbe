// SPDX-License-Identifier: MIT
//
// Cell geometry against Cartesian vectors and numbers worked by hand; extinctions; beam constants.
#include <array>
#include <climits>
#include <cmath>
#include <valarray>

#include <gtest/gtest.h>

#include "crystal_util.h"

using namespace orvel;
using namespace orvel_test;

using vec = std::valarray<double>;

static double dot(const vec& a, const vec& b) { return (a * b).sum(); }
static double length(const vec& a) { return std::sqrt(dot(a, a)); }
static vec cross(const vec& a, const vec& b) { return a.cshift(1) * b.cshift(2) - a.cshift(2) * b.cshift(1); }

static void expect_near(const vec& got, const vec& wanted, const char* what) {
    EXPECT_NEAR(length(got - wanted), 0, 1e-12 * (1 + length(wanted))) << what;
}

// Each number of a metric, and each vector, from Cartesian axes: a along x, b in the plane of x and y.
TEST(Lattice, AgreesWithCartesianVectors) {
    const double rad = std::acos(-1.0) / 180;
    for (const vec& p :
         {vec{4, 4, 4, 90, 90, 90}, {3, 3, 5, 90, 90, 120}, {3, 4, 5, 80, 95, 110}, {7, 2, 3, 60, 70, 100}}) {
        const lattice lat = bravai(p[0], p[1], p[2], p[3], p[4], p[5]);
        const double ca = std::cos(p[3] * rad), cb = std::cos(p[4] * rad), cg = std::cos(p[5] * rad),
                     sg = std::sin(p[5] * rad);
        const double y = (ca - cb * cg) / sg;
        const vec d[3] = {
            {p[0], 0, 0}, {p[1] * cg, p[1] * sg, 0}, {p[2] * cb, p[2] * y, p[2] * std::sqrt(1 - cb * cb - y * y)}};
        const double V = dot(d[0], cross(d[1], d[2])), V2 = V * V; // a cofactor is V^2 times a reciprocal product
        const vec r[3] = {cross(d[1], d[2]) / V, cross(d[2], d[0]) / V, cross(d[0], d[1]) / V};
        const double wanted[19] = {
            V2 * dot(r[0], r[0]), V2 * dot(r[1], r[1]), V2 * dot(r[2], r[2]),
            V2 * dot(r[0], r[1]), V2 * dot(r[0], r[2]), V2 * dot(r[1], r[2]), V,
            dot(r[0], r[0]), dot(r[1], r[1]), dot(r[2], r[2]), dot(r[0], r[1]), dot(r[1], r[2]), dot(r[0], r[2]),
            dot(d[0], d[0]), dot(d[1], d[1]), dot(d[2], d[2]), dot(d[0], d[1]), dot(d[1], d[2]), dot(d[0], d[2])};
        for (int i = 0; i < 19; ++i)
            EXPECT_NEAR((&lat.s11)[i], wanted[i], 1e-12 * (1 + V2)) << i;

        const auto direct = [&](r_uvw t) -> vec { return t.u * d[0] + t.v * d[1] + t.w * d[2]; };
        const auto reciprocal = [&](r_hkl g) -> vec { return g.h * r[0] + g.k * r[1] + g.l * r[2]; };
        const r_hkl g1 = {1, -2, 3}, g2 = {0.5, 2, -1}; // oblique to the zone axis
        const uvw t = {1, 2, -1};
        const vec G1 = reciprocal(g1), G2 = reciprocal(g2), T = direct({1, 2, -1}), point = reciprocal({2, 0, 1});
        EXPECT_NEAR(inner_product(g1, g2, lat), dot(G1, G2), 1e-12);
        EXPECT_NEAR(sq_abs(g1, lat), dot(G1, G1), 1e-12);
        EXPECT_NEAR(inner_product_uvw(t, {0, 1, 3}, lat), dot(T, direct({0, 1, 3})), 1e-11);
        EXPECT_NEAR(abs_uvw(t, lat), length(T), 1e-12);
        EXPECT_NEAR(abs_r_uvw({0.5, 1, -0.5}, lat), length(T) / 2, 1e-12);
        EXPECT_NEAR(inner_product_uvw_hkl(t, g2), dot(T, G2), 1e-12);

        const vec side = cross(T, G1) / length(cross(T, G1)), second = side * length(G1),
                  front = cross(side, T) / length(T);
        r_uvw e1, e2;
        double x, z;
        zolz_ort_base_two_uvw(t, g1, lat, e1, e2);
        expect_near(reciprocal(zolz_ort_base(t, g1, lat)), second, "zolz_ort_base");
        expect_near(direct(zolz_ort_base_uvw(t, g1, lat)), side / length(G1), "zolz_ort_base_uvw");
        expect_near(direct(e1), front / length(G1), "first of two");
        expect_near(direct(e2), side / length(G1), "second of two");
        expect_near(reciprocal(proj_to_zolz({2, 0, 1}, t, g1, lat, x, z)),
                    dot(point, G1) / dot(G1, G1) * G1 + dot(point, side) * side, "projection");
        EXPECT_NEAR(x, dot(point, G1) / dot(G1, G1), 1e-12);
        EXPECT_NEAR(z, dot(point, second) / dot(G1, G1), 1e-12);
        expect_near(reciprocal(normalize_vec(g2, g1, lat)), G2 * (length(G1) / length(G2)), "normalize_vec");
    }
}

// Hexagonal a = 3, c = 5: a* = 2/(3 sqrt 3), a*.b* = a*^2/2, s12 = a^2 c^2/2. Cubic: [1 1 1] x (2 -2 0)
// = (2, 2, -4), of length sqrt 24 against sqrt 8 of (2 -2 0).
TEST(Lattice, NumbersByHand) {
    const lattice hex = bravai(3, 3, 5, 90, 90, 120), cubic = bravai(4, 4, 4, 90, 90, 90);
    EXPECT_NEAR(hex.as2, 4.0 / 27, 1e-15);
    EXPECT_NEAR(hex.asbs, 2.0 / 27, 1e-15);
    EXPECT_NEAR(hex.s12, 112.5, 1e-10);
    EXPECT_NEAR(cubic.vol, 64, 1e-12);
    EXPECT_NEAR(cubic.as2, 1.0 / 16, 1e-15);
    EXPECT_NEAR(zolz_ort_base({1, 1, 1}, {2, -2, 0}, cubic).h, 2 / std::sqrt(3.0), 1e-12);
    EXPECT_NEAR(zolz_ort_base({1, 1, 1}, {2, -2, 0}, cubic).l, -4 / std::sqrt(3.0), 1e-12);
    EXPECT_EQ(sq_abs({0, 0, 0}, hex), 0.0);
    EXPECT_EQ(normalize_vec({3e-6, 0, 0}, {2, 0, 0}, cubic).h, 0.0) << "a square of 5.6e-13 counts as zero";
    EXPECT_NEAR(normalize_vec({5e-6, 0, 0}, {2, 0, 0}, cubic).h, 2, 1e-12);
    EXPECT_TRUE(std::isnan(bravai(4, 4, 4, 10, 90, 150).vol)) << "angles that close no cell";
    EXPECT_EQ(hkl_difference({INT_MAX, 0, 5}, {INT_MIN, 1, 7}).h, INT_MAX);
    EXPECT_EQ(laue_zone({INT_MAX, 1, 0}, {INT_MIN, 0, 0}), INT_MIN);
    EXPECT_EQ(laue_zone({1, -2, 3}, {4, 5, 6}), 12);
}

// Each reflection with the result of its letter; R on hexagonal axes or not.
TEST(Lattice, Extinctions) {
    static const struct {
        const char* letter;
        int hex;
        std::vector<std::array<int, 4>> results;
    } cases[] = {
        {"P", 0, {{1, 2, 4, 0}}},
        {"I", 0, {{-1, 0, 0, -1}, {1, 1, 2, 0}, {INT_MAX, INT_MAX, INT_MAX, 1}}},
        {"A", 0, {{0, 0, -1, -1}, {1, 1, 1, 0}}},
        {"B", 0, {{0, 1, 1, 1}, {1, 0, 1, 0}}},
        {"C", 0, {{1, -2, 0, -1}, {1, 1, 1, 0}}},
        {"F", 0, {{1, 0, 0, 2}, {1, -1, 0, 2}, {1, 1, -1, 0}, {2, 0, 0, 0}}},
        {"R", 1, {{1, 0, 0, -1}, {0, 1, 1, 2}, {1, 0, 1, 0}, {-1, 1, 1, 0}}},
        {"R", 0, {{1, 0, 0, 0}}},
    };
    for (const auto& c : cases)
        for (const auto& [h, k, l, result] : c.results)
            EXPECT_EQ(extinction_rule(h, k, l, c.letter, c.hex), result) << c.letter << h << k << l;
}

TEST(Lattice, Faults) {
    const lattice lat = bravai(4, 4, 4, 90, 90, 90);
    const std::string parallel = "$Error in zolz_ort_base: g2 = 0";
    expect_faults({{[&] { zolz_ort_base({1, 1, 0}, {2, 2, 0}, lat); }, parallel, ""},
                   {[&] { zolz_ort_base({1, 1, 0}, {0, 0, 0}, lat); }, parallel, ""},
                   {[&] { zolz_ort_base_uvw({0, 0, 0}, {2, 2, 0}, lat); }, "$Error in zolz_ort_base_uvw: g2 = 0", ""},
                   {[] { extinction_rule(1, 0, 0, "X", 0); },
                    "$$ Lattice type X is invalid in extinction_rule() of lattice\n", ""}});
}

// Wavelengths of the textbooks; the corrected energy as (gamma^2 - 1) / (2 gamma) rest energies; at
// 100 kV 12.264263 / sqrt(109784.7537) and 1 + 0.19569507.
TEST(Lattice, ElectronBeam) {
    static const double table[][2] = {
        {10, 0.12205}, {100, 0.037014}, {200, 0.025079}, {300, 0.019687}, {1000, 0.0087192}};
    for (const auto& [kv, lambda] : table) {
        const double gamma = 1 + kv / 510.999;
        EXPECT_NEAR(wavelength(kv), lambda, 5e-5 * lambda) << kv;
        EXPECT_NEAR(relativ_corr(kv), gamma, 2e-7 * gamma) << kv;
        EXPECT_NEAR(evdash(kv), 510999 * (gamma * gamma - 1) / (2 * gamma), 1e-12 * evdash(kv)) << kv;
    }
    EXPECT_DOUBLE_EQ(relativ_corr(100), 1.19569507);
    EXPECT_NEAR(wavelength(100), 0.0370143766, 1e-10);
}
