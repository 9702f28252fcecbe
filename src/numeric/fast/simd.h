// SPDX-License-Identifier: MIT
//
// What the kernel sources are written in: vectors of N doubles, and complex numbers by N with real and
// imaginary parts apart. For kernel sources alone, each compiled once for each machine: everything here
// is local to a source, and these sources call no inline function of other headers, as the linker keeps
// one copy of such a function, made for whichever machine.
#pragma once

#include "numeric/fast/fast.h"

namespace orvel {
namespace {

// ---- widths (those that callers see, group and strip_columns, stand in planes.h) ----------------

// Doubles in a register of the machine. What follows from one number to the next works at this width.
#if defined(__AVX512F__)
constexpr int register_lanes = 8;
#elif defined(__AVX2__)
constexpr int register_lanes = 4;
#else
constexpr int register_lanes = 2;
#endif

// Registers in a row of a strip.
constexpr int strip_registers = strip_columns / register_lanes;

// Rows of a product whose sums stay in registers together, with two registers of columns.
constexpr int product_rows = register_lanes == 8 ? 4 : 2;

// ---- vectors ------------------------------------------------------------------------------------

template <int N>
struct vector_type {
    typedef double real __attribute__((vector_size(8 * N)));
    typedef long long mask __attribute__((vector_size(8 * N))); // of a comparison: -1 or 0
};
template <int N = register_lanes>
using vec = typename vector_type<N>::real;
template <int N = register_lanes>
using mask = typename vector_type<N>::mask;

template <int N = register_lanes>
struct cvec {
    vec<N> re;
    vec<N> im;
};

template <int N = register_lanes>
inline vec<N> all(double x) {
    return x - vec<N>{}; // in contrast to a sum, it costs nothing
}
template <int N = register_lanes>
inline cvec<N> all(double re, double im) {
    return {all<N>(re), all<N>(im)};
}

template <int N = register_lanes>
inline vec<N> load(const double* p) {
    typedef vec<N> in_memory __attribute__((aligned(8), may_alias));
    return *reinterpret_cast<const in_memory*>(p);
}
template <class V>
inline void store(double* p, V x) {
    typedef V in_memory __attribute__((aligned(8), may_alias));
    *reinterpret_cast<in_memory*>(p) = x;
}
template <int N = register_lanes>
inline cvec<N> load(split_vector x) {
    return {load<N>(x.re), load<N>(x.im)};
}
template <int N>
inline void store(split_vector x, cvec<N> z) {
    store(x.re, z.re);
    store(x.im, z.im);
}

// ---- arithmetic ---------------------------------------------------------------------------------

// z + a b, z - a b, z + conj(a) b
template <int N>
inline cvec<N> add_mul(cvec<N> z, cvec<N> a, cvec<N> b) {
    return {z.re + a.re * b.re - a.im * b.im, z.im + a.re * b.im + a.im * b.re};
}
template <int N>
inline cvec<N> sub_mul(cvec<N> z, cvec<N> a, cvec<N> b) {
    return {z.re - a.re * b.re + a.im * b.im, z.im - a.re * b.im - a.im * b.re};
}
template <int N>
inline cvec<N> add_conj_mul(cvec<N> z, cvec<N> a, cvec<N> b) {
    return {z.re + a.re * b.re + a.im * b.im, z.im + a.re * b.im - a.im * b.re};
}
// a b and conj(a) b
template <int N>
inline cvec<N> mul(cvec<N> a, cvec<N> b) {
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
template <int N>
inline cvec<N> conj_mul(cvec<N> a, cvec<N> b) {
    return {a.re * b.re + a.im * b.im, a.re * b.im - a.im * b.re};
}

template <int N>
inline complex sum_of(cvec<N> z) {
    complex sum = {0.0, 0.0};
    for (int i = 0; i < N; ++i) {
        sum.re += z.re[i];
        sum.im += z.im[i];
    }
    return sum;
}

// ---- rows of a strip ----------------------------------------------------------------------------

struct strip_row {
    cvec<> v[strip_registers];
};

inline strip_row load_row(split_vector x) {
    strip_row row;
    for (int k = 0; k < strip_registers; ++k)
        row.v[k] = load(at(x, k * register_lanes));
    return row;
}
inline void store_row(split_vector x, const strip_row& row) {
    for (int k = 0; k < strip_registers; ++k)
        store(at(x, k * register_lanes), row.v[k]);
}

} // namespace
} // namespace orvel
